// SPDX-License-Identifier: MIT
// direct_daemon: the handlers in the test's own process, over a registry in memory; it brings what procedures.h asks
// for.
//
// Arguments are handed over as a client's record; a reply is copied through its wire form, as the dispatcher sends it.
#include "servd/servd_svc_proc/groups.h"
#include "servd/servd_svc_proc/handlers.h"
#include "servd/servd_svc_proc/kept_names.h"
#include "servd/servd_svc_proc/load.h"
#include "servd/servd_svc_proc/startup.h"
#include "tests/support/memory_registry.h"
#include "tests/support/procedures.h"
#include "tests/support/registry_faults.h"
#include "tv/winerror.h"

#include <iterator>

namespace {

bool calledBefore = false;

struct HandlerCall {
    void *(*run)(void *argument);
    xdrproc_t codeReply; // of what it answers with
};

template <auto Handler>
struct Signature;
template <typename Reply, typename Argument, Reply *(*Handler)(Argument *, svc_req *)>
struct Signature<Handler> {
    static void *Run(void *argument) { return Handler(static_cast<Argument *>(argument), nullptr); }
    static HandlerCall Call() { return {Run, RoutineOf<Reply>()}; }
};

// By procedure number.
#define TV_CALL(number, name, handler, Record) Signature<handler>::Call(),
const HandlerCall handlers[] = {{}, SERVD_PROCEDURES(TV_CALL)};

} // namespace

bool Exchange(std::uint32_t procedure, xdrproc_t, void *argument, xdrproc_t codeReply, void *reply) {
    calledBefore = true;
    const HandlerCall &handler = handlers[procedure];
    void *result = handler.run(argument);
    std::string bytes(xdr_sizeof(handler.codeReply, result), '\0');
    XDR stream;
    xdrmem_create(&stream, bytes.data(), static_cast<u_int>(bytes.size()), XDR_ENCODE);
    EXPECT_TRUE(handler.codeReply(&stream, result));
    xdrmem_create(&stream, bytes.data(), static_cast<u_int>(bytes.size()), XDR_DECODE);
    EXPECT_TRUE(codeReply(&stream, reply));
    return true;
}

void ClearRegistry() { InstallMemoryRegistry(); }

void StartDaemon() {
    EmptyServiceDatabase();
    std::uint32_t rc = ReadGroupOrderList(&firstunorderedgroupindex);
    if (rc == ERROR_SUCCESS) rc = ReadServiceDatabase();
    if (rc == ERROR_SUCCESS) rc = SortServicesInGroups();
    initstatus = rc == ERROR_SUCCESS ? ERROR_SUCCESS : ERROR_DATABASE_DOES_NOT_EXIST;
}

bool IsFreshProcess() { return !calledBefore; }

// All calls of the process are the handlers', but for those of the test: it forgets them first.
void WatchRegistry() {}
void ForgetRegistryCalls() { ForgetCalls(); }
std::vector<std::string> RegistryCallsMade() { return RegistryCalls(); }
void FailRegistryCall(int n, LONG code) { FailNthCall(n, code); }
std::size_t KeysOpen() { return OpenKeys().size(); }
