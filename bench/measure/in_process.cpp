// SPDX-License-Identifier: MIT
// in_process: what runs inside one process: the codec, look-ups, filing, the dependency walk. With Google Benchmark.
//
// Each benchmark does its work for all n services in one turn; what is judged is that the cost for each service is the
// same for 10,000 services as for 1,000. A linear scan somewhere shows as a factor of ten.
#include "bench/measure/rows.h"
#include "bench/measure/servers.h"
#include "registry/operations.h"
#include "rpc/message.h"
#include "servd/servd_svc_proc/database.h"
#include "servd/servd_svc_proc/dependencies.h"
#include "servd/servd_svc_proc/groups.h"
#include "servd/servd_svc_proc/handlers.h"
#include "servd/servd_svc_proc/load.h"
#include "tv/winsvc.h"

#include <benchmark/benchmark.h>
#include <fmt/core.h>

#include <cstring>
#include <map>

namespace {

constexpr double flat = 2.0; // 10,000 services leave the nearer caches, which 1,000 do not; a scan would give 10

// --- a database of n services, in memory ---

void ClearDatabase() {
    for (std::int32_t i = 0; i < svcdbsize; ++i) {
        if (svcdb[i].name == nullptr) continue;
        SetServiceName(i, nullptr);
        SetServiceDisplayName(i, nullptr);
    }
}

void ClearList(GroupListEntry **list, std::int32_t *size) {
    for (std::int32_t i = 0; i < *size; ++i) {
        while (GroupMember *member = (*list)[i].members) {
            (*list)[i].members = member->next;
            std::free(member);
        }
        std::free((*list)[i].name);
    }
    std::free(*list);
    *list = nullptr;
    *size = 0;
}

void FillDatabase(int services) {
    ClearDatabase();
    while (svcdbsize <= services) {
        ResizeServiceDatabase();
    }
    for (int i = 1; i <= services; ++i) {
        SetServiceName(i, ServiceName(i).c_str());
        SetServiceDisplayName(i, DisplayName(i).c_str());
        svcdb[i].type = SERVICE_WIN32_OWN_PROCESS;
        svcdb[i].status.dwCurrentState = SERVICE_STOPPED;
    }
}

std::vector<std::string> Names(int services, std::string (*nameOf)(int)) {
    std::vector<std::string> names;
    for (int i = 1; i <= services; ++i) {
        names.push_back(nameOf(i));
    }
    return names;
}

void FindNames(benchmark::State &state) {
    const int services = static_cast<int>(state.range(0));
    FillDatabase(services);
    const std::vector<std::string> names = Names(services, ServiceName);
    for (auto _ : state) {
        for (const std::string &name : names) {
            benchmark::DoNotOptimize(GetServiceIndexFromName(name.c_str()));
        }
    }
}

void FindDisplayNames(benchmark::State &state) {
    const int services = static_cast<int>(state.range(0));
    FillDatabase(services);
    std::vector<std::string> names = Names(services, DisplayName);
    for (auto _ : state) {
        for (std::string &name : names) {
            servd_SERV_GET_KEY_SERVICE argument = {name.data()};
            benchmark::DoNotOptimize(serv_get_key_service_1(&argument, nullptr));
        }
    }
}

// --- filing ---

std::string ImagePath(int number) { return fmt::format("/usr/lib/services/program{:05}", number); }
std::string Group(int number) { return fmt::format("group{:02}", number % 20); }

void File(benchmark::State &state, std::string (*nameOf)(int)) {
    const int services = static_cast<int>(state.range(0));
    const std::vector<std::string> names = Names(services, nameOf);
    for (auto _ : state) {
        for (int i = 0; i < services; ++i) {
            AddServiceToGroupList(&grouplist, &grouplistsize, names[static_cast<std::size_t>(i)].c_str(), i + 1);
        }
        state.PauseTiming();
        ClearList(&grouplist, &grouplistsize);
        state.ResumeTiming();
    }
}

void FileImagePaths(benchmark::State &state) { File(state, ImagePath); }
void FileGroups(benchmark::State &state) { File(state, Group); }

// --- the dependency walk ---

std::vector<std::string> dependencies; // the value of each service, by number

// Service i depends on 2i, 2i + 1 and i + 1: all are reached from the first, most of them on many roads.
void MakeGraph(int services) {
    dependencies.assign(static_cast<std::size_t>(services) + 1, {});
    for (int i = 1; i <= services; ++i) {
        std::vector<std::string> names;
        for (const int next : {2 * i, 2 * i + 1, i + 1}) {
            if (next <= services) names.push_back(ServiceName(next));
        }
        if (!names.empty()) dependencies[static_cast<std::size_t>(i)] = MultiSz(names);
    }
}

// The registry beneath the walk: the key of a service is its number.
LONG OpenService(HKEY, LPCSTR name, DWORD, REGSAM, PHKEY result) {
    *result = static_cast<HKEY>(std::atoi(name + std::strlen("service")));
    return ERROR_SUCCESS;
}

LONG QueryDependencies(HKEY key, LPCSTR, LPDWORD, LPDWORD, LPBYTE data, LPDWORD bytes) {
    const std::string &value = dependencies[key];
    *bytes = static_cast<DWORD>(value.size());
    if (value.empty()) return ERROR_FILE_NOT_FOUND;
    if (data != nullptr) std::memcpy(data, value.data(), value.size());
    return ERROR_SUCCESS;
}

void WalkDependencies(benchmark::State &state) {
    const int services = static_cast<int>(state.range(0));
    FillDatabase(services);
    MakeGraph(services);
    const RegistryOperations before = _tvRegistryAPISet[0];
    _tvRegistryAPISet[0].reg_open_key_ex_a = OpenService;
    _tvRegistryAPISet[0].reg_query_value_ex_a = QueryDependencies;
    _tvRegistryAPISet[0].reg_close_key = [](HKEY) -> LONG { return ERROR_SUCCESS; };
    for (auto _ : state) {
        std::int32_t bytesLeft = 1 << 30, bytesNeeded = 0, count = 0;
        svd_enum_status_list_t *list = nullptr;
        const std::uint32_t rc =
            CalculateDependencies(1, &bytesLeft, &list, &bytesNeeded, &count, 1, 0, SERVICE_STATE_ALL);
        ClearVisitingFlags();
        state.PauseTiming();
        if (rc != 0 || count != services - 1) state.SkipWithError("the walk does not reach every service");
        XDR xdrs = {};
        xdrs.x_op = XDR_FREE;
        (void)CodeField(&xdrs, list);
        state.ResumeTiming();
    }
    _tvRegistryAPISet[0] = before;
}

// --- the codec ---

template <typename Record>
void Encode(benchmark::State &state, bool_t (*routine)(XDR *, Record *), Record record) {
    MessageOutput output = {};
    for (auto _ : state) {
        XDR xdrs;
        if (!BeginMessage(&output, &xdrs) || !routine(&xdrs, &record)) state.SkipWithError("not encoded");
    }
    ReleaseOutput(&output);
}

template <typename Record>
void Decode(benchmark::State &state, bool_t (*routine)(XDR *, Record *), Record record) {
    MessageOutput output = {};
    XDR xdrs;
    if (!BeginMessage(&output, &xdrs) || !routine(&xdrs, &record)) state.SkipWithError("not encoded");
    for (auto _ : state) {
        Record decoded = {};
        xdrmem_create(&xdrs, output.bytes + 4, static_cast<u_int>(output.size - 4), XDR_DECODE);
        if (!routine(&xdrs, &decoded)) state.SkipWithError("not decoded");
        xdrs.x_op = XDR_FREE;
        (void)routine(&xdrs, &decoded);
    }
    ReleaseOutput(&output);
}

struct ChainOfEntries {
    std::vector<svd_enum_status_list_t> links;
    servd_SERV_ENUM_STATUS_SERVICE_RETURN reply = {};
};

ChainOfEntries MakeChain(std::int64_t services) {
    static char name[] = "service00001";
    static char displayName[] = "Service number 00001";
    ChainOfEntries chain;
    chain.links.assign(static_cast<std::size_t>(services), {name, displayName, {0x10, 1, 0, 0, 0, 0, 0}, nullptr});
    for (std::size_t i = 1; i < chain.links.size(); ++i) {
        chain.links[i - 1].next = &chain.links[i];
    }
    chain.reply.services = chain.links.data();
    return chain;
}

void EncodeList(benchmark::State &state) {
    const ChainOfEntries chain = MakeChain(state.range(0));
    Encode(state, xdr_servd_SERV_ENUM_STATUS_SERVICE_RETURN, chain.reply);
}

void DecodeList(benchmark::State &state) {
    const ChainOfEntries chain = MakeChain(state.range(0));
    Decode(state, xdr_servd_SERV_ENUM_STATUS_SERVICE_RETURN, chain.reply);
}

void EncodeChars(benchmark::State &state) {
    std::string chars(static_cast<std::size_t>(state.range(0)), 'x');
    servd_SERV_CREATE_SERVICE record = {};
    record.dependencies = Chars(chars);
    Encode(state, xdr_servd_SERV_CREATE_SERVICE, record);
}

void DecodeChars(benchmark::State &state) {
    std::string chars(static_cast<std::size_t>(state.range(0)), 'x');
    servd_SERV_CREATE_SERVICE record = {};
    record.dependencies = Chars(chars);
    Decode(state, xdr_servd_SERV_CREATE_SERVICE, record);
}

BENCHMARK(FindNames)->Name("name look-up")->Arg(1000)->Arg(10000);
BENCHMARK(FindDisplayNames)->Name("display name look-up")->Arg(1000)->Arg(10000);
BENCHMARK(FileImagePaths)->Name("image-path filing")->Arg(1000)->Arg(10000);
BENCHMARK(FileGroups)->Name("group filing")->Arg(1000)->Arg(10000);
BENCHMARK(WalkDependencies)->Name("dependency walk")->Arg(1000)->Arg(10000);
BENCHMARK(EncodeList)->Name("list encoding")->Arg(1000)->Arg(10000);
BENCHMARK(DecodeList)->Name("list decoding and release")->Arg(1000)->Arg(10000);
BENCHMARK(EncodeChars)->Name("character encoding")->Arg(1000)->Arg(10000);
BENCHMARK(DecodeChars)->Name("character decoding and release")->Arg(1000)->Arg(10000);

// Collects the medians over the repetitions, nanoseconds for each service, by benchmark and number of services.
struct Collector : benchmark::BenchmarkReporter {
    std::map<std::string, std::map<int, double>> results = {};
    std::vector<std::string> order = {};

    bool ReportContext(const Context &) override { return true; }
    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &run : runs) {
            if (run.error_occurred) throw std::runtime_error(run.run_name.str() + ": " + run.error_message);
            if (run.run_type != Run::RT_Aggregate || run.aggregate_name != "median") continue;
            const int services = std::stoi(run.run_name.args);
            if (results[run.run_name.function_name].empty()) order.push_back(run.run_name.function_name);
            results[run.run_name.function_name][services] = run.GetAdjustedRealTime() / services;
        }
    }
};

} // namespace

void MeasureInProcess(Bench &bench) {
    if (!bench.isWanted("in process")) return;
    std::vector<std::string> options = {"measure", fmt::format("--benchmark_repetitions={}", bench.rounds),
                                        fmt::format("--benchmark_min_time={}", bench.quick ? 0.01 : 0.1),
                                        "--benchmark_enable_random_interleaving=true"};
    std::vector<char *> arguments;
    for (std::string &option : options) {
        arguments.push_back(option.data());
    }
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    Collector collector;
    (void)benchmark::RunSpecifiedBenchmarks(&collector);
    for (const std::string &name : collector.order) {
        const double small = collector.results[name][1000], large = collector.results[name][10000];
        const Figures each = {small / 1000, 0, 0};
        AddRow(bench, {name, "each of 1,000", each, {}, {"10,000 / 1,000", large / small, flat}});
    }
}
