// SPDX-License-Identifier: MIT
// A service daemon and a registry daemon of another machine: a second private host behind a cable of its own.
#include "svcapi/wide.h"
#include "tests/support/host.h"
#include "tv/winreg.h"
#include "tv/winsvc.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace {

constexpr char serverAddress[] = "10.77.0.2";

// What the other machine does: waits for its end of the cable, then serves.
constexpr char server[] = R"(
    until ip link show far >/dev/null 2>&1; do sleep 0.02; done
    ip address add 10.77.0.2/24 dev far && ip link set far up
    "$TV_BIN/tvregd" --allow-remote --database "$1/registry.db" --background
    cd "$1" && "$TV_BIN/servd" &
    "$TV_BIN/tvsc" wait-online --timeout=60s && touch "$1/ready"
    exec sleep 1000
)";

bool Shell(const std::string &command) { return RunAndRead({.command = {"/bin/bash", "-c", command}}).status == 0; }

std::string NetworkOf(const std::string &process) {
    char text[64] = {};
    return readlink(("/proc/" + process + "/ns/net").c_str(), text, sizeof text - 1) > 0 ? text : "";
}

// A process in another network than this one's; "" when there is none yet.
std::string ProcessElsewhere() {
    const std::string here = NetworkOf("self");
    for (const auto &entry : std::filesystem::directory_iterator("/proc")) {
        const std::string process = entry.path().filename();
        const std::string network = isdigit(process[0]) ? NetworkOf(process) : "";
        if (!network.empty() && network != here) return process;
    }
    return "";
}

// The parameter is the machine's name as the functions are given it.
struct RemoteDaemon : testing::TestWithParam<const char *> {
    static std::string folder;
    static bool isConnected;

    SC_HANDLE manager = nullptr;
    SC_HANDLE service = nullptr;

    static void SetUpTestSuite() {
        folder = MakeScratchFolder();
        (void)StartProgram({.command = {std::string(std::getenv("TV_SOURCE")) + "/tools/private-host", "/bin/bash",
                                        "-c", server, "-", folder}});
        std::string process;
        if (!WaitUntil([&] { return !(process = ProcessElsewhere()).empty(); })) throw std::runtime_error("no server");
        isConnected = Shell("ip link add near type veth peer name far && ip link set far netns " + process +
                            " && ip address add 10.77.0.1/24 dev near && ip link set near up");
        if (!isConnected) return;
        std::ofstream("/etc/hosts", std::ios::app) << serverAddress << " server server.example\n";
        if (!WaitUntil([] { return std::filesystem::exists(folder + "/ready"); }, 60000)) {
            throw std::runtime_error("the server does not answer");
        }
    }
    static void TearDownTestSuite() { EndAllProcesses(); }

    void SetUp() override {
        if (!isConnected) GTEST_SKIP() << "the kernel has no virtual network cables (veth)";
        manager = OpenSCManagerA(GetParam(), nullptr, SC_MANAGER_ALL_ACCESS);
        ASSERT_NE(manager, nullptr) << GetLastError();
    }
    void TearDown() override {
        if (service != nullptr) (void)CloseServiceHandle(service);
        if (manager != nullptr) (void)CloseServiceHandle(manager);
    }
    void Create(const std::string &path) {
        service = CreateServiceA(manager, "far away", nullptr, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                 SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, path.c_str(), nullptr, nullptr, nullptr,
                                 nullptr, nullptr);
        ASSERT_NE(service, nullptr) << GetLastError();
    }
    void WaitForState(DWORD state) const {
        SERVICE_STATUS status = {};
        EXPECT_TRUE(WaitUntil([&] { return QueryServiceStatus(service, &status) && status.dwCurrentState == state; }))
            << status.dwCurrentState;
    }
};

std::string RemoteDaemon::folder;
bool RemoteDaemon::isConnected;

TEST_P(RemoteDaemon, is_opened_by_name_or_address_with_backslashes_or_without) {
    const SC_HANDLE wide = OpenSCManagerW(InCharacters<WCHAR>(GetParam()).c_str(), nullptr, SC_MANAGER_ALL_ACCESS);
    EXPECT_NE(wide, nullptr) << GetLastError();
    EXPECT_TRUE(CloseServiceHandle(wide)) << GetLastError();
}

TEST_P(RemoteDaemon, its_services_are_started_asked_and_stopped) {
    const std::string script = folder + "/service.csh";
    WriteFile(script, "#!/bin/csh -f\nexec '" + ProgramPath("tvsample") + "' --log '" + folder + "/log'\n");
    Create(script);
    ASSERT_TRUE(StartServiceA(service, 0, nullptr)) << GetLastError();
    WaitForState(SERVICE_RUNNING);
    SERVICE_STATUS_PROCESS status = {};
    DWORD needed = 0;
    EXPECT_TRUE(QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<LPBYTE>(&status), sizeof status,
                                     &needed));
    EXPECT_EQ(status.dwProcessId, 0u); // its file is there, not here
    SERVICE_STATUS stopped = {};
    EXPECT_TRUE(ControlService(service, SERVICE_CONTROL_STOP, &stopped)) << GetLastError();
    WaitForState(SERVICE_STOPPED);
    EXPECT_TRUE(DeleteService(service)) << GetLastError();
}

// Whether there is such a program there cannot be seen from here.
TEST_P(RemoteDaemon, a_command_line_stays_what_it_is) {
    Create("\"/bin/sleep\" 1000");
    QUERY_SERVICE_CONFIGA config[64];
    DWORD needed = 0;
    ASSERT_TRUE(QueryServiceConfigA(service, config, sizeof config, &needed)) << GetLastError();
    EXPECT_STREQ(config[0].lpBinaryPathName, "\"/bin/sleep\" 1000");
    EXPECT_FALSE(std::filesystem::exists("/etc/tv/services/far away.csh"));
    EXPECT_TRUE(DeleteService(service)) << GetLastError();
}

TEST_P(RemoteDaemon, further_parts_of_a_configuration_lie_in_its_registry) {
    Create("/bin/true");
    char text[] = "told there";
    SERVICE_DESCRIPTIONA given = {text};
    ASSERT_TRUE(ChangeServiceConfig2A(service, SERVICE_CONFIG_DESCRIPTION, &given)) << GetLastError();
    SERVICE_DESCRIPTIONA found[16];
    DWORD needed = 0;
    ASSERT_TRUE(QueryServiceConfig2A(service, SERVICE_CONFIG_DESCRIPTION, reinterpret_cast<LPBYTE>(found), sizeof found,
                                     &needed))
        << GetLastError();
    EXPECT_STREQ(found[0].lpDescription, "told there");
    HKEY root = 0;
    HKEY key = 0;
    ASSERT_EQ(RegConnectRegistryA(serverAddress, HKEY_LOCAL_MACHINE, &root), ERROR_SUCCESS);
    const std::string path = servicesKey + "\\far away";
    ASSERT_EQ(RegOpenKeyExA(root, path.c_str(), 0, KEY_READ, &key), ERROR_SUCCESS);
    char stored[32] = {};
    DWORD bytes = sizeof stored;
    EXPECT_EQ(RegQueryValueExA(key, "Description", nullptr, nullptr, reinterpret_cast<LPBYTE>(stored), &bytes),
              ERROR_SUCCESS);
    EXPECT_STREQ(stored, "told there");
    (void)RegCloseKey(key);
    (void)RegCloseKey(root);
    EXPECT_TRUE(DeleteService(service)) << GetLastError();
}

INSTANTIATE_TEST_SUITE_P(Names, RemoteDaemon,
                         testing::Values("server", "\\\\server", "\\\\server.example", serverAddress, "\\\\10.77.0.2"));

TEST(UnknownMachine, answers_1722) {
    for (const char *name : {"no-such-machine", "\\\\no-such-machine", "\\server", "\\\\\\server"}) {
        EXPECT_EQ(OpenSCManagerA(name, nullptr, 0), nullptr);
        EXPECT_EQ(GetLastError(), DWORD{RPC_S_SERVER_UNAVAILABLE}) << name;
    }
}

TEST(UnknownMachine, no_name_is_this_machine_whose_daemon_is_not_there) {
    for (const char *name : {"", "\\\\", "localhost", "\\\\localhost"}) {
        EXPECT_EQ(OpenSCManagerA(name, nullptr, 0), nullptr);
        EXPECT_EQ(GetLastError(), DWORD{RPC_S_SERVER_UNAVAILABLE}) << name;
    }
}

} // namespace
