// fuzz.h: what fuzz targets share.
#ifndef FUZZ_FUZZ_H
#define FUZZ_FUZZ_H

#include <qel/qelp.h>

#include <cstdlib>

inline void must(bool condition) {
    if (!condition)
        std::abort();
}

inline QelContext *context() {
    static QelContext *made = [] {
        QelContext *fresh = nullptr;
        must(__qel_init(&fresh, nullptr, nullptr) == QEL_OK);
        return fresh;
    }();
    return made;
}

#endif
