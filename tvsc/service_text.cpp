// SPDX-License-Identifier: MIT
// service_text: keys to tables and back.
#include "tvsc/service_text.h"

#include "servd/service_keys.h"
#include "tvhost/parameters.h"
#include "tvreg/value_text.h"
#include "tvsc/service_members.h"
#include "util/json_text.h"
#include "util/names.h"
#include "util/printable.h"
#include "util/string_list.h"
#include "util/utf8.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <set>
#include <sstream>

namespace {

using Json = nlohmann::ordered_json;

constexpr char servicesMember[] = "services";
constexpr char parametersMember[] = "parameters";
constexpr char valuesMember[] = "values";
constexpr char keysMember[] = "keys";

// --- writing -------------------------------------------------------------------------------------------------------

std::string HexOf(std::string_view data) {
    std::string digits;
    for (const unsigned char byte : data) {
        digits += fmt::format("{:02x}", byte);
    }
    return digits;
}

// The path of a key below the service's; empty for the service's own.
std::string PathBelow(const ServiceText &service, const RegKey &key) {
    const std::size_t cut = service.tree.top.path.size() + 1;
    return key.key.path.substr(std::min(cut, key.key.path.size()));
}

toml::table RawValue(const std::string &path, const RegValue &value) {
    toml::table entry;
    if (!path.empty()) SetTextMember(entry, "key", path);
    SetTextMember(entry, "name", value.name);
    entry.insert_or_assign("type", TypeText(value.type));
    constexpr ServiceMember asText = {"text", "", MemberKind::text}, asTexts = {"texts", "", MemberKind::texts},
                            asNumber = {"number", "", MemberKind::number};
    RegValue plain = value; // REG_EXPAND_SZ has the data of a REG_SZ
    if (plain.type == REG_EXPAND_SZ) plain.type = REG_SZ;
    for (const ServiceMember &member : {asText, asTexts, asNumber}) {
        if (SetMember(entry, member, plain)) return entry;
    }
    entry.insert_or_assign("hex", HexOf(value.data));
    return entry;
}

toml::table TableOf(const ServiceText &service) {
    toml::table table, parameters;
    toml::array values;
    std::vector<std::string> keys;
    for (const RegKey &key : service.tree.keys) {
        const std::string path = PathBelow(service, key);
        if (!path.empty() && key.values.empty()) keys.push_back(path);
        for (const RegValue &value : key.values) {
            const ServiceMember *member = path.empty() ? MemberOfValue(value.name) : nullptr;
            if (member != nullptr && SetMember(table, *member, value)) continue;
            if (AreNamesEqual(path, parametersKey) && SetMember(parameters, value)) continue;
            values.push_back(RawValue(path, value));
        }
    }
    if (!keys.empty()) {
        RegValue list;
        list.type = REG_MULTI_SZ;
        list.data = JoinMultiString(keys);
        (void)SetMember(table, {keysMember, "", MemberKind::texts}, list); // names have no NUL and are not empty
    }
    if (!parameters.empty()) table.insert_or_assign(parametersMember, std::move(parameters));
    if (!values.empty()) table.insert_or_assign(valuesMember, std::move(values));
    if (!IsUtf8(service.name)) {
        SetTextMember(table, "name", service.name);
        table.erase("name");
    }
    return table;
}

// What a service's table is called: its name, which alone tells it where it is UTF-8.
std::string HeadingOf(const std::string &name) { return IsUtf8(name) ? name : Printable(name, Charset::utf8); }

// A comment: what the text cannot say of a service, since whoever reads it would not write it.
std::string Remark(char sign, const ServiceText &service) {
    return fmt::format("{} {}: its deletion is due, it goes when the daemon starts again\n", sign,
                       Printable(service.name, Charset::utf8));
}

std::string Formatted(const toml::table &table, toml::format_flags flags) {
    std::ostringstream text;
    text << toml::toml_formatter(table, flags) << '\n';
    return text.str();
}

// Whether a text gives a table back. The library writes some strings in a form that cannot hold them: those that begin
// with the end of a line over several lines, those with control characters without escapes.
bool GivesBack(const std::string &text, const toml::table &table) {
    try {
        return toml::parse(text) == table;
    } catch (const toml::parse_error &) {
        return false;
    }
}

std::string TextOf(const toml::table &table) {
    using toml::format_flags;
    const format_flags easy = toml::toml_formatter::default_flags & ~format_flags::indentation;
    const format_flags plain = easy & ~(format_flags::allow_multi_line_strings | format_flags::allow_literal_strings);
    const std::string text = Formatted(table, easy);
    return GivesBack(text, table) ? text : Formatted(table, plain);
}

Json JsonOfNode(const toml::node &node) {
    if (const auto *table = node.as_table()) {
        Json object = Json::object();
        for (const auto &[name, member] : *table) {
            object[std::string(name.str())] = JsonOfNode(member);
        }
        return object;
    }
    if (const auto *array = node.as_array()) {
        Json list = Json::array();
        for (const toml::node &one : *array) {
            list.push_back(JsonOfNode(one));
        }
        return list;
    }
    if (const auto number = node.value_exact<std::int64_t>()) return *number;
    if (const auto flag = node.value_exact<bool>()) return *flag;
    return node.value_exact<std::string>().value_or("");
}

// --- reading -------------------------------------------------------------------------------------------------------

struct Reading {
    std::vector<RegTextError> errors = {};
};

void Wrong(Reading &reading, const toml::source_region &where, const std::string &what) {
    reading.errors.push_back({static_cast<int>(where.begin.line), what});
}

RegKey &KeyAt(ServiceText &service, const std::string &path) {
    std::vector<RegKey> &keys = service.tree.keys;
    const KeyPath wanted = path.empty() ? service.tree.top : Below(service.tree.top, path);
    const auto found = std::find_if(keys.begin(), keys.end(),
                                    [&](const RegKey &key) { return AreNamesEqual(key.key.path, wanted.path); });
    if (found != keys.end()) return *found;
    keys.push_back({.key = wanted, .isDeleted = false, .values = {}});
    return keys.back();
}

// A path below a service's key, and all keys on the way.
bool IsPath(const std::string &path) {
    KeyPath key;
    return !path.empty() && ParseKeyPath("HKEY_LOCAL_MACHINE\\" + path, &key) && key.path == path;
}

void AddKeys(ServiceText &service, const std::string &path) {
    for (std::size_t end = path.find('\\'); end != std::string::npos; end = path.find('\\', end + 1)) {
        (void)KeyAt(service, path.substr(0, end));
    }
    (void)KeyAt(service, path);
}

// The bytes of one of the values that no member stands for.
std::optional<RegValue> ReadRawValue(const toml::table &entry, std::string *problem) {
    const auto known = ParseType(entry["type"].value_exact<std::string>().value_or(""));
    *problem = "type: none of the registry's";
    if (!known) return std::nullopt;
    const std::uint32_t type = known.value_or(REG_NONE);
    std::optional<RegValue> value;
    if (const auto digits = entry["hex"].value_exact<std::string>()) {
        const auto data = ParseData(REG_BINARY, {*digits});
        *problem = "hex: not hexadecimal digits";
        if (!data) return std::nullopt;
        value = RegValue{.name = {}, .isDeleted = false, .type = type, .data = *data};
    } else {
        const bool isText = entry.contains("text"), isTexts = entry.contains("texts");
        const ServiceMember member = {isText    ? "text"
                                      : isTexts ? "texts"
                                                : "number",
                                      "",
                                      isText    ? MemberKind::text
                                      : isTexts ? MemberKind::texts
                                                : MemberKind::number};
        value = ReadMember(entry, member, problem);
        if (!value) return std::nullopt;
        const bool fits = value->type == type || (isText && type == REG_EXPAND_SZ);
        *problem = fmt::format("{}: not what a {} holds; hex holds anything", member.name, TypeText(type));
        if (!fits) return std::nullopt;
        value->type = type;
    }
    const auto name = ReadTextMember(entry, "name", problem);
    if (!name) return std::nullopt;
    value->name = *name;
    return value;
}

void ReadRawValues(Reading &reading, const toml::node &node, ServiceText &service) {
    const toml::array *values = node.as_array();
    if (values == nullptr) return Wrong(reading, node.source(), "values: not an array of tables");
    for (const toml::node &one : *values) {
        std::string problem = "not a table", path;
        const toml::table *entry = one.as_table();
        auto value = entry != nullptr ? ReadRawValue(*entry, &problem) : std::nullopt;
        if (value && (entry->contains("key") || entry->contains("key_bytes"))) {
            path = ReadTextMember(*entry, "key", &problem).value_or("");
            if (!IsPath(path)) {
                problem = "key: no path below the service's key";
                value.reset();
            }
        }
        if (!value) {
            Wrong(reading, one.source(), "values: " + problem);
            continue;
        }
        if (!path.empty()) AddKeys(service, path);
        KeyAt(service, path).values.push_back(std::move(*value));
    }
}

void ReadParameters(Reading &reading, const toml::node &node, ServiceText &service) {
    const toml::table *table = node.as_table();
    if (table == nullptr) return Wrong(reading, node.source(), "parameters: not a table");
    RegKey &key = KeyAt(service, parametersKey);
    for (const auto &[name, member] : *table) {
        if (const auto of = MemberOfBytes(name.str()); !of.empty() && table->contains(of)) continue;
        std::string problem = "its name has a NUL in it";
        std::optional<RegValue> value;
        if (name.str().find('\0') == std::string::npos) value = ReadMember(*table, std::string(name.str()), &problem);
        if (value) {
            key.values.push_back(std::move(*value));
        } else {
            Wrong(reading, member.source(), fmt::format("parameters: {}: {}", name.str(), problem));
        }
    }
}

void ReadKeys(Reading &reading, const toml::table &table, ServiceText &service) {
    std::string problem;
    const auto list = ReadMember(table, ServiceMember{keysMember, "", MemberKind::texts}, &problem);
    const std::vector<std::string> paths = list ? SplitMultiString(list->data) : std::vector<std::string>();
    if (!list || !std::all_of(paths.begin(), paths.end(), IsPath)) {
        return Wrong(reading, table.source(), "keys: not a list of paths below the service's key");
    }
    for (const std::string &path : paths) {
        AddKeys(service, path);
    }
}

void ReadAnyMember(Reading &reading, const toml::table &table, std::string_view name, const toml::node &node,
                   ServiceText &service) {
    if (name == parametersMember) return ReadParameters(reading, node, service);
    if (name == valuesMember) return ReadRawValues(reading, node, service);
    if (name == keysMember) return ReadKeys(reading, table, service);
    const ServiceMember *member = MemberNamed(name);
    std::string problem = "no such member";
    auto value = member != nullptr ? ReadMember(table, *member, &problem) : std::nullopt;
    if (value) {
        KeyAt(service, "").values.push_back(std::move(*value));
    } else {
        Wrong(reading, node.source(), fmt::format("{}: {}", name, problem));
    }
}

// The value of a name that occurs twice would be the registry's to choose.
void CheckTwice(Reading &reading, const ServiceText &service) {
    for (const RegKey &key : service.tree.keys) {
        for (std::size_t i = 0; i < key.values.size(); ++i) {
            const bool isTwice =
                std::any_of(key.values.begin(), key.values.begin() + static_cast<std::ptrdiff_t>(i),
                            [&](const RegValue &other) { return AreNamesEqual(other.name, key.values[i].name); });
            if (isTwice) {
                reading.errors.push_back({service.line, fmt::format("{}: the value \"{}\" is there twice", service.name,
                                                                    key.values[i].name)});
            }
        }
    }
}

void ReadService(Reading &reading, const toml::key &heading, const toml::node &node,
                 std::vector<ServiceText> *services) {
    const toml::table *table = node.as_table();
    if (table == nullptr) return Wrong(reading, node.source(), fmt::format("{}: not a table", heading.str()));
    ServiceText service;
    service.name = heading.str();
    service.line = static_cast<int>(heading.source().begin.line);
    std::string problem;
    if (table->contains("name_bytes")) {
        const auto name = ReadTextMember(*table, "name", &problem);
        if (!name) return Wrong(reading, node.source(), "name_bytes: " + problem);
        service.name = *name;
    }
    if (service.name.find('\0') != std::string::npos) {
        return Wrong(reading, heading.source(), "a service's name has no NUL in it");
    }
    service.tree.top = KeyOfService(service.name);
    (void)KeyAt(service, "");
    for (const auto &[name, member] : *table) {
        const std::string_view of = MemberOfBytes(name.str());
        const bool isRead = name.str() == "name_bytes" || (!of.empty() && table->contains(of));
        if (!isRead) ReadAnyMember(reading, *table, name.str(), member, service);
    }
    CheckTwice(reading, service);
    services->push_back(std::move(service));
}

// Two headings that differ in letter case mean one service.
void RefuseTwins(const std::vector<ServiceText> &services, std::vector<RegTextError> *errors) {
    std::set<std::u32string> met;
    for (const ServiceText &service : services) {
        if (met.insert(FoldedName(service.name)).second) continue;
        errors->push_back({service.line, service.name + ": stands here already, perhaps in other letter case"});
    }
}

std::vector<RegTextError> ReadToml(const std::string &text, std::vector<ServiceText> *services) {
    Reading reading;
    try {
        const toml::table document = toml::parse(text);
        for (const auto &[name, node] : document) {
            const toml::table *all = name.str() == servicesMember ? node.as_table() : nullptr;
            if (all == nullptr) {
                Wrong(reading, name.source(), fmt::format("{}: no table of services", name.str()));
                continue;
            }
            for (const auto &[heading, service] : *all) {
                ReadService(reading, heading, service, services);
            }
        }
    } catch (const toml::parse_error &error) {
        Wrong(reading, error.source(), std::string(error.description()));
    }
    std::stable_sort(services->begin(), services->end(),
                     [](const ServiceText &a, const ServiceText &b) { return a.line < b.line; });
    RefuseTwins(*services, &reading.errors);
    return reading.errors;
}

// --- .reg text -----------------------------------------------------------------------------------------------------

// The name of the service that a key is of, as the path has it; empty for none.
std::string ServiceOfKey(const KeyPath &key) {
    const std::u32string path = FoldedName(key.path), services = FoldedName(std::string(servicesKeyPath) + '\\');
    if (key.root != HKEY_LOCAL_MACHINE || !path.starts_with(services)) return "";
    const std::string below = key.path.substr(sizeof servicesKeyPath);
    return below.substr(0, below.find('\\'));
}

// A text says what services are like: what it takes away would be passed over without a word.
void RefuseDeletions(const std::vector<RegKey> &keys, std::vector<RegTextError> *errors) {
    constexpr char instead[] = "deletes, which a text of services does not; a value that it lacks goes with --prune";
    for (const RegKey &key : keys) {
        if (key.isDeleted) errors->push_back({key.line, instead});
        for (const RegValue &value : key.values) {
            if (value.isDeleted) errors->push_back({value.line, instead});
        }
    }
}

std::vector<RegTextError> ReadReg(const std::string &text, std::vector<ServiceText> *services) {
    std::vector<RegKey> keys;
    std::vector<RegTextError> errors = ReadRegText(text, &keys);
    RefuseDeletions(keys, &errors);
    for (RegKey &key : StateOf(keys)) {
        const std::string name = ServiceOfKey(key.key);
        if (name.empty()) {
            // The key above all services says nothing of any.
            if (AreNamesEqual(key.key.path, servicesKeyPath) && key.values.empty()) continue;
            errors.push_back({key.line, KeyPathText(key.key) + ": no service's key"});
            continue;
        }
        const auto same = std::find_if(services->begin(), services->end(),
                                       [&](const ServiceText &one) { return AreNamesEqual(one.name, name); });
        ServiceText &service = same != services->end() ? *same : services->emplace_back();
        if (service.name.empty()) {
            service = {name, {KeyOfService(name), {}}, key.line};
            (void)KeyAt(service, ""); // the first of them, wherever it stands
        }
        KeyAt(service, PathBelow(service, key)).values = std::move(key.values);
    }
    return errors;
}

bool IsRegText(std::string_view text) {
    for (const std::string_view mark : {"\xFF\xFE", "\xFE\xFF"}) { // UTF-16, which TOML never is
        if (text.starts_with(mark)) return true;
    }
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    return text.starts_with("REGEDIT4") || text.starts_with("Windows Registry Editor") || text.find('\0') == 1;
}

} // namespace

KeyPath KeyOfService(const std::string &name, const std::string &host) {
    return {.root = HKEY_LOCAL_MACHINE, .path = std::string(servicesKeyPath) + '\\' + name, .host = host};
}

const RegValue *FindValue(const ServiceText &service, std::string_view name) {
    for (const RegKey &key : service.tree.keys) {
        if (!AreNamesEqual(key.key.path, service.tree.top.path)) continue;
        for (const RegValue &value : key.values) {
            if (AreNamesEqual(value.name, name)) return &value;
        }
    }
    return nullptr;
}

std::string TomlText(const std::vector<ServiceText> &services) {
    std::string text;
    for (const ServiceText &service : services) {
        // One by one: a table of them all would be in the order of the alphabet, and the registry's is that of starts.
        toml::table all, one;
        one.insert_or_assign(HeadingOf(service.name), TableOf(service));
        all.insert_or_assign(servicesMember, std::move(one));
        if (!text.empty()) text.push_back('\n');
        if (service.isMarked) text += Remark('#', service);
        text += TextOf(all);
    }
    return text;
}

bool RegTextOf(const std::vector<ServiceText> &services, std::string *text, std::string *culprit) {
    std::vector<RegKey> keys;
    for (const ServiceText &service : services) {
        keys.insert(keys.end(), service.tree.keys.begin(), service.tree.keys.end());
    }
    if (!WriteRegText(keys, RegDialect::regedit4, text, culprit)) return false;
    std::string remarks;
    for (const ServiceText &service : services) {
        if (service.isMarked) remarks += Remark(';', service);
    }
    text->insert(text->find('\n') + 1, remarks); // the first line tells what the text is
    return true;
}

Json JsonOf(const std::vector<ServiceText> &services) {
    Json list = Json::array();
    for (const ServiceText &service : services) {
        Json entry;
        SetText(entry, "name", service.name);
        if (service.isMarked) entry["delete_pending"] = true;
        const toml::table table = TableOf(service);
        for (const auto &[name, member] : table) {
            entry[std::string(name.str())] = JsonOfNode(member);
        }
        list.push_back(std::move(entry));
    }
    return list;
}

std::vector<RegTextError> ReadServices(const std::string &text, std::vector<ServiceText> *services) {
    services->clear();
    std::vector<RegTextError> errors = IsRegText(text) ? ReadReg(text, services) : ReadToml(text, services);
    if (!errors.empty()) services->clear();
    return errors;
}
