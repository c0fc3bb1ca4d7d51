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
    // "1" and "2" are bob's first and second, "c" is carol's, "-" is none.
    Items items(const std::string &letters) const {
        Items made;
        for (const char letter : letters)
            made.push_back(letter == '1'   ? first
                           : letter == '2' ? second
                           : letter == 'c' ? of_carol
                                           : Bytes{5, 0});
        return made;
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
    constexpr int file_of = QEL_REPO_FILE, directory_of = QEL_REPO_DEFAULT, entry_of = QEL_REPO_DSV;
    const struct {
        const char *reason;
        int repository;
        const char *name, *items;
        QelStatus status;
    } rows[] = {
        {"from a file", file_of, file.c_str(), "c", QEL_OK},
        {"two in a file", file_of, file.c_str(), "12", QEL_ERR_FILE_FORMAT},
        {"no certificate", file_of, file.c_str(), "-", QEL_ERR_ASN1_DECODE},
        {"no file", file_of, "/nowhere/at all", "", QEL_ERR_NO_FILE},
        {"by subject", directory_of, bob_in_another_form, "1", QEL_OK},
        {"whatever the file of the subject holds", directory_of, bob, "c", QEL_OK},
        {"no file of that subject", directory_of, "CN=CAROL", "", QEL_ERR_NO_FILE},
        {"a subject that leads out", directory_of, "CN=/../../certs", "", QEL_ERR_BAD_PARAM},
        {"all of a subject", entry_of, bob_in_another_form, "12", QEL_OK},
        {"a stranger's among them", entry_of, bob, "1c", QEL_ERR_GENERAL},
        {"what is none among them", entry_of, bob, "1-", QEL_ERR_ASN1_DECODE},
        {"none", entry_of, bob, "", QEL_ERR_NO_CERT},
        {"no such subject", entry_of, "CN=CAROL", "", QEL_ERR_UNKNOWN_USER},
        {"no name", entry_of, "bob", "", QEL_ERR_DN_NO_EQUALS},
        {"no subject", entry_of, nullptr, "", QEL_ERR_BAD_PARAM},
        {"no subject to name a file", directory_of, nullptr, "", QEL_ERR_BAD_PARAM},
        {"not for certificates", QEL_REPO_QELSERV, bob, "", QEL_ERR_BAD_PARAM},
        {"nor in step with it", QEL_REPO_DSV_QELSERV, bob, "", QEL_ERR_BAD_PARAM},
        {"no such repository", 0, file.c_str(), "", QEL_ERR_BAD_PARAM},
    };
    for (const auto &row : rows) {
        put(row.repository, items(row.items));
        Items got;
        EXPECT_EQ(get(row.repository, row.name, &got), row.status) << row.reason;
        EXPECT_EQ(got, row.status == QEL_OK ? items(row.items) : Items()) << row.reason;
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
    EXPECT_EQ(fs::status(bobs_file).permissions(), fs::perms(0600));

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
    constexpr int file_of = QEL_REPO_FILE, entry_of = QEL_REPO_DSV;
    const char *const in = file.c_str(), *const nowhere = "/nowhere/at all";
    const struct {
        const char *reason;
        int repository;
        const char *name, *issuer;
        Bytes serial;
        const char *items;
        QelStatus status;
        const char *left;
    } rows[] = {
        {"the file", file_of, in, nullptr, {}, "12", QEL_OK, ""},
        {"no file", file_of, nowhere, nullptr, {}, "1", QEL_ERR_GENERAL, "1"},
        {"the only one", file_of, in, "o=ca", {1}, "1", QEL_OK, ""},
        {"no such number", file_of, in, "O=CA", {2}, "1", QEL_ERR_NO_ENTRY, "1"},
        {"a longer number", file_of, in, "O=CA", {0, 1}, "1", QEL_ERR_NO_ENTRY, "1"},
        {"no such issuer", file_of, in, "O=CB", {1}, "1", QEL_ERR_NO_ENTRY, "1"},
        {"an empty number", file_of, in, "O=CA", {}, "1", QEL_ERR_BAD_PARAM, "1"},
        {"no file name", file_of, "", "O=CA", {1}, "1", QEL_ERR_NO_FILE, "1"},
        {"no certificate", file_of, in, "O=CA", {1}, "-", QEL_ERR_ASN1_DECODE, "-"},
        {"one of an entry", entry_of, bob, "O=CA", {2}, "12", QEL_OK, "1"},
        {"none of an entry", entry_of, bob, "O=CA", {3}, "1", QEL_ERR_NO_ENTRY, "1"},
        {"without number", entry_of, bob, "O=CA", {}, "1", QEL_ERR_BAD_PARAM, "1"},
        {"all of an entry", entry_of, bob_in_another_form, nullptr, {}, "12", QEL_OK, ""},
        {"nobody's", entry_of, "CN=CAROL", nullptr, {}, "1", QEL_ERR_UNKNOWN_USER, "1"},
        {"not there", QEL_REPO_DEFAULT, bob, nullptr, {}, "1", QEL_ERR_BAD_PARAM, "1"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        put(row.repository, items(row.items));
        EXPECT_EQ(remove(row.repository, row.name, row.issuer, row.serial), row.status);
        const Items left = items(row.left);
        if (row.repository == entry_of) {
            EXPECT_EQ(naming.entries["bob"].certificates, left);
            continue;
        }
        const std::string &path = row.repository == file_of ? file : bobs_file;
        ASSERT_EQ(fs::exists(path), !left.empty());
        if (left.empty())
            continue;
        const Bytes contents = read_file(path);
        write_set(path, QEL_ITEM_CERTIFICATE, left);
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
