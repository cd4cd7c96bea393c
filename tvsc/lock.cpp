// SPDX-License-Identifier: MIT
// lock: who holds the database lock, freeing it, and running a command under it.
#include "tvsc/lock.h"

#include "svcapi/client.h"
#include "tvsc/json_output.h"
#include "tvsc/report.h"
#include "util/child_program.h"
#include "util/printable.h"

#include <fmt/format.h>
#include <unistd.h>

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

constexpr int notRunStatus = 127;

// Returns the exit status of the command, or what a shell returns for one that it cannot start.
static int RunHeld(const std::vector<std::string> &command) {
    int status = EXIT_FAILED;
    const int rc = RunProgram(command, &status);
    if (rc == 0) return status;
    fmt::print(stderr, "tvsc: {}: {}\n", Printable(command.front()), std::strerror(rc));
    return notRunStatus;
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
        const int status = RunHeld(command);
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
