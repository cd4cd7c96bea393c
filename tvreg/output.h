// SPDX-License-Identifier: MIT
// output: what all commands print with, and files read and written whole.
#pragma once

#include "tvreg/reg_text.h"

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>

using Json = nlohmann::ordered_json;

// To standard output. Throws a Failure when it has not arrived there.
void Print(std::string_view text);
void PrintJson(const Json &object);

// What has failed, for PrintJson.
//   code   Win32; 0 where the registry was not asked
//   meant  what a word may have been meant as
Json ErrorJson(const std::string &text, std::uint32_t code = 0, const std::vector<std::string> &meant = {});

// A line on standard error, behind the program's name.
void Tell(const std::string &text);

// The name of a value, and a value with its type and data on a line of its own, as a terminal may show them.
std::string NameText(const RegValue &value);
std::string ValueLine(const RegValue &value);

// All that can be read of a file, a pipe or, for "-", standard input. Throws a Failure that names the file.
std::string ReadFile(const std::string &file);

// Puts a file in the place of the old one, if there is one, when it is whole and on the disk; whatever fails leaves the
// old one. It gets the old one's mode; a link is followed. What is no regular file is written to. Throws a Failure that
// names the file.
void WriteFile(const std::string &file, std::string_view content);
