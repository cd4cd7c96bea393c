// SPDX-License-Identifier: MIT
// key_values: typed values over the functions of winreg.h.
#include "svcapi/key_values.h"

#include "registry/value_data.h"
#include "tv/winerror.h"
#include "util/little_endian.h"
#include "util/string_list.h"

#include <cstring>

namespace {

// A whole value. A missing one is empty, and *isThere is false.
DWORD ReadValueOf(HKEY key, const char *name, DWORD wantedType, std::string *data, bool *isThere) {
    DWORD type = wantedType;
    const auto rc = static_cast<DWORD>(ReadValueData(key, name, &type, data));
    *isThere = rc == ERROR_SUCCESS;
    if (rc == ERROR_FILE_NOT_FOUND) return ERROR_SUCCESS;
    return rc == ERROR_SUCCESS && type != wantedType ? DWORD{ERROR_INVALID_DATA} : rc;
}

DWORD WriteValue(HKEY key, const char *name, DWORD type, const std::string &data) {
    return static_cast<DWORD>(RegSetValueExA(key, name, 0, type, reinterpret_cast<const BYTE *>(data.data()),
                                             static_cast<DWORD>(data.size())));
}

} // namespace

DWORD ReadTextValue(HKEY key, const char *name, std::string *text) {
    std::string data;
    bool isThere = false;
    const DWORD rc = ReadValueOf(key, name, REG_SZ, &data, &isThere);
    if (rc == ERROR_SUCCESS && isThere) text->assign(data, 0, strnlen(data.data(), data.size()));
    return rc;
}

DWORD ReadStringsValue(HKEY key, const char *name, std::vector<std::string> *strings) {
    std::string data;
    bool isThere = false;
    const DWORD rc = ReadValueOf(key, name, REG_MULTI_SZ, &data, &isThere);
    if (rc == ERROR_SUCCESS && isThere) *strings = SplitMultiString(data);
    return rc;
}

DWORD ReadNumberValue(HKEY key, const char *name, DWORD *number) {
    std::string data;
    bool isThere = false;
    const DWORD rc = ReadValueOf(key, name, REG_DWORD, &data, &isThere);
    if (rc != ERROR_SUCCESS || data.empty()) return rc;
    if (data.size() != dwordBytes) return ERROR_INVALID_DATA;
    *number = DwordAt(data.data());
    return ERROR_SUCCESS;
}

DWORD ReadBytesValue(HKEY key, const char *name, std::string *bytes) {
    std::string data;
    bool isThere = false;
    const DWORD rc = ReadValueOf(key, name, REG_BINARY, &data, &isThere);
    if (rc == ERROR_SUCCESS && isThere) *bytes = std::move(data);
    return rc;
}

DWORD WriteTextValue(HKEY key, const char *name, const std::string &text) {
    return WriteValue(key, name, REG_SZ, std::string(text.c_str(), text.size() + 1));
}

DWORD WriteStringsValue(HKEY key, const char *name, const std::vector<std::string> &strings) {
    return WriteValue(key, name, REG_MULTI_SZ, JoinMultiString(strings));
}

DWORD WriteNumberValue(HKEY key, const char *name, DWORD number) {
    std::string data(dwordBytes, '\0');
    PutDword(number, data.data());
    return WriteValue(key, name, REG_DWORD, data);
}

DWORD WriteBytesValue(HKEY key, const char *name, const std::string &bytes) {
    return WriteValue(key, name, REG_BINARY, bytes);
}

DWORD RemoveValue(HKEY key, const char *name) {
    const auto rc = static_cast<DWORD>(RegDeleteValueA(key, name));
    return rc == ERROR_FILE_NOT_FOUND ? DWORD{ERROR_SUCCESS} : rc;
}
