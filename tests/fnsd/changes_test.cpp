// Requests to fnsd: their form, and what becomes of them.
#include "xfn/naming.h"

#include "changes.h"

#include <unistd.h>

namespace {

using naming::attribute;
using naming::Values;
using xfn::Area;
using xfn::RequestKind;

constexpr uid_t root = 0, stranger = 4242424;
const std::string id = "onc_certificates";

Bytes bytes_of(const xfn::Message &message) {
    return {message.bytes.get(), message.bytes.get() + message.size};
}
// Without the mark, as connections hand it over.
Bytes contents_of(const xfn::Request &request) {
    const Bytes record = bytes_of(encode_request(request));
    return {record.begin() + 4, record.end()};
}

TEST(Requests, AreWrittenAsTheProtocolSays) {
    xfn::Attribute attr = attribute("i", {"v", ""});
    attr->guarded = true;
    attr->expected = 258;
    const Bytes expected =
        from_hex("8000005c 00000001 00000003 00000003 733a2f 00000001 00000002 6d65"
                 "00000004 00000000 00000001 69"
                 "00000000 00000015 666e5f617474725f73796e7461785f62696e617279"
                 "00000001 0000000000000102 00000002 00000001 76 00000000");
    const xfn::Request request = {RequestKind::modify, "s:/", {Area::users, "me"}, 4, attr.get()};
    EXPECT_EQ(to_hex(bytes_of(encode_request(request))), to_hex(expected));

    xfn::DecodedRequest decoded = {};
    const Bytes contents = contents_of(request);
    ASSERT_EQ(decode_request(contents, &decoded), unsigned{FN_SUCCESS});
    EXPECT_EQ(decoded.request.location, "s:/");
    EXPECT_EQ(decoded.request.name.text, "me");
    EXPECT_EQ(decoded.request.operation, 4u);
    EXPECT_EQ(bytes_of(encode_request(decoded.request)), expected);
}

TEST(Requests, SpoiledOnesAreRefusedOrReadAsWhatTheyAre) {
    const xfn::Attribute attr = attribute("id", {"one", "two"});
    const Bytes good = contents_of(
        {RequestKind::modify, "sqlite:/x", {Area::hosts, "h"}, FN_ATTR_OP_ADD, attr.get()});
    each_spoiled(good, [](const Bytes &spoiled, const std::string &what) {
        xfn::DecodedRequest decoded = {};
        if (decode_request(spoiled, &decoded) == FN_SUCCESS) {
            EXPECT_EQ(contents_of(decoded.request), spoiled) << what;
        }
    });
}

TEST(Requests, LengthsAreNotBelieved) {
    constexpr unsigned other = FN_E_OPERATION_NOT_SUPPORTED, bad = FN_E_UNSPECIFIED_ERROR;
    // A change of attribute i of user a, up to the mark for its version.
    const std::string change = "00000001 00000003 00000000 00000001 00000001 61 00000001"
                               "00000000 00000001 69 00000000 00000000";
    const struct {
        const char *why;
        std::string message;
        unsigned status;
    } rows[] = {
        {"another version", "00000002 00000001", other},
        {"another kind", "00000001 00000004", other},
        {"a location of 4 GiB", "00000001 00000001 ffffffff 61", bad},
        {"another area", "00000001 00000001 00000000 00000003 00000001 61", bad},
        {"bytes left over", "00000001 00000001 00000000 00000001 00000001 61 00", bad},
        {"2^32 values", change + "00000000 0000000000000000 ffffffff", bad},
        {"the same value twice",
         change + "00000000 0000000000000000 00000002 00000001 76 00000001 76", bad},
        {"a version below zero", change + "00000001 8000000000000000 00000000", bad},
    };
    for (const auto &row : rows) {
        xfn::DecodedRequest decoded = {};
        EXPECT_EQ(decode_request(from_hex(row.message), &decoded), row.status) << row.why;
    }
}

class ChangesTest : public testing::Test {
protected:
    ChangesTest() {
        EXPECT_EQ(xfn::use_store(location_.c_str(), &shared_), unsigned{FN_SUCCESS});
        changes_.emplace(shared_->store, location_, ChangeLimits{100});
    }
    ~ChangesTest() override { xfn::release_store(shared_); }

    // The status of the answer; 0 for none.
    unsigned answer(uid_t uid, const Bytes &contents) {
        const SecretBytes reply = changes_->answer({uid, 1}, contents);
        unsigned status = 0;
        if (reply.size() == xfn::reply_size) {
            EXPECT_TRUE(xfn::decode_reply(
                std::span<const uint8_t, xfn::reply_size>(reply.data(), reply.size()), &status));
        }
        return status;
    }
    unsigned ask(uid_t uid, RequestKind kind, xfn::EntryName name) {
        return answer(uid, contents_of({kind, location_, name}));
    }
    unsigned write(uid_t uid, xfn::EntryName name, const Values &values,
                   unsigned operation = FN_ATTR_OP_ADD_VALUES) {
        const xfn::Attribute attr = attribute(id, values);
        return answer(uid,
                      contents_of({RequestKind::modify, location_, name, operation, attr.get()}));
    }

    naming::Store store_;
    std::string location_ = "sqlite:" + store_.file;
    xfn::SharedStore *shared_ = nullptr;
    std::optional<Changes> changes_;
};

// An account that every host has, and that is not root.
constexpr uid_t daemon_uid = 1;
const xfn::EntryName own = {Area::users, "daemon"};

// The store decides, by the caller's number; tests/xfn/store_test.cpp has all of its rules.
TEST_F(ChangesTest, WhoMayChangeWhat) {
    const struct {
        const char *why;
        uid_t uid;
        xfn::EntryName name;
        unsigned status;
    } rows[] = {
        {"one's own entry", daemon_uid, own, FN_SUCCESS},
        {"root's", daemon_uid, {Area::users, "root"}, FN_E_CTX_NO_PERMISSION},
        {"another's", stranger, own, FN_E_CTX_NO_PERMISSION},
        {"root changes all", root, {Area::hosts, "h"}, FN_SUCCESS},
        {"a name with a zero byte", root, {Area::hosts, {"a\0b", 3}}, FN_E_ILLEGAL_NAME},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(ask(row.uid, RequestKind::create, row.name), row.status) << row.why;
        if (row.status == FN_SUCCESS) {
            EXPECT_EQ(write(row.uid, row.name, {"v"}), row.status) << row.why;
            EXPECT_EQ(ask(row.uid, RequestKind::create, row.name), unsigned{FN_E_NAME_IN_USE});
        } else {
            EXPECT_NE(write(row.uid, row.name, {"v"}), unsigned{FN_SUCCESS}) << row.why;
            EXPECT_EQ(ask(row.uid, RequestKind::destroy, row.name), row.status) << row.why;
        }
    }
    EXPECT_EQ(store_.get("user/daemon", id), Values{"v"});
    EXPECT_EQ(ask(daemon_uid, RequestKind::destroy, own), unsigned{FN_SUCCESS});
    EXPECT_EQ(store_.list("user"), Values{});
}

TEST_F(ChangesTest, AnotherDatabaseIsNotItsBusiness) {
    const Bytes request = contents_of({RequestKind::create, "sqlite:/elsewhere", own});
    EXPECT_EQ(answer(root, request), unsigned{FN_E_CTX_NO_PERMISSION});
}

TEST_F(ChangesTest, AnExpectationIsPassedOn) {
    ASSERT_EQ(ask(root, RequestKind::create, own), unsigned{FN_SUCCESS});
    ASSERT_EQ(write(root, own, {"old"}), unsigned{FN_SUCCESS});
    unsigned code = 0;
    const xfn::Attribute found = store_.read("user/daemon", id, &code);
    const xfn::Attribute attr = attribute(id, {"new"});
    fn_attribute_expect(attr.get(), found.get());
    const Bytes request =
        contents_of({RequestKind::modify, location_, own, FN_ATTR_OP_ADD, attr.get()});
    EXPECT_EQ(answer(daemon_uid, request), unsigned{FN_SUCCESS});
    EXPECT_EQ(answer(daemon_uid, request), unsigned{FN_E_ATTR_CHANGED});
}

TEST_F(ChangesTest, AnEntryHoldsSoMuch) {
    ASSERT_EQ(ask(root, RequestKind::create, own), unsigned{FN_SUCCESS});
    const std::string half(50, 'a');
    EXPECT_EQ(write(daemon_uid, own, {half}), unsigned{FN_SUCCESS});
    EXPECT_EQ(write(daemon_uid, own, {half + "b"}), unsigned{FN_E_INSUFFICIENT_RESOURCES});
    EXPECT_EQ(write(daemon_uid, own, {std::string(50, 'c')}), unsigned{FN_SUCCESS});
    EXPECT_EQ(write(daemon_uid, own, {"d"}), unsigned{FN_E_INSUFFICIENT_RESOURCES});
    EXPECT_EQ(write(root, own, {"d"}), unsigned{FN_SUCCESS});
    EXPECT_EQ(write(daemon_uid, own, {half}, FN_ATTR_OP_REMOVE_VALUES), unsigned{FN_SUCCESS});
    EXPECT_EQ(write(daemon_uid, own, {std::string(100, 'e')}, FN_ATTR_OP_ADD),
              unsigned{FN_SUCCESS});
}

TEST_F(ChangesTest, GarbageGetsNoAnswer) {
    EXPECT_EQ(answer(daemon_uid, {}), 0u);
    EXPECT_EQ(answer(daemon_uid, Bytes(1000, 0)), unsigned{FN_E_OPERATION_NOT_SUPPORTED});
    EXPECT_EQ(answer(daemon_uid, from_hex("00000001 00000001 00")), 0u);
}

} // namespace
