// SPDX-License-Identifier: MIT
// service_files: all that root has to make for a service that runs under an account: its process id hint, its state
// file and the place of its log.
#pragma once

#include <string>

// Makes what is missing or another user's. Returns 0, also where there is nothing to do, because the account is empty
// or root's; EPERM for anybody but root, EINVAL for a name that cannot be a file's, ENOENT for an unknown account, or
// the errno of what failed first; the rest is made in any case.
[[nodiscard]] int PrepareServiceFiles(const std::string &serviceName, const std::string &account);
