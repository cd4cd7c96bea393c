// SPDX-License-Identifier: MIT
// floor_tcp: the least that a request and its reply cost: bytes over TCP, no protocol.
//
// usage: floor_tcp REQUEST-BYTES REPLY-BYTES
// Writes its port to standard output, then answers every REQUEST-BYTES received with REPLY-BYTES, one connection after
// the other, until it is killed.
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

int Listen() {
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (listener < 0 || bind(listener, reinterpret_cast<sockaddr *>(&address), length) != 0 ||
        listen(listener, 16) != 0 || getsockname(listener, reinterpret_cast<sockaddr *>(&address), &length) != 0) {
        std::perror("floor_tcp");
        std::exit(1);
    }
    std::printf("%u\n", static_cast<unsigned>(ntohs(address.sin_port)));
    (void)std::fflush(stdout);
    return listener;
}

bool SendAll(int peer, const std::vector<char> &bytes) {
    for (std::size_t sent = 0; sent < bytes.size();) {
        const ssize_t now = send(peer, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (now <= 0) return false;
        sent += static_cast<std::size_t>(now);
    }
    return true;
}

void Serve(int peer, std::vector<char> &request, const std::vector<char> &reply) {
    const int on = 1;
    (void)setsockopt(peer, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    while (recv(peer, request.data(), request.size(), MSG_WAITALL) == static_cast<ssize_t>(request.size()) &&
           SendAll(peer, reply)) {
    }
    (void)close(peer);
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 3) return 2;
    std::vector<char> request(std::strtoul(argv[1], nullptr, 10));
    const std::vector<char> reply(std::strtoul(argv[2], nullptr, 10));
    for (const int listener = Listen();;) {
        const int peer = accept(listener, nullptr, nullptr);
        if (peer >= 0) Serve(peer, request, reply);
    }
}
