// SPDX-License-Identifier: MIT
// json_document: heading, results and errors.
#include "tvsc/json_document.h"

#include "tvsc/output_format.h"
#include "util/json_text.h"
#include "util/win32_names.h"

#include <nlohmann/json.hpp>

#include <cstdio>

using Json = nlohmann::ordered_json;

Json JsonHeader(const char *schema, const std::string &host) {
    Json document;
    document["schema"] = schema;
    SetText(document, "host", host);
    return document;
}

void AddErrors(Json &document, const Session &session) {
    Json errors = Json::array();
    for (const ActionResult &result : session.results) {
        if (result.code == ERROR_SUCCESS) continue;
        const char *symbol = Win32ErrorName(result.code);
        const char *message = Win32ErrorText(result.code);
        Json error;
        SetText(error, "name", result.name);
        error["win32"] = result.code;
        error["symbol"] = symbol != nullptr ? symbol : "";
        error["message"] = message != nullptr ? message : "";
        if (!result.suggested.empty()) SetTexts(error, "suggest", result.suggested);
        errors.push_back(std::move(error));
    }
    document["errors"] = std::move(errors);
}

void AddResults(Json &document, const Session &session) {
    document["results"] = Json::array();
    for (const ActionResult &result : session.results) {
        Json entry;
        SetText(entry, "name", result.name);
        entry["action"] = result.action;
        entry["win32"] = result.code;
        entry["exit_status"] = result.exitStatus;
        SetText(entry, "text", result.text);
        document["results"].push_back(std::move(entry));
    }
    AddErrors(document, session);
}

void PrintDocument(const Json &document) { (void)std::fputs(DocumentText(document).c_str(), stdout); } // main looks
