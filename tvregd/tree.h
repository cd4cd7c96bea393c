// SPDX-License-Identifier: MIT
// tree: the keys and values of the registry in memory, as the operations look at them.
//
// Every read is answered from here; the database (store.h) is only read once, at start, and written with each change
// (group.h). Names are found without regard to case (names.h) and keep the case in which they were first written. Keys
// and values are listed in the order in which they were created; removing one moves the following down by one index.
//
// A key has a number, which never changes while it lives. Its handle is computed from the number, so that a handle
// takes no memory, closing it releases nothing, and it names the same key after a restart of the daemon. A number is
// not given out again before all others have been used.
//
// A key that is deleted is buried: it hangs, with all below it, in the graveyard, where no path leads to, and its
// handles name a deleted key. What is buried is taken apart later, in pieces (graveyard.h). Thread: the only one.
#pragma once

#include "registry/limits.h"
#include "tv/wintypes.h"
#include "tvregd/name_table.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Entries with names, in the order in which they came and found by name.
template <typename Entry>
struct NamedList {
    std::vector<std::unique_ptr<Entry>> inOrder;
    std::unique_ptr<NameTable<Entry>> byName{}; // null while they are few
};

struct Value {
    std::string name; // empty: the unnamed value of the key
    std::uint32_t type = 0; // REG_NONE
    std::string data;
    std::int64_t row = 0; // in the database; 0: not there yet
};

struct Key {
    std::uint32_t number = 0;
    std::uint32_t depth = 0; // keys above this one
    Key *parent = nullptr;   // null for a root
    std::string name;
    std::optional<std::string> keyClass;
    std::uint32_t changedIn = 0; // number of the group (group.h) with the last change to it or to its list of subkeys
    bool isVolatile = false;     // gone when the daemon starts again
    bool isErased = false;       // buried, and neither it nor anything below it has rows in the database any more
    std::uint64_t written = 0;   // FILETIME of the last change to its values, or of a subkey made or deleted
    std::int64_t row = 0;        // in the database
    NamedList<Key> subKeys;
    NamedList<Value> values;
};

// A key with a file behind it (hives.h).
struct Hive {
    Key *key;
    std::string file;    // absolute; empty where the key only has a replacement
    std::string oldFile; // for its content when it is replaced; empty: it will not be
};

struct Tree {
    std::vector<std::unique_ptr<Key>> roots; // the predefined roots, in the order of their handles
    std::unique_ptr<Key> graveyard;          // no key of the registry; below it those that are deleted
    std::vector<Key *> byNumber;             // all keys, null for a number that none has; as long as need be
    std::vector<Hive> hives;                 // few
    std::uint32_t lastNumber = 0;            // given out last
    bool wrapped = false;                    // numbers are being given out again
};

// The roots are keys number 1 to 7, with the predefined handles 0x80000000 to 0x80000006.
constexpr std::uint32_t rootCount = 7;
// Handles have 23 bits for the number: 0 to 19 and 28 to 30. Bits 20 to 27 are the client's, bit 31 marks the roots.
constexpr std::uint32_t maxKeyNumber = 0x7FFFFF;

// The hive of a key; null for a key without one.
const Hive *HiveOf(const Tree &tree, const Key &key);

// Makes a tree of the seven roots without subkeys and values.
Tree MakeTree();

std::uint32_t HandleOf(const Key &key);

// Finds the key that a handle names. Returns 0; 6 for a handle that was never given out; 1018 for a key that has been
// deleted.
[[nodiscard]] std::uint32_t FindHandle(const Tree &tree, std::uint32_t handle, Key **key);

// The key with this number, buried or not; null when there is none.
Key *FindNumber(const Tree &tree, std::uint32_t number);

// The next number that no key has; 0 when all are taken. Advances lastNumber.
std::uint32_t TakeNumber(Tree &tree);

// The names from a root down to a key, with backslashes between them.
std::string PathOf(const Key &key);

// The name with a number behind it, "name (2)", that is not taken.
template <typename IsTaken>
std::string NumberedName(const std::string &name, IsTaken isTaken) {
    for (int number = 2;; ++number) {
        std::string numbered = name + " (" + std::to_string(number) + ")";
        if (!isTaken(numbered)) return numbered;
    }
}

Key *FindSubKey(const Key &key, std::string_view name); // null when there is none
Value *FindValue(const Key &key, std::string_view name);

// Hangs a key with number, name and the rest filled in below parent, as the last one.
//   isNameTaken  null when no other has its name; else whether one has, under which that one is found
Key *AddKey(Tree &tree, Key &parent, std::unique_ptr<Key> key, bool *isNameTaken = nullptr);
// Takes a key without anything below it out of the tree and releases it.
void RemoveKey(Tree &tree, Key &key);

// Moves a key, which is not a root, to the graveyard, with everything below it.
// Returns where it stood among its siblings.
std::size_t BuryKey(Tree &tree, Key &key);
// Hangs a key with number, name and the rest filled in where BuryKey would have moved it.
void AddBuriedKey(Tree &tree, std::unique_ptr<Key> key);
// Moves what BuryKey buried back.
void DigUpKey(Tree &tree, Key &key, Key &parent, std::size_t index);

Value *AddValue(Key &key, Value value, bool *isNameTaken = nullptr);
std::unique_ptr<Value> TakeOutValue(Key &key, Value &value, std::size_t *index);
void PutValueBack(Key &key, std::unique_ptr<Value> value, std::size_t index);

// Releases the last subkey, which has nothing below it, or the last value of a key.
void DropLastKey(Tree &tree, Key &key);
void DropLastValue(Key &key);
