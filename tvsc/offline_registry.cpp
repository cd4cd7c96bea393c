// SPDX-License-Identifier: MIT
// offline_registry: keys in memory, and the four operations of the registry client that look at them.
//
// Thread: the operations run under the registry's mutex, one at a time.
#include "tvsc/offline_registry.h"

#include "registry/operations.h"
#include "tv/winerror.h"
#include "tvreg/reg_text.h"
#include "tvsc/export.h"

#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <iterator>

namespace {

struct FileKey {
    std::string name;
    std::vector<FileKey *> keys; // in the order of the file
    std::vector<RegValue> values;
};

std::deque<FileKey> keys; // the first is HKEY_LOCAL_MACHINE; a handle is a place among them, counted from 1

// As the daemon's registry does for ASCII; the names that the daemon reads are.
bool AreSame(std::string_view a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

FileKey *Child(const FileKey &key, std::string_view name) {
    const auto found = std::find_if(key.keys.begin(), key.keys.end(),
                                    [&](const FileKey *child) { return AreSame(child->name, name); });
    return found == key.keys.end() ? nullptr : *found;
}

// The key of a path below another one; null where it is missing and not to be made.
FileKey *Descend(FileKey *key, std::string_view path, bool make) {
    for (std::size_t begin = 0; key != nullptr && begin < path.size();) {
        const std::size_t end = std::min(path.find('\\', begin), path.size());
        const std::string_view name = path.substr(begin, end - begin);
        FileKey *child = Child(*key, name);
        if (child == nullptr && make) {
            child = &keys.emplace_back();
            child->name = name;
            key->keys.push_back(child);
        }
        key = child;
        begin = end + 1;
    }
    return key;
}

void RemoveKey(std::string_view path) {
    const std::size_t end = path.rfind('\\');
    FileKey *const parent =
        end == std::string_view::npos ? &keys.front() : Descend(&keys.front(), path.substr(0, end), false);
    if (parent != nullptr) std::erase(parent->keys, Child(*parent, path.substr(end + 1))); // npos + 1 is 0
}

void SetValue(FileKey *key, const RegValue &value) {
    std::erase_if(key->values, [&](const RegValue &old) { return AreSame(old.name, value.name); });
    if (!value.isDeleted) key->values.push_back(value);
}

FileKey *KeyOf(HKEY handle) {
    if (handle == HKEY_LOCAL_MACHINE) return &keys.front();
    const auto place = static_cast<std::size_t>(handle);
    return place >= 1 && place <= keys.size() ? &keys[place - 1] : nullptr;
}

HKEY HandleOf(const FileKey *key) {
    const auto found = std::find_if(keys.begin(), keys.end(), [&](const FileKey &one) { return &one == key; });
    return static_cast<HKEY>(found - keys.begin() + 1);
}

// Fills a caller's buffer.
LONG Fill(const std::string &data, void *buffer, LPDWORD bytes) {
    const DWORD room = bytes != nullptr ? *bytes : 0;
    if (bytes != nullptr) *bytes = static_cast<DWORD>(data.size());
    if (buffer == nullptr) return ERROR_SUCCESS;
    if (room < data.size()) return ERROR_MORE_DATA;
    std::memcpy(buffer, data.data(), data.size());
    return ERROR_SUCCESS;
}

LONG OpenFileKey(HKEY parent, LPCSTR path, DWORD /*options*/, REGSAM /*access*/, PHKEY opened) {
    FileKey *const key = KeyOf(parent);
    if (key == nullptr) return ERROR_INVALID_HANDLE;
    const FileKey *const found = Descend(key, path != nullptr ? path : "", false);
    if (found == nullptr) return ERROR_FILE_NOT_FOUND;
    *opened = HandleOf(found);
    return ERROR_SUCCESS;
}

LONG CloseFileKey(HKEY handle) { return KeyOf(handle) != nullptr ? ERROR_SUCCESS : ERROR_INVALID_HANDLE; }

LONG QueryFileValue(HKEY handle, LPCSTR name, LPDWORD /*reserved*/, LPDWORD type, LPBYTE data, LPDWORD bytes) {
    const FileKey *const key = KeyOf(handle);
    if (key == nullptr) return ERROR_INVALID_HANDLE;
    const std::string_view wanted = name != nullptr ? name : "";
    const auto found = std::find_if(key->values.begin(), key->values.end(),
                                    [&](const RegValue &value) { return AreSame(value.name, wanted); });
    if (found == key->values.end()) return ERROR_FILE_NOT_FOUND;
    if (type != nullptr) *type = found->type;
    return Fill(found->data, data, bytes);
}

LONG EnumFileKey(HKEY handle, DWORD index, LPSTR name, LPDWORD nameBytes, LPDWORD /*reserved*/, LPSTR /*className*/,
                 LPDWORD /*classBytes*/, PFILETIME /*written*/) {
    const FileKey *const key = KeyOf(handle);
    if (key == nullptr) return ERROR_INVALID_HANDLE;
    if (index >= key->keys.size()) return ERROR_NO_MORE_ITEMS;
    const std::string &found = key->keys[index]->name;
    if (*nameBytes <= found.size()) return ERROR_MORE_DATA;
    std::memcpy(name, found.c_str(), found.size() + 1);
    *nameBytes = static_cast<DWORD>(found.size());
    return ERROR_SUCCESS;
}

void TakeKey(const RegKey &key) {
    if (key.key.root != HKEY_LOCAL_MACHINE) return; // nothing that the daemon reads
    if (key.isDeleted) return RemoveKey(key.key.path);
    FileKey *const made = Descend(&keys.front(), key.key.path, true);
    for (const RegValue &value : key.values) {
        SetValue(made, value);
    }
}

} // namespace

bool TakeRegistryFile(const std::string &path, std::string *problem) {
    std::string text;
    std::vector<RegKey> read;
    errno = 0;
    if (!ReadTextFile(path, &text)) {
        *problem = path + ": " + (errno != 0 ? std::strerror(errno) : "cannot be read");
        return false;
    }
    const std::vector<RegTextError> errors = ReadRegText(text, &read);
    if (!errors.empty()) {
        *problem = path + ":" + std::to_string(errors.front().line) + ": " + errors.front().text;
        return false;
    }
    keys.clear();
    keys.emplace_back();
    for (const RegKey &key : read) {
        TakeKey(key);
    }
    _tvRegistryAPISet[0].reg_open_key_ex_a = OpenFileKey;
    _tvRegistryAPISet[0].reg_close_key = CloseFileKey;
    _tvRegistryAPISet[0].reg_query_value_ex_a = QueryFileValue;
    _tvRegistryAPISet[0].reg_enum_key_ex_a = EnumFileKey;
    return true;
}
