#include "qel/signer.h"
#include "support/fault.h"
#include "support/keypkg.h"
#include "support/secrets.h"

#include <functional>
#include <gmock/gmock.h>
#include <random>
#include <set>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const RsaKey &rsa() {
    return RsaKey::of_512_bits();
}

const RsaKey &other_rsa() {
    static const RsaKey key(512);
    return key;
}

// A PrivateKeyInfo around anything.
Bytes private_key_info(const std::string &algorithm, const Bytes &octets) {
    return tlv(0x30, ber("020100 30{06{" + algorithm + "} 0500}") + tlv(0x04, octets));
}
const std::string rsa_oid = "2a864886f70d010101";
const std::string dsa_oid = "2a8648ce380401";

using P = TestKeyPackage;

// A change that sets one member.
template <class Member>
std::function<void(P &)> with(Member P::*member, std::type_identity_t<Member> value) {
    return [=](P &package) { package.*member = value; };
}

class KeyPkgTest : public testing::Test {
protected:
    using Owned = qel::Record<QelKeyPkg, qel_free_keypkg>;

    // What opening a package hands out: all of it, or nothing.
    struct Opened {
        QelStatus status;
        Owned package;
        Bytes private_key;
    };
    Opened open(const Bytes &encoding, const std::string &phrase) {
        QelKeyPkg *package = reinterpret_cast<QelKeyPkg *>(this);
        auto *key = reinterpret_cast<uint8_t *>(this);
        uint32_t length = 99;
        const QelStatus status = __qel_validate_keypkg_with_pwd(
            context, encoding.data(), length_of(encoding), phrase.c_str(), &package, &key, &length);
        EXPECT_EQ(package != nullptr, status == QEL_OK);
        EXPECT_EQ(key != nullptr, status == QEL_OK);
        EXPECT_EQ(length != 0, status == QEL_OK);
        EXPECT_TRUE(context.idle());
        Opened opened = {status, Owned(package), Bytes(key, key + length)};
        if (key != nullptr)
            explicit_bzero(key, length);
        free(key);
        return opened;
    }
    QelStatus try_private_key(const Bytes &encoding, const Bytes &key, const Bytes &algorithm) {
        const QelStatus status = __qel_validate_keypkg_with_privkey(
            context, encoding.data(), length_of(encoding), key.data(), length_of(key),
            algorithm.data(), length_of(algorithm));
        EXPECT_TRUE(context.idle());
        return status;
    }
    Owned decoded(const Bytes &encoding) {
        return Owned(context.decode<QelKeyPkg>(encoding, QEL_PDU_KeyPkg).release());
    }
    Bytes encoded(const void *package, int pdu = QEL_PDU_KeyPkg) {
        return context.encode(package, pdu);
    }

    TestContext context;
    const TestKeyPackage usual = test_key_package(rsa());
    const Bytes rsa_algorithm = ber("30{06{2a864886f70d010101}0500}");
};

TEST_F(KeyPkgTest, ThePassPhraseOpens) {
    const Bytes trusted =
        tlv(0x31, tlv(0x30, usual.encoded_owner() + other_rsa().public_key_info()));
    const struct {
        const char *why;
        std::function<void(TestKeyPackage &)> change;
    } cases[] = {
        {"the usual", [](TestKeyPackage &) {}},
        {"signed by MD2", with(&P::signed_by_md2, true)},
        {"a longer key", with(&P::key, &RsaKey::of_1024_bits())},
        {"many iterations", with(&P::count, 40000)},
        {"a salt with equal halves", with(&P::salt, from_hex("01020102"))},
        {"a long pass phrase", with(&P::phrase, std::string(200, 'x'))},
        {"bytes above 7 bits", with(&P::phrase, "\xc3\xa4\xff")},
        {"trusted keys", with(&P::trusted_keys, trusted)},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.why);
        TestKeyPackage made = usual;
        c.change(made);
        const Bytes encoding = made.encoding();
        const Opened opened = open(encoding, made.phrase);
        ASSERT_EQ(opened.status, QEL_OK);
        EXPECT_EQ(opened.private_key, made.key->private_key_info());
        EXPECT_EQ(encoded(opened.package.get()), encoding) << "salt included";
        EXPECT_EQ(try_private_key(encoding, made.key->private_key(), rsa_algorithm), QEL_OK);
        QelKeyPkg *verified = nullptr;
        EXPECT_EQ(__qel_verify_keypkg_sig(context, encoding.data(), length_of(encoding), &verified),
                  QEL_OK);
        EXPECT_EQ(encoded(verified), encoding);
        qel_free_keypkg(&verified);
    }
}

// The padding fits one in 256 times, and then the plaintext must not pass either.
TEST_F(KeyPkgTest, NoOtherPassPhraseOpens) {
    const Bytes encoding = usual.encoding();
    for (const std::string phrase :
         {"correct horse battery stapl", "correct horse battery staple ",
          "Correct horse battery staple", "correct horse battery stapld", "c"})
        EXPECT_NE(open(encoding, phrase).status, QEL_OK) << phrase;
    EXPECT_EQ(open(encoding, "").status, QEL_ERR_BAD_PARAM);

    std::mt19937 random(7);
    int bad_padding = 0;
    for (int i = 0; i < 1000; ++i) {
        std::string phrase(1 + random() % 60, ' ');
        for (char &c : phrase)
            c = static_cast<char>(1 + random() % 255);
        const QelStatus status = open(encoding, phrase).status;
        EXPECT_TRUE(status == QEL_ERR_DECRYPT || status == QEL_ERR_ASN1_DECODE) << status;
        bad_padding += status == QEL_ERR_DECRYPT;
    }
    EXPECT_GT(bad_padding, 970);
}

// What still opens differs in nothing but the parameters of the signature's algorithm, two bytes
// outside the signed part that nobody reads, and gives the same contents, signature and key.
TEST_F(KeyPkgTest, NoSpoiledPackageOpens) {
    const Bytes encoding = usual.encoding();
    const std::size_t parameters_at = encoding.size() - 3 - rsa().size() - 2;
    const auto check = [&](const QelKeyPkg *kept, Bytes bad) {
        EXPECT_EQ(encoded(kept, QEL_PDU_KeyPkgInfo), usual.info());
        EXPECT_EQ(to_hex(kept->signature.value, 64),
                  to_hex(encoding).substr(2 * (encoding.size() - 64)));
        bad[parameters_at] = encoding[parameters_at];
        bad[parameters_at + 1] = encoding[parameters_at + 1];
        EXPECT_EQ(to_hex(bad), to_hex(encoding));
    };
    each_spoiled(encoding, [&](const Bytes &bad, const std::string &what) {
        SCOPED_TRACE(what);
        QelKeyPkg *verified = nullptr;
        const QelStatus status =
            __qel_verify_keypkg_sig(context, bad.data(), length_of(bad), &verified);
        EXPECT_EQ(verified != nullptr, status == QEL_OK);
        if (verified != nullptr)
            check(verified, bad);
        qel_free_keypkg(&verified);
        const Opened opened = open(bad, usual.phrase);
        if (opened.status == QEL_OK) {
            check(opened.package.get(), bad);
            EXPECT_EQ(opened.private_key, rsa().private_key_info());
        }
        EXPECT_EQ(opened.status == QEL_OK, status == QEL_OK);
        EXPECT_EQ(try_private_key(bad, rsa().private_key(), rsa_algorithm) == QEL_OK,
                  status == QEL_OK);
    });
}

TEST_F(KeyPkgTest, WhatIsRefused) {
    const struct {
        const char *why;
        std::function<void(TestKeyPackage &)> change;
        QelStatus status;
    } cases[] = {
        {"no parameters", with(&P::encryption, ber("30{06{2a864886f70d010503}}")),
         QEL_ERR_ASN1_DECODE},
        {"parameters of another kind", with(&P::parameters, from_hex("0500")), QEL_ERR_ASN1_DECODE},
        {"parameters with an empty salt", with(&P::parameters, from_hex("30050400020101")),
         QEL_ERR_BAD_PARAM},
        {"a salt of odd length", with(&P::salt, from_hex("010203")), QEL_ERR_BAD_PARAM},
        {"no iteration", with(&P::parameters, from_hex("30070402 0102 020100")), QEL_ERR_BAD_PARAM},
        {"another salt", with(&P::parameters, from_hex("300d 0408 0102030405060709 020102")),
         QEL_ERR_DECRYPT},
        {"another count", with(&P::parameters, from_hex("300d 0408 0102030405060708 020104")),
         QEL_ERR_DECRYPT},
        {"a ciphertext of broken blocks", with(&P::ciphertext, Bytes(23, 1)), QEL_ERR_DECRYPT},
        {"a plaintext that is no private key", with(&P::private_key_info, from_hex("0500")),
         QEL_ERR_ASN1_DECODE},
        {"a byte behind the private key",
         with(&P::private_key_info, rsa().private_key_info() + Bytes{0}), QEL_ERR_ASN1_DECODE},
        {"a private key of DSA",
         with(&P::private_key_info, private_key_info(dsa_oid, rsa().private_key())),
         QEL_ERR_KEY_TYPE},
        {"a private key without its numbers",
         with(&P::private_key_info, private_key_info(rsa_oid, from_hex("3000"))), QEL_ERR_BAD_KEY},
        {"the private key of another package",
         with(&P::private_key_info, other_rsa().private_key_info()), QEL_ERR_VERIFY},
        {"a longer private key",
         with(&P::private_key_info, RsaKey::of_1024_bits().private_key_info()), QEL_ERR_VERIFY},
        {"the public key of another package",
         with(&P::public_key_info, other_rsa().public_key_info()), QEL_ERR_VERIFY},
        {"signed by somebody else", with(&P::signer, &other_rsa()), QEL_ERR_VERIFY},
        {"the key and the signature of somebody else, under this name and public key",
         [](TestKeyPackage &p) {
             p.private_key_info = other_rsa().private_key_info();
             p.signer = &other_rsa();
         },
         QEL_ERR_VERIFY},
        {"another algorithm than it was signed by",
         with(&P::algorithm, ber("30{06{2a864886f70d010102}0500}")), QEL_ERR_VERIFY},
        {"signed by SHA-1, which is not offered",
         with(&P::algorithm, ber("30{06{2a864886f70d010105}0500}")), QEL_ERR_BAD_PARAM},
        {"a digest signed bare: that verifies, but is not what the key makes",
         with(&P::signature, rsa().sign(md5(usual.info()))), QEL_ERR_VERIFY},
        {"attributes, which go with the rest of the package",
         [](TestKeyPackage &p) {
             p.attributes = ber("31{30{06{2a864886f70d010902} 31{13{'one'}}}}");
             p.signer = &other_rsa();
         },
         QEL_ERR_VERIFY},
        {"another encryption's name, which is not looked at",
         with(&P::encryption, tlv(0x30, ber("06{2a864886f70d010503}") + usual.pbe_parameters())),
         QEL_OK},
    };
    for (const auto &c : cases) {
        TestKeyPackage made = usual;
        c.change(made);
        EXPECT_EQ(open(made.encoding(), made.phrase).status, c.status) << c.why;
    }
    EXPECT_EQ(open(from_hex("3000"), "phrase").status, QEL_ERR_ASN1_DECODE);
}

TEST_F(KeyPkgTest, PrivateKeysThatAreNotThePackages) {
    TestKeyPackage stolen = usual;
    stolen.signer = &other_rsa();
    TestKeyPackage bare = usual;
    bare.signature = rsa().sign(md5(usual.info()));
    const Bytes good = usual.encoding(), key = rsa().private_key();
    const struct {
        const char *why;
        Bytes encoding, key, algorithm;
        QelStatus status;
    } cases[] = {
        {"no package", from_hex("3000"), key, rsa_algorithm, QEL_ERR_ASN1_DECODE},
        {"no identifier", good, key, from_hex("3000"), QEL_ERR_ASN1_DECODE},
        {"a key of DSA", good, key, ber("30{06{" + dsa_oid + "}}"), QEL_ERR_KEY_TYPE},
        {"no key", good, from_hex("3000"), rsa_algorithm, QEL_ERR_BAD_KEY},
        {"another key", good, other_rsa().private_key(), rsa_algorithm, QEL_ERR_VERIFY},
        {"a longer key", good, RsaKey::of_1024_bits().private_key(), rsa_algorithm, QEL_ERR_VERIFY},
        {"the signer's key under another public key", stolen.encoding(), other_rsa().private_key(),
         rsa_algorithm, QEL_ERR_VERIFY},
        {"a digest signed bare", bare.encoding(), key, rsa_algorithm, QEL_ERR_VERIFY},
    };
    for (const auto &c : cases)
        EXPECT_EQ(try_private_key(c.encoding, c.key, c.algorithm), c.status) << c.why;
}

TEST_F(KeyPkgTest, BadParameters) {
    const Bytes good = usual.encoding(), key = rsa().private_key();
    const uint8_t *der = good.data();
    const uint32_t size = length_of(good);
    QelKeyPkg *package = nullptr;
    uint8_t *out = nullptr;
    uint32_t length = 0;
    each_missing(QEL_ERR_BAD_PARAM, __qel_validate_keypkg_with_pwd, {}, context, der, size,
                 usual.phrase.c_str(), &package, &out, &length);
    each_missing(QEL_ERR_BAD_PARAM, __qel_validate_keypkg_with_privkey, {}, context, der, size,
                 key.data(), length_of(key), rsa_algorithm.data(), length_of(rsa_algorithm));
    each_missing(QEL_ERR_BAD_PARAM, __qel_verify_keypkg_sig, {}, context, der, size, &package);
    EXPECT_EQ(package, nullptr);
    EXPECT_EQ(out, nullptr);
}

// ---- Changing the pass phrase

class ChangeTest : public KeyPkgTest {
protected:
    QelStatus change(QelKeyPkg *package, const std::string &phrase, const Bytes &key) {
        const QelStatus status =
            __qel_change_pass_phrase(context, phrase.c_str(), key.data(), length_of(key), package);
        EXPECT_TRUE(context.idle());
        return status;
    }
    const Bytes private_key = rsa().private_key_info();
};

TEST_F(ChangeTest, GivesThePackageOfTheNewPhrase) {
    TestKeyPackage by_md2 = usual;
    by_md2.signed_by_md2 = true;
    TestKeyPackage with_keys = usual;
    with_keys.trusted_keys =
        tlv(0x31, tlv(0x30, usual.encoded_owner() + other_rsa().public_key_info()));
    TestKeyPackage equal_halves = usual;
    equal_halves.salt = from_hex("0102030401020304");
    for (const TestKeyPackage &before : {usual, by_md2, with_keys, equal_halves}) {
        const Owned package = decoded(before.encoding());
        ASSERT_EQ(change(package.get(), "another phrase", private_key), QEL_OK);
        TestKeyPackage after = before;
        after.phrase = "another phrase";
        after.signed_by_md2 = false;
        const Bytes encoding = encoded(package.get());
        EXPECT_EQ(to_hex(encoding), to_hex(after.encoding())) << "all else is as it was";
        EXPECT_EQ(open(encoding, "another phrase").status, QEL_OK);
        EXPECT_NE(open(encoding, usual.phrase).status, QEL_OK);
    }
}

TEST_F(ChangeTest, AFailureChangesNothing) {
    const Bytes good = usual.pbe_parameters();
    const struct {
        const char *why;
        Bytes parameters;
        const char *phrase;
        Bytes private_key;
        QelStatus status;
    } cases[] = {
        {"parameters of another kind", {5, 0}, "phrase", private_key, QEL_ERR_ASN1_DECODE},
        {"an empty phrase", good, "", private_key, QEL_ERR_KEYGEN},
        {"a salt of odd length", ber("30{0403010203 020101}"), "phrase", private_key,
         QEL_ERR_KEYGEN},
        {"no iteration", ber("30{04020102 020100}"), "phrase", private_key, QEL_ERR_KEYGEN},
        {"no private key", good, "phrase", {5, 0}, QEL_ERR_ASN1_DECODE},
        {"a private key of DSA", good, "phrase", private_key_info(dsa_oid, rsa().private_key()),
         QEL_ERR_SIGN},
        {"one without its numbers", good, "phrase", private_key_info(rsa_oid, {0x30, 0}),
         QEL_ERR_SIGN},
        {"an empty private key", good, "phrase", private_key_info(rsa_oid, {}), QEL_ERR_SIGN},
    };
    for (const auto &c : cases) {
        TestKeyPackage made = usual;
        made.signed_by_md2 = true;
        made.parameters = c.parameters;
        const Owned package = decoded(made.encoding());
        EXPECT_EQ(change(package.get(), c.phrase, c.private_key), c.status) << c.why;
        EXPECT_EQ(encoded(package.get()), made.encoding()) << c.why;
    }
}

TEST_F(ChangeTest, BadParameters) {
    const Owned package = decoded(usual.encoding());
    each_missing(QEL_ERR_BAD_PARAM, __qel_change_pass_phrase, {}, context, "phrase",
                 private_key.data(), length_of(private_key), package.get());
    EXPECT_EQ(encoded(package.get()), usual.encoding());
    __qel_free_ostr(&package->encrPrivKeyInfo->encryptionAlgorithm->parameters);
    EXPECT_EQ(change(package.get(), "phrase", private_key), QEL_ERR_BAD_PARAM);
}

// ---- Memory

TEST_F(ChangeTest, EachAllocation) {
    const Bytes encoding = usual.encoding(), key = rsa().private_key();
    const std::set<QelStatus> failures = {
        QEL_ERR_NO_MEMORY, QEL_ERR_ASN1_DECODE, QEL_ERR_BAD_KEY, QEL_ERR_DECRYPT,    QEL_ERR_SIGN,
        QEL_ERR_VERIFY,    QEL_ERR_DIGEST,      QEL_ERR_GENERAL, QEL_ERR_ASN1_ENCODE};
    const auto expect = [&](QelStatus status) {
        EXPECT_TRUE(fault::met() ? failures.contains(status) : status == QEL_OK) << status;
    };
    fault::each_allocation([&] { expect(open(encoding, usual.phrase).status); });
    fault::each_allocation([&] { expect(try_private_key(encoding, key, rsa_algorithm)); });
    fault::each_allocation([&] {
        QelKeyPkg *package = nullptr;
        expect(__qel_verify_keypkg_sig(context, encoding.data(), length_of(encoding), &package));
        qel_free_keypkg(&package);
    });

    // A change fails as a whole.
    TestKeyPackage made = usual;
    made.signed_by_md2 = true;
    const Bytes before = made.encoding();
    std::set<QelStatus> seen;
    Owned package = decoded(before);
    fault::each_allocation([&] {
        const QelStatus status = change(package.get(), "another phrase", private_key);
        EXPECT_EQ(status != QEL_OK, fault::met()) << status;
        if (status != QEL_OK) {
            EXPECT_EQ(encoded(package.get()), before);
        }
        seen.insert(status);
    });
    EXPECT_THAT(seen, ElementsAre(QEL_OK, QEL_ERR_NO_MEMORY, QEL_ERR_ASN1_DECODE, QEL_ERR_KEYGEN,
                                  QEL_ERR_ENCRYPT, QEL_ERR_SIGN));
}

TEST_F(KeyPkgTest, WhatDoesNotOpenIsZeroedBeforeItIsFreed) {
    TestKeyPackage of_another_key = usual, of_no_key = usual;
    of_another_key.private_key_info = other_rsa().private_key_info();
    of_no_key.private_key_info = rsa().private_key_info() + Bytes{0};
    const Bytes encodings[] = {of_another_key.encoding(), of_no_key.encoding()};
    SecretWatch watch;
    watch.add("pass phrase", bytes_of(usual.phrase));
    watch.add("derived key", usual.key_and_iv());
    watch.add(rsa());
    watch.add(other_rsa());
    for (const Bytes &encoding : encodings) {
        EXPECT_NE(open(encoding, usual.phrase).status, QEL_OK);
        EXPECT_THAT(watch.take_found(), IsEmpty());
    }
}

} // namespace
