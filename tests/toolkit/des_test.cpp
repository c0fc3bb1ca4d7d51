#include "cbc.h"
#include "support/vectors.h"

#include <toolkit/des.h>
#include <toolkit/implementations.h>

using namespace toolkit;

namespace {

// ---- Ours

template <auto run>
void des(const Bytes &key, uint8_t *iv, const uint8_t *in, uint8_t *out, std::size_t blocks) {
    DesKey schedule;
    ASSERT_EQ(key.size(), 8u);
    des_set_key(&schedule, key.data());
    run(&schedule, iv, in, out, blocks);
}

template <auto run>
void ede3(const Bytes &key, uint8_t *iv, const uint8_t *in, uint8_t *out, std::size_t blocks) {
    DesEde3Key schedule;
    ASSERT_EQ(key.size(), 24u);
    des_ede3_set_key(&schedule, key.data());
    run(&schedule, iv, in, out, blocks);
}

// Key, then what is added before DES, then what is added after it.
template <auto run>
void desx(const Bytes &key, uint8_t *iv, const uint8_t *in, uint8_t *out, std::size_t blocks) {
    DesxKey schedule;
    ASSERT_EQ(key.size(), 24u);
    desx_set_key(&schedule, key.data(), key.data() + 8, key.data() + 16);
    run(&schedule, iv, in, out, blocks);
}

// What decrypts in place of the public functions' choice: a row of des_decryptions.
const DesDecryption *decryption;

void des_row(const Bytes &key, uint8_t *iv, const uint8_t *in, uint8_t *out, std::size_t blocks) {
    const uint8_t nothing[8] = {};
    DesKey schedule;
    des_set_key(&schedule, key.data());
    decryption->cbc_decrypt({1, {{&schedule, true}}, nothing, nothing}, iv, in, out, blocks);
}

void ede3_row(const Bytes &key, uint8_t *iv, const uint8_t *in, uint8_t *out, std::size_t blocks) {
    const uint8_t nothing[8] = {};
    DesEde3Key schedule;
    des_ede3_set_key(&schedule, key.data());
    const DesKey *const k = schedule.key;
    const DesPasses passes = {3, {{&k[2], true}, {&k[1], false}, {&k[0], true}}, nothing, nothing};
    decryption->cbc_decrypt(passes, iv, in, out, blocks);
}

void desx_row(const Bytes &key, uint8_t *iv, const uint8_t *in, uint8_t *out, std::size_t blocks) {
    DesKey schedule;
    des_set_key(&schedule, key.data());
    const DesPasses passes = {1, {{&schedule, true}}, key.data() + 16, key.data() + 8};
    decryption->cbc_decrypt(passes, iv, in, out, blocks);
}

// One cipher with every way to decrypt that this processor has: the public function, then each row.
class Ways {
public:
    Ways(const char *name, CbcRun encrypt, CbcRun decrypt, CbcRun row)
        : name_(name), encrypt_(encrypt), decrypt_(decrypt), row_(row) {}

    void each(const std::function<void(const CbcCipher &)> &check) const {
        check({name_, encrypt_, decrypt_});
        for (std::size_t i = 0; i < des_decryption_count; ++i) {
            decryption = &des_decryptions[i];
            if (decryption->available())
                check({std::string(name_) + " " + decryption->name, encrypt_, row_});
        }
    }

private:
    const char *name_;
    CbcRun encrypt_, decrypt_, row_;
};

const Ways des_ways("DES", des<des_cbc_encrypt>, des<des_cbc_decrypt>, des_row);
const Ways ede3_ways("EDE3", ede3<des_ede3_cbc_encrypt>, ede3<des_ede3_cbc_decrypt>, ede3_row);
const Ways desx_ways("DESX", desx<desx_cbc_encrypt>, desx<desx_cbc_decrypt>, desx_row);

} // namespace

// The known answers that exercise each key bit, each data bit, each S-box entry; each is a vector
// of DES and, with its key three times, of triple DES.
TEST(Des, NistKnownAnswers) {
    for (const char *kind : {"invperm", "permop", "subtab", "varkey", "vartext"}) {
        for (const char *mode : {"TECB", "TCBC"}) {
            const std::string name =
                std::string("published/cipher/nist-des/") + mode + kind + ".rsp";
            int cases = 0;
            for (VectorCase &vector : vector_cases(name)) {
                if (!vector.has("COUNT"))
                    continue;
                const Bytes key = vector.bytes("KEYs"), key3 = key + key + key;
                const Bytes plain = vector.bytes("PLAINTEXT"),
                            encrypted = vector.bytes("CIPHERTEXT");
                if (vector.has("IV")) {
                    ASSERT_EQ(to_hex(vector.bytes("IV")), "0000000000000000");
                }
                des_ways.each([&](const CbcCipher &cipher) {
                    check_ecb(cipher, key, plain, encrypted, vector.line);
                });
                ede3_ways.each([&](const CbcCipher &cipher) {
                    check_ecb(cipher, key3, plain, encrypted, vector.line);
                });
                ++cases;
            }
            EXPECT_GE(cases, 38) << name;
        }
    }
}

TEST(Des, NistMultiBlockMessages) {
    for (const char *mode : {"TECBMMT", "TCBCMMT"}) {
        for (const char *option : {"1", "2", "3"}) {
            const std::string name =
                std::string("published/cipher/nist-des/") + mode + option + ".rsp";
            int cases = 0;
            for (VectorCase &vector : vector_cases(name)) {
                if (!vector.has("COUNT"))
                    continue;
                const Bytes key =
                    vector.bytes("KEY1") + vector.bytes("KEY2") + vector.bytes("KEY3");
                const Bytes plain = vector.bytes("PLAINTEXT"),
                            encrypted = vector.bytes("CIPHERTEXT");
                ede3_ways.each([&](const CbcCipher &cipher) {
                    if (vector.has("IV"))
                        check_cbc(cipher, key, vector.bytes("IV"), plain, encrypted, vector.line);
                    else
                        check_ecb(cipher, key, plain, encrypted, vector.line);
                });
                ++cases;
            }
            EXPECT_EQ(cases, 20) << name;
        }
    }
}

// Keys without correct parity among them.
TEST(Des, PeerOnRandomInput) {
    const struct {
        const Ways &ways;
        const char *peer;
        std::size_t key_size;
    } rows[] = {
        {des_ways, "DES-CBC", 8},
        {ede3_ways, "DES-EDE3-CBC", 24},
        {desx_ways, "DESX-CBC", 24},
    };
    for (const auto &row : rows)
        row.ways.each([&](const CbcCipher &cipher) {
            check_cbc_peer(cipher, row.peer,
                           [&](Samples &samples) { return samples.bytes(row.key_size); });
        });
}
