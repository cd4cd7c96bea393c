// SPDX-License-Identifier: MIT
// raw_rpc: RPC messages made and read by hand, on plain sockets.
#include "tests/support/raw_rpc.h"

#include "rpc/dial.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <rpc/rpc.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

namespace raw {

namespace {

constexpr std::uint32_t lastFragmentBit = 0x80000000;

std::string ProcPath(pid_t process, const char *file) { return "/proc/" + std::to_string(process) + "/" + file; }

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr bool isSanitized = true;
#else
constexpr bool isSanitized = false;
#endif

// A field of /proc/PID/status in KiB.
std::size_t StatusKiB(pid_t process, const std::string &field) {
    if (isSanitized) return 0;
    std::ifstream status(ProcPath(process, "status"));
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(field + ":")) return std::stoul(line.substr(field.size() + 1));
    }
    return 0;
}

} // namespace

Socket &Socket::operator=(Socket &&other) noexcept {
    std::swap(descriptor, other.descriptor);
    return *this;
}

Socket::~Socket() {
    if (descriptor >= 0) (void)close(descriptor);
}

std::uint32_t WordOf(const std::string &bytes, std::size_t index) {
    std::uint32_t word = 0;
    if (bytes.size() >= sizeof word * (index + 1)) std::memcpy(&word, bytes.data() + sizeof word * index, sizeof word);
    return ntohl(word);
}

std::string Fragment(const std::string &payload, bool last) {
    return Words({static_cast<std::uint32_t>(payload.size()) | (last ? lastFragmentBit : 0)}) + payload;
}

std::string AsMessage(const std::string &payload) { return Fragment(payload, true); }

std::string InFragments(const std::string &payload, std::size_t fragmentBytes) {
    std::string stream;
    for (std::size_t at = 0; at < payload.size(); at += fragmentBytes) {
        stream += Fragment(payload.substr(at, fragmentBytes), at + fragmentBytes >= payload.size());
    }
    return stream;
}

std::string Call(std::uint32_t xid, std::uint32_t program, std::uint32_t version, std::uint32_t procedure,
                 const std::string &argument) {
    return Words({xid, CALL, RPC_MSG_VERSION, program, version, procedure, AUTH_NONE, 0, AUTH_NONE, 0}) + argument;
}

Socket ConnectTo(std::uint16_t port, int receiveBytes) {
    Socket connection(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const timeval patience = {30, 0};
    const int on = 1;
    (void)setsockopt(connection.descriptor, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    (void)setsockopt(connection.descriptor, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    (void)setsockopt(connection.descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (receiveBytes != 0) {
        (void)setsockopt(connection.descriptor, SOL_SOCKET, SO_RCVBUF, &receiveBytes, sizeof receiveBytes);
    }
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(connection.descriptor, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) return Socket();
    return connection;
}

Socket Listen(std::uint16_t *port, int backlog) {
    Socket listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto *where = reinterpret_cast<sockaddr *>(&address);
    if (bind(listener.descriptor, where, length) != 0 || listen(listener.descriptor, backlog) != 0 ||
        getsockname(listener.descriptor, where, &length) != 0) {
        return Socket();
    }
    *port = ntohs(address.sin_port);
    return listener;
}

Socket ListenAs(std::uint32_t program, std::uint32_t version) {
    std::uint16_t port = 0;
    Socket listener = Listen(&port);
    (void)pmap_unset(program, version);
    return listener.descriptor >= 0 && pmap_set(program, version, IPPROTO_TCP, port) ? std::move(listener) : Socket();
}

bool Send(const Socket &socket, const std::string &bytes) {
    for (std::size_t sent = 0; sent < bytes.size();) {
        const ssize_t now = send(socket.descriptor, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (now <= 0) return false;
        sent += static_cast<std::size_t>(now);
    }
    return true;
}

std::string ReadBytes(const Socket &socket, std::size_t bytes) {
    std::string text(bytes, '\0');
    std::size_t have = 0;
    while (have < bytes) {
        const ssize_t now = recv(socket.descriptor, text.data() + have, bytes - have, 0);
        if (now <= 0) break;
        have += static_cast<std::size_t>(now);
    }
    text.resize(have);
    return text;
}

std::string ReadMessage(const Socket &socket) {
    std::string message;
    for (;;) {
        const std::string header = ReadBytes(socket, 4);
        if (header.size() < 4) return {};
        const std::uint32_t word = WordOf(header, 0);
        const std::string payload = ReadBytes(socket, word & ~lastFragmentBit);
        if (payload.size() < (word & ~lastFragmentBit)) return {};
        message += payload;
        if ((word & lastFragmentBit) != 0) return message;
    }
}

bool IsAtEnd(const Socket &socket, int timeoutMs) {
    pollfd waiting = {socket.descriptor, POLLIN, 0};
    char byte;
    return poll(&waiting, 1, timeoutMs) > 0 && recv(socket.descriptor, &byte, 1, MSG_PEEK) <= 0;
}

void Reset(Socket socket) {
    const linger atOnce = {1, 0};
    (void)setsockopt(socket.descriptor, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
}

std::uint16_t PortOf(std::uint32_t program, std::uint32_t version) {
    const in_addr loopback = {htonl(INADDR_LOOPBACK)};
    const RpcClient portMapper(DialPortMapper(loopback));
    return portMapper != nullptr ? PortOfProgram(portMapper.get(), program, version) : std::uint16_t{0};
}

pid_t ProcessNamed(const std::string &name) {
    DIR *folder = opendir("/proc");
    pid_t found = 0;
    while (const dirent *entry = readdir(folder)) {
        const pid_t process = std::atoi(entry->d_name);
        std::string running;
        if (process > 0) std::ifstream(ProcPath(process, "comm")) >> running;
        if (running == name) found = process;
    }
    (void)closedir(folder);
    return found;
}

std::size_t DescriptorsOf(pid_t process) {
    DIR *folder = opendir(ProcPath(process, "fd").c_str());
    if (folder == nullptr) return 0;
    std::size_t count = 0;
    while (const dirent *entry = readdir(folder)) {
        count += entry->d_name[0] != '.' ? 1 : 0;
    }
    (void)closedir(folder);
    return count;
}

bool IsSanitized() { return isSanitized; }

std::size_t ResidentBytesOf(pid_t process) { return StatusKiB(process, "VmRSS") * 1024; }

std::size_t VirtualBytesOf(pid_t process) { return StatusKiB(process, "VmSize") * 1024; }

std::size_t PeakVirtualBytesOf(pid_t process) { return StatusKiB(process, "VmPeak") * 1024; }

std::size_t MappingsOf(pid_t process) {
    if (isSanitized) return 0;
    std::ifstream maps(ProcPath(process, "maps"));
    return static_cast<std::size_t>(
        std::count(std::istreambuf_iterator<char>(maps), std::istreambuf_iterator<char>(), '\n'));
}

double CpuSecondsOf(pid_t process) {
    std::ifstream stat(ProcPath(process, "stat"));
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    std::istringstream fields(text.substr(text.rfind(')') + 1));
    std::string skipped;
    for (int i = 0; i < 11; ++i) {
        fields >> skipped;
    }
    double user = 0;
    double system = 0;
    fields >> user >> system;
    return (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

double ReadyMsOf(pid_t process) {
    double running = 0;
    double readyNs = 0;
    std::ifstream(ProcPath(process, "schedstat")) >> running >> readyNs;
    return readyNs / 1e6;
}

double MsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

void PauseMs(int milliseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds)); }

} // namespace raw
