// SPDX-License-Identifier: MIT
// tvhost_world: services that tvhost runs, and a look at what each test has left on its host.
//
// After every test there is no process that was not there before it, and no file that the manual does not list.
#pragma once

#include "tests/support/leavings.h"
#include "tests/support/service_world.h"
#include "tvhost/state_file.h"

#include <nlohmann/json.hpp>

struct TvhostWorld : ServiceWorld {
    static void SetUpTestSuite(); // TMPDIR of the daemons, and so of the services, is a folder of its own
    void SetUp() override;
    void TearDown() override; // stops the service of the test's name first

    nlohmann::json Status(); // as tvsc tells it
    std::string StateText();
    [[nodiscard]] bool AwaitState(const std::string &state, int timeoutMs = patienceMs);
    HostState StateFile();
    std::string LogText();
    [[nodiscard]] std::string ParametersKey() const { return servicesKey + "\\" + name + "\\Parameters"; }

    // Has the service be started by a csh script that does something first and leads tvhost's standard error into a
    // file. Returns the file's path.
    std::string StartByScript(const std::string &first = "");

    static bool Lives(pid_t process);

private:
    void ExpectNoGroup();
    HostContents hostBefore; // what was there before the test
};
