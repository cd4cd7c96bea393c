// SPDX-License-Identifier: MIT
// main: a service that runs any Unix program.
//
// Which program is told by the "Parameters" subkey of the service (parameters.h); host.cpp runs it.
//
// Threads: the one of the dispatcher's caller sleeps; ServiceMain's runs the program; controls come on a third, which
// reports a stop and hands the rest over (service_status.h); the log has a fourth.
#include "svcapi/runtime.h"
#include "tv/winsvc.h"
#include "tvhost/events.h"
#include "tvhost/host.h"
#include "tvhost/service_status.h"
#include "util/win32_names.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

std::atomic<bool> startOrEnd; // taken by the start request, or by a signal that comes before it

void ServiceMain(DWORD argc, LPSTR *argv) {
    startOrEnd = true;
    ReportStopped(RunService(argv[0], std::vector<std::string>(argv + 1, argv + argc)));
}

// Thread body: ends the process at a signal that comes before the start request.
void EndUnlessStarted() {
    while (!IsReadable(TheEvents().stopAsked, -1)) {
    }
    if (!startOrEnd.exchange(true)) std::exit(1); // the library takes its traces away
}

constexpr char usage[] = "usage: tvhost [--help | --version]\n\n"
                         "Runs the program of a service. Started by the service daemon through a launcher; see "
                         "tvhost(8).\n";

int RunOption(const std::string &option) {
    if (option == "--version") return std::puts("tvhost " TV_VERSION) < 0 ? 1 : 0;
    const bool asked = option == "--help";
    return std::fputs(usage, asked ? stdout : stderr) >= 0 && asked ? 0 : 2;
}

} // namespace

int main(int argc, char **argv) {
    if (argc > 1) return RunOption(argv[1]);
    const bool canStart = OpenEvents();
    Runtime().settlesPredecessors = true; // as AppOnPredecessor tells
    const SERVICE_TABLE_ENTRYA table[] = {{"tvhost", ServiceMain}, {nullptr, nullptr}};
    if (canStart) std::thread(EndUnlessStarted).detach();
    if (canStart && StartServiceCtrlDispatcherA(table)) return 0;
    const DWORD code = GetLastError();
    const char *name = Win32ErrorName(code);
    std::fprintf(stderr, "tvhost: %s: no start request came; it is the service daemon that starts this program\n",
                 (std::to_string(code) + " " + (name != nullptr ? name : "")).c_str());
    return 1;
}
