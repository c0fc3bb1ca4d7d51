#include "support/arguments.h"
#include "support/fault.h"

#include <gtest/gtest.h>

#include <lib/context.h>
#include <lib/memory.h>
#include <qel/qelp.h>

#include <time.h>

namespace {

uint64_t monotonic_nanoseconds() {
    struct timespec clock;
    clock_gettime(CLOCK_MONOTONIC, &clock);
    return static_cast<uint64_t>(clock.tv_sec) * 1000000000 + static_cast<uint64_t>(clock.tv_nsec);
}

TEST(Serial, is_the_monotonic_clock_in_big_endian_bytes) {
    QelContext context = {};
    uint64_t last = monotonic_nanoseconds();
    for (int i = 0; i < 100; ++i) {
        uint8_t *bytes = nullptr;
        uint16_t length = 0;
        ASSERT_EQ(__qel_gen_serial(&context, &bytes, &length), QEL_OK);
        const qel::Owned<uint8_t> owner(bytes);
        ASSERT_GE(length, 1);
        ASSERT_LE(length, 8);
        EXPECT_NE(bytes[0], 0) << "leading zero byte";
        uint64_t serial = 0;
        for (uint16_t at = 0; at < length; ++at)
            serial = serial << 8 | bytes[at];
        EXPECT_GT(serial, last);
        EXPECT_LE(serial, monotonic_nanoseconds());
        last = serial;
    }
}

TEST(Serial, reports_failures) {
    QelContext context = {};
    auto *bytes = reinterpret_cast<uint8_t *>(1);
    uint16_t length = 7;
    each_missing(QEL_ERR_BAD_PARAM, __qel_gen_serial, {}, &context, &bytes, &length);
    EXPECT_EQ(bytes, nullptr);
    EXPECT_EQ(length, 0);
    fault::each_allocation([&] {
        uint8_t *made = nullptr;
        uint16_t size = 0;
        const QelStatus status = __qel_gen_serial(&context, &made, &size);
        const qel::Owned<uint8_t> owner(made);
        EXPECT_EQ(status, fault::met() ? QEL_ERR_NO_MEMORY : QEL_OK);
        EXPECT_EQ(made == nullptr && size == 0, fault::met());
    });
}

} // namespace
