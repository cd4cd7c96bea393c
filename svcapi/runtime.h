// SPDX-License-Identifier: MIT
// runtime: what the files of the service side share.
//
// Threads of a service program: the caller of StartServiceCtrlDispatcherA (waits), one that serves the daemon's calls
// (and runs control handlers), one that reports states to the daemon, and one for each ServiceMain. The daemon serves
// nobody while it waits for an answer to a start or a control, reports included: so the serving thread never waits for
// a report, and SetServiceStatus never waits for anything.
//
// States of a service, as this side sees them: named in the table -> (start request) started, START_PENDING -> whatever
// SetServiceStatus says -> STOPPED -> may be started again.
#pragma once

#include "svcapi/link.h"
#include "svcapi/run_record.h"

#include <condition_variable>
#include <deque>
#include <vector>

// The main function of a service: one of the two.
struct ServiceMainFunction {
    LPSERVICE_MAIN_FUNCTIONA narrow = nullptr;
    LPSERVICE_MAIN_FUNCTIONW wide = nullptr;
};

// The control handler of a service: one of the two, or none until it is registered.
struct ControlHandler {
    LPHANDLER_FUNCTION plain = nullptr;
    LPHANDLER_FUNCTION_EX extended = nullptr;
    LPVOID context = nullptr; // of the extended one
};

struct StartedService {
    std::string name;
    std::vector<std::string> arguments; // the first is the name
    ServiceMainFunction main;
    ControlHandler handler;
    std::int32_t index = 0;     // the service's number at the daemon
    std::uint32_t restarts = 0; // the reporter's link->restarts when it was learnt
    SERVICE_STATUS status = {}; // as set last, its wait hint made safe to report
    std::uint64_t changes = 0;  // how often status was set
    std::uint64_t reported = 0; // the change that the daemon has heard of
    bool holdsHint = false;     // this process has written its id for the service (pid_file.h)
    RunRecord run;              // the present run, where it holds the hint
};

struct ServiceRuntime {
    std::mutex guard;                    // everything below
    std::condition_variable changed;     // told about every change below
    std::deque<StartedService> services; // addresses are handed out: nothing is ever removed
    bool serving = false;                // a start or a control is being answered
    bool ending = false;                 // reports that cannot be sent at once are given up
    bool daemonGone = false;             // the last report could not be sent
    bool settlesPredecessors = false;    // a start beside a living earlier one is the program's own business
};

// Never destroyed: threads may outlive main.
ServiceRuntime &Runtime();

// Has this process stand for a service: it leaves its id, and what an earlier process of the service still tells of it
// is not sent any more. The runtime's guard is not held.
void TakeServiceOver(const std::string &serviceName);

// Leaves the process id of this process for a service that it has been asked to start, and the moment; the runtime's
// guard is held.
void LeaveHint(StartedService &service);

// The status as it may be reported: a wait hint counts only while a state is pending, in whole seconds rounded up (the
// daemon's deadline ignores parts of one). A hint left over from a pending state would have the daemon declare a
// healthy service dead.
[[nodiscard]] SERVICE_STATUS WithSafeWaitHint(SERVICE_STATUS status);

// Sets a service's status and has it reported; the runtime's guard is held.
void ChangeStatus(ServiceRuntime &runtime, StartedService &service, const SERVICE_STATUS &status);

// Whether every report was sent; the runtime's guard is held.
[[nodiscard]] bool AllReported(const ServiceRuntime &runtime);

// Thread body: sends reports until the runtime is ending and nothing is left to send, or nothing can be.
void ReportStates(ServiceRuntime &runtime);
