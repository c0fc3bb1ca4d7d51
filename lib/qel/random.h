// random.h: random bytes for the library's own use.
#ifndef QEL_RANDOM_H
#define QEL_RANDOM_H

#include <cstdint>

#include <qel/qel.h>

namespace qel {

// Fills a buffer with length random bytes, 1 or more. QEL_ERR_GENERAL: no token session.
// QEL_ERR_RANDOM.
QelStatus fill_random(uint8_t *buffer, uint32_t length);

} // namespace qel

#endif
