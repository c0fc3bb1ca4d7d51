/*
 * qelserv.h: the protocol between libqel and the key server qelserv (ONC RPC, RFC 5531; XDR, RFC
 * 4506), for programs that serve it or speak it themselves. Compile with the flags of libtirpc
 * (pkg-config libtirpc).
 *
 * Bytes travel as arrays of XDR unsigned characters, so that each costs four on the wire; packed
 * opaque data are not the same. Every string and array has a bound, beyond which nothing is encoded
 * or decoded.
 */
#ifndef QEL_QELSERV_H
#define QEL_QELSERV_H

#include <rpc/rpc.h>

#include <qel/qel.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

#define QELSERV_PROG 100255
#define QELSERV_VERS 1

enum {
    QELSERV_SETKEY = 1,
    QELSERV_LISTKEY = 2,
    QELSERV_STATKEY = 3,
    QELSERV_DECRYPT = 4,
    QELSERV_SIGN = 5,
    QELSERV_ENCRYPT = 6,
    QELSERV_GETKEYPKG = 7
};

/* Bounds, in bytes. */
enum {
    QELSERV_MAX_STRING = 1024,
    QELSERV_MAX_PRIVKEY = 1024,
    QELSERV_MAX_ALGID = 1024,
    QELSERV_MAX_CERT = 8192,
    QELSERV_MAX_DATA = 8192,
    QELSERV_MAX_KEYPKG = 65536
};

/* The server's verdict. Whatever is not QELSERV_OK is a failure. */
typedef int32_t qelserv_status;
enum {
    QELSERV_OK = 0,
    QELSERV_NO_KEY = 1,        /* no such entry */
    QELSERV_DENIED = 2,        /* not the caller's to do */
    QELSERV_BAD_ARGUMENT = 3,  /* what was sent makes no sense */
    QELSERV_BAD_PACKAGE = 4,   /* the key package cannot be read, or its signature is not good */
    QELSERV_BAD_KEY = 5,       /* the private key does not belong to the key package */
    QELSERV_USAGE = 6,         /* the key is not for this use */
    QELSERV_LIMIT = 7,         /* the caller, or the server, has as many entries as it may */
    QELSERV_NOT_LOGGED_IN = 8, /* the caller has registered no key */
    QELSERV_KEY_EXISTS = 9,    /* QELSERV_SETKEY: there is an entry for this key already */
    QELSERV_LOCKED = 10,       /* the entry is there, but its private key was taken out of memory */
    QELSERV_FAILED = 11        /* the operation itself failed, for instance on the data */
};

/* What QELSERV_SETKEY does with the entries of the users that it lists, by its flags. */
enum {
    QELSERV_WITHDRAW = 0, /* the entry of this key identifier and host address */
    QELSERV_LOCK = 1,     /* forget the private keys, keep the packages */
    QELSERV_WITHDRAW_ALL = 2
};

typedef QelOctetString qelserv_bytes;

/* ---- Values ------------------------------------------------------------------------------------- */

/* User ids. */
typedef struct uid_list {
    int32_t uid;
    struct uid_list *next;
} uid_list;

/*
 * QELSERV_SETKEY registers a key package with its private key for the calling user; flags is the time
 * to keep it, in seconds (0: the server's default). For an entry that is locked, with the same public
 * key, it unlocks. Without a private key it replaces the package of an entry with the same public key,
 * whose usage can become narrower then, never wider.
 * With uids it withdraws or locks entries of the listed users, as flags says: the caller's own, and
 * those of anybody for the super-user. The private key is an encoded PrivateKeyInfo (PKCS#8).
 */
typedef struct qelserv_keyinfo {
    char *keyid;
    uid_list *uids;
    char *hostaddr; /* dotted IPv4 */
    int32_t flags;
    int32_t usage; /* USAGE_... */
    qelserv_bytes privkey;
    qelserv_bytes cert;
    qelserv_bytes keypkg; /* encoded key package */
} qelserv_keyinfo;

/*
 * QELSERV_LISTKEY lists a user's entries (uid; the super-user may name any user, and everybody with
 * -1). One element of the result:
 */
typedef struct qelserv_listinfo {
    int32_t uid;
    int32_t flags;
} qelserv_listinfo;

typedef struct qelserv_keylist {
    qelserv_status status;
    char *keyid;
    int32_t uid;
    char *hostaddr;
    struct qelserv_keylist *next;
} qelserv_keylist;
typedef qelserv_keylist *qelserv_keylistp;

/*
 * QELSERV_STATKEY tells about the caller's entries, or for the super-user those of another uid than
 * 0. An empty keyid or hostaddr stands for any. In an element of the result, status is QELSERV_OK or
 * QELSERV_LOCKED, flags the seconds that are left (0: no limit), and stamp the time of registration
 * (seconds since 1970). Without an entry there is one element of QELSERV_NOT_LOGGED_IN.
 */
typedef struct qelserv_statinfo {
    int32_t uid;
    char *keyid;
    char *hostaddr;
    int32_t flags;
} qelserv_statinfo;

typedef struct qelserv_keystat {
    qelserv_status status;
    char *keyid;
    char *hostaddr;
    int32_t flags;
    int32_t usage;
    uint32_t stamp;
    struct qelserv_keystat *next;
} qelserv_keystat;
typedef qelserv_keystat *qelserv_keystatp;

/*
 * QELSERV_SIGN signs an encoded DigestInfo (PKCS#1 block type 1), QELSERV_DECRYPT opens and
 * QELSERV_ENCRYPT makes a PKCS#1 block of type 2; algid is rsaEncryption in all three.
 */
typedef struct qelserv_cryptinfo {
    qelserv_status status;
    int32_t flags;
    int32_t usage;
    char *keyid;
    char *hostaddr;
    qelserv_bytes algid; /* encoded algorithm identifier */
    qelserv_bytes data;
} qelserv_cryptinfo;

typedef struct qelserv_cryptdata {
    qelserv_status status;
    qelserv_bytes data;
} qelserv_cryptdata;
typedef qelserv_cryptdata *qelserv_cryptdatap;

/* QELSERV_GETKEYPKG gives the caller's key packages; empty strings stand for any. */
typedef struct qelserv_keypkginfo {
    char *keyid;
    char *hostaddr;
} qelserv_keypkginfo;

typedef struct qelserv_keypkglist {
    qelserv_status status;
    qelserv_bytes keypkg; /* encoded key package */
    struct qelserv_keypkglist *next;
} qelserv_keypkglist;
typedef qelserv_keypkglist *qelserv_keypkglistp;

/* ---- XDR ---------------------------------------------------------------------------------------- */

/*
 * Each encodes, decodes or releases a value, as the stream's operation says, and returns TRUE, or
 * FALSE at the first field that fails. A value that is decoded begins as zeros; what a decoding that
 * failed has allocated is released with the same routine (xdr_free). Memory comes from malloc. The
 * members of a list are walked without recursion. The pointer routines (...p) take an optional value:
 * a null pointer is a value that is not there.
 */
bool_t xdr_qelserv_status(XDR *xdrs, qelserv_status *value);
bool_t xdr_uid_list(XDR *xdrs, uid_list *value);
bool_t xdr_qelserv_keyinfo(XDR *xdrs, qelserv_keyinfo *value);
bool_t xdr_qelserv_listinfo(XDR *xdrs, qelserv_listinfo *value);
bool_t xdr_qelserv_keylist(XDR *xdrs, qelserv_keylist *value);
bool_t xdr_qelserv_keylistp(XDR *xdrs, qelserv_keylistp *value);
bool_t xdr_qelserv_statinfo(XDR *xdrs, qelserv_statinfo *value);
bool_t xdr_qelserv_keystat(XDR *xdrs, qelserv_keystat *value);
bool_t xdr_qelserv_keystatp(XDR *xdrs, qelserv_keystatp *value);
bool_t xdr_qelserv_cryptinfo(XDR *xdrs, qelserv_cryptinfo *value);
bool_t xdr_qelserv_cryptdata(XDR *xdrs, qelserv_cryptdata *value);
bool_t xdr_qelserv_cryptdatap(XDR *xdrs, qelserv_cryptdatap *value);
bool_t xdr_qelserv_keypkginfo(XDR *xdrs, qelserv_keypkginfo *value);
bool_t xdr_qelserv_keypkglist(XDR *xdrs, qelserv_keypkglist *value);
bool_t xdr_qelserv_keypkglistp(XDR *xdrs, qelserv_keypkglistp *value);

/* ---- Calls -------------------------------------------------------------------------------------- */

/*
 * Each makes one call and waits 25 seconds at most. The result is the caller's place, which begins
 * as zeros and is released with the result's XDR routine. Returns the status of the call, RPC_SUCCESS
 * (0) when the server has answered; its verdict is in the result.
 */
enum clnt_stat qelserv_setkey_1(qelserv_keyinfo argument, qelserv_status *result, CLIENT *client);
enum clnt_stat qelserv_listkey_1(qelserv_listinfo argument, qelserv_keylistp *result,
                                 CLIENT *client);
enum clnt_stat qelserv_statkey_1(qelserv_statinfo argument, qelserv_keystatp *result,
                                 CLIENT *client);
enum clnt_stat qelserv_decrypt_1(qelserv_cryptinfo argument, qelserv_cryptdatap *result,
                                 CLIENT *client);
enum clnt_stat qelserv_sign_1(qelserv_cryptinfo argument, qelserv_cryptdatap *result,
                              CLIENT *client);
enum clnt_stat qelserv_encrypt_1(qelserv_cryptinfo argument, qelserv_cryptdatap *result,
                                 CLIENT *client);
enum clnt_stat qelserv_getkeypkg_1(qelserv_keypkginfo argument, qelserv_keypkglistp *result,
                                   CLIENT *client);

/* ---- Sessions ------------------------------------------------------------------------------------ */

/*
 * Connects to the key server of this host, through the loopback transport of the network
 * configuration: a connection-oriented one, else one with orderly release.
 *   client_out  destroyed with clnt_destroy by whoever holds it.
 * QEL_ERR_GENERAL: the host's name or the network configuration cannot be read.
 * QEL_ERR_SERV_CONNECT: no such transport, no key server is registered there, or what answers in its
 * place runs neither as root nor as the users qelserv and the caller, who gets no connection.
 */
QelStatus __qel_get_client_handle(CLIENT **client_out);

/*
 * Hands a key to the key server, under the context's key identifier and host address, or with uids
 * withdraws those users' keys.
 *   uids         or null.
 *   usage        USAGE_...
 *   key, cert, package  encoded; null with length 0 where there is none. A certificate is given with
 *                a key only.
 * QEL_ERR_GENERAL: a context without key server, or the host's name cannot be read.
 * QEL_ERR_LOGIN: the call failed (logged), or the server refused. QEL_ERR_ENTRY_EXISTS.
 */
QelStatus __qel_save_key_under_uid(QelContext *context, uid_list *uids, int32_t usage,
                                   int32_t flags, const uint8_t *key, uint32_t key_length,
                                   const uint8_t *cert, uint32_t cert_length,
                                   const uint8_t *package, uint32_t package_length);

/*
 * Whether the server holds a key of the calling user under the context's key identifier. Anything but
 * the plain answer that it does not counts as yes.
 * QEL_ERR_NOT_LOGGED_IN: it does not. QEL_ERR_SERV_STAT: the call failed. QEL_ERR_SERV_CONNECT: a
 * context without key server. QEL_ERR_GENERAL: the host's name cannot be read.
 */
QelStatus __qel_rpc_stat(QelContext *context);

/*
 * Fetches the key packages that the calling user has registered, in the server's order.
 *   name      not used.
 *   list_out  a new list of encoded key packages; the caller frees it (__qel_free_item_list).
 * QEL_ERR_NOT_LOGGED_IN: none is registered. QEL_ERR_NO_KEYPKG: the server refused.
 * QEL_ERR_GENERAL: the call failed, or the host's name cannot be read. QEL_ERR_SERV_CONNECT: a context
 * without key server. QEL_ERR_NO_MEMORY.
 */
QelStatus __qel_get_qelserv_keypkg(QelContext *context, const char *name, QelItemList **list_out,
                                   uint32_t *count_out);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
