// What the runtime frees holds no secrets any more.
#include "runtime.h"
#include "support/secrets.h"

#include <gtest/gtest.h>

namespace {

const std::string secret = "correct horse battery staple", quoted = "'" + secret + "'";

// Whether work frees a block that holds some of the secret.
bool leaks(const std::function<void()> &work) {
    SecretWatch watch;
    watch.add("secret", bytes_of(secret));
    work();
    return !watch.take_found().empty();
}

TEST(Secret, ValuesAreZeroedWhenTheyAreFreed) {
    Runtime runtime;
    const std::pair<int, std::string> cases[] = {
        {kOctets, "04{" + quoted + "}"},   {kOctets, "24{ 04{" + quoted + "} 04{" + quoted + "} }"},
        {kBits, "03{00" + quoted + "}"},   {kBig, "02{" + quoted + "}"},
        {kShortBig, "02{" + quoted + "}"}, {kIa5, "16{" + quoted + "}"},
        {kAny, "04{" + quoted + "}"},      {kSample, "30{ 81{" + quoted + "} 04{" + quoted + "} }"},
    };
    for (const auto &[pdu, text] : cases) {
        const Bytes input = ber(text);
        auto value = runtime.decode(input, pdu);
        ASSERT_NE(value, nullptr) << text;
        EXPECT_FALSE(leaks([&] { value.reset(); })) << text;
    }
}

TEST(Secret, FailedDecodingLeavesNothing) {
    Runtime runtime;
    for (const std::string &text :
         {"04{" + quoted + "} 00", "30{ 81{" + quoted + "} 04{" + quoted + "} 0500 }",
          "16{" + quoted + "00}", "24{ 04{" + quoted + "} 0500 }", "13{" + quoted + "ff}"}) {
        const Bytes input = ber(text);
        for (int pdu = 1; pdu <= kSample; ++pdu)
            EXPECT_FALSE(leaks([&] { runtime.decode(input, pdu); })) << text << " " << pdu;
    }
}

} // namespace
