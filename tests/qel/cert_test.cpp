#include "qel/signer.h"
#include "support/fault.h"
#include "support/records.h"

#include <fstream>
#include <map>
#include <set>
#include <sstream>

namespace {

using records::OwnedCert;

OwnedCert decoded(const TestContext &context, const std::string &name) {
    return OwnedCert(context.decode<QelCert>(vector_file(name), QEL_PDU_Certificate).release());
}

// A row of outcomes.txt: whose key, and whether the signature is good.
struct Outcome {
    std::string name;
    std::string issuer;
    std::string verdict;
};

std::vector<Outcome> outcomes() {
    std::ifstream file(vector_path("outcomes.txt"));
    std::vector<Outcome> rows;
    for (std::string line; std::getline(file, line);) {
        Outcome row;
        std::istringstream words(line);
        if (line.empty() || line[0] == '#' || !(words >> row.name >> row.issuer >> row.verdict) ||
            row.issuer == "none")
            continue;
        if (row.issuer == "self")
            row.issuer = row.name;
        rows.push_back(row);
    }
    return rows;
}

bool has_critical_extension(const QelCert &certificate) {
    for (const QelExtensions *node = certificate.extensions; node != nullptr; node = node->next)
        if (node->extension->critical != 0)
            return true;
    return false;
}

bool is_rsa_encryption(const QelKeyInfo &key) {
    int difference = 1;
    EXPECT_EQ(__qel_cmp_oid(key.algorithm->algorithm, QEL_RSA_ENCR_OID, &difference), QEL_OK);
    return difference == 0;
}

// The signature alone, whatever validity and extensions say.
QelStatus verify_signature(const TestContext &context, const QelCert &certificate,
                           const QelKeyInfo &key) {
    const Bytes encoding = context.encode(&certificate, QEL_PDU_CertificateInfo);
    return qel_verify(context, encoding.data(), length_of(encoding), QEL_MODE_FINAL,
                      key.algorithm->algorithm, key.algorithm->parameters, &key.pubKey,
                      certificate.algorithm, certificate.sigBits.value,
                      certificate.sigBits.length / 8);
}

// What the signature's status comes to for the certificate: a critical extension is refused before
// the signature is looked at, the validity counts after it.
QelStatus expected(const QelCert &certificate, QelStatus of_signature) {
    if (certificate.version == 2 && has_critical_extension(certificate))
        return QEL_ERR_CRITICAL_EXT;
    return of_signature != QEL_OK ? of_signature : __qel_is_current(certificate.validity);
}

TEST(Cert, EveryCertificateWhoseIssuerIsAtHand) {
    const TestContext context;
    std::map<QelStatus, std::size_t> signatures;
    for (const Outcome &row : outcomes()) {
        SCOPED_TRACE(row.name + " with the key of " + row.issuer);
        const OwnedCert certificate = decoded(context, row.name);
        const OwnedCert issuer = decoded(context, row.issuer);
        // Its validity is in GeneralizedTime.
        if (row.name == "certs/md5/wrong-sigalg-2015.der") {
            EXPECT_EQ(certificate, nullptr);
            continue;
        }
        ASSERT_NE(certificate, nullptr);
        ASSERT_NE(issuer, nullptr);
        const QelKeyInfo &key = *issuer->pubKeyInfo;
        QelStatus of_signature = row.verdict == "good" ? QEL_OK : QEL_ERR_VERIFY;
        if (!is_rsa_encryption(key))
            of_signature = QEL_ERR_KEY_TYPE;
        EXPECT_EQ(verify_signature(context, *certificate, key), of_signature);
        EXPECT_EQ(qel_verify_cert(context, certificate.get(), &key),
                  expected(*certificate, of_signature));
        EXPECT_TRUE(context.idle());
        ++signatures[of_signature];
    }
    EXPECT_EQ(signatures[QEL_OK], 85u);
    EXPECT_EQ(signatures[QEL_ERR_KEY_TYPE], 6u)
        << "issuers whose key is 2.5.8.1.1: raph-cs-berkeley-edu-96, md5-rsa-nasa-pilot-ca-96, "
           "trustfactory-97, v3-certification-authority-97 and -97-2";
    EXPECT_EQ(signatures[QEL_ERR_VERIFY], 3u);
}

// A real certificate, given to a new issuer. Its validity is the present unless a test says
// otherwise.
class CertTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(certificate, nullptr);
        certificate->validity->notBefore->year = 96;
        certificate->validity->notAfter->year = 137;
        sign();
    }
    void sign() {
        ASSERT_EQ(__qel_sign_cert(context, certificate.get(), QEL_RSA_ENCR_AID,
                                  key.private_bytes.data(), length_of(key.private_bytes), nullptr),
                  QEL_OK);
    }
    QelStatus verify() { return qel_verify_cert(context, certificate.get(), &key.info); }

    TestContext context;
    SignerKey key{RsaKey::of_512_bits()};
    OwnedCert certificate = decoded(context, "certs/md5/thawte-server-ca-96.der");
};

TEST_F(CertTest, Arguments) {
    QelKeyInfo no_algorithm = {nullptr, key.bits};
    each_missing(QEL_ERR_BAD_PARAM, qel_verify_cert, {}, context, certificate.get(), &key.info);
    EXPECT_EQ(qel_verify_cert(context, certificate.get(), &no_algorithm), QEL_ERR_BAD_PARAM);
}

TEST_F(CertTest, ValidityCountsAfterTheSignature) {
    EXPECT_EQ(verify(), QEL_OK);
    fault::fail(fault::Call::time, 1);
    EXPECT_EQ(verify(), QEL_ERR_GENERAL) << "no clock";
    fault::clear(fault::Call::time);
    certificate->validity->notAfter->year = 97;
    EXPECT_EQ(verify(), QEL_ERR_VERIFY) << "expired, but not as it was signed";
    sign();
    EXPECT_EQ(verify(), QEL_ERR_KEY_EXPIRED);
    certificate->validity->notBefore->year = 136;
    certificate->validity->notAfter->year = 137;
    sign();
    EXPECT_EQ(verify(), QEL_ERR_KEY_EXPIRED) << "not yet valid";
}

TEST_F(CertTest, CriticalExtensionsOfVersion3) {
    uint32_t components[] = {1, 2, 3};
    uint8_t octet = 0;
    QelOid oid = {3, components};
    QelExtension harmless = {0, &oid, 0, {1, &octet}};
    QelExtension critical = {QEL_EXTENSION_CRITICAL, &oid, 1, {1, &octet}};
    QelExtensions second = {nullptr, &critical};
    QelExtensions first = {&second, &harmless};
    ASSERT_EQ(certificate->extensions, nullptr);
    const struct {
        const char *why;
        int32_t version;
        QelExtensions *extensions;
        QelStatus status;
    } cases[] = {
        {"no extensions", 2, nullptr, QEL_OK},
        {"a critical one behind a harmless one", 2, &first, QEL_ERR_CRITICAL_EXT},
        {"extensions are not for version 1", 0, &first, QEL_OK},
        {"nor for version 2", 1, &second, QEL_OK},
    };
    for (const auto &c : cases) {
        certificate->version = c.version;
        certificate->extensions = c.extensions;
        sign();
        EXPECT_EQ(verify(), c.status) << c.why;
    }
    certificate->version = 2;
    certificate->sigBits.value[0] ^= 1;
    EXPECT_EQ(verify(), QEL_ERR_CRITICAL_EXT) << "whatever the signature";
    certificate->extensions = nullptr;
    certificate->mask &= static_cast<uint8_t>(~QEL_CERT_EXTENSIONS);
}

TEST_F(CertTest, IncompleteRecords) {
    QelCert copy = *certificate;
    copy.subject = nullptr;
    EXPECT_EQ(qel_verify_cert(context, &copy, &key.info), QEL_ERR_ASN1_ENCODE);
    copy = *certificate;
    copy.algorithm = nullptr;
    EXPECT_EQ(qel_verify_cert(context, &copy, &key.info), QEL_ERR_BAD_PARAM);
    copy = *certificate;
    copy.sigBits = {7, certificate->sigBits.value};
    EXPECT_EQ(qel_verify_cert(context, &copy, &key.info), QEL_ERR_BAD_PARAM);
}

// Every bit of the signed part, as it stands in the file, is under the signature.
TEST(Cert, NoBitOfTheSignedPartMayChange) {
    const TestContext context;
    const std::string name = "certs/md5/cryptsoft-dev-ca-97.der";
    const OwnedCert issuer = decoded(context, name);
    ASSERT_NE(issuer, nullptr);
    Bytes file = vector_file(name);
    ASSERT_EQ(file[0] << 8 | file[1], 0x3082);
    ASSERT_EQ(file[4] << 8 | file[5], 0x3082);
    const std::size_t end = 8u + static_cast<std::size_t>(file[6] << 8 | file[7]);
    std::size_t decodable = 0;
    for (std::size_t bit = 4 * 8; bit < end * 8; ++bit) {
        file[bit / 8] ^= static_cast<uint8_t>(1 << bit % 8);
        const auto certificate = context.decode<QelCert>(file, QEL_PDU_Certificate);
        if (certificate != nullptr) {
            const QelStatus status =
                qel_verify_cert(context, certificate.get(), issuer->pubKeyInfo);
            EXPECT_TRUE(status != QEL_OK && status != QEL_ERR_KEY_EXPIRED) << "bit " << bit;
            ++decodable;
        }
        file[bit / 8] ^= static_cast<uint8_t>(1 << bit % 8);
    }
    EXPECT_GT(decodable, 1000u);
}

TEST_F(CertTest, EachAllocation) {
    const std::set<QelStatus> failures = {QEL_ERR_NO_MEMORY, QEL_ERR_ASN1_ENCODE, QEL_ERR_DIGEST,
                                          QEL_ERR_BAD_KEY,   QEL_ERR_GENERAL,     QEL_ERR_VERIFY};
    fault::each_allocation([&] {
        const QelStatus status = verify();
        EXPECT_TRUE(fault::met() ? failures.contains(status) : status == QEL_OK) << status;
        EXPECT_TRUE(context.idle());
    });
}

} // namespace
