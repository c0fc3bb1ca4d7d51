#include "qel/repositories.h"
#include "support/certificate.h"
#include "support/fault.h"

namespace {

const RsaKey &key(std::size_t number) {
    static const RsaKey keys[] = {RsaKey(512), RsaKey(512), RsaKey(512)};
    return keys[number];
}

struct Made {
    const char *subject, *issuer;
    std::size_t subject_key, issuer_key;
    const char *not_after = "370101000000Z";

    Bytes encoding() const {
        return TestCertificate{subject, issuer, &key(subject_key), &key(issuer_key), 1, not_after}
            .encoding();
    }
};

class IssuerChain : public RepositoriesTest {
protected:
    void store(const std::vector<Made> &certificates) {
        naming = {};
        for (const Made &made : certificates) {
            NamingEntry &entry = naming.entries[made.subject];
            entry.dn = made.subject;
            entry.certificates.push_back(made.encoding());
        }
    }
    // The chain's encodings.
    QelStatus get(const Made &made, const std::vector<const char *> &trusted,
                  std::vector<Bytes> *got) {
        std::vector<const char *> names = trusted;
        names.push_back(nullptr);
        const auto first = context.decode<QelCert>(made.encoding(), QEL_PDU_Certificate);
        QelCert *chain = reinterpret_cast<QelCert *>(this);
        int count = 99;
        const QelStatus status = qel_get_cert_chain(
            context, first.get(), trusted.empty() ? nullptr : names.data(), 5, &chain, &count);
        EXPECT_EQ(chain != nullptr, status == QEL_OK);
        EXPECT_EQ(count != 0, status == QEL_OK);
        got->clear();
        for (int i = 0; i < count; ++i)
            got->push_back(context.encode(chain + i, QEL_PDU_Certificate));
        qel_free_cert_list(&chain, count);
        return status;
    }
};

const Made root = {"CN=ROOT", "CN=ROOT", 0, 0};
const Made wrong_root = {"CN=ROOT", "CN=ROOT", 1, 1}; // of that name, with another key
const Made middle = {"CN=MIDDLE", "CN=ROOT", 1, 0};
const Made leaf = {"CN=LEAF", "CN=MIDDLE", 2, 1};
const Made expired_leaf = {"CN=LEAF", "CN=MIDDLE", 2, 1, "970101000000Z"};
const Made expired_root = {"CN=ROOT", "CN=ROOT", 0, 0, "970101000000Z"};
const Made self_forged = {"CN=ROOT", "CN=ROOT", 0, 1};
const Made below_itself = {"CN=MIDDLE", "CN=LEAF", 1, 2}; // issued by the leaf that it issued

TEST_F(IssuerChain, Chains) {
    const struct {
        const char *reason;
        Made certificate;
        std::vector<Made> stored;
        std::vector<const char *> trusted;
        QelStatus status;
        std::vector<Made> chain;
    } rows[] = {
        {"a root", root, {}, {}, QEL_OK, {root}},
        {"a trusted root", root, {}, {"cn=x", "cn=root"}, QEL_OK, {root}},
        {"a root that is not trusted", root, {}, {"CN=X"}, QEL_ERR_VERIFY, {}},
        {"a root with another's signature", self_forged, {}, {}, QEL_ERR_VERIFY, {}},
        {"an expired root", expired_root, {}, {}, QEL_ERR_KEY_EXPIRED, {}},
        {"up to the root", leaf, {middle, root}, {}, QEL_OK, {leaf, middle, root}},
        {"up to a trusted root", leaf, {middle, root}, {"CN=ROOT"}, QEL_OK, {leaf, middle, root}},
        {"up to what is trusted below",
         leaf,
         {middle, root},
         {"CN=MIDDLE"},
         QEL_OK,
         {leaf, middle}},
        {"a trusted one that its issuer verifies", leaf, {middle}, {"CN=LEAF"}, QEL_OK, {leaf}},
        {"a trusted one without issuer", leaf, {}, {"CN=LEAF"}, QEL_ERR_UNKNOWN_USER, {}},
        {"no root", leaf, {middle}, {}, QEL_ERR_UNKNOWN_USER, {}},
        {"nothing trusted on the way", leaf, {middle, root}, {"CN=X"}, QEL_ERR_VERIFY, {}},
        {"an expired certificate", expired_leaf, {middle, root}, {}, QEL_ERR_KEY_EXPIRED, {}},
        {"the second issuer verifies",
         leaf,
         {{"CN=MIDDLE", "CN=ROOT", 0, 0}, middle, root},
         {},
         QEL_OK,
         {leaf, middle, root}},
        {"the second root verifies", middle, {wrong_root, root}, {}, QEL_OK, {middle, root}},
        {"no issuer verifies", middle, {wrong_root}, {}, QEL_ERR_VERIFY, {}},
        {"no name in the list", leaf, {middle, root}, {"nothing"}, QEL_ERR_DN_NO_EQUALS, {}},
        {"a circle", leaf, {below_itself, leaf}, {}, QEL_ERR_NO_CHAIN, {}},
        {"a way out of a circle",
         leaf,
         {below_itself, middle, leaf, root},
         {},
         QEL_OK,
         {leaf, middle, root}},
        {"the same twice fails as once", leaf, {middle, middle}, {}, QEL_ERR_UNKNOWN_USER, {}},
    };
    for (const auto &row : rows) {
        store(row.stored);
        std::vector<Bytes> got, expected;
        EXPECT_EQ(get(row.certificate, row.trusted, &got), row.status) << row.reason;
        for (const Made &made : row.chain)
            expected.push_back(made.encoding());
        EXPECT_EQ(got, expected) << row.reason;
    }
}

TEST_F(IssuerChain, AnEndlessChainEnds) {
    std::vector<std::string> names;
    for (int i = 0; i < 1102; ++i)
        names.push_back("CN=" + std::to_string(i));
    std::vector<Made> certificates;
    for (std::size_t i = 1; i + 1 < names.size(); ++i)
        certificates.push_back({names[i].c_str(), names[i + 1].c_str(), 0, 0});
    store(certificates);
    std::vector<Bytes> got;
    EXPECT_EQ(get({names[0].c_str(), names[1].c_str(), 0, 0}, {}, &got), QEL_ERR_NO_CHAIN);
}

// Two that certify each other many times over: each step of the way holds as many issuers again.
TEST_F(IssuerChain, ManyCertificatesOfTwo) {
    constexpr std::size_t many = 200;
    std::vector<Made> certificates;
    std::vector<std::string> ends;
    for (std::size_t i = 0; i < many; ++i)
        ends.push_back(std::to_string(370101000000 + i / 60 * 100 + i % 60) + "Z");
    for (const std::string &end : ends) {
        certificates.push_back({"CN=MIDDLE", "CN=LEAF", 1, 2, end.c_str()});
        certificates.push_back({"CN=LEAF", "CN=MIDDLE", 2, 1, end.c_str()});
    }
    store(certificates);
    std::vector<Bytes> got;
    EXPECT_EQ(get(leaf, {}, &got), QEL_ERR_NO_CHAIN);
    EXPECT_LE(naming.reads * many, 10000U);
}

TEST_F(IssuerChain, Arguments) {
    const auto first = context.decode<QelCert>(root.encoding(), QEL_PDU_Certificate);
    QelCert *chain = nullptr;
    int count = 0;
    each_missing(QEL_ERR_BAD_PARAM, qel_get_cert_chain, {3, 4}, context, first.get(), nullptr, 0,
                 &chain, &count);
    QelCert incomplete = *first;
    incomplete.subject = nullptr;
    EXPECT_EQ(qel_get_cert_chain(context, &incomplete, nullptr, 0, &chain, &count),
              QEL_ERR_ASN1_ENCODE);
}

TEST_F(IssuerChain, EachAllocation) {
    store({middle, root});
    const auto first = context.decode<QelCert>(leaf.encoding(), QEL_PDU_Certificate);
    const char *const trusted[] = {"CN=ROOT", nullptr};
    fault::each_allocation([&] {
        QelCert *chain = nullptr;
        int count = 0;
        const QelStatus status =
            qel_get_cert_chain(context, first.get(), trusted, 0, &chain, &count);
        EXPECT_TRUE(status == QEL_OK || fault::met());
        EXPECT_EQ(count, status == QEL_OK ? 3 : 0);
        EXPECT_EQ(chain != nullptr, status == QEL_OK);
        qel_free_cert_list(&chain, count);
    });
}

} // namespace
