#include "cbc.h"
#include "support/vectors.h"

#include <toolkit/implementations.h>
#include <toolkit/rc2.h>

#include <sstream>

using namespace toolkit;

namespace {

template <auto run>
void rc2(const Bytes &key, uint8_t *iv, const uint8_t *in, uint8_t *out, std::size_t blocks) {
    Rc2Key schedule;
    ASSERT_TRUE(rc2_set_key(&schedule, key.data() + 2, key.size() - 2, rc2_bits(key)));
    run(&schedule, iv, in, out, blocks);
}

// What decrypts in place of the public function's choice.
const Rc2Decryption *decryption;

void rc2_row(const Bytes &key, uint8_t *iv, const uint8_t *in, uint8_t *out, std::size_t blocks) {
    Rc2Key schedule;
    ASSERT_TRUE(rc2_set_key(&schedule, key.data() + 2, key.size() - 2, rc2_bits(key)));
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
            check_ecb(cipher, rc2_key(bits, from_hex(key)), from_hex(plain), from_hex(encrypted),
                      cases);
        });
        ++cases;
    }
    EXPECT_EQ(cases, 8u);
}

TEST(Rc2, PeerOnRandomInput) {
    each_way([](const CbcCipher &cipher) {
        check_cbc_peer(cipher, "RC2-CBC", [](Samples &samples) {
            const unsigned bits = static_cast<unsigned>(1 + samples.below(1024));
            return rc2_key(bits, samples.bytes(1 + samples.below(128)));
        });
    });
}

// Every effective size gives the peer's schedule, whatever its remainder modulo 8.
TEST(Rc2, EveryEffectiveSize) {
    Samples samples;
    const Bytes iv(8), plain = samples.bytes(8);
    for (unsigned bits = 1; bits <= 1024; ++bits) {
        const Bytes key = rc2_key(bits, samples.bytes(1 + samples.below(128)));
        EXPECT_EQ(to_hex(cbc_run(rc2<rc2_cbc_encrypt>, key, iv, plain)),
                  to_hex(peer_encrypted("RC2-CBC", key, iv, plain)))
            << bits;
    }
}

TEST(Rc2, KeyLimits) {
    const Bytes key(129, 7);
    Rc2Key schedule;
    for (const std::size_t size : {0u, 1u, 128u, 129u})
        EXPECT_EQ(rc2_set_key(&schedule, key.data(), size, 64), size >= 1 && size <= 128) << size;
    for (const unsigned bits : {0u, 1u, 1024u, 1025u})
        EXPECT_EQ(rc2_set_key(&schedule, key.data(), 8, bits), bits >= 1 && bits <= 1024) << bits;
}

// RFC 2268 gives 160 for 40 bits, 120 for 64 and 58 for 128.
TEST(Rc2, Versions) {
    const std::pair<uint32_t, uint32_t> known[] = {{40, 160},  {64, 120},  {128, 58},
                                                   {255, 171}, {256, 256}, {1024, 1024}};
    for (const auto &[bits, version] : known)
        EXPECT_EQ(rc2_version_from_bits(bits), version);
    for (uint32_t bits = 1; bits <= 1024; ++bits)
        EXPECT_EQ(rc2_bits_from_version(rc2_version_from_bits(bits)), bits);
    for (const uint32_t none : {1025u, 0xffffffffu}) {
        EXPECT_EQ(rc2_version_from_bits(none), 0u) << none;
        EXPECT_EQ(rc2_bits_from_version(none), 0u) << none;
    }
    EXPECT_EQ(rc2_version_from_bits(0), 0u);
}
