// SPDX-License-Identifier: MIT
// service_xdr: the routines of the records spoken to a service process.
#include "servd/service_xdr.h"

#define ROUTINE(Record)                                                                                                \
    bool_t xdr_##Record(XDR *xdrs, Record *record) { return CodeWhole(xdrs, *record); }
#define ROUTINES(number, name, stub, Record) ROUTINE(Record##_IN) ROUTINE(Record##_OUT)

ROUTINE(svc_arglist_t)
ROUTINE(svc_status_t)
SERVICE_PROCEDURES(ROUTINES)
