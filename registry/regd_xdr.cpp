// SPDX-License-Identifier: MIT
// regd_xdr: the routines of the registry daemon's records.
#include "registry/regd_xdr.h"

#include "util/ktl_strings.h"

std::int32_t g_packetVersion = 0;
char *g_userNameToFree = nullptr;

// Packet version 1 sends no identity. Deliberate: only the first record gets the defaults, later ones keep whatever
// their memory held.
bool_t CodeField(XDR *xdrs, regd_USER_DATA &user) {
    if (g_packetVersion == 1) {
        if (g_userNameToFree == nullptr) {
            g_userNameToFree = _ktl_strdup(".Default");
            user = {30000, 123456, g_userNameToFree, 123456};
        }
        return TRUE;
    }
    return CodeField<regd_USER_DATA>(xdrs, user);
}

#define ROUTINE(Record)                                                                                                \
    bool_t xdr_##Record(XDR *xdrs, Record *record) { return CodeRecord(xdrs, *record); }
#define RESULT_ROUTINES(Name) ROUTINE(Name##_RETURN) ROUTINE(Name##_RES)
#define ARGUMENT_ROUTINE(number, name, stub, Argument, Result) ROUTINE(Argument)

ROUTINE(regd_USER_DATA)
ROUTINE(regd_FILETIME)
ROUTINE(regd_SECURITY_ATTR)
ROUTINE(regd_REGSAM)
REGD_RESULTS(RESULT_ROUTINES)
REGD_PROCEDURES(ARGUMENT_ROUTINE)
