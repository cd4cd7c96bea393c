/* SPDX-License-Identifier: MIT */
/* Stands in for OpenLDAP's threads: its conditions are events on Win32. */
#include <pthread.h>
#include <unistd.h>

typedef HANDLE ldap_pvt_thread_cond_t;
typedef pthread_t ldap_pvt_thread_t;

#define ldap_pvt_thread_cond_init(condition) (*(condition) = CreateEvent(NULL, FALSE, FALSE, NULL))
#define ldap_pvt_thread_cond_signal(condition) SetEvent(*(condition))
#define ldap_pvt_thread_cond_destroy(condition) CloseHandle(*(condition))
#define ldap_pvt_thread_create(thread, detach, start, argument) pthread_create((thread), NULL, (start), (argument))
#define ldap_pvt_thread_exit(result) pthread_exit(result)
#define ldap_pvt_thread_join(thread, result) pthread_join((thread), (result))
#define ldap_pvt_thread_sleep(seconds) sleep(seconds)
