// SPDX-License-Identifier: MIT
// spellings: one table, a row for each option of each command.
#include "tvreg/spellings.h"

#include "util/ktl_strings.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace {

enum class Takes { nothing, one, perhapsOne };

struct Spelling {
    const char *commands; // with a blank around each
    const char *win32;    // without slash or dash
    const char *ours;
    Takes takes = Takes::nothing;
    const char *oursAlone = nullptr; // where it takes perhaps one, and there is none
};

constexpr Spelling spellings[] = {
    {" query ", "v", "--value", Takes::perhapsOne, "--names"},
    {" add delete compare ", "v", "--value", Takes::one},
    {" query add delete compare ", "ve", "--ve"},
    {" delete ", "va", "--va"},
    {" query ", "s", "--recursive"},
    {" copy compare ", "s", "--recursive"},
    {" add ", "s", "--separator", Takes::one},
    {" query ", "se", "--se", Takes::one},
    {" query ", "f", "--find", Takes::one},
    {" query ", "k", "--keys"},
    {" query ", "d", "--in-data"},
    {" query ", "c", "--case"},
    {" query ", "e", "--exact"},
    {" query ", "z", "--type-numbers"},
    {" query ", "t", "--type", Takes::one},
    {" add ", "t", "--type", Takes::one},
    {" add ", "d", "--data", Takes::one},
    {" add delete copy ", "f", "--force"},
    {" export save ", "y", "--yes"},
    {" compare ", "oa", "--oa"},
    {" compare ", "od", "--od"},
    {" compare ", "os", "--os"},
    {" compare ", "on", "--on"},
    {" query add delete copy compare export import ", "reg:32", ""}, // there is one registry, for both word sizes
    {" query add delete copy compare export import ", "reg:64", ""},
};

bool IsOf(const Spelling &spelling, const std::string &command) {
    return std::strstr(spelling.commands, (" " + command + " ").c_str()) != nullptr;
}

const Spelling *Find(const std::string &command, const std::string &argument) {
    if (argument.size() < 2 || (argument[0] != '/' && argument[0] != '-')) return nullptr;
    const auto found = std::find_if(std::begin(spellings), std::end(spellings), [&](const Spelling &spelling) {
        if (!IsOf(spelling, command)) return false;
        // A single letter behind a dash is ours as it is, small: -v and -V are two.
        if (argument[0] == '-' && std::strlen(spelling.win32) == 1) return argument.substr(1) == spelling.win32;
        return _ktl_strcasecmp(argument.c_str() + 1, spelling.win32) == 0;
    });
    return found != std::end(spellings) ? &*found : nullptr;
}

// Whether words behind this one are data, whatever they look like: -d takes several, /d takes one.
bool TakesAllWords(const std::string &argument) { return argument == "-d" || argument.starts_with("--data"); }

} // namespace

std::vector<std::string> OurSpellings(const std::string &command, const std::vector<std::string> &arguments) {
    std::vector<std::string> ours;
    bool isInWords = false;
    for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
        if (*argument == "--") {
            ours.insert(ours.end(), argument, arguments.end());
            break;
        }
        if (argument->starts_with('-')) isInWords = false;
        const Spelling *spelling = isInWords ? nullptr : Find(command, *argument);
        if (command == "add" && TakesAllWords(*argument)) isInWords = true;
        if (spelling == nullptr) {
            ours.push_back(*argument);
            continue;
        }
        const bool hasNext = std::next(argument) != arguments.end();
        const bool isAlone = spelling->takes == Takes::nothing || !hasNext ||
                             (spelling->takes == Takes::perhapsOne && Find(command, *std::next(argument)) != nullptr);
        if (!isAlone && std::next(argument)->empty()) {
            ours.insert(ours.end(), {spelling->ours, *++argument}); // glued, it would count as missing
        } else if (!isAlone) {
            ours.push_back(std::string(spelling->ours) + "=" + *++argument);
        } else if (spelling->takes == Takes::perhapsOne) {
            ours.emplace_back(spelling->oursAlone);
        } else if (*spelling->ours != '\0') {
            ours.emplace_back(spelling->ours);
        }
    }
    return ours;
}
