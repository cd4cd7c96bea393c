// SPDX-License-Identifier: MIT
// fold_character: by a library that is loaded at the first character. To load it with the program would take longer
// than most commands take to run. Without it names cannot be told apart: the program ends then.
#include "util/fold_character.h"

#include <dlfcn.h>
#include <unicode/uchar.h>
#include <unicode/uvernum.h>

#include <cstdio>
#include <cstdlib>

#define TEXT_OF(name) #name
#define TEXT_OF_VALUE(name) TEXT_OF(name)

using Fold = decltype(&u_foldCase);

// The library is the one that the headers are of: its name and its functions' have the version in them.
static Fold LoadFold() {
    void *const library = dlopen("libicuuc.so." TEXT_OF_VALUE(U_ICU_VERSION_MAJOR_NUM), RTLD_NOW | RTLD_LOCAL);
    void *const function = library != nullptr ? dlsym(library, TEXT_OF_VALUE(u_foldCase)) : nullptr;
    if (function == nullptr) {
        (void)std::fprintf(stderr, "names of other scripts cannot be compared: %s\n", dlerror());
        std::exit(EXIT_FAILURE);
    }
    return reinterpret_cast<Fold>(function);
}

std::uint32_t FoldCharacter(std::uint32_t character) {
    static const Fold fold = LoadFold();
    return static_cast<std::uint32_t>(fold(static_cast<UChar32>(character), U_FOLD_CASE_DEFAULT));
}
