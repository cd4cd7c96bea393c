// SPDX-License-Identifier: MIT
// tvreg_fixture: the command line of the registry beside a real registry daemon.
#pragma once

#include "tests/support/host.h"

#include <gtest/gtest.h>

// One daemon for the whole program; each test works below HKEY_LOCAL_MACHINE\TESTNAME.
struct TvregFixture : testing::Test {
    static inline std::string folder;
    static inline pid_t daemon = 0;

    static void SetUpTestSuite() {
        folder = MakeScratchFolder();
        daemon = StartRegistryDaemon(folder + "/registry.db");
    }
    static void TearDownTestSuite() { EXPECT_EQ(StopDaemon(daemon), 0); }

    const std::string name = testing::UnitTest::GetInstance()->current_test_info()->name();
    const std::string key = "HKLM\\" + name;
    const std::string longKey = "HKEY_LOCAL_MACHINE\\" + name;

    static Ended Run(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), ProgramPath("tvreg"));
        return RunAndRead({.command = std::move(arguments)});
    }
    // Runs a command that must work. Returns what it prints.
    static std::string Do(std::vector<std::string> arguments) {
        const Ended ended = Run(std::move(arguments));
        EXPECT_EQ(ended.status, 0) << ended.error;
        EXPECT_EQ(ended.error, "");
        return ended.output;
    }
    // Runs it with all three descriptors at a terminal. Returns what the terminal got.
    static std::string RunAtTerminal(const std::string &command, int *status) {
        const Ended ended = RunAndRead({.command = {"/usr/bin/script", "-qec", command, "/dev/null"}});
        *status = ended.status;
        return ended.output;
    }
    std::string File(const std::string &content, const std::string &suffix = ".reg") {
        const std::string path = folder + "/" + name + suffix;
        WriteFile(path, content);
        return path;
    }
};
