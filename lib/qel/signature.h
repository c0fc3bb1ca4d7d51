// signature.h: what digests, signatures and their verification share.
#ifndef QEL_SIGNATURE_H
#define QEL_SIGNATURE_H

#include <cstdint>

#include "token_key.h"
#include <lib/context.h>
#include <lib/memory.h>
#include <qel/qelp.h>

namespace qel {

constexpr uint32_t digest_size = 16; // of MD2 and MD5 alike

// The digest identifier (shared) that an algorithm identifier's OID stands for: MD2 or MD5 itself,
// or the digest of md2WithRSAEncryption or md5WithRSAEncryption. QEL_ERR_UNSUPPORTED_ALG: any
// other.
QelStatus find_digest(const QelAlgId *algorithm, const QelAlgId **digest_out);
QelStatus find_signature_digest(const QelAlgId *algorithm, const QelAlgId **digest_out);
using SignerKey = PrivateKey;

// Signs an encoded DigestInfo (PKCS#1) with a key that is given. The signature follows the rule for
// output bytes. QEL_ERR_KEY_TYPE, QEL_ERR_BAD_KEY, QEL_ERR_GENERAL, QEL_ERR_SIGN as for qel_sign.
QelStatus sign_digest_info(QelContext *context, const uint8_t *data, uint32_t length,
                           const SignerKey &key, uint8_t **signature, uint32_t *signature_length);

// Stores the algorithms of a signature in the context, unless one is under way there. A null
// algorithm leaves what is stored. QEL_ERR_UNSUPPORTED_ALG.
QelStatus store_algorithms(QelContext *context, const QelAlgId *signature_algorithm);
// Ends the digest and the signature under way. A cipher's session is left alone.
void end_operation(QelContext *context);

// Feeds data to the stored digest algorithm, or with QEL_MODE_DIGEST takes them as the digest.
// digest receives digest_size bytes in all modes but QEL_MODE_UPDATE.
QelStatus digest_part(QelContext *context, const uint8_t *data, uint32_t length, uint32_t mode,
                      uint8_t *digest);

// The encoding of a value in storage of its own.
QelStatus encode(QelContext *context, const void *value, int pdu, Owned<uint8_t> *encoding_out,
                 uint32_t *length_out);

} // namespace qel

#endif
