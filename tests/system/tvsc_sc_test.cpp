// SPDX-License-Identifier: MIT
// The verbs of the Win32 command line of services, their syntax and what they print; the lock, handles of deleted
// services, and what is only told with --dry-run.
#include "servd/programs.h"
#include "tests/support/service_world.h"
#include "tests/support/value_bytes.h"
#include "tv/winreg.h"
#include "tv/winsvc.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <csignal>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

using Json = nlohmann::json;

struct TvscSc : ServiceWorld {
    std::string Sc(std::vector<std::string> words) {
        words.insert(words.begin(), "sc");
        return Do(std::move(words));
    }
    std::string FailSc(int status, std::vector<std::string> words) {
        words.insert(words.begin(), "sc");
        const Ended ended = Tvsc(std::move(words));
        EXPECT_EQ(ended.status, status) << ended.output << ended.error;
        return ended.output + ended.error;
    }
    void WaitFor(const std::string &service, const std::string &state) { Do({"wait", service, "--for", state}); }
};

std::string StatusText(const std::string &service, const std::string &state, const std::string &accepted) {
    return "\nSERVICE_NAME: " + service + " \n" +
           "        TYPE               : 10  WIN32_OWN_PROCESS \n"
           "        STATE              : " +
           state + " \n" + accepted +
           "        WIN32_EXIT_CODE    : 0  (0x0)\n"
           "        SERVICE_EXIT_CODE  : 0  (0x0)\n"
           "        CHECKPOINT         : 0x0\n"
           "        WAIT_HINT          : 0x0\n";
}

const std::string whileRunning = "                                (STOPPABLE, PAUSABLE, IGNORES_SHUTDOWN)\n";

TEST_F(TvscSc, query_shows_the_state_of_one_service) {
    CreateSample(name);
    EXPECT_EQ(Sc({"query", name}), StatusText(name, "1  STOPPED", "") + "\n");
    Do({"start", name});
    EXPECT_EQ(Sc({"query", name}), StatusText(name, "4  RUNNING", whileRunning) + "\n");
    EXPECT_EQ(Sc({"queryex", name}), StatusText(name, "4  RUNNING", whileRunning) + "        PID                : " +
                                         std::to_string(ProcessOf(name)) + "\n        FLAGS              : \n\n");
    EXPECT_EQ(FailSc(5, {"query", name + "-2"}),
              "[SC] EnumQueryServicesStatus:OpenService FAILED 1060:\n\nno such service\n\n");
}

TEST_F(TvscSc, query_without_a_name_lists_those_of_a_state_a_type_and_a_group) {
    CreateSample(name + "-1", "", {"--group", name, "--display", "The first"});
    CreateSample(name + "-2", "", {"--group", name, "--type", "share"});
    Do({"start", name + "-1"});
    EXPECT_THAT(Sc({"query"}), AllOf(HasSubstr("SERVICE_NAME: " + name + "-1 \nDISPLAY_NAME: The first\n"),
                                     Not(HasSubstr(name + "-2"))));
    EXPECT_THAT(Sc({"query", "state=", "inactive"}), AllOf(HasSubstr(name + "-2"), Not(HasSubstr(name + "-1"))));
    EXPECT_THAT(Sc({"query", "state=all", "GROUP=", name}),
                AllOf(HasSubstr(name + "-2"), HasSubstr(name + "-1"), Not(HasSubstr("zero"))));
    EXPECT_THAT(Sc({"queryex", "type=", "share", "state=", "all"}),
                AllOf(HasSubstr(name + "-2"), Not(HasSubstr(name + "-1")), HasSubstr("PID                : 0\n")));
    EXPECT_THAT(FailSc(87, {"query", "state=", "sideways"}), StartsWith("[SC] EnumServicesStatus FAILED 87:"));
}

TEST_F(TvscSc, create_config_and_qc_go_together) {
    CreateSample(name + "-image");
    EXPECT_EQ(Sc({"create", name, "binPath=", ScriptOf(name + "-image"), "start=", "auto", "DisplayName=", "Shown",
                  "depend=", "zero/+grp", "group=" + name, "tag=", "yes"}),
              "[SC] CreateService SUCCESS\nTag = 1\n");
    EXPECT_EQ(Sc({"qc", name}), "[SC] QueryServiceConfig SUCCESS\n"
                                "\nSERVICE_NAME: " +
                                    name +
                                    "\n"
                                    "        TYPE               : 10  WIN32_OWN_PROCESS \n"
                                    "        START_TYPE         : 2   AUTO_START\n"
                                    "        ERROR_CONTROL      : 1   NORMAL\n"
                                    "        BINARY_PATH_NAME   : " +
                                    ScriptOf(name + "-image") +
                                    "\n"
                                    "        LOAD_ORDER_GROUP   : " +
                                    name +
                                    "\n"
                                    "        TAG                : 0\n"
                                    "        DISPLAY_NAME       : Shown\n"
                                    "        DEPENDENCIES       : zero\n"
                                    "                           : +grp\n"
                                    "        SERVICE_START_NAME : \n");
    EXPECT_EQ(Sc({"config", name, "start=disabled", "error=", "severe", "depend=", "", "obj=", "root"}),
              "[SC] ChangeServiceConfig SUCCESS\n");
    EXPECT_THAT(Sc({"qc", name}),
                AllOf(HasSubstr("START_TYPE         : 4   DISABLED\n"), HasSubstr("ERROR_CONTROL      : 2   SEVERE\n"),
                      HasSubstr("DEPENDENCIES       : \n"), HasSubstr("SERVICE_START_NAME : root\n")));
    EXPECT_EQ(Sc({"config", name, "start=", "delayed-auto"}), "[SC] ChangeServiceConfig SUCCESS\n");
    EXPECT_EQ(ReadValue(KeyOf(name), "DelayedAutostart")->data, Dword(1));
    EXPECT_EQ(ReadValue(KeyOf(name), "Start")->data, Dword(2));
    EXPECT_EQ(Sc({"config", name, "start=", "auto"}), "[SC] ChangeServiceConfig SUCCESS\n");
    EXPECT_EQ(ReadValue(KeyOf(name), "DelayedAutostart")->data, Dword(0));
    EXPECT_THAT(FailSc(155, {"create", name, "binPath=", "/x"}), StartsWith("[SC] CreateService FAILED 1073:\n\n"));
    EXPECT_THAT(FailSc(87, {"create", name + "-2"}), StartsWith("[SC] CreateService FAILED 87:"));
    EXPECT_THAT(FailSc(87, {"config", name, "start=", "often"}), StartsWith("[SC] ChangeServiceConfig FAILED 87:"));
}

TEST_F(TvscSc, description_and_failure_actions_read_back) {
    CreateSample(name);
    EXPECT_EQ(Sc({"description", name, "x = y, and more"}), "[SC] ChangeServiceConfig2 SUCCESS\n");
    EXPECT_EQ(Sc({"qdescription", name}),
              "[SC] QueryServiceConfig2 SUCCESS\n\nSERVICE_NAME: " + name + "\nDESCRIPTION:  x = y, and more\n");
    EXPECT_EQ(Sc({"failure", name, "reset=", "3600", "actions=", "restart/5000/run/1000//", "command=", "/bin/true",
                  "reboot=", "Going down"}),
              "[SC] ChangeServiceConfig2 SUCCESS\n");
    EXPECT_EQ(Sc({"qfailure", name}),
              "[SC] QueryServiceConfig2 SUCCESS\n\nSERVICE_NAME: " + name +
                  "\n"
                  "        RESET_PERIOD (in seconds)    : 3600\n"
                  "        REBOOT_MESSAGE               : Going down\n"
                  "        COMMAND_LINE                 : /bin/true\n"
                  "        FAILURE_ACTIONS              : RESTART -- Delay = 5000 milliseconds.\n"
                  "                                       RUN PROCESS -- Delay = 1000 milliseconds.\n"
                  "                                       NONE -- Delay = 0 milliseconds.\n");
    EXPECT_EQ(Sc({"failure", name, "reset=", "INFINITE", "actions=", ""}), "[SC] ChangeServiceConfig2 SUCCESS\n");
    EXPECT_THAT(Sc({"qfailure", name}), Not(HasSubstr("RESTART")));
    EXPECT_THAT(FailSc(87, {"failure", name, "reset=", "1"}), StartsWith("[SC] ChangeServiceConfig2 FAILED 87:"));
    EXPECT_THAT(FailSc(87, {"failure", name, "reset=", "1", "actions=", "jump/1"}), HasSubstr("FAILED 87:"));
}

TEST_F(TvscSc, start_and_controls_tell_the_status_that_follows) {
    CreateSample(name);
    EXPECT_THAT(Sc({"start", name, "-x", "a=b"}),
                AllOf(HasSubstr("STATE              : "), HasSubstr("PID                : ")));
    WaitFor(name, "running");
    EXPECT_THAT(ReadLog(name), AllOf(HasSubstr("-x"), HasSubstr("a=b")));
    EXPECT_THAT(FailSc(1, {"start", name}), StartsWith("[SC] StartService FAILED 1056:"));
    EXPECT_THAT(Sc({"pause", name}), HasSubstr("SERVICE_NAME: " + name));
    WaitFor(name, "paused");
    EXPECT_THAT(Sc({"interrogate", name}), HasSubstr("STATE              : 7  PAUSED "));
    Sc({"continue", name});
    WaitFor(name, "running");
    EXPECT_THAT(Sc({"control", name, "150"}), HasSubstr("STATE              : 4  RUNNING "));
    EXPECT_THAT(FailSc(3, {"control", name, "paramchange"}), StartsWith("[SC] ControlService FAILED 1052:"));
    EXPECT_THAT(FailSc(87, {"control", name, "much"}), StartsWith("[SC] ControlService FAILED 87:"));
    Sc({"stop", name});
    WaitFor(name, "stopped");
    EXPECT_THAT(FailSc(7, {"stop", name}), StartsWith("[SC] ControlService FAILED 1062:"));
    EXPECT_THAT(FailSc(5, {"start", name + "-2"}), StartsWith("[SC] StartService: OpenService FAILED 1060:"));
    EXPECT_EQ(Sc({"delete", name}), "[SC] DeleteService SUCCESS\n");
    EXPECT_FALSE(KeyExists(KeyOf(name)));
}

TEST_F(TvscSc, names_dependents_and_the_lock_are_told) {
    CreateSample(name, "", {"--display", "Shown " + name});
    CreateSample(name + "-2", "", {"--depends", name});
    EXPECT_EQ(Sc({"getdisplayname", name}), "[SC] GetServiceDisplayName SUCCESS\nName = Shown " + name + "\n");
    EXPECT_EQ(Sc({"GetKeyName", "Shown " + name}), "[SC] GetServiceKeyName SUCCESS\nName = " + name + "\n");
    EXPECT_THAT(FailSc(5, {"getkeyname", "Nobody"}), StartsWith("[SC] GetServiceKeyName FAILED 1060:"));
    EXPECT_THAT(Sc({"enumdepend", name}),
                AllOf(StartsWith("Enum: entriesRead  = 1\n"), HasSubstr("SERVICE_NAME: " + name + "-2 \n")));
    EXPECT_EQ(Sc({"querylock"}), "[SC] QueryServiceLockStatus SUCCESS\n        IS_LOCKED      : FALSE\n"
                                 "        LOCK_OWNER     : \n        LOCK_DURATION  : 0 (seconds since acquired)\n");
    const std::string script = "echo u | " + ProgramPath("tvsc") + " sc lock";
    EXPECT_EQ(RunAndRead({.command = {"/bin/sh", "-c", script}}).output,
              "\nActive database is locked.\n[SC] UnlockServiceDatabase SUCCESS\n");
    EXPECT_THAT(Do({"lock", "take", "--", ProgramPath("tvsc"), "sc", "querylock"}),
                AllOf(HasSubstr("IS_LOCKED      : TRUE\n"), HasSubstr("LOCK_OWNER     : root@")));
}

TEST_F(TvscSc, wrong_words_are_usage_errors) {
    EXPECT_EQ(FailSc(2, {"querry"}), "tvsc: sc: querry: no such verb\n  did you mean query?\n");
    EXPECT_THAT(FailSc(2, {}), HasSubstr("one of query, queryex, qc, "));
    EXPECT_THAT(FailSc(2, {"delete"}), HasSubstr("delete: wrong number of arguments\n  tvsc sc delete NAME\n"));
    EXPECT_THAT(FailSc(2, {"config", name, "strat=", "auto"}),
                StartsWith("tvsc: sc: config: strat= is no option of it\n  did you mean start?\n"));
    EXPECT_THAT(FailSc(2, {"qc", name, "state=", "all"}), HasSubstr("qc: state= is no option of it"));
    EXPECT_THAT(Sc({"query", "state=", "all", "bufsize=", "100000"}), Not(HasSubstr("no option")));
    const Ended json = Tvsc({"--json", "sc", "query"});
    EXPECT_EQ(json.status, 2);
    EXPECT_EQ(Json::parse(json.output).at("schema"), "tvsc.action/1");
}

TEST_F(TvscSc, another_machine_is_named_first) {
    CreateSample(name);
    EXPECT_EQ(Sc({"\\\\localhost", "query", name}), StatusText(name, "1  STOPPED", "") + "\n");
    EXPECT_THAT(FailSc(150, {"\\\\no-such-host.invalid", "query", name}), HasSubstr("1722"));
}

TEST_F(TvscSc, names_of_other_scripts_and_of_no_script_at_all_work) {
    for (const std::string odd : {"caf\xE9", "\xE6\x9C\x8D\xE5\x8A\xA1"}) {
        const std::string service = name + "-" + odd;
        CreateSample(service);
        Do({"--dry-run", "sc", "delete", service});
        EXPECT_THAT(Sc({"query", service}), HasSubstr("SERVICE_NAME: " + name + "-"));
        EXPECT_EQ(Sc({"description", service, odd}), "[SC] ChangeServiceConfig2 SUCCESS\n");
        EXPECT_EQ(ReadValue(KeyOf(service), "Description")->data, Sz(odd));
    }
}

// --- lock take, handles drain, --dry-run ---------------------------------------------------------------------------

TEST_F(TvscSc, lock_take_holds_the_lock_while_a_command_runs_or_until_it_is_interrupted) {
    EXPECT_THAT(Do({"lock", "take", "--", ProgramPath("tvsc"), "lock", "status"}), StartsWith("locked by root@"));
    EXPECT_EQ(Tvsc({"lock", "take", "--", "/bin/sh", "-c", "exit 7"}).status, 7);
    EXPECT_EQ(Do({"lock", "status"}), "not locked\n");
    const std::string output = folder + "/" + name;
    const pid_t holder = StartProgram(
        {.command = {ProgramPath("tvsc"), "lock", "take"}, .outputFile = output, .errorFile = output + ".err"});
    EXPECT_TRUE(WaitUntil([&] { return ReadWhatIsThere(output) == "localhost: locked, until this is interrupted\n"; }));
    EXPECT_EQ(Tvsc({"lock", "take", "--", "/bin/true"}).status, 152);
    kill(holder, SIGINT);
    EXPECT_EQ(WEXITSTATUS(WaitForEnd(holder)), 130);
    EXPECT_EQ(Do({"lock", "status"}), "not locked\n");
}

TEST_F(TvscSc, drain_lets_a_deleted_service_go_whose_handles_nobody_closes) {
    CreateSample(name);
    CreateSample(name + "-like", "", {"--display", name});
    {
        const RpcClient client = DialServiceDaemon(); // a client that is killed leaves what it has open
        for (int i = 0; i < 3; ++i) {
            const std::string service = name;
            (void)CallForAnswer(client.get(),
                                servd_SERV_OPEN_SERVICE{const_cast<char *>(service.c_str()), SERVICE_ALL_ACCESS});
        }
    }
    EXPECT_EQ(Tvsc({"handles", "drain", name}).status, 1); // not marked
    const Ended live = Tvsc({"handles", "drain", "--dry-run", name});
    EXPECT_EQ(live.status, 1) << "what is told is what would come of it";
    EXPECT_THAT(live.error, HasSubstr("is not marked for deletion"));
    EXPECT_THAT(Do({"delete", name}), HasSubstr("marked for deletion"));
    EXPECT_EQ(Do({"handles", "drain", "--dry-run", name}), name + ": its handles would be closed\n");
    EXPECT_TRUE(KeyExists(KeyOf(name)));
    EXPECT_EQ(Do({"handles", "drain", name}), name + ": gone, with 3 handles\n");
    EXPECT_FALSE(KeyExists(KeyOf(name)));
    EXPECT_EQ(Tvsc({"handles", "drain", name}).status, 5);
    EXPECT_THAT(Do({"list", name + "*"}), HasSubstr(name + "-like"));
}

TEST_F(TvscSc, drain_leaves_a_service_alone_that_runs) {
    CreateSample(name);
    Do({"start", name});
    const Ended held = Tvsc({"delete", "--force", name});
    EXPECT_EQ(held.status, 0) << held.error;
    const Ended drained = Tvsc({"handles", "drain", name});
    EXPECT_EQ(drained.status, 1);
    EXPECT_THAT(drained.error, HasSubstr("is not stopped, and goes when it is: 1056"));
    EXPECT_EQ(Tvsc({"--dry-run", "handles", "drain", name}).error, drained.error);
    EXPECT_TRUE(KeyExists(KeyOf(name)));
}

TEST_F(TvscSc, nothing_changes_with_dry_run) {
    CreateSample(name);
    Do({"start", name});
    const std::vector<std::vector<std::string>> commands = {{"sc", "delete", name},
                                                            {"sc", "stop", name},
                                                            {"sc", "config", name, "start=", "auto"},
                                                            {"sc", "description", name, "x"},
                                                            {"sc", "create", name + "-2", "binPath=", ScriptOf(name)},
                                                            {"sc", "start", name},
                                                            {"sc", "lock"},
                                                            {"lock", "take"},
                                                            {"lock", "take", "--", "/bin/false"},
                                                            {"with-lock", "--", "/bin/false"},
                                                            {"daemon", "stop"},
                                                            {"delete", "--stop", name},
                                                            {"enable", name},
                                                            {"config", name, "--start", "auto"},
                                                            {"stop", name},
                                                            {"restart", name},
                                                            {"pause", name},
                                                            {"control", name, "200"},
                                                            {"kill", "TERM", name},
                                                            {"reset", name},
                                                            {"prepare"},
                                                            {"clone", name, name + "-3"},
                                                            {"leftovers", "--end"}};
    const pid_t process = ProcessOf(name);
    const auto before = ReadValues(KeyOf(name));
    for (std::vector<std::string> command : commands) {
        command.insert(command.begin(), "--dry-run");
        (void)Do(command);
        EXPECT_EQ(ProcessOf(name), process) << command[1] << " " << command[2];
    }
    EXPECT_EQ(ReadValues(KeyOf(name)), before);
    EXPECT_FALSE(KeyExists(KeyOf(name + "-2")));
    EXPECT_FALSE(KeyExists(KeyOf(name + "-3")));
    EXPECT_EQ(Do({"lock", "status"}), "not locked\n");
    EXPECT_THAT(Do({"status", name}), HasSubstr("running"));
}

// A lock of somebody else stays, too.
TEST_F(TvscSc, lock_release_with_dry_run_frees_nothing) {
    const std::string script =
        ProgramPath("tvsc") + " --dry-run lock release && " + ProgramPath("tvsc") + " lock status";
    EXPECT_THAT(Do({"with-lock", "--", "/bin/sh", "-c", script}),
                AllOf(HasSubstr("would free the lock of root@"), HasSubstr("locked by root@")));
}

} // namespace
