// oids.h: the object identifiers that the toolkit reads and writes.
#ifndef TOOLKIT_OIDS_H
#define TOOLKIT_OIDS_H

#include "ber.h"

namespace toolkit {

// Below 1.2.840.113549, the arc of RSA Data Security.
constexpr Oid rsadsi(uint8_t first, uint8_t second) {
    return {8, {0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, first, second}};
}
constexpr Oid pkcs(uint8_t number, uint8_t last) {
    return {9, {0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, 0x01, number, last}};
}

// clang-format off
inline constexpr Oid oid_des_cbc      = {5, {0x2b, 0x0e, 0x03, 0x02, 0x07}}; // 1.3.14.3.2.7
inline constexpr Oid oid_rsa_annex    = {4, {0x55, 0x08, 0x01, 0x01}};       // 2.5.8.1.1
inline constexpr Oid oid_rsa          = pkcs(1, 1);                          // 1.2.840.113549.1.1.1
inline constexpr Oid oid_md2_with_rsa = pkcs(1, 2);                          // 1.2.840.113549.1.1.2
inline constexpr Oid oid_md5_with_rsa = pkcs(1, 4);                          // 1.2.840.113549.1.1.4
inline constexpr Oid oid_dh           = pkcs(3, 1);                          // 1.2.840.113549.1.3.1
inline constexpr Oid oid_md2_with_des = pkcs(5, 1);                          // 1.2.840.113549.1.5.1
inline constexpr Oid oid_md5_with_des = pkcs(5, 3);                          // 1.2.840.113549.1.5.3
inline constexpr Oid oid_md2_with_rc2 = pkcs(5, 4);                          // 1.2.840.113549.1.5.4
inline constexpr Oid oid_md5_with_rc2 = pkcs(5, 6);                          // 1.2.840.113549.1.5.6
inline constexpr Oid oid_md2          = rsadsi(2, 2);                        // 1.2.840.113549.2.2
inline constexpr Oid oid_md5          = rsadsi(2, 5);                        // 1.2.840.113549.2.5
inline constexpr Oid oid_rc2_cbc      = rsadsi(3, 2);                        // 1.2.840.113549.3.2
inline constexpr Oid oid_rc4          = rsadsi(3, 4);                        // 1.2.840.113549.3.4
inline constexpr Oid oid_desx_cbc     = rsadsi(3, 6);                        // 1.2.840.113549.3.6
inline constexpr Oid oid_des_ede3_cbc = rsadsi(3, 7);                        // 1.2.840.113549.3.7
// clang-format on

} // namespace toolkit

#endif
