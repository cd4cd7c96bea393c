// SPDX-License-Identifier: MIT
// servers: the programs that are measured and those that they are measured against, on this private host.
#pragma once

#include "tests/support/host.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

// The services that the daemon is measured with: key names of 12 characters, display names of 20, each with a program
// of its own, in 20 groups with tags, none depending on another, none started by itself.
std::string ServiceName(int number);
std::string DisplayName(int number);

// Writes a registry of so many such services to a new database file, past the daemon that is measured (and without
// waiting for the disk). MakeRegistry chooses the file and returns its path.
void WriteRegistry(const std::string &file, int services);
std::string MakeRegistry(int services);

struct Daemons {
    pid_t tvregd = 0;
    pid_t servd = 0;
};

// Starts tvregd over the database, then servd, and waits until it answers.
Daemons StartDaemons(const std::string &database);
void StopDaemons(const Daemons &daemons);

// floor_tcp, and a connection to it. Call sends one request and receives the whole reply.
struct TcpFloor {
    pid_t server = 0;
    int connection = -1;
    std::vector<char> request;
    std::vector<char> reply;
};
TcpFloor StartTcpFloor(std::size_t requestBytes, std::size_t replyBytes);
void CallTcpFloor(TcpFloor &floor);

pid_t StartRpcFloor(); // floor_rpc, waits until it answers
void StopProcess(pid_t process);

// A client handle of libtirpc's own.
RpcClient DialWithLibtirpc(std::uint32_t program, std::uint32_t version);

// A TCP connection to a port of this host, TCP_NODELAY.
int ConnectTo(std::uint16_t port);
std::uint16_t PortOf(std::uint32_t program, std::uint32_t version);

// One call to a floor, its result released. Throws when it fails.
template <typename Argument, typename Result>
void CallFloor(CLIENT *client, std::uint32_t procedure, bool_t (*encode)(XDR *, Argument *), Argument argument,
               bool_t (*decode)(XDR *, Result *)) {
    Result result = {};
    const clnt_stat status =
        clnt_call(client, procedure, Untyped(encode), &argument, Untyped(decode), &result, answerTimeout);
    if (status != RPC_SUCCESS) FailCall(procedure, status);
    xdr_free(Untyped(decode), &result);
}

// Resident memory of a process, bytes.
std::size_t ResidentBytes(pid_t process);

// Runs a function in a child process and hands its result over: the registry client and the service database live once
// in a process. Result is a plain record.
template <typename Result>
Result InChild(const std::function<Result()> &function) {
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("no pipe");
    const pid_t child = fork();
    if (child == 0) {
        try {
            const Result result = function();
            _exit(write(ends[1], &result, sizeof result) == static_cast<ssize_t>(sizeof result) ? 0 : 1);
        } catch (const std::exception &failure) {
            std::fprintf(stderr, "%s\n", failure.what());
            _exit(1);
        }
    }
    (void)close(ends[1]);
    Result result;
    const bool whole = read(ends[0], &result, sizeof result) == static_cast<ssize_t>(sizeof result);
    (void)close(ends[0]);
    (void)waitpid(child, nullptr, 0);
    if (!whole) throw std::runtime_error("a measuring child failed");
    return result;
}
