#include "data_set_reader.h"
#include "decoded.h"

#include <lib/context.h>
#include <qel/qelserv.h>
#include <qellogin/session.h>
#include <toolkit/traces.h>
#include <util/naming.h>
#include <util/user.h>

namespace {

// A key package out of its encoding, with its private key where a pass phrase opened it.
struct OpenedPackage {
    qel::Decoded<QelKeyPkg> package;
    qel::SecretBytes private_key;

    bool has_identifier(const char *identifier) const {
        return std::strcmp(package->keypkgId, identifier) == 0;
    }
};

// Checks the signature; with a pass phrase also opens the private key.
QelStatus open_item(QelContext *context, const QelDataSetItem &item, const char *pass_phrase,
                    OpenedPackage *opened) {
    QelKeyPkg *package = nullptr;
    uint8_t *key = nullptr;
    uint32_t key_length = 0;
    const QelStatus status =
        pass_phrase != nullptr
            ? __qel_validate_keypkg_with_pwd(context, item.data, item.length, pass_phrase, &package,
                                             &key, &key_length)
            : __qel_verify_keypkg_sig(context, item.data, item.length, &package);
    opened->package = {package, {context, QEL_PDU_KeyPkg}};
    opened->private_key = {key, qel::ZeroAndFree{key_length}};
    return status;
}

// Whether an item is good and has the context's identifier. What else is wrong with it does not
// matter: QEL_ERR_NO_KEYPKG. QEL_ERR_NO_MEMORY.
QelStatus match_item(QelContext *context, const QelDataSetItem &item, const char *pass_phrase,
                     OpenedPackage *opened) {
    const QelStatus status = open_item(context, item, pass_phrase, opened);
    if (status == QEL_ERR_NO_MEMORY)
        return status;
    const bool matches = status == QEL_OK && opened->has_identifier(context->key_identifier);
    return matches ? QEL_OK : QEL_ERR_NO_KEYPKG;
}

// The first item that matches.
QelStatus find_item(QelContext *context, const qel::DataSet &set, const char *pass_phrase,
                    OpenedPackage *opened, QelDataSetItem **item_out) {
    for (QelDataSetItem &item : set.items()) {
        const QelStatus status = match_item(context, item, pass_phrase, opened);
        if (status == QEL_OK)
            *item_out = &item;
        if (status != QEL_ERR_NO_KEYPKG)
            return status;
    }
    return QEL_ERR_NO_KEYPKG;
}

QelStatus read_keypkgs(QelContext *context, int repository, const char *name, qel::DataSet *set) {
    QelStatus status;
    CallingUser user;
    qel::Owned<char> path;
    switch (repository) {
    case QEL_REPO_FILE:
        return read_data_set_file(context, name, set);
    case QEL_REPO_DEFAULT:
        status = find_keypkg_file(&path);
        return status == QEL_OK ? read_data_set_file(context, path.get(), set) : status;
    case QEL_REPO_DSV:
    case QEL_REPO_QELSERV:
        status = name_or_login(&name, &user);
        if (status != QEL_OK)
            return status;
        return read_data_set(context, static_cast<uint32_t>(repository) | qel::keypkgs_flag, name,
                             set);
    default:
        return QEL_ERR_BAD_PARAM;
    }
}

// An entry that is registered under a distinguished name keeps key packages of that owner only. What
// is registered and is no such name, as a full name, is nobody's.
QelStatus check_owner(QelContext *context, const char *name, const QelName *owner) {
    QelItemList *names = nullptr;
    uint32_t count = 0;
    QelStatus status = __dsv_get_dn_name_given_user_name(name, &names, &count);
    const qel::Record<QelItemList, __qel_free_item_list> list(names);
    if (status == QEL_ERR_NO_DN)
        return QEL_OK;
    if (status != QEL_OK || names == nullptr)
        return status;
    QelName *registered = nullptr;
    status = qel_str2dn(context, static_cast<const char *>(names->data), &registered);
    const qel::Record<QelName, qel_free_dn> registered_owner(registered);
    if (status == QEL_ERR_NO_MEMORY)
        return status;
    int difference = 1;
    if (status == QEL_OK) {
        status = __qel_cmp_dn(context, registered, owner, &difference);
        if (status != QEL_OK)
            return status;
    }
    return difference == 0 ? QEL_OK : QEL_ERR_BAD_PARAM;
}

// *overtaken: someone else has changed the entry in between, and nothing was done.
QelStatus try_to_store(QelContext *context, const char *name, const uint8_t *encoding,
                       uint32_t length, bool *overtaken) {
    *overtaken = false;
    qel::DataSet set;
    OpenedPackage opened;
    QelDataSetItem *present = nullptr;
    QelStatus status = read_keypkgs(context, QEL_REPO_DSV, name, &set);
    if (status == QEL_OK)
        status = find_item(context, set, nullptr, &opened, &present);
    if (status != QEL_OK && status != QEL_ERR_UNKNOWN_USER && status != QEL_ERR_NO_KEYPKG)
        return status;
    if (present != nullptr && present->length <= length &&
        std::memcmp(present->data, encoding, present->length) == 0)
        return QEL_ERR_ENTRY_EXISTS;
    return dsv_put_key_pkg(name, set.items(), present, encoding, length, overtaken);
}

// Of two who store a package of one identifier at once, the second replaces that of the first.
QelStatus store_in_naming_service(QelContext *context, const char *name, const uint8_t *encoding,
                                  uint32_t length) {
    return until_first(
        [=](bool *overtaken) { return try_to_store(context, name, encoding, length, overtaken); });
}

// A user who is logged in goes on with the new key package.
QelStatus update_key_server(QelContext *context, const QelKeyPkg *package) {
    QelStatus status = __qel_rpc_stat(context);
    if (status == QEL_ERR_NOT_LOGGED_IN)
        return QEL_OK;
    if (status == QEL_OK)
        status = save_keypkg_with_qelserv(context, package);
    return status == QEL_OK ? QEL_OK : QEL_ERR_SERV_UPDATE;
}

// Takes the place of the package that the file has under the context's identifier.
QelStatus store_in_file(QelContext *context, const char *name, const uint8_t *encoding,
                        uint32_t length) {
    if (name != nullptr && *name == '\0')
        return QEL_ERR_NO_FILE;
    const QelStatus status = __qel_remove_keypkg(context, QEL_REPO_FILE, name);
    if (status != QEL_OK && status != QEL_ERR_NO_FILE && status != QEL_ERR_NO_KEYPKG)
        return status;
    return __qel_dump_append_and_delimit(QEL_ITEM_KEYPKG, name, QEL_FORM_ARMOUR, encoding, length);
}

// repository: QEL_REPO_FILE, QEL_REPO_DSV or QEL_REPO_DSV_QELSERV.
QelStatus set_keypkgs(QelContext *context, int repository, const char *name,
                      const QelKeyPkg *package) {
    uint8_t *encoding = nullptr;
    uint32_t length = 0;
    QelStatus status = __qel_asn1_encode(context, package, QEL_PDU_KeyPkg, &encoding, &length);
    if (status != QEL_OK)
        return status;
    const qel::Owned<uint8_t> owner(encoding);
    if (repository == QEL_REPO_FILE)
        return store_in_file(context, name, encoding, length);
    status = store_in_naming_service(context, name, encoding, length);
    return status == QEL_OK && repository == QEL_REPO_DSV_QELSERV
               ? update_key_server(context, package)
               : status;
}

QelStatus remove_from_naming_service(QelContext *context, const char *name) {
    qel::DataSet set;
    QelStatus status = read_keypkgs(context, QEL_REPO_DSV, name, &set);
    if (status != QEL_OK)
        return status;
    status = QEL_ERR_NO_KEYPKG;
    for (const QelDataSetItem &item : set.items()) {
        OpenedPackage opened;
        const QelStatus match = match_item(context, item, nullptr, &opened);
        if (match == QEL_ERR_NO_KEYPKG)
            continue;
        status = match == QEL_OK ? dsv_delete_key_pkg(name, item.data, item.length) : match;
        if (status != QEL_OK)
            return status;
    }
    return status;
}

// What is left of the default file goes to the hidden one.
QelStatus remove_from_file(QelContext *context, int repository, const char *name) {
    qel::DataSet set;
    QelStatus status = read_keypkgs(context, repository, name, &set);
    if (status != QEL_OK)
        return status;
    OpenedPackage opened;
    QelDataSetItem *item = nullptr;
    status = find_item(context, set, nullptr, &opened, &item);
    if (status != QEL_OK)
        return status;
    item->length = 0; // removed
    return __qel_dump_data_set(QEL_ITEM_KEYPKG, repository == QEL_REPO_FILE ? name : nullptr,
                               QEL_FORM_ARMOUR, set.count(), set.items().data());
}

} // namespace

QelStatus __qel_get_keypkg_data_set(QelContext *context, int repository, const char *name,
                                    QelDataSetItem **items_out, uint32_t *count_out) {
    return give_data_set(read_keypkgs, context, repository, name, items_out, count_out);
}

QelStatus __qel_get_keypkg_with_pwd(QelContext *context, int repository, const char *name,
                                    const char *pass_phrase, QelKeyPkg **package_out,
                                    uint8_t **private_key_der, uint32_t *private_key_length) {
    const toolkit::TracesWiped traces;
    if (package_out != nullptr)
        *package_out = nullptr;
    if (private_key_der != nullptr)
        *private_key_der = nullptr;
    if (private_key_length != nullptr)
        *private_key_length = 0;
    if (context == nullptr || package_out == nullptr ||
        (pass_phrase != nullptr && (private_key_der == nullptr || private_key_length == nullptr)))
        return QEL_ERR_BAD_PARAM;
    qel::DataSet set;
    QelStatus status = read_keypkgs(context, repository, name, &set);
    if (status != QEL_OK)
        return status;
    OpenedPackage opened;
    QelDataSetItem *item = nullptr;
    status = find_item(context, set, pass_phrase, &opened, &item);
    if (status != QEL_OK)
        return status;
    *package_out = opened.package.release();
    if (pass_phrase != nullptr) {
        *private_key_length = static_cast<uint32_t>(opened.private_key.get_deleter().size);
        *private_key_der = opened.private_key.release();
    }
    return QEL_OK;
}

QelStatus __qel_get_keypkg(QelContext *context, int repository, const char *name,
                           QelKeyPkg **package_out) {
    return __qel_get_keypkg_with_pwd(context, repository, name, nullptr, package_out, nullptr,
                                     nullptr);
}

QelStatus qel_get_keypkg(QelContext *context, const char *name, QelKeyPkg **package_out) {
    return __qel_get_keypkg(context, QEL_REPO_QELSERV, name, package_out);
}

QelStatus __qel_set_keypkg(QelContext *context, int repository, const char *name,
                           const QelKeyPkg *package) {
    if (context == nullptr || package == nullptr)
        return QEL_ERR_BAD_PARAM;
    QelStatus status = QEL_OK;
    CallingUser user;
    qel::Owned<char> path;
    switch (repository) {
    case QEL_REPO_FILE:
        break;
    case QEL_REPO_DEFAULT:
        status = find_keypkg_file(&path);
        name = path.get();
        repository = QEL_REPO_FILE;
        break;
    case QEL_REPO_DSV:
    case QEL_REPO_DSV_QELSERV:
        status = name_or_login(&name, &user);
        if (status == QEL_OK)
            status = check_owner(context, name, package->owner);
        break;
    default:
        return QEL_ERR_BAD_PARAM;
    }
    return status == QEL_OK ? set_keypkgs(context, repository, name, package) : status;
}

QelStatus qel_set_keypkg(QelContext *context, const char *name, const QelKeyPkg *package) {
    return __qel_set_keypkg(context, QEL_REPO_DSV_QELSERV, name, package);
}

QelStatus __qel_remove_keypkg(QelContext *context, int repository, const char *name) {
    if (context == nullptr || name == nullptr)
        return QEL_ERR_BAD_PARAM;
    QelStatus status;
    switch (repository) {
    case QEL_REPO_FILE:
    case QEL_REPO_DEFAULT:
        return remove_from_file(context, repository, name);
    case QEL_REPO_DSV:
        return remove_from_naming_service(context, name);
    case QEL_REPO_DSV_QELSERV:
        status = remove_from_naming_service(context, name);
        return status == QEL_OK ? withdraw_key_from_qelserv(context, name) : status;
    default:
        return QEL_ERR_BAD_PARAM;
    }
}

QelStatus __qel_check_keypkg_presence(QelContext *context, const char *key_identifier,
                                      int repository, const char *name, int *found_out) {
    if (found_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *found_out = 0;
    if (context == nullptr || key_identifier == nullptr)
        return QEL_ERR_BAD_PARAM;
    qel::DataSet set;
    QelStatus status = read_keypkgs(context, repository, name, &set);
    if (status == QEL_ERR_UNKNOWN_USER || status == QEL_ERR_NO_KEYPKG)
        return QEL_OK;
    if (status != QEL_OK)
        return status;
    int found = 0;
    for (const QelDataSetItem &item : set.items()) {
        OpenedPackage opened;
        status = open_item(context, item, nullptr, &opened);
        if (status != QEL_OK)
            return status;
        if (opened.has_identifier(key_identifier))
            found = 1;
    }
    *found_out = found;
    return QEL_OK;
}
