// SPDX-License-Identifier: MIT
// What tvsc says of the database lock and of the daemon's process, by a stand-in for the service daemon: a real lock
// would have to be held for a minute, and a real daemon has the name of one.
#include "tests/support/host.h"
#include "tests/support/scripted_daemon.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

namespace {

TEST(DoctorLock, a_lock_is_told_once_it_has_been_held_for_a_minute) {
    ForgetScripts();
    std::int32_t heldSec = 0;
    char owner[] = "somebody";
    OnCall([](servd_SERV_CONNECT_SERVICE &) { return servd_SERV_CONNECT_SERVICE_RETURN{}; });
    OnCall([&](servd_SERV_QUERY_LOCK_SERVICE &) {
        return servd_SERV_QUERY_LOCK_SERVICE_RETURN{0, heldSec != 0, owner, heldSec};
    });
    StartScriptedDaemon();
    for (const std::int32_t seconds : {0, 59, 60, 3600}) {
        heldSec = seconds;
        const std::string found = RunAndRead({.command = {ProgramPath("tvsc"), "doctor"}}).output;
        EXPECT_EQ(found.find("held by somebody for") != std::string::npos, seconds >= 60) << seconds;
    }
    StopScriptedDaemon();
}

TEST(DaemonProcess, is_none_that_has_the_name_alone) {
    ForgetScripts();
    OnCall([](servd_SERV_CONNECT_SERVICE &) { return servd_SERV_CONNECT_SERVICE_RETURN{}; });
    StartScriptedDaemon();
    const std::string program = MakeScratchFolder() + "/servd";
    std::filesystem::copy_file("/bin/sleep", program);
    const pid_t other = StartProgram({.command = {program, "1000"}});
    ASSERT_TRUE(WaitUntil([] { return !ChildrenOf(getpid(), "servd").empty(); }));
    EXPECT_EQ(RunAndRead({.command = {ProgramPath("tvsc"), "daemon", "status"}}).output, "running, database loaded\n");
    kill(other, SIGKILL);
    (void)WaitForEnd(other);
    StopScriptedDaemon();
}

} // namespace
