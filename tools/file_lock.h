// file_lock.h: holding off others who change the same file.
#ifndef TOOLS_FILE_LOCK_H
#define TOOLS_FILE_LOCK_H

#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool {

// Opens a file and holds off others who lock it in the same way, until it goes. What is locked is the
// file that path leads to, also where another took its place meanwhile.
class FileLock {
public:
    explicit FileLock(const std::string &path, int flags = O_RDONLY) {
        for (;;) {
            descriptor_ = open(path.c_str(), flags | O_CLOEXEC, 0666);
            struct stat held, named;
            locked_ = descriptor_ >= 0 && flock(descriptor_, LOCK_EX) == 0;
            if (!locked_ || fstat(descriptor_, &held) != 0 || stat(path.c_str(), &named) != 0 ||
                (held.st_dev == named.st_dev && held.st_ino == named.st_ino))
                return;
            close(descriptor_);
        }
    }
    ~FileLock() {
        if (descriptor_ >= 0)
            close(descriptor_);
    }
    FileLock(const FileLock &) = delete;
    FileLock &operator=(const FileLock &) = delete;

    // Some file systems know no locks, and nobody is held off; errno says why.
    bool locked() const { return locked_; }
    int descriptor() const { return descriptor_; }

private:
    int descriptor_ = -1;
    bool locked_ = false;
};

} // namespace tool

#endif
