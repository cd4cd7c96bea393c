// SPDX-License-Identifier: MIT
// similar_names: by the number of letters to change, to add, to leave out and to exchange with their neighbour,
// whatever their case.
#include "util/similar_names.h"

#include <algorithm>
#include <cctype>
#include <numeric>
#include <utility>

namespace {

constexpr std::size_t maxSuggestions = 3;
constexpr std::size_t shortName = 3; // of so few letters one more is another word

int Lower(char c) { return std::tolower(static_cast<unsigned char>(c)); }

// Damerau's distance, without a second change inside an exchange. Three rows of the table are kept: an exchange looks
// two back.
std::size_t EditDistance(const std::string &a, const std::string &b) {
    std::vector<std::size_t> beforeLast, last, row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= a.size(); ++i) {
        beforeLast = std::exchange(last, row);
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const bool same = Lower(a[i - 1]) == Lower(b[j - 1]);
            row[j] = std::min({last[j - 1] + (same ? 0 : 1), last[j] + 1, row[j - 1] + 1});
            const bool exchanged =
                i > 1 && j > 1 && Lower(a[i - 1]) == Lower(b[j - 2]) && Lower(a[i - 2]) == Lower(b[j - 1]);
            if (exchanged) row[j] = std::min(row[j], beforeLast[j - 2] + 1);
        }
    }
    return row.back();
}

// Whether a name is near enough: one change in three letters, and of a short name only where it begins alike.
bool IsNear(const std::string &name, const std::string &candidate, std::size_t distance) {
    if (name.empty() || candidate.empty() || distance > std::max<std::size_t>(1, name.size() / 3)) return false;
    return name.size() > shortName || Lower(name.front()) == Lower(candidate.front());
}

} // namespace

std::vector<std::string> SimilarNames(const std::string &name, const std::vector<std::string> &known) {
    std::vector<std::pair<std::size_t, std::string>> ranked;
    for (const std::string &candidate : known) {
        const std::size_t distance = EditDistance(name, candidate);
        if (IsNear(name, candidate, distance)) ranked.emplace_back(distance, candidate);
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
