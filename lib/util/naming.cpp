// naming.cpp: certificates, key packages and distinguished names as attributes in the naming service.

#include <util/naming_xfn.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include <lib/memory.h>

using qel::Attribute;
using qel::CompositeName;
using qel::Destroy;
using qel::XfnStatus;

namespace {

struct AttributeRow {
    const char *identifier;
    const char *syntax;
    QelStatus missing;
};
constexpr AttributeRow attributes[] = {
    {dn_attribute, "fn_attr_syntax_ascii", QEL_ERR_NO_DN},
    {certificates_attribute, "fn_attr_syntax_binary", QEL_ERR_NO_CERT},
    {key_packages_attribute, "fn_attr_syntax_binary", QEL_ERR_NO_KEYPKG},
};

constexpr int64_t per_second = 1'000'000'000;
constexpr int64_t patience = 10 * per_second;
constexpr int64_t pause_growth = 1'000'000;
constexpr unsigned most_growth = 16;

constexpr unsigned follow_links = 1;

using ValueList = qel::Record<QelItemList, __qel_free_item_list>;

// Where the attributes of a name are.
struct Entry {
    NameKind kind = NameKind::none;
    FN_ctx_t *context = nullptr;
    CompositeName name;
    XfnStatus status;
};

struct Change {
    const char *attribute;
    NamingChange kind;
    FN_attrvalue_t value;
    FN_attrvalue_t old_value;                     // with nothing: none
    const std::span<const QelDataSetItem> *known; // the values that must be there; null: any
};

const AttributeRow *find_row(const char *attribute) {
    for (const AttributeRow &row : attributes)
        if (std::strcmp(row.identifier, attribute) == 0)
            return &row;
    return nullptr;
}

bool is_dn(const char *attribute) {
    return std::strcmp(attribute, dn_attribute) == 0;
}

// The provider copies what it is given, and changes nothing of it.
FN_identifier_t identifier_of(const char *text) {
    return {FN_ID_STRING, std::strlen(text), const_cast<char *>(text)};
}

FN_attrvalue_t value_of(const uint8_t *bytes, uint32_t length) {
    return {length, const_cast<uint8_t *>(bytes)};
}

QelStatus find_entry(const char *name, Entry *entry) {
    entry->kind = dsv_get_dsv_type(name);
    QelStatus status = dsv_set_context(entry->kind);
    if (status == QEL_OK)
        status = qel::make_composite_name(name, entry->kind, &entry->name);
    if (status != QEL_OK)
        return status;
    entry->context = qel::naming_context(entry->kind);
    entry->status.reset(fn_status_create());
    return entry->status == nullptr ? QEL_ERR_NO_MEMORY : QEL_OK;
}

// FN_SUCCESS with the attribute, or why there is none.
unsigned read_attribute(const Entry &entry, const char *attribute, Attribute *attribute_out) {
    const FN_identifier_t identifier = identifier_of(attribute);
    attribute_out->reset(fn_attr_get(entry.context, entry.name.get(), &identifier, follow_links,
                                     entry.status.get()));
    const unsigned code = fn_status_code(entry.status.get());
    if (code == FN_SUCCESS && *attribute_out == nullptr)
        return FN_E_NO_SUCH_ATTRIBUTE;
    return code;
}

// A list of copies, each with room bytes of zeros behind it.
QelStatus copy_values(const FN_attribute_t *attribute, std::size_t room, ValueList *list_out,
                      uint32_t *count_out) {
    QelItemList *last = nullptr;
    uint32_t count = 0;
    void *place = nullptr;
    for (const FN_attrvalue_t *value = fn_attribute_first(attribute, &place); value != nullptr;
         value = fn_attribute_next(attribute, &place)) {
        qel::Owned<QelItemList> item(qel::allocate<QelItemList>());
        qel::Owned<uint8_t> bytes(qel::allocate_bytes(value->length + room));
        if (item == nullptr || bytes == nullptr)
            return QEL_ERR_NO_MEMORY;
        if (value->length != 0)
            std::memcpy(bytes.get(), value->contents, value->length);
        item->data = bytes.release();
        item->length = value->length;
        QelItemList *const added = item.release();
        if (last == nullptr)
            list_out->reset(added);
        else
            last->next = added;
        last = added;
        ++count;
    }
    *count_out = count;
    return QEL_OK;
}

// What is to be changed: the attribute as it is, or a new one. Null if there is nothing to do. The
// provider will refuse to write it if meanwhile someone else has.
QelStatus prepare(const Entry &entry, const Change &change, Attribute *attribute_out) {
    const unsigned code = read_attribute(entry, change.attribute, attribute_out);
    if (code == FN_SUCCESS) {
        fn_attribute_expect(attribute_out->get(), attribute_out->get());
        return QEL_OK;
    }
    attribute_out->reset();
    if (code != FN_E_NAME_NOT_FOUND && code != FN_E_NO_SUCH_ATTRIBUTE)
        return QEL_ERR_XFN;
    if (change.kind != NamingChange::add)
        return change.kind == NamingChange::remove ? QEL_OK : QEL_ERR_XFN;
    const QelStatus status = dsv_create_context(entry.name.get(), entry.kind);
    if (status != QEL_OK)
        return status;
    attribute_out->reset(dsv_get_attribute(change.attribute, nullptr, 0));
    if (*attribute_out == nullptr)
        return find_row(change.attribute) != nullptr ? QEL_ERR_NO_MEMORY : QEL_ERR_BAD_PARAM;
    fn_attribute_expect(attribute_out->get(), nullptr);
    return QEL_OK;
}

bool has_values(const FN_attribute_t *attribute, std::span<const QelDataSetItem> known) {
    void *place = nullptr;
    const FN_attrvalue_t *value = fn_attribute_first(attribute, &place);
    for (const QelDataSetItem &item : known) {
        if (value == nullptr || value->length != item.length ||
            (item.length != 0 && std::memcmp(value->contents, item.data, item.length) != 0))
            return false;
        value = fn_attribute_next(attribute, &place);
    }
    return value == nullptr;
}

// False: no memory.
bool apply(const Change &change, FN_attribute_t *attribute) {
    if (change.kind != NamingChange::remove)
        return fn_attribute_add(attribute, &change.value, 0) != 0 &&
               (change.old_value.contents == nullptr ||
                fn_attribute_remove(attribute, &change.old_value) != 0);
    return change.value.contents == nullptr || fn_attribute_remove(attribute, &change.value) != 0;
}

unsigned write_attribute(const Entry &entry, unsigned operation, const FN_attribute_t *attribute) {
    fn_attr_modify(entry.context, entry.name.get(), operation, attribute, follow_links,
                   entry.status.get());
    return fn_status_code(entry.status.get());
}

// Has the provider do the change, whatever is stored by now. FN_E_ATTR_CHANGED: it has no such operation.
unsigned change_what_is_stored(const Entry &entry, const Change &change) {
    if (change.known != nullptr || change.kind == NamingChange::replace ||
        find_row(change.attribute) == nullptr)
        return FN_E_ATTR_CHANGED;
    const Attribute values(dsv_get_attribute(change.attribute,
                                             static_cast<const uint8_t *>(change.value.contents),
                                             static_cast<uint32_t>(change.value.length)));
    if (values == nullptr)
        return FN_E_INSUFFICIENT_RESOURCES;
    if (change.kind == NamingChange::add)
        return write_attribute(entry, FN_ATTR_OP_ADD_VALUES, values.get());
    const bool all = change.value.contents == nullptr;
    return write_attribute(entry, all ? FN_ATTR_OP_REMOVE : FN_ATTR_OP_REMOVE_VALUES, values.get());
}

// Reads, changes and writes. *overtaken: someone else has written in between, and nothing was.
QelStatus change_once(const Entry &entry, const Change &change, bool *overtaken) {
    *overtaken = false;
    Attribute attribute;
    const QelStatus status = prepare(entry, change, &attribute);
    if (status != QEL_OK || attribute == nullptr)
        return status;
    *overtaken = change.known != nullptr && !has_values(attribute.get(), *change.known);
    if (*overtaken)
        return QEL_ERR_XFN;
    if (!apply(change, attribute.get()))
        return QEL_ERR_NO_MEMORY;
    const bool nothing_left =
        change.value.contents == nullptr || fn_attribute_valuecount(attribute.get()) == 0;
    unsigned code =
        write_attribute(entry, nothing_left ? FN_ATTR_OP_REMOVE : FN_ATTR_OP_ADD, attribute.get());
    if (code == FN_E_ATTR_CHANGED)
        code = change_what_is_stored(entry, change);
    *overtaken = code == FN_E_ATTR_CHANGED;
    return code == FN_SUCCESS ? QEL_OK : QEL_ERR_XFN;
}

using Text = std::unique_ptr<FN_string_t, Destroy<fn_string_destroy>>;
using SearchList = std::unique_ptr<FN_searchlist_t, Destroy<prelim_fn_searchlist_destroy>>;
using AttributeSet = std::unique_ptr<FN_attrset_t, Destroy<fn_attrset_destroy>>;

struct Query {
    CompositeName here; // the context itself
    AttributeSet match;
    AttributeSet wanted; // nothing but names
    XfnStatus status;
};

QelStatus make_query(const char *dn, Query *query) {
    const Attribute attribute(dsv_get_attribute(dn_attribute, reinterpret_cast<const uint8_t *>(dn),
                                                static_cast<uint32_t>(std::strlen(dn))));
    if (attribute == nullptr)
        return QEL_ERR_XFN;
    query->here.reset(fn_composite_name_from_str(reinterpret_cast<const unsigned char *>("")));
    query->match.reset(fn_attrset_create());
    query->wanted.reset(fn_attrset_create());
    query->status.reset(fn_status_create());
    if (query->here == nullptr || query->match == nullptr || query->wanted == nullptr ||
        query->status == nullptr || fn_attrset_add(query->match.get(), attribute.get(), 0) == 0)
        return QEL_ERR_NO_MEMORY;
    return QEL_OK;
}

// The first hit. QEL_ERR_UNKNOWN_USER: there is none. QEL_ERR_NO_DN: the search failed.
QelStatus search(NameKind kind, const Query &query, Text *name_out) {
    FN_status_t *const status = query.status.get();
    const SearchList hits(prelim_fn_attr_search(qel::naming_context(kind), query.here.get(),
                                                query.match.get(), 0, query.wanted.get(), status));
    if (hits != nullptr)
        name_out->reset(prelim_fn_searchlist_next(hits.get(), nullptr, nullptr, status));
    if (*name_out != nullptr)
        return QEL_OK;
    return fn_status_code(status) == FN_SUCCESS ? QEL_ERR_UNKNOWN_USER : QEL_ERR_NO_DN;
}

QelStatus give_name(NameKind kind, const FN_string_t *hit, char **name_out) {
    const auto *text = reinterpret_cast<const char *>(fn_string_str(hit, nullptr));
    if (text == nullptr)
        return QEL_ERR_NO_MEMORY;
    errno = 0;
    *name_out = kind == NameKind::host ? get_ip_from_hostname(text) : strdup(text);
    if (*name_out != nullptr)
        return QEL_OK;
    return errno == ENOMEM ? QEL_ERR_NO_MEMORY : QEL_ERR_UNKNOWN_USER;
}

bool holds(const QelItemList *list, const char *text) {
    const std::size_t length = std::strlen(text);
    for (; list != nullptr; list = list->next)
        if (list->length == length && std::memcmp(list->data, text, length) == 0)
            return true;
    return false;
}

// Once, if the entry has the values that are known.
QelStatus change_if(const char *name, const Change &change, bool *overtaken) {
    *overtaken = false;
    Entry entry;
    const QelStatus status = find_entry(name, &entry);
    return status == QEL_OK ? change_once(entry, change, overtaken) : status;
}

unsigned count_owners(NameKind kind, const Query &query) {
    FN_status_t *const status = query.status.get();
    const SearchList hits(prelim_fn_attr_search(qel::naming_context(kind), query.here.get(),
                                                query.match.get(), 0, query.wanted.get(), status));
    unsigned count = 0;
    while (hits != nullptr &&
           Text(prelim_fn_searchlist_next(hits.get(), nullptr, nullptr, status)) != nullptr)
        ++count;
    return count;
}

// Whether other entries were registered under the name at the same time.
bool has_rivals(const char *dn) {
    Query query;
    return dsv_set_context(NameKind::user) == QEL_OK && dsv_set_context(NameKind::host) == QEL_OK &&
           make_query(dn, &query) == QEL_OK &&
           count_owners(NameKind::user, query) + count_owners(NameKind::host, query) > 1;
}

// *overtaken: the entry was registered in between, perhaps under another name.
QelStatus try_to_register(const char *name, const char *dn, bool *overtaken) {
    *overtaken = false;
    QelItemList *registered = nullptr;
    uint32_t count = 0;
    QelStatus status = __dsv_get_dn_name_given_user_name(name, &registered, &count);
    const ValueList owner(registered);
    if (status == QEL_OK)
        return holds(registered, dn) ? QEL_OK : QEL_ERR_ENTRY_EXISTS;
    if (status != QEL_ERR_NO_DN)
        return status;
    char *other = nullptr;
    if (__dsv_get_user_name_given_cn_name(dn, &other) == QEL_OK) {
        std::free(other);
        return QEL_ERR_ENTRY_EXISTS;
    }
    const auto *bytes = reinterpret_cast<const uint8_t *>(dn);
    const auto length = static_cast<uint32_t>(std::strlen(dn));
    const std::span<const QelDataSetItem> none;
    status = change_if(name, {dn_attribute, NamingChange::add, value_of(bytes, length), {}, &none},
                       overtaken);
    if (status != QEL_OK || !has_rivals(dn))
        return status;
    dsv_delete_cn_name(name, bytes, length);
    return QEL_ERR_ENTRY_EXISTS;
}

QelStatus register_dn(const char *name, const char *dn) {
    return until_first([=](bool *overtaken) { return try_to_register(name, dn, overtaken); });
}

int64_t now() {
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * per_second + time.tv_nsec;
}

} // namespace

Attempts::Attempts() : end_(now() + patience) {}

bool Attempts::another() {
    const int64_t time = now();
    if (time >= end_)
        return false;
    count_ = std::min(count_ + 1, most_growth);
    const timespec pause = {0, static_cast<long>(time % (count_ * pause_growth))};
    nanosleep(&pause, nullptr);
    return true;
}

FN_attribute_t *dsv_get_attribute(const char *attribute, const uint8_t *value, uint32_t length) {
    const AttributeRow *row = attribute == nullptr ? nullptr : find_row(attribute);
    if (row == nullptr)
        return nullptr;
    const FN_identifier_t identifier = identifier_of(row->identifier);
    const FN_identifier_t syntax = identifier_of(row->syntax);
    Attribute made(fn_attribute_create(&identifier, &syntax));
    const FN_attrvalue_t first = value_of(value, length);
    if (made != nullptr && value != nullptr && fn_attribute_add(made.get(), &first, 0) == 0)
        return nullptr;
    return made.release();
}

QelStatus dsv_get_credentials_given_user_name(const char *name, const char *attribute,
                                              QelItemList **list_out, uint32_t *count_out) {
    if (list_out != nullptr)
        *list_out = nullptr;
    if (count_out != nullptr)
        *count_out = 0;
    if (name == nullptr || attribute == nullptr || list_out == nullptr || count_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    Entry entry;
    QelStatus status = find_entry(name, &entry);
    if (status != QEL_OK)
        return status;
    Attribute found;
    unsigned code = read_attribute(entry, attribute, &found);
    if (code == FN_SUCCESS && fn_attribute_valuecount(found.get()) == 0)
        code = FN_E_NO_SUCH_ATTRIBUTE;
    if (code == FN_E_NO_SUCH_ATTRIBUTE) {
        const AttributeRow *row = find_row(attribute);
        return row != nullptr ? row->missing : QelStatus{QEL_ERR_NO_KEYPKG};
    }
    if (code == FN_E_NAME_NOT_FOUND)
        return is_dn(attribute) ? QEL_ERR_NO_DN : QEL_ERR_UNKNOWN_USER;
    if (code != FN_SUCCESS)
        return QEL_ERR_XFN;
    ValueList list;
    status = copy_values(found.get(), is_dn(attribute) ? 1 : 0, &list, count_out);
    if (status == QEL_OK)
        *list_out = list.release();
    return status;
}

QelStatus dsv_get_certs_given_user_name(const char *name, QelItemList **list_out,
                                        uint32_t *count_out) {
    return dsv_get_credentials_given_user_name(name, certificates_attribute, list_out, count_out);
}

QelStatus dsv_get_keys_given_user_name(const char *name, QelItemList **list_out,
                                       uint32_t *count_out) {
    return dsv_get_credentials_given_user_name(name, key_packages_attribute, list_out, count_out);
}

QelStatus __dsv_get_dn_name_given_user_name(const char *name, QelItemList **list_out,
                                            uint32_t *count_out) {
    if (dsv_get_dsv_type(name) != NameKind::full || list_out == nullptr || count_out == nullptr)
        return dsv_get_credentials_given_user_name(name, dn_attribute, list_out, count_out);
    *list_out = nullptr;
    *count_out = 0;
    ValueList list(qel::allocate<QelItemList>());
    if (list == nullptr || (list->data = strdup(name)) == nullptr)
        return QEL_ERR_NO_MEMORY;
    list->length = std::strlen(name);
    *list_out = list.release();
    *count_out = 1;
    return QEL_OK;
}

QelStatus __dsv_get_user_name_given_cn_name(const char *dn, char **name_out) {
    if (name_out != nullptr)
        *name_out = nullptr;
    if (dn == nullptr || name_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    NameKind kind = NameKind::user;
    QelStatus status = dsv_set_context(NameKind::user);
    if (status == QEL_OK)
        status = dsv_set_context(NameKind::host);
    Query query;
    if (status == QEL_OK)
        status = make_query(dn, &query);
    if (status != QEL_OK)
        return status;
    Text hit;
    status = search(kind, query, &hit);
    if (status != QEL_OK) {
        kind = NameKind::host;
        status = search(kind, query, &hit);
    }
    return status == QEL_OK ? give_name(kind, hit.get(), name_out) : status;
}

QelStatus dsv_modify_attribute(const char *name, const char *attribute, NamingChange kind,
                               const uint8_t *value, uint32_t length, const uint8_t *old_value,
                               uint32_t old_length) {
    if (name == nullptr || attribute == nullptr || kind < NamingChange::add ||
        kind > NamingChange::remove || (value == nullptr && kind != NamingChange::remove) ||
        (old_value == nullptr && kind == NamingChange::replace))
        return QEL_ERR_BAD_PARAM;
    if (dsv_get_dsv_type(name) == NameKind::full && is_dn(attribute))
        return QEL_OK;
    Entry entry;
    const QelStatus status = find_entry(name, &entry);
    if (status != QEL_OK)
        return status;
    const bool replaces = kind == NamingChange::replace;
    const Change change = {attribute, kind, value_of(value, length),
                           replaces ? value_of(old_value, old_length) : FN_attrvalue_t{}, nullptr};
    return until_first([&](bool *overtaken) { return change_once(entry, change, overtaken); });
}

QelStatus dsv_add_attribute(const char *name, const char *attribute, const uint8_t *value,
                            uint32_t length) {
    return dsv_modify_attribute(name, attribute, NamingChange::add, value, length, nullptr, 0);
}

QelStatus dsv_delete_cn_name(const char *name, const uint8_t *value, uint32_t length) {
    return dsv_modify_attribute(name, dn_attribute, NamingChange::remove, value, length, nullptr,
                                0);
}

QelStatus dsv_delete_certificates(const char *name, const uint8_t *value, uint32_t length) {
    return dsv_modify_attribute(name, certificates_attribute, NamingChange::remove, value, length,
                                nullptr, 0);
}

QelStatus dsv_delete_key_pkg(const char *name, const uint8_t *value, uint32_t length) {
    return dsv_modify_attribute(name, key_packages_attribute, NamingChange::remove, value, length,
                                nullptr, 0);
}

QelStatus dsv_modify_certificates(const char *name, const uint8_t *value, uint32_t length,
                                  const uint8_t *old_value, uint32_t old_length) {
    return dsv_modify_attribute(name, certificates_attribute, NamingChange::replace, value, length,
                                old_value, old_length);
}

QelStatus dsv_modify_key_pkg(const char *name, const uint8_t *value, uint32_t length,
                             const uint8_t *old_value, uint32_t old_length) {
    return dsv_modify_attribute(name, key_packages_attribute, NamingChange::replace, value, length,
                                old_value, old_length);
}

QelStatus dsv_put_key_pkg(const char *name, std::span<const QelDataSetItem> known,
                          const QelDataSetItem *old, const uint8_t *value, uint32_t length,
                          bool *overtaken) {
    const FN_attrvalue_t old_value =
        old != nullptr ? value_of(old->data, old->length) : FN_attrvalue_t{};
    return change_if(
        name,
        {key_packages_attribute, NamingChange::add, value_of(value, length), old_value, &known},
        overtaken);
}

QelStatus dsv_add_user_certs_and_key_pkg(const char *name, const char *dn,
                                         const uint8_t *certificate, uint32_t certificate_length,
                                         const uint8_t *package, uint32_t package_length) {
    if (name == nullptr)
        return QEL_ERR_BAD_PARAM;
    QelStatus status = QEL_OK;
    if (dn != nullptr)
        status = register_dn(name, dn);
    if (status == QEL_OK && certificate != nullptr)
        status = dsv_add_attribute(name, certificates_attribute, certificate, certificate_length);
    if (status == QEL_OK && package != nullptr)
        status = dsv_add_attribute(name, key_packages_attribute, package, package_length);
    return status;
}

QelStatus dsv_add_user_certs(const char *name, const char *dn, const uint8_t *certificate,
                             uint32_t certificate_length) {
    return dsv_add_user_certs_and_key_pkg(name, dn, certificate, certificate_length, nullptr, 0);
}
