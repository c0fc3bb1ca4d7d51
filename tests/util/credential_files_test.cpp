#include "support/asn1.h"
#include "support/base64.h"
#include "support/fault.h"
#include "support/files.h"
#include "support/process.h"
#include "support/records.h"

#include <qel/qelp.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <sys/stat.h>

namespace {

class CredentialFile : public ::testing::Test {
protected:
    TemporaryFolder folder;
    Asn1Context asn1;
    QelContext *context = asn1.get();
    const std::string out = folder.path("credential");
    const char *name = out.c_str();

    const records::OwnedCert cert{records::full_cert()};
    const records::OwnedKeyPkg package{records::full_keypkg()};
    const qel::Record<QelCertReq, __qel_free_certreq> request{records::full_certreq()};
    const Bytes cert_der = asn1.encode(cert.get(), QEL_PDU_Certificate);
    const Bytes package_der = asn1.encode(package.get(), QEL_PDU_KeyPkg);
    const Bytes request_der = asn1.encode(request.get(), QEL_PDU_CertificationRequest);
};

// The armour of bytes in lines of 64 characters, each with a line feed.
std::string lines(const Bytes &bytes, const std::string &prefix = "") {
    const std::string text = base64(bytes);
    std::string result;
    for (std::size_t at = 0; at < text.size(); at += 64)
        result += prefix + text.substr(at, 64) + "\n";
    return result;
}

std::string between_markers(const std::string &label, const Bytes &bytes) {
    return "-----BEGIN " + label + "-----\n" + lines(bytes) + "-----END " + label + "-----\n";
}

TEST_F(CredentialFile, contents) {
    const struct {
        const char *reason;
        QelStatus status;
        std::string text;
        std::function<QelStatus(const char *)> dump;
    } rows[] = {
        {"a key package", QEL_OK, between_markers("KEYPKG", package_der),
         [&](auto *file) { return __qel_dump_keypkg(context, file, package.get(), 0); }},
        {"which has no indent", QEL_OK, between_markers("KEYPKG", package_der),
         [&](auto *file) { return __qel_dump_keypkg(context, file, package.get(), 4); }},
        {"a certificate", QEL_OK, between_markers("CERTIFICATE", cert_der),
         [&](auto *file) { return __qel_dump_cert(context, file, cert.get(), 4, 0); }},
        {"its encoding", QEL_OK, text_of(cert_der),
         [&](auto *file) { return __qel_dump_cert(context, file, cert.get(), 4, 1); }},
        {"only 1 asks for the encoding", QEL_OK, between_markers("CERTIFICATE", cert_der),
         [&](auto *file) { return __qel_dump_cert(context, file, cert.get(), 0, 2); }},
        {"a request", QEL_OK, between_markers("NEW CERTIFICATE REQUEST", request_der),
         [&](auto *file) { return __qel_dump_certreq(context, file, request.get(), 4, 1); }},
        {"its armour", QEL_OK, lines(request_der),
         [&](auto *file) { return __qel_dump_certreq(context, file, request.get(), 0, 0); }},
        {"with a prefix", QEL_OK, lines(request_der, "    0x"),
         [&](auto *file) { return __qel_dump_certreq(context, file, request.get(), 4, 0); }},
        {"no key package", QEL_ERR_BAD_PARAM, "",
         [&](auto *file) { return __qel_dump_keypkg(context, file, nullptr, 0); }},
        {"no certificate", QEL_ERR_BAD_PARAM, "",
         [&](auto *file) { return __qel_dump_cert(context, file, nullptr, 0, 0); }},
        {"no request", QEL_ERR_BAD_PARAM, "",
         [&](auto *file) { return __qel_dump_certreq(context, file, nullptr, 0, 0); }},
        {"no context", QEL_ERR_BAD_PARAM, "",
         [&](auto *file) { return __qel_dump_cert(nullptr, file, cert.get(), 0, 0); }},
        {"an incomplete record", QEL_ERR_ASN1_ENCODE, "",
         [&](auto *file) {
             const QelCert empty = {};
             return __qel_dump_cert(context, file, &empty, 0, 0);
         }},
    };
    const std::string before(4000, '#');
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        write_file(out, bytes_of(before));
        EXPECT_EQ(row.dump(name), row.status);
        EXPECT_EQ(text_of(read_file(out)), row.status == QEL_OK ? row.text : before);
        std::filesystem::remove(out);
        const mode_t mask = umask(0);
        EXPECT_EQ(row.dump(name), row.status);
        umask(mask);
        EXPECT_EQ(std::filesystem::status(out).permissions(), row.status == QEL_OK
                                                                  ? std::filesystem::perms(0600)
                                                                  : std::filesystem::perms::unknown)
            << "for its owner alone; where there is nothing to write, there is no file";
        EXPECT_EQ(output_of([&] { EXPECT_EQ(row.dump(nullptr), row.status); }), row.text);
        const QelStatus full = row.status == QEL_OK ? QelStatus{QEL_ERR_FILE_IO} : row.status;
        EXPECT_EQ(row.dump("/dev/full"), full);
        fault::each_allocation([&] {
            write_file(out, bytes_of(before));
            const QelStatus status = row.dump(name);
            if (fault::met()) {
                EXPECT_TRUE(status == QEL_ERR_NO_MEMORY || status == QEL_ERR_ASN1_ENCODE) << status;
                EXPECT_EQ(text_of(read_file(out)), before);
            }
        });
    }
}

} // namespace
