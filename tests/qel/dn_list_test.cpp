#include "support/arguments.h"
#include "support/fault.h"
#include "support/names.h"

using namespace records;

namespace {

using DnList = NamesTest;

struct ListCase {
    const char *reason;
    std::vector<const char *> strings;
    QelStatus status;
    std::vector<const char *> names;
};

const ListCase kListCases[] = {
    {"in their order", {"CN=A, O=X", "CN=B", nullptr}, QEL_OK, {"CN=A, O=X", "CN=B"}},
    {"an empty string ends the list", {"CN=A", "", "CN=B", nullptr}, QEL_OK, {"CN=A"}},
    {"an empty first string makes an empty list", {"", nullptr}, QEL_OK, {}},
    {"a null first string", {nullptr}, QEL_ERR_BAD_PARAM, {}},
    {"a bad string first", {"CN", "CN=A", nullptr}, QEL_ERR_DN_NO_EQUALS, {}},
    {"a bad string last", {"CN=A", "CN=B", "CN", nullptr}, QEL_ERR_DN_NO_EQUALS, {}},
    {"the first failure counts", {"CN=A", "=B", "CN", nullptr}, QEL_ERR_DN_NO_TYPE, {}},
};

TEST_F(DnList, OfStrings) {
    for (const ListCase &row : kListCases) {
        SCOPED_TRACE(row.reason);
        QelName unset = {};
        QelName *names = &unset;
        int count = 77;
        EXPECT_EQ(__qel_strs2dns(row.strings.data(), &names, &count), row.status);
        EXPECT_EQ(names == nullptr, row.status != QEL_OK);
        ASSERT_EQ(static_cast<std::size_t>(count), row.names.size());
        for (int i = 0; i < count; ++i) {
            EXPECT_EQ(describe(names[i]), describe(*name(row.names[static_cast<size_t>(i)])));
            __qel_free2_dn(names + i);
        }
        std::free(names);
    }
}

TEST_F(DnList, FindsAName) {
    const char *const strings[] = {"CN=A, O=X", "CN=B", "CN=C", nullptr};
    const char *const bad[] = {"CN=A", "CN", nullptr};
    const char *const none[] = {nullptr};
    EXPECT_EQ(__qel_find_dn_in_list(strings, name("cn=a, o=x").get()), QEL_OK);
    EXPECT_EQ(__qel_find_dn_in_list(strings, name("CN=B").get()), QEL_OK);
    EXPECT_EQ(__qel_find_dn_in_list(strings, name("CN=C").get()), QEL_OK);
    EXPECT_EQ(__qel_find_dn_in_list(strings, name("CN=A").get()), QEL_ERR_NO_ENTRY);
    EXPECT_EQ(__qel_find_dn_in_list(bad, name("CN=A").get()), QEL_ERR_DN_NO_EQUALS);
    EXPECT_EQ(__qel_find_dn_in_list(none, name("CN=A").get()), QEL_ERR_BAD_PARAM);
}

TEST_F(DnList, NullArguments) {
    const char *const strings[] = {"CN=A", nullptr};
    QelName *names = nullptr;
    int count = 0;
    each_missing(QEL_ERR_BAD_PARAM, __qel_strs2dns, {}, strings, &names, &count);
    each_missing(QEL_ERR_BAD_PARAM, __qel_find_dn_in_list, {}, strings, name("CN=A").get());
}

TEST_F(DnList, MemoryRunsOut) {
    const char *const strings[] = {"CN=A", "CN=B", nullptr};
    const OwnedName second = name("CN=B");
    fault::each_allocation([&] {
        QelName *names = nullptr;
        int count = 0;
        const QelStatus status = __qel_strs2dns(strings, &names, &count);
        EXPECT_EQ(status == QEL_OK, !fault::met()) << status;
        EXPECT_EQ(names == nullptr, fault::met());
        for (int i = 0; i < count; ++i)
            __qel_free2_dn(names + i);
        std::free(names);
    });
    fault::each_allocation([&] {
        const QelStatus status = __qel_find_dn_in_list(strings, second.get());
        EXPECT_EQ(status == QEL_OK, !fault::met());
        EXPECT_NE(status, QEL_ERR_NO_ENTRY); // no memory is no answer
    });
}

} // namespace
