// SPDX-License-Identifier: MIT
// real_daemon: a real tvregd and a real servd on this private host, for programs that call the procedures over TCP.
//
// It brings what procedures.h asks a test program for. One tvregd serves the whole program; each StartDaemon ends the
// servd before it.
#pragma once

#include "rpc/dial.h"

#include <sys/types.h>

// The servd that runs now, and the connection to it.
pid_t DaemonProcess();
CLIENT *DaemonConnection();
// Waits for the servd that runs now to end by itself. Returns the status as of waitpid.
int WaitForDaemonEnd();
