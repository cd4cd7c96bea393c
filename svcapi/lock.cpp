// SPDX-License-Identifier: MIT
// lock: the database lock.
//
// The daemon never tells a lock's identifier, so it is written into the owner's name: whoever finds a lock left behind
// can free it with tvUnlockServiceDatabaseById.
#include "svcapi/calls.h"
#include "svcapi/client.h"
#include "svcapi/handles.h"
#include "svcapi/last_error.h"
#include "svcapi/query.h"

#include <pwd.h>
#include <unistd.h>

#include <random>

namespace {

std::int32_t NewLockId() {
    static std::random_device random;
    return std::uniform_int_distribution<std::int32_t>(1, INT32_MAX)(random);
}

std::string UserName() {
    passwd entry = {};
    passwd *found = nullptr;
    char text[1024];
    const bool known = getpwuid_r(getuid(), &entry, text, sizeof text, &found) == 0 && found != nullptr;
    return known ? found->pw_name : std::to_string(getuid());
}

std::string OwnerName(std::int32_t lockId) {
    char host[256] = {};
    (void)gethostname(host, sizeof host - 1); // an empty host name is good enough here
    return UserName() + "@" + host + " pid=" + std::to_string(getpid()) + " id=" + std::to_string(lockId);
}

} // namespace

SC_LOCK LockServiceDatabase(SC_HANDLE hSCManager) {
    HandleCall call;
    if (!Succeeded(BeginManagerCall(hSCManager, &call))) return nullptr;
    OpenHandle lock;
    lock.kind = HandleKind::lock;
    lock.link = call.handle->link;
    lock.lockId = NewLockId();
    lock.restarts = lock.link->restarts;
    if (!Succeeded(LockDatabase(*lock.link, lock.lockId, OwnerName(lock.lockId)))) return nullptr;
    return AddHandle(std::move(lock));
}

BOOL UnlockServiceDatabase(SC_LOCK ScLock) {
    const std::shared_ptr<OpenHandle> lock = TakeHandle(ScLock, HandleKind::lock);
    if (lock == nullptr) return Succeeded(ERROR_INVALID_SERVICE_LOCK);
    const std::lock_guard<std::timed_mutex> busy(lock->link->busy);
    const DWORD rc = Connect(*lock->link);
    return Succeeded(rc != ERROR_SUCCESS ? rc : UnlockDatabase(*lock->link, lock->lockId));
}

BOOL tvUnlockServiceDatabaseById(SC_HANDLE hSCManager, DWORD id) {
    // 0 would always match a free database.
    if (id == 0) return Succeeded(ERROR_INVALID_SERVICE_LOCK);
    HandleCall call;
    const DWORD rc = BeginManagerCall(hSCManager, &call);
    return Succeeded(rc != ERROR_SUCCESS ? rc : UnlockDatabase(*call.handle->link, static_cast<std::int32_t>(id)));
}

DWORD QueryLock(SC_HANDLE manager, LockStatus *status) {
    HandleCall call;
    const DWORD rc = BeginManagerCall(manager, &call);
    return rc != ERROR_SUCCESS ? rc : QueryDatabaseLock(*call.handle->link, status);
}

BOOL QueryServiceLockStatusA(SC_HANDLE hSCManager, LPQUERY_SERVICE_LOCK_STATUSA lpLockStatus, DWORD cbBufSize,
                             LPDWORD pcbBytesNeeded) {
    return AnswerIntoBuffer(QueryLock, PackLockStatus, hSCManager, lpLockStatus, cbBufSize, pcbBytesNeeded);
}

BOOL QueryServiceLockStatusW(SC_HANDLE hSCManager, LPQUERY_SERVICE_LOCK_STATUSW lpLockStatus, DWORD cbBufSize,
                             LPDWORD pcbBytesNeeded) {
    return AnswerIntoBuffer(QueryLock, PackLockStatus, hSCManager, lpLockStatus, cbBufSize, pcbBytesNeeded);
}
