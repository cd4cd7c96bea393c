// SPDX-License-Identifier: MIT
// store: the registry in its file, a SQLite database in WAL mode.
//
// The daemon alone writes the file, and holds a lock on it that keeps a second daemon out; other programs may read it
// meanwhile. What is written between Begin and Commit survives the end of the daemon when Commit returns, and with
// Durability::FULL also the end of the machine. The functions throw SQLite::Exception when SQLite fails; the
// transaction is then to be rolled back. Thread: the only one.
#pragma once

#include "tvregd/tree.h"
#include "util/guard.h"

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>

#include <memory>
#include <string>
#include <vector>

enum class Durability {
    FULL,  // each transaction is on the disk before it is acknowledged
    NORMAL // a power failure may take the youngest transactions, never a part of one
};

struct Store {
    Store(int lock, const std::string &file, Durability durability);

    int lockDescriptor; // the lock lasts as long as it is open
    Durability durability;
    SQLite::Database database;
    SQLite::Statement begin, commit, rollback;
    SQLite::Statement insertKey, touchKey, deleteKey;
    SQLite::Statement putValue, deleteValue;
    std::int64_t lastPosition = 0; // of the youngest key; keys are listed in the order of their positions
};

void CloseStore(Store *store);
using StoreGuard = std::unique_ptr<Store, Calls<&CloseStore>>;

// Opens the file, making it and its tables when they are not there, and drops the volatile keys of an earlier daemon.
// Throws std::runtime_error with a text for people when another daemon has the file or it is no registry of ours.
StoreGuard OpenStore(const std::string &file, Durability durability = Durability::FULL);

// Reads everything into a fresh tree (MakeTree).
void LoadTree(Store &store, Tree &tree);

// A transaction: nothing is stored outside of one.
void Begin(Store &store);
void Commit(Store &store);
void RollBack(Store &store) noexcept; // also when SQLite has done so by itself

// Stores new keys, which are not in the tree yet but know their parents, each behind its own. The parent of the first
// gets its `written` time.
void StoreKeys(Store &store, const std::vector<std::unique_ptr<Key>> &keys);
// Removes a key with everything below it; `written` is for its parent.
void StoreKeyDeleted(Store &store, const Key &key, std::uint64_t written);
// Sets a value, new or not, of a key that gets the time `written`.
void StoreValue(Store &store, const Key &key, const Value &value, std::uint64_t written);
void StoreValueDeleted(Store &store, const Key &key, const Value &value, std::uint64_t written);

// Brings what Durability::NORMAL has left to the system onto the disk. Outside of a transaction.
void SyncStore(Store &store);

// The Win32 code of what a function of the store has thrown: 112 when the disk is full, 8, 1016.
std::uint32_t StatusOf(const std::exception &failure);
