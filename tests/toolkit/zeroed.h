// zeroed.h: secrets are zeroed before their memory is freed.
#ifndef TESTS_TOOLKIT_ZEROED_H
#define TESTS_TOOLKIT_ZEROED_H

#include "support/fault.h"

#include <gtest/gtest.h>

#include <algorithm>

// Expects every block that the code under test frees, while one of these lives, to be zero. What a
// block can hold beyond the size that was asked for (less than 16 bytes) is not looked at.
class FreedBlocksAreZero {
public:
    FreedBlocksAreZero() {
        blocks = 0;
        fault::watch_free([](const unsigned char *block, std::size_t size) {
            ++blocks;
            const std::size_t used = size < 16 ? 0 : size - 15;
            const auto is_zero = [](unsigned char byte) { return byte == 0; };
            if (!std::all_of(block, block + used, is_zero)) {
                fault::watch_free(nullptr); // the report allocates and frees
                ADD_FAILURE() << "a block of " << size << " bytes";
            }
        });
    }
    FreedBlocksAreZero(const FreedBlocksAreZero &) = delete;
    FreedBlocksAreZero &operator=(const FreedBlocksAreZero &) = delete;
    ~FreedBlocksAreZero() {
        fault::watch_free(nullptr);
        EXPECT_NE(blocks, 0u);
    }

private:
    inline static std::size_t blocks = 0;
};

#endif
