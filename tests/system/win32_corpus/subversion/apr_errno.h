/* SPDX-License-Identifier: MIT */
typedef int apr_status_t;
#define APR_FROM_OS_ERROR(error) ((apr_status_t)(error))
#define apr_get_os_error() ((apr_status_t)GetLastError())
