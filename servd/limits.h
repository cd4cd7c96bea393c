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

// --- enumerations ---

// A service counts as many bytes in the answer to a Win32 caller as its two names with their terminators take, and
// these: the fixed part of an ENUM_SERVICE_STATUS, two pointers and seven words of 4 bytes each.
inline constexpr std::int32_t fixedRecordBytes = 36;

// --- starting a service process ---

// From the fork to the program. A child that takes longer has been halted, and is killed.
inline constexpr int execLimitMs = 3000;
// Attempts to reach a process: one, and these repetitions, each after a second's sleep. To a new process that makes
// fifteen seconds from the fork to the last, thirty while the daemon starts itself.
inline constexpr int sharedProcessRetries = 5;
inline constexpr int newProcessRetries = 15;
inline constexpr int newProcessRetriesAtStartUp = 30; // while the daemon starts itself
inline constexpr int retryPauseMs = 1000;
// Of one attempt, port mapper and process together, whatever they do: a healthy one takes a thousandth of it. It is
// what leaves the sixteen attempts at a new process, pauses included, within the half minute for which a user looks
// at a start, and the thirty-one of the start-up within a minute.
inline constexpr int attemptLimitMs = 850;
// Before the first attempt to reach a new process, for its program to appear in the port mapper. The first of the
// pauses between the attempts is shorter by what this took, so that it makes no start longer.
inline constexpr int registrationWaitMs = 500;
static_assert(registrationWaitMs <= retryPauseMs);
// Of one call to a service process: the start request and each control.
inline constexpr int serviceCallTimeoutSec = 25;
// The wait hint that a service has from the answer to its start request until its own first report.
inline constexpr std::int32_t startWaitHintMs = 2000;

// How long a process is tried to be reached, at the most.
inline constexpr int LongestDialMs(int retries) { return (retries + 1) * attemptLimitMs + retries * retryPauseMs; }
static_assert(LongestDialMs(newProcessRetries) <= 30'000);
static_assert(LongestDialMs(newProcessRetriesAtStartUp) <= 60'000);

// How long one start may hold the daemon, and everybody who asks it something: a shared process that cannot be reached,
// then a new one that is long in coming and can be reached at the last attempt only, and an answer that lets itself be
// waited for.
inline constexpr int longestStartSec =
    (LongestDialMs(sharedProcessRetries) + execLimitMs + LongestDialMs(newProcessRetries) + 999) / 1000 +
    serviceCallTimeoutSec;
// What a client should wait for an answer.
inline constexpr int longestCallSec = longestStartSec + 30;

// --- the stop command ---

// Attempts to reach the daemon, the pause between them, and what the call itself may take.
inline constexpr int stopAttempts = 6;
inline constexpr int stopPauseMs = 1000;
inline constexpr int stopCallTimeoutSec = 25;
