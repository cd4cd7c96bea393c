// SPDX-License-Identifier: MIT
// servdmain: the daemon's process: the stop command, detaching, registration, initialisation, signals.
//
// Thread: main thread; sigHandler runs whenever a signal comes and only leaves the port mapper and ends the process.
// Deliberate: the launching process always ends with status 1, a stopped one with 0; any argument but "stop" is
// ignored.
#include "rpc/dial.h"
#include "rpc/door.h"
#include "servd/child_signals.h"
#include "servd/descriptor_limit.h"
#include "servd/ending.h"
#include "servd/limits.h"
#include "servd/servd_svc_proc/autostart.h"
#include "servd/servd_svc_proc/database.h"
#include "servd/servd_svc_proc/groups.h"
#include "servd/servd_svc_proc/kept_clients.h"
#include "servd/servd_svc_proc/kept_names.h"
#include "servd/servd_svc_proc/load.h"
#include "servd/servd_svc_proc/process.h"
#include "servd/servd_svc_proc/startup.h"
#include "servd/servd_xdr.h"
#include "servd/serving.h"
#include "servd/win32_code.h"
#include "tv/winerror.h"
#include "util/monotonic_ms.h"
#include "util/standard_descriptors.h"

#include <rpc/pmap_clnt.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace {

constexpr char stopWord[] = "stop";

// --- the stop command ---

CLIENT *DialDaemon(const char *host) {
    for (int attempt = 1;; ++attempt) {
        CLIENT *client = DialHost(host, SERVDAEMONPROG, SERVDAEMONVERS);
        if (client != nullptr || attempt == stopAttempts) return client;
        SleepMs(stopPauseMs);
    }
}

// Asks the daemon that runs on this host to stop, and ends this process with status 0 whatever came of it.
[[noreturn]] void StopServiceDaemon() {
    static char thishost[256];
    static const timeval TIMEOUT = {stopCallTimeoutSec, 0};
    (void)gethostname(thishost, sizeof thishost);
    CLIENT *client = DialDaemon(thishost);
    if (client != nullptr) {
        servd_STOP_DAEMON_SERVICE_RETURN result = {};
        // The daemon ends while it handles the call: no answer is expected.
        (void)CallProcedure(client, servd_STOP_DAEMON_SERVICE{}, &result, TIMEOUT);
    }
    std::exit(0); // takes the client handle along
}

// --- the daemon ---

void sigHandler(int /*signalNumber*/) {
    KillChildOnItsWay();
    EndOnSignal();
}

void InstallSignalHandlers() {
    PrepareEnding();
    for (const int caught : caughtSignals) {
        CatchSignal(caught, sigHandler);
    }
}

// Reads the order of the groups and the services, sorts the groups and starts the automatic services. Returns 0 or the
// code of the step that failed; those after it are not taken.
Win32Code BuildDatabase() {
    Win32Code rc = ReadGroupOrderList(&firstunorderedgroupindex);
    if (rc == 0) rc = ReadServiceDatabase();
    if (rc == 0) rc = SortServicesInGroups();
    if (rc == 0) rc = RunAutoStartServices();
    return rc;
}

// Builds the in-memory service state, once. Returns 0 or the failing step's code; clients learn of a failure from
// initstatus, which is 1065 whatever the code was.
Win32Code InitializeSCM() {
    binitializing = 1;
    InstallSignalHandlers();
    svcdblock = {};
    (void)gethostname(scmhostname, sizeof scmhostname);
    const Win32Code rc = BuildDatabase();
    initstatus = rc == 0 ? ERROR_SUCCESS : ERROR_DATABASE_DOES_NOT_EXIST; // 1065
    binitializing = 0;
    return rc;
}

[[noreturn]] void RunDaemon() {
    (void)setpgid(0, 0);
    BlockBrokenPipeSignal();
    (void)pmap_unset(SERVDAEMONPROG, SERVDAEMONVERS);
    SVCXPRT *transport = CreateTcpTransport();
    // The door is part of the transport: a daemon that cannot have one leaves no entry in the port mapper.
    if (!OpenDoor(transport, nullptr, DoorWait::Inside)) Fail("cannot create tcp service.");
    // The door's bound is that of the limit which the daemon was given; what lies above is for the daemon's own use.
    RaiseDescriptorLimit();
    ShareDescriptors(KeptClients, GiveUpOldestClient);
    RegisterOverTcp(transport);
    (void)InitializeSCM(); // the daemon serves even when it failed
    Serve();
}

} // namespace

int main(int argc, char **argv) {
    OpenStandardDescriptors();
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], stopWord, sizeof stopWord) == 0) StopServiceDaemon();
    }
    if (fork() != 0) std::exit(1);
    RunDaemon();
}
