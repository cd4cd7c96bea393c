// SPDX-License-Identifier: MIT
// sampling: how a call is measured beside its floor.
//
// Machines are noisy, so the two take turns: in each of several rounds the floor is sampled, then the call, and what is
// judged is the median over the rounds of each round's own ratio. Times are in microseconds.
#pragma once

#include <sys/types.h>

#include <functional>
#include <vector>

// What one round, or the median over all rounds, shows of one side.
struct Figures {
    double median = 0;    // of the calls' times
    double p99 = 0;       // their 99th percentile
    double serverCpu = 0; // processor time that the server spent for each call, all its threads; 0 when not measured
    double p10 = 0;       // their 10th percentile: hardly anything came in between
};

// Something to measure: a call, and the process that answers it (0: its processor time is not asked for).
struct Side {
    std::function<void()> call;
    pid_t server = 0;
};

struct Comparison {
    Figures measured;
    Figures floor;
    double ratio = 0;    // of the times
    double cpuRatio = 0; // of the servers' processor times; 0 when one of them was not measured
};

double Median(std::vector<double> values);
double Percentile(std::vector<double> values, double percent);

// Monotonic time, and the processor time that a process has spent so far.
double NowUs();
double CpuUs(pid_t process);

Figures SampleRound(const Side &side, int samples);
Comparison CompareInRounds(const Side &measured, const Side &floor, int rounds, int samples);

// The medians of figures and ratios that were taken round by round.
Comparison Summarise(const std::vector<Figures> &measured, const std::vector<Figures> &floor);

// Where this process and the servers that it measures run: all on the first processor; the servers on the second one,
// so that each call wakes both; wherever the kernel places them.
enum class Placement { together, apart, anywhere };
const char *SettingOf(Placement placement); // "pinned", "apart", "unpinned"

// Places this process and the servers, all threads of each.
void Place(Placement placement, const std::vector<pid_t> &servers);
