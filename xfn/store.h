// store.h: what a naming store does for the contexts, whatever keeps it.
//
// A store keeps entries in three areas. Entries have attributes; every stored attribute has a version,
// a positive number that is never used twice, and gets a new one with every change.
//
// Operations return a status code of <xfn/xfn.h>. They need no lock of the caller, keep nothing of
// their arguments, and leave nothing in an output when they fail. Each is one transaction: a change is
// on the disk when it returns FN_SUCCESS, and has not happened when it returns anything else.
#ifndef XFN_STORE_H
#define XFN_STORE_H

#include "objects.h"

#include <sys/types.h>

namespace xfn {

enum class Area : uint8_t { global, users, hosts };

// A login name, a host's name, or the text of a global name; no zero byte, 1 to max_name bytes.
struct EntryName {
    Area area;
    std::string_view text;
};

// What may be stored: bounds for whoever reads requests from elsewhere, too.
constexpr std::size_t max_name = 32768;
constexpr std::size_t max_identifier = 1024; // of an attribute or a syntax
constexpr std::size_t max_value = 1 << 20;
constexpr std::size_t max_values = 1024;             // of an attribute
constexpr std::size_t max_attribute_bytes = 4 << 20; // all values of an attribute
constexpr std::size_t max_attributes = 64;           // of an entry

// Some names of an area, perhaps none, and where to go on.
struct NamePage {
    Array<FN_string_t *> names = {};
    String cursor; // null: these were the last

    NamePage() = default;
    NamePage(const NamePage &) = delete;
    NamePage &operator=(const NamePage &) = delete;
    ~NamePage() { clear(); }
    void clear();
};

struct Store;

// The caller of a change is actor, in the words of the kernel: in a process of its own its effective
// user id, in a daemon what the socket says about the peer. The store asks may_change.
struct StoreOperations {
    // Whether there is such an entry: FN_SUCCESS or FN_E_NAME_NOT_FOUND.
    unsigned (*lookup)(Store *store, EntryName name);
    // FN_E_NAME_IN_USE: it is there.
    unsigned (*create)(Store *store, EntryName name, uid_t actor);
    // The entry and its attributes. FN_SUCCESS also if there is none.
    unsigned (*destroy)(Store *store, EntryName name, uid_t actor);
    // The attributes of an entry, with values and versions: those that are in wanted (by identifier;
    // others are left out) or all for null. FN_E_NAME_NOT_FOUND.
    unsigned (*get)(Store *store, EntryName name, const FN_attrset_t *wanted, AttributeSet *found);
    // fn_attr_modify. Where the attribute is guarded, its expectation is compared in the same
    // transaction. A global entry is made by an addition.
    unsigned (*modify)(Store *store, EntryName name, unsigned operation,
                       const FN_attribute_t *attribute, uid_t actor);
    // The names of an area, page by page. cursor is null, or of the page before; page is cleared.
    unsigned (*list)(Store *store, Area area, const FN_string_t *cursor, NamePage *page);
    // The same for the names whose attributes have all values of match (an attribute without values
    // is only there), which is not empty.
    unsigned (*search)(Store *store, Area area, const FN_attrset_t *match,
                       const FN_string_t *cursor, NamePage *page);
    // Whether this process has the right to change what keeps the store. If it has not, changes are
    // another store's to make (see changing_store).
    bool (*writable)(Store *store);
    // Around a fork: nothing may be under way or stay open, and both sides go on.
    void (*before_fork)(Store *store);
    void (*after_fork)(Store *store);
    void (*close)(Store *store);
};

struct Store {
    const StoreOperations *operations;
};

// ---- Kinds of stores ------------------------------------------------------------------------------

// A location is "SCHEME:REST". A kind opens the rest; where what it names is not there yet, that shows
// when it is used.
struct StoreKind {
    const char *scheme;
    bool (*well_formed)(const char *rest);
    unsigned (*open)(const char *rest, Store **store);
};
// Null if the scheme is unknown or the rest is not what the kind takes.
const StoreKind *kind_of_location(const char *location);

// The SQLite file at an absolute path, which is made by the first change.
unsigned open_sqlite_store(const char *path, Store **store);

// The entries that the host's NIS domain publishes, to be read.
unsigned open_nis_store(const char *rest, Store **store);

// Changes of the store at a location, made by fnsd, which must be root or the owner of the database; to
// be read there is nothing. FN_E_CTX_NO_PERMISSION: no fnsd, or none for this store;
// FN_E_COMMUNICATION_FAILURE: it does not answer in time, or breaks off, or is somebody else. Only after
// this last status the change may have been made all the same.
unsigned open_remote_store(const char *location, Store **store);

// The store at a location, opened once in a process for all who use it; every use is ended by
// release_store.
struct SharedStore {
    Store *store;
    Store *remote; // makes changes by way of fnsd
    char *location;
    unsigned users;
    SharedStore *next;
};
unsigned use_store(const char *location, SharedStore **shared);
SharedStore *use_again(SharedStore *shared);
void release_store(SharedStore *shared);
using StoreUse = Object<SharedStore, release_store>;

// The store to make changes with: itself, or one that passes them on to a process that may.
Store *changing_store(const SharedStore *shared);

// ---- What all stores check ------------------------------------------------------------------------

// FN_SUCCESS, FN_E_CTX_NO_PERMISSION, or FN_E_CTX_UNAVAILABLE if the users of the host cannot be asked.
unsigned may_change(EntryName name, uid_t actor);
// The bounds above: FN_E_ILLEGAL_NAME.
unsigned check_name(EntryName name);
// FN_E_INVALID_ATTR_IDENTIFIER, FN_E_INVALID_ATTR_VALUE, FN_E_TOO_MANY_ATTR_VALUES,
// FN_E_INSUFFICIENT_RESOURCES for all values together.
unsigned check_attribute(const FN_attribute_t *attribute);

// Applies an operation of fn_attr_modify to what is stored, which may be null. *result becomes the
// attribute to be stored, null for none. FN_E_ATTR_CHANGED, FN_E_ATTR_IN_USE,
// FN_E_OPERATION_NOT_SUPPORTED, and what check_attribute says about the result.
unsigned apply(unsigned operation, const FN_attribute_t *attribute, const FN_attribute_t *stored,
               Attribute *result);

} // namespace xfn

#endif
