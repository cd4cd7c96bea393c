// SPDX-License-Identifier: MIT
// A registry daemon that is killed, restarted, or does not answer as it should: operations answer 1016 while it is so,
// and are right again afterwards.
#include "tests/support/hazard.h"

#include "tv/winerror.h"
#include "tv/winreg.h"

#include <netinet/in.h>
#include <rpc/pmap_clnt.h>
#include <signal.h>

#include <atomic>
#include <map>
#include <thread>

using namespace raw;

namespace {

struct HazardRegistry : Hazard {
    void SetUp() override {
        if (!KeyExists(servicesKey + "\\Known")) {
            WriteService("Known", 3, "/known", {{"DependOnGroup", REG_MULTI_SZ, MultiSz({"Other"})}});
            WriteService("Other", 3, "/other");
        }
        StartDaemon();
    }

    void KillRegistry() { (void)StopDaemon(registry, SIGKILL); }

    // The status of a dependency enumeration, which asks the registry; when it is 0, the answer must be right.
    std::uint32_t QueryKnown() const {
        const std::string result = Ask(ENUM_DEPEND_SERVICE, Words({HandleOf("Known"), 3, 100000}));
        const std::uint32_t status = WordOf(result, 0);
        if (status == 0) {
            EXPECT_EQ(WordOf(result, 2), 1U) << "services returned";
        }
        return status;
    }
};

// Accepts connections as the registry daemon: shakes hands, opens and closes keys, and leaves everything else to
// `behave`, which gets the connection and the transaction id.
struct FakeRegistry {
    std::atomic<bool> ends = false;
    std::atomic<int> present = -1; // the connection that is served
    Socket listener = ListenAs(REGDAEMONPROG, REGDAEMONVERS);
    std::thread thread;

    template <typename Behave>
    explicit FakeRegistry(Behave behave) {
        EXPECT_GE(listener.descriptor, 0);
        thread = std::thread([this, behave] {
            for (int accepted; (accepted = accept4(listener.descriptor, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
                const Socket connection(accepted);
                present = accepted;
                for (std::string call; !(call = ReadMessage(connection)).empty();) {
                    const std::uint32_t xid = WordOf(call, 0);
                    switch (WordOf(call, 5)) {
                    case REG_QUERY_VERSION: Answer(connection, xid, Words({1, 0, 2, 3, 0})); break;
                    case REG_OPEN_KEY_EX: Answer(connection, xid, Words({1, 0, 5})); break;
                    case REG_PING_DAEMON:
                    case REG_CLOSE_KEY: Answer(connection, xid, Words({1, 0})); break;
                    default: behave(connection, xid, ends);
                    }
                }
            }
        });
    }
    static void Answer(const Socket &connection, std::uint32_t xid, const std::string &result) {
        (void)Send(connection, AsMessage(ServdAnswer(result, xid)));
    }

    ~FakeRegistry() {
        ends = true;
        (void)shutdown(listener.descriptor, SHUT_RDWR);
        (void)shutdown(present, SHUT_RDWR);
        thread.join();
        (void)pmap_unset(REGDAEMONPROG, REGDAEMONVERS);
    }
};

void Drip(const Socket &connection, std::uint32_t xid, const std::atomic<bool> &ends) {
    const std::string answer = AsMessage(ServdAnswer(std::string(400, '\0'), xid));
    for (std::size_t i = 0; i < answer.size() && !ends && Send(connection, answer.substr(i, 1)); ++i) {
        PauseMs(200);
    }
}

void AnswerNobody(const Socket &connection, std::uint32_t xid, const std::atomic<bool> &ends) {
    while (!ends && Send(connection, AsMessage(ServdAnswer(Words({1, 0, 0}), xid + 5000)))) {
        PauseMs(50);
    }
}

} // namespace

TEST_F(HazardRegistry, a_registry_killed_between_calls_costs_one_answer) {
    const int trials = Trials(10, 200);
    for (int i = 0; i < trials; ++i) {
        ASSERT_EQ(QueryKnown(), 0U);
        KillRegistry();
        EXPECT_EQ(QueryKnown(), std::uint32_t{ERROR_REGISTRY_IO_FAILED});
        EXPECT_EQ(QueryKnown(), std::uint32_t{ERROR_REGISTRY_IO_FAILED}) << "while there is none";
        StartRegistry();
        EXPECT_EQ(QueryKnown(), 0U) << "with the registry back";
    }
    EXPECT_LT(WorstCallMs(), promptMs);
    Measured("%d kills between calls: 1016 while it is gone, 0 once it is back", trials);
}

TEST_F(HazardRegistry, a_registry_killed_during_calls_leaves_the_daemon_right) {
    std::atomic<bool> ends = false;
    std::map<std::uint32_t, int> answers;
    std::thread caller([&] {
        while (!ends) {
            ++answers[QueryKnown()];
        }
    });
    const int trials = Trials(10, 200);
    for (int i = 0; i < trials; ++i) {
        PauseMs(20 + i % 17);
        KillRegistry();
        PauseMs(i % 5);
        StartRegistry();
    }
    ends = true;
    caller.join();
    EXPECT_EQ(QueryKnown(), 0U);
    int others = 0;
    for (const auto &[status, count] : answers) {
        // 6 is the new registry's own answer to a key that was opened, or could not be, before it came.
        others += status != 0 && status != ERROR_REGISTRY_IO_FAILED && status != ERROR_INVALID_HANDLE ? count : 0;
    }
    EXPECT_EQ(others, 0);
    Measured("%d kills during calls: %d right answers, %d times 1016, %d times 6, %d others", trials, answers[0],
             answers[ERROR_REGISTRY_IO_FAILED], answers[ERROR_INVALID_HANDLE], others);
}

struct HazardOddRegistry : HazardRegistry, testing::WithParamInterface<const char *> {};
INSTANTIATE_TEST_SUITE_P(Mode, HazardOddRegistry, testing::Values("drips", "answers nobody"));

TEST_P(HazardOddRegistry, an_operation_waits_no_longer_than_its_time_out) {
    KillRegistry();
    EXPECT_EQ(QueryKnown(), std::uint32_t{ERROR_REGISTRY_IO_FAILED});
    double seconds = 0;
    {
        const FakeRegistry fake(std::string(GetParam()) == "drips" ? Drip : AnswerNobody);
        const Clock::time_point start = Clock::now();
        EXPECT_EQ(QueryKnown(), std::uint32_t{ERROR_REGISTRY_IO_FAILED});
        seconds = MsSince(start) / 1000;
    }
    EXPECT_GT(seconds, 24);
    EXPECT_LT(seconds, 27);
    StartRegistry();
    (void)QueryKnown(); // finds the connection gone
    EXPECT_EQ(QueryKnown(), 0U);
    Measured("a registry that %s: the operation answers 1016 after %.1f s", GetParam(), seconds);
}
