// SPDX-License-Identifier: MIT
// tvhost_world: what the tests of tvhost share.
#include "tests/support/tvhost_world.h"

#include "svcapi/process_stat.h"
#include "tvhost/control_group.h"

#include <cstdlib>
#include <filesystem>

namespace {

namespace fs = std::filesystem;

std::string temporaryFolder;

HostContents Look() { return LookAtHost({"/run", "/var/log", temporaryFolder}); }

// The command lines of the processes that are new, but for the daemons, which a test may have started anew.
std::string NewProcesses(const HostContents &before) {
    std::string lines;
    for (const auto &[process, line] : NewOnHost(before, Look()).processes) {
        const bool isDaemon =
            process.first == ServiceWorld::serviceDaemon || process.first == ServiceWorld::registryDaemon;
        if (!isDaemon) lines += std::to_string(process.first) + " " + line + "\n";
    }
    return lines;
}

bool IsListed(const std::string &file, const std::vector<std::regex> &listed) {
    return std::any_of(listed.begin(), listed.end(),
                       [&](const std::regex &expression) { return std::regex_match(file, expression); });
}

} // namespace

void TvhostWorld::SetUpTestSuite() {
    temporaryFolder = MakeScratchFolder();
    fs::permissions(temporaryFolder, fs::perms::all);
    setenv("TMPDIR", temporaryFolder.c_str(), 1);
    ServiceWorld::SetUpTestSuite();
}

void TvhostWorld::SetUp() { hostBefore = Look(); }

void TvhostWorld::TearDown() {
    (void)Tvsc({"stop", name, "--force"});
    EXPECT_TRUE(WaitUntil([this] { return NewProcesses(hostBefore).empty(); }))
        << "left behind: " << NewProcesses(hostBefore);
    const std::vector<std::regex> listed =
        FilesOfManual(std::getenv("TV_SOURCE") + std::string("/docs/tvhost.8.scd"), name + "(-[23])?");
    for (const std::string &file : NewOnHost(hostBefore, Look()).files) {
        EXPECT_TRUE(IsListed(file, listed)) << file << " is left behind and not in the manual";
    }
    ExpectNoGroup();
}

// That of a tvhost that was killed is for the next start to take away, which this stands for.
void TvhostWorld::ExpectNoGroup() {
    const HostState state = StateFile();
    EXPECT_FALSE(HasProcesses(state.group, state.groupInode));
    RemoveLeftOver(state.group, state.groupInode);
    EXPECT_TRUE(state.group.empty() || !fs::exists(state.group)) << state.group;
}

nlohmann::json TvhostWorld::Status() {
    return nlohmann::json::parse(Tvsc({"status", name, "--json"}).output).at("services").at(0);
}

std::string TvhostWorld::StateText() { return Status().at("state"); }

bool TvhostWorld::AwaitState(const std::string &state, int timeoutMs) {
    return WaitUntil([&] { return StateText() == state; }, timeoutMs);
}

HostState TvhostWorld::StateFile() {
    HostState state;
    uid_t owner = 0;
    (void)ReadHostState(name, &state, &owner);
    return state;
}

std::string TvhostWorld::LogText() { return ReadWhatIsThere("/var/log/tv/" + name + ".log"); }

std::string TvhostWorld::StartByScript(const std::string &first) {
    const std::string script = folder + "/" + name + ".csh", said = folder + "/" + name + ".said";
    WriteFile(script, "#!/bin/csh -f\n" + first + "\nexec '" + ProgramPath("tvhost") + "' >&! '" + said + "'\n");
    Do({"config", name, "--image", script});
    return said;
}

bool TvhostWorld::Lives(pid_t process) {
    ProcessStat stat;
    return process > 0 && ReadProcessStat(process, &stat) && stat.state != 'Z';
}
