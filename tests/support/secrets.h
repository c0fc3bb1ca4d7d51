// secrets.h: sees when a block is freed that still holds a piece of a secret.
#ifndef TESTS_SUPPORT_SECRETS_H
#define TESTS_SUPPORT_SECRETS_H

#include "support/fault.h"
#include "support/rsa_key.h"

#include <algorithm>
#include <set>
#include <string>
#include <utility>
#include <vector>

// Watches what is freed as long as it lives, one at a time.
class SecretWatch {
public:
    SecretWatch() { fault::watch_free(look_into); }
    ~SecretWatch() {
        fault::watch_free(nullptr);
        secrets.clear();
        found.clear();
    }
    SecretWatch(const SecretWatch &) = delete;
    SecretWatch &operator=(const SecretWatch &) = delete;

    // As it is written, and as the arithmetic holds it, least significant byte first.
    void add(const std::string &name, const Bytes &bytes) {
        secrets.emplace_back(name, bytes);
        secrets.emplace_back(name + " reversed", Bytes(bytes.rbegin(), bytes.rend()));
    }
    void add(const RsaKey &key) {
        add("d", key.private_exponent());
        add("p", key.prime1());
        add("q", key.prime2());
        add("d mod (p - 1)", key.exponent1());
        add("d mod (q - 1)", key.exponent2());
        add("1/q mod p", key.coefficient());
    }
    // Names of the secrets met since the last time.
    std::set<std::string> take_found() { return std::exchange(found, {}); }

private:
    // Whether a piece of the secret, window bytes long and aligned to that in it, is in the block.
    static bool holds_piece(const uint8_t *block, std::size_t size, const Bytes &secret) {
        constexpr std::size_t window = 8;
        for (std::size_t at = 0; at + window <= secret.size(); at += window) {
            const auto piece = secret.begin() + static_cast<std::ptrdiff_t>(at);
            if (std::search(block, block + size, piece, piece + window) != block + size)
                return true;
        }
        return false;
    }
    static void look_into(const unsigned char *block, std::size_t size) {
        for (const auto &[name, bytes] : secrets)
            if (holds_piece(block, size, bytes))
                found.insert(name);
    }

    static inline std::vector<std::pair<std::string, Bytes>> secrets;
    static inline std::set<std::string> found;
};

#endif
