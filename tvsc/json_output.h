// SPDX-License-Identifier: MIT
// json_output: everything that tvsc writes as JSON. One object on stdout; stable snake_case keys.
#pragma once

#include "tvsc/boot_plan.h"
#include "tvsc/tvsc.h"

// A service as list, status and show print it.
struct ServiceView {
    ListedService service;
    std::string source; // "enumeration", "query", "interrogate"
    pid_t pidHint = 0;
    std::optional<ServiceConfig> config;
};

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
};
void PrintPingJson(const Options &options, const PingReport &report);

// A remark in words, and the seconds that the starts of a plan take when each fails as late and as often as it may.
[[nodiscard]] std::string RemarkText(const BootRemark &remark);
[[nodiscard]] std::size_t WorstCaseSec(const BootPlan &plan);
void PrintPlanJson(const Options &options, const BootDatabase &database, const BootPlan &plan);
