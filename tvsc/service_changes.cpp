// SPDX-License-Identifier: MIT
// service_changes: both looks side by side.
#include "tvsc/service_changes.h"

#include <tuple>

namespace {

auto WhatCounts(const ServiceView &view) {
    const SERVICE_STATUS &status = view.service.status;
    return std::make_tuple(status.dwCurrentState, status.dwWin32ExitCode, status.dwServiceSpecificExitCode,
                           view.process.process, view.process.isGone);
}

} // namespace

std::vector<ServiceChange> ChangesBetween(const ViewsByName &before, const ViewsByName &after) {
    std::vector<ServiceChange> changes;
    auto old = before.begin();
    auto present = after.begin();
    while (old != before.end() || present != after.end()) {
        if (present == after.end() || (old != before.end() && old->first < present->first)) {
            changes.push_back({ChangeKind::disappeared, old->second, std::nullopt});
            ++old;
        } else if (old == before.end() || present->first < old->first) {
            changes.push_back({ChangeKind::appeared, std::nullopt, present->second});
            ++present;
        } else {
            const bool isSame = WhatCounts(old->second) == WhatCounts(present->second);
            if (!isSame) changes.push_back({ChangeKind::changed, old->second, present->second});
            ++old;
            ++present;
        }
    }
    return changes;
}
