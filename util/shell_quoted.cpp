// SPDX-License-Identifier: MIT
// shell_quoted: quoting.
#include "util/shell_quoted.h"

std::string ShellQuoted(const std::string &text) {
    constexpr char plain[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-./+:@%";
    if (!text.empty() && text.find_first_not_of(plain) == std::string::npos) return text;
    std::string quoted = "'";
    for (const char c : text) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}

std::string NameArgument(const std::string &name) {
    return name.starts_with('-') ? "--name=" + ShellQuoted(name) : ShellQuoted(name);
}

std::string OptionArgument(const std::string &option, const std::string &text) {
    return option + (text.starts_with('-') ? "=" : " ") + ShellQuoted(text);
}
