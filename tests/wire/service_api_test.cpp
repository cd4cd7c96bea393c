// SPDX-License-Identifier: MIT
// The client side of the service API against a scripted daemon: what it sends, and what it makes of the answers that
// mislead.
#include "svcapi/client.h"
#include "tests/support/host.h"
#include "tests/support/scripted_daemon.h"
#include "tv/winsvc.h"

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <thread>

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

// In a forked child the memory of its parent's other threads looks lost.
bool isForkedChild;

} // namespace

// Asked by the leak checker of sanitizer builds when a process exits.
extern "C" int __lsan_is_turned_off();
extern "C" int __lsan_is_turned_off() { return isForkedChild ? 1 : 0; }

namespace {

pid_t Fork() {
    const pid_t child = fork();
    isForkedChild = child == 0;
    return child;
}

constexpr std::int32_t givenIndex = 5;

// Text that the scripts hand out; it lives as long as the program.
char *Kept(const std::string &text) {
    static std::vector<std::unique_ptr<std::string>> kept;
    kept.push_back(std::make_unique<std::string>(text));
    return kept.back()->data();
}

class ServiceApi : public testing::Test {
protected:
    void SetUp() override {
        ForgetScripts();
        OnCall([this](servd_SERV_CONNECT_SERVICE &) { return servd_SERV_CONNECT_SERVICE_RETURN{initCode}; });
        OnCall([this](servd_SERV_OPEN_SERVICE &argument) {
            opened.emplace_back(argument.name);
            return servd_SERV_OPEN_SERVICE_RETURN{0, openIndex};
        });
        OnCall([this](servd_SERV_CLOSE_SERVICE &argument) {
            const std::lock_guard<std::mutex> locked(closing);
            closed.push_back(argument.handle);
            return servd_SERV_CLOSE_SERVICE_RETURN{0};
        });
        StartScriptedDaemon();
    }
    void TearDown() override {
        if (service != nullptr) CloseServiceHandle(service);
        if (manager != nullptr) CloseServiceHandle(manager);
        StopScriptedDaemon();
    }
    std::vector<std::int32_t> Closed() {
        const std::lock_guard<std::mutex> locked(closing);
        return closed;
    }
    void Open() {
        manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
        ASSERT_NE(manager, nullptr) << GetLastError();
    }
    void OpenWeb() {
        Open();
        service = OpenServiceA(manager, "web", SERVICE_ALL_ACCESS);
        ASSERT_NE(service, nullptr) << GetLastError();
    }
    void ScriptControl(std::int32_t code, std::int32_t state) {
        OnCall([=](servd_SERV_CONTROL_SERVICE &) {
            return servd_SERV_CONTROL_SERVICE_RETURN{code, {0x99, state, 3, 77, 78, 79, 80}};
        });
    }
    // What a control leaves in its caller's record when the daemon refuses it with this code and state.
    SERVICE_STATUS Refused(DWORD control, std::int32_t code, std::int32_t state) {
        ScriptControl(code, state);
        OpenWeb();
        SERVICE_STATUS status;
        EXPECT_FALSE(ControlService(service, control, &status));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(code));
        return status;
    }
    void ScriptConfig(std::int32_t code, const std::string &display, std::uint32_t errorControl = 2) {
        OnCall([=](servd_SERV_QUERY_CONFIG_SERVICE &) {
            return servd_SERV_QUERY_CONFIG_SERVICE_RETURN{
                code,           0x10,         3, errorControl,
                Kept("/image"), Kept("grp"),  4, {6, Kept(std::string("a\0+b\0\0", 6))},
                Kept("user"),   Kept(display)};
        });
        OnCall([](servd_SERV_GET_DISPLAY_SERVICE &) {
            return servd_SERV_GET_DISPLAY_SERVICE_RETURN{0, Kept("Web front")};
        });
    }

    std::int32_t initCode = 0;
    std::int32_t openIndex = givenIndex;
    std::vector<std::string> opened;
    std::mutex closing; // other processes close too
    std::vector<std::int32_t> closed;
    SC_HANDLE manager = nullptr;
    SC_HANDLE service = nullptr;
};

TEST_F(ServiceApi, a_daemon_without_a_database_is_refused_but_can_be_opened) {
    initCode = ERROR_DATABASE_DOES_NOT_EXIST;
    EXPECT_EQ(OpenSCManagerA(nullptr, nullptr, 0), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_DATABASE_DOES_NOT_EXIST});
    DWORD code = 0;
    manager = tvOpenDaemon(nullptr, &code);
    EXPECT_NE(manager, nullptr);
    EXPECT_EQ(code, DWORD{ERROR_DATABASE_DOES_NOT_EXIST});
}

TEST_F(ServiceApi, no_daemon_gives_1722) {
    StopScriptedDaemon();
    EXPECT_EQ(OpenSCManagerA(nullptr, nullptr, 0), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{RPC_S_SERVER_UNAVAILABLE});
}

TEST_F(ServiceApi, another_database_name_is_invalid) {
    EXPECT_EQ(OpenSCManagerA(nullptr, "ServicesFailed", 0), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_NAME});
}

TEST_F(ServiceApi, a_handle_of_the_wrong_kind_or_a_closed_one_gives_6) {
    OpenWeb();
    EXPECT_FALSE(DeleteService(manager));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_TRUE(CloseServiceHandle(service));
    EXPECT_FALSE(CloseServiceHandle(service));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
    service = nullptr;
    EXPECT_THAT(Closed(), ElementsAre(givenIndex));
}

TEST_F(ServiceApi, the_last_error_belongs_to_its_thread) {
    SetLastError(7);
    std::thread([] { EXPECT_EQ(GetLastError(), 0u); }).join();
    EXPECT_EQ(GetLastError(), 7u);
}

TEST_F(ServiceApi, create_without_dependencies_sends_one_terminator) {
    servd_SERV_CREATE_SERVICE seen = {};
    std::string display;
    OnCall([&](servd_SERV_CREATE_SERVICE &argument) {
        seen = argument;
        display = argument.displayName;
        return servd_SERV_CREATE_SERVICE_RETURN{0, 8, 55};
    });
    Open();
    service =
        CreateServiceA(manager, "web", nullptr, 0, 0x10, 2, 1, "/image", nullptr, nullptr, nullptr, nullptr, nullptr);
    ASSERT_NE(service, nullptr);
    EXPECT_EQ(seen.dependencies.count, 1u);
    EXPECT_EQ(seen.tagWanted, 0);
    EXPECT_EQ(display, "web");
}

TEST_F(ServiceApi, create_sends_the_whole_multi_string_and_gives_the_tag) {
    std::string dependencies;
    OnCall([&](servd_SERV_CREATE_SERVICE &argument) {
        dependencies = StringOf(argument.dependencies);
        return servd_SERV_CREATE_SERVICE_RETURN{0, 8, 55};
    });
    Open();
    DWORD tag = 0;
    service = CreateServiceA(manager, "web", "Web", 0, 0x10, 2, 1, "/image", "grp", &tag, "a\0+b\0", "user", nullptr);
    ASSERT_NE(service, nullptr);
    EXPECT_EQ(dependencies, std::string("a\0+b\0\0", 6));
    EXPECT_EQ(tag, 55u);
}

TEST_F(ServiceApi, a_tag_without_a_group_is_refused_unsent) {
    Open();
    DWORD tag = 0;
    EXPECT_EQ(CreateServiceA(manager, "web", nullptr, 0, 0x10, 2, 1, "/image", "", &tag, nullptr, nullptr, nullptr),
              nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_THAT(ProceduresCalled(), ElementsAre(CONNECT_SERVICE));
}

// With any of these in the registry the daemon would start without a single service.
TEST_F(ServiceApi, a_service_that_could_not_be_loaded_again_is_refused_unsent) {
    const std::string fits(TV_MAX_TEXT_BYTES, 'x'), tooLong(TV_MAX_TEXT_BYTES + 1, 'x');
    const auto create = [&](const std::string &name, const std::string &display, const std::string &image,
                            const std::string &group) -> DWORD {
        const SC_HANDLE made = CreateServiceA(manager, name.c_str(), display.c_str(), 0, 0x10, 2, 1, image.c_str(),
                                              group.c_str(), nullptr, nullptr, nullptr, nullptr);
        if (made == nullptr) return GetLastError();
        (void)CloseServiceHandle(made);
        return ERROR_SUCCESS;
    };
    OnCall([](servd_SERV_CREATE_SERVICE &) { return servd_SERV_CREATE_SERVICE_RETURN{0, 8, 0}; });
    Open();
    for (const std::string &name : {std::string(), std::string("a\\b"), std::string("a/b"), tooLong}) {
        EXPECT_EQ(create(name, "Web", "/image", "grp"), DWORD{ERROR_INVALID_NAME}) << name;
    }
    EXPECT_EQ(create("web", tooLong, "/image", "grp"), DWORD{ERROR_INVALID_NAME});
    EXPECT_EQ(create("web", "Web", tooLong, "grp"), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(create("web", "Web", "/image", tooLong), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_THAT(ProceduresCalled(), ElementsAre(CONNECT_SERVICE));
    EXPECT_EQ(create(fits, fits, fits, fits), DWORD{ERROR_SUCCESS});
}

TEST_F(ServiceApi, a_change_that_could_not_be_loaded_again_is_refused_unsent) {
    const std::string tooLong(TV_MAX_TEXT_BYTES + 1, 'x');
    const auto change = [&](const char *image, const char *group, const char *display) {
        EXPECT_FALSE(ChangeServiceConfigA(service, SERVICE_NO_CHANGE, SERVICE_NO_CHANGE, 1, image, group, nullptr,
                                          nullptr, nullptr, nullptr, display));
        return GetLastError();
    };
    OpenWeb();
    EXPECT_EQ(change(tooLong.c_str(), nullptr, nullptr), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(change(nullptr, tooLong.c_str(), nullptr), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(change(nullptr, nullptr, tooLong.c_str()), DWORD{ERROR_INVALID_NAME});
    EXPECT_THAT(ProceduresCalled(), ElementsAre(CONNECT_SERVICE, OPEN_SERVICE));
}

TEST_F(ServiceApi, start_arguments_travel_in_order) {
    std::vector<std::string> arguments;
    std::int32_t argc = 0;
    OnCall([&](servd_SERV_START_SERVICE &argument) {
        for (const svd_arglist_t *link = argument.arglist; link != nullptr; link = link->next) {
            arguments.emplace_back(link->arg);
        }
        argc = argument.argc;
        return servd_SERV_START_SERVICE_RETURN{0};
    });
    OpenWeb();
    const char *argv[] = {"one", "", "three"};
    EXPECT_TRUE(StartServiceA(service, 3, argv));
    EXPECT_THAT(arguments, ElementsAre("one", "", "three"));
    EXPECT_EQ(argc, 3);
}

TEST_F(ServiceApi, a_refused_control_fills_only_what_is_true) {
    const SERVICE_STATUS status = Refused(SERVICE_CONTROL_PAUSE, ERROR_INVALID_SERVICE_CONTROL, SERVICE_RUNNING);
    EXPECT_EQ(status.dwCurrentState, DWORD{SERVICE_RUNNING});
    EXPECT_EQ(status.dwControlsAccepted, 3u);
    EXPECT_EQ(status.dwWin32ExitCode, 0u);
    EXPECT_EQ(status.dwServiceType, 0u);
}

TEST_F(ServiceApi, a_service_found_dead_fills_all_words) {
    const SERVICE_STATUS status =
        Refused(SERVICE_CONTROL_INTERROGATE, ERROR_SERVICE_CANNOT_ACCEPT_CTRL, SERVICE_STOPPED);
    EXPECT_EQ(status.dwWin32ExitCode, 77u);
}

TEST_F(ServiceApi, a_process_that_is_gone_is_told_as_stopped) {
    // The daemon notes the state before it finds out.
    const SERVICE_STATUS status = Refused(SERVICE_CONTROL_INTERROGATE, ERROR_SERVICE_NOT_ACTIVE, SERVICE_RUNNING);
    EXPECT_EQ(status.dwCurrentState, DWORD{SERVICE_STOPPED});
}

TEST_F(ServiceApi, a_configuration_that_comes_with_an_old_6_is_accepted) {
    ScriptConfig(ERROR_INVALID_HANDLE, "Web front");
    OpenWeb();
    ServiceConfig config;
    EXPECT_EQ(QueryConfig(service, &config), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(config.imagePath, "/image");
    EXPECT_THAT(config.dependencies, ElementsAre("a", "+b"));
}

TEST_F(ServiceApi, a_6_with_the_configuration_of_another_service_is_a_6) {
    ScriptConfig(ERROR_INVALID_HANDLE, "Asked for before");
    OpenWeb();
    ServiceConfig config;
    EXPECT_EQ(QueryConfig(service, &config), DWORD{ERROR_INVALID_HANDLE});
}

// Serves `names` as the daemon does: in pieces that fit, code 0 always.
void ScriptEnumeration(std::vector<std::string> names) {
    OnCall([names](servd_SERV_ENUM_STATUS_SERVICE &argument) {
        static std::vector<svd_enum_status_list_t> list;
        list.clear();
        list.reserve(names.size());
        servd_SERV_ENUM_STATUS_SERVICE_RETURN answer = {};
        if (argument.typeFilter != SERVICE_WIN32) return answer;
        std::int32_t left = argument.bufferBytes;
        for (auto i = static_cast<std::size_t>(argument.resumeIndex); i < names.size(); ++i) {
            const auto bytes = static_cast<std::int32_t>(2 * names[i].size() + 2 + 36);
            if (bytes > left) {
                if (answer.bytesNeeded == 0) answer.resumeIndex = static_cast<std::int32_t>(i);
                answer.bytesNeeded += bytes;
                left = 0;
                continue;
            }
            left -= bytes;
            list.push_back({Kept(names[i]), Kept(names[i]), {0x10, 4, 0, 0, 0, 0, 0}, nullptr});
        }
        for (std::size_t i = 1; i < list.size(); ++i) {
            list[i - 1].next = &list[i];
        }
        answer.servicesReturned = static_cast<std::int32_t>(list.size());
        answer.services = list.empty() ? nullptr : list.data();
        return answer;
    });
}

// Without a registry daemon every value reads as 0, and a dependent would look like a stranger.
TEST_F(ServiceApi, a_configuration_of_nothing_is_none_when_the_registry_cannot_be_read) {
    OnCall([](servd_SERV_QUERY_CONFIG_SERVICE &) {
        servd_SERV_QUERY_CONFIG_SERVICE_RETURN answer = {};
        answer.serviceType = 0x10;
        return answer;
    });
    std::int32_t dependenciesCode = ERROR_REGISTRY_IO_FAILED;
    OnCall([&](servd_SERV_ENUM_DEPEND_SERVICE &) {
        return servd_SERV_ENUM_DEPEND_SERVICE_RETURN{dependenciesCode, 0, 0, nullptr};
    });
    ScriptEnumeration({"web", "shop"});
    ScriptControl(ERROR_INVALID_HANDLE, SERVICE_STOPPED);
    OpenWeb();
    DWORD needed = 0, returned = 0;
    EXPECT_FALSE(QueryServiceConfigA(service, nullptr, 0, &needed));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_REGISTRY_IO_FAILED});
    EXPECT_FALSE(EnumDependentServicesA(service, SERVICE_STATE_ALL, nullptr, 0, &needed, &returned));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_REGISTRY_IO_FAILED});
    dependenciesCode = ERROR_SUCCESS;
    EXPECT_FALSE(QueryServiceConfigA(service, nullptr, 0, &needed));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
}

TEST_F(ServiceApi, changing_nothing_sends_the_present_error_control) {
    ScriptConfig(0, "Web front", 3);
    servd_SERV_CHANGE_CONFIG_SERVICE seen = {};
    OnCall([&](servd_SERV_CHANGE_CONFIG_SERVICE &argument) {
        seen = argument;
        return servd_SERV_CHANGE_CONFIG_SERVICE_RETURN{0, 0};
    });
    OpenWeb();
    EXPECT_TRUE(ChangeServiceConfigA(service, SERVICE_NO_CHANGE, SERVICE_NO_CHANGE, SERVICE_NO_CHANGE, nullptr, nullptr,
                                     nullptr, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(seen.errorControl, 3u);
    EXPECT_EQ(seen.serviceType, SERVICE_NO_CHANGE);
    for (const CharArray &field :
         {seen.imagePath, seen.group, seen.dependencies, seen.account, seen.password, seen.displayName}) {
        EXPECT_EQ(field.count, 0u);
    }
}

TEST_F(ServiceApi, changed_strings_count_their_terminators) {
    ScriptConfig(0, "Web front");
    std::string image, dependencies;
    OnCall([&](servd_SERV_CHANGE_CONFIG_SERVICE &argument) {
        image = StringOf(argument.imagePath);
        dependencies = StringOf(argument.dependencies);
        return servd_SERV_CHANGE_CONFIG_SERVICE_RETURN{0, 0};
    });
    OpenWeb();
    EXPECT_TRUE(ChangeServiceConfigA(service, SERVICE_NO_CHANGE, 2, 1, "/new", nullptr, nullptr, "a\0b\0", nullptr,
                                     nullptr, nullptr));
    EXPECT_EQ(image, std::string("/new\0", 5));
    EXPECT_EQ(dependencies, std::string("a\0b\0\0", 5));
}

std::vector<std::string> ManyNames(int count) {
    std::vector<std::string> names;
    for (int i = 0; i < count; ++i) {
        names.push_back("service" + std::to_string(i));
    }
    return names;
}

TEST_F(ServiceApi, an_enumeration_goes_on_until_everything_has_come) {
    const std::vector<std::string> names = ManyNames(20000);
    ScriptEnumeration(names);
    ScriptControl(ERROR_INVALID_HANDLE, SERVICE_STOPPED); // nothing in record 0
    Open();
    std::vector<ListedService> services;
    ASSERT_EQ(EnumerateServices(manager, SERVICE_WIN32, SERVICE_STATE_ALL, &services), DWORD{ERROR_SUCCESS});
    ASSERT_EQ(services.size(), names.size());
    EXPECT_EQ(services.back().name, names.back());
    const auto called = ProceduresCalled();
    EXPECT_GT(std::count(called.begin(), called.end(), std::uint32_t{ENUM_STATUS_SERVICE}), 3);
}

TEST_F(ServiceApi, a_service_larger_than_a_piece_is_fetched_all_the_same) {
    const std::vector<std::string> names = {"first", std::string(40000, 'x'), "last"};
    ScriptEnumeration(names);
    ScriptControl(ERROR_INVALID_HANDLE, SERVICE_STOPPED); // nothing in record 0
    Open();
    std::vector<ListedService> services;
    ASSERT_EQ(EnumerateServices(manager, SERVICE_WIN32, SERVICE_STATE_ALL, &services), DWORD{ERROR_SUCCESS});
    ASSERT_EQ(services.size(), 3u);
    EXPECT_EQ(services[1].name, names[1]);
}

TEST_F(ServiceApi, both_classes_are_asked_for_one_after_the_other) {
    std::vector<std::int32_t> filters;
    OnCall([&](servd_SERV_ENUM_STATUS_SERVICE &argument) {
        filters.push_back(argument.typeFilter);
        return servd_SERV_ENUM_STATUS_SERVICE_RETURN{};
    });
    ScriptControl(ERROR_INVALID_HANDLE, SERVICE_STOPPED); // nothing in record 0
    Open();
    std::vector<ListedService> services;
    EXPECT_EQ(EnumerateServices(manager, SERVICE_WIN32 | SERVICE_DRIVER, SERVICE_STATE_ALL, &services),
              DWORD{ERROR_SUCCESS});
    EXPECT_THAT(filters, ElementsAre(0x30, 0x0B));
}

TEST_F(ServiceApi, an_enumeration_without_any_record_says_that_there_is_no_database) {
    OnCall([](servd_SERV_ENUM_STATUS_SERVICE &) {
        return servd_SERV_ENUM_STATUS_SERVICE_RETURN{87, 0, 0, 0, nullptr};
    });
    ScriptControl(ERROR_INVALID_HANDLE, SERVICE_STOPPED); // nothing in record 0
    Open();
    std::vector<ListedService> services;
    EXPECT_EQ(EnumerateServices(manager, SERVICE_WIN32, SERVICE_STATE_ALL, &services),
              DWORD{ERROR_DATABASE_DOES_NOT_EXIST});
}

TEST_F(ServiceApi, a_small_buffer_is_filled_again_and_again_by_the_resume_handle) {
    ScriptEnumeration(ManyNames(7));
    ScriptControl(ERROR_INVALID_HANDLE, SERVICE_STOPPED); // nothing in record 0
    Open();
    ENUM_SERVICE_STATUSA buffer[4];
    std::vector<std::string> names;
    DWORD resume = 0;
    DWORD needed = 0;
    DWORD returned = 0;
    BOOL complete = FALSE;
    for (int i = 0; i < 10 && !complete; ++i) {
        complete = EnumServicesStatusA(manager, SERVICE_WIN32, SERVICE_STATE_ALL, buffer, sizeof buffer, &needed,
                                       &returned, &resume);
        if (!complete) {
            EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
        }
        for (DWORD j = 0; j < returned; ++j) {
            names.emplace_back(buffer[j].lpServiceName);
        }
    }
    EXPECT_EQ(resume, 0u);
    EXPECT_EQ(names, ManyNames(7));
}

TEST_F(ServiceApi, a_lock_writes_its_identifier_into_the_owners_name) {
    std::int32_t id = 0;
    std::string owner;
    OnCall([&](servd_SERV_LOCK_SERVICE &argument) {
        id = argument.lockId;
        owner = argument.owner;
        return servd_SERV_LOCK_SERVICE_RETURN{0};
    });
    std::int32_t unlocked = 0;
    OnCall([&](servd_SERV_UNLOCK_SERVICE &argument) {
        unlocked = argument.lockId;
        return servd_SERV_UNLOCK_SERVICE_RETURN{0};
    });
    Open();
    const SC_LOCK lock = LockServiceDatabase(manager);
    ASSERT_NE(lock, nullptr);
    EXPECT_GT(id, 0);
    EXPECT_THAT(owner, EndsWith(" pid=" + std::to_string(getpid()) + " id=" + std::to_string(id)));
    EXPECT_TRUE(UnlockServiceDatabase(lock));
    EXPECT_EQ(unlocked, id);
    EXPECT_FALSE(UnlockServiceDatabase(lock));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_SERVICE_LOCK});
}

TEST_F(ServiceApi, owner_and_seconds_of_a_free_database_are_not_told) {
    OnCall([](servd_SERV_QUERY_LOCK_SERVICE &) {
        return servd_SERV_QUERY_LOCK_SERVICE_RETURN{0, 0, Kept("left over"), 99};
    });
    Open();
    LockStatus status;
    ASSERT_EQ(QueryLock(manager, &status), DWORD{ERROR_SUCCESS});
    EXPECT_FALSE(status.locked);
    EXPECT_EQ(status.owner, "");
    EXPECT_EQ(status.durationSec, 0u);
}

TEST_F(ServiceApi, unlocking_with_identifier_0_is_refused_unsent) {
    Open();
    EXPECT_FALSE(tvUnlockServiceDatabaseById(manager, 0));
    EXPECT_THAT(ProceduresCalled(), ElementsAre(CONNECT_SERVICE));
}

TEST_F(ServiceApi, a_name_that_does_not_fit_tells_its_length) {
    ScriptConfig(0, "Web front");
    Open();
    char name[10];
    DWORD chars = 9;
    EXPECT_FALSE(GetServiceDisplayNameA(manager, "web", name, &chars));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
    EXPECT_EQ(chars, 9u);
    chars = sizeof name;
    EXPECT_TRUE(GetServiceDisplayNameA(manager, "web", name, &chars));
    EXPECT_STREQ(name, "Web front");
    EXPECT_EQ(chars, 9u);
}

TEST_F(ServiceApi, a_restarted_daemon_is_found_again_and_services_are_opened_anew) {
    ScriptConfig(0, "Web front");
    std::int32_t asked = -1;
    OnCall([&](servd_SERV_QUERY_STATUS_SERVICE &argument) {
        asked = argument.handle;
        return servd_SERV_QUERY_STATUS_SERVICE_RETURN{0, {}};
    });
    ScriptEnumeration({});
    ScriptControl(ERROR_INVALID_SERVICE_CONTROL, SERVICE_RUNNING);
    OpenWeb();
    StopScriptedDaemon();
    openIndex = 9;
    StartScriptedDaemon();
    SERVICE_STATUS status;
    EXPECT_TRUE(QueryServiceStatus(service, &status)) << GetLastError();
    EXPECT_THAT(opened, ElementsAre("web", "web"));
    EXPECT_EQ(asked, 9);
}

TEST_F(ServiceApi, a_broken_call_is_not_repeated) {
    std::atomic<int> calls = 0;
    SetScript(START_SERVICE, [&](SVCXPRT *transport) {
        ++calls;
        shutdown(transport->xp_fd, SHUT_RDWR);
    });
    OpenWeb();
    EXPECT_FALSE(StartServiceA(service, 0, nullptr));
    EXPECT_EQ(GetLastError(), DWORD{RPC_S_CALL_FAILED});
    EXPECT_EQ(calls, 1);
}

TEST_F(ServiceApi, a_call_ends_at_its_time_out) {
    SetScript(ENUM_STATUS_SERVICE, [](SVCXPRT *) {});
    OpenWeb();
    ASSERT_TRUE(tvSetCallTimeout(manager, 200));
    SERVICE_STATUS status;
    const std::int64_t before = MonotonicMs();
    EXPECT_FALSE(QueryServiceStatus(service, &status));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_TIMEOUT});
    EXPECT_LT(MonotonicMs() - before, 2000);
}

// A daemon that starts its automatic services is connected to at once and answers minutes later.
TEST_F(ServiceApi, a_time_out_without_a_handle_limits_opening_too) {
    SetScript(CONNECT_SERVICE, [](SVCXPRT *) {});
    ASSERT_TRUE(tvSetCallTimeout(nullptr, 200));
    const std::int64_t before = MonotonicMs();
    EXPECT_EQ(tvOpenDaemon(nullptr, nullptr), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_TIMEOUT});
    EXPECT_LT(MonotonicMs() - before, 5000);
    ASSERT_TRUE(tvSetCallTimeout(nullptr, 75000));
}

TEST_F(ServiceApi, stopping_the_daemon_needs_no_answer) {
    SetScript(STOP_DAEMON_SERVICE, [](SVCXPRT *transport) { shutdown(transport->xp_fd, SHUT_RDWR); });
    Open();
    EXPECT_TRUE(tvStopDaemon(manager));
}

TEST_F(ServiceApi, a_process_that_exits_gives_its_handles_back) {
    const pid_t child = Fork();
    if (child == 0) {
        const SC_HANDLE own = OpenSCManagerA(nullptr, nullptr, 0);
        std::exit(OpenServiceA(own, "web", 0) != nullptr ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);
    EXPECT_THAT(Closed(), ElementsAre(givenIndex));
}

TEST_F(ServiceApi, a_forked_child_that_exits_leaves_its_parents_handles_alone) {
    OpenWeb();
    const pid_t child = Fork();
    if (child == 0) std::exit(0);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);
    EXPECT_THAT(Closed(), IsEmpty());
}

// The calls that a look at the status makes, and what it takes from them.
TEST_F(ServiceApi, a_service_is_looked_for_where_its_number_says) {
    std::vector<std::int32_t> places;
    OnCall([&](servd_SERV_ENUM_STATUS_SERVICE &argument) {
        places.push_back(argument.resumeIndex);
        static svd_enum_status_list_t web = {Kept("web"), Kept("Web"), {0x10, 4, 1, 0, 0, 0, 0}, nullptr};
        static svd_enum_status_list_t before = {Kept("before"), Kept("b"), {0x10, 1, 0, 0, 0, 0, 0}, &web};
        return servd_SERV_ENUM_STATUS_SERVICE_RETURN{0, 1000, 2, 0, &before};
    });
    openIndex = 40;
    OpenWeb();
    SERVICE_STATUS status;
    ASSERT_TRUE(QueryServiceStatus(service, &status));
    EXPECT_EQ(status.dwCurrentState, DWORD{SERVICE_RUNNING});
    EXPECT_THAT(places, ElementsAre(39 - 4)); // a few before it; record 0 is not counted
    ASSERT_TRUE(QueryServiceStatus(service, &status));
    EXPECT_THAT(places, ElementsAre(35, 36 - 4)); // it was the second from there
}

TEST_F(ServiceApi, a_service_that_is_not_where_its_number_says_is_looked_for_everywhere) {
    std::vector<std::string> names = ManyNames(300);
    names.push_back("web");
    ScriptEnumeration(names);
    openIndex = 2;
    OpenWeb();
    SERVICE_STATUS status;
    BOOL complete = FALSE;
    ASSERT_TRUE(tvQueryServiceStatusPassive(service, &status, &complete));
    EXPECT_TRUE(complete);
    EXPECT_EQ(status.dwCurrentState, DWORD{SERVICE_RUNNING});
    const std::size_t calls = ProceduresCalled().size();
    ASSERT_TRUE(tvQueryServiceStatusPassive(service, &status, &complete));
    EXPECT_EQ(ProceduresCalled().size(), calls + 1);
}

TEST_F(ServiceApi, what_a_start_leaves_behind_is_not_asked_about) {
    ScriptEnumeration({});
    OnCall([](servd_SERV_CONTROL_SERVICE &) {
        return servd_SERV_CONTROL_SERVICE_RETURN{1052, {9, SERVICE_START_PENDING, 0, 9, 9, 9, 9}};
    });
    OpenWeb();
    SERVICE_STATUS status;
    ASSERT_TRUE(QueryServiceStatus(service, &status));
    EXPECT_EQ(status.dwCurrentState, DWORD{SERVICE_START_PENDING});
    const auto called = ProceduresCalled();
    EXPECT_EQ(std::count(called.begin(), called.end(), std::uint32_t{QUERY_STATUS_SERVICE}), 0);
}

TEST_F(ServiceApi, the_peek_never_sends_a_control_that_a_service_could_see) {
    std::vector<std::int32_t> controls;
    OnCall([&](servd_SERV_CONTROL_SERVICE &argument) {
        controls.push_back(argument.control);
        return servd_SERV_CONTROL_SERVICE_RETURN{1052, {9, SERVICE_PAUSED, 1, 9, 9, 9, 9}};
    });
    ScriptEnumeration({});
    OpenWeb();
    SERVICE_STATUS status;
    BOOL complete = TRUE;
    ASSERT_TRUE(tvQueryServiceStatusPassive(service, &status, &complete));
    EXPECT_FALSE(complete);
    EXPECT_EQ(status.dwCurrentState, DWORD{SERVICE_PAUSED});
    EXPECT_EQ(status.dwWin32ExitCode, 0u);
    EXPECT_THAT(controls, ElementsAre(0));
}

} // namespace
