#include <toolkit/recode.h>

#include <array>

namespace toolkit {

namespace {

constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

enum : uint8_t { white = 64, pad = 65, bad = 66 };

// The value of each character, or its class.
constexpr std::array<uint8_t, 256> values = [] {
    std::array<uint8_t, 256> table{};
    table.fill(bad);
    for (uint8_t i = 0; i < 64; ++i)
        table[static_cast<uint8_t>(alphabet[i])] = i;
    table[' '] = table['\t'] = table['\r'] = table['\n'] = white;
    table['='] = pad;
    return table;
}();

void encode_group(uint8_t *out, const uint8_t *in) {
    const uint32_t group = static_cast<uint32_t>(in[0]) << 16 | in[1] << 8 | in[2];
    out[0] = static_cast<uint8_t>(alphabet[group >> 18]);
    out[1] = static_cast<uint8_t>(alphabet[group >> 12 & 63]);
    out[2] = static_cast<uint8_t>(alphabet[group >> 6 & 63]);
    out[3] = static_cast<uint8_t>(alphabet[group & 63]);
}

// Whole groups of three bytes. Returns how many bytes were read.
std::size_t encode_groups(uint8_t *out, const uint8_t *in, std::size_t size) {
    std::size_t done = 0;
    for (; size - done >= 3; done += 3, out += 4)
        encode_group(out, in + done);
    return done;
}

// Whole groups of four characters, up to the first that has anything but characters of the
// alphabet. Returns how many characters were read.
std::size_t decode_groups(uint8_t *out, const uint8_t *in, std::size_t size) {
    std::size_t done = 0;
    for (; size - done >= 4; done += 4, out += 3) {
        const uint8_t a = values[in[done]], b = values[in[done + 1]];
        const uint8_t c = values[in[done + 2]], d = values[in[done + 3]];
        if ((a | b | c | d) >= 64)
            break;
        out[0] = static_cast<uint8_t>(a << 2 | b >> 4);
        out[1] = static_cast<uint8_t>(b << 4 | c >> 2);
        out[2] = static_cast<uint8_t>(c << 6 | d);
    }
    return done;
}

constexpr unsigned finished = 4;

// The bytes of a full group. False when bits that padding leaves over are not zero.
bool close_group(RecodeDecoder *decoder, uint8_t *out, std::size_t *written) {
    const uint8_t *const held = decoder->held;
    const uint8_t bytes[3] = {static_cast<uint8_t>(held[0] << 2 | held[1] >> 4),
                              static_cast<uint8_t>(held[1] << 4 | held[2] >> 2),
                              static_cast<uint8_t>(held[2] << 6 | held[3])};
    const unsigned count = 3 - decoder->padding;
    if (count < 3 && bytes[count] != 0)
        return false;
    for (unsigned i = 0; i < count; ++i)
        out[(*written)++] = bytes[i];
    if (decoder->padding == 0)
        decoder->count = 0;
    return true;
}

// One character of a group that cannot be taken whole.
bool decode_character(RecodeDecoder *decoder, uint8_t character, uint8_t *out,
                      std::size_t *written) {
    const uint8_t value = values[character];
    if (value == white)
        return true;
    if (value == bad || decoder->count == finished)
        return false;
    if (value == pad) {
        if (decoder->count < 2)
            return false;
        ++decoder->padding;
    } else if (decoder->padding != 0) {
        return false;
    }
    decoder->held[decoder->count++] = value == pad ? 0 : value;
    return decoder->count < 4 || close_group(decoder, out, written);
}

} // namespace

void recode_encode_init(RecodeEncoder *encoder) {
    *encoder = RecodeEncoder{};
}

std::size_t recode_encode_size(const RecodeEncoder *encoder, std::size_t size) {
    return (size / 3 + (encoder->count + size % 3) / 3) * 4;
}

std::size_t recode_encode_update(RecodeEncoder *encoder, uint8_t *out, const uint8_t *in,
                                 std::size_t size) {
    uint8_t *const start = out;
    if (encoder->count != 0) {
        for (; encoder->count < 3 && size != 0; --size)
            encoder->held[encoder->count++] = *in++;
        if (encoder->count < 3)
            return 0;
        encode_group(out, encoder->held);
        out += 4;
        encoder->count = 0;
    }
    const std::size_t done = encode_groups(out, in, size);
    out += done / 3 * 4;
    for (std::size_t i = done; i < size; ++i)
        encoder->held[encoder->count++] = in[i];
    return static_cast<std::size_t>(out - start);
}

std::size_t recode_encode_final(RecodeEncoder *encoder, uint8_t *out) {
    const unsigned count = encoder->count;
    if (count == 0)
        return 0;
    for (unsigned i = count; i < 3; ++i)
        encoder->held[i] = 0;
    encode_group(out, encoder->held);
    for (unsigned i = count + 1; i < 4; ++i)
        out[i] = '=';
    *encoder = RecodeEncoder{};
    return 4;
}

void recode_decode_init(RecodeDecoder *decoder) {
    *decoder = RecodeDecoder{};
}

bool recode_decode_update(RecodeDecoder *decoder, uint8_t *out, std::size_t *out_size,
                          const uint8_t *in, std::size_t size) {
    std::size_t written = 0;
    *out_size = 0;
    for (std::size_t i = 0; i < size;) {
        if (decoder->count == 0) {
            const std::size_t done = decode_groups(out + written, in + i, size - i);
            i += done;
            written += done / 4 * 3;
            if (i == size)
                break;
        }
        if (!decode_character(decoder, in[i++], out, &written))
            return false;
    }
    *out_size = written;
    return true;
}

bool recode_decode_final(RecodeDecoder *decoder) {
    return decoder->count == 0 || decoder->count == finished;
}

} // namespace toolkit
