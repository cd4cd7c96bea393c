// SPDX-License-Identifier: MIT
// The checks of tvsc doctor on the machine, the port mapper and the daemons' processes: each with something that trips
// it, and with nothing. What /etc, /root or the host's name are is changed for tvsc alone, in namespaces of its own.
#include "servd/programs.h"
#include "tests/support/host.h"
#include "tests/support/scripted_regd.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <rpc/pmap_clnt.h>
#include <rpc/rpc.h>

#include <csignal>
#include <filesystem>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

using Json = nlohmann::json;

struct DoctorMachine : testing::Test {
    const std::string folder = MakeScratchFolder();

    void TearDown() override { EndAllProcesses(); }

    static Ended Run(const std::string &script, const std::vector<std::string> &environment = {}) {
        return RunAndRead({.command = {"/bin/bash", "-c", script}, .environment = environment}, 90000);
    }
    static std::string Tvsc() { return "'" + ProgramPath("tvsc") + "'"; }
    // What a shell that ends as the doctor does has found of an area, as JSON text.
    static std::string FoundBy(const std::string &script, const std::string &area,
                               const std::vector<std::string> &environment = {}) {
        const Ended ended = Run(script, environment);
        Json found = Json::array();
        const Json all = Json::parse(ended.output);
        for (const Json &one : all.at("findings")) {
            EXPECT_NE(one.at("why"), "") << one;
            if (one.at("area") == area) found.push_back(one);
        }
        return found.dump();
    }
    static std::string Found(const std::string &area, const std::string &options = "") {
        return FoundBy(Tvsc() + " doctor --json " + options, area);
    }
    // With mounts and names of its own.
    static std::string FoundAfter(const std::string &changes, const std::string &area) {
        return FoundBy("exec unshare --mount --uts /bin/bash -c 'set -e; " + changes +
                           "; exec \"$TV_BIN/tvsc\" doctor --json'",
                       area);
    }
    // Changes of a copy of /etc.
    std::string InEtc(const std::string &changes) const {
        const std::string etc = folder + "/etc";
        return "cp -a /etc " + etc + " || true; cd " + etc + "; " + changes + "; mount --bind " + etc + " /etc; cd /";
    }
};

// --- what the daemon needs of the machine ---

TEST_F(DoctorMachine, a_machine_without_the_shell_is_found) {
    EXPECT_THAT(Found("system"), Not(HasSubstr("/bin/csh")));
    EXPECT_THAT(FoundAfter("mount --bind /dev/null $(readlink -f /bin/csh)", "system"),
                AllOf(HasSubstr("\"/bin/csh\""), HasSubstr("\"fail\"")));
}

TEST_F(DoctorMachine, what_the_shell_of_root_reads_is_told) {
    EXPECT_THAT(FoundAfter("mount -t tmpfs none /root", "system"), Not(HasSubstr(".cshrc")));
    EXPECT_THAT(FoundAfter("mount -t tmpfs none /root; touch /root/.cshrc", "system"),
                AllOf(HasSubstr(".cshrc"), HasSubstr("\"info\"")));
}

TEST_F(DoctorMachine, files_that_rpc_needs_and_that_are_missing_are_found) {
    EXPECT_THAT(Found("rpc"), Not(HasSubstr("/etc/")));
    EXPECT_THAT(FoundAfter(InEtc("rm -f netconfig protocols"), "rpc"),
                AllOf(HasSubstr("\"/etc/netconfig\""), HasSubstr("\"/etc/protocols\"")));
}

TEST_F(DoctorMachine, a_host_name_that_leads_nowhere_is_found) {
    const std::string leadsNowhere = "leads to no address of this machine";
    EXPECT_THAT(Found("rpc"), Not(HasSubstr(leadsNowhere)));
    EXPECT_THAT(FoundAfter("hostname of-nobody", "rpc"), HasSubstr(leadsNowhere));
    EXPECT_THAT(FoundAfter(InEtc("echo 192.0.2.1 of-another >>hosts") + "; hostname of-another", "rpc"),
                HasSubstr(leadsNowhere));
}

TEST_F(DoctorMachine, a_port_mapper_that_does_not_answer_is_found) {
    EXPECT_THAT(Found("rpc"), Not(HasSubstr("rpcbind")));
    EXPECT_THAT(FoundBy("exec unshare --net " + Tvsc() + " doctor --json", "rpc"), HasSubstr("does not answer at"));
}

// --- the port mapper's entries ---

struct DoctorEntries : DoctorMachine {
    pid_t gone = 0;

    void SetUp() override {
        gone = StartProgram({.command = {"/bin/true"}});
        (void)WaitForEnd(gone);
        ASSERT_TRUE(pmap_set(ServiceProgram(gone), serviceProgramVersion, IPPROTO_TCP, 700));
    }
    void TearDown() override {
        (void)pmap_unset(ServiceProgram(gone), serviceProgramVersion);
        DoctorMachine::TearDown();
    }
    std::string Process() const { return "for process " + std::to_string(gone) + ", which is gone"; }
};

TEST_F(DoctorEntries, one_of_a_process_that_is_gone_is_found_and_removed) {
    EXPECT_THAT(Found("rpc"), AllOf(HasSubstr(Process()), HasSubstr("is registered by"), HasSubstr("--fix-rpcbind")));
    EXPECT_THAT(Found("rpc", "--dry-run --fix-rpcbind"), HasSubstr(Process() + "; would be removed"));
    EXPECT_TRUE(IsRegistered(ServiceProgram(gone), serviceProgramVersion)) << "nothing was done";
    const pid_t alive = StartProgram({.command = {"/bin/sleep", "1000"}});
    ASSERT_TRUE(pmap_set(ServiceProgram(alive), serviceProgramVersion, IPPROTO_TCP, 701));
    EXPECT_THAT(Found("rpc", "--fix-rpcbind"),
                AllOf(HasSubstr(Process() + "; removed"), HasSubstr("\"info\""), Not(HasSubstr("\"warn\""))));
    EXPECT_FALSE(IsRegistered(ServiceProgram(gone), serviceProgramVersion));
    EXPECT_TRUE(IsRegistered(ServiceProgram(alive), serviceProgramVersion)) << "of nobody who lives";
    EXPECT_THAT(Found("rpc", "--fix-rpcbind"), Not(HasSubstr("is gone")));
    (void)pmap_unset(ServiceProgram(alive), serviceProgramVersion);
}

// In a container, or with a /run of one's own, the port mapper knows root by the port that it asks from.
TEST_F(DoctorEntries, one_is_removed_where_the_port_mapper_s_local_socket_is_not_to_be_seen) {
    const std::string mended = Run("exec unshare --mount /bin/bash -c 'mount -t tmpfs hidden /run; "
                                   "[ ! -e /run/rpcbind.sock ] && exec \"$TV_BIN/tvsc\" doctor --json --fix-rpcbind'")
                                   .output;
    EXPECT_THAT(mended, HasSubstr(Process() + "; removed"));
    EXPECT_FALSE(IsRegistered(ServiceProgram(gone), serviceProgramVersion));
}

// The port mapper says yes to everybody.
TEST_F(DoctorEntries, one_that_could_not_be_removed_is_not_told_to_be) {
    std::filesystem::copy_file(ProgramPath("tvsc"), folder + "/tvsc");
    std::filesystem::permissions(folder, std::filesystem::perms(0755));
    EXPECT_THAT(
        FoundBy("exec setpriv --reuid=nobody --clear-groups " + folder + "/tvsc doctor --json --fix-rpcbind", "rpc"),
        HasSubstr(Process() + "; it could not be removed"));
    EXPECT_TRUE(IsRegistered(ServiceProgram(gone), serviceProgramVersion));
}

TEST_F(DoctorEntries, they_are_removed_on_the_machine_itself_only) {
    const Ended afar = Run(Tvsc() + " --host 192.0.2.1 doctor --fix-rpcbind");
    EXPECT_EQ(afar.status, 1);
    EXPECT_THAT(afar.error, HasSubstr("--ssh"));
    EXPECT_EQ(Run(Tvsc() + " doctor --fix-rpcbind --registry /dev/null").status, 2);
}

// --- the daemons ---

TEST_F(DoctorMachine, why_the_daemon_does_not_answer_is_told) {
    (void)StartRegistryDaemon(folder + "/registry.db");
    EXPECT_THAT(Found("daemon"), HasSubstr("is not registered at the port mapper"));
    const pid_t daemon = StartServiceDaemon();
    EXPECT_EQ(Found("daemon"), "[]");
    EXPECT_EQ(Found("process"), "[]") << "it blocks SIGPIPE";
    kill(daemon, SIGSTOP);
    EXPECT_THAT(Found("daemon", "--call-timeout 500ms"),
                AllOf(HasSubstr("is registered with 0.0.0.0:"), HasSubstr("and does not answer")));
    kill(daemon, SIGCONT);
    StopDaemon(daemon, SIGKILL);
    EXPECT_THAT(Found("daemon"), HasSubstr("where nobody listens"));
    (void)pmap_unset(SERVDAEMONPROG, SERVDAEMONVERS);
}

TEST_F(DoctorMachine, a_daemon_that_a_client_may_end_is_found) {
    std::filesystem::copy_file("/bin/sleep", folder + "/servd");
    const auto start = [&](const std::string &option) {
        const pid_t process = StartProgram({.command = {"/usr/bin/env", option, folder + "/servd", "1000"}});
        (void)WaitUntil([&] { return !ChildrenOf(getpid(), "servd").empty(); });
        return process;
    };
    const pid_t exposed = start("--default-signal=PIPE");
    EXPECT_THAT(Found("process"), HasSubstr("neither blocks nor ignores SIGPIPE"));
    kill(exposed, SIGKILL);
    (void)WaitForEnd(exposed);
    for (const char *option : {"--ignore-signal=PIPE", "--block-signal=PIPE"}) {
        const pid_t safe = start(option);
        EXPECT_EQ(Found("process"), "[]") << option;
        kill(safe, SIGKILL);
        (void)WaitForEnd(safe);
    }
}

TEST_F(DoctorMachine, a_registry_daemon_that_is_silent_is_found) {
    EXPECT_THAT(Found("registry"), AllOf(HasSubstr("does not answer"), HasSubstr("systemctl start tvregd")));
    (void)StartRegistryDaemon(folder + "/registry.db");
    EXPECT_EQ(Found("registry"), "[]") << "and it is new enough";
}

TEST_F(DoctorMachine, a_registry_daemon_that_is_too_old_is_found) {
    const auto foundWith = [](const char *version) {
        const ScriptedRegd daemon(
            "127.0.0.1", [](const WireCall &) { return WireAnswer{Hex("00000001 00000002 00000000")}; }, // no such key
            Hex(version));
        return Found("registry");
    };
    RegisterRegistryDaemon();
    EXPECT_THAT(foundWith("00000001 00000000 00000002 00000002 00000009"),
                AllOf(HasSubstr("has version 2.2.9, and 2.3 is the oldest"), HasSubstr("apt-get install tvregd")));
    EXPECT_EQ(foundWith("00000001 00000000 00000002 00000003 00000000"), "[]");
    EXPECT_EQ(foundWith("00000001 00000000 00000003 00000000 00000000"), "[]");
    UnregisterRegistryDaemon();
}

// --- exposure ---

struct DoctorExposure : DoctorMachine {
    void SetUp() override {
        if (std::filesystem::exists("/usr/sbin/tv-guard")) GTEST_SKIP() << "tv-guard is installed here";
        std::filesystem::create_directory(folder + "/bin");
    }
    std::string FoundWithGuard(const std::string &body, const std::string &setting = "") {
        WriteFile(folder + "/bin/tv-guard", "#!/bin/sh\n" + body + "\n", 0755);
        const std::string path = "export PATH=" + folder + "/bin:$PATH; ";
        if (setting.empty()) return FoundBy(path + "exec " + Tvsc() + " doctor --json", "exposure");
        std::filesystem::remove_all(folder + "/etc");
        return FoundAfter(path + InEtc("mkdir -p default; echo " + setting + " >default/tv-guard"), "exposure");
    }
    static constexpr char openPort[] = "echo port 701 is open to everybody on this machine; exit 1";
};

TEST_F(DoctorExposure, a_guard_that_is_not_installed_is_told) {
    EXPECT_THAT(Found("exposure"), AllOf(HasSubstr("tv-guard is not installed"), HasSubstr("\"info\"")));
    EXPECT_EQ(FoundWithGuard("exit 0"), "[]");
}

TEST_F(DoctorExposure, without_a_guard_a_daemon_that_others_reach_is_a_warning) {
    if (Run("ip link add outside type dummy && ip address add 192.0.2.7/24 dev outside").status != 0) {
        GTEST_SKIP() << "no further network interface can be made here";
    }
    (void)StartRegistryDaemon(folder + "/registry.db");
    const pid_t daemon = StartServiceDaemon();
    EXPECT_THAT(Found("exposure"), HasSubstr("\"info\"")) << "the interface is down";
    EXPECT_EQ(Run("ip link set outside up").status, 0);
    EXPECT_THAT(Found("exposure"), AllOf(HasSubstr("for other machines, too"), HasSubstr("\"warn\"")));
    EXPECT_EQ(Run("ip link delete outside").status, 0);
    StopDaemon(daemon);
}

TEST_F(DoctorExposure, what_is_left_open_on_purpose_is_not_mended_by_a_start_of_the_guard) {
    EXPECT_THAT(FoundWithGuard(openPort), HasSubstr("systemctl enable --now tv-guard"));
    EXPECT_THAT(FoundWithGuard(openPort, "TV_PORTS=closed"), HasSubstr("systemctl enable --now tv-guard"));
    for (const std::string setting : {"local", "open"}) {
        EXPECT_THAT(FoundWithGuard(openPort, "TV_PORTS=" + setting),
                    AllOf(HasSubstr("TV_PORTS=" + setting + " in /etc/default/tv-guard"), HasSubstr("TV_PORTS=closed/"),
                          Not(HasSubstr("systemctl"))));
    }
}

TEST_F(DoctorExposure, a_guard_that_does_not_come_to_an_end_is_given_up) {
    EXPECT_THAT(FoundWithGuard("exec yes"), HasSubstr("does not stop writing"));
    const std::int64_t begin = MonotonicMs();
    EXPECT_THAT(FoundWithGuard("echo port 700 is open; exec sleep 1000"), HasSubstr("takes longer than 15 s"));
    EXPECT_LT(MonotonicMs() - begin, 30000);
}

} // namespace
