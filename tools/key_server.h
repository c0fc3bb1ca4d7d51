// key_server.h: the key server of this host as the commands use it, and keys that it holds beside
// keys in files.
#ifndef TOOLS_KEY_SERVER_H
#define TOOLS_KEY_SERVER_H

#include "command.h"
#include "credential.h"

#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

#include <qel/qelserv.h>

namespace tool {

// Under which host address programs that name none look for their key.
constexpr const char *default_host = "0.0.0.0";

// A key that the key server holds.
struct KeyEntry {
    uid_t uid = 0;
    std::string id, host;
    uint32_t usage = 0;
    bool locked = false;
    uint32_t seconds_left = 0; // 0: no limit
    int64_t registered = 0;    // seconds since 1970
};

// A connection to the key server. Every function throws Failure: Exit::server where it is out of
// reach, and what the server's refusal means.
class KeyServer {
public:
    // Refuses what another user has registered in the server's place while it was not there.
    KeyServer();
    ~KeyServer();
    KeyServer(const KeyServer &) = delete;
    KeyServer &operator=(const KeyServer &) = delete;

    // The caller's own keys, those of another user for the super-user.
    std::vector<KeyEntry> entries(uid_t uid) const;
    // Everybody's, for the super-user.
    std::vector<KeyEntry> all_entries() const;

    // Registers a key under the name of entry, or unlocks that entry.
    //   private_key  PrivateKeyInfo (PKCS#8), DER, at most QELSERV_MAX_PRIVKEY bytes
    void log_in(const KeyEntry &entry, std::span<const uint8_t> private_key,
                std::span<const uint8_t> package) const;
    // what: QELSERV_WITHDRAW for this entry, QELSERV_WITHDRAW_ALL or QELSERV_LOCK for all of its user.
    void log_out(const KeyEntry &entry, int what) const;

private:
    std::vector<KeyEntry> stat(uid_t uid) const;
    void set_key(const qelserv_keyinfo &argument, const std::string &what) const;

    CLIENT *client_ = nullptr;
};

// The entry that --id names, or without it the only one, or the one that programs use which name
// none. Throws Failure, Exit::no_key, where there is none, and UsageError where --id has to choose.
const KeyEntry &choose_entry(const Arguments &arguments, const std::vector<KeyEntry> &entries);

// A private key for qel_sign or qel_unwrap_key.
struct UsableKey {
    std::unique_ptr<Context> context; // to use it with
    PrivateKey key;                   // without octets: the key server has it
    std::string where;                // safe to print
};
// The key in the file that --key names, else the key server's.
//   use  USAGE_SIGN, USAGE_ENCRYPT or any_use: what it is for. Throws Failure where it is not for
//        that.
UsableKey usable_key(const Arguments &arguments, uint32_t use);
// The key package of a key at the key server, or null where the server has none that can be read.
Decoded<QelKeyPkg> registered_package(const UsableKey &key);
// The modulus, in bytes.
unsigned modulus_bytes(const UsableKey &key);

} // namespace tool

#endif
