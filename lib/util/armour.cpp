// armour.cpp: the printable encoding of RFC 1421 in memory, in pieces and between files, and the
// lines and markers that make it armoured text.

#include <util/armour.h>

#include <algorithm>
#include <cstring>

#include <lib/memory.h>
#include <toolkit/traces.h>
#include <util/file.h>

using namespace toolkit;
using qel::File;

namespace {

constexpr std::size_t block_size = 1024;
constexpr std::size_t line_size = 64;
constexpr char marker_start[] = "-----";
constexpr std::size_t marker_start_size = sizeof marker_start - 1;

// In the order in which a type code is tested.
constexpr ArmourMarkers markers[] = {
    {QEL_ARMOUR_ENCRYPTION_INFO_AND_DATA, "-----BEGIN ENCRYPTION INFO AND ENCRYPTED DATA-----",
     "-----END ENCRYPTION INFO AND ENCRYPTED DATA-----"},
    {QEL_ARMOUR_ENCRYPTION_INFO, "-----BEGIN ENCRYPTION INFO-----",
     "-----END ENCRYPTION INFO-----"},
    {QEL_ARMOUR_CERTIFICATE, "-----BEGIN CERTIFICATE-----", "-----END CERTIFICATE-----"},
    {QEL_ARMOUR_KEYPKG, "-----BEGIN KEYPKG-----", "-----END KEYPKG-----"},
    {QEL_ARMOUR_SIGNATURE, "-----BEGIN DIGITAL SIGNATURE-----", "-----END DIGITAL SIGNATURE-----"},
    {QEL_ARMOUR_SIGNATURE_AND_DATA, "-----BEGIN DIGITAL SIGNATURE AND DATA SIGNED-----",
     "-----END DIGITAL SIGNATURE AND DATA SIGNED-----"},
    {QEL_ARMOUR_ENCRYPTED_DATA, "-----BEGIN ENCRYPTED DATA-----", "-----END ENCRYPTED DATA-----"},
};

// One direction of the encoding: the toolkit's calls, the status of a refusal, and sizes.
struct Direction {
    int (*init)(B_ALGORITHM_OBJ);
    int (*update)(B_ALGORITHM_OBJ, uint8_t *, uint32_t *, uint32_t, const uint8_t *, uint32_t);
    int (*final)(B_ALGORITHM_OBJ, uint8_t *, uint32_t *, uint32_t);
    QelStatus refused;
    uint32_t room; // a caller's buffer has this for each byte or character of input
    uint32_t group_in, group_out;
};

constexpr Direction encoding = {
    B_EncodeInit, B_EncodeUpdate, B_EncodeFinal, QEL_ERR_TO_RFC1421, 2, 3, 4,
};
constexpr Direction decoding = {
    B_DecodeInit, B_DecodeUpdate, B_DecodeFinal, QEL_ERR_FROM_RFC1421, 1, 4, 3,
};

// What an update with length bytes of input may put out when a group is nearly full before it. For
// very short inputs that is more than room.
uint64_t longest_output(const Direction &direction, uint32_t length) {
    const uint64_t groups = (uint64_t{length} + direction.group_in - 1) / direction.group_in;
    return groups * direction.group_out;
}

QelStatus status_of(const Direction &direction, int toolkit_error) {
    switch (toolkit_error) {
    case BE_OK:
        return QEL_OK;
    case BE_ALLOC:
        return QEL_ERR_NO_MEMORY;
    case BE_OUTPUT_LEN:
        return QEL_ERR_BUFFER_SIZE;
    default:
        return direction.refused;
    }
}

struct EndSession {
    void operator()(Rfc1421Session *session) const { rfc1421_session_end(session); }
};
using OwnedSession = std::unique_ptr<Rfc1421Session, EndSession>;

QelStatus session_init(const Direction &direction, Rfc1421Session **session_out) {
    if (session_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *session_out = nullptr;
    qel::Owned<Rfc1421Session> cell(qel::allocate<Rfc1421Session>());
    if (!cell || B_CreateAlgorithmObject(&cell->object) != 0)
        return QEL_ERR_NO_MEMORY;
    OwnedSession session(cell.release());
    int error = B_SetAlgorithmInfo(session->object, AI_RFC1113Recode, nullptr);
    if (error == 0)
        error = direction.init(session->object);
    if (error != 0)
        return status_of(direction, error);
    *session_out = session.release();
    return QEL_OK;
}

QelStatus session_update(const Direction &direction, Rfc1421Session *session, const uint8_t *input,
                         uint32_t input_length, uint8_t **buffer, uint32_t *size,
                         uint32_t *produced) {
    if (produced != nullptr)
        *produced = 0;
    if (session == nullptr || session->object == nullptr || input == nullptr || input_length == 0 ||
        buffer == nullptr || size == nullptr || produced == nullptr)
        return QEL_ERR_BAD_PARAM;
    const uint64_t demanded = uint64_t{input_length} * direction.room;
    if (*buffer != nullptr) {
        if (*size < demanded)
            return QEL_ERR_BUFFER_SIZE;
        return status_of(direction, direction.update(session->object, *buffer, produced, *size,
                                                     input, input_length));
    }

    const uint64_t room = std::max(demanded, longest_output(direction, input_length));
    if (room > UINT32_MAX || room > SIZE_MAX)
        return QEL_ERR_NO_MEMORY;
    qel::SecretBytes made = qel::allocate_secret(static_cast<std::size_t>(room));
    if (!made)
        return QEL_ERR_NO_MEMORY;
    const int error = direction.update(session->object, made.get(), produced,
                                       static_cast<uint32_t>(room), input, input_length);
    if (error != 0)
        return status_of(direction, error);
    *buffer = made.release();
    *size = static_cast<uint32_t>(room);
    return QEL_OK;
}

QelStatus session_final(const Direction &direction, Rfc1421Session *session, uint8_t *buffer,
                        uint32_t size, uint32_t *produced) {
    if (produced != nullptr)
        *produced = 0;
    if (session == nullptr || session->object == nullptr || buffer == nullptr || size == 0 ||
        produced == nullptr)
        return QEL_ERR_BAD_PARAM;
    return status_of(direction, direction.final(session->object, buffer, produced, size));
}

// Input that is whole, into a new buffer of room bytes.
QelStatus convert(const Direction &direction, const uint8_t *input, uint32_t length, uint64_t room,
                  uint8_t **output_out, uint32_t *output_length_out) {
    if (output_out != nullptr)
        *output_out = nullptr;
    if (output_length_out != nullptr)
        *output_length_out = 0;
    if (input == nullptr || length == 0 || output_out == nullptr || output_length_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    if (room > UINT32_MAX || room > SIZE_MAX)
        return QEL_ERR_NO_MEMORY;

    Rfc1421Session *made = nullptr;
    if (const QelStatus status = session_init(direction, &made); status != QEL_OK)
        return status;
    const OwnedSession session(made);
    qel::SecretBytes output = qel::allocate_secret(static_cast<std::size_t>(room));
    if (!output)
        return QEL_ERR_NO_MEMORY;
    const auto size = static_cast<uint32_t>(room);
    uint32_t produced = 0;
    uint32_t rest = 0;
    int error = direction.update(session->object, output.get(), &produced, size, input, length);
    if (error == 0)
        error = direction.final(session->object, output.get() + produced, &rest, size - produced);
    if (error != 0)
        return status_of(direction, error);
    *output_out = output.release();
    *output_length_out = produced + rest;
    return QEL_OK;
}

// ---- Files --------------------------------------------------------------------------------------

// Opens both files, lets convert_stream work on them and closes them; the first failure counts.
QelStatus between_files(const char *input_name, const char *output_name, int open_flags,
                        QelStatus (*convert_stream)(const File &, const File &, int), int type) {
    File input;
    File output;
    if (input.open_input(input_name) != QEL_OK ||
        output.open_output(output_name, open_flags) != QEL_OK)
        return QEL_ERR_OPEN_FILE;
    QelStatus status = convert_stream(input, output, type);
    const QelStatus output_status = output.close_file();
    const QelStatus input_status = input.close_file();
    if (status != QEL_OK)
        return status;
    return output_status != QEL_OK ? output_status : input_status;
}

QelStatus encode_stream(const File &input, const File &output, int) {
    Rfc1421Session *made = nullptr;
    if (const QelStatus status = rfc1421_enc_init(&made); status != QEL_OK)
        return status;
    const OwnedSession session(made);
    qel::SecretArray<block_size> block;
    qel::SecretArray<2 * block_size> room;
    char *const text = reinterpret_cast<char *>(room.bytes);
    char *buffer = text;
    uint32_t size = sizeof room.bytes;
    uint32_t produced = 0;
    for (;;) {
        std::size_t length = 0;
        QelStatus status = input.read_some(block.bytes, sizeof block.bytes, &length);
        if (status != QEL_OK)
            return status;
        if (length == 0)
            break;
        status = rfc1421_enc_update(made, block.bytes, static_cast<uint32_t>(length), &buffer,
                                    &size, &produced);
        if (status == QEL_OK)
            status = output.write_all(text, produced);
        if (status != QEL_OK)
            return status;
    }
    QelStatus status = rfc1421_enc_final(made, text, size, &produced);
    if (status == QEL_OK)
        status = output.write_all(text, produced);
    return status != QEL_OK ? status : output.write_all("\n", 1);
}

// Feeds the lines of armoured text to a decoder and passes over the marker lines. Text comes in
// pieces: a line with its newline, or a part of a line that is too long for a block.
struct LineDecoder {
    Rfc1421Session *session;
    bool at_line_start = true;
    bool in_marker = false;
    uint32_t used = 0;
    qel::SecretArray<2 *block_size> decoded = {}; // and not written yet: of one block at most

    QelStatus piece(const char *text, std::size_t length) {
        if (at_line_start)
            in_marker = length >= marker_start_size &&
                        std::memcmp(text, marker_start, marker_start_size) == 0;
        at_line_start = text[length - 1] == '\n';
        if (in_marker)
            return QEL_OK;
        uint8_t *buffer = decoded.bytes + used;
        uint32_t size = static_cast<uint32_t>(sizeof decoded.bytes) - used;
        uint32_t produced = 0;
        const QelStatus status = rfc1421_dec_update(session, text, static_cast<uint32_t>(length),
                                                    &buffer, &size, &produced);
        used += produced;
        return status;
    }

    QelStatus write_out(const File &output) {
        const QelStatus status = output.write_all(decoded.bytes, used);
        used = 0;
        return status;
    }
};

// Takes the pieces off the front of text; *taken bytes are done with. A line that has not ended yet
// is left, unless it fills the block or is the last.
QelStatus decode_pieces(LineDecoder *lines, const char *text, std::size_t length, bool is_last,
                        std::size_t *taken) {
    *taken = 0;
    while (*taken < length) {
        const char *start = text + *taken;
        const std::size_t left = length - *taken;
        const auto *newline = static_cast<const char *>(std::memchr(start, '\n', left));
        if (newline == nullptr && !is_last && left < block_size)
            return QEL_OK;
        const std::size_t size =
            newline != nullptr ? static_cast<std::size_t>(newline + 1 - start) : left;
        if (const QelStatus status = lines->piece(start, size); status != QEL_OK)
            return status;
        *taken += size;
    }
    return QEL_OK;
}

QelStatus decode_stream(const File &input, const File &output, int) {
    Rfc1421Session *made = nullptr;
    if (const QelStatus status = rfc1421_dec_init(&made); status != QEL_OK)
        return status;
    const OwnedSession session(made);
    LineDecoder lines{made};
    qel::SecretArray<block_size> room;
    char *const block = reinterpret_cast<char *>(room.bytes);
    std::size_t held = 0;
    for (bool is_last = false; !is_last;) {
        std::size_t length = 0;
        std::size_t taken = 0;
        QelStatus status = input.read_some(block + held, block_size - held, &length);
        is_last = length == 0;
        held += length;
        if (status == QEL_OK)
            status = decode_pieces(&lines, block, held, is_last, &taken);
        if (status == QEL_OK)
            status = lines.write_out(output);
        if (status != QEL_OK)
            return status;
        held -= taken;
        std::memmove(block, block + taken, held);
    }
    if (const QelStatus status =
            rfc1421_dec_final(made, lines.decoded.bytes, sizeof lines.decoded.bytes, &lines.used);
        status != QEL_OK)
        return status;
    return lines.write_out(output);
}

// Pieces never span two blocks, so that a short read ends a line early.
std::size_t wrap_block(const uint8_t *block, std::size_t length, uint8_t *out) {
    std::size_t written = 0;
    for (std::size_t done = 0; done < length;) {
        const std::size_t piece = std::min(line_size, length - done);
        std::memcpy(out + written, block + done, piece);
        done += piece;
        written += piece;
        if (block[done - 1] != '\n')
            out[written++] = '\n';
    }
    return written;
}

QelStatus wrap_stream(const File &input, const File &output, int type) {
    const ArmourMarkers *around = armour_markers(type);
    if (around != nullptr) {
        if (const QelStatus status = output.write_line(around->begin); status != QEL_OK)
            return status;
    }
    qel::SecretArray<block_size> block;
    qel::SecretArray<block_size + block_size / line_size> lines;
    for (;;) {
        std::size_t length = 0;
        if (const QelStatus status = input.read_some(block.bytes, sizeof block.bytes, &length);
            status != QEL_OK)
            return status;
        if (length == 0)
            break;
        const std::size_t written = wrap_block(block.bytes, length, lines.bytes);
        if (const QelStatus status = output.write_all(lines.bytes, written); status != QEL_OK)
            return status;
    }
    if (around == nullptr)
        return QEL_OK;
    return output.write_line(around->end);
}

} // namespace

const ArmourMarkers *armour_markers(int type) {
    for (const ArmourMarkers &row : markers) {
        if ((type & row.type) != 0)
            return &row;
    }
    return nullptr;
}

QelStatus rfc1421_enc_init(Rfc1421Session **session_out) {
    return session_init(encoding, session_out);
}

QelStatus rfc1421_enc_update(Rfc1421Session *session, const uint8_t *input, uint32_t input_length,
                             char **buffer, uint32_t *size, uint32_t *produced) {
    auto *bytes = buffer != nullptr ? reinterpret_cast<uint8_t *>(*buffer) : nullptr;
    const QelStatus status = session_update(encoding, session, input, input_length,
                                            buffer != nullptr ? &bytes : nullptr, size, produced);
    if (buffer != nullptr)
        *buffer = reinterpret_cast<char *>(bytes);
    return status;
}

QelStatus rfc1421_enc_final(Rfc1421Session *session, char *buffer, uint32_t size,
                            uint32_t *produced) {
    return session_final(encoding, session, reinterpret_cast<uint8_t *>(buffer), size, produced);
}

QelStatus rfc1421_dec_init(Rfc1421Session **session_out) {
    return session_init(decoding, session_out);
}

QelStatus rfc1421_dec_update(Rfc1421Session *session, const char *input, uint32_t input_length,
                             uint8_t **buffer, uint32_t *size, uint32_t *produced) {
    return session_update(decoding, session, reinterpret_cast<const uint8_t *>(input), input_length,
                          buffer, size, produced);
}

QelStatus rfc1421_dec_final(Rfc1421Session *session, uint8_t *buffer, uint32_t size,
                            uint32_t *produced) {
    return session_final(decoding, session, buffer, size, produced);
}

QelStatus rfc1421_session_end(Rfc1421Session *session) {
    if (session == nullptr || session->object == nullptr)
        return QEL_ERR_BAD_PARAM;
    B_DestroyAlgorithmObject(&session->object);
    std::free(session);
    return QEL_OK;
}

QelStatus __qel_binary_2_rfc1421(const uint8_t *bytes, uint32_t length, char **text_out,
                                 uint32_t *text_length_out) {
    const toolkit::TracesWiped traces;
    // A single byte comes out as four characters.
    const uint64_t room = std::max<uint64_t>(uint64_t{2} * length, encoding.group_out);
    uint8_t *text = nullptr;
    const QelStatus status = convert(encoding, bytes, length, room,
                                     text_out != nullptr ? &text : nullptr, text_length_out);
    if (text_out != nullptr)
        *text_out = reinterpret_cast<char *>(text);
    return status;
}

QelStatus __qel_rfc1421_2_binary(const char *text, uint32_t length, uint8_t **bytes_out,
                                 uint32_t *bytes_length_out) {
    const toolkit::TracesWiped traces;
    return convert(decoding, reinterpret_cast<const uint8_t *>(text), length, uint64_t{length} + 1,
                   bytes_out, bytes_length_out);
}

QelStatus __qel_binary_2_rfc1421_files(const char *input_name, const char *output_name,
                                       int open_flags) {
    const toolkit::TracesWiped traces;
    return between_files(input_name, output_name, open_flags, encode_stream, 0);
}

QelStatus __qel_rfc1421_2_binary_files(const char *input_name, const char *output_name,
                                       int open_flags) {
    const toolkit::TracesWiped traces;
    return between_files(input_name, output_name, open_flags, decode_stream, 0);
}

QelStatus __qel_add_linewraps(int type, const char *input_name, const char *output_name,
                              int open_flags) {
    const toolkit::TracesWiped traces;
    return between_files(input_name, output_name, open_flags, wrap_stream, type);
}
