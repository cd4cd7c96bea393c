// SPDX-License-Identifier: MIT
// fold_character: Unicode's simple case folding of one character.
//
// It is ICU's. tv_names links it; a program that is started often, and meets such characters seldom, can bring
// fold_character_late.cpp instead among its own sources, which loads the library when it is needed.
#pragma once

#include <cstdint>

// A character beyond ASCII, folded.
[[nodiscard]] std::uint32_t FoldCharacter(std::uint32_t character);
