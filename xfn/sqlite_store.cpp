// sqlite_store.cpp: the store in an SQLite file.

#include "siphash.h"
#include "sqlite_connection.h"
#include "store.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

namespace xfn {

namespace {

struct SqliteStore {
    Store store; // first
    char *path;
    // Reading and writing have connections of their own, so that a change which waits for others does
    // not keep the readers of this process waiting.
    pthread_mutex_t reading, writing;
    Connection reader, writer;
};

SqliteStore *inside(Store *store) {
    return reinterpret_cast<SqliteStore *>(store);
}

struct Locked {
    pthread_mutex_t *mutex;
    explicit Locked(pthread_mutex_t *held) : mutex(held) { pthread_mutex_lock(mutex); }
    ~Locked() { pthread_mutex_unlock(mutex); }
    Locked(const Locked &) = delete;
    Locked &operator=(const Locked &) = delete;
};

unsigned run(Connection *connection, Sql sql) {
    return Query(connection, sql).run();
}

// ---- Transactions ---------------------------------------------------------------------------------

template <class Work> unsigned transact(Connection *connection, Sql begin, const Work &work) {
    unsigned code = run(connection, begin);
    if (code != FN_SUCCESS)
        return code;
    code = work(connection);
    if (code == FN_SUCCESS)
        code = run(connection, Sql::commit);
    // Some failures have rolled back already.
    if (code != FN_SUCCESS && sqlite3_get_autocommit(connection->db) == 0)
        run(connection, Sql::roll_back);
    return code;
}

// What a failure of the file leaves in a connection is not relied upon.
void drop_after_failure(Connection *connection, unsigned code) {
    const bool is_same_process = connection->process == getpid();
    if (is_same_process && (code == FN_E_CTX_UNAVAILABLE || code == FN_E_CTX_NO_PERMISSION ||
                            sqlite3_get_autocommit(connection->db) == 0))
        disconnect(connection);
}

// Whether this process may write here at all, by errno.
bool may_write(const char *path) {
    if (faccessat(AT_FDCWD, path, W_OK, AT_EACCESS) == 0)
        return true;
    if (errno != ENOENT)
        return false;
    const char *slash = std::strrchr(path, '/');
    const String directory(make_string({path, static_cast<std::size_t>(slash - path)}));
    if (directory == nullptr) {
        errno = ENOMEM;
        return false;
    }
    const char *name = directory->size != 0 ? directory->bytes : "/";
    return faccessat(AT_FDCWD, name, W_OK | X_OK, AT_EACCESS) == 0;
}

// ---- Reading --------------------------------------------------------------------------------------

template <class Work> unsigned read_once(SqliteStore *store, const Work &work, bool *absent) {
    unsigned code = connect(&store->reader, store->path, Access::reading, absent);
    if (code == FN_SUCCESS)
        code = transact(&store->reader, Sql::begin_reading, work);
    if (store->reader.db != nullptr)
        drop_after_failure(&store->reader, code);
    return code;
}

// Without locks and without the index of the log, which only a writer can make good.
template <class Work> unsigned read_privately(SqliteStore *store, const Work &work) {
    unsigned code = open_private(&store->reader, store->path);
    if (code == FN_SUCCESS)
        code = transact(&store->reader, Sql::begin_reading, work);
    disconnect(&store->reader);
    return code;
}

// Whoever may write makes the log and its index good by opening them.
void repair(SqliteStore *store) {
    const Locked locked(&store->writing);
    bool absent = false;
    if (connect(&store->writer, store->path, Access::writing, &absent) == FN_SUCCESS)
        transact(&store->writer, Sql::begin_writing, [](Connection *) { return FN_SUCCESS; });
}

template <class Work>
unsigned read_after_failure(SqliteStore *store, const Work &work, bool *absent) {
    if (may_write(store->path)) {
        repair(store);
        return read_once(store, work, absent);
    }
    unsigned code = FN_E_CTX_UNAVAILABLE;
    constexpr timespec pause = {0, 60'000'000};
    constexpr int most = 20;
    for (int round = 0; round < most; ++round) {
        FileState before;
        if (!file_state(store->path, &before))
            return FN_E_CTX_UNAVAILABLE;
        code = read_privately(store, work);
        if (unchanged_since(store->path, before))
            return code;
        nanosleep(&pause, nullptr);
        code = read_once(store, work, absent);
        if (*absent || (code != FN_E_CTX_UNAVAILABLE && code != FN_E_CTX_NO_PERMISSION))
            return code;
    }
    return code;
}

// A store that nobody has written to yet has no file, and no entries: if_absent is the answer then.
// The work may be done more than once.
template <class Work> unsigned read(SqliteStore *store, unsigned if_absent, const Work &work) {
    const Locked locked(&store->reading);
    if (store->reader.db != nullptr && store->reader.process != getpid())
        return FN_E_CTX_UNAVAILABLE;
    bool absent = false;
    unsigned code = read_once(store, work, &absent);
    if (!absent && (code == FN_E_CTX_UNAVAILABLE || code == FN_E_CTX_NO_PERMISSION))
        code = read_after_failure(store, work, &absent);
    return absent ? if_absent : code;
}

// ---- Writing --------------------------------------------------------------------------------------

template <class Work> unsigned write(SqliteStore *store, const Work &work) {
    if (!may_write(store->path))
        return status_of_errno(errno);
    const Locked locked(&store->writing);
    bool absent = false;
    unsigned code = connect(&store->writer, store->path, Access::writing, &absent);
    if (absent) {
        code = create_file(store->path);
        if (code == FN_SUCCESS)
            code = connect(&store->writer, store->path, Access::writing, &absent);
    }
    if (code == FN_SUCCESS)
        code = transact(&store->writer, Sql::begin_writing, work);
    if (store->writer.db != nullptr)
        drop_after_failure(&store->writer, code);
    return code;
}

// ---- Entries --------------------------------------------------------------------------------------

int64_t number_of(Area area) {
    return static_cast<int64_t>(area);
}

// FN_E_NAME_NOT_FOUND if there is none.
unsigned find_entry(Connection *connection, EntryName name, int64_t *entry) {
    Query query(connection, Sql::find_entry);
    query.bind(number_of(name.area)).bind(name.text);
    if (query.row()) {
        *entry = query.number(0);
        return FN_SUCCESS;
    }
    return query.status() != FN_SUCCESS ? query.status()
                                        : static_cast<unsigned>(FN_E_NAME_NOT_FOUND);
}

unsigned add_entry(Connection *connection, EntryName name, int64_t *entry) {
    const unsigned code =
        Query(connection, Sql::add_entry).bind(number_of(name.area)).bind(name.text).run();
    *entry = sqlite3_last_insert_rowid(connection->db);
    return code;
}

unsigned lookup(Store *store, EntryName name) {
    return read(inside(store), FN_E_NAME_NOT_FOUND, [&](Connection *connection) {
        int64_t entry = 0;
        return find_entry(connection, name, &entry);
    });
}

unsigned check_change(EntryName name, uid_t actor) {
    const unsigned code = check_name(name);
    return code == FN_SUCCESS ? may_change(name, actor) : code;
}

unsigned create(Store *store, EntryName name, uid_t actor) {
    if (const unsigned code = check_change(name, actor); code != FN_SUCCESS)
        return code;
    return write(inside(store), [&](Connection *connection) -> unsigned {
        int64_t entry = 0;
        const unsigned code = find_entry(connection, name, &entry);
        if (code == FN_SUCCESS)
            return FN_E_NAME_IN_USE;
        return code == FN_E_NAME_NOT_FOUND ? add_entry(connection, name, &entry) : code;
    });
}

unsigned destroy(Store *store, EntryName name, uid_t actor) {
    if (const unsigned code = check_change(name, actor); code != FN_SUCCESS)
        return code;
    return write(inside(store), [&](Connection *connection) -> unsigned {
        int64_t entry = 0;
        unsigned code = find_entry(connection, name, &entry);
        if (code == FN_E_NAME_NOT_FOUND)
            return FN_SUCCESS;
        for (const Sql sql :
             {Sql::drop_values_of_entry, Sql::drop_attributes_of_entry, Sql::drop_entry})
            if (code == FN_SUCCESS)
                code = Query(connection, sql).bind(entry).run();
        return code;
    });
}

// ---- Attributes -----------------------------------------------------------------------------------

FN_identifier_t identifier(int64_t format, std::string_view bytes) {
    return {static_cast<unsigned>(format), bytes.size(), const_cast<char *>(bytes.data())};
}

// The attribute in the current row, with its values.
unsigned read_attribute(Connection *connection, const Query &row, Attribute *attribute) {
    const FN_identifier_t id = identifier(row.number(1), row.bytes(2));
    const FN_identifier_t syntax = identifier(row.number(3), row.bytes(4));
    attribute->reset(fn_attribute_create(&id, &syntax));
    if (*attribute == nullptr)
        return FN_E_INSUFFICIENT_RESOURCES;
    (*attribute)->version = row.number(0);
    Query values(connection, Sql::list_values);
    values.bind((*attribute)->version);
    while (values.row())
        if (!append_value(attribute->get(), values.bytes(0)))
            return FN_E_INSUFFICIENT_RESOURCES;
    return values.status();
}

// Null if the entry has none of this identifier.
unsigned find_attribute(Connection *connection, int64_t entry, const FN_identifier_t &id,
                        Attribute *attribute) {
    Query query(connection, Sql::find_attribute);
    query.bind(entry).bind(id.format).bind(view(id));
    return query.row() ? read_attribute(connection, query, attribute) : query.status();
}

unsigned read_wanted(Connection *connection, int64_t entry, const FN_attrset_t *wanted,
                     FN_attrset_t *found) {
    for (const FN_attribute_t *one : wanted->attributes) {
        Attribute attribute;
        const unsigned code = find_attribute(connection, entry, one->identifier, &attribute);
        if (code != FN_SUCCESS)
            return code;
        if (attribute != nullptr && !move_into(found, &attribute))
            return FN_E_INSUFFICIENT_RESOURCES;
    }
    return FN_SUCCESS;
}

unsigned read_all(Connection *connection, int64_t entry, FN_attrset_t *found) {
    Query query(connection, Sql::list_attributes);
    query.bind(entry);
    while (query.row()) {
        Attribute attribute;
        const unsigned code = read_attribute(connection, query, &attribute);
        if (code != FN_SUCCESS)
            return code;
        if (!move_into(found, &attribute))
            return FN_E_INSUFFICIENT_RESOURCES;
    }
    return query.status();
}

unsigned get(Store *store, EntryName name, const FN_attrset_t *wanted, AttributeSet *found) {
    found->reset();
    AttributeSet set;
    const unsigned code =
        read(inside(store), FN_E_NAME_NOT_FOUND, [&](Connection *connection) -> unsigned {
            set.reset(fn_attrset_create());
            if (set == nullptr)
                return FN_E_INSUFFICIENT_RESOURCES;
            int64_t entry = 0;
            if (const unsigned missing = find_entry(connection, name, &entry);
                missing != FN_SUCCESS)
                return missing;
            return wanted != nullptr ? read_wanted(connection, entry, wanted, set.get())
                                     : read_all(connection, entry, set.get());
        });
    if (code == FN_SUCCESS)
        *found = std::move(set);
    return code;
}

// A key of the file's would have to stand in it for all to read, and so may as well be fixed. What
// counts is that values with the same hash are hard to find.
int64_t value_hash(Area area, const FN_identifier_t &id, std::string_view value) {
    return static_cast<int64_t>(SipHash(0x6e616d696e672073, 0x746f726520766131)
                                    .add(static_cast<uint64_t>(area))
                                    .add(id.format)
                                    .add(id.length)
                                    .add(view(id))
                                    .add(value)
                                    .finish());
}

unsigned write_attribute(Connection *connection, Area area, int64_t entry,
                         const FN_attribute_t *attribute) {
    unsigned code = Query(connection, Sql::add_attribute)
                        .bind(entry)
                        .bind(attribute->identifier.format)
                        .bind(view(attribute->identifier))
                        .bind(attribute->syntax.format)
                        .bind(view(attribute->syntax))
                        .run();
    const int64_t version = sqlite3_last_insert_rowid(connection->db);
    int64_t position = 0;
    for (const FN_attrvalue_t &value : attribute->values)
        if (code == FN_SUCCESS)
            code = Query(connection, Sql::add_value)
                       .bind(version)
                       .bind(position++)
                       .bind(entry)
                       .bind(value_hash(area, attribute->identifier, view(value)))
                       .bind(view(value))
                       .run();
    return code;
}

unsigned drop_attribute(Connection *connection, int64_t version) {
    const unsigned code = Query(connection, Sql::drop_values).bind(version).run();
    return code == FN_SUCCESS ? Query(connection, Sql::drop_attribute).bind(version).run() : code;
}

unsigned check_room(Connection *connection, int64_t entry) {
    Query query(connection, Sql::count_attributes);
    query.bind(entry);
    if (query.row() && query.number(0) >= static_cast<int64_t>(max_attributes))
        return FN_E_INSUFFICIENT_RESOURCES;
    return query.status();
}

unsigned change_attribute(Connection *connection, EntryName name, unsigned operation,
                          const FN_attribute_t *attribute) {
    int64_t entry = 0;
    unsigned code = find_entry(connection, name, &entry);
    const bool is_new = code == FN_E_NAME_NOT_FOUND && name.area == Area::global;
    Attribute stored, result;
    if (!is_new && code == FN_SUCCESS)
        code = find_attribute(connection, entry, attribute->identifier, &stored);
    if (!is_new && code != FN_SUCCESS)
        return code;

    code = apply(operation, attribute, stored.get(), &result);
    if (code == FN_SUCCESS && is_new) {
        if (result == nullptr)
            return FN_E_NAME_NOT_FOUND;
        code = add_entry(connection, name, &entry);
    }
    if (code == FN_SUCCESS && stored != nullptr)
        code = drop_attribute(connection, stored->version);
    if (code == FN_SUCCESS && stored == nullptr && result != nullptr)
        code = check_room(connection, entry);
    if (code == FN_SUCCESS && result != nullptr)
        code = write_attribute(connection, name.area, entry, result.get());
    return code;
}

unsigned modify(Store *store, EntryName name, unsigned operation, const FN_attribute_t *attribute,
                uid_t actor) {
    if (const unsigned code = check_change(name, actor); code != FN_SUCCESS)
        return code;
    return write(inside(store), [&](Connection *connection) {
        return change_attribute(connection, name, operation, attribute);
    });
}

// ---- Lists ----------------------------------------------------------------------------------------

constexpr int64_t page_size = 256;

bool add_name(NamePage *page, std::string_view bytes) {
    String name(make_string(bytes));
    if (name == nullptr || !page->names.append(name.get()))
        return false;
    name.release();
    return true;
}

unsigned list_page(Connection *connection, Area area, std::string_view after, NamePage *page) {
    Query query(connection, Sql::list_names);
    query.bind(number_of(area)).bind(after).bind(page_size);
    while (query.row())
        if (!add_name(page, query.bytes(0)))
            return FN_E_INSUFFICIENT_RESOURCES;
    if (query.status() != FN_SUCCESS || page->names.count < static_cast<std::size_t>(page_size))
        return query.status();
    page->cursor.reset(fn_string_copy(page->names.items[page->names.count - 1]));
    return page->cursor != nullptr ? FN_SUCCESS : FN_E_INSUFFICIENT_RESOURCES;
}

unsigned list(Store *store, Area area, const FN_string_t *cursor, NamePage *page) {
    const std::string_view after = cursor != nullptr ? view(cursor) : std::string_view();
    page->clear();
    const unsigned code = read(inside(store), FN_SUCCESS, [&](Connection *connection) {
        page->clear();
        return list_page(connection, area, after, page);
    });
    if (code != FN_SUCCESS)
        page->clear();
    return code;
}

// FN_SUCCESS if the entry has every value, FN_E_NO_SUCH_ATTRIBUTE if it has not.
unsigned matches(Connection *connection, Area area, int64_t entry, const FN_attrset_t *match) {
    for (const FN_attribute_t *attribute : match->attributes) {
        const FN_identifier_t &id = attribute->identifier;
        if (attribute->values.count == 0) {
            Query query(connection, Sql::find_attribute);
            query.bind(entry).bind(id.format).bind(view(id));
            if (!query.row())
                return query.status() != FN_SUCCESS ? query.status()
                                                    : unsigned{FN_E_NO_SUCH_ATTRIBUTE};
        }
        for (const FN_attrvalue_t &value : attribute->values) {
            Query query(connection, Sql::has_value);
            query.bind(entry).bind(id.format).bind(view(id));
            query.bind(value_hash(area, id, view(value))).bind(view(value));
            if (!query.row())
                return query.status() != FN_SUCCESS ? query.status()
                                                    : unsigned{FN_E_NO_SUCH_ATTRIBUTE};
        }
    }
    return FN_SUCCESS;
}

unsigned add_hit(Connection *connection, Area area, int64_t entry, NamePage *page) {
    Query query(connection, Sql::name_of_entry);
    query.bind(entry).bind(number_of(area));
    if (query.row() && !add_name(page, query.bytes(0)))
        return FN_E_INSUFFICIENT_RESOURCES;
    return query.status();
}

// Entries that may match, in the order of their numbers: those with the first value that is asked for,
// or all of the area.
void bind_candidates(Query *query, Area area, const FN_attribute_t *indexed, int64_t after) {
    query->bind(after);
    if (indexed != nullptr)
        query->bind(value_hash(area, indexed->identifier, view(indexed->values.items[0])));
    else
        query->bind(number_of(area));
    query->bind(page_size);
}

unsigned search_page(Connection *connection, Area area, const FN_attrset_t *match, int64_t after,
                     NamePage *page) {
    const auto with_value =
        std::find_if(match->attributes.begin(), match->attributes.end(),
                     [](const FN_attribute_t *one) { return one->values.count != 0; });
    const FN_attribute_t *indexed = with_value != match->attributes.end() ? *with_value : nullptr;
    Query query(connection, indexed != nullptr ? Sql::entries_with_hash : Sql::list_entries);
    bind_candidates(&query, area, indexed, after);
    int64_t count = 0, entry = 0;
    for (; query.row(); ++count) {
        entry = query.number(0);
        unsigned code = matches(connection, area, entry, match);
        if (code == FN_SUCCESS)
            code = add_hit(connection, area, entry, page);
        if (code != FN_SUCCESS && code != FN_E_NO_SUCH_ATTRIBUTE)
            return code;
    }
    if (query.status() != FN_SUCCESS || count < page_size)
        return query.status();
    page->cursor.reset(make_string({reinterpret_cast<const char *>(&entry), sizeof entry}));
    return page->cursor != nullptr ? FN_SUCCESS : FN_E_INSUFFICIENT_RESOURCES;
}

unsigned search(Store *store, Area area, const FN_attrset_t *match, const FN_string_t *cursor,
                NamePage *page) {
    page->clear();
    int64_t after = 0;
    if (cursor != nullptr && cursor->size != sizeof after)
        return FN_E_INVALID_ENUM_HANDLE;
    if (cursor != nullptr)
        std::memcpy(&after, cursor->bytes, sizeof after);
    const unsigned code = read(inside(store), FN_SUCCESS, [&](Connection *connection) {
        page->clear();
        return search_page(connection, area, match, after, page);
    });
    if (code != FN_SUCCESS)
        page->clear();
    return code;
}

// ---- The store itself -----------------------------------------------------------------------------

bool writable(Store *store) {
    return may_write(inside(store)->path);
}

// SQLite shares locks and the map of the index among the connections of a process, behind the back of
// fork(): a connection that is open in the parent spoils every later one in the child. So none is open
// while a process forks.
void before_fork(Store *store) {
    SqliteStore *self = inside(store);
    pthread_mutex_lock(&self->reading); // first, as in repair
    pthread_mutex_lock(&self->writing);
    for (Connection *connection : {&self->writer, &self->reader})
        if (connection->db != nullptr && connection->process == getpid())
            disconnect(connection);
}

void after_fork(Store *store) {
    SqliteStore *self = inside(store);
    pthread_mutex_unlock(&self->writing);
    pthread_mutex_unlock(&self->reading);
}

void close_store(Store *store) {
    SqliteStore *self = inside(store);
    for (Connection *connection : {&self->writer, &self->reader})
        if (connection->db != nullptr && connection->process == getpid())
            disconnect(connection);
    pthread_mutex_destroy(&self->reading);
    pthread_mutex_destroy(&self->writing);
    std::free(self->path);
    std::free(self);
}

constexpr StoreOperations operations = {lookup, create,   destroy,     get,        modify,     list,
                                        search, writable, before_fork, after_fork, close_store};

} // namespace

unsigned open_sqlite_store(const char *path, Store **store_out) {
    *store_out = nullptr;
    qel::Owned<SqliteStore> store(qel::allocate<SqliteStore>());
    qel::Owned<char> copy(strdup(path));
    if (store == nullptr || copy == nullptr)
        return FN_E_INSUFFICIENT_RESOURCES;
    pthread_mutex_init(&store->reading, nullptr);
    pthread_mutex_init(&store->writing, nullptr);
    store->store.operations = &operations;
    store->path = copy.release();
    *store_out = &store.release()->store;
    return FN_SUCCESS;
}

} // namespace xfn
