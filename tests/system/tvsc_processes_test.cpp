// SPDX-License-Identifier: MIT
// What tvsc tells and does about services whose processes are gone, about those that others need, and about disabled
// ones; against both daemons and real service processes.
#include "tests/support/service_world.h"
#include "tv/winsvc.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <thread>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

using Json = nlohmann::json;

struct TvscProcesses : ServiceWorld {
    static Json StatusOf(const std::string &service) {
        return Json::parse(ServiceWorld::Tvsc({"status", service, "--json"}).output).at("services").at(0);
    }
    static std::string StateOf(const std::string &service) { return StatusOf(service).at("state"); }
    static int StatusOfRun(std::vector<std::string> arguments) { return Tvsc(std::move(arguments)).status; }
    // Creates and starts a service and kills its process. Returns the process id.
    pid_t StartAndKill() {
        CreateSample(name);
        (void)Do({"start", name});
        const pid_t process = ProcessOf(name);
        KillProcessOf(name);
        return process;
    }
    // Two services, the second one depending on the first one, both running.
    void StartPair() {
        CreateSample(name + "-1");
        CreateSample(name + "-2", "", {"--depends", name + "-1"});
        (void)Do({"start", name + "-2", "--with-deps"});
    }
};

// --- a process that is gone ---

TEST_F(TvscProcesses, a_process_that_is_gone_is_told_by_every_look) {
    const std::string gone = "running, but process " + std::to_string(StartAndKill()) + " is gone";
    EXPECT_THAT(Do({"list", name}), AllOf(HasSubstr(gone), HasSubstr("0 running"), HasSubstr("1 without its process")));
    const Ended status = Tvsc({"status", name});
    EXPECT_THAT(status.output, HasSubstr(gone));
    EXPECT_EQ(status.status, 1);
    EXPECT_THAT(Do({"show", name}), HasSubstr(gone));
    EXPECT_THAT(Do({"deps", name}), "");
    EXPECT_EQ(StatusOfRun({"is-active", name}), 1);
    EXPECT_EQ(StatusOfRun({"is-failed", name}), 0);
    EXPECT_EQ(StatusOfRun({"is-healthy", name}), 1);
    const Json json = StatusOf(name);
    EXPECT_EQ(json.at("state"), "running") << "looking must not change it";
    EXPECT_EQ(json.at("process_gone"), true);
}

TEST_F(TvscProcesses, a_living_process_is_told_with_its_time) {
    CreateSample(name);
    (void)Do({"start", name});
    const std::string process = std::to_string(ProcessOf(name));
    EXPECT_THAT(Do({"list", name}), AllOf(HasSubstr("PID"), HasSubstr("UPTIME"), HasSubstr(process + "  ")));
    EXPECT_THAT(Do({"status", name}), HasSubstr("process: " + process + ", for "));
    EXPECT_EQ(StatusOf(name).at("process_gone"), false);
    EXPECT_EQ(StatusOfRun({"is-healthy", name}), 0);
}

TEST_F(TvscProcesses, a_fresh_look_settles_a_process_that_is_gone) {
    (void)StartAndKill();
    const Ended fresh = Tvsc({"status", "--fresh", name});
    EXPECT_EQ(fresh.status, 1);
    EXPECT_THAT(fresh.error, HasSubstr("the daemon knows it now"));
    EXPECT_EQ(StateOf(name), "stopped");
    EXPECT_EQ(StatusOf(name).at("exit").at("win32"), ERROR_PROCESS_ABORTED);
}

TEST_F(TvscProcesses, a_probe_settles_a_process_that_is_gone) {
    (void)StartAndKill();
    EXPECT_EQ(StatusOfRun({"status", "--probe", name}), 1);
    EXPECT_EQ(StateOf(name), "stopped");
}

TEST_F(TvscProcesses, a_start_of_one_whose_process_is_gone_starts_it) {
    const pid_t before = StartAndKill();
    const Ended started = Tvsc({"start", name});
    EXPECT_EQ(started.output, name + ": running\n");
    EXPECT_THAT(started.error, HasSubstr("process " + std::to_string(before) + " is gone"));
    EXPECT_NE(ProcessOf(name), 0);
}

TEST_F(TvscProcesses, a_stop_of_one_whose_process_is_gone_is_done) {
    (void)StartAndKill();
    EXPECT_EQ(Tvsc({"stop", name}).output, name + ": stopped\n");
    EXPECT_EQ(StateOf(name), "stopped");
}

TEST_F(TvscProcesses, a_crash_before_the_first_report_is_settled_by_the_start_that_failed) {
    CreateSample(name, "--silent");
    std::thread killer([this] {
        if (WaitUntil([this] { return ProcessOf(name) != 0; })) KillProcessOf(name);
    });
    EXPECT_THAT(Fail(1, {"start", name}),
                AllOf(HasSubstr("died while start pending"), HasSubstr("stopped now (1067)")));
    killer.join();
    EXPECT_EQ(StateOf(name), "stopped");
    EXPECT_EQ(StatusOf(name).at("exit").at("win32"), ERROR_PROCESS_ABORTED);
}

// Its process lives: nothing may be reported in its place.
TEST_F(TvscProcesses, a_start_that_takes_too_long_leaves_the_record_alone_and_names_reset) {
    CreateSample(name, "--silent");
    EXPECT_THAT(Fail(151, {"start", name, "--timeout", "300ms"}), HasSubstr("tvsc reset " + name));
    EXPECT_EQ(StateOf(name), "start_pending");
}

TEST_F(TvscProcesses, healthy_is_a_database_whose_automatic_services_all_run) {
    CreateSample(name, "", {"--start", "auto"});
    const Ended ended = Tvsc({"is-healthy"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.error, HasSubstr(name + ": stopped\n"));
    EXPECT_THAT(ended.error, Not(HasSubstr("zero")));
    EXPECT_EQ(Json::parse(Tvsc({"is-healthy", name, "--json"}).output).at("schema"), "tvsc.status/1");
    EXPECT_EQ(StatusOfRun({"is-healthy", "unknown-service"}), 4);
    (void)Do({"config", name, "--start", "demand"});
}

// --- services that others need ---

TEST_F(TvscProcesses, restart_refuses_while_a_dependent_runs_and_takes_both_ways_out) {
    StartPair();
    const pid_t first = ProcessOf(name + "-1");
    const pid_t second = ProcessOf(name + "-2");
    EXPECT_THAT(Fail(153, {"restart", name + "-1"}), HasSubstr("--with-dependents or --force"));
    EXPECT_EQ(ProcessOf(name + "-1"), first);
    EXPECT_EQ(Do({"restart", name + "-1", "--with-dependents"}),
              name + "-2: stopped\n" + name + "-1: stopped\n" + name + "-1: running\n" + name + "-2: running\n");
    EXPECT_NE(ProcessOf(name + "-2"), second);
    const pid_t untouched = ProcessOf(name + "-2");
    EXPECT_EQ(Do({"restart", name + "-1", "--force"}), name + "-1: stopped\n" + name + "-1: running\n");
    EXPECT_EQ(ProcessOf(name + "-2"), untouched);
}

TEST_F(TvscProcesses, delete_refuses_a_running_service) {
    CreateSample(name);
    (void)Do({"start", name});
    EXPECT_THAT(Fail(1, {"delete", name}), HasSubstr("running; use --stop"));
    EXPECT_EQ(StateOf(name), "running");
}

TEST_F(TvscProcesses, delete_stops_no_service_that_another_one_needs) {
    StartPair();
    EXPECT_THAT(Fail(153, {"delete", name + "-1", "--stop"}), HasSubstr(name + "-2 runs and depends on it"));
    EXPECT_EQ(StateOf(name + "-1"), "running");
    EXPECT_THAT(Do({"delete", name + "-1", "--stop", "--with-dependents", "--wait"}),
                HasSubstr(name + "-1: deleted\n"));
    EXPECT_EQ(StateOf(name + "-2"), "stopped");
}

// --- disabled ones ---

TEST_F(TvscProcesses, a_disabled_service_is_started_by_force_only) {
    CreateSample(name, "", {"--start", "disabled"});
    EXPECT_THAT(Fail(6, {"start", name}), AllOf(HasSubstr("1058 ERROR_SERVICE_DISABLED"), HasSubstr("tvsc enable")));
    EXPECT_EQ(StateOf(name), "stopped");
    EXPECT_EQ(Do({"start", name, "--force"}), name + ": running\n");
}

// --- what is said of a command line ---

TEST_F(TvscProcesses, a_wrong_command_line_names_the_command_and_comes_as_json) {
    EXPECT_THAT(Fail(2, {"create", "x", "--start"}), HasSubstr("tvsc: create: --start"));
    EXPECT_THAT(Fail(2, {"lock", "release", "--id", "x"}), HasSubstr("tvsc: lock release: "));
    const Ended wrong = Tvsc({"--json", "create", "x", "--frob"});
    EXPECT_EQ(wrong.status, 2);
    const Json json = Json::parse(wrong.output);
    EXPECT_EQ(json.at("schema"), "tvsc.action/1");
    EXPECT_EQ(json.at("results").at(0).at("name"), "create");
    EXPECT_EQ(json.at("results").at(0).at("exit_status"), 2);
    EXPECT_THAT(std::string(json.at("results").at(0).at("text")), HasSubstr("--frob"));
}

TEST_F(TvscProcesses, commands_are_suggested_by_letters_exchanged_and_not_by_short_words) {
    EXPECT_THAT(Fail(2, {"strat"}), HasSubstr("did you mean start?"));
    EXPECT_THAT(Fail(2, {"top"}), Not(HasSubstr("did you mean")));
}

TEST_F(TvscProcesses, list_of_what_is_not_there_exits_5) {
    CreateSample(name);
    EXPECT_THAT(Fail(5, {"list", "no-such-service"}), HasSubstr("1060"));
    const Ended both = Tvsc({"list", "--names-only", name, "no-such-service"});
    EXPECT_EQ(both.status, 5);
    EXPECT_EQ(both.output, name + "\n");
}

// --- terminals ---

std::string AtTerminal(const std::string &columns, const std::string &command, const std::string &environment = "") {
    const std::string line = "stty cols " + columns + "; " + environment + " LC_ALL=C.UTF-8 TERM=xterm '" +
                             ProgramPath("tvsc") + "' " + command;
    return RunAndRead({.command = {"/usr/bin/script", "-qec", line, "/dev/null"}}).output;
}

std::size_t LongestLine(const std::string &text) {
    std::size_t longest = 0;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::size_t columns = 0;
        for (const char c : line) {
            columns += (c & 0xC0) != 0x80 && c != '\r' ? 1u : 0u; // every character here is one column wide
        }
        longest = std::max(longest, columns);
    }
    return longest;
}

TEST_F(TvscProcesses, a_list_is_no_wider_than_its_terminal) {
    CreateSample(name, "", {"--display", std::string(150, 'd'), "--group", std::string(40, 'g')});
    for (const std::string columns : {"60", "80", "200"}) {
        const std::string shown = AtTerminal(columns, "--color never list " + name);
        EXPECT_LE(LongestLine(shown), std::stoul(columns)) << shown;
        EXPECT_THAT(shown, HasSubstr(name.substr(0, 5)));
    }
    EXPECT_THAT(Do({"list", name}), HasSubstr(std::string(150, 'd'))) << "a pipe gets all of it";
}

TEST_F(TvscProcesses, colours_are_for_terminals_that_want_them) {
    CreateSample(name);
    const std::string escape = "\x1B[";
    EXPECT_THAT(AtTerminal("80", "list " + name), HasSubstr(escape));
    EXPECT_THAT(AtTerminal("80", "list " + name, "NO_COLOR=1"), Not(HasSubstr(escape)));
    EXPECT_THAT(AtTerminal("80", "--color never list " + name), Not(HasSubstr(escape)));
    EXPECT_THAT(Do({"list", name}), Not(HasSubstr(escape)));
    EXPECT_THAT(Do({"--color", "always", "list", name}), HasSubstr(escape));
}

} // namespace
