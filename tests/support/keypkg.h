// keypkg.h: key packages made by OpenSSL and by hand, for whoever reads them.
#ifndef TESTS_SUPPORT_KEYPKG_H
#define TESTS_SUPPORT_KEYPKG_H

#include "support/asn1.h"
#include "support/ber.h"
#include "support/digests.h"
#include "support/rsa_key.h"

// What the key of a package is derived to: 24 bytes of key and 8 of vector.
inline Bytes key_of_phrase(const std::string &phrase, const Bytes &salt, uint32_t count) {
    const auto middle = salt.begin() + static_cast<std::ptrdiff_t>(salt.size() / 2);
    Bytes halves[2] = {{salt.begin(), middle}, {middle, salt.end()}};
    if (halves[0] == halves[1])
        halves[0].assign(halves[1].rbegin(), halves[1].rend());
    for (Bytes &digest : halves)
        for (uint32_t i = 0; i < count; ++i)
            digest = md5(digest + bytes_of(phrase));
    return halves[0] + halves[1];
}

// Triple DES in CBC mode, with padding.
inline Bytes des3_encrypted(const Bytes &key_and_iv, const Bytes &text) {
    EVP_CIPHER_CTX *context = EVP_CIPHER_CTX_new();
    Bytes result(text.size() + 8);
    int length = 0, last = 0;
    if (EVP_EncryptInit_ex(context, EVP_des_ede3_cbc(), nullptr, key_and_iv.data(),
                           key_and_iv.data() + 24) != 1 ||
        EVP_EncryptUpdate(context, result.data(), &length, text.data(),
                          static_cast<int>(text.size())) != 1 ||
        EVP_EncryptFinal_ex(context, result.data() + length, &last) != 1)
        std::abort();
    EVP_CIPHER_CTX_free(context);
    result.resize(static_cast<std::size_t>(length + last));
    return result;
}

// A key package. Members may be changed before it is encoded; those that are empty follow the others.
struct TestKeyPackage {
    const RsaKey *key;
    std::string owner = "CN=ALICE, O=ACME, C=US";
    std::string phrase = "correct horse battery staple";
    Bytes salt = from_hex("0102030405060708");
    uint32_t count = 2;

    std::string id = "default_keyid";
    uint8_t usage = 1; // USAGE_SIGN_ENCRYPT
    bool signed_by_md2 = false;
    const RsaKey *signer = nullptr; // else key
    Bytes private_key_info;         // plaintext
    Bytes parameters;               // of the encryption
    Bytes encryption;               // its algorithm identifier, parameters included
    Bytes ciphertext;
    Bytes public_key_info;
    Bytes attributes;   // encoded keypkgAttrs; none
    Bytes trusted_keys; // encoded tKeys; none
    Bytes algorithm;    // of the signature
    Bytes signature;

    Bytes key_and_iv() const { return key_of_phrase(phrase, salt, count); }
    Bytes pbe_parameters() const {
        Bytes number = {0}; // so that it is no negative one
        for (int shift = 24; shift >= 0; shift -= 8)
            number.push_back(static_cast<uint8_t>(count >> shift));
        while (number.size() > 1 && number[0] == 0 && number[1] < 0x80)
            number.erase(number.begin());
        return tlv(0x30, tlv(0x04, salt) + tlv(0x02, number));
    }
    Bytes encoded_owner() const {
        Asn1Context context;
        QelName *name = nullptr;
        if (qel_str2dn(context.get(), owner.c_str(), &name) != QEL_OK)
            std::abort();
        const Bytes encoding = context.encode(name, QEL_PDU_Name);
        qel_free_dn(&name);
        return encoding;
    }
    // The part that is signed.
    Bytes info() const {
        const Bytes plaintext =
            either(private_key_info, [this] { return key->private_key_info(); });
        const Bytes encrypted =
            either(ciphertext, [&] { return des3_encrypted(key_and_iv(), plaintext); });
        const Bytes by = either(encryption, [this] {
            return tlv(0x30, ber("06{2b0601040181fd59021301}") +
                                 either(parameters, [this] { return pbe_parameters(); }));
        });
        return tlv(0x30, ber("13{'1.0'}") + tlv(0x16, bytes_of(id)) + encoded_owner() +
                             either(public_key_info, [this] { return key->public_key_info(); }) +
                             tlv(0x30, by + tlv(0x04, encrypted)) + attributes +
                             tlv(0x02, {usage}) + trusted_keys);
    }
    Bytes encoding() const {
        const Bytes signed_part = info();
        const RsaKey *by = signer != nullptr ? signer : key;
        const Bytes made = either(signature, [&] {
            return by->sign(signed_by_md2 ? md2_digest_info(md2(signed_part))
                                          : md5_digest_info(md5(signed_part)));
        });
        const Bytes by_algorithm = either(algorithm, [this] {
            return ber(signed_by_md2 ? "30{06{2a864886f70d010102}0500}"
                                     : "30{06{2a864886f70d010104}0500}");
        });
        return tlv(0x30, signed_part + by_algorithm + tlv(0x03, Bytes{0} + made));
    }

private:
    template <class Make> static Bytes either(const Bytes &given, Make make) {
        return given.empty() ? make() : given;
    }
};

inline TestKeyPackage test_key_package(const RsaKey &key) {
    TestKeyPackage package;
    package.key = &key;
    return package;
}

#endif
