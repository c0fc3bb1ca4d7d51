// naming_store.cpp: credentials in a real naming service, on the private host of scripts/sandbox.

#include "support/process.h"

#include <util/naming.h>

#include <gtest/gtest.h>

#include <fstream>
#include <random>

namespace {

using Values = std::vector<std::string>;

const uint8_t *bytes(const std::string &text) {
    return reinterpret_cast<const uint8_t *>(text.data());
}

uint32_t length(const std::string &text) {
    return static_cast<uint32_t>(text.size());
}

Values certificates_of(const char *name, QelStatus expected = QEL_OK) {
    QelItemList *list = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(dsv_get_certs_given_user_name(name, &list, &count), expected);
    Values values;
    for (const QelItemList *item = list; item != nullptr; item = item->next)
        values.emplace_back(static_cast<const char *>(item->data), item->length);
    EXPECT_EQ(count, values.size());
    __qel_free_item_list(&list);
    return values;
}

// Nothing of a real host is touched.
class OnPrivateHost : public ::testing::Environment {
    void SetUp() override {
        char name[64] = "";
        gethostname(name, sizeof name - 1);
        ASSERT_STREQ(name, "sandbox") << "run this with scripts/sandbox";
    }
};
const auto *const environment = ::testing::AddGlobalTestEnvironment(new OnPrivateHost);

// Comes first: nothing was used yet, and the back end can still be chosen after a failure.
TEST(NamingStore, NoService) {
    for (const char *word : {"nis", "nisplus"})
        in_child([&] {
            SCOPED_TRACE(word);
            alarm(20);
            std::ofstream("/etc/fn.conf") << "malformed\n";
            certificates_of("alice", QEL_ERR_XFN);
            unlink("/etc/fn.conf");
            EXPECT_EQ(dsv_set_naming_service(word), QEL_OK);
            certificates_of("alice", QEL_ERR_XFN);
        });
}

// The host 127.0.0.1 is localhost.
const char *const kNames[] = {"alice", "127.0.0.1", ".../example/alice"};

TEST(NamingStore, ValuesComeBackAsTheyWentIn) {
    std::mt19937 random(1);
    Values values;
    for (const std::size_t size : {100000, 0, 1, 1 << 20}) {
        std::string value(size, '\0');
        for (char &byte : value)
            byte = static_cast<char>(random());
        values.push_back(value);
    }
    values.push_back(std::string(3, '\0'));
    for (const char *name : kNames) {
        SCOPED_TRACE(name);
        certificates_of(name, QEL_ERR_UNKNOWN_USER);
        for (const std::string &value : values)
            EXPECT_EQ(dsv_add_attribute(name, certificates_attribute, bytes(value), length(value)),
                      QEL_OK);
        EXPECT_TRUE(certificates_of(name) == values);

        EXPECT_EQ(
            dsv_modify_certificates(name, bytes("new"), 3, bytes(values[0]), length(values[0])),
            QEL_OK);
        EXPECT_EQ(dsv_delete_certificates(name, bytes(""), 0), QEL_OK);
        const Values left = {values[2], values[3], values[4], "new"};
        EXPECT_TRUE(certificates_of(name) == left);

        EXPECT_EQ(dsv_modify_key_pkg(name, bytes("k"), 1, bytes("o"), 1), QEL_ERR_XFN);
        EXPECT_EQ(dsv_delete_certificates(name, nullptr, 0), QEL_OK);
        certificates_of(name, QEL_ERR_NO_CERT);
    }
}

} // namespace
