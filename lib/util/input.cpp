// input.cpp: whole files, as they are or out of armour or hexadecimal text.

#include <qel/qelp.h>

#include <algorithm>

#include <lib/memory.h>
#include <util/file.h>
#include <util/input.h>

namespace {

constexpr std::size_t chunk_size = 1024;

// Room for a chunk and a zero byte behind the bytes that are there. A block that is outgrown is
// zeroed: it may hold a key.
QelStatus make_room(qel::SecretBytes *buffer, std::size_t length) {
    const std::size_t size = buffer->get_deleter().size;
    if (*buffer != nullptr && size - length > chunk_size)
        return QEL_OK;
    if (length > UINT32_MAX - chunk_size - 1 || size > SIZE_MAX / 2 - chunk_size - 1)
        return QEL_ERR_NO_MEMORY;
    qel::SecretBytes larger = qel::allocate_secret(2 * size + chunk_size + 1);
    if (!larger)
        return QEL_ERR_NO_MEMORY;
    std::copy_n(buffer->get(), length, larger.get());
    *buffer = std::move(larger);
    return QEL_OK;
}

QelStatus read_hex(const char *text, uint32_t length, uint8_t **buffer_out, uint32_t *length_out) {
    char *digits = nullptr;
    if (const QelStatus status = __qel_parse_hex(text, length, &digits); status != QEL_OK)
        return status;
    const qel::SecretBytes owner(reinterpret_cast<uint8_t *>(digits),
                                 qel::ZeroAndFree{std::strlen(digits)});
    return __qel_hex_2_binary(digits, buffer_out, length_out);
}

} // namespace

QelStatus decode_text(int form, const char *text, uint32_t length, uint8_t **bytes_out,
                      uint32_t *length_out) {
    *bytes_out = nullptr;
    *length_out = 0;
    switch (form) {
    case QEL_FORM_ARMOUR:
        return __qel_rfc1421_2_binary(text, length, bytes_out, length_out);
    case QEL_FORM_HEX:
        return read_hex(text, length, bytes_out, length_out);
    default:
        return QEL_ERR_BAD_PARAM;
    }
}

QelStatus __qel_read_ostr_file(const char *file_name, uint8_t **buffer_out, uint32_t *length_out) {
    if (buffer_out != nullptr)
        *buffer_out = nullptr;
    if (length_out != nullptr)
        *length_out = 0;
    if (buffer_out == nullptr || length_out == nullptr)
        return QEL_ERR_BAD_PARAM;

    qel::File file;
    if (const QelStatus status = file.open_input(file_name); status != QEL_OK)
        return status;
    qel::SecretBytes buffer;
    std::size_t total = 0;
    for (std::size_t count = 1; count != 0; total += count) {
        if (const QelStatus status = make_room(&buffer, total); status != QEL_OK)
            return status;
        if (const QelStatus status = file.read_some(buffer.get() + total, chunk_size, &count);
            status != QEL_OK)
            return status;
    }
    *buffer_out = buffer.release();
    *length_out = static_cast<uint32_t>(total);
    return QEL_OK;
}

QelStatus __qel_read_input(const char *file_name, int form, uint8_t **buffer_out,
                           uint32_t *length_out) {
    const QelStatus status = __qel_read_ostr_file(file_name, buffer_out, length_out);
    if (status != QEL_OK || (form != QEL_FORM_ARMOUR && form != QEL_FORM_HEX))
        return status;
    const uint32_t length = *length_out;
    const qel::SecretBytes owner(*buffer_out, qel::ZeroAndFree{length});
    const auto *text = reinterpret_cast<const char *>(owner.get());
    return decode_text(form, text, length, buffer_out, length_out);
}
