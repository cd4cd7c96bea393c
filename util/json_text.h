// SPDX-License-Identifier: MIT
// json_text: names and texts in JSON, whatever bytes they are.
//
// JSON holds characters. A text that is not UTF-8 stands there with replacement characters, and its bytes in base64
// beside it, in a member with _bytes added to the name.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

// Sets a member to a text, and MEMBER_bytes where it is needed.
void SetText(nlohmann::ordered_json &object, const std::string &member, const std::string &text);

// The same for an array. MEMBER_bytes is one of as many, with the bytes of each text, where any of them is not UTF-8.
void SetTexts(nlohmann::ordered_json &object, const std::string &member, const std::vector<std::string> &texts);

// A value over several lines, without the end of the last one. All of it is ASCII: what a terminal would act on stands
// there as \uNNNN.
[[nodiscard]] std::string JsonText(const nlohmann::ordered_json &value);
[[nodiscard]] std::string JsonLine(const nlohmann::ordered_json &value); // the same on one line
