// SPDX-License-Identifier: MIT
// hosts: from names to processes, and from what these write to one table.
#include "tvsc/hosts.h"

#include "tvsc/host_output.h"
#include "tvsc/host_run.h"
#include "tvsc/interrupts.h"
#include "util/printable.h"
#include "util/shell_quoted.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace {

constexpr char ownProgram[] = "/proc/self/exe";

void AddHost(std::string name, std::vector<std::string> *hosts) {
    name.erase(0, name.find_first_not_of(" \t\r"));
    name.erase(name.find_last_not_of(" \t\r") + 1);
    const bool isNew = std::find(hosts->begin(), hosts->end(), name) == hosts->end();
    if (!name.empty() && isNew) hosts->push_back(name);
}

// ssh would take one with a dash in front for an option.
bool CanBeHost(const std::string &name) {
    return name.front() != '-' && std::all_of(name.begin(), name.end(),
                                              [](char c) { return static_cast<unsigned char>(c) > ' ' && c != 0x7F; });
}

std::vector<std::string> WordsFor(const HostsOptions &options, const HostsCommand &command, const std::string &host) {
    std::vector<std::string> words =
        options.overSsh ? std::vector<std::string>{"tvsc"} : std::vector<std::string>{ownProgram, "--host", host};
    words.insert(words.end(), command.words.begin(), command.words.end());
    if (!options.overSsh) return words;
    // ssh hands one line to the shell there.
    std::string line;
    for (const std::string &word : words) {
        line += (line.empty() ? "" : " ") + ShellQuoted(word);
    }
    return {"ssh", "-o", "BatchMode=yes", "--", host, line};
}

} // namespace

bool ReadHosts(const std::string &list, const HostsOptions &options, std::vector<std::string> *hosts,
               std::string *problem) {
    std::istringstream names(list);
    for (std::string name; std::getline(names, name, ',');) {
        AddHost(name, hosts);
    }
    if (!options.file.empty()) {
        std::ifstream file(options.file);
        if (!file) {
            *problem = options.file + ": cannot be read";
            return false;
        }
        for (std::string line; std::getline(file, line);) {
            AddHost(line.substr(0, line.find('#')), hosts);
        }
    }
    const auto wrong = std::find_if_not(hosts->begin(), hosts->end(), CanBeHost);
    if (wrong != hosts->end()) *problem = *wrong + ": not the name of a machine";
    if (hosts->empty()) *problem = "no machine is named";
    return problem->empty();
}

int RunOnHosts(const HostsOptions &options, const HostsCommand &command) {
    if (command.isLive) EndQuietlyWhenInterrupted();
    (void)unsetenv("TVSC_FORMAT"); // what comes of it is among their words
    std::vector<HostRun> runs;
    std::size_t longestName = 0;
    for (const std::string &host : command.hosts) {
        runs.emplace_back().host = host;
        runs.back().command = WordsFor(options, command, host);
        longestName = std::max(longestName, host.size());
    }
    HostRunRules rules = {.parallel = options.parallel, .timeoutSec = options.hostTimeoutSec};
    if (command.isLive) {
        rules = {.parallel = static_cast<unsigned>(runs.size()), .timeoutSec = 0};
        rules.takeLine = [&](const HostRun &run, const std::string &line) {
            PrintHostLine(run.host, longestName, line, command.json);
        };
        rules.takeErrorLine = [](const HostRun &run, const std::string &line) { PrintHostError(run.host, line); };
    }
    RunSideBySide(&runs, rules);
    PrintHostErrors(runs, options.hostTimeoutSec);
    if (command.json && !command.isLive) {
        PrintHostsJson(runs);
    } else if (command.listsServices) {
        PrintHostsServices(runs);
    } else if (!command.isLive) {
        PrintHostsLines(runs, longestName);
    }
    int worst = EXIT_DONE;
    for (const HostRun &run : runs) {
        worst = std::max(worst, run.exitStatus);
    }
    return worst;
}
