// file.cpp: files as input and output. Files beyond 2 GiB are opened in 32-bit programs too.
#include "file.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace dencoder {
namespace {

bool file_failure(OssEnvironment &environment, const char *reason) {
    return fail(environment, OSS_FILE_ERROR, reason);
}

// Reads until size octets have come or the file ends; -1 on failure.
ssize_t read_all(int descriptor, uint8_t *target, std::size_t size) {
    std::size_t count = 0;
    while (count < size) {
        const ssize_t part = read(descriptor, target + count, size - count);
        if (part < 0 && errno == EINTR)
            continue;
        if (part < 0)
            return -1;
        if (part == 0)
            break;
        count += static_cast<std::size_t>(part);
    }
    return static_cast<ssize_t>(count);
}

} // namespace

bool FileDescriptor::close() {
    const int number = number_;
    number_ = -1;
    return number < 0 || ::close(number) == 0;
}

bool write_all(int descriptor, const uint8_t *bytes, std::size_t size) {
    while (size != 0) {
        const ssize_t part = write(descriptor, bytes, size);
        if (part < 0 && errno == EINTR)
            continue;
        if (part <= 0)
            return false;
        bytes += part;
        size -= static_cast<std::size_t>(part);
    }
    return true;
}

Read refill(Reader &reader, uint32_t count) {
    if (reader.file == nullptr)
        return Read::malformed;
    const int descriptor = reader.file->descriptor.number();
    if (count > window_size || lseek64(descriptor, reader.at, SEEK_SET) < 0)
        return Read::file_error;
    const ssize_t size = read_all(descriptor, reader.file->window.get(), window_size);
    if (size < static_cast<ssize_t>(count))
        return Read::file_error;
    // A file that has grown meanwhile is read no further than it was long at first.
    const uint32_t left = reader.file->size - reader.at;
    reader.start = reader.at;
    reader.filled =
        reader.at + (static_cast<uint32_t>(size) < left ? static_cast<uint32_t>(size) : left);
    return Read::good;
}

bool read_file(OssEnvironment &environment, const MarkedFile &marked, FileInput &input,
               Reader &reader) {
    input.descriptor.open(open(marked.name, O_RDONLY | O_LARGEFILE | O_CLOEXEC | O_NONBLOCK));
    struct stat64 status;
    if (input.descriptor.number() < 0 || fstat64(input.descriptor.number(), &status) != 0)
        return file_failure(environment, "a marked file cannot be opened");
    if (!S_ISREG(status.st_mode))
        return file_failure(environment, "a marked file is no regular file");
    if (status.st_size > off64_t{UINT32_MAX})
        return fail(environment, OSS_TOO_LARGE, "a marked file of more than 4 GiB");
    input.window = allocate_bytes(window_size);
    if (!input.window)
        return fail(environment, OSS_NO_MEMORY, "out of memory");
    input.size = static_cast<uint32_t>(status.st_size);
    reader = {.window = input.window.get(), .limit = input.size, .file = &input};
    return true;
}

MarkedFile *mark_temporary(OssEnvironment &environment, FileDescriptor &descriptor) {
    // A relative folder would be another one after a change of directory.
    const char *folder = secure_getenv("TMPDIR");
    char name[4096];
    const int length = snprintf(name, sizeof name, "%s/asn1-XXXXXX",
                                folder != nullptr && *folder == '/' ? folder : "/tmp");
    if (length < 0 || static_cast<std::size_t>(length) >= sizeof name) {
        file_failure(environment, "the folder for temporary files has too long a name");
        return nullptr;
    }
    descriptor.open(mkostemp64(name, O_CLOEXEC));
    if (descriptor.number() < 0) {
        file_failure(environment, "no temporary file can be made");
        return nullptr;
    }
    auto *marked = static_cast<MarkedFile *>(ossMarkObj(&environment, 1, name));
    if (marked == nullptr) {
        unlink(name);
        fail(environment, OSS_NO_MEMORY, "out of memory");
        return nullptr;
    }
    marked->temporary = true;
    return marked;
}

bool open_for_writing(OssEnvironment &environment, const MarkedFile &marked,
                      FileDescriptor &descriptor) {
    descriptor.open(
        open(marked.name, O_WRONLY | O_LARGEFILE | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    return descriptor.number() >= 0 ||
           file_failure(environment, "a marked file cannot be opened for writing");
}

bool end_writing(FileDescriptor &descriptor, bool all_well, uint32_t size) {
    if (all_well && lseek64(descriptor.number(), 0, SEEK_CUR) == off64_t{size})
        return descriptor.close();
    (void)!ftruncate64(descriptor.number(), 0);
    descriptor.close();
    return false;
}

bool is_same_file(const MarkedFile &a, const MarkedFile &b) {
    struct stat64 left, right;
    return &a == &b || (stat64(a.name, &left) == 0 && stat64(b.name, &right) == 0 &&
                        left.st_dev == right.st_dev && left.st_ino == right.st_ino);
}

} // namespace dencoder
