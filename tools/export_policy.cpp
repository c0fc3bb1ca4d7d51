#include "export_policy.h"

#include "cipher.h"

namespace tool {
namespace {

constexpr std::size_t most_key_bytes = most_effective_bits / 8;
constexpr uint8_t most_odd_byte = 0x0f;

PolicyRule des_rule(std::span<const uint8_t> key) {
    for (std::size_t i = 1; i < key.size(); i += 2)
        if (key[i] > most_odd_byte)
            return {"the key's byte at position " + std::to_string(i) +
                        " is above 0F; of the positions 0 to 7 of a DES key, 1, 3, 5 and 7 have at "
                        "most 4 bits",
                    "Use a key that 'qel genkey des' made."};
    return {};
}

} // namespace

PolicyRule cipher_rule(const CipherRow &cipher, std::span<const uint8_t> key,
                       unsigned effective_bits) {
    switch (cipher.kind) {
    case CipherKind::des3:
        return {"triple DES is not for data",
                "Have the data encrypted with DES, RC2 or RC4, within 40 bits."};
    case CipherKind::des:
        return des_rule(key);
    case CipherKind::rc2:
    case CipherKind::rc4:
        break;
    }
    const std::string name = cipher.name;
    if (key.size() > most_key_bytes)
        return {"the key has " + std::to_string(key.size()) + " bytes; " + cipher.text +
                    " keys have at most 5",
                "Use a key that 'qel genkey " + name + "' made."};
    if (cipher.kind == CipherKind::rc2 && effective_bits > most_effective_bits)
        return {"the parameters have " + std::to_string(effective_bits) +
                    " effective key bits; at most 40 are allowed",
                "Encrypt with --effective-bits 40 or fewer."};
    return {};
}

PolicyRule generated_modulus_rule(unsigned bits) {
    if (bits <= most_generated_bits)
        return {};
    return {"a modulus of " + std::to_string(bits) +
                " bits was asked for; RSA keys that are made have at most 512",
            "Ask for 512 bits; 'qel keypkg import' takes a longer key made elsewhere."};
}

PolicyRule unwrapping_modulus_rule(unsigned bytes) {
    if (bytes <= most_unwrap_bytes)
        return {};
    return {"the private key's modulus has " + std::to_string(bytes) +
                " bytes; keys that unwrap have at most 512 (4096 bits)",
            "Have the key wrapped for an RSA key of at most 4096 bits."};
}

Failure policy_failure(QelStatus status, std::string what, const PolicyRule &rule) {
    if (status == QEL_ERR_DOUBLE_ENCRYPT) {
        Failure failure = library_failure(status, std::move(what));
        failure.why += " (a part of the data begins with the same 64 bytes as the output just "
                       "made, which must not be encrypted or decrypted again)";
        return failure;
    }
    const bool known = status == QEL_ERR_EXPORT && !rule.broken.empty();
    Failure failure = library_failure(status, std::move(what), known ? rule.advice : "");
    if (known)
        failure.why += " (" + rule.broken + ")";
    return failure;
}

} // namespace tool
