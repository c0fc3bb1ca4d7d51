// What the runtime frees holds no secrets any more.
#include "runtime.h"
#include "support/fault.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

constexpr char kSecret[] = "correct horse battery staple";
constexpr std::size_t kSecretSize = sizeof kSecret - 1;
int leaks = 0;

void look(const unsigned char *block, std::size_t size) {
    leaks += memmem(block, size, kSecret, kSecretSize) != nullptr;
}

int leaks_while(const std::function<void()> &work) {
    leaks = 0;
    fault::watch_free(look);
    work();
    fault::watch_free(nullptr);
    return leaks;
}

const std::string quoted = std::string("'") + kSecret + "'";

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
        EXPECT_EQ(leaks_while([&] { value.reset(); }), 0) << text;
    }
}

TEST(Secret, FailedDecodingLeavesNothing) {
    Runtime runtime;
    for (const std::string &text :
         {"04{" + quoted + "} 00", "30{ 81{" + quoted + "} 04{" + quoted + "} 0500 }",
          "16{" + quoted + "00}", "24{ 04{" + quoted + "} 0500 }", "13{" + quoted + "ff}"}) {
        const Bytes input = ber(text);
        for (int pdu = 1; pdu <= kSample; ++pdu)
            EXPECT_EQ(leaks_while([&] { runtime.decode(input, pdu); }), 0) << text << " " << pdu;
    }
}

} // namespace
