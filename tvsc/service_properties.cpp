// SPDX-License-Identifier: MIT
// service_properties: one line for each.
#include "tvsc/service_properties.h"

#include "tvsc/account_mask.h"
#include "tvsc/words.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <iterator>

namespace {

struct Property {
    const char *name;
    bool isConfigured;
    std::string (*value)(const ServiceView &view);
};

const SERVICE_STATUS &StatusOf(const ServiceView &view) { return view.service.status; }
std::string Text(std::uint64_t number) { return std::to_string(number); }
// What is known of a status that the daemon has enumerated.
std::string Known(const ServiceView &view, DWORD number) { return view.service.complete ? Text(number) : ""; }
bool HasProcess(const ServiceView &view) { return view.process.process != 0; }

constexpr Property properties[] = {
    {"name", false, [](const ServiceView &view) { return view.service.name; }},
    {"display_name", false, [](const ServiceView &view) { return view.service.displayName; }},
    {"description", true, [](const ServiceView &view) { return view.description; }},
    {"state", false, [](const ServiceView &view) { return StateWord(StatusOf(view).dwCurrentState, true); }},
    {"state_code", false, [](const ServiceView &view) { return Text(StatusOf(view).dwCurrentState); }},
    {"accepts_mask", false, [](const ServiceView &view) { return Text(StatusOf(view).dwControlsAccepted); }},
    {"win32", false, [](const ServiceView &view) { return Known(view, StatusOf(view).dwWin32ExitCode); }},
    {"service_specific", false,
     [](const ServiceView &view) { return Known(view, StatusOf(view).dwServiceSpecificExitCode); }},
    {"check_point", false, [](const ServiceView &view) { return Known(view, StatusOf(view).dwCheckPoint); }},
    {"wait_hint_ms", false, [](const ServiceView &view) { return Known(view, StatusOf(view).dwWaitHint); }},
    {"pid_hint", false,
     [](const ServiceView &view) { return HasProcess(view) ? std::to_string(view.process.process) : ""; }},
    {"process_gone", false,
     [](const ServiceView &view) -> std::string {
         return !HasProcess(view) ? "" : view.process.isGone ? "true" : "false";
     }},
    {"uptime_ms", false,
     [](const ServiceView &view) { return HasProcess(view) ? std::to_string(view.process.uptimeMs) : ""; }},
    {"type", true,
     [](const ServiceView &view) { return fmt::to_string(fmt::join(TypeWords(view.config->type, true), ",")); }},
    {"type_mask", true, [](const ServiceView &view) { return Text(view.config->type); }},
    {"start", true, [](const ServiceView &view) { return StartWord(view.config->startType); }},
    {"start_code", true, [](const ServiceView &view) { return Text(view.config->startType); }},
    {"error_control", true, [](const ServiceView &view) { return Text(view.config->errorControl); }},
    {"command", true, [](const ServiceView &view) { return view.command; }},
    {"image_path", true, [](const ServiceView &view) { return view.config->imagePath; }},
    {"group", true, [](const ServiceView &view) { return view.config->group; }},
    {"tag", true, [](const ServiceView &view) { return Text(view.config->tag); }},
    {"depends_on", true,
     [](const ServiceView &view) { return fmt::to_string(fmt::join(view.config->dependencies, ",")); }},
    {"account", true, [](const ServiceView &view) { return view.config->account; }},
    {"masked", true,
     [](const ServiceView &view) -> std::string { return IsMasked(view.config->account) ? "true" : "false"; }}};

const Property &Find(const std::string &name) {
    return *std::find_if(std::begin(properties), std::end(properties) - 1,
                         [&](const Property &one) { return one.name == name; });
}

} // namespace

std::vector<std::string> PropertyNames() {
    std::vector<std::string> names;
    for (const Property &property : properties) {
        names.emplace_back(property.name);
    }
    return names;
}

bool IsConfigured(const std::string &property) { return Find(property).isConfigured; }

std::string PropertyOf(const ServiceView &view, const std::string &property) {
    const Property &found = Find(property);
    return found.isConfigured && !view.config ? "" : found.value(view);
}
