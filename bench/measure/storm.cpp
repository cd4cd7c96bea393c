// SPDX-License-Identifier: MIT
// storm: the status query of one client while others send what is no request, leave half of one, read no reply, reset
// their connections and fill the daemon's buffers.
#include "bench/measure/crowd.h"
#include "bench/measure/rows.h"
#include "bench/measure/servers.h"
#include "tests/support/xdr_bytes.h"
#include "tv/winsvc.h"

#include <sys/socket.h>

#include <atomic>
#include <random>
#include <thread>

namespace {

constexpr int attackers = 4;
constexpr std::size_t mostHeld = 50; // connections that an attacker leaves open
constexpr int unreadListings = 200;
constexpr int oversizedBytes = 4 << 20;

using Random = std::minstd_rand;

std::uint32_t Below(Random &random, std::uint32_t bound) { return static_cast<std::uint32_t>(random()) % bound; }

// A connection that is closed with a reset when its turn comes, so that the port is free at once.
void Reset(int connection) {
    const linger atOnce = {1, 0};
    (void)setsockopt(connection, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    (void)close(connection);
}

// As much as the daemon takes: it may have closed the connection.
void SendSome(int connection, const std::string &bytes) {
    (void)send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

std::string Noise(Random &random) {
    std::string bytes(Below(random, 200), '\0');
    for (char &byte : bytes) {
        byte = static_cast<char>(random());
    }
    return Below(random, 2) == 0 ? bytes : Words({0x80000000 | static_cast<std::uint32_t>(bytes.size())}) + bytes;
}

void Attack(std::uint16_t port, unsigned seed, const std::atomic<bool> &ends) {
    Random random(seed);
    std::vector<int> held;
    const std::string listing = RpcCall(SERVDAEMONPROG, SERVDAEMONVERS, ENUM_STATUS_SERVICE,
                                        Words({0, SERVICE_WIN32, SERVICE_STATE_ALL, 1 << 20}));
    const std::string oversized = Words({0x80000000 | oversizedBytes}) + std::string(oversizedBytes / 4, 'x');
    while (!ends) {
        const int connection = ConnectTo(port);
        for (std::uint32_t i = Below(random, 5); i > 0; --i) {
            SendSome(connection, Noise(random));
        }
        switch (Below(random, 4)) {
        case 0:
            for (int i = 0; i < unreadListings; ++i) {
                SendSome(connection, listing);
            }
            break;
        case 1:
            SendSome(connection, listing.substr(0, Below(random, static_cast<std::uint32_t>(listing.size()))));
            break;
        case 2: SendSome(connection, oversized); break;
        default: break;
        }
        held.push_back(connection);
        if (held.size() > mostHeld) {
            Reset(held.front());
            held.erase(held.begin());
        }
        SleepMs(3);
    }
    for (const int connection : held) {
        Reset(connection);
    }
}

// With few services the lists that nobody reads are short; with many each of them is work for the daemon.
void MeasureStormWith(Bench &bench, int services) {
    const Daemons daemons = StartDaemons(MakeRegistry(services));
    const RpcClient client = DialServiceDaemon();
    const Side probe = {[&] { (void)CallForAnswer(client.get(), servd_SERV_QUERY_STATUS_SERVICE{1}); }, daemons.servd};
    const std::uint16_t port = PortOf(SERVDAEMONPROG, SERVDAEMONVERS);
    std::vector<Figures> quiet, stormy;
    for (int round = 0; round < bench.rounds; ++round) {
        quiet.push_back(SampleRound(probe, Samples(bench, 2000)));
        std::atomic<bool> ends = false;
        std::vector<std::thread> threads;
        for (unsigned i = 0; i < attackers; ++i) {
            threads.emplace_back([&, i] { Attack(port, 100 + i, ends); });
        }
        SleepMs(100);
        stormy.push_back(SampleRound(probe, Samples(bench, 2000)));
        ends = true;
        for (std::thread &thread : threads) {
            thread.join();
        }
    }
    const Comparison result = Summarise(stormy, quiet);
    AddRow(bench, {"status query in a storm",
                   Thousands(services) + " services",
                   result.measured,
                   result.floor,
                   {"99th percentile, ms", result.measured.p99 / 1000, 10.0}});
    StopDaemons(daemons);
}

} // namespace

void MeasureStorm(Bench &bench) {
    if (!bench.isWanted("status query in a storm")) return;
    for (const int services : {3, 1000}) {
        MeasureStormWith(bench, services);
    }
}
