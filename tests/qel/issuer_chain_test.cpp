#include "qel/repositories.h"
#include "qel/world.h"

namespace {

using world::certificate;

// The store here is the naming service of repositories.h.
class IssuerChain : public RepositoriesTest {
protected:
    // The same description gives the same certificate.
    const QelCert &named(const std::string &description) {
        world::OwnedCert &made = made_[description];
        if (made == nullptr)
            made = certificate(context, description);
        return *made;
    }
    // Puts a certificate into the entry of its subject.
    void put(const QelCert &made) {
        const std::string subject = world::subject_of(context, made);
        NamingEntry &entry = naming.entries[subject];
        entry.dn = subject;
        entry.certificates.push_back(context.encode(&made, QEL_PDU_Certificate));
    }
    void store(const std::string &descriptions) {
        naming = {};
        for (const std::string &text : world::words(descriptions))
            put(named(text));
    }
    QelStatus get(const QelCert &first, const char *const *trusted, std::string *found) {
        QelCert *chain = reinterpret_cast<QelCert *>(this);
        int count = 99;
        const QelStatus status = qel_get_cert_chain(context, &first, trusted, 5, &chain, &count);
        EXPECT_EQ(chain != nullptr, status == QEL_OK);
        EXPECT_EQ(count != 0, status == QEL_OK);
        *found = world::ids_of(context, chain, count);
        qel_free_cert_list(&chain, count);
        return status;
    }

private:
    std::map<std::string, world::OwnedCert> made_;
};

TEST_F(IssuerChain, Chains) {
    const struct {
        const char *reason, *certificate, *stored, *trusted;
        QelStatus status;
        const char *chain = "";
    } rows[] = {
        {"a root", "R<R", "", "", QEL_OK, "R"},
        {"a trusted root", "R<R", "", "x r", QEL_OK, "R"},
        {"a root that is not trusted", "R<R", "", "X", QEL_ERR_VERIFY},
        {"a root with another's signature", "R<R!", "", "", QEL_ERR_VERIFY},
        {"an expired root", "R<R-", "", "", QEL_ERR_KEY_EXPIRED},
        {"up to the root", "L<A", "A<R R<R", "", QEL_OK, "L A R"},
        {"up to a trusted root", "L<A", "A<R R<R", "R", QEL_OK, "L A R"},
        {"up to what is trusted below", "L<A", "A<R R<R", "A", QEL_OK, "L A"},
        {"a trusted one that its issuer verifies", "L<A", "A<R", "L", QEL_OK, "L"},
        {"a trusted one without issuer", "L<A", "", "L", QEL_ERR_UNKNOWN_USER},
        {"no root", "L<A", "A<R", "", QEL_ERR_UNKNOWN_USER},
        {"nothing trusted on the way", "L<A", "A<R R<R", "X", QEL_ERR_VERIFY},
        {"an expired certificate", "L<A-", "A<R R<R", "", QEL_ERR_KEY_EXPIRED},
        {"the second issuer verifies", "L<A", "A2<R A<R R<R", "", QEL_OK, "L A R"},
        {"the second root verifies", "A<R", "R2<R2 R<R", "", QEL_OK, "A R"},
        {"no issuer verifies", "A<R", "R2<R2", "", QEL_ERR_VERIFY},
        {"a circle", "L<A", "A<L L<A", "", QEL_ERR_NO_CHAIN},
        {"a way out of a circle", "L<A", "A<L A<R L<A R<R", "", QEL_OK, "L A R"},
        {"the same twice fails as once", "L<A", "A<R A<R", "", QEL_ERR_UNKNOWN_USER},
    };
    for (const auto &row : rows) {
        store(row.stored);
        std::string found;
        EXPECT_EQ(get(named(row.certificate), world::Names(row.trusted).get(), &found), row.status)
            << row.reason;
        EXPECT_EQ(found, row.chain) << row.reason;
    }
}

TEST_F(IssuerChain, AnEndlessChainEnds) {
    const SignerKey &key = world::key_of("A");
    const auto link = [&](int number) {
        return world::issue(context, "CN=" + std::to_string(number), key,
                            "CN=" + std::to_string(number + 1), key);
    };
    for (int number = 1; number <= 1100; ++number)
        put(*link(number));
    std::string found;
    EXPECT_EQ(get(*link(0), nullptr, &found), QEL_ERR_NO_CHAIN);
}

// Two that certify each other many times over: each step of the way holds as many issuers again.
TEST_F(IssuerChain, ManyCertificatesOfTwo) {
    constexpr std::size_t many = 200;
    for (std::size_t i = 0; i < many; ++i) {
        put(*certificate(context, "A<L"));
        put(*certificate(context, "L<A"));
    }
    std::string found;
    EXPECT_EQ(get(*certificate(context, "L<A"), nullptr, &found), QEL_ERR_NO_CHAIN);
    EXPECT_LE(naming.reads * many, 10000U);
}

TEST_F(IssuerChain, Arguments) {
    const auto first = certificate(context, "R<R");
    QelCert *chain = nullptr;
    int count = 0;
    each_missing(QEL_ERR_BAD_PARAM, qel_get_cert_chain, {3, 4}, context, first.get(), nullptr, 0,
                 &chain, &count);
    const char *const no_name[] = {"nothing", nullptr};
    std::string found;
    EXPECT_EQ(get(*first, no_name, &found), QEL_ERR_DN_NO_EQUALS);
    store("R<R");
    QelCert incomplete = *first;
    incomplete.subject = nullptr;
    EXPECT_EQ(get(incomplete, nullptr, &found), QEL_ERR_ASN1_ENCODE);
}

TEST_F(IssuerChain, EachAllocation) {
    store("A<R R<R");
    const auto first = certificate(context, "L<A");
    const world::Names trusted("R");
    fault::each_allocation([&] {
        QelCert *chain = nullptr;
        int count = 0;
        const QelStatus status =
            qel_get_cert_chain(context, first.get(), trusted.get(), 0, &chain, &count);
        EXPECT_TRUE(status == QEL_OK || fault::met());
        EXPECT_EQ(count, status == QEL_OK ? 3 : 0);
        EXPECT_EQ(chain != nullptr, status == QEL_OK);
        qel_free_cert_list(&chain, count);
    });
}

} // namespace
