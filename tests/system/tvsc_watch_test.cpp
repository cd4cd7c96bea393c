// SPDX-License-Identifier: MIT
// What tvsc shows of services over time: watch, timeline and the trace of calls; against both daemons.
#include "tests/support/service_world.h"
#include "tv/winreg.h"
#include "tv/winsvc.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <csignal>
#include <sstream>

using testing::AllOf;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

using Json = nlohmann::json;

struct TvscWatch : ServiceWorld {
    const std::string seen = folder + "/" + name + ".seen";
    const std::string said = folder + "/" + name + ".said";

    pid_t Watch(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {ProgramPath("tvsc"), "watch", "--interval", "50ms"});
        return StartProgram({.command = std::move(arguments), .outputFile = seen, .errorFile = said});
    }
    void WaitFor(const std::string &text) const {
        EXPECT_TRUE(WaitUntil([&] { return ReadWhatIsThere(seen).find(text) != std::string::npos; }))
            << text << " is not in\n"
            << ReadWhatIsThere(seen);
    }
    static std::vector<Json> LinesOf(const std::string &text) {
        std::vector<Json> lines;
        std::istringstream stream(text);
        for (std::string line; std::getline(stream, line);) {
            lines.push_back(Json::parse(line));
        }
        return lines;
    }
    static std::size_t CountOf(const std::string &what, const std::string &text) {
        std::size_t count = 0;
        for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size())) {
            ++count;
        }
        return count;
    }
};

// --- watch ---

TEST_F(TvscWatch, a_pipe_gets_one_line_a_change) {
    CreateSample(name);
    const pid_t watch = Watch({name, "--initial"});
    WaitFor(name + ": -> stopped\n");
    (void)Do({"start", name});
    WaitFor("running, process " + std::to_string(ProcessOf(name)) + "\n");
    KillProcessOf(name);
    WaitFor("is gone\n");
    (void)Do({"reset", name});
    WaitFor("is gone -> failed 1067\n");
    (void)Do({"delete", name, "--wait"});
    WaitFor(" -> not there any more\n");
    kill(watch, SIGINT);
    const int status = WaitForEnd(watch);
    EXPECT_EQ(WEXITSTATUS(status), 130);
    EXPECT_EQ(ReadFile(said), "") << "the end of a watch is no accident";
    EXPECT_LE(CountOf("\n", ReadFile(seen)), 7u);
}

TEST_F(TvscWatch, events_are_lines_of_json) {
    CreateSample(name);
    const pid_t watch = Watch({"--json", name + "*"});
    (void)WaitUntil([&] { return ReadWhatIsThere(said) != ""; }, 300); // its first look tells nothing
    (void)Do({"start", name});
    WaitFor("\"to\":\"running\"");
    CreateSample(name + "-later");
    WaitFor("\"event\":\"appeared\"");
    kill(watch, SIGTERM);
    (void)WaitForEnd(watch);
    const std::vector<Json> events = LinesOf(ReadFile(seen));
    ASSERT_GE(events.size(), 2u);
    for (const Json &event : events) {
        EXPECT_EQ(event.at("schema"), "tvsc.event/1");
        EXPECT_THAT(std::string(event.at("time")), ContainsRegex("^20..-..-..T..:..:..\\....Z$"));
    }
    EXPECT_EQ(events.front().at("name"), name);
    EXPECT_EQ(events.front().at("from"), "stopped");
    EXPECT_EQ(events.back().at("name"), name + "-later");
    EXPECT_EQ(events.back().at("from"), nullptr);
}

// A query would declare a service dead that has said nothing since its start.
TEST_F(TvscWatch, a_look_is_enumerations_and_touches_no_service) {
    CreateSample(name, "--silent");
    (void)Tvsc({"start", name, "--no-wait"});
    const Ended watched = Tvsc({"--trace", "watch", "--interval", "50ms", "--count", "4", name + "*"});
    EXPECT_EQ(watched.status, 0);
    EXPECT_EQ(CountOf("ENUM_STATUS_SERVICE(", watched.error), 8u) << "two classes, each asked once a look";
    EXPECT_EQ(CountOf("CONTROL_SERVICE(", watched.error), CountOf("CONTROL_SERVICE(0, 0)", watched.error));
    EXPECT_THAT(watched.error, Not(HasSubstr("QUERY_STATUS_SERVICE")));
    EXPECT_THAT(watched.error, Not(HasSubstr("\"" + name + "\"")));
    EXPECT_EQ(Json::parse(Do({"status", name, "--json"})).at("services").at(0).at("state"), "start_pending");
    KillProcessOf(name);
    (void)Do({"reset", name});
}

TEST_F(TvscWatch, a_daemon_that_does_not_answer_is_told_and_found_again) {
    const pid_t watch = Watch({"--call-timeout", "300ms", "--json"});
    SleepMs(300);
    kill(serviceDaemon, SIGSTOP);
    WaitFor("daemon_lost");
    kill(serviceDaemon, SIGCONT);
    WaitFor("daemon_answers");
    kill(watch, SIGINT);
    (void)WaitForEnd(watch);
    EXPECT_EQ(CountOf("daemon_lost", ReadFile(seen)), 1u);
}

TEST_F(TvscWatch, a_watch_ends_with_its_reader) {
    const std::string command = "'" + ProgramPath("tvsc") + "' watch --initial --interval 50ms | head -n 1";
    const Ended ended = RunAndRead({.command = {"/bin/bash", "-c", "set -o pipefail; " + command}});
    EXPECT_EQ(ended.status, 128 + SIGPIPE);
    EXPECT_EQ(CountOf("\n", ended.output), 1u);
}

TEST_F(TvscWatch, a_name_that_means_nothing_is_not_watched) {
    EXPECT_EQ(Tvsc({"watch", "no-such-service"}).status, 5);
    EXPECT_EQ(Tvsc({"watch", "no-such-*", "--count", "1"}).status, 0) << "one may come";
    EXPECT_EQ(Tvsc({"watch", "--interval", "1ms"}).status, 2);
}

// --- waits ---

TEST_F(TvscWatch, a_wait_is_shown_at_a_terminal_and_nowhere_else) {
    CreateSample(name, "--start-ms 1800 --stop-ms 1800 --hint-ms 9000");
    const auto atTerminal = [](const std::string &words) {
        const std::string line = ProgramPath("tvsc") + " " + words;
        return RunAndRead({.command = {"/usr/bin/script", "-qec", line, "/dev/null"}}, 60000).output;
    };
    const std::string begin = "\x1B[?7l\r", end = "\x1B[K\x1B[?7h", erased = "\r\x1B[K";
    const std::string started = atTerminal("start " + name), stopped = atTerminal("stop " + name);
    EXPECT_THAT(started, StartsWith(begin + name + ": start pending, 1 s (check point "));
    EXPECT_THAT(started, HasSubstr(", hint 9000 ms)" + end));
    EXPECT_THAT(started, EndsWith(end + erased + name + ": running\r\n"));
    EXPECT_THAT(stopped, StartsWith(begin + name + ": stop pending, 1 s ("));
    EXPECT_THAT(stopped, EndsWith(end + erased + name + ": stopped\r\n"));
    EXPECT_EQ(Do({"start", name}), name + ": running\n") << "without a word on stderr";
    EXPECT_EQ(atTerminal("--quiet stop " + name), "");
    EXPECT_THAT(atTerminal("--json start " + name), AllOf(StartsWith("{"), Not(HasSubstr("pending"))));
    (void)Do({"stop", name});
}

TEST_F(TvscWatch, a_wait_that_is_in_vain_is_erased_too) {
    CreateSample(name, "--start-ms 30000");
    const std::string line = ProgramPath("tvsc") + " start --timeout 1500ms " + name;
    const std::string told = RunAndRead({.command = {"/usr/bin/script", "-qec", line, "/dev/null"}}, 60000).output;
    EXPECT_THAT(told, HasSubstr("\x1B[?7h\r\x1B[Ktvsc: " + name + ": still start pending: 1460"));
    KillProcessOf(name);
}

// --- the trace ---

TEST_F(TvscWatch, a_trace_tells_calls_arguments_codes_and_times) {
    CreateSample(name);
    const Ended traced = Tvsc({"--trace", "start", name, "--", "one", "two"});
    EXPECT_THAT(traced.error, AllOf(ContainsRegex("tvsc: dial\\(\"localhost\"\\) = answered  [0-9]+\\.[0-9]{3} ms\n"),
                                    HasSubstr("OPEN_SERVICE(\"" + name + "\", "),
                                    ContainsRegex("START_SERVICE\\([0-9]+, \\[\"one\", \"two\"\\], 2\\) = 0  ")));
    EXPECT_THAT(
        Tvsc({"--trace", "name", "a \"\x1B[31m\" name"}).error,
        AllOf(HasSubstr("GET_DISPLAY_SERVICE(\"a \\\"\\x1b[31m\\\" name\") = 1060 ERROR_SERVICE_DOES_NOT_EXIST"),
              Not(HasSubstr("\x1B"))));
    EXPECT_THAT(Tvsc({"--trace", "--host", "127.0.0.9:", "ping"}).error, HasSubstr("= no answer: 1722"));
    EXPECT_EQ(Tvsc({"status", name}).error, "");
}

// What the look for its name has opened is worked with.
TEST_F(TvscWatch, a_start_and_a_stop_open_their_service_once) {
    CreateSample(name);
    for (const char *action : {"start", "stop"}) {
        const Ended traced = Tvsc({"--trace", action, name});
        EXPECT_EQ(traced.status, 0);
        EXPECT_EQ(CountOf(" OPEN_SERVICE(\"" + name + "\"", traced.error), 1u) << traced.error;
        EXPECT_EQ(CountOf(" CLOSE_SERVICE(", traced.error), CountOf(" OPEN_SERVICE(", traced.error)) << traced.error;
    }
}

// A service that somebody has open is not deleted before its time.
TEST_F(TvscWatch, a_start_of_several_holds_none_open_but_the_one_at_hand) {
    const std::string other = std::string(name) + "2";
    CreateSample(name);
    CreateSample(other);
    const Ended traced = Tvsc({"--trace", "start", name, other});
    EXPECT_EQ(traced.status, 0) << traced.error;
    const std::string before = traced.error.substr(0, traced.error.find(" START_SERVICE("));
    EXPECT_EQ(CountOf(" OPEN_SERVICE(", before), CountOf(" CLOSE_SERVICE(", before) + 1) << traced.error;
}

// --- the timeline ---

// Last: the daemon is started anew.
struct TvscZTimeline : TvscWatch {
    static Json StepOf(const Json &timeline, const std::string &service) {
        for (const Json &step : timeline.at("services")) {
            if (step.at("name") == service) return step;
        }
        return nullptr;
    }
    static void RestartDaemon() {
        StopDaemon(serviceDaemon);
        (void)Tvsc({"leftovers", "--end"});
        serviceDaemon = StartServiceDaemon();
    }
};

TEST_F(TvscZTimeline, it_tells_each_automatic_start_in_its_turn) {
    const std::string slow = "slow", odd = "odd <&\">", lost = "lost", hand = "by hand";
    const std::string isLong = "a service <whose name> goes on & on for longer than a label has room";
    CreateSample(slow, "--start-ms 400", {"--start", "auto"});
    CreateSample(odd, "", {"--start", "auto", "--depends", slow});
    CreateSample(hand);
    CreateSample(isLong, "", {"--start", "auto"});
    WriteService(lost, SERVICE_AUTO_START, folder + "/" + slow + ".csh",
                 {{"DependOnService", REG_SZ, Sz("no-such-user")}});
    RestartDaemon();
    (void)Do({"start", hand});
    const auto runs = [&](const std::string &service) {
        return StepOf(Json::parse(Do({"timeline", "--json"})), service).at("running_after_ms") != nullptr;
    };
    EXPECT_TRUE(WaitUntil([&] { return runs(slow) && runs(odd) && runs(isLong); }));

    const Json timeline = Json::parse(Do({"timeline", "--json"}));
    EXPECT_EQ(timeline.at("schema"), "tvsc.timeline/1");
    EXPECT_EQ(timeline.at("daemon").at("pid"), serviceDaemon);
    const Json first = StepOf(timeline, slow), second = StepOf(timeline, odd);
    EXPECT_EQ(first.at("pid"), ProcessOf(slow));
    EXPECT_LT(int(first.at("position")), int(second.at("position")));
    EXPECT_GE(int(first.at("launched_after_ms")), 0);
    EXPECT_LE(int(first.at("launched_after_ms")), int(first.at("asked_after_ms")) + 10) << "forks are told in ticks";
    EXPECT_GE(int(first.at("running_after_ms")), int(first.at("asked_after_ms")) + 400);
    EXPECT_LE(int(first.at("launched_after_ms")), int(second.at("launched_after_ms")));
    EXPECT_GT(int(timeline.at("daemon").at("answered_after_ms")), 0);
    EXPECT_EQ(StepOf(timeline, lost).at("recorded"), false);
    EXPECT_EQ(StepOf(timeline, hand), nullptr);

    const std::string text =
        RunAndRead({.command = {ProgramPath("tvsc"), "timeline"}, .environment = {"LC_ALL=C"}}).output;
    EXPECT_THAT(text, AllOf(HasSubstr("servd, process " + std::to_string(serviceDaemon) + ", started 20"),
                            HasSubstr("it answered after 0."), ContainsRegex("1  slow  .* s +-+#####"),
                            HasSubstr("no record: its process was not started")));
    const std::string svg = Do({"timeline", "--svg"});
    EXPECT_THAT(svg, AllOf(HasSubstr("<svg xmlns"), HasSubstr("&lt;&amp;&quot;"), HasSubstr("no record of a start")));
    WriteFile(folder + "/timeline.svg", svg);
    const std::string parser = "exec xmllint --noout '" + folder + "/timeline.svg'";
    EXPECT_EQ(RunAndRead({.command = {"/bin/sh", "-c", parser}}).status, 0);
    // By a parser of XML: the names of services, whole and unescaped, and the bars behind each.
    const auto countOf = [&](const std::string &what) {
        const std::string file = folder + "/timeline.svg";
        const Ended parsed =
            RunAndRead({.command = {"/usr/bin/env", "xmllint", "--xpath", "count(" + what + ")", file}});
        return std::atoi(parsed.output.c_str());
    };
    const auto labelOf = [](const std::string &service) {
        const std::string quote = service.find('"') == std::string::npos ? "\"" : "'";
        return "//*[local-name()='text'][concat(text(), *[local-name()='tspan'])=" + quote + service + quote + "]";
    };
    for (const std::string &service : {slow, odd, isLong}) {
        EXPECT_EQ(countOf(labelOf(service)), 1) << service;
        EXPECT_EQ(countOf(labelOf(service) + "/following-sibling::*[position()<=3][local-name()='rect']"), 2)
            << service << ": its launch and its start";
    }
    EXPECT_EQ(countOf(labelOf(lost)), 1);
    EXPECT_EQ(countOf(labelOf(lost) + "/following-sibling::*[1][local-name()='rect']"), 0);
    EXPECT_EQ(countOf("//*[local-name()='title'][.=\"" + isLong + "\"]"), 1) << "shown where the pointer rests";

    // What came after the daemon had begun to answer does not count for its start.
    (void)Do({"restart", odd});
    const Json again = StepOf(Json::parse(Do({"timeline", "--json"})), odd);
    EXPECT_EQ(again.at("started_again"), true);
    EXPECT_EQ(again.at("pid"), second.at("pid"));
    EXPECT_EQ(again.at("running_after_ms"), second.at("running_after_ms"));
    EXPECT_THAT(Do({"timeline"}), HasSubstr("started again"));
    DeleteKey(servicesKey + "\\" + lost);
}

TEST_F(TvscZTimeline, an_automatic_start_that_leaves_nothing_is_no_timeline) {
    RestartDaemon();
    for (const std::string &service : ReadSubKeys(servicesKey)) {
        (void)Do({"config", service, "--start", "demand"});
    }
    const Ended ended = Tvsc({"timeline"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.error, HasSubstr("has left a record"));
    EXPECT_EQ(Tvsc({"--host", "127.0.0.1,localhost", "timeline"}).status, 2);
}

} // namespace
