// SPDX-License-Identifier: MIT
// The command line of the services against both daemons and real service processes.
#include "tests/support/service_world.h"
#include "tv/winreg.h"
#include "tv/winsvc.h"
#include "util/base64.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <pwd.h>

#include <algorithm>
#include <cctype>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <thread>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

using Json = nlohmann::json;

struct Tvsc : ServiceWorld {
    Json StatusOf(const std::string &service) {
        const Ended ended = ServiceWorld::Tvsc({"status", service, "--json"});
        return Json::parse(ended.output).at("services").at(0);
    }
    std::string StateOf(const std::string &service) { return StatusOf(service).at("state"); }
    Json Listed(const std::string &service) {
        const Json list = Json::parse(Do({"list", "--json"}));
        for (const Json &one : list.at("services")) {
            if (one.at("name") == service) return one;
        }
        return {};
    }
};

// --- looking ---

TEST_F(Tvsc, list_shows_state_start_type_and_names) {
    CreateSample(name, "", {"--display", "Listed one", "--start", "disabled", "--group", "grp"});
    const std::string list = Do({"list", name});
    EXPECT_THAT(list, AllOf(HasSubstr("NAME"), HasSubstr("Listed one"), HasSubstr("stopped"), HasSubstr("disabled"),
                            HasSubstr("grp"), HasSubstr("1 service: 0 running, 1 stopped, 0 failed, 0 other.")));
}

TEST_F(Tvsc, list_shows_the_service_that_the_daemon_does_not_enumerate) {
    const Json zero = Listed("zero");
    EXPECT_EQ(zero.at("state"), "stopped");
    EXPECT_EQ(zero.at("source"), "peek");
    EXPECT_FALSE(zero.at("complete"));
}

TEST_F(Tvsc, list_filters_by_state_and_pattern) {
    CreateSample(name);
    EXPECT_EQ(Do({"list", "--names-only", name, "--state", "stopped"}), name + "\n");
    EXPECT_EQ(Do({"list", "--names-only", "list_filters*"}), name + "\n");
    EXPECT_EQ(Do({"list", "--names-only", name, "--state", "running"}), "");
}

TEST_F(Tvsc, list_takes_one_class_of_services) {
    CreateSample(name);
    const std::string win32 = Do({"list", "--type", "win32", "--names-only"});
    EXPECT_THAT(win32, AllOf(HasSubstr(name + "\n"), HasSubstr("zero\n"))) << "also the one in record 0";
    EXPECT_EQ(Do({"list", "--type", "driver", "--names-only"}), "");
    CreateSample(name + "-driver", "", {"--type", "kernel"});
    EXPECT_EQ(Do({"list", "--type", "driver", "--names-only"}), name + "-driver\n");
    EXPECT_EQ(Do({"list", "--type", "win32", "--names-only"}), win32);
    Do({"delete", "--wait", name + "-driver"});
    const Ended wrong = ServiceWorld::Tvsc({"list", "--type", "win64"});
    EXPECT_EQ(wrong.status, 2);
    EXPECT_THAT(wrong.error, HasSubstr("none of driver, win32"));
}

TEST_F(Tvsc, list_all_shows_what_is_marked_for_deletion) {
    CreateSample(name);
    CreateSample(name + "_twin", "", {"--display", "One display name"});
    (void)Do({"start", name});
    (void)Do({"delete", name, "--force"});
    EXPECT_THAT(Do({"list", "--names-only"}), Not(HasSubstr(name + "\n")));
    EXPECT_THAT(Do({"list", "--all", "--names-only"}), AllOf(HasSubstr(name + "\n"), HasSubstr(name + "_twin\n")));
    EXPECT_THAT(Do({"list", "--all", name}), AllOf(HasSubstr("running"), HasSubstr("marked for deletion")));
    EXPECT_THAT(Fail(154, {"list", name}), HasSubstr("1072 ERROR_SERVICE_MARKED_FOR_DELETE"));
    const Json json = Json::parse(Do({"list", "--all", name + "*", "--json"}));
    ASSERT_EQ(json.at("services").size(), 2u);
    for (const Json &service : json.at("services")) {
        const bool isMarked = service.at("name") == name;
        EXPECT_EQ(service.contains("listed"), isMarked);
        if (!isMarked) continue;
        EXPECT_EQ(service.at("delete_pending"), true);
        EXPECT_EQ(service.at("state"), "running");
        EXPECT_GT(int(service.at("record")), 0);
    }
    EXPECT_THAT(Do({"list", "--all", "--type", "driver", "--names-only"}), Not(HasSubstr(name)));
    KillProcessOf(name);
}

TEST_F(Tvsc, list_all_tells_marked_services_of_one_display_name_from_those_that_are_never_listed) {
    const std::string display = name + " shown";
    CreateSample(name + "-marked");
    CreateSample(name + "-marked-2", "", {"--display", name + "-marked"});
    CreateSample(name + "-visible", "", {"--display", display});
    CreateSample(name + "-marked-3", "", {"--display", display});
    (void)Do({"sc", "create", name + "-rec", "type=", "rec", "binPath=", folder + "/" + name + "-visible.csh",
              "DisplayName=", display});
    for (const std::string marked : {"-marked", "-marked-2", "-marked-3"}) {
        (void)Do({"start", name + marked});
        (void)Do({"delete", "--force", name + marked});
    }
    std::map<std::string, std::vector<bool>> pending; // by display name
    const Json listed = Json::parse(Do({"list", "--all", "--json"}));
    for (const Json &service : listed.at("services")) {
        const std::string bears = service.at("display_name");
        if (!bears.starts_with(name) || !service.contains("listed")) continue;
        EXPECT_NE(service.at("name"), name + "-visible");
        EXPECT_FALSE(service.contains("config")) << service << ": it has no configuration that can be read";
        pending[bears].push_back(service.at("delete_pending"));
    }
    EXPECT_EQ(pending[name + "-marked"], (std::vector<bool>{true, true}));
    EXPECT_EQ(pending[display], (std::vector<bool>{true, false}));
    EXPECT_THAT(Do({"list", "--all"}), HasSubstr("never listed"));
    const auto hiddenRecords = [](const Json &told) {
        std::vector<DWORD> records;
        for (const Json &service : told.at("services")) {
            if (service.contains("listed")) records.push_back(service.at("record"));
        }
        return records;
    };
    EXPECT_EQ(hiddenRecords(Json::parse(Do({"list", "--all", "*", "--json"}))), hiddenRecords(listed))
        << "each once, also those without a name";
    // Asked for without the machine's users: some machines know a user of any name.
    const std::string calls = ServiceWorld::Tvsc({"--trace", "list", "--all", "--brief"}).error;
    EXPECT_THAT(calls, AllOf(HasSubstr(") = 52 ERROR_DUP_NAME"), Not(HasSubstr(") = 1057 "))));
    for (const std::string marked : {"-marked", "-marked-2", "-marked-3"}) {
        KillProcessOf(name + marked);
    }
    (void)Do({"sc", "delete", name + "-rec"});
}

TEST_F(Tvsc, list_all_shows_what_is_marked_beside_a_service_of_both_classes) {
    CreateSample(name + "-marked");
    (void)Do({"start", name + "-marked"});
    (void)Do({"delete", "--force", name + "-marked"});
    std::size_t hidden = 0;
    const auto countHidden = [&hidden] {
        hidden = 0;
        const Json listed = Json::parse(Do({"list", "--all", "--json"}));
        for (const Json &service : listed.at("services")) {
            hidden += service.contains("listed") ? 1u : 0u;
        }
        return hidden;
    };
    const std::size_t before = countHidden();
    // Each is enumerated twice, as a driver and as none: as many as would make up for what is hidden.
    for (std::size_t i = 0; i < before; ++i) {
        const std::string both = name + "-both-" + std::to_string(i), file = folder + "/" + both + ".toml";
        CreateSample(both);
        std::ofstream(file) << "[services." << both << "]\ntype = 18\n";
        (void)Do({"apply", file});
    }
    EXPECT_EQ(countHidden(), before);
    for (std::size_t i = 0; i < before; ++i) {
        (void)Do({"delete", name + "-both-" + std::to_string(i)});
    }
    KillProcessOf(name + "-marked");
}

// A handle that its program does not live to close keeps a service from going.
TEST_F(Tvsc, list_all_opens_no_service_but_one_whose_display_name_does_not_tell_it) {
    const auto opened = [] {
        const Ended listed = ServiceWorld::Tvsc({"--trace", "list", "--all", "--brief"});
        std::size_t count = 0;
        for (std::size_t at = 0; (at = listed.error.find("OPEN_SERVICE(", at)) != std::string::npos; ++at) {
            ++count;
        }
        EXPECT_THAT(listed.error, HasSubstr("CONTROL_SERVICE("));
        return count;
    };
    CreateSample(name);
    CreateSample(name + "-2");
    const std::size_t before = opened();
    CreateSample(name + "-marked");
    (void)Do({"start", name + "-marked"});
    (void)Do({"delete", "--force", name + "-marked"});
    EXPECT_EQ(opened(), before);
    CreateSample(name + "-twin", "", {"--display", name + "-marked"});
    EXPECT_EQ(opened(), before + 1);
    KillProcessOf(name + "-marked");
}

TEST_F(Tvsc, show_prints_single_values_for_scripts) {
    CreateSample(name, "", {"--display", "Shown \\x41", "--start", "auto", "--depends", "zero,+none"});
    (void)Do({"sc", "description", name, "What it is for"});
    EXPECT_EQ(Do({"show", name, "-p", "start"}), "auto\n");
    EXPECT_EQ(Do({"show", "-p", "display_name", name}), "Shown \\x41\n") << "as it is";
    EXPECT_EQ(Do({"show", name, "-p", "state", "--property", "depends_on", "-p", "display_name", "-p", "pid_hint"}),
              "stopped\nzero,+none\nShown \\x5cx41\n\n");
    EXPECT_EQ(Do({"show", name, "-p", "description"}), "What it is for\n");
    EXPECT_THAT(Do({"show", name}), HasSubstr("    about: What it is for\n"));
    EXPECT_EQ(Json::parse(Do({"show", name, "--json"})).at("services").at(0).at("config").at("description"),
              "What it is for");
    (void)Do({"config", name, "--depends", ""});
    (void)Do({"start", name});
    EXPECT_EQ(Do({"show", name, "-p", "pid_hint", "-p", "state"}), std::to_string(ProcessOf(name)) + "\nrunning\n");
    EXPECT_THAT(Fail(2, {"show", name, "-p", "stat"}), HasSubstr("stat: no such property; did you mean start, state?"));
    EXPECT_THAT(Fail(2, {"show", name, "-p", "xyzzy"}), HasSubstr("none of name, display_name"));
    EXPECT_THAT(Fail(5, {"show", "no-such-service", "-p", "state"}), HasSubstr("1060"));
    (void)Do({"stop", name});
}

// What a script may ask for has one list; the manual has it, too.
TEST_F(Tvsc, show_knows_every_property_that_the_manual_names) {
    CreateSample(name);
    const std::string manual = ReadFile(std::string(std::getenv("TV_SOURCE")) + "/docs/tvsc.1.scd");
    constexpr char listBegins[] = "They are called as in JSON: ", listEnds[] = "account.";
    const std::size_t begin = manual.find(listBegins) + sizeof listBegins - 1;
    std::string list = manual.substr(begin, manual.find(listEnds, begin) + sizeof listEnds - 1 - begin);
    std::replace_if(
        list.begin(), list.end(), [](char c) { return c != '_' && std::isalnum(static_cast<unsigned char>(c)) == 0; },
        ' ');
    std::istringstream listed(list);
    const std::set<std::string> named((std::istream_iterator<std::string>(listed)), {});
    const std::string known = Fail(2, {"show", name, "-p", "xyzzy"});
    std::istringstream words(known.substr(known.find("none of ") + 8));
    std::size_t count = 0;
    for (std::string word; words >> word && word != "Run";) {
        if (word.back() == ',') word.pop_back();
        EXPECT_THAT(named, testing::Contains(word));
        EXPECT_EQ(ServiceWorld::Tvsc({"show", name, "-p", word}).status, 0) << word;
        ++count;
    }
    EXPECT_GT(count, 20u);
}

TEST_F(Tvsc, list_is_what_no_command_means) {
    CreateSample(name);
    EXPECT_EQ(Do({}), Do({"list"}));
    EXPECT_EQ(Json::parse(Do({"--json"})).at("schema"), "tvsc.status/1");
}

// Runs tvsc where text is UTF-8.
std::string InUtf8(const std::string &command, const std::string &argument) {
    return RunAndRead({.command = {ProgramPath("tvsc"), command, argument}, .environment = {"LC_ALL=C.UTF-8"}}).output;
}

TEST_F(Tvsc, names_reach_no_terminal_with_what_it_would_act_on) {
    CreateSample(name, "", {"--display", "A\n\x1B[31mred\xFF\xC3\xBC\x7F"});
    const std::string shown = "A\\x0a\\x1b[31mred\\xff\xC3\xBC\\x7f";
    for (const char *command : {"list", "status", "show", "name"}) {
        EXPECT_THAT(InUtf8(command, name), HasSubstr(shown)) << command;
    }
    EXPECT_THAT(Fail(5, {"start", "\x1B[31m"}), HasSubstr("tvsc: \\x1b[31m: start failed"));
    EXPECT_THAT(Fail(2, {"\x1B[31m"}), StartsWith("tvsc: \\x1b[31m: no such command\n"));
    EXPECT_THAT(Fail(2, {"create", name + "-2", "--image", "/x", "--start", "\x9B"}),
                HasSubstr("tvsc: create: --start: \\x9b: none of "));
    EXPECT_EQ(Fail(127, {"with-lock", "--", "/no/\x1B[31m"}), "tvsc: /no/\\x1b[31m: No such file or directory\n");
}

// Override of direction, isolate, zero-width space, tag, C1 control.
TEST_F(Tvsc, names_that_look_like_others_show_what_is_in_them) {
    CreateSample(name, "",
                 {"--display", "a\xE2\x80\xAE"
                               "b\xE2\x81\xA6"
                               "c\xE2\x80\x8B"
                               "d\xF3\xA0\x81\xA1"
                               "e\xC2\x9B"
                               "f\\x1b"});
    const std::string shown = "a\\xe2\\x80\\xaeb\\xe2\\x81\\xa6c\\xe2\\x80\\x8bd\\xf3\\xa0\\x81\\xa1"
                              "e\\xc2\\x9bf\\x5cx1b";
    for (const char *command : {"list", "status", "show", "name"}) {
        EXPECT_THAT(InUtf8(command, name), HasSubstr(shown)) << command;
    }
}

// Names for a program are bytes; the same command at a terminal shows them as every other does.
TEST_F(Tvsc, list_of_names_reaches_a_pipe_as_it_is_and_a_terminal_printable) {
    const std::string service = name + "-\x1B[31m";
    CreateSample(service);
    EXPECT_EQ(Do({"list", "--names-only", name + "*"}), service + "\n");
    const std::string atTerminal = ProgramPath("tvsc") + " list --names-only '" + name + "*'";
    EXPECT_EQ(RunAndRead({.command = {"/usr/bin/script", "-qec", atTerminal, "/dev/null"}}).output,
              name + "-\\x1b[31m\r\n");
}

TEST_F(Tvsc, columns_are_as_wide_as_they_look) {
    CreateSample(name + "-\xC3\xBC");
    CreateSample(name + "-\xE4\xB8\xAD");
    CreateSample(name + "-xyz");
    EXPECT_THAT(InUtf8("list", name + "*"),
                AllOf(HasSubstr(name + "-\xC3\xBC    stopped"), HasSubstr(name + "-\xE4\xB8\xAD   stopped"),
                      HasSubstr(name + "-xyz  stopped")));
}

TEST_F(Tvsc, list_takes_several_states_and_a_group) {
    CreateSample(name + "-1", "", {"--group", name});
    CreateSample(name + "-2", "", {"--group", name});
    Do({"start", name + "-1"});
    EXPECT_EQ(Do({"list", "--names-only", "--group", name, "--state", "running,stopped"}),
              name + "-1\n" + name + "-2\n");
    EXPECT_EQ(Do({"list", "--names-only", "--group", name, "--state", "paused,running"}), name + "-1\n");
    EXPECT_EQ(Do({"list", "--names-only", "--group", name + "-3"}), "");
}

// A list reads the registry of this machine itself, where a value is not too long for that; show asks the daemon.
TEST_F(Tvsc, list_tells_the_configurations_that_show_tells) {
    CreateSample(name + "-plain");
    CreateSample(name + "-rich", "",
                 {"--display", "Rich", "--start", "disabled", "--group", name, "--depends", name + "-plain", "--user",
                  "nobody"});
    CreateSample(name + "-long", "", {"--group", std::string(600, 'g')});
    const Json list = Json::parse(Do({"list", "--json", name + "*"}));
    ASSERT_EQ(list.at("services").size(), 3U);
    for (const Json &service : list.at("services")) {
        const Json shown = Json::parse(Do({"show", "--json", std::string(service.at("name"))})).at("services").at(0);
        EXPECT_EQ(service.at("type"), shown.at("type"));
        for (const char *member : {"start", "start_code", "error_control", "image_path", "group", "depends_on",
                                   "depends_on_groups", "account"}) {
            EXPECT_EQ(service.at("config").at(member), shown.at("config").at(member)) << service.at("name") << member;
        }
    }
}

// All but the one in record 0, whose configuration the daemon reads there.
TEST_F(Tvsc, the_state_of_a_service_is_told_without_the_registry) {
    CreateSample(name);
    kill(registryDaemon, SIGSTOP);
    const Ended status = ServiceWorld::Tvsc({"--call-timeout", "2", "status", name});
    const Ended isActive = ServiceWorld::Tvsc({"--call-timeout", "2", "is-active", name});
    kill(registryDaemon, SIGCONT);
    EXPECT_EQ(status.status, 3) << status.error;
    EXPECT_THAT(status.output, HasSubstr("state: stopped"));
    EXPECT_EQ(isActive.status, 3) << isActive.error;
}

// Each connection and each dial of the port mapper is a round trip more.
TEST_F(Tvsc, a_look_makes_one_connection_and_none_to_the_registry) {
    CreateSample(name);
    if (RunAndRead({.command = {"/bin/sh", "-c", "strace -o /dev/null /bin/true"}}).status != 0) {
        GTEST_SKIP() << "strace is not installed, or may not trace here";
    }
    const std::string file = folder + "/" + name + ".trace";
    const std::vector<std::string> looks = {"status " + name, "is-active " + name, "is-failed " + name, "list --brief"};
    for (const std::string &look : looks) {
        (void)RunAndRead(
            {.command = {"/bin/sh", "-c",
                         "exec strace -f -e trace=connect,openat -o " + file + " \"$TV_BIN/tvsc\" " + look}});
        std::istringstream lines(ReadFile(file));
        int mapper = 0, others = 0;
        for (std::string line; std::getline(lines, line);) {
            if (line.find("connect(") == std::string::npos || line.find("AF_INET") == std::string::npos) continue;
            ++(line.find("htons(111)") != std::string::npos ? mapper : others);
        }
        EXPECT_EQ(mapper, 1) << look << "\n" << ReadFile(file);
        EXPECT_EQ(others, 1) << look << ": the daemon's, and none to the registry daemon";
    }
}

TEST_F(Tvsc, a_host_may_have_the_name_of_a_command) {
    EXPECT_THAT(Fail(150, {"--host", "list", "ping"}), StartsWith("tvsc: list: the service daemon does not answer"));
    EXPECT_THAT(Fail(2, {"--host", "list", "no-such"}), StartsWith("tvsc: no-such: no such command\n"));
}

TEST_F(Tvsc, status_tells_where_it_is_from) {
    CreateSample(name);
    EXPECT_EQ(StatusOf(name).at("source"), "enumeration");
    EXPECT_EQ(StatusOf("zero").at("source"), "peek");
}

TEST_F(Tvsc, status_tells_state_controls_and_process) {
    CreateSample(name);
    Do({"start", name});
    const Json status = StatusOf(name);
    EXPECT_EQ(status.at("state"), "running");
    EXPECT_EQ(status.at("state_code"), SERVICE_RUNNING);
    EXPECT_EQ(status.at("accepts"), Json::array({"stop", "pause_continue"}));
    EXPECT_EQ(status.at("pid_hint"), ProcessOf(name));
    EXPECT_THAT(Do({"status", name}), HasSubstr("controls: stop, pause, continue"));
}

TEST_F(Tvsc, status_exits_as_the_state_says) {
    CreateSample(name, "--exit-code 5");
    EXPECT_EQ(ServiceWorld::Tvsc({"status", name}).status, 3);
    EXPECT_EQ(ServiceWorld::Tvsc({"is-active", name}).status, 3);
    Do({"start", name});
    EXPECT_EQ(ServiceWorld::Tvsc({"is-active", name}).status, 0);
    EXPECT_EQ(ServiceWorld::Tvsc({"is-failed", name}).status, 1);
    (void)ServiceWorld::Tvsc({"stop", name});
    EXPECT_EQ(ServiceWorld::Tvsc({"status", name}).status, 1);
    EXPECT_EQ(ServiceWorld::Tvsc({"is-failed", name}).status, 0);
    EXPECT_EQ(ServiceWorld::Tvsc({"status", "unknown-service"}).status, 4);
}

TEST_F(Tvsc, an_unknown_name_brings_a_suggestion) {
    CreateSample(name);
    const std::string wrong = name.substr(0, name.size() - 1);
    EXPECT_THAT(Fail(5, {"start", wrong}),
                AllOf(HasSubstr("1060 ERROR_SERVICE_DOES_NOT_EXIST"), HasSubstr("did you mean " + name + "?")));
}

TEST_F(Tvsc, a_display_name_of_two_services_brings_both) {
    CreateSample(name + "-1", "", {"--display", "Display of two"});
    CreateSample(name + "-2", "", {"--display", "Display of two"});
    EXPECT_THAT(Fail(5, {"start", "Display of two"}), HasSubstr("did you mean " + name + "-1, " + name + "-2?"));
}

TEST_F(Tvsc, a_name_is_found_in_another_letter_case_and_by_its_display_name) {
    CreateSample(name, "", {"--display", "Found By This"});
    std::string upper = name;
    for (char &c : upper) {
        c = static_cast<char>(std::toupper(c));
    }
    EXPECT_THAT(Do({"start", upper}), StartsWith(name + ": running"));
    EXPECT_THAT(Do({"stop", "Found By This"}), StartsWith(name + ": stopped"));
}

TEST_F(Tvsc, looking_leaves_no_handle_open) {
    // A service is gone with its last handle: any that was left behind would keep it.
    CreateSample(name);
    Do({"list"});
    Do({"show", name});
    (void)ServiceWorld::Tvsc({"status", "--probe", name});
    Do({"deps", name});
    Do({"dependents", name});
    EXPECT_EQ(Do({"delete", name}), name + ": deleted\n");
}

TEST_F(Tvsc, show_tells_the_configuration) {
    const std::string account = getpwuid(getuid())->pw_name;
    CreateSample(name, "", {"--depends", "zero,+grp", "--start", "auto", "--user", account, "--error", "severe"});
    const Json config = Json::parse(Do({"show", name, "--json"})).at("services").at(0).at("config");
    EXPECT_EQ(config.at("start"), "auto");
    EXPECT_EQ(config.at("error_control"), SERVICE_ERROR_SEVERE);
    EXPECT_EQ(config.at("depends_on"), Json::array({"zero"}));
    EXPECT_EQ(config.at("depends_on_groups"), Json::array({"grp"}));
    EXPECT_EQ(config.at("account"), account);
}

TEST_F(Tvsc, name_translates_both_ways) {
    CreateSample(name, "", {"--display", "Two Names"});
    EXPECT_EQ(Do({"name", name}), name + "\tTwo Names\n");
    EXPECT_EQ(Do({"name", "Two Names"}), name + "\tTwo Names\n");
}

TEST_F(Tvsc, explain_says_what_a_code_means) {
    EXPECT_EQ(Do({"explain", "1068"}),
              "1068 ERROR_SERVICE_DEPENDENCY_FAIL, a service that this one depends on does not run\n");
    EXPECT_THAT(Fail(1, {"explain", "4711"}), HasSubstr("4711"));
}

// --- starting ---

TEST_F(Tvsc, start_hands_over_what_stands_behind_the_dashes) {
    CreateSample(name);
    Do({"start", name, "--", "one", "--two", "with blank"});
    EXPECT_THAT(ReadLog(name), HasSubstr("args=one,--two,with blank\n"));
}

TEST_F(Tvsc, start_waits_until_the_service_runs) {
    CreateSample(name, "--start-ms 700");
    EXPECT_EQ(Do({"start", name}), name + ": running\n");
    EXPECT_EQ(StateOf(name), "running");
}

TEST_F(Tvsc, start_without_waiting_returns_at_once) {
    CreateSample(name, "--start-ms 5000");
    EXPECT_EQ(Do({"start", name, "--no-wait"}), name + ": starting\n");
    EXPECT_EQ(StateOf(name), "start_pending");
}

TEST_F(Tvsc, start_of_a_running_service_is_done_already) {
    CreateSample(name);
    Do({"start", name});
    const pid_t process = ProcessOf(name);
    EXPECT_EQ(Do({"start", name}), name + ": already running\n");
    EXPECT_EQ(ProcessOf(name), process);
}

TEST_F(Tvsc, start_says_which_dependencies_are_stopped) {
    CreateSample(name + "-base");
    CreateSample(name, "", {"--depends", name + "-base"});
    EXPECT_THAT(Fail(153, {"start", name}),
                AllOf(HasSubstr("1068"), HasSubstr(name + "-base is stopped"), HasSubstr("--with-deps")));
}

TEST_F(Tvsc, start_with_dependencies_starts_the_farthest_first) {
    CreateSample(name + "-1");
    CreateSample(name + "-2", "", {"--depends", name + "-1"});
    CreateSample(name + "-3", "", {"--depends", name + "-2"});
    EXPECT_EQ(Do({"start", name + "-3", "--with-deps", "--", "argument"}),
              name + "-1: running\n" + name + "-2: running\n" + name + "-3: running\n");
    EXPECT_THAT(ReadLog(name + "-3"), HasSubstr("args=argument\n"));
    EXPECT_THAT(ReadLog(name + "-1"), HasSubstr("args=\n"));
}

TEST_F(Tvsc, start_tells_that_the_service_died_on_its_way) {
    CreateSample(name, "--start-ms 30000 --hint-ms 60000");
    std::thread killer([this] {
        if (WaitUntil([this] { return ReadLog(name).find("state 2") != std::string::npos; })) KillProcessOf(name);
    });
    EXPECT_THAT(Fail(1, {"start", name}), AllOf(HasSubstr("died while start pending"), HasSubstr("1067")));
    killer.join();
}

TEST_F(Tvsc, start_of_a_service_whose_wait_has_passed_starts_it_again) {
    CreateSample(name);
    Do({"start", name});
    Do({"control", name, "200"}); // announces a wait of two seconds and is silent from then on
    KillProcessOf(name);
    ASSERT_TRUE(WaitUntil([this] { return ServiceWorld::Tvsc({"status", "--fresh", name}).status == 1; }, 10000));
    EXPECT_EQ(Do({"start", name}), name + ": running\n");
}

TEST_F(Tvsc, start_of_a_paused_service_points_to_continue) {
    CreateSample(name);
    Do({"start", name});
    Do({"pause", name});
    EXPECT_THAT(Fail(1, {"start", name}), HasSubstr("try: tvsc continue " + name));
}

TEST_F(Tvsc, start_says_what_is_wrong_with_the_image_of_a_process_that_did_not_register) {
    CreateSample(name);
    WriteKey(servicesKey + "\\" + name, {{"ImagePath", REG_SZ, Sz("/bin/true")}});
    EXPECT_THAT(Fail(1, {"start", name}), AllOf(HasSubstr("1053 ERROR_SERVICE_REQUEST_TIMEOUT"),
                                                HasSubstr("its image /bin/true: a program; the daemon runs csh")));
}

TEST_F(Tvsc, start_that_takes_too_long_exits_151) {
    CreateSample(name, "--start-ms 20000");
    EXPECT_THAT(Fail(151, {"start", name, "--timeout", "300ms"}), HasSubstr("still start pending"));
}

TEST_F(Tvsc, one_failing_name_does_not_stop_the_others) {
    CreateSample(name);
    const Ended ended = ServiceWorld::Tvsc({"start", "unknown-service", name});
    EXPECT_EQ(ended.status, 5);
    EXPECT_EQ(ended.output, name + ": running\n");
}

TEST_F(Tvsc, results_come_as_json) {
    CreateSample(name);
    const Ended ended = ServiceWorld::Tvsc({"start", name, "unknown-service", "--json"});
    EXPECT_EQ(ended.status, 5);
    const Json json = Json::parse(ended.output);
    EXPECT_EQ(json.at("schema"), "tvsc.action/1");
    EXPECT_EQ(json.at("errors").at(0).at("win32"), ERROR_SERVICE_DOES_NOT_EXIST);
    EXPECT_EQ(json.at("errors").at(0).at("symbol"), "ERROR_SERVICE_DOES_NOT_EXIST");
    EXPECT_EQ(json.at("results").size(), 2u);
}

// --- stopping and controlling ---

TEST_F(Tvsc, stop_refuses_while_a_dependent_runs) {
    CreateSample(name + "-1");
    CreateSample(name + "-2", "", {"--depends", name + "-1"});
    Do({"start", name + "-2", "--with-deps"});
    EXPECT_THAT(Fail(153, {"stop", name + "-1"}), HasSubstr(name + "-2 runs and depends on it"));
    EXPECT_EQ(StateOf(name + "-1"), "running");
    EXPECT_EQ(Do({"stop", name + "-1", "--with-dependents"}), name + "-2: stopped\n" + name + "-1: stopped\n");
}

TEST_F(Tvsc, stop_by_force_leaves_dependents_alone) {
    CreateSample(name + "-1");
    CreateSample(name + "-2", "", {"--depends", name + "-1"});
    Do({"start", name + "-2", "--with-deps"});
    EXPECT_EQ(Do({"stop", name + "-1", "--force"}), name + "-1: stopped\n");
    EXPECT_EQ(StateOf(name + "-2"), "running");
}

TEST_F(Tvsc, stop_waits_until_the_service_is_stopped_and_its_process_gone) {
    CreateSample(name, "--stop-ms 600");
    Do({"start", name});
    EXPECT_EQ(Do({"stop", name}), name + ": stopped\n");
    EXPECT_TRUE(WaitUntil([this] { return ProcessOf(name) == 0; }));
    EXPECT_EQ(Do({"stop", name}), name + ": already stopped\n");
}

TEST_F(Tvsc, a_control_that_the_service_does_not_take_exits_3) {
    CreateSample(name, "--controls 1");
    Do({"start", name});
    EXPECT_THAT(Fail(3, {"pause", name}), HasSubstr("1052 ERROR_INVALID_SERVICE_CONTROL"));
}

TEST_F(Tvsc, pause_continue_interrogate_and_user_controls_reach_the_service) {
    CreateSample(name);
    Do({"start", name});
    EXPECT_EQ(Do({"pause", name}), name + ": paused\n");
    EXPECT_EQ(Do({"interrogate", name}), name + ": paused\n");
    EXPECT_EQ(Do({"continue", name}), name + ": running\n");
    EXPECT_EQ(Do({"control", name, "130"}), name + ": running\n");
    EXPECT_THAT(ReadLog(name), HasSubstr("control 2\nstate 7\ncontrol 4\ncontrol 3\nstate 4\ncontrol 130\n"));
}

TEST_F(Tvsc, a_killed_service_shows_at_the_next_control) {
    CreateSample(name);
    Do({"start", name});
    KillProcessOf(name);
    EXPECT_EQ(StateOf(name), "running");
    EXPECT_THAT(Fail(7, {"interrogate", name}), HasSubstr("1062 ERROR_SERVICE_NOT_ACTIVE"));
    EXPECT_EQ(StatusOf(name).at("exit").at("win32"), ERROR_PROCESS_ABORTED);
}

TEST_F(Tvsc, looking_does_not_find_a_passed_wait_but_a_fresh_look_does) {
    CreateSample(name);
    Do({"start", name});
    Do({"control", name, "200"});
    SleepMs(2500);
    EXPECT_EQ(StateOf(name), "continue_pending");
    EXPECT_TRUE(WaitUntil([this] { return ServiceWorld::Tvsc({"status", "--fresh", name}).status == 1; }));
    EXPECT_EQ(StatusOf(name).at("exit").at("win32"), ERROR_PROCESS_ABORTED);
}

TEST_F(Tvsc, reset_forgets_a_dead_service) {
    CreateSample(name);
    Do({"start", name});
    KillProcessOf(name);
    Do({"reset", name});
    EXPECT_EQ(StatusOf(name).at("exit").at("win32"), ERROR_PROCESS_ABORTED);
    EXPECT_EQ(Do({"start", name}), name + ": running\n");
}

// It used to make a failed service of one that was stopped.
TEST_F(Tvsc, reset_leaves_a_stopped_service_alone) {
    CreateSample(name);
    EXPECT_EQ(Do({"reset", name}), name + ": already stopped\n");
    EXPECT_EQ(StatusOf(name).at("exit").at("win32"), 0);
}

TEST_F(Tvsc, restart_and_delete_wait_no_longer_than_told) {
    CreateSample(name, "--start-ms 3000 --stop-ms 3000");
    EXPECT_THAT(Fail(151, {"restart", name, "--timeout", "200ms"}), HasSubstr("still start pending"));
    Do({"wait", name});
    EXPECT_THAT(Fail(151, {"delete", name, "--stop", "--timeout", "200ms"}), HasSubstr("still stop pending"));
}

TEST_F(Tvsc, wait_ends_when_the_state_is_there) {
    CreateSample(name);
    std::thread starter([this] {
        SleepMs(300);
        Do({"start", name});
    });
    EXPECT_EQ(Do({"wait", name, "--for", "running"}), name + ": running\n");
    starter.join();
}

// Starts a tvsc that waits for the service, until it takes interrupts: it has threads then, and opens the service.
pid_t StartWaiting(const std::string &service) {
    const pid_t waiting = StartProgram({.command = {ProgramPath("tvsc"), "wait", service}, .errorFile = "/dev/null"});
    const std::filesystem::path threads = "/proc/" + std::to_string(waiting) + "/task";
    EXPECT_TRUE(WaitUntil([&] {
        return std::distance(std::filesystem::directory_iterator(threads), std::filesystem::directory_iterator()) >= 3;
    }));
    SleepMs(300);
    return waiting;
}

TEST_F(Tvsc, an_interrupt_gives_the_handles_back) {
    CreateSample(name);
    const pid_t waiting = StartWaiting(name);
    kill(waiting, SIGINT);
    const int status = WaitForEnd(waiting);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 130);
    EXPECT_EQ(Do({"delete", name}), name + ": deleted\n");
}

TEST_F(Tvsc, a_closed_terminal_gives_the_handles_back) {
    CreateSample(name);
    const pid_t waiting = StartWaiting(name);
    kill(waiting, SIGHUP);
    const int status = WaitForEnd(waiting);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 128 + SIGHUP);
    EXPECT_EQ(Do({"delete", name}), name + ": deleted\n");
}

// The list is longer than what is gathered before it is written, so that it is written while the service is open.
TEST_F(Tvsc, a_reader_that_has_left_gets_the_handles_given_back_and_no_complaint) {
    std::string dependencies;
    for (int i = 0; i < 25; ++i) {
        const std::string dependency = name + "-" + std::string(180, 'x') + std::to_string(i);
        CreateSample(dependency);
        dependencies += dependency + ",";
    }
    CreateSample(name, "", {"--depends", dependencies});
    const Ended ended = RunAndRead({.command = {"/bin/bash", "-c",
                                                "exec 3> >(true); while [ -e /proc/$! ]; do sleep 0.01; done; "
                                                "exec \"$0\" deps \"$1\" >&3",
                                                ProgramPath("tvsc"), name}});
    EXPECT_EQ(ended.status, 128 + SIGPIPE);
    EXPECT_EQ(ended.error, "");
    EXPECT_EQ(Do({"delete", name}), name + ": deleted\n");
}

TEST_F(Tvsc, output_that_cannot_be_written_is_a_failure) {
    const Ended ended = RunAndRead({.command = {"/bin/sh", "-c", "exec \"$0\" list >/dev/full", ProgramPath("tvsc")}});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.error, "tvsc: standard output cannot be written\n");
}

// --- creating, changing, deleting ---

TEST_F(Tvsc, create_refuses_what_exists) {
    CreateSample(name);
    EXPECT_THAT(Fail(155, {"create", name, "--image", folder + "/" + name + ".csh"}),
                HasSubstr("1073 ERROR_SERVICE_EXISTS"));
}

// With such a key in the registry, or a text of that length, the daemon would start without a single service.
TEST_F(Tvsc, create_refuses_what_could_not_be_loaded_again) {
    CreateSample(name);
    const std::string image = folder + "/" + name + ".csh";
    EXPECT_THAT(Fail(1, {"create", name + "\\below", "--image", image}), HasSubstr("123 ERROR_INVALID_NAME"));
    EXPECT_FALSE(KeyExists(servicesKey + "\\" + name + "\\below"));
    EXPECT_THAT(Fail(1, {"create", name + "-2", "--image", image, "--display", std::string(1024, 'x')}),
                HasSubstr("123 ERROR_INVALID_NAME"));
    const std::string longest(1023, 'n'); // which the registry daemon used to refuse
    EXPECT_EQ(Do({"create", longest, "--image", image}), longest + ": created\n");
    Do({"delete", longest, "--wait"});
    EXPECT_THAT(Fail(1, {"create", longest + "n", "--image", image}), HasSubstr("123 ERROR_INVALID_NAME"));
}

TEST_F(Tvsc, create_refuses_an_unknown_user_and_leaves_nothing) {
    CreateSample(name);
    const std::string image = folder + "/" + name + ".csh";
    EXPECT_THAT(Fail(6, {"create", name + "-2", "--image", image, "--user", "nobody-of-this-name"}), HasSubstr("1057"));
    EXPECT_FALSE(KeyExists(servicesKey + "\\" + name + "-2"));
}

TEST_F(Tvsc, create_and_config_tell_of_dependencies_that_name_nothing) {
    CreateSample(name);
    const std::string image = folder + "/" + name + ".csh";
    const std::string note = "tvsc: nosuch: no such service; as long as there is none, it is passed over\n";
    const Ended created =
        ServiceWorld::Tvsc({"create", name + "-2", "--image", image, "--depends", "zero,+nogroup,nosuch"});
    EXPECT_EQ(created.status, 0);
    EXPECT_EQ(created.error, note);
    EXPECT_EQ(ServiceWorld::Tvsc({"config", name, "--depends", "nosuch,zero"}).error, note);
    EXPECT_EQ(ServiceWorld::Tvsc({"config", name, "--display", "Else " + name}).error, "");
    // An empty name stands for nothing and hides none behind it.
    Do({"create", name + "-3", "--image", image, "--depends", "", "--depends", ",zero,"});
    EXPECT_EQ(Json::parse(Do({"deps", name + "-3", "--json"})).at("services").at(0).at("name"), "zero");
}

TEST_F(Tvsc, create_refuses_a_ring) {
    CreateSample(name + "-1", "", {"--quiet", "--depends", name + "-2"});
    EXPECT_THAT(Fail(6, {"create", name + "-2", "--image", folder + "/" + name + "-1.csh", "--depends", name + "-1"}),
                HasSubstr("1059 ERROR_CIRCULAR_DEPENDENCY"));
}

TEST_F(Tvsc, create_refuses_an_image_that_is_no_script_for_csh) {
    EXPECT_THAT(Fail(1, {"create", name, "--image", ProgramPath("tvsample")}), HasSubstr("use --exec or --program"));
    EXPECT_THAT(Fail(1, {"create", name, "--image", "/no/such/file"}), HasSubstr("cannot be read"));
    WriteFile(folder + "/script.sh", "#!/bin/sh\nexec true\n");
    EXPECT_THAT(Fail(1, {"create", name, "--image", folder + "/script.sh"}), HasSubstr("not for csh"));
    EXPECT_FALSE(KeyExists(servicesKey + "\\" + name));
}

TEST_F(Tvsc, create_says_why_a_program_cannot_be_run) {
    WriteFile(folder + "/no-program", "");
    for (const char *option : {"--exec", "--program"}) {
        EXPECT_THAT(Fail(1, {"create", name, option, "true"}), HasSubstr("true: not an absolute path: 3 "));
        EXPECT_THAT(Fail(1, {"create", name, option, "/no/such x"}),
                    HasSubstr("/no/such: No such file or directory: 3 "));
        EXPECT_THAT(Fail(1, {"create", name, option, folder + "/no-program"}), HasSubstr("not an executable file: 3 "));
        EXPECT_THAT(Fail(1, {"create", name, option, "/bin/true \"x"}), HasSubstr("cannot be split into words: 87 "));
    }
    EXPECT_FALSE(KeyExists(servicesKey + "\\" + name));
}

TEST_F(Tvsc, create_counts_tags_in_a_group) {
    CreateSample(name + "-1", "", {"--group", name, "--tag"});
    CreateSample(name + "-2");
    EXPECT_EQ(Do({"create", name, "--image", folder + "/" + name + "-2.csh", "--group", name, "--tag"}),
              name + ": created, tag 2\n");
}

TEST_F(Tvsc, create_takes_lists_before_the_name) {
    Do({"create", "--depends", "zero,+grp", "--env", "A=b,c", "--env", "D=e", name, "--exec", "/bin/sleep 100"});
    const Json config = Json::parse(Do({"show", name, "--json"})).at("services").at(0).at("config");
    EXPECT_EQ(config.at("depends_on"), Json::array({"zero"}));
    EXPECT_EQ(ReadValue(servicesKey + "\\" + name + "\\Parameters", "AppEnvironment")->data, MultiSz({"A=b,c", "D=e"}));
}

TEST_F(Tvsc, options_that_would_do_nothing_are_refused) {
    CreateSample(name);
    const std::string image = folder + "/" + name + ".csh";
    EXPECT_THAT(Fail(2, {"create", name + "-2", "--image", image, "--env", "A=b"}),
                HasSubstr("--env excludes --image"));
    EXPECT_THAT(Fail(2, {"create", name + "-2", "--image", image, "--tag"}), HasSubstr("--tag requires --group"));
    EXPECT_THAT(Fail(2, {"create", name + "-2", "--exec", "/bin/true", "--env", "A"}),
                HasSubstr("--env: A: not NAME=VALUE"));
    EXPECT_THAT(Fail(2, {"config", name}), StartsWith("tvsc: config: something to change is required"));
    EXPECT_FALSE(KeyExists(servicesKey + "\\" + name + "-2"));
}

TEST_F(Tvsc, config_finds_the_name_like_the_other_commands) {
    CreateSample(name);
    std::string upper = name;
    upper.front() = 'C';
    EXPECT_EQ(Do({"config", upper, "--display", "Found " + name}), name + ": changed\n");
    EXPECT_THAT(Fail(5, {"config", name + "x", "--display", "y"}), HasSubstr("did you mean " + name + "?"));
}

TEST_F(Tvsc, config_changes_what_is_named_and_nothing_else) {
    CreateSample(name, "", {"--start", "auto", "--error", "critical", "--depends", "zero"});
    Do({"config", name, "--start", "disabled", "--display", "Changed " + name});
    const Json service = Json::parse(Do({"show", name, "--json"})).at("services").at(0);
    EXPECT_EQ(service.at("display_name"), "Changed " + name);
    EXPECT_EQ(service.at("config").at("start"), "disabled");
    EXPECT_EQ(service.at("config").at("error_control"), SERVICE_ERROR_CRITICAL);
    EXPECT_EQ(service.at("config").at("depends_on"), Json::array({"zero"}));
}

TEST_F(Tvsc, config_takes_dependencies_away) {
    CreateSample(name, "", {"--depends", "zero"});
    Do({"config", name, "--depends", ""});
    EXPECT_EQ(Json::parse(Do({"show", name, "--json"})).at("services").at(0).at("config").at("depends_on"),
              Json::array());
}

TEST_F(Tvsc, delete_of_a_running_service_by_force_marks_it_and_hides_it) {
    CreateSample(name);
    Do({"start", name});
    EXPECT_THAT(Do({"delete", name, "--force"}), HasSubstr("marked for deletion"));
    EXPECT_TRUE(Listed(name).is_null());
    EXPECT_THAT(Fail(154, {"start", name}), HasSubstr("1072 ERROR_SERVICE_MARKED_FOR_DELETE"));
}

TEST_F(Tvsc, delete_can_stop_the_service_first) {
    CreateSample(name);
    Do({"start", name});
    EXPECT_EQ(Do({"delete", name, "--stop", "--wait"}), name + ": deleted\n");
    EXPECT_FALSE(KeyExists(servicesKey + "\\" + name));
}

// --- the lock ---

TEST_F(Tvsc, a_held_lock_refuses_every_start_and_is_told) {
    CreateSample(name);
    const Ended ended = ServiceWorld::Tvsc({"with-lock", "--", ProgramPath("tvsc"), "start", name});
    EXPECT_EQ(ended.status, 152);
    EXPECT_THAT(ended.error, AllOf(HasSubstr("1055 ERROR_SERVICE_DATABASE_LOCKED"), HasSubstr("locked by ")));
    EXPECT_EQ(Do({"lock", "status"}), "not locked\n");
}

TEST_F(Tvsc, a_lock_left_behind_can_be_freed) {
    const pid_t holder = StartProgram({.command = {ProgramPath("tvsc"), "with-lock", "--", "sleep", "60"}});
    ASSERT_TRUE(WaitUntil([this] { return Do({"lock", "status"}) != "not locked\n"; }));
    kill(holder, SIGKILL);
    (void)WaitForEnd(holder);
    EXPECT_TRUE(Json::parse(Do({"lock", "status", "--json"})).at("locked"));
    EXPECT_THAT(Do({"lock", "release"}), HasSubstr("freed the lock of "));
    EXPECT_EQ(Do({"lock", "status"}), "not locked\n");
}

// --- the daemon, the command line ---

TEST_F(Tvsc, a_lock_that_nobody_holds_is_free_already) {
    EXPECT_EQ(Do({"lock", "release"}), "localhost: not locked\n");
    EXPECT_THAT(Fail(1, {"lock", "release", "--id", "5"}), HasSubstr("1071 ERROR_INVALID_SERVICE_LOCK"));
}

TEST_F(Tvsc, ping_measures_round_trips) {
    EXPECT_EQ(Json::parse(Do({"ping", "-c", "2", "--json"})).at("round_trips_ms").size(), 2u);
    EXPECT_THAT(Do({"ping"}), StartsWith("answer after "));
    EXPECT_THAT(Do({"daemon", "status"}),
                testing::MatchesRegex("running, database loaded; process " + std::to_string(serviceDaemon) +
                                      ", for ([0-9]+ min )?[0-9]+ s\n"));
    const Json status = Json::parse(Do({"--json", "daemon", "status"})).at("daemon");
    EXPECT_EQ(status.at("pid"), serviceDaemon);
    EXPECT_GE(int(status.at("uptime_ms")), 0);
    EXPECT_LE(int(status.at("uptime_ms")),
              int(Json::parse(Do({"--json", "daemon", "status"})).at("daemon").at("uptime_ms")));
}

TEST_F(Tvsc, a_host_without_a_daemon_exits_150) {
    EXPECT_THAT(Fail(150, {"list", "--host", "127.0.0.2.invalid"}), HasSubstr("1722 RPC_S_SERVER_UNAVAILABLE"));
    EXPECT_EQ(ServiceWorld::Tvsc({"status", "x", "--host", "127.0.0.2.invalid"}).status, 4);
    EXPECT_EQ(Fail(151, {"wait-online", "--timeout", "100ms", "--host", "127.0.0.2.invalid"}).substr(0, 5), "tvsc:");
}

TEST_F(Tvsc, a_wrong_command_line_exits_2) {
    EXPECT_EQ(ServiceWorld::Tvsc({"stop"}).status, 2);
    EXPECT_EQ(ServiceWorld::Tvsc({"stop", "--all", "zero"}).status, 2);
    EXPECT_THAT(Fail(2, {"ping", "-c", "0"}), HasSubstr("tvsc: ping: --count: Value 0 not in range 1 to 1000000\n"));
    EXPECT_EQ(ServiceWorld::Tvsc({"frobnicate"}).status, 2);
    EXPECT_EQ(ServiceWorld::Tvsc({"create", "x"}).status, 2);
    EXPECT_EQ(ServiceWorld::Tvsc({"control", "zero", "many"}).status, 2);
}

TEST_F(Tvsc, a_name_may_begin_with_a_dash) {
    CreateSample(name);
    const std::string dashed = "-" + name;
    Do({"create", "--name=" + dashed, "--image", folder + "/" + name + ".csh", "--depends=" + name});
    EXPECT_EQ(Do({"start", name, "--name=" + dashed, "--", "-argument"}),
              name + ": running\n" + dashed + ": running\n");
    EXPECT_THAT(Do({"deps", "--name=" + dashed}), HasSubstr(name + "  running"));
    EXPECT_EQ(Do({"config", "--name=" + dashed, "--start", "disabled"}), dashed + ": changed\n");
    EXPECT_EQ(Do({"stop", "--name=" + dashed, "--name=" + name}), dashed + ": stopped\n" + name + ": stopped\n");
    EXPECT_EQ(Do({"delete", "--name=" + dashed}), dashed + ": deleted\n");
}

// What stood there used to be passed over.
TEST_F(Tvsc, what_stands_behind_two_dashes_is_refused_where_it_means_nothing) {
    CreateSample(name);
    EXPECT_THAT(Fail(2, {"stop", name, "--", "-x"}), StartsWith("tvsc: stop: --: not expected here; "));
    EXPECT_THAT(Fail(2, {"list", "--", "x"}), StartsWith("tvsc: list: --: not expected here; "));
}

TEST_F(Tvsc, json_keeps_bytes_that_are_no_utf8) {
    CreateSample(name + "-base\xFF");
    CreateSample(name + "\xFE", "", {"--display", "d\xFD", "--group", "g\xFC", "--depends", name + "-base\xFF,+h\xFB"});
    const std::string text = Do({"show", name + "\xFE", "--json"});
    EXPECT_TRUE(std::all_of(text.begin(), text.end(), [](unsigned char c) { return c < 0x7F; }));
    const Json service = Json::parse(text).at("services").at(0);
    EXPECT_EQ(service.at("name_bytes"), Base64(name + "\xFE"));
    EXPECT_EQ(service.at("display_name_bytes"), Base64("d\xFD"));
    const Json &config = service.at("config");
    EXPECT_EQ(config.at("group_bytes"), Base64("g\xFC"));
    EXPECT_EQ(config.at("depends_on_bytes"), Json::array({Base64(name + "-base\xFF")}));
    EXPECT_EQ(config.at("depends_on_groups_bytes"), Json::array({Base64("h\xFB")}));
    EXPECT_EQ(config.at("image_path_bytes"), Base64(folder + "/" + name + "\xFE.csh"));
    const Json error = Json::parse(ServiceWorld::Tvsc({"start", name + "\xFA", "--json"}).output).at("errors").at(0);
    EXPECT_EQ(error.at("name_bytes"), Base64(name + "\xFA"));
    EXPECT_EQ(error.at("suggest_bytes").at(0), Base64(name + "\xFE"));
    const Json result = Json::parse(Do({"start", name + "-base\xFF", "--json"})).at("results").at(0);
    EXPECT_EQ(result.at("name_bytes"), Base64(name + "-base\xFF"));
}

TEST_F(Tvsc, an_unknown_command_is_named_and_brings_a_suggestion) {
    EXPECT_EQ(Fail(2, {"lst"}),
              "tvsc: lst: no such command\n  did you mean list?\nRun tvsc --help for more information.\n");
    EXPECT_THAT(Fail(2, {"daemon", "stp"}), StartsWith("tvsc: daemon: stp: no such command\n  did you mean stop?\n"));
    EXPECT_THAT(Fail(2, {"list", "--stat"}), StartsWith("tvsc: list: --stat: not expected here\n"));
}

TEST_F(Tvsc, a_wrong_word_is_refused_with_those_that_are_known) {
    EXPECT_THAT(Fail(2, {"create", name, "--image", "/x", "--start", "later"}),
                HasSubstr("--start: later: none of auto, boot, demand, disabled, system\n"));
    EXPECT_THAT(Fail(2, {"create", name, "--image", "/x", "--start", "2"}), HasSubstr("2: none of"));
    EXPECT_THAT(Fail(2, {"list", "--state", "bogus"}), HasSubstr("bogus: none of failed, stopped,"));
}

TEST_F(Tvsc, a_time_below_zero_or_endless_is_refused) {
    for (const char *time : {"-1", "-1s", "inf", "1e300", "nan", "1d", "x"}) {
        EXPECT_THAT(Fail(2, {"wait", "zero", "--for", "stopped", std::string("--timeout=") + time}),
                    HasSubstr("--timeout: " + std::string(time) + ": not a time: seconds,"));
    }
    EXPECT_EQ(ServiceWorld::Tvsc({"wait", "zero", "--for", "stopped", "--timeout="}).status, 2);
    // Without any time the answer would not be waited for at all.
    EXPECT_EQ(ServiceWorld::Tvsc({"--call-timeout", "0", "list"}).status, 2);
    EXPECT_EQ(ServiceWorld::Tvsc({"wait", "zero", "--for", "stopped", "--timeout", "0"}).status, 0);
}

// The same daemon by an address that could be another machine's: what lies on this one says nothing about it.
TEST_F(Tvsc, a_daemon_elsewhere_is_not_mixed_up_with_this_machine) {
    const std::string address = "10.77.77.1";
    if (RunProgram({.command = {"/usr/sbin/ip", "address", "add", address + "/32", "dev", "lo"}}) != 0) {
        GTEST_SKIP() << "addresses cannot be added here";
    }
    CreateSample(name);
    Do({"start", name});
    EXPECT_TRUE(StatusOf(name).contains("pid_hint"));
    const Json there = Json::parse(Do({"--host", address, "status", name, "--json"})).at("services").at(0);
    EXPECT_EQ(there.at("state"), "running");
    EXPECT_FALSE(there.contains("pid_hint"));
    EXPECT_THAT(Fail(1, {"--host", address, "create", name + "-2", "--exec", "/bin/true"}),
                HasSubstr("50 ERROR_NOT_SUPPORTED"));
    EXPECT_FALSE(KeyExists(servicesKey + "\\" + name + "-2"));
    Do({"--host", address, "create", name + "-2", "--image", "/only/there.csh"});
}

TEST_F(Tvsc, help_and_version_exit_0) {
    EXPECT_THAT(Do({"--help"}), HasSubstr("start"));
    EXPECT_THAT(Do({"start", "--help"}), HasSubstr("--with-deps"));
    EXPECT_THAT(Do({"--version"}), StartsWith("tvsc "));
}

TEST_F(Tvsc, a_busy_daemon_is_explained_and_waited_for) {
    CreateSample(name);
    WriteFile(folder + "/" + name + ".csh",
              "#!/bin/csh -f\ntouch " + folder + "/starting\nsleep 7\nexec '" + ProgramPath("tvsample") + "'\n");
    const pid_t starting = StartProgram(
        {.command = {ProgramPath("tvsc"), "-q", "start", name}, .outputFile = "/dev/null", .errorFile = "/dev/null"});
    ASSERT_TRUE(WaitUntil([] { return access((folder + "/starting").c_str(), F_OK) == 0; }));
    const Ended list = ServiceWorld::Tvsc({"list", "--brief", name});
    EXPECT_EQ(list.status, 0);
    EXPECT_THAT(list.error, StartsWith("tvsc: the daemon is busy"));
    EXPECT_THAT(list.output, HasSubstr(name));
    EXPECT_EQ(WaitForEnd(starting), 0);
}

TEST_F(Tvsc, json_suggests_what_an_unknown_name_may_mean) {
    CreateSample(name);
    const Json error = Json::parse(ServiceWorld::Tvsc({"status", name + "x", "--json"}).output).at("errors").at(0);
    EXPECT_EQ(error.at("suggest"), Json::array({name}));
}

TEST_F(Tvsc, json_tells_whether_the_database_is_locked) {
    EXPECT_FALSE(Json::parse(Do({"list", "--json"})).at("daemon").at("locked"));
    const std::string list = Do({"with-lock", "--", ProgramPath("tvsc"), "list", "--json"});
    EXPECT_TRUE(Json::parse(list).at("daemon").at("locked"));
}

TEST_F(Tvsc, json_of_services_has_its_form_also_without_a_daemon) {
    for (const std::vector<std::string> &command : {std::vector<std::string>{"list"},
                                                    {"status", "x"},
                                                    {"show", "x"},
                                                    {"is-active", "x"},
                                                    {"is-failed", "x"},
                                                    {}}) {
        std::vector<std::string> arguments = {"--json", "--host", "no-such-host"};
        arguments.insert(arguments.end(), command.begin(), command.end());
        const Json answer = Json::parse(ServiceWorld::Tvsc(arguments).output);
        EXPECT_EQ(answer.at("schema"), "tvsc.status/1");
        EXPECT_FALSE(answer.at("daemon").at("reachable"));
        EXPECT_FALSE(answer.at("daemon").at("initialized"));
        EXPECT_EQ(answer.at("services"), Json::array());
        EXPECT_EQ(answer.at("errors").at(0).at("win32"), RPC_S_SERVER_UNAVAILABLE);
    }
}

// Some commands wrote nothing where all is well, or where the daemon does not answer.
TEST_F(Tvsc, json_is_written_by_every_command_in_either_case) {
    CreateSample(name);
    for (const char *command : {"is-active", "is-failed"}) {
        const Json answer = Json::parse(ServiceWorld::Tvsc({command, name, "--json"}).output);
        EXPECT_EQ(answer.at("services").at(0).at("state"), "stopped") << command;
    }
    EXPECT_TRUE(Json::parse(Do({"wait-online", "--json"})).at("daemon").at("initialized"));
    const std::vector<std::string> elsewhere = {"--json", "--host", "no-such-host"};
    for (const std::vector<std::string> &command : {std::vector<std::string>{"wait-online", "--timeout", "0"},
                                                    {"daemon", "stop"},
                                                    {"daemon", "status"},
                                                    {"ping"},
                                                    {"wait", "x"}}) {
        std::vector<std::string> arguments = elsewhere;
        arguments.insert(arguments.end(), command.begin(), command.end());
        const Ended ended = ServiceWorld::Tvsc(arguments);
        EXPECT_NE(ended.status, 0) << command.front();
        EXPECT_EQ(Json::parse(ended.output).at("host"), "no-such-host") << command.front();
    }
}

TEST_F(Tvsc, json_tells_of_a_failure_whatever_was_asked) {
    for (const char *command : {"deps", "dependents", "name", "start", "stop", "status", "show", "delete"}) {
        const Ended ended = ServiceWorld::Tvsc({command, "unknown-service", "--json"});
        EXPECT_NE(ended.status, 0) << command;
        const Json errors = Json::parse(ended.output).at("errors");
        EXPECT_EQ(errors.at(0).at("win32"), ERROR_SERVICE_DOES_NOT_EXIST) << command;
    }
}

TEST_F(Tvsc, a_control_without_a_word_is_named_by_its_number) {
    CreateSample(name);
    Do({"start", name});
    EXPECT_THAT(Fail(3, {"control", name, "0"}), HasSubstr("control 0 failed: 1052"));
}

// The daemon keeps its services without the registry, but knows nothing of their configurations.
TEST_F(Tvsc, a_missing_registry_daemon_is_told_where_it_is_missed) {
    CreateSample(name, "", {"--start", "disabled"});
    CreateSample(name + "-runs");
    CreateSample(name + "-other"); // without another one that runs nothing has to be known to stop the first
    Do({"start", name + "-runs", name + "-other"});
    EXPECT_EQ(StopDaemon(registryDaemon), 0);
    const Ended list = ServiceWorld::Tvsc({"list", name});
    EXPECT_EQ(list.error, "tvsc: no configurations: the registry daemon does not answer\n");
    EXPECT_THAT(list.output, Not(HasSubstr("boot"))); // which 0 would mean
    // It may have dependents that run.
    EXPECT_THAT(Fail(150, {"stop", name + "-runs"}), HasSubstr("its dependents cannot be listed: 1016"));
    EXPECT_EQ(Do({"stop", "--force", name + "-runs"}), name + "-runs: stopped\n");
    EXPECT_THAT(Fail(1, {"start", name}), HasSubstr("its dependencies: 1016 ERROR_REGISTRY_IO_FAILED"));
    EXPECT_THAT(Fail(6, {"create", name + "-2", "--image", folder + "/" + name + ".csh"}),
                HasSubstr("not created: the registry daemon does not answer, or could not store: 1065"));
    EXPECT_THAT(Fail(150, {"--dry-run", "config", name, "--start", "auto"}), HasSubstr("not changed: 1016"));
    EXPECT_THAT(Fail(150, {"config", name, "--start", "auto"}), HasSubstr("not changed: 1016"));
    // Nothing of what stands there has to be kept.
    EXPECT_EQ(Do({"--dry-run", "config", name, "--error", "normal"}), name + ": would be changed\n");
    EXPECT_EQ(Do({"config", name, "--error", "normal"}), name + ": changed\n");
    // It would be back with the daemon's next start.
    EXPECT_THAT(Fail(150, {"delete", name}), HasSubstr("not deleted: 1016"));
    registryDaemon = StartRegistryDaemon(folder + "/registry.db");
    EXPECT_THAT(Do({"list", name}), HasSubstr("disabled"));
    EXPECT_EQ(Do({"stop", name + "-other"}), name + "-other: stopped\n");
    EXPECT_EQ(Do({"config", name, "--start", "demand"}), name + ": changed\n") << "the daemon finds it again by itself";
}

// The last service but one: from now on nothing in record 0 is listed any more.
TEST_F(Tvsc, zz_a_running_service_in_record_0_that_is_marked_for_deletion_is_hidden_too) {
    Do({"start", "zero"});
    EXPECT_THAT(Do({"delete", "zero", "--force"}), HasSubstr("marked for deletion"));
    EXPECT_TRUE(Listed("zero").is_null());
    EXPECT_THAT(Fail(154, {"stop", "zero"}), HasSubstr("1072 ERROR_SERVICE_MARKED_FOR_DELETE"));
    KillProcessOf("zero");
}

// A stopped process answers nothing, as one that is starting its automatic services.
TEST_F(Tvsc, zz_a_silent_daemon_is_given_up_in_time) {
    kill(serviceDaemon, SIGSTOP);
    const std::int64_t before = MonotonicMs();
    EXPECT_THAT(Fail(151, {"wait-online", "--timeout", "1s"}), HasSubstr("1460 ERROR_TIMEOUT"));
    EXPECT_THAT(Fail(151, {"--call-timeout", "1s", "list"}), HasSubstr("1460 ERROR_TIMEOUT"));
    EXPECT_LT(MonotonicMs() - before, 20000);
    kill(serviceDaemon, SIGCONT);
}

// Last, because it ends the world.
TEST_F(Tvsc, zzz_a_daemon_can_be_stopped_and_awaited) {
    CreateSample(name);
    Do({"start", name});
    const pid_t process = ProcessOf(name);
    EXPECT_THAT(Do({"daemon", "stop"}), HasSubstr("stopped; services were left running"));
    EXPECT_EQ(WaitForEnd(serviceDaemon), 0);
    EXPECT_EQ(Fail(150, {"ping"}).substr(0, 5), "tvsc:");
    EXPECT_EQ(ProcessOf(name), process);
    std::thread starter([] {
        SleepMs(300);
        serviceDaemon = StartServiceDaemon();
    });
    EXPECT_EQ(Do({"wait-online", "--timeout", "20s"}), "");
    starter.join();
}

} // namespace
