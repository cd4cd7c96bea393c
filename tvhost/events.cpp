// SPDX-License-Identifier: MIT
// events: eventfds, and the handlers that write to them.
#include "tvhost/events.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <deque>
#include <mutex>

namespace {

Events events;
std::mutex guard; // the queue
std::deque<DWORD> queue;

// Async-signal-safe, unlike eventfd_write's promise.
void WriteEvent(int event) {
    const int error = errno;
    const std::uint64_t one = 1;
    (void)!write(event, &one, sizeof one);
    errno = error;
}

void StopOnSignal(int) { WriteEvent(events.stopAsked); }
void NoteChild(int) { WriteEvent(events.childEnded); }

void Handle(int signal, void (*handler)(int), int flags) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART | flags;
    (void)sigaction(signal, &action, nullptr);
}

int OpenParent() {
    const pid_t parent = getppid();
    const auto descriptor = static_cast<int>(syscall(SYS_pidfd_open, parent, 0)); // declared for C only
    if (descriptor >= 0 && getppid() == parent) return descriptor;
    if (descriptor >= 0) (void)close(descriptor);
    return -1;
}

} // namespace

bool OpenEvents() {
    events.stopAsked = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    events.childEnded = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    events.controls = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    events.daemonEnded = OpenParent();
    if (events.stopAsked < 0 || events.childEnded < 0 || events.controls < 0) return false;
    Handle(SIGTERM, StopOnSignal, 0);
    Handle(SIGINT, StopOnSignal, 0);
    Handle(SIGCHLD, NoteChild, SA_NOCLDSTOP);
    return true;
}

const Events &TheEvents() { return events; }

void AskToStop() { WriteEvent(events.stopAsked); }

bool IsStopAsked() { return IsReadable(events.stopAsked); }

void QueueControl(DWORD control) {
    const std::lock_guard<std::mutex> locked(guard);
    queue.push_back(control);
    WriteEvent(events.controls);
}

bool TakeControl(DWORD *control) {
    const std::lock_guard<std::mutex> locked(guard);
    ClearEvent(events.controls);
    if (queue.empty()) return false;
    *control = queue.front();
    queue.pop_front();
    if (!queue.empty()) WriteEvent(events.controls);
    return true;
}

bool IsReadable(int descriptor, int timeoutMs) {
    pollfd waited = {descriptor, POLLIN, 0};
    return poll(&waited, 1, timeoutMs) > 0;
}

bool AwaitOrStop(int happened) {
    pollfd waited[] = {{events.stopAsked, POLLIN, 0}, {happened, POLLIN, 0}};
    while (poll(waited, 2, -1) <= 0) {
    }
    return waited[0].revents != 0;
}

void ClearEvent(int event) {
    eventfd_t count = 0;
    (void)eventfd_read(event, &count); // it does not block
}
