// SPDX-License-Identifier: MIT
// account_mask: told by how it begins.
#include "tvsc/account_mask.h"

#include <algorithm>

bool IsMasked(std::string_view account) {
    return account.starts_with(accountMask) &&
           (account.size() == accountMask.size() || account[accountMask.size()] == ':');
}

std::string WithoutMask(const std::string &account) {
    return !IsMasked(account) ? account : account.substr(std::min(account.size(), accountMask.size() + 1));
}
