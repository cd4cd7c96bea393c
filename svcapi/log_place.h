// SPDX-License-Identifier: MIT
// log_place: where the logs of services stand that have no journal.
//
// Each service has a folder of its own, /var/log/tv/NAME.d, which belongs to the service's account and holds NAME.log
// and the older NAME.log.1, NAME.log.2, ...; beside it a link, /var/log/tv/NAME.log, leads to the newest. /var/log/tv
// is root's, and nobody else makes anything there: root makes the folder when the service is created or its account
// changes (CreateServiceA, ChangeServiceConfigA), and where it is missing at boot (tvsc prepare). What an older account
// has logged moves to NAME.d.UID, and comes back with it.
//
// Where /var/log cannot be written and nobody has made the folder, $XDG_STATE_HOME/tv/log takes its place.
#pragma once

#include <string>

// Makes the place of a service that runs under an account; empty is root. Returns 0; EPERM for anybody but root, EINVAL
// for a name that cannot be a file's, ENOENT for an unknown account, or the errno of what failed.
[[nodiscard]] int PrepareLogPlace(const std::string &serviceName, const std::string &account);

// The folder that this process may log in; made where it can be. Empty when there is none, with errno.
[[nodiscard]] std::string OwnLogFolder(const std::string &serviceName);

// The folder of a service's log for somebody who reads it; empty when there is none.
[[nodiscard]] std::string FindLogFolder(const std::string &serviceName);

// The file of a log: number 0 is the newest.
[[nodiscard]] std::string LogFilePath(const std::string &folder, const std::string &serviceName, unsigned number);
