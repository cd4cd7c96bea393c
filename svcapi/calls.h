// SPDX-License-Identifier: MIT
// calls: what the daemon can be asked, a function for each of its procedures, in the order of their numbers.
//
// All take a connected, locked link. Each returns the code of the link (CallDaemon) or else the daemon's own, unless it
// hands that out apart, and stores nothing when it returns another than 0, unless it says so. An index is a service's
// number at the daemon.
#pragma once

#include "svcapi/link.h"
#include "svcapi/packing.h"

// Asks for nothing, to see whether the daemon answers.
[[nodiscard]] DWORD PingDaemon(DaemonLink &link);

// How the daemon's initialisation ended, 0 or 1065; the call itself has no code of the daemon's.
[[nodiscard]] DWORD AskInitCode(DaemonLink &link, DWORD *initCode);

// Creates a service as the record says. The tag is one only where the record asks for it.
[[nodiscard]] DWORD CreateRecord(DaemonLink &link, const servd_SERV_CREATE_SERVICE &service, std::int32_t *index,
                                 DWORD *tag);

[[nodiscard]] DWORD OpenRecord(DaemonLink &link, const char *name, std::int32_t *index);
[[nodiscard]] DWORD DeleteRecord(DaemonLink &link, std::int32_t index);
DWORD CloseRecord(DaemonLink &link, std::int32_t index);

[[nodiscard]] DWORD LockDatabase(DaemonLink &link, std::int32_t lockId, const std::string &owner);
[[nodiscard]] DWORD UnlockDatabase(DaemonLink &link, std::int32_t lockId);
[[nodiscard]] DWORD QueryDatabaseLock(DaemonLink &link, LockStatus *status);

[[nodiscard]] DWORD StartRecord(DaemonLink &link, std::int32_t index, DWORD argc, LPCSTR *argv);

// Sends a control. Whatever the daemon answers but 6, the words of *status that mean something are stored, and the
// others are 0.
[[nodiscard]] DWORD ControlRecord(DaemonLink &link, std::int32_t index, std::int32_t control, SERVICE_STATUS *status);

[[nodiscard]] DWORD SetRecordStatus(DaemonLink &link, std::int32_t index, const SERVICE_STATUS &status);
[[nodiscard]] DWORD QueryRecordStatus(DaemonLink &link, std::int32_t index, SERVICE_STATUS *status);

// Appends the next services of an enumeration: those of *resumeIndex and behind it, as many as the daemon counts into so
// many bytes; both are the daemon's words (it answers 0 also when not all fitted, *bytesNeeded tells).
[[nodiscard]] DWORD EnumerateRecords(DaemonLink &link, std::int32_t type, std::int32_t state, std::int32_t bytes,
                                     std::int32_t *resumeIndex, std::int32_t *bytesNeeded, ServiceList *services);

// Translate names. 1060 when there is none.
[[nodiscard]] DWORD DisplayNameOf(DaemonLink &link, const char *name, std::string *displayName);
[[nodiscard]] DWORD KeyNameOf(DaemonLink &link, const char *displayName, std::string *name);

// Appends the services that one depends on, when they fit into so many bytes as the daemon counts; *bytesNeeded is
// stored whatever the daemon answers.
[[nodiscard]] DWORD EnumerateRecordDependencies(DaemonLink &link, std::int32_t index, std::int32_t state,
                                                std::int32_t bytes, std::int32_t *bytesNeeded,
                                                std::vector<ListedService> *services);

// The configuration, and the daemon's own code beside it: with another than 0 it may be another service's.
[[nodiscard]] DWORD QueryRecordConfig(DaemonLink &link, std::int32_t index, ServiceConfig *config, DWORD *code);

// Changes a configuration as the record says. *tag: null when nobody wants to know.
[[nodiscard]] DWORD ChangeRecordConfig(DaemonLink &link, const servd_SERV_CHANGE_CONFIG_SERVICE &change, DWORD *tag);

// Ends the daemon. It ends inside the call: a broken connection is its answer.
[[nodiscard]] DWORD StopDaemon(DaemonLink &link);

// A status as it travels.
svd_status_t ToWire(const SERVICE_STATUS &status);
