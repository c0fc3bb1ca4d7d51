#include "support/files.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <algorithm>

namespace {

[[noreturn]] void give_up(const std::string &why) {
    std::fprintf(stderr, "test support: %s\n", why.c_str());
    std::abort();
}

} // namespace

std::string vector_path(const std::string &name) {
    return std::string(QEL_TEST_VECTORS) + "/" + name;
}

Bytes vector_file(const std::string &name) {
    return read_file(vector_path(name));
}

std::vector<std::string> vector_names(const std::string &folder) {
    std::vector<std::string> names;
    const std::filesystem::path root = QEL_TEST_VECTORS;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(root / folder))
        if (entry.is_regular_file())
            names.push_back(std::filesystem::relative(entry.path(), root).string());
    if (names.empty())
        give_up("no vectors in " + folder);
    std::sort(names.begin(), names.end());
    return names;
}

Bytes read_file(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        give_up("cannot read " + path);
    return {std::istreambuf_iterator<char>(file), {}};
}

void write_file(const std::string &path, const Bytes &contents) {
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char *>(contents.data()),
               static_cast<std::streamsize>(contents.size()));
    if (!file.flush())
        give_up("cannot write " + path);
}

Bytes bytes_of(const std::string &text) {
    return {text.begin(), text.end()};
}

std::string text_of(const Bytes &bytes) {
    return {bytes.begin(), bytes.end()};
}

Bytes from_hex(const std::string &digits) {
    Bytes bytes;
    int high = -1;
    for (const char digit : digits) {
        if (digit == ' ' || digit == '\n')
            continue;
        int value = -1;
        if (digit >= '0' && digit <= '9')
            value = digit - '0';
        else if (digit >= 'a' && digit <= 'f')
            value = digit - 'a' + 10;
        else if (digit >= 'A' && digit <= 'F')
            value = digit - 'A' + 10;
        else
            give_up("bad hexadecimal digits: " + digits);
        if (high < 0) {
            high = value;
        } else {
            bytes.push_back(static_cast<uint8_t>(high * 16 + value));
            high = -1;
        }
    }
    if (high >= 0)
        give_up("odd number of hexadecimal digits: " + digits);
    return bytes;
}

std::string to_hex(const uint8_t *bytes, std::size_t size) {
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
        text.push_back(digits[bytes[i] >> 4]);
        text.push_back(digits[bytes[i] & 15]);
    }
    return text;
}

std::string to_hex(const Bytes &bytes) {
    return to_hex(bytes.data(), bytes.size());
}

TemporaryFolder::TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "qel-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr)
        give_up("cannot make a temporary folder");
    folder_ = name;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

std::string TemporaryFolder::path(const std::string &name) const {
    return folder_ + "/" + name;
}

void each_spoiled(const Bytes &good,
                  const std::function<void(const Bytes &, const std::string &)> &check) {
    for (std::size_t bit = 0; bit < good.size() * 8; ++bit) {
        Bytes spoiled = good;
        spoiled[bit / 8] = static_cast<uint8_t>(spoiled[bit / 8] ^ (0x80u >> (bit % 8)));
        check(spoiled, "bit " + std::to_string(bit) + " flipped");
    }
    for (std::size_t size = 0; size < good.size(); ++size) {
        Bytes spoiled(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size));
        spoiled.shrink_to_fit();
        check(spoiled, "cut to " + std::to_string(size) + " bytes");
    }
}
