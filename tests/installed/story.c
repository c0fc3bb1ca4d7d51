/*
 * What a site does with the library, through its C interface alone: an authority is made, Alice
 * enrols, her certificate and key package go into the naming service, she logs in, the key server
 * signs a message, Bob verifies it up to the authority's key, tampering is refused, credentials are
 * printed, and Alice logs out.
 *
 * Runs as the super-user of a private host with a key server, a naming service and the users alice
 * and bob. What the users hand each other lies in the folder that the argument names. With a second
 * argument, STEP, each chapter is first tried with one of its allocations failing, then with the one
 * STEP behind it, and so on: it may end, but in order, and must go well once no allocation fails.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <pwd.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <qel/qelp.h>
#include <qel/qelserv.h>

#define EXPECT(condition)                                                                          \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            fprintf(stderr, "story: line %d: %s\n", __LINE__, #condition);                         \
            exit(1);                                                                               \
        }                                                                                          \
    } while (0)
/* The same, and which status it was. */
#define SUCCEEDS(call)                                                                             \
    do {                                                                                           \
        const QelStatus result = (call);                                                           \
        if (result != QEL_OK) {                                                                    \
            fprintf(stderr, "story: line %d: %s: %u, %s\n", __LINE__, #call, (unsigned)result,     \
                    qel_strerror(NULL, result));                                                   \
            exit(1);                                                                               \
        }                                                                                          \
    } while (0)

#define AUTHORITY   "CN=Authority, O=Acme, C=US"
#define ALICE       "CN=Alice, O=Acme, C=US"
#define PASS_PHRASE "correct horse battery staple"

static const char report[] = "All is well.\n";

/* ---- Memory that comes to an end ----------------------------------------------------------------- */

/* How many allocations there are until one fails, in this process; 0: none fails. */
static unsigned long allocations_left;
/* Seen by the whole family: whether one has failed. */
static volatile int *allocation_failed;

#ifdef FAILING_ALLOCATIONS /* sanitizers have their own */
extern void *__libc_malloc(size_t size);
extern void *__libc_calloc(size_t count, size_t size);
extern void *__libc_realloc(void *block, size_t size);

/* libtirpc (1.3.3) does not survive want of memory: what it asks for itself, or through the C library,
 * it gets. */
static int is_spared(const void *caller) {
    Dl_info where;
    return dladdr(caller, &where) == 0 || strstr(where.dli_fname, "libtirpc") != NULL ||
           strstr(where.dli_fname, "libc.") != NULL;
}

static int fails(const void *caller) {
    if (allocations_left == 0 || --allocations_left != 0)
        return 0;
    *allocation_failed = 1;
    return !is_spared(caller);
}

void *malloc(size_t size) {
    return fails(__builtin_return_address(0)) ? NULL : __libc_malloc(size);
}
void *calloc(size_t count, size_t size) {
    return fails(__builtin_return_address(0)) ? NULL : __libc_calloc(count, size);
}
void *realloc(void *block, size_t size) {
    return fails(__builtin_return_address(0)) ? NULL : __libc_realloc(block, size);
}
#endif

/* ---- Keys and records ---------------------------------------------------------------------------- */

/* An RSA key pair: the private key is an RSAPrivateKey (PKCS#1). */
struct key_pair {
    QelKeyInfo public_key;
    uint8_t *private_key;
    uint32_t private_length;
};

static struct key_pair make_key(QelContext *context) {
    static uint8_t exponent[] = {1, 0, 1};
    const QelRsaKeypairParams parameters = {512, {sizeof exponent, exponent}};
    struct key_pair key = {{(QelAlgId *)QEL_RSA_ENCR_AID, {0, NULL}}, NULL, 0};
    SUCCEEDS(qel_gen_rsa_keypair(context, &parameters, &key.public_key.pubKey.value,
                                 &key.public_key.pubKey.length, &key.private_key,
                                 &key.private_length));
    return key;
}

static void free_key(struct key_pair *key) {
    memset(key->private_key, 0, key->private_length);
    free(key->private_key);
    free(key->public_key.pubKey.value);
}

static QelName *name_of(QelContext *context, const char *text) {
    QelName *name = NULL;
    SUCCEEDS(qel_str2dn(context, text, &name));
    return name;
}

/* A certificate for a subject and its key, signed by the issuer's key. */
static QelCert *issue(QelContext *context, const char *issuer, const struct key_pair *issuer_key,
                      const QelName *subject, const QelKeyInfo *key) {
    QelCert *certificate = calloc(1, sizeof *certificate);
    EXPECT(certificate != NULL);
    certificate->issuer = name_of(context, issuer);
    SUCCEEDS(__qel_gen_serial(context, &certificate->serial.value, &certificate->serial.length));
    SUCCEEDS(__qel_copy_algid(&certificate->signature, QEL_MD5WithRSAEncryption_AID));
    SUCCEEDS(__qel_set_validity(1, 365, &certificate->validity));
    SUCCEEDS(__qel_copy_dn(&certificate->subject, subject));
    SUCCEEDS(__qel_copy_keyinfo(&certificate->pubKeyInfo, key));
    SUCCEEDS(__qel_copy_algid(&certificate->algorithm, QEL_MD5WithRSAEncryption_AID));
    SUCCEEDS(__qel_sign_cert(context, certificate, QEL_RSA_ENCR_AID, issuer_key->private_key,
                             issuer_key->private_length, QEL_MD5WithRSAEncryption_AID));
    return certificate;
}

/* A key package under PASS_PHRASE, whose owner trusts one key. */
static QelKeyPkg *make_package(QelContext *context, const char *owner, const struct key_pair *key,
                               const QelCert *trusted) {
    uint8_t salt[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    const QelPrivateKeyInfo private_info = {
        0, 0, (QelAlgId *)QEL_RSA_ENCR_AID, {key->private_length, key->private_key}, NULL};
    const QelPBEParameter derivation = {{sizeof salt, salt}, 1000};
    QelTrustedKey trusted_key = {0};
    QelKeyPkg *package = calloc(1, sizeof *package);
    QelAlgId *encryption;
    uint8_t *private_der = NULL, *parameters = NULL;
    uint32_t private_length = 0, parameters_length = 0;
    EXPECT(package != NULL);
    package->version = strdup("1.0");
    package->keypkgId = strdup("default_keyid");
    package->owner = name_of(context, owner);
    SUCCEEDS(__qel_copy_keyinfo(&package->pubKeyInfo, &key->public_key));
    package->usage = USAGE_SIGN_ENCRYPT;
    package->mask = QEL_KEYPKG_TKEYS;
    trusted_key.owner = trusted->subject;
    trusted_key.pubKeyInfo = trusted->pubKeyInfo;
    SUCCEEDS(__qel_add_trusted_key(context, &trusted_key, &package->tKeys));
    SUCCEEDS(__qel_copy_algid(&package->algorithm, QEL_MD5WithRSAEncryption_AID));

    /* The private key: encrypted by what changes pass phrases, from nothing. */
    package->encrPrivKeyInfo = calloc(1, sizeof *package->encrPrivKeyInfo);
    encryption = calloc(1, sizeof *encryption);
    EXPECT(package->encrPrivKeyInfo != NULL && encryption != NULL);
    package->encrPrivKeyInfo->encryptionAlgorithm = encryption;
    SUCCEEDS(__qel_copy_oid(&encryption->algorithm, QEL_PbeWithMD5AndDES3_CBC_OID));
    SUCCEEDS(__qel_asn1_encode(context, &derivation, QEL_PDU_PBEParameter, &parameters,
                               &parameters_length));
    encryption->parameters = calloc(1, sizeof *encryption->parameters);
    EXPECT(encryption->parameters != NULL);
    encryption->parameters->value = parameters;
    encryption->parameters->length = parameters_length;
    SUCCEEDS(__qel_asn1_encode(context, &private_info, QEL_PDU_PrivateKeyInfo, &private_der,
                               &private_length));
    SUCCEEDS(__qel_change_pass_phrase(context, PASS_PHRASE, private_der, private_length, package));
    memset(private_der, 0, private_length);
    free(private_der);
    return package;
}

/* ---- What the users hand each other -------------------------------------------------------------- */

static const char *folder;

static const char *path_of(const char *name) {
    static char path[1024];
    EXPECT(__qel_snprintf(path, sizeof path, "%s/%s", folder, name) == 0);
    return path;
}

static void write_bytes(const char *name, const uint8_t *bytes, uint32_t length) {
    FILE *file = fopen(path_of(name), "wb");
    EXPECT(file != NULL && fwrite(bytes, 1, length, file) == length && fclose(file) == 0);
}

static uint8_t *read_bytes(const char *name, uint32_t *length) {
    uint8_t *bytes = NULL;
    SUCCEEDS(__qel_read_input(path_of(name), QEL_FORM_RAW, &bytes, length));
    return bytes;
}

static void write_record(QelContext *context, const char *name, const void *record, int pdu) {
    uint8_t *bytes = NULL;
    uint32_t length = 0;
    SUCCEEDS(__qel_asn1_encode(context, record, pdu, &bytes, &length));
    write_bytes(name, bytes, length);
    free(bytes);
}

static void *read_record(QelContext *context, const char *name, int pdu) {
    uint32_t length = 0;
    uint8_t *bytes = read_bytes(name, &length);
    void *record = NULL;
    SUCCEEDS(__qel_asn1_decode(context, bytes, length, pdu, &record));
    free(bytes);
    return record;
}

/* ---- The story ----------------------------------------------------------------------------------- */

static void authority_is_made(void) {
    QelContext *context = NULL;
    SUCCEEDS(__qel_init(&context, NULL, NULL));
    struct key_pair key = make_key(context);
    QelName *subject = name_of(context, AUTHORITY);
    QelCert *certificate = issue(context, AUTHORITY, &key, subject, &key.public_key);
    SUCCEEDS(__qel_set_cert(context, QEL_REPO_DSV, "root", certificate));
    write_record(context, "authority.cert", certificate, QEL_PDU_Certificate);
    write_bytes("authority.key", key.private_key, key.private_length);
    EXPECT(chmod(path_of("authority.key"), 0600) == 0);
    qel_free_cert(&certificate);
    qel_free_dn(&subject);
    free_key(&key);
    SUCCEEDS(qel_end(context));
}

static void alice_asks_for_a_certificate(void) {
    QelContext *context = NULL;
    QelCertReq request = {0};
    SUCCEEDS(__qel_init(&context, NULL, NULL));
    QelCert *authority = read_record(context, "authority.cert", QEL_PDU_Certificate);
    struct key_pair key = make_key(context);
    QelKeyPkg *package = make_package(context, ALICE, &key, authority);
    SUCCEEDS(__qel_dump_keypkg(context, path_of("alice.KEYPKG"), package, 0));
    request.subject = package->owner;
    request.pubKeyInfo = package->pubKeyInfo;
    request.algorithm = (QelAlgId *)QEL_MD5WithRSAEncryption_AID;
    SUCCEEDS(__qel_sign_certreq(context, &request, QEL_RSA_ENCR_AID, key.private_key,
                                key.private_length, QEL_MD5WithRSAEncryption_AID));
    write_record(context, "alice.req", &request, QEL_PDU_CertificationRequest);
    free(request.signature.value);
    qel_free_keypkg(&package);
    qel_free_cert(&authority);
    free_key(&key);
    SUCCEEDS(qel_end(context));
}

static void authority_issues_and_publishes(void) {
    QelContext *context = NULL;
    struct key_pair key = {0};
    SUCCEEDS(__qel_init(&context, NULL, NULL));
    QelCertReq *request = read_record(context, "alice.req", QEL_PDU_CertificationRequest);
    SUCCEEDS(__qel_verify_certreq(context, request, request->pubKeyInfo));
    key.private_key = read_bytes("authority.key", &key.private_length);
    QelCert *certificate = issue(context, AUTHORITY, &key, request->subject, request->pubKeyInfo);
    SUCCEEDS(__qel_set_cert(context, QEL_REPO_DSV, "alice", certificate));
    write_record(context, "alice.cert", certificate, QEL_PDU_Certificate);
    qel_free_cert(&certificate);
    __qel_free_certreq(&request);
    free_key(&key);
    SUCCEEDS(qel_end(context));
}

static void alice_stores_her_key_package(void) {
    QelContext *context = NULL;
    QelKeyPkg *package = NULL;
    SUCCEEDS(__qel_init(&context, NULL, NULL));
    SUCCEEDS(__qel_get_keypkg(context, QEL_REPO_FILE, path_of("alice.KEYPKG"), &package));
    SUCCEEDS(__qel_set_keypkg(context, QEL_REPO_DSV, NULL, package));
    EXPECT(__qel_set_keypkg(context, QEL_REPO_DSV, NULL, package) == QEL_ERR_ENTRY_EXISTS);
    qel_free_keypkg(&package);
    SUCCEEDS(qel_end(context));
}

static void alice_logs_in(void) {
    QelContext *context = NULL;
    QelKeyPkg *package = NULL;
    uint8_t *private_key = NULL, *package_der = NULL;
    uint32_t private_length = 0, package_length = 0;
    SUCCEEDS(qel_init(&context, NULL, NULL));
    EXPECT(__qel_rpc_stat(context) == QEL_ERR_NOT_LOGGED_IN);
    EXPECT(__qel_get_keypkg_with_pwd(context, QEL_REPO_DSV, NULL, "wrong", &package, &private_key,
                                     &private_length) == QEL_ERR_NO_KEYPKG);
    SUCCEEDS(__qel_get_keypkg_with_pwd(context, QEL_REPO_DSV, NULL, PASS_PHRASE, &package,
                                       &private_key, &private_length));
    SUCCEEDS(__qel_asn1_encode(context, package, QEL_PDU_KeyPkg, &package_der, &package_length));
    SUCCEEDS(__qel_save_key_under_uid(context, NULL, (int32_t)package->usage, 0, private_key,
                                      private_length, NULL, 0, package_der, package_length));
    SUCCEEDS(__qel_rpc_stat(context));
    memset(private_key, 0, private_length);
    free(private_key);
    free(package_der);
    qel_free_keypkg(&package);
    SUCCEEDS(qel_end(context));
}

static void alice_signs_a_message(void) {
    QelContext *context = NULL;
    uint8_t *message = NULL;
    uint32_t length = 0;
    SUCCEEDS(qel_init(&context, NULL, NULL));
    SUCCEEDS(__qel_create_pkcs7_signedData(context, (const uint8_t *)report, sizeof report - 1,
                                           NULL, NULL, 0, QEL_MD5WithRSAEncryption_AID, NULL, NULL,
                                           0, &message, &length));
    write_bytes("message.p7", message, length);
    free(message);
    SUCCEEDS(qel_end(context));
}

/* Bob trusts the authority's key and nothing else. */
static QelStatus verify(QelContext *context, const uint8_t *message, uint32_t length,
                        uint8_t **data, uint32_t *data_length, char **signer) {
    QelCert *authority = read_record(context, "authority.cert", QEL_PDU_Certificate);
    QelTrustedKey key = {0};
    QelTrustedKeys *trusted = NULL;
    QelTrustedKey everything = {0};
    key.owner = authority->subject;
    key.pubKeyInfo = authority->pubKeyInfo;
    SUCCEEDS(__qel_add_trusted_key(context, &key, &trusted));
    const QelStatus status = __qel_verify_pkcs7_signedData(
        context, message, length, trusted, NULL, 0, data, data_length, signer, NULL, NULL, NULL);
    everything.owner = authority->subject;
    SUCCEEDS(__qel_delete_trusted_key(context, &everything, &trusted));
    EXPECT(trusted == NULL);
    qel_free_cert(&authority);
    return status;
}

static void bob_verifies(void) {
    QelContext *context = NULL;
    uint32_t length = 0, data_length = 0;
    uint8_t *message = read_bytes("message.p7", &length), *data = NULL;
    char *signer = NULL;
    uint32_t i;
    SUCCEEDS(__qel_init(&context, NULL, NULL));
    SUCCEEDS(verify(context, message, length, &data, &data_length, &signer));
    EXPECT(data_length == sizeof report - 1 && memcmp(data, report, data_length) == 0);
    EXPECT(strcmp(signer, "CN=ALICE, O=ACME, C=US") == 0);
    free(data);
    free(signer);

    /* One bit of the content. */
    for (i = 0; i + 12 < length && memcmp(message + i, "All is well.", 12) != 0; ++i)
        ;
    message[i + 4] ^= 1;
    data = NULL;
    signer = NULL;
    EXPECT(verify(context, message, length, &data, &data_length, &signer) == QEL_ERR_VERIFY);
    EXPECT(data == NULL && signer == NULL);
    free(message);
    SUCCEEDS(qel_end(context));
}

static void bob_prints_alices_certificate(void) {
    QelContext *context = NULL;
    QelCert *certificates = NULL;
    int count = 0;
    char *text = NULL;
    size_t size = 0;
    FILE *stream = open_memstream(&text, &size);
    EXPECT(stream != NULL);
    SUCCEEDS(__qel_init(&context, NULL, NULL));
    SUCCEEDS(qel_get_cert(context, ALICE, &certificates, &count));
    EXPECT(count == 1);
    SUCCEEDS(__qel_fprint_cert(context, stream, certificates, 1, 0));
    EXPECT(fclose(stream) == 0);
    EXPECT(strstr(text, "Subject: CN=ALICE, O=ACME, C=US\n") != NULL);
    EXPECT(strstr(text, "Issuer: CN=AUTHORITY, O=ACME, C=US\n") != NULL);
    free(text);
    qel_free_cert_list(&certificates, count);
    SUCCEEDS(qel_end(context));
}

/* Bob may read Alice's entry and not write it. */
static void bob_cannot_change_alices_entry(void) {
    QelContext *context = NULL;
    SUCCEEDS(__qel_init(&context, NULL, NULL));
    EXPECT(__qel_remove_cert(context, QEL_REPO_DSV, ALICE, NULL, NULL) == QEL_ERR_XFN);
    EXPECT(__qel_remove_keypkg(context, QEL_REPO_DSV, "alice") == QEL_ERR_XFN);
    SUCCEEDS(qel_end(context));
}

static void alice_logs_out(void) {
    QelContext *context = NULL;
    uid_list own = {0};
    uint8_t *signature = NULL;
    uint32_t length = 0;
    own.uid = (int32_t)getuid();
    SUCCEEDS(qel_init(&context, NULL, NULL));
    SUCCEEDS(__qel_save_key_under_uid(context, &own, 0, 0, NULL, 0, NULL, 0, NULL, 0));
    EXPECT(__qel_rpc_stat(context) == QEL_ERR_NOT_LOGGED_IN);
    EXPECT(qel_sign(context, (const uint8_t *)report, sizeof report - 1, QEL_MODE_FINAL, NULL, NULL,
                    0, QEL_MD5WithRSAEncryption_AID, &signature, &length) != QEL_OK);
    EXPECT(signature == NULL);
    SUCCEEDS(qel_end(context));
}

/* ---- Undoing what a chapter may have done before it ended ---------------------------------------- */

static void remove_certificates(const char *owner) {
    QelContext *context = NULL;
    SUCCEEDS(__qel_init(&context, NULL, NULL));
    __qel_remove_cert(context, QEL_REPO_DSV, owner, NULL, NULL);
    SUCCEEDS(qel_end(context));
}
static void unmake_authority(void) {
    remove_certificates(AUTHORITY);
}
static void unpublish(void) {
    remove_certificates(ALICE);
}
static void remove_key_package(void) {
    QelContext *context = NULL;
    SUCCEEDS(__qel_init(&context, NULL, NULL));
    __qel_remove_keypkg(context, QEL_REPO_DSV, "alice");
    SUCCEEDS(qel_end(context));
}

/* ---- The telling --------------------------------------------------------------------------------- */

struct chapter {
    const char *user;
    void (*happens)(void);
    void (*undo)(void); /* null: it can happen again as it is */
    const char *title;
};

static const struct chapter chapters[] = {
    {"root", authority_is_made, unmake_authority, "an authority is made"},
    {"alice", alice_asks_for_a_certificate, NULL, "a key package, and a request"},
    {"root", authority_issues_and_publishes, unpublish,
     "the request is granted, the certificate published"},
    {"alice", alice_stores_her_key_package, remove_key_package,
     "the key package goes into the naming service"},
    {"alice", alice_logs_in, alice_logs_out, "the key goes to the server"},
    {"alice", alice_signs_a_message, NULL, "the key server signs a message"},
    {"bob", bob_verifies, NULL, "the message is verified, and refused when it was changed"},
    {"bob", bob_prints_alices_certificate, NULL, "the certificate is printed"},
    {"bob", bob_cannot_change_alices_entry, NULL, "the entry of another is not to be changed"},
    {"alice", alice_logs_out, alice_logs_in, "logged out"},
};

/* Runs something in a process of its own, as this user. Returns how that ended. */
static int run_as(const char *user, void (*something)(void), unsigned long failing) {
    const struct passwd *entry = getpwnam(user);
    int status = 0;
    EXPECT(entry != NULL);
    fflush(stdout);
    const pid_t child = fork();
    EXPECT(child >= 0);
    if (child == 0) {
        EXPECT(setgid(entry->pw_gid) == 0 && setuid(entry->pw_uid) == 0);
        umask(022);
        allocations_left = failing;
        something();
        allocations_left = 0;
        exit(0);
    }
    EXPECT(waitpid(child, &status, 0) == child);
    return status;
}

/* Tries a chapter with each allocation failing. The last try, in which none failed, is the chapter. */
static void tell_without_memory(const struct chapter *chapter, unsigned long step) {
    const int words = dup(STDERR_FILENO), nowhere = open("/dev/null", O_WRONLY);
    unsigned long failing = 1;
    int status;
    EXPECT(words >= 0 && nowhere >= 0);
    for (;; failing += step) {
        *allocation_failed = 0;
        dup2(nowhere, STDERR_FILENO); /* what fails says so */
        status = run_as(chapter->user, chapter->happens, failing);
        if (*allocation_failed && chapter->undo != NULL)
            run_as(chapter->user, chapter->undo, 0);
        dup2(words, STDERR_FILENO);
        if (!WIFEXITED(status))
            fprintf(stderr, "story: with allocation %lu failing\n", failing);
        EXPECT(WIFEXITED(status));
        if (!*allocation_failed)
            break;
    }
    printf("    tried with %lu allocations failing\n", (failing - 1) / step);
    EXPECT(WEXITSTATUS(status) == 0);
    close(words);
    close(nowhere);
}

int main(int count, char **arguments) {
    size_t i;
    EXPECT(count == 2 || count == 3);
    folder = arguments[1];
    if (getpwnam("alice") == NULL) {
        puts("skipped: this host has one user only");
        return 77;
    }
    allocation_failed = mmap(NULL, sizeof *allocation_failed, PROT_READ | PROT_WRITE,
                             MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    EXPECT(allocation_failed != MAP_FAILED);
    EXPECT(mkdir(folder, 0700) == 0 && chmod(folder, 01777) == 0);
    for (i = 0; i < sizeof chapters / sizeof *chapters; ++i) {
        printf("%s: %s\n", chapters[i].user, chapters[i].title);
        if (count == 3) {
            tell_without_memory(&chapters[i], strtoul(arguments[2], NULL, 10));
        } else {
            const int status = run_as(chapters[i].user, chapters[i].happens, 0);
            EXPECT(WIFEXITED(status) && WEXITSTATUS(status) == 0);
        }
        sleep(i == 2); /* a certificate is not valid yet in the second in which it was made */
    }
    return 0;
}
