/* SPDX-License-Identifier: MIT */
/* ktl_host: the identity of this host. For C and C++. */
#ifndef TV_KTL_HOST_H
#define TV_KTL_HOST_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Returns the 32 bits of gethostid() as an unsigned word. Reentrant; may block while libc resolves the host name. */
uint32_t _ktl_gethostid(void);

#ifdef __cplusplus
}
#endif

#endif
