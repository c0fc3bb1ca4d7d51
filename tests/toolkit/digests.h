// digests.h: the questions that every digest is asked.
#ifndef TESTS_TOOLKIT_DIGESTS_H
#define TESTS_TOOLKIT_DIGESTS_H

#include "samples.h"
#include "support/digests.h"
// The peer renames its functions by macros that would catch ours.
#undef md2_init
#undef md2_update

#include <gtest/gtest.h>

#include <algorithm>

// Digests pieces one by one, and checks that nothing of the data is left in the state.
template <class State, void (*init)(State *), void (*update)(State *, const uint8_t *, std::size_t),
          void (*final)(State *, uint8_t *)>
Bytes digest(const Bytes &data, const std::vector<std::size_t> &pieces) {
    State state;
    init(&state);
    update(&state, nullptr, 0);
    const uint8_t *next = data.data();
    for (const std::size_t size : pieces) {
        update(&state, next, size);
        next += size;
    }
    Bytes result(16);
    final(&state, result.data());
    const auto *left = reinterpret_cast<const uint8_t *>(&state);
    EXPECT_TRUE(std::all_of(left, left + sizeof state, [](uint8_t byte) { return byte == 0; }));
    return result;
}

struct Digest {
    const char *name;
    Bytes (*digest)(const Bytes &data, const std::vector<std::size_t> &pieces);
    Bytes (*peer)(const Bytes &data);
};

inline std::string digest_hex(const Digest &algorithm, const Bytes &data) {
    return to_hex(algorithm.digest(data, {data.size()}));
}

// Every length around the block boundaries, in one piece and in random pieces.
inline void check_digest_peer(const Digest &algorithm) {
    Samples samples;
    for (const std::size_t length : sample_lengths()) {
        const Bytes data = samples.bytes(length);
        const std::string expected = to_hex(algorithm.peer(data));
        EXPECT_EQ(digest_hex(algorithm, data), expected) << length;
        EXPECT_EQ(to_hex(algorithm.digest(data, samples.pieces(length))), expected)
            << "in pieces " << length;
    }
}

#endif
