// config.cpp: reading /etc/fn.conf.

#include "config.h"
#include "store.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace xfn {

namespace {

constexpr const char *back_end_words[back_end_count] = {"nisplus", "nis", "files"};

constexpr unsigned unknown = back_end_count;

unsigned back_end_of(std::string_view word) {
    unsigned index = 0;
    while (index < back_end_count && word != back_end_words[index])
        ++index;
    return index;
}

bool is_blank(char byte) {
    return byte == ' ' || byte == '\t' || byte == '\r';
}

// Takes the next word off a line; empty at its end, which a comment is, too.
std::string_view take_word(std::string_view *line) {
    while (!line->empty() && is_blank(line->front()))
        line->remove_prefix(1);
    std::size_t size = 0;
    while (size < line->size() && !is_blank((*line)[size]))
        ++size;
    const std::string_view word(line->data(), size);
    if (word.empty() || word.front() == '#')
        return {};
    line->remove_prefix(size);
    return word;
}

bool is_printable(std::string_view word) {
    for (const char byte : word)
        if (static_cast<uint8_t>(byte) < ' ' || byte == 0x7f)
            return false;
    return true;
}

struct Parser {
    Config *config;
    bool is_default_said = false;
    bool is_said[back_end_count] = {};

    bool set_default(std::string_view word) {
        const unsigned back_end = back_end_of(word);
        if (back_end == unknown || is_default_said)
            return false;
        is_default_said = true;
        config->initial = back_end + 1;
        return true;
    }

    bool set_location(unsigned back_end, std::string_view location) {
        if (back_end == unknown || is_said[back_end] || location.empty() ||
            location.size() > max_location || !is_printable(location))
            return false;
        is_said[back_end] = true;
        char *place = config->locations[back_end];
        std::memcpy(place, location.data(), location.size());
        place[location.size()] = '\0';
        return kind_of_location(place) != nullptr;
    }

    bool take_line(std::string_view line) {
        const std::string_view key = take_word(&line);
        if (key.empty())
            return true;
        const std::string_view value = take_word(&line);
        if (!take_word(&line).empty())
            return false;
        return key == "default" ? set_default(value) : set_location(back_end_of(key), value);
    }
};

} // namespace

bool parse_config(std::string_view text, Config *config) {
    *config = {};
    Parser parser = {config};
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        const std::size_t size = end != std::string_view::npos ? end : text.size();
        if (!parser.take_line({text.data(), size}))
            return false;
        text.remove_prefix(end != std::string_view::npos ? size + 1 : size);
    }
    return true;
}

unsigned read_config(const char *path, Config *config) {
    constexpr std::size_t most = 64 * 1024;
    *config = {};
    const int file = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0)
        return errno == ENOENT ? FN_SUCCESS : FN_E_CONFIGURATION_ERROR;
    const qel::Owned<char> text(static_cast<char *>(std::malloc(most + 1)));
    std::size_t size = 0;
    ssize_t count = text != nullptr ? 1 : 0;
    while (count > 0 && size <= most) {
        count = read(file, text.get() + size, most + 1 - size);
        if (count > 0)
            size += static_cast<std::size_t>(count);
        else if (count < 0 && errno == EINTR)
            count = 1;
    }
    close(file);
    if (text == nullptr)
        return FN_E_INSUFFICIENT_RESOURCES;
    const bool good = count == 0 && size <= most && parse_config({text.get(), size}, config);
    return good ? FN_SUCCESS : FN_E_CONFIGURATION_ERROR;
}

} // namespace xfn
