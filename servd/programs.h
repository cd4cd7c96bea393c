// SPDX-License-Identifier: MIT
// programs: the ONC RPC programs of the service daemon and of the processes that it starts, all over TCP.
#pragma once

#include <cstdint>

constexpr std::uint32_t SERVDAEMONPROG = 0x40000000;
constexpr std::uint32_t SERVDAEMONVERS = 1;

// The program that a service process serves, and under which the daemon finds it.
constexpr std::uint32_t ServiceProgram(std::int32_t processId) {
    return SERVDAEMONPROG + static_cast<std::uint32_t>(processId);
}
constexpr std::uint32_t serviceProgramVersion = 1;
