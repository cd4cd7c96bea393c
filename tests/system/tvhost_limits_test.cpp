// SPDX-License-Identifier: MIT
// The limits that tvhost puts on a program: each in force, and each refused where it cannot be had.
#include "tests/support/tvhost_world.h"
#include "tv/winerror.h"
#include "tvhost/control_group.h"
#include "tvhost/parameters.h"
#include "tvhost/process_tree.h"

#include <gmock/gmock.h>

#include <sys/xattr.h>

#include <filesystem>
#include <sstream>

using testing::AnyOf;
using testing::HasSubstr;

namespace {

namespace fs = std::filesystem;

struct TvhostLimits : TvhostWorld {
    const std::string file = folder + "/" + name; // what a program and the test meet at

    void SetUp() override {
        if (getuid() != 0) GTEST_SKIP() << "needs root";
        TvhostWorld::SetUp();
    }
    void CreateShell(const std::string &script, const std::vector<std::string> &settings) {
        std::vector<std::string> create = {"create", name};
        for (const std::string &setting : settings) {
            create.insert(create.end(), {"--set", setting});
        }
        create.insert(create.end(), {"--", "/bin/bash", "-c", script});
        Do(create);
    }
    // Starts the service with this parameter only, which cannot be had. Expects the codes in what tvsc says, and the
    // reason in the log.
    void ExpectRefused(const std::string &setting, const std::string &code, const std::string &reason) {
        HostParameters parameters = {};
        parameters.application = "/bin/true";
        std::string problem;
        ASSERT_EQ(SetHostParameter(setting, &parameters, &problem), DWORD{0}) << problem;
        DeleteKey(ParametersKey());
        ASSERT_EQ(WriteHostParameters(name, parameters), DWORD{0});
        EXPECT_THAT(Tvsc({"start", name}).error, HasSubstr(code)) << setting;
        EXPECT_THAT(StateFile().reason, testing::ContainsRegex(reason)) << setting;
        EXPECT_THAT(LogText(), testing::ContainsRegex(reason + "\n")) << setting;
    }
};

TEST_F(TvhostLimits, limits_reach_the_program) {
    CreateShell("{ ulimit -n; ulimit -Hn; ulimit -c; ulimit -Hc; nice; cat /proc/self/oom_score_adj; umask; id -G; "
                "ls -A /tmp | wc -l; grep NoNewPrivs /proc/self/status; } >/dev/shm/" +
                    name + " 2>&1; mv /dev/shm/" + name + " /dev/shm/" + name + "2; exec sleep 1000",
                {"AppLimitNofile=77", "AppLimitCore=0", "AppNice=5", "AppOomScore=300", "AppUmask=027",
                 "AppGroups=daemon", "AppPrivateTmp=1", "AppNoNewPrivileges=1"});
    Do({"start", name});
    const std::string path = "/dev/shm/" + name + "2";
    ASSERT_TRUE(WaitUntil([&] { return fs::exists(path); }));
    const std::string text = ReadFile(path);
    fs::remove(path);
    EXPECT_THAT(text, testing::StartsWith("77\n77\n0\n0\n5\n300\n0027\n"));
    EXPECT_THAT(text, testing::ContainsRegex("\n0 .*1.*\n0\nNoNewPrivs:\t1\n"));
}

TEST_F(TvhostLimits, a_limit_can_be_none) {
    CreateShell("ulimit -c >" + file + "; exec sleep 1000", {"AppLimitCore=unlimited"});
    Do({"start", name});
    EXPECT_TRUE(WaitUntil([this] { return ReadWhatIsThere(file) == "unlimited\n"; }));
}

TEST_F(TvhostLimits, nobody_else_sees_a_private_tmp_but_the_commands_of_the_service) {
    CreateShell("echo mine >/tmp/" + name + "; exec sleep 1000",
                {"AppPrivateTmp=1", "AppReadyCommand=/usr/bin/test -s /tmp/" + name,
                 "AppReloadCommand=/bin/cp /tmp/" + name + " /dev/shm/" + name});
    Do({"start", name});
    EXPECT_FALSE(fs::exists("/tmp/" + name));
    Do({"control", name, "128"});
    EXPECT_TRUE(WaitUntil([this] { return ReadWhatIsThere("/dev/shm/" + name) == "mine\n"; }));
    fs::remove("/dev/shm/" + name);
}

// A mask within its range and no new privileges are never refused by the kernel.
TEST_F(TvhostLimits, what_an_account_may_not_have_is_named) {
    Do({"create", name, "--user", "nobody", "--", "/bin/true"});
    (void)StartByScript("limit -h coredumpsize 0");
    ExpectRefused("AppLimitNofile=2000000000", "5 ERROR_ACCESS_DENIED", "AppLimitNofile: Operation not permitted");
    ExpectRefused("AppLimitCore=1000", "5 ERROR_ACCESS_DENIED", "AppLimitCore: Operation not permitted");
    ExpectRefused("AppNice=-20", "5 ERROR_ACCESS_DENIED", "AppNice: Permission denied");
    ExpectRefused("AppOomScore=-500", "5 ERROR_ACCESS_DENIED", "AppOomScore: Permission denied");
    ExpectRefused("AppGroups=daemon", "5 ERROR_ACCESS_DENIED", "AppGroups: Operation not permitted");
    ExpectRefused("AppPrivateTmp=1", "5 ERROR_ACCESS_DENIED", "AppPrivateTmp: Operation not permitted");
    const std::string noGroup = "(no control groups of version 2 here|/.+: .+)";
    ExpectRefused("AppMemoryMax=64", "50 ERROR_NOT_SUPPORTED", "AppMemoryMax: " + noGroup);
    ExpectRefused("AppCpuMax=20", "50 ERROR_NOT_SUPPORTED", "AppCpuMax: " + noGroup);
}

TEST_F(TvhostLimits, what_means_nothing_is_named) {
    Do({"create", name, "--", "/bin/true"});
    ExpectRefused("AppNice=20", "13 ERROR_INVALID_DATA", "AppNice: not between -20 and 19");
    ExpectRefused("AppOomScore=1001", "13 ERROR_INVALID_DATA", "AppOomScore: not between -1000 and 1000");
    ExpectRefused("AppUmask=01000", "13 ERROR_INVALID_DATA", "AppUmask: more than 0777");
    ExpectRefused("AppGroups=no-such-group", "13 ERROR_INVALID_DATA", "AppGroups: there is no group no-such-group");
}

// --- control groups ---

// A group of the test's own, as systemd makes one for a unit.
struct UnitGroup : TvhostLimits {
    std::string root, unit;

    void SetUp() override {
        TvhostLimits::SetUp();
        ControlGroup first;
        if (IsSkipped() || !MakeControlGroup(name, &first).empty()) return;
        root = fs::path(first.path).parent_path();
        RemoveControlGroup(&first);
    }
    void TearDown() override {
        if (IsSkipped() && unit.empty()) return;
        if (!unit.empty()) {
            (void)Tvsc({"stop", name});
            Put(serviceDaemon, root);
            Put(getpid(), root);
            ControlGroup left;
            left.path = unit;
            RemoveControlGroup(&left);
            EXPECT_FALSE(fs::exists(unit));
        }
        TvhostLimits::TearDown();
    }
    static void Put(pid_t process, const std::string &group) {
        WriteFile(group + "/cgroup.procs", std::to_string(process));
    }
    static bool Lists(const std::string &path, const std::string &controller) {
        std::istringstream words(ReadWhatIsThere(path));
        for (std::string word; words >> word;) {
            if (word == controller) return true;
        }
        return false;
    }
    static bool HandsOn(const std::string &group, const std::string &controller) {
        return Lists(group + "/cgroup.subtree_control", controller);
    }
    // Makes the group, with a controller in it; that stays handed on above it, where others may use it by now. Returns
    // whether there can be one.
    bool MakeUnit(const std::string &controller) {
        if (root.empty() || !Lists(root + "/cgroup.controllers", controller)) return false;
        if (!HandsOn(root, controller)) WriteFile(root + "/cgroup.subtree_control", "+" + controller);
        if (!HandsOn(root, controller)) return false;
        unit = root + "/" + name + "-" + std::to_string(MonotonicMs());
        return fs::create_directory(unit);
    }
    void HandOver() const { ASSERT_EQ(setxattr(unit.c_str(), "user.delegate", "1", 1, 0), 0); }
};

struct GroupLimits : UnitGroup {
    // Starts the service, the daemon being in a group that is handed over where there can be one. Returns why this
    // machine does not grant what it asks for, which it must tell; else empty.
    std::string StartOrReason(const std::string &parameter, const std::string &controller) {
        if (MakeUnit(controller)) {
            Put(serviceDaemon, unit);
            HandOver();
        }
        const Ended ended = Tvsc({"start", name});
        if (ended.status == 0) return "";
        EXPECT_TRUE(unit.empty()) << "nothing is in its way";
        EXPECT_THAT(ended.error, HasSubstr("50 ERROR_NOT_SUPPORTED"));
        const std::string reason = StateFile().reason;
        EXPECT_THAT(reason, testing::ContainsRegex("^" + parameter + ": .+"));
        EXPECT_THAT(LogText(), HasSubstr("tvhost: " + reason + "\n"));
        return reason;
    }
    std::uint64_t CpuMs() { return UsageOfDescendants(StateFile().host).cpuMs; }
};

TEST_F(GroupLimits, memory_is_limited_or_the_reason_is_told) {
    CreateShell("head -c 300000000 /dev/zero | tail -n 1 >/dev/null; echo ${PIPESTATUS[1]} >" + file +
                    "; exec sleep 1000",
                {"AppMemoryMax=64"});
    const std::string reason = StartOrReason("AppMemoryMax", "memory");
    if (!reason.empty()) GTEST_SKIP() << reason;
    EXPECT_EQ(ReadFile(StateFile().group + "/memory.max"), std::to_string(64 << 20) + "\n");
    EXPECT_TRUE(WaitUntil([this] { return !ReadWhatIsThere(file).empty(); }));
    EXPECT_EQ(ReadWhatIsThere(file), "137\n") << "what keeps 300 MB is killed at 64 MiB";
}

TEST_F(GroupLimits, processor_time_is_limited_or_the_reason_is_told) {
    CreateShell("while :; do :; done & while :; do :; done", {"AppCpuMax=20"});
    const std::string reason = StartOrReason("AppCpuMax", "cpu");
    if (!reason.empty()) GTEST_SKIP() << reason;
    EXPECT_EQ(ReadFile(StateFile().group + "/cpu.max"), "20000 100000\n");
    const std::uint64_t before = CpuMs();
    const std::int64_t begin = MonotonicMs();
    SleepMs(3000);
    const std::uint64_t took = CpuMs() - before;
    EXPECT_LT(took, static_cast<std::uint64_t>(MonotonicMs() - begin) * 30 / 100) << "two loops, at 20 per cent of one";
}

// The test program in the place of tvhost, with any controller that no group with processes hands on.
struct HandedOver : UnitGroup {
    std::string controller;

    void SetUp() override {
        UnitGroup::SetUp();
        if (IsSkipped()) return;
        for (const char *each : {"memory", "io", "hugetlb"}) {
            if (controller.empty() && MakeUnit(each)) controller = each;
        }
        if (controller.empty()) GTEST_SKIP() << "no control groups of version 2 with a controller that tells";
        Put(getpid(), unit);
    }
};

TEST_F(HandedOver, a_unit_that_is_not_handed_over_is_left_as_it_is) {
    ControlGroup group;
    ASSERT_EQ(MakeControlGroup(name, &group), "");
    EXPECT_EQ(fs::path(group.path).parent_path(), unit);
    EXPECT_EQ(HandControllerOn(group, controller),
              unit + ": it holds the daemon, and was not handed over (Delegate= of its unit)");
    EXPECT_FALSE(HandsOn(unit, controller));
    EXPECT_FALSE(fs::exists(unit + "/daemon"));
    RemoveControlGroup(&group);
}

TEST_F(HandedOver, a_unit_that_is_handed_over_gets_a_part_for_the_daemon) {
    HandOver();
    ControlGroup group, next;
    ASSERT_EQ(MakeControlGroup(name, &group), "");
    ASSERT_EQ(HandControllerOn(group, controller), "");
    EXPECT_TRUE(HandsOn(unit, controller));
    EXPECT_TRUE(Lists(unit + "/daemon/cgroup.procs", std::to_string(getpid())));
    EXPECT_EQ(ReadFile(unit + "/cgroup.procs"), "");
    // Processes can join it, and what comes out of the daemon from now on makes its groups in the same place.
    Put(getpid(), group.path);
    EXPECT_TRUE(HasProcesses(group.path, group.inode));
    Put(getpid(), unit + "/daemon");
    ASSERT_EQ(MakeControlGroup(name, &next), "");
    EXPECT_EQ(fs::path(next.path).parent_path(), unit);
    EXPECT_EQ(HandControllerOn(next, controller), "");
    RemoveControlGroup(&next);
    RemoveControlGroup(&group);
}

TEST_F(HandedOver, a_part_called_daemon_of_somebody_s_group_is_a_group_like_any_other) {
    fs::create_directory(unit + "/daemon");
    Put(getpid(), unit + "/daemon");
    ControlGroup group;
    ASSERT_EQ(MakeControlGroup(name, &group), "");
    EXPECT_EQ(fs::path(group.path).parent_path(), unit + "/daemon");
    RemoveControlGroup(&group);
}

} // namespace
