// SPDX-License-Identifier: MIT
// service_view: a service as list, status and show tell it.
//
// Enumeration and the peek control touch nothing, hints and state files are read beside them; a status query applies
// the daemon's deadline, an interrogation calls the service. Only the first ones are used unless the user asks for
// more.
#pragma once

#include "svcapi/client.h"
#include "svcapi/local_configs.h"
#include "tvsc/hosted.h"
#include "tvsc/liveness.h"
#include "tvsc/table.h"

#include <optional>

struct ServiceView {
    ListedService service;
    std::string source; // "enumeration", "peek", "query", "interrogate"
    ProcessView process;
    std::optional<HostedView> hosted; // where tvhost has left something
    std::optional<ServiceConfig> config;
    std::string command;                      // what it runs, as far as that is known; show only
    std::string description;                  // show only
    std::optional<HiddenService> hidden = {}; // where no enumeration shows it
};

[[nodiscard]] ServiceView ViewOf(const Session &session, const ListedService &service);
[[nodiscard]] ServiceView ViewOf(const Session &session, const HiddenService &hidden);

// The services of these names as they stand; what means nothing is told and noted as failed.
[[nodiscard]] std::vector<ServiceView> ViewsOf(Session &session, const std::vector<std::string> &patterns,
                                               const std::string &action);

// Those of all services, of which there may be none.
[[nodiscard]] std::vector<ServiceView> AllViews(Session &session, const std::string &action);

// The configuration of a service; nothing where it cannot be read, which is told once where the registry is to blame.
[[nodiscard]] std::optional<ServiceConfig> ReadConfigByName(Session &session, const std::string &name);

// Those of several services, in their order: of many out of the registry of this machine, whose parts that are not
// wanted are empty then.
[[nodiscard]] std::vector<std::optional<ServiceConfig>> ReadConfigs(Session &session, ConfigPart part,
                                                                    const std::vector<ListedService> &services);

// Stopped with an error code.
[[nodiscard]] bool HasFailed(const SERVICE_STATUS &status);
// Active, with a process that is not known to be gone.
[[nodiscard]] bool IsAlive(const ServiceView &view);

// The mark before a line, where the terminal can show it, and its colour.
[[nodiscard]] RowMark MarkOf(const SERVICE_STATUS &status, const ProcessView &process = {});
// What is remarkable about it; often nothing.
[[nodiscard]] std::string RemarkOn(const ServiceView &view);

enum class StatusLook { passive, fresh, probe };

// Looks harder at one service, as asked. A process that is known to be gone is told to the daemon.
void LookCloser(Session &session, StatusLook look, ServiceView *view);
