// SPDX-License-Identifier: MIT
#include "tvsc/text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cwchar>
#include <cwctype>

namespace {

struct Character {
    wchar_t code = 0;
    std::size_t bytes = 1;
    bool isVisible = false;
};

Character CharacterAt(const std::string &text, std::size_t at) {
    Character next;
    std::mbstate_t state = {};
    const std::size_t bytes = std::mbrtowc(&next.code, text.data() + at, text.size() - at, &state);
    const bool isCharacter = bytes != 0 && bytes <= text.size() - at;
    next.bytes = isCharacter ? bytes : 1;
    next.isVisible = isCharacter && std::iswprint(static_cast<wint_t>(next.code)) != 0;
    return next;
}

} // namespace

std::string Printable(const std::string &text) {
    std::string printable;
    for (std::size_t at = 0; at < text.size();) {
        const Character next = CharacterAt(text, at);
        for (const std::size_t end = at + next.bytes; at < end; ++at) {
            if (next.isVisible) {
                printable.push_back(text[at]);
            } else {
                printable += fmt::format("\\x{:02x}", static_cast<unsigned char>(text[at]));
            }
        }
    }
    return printable;
}

std::size_t ShownWidth(const std::string &printable) {
    std::size_t width = 0;
    for (std::size_t at = 0; at < printable.size();) {
        const Character next = CharacterAt(printable, at);
        width += static_cast<std::size_t>(std::max(wcwidth(next.code), 0));
        at += next.bytes;
    }
    return width;
}
