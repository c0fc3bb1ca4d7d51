// cert_list.cpp: lists of certificates, read from text that holds one after another.

#include <qel/qelp.h>

#include <algorithm>
#include <string_view>

#include <lib/memory.h>
#include <util/armour.h>

namespace {

using OwnedCert = qel::Record<QelCert, qel_free_cert>;
using OwnedList = qel::Record<QelCertList, __qel_free_certlist>;

std::string_view between(std::string_view text, std::size_t begin, std::size_t end) {
    return {text.data() + begin, end - begin};
}

// The armour of the first certificate in text, which is not empty, and what follows it.
bool find_armour(std::string_view text, std::string_view *armour, std::string_view *rest) {
    std::size_t begin = 0;
    std::size_t end;
    std::size_t next;
    if (text.front() != '-') {
        next = end = text.find('#');
    } else {
        const ArmourMarkers *around = armour_markers(QEL_ARMOUR_CERTIFICATE);
        if (text.find(around->begin) == text.npos)
            return false;
        begin = text.find('\n');
        end = text.find(around->end, begin); // npos, where begin is
        next = text.find('\n', end);
    }
    if (next == text.npos)
        return false;
    *armour = between(text, begin, end);
    *rest = between(text, next, text.size());
    return true;
}

QelStatus decode_cert(QelContext *context, std::string_view armour, QelCert **cert_out) {
    uint8_t *bytes = nullptr;
    uint32_t length = 0;
    if (const QelStatus status = __qel_rfc1421_2_binary(
            armour.data(), static_cast<uint32_t>(armour.size()), &bytes, &length);
        status != QEL_OK)
        return status;
    const qel::Owned<uint8_t> owner(bytes);
    void *value = nullptr;
    const QelStatus status = __qel_asn1_decode(context, bytes, length, QEL_PDU_Certificate, &value);
    *cert_out = static_cast<QelCert *>(value);
    return status;
}

} // namespace

void __qel_free_certlist(QelCertList **list) {
    if (list == nullptr)
        return;
    while (*list != nullptr) {
        const qel::Owned<QelCertList> node(*list);
        *list = node->next;
        qel_free_cert(&node->cert);
    }
}

QelStatus __qel_read_next_cert(QelContext *context, const char **text, uint32_t *remaining,
                               QelCert **cert_out) {
    if (cert_out != nullptr)
        *cert_out = nullptr;
    const uint32_t length = remaining != nullptr ? *remaining : 0;
    if (remaining != nullptr)
        *remaining = 0; // and so it stays on failure
    if (context == nullptr || text == nullptr || *text == nullptr || remaining == nullptr ||
        cert_out == nullptr)
        return QEL_ERR_BAD_PARAM;

    std::string_view rest(*text, length);
    rest.remove_prefix(std::min(rest.find_first_not_of("\n\t #"), rest.size()));
    if (rest.empty()) {
        *text += length;
        return QEL_OK;
    }
    std::string_view armour;
    if (!find_armour(rest, &armour, &rest))
        return QEL_ERR_BAD_PARAM;
    if (const QelStatus status = decode_cert(context, armour, cert_out); status != QEL_OK)
        return status;
    *text = rest.data();
    *remaining = static_cast<uint32_t>(rest.size());
    return QEL_OK;
}

QelStatus __qel_file_2_certlist(QelContext *context, const char *file_name,
                                QelCertList **list_out) {
    if (list_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *list_out = nullptr;
    if (context == nullptr)
        return QEL_ERR_BAD_PARAM;
    uint8_t *bytes = nullptr;
    uint32_t remaining = 0;
    if (const QelStatus status = __qel_read_input(file_name, QEL_FORM_RAW, &bytes, &remaining);
        status != QEL_OK)
        return status;
    const qel::Owned<uint8_t> owner(bytes);

    const auto *text = reinterpret_cast<const char *>(bytes);
    OwnedList list;
    QelCertList *last = nullptr;
    while (remaining != 0) {
        QelCert *read = nullptr;
        if (const QelStatus status = __qel_read_next_cert(context, &text, &remaining, &read);
            status != QEL_OK)
            return status;
        OwnedCert cert(read);
        if (cert == nullptr)
            break;
        auto *node = qel::allocate<QelCertList>();
        if (node == nullptr)
            return QEL_ERR_NO_MEMORY;
        node->cert = cert.release();
        if (last != nullptr)
            last->next = node;
        else
            list.reset(node);
        last = node;
    }
    *list_out = list.release();
    return QEL_OK;
}
