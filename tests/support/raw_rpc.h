// SPDX-License-Identifier: MIT
// raw_rpc: RPC messages made and read by hand, on plain sockets, for tests that misbehave.
//
// Words are 32-bit and travel in network order. A text of type std::string holds bytes.
#pragma once

#include "tests/support/xdr_bytes.h"

#include "util/guard.h"

#include <sys/types.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <string>

namespace raw {

// A descriptor that is closed with its owner; -1: none.
struct Socket {
    int descriptor = -1;

    Socket() = default;
    explicit Socket(int number) : descriptor(number) {}
    Socket(Socket &&other) noexcept : descriptor(other.descriptor) { other.descriptor = -1; }
    Socket &operator=(Socket &&other) noexcept;
    ~Socket();
};

// --- messages ---

std::uint32_t WordOf(const std::string &bytes, std::size_t index); // 0 beyond the end

std::string Fragment(const std::string &payload, bool last);
std::string AsMessage(const std::string &payload);                              // one fragment
std::string InFragments(const std::string &payload, std::size_t fragmentBytes); // of so many bytes each

// A call with null credentials, without its fragment header.
std::string Call(std::uint32_t xid, std::uint32_t program, std::uint32_t version, std::uint32_t procedure,
                 const std::string &argument = {});

// --- sockets ---

// Connects to a port of the loopback interface; reads and writes time out after 30 seconds. receiveBytes: size of the
// receive buffer, 0 the system's own.
Socket ConnectTo(std::uint16_t port, int receiveBytes = 0);
bool Send(const Socket &socket, const std::string &bytes);      // all of them; raises no signal
std::string ReadBytes(const Socket &socket, std::size_t bytes); // fewer at the end of the stream or after a time-out
std::string ReadMessage(const Socket &socket);                  // whole, without its fragment headers; empty at the end
bool IsAtEnd(const Socket &socket, int timeoutMs);              // whether the peer has closed, within the time
void Reset(Socket socket);                                      // closes with a reset

// Listens on a free port of the loopback interface. The descriptor is -1 when that fails.
Socket Listen(std::uint16_t *port, int backlog = 20);
// The same, with the port entered into the port mapper in the place of what stood there.
Socket ListenAs(std::uint32_t program, std::uint32_t version);

// The port of a program over TCP as the port mapper of this host tells it, 0 for none.
std::uint16_t PortOf(std::uint32_t program, std::uint32_t version);

// --- what a process uses ---

pid_t ProcessNamed(const std::string &name); // one of this host, 0 for none

std::size_t DescriptorsOf(pid_t process);
bool IsSanitized(); // whether this is a sanitizer build
// Memory: 0 in a sanitizer build, which keeps what has been freed, so that there every size equals every other.
std::size_t ResidentBytesOf(pid_t process);
std::size_t VirtualBytesOf(pid_t process);
std::size_t PeakVirtualBytesOf(pid_t process); // the most that it has ever been
std::size_t MappingsOf(pid_t process); // 0, too, under the thread sanitizer, which keeps those of threads that ended
double CpuSecondsOf(pid_t process);
// How long its first thread has waited for a processor, ready to run; 0 where the kernel does not count it.
double ReadyMsOf(pid_t process);

// --- time ---

using Clock = std::chrono::steady_clock;
double MsSince(Clock::time_point start);
void PauseMs(int milliseconds);

constexpr double promptMs = 50; // what a client may wait while others attack

// The best of up to five measurements in milliseconds, no more of them once one is below the limit: on a busy machine
// any call may wait for a processor.
template <typename Measure>
double BestMs(Measure measure, double limitMs = promptMs) {
    double best = measure();
    for (int round = 1; round < 5 && best >= limitMs; ++round) {
        best = std::min(best, measure());
    }
    return best;
}

} // namespace raw
