/*
 * store.h: where certificates and key packages are kept. Part of qelp.h; the public family (qel.h)
 * has the same operations with the repository fixed.
 */
#ifndef QEL_STORE_H
#define QEL_STORE_H

#include <qel/qel.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/*
 * A call names one repository:
 *
 *   repository             key packages                            certificates
 *   QEL_REPO_FILE          the data-set file of that name          the data-set file of that name
 *   QEL_REPO_DSV           the naming-service entry of that user   the entry with that subject
 *   QEL_REPO_QELSERV       the key server; read only               -
 *   QEL_REPO_DSV_QELSERV   the naming service, with the key        -
 *                          server kept in step; set and remove
 *   QEL_REPO_DEFAULT       LOGIN.KEYPKG in the caller's home       the file named after the subject
 *                                                                  in the certificate directory
 *   QEL_REPO_STDIN         -                                       standard input
 *
 * Another value, or one that an operation has no use for, is QEL_ERR_BAD_PARAM.
 *
 * A data-set file holds one item in armour between marker lines; one with more items is refused when
 * it is read (QEL_ERR_FILE_FORMAT). A key package is chosen by its identifier, which is that of the
 * context.
 */
enum {
    QEL_REPO_FILE = 1,
    QEL_REPO_DSV = 2,
    QEL_REPO_QELSERV = 4,
    QEL_REPO_DSV_QELSERV = 8,
    QEL_REPO_DEFAULT = 16,
    QEL_REPO_STDIN = 32
};

/* An item of a data set. Length 0: removed. */
typedef struct QelDataSetItem {
    uint8_t *data;
    uint32_t length;
} QelDataSetItem;

/* ---- Key packages ---------------------------------------------------------------------------------- */

QelStatus __qel_get_keypkg(QelContext *context, int repository, const char *name,
                           QelKeyPkg **package_out);
QelStatus __qel_get_keypkg_with_pwd(QelContext *context, int repository, const char *name,
                                    const char *pass_phrase, QelKeyPkg **package_out,
                                    uint8_t **private_key_der, uint32_t *private_key_length);
QelStatus __qel_get_keypkg_data_set(QelContext *context, int repository, const char *name,
                                    QelDataSetItem **items_out, uint32_t *count_out);
QelStatus __qel_set_keypkg(QelContext *context, int repository, const char *name,
                           const QelKeyPkg *package);
QelStatus __qel_remove_keypkg(QelContext *context, int repository, const char *name);
QelStatus __qel_check_keypkg_presence(QelContext *context, const char *key_identifier,
                                      int repository, const char *name, int *found_out);

/* ---- Certificates ---------------------------------------------------------------------------------- */

QelStatus __qel_get_cert(QelContext *context, int repository, const char *name,
                         QelCert **certificates_out, int *count_out);
QelStatus __qel_get_cert_data_set(QelContext *context, int repository, const char *name,
                                  QelDataSetItem **items_out, uint32_t *count_out);
QelStatus __qel_set_cert(QelContext *context, int repository, const char *name,
                         const QelCert *certificate);
QelStatus __qel_remove_cert(QelContext *context, int repository, const char *name,
                            const QelName *issuer, const QelSerial *serial);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
