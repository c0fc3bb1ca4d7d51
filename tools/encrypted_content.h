// encrypted_content.h: PKCS#7 around encrypted content (RFC 2315): EncryptedData, whose reader has
// the key, and EnvelopedData, which brings it wrapped for each recipient. Content of any size is
// read and written in bounded memory.
#ifndef TOOLS_ENCRYPTED_CONTENT_H
#define TOOLS_ENCRYPTED_CONTENT_H

#include "credential.h"

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tool {

// BER that is read from its beginning to its end: definite or indefinite lengths, bounded by the
// elements around. Throws Failure, Exit::input, where it is cut or malformed.
class BerStream {
public:
    struct Element {
        uint8_t tag = 0;
        std::optional<uint64_t> length; // nothing: indefinite
    };

    // what begins the text of a failure. Armour is taken off what has some.
    BerStream(Source &source, std::string what);

    // Goes into the next element, which must be constructed and have this tag, and out of it.
    void enter(uint8_t tag);
    void enter(const Element &element);
    void leave();
    // Whether the element that was entered last has come to its end.
    bool at_end_of_element();
    Element next_header();
    // The next element, whole, added to bytes.
    void copy_element(uint8_t tag, Bytes &bytes);
    // Up to buffer.size() bytes, not 0, of contents.
    std::size_t read_some(std::span<uint8_t> buffer);
    // Nothing may follow.
    void check_end();
    [[noreturn]] void malformed(const std::string &why) const;

private:
    bool fill(std::size_t count);
    void take_armour_off(Source &source);
    uint8_t byte();
    void copy_bytes(uint64_t count, Bytes &bytes);
    void copy_contents(const Element &element, Bytes &bytes, unsigned depth);
    void append_header(const Element &element, Bytes &bytes);
    uint64_t room() const;

    std::function<std::size_t(std::span<uint8_t>)> read_;
    std::string what_;
    Bytes buffer_;
    std::size_t begin_ = 0, end_ = 0; // of what is waiting in the buffer
    uint64_t position_ = 0;
    std::vector<std::optional<uint64_t>> ends_; // of the elements around, as positions
};

// A container on its way in.
class EncryptedContentReader {
public:
    EncryptedContentReader(const Context &context, Source &source, const std::string &what);

    // Null for EncryptedData.
    const QelEnvelopedData *enveloped() const { return enveloped_.get(); }
    const QelAlgId *algorithm() const;
    // The next bytes of the content; 0 at its end, when the container has been seen to end well.
    std::size_t read_into(std::span<uint8_t> buffer);

private:
    bool next_piece();
    void finish();

    BerStream stream_;
    Decoded<QelEnvelopedData> enveloped_;
    Decoded<QelEncryptedData> encrypted_;
    uint64_t left_ = 0;  // of the piece that is being read
    unsigned depth_ = 0; // of constructed octet strings around it
    bool finished_ = false;
};

// A container on its way out, with definite lengths if the size of the content is known.
class EncryptedContentWriter {
public:
    // recipients: null for EncryptedData.
    EncryptedContentWriter(const Context &context, Output &output, const QelAlgId &algorithm,
                           QelRcptInfos *recipients, std::optional<uint64_t> size);

    void add(std::span<const uint8_t> content);
    // False where the content had not the size that was promised.
    bool finish();

private:
    Output &output_;
    std::optional<uint64_t> left_; // of the size that was promised
    bool overrun_ = false;
};

} // namespace tool

#endif
