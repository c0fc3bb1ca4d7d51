#include "qel/repositories.h"
#include "support/certificate.h"
#include "support/fault.h"
#include "support/process.h"

#include <filesystem>
#include <sys/stat.h>

namespace {

using Items = std::vector<Bytes>;
namespace fs = std::filesystem;

const char bob[] = "CN=BOB, O=ACME, C=US";
const char bob_in_another_form[] = "cn = bob ,o=\"Acme\",c=us";

Bytes certificate(const std::string &subject, uint8_t serial, const std::string &issuer = "O=CA") {
    const RsaKey &key = RsaKey::of_512_bits();
    return TestCertificate{subject, issuer, &key, &key, serial}.encoding();
}

class CertStore : public RepositoriesTest {
protected:
    CertStore() {
        fs::create_directory(directory);
        std::free(context->certificate_directory);
        context->certificate_directory = strdup(directory.c_str());
        naming.entries["bob"].dn = bob;
    }
    void put(int repository, const Items &items) {
        if (repository == QEL_REPO_DSV)
            naming.entries["bob"].certificates = items;
        else
            write_set(repository == QEL_REPO_FILE ? file : bobs_file, QEL_ITEM_CERTIFICATE, items);
    }
    // The encodings of what is got.
    QelStatus get(int repository, const char *name, Items *got) {
        QelCert *certificates = reinterpret_cast<QelCert *>(this);
        int count = 99;
        const QelStatus status = __qel_get_cert(context, repository, name, &certificates, &count);
        EXPECT_EQ(certificates != nullptr, status == QEL_OK);
        EXPECT_EQ(count != 0, status == QEL_OK);
        got->clear();
        for (int i = 0; i < count; ++i)
            got->push_back(context.encode(certificates + i, QEL_PDU_Certificate));
        qel_free_cert_list(&certificates, count);
        return status;
    }
    QelStatus set(int repository, const char *name, const Bytes &encoding) {
        const auto cert = context.decode<QelCert>(encoding, QEL_PDU_Certificate);
        EXPECT_NE(cert, nullptr);
        return __qel_set_cert(context, repository, name, cert.get());
    }
    QelStatus remove(int repository, const char *name, const char *issuer, Bytes serial) {
        QelName *parsed = nullptr;
        if (issuer != nullptr) {
            EXPECT_EQ(qel_str2dn(context, issuer, &parsed), QEL_OK);
        }
        QelSerial number = {static_cast<uint16_t>(serial.size()), serial.data()};
        const QelStatus status = __qel_remove_cert(context, repository, name, parsed, &number);
        qel_free_dn(&parsed);
        return status;
    }

    const std::string file = folder.path("certs");
    const std::string directory = folder.path("directory");
    const std::string bobs_file = directory + "/" + bob;
    const Bytes first = certificate(bob, 1), second = certificate(bob, 2);
    const Bytes of_carol = certificate("CN=CAROL", 1);
};

TEST_F(CertStore, Getting) {
    const Bytes junk = {5, 0};
    const struct {
        const char *reason;
        int repository;
        const char *name;
        Items items;
        QelStatus status;
    } rows[] = {
        {"from a file", QEL_REPO_FILE, file.c_str(), {of_carol}, QEL_OK},
        {"two in a file", QEL_REPO_FILE, file.c_str(), {first, second}, QEL_ERR_FILE_FORMAT},
        {"no certificate", QEL_REPO_FILE, file.c_str(), {junk}, QEL_ERR_ASN1_DECODE},
        {"no file", QEL_REPO_FILE, "/nowhere/at all", {}, QEL_ERR_NO_FILE},
        {"by subject", QEL_REPO_DEFAULT, bob_in_another_form, {first}, QEL_OK},
        {"whatever the file of the subject holds", QEL_REPO_DEFAULT, bob, {of_carol}, QEL_OK},
        {"no file of that subject", QEL_REPO_DEFAULT, "CN=CAROL", {}, QEL_ERR_NO_FILE},
        {"a subject that leads out", QEL_REPO_DEFAULT, "CN=/../../certs", {}, QEL_ERR_BAD_PARAM},
        {"all of a subject", QEL_REPO_DSV, bob_in_another_form, {first, second}, QEL_OK},
        {"a stranger's among them", QEL_REPO_DSV, bob, {first, of_carol}, QEL_ERR_GENERAL},
        {"junk among them", QEL_REPO_DSV, bob, {first, junk}, QEL_ERR_ASN1_DECODE},
        {"none", QEL_REPO_DSV, bob, {}, QEL_ERR_NO_CERT},
        {"no such subject", QEL_REPO_DSV, "CN=CAROL", {}, QEL_ERR_UNKNOWN_USER},
        {"no name", QEL_REPO_DSV, "bob", {}, QEL_ERR_DN_NO_EQUALS},
        {"no subject", QEL_REPO_DSV, nullptr, {}, QEL_ERR_BAD_PARAM},
        {"no subject to name a file", QEL_REPO_DEFAULT, nullptr, {}, QEL_ERR_BAD_PARAM},
        {"not for certificates", QEL_REPO_QELSERV, bob, {}, QEL_ERR_BAD_PARAM},
        {"nor in step with it", QEL_REPO_DSV_QELSERV, bob, {}, QEL_ERR_BAD_PARAM},
        {"no such repository", 0, file.c_str(), {}, QEL_ERR_BAD_PARAM},
    };
    for (const auto &row : rows) {
        put(row.repository, row.items);
        Items got;
        EXPECT_EQ(get(row.repository, row.name, &got), row.status) << row.reason;
        EXPECT_EQ(got, row.status == QEL_OK ? row.items : Items()) << row.reason;
    }
    put(QEL_REPO_FILE, {first});
    Items got;
    with_input(text_of(read_file(file)),
               [&] { EXPECT_EQ(get(QEL_REPO_STDIN, "not looked at", &got), QEL_OK); });
    EXPECT_EQ(got, Items{first});
    QelCert *certificates = nullptr;
    int count = 0;
    each_missing(QEL_ERR_BAD_PARAM, __qel_get_cert, {}, context, QEL_REPO_DSV, bob, &certificates,
                 &count);
}

TEST_F(CertStore, Setting) {
    const struct {
        const char *reason;
        int repository;
        const char *name;
        Bytes certificate;
        QelStatus status;
    } rows[] = {
        {"in a file", QEL_REPO_FILE, file.c_str(), first, QEL_OK},
        {"null is no file", QEL_REPO_FILE, nullptr, first, QEL_ERR_NO_FILE},
        {"in the directory", QEL_REPO_DEFAULT, "not looked at", first, QEL_OK},
        {"in a registered entry", QEL_REPO_DSV, "bob", first, QEL_OK},
        {"the same again", QEL_REPO_DSV, "bob", first, QEL_OK},
        {"another's", QEL_REPO_DSV, "bob", of_carol, QEL_ERR_ENTRY_EXISTS},
        {"in the caller's entry", QEL_REPO_DSV, nullptr, certificate("cn=a\\,b", 1), QEL_OK},
        {"a subject that leads out", QEL_REPO_DEFAULT, nullptr, certificate("CN=/../x", 1),
         QEL_ERR_BAD_PARAM},
        {"nowhere", QEL_REPO_STDIN, nullptr, first, QEL_ERR_BAD_PARAM},
        {"read only", QEL_REPO_QELSERV, nullptr, first, QEL_ERR_BAD_PARAM},
    };
    const mode_t mask = umask(022);
    for (const auto &row : rows)
        EXPECT_EQ(set(row.repository, row.name, row.certificate), row.status) << row.reason;
    umask(mask);
    EXPECT_EQ(naming.entries["bob"].certificates, (Items{first, first}));
    EXPECT_EQ(naming.entries["alice"].dn, "CN=A\\,B") << "a comma inside keeps its backslash";
    Items got;
    EXPECT_EQ(get(QEL_REPO_FILE, file.c_str(), &got), QEL_OK);
    EXPECT_EQ(get(QEL_REPO_DEFAULT, bob, &got), QEL_OK);
    EXPECT_EQ(got, Items{first});
    EXPECT_EQ(fs::status(bobs_file).permissions(), fs::perms(0644)) << "for everybody";

    users.caller_is_known = false;
    EXPECT_EQ(set(QEL_REPO_DSV, nullptr, first), QEL_ERR_UNKNOWN_USER);
    const auto cert = context.decode<QelCert>(first, QEL_PDU_Certificate);
    each_missing(QEL_ERR_BAD_PARAM, __qel_set_cert, {3}, context, QEL_REPO_DSV, "bob", cert.get());
}

TEST_F(CertStore, SymbolicLinksInTheDirectoryAreNotWrittenThrough) {
    const std::string target = folder.path("target");
    write_file(target, {});
    fs::create_symlink(target, bobs_file);
    EXPECT_EQ(set(QEL_REPO_DEFAULT, nullptr, first), QEL_ERR_OPEN_FILE);
    EXPECT_EQ(fs::file_size(target), 0u);
}

TEST_F(CertStore, Removing) {
    const struct {
        const char *reason;
        int repository;
        const char *name;
        const char *issuer;
        Bytes serial;
        Items items;
        QelStatus status;
        Items left;
    } rows[] = {
        {"the file", QEL_REPO_FILE, file.c_str(), nullptr, {}, {first, second}, QEL_OK, {}},
        {"no file",
         QEL_REPO_FILE,
         "/nowhere/at all",
         nullptr,
         {},
         {first},
         QEL_ERR_GENERAL,
         {first}},
        {"the only one", QEL_REPO_FILE, file.c_str(), "o=ca", {1}, {first}, QEL_OK, {}},
        {"no such number",
         QEL_REPO_FILE,
         file.c_str(),
         "O=CA",
         {2},
         {first},
         QEL_ERR_NO_ENTRY,
         {first}},
        {"a longer number",
         QEL_REPO_FILE,
         file.c_str(),
         "O=CA",
         {0, 1},
         {first},
         QEL_ERR_NO_ENTRY,
         {first}},
        {"no such issuer",
         QEL_REPO_FILE,
         file.c_str(),
         "O=CB",
         {1},
         {first},
         QEL_ERR_NO_ENTRY,
         {first}},
        {"an empty number",
         QEL_REPO_FILE,
         file.c_str(),
         "O=CA",
         {},
         {first},
         QEL_ERR_BAD_PARAM,
         {first}},
        {"no file name", QEL_REPO_FILE, "", "O=CA", {1}, {first}, QEL_ERR_NO_FILE, {first}},
        {"no certificate",
         QEL_REPO_FILE,
         file.c_str(),
         "O=CA",
         {1},
         {{5, 0}},
         QEL_ERR_ASN1_DECODE,
         {{5, 0}}},
        {"one of an entry", QEL_REPO_DSV, bob, "O=CA", {2}, {first, second}, QEL_OK, {first}},
        {"none of an entry", QEL_REPO_DSV, bob, "O=CA", {3}, {first}, QEL_ERR_NO_ENTRY, {first}},
        {"an issuer without number",
         QEL_REPO_DSV,
         bob,
         "O=CA",
         {},
         {first},
         QEL_ERR_BAD_PARAM,
         {first}},
        {"all of an entry",
         QEL_REPO_DSV,
         bob_in_another_form,
         nullptr,
         {},
         {first, second},
         QEL_OK,
         {}},
        {"nobody's", QEL_REPO_DSV, "CN=CAROL", nullptr, {}, {first}, QEL_ERR_UNKNOWN_USER, {first}},
        {"not from the directory",
         QEL_REPO_DEFAULT,
         bob,
         nullptr,
         {},
         {first},
         QEL_ERR_BAD_PARAM,
         {first}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        put(row.repository, row.items);
        EXPECT_EQ(remove(row.repository, row.name, row.issuer, row.serial), row.status);
        if (row.repository == QEL_REPO_DSV) {
            EXPECT_EQ(naming.entries["bob"].certificates, row.left);
            continue;
        }
        const std::string &path = row.repository == QEL_REPO_FILE ? file : bobs_file;
        ASSERT_EQ(fs::exists(path), !row.left.empty());
        if (row.left.empty())
            continue;
        const Bytes contents = read_file(path);
        write_set(path, QEL_ITEM_CERTIFICATE, row.left);
        EXPECT_EQ(contents, read_file(path));
    }
    EXPECT_EQ(__qel_remove_cert(nullptr, QEL_REPO_FILE, file.c_str(), nullptr, nullptr),
              QEL_ERR_BAD_PARAM);
    EXPECT_EQ(__qel_remove_cert(context, QEL_REPO_FILE, nullptr, nullptr, nullptr),
              QEL_ERR_BAD_PARAM);
}

TEST_F(CertStore, EachAllocation) {
    fault::each_allocation([&] {
        put(QEL_REPO_DSV, {first, second});
        Items got;
        EXPECT_TRUE(get(QEL_REPO_DSV, bob, &got) == QEL_OK || fault::met());
    });
    const auto cert = context.decode<QelCert>(first, QEL_PDU_Certificate);
    fault::each_allocation([&] {
        put(QEL_REPO_DSV, {first});
        fs::remove(bobs_file);
        const QelStatus status = __qel_set_cert(context, QEL_REPO_DEFAULT, nullptr, cert.get());
        EXPECT_EQ(status == QEL_OK, fs::exists(bobs_file));
        const QelStatus removed =
            __qel_remove_cert(context, QEL_REPO_DSV, bob, cert->issuer, &cert->serial);
        EXPECT_EQ(removed == QEL_OK, naming.entries["bob"].certificates.empty());
        EXPECT_TRUE((status == QEL_OK && removed == QEL_OK) || fault::met());
    });
}

} // namespace
