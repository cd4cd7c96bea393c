// SPDX-License-Identifier: MIT
// host_output: reading the JSON that other tvsc have written, and writing it anew.
//
// Another machine's tvsc may be an older one, or what answers in its place anything: what is missing in its JSON is
// left out, what is no JSON is shown as text.
#include "tvsc/host_output.h"

#include "tvsc/output_format.h"
#include "tvsc/service_view.h"
#include "tvsc/words.h"
#include "util/base64.h"
#include "util/json_text.h"
#include "util/printable.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <limits>
#include <sstream>

namespace {

using Json = nlohmann::ordered_json;

Json Parsed(const std::string &text) { return Json::parse(text, nullptr, false); }

// 0 for what is no such number: another one, converted, would be any.
template <typename Number>
Number NumberIn(const Json &object, const char *member) {
    const auto found = object.find(member);
    if (found == object.end() || !found->is_number_unsigned()) return 0;
    const auto number = found->get<std::uint64_t>();
    return number <= static_cast<std::uint64_t>(std::numeric_limits<Number>::max()) ? static_cast<Number>(number) : 0;
}

// A text, or its bytes where they are no UTF-8 (util/json_text.h).
std::string TextIn(const Json &object, const std::string &member) {
    const auto bytes = object.find(member + "_bytes");
    if (bytes != object.end() && bytes->is_string()) {
        if (std::optional<std::string> text = BytesOfBase64(bytes->get<std::string>())) return *std::move(text);
    }
    const auto found = object.find(member);
    return found != object.end() && found->is_string() ? found->get<std::string>() : "";
}

bool IsTrueIn(const Json &object, const char *member) {
    const auto found = object.find(member);
    return found != object.end() && found->is_boolean() && found->get<bool>();
}

Json ObjectIn(const Json &object, const char *member) {
    const auto found = object.find(member);
    return found != object.end() && found->is_object() ? *found : Json::object();
}

struct HostTable {
    std::vector<std::vector<std::string>> rows = {{"HOST", "NAME", "STATE", "START", "PID", "UPTIME", "DISPLAY NAME"}};
    std::vector<RowMark> marks = {{" ", Colour::none, 0}};
    std::size_t services = 0;
};

constexpr std::size_t stateCell = 2;

void AddService(const std::string &host, const Json &service, HostTable *table) {
    SERVICE_STATUS status = {};
    status.dwCurrentState = NumberIn<DWORD>(service, "state_code");
    status.dwWin32ExitCode = NumberIn<DWORD>(ObjectIn(service, "exit"), "win32");
    const ProcessView process = {NumberIn<pid_t>(service, "pid_hint"), IsTrueIn(service, "process_gone"),
                                 NumberIn<std::int64_t>(service, "uptime_ms")};
    const bool isAlive = process.process != 0 && !process.isGone;
    const Json config = ObjectIn(service, "config");
    const std::string start = IsTrueIn(config, "masked") ? "masked" : TextIn(config, "start");
    RowMark mark = MarkOf(status, process);
    mark.colouredCell = stateCell;
    table->rows.push_back({host, TextIn(service, "name"), StateText(status, process), start.empty() ? "-" : start,
                           isAlive ? std::to_string(process.process) : "-",
                           isAlive ? DurationText(process.uptimeMs) : "-", TextIn(service, "display_name")});
    table->marks.push_back(mark);
    ++table->services;
}

const char *WhyNothing(const HostRun &run) {
    return run.timedOut ? "took too long" : run.wroteTooMuch ? "wrote too much" : "no answer";
}

void AddHost(const HostRun &run, HostTable *table) {
    const Json document = Parsed(run.output);
    const auto services = document.is_object() ? document.find("services") : document.end();
    const bool isAnswer = services != document.end() && services->is_array();
    const bool isReachable = isAnswer && (run.exitStatus != EXIT_UNREACHABLE || !services->empty());
    if (isReachable) {
        for (const Json &service : *services) {
            if (service.is_object()) AddService(run.host, service, table);
        }
        return;
    }
    table->rows.push_back({run.host, "-", WhyNothing(run), "-", "-", "-", ""});
    SERVICE_STATUS failed = {};
    failed.dwCurrentState = SERVICE_STOPPED;
    failed.dwWin32ExitCode = ERROR_TIMEOUT;
    table->marks.push_back(MarkOf(failed));
    table->marks.back().colouredCell = stateCell;
}

std::vector<std::string> LinesOf(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

// A machine's answer as a member: the object that it is, or the text.
void SetAnswer(Json &entry, const HostRun &run) {
    Json document = Parsed(run.output);
    if (document.is_object()) {
        entry["document"] = std::move(document);
    } else {
        SetText(entry, "output", run.output);
    }
}

} // namespace

void PrintHostError(const std::string &host, const std::string &line) {
    constexpr std::string_view own = "tvsc: ";
    const std::size_t skipped = line.starts_with(own) ? own.size() : 0;
    fmt::print(stderr, "tvsc: {}\n", Printable(host + ": " + line.substr(skipped)));
}

void PrintHostErrors(const std::vector<HostRun> &runs, double timeoutSec) {
    for (const HostRun &run : runs) {
        for (const std::string &line : LinesOf(run.error)) {
            PrintHostError(run.host, line);
        }
        if (run.timedOut) fmt::print(stderr, "tvsc: {}: no end within {:g} s\n", Printable(run.host), timeoutSec);
        if (run.wroteTooMuch) fmt::print(stderr, "tvsc: {}: wrote too much, and was ended\n", Printable(run.host));
    }
}

void PrintHostsServices(const std::vector<HostRun> &runs) {
    HostTable table;
    std::size_t answered = 0;
    for (const HostRun &run : runs) {
        const std::size_t before = table.rows.size();
        AddHost(run, &table);
        const bool isMissing = table.rows.size() == before + 1 && table.rows.back()[1] == "-";
        answered += isMissing ? 0u : 1u;
    }
    PrintTable(std::move(table.rows), table.marks, stateCell + 1); // without its state a line would tell nothing
    if (!ShowsLegend()) return;
    fmt::print("{} service{} of {} machine{}{}.\n", table.services, table.services == 1 ? "" : "s", answered,
               answered == 1 ? "" : "s",
               answered == runs.size() ? "" : fmt::format("; {} did not answer", runs.size() - answered));
}

void PrintHostLine(const std::string &host, std::size_t width, const std::string &line, bool json) {
    Json event = json ? Parsed(line) : Json();
    if (event.is_object()) {
        SetText(event, "host", host);
        fmt::print("{}\n", JsonLine(event));
    } else {
        fmt::print("{:<{}}  {}\n", Printable(host), width, Printable(line));
    }
    (void)std::fflush(stdout); // looked at when the program ends
}

void PrintHostsLines(const std::vector<HostRun> &runs, std::size_t width) {
    for (const HostRun &run : runs) {
        for (const std::string &line : LinesOf(run.output)) {
            PrintHostLine(run.host, width, line, false);
        }
        if (!run.output.empty()) continue;
        const std::string why = run.timedOut || run.wroteTooMuch ? fmt::format("({})", WhyNothing(run))
                                                                 : fmt::format("(exit status {})", run.exitStatus);
        PrintHostLine(run.host, width, why, false);
    }
}

void PrintHostsJson(const std::vector<HostRun> &runs) {
    Json object;
    object["schema"] = "tvsc.hosts/1";
    object["hosts"] = Json::array();
    int worst = EXIT_DONE;
    for (const HostRun &run : runs) {
        worst = std::max(worst, run.exitStatus);
        Json entry;
        SetText(entry, "host", run.host);
        entry["exit_status"] = run.exitStatus;
        entry["timed_out"] = run.timedOut;
        if (run.wroteTooMuch) entry["wrote_too_much"] = true;
        SetAnswer(entry, run);
        SetText(entry, "error", run.error);
        object["hosts"].push_back(std::move(entry));
    }
    object["exit_status"] = worst;
    std::puts(JsonText(object).c_str());
}
