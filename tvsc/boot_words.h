// SPDX-License-Identifier: MIT
// boot_words: a plan of the daemon's automatic start in words and numbers.
#pragma once

#include "tvsc/boot_plan.h"

[[nodiscard]] std::string RemarkText(const BootRemark &remark);

// The seconds that each step of a plan may hold the daemon when it is tried once.
[[nodiscard]] std::vector<std::size_t> WorstCasesSec(const BootDatabase &database, const BootPlan &plan);

// The seconds that the starts of a plan take when each fails as late and as often as it may; at least those of all its
// steps.
[[nodiscard]] std::size_t WorstCaseSec(const BootDatabase &database, const BootPlan &plan);
