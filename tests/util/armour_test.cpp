#include "support/arguments.h"
#include "support/base64.h"
#include "support/made.h"
#include "support/process.h"
#include "support/samples.h"

#include <util/armour.h>

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>

namespace {

constexpr int kWrite = O_WRONLY | O_CREAT | O_TRUNC;

Samples samples;

std::string without_white_space(std::string text) {
    std::erase_if(text, [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; });
    return text;
}

Made decode(const Bytes &text) {
    return made_by([&](uint8_t **bytes, uint32_t *length) {
        return __qel_rfc1421_2_binary(reinterpret_cast<const char *>(text.data()),
                                      static_cast<uint32_t>(text.size()), bytes, length);
    });
}

Made encode(const Bytes &bytes) {
    return made_by([&](char **text, uint32_t *length) {
        return __qel_binary_2_rfc1421(bytes.data(), static_cast<uint32_t>(bytes.size()), text,
                                      length);
    });
}

TEST(Armour, encodes_as_libcrypto_does_and_decodes_back) {
    for (std::size_t size = 1; size < 400; ++size) {
        const Bytes bytes = samples.bytes(size);
        ASSERT_EQ(encode(bytes), Made(QEL_OK, base64(bytes)));
        ASSERT_EQ(decode(bytes_of(base64(bytes))), Made(QEL_OK, text_of(bytes)));
    }
}

TEST(Armour, spoiled_text_is_refused_or_is_the_encoding_of_something_else) {
    for (const std::size_t size : {57, 58, 59}) {
        std::string good = base64(samples.bytes(size));
        good.insert(64, "\n");
        each_spoiled(bytes_of(good), [](const Bytes &spoiled, const std::string &what) {
            const auto [status, bytes] = decode(spoiled);
            if (status == QEL_OK) {
                EXPECT_EQ(base64(bytes_of(bytes)), without_white_space(text_of(spoiled))) << what;
            } else {
                EXPECT_EQ(status, spoiled.empty() ? QEL_ERR_BAD_PARAM : QEL_ERR_FROM_RFC1421);
            }
        });
    }
}

TEST(Armour, refuses_missing_arguments_and_impossible_lengths) {
    const uint8_t byte = 'Z';
    auto *text = reinterpret_cast<char *>(1);
    auto *bytes = reinterpret_cast<uint8_t *>(1);
    uint32_t length = 77;
    each_missing(QEL_ERR_BAD_PARAM, __qel_binary_2_rfc1421, {}, &byte, 1, &text, &length);
    each_missing(QEL_ERR_BAD_PARAM, __qel_rfc1421_2_binary, {}, "Z", 1, &bytes, &length);
    EXPECT_TRUE(text == nullptr && bytes == nullptr && length == 0);
    EXPECT_EQ(__qel_binary_2_rfc1421(&byte, 0x80000000, &text, &length), QEL_ERR_NO_MEMORY);
    EXPECT_EQ(__qel_rfc1421_2_binary("Z", UINT32_MAX, &bytes, &length), QEL_ERR_NO_MEMORY);
}

TEST(Armour, reports_a_failed_allocation) {
    each_allocation_of(
        [](char **text, uint32_t *length) {
            return __qel_binary_2_rfc1421(reinterpret_cast<const uint8_t *>("foo"), 3, text,
                                          length);
        },
        "Zm9v");
    each_allocation_of(
        [](uint8_t **bytes, uint32_t *length) {
            return __qel_rfc1421_2_binary("Zm9v", 4, bytes, length);
        },
        "foo");
}

// ---- Sessions -----------------------------------------------------------------------------------

struct EndSession {
    void operator()(Rfc1421Session *session) const {
        EXPECT_EQ(rfc1421_session_end(session), QEL_OK);
    }
};
using OwnedSession = std::unique_ptr<Rfc1421Session, EndSession>;

OwnedSession start(QelStatus (*init)(Rfc1421Session **)) {
    Rfc1421Session *session = nullptr;
    EXPECT_EQ(init(&session), QEL_OK);
    return OwnedSession(session);
}

// What an update function makes of input that comes in pieces.
template <class In, class Out>
std::string in_pieces(QelStatus (*update)(Rfc1421Session *, const In *, uint32_t, Out **,
                                          uint32_t *, uint32_t *),
                      Rfc1421Session *session, const std::string &input) {
    constexpr bool encodes = std::is_same_v<Out, char>;
    const auto *next = reinterpret_cast<const In *>(input.data());
    std::string output;
    for (const std::size_t piece : samples.pieces(input.size())) {
        const auto size = static_cast<uint32_t>(piece);
        if (size == 0) // which is refused
            continue;
        Out *buffer = nullptr;
        uint32_t room = 0, produced = 0;
        EXPECT_EQ(update(session, next, size, &buffer, &room, &produced), QEL_OK);
        const qel::Owned<Out> owner(buffer);
        EXPECT_TRUE(encodes ? room == std::max(2 * size, 4U) : room >= size) << room;
        output.append(buffer, buffer + produced);
        next += size;
    }
    return output;
}

TEST(ArmourSession, pieces_give_what_the_whole_gives) {
    for (std::size_t length = 150; length < 240; ++length) {
        const Bytes bytes = samples.bytes(length);
        const OwnedSession encoder = start(rfc1421_enc_init), decoder = start(rfc1421_dec_init);
        char rest[4];
        uint8_t last[1];
        uint32_t produced = 77;
        std::string text = in_pieces(rfc1421_enc_update, encoder.get(), text_of(bytes));
        ASSERT_EQ(rfc1421_enc_final(encoder.get(), rest, sizeof rest, &produced), QEL_OK);
        text.append(rest, produced);
        ASSERT_EQ(text, base64(bytes));
        ASSERT_EQ(in_pieces(rfc1421_dec_update, decoder.get(), text), text_of(bytes));
        ASSERT_EQ(rfc1421_dec_final(decoder.get(), last, sizeof last, &produced), QEL_OK);
        ASSERT_EQ(produced, 0U);
    }
}

TEST(ArmourSession, a_callers_buffer_has_a_least_size) {
    const Bytes bytes = samples.bytes(30);
    const std::string text = base64(bytes);
    char characters[60];
    uint8_t back[40];
    char *text_buffer = characters;
    uint8_t *buffer = back;
    uint32_t produced = 0;
    const OwnedSession encoder = start(rfc1421_enc_init);
    const OwnedSession decoder = start(rfc1421_dec_init);
    for (uint32_t size : {59, 60}) {
        EXPECT_EQ(
            rfc1421_enc_update(encoder.get(), bytes.data(), 30, &text_buffer, &size, &produced),
            size == 60 ? QEL_OK : QEL_ERR_BUFFER_SIZE);
        EXPECT_EQ(std::string(text_buffer, produced), size == 60 ? text : "");
    }
    for (uint32_t size : {39, 40}) {
        EXPECT_EQ(rfc1421_dec_update(decoder.get(), text.data(), 40, &buffer, &size, &produced),
                  size == 40 ? QEL_OK : QEL_ERR_BUFFER_SIZE);
        EXPECT_EQ(Bytes(buffer, buffer + produced), size == 40 ? bytes : Bytes());
    }
}

// Two bytes are held; a third makes a group of four, for which the least buffer is too small.
TEST(ArmourSession, a_held_group_that_does_not_fit_is_not_lost) {
    const OwnedSession session = start(rfc1421_enc_init);
    char characters[4];
    char *buffer = characters;
    uint32_t produced = 0;
    const auto *foo = reinterpret_cast<const uint8_t *>("foo");
    uint32_t size = 4;
    ASSERT_EQ(rfc1421_enc_update(session.get(), foo, 2, &buffer, &size, &produced), QEL_OK);
    ASSERT_EQ(produced, 0U);
    size = 2;
    EXPECT_EQ(rfc1421_enc_update(session.get(), foo + 2, 1, &buffer, &size, &produced),
              QEL_ERR_BUFFER_SIZE);
    size = 4;
    EXPECT_EQ(rfc1421_enc_update(session.get(), foo + 2, 1, &buffer, &size, &produced), QEL_OK);
    EXPECT_EQ(std::string(characters, produced), "Zm9v");
}

TEST(ArmourSession, refuses_and_hands_out_no_buffer) {
    Rfc1421Session empty = {};
    const OwnedSession session = start(rfc1421_enc_init);
    Rfc1421Session *s = session.get();
    const uint8_t byte = 0;
    char text[8];
    uint8_t bytes[8];
    char *t = text;
    uint8_t *b = bytes;
    uint32_t size = 8;
    uint32_t produced = 0;
    for (const QelStatus status :
         {rfc1421_enc_init(nullptr), rfc1421_dec_init(nullptr), rfc1421_session_end(nullptr),
          rfc1421_session_end(&empty), rfc1421_enc_update(&empty, &byte, 1, &t, &size, &produced),
          rfc1421_dec_update(&empty, "A", 1, &b, &size, &produced),
          rfc1421_enc_final(&empty, text, 8, &produced),
          rfc1421_dec_final(&empty, bytes, 8, &produced)})
        EXPECT_EQ(status, QEL_ERR_BAD_PARAM);
    each_missing(QEL_ERR_BAD_PARAM, rfc1421_enc_update, {}, s, &byte, 1, &t, &size, &produced);
    each_missing(QEL_ERR_BAD_PARAM, rfc1421_enc_final, {}, s, text, 8, &produced);
    t = nullptr;
    b = nullptr;
    EXPECT_EQ(rfc1421_enc_update(s, &byte, 0x80000000, &t, &size, &produced), QEL_ERR_NO_MEMORY);
    const OwnedSession decoder = start(rfc1421_dec_init);
    EXPECT_EQ(rfc1421_dec_update(decoder.get(), "Zm9v*", 5, &b, &size, &produced),
              QEL_ERR_FROM_RFC1421);
    EXPECT_TRUE(t == nullptr && b == nullptr && produced == 0);
}

// ---- Files --------------------------------------------------------------------------------------

class ArmourFiles : public testing::Test {
protected:
    TemporaryFolder folder;
    const std::string in = folder.path("in");
    const std::string out = folder.path("out");

    QelStatus encode_files() {
        return __qel_binary_2_rfc1421_files(in.c_str(), out.c_str(), kWrite);
    }
    QelStatus decode_files(int flags = kWrite) {
        return __qel_rfc1421_2_binary_files(in.c_str(), out.c_str(), flags);
    }
    QelStatus wrap_files(int type) {
        return __qel_add_linewraps(type, in.c_str(), out.c_str(), kWrite);
    }
    void put(const std::string &text) const { write_file(in, bytes_of(text)); }
    std::string got() const { return text_of(read_file(out)); }
};

TEST_F(ArmourFiles, encode_wrap_and_decode) {
    for (const std::size_t size : {0, 1, 2, 3, 1023, 1024, 1025, 100000}) {
        SCOPED_TRACE(size);
        const Bytes bytes = samples.bytes(size);
        const std::string text = base64(bytes) + "\n";
        write_file(in, bytes);
        ASSERT_EQ(encode_files(), QEL_OK);
        ASSERT_EQ(got(), text);
        put(text); // one line, however long
        ASSERT_EQ(decode_files(), QEL_OK);
        ASSERT_EQ(read_file(out), bytes);
        ASSERT_EQ(wrap_files(QEL_ARMOUR_KEYPKG), QEL_OK);
        std::filesystem::rename(out, in);
        ASSERT_EQ(decode_files(), QEL_OK);
        ASSERT_EQ(read_file(out), bytes);
    }
}

TEST_F(ArmourFiles, decoding_passes_over_marker_lines) {
    const struct {
        const char *reason;
        std::string text;
        const char *bytes; // null: refused
    } rows[] = {
        {"markers around", "-----BEGIN X-----\nZm9v\n-----END X-----\n", "foo"},
        {"a marker needs no more than its hyphens", "-----\nZm9v\n", "foo"},
        {"four hyphens are none", "----\nZm9v\n", nullptr},
        {"hyphens inside a line are none", " -----\n", nullptr},
        {"a marker inside a group", "Zm\n-----\n9v\n", "foo"},
        {"a last line without newline", "Zm9v\nYmFy", "foobar"},
        {"a last marker without newline", "Zm9v\n-----END", "foo"},
        {"an empty line and carriage returns", "-----\r\n\r\nZm9v\r\n", "foo"},
        {"a marker longer than a block", "-----" + std::string(3000, 'A') + "\nZm9v\n", "foo"},
        {"hyphens at a block's start but inside a line", std::string(1024, 'A') + "-----\n",
         nullptr},
        {"prose", "Certificate:\nZm9v\n", nullptr},
        {"a second text after padding", "Zg==\n-----\nZg==\n", nullptr},
        {"an unfinished group", "Zm9vY\n", nullptr},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        put(row.text);
        EXPECT_EQ(decode_files(), row.bytes != nullptr ? QEL_OK : QEL_ERR_FROM_RFC1421);
        EXPECT_TRUE(row.bytes == nullptr || got() == row.bytes) << got();
    }
}

TEST_F(ArmourFiles, decoding_is_the_same_wherever_a_block_ends) {
    const Bytes bytes = samples.bytes(3000);
    std::string body = base64(bytes);
    for (std::size_t at = 64; at < body.size(); at += 65)
        body.insert(at, "\n");
    for (std::size_t shift = 0; shift < 80; ++shift) {
        put("-----" + std::string(shift, 'B') + "\n" + body + "\n-----END\n");
        ASSERT_EQ(decode_files(), QEL_OK) << shift;
        ASSERT_EQ(read_file(out), bytes) << shift;
    }
}

// Of several types the first here counts.
TEST_F(ArmourFiles, wrapping_frames_the_text) {
    const std::pair<int, std::string> types[] = {
        {64, "ENCRYPTION INFO AND ENCRYPTED DATA"},
        {32, "ENCRYPTION INFO"},
        {1, "CERTIFICATE"},
        {2, "KEYPKG"},
        {4, "DIGITAL SIGNATURE"},
        {8, "DIGITAL SIGNATURE AND DATA SIGNED"},
        {16, "ENCRYPTED DATA"},
    };
    put("a");
    int later = 127;
    for (const auto &[type, label] : types) {
        for (const int asked : {type, later}) {
            EXPECT_EQ(wrap_files(asked), QEL_OK);
            EXPECT_EQ(got(), "-----BEGIN " + label + "-----\na\n-----END " + label + "-----\n");
        }
        later -= type;
    }
    for (const int none : {0, 128}) {
        EXPECT_EQ(wrap_files(none), QEL_OK);
        EXPECT_EQ(got(), "a\n");
    }
}

TEST_F(ArmourFiles, wrapping_cuts_lines_of_64_characters) {
    const std::string a63(63, 'a'), a64(64, 'a');
    const struct {
        const char *reason;
        std::string from, to;
    } rows[] = {
        {"nothing", "", ""},
        {"a full line", a64, a64 + "\n"},
        {"a character more", a64 + "b", a64 + "\nb\n"},
        {"a newline that ends a full line stays alone", a63 + "\nb", a63 + "\nb\n"},
        {"so does one that ends the input", "a\n", "a\n"},
        {"a newline inside a line counts", "b\n" + a64, "b\n" + a64.substr(2) + "\naa\n"},
    };
    for (const auto &row : rows) {
        put(row.from);
        EXPECT_EQ(wrap_files(QEL_ARMOUR_NONE), QEL_OK) << row.reason;
        EXPECT_EQ(got(), row.to) << row.reason;
    }
}

// A file with prose around or in its armour cannot be decoded line by line; the others must give
// what encodes to their lines.
TEST_F(ArmourFiles, historical_files_decode) {
    int decoded = 0;
    for (const std::string &name : vector_names("armour")) {
        SCOPED_TRACE(name);
        std::ifstream file(vector_path(name));
        std::string body;
        for (std::string line; std::getline(file, line);)
            body += line.rfind("-----", 0) == 0 ? "" : line;
        const bool has_prose = body.find_first_of(":-<.,") != std::string::npos;
        EXPECT_EQ(__qel_rfc1421_2_binary_files(vector_path(name).c_str(), out.c_str(), kWrite),
                  has_prose ? QEL_ERR_FROM_RFC1421 : QEL_OK);
        if (!has_prose) {
            ++decoded;
            EXPECT_EQ(base64(read_file(out)), without_white_space(body));
        }
    }
    EXPECT_GE(decoded, 10);
}

TEST_F(ArmourFiles, are_opened_with_the_callers_flags_for_their_owner_alone) {
    put("Zm9v\n");
    const mode_t mask = umask(0);
    EXPECT_EQ(decode_files(O_WRONLY), QEL_ERR_OPEN_FILE); // not there and not to be made
    EXPECT_EQ(decode_files(O_WRONLY | O_CREAT | O_EXCL), QEL_OK);
    umask(mask);
    EXPECT_EQ(std::filesystem::status(out).permissions(), std::filesystem::perms(0600));
    EXPECT_EQ(decode_files(O_WRONLY | O_CREAT | O_EXCL), QEL_ERR_OPEN_FILE);
    EXPECT_EQ(decode_files(O_WRONLY | O_APPEND), QEL_OK);
    EXPECT_EQ(got(), "foofoo");
    EXPECT_EQ(decode_files(O_RDONLY), QEL_ERR_FILE_IO);
    std::filesystem::remove(in);
    EXPECT_EQ(decode_files(), QEL_ERR_OPEN_FILE);
    std::filesystem::create_directory(in);
    EXPECT_EQ(decode_files(), QEL_ERR_FILE_IO);
}

TEST_F(ArmourFiles, no_name_is_a_standard_descriptor) {
    const Bytes bytes = samples.bytes(5000);
    const std::string text = base64(bytes) + "\n";
    for (const char *name : {static_cast<const char *>(nullptr), ""}) {
        put("Zm9v\n");
        EXPECT_EQ(output_of([&] {
                      EXPECT_EQ(__qel_rfc1421_2_binary_files(in.c_str(), name, 0), QEL_OK);
                  }),
                  "foo");
        with_input(text_of(bytes), [&] { // comes in pieces
            EXPECT_EQ(__qel_binary_2_rfc1421_files(name, out.c_str(), kWrite), QEL_OK);
        });
        EXPECT_EQ(got(), text);
        with_input(text, [&] {
            EXPECT_EQ(__qel_rfc1421_2_binary_files(name, out.c_str(), kWrite), QEL_OK);
        });
        EXPECT_EQ(read_file(out), bytes);
    }
}

// Runs convert with every single call of a kind failing. Returns how many there were.
std::size_t fail_each(fault::Call call, QelStatus expected,
                      const std::function<QelStatus()> &convert) {
    for (std::size_t nth = 1;; ++nth) {
        fault::fail(call, nth);
        const QelStatus status = convert();
        const bool struck = fault::clear(call);
        EXPECT_EQ(status, struck ? expected : QelStatus{QEL_OK}) << "time " << nth;
        if (!struck)
            return nth - 1;
    }
}

TEST_F(ArmourFiles, report_what_the_system_refuses) {
    using fault::Call;
    put(base64(samples.bytes(1536))); // two blocks
    const struct {
        const char *reason;
        std::size_t writes, allocations; // at least
        std::function<QelStatus()> convert;
    } rows[] = {
        {"encode", 3, 2, [&] { return encode_files(); }},
        {"decode", 2, 2, [&] { return decode_files(); }},
        {"wrap", 4, 0, [&] { return wrap_files(QEL_ARMOUR_CERTIFICATE); }},
    };
    const NoDescriptorIsLeft watch;
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        EXPECT_EQ(fail_each(Call::open, QEL_ERR_OPEN_FILE, row.convert), 2U);
        EXPECT_EQ(fail_each(Call::read, QEL_ERR_FILE_IO, row.convert), 3U);
        EXPECT_GE(fail_each(Call::write, QEL_ERR_FILE_IO, row.convert), row.writes);
        EXPECT_EQ(fail_each(Call::close, QEL_ERR_FILE_IO, row.convert), 2U);
        EXPECT_GE(fail_each(Call::allocate, QEL_ERR_NO_MEMORY, row.convert), row.allocations);
    }
}

} // namespace
