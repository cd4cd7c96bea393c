// SPDX-License-Identifier: MIT
// servd_xdr: the routines of the service daemon's records.
//
// Each record is coded whole or not at all (CodeWhole): after a failed decode nothing is left to release, so that the
// dispatcher can answer and return at once.
#include "servd/servd_xdr.h"

#define ROUTINE(Record)                                                                                                \
    bool_t xdr_##Record(XDR *xdrs, Record *record) { return CodeWhole(xdrs, *record); }
#define ROUTINES(number, name, handler, Record) ROUTINE(Record) ROUTINE(Record##_RETURN)

ROUTINE(svd_arglist_t)
ROUTINE(svd_status_t)
ROUTINE(svd_enum_status_list_t)
SERVD_PROCEDURES(ROUTINES)
