// SPDX-License-Identifier: MIT
// export: the registry's keys of services as text, and back through apply.h.
#include "tvsc/export.h"

#include "servd/service_keys.h"
#include "svcapi/client.h"
#include "svcapi/image_launcher.h"
#include "tvsc/apply.h"
#include "tvsc/apply_output.h"
#include "tvsc/configure.h"
#include "tvsc/json_document.h"
#include "tvsc/names.h"
#include "tvsc/report.h"
#include "tvsc/service_registry.h"
#include "util/names.h"
#include "util/printable.h"
#include "util/text_editor.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

namespace {

Session SessionOf(const Options &options) {
    Session session;
    session.options = options;
    return session;
}

// --- reading services ----------------------------------------------------------------------------------------------

// A key among the services that has no type is none.
bool IsService(const ServiceText &service) { return FindValue(service, typeValue) != nullptr; }

// All services of the registry. Returns false, and notes why, when they cannot be read.
bool ReadAllServices(Session &session, const std::string &action, std::vector<ServiceText> *services) {
    std::vector<std::string> names;
    std::string problem;
    DWORD rc = ListServiceKeys(session.options.host, &names, &problem);
    for (auto name = names.begin(); rc == ERROR_SUCCESS && name != names.end(); ++name) {
        ServiceText service;
        rc = ReadServiceKey(*name, session.options.host, &service, &problem);
        if (rc == ERROR_FILE_NOT_FOUND) {
            rc = ERROR_SUCCESS; // it has gone meanwhile
        } else if (rc == ERROR_SUCCESS && IsService(service)) {
            services->push_back(std::move(service));
        }
    }
    if (rc != ERROR_SUCCESS) Failed(session, session.options.host, action, rc, problem);
    return rc == ERROR_SUCCESS;
}

std::vector<ListedService> NamesOf(const std::vector<ServiceText> &services) {
    std::vector<ListedService> names;
    for (const ServiceText &service : services) {
        const RegValue *display = FindValue(service, displayNameValue);
        names.push_back({.name = service.name, .displayName = display != nullptr ? display->data.c_str() : ""});
    }
    return names;
}

// Those that patterns mean; what means nothing is noted.
std::vector<ServiceText> Meant(Session &session, const std::string &action, const std::vector<std::string> &patterns,
                               const std::vector<ServiceText> &services) {
    const std::vector<ListedService> names = NamesOf(services);
    std::vector<std::string> wanted;
    for (const std::string &pattern : patterns) {
        const MeantServices named = ServicesMeant(pattern, names);
        if (named.empty()) Failed(session, pattern, action, ERROR_SERVICE_DOES_NOT_EXIST);
        for (const ListedService *one : named) {
            wanted.push_back(one->name);
        }
    }
    std::vector<ServiceText> meant;
    std::copy_if(services.begin(), services.end(), std::back_inserter(meant), [&](const ServiceText &service) {
        return std::find(wanted.begin(), wanted.end(), service.name) != wanted.end();
    });
    return meant;
}

// --- text ----------------------------------------------------------------------------------------------------------

// What a terminal would act on is not for it.
void Write(const std::string &text) {
    if (isatty(STDOUT_FILENO) != 1) {
        (void)std::fwrite(text.data(), 1, text.size(), stdout); // main looks whether it has arrived
        return;
    }
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        fmt::print("{}\n", Printable(line));
    }
}

// Tells what is wrong with a text. Returns whether nothing is.
bool IsRight(Session &session, const std::string &action, const std::string &file,
             const std::vector<RegTextError> &errors) {
    for (const RegTextError &error : errors) {
        Failed(session, fmt::format("{}:{}", file, error.line), action, ERROR_INVALID_DATA, error.text);
        session.results.back().exitStatus = EXIT_NOT_CONFIGURED;
    }
    return errors.empty();
}

// --- apply ---------------------------------------------------------------------------------------------------------

bool IsNamed(const std::vector<ServiceText> &services, const std::string &name) {
    return std::any_of(services.begin(), services.end(),
                       [&](const ServiceText &service) { return AreNamesEqual(service.name, name); });
}

// Deletes one service that the file does not have; one that the daemon does not know is a key only.
void Prune(Session &session, const ServiceText &service, const ApplyOptions &apply) {
    const DWORD known = AskForService(session, service.name);
    if (known == ERROR_SUCCESS) {
        return DeleteNamed(session, service.name, {.names = {}, .stop = apply.stop, .withDependents = apply.stop});
    }
    if (known != ERROR_SERVICE_DOES_NOT_EXIST) return Failed(session, service.name, "delete", known);
    if (session.options.dryRun) return Done(session, service.name, "delete", "would be deleted");
    std::string problem;
    const DWORD rc = DeleteServiceKey(service.name, session.options.host, &problem);
    if (rc != ERROR_SUCCESS) return Failed(session, service.name, "delete", rc, problem);
    Done(session, service.name, "delete", "deleted");
}

void PruneOthers(Session &session, const std::vector<ServiceText> &services, const ApplyOptions &apply,
                 std::vector<AppliedService> *applied) {
    std::vector<ServiceText> all;
    if (!ReadAllServices(session, "apply", &all)) return;
    for (const ServiceText &service : all) {
        if (IsNamed(services, service.name)) continue;
        Prune(session, service, apply);
        if (session.results.back().code != ERROR_SUCCESS) continue;
        applied->push_back(
            {service.name, Change::deleted, service.tree.top, CompareTrees(service.tree, {service.tree.top, {}})});
    }
}

// --- clone ---------------------------------------------------------------------------------------------------------

void SetText(ServiceText *service, const char *name, const std::string &text) {
    std::vector<RegValue> &values = service->tree.keys.front().values;
    std::erase_if(values, [&](const RegValue &value) { return AreNamesEqual(value.name, name); });
    values.push_back({.name = name, .isDeleted = false, .type = REG_SZ, .data = text + '\0'});
}

// A service under another name. A tag is one service's only.
ServiceText Renamed(const ServiceText &service, const std::string &name) {
    ServiceText renamed = {.name = name, .tree = {KeyOfService(name), service.tree.keys}};
    for (RegKey &key : renamed.tree.keys) {
        key.key = {key.key.root, renamed.tree.top.path + key.key.path.substr(service.tree.top.path.size())};
    }
    std::erase_if(renamed.tree.keys.front().values,
                  [](const RegValue &value) { return AreNamesEqual(value.name, tagValue); });
    return renamed;
}

} // namespace

std::optional<ServiceText> ReadOneService(Session &session, const std::string &action, const std::string &name) {
    std::vector<ServiceText> services;
    if (!ReadAllServices(session, action, &services)) return std::nullopt;
    std::vector<ServiceText> meant = Meant(session, action, {name}, services);
    if (meant.size() > 1) Failed(session, name, action, ERROR_INVALID_PARAMETER, "means several services");
    if (meant.size() != 1) return std::nullopt;
    return std::move(meant.front());
}

bool ReadTextFile(const std::string &file, std::string *text) {
    if (file == "-") {
        text->assign(std::istreambuf_iterator<char>(std::cin), {});
        return std::ferror(stdin) == 0; // which the stream does not tell
    }
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream content;
    content << stream.rdbuf();
    *text = content.str();
    return stream.is_open() && !stream.bad() && (stream.peek(), stream.eof());
}

int FinishApplied(const Session &session, const std::vector<AppliedService> &applied) {
    if (!session.options.json) return Finish(session);
    PrintAppliedJson(session, applied);
    return StatusOf(session);
}

int RunExport(const Options &options, const std::vector<std::string> &patterns, TextFormat format) {
    Session session = SessionOf(options);
    std::vector<ServiceText> services;
    if (!ReadAllServices(session, "export", &services)) return Finish(session);
    if (!patterns.empty()) services = Meant(session, "export", patterns, services);
    std::string text = TomlText(services), culprit;
    if (format == TextFormat::reg && !RegTextOf(services, &text, &culprit)) {
        Failed(session, culprit, "export", ERROR_INVALID_DATA, "cannot stand in this kind of file");
        return Finish(session);
    }
    if (!options.json) {
        Write(text);
        return StatusOf(session);
    }
    auto document = JsonHeader("tvsc.export/1", options.host);
    document["services"] = JsonOf(services);
    AddErrors(document, session);
    PrintDocument(document);
    return StatusOf(session);
}

int RunApply(const Options &options, const ApplyOptions &apply) {
    Session session = SessionOf(options);
    std::string text;
    if (!ReadTextFile(apply.file, &text)) {
        Failed(session, apply.file, "apply", ERROR_FILE_NOT_FOUND, std::strerror(errno));
        return Finish(session);
    }
    std::vector<ServiceText> services;
    std::vector<AppliedService> applied;
    if (!IsRight(session, "apply", apply.file, ReadServices(text, &services))) return FinishApplied(session, applied);
    if (apply.prune && services.empty()) { // the text of a writer that failed, more likely than a wish
        Failed(session, apply.file, "apply", ERROR_INVALID_DATA, "has no service: --prune would delete all");
        session.results.back().exitStatus = EXIT_NOT_CONFIGURED;
        return FinishApplied(session, applied);
    }
    if (const int opened = OpenForApply(session); opened != EXIT_DONE) return FinishApplied(session, applied);
    const ApplyRules rules = {.action = "apply", .isWhole = apply.prune, .isAll = apply.prune};
    if (ApplyServices(session, services, rules, &applied) && apply.prune) {
        PruneOthers(session, services, apply, &applied);
    }
    return FinishApplied(session, applied);
}

int RunClone(const Options &options, const std::string &name, const std::string &newName, const std::string &display) {
    Session session = SessionOf(options);
    std::vector<AppliedService> applied;
    const std::optional<ServiceText> service = ReadOneService(session, "clone", name);
    if (!service) return FinishApplied(session, applied);
    ServiceText clone = Renamed(*service, newName);
    SetText(&clone, displayNameValue, display.empty() ? newName : display);
    if (const int opened = OpenForApply(session); opened != EXIT_DONE) return FinishApplied(session, applied);
    (void)ApplyServices(session, {clone}, {.action = "clone", .mayExist = false}, &applied); // noted
    return FinishApplied(session, applied);
}
