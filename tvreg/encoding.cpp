// SPDX-License-Identifier: MIT
// encoding: UTF-16 by ourselves, the rest by iconv.
#include "tvreg/encoding.h"

#include "tvreg/utf16.h"

#include <iconv.h>

#include <cerrno>

namespace {

constexpr std::string_view utf8Mark = "\xEF\xBB\xBF";
constexpr char endOfFile = '\x1A';

std::string Swapped(std::string_view bytes) {
    std::string swapped(bytes);
    for (std::size_t i = 0; i + 1 < swapped.size(); i += 2) {
        std::swap(swapped[i], swapped[i + 1]);
    }
    return swapped;
}

bool AsUtf8(std::string_view bytes, const std::string &encoding, std::string *text) {
    if (!encoding.empty()) return Utf8FromEncoding(encoding, bytes, text);
    const bool isPair = bytes.size() >= 2;
    if (bytes.starts_with("\xFF\xFE")) return Utf8FromUtf16Bytes(bytes.substr(2), text);
    if (bytes.starts_with("\xFE\xFF")) return Utf8FromUtf16Bytes(Swapped(bytes.substr(2)), text);
    if (isPair && bytes[0] != '\0' && bytes[1] == '\0') return Utf8FromUtf16Bytes(bytes, text);
    if (isPair && bytes[0] == '\0' && bytes[1] != '\0') return Utf8FromUtf16Bytes(Swapped(bytes), text);
    *text = bytes;
    return true;
}

} // namespace

bool IsEncoding(const std::string &name) {
    const iconv_t converter = iconv_open("UTF-8", name.c_str());
    return converter != iconv_t(-1) && iconv_close(converter) == 0;
}

bool Utf8FromEncoding(const std::string &encoding, std::string_view bytes, std::string *text) {
    text->clear();
    const iconv_t converter = iconv_open("UTF-8", encoding.c_str());
    if (converter == iconv_t(-1)) return false;
    char *from = const_cast<char *>(bytes.data()); // only read
    std::size_t left = bytes.size();
    bool isText = true;
    while (isText && left > 0) {
        char piece[4096];
        char *to = piece;
        std::size_t room = sizeof piece;
        const std::size_t code = iconv(converter, &from, &left, &to, &room);
        text->append(piece, sizeof piece - room);
        isText = code != static_cast<std::size_t>(-1) || errno == E2BIG;
    }
    (void)iconv_close(converter);
    return isText;
}

bool TextOfFile(std::string_view bytes, const std::string &encoding, std::string *text) {
    const bool isText = AsUtf8(bytes, encoding, text);
    if (text->starts_with(utf8Mark)) text->erase(0, utf8Mark.size());
    while (text->ends_with(endOfFile)) {
        text->pop_back();
    }
    return isText;
}
