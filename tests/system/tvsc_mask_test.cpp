// SPDX-License-Identifier: MIT
// Services that nobody can start, and services that are reset together with what is left of them; against both daemons
// and real service processes.
#include "svcapi/process_stat.h"
#include "tests/support/service_world.h"
#include "tests/support/value_bytes.h"
#include "tv/winreg.h"
#include "tv/winsvc.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <sstream>
#include <thread>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

using Json = nlohmann::json;

constexpr char accountValue[] = "DependOnService";

struct TvscMask : ServiceWorld {
    Json StatusOf(const std::string &service) {
        return Json::parse(Tvsc({"status", service, "--json"}).output).at("services").at(0);
    }
    std::string StateOf(const std::string &service) { return StatusOf(service).at("state"); }
    std::string AccountOf(const std::string &service) { return ReadValue(KeyOf(service), accountValue)->data; }
};

// --- masked services -----------------------------------------------------------------------------------------------

TEST_F(TvscMask, nobody_starts_a_masked_service) {
    CreateSample(name);
    CreateSample(name + "-needs", "", {"--depends", name});
    EXPECT_EQ(Do({"--dry-run", "mask", name}), name + ": would be masked\n");
    EXPECT_FALSE(ReadValue(KeyOf(name), accountValue));
    EXPECT_EQ(Do({"mask", name}), name + ": masked\n");
    EXPECT_EQ(Do({"mask", name}), name + ": masked already\n");
    for (const std::vector<std::string> &start : {std::vector<std::string>{"start", name},
                                                  {"start", "--force", name},
                                                  {"start", "--with-deps", name + "-needs"}}) {
        EXPECT_THAT(Fail(6, start), AllOf(HasSubstr(name + ": not started: it is masked: 1058"),
                                          HasSubstr("try: tvsc unmask " + name)));
    }
    EXPECT_EQ(Tvsc({"sc", "start", name}).status, 3) << "a client that asks the daemon straight";
    EXPECT_EQ(StateOf(name), "stopped");
    EXPECT_EQ(ReadLog(name), "") << "its program was never run";
    EXPECT_THAT(Tvsc({"doctor"}).output, HasSubstr("it is masked"));
    EXPECT_EQ(Do({"unmask", name}), name + ": unmasked\n");
    EXPECT_EQ(Do({"unmask", name}), name + ": not masked\n");
    EXPECT_FALSE(ReadValue(KeyOf(name), accountValue));
    EXPECT_EQ(Do({"start", "--with-deps", name + "-needs"}), name + ": running\n" + name + "-needs: running\n");
}

TEST_F(TvscMask, a_masked_service_keeps_its_account_and_its_start_type) {
    CreateSample(name, "", {"--user", "root", "--start", "auto"});
    Do({"mask", name});
    EXPECT_EQ(AccountOf(name), Sz(":masked:root"));
    EXPECT_THAT(Fail(6, {"config", name, "--user", "daemon"}), HasSubstr("it is masked; first: tvsc unmask " + name));
    const std::string file = folder + "/" + name + ".toml";
    WriteFile(file, Do({"export", name}));
    EXPECT_EQ(Do({"apply", file}), name + ": unchanged\n");
    Do({"delete", "--wait", name});
    EXPECT_EQ(Do({"apply", file}), name + ": created\n");
    EXPECT_EQ(AccountOf(name), Sz(":masked:root")) << "what is exported masked comes back masked";
    EXPECT_EQ(Do({"clone", name, name + "-2"}), name + "-2: created\n");
    EXPECT_THAT(Fail(6, {"start", name + "-2"}), HasSubstr("it is masked"));
    Do({"unmask", name});
    EXPECT_EQ(AccountOf(name), Sz("root"));
    EXPECT_EQ(ReadValue(KeyOf(name), "Start")->data, Dword(SERVICE_AUTO_START));
    EXPECT_EQ(Do({"start", name}), name + ": running\n");
}

TEST_F(TvscMask, a_running_service_runs_on_when_it_is_masked_and_is_not_restarted) {
    CreateSample(name);
    Do({"start", name});
    const pid_t process = ProcessOf(name);
    Do({"mask", name});
    EXPECT_THAT(Fail(6, {"restart", name}), HasSubstr(name + ": not restarted: it is masked"));
    EXPECT_EQ(ProcessOf(name), process) << "a restart that cannot start again stops nothing";
    EXPECT_EQ(Do({"stop", name}), name + ": stopped\n");
}

TEST_F(TvscMask, a_restart_with_a_masked_dependent_stops_nothing) {
    CreateSample(name);
    std::vector<pid_t> processes;
    for (const std::string dependent : {"-1", "-2", "-3"}) {
        CreateSample(name + dependent, "", {"--depends", name});
        Do({"start", "--with-deps", name + dependent});
        processes.push_back(ProcessOf(name + dependent));
    }
    Do({"mask", name + "-3"});
    EXPECT_THAT(Fail(6, {"restart", "--with-dependents", name}),
                HasSubstr(name + "-3: not restarted: it is masked: 1058"));
    EXPECT_EQ(processes, (std::vector<pid_t>{ProcessOf(name + "-1"), ProcessOf(name + "-2"), ProcessOf(name + "-3")}));
}

// Its account goes while it runs: it stays stopped, and the others do not.
TEST_F(TvscMask, a_dependent_that_cannot_be_started_again_keeps_no_other_one_down) {
    CreateSample(name);
    for (const std::string dependent : {"-1", "-2", "-3"}) {
        CreateSample(name + dependent, "", {"--depends", name});
        Do({"start", "--with-deps", name + dependent});
    }
    WriteKey(KeyOf(name + "-3"), {{accountValue, REG_SZ, Sz("nobody-here")}});
    EXPECT_NE(Tvsc({"restart", "--with-dependents", name}).status, 0);
    EXPECT_EQ(StateOf(name + "-1"), "running");
    EXPECT_EQ(StateOf(name + "-2"), "running");
    EXPECT_EQ(StateOf(name + "-3"), "stopped");
}

TEST_F(TvscMask, a_restart_of_a_disabled_service_stops_nothing_unless_it_is_forced) {
    CreateSample(name);
    Do({"start", name});
    const pid_t process = ProcessOf(name);
    Do({"disable", name});
    EXPECT_THAT(Fail(6, {"restart", name}),
                AllOf(HasSubstr("1058"), HasSubstr("tvsc restart --force " + name), Not(HasSubstr("masked"))));
    EXPECT_EQ(ProcessOf(name), process);
    Do({"restart", "--force", name});
    EXPECT_NE(ProcessOf(name), process);
}

TEST_F(TvscMask, a_dry_run_refuses_what_the_command_refuses) {
    CreateSample(name + "-1");
    CreateSample(name + "-2", "", {"--depends", name + "-1"});
    const auto expectSame = [this](int status, const std::vector<std::string> &words) {
        std::vector<std::string> dry = words;
        dry.insert(dry.begin(), "--dry-run");
        EXPECT_EQ(Tvsc(dry).status, status) << testing::PrintToString(dry);
        EXPECT_EQ(Tvsc(words).status, status) << testing::PrintToString(words);
    };
    expectSame(153, {"start", name + "-2"});
    Do({"start", "--with-deps", name + "-2"});
    expectSame(153, {"stop", name + "-1"});
    expectSame(153, {"restart", name + "-1"});
    EXPECT_THAT(Do({"--dry-run", "stop", "--force", name + "-1"}), HasSubstr("1 step,"));
    Do({"mask", name + "-2"});
    expectSame(6, {"restart", "--with-dependents", name + "-1"});
    expectSame(6, {"restart", "--force", name + "-2"});
    Do({"stop", name + "-2"});
    expectSame(6, {"start", name + "-2"});
    Do({"stop", name + "-1"});
    Do({"disable", name + "-1"});
    expectSame(6, {"start", name + "-1"});
    expectSame(0, {"start", "--force", name + "-1"});
}

TEST_F(TvscMask, a_plan_shows_a_disabled_dependency_that_a_dry_run_refuses) {
    CreateSample(name + "-1", "", {"--start", "disabled"});
    CreateSample(name + "-2", "", {"--depends", name + "-1"});
    EXPECT_THAT(Do({"plan", "start", name + "-2"}), AllOf(HasSubstr(name + "-1  start"), HasSubstr("2 steps, ")));
    EXPECT_EQ(Tvsc({"--dry-run", "start", "--with-deps", name + "-2"}).status, 6);
}

TEST_F(TvscMask, a_masked_service_is_not_missed_and_explain_tells_how_it_is_started) {
    CreateSample(name, "", {"--start", "auto"});
    EXPECT_THAT(Tvsc({"is-healthy"}).error, HasSubstr(name + ": stopped"));
    Do({"mask", name});
    EXPECT_THAT(Tvsc({"is-healthy"}).error, Not(HasSubstr(name + ":")));
    EXPECT_EQ(Tvsc({"is-healthy", name}).status, 1) << "named, it counts";
    EXPECT_THAT(Tvsc({"explain", name}).output, HasSubstr("next: tvsc unmask " + name + "\n"));
}

TEST_F(TvscMask, what_reads_the_registry_tells_a_mask) {
    CreateSample(name, "", {"--start", "auto", "--user", "root"});
    CreateSample(name + "-2");
    const auto configOf = [&](const std::vector<std::string> &words) {
        return Json::parse(Do(words)).at("services").at(0).at("config");
    };
    EXPECT_THAT(Do({"list", name}), Not(HasSubstr("masked")));
    EXPECT_THAT(Do({"show", name}), Not(HasSubstr("masked")));
    EXPECT_EQ(configOf({"--json", "show", name}).at("masked"), false);
    EXPECT_EQ(Do({"show", "-p", "masked", name}), "false\n");
    Do({"mask", name});
    EXPECT_THAT(Do({"list"}), testing::ContainsRegex(name + " +stopped +masked "));
    EXPECT_THAT(Do({"list", name}), HasSubstr(" masked ")) << "asked of the daemon, too";
    EXPECT_THAT(Do({"list", name + "-2"}), Not(HasSubstr("masked")));
    EXPECT_THAT(Do({"--host", "localhost,127.0.0.1", "list", name}), HasSubstr(" masked "));
    EXPECT_THAT(Do({"show", name}),
                AllOf(HasSubstr("    start: auto; masked, nobody can start it\n"), HasSubstr("  account: root\n")));
    EXPECT_EQ(Do({"show", "-p", "masked", name}), "true\n");
    for (const char *look : {"list", "show"}) {
        EXPECT_EQ(configOf({"--json", look, name}).at("masked"), true) << look;
        EXPECT_EQ(configOf({"--json", look, name}).at("start"), "auto") << look;
        EXPECT_EQ(configOf({"--json", look, name}).at("account"), ":masked:root") << look;
    }
    EXPECT_THAT(Do({"explain", name}), HasSubstr(name + ": it is masked\n"));
    EXPECT_THAT(Tvsc({"doctor"}).output, HasSubstr(name + ": it is masked\n"));
    EXPECT_THAT(RunAndRead({.command = {ProgramPath("tvreg"), "lint"}}).output, Not(HasSubstr(name + ": its account")));
}

TEST_F(TvscMask, the_plan_of_the_boot_leaves_a_masked_service_out_and_says_so) {
    CreateSample(name + "-2");
    CreateSample(name, "", {"--start", "auto", "--depends", name + "-2"});
    Do({"mask", name});
    const Json plan = Json::parse(Do({"--json", "plan", "boot"}));
    std::vector<std::string> steps, masked;
    for (const Json &step : plan.at("steps")) {
        steps.push_back(step.at("name"));
    }
    for (const Json &remark : plan.at("remarks")) {
        if (remark.at("kind") == "masked") masked.push_back(remark.at("name"));
    }
    EXPECT_THAT(steps, AllOf(testing::Contains(name + "-2"), Not(testing::Contains(name))));
    EXPECT_THAT(masked, testing::Contains(name)) << "others may be left of the tests before";
    EXPECT_THAT(Do({"plan", "boot"}), HasSubstr("\n! " + name + ": masked: not started, and nobody can start it\n"));
}

// The daemon hands the start of such a service to a process that may run already.
TEST_F(TvscMask, a_service_of_a_shared_process_cannot_be_masked) {
    CreateSample(name, "", {"--type", "share"});
    EXPECT_THAT(Fail(1, {"mask", name}), HasSubstr("of a shared process"));
    EXPECT_FALSE(ReadValue(KeyOf(name), accountValue));
}

// --- reset with --kill ---------------------------------------------------------------------------------------------

struct TvscReset : TvscMask {
    std::string HintOf(const std::string &service) { return "/run/tv/services/" + service + ".pid"; }
    static bool HasEnded(pid_t process) {
        ProcessStat stat;
        return !ReadProcessStat(process, &stat) || stat.state == 'Z';
    }
    // A service that runs on and that the daemon has as stopped.
    pid_t StartAndForget() {
        CreateSample(name);
        Do({"start", name});
        const pid_t process = ProcessOf(name);
        Do({"reset", name});
        EXPECT_EQ(StateOf(name), "stopped");
        EXPECT_FALSE(HasEnded(process));
        return process;
    }
};

TEST_F(TvscReset, without_kill_it_tells_what_it_leaves_alone) {
    CreateSample(name);
    Do({"create", name + "-hosted", "--", "/bin/sh", "-c", "sleep 1000; :"});
    Do({"start", name, name + "-hosted"});
    const std::string what = "left alone: process " + std::to_string(ProcessOf(name)) + " (tvsample); --kill ends that";
    EXPECT_EQ(Do({"--dry-run", "reset", name}), name + ": would be stopped, 1067; " + what + "\n");
    EXPECT_EQ(StateOf(name), "running");
    EXPECT_EQ(Do({"reset", name}), name + ": stopped, 1067; " + what + "\n");
    EXPECT_EQ(Do({"reset", name}), name + ": already stopped; " + what + "\n");
    EXPECT_EQ(Json::parse(Do({"reset", name, "--json"})).at("results").at(0).at("text"), "already stopped; " + what);
    EXPECT_THAT(Do({"reset", name + "-hosted"}), AllOf(HasSubstr(" (tvhost), process "), HasSubstr(" (sh), process "),
                                                       HasSubstr(" (sleep); --kill ends that")));
    KillProcessOf(name);
    EXPECT_EQ(Do({"reset", name}), name + ": already stopped\n");
}

TEST_F(TvscReset, without_kill_it_tells_whose_else_a_process_is) {
    CreateSample(name);
    CreateSample(name + "-other");
    Do({"start", name + "-other"});
    WriteFile(HintOf(name), ReadFile(HintOf(name + "-other")));
    EXPECT_THAT(Do({"reset", name}), HasSubstr(" (tvsample); that is of " + name + "-other, too"));
    std::filesystem::remove(HintOf(name));
}

TEST_F(TvscReset, kill_ends_the_process_that_is_left_of_a_service) {
    const pid_t process = StartAndForget();
    const std::string what = "process " + std::to_string(process) + " (tvsample)";
    EXPECT_EQ(Do({"--dry-run", "reset", "--kill", name}), name + ": already stopped; would end " + what + "\n");
    EXPECT_FALSE(HasEnded(process));
    EXPECT_EQ(Do({"reset", "--kill", "-y", name}), name + ": stopped; ended " + what + "\n");
    EXPECT_TRUE(HasEnded(process));
    EXPECT_EQ(Do({"reset", "--kill", "-y", name}), name + ": already stopped\n");
    EXPECT_EQ(Do({"start", name}), name + ": running\n");
}

TEST_F(TvscReset, kill_ends_an_active_service_that_takes_no_control) {
    CreateSample(name);
    Do({"start", name});
    const pid_t process = ProcessOf(name);
    kill(process, SIGSTOP);
    EXPECT_THAT(Do({"reset", "--kill", "-y", "--timeout", "200ms", name}), HasSubstr(": stopped; ended process "));
    EXPECT_TRUE(HasEnded(process));
    EXPECT_EQ(StateOf(name), "stopped");
    EXPECT_EQ(StatusOf(name).at("exit").at("win32"), ERROR_PROCESS_ABORTED);
}

TEST_F(TvscReset, kill_without_a_yes_tells_what_it_would_end_and_asks_nobody) {
    const pid_t process = StartAndForget();
    const std::string what = "process " + std::to_string(process) + " (tvsample)";
    EXPECT_THAT(Fail(2, {"reset", "--kill", name}), HasSubstr(name + ": would end " + what + "; -y does it"));
    EXPECT_FALSE(HasEnded(process));
    const Ended terminal = RunAndRead(
        {.command = {"/usr/bin/script", "-qec", ProgramPath("tvsc") + " reset --kill " + name, "/dev/null"}}, 60000);
    EXPECT_THAT(terminal.output, AllOf(HasSubstr("-y does it"), Not(HasSubstr("[y/N]"))));
    EXPECT_EQ(terminal.status, 2);
    EXPECT_FALSE(HasEnded(process));
}

TEST_F(TvscReset, kill_ends_no_process_that_may_be_another_one) {
    CreateSample(name);
    for (const std::string &hint : {std::to_string(getpid()) + " 1\n", std::to_string(getpid()) + "\n"}) {
        WriteFile(HintOf(name), hint); // of this test, by number only
        EXPECT_EQ(Do({"reset", "--kill", "-y", name}), name + ": already stopped\n");
    }
    std::filesystem::remove(HintOf(name));
    CreateSample(name + "-other");
    Do({"start", name, name + "-other"});
    const pid_t other = ProcessOf(name + "-other");
    WriteFile(HintOf(name), ReadFile(HintOf(name + "-other")));
    EXPECT_THAT(Fail(1, {"reset", "--kill", "-y", name}),
                HasSubstr("process " + std::to_string(other) + " (tvsample) is that of " + name +
                          "-other, too; nothing is ended: 1056"));
    EXPECT_FALSE(HasEnded(other));
    EXPECT_EQ(StateOf(name), "running");
}

TEST_F(TvscReset, kill_spares_the_process_of_a_service_that_is_marked_for_deletion) {
    CreateSample(name);
    CreateSample(name + "-marked");
    Do({"start", name, name + "-marked"});
    const pid_t other = ProcessOf(name + "-marked");
    // Its own handle keeps it: the deletion of a running service only marks it.
    EXPECT_EQ(Tvsc({"sc", "delete", name + "-marked"}).status, 0);
    WriteFile(HintOf(name), ReadFile(HintOf(name + "-marked")));
    EXPECT_THAT(Fail(1, {"reset", "--kill", "-y", name}), HasSubstr(" is that of " + name + "-marked, too"));
    EXPECT_FALSE(HasEnded(other));
}

TEST_F(TvscReset, kill_spares_what_tvhost_runs_for_another_service) {
    CreateSample(name);
    Do({"create", name + "-other", "--", "/bin/sleep", "1000"});
    Do({"start", name, name + "-other"});
    const pid_t program = StatusOf(name + "-other").at("program").at("pid");
    WriteFile(HintOf(name), std::to_string(program) + " " + std::to_string(StartOfProcess(program)) + "\n");
    EXPECT_THAT(Fail(1, {"reset", "--kill", "-y", name}), HasSubstr(" is that of " + name + "-other, too"));
    EXPECT_FALSE(HasEnded(program));
}

TEST_F(TvscReset, kill_is_not_kept_from_it_by_a_hint_whose_number_another_process_has_got) {
    CreateSample(name);
    CreateSample(name + "-other");
    Do({"start", name, name + "-other"});
    const std::string process = std::to_string(ProcessOf(name));
    KillProcessOf(name + "-other");
    WriteFile(HintOf(name + "-other"), process + " 1\n");
    EXPECT_THAT(Do({"reset", "--kill", "-y", name}), HasSubstr("stopped; ended process " + process));
}

TEST_F(TvscReset, kill_ends_what_is_forked_while_it_waits) {
    const std::string pids = folder + "/" + name + ".pids";
    const std::string child = "trap \"\" TERM; exec sleep 1000";
    Do({"create", name, "--", "/bin/sh", "-c",
        "trap '' TERM; while :; do sh -c '" + child + "' & echo $! >>" + pids + "; sleep 0.2; done", "sh"});
    Do({"start", name});
    Do({"reset", name});
    EXPECT_THAT(Do({"reset", "--kill", "-y", "--timeout", "2s", name}), HasSubstr(" of them since\n"));
    std::istringstream children(ReadFile(pids));
    int count = 0;
    for (pid_t process = 0; children >> process; ++count) {
        EXPECT_TRUE(HasEnded(process)) << process;
    }
    EXPECT_GT(count, 8);
}

TEST_F(TvscReset, kill_waits_once_for_all_processes) {
    Do({"create", name, "--", "/bin/sh", "-c",
        "trap '' TERM; for i in 1 2 3 4; do (while :; do sleep 1; done) & done; wait; while :; do sleep 1; done",
        "sh"});
    Do({"start", name});
    Do({"reset", name});
    const auto begin = std::chrono::steady_clock::now();
    Do({"reset", "--kill", "-y", "--timeout", "2s", name});
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(4));
}

// Who is active takes a call for each record: configurations are read for nothing else.
TEST_F(TvscReset, asks_for_the_active_services_once_whatever_the_number_of_names) {
    const auto readConfigs = [](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "--trace");
        const Ended reset = Tvsc(arguments);
        EXPECT_EQ(reset.status, 0) << reset.error;
        std::size_t count = 0;
        for (std::size_t at = 0; (at = reset.error.find("QUERY_CONFIG_SERVICE(", at)) != std::string::npos; ++at) {
            ++count;
        }
        return count;
    };
    CreateSample(name);
    CreateSample(name + "-2");
    CreateSample(name + "-3");
    Do({"start", name, name + "-2", name + "-3"});
    const std::size_t once = readConfigs({"--dry-run", "reset", name});
    EXPECT_GT(once, 0u);
    EXPECT_EQ(readConfigs({"--dry-run", "reset", "--kill", name, name + "-2", name + "-3"}), once);
    EXPECT_EQ(readConfigs({"reset", name, name + "-2", name + "-3"}), once);
}

TEST_F(TvscReset, a_service_that_it_has_declared_stopped_shares_no_process_any_more) {
    CreateSample(name);
    CreateSample(name + "-twin");
    Do({"start", name});
    WriteFile(HintOf(name + "-twin"), ReadFile(HintOf(name)));
    const std::string left = "left alone: process " + std::to_string(ProcessOf(name)) + " (tvsample); ";
    const std::string twin = name + "-twin: already stopped; " + left;
    EXPECT_EQ(Do({"--dry-run", "reset", name + "-twin"}), twin + "that is of " + name + ", too\n");
    EXPECT_EQ(Do({"--dry-run", "reset", name, name + "-twin"}),
              name + ": would be stopped, 1067; " + left + "--kill ends that\n" + twin + "--kill ends that\n");
    EXPECT_EQ(Do({"reset", name, name + "-twin"}),
              name + ": stopped, 1067; " + left + "--kill ends that\n" + twin + "--kill ends that\n");
    std::filesystem::remove(HintOf(name + "-twin"));
    KillProcessOf(name);
}

// The first process does not end before the other service has come to share the second one.
TEST_F(TvscReset, kill_spares_the_process_of_a_service_that_was_started_while_it_waited) {
    CreateSample(name);
    CreateSample(name + "-second");
    CreateSample(name + "-other");
    Do({"start", name});
    const pid_t process = ProcessOf(name);
    kill(process, SIGSTOP);
    std::thread starter([&] {
        const std::string status = "/proc/" + std::to_string(process) + "/status";
        EXPECT_TRUE(WaitUntil([&] { return ReadFile(status).find("ShdPnd:\t0000000000004000") != std::string::npos; }));
        Do({"start", name + "-other"});
        WriteFile(HintOf(name + "-second"), ReadFile(HintOf(name + "-other")));
        kill(process, SIGKILL);
    });
    const std::string error = Fail(1, {"reset", "--kill", "-y", name, name + "-second"});
    starter.join();
    EXPECT_THAT(error, HasSubstr(" is that of " + name + "-other, too; nothing is ended: 1056"));
    EXPECT_FALSE(HasEnded(ProcessOf(name + "-other")));
    std::filesystem::remove(HintOf(name + "-second"));
}

// The new run is told by its hint alone, as soon as the signal is pending for the former one.
TEST_F(TvscReset, kill_leaves_a_service_alone_that_is_started_again_meanwhile) {
    CreateSample(name);
    Do({"start", name});
    const pid_t process = ProcessOf(name);
    kill(process, SIGSTOP);
    const pid_t next = StartProgram({.command = {"/bin/sleep", "1000"}});
    std::thread starter([&] {
        const std::string status = "/proc/" + std::to_string(process) + "/status";
        EXPECT_TRUE(WaitUntil([&] { return ReadFile(status).find("ShdPnd:\t0000000000004000") != std::string::npos; }));
        WriteFile(HintOf(name), std::to_string(next) + " " + std::to_string(StartOfProcess(next)) + "\n");
    });
    const std::string error = Fail(1, {"reset", "--kill", "-y", "--timeout", "5s", name});
    starter.join();
    EXPECT_THAT(error, HasSubstr("ended process " + std::to_string(process) +
                                 " (tvsample); started again since, as process " + std::to_string(next)));
    EXPECT_EQ(StateOf(name), "running") << "it was not declared dead";
    std::filesystem::remove(HintOf(name));
    kill(next, SIGKILL);
}

TEST_F(TvscReset, kill_ends_tvhost_and_what_it_runs) {
    Do({"create", name, "--", "/bin/sh", "-c", "trap '' TERM; while :; do sleep 1; done", "sh"});
    Do({"start", name});
    const pid_t program = StatusOf(name).at("program").at("pid"), host = ProcessOf(name);
    Do({"reset", name});
    EXPECT_FALSE(HasEnded(host) || HasEnded(program));
    EXPECT_THAT(Do({"reset", "--kill", "-y", "--timeout", "1s", name}),
                AllOf(StartsWith(name + ": stopped; ended process " + std::to_string(host) + " (tvhost), process " +
                                 std::to_string(program) + " (sh)")));
    EXPECT_TRUE(HasEnded(host) && HasEnded(program));
}

TEST_F(TvscReset, kill_is_for_this_machine_and_yes_is_for_kill) {
    EXPECT_EQ(Tvsc({"reset", "-y", "zero"}).status, 2);
    CreateSample(name);
    Do({"start", name});
    const pid_t process = ProcessOf(name);
    // An address by which this machine is reached, and which is not known as its own.
    EXPECT_THAT(Tvsc({"--host", "0.0.0.0", "reset", "--kill", "-y", "--timeout", "1s", name}).error,
                HasSubstr("processes of another machine are out of reach"));
    EXPECT_FALSE(HasEnded(process));
}

// --- with another daemon, last -------------------------------------------------------------------------------------

TEST_F(TvscReset, zz_a_masked_service_is_not_started_with_the_daemon_and_holds_up_nobody) {
    CreateSample(name, "", {"--start", "auto"});
    CreateSample(name + "-needs", "", {"--start", "auto", "--depends", name}); // the daemon tries it for this one, too
    CreateSample(name + "-alone", "", {"--start", "auto"});
    Do({"mask", name});
    Do({"daemon", "stop"});
    serviceDaemon = StartServiceDaemon();
    EXPECT_EQ(StateOf(name), "stopped");
    EXPECT_EQ(StateOf(name + "-alone"), "running");
    EXPECT_EQ(ReadLog(name), "");
}

} // namespace
