// SPDX-License-Identifier: MIT
// names: when two names of keys or values of the registry are the same.
//
// Names are bytes, and should be UTF-8. They are compared without regard to case, by Unicode's simple case folding:
// each character by itself, the same for every language. Bytes that are no UTF-8 stand for themselves.
// Thread: reentrant.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

bool AreNamesEqual(std::string_view a, std::string_view b);
std::size_t HashOfName(std::string_view name); // the same for equal names

// The characters of a name. A byte that is no UTF-8 is one, beyond all others.
std::u32string CharactersOf(std::string_view name);
std::u32string FoldedName(std::string_view name); // the same for equal names, and only for them
