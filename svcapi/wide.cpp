// SPDX-License-Identifier: MIT
// wide: converting arguments and answers.
#include "svcapi/wide.h"

#include "tv/winerror.h"
#include "util/utf16.h"
#include "util/utf8.h"

#include <string_view>

namespace {

std::size_t MultiStringLength(const WCHAR *text) {
    const WCHAR *end = text;
    while (*end != 0) {
        end += std::u16string_view(end).size() + 1;
    }
    return static_cast<std::size_t>(end - text);
}

LPSTR Keep(NarrowArguments *arguments, std::u16string_view text) {
    std::string &kept = arguments->texts.emplace_back();
    if (!Utf8FromUtf16(text, &kept)) arguments->code = ERROR_NO_UNICODE_TRANSLATION;
    return kept.data();
}

} // namespace

LPSTR Narrow(NarrowArguments *arguments, LPCWSTR text) {
    return text != nullptr ? Keep(arguments, std::u16string_view(text)) : nullptr;
}

LPSTR NarrowMultiString(NarrowArguments *arguments, LPCWSTR text) {
    // The string's own terminator is the last of the list.
    return text != nullptr ? Keep(arguments, {text, MultiStringLength(text)}) : nullptr;
}

std::u16string Widened(std::string_view text) {
    std::u16string wide;
    if (Utf16FromUtf8(text, &wide)) return wide;
    wide.clear();
    for (std::string_view rest = text; !rest.empty();) {
        const std::string_view before = rest;
        std::uint32_t character = 0;
        std::u16string converted(1, u'\uFFFD');
        if (TakeUtf8(&rest, &character)) {
            (void)Utf16FromUtf8(before.substr(0, before.size() - rest.size()), &converted); // one character
        } else {
            rest.remove_prefix(1);
        }
        wide += converted;
    }
    return wide;
}
