// SPDX-License-Identifier: MIT
// command_line: what a person types, from the launch of tvsc to its end, beside an empty program and beside what the
// daemon and the service need between themselves.
#include "bench/measure/rows.h"
#include "bench/measure/servers.h"
#include "tv/winsvc.h"

#include <fmt/core.h>
#include <spawn.h>

#include <fcntl.h>

namespace {

using Words = std::vector<std::string>;

// Runs a program to its end; what it prints goes nowhere. Throws where it ends with another status than `expected`.
void Run(const Words &command, int expected = 0) {
    std::vector<char *> words;
    words.reserve(command.size() + 1);
    for (const std::string &word : command) {
        words.push_back(const_cast<char *>(word.c_str()));
    }
    words.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    (void)posix_spawn_file_actions_init(&actions);
    (void)posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t process = 0;
    const int rc = posix_spawn(&process, words[0], &actions, nullptr, words.data(), environ);
    (void)posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    if (rc != 0 || waitpid(process, &status, 0) != process || !WIFEXITED(status) || WEXITSTATUS(status) != expected) {
        throw std::runtime_error(fmt::format("{} does not end as it should", command[0]));
    }
}

struct TypedCommand {
    std::string name; // of the row
    Words words;
    int status = 0;
    std::optional<double> limit = {}; // of the time with 1,000 services, beside the empty program's
};

// The limits were set as milliseconds on a machine whose empty program took so long.
constexpr double emptyProgramMs = 0.56;

const std::vector<TypedCommand> lookCommands = {
    {"tvsc status NAME", {"tvsc", "status", ServiceName(50)}, 3, 2 / emptyProgramMs},
    {"tvsc is-active NAME", {"tvsc", "is-active", ServiceName(50)}, 3, 2 / emptyProgramMs},
};
const std::vector<TypedCommand> listCommands = {
    {"tvsc list --brief", {"tvsc", "list", "--brief"}, 0, 5 / emptyProgramMs},
    {"tvsc list", {"tvsc", "list"}, 0, 40 / emptyProgramMs},
    {"tvsc list --json", {"tvsc", "list", "--json"}, 0, 45 / emptyProgramMs},
    {"tvsc order", {"tvsc", "order"}, 0, {}},
};

// How often a command is run, on all services and in all; one that goes over ten times as many takes so much longer.
struct Turns {
    int rounds;
    int samples;
};

Turns TurnsFor(const Bench &bench, int services) {
    if (services <= 1000) return {bench.rounds, Samples(bench, 20)};
    return {std::min(bench.rounds, 3), Samples(bench, 5)};
}

// Adds the row of a command. Returns what it took at best.
double MeasureCommand(Bench &bench, const TypedCommand &command, int services) {
    Words words = command.words;
    words[0] = ProgramPath(words[0]);
    const Side measured = {[&] { Run(words, command.status); }};
    const Side floor = {[] { Run({ProgramPath("floor_process")}); }};
    const Turns turns = TurnsFor(bench, services);
    const Comparison result = CompareInRounds(measured, floor, turns.rounds, turns.samples);
    AddRow(bench, {command.name,
                   Thousands(services),
                   result.measured,
                   result.floor,
                   {"time / empty program", result.ratio, services == 1000 ? command.limit : std::nullopt}});
    return result.measured.p10;
}

std::vector<double> MeasureCommands(Bench &bench, const std::vector<TypedCommand> &commands, int services) {
    const Daemons daemons = StartDaemons(MakeRegistry(services));
    std::vector<double> best;
    for (const TypedCommand &command : commands) {
        best.push_back(MeasureCommand(bench, command, services));
    }
    StopDaemons(daemons);
    return best;
}

void AddGrowth(Bench &bench, const std::string &what, double small, double large) {
    AddRow(bench, {what, "growth", {}, {}, {"10,000 / 1,000", large / small, 11.0}});
}

void MeasureGrowthOfLists(Bench &bench) {
    (void)MeasureCommands(bench, listCommands, 100);
    const std::vector<double> small = MeasureCommands(bench, listCommands, 1000);
    const std::vector<double> large = MeasureCommands(bench, listCommands, 10000);
    for (std::size_t i = 0; i < listCommands.size(); ++i) {
        AddGrowth(bench, listCommands[i].name, small[i], large[i]);
    }
}

// Services as one file of registry text, read into a registry that has them already after the first time: what is
// written is acknowledged either way.
double MeasureImportOf(Bench &bench, int services) {
    const std::string folder = MakeScratchFolder();
    const std::string text = folder + "/services.reg";
    pid_t tvregd = StartRegistryDaemon(MakeRegistry(services));
    Run({ProgramPath("tvreg"), "export", "HKLM\\" + servicesKey, text});
    (void)StopDaemon(tvregd);
    tvregd = StartRegistryDaemon(folder + "/imported.db");
    const double best = MeasureCommand(bench, {"tvreg import", {"tvreg", "import", text}}, services);
    (void)StopDaemon(tvregd);
    return best;
}

void MeasureGrowthOfImport(Bench &bench) {
    (void)MeasureImportOf(bench, 100);
    const double small = MeasureImportOf(bench, 1000);
    AddGrowth(bench, "tvreg import", small, MeasureImportOf(bench, 10000));
}

void Require(std::int32_t status) {
    if (status != 0) throw std::runtime_error(fmt::format("the daemon answers {}", status));
}

template <typename Function>
double TimeOf(Function function) {
    const double begin = NowUs();
    function();
    return NowUs() - begin;
}

Figures FiguresOf(const std::vector<double> &times) {
    return {Median(times), Percentile(times, 99), 0, Percentile(times, 10)};
}

// A service that is started and stopped, and a client that is connected already.
struct StartedService {
    CLIENT *client;
    std::string name;
    std::int32_t handle;
};

StartedService OpenService(CLIENT *client, const std::string &name) {
    const auto opened = CallForAnswer(client, servd_SERV_OPEN_SERVICE{Borrowed(name.c_str()), SERVICE_ALL_ACCESS});
    Require(opened.record.status);
    return {client, name, opened.record.handle};
}

// By enumeration, which only looks: a status query before the first report would declare the service failed.
std::int32_t StateOf(const StartedService &service) {
    const servd_SERV_ENUM_STATUS_SERVICE everything = {0, SERVICE_WIN32, SERVICE_STATE_ALL, 10000};
    const auto reply = CallForAnswer(service.client, everything);
    for (const svd_enum_status_list_t *link = reply.record.services; link != nullptr; link = link->next) {
        if (link->name == service.name) return link->status.dwCurrentState;
    }
    throw std::runtime_error(service.name + " is not listed");
}

void AwaitState(const StartedService &service, std::int32_t state) {
    const double begin = NowUs();
    while (StateOf(service) != state) {
        if (NowUs() - begin > 20e6) throw std::runtime_error("the sample service does not get where it should");
        const timespec pause = {0, 200'000};
        (void)nanosleep(&pause, nullptr);
    }
}

// By that client, which looks every 0.2 ms.
void StartDirectly(const StartedService &service) {
    Require(CallForAnswer(service.client, servd_SERV_START_SERVICE{service.handle, nullptr, 0}).record.status);
    AwaitState(service, SERVICE_RUNNING);
}

void StopDirectly(const StartedService &service) {
    const servd_SERV_CONTROL_SERVICE stop = {service.handle, SERVICE_CONTROL_STOP};
    Require(CallForAnswer(service.client, stop).record.status);
    AwaitState(service, SERVICE_STOPPED);
}

// What a start and a stop take, as tvsc does them, until the service is there, and beside it as that client does them.
struct StartAndStop {
    Comparison start;
    Comparison stop;
    Comparison stopAndLaunch; // with an empty program in the floor
};

StartAndStop CompareStartAndStop(const Bench &bench, const StartedService &service) {
    std::vector<Figures> starts, stops, startFloors, stopFloors, stopFloorsWithLaunch;
    for (int round = 0; round < bench.rounds; ++round) {
        std::vector<double> start, stop, startFloor, stopFloor, stopFloorWithLaunch;
        for (int sample = 0; sample < Samples(bench, 20); ++sample) {
            startFloor.push_back(TimeOf([&] { StartDirectly(service); }));
            stopFloor.push_back(TimeOf([&] { StopDirectly(service); }));
            stopFloorWithLaunch.push_back(stopFloor.back() + TimeOf([] { Run({ProgramPath("floor_process")}); }));
            start.push_back(TimeOf([&] { Run({ProgramPath("tvsc"), "--quiet", "start", service.name}); }));
            stop.push_back(TimeOf([&] { Run({ProgramPath("tvsc"), "--quiet", "stop", service.name}); }));
        }
        starts.push_back(FiguresOf(start));
        stops.push_back(FiguresOf(stop));
        startFloors.push_back(FiguresOf(startFloor));
        stopFloors.push_back(FiguresOf(stopFloor));
        stopFloorsWithLaunch.push_back(FiguresOf(stopFloorWithLaunch));
    }
    return {Summarise(starts, startFloors), Summarise(stops, stopFloors), Summarise(stops, stopFloorsWithLaunch)};
}

void AddStopRows(Bench &bench, const std::string &setting, const StartAndStop &result, std::optional<double> limit) {
    const std::string what = "tvsc stop NAME, until stopped";
    AddRow(bench, {what,
                   setting,
                   result.stop.measured,
                   result.stop.floor,
                   {"time / daemon and service", result.stop.ratio, limit}});
    AddRow(bench, {what,
                   setting,
                   result.stopAndLaunch.measured,
                   result.stopAndLaunch.floor,
                   {"time / these and an empty program", result.stopAndLaunch.ratio}});
}

void MeasureStartAndStop(Bench &bench) {
    const std::string folder = MakeScratchFolder();
    const pid_t tvregd = StartRegistryDaemon(folder + "/start.db");
    for (const char *name : {"first", "sample", "beside"}) { // the first of a machine has calls of its own
        const std::string image = folder + "/" + name;
        WriteFile(image, "exec " + ProgramPath("tvsample") + " --log /dev/null\n", 0755);
        WriteService(name, SERVICE_DEMAND_START, image);
    }
    const pid_t servd = StartServiceDaemon();
    const RpcClient client = DialServiceDaemon();
    const StartedService sample = OpenService(client.get(), "sample");
    const StartAndStop alone = CompareStartAndStop(bench, sample);
    AddRow(bench, {"tvsc start NAME, until running",
                   "prompt",
                   alone.start.measured,
                   alone.start.floor,
                   {"time / daemon and service", alone.start.ratio, 1.5}});
    AddStopRows(bench, "prompt", alone, 2.0);
    const StartedService beside = OpenService(client.get(), "beside");
    StartDirectly(beside);
    AddStopRows(bench, "another running", CompareStartAndStop(bench, sample), {});
    StopDirectly(beside);
    StopDaemons({tvregd, servd});
}

} // namespace

void MeasureCommandLine(Bench &bench) {
    if (bench.isWanted("tvsc")) {
        MeasureStartAndStop(bench);
        (void)MeasureCommands(bench, lookCommands, 1000);
        (void)MeasureCommands(bench, listCommands, 1000);
    }
    if (bench.isWanted("growth of commands")) {
        MeasureGrowthOfLists(bench);
        MeasureGrowthOfImport(bench);
    }
}
