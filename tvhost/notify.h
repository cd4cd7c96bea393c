// SPDX-License-Identifier: MIT
// notify: the socket on which a program tells of itself, by the sd_notify protocol.
//
// NOTIFY_SOCKET in its environment names a datagram socket; each datagram is lines of NAME=VALUE. The socket has a name
// that the kernel has chosen, and no file. The kernel tells who sent a datagram: only what has come of this process,
// and what is of its user or root's, is to be heard; a short-lived sender may be gone when its word is taken.
// Descriptors that come along are closed, which also is the answer that a barrier waits for.
#pragma once

#include <sys/socket.h>
#include <sys/types.h>

#include <string>
#include <vector>

struct NotifySocket {
    int descriptor = -1;
    std::string address; // for NOTIFY_SOCKET
};

// Opens one. Returns why it cannot be had, empty when it is.
[[nodiscard]] std::string OpenNotifySocket(NotifySocket *socket);
void CloseNotifySocket(NotifySocket *socket);

struct Notification {
    bool ready = false;
    pid_t mainProcess = 0; // "MAINPID"; 0 when it is not told
    std::string status;    // "STATUS"
    bool hasStatus = false;
    unsigned long long extendUs = 0; // "EXTEND_TIMEOUT_USEC"; 0 when it is not told
};

// What the lines of a datagram tell; those that mean nothing here are passed over.
[[nodiscard]] Notification ParseNotification(const std::string &text);

// Takes a datagram without waiting. Returns false when there is none.
//   sender  process 0 where the kernel does not tell
[[nodiscard]] bool TakeNotification(const NotifySocket &socket, std::string *text, ucred *sender);
