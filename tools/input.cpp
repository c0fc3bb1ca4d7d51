#include "input.h"

#include "der.h"
#include "output.h"
#include "status.h"
#include "text.h"
#include "texts.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include <qel/qelp.h>

namespace tool {
namespace {

using namespace std::string_view_literals;

std::string_view view(const Bytes &bytes) {
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

bool is_base64(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' ||
           c == '/' || c == '=';
}

// Whether bytes are one element of BER as far as its outermost tag and length can tell.
bool looks_like_ber(const Bytes &bytes) {
    Header header;
    return read_header(bytes, header) && header.tag == 0x30 &&
           (header.indefinite || header.length == bytes.size() - header.size);
}

// Base 64 of the lines of a block, without their blanks.
void decode_body(Item &item, std::string_view body) {
    Bytes text;
    text.reserve(body.size());
    for (const char c : body) {
        if (is_blank(c))
            continue;
        if (!is_base64(c)) {
            item.problem = text_of(Text::not_base64);
            return;
        }
        text.push_back(static_cast<uint8_t>(c));
    }
    if (text.empty()) {
        item.problem = text_of(Text::nothing_between);
        return;
    }
    uint8_t *bytes = nullptr;
    uint32_t length = 0;
    const QelStatus status =
        __qel_rfc1421_2_binary(reinterpret_cast<const char *>(text.data()),
                               static_cast<uint32_t>(text.size()), &bytes, &length);
    if (status != QEL_OK) {
        item.problem = status_words(status);
        return;
    }
    item.bytes.assign(bytes, bytes + length);
    explicit_bzero(bytes, length);
    std::free(bytes);
    if (length == 0)
        item.problem = text_of(Text::text_is_cut);
}

// Lines of a text, one after the other.
class Lines {
public:
    explicit Lines(std::string_view text) : rest_(text) {}
    bool next(std::string_view &line) {
        if (rest_.empty())
            return false;
        const std::size_t end = std::min(rest_.find('\n'), rest_.size());
        line = rest_.substr(0, end);
        rest_.remove_prefix(std::min(end + 1, rest_.size()));
        while (!line.empty() && is_blank(line.back()))
            line.remove_suffix(1);
        ++number_;
        return true;
    }
    std::size_t number() const { return number_; }
    const char *position() const { return rest_.data(); }

private:
    std::string_view rest_;
    std::size_t number_ = 0;
};

// Some editors begin a text with a mark of its byte order, which is no part of it.
std::string_view without_byte_order_mark(std::string_view text) {
    constexpr std::string_view mark = "\xef\xbb\xbf";
    return text.starts_with(mark) ? text.substr(mark.size()) : text;
}

// The label of a line "-----BEGIN label-----"; false for other lines.
bool marker(std::string_view line, std::string_view verb, std::string_view &label) {
    constexpr std::string_view dashes = "-----";
    line = without_byte_order_mark(line);
    if (line.size() <= 2 * dashes.size() + verb.size() || !line.starts_with(dashes) ||
        !line.ends_with(dashes) || line.substr(dashes.size(), verb.size()) != verb)
        return false;
    line.remove_prefix(dashes.size() + verb.size());
    line.remove_suffix(dashes.size());
    label = line;
    return true;
}

// A block may begin with header lines "Name: value" up to an empty line (RFC 1421).
std::string_view without_headers(Item &item, std::string_view body) {
    const std::size_t first = body.substr(0, body.find('\n')).find(':');
    if (first == body.npos)
        return body;
    Lines lines(body);
    std::string_view line;
    while (lines.next(line) && !line.empty())
        if (line.starts_with("Proc-Type:") && line.find("ENCRYPTED") != line.npos)
            item.encrypted = true;
    return body.substr(static_cast<std::size_t>(lines.position() - body.data()));
}

std::vector<Item> find_blocks(std::string_view text) {
    std::vector<Item> items;
    Lines lines(text);
    std::string_view line, label;
    const char *begin = nullptr; // of the body of the last item, while that is open
    const char *end = lines.position();
    for (; lines.next(line); end = lines.position()) {
        if (marker(line, "BEGIN ", label)) {
            if (begin != nullptr)
                items.back().problem = text_of(Text::end_is_missing);
            Item &item = items.emplace_back();
            item.label = label;
            item.line = lines.number();
            begin = lines.position();
        } else if (begin != nullptr && marker(line, "END ", label)) {
            Item &item = items.back();
            const std::string_view body(begin, static_cast<std::size_t>(end - begin));
            if (label == item.label)
                decode_body(item, without_headers(item, body));
            else
                item.problem = text_of(Text::end_is_anothers);
            begin = nullptr;
        }
    }
    if (begin != nullptr)
        items.back().problem = text_of(Text::end_is_missing);
    return items;
}

} // namespace

std::string display_name(const std::string &path) {
    return path == "-" ? text_of(Text::standard_input) : in_quotes(path);
}

// How far long work has come, on a terminal only.
struct Source::Progress {
    explicit Progress(const std::string &path)
        : shown_to_(isatty(STDERR_FILENO) != 0), name_(display_name(path)), next_(now() + second) {}
    ~Progress() {
        if (written_)
            std::fputs("\r\033[K", stderr);
    }
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    void add(std::size_t bytes) {
        total_ += bytes;
        if (!shown_to_ || now() < next_)
            return;
        next_ = now() + second;
        written_ = true;
        std::fprintf(stderr, "\r\033[K%s: %llu MiB", name_.c_str(),
                     static_cast<unsigned long long>(total_ >> 20));
    }

private:
    static constexpr std::chrono::seconds second{1};
    static std::chrono::steady_clock::time_point now() { return std::chrono::steady_clock::now(); }
    bool shown_to_;
    bool written_ = false;
    std::string name_;
    std::chrono::steady_clock::time_point next_;
    uint64_t total_ = 0;
};

Source::Source(const std::string &path)
    : path_(path),
      descriptor_(path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (descriptor_ < 0)
        throw system_failure(Exit::input, text_of(Text::cannot_open, {display_name(path)}), errno);
    progress_ = std::make_unique<Progress>(path);
}

Source::~Source() {
    if (descriptor_ > STDERR_FILENO)
        close(descriptor_);
}

std::size_t Source::read_into(std::span<uint8_t> buffer) {
    for (;;) {
        const ssize_t count = read(descriptor_, buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            throw system_failure(Exit::input, text_of(Text::cannot_read, {display_name(path_)}),
                                 errno);
        progress_->add(static_cast<std::size_t>(count));
        return static_cast<std::size_t>(count);
    }
}

std::optional<uint64_t> Source::size() const {
    struct stat about;
    if (fstat(descriptor_, &about) != 0 || !S_ISREG(about.st_mode))
        return std::nullopt;
    const off_t position = lseek(descriptor_, 0, SEEK_CUR);
    if (position < 0 || position > about.st_size)
        return std::nullopt;
    return static_cast<uint64_t>(about.st_size - position);
}

void each_block(const std::string &path,
                const std::function<void(std::span<const uint8_t>)> &take) {
    Source source(path);
    Bytes buffer(std::size_t{256} << 10);
    while (const std::size_t count = source.read_into(buffer))
        take(std::span(buffer).first(count));
}

Bytes read_whole(const std::string &path) {
    Bytes bytes;
    each_block(path, [&](std::span<const uint8_t> block) {
        if (block.size() > most_bytes - bytes.size())
            throw Failure{Exit::input, text_of(Text::cannot_use, {display_name(path)}),
                          text_of(Text::too_large), text_of(Text::check_right_file)};
        bytes.insert(bytes.end(), block.begin(), block.end());
    });
    return bytes;
}

std::string Input::name_of(const Item &item) const {
    if (items.size() < 2)
        return display_name(path);
    return text_of(Text::block_of, {display_name(path), std::to_string(&item - items.data() + 1),
                                    escaped(item.label), std::to_string(item.line)});
}

Input parse_input(const std::string &path, Bytes contents) {
    Input input;
    input.path = path;
    if (contents.empty())
        throw Failure{Exit::input, text_of(Text::cannot_use, {display_name(path)}),
                      text_of(Text::file_is_empty), text_of(Text::check_right_file)};
    if (!looks_like_ber(contents)) {
        input.items = find_blocks(view(contents));
        input.armoured = !input.items.empty();
        if (input.armoured)
            return input;
        const std::string_view text = without_byte_order_mark(view(contents));
        if (std::all_of(text.begin(), text.end(),
                        [](char c) { return is_base64(c) || is_blank(c); })) {
            Item item;
            decode_body(item, text);
            if (item.problem.empty()) {
                input.decoded = true;
                input.items.push_back(std::move(item));
                return input;
            }
        }
    }
    input.items.emplace_back().bytes = std::move(contents);
    return input;
}

Input read_input(const std::string &path) {
    return parse_input(path, read_whole(path));
}

void warn_if_open_to_others(const std::string &path) {
    struct stat about;
    const int known = path == "-" ? fstat(STDIN_FILENO, &about) : stat(path.c_str(), &about);
    if (known != 0 || !S_ISREG(about.st_mode) || (about.st_mode & 077) == 0)
        return;
    char mode[8];
    std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(about.st_mode & 07777));
    warn(text_of(Text::open_to_others, {display_name(path), mode}));
}

} // namespace tool
