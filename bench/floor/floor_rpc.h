// SPDX-License-Identifier: MIT
// floor_rpc: the program that a bare libtirpc server answers, as its clients see it.
//
// Everything here is coded the way rpcgen would have it, with the library's own routines.
#pragma once

#include <rpc/rpc.h>

constexpr u_long FLOORPROG = 0x20000F01;
constexpr u_long FLOORVERS = 1;

enum FloorProcedure : u_long {
    FLOOR_STATUS = 1, // an int in, eight out: the sizes of a status query
    FLOOR_ECHO = 2,   // FloorEcho in, as many bytes out as it asks for
    FLOOR_LIST = 3,   // a number in, a list of so many FloorEntry out
};

// A service process registers under this number plus its process id, and answers its start request.
constexpr u_long FLOORSERVICEPROG = 0x40000000;
constexpr u_long FLOOR_START = 1;

struct FloorStatus {
    int words[8];
};

inline bool_t xdr_FloorStatus(XDR *xdrs, FloorStatus *record) {
    for (int &word : record->words) {
        if (!xdr_int(xdrs, &word)) return FALSE;
    }
    return TRUE;
}

struct FloorBytes {
    u_int count;
    char *bytes;
};

inline bool_t xdr_FloorBytes(XDR *xdrs, FloorBytes *record) {
    return xdr_bytes(xdrs, &record->bytes, &record->count, ~0u);
}

struct FloorEcho {
    u_int replyBytes;
    FloorBytes payload;
};

inline bool_t xdr_FloorEcho(XDR *xdrs, FloorEcho *record) {
    return xdr_u_int(xdrs, &record->replyBytes) && xdr_FloorBytes(xdrs, &record->payload);
}

struct FloorEntry {
    char *name;
    char *displayName;
    int words[7];
    FloorEntry *next;
};

inline bool_t xdr_FloorEntry(XDR *xdrs, FloorEntry *record) {
    if (!xdr_string(xdrs, &record->name, ~0u) || !xdr_string(xdrs, &record->displayName, ~0u)) return FALSE;
    for (int &word : record->words) {
        if (!xdr_int(xdrs, &word)) return FALSE;
    }
    return xdr_pointer(xdrs, reinterpret_cast<char **>(&record->next), sizeof(FloorEntry),
                       reinterpret_cast<xdrproc_t>(xdr_FloorEntry));
}

struct FloorList {
    FloorEntry *first;
};

inline bool_t xdr_FloorList(XDR *xdrs, FloorList *record) {
    return xdr_pointer(xdrs, reinterpret_cast<char **>(&record->first), sizeof(FloorEntry),
                       reinterpret_cast<xdrproc_t>(xdr_FloorEntry));
}
