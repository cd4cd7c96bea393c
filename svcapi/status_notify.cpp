// SPDX-License-Identifier: MIT
// status_notify: NotifyServiceStatusChange, by watching.
//
// The daemon tells nobody of changes, so a thread of the library looks at what is waited for, as QueryServiceStatus
// does: without touching, and asking only where that cannot hurt (status_watch.h). Looks follow a change closely and
// become rarer while nothing happens.
//
// States of a handle's watch: none -> (call) asked -> (a state of the mask, a deletion or a failure) delivered, only
// the state that was told is kept -> (call) asked ... -> (close) none.
#include "svcapi/status_notify.h"

#include "svcapi/client.h"
#include "svcapi/handles.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <csignal>
#include <unordered_map>

namespace {

using std::chrono::milliseconds;

constexpr auto firstInterval = milliseconds(20);
constexpr auto longestInterval = milliseconds(500);

constexpr DWORD stateMask = SERVICE_NOTIFY_STOPPED | SERVICE_NOTIFY_START_PENDING | SERVICE_NOTIFY_STOP_PENDING |
                            SERVICE_NOTIFY_RUNNING | SERVICE_NOTIFY_CONTINUE_PENDING | SERVICE_NOTIFY_PAUSE_PENDING |
                            SERVICE_NOTIFY_PAUSED;
constexpr DWORD serviceMask = stateMask | SERVICE_NOTIFY_DELETE_PENDING;
constexpr DWORD managerMask = SERVICE_NOTIFY_CREATED | SERVICE_NOTIFY_DELETED;

// What a notification tells.
struct Notice {
    DWORD code = ERROR_SUCCESS;
    DWORD triggered = 0;
    SERVICE_STATUS_PROCESS status = {};
};

// Fills the caller's record and calls him.
using DeliverFunction = void(void *record, const Notice &notice);

struct NotifyWatch {
    DeliverFunction *deliver = nullptr; // null: nothing is waited for
    void *record = nullptr;             // the caller's
    DWORD mask = 0;
    DWORD toldState = 0; // of the last notice, which a later call does not get again; 0 before the first
    DWORD seenState = 0; // at the last look
    milliseconds interval = firstInterval;
    CallClock::time_point nextLook;
};

struct Notifier {
    std::mutex guard; // everything below
    std::condition_variable changed;
    std::unordered_map<SC_HANDLE, NotifyWatch> watches;
    SC_HANDLE delivering = nullptr; // whose callback runs
    pthread_t thread = {};
    pid_t threadOwner = 0; // the process that the thread is of, which a forked child is not
};

Notifier &TheNotifier() {
    static Notifier &notifier = *new Notifier; // threads may outlive main
    return notifier;
}

DWORD BitOf(DWORD state) {
    const bool known = state >= SERVICE_STOPPED && state <= SERVICE_PAUSED;
    return known ? DWORD{1} << (state - SERVICE_STOPPED) : 0;
}

// What a look has to tell, if anything.
bool HasNotice(const NotifyWatch &watch, bool marked, Notice *notice) {
    if (notice->code != ERROR_SUCCESS) return true;
    if (marked) {
        notice->triggered = watch.mask & SERVICE_NOTIFY_DELETE_PENDING;
        if (notice->triggered == 0) notice->code = ERROR_SERVICE_MARKED_FOR_DELETE;
        return true;
    }
    const DWORD state = notice->status.dwCurrentState;
    notice->triggered = state != watch.toldState ? watch.mask & BitOf(state) : 0;
    return notice->triggered != 0;
}

// A state that was left since it was told is told again.
void NoteState(NotifyWatch *watch, DWORD state) {
    if (state != watch->toldState) watch->toldState = 0;
}

void PlanNextLook(NotifyWatch *watch, DWORD state) {
    NoteState(watch, state);
    watch->interval = state != watch->seenState ? firstInterval : std::min(watch->interval * 3 / 2, longestInterval);
    watch->seenState = state;
    watch->nextLook = CallClock::now() + watch->interval;
}

// The guard is held, and given away for the callback.
void DeliverNotice(Notifier &notifier, SC_HANDLE service, const Notice &notice, std::unique_lock<std::mutex> &locked) {
    NotifyWatch &watch = notifier.watches[service];
    DeliverFunction *const deliver = watch.deliver;
    void *const record = watch.record;
    watch.deliver = nullptr; // the callback may ask again
    if (notice.code == ERROR_SUCCESS) watch.toldState = notice.status.dwCurrentState;
    notifier.delivering = service;
    locked.unlock();
    deliver(record, notice);
    locked.lock();
    notifier.delivering = nullptr;
    notifier.changed.notify_all();
}

void LookAndDeliver(Notifier &notifier, SC_HANDLE service, std::unique_lock<std::mutex> &locked) {
    Notice notice;
    bool marked = false;
    locked.unlock();
    notice.code = WatchService(service, &notice.status, &marked);
    const bool isOpen = FindHandle(service, HandleKind::service) != nullptr;
    locked.lock();
    const auto found = notifier.watches.find(service);
    if (found == notifier.watches.end()) return; // closed meanwhile
    if (!isOpen) {
        notifier.watches.erase(found);
    } else if (HasNotice(found->second, marked, &notice)) {
        DeliverNotice(notifier, service, notice, locked);
    } else {
        PlanNextLook(&found->second, notice.status.dwCurrentState);
    }
}

// The handle to look at first; null when nothing is waited for.
SC_HANDLE NextToLookAt(const Notifier &notifier, CallClock::time_point *when) {
    SC_HANDLE next = nullptr;
    for (const auto &[service, watch] : notifier.watches) {
        if (watch.deliver == nullptr || (next != nullptr && watch.nextLook >= *when)) continue;
        next = service;
        *when = watch.nextLook;
    }
    return next;
}

// Thread body: never ends.
void *WatchServices(void *) {
    Notifier &notifier = TheNotifier();
    std::unique_lock<std::mutex> locked(notifier.guard);
    for (;;) {
        CallClock::time_point when;
        SC_HANDLE const next = NextToLookAt(notifier, &when);
        if (next == nullptr) {
            notifier.changed.wait(locked);
        } else if (when > CallClock::now()) {
            notifier.changed.wait_until(locked, when);
        } else {
            LookAndDeliver(notifier, next, locked);
        }
    }
}

// Starts the thread, once in a process; the guard is held. Signals stay with the threads of the program.
DWORD StartWatching(Notifier &notifier) {
    if (notifier.threadOwner == getpid()) return ERROR_SUCCESS;
    notifier.watches.clear(); // of the parent process
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const int failure = pthread_create(&notifier.thread, nullptr, WatchServices, nullptr);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (failure != 0) return ERROR_NOT_ENOUGH_MEMORY;
    (void)pthread_detach(notifier.thread);
    notifier.threadOwner = getpid();
    return ERROR_SUCCESS;
}

template <typename Record>
void Deliver(void *buffer, const Notice &notice) {
    auto *const record = static_cast<Record *>(buffer);
    record->dwNotificationStatus = notice.code;
    record->ServiceStatus = notice.status;
    record->dwNotificationTriggered = notice.triggered;
    record->pszServiceNames = nullptr;
    record->pfnNotifyCallback(record);
}

DWORD CheckMask(SC_HANDLE handle, DWORD mask) {
    if (FindHandle(handle, HandleKind::manager) != nullptr) {
        return mask != 0 && (mask & ~managerMask) == 0 ? ERROR_CALL_NOT_IMPLEMENTED : ERROR_INVALID_PARAMETER;
    }
    if (FindHandle(handle, HandleKind::service) == nullptr) return ERROR_INVALID_HANDLE;
    return mask != 0 && (mask & ~serviceMask) == 0 ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER;
}

DWORD AddWatch(SC_HANDLE service, DWORD state, DWORD mask, DeliverFunction *deliver, void *record) {
    Notifier &notifier = TheNotifier();
    const std::lock_guard<std::mutex> locked(notifier.guard);
    const DWORD rc = StartWatching(notifier);
    if (rc != ERROR_SUCCESS) return rc;
    NotifyWatch &watch = notifier.watches[service];
    if (watch.deliver != nullptr) return ERROR_ALREADY_REGISTERED;
    watch.deliver = deliver;
    watch.record = record;
    watch.mask = mask;
    watch.interval = firstInterval;
    NoteState(&watch, state);
    watch.nextLook = CallClock::now();
    notifier.changed.notify_all();
    return ERROR_SUCCESS;
}

template <typename Record>
DWORD NotifyStatusChange(SC_HANDLE handle, DWORD mask, Record *record) {
    if (record == nullptr || record->dwVersion != SERVICE_NOTIFY_STATUS_CHANGE ||
        record->pfnNotifyCallback == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    DWORD rc = CheckMask(handle, mask);
    if (rc != ERROR_SUCCESS) return rc;
    SERVICE_STATUS_PROCESS status = {};
    bool marked = false;
    rc = WatchService(handle, &status, &marked);
    if (rc != ERROR_SUCCESS) return rc;
    if (marked) return ERROR_SERVICE_MARKED_FOR_DELETE;
    return AddWatch(handle, status.dwCurrentState, mask, Deliver<Record>, record);
}

} // namespace

void EndNotifications(SC_HANDLE service) {
    Notifier &notifier = TheNotifier();
    std::unique_lock<std::mutex> locked(notifier.guard);
    notifier.watches.erase(service);
    if (notifier.threadOwner != getpid() || pthread_equal(notifier.thread, pthread_self())) return;
    notifier.changed.wait(locked, [&] { return notifier.delivering != service; });
}

DWORD NotifyServiceStatusChangeA(SC_HANDLE hService, DWORD dwNotifyMask, PSERVICE_NOTIFYA pNotifyBuffer) {
    return NotifyStatusChange(hService, dwNotifyMask, pNotifyBuffer);
}

DWORD NotifyServiceStatusChangeW(SC_HANDLE hService, DWORD dwNotifyMask, PSERVICE_NOTIFYW pNotifyBuffer) {
    return NotifyStatusChange(hService, dwNotifyMask, pNotifyBuffer);
}
