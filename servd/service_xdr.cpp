// SPDX-License-Identifier: MIT
// service_xdr: the routines of the records spoken to a service process: the fields in wire order.
#include "servd/service_xdr.h"

bool_t xdr_svc_arglist_t(XDR *xdrs, svc_arglist_t *record) { return CodeLinkAndRest(xdrs, *record); }

bool_t xdr_svc_status_t(XDR *xdrs, svc_status_t *record) { return CodeWhole(xdrs, *record); }

bool_t xdr_service_START_SERVICE_IN(XDR *xdrs, service_START_SERVICE_IN *record) {
    return CodeWhole(xdrs, record->servicename, record->arglist, record->argc, record->serviceindex);
}

bool_t xdr_service_START_SERVICE_OUT(XDR *xdrs, service_START_SERVICE_OUT *record) {
    return CodeWhole(xdrs, record->status, record->servicecontext);
}

bool_t xdr_service_CONTROL_SERVICE_IN(XDR *xdrs, service_CONTROL_SERVICE_IN *record) {
    return CodeWhole(xdrs, record->servicecontext, record->control);
}

bool_t xdr_service_CONTROL_SERVICE_OUT(XDR *xdrs, service_CONTROL_SERVICE_OUT *record) {
    return CodeWhole(xdrs, record->status, record->svcstatus);
}

bool_t xdr_service_DUMMY_IN(XDR *xdrs, service_DUMMY_IN *record) { return CodeWhole(xdrs, record->dummy); }

bool_t xdr_service_DUMMY_OUT(XDR *xdrs, service_DUMMY_OUT *record) { return CodeWhole(xdrs, record->dummy); }
