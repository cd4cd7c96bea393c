// SPDX-License-Identifier: MIT
// lock: who holds the database lock, freeing it, and running a command under it.
#include "tvsc/lock.h"

#include "svcapi/client.h"
#include "tvsc/json_output.h"
#include "tvsc/report.h"
#include "util/printable.h"

#include <fmt/format.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

int RunLockStatus(Session &session) {
    LockStatus status;
    const DWORD rc = QueryLock(session.manager.get(), &status);
    if (rc != ERROR_SUCCESS) {
        Failed(session, session.options.host, "lock status", rc);
        return Finish(session);
    }
    if (session.options.json) {
        PrintLockJson(session, status);
    } else if (status.locked) {
        fmt::print("locked by {} for {} s\n", Printable(status.owner), status.durationSec);
    } else {
        fmt::print("not locked\n");
    }
    return EXIT_DONE;
}

int RunLockRelease(Session &session, std::optional<DWORD> id) {
    LockStatus status;
    DWORD rc = QueryLock(session.manager.get(), &status);
    if (rc == ERROR_SUCCESS && !id && status.locked) {
        // Our library writes the identifier into the owner's name.
        const std::size_t at = status.owner.rfind(" id=");
        if (at != std::string::npos) id = static_cast<DWORD>(std::strtoul(status.owner.c_str() + at + 4, nullptr, 10));
    }
    if (rc == ERROR_SUCCESS && !id) {
        if (!status.locked) {
            Done(session, session.options.host, "lock release", "not locked");
        } else {
            Failed(session, session.options.host, "lock release", ERROR_INVALID_SERVICE_LOCK,
                   fmt::format("\"{}\" does not tell the identifier of the lock; use --id", status.owner));
        }
        return Finish(session);
    }
    if (rc == ERROR_SUCCESS && session.options.dryRun) {
        Done(session, session.options.host, "lock release", fmt::format("would free the lock of {}", status.owner));
        return Finish(session);
    }
    if (rc == ERROR_SUCCESS) {
        rc = tvUnlockServiceDatabaseById(session.manager.get(), id.value_or(0)) ? ERROR_SUCCESS : GetLastError();
    }
    if (rc == ERROR_SUCCESS) {
        Done(session, session.options.host, "lock release", fmt::format("freed the lock of {}", status.owner));
    } else {
        Failed(session, session.options.host, "lock release", rc);
    }
    return Finish(session);
}

// Runs a command and waits for its end. Returns its exit status.
static int RunAndWait(const std::vector<std::string> &command) {
    std::vector<char *> argv;
    argv.reserve(command.size() + 1);
    for (const std::string &word : command) {
        argv.push_back(const_cast<char *>(word.c_str()));
    }
    argv.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        sigset_t none;
        sigemptyset(&none);
        (void)sigprocmask(SIG_SETMASK, &none, nullptr); // interrupts are blocked here, for a thread that waits for them
        (void)signal(SIGPIPE, SIG_DFL);                 // and this one is ignored
        execvp(argv[0], argv.data());
        fmt::print(stderr, "tvsc: {}: {}\n", Printable(command.front()), std::strerror(errno));
        _exit(127);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child) return EXIT_FAILED;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int RunLockTake(Session &session, const std::string &action, const std::vector<std::string> &command) {
    if (session.options.dryRun) {
        Done(session, session.options.host, action,
             command.empty() ? "would be locked" : fmt::format("would be locked while {} runs", command.front()));
        return Finish(session);
    }
    const SC_LOCK lock = LockServiceDatabase(session.manager.get());
    if (lock == nullptr) {
        Failed(session, session.options.host, action, GetLastError());
        return Finish(session);
    }
    if (!command.empty()) {
        const int status = RunAndWait(command);
        (void)UnlockServiceDatabase(lock); // somebody may have freed it by force
        return status;
    }
    Done(session, session.options.host, action, "locked, until this is interrupted");
    const int status = Finish(session);
    (void)std::fflush(stdout); // who reads it wants to know now
    while (status == EXIT_DONE) {
        pause(); // an interrupt ends the program, which gives the lock back
    }
    return status;
}
