// What the encoder writes and what it refuses.
#include "runtime.h"
#include "support/fault.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <deque>
#include <string>

namespace {

using dencoder::CountedBytes;
using dencoder::Identifier;
using dencoder::ShortCountedBytes;
using dencoder::Time;

// A list of numbers with its storage.
struct NumberList {
    std::deque<int32_t> numbers;
    std::deque<Numbers> nodes;
    Numbers *first() { return nodes.empty() ? nullptr : &nodes.front(); }

    explicit NumberList(const std::vector<int32_t> &values) {
        for (const int32_t value : values) {
            numbers.push_back(value);
            nodes.push_back({nullptr, &numbers.back()});
            if (nodes.size() > 1)
                nodes[nodes.size() - 2].next = &nodes.back();
        }
    }
};

uint8_t *bytes_in(const char *text) {
    return reinterpret_cast<uint8_t *>(const_cast<char *>(text));
}

// ---- Values that break their type ---------------------------------------------------------------

TEST(Encode, RefusesWhatBreaksTheType) {
    Runtime runtime;
    uint32_t three[] = {3, 1}, forty[] = {1, 40}, one[] = {1};
    uint8_t two_values[] = {5, 0, 5, 0}, cut_short[] = {4, 2, 1}, end_mark[] = {0, 0};
    const Identifier first_of_three = {2, three}, second_of_forty = {2, forty},
                     short_one = {1, one}, none = {2, nullptr};
    const CountedBytes nothing = {0, nullptr}, no_octets = {1, nullptr}, two = {4, two_values},
                       cut = {3, cut_short}, mark = {2, end_mark};
    const ShortCountedBytes no_serial = {0, nullptr};
    const Time no_month = {99, 0, 1, 0, 0, 0, 0, 0, 1}, hour = {99, 1, 1, 25, 0, 0, 0, 0, 1},
               before = {-1, 1, 1, 0, 0, 0, 0, 0, 1}, after = {169, 1, 1, 0, 0, 0, 0, 0, 1},
               zone = {99, 1, 1, 0, 0, 0, 0, 1440, 0};
    const Choice no_choice = {0, {}}, fourth = {4, {}}, empty_choice = {1, {}};
    Numbers empty_node = {nullptr, nullptr}, *list = &empty_node;
    CountedBytes broken = {1, end_mark};
    const Sample broken_rest = {0, 0, 0, nullptr, nullptr, &broken};

    const struct {
        const char *reason;
        int pdu;
        const void *value;
    } cases[] = {
        {"a first component of 3", kIdentifier, &first_of_three},
        {"a second component of 40 below 1", kIdentifier, &second_of_forty},
        {"one component", kIdentifier, &short_one},
        {"no components", kIdentifier, &none},
        {"an integer of no octets", kBig, &nothing},
        {"a short integer of no octets", kShortBig, &no_serial},
        {"a length without octets", kOctets, &no_octets},
        {"a length without bits", kBits, &no_octets},
        {"an open type that holds nothing", kAny, &nothing},
        {"an open type that holds two values", kAny, &two},
        {"an open type that holds half a value", kAny, &cut},
        {"an open type that holds an end mark", kAny, &mark},
        {"an open component that holds half a value", kSample, &broken_rest},
        {"month 0", kTime, &no_month},
        {"hour 25", kTime, &hour},
        {"a year before 1900", kTime, &before},
        {"a year that two digits cannot tell", kTime, &after},
        {"a zone of a day", kTime, &zone},
        {"alternative 0", kChoice, &no_choice},
        {"an alternative beyond the last", kChoice, &fourth},
        {"an alternative without its value", kChoice, &empty_choice},
        {"an element that is not there", kNumbers, &list},
        {"a character outside the alphabet", kPrintable, "a@b"},
        {"an 8-bit character", kIa5, "a\xe4"},
        {"octets in a file that is none", kOctetsFile, &two},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.reason);
        OssStatus status = OSS_DONE;
        EXPECT_EQ(to_hex(runtime.encode(each.value, each.pdu, &status)), "");
        EXPECT_EQ(status, OSS_BAD_VALUE) << runtime.message();
    }
}

// ---- Values and their only encoding -------------------------------------------------------------

TEST(Encode, WritesTheMinimum) {
    Runtime runtime;
    uint8_t zeros[] = {0, 0, 0, 0x80}, ones[] = {0xff, 0xff, 0x7f},
            nothing_but_ones[] = {0xff, 0xff}, null[] = {5, 0}, garbage[] = {0xab, 0xff};
    const uint8_t true_value = 2;
    const int32_t minus = -129;
    const uint32_t large = 0x80000000;
    const CountedBytes with_zeros = {4, zeros}, bits = {11, garbage}, empty = {0, nullptr},
                       open = {2, null};
    const ShortCountedBytes with_ones = {3, ones}, only_ones = {2, nothing_but_ones};
    const Time year_2001 = {101, 2, 3, 4, 5, 6, 0, 99, 1}, two_digits = {1, 2, 3, 4, 5, 6, 0, 0, 1},
               west = {68, 2, 3, 24, 5, 6, 0, -61, 0};
    Sample defaults = {}, marked = {0xc0, 0, 0, nullptr, nullptr, nullptr},
           other = {0, 1, -1, nullptr, nullptr, nullptr};
    NumberList numbers({1});
    Sample unmarked_list = {0, 0, 0, nullptr, numbers.first(), nullptr},
           marked_empty_list = {0x20, 0, 0, nullptr, nullptr, nullptr};

    const struct {
        const char *reason;
        int pdu;
        const void *value;
        const char *encoding;
    } cases[] = {
        {"true of any value", kBoolean, &true_value, "0101ff"},
        {"an integer below zero", kInteger, &minus, "0202ff7f"},
        {"an unsigned with its top bit set", kUnsigned, &large, "02050080000000"},
        {"redundant zeros are dropped", kBig, &with_zeros, "02020080"},
        {"redundant ones are dropped", kShortBig, &with_ones, "0202ff7f"},
        {"minus one stays one octet", kShortBig, &only_ones, "0201ff"},
        {"unused bits are zero", kBits, &bits, "030305abe0"},
        {"no bits, without a block", kBits, &empty, "030100"},
        {"no octets, without a block", kOctets, &empty, "0400"},
        {"an open type as it is", kAny, &open, "0500"},
        {"a year counted from 1900", kTime, &year_2001, "17{'010203040506Z'}"},
        {"the same year as its two digits", kTime, &two_digits, "17{'010203040506Z'}"},
        {"a zone west of Greenwich", kTime, &west, "17{'680203240506-0101'}"},
        {"an empty string", kIa5, "", "1600"},
        {"defaults are left out", kSample, &defaults, "3000"},
        {"defaults that are marked are not", kSample, &marked, "30{010100a0{020100}}"},
        {"other values need no mark", kSample, &other, "30{0101ffa0{0201ff}}"},
        {"the mask, not the pointer, tells of a list", kSample, &unmarked_list, "3000"},
        {"also of an empty one", kSample, &marked_empty_list, "30{a200}"},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.reason);
        EXPECT_EQ(to_hex(runtime.encode(each.value, each.pdu)), to_hex(ber(each.encoding)))
            << runtime.message();
    }
}

TEST(Encode, LengthsOfEverySize) {
    Runtime runtime;
    for (const uint32_t length :
         {0x7fu, 0x80u, 0xffu, 0x100u, 0xffffu, 0x10000u, 0xffffffu, 0x1000000u}) {
        Bytes contents(length, 0x55);
        const CountedBytes octets = {length, contents.data()};
        EXPECT_TRUE(runtime.encode(&octets, kOctets) == tlv(4, contents)) << length;
    }
}

TEST(Encode, RulesDecideOrderAndLengths) {
    NumberList numbers({300, 2, 2, -1});
    Numbers *const list = numbers.first();
    CountedBytes null = {2, bytes_in("\x05\0")};
    const Sample sample = {0x20, 0, 7, const_cast<char *>("t"), list, &null};
    const struct {
        const char *reason;
        OssRules rules;
        uint32_t flags;
        const char *encoding;
    } cases[] = {
        {"BER keeps the order", OSS_BER, 0,
         "30{ a0{020107} 81{'t'} a2{0202012c 020102 020102 0201ff} 0500 }"},
        {"indefinite lengths for what is constructed", OSS_BER, OSS_INDEFINITE,
         "3080 a080 020107 0000 81{'t'} a280 0202012c 020102 020102 0201ff 0000 0500 0000"},
        {"DER sorts, and has no indefinite lengths", OSS_DER, OSS_INDEFINITE,
         "30{ a0{020107} 81{'t'} a2{020102 020102 0201ff 0202012c} 0500 }"},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.reason);
        Runtime runtime(each.rules);
        ASSERT_EQ(ossSetEncodingFlags(runtime.get(), each.flags), OSS_DONE);
        const Bytes encoding = runtime.encode(&sample, kSample);
        EXPECT_EQ(to_hex(encoding), to_hex(ber(each.encoding)));
        Runtime der;
        EXPECT_EQ(to_hex(der.encode(der.decode(encoding, kSample).get(), kSample)),
                  to_hex(ber(cases[2].encoding)));
    }
}

TEST(Encode, LongListsNeitherRecurseNorTakeTooLong) {
    Runtime runtime;
    std::vector<int32_t> falling, rising;
    for (int32_t i = 0; i < 100000; ++i) {
        rising.push_back(1000000 + i);
        falling.push_back(1000000 + 99999 - i);
    }
    NumberList sorted(rising), reversed(falling);
    Numbers *const expected = sorted.first(), *const list = reversed.first();
    const std::clock_t start = std::clock();
    EXPECT_TRUE(runtime.encode(&list, kNumbers) == runtime.encode(&expected, kNumbers));
    EXPECT_LT(std::clock() - start, 2 * CLOCKS_PER_SEC);
}

// ---- Buffers ------------------------------------------------------------------------------------

TEST(Encode, FillsTheCallersBufferOrLeavesIt) {
    Runtime runtime;
    const CountedBytes octets = {3, bytes_in("abc")};
    for (const uint32_t capacity : {0u, 4u, 5u, 6u}) {
        SCOPED_TRACE(capacity);
        uint8_t buffer[6] = {9, 9, 9, 9, 9, 9};
        OssBuf output = {capacity, buffer};
        const OssStatus status = ossEncode(runtime.get(), kOctets, &octets, &output);
        EXPECT_EQ(output.value, buffer);
        if (capacity < 5) {
            EXPECT_EQ(status, OSS_SMALL_BUFFER);
            EXPECT_EQ(output.length, capacity);
            EXPECT_THAT(buffer, ::testing::Each(9));
        } else {
            EXPECT_EQ(status, OSS_DONE);
            EXPECT_EQ(output.length, 5u);
            EXPECT_THAT(buffer, ::testing::ElementsAre(4, 3, 'a', 'b', 'c', 9));
        }
    }
}

TEST(Encode, ReportsEachFailedAllocation) {
    Runtime runtime;
    std::vector<int32_t> values;
    for (int32_t i = 0; i < 500; ++i)
        values.push_back(i ^ 0x55);
    NumberList numbers(values);
    const Sample sample = {0x20, 0, 0, nullptr, numbers.first(), nullptr};
    fault::each_allocation([&] {
        OssBuf output = {0, nullptr};
        const OssStatus status = ossEncode(runtime.get(), kSample, &sample, &output);
        EXPECT_EQ(status, fault::met() ? OSS_NO_MEMORY : OSS_DONE);
        EXPECT_EQ(output.value == nullptr, fault::met());
        ossFreeBuf(runtime.get(), output.value);
    });
}

// ---- Environment --------------------------------------------------------------------------------

TEST(Environment, OffersWhatIsLinked) {
    const dencoder::ControlTable only_ber = {
        "ber", [](OssEnvironment *environment) { ossLinkBer(environment); }, test_schema::kPdus};
    Runtime runtime(OSS_BER, only_ber);
    EXPECT_EQ(ossSetEncodingRules(runtime.get(), OSS_DER), OSS_NOT_LINKED);
    EXPECT_EQ(ossGetEncodingRules(runtime.get()), OSS_BER);
    EXPECT_EQ(to_hex(runtime.encode("a@b", kPrintable)), "1303614062"); // nobody checks

    const dencoder::ControlTable none = {"none", nullptr, test_schema::kPdus};
    Runtime empty(OSS_BER, none);
    OssStatus status = OSS_DONE;
    empty.encode("a", kPrintable, &status);
    EXPECT_EQ(status, OSS_NOT_LINKED);
    empty.decode(ber("020105"), kInteger, &status);
    EXPECT_EQ(status, OSS_NOT_LINKED);
}

TEST(Environment, RefusesPackedRulesAndUnknownFlags) {
    Runtime runtime;
    for (const OssRules rules : {OSS_PER_ALIGNED, OSS_PER_UNALIGNED, static_cast<OssRules>(4)})
        EXPECT_EQ(ossSetEncodingRules(runtime.get(), rules), OSS_NOT_LINKED);
    EXPECT_EQ(ossGetEncodingRules(runtime.get()), OSS_DER);
    EXPECT_EQ(ossSetEncodingFlags(runtime.get(), 1), OSS_BAD_ARGUMENT);
    EXPECT_EQ(ossSetDecodingFlags(runtime.get(), 4), OSS_BAD_ARGUMENT);
}

TEST(Environment, IsNotUsedBeforeItsStartOrAfterItsEnd) {
    alignas(16) uint8_t block[OSS_ENVIRONMENT_SIZE + 4] = {};
    auto *environment = reinterpret_cast<OssEnvironment *>(block);
    const int32_t number = 5;
    OssBuf output = {0, nullptr};
    EXPECT_EQ(ossEncode(environment, kInteger, &number, &output), OSS_BAD_ARGUMENT);
    ASSERT_EQ(ossinit(environment, &test_schema::kTable), OSS_DONE);
    EXPECT_EQ(ossEncode(environment, kInteger, &number, &output), OSS_DONE);
    ossFreeBuf(environment, output.value);
    ossterm(environment);
    EXPECT_EQ(ossEncode(environment, kInteger, &number, &output), OSS_BAD_ARGUMENT);
    EXPECT_EQ(ossMarkObj(environment, 1, "file"), nullptr);
    EXPECT_EQ(ossFreePDU(environment, kInteger, nullptr), OSS_BAD_ARGUMENT);
    EXPECT_EQ(ossinit(nullptr, &test_schema::kTable), OSS_BAD_ARGUMENT);
    EXPECT_EQ(ossinit(environment, nullptr), OSS_BAD_ARGUMENT);
    EXPECT_THAT(std::vector<uint8_t>(block + OSS_ENVIRONMENT_SIZE, std::end(block)),
                ::testing::Each(0));
}

} // namespace
