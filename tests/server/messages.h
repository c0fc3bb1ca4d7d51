// messages.h: call messages (RFC 5531) made by hand, and replies taken apart.
#ifndef TESTS_SERVER_MESSAGES_H
#define TESTS_SERVER_MESSAGES_H

#include "qellogin/words.h"

#include <qel/qelserv.h>

#include <stdexcept>

struct Call {
    uint32_t procedure = 0;
    Words argument = {};
    uint32_t direction = 0; // a call
    uint32_t rpc_version = 2;
    uint32_t program = QELSERV_PROG;
    uint32_t version = QELSERV_VERS;
    Words credentials = Words(0, 0); // none

    Bytes message() const {
        return Words(0x12345678, direction, rpc_version, program, version, procedure, credentials,
                     0, 0, argument)
            .bytes;
    }
    // With the mark of a record of one fragment.
    Bytes record() const {
        const Bytes bytes = message();
        return Words(0x80000000 | static_cast<uint32_t>(bytes.size())).bytes + bytes;
    }
};

// AUTH_SYS: what a client says of itself.
inline Words claim_to_be(uint32_t uid) {
    return Words(1).packed(Words(0, "host", uid, 0, 1, 0).bytes);
}

struct KeyInfo {
    std::string id = "me";
    std::vector<uint32_t> uids = {};
    std::string host = "0.0.0.0";
    uint32_t flags = 0;
    uint32_t usage = 1;
    Bytes private_key = {};
    Bytes package = {};

    Words words() const {
        Words words(id);
        for (const uint32_t uid : uids)
            words.add(1).add(uid);
        return words.add(Words(0, host, flags, usage, private_key, Bytes{}, package));
    }
    Call call() const { return {QELSERV_SETKEY, words()}; }
};

inline const Bytes rsa_encryption_id = from_hex("300d06092a864886f70d0101010500");

inline Call crypt_call(uint32_t procedure, const Bytes &data, const std::string &id = "me",
                       const Bytes &algorithm = rsa_encryption_id) {
    return {procedure, Words(0, 0, 0, id, "0.0.0.0", algorithm, data)};
}

inline Call stat_call(uint32_t uid = 0, const std::string &id = "") {
    return {QELSERV_STATKEY, Words(uid, id, "", 0)};
}

inline Call list_call(uint32_t uid) {
    return {QELSERV_LISTKEY, Words(uid, 0)};
}

inline Call packages_call(const std::string &id = "") {
    return {QELSERV_GETKEYPKG, Words(id, "")};
}

// A reply, read in order. What is not there ends the test with an exception.
class Reply {
public:
    Reply() = default;
    explicit Reply(Bytes bytes) : bytes_(std::move(bytes)) {}

    bool none() const { return bytes_.empty(); }
    uint32_t word() {
        uint32_t value = 0;
        for (int i = 0; i < 4; ++i)
            value = value << 8 | bytes_.at(at_++);
        return value;
    }
    std::string text() {
        const uint32_t length = word();
        std::string value;
        for (uint32_t i = 0; i < (length + 3) / 4 * 4; ++i)
            value += static_cast<char>(bytes_.at(at_++));
        value.resize(length);
        return value;
    }
    Bytes array() {
        Bytes value(word());
        for (uint8_t &byte : value)
            byte = static_cast<uint8_t>(word());
        return value;
    }
    // How the message was accepted: 0, or one of RFC 5531's reasons.
    uint32_t accepted() {
        at_ = 8; // mark, number
        if (word() != 1 || word() != 0 || word() != 0 || word() != 0)
            throw std::runtime_error("no accepted reply");
        return word();
    }
    // The result of a call that was accepted.
    Reply &result() {
        if (accepted() != 0)
            throw std::runtime_error("the call was refused");
        return *this;
    }
    // The status of the first element of a list; 0 also where there is no element.
    uint32_t first_status() { return result().word() != 0 ? word() : 0; }
    bool at_end() const { return at_ == bytes_.size(); }

private:
    Bytes bytes_;
    std::size_t at_ = 0;
};

#endif
