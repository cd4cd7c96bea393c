// SPDX-License-Identifier: MIT
// edit: a service as text in the user's editor. What comes back is checked before anything is written; what is wrong
// stands above the text then, and the editor comes again.
#include "tvsc/edit.h"

#include "tvsc/apply.h"
#include "tvsc/export.h"
#include "tvsc/interrupts.h"
#include "tvsc/report.h"
#include "tvsc/service_registry.h"
#include "util/names.h"
#include "util/text_editor.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <sstream>

namespace {

constexpr int mostEdits = 20; // an editor that is no person may never come to an end
constexpr std::string_view ours = "# tvsc: ";

std::string WithoutOurs(const std::string &text) {
    std::istringstream lines(text);
    std::string rest;
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with(ours)) rest += line + '\n';
    }
    return rest;
}

std::string WithRemarks(const std::vector<std::string> &remarks, const std::string &text) {
    std::string all;
    for (const std::string &remark : remarks) {
        std::istringstream lines(remark);
        for (std::string line; std::getline(lines, line);) {
            all.append(ours).append(line).push_back('\n');
        }
    }
    return all + text;
}

// The service that a text is to be of. Nothing, and what is wrong, where it is not right.
std::optional<ServiceText> ReadEdited(const std::string &text, const std::string &name,
                                      std::vector<std::string> *problems) {
    std::vector<ServiceText> services;
    for (const RegTextError &error : ReadServices(text, &services)) {
        problems->push_back(fmt::format("line {}: {}", error.line, error.text));
    }
    if (!problems->empty()) return std::nullopt;
    if (services.size() == 1 && services.front().name == name) return std::move(services.front());
    problems->push_back("not the one service that is edited");
    return std::nullopt;
}

// Whether the service is still what was edited.
bool IsAsItWas(Session &session, const ServiceText &before) {
    ServiceText present;
    std::string problem;
    const DWORD rc = ReadServiceKey(before.name, session.options.host, &present, &problem);
    if (rc == ERROR_SUCCESS && CompareTrees(before.tree, present.tree).empty()) return true;
    Failed(session, before.name, "edit", rc != ERROR_SUCCESS ? rc : DWORD{ERROR_SHARING_VIOLATION},
           "has been changed meanwhile; nothing is written");
    return false;
}

// Writes what came back. What the service cannot be is taken out of the results, for the next attempt.
bool ApplyEdited(Session &session, const ServiceText &edited, std::vector<AppliedService> *applied,
                 std::vector<std::string> *problems) {
    const std::size_t results = session.results.size();
    if (ApplyServices(session, {edited}, {.action = "edit", .isWhole = true}, applied)) return true;
    for (std::size_t i = results; i < session.results.size(); ++i) {
        problems->push_back(session.results[i].text);
    }
    session.results.resize(results);
    return false;
}

void GiveUp(Session &session, const std::string &name, const std::string &file, const std::string &why) {
    Failed(session, name, "edit", ERROR_INVALID_DATA, fmt::format("{}; the text is in {}", why, file));
    session.results.back().exitStatus = EXIT_NOT_CONFIGURED;
}

// What the editor leaves of a text; nothing, which is noted, where that cannot be known.
std::optional<std::string> Edited(Session &session, const std::string &name, const std::string &text,
                                  std::string *file) {
    std::string problem, edited;
    *file = NewTextFile("tvsc", ".toml", text, &problem);
    LeaveInterruptsToChild(true);
    const bool isEdited = !file->empty() && RunEditor(*file, &problem);
    LeaveInterruptsToChild(false);
    if (isEdited && ReadTextFile(*file, &edited)) return edited;
    if (isEdited) {
        problem = fmt::format("the editor has left no text: {}: {}", *file, std::strerror(errno));
    } else if (!file->empty()) {
        problem += "; the text is in " + *file;
    }
    Failed(session, name, "edit", ERROR_CANTREAD, problem);
    return std::nullopt;
}

void EditUntilRight(Session &session, const ServiceText &before, std::vector<AppliedService> *applied) {
    const std::string original = TomlText({before});
    std::string text = original;
    std::vector<std::string> problems;
    for (int attempt = 0; attempt < mostEdits; ++attempt) {
        std::string file;
        const std::string shown = WithRemarks(problems, text);
        const std::optional<std::string> edited = Edited(session, before.name, shown, &file);
        if (!edited) return;
        const std::string rest = WithoutOurs(*edited);
        if (rest == text && !problems.empty()) {
            return GiveUp(session, before.name, file, "not changed: " + problems.front());
        }
        text = rest;
        problems.clear();
        const std::optional<ServiceText> service = ReadEdited(text, before.name, &problems);
        if (service && !IsAsItWas(session, before)) return Note(session, "  the text is in " + file);
        if (service && ApplyEdited(session, *service, applied, &problems)) {
            (void)unlink(file.c_str());
            return;
        }
        if (attempt + 1 == mostEdits) return GiveUp(session, before.name, file, problems.front());
        (void)unlink(file.c_str()); // the next one has what it says
    }
}

} // namespace

int RunEdit(const Options &options, const std::string &name) {
    Session session;
    session.options = options;
    std::vector<AppliedService> applied;
    const std::optional<ServiceText> service = ReadOneService(session, "edit", name);
    if (service && OpenForApply(session) == EXIT_DONE) {
        if (IsDeletionDue(session, *service)) {
            Failed(session, service->name, "edit", ERROR_SERVICE_MARKED_FOR_DELETE);
        } else {
            EditUntilRight(session, *service, &applied);
        }
    }
    return FinishApplied(session, applied);
}
