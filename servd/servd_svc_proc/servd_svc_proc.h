// SPDX-License-Identifier: MIT
// servd_svc_proc: what the files of the service database and of the handlers share.
//
// Owns:    svcdb, grouplist, imagepathlist, svcdblock and the strings and nodes in them (all malloc memory).
// Thread:  main thread only; nothing here is locked.
#pragma once

#include "servd/limits.h"
#include "servd/servd_svc_proc/values.h"
#include "servd/service_keys.h"
#include "servd/service_xdr.h"
#include "tv/winerror.h"
#include "tv/winreg.h"
#include "tv/winsvc.h"
#include "util/guard.h"

#include <sys/time.h>

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

// One service in a group.
struct GroupMember {
    std::int32_t serviceIndex;
    GroupMember *next;
};
static_assert(sizeof(void *) != 4 || sizeof(GroupMember) == 2 * sizeof(void *));

// A named list of services: a load-order group, or an image path in imagepathlist. The first null name ends the used
// entries.
struct GroupListEntry {
    char *name;
    GroupMember *members;
};
static_assert(sizeof(void *) != 4 || sizeof(GroupListEntry) == 2 * sizeof(void *));

using ImagePathEntry = GroupListEntry;

// The Win32 service database lock that clients take; not a thread lock.
struct ServiceDatabaseLock {
    std::int32_t lockId; // 0 when unlocked
    char *owner;
    std::int32_t lockedSinceSec; // since the epoch
};
static_assert(sizeof(void *) != 4 || sizeof(ServiceDatabaseLock) == 3 * sizeof(void *));

extern ServiceDatabaseEntry *svcdb;
extern std::int32_t svcdbsize; // records allocated
extern ServiceDatabaseLock svcdblock;
extern GroupListEntry *grouplist;
extern std::int32_t grouplistsize; // entries allocated
extern ImagePathEntry *imagepathlist;
extern std::int32_t imagepathlistsize;

// Set by the daemon's initialisation.
extern std::int32_t binitializing;            // 1 while InitializeSCM runs
extern std::uint32_t initstatus;              // 0, or 1065 when the database could not be built
extern char scmhostname[256];                 // this machine's name; reaches service processes
extern std::int32_t firstunorderedgroupindex; // number of groups named in the order list

// The sum as 32-bit words have it: it wraps, and is defined for any two numbers.
inline std::int32_t WordSum(std::int64_t a, std::int64_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

// --- database ---

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
// Clears the marks of the dependency walk in every record.
void ClearVisitingFlags();
// Whether a client's handle names a used record.
[[nodiscard]] bool IsServiceHandle(std::int32_t handle);

// --- load ---

// Builds svcdb, the groups and the image paths from the registry. Returns 0 or the code of the registry call that
// failed; the records filled so far stay.
[[nodiscard]] std::uint32_t ReadServiceDatabase();

// --- groups ---

// Each takes grouplist or imagepathlist with its size. The size's address tells which of the two it is: names are
// searched by an index there, and one by one in any other list.

// Grows a list by 20 zeroed entries; a null list is made, with 20.
void ResizeGroupList(GroupListEntry **list, std::int32_t *size);
// Returns the index of the first entry of this name (case-sensitive), -1 when there is none.
[[nodiscard]] std::int32_t GetGroupIndexFromName(const GroupListEntry *list, const std::int32_t *size,
                                                 const char *name);
// Puts a service in front of the members of the first entry of this name, which is made when there is none. The name is
// copied.
void AddServiceToGroupList(GroupListEntry **list, std::int32_t *size, const char *name, std::int32_t serviceIndex);
// Finds the first entry of this name and takes a service once off the members of that index, of grouplist in any case.
// The entry stays. What is not there is left alone.
void RemoveServiceFromGroupList(GroupListEntry *list, const std::int32_t *size, const char *name,
                                std::int32_t serviceIndex);
// Fills the front of grouplist, which is empty, with the groups of the order list. *count is their number, 0 also when
// there is no order. Returns 0 or the code of the registry call that failed; a key without the value "List" is such a
// failure, a missing key is not.
[[nodiscard]] std::uint32_t ReadGroupOrderList(std::int32_t *count);
// Brings the members of each group that has a tag vector into its order. Returns 0, also without any vectors, or the
// code of the registry call that failed; the groups before it stay sorted.
[[nodiscard]] std::uint32_t SortServicesInGroups();

// --- dependencies ---

// Bytes that a Win32 caller needs for one enumeration record of this service.
[[nodiscard]] std::int32_t EnumRecordBytes(const ServiceDatabaseEntry &entry);
// A new enumeration record with copies of both names and the status; next is null. malloc memory.
[[nodiscard]] svd_enum_status_list_t *NewEnumRecord(const ServiceDatabaseEntry &entry);

// Walks the services that svcdb[index] depends on, depth first, and collects those in a wanted state.
//   bytesLeft    in: room in the caller's buffer; out: what is left, -1 once a record did not fit
//   list         head of the collected records, the one found last first; the caller frees them
//   bytesNeeded  raised by the size of every service that passed the filter
//   count        raised by the number of records collected
//   rootIndex    walked but never collected
//   servicesKey  the open services key
//   stateMask    1 active, 2 stopped, 3 both
// Returns 0; 234 when this service did not fit; 1059 on a cycle; or a registry error. ClearVisitingFlags after it.
[[nodiscard]] std::uint32_t CalculateDependencies(std::int32_t index, std::int32_t *bytesLeft,
                                                  svd_enum_status_list_t **list, std::int32_t *bytesNeeded,
                                                  std::int32_t *count, std::int32_t rootIndex, HKEY servicesKey,
                                                  std::int32_t stateMask);

// The same walk for nothing but its verdict and its sum: *bytes is what the services found would take. Clears the marks
// itself. Result codes as above.
[[nodiscard]] std::uint32_t SumDependencies(std::int32_t index, HKEY servicesKey, std::int32_t stateMask,
                                            std::int32_t *bytes);

// --- start ---

// Starts the service svcdb[index] in a new process and hands it its start request.
//   arglist  start arguments in order; may be null; borrowed for the call
//   argc     number of arguments, as the client gave it
// Blocks for whole seconds, up to the retry limits, plus one 25-second call.
// Returns 0; 3 program could not be executed; 6 no fork; 1053 process unreachable or silent; 1056 the service is not
// stopped; else the service's own refusal.
[[nodiscard]] std::uint32_t QuickStartService(std::int32_t index, svc_arglist_t *arglist, std::int32_t argc);
// Declares a service dead: stopped with 1067. Sends no signal.
void ServiceFailed(std::int32_t index);
// Thread body: waits for a started process to end and forgets how it did. The argument carries the process id.
void *WaitForService(void *pid);
// Returns the Unix user id; 0 for a null or empty name; 0xFFFFFFFF for an unknown one.
[[nodiscard]] std::uint32_t GetUserIDFromName(const char *name);
// Length in bytes of a multi-string, both terminators counted; 0 for null, 1 when the first byte is zero.
[[nodiscard]] std::uint32_t multistrlen(const char *p);

// --- autostart ---

// Starts every service whose start type is 0, 1 or 2, each after its stopped dependencies. Always returns 0.
[[nodiscard]] std::uint32_t RunAutoStartServices();

// --- control ---

// Whether a service's announced wait has passed: its wait hint is not 0 and `now` is later than its deadline.
[[nodiscard]] bool HasDeadlinePassed(const ServiceDatabaseEntry &entry, const timeval &now);
// The deadline that a report with this wait hint (milliseconds) sets. Deliberate: the hint's part below one second is
// added to the microseconds as it is.
[[nodiscard]] StatusDeadline DeadlineAfter(const timeval &now, std::int32_t waitHintMs);

// --- handlers, one for each procedure ---

// The argument is borrowed for the call; the request is not looked at. Returns a static reply, valid until the next
// call of the same handler, which releases what it owns; null sends no reply.

servd_SERV_CONNECT_SERVICE_RETURN *serv_connect_service_1(servd_SERV_CONNECT_SERVICE *argument, svc_req *request);
servd_SERV_CREATE_SERVICE_RETURN *serv_create_service_1(servd_SERV_CREATE_SERVICE *argument, svc_req *request);
servd_SERV_OPEN_SERVICE_RETURN *serv_open_service_1(servd_SERV_OPEN_SERVICE *argument, svc_req *request);
servd_SERV_DELETE_SERVICE_RETURN *serv_delete_service_1(servd_SERV_DELETE_SERVICE *argument, svc_req *request);
servd_SERV_CLOSE_SERVICE_RETURN *serv_close_service_1(servd_SERV_CLOSE_SERVICE *argument, svc_req *request);
servd_SERV_LOCK_SERVICE_RETURN *serv_lock_service_1(servd_SERV_LOCK_SERVICE *argument, svc_req *request);
servd_SERV_UNLOCK_SERVICE_RETURN *serv_unlock_service_1(servd_SERV_UNLOCK_SERVICE *argument, svc_req *request);
servd_SERV_QUERY_LOCK_SERVICE_RETURN *serv_query_lock_service_1(servd_SERV_QUERY_LOCK_SERVICE *argument,
                                                                svc_req *request);
servd_SERV_START_SERVICE_RETURN *serv_start_service_1(servd_SERV_START_SERVICE *argument, svc_req *request);
servd_SERV_CONTROL_SERVICE_RETURN *serv_control_service_1(servd_SERV_CONTROL_SERVICE *argument, svc_req *request);
servd_SERV_SET_STATUS_SERVICE_RETURN *serv_set_status_service_1(servd_SERV_SET_STATUS_SERVICE *argument,
                                                                svc_req *request);
servd_SERV_DUMMY_RETURN *serv_dummy_service_1(servd_SERV_DUMMY *argument, svc_req *request);
servd_SERV_QUERY_STATUS_SERVICE_RETURN *serv_query_status_service_1(servd_SERV_QUERY_STATUS_SERVICE *argument,
                                                                    svc_req *request);
servd_SERV_ENUM_STATUS_SERVICE_RETURN *serv_enum_status_service_1(servd_SERV_ENUM_STATUS_SERVICE *argument,
                                                                  svc_req *request);
servd_SERV_GET_DISPLAY_SERVICE_RETURN *serv_get_display_service_1(servd_SERV_GET_DISPLAY_SERVICE *argument,
                                                                  svc_req *request);
servd_SERV_GET_KEY_SERVICE_RETURN *serv_get_key_service_1(servd_SERV_GET_KEY_SERVICE *argument, svc_req *request);
servd_SERV_ENUM_DEPEND_SERVICE_RETURN *serv_enum_depend_service_1(servd_SERV_ENUM_DEPEND_SERVICE *argument,
                                                                  svc_req *request);
servd_SERV_QUERY_CONFIG_SERVICE_RETURN *serv_query_config_service_1(servd_SERV_QUERY_CONFIG_SERVICE *argument,
                                                                    svc_req *request);
servd_SERV_CHANGE_CONFIG_SERVICE_RETURN *serv_change_config_service_1(servd_SERV_CHANGE_CONFIG_SERVICE *argument,
                                                                      svc_req *request);
servd_STOP_DAEMON_SERVICE_RETURN *serv_stop_daemon_service_1(servd_STOP_DAEMON_SERVICE *argument, svc_req *request);
