// SPDX-License-Identifier: MIT
// foresight: what the daemon and the service API would refuse, found out without asking them to do it: for --dry-run.
#pragma once

#include "tvsc/session.h"

#include <optional>

// What create or config asks for. What is not given is left as it is.
struct RequestedService {
    std::string name;
    std::optional<std::string> display = {}, image = {}, group = {}, user = {};
    std::optional<std::vector<std::string>> dependencies = {}; // groups with their leading +
    bool hasErrorControl = false;
    bool wantsTag = false;
};

// Whether the daemon takes an account: that of a user of this machine, or "" for none.
[[nodiscard]] bool IsAccount(const std::string &account);

// Each returns 0, or the code that the call would fail with: 87 for a text that is too long, and for a new service with
// a tag and no group, 123 for a name that is none, 1057 for an account that no user of this machine has (of another one
// nobody here knows), 1059 for dependencies that lead into a ring; for a new service 1073 when there is one of its name
// and 1065 without the registry, for one that is there 52 when its display name is that of another one, and 1016
// without the registry where the change needs what stands there: with a new image, and where the error control is to
// stay. Services that are marked for deletion or never listed are not looked at: rings through them, and their display
// names, may be refused by the daemon alone.
[[nodiscard]] DWORD ForeseeCreate(Session &session, const RequestedService &wanted);
[[nodiscard]] DWORD ForeseeConfig(Session &session, SC_HANDLE service, const RequestedService &wanted);

// The same for a control: 1052 for one that the service does not take, 1061 in a state in which it takes none, 1062
// when it is stopped, or its process is gone. What it would answer itself is not known.
[[nodiscard]] DWORD ForeseeControl(const Options &options, SC_HANDLE service, const std::string &name, DWORD control);
// The same for having a service stopped, which needs no control where it stops already or its process is gone: 0 then.
[[nodiscard]] DWORD ForeseeStop(const Options &options, SC_HANDLE service, const std::string &name);
