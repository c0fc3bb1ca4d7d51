// Values as text.
#include "runtime.h"
#include "support/process.h"

#include <gtest/gtest.h>

namespace {

TEST(Print, ShowsEveryKind) {
    const struct {
        int pdu;
        const char *input, *text;
    } cases[] = {
        {kBoolean, "0101ff", "Flag ::= TRUE\n"},
        {kInteger, "0201ff", "Integer ::= -1\n"},
        {kUnsigned, "020500ffffffff", "Unsigned ::= 4294967295\n"},
        {kBig, "02088000000000000000", "Big ::= -9223372036854775808\n"},
        {kShortBig, "0209010000000000000000", "ShortBig ::= '010000000000000000'H\n"},
        {kBits, "030305abe0", "Bits ::= 'ABE0'H (11 bits)\n"},
        {kOctets, "0402a0ff", "Octets ::= 'A0FF'H\n"},
        {kIdentifier, "06062a864886f70d", "Oid ::= 1.2.840.113549\n"},
        {kT61, "14{'a\"\\' 1bc4}", "T61 ::= \"a\\\"\\\\\\x1B\\xC4\"\n"},
        {kTime, "17{'010203040506-0130'}", "When ::= \"010203040506-0130\"\n"},
        {kTime, "17{'960203040506Z'}", "When ::= \"960203040506Z\"\n"},
        {kAny, "0500", "Any ::= '0500'H\n"},
        {kNumbers, "31{020101 020102}", "NumberSet ::= {\n  1,\n  2\n}\n"},
        {kChoice, "020105", "Choice ::= number : 5\n"},
        {kSample, "30{ 0101ff a2{020107} }",
         "Sample ::= {\n  flag TRUE,\n  list {\n    7\n  }\n}\n"},
    };
    Runtime runtime;
    for (const auto &each : cases) {
        const auto value = runtime.decode(ber(each.input), each.pdu);
        ASSERT_NE(value, nullptr) << each.text;
        EXPECT_EQ(written_by([&](FILE *stream) {
                      ossSetPrintStream(runtime.get(), stream);
                      EXPECT_EQ(ossPrintPDU(runtime.get(), each.pdu, value.get()), OSS_DONE);
                  }),
                  each.text);
    }
}

TEST(Print, TraceShowsWhatWasDecodedAndNothingElse) {
    Runtime runtime;
    EXPECT_EQ(written_by([&](FILE *stream) {
                  ossSetTraceStream(runtime.get(), stream);
                  runtime.decode(ber("020104"), kInteger);
                  ossSetDecodingFlags(runtime.get(), OSS_TRACE);
                  runtime.decode(ber("020105"), kInteger);
                  runtime.decode(ber("02020005"), kInteger);
                  ossSetDecodingFlags(runtime.get(), 0);
                  runtime.decode(ber("020106"), kInteger);
                  ossSetTraceStream(runtime.get(), nullptr);
              }),
              "Integer ::= 5\n");
}

TEST(Print, ReportsAFullDevice) {
    FILE *full = std::fopen("/dev/full", "w");
    ASSERT_NE(full, nullptr);
    Runtime runtime;
    ossSetPrintStream(runtime.get(), full);
    EXPECT_EQ(ossPrintPDU(runtime.get(), kIa5, "text"), OSS_FILE_ERROR);
    std::fclose(full);
}

} // namespace
