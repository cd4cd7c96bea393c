// SPDX-License-Identifier: MIT
// tree: lists that are found by name.
#include "tvregd/tree.h"

#include <algorithm>

static char LowerAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }

bool NoCaseLess::operator()(std::string_view a, std::string_view b) const {
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                        [](char x, char y) { return LowerAscii(x) < LowerAscii(y); });
}

template <typename Entry>
static Entry *Find(const NamedList<Entry> &list, std::string_view name) {
    const auto found = list.byName.find(name);
    return found != list.byName.end() ? found->second : nullptr;
}

template <typename Entry>
static Entry *Insert(NamedList<Entry> &list, std::unique_ptr<Entry> entry, std::size_t index) {
    Entry *added = entry.get();
    (void)list.inOrder.insert(list.inOrder.begin() + static_cast<std::ptrdiff_t>(index), std::move(entry));
    list.byName.emplace(added->name, added);
    return added;
}

template <typename Entry>
static std::unique_ptr<Entry> TakeOut(NamedList<Entry> &list, const Entry &entry, std::size_t *index) {
    list.byName.erase(entry.name);
    const auto found = std::find_if(list.inOrder.begin(), list.inOrder.end(),
                                    [&](const auto &listed) { return listed.get() == &entry; });
    *index = static_cast<std::size_t>(found - list.inOrder.begin());
    std::unique_ptr<Entry> taken = std::move(*found);
    list.inOrder.erase(found);
    return taken;
}

Tree MakeTree() {
    static constexpr const char *NAMES[ROOT_COUNT] = {
        "HKEY_CLASSES_ROOT",     "HKEY_CURRENT_USER",   "HKEY_LOCAL_MACHINE", "HKEY_USERS",
        "HKEY_PERFORMANCE_DATA", "HKEY_CURRENT_CONFIG", "HKEY_DYN_DATA"};
    Tree tree;
    for (const char *name : NAMES) {
        auto root = std::make_unique<Key>();
        root->number = ++tree.lastNumber;
        root->name = name;
        tree.byNumber.emplace(root->number, root.get());
        tree.roots.push_back(std::move(root));
    }
    return tree;
}

std::uint32_t HandleOf(const Key &key) {
    if (key.number <= ROOT_COUNT) return HKEY_CLASSES_ROOT + (key.number - 1);
    return (key.number & 0xFFFFF) | (key.number >> 20) << 28;
}

std::uint32_t FindHandle(const Tree &tree, std::uint32_t handle, Key **key) {
    *key = nullptr;
    std::uint32_t number = 0;
    if ((handle & 0x80000000) != 0) {
        number = handle - HKEY_CLASSES_ROOT + 1;
        if (number > ROOT_COUNT) return ERROR_INVALID_HANDLE; // 6
    } else {
        number = (handle & 0xFFFFF) | (handle >> 28) << 20;
        if ((handle & 0x0FF00000) != 0 || number <= ROOT_COUNT) return ERROR_INVALID_HANDLE;
    }
    const auto found = tree.byNumber.find(number);
    if (found == tree.byNumber.end())
        return number <= tree.lastNumber || tree.wrapped ? ERROR_KEY_DELETED : ERROR_INVALID_HANDLE; // 1018
    *key = found->second;
    return 0;
}

std::uint32_t TakeNumber(Tree &tree) {
    for (std::uint32_t tried = ROOT_COUNT; tried < MAX_KEY_NUMBER; ++tried) {
        if (tree.lastNumber == MAX_KEY_NUMBER) {
            tree.lastNumber = ROOT_COUNT;
            tree.wrapped = true;
        }
        if (!tree.byNumber.contains(++tree.lastNumber)) return tree.lastNumber;
    }
    return 0;
}

Key *FindSubKey(const Key &key, std::string_view name) { return Find(key.subKeys, name); }

Value *FindValue(const Key &key, std::string_view name) { return Find(key.values, name); }

Key *AddKey(Tree &tree, Key &parent, std::unique_ptr<Key> key) {
    key->parent = &parent;
    key->depth = parent.depth + 1;
    tree.byNumber.emplace(key->number, key.get());
    return Insert(parent.subKeys, std::move(key), parent.subKeys.inOrder.size());
}

// This recursion, the next and the destructor's end at MAX_DEPTH.
static void ForgetNumbers(Tree &tree, const Key &key) {
    for (const auto &subKey : key.subKeys.inOrder)
        ForgetNumbers(tree, *subKey);
    tree.byNumber.erase(key.number);
}

static void KnowNumbers(Tree &tree, Key &key) {
    tree.byNumber.emplace(key.number, &key);
    for (const auto &subKey : key.subKeys.inOrder)
        KnowNumbers(tree, *subKey);
}

std::unique_ptr<Key> TakeOutKey(Tree &tree, Key &key, std::size_t *index) {
    ForgetNumbers(tree, key);
    return TakeOut(key.parent->subKeys, key, index);
}

void PutKeyBack(Tree &tree, Key &parent, std::unique_ptr<Key> key, std::size_t index) {
    KnowNumbers(tree, *Insert(parent.subKeys, std::move(key), index));
}

Value *AddValue(Key &key, Value value) {
    return Insert(key.values, std::make_unique<Value>(std::move(value)), key.values.inOrder.size());
}

std::unique_ptr<Value> TakeOutValue(Key &key, Value &value, std::size_t *index) {
    return TakeOut(key.values, value, index);
}

void PutValueBack(Key &key, std::unique_ptr<Value> value, std::size_t index) {
    (void)Insert(key.values, std::move(value), index);
}
