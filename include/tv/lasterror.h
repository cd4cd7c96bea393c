/* SPDX-License-Identifier: MIT */
/* lasterror: the code of a thread's last failure. Libraries tvsvc and tvbase; a program that uses both has one. */
#ifndef TV_LASTERROR_H
#define TV_LASTERROR_H

#include "tv/wintypes.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* The code of the calling thread's last failure; each thread has its own, 0 at first. */
DWORD GetLastError(void);
void SetLastError(DWORD dwErrCode);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
