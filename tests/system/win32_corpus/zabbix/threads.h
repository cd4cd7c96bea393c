/* SPDX-License-Identifier: MIT */
/* Stands in for Zabbix' threads. */
#include <windows.h>

typedef HANDLE ZBX_THREAD_HANDLE;
