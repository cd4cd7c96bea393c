// SPDX-License-Identifier: MIT
// store: the schema, and a statement for each change.
#include "tvregd/store.h"

#include "tv/winerror.h"
#include "tvregd/statement.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace {

constexpr int schemaVersion = 2;

// Positions and ids are given out upwards, and entries listed in their order. A key was written when the youngest of
// its values was, unless its own row tells a later time: setting a value, the most frequent write, then changes one
// page only. The last number ever given to a key is remembered, so that the handle of a deleted key does not come to
// name a new one. Keys in deleted_keys are no more, nor is what is below them; their rows are being erased.
constexpr const char *schema = R"(
    CREATE TABLE keys (
        number   INTEGER NOT NULL,
        parent   INTEGER,
        position INTEGER PRIMARY KEY,
        name     TEXT NOT NULL,
        class    TEXT,
        volatile INTEGER NOT NULL,
        written  INTEGER NOT NULL
    ) STRICT;
    CREATE TABLE key_values (
        id       INTEGER PRIMARY KEY,
        key      INTEGER NOT NULL,
        name     TEXT NOT NULL,
        type     INTEGER NOT NULL,
        data     BLOB NOT NULL,
        written  INTEGER NOT NULL
    ) STRICT;
    CREATE TABLE deleted_keys (position INTEGER PRIMARY KEY) STRICT;
    CREATE TABLE counters (last_number INTEGER NOT NULL) STRICT;
)";

// The keys of loaded hives with the absolute names of their files, and what is to take the place of a key's content
// when the daemon starts next. An earlier daemon of this version, which has no hives, takes the keys for ordinary ones.
constexpr const char *hiveTables = R"(
    CREATE TABLE IF NOT EXISTS hives (position INTEGER PRIMARY KEY, file TEXT NOT NULL) STRICT;
    CREATE TABLE IF NOT EXISTS replacements (
        position INTEGER PRIMARY KEY,
        old_file TEXT NOT NULL,
        content  BLOB NOT NULL
    ) STRICT;
)";

// From the first version, in which the tables had indexes, which compared names by their ASCII letters.
constexpr const char *fromVersion1[] = {
    "ALTER TABLE keys RENAME TO old_keys; ALTER TABLE key_values RENAME TO old_values", schema, R"(
    INSERT INTO keys SELECT number, parent, position, name, class, volatile, written FROM old_keys ORDER BY position;
    INSERT INTO key_values SELECT id, key, name, type, data, written FROM old_values ORDER BY id;
    INSERT INTO counters SELECT seq FROM sqlite_sequence WHERE name = 'old_keys';
    DROP TABLE old_values;
    DROP TABLE old_keys;
)"};

void SetVersion(SQLite::Database &database) { database.exec("PRAGMA user_version = " + std::to_string(schemaVersion)); }

void MakeTables(SQLite::Database &database) {
    database.exec("BEGIN IMMEDIATE");
    database.exec(schema);
    for (const auto &root : MakeTree().roots) {
        SQLite::Statement insert(database, "INSERT INTO keys VALUES (?, NULL, ?, ?, NULL, 0, 0)");
        Run(insert, root->number, root->row, root->name);
    }
    database.exec("INSERT INTO counters VALUES (" + std::to_string(rootCount) + ")");
    SetVersion(database);
    database.exec("COMMIT");
}

void UpdateTables(SQLite::Database &database) {
    database.exec("BEGIN IMMEDIATE");
    for (const char *step : fromVersion1) {
        database.exec(step);
    }
    SetVersion(database);
    database.exec("COMMIT");
}

// Everything that the statements of the store need: they are prepared right after it.
SQLite::Database OpenDatabase(const std::string &file, Durability durability) {
    SQLite::Database database(file, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE | SQLite::OPEN_NOMUTEX);
    database.setBusyTimeout(2000); // for a reader that recovers or cleans up; the daemon waits meanwhile
    const int version = database.execAndGet("PRAGMA user_version").getInt();
    const int tables = database.execAndGet("SELECT count(*) FROM sqlite_schema").getInt();
    const bool fresh = version == 0 && tables == 0;
    if (!fresh && version != 1 && version != schemaVersion) {
        throw std::runtime_error("not a registry that this version can read");
    }
    (void)database.execAndGet("PRAGMA journal_mode = WAL");
    if (fresh) MakeTables(database);
    if (version == 1) UpdateTables(database);
    database.exec(hiveTables);
    database.exec("PRAGMA wal_autocheckpoint = 256"); // pages: everybody waits while they are brought into the database
    database.exec(durability == Durability::full ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = NORMAL");
    return database;
}

// Opens a file for its user alone, making it when it is not there: whoever else could open it, be it for reading, could
// lock it and so hold the daemon.
int OpenPrivate(const std::string &file) {
    int descriptor = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0600);
    if (descriptor < 0) throw std::runtime_error(std::strerror(errno));
    DescriptorGuard guard(&descriptor);
    struct stat found = {};
    if (fstat(descriptor, &found) != 0) throw std::runtime_error(std::strerror(errno));
    if (!S_ISREG(found.st_mode)) throw std::runtime_error("not a regular file");
    if ((found.st_mode & 077) != 0 && fchmod(descriptor, 0600) != 0) {
        throw std::runtime_error("open to others, and not ours to close to them");
    }
    (void)guard.release();
    return descriptor;
}

// Makes sure of the database file and locks what stands for it: a file beside it, since SQLite has locks of its own in
// the first. SQLite gives the files that it makes the mode of the database; older ones may be left over from a crash.
int LockDatabase(const std::string &file) {
    (void)close(OpenPrivate(file)); // before SQLite opens it: closing releases all locks of this process
    const std::string path = std::filesystem::canonical(file); // one lock whichever way leads to the file
    for (const char *suffix : {"-wal", "-shm"}) {
        if (chmod((path + suffix).c_str(), 0600) != 0 && errno != ENOENT) {
            throw std::runtime_error(suffix + std::string(": ") + std::strerror(errno));
        }
    }
    int descriptor = OpenPrivate(path + "-lock");
    DescriptorGuard guard(&descriptor);
    if (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        throw std::runtime_error(errno == EWOULDBLOCK ? "in use by another registry daemon" : std::strerror(errno));
    }
    (void)guard.release();
    return descriptor;
}

} // namespace

Store::Store(int lock, const std::string &file, Durability durable)
    : lockDescriptor(lock), durability(durable), database(OpenDatabase(file, durable)),
      begin(database, "BEGIN IMMEDIATE"), commit(database, "COMMIT"), rollback(database, "ROLLBACK"),
      insertKey(database, "INSERT INTO keys VALUES (?, ?, ?, ?, ?, ?, ?)"),
      touchKey(database, "UPDATE keys SET written = ? WHERE position = ?"),
      nameKey(database, "UPDATE keys SET name = ? WHERE position = ?"),
      classKey(database, "UPDATE keys SET class = ? WHERE position = ?"),
      moveKey(database, "UPDATE keys SET position = ?, parent = ? WHERE position = ?"),
      eraseKey(database, "DELETE FROM keys WHERE position = ?"),
      insertValue(database, "INSERT INTO key_values VALUES (?, ?, ?, ?, ?, ?)"),
      replaceValue(database, "UPDATE key_values SET type = ?, data = ?, written = ? WHERE id = ?"),
      nameValue(database, "UPDATE key_values SET name = ? WHERE id = ?"),
      moveValue(database, "UPDATE key_values SET id = ?, key = ?, name = ? WHERE id = ?"),
      eraseValue(database, "DELETE FROM key_values WHERE id = ?"),
      bury(database, "INSERT INTO deleted_keys VALUES (?)"),
      forget(database, "DELETE FROM deleted_keys WHERE position = ?"),
      putHive(database, "INSERT INTO hives VALUES (?, ?)"), eraseHive(database, "DELETE FROM hives WHERE position = ?"),
      putReplacement(database, "REPLACE INTO replacements VALUES (?, ?, ?)"),
      eraseReplacement(database, "DELETE FROM replacements WHERE position = ?"),
      putLastNumber(database, "UPDATE counters SET last_number = ?") {}

StoreGuard OpenStore(const std::string &file, Durability durability) {
    int lock = LockDatabase(file);
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

void Begin(Store &store) { Run(store.begin); }

void Commit(Store &store) {
    if (store.lastNumber != store.lastNumberInFile) Run(store.putLastNumber, store.lastNumber);
    Run(store.commit);
    store.lastNumberInFile = store.lastNumber;
}

void RollBack(Store &store) noexcept {
    if (sqlite3_get_autocommit(store.database.getHandle()) != 0) return;
    (void)store.rollback.tryReset();
    (void)store.rollback.tryExecuteStep();
    (void)store.rollback.tryReset();
}

void StoreKeys(Store &store, const std::vector<std::unique_ptr<Key>> &keys) {
    for (const auto &key : keys) {
        key->row = ++store.lastKeyRow;
        Run(store.insertKey, key->number, key->parent->number, key->row, key->name, key->keyClass,
            static_cast<std::uint32_t>(key->isVolatile), Stored(key->written));
        store.lastNumber = key->number;
    }
}

void StoreTouched(Store &store, const Key &key, std::uint64_t written) {
    Run(store.touchKey, Stored(written), key.row);
}

void StoreKeyName(Store &store, const Key &key) { Run(store.nameKey, key.name, key.row); }

void StoreKeyClass(Store &store, const Key &key) { Run(store.classKey, key.keyClass, key.row); }

void StoreKeyMoved(Store &store, Key &key) {
    const std::int64_t before = key.row;
    key.row = ++store.lastKeyRow;
    Run(store.moveKey, key.row, key.parent->number, before);
}

void StoreValue(Store &store, const Key &key, Value &value, std::uint64_t written) {
    value.row = ++store.lastValueRow;
    Run(store.insertValue, value.row, key.number, value.name, value.type, Blob{value.data}, Stored(written));
}

void StoreValueReplaced(Store &store, const Value &value, const Value &by, std::uint64_t written) {
    Run(store.replaceValue, by.type, Blob{by.data}, Stored(written), value.row);
}

void StoreValueName(Store &store, const Value &value) { Run(store.nameValue, value.name, value.row); }

void StoreValueMoved(Store &store, Value &value, const Key &key) {
    const std::int64_t before = value.row;
    value.row = ++store.lastValueRow;
    Run(store.moveValue, value.row, key.number, value.name, before);
}

void EraseKey(Store &store, const Key &key) { Run(store.eraseKey, key.row); }

void EraseValue(Store &store, const Value &value) { Run(store.eraseValue, value.row); }

void StoreBuried(Store &store, const Key &key) { Run(store.bury, key.row); }

void StoreForgotten(Store &store, const Key &key) { Run(store.forget, key.row); }

void StoreHive(Store &store, const Key &key, const std::string &file) { Run(store.putHive, key.row, file); }

void EraseHive(Store &store, const Key &key) {
    Run(store.eraseHive, key.row);
    Run(store.eraseReplacement, key.row);
}

void StoreReplacement(Store &store, const Key &key, const std::string &oldFile, std::string_view content) {
    Run(store.putReplacement, key.row, oldFile, Blob{content});
}

void EraseReplacement(Store &store, const Key &key) { Run(store.eraseReplacement, key.row); }

std::string ReadReplacement(const Store &store, const Key &key) {
    const Rows rows = Select(store.database.getHandle(), "SELECT content FROM replacements WHERE position = ?");
    (void)sqlite3_bind_int64(rows.get(), 1, key.row);
    return Next(rows) ? Bytes(rows, 0) : std::string();
}

// The log is the only file that holds what is not on the disk yet: SQLite syncs it before it brings anything from it
// into the database.
void SyncStore(Store &store) {
    if (store.durability == Durability::full) return;
    sqlite3_file *log = nullptr;
    int rc = sqlite3_file_control(store.database.getHandle(), nullptr, SQLITE_FCNTL_JOURNAL_POINTER, &log);
    if (rc == SQLITE_OK && log != nullptr && log->pMethods != nullptr) {
        rc = log->pMethods->xSync(log, SQLITE_SYNC_FULL | SQLITE_SYNC_DATAONLY);
    }
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
