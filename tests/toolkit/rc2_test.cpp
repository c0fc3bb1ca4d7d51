#include "cbc.h"
#include "support/vectors.h"

#include <toolkit/implementations.h>
#include <toolkit/rc2.h>

#include <sstream>

using namespace toolkit;

namespace {

// A test key is two bytes of effective bits, then the key.
unsigned bits_of(const Bytes &key) {
    return static_cast<unsigned>(key[0] << 8 | key[1]);
}

Bytes with_bits(unsigned bits, const Bytes &key) {
    Bytes all = {static_cast<uint8_t>(bits >> 8), static_cast<uint8_t>(bits)};
    all.insert(all.end(), key.begin(), key.end());
    return all;
}

template <auto run>
void rc2(const Bytes &key, uint8_t *iv, const uint8_t *in, uint8_t *out, std::size_t blocks) {
    Rc2Key schedule;
    ASSERT_TRUE(rc2_set_key(&schedule, key.data() + 2, key.size() - 2, bits_of(key)));
    run(&schedule, iv, in, out, blocks);
}

// What decrypts in place of the public function's choice.
const Rc2Decryption *decryption;

void rc2_row(const Bytes &key, uint8_t *iv, const uint8_t *in, uint8_t *out, std::size_t blocks) {
    Rc2Key schedule;
    ASSERT_TRUE(rc2_set_key(&schedule, key.data() + 2, key.size() - 2, bits_of(key)));
    decryption->cbc_decrypt(schedule, iv, in, out, blocks);
}

// RC2 with every way to decrypt that this processor has: the public function, then each row.
void each_way(const std::function<void(const CbcCipher &)> &check) {
    check({"RC2", rc2<rc2_cbc_encrypt>, rc2<rc2_cbc_decrypt>});
    for (std::size_t i = 0; i < rc2_decryption_count; ++i) {
        decryption = &rc2_decryptions[i];
        if (decryption->available())
            check({std::string("RC2 ") + decryption->name, rc2<rc2_cbc_encrypt>, rc2_row});
    }
}

void peer_encrypt(const Bytes &key, uint8_t *iv, const uint8_t *in, uint8_t *out,
                  std::size_t blocks) {
    peer_cbc_encrypt("RC2-CBC", Bytes(key.begin() + 2, key.end()), bits_of(key), iv, in, out,
                     blocks);
}

} // namespace

TEST(Rc2, Rfc2268) {
    std::istringstream lines(text_of(vector_file("published/cipher/rfc2268-rc2.txt")));
    std::string line;
    std::size_t cases = 0;
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        unsigned bits;
        std::string key, plain, encrypted;
        if (!(words >> bits >> key >> plain >> encrypted))
            continue;
        each_way([&](const CbcCipher &cipher) {
            check_ecb(cipher, with_bits(bits, from_hex(key)), from_hex(plain), from_hex(encrypted),
                      cases);
        });
        ++cases;
    }
    EXPECT_EQ(cases, 8u);
}

TEST(Rc2, PeerOnRandomInput) {
    each_way([](const CbcCipher &cipher) {
        check_cbc_peer(cipher, peer_encrypt, [](Samples &samples) {
            const unsigned bits = static_cast<unsigned>(1 + samples.below(1024));
            return with_bits(bits, samples.bytes(1 + samples.below(128)));
        });
    });
}

// Every effective size gives the peer's schedule, whatever its remainder modulo 8.
TEST(Rc2, EveryEffectiveSize) {
    Samples samples;
    const Bytes iv(8), plain = samples.bytes(8);
    for (unsigned bits = 1; bits <= 1024; ++bits) {
        const Bytes key = with_bits(bits, samples.bytes(1 + samples.below(128)));
        EXPECT_EQ(to_hex(cbc_run(rc2<rc2_cbc_encrypt>, key, iv, plain)),
                  to_hex(cbc_run(peer_encrypt, key, iv, plain)))
            << bits;
    }
}

TEST(Rc2, KeyLimits) {
    const struct {
        const char *why;
        std::size_t size;
        unsigned bits;
        bool good;
    } rows[] = {
        {"an empty key", 0, 64, false},        {"the shortest key", 1, 64, true},
        {"the longest key", 128, 64, true},    {"a key too long", 129, 64, false},
        {"no effective bit", 8, 0, false},     {"one effective bit", 8, 1, true},
        {"all effective bits", 8, 1024, true}, {"too many effective bits", 8, 1025, false},
    };
    const Bytes key(129, 7);
    for (const auto &row : rows) {
        Rc2Key schedule;
        EXPECT_EQ(rc2_set_key(&schedule, key.data(), row.size, row.bits), row.good) << row.why;
    }
}

TEST(Rc2, Versions) {
    const struct {
        const char *why;
        uint32_t bits, version;
    } rows[] = {
        {"RFC 2268: 40 bits", 40, 160},
        {"RFC 2268: 64 bits", 64, 120},
        {"RFC 2268: 128 bits", 128, 58},
        {"the last entry of the table", 255, 171},
        {"the first size beyond the table", 256, 256},
        {"the largest size", 1024, 1024},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(rc2_version_from_bits(row.bits), row.version) << row.why;
        EXPECT_EQ(rc2_bits_from_version(row.version), row.bits) << row.why;
    }
    for (uint32_t bits = 1; bits <= 1024; ++bits)
        EXPECT_EQ(rc2_bits_from_version(rc2_version_from_bits(bits)), bits);
    for (const uint32_t none : {1025u, 0xffffffffu}) {
        EXPECT_EQ(rc2_version_from_bits(none), 0u) << none;
        EXPECT_EQ(rc2_bits_from_version(none), 0u) << none;
    }
    EXPECT_EQ(rc2_version_from_bits(0), 0u);
}
