#include "export_policy.h"

#include "cipher.h"
#include "texts.h"

namespace tool {
namespace {

constexpr std::size_t most_key_bytes = most_effective_bits / 8;
constexpr uint8_t most_odd_byte = 0x0f;

PolicyRule des_rule(std::span<const uint8_t> key) {
    for (std::size_t i = 1; i < key.size(); i += 2)
        if (key[i] > most_odd_byte)
            return {text_of(Text::byte_above_0f, {std::to_string(i)}),
                    text_of(Text::use_key_made_by, {"des"})};
    return {};
}

} // namespace

PolicyRule cipher_rule(const CipherRow &cipher, std::span<const uint8_t> key,
                       unsigned effective_bits) {
    switch (cipher.kind) {
    case CipherKind::des3:
        return {text_of(Text::no_triple_des), text_of(Text::encrypt_within_40)};
    case CipherKind::des:
        return des_rule(key);
    case CipherKind::rc2:
    case CipherKind::rc4:
        break;
    }
    const std::string name = cipher.name;
    if (key.size() > most_key_bytes)
        return {text_of(Text::keys_have_at_most, {std::to_string(key.size()), cipher.text}),
                text_of(Text::use_key_made_by, {name})};
    if (cipher.kind == CipherKind::rc2 && effective_bits > most_effective_bits)
        return {text_of(Text::too_many_effective_bits, {std::to_string(effective_bits)}),
                text_of(Text::fewer_effective_bits)};
    return {};
}

PolicyRule generated_modulus_rule(unsigned bits) {
    if (bits <= most_generated_bits)
        return {};
    return {text_of(Text::made_keys_have_at_most, {std::to_string(bits)}),
            text_of(Text::ask_for_512)};
}

PolicyRule unwrapping_modulus_rule(unsigned bytes) {
    if (bytes <= most_unwrap_bytes)
        return {};
    return {text_of(Text::unwrapping_keys_have_at_most, {std::to_string(bytes)}),
            text_of(Text::wrap_for_4096)};
}

Failure policy_failure(QelStatus status, std::string what, const PolicyRule &rule) {
    if (status == QEL_ERR_DOUBLE_ENCRYPT) {
        Failure failure = library_failure(status, std::move(what));
        failure.why += text_of(Text::same_as_output);
        return failure;
    }
    const bool known = status == QEL_ERR_EXPORT && !rule.broken.empty();
    Failure failure = library_failure(status, std::move(what), known ? rule.advice : "");
    if (known)
        failure.why += " (" + rule.broken + ")";
    return failure;
}

} // namespace tool
