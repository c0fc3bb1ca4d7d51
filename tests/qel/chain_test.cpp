#include "qel/world.h"

namespace {

using namespace world;

// Certificates as they are handed in, one behind the other.
class Chain {
public:
    Chain(QelContext *context, const std::string &descriptions) {
        for (const std::string &text : words(descriptions)) {
            owners_.push_back(certificate(context, text));
            records.push_back(*owners_.back());
        }
    }
    int count() const { return static_cast<int>(records.size()); }
    std::vector<QelCert> records;

private:
    std::vector<OwnedCert> owners_;
};

TEST(Chain, Supplied) {
    const struct {
        const char *why;
        const char *chain;
        const char *trusted;
        QelStatus status;
        const char *expired = "";
    } cases[] = {
        {"one, trusted, whatever its signature", "A<B!", "A", QEL_OK},
        {"one, not trusted", "A<B", "B", QEL_ERR_ISSUER_NOT_TRUSTED},
        {"one, whose trusted key has expired", "A<B", "A-", QEL_ERR_TKEY_EXPIRED},
        {"one, expired", "A<B-", "A", QEL_ERR_KEY_EXPIRED, "A"},
        {"one, expired, not trusted", "A<B-", "B", QEL_ERR_ISSUER_NOT_TRUSTED},
        {"one, expired twice", "A<B-", "A-", QEL_ERR_TKEY_EXPIRED},
        {"one with a critical extension, not verified", "A<B+", "A", QEL_OK},
        {"two", "A<B B<B", "B", QEL_OK},
        {"the second need not be its own issuer", "A<B B<C", "B", QEL_OK},
        {"the first is not looked up", "A<B B<C", "A", QEL_ERR_ISSUER_NOT_TRUSTED},
        {"a trusted key that is another of that name", "A<B B<B", "B2", QEL_ERR_ISSUER_NOT_TRUSTED},
        {"signed by another key", "A<B2 B<B", "B", QEL_ERR_VERIFY},
        {"issuer and subject need not have the same name", "A<B C<C", "C", QEL_ERR_VERIFY},
        {"trusted too late for a bad signature", "A<B B<C! C<C", "C", QEL_ERR_VERIFY},
        {"what is behind the trusted one is not looked at", "A<B B<C! C<C", "B", QEL_OK},
        {"three, the last trusted", "A<B B<C C<C", "C", QEL_OK},
        {"a trusted key that has expired", "A<B B<B", "B-", QEL_ERR_TKEY_EXPIRED},
        {"one that is current behind it", "A<B B<C C<C", "B- C", QEL_OK},
        {"no other behind it", "A<B B<C C<C", "B-", QEL_ERR_TKEY_EXPIRED},
        {"a bad signature behind it", "A<B B<C! C<C", "B- C", QEL_ERR_TKEY_EXPIRED},
        {"a bad signature before it", "A<B! B<C C<C", "B-", QEL_ERR_VERIFY},
        {"the first has expired", "A<B- B<B", "B", QEL_ERR_KEY_EXPIRED, "A"},
        {"the second has expired", "A<B B<C- C<C", "C", QEL_ERR_KEY_EXPIRED, "B"},
        {"both have expired", "A<B- B<C- C<C", "C", QEL_ERR_KEY_EXPIRED, "A"},
        {"the trusted one has expired", "A<B B<B-", "B", QEL_OK},
        {"expired and not trusted", "A<B- B<B", "C", QEL_ERR_ISSUER_NOT_TRUSTED},
        {"expired, below an expired trusted key", "A<B- B<B", "B-", QEL_ERR_TKEY_EXPIRED},
        {"expired, and a bad signature", "A<B- B<C! C<C", "C", QEL_ERR_VERIFY},
        {"a critical extension", "A<B+ B<B", "B", QEL_ERR_CRITICAL_EXT},
        {"a critical extension of the trusted one", "A<B B<B+", "B", QEL_OK},
        {"names in another case", "A<b B<B", "b", QEL_OK},
        {"names of another type", "A<B B<B=", "B", QEL_OK},
    };
    const TestContext context;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.why);
        Chain chain(context, c.chain);
        const TrustedKeys trusted(context, c.trusted);
        QelCert *expired = nullptr;
        EXPECT_EQ(qel_verify_cert_chain(context, chain.records.data(), chain.count(), trusted.list,
                                        &expired),
                  c.status);
        EXPECT_EQ(ids_of(context, expired, expired != nullptr), c.expired);
        qel_free_cert(&expired);
        EXPECT_EQ(qel_verify_cert_chain(context, chain.records.data(), chain.count(), trusted.list,
                                        nullptr),
                  c.status)
            << "when nobody asks for the expired one";
        EXPECT_TRUE(context.idle());
    }
}

// N1, issued by N2, and so on, with two keys in turn, up to a trusted one.
std::string long_chain(int length) {
    std::string text;
    for (int i = 0; i < length; ++i)
        text += i % 2 == 0 ? "A<B " : "B<A ";
    return text + (length % 2 == 0 ? "A2<A2" : "B2<B2");
}

TEST(Chain, EachDepth) {
    const TestContext context;
    for (int length = 1; length <= 32; ++length) {
        // The last but one is signed by the trusted key of the last.
        std::string text = long_chain(length);
        const std::size_t last = text.rfind(' ', text.size());
        text.insert(last, "2");
        Chain chain(context, text);
        const TrustedKeys trusted(context, length % 2 == 0 ? "A2" : "B2");
        EXPECT_EQ(qel_verify_cert_chain(context, chain.records.data(), chain.count(), trusted.list,
                                        nullptr),
                  QEL_OK)
            << length;
        EXPECT_EQ(qel_verify_cert_chain(context, chain.records.data(), chain.count() - 1,
                                        trusted.list, nullptr),
                  QEL_ERR_ISSUER_NOT_TRUSTED)
            << length;
    }
}

TEST(Chain, SuppliedArguments) {
    const TestContext context;
    Chain chain(context, "A<B B<B");
    const TrustedKeys trusted(context, "B");
    QelCert *expired = nullptr;
    each_missing(QEL_ERR_BAD_PARAM, qel_verify_cert_chain, {5}, context, chain.records.data(), 2,
                 trusted.list, &expired);
    EXPECT_EQ(qel_verify_cert_chain(context, chain.records.data(), -1, trusted.list, &expired),
              QEL_ERR_BAD_PARAM);
    chain.records[1].pubKeyInfo = nullptr;
    EXPECT_EQ(qel_verify_cert_chain(context, chain.records.data(), 2, trusted.list, nullptr),
              QEL_ERR_BAD_PARAM);
    fault::fail(fault::Call::time, 1);
    EXPECT_EQ(qel_verify_cert_chain(context, chain.records.data(), 1, trusted.list, nullptr),
              QEL_ERR_GENERAL);
    fault::clear(fault::Call::time);
}

TEST(Chain, Append) {
    const TestContext context;
    Chain chain(context, "A<B B<C C<C");
    QelCert *made = nullptr;
    int count = 0;
    ASSERT_EQ(__qel_append_cert_to_chain(&chain.records[2], nullptr, 0, &made, &count), QEL_OK);
    for (const int k : {1, 0}) {
        QelCert *shorter = made;
        const int shorter_count = count;
        EXPECT_EQ(__qel_append_cert_to_chain(&chain.records[static_cast<std::size_t>(k)], shorter,
                                             shorter_count, &made, &count),
                  QEL_OK);
        qel_free_cert_list(&shorter, shorter_count);
    }
    ASSERT_EQ(count, 3);
    for (int k = 0; k < count; ++k)
        EXPECT_EQ(records::describe(made[k]),
                  records::describe(chain.records[static_cast<std::size_t>(k)]));
    QelCert *out = made;
    int out_count = count;
    each_missing(QEL_ERR_BAD_PARAM, __qel_append_cert_to_chain, {}, &chain.records[0], made, count,
                 &out, &out_count);
    EXPECT_EQ(__qel_append_cert_to_chain(&chain.records[0], made, -1, &out, &out_count),
              QEL_ERR_BAD_PARAM);
    EXPECT_EQ(out, nullptr);
    fault::each_allocation([&] {
        const QelStatus status =
            __qel_append_cert_to_chain(&chain.records[0], made, count, &out, &out_count);
        EXPECT_EQ(status, fault::met() ? QEL_ERR_NO_MEMORY : QEL_OK);
        EXPECT_EQ(out_count, fault::met() ? 0 : 4);
        EXPECT_EQ(out == nullptr, fault::met());
        qel_free_cert_list(&out, out_count);
    });
    qel_free_cert_list(&made, count);
}

TEST(Chain, SuppliedWithEachAllocation) {
    const TestContext context;
    Chain chain(context, "A<B- B<C C<C");
    const TrustedKeys trusted(context, "C");
    fault::each_allocation([&] {
        QelCert *expired = nullptr;
        const QelStatus status =
            qel_verify_cert_chain(context, chain.records.data(), 3, trusted.list, &expired);
        // The second certificate, whose comparison with the trusted key may fail, is passed over.
        EXPECT_TRUE(fault::met() || status == QEL_ERR_KEY_EXPIRED) << status;
        EXPECT_NE(status, QEL_OK);
        EXPECT_EQ(expired != nullptr, status == QEL_ERR_KEY_EXPIRED);
        qel_free_cert(&expired);
        EXPECT_TRUE(context.idle());
    });
}

} // namespace
