#include "support/secrets.h"

#include <util/toolkit_binding.h>

#include <gtest/gtest.h>

#include <ctime>

using namespace toolkit;

namespace {

// What the library does not link is refused, whatever the toolkit could do.
TEST(Chooser, does_not_let_other_methods_in) {
    const uint8_t iv[8] = {};
    uint8_t bytes[24] = {1, 2, 3};
    const ITEM item = {bytes, sizeof bytes};
    const AlgorithmMethod *const with_desx[] = {&AM_DESX_CBC_ENCRYPT, nullptr};
    const std::pair<B_ALGORITHM_CHOOSER, int> cases[] = {
        {with_desx, BE_OK},
        {chooser, BE_METHOD_NOT_IN_CHOOSER},
    };
    for (const auto &[methods, expected] : cases) {
        B_ALGORITHM_OBJ object = nullptr;
        B_KEY_OBJ key = nullptr;
        ASSERT_EQ(B_CreateAlgorithmObject(&object), 0);
        ASSERT_EQ(B_CreateKeyObject(&key), 0);
        EXPECT_EQ(B_SetAlgorithmInfo(object, AI_DESX_CBC_IV8, iv), 0);
        EXPECT_EQ(B_SetKeyInfo(key, KI_Item, &item), 0);
        EXPECT_EQ(B_EncryptInit(object, key, methods, nullptr), expected);
        B_DestroyKeyObject(&key);
        B_DestroyAlgorithmObject(&object);
    }
}

constexpr char kNumber[] = "a number that is secret";

ITEM number() {
    return {reinterpret_cast<uint8_t *>(strdup(kNumber)), static_cast<uint32_t>(sizeof kNumber)};
}

template <class T>
void free_twice(T contents, void (*free_record)(T **), void (*free_contents)(T *)) {
    auto *record = static_cast<T *>(std::calloc(1, sizeof(T)));
    *record = contents;
    free_record(&record);
    EXPECT_EQ(record, nullptr);
    free_record(&record);
    free_record(nullptr);
    free_contents(nullptr);
}

// Memory checkers tell whether everything was freed.
TEST(KeyRecords, are_zeroed_and_freed_with_their_numbers) {
    SecretWatch watch;
    watch.add("number", bytes_of(kNumber));
    free_twice<ITEM>(number(), free_ITEM, free2_ITEM);
    free_twice<A_RSA_KEY>({number(), number()}, free_A_RSA_KEY, free2_A_RSA_KEY);
    free_twice<A_RSA_CRT_KEY>({number(), {number(), number()}, {number(), number()}, number()},
                              free_A_RSA_CRT_KEY, free2_A_RSA_CRT_KEY);
    EXPECT_TRUE(watch.take_found().empty());
}

TEST(KeyRecords, an_item_of_length_0_owns_nothing) {
    uint8_t not_owned[] = {1, 2, 3};
    ITEM item = {not_owned, 0};
    free2_ITEM(&item);
    A_RSA_CRT_KEY key = {item, {item, item}, {item, item}, item};
    free2_A_RSA_CRT_KEY(&key);
    EXPECT_EQ(not_owned[0], 1);
}

TEST(Spinner, steps_once_in_a_second) {
    const struct {
        const char *reason;
        int32_t before;
        const char *text;
    } rows[] = {
        {"remainder 0", 1000, "\b\\"},      {"remainder 1", 1001, "\b|"},
        {"remainder 2", 1002, "\b/"},       {"remainder 3", 1003, "\b-"},
        {"a negative remainder", -5, "\b"}, {"a negative multiple of 4", -8, "\b\\"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        int32_t shown_at = row.before;
        testing::internal::CaptureStderr();
        EXPECT_EQ(GenKeySurrenderFunction(&shown_at), 0);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), row.text);
        EXPECT_GT(shown_at, 1700000000);
        EXPECT_LE(shown_at, time(nullptr));
    }
    std::string text = "once more";
    for (int32_t now = 0; now != time(nullptr);) { // until no second ended meanwhile
        now = static_cast<int32_t>(time(nullptr));
        int32_t shown_at = now;
        testing::internal::CaptureStderr();
        EXPECT_EQ(GenKeySurrenderFunction(&shown_at), 0);
        text = testing::internal::GetCapturedStderr();
    }
    EXPECT_EQ(text, "");
    EXPECT_EQ(GenKeySurrenderFunction(nullptr), 0);
}

} // namespace
