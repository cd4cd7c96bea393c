// SPDX-License-Identifier: MIT
// tree: lists that are found by name.
#include "tvregd/tree.h"

#include "tv/winreg.h"

#include <algorithm>

// --- lists of entries with names ---

// Most lists are so short that looking through them takes no longer than a table would, and no memory.
static constexpr std::size_t searchedInOrder = 8;

template <typename Entry>
static void ForgetName(NamedList<Entry> &list, const Entry &entry) {
    if (list.byName) RemoveName(*list.byName, entry);
}

template <typename Entry>
static Entry *Find(const NamedList<Entry> &list, std::string_view name) {
    if (list.byName) return FindName(*list.byName, name);
    const auto found = std::find_if(list.inOrder.begin(), list.inOrder.end(),
                                    [&](const auto &entry) { return AreNamesEqual(entry->name, name); });
    return found != list.inOrder.end() ? found->get() : nullptr;
}

template <typename Entry>
static Entry *Insert(NamedList<Entry> &list, std::unique_ptr<Entry> entry, std::size_t index, bool *isNameTaken) {
    Entry *added = entry.get();
    if (isNameTaken != nullptr) *isNameTaken = !list.byName && Find(list, added->name) != nullptr;
    (void)list.inOrder.insert(list.inOrder.begin() + static_cast<std::ptrdiff_t>(index), std::move(entry));
    if (list.byName) {
        const bool isNew = AddName(*list.byName, *added);
        if (isNameTaken != nullptr) *isNameTaken = !isNew;
    } else if (list.inOrder.size() > searchedInOrder) {
        list.byName = std::make_unique<NameTable<Entry>>();
        for (const auto &listed : list.inOrder) {
            (void)AddName(*list.byName, *listed);
        }
    }
    return added;
}

// The last ones are looked at first: whatever empties a list does so from its end.
template <typename Entry>
static std::unique_ptr<Entry> TakeOut(NamedList<Entry> &list, Entry &entry, std::size_t *index) {
    ForgetName(list, entry);
    const auto found = std::find_if(list.inOrder.rbegin(), list.inOrder.rend(),
                                    [&](const auto &listed) { return listed.get() == &entry; });
    *index = static_cast<std::size_t>(list.inOrder.rend() - found) - 1;
    std::unique_ptr<Entry> taken = std::move(*found);
    (void)list.inOrder.erase(list.inOrder.begin() + static_cast<std::ptrdiff_t>(*index));
    return taken;
}

// --- numbers and handles ---

Tree MakeTree() {
    static constexpr const char *names[rootCount] = {
        "HKEY_CLASSES_ROOT",     "HKEY_CURRENT_USER",   "HKEY_LOCAL_MACHINE", "HKEY_USERS",
        "HKEY_PERFORMANCE_DATA", "HKEY_CURRENT_CONFIG", "HKEY_DYN_DATA"};
    Tree tree;
    tree.graveyard = std::make_unique<Key>();
    tree.byNumber.resize(rootCount + 1);
    for (const char *name : names) {
        auto root = std::make_unique<Key>();
        root->number = ++tree.lastNumber;
        root->row = root->number;
        root->name = name;
        tree.byNumber[root->number] = root.get();
        tree.roots.push_back(std::move(root));
    }
    return tree;
}

std::uint32_t HandleOf(const Key &key) {
    if (key.number <= rootCount) return HKEY_CLASSES_ROOT + (key.number - 1);
    return (key.number & 0xFFFFF) | (key.number >> 20) << 28;
}

static bool IsBuried(const Tree &tree, const Key &key) {
    if (tree.graveyard->subKeys.inOrder.empty()) return false;
    const Key *top = &key;
    while (top->parent != nullptr) {
        top = top->parent;
    }
    return top == tree.graveyard.get();
}

Key *FindNumber(const Tree &tree, std::uint32_t number) {
    return number < tree.byNumber.size() ? tree.byNumber[number] : nullptr;
}

std::uint32_t FindHandle(const Tree &tree, std::uint32_t handle, Key **key) {
    *key = nullptr;
    std::uint32_t number = 0;
    if ((handle & 0x80000000) != 0) {
        number = handle - HKEY_CLASSES_ROOT + 1;
        if (number > rootCount) return ERROR_INVALID_HANDLE; // 6
    } else {
        number = (handle & 0xFFFFF) | (handle >> 28) << 20;
        if ((handle & 0x0FF00000) != 0 || number <= rootCount) return ERROR_INVALID_HANDLE;
    }
    Key *found = FindNumber(tree, number);
    if (found == nullptr && number > tree.lastNumber && !tree.wrapped) return ERROR_INVALID_HANDLE;
    if (found == nullptr || IsBuried(tree, *found)) return ERROR_KEY_DELETED; // 1018
    *key = found;
    return 0;
}

std::uint32_t TakeNumber(Tree &tree) {
    for (std::uint32_t tried = rootCount; tried < maxKeyNumber; ++tried) {
        if (tree.lastNumber == maxKeyNumber) {
            tree.lastNumber = rootCount;
            tree.wrapped = true;
        }
        if (FindNumber(tree, ++tree.lastNumber) == nullptr) return tree.lastNumber;
    }
    return 0;
}

const Hive *HiveOf(const Tree &tree, const Key &key) {
    const auto found =
        std::find_if(tree.hives.begin(), tree.hives.end(), [&](const Hive &hive) { return hive.key == &key; });
    return found != tree.hives.end() ? &*found : nullptr;
}

// --- keys ---

std::string PathOf(const Key &key) { return key.parent != nullptr ? PathOf(*key.parent) + '\\' + key.name : key.name; }

Key *FindSubKey(const Key &key, std::string_view name) { return Find(key.subKeys, name); }

static void HangBelow(Tree &tree, Key &parent, Key &key) {
    key.parent = &parent;
    key.depth = parent.depth + 1;
    if (key.number >= tree.byNumber.size()) tree.byNumber.resize(key.number + 1);
    tree.byNumber[key.number] = &key;
}

Key *AddKey(Tree &tree, Key &parent, std::unique_ptr<Key> key, bool *isNameTaken) {
    HangBelow(tree, parent, *key);
    return Insert(parent.subKeys, std::move(key), parent.subKeys.inOrder.size(), isNameTaken);
}

void RemoveKey(Tree &tree, Key &key) {
    std::size_t index = 0;
    tree.byNumber[key.number] = nullptr;
    (void)TakeOut(key.parent->subKeys, key, &index);
}

// Names are nothing in the graveyard, where many may have the same: its list is kept without the table.
std::size_t BuryKey(Tree &tree, Key &key) {
    std::size_t index = 0;
    tree.graveyard->subKeys.inOrder.push_back(TakeOut(key.parent->subKeys, key, &index));
    key.parent = tree.graveyard.get();
    return index;
}

void AddBuriedKey(Tree &tree, std::unique_ptr<Key> key) {
    HangBelow(tree, *tree.graveyard, *key);
    tree.graveyard->subKeys.inOrder.push_back(std::move(key));
}

void DigUpKey(Tree &tree, Key &key, Key &parent, std::size_t index) {
    std::size_t grave = 0;
    std::unique_ptr<Key> taken = TakeOut(tree.graveyard->subKeys, key, &grave);
    key.parent = &parent;
    (void)Insert(parent.subKeys, std::move(taken), index, nullptr);
}

// --- values ---

Value *FindValue(const Key &key, std::string_view name) { return Find(key.values, name); }

Value *AddValue(Key &key, Value value, bool *isNameTaken) {
    return Insert(key.values, std::make_unique<Value>(std::move(value)), key.values.inOrder.size(), isNameTaken);
}

std::unique_ptr<Value> TakeOutValue(Key &key, Value &value, std::size_t *index) {
    return TakeOut(key.values, value, index);
}

void DropLastKey(Tree &tree, Key &key) {
    Key &last = *key.subKeys.inOrder.back();
    tree.byNumber[last.number] = nullptr;
    ForgetName(key.subKeys, last);
    key.subKeys.inOrder.pop_back();
}

void DropLastValue(Key &key) {
    ForgetName(key.values, *key.values.inOrder.back());
    key.values.inOrder.pop_back();
}

void PutValueBack(Key &key, std::unique_ptr<Value> value, std::size_t index) {
    (void)Insert(key.values, std::move(value), index, nullptr);
}
