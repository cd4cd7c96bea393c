// SPDX-License-Identifier: MIT
// look: the commands that only look. Each returns the exit status.
#pragma once

#include "tvsc/service_view.h"

struct ListFilter {
    std::vector<std::string> patterns;
    std::vector<std::string> states; // "running", "start_pending", ...; "failed"; none: all
    std::string group;
    bool namesOnly = false;
    bool brief = false;                          // no configurations
    DWORD type = SERVICE_WIN32 | SERVICE_DRIVER; // one of these bits; both: any type
    bool all = false;                            // also what no enumeration shows
};
int RunList(Session &session, const ListFilter &filter);

int RunStatus(Session &session, const std::vector<std::string> &names, StatusLook look);
int RunIsActive(Session &session, const std::vector<std::string> &names);
// With no names: every service that is to be started with the daemon.
int RunIsHealthy(Session &session, const std::vector<std::string> &names);
int RunIsFailed(Session &session, const std::vector<std::string> &names);
//   properties  only the values of these (service_properties.h), one a line; none: everything
int RunShow(Session &session, const std::vector<std::string> &names, const std::vector<std::string> &properties);
int RunDeps(Session &session, const std::string &name, bool dependents);
int RunName(Session &session, const std::string &name);
