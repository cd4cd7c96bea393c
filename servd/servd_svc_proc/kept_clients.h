// SPDX-License-Identifier: MIT
// kept_clients: the client handles to siblings that starts leave over, neither used nor destroyed.
#pragma once

#include <rpc/rpc.h>

#include <cstddef>

// Keeps a handle for the rest of the daemon's life. The oldest ones give way when descriptors become short.
void KeepClient(CLIENT *client);

[[nodiscard]] std::size_t KeptClients();
// Destroys the oldest; there must be one.
void GiveUpOldestClient();
