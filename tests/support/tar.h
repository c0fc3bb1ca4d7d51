// tar.h: reads archives of test inputs (POSIX.1 ustar, plain files).
#ifndef TESTS_SUPPORT_TAR_H
#define TESTS_SUPPORT_TAR_H

#include "support/files.h"

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

// Calls back with the name and contents of every file in the archive.
inline void each_in_tar(const Bytes &archive,
                        const std::function<void(const std::string &, const Bytes &)> &check) {
    constexpr std::size_t block_size = 512, size_at = 124, type_at = 156;
    for (std::size_t at = 0; at + block_size <= archive.size() && archive[at] != 0;) {
        const char *header = reinterpret_cast<const char *>(&archive[at]);
        const std::size_t size = std::strtoul(header + size_at, nullptr, 8);
        const std::size_t begin = at + block_size;
        if (size > archive.size() - begin) {
            std::fprintf(stderr, "test support: a broken archive\n");
            std::abort();
        }
        if (header[type_at] == '0' || header[type_at] == 0)
            check(header, Bytes(&archive[begin], &archive[begin] + size));
        at = begin + (size + block_size - 1) / block_size * block_size;
    }
}

#endif
