// SPDX-License-Identifier: MIT
// service_clnt: one call to a service process, its answer in a static result.
#include "servd/service_clnt.h"

#include "servd/limits.h"

namespace {

const timeval TIMEOUT = {serviceCallTimeoutSec, 0};

template <typename Argument, typename Result>
Result *CallService(CLIENT *client, ServiceProcedure procedure, bool_t (*codeArgument)(XDR *, Argument *),
                    Argument *argument, bool_t (*codeResult)(XDR *, Result *), Result *result) {
    *result = {};
    const clnt_stat status = clnt_call(client, procedure, reinterpret_cast<xdrproc_t>(codeArgument), argument,
                                       reinterpret_cast<xdrproc_t>(codeResult), result, TIMEOUT);
    return status == RPC_SUCCESS ? result : nullptr;
}

} // namespace

service_START_SERVICE_OUT *service_start_service_1(service_START_SERVICE_IN *argument, CLIENT *client) {
    static service_START_SERVICE_OUT res;
    return CallService(client, SERVICE_PROC_START, xdr_service_START_SERVICE_IN, argument,
                       xdr_service_START_SERVICE_OUT, &res);
}

service_CONTROL_SERVICE_OUT *service_control_service_1(service_CONTROL_SERVICE_IN *argument, CLIENT *client) {
    static service_CONTROL_SERVICE_OUT res;
    return CallService(client, SERVICE_PROC_CONTROL, xdr_service_CONTROL_SERVICE_IN, argument,
                       xdr_service_CONTROL_SERVICE_OUT, &res);
}

service_DUMMY_OUT *service_dummy_service_1(service_DUMMY_IN *argument, CLIENT *client) {
    static service_DUMMY_OUT res;
    return CallService(client, SERVICE_PROC_DUMMY, xdr_service_DUMMY_IN, argument, xdr_service_DUMMY_OUT, &res);
}
