// SPDX-License-Identifier: MIT
// value_text: the types and data of values, for people and in JSON.
#pragma once

#include "tvreg/reg_text.h"

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>
#include <vector>

// "REG_SZ" ...; the number for a type without a name.
std::string TypeText(std::uint32_t type);

// Reads "REG_DWORD" or "dword", in any letter case, or a number.
std::optional<std::uint32_t> ParseType(const std::string &text);

// The names of types that a text which is none may have been meant as.
std::vector<std::string> SimilarTypes(const std::string &text);

// Data as one line: strings as they are, the strings of a REG_MULTI_SZ with \0 between them, numbers as 0x..., the rest
// as hexadecimal digits. Printable; a \0 that stands in a string itself has its backslash as \x5c.
//   separator  what stands between strings instead of \0
std::string DataText(const RegValue &value, std::string_view separator = "\\0");

// Makes data of a type out of words: one string for REG_SZ and REG_EXPAND_SZ, any number for REG_MULTI_SZ, a decimal or
// 0x... number for REG_DWORD and REG_QWORD, hexadecimal digits for the rest. Nothing when the words are not of that
// kind.
//   separator  cuts a word of REG_MULTI_SZ into several strings; at its end it means nothing; empty: words stay whole
std::optional<std::string> ParseData(std::uint32_t type, const std::vector<std::string> &words,
                                     std::string_view separator = {});

// Members name, type, type_code, data; name_bytes and data_bytes for what is not UTF-8 (json_text.h).
nlohmann::ordered_json ValueJson(const RegValue &value);
