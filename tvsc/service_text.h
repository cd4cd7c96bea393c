// SPDX-License-Identifier: MIT
// service_text: services as text that people edit and keep, in TOML or as .reg text (tvreg/reg_text.h).
//
// In either the text holds the service's key in the registry with all below it, byte for byte, but for the mark of a
// deletion that is due, which a comment tells. In TOML each service is
// a table below "services" with
//   the members of service_members.cpp                    values of the key by what they mean
//   parameters                                            a table: those of the subkey "Parameters" by their names
//   values, an array of tables with key, name and type    what none of these can hold; the data as text, texts, number
//                                                         or hex
//   keys                                                  subkeys without values
//   name_bytes                                            the name, where it is not UTF-8
#pragma once

#include "tvreg/differences.h"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <string_view>
#include <vector>

struct ServiceText {
    std::string name;
    KeyTree tree;          // its top is the service's key, which is the first of its keys
    int line = 0;          // of the text that it was read from
    bool isMarked = false; // its deletion is due: the daemon takes the key away when it starts; the tree lacks the mark
};

// The key of a service.
[[nodiscard]] KeyPath KeyOfService(const std::string &name, const std::string &host = "");

// A value of the service's own key; null when there is none.
[[nodiscard]] const RegValue *FindValue(const ServiceText &service, std::string_view name);

[[nodiscard]] std::string TomlText(const std::vector<ServiceText> &services);
// False, with *culprit saying where, when a name has a NUL in it.
[[nodiscard]] bool RegTextOf(const std::vector<ServiceText> &services, std::string *text, std::string *culprit);
// The members of the TOML text, for each service with its name.
[[nodiscard]] nlohmann::ordered_json JsonOf(const std::vector<ServiceText> &services);

// Reads either kind, which the first line tells. Services come in the order of the text. Returns what is wrong, line by
// line; nothing is read then.
[[nodiscard]] std::vector<RegTextError> ReadServices(const std::string &text, std::vector<ServiceText> *services);
