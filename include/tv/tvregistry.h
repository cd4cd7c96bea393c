/* SPDX-License-Identifier: MIT */
/*
 * tvregistry: what the registry client offers beside the Win32 functions of winreg.h: where its daemon is, the options
 * that are kept for it, and the life of its connections. For C and C++.
 *
 * None of these functions takes the registry mutex except where it says so: call them before a second thread uses the
 * registry.
 */
#ifndef TV_TVREGISTRY_H
#define TV_TVREGISTRY_H

#include <stdint.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* The process id. Cached: the first call stores it and later calls return the stored value, even after a fork. */
pid_t tarvo_getpid(void);

/* Forgets all connections without closing them and makes connecting possible again after a tear-down. In a child after
 * a fork it is the first call to make, whatever the parent's other threads did at the fork. */
void tvRegistryInitData(void);

/* Tears the connections down; until tvRegistryInitData every registry function answers 1016. Takes the registry mutex
 * for each connection.
 *   destroy   non-zero: tells the local daemon that this process leaves and closes the connections;
 *             0: only forgets them (a child after a fork must not touch its parent's connections) */
void tvRegistryCleanConnections(int destroy);

/* Stores daemon options: words separated by single blanks, "-d PATH -i N -k -l N -m N -n N -p N -s N -system -v
 * -dir PATH"; a word that is none of them is skipped. Only -system has an effect on this client.
 *   params   cut up in place; null: the environment variable TARVO_REGISTRY_PARAMS, whose own storage is cut up so
 *            that a later call finds its first word only */
void tvSetRegistryDaemonParamsEx(char *params);

/* Stores daemon options.
 *   location            copied; null leaves the present one
 *   flushInterval       stored when greater than 0; so is pingCheckInterval
 *   logLines            stored when not 0
 *   keepBackup, verbose, systemDaemon   always stored */
void tvSetRegistryDaemonParams(char *location, int flushInterval, int keepBackup, int logLines, int pingCheckInterval,
                               int verbose, int systemDaemon);

/* After tvDisableSystemRegistryConnect nothing is connected any more. Deliberate: the local permission is kept but
 * never consulted. */
void tvDisableSystemRegistryConnect(void);
int tvIsSystemRegistryConnectDisabled(void);
void tvDisableLocalRegistryConnect(void);
int tvIsLocalRegistryConnectDisabled(void);

/* Tells where a registry daemon is expected. Any pointer may be null.
 *   host      in and out, at least 256 bytes; an empty one becomes TARVO_REGISTRY_HOST or else this machine's name
 *   prognum   TARVO_REGISTRY_BASE (decimal) or 0x3003003C; plus the user id (1 for root) AND 0xFFFF unless the option
 *             -system is set. Computed once a process. Deliberate: connections always go to 0x3003003C all the same.
 *   version   2
 *   proto     4 bytes, "tcp" */
void tvGenRegistryONCAddr(char *host, unsigned *prognum, unsigned *version, char proto[4]);

/* Cuts a host name at its first dot. */
void tvGetPartialName(char *host);

/* Compares a daemon's version with 2.3.0. Returns 0 when it is the same, negative when the daemon is too old to be
 * spoken to (-1 by major, -2 by minor number), positive when it is newer (1 major, 2 minor, 3 patch). */
int tvVerifyRegistryVersion(unsigned major, unsigned minor, unsigned patch);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
