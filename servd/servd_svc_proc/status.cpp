// SPDX-License-Identifier: MIT
// status: the status of a service, and the deadline by which a silent one is found dead.
//
//   state                   event                                              next
//   any                     report of the service                              whatever it says, unchecked
//   any but STOPPED         start, control or query after the deadline         SERVICE_STOPPED with 1067
//
// Nothing here runs by itself: a dead service is found at the next request about it.
//
// Owns:    nothing.
// Thread:  main thread only.
#include "servd/servd_svc_proc/status.h"

#include "servd/servd_svc_proc/handlers.h"
#include "servd/servd_svc_proc/word_sum.h"
#include "servd/win32_code.h"
#include "tv/winerror.h"
#include "tv/winsvc.h"

namespace {

Win32Code SetStatus(std::int32_t handle, const svd_status_t &status) {
    if (!IsServiceHandle(handle)) return ERROR_INVALID_HANDLE; // 6
    ServiceDatabaseEntry &entry = svcdb[handle];
    // Deliberate: taken as it stands, whoever sent it; a service that reports itself stopped keeps its process id.
    entry.status = status;
    entry.statusDeadline = DeadlineAfter(WallTimeNow(), status.dwWaitHint);
    return ERROR_SUCCESS;
}

Win32Code QueryStatus(std::int32_t handle, svd_status_t *serviceStatus) {
    if (!IsServiceHandle(handle)) return ERROR_INVALID_HANDLE; // 6
    if (HasDeadlinePassedNow(svcdb[handle])) ServiceFailed(handle);
    *serviceStatus = svcdb[handle].status;
    return ERROR_SUCCESS;
}

} // namespace

bool HasDeadlinePassed(const ServiceDatabaseEntry &entry, const WallTime &now) {
    if (entry.status.dwWaitHint == 0) return false;
    const StatusDeadline &deadline = entry.statusDeadline;
    // Unsigned, so that the words of the record last until 2106 instead of 2038.
    const auto seconds = static_cast<std::uint32_t>(now.seconds);
    const auto deadlineSeconds = static_cast<std::uint32_t>(deadline.seconds);
    if (seconds != deadlineSeconds) return seconds > deadlineSeconds;
    return now.microseconds > deadline.microseconds;
}

bool HasDeadlinePassedNow(const ServiceDatabaseEntry &entry) { return HasDeadlinePassed(entry, WallTimeNow()); }

StatusDeadline DeadlineAfter(const WallTime &now, std::int32_t waitHintMs) {
    return {.seconds = WordSum(now.seconds, waitHintMs / 1000),
            .microseconds = WordSum(now.microseconds, waitHintMs % 1000)};
}

// Deliberate: the accepted controls, the specific exit code, the context and the deadline keep their values.
void ServiceFailed(std::int32_t index) {
    ServiceDatabaseEntry &entry = svcdb[index];
    entry.processId = 0;
    entry.status.dwCurrentState = SERVICE_STOPPED;
    entry.status.dwWin32ExitCode = ERROR_PROCESS_ABORTED; // 1067
    entry.status.dwCheckPoint = 0;
    entry.status.dwWaitHint = 0;
}

servd_SERV_SET_STATUS_SERVICE_RETURN *serv_set_status_service_1(servd_SERV_SET_STATUS_SERVICE *argument, svc_req *) {
    static servd_SERV_SET_STATUS_SERVICE_RETURN reply; // owns nothing
    reply.status = SetStatus(argument->handle, argument->serviceStatus);
    return &reply;
}

servd_SERV_QUERY_STATUS_SERVICE_RETURN *serv_query_status_service_1(servd_SERV_QUERY_STATUS_SERVICE *argument,
                                                                    svc_req *) {
    static servd_SERV_QUERY_STATUS_SERVICE_RETURN reply; // owns nothing
    reply.status = QueryStatus(argument->handle, &reply.serviceStatus);
    return &reply;
}
