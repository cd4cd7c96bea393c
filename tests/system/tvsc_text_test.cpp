// SPDX-License-Identifier: MIT
// Services as text at the command line: written, applied, cloned and edited, against both daemons.
#include "svcapi/failure_actions_value.h"
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
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

using Json = nlohmann::json;

struct TvscText : ServiceWorld {
    std::string File(const std::string &text, const std::string &suffix = ".toml") {
        const std::string file = folder + "/" + name + suffix;
        WriteFile(file, text);
        return file;
    }
    Json ConfigOf(const std::string &service) {
        return Json::parse(Do({"show", service, "--json"})).at("services").at(0).at("config");
    }
    Ended With(const std::vector<std::string> &environment, std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), ProgramPath("tvsc"));
        return RunAndRead({.command = std::move(arguments), .environment = environment}, 90000);
    }
};

// --- export --------------------------------------------------------------------------------------------------------

TEST_F(TvscText, export_shows_all_that_a_key_holds) {
    CreateSample(name, "", {"--display", "Shown \"one\"", "--start", "auto", "--depends", "zero,+grp"});
    WriteKey(KeyOf(name), {{"Description", REG_SZ, Sz("What it does")}, {"Odd", REG_BINARY, "\x01\xFF"}});
    WriteKey(KeyOf(name) + "\\Parameters", {{"Words", REG_MULTI_SZ, MultiSz({"a", "b"})}});
    EXPECT_EQ(Do({"export", name}), "[services." + name +
                                        "]\n"
                                        "depends_on = [ 'zero', '+grp' ]\n"
                                        "description = 'What it does'\n"
                                        "display_name = 'Shown \"one\"'\n"
                                        "error_control = 'normal'\n"
                                        "image_path = '" +
                                        ScriptOf(name) +
                                        "'\n"
                                        "start = 'auto'\n"
                                        "type = 'own'\n"
                                        "\n[services." +
                                        name +
                                        ".parameters]\n"
                                        "Words = [ 'a', 'b' ]\n"
                                        "\n[[services." +
                                        name +
                                        ".values]]\n"
                                        "hex = '01ff'\n"
                                        "name = 'Odd'\n"
                                        "type = 'REG_BINARY'\n");
    const Json json = Json::parse(Do({"export", name, "--json"}));
    EXPECT_EQ(json.at("schema"), "tvsc.export/1");
    EXPECT_EQ(json.at("services").at(0).at("depends_on"), Json({"zero", "+grp"}));
}

TEST_F(TvscText, export_as_reg_text_is_what_tvreg_writes) {
    CreateSample(name);
    const Ended other = RunAndRead({.command = {ProgramPath("tvreg"), "export", "HKLM\\" + KeyOf(name), "--reg4"}});
    EXPECT_THAT(other.output, StartsWith("REGEDIT4\n"));
    EXPECT_EQ(Do({"export", name, "--format", "reg"}), other.output);
}

TEST_F(TvscText, export_takes_names_patterns_and_display_names_and_tells_what_means_nothing) {
    CreateSample(name + "-1", "", {"--display", name + " first"});
    CreateSample(name + "-2");
    EXPECT_THAT(Do({"export", name + "*"}), AllOf(HasSubstr("." + name + "-1]"), HasSubstr("." + name + "-2]")));
    EXPECT_THAT(Do({"export", name + " first"}), AllOf(HasSubstr("-1]"), Not(HasSubstr("-2]"))));
    EXPECT_THAT(Fail(5, {"export", name + "-3"}), HasSubstr("export failed: 1060"));
    EXPECT_THAT(Do({"export"}), AllOf(HasSubstr("." + name + "-1]"), HasSubstr("[services.zero]")));
}

// --- apply ---------------------------------------------------------------------------------------------------------

TEST_F(TvscText, apply_creates_a_service_that_can_be_started_at_once) {
    CreateSample(name + "-like");
    const std::string file =
        File("[services." + name + "]\nimage_path = '" + ScriptOf(name + "-like") +
             "'\ndescription = 'New'\nfailure_actions = { reset_period_s = 60, actions = [ { action "
             "= 'restart', delay_ms = 500 } ] }\n");
    EXPECT_EQ(Do({"apply", file}), name + ": created\n");
    EXPECT_EQ(Do({"start", name}), name + ": running\n");
    EXPECT_EQ(ReadValue(KeyOf(name), "Description")->data, Sz("New"));
    EXPECT_EQ(ReadValue(KeyOf(name), "FailureActions")->data, PackFailureActions({60, {{SC_ACTION_RESTART, 500}}}));
    EXPECT_EQ(ConfigOf(name).at("start"), "demand");
    EXPECT_EQ(Do({"apply", file}), name + ": unchanged\n");
}

TEST_F(TvscText, apply_changes_what_the_daemon_keeps_at_once_and_leaves_what_the_file_does_not_say) {
    CreateSample(name, "", {"--group", "before"});
    WriteKey(KeyOf(name), {{"Description", REG_SZ, Sz("Stays")}});
    const std::string file = File("[services." + name + "]\ndisplay_name = '" + name +
                                  " shown'\nstart = 'auto'\n"
                                  "depends_on = [ 'zero' ]\n");
    EXPECT_EQ(Do({"apply", file}), name + ": changed\n");
    EXPECT_THAT(Do({"list", name}), HasSubstr(name + " shown"));
    EXPECT_THAT(Do({"deps", name}), HasSubstr("zero"));
    EXPECT_EQ(ConfigOf(name).at("group"), "before");
    EXPECT_EQ(ReadValue(KeyOf(name), "Description")->data, Sz("Stays"));
}

TEST_F(TvscText, apply_without_doing_it_shows_the_difference) {
    CreateSample(name);
    const auto before = ReadValues(KeyOf(name));
    const std::string file = File("[services." + name + "]\nstart = 'auto'\ndescription = 'New'\n");
    EXPECT_EQ(Do({"apply", "--dry-run", file}), name + ": would be changed\n"
                                                       "  ~ Start: REG_DWORD 0x3 -> REG_DWORD 0x2\n"
                                                       "  + Description: REG_SZ New\n");
    EXPECT_EQ(ReadValues(KeyOf(name)), before);
    const Json json = Json::parse(Do({"apply", "--dry-run", "--json", file}));
    EXPECT_EQ(json.at("services").at(0).at("change"), "changed");
    EXPECT_EQ(json.at("services").at(0).at("differences").at(0).at("before").at("data"), 3);
}

TEST_F(TvscText, apply_with_prune_of_a_text_without_services_deletes_none) {
    CreateSample(name);
    for (const std::string text : {"", "# nothing\n", "[services]\n", "REGEDIT4\n"}) {
        EXPECT_THAT(Fail(6, {"apply", "--prune", File(text)}), HasSubstr("--prune would delete all")) << text;
    }
    const std::string unread = ProgramPath("tvsc") + " apply --prune - </etc"; // fails as it is read
    const Ended ended = RunAndRead({.command = {"/bin/sh", "-c", unread}});
    EXPECT_NE(ended.status, 0);
    EXPECT_THAT(ended.error, HasSubstr("ERROR_FILE_NOT_FOUND"));
    EXPECT_THAT(Do({"list", "--names-only"}), HasSubstr(name));
}

TEST_F(TvscText, apply_refuses_a_text_that_deletes_or_names_a_service_twice) {
    CreateSample(name);
    const std::string key = "REGEDIT4\n\n[HKEY_LOCAL_MACHINE\\" + KeyOf(name);
    EXPECT_THAT(Fail(6, {"apply", File(key + "]\n\"Description\"=-\n", ".reg")}), HasSubstr(".reg:4: "));
    const std::string below = "REGEDIT4\n\n[-HKEY_LOCAL_MACHINE\\" + KeyOf(name) + "]\n";
    EXPECT_THAT(Fail(6, {"apply", File(below, ".reg")}), HasSubstr(".reg:3: "));
    EXPECT_THAT(Fail(6, {"apply", File("[services.Twice]\n[services.twice]\n")}),
                HasSubstr(".toml:2: twice: stands here already"));
}

TEST_F(TvscText, an_interrupt_is_the_editors_while_it_runs) {
    CreateSample(name);
    const Ended ended =
        With({"VISUAL=", "EDITOR=kill -INT $PPID; sleep 0.2; sed -i 's/^error_control.*/&\\ndescription = \"kept\"/'"},
             {"edit", name});
    EXPECT_EQ(ended.status, 0) << ended.error;
    EXPECT_EQ(ReadValue(KeyOf(name), "Description")->data, Sz("kept"));
}

TEST_F(TvscText, apply_with_prune_takes_away_services_and_values_that_the_file_does_not_have) {
    CreateSample(name + "-1", "", {"--group", "grp", "--depends", "zero", "--user", "root"});
    WriteKey(KeyOf(name + "-1") + "\\Below", {{"v", REG_SZ, Sz("x")}});
    std::string text = Do({"export"});
    const std::string file = File(text);
    CreateSample(name + "-2");
    Do({"start", name + "-2"});
    EXPECT_THAT(Fail(1, {"apply", "--prune", file}), HasSubstr(name + "-2: running; use --stop"));
    EXPECT_THAT(Do({"apply", "--prune", "--stop", file}), HasSubstr(name + "-2: deleted\n"));
    EXPECT_THAT(Fail(4, {"status", name + "-2"}), HasSubstr("1060"));

    const std::size_t heading = text.find("[services." + name + "-1]");
    for (const std::string line : {"group = 'grp'\n", "depends_on = [ 'zero' ]\n", "account = 'root'\n"}) {
        const std::size_t at = text.find(line, heading);
        ASSERT_NE(at, std::string::npos) << line;
        text.erase(at, line.size());
    }
    const std::string last = "type = 'REG_SZ'\n";
    const std::size_t below = text.find("\n[[services." + name + "-1.values]]");
    ASSERT_NE(below, std::string::npos);
    text.erase(below, text.find(last, below) + last.size() - below);
    EXPECT_THAT(Do({"apply", "--prune", File(text)}), HasSubstr(name + "-1: changed\n"));
    for (const char *value : {"Group", "DependOnGroup", "DependOnService"}) {
        EXPECT_FALSE(ReadValue(KeyOf(name + "-1"), value)) << value;
    }
    EXPECT_FALSE(KeyExists(KeyOf(name + "-1") + "\\Below"));
    EXPECT_EQ(Do({"deps", name + "-1", "--json"}).find("\"zero\""), std::string::npos);
}

TEST_F(TvscText, apply_checks_all_before_it_writes_any) {
    CreateSample(name);
    const std::string good = "[services." + name + "]\nstart = 'auto'\n";
    EXPECT_THAT(Fail(1, {"apply", File(good + "[services." + name + "-2]\nimage_path = '/no/such'\n")}),
                HasSubstr(name + "-2: /no/such: "));
    EXPECT_THAT(Fail(1, {"apply", File(good + "[services." + name + "-2]\n")}), HasSubstr("has no image_path"));
    EXPECT_THAT(Fail(1, {"apply", File(good + "[services.'a/b']\nimage_path = '" + ScriptOf(name) + "'\n")}),
                HasSubstr("a name has no slash"));
    EXPECT_THAT(Fail(6, {"apply", File(good + "account = 'nobody-of-that-name'\n")}), HasSubstr("1057"));
    EXPECT_THAT(Fail(1, {"apply", File(good + "display_name = '" + std::string(1024, 'x') + "'\n")}),
                HasSubstr("more than 1023 bytes"));
    EXPECT_THAT(Fail(1, {"apply", File(good + "values = [ { name = 'Tag', type = 'REG_SZ', text = 'x' } ]\n")}),
                HasSubstr("Tag: not a REG_DWORD"));
    EXPECT_THAT(Fail(6, {"apply", File(good + "strat = 'auto'\n")}), HasSubstr(".toml:3: strat: no such member"));
    EXPECT_THAT(Fail(5, {"apply", folder + "/none"}), HasSubstr("No such file"));
    EXPECT_EQ(ConfigOf(name).at("start"), "demand");
    EXPECT_FALSE(KeyExists(KeyOf(name + "-2")));
}

TEST_F(TvscText, apply_checks_the_parameters_of_tvhost) {
    Do({"create", name, "--exec", "/bin/sleep 1000"});
    EXPECT_THAT(Fail(1, {"apply", File("[services." + name + ".parameters]\nAppRestart = 'sometimes'\n")}),
                HasSubstr("AppRestart"));
    EXPECT_THAT(Fail(1, {"apply", File("[services." + name + ".parameters]\nAppColour = 'red'\n")}),
                HasSubstr("AppColour"));
    EXPECT_EQ(Do({"apply", File("[services." + name + ".parameters]\nAppNice = -5\nAppUmask = 18\n")}),
              name + ": changed\n");
    EXPECT_EQ(ReadValue(KeyOf(name) + "\\Parameters", "AppNice")->data, Dword(0xFFFFFFFB));
}

// The daemon refuses to create a service whose key is there: the key goes for a moment, and comes back whole.
TEST_F(TvscText, apply_has_the_daemon_know_a_service_whose_key_was_written_behind_its_back) {
    CreateSample(name + "-like");
    WriteService(name, 3, ScriptOf(name + "-like"),
                 {{"Description", REG_SZ, Sz("Kept")}, {"\xFF", REG_BINARY, "\x07"}});
    WriteKey(KeyOf(name) + "\\Deep\\Deeper", {{"v", REG_DWORD, Dword(9)}});
    EXPECT_THAT(Fail(5, {"start", name}), HasSubstr("1060"));
    EXPECT_EQ(Do({"apply", File("[services." + name + "]\nstart = 'auto'\n")}), name + ": created\n");
    EXPECT_EQ(Do({"start", name}), name + ": running\n");
    EXPECT_EQ(ReadValue(KeyOf(name), "Start")->data, Dword(2));
    EXPECT_EQ(ReadValue(KeyOf(name), "Description")->data, Sz("Kept"));
    EXPECT_EQ(ReadValue(KeyOf(name), "\xFF")->data, "\x07");
    EXPECT_EQ(ReadValue(KeyOf(name) + "\\Deep\\Deeper", "v")->data, Dword(9));
}

// The mark of a deletion that is due stands in the registry, and is no part of any text.
TEST_F(TvscText, apply_and_edit_refuse_a_service_whose_deletion_is_due) {
    CreateSample(name);
    const std::string file = File("[services." + name + "]\nstart = 'auto'\n");
    Do({"start", name});
    const pid_t process = ProcessOf(name);
    EXPECT_THAT(Do({"delete", "--force", name}), HasSubstr("marked for deletion"));
    EXPECT_THAT(Fail(154, {"apply", file}), HasSubstr(name + ": goes when the daemon starts again"));
    EXPECT_THAT(Fail(154, {"--dry-run", "apply", file}), HasSubstr("1072"));
    EXPECT_THAT(Fail(154, {"clone", "zero", name}), HasSubstr("1072"));
    EXPECT_THAT(With({"VISUAL=touch " + folder + "/" + name + ".edited;:"}, {"edit", name}).error, HasSubstr("1072"));
    EXPECT_FALSE(std::filesystem::exists(folder + "/" + name + ".edited"));
    EXPECT_THAT(Do({"export", name}), StartsWith("# " + name + ": its deletion is due"));
    EXPECT_EQ(ReadValue(KeyOf(name), "Start")->data, Dword(3));
    (void)kill(process, SIGKILL);
}

// The daemon that is running does not know of it; the one that starts next takes the key away.
TEST_F(TvscText, apply_and_edit_refuse_a_service_that_another_program_has_marked_in_the_registry) {
    CreateSample(name);
    const std::string file = File("[services." + name + "]\nstart = 'auto'\n");
    WriteKey(KeyOf(name), {{"DeleteFlag", REG_DWORD, Dword(1)}});
    EXPECT_EQ(Tvsc({"status", name}).status, 3) << "the daemon knows it as before";
    EXPECT_THAT(Fail(154, {"apply", file}), HasSubstr(name + ": goes when the daemon starts again"));
    EXPECT_THAT(Fail(154, {"mask", name}), HasSubstr("1072"));
    EXPECT_THAT(With({"VISUAL=touch " + folder + "/" + name + ".edited;:"}, {"edit", name}).error, HasSubstr("1072"));
    EXPECT_FALSE(std::filesystem::exists(folder + "/" + name + ".edited"));
    EXPECT_EQ(ReadValue(KeyOf(name), "Start")->data, Dword(3));
    DeleteValue(KeyOf(name), "DeleteFlag");
    EXPECT_EQ(Do({"apply", file}), name + ": changed\n");
}

TEST_F(TvscText, apply_notes_a_dependency_that_prune_takes_away) {
    CreateSample(name);
    std::string text = Do({"export", name});
    CreateSample(name + "-2");
    text.insert(text.find("[services." + name + "]\n") + name.size() + 12, "depends_on = [ '" + name + "-2' ]\n");
    const std::string file = File(text), noted = name + "-2: no such service";
    EXPECT_THAT(Tvsc({"--dry-run", "apply", "--prune", file}).error, HasSubstr(noted));
    EXPECT_THAT(Tvsc({"--dry-run", "apply", file}).error, Not(HasSubstr(noted)));
}

TEST_F(TvscText, apply_refuses_a_text_that_marks_a_service_for_deletion) {
    CreateSample(name);
    const std::string reg = "REGEDIT4\n\n[HKEY_LOCAL_MACHINE\\" + KeyOf(name) + "]\n\"DeleteFlag\"=dword:00000001\n";
    EXPECT_THAT(Fail(1, {"apply", File(reg, ".reg")}), HasSubstr("DeleteFlag: the mark of a deletion"));
    EXPECT_FALSE(ReadValue(KeyOf(name), "DeleteFlag"));
}

// A key that the daemon does not know and would take away at its next start is created anew, without the mark; where
// that fails it is what it was, with the mark.
TEST_F(TvscText, apply_of_a_marked_key_that_the_daemon_does_not_know_creates_a_service_that_stays_or_leaves_the_mark) {
    CreateSample(name + "-like");
    EXPECT_EQ(Tvsc({"create", name + "-other", "--image", ScriptOf(name + "-like"), "--depends", name}).status, 0);
    WriteService(name, 3, ScriptOf(name + "-like"), {{"DeleteFlag", REG_DWORD, Dword(1)}});
    EXPECT_THAT(Fail(6, {"apply", File("[services." + name + "]\ndepends_on = [ '" + name + "-other' ]\n")}),
                HasSubstr(name + ": not created: 1059"));
    EXPECT_EQ(ReadValue(KeyOf(name), "DeleteFlag")->data, Dword(1));
    EXPECT_EQ(Do({"apply", File("[services." + name + "]\nstart = 'auto'\n")}), name + ": created\n");
    EXPECT_FALSE(ReadValue(KeyOf(name), "DeleteFlag"));
}

// A ring is found by the daemon only, after the key has gone.
TEST_F(TvscText, apply_that_fails_leaves_a_key_as_it_was) {
    CreateSample(name + "-like");
    EXPECT_EQ(Tvsc({"create", name + "-other", "--image", ScriptOf(name + "-like"), "--depends", name}).status, 0);
    WriteService(name, 3, ScriptOf(name + "-like"), {{"Description", REG_SZ, Sz("Kept")}});
    WriteKey(KeyOf(name) + "\\Deep", {{"v", REG_DWORD, Dword(9)}});
    const auto before = ReadValues(KeyOf(name));
    EXPECT_THAT(Fail(6, {"apply", File("[services." + name + "]\ndepends_on = [ '" + name + "-other' ]\n")}),
                HasSubstr(name + ": not created: 1059"));
    EXPECT_THAT(ReadValues(KeyOf(name)), testing::UnorderedElementsAreArray(before));
    EXPECT_EQ(ReadValue(KeyOf(name) + "\\Deep", "v")->data, Dword(9));
}

TEST_F(TvscText, apply_means_the_service_whose_name_differs_in_letter_case_only) {
    CreateSample(name);
    const std::string file = File("[services." + std::string("APPLY") + name.substr(5) + "]\nstart = 'auto'\n");
    EXPECT_EQ(Do({"apply", file}), name + ": changed\n");
    EXPECT_EQ(ConfigOf(name).at("start"), "auto");
}

TEST_F(TvscText, apply_reads_what_export_writes_of_names_of_any_bytes) {
    for (const std::string odd : {"caf\xE9", "\xE6\x9C\x8D\xE5\x8A\xA1", "a.b 'c'"}) {
        const std::string service = name + "-" + odd;
        CreateSample(service, "", {"--display", odd + " shown", "--group", odd});
        const auto before = ReadValues(KeyOf(service));
        for (const char *format : {"toml", "reg"}) {
            const std::string file = File(Do({"export", service, "--format", format}));
            EXPECT_THAT(Do({"apply", file}), HasSubstr(": unchanged\n"));
            Do({"delete", service, "--wait"});
            EXPECT_FALSE(KeyExists(KeyOf(service)));
            EXPECT_THAT(Do({"apply", file}), HasSubstr(": created\n"));
            EXPECT_THAT(ReadValues(KeyOf(service)), testing::UnorderedElementsAreArray(before));
            EXPECT_EQ(Do({"start", "--name=" + service}).empty(), false);
            Do({"stop", service});
        }
    }
}

// --- clone ---------------------------------------------------------------------------------------------------------

TEST_F(TvscText, clone_is_like_the_first_but_for_its_names_and_its_tag) {
    Do({"create", name, "--exec", "/bin/sleep 1000", "--env", "A=b", "--group", name, "--tag"});
    WriteKey(KeyOf(name), {{"Description", REG_SZ, Sz("Both")}});
    EXPECT_EQ(Do({"clone", name, name + "-2"}), name + "-2: created\n");
    EXPECT_EQ(Do({"start", name + "-2"}), name + "-2: running\n");
    EXPECT_EQ(ReadValue(KeyOf(name + "-2"), "DisplayName")->data, Sz(name + "-2"));
    EXPECT_EQ(ReadValue(KeyOf(name + "-2"), "Description")->data, Sz("Both"));
    EXPECT_EQ(ReadValue(KeyOf(name + "-2") + "\\Parameters", "AppEnvironment")->data, MultiSz({"A=b"}));
    EXPECT_FALSE(ReadValue(KeyOf(name + "-2"), "Tag"));
    EXPECT_THAT(Fail(155, {"clone", name, name + "-2"}), HasSubstr("1073"));
    EXPECT_THAT(Fail(5, {"clone", name + "-3", name + "-4"}), HasSubstr("1060"));
    EXPECT_EQ(Do({"clone", name, name + "-5", "--display", "Fifth " + name}), name + "-5: created\n");
    EXPECT_THAT(Do({"list", name + "-5"}), HasSubstr("Fifth " + name));
    EXPECT_THAT(Do({"--dry-run", "clone", name, name + "-6"}), HasSubstr(name + "-6: would be created\n"));
    EXPECT_FALSE(KeyExists(KeyOf(name + "-6")));
}

// --- edit ----------------------------------------------------------------------------------------------------------

TEST_F(TvscText, edit_writes_what_the_editor_leaves) {
    CreateSample(name, "", {"--group", "grp"});
    const Ended changed = With({"VISUAL=", "EDITOR=sed -i -e s/demand/auto/ -e /^group/d"}, {"edit", name});
    EXPECT_EQ(changed.output, name + ": changed\n") << changed.error;
    EXPECT_EQ(ConfigOf(name).at("start"), "auto");
    EXPECT_FALSE(ReadValue(KeyOf(name), "Group"));
    EXPECT_EQ(With({"VISUAL=true", "EDITOR=false"}, {"edit", name}).output, name + ": unchanged\n");
    EXPECT_EQ(With({"VISUAL=sed -i s/auto/demand/"}, {"--dry-run", "edit", name}).output,
              name + ": would be changed\n  ~ Start: REG_DWORD 0x2 -> REG_DWORD 0x3\n");
    EXPECT_EQ(ConfigOf(name).at("start"), "auto");
}

// The editor gets the text back with what is wrong above it: the second time it is put right.
TEST_F(TvscText, edit_comes_again_while_something_is_wrong) {
    CreateSample(name);
    const std::string editor = folder + "/" + name + ".editor", seen = folder + "/" + name + ".seen";
    WriteFile(editor, "#!/bin/sh\ncat \"$1\" >>" + seen + "\nsed -i -e s/nonsense/auto/ -e s/demand/nonsense/ \"$1\"\n",
              0755);
    const Ended ended = With({"VISUAL=" + editor}, {"edit", name});
    EXPECT_EQ(ended.output, name + ": changed\n") << ended.error;
    EXPECT_THAT(ReadFile(seen), HasSubstr("# tvsc: line "));
    EXPECT_THAT(ReadFile(seen), HasSubstr("start: nonsense: none of auto, "));
    EXPECT_EQ(ConfigOf(name).at("start"), "auto");
}

TEST_F(TvscText, edit_gives_up_where_nothing_is_put_right_and_keeps_the_text) {
    CreateSample(name);
    const Ended ended = With({"VISUAL=sed -i s/demand/nonsense/"}, {"edit", name});
    EXPECT_EQ(ended.status, 6);
    EXPECT_THAT(ended.error, HasSubstr("not changed: line "));
    const std::size_t at = ended.error.find("the text is in ") + 15;
    const std::string file = ended.error.substr(at, ended.error.find(".toml") + 5 - at);
    EXPECT_THAT(ReadFile(file), HasSubstr("start = 'nonsense'"));
    std::filesystem::remove(file);
    EXPECT_THAT(With({"VISUAL=sed -i s/services." + name + "/services.other/"}, {"edit", name}).error,
                HasSubstr("not the one service that is edited"));
    EXPECT_THAT(With({"VISUAL=false"}, {"edit", name}).error, HasSubstr("the editor failed; the text is in "));
    EXPECT_EQ(ConfigOf(name).at("start"), "demand");
}

TEST_F(TvscText, edit_writes_nothing_where_the_editor_leaves_no_text) {
    CreateSample(name);
    const Ended ended = With({"VISUAL=rm"}, {"edit", name});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.error, AllOf(HasSubstr("the editor has left no text: "), HasSubstr(": No such file or directory"),
                                   Not(HasSubstr("the text is in"))));
    EXPECT_EQ(ConfigOf(name).at("start"), "demand");
}

TEST_F(TvscText, edit_writes_nothing_over_what_others_changed_meanwhile) {
    CreateSample(name);
    const std::string editor = folder + "/" + name + ".editor";
    WriteFile(editor,
              "#!/bin/sh\n" + ProgramPath("tvsc") + " sc description " + name +
                  " meanwhile\nsed -i s/demand/auto/ \"$1\"\n",
              0755);
    const Ended ended = With({"VISUAL=" + editor}, {"edit", name});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.error, HasSubstr("has been changed meanwhile; nothing is written"));
    EXPECT_EQ(ConfigOf(name).at("start"), "demand");
}

// --- without a daemon, last: it does not come back -----------------------------------------------------------------

TEST_F(TvscText, zz_without_a_daemon_the_registry_alone_is_written_and_that_is_said) {
    CreateSample(name);
    Do({"daemon", "stop"});
    EXPECT_THAT(Do({"export", name}), HasSubstr("[services." + name + "]"));
    EXPECT_EQ(Do({"apply", File("[services." + name + "]\nstart = 'auto'\n")}),
              name + ": changed; holds from the daemon's next start on\n");
    EXPECT_EQ(ReadValue(KeyOf(name), "Start")->data, Dword(2));
    EXPECT_EQ(Do({"clone", name, name + "-2"}), name + "-2: created; holds from the daemon's next start on\n");
    WriteKey(KeyOf(name + "-2"), {{"DeleteFlag", REG_DWORD, Dword(0)}}); // the value counts, whatever it holds
    const std::string file = File("[services." + name + "-2]\nstart = 'demand'\n");
    EXPECT_THAT(Fail(154, {"apply", file}), HasSubstr(name + "-2: goes when the daemon starts again"));
    EXPECT_THAT(Fail(154, {"--dry-run", "apply", file}), HasSubstr("1072"));
    EXPECT_THAT(Fail(154, {"clone", name, name + "-2"}), HasSubstr("1072"));
    EXPECT_EQ(With({"VISUAL=true"}, {"edit", name + "-2"}).status, 154);
    EXPECT_EQ(ReadValue(KeyOf(name + "-2"), "Start")->data, Dword(2));
    DeleteValue(KeyOf(name + "-2"), "DeleteFlag");
    serviceDaemon = StartServiceDaemon();
    EXPECT_THAT(Do({"list", "--names-only", name + "*"}), AllOf(HasSubstr(name + "\n"), HasSubstr(name + "-2\n")));
}

} // namespace
