// SPDX-License-Identifier: MIT
// sampling: clocks, pinned threads, and medians of ratios.
#include "bench/measure/sampling.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace {

double ReadClockUs(clockid_t clock) {
    timespec now = {};
    if (clock_gettime(clock, &now) != 0) throw std::runtime_error("a clock cannot be read");
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

double RatioOf(double value, double floor) { return floor > 0 ? value / floor : 0; }

cpu_set_t Processors(std::size_t first, std::size_t end) {
    cpu_set_t processors;
    CPU_ZERO(&processors);
    for (std::size_t processor = first; processor < end; ++processor) {
        CPU_SET(processor, &processors);
    }
    return processors;
}

void PinThreads(pid_t process, const cpu_set_t &processors) {
    for (const auto &thread : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
        const int id = std::stoi(thread.path().filename());
        if (sched_setaffinity(id, sizeof processors, &processors) != 0) throw std::runtime_error("cannot pin a thread");
    }
}

} // namespace

double Percentile(std::vector<double> values, double percent) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    const double last = static_cast<double>(values.size() - 1);
    return values[static_cast<std::size_t>(std::lround(last * percent / 100))];
}

double Median(std::vector<double> values) { return Percentile(std::move(values), 50); }

double NowUs() { return ReadClockUs(CLOCK_MONOTONIC); }

double CpuUs(pid_t process) {
    clockid_t clock = 0;
    if (clock_getcpuclockid(process, &clock) != 0) throw std::runtime_error("a server has ended");
    return ReadClockUs(clock);
}

Figures SampleRound(const Side &side, int samples) {
    std::vector<double> times(static_cast<std::size_t>(samples));
    for (int i = 0; i < samples / 10 + 1; ++i) {
        side.call(); // warms up
    }
    const double cpuBefore = side.server != 0 ? CpuUs(side.server) : 0;
    for (double &time : times) {
        const double begin = NowUs();
        side.call();
        time = NowUs() - begin;
    }
    const double cpu = side.server != 0 ? (CpuUs(side.server) - cpuBefore) / samples : 0;
    return {Median(times), Percentile(times, 99), cpu, Percentile(times, 10)};
}

Comparison Summarise(const std::vector<Figures> &measured, const std::vector<Figures> &floor) {
    const auto medianOf = [](const std::vector<Figures> &rounds, double Figures::*figure) {
        std::vector<double> values;
        for (const Figures &round : rounds) {
            values.push_back(round.*figure);
        }
        return Median(values);
    };
    const auto summaryOf = [&](const std::vector<Figures> &rounds) {
        return Figures{medianOf(rounds, &Figures::median), medianOf(rounds, &Figures::p99),
                       medianOf(rounds, &Figures::serverCpu), medianOf(rounds, &Figures::p10)};
    };
    std::vector<double> ratios, cpuRatios;
    for (std::size_t i = 0; i < measured.size(); ++i) {
        ratios.push_back(RatioOf(measured[i].median, floor[i].median));
        cpuRatios.push_back(RatioOf(measured[i].serverCpu, floor[i].serverCpu));
    }
    return {summaryOf(measured), summaryOf(floor), Median(ratios), Median(cpuRatios)};
}

Comparison CompareInRounds(const Side &measured, const Side &floor, int rounds, int samples) {
    std::vector<Figures> measuredRounds, floorRounds;
    for (int i = 0; i < rounds; ++i) {
        floorRounds.push_back(SampleRound(floor, samples));
        measuredRounds.push_back(SampleRound(measured, samples));
    }
    return Summarise(measuredRounds, floorRounds);
}

const char *SettingOf(Placement placement) {
    switch (placement) {
    case Placement::together: return "pinned";
    case Placement::apart: return "apart";
    case Placement::anywhere: return "unpinned";
    }
    return "";
}

void Place(Placement placement, const std::vector<pid_t> &servers) {
    const auto count = static_cast<std::size_t>(sysconf(_SC_NPROCESSORS_ONLN));
    PinThreads(getpid(), placement == Placement::anywhere ? Processors(0, count) : Processors(0, 1));
    for (const pid_t server : servers) {
        const std::size_t first = placement == Placement::apart && count > 1 ? 1 : 0;
        PinThreads(server, placement == Placement::anywhere ? Processors(0, count) : Processors(first, first + 1));
    }
}
