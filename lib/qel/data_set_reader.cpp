#include "data_set_reader.h"

#include <string_view>

#include <qel/qelserv.h>
#include <util/armour.h>
#include <util/input.h>
#include <util/naming.h>

namespace {

using OwnedList = qel::Record<QelItemList, __qel_free_item_list>;

// The length of the BEGIN or END marker, of either kind, that text begins with; 0 without one.
std::size_t marker_at(std::string_view text, const char *ArmourMarkers::*line) {
    for (const int type : {QEL_ARMOUR_CERTIFICATE, QEL_ARMOUR_KEYPKG}) {
        const std::string_view marker = armour_markers(type)->*line;
        if (text.starts_with(marker))
            return marker.size();
    }
    return 0;
}

QelItemList *copy_item(std::string_view body) {
    OwnedList item(qel::allocate<QelItemList>());
    if (item == nullptr)
        return nullptr;
    item->data = qel::allocate_bytes(body.size());
    if (item->data == nullptr)
        return nullptr;
    if (!body.empty())
        std::memcpy(item->data, body.data(), body.size());
    item->length = body.size();
    return item.release();
}

// Reads the item at the front of text, and leaves in text what stands behind its END marker. The
// kinds of the two markers need not agree.
QelStatus read_item(std::string_view *text, QelItemList **item_out) {
    const std::size_t begin = marker_at(*text, &ArmourMarkers::begin);
    if (begin == 0 || begin == text->size())
        return QEL_ERR_FILE_FORMAT;
    text->remove_prefix(begin + 1); // and its line feed
    for (std::size_t at = text->find('-'); at != text->npos; at = text->find('-', at + 1)) {
        const std::string_view rest(text->data() + at, text->size() - at);
        const std::size_t end = marker_at(rest, &ArmourMarkers::end);
        if (end == 0)
            continue;
        *item_out = copy_item({text->data(), at});
        text->remove_prefix(at + end);
        return *item_out != nullptr ? QEL_OK : QEL_ERR_NO_MEMORY;
    }
    return QEL_ERR_FILE_FORMAT;
}

// Steps to where the next item would begin; false when the data set is complete. The first dash
// itself is stepped over, on purpose: the five of a marker become four, so that a file with a second
// item is refused.
bool step_to_next(std::string_view *text) {
    const std::size_t dash = text->find('-');
    if (dash == text->npos || dash + 1 == text->size())
        return false;
    text->remove_prefix(dash + 1);
    return true;
}

QelStatus read_file(const char *name, qel::DataSet *set) {
    uint8_t *bytes = nullptr;
    uint32_t length = 0;
    if (const QelStatus status = __qel_read_input(name, QEL_FORM_RAW, &bytes, &length);
        status != QEL_OK)
        return status;
    const qel::SecretBytes owner(bytes, qel::ZeroAndFree{length});
    return parse_data_set(reinterpret_cast<const char *>(bytes), length, set);
}

} // namespace

QelStatus qel::DataSet::take(QelItemList *list) {
    uint32_t count = 0;
    for (const QelItemList *node = list; node != nullptr; node = node->next)
        ++count;
    release();
    if (count == 0)
        return QEL_OK;
    items_ = static_cast<QelDataSetItem *>(std::calloc(count, sizeof *items_));
    if (items_ == nullptr)
        return QEL_ERR_NO_MEMORY;
    for (; list != nullptr; list = list->next)
        items_[count_++] = {static_cast<uint8_t *>(std::exchange(list->data, nullptr)),
                            static_cast<uint32_t>(list->length)};
    return QEL_OK;
}

void qel::DataSet::release() {
    for (const QelDataSetItem &item : items())
        std::free(item.data);
    std::free(std::exchange(items_, nullptr));
    count_ = 0;
}

QelStatus parse_data_set(const char *text, uint32_t length, qel::DataSet *set) {
    std::string_view rest(text, length);
    QelItemList *first = nullptr;
    QelItemList **end = &first;
    QelStatus status;
    do {
        status = read_item(&rest, end);
        if (status == QEL_OK)
            end = &(*end)->next;
    } while (status == QEL_OK && step_to_next(&rest));
    const OwnedList list(first);
    return status == QEL_OK ? set->take(list.get()) : status;
}

QelStatus read_data_set(QelContext *context, uint32_t source, const char *name, qel::DataSet *set) {
    QelItemList *items = nullptr;
    uint32_t count = 0;
    QelStatus status;
    switch (source) {
    case qel::registered_keypkgs:
        status = __qel_get_qelserv_keypkg(context, name, &items, &count);
        break;
    case qel::named_keypkgs:
        status = dsv_get_keys_given_user_name(name, &items, &count);
        break;
    case qel::named_certificates:
        status = dsv_get_certs_given_user_name(name, &items, &count);
        break;
    default:
        return read_file(name, set);
    }
    const OwnedList list(items);
    return status == QEL_OK ? set->take(items) : status;
}

QelStatus convert_data_set(int form, qel::DataSet *set) {
    if (form == QEL_FORM_RAW)
        return QEL_OK;
    for (QelDataSetItem &item : set->items()) {
        const qel::Owned<uint8_t> text(std::exchange(item.data, nullptr));
        const uint32_t length = std::exchange(item.length, 0);
        if (const QelStatus status = decode_text(form, reinterpret_cast<const char *>(text.get()),
                                                 length, &item.data, &item.length);
            status != QEL_OK)
            return status;
    }
    return QEL_OK;
}

QelStatus give_data_set(RepositoryReader *read, QelContext *context, int repository,
                        const char *name, QelDataSetItem **items_out, uint32_t *count_out) {
    if (items_out == nullptr || count_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *items_out = nullptr;
    *count_out = 0;
    if (context == nullptr)
        return QEL_ERR_BAD_PARAM;
    qel::DataSet set;
    const QelStatus status = read(context, repository, name, &set);
    if (status == QEL_OK)
        set.hand_over(items_out, count_out);
    return status;
}

QelStatus read_data_set_file(QelContext *context, const char *name, qel::DataSet *set) {
    const QelStatus status = read_data_set(context, QEL_REPO_FILE, name, set);
    return status == QEL_OK ? convert_data_set(QEL_FORM_ARMOUR, set) : status;
}
