// SPDX-License-Identifier: MIT
// registry_access: each call checked, each failure with the key that it is about.
#include "tvreg/registry_access.h"

#include "registry/key.h"
#include "registry/value_data.h"
#include "util/win32_names.h"

#include <fmt/format.h>

#include <algorithm>
#include <unordered_set>

namespace {

std::string Named(const KeyPath &key, const std::string &value) {
    return fmt::format("{}, value \"{}\"", KeyPathText(key), value);
}

HKEY OpenKey(const KeyPath &key) {
    HKEY opened = 0;
    Check(RegOpenKeyExA(key.root, key.path.c_str(), 0, KEY_ALL_ACCESS, &opened), KeyPathText(key));
    return opened;
}

struct KeyInfo {
    DWORD subKeys = 0, longestSubKey = 0, values = 0, longestName = 0, longestData = 0;
};

KeyInfo ReadInfo(HKEY opened, const KeyPath &key) {
    KeyInfo info;
    Check(RegQueryInfoKeyA(opened, nullptr, nullptr, nullptr, &info.subKeys, &info.longestSubKey, nullptr, &info.values,
                           &info.longestName, &info.longestData, nullptr, nullptr),
          KeyPathText(key));
    return info;
}

// --- enumerations: other programs may change a key while it is read, and the daemon may answer anything -------------

constexpr DWORD mostIdleAnswers = 1000;                // that tell nothing new
constexpr DWORD leastNameRoom = 64 * 1024;             // for names that are made meanwhile
constexpr DWORD mostNameRoom = 16 * 1024 * 1024;       // no name comes near it
constexpr DWORD firstDataRoom = 1024 * 1024;           // what is longer is asked for again
constexpr DWORD mostDataRoom = 1024u * 1024 * 1024;    // longer than any answer
constexpr int mostReadings = 4;                        // of a value that grows
constexpr std::ptrdiff_t mostKeysBelowEachOther = 512; // as deep as keys go

[[noreturn]] void FailWithoutEnd(const KeyPath &key) {
    throw Failure(EXIT_FAILED,
                  fmt::format("{}: what the registry daemon answers does not come to an end", KeyPathText(key)));
}

struct Enumeration {
    const KeyPath &key;
    HKEY opened;
    DWORD KeyInfo::*count; // what is enumerated
    DWORD told;            // how many there are
    DWORD index = 0;
    DWORD idleAnswers = 0;
    std::unordered_set<std::string> seen = {};
};

// Goes on behind an item. Returns whether it is a new one. Throws where the enumeration does not come to an end: it
// tells the same again and again, or more than there is.
bool PassItem(Enumeration &items, const std::string &name) {
    const bool isNew = items.seen.insert(name).second;
    if (items.index >= items.told) items.told = ReadInfo(items.opened, items.key).*items.count;
    const bool isIdle = !isNew || items.index >= items.told;
    if (isIdle && ++items.idleAnswers > mostIdleAnswers) FailWithoutEnd(items.key);
    ++items.index;
    return isNew;
}

std::string NameRoom(DWORD longest) { return std::string(std::clamp(longest, leastNameRoom, mostNameRoom) + 1, '\0'); }

std::vector<std::string> ReadSubKeys(HKEY opened, const KeyPath &key, const KeyInfo &info) {
    Enumeration items = {.key = key, .opened = opened, .count = &KeyInfo::subKeys, .told = info.subKeys};
    std::vector<std::string> names;
    std::string name = NameRoom(info.longestSubKey);
    for (;;) {
        auto size = static_cast<DWORD>(name.size());
        const LONG code = RegEnumKeyExA(opened, items.index, name.data(), &size, nullptr, nullptr, nullptr, nullptr);
        if (code == ERROR_NO_MORE_ITEMS) return names;
        Check(code, KeyPathText(key));
        if (name.front() == '\0') {
            throw Failure(EXIT_FAILED,
                          fmt::format("{}: the registry daemon answers a subkey without a name", KeyPathText(key)));
        }
        if (PassItem(items, name.c_str())) names.emplace_back(name.c_str());
    }
}

// One value. The room for data grows with what is there.
LONG EnumerateValue(HKEY opened, DWORD index, std::string *name, std::string *room, RegValue *value) {
    LONG code = ERROR_MORE_DATA;
    for (int reading = 0; code == ERROR_MORE_DATA && reading < mostReadings; ++reading) {
        auto nameSize = static_cast<DWORD>(name->size());
        auto dataSize = static_cast<DWORD>(room->size());
        name->front() = '\0'; // an empty name leaves it as it is
        code = RegEnumValueA(opened, index, name->data(), &nameSize, nullptr, &value->type,
                             reinterpret_cast<LPBYTE>(room->data()), &dataSize);
        if (code == ERROR_SUCCESS) value->data.assign(*room, 0, dataSize);
        if (code == ERROR_MORE_DATA && dataSize > room->size()) room->resize(std::min(dataSize, mostDataRoom));
    }
    value->name = name->c_str();
    return code;
}

std::vector<RegValue> ReadValues(HKEY opened, const KeyPath &key, const KeyInfo &info) {
    Enumeration items = {.key = key, .opened = opened, .count = &KeyInfo::values, .told = info.values};
    std::vector<RegValue> values;
    std::string name = NameRoom(info.longestName), room(firstDataRoom, '\0');
    for (;;) {
        RegValue value;
        const LONG code = EnumerateValue(opened, items.index, &name, &room, &value);
        if (code == ERROR_NO_MORE_ITEMS) return values;
        Check(code, KeyPathText(key));
        if (PassItem(items, value.name)) values.push_back(std::move(value));
    }
}

void WriteValue(HKEY opened, const KeyPath &key, const RegValue &value) {
    if (value.isDeleted) {
        const LONG code = RegDeleteValueA(opened, value.name.c_str());
        if (code != ERROR_FILE_NOT_FOUND) Check(code, Named(key, value.name));
        return;
    }
    Check(RegSetValueExA(opened, value.name.c_str(), 0, value.type, reinterpret_cast<const BYTE *>(value.data.data()),
                         static_cast<DWORD>(value.data.size())),
          Named(key, value.name));
}

void WriteKey(const RegKey &key) {
    HKEY opened = 0;
    DWORD disposition = 0;
    Check(RegCreateKeyExA(key.key.root, key.key.path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS,
                          nullptr, &opened, &disposition),
          KeyPathText(key.key));
    const KeyGuard guard(&opened);
    for (const RegValue &value : key.values) {
        WriteValue(opened, key.key, value);
    }
}

} // namespace

void Check(LONG code, const std::string &what) {
    if (code == ERROR_SUCCESS) return;
    const auto number = static_cast<std::uint32_t>(code);
    const char *name = Win32ErrorName(number), *text = Win32ErrorText(number);
    throw Failure(code == ERROR_FILE_NOT_FOUND       ? EXIT_NOT_FOUND
                  : code == ERROR_REGISTRY_IO_FAILED ? EXIT_UNREACHABLE
                                                     : EXIT_FAILED,
                  fmt::format("{}: {} {}: {}", what, number, name != nullptr ? name : "(unknown code)",
                              text != nullptr ? text : "the registry daemon refused"));
}

bool KeyExists(const KeyPath &key) {
    HKEY opened = 0;
    const LONG code = RegOpenKeyExA(key.root, key.path.c_str(), 0, KEY_ALL_ACCESS, &opened);
    if (code == ERROR_FILE_NOT_FOUND) return false;
    Check(code, KeyPathText(key));
    (void)RegCloseKey(opened);
    return true;
}

KeyContent ReadKey(const KeyPath &key) {
    HKEY opened = OpenKey(key);
    const KeyGuard guard(&opened);
    const KeyInfo info = ReadInfo(opened, key);
    return {ReadValues(opened, key, info), ReadSubKeys(opened, key, info)};
}

RegValue ReadValue(const KeyPath &key, const std::string &name) {
    HKEY opened = OpenKey(key);
    const KeyGuard guard(&opened);
    RegValue value;
    value.name = name;
    Check(ReadValueData(opened, name.c_str(), &value.type, &value.data), Named(key, name));
    return value;
}

void ForEachKey(const KeyPath &key, const std::function<void(const KeyPath &, KeyContent &)> &use) {
    std::vector<KeyPath> pending{key};
    while (!pending.empty()) {
        const KeyPath next = std::move(pending.back());
        pending.pop_back();
        if (std::count(next.path.begin(), next.path.end(), '\\') >= mostKeysBelowEachOther) FailWithoutEnd(next);
        KeyContent content = ReadKey(next);
        for (auto name = content.subKeys.rbegin(); name != content.subKeys.rend(); ++name) {
            pending.push_back(Below(next, *name));
        }
        use(next, content);
    }
}

std::vector<RegKey> ReadKeys(const KeyPath &key) {
    std::vector<RegKey> keys;
    ForEachKey(key, [&](const KeyPath &next, KeyContent &content) {
        keys.push_back({next, false, std::move(content.values)});
    });
    return keys;
}

void WriteKeys(const std::vector<RegKey> &keys) {
    for (const RegKey &key : keys) {
        if (!key.isDeleted) {
            WriteKey(key);
        } else if (KeyExists(key.key)) {
            DeleteKey(key.key);
        }
    }
}

void DeleteKey(const KeyPath &key) { Check(RegDeleteKeyA(key.root, key.path.c_str()), KeyPathText(key)); }

void DeleteValue(const KeyPath &key, const std::string &name) {
    HKEY opened = OpenKey(key);
    const KeyGuard guard(&opened);
    Check(RegDeleteValueA(opened, name.c_str()), Named(key, name));
}
