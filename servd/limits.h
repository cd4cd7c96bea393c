// SPDX-License-Identifier: MIT
// limits: the daemon's times and sizes, for itself and for everybody who has to reckon with them.
#pragma once

#include <cstddef>
#include <cstdint>

// --- names and values in the registry ---

// The daemon reads a name or a text into a buffer of this many bytes. One that does not fit ends its load.
inline constexpr std::uint32_t textBytes = 1024;
// The longest text that it can load, without its terminator.
inline constexpr std::uint32_t longestTextBytes = textBytes - 1;
// No value of a service configuration comes near it; a larger size is a broken registry's word.
inline constexpr std::uint32_t longestValueBytes = 16 * 1024 * 1024;
// Of a tag in the order of a group's tags, and of the count before the first.
inline constexpr std::uint32_t tagBytes = 4;

// --- starting a service process ---

// From the fork to the program. A child that takes longer has been halted, and is killed.
inline constexpr int execLimitMs = 3000;
// Attempts to reach a process: one, and these repetitions, each after a second's sleep.
inline constexpr int sharedProcessRetries = 5;
inline constexpr int newProcessRetries = 15;
inline constexpr int newProcessRetriesAtStartUp = 30; // while the daemon starts itself
inline constexpr int retryPauseSec = 1;
// Of one attempt, port mapper and process together, whatever they do: a healthy one takes a thousandth of it. It is
// what leaves the sixteen attempts at a new process, pauses and wait for its registration included, within the half
// minute for which a user looks at a start, and the thirty-one of the start-up within a minute.
inline constexpr int attemptLimitMs = 850;
// Before the first attempt to reach a new process, for its program to appear in the port mapper.
inline constexpr int registrationWaitMs = 500;
// Of one call to a service process: the start request and each control.
inline constexpr int serviceCallTimeoutSec = 25;
// The wait hint that a service has from the answer to its start request until its own first report.
inline constexpr std::int32_t startWaitHintMs = 2000;

// How long a process is tried to be reached, at the most.
inline constexpr int LongestDialMs(int retries) {
    return (retries + 1) * attemptLimitMs + retries * retryPauseSec * 1000;
}
static_assert(registrationWaitMs + LongestDialMs(newProcessRetries) <= 30'000);
static_assert(registrationWaitMs + LongestDialMs(newProcessRetriesAtStartUp) <= 60'000);

// How long one start may hold the daemon, and everybody who asks it something: a shared process that cannot be reached,
// then a new one that is long in coming and can be reached at the last attempt only, and an answer that lets itself be
// waited for.
inline constexpr int longestStartSec =
    (LongestDialMs(sharedProcessRetries) + execLimitMs + registrationWaitMs + LongestDialMs(newProcessRetries) + 999) /
        1000 +
    serviceCallTimeoutSec;
// What a client should wait for an answer.
inline constexpr int longestCallSec = longestStartSec + 30;

// --- the stop command ---

// Attempts to reach the daemon, with a second between them, and what the call itself may take.
inline constexpr int stopAttempts = 6;
inline constexpr int stopCallTimeoutSec = 25;
