// SPDX-License-Identifier: MIT
// wide_format: what printf does, for 16-bit characters, which libc has no functions for.
//
// The format is taken apart here; numbers are printed by libc, one at a time, and texts are put in as they are.
#include "tv/winbase.h"
#include "tvbase/wide.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace {

using Text = std::u16string;

constexpr std::size_t longestNumber = 4; // digits of a width or a precision

constexpr char16_t unknown = 0xFFFD; // stands for what is no text

// A format that is read, and the values that it asks for.
struct Reading {
    std::u16string_view format;
    va_list values;
};

// A conversion taken apart: "%-08.3lx" into flags, width, precision, size and type.
struct Conversion {
    std::string flags;
    int width = 0;
    int precision = -1; // none
    std::string size;
    char16_t type = 0;

    [[nodiscard]] bool IsLeft() const { return flags.find('-') != std::string::npos; }
};

char16_t Take(Reading *reading) {
    const char16_t taken = reading->format.empty() ? u'\0' : reading->format.front();
    if (!reading->format.empty()) reading->format.remove_prefix(1);
    return taken;
}

std::string TakeAnyOf(Reading *reading, std::string_view accepted) {
    std::string taken;
    while (!reading->format.empty() && reading->format.front() < 0x80 &&
           accepted.find(static_cast<char>(reading->format.front())) != std::string_view::npos) {
        taken += static_cast<char>(Take(reading));
    }
    return taken;
}

// A width or a precision: digits, or "*" for the next value. False when it is beyond all use.
bool TakeNumber(Reading *reading, int *number) {
    if (!reading->format.empty() && reading->format.front() == u'*') {
        (void)Take(reading);
        *number = va_arg(reading->values, int);
        return *number > -10000 && *number < 10000;
    }
    const std::string digits = TakeAnyOf(reading, "0123456789");
    if (!digits.empty()) *number = std::atoi(digits.c_str());
    return digits.size() <= longestNumber;
}

bool TakeConversion(Reading *reading, Conversion *conversion) {
    conversion->flags = TakeAnyOf(reading, "-+ #0");
    if (!TakeNumber(reading, &conversion->width)) return false;
    if (conversion->width < 0) {
        conversion->flags += '-';
        conversion->width = -conversion->width;
    }
    if (!reading->format.empty() && reading->format.front() == u'.') {
        (void)Take(reading);
        conversion->precision = 0;
        if (!TakeNumber(reading, &conversion->precision)) return false;
        if (conversion->precision < 0) conversion->precision = -1;
    }
    conversion->size = TakeAnyOf(reading, "hlLwIjztq");
    if (conversion->size == "I") conversion->size += TakeAnyOf(reading, "3264");
    conversion->type = Take(reading);
    return true;
}

void Pad(const Conversion &conversion, const Text &text, Text *to) {
    const auto width = static_cast<std::size_t>(conversion.width);
    const std::size_t blanks = width > text.size() ? width - text.size() : 0;
    if (!conversion.IsLeft()) to->append(blanks, u' ');
    to->append(text);
    if (conversion.IsLeft()) to->append(blanks, u' ');
}

// Has libc print one value, of the type that `size` and the conversion's own say.
template <typename Value>
bool PrintNumber(const Conversion &conversion, const char *size, Value value, Text *to) {
    std::string format = "%" + conversion.flags + "*.*" + size + static_cast<char>(conversion.type);
    char small[128];
    int length = snprintf(small, sizeof small, format.c_str(), conversion.width, conversion.precision, value);
    if (length < 0) return false;
    std::string whole(static_cast<std::size_t>(length) + 1, '\0');
    (void)snprintf(whole.data(), whole.size(), format.c_str(), conversion.width, conversion.precision, value);
    to->append(whole.begin(), whole.end() - 1);
    return true;
}

// How many bytes an integer of this size has: "l" means LONG and DWORD, which are 32 bits here as on Win32.
std::size_t BytesOf(const std::string &size) {
    if (size == "ll" || size == "q" || size == "j" || size == "I64") return sizeof(std::int64_t);
    if (size == "z" || size == "t" || size == "I") return sizeof(void *);
    if (size == "hh") return sizeof(char);
    return size == "h" ? sizeof(short) : sizeof(int);
}

bool PrintInteger(Reading *reading, const Conversion &conversion, Text *to) {
    switch (BytesOf(conversion.size)) {
    case sizeof(std::int64_t): return PrintNumber(conversion, "ll", va_arg(reading->values, long long), to);
    case sizeof(short): return PrintNumber(conversion, "h", va_arg(reading->values, int), to);
    case sizeof(char): return PrintNumber(conversion, "hh", va_arg(reading->values, int), to);
    default: return PrintNumber(conversion, "", va_arg(reading->values, int), to);
    }
}

// Whether a text or a character is one of 16-bit characters: %s and %c are, %S and %C are of the other kind, and a
// size says it outright.
bool IsWide(const Conversion &conversion) {
    if (conversion.size == "h") return false;
    if (conversion.size == "l" || conversion.size == "w") return true;
    return conversion.type == u's' || conversion.type == u'c';
}

Text FromBytes(std::string_view bytes) {
    Text text;
    if (Utf16FromUtf8(bytes, &text)) return text;
    text.clear();
    for (const char byte : bytes) {
        text += static_cast<unsigned char>(byte) < 0x80 ? static_cast<char16_t>(byte) : unknown;
    }
    return text;
}

// The beginning of a text, at most so many units of it; nothing behind them is looked at.
template <typename Unit>
std::basic_string_view<Unit> Beginning(const Unit *text, int most) {
    std::size_t length = 0;
    while ((most < 0 || length < static_cast<std::size_t>(most)) && text[length] != 0) {
        ++length;
    }
    return {text, length};
}

void PrintText(Reading *reading, const Conversion &conversion, Text *to) {
    const void *const value = va_arg(reading->values, const void *);
    if (value == nullptr) return Pad(conversion, Text(Beginning(u"(null)", conversion.precision)), to);
    if (IsWide(conversion)) {
        return Pad(conversion, Text(Beginning(static_cast<const char16_t *>(value), conversion.precision)), to);
    }
    Pad(conversion, FromBytes(Beginning(static_cast<const char *>(value), conversion.precision)), to);
}

void PrintCharacter(Reading *reading, const Conversion &conversion, Text *to) {
    const int value = va_arg(reading->values, int);
    const char byte = static_cast<char>(value);
    Pad(conversion, IsWide(conversion) ? Text(1, static_cast<char16_t>(value)) : FromBytes({&byte, 1}), to);
}

bool PrintFraction(Reading *reading, const Conversion &conversion, Text *to) {
    return conversion.size == "L" ? PrintNumber(conversion, "L", va_arg(reading->values, long double), to)
                                  : PrintNumber(conversion, "", va_arg(reading->values, double), to);
}

bool PrintPointer(Reading *reading, Conversion conversion, Text *to) {
    conversion.type = u'X'; // as Win32 prints it: digits alone, all of them
    conversion.precision = 2 * sizeof(void *);
    return PrintNumber(conversion, "ll", static_cast<unsigned long long>(va_arg(reading->values, DWORD_PTR)), to);
}

// False for a conversion that there is not, %n among them.
bool Convert(Reading *reading, Text *to) {
    Conversion conversion;
    if (!TakeConversion(reading, &conversion)) return false;
    switch (conversion.type) {
    case u'%': *to += u'%'; return true;
    case u's':
    case u'S': PrintText(reading, conversion, to); return true;
    case u'c':
    case u'C': PrintCharacter(reading, conversion, to); return true;
    case u'p': return PrintPointer(reading, conversion, to);
    default: break;
    }
    const std::u16string_view integers = u"diuxXo";
    const std::u16string_view fractions = u"fFeEgGaA";
    if (integers.find(conversion.type) != integers.npos) return PrintInteger(reading, conversion, to);
    return fractions.find(conversion.type) != fractions.npos && PrintFraction(reading, conversion, to);
}

DWORD Format(LPCWSTR format, va_list values, Text *to) {
    if (format == nullptr) return ERROR_INVALID_PARAMETER;
    Reading reading = {Beginning(reinterpret_cast<const char16_t *>(format), -1), {}};
    va_copy(reading.values, values);
    bool understood = true;
    while (understood && !reading.format.empty()) {
        const char16_t unit = Take(&reading);
        if (unit == u'%') {
            understood = Convert(&reading, to);
        } else {
            *to += unit;
        }
    }
    va_end(reading.values);
    return understood ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER;
}

} // namespace

int tvFormatWide(LPWSTR to, size_t room, LPCWSTR format, va_list values) {
    Text text;
    const BOOL done = Answer(Guarded([&] { return Format(format, values, &text); }));
    (void)CopyCut(done ? text : Text(), to, room);
    return done ? static_cast<int>(text.size()) : -1;
}

int tvFormatWideAsUtf8(LPSTR to, size_t room, LPCWSTR format, va_list values) {
    std::string text;
    const BOOL done = Answer(Guarded([&]() -> DWORD {
        Text wide;
        const DWORD rc = Format(format, values, &wide);
        if (rc != ERROR_SUCCESS) return rc;
        return Utf8FromUtf16(wide, &text) ? ERROR_SUCCESS : ERROR_NO_UNICODE_TRANSLATION;
    }));
    (void)CopyCut(done ? text : std::string(), to, room);
    return done ? static_cast<int>(text.size()) : -1;
}
