// SPDX-License-Identifier: MIT
// registry_access: each call checked, each failure with the key that it is about.
#include "tvreg/registry_access.h"

#include "registry/key.h"
#include "registry/value_data.h"
#include "util/win32_names.h"

#include <fmt/format.h>

#include <cstdlib>

namespace {

std::string Named(const KeyPath &key, const std::string &value) {
    return fmt::format("{}, value \"{}\"", KeyPathText(key), value);
}

} // namespace

std::string CodeText(LONG code) {
    const auto number = static_cast<std::uint32_t>(code);
    const char *name = Win32ErrorName(number), *text = Win32ErrorText(number);
    return fmt::format("{} {}: {}", number, name != nullptr ? name : "(unknown code)",
                       text != nullptr ? text : "the registry daemon refused");
}

int StatusOf(LONG code) {
    switch (code) {
    case ERROR_SUCCESS: return EXIT_SUCCESS;
    case ERROR_FILE_NOT_FOUND: return EXIT_NOT_FOUND;
    case ERROR_REGISTRY_IO_FAILED: return EXIT_UNREACHABLE;
    default: return EXIT_FAILED;
    }
}

void Check(LONG code, const std::string &what) {
    if (code == ERROR_SUCCESS) return;
    throw Failure(StatusOf(code), fmt::format("{}: {}", what, CodeText(code)), static_cast<std::uint32_t>(code));
}

HKEY RootOf(const KeyPath &key) {
    HKEY root = key.root;
    if (!key.host.empty()) Check(RegConnectRegistryA(key.host.c_str(), key.root, &root), "\\\\" + key.host);
    return root;
}

HKEY OpenKey(const KeyPath &key) {
    HKEY opened = 0;
    Check(RegOpenKeyExA(RootOf(key), key.path.c_str(), 0, KEY_ALL_ACCESS, &opened), KeyPathText(key));
    return opened;
}

bool KeyExists(const KeyPath &key) {
    HKEY opened = 0;
    const LONG code = RegOpenKeyExA(RootOf(key), key.path.c_str(), 0, KEY_ALL_ACCESS, &opened);
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

void DeleteKey(const KeyPath &key) { Check(RegDeleteKeyA(RootOf(key), key.path.c_str()), KeyPathText(key)); }

void DeleteValue(const KeyPath &key, const std::string &name) {
    HKEY opened = OpenKey(key);
    const KeyGuard guard(&opened);
    Check(RegDeleteValueA(opened, name.c_str()), Named(key, name));
}
