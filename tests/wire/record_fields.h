// SPDX-License-Identifier: MIT
// record_fields: the records that rpcgen generates from protocol/ (same names after the prefix oracle_), which stand
// for ours: what goes over the fields of our records goes over theirs, by name and in our order.
#pragma once

#include "tests/support/records.h"

#define clientVersion version // "version" is a keyword of rpcgen
#include "oracle_regd.h"
#include "oracle_servd.h"
#include "oracle_service.h"
#undef clientVersion

#define TV_STANDS_FOR(Oracle, Ours)                                                                                    \
    template <>                                                                                                        \
    struct StandsFor<Oracle> {                                                                                         \
        using Record = Ours;                                                                                           \
    };
#define TV_RECORD(Name)                                                                                                \
    TV_STANDS_FOR(oracle_##Name, Name)                                                                                 \
    TV_ROUTINE(oracle_##Name)
SERVD_RECORDS
SERVICE_RECORDS
REGD_RECORDS
#undef TV_RECORD

// Links and status of the protocol spoken to a service process, which are the service daemon's in our records.
TV_STANDS_FOR(oracle_svc_arglist_t, svd_arglist_t)
TV_STANDS_FOR(oracle_svc_status_t, svd_status_t)
#undef TV_STANDS_FOR

// Of a union the body is visited when its discriminant is 1.
template <typename Body, typename Visit>
void VisitFields(RegdResult<Body> &result, Visit &visit) {
    visit(result.discriminant);
    if (result.discriminant == 1) visit(result.body);
}

#define TV_UNION(Name)                                                                                                 \
    template <typename Visit>                                                                                          \
    void VisitFields(oracle_##Name##_RES &result, Visit &visit) {                                                      \
        visit(result.discriminant);                                                                                    \
        if (result.discriminant == 1) visit(result.oracle_##Name##_RES_u.body);                                        \
    }
REGD_RESULTS(TV_UNION)
#undef TV_UNION
