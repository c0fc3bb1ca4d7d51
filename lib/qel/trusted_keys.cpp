#include <qel/qelp.h>

#include <cstring>
#include <utility>

#include <lib/memory.h>

namespace {

// Names that are both there, and equal.
QelStatus compare_names(QelContext *context, const QelName *a, const QelName *b, bool *equal_out) {
    *equal_out = false;
    if (a == nullptr || b == nullptr)
        return QEL_OK;
    int difference = 0;
    const QelStatus status = __qel_cmp_dn(context, a, b, &difference);
    *equal_out = status == QEL_OK && difference == 0;
    return status;
}

// Whether an entry is the key of that owner.
QelStatus compare_owner(QelContext *context, const QelTrustedKey *entry, const QelName *owner,
                        const QelKeyInfo *key, bool *equal_out) {
    *equal_out = false;
    if (entry == nullptr)
        return QEL_OK;
    QelStatus status = compare_names(context, entry->owner, owner, equal_out);
    if (status != QEL_OK || !*equal_out)
        return status;
    int difference = 0;
    status = __qel_cmp_keyinfo(entry->pubKeyInfo, key, &difference);
    *equal_out = status == QEL_OK && difference == 0;
    return status;
}

// Serial numbers that are both there, and equal.
bool equal_serials(const QelOctetString *a, const QelOctetString *b) {
    if (a == nullptr || b == nullptr || a->length != b->length)
        return false;
    return a->length == 0 || (a->value != nullptr && b->value != nullptr &&
                              std::memcmp(a->value, b->value, a->length) == 0);
}

// Whether an entry has the issuer and serial number of the template, or else its owner.
QelStatus compare_template(QelContext *context, const QelTrustedKey *entry,
                           const QelTrustedKey *key_template, bool *equal_out) {
    *equal_out = false;
    if (entry == nullptr)
        return QEL_OK;
    if (equal_serials(entry->serial, key_template->serial)) {
        const QelStatus status =
            compare_names(context, entry->issuer, key_template->issuer, equal_out);
        if (status != QEL_OK || *equal_out)
            return status;
    }
    return compare_names(context, entry->owner, key_template->owner, equal_out);
}

} // namespace

QelStatus __qel_is_trusted_key(QelContext *context, const QelTrustedKeys *trusted_keys,
                               const QelCert *certificate) {
    if (context == nullptr || certificate == nullptr || certificate->subject == nullptr ||
        certificate->pubKeyInfo == nullptr)
        return QEL_ERR_BAD_PARAM;
    QelStatus result = QEL_ERR_ISSUER_NOT_TRUSTED;
    for (const QelTrustedKeys *node = trusted_keys; node != nullptr; node = node->next) {
        bool is_owner = false;
        QelStatus status = compare_owner(context, node->key, certificate->subject,
                                         certificate->pubKeyInfo, &is_owner);
        if (status != QEL_OK)
            return status;
        if (!is_owner)
            continue;
        status = __qel_is_current(node->key->validity);
        if (status != QEL_ERR_KEY_EXPIRED)
            return status;
        result = QEL_ERR_TKEY_EXPIRED;
    }
    return result;
}

QelStatus __qel_add_trusted_key(QelContext *context, const QelTrustedKey *key,
                                QelTrustedKeys **list) {
    if (context == nullptr || key == nullptr || list == nullptr)
        return QEL_ERR_BAD_PARAM;
    for (const QelTrustedKeys *node = *list; node != nullptr; node = node->next) {
        bool is_owner = false;
        const QelStatus status =
            compare_owner(context, node->key, key->owner, key->pubKeyInfo, &is_owner);
        if (status != QEL_OK)
            return status;
        if (is_owner)
            return QEL_ERR_ENTRY_EXISTS;
    }
    qel::Owned<QelTrustedKeys> node(qel::allocate<QelTrustedKeys>());
    if (node == nullptr)
        return QEL_ERR_NO_MEMORY;
    const QelStatus status = __qel_copy_tkey(&node->key, key);
    if (status != QEL_OK)
        return status;
    node->next = *list;
    *list = node.release();
    return QEL_OK;
}

QelStatus __qel_delete_trusted_key(QelContext *context, const QelTrustedKey *key_template,
                                   QelTrustedKeys **list) {
    if (context == nullptr || key_template == nullptr || list == nullptr ||
        (key_template->issuer == nullptr && key_template->owner == nullptr))
        return QEL_ERR_BAD_PARAM;
    QelStatus result = QEL_ERR_NO_ENTRY;
    QelTrustedKeys **link = list;
    while (*link != nullptr) {
        bool is_meant = false;
        const QelStatus status = compare_template(context, (*link)->key, key_template, &is_meant);
        if (status != QEL_OK)
            return status;
        if (!is_meant) {
            link = &(*link)->next;
            continue;
        }
        const qel::Owned<QelTrustedKeys> node(std::exchange(*link, (*link)->next));
        __qel_free_trusted_key(&node->key);
        result = QEL_OK;
    }
    return result;
}
