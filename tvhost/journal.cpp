// SPDX-License-Identifier: MIT
// journal: one datagram a line. A field is NAME=VALUE and an end of line, or, where the value may hold ends of lines,
// the name, an end of line, the length of the value in eight bytes, the lowest first, the value and an end of line.
#include "tvhost/journal.h"

#include "util/guard.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

namespace {

void AddField(std::string *datagram, const char *name, std::string_view value) {
    *datagram += name;
    datagram->push_back('\n');
    for (unsigned shift = 0; shift < 64; shift += 8) {
        datagram->push_back(static_cast<char>(std::uint64_t{value.size()} >> shift & 0xFF));
    }
    *datagram += value;
    datagram->push_back('\n');
}

msghdr MessageTo(sockaddr_un *address) {
    address->sun_family = AF_UNIX;
    std::memcpy(address->sun_path, journalSocketPath, sizeof journalSocketPath);
    msghdr message = {};
    message.msg_name = address;
    message.msg_namelen = sizeof *address;
    return message;
}

// Sends a descriptor of a file that holds the datagram.
bool SendAsFile(int socket, const std::string &datagram) {
    int file = memfd_create("tvhost-line", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (file < 0) return false;
    const DescriptorGuard closed(&file);
    if (write(file, datagram.data(), datagram.size()) != static_cast<ssize_t>(datagram.size())) return false;
    (void)fcntl(file, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL); // it takes no other
    sockaddr_un address = {};
    msghdr message = MessageTo(&address);
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof file)] = {};
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr *const part = CMSG_FIRSTHDR(&message);
    part->cmsg_level = SOL_SOCKET;
    part->cmsg_type = SCM_RIGHTS;
    part->cmsg_len = CMSG_LEN(sizeof file);
    std::memcpy(CMSG_DATA(part), &file, sizeof file);
    return sendmsg(socket, &message, MSG_NOSIGNAL) >= 0;
}

} // namespace

int OpenJournal() {
    if (access(journalSocketPath, W_OK) != 0) return -1;
    return socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
}

bool SendToJournal(int socket, const std::string &serviceName, int priority, std::string_view line) {
    std::string datagram;
    AddField(&datagram, "SYSLOG_IDENTIFIER", serviceName);
    AddField(&datagram, "TV_SERVICE", serviceName);
    AddField(&datagram, "PRIORITY", std::to_string(priority));
    AddField(&datagram, "MESSAGE", line);
    sockaddr_un address = {};
    msghdr message = MessageTo(&address);
    iovec place = {datagram.data(), datagram.size()};
    message.msg_iov = &place;
    message.msg_iovlen = 1;
    while (sendmsg(socket, &message, MSG_NOSIGNAL) < 0) {
        if (errno == EMSGSIZE || errno == ENOBUFS) return SendAsFile(socket, datagram);
        if (errno != EINTR) return false;
    }
    return true;
}
