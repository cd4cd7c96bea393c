// SPDX-License-Identifier: MIT
// registry: tvregd through the registry client, and the start-up load of the daemon from it.
#include "registry/operations.h"

#include "bench/floor/floor_rpc.h"
#include "bench/measure/rows.h"
#include "bench/measure/servers.h"
#include "servd/servd_svc_proc/autostart.h"
#include "servd/servd_svc_proc/database.h"
#include "servd/servd_svc_proc/groups.h"
#include "servd/servd_svc_proc/kept_names.h"
#include "servd/servd_svc_proc/load.h"
#include "servd/service_keys.h"

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <fmt/core.h>

#include <cstring>

namespace {

void Require(LONG rc) {
    if (rc != ERROR_SUCCESS) throw std::runtime_error(fmt::format("the registry answers {}", rc));
}

HKEY Open(HKEY parent, const std::string &path) {
    HKEY key = 0;
    Require(RegOpenKeyExA(parent, path.c_str(), 0, KEY_ALL_ACCESS, &key));
    return key;
}

void QueryImagePath(HKEY key) {
    char data[1024];
    DWORD bytes = sizeof data;
    Require(RegQueryValueExA(key, "ImagePath", nullptr, nullptr, reinterpret_cast<LPBYTE>(data), &bytes));
}

void SetDescription(HKEY key) {
    static const char text[] = "What this service is for";
    Require(RegSetValueExA(key, "Description", 0, REG_SZ, reinterpret_cast<const BYTE *>(text), sizeof text));
}

// --- the floor: echoes of the same sizes ---

struct EchoSizes {
    u_int request; // without the 8 bytes that an echo has of its own
    u_int reply;   // without its 4
};

template <typename Argument>
EchoSizes SizesOf(Argument argument, ResultOf<Argument> result = {}) {
    argument.user = {6, 0, Text("root"), 0};
    result.discriminant = 1;
    return {static_cast<u_int>(xdr_sizeof(RoutineOf<Argument>(), &argument)) - 8,
            static_cast<u_int>(xdr_sizeof(RoutineOf<ResultOf<Argument>>(), &result)) - 4};
}

void CallEcho(CLIENT *client, const EchoSizes &sizes) {
    static std::vector<char> payload(1024);
    CallFloor(client, FLOOR_ECHO, xdr_FloorEcho, FloorEcho{sizes.reply, {sizes.request, payload.data()}},
              xdr_FloorBytes);
}

std::vector<EchoSizes> OpenQueryCloseSizes() {
    std::string image(31, 'x'); // as MakeRegistry writes it
    regd_REG_OPEN_KEY_EX open = {};
    open.subKey = Text("service00500");
    regd_REG_QUERY_VALUE_EX query = {};
    query.valueName = Text("ImagePath");
    regd_REG_QUERY_VALUE_RES value = {};
    value.body.data = {static_cast<std::uint32_t>(image.size()), image.data()};
    return {SizesOf(open), SizesOf(query, value), SizesOf(regd_REG_CLOSE_KEY{})};
}

EchoSizes SetSizes() {
    std::string data(25, 'x');
    regd_REG_SET_VALUE_EX set = {};
    set.valueName = Text("Description");
    set.data = {static_cast<std::uint32_t>(data.size()), data.data()};
    return SizesOf(set);
}

Comparison CompareReading(pid_t tvregd, pid_t rpcFloor, int rounds, int samples) {
    const RpcClient echo = DialWithLibtirpc(FLOORPROG, FLOORVERS);
    const std::vector<EchoSizes> sizes = OpenQueryCloseSizes();
    const HKEY services = Open(HKEY_LOCAL_MACHINE, servicesKeyPath);
    const auto read = [&] {
        const HKEY key = Open(services, "service00500");
        QueryImagePath(key);
        Require(RegCloseKey(key));
    };
    const auto echoes = [&] {
        for (const EchoSizes &size : sizes) {
            CallEcho(echo.get(), size);
        }
    };
    return CompareInRounds({read, tvregd}, {echoes, rpcFloor}, rounds, samples);
}

Comparison CompareSetting(pid_t tvregd, const std::string &folder, int rounds, int samples) {
    const RpcClient echo = DialWithLibtirpc(FLOORPROG, FLOORVERS);
    const EchoSizes sizes = SetSizes();
    SQLite::Database database(folder + "/floor.db", SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
    (void)database.execAndGet("PRAGMA journal_mode = WAL");
    database.exec("PRAGMA synchronous = FULL");
    database.exec("CREATE TABLE data (id INTEGER PRIMARY KEY, data BLOB)");
    SQLite::Statement commit(database,
                             "INSERT INTO data VALUES (1, ?) ON CONFLICT (id) DO UPDATE SET data = excluded.data");
    std::string data(25, 'x');
    const auto echoAndCommit = [&] {
        CallEcho(echo.get(), sizes);
        ++data[0]; // SQLite does not write what has not changed
        commit.reset();
        commit.bind(1, data.data(), static_cast<int>(data.size()));
        (void)commit.exec();
    };
    const HKEY key = Open(HKEY_LOCAL_MACHINE, servicesKey + "\\service00500");
    return CompareInRounds({[key] { SetDescription(key); }, tvregd}, {echoAndCommit, 0}, rounds, samples);
}

// --- the load ---

// Registry calls by kind.
struct CallCounts {
    int openKey = 0;
    int closeKey = 0;
    int queryFound = 0;
    int queryMissing = 0;
    int enumKey = 0;
    int createKey = 0;
};
CallCounts counts;

// Counts in front of the operations; no other kind is called by the load of a registry that MakeRegistry wrote.
void CountCalls() {
    RegistryOperations &operations = _tvRegistryAPISet[0];
    operations.reg_open_key_ex_a = [](HKEY key, LPCSTR name, DWORD options, REGSAM access, PHKEY result) {
        ++counts.openKey;
        return reg_open_key_ex_a(key, name, options, access, result);
    };
    operations.reg_close_key = [](HKEY key) {
        ++counts.closeKey;
        return reg_close_key(key);
    };
    operations.reg_query_value_ex_a = [](HKEY key, LPCSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data,
                                         LPDWORD bytes) {
        const LONG rc = reg_query_value_ex_a(key, name, reserved, type, data, bytes);
        ++(rc == ERROR_FILE_NOT_FOUND ? counts.queryMissing : counts.queryFound);
        return rc;
    };
    operations.reg_enum_key_ex_a = [](HKEY key, DWORD index, LPSTR name, LPDWORD nameBytes, LPDWORD reserved,
                                      LPSTR keyClass, LPDWORD classBytes, PFILETIME time) {
        ++counts.enumKey;
        return reg_enum_key_ex_a(key, index, name, nameBytes, reserved, keyClass, classBytes, time);
    };
    operations.reg_create_key_ex_a = [](HKEY key, LPCSTR name, DWORD reserved, LPSTR keyClass, DWORD options,
                                        REGSAM access, LPSECURITY_ATTRIBUTES attributes, PHKEY result,
                                        LPDWORD disposition) {
        ++counts.createKey;
        return reg_create_key_ex_a(key, name, reserved, keyClass, options, access, attributes, result, disposition);
    };
}

struct Load {
    Figures load;     // all of it; server: tvregd
    Figures expected; // the calls that it made, at what such a call took just before and after
    int calls = 0;
};

// Mean time of a call, so that calls add up to what the load is made of. The services take turns, as in the load.
template <typename Operation>
double MeanTime(int services, int repeats, Operation call) {
    const double begin = NowUs();
    for (int i = 0; i < repeats; ++i) {
        call(i % services + 1);
    }
    return (NowUs() - begin) / repeats;
}

double ExpectedTime(const CallCounts &made, int services, int repeats) {
    const HKEY parent = Open(HKEY_LOCAL_MACHINE, servicesKeyPath);
    const HKEY key = Open(parent, ServiceName(1));
    const double open = MeanTime(services, repeats, [&](int i) { (void)Open(parent, ServiceName(i)); });
    const double close = MeanTime(services, repeats, [&](int) { Require(RegCloseKey(key)); });
    const double found = MeanTime(services, repeats, [&](int) { QueryImagePath(key); });
    const double missing = MeanTime(services, repeats, [&](int) {
        DWORD flag = 0, bytes = sizeof flag;
        (void)RegQueryValueExA(key, "DeleteFlag", nullptr, nullptr, reinterpret_cast<LPBYTE>(&flag), &bytes);
    });
    const double enumerate = MeanTime(services, repeats, [&](int i) {
        char name[1024];
        DWORD bytes = sizeof name;
        Require(RegEnumKeyExA(parent, static_cast<DWORD>(i - 1), name, &bytes, nullptr, nullptr, nullptr, nullptr));
    });
    return open * (made.openKey + made.createKey) + close * made.closeKey + found * made.queryFound +
           missing * made.queryMissing + enumerate * made.enumKey;
}

// What the daemon does between its registration and its first request.
void LoadEverything() {
    Require(static_cast<LONG>(ReadGroupOrderList(&firstunorderedgroupindex)));
    Require(static_cast<LONG>(ReadServiceDatabase()));
    Require(static_cast<LONG>(SortServicesInGroups()));
    Require(static_cast<LONG>(RunAutoStartServices()));
}

// In a process of its own: the database is loaded once.
Load MeasureOneLoad(int services, pid_t tvregd) {
    Load result;
    (void)Open(HKEY_LOCAL_MACHINE, servicesKeyPath); // connects
    CountCalls();
    const double cpuBefore = CpuUs(tvregd);
    const double begin = NowUs();
    LoadEverything();
    result.load.median = result.load.p99 = NowUs() - begin;
    result.load.serverCpu = CpuUs(tvregd) - cpuBefore;
    const CallCounts made = counts;
    result.calls = made.openKey + made.createKey + made.closeKey + made.queryFound + made.queryMissing + made.enumKey;
    result.expected.median = result.expected.p99 = ExpectedTime(made, services, 2 * services);
    return result;
}

// Returns the time for each service.
double MeasureLoadOf(Bench &bench, int services) {
    const pid_t tvregd = StartRegistryDaemon(MakeRegistry(services));
    std::vector<Figures> loads, expected;
    int calls = 0;
    Place(Placement::together, {tvregd});
    for (int i = 0; i < bench.rounds; ++i) {
        const Load load = InChild<Load>([&] { return MeasureOneLoad(services, tvregd); });
        loads.push_back(load.load);
        expected.push_back(load.expected);
        calls = load.calls;
    }
    Place(Placement::anywhere, {});
    (void)StopDaemon(tvregd);
    const Comparison result = Summarise(loads, expected);
    AddRow(bench, {fmt::format("start-up load, {} registry calls", Thousands(calls)),
                   Thousands(services),
                   result.measured,
                   result.floor,
                   {"time / calls", result.ratio, 1.15}});
    return result.measured.median / services;
}

} // namespace

void MeasureRegistry(Bench &bench) {
    if (!bench.isWanted("tvregd")) return;
    const std::string database = MakeRegistry(1000);
    const pid_t tvregd = StartRegistryDaemon(database);
    const pid_t rpcFloor = StartRpcFloor();
    for (const Placement placement : {Placement::together, Placement::apart}) {
        Place(placement, {tvregd, rpcFloor});
        const Comparison reading =
            InChild<Comparison>([&] { return CompareReading(tvregd, rpcFloor, bench.rounds, Samples(bench, 2000)); });
        AddRow(bench, {"tvregd: open, query, close",
                       SettingOf(placement),
                       reading.measured,
                       reading.floor,
                       {"time / floor", reading.ratio, 1.4}});
    }
    Place(Placement::anywhere, {tvregd, rpcFloor});
    const std::string folder = MakeScratchFolder();
    const Comparison setting =
        InChild<Comparison>([&] { return CompareSetting(tvregd, folder, bench.rounds, Samples(bench, 200)); });
    AddRow(bench, {"tvregd: acknowledged set",
                   "unpinned",
                   setting.measured,
                   setting.floor,
                   {"time / floor", setting.ratio, 1.3}});
    StopProcess(rpcFloor);
    (void)StopDaemon(tvregd);
}

void MeasureLoad(Bench &bench) {
    if (!bench.isWanted("start-up load, growth")) return;
    (void)MeasureLoadOf(bench, 100);
    const double small = MeasureLoadOf(bench, 1000);
    const double large = MeasureLoadOf(bench, 10000);
    AddRow(bench, {"start-up load, growth", "for a service", {}, {}, {"10,000 / 1,000", large / small, 1.15}});
}
