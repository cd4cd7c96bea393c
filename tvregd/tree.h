// SPDX-License-Identifier: MIT
// tree: the keys and values of the registry in memory, as the operations look at them.
//
// Every read is answered from here; the database (store.h) is only read once, at start, and written before the tree
// changes. Names compare without regard to the case of ASCII letters and keep the case in which they were first
// written; all other bytes stand for themselves. Keys and values are listed in the order in which they were created;
// removing one moves the following down by one index.
//
// A key has a number, which never changes while it lives. Its handle is computed from the number, so that a handle
// takes no memory, closing it releases nothing, and it names the same key after a restart of the daemon. A number is
// not given out again before all others have been used. Thread: the only one.
#pragma once

#include "tv/winreg.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

struct NoCaseLess {
    bool operator()(std::string_view a, std::string_view b) const;
};

// Entries with names, in the order in which they came and found by name.
template <typename Entry>
struct NamedList {
    std::vector<std::unique_ptr<Entry>> inOrder;
    std::map<std::string_view, Entry *, NoCaseLess> byName; // the names are those of the entries
};

struct Value {
    std::string name; // empty: the unnamed value of the key
    std::uint32_t type = REG_NONE;
    std::string data;
};

struct Key {
    std::uint32_t number = 0;
    Key *parent = nullptr;   // null for a root
    std::uint32_t depth = 0; // keys above this one
    std::string name;
    std::optional<std::string> keyClass;
    bool isVolatile = false;     // gone when the daemon starts again
    std::uint64_t written = 0;   // FILETIME of the last change to its values, or of a subkey made or deleted
    std::uint32_t changedIn = 0; // number of the group (group.h) with the last change to it or to its list of subkeys
    NamedList<Key> subKeys;
    NamedList<Value> values;
};

struct Tree {
    std::vector<std::unique_ptr<Key>> roots;           // the predefined roots, in the order of their handles
    std::unordered_map<std::uint32_t, Key *> byNumber; // all keys
    std::uint32_t lastNumber = 0;                      // given out last
    bool wrapped = false;                              // numbers are being given out again
};

// The roots are keys number 1 to 7, with the predefined handles 0x80000000 to 0x80000006.
constexpr std::uint32_t ROOT_COUNT = 7;
// Handles have 23 bits for the number: 0 to 19 and 28 to 30. Bits 20 to 27 are the client's, bit 31 marks the roots.
constexpr std::uint32_t MAX_KEY_NUMBER = 0x7FFFFF;
constexpr std::uint32_t MAX_DEPTH = 512;

// Makes a tree of the seven roots without subkeys and values.
Tree MakeTree();

std::uint32_t HandleOf(const Key &key);

// Finds the key that a handle names. Returns 0; 6 for a handle that was never given out; 1018 for a key that has been
// deleted.
[[nodiscard]] std::uint32_t FindHandle(const Tree &tree, std::uint32_t handle, Key **key);

// The next number that no living key has; 0 when all are taken. Advances lastNumber.
std::uint32_t TakeNumber(Tree &tree);

Key *FindSubKey(const Key &key, std::string_view name); // null when there is none
Value *FindValue(const Key &key, std::string_view name);

// Hangs a key with number, name and the rest filled in below parent, as the last one. No other may have its name.
Key *AddKey(Tree &tree, Key &parent, std::unique_ptr<Key> key);
// Takes a key, which is not a root, out of the tree, with everything below it.
//   index  where it stood among its siblings
std::unique_ptr<Key> TakeOutKey(Tree &tree, Key &key, std::size_t *index);
// Hangs what TakeOutKey took out back where it was.
void PutKeyBack(Tree &tree, Key &parent, std::unique_ptr<Key> key, std::size_t index);

Value *AddValue(Key &key, Value value);
std::unique_ptr<Value> TakeOutValue(Key &key, Value &value, std::size_t *index);
void PutValueBack(Key &key, std::unique_ptr<Value> value, std::size_t index);
