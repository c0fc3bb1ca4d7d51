#include "support/fault.h"
#include "support/files.h"

#include <gtest/gtest.h>
#include <qel/qel.h>

#include <cstdlib>

namespace {

TEST(Random, Arguments) {
    uint8_t *buffer = nullptr;
    EXPECT_EQ(qel_random(0, &buffer), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(qel_random(1, nullptr), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(buffer, nullptr);
}

// As many bytes as were asked for, to the last and no more, in either kind of buffer: over 64 draws
// each bit is 1 once.
TEST(Random, FillsTheBuffer) {
    for (const uint16_t count : {uint16_t{1}, uint16_t{16}, uint16_t{65535}}) {
        Bytes of_new_buffers(count), of_own_buffer(count), own(count + 1u);
        own.back() = 0xa5;
        for (int i = 0; i < 64; ++i) {
            uint8_t *buffer = nullptr;
            ASSERT_EQ(qel_random(count, &buffer), QEL_OK);
            uint8_t *given = own.data();
            ASSERT_EQ(qel_random(count, &given), QEL_OK);
            ASSERT_EQ(given, own.data());
            for (std::size_t at = 0; at < count; ++at) {
                of_new_buffers[at] |= buffer[at];
                of_own_buffer[at] |= own[at];
            }
            free(buffer);
        }
        EXPECT_EQ(of_new_buffers, Bytes(count, 0xff));
        EXPECT_EQ(of_own_buffer, Bytes(count, 0xff));
        EXPECT_EQ(own.back(), 0xa5);
    }
}

TEST(Random, Faults) {
    for (const auto call : {fault::Call::open, fault::Call::read, fault::Call::close}) {
        uint8_t *buffer = nullptr;
        fault::fail(call, 1);
        EXPECT_EQ(qel_random(8, &buffer), QEL_ERR_RANDOM);
        EXPECT_TRUE(fault::clear(call));
        EXPECT_EQ(buffer, nullptr);
    }
    const QelStatus expected[] = {QEL_ERR_NO_MEMORY, QEL_ERR_GENERAL, QEL_OK};
    std::size_t run = 0;
    fault::each_allocation([&] {
        uint8_t *buffer = nullptr;
        EXPECT_EQ(qel_random(8, &buffer), expected[run++]);
        EXPECT_EQ(buffer == nullptr, fault::met());
        free(buffer);
    });
    EXPECT_EQ(run, std::size(expected)) << "the buffer, the session, and no more";
}

} // namespace
