// SPDX-License-Identifier: MIT
#include "tvregd/operations.h"

#include "util/printable.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <exception>

namespace {

// Now as a FILETIME: 100-nanosecond steps since 1601.
std::uint64_t FileTimeNow() {
    constexpr std::uint64_t SECONDS_1601_TO_1970 = 11'644'473'600;
    timespec now{};
    (void)clock_gettime(CLOCK_REALTIME, &now);
    return (static_cast<std::uint64_t>(now.tv_sec) + SECONDS_1601_TO_1970) * 10'000'000 +
           static_cast<std::uint64_t>(now.tv_nsec) / 100;
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
std::uint32_t Walk(const Registry &registry, std::uint32_t handle, std::string_view path, Key **reached,
                   std::string_view *rest) {
    if (const std::uint32_t rc = FindHandle(registry.tree, handle, reached); rc != 0) return rc;
    for (*rest = path; !rest->empty();) {
        std::string_view after = *rest, name;
        if (!TakeName(&after, &name)) return ERROR_BAD_PATHNAME; // 161
        Key *subKey = FindSubKey(**reached, name);
        if (subKey == nullptr) return 0;
        *reached = subKey;
        *rest = after;
    }
    return 0;
}

// Stores, and only then changes the tree, so that what is in memory is never more than what is on the disk.
template <typename Writes, typename Changes>
std::uint32_t Commit(Writes writes, Changes changes) {
    try {
        writes();
    } catch (const std::exception &failure) {
        (void)std::fprintf(stderr, "tvregd: not stored: %s\n", Printable(failure.what()).c_str());
        return ERROR_REGISTRY_IO_FAILED; // 1016
    }
    changes();
    return 0;
}

// Makes the keys of a path, none of which exists below parent.
std::uint32_t MakeKeys(Tree &tree, Key &parent, std::string_view path, const std::optional<std::string> &keyClass,
                       bool isVolatile, std::vector<std::unique_ptr<Key>> *made) {
    if (parent.isVolatile && !isVolatile) return ERROR_CHILD_MUST_BE_VOLATILE; // 1021
    const std::uint64_t now = FileTimeNow();
    Key *above = &parent;
    for (std::string_view name; !path.empty();) {
        if (!TakeName(&path, &name)) return ERROR_BAD_PATHNAME;
        if (name.size() > MAX_KEY_NAME || parent.depth + made->size() >= MAX_DEPTH)
            return ERROR_INVALID_PARAMETER; // 87
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

std::uint32_t OpenKey(const Registry &registry, std::uint32_t handle, std::string_view path, Key **key) {
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

    Key &parent = **key;
    std::vector<std::unique_ptr<Key>> made;
    if (const std::uint32_t rc = MakeKeys(registry.tree, parent, rest, keyClass, options != 0, &made); rc != 0)
        return rc;
    return Commit([&] { StoreKeys(*registry.store, made); },
                  [&] {
                      parent.written = made.front()->written;
                      for (auto &next : made)
                          *key = AddKey(registry.tree, **key, std::move(next));
                      *disposition = REG_CREATED_NEW_KEY;
                  });
}

std::uint32_t DeleteKey(Registry &registry, std::uint32_t handle, std::string_view path) {
    Key *key = nullptr;
    if (const std::uint32_t rc = OpenKey(registry, handle, path, &key); rc != 0) return rc;
    if (key->parent == nullptr) return ERROR_ACCESS_DENIED; // 5
    const std::uint64_t now = FileTimeNow();
    return Commit([&] { StoreKeyDeleted(*registry.store, *key, now); },
                  [&] {
                      key->parent->written = now;
                      RemoveKey(registry.tree, *key);
                  });
}

std::uint32_t CloseKey(const Registry &registry, std::uint32_t handle) {
    Key *key = nullptr;
    const std::uint32_t rc = FindHandle(registry.tree, handle, &key);
    return rc == ERROR_KEY_DELETED ? 0 : rc; // 1018
}

std::uint32_t FlushKey(Registry &registry, std::uint32_t handle) {
    Key *key = nullptr;
    if (const std::uint32_t rc = FindHandle(registry.tree, handle, &key); rc != 0) return rc;
    return Commit([&] { FlushStore(*registry.store); }, [] {});
}

std::uint32_t SubKeyAt(const Registry &registry, std::uint32_t handle, std::uint32_t index, const Key **subKey) {
    Key *key = nullptr;
    if (const std::uint32_t rc = FindHandle(registry.tree, handle, &key); rc != 0) return rc;
    if (index >= key->subKeys.inOrder.size()) return ERROR_NO_MORE_ITEMS; // 259
    *subKey = key->subKeys.inOrder[index].get();
    return 0;
}

std::uint32_t ValueAt(const Registry &registry, std::uint32_t handle, std::uint32_t index, const Value **value) {
    Key *key = nullptr;
    if (const std::uint32_t rc = FindHandle(registry.tree, handle, &key); rc != 0) return rc;
    if (index >= key->values.inOrder.size()) return ERROR_NO_MORE_ITEMS;
    *value = key->values.inOrder[index].get();
    return 0;
}

std::uint32_t QueryValue(const Registry &registry, std::uint32_t handle, std::string_view name, const Value **value) {
    Key *key = nullptr;
    if (const std::uint32_t rc = FindHandle(registry.tree, handle, &key); rc != 0) return rc;
    *value = FindValue(*key, name);
    return *value != nullptr ? 0 : ERROR_FILE_NOT_FOUND;
}

std::uint32_t SetValue(Registry &registry, std::uint32_t handle, std::string_view name, std::uint32_t type,
                       std::string_view data) {
    Key *key = nullptr;
    if (const std::uint32_t rc = FindHandle(registry.tree, handle, &key); rc != 0) return rc;
    if (name.size() > MAX_VALUE_NAME) return ERROR_INVALID_PARAMETER;
    Value value{std::string(name), type, std::string(data)};
    const std::uint64_t now = FileTimeNow();
    return Commit([&] { StoreValue(*registry.store, *key, value, now); },
                  [&] {
                      key->written = now;
                      if (Value *present = FindValue(*key, name); present != nullptr) {
                          present->type = type;
                          present->data = std::move(value.data);
                      } else {
                          (void)AddValue(*key, std::move(value));
                      }
                  });
}

std::uint32_t DeleteValue(Registry &registry, std::uint32_t handle, std::string_view name) {
    Key *key = nullptr;
    if (const std::uint32_t rc = FindHandle(registry.tree, handle, &key); rc != 0) return rc;
    Value *value = FindValue(*key, name);
    if (value == nullptr) return ERROR_FILE_NOT_FOUND;
    const std::uint64_t now = FileTimeNow();
    return Commit([&] { StoreValueDeleted(*registry.store, *key, *value, now); },
                  [&] {
                      key->written = now;
                      RemoveValue(*key, *value);
                  });
}
