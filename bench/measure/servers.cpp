// SPDX-License-Identifier: MIT
// servers: starting what is measured, and reaching it.
#include "bench/measure/servers.h"

#include "bench/floor/floor_rpc.h"
#include "tv/winreg.h"
#include "tvregd/loading.h"
#include "tvregd/operations.h"

#include <fmt/core.h>

#include <netinet/tcp.h>
#include <sys/socket.h>

#include <csignal>
#include <fstream>

namespace {

constexpr int groupCount = 20;

std::string GroupName(int number) { return fmt::format("group{:02}", number % groupCount); }

void Require(std::uint32_t rc) {
    if (rc != 0) throw std::runtime_error(fmt::format("the registry answers {}", rc));
}

// Writes through the daemon's own code.
void Write(Registry &registry, const std::string &path, const std::vector<RegistryValue> &values) {
    Key *key = nullptr;
    std::uint32_t disposition = 0;
    Require(CreateKey(registry, HKEY_LOCAL_MACHINE, path, std::nullopt, 0, &key, &disposition));
    for (const RegistryValue &value : values) {
        Require(SetValue(registry, HandleOf(*key), value.name, value.type, value.data));
    }
}

void WriteGroups(Registry &registry, int services) {
    std::vector<std::string> names;
    std::vector<RegistryValue> tags;
    for (int group = 0; group < groupCount; ++group) {
        names.push_back(GroupName(group));
        std::string vector = Dword(3);
        for (std::uint32_t tag = 3; tag > 0; --tag) {
            vector += Dword(tag);
        }
        tags.push_back({GroupName(group), REG_BINARY, vector});
    }
    Write(registry, groupOrderKey, {{"List", REG_MULTI_SZ, MultiSz(names)}});
    Write(registry, groupTagsKey, tags);
    for (int i = 1; i <= services; ++i) {
        Write(registry, servicesKey + "\\" + ServiceName(i),
              {{"Type", REG_DWORD, Dword(0x10)},
               {"Start", REG_DWORD, Dword(3)},
               {"ErrorControl", REG_DWORD, Dword(1)},
               {"ImagePath", REG_SZ, Sz(fmt::format("/usr/lib/services/program{:05}", i))},
               {"DisplayName", REG_SZ, Sz(DisplayName(i))},
               {"Group", REG_SZ, Sz(GroupName(i))},
               {"Tag", REG_DWORD, Dword(static_cast<std::uint32_t>(i / groupCount + 1))}});
    }
}

std::uint16_t ReadPort(int descriptor) {
    char text[16] = {};
    if (read(descriptor, text, sizeof text - 1) <= 0) throw std::runtime_error("floor_tcp does not start");
    return static_cast<std::uint16_t>(std::stoi(text));
}

} // namespace

std::string ServiceName(int number) { return fmt::format("service{:05}", number); }
std::string DisplayName(int number) { return fmt::format("Service number {:05}", number); }

void WriteRegistry(const std::string &file, int services) {
    Registry registry{MakeTree(), nullptr};
    const StoreGuard store = OpenStore(file);
    store->database.exec("PRAGMA synchronous = OFF");
    LoadTree(*store, registry.tree);
    registry.store = store.get();
    WriteGroups(registry, services);
    Require(CommitGroup(registry));
}

std::string MakeRegistry(int services) {
    const std::string file = MakeScratchFolder() + "/registry.db";
    WriteRegistry(file, services);
    return file;
}

Daemons StartDaemons(const std::string &database) {
    Daemons daemons;
    daemons.tvregd = StartRegistryDaemon(database);
    daemons.servd = StartServiceDaemon();
    return daemons;
}

void StopDaemons(const Daemons &daemons) {
    (void)StopDaemon(daemons.servd);
    (void)StopDaemon(daemons.tvregd);
}

int ConnectTo(std::uint16_t port) {
    const int connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connection < 0 || connect(connection, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
        throw std::runtime_error("cannot connect");
    }
    const int on = 1;
    (void)setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return connection;
}

std::uint16_t PortOf(std::uint32_t program, std::uint32_t version) {
    const RpcClient portMapper(DialPortMapper({htonl(INADDR_LOOPBACK)}));
    const std::uint16_t port = portMapper ? PortOfProgram(portMapper.get(), program, version) : std::uint16_t{0};
    if (port == 0) throw std::runtime_error(fmt::format("program {:#x} is not registered", program));
    return port;
}

TcpFloor StartTcpFloor(std::size_t requestBytes, std::size_t replyBytes) {
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("no pipe");
    TcpFloor floor;
    floor.server = fork();
    if (floor.server == 0) {
        (void)dup2(ends[1], STDOUT_FILENO);
        (void)close(ends[0]);
        (void)close(ends[1]);
        const std::string program = ProgramPath("floor_tcp");
        (void)execl(program.c_str(), "floor_tcp", std::to_string(requestBytes).c_str(),
                    std::to_string(replyBytes).c_str(), nullptr);
        _exit(127);
    }
    (void)close(ends[1]);
    floor.connection = ConnectTo(ReadPort(ends[0]));
    (void)close(ends[0]);
    floor.request.resize(requestBytes);
    floor.reply.resize(replyBytes);
    return floor;
}

void CallTcpFloor(TcpFloor &floor) {
    const auto whole = [](ssize_t done, const std::vector<char> &bytes) {
        return done == static_cast<ssize_t>(bytes.size());
    };
    if (!whole(send(floor.connection, floor.request.data(), floor.request.size(), MSG_NOSIGNAL), floor.request) ||
        !whole(recv(floor.connection, floor.reply.data(), floor.reply.size(), MSG_WAITALL), floor.reply)) {
        throw std::runtime_error("floor_tcp does not answer");
    }
}

pid_t StartRpcFloor() {
    const pid_t process = StartProgram({.command = {ProgramPath("floor_rpc")}});
    if (!WaitForProgram(FLOORPROG, FLOORVERS)) throw std::runtime_error("floor_rpc does not answer");
    return process;
}

void StopProcess(pid_t process) {
    (void)kill(process, SIGKILL);
    (void)waitpid(process, nullptr, 0);
}

RpcClient DialWithLibtirpc(std::uint32_t program, std::uint32_t version) {
    RpcClient client(clnt_create(HostName().c_str(), program, version, "tcp"));
    if (!client) throw std::runtime_error(clnt_spcreateerror("libtirpc"));
    return client;
}

std::size_t ResidentBytes(pid_t process) {
    std::ifstream file(fmt::format("/proc/{}/statm", process));
    std::size_t total = 0, resident = 0;
    if (!(file >> total >> resident)) throw std::runtime_error("a server has ended");
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}
