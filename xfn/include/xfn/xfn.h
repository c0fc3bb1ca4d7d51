/*
 * xfn.h: the interface of libxfn, a naming provider with the C interface of the X/Open federated
 * naming standard (XFN), as far as programs on hosts without a naming service of their own need it.
 *
 * The names. A composite name is a sequence of components. From the initial context
 *     user/LOGIN      is the entry of a user,
 *     host/HOST       the entry of a host,
 *     .../WHATEVER    a global name: its first component is "...", all components together are one name.
 * An entry is a context without names below it. It has attributes; an attribute has an identifier, a
 * syntax, and a set of values, which are bytes. There are no links, so follow_link changes nothing.
 *
 * Who may do what. Everybody may read. The entry of a user may be created, changed and destroyed by the
 * user of that login name and by root; hosts and global names by root only.
 *
 * What holds everywhere:
 *  - Functions that return a pointer give a new object, which the caller releases with its _destroy
 *    function, unless they return a const pointer: that belongs to the object it came from, and is
 *    valid until this is changed or destroyed. Objects copy what they are given.
 *  - Null means failure; with an FN_status_t, the status tells which; without one, memory ran out
 *    unless something else is said. An int is 1 for success and 0 for failure, unless something else
 *    is said. Destroying null is harmless. Null for an FN_status_t is allowed.
 *  - Every function that takes an FN_status_t sets it: FN_SUCCESS, FN_E_INSUFFICIENT_RESOURCES (memory,
 *    a full disk, a limit of the store), FN_E_UNSPECIFIED_ERROR (a null argument, and what has no code
 *    of its own), or what its description says. What reaches a store can also give
 *    FN_E_CTX_UNAVAILABLE (no such back end, the store is damaged, or busy for longer than ten
 *    seconds), FN_E_COMMUNICATION_FAILURE (a service on the way does not answer),
 *    FN_E_CTX_NO_PERMISSION, FN_E_OPERATION_NOT_SUPPORTED (a change where only reading is possible) and
 *    FN_E_CONFIGURATION_ERROR (/etc/fn.conf is malformed). What fails has changed nothing;
 *    only after FN_E_COMMUNICATION_FAILURE it is not known.
 *  - A process that may not write the database of the host has fnsd(8) make its changes. Where that
 *    does not run, they give FN_E_CTX_NO_PERMISSION. The entries of a NIS domain can only be read:
 *    changes give FN_E_OPERATION_NOT_SUPPORTED.
 *  - A context handle may be used by several threads at once, and after a fork by both processes.
 *    Every other object serves one thread at a time.
 *  - Texts are UTF-8, or whatever bytes without a zero the caller uses; they come back as they went in.
 */
#ifndef XFN_XFN_H
#define XFN_XFN_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

typedef struct FN_ctx FN_ctx_t;
typedef struct FN_string FN_string_t;
typedef struct FN_composite_name FN_composite_name_t;
typedef struct FN_ref FN_ref_t;
typedef struct FN_ref_addr FN_ref_addr_t;
typedef struct FN_attribute FN_attribute_t;
typedef struct FN_attrset FN_attrset_t;
typedef struct FN_status FN_status_t;
typedef struct FN_namelist FN_namelist_t;
typedef struct FN_multigetlist FN_multigetlist_t;
typedef struct FN_searchlist FN_searchlist_t;

/* ---- Status codes ------------------------------------------------------------------------------- */

enum {
    FN_SUCCESS = 1,
    FN_E_LINK_ERROR = 2,
    FN_E_CONFIGURATION_ERROR = 3,
    FN_E_NAME_NOT_FOUND = 4,
    FN_E_NOT_A_CONTEXT = 5,
    FN_E_LINK_LOOP_LIMIT = 6,
    FN_E_MALFORMED_LINK = 7,
    FN_E_ILLEGAL_NAME = 8,
    FN_E_CTX_NO_PERMISSION = 9,
    FN_E_NAME_IN_USE = 10,
    FN_E_OPERATION_NOT_SUPPORTED = 11,
    FN_E_COMMUNICATION_FAILURE = 12,
    FN_E_CTX_UNAVAILABLE = 13,
    FN_E_NO_SUPPORTED_ADDRESS = 14,
    FN_E_MALFORMED_REFERENCE = 15,
    FN_E_AUTHENTICATION_FAILURE = 16,
    FN_E_INSUFFICIENT_RESOURCES = 17,
    FN_E_CTX_NOT_EMPTY = 18,
    FN_E_NO_SUCH_ATTRIBUTE = 19,
    FN_E_INVALID_ATTR_IDENTIFIER = 20,
    FN_E_INVALID_ATTR_VALUE = 21,
    FN_E_TOO_MANY_ATTR_VALUES = 22,
    FN_E_ATTR_VALUE_REQUIRED = 23,
    FN_E_ATTR_NO_PERMISSION = 24,
    FN_E_PARTIAL_RESULT = 25,
    FN_E_INVALID_ENUM_HANDLE = 26,
    FN_E_SYNTAX_NOT_SUPPORTED = 27,
    FN_E_INVALID_SYNTAX_ATTRS = 28,
    FN_E_INCOMPATIBLE_CODE_SETS = 29,
    FN_E_CONTINUE = 30,
    FN_E_UNSPECIFIED_ERROR = 31,
    FN_E_NO_EQUIVALENT_NAME = 32,
    FN_E_ATTR_IN_USE = 33,

    /* Not of the standard: the attribute is not what fn_attribute_expect says that it is. */
    FN_E_ATTR_CHANGED = 1000
};

/* A status object begins as FN_SUCCESS. */
FN_status_t *fn_status_create(void);
FN_status_t *fn_status_copy(const FN_status_t *status);
void fn_status_destroy(FN_status_t *status);

/* The code; FN_E_UNSPECIFIED_ERROR for null. */
unsigned int fn_status_code(const FN_status_t *status);
/* 1 if the code is FN_SUCCESS, else 0. */
int fn_status_is_success(const FN_status_t *status);

/* Each returns 1, or 0 for null. The code can be any number. */
int fn_status_set_success(FN_status_t *status);
int fn_status_set_code(FN_status_t *status, unsigned int code);

/*
 * Where resolution of a name stopped: the part that was not resolved, and the part before it. Null
 * after a success, and where the failure was not about a name (or memory ran out).
 */
const FN_composite_name_t *fn_status_remaining_name(const FN_status_t *status);
const FN_composite_name_t *fn_status_resolved_name(const FN_status_t *status);

/*
 * An English sentence for the code, and with detail 1 the remaining name behind it. more_detail, which
 * may be null, becomes 1 if a higher detail says more, else 0. Null if memory runs out.
 */
FN_string_t *fn_status_description(const FN_status_t *status, unsigned int detail,
                                   unsigned int *more_detail);

/* ---- Strings ------------------------------------------------------------------------------------ */

/* An empty string; the string of a NUL-terminated text; of the first n bytes of one, or fewer. */
FN_string_t *fn_string_create(void);
FN_string_t *fn_string_from_str(const unsigned char *str);
FN_string_t *fn_string_from_str_n(const unsigned char *str, size_t n);
FN_string_t *fn_string_copy(const FN_string_t *str);
void fn_string_destroy(FN_string_t *str);

/* The NUL-terminated text. status, which may be null, becomes FN_SUCCESS. */
const unsigned char *fn_string_str(const FN_string_t *str, unsigned int *status);
/* Its length in bytes, without the terminating zero. */
size_t fn_string_bytecount(const FN_string_t *str);
int fn_string_is_empty(const FN_string_t *str);

/*
 * Less than, equal to or greater than zero, in the order of the bytes. With string_case
 * FN_STRING_CASE_INSENSITIVE, ASCII letters count as if they were small. status, which may be null,
 * becomes FN_SUCCESS.
 */
enum { FN_STRING_CASE_SENSITIVE = 0, FN_STRING_CASE_INSENSITIVE = 1 };
int fn_string_compare(const FN_string_t *first, const FN_string_t *second, unsigned int string_case,
                      unsigned int *status);

/* ---- Composite names ---------------------------------------------------------------------------- */

/*
 * The text of a composite name: components with '/' between them.
 *  - A component that begins with " or ' goes to the next quote of the same kind, which must be its
 *    end; elsewhere a quote stands for itself.
 *  - A backslash before '/', '\', '"' or "'" (inside a quotation: before its quote or '\') makes that
 *    character ordinary; before another character it stands for itself; at the very end it is wrong.
 *  - The empty text has no component; a text of n slashes only has n empty components; "a/" has two,
 *    the second of them empty.
 */

/* A name without components. */
FN_composite_name_t *fn_composite_name_create(void);
/* Null if the text is malformed (an open quotation, something behind one, a backslash at the end) or
 * memory runs out. */
FN_composite_name_t *fn_composite_name_from_str(const unsigned char *str);
FN_composite_name_t *fn_composite_name_from_string(const FN_string_t *str);
FN_composite_name_t *fn_composite_name_copy(const FN_composite_name_t *name);
void fn_composite_name_destroy(FN_composite_name_t *name);

/* The text of the name, from which the same components are read again. Equal names have equal texts.
 * status, which may be null, becomes FN_SUCCESS or FN_E_INSUFFICIENT_RESOURCES. */
FN_string_t *fn_string_from_composite_name(const FN_composite_name_t *name, unsigned int *status);

/* Whether it has no component; the number of components. */
int fn_composite_name_is_empty(const FN_composite_name_t *name);
unsigned int fn_composite_name_count(const FN_composite_name_t *name);

/*
 * The components in order and backwards; null after the last. *iter_pos is the place, set by first and
 * last; it holds nothing to be freed.
 */
const FN_string_t *fn_composite_name_first(const FN_composite_name_t *name, void **iter_pos);
const FN_string_t *fn_composite_name_next(const FN_composite_name_t *name, void **iter_pos);
const FN_string_t *fn_composite_name_last(const FN_composite_name_t *name, void **iter_pos);
const FN_string_t *fn_composite_name_prev(const FN_composite_name_t *name, void **iter_pos);

/* The components before the one at iter_pos; it and those behind it. */
FN_composite_name_t *fn_composite_name_prefix(const FN_composite_name_t *name,
                                              const void *iter_pos);
FN_composite_name_t *fn_composite_name_suffix(const FN_composite_name_t *name,
                                              const void *iter_pos);

/* 1 if the components are the same bytes, else 0. status, which may be null, becomes FN_SUCCESS. */
int fn_composite_name_is_equal(const FN_composite_name_t *first, const FN_composite_name_t *second,
                               unsigned int *status);

int fn_composite_name_prepend_comp(FN_composite_name_t *name, const FN_string_t *component);
int fn_composite_name_append_comp(FN_composite_name_t *name, const FN_string_t *component);

/* ---- Identifiers, references, addresses --------------------------------------------------------- */

/* An identifier is its format and its bytes (not terminated). */
typedef struct FN_identifier {
    unsigned int format; /* FN_ID_... */
    size_t length;
    void *contents;
} FN_identifier_t;

enum { FN_ID_STRING = 0, FN_ID_DCE_UUID = 1, FN_ID_ISO_OID_STRING = 2, FN_ID_ISO_OID_BER = 3 };

/* A reference: a type, and addresses at which the named thing is found. */
FN_ref_t *fn_ref_create(const FN_identifier_t *ref_type);
FN_ref_t *fn_ref_copy(const FN_ref_t *ref);
void fn_ref_destroy(FN_ref_t *ref);
const FN_identifier_t *fn_ref_type(const FN_ref_t *ref);
unsigned int fn_ref_addrcount(const FN_ref_t *ref);
const FN_ref_addr_t *fn_ref_first(const FN_ref_t *ref, void **iter_pos);
const FN_ref_addr_t *fn_ref_next(const FN_ref_t *ref, void **iter_pos);
int fn_ref_append_addr(FN_ref_t *ref, const FN_ref_addr_t *addr);

FN_ref_addr_t *fn_ref_addr_create(const FN_identifier_t *type, size_t length, const void *data);
FN_ref_addr_t *fn_ref_addr_copy(const FN_ref_addr_t *addr);
void fn_ref_addr_destroy(FN_ref_addr_t *addr);
const FN_identifier_t *fn_ref_addr_type(const FN_ref_addr_t *addr);
size_t fn_ref_addr_length(const FN_ref_addr_t *addr);
const void *fn_ref_addr_data(const FN_ref_addr_t *addr);

/* ---- Attributes --------------------------------------------------------------------------------- */

/* A value: bytes, which may be zero. contents may be null where length is 0. */
typedef struct FN_attrvalue {
    size_t length;
    void *contents;
} FN_attrvalue_t;

/* An attribute without values. */
FN_attribute_t *fn_attribute_create(const FN_identifier_t *attribute_id,
                                    const FN_identifier_t *attribute_syntax);
FN_attribute_t *fn_attribute_copy(const FN_attribute_t *attr);
void fn_attribute_destroy(FN_attribute_t *attr);
const FN_identifier_t *fn_attribute_identifier(const FN_attribute_t *attr);
const FN_identifier_t *fn_attribute_syntax(const FN_attribute_t *attr);
unsigned int fn_attribute_valuecount(const FN_attribute_t *attr);

/* The values in the order in which they were added; null after the last. *iter_pos holds nothing to be
 * freed. */
const FN_attrvalue_t *fn_attribute_first(const FN_attribute_t *attr, void **iter_pos);
const FN_attrvalue_t *fn_attribute_next(const FN_attribute_t *attr, void **iter_pos);

/*
 * Adds a value behind the others. A value that is there already stays where it is: that is a success,
 * or with exclusive not 0 a failure. Returns 0 also when memory runs out; the attribute is unchanged
 * then.
 */
int fn_attribute_add(FN_attribute_t *attr, const FN_attrvalue_t *value, unsigned int exclusive);
/* Removes the value of the same bytes. 1 also if there was none. */
int fn_attribute_remove(FN_attribute_t *attr, const FN_attrvalue_t *value);

/*
 * Not of the standard. Guards a change against changes by others since the attribute was read: a later
 * fn_attr_modify with attr takes effect only if the stored attribute is still exactly the one that
 * found was read as, by fn_attr_get or fn_attr_multi_get; changes of found in memory do not matter.
 * Otherwise it changes nothing and gives FN_E_ATTR_CHANGED: read again, apply again, try again.
 *   found  null, or an attribute that was made and not read: there was no such attribute, and there
 *          must be none. May be attr itself. It is not needed after the call.
 * A copy of an attribute was read as what the original was, and expects what the original expects.
 * The stored attribute changes with every fn_attr_modify that has effect, even one that writes the
 * same values, and never becomes again what it was.
 */
void fn_attribute_expect(FN_attribute_t *attr, const FN_attribute_t *found);

/* A set of attributes, at most one of each identifier. */
FN_attrset_t *fn_attrset_create(void);
FN_attrset_t *fn_attrset_copy(const FN_attrset_t *attrs);
void fn_attrset_destroy(FN_attrset_t *attrs);
unsigned int fn_attrset_count(const FN_attrset_t *attrs);
/* The attribute of this identifier; null if there is none. */
const FN_attribute_t *fn_attrset_get(const FN_attrset_t *attrs,
                                     const FN_identifier_t *attribute_id);
const FN_attribute_t *fn_attrset_first(const FN_attrset_t *attrs, void **iter_pos);
const FN_attribute_t *fn_attrset_next(const FN_attrset_t *attrs, void **iter_pos);
/* Adds a copy of the attribute, in place of one with the same identifier; with exclusive not 0 that is
 * a failure. */
int fn_attrset_add(FN_attrset_t *attrs, const FN_attribute_t *attr, unsigned int exclusive);
/* Removes the attribute of this identifier. 1 also if there was none. */
int fn_attrset_remove(FN_attrset_t *attrs, const FN_identifier_t *attribute_id);

/* ---- Contexts ----------------------------------------------------------------------------------- */

/* Back ends. */
enum { FN_NS_NISPLUS = 1, FN_NS_NIS = 2, FN_NS_FILES = 3 };

/*
 * A handle of the initial context of a back end (FN_NS_...). authoritative is accepted and changes
 * nothing, since every store is its own authority. The two forms are the same function.
 * FN_E_CTX_UNAVAILABLE: no such back end, or none on this host.
 */
FN_ctx_t *fn_ctx_handle_from_initial_with_ns(unsigned int back_end, unsigned int authoritative,
                                             FN_status_t *status);
FN_ctx_t *_fn_ctx_handle_from_initial_with_ns(unsigned int back_end, unsigned int authoritative,
                                              FN_status_t *status);
/* The same for the files back end, or the one that "default" in /etc/fn.conf names. */
FN_ctx_t *fn_ctx_handle_from_initial(unsigned int authoritative, FN_status_t *status);

/*
 * A handle of the context that a reference leads to. FN_E_MALFORMED_REFERENCE: not a reference to a
 * context; FN_E_NO_SUPPORTED_ADDRESS: without an address of this library. Whether the context still
 * exists shows at the first use.
 */
FN_ctx_t *fn_ctx_handle_from_ref(const FN_ref_t *ref, unsigned int authoritative,
                                 FN_status_t *status);
FN_ref_t *fn_ctx_get_ref(const FN_ctx_t *ctx, FN_status_t *status);
void fn_ctx_handle_destroy(FN_ctx_t *ctx);

/*
 * In all that follows the name is relative to the context, and a name without components is the
 * context itself. What resolving a name can give: FN_E_NAME_NOT_FOUND; FN_E_NOT_A_CONTEXT: below an
 * entry there are no names; FN_E_ILLEGAL_NAME: an empty component, except in a global name, or more
 * than 32768 bytes. A list that is null has no next: FN_E_INVALID_ENUM_HANDLE.
 */

/* A reference to what the name is bound to. */
FN_ref_t *fn_ctx_lookup(FN_ctx_t *ctx, const FN_composite_name_t *name, FN_status_t *status);

/*
 * Makes an entry and gives the reference to it. FN_E_NAME_IN_USE: it is there; FN_E_NAME_NOT_FOUND: a
 * name in the initial context that is not global; FN_E_CTX_NO_PERMISSION.
 */
FN_ref_t *fn_ctx_create_subcontext(FN_ctx_t *ctx, const FN_composite_name_t *name,
                                   FN_status_t *status);
/*
 * Removes an entry with its attributes. Success also if there is none.
 * FN_E_OPERATION_NOT_SUPPORTED: the contexts "user" and "host", and the initial one.
 */
int fn_ctx_destroy_subcontext(FN_ctx_t *ctx, const FN_composite_name_t *name, FN_status_t *status);

/*
 * Lists the names in a context. next gives one name after the other, and null with FN_SUCCESS after
 * the last. A name is given as it is, not quoted; a global name as the text of a composite name.
 * Names that are made or removed meanwhile may or may not be seen; no name is seen twice.
 * FN_E_NOT_A_CONTEXT: an entry.
 */
FN_namelist_t *fn_ctx_list_names(FN_ctx_t *ctx, const FN_composite_name_t *name,
                                 FN_status_t *status);
FN_string_t *fn_namelist_next(FN_namelist_t *list, FN_status_t *status);
void fn_namelist_destroy(FN_namelist_t *list);

/* ---- Attributes of names ------------------------------------------------------------------------ */

/*
 * The attribute of a name, with all its values in the order in which they were stored.
 * FN_E_NO_SUCH_ATTRIBUTE: the name has none of this identifier.
 */
FN_attribute_t *fn_attr_get(FN_ctx_t *ctx, const FN_composite_name_t *name,
                            const FN_identifier_t *attribute_id, unsigned int follow_link,
                            FN_status_t *status);

/* Operations of fn_attr_modify. */
enum {
    FN_ATTR_OP_ADD = 1,           /* the attribute becomes this one, with exactly its values */
    FN_ATTR_OP_ADD_EXCLUSIVE = 2, /* the same, but FN_E_ATTR_IN_USE if it is there */
    FN_ATTR_OP_REMOVE = 3,        /* the attribute goes, whatever its values; success without it */
    FN_ATTR_OP_ADD_VALUES = 4,    /* the values are added; the attribute is made if need be */
    FN_ATTR_OP_REMOVE_VALUES = 5  /* the values go, and with the last of them the attribute */
};

/*
 * Changes an attribute of a name, in one step that is on the disk when the function returns and that
 * no other process sees half made. A global name that does not exist is made by an addition.
 *   attr  its identifier says which attribute, its values what the operation needs; see also
 *         fn_attribute_expect. The syntax of an attribute that is there is kept by ADD_VALUES.
 * FN_E_ATTR_CHANGED: not what fn_attribute_expect says; FN_E_ATTR_IN_USE;
 * FN_E_OPERATION_NOT_SUPPORTED: another operation, or a name that is no entry;
 * FN_E_INVALID_ATTR_IDENTIFIER: an empty identifier or one longer than 1024 bytes;
 * FN_E_TOO_MANY_ATTR_VALUES: more than 1024; FN_E_INVALID_ATTR_VALUE: one longer than 1 MiB;
 * FN_E_CTX_NO_PERMISSION.
 */
int fn_attr_modify(FN_ctx_t *ctx, const FN_composite_name_t *name, unsigned int mod_op,
                   const FN_attribute_t *attr, unsigned int follow_link, FN_status_t *status);

/* The identifiers and syntaxes of all attributes of a name, without values. */
FN_attrset_t *fn_attr_get_ids(FN_ctx_t *ctx, const FN_composite_name_t *name,
                              unsigned int follow_link, FN_status_t *status);

/*
 * Several attributes of a name at one moment: those whose identifiers are in attr_ids, or all if it is
 * null. next gives one after the other and null with FN_SUCCESS after the last; identifiers that the
 * name has no attribute of are left out.
 */
FN_multigetlist_t *fn_attr_multi_get(FN_ctx_t *ctx, const FN_composite_name_t *name,
                                     const FN_attrset_t *attr_ids, unsigned int follow_link,
                                     FN_status_t *status);
FN_attribute_t *fn_multigetlist_next(FN_multigetlist_t *list, FN_status_t *status);
void fn_multigetlist_destroy(FN_multigetlist_t *list);

/*
 * Finds the names in a context whose attributes have all the values that those in match_attrs have; an
 * attribute without values there must only be present. Values are compared byte by byte.
 *   match_attrs      null or empty finds every name.
 *   return_ref       not 0: references are wanted too.
 *   return_attr_ids  identifiers of the attributes that are wanted too; null: all; an empty set: none.
 * next gives one name after the other, in no particular order, and null with FN_SUCCESS after the last.
 * Its returned_ref and returned_attrs may be null; otherwise they become null or new objects, which
 * the caller destroys. Names and FN_E_NOT_A_CONTEXT as in fn_ctx_list_names; the initial context is
 * searched for global names. A search without a hit is FN_SUCCESS.
 */
FN_searchlist_t *prelim_fn_attr_search(FN_ctx_t *ctx, const FN_composite_name_t *name,
                                       const FN_attrset_t *match_attrs, unsigned int return_ref,
                                       const FN_attrset_t *return_attr_ids, FN_status_t *status);
FN_string_t *prelim_fn_searchlist_next(FN_searchlist_t *list, FN_ref_t **returned_ref,
                                       FN_attrset_t **returned_attrs, FN_status_t *status);
void prelim_fn_searchlist_destroy(FN_searchlist_t *list);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
