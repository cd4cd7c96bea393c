// SPDX-License-Identifier: MIT
// status: the status query (procedure 13), alone, from many clients, and beside idle connections.
#include "bench/floor/floor_rpc.h"
#include "bench/measure/crowd.h"
#include "bench/measure/rows.h"
#include "bench/measure/servers.h"
#include "tests/support/xdr_bytes.h"

#include <fmt/core.h>

#include <algorithm>

namespace {

constexpr int services = 1000;
constexpr std::uint32_t handle = 1; // the first service
constexpr std::size_t floorRequestBytes = 40;
constexpr std::size_t floorReplyBytes = 28;

void QueryStatus(CLIENT *client) {
    (void)CallForAnswer(client, servd_SERV_QUERY_STATUS_SERVICE{static_cast<std::int32_t>(handle)});
}

void AddComparison(Bench &bench, const std::string &setting, const Comparison &result) {
    AddRow(bench, {"status query", setting, result.measured, result.floor, {"time / floor", result.ratio, 1.30}});
    AddRow(bench,
           {"status query, server", setting, result.measured, result.floor, {"CPU / floor", result.cpuRatio, 1.30}});
}

// --- many clients ---

Crowd MakeStatusCrowd(int clients, std::uint32_t program, std::uint32_t version, std::uint32_t procedure) {
    constexpr std::size_t replyBytes = 4 + 6 * 4 + 8 * 4; // fragment header, reply header, the result
    return MakeCrowd(PortOf(program, version), clients, {RpcCall(program, version, procedure, Words({handle}))},
                     replyBytes);
}

Comparison CompareCrowds(Bench &bench, int clients, const Daemons &daemons, pid_t rpcFloor) {
    Crowd measured = MakeStatusCrowd(clients, SERVDAEMONPROG, SERVDAEMONVERS, QUERY_STATUS_SERVICE);
    Crowd floor = MakeStatusCrowd(clients, FLOORPROG, FLOORVERS, FLOOR_STATUS);
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
    for (const Placement placement : {Placement::together, Placement::apart}) {
        const std::string setting = SettingOf(placement);
        Place(placement, {daemons.servd, tcp.server});
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
    Place(Placement::anywhere, {});
    StopProcess(tcp.server);
    StopDaemons(daemons);
}

void MeasureManyClients(Bench &bench) {
    if (!bench.isWanted("status queries from many clients")) return;
    const Daemons daemons = StartDaemons(MakeRegistry(services));
    const pid_t rpcFloor = StartRpcFloor();
    for (const int clients : {8, 64}) {
        for (const Placement placement : {Placement::together, Placement::anywhere}) {
            Place(placement, {daemons.servd, rpcFloor});
            const Comparison result = CompareCrowds(bench, clients, daemons, rpcFloor);
            AddRow(bench, {fmt::format("status queries from {} clients", clients),
                           SettingOf(placement),
                           result.measured,
                           result.floor,
                           {"calls/s / floor", result.ratio > 0 ? 1 / result.ratio : 0, 1.0, true}});
        }
    }
    Place(Placement::anywhere, {});
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
        Place(Placement::together, {daemons.servd});
        std::vector<Figures> alone, beside;
        std::vector<double> bytes;
        for (int i = 0; i < bench.rounds; ++i) {
            alone.push_back(SampleRound(side, samples));
            const std::size_t before = ResidentBytes(daemons.servd);
            Crowd idle = MakeStatusCrowd(count, SERVDAEMONPROG, SERVDAEMONVERS, QUERY_STATUS_SERVICE);
            for (std::size_t used = 0; used < idle.connections.size(); ++used) { // each has been used once
                SendRequest(idle, used);
                TakeReply(idle, used);
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
    Place(Placement::anywhere, {});
    StopDaemons(daemons);
}
