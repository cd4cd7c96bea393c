// SPDX-License-Identifier: MIT
// command_line: reading a command line from left to right.
#include "util/command_line.h"

#include <cctype>
#include <cstring>

namespace {

// What a backslash keeps.
bool IsKept(char c) { return c == '"' || c == '\'' || c == '\\'; }

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\n'; }

std::size_t SkipBlanks(const std::string &line, std::size_t at) {
    while (at < line.size() && IsBlank(line[at])) {
        ++at;
    }
    return at;
}

char At(const std::string &line, std::size_t at) { return at < line.size() ? line[at] : '\0'; }

bool IsVariableName(const std::string &name) {
    for (const char c : name) {
        if (std::isalnum(static_cast<unsigned char>(c)) == 0 && c != '_') return false;
    }
    return !name.empty();
}

// The name in %NAME% or ${NAME} at a place of the line, and the bytes that it takes; empty when none stands there.
std::string ReferenceAt(const std::string &line, std::size_t at, std::size_t *bytes) {
    const bool isPercent = At(line, at) == '%';
    if (!isPercent && (At(line, at) != '$' || At(line, at + 1) != '{')) return "";
    const std::size_t begin = at + (isPercent ? 1 : 2);
    const std::size_t end = line.find(isPercent ? '%' : '}', begin);
    if (end == std::string::npos) return "";
    std::string name = line.substr(begin, end - begin);
    *bytes = end + 1 - at;
    return IsVariableName(name) ? name : "";
}

// Replaces a variable at *at, if one stands there that is set.
bool TakeVariable(const std::string &line, std::size_t *at, const LookUpVariable &variables, std::string *word) {
    std::size_t bytes = 0;
    const std::string name = variables ? ReferenceAt(line, *at, &bytes) : "";
    if (name.empty()) return false;
    const std::optional<std::string> value = variables(name);
    if (!value) return false;
    *word += *value;
    *at += bytes - 1;
    return true;
}

// Reads one word from *at on. Returns false when a quote is not closed.
bool ReadWord(const std::string &line, std::size_t *at, const LookUpVariable &variables, std::string *word) {
    char quote = '\0';
    for (; *at < line.size() && (quote != '\0' || !IsBlank(line[*at])); ++*at) {
        const char c = line[*at];
        const char next = At(line, *at + 1);
        if (quote == '\'' && c == quote) {
            quote = '\0';
        } else if (quote == '\'') {
            word->push_back(c);
        } else if (c == '\\' && IsKept(next)) {
            word->push_back(next);
            ++*at;
        } else if (c == '"') {
            quote = quote == '"' ? '\0' : '"';
        } else if (c == '\'' && quote == '\0') {
            quote = c;
        } else if (!TakeVariable(line, at, variables, word)) {
            word->push_back(c);
        }
    }
    return quote == '\0';
}

} // namespace

LookUpVariable VariablesOf(const std::vector<std::string> &environment) {
    return [&environment](const std::string &name) -> std::optional<std::string> {
        for (const std::string &entry : environment) {
            if (entry.size() > name.size() && entry[name.size()] == '=' && entry.compare(0, name.size(), name) == 0) {
                return entry.substr(name.size() + 1);
            }
        }
        return std::nullopt;
    };
}

std::optional<std::vector<std::string>> SplitIntoWords(const std::string &line, const LookUpVariable &variables) {
    std::vector<std::string> words;
    for (std::size_t at = SkipBlanks(line, 0); at < line.size(); at = SkipBlanks(line, at)) {
        words.emplace_back();
        if (!ReadWord(line, &at, variables, &words.back())) return std::nullopt;
    }
    return words;
}

std::optional<std::string> FirstWord(const std::string &line, std::string *rest) {
    std::size_t at = SkipBlanks(line, 0);
    std::string word;
    if (!ReadWord(line, &at, {}, &word)) return std::nullopt;
    *rest = line.substr(SkipBlanks(line, at));
    return word;
}

std::string WhyNotAShell(const std::string &line) {
    char quote = '\0';
    for (std::size_t at = 0; at < line.size(); ++at) {
        const char c = line[at];
        std::size_t bytes = 0;
        if (quote != '\'' && c == '\\' && IsKept(At(line, at + 1))) {
            ++at;
        } else if (c == '\'' || c == '"') {
            quote = quote == c ? '\0' : quote == '\0' ? c : quote;
        } else if (quote == '\0' && !ReferenceAt(line, at, &bytes).empty()) {
            at += bytes - 1;
        } else if (quote == '\0' && std::strchr(";&|<>*?$`", c) != nullptr) {
            return std::string("no shell reads it: the ") + c + " goes to the program as it is";
        }
    }
    return "";
}
