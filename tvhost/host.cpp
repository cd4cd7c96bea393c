// SPDX-License-Identifier: MIT
// host: the life of a hosted program.
//
// One thread does it all, in one loop for each run of the program. Phases, what leads to the next one, and what the
// daemon hears:
//   starting  START_PENDING  the program was started; it is ready when its type and the readiness command say so, and
//                            the delay has passed -> running; its time is up -> stopping, with 1053
//   running   RUNNING        pause -> paused; a stop, the daemon's end where that ends it -> stopping
//   paused    PAUSED         every process of the tree is halted; continue -> running
//   stopping  STOP_PENDING   stop command or stop signal; after the stop time-out SIGKILL
//   ended                    its main process has ended: so does every process that came of it
//   waiting   START_PENDING  between two runs, where it is started again
//   stopped   STOPPED
// The program ends by itself in every phase: -> ended. A stop is heard in all of them.
//
// What can hold the start up is left to one more thread, or watched by it: the reading of the registry, and the way of
// the child to its program.
#include "tvhost/host.h"

#include "svcapi/process_stat.h"
#include "svcapi/runtime.h"
#include "tvhost/control_group.h"
#include "tvhost/events.h"
#include "tvhost/failure_actions.h"
#include "tvhost/log.h"
#include "tvhost/notify.h"
#include "tvhost/predecessor.h"
#include "tvhost/process_tree.h"
#include "tvhost/restart.h"
#include "tvhost/service_status.h"
#include "util/guard.h"
#include "util/monotonic_ms.h"
#include "util/printable.h"
#include "util/win32_names.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <thread>

namespace {

constexpr DWORD startWaitMs = 60'000; // reading the registry, and the way to the program
constexpr DWORD afterKillMs = 10'000; // a killed program may still hang in the kernel
constexpr std::int64_t never = INT64_MAX;
constexpr std::int64_t readyIntervalMs = 500; // between two readiness commands
constexpr std::int64_t pidFileIntervalMs = 50;
constexpr std::int64_t treeIntervalMs = 20; // between two looks at a tree that is being killed
constexpr DWORD firstSignalControl = 128;   // which itself is a reload

enum class Phase { starting, running, paused, stopping, ended };
constexpr const char *phaseWords[] = {"starting", "running", "paused", "stopping", "ended"};

enum class CommandKind { ready, stop, reload, failure };

struct Command {
    pid_t process = 0; // 0 when none runs
    CommandKind kind = CommandKind::ready;
    std::int64_t killAt = never;
};

// One run of the program. Moments are of the monotonic clock.
struct Run {
    Phase phase = Phase::starting;
    pid_t launched = 0; // what was started
    pid_t main = 0;     // the process whose end is the program's; 0 while it is looked for
    int mainDescriptor = -1;
    std::int64_t startedAt = 0;
    std::int64_t failAt = never; // where it is not ready by then
    std::int64_t killAt = never;
    std::int64_t lookAt = never; // for the pid file, or with the readiness command
    bool toldReady = false;      // by notification
    bool commandReady = false;
    bool wasReady = false;
    bool stopAsked = false;
    bool killed = false;
    int status = 0;         // as of waitpid
    bool hasStatus = false; // not where it is not our child
    StartFailure failure;   // why it is ended, where that is not a stop; else empty
    Command command;        // one at a time, but that a stop command follows whatever runs
};

struct Host {
    std::string name;
    std::vector<std::string> startArguments;
    HostParameters parameters;
    FailureActions failureActions;
    int stopSignal = SIGTERM;
    int reloadSignal = SIGHUP;
    Log log;
    ControlGroup group;
    NotifySocket notify;
    HostState state;
    RestartHistory history;
    bool daemonIsGone = false;
    Run run;
};

std::string CodeText(DWORD code) {
    const char *name = Win32ErrorName(code);
    return std::to_string(code) + " " + (name != nullptr ? name : "");
}

// Tells people: on standard error, which is the daemon's, and in the service's log.
void Say(Host &host, const std::string &text) {
    const std::string line = Printable(text);
    std::fprintf(stderr, "tvhost: %s: %s\n", Printable(host.name).c_str(), line.c_str());
    SayInLog(&host.log, "tvhost: " + line);
}

void Publish(Host &host) { WriteHostState(host.name, host.state); }

void EnterPhase(Host &host, Phase phase) {
    host.run.phase = phase;
    host.state.phase = phaseWords[static_cast<std::size_t>(phase)];
    Publish(host);
}

// --- children ---

Surroundings SurroundingsOf(const Host &host, bool isProgram) {
    Surroundings around;
    around.output = host.log.output.writeEnd;
    around.error = host.log.error.writeEnd;
    around.group = host.group.processes;
    if (!isProgram) {
        around.signalAtOurDeath = SIGKILL;
        around.sharesTmpWith = host.run.main;
    }
    around.environment.push_back("NOTIFY_SOCKET=" + host.notify.address); // nobody else's
    if (host.run.main != 0) around.environment.push_back("MAINPID=" + std::to_string(host.run.main));
    return around;
}

// Starts the program; a stop ends a child that has not become it yet. Results as StartProgram.
pid_t StartUnlessStopped(Host &host, StartFailure *failure) {
    ChildOnItsWay onItsWay = {};
    int started = eventfd(0, EFD_CLOEXEC);
    const DescriptorGuard closed(&started);
    std::thread watch([started, &onItsWay] {
        if (!AwaitOrStop(started)) return;
        constexpr int pauseMs = 10;
        while (!IsReadable(started, pauseMs)) {
            KillOnItsWay(onItsWay);
        }
    });
    const pid_t child =
        StartProgram(host.parameters, host.startArguments, SurroundingsOf(host, true), failure, &onItsWay);
    (void)eventfd_write(started, 1);
    watch.join();
    return child;
}

void StartCommandOf(Host &host, CommandKind kind, const std::string &line) {
    StartFailure failure;
    Command &command = host.run.command;
    command.kind = kind;
    command.process = StartCommand(host.parameters, line, SurroundingsOf(host, false), &failure);
    command.killAt = MonotonicMs() + host.parameters.commandTimeoutMs;
    if (command.process == 0) Say(host, "command not started: " + failure.text);
}

void SetMain(Host &host, pid_t process) {
    Run &run = host.run;
    if (run.mainDescriptor >= 0) (void)close(run.mainDescriptor);
    run.main = process;
    run.mainDescriptor = process != 0 ? static_cast<int>(syscall(SYS_pidfd_open, process, 0)) : -1;
    host.state.program = process;
    host.state.programStart = process != 0 ? StartOfProcess(process) : 0;
}

std::vector<pid_t> CommandsOf(const Run &run) {
    return run.command.process != 0 ? std::vector<pid_t>{run.command.process} : std::vector<pid_t>{};
}

void SignalTree(const Host &host, int signal) { (void)SignalDescendants(getpid(), signal, CommandsOf(host.run)); }

void KillTree(const Host &host) {
    KillProcesses(host.group.path, host.group.inode);
    (void)SignalDescendants(getpid(), SIGKILL);
}

// The group of the main process, where it leads one or is in one of the tree's.
void SignalGroup(const Host &host, int signal) {
    const pid_t group = host.run.main != 0 ? getpgid(host.run.main) : -1;
    if (group > 0 && group != getpgrp()) (void)kill(-group, signal); // it may just have ended
}

// --- ends ---

void TakeCommandEnd(Host &host, int status) {
    Command &command = host.run.command;
    command.process = 0;
    command.killAt = never;
    const bool succeeded = status == 0;
    switch (command.kind) {
    case CommandKind::ready:
        host.run.commandReady = succeeded;
        host.run.lookAt = succeeded ? never : MonotonicMs() + readyIntervalMs;
        return;
    case CommandKind::stop:
        if (succeeded) return;
        Say(host, "stop command " + TextOfEnd(status) + ": the stop signal is sent instead");
        SignalTree(host, host.stopSignal);
        return;
    case CommandKind::reload:
    case CommandKind::failure:
        if (!succeeded) Say(host, "command " + TextOfEnd(status));
        return;
    }
}

void FailRun(Host &host, ExitCodes codes, const std::string &why) {
    if (host.run.failure.text.empty()) host.run.failure = {codes, why};
}

void TakeMainEnd(Host &host, int status, bool hasStatus) {
    host.run.status = status;
    host.run.hasStatus = hasStatus;
    host.run.phase = Phase::ended;
}

void TakeOneEnd(Host &host, pid_t process, int status) {
    Run &run = host.run;
    if (process == run.command.process) {
        TakeCommandEnd(host, status);
    } else if (process == run.main) {
        TakeMainEnd(host, status, true);
    } else if (process == run.launched && run.main == 0 && run.phase != Phase::ended) {
        run.launched = 0;
        if (status != 0) TakeMainEnd(host, status, true);
        run.lookAt = MonotonicMs(); // it has gone into the background
    }
}

void TakeEnds(Host &host) {
    ClearEvent(TheEvents().childEnded);
    int status = 0;
    for (pid_t process = waitpid(-1, &status, WNOHANG); process > 0; process = waitpid(-1, &status, WNOHANG)) {
        TakeOneEnd(host, process, status);
    }
    // A main process that is somebody else's child tells no status.
    Run &run = host.run;
    if (run.phase != Phase::ended && run.mainDescriptor >= 0 && IsReadable(run.mainDescriptor)) {
        ProcessStat stat;
        const bool isOurs = ReadProcessStat(run.main, &stat) && stat.parent == getpid();
        if (!isOurs) TakeMainEnd(host, 0, false);
    }
}

// Ends every process that has come of the run, and waits for their ends.
void EndTree(Host &host) {
    std::string left;
    for (const TreeProcess &process : DescendantsOf(getpid())) {
        if (!process.hasEnded && process.process != host.run.command.process) {
            left += (left.empty() ? "" : ", ") + std::to_string(process.process) + " " + NameOfProcess(process.process);
        }
    }
    if (!left.empty() && !host.run.killed && !host.run.stopAsked) {
        Say(host, "left processes behind, which are ended: " + left +
                      (host.parameters.type == AppType::simple
                           ? " (a program that goes into the background has the AppType forking)"
                           : ""));
    }
    const std::int64_t end = MonotonicMs() + afterKillMs;
    for (;;) {
        TakeEnds(host);
        const std::vector<TreeProcess> rest = DescendantsOf(getpid());
        if (rest.empty()) break;
        KillTree(host);
        if (MonotonicMs() > end) {
            Say(host, "cannot be killed: process " + std::to_string(rest.front().process));
            break;
        }
        (void)IsReadable(TheEvents().childEnded, treeIntervalMs);
    }
    host.run.command = {};
    SetMain(host, 0);
}

// --- stopping ---

DWORD StopWaitMs(const Host &host) { return host.parameters.stopTimeoutMs + afterKillMs; }

// How long a start may take, with the end of a program that does not become ready.
DWORD StartWaitMs(const Host &host) { return startWaitMs + host.parameters.startTimeoutMs + StopWaitMs(host); }

void BeginStop(Host &host) {
    Run &run = host.run;
    const bool wasPaused = run.phase == Phase::paused;
    if (run.phase == Phase::stopping || run.phase == Phase::ended) return;
    EnterPhase(host, Phase::stopping);
    run.killAt = MonotonicMs() + host.parameters.stopTimeoutMs;
    ReportState(SERVICE_STOP_PENDING, StopWaitMs(host));
    const bool hasCommand = !host.parameters.stopCommand.empty() && run.main != 0;
    if (hasCommand) StartCommandOf(host, CommandKind::stop, host.parameters.stopCommand);
    if (run.command.process == 0 || run.command.kind != CommandKind::stop) SignalTree(host, host.stopSignal);
    if (wasPaused) SignalTree(host, SIGCONT); // it cannot hear of it otherwise
}

// --- readiness ---

void ReadPidFile(Host &host) {
    int file = open(host.parameters.pidFile.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (file < 0) return;
    const DescriptorGuard closed(&file);
    char text[32] = {};
    if (read(file, text, sizeof text - 1) <= 0) return;
    const auto process = static_cast<pid_t>(std::strtol(text, nullptr, 10));
    // One that is not the service's own could be anybody.
    if (process > 0 && IsDescendantOf(process, getpid())) SetMain(host, process);
}

// Looks for the main process of a program that has gone into the background: the one that its file names, or the
// oldest.
void LookForMain(Host &host) {
    Run &run = host.run;
    if (!host.parameters.pidFile.empty()) {
        ReadPidFile(host);
    } else {
        for (const TreeProcess &process : DescendantsOf(getpid())) {
            if (!process.hasEnded && process.process != run.command.process) return SetMain(host, process.process);
        }
    }
    const bool nothingLeft = run.main == 0 && DescendantsOf(getpid()).empty();
    if (nothingLeft) {
        FailRun(host, {ERROR_PROCESS_ABORTED, 0}, "went into the background and left no process");
        run.phase = Phase::ended;
    }
}

bool HasTypeReady(const Host &host) {
    switch (host.parameters.type) {
    case AppType::forking: return host.run.main != 0 && host.run.launched == 0;
    case AppType::notify: return host.run.toldReady;
    default: return true;
    }
}

// Whether there is a time between a program that was started and one that is ready.
bool WaitsForReadiness(const HostParameters &parameters) {
    return parameters.type != AppType::simple || parameters.readyDelayMs != 0 || !parameters.readyCommand.empty();
}

std::int64_t ReadyAt(const Host &host) { return host.run.startedAt + host.parameters.readyDelayMs; }

void AdvanceStart(Host &host) {
    Run &run = host.run;
    const std::int64_t now = MonotonicMs();
    if (now >= run.failAt) {
        FailRun(host, {ERROR_SERVICE_REQUEST_TIMEOUT, 0},
                "not ready within " + std::to_string(host.parameters.startTimeoutMs) + " ms (AppStartTimeout)");
        return BeginStop(host);
    }
    if (host.parameters.type == AppType::forking && run.launched == 0 && run.main == 0 && now >= run.lookAt) {
        run.lookAt = now + pidFileIntervalMs;
        LookForMain(host);
        if (run.main != 0) run.lookAt = now;
    }
    if (run.phase != Phase::starting || !HasTypeReady(host) || now < ReadyAt(host)) return;
    if (!host.parameters.readyCommand.empty() && !run.commandReady) {
        if (run.command.process == 0 && (now >= run.lookAt || run.lookAt == never)) {
            StartCommandOf(host, CommandKind::ready, host.parameters.readyCommand);
            run.lookAt = now + readyIntervalMs;
        }
        return;
    }
    run.wasReady = true;
    run.lookAt = never;
    run.failAt = never;
    EnterPhase(host, Phase::running);
    ReportState(SERVICE_RUNNING);
}

// --- what happens ---

bool MayTell(const ucred &sender) {
    if (sender.pid == 0) return false;
    return sender.uid == geteuid() || sender.uid == 0 || IsDescendantOf(sender.pid, getpid());
}

void TakeNotifications(Host &host) {
    std::string text;
    ucred sender = {};
    Run &run = host.run;
    while (host.notify.descriptor >= 0 && TakeNotification(host.notify, &text, &sender)) {
        if (!MayTell(sender)) continue;
        const Notification told = ParseNotification(text);
        if (told.ready) run.toldReady = true;
        if (told.mainProcess > 0 && IsDescendantOf(told.mainProcess, getpid())) SetMain(host, told.mainProcess);
        if (told.hasStatus) host.state.says = told.status;
        if (told.extendUs > 0) {
            const auto extendMs =
                static_cast<std::int64_t>(std::min<unsigned long long>(told.extendUs / 1000, longestTimeoutMs));
            std::int64_t &deadline = run.phase == Phase::stopping ? run.killAt : run.failAt;
            if (deadline != never) deadline = std::max(deadline, MonotonicMs() + extendMs);
        }
        if (run.phase == Phase::starting) {
            ReportState(SERVICE_START_PENDING,
                        static_cast<DWORD>(std::max<std::int64_t>(run.failAt - MonotonicMs(), 0)) + afterKillMs);
        } else if (run.phase == Phase::stopping) {
            ReportState(SERVICE_STOP_PENDING,
                        static_cast<DWORD>(std::max<std::int64_t>(run.killAt - MonotonicMs(), 0)) + afterKillMs);
        }
        Publish(host);
    }
}

void Pause(Host &host, bool pause) {
    if (host.run.phase != (pause ? Phase::running : Phase::paused)) return;
    SignalTree(host, pause ? SIGSTOP : SIGCONT);
    EnterPhase(host, pause ? Phase::paused : Phase::running);
    ReportState(pause ? SERVICE_PAUSED : SERVICE_RUNNING);
}

void Reload(Host &host) {
    if (host.run.main == 0) return;
    if (host.parameters.reloadCommand.empty()) {
        SignalProcess({host.run.main, host.state.programStart}, host.reloadSignal);
    } else if (host.run.command.process == 0) {
        StartCommandOf(host, CommandKind::reload, host.parameters.reloadCommand);
    } else {
        Say(host, "no reload while another command runs");
    }
}

void TakeControls(Host &host) {
    DWORD control = 0;
    while (TakeControl(&control)) {
        switch (control) {
        case SERVICE_CONTROL_PAUSE: Pause(host, true); break;
        case SERVICE_CONTROL_CONTINUE: Pause(host, false); break;
        case firstSignalControl: Reload(host); break;
        case firstSignalControl + SIGHUP:
        case firstSignalControl + SIGUSR1:
        case firstSignalControl + SIGUSR2: SignalGroup(host, static_cast<int>(control - firstSignalControl)); break;
        default: break;
        }
    }
}

// The daemon's end is seen once. Whether the next one hears of this service is the reports' business: they are repeated
// until somebody takes them.
void NoteDaemonEnd(Host &host) {
    if (host.daemonIsGone || TheEvents().daemonEnded < 0 || !IsReadable(TheEvents().daemonEnded)) return;
    host.daemonIsGone = true;
    if (host.parameters.onDaemonRestart == OnDaemonRestart::end) {
        Say(host, "its daemon has ended: it stops (AppOnDaemonRestart)");
        AskToStop();
    } else {
        ReportAgain();
    }
}

std::int64_t NextMoment(const Host &host) {
    const Run &run = host.run;
    std::int64_t next = std::min({run.failAt, run.killAt, run.command.killAt});
    if (run.phase != Phase::starting) return next;
    if (run.command.process == 0) next = std::min(next, run.lookAt);
    return HasTypeReady(host) && MonotonicMs() < ReadyAt(host) ? std::min(next, ReadyAt(host)) : next;
}

// Waits until something happens or a moment has come.
void AwaitEvents(const Host &host, std::int64_t moment) {
    const Events &events = TheEvents();
    const std::int64_t leftMs = moment == never ? -1 : std::max<std::int64_t>(moment - MonotonicMs(), 0);
    pollfd polled[] = {{host.run.stopAsked ? -1 : events.stopAsked, POLLIN, 0},
                       {events.childEnded, POLLIN, 0},
                       {events.controls, POLLIN, 0},
                       {host.daemonIsGone ? -1 : events.daemonEnded, POLLIN, 0},
                       {host.notify.descriptor, POLLIN, 0},
                       {host.run.mainDescriptor, POLLIN, 0}};
    (void)poll(polled, std::size(polled), static_cast<int>(std::min<std::int64_t>(leftMs, INT32_MAX)));
}

void AdvanceTime(Host &host) {
    Run &run = host.run;
    const std::int64_t now = MonotonicMs();
    if (run.command.process != 0 && now >= run.command.killAt) {
        Say(host,
            "command killed after " + std::to_string(host.parameters.commandTimeoutMs) + " ms (AppCommandTimeout)");
        SignalProcess({run.command.process, 0}, SIGKILL);
        run.command.killAt = never;
    }
    if (run.phase == Phase::starting) AdvanceStart(host);
    if (run.phase == Phase::stopping && !run.killed && now >= run.killAt) {
        Say(host,
            "killed: it did not stop within " + std::to_string(host.parameters.stopTimeoutMs) + " ms (AppStopTimeout)");
        run.killed = true;
        run.killAt = now + afterKillMs;
        KillTree(host);
    } else if (run.phase == Phase::stopping && run.killed && now >= run.killAt) {
        run.phase = Phase::ended; // it hangs in the kernel
    }
    // Nobody's end is waited for where the main process was not known yet.
    const bool isHeadless = run.phase == Phase::stopping && run.main == 0 && run.launched == 0;
    if (isHeadless && DescendantsOf(getpid()).empty()) run.phase = Phase::ended;
}

// --- a run ---

ExitCodes NoteStartFailure(Host &host, const StartFailure &failure) {
    host.state.reason = "not started: " + failure.text;
    Say(host, host.state.reason);
    return failure.codes;
}

// What a run that has ended comes to.
ExitCodes CodesOfRun(Host &host) {
    const Run &run = host.run;
    if (!run.failure.text.empty()) {
        host.state.reason = run.failure.text;
        return run.failure.codes;
    }
    const std::string text = run.hasStatus ? TextOfEnd(run.status) : "its process has ended";
    host.state.reason = run.stopAsked ? "" : text;
    const ExitCodes codes = CodesOfEnd(run.status, run.stopAsked, host.stopSignal);
    if (run.wasReady || run.stopAsked || !WaitsForReadiness(host.parameters) || codes.win32 != ERROR_SUCCESS) {
        return codes;
    }
    host.state.reason = text + " before it was ready";
    return {ERROR_PROCESS_ABORTED, 0};
}

// Runs the program once. Returns the codes that it ended with.
ExitCodes RunOnce(Host &host) {
    host.run = {};
    Run &run = host.run;
    StartFailure failure;
    const pid_t child = StartUnlessStopped(host, &failure);
    run.startedAt = MonotonicMs();
    run.stopAsked = IsStopAsked();
    if (child == 0) return run.stopAsked ? ExitCodes{} : NoteStartFailure(host, failure);
    run.launched = child;
    run.failAt = run.startedAt + host.parameters.startTimeoutMs;
    SetMain(host, host.parameters.type == AppType::forking ? 0 : child);
    host.state.startedAtMs = EpochMs();
    host.state.nextAttemptMs = 0;
    host.state.says.clear();
    if (host.parameters.type != AppType::forking) run.launched = 0;
    EnterPhase(host, Phase::starting);
    // The daemon takes a service for dead once what it has announced has passed.
    if (WaitsForReadiness(host.parameters)) ReportState(SERVICE_START_PENDING, StartWaitMs(host));
    while (run.phase != Phase::ended) {
        TakeNotifications(host); // before the ends: what a program has said last counts
        TakeEnds(host);
        if (run.phase == Phase::ended) break;
        TakeControls(host);
        NoteDaemonEnd(host);
        if (!run.stopAsked && IsStopAsked()) {
            run.stopAsked = true;
            BeginStop(host);
        }
        AdvanceTime(host);
        if (run.phase != Phase::ended) AwaitEvents(host, NextMoment(host));
    }
    EndTree(host);
    if (!FlushLog(&host.log)) Say(host, "its log does not take its last lines");
    return CodesOfRun(host);
}

void RunFailureCommand(Host &host) {
    if (host.failureActions.command.empty()) return;
    StartCommandOf(host, CommandKind::failure, host.failureActions.command);
    while (host.run.command.process != 0 && !IsStopAsked()) {
        AwaitEvents(host, host.run.command.killAt);
        TakeEnds(host);
        AdvanceTime(host);
    }
    EndTree(host);
}

// Waits between two runs. Returns false when a stop was asked for.
bool AwaitRestart(Host &host, DWORD delayMs) {
    host.state.restarts = host.history.restarts;
    host.state.nextAttemptMs = EpochMs() + delayMs;
    host.state.phase = "waiting";
    Publish(host);
    ReportState(SERVICE_START_PENDING, delayMs + startWaitMs);
    host.run = {};
    const std::int64_t end = MonotonicMs() + delayMs;
    while (!IsStopAsked() && MonotonicMs() < end) {
        AwaitEvents(host, end);
        TakeEnds(host);
        TakeControls(host); // there is nothing that they could be for
        NoteDaemonEnd(host);
    }
    if (IsStopAsked()) return false;
    ReportState(SERVICE_START_PENDING, StartWaitMs(host));
    return true;
}

// Runs the program until it is not to be started again.
ExitCodes RunAgainAndAgain(Host &host) {
    for (bool isFirst = true;; isFirst = false) {
        const ExitCodes codes = RunOnce(host);
        if (IsStopAsked() && host.run.failure.text.empty()) return codes;
        const bool failed = codes.win32 != ERROR_SUCCESS;
        const bool wasStarted = host.run.startedAt != 0 && host.state.startedAtMs != 0;
        if (isFirst && !wasStarted) return codes; // what is set up wrongly is no better the next time
        const auto ranMs = static_cast<std::uint64_t>(MonotonicMs() - host.run.startedAt);
        const RestartDecision decision =
            DecideAfterEnd(host.parameters, host.failureActions, failed, ranMs, &host.history);
        const std::string reason = host.state.reason + (decision.reason.empty() ? "" : "; " + decision.reason);
        switch (decision.next) {
        case AfterEnd::restart:
            Say(host, reason + "; it is started again in " + std::to_string(decision.delayMs) + " ms");
            if (!AwaitRestart(host, decision.delayMs)) return {};
            continue;
        case AfterEnd::giveUp:
            host.state.reason = reason;
            Say(host, reason);
            return {ERROR_PROCESS_ABORTED, 0};
        case AfterEnd::runCommand: RunFailureCommand(host); break;
        case AfterEnd::stop: break;
        }
        if (failed && host.state.reason.rfind("not started", 0) != 0) Say(host, reason);
        return codes;
    }
}

// --- before the first run ---

// What the registry tells of a service. A thread of its own reads it, and may never come to the end of it.
struct Reading {
    HostParameters parameters;
    FailureActions failureActions;
    std::string problem;
    DWORD rc = ERROR_SUCCESS;
    std::atomic<bool> isWhole = false; // from here on it belongs to the thread that waits for it
    int done = eventfd(0, EFD_CLOEXEC);
    const DescriptorGuard closed{&done};
};

void ReadService(const std::string &serviceName, const std::shared_ptr<Reading> &reading) {
    reading->rc = CheckServiceAccount(serviceName);
    if (reading->rc == ERROR_SUCCESS) {
        reading->rc = ReadHostParameters(serviceName, &reading->parameters, &reading->problem);
    }
    if (reading->rc == ERROR_SUCCESS) {
        reading->rc = ReadFailureActions(serviceName, &reading->failureActions, &reading->problem);
    }
    reading->isWhole = true;
    (void)eventfd_write(reading->done, 1);
}

// Reads, unless a stop comes first: then nothing is returned.
std::shared_ptr<Reading> ReadUnlessStopped(const std::string &serviceName) {
    auto reading = std::make_shared<Reading>();
    std::thread(ReadService, serviceName, reading).detach();
    return AwaitOrStop(reading->done) || !reading->isWhole ? nullptr : reading;
}

std::string WhyUnread(const Reading &reading) {
    if (reading.rc == ERROR_INVALID_SERVICE_ACCOUNT) return "its account is not the one of this process";
    return reading.problem.empty() ? "its parameters cannot be read: " + CodeText(reading.rc) : reading.problem;
}

// Reads a signal's name; an empty one leaves it as it is.
bool TakeSignal(const std::string &text, int *signal) {
    if (!text.empty()) *signal = SignalOf(text);
    return *signal != 0;
}

// Leaves the reason for whoever looks, but where the state is that of an earlier start which still runs.
ExitCodes RefuseStart(Host &host, ExitCodes codes, const std::string &why) {
    Say(host, why);
    Predecessor found;
    if (FindPredecessor(host.name, &found)) return codes;
    host.state.reason = why;
    host.state.log = LogPlaceText(host.log);
    host.state.phase = "stopped";
    Publish(host);
    return codes;
}

// Makes sure that the service runs nowhere else. Returns 0 or 1056.
DWORD SettlePredecessor(Host &host) {
    Predecessor found;
    if (!FindPredecessor(host.name, &found)) {
        TakeServiceOver(host.name);
        return ERROR_SUCCESS;
    }
    const std::string text = DescribePredecessor(found);
    if (host.parameters.onPredecessor == OnPredecessor::refuse) {
        Say(host, text + "; it is not started a second time (AppOnPredecessor)");
        return ERROR_SERVICE_ALREADY_RUNNING;
    }
    Say(host, text + "; it is ended first (AppOnPredecessor)");
    ReportState(SERVICE_START_PENDING, StopWaitMs(host) + afterKillMs + startWaitMs);
    TakeServiceOver(host.name); // or its last report would be taken for the end of this one
    const auto pause = [](int milliseconds) { return !IsReadable(TheEvents().stopAsked, milliseconds); };
    return EndPredecessor(found, StopWaitMs(host), pause) || IsStopAsked() ? DWORD{ERROR_SUCCESS}
                                                                           : DWORD{ERROR_SERVICE_ALREADY_RUNNING};
}

// Takes what the machine grants. Returns why the service cannot be run without something that it does not.
std::string OpenSurroundings(Host &host) {
    const HostParameters &parameters = host.parameters;
    (void)prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0);
    const std::string noGroup = MakeControlGroup(host.name, &host.group); // all goes without one, but for the limits
    std::string refused;
    if (parameters.memoryMiB != notSet) refused = LimitMemory(host.group, std::uint64_t{parameters.memoryMiB} << 20);
    if (!refused.empty()) return "AppMemoryMax: " + (host.group.path.empty() ? noGroup : refused);
    if (parameters.cpuPercent != notSet) refused = LimitProcessorTime(host.group, parameters.cpuPercent);
    if (!refused.empty()) return "AppCpuMax: " + (host.group.path.empty() ? noGroup : refused);
    if (parameters.type == AppType::notify) return OpenNotifySocket(&host.notify);
    return "";
}

void CloseSurroundings(Host &host) {
    CloseNotifySocket(&host.notify);
    RemoveControlGroup(&host.group);
}

ExitCodes RunWithLog(Host &host) {
    if (!TakeSignal(host.parameters.stopSignal, &host.stopSignal)) {
        return RefuseStart(host, {ERROR_INVALID_DATA, 0}, "AppStopSignal: no such signal");
    }
    if (!TakeSignal(host.parameters.reloadSignal, &host.reloadSignal)) {
        return RefuseStart(host, {ERROR_INVALID_DATA, 0}, "AppReloadSignal: no such signal");
    }
    SetStopWait(StopWaitMs(host));
    const DWORD rc = SettlePredecessor(host);
    if (rc != ERROR_SUCCESS) return {rc, 0};
    host.state.host = getpid();
    host.state.hostStart = StartOfProcess(getpid());
    host.state.log = LogPlaceText(host.log);
    const std::string refused = OpenSurroundings(host);
    host.state.group = host.group.path;
    host.state.groupInode = host.group.inode;
    ExitCodes codes;
    if (!refused.empty()) {
        codes = RefuseStart(host, {ERROR_NOT_SUPPORTED, 0}, refused);
    } else if (!IsStopAsked()) {
        codes = RunAgainAndAgain(host);
    }
    CloseSurroundings(host);
    host.state.phase = "stopped";
    host.state.group.clear();
    host.state.nextAttemptMs = 0;
    host.state.restarts = host.history.restarts;
    Publish(host);
    return codes;
}

} // namespace

ExitCodes RunService(const std::string &serviceName, const std::vector<std::string> &startArguments) {
    BeginReports(serviceName.c_str(), startWaitMs);
    const auto host = std::make_unique<Host>();
    host->name = serviceName;
    host->startArguments = startArguments;
    const std::shared_ptr<Reading> reading = ReadUnlessStopped(serviceName);
    if (reading == nullptr) return {};
    host->parameters = reading->parameters;
    host->failureActions = reading->failureActions;
    const std::string noLog = OpenLog(serviceName, host->parameters, &host->log);
    if (!noLog.empty()) Say(*host, noLog);
    const ExitCodes codes =
        reading->rc != ERROR_SUCCESS ? RefuseStart(*host, {reading->rc, 0}, WhyUnread(*reading)) : RunWithLog(*host);
    CloseLog(&host->log);
    return codes;
}
