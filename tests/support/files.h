// files.h: files for tests: vectors from tests/vectors, temporary files, spoiled copies of bytes.
#ifndef TESTS_SUPPORT_FILES_H
#define TESTS_SUPPORT_FILES_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

using Bytes = std::vector<uint8_t>;

inline Bytes operator+(Bytes left, const Bytes &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

// Contents of tests/vectors/<name>. A missing file ends the test program.
Bytes vector_file(const std::string &name);
std::string vector_path(const std::string &name);
// Names (relative to tests/vectors) of the files below a folder there, sorted, recursive.
std::vector<std::string> vector_names(const std::string &folder);

Bytes read_file(const std::string &path);
void write_file(const std::string &path, const Bytes &contents);

Bytes bytes_of(const std::string &text);
std::string text_of(const Bytes &bytes);
// "0aff", blanks allowed; ends the test program on anything else.
Bytes from_hex(const std::string &digits);
std::string to_hex(const Bytes &bytes);
std::string to_hex(const uint8_t *bytes, std::size_t size);

// A folder of its own under the system's temporary folder, removed with everything in it.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;
    std::string path(const std::string &name) const;

private:
    std::string folder_;
};

// Calls back with every single-bit flip of good, then with every truncation (0 to size - 1 bytes).
// what names the variant. The buffer is of its exact size, so that a sanitizer sees a read past it.
void each_spoiled(const Bytes &good,
                  const std::function<void(const Bytes &spoiled, const std::string &what)> &check);

#endif
