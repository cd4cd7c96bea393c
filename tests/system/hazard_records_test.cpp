// SPDX-License-Identifier: MIT
// Every argument record of the daemon cut at every byte and with every field at its extremes, over TCP; and every
// answer that the daemon reads, from service processes and from the registry, treated likewise.
#include "tests/support/hazard.h"

#include "tv/winerror.h"
#include "tv/winreg.h"

#include <netinet/in.h>
#include <rpc/pmap_clnt.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <list>
#include <mutex>
#include <thread>

using namespace raw;

namespace {

constexpr std::uint32_t extremes[] = {0, 1, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};

// A request that the daemon cannot or need not carry out gets a result of its procedure, or is refused as garbage.
bool IsResultOrRefusal(const std::string &answer) {
    if (answer.size() < ServdFailure(GARBAGE_ARGS).size() || WordOf(answer, 2) != MSG_ACCEPTED) return false;
    return WordOf(answer, 5) == SUCCESS || answer == ServdFailure(GARBAGE_ARGS);
}

} // namespace

TEST_F(Hazard, every_argument_cut_at_every_byte_is_refused) {
    const Socket client = Connect();
    int requests = 0;
    for (const RequestForm &form : requestForms) {
        const Request request = form.make(0xFFFFFFFF, "some text");
        for (std::size_t kept = 0; kept < request.bytes.size(); ++kept) {
            ASSERT_TRUE(Send(client, AsMessage(ServdCall(form.procedure, request.bytes.substr(0, kept)))));
            ASSERT_EQ(ReadMessage(client), ServdFailure(GARBAGE_ARGS)) << form.procedure << " cut at " << kept;
            ++requests;
        }
    }
    EXPECT_LT(CallMs(), 1000);
    Measured("%d cut requests, all answered as garbage arguments", requests);
}

TEST_F(Hazard, every_number_at_its_extremes_is_answered) {
    WriteService("Alpha", 3, "/alpha", {{"DependOnGroup", REG_MULTI_SZ, MultiSz({"Beta"})}});
    WriteService("Beta", 3, "/nowhere/beta");
    EXPECT_EQ(StopDaemon(daemon), 0);
    StartDaemon();
    int requests = 0;
    for (const RequestForm &form : requestForms) {
        if (form.procedure == START_SERVICE) continue; // valid handles would wait for a process
        for (const std::uint32_t base : {0xFFFFFFFFU, 1U}) {
            const Request request = form.make(base, "Alpha");
            for (const std::size_t number : request.numbers) {
                for (const std::uint32_t extreme : extremes) {
                    std::string argument = request.bytes;
                    argument.replace(number, 4, Words({extreme}));
                    const Socket client = Connect();
                    ASSERT_TRUE(Send(client, AsMessage(ServdCall(form.procedure, argument))));
                    EXPECT_TRUE(IsResultOrRefusal(ReadMessage(client)))
                        << form.procedure << " at " << number << ": " << extreme;
                    ++requests;
                }
            }
        }
    }
    for (const std::uint32_t handle : {0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU, 49U, 50U, 51U}) {
        const std::string result = Ask(START_SERVICE, Words({handle, 0, 0}));
        EXPECT_TRUE(WordOf(result, 0) == ERROR_INVALID_HANDLE || WordOf(result, 0) == ERROR_SERVICE_DATABASE_LOCKED);
    }
    EXPECT_EQ(WordOf(Ask(DUMMY_SERVICE, Words({1})), 0), 2U);
    Measured("%d requests with a number at an extreme, all answered", requests);
    DeleteKey(servicesKey);
}

// --- answers that the daemon reads ---

namespace {

// Serves a program on the loopback interface; `answer` makes each reply's bytes, fragment header included, from the
// call. An empty reply closes the connection.
struct Peer {
    std::uint32_t program;
    std::uint32_t version;
    Socket listener;
    std::list<std::thread> threads = {}; // the first accepts, each other serves a connection

    template <typename Answer>
    Peer(std::uint32_t number, std::uint32_t itsVersion, Answer answer)
        : program(number), version(itsVersion), listener(ListenAs(number, itsVersion)) {
        EXPECT_GE(listener.descriptor, 0);
        threads.emplace_back([this, answer] {
            for (int accepted; (accepted = accept4(listener.descriptor, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
                threads.emplace_back([accepted, answer] {
                    const Socket connection(accepted);
                    const timeval patience = {2, 0};
                    (void)setsockopt(accepted, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
                    for (std::string call; !(call = ReadMessage(connection)).empty();) {
                        const std::string reply = answer(call);
                        if (reply.empty() || !Send(connection, reply)) break;
                    }
                });
            }
        });
    }
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;
    ~Peer() {
        (void)shutdown(listener.descriptor, SHUT_RDWR);
        threads.front().join();
        threads.pop_front();
        for (std::thread &thread : threads) {
            thread.join();
        }
        (void)pmap_unset(program, version);
    }
};

// What a registry daemon answers to a daemon's questions about one service, each reply as the result's bytes.
std::string RegistryResult(std::uint32_t procedure) {
    switch (procedure) {
    case REG_QUERY_VERSION: return Words({1, 0, 2, 3, 0});
    case REG_OPEN_KEY:
    case REG_OPEN_KEY_EX: return Words({1, 0, 5});
    case REG_CREATE_KEY:
    case REG_CREATE_KEY_EX: return Words({1, 0, 5, 1});
    case REG_QUERY_VALUE:
    case REG_QUERY_VALUE_EX: return Words({1, 0, 7}) + XdrString(std::string("Beta\0\0", 6)) + Words({6});
    case REG_ENUM_KEY:
    case REG_ENUM_KEY_EX: return Words({1, 0}) + XdrString("Alpha") + Words({6}) + XdrString("") + Words({1, 0, 0});
    default: return Words({1, 0});
    }
}

} // namespace

// The daemon asks a registry whose answer to one procedure is cut at every byte, or has each of its words at the
// extremes in turn. Whatever it makes of it, it answers its client, and is right again with the registry back.
TEST_F(Hazard, answers_of_the_registry_cut_and_at_their_extremes_bring_nothing_down) {
    WriteService("Alpha", 3, "/alpha", {{"DependOnGroup", REG_MULTI_SZ, MultiSz({"Beta"})}});
    WriteService("Beta", 3, "/beta");
    EXPECT_EQ(StopDaemon(daemon), 0);
    StartDaemon();
    const std::uint32_t handle = HandleOf("Alpha");
    (void)StopDaemon(registry, SIGKILL);
    int answers = 0;
    std::uint32_t spoiled = 0; // the procedure
    int turn = 0;  // of its answers all are spoiled (0), the second and each second one then (1), the others (2)
    int calls = 0; // of it
    std::string result;
    std::mutex resultIsChanging;
    {
        const Peer peer(REGDAEMONPROG, REGDAEMONVERS, [&](const std::string &call) {
            const std::uint32_t procedure = WordOf(call, 5);
            const std::lock_guard lock(resultIsChanging);
            const bool isSpoiled = procedure == spoiled && (turn == 0 || calls++ % 2 == turn % 2);
            return AsMessage(ServdAnswer(isSpoiled ? result : RegistryResult(procedure), WordOf(call, 0)));
        });
        const auto askWith = [&](std::uint32_t procedure, std::string spoiledResult, int itsTurn = 0) {
            {
                const std::lock_guard lock(resultIsChanging);
                spoiled = procedure;
                turn = itsTurn;
                calls = 0;
                result = std::move(spoiledResult);
            }
            const std::uint32_t status = WordOf(Ask(ENUM_DEPEND_SERVICE, Words({handle, 3, 10000})), 0);
            (void)Ask(QUERY_CONFIG_SERVICE, Words({handle}));
            ++answers;
            return status;
        };
        for (const std::uint32_t procedure : {REG_OPEN_KEY_EX, REG_QUERY_VALUE_EX, REG_CLOSE_KEY}) {
            const std::string whole = RegistryResult(procedure);
            // Every service depends on Beta, Beta too.
            EXPECT_EQ(askWith(procedure, whole), std::uint32_t{ERROR_CIRCULAR_DEPENDENCY}) << procedure;
            for (std::size_t kept = 0; kept < whole.size(); ++kept) {
                const std::uint32_t status = askWith(procedure, whole.substr(0, kept));
                // Whether a key could be closed does not matter to anybody.
                if (procedure == REG_CLOSE_KEY) continue;
                EXPECT_EQ(status, std::uint32_t{ERROR_REGISTRY_IO_FAILED}) << procedure << " cut at " << kept;
            }
            for (std::size_t word = 0; word < whole.size(); word += 4) {
                for (const std::uint32_t extreme : extremes) {
                    std::string changed = whole;
                    changed.replace(word, 4, Words({extreme}));
                    // A value is read in two steps, its size and its data: they may not agree.
                    for (const int itsTurn : {0, 1, 2}) {
                        (void)askWith(procedure, changed, itsTurn);
                    }
                }
            }
        }
    }
    StartRegistry();
    (void)Ask(ENUM_DEPEND_SERVICE, Words({handle, 3, 10000})); // finds the connection gone
    EXPECT_EQ(Ask(ENUM_DEPEND_SERVICE, Words({handle, 3, 10000})).substr(0, 4), Words({0}));
    Measured("%d spoiled answers of the registry, each client answered", answers);
    DeleteKey(servicesKey);
}

// A service whose answer to a control request is cut at every byte, or has each word at its extremes in turn. Its
// program has the number of this test's process, which the daemon takes for the service's.
TEST_F(Hazard, answers_of_a_service_cut_and_at_their_extremes_bring_nothing_down) {
    WriteOddService("Plain", "plain");
    EXPECT_EQ(StopDaemon(daemon), 0);
    StartDaemon();
    const std::uint32_t handle = HandleOf("Plain");
    ASSERT_EQ(WordOf(Ask(START_SERVICE, Words({handle, 0, 0})), 0), 0U);
    const std::vector<pid_t> services = ChildrenOf(daemon, "odd_service");
    ASSERT_EQ(services.size(), 1U);
    const std::string whole = ServdAnswer(Words({0, 0x10, 4, 5, 0, 0, 0, 0}), 0).substr(4);
    int answers = 0;
    std::string reply;
    std::mutex replyIsChanging;
    {
        const Peer peer(SERVDAEMONPROG + static_cast<std::uint32_t>(services[0]), 1, [&](const std::string &call) {
            const std::lock_guard lock(replyIsChanging);
            return AsMessage(Words({WordOf(call, 0)}) + reply);
        });
        const auto controlWith = [&](std::string spoiledReply) {
            {
                const std::lock_guard lock(replyIsChanging);
                reply = std::move(spoiledReply);
            }
            // It runs and takes everything, so that each control reaches the peer.
            (void)Ask(SET_STATUS_SERVICE, Words({handle, 0x10, 4, 5, 0, 0, 0, 0}));
            const std::string result = Ask(CONTROL_SERVICE, Words({handle, 4}));
            EXPECT_EQ(result.size(), 32U);
            ++answers;
            return WordOf(result, 0);
        };
        EXPECT_EQ(controlWith(whole), 0U);
        for (std::size_t kept = 0; kept < whole.size(); ++kept) {
            EXPECT_EQ(controlWith(whole.substr(0, kept)), std::uint32_t{ERROR_SERVICE_REQUEST_TIMEOUT})
                << "cut at " << kept;
        }
        for (std::size_t word = 0; word < whole.size(); word += 4) {
            for (const std::uint32_t extreme : extremes) {
                std::string changed = whole;
                (void)controlWith(changed.replace(word, 4, Words({extreme})));
            }
        }
    }
    EXPECT_LT(CallMs(), 1000);
    Measured("%d spoiled answers of a service, each client answered", answers);
    (void)kill(services[0], SIGKILL);
    DeleteKey(servicesKey);
}
