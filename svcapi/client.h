// SPDX-License-Identifier: MIT
// client: the client side for C++, with strings and vectors where the Win32 functions fill buffers.
//
// Each answers a Win32 code: 0, 6 for a bad handle, those of winsvc.h that concern every call, or those named here.
#pragma once

#include "svcapi/packing.h"

#include <optional>

// SERVICE_WIN32, SERVICE_DRIVER or both; a state filter. What the daemon enumerates, classes in that order, then the
// service in record 0 if it passes the filters. 1065 while the daemon has no database.
[[nodiscard]] DWORD EnumerateServices(SC_HANDLE manager, DWORD type, DWORD state, std::vector<ListedService> *services);

// Everything that can be seen without touching anything: all that is enumerated, then the service in record 0.
[[nodiscard]] DWORD EnumerateAllServices(SC_HANDLE manager, std::vector<ListedService> *services);

struct HiddenService {
    ListedService service; // without a name where another service has its display name
    DWORD record = 0;
    std::optional<bool> deletePending; // if not, its type is none that is enumerated; nothing where it is unknown
};

enum class HiddenLook {
    marks, // which of them are marked for deletion; where there are as many records as services, there are none
    names  // no marks, and every record whatever their number: a service may have gone since it was told
};

// What EnumerateAllServices leaves out; nothing is touched.
//   visible  what it has told
[[nodiscard]] DWORD EnumerateHiddenServices(SC_HANDLE manager, HiddenLook look,
                                            const std::vector<ListedService> &visible,
                                            std::vector<HiddenService> *hidden);

// What EnumerateAllServices tells of one service, without the others; stays empty where it does not list it under the
// name that it was opened by.
[[nodiscard]] DWORD QueryListedService(SC_HANDLE service, std::optional<ListedService> *listed);

// The services that this one depends on, nearest first; 1059 on a ring.
[[nodiscard]] DWORD EnumerateDependencies(SC_HANDLE service, DWORD state, std::vector<ListedService> *services);

// The services that depend on this one, in the order in which they have to be stopped.
[[nodiscard]] DWORD EnumerateDependents(SC_HANDLE service, DWORD state, std::vector<ListedService> *services);
// The same for a service that need not be open; none where there is no such service.
[[nodiscard]] DWORD EnumerateDependentsOf(SC_HANDLE manager, const std::string &name, DWORD state,
                                          std::vector<ListedService> *services);

[[nodiscard]] DWORD QueryConfig(SC_HANDLE service, ServiceConfig *config);
[[nodiscard]] DWORD QueryLock(SC_HANDLE manager, LockStatus *status);
[[nodiscard]] DWORD QueryDisplayName(SC_HANDLE manager, const char *name, std::string *displayName);
[[nodiscard]] DWORD QueryKeyName(SC_HANDLE manager, const char *displayName, std::string *name);

// The service other than this one that is started with this one's launcher (image_launcher.h); stays empty when there
// is none.
[[nodiscard]] DWORD QueryLauncherUser(SC_HANDLE manager, const std::string &name, std::optional<std::string> *user);

// The status as QueryServiceStatus tells it, with the process; whether the service is marked for deletion.
[[nodiscard]] DWORD WatchService(SC_HANDLE service, SERVICE_STATUS_PROCESS *status, bool *marked);

// Deletes a service that could be made half only. An older launcher that lies there stays, other than with
// DeleteService.
[[nodiscard]] DWORD WithdrawService(SC_HANDLE service);

// Closes the handles of a service that is marked for deletion, whoever left them open, until it is gone.
//   closed  how many that were; null: none is closed, it is only told whether any would be
// Returns 0; 1060 when there is no such service; 87 when it is not marked; 1056 when it is not stopped; 52 when others
// that are marked, too, have its display name, so that its record cannot be told; 1460 when they do not come to an end.
[[nodiscard]] DWORD DrainHandles(SC_HANDLE manager, const std::string &name, DWORD *closed);
