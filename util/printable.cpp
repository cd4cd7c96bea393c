// SPDX-License-Identifier: MIT
// printable: which characters are shown as they are.
#include "util/printable.h"

#include "util/utf8.h"

#include <langinfo.h>
#include <locale.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <iterator>

namespace {

struct Range {
    std::uint32_t first;
    std::uint32_t last;
};

// The default ignorable characters of Unicode 15, which take up no room, and what ends lines or annotates; ascending.
constexpr Range shapeless[] = {
    {0xAD, 0xAD},       // soft hyphen
    {0x34F, 0x34F},     // grapheme joiner
    {0x61C, 0x61C},     // Arabic letter mark
    {0x115F, 0x1160},   // Hangul fillers
    {0x17B4, 0x17B5},   // Khmer inherent vowels
    {0x180B, 0x180F},   // Mongolian selectors and separator
    {0x200B, 0x200F},   // zero-width characters, direction marks
    {0x2028, 0x202E},   // line and paragraph separator; embeddings and overrides of direction
    {0x2060, 0x206F},   // invisible operators; isolates of direction
    {0x3164, 0x3164},   // Hangul filler
    {0xFE00, 0xFE0F},   // variation selectors
    {0xFEFF, 0xFEFF},   // zero-width no-break space
    {0xFFA0, 0xFFA0},   // half-width Hangul filler
    {0xFFF0, 0xFFFB},   // annotations
    {0x1BCA0, 0x1BCA3}, // shorthand controls
    {0x1D173, 0x1D17A}, // musical controls
    {0xE0000, 0xE0FFF}, // tags, further variation selectors
};

bool IsControl(std::uint32_t c) { return c < 0x20 || (c >= 0x7F && c <= 0x9F); }

bool IsShapeless(std::uint32_t c) {
    const auto *const range = std::find_if(std::begin(shapeless), std::end(shapeless),
                                           [c](const Range &candidate) { return c <= candidate.last; });
    return range != std::end(shapeless) && c >= range->first;
}

// Whether the backslash that a text begins with could be taken for the beginning of an escape.
bool ReadsAsEscape(std::string_view text, char alsoMeant) {
    const auto isDigit = [&](std::size_t i) { return std::isxdigit(static_cast<unsigned char>(text[i])) != 0; };
    if (text.size() > 1 && alsoMeant != '\0' && text[1] == alsoMeant) return true;
    return text.size() > 3 && text[1] == 'x' && isDigit(2) && isDigit(3);
}

void AppendEscaped(std::string_view bytes, std::string *printable) {
    static constexpr char digits[] = "0123456789abcdef";
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        printable->append({'\\', 'x', digits[byte >> 4], digits[byte & 0xF]});
    }
}

} // namespace

Charset CharsetShown() {
    static const Charset shown = [] {
        const locale_t locale = newlocale(LC_CTYPE_MASK, "", static_cast<locale_t>(nullptr));
        if (locale == static_cast<locale_t>(nullptr)) return Charset::ascii; // not installed
        const bool isUtf8 = std::strcmp(nl_langinfo_l(CODESET, locale), "UTF-8") == 0;
        freelocale(locale);
        return isUtf8 ? Charset::utf8 : Charset::ascii;
    }();
    return shown;
}

bool IsPlain(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

std::string Printable(std::string_view text, Charset charset, char alsoMeant) {
    if (IsPlain(text) && text.find('\\') == text.npos) return std::string(text); // as nearly all are
    std::string printable;
    while (!text.empty()) {
        std::string_view rest = text;
        std::uint32_t c = 0;
        bool isShown = TakeUtf8(&rest, &c);
        if (!isShown) rest.remove_prefix(1);
        isShown = isShown && !IsControl(c) && !IsShapeless(c) && (c < 0x80 || charset == Charset::utf8);
        if (c == '\\' && ReadsAsEscape(text, alsoMeant)) isShown = false;
        const std::string_view bytes = text.substr(0, text.size() - rest.size());
        if (isShown) {
            printable += bytes;
        } else {
            AppendEscaped(bytes, &printable);
        }
        text = rest;
    }
    return printable;
}
