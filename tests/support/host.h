// SPDX-License-Identifier: MIT
// host: programs, daemons, registry content and client handles for tests that run on a private host.
//
// The test process adopts every process that is started from here and outlives its parent, so that a daemon that has
// detached itself can be waited for like a child. Whatever is still running when the test program ends, ends with it.
// Functions that cannot do what they say throw std::runtime_error with the reason, which fails the test at hand.
// Times are in milliseconds.
#pragma once

#include "rpc/dial.h"
#include "tests/support/records.h"
#include "tests/support/value_bytes.h"
#include "util/monotonic_ms.h"

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

constexpr int patienceMs = 20000; // for what takes a moment on an idle machine

// --- programs ------------------------------------------------------------------------------------------------------

struct Launch {
    std::vector<std::string> command = {};     // command[0]: the program's path
    std::vector<std::string> environment = {}; // NAME=VALUE, on top of the test's own; NAME alone unsets
    std::string outputFile = {};               // takes standard output, appended; empty: the test's own
    std::string errorFile = {};                // takes standard error, likewise
    std::string directory = {};                // to start in; empty: the test's own
    std::vector<int> closed = {};              // standard descriptors to close before the program starts
    unsigned descriptors = 0;                  // soft and hard limit; 0: the test's own
};

// The path of a program of ours: in the folder that TV_BIN names.
std::string ProgramPath(std::string_view name);

// Starts a program. Returns its process id; the test waits for it with WaitForEnd or leaves it to EndAllProcesses.
pid_t StartProgram(const Launch &launch);

// Waits for a child or adopted process and takes its end. Returns the status as of waitpid; throws after timeoutMs.
int WaitForEnd(pid_t process, int timeoutMs = patienceMs);
bool HasEnded(pid_t process); // without waiting, without taking its end

// Starts a program and waits for its end. Returns the status as of waitpid.
int RunProgram(const Launch &launch, int timeoutMs = patienceMs);

struct Ended {
    int status; // exit status, 128 + N when signal N ended it
    std::string output;
    std::string error;
};
Ended RunAndRead(const Launch &launch, int timeoutMs = patienceMs);

// The living processes whose parent is this one, adopted ones included; with a name, those that run under it.
std::vector<pid_t> ChildrenOf(pid_t parent, std::string_view name = {});

// The ended processes whose parent is this one and has not taken their ends.
std::vector<pid_t> ZombiesOf(pid_t parent);

// Kills every child and adopted process until none is left, and takes their ends.
void EndAllProcesses();

// Runs `condition` every few milliseconds until it holds. Returns false after timeoutMs.
template <typename Condition>
bool WaitUntil(Condition condition, int timeoutMs = patienceMs);

// --- daemons -------------------------------------------------------------------------------------------------------

// Starts tvregd on a database file, which is made when missing, and waits until it answers.
pid_t StartRegistryDaemon(const std::string &databaseFile);

struct DetachedDaemon {
    int launcherStatus; // as of waitpid
    pid_t process;      // 0 when the launcher left no process behind
};

// Starts a program that detaches itself: waits for the launching process and finds the process of that name which it
// left behind. The daemon may not answer yet, or have ended already: its end can be taken with WaitForEnd.
// Another name when the command only leads to the program (a shell that executes it).
DetachedDaemon StartDetached(const Launch &launch, std::string_view programName = {});

// Starts servd and waits until it answers; automatic starts happen before it does. With arguments or an environment
// when a test needs them. Unless told otherwise it starts in a scratch folder, which its services inherit: csh takes
// whatever an image path names for a script, and may find redirections even in the bytes of a program.
pid_t StartServiceDaemon(Launch launch = {}, int timeoutMs = patienceMs);

// Sends a signal and waits for the end. Returns the status as of waitpid.
int StopDaemon(pid_t process, int signal = SIGTERM, int timeoutMs = patienceMs);

bool IsRegistered(std::uint32_t program, std::uint32_t version); // at this host's port mapper, over TCP

// Waits until the program answers its null procedure. Returns false after timeoutMs.
bool WaitForProgram(std::uint32_t program, std::uint32_t version, int timeoutMs = patienceMs);

std::string HostName();

// --- clients -------------------------------------------------------------------------------------------------------

RpcClient DialServiceDaemon();
RpcClient DialRegistryDaemon();

constexpr timeval answerTimeout = {60, 0};

[[noreturn]] void FailCall(std::uint32_t procedure, clnt_stat status);

// Calls a procedure that must answer: CallForAnswer(client, servd_SERV_OPEN_SERVICE{...}).
template <typename Argument>
Decoded<ResultOf<Argument>> CallForAnswer(CLIENT *client, const Argument &argument) {
    Decoded<ResultOf<Argument>> result;
    const clnt_stat status = CallProcedure(client, argument, &*result, answerTimeout);
    if (status != RPC_SUCCESS) FailCall(ProcedureOf<Argument>::number, status);
    return result;
}

// --- registry ------------------------------------------------------------------------------------------------------

struct RegistryValue {
    std::string name;
    std::uint32_t type;
    std::string data;

    bool operator==(const RegistryValue &) const = default;
};

// All of these speak to the registry daemon of this host directly, with records of the protocol, one connection a
// call. Keys are paths below HKEY_LOCAL_MACHINE.
void WriteKey(const std::string &key, const std::vector<RegistryValue> &values); // creates what is missing
std::optional<RegistryValue> ReadValue(const std::string &key, const std::string &name);
std::vector<RegistryValue> ReadValues(const std::string &key); // of an existing key, in the daemon's order
std::vector<std::string> ReadSubKeys(const std::string &key);
bool KeyExists(const std::string &key);
void DeleteKey(const std::string &key);
void DeleteValue(const std::string &key, const std::string &name);

extern const std::string servicesKey;   // SYSTEM\CurrentControlSet\Services
extern const std::string groupOrderKey; // ...\Control\ServiceGroupOrder
extern const std::string groupTagsKey;  // ...\Control\GroupOrderList

// A service as the daemon loads it: type 0x10, the given start type, error control 1, the image path, the name as
// display name; then further values, which may replace these.
void WriteService(const std::string &name, std::uint32_t startType, const std::string &imagePath,
                  const std::vector<RegistryValue> &further = {});

// --- files ---------------------------------------------------------------------------------------------------------

// A new folder of the test program's own, removed with all its content when the test program ends.
std::string MakeScratchFolder();
constexpr char scratchFolderPrefix[] = "servd-test."; // of their names
// A copy that any user may run, wherever the tree stands; in a scratch folder, with the libraries that are not the
// system's.
std::string CopyForAnyUser(const std::string &program);
void WriteFile(const std::string &path, std::string_view content, mode_t mode = 0644);
std::string ReadFile(const std::string &path);

// For files under /proc, whose process may go at any moment: what could be read, nothing when the file is gone.
std::string ReadWhatIsThere(const std::string &path);

// --- implementation ------------------------------------------------------------------------------------------------

template <typename Condition>
bool WaitUntil(Condition condition, int timeoutMs) {
    const std::int64_t end = MonotonicMs() + timeoutMs;
    for (int pause = 1; !condition(); pause = pause < 20 ? pause * 2 : pause) {
        if (MonotonicMs() > end) return false;
        SleepMs(pause);
    }
    return true;
}
