// SPDX-License-Identifier: MIT
// dispatcher: a service program's answers to the daemon, and the functions that its services call.
//
// Thread: StartServiceCtrlDispatcherA makes the serving thread and the reporting thread (runtime.h) and waits for both.
#include "rpc/door.h"
#include "servd/limits.h"
#include "servd/service_xdr.h"
#include "svcapi/calls.h"
#include "svcapi/last_error.h"
#include "svcapi/launcher.h"
#include "svcapi/pid_file.h"
#include "svcapi/port_entry.h"
#include "svcapi/runtime.h"
#include "svcapi/wide.h"
#include "util/printable.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <thread>

namespace {

constexpr DWORD firstWaitHintMs = 30'000; // within it ServiceMain must have reported something itself
constexpr auto firstStartTimeout =
    std::chrono::milliseconds(2 * newProcessRetriesAtStartUp * retryPauseMs); // the daemon gives up before
// For so long a start is waited for whatever the daemon does, so that somebody else can play it.
constexpr auto firstStartPatience = std::chrono::seconds(1);
constexpr auto lastReportTimeout = std::chrono::seconds(30); // a start of another service may hold the daemon
constexpr auto exitReportTimeout = std::chrono::seconds(5);

struct TableEntry {
    std::string name;
    ServiceMainFunction main;
};

std::vector<TableEntry> serviceTable; // as the caller has it; set once, before any thread starts
sigset_t callerMask;                  // likewise
pid_t ownerPid;                       // a forked child must not take its parent's entries away
thread_local bool isServingThread;    // set by the thread itself: a handler may exit before its maker goes on

// The program's entry for a service. A lone entry serves any name, but only one: that of the first start.
const TableEntry *FindTableEntry(const ServiceRuntime &runtime, const std::string &name) {
    if (serviceTable.size() == 1) {
        return runtime.services.empty() || runtime.services.front().name == name ? &serviceTable.front() : nullptr;
    }
    const auto found = std::find_if(serviceTable.begin(), serviceTable.end(),
                                    [&](const TableEntry &entry) { return entry.name == name; });
    return found != serviceTable.end() ? &*found : nullptr;
}

StartedService *FindStarted(ServiceRuntime &runtime, const std::string &name) {
    const auto found = std::find_if(runtime.services.begin(), runtime.services.end(),
                                    [&](const StartedService &service) { return service.name == name; });
    return found != runtime.services.end() ? &*found : nullptr;
}

bool IsStopped(const StartedService &service) { return service.status.dwCurrentState == SERVICE_STOPPED; }

bool AllStopped(const ServiceRuntime &runtime) {
    return std::all_of(runtime.services.begin(), runtime.services.end(), IsStopped);
}

SERVICE_STATUS InitialStatus() {
    SERVICE_STATUS status = {};
    status.dwServiceType = serviceTable.size() == 1 ? SERVICE_WIN32_OWN_PROCESS : SERVICE_WIN32_SHARE_PROCESS;
    status.dwCurrentState = SERVICE_START_PENDING;
    status.dwWaitHint = firstWaitHintMs;
    return status;
}

template <typename Char>
void CallServiceMain(void (*serviceMain)(DWORD, Char **), const std::vector<std::string> &arguments) {
    std::vector<std::basic_string<Char>> texts;
    std::vector<Char *> argv;
    texts.reserve(arguments.size()); // its texts stay where they are
    argv.reserve(arguments.size() + 1);
    for (const std::string &argument : arguments) {
        argv.push_back(texts.emplace_back(InCharacters<Char>(argument)).data());
    }
    argv.push_back(nullptr);
    serviceMain(static_cast<DWORD>(arguments.size()), argv.data());
}

// Thread body of one service.
void RunServiceMain(ServiceMainFunction serviceMain, const std::vector<std::string> &arguments) {
    pthread_sigmask(SIG_SETMASK, &callerMask, nullptr);
    if (serviceMain.narrow != nullptr) {
        CallServiceMain(serviceMain.narrow, arguments);
    } else {
        CallServiceMain(serviceMain.wide, arguments);
    }
}

DWORD LaunchServiceMain(StartedService &service) {
    try {
        std::thread(RunServiceMain, service.main, service.arguments).detach();
        return ERROR_SUCCESS;
    } catch (const std::system_error &) {
        service.status.dwCurrentState = SERVICE_STOPPED;
        service.status.dwWin32ExitCode = ERROR_SERVICE_NO_THREAD;
        return ERROR_SERVICE_NO_THREAD;
    }
}

// The daemon knows nothing of the process that still runs, or it would not have started this one: it was restarted, or
// has given the service up. Reported, because the daemon takes a refused start for one that is under way.
std::int32_t RefuseSecondRun(ServiceRuntime &runtime, StartedService &service, pid_t other) {
    std::fprintf(stderr, "tvsvc: %s: process %d of an earlier start still runs; it is not started a second time\n",
                 Printable(service.name).c_str(), static_cast<int>(other));
    SERVICE_STATUS status = InitialStatus();
    status.dwCurrentState = SERVICE_STOPPED;
    status.dwWin32ExitCode = ERROR_SERVICE_ALREADY_RUNNING;
    ChangeStatus(runtime, service, status);
    return ERROR_SERVICE_ALREADY_RUNNING;
}

service_START_SERVICE_OUT Serve(const service_START_SERVICE_IN &request) {
    ServiceRuntime &runtime = Runtime();
    const std::lock_guard<std::mutex> locked(runtime.guard);
    const TableEntry *entry = FindTableEntry(runtime, request.servicename);
    if (entry == nullptr) return {ERROR_SERVICE_NOT_IN_EXE, 0};
    StartedService *service = FindStarted(runtime, request.servicename);
    if (service != nullptr && !IsStopped(*service)) return {ERROR_SERVICE_ALREADY_RUNNING, 0};
    if (service == nullptr) {
        service = &runtime.services.emplace_back();
        service->name = request.servicename;
    }
    service->arguments = {service->name};
    for (const svc_arglist_t *link = request.arglist; link != nullptr; link = link->next) {
        service->arguments.emplace_back(link->arg);
    }
    service->main = entry->main;
    service->handler = {};
    service->index = request.serviceindex;
    // Reported before ServiceMain has said anything: until the first report a mere question would find it dead.
    ChangeStatus(runtime, *service, InitialStatus());
    const pid_t other = FindOtherRun(service->name);
    if (other != 0 && !runtime.settlesPredecessors) return {RefuseSecondRun(runtime, *service, other), 0};
    if (other == 0) LeaveHint(*service);
    const auto context = std::find_if(runtime.services.begin(), runtime.services.end(),
                                      [&](const StartedService &one) { return &one == service; }) -
                         runtime.services.begin();
    return {static_cast<std::int32_t>(LaunchServiceMain(*service)), static_cast<std::int32_t>(context)};
}

// Returns the code that the control is answered with: handlers return all kinds of things, and one code that says that
// they do not know the control.
std::int32_t CallHandler(const ControlHandler &handler, std::int32_t control) {
    DWORD answer = NO_ERROR;
    sigset_t servingMask;
    pthread_sigmask(SIG_SETMASK, &callerMask, &servingMask);
    if (handler.extended != nullptr) {
        constexpr DWORD noEvent = 0;
        answer = handler.extended(static_cast<DWORD>(control), noEvent, nullptr, handler.context);
    } else {
        handler.plain(static_cast<DWORD>(control));
    }
    pthread_sigmask(SIG_SETMASK, &servingMask, nullptr);
    return answer == ERROR_CALL_NOT_IMPLEMENTED ? ERROR_CALL_NOT_IMPLEMENTED : ERROR_SUCCESS;
}

// The status that answers a control. The daemon takes it over without a new deadline, so that a wait hint in it would
// be measured by an old one: the hint goes with a report of its own. Nor does it tell of the end before the reports do:
// whoever heard of it would start the service again, and a late report would change the state of the new process.
svc_status_t StatusForReply(ServiceRuntime &runtime, StartedService &service) {
    SERVICE_STATUS status = service.status;
    if (status.dwWaitHint != 0) ChangeStatus(runtime, service, status);
    status.dwWaitHint = 0;
    if (IsStopped(service) && service.changes != service.reported) status.dwCurrentState = SERVICE_STOP_PENDING;
    return ToWire(status);
}

service_CONTROL_SERVICE_OUT Serve(const service_CONTROL_SERVICE_IN &request) {
    ServiceRuntime &runtime = Runtime();
    std::unique_lock<std::mutex> locked(runtime.guard);
    if (request.servicecontext < 0 || static_cast<std::size_t>(request.servicecontext) >= runtime.services.size()) {
        return {ERROR_INVALID_HANDLE, {}};
    }
    StartedService &service = runtime.services[static_cast<std::size_t>(request.servicecontext)];
    if (IsStopped(service)) return {ERROR_SERVICE_NOT_ACTIVE, StatusForReply(runtime, service)};
    if (service.handler.plain == nullptr && service.handler.extended == nullptr) {
        return {ERROR_SERVICE_CANNOT_ACCEPT_CTRL, StatusForReply(runtime, service)};
    }
    const ControlHandler handler = service.handler;
    locked.unlock();
    const std::int32_t code = CallHandler(handler, request.control);
    locked.lock();
    return {code, StatusForReply(runtime, service)};
}

service_DUMMY_OUT Serve(const service_DUMMY_IN &request) {
    return {static_cast<std::int32_t>(static_cast<std::uint32_t>(request.dummy) + 1u)};
}

void SetServing(bool serving) {
    ServiceRuntime &runtime = Runtime();
    const std::lock_guard<std::mutex> locked(runtime.guard);
    runtime.serving = serving;
    runtime.changed.notify_all();
}

template <typename Argument>
void Answer(SVCXPRT *transport) {
    AnswerProcedure<Argument>(transport, [](const Argument &request) {
        SetServing(true);
        return Serve(request);
    });
    SetServing(false);
}

void AnswerCall(svc_req *request, SVCXPRT *transport) {
    switch (request->rq_proc) {
    case NULLPROC: AnswerNullProcedure(transport); break;
#define ANSWER(number, name, stub, Record)                                                                             \
    case number: Answer<Record##_IN>(transport); break;
        SERVICE_PROCEDURES(ANSWER)
    default: svcerr_noproc(transport); break;
    }
}

// Thread body: serves calls until `wake` can be read.
void ServeCalls(int wake) {
    isServingThread = true;
    while (ServeNextRequests(wake)) {
    }
}

// A listening socket of our own making, because it has to be close-on-exec. *listening is a second descriptor of it,
// for its end: the door keeps the first, whose number stands for all its connections.
SVCXPRT *Listen(int *listening) {
    int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in any = {AF_INET, 0, {htonl(INADDR_ANY)}, {}};
    if (listener < 0 || bind(listener, reinterpret_cast<const sockaddr *>(&any), sizeof any) != 0 ||
        listen(listener, SOMAXCONN) != 0) {
        return nullptr;
    }
    *listening = fcntl(listener, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    SVCXPRT *transport = svctcp_create(listener, 0, 0);
    constexpr int noPortMapper = 0;
    const bool registered = transport != nullptr && svc_register(transport, ServiceProgramNumber(),
                                                                 serviceProgramVersion, AnswerCall, noPortMapper);
    return registered && *listening >= 0 && OpenDoor(transport, IsFromLauncher) ? transport : nullptr;
}

void RemovePidFiles(ServiceRuntime &runtime) {
    const std::lock_guard<std::mutex> locked(runtime.guard);
    for (const StartedService &service : runtime.services) {
        if (service.holdsHint) RemovePidFile(service.name);
    }
}

// Lets the last reports out before the process is gone. A handler that exits holds the daemon in its call: waiting
// would be in vain.
void FlushReports(ServiceRuntime &runtime, std::chrono::seconds limit) {
    if (isServingThread) return;
    std::unique_lock<std::mutex> locked(runtime.guard);
    runtime.changed.wait_for(locked, limit,
                             [&] { return (AllReported(runtime) && !runtime.serving) || runtime.daemonGone; });
    runtime.ending = true;
    runtime.changed.notify_all();
}

void LeaveAtExit() {
    if (ownerPid != getpid()) return;
    FlushReports(Runtime(), exitReportTimeout);
    RemovePort();
    RemovePidFiles(Runtime());
}

// Returns whether a start request came: false once none can come any more.
bool AwaitFirstStart(ServiceRuntime &runtime) {
    const auto end = std::chrono::steady_clock::now() + firstStartTimeout;
    const auto hasCome = [&] { return !runtime.services.empty(); };
    RpcClient daemon;
    std::unique_lock<std::mutex> locked(runtime.guard);
    while (!runtime.changed.wait_for(locked, firstStartPatience, hasCome)) {
        locked.unlock();
        const bool goesOn = std::chrono::steady_clock::now() < end && MayDaemonStartProcesses(&daemon);
        locked.lock();
        if (!goesOn) return hasCome(); // the daemon may have answered because its start has just been answered
    }
    return true;
}

// Returns once all services are stopped and the last answer is out.
void WaitForServices(ServiceRuntime &runtime) {
    std::unique_lock<std::mutex> locked(runtime.guard);
    runtime.changed.wait(locked, [&] { return AllStopped(runtime) && !runtime.serving; });
}

DWORD RunDispatcher() {
    ServiceRuntime &runtime = Runtime();
    NoteLauncher();
    int listening = -1;
    SVCXPRT *const transport = Listen(&listening);
    const DescriptorGuard listeningClosed(&listening);
    int wake = eventfd(0, EFD_CLOEXEC);
    if (transport == nullptr || wake < 0 || !EnterPort(transport->xp_port)) {
        (void)shutdown(listening, SHUT_RDWR);
        return ERROR_FAILED_SERVICE_CONTROLLER_CONNECT;
    }
    const DescriptorGuard closed(&wake);
    ownerPid = getpid();
    (void)std::atexit(LeaveAtExit); // without it the port mapper keeps an entry that nobody asks for

    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &callerMask);
    std::thread server(ServeCalls, wake);
    std::thread reporter(ReportStates, std::ref(runtime));
    pthread_sigmask(SIG_SETMASK, &callerMask, nullptr);

    const bool started = AwaitFirstStart(runtime);
    if (started) WaitForServices(runtime);
    FlushReports(runtime, lastReportTimeout);
    RemovePort();
    (void)eventfd_write(wake, 1); // an eventfd of ours always takes it
    server.join();
    reporter.join();
    (void)shutdown(listening, SHUT_RDWR); // a program that goes on without being a service does not listen
    RemovePidFiles(runtime);
    return started ? ERROR_SUCCESS : ERROR_FAILED_SERVICE_CONTROLLER_CONNECT;
}

BOOL Dispatch(std::vector<TableEntry> table) {
    static std::atomic_flag called = ATOMIC_FLAG_INIT;
    if (table.empty()) return Succeeded(ERROR_INVALID_PARAMETER);
    if (called.test_and_set()) return Succeeded(ERROR_SERVICE_ALREADY_RUNNING);
    serviceTable = std::move(table);
    return Succeeded(RunDispatcher());
}

SERVICE_STATUS_HANDLE RegisterHandler(LPCSTR name, const ControlHandler &handler) {
    if (name == nullptr || (handler.plain == nullptr && handler.extended == nullptr)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    ServiceRuntime &runtime = Runtime();
    const std::lock_guard<std::mutex> locked(runtime.guard);
    StartedService *service = FindStarted(runtime, name);
    // As with the table, the name does not matter in a program of one service.
    if (service == nullptr && runtime.services.size() == 1 && serviceTable.size() == 1) {
        service = &runtime.services.front();
    }
    if (service == nullptr) {
        SetLastError(ERROR_SERVICE_DOES_NOT_EXIST);
        return nullptr;
    }
    service->handler = handler;
    return reinterpret_cast<SERVICE_STATUS_HANDLE>(service);
}

SERVICE_STATUS_HANDLE RegisterHandler(LPCWSTR name, const ControlHandler &handler) {
    NarrowArguments narrow;
    const LPCSTR narrowName = Narrow(&narrow, name);
    if (narrow.code == ERROR_SUCCESS) return RegisterHandler(narrowName, handler);
    SetLastError(narrow.code);
    return nullptr;
}

} // namespace

void TakeServiceOver(const std::string &serviceName) {
    ServiceRuntime &runtime = Runtime();
    const std::lock_guard<std::mutex> locked(runtime.guard);
    StartedService *const service = FindStarted(runtime, serviceName);
    if (service != nullptr) LeaveHint(*service);
}

BOOL StartServiceCtrlDispatcherA(const SERVICE_TABLE_ENTRYA *lpServiceStartTable) {
    std::vector<TableEntry> table;
    for (const SERVICE_TABLE_ENTRYA *entry = lpServiceStartTable; entry != nullptr && entry->lpServiceName != nullptr;
         ++entry) {
        table.push_back({entry->lpServiceName, {.narrow = entry->lpServiceProc}});
    }
    return Dispatch(std::move(table));
}

BOOL StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW *lpServiceStartTable) {
    std::vector<TableEntry> table;
    NarrowArguments narrow;
    for (const SERVICE_TABLE_ENTRYW *entry = lpServiceStartTable; entry != nullptr && entry->lpServiceName != nullptr;
         ++entry) {
        table.push_back({Narrow(&narrow, entry->lpServiceName), {.wide = entry->lpServiceProc}});
    }
    return narrow.code != ERROR_SUCCESS ? Succeeded(narrow.code) : Dispatch(std::move(table));
}

SERVICE_STATUS_HANDLE RegisterServiceCtrlHandlerA(LPCSTR lpServiceName, LPHANDLER_FUNCTION lpHandlerProc) {
    return RegisterHandler(lpServiceName, {.plain = lpHandlerProc});
}

SERVICE_STATUS_HANDLE RegisterServiceCtrlHandlerExA(LPCSTR lpServiceName, LPHANDLER_FUNCTION_EX lpHandlerProc,
                                                    LPVOID lpContext) {
    return RegisterHandler(lpServiceName, {.extended = lpHandlerProc, .context = lpContext});
}

SERVICE_STATUS_HANDLE RegisterServiceCtrlHandlerW(LPCWSTR lpServiceName, LPHANDLER_FUNCTION lpHandlerProc) {
    return RegisterHandler(lpServiceName, {.plain = lpHandlerProc});
}

SERVICE_STATUS_HANDLE RegisterServiceCtrlHandlerExW(LPCWSTR lpServiceName, LPHANDLER_FUNCTION_EX lpHandlerProc,
                                                    LPVOID lpContext) {
    return RegisterHandler(lpServiceName, {.extended = lpHandlerProc, .context = lpContext});
}

BOOL SetServiceStatus(SERVICE_STATUS_HANDLE hServiceStatus, LPSERVICE_STATUS lpServiceStatus) {
    if (lpServiceStatus == nullptr) return Succeeded(ERROR_INVALID_PARAMETER);
    if (lpServiceStatus->dwCurrentState < SERVICE_STOPPED || lpServiceStatus->dwCurrentState > SERVICE_PAUSED) {
        return Succeeded(ERROR_INVALID_DATA);
    }
    ServiceRuntime &runtime = Runtime();
    const std::lock_guard<std::mutex> locked(runtime.guard);
    const auto service = std::find_if(runtime.services.begin(), runtime.services.end(), [&](const StartedService &one) {
        return reinterpret_cast<SERVICE_STATUS_HANDLE>(const_cast<StartedService *>(&one)) == hServiceStatus;
    });
    if (service == runtime.services.end()) return Succeeded(ERROR_INVALID_HANDLE);
    ChangeStatus(runtime, *service, *lpServiceStatus);
    return TRUE;
}
