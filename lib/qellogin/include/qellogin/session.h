// session.h: what the library asks of the key server beyond <qel/qelserv.h>.
#ifndef QELLOGIN_SESSION_H
#define QELLOGIN_SESSION_H

#include <cstdint>

#include <qel/qel.h>

// Registers a key package. What encoding it and __qel_save_key_under_uid return.
QelStatus save_keypkg_with_qelserv(QelContext *context, const QelKeyPkg *package);

// Withdraws the key of the user that a name stands for: of the calling user for a host's address, of
// the account of that name for any other. QEL_ERR_UNKNOWN_USER: there is no such account; the
// server's answer does not count.
QelStatus withdraw_key_from_qelserv(QelContext *context, const char *name);

// Sign data, or decrypt a wrapped key, with the calling user's registered key.
//   algorithm  named to the server; its encoding's failure is returned.
//   result     output bytes; a caller's buffer that is too small is QEL_ERR_BAD_PARAM here.
// QEL_ERR_SERV_SIGN, QEL_ERR_SERV_DECRYPT: the call failed or the server refused.
// QEL_ERR_SERV_CONNECT: a context without key server. QEL_ERR_GENERAL: the host's name cannot be read.
QelStatus rpc_sign(QelContext *context, const uint8_t *data, const uint32_t *length,
                   const QelAlgId *algorithm, uint8_t **result, uint32_t *result_length);
QelStatus rpc_unwrap(QelContext *context, const uint8_t *data, const uint32_t *length,
                     const QelAlgId *algorithm, uint8_t **result, uint32_t *result_length);

#endif
