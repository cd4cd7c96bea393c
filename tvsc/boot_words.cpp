// SPDX-License-Identifier: MIT
// boot_words: what may surprise about a plan, and how long it may take.
#include "tvsc/boot_words.h"

#include "servd/limits.h"

#include <fmt/format.h>

std::string RemarkText(const BootRemark &remark) {
    switch (remark.kind) {
    case BootRemarkKind::disabled: return fmt::format("disabled, but started, since {} needs it", remark.text);
    case BootRemarkKind::noImage: return "has no image path: its start fails";
    case BootRemarkKind::ring: return fmt::format("depends on itself ({}): the walk ends there", remark.text);
    case BootRemarkKind::unknownService:
        return fmt::format("depends on {}, which does not exist: passed over", remark.text);
    case BootRemarkKind::emptyGroup:
        return fmt::format("depends on group {}, which is empty: passed over", remark.text);
    case BootRemarkKind::unreadable: return "its dependencies cannot be read: the walk ends there";
    case BootRemarkKind::groupOrder:
        return fmt::format("comes after {}, whose group is a later one: the order of groups is not followed",
                           remark.text);
    case BootRemarkKind::masked: return "masked: not started, and nobody can start it";
    }
    return "";
}

// A service whose process is not reached stays stopped and is tried again; one whose process is reached and does not
// answer is start pending from then on.
std::size_t WorstCaseSec(const BootPlan &plan) {
    return plan.mostTries * newProcessRetriesAtStartUp * (retryPauseMs / 1000) +
           plan.steps.size() * serviceCallTimeoutSec;
}
