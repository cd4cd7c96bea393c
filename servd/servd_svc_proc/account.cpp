// SPDX-License-Identifier: MIT
// account: the Unix user of a service, read before the fork and taken on after it.
//
// Reads:   "DependOnService", which holds the user's name.
// Thread:  main thread; BecomeAccount in the child, where nothing may be allocated.
#include "servd/servd_svc_proc/account.h"

#include "servd/checked_memory.h"
#include "servd/servd_svc_proc/values.h"
#include "servd/service_keys.h"
#include "servd/win32_code.h"
#include "tv/winerror.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

namespace {

constexpr std::size_t accountBytes = 1024; // for the texts of an account

const passwd *FindUser(const char *name, passwd *user, char (&texts)[accountBytes]) {
    passwd *found = nullptr;
    (void)getpwnam_r(name, user, texts, sizeof texts, &found);
    return found;
}

// Fills in the groups of an account. False when they cannot be found out.
bool FindGroups(const passwd &user, Account *account) {
    int count = 0;
    (void)getgrouplist(user.pw_name, user.pw_gid, nullptr, &count);
    account->groups.reset(static_cast<gid_t *>(CheckedCalloc(static_cast<std::size_t>(count) + 1, sizeof(gid_t))));
    account->groupCount = count + 1;
    account->group = user.pw_gid;
    account->hasGroups = true;
    return getgrouplist(user.pw_name, user.pw_gid, account->groups.get(), &account->groupCount) >= 0;
}

} // namespace

Account ReadAccount(HKEY serviceKey) {
    Account account = {};
    TextBuffer name = {};
    const Win32Code rc = ReadText(serviceKey, accountValue, name);
    account.usable = rc == ERROR_SUCCESS || rc == ERROR_FILE_NOT_FOUND;
    if (rc != ERROR_SUCCESS) return account;

    const std::uint32_t user = GetUserIDFromName(name);
    account.isNamed = true;
    account.user = user;
    account.usable = user != unknownUser;
    if (!account.usable || name[0] == '\0' || geteuid() != 0) return account;
    passwd record = {};
    char texts[accountBytes];
    const passwd *found = FindUser(name, &record, texts);
    account.usable = found != nullptr && FindGroups(*found, &account);
    return account;
}

bool BecomeAccount(const Account &account) {
    if (!account.usable) return false;
    if (account.hasGroups && (setgroups(static_cast<std::size_t>(account.groupCount), account.groups.get()) != 0 ||
                              setgid(account.group) != 0)) {
        return false;
    }
    return !account.isNamed || setuid(account.user) == 0;
}

std::uint32_t GetUserIDFromName(const char *name) {
    if (name == nullptr || *name == '\0') return 0;
    passwd user = {};
    char texts[accountBytes];
    const passwd *found = FindUser(name, &user, texts);
    return found == nullptr ? unknownUser : found->pw_uid;
}
