/* SPDX-License-Identifier: MIT */
/* Stands in for i2pd's daemon, and for the one question about windows that its service code asks. */
#pragma once

typedef void *HWINSTA;
typedef struct USEROBJECTFLAGS {
    BOOL fInherit, fReserved;
    DWORD dwFlags;
} USEROBJECTFLAGS;
#define UOI_FLAGS 1
#define WSF_VISIBLE 1
inline HWINSTA GetProcessWindowStation() { return nullptr; }
inline BOOL GetUserObjectInformation(HWINSTA, int, void *, DWORD, DWORD *) { return FALSE; }

struct DaemonStandIn {
    volatile bool running;
    bool start() { return running = true; }
    bool stop() { return !(running = false); }
    bool isDaemon;
};
extern DaemonStandIn Daemon;
