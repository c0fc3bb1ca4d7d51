// The portable look-ups depend on the data: timing through the data cache is not hidden. The vector
// versions look up in registers.
#include <toolkit/implementations.h>
#include <toolkit/recode.h>

#include "recode_groups.h"

#include <array>
#include <iterator>

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

constexpr unsigned finished = 4;

// The bytes of a full group. False when bits that padding leaves over are not zero.
[[gnu::always_inline]] inline bool close_group(RecodeDecoder *decoder, uint8_t **out) {
    const uint32_t bits = decoder->bits;
    *(*out)++ = static_cast<uint8_t>(bits >> 16);
    if (decoder->padding == 2)
        return (bits & 0xffff) == 0;
    *(*out)++ = static_cast<uint8_t>(bits >> 8);
    if (decoder->padding == 1)
        return (bits & 0xff) == 0;
    *(*out)++ = static_cast<uint8_t>(bits);
    decoder->bits = 0;
    decoder->count = 0;
    return true;
}

// One character of a group that cannot be taken whole.
[[gnu::always_inline]] inline bool decode_character(RecodeDecoder *decoder, uint8_t character,
                                                    uint8_t **out) {
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
    decoder->bits = decoder->bits << 6 | (value == pad ? 0 : value);
    return ++decoder->count < 4 || close_group(decoder, out);
}

// A whole group that padding ends, the usual end of a text: how many characters were read, 4 or 0
// when it is anything else.
std::size_t take_padded_group(RecodeDecoder *decoder, const uint8_t *in, uint8_t **out) {
    const uint8_t a = values[in[0]], b = values[in[1]], c = values[in[2]];
    if (in[3] != '=' || (a | b) >= 64 || (c >= 64 && c != pad))
        return 0;
    decoder->padding = c == pad ? 2 : 1;
    decoder->bits = static_cast<uint32_t>(a << 18 | b << 12 | (c == pad ? 0 : c << 6));
    decoder->count = finished;
    return close_group(decoder, out) ? 4 : 0;
}

} // namespace

// ---- Groups

std::size_t recode_encode_portable(uint8_t *out, const uint8_t *in, std::size_t size) {
    std::size_t done = 0;
    for (; size - done >= 3; done += 3, out += 4)
        encode_group(out, in + done);
    return done;
}

std::size_t recode_decode_portable(uint8_t *out, const uint8_t *in, std::size_t size) {
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

namespace {

bool always() {
    return true;
}

} // namespace

const RecodeGroups recode_groups[] = {
#if TOOLKIT_HAS_X86_VECTORS
    {"AVX-512", has_avx512, recode_encode_avx512, recode_decode_avx512},
    {"AVX2", has_avx2, recode_encode_avx2, recode_decode_avx2},
#endif
    {"portable", always, recode_encode_portable, recode_decode_portable},
};
const std::size_t recode_groups_count = std::size(recode_groups);

namespace {

const RecodeGroups &fastest() {
    const RecodeGroups *row = recode_groups;
    while (!row->available())
        ++row;
    return *row;
}

} // namespace

// ---- Encoding

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
    const std::size_t done = fastest().encode(out, in, size);
    out += done / 3 * 4;
    encoder->count = static_cast<unsigned>(size - done);
    if (encoder->count > 0)
        encoder->held[0] = in[done];
    if (encoder->count > 1)
        encoder->held[1] = in[done + 1];
    return static_cast<std::size_t>(out - start);
}

std::size_t recode_encode_final(RecodeEncoder *encoder, uint8_t *out) {
    const unsigned count = encoder->count;
    if (count == 0)
        return 0;
    const uint8_t group[3] = {encoder->held[0], count == 2 ? encoder->held[1] : uint8_t{0}, 0};
    encode_group(out, group);
    if (count == 1)
        out[2] = '=';
    out[3] = '=';
    *encoder = RecodeEncoder{};
    return 4;
}

// ---- Decoding

void recode_decode_init(RecodeDecoder *decoder) {
    *decoder = RecodeDecoder{};
}

bool recode_decode_update(RecodeDecoder *decoder, uint8_t *out, std::size_t *out_size,
                          const uint8_t *in, std::size_t size) {
    const RecodeGroups &groups = fastest();
    RecodeDecoder state = *decoder;
    uint8_t *const start = out;
    *out_size = 0;
    // A group that ends in padding is no work for the groups: where they end is then known
    // beforehand.
    const std::size_t body = size >= 4 && in[size - 1] == '=' ? size - 4 : size;
    for (std::size_t i = 0; i < size;) {
        if (state.count == 0) {
            const std::size_t done = i < body ? groups.decode(out, in + i, body - i) : 0;
            i += done;
            out += done / 4 * 3;
            if (size - i >= 4)
                i += take_padded_group(&state, in + i, &out);
            if (i == size)
                break;
        }
        if (!decode_character(&state, in[i++], &out))
            return false;
    }
    *decoder = state;
    *out_size = static_cast<std::size_t>(out - start);
    return true;
}

bool recode_decode_final(RecodeDecoder *decoder) {
    const bool whole = decoder->count == 0 || decoder->count == finished;
    *decoder = RecodeDecoder{};
    return whole;
}

} // namespace toolkit
