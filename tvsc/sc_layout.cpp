// SPDX-License-Identifier: MIT
// sc_layout: what sc prints, line by line as the Win32 tool has it.
#include "tvsc/sc_call.h"
#include "util/printable.h"
#include "util/win32_names.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

struct NumberName {
    DWORD number;
    const char *name;
};

constexpr NumberName types[] = {{SERVICE_KERNEL_DRIVER, "KERNEL_DRIVER"},
                                {SERVICE_FILE_SYSTEM_DRIVER, "FILE_SYSTEM_DRIVER"},
                                {SERVICE_ADAPTER, "ADAPTER"},
                                {SERVICE_RECOGNIZER_DRIVER, "RECOGNIZER_DRIVER"},
                                {SERVICE_WIN32_OWN_PROCESS, "WIN32_OWN_PROCESS"},
                                {SERVICE_WIN32_SHARE_PROCESS, "WIN32_SHARE_PROCESS"},
                                {SERVICE_WIN32, "WIN32"}};
constexpr NumberName states[] = {{SERVICE_STOPPED, "STOPPED"},
                                 {SERVICE_START_PENDING, "START_PENDING"},
                                 {SERVICE_STOP_PENDING, "STOP_PENDING"},
                                 {SERVICE_RUNNING, "RUNNING"},
                                 {SERVICE_CONTINUE_PENDING, "CONTINUE_PENDING"},
                                 {SERVICE_PAUSE_PENDING, "PAUSE_PENDING"},
                                 {SERVICE_PAUSED, "PAUSED"}};
constexpr NumberName startTypes[] = {{SERVICE_BOOT_START, "BOOT_START"},
                                     {SERVICE_SYSTEM_START, "SYSTEM_START"},
                                     {SERVICE_AUTO_START, "AUTO_START"},
                                     {SERVICE_DEMAND_START, "DEMAND_START"},
                                     {SERVICE_DISABLED, "DISABLED"}};
constexpr NumberName errorControls[] = {{SERVICE_ERROR_IGNORE, "IGNORE"},
                                        {SERVICE_ERROR_NORMAL, "NORMAL"},
                                        {SERVICE_ERROR_SEVERE, "SEVERE"},
                                        {SERVICE_ERROR_CRITICAL, "CRITICAL"}};

template <std::size_t N>
const char *NameOf(const NumberName (&names)[N], DWORD number) {
    const auto *const found =
        std::find_if(std::begin(names), std::end(names), [&](const NumberName &one) { return one.number == number; });
    return found != std::end(names) ? found->name : "";
}

std::string TypeLine(DWORD type) {
    const bool isInteractive = (type & SERVICE_INTERACTIVE_PROCESS) != 0;
    return fmt::format("{:x}  {} {}", type, NameOf(types, type & ~DWORD{SERVICE_INTERACTIVE_PROCESS}),
                       isInteractive ? "(interactive)" : "");
}

void PrintField(const char *name, const std::string &value) {
    fmt::print("        {:<19}: {}\n", name, Printable(value));
}

std::string AcceptedLine(DWORD accepted) {
    return fmt::format("({}, {}, {})", (accepted & SERVICE_ACCEPT_STOP) != 0 ? "STOPPABLE" : "NOT_STOPPABLE",
                       (accepted & SERVICE_ACCEPT_PAUSE_CONTINUE) != 0 ? "PAUSABLE" : "NOT_PAUSABLE",
                       (accepted & SERVICE_ACCEPT_SHUTDOWN) != 0 ? "ACCEPTS_SHUTDOWN" : "IGNORES_SHUTDOWN");
}

} // namespace

int ScFailed(const std::string &function, DWORD code) {
    const char *text = Win32ErrorText(code);
    fmt::print("[SC] {} FAILED {}:\n\n{}\n\n", function, code, text != nullptr ? text : "");
    constexpr DWORD greatestStatus = 0xFF;
    return code <= greatestStatus ? static_cast<int>(code) : ExitStatusOf(code);
}

void ScDone(const std::string &function) { fmt::print("[SC] {} SUCCESS\n", function); }

void PrintScStatus(const ListedService &service, bool withDisplayName, bool withProcess) {
    const SERVICE_STATUS &status = service.status;
    fmt::print("\nSERVICE_NAME: {} \n", Printable(service.name));
    if (withDisplayName) fmt::print("DISPLAY_NAME: {}\n", Printable(service.displayName));
    PrintField("TYPE", TypeLine(status.dwServiceType));
    PrintField("STATE", fmt::format("{}  {} ", status.dwCurrentState, NameOf(states, status.dwCurrentState)));
    if (status.dwCurrentState != SERVICE_STOPPED) {
        fmt::print("{:32}{}\n", "", AcceptedLine(status.dwControlsAccepted));
    }
    PrintField("WIN32_EXIT_CODE", fmt::format("{}  ({:#x})", status.dwWin32ExitCode, status.dwWin32ExitCode));
    PrintField("SERVICE_EXIT_CODE",
               fmt::format("{}  ({:#x})", status.dwServiceSpecificExitCode, status.dwServiceSpecificExitCode));
    PrintField("CHECKPOINT", fmt::format("{:#x}", status.dwCheckPoint));
    PrintField("WAIT_HINT", fmt::format("{:#x}", status.dwWaitHint));
    if (!withProcess) return;
    PrintField("PID", std::to_string(service.processId));
    PrintField("FLAGS", "");
}

void PrintScConfig(const std::string &name, const ServiceConfig &config) {
    fmt::print("\nSERVICE_NAME: {}\n", Printable(name));
    PrintField("TYPE", TypeLine(config.type));
    PrintField("START_TYPE", fmt::format("{}   {}", config.startType, NameOf(startTypes, config.startType)));
    PrintField("ERROR_CONTROL",
               fmt::format("{}   {}", config.errorControl, NameOf(errorControls, config.errorControl)));
    PrintField("BINARY_PATH_NAME", config.imagePath);
    PrintField("LOAD_ORDER_GROUP", config.group);
    PrintField("TAG", std::to_string(config.tag));
    PrintField("DISPLAY_NAME", config.displayName);
    const char *label = "DEPENDENCIES";
    for (const std::string &dependency : config.dependencies) {
        PrintField(label, dependency);
        label = "";
    }
    if (config.dependencies.empty()) PrintField(label, "");
    PrintField("SERVICE_START_NAME", config.account);
}
