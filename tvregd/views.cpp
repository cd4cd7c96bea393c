// SPDX-License-Identifier: MIT
// views: finding what a root shows, and the move from databases in which it had content of its own.
#include "tvregd/views.h"

#include "tv/winreg.h"
#include "util/printable.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <utility>

namespace {

constexpr View views[] = {{HKEY_CLASSES_ROOT, HKEY_LOCAL_MACHINE, "Software\\Classes"},
                          {HKEY_CURRENT_USER, HKEY_USERS, ".Default"}};

Key &RootOf(const Tree &tree, std::uint32_t handle) { return *tree.roots[handle - HKEY_CLASSES_ROOT]; }

// Takes the first name off a path.
std::string_view TakeName(std::string_view *path) {
    const std::string_view name = path->substr(0, path->find('\\'));
    path->remove_prefix(std::min(name.size() + 1, path->size()));
    return name;
}

// --- the move ---

Key &MakeShown(Store &store, Tree &tree, const View &view) {
    Key *at = &RootOf(tree, view.shownBelow);
    for (std::string_view rest = view.path; !rest.empty();) {
        const std::string_view name = TakeName(&rest);
        Key *next = FindSubKey(*at, name);
        if (next == nullptr) {
            std::vector<std::unique_ptr<Key>> made;
            Key &key = *made.emplace_back(std::make_unique<Key>());
            key.number = TakeNumber(tree);
            if (key.number == 0) throw std::runtime_error("no room for another key");
            key.parent = at;
            key.name = name;
            key.written = FileTimeNow();
            StoreKeys(store, made);
            next = AddKey(tree, *at, std::move(made.front()));
        }
        at = next;
    }
    return *at;
}

// What hangs lower or higher than before. The database lists keys behind their parents.
void Place(Store &store, Key &key) {
    key.depth = key.parent->depth + 1;
    StoreKeyMoved(store, key);
    for (const auto &subKey : key.subKeys.inOrder) {
        Place(store, *subKey);
    }
}

void MoveValue(Store &store, Value value, Key &to) {
    const Value *other = FindValue(to, value.name);
    if (other != nullptr && other->type == value.type && other->data == value.data) {
        EraseValue(store, value);
        return;
    }
    if (other != nullptr) {
        const std::string old = value.name;
        value.name = NumberedName(old, [&](const std::string &name) { return FindValue(to, name) != nullptr; });
        (void)std::fprintf(stderr, "tvregd: in %s, another value has the name of %s, which is %s now\n",
                           Printable(PathOf(to)).c_str(), Printable(old).c_str(), Printable(value.name).c_str());
    }
    StoreValueMoved(store, value, to);
    (void)AddValue(to, std::move(value));
}

// Moves what a key has to another. This recursion and the other end at maxKeyDepth.
void MoveContent(Store &store, Tree &tree, Key &from, Key &to) {
    for (const auto &value : std::exchange(from.values, {}).inOrder) {
        MoveValue(store, std::move(*value), to);
    }
    for (auto &key : std::exchange(from.subKeys, {}).inOrder) {
        Key *present = FindSubKey(to, key->name);
        if (present == nullptr) {
            Place(store, *AddKey(tree, to, std::move(key)));
            continue;
        }
        if (!present->keyClass && key->keyClass) {
            present->keyClass = key->keyClass;
            StoreKeyClass(store, *present);
        }
        MoveContent(store, tree, *key, *present);
        EraseKey(store, *key);
        tree.byNumber[key->number] = nullptr;
    }
}

} // namespace

const View *ViewOf(const Key &key) {
    for (const View &view : views) {
        if (HandleOf(key) == view.root) return &view;
    }
    return nullptr;
}

Key &Shown(Registry &registry, Key &key) {
    const View *view = ViewOf(key);
    if (view == nullptr) return key;
    Key *at = &RootOf(registry.tree, view->shownBelow);
    for (std::string_view rest = view->path; !rest.empty();) {
        Look(registry, *at);
        at = FindSubKey(*at, TakeName(&rest));
        if (at == nullptr) return key;
    }
    return *at;
}

void MoveIntoViews(Store &store, Tree &tree) {
    for (const View &view : views) {
        Key &root = RootOf(tree, view.root);
        if (root.values.inOrder.empty() && root.subKeys.inOrder.empty()) continue;
        Begin(store);
        MoveContent(store, tree, root, MakeShown(store, tree, view));
        Commit(store);
    }
}
