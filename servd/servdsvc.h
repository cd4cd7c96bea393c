// SPDX-License-Identifier: MIT
// servdsvc: the dispatcher of the service daemon's program.
#pragma once

#include <rpc/rpc.h>

// Answers one request of program SERVDAEMONPROG version 1: decodes its argument record, calls the handler of its
// procedure, sends the handler's result and frees the decoded arguments. Registered with svc_register; called by
// svc_run, one request at a time, on the main thread.
void servdaemonprog_1(struct svc_req *request, SVCXPRT *transport);
