// SPDX-License-Identifier: MIT
// load: builds the service database from the registry at start-up.
//
// Owns:    nothing; fills svcdb, grouplist and imagepathlist.
// Reads:   one subkey a service under the services key; deletes those that carry "DeleteFlag".
// Thread:  main thread only.
// Deliberate: the first service takes record 1; "Type" and "DisplayName" have no defaults, so that one service without
// them keeps the whole database from loading; a service without "Tag" takes over the tag of the one loaded before it;
// a load that fails leaves its keys open.
//
// tvsc reads the same for the plan of a start (tvsc/boot_registry.cpp) in a loader of its own. This one creates,
// deletes and files as it reads, so that a load that fails half-way leaves what clients see from then on: its calls
// have to be seen here in their order. What both read one value with is shared (values.h), and one model holds them
// together (tests/unit/load_order_property_test.cpp).
#include "servd/servd_svc_proc/load.h"

#include "servd/servd_svc_proc/database.h"
#include "servd/servd_svc_proc/groups.h"
#include "servd/servd_svc_proc/values.h"
#include "servd/service_keys.h"
#include "tv/winerror.h"
#include "tv/winsvc.h"

namespace {

// Enters the service into the list under the name that one of its values holds, when it has that value.
Win32Code FileService(HKEY key, const char *valueName, GroupListEntry **list, std::int32_t *size, std::int32_t index) {
    TextBuffer name = {};
    const Win32Code rc = ReadText(key, valueName, name);
    if (rc == ERROR_FILE_NOT_FOUND) return ERROR_SUCCESS;
    if (rc == ERROR_SUCCESS) AddServiceToGroupList(list, size, name, index);
    return rc;
}

// Reads the values of one service into its record and files it under its group and its image path. *tag holds the tag
// of the service before, and is left for the next.
Win32Code LoadService(HKEY key, const char *name, std::int32_t index, DWORD *tag) {
    SetServiceName(index, name);
    ServiceDatabaseEntry &entry = svcdb[index];
    entry.reserved = 0;

    DWORD type = 0;
    Win32Code rc = ReadNumber(key, typeValue, &type);
    if (rc != ERROR_SUCCESS) return rc;
    rc = ReadNumber(key, tagValue, tag);
    if (rc != ERROR_SUCCESS && rc != ERROR_FILE_NOT_FOUND) return rc;
    TextBuffer displayName = {};
    rc = ReadText(key, displayNameValue, displayName);
    if (rc != ERROR_SUCCESS) return rc;

    SetServiceDisplayName(index, displayName);
    entry.type = static_cast<std::int32_t>(type);
    entry.tag = static_cast<std::int32_t>(*tag);
    entry.status.dwCurrentState = SERVICE_STOPPED;

    rc = FileService(key, groupValue, &grouplist, &grouplistsize, index);
    if (rc != ERROR_SUCCESS) return rc;
    return FileService(key, imagePathValue, &imagepathlist, &imagepathlistsize, index);
}

// Whether the service was deleted while in use by an earlier daemon. Returns the registry's code.
Win32Code QueryDeleteFlag(HKEY key, bool *deleted) {
    DWORD flag = 0;
    const Win32Code rc = ReadNumber(key, deleteFlagValue, &flag);
    *deleted = rc == ERROR_SUCCESS;
    return rc == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : rc;
}

} // namespace

Win32Code ReadServiceDatabase() {
    HKEY servicesKey = 0;
    DWORD disposition = 0;
    Win32Code rc = RegCreateKeyExA(HKEY_LOCAL_MACHINE, servicesKeyPath, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                                   &servicesKey, &disposition);
    if (rc != ERROR_SUCCESS) return rc;
    ResizeServiceDatabase();

    DWORD tag = 0;
    for (std::int32_t index = 0;;) {
        TextBuffer name = {};
        DWORD nameBytes = textBytes;
        rc =
            RegEnumKeyExA(servicesKey, static_cast<DWORD>(index), name, &nameBytes, nullptr, nullptr, nullptr, nullptr);
        if (rc != ERROR_SUCCESS) break;

        HKEY key = 0;
        rc = RegOpenKeyExA(servicesKey, name, 0, KEY_ALL_ACCESS, &key);
        if (rc != ERROR_SUCCESS) return rc;
        bool deleted = false;
        rc = QueryDeleteFlag(key, &deleted);
        if (rc != ERROR_SUCCESS) return rc;
        if (deleted) {
            (void)RegCloseKey(key);
            rc = RegDeleteKeyA(servicesKey, name);
            if (rc != ERROR_SUCCESS) return rc; // the same subkey would come again for ever
            continue;                           // the next subkey has moved to this index
        }

        index++;
        if (index >= svcdbsize) ResizeServiceDatabase();
        rc = LoadService(key, name, index, &tag);
        if (rc != ERROR_SUCCESS) return rc;
        (void)RegCloseKey(key);
    }
    (void)RegCloseKey(servicesKey);
    return rc == ERROR_NO_MORE_ITEMS ? ERROR_SUCCESS : rc;
}
