// SPDX-License-Identifier: MIT
// Services as text: whatever a service's key holds, both kinds of text give it back.
#include "servd/service_keys.h"
#include "svcapi/failure_actions_value.h"
#include "tvsc/service_text.h"
#include "util/little_endian.h"
#include "util/string_list.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <random>

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

RegValue Value(const std::string &name, std::uint32_t type, const std::string &data) {
    return {.name = name, .isDeleted = false, .type = type, .data = data};
}

RegValue Text(const std::string &name, const std::string &text) { return Value(name, REG_SZ, text + '\0'); }

RegValue Number(const std::string &name, std::uint32_t number) {
    std::string data(dwordBytes, '\0');
    PutDword(number, data.data());
    return Value(name, REG_DWORD, data);
}

// A service whose own key holds these, and a value in the subkey of each path.
ServiceText Service(const std::string &name, std::vector<RegValue> values,
                    const std::vector<std::pair<std::string, RegValue>> &below = {}) {
    ServiceText service = {.name = name, .tree = {KeyOfService(name), {}}};
    service.tree.keys.push_back({.key = service.tree.top, .isDeleted = false, .values = std::move(values)});
    for (const auto &[path, value] : below) {
        service.tree.keys.push_back({.key = Below(service.tree.top, path), .isDeleted = false, .values = {value}});
    }
    return service;
}

std::string Errors(const std::string &text) {
    std::vector<ServiceText> services;
    std::string errors;
    for (const RegTextError &error : ReadServices(text, &services)) {
        errors += std::to_string(error.line) + ": " + error.text + "\n";
    }
    EXPECT_TRUE(errors.empty() || services.empty());
    return errors;
}

void ExpectSame(const ServiceText &before, const ServiceText &after) {
    EXPECT_EQ(before.name, after.name);
    for (const Difference &difference : CompareTrees(before.tree, after.tree)) {
        ADD_FAILURE() << difference.path << " "
                      << (difference.after    ? difference.after->name
                          : difference.before ? difference.before->name
                                              : "the key");
    }
}

void ExpectBack(const std::vector<ServiceText> &services) {
    std::string reg, culprit;
    ASSERT_TRUE(RegTextOf(services, &reg, &culprit));
    for (const std::string &text : {TomlText(services), reg}) {
        std::vector<ServiceText> back;
        for (const RegTextError &error : ReadServices(text, &back)) {
            ADD_FAILURE() << error.line << ": " << error.text << "\n" << text;
        }
        ASSERT_EQ(back.size(), services.size()) << text;
        for (std::size_t i = 0; i < services.size(); ++i) {
            ExpectSame(services[i], back[i]);
        }
    }
}

TEST(ServiceText, shows_values_by_what_they_mean) {
    const std::string text = TomlText({Service(
        "web", {Number(typeValue, 0x10), Number(startTypeValue, 2), Number(errorControlValue, 7),
                Text(displayNameValue, "Web front"),
                Value(dependenciesValue, REG_MULTI_SZ, JoinMultiString({"a", "+g"})), Number("DelayedAutostart", 1),
                Value("FailureActions", REG_BINARY, PackFailureActions({60, {{SC_ACTION_RESTART, 1000}}}))})});
    EXPECT_THAT(text, AllOf(HasSubstr("[services.web]\n"), HasSubstr("type = 'own'\n"), HasSubstr("start = 'auto'\n"),
                            HasSubstr("error_control = 7\n"), HasSubstr("display_name = 'Web front'\n"),
                            HasSubstr("depends_on = [ 'a', '+g' ]\n"), HasSubstr("delayed_auto_start = true\n"),
                            HasSubstr("actions = [ { action = 'restart', delay_ms = 1000 } ]\n")));
    EXPECT_THAT(text, Not(HasSubstr("values")));
}

TEST(ServiceText, takes_no_name_with_a_nul_in_it_which_would_end_there) {
    EXPECT_EQ(Errors("[services.\"a\\u0000b\"]\n"), "1: a service's name has no NUL in it\n");
    EXPECT_EQ(Errors("[services.a]\nname_bytes = 'YQBi'\n"), "1: name_bytes: has a NUL in it\n");
    EXPECT_THAT(Errors("[services.a.parameters]\n\"a\\u0000b\" = 1\n"), HasSubstr(": its name has a NUL in it\n"));
}

TEST(ServiceText, tells_a_deletion_that_is_due_in_a_comment_which_nobody_reads_back) {
    ServiceText marked = Service("caf\xE9", {Number(typeValue, 0x10)}), other = Service("other", {});
    marked.isMarked = true;
    std::string reg, culprit;
    ASSERT_TRUE(RegTextOf({other, marked}, &reg, &culprit));
    EXPECT_THAT(reg, testing::StartsWith("REGEDIT4\n; caf\\xe9: its deletion is due, "));
    EXPECT_THAT(TomlText({other, marked}), HasSubstr("\n# caf\\xe9: its deletion is due, it goes when the daemon "
                                                     "starts again\n[services.'caf\\xe9']\n"));
    ExpectBack({other, marked});
    const auto json = JsonOf({other, marked});
    EXPECT_FALSE(json.at(0).contains("delete_pending"));
    EXPECT_EQ(json.at(1).at("delete_pending"), true);
}

TEST(ServiceText, gives_back_every_value_whatever_it_is) {
    ExpectBack(
        {Service("odd",
                 {Text(typeValue, "no number"), Number(displayNameValue, 3), Value("", REG_NONE, ""),
                  Value(startTypeValue, REG_DWORD, "abc"), Value(imagePathValue, REG_SZ, "no end"),
                  Value(groupValue, REG_SZ, std::string("a\0b\0", 4)), Value(tagValue, 77, "\xFF\x01"),
                  Value("FailureActions", REG_BINARY, "\x01"), Number("DelayedAutostart", 2),
                  Value(dependenciesValue, REG_MULTI_SZ, std::string(1, '\0') + "x"), Value("e", REG_EXPAND_SZ, ""),
                  Value("x", REG_EXPAND_SZ, std::string("%A%\0", 4)), Number("name_bytes", 1), Number("n_bytes", 1)},
                 {{"Parameters", Text("Application", "/bin/x")},
                  {"Parameters\\Deep", Value("", REG_BINARY, "")},
                  {"Security", Value("Security", REG_BINARY, "\x01\x02")}})});
}

TEST(ServiceText, gives_back_texts_that_are_no_utf_8_and_of_any_script) {
    const std::string latin = "caf\xE9", chinese = "\xE6\x9C\x8D\xE5\x8A\xA1", control = "a\x1B[31m\n\t\"'\\\x7F\x01";
    ExpectBack({Service(latin,
                        {Text(displayNameValue, latin), Text(latin, latin),
                         Value(dependenciesValue, REG_MULTI_SZ, JoinMultiString({"ok", latin}))},
                        {{latin, Text(latin, "x")}, {"Parameters", Text(latin, latin)}}),
                Service(chinese, {Text(displayNameValue, chinese), Text(chinese, control)}),
                Service("a.b 'c' \"d\"", {Text(displayNameValue, control), Text("Description", "\n\nlines\n")}),
                Service("caf", {Text(displayNameValue, "")})});
}

TEST(ServiceText, keeps_subkeys_without_values_and_the_order_of_services) {
    ServiceText first = Service("zz", {Number(typeValue, 1)}), second = Service("aa", {});
    first.tree.keys.push_back({.key = Below(first.tree.top, "Empty"), .isDeleted = false, .values = {}});
    ExpectBack({first, second});
}

TEST(ServiceText, gives_back_keys_of_random_bytes) {
    std::mt19937 random(20); // the same each time
    const auto pick = [&](std::size_t below) { return static_cast<std::size_t>(random() % below); };
    const auto bytes = [&](std::size_t most, bool withNul) {
        std::string text;
        for (std::size_t left = pick(most + 1); left > 0; --left) {
            text.push_back(static_cast<char>(withNul ? pick(256) : 1 + pick(255)));
        }
        return text;
    };
    constexpr const char *names[] = {typeValue, imagePathValue, dependenciesValue, "FailureActions",
                                     "RequiredPrivileges"};
    for (int round = 0; round < 300; ++round) {
        std::vector<RegValue> values;
        for (const char *name : names) {
            values.push_back(Value(name, static_cast<std::uint32_t>(pick(12)), bytes(12, true)));
        }
        ServiceText service = Service("s" + std::to_string(round), values);
        std::string below = "k" + bytes(6, false);
        std::erase(below, '\\');
        std::erase(below, '\n'); // .reg text has escapes for ends of lines of its own
        std::erase(below, '\r');
        service.tree.keys.push_back({.key = Below(service.tree.top, below),
                                     .isDeleted = false,
                                     .values = {Value("v" + bytes(6, false), 1, bytes(9, true))}});
        ExpectBack({service});
        if (HasFailure()) return;
    }
}

TEST(ServiceText, as_json_has_names_and_members) {
    const auto json = JsonOf({Service("caf\xE9", {Number(startTypeValue, 3)})});
    EXPECT_EQ(json.at(0).at("name_bytes"), "Y2Fm6Q==");
    EXPECT_EQ(json.at(0).at("start"), "demand");
}

TEST(ServiceText, tells_each_thing_that_is_wrong_with_its_line) {
    EXPECT_EQ(Errors("[services.web]\nstart = 'often'\ncolour = 1\n\ntag = -4294967296\ndepends_on = [ '' ]\n"
                     "account = 7\ndelayed_auto_start = 1\n"),
              "7: account: not a text\n"
              "3: colour: no such member\n"
              "8: delayed_auto_start: neither true nor false\n"
              "6: depends_on: not a list of texts, none of them empty\n"
              "2: start: often: none of auto, boot, demand, disabled, system, and no number\n"
              "5: tag: not a number of 32 bits\n");
    EXPECT_THAT(Errors("[services.web\n"), HasSubstr("1: "));
    EXPECT_THAT(Errors("[web]\n"), HasSubstr("1: web: no table of services"));
    EXPECT_THAT(Errors("[services.web]\nvalues = [ { name = 'x', type = 'REG_SZ', number = 1 } ]\n"),
                HasSubstr("2: values: number: not what a REG_SZ holds"));
    EXPECT_THAT(Errors("[services.web]\nvalues = [ { name = 'x', type = 'REG_SZ', hex = '0' } ]\n"),
                HasSubstr("2: values: hex: not hexadecimal digits"));
    EXPECT_THAT(
        Errors(
            "[services.web]\ndescription = 'x'\nvalues = [ { name = 'description', type = 'REG_SZ', text = 'y' } ]\n"),
        HasSubstr("web: the value \"description\" is there twice"));
    EXPECT_THAT(Errors("[services.web]\ndescription = \"a\\u0000b\"\n"), HasSubstr("2: description: has a NUL in it"));
    EXPECT_THAT(Errors("REGEDIT4\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\x]\n"), HasSubstr("3: "));
    EXPECT_THAT(Errors("REGEDIT4\n[\n"), HasSubstr("2: "));
    EXPECT_THAT(Errors("REGEDIT4\n\n[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services]\n"), IsEmpty());
}

TEST(ServiceText, is_read_from_reg_text_in_any_order_and_letter_case) {
    std::vector<ServiceText> services;
    EXPECT_THAT(ReadServices("REGEDIT4\n\n[HKLM\\system\\currentcontrolset\\services\\Web\\Parameters]\n\"A\"=\"x\"\n\n"
                             "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\web]\n\"Start\"=dword:2\n",
                             &services),
                IsEmpty());
    ASSERT_EQ(services.size(), 1u);
    EXPECT_EQ(services.front().name, "Web");
    ExpectSame(Service("Web", {Number(startTypeValue, 2)}, {{"Parameters", Text("A", "x")}}), services.front());
}

} // namespace
