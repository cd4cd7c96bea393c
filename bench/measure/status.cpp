// SPDX-License-Identifier: MIT
// status: the status query (procedure 13), alone, from many clients, and beside idle connections.
#include "bench/floor/floor_rpc.h"
#include "bench/measure/rows.h"
#include "bench/measure/servers.h"
#include "rpc/message.h"

#include <fmt/core.h>

#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>

namespace {

constexpr int services = 1000;
constexpr std::int32_t handle = 1; // the first service
constexpr std::size_t floorRequestBytes = 40;
constexpr std::size_t floorReplyBytes = 28;

void QueryStatus(CLIENT *client) {
    Call(client, QUERY_STATUS_SERVICE, xdr_servd_SERV_QUERY_STATUS_SERVICE, servd_SERV_QUERY_STATUS_SERVICE{handle},
         xdr_servd_SERV_QUERY_STATUS_SERVICE_RETURN);
}

void AddComparison(Bench &bench, const std::string &setting, const Comparison &result) {
    AddRow(bench, {"status query", setting, result.measured, result.floor, {"time / floor", result.ratio, 1.30}});
    AddRow(bench,
           {"status query, server", setting, result.measured, result.floor, {"CPU / floor", result.cpuRatio, 1.30}});
}

// --- many clients ---

// A closed loop of so many connections: each sends its next request as soon as the reply to the last one is there. One
// thread and no RPC code, so that what limits is the server.
struct Crowd {
    std::vector<int> connections;
    std::string request; // with its header
    std::size_t replyBytes = 0;
    int epoll = -1;
};

Crowd MakeCrowd(int clients, std::uint32_t program, std::uint32_t version, std::uint32_t procedure) {
    Crowd crowd;
    MessageOutput output = {};
    XDR xdrs;
    std::uint32_t words[] = {1, CALL, RPC_MSG_VERSION, program, version, procedure, AUTH_NONE, 0, AUTH_NONE, 0, handle};
    bool coded = BeginMessage(&output, &xdrs);
    for (std::uint32_t &word : words)
        coded = coded && CodeField(&xdrs, word);
    if (!coded || !FinishMessage(&output)) throw std::runtime_error("out of memory");
    crowd.request.assign(output.bytes, output.size);
    ReleaseOutput(&output);
    crowd.replyBytes = 4 + 6 * 4 + 8 * 4; // fragment header, reply header, the result

    crowd.epoll = epoll_create1(EPOLL_CLOEXEC);
    const std::uint16_t port = PortOf(program, version);
    for (int i = 0; i < clients; ++i) {
        epoll_event event = {};
        event.events = EPOLLIN;
        event.data.fd = ConnectTo(port);
        if (epoll_ctl(crowd.epoll, EPOLL_CTL_ADD, event.data.fd, &event) != 0) throw std::runtime_error("epoll");
        crowd.connections.push_back(event.data.fd);
    }
    return crowd;
}

void ReleaseCrowd(Crowd &crowd) {
    for (const int connection : crowd.connections)
        (void)close(connection);
    (void)close(crowd.epoll);
}

void SendRequest(const Crowd &crowd, int connection) {
    if (send(connection, crowd.request.data(), crowd.request.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(crowd.request.size()))
        throw std::runtime_error("a server does not take a request");
}

void TakeReply(const Crowd &crowd, int connection) {
    char reply[256];
    if (recv(connection, reply, crowd.replyBytes, MSG_WAITALL) != static_cast<ssize_t>(crowd.replyBytes))
        throw std::runtime_error("a server does not answer");
}

// Time for each call, the server's CPU for each call.
Figures RunCrowd(const Crowd &crowd, pid_t server, int calls) {
    const double begin = NowUs();
    const double cpuBefore = CpuUs(server);
    for (const int connection : crowd.connections)
        SendRequest(crowd, connection);
    int sent = static_cast<int>(crowd.connections.size());
    for (int taken = 0; taken < sent;) {
        epoll_event events[64];
        const int ready = epoll_wait(crowd.epoll, events, 64, 10000);
        if (ready <= 0) throw std::runtime_error("a server does not answer");
        for (int i = 0; i < ready; ++i, ++taken) {
            TakeReply(crowd, events[i].data.fd);
            if (sent >= calls) continue;
            SendRequest(crowd, events[i].data.fd);
            ++sent;
        }
    }
    const double each = (NowUs() - begin) / calls;
    return {each, each, (CpuUs(server) - cpuBefore) / calls};
}

Comparison CompareCrowds(Bench &bench, int clients, const Daemons &daemons, pid_t rpcFloor) {
    Crowd measured = MakeCrowd(clients, SERVDAEMONPROG, SERVDAEMONVERS, QUERY_STATUS_SERVICE);
    Crowd floor = MakeCrowd(clients, FLOORPROG, FLOORVERS, FLOOR_STATUS);
    std::vector<Figures> measuredRounds, floorRounds;
    // A round is one figure of wall time here, so the turns are short and many.
    for (int i = 0; i < 10 * bench.rounds; ++i) {
        floorRounds.push_back(RunCrowd(floor, rpcFloor, Samples(bench, 2000)));
        measuredRounds.push_back(RunCrowd(measured, daemons.servd, Samples(bench, 2000)));
    }
    ReleaseCrowd(measured);
    ReleaseCrowd(floor);
    return Summarise(measuredRounds, floorRounds);
}

} // namespace

void MeasureStatusQuery(Bench &bench) {
    if (!bench.isWanted("status query")) return;
    const Daemons daemons = StartDaemons(MakeRegistry(services));
    TcpFloor tcp = StartTcpFloor(floorRequestBytes, floorReplyBytes);
    const RpcClient client = DialWithLibtirpc(SERVDAEMONPROG, SERVDAEMONVERS);
    const RpcClient own = DialServiceDaemon();
    const Side floor = {[&] { CallTcpFloor(tcp); }, tcp.server};
    for (const bool pinned : {true, false}) {
        const std::string setting = pinned ? "pinned" : "unpinned";
        Pin(pinned, {daemons.servd, tcp.server});
        const int samples = Samples(bench, 5000);
        AddComparison(
            bench, setting,
            CompareInRounds({[&] { QueryStatus(client.get()); }, daemons.servd}, floor, bench.rounds, samples));
        const Comparison result =
            CompareInRounds({[&] { QueryStatus(own.get()); }, daemons.servd}, floor, bench.rounds, samples);
        AddRow(bench, {"status query, this system's client",
                       setting,
                       result.measured,
                       result.floor,
                       {"time / floor", result.ratio}});
    }
    Pin(false, {});
    StopProcess(tcp.server);
    StopDaemons(daemons);
}

void MeasureManyClients(Bench &bench) {
    if (!bench.isWanted("status queries from many clients")) return;
    const Daemons daemons = StartDaemons(MakeRegistry(services));
    const pid_t rpcFloor = StartRpcFloor();
    for (const int clients : {8, 64}) {
        for (const bool pinned : {true, false}) {
            Pin(pinned, {daemons.servd, rpcFloor});
            const Comparison result = CompareCrowds(bench, clients, daemons, rpcFloor);
            AddRow(bench, {fmt::format("status queries from {} clients", clients),
                           pinned ? "pinned" : "unpinned",
                           result.measured,
                           result.floor,
                           {"calls/s / floor", result.ratio > 0 ? 1 / result.ratio : 0, 1.0, true}});
        }
    }
    Pin(false, {});
    StopProcess(rpcFloor);
    StopDaemons(daemons);
}

void MeasureIdleConnections(Bench &bench) {
    if (!bench.isWanted("status query beside idle connections")) return;
    const Daemons daemons = StartDaemons(MakeRegistry(services));
    const RpcClient client = DialWithLibtirpc(SERVDAEMONPROG, SERVDAEMONVERS);
    const Side side = {[&] { QueryStatus(client.get()); }, daemons.servd};
    const int samples = Samples(bench, 5000);
    for (const int count : {100, 900}) {
        Pin(true, {daemons.servd});
        std::vector<Figures> alone, beside;
        std::vector<double> bytes;
        for (int i = 0; i < bench.rounds; ++i) {
            alone.push_back(SampleRound(side, samples));
            const std::size_t before = ResidentBytes(daemons.servd);
            Crowd idle = MakeCrowd(count, SERVDAEMONPROG, SERVDAEMONVERS, QUERY_STATUS_SERVICE);
            for (const int connection : idle.connections) { // each has been used once
                SendRequest(idle, connection);
                TakeReply(idle, connection);
            }
            const auto grown = static_cast<double>(ResidentBytes(daemons.servd)) - static_cast<double>(before);
            bytes.push_back(std::max(grown, 0.0) / count);
            beside.push_back(SampleRound(side, samples));
            ReleaseCrowd(idle);
        }
        const Comparison result = Summarise(beside, alone);
        AddRow(bench, {"status query beside idle connections",
                       fmt::format("{} idle", count),
                       result.measured,
                       result.floor,
                       {"time / without", result.ratio, 1.1}});
        // The first round shows what they cost: later ones find memory that the process has kept.
        AddRow(bench, {"memory of an idle connection",
                       fmt::format("{} idle", count),
                       {},
                       {},
                       {"KB", *std::max_element(bytes.begin(), bytes.end()) / 1024, 15.0}});
    }
    Pin(false, {});
    StopDaemons(daemons);
}
