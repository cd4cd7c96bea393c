// SPDX-License-Identifier: MIT
// crowd: many connections in one thread, over epoll, so that the clients take little time from the server measured.
#include "bench/measure/crowd.h"

#include "bench/measure/servers.h"
#include "tests/support/xdr_bytes.h"

#include <sys/epoll.h>
#include <sys/socket.h>

std::string RpcCall(std::uint32_t program, std::uint32_t version, std::uint32_t procedure,
                    const std::string &argument) {
    const std::string call =
        Words({1, CALL, RPC_MSG_VERSION, program, version, procedure, AUTH_NONE, 0, AUTH_NONE, 0}) + argument;
    return Words({0x80000000 | static_cast<std::uint32_t>(call.size())}) + call;
}

Crowd MakeCrowd(std::uint16_t port, int clients, std::vector<std::string> requests, std::size_t replyBytes) {
    Crowd crowd;
    crowd.requests = std::move(requests);
    crowd.replyBytes = replyBytes;
    crowd.epoll = epoll_create1(EPOLL_CLOEXEC);
    for (int i = 0; i < clients; ++i) {
        crowd.connections.push_back(ConnectTo(port));
        epoll_event event = {};
        event.events = EPOLLIN;
        event.data.u64 = static_cast<std::uint64_t>(i);
        if (epoll_ctl(crowd.epoll, EPOLL_CTL_ADD, crowd.connections.back(), &event) != 0) {
            throw std::runtime_error("epoll");
        }
    }
    return crowd;
}

void ReleaseCrowd(Crowd &crowd) {
    for (const int connection : crowd.connections) {
        (void)close(connection);
    }
    (void)close(crowd.epoll);
}

void SendRequest(const Crowd &crowd, std::size_t client) {
    const std::string &request = crowd.requests[client % crowd.requests.size()];
    if (send(crowd.connections[client], request.data(), request.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(request.size())) {
        throw std::runtime_error("a server does not take a request");
    }
}

void TakeReply(const Crowd &crowd, std::size_t client) {
    char reply[256];
    if (recv(crowd.connections[client], reply, crowd.replyBytes, MSG_WAITALL) !=
        static_cast<ssize_t>(crowd.replyBytes)) {
        throw std::runtime_error("a server does not answer");
    }
}

Figures RunCrowd(const Crowd &crowd, pid_t server, int calls) {
    const double begin = NowUs();
    const double cpuBefore = CpuUs(server);
    for (std::size_t client = 0; client < crowd.connections.size(); ++client) {
        SendRequest(crowd, client);
    }
    int sent = static_cast<int>(crowd.connections.size());
    for (int taken = 0; taken < sent;) {
        epoll_event events[64];
        const int ready = epoll_wait(crowd.epoll, events, 64, 10000);
        if (ready <= 0) throw std::runtime_error("a server does not answer");
        for (int i = 0; i < ready; ++i, ++taken) {
            TakeReply(crowd, events[i].data.u64);
            if (sent >= calls) continue;
            SendRequest(crowd, events[i].data.u64);
            ++sent;
        }
    }
    const double each = (NowUs() - begin) / calls;
    return {each, each, (CpuUs(server) - cpuBefore) / calls};
}
