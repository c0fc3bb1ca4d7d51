// PKCS#1 v1.5 blocks: forged paddings, and published signatures and encryptions.
#include "big_numbers.h"
#include "support/vectors.h"

#include <map>
#include <nlohmann/json.hpp>
#include <openssl/sha.h>
#include <span>
#include <sstream>
#include <toolkit/pkcs1.h>
#include <toolkit/rsa.h>

using namespace toolkit;

namespace {

constexpr std::size_t kSize = 64;

// head, then filler up to `gap` octets before the end, then tail.
Bytes block_of(Bytes head, uint8_t filler, const Bytes &tail) {
    head.resize(kSize - tail.size(), filler);
    head.insert(head.end(), tail.begin(), tail.end());
    return head;
}

struct BlockCase {
    const char *why;
    Bytes block;
    int start; // of the data; 0: refused
};

const BlockCase kSignatureBlocks[] = {
    {"well formed", block_of({0, 1}, 0xff, {0, 'd'}), 63},
    {"no data", block_of({0, 1}, 0xff, {0}), 64},
    {"the longest data", block_of({0, 1, 255, 255, 255, 255, 255, 255, 255, 255, 0}, 'd', {}), 11},
    {"data that begin with a zero", block_of({0, 1}, 0xff, {0, 0, 'd'}), 62},
    {"seven padding octets", block_of({0, 1, 255, 255, 255, 255, 255, 255, 255, 0}, 'd', {}), 0},
    {"no padding", block_of({0, 1, 0}, 'd', {}), 0},
    {"no end of the padding", block_of({0, 1}, 0xff, {}), 0},
    {"a first octet that is not 0", block_of({1, 1}, 0xff, {0, 'd'}), 0},
    {"block type 0", block_of({0, 0}, 0xff, {0, 'd'}), 0},
    {"block type 2", block_of({0, 2}, 0xff, {0, 'd'}), 0},
    {"a padding octet of FE", block_of({0, 1, 255, 255, 254}, 0xff, {0, 'd'}), 0},
    {"a last padding octet of 7F", block_of({0, 1}, 0xff, {0x7f, 0, 'd'}), 0},
    {"a padding of zeros", block_of({0, 1}, 0, {'d'}), 0},
};

const BlockCase kEncryptionBlocks[] = {
    {"well formed", block_of({0, 2}, 7, {0, 'd'}), 63},
    {"no data", block_of({0, 2}, 7, {0}), 64},
    {"the longest data", block_of({0, 2, 1, 1, 1, 1, 1, 1, 1, 1, 0}, 'd', {}), 11},
    {"zeros among the data", block_of({0, 2}, 7, {0, 'd', 0, 0}), 61},
    {"a padding of FF", block_of({0, 2}, 0xff, {0, 'd'}), 63},
    {"seven padding octets", block_of({0, 2, 1, 1, 1, 1, 1, 1, 1, 0}, 'd', {}), 0},
    {"seven padding octets, and a later zero",
     block_of({0, 2, 1, 1, 1, 1, 1, 1, 1, 0}, 'd', {0, 1}), 0},
    {"no padding", block_of({0, 2, 0}, 'd', {}), 0},
    {"no padding, a zero further on", block_of({0, 2, 0}, 'd', {0, 1}), 0},
    {"no end of the padding", block_of({0, 2}, 7, {}), 0},
    {"a first octet that is not 0", block_of({1, 2}, 7, {0, 'd'}), 0},
    {"a first octet of 80", block_of({0x80, 2}, 7, {0, 'd'}), 0},
    {"block type 0", block_of({0, 0}, 7, {0, 'd'}), 0},
    {"block type 1", block_of({0, 1}, 0xff, {0, 'd'}), 0},
    {"block type 3", block_of({0, 3}, 7, {0, 'd'}), 0},
};

template <class Open> void check_blocks(std::span<const BlockCase> rows, Open open) {
    for (const BlockCase &row : rows) {
        SCOPED_TRACE(row.why);
        ASSERT_EQ(row.block.size(), kSize);
        uint32_t start = 99;
        EXPECT_EQ(open(row.block.data(), kSize, &start), row.start != 0 ? BE_OK : BE_PADDING);
        EXPECT_EQ(start, static_cast<uint32_t>(row.start));
    }
    // Blocks too short to hold a frame are not read beyond their end.
    for (uint32_t size = 0; size < pkcs1_overhead; ++size) {
        const Bytes whole = rows[0].block, cut(whole.begin(), whole.begin() + size);
        uint32_t start = 99;
        EXPECT_EQ(open(cut.data(), size, &start), BE_PADDING) << size;
        EXPECT_EQ(start, 0u);
    }
}

TEST(Pkcs1, OpensOnlyWellFormedSignatureBlocks) {
    check_blocks(kSignatureBlocks, pkcs1_open_type1);
}

TEST(Pkcs1, OpensOnlyWellFormedEncryptionBlocks) {
    check_blocks(kEncryptionBlocks, pkcs1_open_type2);
}

// A generator that is often zero, as no good one is.
RandomSource mostly_zero() {
    return {[](void *, uint8_t *output, std::size_t size) {
                static unsigned turn = 0;
                for (std::size_t i = 0; i < size; ++i)
                    output[i] = ++turn % 5 == 0 ? static_cast<uint8_t>(turn % 255 + 1) : 0;
                return true;
            },
            nullptr};
}

TEST(Pkcs1, BlocksOpenToWhatWasPutIn) {
    for (uint32_t length = 0; length <= kSize - pkcs1_overhead + 1; ++length) {
        SCOPED_TRACE(length);
        const Bytes data(length, 'x');
        const int expected = length <= kSize - pkcs1_overhead ? BE_OK : BE_INPUT_LEN;
        uint8_t block[kSize];
        uint32_t start = 0;
        ASSERT_EQ(pkcs1_pad_type1(block, kSize, data.data(), length), expected);
        if (expected == BE_OK) {
            ASSERT_EQ(pkcs1_open_type1(block, kSize, &start), BE_OK);
            EXPECT_EQ(Bytes(block + start, block + kSize), data);
        }
        for (const RandomSource &random : {system_random(), mostly_zero()}) {
            ASSERT_EQ(pkcs1_pad_type2(block, kSize, data.data(), length, random), expected);
            if (expected != BE_OK)
                continue;
            ASSERT_EQ(pkcs1_open_type2(block, kSize, &start), BE_OK);
            EXPECT_EQ(Bytes(block + start, block + kSize), data);
        }
    }
    uint8_t small[10];
    EXPECT_EQ(pkcs1_pad_type1(small, sizeof small, nullptr, 0), BE_INPUT_LEN);
    const RandomSource none = {[](void *, uint8_t *, std::size_t) { return false; }, nullptr};
    uint8_t block[kSize];
    EXPECT_EQ(pkcs1_pad_type2(block, kSize, small, 4, none), BE_RANDOM_OBJ);
    EXPECT_EQ(Bytes(block, block + kSize), Bytes(kSize));
}

// ---- Published vectors --------------------------------------------------------------------------

// The encoded DigestInfo (PKCS#1) of a message's SHA-1 digest.
Bytes sha1_digest_info(const Bytes &message) {
    Bytes digest(SHA_DIGEST_LENGTH);
    SHA1(message.data(), message.size(), digest.data());
    return from_hex("3021300906052b0e03021a05000414") + digest;
}

Bytes apply_private(RsaNumbers numbers, const Bytes &block) {
    RsaPrivate *key = nullptr;
    EXPECT_EQ(rsa_private_new(&key, numbers.private_key(), {}), BE_OK);
    Bytes result(block.size());
    EXPECT_EQ(rsa_private_size(key), block.size());
    EXPECT_EQ(rsa_private_apply(key, block.data(), result.data()), BE_OK);
    rsa_private_free(key);
    return result;
}

Bytes apply_public(RsaNumbers numbers, const Bytes &block) {
    RsaPublic *key = nullptr;
    EXPECT_EQ(rsa_public_new(&key, numbers.public_key()), BE_OK);
    Bytes result(block.size());
    EXPECT_EQ(rsa_public_size(key), block.size());
    EXPECT_EQ(rsa_public_apply(key, block.data(), result.data()), BE_OK);
    rsa_public_free(key);
    return result;
}

std::size_t modulus_size(const RsaNumbers &numbers) {
    return bytes_of(number(numbers.n)).size();
}

void check_signature(const RsaNumbers &numbers, const Bytes &info, const Bytes &signature) {
    const auto size = static_cast<uint32_t>(modulus_size(numbers));
    Bytes block(size);
    ASSERT_EQ(pkcs1_pad_type1(block.data(), size, info.data(), static_cast<uint32_t>(info.size())),
              BE_OK);
    ASSERT_EQ(signature.size(), size);
    EXPECT_EQ(to_hex(apply_private(numbers, block)), to_hex(signature));
    EXPECT_EQ(to_hex(apply_public(numbers, signature)), to_hex(block));
}

// The files of RSA Laboratories: "# Label:" and lines of octets below it.
std::vector<std::pair<std::string, Bytes>> labelled_octets(const std::string &name) {
    std::vector<std::pair<std::string, Bytes>> all;
    std::istringstream lines(text_of(vector_file(name)));
    std::string line;
    bool within = false;
    while (std::getline(lines, line)) {
        while (!line.empty() && (line.back() == ' ' || line.back() == '\r'))
            line.pop_back();
        if (line.starts_with("# ") && line.ends_with(":")) {
            all.push_back({line.substr(2, line.size() - 3), {}});
            within = true;
        } else if (within && line.size() >= 2 && isxdigit(line[0]) && isxdigit(line[1])) {
            const Bytes more = from_hex(line);
            all.back().second.insert(all.back().second.end(), more.begin(), more.end());
        } else if (!line.empty()) {
            within = false;
        }
    }
    return all;
}

// Takes octets into the key by their label or name; true when they were one of a key's numbers.
bool key_part(RsaNumbers &key, const std::string &label, const Bytes &octets) {
    const std::map<std::string, Bytes RsaNumbers::*> parts = {
        {"Modulus", &RsaNumbers::n},
        {"modulus", &RsaNumbers::n},
        {"Public exponent", &RsaNumbers::e},
        {"publicExponent", &RsaNumbers::e},
        {"Prime 1", &RsaNumbers::p},
        {"prime1", &RsaNumbers::p},
        {"Prime 2", &RsaNumbers::q},
        {"prime2", &RsaNumbers::q},
        {"Prime exponent 1", &RsaNumbers::dp},
        {"exponent1", &RsaNumbers::dp},
        {"Prime exponent 2", &RsaNumbers::dq},
        {"exponent2", &RsaNumbers::dq},
        {"Coefficient", &RsaNumbers::coefficient},
        {"coefficient", &RsaNumbers::coefficient},
    };
    const auto part = parts.find(label);
    if (part != parts.end())
        key.*part->second = octets;
    return part != parts.end();
}

TEST(Pkcs1Vectors, RsaLaboratoriesSignatures) {
    RsaNumbers key;
    Bytes message;
    int checked = 0;
    for (const auto &[label, octets] : labelled_octets("published/rsa/pkcs1v15sign-vectors.txt")) {
        if (key_part(key, label, octets))
            continue;
        if (label == "Message to be signed")
            message = octets;
        if (label == "Signature") {
            SCOPED_TRACE(++checked);
            check_signature(key, sha1_digest_info(message), octets);
        }
    }
    EXPECT_EQ(checked, 300);
}

TEST(Pkcs1Vectors, RsaLaboratoriesEncryptions) {
    RsaNumbers key;
    Bytes message, seed;
    int checked = 0;
    for (const auto &[label, octets] : labelled_octets("published/rsa/pkcs1v15crypt-vectors.txt")) {
        if (key_part(key, label, octets))
            continue;
        if (label == "Message")
            message = octets;
        if (label == "Seed")
            seed = octets;
        if (label != "Encryption")
            continue;
        SCOPED_TRACE(++checked);
        const RandomSource given = {[](void *state, uint8_t *output, std::size_t size) {
                                        const Bytes &from = *static_cast<Bytes *>(state);
                                        memcpy(output, from.data(), size);
                                        return size == from.size();
                                    },
                                    &seed};
        Bytes block(octets.size());
        const auto size = static_cast<uint32_t>(block.size());
        ASSERT_EQ(pkcs1_pad_type2(block.data(), size, message.data(),
                                  static_cast<uint32_t>(message.size()), given),
                  BE_OK);
        EXPECT_EQ(to_hex(apply_public(key, block)), to_hex(octets));
        const Bytes opened = apply_private(key, octets);
        uint32_t start = 0;
        ASSERT_EQ(pkcs1_open_type2(opened.data(), size, &start), BE_OK);
        EXPECT_EQ(Bytes(opened.begin() + start, opened.end()), message);
    }
    EXPECT_EQ(checked, 300);
}

TEST(Pkcs1Vectors, WycheproofDecryptions) {
    const auto file = nlohmann::json::parse(
        text_of(vector_file("published/rsa/wycheproof-rsa_pkcs1_2048_test.json")));
    std::map<std::string, int> checked;
    for (const auto &group : file["testGroups"]) {
        RsaNumbers key;
        for (const auto &[name, value] : group["privateKey"].items())
            if (value.is_string())
                key_part(key, name, from_hex(value));
        for (const auto &test : group["tests"]) {
            SCOPED_TRACE(test["tcId"]);
            const Bytes sent = from_hex(test["ct"]);
            // Some are of another length, or above the modulus.
            bool good = sent.size() == modulus_size(key) &&
                        BN_cmp(number(sent).get(), number(key.n).get()) < 0;
            if (good) {
                const Bytes opened = apply_private(key, sent);
                uint32_t start = 0;
                good = pkcs1_open_type2(opened.data(), static_cast<uint32_t>(opened.size()),
                                        &start) == BE_OK;
                if (good) {
                    EXPECT_EQ(to_hex(Bytes(opened.begin() + start, opened.end())), test["msg"]);
                }
            }
            EXPECT_EQ(good, test["result"] == "valid");
            ++checked[test["result"]];
        }
    }
    EXPECT_EQ(checked["valid"], 42);
    EXPECT_EQ(checked["invalid"], 25);
}

} // namespace
