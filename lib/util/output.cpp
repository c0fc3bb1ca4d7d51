// output.cpp: bytes, armour and hexadecimal text, laid out and written to files.

#include <util/output.h>

#include <algorithm>
#include <cstring>
#include <fcntl.h>

#include <toolkit/traces.h>
#include <util/file.h>
#include <util/hex.h>

namespace {

constexpr int replace_flags = O_WRONLY | O_CREAT | O_TRUNC;
constexpr int append_flags = O_RDWR | O_CREAT | O_APPEND;

bool is_text(int form) {
    return form == QEL_FORM_ARMOUR || form == QEL_FORM_HEX;
}

// Data as armour or hexadecimal digits, in one run.
QelStatus convert(int form, const uint8_t *data, uint32_t length, qel::SecretBytes *text_out,
                  uint32_t *text_length_out) {
    char *text = nullptr;
    QelStatus status;
    if (form == QEL_FORM_ARMOUR) {
        status = __qel_binary_2_rfc1421(data, length, &text, text_length_out);
    } else {
        status = binary_2_hex(data, length, &text);
        *text_length_out = 2 * length;
    }
    if (status == QEL_OK)
        *text_out = {reinterpret_cast<uint8_t *>(text), qel::ZeroAndFree{*text_length_out}};
    return status;
}

QelStatus dump(const char *file_name, int open_flags, int form, const uint8_t *data,
               uint32_t length, uint32_t indent, uint32_t line_width) {
    if (data == nullptr)
        return QEL_ERR_BAD_PARAM;
    Output output;
    output.add_data(form, data, length, indent, line_width);
    if (is_text(form))
        output.add("\n");
    return output.write_file(file_name, open_flags);
}

} // namespace

Output &Output::add(const char *text) {
    return add(reinterpret_cast<const uint8_t *>(text), std::strlen(text));
}

Output &Output::add(const uint8_t *bytes, std::size_t size) {
    if (status_ != QEL_OK || size == 0)
        return *this;
    const std::size_t capacity = bytes_.get_deleter().size;
    if (size > capacity - size_) {
        if (size > SIZE_MAX / 2 - capacity) {
            status_ = QEL_ERR_NO_MEMORY;
            return *this;
        }
        qel::SecretBytes larger = qel::allocate_secret(2 * capacity + size);
        if (!larger) {
            status_ = QEL_ERR_NO_MEMORY;
            return *this;
        }
        std::copy_n(bytes_.get(), size_, larger.get());
        bytes_ = std::move(larger);
    }
    std::memcpy(bytes_.get() + size_, bytes, size);
    size_ += size;
    return *this;
}

Output &Output::add_data(int form, const uint8_t *data, uint32_t length, uint32_t indent,
                         uint32_t line_width) {
    if (status_ != QEL_OK)
        return *this;
    if (data == nullptr || (form != QEL_FORM_RAW && !is_text(form))) {
        status_ = QEL_ERR_BAD_PARAM;
        return *this;
    }
    if (form == QEL_FORM_RAW)
        return add(data, length);

    qel::SecretBytes run;
    uint32_t run_length = 0;
    status_ = convert(form, data, length, &run, &run_length);
    if (status_ != QEL_OK || (indent == 0 && line_width == 0))
        return add(run.get(), run_length);
    char *text = nullptr;
    uint32_t text_length = 0;
    status_ = __qel_format_output(run.get(), run_length, indent, line_width, &text, &text_length);
    const qel::SecretBytes laid_out(reinterpret_cast<uint8_t *>(text),
                                    qel::ZeroAndFree{text_length});
    return add(laid_out.get(), text_length);
}

Output &Output::add_armoured(const char *begin, const uint8_t *data, uint32_t length,
                             const char *end) {
    add(begin).add("\n").add_data(QEL_FORM_ARMOUR, data, length, 0, armour_width);
    return add("\n").add(end).add("\n");
}

QelStatus Output::write_file(const char *name, int open_flags) const {
    if (status_ == QEL_ERR_NO_MEMORY)
        return status_; // no empty file is left behind
    qel::File file;
    QelStatus status = file.open_output(name, open_flags & ~O_TRUNC);
    if (status == QEL_OK)
        status = status_;
    if (status == QEL_OK && (open_flags & O_TRUNC) != 0)
        status = file.make_empty();
    if (status == QEL_OK)
        status = file.write_all(bytes_.get(), size_);
    const QelStatus close_status = file.close_file();
    return status != QEL_OK ? status : close_status;
}

QelStatus __qel_format_output(const uint8_t *data, uint32_t length, uint32_t indent,
                              uint32_t line_width, char **text_out, uint32_t *text_length_out) {
    if (text_out != nullptr)
        *text_out = nullptr;
    if (text_length_out != nullptr)
        *text_length_out = 0;
    if (data == nullptr || length == 0 || text_out == nullptr || text_length_out == nullptr)
        return QEL_ERR_BAD_PARAM;

    const uint32_t width = line_width != 0 ? line_width : length;
    const uint64_t lines = (uint64_t{length} + width - 1) / width;
    const uint64_t prefix = indent != 0 ? uint64_t{indent} + 2 : 0;
    // With fewer than 2^32 lines and prefixes below 2^32 this cannot wrap.
    const uint64_t total = length + (lines - 1) + lines * prefix;
    if (prefix > UINT32_MAX || total >= UINT32_MAX || total >= SIZE_MAX)
        return QEL_ERR_NO_MEMORY;
    auto *text = static_cast<char *>(std::malloc(static_cast<std::size_t>(total) + 1));
    if (text == nullptr)
        return QEL_ERR_NO_MEMORY;

    char *to = text;
    for (uint32_t at = 0; at < length;) {
        if (at != 0)
            *to++ = '\n';
        if (indent != 0) {
            to = std::fill_n(to, indent, ' ');
            *to++ = '0';
            *to++ = 'x';
        }
        const uint32_t piece = std::min(width, length - at);
        to = std::copy_n(reinterpret_cast<const char *>(data) + at, piece, to);
        at += piece;
    }
    *to = '\0';
    *text_out = text;
    *text_length_out = static_cast<uint32_t>(total);
    return QEL_OK;
}

QelStatus __qel_dump_output(const char *file_name, int form, const uint8_t *data, uint32_t length,
                            uint32_t indent, uint32_t line_width) {
    const toolkit::TracesWiped traces;
    return dump(file_name, replace_flags, form, data, length, indent, line_width);
}

QelStatus __qel_dump_append(const char *file_name, int form, const uint8_t *data, uint32_t length) {
    const toolkit::TracesWiped traces;
    return dump(file_name, append_flags, form, data, length, 0, armour_width);
}

QelStatus __qel_fdump_output(FILE *stream, int form, const uint8_t *data, uint32_t length,
                             uint32_t indent, uint32_t line_width) {
    const toolkit::TracesWiped traces;
    if (stream == nullptr)
        return QEL_ERR_BAD_PARAM;
    Output output;
    output.add_data(form, data, length, indent, line_width);
    if (output.status() != QEL_OK)
        return output.status();
    if (output.size() == 0)
        return QEL_OK;
    const std::size_t written = std::fwrite(output.bytes(), 1, output.size(), stream);
    return written == output.size() ? QEL_OK : QEL_ERR_FILE_IO;
}
