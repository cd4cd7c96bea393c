// SPDX-License-Identifier: MIT
// The commands of tvreg beyond the plain ones, against a real registry daemon: the verbs of the Win32 tool with their
// spellings and statuses, and what there is beside them.
#include "tests/support/json_schema.h"
#include "tests/support/tvreg_fixture.h"
#include "tv/winreg.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <sys/resource.h>

#include <csignal>
#include <filesystem>

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using Json = nlohmann::json;

namespace {

struct TvregCommands : TvregFixture {
    // A shell command, with a folder of the test's own for snapshots.
    Ended Shell(const std::string &command, std::vector<std::string> environment = {}) {
        environment.push_back("XDG_STATE_HOME=" + folder + "/state");
        environment.push_back("TVREG=" + ProgramPath("tvreg"));
        environment.push_back("KEY=" + key);
        return RunAndRead({.command = {"/bin/bash", "-c", command}, .environment = environment});
    }
};

} // namespace

// --- the verbs of the Win32 tool -----------------------------------------------------------------------------------

TEST_F(TvregCommands, win32_spellings_mean_what_they_mean_there) {
    (void)Do({"add", key, "/v", "a", "/t", "REG_MULTI_SZ", "/d", "one\\0two", "/f"});
    (void)Do({"add", key, "/v", "b", "/t", "REG_MULTI_SZ", "/s", ",", "/d", "one,two", "/f"});
    (void)Do({"add", key, "/ve", "/d", "unnamed"});
    (void)Do({"add", key, "/v", "e", "/t", "REG_DWORD", "/d", "7"});
    EXPECT_THAT(ReadValues(name),
                ElementsAre(RegistryValue{"a", REG_MULTI_SZ, MultiSz({"one", "two"})},
                            RegistryValue{"b", REG_MULTI_SZ, MultiSz({"one", "two"})},
                            RegistryValue{"", REG_SZ, Sz("unnamed")}, RegistryValue{"e", REG_DWORD, Dword(7)}));
    EXPECT_EQ(Do({"query", key, "/ve"}), longKey + "\n    (Default)    REG_SZ    unnamed\n\n");
    // -ve took the value "e", -va the value "a".
    (void)Do({"delete", key, "-ve"});
    EXPECT_EQ(ReadValue(name, ""), std::nullopt);
    EXPECT_NE(ReadValue(name, "e"), std::nullopt);
    (void)Do({"delete", key, "-va"});
    EXPECT_THAT(ReadValues(name), IsEmpty());
    EXPECT_TRUE(KeyExists(name));
}

TEST_F(TvregCommands, query_searches_where_it_is_told) {
    WriteKey(name + "\\Alpha", {{"beta", REG_SZ, Sz("gamma")}, {"n", REG_DWORD, Dword(255)}});
    WriteKey(name + "\\other", {{"alpha", REG_MULTI_SZ, MultiSz({"x", "y"})}});
    const std::string alpha = longKey + "\\Alpha\n", other = longKey + "\\other\n";
    EXPECT_EQ(Do({"query", key, "/s", "/f", "alpha"}),
              alpha + "\n" + other + "    alpha    REG_MULTI_SZ    x\\0y\n\nEnd of search: 2 matches found.\n");
    EXPECT_EQ(Do({"query", key, "/s", "/f", "alpha", "/k"}), alpha + "\nEnd of search: 1 match found.\n");
    EXPECT_EQ(Do({"query", key, "/s", "/f", "AMM", "/d"}),
              alpha + "    beta    REG_SZ    gamma\n\nEnd of search: 1 match found.\n");
    EXPECT_EQ(Do({"query", key, "/s", "/f", "b?t*", "/e", "/v"}),
              alpha + "    beta    REG_SZ    gamma\n\nEnd of search: 1 match found.\n");
    EXPECT_EQ(Do({"query", key, "/f", "alpha"}), alpha + "\nEnd of search: 1 match found.\n");
}

TEST_F(TvregCommands, a_search_without_a_match_ends_with_5) {
    WriteKey(name, {{"v", REG_SZ, Sz("Text")}});
    const Ended none = Run({"query", key, "/s", "/f", "text", "/c"});
    EXPECT_EQ(none.status, 5);
    EXPECT_EQ(none.output, "End of search: 0 matches found.\n");
    EXPECT_EQ(Run({"find", "nowhere to be found", key}).status, 5);
    EXPECT_EQ(Do({"find", "text", key}), longKey + "\n    v    REG_SZ    Text\n\nEnd of search: 1 match found.\n");
    EXPECT_EQ(Json::parse(Do({"find", "text", key, "--json"}))["matches"], 1);
    EXPECT_EQ(Run({"find", "[", key}).status, 5); // no pattern of a shell
}

TEST_F(TvregCommands, a_search_ignores_case_as_names_do) {
    WriteKey(name + "\\Ärger", {{"Größe", REG_SZ, Sz("Ωmega")}});
    const std::string found = longKey + "\\Ärger\n    Größe    REG_SZ    Ωmega\n\nEnd of search: 1 match found.\n";
    EXPECT_EQ(Shell("LC_ALL=C.UTF-8 \"$TVREG\" find GRÖßE \"$KEY\"").output, found);
    EXPECT_EQ(Shell("LC_ALL=C.UTF-8 \"$TVREG\" find ωM?GA --in-data -e \"$KEY\"").output, found);
    EXPECT_EQ(Shell("LC_ALL=C.UTF-8 \"$TVREG\" find '?mega' --in-data -e \"$KEY\"").output, found); // a character
    EXPECT_EQ(Run({"find", "ärger", key}).status, 0);
    EXPECT_EQ(Run({"find", "ärger", key, "-c"}).status, 5);
    EXPECT_EQ(Run({"query", key, "-s", "-v", "gRÖßE"}).status, 0);
    EXPECT_EQ(Run({"find", "a*a*b", key}).status, 5);
    EXPECT_EQ(Run({"find", "g*ß*e*", key, "-e"}).status, 0);
}

TEST_F(TvregCommands, query_shows_types_by_number_and_multis_as_told) {
    WriteKey(name, {{"m", REG_MULTI_SZ, MultiSz({"x", "y"})}, {"q", REG_QWORD, std::string("\1\0\0\0\1\0\0\0", 8)}});
    EXPECT_EQ(Do({"query", key, "/z", "/se", ";"}),
              longKey + "\n    m    REG_MULTI_SZ (7)    x;y\n    q    REG_QWORD (11)    0x100000001\n\n");
}

TEST_F(TvregCommands, copy_takes_values_or_all_below_and_replaces_only_when_told) {
    WriteKey(name + "\\from", {{"v", REG_SZ, Sz("new")}, {"w", REG_DWORD, Dword(1)}});
    WriteKey(name + "\\from\\below", {{"x", REG_SZ, Sz("y")}});
    (void)Do({"copy", key + "\\from", key + "\\to"});
    EXPECT_EQ(ReadValues(name + "\\to"), ReadValues(name + "\\from"));
    EXPECT_THAT(ReadSubKeys(name + "\\to"), IsEmpty());
    (void)Do({"copy", key + "\\from", key + "\\to", "/s"}); // nothing differs: nothing is lost
    EXPECT_THAT(ReadValues(name + "\\to\\below"), ElementsAre(RegistryValue{"x", REG_SZ, Sz("y")}));
    WriteKey(name + "\\to\\below", {{"x", REG_SZ, Sz("other")}, {"stays", REG_SZ, Sz("x")}});
    WriteKey(name + "\\from", {{"late", REG_SZ, Sz("x")}});
    const Ended refused = Run({"copy", key + "\\from", key + "\\to", "/s"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.error, HasSubstr(longKey + "\\to\\below, value \"x\": is there with other data"));
    EXPECT_EQ(ReadValue(name + "\\to", "late"), std::nullopt);
    (void)Do({"copy", key + "\\from", key + "\\to", "/s", "/f"});
    EXPECT_EQ(ReadValue(name + "\\to\\below", "x")->data, Sz("y"));
    EXPECT_NE(ReadValue(name + "\\to\\below", "stays"), std::nullopt);
    EXPECT_EQ(Run({"copy", key + "\\none", key + "\\to"}).status, 5);
}

// It read all below the target, as for /s, where there may be a million keys.
TEST_F(TvregCommands, copy_of_values_alone_does_not_look_below_the_target) {
    WriteKey(name + "\\from", {{"v", REG_SZ, Sz("x")}});
    std::string text = "REGEDIT4\n";
    for (int i = 0; i < 1000; ++i) {
        text += "[" + longKey + "\\to\\" + std::to_string(i) + "]\n";
    }
    (void)Do({"import", File(text)});
    const auto cpuOfCopy = [&](const std::vector<std::string> &arguments) {
        const auto cpuMs = [] {
            rusage used = {};
            (void)getrusage(RUSAGE_CHILDREN, &used);
            return used.ru_utime.tv_sec * 1000 + used.ru_utime.tv_usec / 1000 + used.ru_stime.tv_sec * 1000 +
                   used.ru_stime.tv_usec / 1000;
        };
        const auto before = cpuMs();
        (void)Do(arguments);
        return cpuMs() - before;
    };
    const auto all = cpuOfCopy({"copy", key + "\\from", key + "\\to", "/s"});
    EXPECT_LT(cpuOfCopy({"copy", key + "\\from", key + "\\to"}), all / 2);
}

TEST_F(TvregCommands, compare_ends_with_2_for_a_difference_and_shows_what_it_is_told) {
    WriteKey(name + "\\a", {{"same", REG_SZ, Sz("x")}, {"v", REG_SZ, Sz("1")}, {"only a", REG_SZ, Sz("x")}});
    WriteKey(name + "\\b", {{"v", REG_SZ, Sz("2")}, {"same", REG_SZ, Sz("x")}});
    WriteKey(name + "\\b\\below", {});
    const std::string a = key + "\\a", b = key + "\\b", longA = longKey + "\\a", longB = longKey + "\\b";
    const Ended different = Run({"compare", a, b});
    EXPECT_EQ(different.status, 2);
    EXPECT_EQ(different.output, "< Value:  " + longA + "  v  REG_SZ  1\n> Value:  " + longB +
                                    "  v  REG_SZ  2\n< Value:  " + longA +
                                    "  only a  REG_SZ  x\nResult Compared: Different\n");
    EXPECT_EQ(Run({"compare", a, b, "/os"}).output,
              "= Value:  " + longA + "  same  REG_SZ  x\nResult Compared: Different\n");
    EXPECT_THAT(Run({"compare", a, b, "/oa", "/s"}).output,
                AllOf(HasSubstr("= Value"), HasSubstr("> Key:  " + longB + "\\below\n")));
    EXPECT_EQ(Run({"compare", a, b, "/on"}).output, "");
    EXPECT_EQ(Do({"compare", a, b, "/v", "SAME"}), "Result Compared: Identical\n");
    EXPECT_EQ(Do({"compare", a, a, "/s"}), "Result Compared: Identical\n");
    const Json told = Json::parse(Run({"compare", a, b, "--json"}).output);
    EXPECT_EQ(told["schema"], "tvreg.compare/1");
    EXPECT_EQ(told["identical"], false);
    EXPECT_EQ(told["differences"].size(), 2u);
    EXPECT_EQ(Run({"compare", a, key + "\\none"}).status, 5);
    EXPECT_EQ(Run({"compare", a}).status, 1); // wrong arguments are not a difference
}

TEST_F(TvregCommands, hives_are_saved_restored_loaded_and_unloaded_by_the_daemon) {
    WriteKey(name + "\\k\\below", {{"v", REG_SZ, Sz("1")}});
    const std::string hive = folder + "/hive", k = key + "\\k";
    std::filesystem::remove(hive);
    EXPECT_EQ(Do({"save", k, hive, "/y"}), "");
    WriteKey(name + "\\k\\below", {{"v", REG_SZ, Sz("2")}});
    EXPECT_EQ(Do({"restore", k, hive}), "");
    EXPECT_EQ(ReadValue(name + "\\k\\below", "v")->data, Sz("1"));
    EXPECT_EQ(Do({"load", "HKLM\\" + name + "Loaded", hive}), "");
    EXPECT_EQ(ReadValue(name + "Loaded\\below", "v")->data, Sz("1"));
    EXPECT_EQ(Do({"unload", "HKLM\\" + name + "Loaded"}), "");
    EXPECT_FALSE(KeyExists(name + "Loaded"));
    EXPECT_EQ(Run({"save", key + "\\none", hive}).status, 5);
    EXPECT_NE(Run({"restore", k, folder + "/no hive"}).status, 0);
    EXPECT_EQ(ReadValue(name + "\\k\\below", "v")->data, Sz("1"));
    // The daemon would look for it in a folder of its own.
    const Ended here =
        RunAndRead({.command = {ProgramPath("tvreg"), "save", k, "relative", "--json"}, .directory = folder});
    EXPECT_EQ(here.status, 0) << here.error;
    EXPECT_EQ(Json::parse(here.output)["file"], folder + "/relative");
    EXPECT_TRUE(std::filesystem::exists(folder + "/relative"));
}

TEST_F(TvregCommands, export_takes_the_yes_of_the_win32_tool) {
    WriteKey(name, {});
    const std::string file = File("old");
    (void)Do({"export", key, file, "/y"});
    EXPECT_THAT(ReadFile(file), StartsWith("\xFF\xFE"));
    EXPECT_EQ(Json::parse(Do({"export", key, "--json"}))["schema"], "tvreg.export/1");
}

// --- beside them ---------------------------------------------------------------------------------------------------

TEST_F(TvregCommands, tree_draws_keys_as_deep_as_told) {
    WriteKey(name + "\\a\\b", {{"v", REG_SZ, Sz("x")}});
    WriteKey(name + "\\c", {});
    EXPECT_EQ(Shell("LC_ALL=C \"$TVREG\" tree \"$KEY\"").output,
              longKey + "\n|-- a\n|   `-- b\n`-- c\n3 keys below, 1 value\n");
    EXPECT_EQ(Shell("LC_ALL=C.UTF-8 \"$TVREG\" tree \"$KEY\" --depth 1").output,
              longKey + "\n├── a\n└── c\n2 keys below, 0 values\n");
    EXPECT_EQ(Json::parse(Do({"tree", key, "--json"}))["subkeys"][0]["subkeys"][0]["name"], "b");
    EXPECT_EQ(Run({"tree", key + "\\none"}).status, 5);
}

TEST_F(TvregCommands, diff_compares_keys_and_files_in_any_mix) {
    WriteKey(name + "\\a", {{"v", REG_SZ, Sz("1")}});
    WriteKey(name + "\\b", {{"v", REG_SZ, Sz("2")}});
    WriteKey(name + "\\b\\new", {});
    const Ended keys = Run({"diff", key + "\\a", key + "\\b"});
    EXPECT_EQ(keys.status, 1);
    EXPECT_EQ(keys.output,
              "  [" + longKey + "\\a]\n-     v  REG_SZ  1\n+     v  REG_SZ  2\n+ [" + longKey + "\\a\\new]\n");
    const std::string file = folder + "/diff.reg";
    (void)Do({"export", key, file});
    EXPECT_EQ(Do({"diff", file, key}), "");
    EXPECT_EQ(Do({"diff", file, file}), "");
    WriteKey(name + "\\a", {{"late", REG_SZ, Sz("x")}});
    EXPECT_EQ(Run({"diff", file, key}).output, "  [" + longKey + "\\a]\n+     late  REG_SZ  x\n");
    EXPECT_EQ(Json::parse(Run({"diff", key, file, "--json"}).output)["differences"][0]["kind"], "removed");
    EXPECT_EQ(Run({"diff", key, folder + "/none.reg"}).status, 2);
    EXPECT_EQ(Run({"diff", key + "\\none", key}).status, 5);
}

TEST_F(TvregCommands, host_names_the_machine_for_the_command_or_for_one_key) {
    WriteKey(name, {{"v", REG_SZ, Sz("x")}});
    EXPECT_EQ(Do({"get", "--host", "127.0.0.1", key, "v"}), "x\n");
    EXPECT_EQ(Do({"get", "\\\\127.0.0.1\\" + key, "v"}), "x\n");
    EXPECT_EQ(Do({"diff", key, "--host2", "127.0.0.1"}), "");
    EXPECT_EQ(Do({"export", "--reg4", "\\\\127.0.0.1\\" + key}), "REGEDIT4\n\n[" + longKey + "]\n\"v\"=\"x\"\n");
    (void)Do({"copy", "\\\\127.0.0.1\\" + key, "\\\\127.0.0.1\\" + key + "\\copy"});
    EXPECT_TRUE(KeyExists(name + "\\copy"));
    EXPECT_EQ(Run({"get", "--host", "10.9.9.9", key, "v"}).status, 150);
    EXPECT_EQ(Run({"get", "\\\\10.9.9.9\\" + key, "v"}).status, 150);
    EXPECT_EQ(Run({"get", "\\\\" + key, "v"}).status, 2);
}

TEST_F(TvregCommands, timeout_ends_what_takes_longer) {
    const Ended ended =
        Shell("(exec 3<>/dev/tcp/127.0.0.1/111; sleep 5) & sleep 9 | \"$TVREG\" import - --timeout 0.3");
    EXPECT_EQ(ended.status, 151);
    EXPECT_EQ(ended.error, "tvreg: the time that --timeout gives is over\n");
    const Json told = Json::parse(Shell("sleep 5 | \"$TVREG\" import - --timeout 0.1 --json").output);
    EXPECT_EQ(told["schema"], "tvreg.error/1");
    EXPECT_EQ(told["message"], "the time that --timeout gives is over");
}

TEST_F(TvregCommands, options_of_all_commands_stand_in_front_of_them_too) {
    WriteKey(name, {{"v", REG_SZ, Sz("x")}});
    const std::string behind = Do({"query", key, "--json"});
    EXPECT_EQ(Do({"--json", "query", key}), behind);
    EXPECT_EQ(Do({"--host", "localhost", "--timeout=20", "--json", "query", key}), behind);
    EXPECT_EQ(Do({"--timeout", "20", "query", key, "/v", "v"}), Do({"query", key, "/v", "v"}));
    EXPECT_EQ(Json::parse(Do({"--json", "snapshot", "list"}))["schema"], "tvreg.snapshots/1");
    EXPECT_EQ(Run({"--json", "querry", key}).error, "tvreg: querry: no such command; did you mean query?\n");
    EXPECT_EQ(Run({"--json"}).status, 2);
    EXPECT_EQ(Run({"--host"}).status, 2);
}

TEST_F(TvregCommands, watch_shows_changes_as_they_come) {
    WriteKey(name, {{"v", REG_SZ, Sz("1")}, {"goes", REG_SZ, Sz("x")}});
    const std::string out = folder + "/watched";
    const pid_t watching = StartProgram(
        {.command = {ProgramPath("tvreg"), "watch", key, "--interval", "0.05", "--json", "--timeout", "60"},
         .outputFile = out});
    EXPECT_TRUE(WaitUntil([&] { // there is no telling when it has read the key for the first time
        const std::string data = ReadValue(name, "v")->data;
        WriteKey(name, {{"v", REG_SZ, Sz(data == Sz("1") ? "2" : "1")}});
        return ReadWhatIsThere(out).find("\"changed\"") != std::string::npos;
    }));
    DeleteValue(name, "goes");
    WriteKey(name + "\\new", {});
    EXPECT_TRUE(WaitUntil([&] { return ReadWhatIsThere(out).find("\"added\"") != std::string::npos; }));
    EXPECT_TRUE(WaitUntil([&] { return ReadWhatIsThere(out).find("\"removed\"") != std::string::npos; }));
    const Json event = Json::parse(ReadFile(out).substr(0, ReadFile(out).find('\n')));
    EXPECT_EQ(event["schema"], "tvreg.event/1");
    EXPECT_EQ(event["before"]["name"], "v");
    EXPECT_NE(event["before"]["data"], event["after"]["data"]);
    kill(watching, SIGTERM);
    (void)WaitForEnd(watching);
}

TEST_F(TvregCommands, watch_ends_with_its_time_and_status_0) {
    WriteKey(name, {});
    EXPECT_EQ(Do({"watch", key, "--timeout", "0.3"}), "");
}

TEST_F(TvregCommands, snapshots_are_taken_listed_compared_and_gone_back_to) {
    WriteKey(name, {{"v", REG_SZ, Sz("1")}, {"bytes", REG_SZ, Sz("\xFF")}});
    WriteKey(name + "\\old\\deep", {{"x", REG_DWORD, Dword(1)}});
    EXPECT_EQ(Shell("\"$TVREG\" snapshot take \"$KEY\" first").output, "first\n");
    EXPECT_EQ(Shell("\"$TVREG\" snapshot take \"$KEY\" first").status, 1);
    EXPECT_THAT(Shell("\"$TVREG\" snapshot list").output, AllOf(StartsWith("first  2"), HasSubstr(longKey)));
    EXPECT_EQ(Shell("\"$TVREG\" snapshot diff first").status, 0);
    WriteKey(name, {{"v", REG_SZ, Sz("2")}});
    WriteKey(name + "\\new", {});
    DeleteKey(name + "\\old");
    const Ended diff = Shell("\"$TVREG\" snapshot diff first");
    EXPECT_EQ(diff.status, 1);
    EXPECT_THAT(diff.output, AllOf(HasSubstr("-     v  REG_SZ  1\n+     v  REG_SZ  2\n"),
                                   HasSubstr("+ [" + longKey + "\\new]"), HasSubstr("- [" + longKey + "\\old\\deep]")));
    EXPECT_EQ(Shell("\"$TVREG\" snapshot restore -n first").status, 0);
    EXPECT_TRUE(KeyExists(name + "\\new"));
    EXPECT_EQ(Shell("\"$TVREG\" snapshot restore first").status, 0);
    EXPECT_EQ(Shell("\"$TVREG\" snapshot diff first").output, "");
    EXPECT_FALSE(KeyExists(name + "\\new"));
    EXPECT_EQ(ReadValue(name, "bytes")->data, Sz("\xFF"));
    DeleteKey(name); // also when all of it is gone
    EXPECT_EQ(Shell("\"$TVREG\" snapshot restore first").status, 0);
    EXPECT_EQ(ReadValue(name + "\\old\\deep", "x")->data, Dword(1));
    EXPECT_EQ(Shell("\"$TVREG\" snapshot diff nothing").status, 5);
    EXPECT_EQ(Shell("\"$TVREG\" snapshot take \"$KEY\" ../out").status, 2);
}

TEST_F(TvregCommands, edit_writes_what_the_editor_has_changed) {
    WriteKey(name, {{"v", REG_SZ, Sz("old")}, {"goes", REG_SZ, Sz("x")}, {"stays", REG_BINARY, "\xFF"}});
    const Ended edited = Shell("\"$TVREG\" edit \"$KEY\"", {"VISUAL=sed -i -e s/old/new/ -e /goes/d"});
    EXPECT_EQ(edited.status, 0) << edited.error;
    EXPECT_THAT(ReadValues(name),
                ElementsAre(RegistryValue{"v", REG_SZ, Sz("new")}, RegistryValue{"stays", REG_BINARY, "\xFF"}));
    EXPECT_EQ(edited.output,
              "  [" + longKey + "]\n-     v  REG_SZ  old\n+     v  REG_SZ  new\n-     goes  REG_SZ  x\n");
}

TEST_F(TvregCommands, edit_writes_nothing_where_the_text_is_wrong_and_keeps_it) {
    WriteKey(name, {{"v", REG_SZ, Sz("old")}});
    const Ended wrong =
        Shell("\"$TVREG\" edit \"$KEY\"", {"EDITOR=sed -i -e s/old/new/ -e '$awrong'", "TMPDIR=" + folder});
    EXPECT_EQ(wrong.status, 6);
    EXPECT_THAT(wrong.error, AllOf(HasSubstr(":5: neither a key"), HasSubstr("nothing is written; the text is in ")));
    EXPECT_EQ(ReadValue(name, "v")->data, Sz("old"));
    std::string kept = wrong.error.substr(wrong.error.rfind(" in ") + 4);
    kept.pop_back();
    EXPECT_THAT(ReadFile(kept), HasSubstr("\"v\"=\"new\""));
    EXPECT_EQ(Shell("\"$TVREG\" edit \"$KEY\"", {"EDITOR=sed -i s/" + name + "/Elsewhere/"}).status, 6);
    EXPECT_EQ(Shell("\"$TVREG\" edit \"$KEY\"", {"EDITOR=false"}).status, 1);
}

TEST_F(TvregCommands, edit_writes_nothing_where_the_key_has_changed_meanwhile) {
    WriteKey(name, {{"v", REG_SZ, Sz("old")}});
    const Ended ended =
        Shell("\"$TVREG\" edit \"$KEY\"", {"EDITOR=\"$TVREG\" set \"$KEY\" v meanwhile; sed -i s/old/new/", "VISUAL"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.error, HasSubstr("has been changed meanwhile; nothing is written"));
    EXPECT_EQ(ReadValue(name, "v")->data, Sz("meanwhile"));
}

TEST_F(TvregCommands, lint_tells_everything_that_would_keep_services_from_loading_or_starting) {
    const std::string script = folder + "/image", program = ProgramPath("tvreg");
    WriteFile(script, "#!/bin/csh\nexec /bin/true\n");
    WriteService("fine", 3, script);
    EXPECT_EQ(Do({"lint"}), "");
    WriteService("ring1", 2, script, {{"DependOnGroup", REG_MULTI_SZ, MultiSz({"ring2"})}});
    WriteService("ring2", 3, script, {{"DependOnGroup", REG_MULTI_SZ, MultiSz({"ring1"})}});
    const Ended warned = Run({"lint"});
    EXPECT_EQ(warned.status, 0);
    EXPECT_THAT(warned.output, AllOf(HasSubstr("WARN ring"), HasSubstr("depends on itself"), Not(HasSubstr("FAIL"))));
    DeleteKey(servicesKey + "\\ring1");
    DeleteKey(servicesKey + "\\ring2");
    // Of services that are started later, but not of disabled ones.
    WriteService("later1", 3, script, {{"DependOnGroup", REG_MULTI_SZ, MultiSz({"later2"})}});
    WriteService("later2", 3, script, {{"DependOnGroup", REG_MULTI_SZ, MultiSz({"later1"})}});
    WriteService("asks", 3, script, {{"DependOnGroup", REG_MULTI_SZ, MultiSz({"none", "+nowhere"})}});
    WriteService("off", 4, script, {{"DependOnGroup", REG_MULTI_SZ, MultiSz({"none"})}});
    WriteService("image", 3, "");
    DeleteValue(servicesKey + "\\image", "ImagePath");
    const std::string later = Do({"lint"});
    for (const char *line : {"WARN later1: depends on itself (later1 > later2 > later1)",
                             "WARN asks: depends on none, which does not exist",
                             "WARN asks: depends on group nowhere, which is empty", "WARN image: has no image path"}) {
        EXPECT_THAT(later, HasSubstr(line));
    }
    EXPECT_THAT(later, Not(HasSubstr("off")));
    // The third takes the tag of the second, which comes first in the group.
    WriteService("tag1", 3, script, {{"Group", REG_SZ, Sz("sorted")}, {"Tag", REG_DWORD, Dword(1)}});
    WriteService("tag2", 3, script, {{"Group", REG_SZ, Sz("sorted")}, {"Tag", REG_DWORD, Dword(2)}});
    WriteService("tag3", 3, script, {{"Group", REG_SZ, Sz("sorted")}});
    EXPECT_THAT(Do({"lint"}), Not(HasSubstr("Tag")));
    WriteKey(groupTagsKey, {{"sorted", REG_BINARY, Dword(2) + Dword(2) + Dword(1)}});
    const std::string tagged = Do({"lint"});
    EXPECT_THAT(tagged, HasSubstr("WARN tag3: has no Tag and takes that of the service loaded before it, 2, by which "
                                  "its group sorted is sorted\n"));
    EXPECT_THAT(tagged, Not(HasSubstr("WARN tag2")));
    WriteKey(servicesKey + "\\bare", {});
    WriteService("wide", 3, script, {{"Tag", REG_BINARY, "12345"}});
    WriteService("elf", 3, program);
    WriteService("line", 3, "/usr/sbin/x -y");
    WriteService("who", 3, script, {{"DependOnService", REG_SZ, Sz("no such user")}});
    const Ended failed = Run({"lint"});
    EXPECT_EQ(failed.status, 6);
    for (const char *line :
         {"FAIL bare: Type cannot be read (2 ERROR_FILE_NOT_FOUND", "FAIL bare: DisplayName cannot be read",
          "FAIL wide: Tag cannot be read (234 ", "is a program: csh takes it for a script",
          "FAIL line: its image /usr/sbin/x -y is a command line",
          "FAIL who: its account no such user is no user of this machine"}) {
        EXPECT_THAT(failed.output, HasSubstr(line));
    }
    const Json told = Json::parse(Run({"lint", "--json"}).output);
    EXPECT_EQ(told["schema"], "tvreg.lint/1");
    EXPECT_EQ(told["findings"][0]["level"], "fail");
    DeleteKey(servicesKey);
    DeleteKey(groupTagsKey);
}

TEST_F(TvregCommands, what_may_have_been_meant_is_told) {
    WriteKey(name + "\\Service", {{"Display", REG_SZ, Sz("x")}});
    EXPECT_EQ(Run({"querry", key}).error, "tvreg: querry: no such command; did you mean query?\n");
    EXPECT_THAT(Run({"query", key, "--recusrive"}).error, HasSubstr("tvreg: did you mean --recursive?\n"));
    EXPECT_THAT(Run({"snapshot", "takee"}).error, HasSubstr("tvreg: did you mean take?\n"));
    EXPECT_THAT(Run({"query", key + "\\Servcie\\x"}).error,
                HasSubstr("tvreg: did you mean " + longKey + "\\Service?\n"));
    EXPECT_THAT(Run({"get", key + "\\Service", "Dsiplay"}).error, HasSubstr("tvreg: did you mean Display?\n"));
    EXPECT_THAT(Run({"query", key, "-t", "REG_DWRD"}).error, HasSubstr("tvreg: did you mean REG_DWORD"));
    EXPECT_THAT(Run({"completion", "bsah"}).error, HasSubstr("tvreg: did you mean bash?\n"));
    EXPECT_THAT(Shell("\"$TVREG\" snapshot take \"$KEY\" before; \"$TVREG\" snapshot diff befroe").error,
                HasSubstr("tvreg: did you mean before?\n"));
    const Json told = Json::parse(Run({"get", key + "\\Service", "Dsiplay", "--json"}).output);
    EXPECT_EQ(told["schema"], "tvreg.error/1");
    EXPECT_EQ(told["win32"], 2);
    EXPECT_EQ(told["symbol"], "ERROR_FILE_NOT_FOUND");
    EXPECT_EQ(told["suggest"][0], "Display");
    const Json wrong = Json::parse(Run({"query", key, "--json", "--recusrive"}).output);
    EXPECT_EQ(wrong["schema"], "tvreg.error/1");
    EXPECT_EQ(wrong["message"], "The following argument was not expected: --recusrive");
    EXPECT_EQ(wrong["suggest"][0], "--recursive");
    EXPECT_EQ(Json::parse(Run({"--json", "querry", key}).output)["schema"], "tvreg.error/1");
}

// Every form of answer there is, each with a text that is no UTF-8 where one may stand, against the schemas.
TEST_F(TvregCommands, json_of_every_command_is_as_its_schema_says) {
    const std::string bytes = "\xFF";
    WriteKey(name, {{"v", REG_SZ, Sz("x")},
                    {bytes, REG_MULTI_SZ, MultiSz({"y", bytes})},
                    {"w", REG_EXPAND_SZ, Sz(bytes)},
                    {"d", REG_DWORD, Dword(7)},
                    {"b", REG_BINARY, "\x01"}});
    WriteKey(name + "\\" + bytes + "\\below", {});
    WriteService("bare" + bytes, 3, "", {{"Tag", REG_BINARY, "12345"}});
    const std::string reg = File("REGEDIT4\n[" + longKey + "\\i]\n\"n\"=\"x\"\n"),
                      wrong = File("REGEDIT4\nwrong\n", "wrong.reg"), hive = folder + "/schema hive",
                      loaded = "HKLM\\" + name + "Loaded";
    const std::vector<std::vector<std::string>> commands = {{"query", key, "-s"},
                                                            {"query", key, "-f", "v"},
                                                            {"find", "v", key},
                                                            {"ls", key},
                                                            {"ls", "-r", key},
                                                            {"get", key, "v"},
                                                            {"get", key, bytes},
                                                            {"tree", key},
                                                            {"version"},
                                                            {"add", key, "-v", bytes, "-d", "x"},
                                                            {"set", key, "s", "y"},
                                                            {"rm", key, "s"},
                                                            {"copy", key, key + "\\c", "-s"},
                                                            {"delete", key + "\\c"},
                                                            {"compare", key, key, "--oa"},
                                                            {"diff", key, key + "\\" + bytes},
                                                            {"export", key},
                                                            {"import", reg},
                                                            {"import", wrong},
                                                            {"import", "-n", reg},
                                                            {"lint"},
                                                            {"save", key, hive},
                                                            {"restore", key, hive},
                                                            {"load", loaded, hive},
                                                            {"unload", loaded},
                                                            {"snapshot", "take", key, "s" + bytes},
                                                            {"snapshot", "list"},
                                                            {"snapshot", "diff", "s" + bytes},
                                                            {"snapshot", "restore", "-n", "s" + bytes},
                                                            {"edit", key + "\\i"},
                                                            {"get", key, "none"},
                                                            {"get", key, "bb" + bytes},
                                                            {"query", key + "\\none"}};
    const std::string answers = folder + "/answers";
    std::string lines;
    for (std::vector<std::string> command : commands) {
        command.insert(command.begin(), ProgramPath("tvreg"));
        command.emplace_back("--json");
        const Ended ended = RunAndRead(
            {.command = command, .environment = {"XDG_STATE_HOME=" + folder + "/schemas", "EDITOR=sed -i s/x/y/"}});
        ASSERT_TRUE(Json::accept(ended.output)) << command[1] << ": " << ended.output << ended.error;
        lines += Json::parse(ended.output).dump() + "\n";
    }
    const pid_t watching = StartProgram(
        {.command = {ProgramPath("tvreg"), "watch", key, "--interval", "0.05", "--json"}, .outputFile = answers});
    EXPECT_TRUE(WaitUntil([&] {
        const std::string data = ReadValue(name, bytes)->data;
        WriteKey(name, {{bytes, REG_SZ, data == Sz(bytes) ? Sz("x") : Sz(bytes)}});
        return ReadWhatIsThere(answers).find("\"changed\"") != std::string::npos;
    }));
    kill(watching, SIGTERM);
    (void)WaitForEnd(watching);
    const std::string events = ReadFile(answers);
    DeleteKey(servicesKey);
    const Ended held = HoldAgainstSchemas("tvreg", lines + events.substr(0, events.rfind('\n') + 1), folder, true);
    if (held.status == noValidator) GTEST_SKIP() << "python3-jsonschema is not installed";
    EXPECT_EQ(held.status, 0) << held.error;
}

TEST_F(TvregCommands, bash_completes_commands_options_and_keys) {
    WriteKey(name + "\\Some key", {});
    const auto complete = [&](const std::string &words, int current) {
        return Shell("PATH=$(dirname \"$TVREG\"):$PATH; . <(tvreg completion bash) && COMP_WORDS=(" + words +
                     ") COMP_CWORD=" + std::to_string(current) + " && _tvreg && printf '%s\\n' \"${COMPREPLY[@]}\"")
            .output;
    };
    EXPECT_EQ(complete("tvreg expo", 1), "export\n");
    EXPECT_EQ(complete("tvreg export --re", 2), "--reg4\n");
    EXPECT_EQ(complete("tvreg query hklm/" + name + "/so", 2), "hklm/" + name + "/Some\\ key\n");
}

TEST_F(TvregCommands, completion_scripts_are_what_their_shells_can_read) {
    for (const char *shell : {"bash", "zsh", "fish"}) {
        EXPECT_THAT(Do({"completion", shell}), HasSubstr("snapshot")) << shell;
        const Ended read = Shell("command -v " + std::string(shell) + " >/dev/null || exit 77; \"$TVREG\" completion " +
                                 shell + " >" + folder + "/script && " + shell + " -n " + folder + "/script");
        EXPECT_TRUE(read.status == 0 || read.status == 77) << shell << ": " << read.error;
        if (read.status == 77) std::printf("not read by %s, which is not installed\n", shell);
    }
    EXPECT_EQ(Run({"completion", "tcsh"}).status, 2);
}
