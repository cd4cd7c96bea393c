// SPDX-License-Identifier: MIT
// peer_owner: asks the kernel for the socket at the other end.
//
// The netlink question is for one socket (sock_diag(7), no dump). Its look-up falls back to a listening socket on the
// same port, whosever that is, and a socket that no process holds any more is said to be of user 0: an answer counts
// only for a socket that is connected to ours, and that has an inode.
#include "rpc/peer_owner.h"

#include "util/guard.h"

#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>

namespace {

struct Question {
    nlmsghdr header;
    inet_diag_req_v2 request;
};

struct Answer {
    nlmsghdr header;
    union {
        inet_diag_msg socket;
        nlmsgerr error;
    };
    char attributes[512]; // none is asked for
};

Question QuestionFor(const sockaddr_in &from, const sockaddr_in &to) {
    Question question = {};
    question.header.nlmsg_len = sizeof question;
    question.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    question.header.nlmsg_flags = NLM_F_REQUEST;
    question.request.sdiag_family = AF_INET;
    question.request.sdiag_protocol = IPPROTO_TCP;
    question.request.idiag_states = ~0u;
    question.request.id.idiag_sport = from.sin_port;
    question.request.id.idiag_dport = to.sin_port;
    question.request.id.idiag_src[0] = from.sin_addr.s_addr;
    question.request.id.idiag_dst[0] = to.sin_addr.s_addr;
    question.request.id.idiag_cookie[0] = question.request.id.idiag_cookie[1] = INET_DIAG_NOCOOKIE;
    return question;
}

// Returns 0 and what the kernel tells of the socket that is connected so; ENOENT also where it knows no such question.
int Diagnose(const sockaddr_in &from, const sockaddr_in &to, inet_diag_msg *socketFound) {
    int kernel = socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG);
    if (kernel < 0) return errno;
    const DescriptorGuard closed(&kernel);
    const Question question = QuestionFor(from, to);
    Answer answer = {};
    // Nobody else sends to a netlink socket that has no address yet, and the kernel answers before send returns.
    if (send(kernel, &question, sizeof question, 0) < 0 || recv(kernel, &answer, sizeof answer, MSG_DONTWAIT) < 0) {
        return errno;
    }
    if (answer.header.nlmsg_type == NLMSG_ERROR) return -answer.error.error;
    if (answer.header.nlmsg_type != SOCK_DIAG_BY_FAMILY || answer.socket.id.idiag_dport != to.sin_port) return ENOENT;
    *socketFound = answer.socket;
    return 0;
}

using File = std::unique_ptr<FILE, Calls<&std::fclose>>;

} // namespace

PeerOwner FindPeerOwner(const sockaddr_in &peer, const sockaddr_in &local, uid_t *owner) {
    const PeerOwner found = AskSocketDiagnosis(peer, local, owner);
    return found != PeerOwner::Unasked ? found : AskConnectionTable(peer, local, owner);
}

PeerOwner AskSocketDiagnosis(const sockaddr_in &peer, const sockaddr_in &local, uid_t *owner) {
    inet_diag_msg found = {};
    const int rc = Diagnose(peer, local, &found);
    if (rc == 0 && found.idiag_inode != 0) {
        *owner = found.idiag_uid;
        return PeerOwner::Known;
    }
    // Our own end is there for certain: whether it is found tells whether the question is known.
    return rc == 0 || Diagnose(local, peer, &found) == 0 ? PeerOwner::Nobody : PeerOwner::Unasked;
}

PeerOwner AskConnectionTable(const sockaddr_in &peer, const sockaddr_in &local, uid_t *owner) {
    const File table(std::fopen("/proc/net/tcp", "re"));
    if (table == nullptr) return PeerOwner::Unasked;
    char line[256];
    while (std::fgets(line, sizeof line, table.get()) != nullptr) {
        unsigned from = 0, fromPort = 0, to = 0, toPort = 0, user = 0;
        unsigned long inode = 0;
        const int fields = std::sscanf(line, "%*d: %8X:%4X %8X:%4X %*X %*X:%*X %*X:%*X %*X %u %*d %lu", &from,
                                       &fromPort, &to, &toPort, &user, &inode);
        if (fields != 6 || from != peer.sin_addr.s_addr || fromPort != ntohs(peer.sin_port) ||
            to != local.sin_addr.s_addr || toPort != ntohs(local.sin_port)) {
            continue;
        }
        if (inode == 0) return PeerOwner::Nobody;
        *owner = user;
        return PeerOwner::Known;
    }
    return PeerOwner::Nobody;
}
