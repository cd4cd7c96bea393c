// SPDX-License-Identifier: MIT
// service_registry: keys and values through the Reg* functions. A call that must not fail ends the test program.
#include "tests/support/service_registry.h"

#include "registry/key.h"
#include "servd/service_keys.h"
#include "tests/support/value_bytes.h"
#include "tv/winerror.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iomanip>
#include <ostream>

namespace {

void Require(LONG rc, const std::string &what) {
    if (rc == ERROR_SUCCESS) return;
    std::fprintf(stderr, "registry: %s answered %d\n", what.c_str(), rc);
    std::abort();
}

// 0 where there is no such key.
HKEY OpenKey(const std::string &path) {
    HKEY key = 0;
    const LONG rc = RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_ALL_ACCESS, &key);
    if (rc == ERROR_FILE_NOT_FOUND) return 0;
    Require(rc, "opening " + path);
    return key;
}

} // namespace

std::ostream &operator<<(std::ostream &out, const Value &value) {
    out << "type " << value.type << ", " << value.bytes.size() << " bytes:" << std::hex << std::setfill('0');
    for (char byte : value.bytes) {
        out << ' ' << std::setw(2) << static_cast<unsigned>(static_cast<unsigned char>(byte));
    }
    return out << std::dec;
}

Value AsNumber(DWORD number) { return {REG_DWORD, Dword(number)}; }
Value AsText(const std::string &text) { return {REG_SZ, Sz(text)}; }
Value AsMulti(const std::vector<std::string> &strings) { return {REG_MULTI_SZ, MultiSz(strings)}; }
Value AsBinary(const std::string &bytes) { return {REG_BINARY, bytes}; }

std::string Words(const std::vector<DWORD> &words) {
    return std::string(reinterpret_cast<const char *>(words.data()), words.size() * sizeof(DWORD));
}

std::string KeyPath(const std::string &service) { return std::string(servicesKeyPath) + '\\' + service; }
std::string TagOrderPath() { return tagOrderKeyPath; }

void PutKey(const std::string &path, const Values &values) {
    HKEY key = 0;
    DWORD disposition = 0;
    Require(
        RegCreateKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, &disposition),
        "creating " + path);
    const KeyGuard closeKey(&key);
    for (const auto &[name, value] : values) {
        Require(RegSetValueExA(key, name.c_str(), 0, value.type, reinterpret_cast<const BYTE *>(value.bytes.data()),
                               static_cast<DWORD>(value.bytes.size())),
                "setting " + name);
    }
}

bool HasKeyAt(const std::string &path) {
    HKEY key = OpenKey(path);
    if (key == 0) return false;
    Require(RegCloseKey(key), "closing " + path);
    return true;
}

void DropKey(const std::string &path, const std::string &name) {
    HKEY key = OpenKey(path);
    const KeyGuard closeKey(&key);
    Require(RegDeleteKeyA(key, name.c_str()), "deleting " + path + '\\' + name);
}

Values ValuesOf(const std::string &path) {
    HKEY key = OpenKey(path);
    if (key == 0) return {};
    const KeyGuard closeKey(&key);
    Values values;
    for (DWORD index = 0;; ++index) {
        char name[1024] = {};
        DWORD nameBytes = sizeof name;
        std::string data(65536, '\0');
        DWORD dataBytes = static_cast<DWORD>(data.size());
        DWORD type = 0;
        const LONG rc = RegEnumValueA(key, index, name, &nameBytes, nullptr, &type,
                                      reinterpret_cast<LPBYTE>(data.data()), &dataBytes);
        if (rc == ERROR_NO_MORE_ITEMS) return values;
        Require(rc, "enumerating the values of " + path);
        values[name] = {type, data.substr(0, dataBytes)};
    }
}

std::map<std::string, Values> ServicesInRegistry() {
    HKEY key = OpenKey(servicesKeyPath);
    if (key == 0) return {};
    const KeyGuard closeKey(&key);
    std::map<std::string, Values> services;
    for (DWORD index = 0;; ++index) {
        char name[1024] = {};
        DWORD nameBytes = sizeof name;
        const LONG rc = RegEnumKeyExA(key, index, name, &nameBytes, nullptr, nullptr, nullptr, nullptr);
        if (rc == ERROR_NO_MORE_ITEMS) return services;
        Require(rc, "enumerating the services");
        services[name] = ValuesOf(KeyPath(name));
    }
}

Values LoadableValues(const std::string &displayName, Values more, DWORD serviceType) {
    more.insert({{"DisplayName", AsText(displayName)},
                 {"Type", AsNumber(serviceType)},
                 {"Start", AsNumber(3)},
                 {"ErrorControl", AsNumber(1)}});
    return more;
}

void PutService(const std::string &name, const std::string &displayName, Values more, DWORD serviceType) {
    PutKey(KeyPath(name), LoadableValues(displayName, std::move(more), serviceType));
}
