#include <util/file.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

// One call of write takes less than 2 GiB.
constexpr std::size_t largest_write = std::size_t{1} << 30;

bool is_standard(const char *name) {
    return name == nullptr || *name == '\0';
}

} // namespace

namespace qel {

QelStatus File::open_input(const char *name) {
    owned_ = !is_standard(name);
    descriptor_ = owned_ ? open(name, O_RDONLY | O_LARGEFILE | O_CLOEXEC) : STDIN_FILENO;
    if (descriptor_ >= 0)
        return QEL_OK;
    return errno == ENOENT ? QEL_ERR_NO_FILE : QEL_ERR_OPEN_FILE;
}

QelStatus File::open_output(const char *name, int flags) {
    owned_ = !is_standard(name);
    descriptor_ = owned_ ? open(name, flags | O_LARGEFILE | O_CLOEXEC, 0600) : STDOUT_FILENO;
    return descriptor_ >= 0 ? QEL_OK : QEL_ERR_OPEN_FILE;
}

QelStatus File::make_empty() const {
    const bool done = !owned_ || ftruncate(descriptor_, 0) == 0 || errno == EINVAL;
    return done ? QEL_OK : QEL_ERR_FILE_IO;
}

QelStatus File::read_some(void *bytes, std::size_t size, std::size_t *length) const {
    ssize_t count;
    do
        count = read(descriptor_, bytes, size);
    while (count < 0 && errno == EINTR);
    *length = count < 0 ? 0 : static_cast<std::size_t>(count);
    return count < 0 ? QEL_ERR_FILE_IO : QEL_OK;
}

QelStatus File::write_all(const void *bytes, std::size_t size) const {
    const auto *from = static_cast<const uint8_t *>(bytes);
    while (size != 0) {
        const std::size_t piece = std::min(size, largest_write);
        ssize_t count;
        do
            count = write(descriptor_, from, piece);
        while (count < 0 && errno == EINTR);
        if (count < 0 || static_cast<std::size_t>(count) != piece)
            return QEL_ERR_FILE_IO;
        from += piece;
        size -= piece;
    }
    return QEL_OK;
}

QelStatus File::write_line(const char *line) const {
    const QelStatus status = write_all(line, std::strlen(line));
    return status != QEL_OK ? status : write_all("\n", 1);
}

QelStatus File::close_file() {
    const bool must_close = owned_ && descriptor_ >= 0;
    const int descriptor = descriptor_;
    descriptor_ = -1;
    return !must_close || close(descriptor) == 0 ? QEL_OK : QEL_ERR_FILE_IO;
}

} // namespace qel
