// SPDX-License-Identifier: MIT
// similar_names: what a name that means nothing may have been meant as.
#pragma once

#include <string>
#include <vector>

// Names of `known` that `name` may have been meant as, the nearest first, three at most.
[[nodiscard]] std::vector<std::string> SimilarNames(const std::string &name, const std::vector<std::string> &known);
