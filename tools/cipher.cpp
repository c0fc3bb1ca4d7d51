#include "cipher.h"

#include "command.h"
#include "export_policy.h"
#include "texts.h"

#include <algorithm>
#include <iterator>

namespace tool {
namespace {

constexpr CipherRow ciphers[] = {
    {CipherKind::des, "des", "DES-CBC", &QEL_DES_CBC_OID, 8, 8, 8, 8},
    {CipherKind::rc2, "rc2", "RC2-CBC", &QEL_RC2_CBC_OID, 8, 1, 128, 5},
    {CipherKind::rc4, "rc4", "RC4", &QEL_RC4_OID, 1, 1, 256, 5},
    {CipherKind::des3, "des3", "triple DES-CBC", &QEL_DES3_CBC_OID, 8, 24, 24, 24},
};

// The library gets pieces of this size, so that how the data arrived makes no difference.
constexpr std::size_t piece_size = std::size_t{64} << 10;
constexpr std::size_t most_growth = 24; // of a piece, in the library's reckoning

int digit_value(uint8_t c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    const int letter = c | 0x20;
    return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

} // namespace

const CipherRow &cipher_named(const std::string &name) {
    for (const CipherRow &row : ciphers)
        if (name == row.name)
            return row;
    return ciphers[0];
}

const CipherRow *find_cipher(const QelOid *algorithm) {
    for (const CipherRow &row : ciphers) {
        int difference = 1;
        if (__qel_cmp_oid(*row.oid, algorithm, &difference) == QEL_OK && difference == 0)
            return &row;
    }
    return nullptr;
}

// ---- Parameters --------------------------------------------------------------------------------

Bytes encode_parameters(const Context &context, const CipherRow &row, std::span<const uint8_t> iv,
                        unsigned effective_bits) {
    if (row.block == 1)
        return {};
    if (row.kind != CipherKind::rc2) {
        const Bytes copy(iv.begin(), iv.end());
        const QelOctetString octets = {static_cast<uint32_t>(copy.size()),
                                       const_cast<uint8_t *>(copy.data())};
        return encode(context, &octets, QEL_PDU_OctetString, text_of(Text::initialisation_vector));
    }
    QelOctetString *encoded = nullptr;
    const QelStatus status =
        __qel_encode_rc2_params_cpkit(context, iv.data(), effective_bits, &encoded);
    if (status != QEL_OK)
        throw library_failure(status, text_of(Text::cannot_encode_rc2));
    const Bytes bytes(encoded->value, encoded->value + encoded->length);
    __qel_free_ostr(&encoded);
    return bytes;
}

void take_parameters(const Context &context, Cipher &cipher, std::span<const uint8_t> encoded,
                     const std::string &where) {
    const std::string what = text_of(Text::cannot_use_parameters, {cipher.row->text, where});
    if (cipher.row->block == 1)
        return;
    if (encoded.empty())
        throw Failure{Exit::input, what, text_of(Text::no_parameters),
                      text_of(Text::check_right_file)};
    cipher.parameters.assign(encoded.begin(), encoded.end());
    QelStatus status = QEL_OK;
    if (cipher.row->kind == CipherKind::rc2) {
        const QelOctetString octets = {static_cast<uint32_t>(cipher.parameters.size()),
                                       cipher.parameters.data()};
        uint32_t bits = 0;
        status = __qel_get_effective_keysize(context, &octets, &bits);
        cipher.effective_bits = bits;
    } else {
        const auto iv =
            decode<QelOctetString>(context, cipher.parameters, QEL_PDU_OctetString, &status);
        if (iv && iv->length != iv_bytes)
            throw Failure{Exit::input, what, text_of(Text::iv_length, {std::to_string(iv->length)}),
                          text_of(Text::check_right_file)};
    }
    if (status != QEL_OK)
        throw Failure{Exit::input, what, status_words(status), text_of(Text::check_right_file),
                      status};
}

AlgorithmRecord::AlgorithmRecord(const Cipher &cipher)
    : parameters{static_cast<uint32_t>(cipher.parameters.size()),
                 const_cast<uint8_t *>(cipher.parameters.data())},
      id{const_cast<QelOid *>(*cipher.row->oid),
         cipher.parameters.empty() ? nullptr : &parameters} {}

// ---- Keys --------------------------------------------------------------------------------------

Bytes hex_line(std::span<const uint8_t> bytes) {
    constexpr const char *digits = "0123456789abcdef";
    Bytes text;
    text.reserve(2 * bytes.size() + 1);
    for (const uint8_t byte : bytes) {
        text.push_back(static_cast<uint8_t>(digits[byte >> 4]));
        text.push_back(static_cast<uint8_t>(digits[byte & 0x0f]));
    }
    text.push_back('\n');
    return text;
}

std::optional<Bytes> from_hex(std::span<const uint8_t> text) {
    Bytes bytes;
    bytes.reserve(text.size() / 2 + 1);
    int high = -1;
    for (const uint8_t c : text) {
        if (c == ' ' || c == '\t' || c == '\r' || c == '\n')
            continue;
        const int value = digit_value(c);
        if (value < 0)
            return std::nullopt;
        if (high < 0) {
            high = value;
            continue;
        }
        bytes.push_back(static_cast<uint8_t>(high << 4 | value));
        high = -1;
    }
    if (high >= 0 || bytes.empty())
        return std::nullopt;
    return bytes;
}

Bytes read_key_file(const std::string &path, bool hexadecimal) {
    warn_if_open_to_others(path);
    Bytes bytes = read_whole(path);
    const std::string what = text_of(Text::cannot_use_key_in, {display_name(path)});
    if (bytes.empty())
        throw Failure{Exit::input, what, text_of(Text::the_file_is_empty),
                      text_of(Text::check_right_file)};
    if (!hexadecimal)
        return bytes;
    std::optional<Bytes> key = from_hex(bytes);
    if (!key)
        throw Failure{Exit::input, what, text_of(Text::not_hexadecimal),
                      text_of(Text::leave_key_hex_out)};
    return std::move(*key);
}

void write_key_file(const std::string &path, std::span<const uint8_t> key,
                    const Arguments &arguments) {
    const FileOptions options = {.secret = true, .force = arguments.has("force")};
    if (!arguments.has("hex"))
        return write_file(path, key, options);
    write_file(path, hex_line(key), options);
}

void check_key_size(const CipherRow &row, std::size_t size, const std::string &where) {
    if (size >= row.least && size <= row.most)
        return;
    const std::string wanted = row.least == row.most
                                   ? std::to_string(row.least)
                                   : text_of(Text::number_to_number,
                                             {std::to_string(row.least), std::to_string(row.most)});
    throw Failure{Exit::input, text_of(Text::cannot_use_key_in, {where}),
                  text_of(Text::key_size, {std::to_string(size), row.text, wanted}),
                  text_of(Text::check_file_and_algorithm)};
}

Bytes random_bytes(std::size_t count) {
    Bytes bytes(count);
    for (std::size_t at = 0; at < count;) {
        const auto piece = static_cast<uint16_t>(std::min<std::size_t>(count - at, UINT16_MAX));
        uint8_t *target = bytes.data() + at;
        const QelStatus status = qel_random(piece, &target);
        if (status != QEL_OK)
            throw library_failure(status, text_of(Text::cannot_get_random));
        at += piece;
    }
    return bytes;
}

// ---- Data --------------------------------------------------------------------------------------

CipherRun::CipherRun(const Context &context, Direction direction, const Cipher &cipher,
                     std::string what)
    : context_(context), direction_(direction), cipher_(cipher), what_(std::move(what)),
      algorithm_(cipher), result_(piece_size + most_growth) {
    waiting_.reserve(piece_size);
}

uint64_t CipherRun::encrypted_size(const CipherRow &row, uint64_t size) {
    return row.block == 1 ? size : (size / row.block + 1) * row.block;
}

void CipherRun::step(std::span<const uint8_t> data, uint32_t mode, const Sink &take) {
    uint8_t *output = result_.data();
    auto length = static_cast<uint32_t>(result_.size());
    const auto run = direction_ == Direction::encrypt ? qel_encrypt : qel_decrypt;
    const QelStatus status =
        run(context_, data.empty() ? nullptr : data.data(), static_cast<uint32_t>(data.size()),
            mode, &algorithm_.id, cipher_.key.data(), static_cast<uint32_t>(cipher_.key.size()),
            &algorithm_.id, &output, &length);
    if (status != QEL_OK) {
        PolicyRule rule = cipher_rule(*cipher_.row, cipher_.key, cipher_.effective_bits);
        if (direction_ == Direction::decrypt)
            rule.advice = text_of(Text::encrypt_within_policy);
        throw policy_failure(status, what_, rule);
    }
    if (length != 0)
        take({output, length});
}

void CipherRun::add(std::span<const uint8_t> data, const Sink &take) {
    while (!data.empty()) {
        const std::size_t count = std::min(data.size(), piece_size - waiting_.size());
        waiting_.insert(waiting_.end(), data.begin(), data.begin() + static_cast<long>(count));
        data = data.subspan(count);
        if (waiting_.size() < piece_size)
            return;
        step(waiting_, QEL_MODE_UPDATE, take);
        begun_ = true;
        waiting_.clear();
    }
}

void CipherRun::finish(const Sink &take) {
    if (!begun_ && waiting_.empty())
        return finish_nothing(take);
    step(waiting_, QEL_MODE_FINAL, take);
    waiting_.clear();
}

// The library takes no empty data. What it would make of them in CBC is a block of padding (eight
// times 08, PKCS#5) encrypted, with which the encryption of just such a block begins.
void CipherRun::finish_nothing(const Sink &take) {
    if (cipher_.row->block == 1)
        return;
    if (direction_ == Direction::decrypt)
        throw library_failure(QEL_ERR_DECRYPT, what_);
    const Bytes padding(cipher_.row->block, static_cast<uint8_t>(cipher_.row->block));
    step(padding, QEL_MODE_FINAL,
         [&](std::span<const uint8_t> blocks) { take(blocks.first(padding.size())); });
}

} // namespace tool
