#include "support/arguments.h"
#include "support/asn1.h"
#include "support/base64.h"
#include "support/fault.h"
#include "support/records.h"

#include <gtest/gtest.h>

namespace {

using OwnedList = qel::Record<QelCertList, __qel_free_certlist>;

class CertList : public ::testing::Test {
protected:
    TemporaryFolder folder;
    Asn1Context asn1;
    QelContext *context = asn1.get();
    const std::string in = folder.path("certificates");

    // The serial numbers of the list, each followed by a blank.
    std::pair<QelStatus, std::string> read(const std::string &text) {
        write_file(in, bytes_of(text));
        auto *list = reinterpret_cast<QelCertList *>(1);
        const QelStatus status = __qel_file_2_certlist(context, in.c_str(), &list);
        const OwnedList owner(list);
        EXPECT_TRUE(status == QEL_OK || list == nullptr);
        std::string serials;
        for (const QelCertList *node = list; node != nullptr; node = node->next)
            serials += to_hex(node->cert->serial.value, node->cert->serial.length) + " ";
        return {status, serials};
    }
};

// Three certificates, by their serial numbers.
struct Sample {
    std::string serial, armour, delimited;

    explicit Sample(uint8_t number) {
        const records::OwnedCert cert(records::full_cert());
        cert->serial.value[0] = number;
        serial = to_hex(cert->serial.value, cert->serial.length) + " ";
        Asn1Context asn1;
        const Bytes der = asn1.encode(cert.get(), QEL_PDU_Certificate);
        armour = base64(der);
        delimited = "-----BEGIN CERTIFICATE-----\n" + armour + "\n-----END CERTIFICATE-----\n";
    }
};

TEST_F(CertList, texts) {
    const Sample a(1), b(2), c(3);
    const std::string begin = "-----BEGIN CERTIFICATE-----", end = "-----END CERTIFICATE-----";
    const std::string damaged = "AAAA" + a.armour.substr(4);
    const auto without_last = [](const std::string &text, std::size_t count) {
        return text.substr(0, text.size() - count);
    };
    const struct {
        const char *reason;
        std::string text, serials;
    } good[] = {
        {"nothing", "", ""},
        {"separators alone", "\n# \t##\n", ""},
        {"between markers", a.delimited + b.delimited, a.serial + b.serial},
        {"separators between", "\n#" + a.delimited + "#\t " + b.delimited + " #",
         a.serial + b.serial},
        {"armour alone", a.armour + "#" + b.armour + "\n#\n" + c.armour + "#",
         a.serial + b.serial + c.serial},
        {"both", a.delimited + "#" + b.armour + "#" + c.delimited, a.serial + b.serial + c.serial},
        {"more behind the END marker", without_last(a.delimited, 1) + " #x\n", a.serial},
        {"words before the marker, on its line", "- mine: " + a.delimited, a.serial},
    };
    for (const auto &row : good)
        EXPECT_EQ(read(row.text), std::pair(QelStatus{QEL_OK}, row.serials)) << row.reason;
    const struct {
        const char *reason;
        std::string text;
        QelStatus status = QEL_ERR_BAD_PARAM;
    } bad[] = {
        {"lines before the marker", "- mine\n" + a.delimited, QEL_ERR_FROM_RFC1421},
        {"words that begin otherwise", "mine: " + a.delimited},
        {"no hash behind armour", a.delimited + b.armour + "\n"},
        {"no line feed at the end", without_last(a.delimited, 1)},
        {"no line feed at all", begin + a.armour + end},
        {"no END marker", without_last(a.delimited, 2)},
        {"no END marker behind the line feed", end + begin + "\n"},
        {"another marker", "-----BEGIN KEYPKG-----\n" + a.armour + "\n" + end + "\n"},
        {"a dash", "-"},
        {"a zero byte", std::string("\0", 1) + a.delimited},
        {"a carriage return is none of the separators", "\r\n#", QEL_ERR_ASN1_DECODE},
        {"no armour between the markers", begin + "\n" + end + "\n", QEL_ERR_ASN1_DECODE},
        {"no certificate", damaged + "#", QEL_ERR_ASN1_DECODE},
        {"a bad one behind good ones", a.delimited + b.delimited + "#" + damaged + "#",
         QEL_ERR_ASN1_DECODE},
    };
    for (const auto &row : bad)
        EXPECT_EQ(read(row.text), std::pair(row.status, std::string())) << row.reason;
}

TEST_F(CertList, one_after_another) {
    const Sample a(1), b(2);
    const std::string all = "#" + a.armour + "#" + b.armour + "#\n";
    const std::string first_rest = "#" + b.armour + "#\n";
    const char *text = all.data();
    auto remaining = static_cast<uint32_t>(all.size());
    for (const std::string &rest : {first_rest, std::string("#\n")}) {
        QelCert *cert = nullptr;
        ASSERT_EQ(__qel_read_next_cert(context, &text, &remaining, &cert), QEL_OK);
        const records::OwnedCert owner(cert);
        EXPECT_NE(cert, nullptr);
        EXPECT_EQ(std::string(text, remaining), rest);
    }
    auto *cert = reinterpret_cast<QelCert *>(1);
    ASSERT_EQ(__qel_read_next_cert(context, &text, &remaining, &cert), QEL_OK);
    EXPECT_EQ(cert, nullptr);
    EXPECT_EQ(remaining, 0U);
    EXPECT_EQ(text, all.data() + all.size());
}

TEST_F(CertList, failures_leave_nothing_to_read) {
    const Sample a(1);
    const char *text = a.armour.data();
    auto *cert = reinterpret_cast<QelCert *>(1);
    uint32_t remaining = 5;
    EXPECT_EQ(__qel_read_next_cert(context, &text, &remaining, &cert), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(remaining, 0U);
    EXPECT_EQ(cert, nullptr);
    remaining = 5;
    each_missing(QEL_ERR_BAD_PARAM, __qel_read_next_cert, {}, context, &text, &remaining, &cert);
    EXPECT_EQ(remaining, 0U);
    remaining = 5;
    text = nullptr;
    EXPECT_EQ(__qel_read_next_cert(context, &text, &remaining, &cert), QEL_ERR_BAD_PARAM);
    QelCertList *list = nullptr;
    each_missing(QEL_ERR_BAD_PARAM, __qel_file_2_certlist, {2}, context, in.c_str(), &list);
    EXPECT_EQ(__qel_file_2_certlist(context, in.c_str(), &list), QEL_ERR_NO_FILE);
    __qel_free_certlist(nullptr);
    __qel_free_certlist(&list);
}

TEST_F(CertList, spoiled_texts_are_refused_or_are_certificates) {
    const Sample a(1);
    each_spoiled(bytes_of(a.delimited), [&](const Bytes &spoiled, const std::string &what) {
        SCOPED_TRACE(what);
        const auto *text = reinterpret_cast<const char *>(spoiled.data());
        const auto *end = text + spoiled.size();
        auto remaining = static_cast<uint32_t>(spoiled.size());
        if (spoiled.empty())
            return;
        QelCert *cert = nullptr;
        const QelStatus status = __qel_read_next_cert(context, &text, &remaining, &cert);
        const records::OwnedCert owner(cert);
        EXPECT_EQ(cert != nullptr, status == QEL_OK);
        EXPECT_TRUE(status == QEL_OK ? text + remaining == end : remaining == 0);
    });
}

TEST_F(CertList, reports_a_failed_allocation) {
    const Sample a(1);
    write_file(in, bytes_of(a.delimited + a.delimited));
    fault::each_allocation([&] {
        QelCertList *list = nullptr;
        const QelStatus status = __qel_file_2_certlist(context, in.c_str(), &list);
        const OwnedList owner(list);
        EXPECT_EQ(list != nullptr, !fault::met());
        EXPECT_EQ(status == QEL_OK, !fault::met());
        EXPECT_TRUE(status == QEL_OK || status == QEL_ERR_NO_MEMORY ||
                    status == QEL_ERR_ASN1_DECODE)
            << status;
    });
}

} // namespace
