// SPDX-License-Identifier: MIT
// servd_xdr: the routines of the service daemon's records, one line each: the fields in wire order.
//
// Each record is coded whole or not at all (CodeWhole): after a failed decode nothing is left to release, so that the
// dispatcher can answer and return at once.
#include "servd/servd_xdr.h"

bool_t xdr_svd_arglist_t(XDR *xdrs, svd_arglist_t *record) { return CodeLinkAndRest(xdrs, *record); }

bool_t xdr_svd_status_t(XDR *xdrs, svd_status_t *record) { return CodeWhole(xdrs, *record); }

bool_t xdr_svd_enum_status_list_t(XDR *xdrs, svd_enum_status_list_t *record) { return CodeLinkAndRest(xdrs, *record); }

bool_t xdr_servd_SERV_CONNECT_SERVICE(XDR *xdrs, servd_SERV_CONNECT_SERVICE *record) {
    return CodeWhole(xdrs, record->machineName);
}

bool_t xdr_servd_SERV_CONNECT_SERVICE_RETURN(XDR *xdrs, servd_SERV_CONNECT_SERVICE_RETURN *record) {
    return CodeWhole(xdrs, record->status);
}

bool_t xdr_servd_SERV_CREATE_SERVICE(XDR *xdrs, servd_SERV_CREATE_SERVICE *record) {
    return CodeWhole(xdrs, record->name, record->displayName, record->serviceType, record->startType,
                     record->errorControl, record->imagePath, record->group, record->dependencies, record->account,
                     record->tagWanted);
}

bool_t xdr_servd_SERV_CREATE_SERVICE_RETURN(XDR *xdrs, servd_SERV_CREATE_SERVICE_RETURN *record) {
    return CodeWhole(xdrs, record->status, record->handle, record->tag);
}

bool_t xdr_servd_SERV_OPEN_SERVICE(XDR *xdrs, servd_SERV_OPEN_SERVICE *record) {
    return CodeWhole(xdrs, record->name, record->desiredAccess);
}

bool_t xdr_servd_SERV_OPEN_SERVICE_RETURN(XDR *xdrs, servd_SERV_OPEN_SERVICE_RETURN *record) {
    return CodeWhole(xdrs, record->status, record->handle);
}

bool_t xdr_servd_SERV_DELETE_SERVICE(XDR *xdrs, servd_SERV_DELETE_SERVICE *record) {
    return CodeWhole(xdrs, record->handle);
}

bool_t xdr_servd_SERV_DELETE_SERVICE_RETURN(XDR *xdrs, servd_SERV_DELETE_SERVICE_RETURN *record) {
    return CodeWhole(xdrs, record->status);
}

bool_t xdr_servd_SERV_CLOSE_SERVICE(XDR *xdrs, servd_SERV_CLOSE_SERVICE *record) {
    return CodeWhole(xdrs, record->handle);
}

bool_t xdr_servd_SERV_CLOSE_SERVICE_RETURN(XDR *xdrs, servd_SERV_CLOSE_SERVICE_RETURN *record) {
    return CodeWhole(xdrs, record->status);
}

bool_t xdr_servd_SERV_LOCK_SERVICE(XDR *xdrs, servd_SERV_LOCK_SERVICE *record) {
    return CodeWhole(xdrs, record->lockId, record->owner);
}

bool_t xdr_servd_SERV_LOCK_SERVICE_RETURN(XDR *xdrs, servd_SERV_LOCK_SERVICE_RETURN *record) {
    return CodeWhole(xdrs, record->status);
}

bool_t xdr_servd_SERV_UNLOCK_SERVICE(XDR *xdrs, servd_SERV_UNLOCK_SERVICE *record) {
    return CodeWhole(xdrs, record->lockId);
}

bool_t xdr_servd_SERV_UNLOCK_SERVICE_RETURN(XDR *xdrs, servd_SERV_UNLOCK_SERVICE_RETURN *record) {
    return CodeWhole(xdrs, record->status);
}

bool_t xdr_servd_SERV_QUERY_LOCK_SERVICE(XDR *xdrs, servd_SERV_QUERY_LOCK_SERVICE *record) {
    return CodeWhole(xdrs, record->unused);
}

bool_t xdr_servd_SERV_QUERY_LOCK_SERVICE_RETURN(XDR *xdrs, servd_SERV_QUERY_LOCK_SERVICE_RETURN *record) {
    return CodeWhole(xdrs, record->status, record->isLocked, record->owner, record->lockDurationSec);
}

bool_t xdr_servd_SERV_START_SERVICE(XDR *xdrs, servd_SERV_START_SERVICE *record) {
    return CodeWhole(xdrs, record->handle, record->arglist, record->argc);
}

bool_t xdr_servd_SERV_START_SERVICE_RETURN(XDR *xdrs, servd_SERV_START_SERVICE_RETURN *record) {
    return CodeWhole(xdrs, record->status);
}

bool_t xdr_servd_SERV_CONTROL_SERVICE(XDR *xdrs, servd_SERV_CONTROL_SERVICE *record) {
    return CodeWhole(xdrs, record->handle, record->control);
}

bool_t xdr_servd_SERV_CONTROL_SERVICE_RETURN(XDR *xdrs, servd_SERV_CONTROL_SERVICE_RETURN *record) {
    return CodeWhole(xdrs, record->status, record->serviceStatus);
}

bool_t xdr_servd_SERV_SET_STATUS_SERVICE(XDR *xdrs, servd_SERV_SET_STATUS_SERVICE *record) {
    return CodeWhole(xdrs, record->handle, record->serviceStatus);
}

bool_t xdr_servd_SERV_SET_STATUS_SERVICE_RETURN(XDR *xdrs, servd_SERV_SET_STATUS_SERVICE_RETURN *record) {
    return CodeWhole(xdrs, record->status);
}

bool_t xdr_servd_SERV_DUMMY(XDR *xdrs, servd_SERV_DUMMY *record) { return CodeWhole(xdrs, record->dummy); }

bool_t xdr_servd_SERV_DUMMY_RETURN(XDR *xdrs, servd_SERV_DUMMY_RETURN *record) {
    return CodeWhole(xdrs, record->dummy);
}

bool_t xdr_servd_SERV_QUERY_STATUS_SERVICE(XDR *xdrs, servd_SERV_QUERY_STATUS_SERVICE *record) {
    return CodeWhole(xdrs, record->handle);
}

bool_t xdr_servd_SERV_QUERY_STATUS_SERVICE_RETURN(XDR *xdrs, servd_SERV_QUERY_STATUS_SERVICE_RETURN *record) {
    return CodeWhole(xdrs, record->status, record->serviceStatus);
}

bool_t xdr_servd_SERV_ENUM_STATUS_SERVICE(XDR *xdrs, servd_SERV_ENUM_STATUS_SERVICE *record) {
    return CodeWhole(xdrs, record->resumeIndex, record->typeFilter, record->stateFilter, record->bufferBytes);
}

bool_t xdr_servd_SERV_ENUM_STATUS_SERVICE_RETURN(XDR *xdrs, servd_SERV_ENUM_STATUS_SERVICE_RETURN *record) {
    return CodeWhole(xdrs, record->status, record->bytesNeeded, record->servicesReturned, record->resumeIndex,
                     record->services);
}

bool_t xdr_servd_SERV_GET_DISPLAY_SERVICE(XDR *xdrs, servd_SERV_GET_DISPLAY_SERVICE *record) {
    return CodeWhole(xdrs, record->name);
}

bool_t xdr_servd_SERV_GET_DISPLAY_SERVICE_RETURN(XDR *xdrs, servd_SERV_GET_DISPLAY_SERVICE_RETURN *record) {
    return CodeWhole(xdrs, record->status, record->displayName);
}

bool_t xdr_servd_SERV_GET_KEY_SERVICE(XDR *xdrs, servd_SERV_GET_KEY_SERVICE *record) {
    return CodeWhole(xdrs, record->displayName);
}

bool_t xdr_servd_SERV_GET_KEY_SERVICE_RETURN(XDR *xdrs, servd_SERV_GET_KEY_SERVICE_RETURN *record) {
    return CodeWhole(xdrs, record->status, record->name);
}

bool_t xdr_servd_SERV_ENUM_DEPEND_SERVICE(XDR *xdrs, servd_SERV_ENUM_DEPEND_SERVICE *record) {
    return CodeWhole(xdrs, record->handle, record->stateFilter, record->bufferBytes);
}

bool_t xdr_servd_SERV_ENUM_DEPEND_SERVICE_RETURN(XDR *xdrs, servd_SERV_ENUM_DEPEND_SERVICE_RETURN *record) {
    return CodeWhole(xdrs, record->status, record->bytesNeeded, record->servicesReturned, record->services);
}

bool_t xdr_servd_SERV_QUERY_CONFIG_SERVICE(XDR *xdrs, servd_SERV_QUERY_CONFIG_SERVICE *record) {
    return CodeWhole(xdrs, record->handle);
}

bool_t xdr_servd_SERV_QUERY_CONFIG_SERVICE_RETURN(XDR *xdrs, servd_SERV_QUERY_CONFIG_SERVICE_RETURN *record) {
    return CodeWhole(xdrs, record->status, record->serviceType, record->startType, record->errorControl,
                     record->imagePath, record->group, record->tag, record->dependencies, record->account,
                     record->displayName);
}

bool_t xdr_servd_SERV_CHANGE_CONFIG_SERVICE(XDR *xdrs, servd_SERV_CHANGE_CONFIG_SERVICE *record) {
    return CodeWhole(xdrs, record->handle, record->serviceType, record->startType, record->errorControl,
                     record->imagePath, record->group, record->dependencies, record->account, record->password,
                     record->displayName, record->tagWanted);
}

bool_t xdr_servd_SERV_CHANGE_CONFIG_SERVICE_RETURN(XDR *xdrs, servd_SERV_CHANGE_CONFIG_SERVICE_RETURN *record) {
    return CodeWhole(xdrs, record->status, record->tag);
}

bool_t xdr_servd_STOP_DAEMON_SERVICE(XDR *xdrs, servd_STOP_DAEMON_SERVICE *record) {
    return CodeWhole(xdrs, record->unused);
}

bool_t xdr_servd_STOP_DAEMON_SERVICE_RETURN(XDR *xdrs, servd_STOP_DAEMON_SERVICE_RETURN *record) {
    return CodeWhole(xdrs, record->unused);
}
