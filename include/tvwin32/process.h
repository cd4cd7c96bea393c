/* SPDX-License-Identifier: MIT */
/* process: threads and the process id under their names in the Win32 C library. */
#ifndef TVWIN32_PROCESS_H
#define TVWIN32_PROCESS_H

#include "winbase.h"

#include <unistd.h>

#ifndef _getpid
#define _getpid getpid
#endif

#endif
