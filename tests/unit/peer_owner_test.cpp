// SPDX-License-Identifier: MIT
// peer_owner: what the kernel tells of connections of this process.
#include "rpc/peer_owner.h"

#include "util/guard.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

namespace {

// Both ways of asking must tell the same.
using Ask = PeerOwner (*)(const sockaddr_in &, const sockaddr_in &, uid_t *);
constexpr uid_t unset = 77777;

int LoopbackSocket() {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in any = {AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    EXPECT_EQ(bind(descriptor, reinterpret_cast<const sockaddr *>(&any), sizeof any), 0);
    return descriptor;
}

sockaddr_in AddressOf(int descriptor) {
    sockaddr_in address = {};
    socklen_t length = sizeof address;
    EXPECT_EQ(getsockname(descriptor, reinterpret_cast<sockaddr *>(&address), &length), 0);
    return address;
}

struct PeerOwnerTest : testing::TestWithParam<Ask> {
    int listener = LoopbackSocket();
    int client = LoopbackSocket();
    int accepted = -1;
    sockaddr_in peer = AddressOf(client);
    sockaddr_in local = AddressOf(listener);
    uid_t owner = unset;
    const DescriptorGuard listenerClosed{&listener};
    const DescriptorGuard acceptedClosed{&accepted};

    void SetUp() override {
        ASSERT_EQ(listen(listener, 1), 0);
        ASSERT_EQ(connect(client, reinterpret_cast<const sockaddr *>(&local), sizeof local), 0);
        accepted = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        ASSERT_GE(accepted, 0);
    }
    void TearDown() override {
        if (client >= 0) close(client);
    }
    void CloseClient() {
        close(client);
        client = -1;
    }
};

TEST_P(PeerOwnerTest, a_connection_belongs_to_who_made_it) {
    ASSERT_EQ(GetParam()(peer, local, &owner), PeerOwner::Known);
    EXPECT_EQ(owner, geteuid());
}

TEST_P(PeerOwnerTest, a_connection_of_another_user_belongs_to_him) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can give a socket away";
    ASSERT_EQ(fchown(client, 65534, 65534), 0);
    ASSERT_EQ(GetParam()(peer, local, &owner), PeerOwner::Known);
    EXPECT_EQ(owner, 65534u);
}

// The kernel gives them to user 0.
TEST_P(PeerOwnerTest, a_connection_that_was_closed_belongs_to_nobody) {
    CloseClient();
    EXPECT_EQ(GetParam()(peer, local, &owner), PeerOwner::Nobody);
    EXPECT_EQ(owner, unset);
}

TEST_P(PeerOwnerTest, a_half_closed_connection_still_belongs_to_its_maker) {
    ASSERT_EQ(shutdown(client, SHUT_WR), 0);
    EXPECT_EQ(GetParam()(peer, local, &owner), PeerOwner::Known);
}

TEST_P(PeerOwnerTest, a_listening_socket_on_the_same_port_does_not_stand_in_for_it) {
    const int on = 1;
    ASSERT_EQ(setsockopt(client, SOL_SOCKET, SO_LINGER, &(const linger &)linger{1, 0}, sizeof(linger)), 0);
    CloseClient(); // with a reset: nothing of it is left
    int other = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const DescriptorGuard otherClosed(&other);
    ASSERT_EQ(setsockopt(other, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on), 0);
    ASSERT_EQ(bind(other, reinterpret_cast<const sockaddr *>(&peer), sizeof peer), 0);
    ASSERT_EQ(listen(other, 1), 0);
    EXPECT_NE(GetParam()(peer, local, &owner), PeerOwner::Known);
    EXPECT_EQ(owner, unset);
}

INSTANTIATE_TEST_SUITE_P(Kernel, PeerOwnerTest, testing::Values(AskSocketDiagnosis, AskConnectionTable, FindPeerOwner));

} // namespace
