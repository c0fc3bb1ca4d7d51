// file.h: an open file, beyond 2 GiB in 32-bit programs too, or standard input or output in its
// place, which are never closed.
#ifndef UTIL_FILE_H
#define UTIL_FILE_H

#include <cstddef>
#include <sys/types.h>

#include <qel/qel.h>

namespace qel {

class File {
public:
    File() = default;
    File(const File &) = delete;
    File &operator=(const File &) = delete;
    ~File() { close_file(); }

    // A null or empty name is standard input. QEL_ERR_NO_FILE: there is no such file.
    // QEL_ERR_OPEN_FILE: it cannot be opened.
    QelStatus open_input(const char *name);

    // A null or empty name is standard output. A file that flags (those of open(2)) let make gets
    // mode 0600. QEL_ERR_OPEN_FILE.
    QelStatus open_output(const char *name, int flags);

    // Cuts what was opened to nothing, where that can be done to it. QEL_ERR_FILE_IO.
    QelStatus make_empty() const;

    // Up to size bytes, 0 at the end of the file. QEL_ERR_FILE_IO.
    QelStatus read_some(void *bytes, std::size_t size, std::size_t *length) const;

    // QEL_ERR_FILE_IO: writing failed, or wrote less.
    QelStatus write_all(const void *bytes, std::size_t size) const;
    QelStatus write_line(const char *line) const; // and a newline

    // QEL_ERR_FILE_IO: closing may be the first to tell of a write that failed.
    QelStatus close_file();

private:
    int descriptor_ = -1;
    bool owned_ = false;
};

} // namespace qel

#endif
