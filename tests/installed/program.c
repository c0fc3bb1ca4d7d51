/* A C program on the installed headers and the shared library: one call of each kind. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <qel/cryptoki.h>
#include <qel/qelp.h>

#define EXPECT(condition)                                                                          \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            fprintf(stderr, "line %d: %s\n", __LINE__, #condition);                                \
            return 1;                                                                              \
        }                                                                                          \
    } while (0)

int main(void) {
    static const uint8_t md5_of_abc[16] = {0x90, 0x01, 0x50, 0x98, 0x3c, 0xd2, 0x4f, 0xb0,
                                           0xd6, 0x96, 0x3f, 0x7d, 0x28, 0xe1, 0x7f, 0x72};
    const QelAlgListEntry *algorithms = NULL;
    const char *algorithm = NULL;
    QelContext *context = NULL;
    QelName *name = NULL;
    char *text = NULL;
    uint8_t *digest = NULL;
    uint32_t length = 0;

    EXPECT(__qel_init(&context, NULL, NULL) == QEL_OK);
    EXPECT(strcmp(qel_strerror(context, QEL_OK), "Success") == 0);

    EXPECT(qel_get_alglist(&algorithms) == QEL_OK && algorithms->oid != NULL);
    EXPECT(__qel_alg2name(QEL_RC4_OID, &algorithm) == QEL_OK && strcmp(algorithm, "rc4_exp") == 0);

    EXPECT(qel_str2dn(context, "cn=Alice, c=us", &name) == QEL_OK);
    EXPECT(qel_dn2str(context, name, &text) == QEL_OK);
    EXPECT(strcmp(text, "CN=ALICE, C=US") == 0);
    free(text);
    qel_free_dn(&name);
    EXPECT(name == NULL);

    EXPECT(qel_digest(context, (const uint8_t *)"abc", 3, QEL_MODE_FINAL, QEL_MD5_AID, &digest,
                      &length) == QEL_OK);
    EXPECT(length == sizeof md5_of_abc && memcmp(digest, md5_of_abc, length) == 0);
    free(digest);

    EXPECT(qel_end(context) == QEL_OK);
    return 0;
}
