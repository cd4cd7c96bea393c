// SPDX-License-Identifier: MIT
// hives: load, unload, replace, restore and save hives; key security; change notification.
//
// A null string is refused with 87, except that a missing file of replace and save is 2. Deliberate: the wide forms do
// nothing but answer 2, and change notification is not supported although the protocol has a procedure for it.
// Thread: under tvRegistryMutex.
#include "registry/operation.h"

LONG reg_load_key_a(HKEY hKey, LPCSTR lpSubKey, LPCSTR lpFile) {
    if (lpSubKey == nullptr || lpFile == nullptr) return ERROR_INVALID_PARAMETER;
    return AskForStatus(reg_load_key_2, hKey,
                        regd_REG_LOAD_KEY{.subKey = Borrowed(lpSubKey), .file = Borrowed(lpFile)});
}

LONG reg_unload_key_a(HKEY hKey, LPCSTR lpSubKey) {
    if (lpSubKey == nullptr) return ERROR_INVALID_PARAMETER;
    return AskForStatus(reg_unload_key_2, hKey, regd_REG_UNLOAD_KEY{.subKey = Borrowed(lpSubKey)});
}

LONG reg_replace_key_a(HKEY hKey, LPCSTR lpSubKey, LPCSTR lpNewFile, LPCSTR lpOldFile) {
    if (lpNewFile == nullptr || lpOldFile == nullptr) return ERROR_FILE_NOT_FOUND;
    if (lpSubKey == nullptr) return ERROR_INVALID_PARAMETER;
    const regd_REG_REPLACE_KEY argument = {
        .subKey = Borrowed(lpSubKey), .newFile = Borrowed(lpNewFile), .oldFile = Borrowed(lpOldFile)};
    return AskForStatus(reg_replace_key_2, hKey, argument);
}

LONG reg_restore_key_a(HKEY hKey, LPCSTR lpFile, DWORD dwFlags) {
    if (lpFile == nullptr) return ERROR_INVALID_PARAMETER;
    return AskForStatus(reg_restore_key_2, hKey, regd_REG_RESTORE_KEY{.file = Borrowed(lpFile), .flags = dwFlags});
}

// The descriptor of the security attributes is not sent.
LONG reg_save_key_a(HKEY hKey, LPCSTR lpFile, LPSECURITY_ATTRIBUTES lpSecurityAttributes) {
    if (lpFile == nullptr) return ERROR_FILE_NOT_FOUND;
    regd_REG_SAVE_KEY argument = {.file = Borrowed(lpFile)};
    if (lpSecurityAttributes != nullptr) {
        argument.securityAttributes = {lpSecurityAttributes->nLength, lpSecurityAttributes->bInheritHandle};
    }
    return AskForStatus(reg_save_key_2, hKey, argument);
}

// A descriptor longer than the buffer is not copied; the size comes back in any case.
LONG reg_get_key_security(HKEY hKey, SECURITY_INFORMATION SecurityInformation, PSECURITY_DESCRIPTOR pSecurityDescriptor,
                          LPDWORD lpcbSecurityDescriptor) {
    const DWORD room = SizeOrZero(lpcbSecurityDescriptor);
    const regd_REG_GET_KEY_SEC argument = {.securityInformation = SecurityInformation, .descriptorBytes = room};
    return AskDaemon(reg_get_key_security_2, hKey, argument, [=](const regd_REG_GET_KEY_SEC_RETURN &reply, int) {
        if (pSecurityDescriptor != nullptr && reply.descriptorBytes <= room) {
            CopyBytes(pSecurityDescriptor, reply.descriptorBytes, reply.descriptor);
        }
        StoreIfGiven(lpcbSecurityDescriptor, reply.descriptorBytes);
        return reply.status;
    });
}

// Sends an empty descriptor: nothing of what the caller gave.
LONG reg_set_key_security(HKEY hKey, SECURITY_INFORMATION, PSECURITY_DESCRIPTOR) {
    return AskForStatus(reg_set_key_security_2, hKey, regd_REG_SET_KEY_SEC{});
}

LONG reg_notify_change_key_value(HKEY, BOOL, DWORD, HANDLE, BOOL) { return ERROR_REGISTRY_IO_FAILED; }

LONG reg_load_key_w(HKEY, LPCWSTR, LPCWSTR) { return ERROR_FILE_NOT_FOUND; }
LONG reg_unload_key_w(HKEY, LPCWSTR) { return ERROR_FILE_NOT_FOUND; }
LONG reg_replace_key_w(HKEY, LPCWSTR, LPCWSTR, LPCWSTR) { return ERROR_FILE_NOT_FOUND; }
LONG reg_restore_key_w(HKEY, LPCWSTR, DWORD) { return ERROR_FILE_NOT_FOUND; }
LONG reg_save_key_w(HKEY, LPCWSTR, LPSECURITY_ATTRIBUTES) { return ERROR_FILE_NOT_FOUND; }
