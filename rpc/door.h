// SPDX-License-Identifier: MIT
// door: accepted connections that never block the server loop.
#pragma once

#include <rpc/rpc.h>

// Takes over the accepting of connections from a listening transport that svctcp_create made. From then on svc_run
// hands over requests only when they are whole, replies never block, and every bound of door.cpp holds. The dispatcher
// sees an ordinary SVCXPRT. One door for each process. Returns false when no descriptor is left.
[[nodiscard]] bool OpenDoor(SVCXPRT *listener);
