// sqlite_connection.h: a connection to the SQLite file of a store, its statements and its failures.
//
// The journal is a write-ahead log that stays when the last connection closes. Readers are ordinary
// users, who may write neither the file nor its directory. With a rollback journal they would be stuck
// after a writer was killed: only who may write can roll back. The log needs no repair by a reader:
// what was not committed stands behind the last commit and is ignored. But a reader can use the log
// only if it and its index ("-shm") exist, which is why they are made with the file, before anybody can
// see it, and never deleted. Should somebody have deleted them, or a writer have died while it wrote
// the index (a matter of nanoseconds) with readers connected, readers go round the index, see
// open_private.
//
// synchronous is FULL: the log is on the disk before a commit returns.
#ifndef XFN_SQLITE_CONNECTION_H
#define XFN_SQLITE_CONNECTION_H

#include <sqlite3.h>

#include <ctime>
#include <string_view>
#include <sys/types.h>

#include "objects.h"

namespace xfn {

enum class Sql : unsigned {
    begin_reading,
    begin_writing,
    commit,
    roll_back,
    find_entry,
    name_of_entry,
    list_names,
    list_entries,
    add_entry,
    drop_entry,
    drop_values_of_entry,
    drop_attributes_of_entry,
    count_attributes,
    list_attributes,
    find_attribute,
    add_attribute,
    drop_attribute,
    list_values,
    has_value,
    entries_with_hash,
    add_value,
    drop_values,
    count
};

struct Connection {
    sqlite3 *db;
    sqlite3_stmt *statements[static_cast<unsigned>(Sql::count)];
    pid_t process; // which opened it
    dev_t device;  // the file that was opened: another may be at its path meanwhile
    ino_t inode;
    timespec waiting_since; // for a lock that another holds
};

enum class Access { reading, writing };

// Makes sure that a connection is open and is one to the file that is now at the path. *absent: there
// is no such file.
unsigned connect(Connection *connection, const char *path, Access access, bool *absent);
// Opens a connection without locks that sees the file and its log as they are now and keeps an index
// of its own. What it reads counts only if nobody has written meanwhile: see unchanged_since.
unsigned open_private(Connection *connection, const char *path);
void disconnect(Connection *connection);

// The state of the file and its log (zeros if there is none), to see whether anybody has written.
struct FileState {
    dev_t devices[2];
    ino_t inodes[2];
    off_t sizes[2];
    timespec times[2];
};
bool file_state(const char *path, FileState *state);
// Whether nothing has changed since, and the clock of the file system would have shown it.
bool unchanged_since(const char *path, const FileState &before);

// What an errno means for whoever uses a store.
unsigned status_of_errno(int error);

// Makes an empty store, unless there is one.
unsigned create_file(const char *path);

// A statement that is run once; it is reset at the end of the object's life. Bound bytes must live as
// long.
class Query {
public:
    Query(Connection *connection, Sql sql);
    ~Query();
    Query(const Query &) = delete;
    Query &operator=(const Query &) = delete;

    Query &bind(int64_t number);
    Query &bind(std::string_view bytes);
    // Goes to the next row. False after the last one, and after a failure: then status says so.
    bool row();
    // Runs to the end.
    unsigned run();
    unsigned status() const { return code; }

    int64_t number(int column) const { return sqlite3_column_int64(statement, column); }
    std::string_view bytes(int column) const;

private:
    Connection *connection;
    sqlite3_stmt *statement = nullptr;
    int bound = 0;
    unsigned code;
};

} // namespace xfn

#endif
