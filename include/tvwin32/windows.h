/* SPDX-License-Identifier: MIT */
/*
 * windows: everything that service programs written for Win32 find in this folder.
 *
 * pkg-config --cflags --libs tvwin32 leads here. What there is: services, registry, and of the rest what a service
 * program touches between its service calls. Files, windows and sockets are Unix's own.
 */
#ifndef TVWIN32_WINDOWS_H
#define TVWIN32_WINDOWS_H

#include <ctype.h>
#include <stdarg.h>
#include <stdlib.h>

#include "winbase.h"
#include "windef.h"
#include "winerror.h"
#include "winnt.h"
#include "winreg.h"
#include "winsvc.h"

#endif
