// weak_key.h: DES keys that are not to be used.
#ifndef UTIL_WEAK_KEY_H
#define UTIL_WEAK_KEY_H

#include <cstdint>

// 1 if the 8 bytes are none of the 4 weak and 12 semi-weak keys of DES (FIPS 74, section 3.6) as
// they stand there, with odd parity; 0 if they are one. Time does not depend on the key.
int is_good_des_key(const uint8_t *key);

#endif
