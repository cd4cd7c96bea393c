// SPDX-License-Identifier: MIT
// Every allocation refused once: through the start with a small database, and through one call of every procedure. The
// daemon ends with its message and status 1, or answers with a result or a refusal; it never crashes, and a daemon that
// lives on answers as one does that was started afresh.
#include "tests/support/failing_malloc.h"
#include "tests/support/hazard.h"

#include "tv/winerror.h"
#include "tv/winreg.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include <array>

using namespace raw;

namespace {

const std::vector<std::string> names = {"Alpha", "Beta", "Gamma", "New"};

struct Allocations : Hazard {
    FailingMalloc *control = nullptr;
    std::string errorFile;

    void SetUp() override {
        const std::string file = folder + "/control";
        errorFile = folder + "/error";
        WriteFile(file, std::string(sizeof(FailingMalloc), '\0'));
        const int descriptor = open(file.c_str(), O_RDWR | O_CLOEXEC);
        control = static_cast<FailingMalloc *>(
            mmap(nullptr, sizeof(FailingMalloc), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0));
        (void)close(descriptor);
        ASSERT_NE(static_cast<void *>(control), MAP_FAILED);
        FillRegistry();
    }

    void TearDown() override {
        if (daemon != 0) (void)StopDaemon(daemon, SIGKILL);
        daemon = 0;
    }

    static void FillRegistry() {
        if (KeyExists(servicesKey)) DeleteKey(servicesKey);
        WriteKey(groupOrderKey, {{"List", REG_MULTI_SZ, MultiSz({"Net", "Disk"})}});
        WriteKey(groupTagsKey, {{"Net", REG_BINARY, Dword(2) + Dword(2) + Dword(1)}});
        WriteService("Alpha", 3, "/bin/alpha", {{"Group", REG_SZ, Sz("Net")}, {"Tag", REG_DWORD, Dword(1)}});
        WriteService("Beta", 3, "/bin/beta",
                     {{"Group", REG_SZ, Sz("Net")},
                      {"Tag", REG_DWORD, Dword(2)},
                      {"DependOnGroup", REG_MULTI_SZ, MultiSz({"Alpha", "+Disk"})}});
        // Without a tag a service takes over that of the one before it once it is loaded: what comes after Gamma has
        // none.
        WriteOddService("Gamma", "plain", 3, {{"Group", REG_SZ, Sz("Disk")}, {"Tag", REG_DWORD, Dword(0)}});
    }

    // Starts the daemon whose n-th allocation from its start is refused; 0: none. It may have ended already.
    void Launch(int failing) {
        control->refused = 0;
        control->countdown = failing;
        WriteFile(errorFile, "");
        const std::filesystem::path here = std::filesystem::read_symlink("/proc/self/exe").parent_path();
        daemon = StartDetached({.command = {(here / "servd_failing").string()},
                                .environment = {"TV_FAILING_MALLOC=" + folder + "/control"},
                                .errorFile = errorFile})
                     .process;
        ASSERT_NE(daemon, 0);
        ASSERT_TRUE(WaitUntil([&] { return HasEnded(daemon) || WaitForProgram(SERVDAEMONPROG, SERVDAEMONVERS, 0); }));
        port = PortOf(SERVDAEMONPROG, SERVDAEMONVERS);
    }

    // The daemon has ended as it does for want of memory, or lives. Returns whether it lives.
    bool LivesOrEndedCleanly(const std::string &where) {
        PauseMs(2);
        if (!HasEnded(daemon)) return true;
        const int status = WaitForEnd(daemon);
        daemon = 0;
        EXPECT_TRUE(WIFEXITED(status)) << where << ": signal " << WTERMSIG(status);
        EXPECT_EQ(WEXITSTATUS(status), 1) << where;
        const std::string message = ReadFile(errorFile);
        EXPECT_TRUE(message == "out of memory" || message == "cannot create tcp service.") << where << ": " << message;
        return false;
    }

    // What a client sees of the database: every listed service, and the configuration of each.
    std::string Picture() const {
        std::string picture = Ask(CONNECT_SERVICE, XdrString("me"));
        picture += Ask(ENUM_STATUS_SERVICE, Words({0, 0x30, 3, 1 << 20}));
        for (const std::string &name : names) {
            const std::string opened = Ask(OPEN_SERVICE, XdrString(name) + Words({1}));
            picture += "\n" + name + ": " + opened.substr(0, 4);
            if (WordOf(opened, 0) != 0) continue;
            picture += Ask(QUERY_CONFIG_SERVICE, opened.substr(4)) +
                       Ask(ENUM_DEPEND_SERVICE, opened.substr(4) + Words({3, 10000}));
            (void)Ask(CLOSE_SERVICE, opened.substr(4));
        }
        return picture;
    }
};

std::string CharArray(const std::string &text) {
    std::string bytes = Words({static_cast<std::uint32_t>(text.size())});
    for (const char character : text) {
        bytes += Words({static_cast<std::uint32_t>(character)});
    }
    return bytes;
}

// One call of every procedure that does something, on service 1 (Alpha) to 3 (Gamma). No tag is wanted: the record gets
// it at the next start only.
struct SampleCall {
    const char *what;
    std::uint32_t procedure;
    std::string argument;
    bool changesMemoryOnly = false; // a fresh daemon does not know of it
};

std::vector<SampleCall> SampleCalls() {
    return {
        {"connect", CONNECT_SERVICE, XdrString("me")},
        {"create", CREATE_SERVICE,
         XdrString("New") + XdrString("A new one") + Words({0x10, 3, 1}) + XdrString("/bin/new") + XdrString("Net") +
             CharArray(std::string("Alpha\0\0", 7)) + XdrString("") + Words({0})},
        {"open", OPEN_SERVICE, XdrString("Alpha") + Words({1}), true},
        {"delete", DELETE_SERVICE, Words({1}), true},
        {"close", CLOSE_SERVICE, Words({1}), true},
        {"lock", LOCK_SERVICE, Words({1}) + XdrString("me"), true},
        {"unlock", UNLOCK_SERVICE, Words({0}), true},
        {"query lock", QUERY_LOCK_SERVICE, Words({0})},
        {"start", START_SERVICE, Words({3, 1}) + XdrString("argument") + Words({0, 1}), true},
        {"control", CONTROL_SERVICE, Words({1, 4})},
        {"set status", SET_STATUS_SERVICE, Words({1, 0x10, 4, 1, 0, 0, 0, 0}), true},
        {"dummy", DUMMY_SERVICE, Words({1})},
        {"query status", QUERY_STATUS_SERVICE, Words({1})},
        {"enumerate", ENUM_STATUS_SERVICE, Words({0, 0x30, 3, 100000})},
        {"display name", GET_DISPLAY_SERVICE, XdrString("Alpha")},
        {"key name", GET_KEY_SERVICE, XdrString("Alpha")},
        {"dependents", ENUM_DEPEND_SERVICE, Words({2, 3, 100000})},
        {"query configuration", QUERY_CONFIG_SERVICE, Words({2})},
        {"change configuration", CHANGE_CONFIG_SERVICE,
         Words({1, 0x20, 4, 1}) + CharArray(std::string("/bin/other\0", 11)) + CharArray(std::string("Disk\0", 5)) +
             CharArray(std::string("Gamma\0\0", 7)) + CharArray("") + CharArray("") +
             CharArray(std::string("Renamed\0", 8)) + Words({0})},
    };
}

} // namespace

TEST_F(Allocations, refused_during_the_start_end_it_cleanly_or_leave_it_right) {
    Launch(0);
    const std::string expected = Picture();
    int ended = 0;
    int lived = 0;
    int failing = 1;
    for (;; ++failing) {
        TearDown();
        Launch(failing);
        if (!LivesOrEndedCleanly("allocation " + std::to_string(failing))) {
            ++ended;
            continue;
        }
        if (control->refused == 0) break; // the start takes fewer
        ++lived;
        // It tells that its database could not be built, or has built it.
        const std::uint32_t initstatus = WordOf(Ask(CONNECT_SERVICE, XdrString("me")), 0);
        EXPECT_TRUE(initstatus == ERROR_DATABASE_DOES_NOT_EXIST || Picture() == expected) << "allocation " << failing;
    }
    Measured("%d allocations during the start refused in turn: %d ended with the message, %d daemons lived",
             failing - 1, ended, lived);
    EXPECT_GT(ended, 10);
}

TEST_F(Allocations, refused_during_a_call_end_it_cleanly_or_leave_it_right) {
    int ended = 0;
    int lived = 0;
    for (const SampleCall &call : SampleCalls()) {
        for (int failing = 1;; ++failing) {
            const std::string where = std::string(call.what) + ", allocation " + std::to_string(failing);
            TearDown();
            FillRegistry();
            Launch(0);
            {
                const Socket client = Connect();
                const timeval patience = {45, 0};
                (void)setsockopt(client.descriptor, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
                // The connection has been accepted once it has been answered.
                ASSERT_TRUE(Send(client, AsMessage(ServdCall(NULLPROC, ""))));
                ASSERT_EQ(ReadMessage(client), ServdAnswer(""));
                control->countdown = failing;
                ASSERT_TRUE(Send(client, AsMessage(ServdCall(call.procedure, call.argument))));
                const std::string answer = ReadMessage(client);
                EXPECT_TRUE(answer.empty() || WordOf(answer, 5) == SUCCESS || answer == ServdFailure(GARBAGE_ARGS) ||
                            answer == ServdFailure(SYSTEM_ERR))
                    << where;
                if (answer.empty()) (void)WaitUntil([&] { return HasEnded(daemon); }, 2000);
            }
            control->countdown = 0;
            if (!LivesOrEndedCleanly(where)) {
                ++ended;
                continue;
            }
            if (control->refused == 0) break;
            ++lived;
            const std::string picture = Picture();
            if (call.changesMemoryOnly) continue;
            EXPECT_EQ(StopDaemon(daemon), 0) << where;
            Launch(0);
            // A service created while the daemon runs takes record 0, which listings leave out: after a new start it
            // stands among the others. Its configuration must be the same.
            const auto configurations = [](const std::string &seen) { return seen.substr(seen.find("\nAlpha")); };
            EXPECT_TRUE(configurations(Picture()) == configurations(picture)) << where;
        }
        for (const pid_t service : ChildrenOf(getpid(), "odd_service")) {
            (void)StopDaemon(service, SIGKILL);
        }
    }
    Measured("%d allocations during calls refused in turn: %d ended with the message, %d answered and lived on",
             ended + lived, ended, lived);
    EXPECT_GT(ended + lived, 50);
}
