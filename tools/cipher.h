// cipher.h: symmetric ciphers: their keys and parameters, and data of any size through them.
#ifndef TOOLS_CIPHER_H
#define TOOLS_CIPHER_H

#include "credential.h"

#include <functional>
#include <optional>
#include <span>
#include <string>

namespace tool {

class Arguments;

enum class CipherKind { des, rc2, rc4, des3 };

struct CipherRow {
    CipherKind kind;
    const char *name; // on the command line
    const char *text;
    const QelOid *const *oid;
    std::size_t block;       // bytes; 1 for a stream cipher
    std::size_t least, most; // bytes of a key
    std::size_t usual;       // bytes of a key that is made
};
const CipherRow &cipher_named(const std::string &name);
// Null for an algorithm that is none of them.
const CipherRow *find_cipher(const QelOid *algorithm);

constexpr std::size_t iv_bytes = 8;
constexpr unsigned most_parameter_bits = 1024; // effective key bits that RC2's parameters can have

// A cipher, its encoded parameters and its key.
struct Cipher {
    const CipherRow *row = nullptr;
    Bytes parameters; // empty: none
    Bytes key;
    unsigned effective_bits = 0; // of RC2, as its parameters have them
};

// The parameters of a cipher with an initialisation vector. RC4 has none.
Bytes encode_parameters(const Context &context, const CipherRow &row, std::span<const uint8_t> iv,
                        unsigned effective_bits);
// Takes encoded parameters for what they are. Throws Failure naming where they come from.
void take_parameters(const Context &context, Cipher &cipher, std::span<const uint8_t> encoded,
                     const std::string &where);

// The record of the algorithm with its parameters, which belong to the cipher.
struct AlgorithmRecord {
    explicit AlgorithmRecord(const Cipher &cipher);
    AlgorithmRecord(const AlgorithmRecord &) = delete;
    AlgorithmRecord &operator=(const AlgorithmRecord &) = delete;
    QelOctetString parameters;
    QelAlgId id;
};

// A symmetric key from a file: its bytes, or hexadecimal digits. Warns where others can read it.
Bytes read_key_file(const std::string &path, bool hexadecimal);
// Writes a key to a file of mode 0600, as hexadecimal digits with --hex; --force replaces a file.
void write_key_file(const std::string &path, std::span<const uint8_t> key,
                    const Arguments &arguments);
// Throws Failure where a key of so many bytes is none of this cipher.
void check_key_size(const CipherRow &row, std::size_t size, const std::string &where);

// The bytes as hexadecimal digits and a new line.
Bytes hex_line(std::span<const uint8_t> bytes);
// Bytes of hexadecimal digits, blanks between them allowed; nothing where text is something else.
std::optional<Bytes> from_hex(std::span<const uint8_t> text);

// A new key with its parameters. The size, in bytes, counts for RC2 and RC4, the bits for RC2.
Cipher generate_key(const Context &context, const CipherRow &row, std::size_t size,
                    unsigned effective_bits);

// count random bytes of the library.
Bytes random_bytes(std::size_t count);

enum class Direction { encrypt, decrypt };
using Sink = std::function<void(std::span<const uint8_t>)>;

// Data on its way through a cipher, in bounded memory. what begins the text of a failure: "cannot
// decrypt 'x'".
class CipherRun {
public:
    CipherRun(const Context &context, Direction direction, const Cipher &cipher, std::string what);
    CipherRun(const CipherRun &) = delete;
    CipherRun &operator=(const CipherRun &) = delete;

    void add(std::span<const uint8_t> data, const Sink &take);
    void finish(const Sink &take);

    // The size of what encryption makes of size bytes.
    static uint64_t encrypted_size(const CipherRow &row, uint64_t size);

private:
    void step(std::span<const uint8_t> data, uint32_t mode, const Sink &take);
    void finish_nothing(const Sink &take);

    const Context &context_;
    const Direction direction_;
    const Cipher &cipher_;
    const std::string what_;
    const AlgorithmRecord algorithm_;
    bool begun_ = false;
    Bytes waiting_; // for a whole piece
    Bytes result_;
};

} // namespace tool

#endif
