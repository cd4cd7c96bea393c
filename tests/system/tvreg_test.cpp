// SPDX-License-Identifier: MIT
// The command line of the registry against a real registry daemon: what it prints, what it leaves in the registry, and
// its exit statuses.
#include "tests/support/tvreg_fixture.h"
#include "tv/winreg.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

struct Tvreg : TvregFixture {};

const std::vector<RegistryValue> everyKind = {
    {"", REG_SZ, Sz("unnamed")},
    {"text \"q\" \\", REG_SZ, Sz("a \\ \"b\" \xE2\x82\xAC")},
    {"no terminator", REG_SZ, "text"},
    {"empty", REG_SZ, ""},
    {"number", REG_DWORD, Dword(0xFFFF0010)},
    {"expand", REG_EXPAND_SZ, Sz("%HOME%")},
    {"multi", REG_MULTI_SZ, MultiSz({"one", "two"})},
    {"bytes", REG_BINARY, std::string("\0\x80\xFF", 3)},
    {"none", REG_NONE, ""},
    {"odd", 0xABCD, "\x01"},
    {"long", REG_BINARY, std::string(3000, '\x5A')},
};

} // namespace

TEST_F(Tvreg, import_writes_keys_values_types_and_bytes_in_the_order_of_the_file) {
    EXPECT_EQ(Do({"import", File("REGEDIT4\n\n[" + longKey +
                                 "\\z]\n\"Type\"=dword:00000010\n@=\"un\\\\named\"\n"
                                 "[" +
                                 key + "\\a]\n\"m\"=hex(7):61,00,\\\n  62,00,00\n")}),
              "2 keys, 3 values written\n");
    EXPECT_THAT(ReadSubKeys(name), ElementsAre("z", "a"));
    EXPECT_THAT(ReadValues(name + "\\z"),
                ElementsAre(RegistryValue{"Type", REG_DWORD, Dword(0x10)}, RegistryValue{"", REG_SZ, Sz("un\\named")}));
    EXPECT_THAT(ReadValues(name + "\\a"), ElementsAre(RegistryValue{"m", REG_MULTI_SZ, MultiSz({"a", "b"})}));
}

TEST_F(Tvreg, import_deletes_keys_and_values_that_may_be_missing) {
    WriteKey(name + "\\goes\\too", {{"v", REG_SZ, Sz("x")}});
    WriteKey(name, {{"old", REG_SZ, Sz("x")}, {"stays", REG_SZ, Sz("x")}, {"", REG_SZ, Sz("x")}});
    EXPECT_EQ(Do({"import", File("REGEDIT4\n[-" + key + "\\goes]\n[-" + key + "\\never]\n[" + key +
                                 "]\n\"OLD\"=-\n\"never\"=-\n@=-\n")}),
              "1 key, 0 values written; 2 keys, 3 values deleted\n");
    EXPECT_THAT(ReadSubKeys(name), ElementsAre());
    EXPECT_THAT(ReadValues(name), ElementsAre(RegistryValue{"stays", REG_SZ, Sz("x")}));
}

TEST_F(Tvreg, import_of_a_wrong_line_names_it_ends_with_6_and_writes_nothing) {
    const std::string good = folder + "/good.reg";
    WriteFile(good, "REGEDIT4\n[" + key + "\\first]\n");
    const std::string bad = File("REGEDIT4\n[" + key + "\\second]\n\"v\"=hex:0\n");
    const Ended ended = Run({"import", good, bad});
    EXPECT_EQ(ended.status, 6);
    EXPECT_EQ(ended.error, "tvreg: " + bad + ":3: hexadecimal data must be pairs of digits\n");
    EXPECT_FALSE(KeyExists(name));
}

TEST_F(Tvreg, import_of_a_missing_file_ends_with_1_and_names_it) {
    const Ended ended = Run({"import", folder + "/none.reg"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.error, "tvreg: " + folder + "/none.reg: No such file or directory\n");
}

TEST_F(Tvreg, import_of_a_folder_ends_with_1_and_names_it) {
    const Ended ended = Run({"import", folder});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.error, "tvreg: " + folder + ": Is a directory\n");
}

TEST_F(Tvreg, import_reads_standard_input_and_pipes) {
    const Ended ended = RunAndRead(
        {.command = {"/bin/bash", "-c", "printf 'REGEDIT4\n[%s\\\\a]\n' \"$1\" | \"$0\" import - <(cat \"$2\")",
                     ProgramPath("tvreg"), key, File("REGEDIT4\n[" + key + "\\b]\n")}});
    EXPECT_EQ(ended.status, 0) << ended.error;
    EXPECT_THAT(ReadSubKeys(name), ElementsAre("a", "b"));
}

TEST_F(Tvreg, a_closed_standard_input_is_told) {
    const Ended ended = RunAndRead({.command = {ProgramPath("tvreg"), "import", "-"}, .closed = {0}});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.error, "tvreg: standard input: Bad file descriptor\n");
}

TEST_F(Tvreg, import_makes_services_of_a_win32_registry_ones_of_this_system) {
    const std::string service = servicesKey + "\\" + name;
    const Ended ended = Run({"import", "--fix-services",
                             File("REGEDIT4\n[HKEY_LOCAL_MACHINE\\" + service +
                                  "]\n\"Type\"=dword:10\n\"DisplayName\"=\"x\"\n"
                                  "\"DependOnService\"=hex(7):61,00,00\n\"ObjectName\"=\"LocalSystem\"\n")});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.error, "~ " + name + ": DependOnService, several strings -> DependOnGroup \"a\"\n~ " + name +
                               ": ObjectName \"LocalSystem\" -> the daemon's own user\n");
    EXPECT_THAT(ReadValues(service), ElementsAre(RegistryValue{"Type", REG_DWORD, Dword(0x10)},
                                                 RegistryValue{"DisplayName", REG_SZ, Sz("x")},
                                                 RegistryValue{"DependOnGroup", REG_MULTI_SZ, MultiSz({"a"})}));
}

TEST_F(Tvreg, import_dry_run_shows_and_writes_nothing) {
    const std::string shown =
        Do({"import", "-n", File("REGEDIT4\n[" + key + "]\n\"v\"=\"x\"\n\"w\"=-\n[-" + key + "\\y]\n")});
    EXPECT_EQ(shown, longKey + "\n    v    REG_SZ    x\n  - w\n- " + longKey + "\\y\n");
    EXPECT_FALSE(KeyExists(name));
}

TEST_F(Tvreg, export_and_import_give_back_everything_in_both_dialects) {
    for (const bool isReg4 : {true, false}) {
        WriteKey(name + "\\k\\b", everyKind);
        WriteKey(name + "\\k\\a", {});
        const std::string file = folder + "/export.reg";
        EXPECT_EQ(isReg4 ? Do({"export", key + "\\k", file, "--reg4"}) : Do({"export", key + "\\k", file}), "");
        EXPECT_THAT(ReadFile(file), StartsWith(isReg4 ? "REGEDIT4\n" : "\xFF\xFEW"));
        DeleteKey(name);
        EXPECT_EQ(Do({"import", file}), "3 keys, 11 values written\n");
        EXPECT_THAT(ReadSubKeys(name + "\\k"), ElementsAre("b", "a"));
        EXPECT_EQ(ReadValues(name + "\\k\\b"), everyKind);
        EXPECT_THAT(ReadValues(name + "\\k\\a"), ElementsAre());
        DeleteKey(name);
    }
}

TEST_F(Tvreg, export_at_a_terminal_is_text_that_it_shows) {
    WriteKey(name, {{"v", REG_SZ, Sz("\xC3\xBC")}, {"w", REG_SZ, Sz("\xC2\x9B")}});
    int status = -1;
    EXPECT_EQ(RunAtTerminal("LC_ALL=C.UTF-8 " + ProgramPath("tvreg") + " export 'HKLM\\" + name + "'", &status),
              "Windows Registry Editor Version 5.00\r\n\r\n[" + longKey +
                  "]\r\n\"v\"=\"\xC3\xBC\"\r\n\"w\"=\"\\xc2\\x9b\"\r\n");
    EXPECT_EQ(status, 0);
    EXPECT_THAT(Do({"export", key, "-"}), StartsWith("\xFF\xFEW"));
}

TEST_F(Tvreg, export_of_what_is_no_utf8_fails_with_6_unless_reg4) {
    WriteKey(name, {{"v", REG_SZ, Sz("\xFF")}});
    const Ended ended = Run({"export", key});
    EXPECT_EQ(ended.status, 6);
    EXPECT_EQ(ended.output, "");
    EXPECT_THAT(ended.error, AllOf(HasSubstr("\"v\""), HasSubstr("--reg4")));
    EXPECT_EQ(Do({"export", key, "--reg4"}), "REGEDIT4\n\n[" + longKey + "]\n\"v\"=\"\xFF\"\n");
}

TEST_F(Tvreg, names_of_keys_export_and_import_whatever_bytes_they_are) {
    const std::vector<std::string> names = {"a\rb", "a\nb", "\xFF\xC3", "x0d", "-"};
    for (const bool isReg4 : {true, false}) {
        for (const std::string &odd : names) {
            WriteKey(name + "\\" + odd + "\\below", {{"v", REG_SZ, Sz(odd == "\xFF\xC3" ? "" : odd)}});
        }
        const std::string file = folder + "/export.reg";
        EXPECT_EQ(isReg4 ? Do({"export", key, file, "--reg4"}) : Do({"export", key, file}), "");
        DeleteKey(name);
        EXPECT_EQ(Do({"import", file}), "11 keys, 5 values written\n");
        EXPECT_EQ(ReadSubKeys(name), names);
        EXPECT_THAT(ReadValues(name + "\\a\rb\\below"), ElementsAre(RegistryValue{"v", REG_SZ, Sz("a\rb")}));
        DeleteKey(name);
    }
}

TEST_F(Tvreg, names_and_data_may_begin_with_a_dash) {
    (void)Do({"set", key, "--", "-x", "-y"});
    (void)Do({"add", key, "--value=-m", "-t", "multi", "--data=-a", "--data=-t"});
    (void)Do({"add", key, "-v", "-s", "-d", "-t"});
    EXPECT_THAT(ReadValues(name), ElementsAre(RegistryValue{"-x", REG_SZ, Sz("-y")},
                                              RegistryValue{"-m", REG_MULTI_SZ, MultiSz({"-a", "-t"})},
                                              RegistryValue{"-s", REG_SZ, Sz("-t")}));
    EXPECT_EQ(Do({"get", key, "--", "-x"}), "-y\n");
    EXPECT_EQ(Do({"query", key, "--value=-x"}), longKey + "\n    -x    REG_SZ    -y\n\n");
    (void)Do({"rm", key, "--", "-x"});
    (void)Do({"delete", key, "--value=-s"});
    EXPECT_EQ(ReadValues(name).size(), 1u);
}

TEST_F(Tvreg, json_keeps_bytes_that_are_no_utf8) {
    WriteKey(name + "\\a\xFF", {});
    WriteKey(name + "\\b", {});
    WriteKey(name, {{"\xFE", REG_SZ, Sz("\xFD")}});
    EXPECT_THAT(Do({"query", key, "--json"}),
                AllOf(HasSubstr("\"name_bytes\": \"/g==\""), HasSubstr("\"data_bytes\": \"/Q==\""),
                      HasSubstr("\"subkeys_bytes\": [\n        \"Yf8=\",\n        \"Yg==\"\n      ]")));
}

TEST_F(Tvreg, query_shows_values_and_subkeys) {
    WriteKey(name, {{"Start", REG_DWORD, Dword(3)}, {"", REG_SZ, Sz("un")}, {"m", REG_MULTI_SZ, MultiSz({"a", "b"})}});
    WriteKey(name + "\\sub", {{"v", REG_BINARY, "\x01"}});
    EXPECT_EQ(Do({"query", key}), longKey +
                                      "\n    Start    REG_DWORD    0x3\n    (Default)    REG_SZ    un\n"
                                      "    m    REG_MULTI_SZ    a\\0b\n\n" +
                                      longKey + "\\sub\n");
    EXPECT_EQ(Do({"query", "HKLM/" + name + "/sub"}), longKey + "\\sub\n    v    REG_BINARY    01\n\n");
    EXPECT_EQ(Do({"query", key, "-v", "start"}), longKey + "\n    start    REG_DWORD    0x3\n\n");
    EXPECT_EQ(Do({"query", key, "--ve"}), longKey + "\n    (Default)    REG_SZ    un\n\n");
    EXPECT_THAT(Do({"query", key, "-s"}), HasSubstr(longKey + "\\sub\n    v    REG_BINARY    01\n"));
    EXPECT_THAT(Do({"query", key, "--json"}),
                AllOf(HasSubstr("\"schema\": \"tvreg.query/1\""), HasSubstr("\"data\": 3"), HasSubstr("\"sub\"")));
}

TEST_F(Tvreg, query_of_one_value_goes_through_all_keys_below) {
    WriteKey(name + "\\a", {{"Type", REG_DWORD, Dword(1)}, {"other", REG_SZ, Sz("x")}});
    WriteKey(name + "\\b\\c", {{"TYPE", REG_DWORD, Dword(2)}});
    EXPECT_EQ(Do({"query", key, "-s", "-v", "type"}),
              longKey + "\\a\n    Type    REG_DWORD    0x1\n\n" + longKey + "\\b\\c\n    TYPE    REG_DWORD    0x2\n\n");
    const Ended none = Run({"query", key, "-s", "-v", "none"});
    EXPECT_EQ(none.status, 5);
    EXPECT_THAT(none.error, HasSubstr("2 ERROR_FILE_NOT_FOUND"));
}

TEST_F(Tvreg, an_unknown_command_is_named) {
    const Ended ended = Run({"qeury", key});
    EXPECT_EQ(ended.status, 2);
    EXPECT_EQ(ended.error, "tvreg: qeury: no such command; did you mean query?\n");
    EXPECT_EQ(Run({"zzzzzzzzzz", key}).error, "tvreg: zzzzzzzzzz: no such command; see tvreg --help\n");
}

// Whoever reads the message may do so at a terminal.
TEST_F(Tvreg, messages_show_control_characters_as_numbers) {
    EXPECT_THAT(Run({"query", key + "\\\x1B[31m"}).error, HasSubstr("\\x1b[31m: 2 ERROR_FILE_NOT_FOUND"));
    EXPECT_EQ(Run({"\x9B"
                   "31m"})
                  .error,
              "tvreg: \\x9b31m: no such command; see tvreg --help\n");
    EXPECT_EQ(Run({"query", key, "-s", "--no\xE2\x80\xAE"}).error,
              "tvreg: The following argument was not expected: --no\\xe2\\x80\\xae\n"
              "Run with --help for more information.\n");
    EXPECT_EQ(RunAndRead({.command = {ProgramPath("tvregd"), "--\x1B[31m"}}).error,
              "tvregd: The following argument was not expected: --\\x1b[31m\nRun with --help for more information.\n");
    EXPECT_THAT(RunAndRead({.command = {ProgramPath("tvregd"), "--database", "/no/\x1B[31m"}}).error,
                StartsWith("tvregd: /no/\\x1b[31m: "));
}

// A C1 control character went through as it was, and a terminal took it for the beginning of a command.
TEST_F(Tvreg, query_and_ls_show_no_byte_that_a_terminal_would_act_on) {
    const std::string bad = "\xC2\x9B"
                            "31m\xE2\x80\xAE\xE2\x80\x8B\xFF\x1B";
    const std::string shown = "\\xc2\\x9b31m\\xe2\\x80\\xae\\xe2\\x80\\x8b\\xff\\x1b";
    WriteKey(name + "\\" + bad, {{bad, REG_SZ, Sz(bad)}});
    for (const char *locale : {"LC_ALL=C", "LC_ALL=C.UTF-8"}) {
        const auto run = [&](std::vector<std::string> arguments) {
            arguments.insert(arguments.begin(), ProgramPath("tvreg"));
            return RunAndRead({.command = arguments, .environment = {locale}}).output;
        };
        EXPECT_EQ(run({"query", "-s", key + "\\" + bad}),
                  longKey + "\\" + shown + "\n    " + shown + "    REG_SZ    " + shown + "\n\n");
        EXPECT_EQ(run({"ls", key}), shown + "\n");
        EXPECT_EQ(run({"get", key + "\\" + bad, bad}), shown + "\n");
    }
}

TEST_F(Tvreg, what_the_locale_can_show_is_shown) {
    WriteKey(name, {{"v", REG_SZ, Sz("\xC3\xBC")}});
    const std::vector<std::string> get = {ProgramPath("tvreg"), "get", key, "v"};
    EXPECT_EQ(RunAndRead({.command = get, .environment = {"LC_ALL=C.UTF-8"}}).output, "\xC3\xBC\n");
    EXPECT_EQ(RunAndRead({.command = get, .environment = {"LC_ALL=C"}}).output, "\\xc3\\xbc\n");
}

TEST_F(Tvreg, missing_keys_and_values_end_with_5_and_name_the_code) {
    const Ended noKey = Run({"query", key});
    EXPECT_EQ(noKey.status, 5);
    EXPECT_EQ(noKey.error, "tvreg: " + longKey + ": 2 ERROR_FILE_NOT_FOUND: no such key, value or file\n");
    WriteKey(name, {});
    EXPECT_EQ(Run({"get", key, "v"}).status, 5);
    EXPECT_EQ(Run({"delete", key, "-v", "v"}).status, 5);
    EXPECT_EQ(Run({"delete", key + "\\no"}).status, 5);
    EXPECT_EQ(Run({"export", key + "\\no"}).status, 5);
}

TEST_F(Tvreg, wrong_arguments_end_with_2) {
    EXPECT_EQ(Run({}).status, 2);
    EXPECT_EQ(Run({"nonsense"}).status, 2);
    EXPECT_EQ(Run({"query"}).status, 2);
    EXPECT_EQ(Run({"query", "HKXX\\a"}).status, 2);
    EXPECT_EQ(Run({"query", "HKLM\\\\a"}).status, 2);
    EXPECT_EQ(Run({"set", key, "v", "x", "-t", "word"}).status, 2);
    EXPECT_EQ(Run({"set", key, "v", "x", "-t", "dword"}).status, 2);
    EXPECT_EQ(Run({"query", key, "-v", "x", "--ve"}).status, 2);
    EXPECT_EQ(Run({"set", key, "v", "x", "y"}).error, "tvreg: \"x\" \"y\": not data of the type REG_SZ\n");
    EXPECT_THAT(Run({"query"}).error, StartsWith("tvreg: KEY is required\n"));
    EXPECT_FALSE(KeyExists(name));
    EXPECT_THAT(Do({"--help"}), HasSubstr("import"));
    EXPECT_THAT(Do({"--version"}), StartsWith("tvreg "));
}

TEST_F(Tvreg, add_and_set_write_every_type) {
    (void)Do({"add", key});
    EXPECT_THAT(ReadValues(name), ElementsAre());
    (void)Do({"add", key, "-v", "s", "-d", "one two", "-f"});
    (void)Do({"add", key, "-v", "m", "-t", "REG_MULTI_SZ", "-d", "a", "b"});
    (void)Do({"add", key, "--ve", "-t", "expand", "-d", "%X%"});
    (void)Do({"set", key, "d", "0x10", "-t", "dword"});
    (void)Do({"set", key, "b", "00ff", "-t", "binary"});
    (void)Do({"set", key, "n", "-t", "none"});
    (void)Do({"set", key, "path", "/usr/bin"});
    EXPECT_THAT(ReadValues(name),
                ElementsAre(RegistryValue{"s", REG_SZ, Sz("one two")},
                            RegistryValue{"m", REG_MULTI_SZ, MultiSz({"a", "b"})},
                            RegistryValue{"", REG_EXPAND_SZ, Sz("%X%")}, RegistryValue{"d", REG_DWORD, Dword(0x10)},
                            RegistryValue{"b", REG_BINARY, std::string("\0\xFF", 2)}, RegistryValue{"n", REG_NONE, ""},
                            RegistryValue{"path", REG_SZ, Sz("/usr/bin")}));
    EXPECT_EQ(Do({"get", key, "s"}), "one two\n");
    EXPECT_EQ(Do({"get", key, "b", "--raw"}), std::string("\0\xFF", 2));
    EXPECT_EQ(Do({"get", key}), "%X%\n");
    EXPECT_THAT(Do({"get", key, "d", "--json"}), HasSubstr("\"data\": 16"));
}

TEST_F(Tvreg, delete_takes_values_or_the_key_with_all_below) {
    WriteKey(name + "\\k\\sub", {});
    WriteKey(name + "\\k", {{"a", REG_SZ, ""}, {"b", REG_SZ, ""}, {"", REG_SZ, ""}});
    (void)Do({"delete", key + "\\k", "-v", "a"});
    EXPECT_EQ(ReadValues(name + "\\k").size(), 2u);
    (void)Do({"delete", key + "\\k", "--ve"});
    EXPECT_EQ(ReadValues(name + "\\k").size(), 1u);
    (void)Do({"delete", key + "\\k", "--va"});
    EXPECT_EQ(ReadValues(name + "\\k").size(), 0u);
    (void)Do({"delete", key + "\\k"});
    EXPECT_FALSE(KeyExists(name + "\\k"));
}

// An empty name was taken for none, and the key went with all below it.
TEST_F(Tvreg, an_empty_name_is_that_of_the_value_without_one) {
    WriteKey(name, {{"a", REG_SZ, Sz("x")}, {"", REG_SZ, Sz("y")}});
    EXPECT_EQ(Do({"query", key, "-v", ""}), longKey + "\n    (Default)    REG_SZ    y\n\n");
    (void)Do({"delete", key, "-v", ""});
    EXPECT_THAT(ReadValues(name), ElementsAre(RegistryValue{"a", REG_SZ, Sz("x")}));
    EXPECT_EQ(Run({"delete", key, "-v", ""}).status, 5);
    EXPECT_TRUE(KeyExists(name));
}

TEST_F(Tvreg, options_that_contradict_each_other_are_refused) {
    WriteKey(name, {{"a", REG_SZ, Sz("x")}});
    EXPECT_EQ(Run({"delete", key, "-v", "a", "--va"}).status, 2);
    EXPECT_EQ(Run({"delete", key, "--ve", "--va"}).status, 2);
    EXPECT_EQ(Run({"get", key, "a", "--raw", "--json"}).status, 2);
    EXPECT_EQ(ReadValues(name).size(), 1u);
}

TEST_F(Tvreg, rm_leaves_a_key_with_subkeys_alone_unless_told) {
    WriteKey(name + "\\k\\sub", {});
    WriteKey(name + "\\k", {{"a", REG_SZ, ""}});
    (void)Do({"rm", key + "\\k", "a"});
    EXPECT_THAT(ReadValues(name + "\\k"), ElementsAre());
    const Ended refused = Run({"rm", key + "\\k"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.error, HasSubstr("1020 ERROR_KEY_HAS_CHILDREN"));
    (void)Do({"rm", key + "\\k", "-r"});
    EXPECT_FALSE(KeyExists(name + "\\k"));
}

TEST_F(Tvreg, ls_lists_subkeys_in_their_order) {
    WriteKey(name + "\\z\\deep", {});
    WriteKey(name + "\\a", {});
    EXPECT_EQ(Do({"ls", key}), "z\na\n");
    EXPECT_EQ(Do({"ls", "-r", key}), "z\nz\\deep\na\n");
}

TEST_F(Tvreg, version_is_the_daemons) {
    EXPECT_EQ(Do({"version"}), "registry daemon 2.3.0\n");
    EXPECT_THAT(Do({"version", "--json"}), HasSubstr("\"minor\": 3"));
}

TEST_F(Tvreg, full_output_ends_with_1) {
    WriteKey(name, {});
    const Ended ended =
        RunAndRead({.command = {"/bin/sh", "-c", ProgramPath("tvreg") + " query '" + key + "' > /dev/full"}});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.error, HasSubstr("No space left"));
}

TEST_F(Tvreg, no_daemon_ends_with_150_and_names_the_code) {
    EXPECT_EQ(StopDaemon(daemon), 0);
    const Ended ended = Run({"query", "HKLM"});
    EXPECT_EQ(ended.status, 150);
    EXPECT_THAT(ended.error, HasSubstr("1016 ERROR_REGISTRY_IO_FAILED"));
    daemon = StartRegistryDaemon(folder + "/registry.db");
}
