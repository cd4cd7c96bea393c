// SPDX-License-Identifier: MIT
// fold_character: by the library that is linked.
#include "util/fold_character.h"

#include <unicode/uchar.h>

std::uint32_t FoldCharacter(std::uint32_t character) {
    return static_cast<std::uint32_t>(u_foldCase(static_cast<UChar32>(character), U_FOLD_CASE_DEFAULT));
}
