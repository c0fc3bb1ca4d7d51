#include <qel/qelp.h>

#include <algorithm>
#include <cstring>

#include <asn1/dn.h>
#include <lib/memory.h>

namespace {

// Decides a comparison in which null takes part: two nulls are equal, one differs from any value.
bool decided_by_null(const void *a, const void *b, int *result_out) {
    if (a != nullptr && b != nullptr)
        return false;
    *result_out = a == b ? 0 : 1;
    return true;
}

// Whether a record has the values that it counts.
template <class T> bool whole(const T *values, std::size_t count) {
    return values != nullptr || count == 0;
}

int compare_bytes(const uint8_t *a, const uint8_t *b, std::size_t size) {
    return size != 0 ? std::memcmp(a, b, size) : 0;
}

QelStatus compare_parameters(const QelOctetString *a, const QelOctetString *b, int *result_out) {
    if (decided_by_null(a, b, result_out))
        return QEL_OK;
    if (!whole(a->value, a->length) || !whole(b->value, b->length))
        return QEL_ERR_BAD_PARAM;
    *result_out = a->length != b->length ? 1 : compare_bytes(a->value, b->value, a->length);
    return QEL_OK;
}

// strcasecmp as in the C locale: the letters A to Z alone have two cases.
int compare_ignoring_case(const char *a, const char *b) {
    const auto lower = [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte >= 'A' && byte <= 'Z' ? byte + ('a' - 'A') : int{byte};
    };
    while (*a != '\0' && lower(*a) == lower(*b)) {
        ++a;
        ++b;
    }
    return lower(*a) - lower(*b);
}

} // namespace

QelStatus __qel_cmp_oid(const QelOid *a, const QelOid *b, int *result_out) {
    if (result_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    if (decided_by_null(a, b, result_out))
        return QEL_OK;
    if (!whole(a->value, a->count) || !whole(b->value, b->count))
        return QEL_ERR_BAD_PARAM;
    const std::size_t common = std::min(a->count, b->count);
    for (std::size_t i = 0; i < common; ++i) {
        if (a->value[i] != b->value[i]) {
            *result_out = a->value[i] > b->value[i] ? 1 : -1;
            return QEL_OK;
        }
    }
    *result_out = (a->count > b->count) - (a->count < b->count);
    return QEL_OK;
}

QelStatus __qel_cmp_algid(const QelAlgId *a, const QelAlgId *b, int *result_out) {
    if (result_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    if (decided_by_null(a, b, result_out))
        return QEL_OK;
    int order = 0;
    const QelStatus status = __qel_cmp_oid(a->algorithm, b->algorithm, &order);
    if (status != QEL_OK)
        return status;
    if (order == 0)
        return compare_parameters(a->parameters, b->parameters, result_out);
    *result_out = 1;
    return QEL_OK;
}

QelStatus __qel_cmp_keyinfo(const QelKeyInfo *a, const QelKeyInfo *b, int *result_out) {
    if (result_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    if (decided_by_null(a, b, result_out))
        return QEL_OK;
    int difference = 0;
    const QelStatus status = __qel_cmp_algid(a->algorithm, b->algorithm, &difference);
    if (status != QEL_OK)
        return status;
    if (difference == 0)
        return __qel_cmp_bstr(&a->pubKey, &b->pubKey, result_out);
    *result_out = 1;
    return QEL_OK;
}

QelStatus __qel_cmp_serial(const QelSerial *a, const QelSerial *b, int *result_out) {
    if (result_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    if (decided_by_null(a, b, result_out))
        return QEL_OK;
    if (!whole(a->value, a->length) || !whole(b->value, b->length))
        return QEL_ERR_BAD_PARAM;
    *result_out = a->length != b->length ? 1 : compare_bytes(a->value, b->value, a->length);
    return QEL_OK;
}

QelStatus __qel_cmp_bstr(const QelBitString *a, const QelBitString *b, int *result_out) {
    if (result_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    if (decided_by_null(a, b, result_out))
        return QEL_OK;
    if (!whole(a->value, a->length) || !whole(b->value, b->length))
        return QEL_ERR_BAD_PARAM;
    if (a->length != b->length) {
        *result_out = 1;
        return QEL_OK;
    }
    const std::size_t bytes = a->length / 8;
    const unsigned rest = a->length % 8;
    *result_out = compare_bytes(a->value, b->value, bytes);
    if (*result_out == 0 && rest != 0)
        *result_out = ((a->value[bytes] ^ b->value[bytes]) >> (8 - rest)) != 0;
    return QEL_OK;
}

QelStatus __qel_cmp_dn(QelContext *context, const QelName *a, const QelName *b, int *result_out) {
    if (context == nullptr || result_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    if (decided_by_null(a, b, result_out))
        return QEL_OK;

    char *string_a = nullptr;
    QelStatus status = normalise_dn(context, a, 1, &string_a);
    const qel::Owned<char> owner_a(string_a);
    if (status != QEL_OK)
        return status;
    char *string_b = nullptr;
    status = normalise_dn(context, b, 1, &string_b);
    const qel::Owned<char> owner_b(string_b);
    if (status != QEL_OK)
        return status;
    *result_out = compare_ignoring_case(string_a, string_b);
    return QEL_OK;
}
