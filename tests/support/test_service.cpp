// SPDX-License-Identifier: MIT
// test_service: a service process that does as its options say and writes down what it sees.
//
//   test_service LOG [OPTION...]
//     --delay MS      wait before registering the program
//     --answer CODE   the status of the answer to a start request
//     --context N     the service context of that answer
//     --silent        never answer it
//     --exit          end without registering
//     --exit-started  end once a start request has been answered
//
// One line a fact is appended to LOG, in one write each time: at once "pid", "uid", "gid", "groups", "signals"
// (blocked, ignored, caught), "shell", "arguments" and a "descriptor" line each, then "ready"; and for every start
// request "start NAME INDEX ARGC [ARGUMENT...]", for every control "control CONTEXT CODE".
#include "servd/service_xdr.h"

#include <fcntl.h>
#include <grp.h>
#include <rpc/pmap_clnt.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

struct Options {
    std::string log;
    int delayMs = 0;
    std::int32_t answer = 0;
    std::int32_t context = 0;
    bool silent = false;
    bool exits = false;
    bool exitsOnceStarted = false;
};

Options options;

void Log(const std::string &text) {
    const int file = open(options.log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0666);
    if (file < 0 || write(file, text.data(), text.size()) != static_cast<ssize_t>(text.size())) _exit(9);
    close(file);
}

std::string SignalMasks() {
    std::ifstream file("/proc/self/status");
    std::string masks;
    for (std::string line; std::getline(file, line);) {
        for (const char *name : {"SigBlk:\t", "SigIgn:\t", "SigCgt:\t"}) {
            if (line.starts_with(name)) masks += " " + line.substr(std::strlen(name));
        }
    }
    return masks;
}

std::string Groups() {
    std::vector<gid_t> groups(1024);
    groups.resize(static_cast<std::size_t>(getgroups(static_cast<int>(groups.size()), groups.data())));
    std::string text;
    for (const gid_t group : groups) {
        text += " " + std::to_string(group);
    }
    return text;
}

std::string Descriptors() {
    std::string text;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone; // the one that lists the folder
        const std::string target = std::filesystem::read_symlink(entry.path(), gone);
        if (!gone && !target.starts_with("/proc/")) {
            text += "descriptor " + entry.path().filename().string() + " " + target + "\n";
        }
    }
    return text;
}

void LogProcess(int argc, char **argv) {
    const char *shell = std::getenv("SHELL");
    std::string text = "pid " + std::to_string(getpid()) + "\nuid " + std::to_string(getuid()) + "\ngid " +
                       std::to_string(getgid()) + "\ngroups" + Groups() + "\nsignals" + SignalMasks() + "\nshell " +
                       (shell == nullptr ? "" : shell) + "\narguments";
    for (int index = 1; index < argc; index++) {
        text += std::string(" ") + argv[index];
    }
    Log(text + "\n" + Descriptors() + "ready\n");
}

void ParseOptions(int argc, char **argv) {
    options.log = argv[1];
    for (int index = 2; index < argc; index++) {
        const std::string option = argv[index];
        const auto number = [&] { return std::atoi(argv[++index]); };
        if (option == "--delay") {
            options.delayMs = number();
        } else if (option == "--answer") {
            options.answer = number();
        } else if (option == "--context") {
            options.context = number();
        } else if (option == "--silent") {
            options.silent = true;
        } else if (option == "--exit") {
            options.exits = true;
        } else if (option == "--exit-started") {
            options.exitsOnceStarted = true;
        } else {
            std::exit(8);
        }
    }
}

void AnswerStart(SVCXPRT *transport) {
    service_START_SERVICE_IN request = {};
    if (!svc_getargs(transport, RoutineOf<service_START_SERVICE_IN>(), &request)) std::exit(7);
    std::string text = std::string("start ") + request.servicename + " " + std::to_string(request.serviceindex) + " " +
                       std::to_string(request.argc);
    for (const svc_arglist_t *link = request.arglist; link != nullptr; link = link->next) {
        text += std::string(" ") + link->arg;
    }
    Log(text + "\n");
    if (options.silent) return;
    service_START_SERVICE_OUT answer = {.status = options.answer, .servicecontext = options.context};
    svc_sendreply(transport, RoutineOf<service_START_SERVICE_OUT>(), &answer);
    if (options.exitsOnceStarted) std::exit(0);
}

void AnswerControl(SVCXPRT *transport) {
    service_CONTROL_SERVICE_IN request = {};
    if (!svc_getargs(transport, RoutineOf<service_CONTROL_SERVICE_IN>(), &request)) std::exit(7);
    Log("control " + std::to_string(request.servicecontext) + " " + std::to_string(request.control) + "\n");
    service_CONTROL_SERVICE_OUT answer = {};
    svc_sendreply(transport, RoutineOf<service_CONTROL_SERVICE_OUT>(), &answer);
}

void Dispatch(svc_req *request, SVCXPRT *transport) {
    switch (request->rq_proc) {
    case NULLPROC: AnswerNullProcedure(transport); return;
    case SERVICE_PROC_START: AnswerStart(transport); return;
    case SERVICE_PROC_CONTROL: AnswerControl(transport); return;
    default: svcerr_noproc(transport);
    }
}

} // namespace

// Built with a sanitizer, it is to catch no signals either: they would show among those that it writes down. What the
// library leaks at its end is no concern of the tests.
extern "C" const char *__asan_default_options() {
    return "handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_abort=0:handle_sigill=0:detect_leaks=0";
}
extern "C" const char *__tsan_default_options() { return "handle_segv=0:handle_sigbus=0:handle_sigfpe=0"; }

int main(int argc, char **argv) {
    if (argc < 2) return 8;
    ParseOptions(argc, argv);
    LogProcess(argc, argv);
    if (options.exits) return 0;
    usleep(static_cast<useconds_t>(options.delayMs) * 1000);
    const u_long program = SERVDAEMONPROG + static_cast<std::uint32_t>(getpid());
    SVCXPRT *transport = svctcp_create(RPC_ANYSOCK, 0, 0);
    pmap_unset(program, 1);
    if (transport == nullptr || !svc_register(transport, program, 1, Dispatch, IPPROTO_TCP)) return 6;
    svc_run();
    return 5;
}
