// SPDX-License-Identifier: MIT
// reg_text: the registry as .reg text, read and written.
//
// Two dialects, told apart by the first line. REGEDIT4 holds bytes. "Windows Registry Editor Version 5.00" holds
// Unicode: its text is UTF-16 or UTF-8, each with or without a byte-order mark, and the hexadecimal data of the string
// types (hex(1), hex(2), hex(7)) is UTF-16LE whatever the text is. The registry holds bytes, Unicode text as UTF-8.
// Line ends may be LF or CRLF.
#pragma once

#include "tvreg/key_path.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct RegValue {
    std::string name; // empty: the unnamed value, "@"
    bool isDeleted = false;
    std::uint32_t type = REG_NONE;
    std::string data; // the registry's bytes, terminators included
    int line = 0;     // of the file that it was read from; 0: of none

    bool operator==(const RegValue &other) const {
        return name == other.name && isDeleted == other.isDeleted && type == other.type && data == other.data;
    }
};

struct RegKey {
    KeyPath key;
    bool isDeleted = false;
    std::vector<RegValue> values; // none when the key is deleted
    int line = 0;
};

enum class RegDialect { regedit4, version5 };

struct RegTextError {
    int line;
    std::string text; // for people, without the line
};

struct RegReadingRules {
    bool isLenient = false;    // take what can be read, and a backslash in a quoted text that stands before anything
    std::string encoding = {}; // of the text, and of the strings of a REGEDIT4 file, as iconv(3) calls it; empty: told
                               // from the file, and REGEDIT4 bytes as they are
};

constexpr std::size_t mostRegTextErrors = 100;

// Reads .reg text: keys to make and delete, with their values, in the order of the file. Returns what is wrong, line by
// line, up to mostRegTextErrors. Unless the rules are lenient nothing is read where anything is wrong; then a line that
// cannot be read is passed over, a key with all its values.
std::vector<RegTextError> ReadRegText(std::string_view bytes, std::vector<RegKey> *keys,
                                      const RegReadingRules &rules = {});

// Writes keys in the order given. version5 is UTF-16LE with byte-order mark and CRLF; regedit4 is the registry's own
// bytes with LF. Reading the text gives the same keys, types and bytes.
// Ends of lines in the names of keys, and for version5 their bytes that are no UTF-8, are written as \\xNN.
// Returns false, with `culprit` saying where, when version5 cannot hold the name of a value or a string because it is
// not UTF-8.
[[nodiscard]] bool WriteRegText(const std::vector<RegKey> &keys, RegDialect dialect, std::string *bytes,
                                std::string *culprit);
