// SPDX-License-Identifier: MIT
// text: columns, as the terminal's library counts them.
#include "tvsc/text.h"

#include "util/utf8.h"

#include <algorithm>
#include <cwchar>

std::size_t ShownWidth(std::string_view printable) {
    std::size_t width = 0;
    for (std::uint32_t c = 0; !printable.empty() && TakeUtf8(&printable, &c);) {
        width += static_cast<std::size_t>(std::max(wcwidth(static_cast<wchar_t>(c)), 0));
    }
    return width;
}
