// SPDX-License-Identifier: MIT
// store: the registry in its file, a SQLite database in WAL mode.
//
// The daemon alone writes the file, and holds a lock on another beside it that keeps a second daemon out; other
// programs of its user may read it meanwhile. No other user can open any of its files. What is written between Begin
// and Commit survives the end of the daemon when Commit returns, and with Durability::full also the end of the machine.
// The functions throw SQLite::Exception when SQLite fails; the transaction is then to be rolled back.
//
// Keys and values are found in memory and by their row numbers only, so that the tables have no other index: a change
// writes one page, and reading everything at start is one walk over each table. Thread: the only one.
#pragma once

#include "tvregd/tree.h"
#include "util/guard.h"

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>

#include <memory>
#include <string>
#include <vector>

enum class Durability {
    full,  // each transaction is on the disk before it is acknowledged
    normal // a power failure may take the youngest transactions, never a part of one
};

struct Store {
    Store(int lock, const std::string &file, Durability durable);

    int lockDescriptor; // the lock lasts as long as it is open
    Durability durability;
    SQLite::Database database;
    SQLite::Statement begin, commit, rollback;
    SQLite::Statement insertKey, touchKey, nameKey, classKey, moveKey, eraseKey;
    SQLite::Statement insertValue, replaceValue, nameValue, moveValue, eraseValue;
    SQLite::Statement bury, forget;
    SQLite::Statement putHive, eraseHive, putReplacement, eraseReplacement;
    SQLite::Statement putLastNumber;
    std::int64_t lastKeyRow = 0, lastValueRow = 0; // given out last: entries are listed in the order of their rows
    std::uint32_t lastNumber = 0;                  // of a key, given out last
    std::uint32_t lastNumberInFile = 0;
};

void CloseStore(Store *store);
using StoreGuard = std::unique_ptr<Store, Calls<&CloseStore>>;

// Opens the file, making it and its tables when they are not there, or bringing those of an earlier version up to date.
// Throws std::runtime_error with a text for people when another daemon has the file, it is no registry of ours, or it
// cannot be closed to other users.
StoreGuard OpenStore(const std::string &file, Durability durability = Durability::full);

// A transaction: nothing is stored outside of one.
void Begin(Store &store);
void Commit(Store &store);
void RollBack(Store &store) noexcept; // also when SQLite has done so by itself

// Stores new keys, which know their parents, each behind its own, and gives them their rows.
void StoreKeys(Store &store, const std::vector<std::unique_ptr<Key>> &keys);
void StoreTouched(Store &store, const Key &key, std::uint64_t written);
void StoreKeyName(Store &store, const Key &key);
void StoreKeyClass(Store &store, const Key &key);

// Stores that a key hangs below its parent now, as the last one, and gives it its new row.
void StoreKeyMoved(Store &store, Key &key);

// Stores a new value of a key, which gets the time `written`, and gives it its row.
void StoreValue(Store &store, const Key &key, Value &value, std::uint64_t written);
// Another type and other data for a value that is there; its key gets the time `written`.
void StoreValueReplaced(Store &store, const Value &value, const Value &by, std::uint64_t written);
void StoreValueName(Store &store, const Value &value);
// A value, perhaps with another name, is now a key's last one: gives it its new row.
void StoreValueMoved(Store &store, Value &value, const Key &key);

// Rows that go. A key's own row only: those of its values and subkeys are somebody's to erase before.
void EraseKey(Store &store, const Key &key);
void EraseValue(Store &store, const Value &value);

// Marks a key as deleted with everything below it, whose rows are still to be erased, or as erased.
void StoreBuried(Store &store, const Key &key);
void StoreForgotten(Store &store, const Key &key);

// The key of a loaded hive, with the absolute name of its file. It has a replacement no more when it is no hive any
// more.
void StoreHive(Store &store, const Key &key, const std::string &file);
void EraseHive(Store &store, const Key &key);

// What is to take the place of a key's content at the next start: the bytes of a hive file, and the file for the old
// content. Replaces what was stored before.
void StoreReplacement(Store &store, const Key &key, const std::string &oldFile, std::string_view content);
void EraseReplacement(Store &store, const Key &key);
std::string ReadReplacement(const Store &store, const Key &key);

// Brings what Durability::normal has left to the system onto the disk. Outside of a transaction.
void SyncStore(Store &store);

// The Win32 code of what a function of the store has thrown: 112 when the disk is full, 8, 1016.
std::uint32_t StatusOf(const std::exception &failure);
