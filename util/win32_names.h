/* SPDX-License-Identifier: MIT */
/* win32_names: what a Win32 result code is called, for messages to people. For C and C++. */
#ifndef TV_WIN32_NAMES_H
#define TV_WIN32_NAMES_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The name of a result code of winerror.h, such as "ERROR_FILE_NOT_FOUND". Static; null for a code that is not there.
 */
const char *Win32ErrorName(uint32_t code);

/* What the code says, one line in lower case without a full stop, such as "no such key, value or file". Static; null
 * for a code that is not there. */
const char *Win32ErrorText(uint32_t code);

#ifdef __cplusplus
}
#endif

#endif
