// SPDX-License-Identifier: MIT
// hives: from file to tree and back, each in one group.
#include "tvregd/hives.h"

#include "tv/winreg.h"
#include "tvregd/graveyard.h"
#include "tvregd/hive_file.h"
#include "tvregd/planting.h"
#include "util/printable.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <utility>

namespace {

// --- what the daemon has open ---

bool IsSameFile(const std::string &a, const std::string &b) {
    struct stat first = {}, second = {};
    return stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

// Closing a descriptor of the database would release SQLite's locks on it.
bool IsOwnFile(const Registry &registry, const std::string &file) {
    const std::string database = registry.store->database.getFilename();
    return IsSameFile(file, database) || IsSameFile(file, database + "-wal") || IsSameFile(file, database + "-shm") ||
           IsSameFile(file, database + "-lock");
}

std::uint32_t ReadHive(const Registry &registry, const std::string &file, std::string *bytes, Tree *hive) {
    if (IsOwnFile(registry, file)) return ERROR_SHARING_VIOLATION; // 32
    if (const std::uint32_t rc = ReadHiveFile(file, bytes); rc != 0) return rc;
    return DecodeHive(*bytes, hive);
}

// --- content ---

// The keys and values of a hive on their way into the tree.
struct Content {
    std::vector<std::unique_ptr<Key>>
        keys; // with their values, each behind its parent, none of which it hangs below yet
    std::vector<std::unique_ptr<Value>> values; // of the key that they go to
};

std::uint32_t DepthBelow(const Key &key) {
    std::uint32_t depth = 0;
    for (const auto &subKey : key.subKeys.inOrder) {
        depth = std::max(depth, 1 + DepthBelow(*subKey));
    }
    return depth;
}

// Takes a hive's key apart. The recursion ends at maxKeyDepth. False when no number is left.
bool TakeApart(Tree &tree, Key &from, Key &parent, bool isVolatile, std::vector<std::unique_ptr<Key>> *keys) {
    for (auto &subKey : std::exchange(from.subKeys, {}).inOrder) {
        subKey->number = TakeNumber(tree);
        if (subKey->number == 0) return false;
        subKey->parent = &parent;
        subKey->isVolatile = isVolatile;
        Key &key = *keys->emplace_back(std::move(subKey));
        if (!TakeApart(tree, key, key, isVolatile, keys)) return false;
    }
    return true;
}

// Readies what a hive holds for its place below a key.
std::uint32_t Prepare(Registry &registry, Tree &hive, Key &to, Content *content) {
    Key &root = *hive.roots.front();
    if (to.depth + DepthBelow(root) > maxKeyDepth) return ERROR_INVALID_PARAMETER; // 87
    content->values = std::exchange(root.values, {}).inOrder;
    return TakeApart(registry.tree, root, to, to.isVolatile, &content->keys) ? 0 : ERROR_NOT_ENOUGH_MEMORY; // 8
}

void StoreContent(Store &store, const Key &to, const Content &content, std::uint64_t now) {
    for (const auto &value : content.values) {
        StoreValue(store, to, *value, now);
    }
    StoreKeys(store, content.keys);
    for (const auto &key : content.keys) {
        for (const auto &value : key->values.inOrder) {
            StoreValue(store, *key, *value, key->written);
        }
    }
}

void HangContent(Registry &registry, Key &to, Content content) {
    for (auto &value : content.values) {
        HangValue(registry, to, std::move(*value));
    }
    for (auto &key : content.keys) {
        Key &parent = *key->parent;
        (void)HangKey(registry, parent, std::move(key));
    }
}

// Puts a hive in the place of what a key has, in the open group or a new one.
//   alsoStore  what else goes to the database with it
template <typename Also>
std::uint32_t PutInPlace(Registry &registry, Key &key, Tree &hive, Also alsoStore) {
    Content content;
    if (const std::uint32_t rc = Prepare(registry, hive, key, &content); rc != 0) return rc;
    const std::uint64_t now = TimeOfChange();
    std::vector<bool> areErased;
    const auto store = [&] {
        for (const auto &value : key.values.inOrder) {
            EraseValue(*registry.store, *value);
        }
        for (const auto &subKey : key.subKeys.inOrder) {
            areErased.push_back(StoreDeleted(*registry.store, *subKey));
        }
        StoreContent(*registry.store, key, content, now);
        StoreTouched(*registry.store, key, now);
        alsoStore();
    };
    if (const std::uint32_t rc = WriteRows(registry, 0, store); rc != 0) return rc;
    TouchKey(registry, key, now);
    while (!key.values.inOrder.empty()) {
        TakeValueOut(registry, key, *key.values.inOrder.back());
    }
    for (; !key.subKeys.inOrder.empty(); areErased.pop_back()) {
        BuryKey(registry, *key.subKeys.inOrder.back(), areErased.back());
    }
    HangContent(registry, key, std::move(content));
    return 0;
}

// --- where hives can be ---

// Finds the root that a handle names, below which hives can be loaded.
std::uint32_t FindHiveRoot(Registry &registry, std::uint32_t handle, Key **root) {
    if (const std::uint32_t rc = OpenKey(registry, handle, {}, root); rc != 0) return rc;
    const std::uint32_t found = HandleOf(**root);
    return found == HKEY_LOCAL_MACHINE || found == HKEY_USERS ? 0 : ERROR_INVALID_PARAMETER;
}

bool CanBeReplaced(const Key &key) {
    if (key.parent == nullptr) return false;
    const std::uint32_t above = HandleOf(*key.parent);
    return above == HKEY_LOCAL_MACHINE || above == HKEY_USERS;
}

bool HasHiveBelow(const Tree &tree, const Key &key) {
    return std::any_of(tree.hives.begin(), tree.hives.end(),
                       [&](const Hive &hive) { return hive.key->parent == &key; });
}

std::vector<Hive> HivesWithout(const Tree &tree, const Key &key) {
    std::vector<Hive> hives = tree.hives;
    std::erase_if(hives, [&](const Hive &hive) { return hive.key == &key; });
    return hives;
}

bool IsLoaded(const Tree &tree, const std::string &file) {
    return std::any_of(tree.hives.begin(), tree.hives.end(), [&](const Hive &hive) { return hive.file == file; });
}

// Writes the files that a hive that goes leaves behind: its own, and where it has a replacement its old one.
std::uint32_t WriteFilesOf(Registry &registry, const Hive &hive) {
    std::string bytes;
    if (const std::uint32_t rc = EncodeHive(*hive.key, &bytes); rc != 0) return rc;
    if (hive.oldFile.empty()) return ReplaceHiveFile(hive.file, bytes);
    if (const std::uint32_t rc = ReplaceHiveFile(hive.oldFile, bytes); rc != 0) return rc;
    return ReplaceHiveFile(hive.file, ReadReplacement(*registry.store, *hive.key));
}

std::uint32_t MakeReplacement(Registry &registry, const Hive &hive) {
    std::string bytes;
    Tree content;
    if (const std::uint32_t rc = DecodeHive(ReadReplacement(*registry.store, *hive.key), &content); rc != 0) return rc;
    if (const std::uint32_t rc = EncodeHive(*hive.key, &bytes); rc != 0) return rc;
    if (const std::uint32_t rc = ReplaceHiveFile(hive.oldFile, bytes); rc != 0) return rc;
    Key &key = *hive.key;
    std::vector<Hive> hives = HivesWithout(registry.tree, key);
    if (!hive.file.empty()) hives.push_back({&key, hive.file, {}});
    if (const std::uint32_t rc = PutInPlace(registry, key, content, [&] { EraseReplacement(*registry.store, key); });
        rc != 0)
        return rc;
    SetHives(registry, std::move(hives));
    return CommitGroup(registry);
}

} // namespace

std::uint32_t SaveKey(Registry &registry, std::uint32_t handle, const std::string &file) {
    Key *key = nullptr;
    if (const std::uint32_t rc = OpenKey(registry, handle, {}, &key); rc != 0) return rc;
    std::string canonical, bytes;
    const std::uint32_t found = FindHiveFile(file, &canonical);
    if (found == 0) return ERROR_ALREADY_EXISTS; // 183
    if (found != ERROR_FILE_NOT_FOUND) return found;
    if (const std::uint32_t rc = EncodeHive(*key, &bytes); rc != 0) return rc;
    return CreateHiveFile(canonical, bytes);
}

std::uint32_t RestoreKey(Registry &registry, std::uint32_t handle, const std::string &file, std::uint32_t flags) {
    Key *key = nullptr;
    if (const std::uint32_t rc = OpenKey(registry, handle, {}, &key); rc != 0) return rc;
    if ((flags & ~(REG_FORCE_RESTORE | REG_NO_LAZY_FLUSH)) != 0) return ERROR_INVALID_PARAMETER;
    if (HasHiveBelow(registry.tree, *key)) return ERROR_ACCESS_DENIED; // 5
    std::string bytes;
    Tree hive;
    if (const std::uint32_t rc = ReadHive(registry, file, &bytes, &hive); rc != 0) return rc;
    if (const std::uint32_t rc = MakeShown(registry, &key); rc != 0) return rc;
    if (const std::uint32_t rc = PutInPlace(registry, *key, hive, [] {}); rc != 0) {
        (void)CommitGroup(registry); // what may have been made to be shown
        return rc;
    }
    if (const std::uint32_t rc = CommitGroup(registry); rc != 0) return rc;
    return PlantSeeds(registry);
}

std::uint32_t LoadHive(Registry &registry, std::uint32_t handle, std::string_view name, const std::string &file) {
    Key *root = nullptr;
    if (const std::uint32_t rc = FindHiveRoot(registry, handle, &root); rc != 0) return rc;
    if (name.find('\\') != std::string_view::npos) return ERROR_BAD_PATHNAME; // 161
    if (name.empty() || name.size() > maxKeyNameBytes) return ERROR_INVALID_PARAMETER;
    if (FindSubKey(*root, name) != nullptr) return ERROR_ALREADY_EXISTS;
    std::string canonical, bytes;
    if (const std::uint32_t rc = FindHiveFile(file, &canonical); rc != 0) return rc;
    if (IsLoaded(registry.tree, canonical)) return ERROR_SHARING_VIOLATION;
    Tree hive;
    if (const std::uint32_t rc = ReadHive(registry, canonical, &bytes, &hive); rc != 0) return rc;

    if (1 + DepthBelow(*hive.roots.front()) > maxKeyDepth) return ERROR_INVALID_PARAMETER;

    Key *key = nullptr;
    std::uint32_t disposition = 0;
    if (const std::uint32_t rc = CreateKey(registry, handle, name, hive.roots.front()->keyClass, 0, &key, &disposition);
        rc != 0)
        return rc;
    if (const std::uint32_t rc = PutInPlace(registry, *key, hive, [&] { StoreHive(*registry.store, *key, canonical); });
        rc != 0) {
        if (registry.group.isOpen) (void)AbandonGroup(registry, std::runtime_error("a hive cannot be loaded"));
        return rc;
    }
    std::vector<Hive> hives = registry.tree.hives;
    hives.push_back({key, canonical, {}});
    SetHives(registry, std::move(hives));
    return CommitGroup(registry);
}

std::uint32_t UnloadHive(Registry &registry, std::uint32_t handle, std::string_view name) {
    Key *root = nullptr;
    if (const std::uint32_t rc = FindHiveRoot(registry, handle, &root); rc != 0) return rc;
    Key *key = FindSubKey(*root, name);
    if (key == nullptr) return ERROR_FILE_NOT_FOUND; // 2
    const Hive *hive = HiveOf(registry.tree, *key);
    if (hive == nullptr || hive->file.empty()) return ERROR_INVALID_PARAMETER;
    if (const std::uint32_t rc = WriteFilesOf(registry, *hive); rc != 0) return rc;
    const std::uint64_t now = TimeOfChange();
    bool isErased = false;
    const auto store = [&] {
        isErased = StoreDeleted(*registry.store, *key);
        EraseHive(*registry.store, *key);
        StoreTouched(*registry.store, *root, now);
    };
    if (const std::uint32_t rc = WriteRows(registry, 0, store); rc != 0) return rc;
    TouchKey(registry, *root, now);
    SetHives(registry, HivesWithout(registry.tree, *key));
    BuryKey(registry, *key, isErased);
    return CommitGroup(registry);
}

std::uint32_t ReplaceHive(Registry &registry, std::uint32_t handle, std::string_view path, const std::string &newFile,
                          const std::string &oldFile) {
    Key *key = nullptr;
    if (const std::uint32_t rc = OpenKey(registry, handle, path, &key); rc != 0) return rc;
    if (!CanBeReplaced(*key)) return ERROR_INVALID_PARAMETER;
    std::string content, present, canonical;
    Tree hive;
    if (const std::uint32_t rc = ReadHive(registry, newFile, &content, &hive); rc != 0) return rc;
    if (key->depth + DepthBelow(*hive.roots.front()) > maxKeyDepth) return ERROR_INVALID_PARAMETER;
    const std::uint32_t found = FindHiveFile(oldFile, &canonical);
    if (found != ERROR_FILE_NOT_FOUND) return found == 0 ? static_cast<std::uint32_t>(ERROR_ALREADY_EXISTS) : found;
    if (const std::uint32_t rc = EncodeHive(*key, &present); rc != 0) return rc;
    if (const std::uint32_t rc = CreateHiveFile(canonical, present); rc != 0) return rc;

    std::uint32_t rc =
        WriteRows(registry, content.size(), [&] { StoreReplacement(*registry.store, *key, canonical, content); });
    if (rc == 0) {
        const Hive *before = HiveOf(registry.tree, *key);
        std::vector<Hive> hives = HivesWithout(registry.tree, *key);
        hives.push_back({key, before != nullptr ? before->file : std::string(), canonical});
        SetHives(registry, std::move(hives));
        rc = CommitGroup(registry);
    }
    if (rc != 0) (void)unlink(canonical.c_str());
    return rc;
}

void MakeReplacements(Registry &registry) {
    for (const Hive &hive : std::vector<Hive>(registry.tree.hives)) {
        if (hive.oldFile.empty()) continue;
        const std::uint32_t rc = MakeReplacement(registry, hive);
        if (rc == 0) continue;
        if (registry.group.isOpen) (void)AbandonGroup(registry, std::runtime_error("a key cannot be replaced"));
        (void)std::fprintf(stderr, "tvregd: %s is not replaced: error %u; its old content was to go to %s\n",
                           Printable(PathOf(*hive.key)).c_str(), rc, Printable(hive.oldFile).c_str());
    }
    registry.ended.reset(); // nobody waits yet
}
