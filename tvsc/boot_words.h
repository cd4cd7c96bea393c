// SPDX-License-Identifier: MIT
// boot_words: a plan of the daemon's automatic start in words and numbers.
#pragma once

#include "tvsc/boot_plan.h"

[[nodiscard]] std::string RemarkText(const BootRemark &remark);

// The seconds that the starts of a plan take when each fails as late and as often as it may.
[[nodiscard]] std::size_t WorstCaseSec(const BootPlan &plan);
