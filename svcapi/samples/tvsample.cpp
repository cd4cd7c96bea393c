// SPDX-License-Identifier: MIT
// tvsample: a service program to try the daemon with, and an example of how to write one.
//
// It starts, runs, pauses, continues and stops as it is told and writes down what it saw, one line an event:
//   start NAME uid=U gid=G groups=A,B args=ONE,TWO      once, when its ServiceMain begins
//   state N                                             every state that it reports, by its number
//   control N                                           every control that its handler gets
//
// Options, given in its launcher script:
//   --log FILE        where to write, "-" for stderr (the default)
//   --start-ms N      stay START_PENDING for N ms, with a check point every tenth of it
//   --stop-ms N       stay STOP_PENDING for N ms
//   --hang-start      announce a wait of --hint-ms on starting and never report again
//   --hint-ms N       wait hint of every pending state (default 2000)
//   --controls N      accepted controls (default 3: stop, pause and continue)
//   --exit-code N     Win32 exit code to stop with; with --specific N also the service-specific one
//   --silent          never report a state at all
//   --services A,B    be a program of several services, of these names; without it it serves whichever is started
//   --extended        have a handler that answers: it does not know control 210
//   --wide            be a program of UTF-16: its ServiceMain and its handler's registration are the W forms
//   --foreground      when nobody starts it as a service, write "foreground" and go on
//
// User controls: 128 to 199 are only written down; 200 announces a wait (CONTINUE_PENDING, --hint-ms) and never reports
// again; 201 stops by itself; 202 ends the process on the spot without a report; 203 does not return for 60 s.
#include "tv/winsvc.h"
#include "util/utf16.h"

#include <fcntl.h>
#include <getopt.h>
#include <grp.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr DWORD controlHang = 200;
constexpr DWORD controlStopYourself = 201;
constexpr DWORD controlDie = 202;
constexpr DWORD controlBlock = 203;
constexpr DWORD controlUnknown = 210; // to the extended handler

struct Options {
    std::string log = "-";
    unsigned startMs = 0;
    unsigned stopMs = 0;
    unsigned hintMs = 2000;
    DWORD controls = SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_PAUSE_CONTINUE;
    DWORD exitCode = 0;
    DWORD specificCode = 0;
    bool hangStart = false;
    bool silent = false;
    bool extended = false;
    bool wide = false;
    bool foreground = false;
    std::string services;
};

Options options;
SERVICE_STATUS_HANDLE statusHandle;
std::atomic<DWORD> checkPoint;
std::atomic<bool> hanging; // nothing is reported any more
std::mutex guard;          // what follows
std::condition_variable stopAsked;
bool stopping;

void WriteLine(const std::string &line) {
    const std::string text = line + "\n";
    int file = options.log == "-" ? -1 : open(options.log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    (void)!write(file >= 0 ? file : STDERR_FILENO, text.data(), text.size()); // a missing line is seen by whoever waits
    if (file >= 0) close(file);
}

void Report(DWORD state) {
    if (options.silent || hanging) return;
    const bool pending = state != SERVICE_RUNNING && state != SERVICE_PAUSED && state != SERVICE_STOPPED;
    SERVICE_STATUS status = {};
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    status.dwControlsAccepted = state == SERVICE_START_PENDING || state == SERVICE_STOPPED ? 0 : options.controls;
    status.dwWin32ExitCode = state == SERVICE_STOPPED ? options.exitCode : 0;
    status.dwServiceSpecificExitCode = state == SERVICE_STOPPED ? options.specificCode : 0;
    status.dwCheckPoint = pending ? ++checkPoint : 0;
    status.dwWaitHint = pending ? options.hintMs : 0;
    WriteLine("state " + std::to_string(state));
    (void)SetServiceStatus(statusHandle, &status); // a refused report shows as a missing one
}

void AskToStop() {
    const std::lock_guard<std::mutex> locked(guard);
    stopping = true;
    stopAsked.notify_all();
}

void HandleControl(DWORD control) {
    WriteLine("control " + std::to_string(control));
    switch (control) {
    case SERVICE_CONTROL_STOP:
        Report(SERVICE_STOP_PENDING);
        AskToStop();
        break;
    case SERVICE_CONTROL_PAUSE: Report(SERVICE_PAUSED); break;
    case SERVICE_CONTROL_CONTINUE: Report(SERVICE_RUNNING); break;
    case controlHang:
        Report(SERVICE_CONTINUE_PENDING);
        hanging = true;
        break;
    case controlStopYourself: AskToStop(); break;
    case controlDie: _exit(7);
    case controlBlock: std::this_thread::sleep_for(std::chrono::seconds(60)); break;
    default: break;
    }
}

DWORD HandleExtended(DWORD control, DWORD eventType, LPVOID eventData, LPVOID context) {
    if (eventType != 0 || eventData != nullptr || context != &options) WriteLine("not as registered");
    HandleControl(control);
    return control == controlUnknown ? ERROR_CALL_NOT_IMPLEMENTED : NO_ERROR;
}

std::string Joined(const std::vector<std::string> &parts) {
    std::string joined;
    for (const std::string &part : parts) {
        joined += (joined.empty() ? "" : ",") + part;
    }
    return joined;
}

std::string Groups() {
    gid_t groups[64];
    const int count = getgroups(64, groups);
    std::vector<std::string> texts;
    texts.reserve(64);
    for (int i = 0; i < count; ++i) {
        texts.push_back(std::to_string(groups[i]));
    }
    return Joined(texts);
}

// Spends `milliseconds` in a pending state, with ten reports on the way.
void Dawdle(DWORD state, unsigned milliseconds) {
    for (int part = 0; milliseconds != 0 && part < 10; ++part) {
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds / 10));
        Report(state);
    }
}

// The service from the registration of its handler on; the first argument is its name.
void RunService(const std::vector<std::string> &arguments) {
    WriteLine("start " + arguments.front() + " uid=" + std::to_string(getuid()) + " gid=" + std::to_string(getgid()) +
              " groups=" + Groups() +
              " args=" + Joined(std::vector<std::string>(arguments.begin() + 1, arguments.end())));
    Report(SERVICE_START_PENDING);
    hanging = options.hangStart;
    Dawdle(SERVICE_START_PENDING, options.startMs);
    Report(SERVICE_RUNNING);
    {
        std::unique_lock<std::mutex> locked(guard);
        stopAsked.wait(locked, [] { return stopping; });
    }
    Dawdle(SERVICE_STOP_PENDING, options.stopMs);
    Report(SERVICE_STOPPED);
}

void ServiceMain(DWORD argc, LPSTR *argv) {
    statusHandle = options.extended ? RegisterServiceCtrlHandlerExA(argv[0], HandleExtended, &options)
                                    : RegisterServiceCtrlHandlerA(argv[0], HandleControl);
    RunService(std::vector<std::string>(argv, argv + argc));
}

void WideServiceMain(DWORD argc, LPWSTR *argv) {
    statusHandle = options.extended ? RegisterServiceCtrlHandlerExW(argv[0], HandleExtended, &options)
                                    : RegisterServiceCtrlHandlerW(argv[0], HandleControl);
    std::vector<std::string> arguments(argc);
    for (DWORD i = 0; i < argc; ++i) {
        (void)Utf8FromUtf16(argv[i], &arguments[i]); // the library gives UTF-16
    }
    RunService(arguments);
}

bool ReadOptions(int argc, char **argv) {
    enum Option {
        log,
        startMs,
        stopMs,
        hintMs,
        controls,
        exitCode,
        specific,
        hangStart,
        silent,
        services,
        extended,
        wide,
        foreground
    };
    const option known[] = {
        {"log", required_argument, nullptr, log},           {"start-ms", required_argument, nullptr, startMs},
        {"stop-ms", required_argument, nullptr, stopMs},    {"hint-ms", required_argument, nullptr, hintMs},
        {"controls", required_argument, nullptr, controls}, {"exit-code", required_argument, nullptr, exitCode},
        {"specific", required_argument, nullptr, specific}, {"hang-start", no_argument, nullptr, hangStart},
        {"silent", no_argument, nullptr, silent},           {"services", required_argument, nullptr, services},
        {"extended", no_argument, nullptr, extended},       {"wide", no_argument, nullptr, wide},
        {"foreground", no_argument, nullptr, foreground},   {}};
    for (int found = 0; (found = getopt_long(argc, argv, "", known, nullptr)) != -1;) {
        const auto number = optarg != nullptr ? static_cast<unsigned>(std::strtoul(optarg, nullptr, 10)) : 0;
        switch (found) {
        case log: options.log = optarg; break;
        case startMs: options.startMs = number; break;
        case stopMs: options.stopMs = number; break;
        case hintMs: options.hintMs = number; break;
        case controls: options.controls = number; break;
        case exitCode: options.exitCode = number; break;
        case specific: options.specificCode = number; break;
        case hangStart: options.hangStart = true; break;
        case silent: options.silent = true; break;
        case services: options.services = optarg; break;
        case extended: options.extended = true; break;
        case wide: options.wide = true; break;
        case foreground: options.foreground = true; break;
        default: return false;
        }
    }
    return optind == argc;
}

std::vector<std::string> ServiceNames() {
    if (options.services.empty()) return {"tvsample"};
    std::vector<std::string> names;
    std::istringstream text(options.services);
    for (std::string name; std::getline(text, name, ',');) {
        names.push_back(name);
    }
    return names;
}

BOOL ServeNarrow(const std::vector<std::string> &names) {
    std::vector<SERVICE_TABLE_ENTRYA> table;
    table.reserve(names.size() + 1);
    for (const std::string &name : names) {
        table.push_back({name.c_str(), ServiceMain});
    }
    table.push_back({nullptr, nullptr});
    return StartServiceCtrlDispatcherA(table.data());
}

BOOL ServeWide(const std::vector<std::string> &names) {
    std::vector<std::u16string> wideNames(names.size());
    std::vector<SERVICE_TABLE_ENTRYW> table;
    for (std::size_t i = 0; i < names.size(); ++i) {
        (void)Utf16FromUtf8(names[i], &wideNames[i]); // without a name it is no service
        table.push_back({wideNames[i].c_str(), WideServiceMain});
    }
    table.push_back({nullptr, nullptr});
    return StartServiceCtrlDispatcherW(table.data());
}

} // namespace

int main(int argc, char **argv) {
    if (!ReadOptions(argc, argv)) return 2;
    if (options.wide ? ServeWide(ServiceNames()) : ServeNarrow(ServiceNames())) return 0;
    if (GetLastError() == ERROR_FAILED_SERVICE_CONTROLLER_CONNECT && options.foreground) {
        WriteLine("foreground");
        return pause();
    }
    std::fprintf(stderr, "tvsample: error %u\n", GetLastError());
    return 1;
}
