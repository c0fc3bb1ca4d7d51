// catalogue.h: the library's message catalogue.
#ifndef QEL_CATALOGUE_H
#define QEL_CATALOGUE_H

#include <nl_types.h>

namespace qel {

inline constexpr nl_catd no_catalogue = nullptr;

// (nl_catd)-1 when there is none for the user's language; catgets answers that with its default.
inline nl_catd open_catalogue() {
    return catopen("qelcat", -1);
}

inline void close_catalogue(nl_catd catalogue) {
    if (catalogue != no_catalogue && catalogue != reinterpret_cast<nl_catd>(-1))
        catclose(catalogue);
}

} // namespace qel

#endif
