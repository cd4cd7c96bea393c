// SPDX-License-Identifier: MIT
// control: the procedures that start a service and send it controls.
//
//   state                   event                                              next
//   SERVICE_STOPPED         start, its process reached                         SERVICE_START_PENDING (start)
//   any                     answer of the service to a control                 whatever it says, unchecked
//   any but STOPPED         start or control after the deadline                SERVICE_STOPPED with 1067 (status)
//   any but STOPPED         control without an answer, process gone            SERVICE_STOPPED with 1067 (status)
//
// Owns:    nothing.
// Thread:  main thread only; a start or a control request holds every other client up until its service has answered.
#include "servd/servd_svc_proc/handlers.h"

#include "rpc/dial.h"
#include "servd/control_rules.h"
#include "servd/servd_svc_proc/database.h"
#include "servd/servd_svc_proc/dependencies.h"
#include "servd/servd_svc_proc/reaper.h"
#include "servd/servd_svc_proc/start.h"
#include "servd/servd_svc_proc/startup.h"
#include "servd/servd_svc_proc/status.h"
#include "servd/servd_svc_proc/values.h"
#include "servd/service_clnt.h"
#include "servd/service_keys.h"
#include "servd/win32_code.h"
#include "tv/winerror.h"
#include "tv/winsvc.h"

#include <csignal>

namespace {

// Sums in *bytes what the stopped services that this one depends on would take in an enumeration: more than 0 when
// there is one. Returns 0, 234, 1059 or a registry error.
Win32Code SizeOfStoppedDependencies(std::int32_t index, std::int32_t *bytes) {
    HKEY services = 0;
    (void)RegOpenKeyExA(HKEY_LOCAL_MACHINE, servicesKeyPath, 0, KEY_ALL_ACCESS, &services); // the walk finds out
    const KeyGuard closeServices(&services);
    return SumDependencies(index, services, SERVICE_INACTIVE, bytes);
}

Win32Code StartService(std::int32_t handle, svd_arglist_t *arglist, std::int32_t argc) {
    if (svcdblock.lockId != 0) return ERROR_SERVICE_DATABASE_LOCKED; // 1055, to the holder of the lock too
    if (!IsServiceHandle(handle)) return ERROR_INVALID_HANDLE;       // 6
    const ServiceDatabaseEntry &entry = svcdb[handle];
    if (entry.deletePending != 0) return ERROR_SERVICE_MARKED_FOR_DELETE; // 1072
    if (entry.status.dwCurrentState != SERVICE_STOPPED) {
        if (!HasDeadlinePassedNow(entry)) return ERROR_SERVICE_ALREADY_RUNNING; // 1056
        ServiceFailed(handle);
    }
    std::int32_t stoppedBytes = 0;
    const Win32Code rc = SizeOfStoppedDependencies(handle, &stoppedBytes);
    if (rc != ERROR_SUCCESS && rc != ERROR_MORE_DATA) return ERROR_INVALID_HANDLE; // 6, for a cycle too
    if (stoppedBytes > 0) return ERROR_SERVICE_DEPENDENCY_FAIL;                    // 1068; they are not started here
    return QuickStartService(handle, arglist, argc);
}

// Sends a control to the service's process. Returns null when no answer came; an answer is static, and the caller
// releases it with FreeRecord.
service_CONTROL_SERVICE_OUT *SendControl(const ServiceDatabaseEntry &entry, std::int32_t control) {
    // Without a process there is nobody to ask: the program of process 0 would be this daemon itself, which could only
    // wait for its own answer.
    if (entry.processId == 0) return nullptr;
    const RpcClient client(WithReplyLimit(DialHost(scmhostname, ServiceProgram(entry.processId), serviceProgramVersion),
                                          maxShortReplyBytes));
    if (client == nullptr) return nullptr;
    service_CONTROL_SERVICE_IN request{.servicecontext = entry.serviceContext, .control = control};
    return service_control_service_1(&request, client.get());
}

Win32Code ControlService(std::int32_t handle, std::int32_t control, svd_status_t *serviceStatus) {
    TakeLeftEnds();
    if (!IsServiceHandle(handle)) return ERROR_INVALID_HANDLE; // 6
    ServiceDatabaseEntry &entry = svcdb[handle];
    // Deliberate: the other five fields are those of the previous answer until a line below fills them.
    serviceStatus->dwCurrentState = entry.status.dwCurrentState;
    serviceStatus->dwControlsAccepted = entry.status.dwControlsAccepted;

    const Win32Code refusal = RefusalOfControl(entry.status.dwCurrentState, entry.status.dwControlsAccepted, control);
    if (refusal != ERROR_SUCCESS) return refusal;
    if (HasDeadlinePassedNow(entry)) {
        ServiceFailed(handle);
        *serviceStatus = entry.status;
        return ERROR_SERVICE_CANNOT_ACCEPT_CTRL; // 1061
    }
    service_CONTROL_SERVICE_OUT *answer = SendControl(entry, control);
    if (answer != nullptr) {
        const Win32Code code = answer->status;
        entry.status = answer->svcstatus; // whatever the code; the deadline stays
        *serviceStatus = entry.status;
        FreeRecord(answer);
        return code;
    }
    if (kill(entry.processId, 0) == 0) return ERROR_SERVICE_REQUEST_TIMEOUT; // 1053
    ServiceFailed(handle);
    return ERROR_SERVICE_NOT_ACTIVE; // 1062
}

} // namespace

servd_SERV_START_SERVICE_RETURN *serv_start_service_1(servd_SERV_START_SERVICE *argument, svc_req *) {
    static servd_SERV_START_SERVICE_RETURN reply; // owns nothing
    reply.status = StartService(argument->handle, argument->arglist, argument->argc);
    return &reply;
}

servd_SERV_CONTROL_SERVICE_RETURN *serv_control_service_1(servd_SERV_CONTROL_SERVICE *argument, svc_req *) {
    static servd_SERV_CONTROL_SERVICE_RETURN reply; // owns nothing
    reply.status = ControlService(argument->handle, argument->control, &reply.serviceStatus);
    return &reply;
}
