// SPDX-License-Identifier: MIT
// service_members: one list of members, and how each kind is written and read.
#include "tvsc/service_members.h"

#include "servd/service_keys.h"
#include "svcapi/config2.h"
#include "util/base64.h"
#include "util/little_endian.h"
#include "util/names.h"
#include "util/printable.h"
#include "util/string_list.h"
#include "util/utf8.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstdint>
#include <limits>

namespace {

constexpr std::string_view ofBytes = "_bytes";

constexpr ServiceMember members[] = {
    {"type", typeValue, MemberKind::word, &serviceTypeWords},
    {"start", startTypeValue, MemberKind::word, &startTypeWords},
    {"error_control", errorControlValue, MemberKind::word, &errorControlWords},
    {"image_path", imagePathValue, MemberKind::text},
    {"display_name", displayNameValue, MemberKind::text},
    {"group", groupValue, MemberKind::text},
    {"tag", tagValue, MemberKind::number},
    {"depends_on", dependenciesValue, MemberKind::texts},
    {"account", accountValue, MemberKind::text},
    {"description", descriptionName, MemberKind::text},
    {"delayed_auto_start", delayedAutoStartName, MemberKind::flag},
    {"failure_actions", failureActionsName, MemberKind::actions},
    {"failure_actions_on_non_crash", failureActionsFlagName, MemberKind::flag},
    {"failure_command", failureCommandName, MemberKind::text},
    {"reboot_message", rebootMessageName, MemberKind::text},
    {"required_privileges", requiredPrivilegesName, MemberKind::texts},
    {"sid_type", sidTypeName, MemberKind::number},
    {"preshutdown_timeout_ms", preshutdownTimeoutName, MemberKind::number},
};

RegValue ValueOf(const char *name, std::uint32_t type, std::string data) {
    return {.name = name, .isDeleted = false, .type = type, .data = std::move(data)};
}

std::string NumberData(std::uint32_t number) {
    std::string data(dwordBytes, '\0');
    PutDword(number, data.data());
    return data;
}

std::uint32_t NumberIn(const RegValue &value) {
    return value.data.size() == dwordBytes ? DwordAt(value.data.data()) : 0;
}

std::string TextIn(const RegValue &value) { return value.data.substr(0, value.data.find('\0')); }

// --- into the text ---

std::string Shown(const std::string &text) { return IsUtf8(text) ? text : Printable(text, Charset::utf8); }

void SetTextsMember(toml::table &table, const std::string &name, const std::vector<std::string> &texts) {
    toml::array shown, bytes;
    for (const std::string &text : texts) {
        shown.push_back(Shown(text));
        bytes.push_back(Base64(text));
    }
    table.insert_or_assign(name, std::move(shown));
    if (!std::all_of(texts.begin(), texts.end(), [](const std::string &text) { return IsUtf8(text); })) {
        table.insert_or_assign(name + std::string(ofBytes), std::move(bytes));
    }
}

// The word for a number, or the number.
void SetWord(toml::table &table, const std::string &name, const NumberWords &words, std::uint32_t number) {
    const auto word = std::find_if(words.begin(), words.end(), [&](const auto &one) { return one.second == number; });
    if (word != words.end()) {
        table.insert_or_assign(name, word->first);
    } else {
        table.insert_or_assign(name, std::int64_t{number});
    }
}

void SetActions(toml::table &table, const std::string &name, const std::string &data) {
    FailureActionsValue value;
    if (!UnpackFailureActions(data, &value)) return;
    toml::array actions;
    for (const SC_ACTION &action : value.actions) {
        toml::table entry;
        SetWord(entry, "action", failureActionWords, static_cast<std::uint32_t>(action.Type));
        entry.insert_or_assign("delay_ms", std::int64_t{action.Delay});
        entry.is_inline(true);
        actions.push_back(std::move(entry));
    }
    table.insert_or_assign(
        name, toml::table{{"actions", std::move(actions)}, {"reset_period_s", std::int64_t{value.resetPeriodSec}}});
}

void SetAnyMember(toml::table &table, const ServiceMember &member, const RegValue &value) {
    switch (member.kind) {
    case MemberKind::text: return SetTextMember(table, member.name, TextIn(value));
    case MemberKind::texts: return SetTextsMember(table, member.name, SplitMultiString(value.data));
    case MemberKind::number: table.insert_or_assign(member.name, std::int64_t{NumberIn(value)}); return;
    case MemberKind::flag: table.insert_or_assign(member.name, NumberIn(value) != 0); return;
    case MemberKind::word: return SetWord(table, member.name, *member.words, NumberIn(value));
    case MemberKind::actions: return SetActions(table, member.name, value.data);
    }
}

void Remove(toml::table &table, const std::string &name) {
    table.erase(name);
    table.erase(name + std::string(ofBytes));
}

// --- out of the text ---

std::optional<std::string> FromBase64(const toml::node &node, std::string *problem) {
    const auto text = node.value_exact<std::string>();
    std::optional<std::string> bytes = text ? BytesOfBase64(*text) : std::nullopt;
    if (!bytes) *problem = "not base64";
    return bytes;
}

const toml::node *BytesOf(const toml::table &table, std::string_view name) {
    return table.get(std::string(name) + std::string(ofBytes));
}

// A text can end where the registry's do only.
std::optional<std::string> WithoutNul(std::optional<std::string> text, std::string *problem) {
    if (!text || text->find('\0') == std::string::npos) return text;
    *problem = "has a NUL in it";
    return std::nullopt;
}

std::optional<std::vector<std::string>> ReadTexts(const toml::table &table, std::string_view name,
                                                  std::string *problem) {
    const toml::node *bytes = BytesOf(table, name);
    const toml::node *node = bytes != nullptr ? bytes : table.get(name);
    const toml::array *list = node != nullptr ? node->as_array() : nullptr;
    *problem = "not a list of texts, none of them empty";
    if (list == nullptr) return std::nullopt;
    std::vector<std::string> texts;
    for (const toml::node &one : *list) {
        auto text = bytes != nullptr ? FromBase64(one, problem) : one.value_exact<std::string>();
        text = WithoutNul(std::move(text), problem);
        if (!text || text->empty()) return std::nullopt;
        texts.push_back(std::move(*text));
    }
    return texts;
}

std::optional<std::uint32_t> ReadNumber(const toml::node *node, std::string *problem) {
    const auto number = node != nullptr ? node->value_exact<std::int64_t>() : std::nullopt;
    const bool fits = number && *number >= std::numeric_limits<std::int32_t>::min() &&
                      *number <= std::numeric_limits<std::uint32_t>::max();
    if (fits) return static_cast<std::uint32_t>(*number);
    *problem = "not a number of 32 bits";
    return std::nullopt;
}

std::optional<std::uint32_t> ReadWordOrNumber(const toml::node *node, const NumberWords &words, std::string *problem) {
    const auto word = node != nullptr ? node->value_exact<std::string>() : std::nullopt;
    if (!word) return ReadNumber(node, problem);
    if (const auto found = words.find(*word); found != words.end()) return found->second;
    std::vector<std::string> known;
    std::transform(words.begin(), words.end(), std::back_inserter(known), [](const auto &one) { return one.first; });
    *problem = fmt::format("{}: none of {}, and no number", *word, fmt::join(known, ", "));
    return std::nullopt;
}

std::optional<std::string> ReadActions(const toml::node *node, std::string *problem) {
    const toml::table *table = node != nullptr ? node->as_table() : nullptr;
    const toml::array *actions = table != nullptr ? (*table)["actions"].as_array() : nullptr;
    *problem = "not a table with reset_period_s and a list of actions";
    if (actions == nullptr || actions->size() > mostFailureActions) return std::nullopt;
    FailureActionsValue value;
    const auto period = ReadNumber(table->get("reset_period_s"), problem);
    if (!period) return std::nullopt;
    value.resetPeriodSec = *period;
    for (const toml::node &one : *actions) {
        const toml::table *entry = one.as_table();
        *problem = "an action is not a table with action and delay_ms";
        if (entry == nullptr) return std::nullopt;
        const auto type = ReadWordOrNumber(entry->get("action"), failureActionWords, problem);
        const auto delay = type ? ReadNumber(entry->get("delay_ms"), problem) : std::nullopt;
        if (!delay) return std::nullopt;
        if (*type > SC_ACTION_RUN_COMMAND) return std::nullopt;
        value.actions.push_back({static_cast<SC_ACTION_TYPE>(*type), *delay});
    }
    return PackFailureActions(value);
}

std::optional<RegValue> TextValue(const char *name, const std::optional<std::string> &text) {
    if (!text) return std::nullopt;
    return ValueOf(name, REG_SZ, *text + '\0');
}

std::optional<RegValue> TextsValue(const char *name, const std::optional<std::vector<std::string>> &texts) {
    if (!texts) return std::nullopt;
    return ValueOf(name, REG_MULTI_SZ, JoinMultiString(*texts));
}

std::optional<RegValue> NumberValue(const char *name, std::optional<std::uint32_t> number) {
    if (!number) return std::nullopt;
    return ValueOf(name, REG_DWORD, NumberData(*number));
}

} // namespace

const ServiceMember *MemberNamed(std::string_view name) {
    const auto *const found = std::find_if(std::begin(members), std::end(members),
                                           [&](const ServiceMember &member) { return member.name == name; });
    return found != std::end(members) ? found : nullptr;
}

const ServiceMember *MemberOfValue(std::string_view value) {
    const std::u32string folded = FoldedName(std::string(value));
    const auto *const found = std::find_if(std::begin(members), std::end(members), [&](const ServiceMember &member) {
        return FoldedName(member.value) == folded;
    });
    return found != std::end(members) ? found : nullptr;
}

std::string_view MemberOfBytes(std::string_view name) {
    return name.ends_with(ofBytes) ? name.substr(0, name.size() - ofBytes.size()) : std::string_view();
}

void SetTextMember(toml::table &table, const std::string &name, const std::string &text) {
    table.insert_or_assign(name, Shown(text));
    if (!IsUtf8(text)) table.insert_or_assign(name + std::string(ofBytes), Base64(text));
}

bool SetMember(toml::table &table, const ServiceMember &member, const RegValue &value) {
    SetAnyMember(table, member, value);
    std::string problem;
    const auto back = table.contains(member.name) ? ReadMember(table, member, &problem) : std::nullopt;
    if (back && back->type == value.type && back->data == value.data) return true;
    Remove(table, member.name);
    return false;
}

bool SetMember(toml::table &table, const RegValue &value) {
    if (value.name.empty() || !IsUtf8(value.name) || !MemberOfBytes(value.name).empty()) return false;
    switch (value.type) {
    case REG_SZ: SetTextMember(table, value.name, TextIn(value)); break;
    case REG_MULTI_SZ: SetTextsMember(table, value.name, SplitMultiString(value.data)); break;
    case REG_DWORD: table.insert_or_assign(value.name, std::int64_t{NumberIn(value)}); break;
    default: return false;
    }
    std::string problem;
    const auto back = ReadMember(table, value.name, &problem);
    if (back && back->type == value.type && back->data == value.data) return true;
    Remove(table, value.name);
    return false;
}

std::optional<std::string> ReadTextMember(const toml::table &table, std::string_view name, std::string *problem) {
    *problem = "not a text";
    const toml::node *bytes = BytesOf(table, name);
    if (bytes != nullptr) return WithoutNul(FromBase64(*bytes, problem), problem);
    const toml::node *node = table.get(name);
    return WithoutNul(node != nullptr ? node->value_exact<std::string>() : std::nullopt, problem);
}

std::optional<RegValue> ReadMember(const toml::table &table, const ServiceMember &member, std::string *problem) {
    const toml::node *node = table.get(member.name);
    switch (member.kind) {
    case MemberKind::text: return TextValue(member.value, ReadTextMember(table, member.name, problem));
    case MemberKind::texts: return TextsValue(member.value, ReadTexts(table, member.name, problem));
    case MemberKind::number: return NumberValue(member.value, ReadNumber(node, problem));
    case MemberKind::word: return NumberValue(member.value, ReadWordOrNumber(node, *member.words, problem));
    case MemberKind::flag: {
        const auto flag = node != nullptr ? node->value_exact<bool>() : std::nullopt;
        *problem = "neither true nor false";
        if (!flag) return std::nullopt;
        return NumberValue(member.value, *flag ? 1u : 0u);
    }
    case MemberKind::actions: {
        const auto data = ReadActions(node, problem);
        if (!data) return std::nullopt;
        return ValueOf(member.value, REG_BINARY, *data);
    }
    }
    return std::nullopt;
}

std::optional<RegValue> ReadMember(const toml::table &table, const std::string &name, std::string *problem) {
    const toml::node *node = table.get(name);
    if (node != nullptr && node->is_integer()) return NumberValue(name.c_str(), ReadNumber(node, problem));
    if (node != nullptr && node->is_array()) return TextsValue(name.c_str(), ReadTexts(table, name, problem));
    auto text = TextValue(name.c_str(), ReadTextMember(table, name, problem));
    if (!text && node != nullptr && !node->is_string()) *problem = "neither a text, a list of texts nor a number";
    return text;
}
