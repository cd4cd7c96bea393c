/* SPDX-License-Identifier: MIT */
/* winsvc: the service functions, tv/winsvc.h. */
#ifndef TVWIN32_WINSVC_H
#define TVWIN32_WINSVC_H

#include "winbase.h"

#include "tv/winsvc.h"

#endif
