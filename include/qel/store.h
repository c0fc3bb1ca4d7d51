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
 * it is read. The kinds of the two markers may differ. Files are made with mode 0600, also in the
 * certificate directory: who stores there for others lets them read. They are written in place. A key package is chosen by
 * its identifier, which is that of the context. Names in the naming service are those of qelp.h.
 *
 * Statuses of every operation that reads or writes, by repository:
 *
 *   files           QEL_ERR_NO_FILE: there is no such file. QEL_ERR_OPEN_FILE, QEL_ERR_FILE_IO.
 *                   QEL_ERR_FILE_FORMAT: not a data set, or one with more items.
 *                   QEL_ERR_FROM_RFC1421: no armour between the markers; nothing at all between them is
 *                   QEL_ERR_BAD_PARAM.
 *   default file    the same. QEL_ERR_UNKNOWN_USER: the caller is not in the user database.
 *   naming service  QEL_ERR_UNKNOWN_USER: no such entry, or no name was given and the caller is not in
 *                   the user database. QEL_ERR_NO_KEYPKG, QEL_ERR_NO_CERT: the entry has none.
 *                   QEL_ERR_NO_DN: the search for a subject failed. QEL_ERR_XFN: it failed otherwise.
 *   key server      QEL_ERR_NOT_LOGGED_IN: the caller has registered no key. QEL_ERR_NO_KEYPKG: the
 *                   server refused. QEL_ERR_SERV_CONNECT: a context without key server.
 *                   QEL_ERR_GENERAL: the call failed. QEL_ERR_UNKNOWN_USER: no name was given and the
 *                   caller is not in the user database.
 *
 * A subject is a printable distinguished name in any form; it is normalised (__qel_normalize_DN), and
 * what is wrong with it has the statuses of qel_str2dn. One with a slash names no file in the
 * certificate directory: QEL_ERR_BAD_PARAM. All operations can fail with QEL_ERR_NO_MEMORY.
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

/*
 * __qel_get_keypkg gives the first key package with the context's identifier whose signature is good;
 * what else the repository holds, damaged packages too, is passed over.
 *   repository   QEL_REPO_FILE, QEL_REPO_DSV, QEL_REPO_QELSERV or QEL_REPO_DEFAULT.
 *   name         QEL_REPO_FILE: the file; null or "": standard input. QEL_REPO_DSV: the entry; null:
 *                that of the caller's login name. Otherwise it is not looked at.
 *   package_out  a new record; the caller frees it (qel_free_keypkg, or __qel_asn1_free where it may
 *                have keypkgAttrs).
 * QEL_ERR_NO_KEYPKG: there is none.
 */
QelStatus __qel_get_keypkg(QelContext *context, int repository, const char *name,
                           QelKeyPkg **package_out);

/*
 * The same, and opens the package with its pass phrase. A package that the pass phrase does not open
 * is passed over too, so that a wrong one is QEL_ERR_NO_KEYPKG.
 *   pass_phrase      NUL-terminated; null: this is __qel_get_keypkg, and the two places below may be
 *                    null.
 *   private_key_der  the PrivateKeyInfo (PKCS#8), DER, in a new block of *private_key_length bytes,
 *                    for the caller to zero and free.
 */
QelStatus __qel_get_keypkg_with_pwd(QelContext *context, int repository, const char *name,
                                    const char *pass_phrase, QelKeyPkg **package_out,
                                    uint8_t **private_key_der, uint32_t *private_key_length);

/*
 * All key packages of a repository, encoded and not looked at.
 *   repository, name  as for __qel_get_keypkg.
 *   items_out         a new array of *count_out items, in the repository's order. The caller frees
 *                     the data of each and the array with free(). Null where there are none.
 */
QelStatus __qel_get_keypkg_data_set(QelContext *context, int repository, const char *name,
                                    QelDataSetItem **items_out, uint32_t *count_out);

/*
 * Stores a key package in the place of the one that the repository has under the context's identifier.
 *   repository  QEL_REPO_FILE, QEL_REPO_DSV, QEL_REPO_DSV_QELSERV or QEL_REPO_DEFAULT.
 *   name        the file; or the entry, null: that of the caller's login name. It is not looked at for
 *               QEL_REPO_DEFAULT.
 * In a file the old package is removed before the new one is written. With QEL_REPO_DSV_QELSERV the
 * package then replaces the one that the caller has registered with the key server, if any.
 * QEL_ERR_BAD_PARAM: also an entry that is registered under another distinguished name than the
 * package's owner. QEL_ERR_ENTRY_EXISTS: the entry has this very package, and nothing was done.
 * QEL_ERR_SERV_UPDATE: the naming service has the package, but the key server could not be asked or
 * did not take it. QEL_ERR_NO_FILE: an empty file name. QEL_ERR_ASN1_ENCODE: an incomplete record.
 * QEL_ERR_GENERAL: the file cannot be deleted.
 */
QelStatus __qel_set_keypkg(QelContext *context, int repository, const char *name,
                           const QelKeyPkg *package);

/*
 * Removes key packages with the context's identifier whose signature is good.
 *   repository  QEL_REPO_FILE, QEL_REPO_DEFAULT: the first; a file that it leaves empty is deleted.
 *               QEL_REPO_DSV: every one of an entry. QEL_REPO_DSV_QELSERV: these, and then the key that
 *               the user of that name has registered with the key server, whose answer does not count.
 *   name        the file, or the entry. Without a file name, which is "" or QEL_REPO_DEFAULT, what
 *               is left goes to the hidden file .LOGIN.KEYPKG in the caller's home and not to where it
 *               came from: standard input, or the default file, which stays as it is.
 * QEL_ERR_NO_KEYPKG: there is none. QEL_ERR_GENERAL: the file cannot be deleted, as when there is no
 * hidden file. QEL_ERR_UNKNOWN_USER: also no account of that name, to withdraw a key of; the key
 * package is gone then.
 */
QelStatus __qel_remove_keypkg(QelContext *context, int repository, const char *name);

/*
 * Whether a repository has a key package with an identifier, which need not be the context's.
 *   repository, name  as for __qel_get_keypkg.
 *   found_out         1: it has; 0: it has not, or there is no such user, or the entry has no key
 *                     package.
 * What __qel_verify_keypkg_sig returns for the first package that is not good, whichever others are.
 */
QelStatus __qel_check_keypkg_presence(QelContext *context, const char *key_identifier,
                                      int repository, const char *name, int *found_out);

/* ---- Certificates ---------------------------------------------------------------------------------- */

/*
 * __qel_get_cert gives all certificates of a file, or of a subject. None is verified.
 *   repository        QEL_REPO_FILE, QEL_REPO_DSV, QEL_REPO_DEFAULT or QEL_REPO_STDIN.
 *   name              QEL_REPO_FILE: the file; null or "": standard input. QEL_REPO_DSV,
 *                     QEL_REPO_DEFAULT: the subject. It is not looked at for QEL_REPO_STDIN.
 *   certificates_out  a new array of *count_out records, in the repository's order; the caller frees
 *                     it (qel_free_cert_list).
 * QEL_ERR_GENERAL: the naming service has a certificate of another subject there.
 * QEL_ERR_ASN1_DECODE: something is no certificate.
 */
QelStatus __qel_get_cert(QelContext *context, int repository, const char *name,
                         QelCert **certificates_out, int *count_out);

/* The same, encoded and not looked at; items_out as for __qel_get_keypkg_data_set. */
QelStatus __qel_get_cert_data_set(QelContext *context, int repository, const char *name,
                                  QelDataSetItem **items_out, uint32_t *count_out);

/*
 * Adds a certificate to those that are there, without looking for the same one among them; a file with
 * two is not read again.
 *   repository  QEL_REPO_FILE, QEL_REPO_DSV, or QEL_REPO_DEFAULT, where a symbolic link is not
 *               followed: QEL_ERR_OPEN_FILE.
 *   name        QEL_REPO_FILE: the file. QEL_REPO_DSV: the entry, which is registered under the
 *               certificate's subject if it is not; null: that of the caller's login name. It is not
 *               looked at for QEL_REPO_DEFAULT.
 * QEL_ERR_NO_FILE: no file name. QEL_ERR_ENTRY_EXISTS: the entry is registered under another
 * distinguished name, or another entry under this one. QEL_ERR_ASN1_ENCODE: an incomplete record;
 * what qel_dn2str returns.
 */
QelStatus __qel_set_cert(QelContext *context, int repository, const char *name,
                         const QelCert *certificate);

/*
 * Removes the first certificate with an issuer and a serial number, or all of them.
 *   repository  QEL_REPO_FILE or QEL_REPO_DSV.
 *   name        the file, or the subject.
 *   issuer      null: the file is deleted, or the entry loses all certificates.
 *   serial      looked at only if there is an issuer, and then not empty.
 * QEL_ERR_NO_ENTRY: there is no such certificate. QEL_ERR_NO_FILE: also an issuer, but an empty file
 * name. QEL_ERR_GENERAL: the file cannot be deleted. QEL_ERR_ASN1_DECODE: something before it is no
 * certificate.
 */
QelStatus __qel_remove_cert(QelContext *context, int repository, const char *name,
                            const QelName *issuer, const QelSerial *serial);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
