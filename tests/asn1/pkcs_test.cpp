// The schema against real encodings, hand-made ones, and spoiled ones.
#include "support/asn1.h"
#include "support/ber.h"
#include "support/fault.h"
#include "support/records.h"
#include "support/tar.h"

#include <asn1/pkcs.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <set>

namespace {

class Pkcs : public ::testing::Test {
protected:
    void SetUp() override { setenv("TMPDIR", folder.path("").c_str(), 1); }
    void TearDown() override {
        EXPECT_TRUE(std::filesystem::is_empty(folder.path(""))); // no content is left behind
        unsetenv("TMPDIR");
    }

    TemporaryFolder folder;
    Asn1Context context;
};

Bytes bytes_of(const QelOctetString &octets) {
    return {octets.value, octets.value + octets.length};
}

// ---- Real encodings -----------------------------------------------------------------------------

TEST_F(Pkcs, CertificatesComeBackByteForByte) {
    for (const std::string &name : vector_names("certs")) {
        SCOPED_TRACE(name);
        const Bytes encoding = vector_file(name);
        QelStatus status = QEL_OK;
        const auto certificate = context.decode<QelCert>(encoding, QEL_PDU_Certificate, &status);
        // GeneralizedTime, where the type has UTCTime.
        if (name.find("wrong-sigalg-2015") != std::string::npos) {
            EXPECT_EQ(status, QEL_ERR_ASN1_DECODE);
            continue;
        }
        ASSERT_EQ(status, QEL_OK);
        const Bytes again = context.encode(certificate.get(), QEL_PDU_Certificate);
        if (encoding[1] == 0x80) {
            // Its DER has the same contents without the end marks, in one length each.
            const auto der = context.decode<QelCert>(again, QEL_PDU_Certificate);
            ASSERT_NE(der, nullptr);
            EXPECT_LT(again.size(), encoding.size());
            EXPECT_EQ(again[1], 0x82);
            EXPECT_EQ(to_hex(context.encode(der.get(), QEL_PDU_Certificate)), to_hex(again));
        } else {
            EXPECT_EQ(to_hex(again), to_hex(encoding));
        }
        // The signed part as a PDU of its own.
        const Bytes info = context.encode(certificate.get(), QEL_PDU_CertificateInfo);
        EXPECT_NE(std::search(again.begin(), again.end(), info.begin(), info.end()), again.end());
        const auto part = context.decode<QelCert>(info, QEL_PDU_CertificateInfo);
        ASSERT_NE(part, nullptr);
        EXPECT_EQ(part->algorithm, nullptr);
        EXPECT_EQ(to_hex(context.encode(part.get(), QEL_PDU_CertificateInfo)), to_hex(info));
    }
}

TEST_F(Pkcs, RequestsListsAndKeysComeBackByteForByte) {
    const std::pair<const char *, int> kinds[] = {
        {"pkcs10", QEL_PDU_CertificationRequest},
        {"spkac", QEL_PDU_SignedPublicKeyAndChallenge},
        {"crl", QEL_PDU_CertificateList},
        {"pkcs8", QEL_PDU_EncryptedPrivateKeyInfo},
    };
    // These were written without the attributes field, which the type has.
    const std::vector<std::string> incomplete = {"pkcs10/ca-req.der", "pkcs10/pca-req.der",
                                                 "pkcs10/s1024req.der", "pkcs10/s512-req.der"};
    for (const auto &[kind, pdu] : kinds) {
        for (const std::string &name : vector_names(kind)) {
            if (!name.ends_with(".der"))
                continue;
            SCOPED_TRACE(name);
            const Bytes encoding = vector_file(name);
            const auto value = context.decode(encoding, pdu);
            ASSERT_EQ(value == nullptr,
                      std::count(incomplete.begin(), incomplete.end(), name) == 1);
            if (value != nullptr) {
                EXPECT_EQ(to_hex(context.encode(value.get(), pdu)), to_hex(encoding));
            }
        }
    }
}

TEST_F(Pkcs, MessagesDecodeAndTheirSignedDataToo) {
    for (const std::string &name : vector_names("pkcs7")) {
        if (name.ends_with(".content"))
            continue;
        SCOPED_TRACE(name);
        const Bytes encoding = vector_file(name);
        const auto info = context.decode<QelContentInfo>(encoding, QEL_PDU_ContentInfo);
        ASSERT_NE(info, nullptr);
        ASSERT_NE(info->content, nullptr);
        const Bytes content = bytes_of(*info->content);
        const auto data = context.decode<QelSignedData>(content, QEL_PDU_SignedData);
        ASSERT_NE(data, nullptr);
        // Under BER, sets stay as they were; only indefinite lengths and long forms change.
        const Bytes again = context.encode(data.get(), QEL_PDU_SignedData);
        if (encoding[1] != 0x80) {
            EXPECT_EQ(to_hex(again), to_hex(content));
        }
        const auto twice = context.decode<QelSignedData>(again, QEL_PDU_SignedData);
        ASSERT_NE(twice, nullptr);
        EXPECT_EQ(to_hex(context.encode(twice.get(), QEL_PDU_SignedData)), to_hex(again));
        // Its content goes to a file and comes from it again.
        const auto in_file = context.decode<QelSignedData>(content, QEL_PDU_SignedDataFm);
        ASSERT_NE(in_file, nullptr);
        EXPECT_EQ(to_hex(context.encode(in_file.get(), QEL_PDU_SignedDataFm)), to_hex(again));
    }
}

// ---- One value of each PDU ----------------------------------------------------------------------

const std::string kOid = "06022a03", kAlg = "30{06022a03 0500}", kOtherAlg = "30{06022a04}",
                  kName = "30{31{30{0603550403 13{'A'}}}}",
                  kOther = "30{31{30{0603550403 13{'B'}}}}",
                  kTimes = "30{17{'960426133501Z'} 17{'970426133501Z'}}",
                  kKey = "30{" + kAlg + "03020001}", kBits = "03020680",
                  kExtensions = "30{30{0603551d13 0101ff 04{3000}} 30{0603551d0f 04{030100}}}",
                  kAttributes = "30{06022a05 31{020101 0500}}";

const std::string kCertificateInfo = "30{a0{020102} 0202 0080" + kAlg + kName + kTimes + kOther +
                                     kKey + "81{0080} 82{04f0} a3{" + kExtensions + "}}";
const std::string kCertificate = "30{" + kCertificateInfo + kOtherAlg + kBits + "}";
const std::string kCrlInfo = "30{" + kAlg + kName + "17{'960426133501Z'} 17{'970426133501Z'}" +
                             "30{30{020101 17{'960101000000Z'}} 30{020102 17{'960102000000Z'}}}}";
const std::string kCrl = "30{" + kCrlInfo + kOtherAlg + kBits + "}";
const std::string kEncryptedKey = "30{" + kAlg + "04{'key'}}";
const std::string kTrustedKeys = "31{30{" + kOther + kKey + "} 30{" + kName + kKey + "a0{" +
                                 kOther + "}" + kTimes + "020105 a1{" + kExtensions + "}}}";
const std::string kKeyPkgInfo = "30{13{'1'} 16{'id'}" + kName + kKey + kEncryptedKey + "31{" +
                                kAttributes + "} 020102" + kTrustedKeys + "}";
const std::string kIssuer = "30{" + kName + "020107}";
const std::string kContent = "30{" + kOid + "a0{04{'text'}}}";
const std::string kExtended =
    "a0{30{020100" + kCertificate + "31{" + kAttributes + "}}" + kOtherAlg + kBits + "}";
const std::string kSigner = "30{020101" + kIssuer + kAlg + "a0{" + kAttributes + "}" + kOtherAlg +
                            "04{'sig'} a1{30{06022a06 31{0500}}}}";
const std::string kSigned = "30{020101 31{" + kAlg + kOtherAlg + "}" + kContent + "a0{" +
                            kCertificate + kExtended + "} a1{" + kCrl + "} 31{" + kSigner + "}}";
const std::string kEncrypted = "30{" + kOid + kAlg + "80{'cipher'}}";
const std::string kRequestInfo = "30{020100" + kName + kKey + "a0{" + kAttributes + "}}";
const std::string kChallenge = "30{" + kKey + "16{'challenge'}}";

struct Sample {
    int pdu;
    std::string encoding;
};

const std::vector<Sample> kSamples = {
    {QEL_PDU_Name, kName},
    {QEL_PDU_CIG, "14{'text'}"},
    {QEL_PDU_CIG, "13{'text'}"},
    {QEL_PDU_PT, "13{'text'}"},
    {QEL_PDU_CertificatePair, "30{a0{" + kCertificate + "} a1{" + kCertificate + "}}"},
    {QEL_PDU_CertificatePair, "3000"},
    {QEL_PDU_CertificateInfo, kCertificateInfo},
    {QEL_PDU_Certificate, kCertificate},
    {QEL_PDU_OctetString, "04{'octets'}"},
    {QEL_PDU_BitString, "0303 0480f0"},
    {QEL_PDU_CertificateVersion, "020102"},
    {QEL_PDU_SubjectPublicKeyInfo, kKey},
    {QEL_PDU_AlgID, kAlg},
    {QEL_PDU_CertificateList, kCrl},
    {QEL_PDU_CertificateList,
     "30{30{" + kAlg + kName + "17{'960426133501Z'}}" + kAlg + kBits + "}"},
    {QEL_PDU_RC2_CBCParameter, "04{'12345678'}"},
    {QEL_PDU_RC2_CBCParameter, "30{0202 00a0 04{'12345678'}}"},
    {QEL_PDU_INT, "0204 80000000"},
    {QEL_PDU_KeyPkgInfo, kKeyPkgInfo},
    {QEL_PDU_KeyPkg, "30{" + kKeyPkgInfo + kOtherAlg + kBits + "}"},
    {QEL_PDU_QelServKeyInfo,
     "30{" + kAlg + "0202 03e8 020105 04{'secret'} 16{'id'} 16{'10.0.0.1'} 04{'package'}}"},
    {QEL_PDU_DigestInfo, "30{" + kAlg + "04{'digest'}}"},
    {QEL_PDU_CertificateRevocationListInfo, kCrlInfo},
    {QEL_PDU_PBEParameter, "30{04{'saltsalt'} 0205 00ffffffff}"},
    {QEL_PDU_ContentInfo, kContent},
    {QEL_PDU_ContentInfo, "30{" + kOid + "}"},
    {QEL_PDU_ContentInfoFm, kContent},
    {QEL_PDU_EnvelopedData,
     "30{020100 31{30{020100" + kIssuer + kAlg + "04{'key'}}}" + kEncrypted + "}"},
    {QEL_PDU_EncryptedData, "30{020100" + kEncrypted + "}"},
    {QEL_PDU_SignedData, kSigned},
    {QEL_PDU_SignedDataFm, kSigned},
    {QEL_PDU_PkcsData, "04{'text'}"},
    {QEL_PDU_PkcsDataFm, "04{'text'}"},
    {QEL_PDU_PrivateKeyInfo, "30{020100" + kAlg + "04{'secret'} a0{" + kAttributes + "}}"},
    {QEL_PDU_EncryptedPrivateKeyInfo, kEncryptedKey},
    {QEL_PDU_CertificationRequestInfo, kRequestInfo},
    {QEL_PDU_CertificationRequest, "30{" + kRequestInfo + kOtherAlg + kBits + "}"},
    {QEL_PDU_ChallengePassword, "13{'text'}"},
    {QEL_PDU_ChallengePassword, "14{'text'}"},
    {QEL_PDU_EmailAddress, "16{'me@example.org'}"},
    {QEL_PDU_PublicKeyAndChallenge, kChallenge},
    {QEL_PDU_SignedPublicKeyAndChallenge, "30{" + kChallenge + kOtherAlg + kBits + "}"},
};

const std::set<int> kAlwaysDer = {QEL_PDU_Name,        QEL_PDU_CertificateInfo,
                                  QEL_PDU_Certificate, QEL_PDU_KeyPkgInfo,
                                  QEL_PDU_DigestInfo,  QEL_PDU_CertificationRequestInfo};

TEST_F(Pkcs, EveryPduComesBackUnderEveryRule) {
    std::vector<bool> seen(37);
    Asn1Context indefinite;
    ASSERT_EQ(__qel_set_encoding_flags_indefinite(indefinite.get()), QEL_OK);
    for (const Sample &sample : kSamples) {
        SCOPED_TRACE(__qel_asn1_pdu_name(sample.pdu));
        seen[static_cast<std::size_t>(sample.pdu)] = true;
        const Bytes encoding = ber(sample.encoding);
        const auto value = context.decode(encoding, sample.pdu);
        ASSERT_NE(value, nullptr) << ossGetErrMsg(
            static_cast<OssEnvironment *>(context.get()->asn1));
        EXPECT_EQ(to_hex(context.encode(value.get(), sample.pdu)), to_hex(encoding));
        // Handles belong to their context.
        if (sample.pdu == QEL_PDU_PkcsDataFm || sample.pdu == QEL_PDU_ContentInfoFm ||
            sample.pdu == QEL_PDU_SignedDataFm)
            continue;
        const Bytes other = indefinite.encode(value.get(), sample.pdu);
        const bool has_one_form = kAlwaysDer.count(sample.pdu) != 0 || (encoding[0] & 0x20) == 0;
        EXPECT_EQ(other == encoding, has_one_form);
        const auto again = context.decode(other, sample.pdu);
        ASSERT_NE(again, nullptr);
        EXPECT_EQ(to_hex(context.encode(again.get(), sample.pdu)), to_hex(encoding));
    }
    EXPECT_THAT(std::vector<bool>(seen.begin() + 1, seen.end()), ::testing::Each(true));
}

TEST_F(Pkcs, SignedDataMarksItsListsAndThoseOfItsSigners) {
    const Bytes encoding = ber(kSigned);
    for (const int pdu : {QEL_PDU_SignedData, QEL_PDU_SignedDataFm}) {
        const auto data = context.decode<QelSignedData>(encoding, pdu);
        ASSERT_NE(data, nullptr);
        data->mask = data->signerInfos->signer->mask = 0;
        EXPECT_EQ(to_hex(context.encode(data.get(), pdu)), to_hex(encoding));
        EXPECT_EQ(data->mask, QEL_SIGNED_CERTS | QEL_SIGNED_CRLS);
        EXPECT_EQ(data->signerInfos->signer->mask, QEL_SIGNER_AUTH_ATTRS | QEL_SIGNER_UNAUTH_ATTRS);
    }
}

TEST_F(Pkcs, KeyPackagesMarkTheListsThatAreThere) {
    const Bytes encoding = ber("30{" + kKeyPkgInfo + kOtherAlg + kBits + "}");
    const auto package = context.decode<QelKeyPkg>(encoding, QEL_PDU_KeyPkg);
    ASSERT_NE(package, nullptr);
    for (const int pdu : {QEL_PDU_KeyPkg, QEL_PDU_KeyPkgInfo}) {
        QelTrustedKeys *const keys = std::exchange(package->tKeys, nullptr);
        package->mask = 0;
        context.encode(package.get(), pdu);
        EXPECT_EQ(package->mask, QEL_KEYPKG_ATTRS);
        package->tKeys = keys;
        EXPECT_EQ(to_hex(context.encode(package.get(), pdu)),
                  to_hex(pdu == QEL_PDU_KeyPkg ? encoding : ber(kKeyPkgInfo)));
        EXPECT_EQ(package->mask, QEL_KEYPKG_ATTRS | QEL_KEYPKG_TKEYS);
    }
}

// ---- Releasing ----------------------------------------------------------------------------------

int blocks = 0;

int blocks_freed_by(const std::function<void()> &work) {
    blocks = 0;
    fault::watch_free([](const unsigned char *, std::size_t) { ++blocks; });
    work();
    fault::watch_free(nullptr);
    return blocks;
}

template <auto release> void released_by(QelContext *context, void *value) {
    [&]<class Record>(void (*)(QelContext *, Record *)) {
        release(context, static_cast<Record *>(value));
    }(release);
}

TEST_F(Pkcs, EachFreeFunctionReleasesItsPdu) {
    const struct {
        int pdu;
        void (*release)(QelContext *, void *);
    } functions[] = {
        {QEL_PDU_SubjectPublicKeyInfo, released_by<__qel_free_keyinfo_pdu>},
        {QEL_PDU_RC2_CBCParameter, released_by<__qel_free_rc2_cbc_params_pdu>},
        {QEL_PDU_PBEParameter, released_by<__qel_free_pbe_paramater_pdu>},
        {QEL_PDU_ContentInfoFm, released_by<__qel_free_content_info_fm_pdu>},
        {QEL_PDU_EnvelopedData, released_by<__qel_free_envdata_pdu>},
        {QEL_PDU_EncryptedData, released_by<__qel_free_encrdata_pdu>},
        {QEL_PDU_SignedDataFm, released_by<__qel_free_sigdata_fm_pdu>},
        {QEL_PDU_PkcsData, released_by<__qel_free_pkcsdata_pdu>},
        {QEL_PDU_PkcsDataFm, released_by<__qel_free_pkcsdata_fm_pdu>},
        {QEL_PDU_PrivateKeyInfo, released_by<__qel_free_private_key_info_pdu>},
        {QEL_PDU_SignedPublicKeyAndChallenge, released_by<__qel_free_netscape_certreq>},
    };
    for (const Sample &sample : kSamples) {
        for (const auto &each : functions) {
            if (each.pdu != sample.pdu)
                continue;
            SCOPED_TRACE(__qel_asn1_pdu_name(sample.pdu));
            void *first = context.decode(ber(sample.encoding), sample.pdu).release();
            void *second = context.decode(ber(sample.encoding), sample.pdu).release();
            const int expected =
                blocks_freed_by([&] { __qel_asn1_free(context.get(), first, sample.pdu); });
            EXPECT_EQ(blocks_freed_by([&] { each.release(context.get(), second); }), expected);
        }
    }
}

// ---- Components in the members that are theirs --------------------------------------------------

std::string character_of(const QelName *name) {
    const QelOctetString &value = *name->rdns->rdn->ava->value;
    return std::string(1, static_cast<char>(value.value[2]));
}

uint32_t last_of(const QelOid *oid) {
    return oid->value[oid->count - 1];
}

TEST_F(Pkcs, CertificateComponentsAreInTheirMembers) {
    const auto pair =
        context.decode<QelCertPair>(ber("30{a0{" + kCertificate + "}}"), QEL_PDU_CertificatePair);
    ASSERT_NE(pair, nullptr);
    EXPECT_EQ(pair->reverse, nullptr);
    EXPECT_EQ(records::describe(*pair->forward),
              "{ 192 2 2:0080 { 1.2.3 2:0500 } { 1 [ [ { 2.5.4.3 3:130141 } ] ] } "
              "{ 96 4 26 13 35 1 0 0 1  97 4 26 13 35 1 0 0 1  } "
              "{ 1 [ [ { 2.5.4.3 3:130142 } ] ] } { { 1.2.3 2:0500 } 8:01 } 8:80 4:f0 "
              "[ { 128 2.5.29.19 1 2:3000 } { 0 2.5.29.15 0 3:030100 } ] { 1.2.4 null } 2:80 }");
}

TEST_F(Pkcs, KeyPackageComponentsAreInTheirMembers) {
    const auto package = context.decode<QelKeyPkg>(ber(kKeyPkgInfo), QEL_PDU_KeyPkgInfo);
    ASSERT_NE(package, nullptr);
    EXPECT_STREQ(package->version, "1");
    EXPECT_STREQ(package->keypkgId, "id");
    EXPECT_EQ(character_of(package->owner), "A");
    EXPECT_EQ(text_of(bytes_of(package->encrPrivKeyInfo->encryptedData)), "key");
    EXPECT_EQ(last_of(package->keypkgAttrs->attribute->type), 5u);
    EXPECT_EQ(to_hex(bytes_of(*package->keypkgAttrs->attribute->values->next->value)), "0500");
    EXPECT_EQ(package->usage, 2u);
    EXPECT_EQ(records::describe(*package->tKeys->next->key),
              "{ 128 { 1 [ [ { 2.5.4.3 3:130141 } ] ] } { { 1.2.3 2:0500 } 8:01 } "
              "{ 1 [ [ { 2.5.4.3 3:130142 } ] ] } "
              "{ 96 4 26 13 35 1 0 0 1  97 4 26 13 35 1 0 0 1  } 1:05 "
              "[ { 128 2.5.29.19 1 2:3000 } { 0 2.5.29.15 0 3:030100 } ] }");
    EXPECT_EQ(records::describe(*package->tKeys->key),
              "{ 0 { 1 [ [ { 2.5.4.3 3:130142 } ] ] } { { 1.2.3 2:0500 } 8:01 } null null null "
              "null }");
    EXPECT_EQ(package->algorithm, nullptr);
}

TEST_F(Pkcs, SignedDataComponentsAreInTheirMembers) {
    const auto data = context.decode<QelSignedData>(ber(kSigned), QEL_PDU_SignedData);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(data->mask, QEL_SIGNED_CERTS | QEL_SIGNED_CRLS);
    EXPECT_EQ(last_of(data->digestAlgorithms->next->algid->algorithm), 4u);
    EXPECT_EQ(to_hex(bytes_of(*data->contentInfo->content)), to_hex(ber("04{'text'}")));
    EXPECT_EQ(data->certs->cert->choice, QEL_CERT_PLAIN);
    EXPECT_EQ(character_of(data->certs->cert->u.cert->subject), "B");
    const QelCertChoice &extended = *data->certs->next->cert;
    EXPECT_EQ(extended.choice, QEL_CERT_EXTENDED);
    EXPECT_EQ(character_of(extended.u.extendedCert->certificate->subject), "B");
    EXPECT_EQ(last_of(extended.u.extendedCert->attributes->attribute->type), 5u);
    EXPECT_EQ(last_of(extended.u.extendedCert->signatureAlgorithm->algorithm), 4u);
    const QelCrl &crl = *data->crls->crl;
    EXPECT_EQ(crl.mask, QEL_CRL_ENTRIES);
    EXPECT_EQ(crl.thisUpdate->year, 96);
    EXPECT_EQ(crl.nextUpdate->year, 97);
    EXPECT_EQ(crl.revokedCertificates->entry->userCertificate.value[0], 1);
    EXPECT_EQ(crl.revokedCertificates->next->entry->revocationDate->day, 2);
    EXPECT_EQ(last_of(crl.signature->algorithm), 3u);
    EXPECT_EQ(last_of(crl.algorithm->algorithm), 4u);
    const QelSignerInfo &signer = *data->signerInfos->signer;
    EXPECT_EQ(signer.mask, QEL_SIGNER_AUTH_ATTRS | QEL_SIGNER_UNAUTH_ATTRS);
    EXPECT_EQ(signer.issuerAndSerialNumber->serial.value[0], 7);
    EXPECT_EQ(last_of(signer.digestAlgorithm->algorithm), 3u);
    EXPECT_EQ(last_of(signer.digestEncryptionAlgorithm->algorithm), 4u);
    EXPECT_EQ(last_of(signer.authenticatedAttributes->attribute->type), 5u);
    EXPECT_EQ(last_of(signer.unauthenticatedAttributes->attribute->type), 6u);
    EXPECT_EQ(text_of(bytes_of(signer.encryptedDigest)), "sig");
}

TEST_F(Pkcs, OtherComponentsAreInTheirMembers) {
    const auto info = context.decode<QelServKeyInfo>(
        ber("30{" + kAlg +
            "0202 03e8 0205 00ffffffff 04{'secret'} 16{'id'} 16{'host'} 04{'package'}}"),
        QEL_PDU_QelServKeyInfo);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->uid, 1000u);
    EXPECT_EQ(info->flags, UINT32_MAX);
    EXPECT_EQ(text_of(bytes_of(info->privKey)), "secret");
    EXPECT_STREQ(info->keypkgId, "id");
    EXPECT_STREQ(info->hostIP, "host");
    EXPECT_EQ(text_of(bytes_of(info->keypkg)), "package");

    const auto plain =
        context.decode<QelRC2CBCParameter>(ber("04{'iv'}"), QEL_PDU_RC2_CBCParameter);
    EXPECT_EQ(plain->choice, QEL_RC2_IV);
    EXPECT_EQ(text_of(bytes_of(plain->u.iv)), "iv");
    const auto rc2 =
        context.decode<QelRC2CBCParameter>(ber("30{0202 00a0 04{'iv'}}"), QEL_PDU_RC2_CBCParameter);
    EXPECT_EQ(rc2->choice, QEL_RC2_SEQUENCE);
    EXPECT_EQ(rc2->u.sequence.version, 160);
    EXPECT_EQ(text_of(bytes_of(rc2->u.sequence.iv)), "iv");

    const auto t61 = context.decode<QelCaseIgnoreString>(ber("14{'t'}"), QEL_PDU_CIG);
    EXPECT_EQ(t61->choice, QEL_CIG_T61);
    EXPECT_STREQ(t61->u.t61String, "t");
    const auto password =
        context.decode<QelChallengePassword>(ber("14{'p'}"), QEL_PDU_ChallengePassword);
    EXPECT_EQ(password->choice, QEL_CHALLENGE_T61);
    const auto address = context.decode<char>(ber("16{'me@example.org'}"), QEL_PDU_EmailAddress);
    EXPECT_STREQ(address.get(), "me@example.org");

    const auto encrypted = context.decode<QelEncryptedData>(ber("30{020100" + kEncrypted + "}"),
                                                            QEL_PDU_EncryptedData);
    EXPECT_EQ(text_of(bytes_of(*encrypted->encryptedContentInfo->encryptedContent)), "cipher");
}

// ---- What the types refuse ----------------------------------------------------------------------

TEST_F(Pkcs, RefusesWhatTheTypesDoNotHave) {
    const struct {
        const char *reason;
        int pdu;
        std::string encoding;
    } cases[] = {
        {"a name without its list", QEL_PDU_Name, "31{}"},
        {"an assertion without a value", QEL_PDU_Name, "30{31{30{0603550403}}}"},
        {"a digest info with something behind", QEL_PDU_DigestInfo, "30{" + kAlg + "04{'d'}} 00"},
        {"a digest info with something inside", QEL_PDU_DigestInfo, "30{" + kAlg + "04{'d'} 0500}"},
        {"parameters twice", QEL_PDU_AlgID, "30{06022a03 0500 0500}"},
        {"an algorithm without identifier", QEL_PDU_AlgID, "30{0500}"},
        {"no algorithm at all", QEL_PDU_AlgID, "3000"},
        {"a content without its tag", QEL_PDU_ContentInfo, "30{06022a03 0500}"},
        {"notAfter as GeneralizedTime", QEL_PDU_CertificateInfo,
         "30{020101" + kAlg + kName + "30{17{'960426133501Z'} 18{'20970426133501Z'}}" + kOther +
             kKey + "}"},
        {"notBefore alone", QEL_PDU_CertificateInfo,
         "30{020101" + kAlg + kName + "30{17{'960426133501Z'}}" + kOther + kKey + "}"},
        {"a version twice", QEL_PDU_CertificateInfo,
         "30{a0{020102} a0{020102} 020101" + kAlg + kName + kTimes + kOther + kKey + "}"},
        {"subjectUID before issuerUID", QEL_PDU_CertificateInfo,
         "30{020101" + kAlg + kName + kTimes + kOther + kKey + "82{00} 81{00}}"},
        {"a PKCS#7 revocation list without nextUpdate", QEL_PDU_CertificateRevocationListInfo,
         "30{" + kAlg + kName + "17{'960426133501Z'}}"},
        {"a request without attributes", QEL_PDU_CertificationRequestInfo,
         "30{020100" + kName + kKey + "}"},
        {"a usage below zero", QEL_PDU_KeyPkgInfo,
         "30{13{'1'} 16{'id'}" + kName + kKey + kEncryptedKey + "0201ff}"},
        {"RC2 parameters of another type", QEL_PDU_RC2_CBCParameter, "0201a0"},
    };
    for (const auto &each : cases) {
        QelStatus status = QEL_OK;
        EXPECT_EQ(context.decode(ber(each.encoding), each.pdu, &status), nullptr) << each.reason;
        EXPECT_EQ(status, QEL_ERR_ASN1_DECODE);
    }
}

// ---- Spoiled and malformed encodings ------------------------------------------------------------

// What is still taken must encode, and decode again to what encodes alike.
void expect_taken_whole(Asn1Context &context, const Bytes &encoding, int pdu) {
    const auto value = context.decode(encoding, pdu);
    if (value == nullptr)
        return;
    QelStatus status = QEL_OK;
    const Bytes again = context.encode(value.get(), pdu, &status);
    if (status != QEL_OK) // a printable string with a character that it should not have
        return;
    const auto twice = context.decode(again, pdu);
    ASSERT_NE(twice, nullptr);
    EXPECT_EQ(to_hex(context.encode(twice.get(), pdu)), to_hex(again));
}

void spoil(Asn1Context &context, const Bytes &good, int pdu) {
    each_spoiled(good, [&](const Bytes &spoiled, const std::string &what) {
        SCOPED_TRACE(what);
        if (spoiled.size() < good.size())
            EXPECT_EQ(context.decode(spoiled, pdu), nullptr);
        else
            expect_taken_whole(context, spoiled, pdu);
    });
}

TEST_F(Pkcs, SpoiledSamplesGiveAStatus) {
    for (const Sample &sample : kSamples) {
        SCOPED_TRACE(__qel_asn1_pdu_name(sample.pdu));
        spoil(context, ber(sample.encoding), sample.pdu);
    }
}

TEST_F(Pkcs, SpoiledRealEncodingsGiveAStatus) {
    spoil(context, vector_file("certs/md5/globalsign-root-ca-98.der"), QEL_PDU_Certificate);
    spoil(context, vector_file("pkcs8/pkcs8v1_rsa_md5_des1.der"), QEL_PDU_EncryptedPrivateKeyInfo);
    const Bytes message = vector_file("pkcs7/nss-pkcs7bday.ber");
    spoil(context, message, QEL_PDU_ContentInfo);
    const auto info = context.decode<QelContentInfo>(message, QEL_PDU_ContentInfo);
    ASSERT_NE(info, nullptr);
    spoil(context, bytes_of(*info->content), QEL_PDU_SignedData);
}

TEST_F(Pkcs, MalformedInputsGiveAStatusUnderEveryPdu) {
    std::size_t inputs = 0;
    const auto check = [&](const std::string &name, const Bytes &input) {
        SCOPED_TRACE(name);
        ++inputs;
        for (int pdu = 1; pdu <= QEL_PDU_SignedPublicKeyAndChallenge; ++pdu)
            expect_taken_whole(context, input, pdu);
    };
    for (const std::string &name : vector_names("malformed")) {
        if (name.ends_with(".tar"))
            each_in_tar(vector_file(name), check);
        else if (!name.ends_with(".txt"))
            check(name, vector_file(name));
    }
    EXPECT_GT(inputs, 500u);
}

TEST_F(Pkcs, MutatedCertificatesAreRefused) {
    std::vector<std::string> taken;
    each_in_tar(vector_file("malformed/libtasn1-invalid-x509.tar"),
                [&](const std::string &name, const Bytes &input) {
                    if (context.decode(input, QEL_PDU_Certificate) != nullptr)
                        taken.push_back(name);
                });
    EXPECT_THAT(taken, ::testing::IsEmpty());
    const std::pair<const char *, int> others[] = {
        {"libtomcrypt-asn1/illegal_padding1.crt", QEL_PDU_Certificate},
        {"libtomcrypt-asn1/illegal_padding2.crt", QEL_PDU_Certificate},
        {"libtomcrypt-asn1/illegal_padding3.crt", QEL_PDU_Certificate},
        {"libtomcrypt-asn1/0x80.crt", QEL_PDU_Certificate},
        {"libtomcrypt-asn1/0xff.crt", QEL_PDU_Certificate},
        {"openssl-d2i/bad_cert.der", QEL_PDU_Certificate},
        {"openssl-d2i/bad-int-pad0.der", QEL_PDU_INT},
        {"openssl-d2i/bad-int-padminus1.der", QEL_PDU_INT},
        {"openssl-d2i/high_tag.der", QEL_PDU_INT},
    };
    for (const auto &[name, pdu] : others)
        EXPECT_EQ(context.decode(vector_file(std::string("malformed/") + name), pdu), nullptr)
            << name;
}

} // namespace
