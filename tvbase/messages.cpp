// SPDX-License-Identifier: MIT
// messages: the language of message texts, %1!format! and its escapes.
#include "tvbase/messages.h"

#include "tvbase/wide.h"
#include "util/win32_names.h"

#include <cctype>
#include <cstdio>

namespace {

constexpr char lineBreak[] = "\r\n";
constexpr std::size_t longestFormat = 16; // of an insert; anything sensible is shorter
constexpr std::size_t mostInserts = 99;
constexpr int widestInsert = 4096; // characters that a width may ask for

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

char TakeChar(std::string_view *text) {
    const char c = text->front();
    text->remove_prefix(1);
    return c;
}

bool TakePrefix(std::string_view *text, std::string_view prefix) {
    if (text->substr(0, prefix.size()) != prefix) return false;
    text->remove_prefix(prefix.size());
    return true;
}

// The value of insert `number`, counted from 1.
DWORD_PTR ValueOf(InsertSource *inserts, std::size_t number) {
    while (!inserts->isArray && inserts->taken.size() < number) {
        inserts->taken.push_back(va_arg(*inserts->arguments, DWORD_PTR));
    }
    if (inserts->isArray) return reinterpret_cast<const DWORD_PTR *>(inserts->arguments)[number - 1];
    return inserts->taken[number - 1];
}

// An insert's format taken apart, "-08lx" into flags and width, size and type.
struct InsertFormat {
    std::string layout; // flags, width and precision
    std::string size;
    char type = 's';
};

std::string TakeAnyOf(std::string_view *text, std::string_view accepted) {
    std::string taken;
    while (!text->empty() && accepted.find(text->front()) != std::string_view::npos) {
        taken += TakeChar(text);
    }
    return taken;
}

bool IsWithin(const std::string &digits) { return digits.size() <= 4 && std::atoi(digits.c_str()) <= widestInsert; }

bool ReadFormat(std::string_view text, InsertFormat *format) {
    constexpr std::string_view digits = "0123456789";
    format->layout = TakeAnyOf(&text, "-+ #0");
    const std::string width = TakeAnyOf(&text, digits);
    format->layout += width;
    std::string precision;
    if (TakePrefix(&text, ".")) {
        precision = TakeAnyOf(&text, digits);
        format->layout += '.' + precision;
    }
    format->size = TakeAnyOf(&text, "hlwI346");
    if (text.size() != 1 || !IsWithin(width) || !IsWithin(precision)) return false;
    format->type = text.front();
    return true;
}

// "!...!" behind an insert; without it the insert is a string. False when it is not closed or not understood.
bool TakeFormat(std::string_view *text, InsertFormat *format) {
    if (!TakePrefix(text, "!")) return true;
    const std::size_t end = text->find('!');
    if (end == std::string_view::npos || end > longestFormat) return false;
    const bool understood = ReadFormat(text->substr(0, end), format);
    text->remove_prefix(end + 1);
    return understood;
}

template <typename Value>
std::string Print(const InsertFormat &format, const char *conversion, Value value) {
    const std::string whole = "%" + format.layout + conversion;
    char small[1];
    const int length = snprintf(small, sizeof small, whole.c_str(), value);
    if (length < 0) return {};
    std::string text(static_cast<std::size_t>(length) + 1, '\0');
    (void)snprintf(text.data(), text.size(), whole.c_str(), value);
    text.pop_back();
    return text;
}

bool IsWideInsert(const InsertFormat &format, bool usually) {
    if (format.size == "h") return false;
    if (format.size == "l" || format.size == "w") return true;
    const bool opposite = format.type == 'S' || format.type == 'C';
    return usually != opposite;
}

DWORD PrintString(const InsertFormat &format, bool wide, DWORD_PTR value, std::string *printed) {
    constexpr char nothing[] = "(null)";
    std::string narrow;
    // NOLINTBEGIN(performance-no-int-to-ptr): a string travels as a word here
    if (value == 0) {
        narrow = nothing;
    } else if (!wide) {
        narrow = reinterpret_cast<const char *>(value);
    } else if (const DWORD rc = Narrow(reinterpret_cast<LPCWSTR>(value), &narrow); rc != 0) {
        return rc;
    }
    // NOLINTEND(performance-no-int-to-ptr)
    *printed = Print(format, "s", narrow.c_str());
    return ERROR_SUCCESS;
}

DWORD PrintCharacter(const InsertFormat &format, bool wide, DWORD_PTR value, std::string *printed) {
    const WCHAR text[] = {static_cast<WCHAR>(value), 0};
    std::string narrow(1, static_cast<char>(value));
    if (wide) {
        if (const DWORD rc = Narrow(text, &narrow); rc != 0) return rc;
    }
    *printed = Print(format, "s", narrow.c_str());
    return ERROR_SUCCESS;
}

// Numbers have 32 bits, as long has on Win32, and 64 where the insert says so and a word has them.
DWORD PrintNumber(const InsertFormat &format, DWORD_PTR value, std::string *printed) {
    const bool large = format.size == "ll" || format.size == "I64";
    if (large && sizeof value < sizeof(std::uint64_t)) return ERROR_INVALID_PARAMETER;
    const std::string conversion = std::string(large ? "ll" : "") + format.type;
    const bool hasSign = format.type == 'd' || format.type == 'i';
    if (large && hasSign) {
        *printed = Print(format, conversion.c_str(), static_cast<long long>(value));
    } else if (large) {
        *printed = Print(format, conversion.c_str(), static_cast<unsigned long long>(value));
    } else if (hasSign) {
        *printed = Print(format, conversion.c_str(), static_cast<int>(value));
    } else {
        *printed = Print(format, conversion.c_str(), static_cast<unsigned>(value));
    }
    return ERROR_SUCCESS;
}

DWORD PrintInsert(const InsertFormat &format, const InsertSource &source, DWORD_PTR value, std::string *printed) {
    const bool wide = IsWideInsert(format, source.isWide);
    switch (format.type) {
    case 's':
    case 'S': return PrintString(format, wide, value, printed);
    case 'c':
    case 'C': return PrintCharacter(format, wide, value, printed);
    case 'd':
    case 'i':
    case 'u':
    case 'x':
    case 'X': return PrintNumber(format, value, printed);
    default: return ERROR_INVALID_PARAMETER;
    }
}

// The rest of "%1!format!"; its first digit has been taken.
DWORD ExpandInsert(char firstDigit, std::string_view *text, InsertSource *inserts, std::string *expanded) {
    std::size_t number = static_cast<std::size_t>(firstDigit - '0');
    if (!text->empty() && IsDigit(text->front())) {
        number = number * 10 + static_cast<std::size_t>(TakeChar(text) - '0');
    }
    InsertFormat format;
    if (!TakeFormat(text, &format) || number > mostInserts) return ERROR_INVALID_PARAMETER;
    if (inserts->arguments == nullptr) return ERROR_INVALID_PARAMETER;
    std::string printed;
    const DWORD rc = PrintInsert(format, *inserts, ValueOf(inserts, number), &printed);
    *expanded += printed;
    return rc;
}

void ExpandEscape(char escape, std::string *expanded) {
    switch (escape) {
    case 'n': *expanded += lineBreak; break;
    case 't': *expanded += '\t'; break;
    case 'r': *expanded += '\r'; break;
    case 'b': *expanded += ' '; break;
    default: *expanded += escape;
    }
}

// A line break of the text at its front, of either kind.
bool TakeLineBreak(std::string_view *text) { return TakePrefix(text, lineBreak) || TakePrefix(text, "\n"); }

} // namespace

DWORD ExpandMessage(std::string_view text, bool stripLines, InsertSource *inserts, std::string *expanded) {
    while (!text.empty()) {
        if (stripLines && TakeLineBreak(&text)) {
            *expanded += ' ';
            continue;
        }
        const char c = TakeChar(&text);
        if (c != '%' || text.empty()) {
            *expanded += c;
            continue;
        }
        const char escape = TakeChar(&text);
        if (escape == '0') return ERROR_SUCCESS;
        if (!IsDigit(escape)) {
            ExpandEscape(escape, expanded);
        } else if (const DWORD rc = ExpandInsert(escape, &text, inserts, expanded); rc != 0) {
            return rc;
        }
    }
    return ERROR_SUCCESS;
}

std::string StripLines(std::string_view text) {
    std::string stripped;
    while (!text.empty()) {
        stripped += TakeLineBreak(&text) ? ' ' : TakeChar(&text);
    }
    return stripped;
}

std::string SystemMessage(DWORD code) {
    constexpr DWORD resultOfCode = 0x8007; // upper half of an HRESULT that stands for a code
    constexpr unsigned halfBits = 16;
    const DWORD plain = code >> halfBits == resultOfCode ? code & 0xFFFF : code;
    const char *words = Win32ErrorText(plain);
    if (words == nullptr) return {};
    std::string message = words;
    message[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(message[0])));
    return message + "." + lineBreak;
}
