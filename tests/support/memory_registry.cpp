// SPDX-License-Identifier: MIT
// memory_registry: a tree of keys, its operations for the dispatch table, and the list of calls.
#include "tests/support/memory_registry.h"

#include "registry/operations.h"

#include <strings.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <utility>

namespace {

bool ComesBefore(const std::string &a, const std::string &b) { return strcasecmp(a.c_str(), b.c_str()) < 0; }

struct Key {
    std::string name;
    std::string path;
    std::vector<std::shared_ptr<Key>> keys;                                                      // as they were made
    std::map<std::string, std::shared_ptr<Key>, decltype(&ComesBefore)> keysByName{ComesBefore}; // the same
    std::vector<std::pair<std::string, MemoryValue>> values;
};

struct Registry {
    std::shared_ptr<Key> root = std::make_shared<Key>();
    std::map<HKEY, std::shared_ptr<Key>> open;
    HKEY nextHandle = 1;
    std::vector<std::string> calls;
    std::map<std::size_t, LONG> failuresByNumber; // number of the call since the list began
    std::map<std::string, LONG> failuresByText;
};

Registry registry;
RegistryOperations rowBefore;

bool SameName(const std::string &a, const std::string &b) { return strcasecmp(a.c_str(), b.c_str()) == 0; }

std::shared_ptr<Key> FindChild(const Key &key, const std::string &name) {
    const auto found = key.keysByName.find(name);
    return found == key.keysByName.end() ? nullptr : found->second;
}

std::shared_ptr<Key> AddChild(Key &key, const std::string &name) {
    auto child = std::make_shared<Key>();
    child->name = name;
    child->path = key.path.empty() ? name : key.path + "\\" + name;
    key.keys.push_back(child);
    key.keysByName.emplace(name, child);
    return child;
}

bool RemoveChild(Key &key, const std::string &name) {
    const std::shared_ptr<Key> child = FindChild(key, name);
    if (child == nullptr) return false;
    std::erase(key.keys, child);
    key.keysByName.erase(name);
    return true;
}

auto FindValue(Key &key, const std::string &name) {
    return std::find_if(key.values.begin(), key.values.end(),
                        [&](const auto &value) { return SameName(value.first, name); });
}

// The key of a path below another one, null when it is missing and not to be made.
std::shared_ptr<Key> Descend(std::shared_ptr<Key> key, const std::string &path, bool make) {
    for (std::size_t begin = 0; begin < path.size();) {
        const std::size_t end = std::min(path.find('\\', begin), path.size());
        const std::string name = path.substr(begin, end - begin);
        std::shared_ptr<Key> child = FindChild(*key, name);
        if (child == nullptr && !make) return nullptr;
        key = child != nullptr ? child : AddChild(*key, name);
        begin = end + 1;
    }
    return key;
}

std::shared_ptr<Key> FindKey(const std::string &path) { return Descend(registry.root, path, false); }

void StoreValue(Key &key, const std::string &name, MemoryValue value) {
    const auto found = FindValue(key, name);
    if (found == key.values.end()) {
        key.values.emplace_back(name, std::move(value));
    } else {
        found->second = std::move(value);
    }
}

std::shared_ptr<Key> KeyOf(HKEY handle) {
    if (handle == HKEY_LOCAL_MACHINE) return registry.root;
    const auto open = registry.open.find(handle);
    return open == registry.open.end() ? nullptr : open->second;
}

std::string Text(LPCSTR text) { return text == nullptr ? "" : text; }

std::string PathOf(HKEY handle) {
    const std::shared_ptr<Key> key = KeyOf(handle);
    return key == nullptr ? "?" : key->path;
}

std::string PathBelow(HKEY handle, LPCSTR subKey) {
    const std::string path = PathOf(handle);
    const std::string below = Text(subKey);
    return path.empty() || below.empty() ? path + below : path + "\\" + below;
}

std::string WithAccess(const std::string &call, REGSAM access) {
    return access == KEY_ALL_ACCESS ? call : call + " access " + std::to_string(access);
}

// Notes a call. Returns the code with which it is to fail, 0 when it is to be carried out.
LONG Note(const std::string &call) {
    registry.calls.push_back(call);
    const auto byNumber = registry.failuresByNumber.find(registry.calls.size());
    if (byNumber != registry.failuresByNumber.end()) return byNumber->second;
    const auto byText = registry.failuresByText.find(call);
    return byText == registry.failuresByText.end() ? ERROR_SUCCESS : byText->second;
}

HKEY OpenHandle(const std::shared_ptr<Key> &key) {
    registry.open.emplace(registry.nextHandle, key);
    return registry.nextHandle++;
}

// --- the operations ---

LONG CloseKey(HKEY hKey) {
    if (const LONG code = Note("close " + PathOf(hKey)); code != 0) return code;
    return registry.open.erase(hKey) == 1 ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}

LONG OpenKeyEx(HKEY hKey, LPCSTR subKey, DWORD, REGSAM access, PHKEY result) {
    if (const LONG code = Note(WithAccess("open " + PathBelow(hKey, subKey), access)); code != 0) return code;
    const std::shared_ptr<Key> parent = KeyOf(hKey);
    if (parent == nullptr) return ERROR_INVALID_HANDLE;
    const std::shared_ptr<Key> key = Descend(parent, Text(subKey), false);
    if (key == nullptr) return ERROR_FILE_NOT_FOUND;
    *result = OpenHandle(key);
    return ERROR_SUCCESS;
}

LONG CreateKeyEx(HKEY hKey, LPCSTR subKey, DWORD, LPSTR keyClass, DWORD options, REGSAM access, LPSECURITY_ATTRIBUTES,
                 PHKEY result, LPDWORD disposition) {
    std::string call = WithAccess("create " + PathBelow(hKey, subKey), access);
    if (keyClass != nullptr) call += std::string(" class ") + keyClass;
    if (options != 0) call += " options " + std::to_string(options);
    if (const LONG code = Note(call); code != 0) return code;
    const std::shared_ptr<Key> parent = KeyOf(hKey);
    if (parent == nullptr) return ERROR_INVALID_HANDLE;
    const bool existed = Descend(parent, Text(subKey), false) != nullptr;
    *result = OpenHandle(Descend(parent, Text(subKey), true));
    if (disposition != nullptr) *disposition = existed ? REG_OPENED_EXISTING_KEY : REG_CREATED_NEW_KEY;
    return ERROR_SUCCESS;
}

LONG DeleteKey(HKEY hKey, LPCSTR subKey) {
    if (const LONG code = Note("delete " + PathBelow(hKey, subKey)); code != 0) return code;
    const std::shared_ptr<Key> parent = KeyOf(hKey);
    if (parent == nullptr) return ERROR_INVALID_HANDLE;
    return RemoveChild(*parent, Text(subKey)) ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
}

LONG EnumKeyEx(HKEY hKey, DWORD index, LPSTR name, LPDWORD nameBytes, LPDWORD, LPSTR, LPDWORD, PFILETIME) {
    if (const LONG code = Note("enum " + PathOf(hKey) + " " + std::to_string(index)); code != 0) return code;
    const std::shared_ptr<Key> key = KeyOf(hKey);
    if (key == nullptr) return ERROR_INVALID_HANDLE;
    if (index >= key->keys.size()) return ERROR_NO_MORE_ITEMS;
    const std::string &found = key->keys[index]->name;
    if (found.size() >= *nameBytes) return ERROR_MORE_DATA;
    std::strcpy(name, found.c_str());
    *nameBytes = static_cast<DWORD>(found.size());
    return ERROR_SUCCESS;
}

// For tests that look at a whole key.
LONG EnumValue(HKEY hKey, DWORD index, LPSTR name, LPDWORD nameBytes, LPDWORD, LPDWORD type, LPBYTE data,
               LPDWORD bytes) {
    if (const LONG code = Note("enum values " + PathOf(hKey) + " " + std::to_string(index)); code != 0) return code;
    const std::shared_ptr<Key> key = KeyOf(hKey);
    if (key == nullptr) return ERROR_INVALID_HANDLE;
    if (index >= key->values.size()) return ERROR_NO_MORE_ITEMS;
    const auto &[found, value] = key->values[index];
    if (found.size() >= *nameBytes || value.data.size() > *bytes) return ERROR_MORE_DATA;
    std::strcpy(name, found.c_str());
    *nameBytes = static_cast<DWORD>(found.size());
    *type = value.type;
    std::memcpy(data, value.data.data(), value.data.size());
    *bytes = static_cast<DWORD>(value.data.size());
    return ERROR_SUCCESS;
}

LONG QueryValueEx(HKEY hKey, LPCSTR name, LPDWORD, LPDWORD type, LPBYTE data, LPDWORD bytes) {
    const std::string call = data == nullptr ? "size " : "query ";
    if (const LONG code = Note(call + PathOf(hKey) + " " + Text(name)); code != 0) return code;
    if (data != nullptr && bytes == nullptr) return ERROR_INVALID_PARAMETER;
    const std::shared_ptr<Key> key = KeyOf(hKey);
    if (key == nullptr) return ERROR_INVALID_HANDLE;
    const auto found = FindValue(*key, Text(name));
    if (found == key->values.end()) return ERROR_FILE_NOT_FOUND;
    const MemoryValue &value = found->second;
    const DWORD room = bytes == nullptr ? 0 : *bytes;
    if (type != nullptr) *type = value.type;
    if (bytes != nullptr) *bytes = static_cast<DWORD>(value.data.size());
    if (data == nullptr) return ERROR_SUCCESS;
    if (value.data.size() > room) return ERROR_MORE_DATA;
    std::memset(data, 0, room);
    std::memcpy(data, value.data.data(), value.data.size());
    return ERROR_SUCCESS;
}

LONG SetValueEx(HKEY hKey, LPCSTR name, DWORD, DWORD type, const BYTE *data, DWORD bytes) {
    if (const LONG code = Note("set " + PathOf(hKey) + " " + Text(name)); code != 0) return code;
    if (data == nullptr) return ERROR_INVALID_PARAMETER;
    const std::shared_ptr<Key> key = KeyOf(hKey);
    if (key == nullptr) return ERROR_INVALID_HANDLE;
    StoreValue(*key, Text(name), {type, std::string(reinterpret_cast<const char *>(data), bytes)});
    return ERROR_SUCCESS;
}

LONG DeleteValue(HKEY hKey, LPCSTR name) {
    if (const LONG code = Note("unset " + PathOf(hKey) + " " + Text(name)); code != 0) return code;
    const std::shared_ptr<Key> key = KeyOf(hKey);
    if (key == nullptr) return ERROR_INVALID_HANDLE;
    const auto found = FindValue(*key, Text(name));
    if (found == key->values.end()) return ERROR_FILE_NOT_FOUND;
    key->values.erase(found);
    return ERROR_SUCCESS;
}

void EmptyGroupList(GroupListEntry **list, std::int32_t *size) {
    for (std::int32_t index = 0; index < *size; index++) {
        std::free((*list)[index].name);
        for (GroupMember *member = (*list)[index].members; member != nullptr;) {
            std::free(std::exchange(member, member->next));
        }
    }
    std::free(*list);
    *list = nullptr;
    *size = 0;
}

} // namespace

void InstallMemoryRegistry() {
    registry = {};
    rowBefore = _tvRegistryAPISet[0];
    RegistryOperations row = {};
    row.reg_close_key = CloseKey;
    row.reg_create_key_ex_a = CreateKeyEx;
    row.reg_delete_key_a = DeleteKey;
    row.reg_delete_value_a = DeleteValue;
    row.reg_enum_key_ex_a = EnumKeyEx;
    row.reg_enum_value_a = EnumValue;
    row.reg_open_key_ex_a = OpenKeyEx;
    row.reg_query_value_ex_a = QueryValueEx;
    row.reg_set_value_ex_a = SetValueEx;
    _tvRegistryAPISet[0] = row;
}

void RemoveMemoryRegistry() { _tvRegistryAPISet[0] = rowBefore; }

void MakeKey(const std::string &path) { (void)Descend(registry.root, path, true); }

void RemoveKey(const std::string &path) {
    const std::size_t end = path.rfind('\\');
    const std::shared_ptr<Key> parent = end == std::string::npos ? registry.root : FindKey(path.substr(0, end));
    if (parent != nullptr) (void)RemoveChild(*parent, end == std::string::npos ? path : path.substr(end + 1));
}

bool HasKey(const std::string &path) { return FindKey(path) != nullptr; }

void SetValue(const std::string &path, const std::string &name, DWORD type, const std::string &data) {
    StoreValue(*Descend(registry.root, path, true), name, {type, data});
}

void SetText(const std::string &path, const std::string &name, const std::string &text) {
    SetValue(path, name, REG_SZ, text + '\0');
}

void SetNumber(const std::string &path, const std::string &name, DWORD number) {
    SetValue(path, name, REG_DWORD, Dword(number));
}

void SetTexts(const std::string &path, const std::string &name, const std::vector<std::string> &texts) {
    SetValue(path, name, REG_MULTI_SZ, MultiSz(texts));
}

void RemoveValue(const std::string &path, const std::string &name) {
    const std::shared_ptr<Key> key = FindKey(path);
    if (key == nullptr) return;
    if (const auto found = FindValue(*key, name); found != key->values.end()) key->values.erase(found);
}

std::optional<MemoryValue> GetValue(const std::string &path, const std::string &name) {
    const std::shared_ptr<Key> key = FindKey(path);
    if (key == nullptr) return std::nullopt;
    const auto found = FindValue(*key, name);
    return found == key->values.end() ? std::nullopt : std::optional(found->second);
}

const std::vector<std::string> &RegistryCalls() { return registry.calls; }

void ForgetCalls() {
    registry.calls.clear();
    registry.failuresByNumber.clear();
}

std::vector<std::string> OpenKeys() {
    std::vector<std::string> paths;
    for (const auto &[handle, key] : registry.open) {
        paths.push_back(key->path);
    }
    return paths;
}

void FailNthCall(int n, LONG code) {
    registry.failuresByNumber[registry.calls.size() + static_cast<std::size_t>(n)] = code;
}

void FailCalls(const std::string &call, LONG code) { registry.failuresByText[call] = code; }

void InstallService(const std::string &name, const ServiceValues &values) {
    const std::string path = ServicePath(name);
    MakeKey(path);
    if (values.type) SetNumber(path, "Type", *values.type);
    if (values.start) SetNumber(path, "Start", *values.start);
    SetText(path, "DisplayName", values.displayName.value_or(name + " service"));
    if (values.imagePath) SetText(path, "ImagePath", *values.imagePath);
    if (values.group) SetText(path, "Group", *values.group);
    if (values.tag) SetNumber(path, "Tag", *values.tag);
    if (!values.dependencies.empty()) SetTexts(path, "DependOnGroup", values.dependencies);
    if (values.account) SetText(path, "DependOnService", *values.account);
}

void EmptyServiceDatabase() {
    for (std::int32_t index = 0; index < svcdbsize; index++) {
        SetServiceName(index, nullptr);
        SetServiceDisplayName(index, nullptr);
    }
    std::free(svcdb);
    svcdb = nullptr;
    svcdbsize = 0;
    EmptyGroupList(&grouplist, &grouplistsize);
    EmptyGroupList(&imagepathlist, &imagepathlistsize);
    std::free(svcdblock.owner);
    svcdblock = {};
    firstunorderedgroupindex = 0;
}

std::string ServiceNames() {
    std::string text;
    for (std::int32_t index = 0; index < svcdbsize; index++) {
        if (svcdb[index].name != nullptr) {
            text += (text.empty() ? "" : " ") + std::to_string(index) + ":" + svcdb[index].name;
        }
    }
    return text;
}

std::vector<std::string> MembersOf(const GroupListEntry *list, std::int32_t size, const std::string &name) {
    const std::int32_t index = GetGroupIndexFromName(list, &size, name.c_str());
    if (index < 0) return {"(no entry)"};
    std::vector<std::string> names;
    for (const GroupMember *member = list[index].members; member != nullptr; member = member->next) {
        const char *service = svcdb[member->serviceIndex].name;
        names.emplace_back(service == nullptr ? "(free)" : service);
    }
    return names;
}
