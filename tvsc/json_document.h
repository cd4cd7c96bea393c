// SPDX-License-Identifier: MIT
// json_document: what the JSON documents of all commands have in common.
#pragma once

#include "tvsc/session.h"

#include <nlohmann/json_fwd.hpp>

// A document of a schema, about a daemon's host.
[[nodiscard]] nlohmann::ordered_json JsonHeader(const char *schema, const std::string &host);

// "results", one for each name that something was done to, and "errors".
void AddResults(nlohmann::ordered_json &document, const Session &session);
// "errors" alone.
void AddErrors(nlohmann::ordered_json &document, const Session &session);

// To standard output, in the format that was chosen (output_format.h).
void PrintDocument(const nlohmann::ordered_json &document);
