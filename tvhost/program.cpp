// SPDX-License-Identifier: MIT
// program: starting and ending the hosted program.
//
// tvhost has threads, so between fork and exec there are only system calls on what was prepared before.
#include "tvhost/program.h"

#include "tv/winerror.h"
#include "tvhost/limits.h"
#include "util/file_status.h"
#include "util/guard.h"
#include "util/launch.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

extern char **environ;

namespace {

constexpr mode_t outputMode = 0644;
constexpr int execLimitMs = 30'000; // the way to the program leads over files that may be far

// All that the child needs, in the form in which the system calls take it.
struct ChildPlan {
    const char *program;
    char **argv;
    char **envp;
    const char *directory; // the following are null where nothing is wanted
    const char *standardOutput;
    const char *standardError;
    const Limits *limits;
    const char *mounts;
    const Surroundings *surroundings;
    pid_t parent;
};

std::vector<char *> Pointers(std::vector<std::string> &strings) {
    std::vector<char *> pointers;
    pointers.reserve(strings.size() + 1);
    for (std::string &string : strings) {
        pointers.push_back(string.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

const char *OrNull(const std::string &text) { return text.empty() ? nullptr : text.c_str(); }

std::vector<std::string> OwnEnvironment() {
    std::vector<std::string> own;
    for (char **entry = environ; *entry != nullptr; ++entry) {
        own.emplace_back(*entry);
    }
    return own;
}

// The configured arguments; nothing when a quote is not closed.
std::optional<std::vector<std::string>> ArgumentsOf(const HostParameters &parameters,
                                                    const std::vector<std::string> &environment) {
    if (!parameters.arguments.empty()) return parameters.arguments;
    return SplitIntoWords(parameters.commandLine, VariablesOf(environment));
}

// --- in the child ---

// A FIFO that nobody reads or a line without a carrier would hold the opening for good; a disk is nobody's output.
bool Redirect(int descriptor, const char *path, int flags) {
    const int file = open(path, flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, outputMode);
    FileStatus found;
    if (file < 0 || !LookAtFile(file, &found)) return false;
    if (!S_ISREG(found.mode) && !S_ISCHR(found.mode) && !S_ISFIFO(found.mode)) {
        errno = EINVAL;
        return false;
    }
    const int state = fcntl(file, F_GETFL);
    return fcntl(file, F_SETFL, state & ~O_NONBLOCK) == 0 && dup2(file, descriptor) >= 0;
}

void RestoreSignals() {
    for (int signal = 1; signal < NSIG; ++signal) {
        (void)::signal(signal, SIG_DFL); // refused for a few, which have no other
    }
    sigset_t none;
    sigemptyset(&none);
    (void)sigprocmask(SIG_SETMASK, &none, nullptr);
}

// Returns only when it failed: what could not be used, with errno.
const char *BecomeProgram(const ChildPlan &plan) {
    const Surroundings &around = *plan.surroundings;
    if (prctl(PR_SET_PDEATHSIG, around.signalAtOurDeath) != 0) return "its process";
    if (getppid() != plan.parent) _exit(1); // tvhost has died already
    if (around.group >= 0 && write(around.group, "0", 1) != 1) return "its control group";
    if (const char *limit = SetLimits(*plan.limits, plan.mounts); limit != nullptr) return limit;
    if (plan.directory != nullptr && chdir(plan.directory) != 0) return plan.directory;
    if (!Redirect(STDIN_FILENO, "/dev/null", O_RDONLY)) return "/dev/null";
    const int append = O_WRONLY | O_CREAT | O_APPEND;
    const char *const output = plan.standardOutput, *const error = plan.standardError;
    if (around.output >= 0 && dup2(around.output, STDOUT_FILENO) < 0) return "its output";
    if (around.error >= 0 && dup2(around.error, STDERR_FILENO) < 0) return "its output";
    if (output != nullptr && !Redirect(STDOUT_FILENO, output, append)) return output;
    if (error != nullptr && !Redirect(STDERR_FILENO, error, append)) return error;
    (void)close_range(STDERR_FILENO + 1, ~0u, CLOSE_RANGE_CLOEXEC); // older kernels: ours are close-on-exec anyway
    RestoreSignals();
    if (const char *limit = BarProgram(*plan.limits); limit != nullptr) return limit;
    execve(plan.program, plan.argv, plan.envp);
    return plan.program;
}

// --- in the parent ---

StartFailure FailureOf(const char *what, int error, const char *program) {
    // A folder that is not there is told apart from a program that is not there.
    const bool isFolder = error == ENOENT && what != program;
    const char *const whose = error == E2BIG ? " (AppParameters, AppArguments, AppEnvironment)" : "";
    return {CodesOfErrno(isFolder ? ENOTDIR : error), std::string(what) + ": " + std::strerror(error) + whose};
}

// What is the same for the program and for the commands that go with it.
struct Preparation {
    std::vector<std::string> environment;
    Limits limits;
    std::string mounts; // a path; empty: not another's
};

bool Prepare(const HostParameters &parameters, const Surroundings &surroundings, Preparation *prepared,
             StartFailure *failure) {
    prepared->environment = MergedEnvironment(OwnEnvironment(), parameters.environment);
    prepared->environment = MergedEnvironment(prepared->environment, surroundings.environment);
    const std::string refused = PlanLimits(parameters, &prepared->limits);
    if (!refused.empty()) *failure = {{ERROR_INVALID_DATA, 0}, refused};
    const pid_t other = surroundings.sharesTmpWith;
    if (other != 0) prepared->mounts = "/proc/" + std::to_string(other) + "/ns/mnt";
    return refused.empty();
}

// Starts a child with these words.
//   toFiles  whether the files of the parameters take its output
pid_t StartWords(const HostParameters &parameters, std::vector<std::string> words, Preparation &prepared,
                 const Surroundings &surroundings, bool toFiles, StartFailure *failure, ChildOnItsWay *onItsWay) {
    std::vector<char *> argv = Pointers(words);
    std::vector<char *> envp = Pointers(prepared.environment);
    const ChildPlan plan = {words.front().c_str(),
                            argv.data(),
                            envp.data(),
                            OrNull(parameters.directory),
                            toFiles ? OrNull(parameters.standardOutput) : nullptr,
                            toFiles ? OrNull(parameters.standardError) : nullptr,
                            &prepared.limits,
                            OrNull(prepared.mounts),
                            &surroundings,
                            getpid()};
    int pipeEnds[2] = {-1, -1};
    const DescriptorGuard readEnd(&pipeEnds[0]); // open where no child could be forked
    const DescriptorGuard writeEnd(&pipeEnds[1]);
    const Launched launched = Launch<BecomeProgram>(plan, pipeEnds, execLimitMs, onItsWay);
    if (launched.step == nullptr) return launched.child;
    if (launched.child > 0) (void)waitpid(launched.child, nullptr, 0); // it has said all that it could
    *failure = FailureOf(launched.step, launched.error, plan.program);
    return 0;
}

} // namespace

pid_t StartProgram(const HostParameters &parameters, const std::vector<std::string> &startArguments,
                   const Surroundings &surroundings, StartFailure *failure, ChildOnItsWay *onItsWay) {
    Preparation prepared;
    if (!Prepare(parameters, surroundings, &prepared, failure)) return 0;
    auto words = ArgumentsOf(parameters, prepared.environment);
    if (!words) {
        *failure = {{ERROR_INVALID_DATA, 0}, "AppParameters: a quote is not closed"};
        return 0;
    }
    words->insert(words->begin(), parameters.application);
    words->insert(words->end(), startArguments.begin(), startArguments.end());
    return StartWords(parameters, *words, prepared, surroundings, true, failure, onItsWay);
}

pid_t StartCommand(const HostParameters &parameters, const std::string &commandLine, const Surroundings &surroundings,
                   StartFailure *failure) {
    Preparation prepared;
    if (!Prepare(parameters, surroundings, &prepared, failure)) return 0;
    const auto words = SplitIntoWords(commandLine, VariablesOf(prepared.environment));
    if (!words || words->empty()) {
        *failure = {{ERROR_INVALID_DATA, 0}, commandLine + ": a quote is not closed"};
        return 0;
    }
    return StartWords(parameters, *words, prepared, surroundings, false, failure, nullptr);
}

ExitCodes CodesOfErrno(int error) {
    switch (error) {
    case ENOENT: return {ERROR_FILE_NOT_FOUND, 0};
    case ENOTDIR: return {ERROR_PATH_NOT_FOUND, 0};
    case EACCES:
    case EPERM: return {ERROR_ACCESS_DENIED, 0};
    case ENOMEM:
    case EAGAIN: return {ERROR_NOT_ENOUGH_MEMORY, 0};
    case ENOEXEC: return {ERROR_BAD_EXE_FORMAT, 0};
    default: return {ERROR_SERVICE_SPECIFIC_ERROR, static_cast<DWORD>(error)};
    }
}

ExitCodes CodesOfEnd(int waitStatus, bool stopAsked, int stopSignal) {
    if (WIFSIGNALED(waitStatus)) {
        const int signal = WTERMSIG(waitStatus);
        if (stopAsked && (signal == stopSignal || signal == SIGKILL)) return {};
        return {ERROR_SERVICE_SPECIFIC_ERROR, 128u + static_cast<DWORD>(signal)};
    }
    const auto status = static_cast<DWORD>(WEXITSTATUS(waitStatus));
    return status == 0 ? ExitCodes{} : ExitCodes{ERROR_SERVICE_SPECIFIC_ERROR, status};
}

std::string TextOfEnd(int waitStatus) {
    if (!WIFSIGNALED(waitStatus)) return "ended with status " + std::to_string(WEXITSTATUS(waitStatus));
    const int signal = WTERMSIG(waitStatus);
    const char *name = sigdescr_np(signal);
    return "ended by signal " + std::to_string(signal) + " (" + (name != nullptr ? name : "unknown") + ")";
}

int SignalOf(const std::string &text) {
    const std::string name = text.starts_with("SIG") ? text.substr(3) : text;
    for (int signal = 1; signal < NSIG; ++signal) {
        const char *known = sigabbrev_np(signal);
        if ((known != nullptr && name == known) || text == std::to_string(signal)) return signal;
    }
    return 0;
}

std::vector<std::string> MergedEnvironment(const std::vector<std::string> &own,
                                           const std::vector<std::string> &changes) {
    std::vector<std::string> merged = own;
    for (const std::string &change : changes) {
        const std::size_t equals = change.find('=');
        if (equals == std::string::npos || equals == 0) continue; // names nothing
        const std::string prefix = change.substr(0, equals + 1);
        merged.erase(std::remove_if(merged.begin(), merged.end(),
                                    [&](const std::string &entry) { return entry.rfind(prefix, 0) == 0; }),
                     merged.end());
        if (change.size() > prefix.size()) merged.push_back(change);
    }
    return merged;
}
