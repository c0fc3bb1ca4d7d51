// What the key server does in a second, beside ssh-agent and beside a server that only echoes, for
// clients that each have one call under way. See compare_server.
#include "keys.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstring>
#include <functional>
#include <memory>
#include <span>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <qel/qelp.h>
#include <qel/qelserv.h>

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char *host_address = "0.0.0.0";
constexpr unsigned client_counts[] = {1, 8, 64};
constexpr std::size_t most_samples = 1 << 20; // of a client in a run

// ---- Bytes -------------------------------------------------------------------------------------

void put_word(Bytes &bytes, uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes.push_back(static_cast<uint8_t>(value >> shift));
}

void put_string(Bytes &bytes, std::span<const uint8_t> string) {
    put_word(bytes, static_cast<uint32_t>(string.size()));
    bytes.insert(bytes.end(), string.begin(), string.end());
}

void put_text(Bytes &bytes, const std::string &text) {
    put_string(bytes, {reinterpret_cast<const uint8_t *>(text.data()), text.size()});
}

uint32_t word_at(const uint8_t *bytes) {
    return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

void put_xdr_text(Bytes &bytes, const std::string &text) {
    put_text(bytes, text);
    bytes.resize((bytes.size() + 3) / 4 * 4);
}

void put_xdr_array(Bytes &bytes, std::span<const uint8_t> array) {
    put_word(bytes, static_cast<uint32_t>(array.size()));
    for (const uint8_t byte : array)
        put_word(bytes, byte);
}

// ---- Sockets -----------------------------------------------------------------------------------

class Stream {
public:
    explicit Stream(int fd) : fd_(fd) {}
    explicit Stream(const std::string &path) : fd_(socket(AF_UNIX, SOCK_STREAM, 0)) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        require(connect(fd_, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0,
                path.c_str());
    }
    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;
    ~Stream() { close(fd_); }

    // Sends a message and receives one: a head of four bytes, which tells the length of the rest.
    std::span<const uint8_t> call(const Bytes &message) {
        require(send(fd_, message.data(), message.size(), MSG_NOSIGNAL) ==
                    static_cast<ssize_t>(message.size()),
                "send");
        std::size_t have = 0;
        while (have < 4 || have < 4 + (word_at(room_) & 0x7fffffff)) {
            const ssize_t count = recv(fd_, room_ + have, sizeof room_ - have, 0);
            require(count > 0, "receive");
            have += static_cast<std::size_t>(count);
        }
        return {room_, have};
    }

private:
    int fd_;
    uint8_t room_[8192];
};

// Answers requests of one size with replies of one size, and does nothing else.
[[noreturn]] void echo(int listener, std::size_t request, std::size_t reply_size) {
    Bytes reply(reply_size);
    const Bytes head = [reply_size] {
        Bytes bytes;
        put_word(bytes, static_cast<uint32_t>(reply_size - 4));
        return bytes;
    }();
    std::copy(head.begin(), head.end(), reply.begin());
    const int epoll = epoll_create1(0);
    const auto watch = [epoll](int fd) {
        epoll_event event = {};
        event.events = EPOLLIN;
        event.data.fd = fd;
        epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event);
    };
    watch(listener);
    Bytes room(request);
    for (;;) {
        epoll_event events[64];
        const int count = epoll_wait(epoll, events, 64, -1);
        for (int i = 0; i < count; ++i) {
            const int fd = events[i].data.fd;
            if (fd == listener)
                watch(accept(listener, nullptr, nullptr));
            else if (recv(fd, room.data(), room.size(), MSG_WAITALL) <= 0)
                close(fd);
            else
                send(fd, reply.data(), reply.size(), MSG_NOSIGNAL);
        }
    }
}

// ---- The key server ----------------------------------------------------------------------------

std::string key_id(unsigned bits) {
    return "bench" + std::to_string(bits);
}

Bytes package_of(QelContext *context, const BenchKey &key, const QelPrivateKeyInfo &private_key,
                 std::string id) {
    void *info = nullptr;
    require(__qel_asn1_decode(context, key.spki.data(), static_cast<uint32_t>(key.spki.size()),
                              QEL_PDU_SubjectPublicKeyInfo, &info) == QEL_OK,
            "public key");
    char version[] = "1.0";
    uint8_t octets[8] = {};
    QelName owner = {QEL_NAME_RDN_SEQUENCE, nullptr};
    QelEncryptedPrivateKeyInfo encrypted = {const_cast<QelAlgId *>(QEL_RC4_AID), {8, octets}};
    QelKeyPkg package = {};
    package.version = version;
    package.keypkgId = id.data();
    package.owner = &owner;
    package.pubKeyInfo = static_cast<QelKeyInfo *>(info);
    package.encrPrivKeyInfo = &encrypted;
    package.usage = USAGE_SIGN_ENCRYPT;
    package.algorithm = const_cast<QelAlgId *>(QEL_MD5WithRSAEncryption_AID);
    uint8_t *encoding = nullptr;
    uint32_t length = 0;
    require(__qel_sign_keypkg(context, &package, QEL_RSA_ENCR_AID, private_key.privateKey.value,
                              private_key.privateKey.length, nullptr) == QEL_OK &&
                __qel_asn1_encode(context, &package, QEL_PDU_KeyPkg, &encoding, &length) == QEL_OK,
            "key package");
    const Bytes bytes(encoding, encoding + length);
    std::free(encoding);
    std::free(package.signature.value);
    __qel_asn1_free(context, info, QEL_PDU_SubjectPublicKeyInfo);
    return bytes;
}

void log_in(unsigned bits) {
    const BenchKey &key = bench_key(bits);
    QelContext *context = nullptr;
    CLIENT *client = nullptr;
    require(__qel_init(&context, nullptr, nullptr) == QEL_OK, "context");
    require(__qel_get_client_handle(&client) == QEL_OK, "the key server is out of reach");
    void *private_key = nullptr;
    require(__qel_asn1_decode(context, key.pkcs8.data(), static_cast<uint32_t>(key.pkcs8.size()),
                              QEL_PDU_PrivateKeyInfo, &private_key) == QEL_OK,
            "private key");
    std::string id = key_id(bits), host = host_address;
    const Bytes package =
        package_of(context, key, *static_cast<QelPrivateKeyInfo *>(private_key), id);
    const auto view = [](const Bytes &bytes) {
        return qelserv_bytes{static_cast<uint32_t>(bytes.size()),
                             const_cast<uint8_t *>(bytes.data())};
    };
    const qelserv_keyinfo argument = {id.data(),       nullptr, host.data(),  0, USAGE_SIGN_ENCRYPT,
                                      view(key.pkcs8), {},      view(package)};
    qelserv_status status = QELSERV_FAILED;
    require(qelserv_setkey_1(argument, &status, client) == RPC_SUCCESS && status == QELSERV_OK,
            "login");
    __qel_asn1_free(context, private_key, QEL_PDU_PrivateKeyInfo);
    clnt_destroy(client);
    qel_end(context);
}

// An encoded DigestInfo of MD5.
Bytes digest_info() {
    Bytes bytes = {0x30, 0x20, 0x30, 0x0c, 0x06, 0x08, 0x2a, 0x86, 0x48,
                   0x86, 0xf7, 0x0d, 0x02, 0x05, 0x05, 0x00, 0x04, 0x10};
    const Bytes digest = sample(16);
    bytes.insert(bytes.end(), digest.begin(), digest.end());
    return bytes;
}

const Bytes rsa_encryption = {0x30, 0x0d, 0x06, 0x09, 0x2a, 0x86, 0x48, 0x86,
                              0xf7, 0x0d, 0x01, 0x01, 0x01, 0x05, 0x00};

Bytes call_record(uint32_t procedure, const Bytes &argument) {
    Bytes message;
    for (const uint32_t value :
         {1U, 0U, 2U, unsigned{QELSERV_PROG}, unsigned{QELSERV_VERS}, procedure, 0U, 0U, 0U, 0U})
        put_word(message, value);
    message.insert(message.end(), argument.begin(), argument.end());
    Bytes record;
    put_word(record, 0x80000000 | static_cast<uint32_t>(message.size()));
    record.insert(record.end(), message.begin(), message.end());
    return record;
}

Bytes sign_record(unsigned bits) {
    Bytes argument;
    for (int i = 0; i < 3; ++i)
        put_word(argument, 0);
    put_xdr_text(argument, key_id(bits));
    put_xdr_text(argument, host_address);
    put_xdr_array(argument, rsa_encryption);
    put_xdr_array(argument, digest_info());
    return call_record(QELSERV_SIGN, argument);
}

// The record of a signature: mark, six words of the reply, then whether there is an element, its
// status, its length, and four bytes for each of the signature.
constexpr std::size_t reply_head = 4 + 9 * 4;

Bytes signature_in(std::span<const uint8_t> reply) {
    Bytes signature;
    for (std::size_t at = reply_head; at < reply.size(); at += 4)
        signature.push_back(reply[at + 3]);
    return signature;
}

void check_signature(unsigned bits, const Bytes &signature) {
    EVP_PKEY_CTX *context = EVP_PKEY_CTX_new(bench_key(bits).openssl, nullptr);
    const Bytes digest = sample(16);
    require(EVP_PKEY_verify_init(context) == 1 &&
                EVP_PKEY_CTX_set_signature_md(context, EVP_md5()) == 1 &&
                EVP_PKEY_verify(context, signature.data(), signature.size(), digest.data(),
                                digest.size()) == 1,
            "the key server's signature is wrong");
    EVP_PKEY_CTX_free(context);
}

// ---- ssh-agent ---------------------------------------------------------------------------------

enum AgentMessage : uint8_t { agent_success = 6, agent_sign_request = 13, agent_add_identity = 17 };

void put_mpint(Bytes &bytes, const Bytes &number) {
    Bytes positive = number;
    if (!positive.empty() && positive[0] >= 0x80)
        positive.insert(positive.begin(), 0);
    put_string(bytes, positive);
}

Bytes agent_message(AgentMessage type, const Bytes &contents) {
    Bytes message;
    put_word(message, static_cast<uint32_t>(contents.size() + 1));
    message.push_back(type);
    message.insert(message.end(), contents.begin(), contents.end());
    return message;
}

bool add_to_agent(Stream &&agent, unsigned bits) {
    const BenchKey &key = bench_key(bits);
    Bytes contents;
    put_text(contents, "ssh-rsa");
    for (const Bytes *number : {&key.modulus, &key.exponent, &key.private_exponent,
                                &key.coefficient, &key.prime[0], &key.prime[1]})
        put_mpint(contents, *number);
    put_text(contents, "bench");
    return agent.call(agent_message(agent_add_identity, contents))[4] == agent_success;
}

// Signs as many bytes as the key server, through SHA-256, which takes a small part of the time.
Bytes agent_request(unsigned bits) {
    constexpr uint32_t with_sha256 = 2;
    const BenchKey &key = bench_key(bits);
    Bytes blob;
    put_text(blob, "ssh-rsa");
    put_mpint(blob, key.exponent);
    put_mpint(blob, key.modulus);
    Bytes contents;
    put_string(contents, blob);
    put_string(contents, digest_info());
    put_word(contents, with_sha256);
    return agent_message(agent_sign_request, contents);
}

// ---- Runs --------------------------------------------------------------------------------------

struct Figures {
    double per_second, median, p99; // the latter in microseconds
};

// What a client does over and over; made in the client's own process.
using Work = std::function<void()>;
using MakeWork = std::function<Work()>;

struct Shared {
    std::atomic<unsigned> ready;
    std::atomic<bool> go;
};

template <class T> T *shared(std::size_t count) {
    void *memory = mmap(nullptr, count * sizeof(T), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    require(memory != MAP_FAILED, "mmap");
    return static_cast<T *>(memory);
}

struct Samples {
    std::size_t count;
    float values[most_samples];
};

void run_client(const MakeWork &make, Shared *state, Samples *samples, double seconds) {
    const Work work = make();
    for (int i = 0; i < 20; ++i)
        work();
    ++state->ready;
    while (!state->go)
        usleep(100);
    const auto end = Clock::now() + std::chrono::duration<double>(seconds);
    for (auto before = Clock::now(); before < end && samples->count < most_samples;) {
        work();
        const auto after = Clock::now();
        samples->values[samples->count++] =
            std::chrono::duration<float, std::micro>(after - before).count();
        before = after;
    }
}

Figures run(const MakeWork &make, unsigned clients, double seconds) {
    Shared *state = shared<Shared>(1);
    Samples *samples = shared<Samples>(clients);
    std::vector<pid_t> children;
    for (unsigned i = 0; i < clients; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            run_client(make, state, &samples[i], seconds);
            _exit(0);
        }
        children.push_back(child);
    }
    while (state->ready < clients)
        usleep(1000);
    state->go = true;
    for (const pid_t child : children) {
        int status = 0;
        waitpid(child, &status, 0);
        require(status == 0, "a client failed");
    }
    std::vector<float> all;
    for (unsigned i = 0; i < clients; ++i)
        all.insert(all.end(), samples[i].values, samples[i].values + samples[i].count);
    std::sort(all.begin(), all.end());
    munmap(samples, clients * sizeof *samples);
    munmap(state, sizeof *state);
    require(!all.empty(), "no call was answered");
    return {static_cast<double>(all.size()) / seconds, all[all.size() / 2],
            all[all.size() - 1 - all.size() / 100]};
}

MakeWork stream_calls(const std::string &path, const Bytes &request, std::size_t reply) {
    return [path, request, reply] {
        auto stream = std::make_shared<Stream>(path);
        return [stream, request, reply] {
            require(stream->call(request).size() == reply, "an answer of the wrong size");
        };
    };
}

MakeWork library_calls(unsigned bits) {
    return [bits] {
        CLIENT *client = nullptr;
        require(__qel_get_client_handle(&client) == QEL_OK, "the key server is out of reach");
        return [bits, client, id = key_id(bits), host = std::string(host_address),
                algorithm = rsa_encryption, data = digest_info()]() mutable {
            const qelserv_cryptinfo argument = {
                0,
                0,
                0,
                id.data(),
                host.data(),
                {static_cast<uint32_t>(algorithm.size()), algorithm.data()},
                {static_cast<uint32_t>(data.size()), data.data()}};
            qelserv_cryptdatap result = nullptr;
            require(qelserv_sign_1(argument, &result, client) == RPC_SUCCESS && result != nullptr &&
                        result->status == QELSERV_OK && result->data.length == bits / 8,
                    "the key server does not sign");
            xdr_free(reinterpret_cast<xdrproc_t>(xdr_qelserv_cryptdatap), &result);
        };
    };
}

struct Row {
    std::string name;
    MakeWork make;
    bool is_agent;
};

pid_t start_echo(const std::string &path, std::size_t request, std::size_t reply) {
    const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    require(bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 &&
                listen(listener, 256) == 0,
            "listening");
    const pid_t child = fork();
    if (child == 0)
        echo(listener, request, reply);
    close(listener);
    return child;
}

void print(const std::vector<Row> &rows, unsigned clients, double seconds) {
    std::vector<Figures> figures;
    double agent = 0;
    for (const Row &row : rows) {
        figures.push_back(run(row.make, clients, seconds));
        if (row.is_agent)
            agent = figures.back().per_second;
    }
    for (std::size_t i = 0; i < rows.size(); ++i)
        std::printf("%-38s %7u %10.0f %10.1f %10.1f %9.2f\n", rows[i].name.c_str(), clients,
                    figures[i].per_second, figures[i].median, figures[i].p99,
                    figures[i].per_second / agent);
    std::fflush(stdout);
}

} // namespace

// server_bench SERVER-SOCKET AGENT-SOCKET SCRATCH-SOCKET SECONDS
int main(int argc, char **argv) {
    require(argc == 5, "four arguments: server's, agent's and scratch socket, seconds");
    const std::string server = argv[1], agent = argv[2], scratch = argv[3];
    const double seconds = std::atof(argv[4]);
    for (const unsigned bits : {512U, 1024U}) {
        log_in(bits);
        check_signature(bits, signature_in(Stream(server).call(sign_record(bits))));
    }
    require(add_to_agent(Stream(agent), 1024), "the agent refuses the key");
    if (!add_to_agent(Stream(agent), 512))
        std::puts("ssh-agent refuses a key of 512 bits: its rows are of 1024 bits.");
    const Bytes agent_call = agent_request(1024);
    const std::size_t agent_reply = Stream(agent).call(agent_call).size();
    require(agent_reply > 128, "the agent does not sign");
    const std::size_t answer = reply_head + 4 * 128;
    const Bytes call = sign_record(1024), null_call = call_record(NULLPROC, {});
    const pid_t echo_server = start_echo(scratch, call.size(), answer);
    const std::vector<Row> rows = {
        {"bare socket, same bytes", stream_calls(scratch, call, answer), false},
        {"qelserv, null procedure", stream_calls(server, null_call, 4 + 6 * 4), false},
        {"ssh-agent, sign 1024", stream_calls(agent, agent_call, agent_reply), true},
        {"qelserv, sign 1024", stream_calls(server, call, answer), false},
        {"qelserv, sign 1024, library's client", library_calls(1024), false},
        {"qelserv, sign 512", stream_calls(server, sign_record(512), reply_head + 4 * 64), false},
        {"qelserv, sign 512, library's client", library_calls(512), false},
    };
    std::printf("%-38s %7s %10s %10s %10s %9s\n", "", "clients", "calls/s", "median us", "p99 us",
                "/ agent");
    for (const unsigned clients : client_counts)
        print(rows, clients, seconds);
    kill(echo_server, SIGKILL);
    waitpid(echo_server, nullptr, 0);
    return 0;
}
