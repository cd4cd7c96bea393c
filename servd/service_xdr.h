// SPDX-License-Identifier: MIT
// service_xdr: the records of the protocol spoken to a service process (XDR, RFC 4506).
//
// A service process serves the program ServiceProgram(its process id) over TCP; the daemon is always the client.
// Members stand in wire order; a routine that fails to decode leaves nothing decoded.
#pragma once

#include "servd/servd_xdr.h"

// Procedure numbers of a service process's program.
enum ServiceProcedure : std::uint32_t {
    SERVICE_PROC_START = 1,
    SERVICE_PROC_CONTROL = 2,
    SERVICE_PROC_DUMMY = 3,
};

// The same links and the same status as in the daemon's own protocol: a list received from a client of the daemon is
// handed on unchanged.
using svc_arglist_t = svd_arglist_t;
using svc_status_t = svd_status_t;

struct service_START_SERVICE_IN {
    char *servicename; // key name
    svc_arglist_t *arglist;
    std::int32_t argc;
    std::int32_t serviceindex; // the service's handle at the daemon
};

struct service_START_SERVICE_OUT {
    std::int32_t status;         // 0 when the process accepted the start
    std::int32_t servicecontext; // the process's own number for this service
};

struct service_CONTROL_SERVICE_IN {
    std::int32_t servicecontext; // as returned at start
    std::int32_t control;        // Win32 control code
};

struct service_CONTROL_SERVICE_OUT {
    std::int32_t status;
    svc_status_t svcstatus; // after the control
};

struct service_DUMMY_IN {
    std::int32_t dummy;
};

struct service_DUMMY_OUT {
    std::int32_t dummy;
};

bool_t xdr_svc_arglist_t(XDR *xdrs, svc_arglist_t *record);
bool_t xdr_svc_status_t(XDR *xdrs, svc_status_t *record);
bool_t xdr_service_START_SERVICE_IN(XDR *xdrs, service_START_SERVICE_IN *record);
bool_t xdr_service_START_SERVICE_OUT(XDR *xdrs, service_START_SERVICE_OUT *record);
bool_t xdr_service_CONTROL_SERVICE_IN(XDR *xdrs, service_CONTROL_SERVICE_IN *record);
bool_t xdr_service_CONTROL_SERVICE_OUT(XDR *xdrs, service_CONTROL_SERVICE_OUT *record);
bool_t xdr_service_DUMMY_IN(XDR *xdrs, service_DUMMY_IN *record);
bool_t xdr_service_DUMMY_OUT(XDR *xdrs, service_DUMMY_OUT *record);
