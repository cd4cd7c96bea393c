// SPDX-License-Identifier: MIT
// odd_service: a service process that answers the daemon in one of several ways, without the service API.
//
//   plain         accepts starts and controls
//   silent        registers its program and never answers
//   drip          answers one byte a second
//   wrong         answers, but never with the awaited transaction id
//   long          answers what it should, and a megabyte more
//   brief         accepts its start and ends at once
//   first FILE    plain where there is no such file yet, which is made then; else brief
//   state FILE    writes its signal state and its descriptors to FILE first, then as plain
//   never         registers nothing
//   full          registers a port at which nobody is accepted any more: its queue is full
#include "servd/programs.h"
#include "tests/support/raw_rpc.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <rpc/pmap_clnt.h>
#include <rpc/rpc.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <thread>

using namespace raw;

namespace {

std::uint32_t Program() { return SERVDAEMONPROG + static_cast<std::uint32_t>(getpid()); }

void WriteState(const char *file) {
    const std::string unfinished = std::string(file) + ".new";
    {
        std::ofstream state(unfinished);
        std::ifstream status("/proc/self/status");
        for (std::string line; std::getline(status, line);) {
            if (line.starts_with("Sig")) state << line << '\n';
        }
        for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code failed;
            state << "fd " << std::filesystem::read_symlink(entry.path(), failed).string() << '\n';
        }
    }
    std::filesystem::rename(unfinished, file);
}

// Listens, and lets nobody in: the queue of a listener with this backlog holds one connection, and it is full before
// anybody can know the port.
[[noreturn]] void ServeNobody() {
    constexpr int shortestBacklog = 0;
    std::uint16_t port = 0;
    const Socket listener = Listen(&port, shortestBacklog);
    const sockaddr_in address = {AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
    for (int i = 0; i < 2; ++i) {
        const int queued = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        (void)connect(queued, reinterpret_cast<const sockaddr *>(&address), sizeof address);
    }
    if (listener.descriptor < 0 || !pmap_set(Program(), 1, IPPROTO_TCP, port)) {
        std::perror("odd_service");
        std::exit(1);
    }
    for (;;) {
        (void)pause();
    }
}

void Answer(const Socket &connection, const std::string &mode, const std::string &call) {
    const std::uint32_t xid = WordOf(call, 0);
    const std::string start = Words({0, 7});
    const std::string control = Words({0, 0x10, 1, 0, 0, 0, 0, 0});
    const std::string rest(mode == "long" ? 1 << 20 : 0, '\0'); // libraries pass over what follows a result
    const std::string result = (WordOf(call, 5) == 1 ? start : control) + rest;
    const std::string header = Words({REPLY, MSG_ACCEPTED, AUTH_NONE, 0, SUCCESS});
    if (mode == "silent") return;
    if (mode == "wrong") {
        while (Send(connection, AsMessage(Words({xid + 1000}) + header + result))) {
            PauseMs(50);
        }
        return;
    }
    for (const char byte : mode == "drip" ? AsMessage(Words({xid}) + header + result) : std::string()) {
        if (!Send(connection, std::string(1, byte))) return;
        PauseMs(1000);
    }
    if (mode != "drip") (void)Send(connection, AsMessage(Words({xid}) + header + result));
    if (mode != "brief") return;
    (void)pmap_unset(Program(), 1);
    std::exit(0);
}

void Serve(int descriptor, const std::string &mode) {
    const Socket connection(descriptor);
    for (std::string call; !(call = ReadMessage(connection)).empty();) {
        Answer(connection, mode, call);
    }
}

// The mode that "first" stands for.
std::string ModeByFile(const char *file) {
    const int made = open(file, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    return made >= 0 ? "plain" : "brief";
}

} // namespace

int main(int argc, char **argv) {
    std::string mode = argc > 1 ? argv[1] : "plain";
    if (mode == "first" && argc > 2) mode = ModeByFile(argv[2]);
    if (mode == "never") (void)pause();
    if (mode == "state" && argc > 2) WriteState(argv[2]);
    if (mode == "full") ServeNobody();
    const Socket listener = ListenAs(Program(), 1);
    if (listener.descriptor < 0) {
        std::perror("odd_service");
        return 1;
    }
    for (;;) {
        const int connection = accept4(listener.descriptor, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection >= 0) std::thread(Serve, connection, mode).detach();
    }
}
