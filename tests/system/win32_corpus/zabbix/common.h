/* SPDX-License-Identifier: MIT */
/* Stands in for what Zabbix' sources share. Its wide characters have 16 bits, and libc has no functions for those. */
#include <windows.h>

#include <tchar.h>
#include <signal.h>
#include <stdio.h>
#include <strsafe.h>

#define wchar_t WCHAR
#define wcslen _tcslen
#define wcsstr _tcsstr
#define _wfullpath(full, path, room) GetFullPathName((path), (room), (full), NULL)

#define SUCCEED 0
#define FAIL (-1)
#define ARRSIZE(array) (sizeof(array) / sizeof *(array))
#define ZBX_TASK_FLAG_FOREGROUND 1
#define ZABBIX_SERVICE_NAME "Zabbix Agent"
#define ZABBIX_EVENT_SOURCE ZABBIX_SERVICE_NAME
#define LOG_LEVEL_INFORMATION 1
#define LOG_LEVEL_DEBUG 2

#define zabbix_log(level, ...) zbx_error(__VA_ARGS__)
#define zbx_free(memory) (free(memory), (memory) = NULL)
#define zbx_acp_to_unicode zbx_utf8_to_unicode

extern char *CONFIG_FILE;
int MAIN_ZABBIX_ENTRY(int flags);
void zbx_error(const char *format, ...);
void zbx_on_exit(int result);
char *strerror_from_system(DWORD code);
wchar_t *zbx_utf8_to_unicode(const char *text);
