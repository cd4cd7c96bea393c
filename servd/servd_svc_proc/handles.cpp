// SPDX-License-Identifier: MIT
// handles: the procedures about service handles, the database lock and the daemon itself.
//
// A handle is the index of a service's record in svcdb. It belongs to no client: whoever knows the number may use it,
// and a client that ends without closing leaves the open count raised.
//
//   state of a record                  event                         next
//   free (no name)                     create                        used, one handle open (config)
//   used                               open, close                   used, open count one up, one down
//   used                               delete                        marked: open answers 1060, delete 1072
//   marked, stopped, one handle open   close                         free; its registry key is gone
//   marked, otherwise                  close                         marked, until the daemon starts again
//
// Owns:    svcdblock's owner name.
// Thread:  main thread only; each result is a static record that the next call of the same handler overwrites.
#include "servd/servd_svc_proc/handlers.h"

#include "servd/checked_memory.h"
#include "servd/servd_svc_proc/database.h"
#include "servd/servd_svc_proc/groups.h"
#include "servd/servd_svc_proc/startup.h"
#include "servd/servd_svc_proc/values.h"
#include "servd/servd_svc_proc/word_sum.h"
#include "servd/service_keys.h"
#include "servd/win32_code.h"
#include "tv/winerror.h"
#include "tv/winsvc.h"
#include "util/wall_time.h"

#include <cstring>

namespace {

// A word of seconds lasts until 2106: differences of two are right beyond 2038, when its sign turns.
std::int32_t SecondsNow() { return static_cast<std::int32_t>(WallTimeNow().seconds); }

// Removes the service's registry key and returns its record to the free state. Deliberate: the nodes of the record in
// grouplist and imagepathlist stay, and so does every field but the names and the mark.
void FreeServiceRecord(std::int32_t index) {
    ServiceDatabaseEntry &entry = svcdb[index];
    HKEY services = 0;
    (void)RegOpenKeyExA(HKEY_LOCAL_MACHINE, servicesKeyPath, 0, KEY_ALL_ACCESS, &services);
    const KeyGuard closeServices(&services);
    (void)RegDeleteKeyA(services, entry.name); // a key that stays carries DeleteFlag and goes at the next start
    SetServiceName(index, nullptr);
    SetServiceDisplayName(index, nullptr);
    entry.deletePending = 0;
}

// Takes the service out of the list entry that a value of this key names, if there is such a value.
void RemoveFromListNamedBy(HKEY key, const char *valueName, GroupListEntry *list, const std::int32_t *size,
                           std::int32_t serviceIndex) {
    TextBuffer name = {};
    if (ReadText(key, valueName, name) == ERROR_SUCCESS) RemoveServiceFromGroupList(list, size, name, serviceIndex);
}

Win32Code OpenService(const char *name, std::int32_t *handle) {
    const std::int32_t index = GetServiceIndexFromName(name);
    if (index < 0 || svcdb[index].deletePending != 0) return ERROR_SERVICE_DOES_NOT_EXIST; // 1060
    svcdb[index].openCount = WordSum(svcdb[index].openCount, 1);
    *handle = index;
    return ERROR_SUCCESS;
}

Win32Code CloseService(std::int32_t handle) {
    if (!IsServiceHandle(handle)) return ERROR_INVALID_HANDLE; // 6
    ServiceDatabaseEntry &entry = svcdb[handle];
    if (entry.openCount == 0) return ERROR_INVALID_HANDLE;
    entry.openCount = WordSum(entry.openCount, -1);
    if (entry.deletePending != 0 && entry.openCount == 0 && entry.status.dwCurrentState == SERVICE_STOPPED) {
        FreeServiceRecord(handle);
    }
    return ERROR_SUCCESS;
}

Win32Code DeleteService(std::int32_t handle) {
    if (!IsServiceHandle(handle)) return ERROR_INVALID_HANDLE; // 6
    ServiceDatabaseEntry &entry = svcdb[handle];
    if (entry.deletePending != 0) return ERROR_SERVICE_MARKED_FOR_DELETE; // 1072
    entry.deletePending = 1;

    // Both keys stay open: no guards. A registry that cannot be reached is not reported: the mark in the record holds
    // for as long as this daemon runs.
    HKEY services = 0;
    HKEY service = 0;
    OpenServiceKeys(entry.name, &services, &service);
    const DWORD deleteFlag = 1;
    (void)RegSetValueExA(service, deleteFlagValue, 0, REG_DWORD, reinterpret_cast<const BYTE *>(&deleteFlag),
                         sizeof deleteFlag);

    // Deliberate: both names are read from the services key itself and not from the service's own, where they are
    // kept, so that with the usual registry content the service stays in both lists.
    RemoveFromListNamedBy(services, groupValue, grouplist, &grouplistsize, handle);
    RemoveFromListNamedBy(services, imagePathValue, imagepathlist, &imagepathlistsize, handle);
    return ERROR_SUCCESS;
}

Win32Code LockDatabase(std::int32_t lockId, const char *owner) {
    if (lockId == 0 || owner == nullptr) return ERROR_INVALID_HANDLE; // 6
    if (svcdblock.lockId != 0) return ERROR_SERVICE_DATABASE_LOCKED;  // 1055, to the holder too
    svcdblock = {.lockId = lockId, .owner = CheckedCopy(owner), .lockedSinceSec = SecondsNow()};
    return ERROR_SUCCESS;
}

// A free database has the id 0, so that an unlock with id 0 always succeeds then; it must find no owner to free.
Win32Code UnlockDatabase(std::int32_t lockId) {
    if (lockId != svcdblock.lockId) return ERROR_INVALID_SERVICE_LOCK; // 1071
    std::free(svcdblock.owner);
    svcdblock = {};
    return ERROR_SUCCESS;
}

// Deliberate: while the database is free, owner and duration are those of the last query that found it locked.
void QueryLock(servd_SERV_QUERY_LOCK_SERVICE_RETURN *reply) {
    reply->status = ERROR_SUCCESS;
    reply->isLocked = svcdblock.lockId != 0 ? 1 : 0;
    if (reply->isLocked == 0) return;
    if (svcdblock.owner == nullptr) {
        reply->status = ERROR_INVALID_HANDLE; // 6
        return;
    }
    std::free(reply->owner);
    reply->owner = CheckedCopy(svcdblock.owner);
    reply->lockDurationSec = WordSum(SecondsNow(), -std::int64_t{svcdblock.lockedSinceSec});
}

} // namespace

servd_SERV_CONNECT_SERVICE_RETURN *serv_connect_service_1(servd_SERV_CONNECT_SERVICE *, svc_req *) {
    static servd_SERV_CONNECT_SERVICE_RETURN reply; // owns nothing
    reply.status = initstatus;
    return &reply;
}

servd_SERV_OPEN_SERVICE_RETURN *serv_open_service_1(servd_SERV_OPEN_SERVICE *argument, svc_req *) {
    static servd_SERV_OPEN_SERVICE_RETURN reply; // owns nothing
    reply.handle = 0;
    reply.status = OpenService(argument->name, &reply.handle);
    return &reply;
}

servd_SERV_CLOSE_SERVICE_RETURN *serv_close_service_1(servd_SERV_CLOSE_SERVICE *argument, svc_req *) {
    static servd_SERV_CLOSE_SERVICE_RETURN reply; // owns nothing
    reply.status = CloseService(argument->handle);
    return &reply;
}

servd_SERV_DELETE_SERVICE_RETURN *serv_delete_service_1(servd_SERV_DELETE_SERVICE *argument, svc_req *) {
    static servd_SERV_DELETE_SERVICE_RETURN reply; // owns nothing
    reply.status = DeleteService(argument->handle);
    return &reply;
}

servd_SERV_LOCK_SERVICE_RETURN *serv_lock_service_1(servd_SERV_LOCK_SERVICE *argument, svc_req *) {
    static servd_SERV_LOCK_SERVICE_RETURN reply; // owns nothing
    reply.status = LockDatabase(argument->lockId, argument->owner);
    return &reply;
}

servd_SERV_UNLOCK_SERVICE_RETURN *serv_unlock_service_1(servd_SERV_UNLOCK_SERVICE *argument, svc_req *) {
    static servd_SERV_UNLOCK_SERVICE_RETURN reply; // owns nothing
    reply.status = UnlockDatabase(argument->lockId);
    return &reply;
}

servd_SERV_QUERY_LOCK_SERVICE_RETURN *serv_query_lock_service_1(servd_SERV_QUERY_LOCK_SERVICE *, svc_req *) {
    // Owns the owner name of the last query that found a lock; QueryLock frees it when it makes a new copy.
    static servd_SERV_QUERY_LOCK_SERVICE_RETURN reply;
    QueryLock(&reply);
    return &reply;
}

servd_SERV_DUMMY_RETURN *serv_dummy_service_1(servd_SERV_DUMMY *argument, svc_req *) {
    static servd_SERV_DUMMY_RETURN reply; // owns nothing
    reply.dummy = WordSum(argument->dummy, 1);
    return &reply;
}

// Deliberate: no reply, no word to the port mapper or to the services. The reapers only sleep in waitpid: they hold
// nothing that exit waits for.
servd_STOP_DAEMON_SERVICE_RETURN *serv_stop_daemon_service_1(servd_STOP_DAEMON_SERVICE *, svc_req *) { std::exit(0); }
