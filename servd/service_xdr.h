// SPDX-License-Identifier: MIT
// service_xdr: the protocol spoken to a service process (XDR, RFC 4506): its procedures and their records.
//
// A service process serves the program ServiceProgram(its process id) over TCP; the daemon is always the client.
// Members stand in wire order; a routine that fails to decode leaves nothing decoded.
#pragma once

#include "servd/servd_xdr.h"

// The procedures: number, its name, the daemon's client stub, the records' name without the _IN of the argument and the
// _OUT of the result. 0 is the null procedure.
// clang-format off
#define SERVICE_PROCEDURES(X) \
    X(1, SERVICE_PROC_START, service_start_service_1, service_START_SERVICE) \
    X(2, SERVICE_PROC_CONTROL, service_control_service_1, service_CONTROL_SERVICE) \
    X(3, SERVICE_PROC_DUMMY, service_dummy_service_1, service_DUMMY)
// clang-format on

#define SERVICE_NUMBER(number, name, stub, Record) name = number,
enum ServiceProcedure : std::uint32_t { SERVICE_PROCEDURES(SERVICE_NUMBER) };
#undef SERVICE_NUMBER

// The same links and the same status as in the daemon's own protocol: a list received from a client of the daemon is
// handed on unchanged.
using svc_arglist_t = svd_arglist_t;
using svc_status_t = svd_status_t;
bool_t xdr_svc_arglist_t(XDR *xdrs, svc_arglist_t *record);
bool_t xdr_svc_status_t(XDR *xdrs, svc_status_t *record);

struct service_START_SERVICE_IN {
    char *servicename; // key name
    svc_arglist_t *arglist;
    std::int32_t argc;
    std::int32_t serviceindex; // the service's handle at the daemon
};
constexpr auto Fields(As<service_START_SERVICE_IN> auto &r) {
    return std::tie(r.servicename, r.arglist, r.argc, r.serviceindex);
}

struct service_START_SERVICE_OUT {
    std::int32_t status;         // 0 when the process accepted the start
    std::int32_t servicecontext; // the process's own number for this service
};
constexpr auto Fields(As<service_START_SERVICE_OUT> auto &r) { return std::tie(r.status, r.servicecontext); }

struct service_CONTROL_SERVICE_IN {
    std::int32_t servicecontext; // as returned at start
    std::int32_t control;        // Win32 control code
};
constexpr auto Fields(As<service_CONTROL_SERVICE_IN> auto &r) { return std::tie(r.servicecontext, r.control); }

struct service_CONTROL_SERVICE_OUT {
    std::int32_t status;
    svc_status_t svcstatus; // after the control
};
constexpr auto Fields(As<service_CONTROL_SERVICE_OUT> auto &r) { return std::tie(r.status, r.svcstatus); }

struct service_DUMMY_IN {
    std::int32_t dummy;
};
constexpr auto Fields(As<service_DUMMY_IN> auto &r) { return std::tie(r.dummy); }

struct service_DUMMY_OUT {
    std::int32_t dummy;
};
constexpr auto Fields(As<service_DUMMY_OUT> auto &r) { return std::tie(r.dummy); }

#define SERVICE_DECLARE(number, name, stub, Record)                                                                    \
    TV_ROUTINE(Record##_IN)                                                                                            \
    TV_ROUTINE(Record##_OUT)                                                                                           \
    TV_PROCEDURE(number, Record##_IN, Record##_OUT)
SERVICE_PROCEDURES(SERVICE_DECLARE)
#undef SERVICE_DECLARE
