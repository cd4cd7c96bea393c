// SPDX-License-Identifier: MIT
// A storm: hostile, malformed and legitimate traffic from many connections, with services that crash and a registry
// that restarts, beside a probe that calls every procedure but the stop and knows the right answer to each.
//
// TV_STORM_SECONDS tells how long (15 without it). One thread serves everybody and waits for a service that it starts:
// calls behind such a start are checked like any other, but counted apart.
#include "tests/support/hazard.h"

#include "tv/winerror.h"
#include "tv/winreg.h"

#include <signal.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <random>
#include <shared_mutex>
#include <thread>

using namespace raw;

namespace {

int StormSeconds() {
    const char *seconds = std::getenv("TV_STORM_SECONDS");
    return seconds != nullptr ? std::atoi(seconds) : 15;
}

// What the threads share.
struct Weather {
    std::uint16_t port = 0;
    std::atomic<bool> ends = false;
    std::atomic<bool> isRough = false;
    std::atomic<int> startsBegun = 0; // starts of services
    std::atomic<int> startsEnded = 0;
    std::shared_mutex registry; // held alone while the registry daemon is away
    std::atomic<std::uint64_t> hostile = 0;
    std::atomic<std::uint64_t> legitimate = 0;
    std::atomic<int> crashes = 0;
    std::atomic<int> restarts = 0;
};

using Random = std::minstd_rand;

std::uint32_t Below(Random *random, std::size_t bound) {
    return std::uniform_int_distribution<std::uint32_t>(0, static_cast<std::uint32_t>(bound - 1))(*random);
}

const RequestForm &AnyForm(Random *random) { return requestForms[Below(random, std::size(requestForms))]; }

// --- the probe ---

struct Probe {
    Weather *weather;
    pid_t daemon;
    Socket connection;
    std::uint32_t xid = 0;
    // How long calls took, but for the time that the daemon waited for a processor: what else runs on the machine is
    // none of its business.
    std::vector<double> times = {};       // of calls that no start was in the way of
    std::vector<double> timesBehind = {}; // of the others
    int wrong = 0;
    std::string firstWrong = {};

    std::string Ask(std::uint32_t procedure, const std::string &argument) {
        const int begun = weather->startsBegun;
        const bool during = begun != weather->startsEnded;
        const double readyBefore = ReadyMsOf(daemon);
        const Clock::time_point start = Clock::now();
        ++xid;
        const std::string answer =
            Send(connection, AsMessage(ServdCall(procedure, argument, xid))) ? ReadMessage(connection) : std::string();
        const bool behind = during || begun != weather->startsBegun || procedure == START_SERVICE;
        const double taken = MsSince(start);
        (behind ? timesBehind : times).push_back(std::max(taken - (ReadyMsOf(daemon) - readyBefore), 0.0));
        const std::string success = ServdAnswer("", xid);
        if (answer.compare(0, success.size(), success) != 0) Note(procedure, "no answer");
        return answer.substr(std::min(answer.size(), success.size()));
    }

    void Note(std::uint32_t procedure, const std::string &what) {
        if (wrong++ == 0) firstWrong = "procedure " + std::to_string(procedure) + ": " + what;
    }

    // The call must answer these bytes, or begin with them.
    std::string Expect(std::uint32_t procedure, const std::string &argument, const std::string &begin) {
        const std::string result = Ask(procedure, argument);
        if (result.compare(0, begin.size(), begin) != 0) {
            Note(procedure,
                 "status " + std::to_string(WordOf(result, 0)) + " instead of " + std::to_string(WordOf(begin, 0)));
        }
        return result;
    }

    // Procedures that answer from memory.
    void AskMemory(std::uint32_t round) {
        (void)Expect(CONNECT_SERVICE, XdrString("probe"), Words({0}));
        (void)Expect(DUMMY_SERVICE, Words({round}), Words({round + 1}));
        (void)Expect(OPEN_SERVICE, XdrString("nothing") + Words({1}), Words({1060}));
        (void)Expect(LOCK_SERVICE, Words({round + 1}) + XdrString("the probe"), Words({0}));
        (void)Expect(QUERY_LOCK_SERVICE, Words({0}), Words({0, 1}) + XdrString("the probe"));
        (void)Expect(UNLOCK_SERVICE, Words({round + 1}), Words({0}));
        const std::string handle = Expect(OPEN_SERVICE, XdrString("Still") + Words({1}), Words({0})).substr(4);
        const std::string status = Words({0x10, 4, 5, 0, 0, round, 0});
        (void)Expect(SET_STATUS_SERVICE, handle + status, Words({0}));
        (void)Expect(QUERY_STATUS_SERVICE, handle, Words({0}) + status);
        (void)Expect(GET_DISPLAY_SERVICE, XdrString("Still"), Words({0}) + XdrString("Standing still"));
        (void)Expect(GET_KEY_SERVICE, XdrString("Standing still"), Words({0}) + XdrString("Still"));
        (void)Expect(ENUM_STATUS_SERVICE, Words({0, 0x30, 3, 1 << 20}), Words({0, 0, 3, 0, 1}));
        (void)Expect(CLOSE_SERVICE, handle, Words({0}));
    }

    // Procedures that ask the registry.
    void AskRegistry(std::uint32_t round) {
        const std::shared_lock registryIsThere(weather->registry);
        const std::string name = "Probe" + std::to_string(round);
        const std::string created =
            Expect(CREATE_SERVICE,
                   XdrString(name) + XdrString(name) + Words({0x10, 3, 1}) + XdrString("/nowhere") + XdrString("") +
                       Words({0}) + XdrString("") + Words({0}),
                   Words({0}));
        const std::string handle = created.substr(4, 4);
        std::string newName = Words({6});
        for (const char character : std::string("newer", 6)) {
            newName += Words({static_cast<std::uint32_t>(character)});
        }
        (void)Expect(CHANGE_CONFIG_SERVICE, handle + Words({0xFFFFFFFF, 2, 1, 0, 0, 0, 0, 0}) + newName + Words({0}),
                     Words({0}));
        (void)Expect(GET_DISPLAY_SERVICE, XdrString(name), Words({0}) + XdrString("newer"));
        const std::string configuration = Expect(QUERY_CONFIG_SERVICE, handle, Words({0, 0x10, 2, 1}));
        if (configuration.find("/nowhere") == std::string::npos) Note(QUERY_CONFIG_SERVICE, "another image path");
        (void)Expect(ENUM_DEPEND_SERVICE, handle + Words({3, 1000}), Words({0, 0, 0, 0}));
        (void)Expect(CONTROL_SERVICE, handle + Words({4}), Words({ERROR_SERVICE_NOT_ACTIVE}));
        (void)Expect(DELETE_SERVICE, handle, Words({0}));
        (void)Expect(CLOSE_SERVICE, handle, Words({0}));
        (void)Expect(OPEN_SERVICE, XdrString(name) + Words({1}), Words({1060}));
    }

    void AskForStart() {
        const std::shared_lock registryIsThere(weather->registry);
        const std::string handle = Expect(OPEN_SERVICE, XdrString("Prompt") + Words({1}), Words({0})).substr(4);
        ++weather->startsBegun;
        (void)Expect(START_SERVICE, handle + Words({0, 0}), Words({0}));
        ++weather->startsEnded;
        (void)Expect(SET_STATUS_SERVICE, handle + Words({0x10, 1, 0, 0, 0, 0, 0}), Words({0}));
        (void)Expect(CLOSE_SERVICE, handle, Words({0}));
    }

    void Run(int milliseconds, bool withStarts) {
        const Clock::time_point start = Clock::now();
        for (std::uint32_t round = 0; MsSince(start) < milliseconds && wrong == 0; ++round) {
            AskMemory(round);
            AskRegistry(round);
            if (withStarts && round % 20 == 0) AskForStart();
            PauseMs(5);
        }
    }
};

double MedianOf(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

double WorstOf(const std::vector<double> &values) {
    return values.empty() ? 0 : *std::max_element(values.begin(), values.end());
}

// --- the weather ---

// Bytes that are no request, or one that cannot be decoded.
std::string Malformed(Random *random) {
    const RequestForm &form = AnyForm(random);
    Request request = form.make(0xFFFFFFFF, std::string(Below(random, 50), 't'));
    std::string bytes(Below(random, 200), '\0');
    switch (Below(random, 5)) {
    case 0:
        for (char &byte : bytes) {
            byte = static_cast<char>((*random)());
        }
        return bytes;
    case 1: return AsMessage(bytes);
    case 2: return AsMessage(ServdCall(form.procedure, request.bytes.substr(0, request.bytes.size() - 4)));
    case 3:
        for (const std::size_t length : request.lengths) {
            request.bytes.replace(length, 4, Words({0x80000000 | static_cast<std::uint32_t>((*random)())}));
        }
        return AsMessage(ServdCall(form.procedure, request.bytes.substr(0, request.bytes.size() - 4)));
    default:
        return AsMessage(Call(1, SERVDAEMONPROG + Below(random, 2), 1 + Below(random, 3) % 2, 21 + Below(random, 9)));
    }
}

void Attack(Weather *weather, unsigned seed) {
    Random random(seed);
    std::vector<Socket> held; // half requests, unread replies and idlers
    const std::string listing = AsMessage(ServdCall(ENUM_STATUS_SERVICE, Words({0, 0x30, 3, 1 << 20})));
    while (!weather->ends) {
        Socket connection = ConnectTo(weather->port, Below(&random, 4) == 0 ? 4096 : 0);
        for (std::uint32_t i = Below(&random, 5); i > 0; --i) {
            if (!Send(connection, Malformed(&random))) break;
            ++weather->hostile;
        }
        switch (Below(&random, 5)) {
        case 0: Reset(std::move(connection)); break;
        case 1:
            for (int i = 0; i < 200; ++i) {
                (void)Send(connection, listing);
            }
            held.push_back(std::move(connection));
            break;
        case 2:
            (void)Send(connection, listing.substr(0, Below(&random, listing.size())));
            held.push_back(std::move(connection));
            break;
        case 3: held.push_back(std::move(connection)); break;
        default: (void)Send(connection, Words({0x80000000 | (4 << 20)}) + std::string(1 << 20, 'x')); break;
        }
        if (held.size() > 50) held.erase(held.begin(), held.begin() + 25);
        PauseMs(3);
    }
}

void CallAsClient(Weather *weather, unsigned seed) {
    Random random(seed);
    while (!weather->ends) {
        const Socket connection = ConnectTo(weather->port);
        for (std::uint32_t i = Below(&random, 20); i > 0; --i) {
            const std::uint32_t number = static_cast<std::uint32_t>(random());
            if (!Send(connection, AsMessage(ServdCall(DUMMY_SERVICE, Words({number}))) +
                                      AsMessage(ServdCall(ENUM_DEPEND_SERVICE, Words({1, 3, 1000}))))) {
                break;
            }
            if (ReadMessage(connection) == ServdAnswer(Words({number + 1}))) ++weather->legitimate;
            (void)ReadMessage(connection);
        }
        PauseMs(2);
    }
}

// Starts a service and kills its process.
void CrashServices(Weather *weather) {
    while (!weather->ends) {
        const Socket connection = ConnectTo(weather->port);
        const auto ask = [&](std::uint32_t procedure, const std::string &argument) {
            (void)Send(connection, AsMessage(ServdCall(procedure, argument)));
            return ReadMessage(connection).substr(24);
        };
        const std::string handle = ask(OPEN_SERVICE, XdrString("Crashing") + Words({1})).substr(4);
        {
            const std::shared_lock registryIsThere(weather->registry);
            ++weather->startsBegun;
            if (WordOf(ask(START_SERVICE, handle + Words({0, 0})), 0) == 0) ++weather->crashes;
            ++weather->startsEnded;
        }
        (void)ask(SET_STATUS_SERVICE, handle + Words({0x10, 1, 0, 0, 0, 0, 0}));
        (void)ask(CLOSE_SERVICE, handle);
        PauseMs(300);
    }
}

} // namespace

struct Storm : Hazard {
    void SetUp() override {
        WriteOddService("Still", "plain", 3, {{"DisplayName", REG_SZ, Sz("Standing still")}});
        WriteOddService("Prompt", "brief");
        WriteOddService("Crashing", "brief");
        // The C library gives freed memory back at once, so that the resident size tells what is in use.
        StartDaemon({.environment = {"MALLOC_TRIM_THRESHOLD_=131072", "MALLOC_MMAP_THRESHOLD_=131072"}});
    }
};

TEST_F(Storm, every_probe_is_answered_rightly_and_soon) {
    Weather weather;
    weather.port = port;
    Probe quiet = {&weather, daemon, Connect()};
    quiet.Run(1500, false);
    ASSERT_EQ(quiet.wrong, 0) << quiet.firstWrong;
    const std::size_t quietResident = ResidentBytesOf(daemon);

    const int seconds = StormSeconds();
    Probe probe = {&weather, daemon, Connect()};
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 4; ++i) {
        threads.emplace_back(Attack, &weather, 100 + i);
    }
    threads.emplace_back(CallAsClient, &weather, 200);
    threads.emplace_back(CrashServices, &weather);
    threads.emplace_back([&] { probe.Run(seconds * 1000, true); });

    std::vector<double> residentMB;
    const Clock::time_point start = Clock::now();
    for (int tick = 0; MsSince(start) < seconds * 1000; ++tick) {
        PauseMs(100);
        residentMB.push_back(static_cast<double>(ResidentBytesOf(daemon)) / 1e6);
        if (tick % 40 == 30) {
            const std::unique_lock registryIsAway(weather.registry);
            (void)StopDaemon(registry, SIGKILL);
            PauseMs(20);
            StartRegistry();
            // The first operation afterwards finds the connection gone.
            for (int right = 0; right < 2;) {
                right += WordOf(Ask(ENUM_DEPEND_SERVICE, Words({1, 3, 1000})), 0) == 0 ? 1 : 0;
            }
            ++weather.restarts;
        }
    }
    threads.back().join();
    threads.pop_back();
    weather.ends = true;
    for (std::thread &thread : threads) {
        thread.join();
    }

    EXPECT_EQ(probe.wrong, 0) << probe.firstWrong;
    const double quietMedian = MedianOf(quiet.times);
    const double median = MedianOf(probe.times);
    // A sanitizer makes the work of the hostile requests many times what they cost: it looks for faults, not for waits.
    if (!IsSanitized()) {
        EXPECT_LT(median, quietMedian + 1);
    }
    // What is held at any moment follows what the attackers left open, and how far behind a busy machine is: only over
    // a long time the quarters of the second half can be compared, by their medians. What is left when all have gone is
    // the daemon's own.
    const auto half = residentMB.begin() + static_cast<std::ptrdiff_t>(residentMB.size() / 2);
    const auto threeQuarters = residentMB.begin() + static_cast<std::ptrdiff_t>(residentMB.size() * 3 / 4);
    const double third = MedianOf({half, threeQuarters});
    const double fourth = MedianOf({threeQuarters, residentMB.end()});
    if (seconds >= 60) {
        EXPECT_LT(fourth, third + 4);
    }
    (void)WaitUntil([&] { return ResidentBytesOf(daemon) < quietResident + 8 * mebibyte; }, 3000);
    const std::size_t leftResident = ResidentBytesOf(daemon);
    EXPECT_LT(leftResident, quietResident + 8 * mebibyte);
    EXPECT_GT(weather.hostile.load(), static_cast<std::uint64_t>(seconds) * 20);
    Measured("%d s, %llu hostile and %llu legitimate requests, %d starts of services that end, %d registry restarts",
             seconds, static_cast<unsigned long long>(weather.hostile),
             static_cast<unsigned long long>(weather.legitimate), weather.crashes.load(), weather.restarts.load());
    Measured("%zu probes, 0 lost: median %.2f ms (%.2f quiet), worst %.1f ms; %zu behind a start, worst %.0f ms",
             probe.times.size() + probe.timesBehind.size(), median, quietMedian, WorstOf(probe.times),
             probe.timesBehind.size(), WorstOf(probe.timesBehind));
    Measured("resident: median %.1f MB in the third quarter, %.1f MB in the fourth, at most %.1f MB; %.1f MB before, "
             "%.1f MB when all have gone",
             third, fourth, WorstOf(residentMB), static_cast<double>(quietResident) / 1e6,
             static_cast<double>(leftResident) / 1e6);
}

TEST_F(Storm, calls_of_every_kind_leave_nothing_behind) {
    Weather weather;
    weather.port = port;
    Probe probe = {&weather, daemon, Connect()};
    std::uint32_t round = 0;
    const auto askAll = [&] {
        for (int i = 0; i < 10; ++i) {
            probe.AskMemory(round);
        }
        probe.AskRegistry(round++);
        probe.times.clear();
    };
    for (int i = 0; i < 20; ++i) {
        askAll();
    }
    const std::size_t descriptors = DescriptorsOf(daemon);
    const std::size_t resident = ResidentBytesOf(daemon);
    const std::uint32_t before = probe.xid;
    for (int i = 0, rounds = Trials(50, 7200); i < rounds && probe.wrong == 0; ++i) {
        askAll();
    }
    EXPECT_EQ(probe.wrong, 0) << probe.firstWrong;
    EXPECT_LE(DescriptorsOf(daemon), descriptors);
    EXPECT_LT(ResidentBytesOf(daemon), resident + mebibyte);
    Measured("%u calls, all answered rightly: resident %zu KiB before and %zu after, descriptors %zu and %zu",
             probe.xid - before, resident / 1024, ResidentBytesOf(daemon) / 1024, descriptors, DescriptorsOf(daemon));
}
