#include <toolkit/md2.h>
#include <toolkit/md5.h>
#include <toolkit/random.h>

#include <cerrno>
#include <cstring>
#include <string.h>
#include <sys/random.h>

namespace toolkit {

namespace {

void digest(RandomDigest which, const uint8_t *data, std::size_t size, uint8_t out[16]) {
    if (which == RandomDigest::md2) {
        Md2 md2;
        md2_init(&md2);
        md2_update(&md2, data, size);
        md2_final(&md2, out);
    } else {
        Md5 md5;
        md5_init(&md5);
        md5_update(&md5, data, size);
        md5_final(&md5, out);
    }
}

// state += addend + carry, modulo 2^128, most significant byte first.
void add(uint8_t state[16], const uint8_t addend[16], unsigned carry) {
    for (int i = 15; i >= 0; --i) {
        carry += state[i] + addend[i];
        state[i] = static_cast<uint8_t>(carry);
        carry >>= 8;
    }
}

bool fill_from_kernel(void *, uint8_t *output, std::size_t size) {
    while (size != 0) {
        const ssize_t got = getrandom(output, size, 0);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        output += got;
        size -= static_cast<std::size_t>(got);
    }
    return true;
}

bool fill_from_digest(void *state, uint8_t *output, std::size_t size) {
    digest_random_bytes(static_cast<DigestRandom *>(state), output, size);
    return true;
}

} // namespace

void digest_random_init(DigestRandom *random, RandomDigest which) {
    *random = DigestRandom{which, {}, {}, 0};
}

void digest_random_seed(DigestRandom *random, const uint8_t *seed, std::size_t size) {
    uint8_t addend[16];
    digest(random->digest, seed, size, addend);
    add(random->state, addend, 0);
    explicit_bzero(addend, sizeof addend);
    explicit_bzero(random->output, sizeof random->output);
    random->left = 0;
}

void digest_random_bytes(DigestRandom *random, uint8_t *output, std::size_t size) {
    constexpr uint8_t zero[16] = {};
    while (size != 0) {
        if (random->left == 0) {
            digest(random->digest, random->state, sizeof random->state, random->output);
            add(random->state, zero, 1);
            random->left = sizeof random->output;
        }
        const std::size_t taken = size < random->left ? size : random->left;
        uint8_t *const from = random->output + sizeof random->output - random->left;
        std::memcpy(output, from, taken);
        explicit_bzero(from, taken);
        random->left -= taken;
        output += taken;
        size -= taken;
    }
}

RandomSource system_random() {
    return RandomSource{fill_from_kernel, nullptr};
}

RandomSource digest_random_source(DigestRandom *random) {
    return RandomSource{fill_from_digest, random};
}

} // namespace toolkit
