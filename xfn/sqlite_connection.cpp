#include "sqlite_connection.h"

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

namespace xfn {

namespace {

// The first says that the file is a store of ours, the second which schema it has.
constexpr int application_id = 2019978801; // PRAGMAs below
constexpr int schema_version = 1;

constexpr int busy_seconds = 10;

// The version of an attribute is its key, which AUTOINCREMENT never gives twice. hash is over area,
// identifier and value (see value_hash), so that a search is one look-up.
constexpr char schema[] = R"(
PRAGMA application_id = 2019978801;
PRAGMA user_version = 1;
BEGIN;
CREATE TABLE entry(
    id INTEGER PRIMARY KEY,
    area INTEGER NOT NULL,
    name BLOB NOT NULL,
    UNIQUE(area, name));
CREATE TABLE attribute(
    version INTEGER PRIMARY KEY AUTOINCREMENT,
    entry INTEGER NOT NULL,
    format INTEGER NOT NULL,
    identifier BLOB NOT NULL,
    syntax_format INTEGER NOT NULL,
    syntax BLOB NOT NULL,
    UNIQUE(entry, format, identifier));
CREATE TABLE value(
    attribute INTEGER NOT NULL,
    position INTEGER NOT NULL,
    entry INTEGER NOT NULL,
    hash INTEGER NOT NULL,
    bytes BLOB NOT NULL);
CREATE UNIQUE INDEX value_of_attribute ON value(attribute, position);
CREATE INDEX value_by_hash ON value(hash, entry);
COMMIT;
)";

// Versions begin somewhere at random: those of a file that was made anew are not those of the old.
constexpr char first_version[] = "INSERT INTO sqlite_sequence(name, seq) VALUES('attribute', ?1)";

constexpr const char *statement_texts[] = {
    "BEGIN",
    "BEGIN IMMEDIATE",
    "COMMIT",
    "ROLLBACK",
    "SELECT id FROM entry WHERE area = ?1 AND name = ?2",
    "SELECT name FROM entry WHERE id = ?1 AND area = ?2",
    "SELECT name FROM entry WHERE area = ?1 AND name > ?2 ORDER BY name LIMIT ?3",
    "SELECT id FROM entry WHERE id > ?1 AND +area = ?2 ORDER BY id LIMIT ?3",
    "INSERT INTO entry(area, name) VALUES(?1, ?2)",
    "DELETE FROM entry WHERE id = ?1",
    "DELETE FROM value WHERE attribute IN (SELECT version FROM attribute WHERE entry = ?1)",
    "DELETE FROM attribute WHERE entry = ?1",
    "SELECT count(*) FROM attribute WHERE entry = ?1",
    "SELECT version, format, identifier, syntax_format, syntax FROM attribute"
    " WHERE entry = ?1",
    "SELECT version, format, identifier, syntax_format, syntax FROM attribute"
    " WHERE entry = ?1 AND format = ?2 AND identifier = ?3",
    "INSERT INTO attribute(entry, format, identifier, syntax_format, syntax)"
    " VALUES(?1, ?2, ?3, ?4, ?5)",
    "DELETE FROM attribute WHERE version = ?1",
    "SELECT bytes FROM value WHERE attribute = ?1 ORDER BY position",
    "SELECT 1 FROM attribute JOIN value ON value.attribute = attribute.version"
    " WHERE attribute.entry = ?1 AND format = ?2 AND identifier = ?3 AND value.entry = ?1"
    " AND hash = ?4 AND bytes = ?5 LIMIT 1",
    "SELECT DISTINCT entry FROM value WHERE entry > ?1 AND hash = ?2 ORDER BY entry LIMIT ?3",
    "INSERT INTO value(attribute, position, entry, hash, bytes) VALUES(?1, ?2, ?3, ?4, ?5)",
    "DELETE FROM value WHERE attribute = ?1",
};
static_assert(sizeof statement_texts / sizeof *statement_texts ==
              static_cast<unsigned>(Sql::count));

// Right after the call; errno was 0 before. What the library keeps of it is not set by every failure.
unsigned status_of(sqlite3 *db, int result) {
    const int error = errno;
    switch (result & 0xff) {
    case SQLITE_OK:
    case SQLITE_ROW:
    case SQLITE_DONE:
        return FN_SUCCESS;
    case SQLITE_NOMEM:
    case SQLITE_FULL:
    case SQLITE_TOOBIG:
        return FN_E_INSUFFICIENT_RESOURCES;
    case SQLITE_PERM:
        return FN_E_CTX_NO_PERMISSION;
    case SQLITE_IOERR:
        if (result == SQLITE_IOERR_NOMEM)
            return FN_E_INSUFFICIENT_RESOURCES;
        [[fallthrough]];
    case SQLITE_CANTOPEN:
        return status_of_errno(error != 0 ? error : sqlite3_system_errno(db));
    default: // busy, damaged, not a database, an index that only a writer can repair
        return FN_E_CTX_UNAVAILABLE;
    }
}

struct CloseDatabase {
    void operator()(sqlite3 *db) const { sqlite3_close(db); }
};
using Database = std::unique_ptr<sqlite3, CloseDatabase>;

struct Descriptor {
    int number;
    explicit Descriptor(int opened) : number(opened) {}
    ~Descriptor() {
        if (number >= 0)
            close(number);
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
};

unsigned execute(sqlite3 *db, const char *text) {
    errno = 0;
    return status_of(db, sqlite3_exec(db, text, nullptr, nullptr, nullptr));
}

// The number that a pragma answers with.
unsigned ask(sqlite3 *db, const char *text, int64_t *answer) {
    sqlite3_stmt *statement = nullptr;
    errno = 0;
    int result = sqlite3_prepare_v2(db, text, -1, &statement, nullptr);
    if (result == SQLITE_OK && (result = sqlite3_step(statement)) == SQLITE_ROW)
        *answer = sqlite3_column_int64(statement, 0);
    const unsigned code = status_of(db, result);
    sqlite3_finalize(statement);
    return code;
}

// A path with something behind it; null if memory runs out.
qel::Owned<char> joined(const char *front, const char *path, const char *behind) {
    const std::size_t size = std::strlen(front) + std::strlen(path) + std::strlen(behind) + 1;
    qel::Owned<char> both(static_cast<char *>(std::malloc(size)));
    if (both != nullptr)
        stpcpy(stpcpy(stpcpy(both.get(), front), path), behind);
    return both;
}

// vfs is null for the usual one.
unsigned open_database(const char *name, int flags, const char *vfs, Database *database) {
    sqlite3 *db = nullptr;
    errno = 0;
    const int result = sqlite3_open_v2(name, &db, flags | SQLITE_OPEN_NOMUTEX, vfs);
    database->reset(db);
    if (db == nullptr)
        return FN_E_INSUFFICIENT_RESOURCES;
    sqlite3_extended_result_codes(db, 1);
    sqlite3_db_config(db, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(db, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    return status_of(db, result);
}

constexpr int64_t per_second = 1'000'000'000;

int64_t nanoseconds(const timespec &time) {
    return time.tv_sec * per_second + time.tv_nsec;
}

// Called while another holds the lock; 0 gives up. SQLite's own waiting sleeps longer and longer, up
// to a tenth of a second, and so meets none of the short gaps that a busy writer leaves.
int wait_for_lock(void *since, int round) {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    auto *begin = static_cast<timespec *>(since);
    if (round == 0)
        *begin = now;
    if (nanoseconds(now) - nanoseconds(*begin) >= busy_seconds * per_second)
        return 0;
    const timespec pause = {0, 200'000 + now.tv_nsec % 1'000'000}; // out of step with the others
    nanosleep(&pause, nullptr);
    return 1;
}

// How a connection to a finished file is set up.
unsigned prepare(Connection *connection, sqlite3 *db) {
    sqlite3_busy_handler(db, wait_for_lock, &connection->waiting_since);
    int keep_log = 1;
    sqlite3_file_control(db, nullptr, SQLITE_FCNTL_PERSIST_WAL, &keep_log);
    int64_t ignored = 0, application = 0, version = 0;
    unsigned code = execute(db, "PRAGMA synchronous = FULL");
    if (code == FN_SUCCESS) // the log shrinks to this when it has been used up
        code = ask(db, "PRAGMA journal_size_limit = 4194304", &ignored);
    if (code == FN_SUCCESS)
        code = ask(db, "PRAGMA application_id", &application);
    if (code == FN_SUCCESS)
        code = ask(db, "PRAGMA user_version", &version);
    if (code != FN_SUCCESS)
        return code;
    return application == application_id && version == schema_version ? FN_SUCCESS
                                                                      : FN_E_CTX_UNAVAILABLE;
}

void adopt(Connection *connection, Database *database, const struct stat &file) {
    connection->db = database->release();
    connection->process = getpid();
    connection->device = file.st_dev;
    connection->inode = file.st_ino;
}

} // namespace

unsigned status_of_errno(int error) {
    switch (error) {
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
    case ENOMEM:
    case EMFILE:
    case ENFILE:
        return FN_E_INSUFFICIENT_RESOURCES;
    case EACCES:
    case EPERM:
        return FN_E_CTX_NO_PERMISSION;
    case EROFS:
        return FN_E_OPERATION_NOT_SUPPORTED;
    default:
        return FN_E_CTX_UNAVAILABLE;
    }
}

// ---- Connections ----------------------------------------------------------------------------------

unsigned connect(Connection *connection, const char *path, Access access, bool *absent) {
    *absent = false;
    if (connection->db != nullptr && connection->process != getpid())
        return FN_E_CTX_UNAVAILABLE; // a process made without fork(): nothing may be touched
    struct stat file;
    if (stat(path, &file) != 0) {
        const int error = errno;
        disconnect(connection);
        *absent = error == ENOENT;
        return status_of_errno(error);
    }
    if (connection->db != nullptr && connection->device == file.st_dev &&
        connection->inode == file.st_ino)
        return FN_SUCCESS;
    disconnect(connection);
    Database database;
    const int flags = access == Access::writing ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY;
    unsigned code = open_database(path, flags, nullptr, &database);
    if (code == FN_SUCCESS)
        code = prepare(connection, database.get());
    if (code == FN_SUCCESS)
        adopt(connection, &database, file);
    return code;
}

void disconnect(Connection *connection) {
    for (sqlite3_stmt *statement : connection->statements)
        sqlite3_finalize(statement);
    sqlite3_close(connection->db);
    *connection = {};
}

// ---- Statements -----------------------------------------------------------------------------------

Query::Query(Connection *used, Sql sql) : connection(used), code(FN_SUCCESS) {
    const auto index = static_cast<unsigned>(sql);
    sqlite3_stmt *&kept = connection->statements[index];
    errno = 0;
    if (kept == nullptr)
        code = status_of(connection->db,
                         sqlite3_prepare_v3(connection->db, statement_texts[index], -1,
                                            SQLITE_PREPARE_PERSISTENT, &kept, nullptr));
    statement = kept;
}

Query::~Query() {
    if (statement != nullptr) {
        sqlite3_reset(statement);
        sqlite3_clear_bindings(statement);
    }
}

Query &Query::bind(int64_t number) {
    if (code == FN_SUCCESS)
        code = status_of(connection->db, sqlite3_bind_int64(statement, ++bound, number));
    return *this;
}

Query &Query::bind(std::string_view bytes) {
    // A null pointer would bind NULL.
    const char *data = bytes.data() != nullptr ? bytes.data() : "";
    if (code == FN_SUCCESS)
        code = status_of(connection->db, sqlite3_bind_blob64(statement, ++bound, data, bytes.size(),
                                                             SQLITE_STATIC));
    return *this;
}

bool Query::row() {
    if (code != FN_SUCCESS)
        return false;
    errno = 0;
    const int result = sqlite3_step(statement);
    code = status_of(connection->db, result);
    return result == SQLITE_ROW;
}

unsigned Query::run() {
    while (row()) {
    }
    return code;
}

std::string_view Query::bytes(int column) const {
    const void *data = sqlite3_column_blob(statement, column);
    const int size = sqlite3_column_bytes(statement, column);
    return data != nullptr
               ? std::string_view(static_cast<const char *>(data), static_cast<std::size_t>(size))
               : std::string_view();
}

// ---- Making the file ------------------------------------------------------------------------------

namespace {

// Readable by all whatever the umask.
unsigned make_empty(const char *path) {
    const Descriptor file(open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (file.number < 0 || fchmod(file.number, 0644) != 0)
        return status_of_errno(errno);
    return FN_SUCCESS;
}

unsigned fill(const char *path) {
    uint64_t random = 0;
    if (getrandom(&random, sizeof random, 0) != static_cast<ssize_t>(sizeof random))
        return FN_E_INSUFFICIENT_RESOURCES;
    Database database;
    unsigned code = open_database(path, SQLITE_OPEN_READWRITE, nullptr, &database);
    sqlite3 *db = database.get();
    if (code == FN_SUCCESS)
        code = execute(db, schema);
    if (code != FN_SUCCESS)
        return code;
    sqlite3_db_config(db, SQLITE_DBCONFIG_DEFENSIVE, 0, nullptr); // sqlite_sequence is guarded
    sqlite3_stmt *statement = nullptr;
    errno = 0;
    int result = sqlite3_prepare_v2(db, first_version, -1, &statement, nullptr);
    if (result == SQLITE_OK)
        result = sqlite3_bind_int64(statement, 1, static_cast<int64_t>(random >> 2));
    if (result == SQLITE_OK)
        result = sqlite3_step(statement);
    code = status_of(db, result);
    sqlite3_finalize(statement);
    if (code == FN_SUCCESS)
        code = execute(db, "PRAGMA journal_mode = WAL");
    return code;
}

// With the directory locked. The file comes to its name last, complete, with its log and index.
unsigned create_in(const char *path, int directory) {
    if (access(path, F_OK) == 0)
        return FN_SUCCESS;
    const qel::Owned<char> log = joined("", path, "-wal"), index = joined("", path, "-shm"),
                           fresh = joined("", path, ".new"),
                           fresh_journal = joined("", path, ".new-journal"),
                           fresh_log = joined("", path, ".new-wal"),
                           fresh_index = joined("", path, ".new-shm");
    const char *const leftovers[] = {log.get(),           index.get(),     fresh.get(),
                                     fresh_journal.get(), fresh_log.get(), fresh_index.get()};
    for (const char *name : leftovers)
        if (name == nullptr)
            return FN_E_INSUFFICIENT_RESOURCES;
    // The log of a file that is gone must not be taken for that of the new one.
    for (const char *name : leftovers)
        if (unlink(name) != 0 && errno != ENOENT)
            return status_of_errno(errno);
    unsigned code = FN_SUCCESS;
    for (const char *name : {log.get(), index.get(), fresh.get()})
        if (code == FN_SUCCESS)
            code = make_empty(name);
    if (code == FN_SUCCESS)
        code = fill(fresh.get());
    if (code == FN_SUCCESS &&
        (fsync(directory) != 0 || rename(fresh.get(), path) != 0 || fsync(directory) != 0))
        code = status_of_errno(errno);
    return code;
}

} // namespace

unsigned create_file(const char *path) {
    const qel::Owned<char> directory_path(strdup(path));
    if (directory_path == nullptr)
        return FN_E_INSUFFICIENT_RESOURCES;
    char *slash = std::strrchr(directory_path.get(), '/');
    slash[slash == directory_path.get() ? 1 : 0] = '\0';
    const Descriptor directory(open(directory_path.get(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory.number < 0)
        return status_of_errno(errno);
    constexpr timespec pause = {0, 10'000'000};
    for (int waited = 0; flock(directory.number, LOCK_EX | LOCK_NB) != 0; waited += 10) {
        if (errno != EWOULDBLOCK || waited >= 1000 * busy_seconds)
            return FN_E_CTX_UNAVAILABLE;
        nanosleep(&pause, nullptr);
    }
    return create_in(path, directory.number);
}

// ---- Reading round the index ----------------------------------------------------------------------

namespace {

// A path as part of a URI, with what a URI gives a meaning in hexadecimal.
qel::Owned<char> uri_of(const char *path, const char *options) {
    constexpr char digits[] = "0123456789ABCDEF";
    qel::Owned<char> encoded(static_cast<char *>(std::malloc(3 * std::strlen(path) + 1)));
    if (encoded == nullptr)
        return nullptr;
    char *at = encoded.get();
    for (; *path != '\0'; ++path) {
        if (std::strchr("%?#", *path) == nullptr) {
            *at++ = *path;
            continue;
        }
        *at++ = '%';
        *at++ = digits[static_cast<uint8_t>(*path) >> 4];
        *at++ = digits[static_cast<uint8_t>(*path) & 15];
    }
    *at = '\0';
    return joined("file:", encoded.get(), options);
}

// Whether the next write would show in the time of the last.
bool is_settled(const timespec &written) {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    constexpr int64_t tick = 50'000'000;
    const int64_t age = nanoseconds(now) - nanoseconds(written);
    return age < 0 || age > tick;
}

bool same_time(const timespec &first, const timespec &second) {
    return first.tv_sec == second.tv_sec && first.tv_nsec == second.tv_nsec;
}

} // namespace

unsigned open_private(Connection *connection, const char *path) {
    disconnect(connection);
    const qel::Owned<char> log = joined("", path, "-wal");
    if (log == nullptr)
        return FN_E_INSUFFICIENT_RESOURCES;
    // Without a log everything is in the file.
    const bool has_log = access(log.get(), F_OK) == 0;
    const qel::Owned<char> uri = uri_of(path, has_log ? "" : "?immutable=1");
    if (uri == nullptr)
        return FN_E_INSUFFICIENT_RESOURCES;
    struct stat file;
    if (stat(path, &file) != 0)
        return status_of_errno(errno);
    Database database;
    unsigned code =
        open_database(uri.get(), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, "unix-none", &database);
    if (code == FN_SUCCESS) // keeps the index of the log in memory
        code = execute(database.get(), "PRAGMA locking_mode = EXCLUSIVE");
    if (code == FN_SUCCESS)
        code = prepare(connection, database.get());
    if (code == FN_SUCCESS)
        adopt(connection, &database, file);
    return code;
}

bool file_state(const char *path, FileState *state) {
    *state = {};
    const qel::Owned<char> log = joined("", path, "-wal");
    if (log == nullptr)
        return false;
    const char *const names[] = {path, log.get()};
    for (int i = 0; i < 2; ++i) {
        struct stat file;
        if (stat(names[i], &file) != 0)
            return i == 1 && errno == ENOENT;
        state->devices[i] = file.st_dev;
        state->inodes[i] = file.st_ino;
        state->sizes[i] = file.st_size;
        state->times[i] = file.st_mtim;
    }
    return true;
}

bool unchanged_since(const char *path, const FileState &before) {
    FileState now;
    if (!file_state(path, &now))
        return false;
    for (int i = 0; i < 2; ++i)
        if (now.devices[i] != before.devices[i] || now.inodes[i] != before.inodes[i] ||
            now.sizes[i] != before.sizes[i] || !same_time(now.times[i], before.times[i]) ||
            !is_settled(now.times[i]))
            return false;
    return true;
}

} // namespace xfn
