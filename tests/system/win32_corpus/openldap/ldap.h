/* SPDX-License-Identifier: MIT */
#define ldap_memfree free
