// SPDX-License-Identifier: MIT
// writers: who may change the registry: everybody, or root, the daemon's own user and the members of a group.
//
// Whose a request is, the kernel tells by its connection. Thread: the only one.
#pragma once

#include <string>

// Lets only members of the group write from now on, beside root and the daemon's user. Membership is looked up when it
// is needed, and counts for some seconds then; a group that does not exist has no members.
void LimitWriters(const std::string &group);

// Whether the client whose request is in hand may write.
[[nodiscard]] bool MayWrite();

// Whether the request in hand comes from root or the daemon's own user.
[[nodiscard]] bool IsDaemonsOwn();
