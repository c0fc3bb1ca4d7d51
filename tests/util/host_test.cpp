#include "support/resolver.h"

#include <qel/qelp.h>

#include <gtest/gtest.h>

namespace {

const char *own_name = nullptr; // null: it cannot be read

} // namespace

extern "C" int gethostname(char *name, size_t size) noexcept {
    if (own_name == nullptr || std::strlen(own_name) >= size)
        return -1;
    std::strcpy(name, own_name);
    return 0;
}

namespace {

TEST(Host, OwnAddress) {
    const struct {
        const char *reason;
        const char *name;
        const char *address;
    } rows[] = {
        {"the first address", "host.example", "192.0.2.7"},
        {"an unknown name", "nowhere.example", nullptr},
        {"a name without addresses", "addressless.example", nullptr},
        {"a name that cannot be read", nullptr, nullptr},
    };
    resolver::hosts[""] = {{inet_addr("192.0.2.9")}}; // so that an unread name shows
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        own_name = row.name;
        EXPECT_STREQ(__qel_getIPaddress(), row.address);
    }
}

TEST(Host, MoreAddressesThanThereIsRoomFor) {
    resolver::hosts["many.example"] = std::vector<in_addr>(200, {inet_addr("192.0.2.1")});
    own_name = "many.example";
    EXPECT_EQ(__qel_getIPaddress(), nullptr);
}

} // namespace
