// SPDX-License-Identifier: MIT
// drain: the handles that keep a deleted service. Programs that were killed left them open, but the daemon does not
// know whose they are: a program that still works with the service loses its handle, too.
#include "tvsc/drain.h"

#include "svcapi/client.h"
#include "tvsc/report.h"

#include <fmt/format.h>

namespace {

constexpr char action[] = "handles drain";

// What its code does not say of itself.
std::string WhyNot(DWORD code) {
    switch (code) {
    case ERROR_INVALID_PARAMETER: return "is not marked for deletion: nothing waits for its handles";
    case ERROR_SERVICE_ALREADY_RUNNING: return "is not stopped, and goes when it is";
    case ERROR_DUP_NAME: return "cannot be told from another one with the same display name";
    case ERROR_TIMEOUT: return "has no handle whose end it waits for; it goes when the daemon starts again";
    default: return "";
    }
}

void Drain(Session &session, const std::string &name) {
    DWORD closed = 0;
    const bool dryRun = session.options.dryRun;
    const DWORD rc = DrainHandles(session.manager.get(), name, dryRun ? nullptr : &closed);
    if (rc != ERROR_SUCCESS) return Failed(session, name, action, rc, WhyNot(rc));
    if (dryRun) return Done(session, name, action, "its handles would be closed");
    Done(session, name, action, fmt::format("gone, with {} handle{}", closed, closed == 1 ? "" : "s"));
}

} // namespace

int RunHandlesDrain(Session &session, const std::vector<std::string> &names) {
    for (const std::string &name : names) {
        Drain(session, name);
    }
    return Finish(session);
}
