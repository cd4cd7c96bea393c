// SPDX-License-Identifier: MIT
// config: the procedures that install a service and read or change its configuration.
//
// They keep three things in step: the service's key in the registry, its record in svcdb, and its place in grouplist
// and imagepathlist. What can be refused is refused before anything is filled; what was written by then is undone.
// Afterwards no write is checked: one that fails leaves the registry behind the database, and nobody is told.
// The lock that clients take on the database is not looked at here.
//
// Owns:    the strings in the static result of the configuration query.
// Thread:  main thread only.
// Deliberate: "DependOnService" holds the Unix account and "DependOnGroup" every dependency; create files a service in
//             imagepathlist under its group; a tag that was handed out is not entered into the record, nor into the
//             group's list of tags, of which only the count goes up.
#include "servd/servd_svc_proc/handlers.h"

#include "servd/checked_memory.h"
#include "servd/servd_svc_proc/account.h"
#include "servd/servd_svc_proc/database.h"
#include "servd/servd_svc_proc/dependencies.h"
#include "servd/servd_svc_proc/groups.h"
#include "servd/servd_svc_proc/values.h"
#include "servd/servd_svc_proc/word_sum.h"
#include "servd/service_keys.h"
#include "servd/win32_code.h"
#include "tv/winerror.h"
#include "tv/winsvc.h"

#include <algorithm>
#include <cstring>

namespace {

// A value as the registry holds it.
struct RegistryValue {
    DWORD type;
    DWORD bytes;
    HeapText data; // the bytes and terminators that do not count; null when the value could not be read
};

// Returns 0, 2 when there is no such value, or the code of the registry call that failed.
Win32Code ReadRegistryValue(HKEY key, const char *name, RegistryValue *value) {
    *value = {};
    RegistryValue read{};
    const Win32Code rc = ReadWholeValue(key, name, &read.data, &read.bytes, &read.type);
    if (rc == ERROR_SUCCESS) *value = std::move(read);
    return rc;
}

DWORD NumberOrZero(HKEY key, const char *name) {
    DWORD number = 0;
    return ReadNumber(key, name, &number) == ERROR_SUCCESS ? number : 0;
}

// The text of a value up to its first zero byte, an empty one where there is no such value. Never null.
HeapText TextOrEmpty(HKEY key, const char *name) {
    RegistryValue value{};
    (void)ReadRegistryValue(key, name, &value);
    return value.data != nullptr ? std::move(value.data) : HeapText(CheckedCopy(""));
}

void WriteBytes(HKEY key, const char *name, DWORD type, const char *data, DWORD bytes) {
    (void)RegSetValueExA(key, name, 0, type, reinterpret_cast<const BYTE *>(data), bytes);
}

void WriteNumber(HKEY key, const char *name, DWORD number) {
    (void)RegSetValueExA(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE *>(&number), sizeof number);
}

void WriteText(HKEY key, const char *name, const char *text) {
    WriteBytes(key, name, REG_SZ, text, static_cast<DWORD>(std::strlen(text)) + 1);
}

// Opens the key of the tag counters, and creates it where there is none.
HKEY OpenTagOrder() {
    HKEY tagOrder = 0;
    DWORD disposition = 0;
    (void)RegCreateKeyExA(HKEY_LOCAL_MACHINE, tagOrderKeyPath, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &tagOrder,
                          &disposition);
    return tagOrder;
}

// Hands out the next tag of a group: counts its counter up, or starts one at 1. A counter that cannot be read leaves
// *tag as it is.
void CountUpGroup(HKEY tagOrder, const char *group, std::uint32_t *tag) {
    RegistryValue counter{};
    const Win32Code rc = ReadRegistryValue(tagOrder, group, &counter);
    if (rc != ERROR_SUCCESS && rc != ERROR_FILE_NOT_FOUND) return;
    std::uint32_t count = 0;
    if (rc == ERROR_SUCCESS) {
        std::memcpy(&count, counter.data.get(), std::min<std::size_t>(counter.bytes, sizeof count));
    }
    count += 1;
    *tag = count;
    if (rc == ERROR_FILE_NOT_FOUND) {
        WriteBytes(tagOrder, group, REG_BINARY, reinterpret_cast<const char *>(&count), sizeof count);
        return;
    }
    std::memcpy(counter.data.get(), &count, std::min<std::size_t>(counter.bytes, sizeof count));
    WriteBytes(tagOrder, group, counter.type, counter.data.get(), counter.bytes);
}

// Whether the dependencies of svcdb[index] can be walked: 0, 1059 when they lead back to themselves, or a registry
// error.
Win32Code CheckDependencies(std::int32_t index, HKEY services) {
    std::int32_t bytes = 0;
    const Win32Code rc = SumDependencies(index, services, SERVICE_STATE_ALL, &bytes);
    return rc == ERROR_MORE_DATA ? ERROR_SUCCESS : rc;
}

bool IsEmpty(const char *text) { return text[0] == '\0'; }

// --- create ---

// Takes a record for the service, enters it into its group and checks its dependencies. Returns 0 and *index; or a
// code, with the record and the group as they were.
Win32Code EnterService(const servd_SERV_CREATE_SERVICE &wanted, HKEY services, HKEY service, std::int32_t *index) {
    *index = GetNextServiceDatabaseEntry();
    SetServiceName(*index, wanted.name);
    if (wanted.dependencies.count != 1) {
        // Deliberate: no bytes at all are not "none"; that write is refused for want of data.
        WriteBytes(service, dependenciesValue, REG_MULTI_SZ, wanted.dependencies.chars, wanted.dependencies.count);
    }
    if (!IsEmpty(wanted.group)) AddServiceToGroupList(&grouplist, &grouplistsize, wanted.group, *index);
    const Win32Code rc = CheckDependencies(*index, services);
    if (rc == ERROR_SUCCESS) return ERROR_SUCCESS;
    if (!IsEmpty(wanted.group)) RemoveServiceFromGroupList(grouplist, &grouplistsize, wanted.group, *index);
    SetServiceName(*index, nullptr);
    return rc;
}

// Deliberate: what is not named here keeps the value that the record's last service left.
void FillRecord(const servd_SERV_CREATE_SERVICE &wanted, std::int32_t index) {
    SetServiceDisplayName(index, wanted.displayName);
    ServiceDatabaseEntry &entry = svcdb[index];
    entry.openCount = WordSum(entry.openCount, 1); // the creating client holds a handle
    entry.reserved = 0;
    entry.type = static_cast<std::int32_t>(wanted.serviceType);
    entry.status.dwCurrentState = SERVICE_STOPPED;
}

void WriteTag(const char *group, HKEY service, std::uint32_t *tag) {
    HKEY tagOrder = OpenTagOrder();
    const KeyGuard closeTagOrder(&tagOrder);
    CountUpGroup(tagOrder, group, tag);
    WriteNumber(service, tagValue, *tag);
}

void WriteConfiguration(const servd_SERV_CREATE_SERVICE &wanted, HKEY service, std::int32_t index, std::uint32_t *tag) {
    WriteText(service, displayNameValue, wanted.displayName);
    WriteNumber(service, typeValue, wanted.serviceType);
    WriteNumber(service, startTypeValue, wanted.startType);
    WriteNumber(service, errorControlValue, wanted.errorControl);
    // Deliberate: under the name of the group, so that the image path is found here only after the next load.
    if (!IsEmpty(wanted.imagePath)) AddServiceToGroupList(&imagepathlist, &imagepathlistsize, wanted.group, index);
    WriteText(service, imagePathValue, wanted.imagePath);
    if (!IsEmpty(wanted.group)) WriteText(service, groupValue, wanted.group);
    if (wanted.tagWanted != 0) WriteTag(wanted.group, service, tag);
    if (!IsEmpty(wanted.account)) WriteText(service, accountValue, wanted.account);
}

Win32Code CreateService(const servd_SERV_CREATE_SERVICE &wanted, std::int32_t *handle, std::uint32_t *tag) {
    HKEY services = 0;
    Win32Code rc = RegOpenKeyExA(HKEY_LOCAL_MACHINE, servicesKeyPath, 0, KEY_ALL_ACCESS, &services);
    if (rc != ERROR_SUCCESS) return ERROR_DATABASE_DOES_NOT_EXIST; // 1065
    const KeyGuard closeServices(&services);
    HKEY service = 0;
    DWORD disposition = 0;
    rc = RegCreateKeyExA(services, wanted.name, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &service, &disposition);
    if (rc != ERROR_SUCCESS) return ERROR_INVALID_NAME; // 123
    KeyGuard closeService(&service);
    if (disposition == REG_OPENED_EXISTING_KEY) return ERROR_SERVICE_EXISTS; // 1073; the registry decides, not svcdb

    Win32Code refusal = ERROR_INVALID_SERVICE_ACCOUNT; // 1057
    std::int32_t index = 0;
    if (GetUserIDFromName(wanted.account) != unknownUser) refusal = EnterService(wanted, services, service, &index);
    if (refusal != ERROR_SUCCESS) {
        closeService.reset();
        (void)RegDeleteKeyA(services, wanted.name); // the refusal is the answer, whatever becomes of the key
        return refusal;
    }
    FillRecord(wanted, index);
    *handle = index;
    WriteConfiguration(wanted, service, index, tag);
    return ERROR_SUCCESS;
}

// --- query ---

// The count is what the reply carries: a value that is missing has none, and text that is never null.
CharArray ReadDependencies(HKEY service) {
    RegistryValue value{};
    (void)ReadRegistryValue(service, dependenciesValue, &value);
    return {.count = value.bytes, .chars = value.data != nullptr ? value.data.release() : CheckedCopy("")};
}

void FillConfiguration(const ServiceDatabaseEntry &entry, servd_SERV_QUERY_CONFIG_SERVICE_RETURN *reply) {
    HKEY services = 0;
    HKEY service = 0;
    OpenServiceKeys(entry.name, &services, &service);
    const KeyGuard closeServices(&services);
    const KeyGuard closeService(&service);
    reply->serviceType = static_cast<std::uint32_t>(entry.type);
    reply->startType = NumberOrZero(service, startTypeValue);
    reply->errorControl = NumberOrZero(service, errorControlValue);
    reply->imagePath = TextOrEmpty(service, imagePathValue).release();
    reply->group = TextOrEmpty(service, groupValue).release();
    reply->tag = entry.tag;
    reply->dependencies = ReadDependencies(service);
    reply->account = TextOrEmpty(service, accountValue).release();
    reply->displayName = CheckedCopy(entry.displayName);
}

// --- change ---

// Each of the request's strings as text: a copy up to its first zero byte, terminated or not; null where none is given.
struct ChangedTexts {
    HeapText imagePath;
    HeapText group;
    HeapText account;
    HeapText displayName;
};

HeapText TextOf(const CharArray &array) {
    if (array.count == 0) return nullptr;
    HeapText text(static_cast<char *>(CheckedCalloc(std::size_t{array.count} + 1, 1)));
    std::memcpy(text.get(), array.chars, array.count);
    return text;
}

ChangedTexts TextsOf(const servd_SERV_CHANGE_CONFIG_SERVICE &wanted) {
    return {.imagePath = TextOf(wanted.imagePath),
            .group = TextOf(wanted.group),
            .account = TextOf(wanted.account),
            .displayName = TextOf(wanted.displayName)};
}

void WriteArray(HKEY key, const char *name, DWORD type, const CharArray &array) {
    WriteBytes(key, name, type, array.chars, array.count);
}

// Moves a service between two groups; null stands for no group.
void MoveToGroup(const char *from, const char *to, std::int32_t index) {
    if (from != nullptr) RemoveServiceFromGroupList(grouplist, &grouplistsize, from, index);
    if (to != nullptr) AddServiceToGroupList(&grouplist, &grouplistsize, to, index);
}

// Sets new dependencies and a new group, as far as they are given, and checks where they lead. Returns 0; or a code,
// with both as they were.
Win32Code ChangeDependencies(const servd_SERV_CHANGE_CONFIG_SERVICE &wanted, const char *newGroup, HKEY services,
                             HKEY service) {
    RegistryValue oldDependencies{};
    RegistryValue oldGroup{};
    if (wanted.dependencies.count != 0) {
        (void)ReadRegistryValue(service, dependenciesValue, &oldDependencies);
        WriteArray(service, dependenciesValue, REG_MULTI_SZ, wanted.dependencies);
    }
    if (newGroup != nullptr) {
        (void)ReadRegistryValue(service, groupValue, &oldGroup);
        MoveToGroup(oldGroup.data.get(), newGroup, wanted.handle);
    }
    const Win32Code rc = CheckDependencies(wanted.handle, services);
    if (rc == ERROR_SUCCESS) return ERROR_SUCCESS;

    if (newGroup != nullptr) MoveToGroup(newGroup, oldGroup.data.get(), wanted.handle);
    if (wanted.dependencies.count != 0 && oldDependencies.data != nullptr) {
        WriteBytes(service, dependenciesValue, REG_MULTI_SZ, oldDependencies.data.get(), oldDependencies.bytes);
    } else if (wanted.dependencies.count != 0) {
        (void)RegDeleteValueA(service, dependenciesValue); // there was none before
    }
    return rc;
}

void ChangeNumbers(const servd_SERV_CHANGE_CONFIG_SERVICE &wanted, HKEY service) {
    if (wanted.serviceType != SERVICE_NO_CHANGE) {
        svcdb[wanted.handle].type = static_cast<std::int32_t>(wanted.serviceType);
        WriteNumber(service, typeValue, wanted.serviceType);
    }
    if (wanted.startType != SERVICE_NO_CHANGE) WriteNumber(service, startTypeValue, wanted.startType);
    WriteNumber(service, errorControlValue, wanted.errorControl); // deliberate: SERVICE_NO_CHANGE too is written
}

void ChangeTexts(const servd_SERV_CHANGE_CONFIG_SERVICE &wanted, const ChangedTexts &texts, HKEY service) {
    if (texts.imagePath != nullptr) {
        RegistryValue old{};
        (void)ReadRegistryValue(service, imagePathValue, &old);
        if (old.data != nullptr) {
            RemoveServiceFromGroupList(imagepathlist, &imagepathlistsize, old.data.get(), wanted.handle);
        }
        AddServiceToGroupList(&imagepathlist, &imagepathlistsize, texts.imagePath.get(), wanted.handle);
        WriteArray(service, imagePathValue, REG_SZ, wanted.imagePath);
    }
    if (texts.account != nullptr) WriteArray(service, accountValue, REG_SZ, wanted.account);
    if (texts.displayName != nullptr) {
        WriteArray(service, displayNameValue, REG_SZ, wanted.displayName);
        SetServiceDisplayName(wanted.handle, texts.displayName.get());
    }
    if (texts.group != nullptr) WriteArray(service, groupValue, REG_SZ, wanted.group);
}

// Deliberate: a record that was loaded with a tag keeps it, while one that only got its tag written gets a new one at
// every request.
void ChangeTag(const ServiceDatabaseEntry &entry, HKEY service, std::int32_t *tag) {
    HKEY tagOrder = 0;
    if (entry.tag != 0) {
        *tag = entry.tag;
    } else {
        tagOrder = OpenTagOrder();
        RegistryValue group{};
        const Win32Code rc = ReadRegistryValue(service, groupValue, &group);
        std::uint32_t next = static_cast<std::uint32_t>(*tag);
        if (rc == ERROR_SUCCESS) CountUpGroup(tagOrder, group.data.get(), &next);
        if (rc == ERROR_FILE_NOT_FOUND) CountUpGroup(tagOrder, "", &next);
        *tag = static_cast<std::int32_t>(next);
    }
    WriteNumber(service, tagValue, static_cast<DWORD>(*tag));
    (void)RegCloseKey(tagOrder); // deliberate: also when it was not opened
}

Win32Code ChangeService(const servd_SERV_CHANGE_CONFIG_SERVICE &wanted, std::int32_t *tag) {
    if (!IsServiceHandle(wanted.handle)) return ERROR_INVALID_HANDLE;                    // 6
    if (svcdb[wanted.handle].deletePending != 0) return ERROR_SERVICE_MARKED_FOR_DELETE; // 1072
    const ChangedTexts texts = TextsOf(wanted);
    if (texts.displayName != nullptr && IsDisplayNameOfAnother(texts.displayName.get(), wanted.handle)) {
        return ERROR_DUP_NAME; // 52
    }
    if (texts.account != nullptr && GetUserIDFromName(texts.account.get()) == unknownUser) {
        return ERROR_INVALID_SERVICE_ACCOUNT; // 1057
    }
    HKEY services = 0;
    HKEY service = 0;
    OpenServiceKeys(svcdb[wanted.handle].name, &services, &service);
    const KeyGuard closeServices(&services);
    const KeyGuard closeService(&service);
    if (texts.group != nullptr || wanted.dependencies.count != 0) {
        const Win32Code rc = ChangeDependencies(wanted, texts.group.get(), services, service);
        if (rc != ERROR_SUCCESS) return rc;
    }
    ChangeNumbers(wanted, service);
    ChangeTexts(wanted, texts, service);
    if (wanted.tagWanted != 0) ChangeTag(svcdb[wanted.handle], service, tag);
    return ERROR_SUCCESS;
}

} // namespace

servd_SERV_CREATE_SERVICE_RETURN *serv_create_service_1(servd_SERV_CREATE_SERVICE *argument, svc_req *) {
    // Owns nothing. Deliberate: the tag stays that of the last create that was given one.
    static servd_SERV_CREATE_SERVICE_RETURN reply;
    reply.handle = 0;
    reply.status = CreateService(*argument, &reply.handle, &reply.tag);
    return &reply;
}

servd_SERV_QUERY_CONFIG_SERVICE_RETURN *serv_query_config_service_1(servd_SERV_QUERY_CONFIG_SERVICE *argument,
                                                                    svc_req *) {
    // Owns the strings and bytes of the last query with a good handle; FreeRecord below releases them.
    static servd_SERV_QUERY_CONFIG_SERVICE_RETURN reply;
    if (!IsServiceHandle(argument->handle)) {
        reply.status = ERROR_INVALID_HANDLE; // 6; deliberate: the rest is that of the last call
        return &reply;
    }
    FreeRecord(&reply);
    FillConfiguration(svcdb[argument->handle], &reply); // deliberate: the code stays 6 once a query has failed
    return &reply;
}

servd_SERV_CHANGE_CONFIG_SERVICE_RETURN *serv_change_config_service_1(servd_SERV_CHANGE_CONFIG_SERVICE *argument,
                                                                      svc_req *) {
    // Owns nothing. Deliberate: the tag stays that of the last change that wanted one.
    static servd_SERV_CHANGE_CONFIG_SERVICE_RETURN reply;
    reply.status = ChangeService(*argument, &reply.tag);
    return &reply;
}
