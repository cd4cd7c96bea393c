// SPDX-License-Identifier: MIT
// How tvsc writes what it tells: tables, JSON, lines of JSON and columns, and what a user's configuration says of that.
#include "tests/support/service_world.h"
#include "tv/winsvc.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <sstream>

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

using Json = nlohmann::json;
using Words = std::vector<std::string>;

struct TvscFormat : ServiceWorld {
    static Ended With(const Words &environment, Words words) {
        words.insert(words.begin(), ProgramPath("tvsc"));
        return RunAndRead({.command = std::move(words), .environment = environment}, 90000);
    }
    static std::vector<Json> LinesOf(const std::string &text) {
        std::vector<Json> lines;
        std::istringstream stream(text);
        for (std::string line; std::getline(stream, line);) {
            lines.push_back(Json::parse(line));
        }
        return lines;
    }
    // A configuration; the variable that tells where it is.
    Words Configured(const std::string &text) const {
        std::filesystem::create_directories(folder + "/config/tvsc");
        WriteFile(folder + "/config/tvsc/config.toml", text);
        return {"XDG_CONFIG_HOME=" + folder + "/config"};
    }
};

TEST_F(TvscFormat, lines_of_json_are_the_rows_of_the_object) {
    CreateSample(name, "", {"--group", "grp"});
    const Json object = Json::parse(Do({"--json", "list", name, "zero"}));
    const std::vector<Json> lines = LinesOf(Do({"--format=jsonl", "list", name, "zero"}));
    ASSERT_EQ(lines.size(), 2u);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        Json row = object.at("services").at(i);
        row["schema"] = "tvsc.status/1";
        row["host"] = "localhost";
        EXPECT_EQ(lines[i], row);
    }
    EXPECT_EQ(Do({"--format", "json", "list", name, "zero"}), Do({"list", name, "zero", "--json"}));
    const Json lock = Json::parse(Do({"--json", "lock", "status"}));
    EXPECT_EQ(LinesOf(Do({"lock", "status", "--format=jsonl"})), std::vector<Json>{lock}) << "what has no rows is one";
    const std::vector<Json> done = LinesOf(Do({"--format=jsonl", "start", name}));
    ASSERT_EQ(done.size(), 1u);
    EXPECT_EQ(done[0].at("schema"), "tvsc.action/1");
    EXPECT_EQ(done[0].at("text"), "running");
}

TEST_F(TvscFormat, columns_have_a_heading_and_a_tab_between_them) {
    CreateSample(name, "", {"--display", "tab\there", "--group", "grp"});
    const std::string heading = "name\tstate\tconfig.start\tpid_hint\tuptime_ms\texit.win32\texit.service_"
                                "specific\tconfig.group\tdisplay_name\n";
    const std::string row = name + "\tstopped\tdemand\t\t\t0\t0\tgrp\ttab\\x09here\n";
    EXPECT_EQ(Do({"--format=tsv", "list", name}), heading + row);
    EXPECT_EQ(Do({"--format=tsv", "--no-legend", "list", name}), row);
    EXPECT_EQ(Do({"--format=tsv", "stop", name}),
              "name\taction\twin32\texit_status\ttext\n" + name + "\tstop\t0\t0\talready stopped\n");
    EXPECT_EQ(Do({"--format=tsv", "--no-legend", "plan", "start", name}), "start\t" + name + "\tnamed\n");
    const Ended failed = Tvsc({"--format=tsv", "--no-legend", "start", name + "-none"});
    EXPECT_EQ(failed.status, 5);
    EXPECT_EQ(failed.output, name + "-none\tstart\t1060\t5\tstart failed\n");
    EXPECT_THAT(failed.error, HasSubstr("1060"));
}

TEST_F(TvscFormat, a_format_that_a_command_does_not_have_is_refused_where_the_line_asks_for_it) {
    const std::vector<Words> lacking = {{"--format=tsv", "explain", "1053"},
                                        {"--format=tsv", "graph"},
                                        {"--format=tsv", "ping"},
                                        {"--format=jsonl", "export"},
                                        {"--format=tsv", "sc", "query"},
                                        {"--format=jsonl", "help"},
                                        {"--format=xml", "list"},
                                        {"--format=tsv", "--host=a,b", "list"}};
    for (const Words &words : lacking) {
        const Ended ended = Tvsc(words);
        EXPECT_EQ(ended.status, 2) << testing::PrintToString(words) << ended.output;
        EXPECT_THAT(ended.error, HasSubstr("--format")) << testing::PrintToString(words);
        EXPECT_EQ(ended.output, "");
    }
    CreateSample(name);
    for (const std::string format : {"json", "jsonl", "tsv"}) {
        const Words environment = {"TVSC_FORMAT=" + format};
        EXPECT_EQ(With(environment, {"export", name}).output, Do({"export", name}));
        EXPECT_EQ(With(environment, {"sc", "query", name}).output, Do({"sc", "query", name}));
        EXPECT_EQ(With(environment, {"list", name}).output, Do({"--format", format, "list", name}));
        EXPECT_EQ(With(environment, {"--format=table", "list", name}).output, Do({"list", name}));
    }
    EXPECT_EQ(With({"TVSC_FORMAT=tsv"}, {"explain", "1053"}).output, Do({"explain", "1053"}));
    EXPECT_EQ(With({"TVSC_FORMAT=xml"}, {"list", name}).status, 2);
    EXPECT_THAT(Do({"graph", "--format=dot", name}), StartsWith("digraph"));
    EXPECT_THAT(Json::parse(With({"TVSC_FORMAT=json"}, {"--host", "localhost,127.0.0.1", "list", name}).output),
                testing::ResultOf([](const Json &json) { return json.at("schema"); }, "tvsc.hosts/1"));
}

TEST_F(TvscFormat, tables_without_a_legend_have_rows_only) {
    CreateSample(name);
    for (const Words &words : {Words{"list", name}, Words{"plan", "start", name}}) {
        Words plain = words;
        plain.insert(plain.begin(), "--no-legend");
        const std::string with = Do(words), without = Do(plain);
        EXPECT_THAT(with, HasSubstr("\n"));
        EXPECT_EQ(std::count(without.begin(), without.end(), '\n'), 1) << without;
        EXPECT_THAT(without, HasSubstr(name));
    }
    WriteFile(folder + "/empty.reg", "REGEDIT4\n\n");
    EXPECT_THAT(Do({"doctor", "--registry", folder + "/empty.reg"}), HasSubstr("looked at"));
    EXPECT_THAT(Do({"--no-legend", "doctor", "--registry", folder + "/empty.reg"}), Not(HasSubstr("looked at")));
}

TEST_F(TvscFormat, a_wait_tells_its_states_when_it_is_to_be_verbose) {
    CreateSample(name, "--start-ms 300");
    const Ended told = Tvsc({"-v", "start", name});
    EXPECT_EQ(told.output, name + ": running\n");
    EXPECT_THAT(told.error, HasSubstr("tvsc: " + name + ": start pending"));
    EXPECT_THAT(Do({"-n", "stop", name}), HasSubstr("1 step"));
    EXPECT_EQ(Do({"stop", name}), name + ": stopped\n");
}

TEST_F(TvscFormat, a_configuration_sets_common_options_and_gives_way_to_the_environment_and_the_line) {
    CreateSample(name);
    const Words environment = Configured("# ours\nformat = \"tsv\"\nno-legend = true\n");
    const std::string columns = Do({"--format=tsv", "--no-legend", "list", name});
    EXPECT_EQ(With(environment, {"list", name}).output, columns);
    EXPECT_EQ(With(environment, {"--format=json", "list", name}).output, Do({"--json", "list", name}));
    EXPECT_EQ(With({environment[0], "TVSC_FORMAT=json"}, {"list", name}).output, Do({"--json", "list", name}));
    EXPECT_EQ(With({"XDG_CONFIG_HOME", "HOME=" + folder}, {"list", name}).output, Do({"list", name}));
    std::filesystem::create_directories(folder + "/.config/tvsc");
    std::filesystem::copy(folder + "/config/tvsc/config.toml", folder + "/.config/tvsc/config.toml");
    EXPECT_EQ(With({"XDG_CONFIG_HOME", "HOME=" + folder}, {"list", name}).output, columns);
    std::filesystem::remove_all(folder + "/.config");

    const Ended elsewhere = With(Configured("host = 'nosuch.invalid'\ncall-timeout = '2s'\n"), {"status", name});
    EXPECT_EQ(elsewhere.status, 4);
    EXPECT_THAT(elsewhere.error, HasSubstr("nosuch.invalid"));
    EXPECT_EQ(With({Configured("host = 'nosuch.invalid'\n")[0], "TVSC_HOST=localhost"}, {"status", name}).status, 3);
}

// Each process on behalf of a host reads the file, too: it would be for several hosts again. An account of its own may
// have a few processes only.
TEST_F(TvscFormat, a_configuration_makes_no_command_one_for_several_hosts) {
    WriteFile(folder + "/hosts", "localhost\n127.0.0.1\n");
    std::filesystem::permissions(folder, std::filesystem::perms(0755));
    const std::vector<std::pair<std::string, std::string>> several = {
        {"hosts = '" + folder + "/hosts'\n", "hosts"}, {"ssh = true\n", "ssh"}, {"host = 'a,b'\n", "host"}};
    for (const auto &[text, option] : several) {
        const Ended ended =
            RunAndRead({.command = {"/usr/bin/setpriv", "--reuid=54321", "--regid=54321", "--clear-groups", "prlimit",
                                    "--nproc=20", ProgramPath("tvsc"), "list"},
                        .environment = Configured(text)},
                       90000);
        EXPECT_EQ(ended.status, 2) << text;
        EXPECT_THAT(ended.error, HasSubstr("config.toml: " + option + ": several hosts"));
        EXPECT_EQ(ended.output, "");
    }
    std::filesystem::remove_all(folder + "/config");
}

TEST_F(TvscFormat, a_configured_format_is_not_that_of_the_processes_for_several_hosts) {
    CreateSample(name);
    const Words hosts = {"--host", "localhost,127.0.0.1"};
    for (const Words &command : {Words{"list", name}, Words{"deps", name}, Words{"show", name, "-p", "state"}}) {
        Words words = hosts;
        words.insert(words.end(), command.begin(), command.end());
        const std::string plain = Tvsc(words).output;
        EXPECT_THAT(plain, HasSubstr("127.0.0.1"));
        EXPECT_EQ(With(Configured("format = 'tsv'\nno-legend = false\n"), words).output, plain);
        words.insert(words.begin(), {"--format", "table"});
        EXPECT_EQ(With(Configured("json = true\n"), words).output, plain);
    }
    std::filesystem::remove_all(folder + "/config");
}

TEST_F(TvscFormat, a_text_that_the_line_names_is_not_what_is_configured) {
    CreateSample(name);
    const std::vector<Words> texts = {
        {"list", "--names-only", name}, {"show", "-p", "state", name}, {"graph", "--format", "dot", name}};
    for (const std::string format : {"json", "jsonl", "tsv"}) {
        for (const Words &words : texts) {
            const Ended ended = With({"TVSC_FORMAT=" + format}, words);
            EXPECT_EQ(ended.status, 0) << ended.error;
            EXPECT_EQ(ended.output.substr(0, 90), Do(words).substr(0, 90)) << format;
        }
    }
    EXPECT_EQ(Do({"list", "--names-only", "--json", name}), Do({"list", "--brief", "--json", name}))
        << "what the line itself asks for counts";
    const Words environment = Configured("json = true\n");
    EXPECT_EQ(With({environment[0], "TVSC_FORMAT=tsv"}, {"list", name}).output, Do({"--format=tsv", "list", name}));
    std::filesystem::remove_all(folder + "/config");
}

TEST_F(TvscFormat, nothing_outside_the_line_counts_where_it_says_so) {
    CreateSample(name);
    const Words environment = {Configured("host = 'nosuch.invalid'\nno-such-option = 1\n")[0], "TVSC_HOST=a,b",
                               "TVSC_FORMAT=yaml", "TVSC_TIMEOUT=never", "TVSC_COLOR=red"};
    EXPECT_EQ(With(environment, {"--no-config", "list", name}).output, Do({"list", name}));
    EXPECT_EQ(With(environment, {"list", name, "--no-config"}).output, Do({"list", name}));
    EXPECT_EQ(With(environment, {"list", name}).status, 2);
    std::filesystem::remove_all(folder + "/config");
}

TEST_F(TvscFormat, a_wrong_line_is_told_in_the_format_that_it_asks_for) {
    const auto isUsage = testing::ResultOf(
        [](const Ended &ended) { return Json::parse(ended.output).at("results").at(0).at("action"); }, "usage");
    EXPECT_THAT(Tvsc({"--format", "json", "lst"}), isUsage);
    EXPECT_THAT(Tvsc({"list", "--no-such", "--format=json"}), isUsage);
    EXPECT_THAT(With({"TVSC_FORMAT=json"}, {"lst"}), isUsage);
    const std::vector<Json> lines = LinesOf(Tvsc({"--format", "jsonl", "start"}).output);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].at("action"), "usage");
    EXPECT_EQ(With({"TVSC_FORMAT=json"}, {"--format", "table", "lst"}).output, "");
}

TEST_F(TvscFormat, help_and_the_version_are_given_where_the_environment_means_nothing) {
    for (const std::string option : {"--help", "--version"}) {
        EXPECT_EQ(With({"TVSC_FORMAT=yaml"}, {option}).output, Do({option}));
    }
    EXPECT_THAT(With({"TVSC_FORMAT=yaml"}, {"list"}).error, HasSubstr("TVSC_FORMAT: "));
}

TEST_F(TvscFormat, a_configuration_that_means_nothing_is_told_and_help_is_given_all_the_same) {
    const std::vector<std::pair<std::string, std::string>> wrong = {{"colour = 'never'\n", "colour: no such option"},
                                                                    {"dry-run = true\n", "dry-run: no such option"},
                                                                    {"format = 'xml'\n", "xml"},
                                                                    {"[list]\nbrief = true\n", "common options only"}};
    for (const auto &[text, words] : wrong) {
        const Words environment = Configured(text);
        const Ended ended = With(environment, {"list"});
        EXPECT_EQ(ended.status, 2) << text;
        EXPECT_THAT(ended.error, AllOf(HasSubstr("/config/tvsc/config.toml: "), HasSubstr(words)));
        EXPECT_EQ(With(environment, {"list", "--help"}).status, 0) << text;
    }
    std::filesystem::remove_all(folder + "/config");
}

} // namespace
