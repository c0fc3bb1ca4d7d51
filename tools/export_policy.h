// export_policy.h: the library's export policy (QEL_ERR_EXPORT, QEL_ERR_DOUBLE_ENCRYPT) in words: the
// rule that refused, seen from what the library was given.
#ifndef TOOLS_EXPORT_POLICY_H
#define TOOLS_EXPORT_POLICY_H

#include "status.h"

#include <cstdint>
#include <span>
#include <string>

namespace tool {

struct CipherRow;

constexpr unsigned most_effective_bits = 40;
constexpr unsigned most_generated_bits = 512; // of the modulus of a new RSA key
constexpr unsigned most_unwrap_bytes = 512;   // of the modulus of the key that unwraps

struct PolicyRule {
    std::string broken; // which rule, by what; empty where no rule that is known was broken
    std::string advice;
};
PolicyRule cipher_rule(const CipherRow &cipher, std::span<const uint8_t> key,
                       unsigned effective_bits);
PolicyRule generated_modulus_rule(unsigned bits);
PolicyRule unwrapping_modulus_rule(unsigned bytes);

// A failure of the library; where the policy is the reason, the rule stands beside the status.
Failure policy_failure(QelStatus status, std::string what, const PolicyRule &rule);

} // namespace tool

#endif
