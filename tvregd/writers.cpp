// SPDX-License-Identifier: MIT
// writers: asks the kernel for the user of a connection, and the system for the user's groups.
#include "tvregd/writers.h"

#include "rpc/door.h"
#include "rpc/peer_owner.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <optional>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds membershipCounts(5);
constexpr std::size_t maxKnown = 1000; // users; then all are looked up anew

struct Membership {
    bool isMember;
    Clock::time_point until;
};

std::optional<std::string> limitedTo;
std::map<uid_t, Membership> known;

std::optional<uid_t> UserOfRequest() {
    sockaddr_in peer = {}, local = {};
    uid_t user = 0;
    if (!AddressesOfRequest(&peer, &local) || FindPeerOwner(peer, local, &user) != PeerOwner::Known) return {};
    return user;
}

bool IsOwn(uid_t user) { return user == 0 || user == geteuid(); }

bool LookUp(uid_t user, const std::string &group) {
    const struct group *entry = getgrnam(group.c_str());
    if (entry == nullptr) return false;
    const gid_t wanted = entry->gr_gid;
    const passwd *account = getpwuid(user);
    if (account == nullptr) return false;
    std::vector<gid_t> groups(64);
    auto count = static_cast<int>(groups.size());
    if (getgrouplist(account->pw_name, account->pw_gid, groups.data(), &count) < 0) {
        groups.resize(static_cast<std::size_t>(count));
        if (getgrouplist(account->pw_name, account->pw_gid, groups.data(), &count) < 0) return false;
    }
    return std::find(groups.begin(), groups.begin() + count, wanted) != groups.begin() + count;
}

bool IsMember(uid_t user) {
    const auto now = Clock::now();
    const auto found = known.find(user);
    if (found != known.end() && now < found->second.until) return found->second.isMember;
    if (known.size() >= maxKnown) known.clear();
    const bool isMember = LookUp(user, *limitedTo);
    known.insert_or_assign(user, Membership{isMember, now + membershipCounts});
    return isMember;
}

} // namespace

void LimitWriters(const std::string &group) { limitedTo = group; }

bool MayWrite() {
    if (!limitedTo) return true;
    const std::optional<uid_t> user = UserOfRequest();
    return user && (IsOwn(*user) || IsMember(*user));
}

bool IsDaemonsOwn() {
    const std::optional<uid_t> user = UserOfRequest();
    return user && IsOwn(*user);
}
