// SPDX-License-Identifier: MIT
// enumeration: all services in one reply (procedure 14), decoded by the client; and the memory that they take.
#include "bench/floor/floor_rpc.h"
#include "bench/measure/rows.h"
#include "bench/measure/servers.h"
#include "tv/winsvc.h"

#include <fmt/core.h>

#include <limits>

namespace {

constexpr std::size_t requestBytes = 60; // fragment header, call header, four words
constexpr std::size_t headerBytes = 28;  // of the reply

servd_SERV_ENUM_STATUS_SERVICE Everything() {
    return {0, SERVICE_WIN32, SERVICE_STATE_ALL, std::numeric_limits<std::int32_t>::max()};
}

void Enumerate(CLIENT *client) { (void)CallForAnswer(client, Everything()); }

// As a program of this system does it: into a buffer of its own.
void EnumerateIntoBuffer(SC_HANDLE manager, std::vector<char> &buffer, int services) {
    DWORD bytesNeeded = 0;
    DWORD returned = 0;
    DWORD resume = 0;
    const auto room = static_cast<DWORD>(buffer.size());
    if (!EnumServicesStatusA(manager, SERVICE_WIN32, SERVICE_STATE_ALL,
                             reinterpret_cast<LPENUM_SERVICE_STATUSA>(buffer.data()), room, &bytesNeeded, &returned,
                             &resume) ||
        returned != static_cast<DWORD>(services)) {
        throw std::runtime_error("not all services are listed");
    }
}

void EnumerateFloor(CLIENT *client, int services) { CallFloor(client, FLOOR_LIST, xdr_int, services, xdr_FloorList); }

std::size_t ReplyBytes(CLIENT *client, int services) {
    auto reply = CallForAnswer(client, Everything());
    if (reply->servicesReturned != services) throw std::runtime_error("not all services are listed");
    return headerBytes + xdr_sizeof(RoutineOf<servd_SERV_ENUM_STATUS_SERVICE_RETURN>(), &*reply);
}

// Returns the time of one enumeration of this size, with hardly anything in between: the two sizes that are compared
// are not measured in turns.
double MeasureSize(Bench &bench, int services, Placement placement) {
    const Daemons daemons = StartDaemons(MakeRegistry(services));
    const pid_t rpcFloor = StartRpcFloor();
    const RpcClient client = DialWithLibtirpc(SERVDAEMONPROG, SERVDAEMONVERS);
    const RpcClient own = DialServiceDaemon();
    const RpcClient list = DialWithLibtirpc(FLOORPROG, FLOORVERS);
    TcpFloor tcp = StartTcpFloor(requestBytes, ReplyBytes(client.get(), services));
    Place(placement, {daemons.servd, tcp.server, rpcFloor});

    const int samples = Samples(bench, 500 * 1000 / services);
    const std::string setting = fmt::format("{}, {}", Thousands(services), SettingOf(placement));
    const Side floor = {[&] { CallTcpFloor(tcp); }, tcp.server};
    const Comparison result =
        CompareInRounds({[&] { Enumerate(client.get()); }, daemons.servd}, floor, bench.rounds, samples);
    AddRow(bench, {"enumeration",
                   setting,
                   result.measured,
                   result.floor,
                   {"time / floor", result.ratio, services == 1000 ? std::optional(9.0) : std::nullopt}});
    const auto addForComparison = [&](const std::string &what, const Side &side) {
        const Comparison other = CompareInRounds(side, floor, bench.rounds, samples);
        AddRow(bench, {what, setting, other.measured, other.floor, {"time / floor", other.ratio}});
    };
    const SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    std::vector<char> buffer(static_cast<std::size_t>(services) * 256);
    const Comparison intoBuffer = CompareInRounds(
        {[&] { EnumerateIntoBuffer(manager, buffer, services); }, daemons.servd}, floor, bench.rounds, samples);
    AddRow(bench, {"enumeration, EnumServicesStatus",
                   setting,
                   intoBuffer.measured,
                   intoBuffer.floor,
                   {"time / floor", intoBuffer.ratio, services == 1000 ? std::optional(4.0) : std::nullopt}});
    (void)CloseServiceHandle(manager);
    addForComparison("enumeration, list of records", {[&] { Enumerate(own.get()); }, daemons.servd});
    addForComparison("enumeration, bare libtirpc", {[&] { EnumerateFloor(list.get(), services); }, rpcFloor});
    Place(Placement::anywhere, {});
    StopProcess(tcp.server);
    StopProcess(rpcFloor);
    StopDaemons(daemons);
    return result.measured.p10;
}

} // namespace

void MeasureEnumeration(Bench &bench) {
    if (!bench.isWanted("enumeration")) return;
    for (const Placement placement : {Placement::together, Placement::apart}) {
        const double small = MeasureSize(bench, 1000, placement);
        const double large = MeasureSize(bench, 10000, placement);
        AddRow(bench, {"enumeration, growth", SettingOf(placement), {}, {}, {"10,000 / 1,000", large / small, 11.0}});
    }
}

void MeasureMemory(Bench &bench) {
    if (!bench.isWanted("memory of servd, growth")) return;
    for (const int services : {100, 1000, 10000}) {
        const Daemons daemons = StartDaemons(MakeRegistry(services));
        const double megabytes = static_cast<double>(ResidentBytes(daemons.servd)) / (1 << 20);
        AddRow(bench,
               {"memory of servd", Thousands(services), {}, {}, {"MB", megabytes, services < 10000 ? 5.0 : 9.0}});
        StopDaemons(daemons);
    }
}
