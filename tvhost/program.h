// SPDX-License-Identifier: MIT
// program: the child process that a hosted program runs in.
//
// It leads a process group of its own and is asked to end when tvhost dies without a word. Its standard input is empty;
// it inherits no descriptor of tvhost but its output.
#pragma once

#include "tvhost/parameters.h"
#include "util/launch.h"

#include <signal.h>
#include <sys/types.h>

// Why a program could not be started, or how it ended, as a service reports it.
struct ExitCodes {
    DWORD win32 = 0;
    DWORD specific = 0; // with 1066 ERROR_SERVICE_SPECIFIC_ERROR
};

struct StartFailure {
    ExitCodes codes;
    std::string text; // for people: what could not be used, and why
};

// What a child of ours is given beside its parameters.
struct Surroundings {
    int output = -1, error = -1;               // descriptors; -1: ours
    int group = -1;                            // "cgroup.procs" of the control group to join; -1: ours
    std::vector<std::string> environment = {}; // NAME=VALUE, on top of everything
    pid_t sharesTmpWith = 0;                   // whose private /tmp is this one's; 0: it gets one of its own
    int signalAtOurDeath = SIGTERM;
};

// Starts it. Returns its process id, or 0 and the reason. What takes its output may be a file, a device or a FIFO that
// somebody reads; nothing is waited for.
//   startArguments  added behind the configured arguments
//   onItsWay        may be null; tells of the child until it has become the program. Whoever kills it then ends the
//                   wait, and the child has ended when its process id is returned.
// To be called by a thread that outlives the child: the child is signalled when that thread ends.
[[nodiscard]] pid_t StartProgram(const HostParameters &parameters, const std::vector<std::string> &startArguments,
                                 const Surroundings &surroundings, StartFailure *failure,
                                 ChildOnItsWay *onItsWay = nullptr);

// Starts a command that goes with the program, from a line of one of the parameters; its output goes to the
// surroundings only. The same otherwise.
[[nodiscard]] pid_t StartCommand(const HostParameters &parameters, const std::string &commandLine,
                                 const Surroundings &surroundings, StartFailure *failure);

// What a failed system call of the start means: 2, 3, 5, 8 or 193, else 1066 with the errno.
[[nodiscard]] ExitCodes CodesOfErrno(int error);
// What an end means: 0 for status 0, else 1066 with the status, or with 128 + N when signal N ended it. After a stop
// that was asked for, an end by the signals that ask for it is a good one.
//   stopSignal  besides SIGKILL
[[nodiscard]] ExitCodes CodesOfEnd(int waitStatus, bool stopAsked, int stopSignal = SIGTERM);
// The same for people: "ended with status 3", "ended by signal 11 (Segmentation fault)".
[[nodiscard]] std::string TextOfEnd(int waitStatus);

// The signal of a name, with SIG in front or without, or of a number; 0 when there is none.
[[nodiscard]] int SignalOf(const std::string &text);

// The environment of the program: ours, changed by NAME=VALUE strings; NAME= takes a variable away.
[[nodiscard]] std::vector<std::string> MergedEnvironment(const std::vector<std::string> &own,
                                                         const std::vector<std::string> &changes);
