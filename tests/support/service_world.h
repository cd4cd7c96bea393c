// SPDX-License-Identifier: MIT
// service_world: both daemons with sample services, for tests of the command line and of service programs.
//
// One world for a test program: tvregd on a new database and servd on an empty one. The service in record 0, which is
// odd in every listing, is "zero".
#pragma once

#include "tests/support/host.h"

#include <gtest/gtest.h>

struct ServiceWorld : testing::Test {
    static std::string folder;
    static pid_t registryDaemon;
    static pid_t serviceDaemon;

    static void SetUpTestSuite();
    static void TearDownTestSuite();

    // The name of the present test, as a service name or the beginning of several.
    const std::string name = testing::UnitTest::GetInstance()->current_test_info()->name();

    static std::string KeyOf(const std::string &service) { return servicesKey + "\\" + service; }
    static std::string ScriptOf(const std::string &service) { return folder + "/" + service + ".csh"; }
    static std::string LogOf(const std::string &service) { return folder + "/" + service + ".log"; }
    static std::string ReadLog(const std::string &service);

    // Runs tvsc.
    static Ended Tvsc(std::vector<std::string> arguments);
    // Runs tvsc, which must succeed without a word on stderr, but that the daemon is busy. Returns what it prints.
    static std::string Do(std::vector<std::string> arguments);

    // Runs tvsc, which must fail with this status. Returns what it prints on stderr.
    static std::string Fail(int status, std::vector<std::string> arguments);

    // Creates a service that runs tvsample with some options; further are options of tvsc create.
    static void CreateSample(const std::string &service, const std::string &options = "",
                             const std::vector<std::string> &further = {});

    static pid_t ProcessOf(const std::string &service); // from its hint; 0 for none
    static void KillProcessOf(const std::string &service);
};
