// SPDX-License-Identifier: MIT
// options: the key and the type that an argument names.
#include "tvreg/options.h"

#include "tvreg/registry_access.h"
#include "tvreg/value_text.h"

#include <fmt/format.h>

KeyPath KeyNamed(const std::string &text) {
    KeyPath key;
    if (ParseKeyOfHost(text, &key)) return key;
    throw Failure(EXIT_USAGE, fmt::format("{}: not a key: a root (HKLM, HKEY_LOCAL_MACHINE ...) and names with one "
                                          "backslash between them",
                                          text));
}

std::uint32_t TypeNamed(const std::string &text) {
    const auto type = ParseType(text);
    if (!type) throw Failure(EXIT_USAGE, fmt::format("{}: not a type of a value", text), 0, SimilarTypes(text));
    return *type;
}
