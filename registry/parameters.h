// SPDX-License-Identifier: MIT
// parameters: where registry daemons are expected, and which connections are allowed.
//
// Thread: under tvRegistryMutex only (tvpthread.h).
#pragma once

#include <cstdint>

extern int regdSystemDaemon; // the only daemon option that this client reads; the others: unused_state.h
extern int bAllowSystemDaemonConnect;
extern std::uint32_t tvreg_prognum; // 0 until first computed

// The oldest version of a daemon that tvVerifyRegistryVersion accepts.
constexpr unsigned oldestRegistryMajor = 2;
constexpr unsigned oldestRegistryMinor = 3;

constexpr unsigned registryHostBytes = 256; // host name buffers, terminator included

// Copies a host name into a buffer of registryHostBytes; a longer one is cut.
void CopyHostName(char *host, const char *name);
