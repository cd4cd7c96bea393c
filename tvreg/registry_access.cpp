// SPDX-License-Identifier: MIT
// registry_access: each call checked, each failure with the key that it is about.
#include "tvreg/registry_access.h"

#include "registry/key.h"
#include "registry/value_data.h"
#include "util/win32_names.h"

#include <fmt/format.h>

namespace {

std::string Named(const KeyPath &key, const std::string &value) {
    return fmt::format("{}, value \"{}\"", KeyPathText(key), value);
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

HKEY OpenKey(const KeyPath &key) {
    HKEY opened = 0;
    Check(RegOpenKeyExA(key.root, key.path.c_str(), 0, KEY_ALL_ACCESS, &opened), KeyPathText(key));
    return opened;
}

void Check(LONG code, const std::string &what) {
    if (code == ERROR_SUCCESS) return;
    const auto number = static_cast<std::uint32_t>(code);
    const char *name = Win32ErrorName(number), *text = Win32ErrorText(number);
    throw Failure(code == ERROR_FILE_NOT_FOUND       ? EXIT_NOT_FOUND
                  : code == ERROR_REGISTRY_IO_FAILED ? EXIT_UNREACHABLE
                                                     : EXIT_FAILED,
                  fmt::format("{}: {} {}: {}", what, number, name != nullptr ? name : "(unknown code)",
                              text != nullptr ? text : "the registry daemon refused"),
                  number);
}

bool KeyExists(const KeyPath &key) {
    HKEY opened = 0;
    const LONG code = RegOpenKeyExA(key.root, key.path.c_str(), 0, KEY_ALL_ACCESS, &opened);
    if (code == ERROR_FILE_NOT_FOUND) return false;
    Check(code, KeyPathText(key));
    (void)RegCloseKey(opened);
    return true;
}

RegValue ReadValue(const KeyPath &key, const std::string &name) {
    HKEY opened = OpenKey(key);
    const KeyGuard guard(&opened);
    RegValue value;
    value.name = name;
    Check(ReadValueData(opened, name.c_str(), &value.type, &value.data), Named(key, name));
    return value;
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
