// SPDX-License-Identifier: MIT
// hosts: one command on many machines, side by side.
//
// Each machine gets a tvsc of its own: here, with --host, or there, through ssh. What they write is gathered into one
// table, or one JSON object. A machine that does not answer holds nobody up but itself.
#pragma once

#include <optional>
#include <string>
#include <vector>

struct HostsOptions {
    std::string file; // names, one a line; empty: none
    bool overSsh = false;
    unsigned parallel = 8;       // so many machines at a time
    double hostTimeoutSec = 180; // of each; longer than a start and the wait for it
};

// What is done on each machine.
struct HostsCommand {
    std::vector<std::string> hosts;
    std::vector<std::string> words; // of the command line, without the options about hosts
    bool listsServices = false;     // its JSON is a list of services, which is shown as one table
    bool isLive = false;            // goes on until interrupted: lines are shown as they come, and nothing times out
    bool json = false;
};

// The machines that a list (A,B,C) and a file name, each once, in order. Returns false where the file cannot be read or
// a name cannot be one, with *problem.
[[nodiscard]] bool ReadHosts(const std::string &list, const HostsOptions &options, std::vector<std::string> *hosts,
                             std::string *problem);

// Runs it. Returns the highest exit status of any machine, 151 for one that took too long.
int RunOnHosts(const HostsOptions &options, const HostsCommand &command);
