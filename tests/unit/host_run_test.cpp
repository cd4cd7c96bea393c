// SPDX-License-Identifier: MIT
// What is kept of processes that run side by side, where they write more than may be kept.
#include "tvsc/host_run.h"

#include <gtest/gtest.h>

namespace {

HostRun Shell(const std::string &script) {
    HostRun run;
    run.command = {"/bin/sh", "-c", script};
    return run;
}

std::string Bytes(int count) { return "head -c " + std::to_string(count) + " /dev/zero"; }

TEST(HostRuns, together_are_kept_within_one_bound_and_the_largest_is_given_up) {
    for (const unsigned parallel : {1u, 3u}) { // over before the others write, or not
        std::vector<HostRun> runs = {Shell(Bytes(90'000)), Shell(Bytes(45'000)), Shell("echo small; echo why >&2")};
        RunSideBySide(&runs, {.parallel = parallel, .timeoutSec = 60, .mostBytes = 100'000});
        EXPECT_TRUE(runs[0].wroteTooMuch) << parallel;
        EXPECT_EQ(runs[0].exitStatus, EXIT_FAILED);
        EXPECT_TRUE(runs[0].output.empty());
        EXPECT_FALSE(runs[1].wroteTooMuch || runs[2].wroteTooMuch) << parallel;
        EXPECT_EQ(runs[1].output.size(), 45'000u);
        EXPECT_EQ(runs[2].output, "small\n");
        EXPECT_EQ(runs[2].error, "why\n");
        EXPECT_EQ(runs[2].exitStatus, EXIT_DONE);
    }
}

TEST(HostRuns, errors_count_as_what_is_written) {
    std::vector<HostRun> runs = {Shell(Bytes(60'000) + "; " + Bytes(60'000) + " >&2; exec sleep 100")};
    RunSideBySide(&runs, {.parallel = 1, .timeoutSec = 60, .mostBytes = 100'000});
    EXPECT_TRUE(runs[0].wroteTooMuch);
    EXPECT_FALSE(runs[0].timedOut);
    EXPECT_TRUE((runs[0].output + runs[0].error).empty());
}

TEST(HostRuns, within_the_bound_are_kept_whole) {
    std::vector<HostRun> runs = {Shell(Bytes(40'000)), Shell(Bytes(60'000))};
    RunSideBySide(&runs, {.parallel = 2, .timeoutSec = 60, .mostBytes = 100'000});
    EXPECT_EQ(runs[0].output.size() + runs[1].output.size(), 100'000u);
}

} // namespace
