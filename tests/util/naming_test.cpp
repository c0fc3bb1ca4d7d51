#include "support/fault.h"
#include "support/naming_provider.h"
#include "support/resolver.h"

#include <util/naming_xfn.h>

#include <gmock/gmock.h>

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

// 192.0.2.7 is host.example, which the naming service knows as host; no other address has a name.
extern "C" int gethostbyaddr_r(const void *address, socklen_t, int, hostent *host, char *work,
                               size_t, hostent **found, int *error) {
    *found = nullptr;
    *error = HOST_NOT_FOUND;
    in_addr_t number;
    std::memcpy(&number, address, sizeof number);
    if (number != inet_addr("192.0.2.7"))
        return 0;
    *host = {};
    host->h_name = std::strcpy(work, "host.example");
    *found = host;
    return 0;
}

// A clock that sleeping moves on.
static int64_t fake_time;
extern "C" int nanosleep(const timespec *pause, timespec *) {
    fake_time += pause->tv_nsec;
    return 0;
}
extern "C" int clock_gettime(clockid_t, timespec *time) noexcept {
    fake_time += 12345;
    *time = {static_cast<time_t>(fake_time / 1'000'000'000),
             static_cast<long>(fake_time % 1'000'000'000)};
    return 0;
}

namespace {

using Values = std::vector<std::string>;

constexpr char dn[] = "CN=Alice";
constexpr unsigned lasting = 13; // a failure of the provider that has no status of its own

const uint8_t *bytes(const std::string &text) {
    return reinterpret_cast<const uint8_t *>(text.data());
}

struct Result {
    QelStatus status;
    Values values;
};

Result get(const char *name, const char *attribute) {
    QelItemList *list = reinterpret_cast<QelItemList *>(1);
    uint32_t count = 77;
    Result result = {dsv_get_credentials_given_user_name(name, attribute, &list, &count), {}};
    for (const QelItemList *item = list; item != nullptr; item = item->next)
        result.values.emplace_back(static_cast<const char *>(item->data), item->length);
    EXPECT_EQ(count, result.values.size());
    __qel_free_item_list(&list);
    return result;
}

class Naming : public ::testing::Test {
protected:
    void SetUp() override {
        provider::reset();
        ASSERT_EQ(dsv_set_naming_service("files"), QEL_OK);
        resolver::hosts["host"] = {{inet_addr("192.0.2.7")}};
    }
};

const struct {
    const char *reason;
    const char *attribute;
    int code; // of reading; 0: none is set
    QelStatus status;
} kReadCases[] = {
    {"no certificates", certificates_attribute, FN_E_NO_SUCH_ATTRIBUTE, QEL_ERR_NO_CERT},
    {"no distinguished name", dn_attribute, FN_E_NO_SUCH_ATTRIBUTE, QEL_ERR_NO_DN},
    {"no key packages", key_packages_attribute, FN_E_NO_SUCH_ATTRIBUTE, QEL_ERR_NO_KEYPKG},
    {"no other attribute", "colour", FN_E_NO_SUCH_ATTRIBUTE, QEL_ERR_NO_KEYPKG},
    {"success without attribute", certificates_attribute, FN_SUCCESS, QEL_ERR_NO_CERT},
    {"an attribute without values", certificates_attribute, 0, QEL_ERR_NO_CERT},
    {"certificates of nobody", certificates_attribute, FN_E_NAME_NOT_FOUND, QEL_ERR_UNKNOWN_USER},
    {"distinguished name of nobody", dn_attribute, FN_E_NAME_NOT_FOUND, QEL_ERR_NO_DN},
    {"key packages of nobody", key_packages_attribute, FN_E_NAME_NOT_FOUND, QEL_ERR_UNKNOWN_USER},
    {"a failure", dn_attribute, lasting, QEL_ERR_XFN},
};

TEST_F(Naming, StatusesOfReading) {
    for (const auto &row : kReadCases) {
        SCOPED_TRACE(row.reason);
        provider::reset();
        provider::write("user", "alice", row.attribute, {});
        if (row.code != 0)
            provider::failures["fn_attr_get"] = static_cast<unsigned>(row.code);
        EXPECT_EQ(get("alice", row.attribute).status, row.status);
    }
    QelItemList *list;
    uint32_t count;
    EXPECT_EQ(dsv_get_certs_given_user_name(nullptr, &list, &count), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(dsv_get_certs_given_user_name("alice", nullptr, &count), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(dsv_get_certs_given_user_name("alice", &list, nullptr), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(__dsv_get_dn_name_given_user_name(".../x", nullptr, &count), QEL_ERR_BAD_PARAM);
}

TEST_F(Naming, ValuesAsTheyAreInTheContextOfTheName) {
    const Values values = {std::string("\0z", 2), "", "a"};
    const struct {
        const char *name, *context, *entry;
    } entries[] = {
        {"alice", "user", "alice"},   {"192.0.2.7", "host", "host"}, {".../x", "", ".../x"},
        {"192.0.2", "host", nullptr}, // an address too, of a host without name
        {"", "user", nullptr},        // would be all users
        {"\"open", "user", nullptr}};
    for (const auto &row : entries) {
        SCOPED_TRACE(row.name);
        if (row.entry == nullptr) {
            EXPECT_EQ(get(row.name, certificates_attribute).status, QEL_ERR_UNKNOWN_USER);
            continue;
        }
        provider::write(row.context, row.entry, certificates_attribute, values);
        EXPECT_THAT(get(row.name, certificates_attribute).values, ElementsAreArray(values));
    }
    QelItemList *list = nullptr;
    uint32_t count = 0;
    provider::write("user", "alice", dn_attribute, {dn});
    for (const char *name : {"alice", ".../x"}) {
        ASSERT_EQ(__dsv_get_dn_name_given_user_name(name, &list, &count), QEL_OK);
        EXPECT_EQ(count, 1u);
        EXPECT_STREQ(static_cast<char *>(list->data), *name == '.' ? name : dn);
        EXPECT_EQ(list->length, std::strlen(static_cast<char *>(list->data)));
        __qel_free_item_list(&list);
    }
}

constexpr auto add = NamingChange::add, replace = NamingChange::replace,
               take = NamingChange::remove;
const Values absent = {"(absent)"};

struct ChangeCase {
    const char *reason;
    Values before;
    NamingChange change;
    const char *value, *old_value;
    QelStatus status;
    Values after;
    int operation; // of the provider's write; 0: none
};

const ChangeCase kChangeCases[] = {
    {"the first value", absent, add, "a", nullptr, QEL_OK, {"a"}, 1},
    {"a second value", {"a"}, add, "b", nullptr, QEL_OK, {"a", "b"}, 1},
    {"a value twice", {"a", "b"}, add, "a", nullptr, QEL_OK, {"a", "b"}, 1},
    {"a value without bytes", {"a"}, add, "", nullptr, QEL_OK, {"a", ""}, 1},
    {"nothing to add", {"a"}, add, nullptr, nullptr, QEL_ERR_BAD_PARAM, {"a"}, 0},
    {"new for old", {"a", "b"}, replace, "c", "a", QEL_OK, {"b", "c"}, 1},
    {"new for what is not there", {"a"}, replace, "c", "x", QEL_OK, {"a", "c"}, 1},
    {"new for the same", {"a"}, replace, "a", "a", QEL_OK, absent, 3},
    {"new for old of nothing", absent, replace, "c", "a", QEL_ERR_XFN, absent, 0},
    {"no old to replace", {"a"}, replace, "c", nullptr, QEL_ERR_BAD_PARAM, {"a"}, 0},
    {"no new to replace with", {"a"}, replace, nullptr, "a", QEL_ERR_BAD_PARAM, {"a"}, 0},
    {"one of two goes", {"a", "b"}, take, "a", nullptr, QEL_OK, {"b"}, 1},
    {"the last goes", {"a"}, take, "a", nullptr, QEL_OK, absent, 3},
    {"all go", {"a", "b"}, take, nullptr, nullptr, QEL_OK, absent, 3},
    {"what is not there goes", {"a"}, take, "x", nullptr, QEL_OK, {"a"}, 1},
    {"from nothing", absent, take, "a", nullptr, QEL_OK, absent, 0},
    {"no such change", {"a"}, NamingChange{0}, "a", nullptr, QEL_ERR_BAD_PARAM, {"a"}, 0},
    {"no such change", {"a"}, NamingChange{4}, "a", nullptr, QEL_ERR_BAD_PARAM, {"a"}, 0},
};

QelStatus change(const char *name, const char *attribute, const ChangeCase &row) {
    return dsv_modify_attribute(name, attribute, row.change,
                                reinterpret_cast<const uint8_t *>(row.value),
                                row.value == nullptr ? 0 : std::strlen(row.value),
                                reinterpret_cast<const uint8_t *>(row.old_value),
                                row.old_value == nullptr ? 0 : std::strlen(row.old_value));
}

Values stored(const char *context, const char *name, const char *attribute) {
    const auto &entry = provider::store[context][name];
    const auto found = entry.find(attribute);
    return found == entry.end() ? absent : found->second.values;
}

TEST_F(Naming, Changes) {
    for (const ChangeCase &row : kChangeCases) {
        SCOPED_TRACE(row.reason);
        provider::reset();
        if (row.before != absent)
            provider::write("user", "alice", key_packages_attribute, row.before);
        EXPECT_EQ(change("alice", key_packages_attribute, row), row.status);
        EXPECT_THAT(stored("user", "alice", key_packages_attribute), ElementsAreArray(row.after));
        EXPECT_EQ(provider::written.empty() ? 0 : provider::written[0] - '0', row.operation);
    }
}

TEST_F(Naming, NewAttributesHaveTheirSyntaxAndTheirContext) {
    const auto add_to = [](const char *name, const char *attribute) {
        provider::written.clear();
        return dsv_add_attribute(name, attribute, bytes("a"), 1);
    };
    EXPECT_EQ(add_to("alice", dn_attribute), QEL_OK);
    EXPECT_EQ(provider::written, "1 user/alice onc_distinguished_name fn_attr_syntax_ascii");
    EXPECT_EQ(add_to("192.0.2.7", certificates_attribute), QEL_OK);
    EXPECT_EQ(provider::written, "1 host/host onc_certificates fn_attr_syntax_binary");
    EXPECT_EQ(add_to(".../x", key_packages_attribute), QEL_OK);
    EXPECT_EQ(provider::written, "1 /.../x onc_key_packages fn_attr_syntax_binary");
    EXPECT_EQ(add_to(".../x", dn_attribute), QEL_OK);
    EXPECT_EQ(provider::written, "");
    EXPECT_EQ(add_to("alice", "colour"), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(add_to("alice", nullptr), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(add_to(nullptr, dn_attribute), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(add_to("192.0.2.99", dn_attribute), QEL_ERR_UNKNOWN_USER);
}

TEST_F(Naming, FailuresOfChanging) {
    for (const char *function : {"fn_attr_get", "fn_attr_modify", "fn_ctx_create_subcontext"}) {
        SCOPED_TRACE(function);
        provider::reset();
        provider::failures[function] = lasting;
        EXPECT_EQ(dsv_add_attribute("alice", dn_attribute, bytes("a"), 1), QEL_ERR_XFN);
    }
    // Someone else makes the entry between looking for it and making it.
    provider::reset();
    provider::write("user", "alice", dn_attribute, {dn});
    provider::failures = {{"fn_ctx_create_subcontext", FN_E_NAME_IN_USE}};
    EXPECT_EQ(dsv_add_attribute("alice", certificates_attribute, bytes("a"), 1), QEL_OK);
    EXPECT_EQ(dsv_add_attribute("bob", certificates_attribute, bytes("a"), 1), QEL_ERR_XFN);
}

// Others write the attribute each time before it is written: a change of one value is done all the same,
// and one that has to know what is there is given up after ten seconds.
TEST_F(Naming, ChangesOfOthersAreKept) {
    int others = 0;
    provider::before_modify = [&] {
        Values values = stored("user", "alice", certificates_attribute);
        if (values == absent)
            values.clear();
        values.push_back(std::to_string(++others));
        provider::write("user", "alice", certificates_attribute, values);
    };
    EXPECT_EQ(dsv_add_attribute("alice", certificates_attribute, bytes("a"), 1), QEL_OK);
    EXPECT_THAT(stored("user", "alice", certificates_attribute), ElementsAre("1", "2", "a"));
    EXPECT_EQ(provider::written, "4 user/alice onc_certificates fn_attr_syntax_binary");
    EXPECT_EQ(dsv_delete_certificates("alice", bytes("2"), 1), QEL_OK);
    EXPECT_THAT(stored("user", "alice", certificates_attribute), ElementsAre("1", "a", "3", "4"));
    EXPECT_EQ(dsv_delete_certificates("alice", nullptr, 0), QEL_OK);
    EXPECT_EQ(stored("user", "alice", certificates_attribute), absent);

    provider::write("user", "alice", certificates_attribute, {"a"});
    const int64_t begin = fake_time;
    EXPECT_EQ(dsv_modify_certificates("alice", bytes("b"), 1, bytes("a"), 1), QEL_ERR_XFN);
    EXPECT_NEAR(static_cast<double>(fake_time - begin), 10e9, 0.1e9);
    EXPECT_GT(others, 1000);
    others = 0;
    provider::before_modify = [&, write = provider::before_modify] {
        if (others < 3)
            write();
    };
    EXPECT_EQ(dsv_modify_certificates("alice", bytes("b"), 1, bytes("3"), 1), QEL_OK);
}

// Users come before hosts.
TEST_F(Naming, FindByDistinguishedName) {
    const struct {
        const char *reason;
        const char *user, *host; // who holds the name; null: nobody
        const char *failing;     // of the provider; "": nothing
        QelStatus status;
        const char *found;
    } rows[] = {
        {"a user", "alice", nullptr, "", QEL_OK, "alice"},
        {"a host, by its address", nullptr, "host", "", QEL_OK, "192.0.2.7"},
        {"a user and a host", "alice", "host", "", QEL_OK, "alice"},
        {"nobody", nullptr, nullptr, "", QEL_ERR_UNKNOWN_USER, nullptr},
        {"a host without address", nullptr, "lost", "", QEL_ERR_UNKNOWN_USER, nullptr},
        {"hosts alone", "alice", "host", "prelim_fn_attr_search user", QEL_OK, "192.0.2.7"},
        {"no host alone", "alice", nullptr, "prelim_fn_attr_search user", QEL_ERR_UNKNOWN_USER,
         nullptr},
        {"hosts cannot be searched", nullptr, "host", "prelim_fn_attr_search host", QEL_ERR_NO_DN,
         nullptr},
        {"hosts cannot be listed", nullptr, "host", "prelim_fn_searchlist_next host", QEL_ERR_NO_DN,
         nullptr},
        {"no attribute", "alice", nullptr, "fn_attribute_create", QEL_ERR_XFN, nullptr},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        provider::reset();
        provider::write("user", "bob", dn_attribute, {"CN=Bob"});
        if (row.user != nullptr)
            provider::write("user", row.user, dn_attribute, {"CN=Other", dn});
        if (row.host != nullptr)
            provider::write("host", row.host, dn_attribute, {dn});
        provider::failures[row.failing] = lasting;
        char *found = const_cast<char *>("");
        EXPECT_EQ(__dsv_get_user_name_given_cn_name(dn, &found), row.status);
        EXPECT_STREQ(found, row.found);
        std::free(found);
    }
    char *found = nullptr;
    EXPECT_EQ(__dsv_get_user_name_given_cn_name(nullptr, &found), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(__dsv_get_user_name_given_cn_name(dn, nullptr), QEL_ERR_BAD_PARAM);
}

TEST_F(Naming, AddCredentials) {
    const Values cut_name = {std::string("CN=Alice\0Bob", 12)};
    const struct {
        const char *reason;
        Values alice, bob;   // distinguished names before
        const char *dn;      // given
        const char *failing; // of the provider; "": nothing
        QelStatus status;
        Values alice_after;
    } rows[] = {
        {"a new entry", absent, absent, dn, "", QEL_OK, {dn}},
        {"the registered name", {dn}, {dn}, dn, "", QEL_OK, {dn}},
        {"no name", absent, {dn}, nullptr, "", QEL_OK, absent},
        {"another is registered", {"CN=B"}, absent, dn, "", QEL_ERR_ENTRY_EXISTS, {"CN=B"}},
        {"a longer one, behind a NUL", cut_name, absent, dn, "", QEL_ERR_ENTRY_EXISTS, cut_name},
        {"another entry holds the name", absent, {dn}, dn, "", QEL_ERR_ENTRY_EXISTS, absent},
        {"no search", absent, {dn}, dn, "prelim_fn_attr_search", QEL_OK, {dn}},
        {"no reading", absent, absent, dn, "fn_attr_get", QEL_ERR_XFN, absent},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        provider::reset();
        for (const auto &[name, values] : {std::pair{"alice", row.alice}, {"bob", row.bob}})
            if (values != absent)
                provider::write("user", name, dn_attribute, values);
        provider::failures[row.failing] = lasting;
        EXPECT_EQ(dsv_add_user_certs_and_key_pkg("alice", row.dn, bytes("c"), 1, bytes("k"), 1),
                  row.status);
        const bool added = row.status == QEL_OK;
        EXPECT_EQ(stored("user", "alice", dn_attribute), row.alice_after);
        EXPECT_EQ(stored("user", "alice", certificates_attribute), added ? Values{"c"} : absent);
        EXPECT_EQ(stored("user", "alice", key_packages_attribute), added ? Values{"k"} : absent);
    }
    provider::reset();
    EXPECT_EQ(dsv_add_user_certs(nullptr, dn, bytes("c"), 1), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(dsv_add_user_certs("alice", dn, nullptr, 0), QEL_OK);
    EXPECT_EQ(provider::store["user"]["alice"].size(), 1u);
    // The certificate fails, and the key package is not tried.
    provider::before_modify = [] { provider::failures["fn_attr_modify"] = lasting; };
    EXPECT_EQ(dsv_add_user_certs_and_key_pkg("alice", dn, bytes("c"), 1, bytes("k"), 1),
              QEL_ERR_XFN);
    EXPECT_EQ(provider::written, "1 user/alice onc_certificates fn_attr_syntax_binary");
}

// Own memory gives status 2, the provider's 36. Whatever fails, there is a status and no result.
TEST_F(Naming, MemoryRunsOut) {
    const auto is_shortage = [](QelStatus status) {
        return status == QEL_ERR_NO_MEMORY || status == QEL_ERR_XFN || status == QEL_ERR_NO_DN;
    };
    ASSERT_EQ(dsv_set_context(NameKind::user), QEL_OK);
    ASSERT_EQ(dsv_set_context(NameKind::host), QEL_OK);
    fault::each_allocation([&] {
        provider::reset();
        provider::write("host", "host", certificates_attribute, {"c", "d"});
        provider::write("host", "host", dn_attribute, {dn});
        QelItemList *list = nullptr;
        uint32_t count = 0;
        char *name = nullptr;
        QelStatus status = dsv_get_certs_given_user_name("192.0.2.7", &list, &count);
        if (status == QEL_OK)
            __qel_free_item_list(&list);
        EXPECT_EQ(count, status == QEL_OK ? 2u : 0u);
        if (status == QEL_OK)
            status = dsv_modify_certificates("192.0.2.7", bytes("e"), 1, bytes("c"), 1);
        if (status == QEL_OK)
            status = dsv_add_attribute("alice", key_packages_attribute, bytes("k"), 1);
        if (status == QEL_OK)
            status = __dsv_get_user_name_given_cn_name(dn, &name);
        EXPECT_TRUE(status == QEL_OK || (fault::met() && is_shortage(status))) << status;
        EXPECT_EQ(name != nullptr, status == QEL_OK);
        EXPECT_EQ(list, nullptr);
        std::free(name);
    });
}

} // namespace
