// SPDX-License-Identifier: MIT
// scripted_daemon: libtirpc's server in a thread, with scripts for procedures.
#include "tests/support/scripted_daemon.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace {

std::mutex guard; // scripts and called
std::map<std::uint32_t, ScriptedAnswer> scripts;
std::vector<std::uint32_t> called;
std::atomic<bool> isStarting;
std::thread &server = *new std::thread; // never destroyed: forked children of tests exit while it runs
int wake = -1;

void Dispatch(svc_req *request, SVCXPRT *transport) {
    if (request->rq_proc == NULLPROC) {
        if (!isStarting) AnswerNullProcedure(transport);
        return;
    }
    ScriptedAnswer answer;
    {
        const std::lock_guard<std::mutex> locked(guard);
        called.push_back(request->rq_proc);
        const auto found = scripts.find(request->rq_proc);
        if (found != scripts.end()) answer = found->second;
    }
    if (answer) {
        answer(transport);
    } else {
        svcerr_noproc(transport);
    }
}

void BreakConnections(SVCXPRT *listener) {
    svc_unregister(SERVDAEMONPROG, SERVDAEMONVERS);
    const int listening = listener->xp_fd;
    SVC_DESTROY(listener);
    for (int i = 0; i < svc_max_pollfd; ++i) {
        pollfd broken = svc_pollfd[i];
        if (broken.fd < 0 || broken.fd == listening) continue;
        (void)shutdown(broken.fd, SHUT_RDWR);
        broken.revents = POLLIN;
        svc_getreq_poll(&broken, 1);
    }
}

void Serve(SVCXPRT *listener) {
    for (;;) {
        std::vector<pollfd> polled(svc_pollfd, svc_pollfd + svc_max_pollfd);
        polled.push_back({wake, POLLIN, 0});
        const int ready = poll(polled.data(), polled.size(), -1);
        if (polled.back().revents != 0) break;
        polled.pop_back();
        if (ready > 0) svc_getreq_poll(polled.data(), ready);
    }
    BreakConnections(listener);
}

} // namespace

void StartScriptedDaemon() {
    SVCXPRT *listener = svctcp_create(RPC_ANYSOCK, 0, 0);
    if (listener == nullptr || !svc_register(listener, SERVDAEMONPROG, SERVDAEMONVERS, Dispatch, IPPROTO_TCP)) {
        throw std::runtime_error("the scripted daemon cannot be registered");
    }
    (void)fcntl(listener->xp_fd, F_SETFD, FD_CLOEXEC);
    wake = eventfd(0, EFD_CLOEXEC);
    server = std::thread(Serve, listener);
}

void StopScriptedDaemon() {
    if (!server.joinable()) return;
    eventfd_write(wake, 1);
    server.join();
    close(wake);
}

void ForgetScripts() {
    const std::lock_guard<std::mutex> locked(guard);
    scripts.clear();
    called.clear();
}

std::vector<std::uint32_t> ProceduresCalled() {
    const std::lock_guard<std::mutex> locked(guard);
    return called;
}

void SetStarting(bool starting) { isStarting = starting; }

void SetScript(std::uint32_t procedure, ScriptedAnswer answer) {
    const std::lock_guard<std::mutex> locked(guard);
    scripts[procedure] = std::move(answer);
}
