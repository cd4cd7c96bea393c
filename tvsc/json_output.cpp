// SPDX-License-Identifier: MIT
// json_output: the JSON side of the output.
#include "tvsc/json_output.h"

#include "svcapi/process_stat.h"
#include "tvhost/log.h"
#include "tvsc/account_mask.h"
#include "tvsc/boot_words.h"
#include "tvsc/json_document.h"
#include "tvsc/words.h"
#include "util/json_text.h"
#include "util/win32_names.h"

#include <nlohmann/json.hpp>

#include <cstdlib>

namespace {

using Json = nlohmann::ordered_json;

struct BitWord {
    DWORD bit;
    const char *word;
};

constexpr BitWord controlWords[] = {{SERVICE_ACCEPT_STOP, "stop"},
                                    {SERVICE_ACCEPT_PAUSE_CONTINUE, "pause_continue"},
                                    {SERVICE_ACCEPT_SHUTDOWN, "shutdown"}};

template <std::size_t N>
Json WordsOf(DWORD mask, const BitWord (&words)[N]) {
    Json list = Json::array();
    for (const BitWord &entry : words) {
        if ((mask & entry.bit) != 0) list.push_back(entry.word);
    }
    return list;
}

Json ConfigJson(const ServiceConfig &config) {
    std::vector<std::string> services, groups;
    for (const std::string &dependency : config.dependencies) {
        const bool isGroup = dependency.front() == SC_GROUP_IDENTIFIERA;
        (isGroup ? groups : services).push_back(isGroup ? dependency.substr(1) : dependency);
    }
    Json object;
    object["start"] = config.startType <= SERVICE_DISABLED ? StartWord(config.startType) : "unknown";
    object["start_code"] = config.startType;
    object["error_control"] = config.errorControl;
    SetText(object, "image_path", config.imagePath);
    SetText(object, "group", config.group);
    object["tag"] = config.tag;
    SetTexts(object, "depends_on", services);
    SetTexts(object, "depends_on_groups", groups);
    SetText(object, "account", config.account);
    object["masked"] = IsMasked(config.account);
    return object;
}

Json StatusJson(const ListedService &service) {
    const SERVICE_STATUS &status = service.status;
    Json object;
    SetText(object, "name", service.name);
    SetText(object, "display_name", service.displayName);
    object["state"] = StateWord(status.dwCurrentState, true);
    object["state_code"] = status.dwCurrentState;
    object["accepts"] = WordsOf(status.dwControlsAccepted, controlWords);
    object["accepts_mask"] = status.dwControlsAccepted;
    object["complete"] = service.complete;
    if (!service.complete) return object;
    object["exit"]["win32"] = status.dwWin32ExitCode;
    object["exit"]["service_specific"] = status.dwServiceSpecificExitCode;
    object["check_point"] = status.dwCheckPoint;
    object["wait_hint_ms"] = status.dwWaitHint;
    return object;
}

// What is still true of a state that tvhost has left.
Json ProgramJson(const HostedView &view) {
    const HostState &state = view.state;
    Json object;
    object["pid"] = view.programLives ? state.program : 0;
    object["host_pid"] = view.hostLives ? state.host : 0;
    object["phase"] = view.hostLives ? state.phase : "stopped";
    object["uptime_ms"] = view.programLives ? EpochMs() - state.startedAtMs : 0;
    object["processes"] = view.usage.processes;
    object["memory_bytes"] = view.usage.memoryBytes;
    object["cpu_ms"] = view.usage.cpuMs;
    object["restarts"] = state.restarts;
    object["next_attempt_ms"] = view.hostLives ? state.nextAttemptMs : 0;
    SetText(object, "says", view.programLives ? state.says : "");
    SetText(object, "reason", state.reason);
    SetText(object, "log", state.log);
    SetTexts(object, "last_lines", view.lastLines);
    return object;
}

constexpr const char *remarkWords[] = {"disabled",    "no_image",   "ring",        "unknown_service",
                                       "empty_group", "unreadable", "group_order", "masked"};
static_assert(std::size(remarkWords) == static_cast<std::size_t>(BootRemarkKind::masked) + 1);

Json StepJson(const BootDatabase &database, const BootStep &step, std::size_t position, std::size_t worstSec) {
    const BootService &service = database.services[step.service];
    Json object;
    object["position"] = position;
    SetText(object, "name", service.name);
    object["record"] = step.service + 1;
    object["start"] = service.start && *service.start <= SERVICE_DISABLED ? StartWord(*service.start) : "unknown";
    if (service.start) object["start_code"] = *service.start;
    object["reason"] = step.neededBy ? "dependency" : "automatic";
    if (step.neededBy) SetText(object, "needed_by", database.services[*step.neededBy].name);
    if (step.throughGroup != nullptr) SetText(object, "through_group", *step.throughGroup);
    SetText(object, "started_for", database.services[step.startedFor].name);
    SetText(object, "image_path", service.imagePath);
    object["worst_case_s"] = worstSec;
    return object;
}

} // namespace

void PrintServicesJson(const Session &session, const std::vector<ServiceView> &views) {
    Json object = JsonHeader("tvsc.status/1", session.options.host);
    object["daemon"]["reachable"] = session.manager != nullptr;
    object["daemon"]["initialized"] = session.manager != nullptr && session.initCode == ERROR_SUCCESS;
    object["daemon"]["init_code"] = session.initCode;
    LockStatus lock;
    if (QueryLock(session.manager.get(), &lock) == ERROR_SUCCESS) object["daemon"]["locked"] = lock.locked;
    object["services"] = Json::array();
    for (const ServiceView &view : views) {
        Json service = StatusJson(view.service);
        service["source"] = view.source;
        if (view.hidden) {
            service["listed"] = false;
            service["record"] = view.hidden->record;
            if (view.hidden->deletePending) service["delete_pending"] = *view.hidden->deletePending;
        }
        if (view.process.process != 0) {
            service["pid_hint"] = view.process.process;
            service["pid_hint_source"] = "runtime_file";
            service["process_gone"] = view.process.isGone;
            service["uptime_ms"] = view.process.uptimeMs;
        }
        if (view.hosted) service["program"] = ProgramJson(*view.hosted);
        if (view.config) {
            service["type"] = TypeWords(view.config->type, true);
            service["type_mask"] = view.config->type;
            service["config"] = ConfigJson(*view.config);
            if (!view.command.empty()) SetText(service["config"], "command", view.command);
            if (!view.description.empty()) SetText(service["config"], "description", view.description);
        }
        object["services"].push_back(std::move(service));
    }
    AddErrors(object, session);
    PrintDocument(object);
}

void PrintResultsJson(const Session &session) {
    Json object = JsonHeader("tvsc.action/1", session.options.host);
    AddResults(object, session);
    PrintDocument(object);
}

void PrintRelationJson(const Session &session, const std::string &name, const std::string &relation,
                       const std::vector<ListedService> &services) {
    Json object = JsonHeader("tvsc.relation/1", session.options.host);
    SetText(object, "name", name);
    object["relation"] = relation;
    object["services"] = Json::array();
    for (const ListedService &service : services) {
        object["services"].push_back(StatusJson(service));
    }
    PrintDocument(object);
}

void PrintLockJson(const Session &session, const LockStatus &status) {
    Json object = JsonHeader("tvsc.lock/1", session.options.host);
    object["locked"] = status.locked;
    SetText(object, "owner", status.owner);
    object["duration_s"] = status.durationSec;
    PrintDocument(object);
}

void PrintNamesJson(const Session &session, const std::string &name, const std::string &displayName) {
    Json object = JsonHeader("tvsc.name/1", session.options.host);
    SetText(object, "name", name);
    SetText(object, "display_name", displayName);
    PrintDocument(object);
}

void PrintExplanationJson(DWORD code) {
    const char *symbol = Win32ErrorName(code);
    const char *message = Win32ErrorText(code);
    Json object;
    object["schema"] = "tvsc.explanation/1";
    object["win32"] = code;
    object["symbol"] = symbol != nullptr ? symbol : "";
    object["message"] = message != nullptr ? message : "";
    PrintDocument(object);
}

void PrintRegistrationsJson(const Options &options, const std::vector<Registration> &entries,
                            const char *(*daemonOf)(const Registration &entry)) {
    Json object = JsonHeader("tvsc.rpcinfo/1", options.host);
    object["entries"] = Json::array();
    for (const Registration &entry : entries) {
        Json one;
        one["daemon"] = daemonOf(entry);
        one["program"] = entry.program;
        one["version"] = entry.version;
        SetText(one, "transport", entry.transport);
        SetText(one, "address", entry.address);
        SetText(one, "owner", entry.owner);
        object["entries"].push_back(std::move(one));
    }
    PrintDocument(object);
}

void PrintPlanJson(const Options &options, const BootDatabase &database, const BootPlan &plan) {
    Json object = JsonHeader("tvsc.plan/1", options.host);
    object["plan"] = "boot";
    object["steps"] = Json::array();
    const std::vector<std::size_t> worstCases = WorstCasesSec(database, plan);
    for (std::size_t i = 0; i < plan.steps.size(); ++i) {
        object["steps"].push_back(StepJson(database, plan.steps[i], i + 1, worstCases[i]));
    }
    object["remarks"] = Json::array();
    for (const BootRemark &remark : plan.remarks) {
        Json entry;
        SetText(entry, "name", database.services[remark.service].name);
        entry["kind"] = remarkWords[static_cast<std::size_t>(remark.kind)];
        SetText(entry, "text", RemarkText(remark));
        object["remarks"].push_back(std::move(entry));
    }
    SetTexts(object, "deleted", database.deleted);
    object["services"] = database.services.size();
    object["worst_case_s"] = WorstCaseSec(database, plan);
    PrintDocument(object);
}

void PrintPingJson(const Options &options, const PingReport &report) {
    Json object = JsonHeader("tvsc.ping/1", options.host);
    object["daemon"]["reachable"] = report.reachable;
    object["daemon"]["initialized"] = report.reachable && report.initCode == ERROR_SUCCESS;
    object["daemon"]["init_code"] = report.initCode;
    if (report.process) {
        object["daemon"]["pid"] = report.process->process;
        object["daemon"]["uptime_ms"] = report.process->uptimeMs;
    }
    object["round_trips_ms"] = report.roundTripsMs;
    PrintDocument(object);
}

void PrintActPlanJson(const Options &options, const std::vector<ActStep> &steps, std::size_t worstSec) {
    Json object = JsonHeader("tvsc.act_plan/1", options.host);
    object["steps"] = Json::array();
    for (const ActStep &step : steps) {
        Json entry;
        entry["action"] = step.action;
        SetText(entry, "name", step.name);
        SetText(entry, "why", step.why);
        object["steps"].push_back(std::move(entry));
    }
    object["worst_case_s"] = worstSec;
    PrintDocument(object);
}

std::string LogLineJson(const Options &options, const std::string &name, const std::string &time,
                        const std::string &text) {
    Json line = JsonHeader("tvsc.log/1", options.host);
    SetText(line, "name", name);
    line["time"] = time.empty() ? Json() : Json(time);
    SetText(line, "text", text);
    return JsonLine(line);
}

std::string LogLineOfJournal(const Options &options, const std::string &name, const std::string &line) {
    const Json entry = Json::parse(line, nullptr, false);
    if (!entry.is_object()) return "";
    const auto message = entry.find("MESSAGE");
    std::string text;
    if (message != entry.end() && message->is_string()) text = message->get<std::string>();
    if (message != entry.end() && message->is_array()) { // bytes that are no text
        for (const Json &byte : *message) {
            if (byte.is_number_unsigned()) text += static_cast<char>(byte.get<std::uint8_t>());
        }
    }
    const auto moment = entry.find("__REALTIME_TIMESTAMP");
    const bool isKnown = moment != entry.end() && moment->is_string();
    const std::int64_t microseconds = isKnown ? std::strtoll(moment->get<std::string>().c_str(), nullptr, 10) : 0;
    return LogLineJson(options, name, isKnown ? Timestamp(microseconds / 1000) : "", text);
}

void PrintGraphJson(const Session &session, const ServiceGraph &graph, const std::vector<bool> &wanted) {
    Json object = JsonHeader("tvsc.graph/1", session.options.host);
    object["services"] = Json::array();
    for (std::size_t i = 0; i < graph.nodes.size(); ++i) {
        if (!wanted[i]) continue;
        const GraphNode &node = graph.nodes[i];
        std::vector<std::string> needs;
        for (const std::size_t needed : node.needs) {
            needs.push_back(graph.nodes[needed].view.service.name);
        }
        Json entry;
        SetText(entry, "name", node.view.service.name);
        entry["state"] = StateWord(node.view.service.status.dwCurrentState, true);
        SetText(entry, "group", node.view.config ? node.view.config->group : "");
        SetTexts(entry, "needs", needs);
        SetTexts(entry, "unknown", node.unknown);
        entry["in_ring"] = node.isInRing;
        object["services"].push_back(std::move(entry));
    }
    PrintDocument(object);
}

void PrintFindingsJson(const Options &options, const std::string &name, const Findings &findings) {
    Json object = JsonHeader("tvsc.findings/1", options.host);
    if (!name.empty()) SetText(object, "name", name);
    object["findings"] = Json::array();
    for (const Finding &finding : findings) {
        Json entry;
        entry["level"] = LevelWord(finding.level);
        entry["area"] = finding.area;
        SetText(entry, "name", finding.name);
        SetText(entry, "found", finding.found);
        SetText(entry, "why", finding.why);
        SetText(entry, "command", finding.command);
        object["findings"].push_back(std::move(entry));
    }
    PrintDocument(object);
}

void PrintLeftoversJson(const Options &options, const std::vector<RegisteredService> &services) {
    Json object = JsonHeader("tvsc.leftovers/1", options.host);
    object["processes"] = Json::array();
    for (const RegisteredService &service : services) {
        object["processes"].push_back(Json{{"pid", service.process}});
    }
    PrintDocument(object);
}

std::string ChangeJson(const Options &options, const ServiceChange &change, const std::string &time) {
    constexpr const char *kinds[] = {"appeared", "changed", "disappeared"};
    const auto stateOf = [](const std::optional<ServiceView> &view) {
        return view ? Json(StateWord(view->service.status.dwCurrentState, true)) : Json();
    };
    Json object = JsonHeader("tvsc.event/1", options.host);
    object["time"] = time;
    object["event"] = kinds[static_cast<std::size_t>(change.kind)];
    SetText(object, "name", change.after ? change.after->service.name : change.before->service.name);
    object["from"] = stateOf(change.before);
    object["to"] = stateOf(change.after);
    if (!change.after) return JsonLine(object);
    const SERVICE_STATUS &status = change.after->service.status;
    if (change.after->service.complete) {
        object["exit"]["win32"] = status.dwWin32ExitCode;
        object["exit"]["service_specific"] = status.dwServiceSpecificExitCode;
    }
    if (change.after->process.process != 0) {
        object["pid_hint"] = change.after->process.process;
        object["process_gone"] = change.after->process.isGone;
    }
    return JsonLine(object);
}

std::string DaemonEventJson(const Options &options, DWORD code, const std::string &time) {
    Json object = JsonHeader("tvsc.event/1", options.host);
    object["time"] = time;
    object["event"] = code == ERROR_SUCCESS ? "daemon_answers" : "daemon_lost";
    object["win32"] = code;
    return JsonLine(object);
}

void PrintTimelineJson(const Options &options, const Timeline &timeline) {
    Json object = JsonHeader("tvsc.timeline/1", options.host);
    const auto sinceStart = [&](std::int64_t ms) { return ms == 0 ? Json() : Json(ms - timeline.daemonStartMs); };
    object["daemon"]["pid"] = timeline.daemon;
    object["daemon"]["started_at_ms"] = timeline.daemon == 0 ? 0 : EpochMs() - MsSinceBoot() + timeline.daemonStartMs;
    object["daemon"]["answered_after_ms"] = sinceStart(timeline.answeredMs);
    object["services"] = Json::array();
    for (const TimelineStep &step : timeline.steps) {
        Json entry;
        entry["position"] = object["services"].size() + 1;
        SetText(entry, "name", step.name);
        entry["recorded"] = step.run.has_value();
        entry["started_again"] = step.runsAgain;
        if (step.run) {
            entry["pid"] = step.run->process;
            entry["launched_after_ms"] = sinceStart(LaunchedMs(*step.run));
            entry["asked_after_ms"] = sinceStart(step.run->askedMs);
            entry["running_after_ms"] = sinceStart(step.run->runningMs);
            entry["ended_after_ms"] = sinceStart(step.run->endedMs);
            entry["win32"] = step.run->exitCode;
        }
        object["services"].push_back(std::move(entry));
    }
    PrintDocument(object);
}
