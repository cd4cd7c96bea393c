// SPDX-License-Identifier: MIT
// tvsc: what the commands share.
//
// A command works on a session: an open daemon, the global options and the results so far. Data goes to stdout,
// everything else to stderr. The exit status follows LSB: 0 to 7, then 150 and up for this program's own.
#pragma once

#include "servd/limits.h"
#include "svcapi/client.h"
#include "util/guard.h"

#include <chrono>
#include <ctime>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

inline void CloseHandle(SC_HANDLE handle) { (void)CloseServiceHandle(handle); } // a leaving program cannot do more
using ServiceHandle = std::unique_ptr<tvServiceHandle, Calls<&CloseHandle>>;

enum ExitStatus : int {
    EXIT_DONE = 0,
    EXIT_FAILED = 1,
    EXIT_USAGE = 2,
    EXIT_NOT_SUPPORTED = 3,
    EXIT_UNKNOWN_SERVICE = 5,
    EXIT_NOT_CONFIGURED = 6,
    EXIT_NOT_RUNNING = 7,
    EXIT_UNREACHABLE = 150,
    EXIT_TIMED_OUT = 151,
    EXIT_LOCKED = 152,
    EXIT_DEPENDENCY = 153,
    EXIT_DELETE_PENDING = 154,
    EXIT_EXISTS = 155,
    EXIT_INTERRUPTED = 130,
};

// Exit statuses of status, is-active and is-failed.
enum StatusExit : int { STATUS_RUNNING = 0, STATUS_DEAD = 1, STATUS_STOPPED = 3, STATUS_UNKNOWN = 4 };

struct Options {
    std::string host = "localhost";
    double callTimeoutSec = longestCallSec;
    double waitTimeoutSec = 60;
    bool json = false;
    bool quiet = false;
};

// What became of one name.
struct ActionResult {
    std::string name;
    std::string action; // "start", ...
    DWORD code = 0;     // Win32
    int exitStatus = EXIT_DONE;
    std::string text;                        // what was done, or what went wrong
    std::vector<std::string> suggested = {}; // what a name that means nothing may have been meant as
};

struct Session {
    Options options;
    ServiceHandle manager;
    DWORD initCode = 0;
    std::vector<ActionResult> results;
    time_t begunAt = time(nullptr);
    bool lacksRegistry = false; // said once that configurations cannot be read
};

// --- report: words and exit statuses ---

// "1060 ERROR_SERVICE_DOES_NOT_EXIST, no such service"
[[nodiscard]] std::string CodeText(DWORD code);
[[nodiscard]] int ExitStatusOf(DWORD code);
// "running", or "start_pending" when machine-readable.
[[nodiscard]] std::string StateWord(DWORD state, bool machineReadable = false);
// One word or two for a listing: the state, or "failed 1067".
[[nodiscard]] std::string StateSummary(const SERVICE_STATUS &status);
// "boot", "system", "auto", "demand", "disabled"; "unknown 7".
[[nodiscard]] std::string StartWord(DWORD startType);
// Columns as wide as their widest cell, but for the last one; with marks, one before each line.
void PrintTable(std::vector<std::vector<std::string>> rows, const std::vector<std::string> &marks = {});
// Notes a result; a success is told on stdout, a failure on stderr, unless JSON is wanted.
void Done(Session &session, const std::string &name, const std::string &action, const std::string &text);
void Failed(Session &session, const std::string &name, const std::string &action, DWORD code,
            const std::string &text = "");
// A line on stderr that belongs to no result.
void Note(const Session &session, const std::string &line);
// Writes the results as JSON when that is wanted. Returns the exit status: the first failure's.
[[nodiscard]] int Finish(const Session &session);

// --- session ---

// Connects; with needDatabase a daemon without a database is a failure. Returns EXIT_DONE, or says why and returns the
// exit status.
[[nodiscard]] int OpenSession(Session &session, bool needDatabase);

// Whether the daemon is that of this machine: files, process ids and the registry here are the daemon's too.
[[nodiscard]] bool IsThisMachine(const Options &options);

// From now on a call that takes longer than two seconds is explained on stderr, once.
void WatchForBusyDaemon();

// --- names ---

struct ResolvedNames {
    std::vector<std::string> names;
    bool failed = false; // a name meant nothing; said and noted already
};
// The services that patterns mean: an exact name, else the one name that differs in case only, else the key of a
// display name; a pattern with * ? [ stands for all that match.
[[nodiscard]] ResolvedNames ResolveNames(Session &session, const std::vector<std::string> &patterns,
                                         const std::string &action);
// Names of `known` that `name` may have been meant as, the nearest first, three at most.
[[nodiscard]] std::vector<std::string> SimilarNames(const std::string &name, const std::vector<std::string> &known);

// --- waiting ---

// died: the daemon has not noticed yet, but the process that the service's hint names is gone.
enum class WaitEnd { reached, stopped, died, timedOut, unreachable };

// Waits until the service is in the wanted state, looking without touching it. Where an announced wait has passed
// without a word, asks in the way that has the daemon find a dead service. With stoppedIsEnd a stopped service is not
// expected to start any more.
[[nodiscard]] WaitEnd WaitForState(Session &session, SC_HANDLE service, const std::string &name, DWORD wanted,
                                   bool stoppedIsEnd, SERVICE_STATUS *last);

// Whether a status query may be sent for a service in this state: it would kill one that was just started and has not
// reported yet.
[[nodiscard]] bool IsFreshQuerySafe(const SERVICE_STATUS &status);

// --- commands; each returns the exit status ---

struct ListFilter {
    std::vector<std::string> patterns;
    std::vector<std::string> states; // "running", "start_pending", ...; "failed"; none: all
    std::string group;
    bool namesOnly = false;
    bool brief = false; // no configurations
};
int RunList(Session &session, const ListFilter &filter);

enum class StatusLook { passive, fresh, probe };
int RunStatus(Session &session, const std::vector<std::string> &names, StatusLook look);
int RunIsActive(Session &session, const std::vector<std::string> &names);
int RunIsFailed(Session &session, const std::vector<std::string> &names);
int RunShow(Session &session, const std::vector<std::string> &names);
int RunDeps(Session &session, const std::string &name, bool dependents);
int RunName(Session &session, const std::string &name);
int RunExplain(const Options &options, DWORD code);
int RunLockStatus(Session &session);
int RunLockRelease(Session &session, std::optional<DWORD> id);
int RunWithLock(Session &session, const std::vector<std::string> &command);

struct StartOptions {
    std::vector<std::string> names;
    std::vector<std::string> arguments;
    bool withDependencies = false;
    bool wait = true;
};
int RunStart(Session &session, const StartOptions &start);

struct StopOptions {
    std::vector<std::string> names;
    bool all = false;
    bool withDependents = false;
    bool force = false;
    bool wait = true;
};
int RunStop(Session &session, const StopOptions &stop);
int RunRestart(Session &session, const std::vector<std::string> &names);
int RunControl(Session &session, const std::vector<std::string> &names, DWORD control, bool wait);
int RunWait(Session &session, const std::vector<std::string> &names, DWORD state);
int RunReset(Session &session, const std::vector<std::string> &names);

struct CreateOptions {
    std::string name;
    std::string exec;    // program and arguments, run by tvhost
    std::string program; // a service program and its arguments, started directly
    std::string image;   // a csh script
    std::string display;
    DWORD type = SERVICE_WIN32_OWN_PROCESS;
    DWORD startType = SERVICE_DEMAND_START;
    DWORD errorControl = SERVICE_ERROR_NORMAL;
    std::vector<std::string> dependencies;
    std::string group;
    bool tag = false;
    std::string user;
    std::vector<std::string> environment;
    std::string directory;
    std::string standardOutput;
    std::string standardError;
    std::optional<DWORD> stopTimeoutMs;
};
int RunCreate(Session &session, const CreateOptions &create);

struct ConfigOptions {
    std::string name;
    std::optional<std::string> display, image, group, user;
    std::optional<DWORD> type, startType, errorControl;
    std::optional<std::string> dependencies; // separated by commas; "" takes all away
    bool tag = false;
};
int RunConfig(Session &session, const ConfigOptions &config);

struct DeleteOptions {
    std::vector<std::string> names;
    bool stop = false;
    bool wait = false;
};
int RunDelete(Session &session, const DeleteOptions &options);

int RunPlanBoot(const Options &options);
int RunPing(const Options &options, int count);
int RunWaitOnline(const Options &options);
int RunDaemonStatus(const Options &options);
int RunDaemonStop(const Options &options);
