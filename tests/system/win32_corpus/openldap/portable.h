/* SPDX-License-Identifier: MIT */
/* Stands in for OpenLDAP's configuration of a build, and for two functions of another C library. */
#include <windows.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#define HAVE_NT_SERVICE_MANAGER 1
#define LDAP_DIRSEP "/"
#define SERVICE_NAME "OpenLDAP-slapd"
#define itoa(number, text, base) sprintf((text), "%d", (number))
#ifndef _stricmp
#define _stricmp strcasecmp
#endif
#define stricmp strcasecmp
