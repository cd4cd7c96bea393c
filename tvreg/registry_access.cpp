// SPDX-License-Identifier: MIT
// registry_access: each call checked, each failure with the key that it is about.
#include "tvreg/registry_access.h"

#include "registry/key.h"
#include "registry/value_data.h"
#include "util/win32_names.h"

#include <fmt/format.h>

#include <iterator>

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

std::vector<std::string> ReadSubKeys(HKEY opened, const KeyPath &key, const KeyInfo &info) {
    std::vector<std::string> names;
    std::string name;
    for (DWORD index = 0;; ++index) {
        DWORD size = info.longestSubKey + 1;
        name.assign(size, '\0');
        const LONG code = RegEnumKeyExA(opened, index, name.data(), &size, nullptr, nullptr, nullptr, nullptr);
        if (code == ERROR_NO_MORE_ITEMS) return names;
        Check(code, KeyPathText(key));
        names.emplace_back(name.c_str());
    }
}

std::vector<RegValue> ReadValues(HKEY opened, const KeyPath &key, const KeyInfo &info) {
    std::vector<RegValue> values;
    std::string name;
    for (DWORD index = 0;; ++index) {
        RegValue value;
        DWORD nameSize = info.longestName + 1, dataSize = info.longestData;
        name.assign(nameSize, '\0');
        value.data.assign(dataSize, '\0');
        const LONG code = RegEnumValueA(opened, index, name.data(), &nameSize, nullptr, &value.type,
                                        reinterpret_cast<LPBYTE>(value.data.data()), &dataSize);
        if (code == ERROR_NO_MORE_ITEMS) return values;
        Check(code, KeyPathText(key));
        value.name = name.c_str();
        value.data.resize(dataSize);
        values.push_back(std::move(value));
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

std::vector<RegKey> ReadKeys(const KeyPath &key) {
    std::vector<RegKey> keys;
    std::vector<KeyPath> pending{key};
    while (!pending.empty()) {
        const KeyPath next = std::move(pending.back());
        pending.pop_back();
        KeyContent content = ReadKey(next);
        for (auto name = content.subKeys.rbegin(); name != content.subKeys.rend(); ++name) {
            pending.push_back(Below(next, *name));
        }
        keys.push_back({next, false, std::move(content.values)});
    }
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
