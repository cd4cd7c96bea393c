// SPDX-License-Identifier: MIT
// dial: handles against peers that answer well, badly, slowly or not at all, and the port mapper absent or stopped.
//
// A peer is a thread that accepts one connection on the loopback interface and does what the test says.
#include "rpc/dial.h"

#include "rpc/record.h"
#include "tests/support/raw_rpc.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <rpc/pmap_clnt.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

using namespace raw;

namespace {

constexpr std::uint32_t someProgram = 0x40001234;
constexpr std::uint32_t unregisteredProgram = 0x40004321;
constexpr timeval halfSecond = {0, 500000};
constexpr timeval tenSeconds = {10, 0};
constexpr std::size_t megabyte = std::size_t{1} << 20;

in_addr Loopback() { return {htonl(INADDR_LOOPBACK)}; }

double SecondsSince(Clock::time_point start) { return MsSince(start) / 1000; }

struct Peer {
    std::uint16_t port;
    std::thread thread;
};

// Starts a peer. `behave` gets the accepted connection, which is closed after it.
Peer StartPeer(std::function<void(int)> behave) {
    Peer peer;
    Socket listener = Listen(&peer.port);
    EXPECT_GE(listener.descriptor, 0);
    peer.thread = std::thread([listener = std::move(listener), behave = std::move(behave)]() mutable {
        const int connection = accept4(listener.descriptor, nullptr, nullptr, SOCK_CLOEXEC);
        listener = Socket();
        behave(connection);
        (void)close(connection);
    });
    return peer;
}

RpcClient Dial(const Peer &peer) { return RpcClient(DialPort(Loopback(), peer.port, someProgram, 1)); }

bool ReadExactly(int connection, char *to, std::size_t bytes) {
    for (std::size_t have = 0; have < bytes;) {
        const ssize_t now = read(connection, to + have, bytes - have);
        if (now <= 0) return false;
        have += static_cast<std::size_t>(now);
    }
    return true;
}

// Reads one call of a single fragment. Returns its words' bytes, empty when the connection is at its end.
std::string ReadCall(int connection) {
    std::uint32_t header = 0;
    if (!ReadExactly(connection, reinterpret_cast<char *>(&header), sizeof header)) return {};
    std::string call(ntohl(header) & 0x7FFFFFFF, '\0');
    return ReadExactly(connection, call.data(), call.size()) ? call : std::string();
}

std::uint32_t XidOf(const std::string &call) { return WordOf(call, 0); }

// A success with one word as its result.
std::string Answer(std::uint32_t xid, std::uint32_t result) { return Words({xid, REPLY, 0, 0, 0, 0, result}); }

bool Send(int connection, const std::string &bytes) {
    return send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

void ReadUntilEnd(int connection) {
    char dump[4096];
    while (read(connection, dump, sizeof dump) > 0) {
    }
}

bool_t CodeWord(XDR *xdrs, std::uint32_t *word) { return CodeField(xdrs, *word); }

clnt_stat CallWord(const RpcClient &client, std::uint32_t argument, std::uint32_t *result, timeval timeout) {
    return clnt_call(client.get(), 12, reinterpret_cast<xdrproc_t>(CodeWord), reinterpret_cast<char *>(&argument),
                     reinterpret_cast<xdrproc_t>(CodeWord), reinterpret_cast<char *>(result), timeout);
}

std::size_t HeapBytes() { return mallinfo2().uordblks; }

} // namespace

// --- good peers ---

TEST(DialPort, a_call_carries_the_header_of_rpc_2_and_its_argument) {
    std::string call;
    Peer peer = StartPeer([&call](int connection) {
        call = ReadCall(connection);
        (void)Send(connection, AsMessage(Answer(XidOf(call), 8)));
    });
    const RpcClient client = Dial(peer);
    ASSERT_NE(client, nullptr);
    std::uint32_t result = 0;
    EXPECT_EQ(CallWord(client, 7, &result, tenSeconds), RPC_SUCCESS);
    peer.thread.join();
    EXPECT_EQ(result, 8U);
    EXPECT_EQ(call.substr(4), Words({CALL, 2, someProgram, 1, 12, AUTH_NONE, 0, AUTH_NONE, 0, 7}));
}

TEST(DialPort, an_answer_in_fragments_and_single_bytes_is_whole) {
    Peer peer = StartPeer([](int connection) {
        const std::string answer = Answer(XidOf(ReadCall(connection)), 99);
        for (std::size_t i = 0; i < answer.size(); ++i) {
            (void)Send(connection, Words({1}) + answer[i]);
            if (i % 5 == 0) PauseMs(2);
        }
        (void)Send(connection, Words({0x80000000}));
    });
    const RpcClient client = Dial(peer);
    std::uint32_t result = 0;
    EXPECT_EQ(CallWord(client, 7, &result, tenSeconds), RPC_SUCCESS);
    EXPECT_EQ(result, 99U);
    peer.thread.join();
}

TEST(DialPort, many_calls_use_one_connection_with_a_new_transaction_id_each) {
    Peer peer = StartPeer([](int connection) {
        for (std::uint32_t last = 0, i = 0; i < 1000; ++i) {
            const std::string call = ReadCall(connection);
            if (i > 0 && XidOf(call) != last + 1) return;
            last = XidOf(call);
            (void)Send(connection, AsMessage(Answer(last, WordOf(call, 10) + 1)));
        }
    });
    const RpcClient client = Dial(peer);
    for (std::uint32_t i = 0; i < 1000; ++i) {
        std::uint32_t result = 0;
        ASSERT_EQ(CallWord(client, i, &result, tenSeconds), RPC_SUCCESS) << i;
        ASSERT_EQ(result, i + 1);
    }
    peer.thread.join();
}

TEST(DialPort, refusals_answer_their_status_and_keep_the_connection) {
    Peer peer = StartPeer([](int connection) {
        for (const std::uint32_t refusal : {PROG_UNAVAIL, PROC_UNAVAIL, GARBAGE_ARGS, SYSTEM_ERR}) {
            (void)Send(connection, AsMessage(Words({XidOf(ReadCall(connection)), REPLY, 0, 0, 0, refusal})));
        }
        (void)Send(connection, AsMessage(Words({XidOf(ReadCall(connection)), REPLY, 1, AUTH_ERROR, AUTH_TOOWEAK})));
        (void)Send(connection, AsMessage(Answer(XidOf(ReadCall(connection)), 1)));
    });
    const RpcClient client = Dial(peer);
    std::uint32_t result = 0;
    EXPECT_EQ(CallWord(client, 7, &result, tenSeconds), RPC_PROGUNAVAIL);
    EXPECT_EQ(CallWord(client, 7, &result, tenSeconds), RPC_PROCUNAVAIL);
    EXPECT_EQ(CallWord(client, 7, &result, tenSeconds), RPC_CANTDECODEARGS);
    EXPECT_EQ(CallWord(client, 7, &result, tenSeconds), RPC_SYSTEMERROR);
    EXPECT_EQ(CallWord(client, 7, &result, tenSeconds), RPC_AUTHERROR);
    EXPECT_EQ(CallWord(client, 7, &result, tenSeconds), RPC_SUCCESS);
    peer.thread.join();
}

TEST(DialPort, the_descriptor_is_closed_on_exec_and_closed_with_the_handle) {
    Peer peer = StartPeer(ReadUntilEnd);
    const std::size_t before = DescriptorsOf(getpid());
    {
        const RpcClient client = Dial(peer);
        int descriptor = -1;
        ASSERT_TRUE(clnt_control(client.get(), CLGET_FD, reinterpret_cast<char *>(&descriptor)));
        EXPECT_NE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0);
    }
    peer.thread.join();
    EXPECT_LE(DescriptorsOf(getpid()), before);
}

// --- bad answers ---

// Symptom: each answer that broke off behind its verifier lost the verifier's memory.
TEST(DialPort, undecodable_answers_fail_and_lose_no_memory) {
    constexpr int rounds = 2000;
    Peer peer = StartPeer([](int connection) {
        for (std::string call; !(call = ReadCall(connection)).empty();) {
            std::string answer = Words({XidOf(call), REPLY, 0, AUTH_SYS, 400}) + std::string(400, 'v');
            (void)Send(connection, AsMessage(answer));
        }
    });
    const RpcClient client = Dial(peer);
    std::uint32_t result = 0;
    EXPECT_EQ(CallWord(client, 1, &result, tenSeconds), RPC_CANTDECODERES);
    const std::size_t before = HeapBytes();
    for (int i = 0; i < rounds; ++i) {
        ASSERT_EQ(CallWord(client, 1, &result, tenSeconds), RPC_CANTDECODERES);
    }
    EXPECT_LT(HeapBytes(), before + std::size_t{40} * rounds);
    (void)shutdown(
        [&client] {
            int descriptor = -1;
            (void)clnt_control(client.get(), CLGET_FD, reinterpret_cast<char *>(&descriptor));
            return descriptor;
        }(),
        SHUT_RDWR);
    peer.thread.join();
}

TEST(DialPort, an_answer_cut_at_every_byte_fails_at_once) {
    const std::size_t whole = Answer(0, 0).size();
    for (std::size_t kept = 0; kept < whole; ++kept) {
        Peer peer = StartPeer([kept](int connection) {
            (void)Send(connection, AsMessage(Answer(XidOf(ReadCall(connection)), 5).substr(0, kept)));
        });
        const RpcClient client = Dial(peer);
        const Clock::time_point start = Clock::now();
        std::uint32_t result = 0;
        EXPECT_NE(CallWord(client, 1, &result, tenSeconds), RPC_SUCCESS) << kept << " bytes";
        EXPECT_LT(SecondsSince(start), 1.0) << kept << " bytes";
        peer.thread.join();
    }
}

TEST(DialPort, an_answer_beyond_the_bound_loses_the_connection) {
    for (const std::size_t limit : {maxReplyBytes, maxShortReplyBytes}) {
        Peer peer = StartPeer([limit](int connection) {
            (void)ReadCall(connection);
            (void)Send(connection, Words({0x80000000 | (static_cast<std::uint32_t>(limit) + 1)}));
            ReadUntilEnd(connection);
        });
        RpcClient client = Dial(peer);
        if (limit != maxReplyBytes) (void)WithReplyLimit(client.get(), limit);
        std::uint32_t result = 0;
        EXPECT_EQ(CallWord(client, 1, &result, tenSeconds), RPC_CANTRECV);
        EXPECT_EQ(CallWord(client, 1, &result, tenSeconds), RPC_CANTSEND);
        peer.thread.join();
    }
}

TEST(DialPort, a_declared_length_within_the_bound_takes_no_memory) {
    for (const std::uint32_t length : {std::uint32_t{maxReplyBytes}, std::uint32_t{maxReplyBytes} / 2}) {
        std::size_t before = 0;
        std::size_t meanwhile = SIZE_MAX;
        Peer peer = StartPeer([&](int connection) {
            const std::string call = ReadCall(connection);
            before = VirtualBytesOf(getpid());
            (void)Send(connection, Words({0x80000000 | length}) + Answer(XidOf(call), 5));
            PauseMs(200);
            meanwhile = VirtualBytesOf(getpid());
            ReadUntilEnd(connection);
        });
        const RpcClient client = Dial(peer);
        std::uint32_t result = 0;
        EXPECT_EQ(CallWord(client, 1, &result, halfSecond), RPC_CANTRECV);
        peer.thread.join();
        EXPECT_LE(meanwhile, before + megabyte) << length;
    }
}

// --- slow peers: the call ends at its time-out ---

TEST(DialPort, a_silent_peer_is_a_timeout_and_its_connection_goes_on) {
    const auto givenUpMs = [] {
        Peer peer = StartPeer([](int connection) {
            (void)ReadCall(connection);
            (void)Send(connection, AsMessage(Answer(XidOf(ReadCall(connection)), 42)));
        });
        const RpcClient client = Dial(peer);
        const Clock::time_point start = Clock::now();
        std::uint32_t result = 0;
        EXPECT_EQ(CallWord(client, 1, &result, halfSecond), RPC_TIMEDOUT);
        const double taken = MsSince(start);
        EXPECT_GT(taken, 450);
        EXPECT_EQ(CallWord(client, 1, &result, tenSeconds), RPC_SUCCESS);
        EXPECT_EQ(result, 42U);
        peer.thread.join();
        return taken;
    };
    EXPECT_LT(BestMs(givenUpMs, 900), 900);
}

// Symptom: a registry that answered each try after its time-out was given up instead of being tried again. Cause: the
// late answer to the first try counted as the noise of a broken peer during the second.
TEST(DialPort, a_late_answer_to_an_earlier_call_leaves_a_slow_peer_usable) {
    Peer peer = StartPeer([](int connection) {
        const std::string first = ReadCall(connection);
        const std::string second = ReadCall(connection);
        (void)Send(connection, AsMessage(Answer(XidOf(first), 1)));
        const std::string third = ReadCall(connection);
        (void)Send(connection, AsMessage(Answer(XidOf(second), 2)));
        (void)Send(connection, AsMessage(Answer(XidOf(third), 3)));
    });
    const RpcClient client = Dial(peer);
    std::uint32_t result = 0;
    EXPECT_EQ(CallWord(client, 1, &result, halfSecond), RPC_TIMEDOUT);
    EXPECT_EQ(CallWord(client, 2, &result, halfSecond), RPC_TIMEDOUT);
    EXPECT_EQ(CallWord(client, 3, &result, tenSeconds), RPC_SUCCESS);
    EXPECT_EQ(result, 3U);
    peer.thread.join();
}

namespace {

// The call against the peer fails as lost within its time-out of half a second, a second at most, and every later call
// at once.
void ExpectLostAtTimeout(std::function<void(int)> behave) {
    Peer peer = StartPeer(std::move(behave));
    RpcClient client = Dial(peer);
    const Clock::time_point start = Clock::now();
    std::uint32_t result = 0;
    EXPECT_EQ(CallWord(client, 1, &result, halfSecond), RPC_CANTRECV);
    EXPECT_GT(SecondsSince(start), 0.45);
    EXPECT_LT(SecondsSince(start), 1.5);
    const auto refusedMs = [&] {
        const Clock::time_point again = Clock::now();
        EXPECT_EQ(CallWord(client, 1, &result, tenSeconds), RPC_CANTSEND);
        return MsSince(again);
    };
    EXPECT_LT(BestMs(refusedMs), promptMs);
    client.reset();
    peer.thread.join();
}

} // namespace

TEST(DialPort, an_answer_byte_by_byte_is_not_waited_for_beyond_the_timeout) {
    ExpectLostAtTimeout([](int connection) {
        const std::string answer = AsMessage(Answer(XidOf(ReadCall(connection)), 1));
        for (const char byte : answer) {
            if (!Send(connection, std::string(1, byte))) return;
            PauseMs(100);
        }
    });
}

TEST(DialPort, one_byte_and_silence_is_not_waited_for_beyond_the_timeout) {
    ExpectLostAtTimeout([](int connection) {
        (void)ReadCall(connection);
        (void)Send(connection, "x");
        ReadUntilEnd(connection);
    });
}

TEST(DialPort, answers_to_nobody_are_not_waited_for_beyond_the_timeout) {
    ExpectLostAtTimeout([](int connection) {
        const std::uint32_t xid = XidOf(ReadCall(connection));
        while (Send(connection, AsMessage(Answer(xid + 1000, 1)))) {
            PauseMs(20);
        }
    });
}

TEST(DialPort, endless_empty_fragments_are_not_waited_for_beyond_the_timeout) {
    ExpectLostAtTimeout([](int connection) {
        (void)ReadCall(connection);
        const std::string fragments(std::size_t{1} << 16, '\0');
        while (Send(connection, fragments)) {
        }
    });
}

TEST(DialPort, a_peer_that_reads_slowly_is_not_sent_to_beyond_the_timeout) {
    Peer peer = StartPeer([](int connection) {
        char few[2048];
        for (int i = 0; i < 300 && read(connection, few, sizeof few) > 0; ++i) {
            PauseMs(5);
        }
    });
    RpcClient client = Dial(peer);
    CountedBytes argument = {std::uint32_t{16} << 20, nullptr};
    const HeapText bytes(static_cast<char *>(std::calloc(argument.count, 1)));
    argument.bytes = bytes.get();
    const auto code = [](XDR *xdrs, CountedBytes *counted) -> bool_t { return CodeField(xdrs, *counted); };
    bool_t (*routine)(XDR *, CountedBytes *) = code;
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(clnt_call(client.get(), 1, reinterpret_cast<xdrproc_t>(routine), reinterpret_cast<char *>(&argument),
                        reinterpret_cast<xdrproc_t>(xdr_nothing), nullptr, halfSecond),
              RPC_CANTSEND);
    EXPECT_LT(SecondsSince(start), 1.5);
    client.reset();
    peer.thread.join();
}

// --- dead peers ---

TEST(DialPort, a_peer_that_leaves_is_lost_and_raises_no_signal) {
    for (const bool reset : {false, true}) {
        Peer peer = StartPeer([reset](int connection) {
            (void)ReadCall(connection);
            const linger atOnce = {reset ? 1 : 0, 0};
            (void)setsockopt(connection, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
        });
        const RpcClient client = Dial(peer);
        std::uint32_t result = 0;
        EXPECT_EQ(CallWord(client, 1, &result, tenSeconds), RPC_CANTRECV);
        peer.thread.join();
        EXPECT_EQ(CallWord(client, 1, &result, tenSeconds), RPC_CANTSEND);
    }
}

TEST(DialPort, sending_to_a_peer_that_has_gone_raises_no_signal) {
    ASSERT_EQ(signal(SIGPIPE, SIG_DFL), SIG_DFL) << "the signal would not end this process";
    std::atomic<bool> dialled = false;
    Peer peer = StartPeer([&dialled](int connection) {
        dialled.wait(false); // a reset before the handle is made would be a failed connect
        const linger atOnce = {1, 0};
        (void)setsockopt(connection, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    });
    const RpcClient client = Dial(peer);
    dialled = true;
    dialled.notify_one();
    peer.thread.join();
    ASSERT_NE(client, nullptr);
    std::uint32_t result = 0;
    const clnt_stat status = CallWord(client, 1, &result, tenSeconds);
    EXPECT_TRUE(status == RPC_CANTSEND || status == RPC_CANTRECV) << status;
    EXPECT_EQ(CallWord(client, 1, &result, tenSeconds), RPC_CANTSEND);
}

// --- connecting ---

TEST(DialPort, nobody_listening_fails_at_once) {
    std::uint16_t port = 0;
    (void)Listen(&port); // and closed at once
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(DialPort(Loopback(), port, someProgram, 1), nullptr);
    EXPECT_LT(SecondsSince(start), 0.5);
}

TEST(DialPort, a_full_accept_queue_is_waited_for_five_seconds) {
    std::uint16_t port = 0;
    const Socket listener = Listen(&port, 0);
    std::vector<RpcClient> waiting;
    Clock::time_point start = Clock::now();
    for (int i = 0; i < 10; ++i) {
        start = Clock::now();
        waiting.emplace_back(DialPort(Loopback(), port, someProgram, 1));
        if (waiting.back() == nullptr) break;
    }
    EXPECT_EQ(waiting.back(), nullptr);
    EXPECT_GT(SecondsSince(start), 4.5);
    EXPECT_LT(SecondsSince(start), 6.0);
}

// A port at which nobody is accepted any more: its queue is full.
struct FullPort {
    std::uint16_t port = 0;
    raw::Socket listener = Listen(&port, 0);
    std::vector<RpcClient> waiting;

    FullPort() {
        do {
            waiting.emplace_back(DialPort(Loopback(), port, someProgram, 1, 200));
        } while (waiting.back() != nullptr);
    }
};

TEST(DialPort, a_budget_ends_the_wait_for_a_full_accept_queue) {
    const FullPort full;
    for (const int budgetMs : {300, 0, -1}) {
        const Clock::time_point start = Clock::now();
        EXPECT_EQ(DialPort(Loopback(), full.port, someProgram, 1, budgetMs), nullptr);
        EXPECT_EQ(errno, ETIMEDOUT);
        EXPECT_GT(SecondsSince(start), budgetMs / 1000.0 - 0.05);
        EXPECT_LT(SecondsSince(start), 1.0);
    }
}

TEST(ResolveHost, localhost_is_the_loopback_address_where_nothing_can_be_looked_up) {
    char folder[] = "/tmp/dial_test.XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    const pid_t child = fork();
    if (child == 0) {
        if (chroot(folder) != 0) _exit(2);
        in_addr address = {};
        _exit(ResolveHost("localhost", &address) && address.s_addr == htonl(INADDR_LOOPBACK) ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    (void)rmdir(folder);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(ResolveHost, finds_this_host_and_not_an_unknown_one) {
    in_addr address = {};
    EXPECT_TRUE(ResolveHost("localhost", &address));
    EXPECT_EQ(ntohl(address.s_addr), INADDR_LOOPBACK);
    EXPECT_FALSE(ResolveHost("no-such-host", &address));
    EXPECT_EQ(DialHost("no-such-host", someProgram, 1), nullptr);
}

// --- the port mapper ---

TEST(DialProgram, reaches_a_registered_program_and_no_other) {
    Peer peer =
        StartPeer([](int connection) { (void)Send(connection, AsMessage(Answer(XidOf(ReadCall(connection)), 11))); });
    ASSERT_TRUE(pmap_set(someProgram, 1, IPPROTO_TCP, peer.port));
    const RpcClient client(DialProgram(Loopback(), someProgram, 1));
    ASSERT_NE(client, nullptr);
    std::uint32_t result = 0;
    EXPECT_EQ(CallWord(client, 1, &result, tenSeconds), RPC_SUCCESS);
    peer.thread.join();
    EXPECT_EQ(DialProgram(Loopback(), unregisteredProgram, 1), nullptr);
    EXPECT_TRUE(pmap_unset(someProgram, 1));
}

TEST(DialProgram, a_thousand_failing_and_good_connects_leave_nothing_behind) {
    std::uint16_t port = 0;
    const Socket listener = Listen(&port, 128);
    std::atomic<bool> ends = false;
    std::thread acceptor([&] {
        for (int connection = 0; !ends && connection >= 0;) {
            connection = accept4(listener.descriptor, nullptr, nullptr, SOCK_CLOEXEC);
            (void)close(connection);
        }
    });
    ASSERT_TRUE(pmap_set(someProgram, 1, IPPROTO_TCP, port));
    const auto dialBoth = [] {
        EXPECT_EQ(DialHost("localhost", unregisteredProgram, 1), nullptr);
        EXPECT_NE(RpcClient(DialHost("localhost", someProgram, 1)), nullptr);
    };
    dialBoth();
    const std::size_t descriptors = DescriptorsOf(getpid());
    const std::size_t heap = HeapBytes();
    for (int i = 0; i < 1000; ++i) {
        dialBoth();
    }
    EXPECT_LE(DescriptorsOf(getpid()), descriptors + 1) << "the acceptor may hold one";
    EXPECT_LT(HeapBytes(), heap + 8192);
    EXPECT_TRUE(pmap_unset(someProgram, 1));
    ends = true;
    (void)RpcClient(DialPort(Loopback(), port, someProgram, 1));
    acceptor.join();
}

TEST(DialProgram, a_stopped_port_mapper_is_waited_for_ten_seconds) {
    const pid_t portMapper = ProcessNamed("rpcbind");
    ASSERT_GT(portMapper, 0);
    ASSERT_EQ(kill(portMapper, SIGSTOP), 0);
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(DialProgram(Loopback(), someProgram, 1), nullptr);
    EXPECT_GT(SecondsSince(start), 9.5);
    EXPECT_LT(SecondsSince(start), 11.0);
    ASSERT_EQ(kill(portMapper, SIGCONT), 0);
    EXPECT_NE(RpcClient(DialPortMapper(Loopback())), nullptr);
}

// Symptom: a service's start held the daemon for 185 seconds beside a port mapper that hung, and for 96 beside a
// process that accepted nobody. Cause: each of sixteen attempts had the time-outs of a single one.
TEST(DialProgram, a_budget_holds_for_port_mapper_and_program_together) {
    const FullPort full;
    ASSERT_TRUE(pmap_set(someProgram, 1, IPPROTO_TCP, full.port));
    Clock::time_point start = Clock::now();
    EXPECT_EQ(DialProgram(Loopback(), someProgram, 1, 600), nullptr);
    EXPECT_GT(SecondsSince(start), 0.5);
    EXPECT_LT(SecondsSince(start), 1.5);
    EXPECT_TRUE(pmap_unset(someProgram, 1));

    const pid_t portMapper = ProcessNamed("rpcbind");
    ASSERT_GT(portMapper, 0);
    const RpcClient reached(DialPortMapper(Loopback()));
    ASSERT_EQ(kill(portMapper, SIGSTOP), 0);
    start = Clock::now();
    EXPECT_EQ(DialProgram(Loopback(), someProgram, 1, 600), nullptr);
    EXPECT_EQ(PortOfProgram(reached.get(), someProgram, 1, 600), 0);
    EXPECT_EQ(PortOfProgram(reached.get(), someProgram, 1, 0), 0);
    EXPECT_EQ(DialOwnPortMapper(0), nullptr);
    EXPECT_GT(SecondsSince(start), 1.1);
    EXPECT_LT(SecondsSince(start), 2.5);
    ASSERT_EQ(kill(portMapper, SIGCONT), 0);
}

// The last test of this program: the port mapper does not come back.
TEST(DialProgram, without_a_port_mapper_it_fails_at_once) {
    const pid_t portMapper = ProcessNamed("rpcbind");
    ASSERT_GT(portMapper, 0);
    ASSERT_EQ(kill(portMapper, SIGKILL), 0);
    const Clock::time_point start = Clock::now();
    while (RpcClient(DialPortMapper(Loopback())) != nullptr && SecondsSince(start) < 5) {
        PauseMs(5);
    }
    const Clock::time_point gone = Clock::now();
    EXPECT_EQ(DialProgram(Loopback(), someProgram, 1), nullptr);
    EXPECT_LT(SecondsSince(gone), 0.5);
}
