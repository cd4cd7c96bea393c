// SPDX-License-Identifier: MIT
// notify: one datagram at a time.
#include "tvhost/notify.h"

#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <sstream>

namespace {

constexpr std::size_t longestDatagram = 64 * 1024;
constexpr std::size_t mostDescriptors = 253; // the kernel's own limit of one datagram

// Takes what came along with a datagram: who sent it, and descriptors, which are closed.
ucred TakeAncillary(msghdr *message) {
    ucred sender = {};
    for (cmsghdr *part = CMSG_FIRSTHDR(message); part != nullptr; part = CMSG_NXTHDR(message, part)) {
        if (part->cmsg_level != SOL_SOCKET) continue;
        if (part->cmsg_type == SCM_CREDENTIALS) {
            std::memcpy(&sender, CMSG_DATA(part), sizeof sender);
        } else if (part->cmsg_type == SCM_RIGHTS) {
            const std::size_t count = (part->cmsg_len - CMSG_LEN(0)) / sizeof(int);
            for (std::size_t i = 0; i < count; ++i) {
                int descriptor = -1;
                std::memcpy(&descriptor, CMSG_DATA(part) + i * sizeof(int), sizeof descriptor);
                (void)close(descriptor);
            }
        }
    }
    return sender;
}

} // namespace

std::string OpenNotifySocket(NotifySocket *socket) {
    socket->descriptor = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const int on = 1;
    socklen_t bytes = sizeof(sa_family_t); // no name: the kernel finds one
    bool isOpen = socket->descriptor >= 0 &&
                  bind(socket->descriptor, reinterpret_cast<const sockaddr *>(&address), bytes) == 0 &&
                  setsockopt(socket->descriptor, SOL_SOCKET, SO_PASSCRED, &on, sizeof on) == 0;
    bytes = sizeof address;
    isOpen = isOpen && getsockname(socket->descriptor, reinterpret_cast<sockaddr *>(&address), &bytes) == 0;
    if (!isOpen) {
        const std::string why = std::strerror(errno);
        CloseNotifySocket(socket);
        return "no socket for NOTIFY_SOCKET: " + why;
    }
    // Its first byte is zero, for which the variable has an @.
    socket->address = "@" + std::string(address.sun_path + 1, bytes - offsetof(sockaddr_un, sun_path) - 1);
    return "";
}

void CloseNotifySocket(NotifySocket *socket) {
    if (socket->descriptor >= 0) (void)close(socket->descriptor);
    socket->descriptor = -1;
}

Notification ParseNotification(const std::string &text) {
    Notification told;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t sign = line.find('=');
        if (sign == std::string::npos) continue;
        const std::string name = line.substr(0, sign), value = line.substr(sign + 1);
        if (name == "READY") told.ready = value == "1";
        if (name == "MAINPID") told.mainProcess = static_cast<pid_t>(std::strtol(value.c_str(), nullptr, 10));
        if (name == "EXTEND_TIMEOUT_USEC") told.extendUs = std::strtoull(value.c_str(), nullptr, 10);
        if (name != "STATUS") continue;
        told.status = value;
        told.hasStatus = true;
    }
    return told;
}

bool TakeNotification(const NotifySocket &socket, std::string *text, ucred *sender) {
    text->assign(longestDatagram, '\0');
    iovec place = {text->data(), text->size()};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred)) + CMSG_SPACE(mostDescriptors * sizeof(int))];
    msghdr message = {};
    message.msg_iov = &place;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t bytes = recvmsg(socket.descriptor, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (bytes < 0) return false;
    text->resize(static_cast<std::size_t>(bytes));
    *sender = TakeAncillary(&message);
    return true;
}
