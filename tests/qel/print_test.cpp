// Credentials as text: each account to the character, and what ends one.
#include "qel/signer.h"
#include "support/ber.h"
#include "support/fault.h"
#include "support/records.h"
#include "support/secrets.h"
#include "support/vectors.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <iterator>

namespace {

using Print = std::function<QelStatus(QelContext *, FILE *)>;

struct Printed {
    QelStatus status = QEL_OK;
    std::string text;
};

Printed printed(QelContext *context, const Print &print) {
    char *text = nullptr;
    std::size_t size = 0;
    FILE *stream = open_memstream(&text, &size);
    Printed result;
    result.status = print(context, stream);
    std::fclose(stream);
    result.text.assign(text, size);
    std::free(text);
    return result;
}

class Printing : public testing::Test {
protected:
    Printing() { setenv("TZ", "UTC", 1); }
    Printed printed(const Print &print) { return ::printed(context, print); }

    TestContext context;
};

// ---- Whole credentials --------------------------------------------------------------------------

// A case of tests/qel/printing/cases.txt.
struct Case {
    Bytes encoding;
    std::string expected;
    QelStatus status;
    int pdu;
    std::function<QelStatus(QelContext *, FILE *, void *)> print;
    std::string where;
};

const std::string kFolder = "../qel/printing/";

Bytes encoding_of(VectorCase &row) {
    if (row.has("Ber"))
        return ber(row.text("Ber"));
    Bytes bytes = vector_file(row.text("File"));
    if (row.has("From")) {
        const Bytes from = row.bytes("From"), to = row.bytes("To");
        const auto found = std::search(bytes.begin(), bytes.end(), from.begin(), from.end());
        if (found == bytes.end() || from.size() != to.size())
            ADD_FAILURE() << "nothing to replace in line " << row.line;
        else
            std::copy(to.begin(), to.end(), found);
    }
    return bytes;
}

template <class Record>
auto with(QelStatus (*print)(QelContext *, FILE *, const Record *, int, uint32_t), int full,
          uint32_t indent) {
    return [=](QelContext *context, FILE *stream, void *record) {
        return print(context, stream, static_cast<Record *>(record), full, indent);
    };
}

// The first line, with the present moment, is looked at on its way.
QelStatus print_log(QelContext *context, FILE *stream, const QelCert *cert, int, uint32_t indent) {
    const Printed entry = printed(context, [&](QelContext *, FILE *memory) {
        return __qel_fprint_cert_log(context, memory, cert, indent);
    });
    const std::string label = "Certificate Creation Time and Date: ";
    const std::size_t end = entry.text.find('\n');
    if (end == entry.text.npos)
        return entry.status;
    EXPECT_EQ(entry.text.substr(0, end - 24), std::string(indent, ' ') + label);
    std::fputs(entry.text.c_str() + end + 1, stream);
    return entry.status;
}

std::vector<Case> cases() {
    std::vector<Case> result;
    for (VectorCase &row : vector_cases(kFolder + "cases.txt")) {
        Case one;
        one.encoding = encoding_of(row);
        one.expected = text_of(vector_file(kFolder + row.text("Text")));
        one.status =
            row.has("Status") ? static_cast<QelStatus>(row.number("Status")) : QelStatus{QEL_OK};
        one.where = row.text("Text");
        const int full = static_cast<int>(row.number("Full"));
        const auto indent = static_cast<uint32_t>(row.number("Indent"));
        if (row.section == "cert")
            one.pdu = QEL_PDU_Certificate, one.print = with(__qel_fprint_cert, full, indent);
        else if (row.section == "log")
            one.pdu = QEL_PDU_Certificate, one.print = with(print_log, full, indent);
        else if (row.section == "keypkg")
            one.pdu = QEL_PDU_KeyPkg, one.print = with(__qel_fprint_keypkg, full, indent);
        else if (row.section == "certreq")
            one.pdu = QEL_PDU_CertificationRequest,
            one.print = with(__qel_fprint_certreq, full, indent);
        else
            one.pdu = QEL_PDU_SignedPublicKeyAndChallenge,
            one.print = with(__qel_fprint_netscape_certreq, full, indent);
        EXPECT_TRUE(row.unread().empty()) << "line " << row.line;
        result.push_back(std::move(one));
    }
    return result;
}

TEST_F(Printing, CredentialsToTheCharacter) {
    std::size_t count = 0;
    for (const Case &row : cases()) {
        SCOPED_TRACE(row.where);
        ++count;
        const auto record = asn1_decode(context, row.encoding, row.pdu);
        ASSERT_NE(record, nullptr);
        const Printed got = printed(
            [&](QelContext *of, FILE *stream) { return row.print(of, stream, record.get()); });
        EXPECT_EQ(got.status, row.status);
        EXPECT_EQ(got.text, row.expected);
    }
    EXPECT_EQ(count, 24U);
}

TEST_F(Printing, EachAllocationFailing) {
    for (const Case &row : cases()) {
        if (row.status != QEL_OK)
            continue;
        SCOPED_TRACE(row.where);
        const auto record = asn1_decode(context, row.encoding, row.pdu);
        fault::each_allocation([&] {
            const Printed got = printed(
                [&](QelContext *of, FILE *stream) { return row.print(of, stream, record.get()); });
            EXPECT_EQ(got.status != QEL_OK, fault::met()) << got.status;
            EXPECT_TRUE(row.expected.starts_with(got.text)) << got.text;
        });
    }
}

// A stream that holds nothing back refuses the first thing that it is given; one with a buffer, a
// later one.
TEST_F(Printing, StreamsThatRefuse) {
    for (const Case &row : cases()) {
        SCOPED_TRACE(row.where);
        const auto record = asn1_decode(context, row.encoding, row.pdu);
        for (const int mode : {_IONBF, _IOFBF}) {
            char buffer[64];
            FILE *full = std::fopen("/dev/full", "w");
            std::setvbuf(full, buffer, mode, sizeof buffer);
            if (row.where.find("log") == row.where.npos) { // print_log writes by itself
                EXPECT_EQ(row.print(context, full, record.get()), QEL_ERR_FILE_IO);
            }
            std::fclose(full);
        }
    }
}

// ---- Parts --------------------------------------------------------------------------------------

struct AlgorithmCase {
    const char *reason, *encoding;
    QelStatus status;
    const char *text;
};

// clang-format off
const AlgorithmCase kAlgorithms[] = {
    {"NULL", "30{06{2a864886f70d0205}0500}", QEL_OK, "      algorithm: 1.2.840.113549.2.5  (md5)\n      parameters: NULL\n"},
    {"the registry's NULL, whatever is there", "30{06{2a864886f70d0205}020107}", QEL_OK, "      algorithm: 1.2.840.113549.2.5  (md5)\n      parameters: NULL\n"},
    {"a key size", "30{06{55080101}02020200}", QEL_OK, "      algorithm: 2.5.8.1.1  (rsa (512))\n      parameters: 512 (KeySize)\n"},
    {"a negative one", "30{06{55080101}0201ff}", QEL_OK, "      algorithm: 2.5.8.1.1  (rsa (512))\n      parameters: -1 (KeySize)\n"},
    {"no key size", "30{06{55080101}}", QEL_OK, "      algorithm: 2.5.8.1.1  (rsa (512))\n      parameters: Missing\n"},
    {"a key size that is none", "30{06{55080101}0500}", QEL_ERR_ASN1_DECODE, "      algorithm: 2.5.8.1.1  (rsa (512))\n      parameters: "},
    {"an initialisation vector", "30{06{2b0e030207}04{00}}", QEL_OK, "      algorithm: 1.3.14.3.2.7  (des_exp)\n      parameters: "},
    {"parameters of RC2", "30{06{2a864886f70d0302}04{00}}", QEL_OK, "      algorithm: 1.2.840.113549.3.2  (rc2_exp)\n      parameters: "},
    {"an unknown algorithm", "30{06{2b0e030206}0500}", QEL_OK, "      algorithm: 1.3.14.3.2.6 (unsupported algorithm)\n"},
    {"large components", "30{06{2a8f8080800083ffffff7f}}", QEL_OK, "      algorithm: 1.2.-268435456.1073741823 (unsupported algorithm)\n"},
};
// clang-format on

TEST_F(Printing, Algorithms) {
    for (const AlgorithmCase &row : kAlgorithms) {
        SCOPED_TRACE(row.reason);
        const auto algorithm = asn1_decode<QelAlgId>(context, ber(row.encoding), QEL_PDU_AlgID);
        ASSERT_NE(algorithm, nullptr);
        const Printed got = printed([&](QelContext *of, FILE *stream) {
            return __qel_fprint_algid(of, stream, algorithm.get(), 2);
        });
        EXPECT_EQ(got.status, row.status);
        EXPECT_EQ(got.text, row.text);
    }
}

TEST_F(Printing, BlanksAndText) {
    EXPECT_EQ(printed([](QelContext *, FILE *stream) -> QelStatus {
                  EXPECT_EQ(FPRINTF(stream, 0, "%s:%d", "a", 1), 3);
                  EXPECT_EQ(FPRINTF(stream, 70, "b\n"), 2);
                  EXPECT_EQ(__qel_print(stream, 0, 1, "%c", 'c'), QEL_OK);
                  return __qel_print(stream, 1, 1, "not this");
              }).text,
              "a:1" + std::string(70, ' ') + "b\n c");
    const char *const nothing = nullptr;
    EXPECT_LT(FPRINTF(nullptr, 0, "a"), 0);
    EXPECT_LT(FPRINTF(stdout, 0, nothing), 0);
    EXPECT_EQ(__qel_print(nullptr, 1, 0, "a"), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(__qel_print(stdout, 0, 0, nothing), QEL_ERR_BAD_PARAM);
    FILE *full = std::fopen("/dev/full", "w");
    std::setvbuf(full, nullptr, _IONBF, 0);
    EXPECT_LT(FPRINTF(full, 1, "%s", ""), 0) << "the blanks are refused";
    EXPECT_EQ(__qel_print(full, 0, 0, "a"), QEL_ERR_FILE_IO);
    std::fclose(full);
}

// ---- Records that no encoding gives -------------------------------------------------------------

TEST_F(Printing, NothingOptional) {
    QelKeyPkg *package = records::full_keypkg();
    const records::OwnedKeyPkg owner(package);
    free(std::exchange(package->keypkgId, nullptr));
    const Printed got = printed([&](QelContext *of, FILE *stream) {
        return __qel_fprint_keypkg(of, stream, package, 0, 0);
    });
    EXPECT_EQ(got.status, QEL_OK);
    EXPECT_TRUE(got.text.starts_with("Key Package Version: 1.0\nOwner identity: "));

    QelKeyInfo *key = package->pubKeyInfo;
    const QelNetscapeCertReq request = {key, nullptr, package->algorithm, package->signature};
    const Printed silent = printed([&](QelContext *of, FILE *stream) {
        return __qel_fprint_netscape_certreq(of, stream, &request, 0, 0);
    });
    EXPECT_EQ(silent.status, QEL_OK);
    EXPECT_EQ(silent.text.find("Challenge"), silent.text.npos);
}

// The mask decides about extensions of certificates and trusted keys, and stays as it is.
TEST_F(Printing, ExtensionsThatAreNotMarked) {
    const records::OwnedCert cert(records::full_cert());
    const records::OwnedTrustedKey key(records::full_trusted_key());
    for (const bool marked : {true, false}) {
        cert->mask = marked ? QEL_CERT_VERSION | QEL_CERT_EXTENSIONS : QEL_CERT_VERSION;
        key->mask = marked ? QEL_TKEY_EXTENSIONS : 0;
        const uint8_t mask = cert->mask;
        const Printed got[] = {printed([&](QelContext *of, FILE *stream) {
                                   return __qel_fprint_cert(of, stream, cert.get(), 0, 0);
                               }),
                               printed([&](QelContext *of, FILE *stream) {
                                   return __qel_fprint_trusted_key(of, stream, key.get(), 0, 0);
                               })};
        for (const Printed &one : got) {
            EXPECT_EQ(one.status, QEL_OK);
            EXPECT_EQ(one.text.find("V3 Extension Fields:") != one.text.npos, marked);
        }
        EXPECT_EQ(cert->mask, mask);
    }
    cert->mask = QEL_CERT_VERSION; // to be released
    __qel_free_v3_cert_extensions(&cert->extensions);
    __qel_free_v3_cert_extensions(&key->extensions);
}

struct IncompleteCase {
    const char *reason;
    std::function<QelStatus(QelContext *, FILE *)> print;
};

uint32_t kArcs[] = {1, 2};
uint8_t kByte[] = {1};
QelOid kOid = {2, kArcs}, kNoArcs = {0, kArcs};
QelAlgId kAlgorithm = {&kOid, nullptr}, kNoOid = {nullptr, nullptr};
QelUTCTime kTime = {96, 1, 1, 0, 0, 0, 0, 0, 1};

template <class Record>
auto of(QelStatus (*print)(QelContext *, FILE *, const Record *, uint32_t), const Record &record) {
    return [=](QelContext *context, FILE *stream) { return print(context, stream, &record, 0); };
}
template <class Record>
auto of(QelStatus (*print)(QelContext *, FILE *, const Record *, int, uint32_t),
        const Record &record) {
    return [=](QelContext *context, FILE *stream) { return print(context, stream, &record, 1, 0); };
}

const IncompleteCase kIncomplete[] = {
    {"no arcs", of<QelOid>(__qel_fprint_oid, kNoArcs)},
    {"arcs that are not there", of<QelOid>(__qel_fprint_oid, {2, nullptr})},
    {"no algorithm", of<QelAlgId>(__qel_fprint_algid, kNoOid)},
    {"no first time", of<QelValidity>(__qel_fprint_validity, {nullptr, &kTime})},
    {"no last time", of<QelValidity>(__qel_fprint_validity, {&kTime, nullptr})},
    {"no extension", of<QelExtensions>(__qel_fprint_v3_cert_extensions, {nullptr, nullptr})},
    {"no extension type",
     of<QelExtension>(__qel_fprint_v3_cert_extension, {0, nullptr, 0, {1, kByte}})},
    {"no extension value",
     of<QelExtension>(__qel_fprint_v3_cert_extension, {0, &kOid, 0, {1, nullptr}})},
    {"an empty extension",
     of<QelExtension>(__qel_fprint_v3_cert_extension, {0, &kOid, 0, {0, kByte}})},
    {"a key of no algorithm", of<QelKeyInfo>(__qel_fprint_keyinfo, {nullptr, {8, kByte}})},
    {"a key of no type", of<QelKeyInfo>(__qel_fprint_keyinfo, {&kNoOid, {8, kByte}})},
    {"a key without bits", of<QelKeyInfo>(__qel_fprint_keyinfo, {&kAlgorithm, {0, kByte}})},
    {"bits that are not there", of<QelKeyInfo>(__qel_fprint_keyinfo, {&kAlgorithm, {8, nullptr}})},
    {"no attribute type", of<QelAttribute>(__qel_fprint_attribute, {nullptr, nullptr})},
    {"an empty certificate", of<QelCert>(__qel_fprint_cert, {})},
    {"an empty certificate's entry", of<QelCert>(__qel_fprint_cert_log, {})},
    {"an empty key package", of<QelKeyPkg>(__qel_fprint_keypkg, {})},
    {"an empty trusted key", of<QelTrustedKey>(__qel_fprint_trusted_key, {})},
    {"an empty request", of<QelCertReq>(__qel_fprint_certreq, {})},
    {"an empty browser request", of<QelNetscapeCertReq>(__qel_fprint_netscape_certreq, {})},
    {"no usage", [](QelContext *context,
                    FILE *stream) { return __qel_fprint_keypkg_usage(context, stream, 0, 0); }},
};

TEST_F(Printing, WhatIsMissing) {
    for (const IncompleteCase &row : kIncomplete)
        EXPECT_EQ(printed(row.print).status, QEL_ERR_BAD_PARAM) << row.reason;

    FILE *const stream = std::fopen("/dev/null", "w");
    QelContext *const some = context;
    const auto refuses = [&](auto *print, auto *record) {
        each_missing(QEL_ERR_BAD_PARAM, print, {4}, some, stream, record, 0U);
    };
    const auto refuses_full = [&](auto *print, auto *record) {
        each_missing(QEL_ERR_BAD_PARAM, print, {4, 5}, some, stream, record, 0, 0U);
    };
    const records::OwnedCert cert(records::full_cert());
    const records::OwnedKeyPkg package(records::full_keypkg());
    const records::OwnedTrustedKey key(records::full_trusted_key());
    qel::Record<QelCertReq, __qel_free_certreq> request(records::full_certreq());
    const QelNetscapeCertReq browser = {};
    refuses(__qel_fprint_oid, &kOid);
    refuses(__qel_fprint_algid, &kAlgorithm);
    refuses(__qel_fprint_validity, cert->validity);
    refuses(__qel_fprint_v3_cert_extensions, cert->extensions);
    refuses(__qel_fprint_v3_cert_extension, cert->extensions->extension);
    refuses(__qel_fprint_attribute, request->attributes->attribute);
    refuses(__qel_fprint_cert_log, cert.get());
    refuses_full(__qel_fprint_keyinfo, cert->pubKeyInfo);
    refuses_full(__qel_fprint_cert, cert.get());
    refuses_full(__qel_fprint_keypkg, package.get());
    refuses_full(__qel_fprint_trusted_key, key.get());
    refuses_full(__qel_fprint_certreq, request.get());
    refuses_full(__qel_fprint_netscape_certreq, &browser);
    each_missing(QEL_ERR_BAD_PARAM, __qel_fprint_keypkg_usage, {4}, some, stream, 1U, 0U);
    std::fclose(stream);
}

// ---- What printing leaves behind ----------------------------------------------------------------

TEST_F(Printing, PasswordsAreZeroed) {
    const std::string password = "open sesame";
    Bytes value = ber("13{'" + password + "'}");
    QelOctetString octets = {static_cast<uint32_t>(value.size()), value.data()};
    QelAttrValue node = {nullptr, &octets};
    const QelAttribute attribute = {const_cast<QelOid *>(challengePassword_OID), &node};
    std::string text(200, '\0');
    FILE *stream = fmemopen(text.data(), text.size(), "w");
    std::setvbuf(stream, nullptr, _IONBF, 0);
    SecretWatch watch;
    watch.add("password", bytes_of(password));
    EXPECT_EQ(__qel_fprint_attribute(context, stream, &attribute, 0), QEL_OK);
    EXPECT_EQ(watch.take_found(), std::set<std::string>());
    std::fclose(stream);
    EXPECT_NE(text.find("value(s): open sesame  \n"), text.npos);
}

TEST_F(Printing, ADigestUnderWayGoesOn) {
    uint8_t digest[16], *out = digest;
    uint32_t size = sizeof digest;
    const Bytes first = bytes_of("one "), second = bytes_of("two");
    const Bytes der = vector_file("certs/md5/dodgy-ca-97.der");
    const auto cert = asn1_decode<QelCert>(context, der, QEL_PDU_Certificate);
    ASSERT_EQ(qel_digest(context, first.data(), 4, QEL_MODE_UPDATE, QEL_MD2_AID, &out, &size),
              QEL_OK);
    const Printed got = printed([&](QelContext *of, FILE *stream) {
        return __qel_fprint_cert(of, stream, cert.get(), 0, 0);
    });
    EXPECT_EQ(got.text, text_of(vector_file(kFolder + "version-1.txt")));
    ASSERT_EQ(qel_digest(context, second.data(), 3, QEL_MODE_FINAL, QEL_MD2_AID, &out, &size),
              QEL_OK);
    EXPECT_EQ(Bytes(digest, digest + 16), md2(first + second));
}

} // namespace
