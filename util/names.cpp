// SPDX-License-Identifier: MIT
// names: the folding and hashing of names.
#include "util/names.h"

#include "util/fold_character.h"

#include <unicode/utf8.h>

#include <cstdint>

namespace {

constexpr std::uint32_t firstNoCharacter = 0x110000; // from there on: bytes that are no UTF-8

std::uint32_t FoldAscii(unsigned char byte) { return byte >= 'A' && byte <= 'Z' ? byte + ('a' - 'A') : byte; }

// Takes the next character off a name that begins with one beyond ASCII.
std::uint32_t TakeWide(std::string_view *name) {
    const auto first = static_cast<unsigned char>(name->front());
    std::size_t length = 0;
    UChar32 character = 0;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion" // in the macro
    U8_NEXT(name->data(), length, name->size(), character);
#pragma GCC diagnostic pop
    name->remove_prefix(character >= 0 ? length : 1);
    return character >= 0 ? static_cast<std::uint32_t>(character) : firstNoCharacter + first;
}

// Takes the next character off a name, folded.
std::uint32_t TakeFolded(std::string_view *name) {
    const auto first = static_cast<unsigned char>(name->front());
    if (first < 0x80) {
        name->remove_prefix(1);
        return FoldAscii(first);
    }
    const std::uint32_t character = TakeWide(name);
    if (character >= firstNoCharacter) return character;
    return FoldCharacter(character);
}

std::uint32_t Take(std::string_view *name) {
    const auto first = static_cast<unsigned char>(name->front());
    if (first >= 0x80) return TakeWide(name);
    name->remove_prefix(1);
    return first;
}

} // namespace

bool AreNamesEqual(std::string_view a, std::string_view b) {
    while (!a.empty() && !b.empty()) {
        if (TakeFolded(&a) != TakeFolded(&b)) return false;
    }
    return a.empty() && b.empty();
}

// FNV-1a, a step a character.
std::size_t HashOfName(std::string_view name) {
    std::uint64_t hash = 0xcbf29ce484222325;
    while (!name.empty()) {
        hash = (hash ^ TakeFolded(&name)) * 0x100000001b3;
    }
    return static_cast<std::size_t>(hash ^ hash >> 32);
}

std::u32string CharactersOf(std::string_view name) {
    std::u32string characters;
    while (!name.empty()) {
        characters += static_cast<char32_t>(Take(&name));
    }
    return characters;
}

std::u32string FoldedName(std::string_view name) {
    std::u32string characters;
    while (!name.empty()) {
        characters += static_cast<char32_t>(TakeFolded(&name));
    }
    return characters;
}
