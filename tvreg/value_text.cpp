// SPDX-License-Identifier: MIT
// value_text: how data of each type is written down.
#include "tvreg/value_text.h"

#include "util/json_text.h"
#include "util/ktl_strings.h"
#include "util/little_endian.h"
#include "util/printable.h"
#include "util/similar_names.h"
#include "util/string_list.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <iterator>

namespace {

constexpr const char *types[] = {"REG_NONE",
                                 "REG_SZ",
                                 "REG_EXPAND_SZ",
                                 "REG_BINARY",
                                 "REG_DWORD",
                                 "REG_DWORD_BIG_ENDIAN",
                                 "REG_LINK",
                                 "REG_MULTI_SZ",
                                 "REG_RESOURCE_LIST",
                                 "REG_FULL_RESOURCE_DESCRIPTOR",
                                 "REG_RESOURCE_REQUIREMENTS_LIST",
                                 "REG_QWORD"};

constexpr std::size_t qwordBytes = std::size_t{2} * dwordBytes;
constexpr std::string_view prefix = "REG_";

// A whole text as a number: decimal, or hexadecimal behind 0x.
template <typename Number = std::uint32_t>
std::optional<Number> ParseNumber(std::string_view text) {
    const bool isHex = text.starts_with("0x") || text.starts_with("0X");
    if (isHex) text.remove_prefix(2);
    Number number = 0;
    const auto [stop, code] = std::from_chars(text.data(), text.data() + text.size(), number, isHex ? 16 : 10);
    if (code != std::errc() || stop != text.data() + text.size()) return std::nullopt;
    return number;
}

std::optional<std::string> ParseHex(const std::vector<std::string> &words) {
    std::string digits, bytes;
    for (const std::string &word : words) {
        for (const char c : word) {
            if (c != ',') digits.push_back(c);
        }
    }
    if (digits.size() % 2 != 0) return std::nullopt;
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        const auto byte = ParseNumber("0x" + digits.substr(i, 2));
        if (!byte) return std::nullopt;
        bytes.push_back(static_cast<char>(*byte));
    }
    return bytes;
}

// Cuts each word at the separator; false for an empty string, which would end the list.
bool CutWords(const std::vector<std::string> &words, std::string_view separator, std::vector<std::string> *strings) {
    for (std::string_view rest : words) {
        if (rest.empty()) return false;
        while (!separator.empty() && rest.ends_with(separator)) {
            rest.remove_suffix(separator.size());
        }
        while (!rest.empty()) {
            const std::size_t length = separator.empty() ? rest.size() : std::min(rest.find(separator), rest.size());
            if (length == 0) return false;
            strings->emplace_back(rest.substr(0, length));
            rest.remove_prefix(std::min(length + separator.size(), rest.size()));
        }
    }
    return true;
}

std::uint64_t QwordAt(const char *bytes) { return std::uint64_t{DwordAt(bytes + dwordBytes)} << 32 | DwordAt(bytes); }

bool IsQword(const RegValue &value) { return value.type == REG_QWORD && value.data.size() == qwordBytes; }

std::string WithoutTerminator(const std::string &data) {
    return data.ends_with('\0') ? data.substr(0, data.size() - 1) : data;
}

std::string HexOf(std::string_view data) {
    std::string text;
    for (const unsigned char byte : data) {
        text += fmt::format("{:02x}", byte);
    }
    return text;
}

} // namespace

std::string TypeText(std::uint32_t type) { return type < std::size(types) ? types[type] : fmt::format("{}", type); }

std::optional<std::uint32_t> ParseType(const std::string &text) {
    for (std::uint32_t type = 0; type < std::size(types); ++type) {
        const char *shortName = types[type] + prefix.size();
        if (_ktl_strcasecmp(text.c_str(), types[type]) == 0 || _ktl_strcasecmp(text.c_str(), shortName) == 0) {
            return type;
        }
    }
    if (_ktl_strcasecmp(text.c_str(), "multi") == 0) return REG_MULTI_SZ;
    if (_ktl_strcasecmp(text.c_str(), "expand") == 0) return REG_EXPAND_SZ;
    return ParseNumber(text);
}

std::vector<std::string> SimilarTypes(const std::string &text) {
    return SimilarNames(text, {std::begin(types), std::end(types)});
}

std::string DataText(const RegValue &value, std::string_view separator) {
    if (value.type == REG_SZ || value.type == REG_EXPAND_SZ) return Printable(WithoutTerminator(value.data));
    if (value.type == REG_DWORD && value.data.size() == dwordBytes) {
        return fmt::format("{:#x}", DwordAt(value.data.data()));
    }
    if (IsQword(value)) return fmt::format("{:#x}", QwordAt(value.data.data()));
    if (value.type != REG_MULTI_SZ) return HexOf(value.data);
    std::string text;
    for (const std::string &string : SplitMultiString(value.data)) {
        if (!text.empty()) text += separator;
        text += Printable(string, CharsetShown(), '0');
    }
    return text;
}

std::optional<std::string> ParseData(std::uint32_t type, const std::vector<std::string> &words,
                                     std::string_view separator) {
    std::string data;
    switch (type) {
    case REG_SZ:
    case REG_EXPAND_SZ:
        if (words.size() > 1) return std::nullopt;
        if (!words.empty()) data = words.front();
        data.push_back('\0');
        return data;
    case REG_MULTI_SZ: {
        std::vector<std::string> strings;
        if (!CutWords(words, separator, &strings)) return std::nullopt;
        return JoinMultiString(strings);
    }
    case REG_QWORD: {
        const auto number = words.size() == 1 ? ParseNumber<std::uint64_t>(words.front()) : std::nullopt;
        if (!number) return std::nullopt;
        data.resize(qwordBytes);
        PutDword(static_cast<std::uint32_t>(*number), data.data());
        PutDword(static_cast<std::uint32_t>(*number >> 32), data.data() + dwordBytes);
        return data;
    }
    case REG_DWORD: {
        const auto number = words.size() == 1 ? ParseNumber(words.front()) : std::nullopt;
        if (!number) return std::nullopt;
        data.resize(dwordBytes);
        PutDword(*number, data.data());
        return data;
    }
    default: return ParseHex(words);
    }
}

nlohmann::ordered_json ValueJson(const RegValue &value) {
    nlohmann::ordered_json object;
    SetText(object, "name", value.name);
    object["type"] = TypeText(value.type);
    object["type_code"] = value.type;
    if (value.type == REG_SZ || value.type == REG_EXPAND_SZ) {
        SetText(object, "data", WithoutTerminator(value.data));
    } else if (value.type == REG_DWORD && value.data.size() == dwordBytes) {
        object["data"] = DwordAt(value.data.data());
    } else if (IsQword(value)) {
        object["data"] = QwordAt(value.data.data());
    } else if (value.type == REG_MULTI_SZ) {
        SetTexts(object, "data", SplitMultiString(value.data));
    } else {
        object["data"] = HexOf(value.data);
    }
    return object;
}
