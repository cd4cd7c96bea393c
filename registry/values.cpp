// SPDX-License-Identifier: MIT
// values: query, set, enumerate and delete values.
//
// Value data are counted bytes and are never interpreted, except that reg_set_value_a takes a string. The wide forms
// convert nothing: names are left out, and only data that are no strings reach the caller. Deliberate, each as its line
// says. A copy into the caller's buffer never exceeds the size that the caller gave for it.
// Thread: under tvRegistryMutex.
#include "registry/operation.h"
#include "util/guard.h"

#include <cstring>

namespace {

// A data buffer of a wide form; malloc memory of at least one byte.
using HeapBytes = std::unique_ptr<BYTE, Calls<&std::free>>;
HeapBytes AllocateBytes(DWORD bytes) {
    return HeapBytes(static_cast<BYTE *>(std::calloc(1, std::max<DWORD>(bytes, 1))));
}

bool IsStringType(DWORD type) { return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ; }

// Enumerates; the name goes nowhere when its buffer is null. An empty name leaves the buffer as it is.
// Deliberate: the name is copied whole. The size of the buffer was sent, and honouring it is the daemon's work.
LONG EnumValue(HKEY hKey, DWORD dwIndex, LPSTR lpValueName, LPDWORD lpcValueName, LPDWORD lpType, LPBYTE lpData,
               LPDWORD lpcbData) {
    const regd_REG_ENUM_VALUE argument = {
        .index = dwIndex, .nameBytes = SizeOrZero(lpcValueName), .dataBytes = SizeOrZero(lpcbData)};
    return AskDaemon(reg_enum_value_2, hKey, argument, [=](const regd_REG_ENUM_VALUE_RETURN &reply, int) {
        if (lpValueName != nullptr && reply.nameLength != 0) std::strcpy(lpValueName, reply.name);
        StoreIfGiven(lpcValueName, reply.nameLength);
        if (lpData != nullptr && lpcbData != nullptr) {
            CopyBytes(lpData, std::min(*lpcbData, reply.dataBytes), reply.data);
        }
        StoreIfGiven(lpcbData, reply.dataBytes);
        StoreIfGiven(lpType, reply.type);
        return reply.status;
    });
}

} // namespace

// The data are copied whatever the status is.
LONG reg_query_value_a(HKEY hKey, LPCSTR lpSubKey, LPSTR lpValue, LONG *lpcbValue) {
    if (lpcbValue == nullptr) return ERROR_INVALID_PARAMETER;
    const regd_REG_QUERY_VALUE argument = {.subKey = NameOrPlaceholder(lpSubKey),
                                           .dataBytes = static_cast<DWORD>(*lpcbValue),
                                           .subKeyIsNull = IsNullFlag(lpSubKey),
                                           .dataIsNull = NullPointerFlag(lpValue)};
    return AskDaemon(reg_query_value_2, hKey, argument, [=](const regd_REG_QUERY_VALUE_RETURN &reply, int) {
        const DWORD room = static_cast<DWORD>(std::max(*lpcbValue, 0));
        if (lpValue != nullptr) CopyBytes(lpValue, room, reply.data);
        *lpcbValue = static_cast<LONG>(reply.dataBytes);
        return reply.status;
    });
}

// Deliberate: the size comes back, the value does not; the key's unnamed value is asked for.
LONG reg_query_value_w(HKEY hKey, LPCWSTR, LPWSTR lpValue, LONG *lpcbValue) {
    const bool wanted = lpValue != nullptr && lpcbValue != nullptr && *lpcbValue > 0;
    const DWORD narrowBytes = wanted ? 2 * static_cast<DWORD>(*lpcbValue) : 0;
    const HeapBytes narrow = wanted ? AllocateBytes(narrowBytes) : nullptr;
    LONG size = static_cast<LONG>(narrowBytes);
    const LONG rc = reg_query_value_a(hKey, nullptr, reinterpret_cast<LPSTR>(narrow.get()), &size);
    if (lpcbValue != nullptr) *lpcbValue = size;
    return rc;
}

LONG reg_query_value_ex_a(HKEY hKey, LPCSTR lpValueName, LPDWORD, LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData) {
    if (lpData != nullptr && lpcbData == nullptr) return ERROR_INVALID_PARAMETER;
    const DWORD room = lpData != nullptr ? *lpcbData : 0;
    const regd_REG_QUERY_VALUE_EX argument = QueryValueRequest(lpValueName, lpData, room);
    return AskDaemon(reg_query_value_ex_2, hKey, argument, [=](const regd_REG_QUERY_VALUE_RETURN &reply, int) {
        StoreQueriedValue(reply, lpData, room, lpType, lpcbData);
        return reply.status;
    });
}

// Deliberate: the key's unnamed value is asked for, and strings are not copied.
LONG reg_query_value_ex_w(HKEY hKey, LPCWSTR, LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData) {
    const DWORD room = SizeOrZero(lpcbData);
    const DWORD narrowBytes = 2 * room;
    const HeapBytes narrow = room != 0 ? AllocateBytes(narrowBytes) : nullptr;
    DWORD type = lpType != nullptr ? *lpType : REG_NONE;
    DWORD size = narrowBytes;
    const LONG rc = reg_query_value_ex_a(hKey, nullptr, lpReserved, &type, narrow.get(), &size);
    if (rc == ERROR_SUCCESS && narrow != nullptr && lpData != nullptr && !IsStringType(type)) {
        std::memcpy(lpData, narrow.get(), std::min({size, narrowBytes, room}));
    }
    StoreIfGiven(lpcbData, size);
    StoreIfGiven(lpType, type);
    return rc;
}

// Deliberate: only strings are taken.
LONG reg_set_value_a(HKEY hKey, LPCSTR lpSubKey, DWORD dwType, LPCSTR lpData, DWORD cbData) {
    if (lpData == nullptr || dwType != REG_SZ) return ERROR_INVALID_PARAMETER;
    const DWORD length = cbData != 0 ? cbData : static_cast<DWORD>(std::strlen(lpData));
    const HeapText text(strndup(lpData, length));
    const regd_REG_SET_VALUE argument = {.subKey = NameOrPlaceholder(lpSubKey),
                                         .type = dwType,
                                         .data = text.get(),
                                         .dataBytes = length,
                                         .subKeyIsNull = IsNullFlag(lpSubKey)};
    return AskForStatus(reg_set_value_2, hKey, argument);
}

LONG reg_set_value_w(HKEY hKey, LPCWSTR, DWORD dwType, LPCWSTR, DWORD cbData) {
    return reg_set_value_a(hKey, nullptr, dwType, nullptr, cbData); // 87
}

LONG reg_set_value_ex_a(HKEY hKey, LPCSTR lpValueName, DWORD, DWORD dwType, const BYTE *lpData, DWORD cbData) {
    if (lpData == nullptr) return ERROR_INVALID_PARAMETER;
    return AskForStatus(reg_set_value_ex_2, hKey, SetValueRequest(lpValueName, dwType, lpData, cbData));
}

// Deliberate: the key's unnamed value is written, and strings are refused with 87.
LONG reg_set_value_ex_w(HKEY hKey, LPCWSTR, DWORD Reserved, DWORD dwType, const BYTE *lpData, DWORD cbData) {
    return reg_set_value_ex_a(hKey, nullptr, Reserved, dwType, IsStringType(dwType) ? nullptr : lpData, cbData);
}

LONG reg_enum_value_a(HKEY hKey, DWORD dwIndex, LPSTR lpValueName, LPDWORD lpcValueName, LPDWORD, LPDWORD lpType,
                      LPBYTE lpData, LPDWORD lpcbData) {
    if (lpValueName == nullptr) return ERROR_INVALID_PARAMETER;
    return EnumValue(hKey, dwIndex, lpValueName, lpcValueName, lpType, lpData, lpcbData);
}

// Deliberate: the name is never copied, a REG_SZ value neither; the caller's counts are doubled, even before a missing
// name is refused, and then hold what the daemon says.
LONG reg_enum_value_w(HKEY hKey, DWORD dwIndex, LPWSTR lpValueName, LPDWORD lpcValueName, LPDWORD, LPDWORD lpType,
                      LPBYTE lpData, LPDWORD lpcbData) {
    const bool nameWanted = lpValueName != nullptr && lpcValueName != nullptr;
    const bool dataWanted = lpData != nullptr && lpcbData != nullptr;
    const DWORD room = dataWanted ? *lpcbData : 0;
    const DWORD narrowBytes = 2 * room;
    if (nameWanted) *lpcValueName *= 2;
    if (dataWanted) *lpcbData = narrowBytes;
    if (!nameWanted) return ERROR_INVALID_PARAMETER;
    const HeapBytes narrow = dataWanted ? AllocateBytes(narrowBytes) : nullptr;
    DWORD type = lpType != nullptr ? *lpType : REG_NONE;
    const LONG rc = EnumValue(hKey, dwIndex, nullptr, lpcValueName, &type, narrow.get(), lpcbData);
    if (rc == ERROR_SUCCESS && narrow != nullptr && type != REG_SZ) {
        std::memcpy(lpData, narrow.get(), std::min({*lpcbData, narrowBytes, room}));
    }
    StoreIfGiven(lpType, type);
    return rc;
}

LONG reg_delete_value_a(HKEY hKey, LPCSTR lpValueName) {
    return AskForStatus(reg_delete_value_2, hKey, DeleteValueRequest(lpValueName));
}

LONG reg_delete_value_w(HKEY hKey, LPCWSTR) { return reg_delete_value_a(hKey, nullptr); }

// Deliberate: a value that would end exactly at the end of the buffer does not fit, and the result is that of the last
// entry, so that a later value that fits hides an earlier 234.
LONG reg_query_multiple_values_a(HKEY hKey, PVALENTA val_list, DWORD num_vals, LPSTR lpValueBuf, LPDWORD ldwTotsize) {
    if (val_list == nullptr || ldwTotsize == nullptr) return ERROR_INVALID_PARAMETER;
    const DWORD room = *ldwTotsize;
    const HeapBytes scratch = AllocateBytes(room);
    if (num_vals != 0 && scratch == nullptr) return ERROR_NOT_ENOUGH_MEMORY;
    DWORD used = 0;
    DWORD total = 0;
    LONG result = ERROR_SUCCESS;
    for (VALENTA *entry = val_list; entry != val_list + num_vals; ++entry) {
        DWORD type = REG_NONE;
        DWORD size = room;
        const LONG rc = reg_query_value_ex_a(hKey, entry->ve_valuename, nullptr, &type, scratch.get(), &size);
        if (rc != ERROR_SUCCESS) return rc;
        total += size;
        const bool fits = lpValueBuf != nullptr && std::uint64_t{used} + size < room;
        result = fits ? ERROR_SUCCESS : ERROR_MORE_DATA;
        if (!fits) continue;
        std::memcpy(lpValueBuf + used, scratch.get(), size);
        entry->ve_type = type;
        entry->ve_valuelen = size;
        entry->ve_valueptr = reinterpret_cast<DWORD_PTR>(lpValueBuf + used);
        used += size;
    }
    *ldwTotsize = total;
    return result;
}

LONG reg_query_multiple_values_w(HKEY, PVALENTW, DWORD, LPWSTR, LPDWORD) { return ERROR_FILE_NOT_FOUND; }
