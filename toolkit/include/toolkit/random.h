// random.h: the digest-based random generators, and the operating system's randomness.
#ifndef TOOLKIT_RANDOM_H
#define TOOLKIT_RANDOM_H

#include <cstddef>
#include <cstdint>

namespace toolkit {

enum class RandomDigest { md2, md5 };

// Generator state: secret, to be zeroed by its owner.
//
// The state is a 128-bit big-endian number, at first 0. Seeding adds the digest of the seed to it
// modulo 2^128; each 16 bytes of output are the digest of the state, which is then increased by
// one. Bytes of a digest that were not asked for serve the next request, unless a seed comes in
// between.
struct DigestRandom {
    RandomDigest digest;
    uint8_t state[16];
    uint8_t output[16];
    std::size_t left; // bytes of output not handed out yet
};

void digest_random_init(DigestRandom *random, RandomDigest digest);
void digest_random_seed(DigestRandom *random, const uint8_t *seed, std::size_t size);
void digest_random_bytes(DigestRandom *random, uint8_t *output, std::size_t size);

// A source of random bytes for the primitives that need one. fill returns false when it has none.
struct RandomSource {
    bool (*fill)(void *state, uint8_t *output, std::size_t size);
    void *state;
};

// The kernel's generator (getrandom): blinding draws on it whatever generator the caller brought.
// Its fill waits until the kernel has entropy, and returns false where there is no such generator.
RandomSource system_random();
RandomSource digest_random_source(DigestRandom *random);

} // namespace toolkit

#endif
