// SPDX-License-Identifier: MIT
// service_world: starting the two daemons, and services of tvsample.
#include "tests/support/service_world.h"

#include "servd/limits.h"
#include "svcapi/pid_file.h"

#include <csignal>
#include <filesystem>

std::string ServiceWorld::folder;
pid_t ServiceWorld::registryDaemon;
pid_t ServiceWorld::serviceDaemon;

void ServiceWorld::SetUpTestSuite() {
    folder = MakeScratchFolder();
    std::filesystem::permissions(folder, std::filesystem::perms::all); // services of other users write logs there
    registryDaemon = StartRegistryDaemon(folder + "/registry.db");
    serviceDaemon = StartServiceDaemon();
    CreateSample("zero");
}

void ServiceWorld::TearDownTestSuite() { EndAllProcesses(); }

std::string ServiceWorld::ReadLog(const std::string &service) {
    return std::filesystem::exists(LogOf(service)) ? ReadFile(LogOf(service)) : "";
}

Ended ServiceWorld::Tvsc(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), ProgramPath("tvsc"));
    return RunAndRead({.command = std::move(arguments)}, 90000);
}

std::string ServiceWorld::Do(std::vector<std::string> arguments) {
    const Ended ended = Tvsc(std::move(arguments));
    EXPECT_EQ(ended.status, 0) << ended.output << ended.error;
    // On a busy machine a start may take the daemon longer than tvsc waits for it in silence.
    static const std::string busy =
        "tvsc: the daemon is busy; it serves one request at a time, and a start may take it " +
        std::to_string(longestStartSec) + " s\n";
    if (ended.error != busy) {
        EXPECT_EQ(ended.error, "");
    }
    return ended.output;
}

std::string ServiceWorld::Fail(int status, std::vector<std::string> arguments) {
    const Ended ended = Tvsc(std::move(arguments));
    EXPECT_EQ(ended.status, status) << ended.output << ended.error;
    return ended.error;
}

void ServiceWorld::CreateSample(const std::string &service, const std::string &options,
                                const std::vector<std::string> &further) {
    const std::string script = ScriptOf(service);
    WriteFile(script,
              "#!/bin/csh -f\nexec '" + ProgramPath("tvsample") + "' --log '" + LogOf(service) + "' " + options + "\n");
    std::vector<std::string> command = {"create", service, "--image", script};
    command.insert(command.end(), further.begin(), further.end());
    (void)Do(command);
}

pid_t ServiceWorld::ProcessOf(const std::string &service) { return ReadPidFile(service); }

void ServiceWorld::KillProcessOf(const std::string &service) {
    const pid_t process = ProcessOf(service);
    if (process == 0) throw std::runtime_error(service + " has no process");
    kill(process, SIGKILL);
    if (!WaitUntil([&] { return ProcessOf(service) == 0; })) throw std::runtime_error(service + " cannot be killed");
}
