// SPDX-License-Identifier: MIT
// The files that services leave their process ids in: who may write them, and what of them is believed.
#include "svcapi/pid_file.h"
#include "svcapi/process_stat.h"
#include "svcapi/run_record.h"
#include "tests/support/service_world.h"

#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <sys/stat.h>
#include <thread>

using testing::AllOf;
using testing::HasSubstr;

namespace {

namespace fs = std::filesystem;

constexpr uid_t nobody = 65534;

struct PidFile : ServiceWorld {
    const std::string path = "/run/tv/services/" + name + ".pid";

    void SetUp() override {
        if (getuid() != 0) GTEST_SKIP() << "needs root";
    }

    // A sample service that runs as nobody.
    void CreateUnderAccount(const std::string &options = "") const {
        static const std::string copy = CopyForAnyUser(ProgramPath("tvsample"));
        const std::string script = folder + "/" + name + ".csh";
        WriteFile(script, "#!/bin/csh -f\nexec '" + copy + "' --log '" + LogOf(name) + "' " + options + "\n", 0755);
        Do({"create", name, "--image", script, "--user", "nobody"});
    }
    static uid_t OwnerOf(const std::string &file) {
        struct stat found = {};
        EXPECT_EQ(lstat(file.c_str(), &found), 0) << file;
        return found.st_uid;
    }
};

TEST_F(PidFile, a_service_under_an_account_leaves_its_process_id_and_takes_it_away) {
    CreateUnderAccount();
    EXPECT_EQ(ReadPidFile(name), 0);
    Do({"start", name});
    const pid_t process = ReadPidFile(name);
    ASSERT_NE(process, 0);
    EXPECT_EQ(OwnerOf("/proc/" + std::to_string(process)), nobody);
    EXPECT_EQ(OwnerOf(path), nobody);
    Do({"stop", name});
    EXPECT_TRUE(WaitUntil([&] { return ReadPidHint(name).pid == 0; }));
    const std::vector<RunRecord> runs = ReadRunRecords(name);
    ASSERT_EQ(runs.size(), 1u) << "what a run was like stays";
    EXPECT_EQ(runs.front().process, process);
    EXPECT_LE(runs.front().askedMs, runs.front().runningMs);
    EXPECT_LE(runs.front().runningMs, runs.front().endedMs);
}

// Symptom: noticed after 31 s. Cause: the service could not leave its process id.
TEST_F(PidFile, a_crash_at_the_start_of_a_service_under_an_account_is_noticed) {
    CreateUnderAccount("--start-ms 60000 --hint-ms 90000");
    std::thread killer([this] {
        if (WaitUntil([this] { return ReadLog(name).find("state 2") != std::string::npos; })) KillProcessOf(name);
    });
    const std::int64_t before = MonotonicMs();
    EXPECT_THAT(Tvsc({"start", name}).error, AllOf(HasSubstr("died while start pending"), HasSubstr("1067")));
    EXPECT_LT(MonotonicMs() - before, 20000);
    killer.join();
}

TEST_F(PidFile, a_boot_takes_the_files_away_and_prepare_makes_them_again) {
    CreateUnderAccount();
    fs::remove_all("/run/tv");
    const mode_t mask = umask(077);
    const Ended ended = Tvsc({"prepare"});
    umask(mask);
    EXPECT_EQ(ended.status, 0) << ended.error;
    EXPECT_EQ(OwnerOf(path), nobody);
    EXPECT_EQ(OwnerOf("/run/tv/services"), 0u);
    EXPECT_EQ(fs::status("/run/tv/services").permissions(), fs::perms(0755));
    EXPECT_EQ(fs::status(path).permissions(), fs::perms(0644));
    Do({"start", name});
    EXPECT_NE(ReadPidFile(name), 0);
    Do({"stop", name});
}

TEST_F(PidFile, another_account_gets_a_file_of_its_own) {
    CreateUnderAccount();
    Do({"config", name, "--user", "daemon"});
    EXPECT_EQ(OwnerOf(path), 1u);
    EXPECT_EQ(PreparePidFile(name, "no-such-user"), ENOENT);
    EXPECT_EQ(PreparePidFile("../" + name, "nobody"), EINVAL);
    EXPECT_EQ(OwnerOf(path), 1u);
}

TEST_F(PidFile, a_service_without_an_account_makes_its_file_anew) {
    CreateUnderAccount();
    Do({"delete", name});
    CreateSample(name);
    Do({"start", name});
    EXPECT_EQ(OwnerOf(path), 0u);
    Do({"stop", name});
    EXPECT_TRUE(WaitUntil([this] { return !fs::exists(path); })) << "the process takes it away at its end";
}

// --- what is believed ---

TEST_F(PidFile, the_process_of_another_user_is_not_the_service_s) {
    ASSERT_EQ(PreparePidFile(name, "nobody"), 0);
    WriteFile(path, std::to_string(getpid()) + "\n"); // keeps its owner
    ASSERT_EQ(OwnerOf(path), nobody);
    EXPECT_EQ(ReadPidFile(name), 0);
    const PidHint hint = ReadPidHint(name);
    EXPECT_EQ(hint.pid, getpid());
    EXPECT_FALSE(hint.alive);
}

TEST_F(PidFile, another_process_of_the_same_number_is_not_the_service_s) {
    fs::create_directories("/run/tv/services");
    ASSERT_NE(WritePidFile(name), "");
    EXPECT_EQ(ReadPidFile(name), getpid());
    const std::string text = ReadFile(path);
    WriteFile(path, std::to_string(getpid()) + " 1\n"); // of a process that was started with the machine
    EXPECT_EQ(ReadPidFile(name), 0);
    EXPECT_EQ(ReadPidHint(name).pid, getpid());
    WriteFile(path, text);
    EXPECT_EQ(ReadPidFile(name), getpid());
}

// --- a start beside an earlier one ---

TEST_F(PidFile, a_second_process_of_a_service_is_refused_while_the_first_one_runs) {
    CreateSample(name);
    Do({"start", name});
    const pid_t first = ReadPidFile(name);
    Do({"reset", name}); // as a new daemon, this one does not know of it any more
    EXPECT_THAT(Tvsc({"start", name}).error, AllOf(HasSubstr("1056"), HasSubstr("process " + std::to_string(first) +
                                                                                " of an earlier start still runs")));
    EXPECT_TRUE(WaitUntil([this] {
        const std::string text = Tvsc({"status", name}).output;
        return text.find("state: failed 1056\n") != std::string::npos;
    })) << Tvsc({"status", name}).output;
    EXPECT_EQ(ReadPidFile(name), first) << "the hint is the living one's";
    KillProcessOf(name);
    EXPECT_EQ(Do({"start", name}), name + ": running\n");
    Do({"stop", name});
}

// Asks in another process, as a new start of the service would.
pid_t OtherRunSeenByAChild(const std::string &service) {
    const pid_t child = fork();
    if (child == 0) _exit(FindOtherRun(service) == getppid() ? 1 : 0);
    return WaitForEnd(child) != 0 ? getpid() : 0;
}

TEST_F(PidFile, a_process_that_has_told_the_end_of_its_service_is_not_in_the_way) {
    fs::create_directories("/run/tv/services");
    ASSERT_NE(WritePidFile(name), "");
    EXPECT_EQ(FindOtherRun(name), 0) << "it is not its own predecessor";
    EXPECT_EQ(OtherRunSeenByAChild(name), getpid());
    MarkPidFileStopped(name);
    EXPECT_EQ(ReadPidFile(name), getpid()) << "people see it as long as it lives";
    EXPECT_EQ(OtherRunSeenByAChild(name), 0);
    RemovePidFile(name);
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(PidFile, the_hint_of_another_process_is_left_alone) {
    fs::create_directories("/run/tv/services");
    const std::string others = "1 " + std::to_string(StartOfProcess(1)) + "\n";
    WriteFile(path, others);
    EXPECT_EQ(FindOtherRun(name), 1);
    MarkPidFileStopped(name);
    RemovePidFile(name);
    EXPECT_EQ(ReadFile(path), others);
}

TEST_F(PidFile, a_fifo_holds_nobody) {
    fs::create_directories("/run/tv/services");
    ASSERT_EQ(mkfifo(path.c_str(), 0666), 0);
    EXPECT_EQ(ReadPidHint(name).pid, 0);
    ASSERT_EQ(PreparePidFile(name, "nobody"), 0);
    EXPECT_TRUE(fs::is_regular_file(path));
}

TEST_F(PidFile, a_link_leads_nowhere) {
    fs::create_directories("/run/tv/services");
    WriteFile(folder + "/" + name, std::to_string(getpid()) + "\n");
    fs::create_symlink(folder + "/" + name, path);
    EXPECT_EQ(ReadPidHint(name).pid, 0);
    ASSERT_EQ(PreparePidFile(name, "nobody"), 0);
    EXPECT_EQ(OwnerOf(folder + "/" + name), 0u);
    EXPECT_FALSE(fs::is_symlink(path));
}

} // namespace
