/* SPDX-License-Identifier: MIT */
/* path_util: routines for Unix path names. For C and C++. */
#ifndef TV_PATH_UTIL_H
#define TV_PATH_UTIL_H

#ifdef __cplusplus
extern "C" {
#endif

/* Tells a path from a bare name. Returns 1 when name begins with "/" or, unless absoluteOnly is non-zero, holds a "/"
 * anywhere; 0 otherwise and for null. Reentrant. */
int _ktlIsPathSpec(const char *name, int absoluteOnly);

#ifdef __cplusplus
}
#endif

#endif
