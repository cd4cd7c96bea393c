// SPDX-License-Identifier: MIT
// account: the Unix user that a service runs as.
#pragma once

#include "tv/winreg.h"
#include "util/guard.h"

#include <sys/types.h>

#include <cstdint>

struct Account {
    bool usable;    // false: the start fails
    bool isNamed;   // a user is to be switched to
    bool hasGroups; // group ids are to be switched too
    uid_t user;
    gid_t group;
    std::unique_ptr<gid_t, Calls<&std::free>> groups; // supplementary
    int groupCount;
};

// The account that the service's key names. Only root can take on another's groups; for any other user the switch
// either changes nothing or fails.
[[nodiscard]] Account ReadAccount(HKEY serviceKey);

// Takes on an account's groups and its user in the calling process, which is about to execute a program. False when
// that fails, or when the account is not usable. System calls only.
[[nodiscard]] bool BecomeAccount(const Account &account);

inline constexpr std::uint32_t unknownUser = 0xFFFFFFFF;
// Returns the Unix user id; 0 for a null or empty name; unknownUser for an unknown one.
[[nodiscard]] std::uint32_t GetUserIDFromName(const char *name);
