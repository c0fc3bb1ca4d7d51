// siphash.h: SipHash-2-4 (Aumasson, Bernstein) over several pieces of bytes.
#ifndef XFN_SIPHASH_H
#define XFN_SIPHASH_H

#include <bit>
#include <cstdint>
#include <string_view>

namespace xfn {

class SipHash {
public:
    SipHash(uint64_t key_0, uint64_t key_1)
        : v0(key_0 ^ 0x736f6d6570736575), v1(key_1 ^ 0x646f72616e646f6d),
          v2(key_0 ^ 0x6c7967656e657261), v3(key_1 ^ 0x7465646279746573) {}

    SipHash &add(std::string_view bytes) {
        for (const char byte : bytes) {
            word |= static_cast<uint64_t>(static_cast<uint8_t>(byte)) << (8 * (length % 8));
            if (++length % 8 == 0)
                absorb();
        }
        return *this;
    }
    SipHash &add(uint64_t number) {
        for (int shift = 0; shift < 64; shift += 8) {
            const char byte = static_cast<char>(number >> shift);
            add(std::string_view(&byte, 1));
        }
        return *this;
    }
    uint64_t finish() {
        word |= static_cast<uint64_t>(length) << 56;
        absorb();
        v2 ^= 0xff;
        for (int i = 0; i < 4; ++i)
            round();
        return v0 ^ v1 ^ v2 ^ v3;
    }

private:
    uint64_t v0, v1, v2, v3;
    uint64_t word = 0;
    uint64_t length = 0;

    void absorb() {
        v3 ^= word;
        round();
        round();
        v0 ^= word;
        word = 0;
    }
    void round() {
        v0 += v1;
        v1 = std::rotl(v1, 13) ^ v0;
        v0 = std::rotl(v0, 32);
        v2 += v3;
        v3 = std::rotl(v3, 16) ^ v2;
        v0 += v3;
        v3 = std::rotl(v3, 21) ^ v0;
        v2 += v1;
        v1 = std::rotl(v1, 17) ^ v2;
        v2 = std::rotl(v2, 32);
    }
};

} // namespace xfn

#endif
