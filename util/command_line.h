// SPDX-License-Identifier: MIT
// command_line: the words of a command line, as the parameters of a service and Win32 installers write it.
//
// Words are parted by blanks. "Double quotes" keep blanks; a backslash keeps the quote, of either kind, or the
// backslash behind it. 'Single quotes' keep everything up to the next one. Outside of single quotes %NAME% and ${NAME}
// stand for a variable of the service's environment; a name that is not set there stays as it is written, so that a
// lone % or $ means itself. What a variable holds is never split nor read again. There is no shell: no other character
// is special.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

// What a variable holds; nothing when it is not set.
using LookUpVariable = std::function<std::optional<std::string>(const std::string &name)>;

// A look-up in NAME=VALUE strings, which have to outlive it.
[[nodiscard]] LookUpVariable VariablesOf(const std::vector<std::string> &environment);

// The words of a command line; nothing when a quote is not closed. Without variables none is replaced.
[[nodiscard]] std::optional<std::vector<std::string>> SplitIntoWords(const std::string &line,
                                                                     const LookUpVariable &variables = {});

// The same, but only the first word; *rest is what follows it.
[[nodiscard]] std::optional<std::string> FirstWord(const std::string &line, std::string *rest);

// Why a command line may not mean what it seems to: a sentence for people that names the first character outside of
// quotes that a shell would act on. Empty when there is none.
[[nodiscard]] std::string WhyNotAShell(const std::string &line);
