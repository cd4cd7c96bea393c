// SPDX-License-Identifier: MIT
// port_mapper: what is registered at a host's port mapper, and taking entries away at that of this machine. Every wait
// is bounded (rpc/dial.h).
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// One program, version and transport.
struct Registration {
    std::uint32_t program = 0;
    std::uint32_t version = 0;
    std::string transport; // as /etc/netconfig calls it: "tcp", "udp6", "local", ...
    std::string address;   // "127.0.0.1:700"; of a transport without ports as it is
    std::string owner;     // who has registered it, as the port mapper tells: a user id, "superuser", ...
};

// Everything that is registered; nothing where the port mapper does not answer.
[[nodiscard]] std::optional<std::vector<Registration>> ReadRegistrations(in_addr address);

// Takes a program and version away, on all transports, at this machine's port mapper, which lets root do so, and
// others with what is their own. It says yes to everybody: what has come of it is told by reading anew.
void RemoveRegistration(std::uint32_t program, std::uint32_t version);
