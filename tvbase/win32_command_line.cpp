// SPDX-License-Identifier: MIT
// win32_command_line: backslashes are themselves unless a quote follows them.
#include "tvbase/win32_command_line.h"

namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

void SkipBlanks(std::string_view *rest) {
    while (!rest->empty() && IsBlank(rest->front())) {
        rest->remove_prefix(1);
    }
}

// Backslashes at the front, and the quote behind them where they make it a plain character. Returns whether there were
// any.
bool TakeBackslashes(std::string_view *rest, std::string *argument) {
    std::size_t count = 0;
    while (count < rest->size() && (*rest)[count] == '\\') {
        ++count;
    }
    if (count == 0) return false;
    rest->remove_prefix(count);
    const bool beforeQuote = !rest->empty() && rest->front() == '"';
    argument->append(beforeQuote ? count / 2 : count, '\\');
    if (beforeQuote && count % 2 != 0) {
        *argument += '"';
        rest->remove_prefix(1);
    }
    return true;
}

std::string TakeArgument(std::string_view *rest) {
    std::string argument;
    bool quoted = false;
    while (!rest->empty() && (quoted || !IsBlank(rest->front()))) {
        if (TakeBackslashes(rest, &argument)) continue;
        const char c = rest->front();
        rest->remove_prefix(1);
        if (c != '"') {
            argument += c;
        } else if (quoted && !rest->empty() && rest->front() == '"') {
            argument += '"';
            rest->remove_prefix(1);
        } else {
            quoted = !quoted;
        }
    }
    return argument;
}

} // namespace

void AppendQuoted(const std::string &argument, std::string *line) {
    const bool plain = !argument.empty() && argument.find_first_of(" \t\"") == std::string::npos;
    if (plain) {
        *line += argument;
        return;
    }
    std::size_t backslashes = 0;
    *line += '"';
    for (const char c : argument) {
        if (c == '"') line->append(backslashes + 1, '\\');
        backslashes = c == '\\' ? backslashes + 1 : 0;
        *line += c;
    }
    line->append(backslashes, '\\');
    *line += '"';
}

std::vector<std::string> SplitWin32CommandLine(std::string_view line) {
    std::vector<std::string> arguments;
    for (SkipBlanks(&line); !line.empty(); SkipBlanks(&line)) {
        arguments.push_back(TakeArgument(&line));
    }
    return arguments;
}
