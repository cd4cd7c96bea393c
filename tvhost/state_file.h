// SPDX-License-Identifier: MIT
// state_file: what tvhost leaves for others to read about the service that it runs.
//
// The file is NAME.state (svcapi/runtime_file.h): lines "KEY VALUE" under the keys of VisitHostState, and "end" as the
// last one, without which the text is not whole. It is written anew at each change and stays when the service stops, so
// that the reason can be read; whether what it tells is still so is decided by the processes that it names.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

struct HostState {
    pid_t host = 0;              // tvhost
    std::uint64_t hostStart = 0; // the moments as in svcapi/process_stat.h
    pid_t program = 0;           // 0 when none runs
    std::uint64_t programStart = 0;
    std::string group;              // the tree's control group; empty without one
    std::uint64_t groupInode = 0;   // tells it from a later one of the same name
    std::int64_t startedAtMs = 0;   // of the program; here and below since the epoch
    std::uint64_t restarts = 0;     // since the service was started
    std::int64_t nextAttemptMs = 0; // 0 when none is waited for
    std::string phase;              // starting, running, paused, stopping, waiting, stopped
    std::string says;               // what the program has said of itself
    std::string reason;             // why it ended last, or was not started
    std::string log;                // "journal", the path of its log, or empty
};

// Calls visit(KEY, member pointer) for each member.
template <typename Visit>
void VisitHostState(Visit visit) {
    visit("host", &HostState::host);
    visit("host_start", &HostState::hostStart);
    visit("program", &HostState::program);
    visit("program_start", &HostState::programStart);
    visit("group", &HostState::group);
    visit("group_inode", &HostState::groupInode);
    visit("started_at_ms", &HostState::startedAtMs);
    visit("restarts", &HostState::restarts);
    visit("next_attempt_ms", &HostState::nextAttemptMs);
    visit("phase", &HostState::phase);
    visit("says", &HostState::says);
    visit("reason", &HostState::reason);
    visit("log", &HostState::log);
}

// Writes it; where it cannot be written less is known. Texts are made printable and cut.
void WriteHostState(const std::string &serviceName, const HostState &state);

// Reads it. Returns false when there is none, or none that is whole.
//   owner  whose file it is: it can speak of this user's processes only (IsBelieved)
[[nodiscard]] bool ReadHostState(const std::string &serviceName, HostState *state, uid_t *owner);

// Whether the processes that a state names are still there and may be believed to be the service's.
[[nodiscard]] bool IsHostAlive(const HostState &state, uid_t owner);
[[nodiscard]] bool IsProgramAlive(const HostState &state, uid_t owner);

// Milliseconds since the epoch.
[[nodiscard]] std::int64_t EpochMs();
