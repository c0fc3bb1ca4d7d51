// signer.h: a library context and keys as records, for tests of signatures.
#ifndef TESTS_QEL_SIGNER_H
#define TESTS_QEL_SIGNER_H

#include "support/arguments.h"
#include "support/asn1.h"
#include "support/digests.h"
#include "support/files.h"
#include "support/rsa_key.h"

#include <gtest/gtest.h>
#include <lib/memory.h>

// A context without a key server.
class TestContext {
public:
    TestContext() { EXPECT_EQ(__qel_init(&context_, nullptr, nullptr), QEL_OK); }
    ~TestContext() { qel_end(context_); }
    TestContext(const TestContext &) = delete;
    TestContext &operator=(const TestContext &) = delete;
    operator QelContext *() const { return context_; }
    QelContext *operator->() const { return context_; }

    template <class Record> Asn1Value<Record> decode(const Bytes &encoding, int pdu) const {
        return asn1_decode<Record>(context_, encoding, pdu);
    }
    Bytes encode(const void *value, int pdu) const { return asn1_encode(context_, value, pdu); }

    // Nothing is under way.
    bool idle() const {
        return context_->session == nullptr && context_->digest_algorithm == nullptr &&
               context_->signature_algorithm == nullptr && context_->multi_part == 0;
    }

private:
    QelContext *context_ = nullptr;
};

// Both halves of an RSA key as records, whose bytes stay here.
class SignerKey {
public:
    explicit SignerKey(const RsaKey &key)
        : private_bytes(key.private_key()), public_bytes(key.public_key()) {
        bits = {length_of(public_bytes) * 8, public_bytes.data()};
        info = {const_cast<QelAlgId *>(QEL_RSA_ENCR_AID), bits};
    }
    SignerKey(const SignerKey &) = delete;
    SignerKey &operator=(const SignerKey &) = delete;

    Bytes private_bytes;
    Bytes public_bytes;
    QelBitString bits;
    QelKeyInfo info;

    QelStatus sign(QelContext *context, const Bytes &data, uint32_t mode, const QelAlgId *algorithm,
                   uint8_t **signature, uint32_t *length) const {
        return qel_sign(context, data.empty() ? nullptr : data.data(), length_of(data), mode,
                        QEL_RSA_ENCR_AID, private_bytes.data(), length_of(private_bytes), algorithm,
                        signature, length);
    }
    // A signature in a buffer of the library's; empty when it fails.
    Bytes signature(QelContext *context, const Bytes &data, uint32_t mode,
                    const QelAlgId *algorithm) const {
        uint8_t *made = nullptr;
        uint32_t length = 0;
        EXPECT_EQ(sign(context, data, mode, algorithm, &made, &length), QEL_OK);
        const Bytes bytes(made, made + length);
        free(made);
        return bytes;
    }
    QelStatus verify(QelContext *context, const Bytes &data, uint32_t mode,
                     const QelAlgId *algorithm, const Bytes &signature) const {
        return qel_verify(context, data.empty() ? nullptr : data.data(), length_of(data), mode,
                          QEL_RSA_ENCR_OID, QEL_RSA_ENCR_AID->parameters, &bits, algorithm,
                          signature.data(), length_of(signature));
    }
};

// An object identifier that owns nothing.
template <std::size_t count> struct TestOid {
    uint32_t components[count];
    QelOid oid = {count, components};
    QelAlgId algorithm = {&oid, nullptr};
};

#endif
