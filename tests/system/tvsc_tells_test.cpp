// SPDX-License-Identifier: MIT
// What tvsc finds out and tells, and the commands that change little things; against both daemons and real service
// processes.
#include "tests/support/service_world.h"
#include "tests/support/value_bytes.h"
#include "tv/winreg.h"
#include "tv/winsvc.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <csignal>
#include <filesystem>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

using Json = nlohmann::json;

struct TvscTells : ServiceWorld {
    static std::string StateOf(const std::string &service) {
        return Json::parse(Tvsc({"status", service, "--json"}).output).at("services").at(0).at("state");
    }
    // The findings of doctor about one name.
    static Json FindingsOn(const std::string &subject) {
        Json about = Json::array();
        const Json all = Json::parse(Tvsc({"doctor", "--json"}).output);
        for (const Json &one : all.at("findings")) {
            if (one.at("name") == subject) about.push_back(one);
        }
        return about;
    }
    // Runs a command that must fail with a status, before that with --dry-run, which must tell the same.
    static void ExpectRefusedAlike(int status, const std::vector<std::string> &words) {
        std::vector<std::string> dry = words;
        dry.insert(dry.begin(), "--dry-run");
        const Ended told = Tvsc(dry), done = Tvsc(words);
        EXPECT_EQ(told.status, status) << testing::PrintToString(words) << told.error;
        EXPECT_EQ(done.status, status) << testing::PrintToString(words) << done.error;
        EXPECT_EQ(told.error, done.error);
    }
    void CreatePair() {
        CreateSample(name + "-1");
        CreateSample(name + "-2", "", {"--depends", name + "-1"});
    }
};

// --- plans ---

TEST_F(TvscTells, a_plan_tells_the_steps_and_a_dry_run_is_one) {
    CreatePair();
    const std::string plan = Do({"plan", "start", name + "-2"});
    EXPECT_THAT(plan, AllOf(HasSubstr("1  " + name + "-1  start"), HasSubstr("2  " + name + "-2  start")));
    EXPECT_EQ(Do({"--dry-run", "start", "--with-deps", name + "-2"}), plan);
    EXPECT_EQ(StateOf(name + "-1"), "stopped");
    (void)Do({"start", name + "-2", "--with-deps"});
    const Json steps = Json::parse(Do({"plan", "restart", name + "-1", "--json"})).at("steps");
    ASSERT_EQ(steps.size(), 4u);
    EXPECT_EQ(steps.at(0).at("name"), name + "-2");
    EXPECT_EQ(steps.at(0).at("action"), "stop");
    EXPECT_EQ(steps.at(3).at("action"), "start");
    EXPECT_THAT(Do({"--dry-run", "stop", "--with-dependents", name + "-1"}), HasSubstr("2 steps"));
    EXPECT_EQ(StateOf(name + "-1"), "running");
}

TEST_F(TvscTells, a_dry_run_changes_nothing) {
    CreateSample(name);
    EXPECT_THAT(Do({"--dry-run", "disable", name}), HasSubstr("would have start type disabled"));
    EXPECT_THAT(Do({"--dry-run", "delete", name}), HasSubstr("would be deleted"));
    EXPECT_THAT(Do({"--dry-run", "config", name, "--display", "X"}), HasSubstr("would be changed"));
    EXPECT_THAT(Do({"--dry-run", "create", name + "-2", "--exec", "/bin/true"}), HasSubstr("would be created"));
    const Json config = Json::parse(Do({"show", name, "--json"})).at("services").at(0);
    EXPECT_EQ(config.at("config").at("start"), "demand");
    EXPECT_EQ(config.at("display_name"), name);
    EXPECT_EQ(Tvsc({"status", name + "-2"}).status, 4);
}

TEST_F(TvscTells, delete_with_dry_run_refuses_what_delete_would_refuse) {
    CreateSample(name);
    CreateSample(name + "-needs", "", {"--depends", name});
    (void)Do({"start", "--with-deps", name + "-needs"});
    ExpectRefusedAlike(1, {"delete", name});
    ExpectRefusedAlike(153, {"delete", "--stop", name});
    EXPECT_THAT(Do({"--dry-run", "delete", "--stop", "--with-dependents", name}), HasSubstr("would be deleted"));
    EXPECT_THAT(Do({"--dry-run", "delete", "--force", name}), HasSubstr("would be deleted"));
    EXPECT_EQ(StateOf(name + "-needs"), "running");
}

TEST_F(TvscTells, create_with_dry_run_refuses_what_create_would_refuse) {
    CreatePair();
    const std::string script = folder + "/" + name + "-1.csh", long1024(1024, 'x'), fresh = name + "-new";
    ExpectRefusedAlike(6, {"create", fresh, "--image", script, "--user", "nobodyhere"});
    ExpectRefusedAlike(6, {"create", fresh, "--exec", "/bin/true", "--user", ":masked:root"});
    ExpectRefusedAlike(155, {"create", name + "-1", "--image", script});
    ExpectRefusedAlike(1, {"create", fresh + "/x", "--image", script});
    ExpectRefusedAlike(1, {"create", "", "--image", script});
    ExpectRefusedAlike(1, {"create", fresh, "--image", script, "--display", long1024});
    ExpectRefusedAlike(1, {"create", fresh, "--image", script, "--group", long1024});
    ExpectRefusedAlike(1, {"create", fresh, "--image", script, "--group", "", "--tag"});
    ExpectRefusedAlike(6, {"create", fresh, "--image", script, "--group", name, "--depends", "+" + name});
    WriteKey(servicesKey + "\\" + name + "-key", {});
    ExpectRefusedAlike(155, {"create", name + "-KEY", "--image", script}); // a key that no service has
    DeleteKey(servicesKey + "\\" + name + "-key");
    (void)Do({"start", name + "-1"});
    (void)Do({"delete", "--force", name + "-1"}); // it runs, and goes when it ends
    ExpectRefusedAlike(155, {"create", name + "-1", "--image", script});
}

TEST_F(TvscTells, config_with_dry_run_refuses_what_config_would_refuse) {
    CreatePair();
    const std::string one = name + "-1", two = name + "-2", long1024(1024, 'x');
    ExpectRefusedAlike(6, {"config", one, "--user", "nobodyhere"});
    ExpectRefusedAlike(155, {"config", one, "--display", two});
    ExpectRefusedAlike(6, {"config", one, "--depends", two});
    ExpectRefusedAlike(6, {"config", one, "--depends", one});
    ExpectRefusedAlike(1, {"config", one, "--group", long1024});
    (void)Do({"config", one, "--depends", "+" + name});
    ExpectRefusedAlike(6, {"config", one, "--group", name}); // it would need itself
    ExpectRefusedAlike(6, {"config", two, "--group", name});
    EXPECT_THAT(Do({"--dry-run", "config", one, "--display", one, "--user", "daemon", "--depends", ""}),
                HasSubstr("would be changed"));
}

TEST_F(TvscTells, a_change_that_is_refused_leaves_the_program_as_it_was) {
    CreatePair();
    const std::string hosted = name + "-hosted";
    (void)Do({"create", hosted, "--env", "A=old", "--", "/bin/sleep", "1000"});
    const std::string before = Do({"export", hosted}), ordinary = Do({"export", name + "-1"});
    ExpectRefusedAlike(6, {"config", hosted, "--env", "A=new", "--user", "nobodyhere"});
    ExpectRefusedAlike(155, {"config", hosted, "--cwd", "/tmp", "--display", name + "-1"});
    ExpectRefusedAlike(6, {"config", hosted, "--exec", "/bin/true", "--depends", hosted});
    EXPECT_EQ(Do({"export", hosted}), before);
    ExpectRefusedAlike(6, {"config", name + "-1", "--exec", "/bin/true", "--user", "nobodyhere"});
    EXPECT_EQ(Do({"export", name + "-1"}), ordinary) << "and has no parameters";
    (void)Do({"config", hosted, "--env", "A=new"});
    EXPECT_THAT(Do({"export", hosted}), AllOf(HasSubstr("A=new"), Not(HasSubstr("A=old"))));
}

TEST_F(TvscTells, a_stop_with_dry_run_is_refused_where_a_service_takes_none) {
    const std::string deaf = name + "-deaf", needs = name + "-needs", deafNeeds = name + "-needs-deaf";
    CreateSample(deaf, "--controls 2");
    CreateSample(needs, "", {"--depends", deaf});
    CreateSample(name);
    CreateSample(deafNeeds, "--controls 0", {"--depends", name});
    ExpectRefusedAlike(7, {"control", deaf, "1"});
    EXPECT_THAT(Do({"--dry-run", "stop", deaf}), HasSubstr("0 steps")) << "stopped already";
    (void)Do({"start", deaf, name, deafNeeds});
    for (const std::string verb : {"stop", "restart"}) {
        ExpectRefusedAlike(3, {verb, deaf});
        ExpectRefusedAlike(3, {verb, "--force", deaf});
        ExpectRefusedAlike(3, {verb, "--with-dependents", name});
        EXPECT_THAT(Tvsc({"--dry-run", verb, deaf}).error, HasSubstr(deaf + ": stop failed: 1052 "));
        EXPECT_THAT(Tvsc({"--dry-run", verb, "--with-dependents", name}).error, HasSubstr(deafNeeds + ": stop failed"));
        EXPECT_THAT(Do({"--dry-run", verb, "--force", name}), HasSubstr(" step"));
        EXPECT_THAT(Do({"plan", verb, deaf}), HasSubstr("named")) << "for when it takes one";
    }
    ExpectRefusedAlike(3, {"delete", "--stop", deaf});
    ExpectRefusedAlike(3, {"delete", "--stop", "--with-dependents", name});
    ExpectRefusedAlike(3, {"sc", "stop", deaf});
    ExpectRefusedAlike(3, {"sc", "pause", deafNeeds});
    EXPECT_THAT(Do({"--dry-run", "sc", "pause", deaf}), HasSubstr("ControlService would be called"));
    EXPECT_EQ(StateOf(deaf), "running");
    EXPECT_EQ(StateOf(name), "running");
    KillProcessOf(deafNeeds);
    EXPECT_THAT(Do({"--dry-run", "stop", "--with-dependents", name}), HasSubstr("2 steps")) << "it needs no stop";
    EXPECT_THAT(Do({"--dry-run", "delete", "--stop", "--with-dependents", name}), HasSubstr("would be deleted"));
    KillProcessOf(deaf);
}

TEST_F(TvscTells, a_restart_with_dry_run_names_what_is_masked_before_what_takes_no_stop) {
    CreateSample(name, "--controls 0");
    CreateSample(name + "-needs", "", {"--depends", name});
    (void)Do({"start", "--with-deps", name + "-needs"});
    (void)Do({"mask", name});
    ExpectRefusedAlike(6, {"restart", name});
    (void)Do({"unmask", name});
    (void)Do({"mask", name + "-needs"});
    ExpectRefusedAlike(6, {"restart", "--with-dependents", name});
    ExpectRefusedAlike(153, {"restart", name});
    KillProcessOf(name);
}

TEST_F(TvscTells, a_control_with_dry_run_is_refused_where_the_control_would_be) {
    CreateSample(name);
    CreateSample(name + "-deaf", "--controls 0");
    (void)Do({"create", name + "-hosted", "--", "/bin/sleep", "1000"});
    for (const std::string &service : {name, name + "-deaf", name + "-hosted"}) {
        for (const std::string control : {"pause", "continue", "interrogate"}) {
            ExpectRefusedAlike(7, {control, service});
        }
        ExpectRefusedAlike(7, {"control", service, "150"});
        ExpectRefusedAlike(7, {"reload", service});
        (void)Do({"start", service});
    }
    for (const std::string control : {"pause", "continue"}) {
        ExpectRefusedAlike(3, {control, name + "-deaf"});
        EXPECT_THAT(Do({"--dry-run", control, name}), HasSubstr(": would be sent control "));
    }
    ExpectRefusedAlike(3, {"control", name, "5"});
    ExpectRefusedAlike(3, {"reload", name});
    EXPECT_THAT(Do({"--dry-run", "reload", name + "-hosted"}), HasSubstr("would have it read"));
    KillProcessOf(name);
    ExpectRefusedAlike(7, {"interrogate", name});
    EXPECT_EQ(StateOf(name), "stopped") << "the real one has it found";
}

TEST_F(TvscTells, a_dependency_that_is_not_there_is_told_by_whatever_makes_one) {
    CreateSample(name);
    const std::string unknown = name + "-none", words = unknown + ": no such service; ";
    const std::string file = folder + "/" + name + ".toml", script = folder + "/" + name + ".csh";
    WriteFile(file, "[services." + name + "]\ndepends_on = [ '" + unknown + "', '+group', '" + name +
                        "-new', 'zero' ]\n" + "[services." + name + "-new]\nimage_path = '" + script + "'\n");
    const std::vector<std::vector<std::string>> commands = {
        {"--dry-run", "create", name + "-2", "--image", script, "--depends", unknown + ",zero,+group"},
        {"create", name + "-2", "--image", script, "--depends", unknown + ",zero,+group"},
        {"--dry-run", "config", name, "--depends", unknown},
        {"--dry-run", "apply", file},
        {"apply", file}};
    for (const std::vector<std::string> &command : commands) {
        const Ended told = Tvsc(command);
        EXPECT_EQ(told.status, 0) << told.error;
        EXPECT_THAT(told.error, HasSubstr(words)) << testing::PrintToString(command);
        EXPECT_EQ(told.error.find("no such service"), told.error.rfind("no such service")) << told.error;
    }
    EXPECT_EQ(Tvsc({"apply", file}).error, "") << "what stands there already is not told again";
}

// A name that begins with a dash would be an option.
TEST_F(TvscTells, commands_that_are_told_work_for_a_service_called_like_an_option) {
    const std::string dash = "--" + name, script = folder + "/" + name + ".csh";
    CreateSample(name);
    (void)Do({"create", "--name=" + dash, "--image", script, "--depends", name});
    const auto run = [](const std::string &command) { // as somebody who pastes it
        const std::string folderOfTvsc = std::filesystem::path(ProgramPath("tvsc")).parent_path();
        return RunAndRead({.command = {"/bin/sh", "-c", "PATH=" + folderOfTvsc + ":$PATH; " + command}}, 90000);
    };
    const std::string start = "tvsc start --name=" + dash + " --with-deps";
    EXPECT_THAT(Do({"explain", "--name=" + dash}), HasSubstr("next: " + start + "\n"));
    EXPECT_THAT(Fail(153, {"start", "--name=" + dash}), HasSubstr("  try: " + start + "\n"));
    EXPECT_EQ(run(start).status, 0);
    EXPECT_EQ(Tvsc({"is-active", "--name=" + dash}).status, 0);
    (void)Do({"pause", "--name=" + dash});
    EXPECT_THAT(Fail(1, {"start", "--name=" + dash}), HasSubstr("try: tvsc continue --name=" + dash));
    (void)Do({"stop", "--name=" + dash});
    (void)Do({"mask", "--name=" + dash});
    EXPECT_THAT(Fail(6, {"start", "--name=" + dash}), HasSubstr("try: tvsc unmask --name=" + dash + "\n"));
    EXPECT_THAT(Tvsc({"doctor"}).output, HasSubstr("tvsc unmask --name=" + dash));
    EXPECT_EQ(run("tvsc unmask --name=" + dash).status, 0);
    (void)Do({"delete", "--name=" + dash});
}

// --- what a service is for ---

TEST_F(TvscTells, a_description_is_given_changed_and_taken_away) {
    const auto described = [&](const std::string &service) {
        const Json config = Json::parse(Do({"show", service, "--json"})).at("services").at(0).at("config");
        return config.value("description", "");
    };
    const std::string text = "-Serves \"pages\",\nto every one", file = folder + "/" + name + ".toml";
    EXPECT_THAT(Do({"--dry-run", "create", name, "--exec", "/bin/true", "--description", text}), HasSubstr("would be"));
    CreateSample(name, "", {"--description=" + text});
    EXPECT_EQ(described(name), text);
    EXPECT_THAT(Do({"show", name}), HasSubstr("about: -Serves"));
    EXPECT_EQ(ReadValue(servicesKey + "\\" + name, "Description")->data, Sz(text)) << "where other programs look";
    Do({"clone", name, name + "-2"});
    EXPECT_EQ(described(name + "-2"), text);
    WriteFile(file, Do({"export", name}));
    Do({"--dry-run", "config", name, "--description", "x"});
    EXPECT_EQ(Do({"apply", file}), name + ": unchanged\n");
    EXPECT_EQ(Do({"config", name, "--description", "Serves"}), name + ": changed\n");
    EXPECT_EQ(described(name), "Serves");
    EXPECT_THAT(Do({"sc", "qdescription", name}), HasSubstr("Serves"));
    Do({"config", name, "--display", name + " shown"});
    EXPECT_EQ(described(name), "Serves") << "what is not named stays";
    Do({"config", name, "--description", ""});
    EXPECT_FALSE(ReadValue(servicesKey + "\\" + name, "Description"));
    EXPECT_EQ(Do({"apply", file}), name + ": changed\n");
    EXPECT_EQ(described(name), text);
}

// --- what a service runs ---

TEST_F(TvscTells, config_takes_single_variables_away) {
    const auto environment = [&] {
        const Json service = Json::parse(Do({"export", "--json", name})).at("services").at(0);
        return service.at("parameters").value("AppEnvironment", std::vector<std::string>());
    };
    using Variables = std::vector<std::string>;
    (void)Do({"create", name, "--env", "A=1", "--env", "AB=2", "--env", "C=", "--", "/bin/sleep", "1000"});
    Do({"--dry-run", "config", name, "--unset-env", "A"});
    EXPECT_EQ(environment(), (Variables{"A=1", "AB=2", "C="}));
    EXPECT_THAT(Do({"config", name, "--unset-env", "A"}), HasSubstr("changed; holds from its next start on"));
    EXPECT_EQ(environment(), (Variables{"AB=2", "C="})) << "whole names count";
    Do({"config", name, "--unset-env", "C", "--unset-env", "NONE", "--env", "D=4", "--unset-env", "D"});
    EXPECT_EQ(environment(), (Variables{"AB=2", "D=4"})) << "what is set is set";
    Do({"config", name, "--unset-env", "AB", "--unset-env", "D"});
    EXPECT_EQ(environment(), Variables());
    EXPECT_THAT(Fail(2, {"config", name, "--unset-env", "A=1"}), HasSubstr("A=1: not the name of a variable"));
    EXPECT_THAT(Fail(2, {"config", name, "--unset-env", ""}), HasSubstr("not the name of a variable"));
    CreateSample(name + "-script");
    EXPECT_THAT(Fail(1, {"config", name + "-script", "--unset-env", "A"}), HasSubstr("tvhost does not run it"));
}

TEST_F(TvscTells, show_tells_the_command_and_config_changes_it) {
    const std::string seen = folder + "/" + name + ".seen";
    (void)Do({"create", name, "--env", "A=1", "--", "/bin/sh", "-c", "echo $A$B; pwd; exec sleep 1000"});
    EXPECT_THAT(Do({"show", name}), HasSubstr("command: /bin/sh -c 'echo $A$B; pwd; exec sleep 1000'"));
    EXPECT_THAT(Do({"config", name, "--env", "A=2", "--env", "B=3", "--cwd", "/usr", "--stdout", seen}),
                HasSubstr("changed; holds from its next start on"));
    (void)Do({"start", name});
    EXPECT_TRUE(WaitUntil([&] { return ReadWhatIsThere(seen) == "23\n/usr\n"; })) << ReadWhatIsThere(seen);
    (void)Do({"stop", name});
    (void)Do({"config", name, "--exec", "/bin/sleep 2000", "--cwd", ""});
    EXPECT_THAT(Do({"show", name}), HasSubstr("command: /bin/sleep 2000"));
    EXPECT_EQ(Json::parse(Do({"show", name, "--json"})).at("services").at(0).at("config").at("command"),
              "/bin/sleep 2000");
    EXPECT_THAT(Fail(1, {"config", name, "--exec", "/no/such/program"}), HasSubstr("/no/such/program"));
    EXPECT_FALSE(ReadValue(servicesKey + "\\" + name + "\\Parameters", "AppDirectory"));
}

TEST_F(TvscTells, config_has_tvhost_run_a_service_that_had_a_script) {
    CreateSample(name);
    EXPECT_THAT(Fail(1, {"config", name, "--env", "A=1"}), HasSubstr("tvhost does not run it"));
    (void)Do({"config", name, "--exec", "/bin/sleep 1000"});
    EXPECT_EQ(Do({"start", name}), name + ": running\n");
    (void)Do({"stop", name});
}

TEST_F(TvscTells, a_service_program_gets_an_environment_and_a_folder) {
    const std::string seen = folder + "/" + name + ".log";
    (void)Do({"create", name, "--program", "'" + ProgramPath("tvsample") + "' --log '" + seen + "'", "--env",
              "GIVEN=it's $5!", "--cwd", "/usr"});
    (void)Do({"start", name});
    const std::string process = "/proc/" + std::to_string(ProcessOf(name));
    EXPECT_THAT(ReadFile(process + "/environ"), HasSubstr("GIVEN=it's $5!"));
    EXPECT_EQ(std::filesystem::read_symlink(process + "/cwd"), "/usr");
    (void)Do({"stop", name});
    (void)Do({"delete", name, "--wait"});
}

// --- trees and graphs ---

TEST_F(TvscTells, a_tree_shows_what_is_needed) {
    CreatePair();
    EXPECT_THAT(Do({"tree", name + "-2"}), HasSubstr(name + "-1  stopped"));
    const Json graph = Json::parse(Do({"graph", name + "-2", "--json"}));
    EXPECT_EQ(graph.at("schema"), "tvsc.graph/1");
    ASSERT_EQ(graph.at("services").size(), 2u);
    EXPECT_EQ(graph.at("services").at(1).at("needs"), Json::array({name + "-1"}));
}

TEST_F(TvscTells, a_graph_for_graphviz_colours_states_and_shows_what_is_missing_and_rings) {
    CreatePair();
    (void)Tvsc({"create", name + "-3", "--image", folder + "/" + name + "-1.csh", "--depends", name + "-none"});
    const std::string dot = Do({"graph", "--format", "dot", name + "-*"});
    EXPECT_THAT(dot, AllOf(HasSubstr("digraph"), HasSubstr(name + "-none\\nis not there"), HasSubstr("#e4e4e4"),
                           Not(HasSubstr("color=red"))));
    // A ring can only come from behind: the daemon refuses to make one.
    const std::string self = name + "-1" + std::string(2, '\0');
    WriteKey(servicesKey + "\\" + name + "-1", {{"DependOnGroup", REG_MULTI_SZ, self}});
    EXPECT_THAT(Do({"graph", "--format", "dot", name + "-1"}), HasSubstr("color=red"));
    EXPECT_THAT(Do({"tree", name + "-1"}), HasSubstr("a ring"));
    DeleteValue(servicesKey + "\\" + name + "-1", "DependOnGroup");
}

TEST_F(TvscTells, a_drawing_has_the_edges_of_a_ring_in_red_and_no_other) {
    const auto runs = [](const std::string &command) { return RunAndRead({.command = {"/bin/sh", "-c", command}}); };
    if (runs("command -v dot && command -v xmllint").status != 0) GTEST_SKIP() << "graphviz or xmllint is missing";
    for (const char *number : {"1", "2", "3"}) {
        CreateSample(name + number, "", {"--group", "<odd & \"group\">"});
    }
    // 1 and 2 need each other, 3 needs 1 and something that is not there.
    const auto needs = [&](const std::string &number, const std::vector<std::string> &needed) {
        WriteKey(servicesKey + "\\" + name + number, {{"DependOnGroup", REG_MULTI_SZ, MultiSz(needed)}});
    };
    needs("1", {name + "2"});
    needs("2", {name + "1"});
    needs("3", {name + "1", "none"});
    const std::string file = folder + "/ring.svg";
    WriteFile(file, Do({"graph", "--format", "svg", name + "3", name + "1"}));
    EXPECT_EQ(runs("xmllint --noout " + file).status, 0);
    const auto count = [&](const std::string &path) {
        return runs("xmllint --xpath \"count(" + path + ")\" " + file).output;
    };
    const auto part = [](const std::string &kind, const std::string &text) {
        return "//*[@class='" + kind + "'][contains(., '" + text + "')]/*[local-name()='path']";
    };
    const std::string edges = "//*[@class='edge']/*[local-name()='path']";
    EXPECT_EQ(count(edges), "4\n");
    EXPECT_EQ(count(edges + "[@stroke='red']"), "2\n");
    EXPECT_EQ(count(edges + "[@stroke-dasharray]"), "1\n") << "to what is not there";
    EXPECT_EQ(count(part("node", name + "1") + "[@stroke='red']"), "1\n");
    EXPECT_EQ(count(part("node", name + "3") + "[@stroke='red']"), "0\n");
    EXPECT_EQ(count(part("node", "is not there") + "[@stroke-dasharray]"), "1\n");
    // Which edges they are: from and to are in the titles.
    const Json graph = Json::parse(Do({"graph", "--format", "json", name + "*"}));
    EXPECT_EQ(graph.at("schema"), "tvsc.graph/1");
    for (const Json &service : graph.at("services")) {
        EXPECT_EQ(service.at("in_ring"), service.at("name") != name + "3");
    }
    const std::string dot = Do({"graph", "--format", "dot", name + "*"});
    const auto numberOf = [&](const std::string &service) {
        const std::size_t label = dot.find(" [label=\"" + service + "\\n");
        return dot.substr(dot.rfind(' ', label - 1) + 1, label - dot.rfind(' ', label - 1) - 1);
    };
    const auto red = [&](const std::string &from, const std::string &to) {
        const std::string title = numberOf(name + from) + "->" + numberOf(name + to);
        return count("//*[@class='edge'][*[local-name()='title']='" + title +
                     "']/*[local-name()='path'][@stroke='red']");
    };
    EXPECT_EQ(red("1", "2"), "1\n");
    EXPECT_EQ(red("2", "1"), "1\n");
    EXPECT_EQ(red("3", "1"), "0\n");

    const std::string mermaid = Do({"graph", "--format", "mermaid", name + "3"});
    const auto edge = [&](const char *from, const char *to) {
        return "  " + numberOf(name + from) + " --> " + numberOf(name + to) + "\n";
    };
    EXPECT_THAT(mermaid,
                AllOf(testing::StartsWith("flowchart LR\n"), HasSubstr(edge("1", "2")), HasSubstr(edge("2", "1")),
                      HasSubstr(edge("3", "1")), HasSubstr("  linkStyle 0,1 stroke:red"), HasSubstr(" -.-> m0\n"),
                      HasSubstr("[\"none<br/>is not there\"]:::missing"),
                      HasSubstr("[\"group #60;odd #38; #34;group#34;#62;\"]"), HasSubstr("stopped\"]:::stopped")));

    const std::string picture = folder + "/ring.png";
    const std::string draw = runs("command -v rsvg-convert").status == 0
                                 ? "rsvg-convert -o " + picture + " " + file
                                 : "dot -Tpng -o " + picture + " " + folder + "/ring.dot";
    WriteFile(folder + "/ring.dot", dot);
    EXPECT_EQ(runs(draw).status, 0);
    EXPECT_GT(std::filesystem::file_size(picture), 1000u);
    for (const char *number : {"1", "2", "3"}) {
        DeleteValue(servicesKey + "\\" + name + number, "DependOnGroup");
    }
}

TEST_F(TvscTells, a_graph_that_cannot_be_drawn_says_why) {
    const Ended ended =
        RunAndRead({.command = {ProgramPath("tvsc"), "graph", "--format", "svg"}, .environment = {"PATH=" + folder}});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.error, HasSubstr("is it installed?"));
    EXPECT_EQ(Tvsc({"graph", "--format", "png"}).status, 2);
}

// --- explaining ---

TEST_F(TvscTells, explain_takes_codes_their_names_and_services) {
    EXPECT_THAT(Do({"explain", "ERROR_SERVICE_DISABLED"}), HasSubstr("1058 ERROR_SERVICE_DISABLED"));
    CreatePair();
    const std::string text = Tvsc({"explain", name + "-2"}).output;
    EXPECT_THAT(text, AllOf(HasSubstr(name + "-2: stopped"), HasSubstr("needs " + name + "-1, which is stopped"),
                            HasSubstr("tvsc start " + name + "-2 --with-deps")));
    EXPECT_THAT(Fail(5, {"explain", "no-such-service"}), HasSubstr("1060"));
    EXPECT_EQ(Json::parse(Tvsc({"explain", name + "-2", "--json"}).output).at("schema"), "tvsc.findings/1");
}

TEST_F(TvscTells, explain_takes_a_service_called_like_an_option_or_a_code_by_name) {
    CreateSample(name);
    for (const std::string &service : {"--" + name, std::string("1058")}) {
        (void)Do({"create", "--name=" + service, "--image", folder + "/" + name + ".csh"});
        const std::string text = Do({"explain", "--name=" + service});
        EXPECT_THAT(text, HasSubstr(service + ": stopped\n  it is not running"));
        EXPECT_EQ(Do({"explain", "--name", "?" + service.substr(1)}), text) << "a pattern, as other commands take it";
        (void)Do({"delete", "--name=" + service});
    }
    EXPECT_THAT(Fail(5, {"explain", "--name=1058"}), HasSubstr("1060"));
    EXPECT_THAT(Fail(2, {"explain"}), HasSubstr("explain: what is required"));
    EXPECT_THAT(Fail(2, {"explain", "1058", "--name=1058"}), HasSubstr("what excludes --name"));
    EXPECT_THAT(Do({"explain", "--help"}), HasSubstr("--name"));
}

TEST_F(TvscTells, explain_of_a_service_whose_process_is_gone_says_so) {
    CreateSample(name);
    (void)Do({"start", name});
    KillProcessOf(name);
    EXPECT_THAT(Tvsc({"explain", name}).output,
                AllOf(HasSubstr("ended without a word"), HasSubstr("tvsc status --fresh " + name)));
    (void)Do({"reset", name});
}

// --- the doctor ---

TEST_F(TvscTells, the_doctor_finds_each_of_these_and_not_without_them) {
    CreateSample(name);
    EXPECT_EQ(FindingsOn(name), Json::array());
    const std::string key = servicesKey + "\\" + name;

    WriteKey(key, {{"ImagePath", REG_SZ, Sz("/bin/true")}});
    EXPECT_THAT(FindingsOn(name).at(0).at("found"), HasSubstr("its image /bin/true"));
    EXPECT_EQ(Tvsc({"doctor"}).status, 6);
    WriteKey(key, {{"ImagePath", REG_SZ, Sz(folder + "/" + name + ".csh")}});

    WriteKey(key, {{"DependOnService", REG_SZ, Sz("nobody-of-this-name")}});
    EXPECT_THAT(FindingsOn(name).at(0).at("found"), HasSubstr("its account nobody-of-this-name"));
    WriteKey(key, {{"DependOnService", REG_SZ, Sz("")}});
    EXPECT_THAT(FindingsOn(name).at(0).at("why"), HasSubstr("user id 0"));
    DeleteValue(key, "DependOnService");

    WriteKey(key, {{"DependOnGroup", REG_MULTI_SZ, std::string("no-such\0\0", 9)}, {"Start", REG_DWORD, Dword(2)}});
    EXPECT_THAT(FindingsOn(name).at(0).at("found"), HasSubstr("no-such"));
    DeleteValue(key, "DependOnGroup");
    WriteKey(key, {{"Start", REG_DWORD, Dword(3)}});
    EXPECT_EQ(FindingsOn(name), Json::array());

    (void)Do({"start", name});
    EXPECT_EQ(FindingsOn(name), Json::array());
    KillProcessOf(name);
    EXPECT_THAT(FindingsOn(name).at(0).at("found"), HasSubstr("is gone"));
    (void)Do({"reset", name});
    EXPECT_EQ(FindingsOn(name), Json::array());
}

TEST_F(TvscTells, the_doctor_names_the_key_that_breaks_the_database) {
    WriteKey(servicesKey + "\\" + name, {{"Start", REG_DWORD, Dword(3)}});
    const Json about = FindingsOn(name);
    ASSERT_FALSE(about.empty());
    EXPECT_EQ(about.at(0).at("level"), "fail");
    EXPECT_THAT(about.at(0).at("found"), HasSubstr("Type cannot be read"));
    EXPECT_THAT(about.at(0).at("command"), HasSubstr("tvreg add"));
    EXPECT_THAT(about.at(0).at("why"), HasSubstr("1065"));
    DeleteKey(servicesKey + "\\" + name);
    EXPECT_EQ(FindingsOn(name), Json::array());
}

TEST_F(TvscTells, the_doctor_finds_what_an_import_has_brought_behind_the_daemons_back) {
    CreateSample(name + "-model");
    WriteService(name, SERVICE_DEMAND_START, folder + "/" + name + "-model.csh");
    EXPECT_THAT(FindingsOn(name).at(0).at("found"), HasSubstr("the daemon does not list it"));
    DeleteKey(servicesKey + "\\" + name);
    EXPECT_EQ(FindingsOn(name), Json::array());
}

// --- switches and signals ---

TEST_F(TvscTells, enable_and_disable_change_the_start_type_only) {
    CreateSample(name, "", {"--display", "Kept", "--error", "severe"});
    EXPECT_EQ(Do({"enable", name}), name + ": start type auto\n");
    EXPECT_EQ(Do({"disable", name}), name + ": start type disabled\n");
    const Json service = Json::parse(Do({"show", name, "--json"})).at("services").at(0);
    EXPECT_EQ(service.at("config").at("start"), "disabled");
    EXPECT_EQ(service.at("config").at("error_control"), SERVICE_ERROR_SEVERE);
    EXPECT_EQ(service.at("display_name"), "Kept");
}

TEST_F(TvscTells, kill_signals_the_process_and_wait_sees_the_failure) {
    CreateSample(name);
    EXPECT_THAT(Fail(7, {"kill", "KILL", name}), HasSubstr("no process of it is known"));
    EXPECT_THAT(Fail(2, {"kill", "NOSUCH", name}), HasSubstr("no such signal"));
    (void)Do({"start", name});
    EXPECT_THAT(Do({"kill", "KILL", name}), HasSubstr("sent KILL to process"));
    EXPECT_THAT(Do({"wait", name, "--for", "failed", "--timeout", "10s"}), HasSubstr("is gone"));
    (void)Do({"reset", name});
}

TEST_F(TvscTells, reload_reaches_a_program_that_tvhost_runs_and_no_other) {
    CreateSample(name + "-own");
    (void)Do({"start", name + "-own"});
    EXPECT_THAT(Fail(3, {"reload", name + "-own"}), HasSubstr("tvhost does not run it"));
    const std::string seen = folder + "/" + name + ".seen";
    (void)Do(
        {"create", name, "--", "/bin/sh", "-c", "trap 'echo again >>" + seen + "' HUP; while :; do sleep 0.1; done"});
    (void)Do({"start", name});
    EXPECT_EQ(Do({"reload", name}), name + ": reloaded\n");
    EXPECT_TRUE(WaitUntil([&] { return ReadWhatIsThere(seen) == "again\n"; }));
    (void)Do({"stop", name});
}

TEST_F(TvscTells, wait_for_deletion_ends_when_the_service_is_gone) {
    CreateSample(name);
    EXPECT_THAT(Fail(151, {"wait", name, "--for", "deleted", "--timeout", "200ms"}), HasSubstr("still there"));
    const Json healthy = Json::parse(Tvsc({"leftovers", "--json"}).output);
    EXPECT_EQ(healthy.at("schema"), "tvsc.leftovers/1");
}

// Last: what the daemon that ends has started is left over.
TEST_F(TvscTells, zz_processes_of_an_earlier_daemon_are_listed_and_ended) {
    CreateSample(name);
    (void)Do({"start", name});
    const pid_t process = ProcessOf(name);
    EXPECT_EQ(Json::parse(Do({"leftovers", "--json"})).at("processes"), Json::array());
    StopDaemon(serviceDaemon, SIGKILL);
    EXPECT_THAT(Do({"leftovers"}), HasSubstr(std::to_string(process)));
    EXPECT_THAT(Do({"leftovers", "--end"}), HasSubstr("ended"));
    EXPECT_TRUE(HasEnded(process));
    EXPECT_EQ(Json::parse(Do({"leftovers", "--json"})).at("processes"), Json::array());
}

} // namespace
