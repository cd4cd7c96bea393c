// SPDX-License-Identifier: MIT
// database: the service records, their names, and the lock that clients take on them.
//
// Owns:    svcdb, svcnames, svcdblock and the strings in them (all malloc memory).
// Thread:  main thread only; nothing here is locked.
#pragma once

#include "servd/servd_xdr.h"

#include <type_traits>

// The time by which a service must report again; its own layout because time_t may be 64 bits wide.
struct StatusDeadline {
    std::int32_t seconds;      // since the epoch, modulo 2^32
    std::int32_t microseconds; // not carried into the seconds
};

// One known service. Twenty words where pointers are words; the array moves with realloc.
struct ServiceDatabaseEntry {
    char *name; // key name; null marks a free record
    char *displayName;
    std::uint32_t reserved;     // 0
    std::int32_t openCount;     // open handles
    std::int32_t deletePending; // non-zero once marked for deletion
    svd_status_t status;
    std::int32_t processId;      // 0 when not running
    std::int32_t serviceContext; // the process's own number for this service
    std::int32_t type;           // configured service type
    std::int32_t tag;            // position inside the load-order group
    std::int32_t visited;        // 1 once the dependency walk has finished this service
    std::int32_t visiting;       // 1 while the dependency walk is inside this service
    StatusDeadline statusDeadline;
};
static_assert(std::is_trivially_copyable_v<ServiceDatabaseEntry>);
static_assert(sizeof(void *) != 4 || sizeof(ServiceDatabaseEntry) == 20 * sizeof(void *));

// Both names of a record as enumerations list them: to measure and encode them anew takes most of a listing.
struct ListedNames {
    std::uint32_t *words; // of PutListedNames; malloc memory, null for a free record
    std::uint32_t wordCount;
    std::int32_t recordBytes; // that a Win32 caller needs for one enumeration record with them
};

// The Win32 service database lock that clients take; not a thread lock.
struct ServiceDatabaseLock {
    std::int32_t lockId; // 0 when unlocked
    char *owner;
    std::int32_t lockedSinceSec; // since the epoch
};
static_assert(sizeof(void *) != 4 || sizeof(ServiceDatabaseLock) == 3 * sizeof(void *));

extern ServiceDatabaseEntry *svcdb;
extern ListedNames *svcnames;  // of the records in svcdb
extern std::int32_t svcdbsize; // records allocated
extern ServiceDatabaseLock svcdblock;

// Grows svcdb by 50 zeroed records.
void ResizeServiceDatabase();
// Returns the index of the first free record, growing the array when there is none. The caller fills `name` at once.
[[nodiscard]] std::int32_t GetNextServiceDatabaseEntry();
// Gives a record its name, a heap copy; null frees the record. Names change here and nowhere else.
void SetServiceName(std::int32_t index, const char *name);
// The same for its display name; null leaves it without one.
void SetServiceDisplayName(std::int32_t index, const char *displayName);
// Returns the index of the first record of this name (case-sensitive), -1 when there is none.
[[nodiscard]] std::int32_t GetServiceIndexFromName(const char *name);
// Returns the index of the first used record of this display name (case-sensitive), -1 when there is none.
[[nodiscard]] std::int32_t GetServiceIndexFromDisplayName(const char *displayName);
// Whether a record besides this one bears the display name (case-sensitive).
[[nodiscard]] bool IsDisplayNameOfAnother(const char *displayName, std::int32_t index);
// Clears the marks of the dependency walk in every record.
void ClearVisitingFlags();
// Whether a client's handle names a used record.
[[nodiscard]] bool IsServiceHandle(std::int32_t handle);
