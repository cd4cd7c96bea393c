// SPDX-License-Identifier: MIT
// main: a service that runs any Unix program.
//
// Which program is told by the "Parameters" subkey of the service (parameters.h). States:
//   starting       START_PENDING   until the program was started; a program that cannot be is reported as STOPPED, and
//                                  after a stop nothing is started
//   running        RUNNING         pause -> SIGSTOP to its group, PAUSED; continue -> SIGCONT, RUNNING
//   stopping       STOP_PENDING    SIGTERM to its group; after the stop time-out SIGKILL
//   ended          STOPPED         0, or 1066 with the program's own status, whoever ended it
// SIGTERM or SIGINT to tvhost itself is a stop as well. User controls 129, 138 and 140 hand SIGHUP, SIGUSR1 and SIGUSR2
// on (128 plus the signal's number).
//
// Threads: the one of the dispatcher's caller sleeps; ServiceMain's starts the program and waits for its end; controls
// come on a third. What can hold the start up is left to one more, or watched by it, so that a stop is heard in all of
// it: the reading of the registry, the way of the child to its program, and the wait for the start request. What they
// share is below `guard`.
#include "tv/winsvc.h"
#include "tvhost/program.h"
#include "util/guard.h"
#include "util/printable.h"
#include "util/win32_names.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

constexpr DWORD startWaitMs = 60'000; // reading the registry
constexpr DWORD afterKillMs = 10'000; // a killed program may still hang in the kernel
constexpr DWORD firstSignalControl = 128;

SERVICE_STATUS_HANDLE statusHandle;
int stopAsked = -1; // an eventfd, readable once the program has to end; also written by the signal handler
std::mutex guard;   // what follows
SERVICE_STATUS status;
pid_t program;                // 0 when there is none
ChildOnItsWay onItsWay;       // the child that is to become it
std::atomic<bool> startOrEnd; // taken by the start request, or by a signal that comes before it
DWORD stopTimeoutMs = defaultStopTimeoutMs;

DWORD AcceptedIn(DWORD state) {
    switch (state) {
    case SERVICE_START_PENDING: return SERVICE_ACCEPT_STOP;
    case SERVICE_RUNNING:
    case SERVICE_PAUSED: return SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_PAUSE_CONTINUE;
    default: return 0;
    }
}

// Reports a state; the guard is held.
void Report(DWORD state, DWORD waitMs = 0, ExitCodes codes = {}) {
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    status.dwControlsAccepted = AcceptedIn(state);
    status.dwWin32ExitCode = codes.win32;
    status.dwServiceSpecificExitCode = codes.specific;
    status.dwWaitHint = waitMs;
    (void)SetServiceStatus(statusHandle, &status); // nobody could be told
}

void ReportLocked(DWORD state, DWORD waitMs = 0, ExitCodes codes = {}) {
    const std::lock_guard<std::mutex> locked(guard);
    Report(state, waitMs, codes);
}

void AskToStop() { (void)eventfd_write(stopAsked, 1); } // fails only where it was asked 2^64 times

bool IsReadable(int descriptor, int timeoutMs = 0) {
    pollfd waited = {descriptor, POLLIN, 0};
    return poll(&waited, 1, timeoutMs) > 0;
}

// Waits until something has happened or a stop is asked for. Returns whether it is.
bool AwaitOrStop(int happened) {
    pollfd waited[] = {{stopAsked, POLLIN, 0}, {happened, POLLIN, 0}};
    while (poll(waited, 2, -1) <= 0) {
    }
    return waited[0].revents != 0;
}

void HandleControl(DWORD control) {
    const std::lock_guard<std::mutex> locked(guard);
    if (control == SERVICE_CONTROL_STOP) {
        Report(SERVICE_STOP_PENDING, stopTimeoutMs + afterKillMs);
        AskToStop();
        return;
    }
    if (program == 0) return;
    switch (control) {
    case SERVICE_CONTROL_PAUSE:
        SignalProgram(program, SIGSTOP);
        Report(SERVICE_PAUSED);
        break;
    case SERVICE_CONTROL_CONTINUE:
        SignalProgram(program, SIGCONT);
        Report(SERVICE_RUNNING);
        break;
    case firstSignalControl + SIGHUP:
    case firstSignalControl + SIGUSR1:
    case firstSignalControl + SIGUSR2: SignalProgram(program, static_cast<int>(control - firstSignalControl)); break;
    default: break;
    }
}

void StopOnSignal(int) {
    const std::uint64_t one = 1;
    (void)!write(stopAsked, &one, sizeof one); // async-signal-safe, unlike eventfd_write's promise
}

int MillisecondsUntil(Clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) + 1 : 0;
}

// Waits for the program's end and brings it about when asked to. Returns whether it was asked to.
bool AwaitEnd(pid_t child, int childDescriptor) {
    bool stopping = false;
    bool killed = false;
    Clock::time_point deadline;
    for (;;) {
        pollfd polled[] = {{childDescriptor, POLLIN, 0}, {stopping ? -1 : stopAsked, POLLIN, 0}};
        const int ready = poll(polled, 2, stopping && !killed ? MillisecondsUntil(deadline) : -1);
        if (polled[0].revents != 0) return stopping || polled[1].revents != 0;
        if (ready > 0) {
            stopping = true;
            deadline = Clock::now() + std::chrono::milliseconds(stopTimeoutMs);
            ReportLocked(SERVICE_STOP_PENDING, stopTimeoutMs + afterKillMs);
            SignalProgram(child, SIGTERM);
            SignalProgram(child, SIGCONT); // a paused program cannot hear of it otherwise
        } else if (ready == 0) {
            killed = true;
            SignalProgram(child, SIGKILL);
        }
    }
}

std::string CodeText(DWORD code) {
    const char *name = Win32ErrorName(code);
    return std::to_string(code) + " " + (name != nullptr ? name : "");
}

// What the registry tells of a service. A thread of its own reads it, and may never come to the end of it.
struct Reading {
    HostParameters parameters;
    std::string problem;
    DWORD rc = ERROR_SUCCESS;
    int done = eventfd(0, EFD_CLOEXEC);
    const DescriptorGuard closed{&done};
};

void ReadService(const std::string &serviceName, const std::shared_ptr<Reading> &reading) {
    reading->rc = CheckServiceAccount(serviceName);
    if (reading->rc == ERROR_SUCCESS)
        reading->rc = ReadHostParameters(serviceName, &reading->parameters, &reading->problem);
    (void)eventfd_write(reading->done, 1);
}

// Reads, unless a stop comes first: then nothing is returned.
std::shared_ptr<Reading> ReadUnlessStopped(const std::string &serviceName) {
    auto reading = std::make_shared<Reading>();
    std::thread(ReadService, serviceName, reading).detach();
    return AwaitOrStop(reading->done) ? nullptr : reading;
}

// Starts the program; a stop ends a child that has not become it yet. Results as StartProgram.
pid_t StartUnlessStopped(const HostParameters &parameters, const std::vector<std::string> &startArguments,
                         StartFailure *failure) {
    int started = eventfd(0, EFD_CLOEXEC);
    const DescriptorGuard closed(&started);
    std::thread watch([started] {
        if (!AwaitOrStop(started)) return;
        constexpr int pauseMs = 10;
        while (!IsReadable(started, pauseMs)) {
            KillOnItsWay(onItsWay);
        }
    });
    const pid_t child = StartProgram(parameters, startArguments, failure, &onItsWay);
    (void)eventfd_write(started, 1);
    watch.join();
    return child;
}

// Runs the program to its end. Returns the codes to stop with.
ExitCodes RunProgram(const std::string &serviceName, const std::vector<std::string> &startArguments) {
    const std::shared_ptr<Reading> reading = ReadUnlessStopped(serviceName);
    if (reading == nullptr) return {};
    const HostParameters &parameters = reading->parameters;
    const DWORD rc = reading->rc;
    if (rc == ERROR_INVALID_SERVICE_ACCOUNT) {
        std::fprintf(stderr, "tvhost: %s: its account is not the one of this process\n",
                     Printable(serviceName).c_str());
        return {rc, 0};
    }
    if (rc != ERROR_SUCCESS) {
        const std::string why =
            reading->problem.empty() ? "its parameters cannot be read: " + CodeText(rc) : Printable(reading->problem);
        std::fprintf(stderr, "tvhost: %s: %s\n", Printable(serviceName).c_str(), why.c_str());
        return {rc, 0};
    }
    StartFailure failure;
    const pid_t child = StartUnlessStopped(parameters, startArguments, &failure);
    if (child == 0) {
        std::fprintf(stderr, "tvhost: %s: not started: %s\n", Printable(serviceName).c_str(),
                     Printable(failure.text).c_str());
        return failure.codes;
    }
    int childDescriptor = static_cast<int>(syscall(SYS_pidfd_open, child, 0)); // the C library declares it for C only
    const DescriptorGuard closed(&childDescriptor);
    {
        const std::lock_guard<std::mutex> locked(guard);
        program = child;
        stopTimeoutMs = parameters.stopTimeoutMs;
        if (!IsReadable(stopAsked)) Report(SERVICE_RUNNING);
    }
    const bool asked = AwaitEnd(child, childDescriptor);
    const std::lock_guard<std::mutex> locked(guard);
    program = 0;
    return CodesOfEnd(TakeEnd(child), asked);
}

void ServiceMain(DWORD argc, LPSTR *argv) {
    statusHandle = RegisterServiceCtrlHandlerA(argv[0], HandleControl);
    const bool isEnding = startOrEnd.exchange(true); // by a signal: nothing is begun any more
    if (!isEnding) ReportLocked(SERVICE_START_PENDING, startWaitMs);
    const ExitCodes codes = RunProgram(argv[0], std::vector<std::string>(argv + 1, argv + argc));
    ReportLocked(SERVICE_STOPPED, 0, codes);
}

void StopOnSignals() {
    struct sigaction action = {};
    action.sa_handler = StopOnSignal;
    action.sa_flags = SA_RESTART;
    (void)sigaction(SIGTERM, &action, nullptr);
    (void)sigaction(SIGINT, &action, nullptr);
}

// Thread body: ends the process at a signal that comes before the start request.
void EndUnlessStarted() {
    while (!IsReadable(stopAsked, -1)) {
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
    stopAsked = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    StopOnSignals();
    const SERVICE_TABLE_ENTRYA table[] = {{"tvhost", ServiceMain}, {nullptr, nullptr}};
    if (stopAsked >= 0) std::thread(EndUnlessStarted).detach();
    if (stopAsked >= 0 && StartServiceCtrlDispatcherA(table)) return 0;
    std::fprintf(stderr, "tvhost: %s: no start request came; it is the service daemon that starts this program\n",
                 CodeText(GetLastError()).c_str());
    return 1;
}
