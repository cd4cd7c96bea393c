// SPDX-License-Identifier: MIT
// start: from the start request to start-pending, and many automatic starts in a row.
#include "bench/floor/floor_rpc.h"
#include "bench/measure/rows.h"
#include "bench/measure/servers.h"
#include "tv/winreg.h"
#include "tv/winsvc.h"

#include <fmt/core.h>

#include <ctime>

namespace {

constexpr int automaticServices = 100;

// An image is a csh script whose last act is to become the program.
std::string WriteImage(const std::string &folder, const std::string &name, const std::string &command) {
    const std::string file = folder + "/" + name;
    WriteFile(file, "exec " + command + "\n", 0755);
    return file;
}

void SleepUs(long microseconds) {
    const timespec time = {0, microseconds * 1000};
    (void)nanosleep(&time, nullptr);
}

bool CallStart(pid_t process) {
    const auto program = static_cast<std::uint32_t>(FLOORSERVICEPROG) + static_cast<std::uint32_t>(process);
    const RpcClient client(DialProgram({htonl(INADDR_LOOPBACK)}, program, FLOORVERS));
    if (!client) return false;
    const timeval timeout = {25, 0};
    const auto nothing = reinterpret_cast<xdrproc_t>(xdr_nothing);
    return clnt_call(client.get(), FLOOR_START, nothing, nullptr, nothing, nullptr, timeout) == RPC_SUCCESS;
}

// The least that a start takes: fork, exec of the shell, exec of a bare libtirpc server, its registration, one call,
// tried every 0.2 ms. Returns microseconds.
double FloorStart(const std::string &image) {
    const double begin = NowUs();
    const pid_t child = fork();
    if (child == 0) {
        (void)execl("/bin/csh", "csh", image.c_str(), nullptr);
        _exit(127);
    }
    while (!CallStart(child)) {
        if (NowUs() - begin > 10e6) throw std::runtime_error("the floor's service does not start");
        SleepUs(200);
    }
    const double time = NowUs() - begin;
    StopProcess(child);
    return time;
}

// The state of the only service. An enumeration only looks; a status query before the first report would declare the
// service failed.
std::int32_t StateOfService(CLIENT *client) {
    const servd_SERV_ENUM_STATUS_SERVICE everything = {0, SERVICE_WIN32, SERVICE_STATE_ALL, 10000};
    const auto reply = CallForAnswer(client, everything);
    return reply.record.services->status.dwCurrentState;
}

void AwaitState(CLIENT *client, std::int32_t state) {
    if (!WaitUntil([&] { return StateOfService(client) == state; })) {
        throw std::runtime_error(fmt::format("the sample service does not come to state {}", state));
    }
}

// Starts the service and stops it again. Returns what the start took, microseconds.
double MeasureStartOnce(CLIENT *client, std::int32_t handle) {
    const double begin = NowUs();
    const auto reply = CallForAnswer(client, servd_SERV_START_SERVICE{handle, nullptr, 0});
    const double time = NowUs() - begin;
    if (reply.record.status != 0) throw std::runtime_error(fmt::format("the start answers {}", reply.record.status));
    AwaitState(client, SERVICE_RUNNING);
    (void)CallForAnswer(client, servd_SERV_CONTROL_SERVICE{handle, SERVICE_CONTROL_STOP});
    AwaitState(client, SERVICE_STOPPED);
    return time;
}

std::int32_t OpenService(CLIENT *client, const std::string &name) {
    const auto reply = CallForAnswer(client, servd_SERV_OPEN_SERVICE{Text(name.c_str()), 0xF01FF});
    if (reply.record.status != 0) throw std::runtime_error(name + " cannot be opened");
    return reply.record.handle;
}

void MeasureOneByOne(Bench &bench, const std::string &folder) {
    const std::string image = WriteImage(folder, "sample", ProgramPath("tvsample") + " --log /dev/null");
    const std::string floorImage = WriteImage(folder, "floor", ProgramPath("floor_rpc") + " service");
    const pid_t tvregd = StartRegistryDaemon(folder + "/one.db");
    WriteService("sample", SERVICE_DEMAND_START, image);
    const pid_t servd = StartServiceDaemon();
    const RpcClient client = DialServiceDaemon();
    const std::int32_t handle = OpenService(client.get(), "sample");

    std::vector<Figures> measured, floor;
    for (int i = 0; i < bench.rounds; ++i) {
        std::vector<double> times, floorTimes;
        for (int sample = 0; sample < Samples(bench, 30); ++sample) {
            floorTimes.push_back(FloorStart(floorImage));
            times.push_back(MeasureStartOnce(client.get(), handle));
        }
        floor.push_back({Median(floorTimes), Percentile(floorTimes, 99), 0});
        measured.push_back({Median(times), Percentile(times, 99), 0});
    }
    const Comparison result = Summarise(measured, floor);
    AddRow(bench,
           {"start of a service", "prompt", result.measured, result.floor, {"time / floor", result.ratio, 1.10}});
    StopDaemons({tvregd, servd});
}

// The time from the launch of the daemon to its first answer, less that of a daemon without automatic services.
void MeasureInARow(Bench &bench, const std::string &folder) {
    const std::string image = WriteImage(folder, "sample", ProgramPath("tvsample") + " --log /dev/null");
    const std::string floorImage = WriteImage(folder, "floor", ProgramPath("floor_rpc") + " service");
    const pid_t tvregd = StartRegistryDaemon(folder + "/row.db");
    for (int i = 1; i <= automaticServices; ++i) {
        WriteService(ServiceName(i), SERVICE_AUTO_START, image);
    }
    std::vector<Figures> measured, floor;
    for (int i = 0; i < bench.rounds; ++i) {
        std::vector<double> floorTimes;
        for (int sample = 0; sample < 20; ++sample) {
            floorTimes.push_back(FloorStart(floorImage));
        }
        floor.push_back({Median(floorTimes), Percentile(floorTimes, 99), 0});
        const double begin = NowUs();
        const pid_t servd = StartServiceDaemon();
        const double each = (NowUs() - begin) / automaticServices;
        measured.push_back({each, each, 0});
        const std::vector<pid_t> started = ChildrenOf(servd);
        if (started.size() != automaticServices) throw std::runtime_error("not all automatic services run");
        (void)StopDaemon(servd);
        for (const pid_t process : started) {
            StopProcess(process); // ours by now
        }
    }
    const Comparison result = Summarise(measured, floor);
    AddRow(bench, {"automatic start, each of 100 in a row",
                   "prompt",
                   result.measured,
                   result.floor,
                   {"time / floor", result.ratio, 1.15}});
    (void)StopDaemon(tvregd);
}

} // namespace

void MeasureStart(Bench &bench) {
    if (!bench.isWanted("start of a service")) return;
    const std::string folder = MakeScratchFolder();
    MeasureOneByOne(bench, folder);
    MeasureInARow(bench, folder);
}
