// SPDX-License-Identifier: MIT
// Hives of tvregd: who may have files opened, a disk that is full, and ends in the middle.
#include "tests/support/hazard.h"
#include "tests/support/regd_calls.h"
#include "tvregd/hive_file.h"

#include <gmock/gmock.h>
#include <sys/mount.h>

#include <csignal>
#include <fstream>
#include <random>
#include <thread>

using namespace raw;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr std::uint32_t denied = ERROR_ACCESS_DENIED, diskFull = ERROR_DISK_FULL;

std::string SaveCall(std::uint32_t key, const std::string &file) {
    return RegdCall(REG_SAVE_KEY, key, XdrString(file) + Words({0, 0}), 1);
}
std::string RestoreCall(std::uint32_t key, const std::string &file) {
    return RegdCall(REG_RESTORE_KEY, key, XdrString(file) + Words({0}), 1);
}
std::string LoadCall(std::uint32_t key, const std::string &name, const std::string &file) {
    return RegdCall(REG_LOAD_KEY, key, XdrString(name) + XdrString(file), 1);
}
std::string UnloadCall(std::uint32_t key, const std::string &name) {
    return RegdCall(REG_UNLOAD_KEY, key, XdrString(name), 1);
}
std::string ReplaceCall(std::uint32_t key, const std::string &name, const std::string &now, const std::string &old) {
    return RegdCall(REG_REPLACE_KEY, key, XdrString(name) + XdrString(now) + XdrString(old), 1);
}

struct SystemHives : testing::Test {
    std::string folder = MakeScratchFolder();
    pid_t daemon = StartRegistryDaemon(folder + "/registry.db");

    void TearDown() override { EXPECT_EQ(StopDaemon(daemon), 0); }
    static Answer Ask(const std::string &call) {
        const Socket client = ConnectTo(PortOf(REGDAEMONPROG, REGDAEMONVERS));
        EXPECT_TRUE(Send(client, call));
        return ReadAnswer(client);
    }
    static std::uint32_t Make(std::uint32_t key, const std::string &path) {
        const Answer made = Ask(CreateCall(key, path, 1));
        EXPECT_EQ(made.status, 0u);
        return WordOf(made.rest, 0);
    }
    static std::vector<std::string> NamesIn(const std::string &path) {
        std::vector<std::string> names;
        for (const auto &entry : std::filesystem::directory_iterator(path)) {
            names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
};

} // namespace

// Only those who could open them themselves.
TEST_F(SystemHives, only_root_and_the_daemons_user_have_files_opened) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can give a socket away";
    const std::string file = folder + "/a.hive";
    const std::uint32_t key = Make(HKEY_USERS, "k");
    EXPECT_EQ(Ask(SaveCall(key, file)).status, 0u);
    EXPECT_EQ(Ask(LoadCall(HKEY_USERS, "loaded", file)).status, 0u);
    const Socket other = ConnectTo(PortOf(REGDAEMONPROG, REGDAEMONVERS));
    ASSERT_EQ(fchown(other.descriptor, 65534, 65534), 0);
    for (const std::string &call :
         {SaveCall(key, folder + "/b.hive"), RestoreCall(key, file), LoadCall(HKEY_USERS, "more", file),
          UnloadCall(HKEY_USERS, "loaded"), ReplaceCall(HKEY_USERS, "k", file, folder + "/old.hive")}) {
        ASSERT_TRUE(Send(other, call));
        EXPECT_EQ(ReadAnswer(other).status, denied);
    }
    ASSERT_TRUE(Send(other, SaveCall(0x000FFFFF, file)));
    EXPECT_EQ(ReadAnswer(other).status, static_cast<std::uint32_t>(ERROR_INVALID_HANDLE));
    ASSERT_TRUE(Send(other, QueryCall(key, "v", 1)));
    EXPECT_EQ(ReadAnswer(other).status, static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND)) << "all else is served";
    EXPECT_EQ(Ask(UnloadCall(HKEY_USERS, "loaded")).status, 0u);
    EXPECT_FALSE(std::filesystem::exists(folder + "/b.hive"));
}

TEST_F(SystemHives, a_full_disk_answers_112_leaves_nothing_behind_and_loses_nothing) {
    const std::string small = folder + "/small";
    std::filesystem::create_directory(small);
    if (mount("tmpfs", small.c_str(), "tmpfs", 0, "size=1m") != 0) GTEST_SKIP() << "nothing can be mounted here";
    const std::uint32_t key = Make(HKEY_USERS, "k");
    EXPECT_EQ(Ask(SaveCall(key, small + "/a.hive")).status, 0u);
    EXPECT_EQ(Ask(LoadCall(HKEY_USERS, "loaded", small + "/a.hive")).status, 0u);
    const std::uint32_t loaded = Make(HKEY_USERS, "loaded");
    EXPECT_EQ(Ask(SetCall(loaded, "big", std::string(mebibyte, 'x'), 1)).status, 0u);
    const std::string before = ReadFile(small + "/a.hive");
    EXPECT_EQ(Ask(SaveCall(loaded, small + "/b.hive")).status, diskFull);
    EXPECT_EQ(Ask(UnloadCall(HKEY_USERS, "loaded")).status, diskFull);
    EXPECT_EQ(Ask(ReplaceCall(HKEY_USERS, "loaded", small + "/a.hive", small + "/old.hive")).status, diskFull);
    EXPECT_THAT(NamesIn(small), ElementsAre("a.hive"));
    EXPECT_EQ(ReadFile(small + "/a.hive"), before);
    EXPECT_EQ(DataOf(Ask(QueryCall(loaded, "big", 1))).size(), mebibyte);
    EXPECT_EQ(mount("tmpfs", small.c_str(), "tmpfs", MS_REMOUNT, "size=8m"), 0);
    EXPECT_EQ(Ask(UnloadCall(HKEY_USERS, "loaded")).status, 0u);
    EXPECT_EQ(Ask(LoadCall(HKEY_USERS, "loaded", small + "/a.hive")).status, 0u);
    EXPECT_EQ(DataOf(Ask(QueryCall(Make(HKEY_USERS, "loaded"), "big", 1))).size(), mebibyte);
    EXPECT_EQ(umount2(small.c_str(), MNT_DETACH), 0);
}

// --- ends in the middle ---

namespace {

constexpr std::uint32_t keysOfHive = 300;

// Makes a key whose subkeys all tell the same generation.
void Fill(std::uint32_t key, const std::string &generation) {
    const Socket client = ConnectTo(PortOf(REGDAEMONPROG, REGDAEMONVERS));
    for (std::uint32_t i = 0; i < keysOfHive; ++i) {
        ASSERT_TRUE(Send(client, CreateCall(key, "k" + std::to_string(i), 1)));
        const std::uint32_t subKey = WordOf(ReadAnswer(client).rest, 0);
        ASSERT_TRUE(Send(client, SetCall(subKey, "generation", generation, 1)));
        ASSERT_EQ(ReadAnswer(client).status, 0u);
    }
}

// The generation that all subkeys of a key tell; "" where there is no such key, "?" where they differ.
std::string GenerationOf(std::uint32_t root, const std::string &name) {
    const Socket client = ConnectTo(PortOf(REGDAEMONPROG, REGDAEMONVERS));
    const auto open = [&](const std::string &path) {
        (void)Send(client, RegdCall(REG_OPEN_KEY, root, XdrString(path), 1));
        return ReadAnswer(client);
    };
    if (open(name).status != 0) return "";
    std::string generation;
    for (std::uint32_t i = 0; i < keysOfHive; ++i) {
        const Answer key = open(name + "\\k" + std::to_string(i));
        if (key.status != 0) return "?";
        (void)Send(client, QueryCall(WordOf(key.rest, 0), "generation", 1));
        const std::string data = DataOf(ReadAnswer(client));
        if (i != 0 && data != generation) return "?";
        generation = data;
    }
    return generation;
}

} // namespace

TEST_F(SystemHives, a_kill_at_any_moment_leaves_keys_and_files_whole) {
    const std::string files = folder + "/files";
    std::filesystem::create_directory(files);
    const std::uint32_t target = Make(HKEY_LOCAL_MACHINE, "target");
    for (const char *generation : {"a", "b"}) {
        const std::uint32_t key = Make(HKEY_USERS, generation);
        Fill(key, generation);
        ASSERT_EQ(Ask(SaveCall(key, files + "/" + generation)).status, 0u);
    }
    ASSERT_EQ(Ask(RestoreCall(target, files + "/a")).status, 0u);

    std::mt19937 random(18);
    std::uniform_real_distribution<double> moment(0, 120);
    std::string restored = "a", restoring = "a";
    int saved = 0, done = 0;
    const int kills = Trials(12, 150);
    for (int killed = 0; killed < kills; ++killed) {
        std::thread killer([&, forMs = moment(random)] {
            SleepMs(static_cast<int>(forMs));
            (void)kill(daemon, SIGKILL);
        });
        const Socket client = ConnectTo(PortOf(REGDAEMONPROG, REGDAEMONVERS));
        const auto ask = [&](const std::string &call) {
            return Send(client, call) ? ReadAnswer(client).status : UINT32_MAX;
        };
        for (bool lives = true; lives; done += lives) {
            restoring = restored == "a" ? "b" : "a";
            const std::uint32_t rc = ask(RestoreCall(target, files + "/" + restoring));
            lives = rc != UINT32_MAX;
            if (!lives) break;
            EXPECT_EQ(rc, 0u);
            restored = restoring;
            (void)ask(LoadCall(HKEY_USERS, "loaded", files + "/a"));
            (void)ask(UnloadCall(HKEY_USERS, "loaded"));
            if (ask(SaveCall(target, files + "/s" + std::to_string(saved))) == 0) ++saved;
        }
        killer.join();
        EXPECT_EQ(WaitForEnd(daemon), SIGKILL);
        daemon = StartRegistryDaemon(folder + "/registry.db");

        const std::string found = GenerationOf(HKEY_LOCAL_MACHINE, "target");
        EXPECT_TRUE(found == restored || found == restoring) << found;
        restored = found;
        const std::string loaded = GenerationOf(HKEY_USERS, "loaded");
        EXPECT_TRUE(loaded.empty() || loaded == "a") << loaded;
        if (!loaded.empty()) {
            EXPECT_EQ(Ask(UnloadCall(HKEY_USERS, "loaded")).status, 0u);
        }
        for (const std::string &name : NamesIn(files)) {
            if (name.rfind(".tvregd.", 0) == 0) continue; // was not finished
            Tree hive;
            ASSERT_EQ(DecodeHive(ReadFile(files + "/" + name), &hive), 0u) << name;
            EXPECT_EQ(hive.roots.front()->subKeys.inOrder.size(), keysOfHive) << name;
        }
        while (std::filesystem::exists(files + "/s" + std::to_string(saved))) {
            ++saved; // was not acknowledged
        }
    }
    for (int i = 0; i < saved; ++i) {
        EXPECT_TRUE(std::filesystem::exists(files + "/s" + std::to_string(i)));
    }
    Measured("%d rounds, %d files over %d kills", done, saved, kills);
    EXPECT_GT(done, 0);
}
