#include "encrypted_content.h"

#include "der.h"
#include "status.h"
#include "text.h"
#include "texts.h"

#include <algorithm>
#include <cstring>

namespace tool {
namespace {

constexpr std::size_t buffer_size = std::size_t{64} << 10;
constexpr std::size_t most_header = std::size_t{1} << 20; // of what stands before the content
constexpr unsigned most_depth = 16;
constexpr uint8_t tag_sequence = 0x30, tag_set = 0x31, tag_integer = 0x02, tag_oid = 0x06,
                  tag_octets = 0x04, tag_constructed = 0x20, tag_context = 0x80;

Bytes header_of(uint8_t tag, uint64_t length) {
    Bytes bytes;
    append_header(bytes, tag, length);
    return bytes;
}

void append(Bytes &bytes, std::span<const uint8_t> more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

Bytes element_of(uint8_t tag, std::span<const uint8_t> contents) {
    Bytes bytes;
    append_element(bytes, tag, contents);
    return bytes;
}

// Takes the element that bytes begin with off them, tag and length included.
std::span<const uint8_t> take_whole(std::span<const uint8_t> &bytes) {
    const std::span<const uint8_t> before = bytes;
    Element element;
    if (!take_element(bytes, element))
        throw Failure{Exit::internal, text_of(Text::cannot_take_apart), "", ""};
    return before.first(before.size() - bytes.size());
}

} // namespace

// ---- BER ---------------------------------------------------------------------------------------

BerStream::BerStream(Source &source, std::string what)
    : read_([&source](std::span<uint8_t> buffer) { return source.read_into(buffer); }),
      what_(std::move(what)), buffer_(buffer_size) {
    if (fill(1) && buffer_[begin_] != tag_sequence)
        take_armour_off(source);
}

void BerStream::take_armour_off(Source &source) {
    Bytes text(buffer_.begin(), buffer_.begin() + static_cast<long>(end_));
    while (const std::size_t count = source.read_into(buffer_)) {
        if (count > most_bytes - text.size())
            malformed(text_of(Text::no_sequence));
        append(text, std::span(buffer_).first(count));
    }
    Input input = parse_input(source.path(), std::move(text));
    Item &item = input.items.front();
    if (!item.problem.empty())
        malformed(item.problem);
    if (!input.armoured && !input.decoded)
        malformed(text_of(Text::neither_ber_nor_armour));
    buffer_ = std::move(item.bytes);
    begin_ = 0;
    end_ = buffer_.size();
    read_ = [](std::span<uint8_t>) { return std::size_t{0}; };
}

void BerStream::malformed(const std::string &why) const {
    throw Failure{Exit::input, what_, status_words(QEL_ERR_ASN1_DECODE) + " (" + why + ")",
                  text_of(Text::right_file_whole), QEL_ERR_ASN1_DECODE};
}

// Whether count bytes, a few, wait in the buffer.
bool BerStream::fill(std::size_t count) {
    if (end_ - begin_ >= count)
        return true;
    std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
    while (end_ < count) {
        const std::size_t got = read_(std::span(buffer_).subspan(end_));
        if (got == 0)
            return false;
        end_ += got;
    }
    return true;
}

// How many bytes the innermost element that says its length has left.
uint64_t BerStream::room() const {
    for (auto end = ends_.rbegin(); end != ends_.rend(); ++end)
        if (*end)
            return **end - position_;
    return UINT64_MAX - position_;
}

uint8_t BerStream::byte() {
    if (room() == 0)
        malformed(text_of(Text::longer_than_around));
    if (!fill(1))
        malformed(text_of(Text::cut_after, {std::to_string(position_)}));
    ++position_;
    return buffer_[begin_++];
}

std::size_t BerStream::read_some(std::span<uint8_t> buffer) {
    if (!fill(1))
        malformed(text_of(Text::cut_after, {std::to_string(position_)}));
    const std::size_t count = std::min(buffer.size(), end_ - begin_);
    std::memcpy(buffer.data(), buffer_.data() + begin_, count);
    begin_ += count;
    position_ += count;
    return count;
}

BerStream::Element BerStream::next_header() {
    Element element;
    element.tag = byte();
    if ((element.tag & 0x1f) == 0x1f)
        malformed(text_of(Text::long_tag));
    const uint8_t first = byte();
    if (first == 0x80) {
        if ((element.tag & tag_constructed) == 0)
            malformed(text_of(Text::primitive_indefinite));
        return element;
    }
    uint64_t length = first;
    if (first > 0x80) {
        length = 0;
        for (unsigned count = first & 0x7f; count-- != 0;) {
            if (length >> 56 != 0)
                malformed(text_of(Text::length_too_large));
            length = length << 8 | byte();
        }
    }
    if (length > room())
        malformed(text_of(Text::longer_than_around));
    element.length = length;
    return element;
}

void BerStream::enter(uint8_t tag) {
    const Element element = next_header();
    if (element.tag != tag)
        malformed(text_of(Text::another_tag));
    enter(element);
}

void BerStream::enter(const Element &element) {
    if (ends_.size() == most_depth)
        malformed(text_of(Text::too_deep));
    ends_.push_back(element.length ? std::optional(position_ + *element.length) : std::nullopt);
}

bool BerStream::at_end_of_element() {
    if (ends_.back())
        return position_ == *ends_.back();
    return fill(2) && buffer_[begin_] == 0 && buffer_[begin_ + 1] == 0;
}

void BerStream::leave() {
    if (!at_end_of_element())
        malformed(fill(1) ? text_of(Text::holds_more)
                          : text_of(Text::cut_after, {std::to_string(position_)}));
    const bool definite = ends_.back().has_value();
    ends_.pop_back();
    if (!definite && (byte() | byte()) != 0)
        malformed(text_of(Text::element_end_missing));
}

void BerStream::check_end() {
    if (fill(1))
        malformed(text_of(Text::something_follows));
}

void BerStream::copy_element(uint8_t tag, Bytes &bytes) {
    const Element element = next_header();
    if (element.tag != tag)
        malformed(text_of(Text::another_tag));
    copy_contents(element, bytes, 0);
}

// Copies an element with definite lengths.
void BerStream::copy_contents(const Element &element, Bytes &bytes, unsigned depth) {
    if (depth == most_depth)
        malformed(text_of(Text::too_deep));
    Bytes contents;
    if (element.length) {
        copy_bytes(*element.length, contents);
    } else {
        enter(element);
        while (!at_end_of_element())
            copy_contents(next_header(), contents, depth + 1);
        leave();
    }
    if (bytes.size() + contents.size() > most_header)
        malformed(text_of(Text::head_too_large));
    append(bytes, element_of(element.tag, contents));
}

void BerStream::copy_bytes(uint64_t count, Bytes &bytes) {
    if (count > most_header)
        malformed(text_of(Text::head_too_large));
    bytes.resize(static_cast<std::size_t>(count));
    for (std::size_t at = 0; at < bytes.size();)
        at += read_some(std::span(bytes).subspan(at));
}

// ---- Reading -----------------------------------------------------------------------------------

EncryptedContentReader::EncryptedContentReader(const Context &context, Source &source,
                                               const std::string &what)
    : stream_(source, what) {
    Bytes type, parts, info;
    stream_.enter(tag_sequence);
    stream_.copy_element(tag_oid, type);
    const auto content_info =
        decode<QelContentInfo>(context, element_of(tag_sequence, type), QEL_PDU_ContentInfo);
    int not_enveloped = 1, not_encrypted = 1;
    if (content_info) {
        __qel_cmp_oid(content_info->contentType, envelopedData_OID, &not_enveloped);
        __qel_cmp_oid(content_info->contentType, encryptedData_OID, &not_encrypted);
    }
    if (not_enveloped != 0 && not_encrypted != 0)
        throw Failure{Exit::input, what,
                      content_info
                          ? text_of(Text::neither_but, {oid_text(content_info->contentType)})
                          : text_of(Text::neither_kind),
                      text_of(Text::give_encrypted)};

    stream_.enter(tag_context | tag_constructed);
    stream_.enter(tag_sequence);
    stream_.copy_element(tag_integer, parts);
    if (not_enveloped == 0)
        stream_.copy_element(tag_set, parts);
    stream_.enter(tag_sequence);
    stream_.copy_element(tag_oid, info);
    stream_.copy_element(tag_sequence, info);
    append(parts, element_of(tag_sequence, info));
    const Bytes whole = element_of(tag_sequence, parts);
    QelStatus status = QEL_OK;
    if (not_enveloped == 0)
        enveloped_ = decode<QelEnvelopedData>(context, whole, QEL_PDU_EnvelopedData, &status);
    else
        encrypted_ = decode<QelEncryptedData>(context, whole, QEL_PDU_EncryptedData, &status);
    if (status != QEL_OK)
        stream_.malformed(text_of(Text::other_recipients));
    if ((enveloped_ ? enveloped_->version : encrypted_->version) != 0)
        stream_.malformed(text_of(Text::other_version));

    if (stream_.at_end_of_element())
        stream_.malformed(text_of(Text::no_content));
    const BerStream::Element content = stream_.next_header();
    if (content.tag == tag_context) {
        left_ = *content.length;
    } else if (content.tag == (tag_context | tag_constructed)) {
        stream_.enter(content);
        ++depth_;
    } else {
        stream_.malformed(text_of(Text::another_tag));
    }
}

const QelAlgId *EncryptedContentReader::algorithm() const {
    return (enveloped_ ? enveloped_->encryptedContentInfo : encrypted_->encryptedContentInfo)
        ->contentEncryptionAlgorithm;
}

std::size_t EncryptedContentReader::read_into(std::span<uint8_t> buffer) {
    while (left_ == 0)
        if (!next_piece())
            return 0;
    const std::size_t count = stream_.read_some(
        buffer.first(static_cast<std::size_t>(std::min<uint64_t>(buffer.size(), left_))));
    left_ -= count;
    return count;
}

// Goes to the next octet string of a constructed one. False at the end of the content.
bool EncryptedContentReader::next_piece() {
    while (depth_ != 0) {
        if (stream_.at_end_of_element()) {
            stream_.leave();
            --depth_;
            continue;
        }
        const BerStream::Element piece = stream_.next_header();
        if (piece.tag == tag_octets) {
            left_ = *piece.length;
            return true;
        }
        if (piece.tag != (tag_octets | tag_constructed))
            stream_.malformed(text_of(Text::piece_no_octets));
        stream_.enter(piece);
        ++depth_;
    }
    finish();
    return false;
}

void EncryptedContentReader::finish() {
    if (finished_)
        return;
    finished_ = true;
    for (int around = 0; around < 4; ++around)
        stream_.leave();
    stream_.check_end();
}

// ---- Writing -----------------------------------------------------------------------------------

namespace {

// Version and recipients, and what stands before the content beside it; both encoded.
struct Heading {
    Bytes parts, info;
};

// The recipients of an encoded SET, ordered as DER has them.
Bytes sorted_set(std::span<const uint8_t> set) {
    Element element;
    take_element(set, element);
    std::vector<std::span<const uint8_t>> members;
    while (!element.contents.empty())
        members.push_back(take_whole(element.contents));
    std::sort(members.begin(), members.end(), [](const auto &a, const auto &b) {
        return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end());
    });
    Bytes contents;
    for (const auto &member : members)
        append(contents, member);
    return element_of(tag_set, contents);
}

Heading heading_of(const Context &context, const QelAlgId &algorithm, QelRcptInfos *recipients) {
    QelEncryptedContentInfo content = {const_cast<QelOid *>(data_OID),
                                       const_cast<QelAlgId *>(&algorithm), nullptr};
    const QelEncryptedData encrypted = {0, &content};
    const QelEnvelopedData enveloped = {0, recipients, &content};
    const Bytes whole = recipients != nullptr ? encode(context, &enveloped, QEL_PDU_EnvelopedData,
                                                       text_of(Text::the_recipients))
                                              : encode(context, &encrypted, QEL_PDU_EncryptedData,
                                                       text_of(Text::the_encryptions_algorithm));
    std::span<const uint8_t> rest = whole;
    Element element;
    take_element(rest, element);
    rest = element.contents;
    Heading heading;
    append(heading.parts, take_whole(rest));
    if (recipients != nullptr)
        append(heading.parts, sorted_set(take_whole(rest)));
    take_element(rest, element);
    append(heading.info, element.contents);
    return heading;
}

} // namespace

EncryptedContentWriter::EncryptedContentWriter(const Context &context, Output &output,
                                               const QelAlgId &algorithm, QelRcptInfos *recipients,
                                               std::optional<uint64_t> size)
    : output_(output), left_(size) {
    const Heading heading = heading_of(context, algorithm, recipients);
    const QelContentInfo type = {
        const_cast<QelOid *>(recipients != nullptr ? envelopedData_OID : encryptedData_OID),
        nullptr};
    const Bytes content_info =
        encode(context, &type, QEL_PDU_ContentInfo, text_of(Text::content_type));
    std::span<const uint8_t> rest = content_info;
    Element oid;
    take_element(rest, oid);

    // From the inside out: the header of each element, before what stands in front within it.
    const struct {
        uint8_t tag;
        std::span<const uint8_t> front;
    } around[] = {
        {tag_sequence, heading.info},
        {tag_sequence, heading.parts},
        {tag_context | tag_constructed, {}},
        {tag_sequence, oid.contents},
    };
    const auto header = [&](uint8_t tag, uint64_t length) {
        return size ? header_of(tag, length) : Bytes{tag, 0x80};
    };
    Bytes beginning =
        size ? header_of(tag_context, *size) : Bytes{tag_context | tag_constructed, 0x80};
    for (const auto &row : around) {
        Bytes inner(row.front.begin(), row.front.end());
        append(inner, beginning);
        beginning = header(row.tag, inner.size() + size.value_or(0));
        append(beginning, inner);
    }
    output_.write(beginning);
}

void EncryptedContentWriter::add(std::span<const uint8_t> content) {
    if (content.empty())
        return;
    if (left_) {
        overrun_ = overrun_ || content.size() > *left_;
        if (overrun_)
            return;
        *left_ -= content.size();
    } else {
        output_.write(header_of(tag_octets, content.size()));
    }
    output_.write(content);
}

bool EncryptedContentWriter::finish() {
    if (left_)
        return !overrun_ && *left_ == 0;
    output_.write(Bytes(2 * 5, 0)); // the content and the four elements around it
    return true;
}

} // namespace tool
