// SPDX-License-Identifier: MIT
// operations: paths are followed in the tree, changes go to the store first.
#include "tvregd/operations.h"

#include "servd/limits.h"
#include "tv/winreg.h"
#include "tvregd/graveyard.h"
#include "tvregd/seeds.h"
#include "tvregd/views.h"

#include <algorithm>
#include <exception>

static_assert(maxKeyNameBytes == longestTextBytes); // what can be stored of a service's name, servd can read

namespace {

// Finds the key that a handle names and looks at it.
std::uint32_t FindKey(Registry &registry, std::uint32_t handle, Key **key) {
    const std::uint32_t rc = FindHandle(registry.tree, handle, key);
    if (rc == 0) {
        *key = &Shown(registry, **key);
        Look(registry, **key);
    }
    if (rc == ERROR_KEY_DELETED && registry.group.isOpen) registry.isProvisional = true; // perhaps just now
    return rc;
}

// Takes the first name off a path. False for an empty name.
bool TakeName(std::string_view *path, std::string_view *name) {
    const std::size_t length = std::min(path->find('\\'), path->size());
    *name = path->substr(0, length);
    path->remove_prefix(std::min(length + 1, path->size()));
    return length != 0;
}

// Follows a path from a key as far as it exists.
//   reached  the last key found
//   rest     what of the path is left, empty when all was found
std::uint32_t Walk(Registry &registry, std::uint32_t handle, std::string_view path, Key **reached,
                   std::string_view *rest) {
    if (const std::uint32_t rc = FindKey(registry, handle, reached); rc != 0) return rc;
    for (*rest = path; !rest->empty();) {
        std::string_view after = *rest, name;
        if (!TakeName(&after, &name)) return ERROR_BAD_PATHNAME; // 161
        Key *subKey = FindSubKey(**reached, name);
        if (subKey == nullptr) return 0;
        Look(registry, *subKey);
        *reached = subKey;
        *rest = after;
    }
    return 0;
}

// Makes the keys of a path, none of which exists below parent.
std::uint32_t MakeKeys(Tree &tree, Key &parent, std::string_view path, const std::optional<std::string> &keyClass,
                       bool isVolatile, std::vector<std::unique_ptr<Key>> *made) {
    if (parent.isVolatile && !isVolatile) return ERROR_CHILD_MUST_BE_VOLATILE; // 1021
    const std::uint64_t now = TimeOfChange();
    Key *above = &parent;
    for (std::string_view name; !path.empty();) {
        if (!TakeName(&path, &name)) return ERROR_BAD_PATHNAME;
        if (name.size() > maxKeyNameBytes || parent.depth + made->size() >= maxKeyDepth) {
            return ERROR_INVALID_PARAMETER; // 87
        }
        auto key = std::make_unique<Key>();
        key->number = TakeNumber(tree);
        if (key->number == 0) return ERROR_NOT_ENOUGH_MEMORY; // 8
        key->parent = above;
        key->name = name;
        key->keyClass = keyClass;
        key->isVolatile = isVolatile;
        key->written = now;
        above = made->emplace_back(std::move(key)).get();
    }
    return 0;
}

} // namespace

std::uint32_t MakeShown(Registry &registry, Key **key) {
    const View *view = ViewOf(**key);
    std::uint32_t disposition = 0;
    return view == nullptr ? 0 : CreateKey(registry, view->shownBelow, view->path, {}, 0, key, &disposition);
}

std::uint32_t OpenKey(Registry &registry, std::uint32_t handle, std::string_view path, Key **key) {
    std::string_view rest;
    if (const std::uint32_t rc = Walk(registry, handle, path, key, &rest); rc != 0) return rc;
    return rest.empty() ? 0 : ERROR_FILE_NOT_FOUND; // 2
}

std::uint32_t CreateKey(Registry &registry, std::uint32_t handle, std::string_view path,
                        const std::optional<std::string> &keyClass, std::uint32_t options, Key **key,
                        std::uint32_t *disposition) {
    *disposition = REG_OPENED_EXISTING_KEY;
    std::string_view rest;
    if (const std::uint32_t rc = Walk(registry, handle, path, key, &rest); rc != 0) return rc;
    if ((options & ~REG_OPTION_VOLATILE) != 0) return ERROR_INVALID_PARAMETER;
    if (rest.empty()) return 0;
    if (const std::uint32_t rc = MakeShown(registry, key); rc != 0) return rc;

    Key &parent = **key;
    std::vector<std::unique_ptr<Key>> made;
    if (const std::uint32_t rc = MakeKeys(registry.tree, parent, rest, keyClass, options != 0, &made); rc != 0) {
        return rc;
    }
    for (const auto &next : made) {
        for (Value &value : MissingSeeds(*next)) {
            (void)AddValue(*next, std::move(value));
        }
    }
    const auto store = [&] {
        StoreKeys(*registry.store, made);
        for (const auto &next : made) {
            for (const auto &value : next->values.inOrder) {
                StoreValue(*registry.store, *next, *value, next->written);
            }
        }
        StoreTouched(*registry.store, parent, made.front()->written);
    };
    if (const std::uint32_t rc = WriteRows(registry, rest.size(), store); rc != 0) return rc;
    TouchKey(registry, parent, made.front()->written);
    for (auto &next : made) {
        *key = HangKey(registry, **key, std::move(next));
    }
    *disposition = REG_CREATED_NEW_KEY;
    return 0;
}

std::uint32_t DeleteKey(Registry &registry, std::uint32_t handle, std::string_view path) {
    Key *key = nullptr;
    if (const std::uint32_t rc = OpenKey(registry, handle, path, &key); rc != 0) return rc;
    const bool isRoot = path.empty() && handle >= HKEY_CLASSES_ROOT;
    if (isRoot || HiveOf(registry.tree, *key) != nullptr) return ERROR_ACCESS_DENIED; // 5
    bool isErased = false;
    const std::uint64_t now = TimeOfChange();
    if (const std::uint32_t rc = WriteRows(registry, 0,
                                           [&] {
                                               isErased = StoreDeleted(*registry.store, *key);
                                               StoreTouched(*registry.store, *key->parent, now);
                                           });
        rc != 0) {
        return rc;
    }
    TouchKey(registry, *key->parent, now);
    BuryKey(registry, *key, isErased);
    return 0;
}

std::uint32_t CloseKey(Registry &registry, std::uint32_t handle) {
    Key *key = nullptr;
    const std::uint32_t rc = FindKey(registry, handle, &key);
    return rc == ERROR_KEY_DELETED ? 0 : rc; // 1018
}

std::uint32_t FlushKey(Registry &registry, std::uint32_t handle) {
    Key *key = nullptr;
    if (const std::uint32_t rc = FindKey(registry, handle, &key); rc != 0) return rc;
    if (registry.store->durability == Durability::full) {
        registry.isProvisional = registry.group.isOpen;
        return 0;
    }
    try {
        (void)CommitGroup(registry);
        SyncStore(*registry.store);
    } catch (const std::exception &failure) {
        TellTrouble(registry.trouble, "not on the disk", failure, FileTimeNow());
        return StatusOf(failure);
    }
    return 0;
}

std::uint32_t SubKeyAt(Registry &registry, std::uint32_t handle, std::uint32_t index, const Key **subKey) {
    Key *key = nullptr;
    if (const std::uint32_t rc = FindKey(registry, handle, &key); rc != 0) return rc;
    if (index >= key->subKeys.inOrder.size()) return ERROR_NO_MORE_ITEMS; // 259
    *subKey = key->subKeys.inOrder[index].get();
    Look(registry, **subKey);
    return 0;
}

std::uint32_t ValueAt(Registry &registry, std::uint32_t handle, std::uint32_t index, const Value **value) {
    Key *key = nullptr;
    if (const std::uint32_t rc = FindKey(registry, handle, &key); rc != 0) return rc;
    if (index >= key->values.inOrder.size()) return ERROR_NO_MORE_ITEMS;
    *value = key->values.inOrder[index].get();
    return 0;
}

std::uint32_t QueryValue(Registry &registry, std::uint32_t handle, std::string_view name, const Value **value) {
    Key *key = nullptr;
    if (const std::uint32_t rc = FindKey(registry, handle, &key); rc != 0) return rc;
    *value = FindValue(*key, name);
    return *value != nullptr ? 0 : ERROR_FILE_NOT_FOUND;
}

std::uint32_t SetValue(Registry &registry, std::uint32_t handle, std::string_view name, std::uint32_t type,
                       std::string_view data) {
    Key *key = nullptr;
    if (const std::uint32_t rc = FindKey(registry, handle, &key); rc != 0) return rc;
    if (name.size() > maxValueNameBytes) return ERROR_INVALID_PARAMETER;
    if (data.size() > maxValueBytes) return ERROR_FILE_TOO_LARGE; // 223
    if (const std::uint32_t rc = MakeShown(registry, &key); rc != 0) return rc;
    Value value{std::string(name), type, std::string(data)};
    Value *present = FindValue(*key, name);
    const std::uint64_t now = TimeOfChange();
    const auto write = [&] {
        if (present != nullptr) {
            StoreValueReplaced(*registry.store, *present, value, now);
        } else {
            StoreValue(*registry.store, *key, value, now);
        }
    };
    if (const std::uint32_t rc = WriteRows(registry, name.size() + data.size(), write); rc != 0) return rc;
    TouchKey(registry, *key, now);
    if (present != nullptr) {
        ReplaceValue(registry, *key, *present, std::move(value));
    } else {
        HangValue(registry, *key, std::move(value));
    }
    return 0;
}

std::uint32_t DeleteValue(Registry &registry, std::uint32_t handle, std::string_view name) {
    Key *key = nullptr;
    if (const std::uint32_t rc = FindKey(registry, handle, &key); rc != 0) return rc;
    Value *value = FindValue(*key, name);
    if (value == nullptr) return ERROR_FILE_NOT_FOUND;
    const std::uint64_t now = TimeOfChange();
    if (const std::uint32_t rc = WriteRows(registry, 0,
                                           [&] {
                                               EraseValue(*registry.store, *value);
                                               StoreTouched(*registry.store, *key, now);
                                           });
        rc != 0) {
        return rc;
    }
    TouchKey(registry, *key, now);
    TakeValueOut(registry, *key, *value);
    return 0;
}
