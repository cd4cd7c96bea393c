// SPDX-License-Identifier: MIT
// session: connecting to the daemon.
#include "tvsc/tvsc.h"

#include <fmt/format.h>

int OpenSession(Session &session, bool needDatabase) {
    session.manager.reset(tvOpenDaemon(session.options.host.c_str(), &session.initCode));
    if (session.manager == nullptr) {
        const DWORD code = GetLastError();
        Failed(session, session.options.host, "connect", code, "the service daemon does not answer");
        if (code == RPC_S_SERVER_UNAVAILABLE) {
            Note(session, "  is servd running, and rpcbind? (rpcinfo -p)");
        }
        return ExitStatusOf(code);
    }
    (void)tvSetCallTimeout(session.manager.get(), static_cast<DWORD>(session.options.callTimeoutSec * 1000));
    if (needDatabase && session.initCode != ERROR_SUCCESS) {
        Failed(session, session.options.host, "connect", session.initCode, "the daemon runs, but without its services");
        Note(session, "  is the registry daemon running? does every service have Type and DisplayName?");
        return ExitStatusOf(session.initCode);
    }
    return EXIT_DONE;
}
