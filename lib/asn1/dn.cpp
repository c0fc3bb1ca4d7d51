// dn.cpp: distinguished names as printable text, and back.

#include <asn1/dn.h>
#include <asn1/object_ids.h>

#include <lib/memory.h>
#include <qel/qelp.h>

namespace {

namespace record = qel::record;

using OwnedText = qel::Owned<char>;
using OwnedName = qel::Record<QelName, qel_free_dn>;
using OwnedRdn = qel::Record<QelRdn, __qel_free_rdn>;
using OwnedAva = qel::Record<QelAva, __qel_free_ava>;

constexpr std::size_t no_limit = SIZE_MAX;

struct AttributeRow {
    const char *keyword;
    const QelOid *type;
    int pdu;              // of the value
    std::size_t min, max; // characters of the tidied value (X.520, upper bounds)
};

// clang-format off
constexpr AttributeRow attributes[] = {
    {"CN",     &record::commonName_OID,    QEL_PDU_CIG,          0, 64},
    {"SERIAL", &record::serial_OID,        QEL_PDU_PT,           0, 64},
    {"C",      &record::countryName_OID,   QEL_PDU_PT,           2, 2},
    {"L",      &record::locality_OID,      QEL_PDU_CIG,          0, 128},
    {"O",      &record::orgname_OID,       QEL_PDU_CIG,          0, 64},
    {"OU",     &record::orgunit_OID,       QEL_PDU_CIG,          0, 64},
    {"ST",     &record::state_OID,         QEL_PDU_CIG,          0, 128},
    {"STREET", &record::streetAddress_OID, QEL_PDU_CIG,          0, 128},
    {"EM",     &record::emailAddress_OID,  QEL_PDU_EmailAddress, 0, no_limit},
};
// clang-format on

// ---- Characters
// ------------------------------------------------------------------------------------

// The classes of ASCII, whatever the locale.
bool is_space(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

char to_upper(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

bool equal_ignoring_case(const char *a, const char *b) {
    for (; *a != '\0' && to_upper(*a) == to_upper(*b); ++a, ++b) {
    }
    return to_upper(*a) == to_upper(*b);
}

// In place: no white space at either end, one blank for every run of it inside.
void __tidy_string(char *text) {
    char *out = text;
    bool space_before = false;
    for (const char *c = text; *c != '\0'; ++c) {
        if (is_space(*c)) {
            space_before = out != text;
            continue;
        }
        if (space_before)
            *out++ = ' ';
        space_before = false;
        *out++ = *c;
    }
    *out = '\0';
}

// In place: a comma for each backslash and comma, and for the blanks and tabs before the backslash.
void __replace_backslashcomma_by_comma(char *text) {
    char *out = text;
    for (const char *c = text; *c != '\0'; ++c) {
        if (c[0] == '\\' && c[1] == ',') {
            while (out != text && (out[-1] == ' ' || out[-1] == '\t'))
                --out;
            ++c;
        }
        *out++ = *c;
    }
    *out = '\0';
}

// ---- Reading
// ---------------------------------------------------------------------------------------

const AttributeRow *row_of_keyword(const char *keyword) {
    for (const AttributeRow &row : attributes) {
        if (equal_ignoring_case(keyword, row.keyword))
            return &row;
    }
    return nullptr;
}

QelStatus encode_value(QelContext *context, const AttributeRow &row, char *value,
                       QelOctetString *encoding) {
    QelCaseIgnoreString choice = {};
    choice.choice = QEL_CIG_T61;
    choice.u.t61String = value;
    const void *typed = value;
    if (row.pdu == QEL_PDU_CIG)
        typed = &choice;
    return __qel_asn1_encode(context, typed, row.pdu, &encoding->value, &encoding->length);
}

// Reads one assertion, "keyword = value". The text is taken apart.
QelStatus __str2ava(QelContext *context, char *text, QelAva **ava_out) {
    __replace_backslashcomma_by_comma(text);
    char *equals = std::strchr(text, '=');
    if (equals == nullptr)
        return QEL_ERR_DN_NO_EQUALS;
    if (equals == text)
        return QEL_ERR_DN_NO_TYPE;
    *equals = '\0';
    char *value = equals + 1;
    __tidy_string(text);
    const AttributeRow *row = row_of_keyword(text);
    if (row == nullptr)
        return QEL_ERR_UNSUPPORTED_ATTR;
    if (*value == '\0')
        return QEL_ERR_DN_NO_VALUE;
    __tidy_string(value);
    if (const std::size_t length = std::strlen(value); length < row->min || length > row->max)
        return QEL_ERR_BAD_PARAM;

    OwnedAva ava(qel::allocate<QelAva>());
    if (!ava)
        return QEL_ERR_NO_MEMORY;
    if (const QelStatus status = __qel_copy_oid(&ava->type, row->type); status != QEL_OK)
        return status;
    ava->value = qel::allocate<QelOctetString>();
    if (ava->value == nullptr)
        return QEL_ERR_NO_MEMORY;
    if (const QelStatus status = encode_value(context, *row, value, ava->value); status != QEL_OK)
        return status;
    *ava_out = ava.release();
    return QEL_OK;
}

// Reads one component, assertions joined by '+', which cannot be escaped. The text is taken apart.
QelStatus __str2rdn(QelContext *context, char *text, QelRdn **rdn_out) {
    if (*text == '+')
        return QEL_ERR_BAD_PARAM;
    OwnedRdn rdn;
    QelRdn *last = nullptr;
    for (char *piece = text; piece != nullptr;) {
        char *plus = std::strchr(piece, '+');
        if (plus != nullptr)
            *plus = '\0';
        OwnedRdn node(qel::allocate<QelRdn>());
        if (!node)
            return QEL_ERR_NO_MEMORY;
        if (const QelStatus status = __str2ava(context, piece, &node->ava); status != QEL_OK)
            return status;
        QelRdn *added = node.release();
        if (last == nullptr)
            rdn.reset(added);
        else
            last->next = added;
        last = added;
        piece = plus != nullptr ? plus + 1 : nullptr;
    }
    *rdn_out = rdn.release();
    return QEL_OK;
}

QelStatus append_component(QelContext *context, char *text, QelRdnSeq ***tail) {
    QelRdn *rdn = nullptr;
    if (const QelStatus status = __str2rdn(context, text, &rdn); status != QEL_OK)
        return status;
    OwnedRdn owner(rdn);
    auto *node = qel::allocate<QelRdnSeq>();
    if (node == nullptr)
        return QEL_ERR_NO_MEMORY;
    node->rdn = owner.release();
    **tail = node;
    *tail = &node->next;
    return QEL_OK;
}

// Takes the components of text from the last to the first, the order of the record, and takes text
// apart. A comma after a backslash belongs to its component. White space behind the last comma, and
// nothing more, is no component.
QelStatus read_components(QelContext *context, char *text, QelRdnSeq **rdns) {
    QelRdnSeq **tail = rdns;
    char *comma = std::strrchr(text, ',');
    if (comma != nullptr && comma != text && comma[-1] != '\\') {
        *comma++ = '\0';
        while (is_space(*comma))
            ++comma;
        if (*comma != '\0') {
            if (const QelStatus status = append_component(context, comma, &tail); status != QEL_OK)
                return status;
        }
    }
    for (std::size_t at = std::strlen(text); at-- > 0;) {
        if (text[at] != ',')
            continue;
        if (at == 0)
            return QEL_ERR_BAD_PARAM;
        if (text[at - 1] == '\\')
            continue;
        text[at] = '\0';
        if (const QelStatus status = append_component(context, text + at + 1, &tail);
            status != QEL_OK)
            return status;
    }
    return append_component(context, text, &tail);
}

// ---- Writing
// ---------------------------------------------------------------------------------------

// Text that grows, NUL-terminated once anything was appended.
struct Text {
    OwnedText characters;
    std::size_t length = 0;
    std::size_t room = 0;

    QelStatus append(const char *string) {
        const std::size_t added = std::strlen(string) + 1;
        if (added > room - length) {
            const std::size_t wanted = (length + added) * 2;
            auto *grown = static_cast<char *>(std::realloc(characters.get(), wanted));
            if (grown == nullptr)
                return QEL_ERR_NO_MEMORY;
            static_cast<void>(characters.release());
            characters.reset(grown);
            room = wanted;
        }
        std::memcpy(characters.get() + length, string, added);
        length += added - 1;
        return QEL_OK;
    }
};

struct FreePdu {
    QelContext *context = nullptr;
    int pdu = 0;
    void operator()(void *value) const { __qel_asn1_free(context, value, pdu); }
};

QelStatus row_of_type(const QelOid *type, const AttributeRow **row_out) {
    for (const AttributeRow &row : attributes) {
        int difference = 0;
        if (const QelStatus status = __qel_cmp_oid(type, row.type, &difference); status != QEL_OK)
            return status;
        if (difference == 0) {
            *row_out = &row;
            return QEL_OK;
        }
    }
    return QEL_ERR_UNSUPPORTED_ATTR;
}

// The characters of a decoded value; null for an alternative that is none of the schema's.
const char *characters_of(const AttributeRow &row, const void *value) {
    if (row.pdu != QEL_PDU_CIG)
        return static_cast<const char *>(value);
    const auto *string = static_cast<const QelCaseIgnoreString *>(value);
    switch (string->choice) {
    case QEL_CIG_T61:
        return string->u.t61String;
    case QEL_CIG_PRINTABLE:
        return string->u.printableString;
    default:
        return nullptr;
    }
}

QelStatus append_ava(QelContext *context, const QelAva *ava, int mode, Text *text) {
    if (ava == nullptr || ava->value == nullptr || ava->value->value == nullptr ||
        ava->value->length == 0)
        return QEL_ERR_BAD_PARAM;
    const AttributeRow *row = nullptr;
    QelStatus status = row_of_type(ava->type, &row);
    if (status == QEL_OK)
        status = text->append(" ");
    if (status == QEL_OK)
        status = text->append(row->keyword);
    if (status == QEL_OK)
        status = text->append("=");
    if (status != QEL_OK)
        return status;

    void *decoded = nullptr;
    status = __qel_asn1_decode(context, ava->value->value, ava->value->length, row->pdu, &decoded);
    if (status != QEL_OK)
        return status;
    const std::unique_ptr<void, FreePdu> owner(decoded, FreePdu{context, row->pdu});
    char *capitals = nullptr;
    status = __qel_str_up(characters_of(*row, decoded), mode, &capitals);
    if (status != QEL_OK)
        return status;
    const OwnedText capitals_owner(capitals);
    return text->append(capitals);
}

// Appends " CN=A" or, where there are several assertions, " CN=A + OU=B".
QelStatus __rdn2str(QelContext *context, const QelRdn *rdn, int mode, Text *text) {
    if (rdn == nullptr)
        return QEL_ERR_BAD_PARAM;
    for (; rdn != nullptr; rdn = rdn->next) {
        QelStatus status = append_ava(context, rdn->ava, mode, text);
        if (status == QEL_OK && rdn->next != nullptr)
            status = text->append(" +");
        if (status != QEL_OK)
            return status;
    }
    return QEL_OK;
}

QelStatus append_rdns(QelContext *context, const QelRdnSeq *rdns, int mode, Text *text) {
    std::size_t count = 0;
    for (const QelRdnSeq *node = rdns; node != nullptr; node = node->next)
        ++count;
    if (count == 0)
        return QEL_OK;
    const qel::Owned<const QelRdn *> in_order(
        static_cast<const QelRdn **>(std::calloc(count, sizeof(QelRdn *))));
    if (!in_order)
        return QEL_ERR_NO_MEMORY;
    const QelRdn **next = in_order.get();
    for (const QelRdnSeq *node = rdns; node != nullptr; node = node->next)
        *next++ = node->rdn;
    while (next != in_order.get()) {
        QelStatus status = __rdn2str(context, *--next, mode, text);
        if (status == QEL_OK && next != in_order.get())
            status = text->append(",");
        if (status != QEL_OK)
            return status;
    }
    return QEL_OK;
}

} // namespace

QelStatus qel_str2dn(QelContext *context, const char *string, QelName **name_out) {
    if (name_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *name_out = nullptr;
    if (context == nullptr || string == nullptr)
        return QEL_ERR_BAD_PARAM;
    const OwnedText text(strdup(string));
    OwnedName name(qel::allocate<QelName>());
    if (!text || !name)
        return QEL_ERR_NO_MEMORY;
    std::replace(text.get(), text.get() + std::strlen(text.get()), '"', ' ');
    name->choice = QEL_NAME_RDN_SEQUENCE;
    if (const QelStatus status = read_components(context, text.get(), &name->rdns);
        status != QEL_OK)
        return status;
    *name_out = name.release();
    return QEL_OK;
}

QelStatus __qel_dn2str(QelContext *context, const QelName *name, int mode, char **string_out) {
    if (string_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *string_out = nullptr;
    if (context == nullptr || name == nullptr || (mode != 1 && mode != 2) ||
        name->choice != QEL_NAME_RDN_SEQUENCE)
        return QEL_ERR_BAD_PARAM;
    Text text;
    QelStatus status = append_rdns(context, name->rdns, mode, &text);
    if (status == QEL_OK && text.length == 0)
        status = text.append(" ");
    if (status != QEL_OK)
        return status;
    // Without the blank that begins the first component.
    std::memmove(text.characters.get(), text.characters.get() + 1, text.length);
    *string_out = text.characters.release();
    return QEL_OK;
}

QelStatus qel_dn2str(QelContext *context, const QelName *name, char **string_out) {
    return __qel_dn2str(context, name, 1, string_out);
}

QelStatus normalise_dn(QelContext *context, const QelName *name, int mode, char **string_out) {
    uint8_t *bytes = nullptr;
    uint32_t length = 0;
    if (const QelStatus status = __qel_asn1_encode(context, name, QEL_PDU_Name, &bytes, &length);
        status != QEL_OK)
        return status;
    const qel::Owned<uint8_t> encoding(bytes);
    void *decoded = nullptr;
    if (const QelStatus status = __qel_asn1_decode(context, bytes, length, QEL_PDU_Name, &decoded);
        status != QEL_OK)
        return status;
    const OwnedName canonical(static_cast<QelName *>(decoded));
    return __qel_dn2str(context, canonical.get(), mode, string_out);
}

QelStatus __qel_normalize_DN(QelContext *context, const char *string, int mode, char **string_out) {
    if (string_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *string_out = nullptr;
    QelName *name = nullptr;
    if (const QelStatus status = qel_str2dn(context, string, &name); status != QEL_OK)
        return status;
    const OwnedName owner(name);
    return normalise_dn(context, name, mode, string_out);
}
