// The way of calls and replies: records, stalled and greedy clients, on a real socket.
#include "peer.h"

#include "support/keypkg.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include "hardening.h"
#include "listener.h"
#include "loop.h"
#include "rpc.h"

namespace {

using namespace std::chrono_literals;

class Loops : public testing::Test {
protected:
    void start(const LoopLimits &limits = {}) {
        const LoopWork work = {longest_call,
                               [this](const Caller &caller, std::span<uint8_t> call) {
                                   return answer_call(&service_, caller, call);
                               },
                               [this] { return service_.expire(); }};
        thread_ = std::thread(
            [this, work, limits] { Loop(work, listener_.get(), stop_.get(), limits).run(); });
    }
    void TearDown() override {
        const uint64_t one = 1;
        EXPECT_EQ(write(stop_.get(), &one, sizeof one), 8);
        thread_.join();
    }
    Peer connect() const { return Peer(path_); }
    std::chrono::nanoseconds busy() {
        clockid_t clock = 0;
        timespec time = {};
        EXPECT_EQ(pthread_getcpuclockid(thread_.native_handle(), &clock), 0);
        EXPECT_EQ(clock_gettime(clock, &time), 0);
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    }
    bool answers(Peer &peer) {
        peer.send(stat_call().record());
        Reply reply = peer.receive();
        return !reply.none() && reply.first_status() == QELSERV_NOT_LOGGED_IN;
    }

private:
    TemporaryFolder folder_;
    std::string path_ = folder_.path("socket");
    Service service_{ServiceLimits()};
    Descriptor listener_ = make_listener(path_);
    Descriptor stop_{eventfd(0, 0)};
    std::thread thread_;
};

Bytes mark(uint32_t length, bool last) {
    return Words(length | (last ? 0x80000000 : 0)).bytes;
}

// As many bytes from there on, or all that are left.
Bytes part(const Bytes &bytes, std::size_t at, std::size_t size) {
    return Bytes(&bytes[at], &bytes[at] + std::min(size, bytes.size() - at));
}

TEST_F(Loops, CallsComeInAnyPieces) {
    start();
    const Bytes message = stat_call().message();
    const auto length = static_cast<uint32_t>(message.size());
    const Bytes whole = stat_call().record();
    Bytes in_words;
    for (std::size_t at = 0; at < message.size(); at += 4)
        in_words = in_words + mark(4, at + 4 == message.size()) + part(message, at, 4);
    const struct {
        const char *reason;
        Bytes bytes;
        std::size_t piece;
        int calls;
    } rows[] = {
        {"whole", whole, whole.size(), 1},
        {"byte by byte", whole, 1, 1},
        {"two fragments",
         mark(10, false) + part(message, 0, 10) + mark(length - 10, true) +
             part(message, 10, length),
         7, 1},
        {"many fragments", in_words, in_words.size(), 1},
        {"an empty last fragment", mark(length, false) + message + mark(0, true), 9, 1},
        {"three at once", whole + whole + whole, 3 * whole.size(), 3},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        Peer peer = connect();
        for (std::size_t at = 0; at < row.bytes.size(); at += row.piece)
            peer.send(part(row.bytes, at, row.piece));
        for (int i = 0; i < row.calls; ++i)
            EXPECT_EQ(peer.receive().first_status(), uint32_t{QELSERV_NOT_LOGGED_IN});
        EXPECT_TRUE(answers(peer)) << "and another on the same connection";
    }
}

TEST_F(Loops, StreamsThatNobodyWouldSendEndAtOnce) {
    start();
    const struct {
        const char *reason;
        Bytes bytes;
    } rows[] = {
        {"a record of 2 GiB", mark(0x7fffffff, true)},
        {"one byte more than the longest call", mark(320 * 1024 + 1, false)},
        {"the same in two fragments", mark(8, false) + Bytes(8) + mark(320 * 1024 - 7, true)},
        {"an empty fragment that is not the last", mark(0, false)},
        {"a record that is no call", mark(8, true) + Bytes(8)},
        {"words", bytes_of("GET / HTTP/1.0\r\n\r\n")},
    };
    Peer honest = connect();
    for (const auto &row : rows) {
        Peer peer = connect();
        peer.send(row.bytes);
        EXPECT_TRUE(peer.is_closed_within(2s)) << row.reason;
        EXPECT_TRUE(answers(honest)) << row.reason;
    }
}

TEST_F(Loops, PatienceEndsForHalfACallAndNotForAnIdleClient) {
    LoopLimits limits;
    limits.patience = 1s;
    start(limits);
    Peer idle = connect(), half = connect(), dripping = connect(), honest = connect();
    const Bytes call = stat_call().record();
    half.send({0x80, 0});
    for (int i = 0; i < 8; ++i) {
        dripping.send({call[static_cast<std::size_t>(i)]});
        std::this_thread::sleep_for(100ms);
    }
    EXPECT_TRUE(half.is_closed_within(600ms));
    EXPECT_TRUE(dripping.is_closed_within(600ms)) << "bytes now and then win no time";
    EXPECT_TRUE(answers(idle));
    EXPECT_TRUE(answers(honest));
}

TEST_F(Loops, ConnectionsOfAUserAndBytesOfAllAreBounded) {
    LoopLimits limits;
    limits.connections_per_user = 4;
    limits.bytes = 100'000;
    start(limits);
    std::vector<Peer> peers;
    for (int i = 0; i < 4; ++i)
        peers.push_back(connect());
    for (Peer &peer : peers)
        EXPECT_TRUE(answers(peer));
    EXPECT_TRUE(connect().is_closed_within(2s)) << "the fifth";
    peers[0].send(mark(300'000, true) + Bytes(60'000));
    EXPECT_FALSE(peers[0].is_closed_within(200ms)) << "within the bound";
    peers[1].send(mark(300'000, true) + Bytes(50'000));
    EXPECT_TRUE(peers[0].is_closed_within(2s)) << "the greediest goes";
    EXPECT_TRUE(answers(peers[2]));
    Peer fresh = connect();
    EXPECT_TRUE(answers(fresh)) << "a place is free again";
}

TEST_F(Loops, ClientsThatGoBeforeTheAnswerHarmNobody) {
    start();
    Peer honest = connect();
    for (int i = 0; i < 200; ++i)
        connect().send(stat_call().record());
    EXPECT_TRUE(answers(honest));
}

TEST_F(Loops, UserWhomTheKernelCannotNameIsRefused) {
    constexpr uid_t overflow = 65534;
    EXPECT_EQ(nameless_user("         0          0 4294967295\n"), std::nullopt);
    EXPECT_EQ(nameless_user("0 0 1000\n1000 1000 4294966295\n"), std::nullopt);
    EXPECT_EQ(nameless_user("0 1000 1\n"), overflow);
    EXPECT_EQ(nameless_user("0 100000 65536\n"), overflow) << "who has a namesake here";
    EXPECT_EQ(nameless_user(""), overflow);
    LoopLimits limits;
    limits.nameless_user = geteuid();
    start(limits);
    EXPECT_TRUE(connect().is_closed_within(2s));
}

// The time that the loop takes, while a client has hung up with replies that wait for it.
TEST_F(Loops, ClientThatHangsUpWithAReplyUnderWayDoesNotKeepItBusy) {
    start();
    Bytes calls;
    for (int i = 0; i < 2000; ++i)
        calls = calls + stat_call().record();
    const struct {
        const char *reason;
        int how; // of shutdown; -1: the connection is closed
    } rows[] = {{"closed", -1},
                {"shut both ways", SHUT_RDWR},
                {"reads no more", SHUT_RD},
                {"sends no more", SHUT_WR}};
    for (const auto &row : rows) {
        Peer honest = connect();
        auto peer = std::make_unique<Peer>(connect());
        peer->make_impatient();
        peer->send(calls);
        EXPECT_TRUE(answers(honest)) << row.reason;
        if (row.how < 0)
            peer.reset();
        else
            peer->shut(row.how);
        EXPECT_TRUE(answers(honest)) << row.reason;
        const auto before = busy();
        std::this_thread::sleep_for(200ms);
        EXPECT_LT(busy() - before, 20ms) << row.reason;
    }
}

TEST(Listener, ASecondServerDoesNotTakeTheSocketOfALivingOne) {
    const TemporaryFolder folder;
    const std::string path = folder.path("socket");
    {
        const Descriptor first = make_listener(path);
        EXPECT_EQ(path_of(first), path);
        EXPECT_THROW(make_listener(path), std::runtime_error);
    }
    EXPECT_NO_THROW(make_listener(path)) << "what a dead one has left";
    EXPECT_THROW(make_listener(std::string(200, 'x')), std::runtime_error);
    const std::string precious = folder.path("precious");
    write_file(precious, bytes_of("not a socket"));
    EXPECT_THROW(make_listener(precious), std::runtime_error);
    EXPECT_EQ(read_file(precious), bytes_of("not a socket"));
}

// In a process of its own, since the descriptor has a fixed number.
TEST(Listener, DescriptorsOfTheServiceManagerAreTakenIfTheyListen) {
    const auto inherits = [](int type, bool listens) {
        const TemporaryFolder folder;
        const Descriptor made = make_listener(folder.path("socket"));
        const Descriptor other(socket(AF_UNIX, type, 0));
        setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
        setenv("LISTEN_FDS", "1", 1);
        fcntl(made.get(), F_SETFL, 0); // as service managers pass it
        dup2(listens ? made.get() : other.get(), 3);
        try {
            const std::optional<Descriptor> got = inherited_listener();
            const bool ready = got && (fcntl(3, F_GETFL) & O_NONBLOCK) != 0 &&
                               (fcntl(3, F_GETFD) & FD_CLOEXEC) != 0 &&
                               getenv("LISTEN_FDS") == nullptr;
            _exit(ready ? 0 : 1);
        } catch (const std::runtime_error &) {
            _exit(2);
        }
    };
    EXPECT_EXIT(inherits(SOCK_STREAM, true), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(inherits(SOCK_STREAM, false), testing::ExitedWithCode(2), "");
    EXPECT_EXIT(inherits(SOCK_DGRAM, false), testing::ExitedWithCode(2), "");
}

} // namespace
