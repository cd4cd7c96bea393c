/* SPDX-License-Identifier: MIT */
/* ktl_getlogin: the login name of the session. For C and C++. */
#ifndef TV_KTL_GETLOGIN_H
#define TV_KTL_GETLOGIN_H

#ifdef __cplusplus
extern "C" {
#endif

/* Returns what getlogin() returns: libc's static buffer, valid until the next call; null when there is no login name.
 * Not reentrant. */
char *_ktl_getlogin(void);

#ifdef __cplusplus
}
#endif

#endif
