#include "cert_array.h"
#include "data_set_reader.h"
#include "decoded.h"

#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include <asn1/dn.h>
#include <lib/context.h>
#include <util/naming.h>
#include <util/output.h>
#include <util/user.h>

namespace {

using OwnedName = qel::Record<QelName, qel_free_dn>;
using qel::Owned;

// The form in which subjects are registered in the naming service and name files: with a backslash
// before each comma in a value.
constexpr int registered_form = 1;

QelStatus normalise(QelContext *context, const char *subject, Owned<char> *normalised_out) {
    char *normalised = nullptr;
    const QelStatus status = __qel_normalize_DN(context, subject, registered_form, &normalised);
    normalised_out->reset(normalised);
    return status;
}

QelStatus normalise(QelContext *context, const QelName *subject, Owned<char> *normalised_out) {
    char *normalised = nullptr;
    const QelStatus status = normalise_dn(context, subject, registered_form, &normalised);
    normalised_out->reset(normalised);
    return status;
}

// The file of a normalised subject. One with a slash would lead out of the directory and is refused;
// none can be "." or "..", since each begins with the name of an attribute.
QelStatus certificate_file(const QelContext *context, const char *subject, Owned<char> *path_out) {
    if (*subject == '\0' || std::strchr(subject, '/') != nullptr)
        return QEL_ERR_BAD_PARAM;
    const std::size_t size = std::strlen(context->certificate_directory) + std::strlen(subject) + 2;
    path_out->reset(static_cast<char *>(std::malloc(size)));
    if (*path_out == nullptr)
        return QEL_ERR_NO_MEMORY;
    return __qel_snprintf(path_out->get(), size, "%s/%s", context->certificate_directory,
                          subject) == 0
               ? QEL_OK
               : QEL_ERR_BUFFER_SIZE;
}

// The entry of the naming service that is registered under a subject.
QelStatus find_entry(QelContext *context, const char *subject, Owned<char> *entry_out) {
    Owned<char> normalised;
    if (const QelStatus status = normalise(context, subject, &normalised); status != QEL_OK)
        return status;
    char *entry = nullptr;
    const QelStatus status = __dsv_get_user_name_given_cn_name(normalised.get(), &entry);
    entry_out->reset(entry);
    return status;
}

QelStatus read_certs(QelContext *context, int repository, const char *name, qel::DataSet *set) {
    QelStatus status;
    Owned<char> entry, subject, path;
    switch (repository) {
    case QEL_REPO_FILE:
        return read_data_set_file(context, name, set);
    case QEL_REPO_STDIN:
        return read_data_set_file(context, nullptr, set);
    case QEL_REPO_DSV:
        status = find_entry(context, name, &entry);
        return status == QEL_OK ? read_data_set(context, qel::named_certificates, entry.get(), set)
                                : status;
    case QEL_REPO_DEFAULT:
        status = normalise(context, name, &subject);
        if (status == QEL_OK)
            status = certificate_file(context, subject.get(), &path);
        return status == QEL_OK ? read_data_set_file(context, path.get(), set) : status;
    default:
        return QEL_ERR_BAD_PARAM;
    }
}

QelStatus decode_cert(QelContext *context, const QelDataSetItem &item,
                      qel::Decoded<QelCert> *certificate_out) {
    void *certificate = nullptr;
    const QelStatus status =
        __qel_asn1_decode(context, item.data, item.length, QEL_PDU_Certificate, &certificate);
    *certificate_out = {static_cast<QelCert *>(certificate), {context, QEL_PDU_Certificate}};
    return status;
}

QelStatus decode_certs(QelContext *context, const qel::DataSet &set, qel::CertArray *certs) {
    if (const QelStatus status = certs->make(set.count()); status != QEL_OK)
        return status;
    for (const QelDataSetItem &item : set.items()) {
        qel::Decoded<QelCert> certificate;
        if (const QelStatus status = decode_cert(context, item, &certificate); status != QEL_OK)
            return status;
        certs->add(certificate.release());
    }
    return QEL_OK;
}

// Anybody who may write an entry can put certificates of others there.
QelStatus check_subjects(QelContext *context, const char *subject, const qel::CertArray &certs) {
    QelName *parsed = nullptr;
    QelStatus status = qel_str2dn(context, subject, &parsed);
    const OwnedName wanted(parsed);
    for (const QelCert &certificate : certs.certs()) {
        int difference = 0;
        if (status == QEL_OK)
            status = __qel_cmp_dn(context, wanted.get(), certificate.subject, &difference);
        if (status == QEL_OK && difference != 0)
            status = QEL_ERR_GENERAL;
    }
    return status;
}

// The first certificate of this issuer and serial number. QEL_ERR_NO_ENTRY: there is none.
QelStatus find_cert(QelContext *context, const qel::DataSet &set, const QelName *issuer,
                    const QelSerial *serial, QelDataSetItem **item_out) {
    for (QelDataSetItem &item : set.items()) {
        qel::Decoded<QelCert> certificate;
        QelStatus status = decode_cert(context, item, &certificate);
        int difference = 0;
        if (status == QEL_OK)
            status = __qel_cmp_serial(&certificate->serial, serial, &difference);
        if (status == QEL_OK && difference == 0)
            status = __qel_cmp_dn(context, certificate->issuer, issuer, &difference);
        if (status != QEL_OK)
            return status;
        if (difference == 0) {
            *item_out = &item;
            return QEL_OK;
        }
    }
    return QEL_ERR_NO_ENTRY;
}

QelStatus remove_from_file(QelContext *context, const char *name, const QelName *issuer,
                           const QelSerial *serial) {
    if (issuer == nullptr)
        return unlink(name) == 0 ? QEL_OK : QEL_ERR_GENERAL;
    if (*name == '\0')
        return QEL_ERR_NO_FILE;
    qel::DataSet set;
    QelDataSetItem *item = nullptr;
    QelStatus status = read_data_set_file(context, name, &set);
    if (status == QEL_OK)
        status = find_cert(context, set, issuer, serial, &item);
    if (status != QEL_OK)
        return status;
    item->length = 0; // removed
    return __qel_dump_data_set(QEL_ITEM_CERTIFICATE, name, QEL_FORM_ARMOUR, set.count(),
                               set.items().data());
}

QelStatus remove_from_naming_service(QelContext *context, const char *subject,
                                     const QelName *issuer, const QelSerial *serial) {
    Owned<char> entry;
    QelStatus status = find_entry(context, subject, &entry);
    if (status != QEL_OK)
        return status;
    if (issuer == nullptr)
        return dsv_delete_certificates(entry.get(), nullptr, 0);
    qel::DataSet set;
    QelDataSetItem *item = nullptr;
    status = read_data_set(context, qel::named_certificates, entry.get(), &set);
    if (status == QEL_OK)
        status = find_cert(context, set, issuer, serial, &item);
    return status == QEL_OK ? dsv_delete_certificates(entry.get(), item->data, item->length)
                            : status;
}

QelStatus store_in_naming_service(QelContext *context, const char *name, const QelCert *certificate,
                                  const uint8_t *encoding, uint32_t length) {
    CallingUser user;
    QelStatus status = name_or_login(&name, &user);
    if (status != QEL_OK)
        return status;
    Owned<char> subject;
    status = normalise(context, certificate->subject, &subject);
    return status == QEL_OK
               ? dsv_add_user_certs_and_key_pkg(name, subject.get(), encoding, length, nullptr, 0)
               : status;
}

// A symbolic link in the directory is not followed.
QelStatus store_in_directory(QelContext *context, const QelCert *certificate,
                             const uint8_t *encoding, uint32_t length) {
    Owned<char> subject, path;
    QelStatus status = normalise(context, certificate->subject, &subject);
    if (status == QEL_OK)
        status = certificate_file(context, subject.get(), &path);
    if (status != QEL_OK)
        return status;
    const ArmourMarkers *around = armour_markers(QEL_ARMOUR_CERTIFICATE);
    Output output;
    output.add_armoured(around->begin, encoding, length, around->end);
    return output.write_file(path.get(), O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW);
}

} // namespace

QelStatus __qel_get_cert_data_set(QelContext *context, int repository, const char *name,
                                  QelDataSetItem **items_out, uint32_t *count_out) {
    return give_data_set(read_certs, context, repository, name, items_out, count_out);
}

QelStatus __qel_get_cert(QelContext *context, int repository, const char *name,
                         QelCert **certificates_out, int *count_out) {
    if (certificates_out == nullptr || count_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *certificates_out = nullptr;
    *count_out = 0;
    if (context == nullptr)
        return QEL_ERR_BAD_PARAM;
    qel::DataSet set;
    qel::CertArray certs;
    QelStatus status = read_certs(context, repository, name, &set);
    if (status == QEL_OK)
        status = decode_certs(context, set, &certs);
    if (status == QEL_OK && repository == QEL_REPO_DSV)
        status = check_subjects(context, name, certs);
    if (status == QEL_OK)
        certs.hand_over(certificates_out, count_out);
    return status;
}

QelStatus qel_get_cert(QelContext *context, const char *subject, QelCert **certificates_out,
                       int *count_out) {
    return __qel_get_cert(context, QEL_REPO_DSV, subject, certificates_out, count_out);
}

QelStatus __qel_set_cert(QelContext *context, int repository, const char *name,
                         const QelCert *certificate) {
    if (context == nullptr || certificate == nullptr)
        return QEL_ERR_BAD_PARAM;
    uint8_t *encoding = nullptr;
    uint32_t length = 0;
    const QelStatus status =
        __qel_asn1_encode(context, certificate, QEL_PDU_Certificate, &encoding, &length);
    if (status != QEL_OK)
        return status;
    const Owned<uint8_t> owner(encoding);
    switch (repository) {
    case QEL_REPO_FILE:
        return __qel_dump_append_and_delimit(QEL_ITEM_CERTIFICATE, name, QEL_FORM_ARMOUR, encoding,
                                             length);
    case QEL_REPO_DSV:
        return store_in_naming_service(context, name, certificate, encoding, length);
    case QEL_REPO_DEFAULT:
        return store_in_directory(context, certificate, encoding, length);
    default:
        return QEL_ERR_BAD_PARAM;
    }
}

QelStatus qel_set_cert(QelContext *context, const char *name, const QelCert *certificate) {
    return __qel_set_cert(context, QEL_REPO_DSV, name, certificate);
}

QelStatus __qel_remove_cert(QelContext *context, int repository, const char *name,
                            const QelName *issuer, const QelSerial *serial) {
    if (context == nullptr || name == nullptr)
        return QEL_ERR_BAD_PARAM;
    if (issuer != nullptr && (serial == nullptr || serial->value == nullptr || serial->length == 0))
        return QEL_ERR_BAD_PARAM;
    switch (repository) {
    case QEL_REPO_FILE:
        return remove_from_file(context, name, issuer, serial);
    case QEL_REPO_DSV:
        return remove_from_naming_service(context, name, issuer, serial);
    default:
        return QEL_ERR_BAD_PARAM;
    }
}
