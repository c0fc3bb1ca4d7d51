// input.h: files and standard input: data of any size in blocks, credentials as bytes.
#ifndef TOOLS_INPUT_H
#define TOOLS_INPUT_H

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string.h>
#include <string>
#include <vector>

namespace tool {

// Zeroes memory before it is freed: what is read may be a private key.
template <class T> struct Zeroing {
    using value_type = T;
    Zeroing() = default;
    template <class U> Zeroing(const Zeroing<U> &) {}
    T *allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
    void deallocate(T *block, std::size_t count) {
        explicit_bzero(block, count * sizeof(T));
        std::allocator<T>().deallocate(block, count);
    }
    template <class U> bool operator==(const Zeroing<U> &) const { return true; }
};
using Bytes = std::vector<uint8_t, Zeroing<uint8_t>>;

// Credentials and armour are read whole, up to this size.
constexpr std::size_t most_bytes = std::size_t{64} << 20;

// "standard input" for "-", else the name in quotes; safe to print.
std::string display_name(const std::string &path);

// A file that is read from its beginning, or standard input ("-"). On a terminal long work shows its
// progress. Throws Failure, Exit::input, where the file cannot be read to its end.
class Source {
public:
    explicit Source(const std::string &path);
    ~Source();
    Source(const Source &) = delete;
    Source &operator=(const Source &) = delete;

    // The number of bytes read; 0 at the end.
    std::size_t read_into(std::span<uint8_t> buffer);
    // How many bytes there are to read, where that is known beforehand: in a regular file.
    std::optional<uint64_t> size() const;
    const std::string &path() const { return path_; }

private:
    struct Progress;
    std::string path_;
    int descriptor_;
    std::unique_ptr<Progress> progress_;
};

// Hands the bytes of a file to take, block by block, as a Source reads them.
void each_block(const std::string &path, const std::function<void(std::span<const uint8_t>)> &take);

// All bytes of a file of at most most_bytes.
Bytes read_whole(const std::string &path);

// A block of armour, or the whole of a file that holds none.
struct Item {
    std::string label; // between "-----BEGIN " and "-----"; empty for a whole file
    std::size_t line = 0;
    bool encrypted = false; // its header lines say so
    std::string problem;    // why there are no bytes, or empty
    Bytes bytes;
};

// What a file holds. Armour is found wherever it stands in a text, under any label; the text around
// it is passed over. A file without armour is one item: its bytes, or what they decode to where
// they are nothing but base 64.
struct Input {
    std::string path;
    bool armoured = false; // the items are blocks between marker lines
    bool decoded = false;  // the whole file was base 64
    std::vector<Item> items;

    // "'bundle.pem', block 2 (CERTIFICATE, line 30)" where there are several, else the file's name.
    std::string name_of(const Item &item) const;
};
Input read_input(const std::string &path);
Input parse_input(const std::string &path, Bytes contents);

// Warns where the file of a key is open to others.
void warn_if_open_to_others(const std::string &path);

} // namespace tool

#endif
