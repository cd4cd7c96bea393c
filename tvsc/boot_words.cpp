// SPDX-License-Identifier: MIT
// boot_words: what may surprise about a plan, and how long it may take.
#include "tvsc/boot_words.h"

#include "servd/limits.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <numeric>
#include <set>

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

namespace {

constexpr std::size_t retryPauseSec = retryPauseMs / 1000;
constexpr std::size_t dialSec = newProcessRetriesAtStartUp * retryPauseSec;
constexpr std::size_t sharedDialSec = sharedProcessRetries * retryPauseSec;

std::size_t SecondsToReach(bool triesAnother) { return (triesAnother ? sharedDialSec : 0) + dialSec; }

} // namespace

// Before a service of a shared process gets one of its own, the process that was started for another one of its image
// is tried.
std::vector<std::size_t> WorstCasesSec(const BootDatabase &database, const BootPlan &plan) {
    std::vector<std::size_t> seconds;
    std::set<std::string_view> images; // of the steps before
    for (const BootStep &step : plan.steps) {
        const BootService &service = database.services[step.service];
        const bool isNew = images.insert(service.imagePath).second;
        const bool triesAnother = !isNew && (service.type & SERVICE_WIN32_SHARE_PROCESS) != 0;
        seconds.push_back(SecondsToReach(triesAnother) + serviceCallTimeoutSec);
    }
    return seconds;
}

// A service whose process is not reached stays stopped and is tried again; one whose process is reached and does not
// answer is start pending from then on. When a shared process is tried again, those of later steps may be there.
std::size_t WorstCaseSec(const BootDatabase &database, const BootPlan &plan) {
    std::map<std::string_view, std::size_t> stepsOfImage;
    for (const BootStep &step : plan.steps) {
        ++stepsOfImage[database.services[step.service].imagePath];
    }
    const std::vector<std::size_t> once = WorstCasesSec(database, plan);
    std::size_t seconds = std::accumulate(once.begin(), once.end(), std::size_t{0});
    for (const BootStep &step : plan.steps) {
        const BootService &service = database.services[step.service];
        const bool isShared = (service.type & SERVICE_WIN32_SHARE_PROCESS) != 0;
        const bool triesAnother = isShared && stepsOfImage[service.imagePath] > 1;
        seconds += (step.mostTries - std::min<std::size_t>(step.mostTries, 1)) * SecondsToReach(triesAnother);
    }
    return seconds;
}
