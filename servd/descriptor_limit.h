// SPDX-License-Identifier: MIT
// descriptor_limit: the daemon takes as many descriptors as it may, and its services get the limit that it was given.
#pragma once

// Raises the soft limit to the hard one, and remembers it. Main thread, once.
void RaiseDescriptorLimit();

// In a forked child: sets the soft limit back. A shell that closes whatever may be open would be at it for long.
// Async-signal-safe.
void RestoreDescriptorLimitInChild();
