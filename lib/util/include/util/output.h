// output.h: what goes into a file, gathered in memory, so that nothing that fails before the first
// byte is written spoils a file.
#ifndef UTIL_OUTPUT_H
#define UTIL_OUTPUT_H

#include <lib/memory.h>
#include <qel/qelp.h>
#include <util/armour.h>

inline constexpr uint32_t armour_width = 64;

// Remembers its first failure, after which nothing is added: status is asked once at the end.
class Output {
public:
    Output &add(const char *text);
    Output &add(const uint8_t *bytes, std::size_t size);

    // Data in the given form and layout (see __qel_dump_output), without a line feed behind it.
    // QEL_ERR_BAD_PARAM: null data, no such form, or nothing to convert. QEL_ERR_TO_RFC1421.
    Output &add_data(int form, const uint8_t *data, uint32_t length, uint32_t indent,
                     uint32_t line_width);

    // A line with the BEGIN marker, the armour of data in lines, and a line with the END marker.
    Output &add_armoured(const char *begin, const uint8_t *data, uint32_t length, const char *end);

    QelStatus status() const { return status_; }
    const uint8_t *bytes() const { return bytes_.get(); }
    std::size_t size() const { return size_; }

    // Opens the file (null or "": standard output), writes all and closes it. With O_TRUNC it is cut
    // only when all is there to be written. What was written before a failure stays.
    // QEL_ERR_OPEN_FILE, the status so far, QEL_ERR_FILE_IO.
    QelStatus write_file(const char *name, int open_flags) const;

private:
    qel::SecretBytes bytes_;
    std::size_t size_ = 0;
    QelStatus status_ = QEL_OK;
};

#endif
