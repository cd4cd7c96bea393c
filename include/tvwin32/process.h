/* SPDX-License-Identifier: MIT */
/* process: threads and the process id under their names in the Win32 C library. */
#ifndef TVWIN32_PROCESS_H
#define TVWIN32_PROCESS_H

#include "winbase.h"

#include <unistd.h>

#ifndef _getpid
#define _getpid getpid
#endif

/* CreateThread and ExitThread (tv/winbase.h). The handle is the caller's to close; 0 when there is no thread. */
static __inline__ uintptr_t _beginthreadex(void *security, unsigned stackSize, unsigned (*start)(void *),
                                           void *parameter, unsigned flags, unsigned *id) {
    return (uintptr_t)CreateThread((LPSECURITY_ATTRIBUTES)security, stackSize, start, parameter, flags, id);
}
#define _endthreadex ExitThread

#endif
