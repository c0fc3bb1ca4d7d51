#include "support/base64.h"
#include "support/samples.h"

#include <toolkit/implementations.h>
#include <toolkit/recode.h>

#include <gtest/gtest.h>

#include <iostream>

using namespace toolkit;

namespace {

std::string encode(const Bytes &data, const std::vector<std::size_t> &pieces) {
    RecodeEncoder encoder;
    recode_encode_init(&encoder);
    std::string text;
    const uint8_t *next = data.data();
    for (const std::size_t size : pieces) {
        Bytes out(recode_encode_size(&encoder, size));
        EXPECT_EQ(recode_encode_update(&encoder, out.data(), next, size), out.size());
        text += text_of(out);
        next += size;
    }
    uint8_t last[4];
    text.append(reinterpret_cast<const char *>(last), recode_encode_final(&encoder, last));
    return text;
}

// The bytes, or "refused by update" or "unfinished".
std::string decode_hex(const std::string &text, const std::vector<std::size_t> &pieces) {
    RecodeDecoder decoder;
    recode_decode_init(&decoder);
    Bytes result;
    const Bytes characters = bytes_of(text);
    const uint8_t *next = characters.data();
    for (const std::size_t size : pieces) {
        Bytes out((3 + size) / 4 * 3);
        std::size_t written = 99;
        if (!recode_decode_update(&decoder, out.data(), &written, next, size)) {
            EXPECT_EQ(written, 0u);
            return "refused by update";
        }
        result.insert(result.end(), out.begin(), out.begin() + static_cast<long>(written));
        next += size;
    }
    return recode_decode_final(&decoder) ? to_hex(result) : "unfinished";
}

} // namespace

TEST(Recode, Decoding) {
    const struct {
        const char *why;
        const char *text;
        const char *result;
    } rows[] = {
        {"nothing", "", ""},
        {"white space alone", " \t\r\n", ""},
        {"every value of the alphabet's ends", "AZaz", "0196b3"},
        {"digits and signs", "09+/", "d3dfbf"},
        {"one byte", "Zg==", "66"},
        {"two bytes", "Zm8=", "666f"},
        {"three bytes", "Zm9v", "666f6f"},
        {"white space between any two characters", " Z\tm\r9\nv Z g = = \n", "666f6f66"},
        {"one character is no byte", "Z", "unfinished"},
        {"two characters without padding", "Zg", "unfinished"},
        {"three characters without padding", "Zm8", "unfinished"},
        {"half of the padding", "Zg=", "unfinished"},
        {"padding at the start of a group", "=", "refused by update"},
        {"padding after one character", "Z=", "refused by update"},
        {"three characters of padding", "Zg===", "refused by update"},
        {"a character inside the padding", "Zg=v", "refused by update"},
        {"data after the padding", "Zg==Zg==", "refused by update"},
        {"padding after a full group", "Zm9v=", "refused by update"},
        {"white space after the padding", "Zg== \r\n", "66"},
        {"lowest of four pad bits set", "Zh==", "refused by update"},
        {"highest of four pad bits set", "Zo==", "refused by update"},
        {"lowest of two pad bits set", "Zm9=", "refused by update"},
        {"highest of two pad bits set", "Zm+=", "refused by update"},
        {"the URL alphabet", "Zm-_", "refused by update"},
        {"a vertical tab is no white space", "Zm9v\v", "refused by update"},
        {"a bad character where a group could start", "*", "refused by update"},
    };
    for (const auto &row : rows) {
        const std::string text = row.text;
        EXPECT_EQ(decode_hex(text, {text.size()}), row.result) << row.why;
        EXPECT_EQ(decode_hex(text, std::vector<std::size_t>(text.size(), 1)), row.result)
            << row.why << ", character by character";
    }
}

// Each of the 256 characters, first in a long text, in its middle, and at its end.
TEST(Recode, EveryCharacterEverywhere) {
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::string good(264, 'A');
    for (int character = 0; character < 256; ++character) {
        const char c = static_cast<char>(character);
        for (const std::size_t at : {0, 1, 2, 3, 63, 64, 127, 130, 200, 262, 263}) {
            std::string text = good;
            text[at] = c;
            const std::string result = decode_hex(text, {text.size()});
            const bool in_alphabet = c != 0 && alphabet.find(c) != std::string::npos;
            const bool white = c == ' ' || c == '\t' || c == '\r' || c == '\n';
            if (in_alphabet)
                EXPECT_EQ(encode(from_hex(result), {198}), text) << character << " at " << at;
            else if (white)
                EXPECT_EQ(result, "unfinished") << character << " at " << at;
            else if (c == '=' && at == 263)
                EXPECT_EQ(result, std::string(394, '0')) << at;
            else
                EXPECT_EQ(result, "refused by update") << character << " at " << at;
        }
    }
}

TEST(Recode, PeerOnRandomInput) {
    Samples samples;
    for (const std::size_t length : sample_lengths()) {
        const Bytes data = samples.bytes(length);
        const std::string expected = base64(data);
        EXPECT_EQ(encode(data, {length}), expected) << length;
        EXPECT_EQ(encode(data, samples.pieces(length)), expected) << "in pieces " << length;
        EXPECT_EQ(decode_hex(expected, {expected.size()}), to_hex(data)) << length;
        EXPECT_EQ(decode_hex(expected, samples.pieces(expected.size())), to_hex(data))
            << "in pieces " << length;
    }
}

// Lines of every length up to 100, ended by LF or CR LF, in one piece and in many.
TEST(Recode, Lines) {
    Samples samples;
    for (std::size_t width = 1; width <= 100; ++width) {
        const Bytes data = samples.bytes(500 + samples.below(3));
        const std::string text = base64(data);
        std::string lines;
        for (std::size_t i = 0; i < text.size(); i += width)
            lines += text.substr(i, width) + (width % 2 != 0 ? "\r\n" : "\n");
        EXPECT_EQ(decode_hex(lines, {lines.size()}), to_hex(data)) << width;
        EXPECT_EQ(decode_hex(lines, samples.pieces(lines.size())), to_hex(data)) << width;
    }
}

// The inner loops against the portable ones: every length around the vectors' sizes, buffers of
// exact size, and for decoding a character outside the alphabet at every place.
TEST(Recode, GroupImplementationsAgree) {
    const RecodeGroups &portable = recode_groups[recode_groups_count - 1];
    Samples samples;
    for (std::size_t i = 0; i + 1 < recode_groups_count; ++i) {
        const RecodeGroups &groups = recode_groups[i];
        if (!groups.available()) {
            std::cout << groups.name << " is not available here\n";
            continue;
        }
        for (std::size_t size = 0; size <= 200; ++size) {
            const Bytes data = samples.bytes(size);
            Bytes text(size / 3 * 4), expected_text(size / 3 * 4);
            EXPECT_EQ(groups.encode(text.data(), data.data(), size), size / 3 * 3) << groups.name;
            portable.encode(expected_text.data(), data.data(), size);
            EXPECT_EQ(text_of(text), text_of(expected_text)) << groups.name << " " << size;

            for (std::size_t at = 0; at <= text.size(); ++at) {
                Bytes input = text;
                if (at < input.size())
                    input[at] = static_cast<uint8_t>("\n=-\xc1\x80@[`{*"[samples.below(10)]);
                Bytes ours(input.size() / 4 * 3), expected(input.size() / 4 * 3);
                const std::size_t read = groups.decode(ours.data(), input.data(), input.size());
                ASSERT_EQ(read, portable.decode(expected.data(), input.data(), input.size()))
                    << groups.name << " " << size << " bad at " << at;
                ours.resize(read / 4 * 3);
                expected.resize(read / 4 * 3);
                EXPECT_EQ(ours, expected) << groups.name << " " << size << " bad at " << at;
            }
        }
    }
}
