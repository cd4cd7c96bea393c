// SPDX-License-Identifier: MIT
// program: the child process that a hosted program runs in.
//
// It leads a process group of its own, so that a signal reaches what it has started too, and it is asked to end when
// tvhost dies without a word. Its standard input is empty; it inherits no descriptor of tvhost but its output.
#pragma once

#include "tvhost/parameters.h"
#include "util/launch.h"

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

// Starts it. Returns its process id, or 0 and the reason. What takes its output may be a file, a device or a FIFO that
// somebody reads; nothing is waited for.
//   startArguments  added behind the configured arguments
//   onItsWay        may be null; tells of the child until it has become the program. Whoever kills it then ends the
//                   wait, and the child has ended when its process id is returned.
// To be called by a thread that outlives the child: the child ends with that thread.
[[nodiscard]] pid_t StartProgram(const HostParameters &parameters, const std::vector<std::string> &startArguments,
                                 StartFailure *failure, ChildOnItsWay *onItsWay = nullptr);

// Signals the program and everything in its group. The program must not have been taken with TakeEnd.
void SignalProgram(pid_t program, int signal);

// Takes the end of a program that has ended, and ends what is left of its group. Returns the status as of waitpid.
[[nodiscard]] int TakeEnd(pid_t program);

// What a failed system call of the start means: 2, 3, 5, 8 or 193, else 1066 with the errno.
[[nodiscard]] ExitCodes CodesOfErrno(int error);
// What an end means: 0 for status 0, else 1066 with the status, or with 128 + N when signal N ended it. After a stop
// that was asked for, an end by the signals that ask for it is a good one.
[[nodiscard]] ExitCodes CodesOfEnd(int waitStatus, bool stopAsked);

// The environment of the program: ours, changed by NAME=VALUE strings; NAME= takes a variable away.
[[nodiscard]] std::vector<std::string> MergedEnvironment(const std::vector<std::string> &own,
                                                         const std::vector<std::string> &changes);
