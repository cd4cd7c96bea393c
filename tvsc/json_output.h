// SPDX-License-Identifier: MIT
// json_output: everything that tvsc writes as JSON. One object on stdout; stable snake_case keys.
#pragma once

#include "svcapi/client.h"
#include "tvsc/boot_plan.h"
#include "tvsc/daemon_process.h"
#include "tvsc/findings.h"
#include "tvsc/leftovers.h"
#include "tvsc/port_mapper.h"
#include "tvsc/service_changes.h"
#include "tvsc/service_graph.h"
#include "tvsc/service_view.h"
#include "tvsc/timeline.h"

void PrintServicesJson(const Session &session, const std::vector<ServiceView> &views);
void PrintResultsJson(const Session &session);
void PrintRelationJson(const Session &session, const std::string &name, const std::string &relation,
                       const std::vector<ListedService> &services);
void PrintLockJson(const Session &session, const LockStatus &status);
void PrintNamesJson(const Session &session, const std::string &name, const std::string &displayName);
void PrintExplanationJson(DWORD code);

struct PingReport {
    bool reachable = false;
    DWORD initCode = 0;
    std::vector<double> roundTripsMs;
    std::optional<DaemonProcess> process = {}; // where it was looked for and is known
};
void PrintPingJson(const Options &options, const PingReport &report);

//   daemonOf  which daemon an entry is of
void PrintRegistrationsJson(const Options &options, const std::vector<Registration> &entries,
                            const char *(*daemonOf)(const Registration &entry));

void PrintPlanJson(const Options &options, const BootDatabase &database, const BootPlan &plan);

// What start, stop and restart would do.
struct ActStep {
    std::string action; // "start" or "stop"
    std::string name;
    std::string why;
};
void PrintActPlanJson(const Options &options, const std::vector<ActStep> &steps, std::size_t worstSec);

void PrintGraphJson(const Session &session, const ServiceGraph &graph, const std::vector<bool> &wanted);
//   name  the service that they are about; empty for all
void PrintFindingsJson(const Options &options, const std::string &name, const Findings &findings);
void PrintLeftoversJson(const Options &options, const std::vector<RegisteredService> &services);

// A line of a service's log.
//   time  when it was written, UTC; empty where that is not known
[[nodiscard]] std::string LogLineJson(const Options &options, const std::string &name, const std::string &time,
                                      const std::string &text);
// The same from a line of the journal's own JSON; empty where it is none.
[[nodiscard]] std::string LogLineOfJournal(const Options &options, const std::string &name, const std::string &line);

// One line each.
//   time  of the look, UTC
[[nodiscard]] std::string ChangeJson(const Options &options, const ServiceChange &change, const std::string &time);
// The daemon does not answer any more, or does again with code 0.
[[nodiscard]] std::string DaemonEventJson(const Options &options, DWORD code, const std::string &time);

void PrintTimelineJson(const Options &options, const Timeline &timeline);
