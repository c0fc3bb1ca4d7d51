// What the decoder takes, refuses, and survives.
#include "runtime.h"
#include "support/fault.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <pthread.h>

namespace {

// ---- Forms --------------------------------------------------------------------------------------

struct Form {
    const char *reason;
    int pdu;
    const char *input;
    const char *der; // what the value encodes to; null: refused as malformed
};

const Form kForms[] = {
    {"true is any octet but zero", kBoolean, "0101 01", "0101 ff"},
    {"false", kBoolean, "0101 00", "0101 00"},
    {"a boolean of no octets", kBoolean, "0100", nullptr},
    {"a boolean of two octets", kBoolean, "0102 ffff", nullptr},
    {"a constructed boolean", kBoolean, "21{0101ff}", nullptr},

    {"a length in long form, one octet", kInteger, "0281 01 05", "0201 05"},
    {"a length in long form with many zeros", kInteger, "0288 0000000000000001 05", "0201 05"},
    {"a length of 2^32 + 1, cut to 32 bits, would fit", kInteger, "0285 0100000001 05", nullptr},
    {"a length of 2^64 + 1, cut to 64 bits, would fit", kInteger, "0289 010000000000000001 05",
     nullptr},
    {"a length of 2^63", kOctets, "0488 8000000000000000", nullptr},
    {"a length of 2^32 - 1", kOctets, "0484 ffffffff 00", nullptr},
    {"a length one too long", kOctets, "0402 00", nullptr},
    {"a length octet of 0xff", kOctets, "04ff 00", nullptr},
    {"a length that promises octets and ends", kOctets, "0484 0000", nullptr},
    {"an identifier alone", kOctets, "04", nullptr},
    {"nothing", kOctets, "", nullptr},
    {"a primitive of indefinite length", kOctets, "0480 0000", nullptr},

    {"the lowest integer", kInteger, "0204 80000000", "0204 80000000"},
    {"one below the lowest", kInteger, "0205 ff7fffffff", nullptr},
    {"the highest integer", kInteger, "0204 7fffffff", "0204 7fffffff"},
    {"one above the highest", kInteger, "0205 0080000000", nullptr},
    {"minus one", kInteger, "0201 ff", "0201 ff"},
    {"128 needs its zero", kInteger, "0202 0080", "0202 0080"},
    {"a redundant zero", kInteger, "0202 007f", nullptr},
    {"redundant ones", kInteger, "0202 ff80", nullptr},
    {"an integer of no octets", kInteger, "0200", nullptr},
    {"an integer of another tag", kInteger, "0a01 05", nullptr},
    {"the highest unsigned", kUnsigned, "0205 00ffffffff", "0205 00ffffffff"},
    {"one above the highest unsigned", kUnsigned, "0205 0100000000", nullptr},
    {"an unsigned below zero", kUnsigned, "0201 ff", nullptr},
    {"a long integer", kBig, "0209 00ffffffffffffffff", "0209 00ffffffffffffffff"},
    {"a long integer with a redundant zero", kBig, "0209 007fffffffffffffff", nullptr},
    {"a long integer of no octets", kBig, "0200", nullptr},
    {"a long integer below zero", kShortBig, "0202 8001", "0202 8001"},

    {"no bits", kBits, "0301 00", "0301 00"},
    {"bits with unused ones, which are cleared", kBits, "0302 03ff", "0302 03f8"},
    {"unused bits without octets", kBits, "0301 01", nullptr},
    {"eight unused bits", kBits, "0302 08ff", nullptr},
    {"bits without the count of the unused", kBits, "0300", nullptr},
    {"bits in pieces", kBits, "23{ 030200aa 030204f0 }", "0303 04aaf0"},
    {"bits in pieces, unused in the middle", kBits, "23{ 030204a0 030200ff }", nullptr},
    {"bits in no pieces", kBits, "2300", "0301 00"},
    {"octet pieces in a bit string", kBits, "23{ 0401aa }", nullptr},

    {"no octets", kOctets, "0400", "0400"},
    {"octets in pieces", kOctets, "24{ 0401aa 0400 0402bbcc }", "0403 aabbcc"},
    {"octets in pieces of indefinite length", kOctets, "2480 0401aa 2480 0401bb 0000 0000",
     "0402 aabb"},
    {"pieces that end early", kOctets, "2480 0401aa 00", nullptr},
    {"pieces that never end", kOctets, "2480 0401aa", nullptr},
    {"a piece longer than its string", kOctets, "24{ 0402aa } bb", nullptr},
    {"a piece of another type", kOctets, "24{ 0201aa }", nullptr},
    {"an end mark inside definite length", kOctets, "24{ 0401aa 0000 }", nullptr},
    {"an end mark with a length", kOctets, "2480 0401aa 0001 00", nullptr},

    {"characters", kPrintable, "13{'A-z 0'}", "13{'A-z 0'}"},
    {"characters in octet pieces", kIa5, "36{ 04{'ab'} 04{'c'} }", "16{'abc'}"},
    {"a zero character", kIa5, "16{'a' 00}", nullptr},
    {"an 8-bit character where there are none", kIa5, "16{80}", nullptr},
    {"an 8-bit character in a printable string", kPrintable, "13{80}", nullptr},
    {"an 8-bit character in a T61 string", kT61, "14{ff}", "14{ff}"},
    {"a string of another type", kPrintable, "16{'a'}", nullptr},

    {"an identifier", kIdentifier, "0606 2a864886f70d", "0606 2a864886f70d"},
    {"0.39 and 1.0 lie side by side", kIdentifier, "0601 27", "0601 27"},
    {"2.39", kIdentifier, "0601 77", "0601 77"},
    {"2.999 has one sub-identifier of two octets", kIdentifier, "0602 8837", "0602 8837"},
    {"2.(2^32 - 1)", kIdentifier, "0605 908080804f", "0605 908080804f"},
    {"2.(2^32)", kIdentifier, "0605 9080808050", nullptr},
    {"a component of 2^32 - 1", kIdentifier, "0606 2a8fffffff7f", "0606 2a8fffffff7f"},
    {"a component of 2^32", kIdentifier, "0606 2a9080808000", nullptr},
    {"a component of 2^64 + 1, which 64 bits would cut to 1", kIdentifier,
     "060b 2a82808080808080808001", nullptr},
    {"a component with a leading 0x80", kIdentifier, "0603 2a8001", nullptr},
    {"a first component with a leading 0x80", kIdentifier, "0602 802a", nullptr},
    {"a component cut short", kIdentifier, "0602 2a86", nullptr},
    {"an identifier of no octets", kIdentifier, "0600", nullptr},

    {"a time", kTime, "17{'960426133501Z'}", "17{'960426133501Z'}"},
    {"a time without seconds", kTime, "17{'9604261335Z'}", "17{'960426133500Z'}"},
    {"a time east of Greenwich", kTime, "17{'960528134905+0800'}", "17{'960528134905+0800'}"},
    {"a time west of it, without seconds", kTime, "17{'9605281349-0130'}",
     "17{'960528134900-0130'}"},
    {"the end of a day, written as 24", kTime, "17{'991231240000Z'}", "17{'991231240000Z'}"},
    {"hour 25", kTime, "17{'991231250000Z'}", nullptr},
    {"month 0", kTime, "17{'990031000000Z'}", nullptr},
    {"month 13", kTime, "17{'991331000000Z'}", nullptr},
    {"day 32", kTime, "17{'990132000000Z'}", nullptr},
    {"minute 60", kTime, "17{'990131006000Z'}", nullptr},
    {"second 60", kTime, "17{'990131000060Z'}", nullptr},
    {"a letter for a digit", kTime, "17{'99013100000:Z'}", nullptr},
    {"no zone", kTime, "17{'990131000000'}", nullptr},
    {"a zone in small letters", kTime, "17{'990131000000z'}", nullptr},
    {"a zone of 60 minutes", kTime, "17{'990131000000+0060'}", nullptr},
    {"a zone of a day", kTime, "17{'990131000000+2400'}", nullptr},
    {"half a zone", kTime, "17{'990131000000+08'}", nullptr},
    {"text behind the zone", kTime, "17{'990131000000Z '}", nullptr},
    {"a year of four digits", kTime, "18{'19990131000000Z'}", nullptr},

    {"an open type keeps its form", kAny, "2480 0481 01 aa 0000", "2480 0481 01 aa 0000"},
    {"an open type with a tag of many octets", kAny, "bf8201{0500}", "bf8201{0500}"},
    {"a tag number below 31 in many octets", kAny, "1f1e 00", nullptr},
    {"a tag number with a leading 0x80", kAny, "1f8021 00", nullptr},
    {"a tag number of 2^32 - 1", kAny, "1f8fffffff7f 00", "1f8fffffff7f 00"},
    {"a tag number of 2^32 + 31, which 32 bits would cut to 31", kAny, "1f908080801f 00", nullptr},
    {"an end mark is no value", kAny, "0000", nullptr},
    {"what is open is not looked into when its length is known", kAny, "30{ffff}", "30{ffff}"},
    {"what is of indefinite length must be well-formed", kAny, "3080 ffff 0000", nullptr},

    {"nothing but defaults", kSample, "3000", "3000"},
    {"a default that was written out comes back", kSample, "30{ 010100 a0{020100} }",
     "30{ 010100 a0{020100} }"},
    {"every component", kSample, "30{ 0101ff a0{020107} 81{'t'} a2{020101} 0500 }",
     "30{ 0101ff a0{020107} 81{'t'} a2{020101} 0500 }"},
    {"indefinite all over", kSample, "3080 0101ff a080 020107 0000 a280 0000 0000",
     "30{ 0101ff a0{020107} a200 }"},
    {"an implicitly tagged string in pieces", kSample, "30{ a1{ 04{'a'} 04{'b'} } }",
     "30{ 81{'ab'} }"},
    {"a component behind the last", kSample, "30{ 0500 0101ff }", nullptr},
    {"a component in another's place", kSample, "30{ 81{'t'} a0{020107} 0500 }", nullptr},
    {"an explicit tag around nothing", kSample, "30{ a000 }", nullptr},
    {"an explicit tag around two", kSample, "30{ a0{020107 020107} }", nullptr},
    {"an explicit tag around another type", kSample, "30{ a0{0a0107} }", nullptr},
    {"an explicit tag in primitive form", kSample, "30{ 80{020107} }", nullptr},
    {"a list in primitive form", kSample, "30{ 82{020107} }", nullptr},
    {"an element of another type", kSample, "30{ a2{020107 0a0107} }", nullptr},
    {"a component longer than the sequence", kSample, "30{ 8103'ab' } 'c'", nullptr},
    {"a sequence in primitive form", kSample, "1000", nullptr},
    {"a sequence that never ends", kSample, "3080 0101ff", nullptr},

    {"a set is sorted for DER", kNumbers, "31{ 02020100 020103 0201ff 020103 }",
     "31{ 020103 020103 0201ff 02020100 }"},
    {"the first alternative", kChoice, "14{'x'}", "14{'x'}"},
    {"the second", kChoice, "020105", "020105"},
    {"the third, tagged", kChoice, "a3{3000}", "a3{3000}"},
    {"none of the alternatives", kChoice, "0500", nullptr},
};

TEST(Decode, TakesEveryFormOrRefusesIt) {
    Runtime runtime;
    for (const Form &form : kForms) {
        SCOPED_TRACE(form.reason);
        OssStatus status = OSS_DONE;
        const auto value = runtime.decode(ber(form.input), form.pdu, &status);
        EXPECT_EQ(status, form.der != nullptr ? OSS_DONE : OSS_MALFORMED) << runtime.message();
        EXPECT_EQ(value != nullptr, form.der != nullptr);
        if (value == nullptr || form.der == nullptr)
            continue;
        EXPECT_EQ(to_hex(runtime.encode(value.get(), form.pdu)), to_hex(ber(form.der)));
    }
}

TEST(Decode, TakesTheLongestLengthButNotTheReservedOne) {
    Runtime runtime;
    EXPECT_NE(runtime.decode(ber("04fe") + Bytes(125, 0) + ber("01aa"), kOctets), nullptr);
    EXPECT_EQ(runtime.decode(ber("04ff") + Bytes(126, 0) + ber("01aa"), kOctets), nullptr);
}

TEST(Decode, FillsTheRecords) {
    Runtime runtime;
    const auto identifier =
        runtime.decode<dencoder::Identifier>(ber("06068837ffffff7f"), kIdentifier);
    ASSERT_EQ(identifier->count, 3);
    EXPECT_EQ(identifier->value[0], 2u);
    EXPECT_EQ(identifier->value[1], 999u);
    EXPECT_EQ(identifier->value[2], 0xfffffffu);

    const auto time = runtime.decode<dencoder::Time>(ber("17{'010203040506-0130'}"), kTime);
    EXPECT_EQ(time->year, 1);
    EXPECT_EQ(time->month, 2);
    EXPECT_EQ(time->day, 3);
    EXPECT_EQ(time->hour, 4);
    EXPECT_EQ(time->minute, 5);
    EXPECT_EQ(time->second, 6);
    EXPECT_EQ(time->mindiff, -90);
    EXPECT_EQ(time->utc, 0);

    const auto bits = runtime.decode<dencoder::CountedBytes>(ber("0303 04aaf0"), kBits);
    EXPECT_EQ(bits->length, 12u);

    // Absent octets are still a block, so that copying code need not tell the two apart.
    const auto octets = runtime.decode<dencoder::CountedBytes>(ber("0400"), kOctets);
    EXPECT_EQ(octets->length, 0u);
    EXPECT_NE(octets->value, nullptr);

    const auto sample = runtime.decode<Sample>(ber("30{ a0{020100} a200 }"), kSample);
    EXPECT_EQ(sample->mask, 0x60);
    EXPECT_EQ(sample->text, nullptr);
    EXPECT_EQ(sample->rest, nullptr);

    const auto chosen = runtime.decode<Choice>(ber("020105"), kChoice);
    EXPECT_EQ(chosen->choice, 2);
    EXPECT_EQ(chosen->u.number, 5);
}

TEST(Decode, NoticesWhatIsLeftOver) {
    Runtime runtime;
    for (const char *input : {"020105 00", "020105 0000", "0201 05 020105"}) {
        OssStatus status = OSS_DONE;
        EXPECT_EQ(runtime.decode(ber(input), kInteger, &status), nullptr);
        EXPECT_EQ(status, OSS_LEFT_OVER) << input;
    }
}

TEST(Decode, TellsWhatIsWrongAndWhere) {
    Runtime runtime;
    runtime.decode(ber("30{ a0{02020001} }"), kSample);
    EXPECT_STREQ(runtime.message(), "number: an integer with redundant leading octets (octet 8)");
    runtime.decode(ber("3000"), kSample);
    EXPECT_STREQ(runtime.message(), "no failure");
}

TEST(Decode, PrintableStringsFromOthersMayHoldMore) {
    Runtime runtime;
    const auto text = runtime.decode<char>(ber("13{'a@b*c_&'}"), kPrintable);
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text.get(), "a@b*c_&");
    OssStatus status = OSS_DONE;
    runtime.encode(text.get(), kPrintable, &status);
    EXPECT_EQ(status, OSS_BAD_VALUE);
}

TEST(Decode, LongIntegersFitTheirCount) {
    Runtime runtime;
    const Bytes most(0xffff, 0x55), more(0x10000, 0x55);
    EXPECT_NE(runtime.decode(tlv(2, most), kShortBig), nullptr);
    EXPECT_EQ(runtime.decode(tlv(2, more), kShortBig), nullptr);
    EXPECT_NE(runtime.decode(tlv(2, more), kBig), nullptr);
}

TEST(Decode, RefusesWrongArguments) {
    Runtime runtime;
    void *value = nullptr;
    const Bytes input = ber("020105");
    OssBuf buffer = {3, const_cast<uint8_t *>(input.data())};
    for (int unknown : {-1, 0, kPduCount + 1})
        EXPECT_EQ(ossDecode(runtime.get(), &unknown, &buffer, &value), OSS_BAD_ARGUMENT);
    int pdu = kInteger;
    EXPECT_EQ(ossDecode(runtime.get(), &pdu, &buffer, nullptr), OSS_BAD_ARGUMENT);
    EXPECT_EQ(ossDecode(runtime.get(), &pdu, nullptr, &value), OSS_BAD_ARGUMENT);
    EXPECT_EQ(ossDecode(nullptr, &pdu, &buffer, &value), OSS_BAD_ARGUMENT);
}

// ---- Hostile input ------------------------------------------------------------------------------

struct Hostile {
    const char *reason;
    int pdu;
    Bytes input;
    OssStatus status;
};

std::vector<Hostile> hostile() {
    constexpr std::size_t kMany = 100000;
    Bytes definite = ber("0401aa");
    for (int i = 0; i < 20000; ++i) // grows quadratically in this test, hence fewer
        definite = tlv(0x24, definite);
    return {
        {"octet strings in octet strings, never ending", kOctets, repeated("2480", kMany),
         OSS_TOO_DEEP},
        {"octet strings in octet strings of known length", kOctets, definite, OSS_TOO_DEEP},
        {"open type in open type", kAny, repeated("3080", kMany), OSS_TOO_DEEP},
        {"open type in open type, well ended", kAny,
         repeated("3080", kMany) + repeated("0000", kMany), OSS_TOO_DEEP},
        {"open type of known length with a nest inside", kAny, tlv(0x30, repeated("3080", kMany)),
         OSS_DONE},
        {"a nest where a component is expected", kSample, repeated("3080", kMany), OSS_TOO_DEEP},
        {"explicit tags in explicit tags", kSample, ber("3080") + repeated("a080", kMany),
         OSS_MALFORMED},
    };
}

void *decode_hostile(void *) {
    Runtime runtime;
    for (const Hostile &each : hostile()) {
        SCOPED_TRACE(each.reason);
        OssStatus status = OSS_DONE;
        runtime.decode(each.input, each.pdu, &status);
        EXPECT_EQ(status, each.status);
    }
    return nullptr;
}

TEST(Decode, SurvivesNestsOnASmallStack) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, 256 * 1024), 0);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, decode_hostile, nullptr), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

// Nests as deep as others write them are no hostility.
TEST(Decode, TakesSomeDepth) {
    Runtime runtime;
    const Bytes pieces = repeated("2480", 16) + ber("0401aa") + repeated("0000", 16);
    EXPECT_NE(runtime.decode(pieces, kOctets), nullptr);
    const Bytes open = repeated("3080", 64) + repeated("0000", 64);
    EXPECT_NE(runtime.decode(open, kAny), nullptr);
}

// The processor time of the quickest of three runs: what else the machine does changes it little.
double seconds(const std::function<void()> &work) {
    double best = 1e9;
    for (int run = 0; run < 3; ++run) {
        const std::clock_t start = std::clock();
        work();
        best = std::min(best, static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC);
    }
    return best;
}

// Four times the input may take four times as long, with a wide margin for the machine; what is
// quadratic would take sixteen times. Times too short to tell pass.
TEST(Decode, TakesLinearTime) {
    Runtime runtime;
    struct Shape {
        const char *reason;
        int pdu;
        const char *begin, *unit, *end;
    };
    const Shape shapes[] = {
        {"octets in small pieces", kOctets, "2480", "0401aa", "0000"},
        {"bits in small pieces", kBits, "2380", "030200aa", "0000"},
        {"a set of many integers", kNumbers, "3180", "020105", "0000"},
        {"an open type of many values", kAny, "3080", "0500", "0000"},
        {"an open type of many small nests", kAny, "3080", "3080 3080 0000 0000", "0000"},
    };
    constexpr std::size_t kSmall = 1 << 19, kLarge = 4 * kSmall;
    for (const Shape &shape : shapes) {
        SCOPED_TRACE(shape.reason);
        const auto run = [&](std::size_t size) {
            const Bytes input = ber(shape.begin) +
                                repeated(shape.unit, size / ber(shape.unit).size()) +
                                ber(shape.end);
            return seconds([&] { EXPECT_NE(runtime.decode(input, shape.pdu), nullptr); });
        };
        const double small = run(kSmall), large = run(kLarge);
        EXPECT_TRUE(large < 0.05 || large < 10 * small) << small << " s, then " << large << " s";
    }
    const Bytes large = tlv(4, Bytes(16 << 20, 0x55));
    EXPECT_LT(seconds([&] { EXPECT_NE(runtime.decode(large, kOctets), nullptr); }), 1.0);
}

TEST(Decode, ReportsEachFailedAllocation) {
    Runtime runtime;
    const Bytes input =
        ber("30{ 0101ff a0{020107} a1{ 04{'a'} 04{'b'} } a2{020101 020102} 3080 0500 0000 }");
    fault::each_allocation([&] {
        OssStatus status = OSS_DONE;
        const auto value = runtime.decode(input, kSample, &status);
        EXPECT_EQ(status, fault::met() ? OSS_NO_MEMORY : OSS_DONE);
        EXPECT_EQ(value == nullptr, fault::met());
    });
}

} // namespace
