// SPDX-License-Identifier: MIT
// reg_text: a reader that goes over the text once, and the writer.
#include "tvreg/reg_text.h"

#include "tvreg/encoding.h"
#include "tvreg/utf16.h"
#include "util/little_endian.h"
#include "util/utf8.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <utility>

namespace {

constexpr std::string_view header4 = "REGEDIT4";
constexpr std::string_view header5 = "Windows Registry Editor Version 5.00";
constexpr std::string_view escape = R"(\\x)"; // in front of a byte of a key's name
constexpr std::size_t escapeDigits = 2;

// Where hexadecimal data of this type is Unicode in version 5.
bool IsStringType(std::uint32_t type) { return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ; }

// --- reading -------------------------------------------------------------------------------------------------------

struct Reader {
    std::string_view rest = {};
    int line = 1;
    RegReadingRules rules = {};
    RegDialect dialect = RegDialect::regedit4;
    std::string error = {}; // not empty: reading a line has failed
};

bool Fail(Reader &reader, std::string_view text) {
    if (reader.error.empty()) reader.error = text;
    return false;
}

bool Take(Reader &reader, std::string_view text) {
    if (!reader.rest.starts_with(text)) return false;
    reader.rest.remove_prefix(text.size());
    return true;
}

bool TakeLineEnd(Reader &reader) {
    if (!Take(reader, "\r\n") && !Take(reader, "\n")) return false;
    ++reader.line;
    return true;
}

void SkipBlanks(Reader &reader) {
    reader.rest.remove_prefix(std::min(reader.rest.find_first_not_of(" \t"), reader.rest.size()));
}

bool AtLineEnd(const Reader &reader) {
    return reader.rest.empty() || reader.rest.starts_with("\n") || reader.rest.starts_with("\r\n");
}

// The rest of the line, its end left to be counted.
std::string_view TakeLine(Reader &reader) {
    std::size_t length = std::min(reader.rest.find('\n'), reader.rest.size());
    if (length < reader.rest.size() && length > 0 && reader.rest[length - 1] == '\r') --length;
    const std::string_view line = reader.rest.substr(0, length);
    reader.rest.remove_prefix(length);
    return line;
}

// The end of a line behind what was read from it: blanks and a comment at most.
bool TakeRestOfLine(Reader &reader) {
    SkipBlanks(reader);
    if (reader.rest.starts_with(';')) (void)TakeLine(reader);
    if (reader.rest.empty() || TakeLineEnd(reader)) return true;
    return Fail(reader, "unexpected text at the end of the line");
}

// A quoted text, in which a backslash stands before a quote or a backslash. It may go on over line ends, which belong
// to it.
bool TakeQuoted(Reader &reader, std::string *text) {
    text->clear();
    int line = reader.line;
    for (std::size_t i = 1; i < reader.rest.size(); ++i) {
        const char c = reader.rest[i];
        if (c == '"') {
            reader.rest.remove_prefix(i + 1);
            reader.line = line;
            return true;
        }
        if (c == '\n') ++line;
        if (c == '\\') {
            if (i + 1 == reader.rest.size()) break;
            const bool isEscape = reader.rest[i + 1] == '\\' || reader.rest[i + 1] == '"';
            if (!isEscape && !reader.rules.isLenient) {
                return Fail(reader, "only \\\\ and \\\" may follow a backslash in a quoted text");
            }
            if (isEscape) ++i;
        }
        text->push_back(reader.rest[i]);
    }
    return Fail(reader, "closing quote missing");
}

// Up to eight hexadecimal digits.
bool TakeHexNumber(Reader &reader, std::uint32_t *number) {
    const char *begin = reader.rest.data();
    const char *end = begin + std::min<std::size_t>(reader.rest.size(), 8);
    const auto [stop, code] = std::from_chars(begin, end, *number, 16);
    if (code != std::errc()) return false;
    reader.rest.remove_prefix(static_cast<std::size_t>(stop - begin));
    return true;
}

// Pairs of digits with commas between them; a backslash at the end of a line continues them on the next.
bool TakeHexBytes(Reader &reader, std::string *bytes) {
    bool byteMayFollow = true;
    for (;;) {
        SkipBlanks(reader);
        if (Take(reader, "\\")) {
            SkipBlanks(reader);
            if (!TakeLineEnd(reader)) return Fail(reader, "a backslash in hexadecimal data must end its line");
            continue;
        }
        if (AtLineEnd(reader) || reader.rest.starts_with(';')) return true;
        if (!byteMayFollow) return Fail(reader, "a comma is missing in hexadecimal data");
        const std::string_view digits = reader.rest.substr(0, 2);
        std::uint32_t byte = 0;
        const auto [stop, code] = std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
        if (code != std::errc()) return Fail(reader, "hexadecimal data must be pairs of digits");
        const auto taken = static_cast<std::size_t>(stop - digits.data());
        reader.rest.remove_prefix(taken);
        if (taken != 2 ||
            (!reader.rest.empty() && std::isxdigit(static_cast<unsigned char>(reader.rest.front())) != 0)) {
            return Fail(reader, "hexadecimal data must be pairs of digits");
        }
        bytes->push_back(static_cast<char>(byte));
        SkipBlanks(reader);
        byteMayFollow = Take(reader, ",");
    }
}

bool TakeHexValue(Reader &reader, RegValue *value) {
    value->type = REG_BINARY;
    if (Take(reader, "(") && (!TakeHexNumber(reader, &value->type) || !Take(reader, ")"))) {
        return Fail(reader, "the type in hex(...) must be a hexadecimal number");
    }
    if (!Take(reader, ":")) return Fail(reader, "a colon must follow hex");
    if (!TakeHexBytes(reader, &value->data)) return false;
    if (reader.dialect == RegDialect::version5 && IsStringType(value->type)) {
        std::string text;
        if (!Utf8FromUtf16Bytes(value->data, &text)) {
            return Fail(reader, "the data of this type must be UTF-16LE in a file of version 5.00");
        }
        value->data = std::move(text);
    } else if (IsStringType(value->type) && !reader.rules.encoding.empty()) {
        std::string text;
        if (!Utf8FromEncoding(reader.rules.encoding, value->data, &text)) {
            return Fail(reader, fmt::format("the data of this type is not {}", reader.rules.encoding));
        }
        value->data = std::move(text);
    }
    return true;
}

bool TakeDwordValue(Reader &reader, RegValue *value) {
    value->type = REG_DWORD;
    std::uint32_t number = 0;
    if (!TakeHexNumber(reader, &number)) return Fail(reader, "dword needs one to eight hexadecimal digits");
    value->data.resize(dwordBytes);
    PutDword(number, value->data.data());
    return true;
}

bool TakeStringValue(Reader &reader, RegValue *value) {
    value->type = REG_SZ;
    if (!TakeQuoted(reader, &value->data)) return false;
    value->data.push_back('\0');
    return true;
}

// "name"=..., the reader at its beginning.
bool TakeValue(Reader &reader, RegValue *value) {
    if (!Take(reader, "@") && !TakeQuoted(reader, &value->name)) return false;
    SkipBlanks(reader);
    if (!Take(reader, "=")) return Fail(reader, "an equals sign must follow the name of a value");
    SkipBlanks(reader);
    if (reader.rest.starts_with('"')) return TakeStringValue(reader, value);
    if (Take(reader, "dword:")) return TakeDwordValue(reader, value);
    if (Take(reader, "hex")) return TakeHexValue(reader, value);
    value->isDeleted = Take(reader, "-");
    return value->isDeleted || Fail(reader, "a value must be a quoted text, dword:, hex:, hex(n): or -");
}

// A byte of a key's name that its line cannot hold stands there as \\xNN, behind two backslashes: names have none, and
// no name is empty. Puts the bytes back; returns false for one that no name has.
bool TakeEscapedBytes(std::string_view written, std::string *path) {
    while (!written.empty()) {
        const std::string_view digits = written.substr(std::min(escape.size(), written.size()), escapeDigits);
        std::uint32_t byte = 0;
        const auto [stop, code] = std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
        const bool isEscape = written.starts_with(escape) && code == std::errc() && digits.size() == escapeDigits &&
                              stop == digits.data() + digits.size();
        if (isEscape && (byte == '\0' || byte == '\\')) return false;
        path->push_back(isEscape ? static_cast<char>(byte) : written.front());
        written.remove_prefix(isEscape ? escape.size() + escapeDigits : 1);
    }
    return true;
}

// [KEY] or [-KEY]. The name of a key may hold brackets, so the last one of the line closes.
bool TakeKey(Reader &reader, RegKey *key) {
    (void)Take(reader, "[");
    key->isDeleted = Take(reader, "-");
    const std::string_view line = reader.rest.substr(0, reader.rest.find('\n'));
    const std::size_t close = line.rfind(']');
    if (close == std::string_view::npos) return Fail(reader, "closing bracket missing");
    std::string path;
    if (!TakeEscapedBytes(line.substr(0, close), &path)) {
        return Fail(reader, "neither a backslash nor a zero byte can stand in the name of a key");
    }
    reader.rest.remove_prefix(close + 1);
    // Other than on a command line, a slash is a letter like any other here.
    if (path.find('\\') == std::string::npos && path.find('/') != std::string::npos) {
        return Fail(reader, "unknown root key");
    }
    if (!ParseKeyPath(path, &key->key)) return Fail(reader, "unknown root key, or an empty name in the path");
    if (key->isDeleted && key->key.path.empty()) return Fail(reader, "a root key cannot be deleted");
    return true;
}

bool TakeHeader(Reader &reader) {
    while (SkipBlanks(reader), TakeLineEnd(reader)) {
    }
    const Reader atHeader = reader;
    std::string_view header = TakeLine(reader);
    header = header.substr(0, header.find_last_not_of(" \t") + 1);
    reader.dialect = header == header5 ? RegDialect::version5 : RegDialect::regedit4;
    if (header == header4 || header == header5) return TakeRestOfLine(reader);
    reader = atHeader;
    return Fail(reader, fmt::format("the first line must be \"{}\" or \"{}\"", header4, header5));
}

// The number of the first line that is not UTF-8; 0 when all are.
int LineThatIsNoUtf8(std::string_view text) {
    for (int line = 1; !text.empty(); ++line) {
        const std::size_t length = std::min(text.find('\n'), text.size() - 1) + 1;
        if (!IsUtf8(text.substr(0, length))) return line;
        text.remove_prefix(length);
    }
    return 0;
}

// A key line. `isBelowWrongKey` tells of the values that follow.
bool TakeKeyLine(Reader &reader, std::vector<RegKey> *keys, bool *isBelowWrongKey) {
    RegKey key;
    key.line = reader.line;
    *isBelowWrongKey = !TakeKey(reader, &key) || !TakeRestOfLine(reader);
    if (*isBelowWrongKey) return false;
    keys->push_back(std::move(key));
    return true;
}

bool TakeValueLine(Reader &reader, std::vector<RegKey> *keys, bool isBelowWrongKey) {
    if (!isBelowWrongKey && keys->empty()) return Fail(reader, "a value before the first key");
    if (!isBelowWrongKey && keys->back().isDeleted) return Fail(reader, "a value below a key that is deleted");
    RegValue value;
    value.line = reader.line;
    if (!TakeValue(reader, &value) || !TakeRestOfLine(reader)) return false;
    if (!isBelowWrongKey) keys->back().values.push_back(std::move(value));
    return true;
}

// A line, with those that continue it.
bool TakeAnyLine(Reader &reader, std::vector<RegKey> *keys, bool *isBelowWrongKey) {
    SkipBlanks(reader);
    if (reader.rest.starts_with('[')) return TakeKeyLine(reader, keys, isBelowWrongKey);
    if (reader.rest.starts_with('"') || reader.rest.starts_with('@')) {
        return TakeValueLine(reader, keys, *isBelowWrongKey);
    }
    if (AtLineEnd(reader) || reader.rest.starts_with(';')) return TakeRestOfLine(reader);
    return Fail(reader, "neither a key, a value nor a comment");
}

// Goes on behind a line that cannot be read, and behind the hexadecimal data that continue it.
void PassLine(Reader &reader) {
    for (bool isContinued = true; isContinued && !reader.rest.empty();) {
        const std::string_view line = TakeLine(reader);
        isContinued = line.ends_with(",\\");
        (void)TakeLineEnd(reader);
    }
}

void NoteError(Reader &reader, std::vector<RegTextError> *errors) {
    errors->push_back({reader.line, std::exchange(reader.error, {})});
}

void TakeKeys(Reader &reader, std::vector<RegKey> *keys, std::vector<RegTextError> *errors) {
    bool isBelowWrongKey = false;
    while (!reader.rest.empty() && errors->size() < mostRegTextErrors) {
        if (!TakeAnyLine(reader, keys, &isBelowWrongKey)) {
            NoteError(reader, errors);
            PassLine(reader);
        }
    }
}

// --- writing -------------------------------------------------------------------------------------------------------

std::string Quoted(std::string_view text) {
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '\\' || c == '"') quoted.push_back('\\');
        quoted.push_back(c);
    }
    return quoted + '"';
}

// A key between its brackets; see TakeEscapedBytes.
std::string BracketedPath(const KeyPath &key, RegDialect dialect) {
    const std::string path = KeyPathText({.root = key.root, .path = key.path});
    std::string written;
    for (std::string_view rest = path; !rest.empty();) {
        std::string_view behind = rest;
        std::uint32_t character = 0;
        const bool isCharacter = TakeUtf8(&behind, &character);
        if (!isCharacter) behind.remove_prefix(1);
        const std::string_view bytes = rest.substr(0, rest.size() - behind.size());
        const bool isLineEnd = character == '\r' || character == '\n';
        if (isLineEnd || (!isCharacter && dialect == RegDialect::version5)) {
            written += fmt::format("{}{:02x}", escape, static_cast<unsigned char>(bytes.front()));
        } else {
            written += bytes;
        }
        rest = behind;
    }
    return written;
}

// Whether a string can stand in quotes: with its terminator, and nothing in it that would not survive an editor.
bool IsPlainText(std::string_view data) {
    if (!data.ends_with('\0')) return false;
    data.remove_suffix(1);
    return std::none_of(data.begin(), data.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; });
}

// Pairs of digits behind `text`; lines end before column 80.
std::string HexText(std::string text, std::string_view bytes, std::string_view lineEnd) {
    std::size_t column = text.size();
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (column > 75) {
            text += fmt::format("\\{}  ", lineEnd);
            column = 2;
        }
        text += fmt::format("{:02x}{}", static_cast<unsigned char>(bytes[i]), i + 1 < bytes.size() ? "," : "");
        column += 3;
    }
    return text;
}

std::string_view LineEnd(RegDialect dialect) { return dialect == RegDialect::version5 ? "\r\n" : "\n"; }

// The text of one value without its line end; false when version 5 cannot hold the data.
bool ValueText(const RegValue &value, RegDialect dialect, std::string *text) {
    *text = (value.name.empty() ? "@" : Quoted(value.name)) + "=";
    std::string data = value.data;
    if (dialect == RegDialect::version5 && IsStringType(value.type) && !Utf16BytesFromUtf8(value.data, &data)) {
        return false;
    }
    if (value.isDeleted) {
        *text += "-";
    } else if (value.type == REG_SZ && IsPlainText(value.data)) {
        *text += Quoted(std::string_view(value.data).substr(0, value.data.size() - 1));
    } else if (value.type == REG_DWORD && value.data.size() == dwordBytes) {
        *text += fmt::format("dword:{:08x}", DwordAt(value.data.data()));
    } else if (value.type == REG_BINARY) {
        *text = HexText(*text + "hex:", data, LineEnd(dialect));
    } else {
        *text = HexText(*text + fmt::format("hex({:x}):", value.type), data, LineEnd(dialect));
    }
    return true;
}

// Adds text of our own; false when version 5 cannot hold it.
bool Append(std::string_view text, RegDialect dialect, std::string *bytes) {
    if (dialect == RegDialect::regedit4) {
        *bytes += text;
        return true;
    }
    std::string converted;
    if (!Utf16BytesFromUtf8(text, &converted)) return false;
    *bytes += converted;
    return true;
}

} // namespace

std::vector<RegTextError> ReadRegText(std::string_view bytes, std::vector<RegKey> *keys, const RegReadingRules &rules) {
    keys->clear();
    std::string text;
    const auto lineAt = [&](std::size_t place) {
        return 1 + static_cast<int>(std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(place), '\n'));
    };
    if (!TextOfFile(bytes, rules.encoding, &text)) {
        return {{lineAt(text.size()),
                 fmt::format("the text is not proper {}", rules.encoding.empty() ? "UTF-16" : rules.encoding)}};
    }
    if (const std::size_t nul = text.find('\0'); nul != std::string::npos) {
        return {{lineAt(nul), "a zero byte: this is no text"}};
    }
    std::vector<RegTextError> errors;
    Reader reader = {.rest = text, .rules = rules};
    const bool hasHeader = TakeHeader(reader);
    if (!hasHeader) NoteError(reader, &errors);
    if (reader.dialect == RegDialect::version5 && LineThatIsNoUtf8(text) != 0) {
        return {{LineThatIsNoUtf8(text), "the text of a file of version 5.00 must be UTF-8 or UTF-16; or its encoding "
                                         "must be told"}};
    }
    if (hasHeader || rules.isLenient) TakeKeys(reader, keys, &errors);
    if (!errors.empty() && !rules.isLenient) keys->clear();
    return errors;
}

bool WriteRegText(const std::vector<RegKey> &keys, RegDialect dialect, std::string *bytes, std::string *culprit) {
    const std::string_view lineEnd = LineEnd(dialect);
    *bytes = dialect == RegDialect::version5 ? "\xFF\xFE" : "";
    (void)Append(fmt::format("{}{}", dialect == RegDialect::version5 ? header5 : header4, lineEnd), dialect, bytes);
    for (const RegKey &key : keys) {
        *culprit = KeyPathText(key.key);
        (void)Append(fmt::format("{0}[{1}{2}]{0}", lineEnd, key.isDeleted ? "-" : "", BracketedPath(key.key, dialect)),
                     dialect, bytes);
        for (const RegValue &value : key.values) {
            std::string text;
            if (ValueText(value, dialect, &text) && Append(fmt::format("{}{}", text, lineEnd), dialect, bytes)) {
                continue;
            }
            *culprit += fmt::format(", value {}", Quoted(value.name));
            return false;
        }
    }
    culprit->clear();
    return true;
}
