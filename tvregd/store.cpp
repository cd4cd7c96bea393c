// SPDX-License-Identifier: MIT
// store: the schema, and a statement for each change.
#include "tvregd/store.h"

#include <SQLiteCpp/Exception.h>
#include <sqlite3.h>

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace {

constexpr int SCHEMA_VERSION = 1;

// AUTOINCREMENT remembers the highest number ever used, so that the handle of a deleted key does not come to name a new
// one. The subkeys and values of a key go with it. A key was written when the youngest of its values was, unless its
// own row tells a later time: setting a value, the most frequent write, then changes one page only.
constexpr const char *SCHEMA = R"(
    CREATE TABLE keys (
        number   INTEGER PRIMARY KEY AUTOINCREMENT,
        parent   INTEGER REFERENCES keys ON DELETE CASCADE,
        position INTEGER NOT NULL,
        name     TEXT NOT NULL COLLATE NOCASE,
        class    TEXT,
        volatile INTEGER NOT NULL,
        written  INTEGER NOT NULL,
        UNIQUE (parent, name)
    ) STRICT;
    CREATE TABLE key_values (
        id       INTEGER PRIMARY KEY,
        key      INTEGER NOT NULL REFERENCES keys ON DELETE CASCADE,
        name     TEXT NOT NULL COLLATE NOCASE,
        type     INTEGER NOT NULL,
        data     BLOB NOT NULL,
        written  INTEGER NOT NULL,
        UNIQUE (key, name)
    ) STRICT;
)";

void Bind(SQLite::Statement &statement, int column, std::int64_t value) { statement.bind(column, value); }
void Bind(SQLite::Statement &statement, int column, std::uint32_t value) { statement.bind(column, value); }
void Bind(SQLite::Statement &statement, int column, const std::string &text) { statement.bindNoCopy(column, text); }
void Bind(SQLite::Statement &statement, int column, const std::optional<std::string> &text) {
    if (text) {
        statement.bindNoCopy(column, *text);
    } else {
        statement.bind(column);
    }
}
struct Blob {
    const std::string &bytes;
};
void Bind(SQLite::Statement &statement, int column, Blob blob) {
    statement.bindNoCopy(column, blob.bytes.data(), static_cast<int>(blob.bytes.size()));
}

// Executes a statement without result rows; the arguments are borrowed for the call.
template <typename... Arguments>
void Run(SQLite::Statement &statement, const Arguments &...arguments) {
    (void)statement.tryReset();
    int column = 0;
    (Bind(statement, ++column, arguments), ...);
    (void)statement.exec();
}

// A time has 64 bits and SQLite's integers are signed; the times of the next 27,000 years fit.
std::int64_t Stored(std::uint64_t time) { return static_cast<std::int64_t>(time); }

void MakeTables(SQLite::Database &database) {
    database.exec("BEGIN IMMEDIATE");
    database.exec(SCHEMA);
    for (const auto &root : MakeTree().roots) {
        SQLite::Statement insert(database, "INSERT INTO keys VALUES (?, NULL, ?, ?, NULL, 0, 0)");
        Run(insert, root->number, root->number, root->name);
    }
    database.exec("PRAGMA user_version = " + std::to_string(SCHEMA_VERSION));
    database.exec("COMMIT");
}

// Everything that the statements of the store need: they are prepared right after it.
SQLite::Database OpenDatabase(const std::string &file, Durability durability) {
    SQLite::Database database(file, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
    database.setBusyTimeout(2000); // for a reader that recovers or cleans up; the daemon waits meanwhile
    const int version = database.execAndGet("PRAGMA user_version").getInt();
    const int tables = database.execAndGet("SELECT count(*) FROM sqlite_schema").getInt();
    const bool fresh = version == 0 && tables == 0;
    if (!fresh && version != SCHEMA_VERSION) throw std::runtime_error("not a registry that this version can read");
    (void)database.execAndGet("PRAGMA journal_mode = WAL");
    if (fresh) MakeTables(database);
    database.exec(durability == Durability::FULL ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = NORMAL");
    database.exec("PRAGMA foreign_keys = ON");
    database.exec("DELETE FROM keys WHERE volatile");
    return database;
}

int LockFile(const std::string &file) {
    int descriptor = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (descriptor < 0) throw std::runtime_error(std::strerror(errno));
    DescriptorGuard guard(&descriptor);
    if (flock(descriptor, LOCK_EX | LOCK_NB) != 0)
        throw std::runtime_error(errno == EWOULDBLOCK ? "in use by another registry daemon" : std::strerror(errno));
    (void)guard.release();
    return descriptor;
}

Key *KeyOfRow(const Tree &tree, std::int64_t number) {
    const auto found = tree.byNumber.find(static_cast<std::uint32_t>(number));
    if (found == tree.byNumber.end())
        throw std::runtime_error("the database is damaged: there is no key " + std::to_string(number));
    return found->second;
}

void LoadKeys(Store &store, Tree &tree) {
    SQLite::Statement rows(store.database, "SELECT number, parent, name, class, volatile, written, position FROM keys "
                                           "ORDER BY position");
    while (rows.executeStep()) {
        const std::int64_t number = rows.getColumn(0).getInt64();
        const auto written = static_cast<std::uint64_t>(rows.getColumn(5).getInt64());
        store.lastPosition = rows.getColumn(6).getInt64();
        if (rows.getColumn(1).isNull()) {
            KeyOfRow(tree, number)->written = written;
            continue;
        }
        Key *parent = KeyOfRow(tree, rows.getColumn(1).getInt64());
        if (number <= ROOT_COUNT || number > MAX_KEY_NUMBER || parent->depth == MAX_DEPTH)
            throw std::runtime_error("the database is damaged: key " + std::to_string(number) + " cannot be");
        auto key = std::make_unique<Key>();
        key->number = static_cast<std::uint32_t>(number);
        key->name = rows.getColumn(2).getString();
        if (!rows.getColumn(3).isNull()) key->keyClass = rows.getColumn(3).getString();
        key->isVolatile = rows.getColumn(4).getInt() != 0;
        key->written = written;
        (void)AddKey(tree, *parent, std::move(key));
    }
    tree.lastNumber = store.database.execAndGet("SELECT seq FROM sqlite_sequence WHERE name = 'keys'").getUInt();
}

void LoadValues(Store &store, const Tree &tree) {
    SQLite::Statement rows(store.database, "SELECT key, name, type, data, written FROM key_values ORDER BY id");
    while (rows.executeStep()) {
        Value value;
        value.name = rows.getColumn(1).getString();
        value.type = rows.getColumn(2).getUInt();
        value.data = rows.getColumn(3).getString();
        Key *key = KeyOfRow(tree, rows.getColumn(0).getInt64());
        key->written = std::max(key->written, static_cast<std::uint64_t>(rows.getColumn(4).getInt64()));
        (void)AddValue(*key, std::move(value));
    }
}

} // namespace

Store::Store(int lock, const std::string &file, Durability durable)
    : lockDescriptor(lock), durability(durable), database(OpenDatabase(file, durable)),
      begin(database, "BEGIN IMMEDIATE"), commit(database, "COMMIT"), rollback(database, "ROLLBACK"),
      insertKey(database, "INSERT INTO keys (number, parent, position, name, class, volatile, written) "
                          "VALUES (?, ?, ?, ?, ?, ?, ?)"),
      touchKey(database, "UPDATE keys SET written = ? WHERE number = ?"),
      deleteKey(database, "DELETE FROM keys WHERE number = ?"),
      putValue(database, "INSERT INTO key_values (key, name, type, data, written) VALUES (?, ?, ?, ?, ?) "
                         "ON CONFLICT (key, name) DO UPDATE SET type = excluded.type, data = excluded.data, "
                         "written = excluded.written"),
      deleteValue(database, "DELETE FROM key_values WHERE key = ? AND name = ?") {}

StoreGuard OpenStore(const std::string &file, Durability durability) {
    int lock = LockFile(file);
    DescriptorGuard guard(&lock);
    StoreGuard store(new Store(lock, file, durability));
    (void)guard.release();
    return store;
}

// Closing any descriptor of the file drops SQLite's own locks on it, so the lock goes last.
void CloseStore(Store *store) {
    int lock = store->lockDescriptor;
    delete store;
    CloseDescriptorAt(&lock);
}

void LoadTree(Store &store, Tree &tree) {
    LoadKeys(store, tree);
    LoadValues(store, tree);
}

void Begin(Store &store) { Run(store.begin); }

void Commit(Store &store) { Run(store.commit); }

void RollBack(Store &store) noexcept {
    if (sqlite3_get_autocommit(store.database.getHandle()) != 0) return;
    (void)store.rollback.tryReset();
    (void)store.rollback.tryExecuteStep();
    (void)store.rollback.tryReset();
}

void StoreKeys(Store &store, const std::vector<std::unique_ptr<Key>> &keys) {
    for (const auto &key : keys) {
        Run(store.insertKey, key->number, key->parent->number, ++store.lastPosition, key->name, key->keyClass,
            static_cast<std::uint32_t>(key->isVolatile), Stored(key->written));
    }
    Run(store.touchKey, Stored(keys.front()->written), keys.front()->parent->number);
}

void StoreKeyDeleted(Store &store, const Key &key, std::uint64_t written) {
    Run(store.deleteKey, key.number);
    Run(store.touchKey, Stored(written), key.parent->number);
}

void StoreValue(Store &store, const Key &key, const Value &value, std::uint64_t written) {
    Run(store.putValue, key.number, value.name, value.type, Blob{value.data}, Stored(written));
}

void StoreValueDeleted(Store &store, const Key &key, const Value &value, std::uint64_t written) {
    Run(store.deleteValue, key.number, value.name);
    Run(store.touchKey, Stored(written), key.number);
}

// The log is the only file that holds what is not on the disk yet: SQLite syncs it before it brings anything from it
// into the database.
void SyncStore(Store &store) {
    if (store.durability == Durability::FULL) return;
    sqlite3_file *log = nullptr;
    int rc = sqlite3_file_control(store.database.getHandle(), nullptr, SQLITE_FCNTL_JOURNAL_POINTER, &log);
    if (rc == SQLITE_OK && log != nullptr && log->pMethods != nullptr)
        rc = log->pMethods->xSync(log, SQLITE_SYNC_FULL | SQLITE_SYNC_DATAONLY);
    if (rc != SQLITE_OK) throw SQLite::Exception("the log cannot be synced", rc);
}

std::uint32_t StatusOf(const std::exception &failure) {
    const auto *sqlite = dynamic_cast<const SQLite::Exception *>(&failure);
    switch (sqlite != nullptr ? sqlite->getErrorCode() : SQLITE_NOMEM) {
    case SQLITE_FULL: return ERROR_DISK_FULL;          // 112
    case SQLITE_NOMEM: return ERROR_NOT_ENOUGH_MEMORY; // 8
    default: return ERROR_REGISTRY_IO_FAILED;          // 1016
    }
}
