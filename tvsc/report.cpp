// SPDX-License-Identifier: MIT
// report: results and remarks, printable, and the exit status that follows from them.
#include "tvsc/report.h"

#include "tvsc/json_output.h"
#include "tvsc/words.h"
#include "util/printable.h"

#include <fmt/format.h>

void Done(Session &session, const std::string &name, const std::string &action, const std::string &text) {
    session.results.push_back({name, action, ERROR_SUCCESS, EXIT_DONE, text});
    if (!session.options.json && !session.options.quiet) fmt::print("{}\n", Printable(name + ": " + text));
}

void Failed(Session &session, const std::string &name, const std::string &action, DWORD code, const std::string &text) {
    const std::string words = text.empty() ? fmt::format("{} failed", action) : text;
    session.results.push_back({name, action, code, ExitStatusOf(code), words});
    fmt::print(stderr, "tvsc: {}: {}\n", Printable(name + ": " + words), CodeText(code));
}

void Note(const Session &session, const std::string &line) {
    if (!session.options.quiet) fmt::print(stderr, "{}\n", Printable(line));
}

int StatusOf(const Session &session) {
    for (const ActionResult &result : session.results) {
        if (result.exitStatus != EXIT_DONE) return result.exitStatus;
    }
    return EXIT_DONE;
}

int Finish(const Session &session) {
    if (session.options.json) PrintResultsJson(session);
    return StatusOf(session);
}
