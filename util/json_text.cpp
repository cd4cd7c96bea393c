// SPDX-License-Identifier: MIT
// json_text: what is no character is replaced as it is written.
#include "util/json_text.h"

#include "util/base64.h"
#include "util/utf8.h"

#include <nlohmann/json.hpp>

#include <algorithm>

using Json = nlohmann::ordered_json;

void SetText(Json &object, const std::string &member, const std::string &text) {
    object[member] = text;
    if (!IsUtf8(text)) object[member + "_bytes"] = Base64(text);
}

void SetTexts(Json &object, const std::string &member, const std::vector<std::string> &texts) {
    object[member] = texts;
    if (std::all_of(texts.begin(), texts.end(), IsUtf8)) return;
    Json bytes = Json::array();
    for (const std::string &text : texts) {
        bytes.push_back(Base64(text));
    }
    object[member + "_bytes"] = std::move(bytes);
}

static std::string Written(const Json &value, int indentation) {
    constexpr bool asAscii = true;
    return value.dump(indentation, ' ', asAscii, Json::error_handler_t::replace);
}

std::string JsonText(const Json &value) { return Written(value, 2); }

std::string JsonLine(const Json &value) { return Written(value, -1); }
