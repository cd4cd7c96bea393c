// SPDX-License-Identifier: MIT
// named_value: reading it.
#include "tvhost/named_value.h"

#include "registry/value_data.h"
#include "tv/winerror.h"
#include "util/win32_names.h"

#include <iterator>

namespace {

// The kernel takes no argument of more than 128 KiB and no more than a few MiB of all of them.
constexpr DWORD longestValueBytes = 4 * 1024 * 1024;

std::string TypeText(DWORD type) {
    constexpr const char *names[] = {"REG_NONE",   "REG_SZ",      "REG_EXPAND_SZ",
                                     "REG_BINARY", "REG_DWORD",   "REG_DWORD_BIG_ENDIAN",
                                     "REG_LINK",   "REG_MULTI_SZ"};
    return type < std::size(names) ? names[type] : "type " + std::to_string(type);
}

} // namespace

DWORD ReadNamedValue(HKEY key, const char *name, DWORD wantedType, std::string *data, std::string *problem) {
    DWORD type = wantedType, bytes = 0;
    auto rc = static_cast<DWORD>(RegQueryValueExA(key, name, nullptr, &type, nullptr, &bytes));
    if (rc == ERROR_SUCCESS && bytes <= longestValueBytes) {
        rc = static_cast<DWORD>(ReadValueData(key, name, &type, data));
    }
    if (rc == ERROR_FILE_NOT_FOUND) return rc;
    if (rc != ERROR_SUCCESS) {
        const char *word = Win32ErrorName(rc);
        *problem = std::string(name) + ": cannot be read: " + std::to_string(rc) + " " + (word != nullptr ? word : "");
        return rc;
    }
    if (type != wantedType) {
        *problem = std::string(name) + ": is a " + TypeText(type) + ", not a " + TypeText(wantedType);
        return ERROR_INVALID_DATA;
    }
    if (bytes > longestValueBytes) {
        *problem = std::string(name) + ": " + std::to_string(bytes) + " bytes are more than " +
                   std::to_string(longestValueBytes);
        return ERROR_INVALID_DATA;
    }
    return ERROR_SUCCESS;
}
