#include "qel/signer.h"
#include "support/ber.h"
#include "support/fault.h"
#include "support/numbers.h"

#include <set>

namespace {

Bytes counted(std::size_t size) {
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<uint8_t>(i + 1);
    return bytes;
}

// Any block under the public key.
Bytes raw_public(const RsaKey &key, const Bytes &block) {
    return bytes_of(power(number(block), number(key.public_exponent()), number(key.modulus())),
                    key.size());
}

// An RSAPrivateKey with a modulus of so many bytes, that is none.
Bytes hollow_key(std::size_t modulus_size) {
    Bytes modulus(modulus_size + 1, 0xff);
    modulus[0] = 0;
    return tlv(0x30, ber("020100") + tlv(0x02, modulus) + repeated("020103", 7));
}

// Wrapping and unwrapping with the halves of a key, in new buffers. Empty: not QEL_OK.
Bytes wrap(QelContext *context, const SignerKey &key, const Bytes &secret) {
    uint8_t *out = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(vfeqjfkkj(context, secret.data(), length_of(secret), QEL_RC4_AID, &key.bits,
                        QEL_RSA_ENCR_AID->parameters, QEL_RSA_ENCR_AID, &out, &length),
              QEL_OK);
    const Bytes wrapped(out, out + length);
    free(out);
    return wrapped;
}

QelStatus unwrap(QelContext *context, const Bytes &private_key, const Bytes &wrapped, uint8_t **key,
                 uint32_t *length) {
    return qel_unwrap_key(context, wrapped.data(), length_of(wrapped), QEL_RSA_ENCR_AID,
                          private_key.data(), length_of(private_key), QEL_RSA_ENCR_AID, key,
                          length);
}

Bytes unwrapped(QelContext *context, const SignerKey &key, const Bytes &wrapped) {
    uint8_t *out = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(unwrap(context, key.private_bytes, wrapped, &out, &length), QEL_OK);
    const Bytes secret(out, out + length);
    free(out);
    return secret;
}

class WrapTest : public testing::Test {
protected:
    static const RsaKey &rsa() { return RsaKey::of_512_bits(); }

    TestContext context;
    SignerKey key{rsa()};
    const Bytes secret = from_hex("0123456789abcdef");
    uint8_t *out = nullptr;
    uint32_t length = 0;
};

TEST_F(WrapTest, AnotherLibraryAgreesBothWays) {
    static const RsaKey of_768_bits(768), of_521_bits(521);
    for (const RsaKey *other : {&rsa(), &of_521_bits, &of_768_bits, &RsaKey::of_1024_bits()}) {
        const SignerKey halves(*other);
        for (const std::size_t size : {std::size_t{1}, std::size_t{8}, other->size() - 11}) {
            SCOPED_TRACE(std::to_string(other->size()) + " bytes, key of " + std::to_string(size));
            const Bytes session_key = counted(size);
            const Bytes wrapped = wrap(context, halves, session_key);
            EXPECT_EQ(wrapped.size(), other->size());
            EXPECT_EQ(other->decrypt(wrapped), session_key);
            EXPECT_EQ(unwrapped(context, halves, wrapped), session_key);
            EXPECT_EQ(unwrapped(context, halves, other->encrypt(session_key)), session_key);
            EXPECT_NE(wrap(context, halves, session_key), wrapped) << "padding is random";
        }
    }
}

TEST_F(WrapTest, TheDocumentedEntryRefuses) {
    EXPECT_EQ(
        qel_wrap_key(nullptr, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
        QEL_ERR_EXPORT);
    EXPECT_EQ(qel_wrap_key(context, secret.data(), length_of(secret), QEL_RC4_AID, &key.bits,
                           QEL_RSA_ENCR_AID->parameters, QEL_RSA_ENCR_AID, &out, &length),
              QEL_ERR_EXPORT);
    EXPECT_EQ(out, nullptr);
}

TEST_F(WrapTest, WrappingRefusals) {
    const QelOctetString *const parameters = QEL_RSA_ENCR_AID->parameters;
    out = const_cast<uint8_t *>(secret.data());
    length = 77;
    each_missing(QEL_ERR_BAD_PARAM, vfeqjfkkj, {}, context, secret.data(), 8, QEL_RC4_AID,
                 &key.bits, parameters, QEL_RSA_ENCR_AID, &out, &length);
    EXPECT_TRUE(out == nullptr && length == 0);
    TestOid<4> old_rsa = {{2, 5, 8, 1}};
    const QelBitString cut = {key.bits.length - 8, key.bits.value};
    const QelAlgId *const rsa_id = QEL_RSA_ENCR_AID;
    const struct {
        const char *why;
        Bytes key;
        const QelBitString &bits;
        const QelAlgId *algorithm;
        QelStatus status;
    } cases[] = {
        {"one of another kind, even if cut", secret, cut, &old_rsa.algorithm, QEL_ERR_KEY_TYPE},
        {"a public key without its last byte", secret, cut, rsa_id, QEL_ERR_BAD_KEY},
        {"54 bytes under 512 bits", counted(54), key.bits, rsa_id, QEL_ERR_WRAP},
    };
    for (const auto &c : cases) {
        out = const_cast<uint8_t *>(secret.data());
        length = 77;
        EXPECT_EQ(vfeqjfkkj(context, c.key.data(), length_of(c.key), QEL_RC4_AID, &c.bits,
                            parameters, c.algorithm, &out, &length),
                  c.status)
            << c.why;
        EXPECT_TRUE(out == nullptr && length == 0) << c.why;
    }
    fault::fail(fault::Call::open, 1);
    EXPECT_EQ(vfeqjfkkj(context, secret.data(), 8, QEL_RC4_AID, &key.bits, parameters, rsa_id, &out,
                        &length),
              QEL_ERR_WRAP)
        << "no random bytes for the padding";
    EXPECT_TRUE(fault::clear(fault::Call::open));
}

// Each row fails the check that it names, and some of those that come later.
TEST_F(WrapTest, OrderOfUnwrappingChecks) {
    TestOid<4> unknown = {{2, 5, 8, 1}};
    const QelAlgId *const rsa_id = QEL_RSA_ENCR_AID, *const other = &unknown.algorithm;
    const Bytes too_long = hollow_key(513), longest = hollow_key(512), shorter = hollow_key(511);
    Bytes cut = key.private_bytes;
    cut.pop_back();
    const Bytes block(512, 1);
    uint8_t buffer[512];
    const struct {
        const char *why;
        const Bytes &private_key;
        const QelAlgId *key_algorithm, *wrapping_algorithm;
        uint32_t capacity;
        QelStatus status;
    } cases[] = {
        {"a key that cannot be read", cut, other, other, 511, QEL_ERR_BAD_KEY},
        {"a public key", key.public_bytes, other, other, 511, QEL_ERR_BAD_KEY},
        {"a modulus of 513 bytes", too_long, other, other, 511, QEL_ERR_EXPORT},
        {"a key that is not RSA", shorter, other, other, 511, QEL_ERR_KEY_TYPE},
        {"a block of another length", shorter, rsa_id, other, 511, QEL_ERR_BAD_PARAM},
        {"another wrapping algorithm", longest, rsa_id, other, 511, QEL_ERR_UNSUPPORTED_ALG},
        {"a buffer one byte short", longest, rsa_id, rsa_id, 511, QEL_ERR_BUFFER_SIZE},
        {"numbers that are no key", longest, rsa_id, rsa_id, 512, QEL_ERR_UNWRAP},
    };
    for (const auto &c : cases) {
        out = buffer;
        length = c.capacity;
        EXPECT_EQ(qel_unwrap_key(context, block.data(), 512, c.key_algorithm, c.private_key.data(),
                                 length_of(c.private_key), c.wrapping_algorithm, &out, &length),
                  c.status)
            << c.why;
        EXPECT_EQ(out, buffer) << c.why;
        EXPECT_EQ(length, c.capacity) << c.why;
    }
}

TEST_F(WrapTest, UnwrappingArguments) {
    const Bytes wrapped = rsa().encrypt(secret);
    const Bytes &bytes = key.private_bytes;
    const auto try_with = [&](uint32_t wrapped_length, const QelAlgId *key_algorithm) {
        return qel_unwrap_key(context, wrapped.data(), wrapped_length, key_algorithm, nullptr, 0,
                              QEL_RSA_ENCR_AID, &out, &length);
    };
    each_missing(QEL_ERR_BAD_PARAM, qel_unwrap_key, {}, context, wrapped.data(), 64,
                 QEL_RSA_ENCR_AID, bytes.data(), length_of(bytes), QEL_RSA_ENCR_AID, &out, &length);
    EXPECT_EQ(try_with(64, QEL_RSA_ENCR_AID), QEL_ERR_BAD_PARAM) << "the key algorithm alone";
    EXPECT_EQ(try_with(64, nullptr), QEL_ERR_SERV_CONNECT) << "no key and no key server";
    EXPECT_EQ(unwrap(context, bytes, Bytes(wrapped.begin(), wrapped.end() - 1), &out, &length),
              QEL_ERR_BAD_PARAM)
        << "63 bytes for 512 bits";
    EXPECT_EQ(out, nullptr);
    uint8_t buffer[64];
    out = buffer;
    length = sizeof buffer;
    EXPECT_EQ(unwrap(context, bytes, wrapped, &out, &length), QEL_OK) << "the caller's buffer";
    EXPECT_EQ(out, buffer);
    EXPECT_EQ(Bytes(buffer, buffer + length), secret);
}

// Whatever is wrong inside a block, the answer is the same, and nothing of the block comes out.
TEST_F(WrapTest, BlocksThatDoNotOpen) {
    const auto padded = [](const std::string &start, std::size_t padding, const Bytes &rest) {
        return from_hex(start) + Bytes(padding, 0x5a) + rest;
    };
    const Bytes zero(1, 0), key_after_zero = zero + secret;
    const struct {
        const char *why;
        Bytes block;
        bool opens;
    } cases[] = {
        {"well made", padded("0002", 53, key_after_zero), true},
        {"the least padding", padded("0002", 8, zero + counted(53)), true},
        {"one byte less of it", padded("0002", 7, zero + counted(54)), false},
        {"the block type of signatures", padded("0001", 53, key_after_zero), false},
        {"no zero behind the padding", padded("0002", 62, {}), false},
        {"all zero", Bytes(64, 0), false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.why);
        ASSERT_EQ(c.block.size(), 64u);
        const Bytes wrapped = raw_public(rsa(), c.block);
        uint8_t buffer[64] = {};
        out = buffer;
        length = sizeof buffer;
        EXPECT_EQ(unwrap(context, key.private_bytes, wrapped, &out, &length),
                  c.opens ? QEL_OK : QEL_ERR_UNWRAP);
        if (c.opens)
            continue;
        EXPECT_EQ(length, sizeof buffer);
        EXPECT_EQ(Bytes(buffer, buffer + sizeof buffer), Bytes(sizeof buffer, 0));
        out = nullptr;
        EXPECT_EQ(unwrap(context, key.private_bytes, wrapped, &out, &length), QEL_ERR_UNWRAP);
        EXPECT_TRUE(out == nullptr && length == 0);
    }
    out = nullptr;
    EXPECT_EQ(unwrap(context, key.private_bytes, rsa().modulus(), &out, &length), QEL_ERR_UNWRAP)
        << "a number that is not below the modulus";
    static const RsaKey other(512);
    Bytes foreign = other.encrypt(secret);
    while (foreign >= rsa().modulus())
        foreign = other.encrypt(secret);
    EXPECT_EQ(unwrap(context, key.private_bytes, foreign, &out, &length), QEL_ERR_UNWRAP)
        << "a block for another key";
}

TEST_F(WrapTest, EachAllocation) {
    std::set<QelStatus> seen;
    const auto check = [&](QelStatus status) {
        seen.insert(status);
        EXPECT_EQ(status == QEL_OK, !fault::met());
        EXPECT_EQ(out != nullptr, status == QEL_OK);
        EXPECT_EQ(length != 0, status == QEL_OK);
        free(out);
        out = nullptr;
    };
    fault::each_allocation([&] {
        check(vfeqjfkkj(context, secret.data(), 8, QEL_RC4_AID, &key.bits,
                        QEL_RSA_ENCR_AID->parameters, QEL_RSA_ENCR_AID, &out, &length));
    });
    EXPECT_EQ(seen, (std::set<QelStatus>{QEL_OK, QEL_ERR_NO_MEMORY, QEL_ERR_BAD_KEY,
                                         QEL_ERR_GENERAL, QEL_ERR_WRAP}));
    seen.clear();
    const Bytes wrapped = rsa().encrypt(secret);
    fault::each_allocation(
        [&] { check(unwrap(context, key.private_bytes, wrapped, &out, &length)); });
    EXPECT_EQ(seen, (std::set<QelStatus>{QEL_OK, QEL_ERR_NO_MEMORY, QEL_ERR_BAD_KEY,
                                         QEL_ERR_GENERAL, QEL_ERR_UNWRAP}));
}

} // namespace
