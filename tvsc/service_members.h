// SPDX-License-Identifier: MIT
// service_members: values of a service's key as members of its text, and back.
//
// A member stands for a value exactly: what it would not give back byte for byte is no member, and the text holds the
// value as it is (service_text.h). A text that is not UTF-8 is shown as a terminal would, and the member with _bytes
// added to its name, which holds its bytes in base64, is what counts; of a list it is a list of as many.
#pragma once

#include "tvreg/reg_text.h"
#include "tvsc/config_words.h"

#include <toml++/toml.h>

#include <optional>
#include <string>
#include <string_view>

enum class MemberKind { text, texts, number, flag, word, actions };

struct ServiceMember {
    const char *name;  // in the text
    const char *value; // in the registry
    MemberKind kind;
    const NumberWords *words = nullptr; // of a word; another number stands for itself
};

// The one that a name in the text, or a value of the registry, belongs to; null for none.
[[nodiscard]] const ServiceMember *MemberNamed(std::string_view name);
[[nodiscard]] const ServiceMember *MemberOfValue(std::string_view value);

// The member whose bytes another one holds: "name" for "name_bytes"; empty for none.
[[nodiscard]] std::string_view MemberOfBytes(std::string_view name);

// Sets a member to what a value holds. Returns whether the member gives it back; else nothing is set.
[[nodiscard]] bool SetMember(toml::table &table, const ServiceMember &member, const RegValue &value);

// Sets one that is named as the value, by the type of the value: text, list or number.
[[nodiscard]] bool SetMember(toml::table &table, const RegValue &value);

void SetTextMember(toml::table &table, const std::string &name, const std::string &text);

// What a member says. Nothing, and a text in *problem, when it is not of its kind.
[[nodiscard]] std::optional<RegValue> ReadMember(const toml::table &table, const ServiceMember &member,
                                                 std::string *problem);
[[nodiscard]] std::optional<RegValue> ReadMember(const toml::table &table, const std::string &name,
                                                 std::string *problem);
[[nodiscard]] std::optional<std::string> ReadTextMember(const toml::table &table, std::string_view name,
                                                        std::string *problem);
