// SPDX-License-Identifier: MIT
// One command of tvsc on several machines: private hosts on a bridge of their own, of which one is dead and one hangs.
#include "tests/support/host.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <csignal>
#include <filesystem>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

using Json = nlohmann::json;

// What a machine does: tells its network, waits for its end of the cable, then serves.
constexpr char machine[] = R"(
    readlink /proc/self/ns/net >"$1.network.new" && mv "$1.network.new" "$1.network"
    until ip link show "$3" >/dev/null 2>&1; do sleep 0.02; done
    ip address add "$2/24" dev "$3" && ip link set "$3" up
    mkdir "$1" && cd "$1"
    "$TV_BIN/tvregd" --lazy --database "$1/registry.db" --background && "$TV_BIN/servd" &
    "$TV_BIN/tvsc" wait-online --timeout=60s
    for name in zero "web-$4"; do
        printf '#!/bin/csh -f\nexec "%s/tvsample" --log "%s/log"\n' "$TV_BIN" "$1" >"$1/$name.csh"
        "$TV_BIN/tvsc" create "$name" --image "$1/$name.csh"
    done
    touch "$1.ready"
    exec sleep 1000
)";

struct TvscHosts : testing::Test {
    static inline std::string folder;
    static inline bool isConnected = false;

    static constexpr char good[] = "10.77.0.11", other[] = "10.77.0.12", dead[] = "10.77.0.13";

    static bool Shell(const std::string &command) {
        return RunAndRead({.command = {"/bin/bash", "-c", command}}).status == 0;
    }
    static std::string NetworkOf(const std::string &process) {
        char text[64] = {};
        return readlink(("/proc/" + process + "/ns/net").c_str(), text, sizeof text - 1) > 0 ? text : "";
    }
    // A process in this network, of this name unless that is empty; "" when there is none.
    static std::string ProcessIn(const std::string &network, const std::string &program = "") {
        for (const auto &entry : std::filesystem::directory_iterator("/proc")) {
            const std::string process = entry.path().filename();
            const bool isIn = isdigit(process[0]) && !network.empty() && NetworkOf(process) == network;
            if (isIn && (program.empty() || ReadWhatIsThere("/proc/" + process + "/comm") == program + "\n")) {
                return process;
            }
        }
        return "";
    }
    static std::string NetworkOfMachine(int number) {
        std::string network = ReadWhatIsThere(folder + "/" + std::to_string(number) + ".network");
        return network.substr(0, network.find('\n'));
    }
    // A machine on the bridge.
    static bool AddMachine(int number) {
        const std::string n = std::to_string(number);
        const std::string far = "far" + n;
        (void)StartProgram({.command = {std::string(std::getenv("TV_SOURCE")) + "/tools/private-host", "/bin/bash",
                                        "-c", machine, "-", folder + "/" + n, "10.77.0.1" + n, far, n},
                            .outputFile = folder + "/" + n + ".output",
                            .errorFile = folder + "/" + n + ".output"});
        if (!WaitUntil([&] { return !ProcessIn(NetworkOfMachine(number)).empty(); })) return false;
        return Shell("ip link add near" + n + " type veth peer name " + far + " && ip link set " + far + " netns " +
                     ProcessIn(NetworkOfMachine(number)) + " && ip link set near" + n + " master bridge up");
    }
    static void SetUpTestSuite() {
        folder = MakeScratchFolder();
        isConnected = Shell("ip link add bridge type bridge && ip address add 10.77.0.1/24 dev bridge && "
                            "ip link set bridge up");
        for (int number = 1; isConnected && number <= 3; ++number) {
            isConnected = AddMachine(number);
        }
        for (int number = 1; isConnected && number <= 3; ++number) {
            const std::string ready = folder + "/" + std::to_string(number) + ".ready";
            if (!WaitUntil([&] { return std::filesystem::exists(ready); }, 90000)) {
                throw std::runtime_error("a machine does not answer");
            }
        }
        if (isConnected) isConnected = Shell("ip link set near3 down"); // dead from now on
    }
    static void TearDownTestSuite() { EndAllProcesses(); }
    void SetUp() override {
        if (!isConnected) GTEST_SKIP() << "the kernel has no bridges or no virtual network cables";
    }

    static Ended Tvsc(std::vector<std::string> arguments, std::vector<std::string> environment = {}) {
        arguments.insert(arguments.begin(), ProgramPath("tvsc"));
        return RunAndRead({.command = std::move(arguments), .environment = std::move(environment)}, 90000);
    }
    static std::string List(const std::vector<std::string> &hosts) {
        std::string list;
        for (const std::string &host : hosts) {
            list += (list.empty() ? "" : ",") + host;
        }
        return list;
    }
    static std::size_t RowOf(const std::string &table, const std::string &begin) { return table.find(begin); }
};

TEST_F(TvscHosts, services_of_all_machines_come_in_one_table) {
    const Ended listed = Tvsc({"--host", List({other, good}), "list", "web-*"});
    EXPECT_EQ(listed.status, 0) << listed.error;
    EXPECT_THAT(listed.output,
                AllOf(HasSubstr("HOST"), HasSubstr("10.77.0.11  web-1  stopped  demand"),
                      HasSubstr("10.77.0.12  web-2  stopped  demand"), HasSubstr("2 services of 2 machines.\n")));
    EXPECT_LT(RowOf(listed.output, other), RowOf(listed.output, good)) << "in the order in which they are named";
    EXPECT_EQ(Tvsc({"list", "web-*"}, {"TVSC_HOST=" + List({other, good})}).output, listed.output);
}

TEST_F(TvscHosts, a_file_names_machines_and_a_command_acts_on_each) {
    WriteFile(folder + "/hosts", "# ours\n" + std::string(good) + "\n\n  " + other + "  # the second\n" + good + "\n");
    const Ended started = Tvsc({"--hosts", folder + "/hosts", "start", "zero"});
    EXPECT_EQ(started.status, 0) << started.error;
    EXPECT_EQ(started.output, "10.77.0.11  zero: running\n10.77.0.12  zero: running\n");
    EXPECT_EQ(Tvsc({"--hosts=" + folder + "/hosts", "--parallel=1", "stop", "zero"}).status, 0);
    EXPECT_EQ(Tvsc({"--hosts", folder + "/none", "list"}).status, 2);
}

TEST_F(TvscHosts, the_exit_status_is_the_highest_and_json_has_that_of_each) {
    const Ended both = Tvsc({"--json", "--host", List({good, other}), "status", "web-1"});
    EXPECT_EQ(both.status, 4) << "stopped on one, unknown on the other";
    const Json json = Json::parse(both.output);
    EXPECT_EQ(json.at("schema"), "tvsc.hosts/1");
    EXPECT_EQ(json.at("exit_status"), 4);
    ASSERT_EQ(json.at("hosts").size(), 2u);
    EXPECT_EQ(json.at("hosts").at(0).at("host"), good);
    EXPECT_EQ(json.at("hosts").at(0).at("exit_status"), 3);
    EXPECT_EQ(json.at("hosts").at(0).at("document").at("services").at(0).at("name"), "web-1");
    EXPECT_EQ(json.at("hosts").at(1).at("document").at("errors").at(0).at("win32"), 1060);
}

TEST_F(TvscHosts, a_dead_machine_and_one_that_hangs_keep_nobody_from_the_others) {
    const std::string hanging = ProcessIn(NetworkOfMachine(2), "servd");
    ASSERT_NE(hanging, "");
    kill(std::stoi(hanging), SIGSTOP);
    const std::int64_t begin = MonotonicMs();
    const Ended listed = Tvsc({"--host", List({dead, other, good}), "--host-timeout", "4s", "list", "web-*"});
    EXPECT_LT(MonotonicMs() - begin, 20000);
    EXPECT_EQ(listed.status, 151);
    EXPECT_THAT(listed.output,
                AllOf(HasSubstr("10.77.0.11  web-1"), HasSubstr("10.77.0.12  -      took too long"),
                      HasSubstr("10.77.0.13  -"), HasSubstr("1 service of 1 machine; 2 did not answer")));
    EXPECT_THAT(listed.error, HasSubstr("tvsc: 10.77.0.12: no end within 4 s\n"));
    const Json json = Json::parse(
        Tvsc({"--json", "--host", List({good, other}), "--host-timeout", "2s", "is-active", "web-1"}).output);
    EXPECT_EQ(json.at("hosts").at(0).at("timed_out"), false);
    EXPECT_EQ(json.at("hosts").at(1).at("timed_out"), true);
    EXPECT_EQ(json.at("hosts").at(1).at("exit_status"), 151);
    kill(std::stoi(hanging), SIGCONT);
    EXPECT_EQ(Tvsc({"--host", List({other, good}), "list"}).status, 0);
    EXPECT_EQ(ChildrenOf(getpid(), "tvsc").size(), 0u) << "nothing is left running";
}

TEST_F(TvscHosts, daemon_status_tells_of_each_daemon_whether_it_runs) {
    const Ended both = Tvsc({"--host", List({other, good}), "daemon", "status"});
    EXPECT_EQ(both.status, 0) << both.error;
    EXPECT_EQ(both.output, "10.77.0.12  running, database loaded\n10.77.0.11  running, database loaded\n")
        << "no process: it is that of another machine";
    const std::string none = "localhost"; // has no daemon yet
    const Ended one = Tvsc({"--host", List({good, none}), "daemon", "status"});
    EXPECT_EQ(one.status, 150);
    EXPECT_EQ(one.output, "10.77.0.11  running, database loaded\nlocalhost   (exit status 150)\n");
    EXPECT_THAT(one.error, HasSubstr("tvsc: localhost: "));
    const Json json = Json::parse(Tvsc({"--json", "--host", List({none, good}), "daemon", "status"}).output);
    EXPECT_EQ(json.at("exit_status"), 150);
    EXPECT_EQ(json.at("hosts").at(0).at("document").at("daemon").at("reachable"), false);
    EXPECT_EQ(json.at("hosts").at(0).at("exit_status"), 150);
    EXPECT_EQ(json.at("hosts").at(1).at("document").at("daemon").at("initialized"), true);
    EXPECT_EQ(json.at("hosts").at(1).at("document").at("host"), good);
    EXPECT_EQ(json.at("hosts").at(1).at("exit_status"), 0);
}

TEST_F(TvscHosts, daemon_status_tells_which_daemon_hangs) {
    const std::string hanging = ProcessIn(NetworkOfMachine(2), "servd");
    ASSERT_NE(hanging, "");
    kill(std::stoi(hanging), SIGSTOP);
    const std::vector<std::string> status = {"--host", List({good, other}), "--host-timeout", "2s", "daemon", "status"};
    const Ended text = Tvsc(status);
    std::vector<std::string> asJson = status;
    asJson.insert(asJson.begin(), "--json");
    const Ended told = Tvsc(asJson);
    const Ended limited = Tvsc({"--host", List({good, other}), "--call-timeout", "1s", "daemon", "status"});
    kill(std::stoi(hanging), SIGCONT);
    EXPECT_EQ(text.status, 151);
    EXPECT_EQ(text.output, "10.77.0.11  running, database loaded\n10.77.0.12  (took too long)\n");
    EXPECT_THAT(text.error, HasSubstr("tvsc: 10.77.0.12: no end within 2 s\n"));
    const Json json = Json::parse(told.output);
    EXPECT_EQ(json.at("hosts").at(0).at("document").at("daemon").at("reachable"), true);
    EXPECT_EQ(json.at("hosts").at(1).at("timed_out"), true);
    EXPECT_EQ(limited.status, 151);
    EXPECT_EQ(limited.output, "10.77.0.11  running, database loaded\n10.77.0.12  (exit status 151)\n");
}

// All the machines' daemons are processes of this one, too: only the one behind its own port is its daemon's.
TEST_F(TvscHosts, daemon_status_tells_the_process_of_this_machine_alone_whose_daemons_are_several) {
    const pid_t registry = StartRegistryDaemon(folder + "/own.db");
    const pid_t daemon = StartServiceDaemon();
    const std::vector<std::string> status = {"--host", List({good, "localhost", other}), "daemon", "status"};
    const std::string running = "  running, database loaded";
    const Ended text = Tvsc(status);
    EXPECT_EQ(text.status, 0) << text.error;
    EXPECT_THAT(text.output, AllOf(HasSubstr("localhost " + running + "; process " + std::to_string(daemon) + ", for "),
                                   HasSubstr(good + running + "\n"), HasSubstr(other + running + "\n")));
    std::vector<std::string> asJson = status;
    asJson.insert(asJson.begin(), "--json");
    const Json hosts = Json::parse(Tvsc(asJson).output).at("hosts");
    EXPECT_EQ(hosts.at(1).at("document").at("daemon").at("pid"), daemon);
    for (const std::size_t far : {0u, 2u}) {
        EXPECT_FALSE(hosts.at(far).at("document").at("daemon").contains("pid"));
    }
    EXPECT_EQ(StopDaemon(daemon), 0);

    WriteKey(servicesKey + "\\no-service", {}); // with which none is loaded
    const pid_t empty = StartServiceDaemon();
    const Ended unloaded = Tvsc(status);
    EXPECT_EQ(unloaded.status, 6) << unloaded.error;
    EXPECT_THAT(unloaded.output,
                AllOf(HasSubstr("localhost   running, 1065 ERROR_DATABASE_DOES_NOT_EXIST"),
                      HasSubstr("; process " + std::to_string(empty)), HasSubstr(good + running + "\n")));
    EXPECT_EQ(StopDaemon(empty), 0);
    EXPECT_EQ(StopDaemon(registry), 0);
}

TEST_F(TvscHosts, a_watch_shows_changes_of_all_machines_as_they_come) {
    const std::string seen = folder + "/seen";
    const pid_t watch = StartProgram({.command = {ProgramPath("tvsc"), "--json", "--host", List({good, other}), "watch",
                                                  "--interval", "100ms", "--initial"},
                                      .outputFile = seen});
    const auto sees = [&](const std::string &text) {
        return WaitUntil([&] { return ReadWhatIsThere(seen).find(text) != std::string::npos; });
    };
    EXPECT_TRUE(sees("\"web-1\"") && sees("\"web-2\""));
    EXPECT_EQ(Tvsc({"--host", other, "start", "web-2"}).status, 0);
    EXPECT_TRUE(sees("\"to\":\"running\""));
    kill(watch, SIGINT);
    EXPECT_EQ(WEXITSTATUS(WaitForEnd(watch)), 130);
    EXPECT_TRUE(WaitUntil([] { return ChildrenOf(getpid(), "tvsc").empty(); })) << "they end with it";
    EXPECT_THAT(ReadFile(seen), HasSubstr("\"host\":\"10.77.0.12\""));
    EXPECT_EQ(Tvsc({"--host", other, "stop", "web-2"}).status, 0);
}

TEST_F(TvscHosts, a_watch_ends_with_its_reader_and_tells_errors_as_they_come) {
    const std::string watch =
        ProgramPath("tvsc") + " --host " + List({good, other}) + " watch --initial --interval 100ms";
    const Ended ended = RunAndRead(
        {.command = {"/bin/bash", "-c", "timeout 20 " + watch + " | head -n 1; echo ${PIPESTATUS[0]}"}}, 30000);
    EXPECT_THAT(ended.output, HasSubstr("\n141\n"));
    EXPECT_TRUE(WaitUntil([] { return ChildrenOf(getpid(), "tvsc").empty(); }));

    const std::string told = folder + "/told";
    const pid_t both = StartProgram(
        {.command = {"/bin/sh", "-c",
                     "exec " + ProgramPath("tvsc") + " --host " + List({good, dead}) + " watch >/dev/null 2>" + told}});
    EXPECT_TRUE(
        WaitUntil([&] { return ReadWhatIsThere(told).find(std::string("tvsc: ") + dead) != std::string::npos; }));
    kill(both, SIGINT);
    EXPECT_EQ(WEXITSTATUS(WaitForEnd(both)), 130);
}

// An ssh of our own: it runs what it is given, here.
TEST_F(TvscHosts, through_ssh_each_machine_runs_its_own_tvsc) {
    std::filesystem::create_directory(folder + "/bin");
    WriteFile(folder + "/bin/ssh",
              "#!/bin/sh\n[ \"$1 $2 $3\" = '-o BatchMode=yes --' ] || exit 254\n"
              "[ \"$4\" != broken ] || { echo 'no route' >&2; exit 255; }\n"
              "echo \"$5\" >>" +
                  folder + "/lines\nTVSC_HOST=$4 exec /bin/sh -c \"$5\"\n",
              0755);
    const std::vector<std::string> environment = {"PATH=" + folder + "/bin:" + ProgramPath("") + ":/usr/bin:/bin"};
    const Ended listed =
        Tvsc({"--ssh", "--host", std::string(good) + ",broken", "list", "--names-only", "web-1", "it's"}, environment);
    EXPECT_EQ(listed.status, 255);
    EXPECT_THAT(listed.output, AllOf(HasSubstr("10.77.0.11  web-1\n"), HasSubstr("broken      (exit status 255)\n")));
    EXPECT_THAT(listed.error, HasSubstr("tvsc: broken: no route\n"));
    EXPECT_EQ(ReadFile(folder + "/lines"), "tvsc list --names-only web-1 'it'\\''s'\n");
    std::filesystem::remove(folder + "/lines");
    (void)Tvsc({"--host", good, "--ssh", "--parallel=1", "sc", "start", "web-9", "--parallel", "4", "--host=x"},
               environment);
    EXPECT_EQ(ReadFile(folder + "/lines"), "tvsc sc start web-9 --parallel 4 '--host=x'\n")
        << "words of sc are its own";
    EXPECT_EQ(Tvsc({"--ssh", "--host", "-oProxyCommand=x,b", "list"}, environment).status, 2);
    EXPECT_EQ(Tvsc({"--ssh", "list"}, environment).status, 2) << "no machine is named";
}

TEST_F(TvscHosts, what_looks_at_files_of_a_machine_is_refused_from_afar) {
    for (const std::string command : {"leftovers", "prepare", "timeline"}) {
        const Ended ended = Tvsc({"--host", List({good, other}), command});
        EXPECT_EQ(ended.status, 2) << command;
        EXPECT_THAT(ended.error, HasSubstr("--ssh"));
    }
    EXPECT_EQ(Tvsc({"--host", List({good, other}), "with-lock", "--", "/bin/true"}).status, 2);
    EXPECT_THAT(Tvsc({"--host", List({good, other}), "sc", "LOCK"}).error,
                HasSubstr("holds the lock until its standard input ends"));
    // Each would find it empty, and an empty text with --prune means that everything goes.
    const Ended apply = Tvsc({"--host", List({good, other}), "apply", "--prune", "-"});
    EXPECT_EQ(apply.status, 2);
    EXPECT_THAT(apply.error, HasSubstr("standard input is for one machine"));
}

// --- the processes on behalf of machines; an ssh of our own stands for all of them ---

struct TvscSideBySide : testing::Test {
    const std::string folder = MakeScratchFolder();

    void TearDown() override { EndAllProcesses(); }

    // What the machines do. $4 is the name of the machine.
    void WriteSsh(const std::string &body) const {
        std::filesystem::create_directory(folder + "/bin");
        WriteFile(folder + "/bin/ssh", "#!/bin/sh\n" + body + "\n", 0755);
    }
    static std::string Machines(int count) {
        std::string list;
        for (int i = 0; i < count; ++i) {
            list += (i == 0 ? "m" : ",m") + std::to_string(i);
        }
        return list;
    }
    Launch LaunchOf(int machines, std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {ProgramPath("tvsc"), "--ssh", "--host", Machines(machines)});
        return {.command = std::move(arguments), .environment = {"PATH=" + folder + "/bin:/usr/bin:/bin"}};
    }
    Ended Tvsc(int machines, const std::vector<std::string> &arguments) const {
        return RunAndRead(LaunchOf(machines, arguments), 60000);
    }
};

TEST_F(TvscSideBySide, machines_that_do_not_end_when_they_are_asked_to_are_killed_at_the_same_moment) {
    WriteSsh("trap '' TERM; while :; do sleep 1; done");
    const std::int64_t begin = MonotonicMs();
    const Ended ended = Tvsc(6, {"--host-timeout", "500ms", "list"});
    EXPECT_EQ(ended.status, 151);
    EXPECT_GE(MonotonicMs() - begin, 1500) << "each is asked first";
    EXPECT_LT(MonotonicMs() - begin, 4500) << "one after the other they would take 6.5 s";
}

TEST_F(TvscSideBySide, a_machine_that_says_nothing_more_and_does_not_end_holds_nobody_up) {
    WriteSsh("[ $4 = m0 ] && exec sleep 1000 >&- 2>&-; echo done");
    const Ended ended = Tvsc(3, {"--parallel=2", "--host-timeout", "1s", "name", "x"});
    EXPECT_EQ(ended.status, 151);
    EXPECT_EQ(ended.output, "m0  (took too long)\nm1  done\nm2  done\n");
}

// The interrupt comes while processes are being started.
TEST_F(TvscSideBySide, an_interrupt_leaves_no_process_behind) {
    WriteSsh("exec sleep 1000");
    for (int pauseMs = 4; pauseMs < 64; pauseMs += 4) {
        const pid_t process = StartProgram(LaunchOf(200, {"--parallel=200", "list"}));
        SleepMs(pauseMs);
        kill(process, SIGTERM);
        (void)WaitForEnd(process);
        EXPECT_TRUE(WaitUntil([] { return ChildrenOf(getpid()).empty(); }, 3000)) << "after " << pauseMs << " ms";
        EndAllProcesses();
    }
}

TEST_F(TvscSideBySide, one_that_writes_too_much_is_told_so_and_is_not_taken_for_slow) {
    WriteSsh("[ $4 = m0 ] && exec head -c 300000000 /dev/zero; exec sleep 0.1");
    const Ended text = Tvsc(2, {"name", "x"});
    EXPECT_EQ(text.status, 1);
    EXPECT_EQ(text.output, "m0  (wrote too much)\nm1  (exit status 0)\n");
    EXPECT_EQ(text.error, "tvsc: m0: wrote too much, and was ended\n");
    EXPECT_THAT(Tvsc(1, {"list"}).output, HasSubstr("m0    -     wrote too much"));
    const Json json = Json::parse(Tvsc(2, {"--json", "name", "x"}).output);
    EXPECT_EQ(json.at("hosts").at(0).at("wrote_too_much"), true);
    EXPECT_EQ(json.at("hosts").at(0).at("timed_out"), false);
    EXPECT_FALSE(json.at("hosts").at(1).contains("wrote_too_much"));
}

// Another machine may answer anything.
TEST_F(TvscSideBySide, numbers_of_any_size_are_shown_as_they_are_or_not_at_all) {
    const auto service = [](const std::string &name, const std::string &state, const std::string &process) {
        return "{\"name\":\"" + name + "\",\"state_code\":" + state + ",\"pid_hint\":" + process +
               ",\"uptime_ms\":5184000000}";
    };
    WriteSsh("echo '{\"services\":[" + service("long", "4", "7") + "," + service("large", "1e300", "4294967297") + "," +
             service("less", "-1", "-4294967295") + "]}'");
    const Ended ended = Tvsc(1, {"list"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_THAT(ended.output, HasSubstr("long   running    -      7    60 d 0 h"));
    EXPECT_THAT(ended.output, HasSubstr("large  unknown 0  -      -    -"));
    EXPECT_THAT(ended.output, HasSubstr("less   unknown 0  -      -    -"));
}

} // namespace
