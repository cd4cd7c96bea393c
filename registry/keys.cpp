// SPDX-License-Identifier: MIT
// keys: open, create, close, delete, enumerate, flush and describe keys.
//
// The wide forms convert nothing: the daemon is spoken to in narrow strings only. They return the daemon's status and
// counts but no names, and where a name is an argument it is left out. Deliberate, each as its line says.
// Thread: under tvRegistryMutex.
#include "registry/operation.h"

#include <cstring>

namespace {

// What open and create store: the key, before anybody has looked at the status that came with it.
auto StoreOpenedKey(PHKEY phkResult) {
    return [=](const regd_REG_OPEN_KEY_RETURN &reply, int clientNum) {
        *phkResult = WithClientNumber(reply.key, clientNum);
        return reply.status;
    };
}

auto StoreCreatedKey(PHKEY phkResult, LPDWORD lpdwDisposition) {
    return [=](const regd_REG_CREATE_KEY_RETURN &reply, int clientNum) {
        *phkResult = WithClientNumber(reply.key, clientNum);
        StoreIfGiven(lpdwDisposition, reply.disposition);
        return reply.status;
    };
}

// Deliberate: a plain string copy. The size of the buffer was sent, and honouring it is the daemon's work.
void CopyName(LPSTR to, const char *name) {
    if (to != nullptr) std::strcpy(to, name != nullptr ? name : "");
}

LONG EnumKey(HKEY hKey, DWORD dwIndex, LPSTR lpName, DWORD nameBytes) {
    const regd_REG_ENUM_KEY argument = {.index = dwIndex, .nameBytes = nameBytes};
    return AskDaemon(reg_enum_key_2, hKey, argument, [=](const regd_REG_ENUM_KEY_RETURN &reply, int) {
        CopyName(lpName, reply.name);
        return reply.status;
    });
}

// Enumerates; the names go nowhere when their buffers are null.
LONG EnumKeyEx(HKEY hKey, DWORD dwIndex, LPSTR lpName, LPDWORD lpcName, LPSTR lpClass, LPDWORD lpcClass,
               PFILETIME lpftLastWriteTime) {
    const regd_REG_ENUM_KEY_EX argument = {
        .index = dwIndex, .nameBytes = SizeOrZero(lpcName), .classBytes = SizeOrZero(lpcClass)};
    return AskDaemon(reg_enum_key_ex_2, hKey, argument, [=](const regd_REG_ENUM_KEY_RETURN &reply, int) {
        CopyName(lpName, reply.nameLength != 0 ? reply.name : "");
        StoreIfGiven(lpcName, reply.nameLength);
        CopyName(lpClass, reply.classLength != 0 ? reply.keyClass : "");
        StoreIfGiven(lpcClass, reply.classLength);
        StoreIfGiven(lpftLastWriteTime, reply.lastWriteTime);
        return reply.status;
    });
}

// Copies as much of a class as the caller has room for, without a terminator; never more than the reply holds.
void CopyClass(LPSTR lpClass, DWORD classBytes, const regd_REG_QUERY_INFO_KEY_RETURN &reply) {
    if (lpClass == nullptr || reply.keyClass == nullptr) return;
    const std::size_t held = std::strlen(reply.keyClass) + 1;
    std::memcpy(lpClass, reply.keyClass, std::min<std::size_t>(held, std::min(reply.classLength, classBytes)));
}

} // namespace

LONG reg_open_key_a(HKEY hKey, LPCSTR lpSubKey, PHKEY phkResult) {
    if (phkResult == nullptr) return ERROR_INVALID_PARAMETER;
    if (lpSubKey == nullptr) {
        *phkResult = hKey;
        return ERROR_SUCCESS;
    }
    const regd_REG_OPEN_KEY argument = {.subKey = Borrowed(lpSubKey)};
    return AskDaemon(reg_open_key_2, hKey, argument, StoreOpenedKey(phkResult));
}

LONG reg_open_key_w(HKEY hKey, LPCWSTR, PHKEY phkResult) { return reg_open_key_a(hKey, nullptr, phkResult); }

LONG reg_open_key_ex_a(HKEY hKey, LPCSTR lpSubKey, DWORD ulOptions, REGSAM, PHKEY phkResult) {
    if (phkResult == nullptr) return ERROR_INVALID_PARAMETER;
    return AskDaemon(reg_open_key_ex_2, hKey, OpenKeyRequest(lpSubKey, ulOptions), StoreOpenedKey(phkResult));
}

LONG reg_open_key_ex_w(HKEY hKey, LPCWSTR, DWORD ulOptions, REGSAM samDesired, PHKEY phkResult) {
    return reg_open_key_ex_a(hKey, nullptr, ulOptions, samDesired, phkResult);
}

LONG reg_create_key_a(HKEY hKey, LPCSTR lpSubKey, PHKEY phkResult) {
    if (phkResult == nullptr) return ERROR_INVALID_PARAMETER;
    const regd_REG_CREATE_KEY argument = {.subKey = NameOrPlaceholder(lpSubKey), .subKeyIsNull = IsNullFlag(lpSubKey)};
    return AskDaemon(reg_create_key_2, hKey, argument, StoreCreatedKey(phkResult, nullptr));
}

LONG reg_create_key_w(HKEY hKey, LPCWSTR, PHKEY phkResult) { return reg_create_key_a(hKey, nullptr, phkResult); }

LONG reg_create_key_ex_a(HKEY hKey, LPCSTR lpSubKey, DWORD, LPSTR lpClass, DWORD dwOptions, REGSAM,
                         LPSECURITY_ATTRIBUTES, PHKEY phkResult, LPDWORD lpdwDisposition) {
    if (phkResult == nullptr || lpSubKey == nullptr) return ERROR_INVALID_PARAMETER;
    return AskDaemon(reg_create_key_ex_2, hKey, CreateKeyRequest(lpSubKey, lpClass, dwOptions),
                     StoreCreatedKey(phkResult, lpdwDisposition));
}

LONG reg_create_key_ex_w(HKEY hKey, LPCWSTR, DWORD Reserved, LPWSTR, DWORD dwOptions, REGSAM samDesired,
                         LPSECURITY_ATTRIBUTES lpSecurityAttributes, PHKEY phkResult, LPDWORD lpdwDisposition) {
    return reg_create_key_ex_a(hKey, nullptr, Reserved, nullptr, dwOptions, samDesired, lpSecurityAttributes, phkResult,
                               lpdwDisposition); // 87
}

LONG reg_close_key(HKEY hKey) { return AskForStatus(reg_close_key_2, hKey, regd_REG_CLOSE_KEY{}); }

LONG reg_flush_key(HKEY hKey) { return AskForStatus(reg_flush_key_2, hKey, regd_REG_FLUSH_KEY{}); }

LONG reg_delete_key_a(HKEY hKey, LPCSTR lpSubKey) {
    if (lpSubKey == nullptr) return ERROR_INVALID_PARAMETER;
    return AskForStatus(reg_delete_key_2, hKey, regd_REG_DELETE_KEY{.subKey = Borrowed(lpSubKey)});
}

LONG reg_delete_key_w(HKEY hKey, LPCWSTR) { return reg_delete_key_a(hKey, nullptr); } // 87

LONG reg_enum_key_a(HKEY hKey, DWORD dwIndex, LPSTR lpName, DWORD cchName) {
    if (lpName == nullptr) return ERROR_INVALID_PARAMETER;
    return EnumKey(hKey, dwIndex, lpName, cchName);
}

// Deliberate: the wide buffer stays as it is.
LONG reg_enum_key_w(HKEY hKey, DWORD dwIndex, LPWSTR lpName, DWORD cchName) {
    if (lpName == nullptr || cchName == 0) return ERROR_INVALID_PARAMETER;
    return EnumKey(hKey, dwIndex, nullptr, 2 * cchName);
}

LONG reg_enum_key_ex_a(HKEY hKey, DWORD dwIndex, LPSTR lpName, LPDWORD lpcName, LPDWORD, LPSTR lpClass,
                       LPDWORD lpcClass, PFILETIME lpftLastWriteTime) {
    if (lpName == nullptr && lpClass == nullptr && lpftLastWriteTime == nullptr) return ERROR_INVALID_PARAMETER;
    return EnumKeyEx(hKey, dwIndex, lpName, lpcName, lpClass, lpcClass, lpftLastWriteTime);
}

// Deliberate: the wide buffers stay as they are; the caller's counts are doubled and then hold what the daemon says.
LONG reg_enum_key_ex_w(HKEY hKey, DWORD dwIndex, LPWSTR lpName, LPDWORD lpcName, LPDWORD, LPWSTR lpClass,
                       LPDWORD lpcClass, PFILETIME lpftLastWriteTime) {
    const bool nameGiven = lpName != nullptr && lpcName != nullptr;
    const bool classGiven = lpClass != nullptr && lpcClass != nullptr;
    if (!nameGiven && !classGiven && lpftLastWriteTime == nullptr) return ERROR_INVALID_PARAMETER;
    if (nameGiven) *lpcName *= 2;
    if (classGiven) *lpcClass *= 2;
    return EnumKeyEx(hKey, dwIndex, nullptr, lpcName, nullptr, lpcClass, lpftLastWriteTime);
}

// Deliberate: lpcbSecurityDescriptor is never written.
LONG reg_query_info_key_a(HKEY hKey, LPSTR lpClass, LPDWORD lpcClass, LPDWORD, LPDWORD lpcSubKeys,
                          LPDWORD lpcMaxSubKeyLen, LPDWORD lpcMaxClassLen, LPDWORD lpcValues,
                          LPDWORD lpcMaxValueNameLen, LPDWORD lpcMaxValueLen, LPDWORD, PFILETIME lpftLastWriteTime) {
    const DWORD classBytes = SizeOrZero(lpcClass);
    const regd_REG_QUERY_INFO_KEY argument = {.classBytes = classBytes};
    return AskDaemon(reg_query_info_key_2, hKey, argument, [=](const regd_REG_QUERY_INFO_KEY_RETURN &reply, int) {
        DWORD status = reply.status;
        if (lpcClass != nullptr) {
            *lpcClass = reply.classLength;
            if (reply.classLength > classBytes) status = ERROR_MORE_DATA;
            if (reply.classIsNull == 0) CopyClass(lpClass, classBytes, reply);
        }
        StoreIfGiven(lpcSubKeys, reply.subKeys);
        StoreIfGiven(lpcMaxSubKeyLen, reply.maxSubKeyLength);
        StoreIfGiven(lpcMaxClassLen, reply.maxClassLength);
        StoreIfGiven(lpcValues, reply.values);
        StoreIfGiven(lpcMaxValueNameLen, reply.maxValueNameLength);
        StoreIfGiven(lpcMaxValueLen, reply.maxValueBytes);
        StoreIfGiven(lpftLastWriteTime, reply.lastWriteTime);
        return status;
    });
}

// Deliberate: the class goes nowhere; its length becomes 0 on success and otherwise stays as it was.
LONG reg_query_info_key_w(HKEY hKey, LPWSTR, LPDWORD lpcClass, LPDWORD lpReserved, LPDWORD lpcSubKeys,
                          LPDWORD lpcMaxSubKeyLen, LPDWORD lpcMaxClassLen, LPDWORD lpcValues,
                          LPDWORD lpcMaxValueNameLen, LPDWORD lpcMaxValueLen, LPDWORD lpcbSecurityDescriptor,
                          PFILETIME lpftLastWriteTime) {
    DWORD narrowBytes = 2 * SizeOrZero(lpcClass);
    const bool classAsked = SizeOrZero(lpcClass) != 0;
    const LONG rc = reg_query_info_key_a(hKey, nullptr, classAsked ? &narrowBytes : lpcClass, lpReserved, lpcSubKeys,
                                         lpcMaxSubKeyLen, lpcMaxClassLen, lpcValues, lpcMaxValueNameLen, lpcMaxValueLen,
                                         lpcbSecurityDescriptor, lpftLastWriteTime);
    if (rc == ERROR_SUCCESS && classAsked) *lpcClass = 0;
    return rc;
}
