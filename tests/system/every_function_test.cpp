// SPDX-License-Identifier: MIT
// Every function of winsvc.h in the situations that all of them share: handles that are not open or of the wrong kind,
// a daemon that is there, busy, gone or started anew, and other threads that call at the same time.
//
// One row a function; a function of the header that has none is found missing.
#include "tests/support/service_world.h"
#include "tv/winsvc.h"

#include <gmock/gmock.h>

#include <csignal>
#include <fstream>
#include <regex>
#include <set>
#include <thread>

using testing::AnyOf;
using testing::Eq;

namespace {

constexpr DWORD untried = 0xFFFF;
constexpr DWORD registryAnswers = 0; // a daemon that is there, but busy, is not asked

enum class Wants { nothing, manager, service };

// Makes a call with arguments that are as they should be, on a handle of the kind that it wants. Returns 0 or its code.
using Call = DWORD (*)(SC_HANDLE);

struct Row {
    const char *name;
    Wants wants;
    Call call;
    DWORD live = 0;                         // what it answers for a stopped service, over and over
    DWORD badHandle = ERROR_INVALID_HANDLE; // what it answers for a handle that is none
    DWORD gone = RPC_S_SERVER_UNAVAILABLE;  // without a daemon
    DWORD busy = ERROR_TIMEOUT;             // while the daemon does not answer
    DWORD meanwhile = 0;                    // what it may answer besides while others call
};

DWORD CodeOf(BOOL done) { return done ? ERROR_SUCCESS : GetLastError(); }

DWORD CodeOf(SC_HANDLE opened) {
    const DWORD code = opened != nullptr ? ERROR_SUCCESS : GetLastError();
    if (opened != nullptr) (void)CloseServiceHandle(opened);
    return code;
}

constexpr char subject[] = "subject";
constexpr WCHAR wideSubject[] = u"subject";

// Room for whatever a function answers.
struct Room {
    std::vector<std::max_align_t> memory = std::vector<std::max_align_t>(4096);
    const LPBYTE bytes = reinterpret_cast<LPBYTE>(memory.data());
    DWORD size = static_cast<DWORD>(memory.size() * sizeof memory[0]);
    DWORD needed = 0, returned = 0, resume = 0;
};

template <typename Record>
Record *As(Room *room) {
    return reinterpret_cast<Record *>(room->bytes);
}

// Asks with a record that stays valid: the callback comes from another thread.
template <typename Record>
DWORD Notify(SC_HANDLE service, DWORD (*function)(SC_HANDLE, DWORD, Record *)) {
    static Record record = {SERVICE_NOTIFY_STATUS_CHANGE, [](LPVOID) {}, nullptr, 0, {}, 0, nullptr};
    return function(service, SERVICE_NOTIFY_RUNNING, &record);
}

template <typename Record>
DWORD ControlEx(SC_HANDLE service, BOOL (*function)(SC_HANDLE, DWORD, DWORD, LPVOID)) {
    Record record = {};
    return CodeOf(function(service, SERVICE_CONTROL_PAUSE, SERVICE_CONTROL_STATUS_REASON_INFO, &record));
}

DWORD LockAndUnlock(SC_HANDLE manager) {
    const SC_LOCK lock = LockServiceDatabase(manager);
    return lock != nullptr ? CodeOf(UnlockServiceDatabase(lock)) : GetLastError();
}

// The functions of the client side. Those that end something for good are called where it is gone already.
const std::vector<Row> &Rows() {
    static const std::vector<Row> rows = {
        {"OpenSCManagerA", Wants::nothing, [](SC_HANDLE) { return CodeOf(OpenSCManagerA(nullptr, nullptr, 0)); }},
        {"OpenSCManagerW", Wants::nothing, [](SC_HANDLE) { return CodeOf(OpenSCManagerW(nullptr, nullptr, 0)); }},
        {"tvOpenDaemon", Wants::nothing, [](SC_HANDLE) { return CodeOf(tvOpenDaemon(nullptr, nullptr)); }},
        {"OpenServiceA", Wants::manager, [](SC_HANDLE handle) { return CodeOf(OpenServiceA(handle, subject, 0)); }},
        {"OpenServiceW", Wants::manager, [](SC_HANDLE handle) { return CodeOf(OpenServiceW(handle, wideSubject, 0)); }},
        {"CreateServiceA", Wants::manager,
         [](SC_HANDLE handle) {
             return CodeOf(CreateServiceA(handle, subject, nullptr, 0, SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START,
                                          0, "/image", nullptr, nullptr, nullptr, nullptr, nullptr));
         },
         ERROR_SERVICE_EXISTS},
        {"CreateServiceW", Wants::manager,
         [](SC_HANDLE handle) {
             return CodeOf(CreateServiceW(handle, wideSubject, nullptr, 0, SERVICE_WIN32_OWN_PROCESS,
                                          SERVICE_DEMAND_START, 0, u"/image", nullptr, nullptr, nullptr, nullptr,
                                          nullptr));
         },
         ERROR_SERVICE_EXISTS},
        {"DeleteService", Wants::service, [](SC_HANDLE handle) { return CodeOf(DeleteService(handle)); }, untried},
        {"StartServiceA", Wants::service, [](SC_HANDLE handle) { return CodeOf(StartServiceA(handle, 0, nullptr)); },
         untried},
        {"StartServiceW", Wants::service, [](SC_HANDLE handle) { return CodeOf(StartServiceW(handle, 0, nullptr)); },
         untried},
        {"ControlService", Wants::service,
         [](SC_HANDLE handle) {
             SERVICE_STATUS status;
             return CodeOf(ControlService(handle, SERVICE_CONTROL_PAUSE, &status));
         },
         ERROR_SERVICE_NOT_ACTIVE},
        {"ControlServiceExA", Wants::service,
         [](SC_HANDLE handle) { return ControlEx<SERVICE_CONTROL_STATUS_REASON_PARAMSA>(handle, ControlServiceExA); },
         ERROR_SERVICE_NOT_ACTIVE},
        {"ControlServiceExW", Wants::service,
         [](SC_HANDLE handle) { return ControlEx<SERVICE_CONTROL_STATUS_REASON_PARAMSW>(handle, ControlServiceExW); },
         ERROR_SERVICE_NOT_ACTIVE},
        {"QueryServiceStatus", Wants::service,
         [](SC_HANDLE handle) {
             SERVICE_STATUS status;
             return CodeOf(QueryServiceStatus(handle, &status));
         }},
        {"QueryServiceStatusEx", Wants::service,
         [](SC_HANDLE handle) {
             Room room;
             return CodeOf(QueryServiceStatusEx(handle, SC_STATUS_PROCESS_INFO, room.bytes, room.size, &room.needed));
         }},
        {"tvQueryServiceStatusPassive", Wants::service,
         [](SC_HANDLE handle) {
             SERVICE_STATUS status;
             return CodeOf(tvQueryServiceStatusPassive(handle, &status, nullptr));
         }},
        {"NotifyServiceStatusChangeA", Wants::service,
         [](SC_HANDLE handle) { return Notify(handle, NotifyServiceStatusChangeA); }, untried},
        {"NotifyServiceStatusChangeW", Wants::service,
         [](SC_HANDLE handle) { return Notify(handle, NotifyServiceStatusChangeW); }, untried},
        {"EnumServicesStatusA", Wants::manager,
         [](SC_HANDLE handle) {
             Room room;
             return CodeOf(EnumServicesStatusA(handle, SERVICE_WIN32, SERVICE_STATE_ALL,
                                               As<ENUM_SERVICE_STATUSA>(&room), room.size, &room.needed, &room.returned,
                                               &room.resume));
         }},
        {"EnumServicesStatusW", Wants::manager,
         [](SC_HANDLE handle) {
             Room room;
             return CodeOf(EnumServicesStatusW(handle, SERVICE_WIN32, SERVICE_STATE_ALL,
                                               As<ENUM_SERVICE_STATUSW>(&room), room.size, &room.needed, &room.returned,
                                               &room.resume));
         }},
        {"EnumServicesStatusExA", Wants::manager,
         [](SC_HANDLE handle) {
             Room room;
             return CodeOf(EnumServicesStatusExA(handle, SC_ENUM_PROCESS_INFO, SERVICE_WIN32, SERVICE_STATE_ALL,
                                                 room.bytes, room.size, &room.needed, &room.returned, &room.resume,
                                                 nullptr));
         }},
        {"EnumServicesStatusExW", Wants::manager,
         [](SC_HANDLE handle) {
             Room room;
             return CodeOf(EnumServicesStatusExW(handle, SC_ENUM_PROCESS_INFO, SERVICE_WIN32, SERVICE_STATE_ALL,
                                                 room.bytes, room.size, &room.needed, &room.returned, &room.resume,
                                                 nullptr));
         }},
        {"EnumDependentServicesA", Wants::service,
         [](SC_HANDLE handle) {
             Room room;
             return CodeOf(EnumDependentServicesA(handle, SERVICE_STATE_ALL, As<ENUM_SERVICE_STATUSA>(&room), room.size,
                                                  &room.needed, &room.returned));
         }},
        {"EnumDependentServicesW", Wants::service,
         [](SC_HANDLE handle) {
             Room room;
             return CodeOf(EnumDependentServicesW(handle, SERVICE_STATE_ALL, As<ENUM_SERVICE_STATUSW>(&room), room.size,
                                                  &room.needed, &room.returned));
         }},
        {"tvEnumServiceDependencies", Wants::service,
         [](SC_HANDLE handle) {
             Room room;
             return CodeOf(tvEnumServiceDependencies(handle, SERVICE_STATE_ALL, As<ENUM_SERVICE_STATUSA>(&room),
                                                     room.size, &room.needed, &room.returned));
         }},
        {"QueryServiceConfigA", Wants::service,
         [](SC_HANDLE handle) {
             Room room;
             return CodeOf(QueryServiceConfigA(handle, As<QUERY_SERVICE_CONFIGA>(&room), room.size, &room.needed));
         }},
        {"QueryServiceConfigW", Wants::service,
         [](SC_HANDLE handle) {
             Room room;
             return CodeOf(QueryServiceConfigW(handle, As<QUERY_SERVICE_CONFIGW>(&room), room.size, &room.needed));
         }},
        {"ChangeServiceConfigA", Wants::service,
         [](SC_HANDLE handle) {
             return CodeOf(ChangeServiceConfigA(handle, SERVICE_NO_CHANGE, SERVICE_DEMAND_START, SERVICE_NO_CHANGE,
                                                nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr));
         }},
        {"ChangeServiceConfigW", Wants::service,
         [](SC_HANDLE handle) {
             return CodeOf(ChangeServiceConfigW(handle, SERVICE_NO_CHANGE, SERVICE_DEMAND_START, SERVICE_NO_CHANGE,
                                                nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr));
         }},
        {"QueryServiceConfig2A", Wants::service,
         [](SC_HANDLE handle) {
             Room room;
             return CodeOf(
                 QueryServiceConfig2A(handle, SERVICE_CONFIG_PRESHUTDOWN_INFO, room.bytes, room.size, &room.needed));
         },
         0, ERROR_INVALID_HANDLE, RPC_S_SERVER_UNAVAILABLE, registryAnswers},
        {"QueryServiceConfig2W", Wants::service,
         [](SC_HANDLE handle) {
             Room room;
             return CodeOf(
                 QueryServiceConfig2W(handle, SERVICE_CONFIG_PRESHUTDOWN_INFO, room.bytes, room.size, &room.needed));
         },
         0, ERROR_INVALID_HANDLE, RPC_S_SERVER_UNAVAILABLE, registryAnswers},
        {"ChangeServiceConfig2A", Wants::service,
         [](SC_HANDLE handle) {
             SERVICE_PRESHUTDOWN_INFO info = {1};
             return CodeOf(ChangeServiceConfig2A(handle, SERVICE_CONFIG_PRESHUTDOWN_INFO, &info));
         },
         0, ERROR_INVALID_HANDLE, RPC_S_SERVER_UNAVAILABLE, registryAnswers},
        {"ChangeServiceConfig2W", Wants::service,
         [](SC_HANDLE handle) {
             SERVICE_PRESHUTDOWN_INFO info = {1};
             return CodeOf(ChangeServiceConfig2W(handle, SERVICE_CONFIG_PRESHUTDOWN_INFO, &info));
         },
         0, ERROR_INVALID_HANDLE, RPC_S_SERVER_UNAVAILABLE, registryAnswers},
        {.name = "LockServiceDatabase",
         .wants = Wants::manager,
         .call = LockAndUnlock,
         .meanwhile = ERROR_SERVICE_DATABASE_LOCKED},
        {"tvUnlockServiceDatabaseById", Wants::manager,
         [](SC_HANDLE handle) { return CodeOf(tvUnlockServiceDatabaseById(handle, 1)); }, ERROR_INVALID_SERVICE_LOCK},
        {"QueryServiceLockStatusA", Wants::manager,
         [](SC_HANDLE handle) {
             Room room;
             return CodeOf(
                 QueryServiceLockStatusA(handle, As<QUERY_SERVICE_LOCK_STATUSA>(&room), room.size, &room.needed));
         }},
        {"QueryServiceLockStatusW", Wants::manager,
         [](SC_HANDLE handle) {
             Room room;
             return CodeOf(
                 QueryServiceLockStatusW(handle, As<QUERY_SERVICE_LOCK_STATUSW>(&room), room.size, &room.needed));
         }},
        {"GetServiceDisplayNameA", Wants::manager,
         [](SC_HANDLE handle) {
             Room room;
             return CodeOf(GetServiceDisplayNameA(handle, subject, As<char>(&room), &room.size));
         }},
        {"GetServiceDisplayNameW", Wants::manager,
         [](SC_HANDLE handle) {
             Room room;
             room.size /= DWORD{sizeof(WCHAR)};
             return CodeOf(GetServiceDisplayNameW(handle, wideSubject, As<WCHAR>(&room), &room.size));
         }},
        {"GetServiceKeyNameA", Wants::manager,
         [](SC_HANDLE handle) {
             Room room;
             return CodeOf(GetServiceKeyNameA(handle, subject, As<char>(&room), &room.size));
         }},
        {"GetServiceKeyNameW", Wants::manager,
         [](SC_HANDLE handle) {
             Room room;
             room.size /= DWORD{sizeof(WCHAR)};
             return CodeOf(GetServiceKeyNameW(handle, wideSubject, As<WCHAR>(&room), &room.size));
         }},
        {"tvPingDaemon", Wants::manager, [](SC_HANDLE handle) { return CodeOf(tvPingDaemon(handle)); }},
        {"tvStopDaemon", Wants::manager, [](SC_HANDLE handle) { return CodeOf(tvStopDaemon(handle)); }, untried,
         ERROR_INVALID_HANDLE, RPC_S_SERVER_UNAVAILABLE, untried},
        {"tvDeclareServiceDead", Wants::service, [](SC_HANDLE handle) { return CodeOf(tvDeclareServiceDead(handle)); }},
        // The lock, and what ends a handle, come last.
        {"UnlockServiceDatabase", Wants::manager,
         [](SC_HANDLE handle) { return CodeOf(UnlockServiceDatabase(handle)); }, ERROR_INVALID_SERVICE_LOCK,
         ERROR_INVALID_SERVICE_LOCK, ERROR_INVALID_SERVICE_LOCK, ERROR_INVALID_SERVICE_LOCK},
        {"CloseServiceHandle", Wants::service, [](SC_HANDLE handle) { return CodeOf(CloseServiceHandle(handle)); },
         untried},
    };
    return rows;
}

// Those without a daemon's answer in them. A null handle means something to the first.
const std::set<std::string> others = {"tvSetCallTimeout",
                                      "GetLastError",
                                      "SetLastError",
                                      "StartServiceCtrlDispatcherA",
                                      "StartServiceCtrlDispatcherW",
                                      "RegisterServiceCtrlHandlerA",
                                      "RegisterServiceCtrlHandlerW",
                                      "RegisterServiceCtrlHandlerExA",
                                      "RegisterServiceCtrlHandlerExW",
                                      "SetServiceStatus"};

struct EveryFunction : ServiceWorld {
    SC_HANDLE manager = nullptr;
    SC_HANDLE service = nullptr;

    static void SetUpTestSuite() {
        ServiceWorld::SetUpTestSuite();
        (void)Do({"create", subject, "--image", folder + "/zero.csh"});
    }
    void SetUp() override {
        manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
        service = OpenServiceA(manager, subject, SERVICE_ALL_ACCESS);
        ASSERT_NE(service, nullptr) << GetLastError();
    }
    void TearDown() override {
        (void)CloseServiceHandle(service); // one of the rows may have done so
        (void)CloseServiceHandle(manager);
    }
    SC_HANDLE HandleFor(const Row &row) const { return row.wants == Wants::service ? service : manager; }
    void ExpectLiveAnswers() const {
        for (const Row &row : Rows()) {
            if (row.live == untried) continue;
            EXPECT_EQ(row.call(HandleFor(row)), row.live) << row.name;
        }
    }
};

TEST_F(EveryFunction, of_the_header_is_among_the_rows) {
    std::set<std::string> found = others;
    for (const Row &row : Rows()) {
        EXPECT_TRUE(found.insert(row.name).second) << row.name;
    }
    std::set<std::string> declared = {"GetLastError", "SetLastError"};
    std::ifstream header(std::string(std::getenv("TV_SOURCE")) + "/include/tv/winsvc.h");
    const std::regex function("^(DWORD|BOOL|SC_HANDLE|SC_LOCK|SERVICE_STATUS_HANDLE) (\\w+)\\(.*");
    std::smatch match;
    for (std::string line; std::getline(header, line);) {
        if (std::regex_match(line, match, function)) declared.insert(match[2]);
    }
    EXPECT_GT(declared.size(), 50u);
    EXPECT_EQ(found, declared);
}

TEST_F(EveryFunction, refuses_a_handle_that_is_not_open_or_of_the_wrong_kind) {
    const SC_HANDLE closed = OpenServiceA(manager, subject, 0);
    ASSERT_TRUE(CloseServiceHandle(closed));
    int number = 0;
    for (const Row &row : Rows()) {
        if (row.wants == Wants::nothing) continue;
        const SC_HANDLE wrong = row.wants == Wants::service ? manager : service;
        // These know what to say to a manager's handle.
        const std::string function = row.name;
        const bool takesBoth = function == "CloseServiceHandle" || function.starts_with("NotifyServiceStatusChange");
        for (const SC_HANDLE handle : {SC_HANDLE{}, reinterpret_cast<SC_HANDLE>(&number), closed, wrong}) {
            if (takesBoth && handle == wrong) continue;
            SetLastError(0);
            EXPECT_EQ(row.call(handle), row.badHandle) << row.name << ' ' << handle;
        }
    }
    SERVICE_STATUS status = {SERVICE_WIN32_OWN_PROCESS, SERVICE_RUNNING, 0, 0, 0, 0, 0};
    EXPECT_FALSE(SetServiceStatus(nullptr, &status));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_FALSE(tvSetCallTimeout(closed, 1));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
}

TEST_F(EveryFunction, leaves_the_last_error_alone_when_it_succeeds) {
    for (const Row &row : Rows()) {
        if (row.live != ERROR_SUCCESS) continue;
        SetLastError(4711);
        EXPECT_EQ(row.call(HandleFor(row)), DWORD{ERROR_SUCCESS}) << row.name;
        EXPECT_EQ(GetLastError(), 4711u) << row.name;
    }
}

TEST_F(EveryFunction, may_be_called_by_several_threads_at_once) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 6; ++i) {
        threads.emplace_back([this, i] {
            // Half of them share their handles.
            const SC_HANDLE ownManager = i % 2 == 0 ? manager : OpenSCManagerA(nullptr, nullptr, 0);
            const SC_HANDLE ownService = i % 2 == 0 ? service : OpenServiceA(ownManager, subject, 0);
            for (int round = 0; round < 3; ++round) {
                for (const Row &row : Rows()) {
                    if (row.live == untried) continue;
                    const DWORD code = row.call(row.wants == Wants::service ? ownService : ownManager);
                    EXPECT_THAT(code, AnyOf(Eq(row.live), Eq(row.meanwhile))) << row.name;
                }
            }
            if (i % 2 == 0) return;
            EXPECT_TRUE(CloseServiceHandle(ownService)) << GetLastError();
            EXPECT_TRUE(CloseServiceHandle(ownManager)) << GetLastError();
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

TEST_F(EveryFunction, answers_1722_without_a_daemon_and_goes_on_with_the_next_one) {
    ExpectLiveAnswers();
    (void)StopDaemon(serviceDaemon);
    for (const Row &row : Rows()) {
        if (std::string(row.name) == "CloseServiceHandle") continue; // below
        EXPECT_EQ(row.call(HandleFor(row)), row.gone) << row.name;
    }
    serviceDaemon = StartServiceDaemon();
    ExpectLiveAnswers();
    (void)StopDaemon(serviceDaemon);
    EXPECT_EQ(CodeOf(CloseServiceHandle(service)), DWORD{RPC_S_SERVER_UNAVAILABLE});
    EXPECT_EQ(CodeOf(CloseServiceHandle(service)), DWORD{ERROR_INVALID_HANDLE});
    serviceDaemon = StartServiceDaemon();
}

TEST_F(EveryFunction, answers_1460_while_the_daemon_is_busy) {
    ASSERT_TRUE(tvSetCallTimeout(nullptr, 100));
    ASSERT_TRUE(tvSetCallTimeout(manager, 100));
    kill(serviceDaemon, SIGSTOP);
    for (const Row &row : Rows()) {
        if (row.busy == untried) continue;
        EXPECT_EQ(row.call(HandleFor(row)), row.busy) << row.name;
    }
    // It never gets to what it was asked for.
    (void)StopDaemon(serviceDaemon, SIGKILL);
    ASSERT_TRUE(tvSetCallTimeout(nullptr, TV_CALL_TIMEOUT_SEC * 1000));
    serviceDaemon = StartServiceDaemon();
}

TEST_F(EveryFunction, of_a_service_program_refuses_what_was_not_started) {
    const LPHANDLER_FUNCTION handler = [](DWORD) {};
    const LPHANDLER_FUNCTION_EX handlerEx = [](DWORD, DWORD, LPVOID, LPVOID) { return DWORD{0}; };
    const auto expectCode = [](bool done, DWORD code) {
        EXPECT_FALSE(done);
        EXPECT_EQ(GetLastError(), code);
        SetLastError(0);
    };
    expectCode(RegisterServiceCtrlHandlerA(subject, handler) != nullptr, ERROR_SERVICE_DOES_NOT_EXIST);
    expectCode(RegisterServiceCtrlHandlerW(wideSubject, handler) != nullptr, ERROR_SERVICE_DOES_NOT_EXIST);
    expectCode(RegisterServiceCtrlHandlerExA(subject, handlerEx, nullptr) != nullptr, ERROR_SERVICE_DOES_NOT_EXIST);
    expectCode(RegisterServiceCtrlHandlerExW(wideSubject, handlerEx, nullptr) != nullptr, ERROR_SERVICE_DOES_NOT_EXIST);
    expectCode(RegisterServiceCtrlHandlerA(nullptr, handler) != nullptr, ERROR_INVALID_PARAMETER);
    expectCode(RegisterServiceCtrlHandlerA(subject, nullptr) != nullptr, ERROR_INVALID_PARAMETER);
    expectCode(StartServiceCtrlDispatcherA(nullptr), ERROR_INVALID_PARAMETER);
    expectCode(StartServiceCtrlDispatcherW(nullptr), ERROR_INVALID_PARAMETER);
}

} // namespace
