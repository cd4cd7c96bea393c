// SPDX-License-Identifier: MIT
// hive_file: the tables of a hive in memory, and a file that appears whole.
#include "tvregd/hive_file.h"

#include "tv/winerror.h"
#include "tvregd/operations.h"
#include "tvregd/statement.h"

#include <SQLiteCpp/Database.h>

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int applicationId = 0x54564856; // "TVHV"
constexpr int hiveVersion = 1;

// As SQLite keeps them: a file with other tables is none of ours.
constexpr const char *tables[] = {
    "CREATE TABLE hive_keys (number INTEGER PRIMARY KEY, parent INTEGER NOT NULL, name TEXT NOT NULL, class TEXT, "
    "written INTEGER NOT NULL) STRICT",
    "CREATE TABLE hive_values (id INTEGER PRIMARY KEY, key INTEGER NOT NULL, name TEXT NOT NULL, "
    "type INTEGER NOT NULL, data BLOB NOT NULL) STRICT",
    "CREATE TABLE hive_seal (digest INTEGER NOT NULL) STRICT"};

// --- the seal ---

struct Digest {
    std::uint64_t hash = 0xcbf29ce484222325; // FNV-1a
};

void TakeIn(Digest &digest, std::string_view bytes) {
    for (const char byte : bytes) {
        digest.hash = (digest.hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
    }
}
void TakeInNumber(Digest &digest, std::uint64_t number) {
    for (int shift = 0; shift < 64; shift += 8) {
        const auto byte = static_cast<char>(number >> shift);
        TakeIn(digest, {&byte, 1});
    }
}
void TakeInText(Digest &digest, std::string_view text) {
    TakeInNumber(digest, text.size());
    TakeIn(digest, text);
}

void TakeInKey(Digest &digest, std::uint32_t parent, const Key &key) {
    TakeInNumber(digest, parent);
    TakeInText(digest, key.name);
    TakeInNumber(digest, key.keyClass ? 1 : 0);
    if (key.keyClass) TakeInText(digest, *key.keyClass);
    TakeInNumber(digest, key.written);
}
void TakeInValue(Digest &digest, std::uint32_t key, const Value &value) {
    TakeInNumber(digest, key);
    TakeInText(digest, value.name);
    TakeInNumber(digest, value.type);
    TakeInText(digest, value.data);
}

// --- rows out ---

struct Writer {
    SQLite::Database database{":memory:", SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE | SQLite::OPEN_NOMUTEX};
    Digest keys, values;
    std::uint32_t lastNumber = 0;
};

void MakeTables(SQLite::Database &database) {
    database.exec("PRAGMA application_id = " + std::to_string(applicationId));
    database.exec("PRAGMA user_version = " + std::to_string(hiveVersion));
    for (const char *table : tables) {
        database.exec(table);
    }
}

struct Inserts {
    SQLite::Statement key, value;
};

// Writes a key and all below it. The recursion ends at maxKeyDepth.
void WriteKey(Writer &writer, Inserts &inserts, std::uint32_t parent, const Key &key) {
    const std::uint32_t number = ++writer.lastNumber;
    Key row;
    if (parent != 0) row.name = key.name;
    row.keyClass = key.keyClass;
    row.written = key.written;
    TakeInKey(writer.keys, parent, row);
    Run(inserts.key, number, parent, row.name, row.keyClass, Stored(row.written));
    for (const auto &value : key.values.inOrder) {
        TakeInValue(writer.values, number, *value);
        Run(inserts.value, number, value->name, value->type, Blob{value->data});
    }
    for (const auto &subKey : key.subKeys.inOrder) {
        if (!subKey->isVolatile) WriteKey(writer, inserts, number, *subKey);
    }
}

// Keys and values stand in tables of their own and are read one table after the other.
std::int64_t Seal(const Digest &keys, const Digest &values) {
    Digest both = keys;
    TakeInNumber(both, values.hash);
    return Stored(both.hash);
}

using SqliteBytes = std::unique_ptr<unsigned char, Calls<&sqlite3_free>>;

// --- rows in ---

bool IsHiveDatabase(sqlite3 *database) {
    const Rows application = Select(database, "PRAGMA application_id"),
               version = Select(database, "PRAGMA user_version");
    if (!Next(application) || Number(application, 0) != applicationId) return false;
    if (!Next(version) || Number(version, 0) != hiveVersion) return false;
    const Rows schema = Select(database, "SELECT sql FROM sqlite_schema ORDER BY rowid");
    for (const char *table : tables) {
        if (!Next(schema) || BytesAt(schema, 0) != table) return false;
    }
    return !Next(schema);
}

bool IsKeyName(std::string_view name) {
    return !name.empty() && name.size() <= maxKeyNameBytes && name.find('\\') == std::string_view::npos &&
           name.find('\0') == std::string_view::npos;
}

// False for a row that cannot be.
bool ReadKey(const Rows &rows, Tree &hive, Digest &digest) {
    const std::uint32_t number = Word(rows, 0), parent = Word(rows, 1);
    auto key = std::make_unique<Key>();
    key->number = number;
    key->name = Bytes(rows, 2);
    if (!IsNull(rows, 3)) key->keyClass = Bytes(rows, 3);
    key->written = static_cast<std::uint64_t>(Number(rows, 4));
    TakeInKey(digest, parent, *key);
    if (Number(rows, 0) != static_cast<std::int64_t>(hive.lastNumber) + 1 || Number(rows, 1) > hive.lastNumber ||
        Number(rows, 1) < 0 || number > maxKeyNumber) {
        return false;
    }
    hive.lastNumber = number;
    if (number == 1) {
        if (parent != 0 || !key->name.empty()) return false;
        hive.byNumber = {nullptr, key.get()};
        hive.roots.push_back(std::move(key));
        return true;
    }
    Key *above = parent != 0 ? FindNumber(hive, parent) : nullptr;
    if (above == nullptr || above->depth >= maxKeyDepth || !IsKeyName(key->name)) return false;
    bool isTaken = false;
    (void)AddKey(hive, *above, std::move(key), &isTaken);
    return !isTaken;
}

bool ReadValue(const Rows &rows, const Tree &hive, Digest &digest) {
    const std::uint32_t key = Word(rows, 0);
    Value value{Bytes(rows, 1), Word(rows, 2), Bytes(rows, 3)};
    TakeInValue(digest, key, value);
    Key *owner = FindNumber(hive, key);
    if (owner == nullptr || value.name.size() > maxValueNameBytes || value.data.size() > maxValueBytes ||
        Number(rows, 2) != value.type || value.name.find('\0') != std::string::npos) {
        return false;
    }
    bool isTaken = false;
    (void)AddValue(*owner, std::move(value), &isTaken);
    return !isTaken;
}

bool ReadHive(sqlite3 *database, Tree *hive) {
    if (!IsHiveDatabase(database)) return false;
    Digest keyDigest, valueDigest;
    const Rows keys = Select(database, "SELECT number, parent, name, class, written FROM hive_keys ORDER BY number");
    while (Next(keys)) {
        if (!ReadKey(keys, *hive, keyDigest)) return false;
    }
    const Rows values = Select(database, "SELECT key, name, type, data FROM hive_values ORDER BY id");
    while (Next(values)) {
        if (!ReadValue(values, *hive, valueDigest)) return false;
    }
    const Rows seal = Select(database, "SELECT digest FROM hive_seal");
    return !hive->roots.empty() && Next(seal) && Number(seal, 0) == Seal(keyDigest, valueDigest) && !Next(seal);
}

// --- files ---

std::uint32_t StatusOfErrno(int error) {
    switch (error) {
    case ENOENT: return ERROR_FILE_NOT_FOUND;  // 2
    case ENOTDIR: return ERROR_PATH_NOT_FOUND; // 3
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
    case ELOOP: return ERROR_ACCESS_DENIED;      // 5
    case ENOMEM: return ERROR_NOT_ENOUGH_MEMORY; // 8
    case ENOSPC:
    case EDQUOT: return ERROR_DISK_FULL;          // 112
    case ENAMETOOLONG: return ERROR_BAD_PATHNAME; // 161
    case EEXIST: return ERROR_ALREADY_EXISTS;     // 183
    case EFBIG: return ERROR_FILE_TOO_LARGE;      // 223
    default: return ERROR_REGISTRY_IO_FAILED;     // 1016
    }
}

// Opens the folder of a file.
//   name  the last name of the path, which is never "." or ".."
std::uint32_t OpenFolder(const std::string &path, int *folder, std::string *name) {
    *folder = -1;
    const std::size_t slash = path.rfind('/');
    if (path.empty() || path.front() != '/') return ERROR_BAD_PATHNAME;
    *name = path.substr(slash + 1);
    if (name->empty() || *name == "." || *name == "..") return ERROR_BAD_PATHNAME;
    *folder = open(path.substr(0, std::max(slash, std::size_t{1})).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (*folder >= 0) return 0;
    return errno == ENOENT ? ERROR_PATH_NOT_FOUND : StatusOfErrno(errno);
}

std::uint32_t WriteAll(int file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(file, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR) return StatusOfErrno(errno);
        if (written > 0) bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return fsync(file) == 0 ? 0 : StatusOfErrno(errno);
}

// Writes the bytes to a new file of the folder, under a name that nobody looks for.
std::uint32_t WriteUnnamed(int folder, std::string_view bytes, int *file, std::string *name) {
    std::uint64_t number = 0;
    if (getrandom(&number, sizeof number, 0) != sizeof number) return ERROR_REGISTRY_IO_FAILED;
    *name = ".tvregd." + std::to_string(number);
    *file = openat(folder, name->c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (*file < 0) return StatusOfErrno(errno);
    const std::uint32_t rc = WriteAll(*file, bytes);
    if (rc != 0) (void)unlinkat(folder, name->c_str(), 0);
    return rc;
}

// Gives a file the mode and the owner of another, as far as that is permitted.
void TakeAfter(int file, int folder, const std::string &name) {
    struct stat found = {};
    if (fstatat(folder, name.c_str(), &found, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(found.st_mode)) return;
    (void)!fchown(file, found.st_uid, found.st_gid);
    (void)fchmod(file, found.st_mode & 0777);
}

enum class Place { New, Taken };

std::uint32_t WriteHiveFile(const std::string &path, std::string_view bytes, Place place) {
    int folder = -1, file = -1;
    const DescriptorGuard folderClosed(&folder), fileClosed(&file);
    std::string name, unnamed;
    std::uint32_t rc = OpenFolder(path, &folder, &name);
    if (rc != 0) return rc;
    struct stat found = {};
    if (place == Place::New && fstatat(folder, name.c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0) {
        return ERROR_ALREADY_EXISTS; // 183, before all is written
    }
    rc = WriteUnnamed(folder, bytes, &file, &unnamed);
    if (rc != 0) return rc;
    if (place == Place::New) {
        if (linkat(folder, unnamed.c_str(), folder, name.c_str(), 0) != 0) rc = StatusOfErrno(errno);
        (void)unlinkat(folder, unnamed.c_str(), 0);
    } else {
        TakeAfter(file, folder, name);
        if (renameat(folder, unnamed.c_str(), folder, name.c_str()) != 0) {
            rc = StatusOfErrno(errno);
            (void)unlinkat(folder, unnamed.c_str(), 0);
        }
    }
    if (rc == 0 && fsync(folder) != 0) rc = StatusOfErrno(errno);
    return rc;
}

} // namespace

std::uint32_t EncodeHive(const Key &key, std::string *bytes) {
    try {
        Writer writer;
        MakeTables(writer.database);
        writer.database.exec("BEGIN");
        Inserts inserts{{writer.database, "INSERT INTO hive_keys VALUES (?, ?, ?, ?, ?)"},
                        {writer.database, "INSERT INTO hive_values (key, name, type, data) VALUES (?, ?, ?, ?)"}};
        WriteKey(writer, inserts, 0, key);
        SQLite::Statement seal(writer.database, "INSERT INTO hive_seal VALUES (?)");
        Run(seal, Seal(writer.keys, writer.values));
        writer.database.exec("COMMIT");
        sqlite3_int64 count = 0;
        const SqliteBytes serialized(sqlite3_serialize(writer.database.getHandle(), "main", &count, 0));
        if (serialized == nullptr) return ERROR_NOT_ENOUGH_MEMORY;
        if (static_cast<std::uint64_t>(count) > maxHiveBytes) return ERROR_FILE_TOO_LARGE;
        bytes->assign(reinterpret_cast<const char *>(serialized.get()), static_cast<std::size_t>(count));
        return 0;
    } catch (const std::exception &) { // nothing else can fail there
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

std::uint32_t DecodeHive(std::string_view bytes, Tree *hive) {
    *hive = {};
    try {
        SQLite::Database database(":memory:", SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE | SQLite::OPEN_NOMUTEX);
        sqlite3 *handle = database.getHandle();
        (void)sqlite3_db_config(handle, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
        (void)sqlite3_db_config(handle, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
        auto *read = reinterpret_cast<unsigned char *>(const_cast<char *>(bytes.data())); // is not written
        const auto count = static_cast<sqlite3_int64>(bytes.size());
        const bool isOpen = !bytes.empty() && sqlite3_deserialize(handle, "main", read, count, count,
                                                                  SQLITE_DESERIALIZE_READONLY) == SQLITE_OK;
        return isOpen && ReadHive(handle, hive) ? 0 : ERROR_BADDB; // 1009
    } catch (const SQLite::Exception &failure) {
        return failure.getErrorCode() == SQLITE_NOMEM ? ERROR_NOT_ENOUGH_MEMORY : ERROR_BADDB;
    } catch (const std::exception &) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

std::uint32_t FindHiveFile(const std::string &path, std::string *canonical) {
    int folder = -1;
    const DescriptorGuard folderClosed(&folder);
    std::string name;
    if (const std::uint32_t rc = OpenFolder(path, &folder, &name); rc != 0) return rc;
    const HeapText whole(realpath(path.substr(0, path.rfind('/') + 1).c_str(), nullptr));
    if (whole == nullptr) return StatusOfErrno(errno);
    *canonical = std::strcmp(whole.get(), "/") == 0 ? "/" + name : whole.get() + ("/" + name);
    struct stat found = {};
    return fstatat(folder, name.c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : StatusOfErrno(errno);
}

std::uint32_t ReadHiveFile(const std::string &path, std::string *bytes) {
    int folder = -1, file = -1;
    const DescriptorGuard folderClosed(&folder), fileClosed(&file);
    std::string name;
    if (const std::uint32_t rc = OpenFolder(path, &folder, &name); rc != 0) return rc;
    file = openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    struct stat found = {};
    if (file < 0 || fstat(file, &found) != 0) return StatusOfErrno(errno);
    if (!S_ISREG(found.st_mode)) return ERROR_ACCESS_DENIED;
    if (static_cast<std::uint64_t>(found.st_size) > maxHiveBytes) return ERROR_FILE_TOO_LARGE;
    try {
        bytes->resize(static_cast<std::size_t>(found.st_size));
    } catch (const std::exception &) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    for (std::size_t got = 0; got < bytes->size();) {
        const ssize_t now = read(file, bytes->data() + got, bytes->size() - got);
        if (now < 0 && errno == EINTR) continue;
        if (now < 0) return StatusOfErrno(errno);
        if (now == 0) return ERROR_BADDB; // it has become shorter
        got += static_cast<std::size_t>(now);
    }
    return 0;
}

std::uint32_t CreateHiveFile(const std::string &path, std::string_view bytes) {
    return WriteHiveFile(path, bytes, Place::New);
}

std::uint32_t ReplaceHiveFile(const std::string &path, std::string_view bytes) {
    return WriteHiveFile(path, bytes, Place::Taken);
}
