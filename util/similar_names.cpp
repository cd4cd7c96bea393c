// SPDX-License-Identifier: MIT
// similar_names: by the number of letters to change, to add and to leave out, whatever their case.
#include "util/similar_names.h"

#include <algorithm>
#include <cctype>
#include <numeric>
#include <utility>

namespace {

constexpr std::size_t maxSuggestions = 3;

int Lower(char c) { return std::tolower(static_cast<unsigned char>(c)); }

std::size_t EditDistance(const std::string &a, const std::string &b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::size_t diagonal = row[0]++;
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t replaced = diagonal + (Lower(a[i]) == Lower(b[j]) ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

} // namespace

std::vector<std::string> SimilarNames(const std::string &name, const std::vector<std::string> &known) {
    std::vector<std::pair<std::size_t, std::string>> ranked;
    for (const std::string &candidate : known) {
        const std::size_t distance = EditDistance(name, candidate);
        if (distance <= std::max<std::size_t>(1, name.size() / 3)) ranked.emplace_back(distance, candidate);
    }
    std::sort(ranked.begin(), ranked.end());
    if (ranked.size() > maxSuggestions) ranked.resize(maxSuggestions);
    std::vector<std::string> similar;
    similar.reserve(ranked.size());
    for (auto &[distance, candidate] : ranked) {
        similar.push_back(candidate);
    }
    return similar;
}
