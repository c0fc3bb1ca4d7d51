// The key of a key package from its pass phrase: two chains of digests of 1000 iterations, with a
// phrase that fits one block of MD5.
#include "bench.h"

#include <cstring>

#include <openssl/md5.h>
#include <qel/qelp.h>
#include <tomcrypt.h>

// Nettle renames its functions by macros; the names are others' too.
#include <nettle/md5.h>
#undef md5_init
#undef md5_update

#include <toolkit/md5.h>

namespace {

constexpr uint32_t iterations = 1000;
constexpr std::size_t digest_size = 16;
const Bytes phrase = {'c', 'o', 'r', 'r', 'e', 'c', 't', ' ', 'h', 'o', 'r', 's', 'e'};
uint8_t salt[8] = {1, 2, 3, 4, 5, 6, 7, 8};

// digest(out, in, size): out becomes the digest of size bytes and the phrase.
template <class Digest> void chains_row(const std::string &name, Digest digest) {
    row(name, 0, [digest] {
        uint8_t chain[digest_size];
        for (const uint8_t *half : {salt, salt + 4}) {
            digest(chain, half, 4);
            for (uint32_t i = 1; i < iterations; ++i)
                digest(chain, chain, digest_size);
            benchmark::DoNotOptimize(chain);
        }
    });
}

void derive(QelContext *context) {
    std::string text(phrase.begin(), phrase.end());
    PassPhraseKeyInput input = {salt, sizeof salt, text.data(), iterations};
    uint8_t *key = nullptr, *iv = nullptr;
    uint32_t key_length = 0, iv_length = 0;
    require(__qel_gen_des3_key_from_pwd(context, &input, &key, &key_length, &iv, &iv_length) ==
                QEL_OK,
            "key from a pass phrase");
    std::free(key);
    std::free(iv);
}

// MD5 as it is, one digest after the other.
void our_digest(uint8_t *out, const uint8_t *in, std::size_t size) {
    toolkit::Md5 md5;
    toolkit::md5_init(&md5);
    toolkit::md5_update(&md5, in, size);
    toolkit::md5_update(&md5, phrase.data(), phrase.size());
    toolkit::md5_final(&md5, out);
}

} // namespace

void register_keypkg() {
    QelContext *context = nullptr;
    require(__qel_init(&context, nullptr, nullptr) == QEL_OK, "context");
    row("phrase-key/1000/qel", 0, [context] { derive(context); });
    chains_row("phrase-key/1000/openssl", [](uint8_t *out, const uint8_t *in, std::size_t size) {
        MD5_CTX md5;
        MD5_Init(&md5);
        MD5_Update(&md5, in, size);
        MD5_Update(&md5, phrase.data(), phrase.size());
        MD5_Final(out, &md5);
    });
    chains_row("phrase-key/1000/nettle", [](uint8_t *out, const uint8_t *in, std::size_t size) {
        md5_ctx md5;
        nettle_md5_init(&md5);
        nettle_md5_update(&md5, size, in);
        nettle_md5_update(&md5, phrase.size(), phrase.data());
        nettle_md5_digest(&md5, digest_size, out);
    });
    chains_row("phrase-key/1000/libtomcrypt",
               [](uint8_t *out, const uint8_t *in, std::size_t size) {
                   hash_state md5;
                   md5_init(&md5);
                   md5_process(&md5, in, size);
                   md5_process(&md5, phrase.data(), phrase.size());
                   md5_done(&md5, out);
               });
    // Beside it the same digests without the pairing of chains.
    chains_row("phrase-key-digests/1000/qel", our_digest);
}
