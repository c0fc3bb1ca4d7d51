#include "qel/signer.h"
#include "support/fault.h"
#include "support/names.h"
#include "support/records.h"

#include <set>

namespace {

using namespace records;

// A name given by its printable form; null for none.
QelName *parsed(const TestContext &context, const char *text) {
    QelName *name = nullptr;
    if (text != nullptr) {
        EXPECT_EQ(qel_str2dn(context, text, &name), QEL_OK);
    }
    return name;
}

QelKeyInfo *key_info(uint8_t number) {
    return heap(
        QelKeyInfo{heap(algid({1, 2, 840, 113549, 1, 1, 1}, {5, 0})), bits(16, {0x30, number})});
}

// Whether an entry's validity is current; timeless has none.
enum class Validity { timeless, current, expired, future, senseless };

QelValidity *validity(Validity kind) {
    if (kind == Validity::timeless)
        return nullptr;
    QelUTCTime from = {96, 1, 1, 0, 0, 0, 0, 0, 1}, to = {137, 1, 1, 0, 0, 0, 0, 0, 1};
    if (kind == Validity::expired)
        to.year = 97;
    if (kind == Validity::future)
        from.year = 136;
    if (kind == Validity::senseless)
        to.month = 13;
    return heap(QelValidity{heap(from), heap(to)});
}

struct Entry {
    const char *owner;
    uint8_t key;
    Validity validity = Validity::timeless;
    const char *issuer = nullptr;
    int serial = -1; // -1: none; else its only byte
};

OwnedTrustedKey record(const TestContext &context, const Entry &entry) {
    auto *made = heap(QelTrustedKey{});
    made->owner = parsed(context, entry.owner);
    made->pubKeyInfo = key_info(entry.key);
    made->issuer = parsed(context, entry.issuer);
    made->validity = validity(entry.validity);
    if (entry.serial >= 0)
        made->serial = heap(octets({static_cast<uint8_t>(entry.serial)}));
    return OwnedTrustedKey(made);
}

class TrustedKeys : public testing::Test {
protected:
    ~TrustedKeys() override { clear(); }
    void drop_first() {
        QelTrustedKeys *node = std::exchange(list, list->next);
        __qel_free_trusted_key(&node->key);
        free(node);
    }
    void clear() {
        while (list != nullptr)
            drop_first();
    }
    // Puts entries into the list, in their order, whatever is there already.
    void fill(const std::vector<Entry> &entries) {
        clear();
        for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry)
            list = heap(QelTrustedKeys{list, record(context, *entry).release()});
    }
    // The keys of the list, in its order.
    std::string keys() const {
        std::string numbers;
        for (const QelTrustedKeys *node = list; node != nullptr; node = node->next)
            numbers += std::to_string(node->key->pubKeyInfo->pubKey.value[1]);
        return numbers;
    }
    OwnedCert certificate(const char *subject, uint8_t key) {
        OwnedCert made(full_cert());
        qel_free_dn(&made->subject);
        __qel_free_keyinfo(&made->pubKeyInfo);
        made->subject = parsed(context, subject);
        made->pubKeyInfo = key_info(key);
        return made;
    }

    TestContext context;
    QelTrustedKeys *list = nullptr;
};

// tests/qel/chain_test.cpp has the rest.
TEST_F(TrustedKeys, Match) {
    constexpr auto current = Validity::current, expired = Validity::expired,
                   future = Validity::future, senseless = Validity::senseless;
    const struct {
        const char *why;
        std::vector<Entry> entries;
        QelStatus status;
    } cases[] = {
        {"an empty list", {}, QEL_ERR_ISSUER_NOT_TRUSTED},
        {"without validity", {{"CN=A, C=US", 1}}, QEL_OK},
        {"another order", {{"C=US, CN=A", 1}}, QEL_ERR_ISSUER_NOT_TRUSTED},
        {"not yet", {{"CN=A, C=US", 1, future}}, QEL_ERR_TKEY_EXPIRED},
        {"expired, but of another key", {{"CN=A, C=US", 2, expired}}, QEL_ERR_ISSUER_NOT_TRUSTED},
        {"behind an expired one", {{"CN=A, C=US", 1, expired}, {"CN=A, C=US", 1}}, QEL_OK},
        {"before an expired one", {{"CN=A, C=US", 1}, {"CN=A, C=US", 1, expired}}, QEL_OK},
        {"times that are none", {{"CN=A, C=US", 1, senseless}}, QEL_ERR_BAD_PARAM},
        {"but not where nobody asks", {{"CN=A, C=US", 2, senseless}}, QEL_ERR_ISSUER_NOT_TRUSTED},
    };
    const OwnedCert wanted = certificate("CN=A, C=US", 1);
    for (const auto &c : cases) {
        fill(c.entries);
        EXPECT_EQ(__qel_is_trusted_key(context, list, wanted.get()), c.status) << c.why;
    }
    fill({{"CN=A, C=US", 1, current}});
    fault::fail(fault::Call::time, 1);
    EXPECT_EQ(__qel_is_trusted_key(context, list, wanted.get()), QEL_ERR_GENERAL);
    fault::clear(fault::Call::time);
    each_missing(QEL_ERR_BAD_PARAM, __qel_is_trusted_key, {2}, context, list, wanted.get());
    QelCert incomplete = *wanted;
    incomplete.subject = nullptr;
    EXPECT_EQ(__qel_is_trusted_key(context, list, &incomplete), QEL_ERR_BAD_PARAM);
}

// A name that cannot be printed can be compared with none.
TEST_F(TrustedKeys, NamesThatCannotBePrinted) {
    const OwnedCert wanted = certificate("CN=A", 1);
    fill({{"CN=B", 1}, {"CN=A", 1}});
    list->key->owner->rdns->rdn->ava->type->value[3] = 99;
    EXPECT_EQ(__qel_is_trusted_key(context, list, wanted.get()), QEL_ERR_UNSUPPORTED_ATTR);
    EXPECT_EQ(__qel_add_trusted_key(context, list->next->key, &list), QEL_ERR_UNSUPPORTED_ATTR);
    const OwnedTrustedKey by_owner = record(context, {"CN=A", 1});
    EXPECT_EQ(__qel_delete_trusted_key(context, by_owner.get(), &list), QEL_ERR_UNSUPPORTED_ATTR);
    EXPECT_EQ(keys(), "11");
}

TEST_F(TrustedKeys, Add) {
    const struct {
        const char *why;
        Entry entry;
        QelStatus status;
        const char *keys;
    } cases[] = {
        {"the first", {"CN=A", 1}, QEL_OK, "1"},
        {"another owner, at the head", {"CN=B", 2}, QEL_OK, "21"},
        {"another key of an owner", {"CN=A", 3}, QEL_OK, "321"},
        {"an owner with another's key", {"CN=B", 1}, QEL_OK, "1321"},
        {"there already", {"cn=a", 1}, QEL_ERR_ENTRY_EXISTS, "1321"},
        {"there, but with another validity, issuer and serial number",
         {"CN=A", 3, Validity::expired, "CN=C", 7},
         QEL_ERR_ENTRY_EXISTS,
         "1321"},
    };
    for (const auto &c : cases) {
        const OwnedTrustedKey key = record(context, c.entry);
        EXPECT_EQ(__qel_add_trusted_key(context, key.get(), &list), c.status) << c.why;
        EXPECT_EQ(keys(), c.keys) << c.why;
    }
    const OwnedTrustedKey full(full_trusted_key());
    ASSERT_EQ(__qel_add_trusted_key(context, full.get(), &list), QEL_OK);
    EXPECT_EQ(describe(*list->key), describe(*full)) << "a deep copy";
    QelTrustedKey incomplete = *full;
    incomplete.owner = nullptr;
    EXPECT_EQ(__qel_add_trusted_key(context, &incomplete, &list), QEL_ERR_BAD_PARAM);
    each_missing(QEL_ERR_BAD_PARAM, __qel_add_trusted_key, {}, context, full.get(), &list);
}

TEST_F(TrustedKeys, Delete) {
    const std::vector<Entry> entries = {{"CN=A", 1, Validity::timeless, "CN=I", 7},
                                        {"CN=B", 2, Validity::timeless, "CN=I", 8},
                                        {"CN=A", 3, Validity::expired, "CN=J", 7},
                                        {"CN=C", 4, Validity::timeless, "CN=I"},
                                        {"CN=D", 5, Validity::timeless, nullptr, 7}};
    const struct {
        const char *why;
        Entry wanted;
        QelStatus status;
        const char *left;
    } cases[] = {
        {"all of an owner", {"cn=a", 9}, QEL_OK, "245"},
        {"the last", {"CN=D", 9}, QEL_OK, "1234"},
        {"no such owner", {"CN=X", 1}, QEL_ERR_NO_ENTRY, "12345"},
        {"issuer and serial number", {nullptr, 1, {}, "cn=i", 8}, QEL_OK, "1345"},
        {"another serial number", {nullptr, 1, {}, "CN=I", 9}, QEL_ERR_NO_ENTRY, "12345"},
        {"another issuer", {nullptr, 1, {}, "CN=J", 8}, QEL_ERR_NO_ENTRY, "12345"},
        {"an issuer without serial number", {nullptr, 1, {}, "CN=I"}, QEL_ERR_NO_ENTRY, "12345"},
        {"a serial number without issuer", {"CN=X", 1, {}, nullptr, 7}, QEL_ERR_NO_ENTRY, "12345"},
        {"either", {"CN=D", 1, {}, "CN=I", 7}, QEL_OK, "234"},
        {"the owner where the issuer differs", {"CN=B", 1, {}, "CN=X", 8}, QEL_OK, "1345"},
        {"neither given", {nullptr, 1, {}, nullptr, 7}, QEL_ERR_BAD_PARAM, "12345"},
    };
    for (const auto &c : cases) {
        fill(entries);
        const OwnedTrustedKey wanted = record(context, c.wanted);
        EXPECT_EQ(__qel_delete_trusted_key(context, wanted.get(), &list), c.status) << c.why;
        EXPECT_EQ(keys(), c.left) << c.why;
    }
    fill(entries);
    QelOctetString no_bytes = {1, nullptr};
    QelTrustedKey incomplete = {};
    incomplete.issuer = list->key->issuer;
    incomplete.serial = &no_bytes;
    EXPECT_EQ(__qel_delete_trusted_key(context, &incomplete, &list), QEL_ERR_NO_ENTRY);
    const OwnedTrustedKey wanted = record(context, {"CN=A", 1});
    each_missing(QEL_ERR_BAD_PARAM, __qel_delete_trusted_key, {}, context, wanted.get(), &list);
    fill({{"CN=A", 1}, {"CN=A", 2}});
    EXPECT_EQ(__qel_delete_trusted_key(context, wanted.get(), &list), QEL_OK);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(__qel_delete_trusted_key(context, wanted.get(), &list), QEL_ERR_NO_ENTRY)
        << "an empty list";
}

TEST_F(TrustedKeys, EachAllocation) {
    fill({{"CN=B", 1}});
    const OwnedTrustedKey key = record(context, {"CN=A", 2, Validity::current, "CN=I", 7});
    const OwnedCert wanted = certificate("CN=A", 2);
    const std::set<QelStatus> failures = {QEL_ERR_NO_MEMORY, QEL_ERR_ASN1_ENCODE,
                                          QEL_ERR_ASN1_DECODE};
    fault::each_allocation([&] {
        const QelStatus added = __qel_add_trusted_key(context, key.get(), &list);
        EXPECT_EQ(keys(), added == QEL_OK ? "21" : "1");
        const QelStatus matched = __qel_is_trusted_key(context, list, wanted.get());
        const QelStatus deleted = __qel_delete_trusted_key(context, key.get(), &list);
        for (const QelStatus status : {added, matched, deleted}) {
            EXPECT_TRUE(status == QEL_OK || failures.contains(status) ||
                        (fault::met() && added != QEL_OK))
                << status;
        }
        EXPECT_TRUE(fault::met() || added + matched + deleted == 0);
        if (list->next != nullptr)
            drop_first();
    });
}

} // namespace
