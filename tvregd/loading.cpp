// SPDX-License-Identifier: MIT
// loading: rows into keys and values, and what earlier versions left otherwise.
#include "tvregd/loading.h"

#include "tv/winreg.h"
#include "tvregd/statement.h"
#include "tvregd/views.h"
#include "util/printable.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <unordered_set>

namespace {

constexpr std::uint32_t maxLoadedDepth = 2 * maxKeyDepth; // what MoveIntoViews has moved may hang a little lower

sqlite3 *Handle(const Store &store) { return store.database.getHandle(); }

[[noreturn]] void Damaged(const std::string &what) { throw std::runtime_error("the database is damaged: " + what); }

Key &KeyOf(const Tree &tree, std::uint32_t number) {
    Key *key = FindNumber(tree, number);
    if (key == nullptr) Damaged("there is no key " + std::to_string(number));
    return *key;
}

// --- what bears the name of another ---

struct Equals {
    std::vector<Key *> keys;
    std::vector<std::pair<Key *, Value *>> values; // with their keys
};

// Gives an entry, which the list has under no name yet, one that no other has.
template <typename Entry, typename Find>
void NameApart(const Key &parent, NamedList<Entry> &list, Entry &entry, Find find) {
    const std::string old = entry.name;
    entry.name = NumberedName(old, [&](const std::string &name) { return find(parent, name) != nullptr; });
    if (list.byName) (void)AddName(*list.byName, entry);
    (void)std::fprintf(stderr, "tvregd: in %s, another has the name of %s, which is %s now\n",
                       Printable(PathOf(parent)).c_str(), Printable(old).c_str(), Printable(entry.name).c_str());
}

void TellApart(Store &store, const Equals &equals) {
    if (equals.keys.empty() && equals.values.empty()) return;
    Begin(store);
    for (Key *key : equals.keys) {
        NameApart(*key->parent, key->parent->subKeys, *key, FindSubKey);
        StoreKeyName(store, *key);
    }
    for (const auto &[key, value] : equals.values) {
        NameApart(*key, key->values, *value, FindValue);
        StoreValueName(store, *value);
    }
    Commit(store);
}

// --- keys and values ---

std::unordered_set<std::int64_t> LoadDeleted(Store &store) {
    std::unordered_set<std::int64_t> deleted;
    const Rows rows = Select(Handle(store), "SELECT position FROM deleted_keys");
    while (Next(rows)) {
        (void)deleted.insert(Number(rows, 0));
    }
    return deleted;
}

void LoadKeys(Store &store, Tree &tree, Equals *equals) {
    const std::unordered_set<std::int64_t> deleted = LoadDeleted(store);
    const Rows rows = Select(
        Handle(store), "SELECT position, number, parent, name, class, volatile, written FROM keys ORDER BY position");
    while (Next(rows)) {
        store.lastKeyRow = Number(rows, 0);
        const std::uint32_t number = Word(rows, 1);
        const auto written = static_cast<std::uint64_t>(Number(rows, 6));
        if (IsNull(rows, 2)) {
            KeyOf(tree, number).written = written;
            continue;
        }
        // What is deleted may have lost the row of its parent, which was deleted after it, already.
        const bool isGone = Number(rows, 5) != 0 || (!deleted.empty() && deleted.contains(store.lastKeyRow));
        Key *parent = isGone ? tree.graveyard.get() : &KeyOf(tree, Word(rows, 2));
        if (number <= rootCount || number > maxKeyNumber || FindNumber(tree, number) != nullptr ||
            parent->depth >= maxLoadedDepth) {
            Damaged("key " + std::to_string(number) + " cannot be");
        }
        auto key = std::make_unique<Key>();
        key->number = number;
        key->row = store.lastKeyRow;
        key->name = Bytes(rows, 3);
        if (!IsNull(rows, 4)) key->keyClass = Bytes(rows, 4);
        key->isVolatile = Number(rows, 5) != 0;
        key->written = written;
        if (isGone) {
            AddBuriedKey(tree, std::move(key));
            continue;
        }
        bool isEqual = false;
        Key *added = AddKey(tree, *parent, std::move(key), &isEqual);
        if (isEqual) equals->keys.push_back(added);
    }
}

void LoadValues(Store &store, const Tree &tree, Equals *equals) {
    const Rows rows = Select(Handle(store), "SELECT id, key, name, type, data, written FROM key_values ORDER BY id");
    while (Next(rows)) {
        store.lastValueRow = Number(rows, 0);
        Key &key = KeyOf(tree, Word(rows, 1));
        Value value{Bytes(rows, 2), Word(rows, 3), Bytes(rows, 4), store.lastValueRow};
        key.written = std::max(key.written, static_cast<std::uint64_t>(Number(rows, 5)));
        bool isEqual = false;
        Value *added = AddValue(key, std::move(value), &isEqual);
        if (isEqual) equals->values.emplace_back(&key, added);
    }
}

// Hives have keys right below two roots only. A row whose key is no more is passed over.
void LoadHives(Store &store, Tree &tree) {
    const Rows rows = Select(Handle(store), "SELECT position, file, '' FROM hives UNION ALL "
                                            "SELECT position, '', old_file FROM replacements ORDER BY 1, 2 DESC");
    while (Next(rows)) {
        Key *found = nullptr;
        for (const std::uint32_t root : {HKEY_LOCAL_MACHINE, HKEY_USERS}) {
            for (const auto &key : tree.roots[root - HKEY_CLASSES_ROOT]->subKeys.inOrder) {
                if (key->row == Number(rows, 0)) found = key.get();
            }
        }
        if (found == nullptr) continue;
        if (tree.hives.empty() || tree.hives.back().key != found) tree.hives.push_back({found, Bytes(rows, 1), {}});
        if (const std::string oldFile = Bytes(rows, 2); !oldFile.empty()) tree.hives.back().oldFile = oldFile;
    }
}

} // namespace

void LoadTree(Store &store, Tree &tree) {
    Equals equals;
    LoadKeys(store, tree, &equals);
    LoadValues(store, tree, &equals);
    const Rows counters = Select(Handle(store), "SELECT last_number FROM counters");
    if (!Next(counters)) Damaged("no counters");
    tree.lastNumber = store.lastNumber = store.lastNumberInFile = Word(counters, 0);
    TellApart(store, equals);
    MoveIntoViews(store, tree);
    LoadHives(store, tree);
}
