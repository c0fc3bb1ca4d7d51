#include "words.h"

#include "support/arguments.h"

#include <qellogin/session.h>

#include <gtest/gtest.h>

#include <lib/context.h>
#include <lib/memory.h>
#include <qel/qelp.h>
#include <qel/qelserv.h>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

// A key server that answers one call with what it was told to, and keeps what it was asked.
class OneAnswer {
public:
    // result: what follows the header of a reply; none: the connection ends instead.
    OneAnswer(QelContext *context, std::optional<Words> result) : context_(context) {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends_), 0);
        const sockaddr_storage nowhere = {};
        netbuf address = {sizeof nowhere, 2, const_cast<sockaddr_storage *>(&nowhere)};
        context->key_server = clnt_vc_create(ends_[0], &address, QELSERV_PROG, QELSERV_VERS, 0, 0);
        EXPECT_NE(context->key_server, nullptr);
        server_ = std::thread([this, result = std::move(result)] { serve(result); });
    }
    ~OneAnswer() {
        finish(SHUT_RDWR);
        clnt_destroy(static_cast<CLIENT *>(context_->key_server));
        context_->key_server = nullptr;
        close(ends_[0]);
        close(ends_[1]);
    }
    OneAnswer(const OneAnswer &) = delete;
    OneAnswer &operator=(const OneAnswer &) = delete;

    // Whether the client has sent nothing.
    bool is_silent() {
        finish(SHUT_WR);
        return !heard_;
    }
    // The procedure's number and its argument, after the call.
    uint32_t procedure() {
        finish(SHUT_WR);
        return procedure_;
    }
    const Bytes &argument() {
        finish(SHUT_WR);
        return argument_;
    }

private:
    void finish(int how) {
        shutdown(ends_[0], how);
        if (server_.joinable())
            server_.join();
    }
    Bytes receive(std::size_t size) {
        Bytes bytes(size);
        if (recv(ends_[1], bytes.data(), size, MSG_WAITALL) != static_cast<ssize_t>(size))
            bytes.clear();
        heard_ = heard_ || !bytes.empty();
        return bytes;
    }
    static uint32_t word_at(const Bytes &bytes, std::size_t index) {
        uint32_t word = 0;
        std::memcpy(&word, &bytes[4 * index], sizeof word);
        return ntohl(word);
    }
    void serve(const std::optional<Words> &result) {
        Bytes call;
        for (bool last = false; !last;) {
            const Bytes mark = receive(4);
            if (mark.empty())
                return;
            last = (word_at(mark, 0) & 0x80000000) != 0;
            const Bytes fragment = receive(word_at(mark, 0) & 0x7FFFFFFF);
            call.insert(call.end(), fragment.begin(), fragment.end());
        }
        // xid, call, version, program, version, procedure, credentials, verifier
        procedure_ = word_at(call, 5);
        const std::size_t credentials = 8 + (word_at(call, 7) + 3) / 4;
        argument_.assign(call.begin() + static_cast<std::ptrdiff_t>(4 * (credentials + 2)),
                         call.end());
        if (!result) {
            shutdown(ends_[1], SHUT_RDWR);
            return;
        }
        const Bytes reply = Words(word_at(call, 0), 1, 0, 0, 0, 0, *result).bytes;
        const Bytes record = Words(0x80000000 | static_cast<uint32_t>(reply.size())).bytes + reply;
        EXPECT_EQ(send(ends_[1], record.data(), record.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(record.size()));
    }

    QelContext *context_;
    int ends_[2] = {-1, -1};
    std::thread server_;
    bool heard_ = false;
    uint32_t procedure_ = 0;
    Bytes argument_;
};

class Session : public testing::Test {
protected:
    QelContext *context = nullptr;
    void SetUp() override { ASSERT_EQ(__qel_init(&context, "me", "10.1.2.3"), QEL_OK); }
    void TearDown() override { qel_end(context); }
};

struct Row {
    const char *reason;
    std::optional<Words> answer;
    QelStatus status;
};

TEST_F(Session, rpc_stat) {
    const auto state = [](uint32_t status) { return Words(1, status, "me", "10.1.2.3", 0, 1, 7); };
    const Row rows[] = {
        {"registered", Words(state(0), 0), QEL_OK},
        {"not registered", Words(state(8), 0), QEL_ERR_NOT_LOGGED_IN},
        {"another status counts as registered", Words(state(1), 0), QEL_OK},
        {"no element counts as registered", Words(0), QEL_OK},
        {"the first element decides", Words(state(0), 1, 8, "", "", 0, 0, 0, 0), QEL_OK},
        {"a cut answer", Words(1, 0), QEL_ERR_SERV_STAT},
        {"the server is gone", std::nullopt, QEL_ERR_SERV_STAT},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        OneAnswer server(context, row.answer);
        EXPECT_EQ(__qel_rpc_stat(context), row.status);
        EXPECT_EQ(server.procedure(), 3U);
        EXPECT_EQ(to_hex(server.argument()), to_hex(Words(0, "me", "10.1.2.3", 0).bytes));
    }
}

TEST_F(Session, save_key) {
    const Row rows[] = {
        {"done", Words(0), QEL_OK},
        {"exists", Words(9), QEL_ERR_ENTRY_EXISTS},
        {"refused", Words(2), QEL_ERR_LOGIN},
        {"the server is gone", std::nullopt, QEL_ERR_LOGIN},
    };
    const Bytes package = {1, 2, 3};
    uid_list user = {77, nullptr};
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        OneAnswer server(context, row.answer);
        EXPECT_EQ(__qel_save_key_under_uid(context, &user, USAGE_SIGN, 5, package.data(), 2,
                                           package.data(), 1, package.data(), 3),
                  row.status);
        EXPECT_EQ(server.procedure(), 1U);
        EXPECT_EQ(
            to_hex(server.argument()),
            to_hex(Words("me", 1, 77, 0, "10.1.2.3", 5, 2, Bytes{1, 2}, Bytes{1}, package).bytes));
    }
    {
        SCOPED_TRACE("the length of a certificate that is not there");
        OneAnswer server(context, Words(0));
        EXPECT_EQ(
            __qel_save_key_under_uid(context, nullptr, 0, 0, nullptr, 0, nullptr, 5, nullptr, 0),
            QEL_OK);
    }
    {
        SCOPED_TRACE("a field beyond its bound is not begun");
        const Bytes long_package(65537);
        OneAnswer server(context, Words(0));
        EXPECT_EQ(__qel_save_key_under_uid(context, nullptr, 0, 0, package.data(), 3, nullptr, 0,
                                           long_package.data(), 65537),
                  QEL_ERR_LOGIN);
        EXPECT_TRUE(server.is_silent());
    }
    const uint8_t byte = 0;
    const auto save = [&](const uint8_t *key, uint32_t key_length, const uint8_t *certificate,
                          const uint8_t *of_package, uint32_t package_length) {
        return __qel_save_key_under_uid(context, nullptr, 0, 0, key, key_length, certificate,
                                        certificate != nullptr ? 1 : 0, of_package, package_length);
    };
    EXPECT_EQ(save(nullptr, 0, &byte, nullptr, 0), QEL_ERR_BAD_PARAM)
        << "nothing but a certificate";
    EXPECT_EQ(save(&byte, 0, nullptr, nullptr, 0), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(save(nullptr, 1, nullptr, nullptr, 0), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(save(nullptr, 0, nullptr, &byte, 0), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(save(nullptr, 0, nullptr, nullptr, 1), QEL_ERR_BAD_PARAM);
}

TEST_F(Session, withdrawal_names_the_user) {
    const struct {
        const char *name;
        uint32_t uid;
    } rows[] = {{"10.0.0.5", getuid()}, {"root", 0}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        OneAnswer server(context, Words(2)); // refused, which does not count
        EXPECT_EQ(withdraw_key_from_qelserv(context, row.name), QEL_OK);
        EXPECT_EQ(to_hex(server.argument()),
                  to_hex(Words("me", 1, row.uid, 0, "10.1.2.3", 0, 0, 0, 0, 0).bytes));
    }
    EXPECT_EQ(withdraw_key_from_qelserv(context, "no such user"), QEL_ERR_UNKNOWN_USER);
    EXPECT_EQ(withdraw_key_from_qelserv(context, nullptr), QEL_ERR_BAD_PARAM);
}

TEST_F(Session, packages) {
    const Row rows[] = {
        {"two", Words(1, 0, Bytes{1, 2}, 1, 0, Bytes{3}, 0), QEL_OK},
        {"no key", Words(1, 1, 0, 0), QEL_ERR_NOT_LOGGED_IN},
        {"not logged in", Words(1, 8, 0, 0), QEL_ERR_NOT_LOGGED_IN},
        {"refused", Words(1, 2, 0, 0), QEL_ERR_NO_KEYPKG},
        {"no element", Words(0), QEL_ERR_GENERAL},
        {"the server is gone", std::nullopt, QEL_ERR_GENERAL},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        OneAnswer server(context, row.answer);
        auto *list = reinterpret_cast<QelItemList *>(1);
        uint32_t count = 7;
        EXPECT_EQ(__qel_get_qelserv_keypkg(context, nullptr, &list, &count), row.status);
        EXPECT_EQ(server.procedure(), 7U);
        EXPECT_EQ(to_hex(server.argument()), to_hex(Words("me", "10.1.2.3").bytes));
        EXPECT_EQ(count, row.status == QEL_OK ? 2U : 0U);
        if (row.status == QEL_OK) {
            EXPECT_EQ(to_hex(static_cast<uint8_t *>(list->data), list->length), "0102");
            EXPECT_EQ(to_hex(static_cast<uint8_t *>(list->next->data), list->next->length), "03");
        }
        __qel_free_item_list(&list);
    }
}

TEST_F(Session, sign_and_unwrap) {
    const uint8_t data[] = {9, 8};
    const uint32_t length = sizeof data;
    const Bytes asked =
        Words(0, 0, 0, "me", "10.1.2.3", from_hex("300d06092a864886f70d0101010500"), Bytes{9, 8})
            .bytes;
    const struct {
        decltype(rpc_sign) *call;
        uint32_t procedure;
        QelStatus refusal;
    } kinds[] = {{rpc_sign, 5, QEL_ERR_SERV_SIGN}, {rpc_unwrap, 4, QEL_ERR_SERV_DECRYPT}};
    for (const auto &kind : kinds) {
        const Words three_bytes(1, 0, Bytes{1, 2, 3});
        const Row rows[] = {
            {"done", three_bytes, QEL_OK},
            {"refused", Words(1, 8, 0), kind.refusal},
            {"no element", Words(0), kind.refusal},
            {"packed bytes", Words(1, 0).packed({1, 2, 3, 4, 5, 6, 7, 8}), kind.refusal},
            {"the server is gone", std::nullopt, kind.refusal},
        };
        for (const Row &row : rows) {
            SCOPED_TRACE(row.reason);
            OneAnswer server(context, row.answer);
            uint8_t *result = nullptr;
            uint32_t result_length = 0;
            EXPECT_EQ(kind.call(context, data, &length, QEL_RSA_ENCR_AID, &result, &result_length),
                      row.status);
            const qel::Owned<uint8_t> owned(result);
            EXPECT_EQ(server.procedure(), kind.procedure);
            EXPECT_EQ(to_hex(server.argument()), to_hex(asked));
            EXPECT_EQ(to_hex(result, result_length), row.status == QEL_OK ? "010203" : "");
        }
        for (const uint32_t capacity : {2, 3, 4}) {
            OneAnswer server(context, three_bytes);
            uint8_t buffer[4] = {};
            uint8_t *result = buffer;
            uint32_t result_length = capacity;
            EXPECT_EQ(kind.call(context, data, &length, QEL_RSA_ENCR_AID, &result, &result_length),
                      capacity < 3 ? QEL_ERR_BAD_PARAM : QEL_OK);
            EXPECT_EQ(result_length, capacity < 3 ? capacity : 3);
        }
    }
}

TEST_F(Session, without_a_key_server_or_an_argument) {
    const uint8_t data[] = {9, 8};
    const uint32_t length = sizeof data;
    uint8_t *result = nullptr;
    uint32_t count = 0;
    QelItemList *list = nullptr;
    EXPECT_EQ(__qel_rpc_stat(context), QEL_ERR_SERV_CONNECT);
    EXPECT_EQ(__qel_get_qelserv_keypkg(context, nullptr, &list, &count), QEL_ERR_SERV_CONNECT);
    EXPECT_EQ(__qel_save_key_under_uid(context, nullptr, 1, 0, nullptr, 0, nullptr, 0, data, 2),
              QEL_ERR_GENERAL);
    for (auto *call : {rpc_sign, rpc_unwrap}) {
        EXPECT_EQ(call(context, data, &length, QEL_RSA_ENCR_AID, &result, &count),
                  QEL_ERR_SERV_CONNECT);
        each_missing(QEL_ERR_BAD_PARAM, call, {}, context, data, &length, QEL_RSA_ENCR_AID, &result,
                     &count);
    }
    each_missing(QEL_ERR_BAD_PARAM, __qel_get_qelserv_keypkg, {2}, context, nullptr, &list, &count);
    EXPECT_EQ(__qel_rpc_stat(nullptr), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(__qel_get_client_handle(nullptr), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(save_keypkg_with_qelserv(context, nullptr), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(__qel_save_key_under_uid(nullptr, nullptr, 0, 0, nullptr, 0, nullptr, 0, nullptr, 0),
              QEL_ERR_BAD_PARAM);
}

} // namespace
