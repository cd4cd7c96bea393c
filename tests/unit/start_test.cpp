// SPDX-License-Identifier: MIT
// What starting a service needs besides processes: declaring it dead, users, the length of a multi-string.
#include "tests/support/memory_registry.h"

#include <pwd.h>

namespace {

struct Start : MemoryRegistryTest {};

TEST_F(Start, a_failed_service_is_stopped_with_1067_and_keeps_the_rest) {
    ResizeServiceDatabase();
    svcdb[3].status = {.dwServiceType = 0x10,
                       .dwCurrentState = SERVICE_RUNNING,
                       .dwControlsAccepted = 7,
                       .dwWin32ExitCode = 5,
                       .dwServiceSpecificExitCode = 6,
                       .dwCheckPoint = 8,
                       .dwWaitHint = 9};
    svcdb[3].processId = 4711;
    svcdb[3].serviceContext = 12;
    svcdb[3].statusDeadline = {.seconds = 13, .microseconds = 14};
    ServiceFailed(3);
    EXPECT_EQ(svcdb[3].processId, 0);
    EXPECT_EQ(svcdb[3].status.dwCurrentState, SERVICE_STOPPED);
    EXPECT_EQ(svcdb[3].status.dwWin32ExitCode, ERROR_PROCESS_ABORTED);
    EXPECT_EQ(svcdb[3].status.dwCheckPoint, 0);
    EXPECT_EQ(svcdb[3].status.dwWaitHint, 0);
    EXPECT_EQ(svcdb[3].status.dwServiceType, 0x10);
    EXPECT_EQ(svcdb[3].status.dwControlsAccepted, 7);
    EXPECT_EQ(svcdb[3].status.dwServiceSpecificExitCode, 6);
    EXPECT_EQ(svcdb[3].serviceContext, 12);
    EXPECT_EQ(svcdb[3].statusDeadline.seconds, 13);
    EXPECT_EQ(svcdb[3].statusDeadline.microseconds, 14);
}

TEST_F(Start, a_service_that_is_not_stopped_is_not_started) {
    InstallService("Alpha");
    ASSERT_EQ(ReadServiceDatabase(), 0u);
    svcdb[1].status.dwCurrentState = SERVICE_RUNNING;
    ForgetCalls();
    EXPECT_EQ(QuickStartService(1, nullptr, 0), std::uint32_t{ERROR_SERVICE_ALREADY_RUNNING});
    EXPECT_TRUE(RegistryCalls().empty());
}

TEST(GetUserIDFromName, no_name_is_user_0) {
    EXPECT_EQ(GetUserIDFromName(nullptr), 0u);
    EXPECT_EQ(GetUserIDFromName(""), 0u);
}

TEST(GetUserIDFromName, a_known_name_gives_its_user) {
    const passwd *nobody = getpwnam("nobody");
    ASSERT_NE(nobody, nullptr);
    EXPECT_EQ(GetUserIDFromName("nobody"), nobody->pw_uid);
    EXPECT_EQ(GetUserIDFromName("root"), 0u);
}

TEST(GetUserIDFromName, an_unknown_name_gives_minus_1) {
    EXPECT_EQ(GetUserIDFromName("no such user"), 0xFFFFFFFFu);
    EXPECT_EQ(GetUserIDFromName("NOBODY"), 0xFFFFFFFFu);
}

TEST(multistrlen, counts_both_terminators) {
    EXPECT_EQ(multistrlen(nullptr), 0u);
    EXPECT_EQ(multistrlen("\0"), 1u);
    EXPECT_EQ(multistrlen("a\0"), 3u);
    EXPECT_EQ(multistrlen("a\0bc\0"), 6u);
    EXPECT_EQ(multistrlen("a\0bc\0\0def\0"), 6u);
}

} // namespace
