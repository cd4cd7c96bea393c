// SPDX-License-Identifier: MIT
// The functions of winsvc.h against both daemons, for bytes and for UTF-16 alike: results, last errors, and buffers one
// byte too small, just large enough and larger.
#include "svcapi/calls.h"
#include "svcapi/wide.h"
#include "tests/support/service_world.h"
#include "tv/winreg.h"
#include "tv/winsvc.h"

#include <gmock/gmock.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <functional>
#include <thread>

using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr std::byte untouched{0x55};

// The functions and records in both forms, which the letter at their end tells.
#define FORM(Form, Unit, Letter)                                                                                       \
    struct Form {                                                                                                      \
        using Char = Unit;                                                                                             \
        using Status = ENUM_SERVICE_STATUS##Letter;                                                                    \
        using ProcessStatus = ENUM_SERVICE_STATUS_PROCESS##Letter;                                                     \
        using Config = QUERY_SERVICE_CONFIG##Letter;                                                                   \
        using Description = SERVICE_DESCRIPTION##Letter;                                                               \
        using Actions = SERVICE_FAILURE_ACTIONS##Letter;                                                               \
        using Privileges = SERVICE_REQUIRED_PRIVILEGES_INFO##Letter;                                                   \
        using Reason = SERVICE_CONTROL_STATUS_REASON_PARAMS##Letter;                                                   \
        using Lock = QUERY_SERVICE_LOCK_STATUS##Letter;                                                                \
        static constexpr auto OpenManager = OpenSCManager##Letter;                                                     \
        static constexpr auto Open = OpenService##Letter;                                                              \
        static constexpr auto Create = CreateService##Letter;                                                          \
        static constexpr auto Start = StartService##Letter;                                                            \
        static constexpr auto Enumerate = EnumServicesStatus##Letter;                                                  \
        static constexpr auto EnumerateEx = EnumServicesStatusEx##Letter;                                              \
        static constexpr auto Dependents = EnumDependentServices##Letter;                                              \
        static constexpr auto QueryConfig = QueryServiceConfig##Letter;                                                \
        static constexpr auto ChangeConfig = ChangeServiceConfig##Letter;                                              \
        static constexpr auto QueryConfig2 = QueryServiceConfig2##Letter;                                              \
        static constexpr auto ChangeConfig2 = ChangeServiceConfig2##Letter;                                            \
        static constexpr auto ControlEx = ControlServiceEx##Letter;                                                    \
        using Notify = SERVICE_NOTIFY_2##Letter;                                                                       \
        static constexpr auto NotifyChange = NotifyServiceStatusChange##Letter;                                        \
        static constexpr auto QueryLock = QueryServiceLockStatus##Letter;                                              \
        static constexpr auto DisplayName = GetServiceDisplayName##Letter;                                             \
        static constexpr auto KeyName = GetServiceKeyName##Letter;                                                     \
    };
FORM(Bytes, char, A)
FORM(Utf16, WCHAR, W)
#undef FORM

std::string Plain(const char *text) { return text; }
std::string Plain(const WCHAR *text) {
    NarrowArguments narrow;
    return Narrow(&narrow, text);
}

// A call into a buffer: (bytes, room, needed).
using IntoBuffer = std::function<BOOL(LPBYTE, DWORD, LPDWORD)>;

// Makes the call with a buffer one byte too small, just large enough and larger. Returns the buffer of the last one.
std::vector<std::max_align_t> ReadAllSizes(const IntoBuffer &call, DWORD tooSmall = ERROR_INSUFFICIENT_BUFFER) {
    DWORD needed = 0;
    SetLastError(0);
    EXPECT_FALSE(call(nullptr, 0, &needed));
    EXPECT_EQ(GetLastError(), tooSmall);
    std::vector<std::max_align_t> buffer(needed / sizeof(std::max_align_t) + 2);
    auto *const bytes = reinterpret_cast<LPBYTE>(buffer.data());
    for (const int more : {-1, 0, 1}) {
        std::memset(bytes, static_cast<int>(untouched), buffer.size() * sizeof(std::max_align_t));
        const DWORD room = needed + static_cast<DWORD>(more);
        DWORD told = 0;
        SetLastError(0);
        EXPECT_EQ(call(bytes, room, &told), more >= 0 ? TRUE : FALSE) << room << " of " << needed;
        EXPECT_EQ(GetLastError(), more >= 0 ? DWORD{0} : tooSmall);
        for (DWORD i = needed; i < needed + sizeof(std::max_align_t); ++i) {
            EXPECT_EQ(std::byte{bytes[i]}, untouched) << "written behind the end";
        }
    }
    return buffer;
}

template <typename Form>
struct ServiceCalls : ServiceWorld {
    using Char = typename Form::Char;

    const SC_HANDLE manager = Form::OpenManager(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    SC_HANDLE service = nullptr;

    ~ServiceCalls() override {
        if (service != nullptr) (void)CloseServiceHandle(service);
        (void)CloseServiceHandle(manager);
    }

    static std::basic_string<Char> Text(const std::string &text) { return InCharacters<Char>(text); }

    // A service of this test's name, open.
    void Create(const std::string &options = "", const std::vector<std::string> &further = {}) {
        CreateSample(name, options, further);
        service = Form::Open(manager, Text(name).c_str(), SERVICE_ALL_ACCESS);
        ASSERT_NE(service, nullptr) << GetLastError();
    }
    void WaitForState(DWORD state) const {
        SERVICE_STATUS status = {};
        EXPECT_TRUE(WaitUntil([&] { return QueryServiceStatus(service, &status) && status.dwCurrentState == state; }))
            << status.dwCurrentState;
    }
    void StartAndWait() const {
        ASSERT_TRUE(Form::Start(service, 0, nullptr)) << GetLastError();
        WaitForState(SERVICE_RUNNING);
    }
    std::string KeyPath() const { return servicesKey + "\\" + name; }

    template <typename Record>
    static const Record &As(const std::vector<std::max_align_t> &buffer) {
        return *reinterpret_cast<const Record *>(buffer.data());
    }
    std::vector<std::max_align_t> Part(DWORD level) const {
        return ReadAllSizes([&](LPBYTE bytes, DWORD room, LPDWORD needed) {
            return Form::QueryConfig2(service, level, bytes, room, needed);
        });
    }
    void ExpectCode(BOOL answer, DWORD code) const {
        EXPECT_FALSE(answer);
        EXPECT_EQ(GetLastError(), code);
    }
};

using Forms = testing::Types<Bytes, Utf16>;
struct FormNames {
    template <typename Form>
    static std::string GetName(int) {
        return std::is_same_v<Form, Bytes> ? "Bytes" : "Utf16";
    }
};
TYPED_TEST_SUITE(ServiceCalls, Forms, FormNames);

TYPED_TEST(ServiceCalls, a_created_service_reads_back_as_it_was_given) {
    const auto text = [](const std::string &plain) { return InCharacters<typename TypeParam::Char>(plain); };
    const std::string image = this->folder + "/image.csh";
    const std::string dependencies("zero\0+none such\0", 16);
    DWORD tag = 0;
    this->service =
        TypeParam::Create(this->manager, text(this->name + "é").c_str(), text("Größe 𝄞").c_str(), SERVICE_ALL_ACCESS,
                          SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_SEVERE, text(image).c_str(),
                          text("group").c_str(), &tag, text(dependencies).c_str(), text("root").c_str(), nullptr);
    ASSERT_NE(this->service, nullptr) << GetLastError();
    const auto buffer = ReadAllSizes([&](LPBYTE bytes, DWORD room, LPDWORD needed) {
        return TypeParam::QueryConfig(this->service, reinterpret_cast<typename TypeParam::Config *>(bytes), room,
                                      needed);
    });
    const auto &config = this->template As<typename TypeParam::Config>(buffer);
    EXPECT_EQ(Plain(config.lpBinaryPathName), image);
    EXPECT_EQ(Plain(config.lpLoadOrderGroup), "group");
    EXPECT_EQ(Plain(config.lpServiceStartName), "root");
    EXPECT_EQ(Plain(config.lpDisplayName), "Größe 𝄞");
    EXPECT_EQ(config.dwErrorControl, DWORD{SERVICE_ERROR_SEVERE});
    const auto *dependency = config.lpDependencies;
    EXPECT_EQ(Plain(dependency), "zero");
    dependency += Plain(dependency).size() + 1;
    EXPECT_EQ(Plain(dependency), "+none such");
    EXPECT_EQ(Plain(dependency + Plain(dependency).size() + 1), "");
    // The daemon has the names as UTF-8.
    EXPECT_TRUE(KeyExists(this->KeyPath() + "é"));
}

TYPED_TEST(ServiceCalls, a_changed_service_reads_back_as_it_was_changed) {
    this->Create();
    ASSERT_TRUE(TypeParam::ChangeConfig(this->service, SERVICE_NO_CHANGE, SERVICE_AUTO_START, SERVICE_NO_CHANGE,
                                        nullptr, nullptr, nullptr, this->Text(std::string("zero\0", 5)).c_str(),
                                        nullptr, nullptr, this->Text(this->name + " ü").c_str()))
        << GetLastError();
    typename TypeParam::Config room[64];
    DWORD needed = 0;
    ASSERT_TRUE(TypeParam::QueryConfig(this->service, room, sizeof room, &needed)) << GetLastError();
    EXPECT_EQ(room[0].dwStartType, DWORD{SERVICE_AUTO_START});
    EXPECT_EQ(Plain(room[0].lpDependencies), "zero");
    EXPECT_EQ(Plain(room[0].lpDisplayName), this->name + " ü");
}

TYPED_TEST(ServiceCalls, names_are_translated_into_room_counted_in_characters) {
    this->Create("", {"--display", this->name + " Grüße"});
    const auto display = this->Text(this->name + " Grüße");
    const auto length = static_cast<DWORD>(display.size());
    for (const DWORD more : {0u, 1u, 2u}) { // the terminator needs room too
        std::vector<typename TypeParam::Char> buffer(length + 3, '#');
        DWORD room = length + more;
        EXPECT_EQ(TypeParam::DisplayName(this->manager, this->Text(this->name).c_str(), buffer.data(), &room),
                  more > 0 ? TRUE : FALSE);
        EXPECT_EQ(room, length);
        EXPECT_EQ(buffer[length + 1], '#');
        if (more > 0) {
            EXPECT_EQ(Plain(buffer.data()), this->name + " Grüße");
        }
    }
    typename TypeParam::Char keyName[100];
    DWORD room = 100;
    for (const DWORD more : {0u, 1u, 2u}) {
        std::fill(std::begin(keyName), std::end(keyName), typename TypeParam::Char{'#'});
        room = static_cast<DWORD>(this->name.size()) + more;
        EXPECT_EQ(TypeParam::KeyName(this->manager, display.c_str(), keyName, &room), more > 0 ? TRUE : FALSE);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER}) << "the first one's, left alone by the others";
        EXPECT_EQ(room, this->name.size());
        EXPECT_EQ(keyName[this->name.size() + 1], '#');
        if (more > 0) {
            EXPECT_EQ(Plain(keyName), this->name);
        }
    }
    room = 100;
    this->ExpectCode(TypeParam::KeyName(this->manager, this->Text("nobody's").c_str(), keyName, &room),
                     ERROR_SERVICE_DOES_NOT_EXIST);
}

TYPED_TEST(ServiceCalls, lists_go_on_where_the_room_ended) {
    this->Create();
    std::vector<std::string> names;
    DWORD resume = 0;
    for (BOOL ended = FALSE; !ended;) {
        typename TypeParam::Status room[16];
        DWORD needed = 0;
        DWORD returned = 0;
        ended = TypeParam::Enumerate(this->manager, SERVICE_WIN32, SERVICE_STATE_ALL, room, sizeof room, &needed,
                                     &returned, &resume);
        ASSERT_TRUE(ended || GetLastError() == ERROR_MORE_DATA) << GetLastError();
        ASSERT_TRUE(ended || returned > 0);
        for (DWORD i = 0; i < returned; ++i) {
            names.push_back(Plain(room[i].lpServiceName));
        }
    }
    EXPECT_EQ(resume, 0u);
    EXPECT_THAT(names, Contains(this->name).Times(1));
    EXPECT_THAT(names, Contains("zero").Times(1));
}

TYPED_TEST(ServiceCalls, a_list_with_processes_names_the_group_and_the_process) {
    this->Create("", {"--group", this->name + "-group"});
    this->StartAndWait();
    const auto group = this->Text(this->name + "-group");
    const auto list = [&](const typename TypeParam::Char *of, DWORD state, LPBYTE bytes, DWORD room, LPDWORD needed,
                          LPDWORD returned) {
        return TypeParam::EnumerateEx(this->manager, SC_ENUM_PROCESS_INFO, SERVICE_WIN32, state, bytes, room, needed,
                                      returned, nullptr, of);
    };
    DWORD returned = 0;
    const auto buffer = ReadAllSizes(
        [&](LPBYTE bytes, DWORD room, LPDWORD needed) {
            const BOOL done = list(group.c_str(), SERVICE_STATE_ALL, bytes, room, needed, &returned);
            if (done) *needed = room;
            return done;
        },
        ERROR_MORE_DATA);
    ASSERT_EQ(returned, 1u);
    const auto &record = this->template As<typename TypeParam::ProcessStatus>(buffer);
    EXPECT_EQ(Plain(record.lpServiceName), this->name);
    EXPECT_EQ(record.ServiceStatusProcess.dwCurrentState, DWORD{SERVICE_RUNNING});
    EXPECT_EQ(record.ServiceStatusProcess.dwProcessId, static_cast<DWORD>(this->ProcessOf(this->name)));
    DWORD needed = 0;
    EXPECT_TRUE(list(group.c_str(), SERVICE_INACTIVE, nullptr, 0, &needed, &returned)) << GetLastError();
    EXPECT_EQ(returned, 0u);
    this->ExpectCode(list(this->Text("no such").c_str(), SERVICE_STATE_ALL, nullptr, 0, &needed, &returned),
                     ERROR_SERVICE_DOES_NOT_EXIST);
    this->ExpectCode(list(this->Text("").c_str(), SERVICE_STATE_ALL, nullptr, 0, &needed, &returned), ERROR_MORE_DATA);
    this->ExpectCode(TypeParam::EnumerateEx(this->manager, static_cast<SC_ENUM_TYPE>(1), SERVICE_WIN32,
                                            SERVICE_STATE_ALL, nullptr, 0, &needed, &returned, nullptr, nullptr),
                     ERROR_INVALID_LEVEL);
}

TYPED_TEST(ServiceCalls, dependents_are_listed) {
    this->Create("", {"--depends", "zero"});
    const SC_HANDLE zero = TypeParam::Open(this->manager, this->Text("zero").c_str(), SERVICE_ALL_ACCESS);
    typename TypeParam::Status room[100];
    DWORD needed = 0;
    DWORD returned = 0;
    ASSERT_TRUE(TypeParam::Dependents(zero, SERVICE_STATE_ALL, room, sizeof room, &needed, &returned))
        << GetLastError();
    std::vector<std::string> names;
    for (DWORD i = 0; i < returned; ++i) {
        names.push_back(Plain(room[i].lpServiceName));
    }
    EXPECT_THAT(names, Contains(this->name));
    (void)CloseServiceHandle(zero);
}

// A list that did not fit tells the room for the rest of it, and has what did fit.
TYPED_TEST(ServiceCalls, lists_fill_their_room_to_the_byte) {
    this->Create("", {"--depends", "zero"});
    const SC_HANDLE zero = TypeParam::Open(this->manager, this->Text("zero").c_str(), SERVICE_ALL_ACCESS);
    using Status = typename TypeParam::Status;
    DWORD returned = 0;
    DWORD fitted = 0; // of those that did not all fit
    const auto note = [&](BOOL done, DWORD room, LPDWORD needed) {
        if (done) {
            EXPECT_EQ(*needed, 0u);
            *needed = room;
        } else {
            EXPECT_GT(*needed, 0u);
            fitted = returned;
        }
        return done;
    };
    const auto ofAll = ReadAllSizes(
        [&](LPBYTE bytes, DWORD room, LPDWORD needed) {
            DWORD resume = 0;
            const BOOL done = TypeParam::Enumerate(this->manager, SERVICE_WIN32, SERVICE_STATE_ALL,
                                                   reinterpret_cast<Status *>(bytes), room, needed, &returned, &resume);
            EXPECT_EQ(resume == 0, done || returned == 0);
            return note(done, room, needed);
        },
        ERROR_MORE_DATA);
    EXPECT_GE(returned, 2u);
    EXPECT_EQ(fitted, returned - 1);
    EXPECT_NE(this->template As<Status>(ofAll).lpServiceName, nullptr);
    const auto ofDependents = ReadAllSizes(
        [&](LPBYTE bytes, DWORD room, LPDWORD needed) {
            const BOOL done = TypeParam::Dependents(zero, SERVICE_STATE_ALL, reinterpret_cast<Status *>(bytes), room,
                                                    needed, &returned);
            return note(done, room, needed);
        },
        ERROR_MORE_DATA);
    EXPECT_GE(returned, 1u);
    EXPECT_EQ(fitted, returned - 1);
    EXPECT_NE(this->template As<Status>(ofDependents).lpServiceName, nullptr);
    const auto ofDependencies = ReadAllSizes(
        [&](LPBYTE bytes, DWORD room, LPDWORD needed) {
            const BOOL done =
                tvEnumServiceDependencies(this->service, SERVICE_STATE_ALL,
                                          reinterpret_cast<ENUM_SERVICE_STATUSA *>(bytes), room, needed, &returned);
            return note(done, room, needed);
        },
        ERROR_MORE_DATA);
    ASSERT_EQ(returned, 1u);
    EXPECT_STREQ(this->template As<ENUM_SERVICE_STATUSA>(ofDependencies).lpServiceName, "zero");
    (void)CloseServiceHandle(zero);
}

// Counted in the bytes of UTF-8, whatever form they are given in.
TYPED_TEST(ServiceCalls, texts_one_byte_below_at_and_above_the_longest) {
    std::string euros; // of three bytes each: 1023
    for (int i = 0; i < TV_MAX_TEXT_BYTES / 3; ++i) {
        euros += "€";
    }
    ASSERT_EQ(euros.size(), std::size_t{TV_MAX_TEXT_BYTES});
    const std::string plain(TV_MAX_TEXT_BYTES - 1, 'x');
    const std::string image = "/" + std::string(TV_MAX_TEXT_BYTES - 2, 'i');
    const auto create = [&](const std::string &serviceName, const std::string &display, const std::string &path,
                            const std::string &group) {
        const SC_HANDLE created =
            TypeParam::Create(this->manager, this->Text(serviceName).c_str(), this->Text(display).c_str(),
                              SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, 0,
                              this->Text(path).c_str(), this->Text(group).c_str(), nullptr, nullptr, nullptr, nullptr);
        const DWORD code = created != nullptr ? DWORD{ERROR_SUCCESS} : GetLastError();
        if (created != nullptr) {
            EXPECT_TRUE(DeleteService(created));
            (void)CloseServiceHandle(created);
        }
        return code;
    };
    const DWORD refused = ERROR_INVALID_PARAMETER;
    const DWORD noName = ERROR_INVALID_NAME;
    EXPECT_EQ(create(plain, plain + "y", image, plain), DWORD{0});
    EXPECT_EQ(create(euros, euros, image + "i", plain + "g"), DWORD{0});
    EXPECT_EQ(create(plain + "xx", this->name, image, ""), noName);
    EXPECT_EQ(create(euros + "x", this->name, image, ""), noName);
    EXPECT_EQ(create(this->name, plain + "xx", image, ""), noName);
    EXPECT_EQ(create(this->name, euros + "x", image, ""), noName);
    EXPECT_EQ(create(this->name, this->name, image + "ii", ""), refused);
    EXPECT_EQ(create(this->name, this->name, image, plain + "gg"), refused);
    this->Create();
    const auto change = [&](const std::string *path, const std::string *group, const std::string *display) {
        const auto text = [&](const std::string *given) {
            return given != nullptr ? this->Text(*given) : this->Text("");
        };
        const auto pathText = text(path), groupText = text(group), displayText = text(display);
        const BOOL done = TypeParam::ChangeConfig(this->service, SERVICE_NO_CHANGE, SERVICE_NO_CHANGE,
                                                  SERVICE_NO_CHANGE, path != nullptr ? pathText.c_str() : nullptr,
                                                  group != nullptr ? groupText.c_str() : nullptr, nullptr, nullptr,
                                                  nullptr, nullptr, display != nullptr ? displayText.c_str() : nullptr);
        return done ? DWORD{ERROR_SUCCESS} : GetLastError();
    };
    const std::string tooLong = euros + "x";
    EXPECT_EQ(change(&image, nullptr, nullptr), DWORD{0});
    EXPECT_EQ(change(nullptr, &euros, nullptr), DWORD{0});
    EXPECT_EQ(change(nullptr, nullptr, &euros), DWORD{0});
    EXPECT_EQ(change(&tooLong, nullptr, nullptr), refused);
    EXPECT_EQ(change(nullptr, &tooLong, nullptr), refused);
    EXPECT_EQ(change(nullptr, nullptr, &tooLong), noName);
    // What is as long as can be reads back whole.
    const auto buffer = ReadAllSizes([&](LPBYTE bytes, DWORD room, LPDWORD needed) {
        return TypeParam::QueryConfig(this->service, reinterpret_cast<typename TypeParam::Config *>(bytes), room,
                                      needed);
    });
    EXPECT_EQ(Plain(this->template As<typename TypeParam::Config>(buffer).lpDisplayName), euros);
    EXPECT_EQ(Plain(this->template As<typename TypeParam::Config>(buffer).lpLoadOrderGroup), euros);
    EXPECT_EQ(Plain(this->template As<typename TypeParam::Config>(buffer).lpBinaryPathName), image);
}

TYPED_TEST(ServiceCalls, the_lock_names_its_owner) {
    const SC_LOCK lock = LockServiceDatabase(this->manager);
    ASSERT_NE(lock, nullptr) << GetLastError();
    const auto buffer = ReadAllSizes([&](LPBYTE bytes, DWORD room, LPDWORD needed) {
        return TypeParam::QueryLock(this->manager, reinterpret_cast<typename TypeParam::Lock *>(bytes), room, needed);
    });
    EXPECT_TRUE(UnlockServiceDatabase(lock));
    EXPECT_THAT(Plain(this->template As<typename TypeParam::Lock>(buffer).lpLockOwner),
                HasSubstr("pid=" + std::to_string(getpid())));
}

TYPED_TEST(ServiceCalls, a_status_names_the_process_while_there_is_one) {
    this->Create();
    const auto query = [&] {
        const auto buffer = ReadAllSizes([&](LPBYTE bytes, DWORD room, LPDWORD needed) {
            return QueryServiceStatusEx(this->service, SC_STATUS_PROCESS_INFO, bytes, room, needed);
        });
        return this->template As<SERVICE_STATUS_PROCESS>(buffer);
    };
    EXPECT_EQ(query().dwProcessId, 0u);
    this->StartAndWait();
    EXPECT_EQ(query().dwProcessId, static_cast<DWORD>(this->ProcessOf(this->name)));
    EXPECT_NE(query().dwProcessId, 0u);
    EXPECT_EQ(query().dwCurrentState, DWORD{SERVICE_RUNNING});
    EXPECT_EQ(query().dwServiceFlags, 0u);
    DWORD needed = 0;
    this->ExpectCode(QueryServiceStatusEx(this->service, static_cast<SC_STATUS_TYPE>(1), nullptr, 0, &needed),
                     ERROR_INVALID_LEVEL);
    this->ExpectCode(QueryServiceStatusEx(this->service, SC_STATUS_PROCESS_INFO, nullptr, 8, &needed),
                     ERROR_INVALID_PARAMETER);
    this->ExpectCode(
        QueryServiceStatusEx(this->manager, SC_STATUS_PROCESS_INFO, reinterpret_cast<LPBYTE>(&needed), 0, &needed),
        ERROR_INSUFFICIENT_BUFFER);
}

TYPED_TEST(ServiceCalls, a_control_with_a_reason_answers_with_the_process) {
    this->Create();
    this->StartAndWait();
    auto comment = this->Text(std::string(127, 'c'));
    typename TypeParam::Reason reason = {};
    reason.pszComment = comment.data();
    const auto control = [&](DWORD code, DWORD level = SERVICE_CONTROL_STATUS_REASON_INFO) {
        return TypeParam::ControlEx(this->service, code, level, &reason);
    };
    EXPECT_TRUE(control(SERVICE_CONTROL_PAUSE)) << GetLastError(); // which needs no reason
    EXPECT_EQ(reason.ServiceStatus.dwCurrentState, DWORD{SERVICE_PAUSED});
    EXPECT_EQ(reason.ServiceStatus.dwProcessId, static_cast<DWORD>(this->ProcessOf(this->name)));
    this->ExpectCode(control(SERVICE_CONTROL_STOP), ERROR_INVALID_PARAMETER);
    reason.dwReason =
        SERVICE_STOP_REASON_FLAG_PLANNED | SERVICE_STOP_REASON_MAJOR_OTHER | SERVICE_STOP_REASON_MINOR_MAINTENANCE;
    this->ExpectCode(control(SERVICE_CONTROL_STOP, 2), ERROR_INVALID_LEVEL);
    auto longer = this->Text(std::string(128, 'c'));
    reason.pszComment = longer.data();
    this->ExpectCode(control(SERVICE_CONTROL_STOP), ERROR_INVALID_PARAMETER);
    reason.pszComment = nullptr;
    EXPECT_TRUE(control(SERVICE_CONTROL_STOP)) << GetLastError();
    this->WaitForState(SERVICE_STOPPED);
    this->ExpectCode(control(SERVICE_CONTROL_STOP), ERROR_SERVICE_NOT_ACTIVE);
}

TYPED_TEST(ServiceCalls, start_arguments_reach_the_service) {
    this->Create(std::is_same_v<TypeParam, Utf16> ? "--wide --extended" : "--extended");
    const auto one = this->Text("größer");
    const auto two = this->Text("𝄞");
    const typename TypeParam::Char *arguments[] = {one.c_str(), two.c_str()};
    ASSERT_TRUE(TypeParam::Start(this->service, 2, arguments)) << GetLastError();
    this->WaitForState(SERVICE_RUNNING);
    EXPECT_THAT(this->ReadLog(this->name), HasSubstr("start " + this->name + " "));
    EXPECT_THAT(this->ReadLog(this->name), HasSubstr("args=größer,𝄞\n"));
}

TYPED_TEST(ServiceCalls, an_extended_handler_gets_its_context_and_says_what_it_does_not_know) {
    this->Create(std::is_same_v<TypeParam, Utf16> ? "--wide --extended" : "--extended");
    this->StartAndWait();
    SERVICE_STATUS status = {};
    EXPECT_TRUE(ControlService(this->service, 200 - 1, &status)) << GetLastError();
    this->ExpectCode(ControlService(this->service, 210, &status), ERROR_CALL_NOT_IMPLEMENTED);
    EXPECT_EQ(status.dwCurrentState, DWORD{SERVICE_RUNNING});
    EXPECT_TRUE(ControlService(this->service, SERVICE_CONTROL_STOP, &status)) << GetLastError();
    this->WaitForState(SERVICE_STOPPED);
    EXPECT_THAT(this->ReadLog(this->name), Not(HasSubstr("not as registered")));
}

// --- notifications ---

// A record to ask with, whose callback counts.
template <typename Form>
struct Notification {
    typename Form::Notify record = {};
    std::atomic<int> calls = 0;
    std::function<void()> further; // what the callback does besides

    Notification() {
        record.dwVersion = SERVICE_NOTIFY_STATUS_CHANGE;
        record.pContext = this;
        record.pfnNotifyCallback = [](LPVOID parameter) {
            auto *const told = static_cast<typename Form::Notify *>(parameter);
            auto *const self = static_cast<Notification *>(told->pContext);
            EXPECT_EQ(told, &self->record);
            if (self->further) self->further();
            ++self->calls;
        };
    }
    DWORD Ask(SC_HANDLE service, DWORD mask) { return Form::NotifyChange(service, mask, &record); }
    void ExpectCalls(int wanted) {
        EXPECT_TRUE(WaitUntil([&] { return calls >= wanted; }));
        EXPECT_EQ(calls, wanted);
    }
};

// Past the longest time between two looks.
void LetLooksPass() { std::this_thread::sleep_for(std::chrono::milliseconds(1200)); }

// Reports a state in a service's place, without a wait.
void ReportState(const std::string &name, DWORD state) {
    DaemonLink link;
    link.host = "localhost";
    std::int32_t index = 0;
    ASSERT_EQ(Connect(link), DWORD{0});
    ASSERT_EQ(OpenRecord(link, name.c_str(), &index), DWORD{0});
    EXPECT_EQ(SetRecordStatus(link, index, {SERVICE_WIN32_OWN_PROCESS, state, 0, 0, 0, 7, 0}), DWORD{0});
    EXPECT_EQ(CloseRecord(link, index), DWORD{0});
}

TYPED_TEST(ServiceCalls, each_state_is_told_once_when_it_is_asked_for) {
    this->Create();
    Notification<TypeParam> told;
    const std::pair<DWORD, DWORD> bits[] = {{SERVICE_START_PENDING, SERVICE_NOTIFY_START_PENDING},
                                            {SERVICE_RUNNING, SERVICE_NOTIFY_RUNNING},
                                            {SERVICE_PAUSE_PENDING, SERVICE_NOTIFY_PAUSE_PENDING},
                                            {SERVICE_PAUSED, SERVICE_NOTIFY_PAUSED},
                                            {SERVICE_CONTINUE_PENDING, SERVICE_NOTIFY_CONTINUE_PENDING},
                                            {SERVICE_STOP_PENDING, SERVICE_NOTIFY_STOP_PENDING},
                                            {SERVICE_STOPPED, SERVICE_NOTIFY_STOPPED}};
    int calls = 0;
    for (const auto &[state, bit] : bits) {
        ASSERT_EQ(told.Ask(this->service, bit), DWORD{0}) << state;
        EXPECT_EQ(told.Ask(this->service, bit), DWORD{ERROR_ALREADY_REGISTERED});
        ReportState(this->name, state);
        told.ExpectCalls(++calls);
        EXPECT_EQ(told.record.dwNotificationStatus, 0u);
        EXPECT_EQ(told.record.dwNotificationTriggered, bit);
        EXPECT_EQ(told.record.ServiceStatus.dwCurrentState, state);
        EXPECT_EQ(told.record.ServiceStatus.dwCheckPoint, 7u);
        EXPECT_EQ(told.record.pszServiceNames, nullptr);
    }
    ReportState(this->name, SERVICE_RUNNING); // nobody asks
    LetLooksPass();
    ASSERT_EQ(told.Ask(this->service, SERVICE_NOTIFY_STOPPED | SERVICE_NOTIFY_PAUSED), DWORD{0});
    LetLooksPass(); // in a state that was not asked for
    EXPECT_EQ(told.calls, calls);
    ReportState(this->name, SERVICE_STOPPED);
    told.ExpectCalls(calls + 1);
}

TYPED_TEST(ServiceCalls, a_state_that_is_there_is_told_to_the_first_call_through_a_handle) {
    this->Create();
    Notification<TypeParam> told;
    ASSERT_EQ(told.Ask(this->service, SERVICE_NOTIFY_STOPPED), DWORD{0});
    told.ExpectCalls(1);
    ASSERT_EQ(told.Ask(this->service, SERVICE_NOTIFY_STOPPED), DWORD{0});
    LetLooksPass();
    EXPECT_EQ(told.calls, 1);
}

TYPED_TEST(ServiceCalls, a_start_and_a_stop_are_told_with_the_process_to_a_callback_that_asks_again) {
    this->Create();
    Notification<TypeParam> told;
    std::atomic<DWORD> process = 0;
    told.further = [&] {
        if (told.record.dwNotificationTriggered != SERVICE_NOTIFY_RUNNING) return;
        process = told.record.ServiceStatus.dwProcessId;
        EXPECT_EQ(told.Ask(this->service, SERVICE_NOTIFY_STOPPED), DWORD{0});
    };
    ASSERT_EQ(told.Ask(this->service, SERVICE_NOTIFY_RUNNING), DWORD{0});
    this->StartAndWait();
    told.ExpectCalls(1);
    EXPECT_EQ(process, static_cast<DWORD>(this->ProcessOf(this->name)));
    SERVICE_STATUS status = {};
    ASSERT_TRUE(ControlService(this->service, SERVICE_CONTROL_STOP, &status)) << GetLastError();
    told.ExpectCalls(2);
    EXPECT_EQ(told.record.dwNotificationTriggered, DWORD{SERVICE_NOTIFY_STOPPED});
}

TYPED_TEST(ServiceCalls, a_closed_handle_is_told_nothing_more) {
    this->Create();
    Notification<TypeParam> told;
    ASSERT_EQ(told.Ask(this->service, SERVICE_NOTIFY_RUNNING), DWORD{0});
    EXPECT_TRUE(CloseServiceHandle(this->service)) << GetLastError();
    ReportState(this->name, SERVICE_RUNNING);
    LetLooksPass();
    EXPECT_EQ(told.calls, 0);

    // A callback that runs is waited for, but not by itself.
    this->service = TypeParam::Open(this->manager, this->Text(this->name).c_str(), SERVICE_ALL_ACCESS);
    std::atomic<bool> entered = false;
    told.further = [&] {
        entered = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
    };
    ASSERT_EQ(told.Ask(this->service, SERVICE_NOTIFY_RUNNING), DWORD{0});
    EXPECT_TRUE(WaitUntil([&] { return entered.load(); }));
    EXPECT_TRUE(CloseServiceHandle(this->service)) << GetLastError();
    EXPECT_EQ(told.calls, 1);
    this->service = TypeParam::Open(this->manager, this->Text(this->name).c_str(), SERVICE_ALL_ACCESS);
    told.further = [&] { EXPECT_TRUE(CloseServiceHandle(this->service)) << GetLastError(); };
    ASSERT_EQ(told.Ask(this->service, SERVICE_NOTIFY_RUNNING), DWORD{0});
    told.ExpectCalls(2);
    EXPECT_EQ(told.Ask(this->service, SERVICE_NOTIFY_RUNNING), DWORD{ERROR_INVALID_HANDLE});
    this->service = nullptr;
    ReportState(this->name, SERVICE_STOPPED);
}

TYPED_TEST(ServiceCalls, a_deletion_is_told_as_it_was_asked_for) {
    this->Create();
    const SC_HANDLE second = TypeParam::Open(this->manager, this->Text(this->name).c_str(), SERVICE_ALL_ACCESS);
    Notification<TypeParam> asked;
    Notification<TypeParam> surprised;
    ASSERT_EQ(asked.Ask(this->service, SERVICE_NOTIFY_DELETE_PENDING), DWORD{0});
    ASSERT_EQ(surprised.Ask(second, SERVICE_NOTIFY_RUNNING), DWORD{0});
    LetLooksPass();
    EXPECT_EQ(asked.calls, 0);
    ASSERT_TRUE(DeleteService(this->service)) << GetLastError();
    asked.ExpectCalls(1);
    surprised.ExpectCalls(1);
    EXPECT_EQ(asked.record.dwNotificationStatus, 0u);
    EXPECT_EQ(asked.record.dwNotificationTriggered, DWORD{SERVICE_NOTIFY_DELETE_PENDING});
    EXPECT_EQ(surprised.record.dwNotificationStatus, DWORD{ERROR_SERVICE_MARKED_FOR_DELETE});
    EXPECT_EQ(surprised.record.dwNotificationTriggered, 0u);
    EXPECT_EQ(asked.Ask(second, SERVICE_NOTIFY_RUNNING), DWORD{ERROR_SERVICE_MARKED_FOR_DELETE});
    (void)CloseServiceHandle(second);
}

// The enumeration leaves it out, as it does the services that are marked for deletion.
TYPED_TEST(ServiceCalls, the_service_in_record_0_can_be_waited_for) {
    this->Create();
    const SC_HANDLE zero = TypeParam::Open(this->manager, this->Text("zero").c_str(), SERVICE_ALL_ACCESS);
    Notification<TypeParam> told;
    ASSERT_EQ(told.Ask(zero, SERVICE_NOTIFY_RUNNING), DWORD{0});
    LetLooksPass();
    EXPECT_EQ(told.calls, 0);
    ReportState("zero", SERVICE_RUNNING);
    told.ExpectCalls(1);
    EXPECT_EQ(told.record.dwNotificationTriggered, DWORD{SERVICE_NOTIFY_RUNNING});
    ReportState("zero", SERVICE_STOPPED);
    (void)CloseServiceHandle(zero);
}

TYPED_TEST(ServiceCalls, a_daemon_that_is_gone_ends_the_waiting_with_the_code) {
    this->Create();
    Notification<TypeParam> told;
    ASSERT_EQ(told.Ask(this->service, SERVICE_NOTIFY_RUNNING), DWORD{0});
    (void)StopDaemon(this->serviceDaemon);
    told.ExpectCalls(1);
    EXPECT_THAT(told.record.dwNotificationStatus, AnyOf(DWORD{RPC_S_SERVER_UNAVAILABLE}, DWORD{RPC_S_CALL_FAILED}));
    EXPECT_EQ(told.record.dwNotificationTriggered, 0u);
    EXPECT_EQ(told.Ask(this->service, SERVICE_NOTIFY_RUNNING), DWORD{RPC_S_SERVER_UNAVAILABLE});
    this->serviceDaemon = StartServiceDaemon();
    EXPECT_EQ(told.Ask(this->service, SERVICE_NOTIFY_STOPPED), DWORD{0});
    told.ExpectCalls(2);
    EXPECT_EQ(told.record.dwNotificationStatus, 0u);
}

TYPED_TEST(ServiceCalls, what_cannot_be_told_is_refused) {
    this->Create();
    Notification<TypeParam> told;
    for (const DWORD mask : {0x0u, 0x400u, 0x401u, 0x80u, 0x100u, 0x180u, 0x81u}) {
        EXPECT_EQ(told.Ask(this->service, mask), DWORD{ERROR_INVALID_PARAMETER}) << mask;
    }
    EXPECT_EQ(told.Ask(this->manager, SERVICE_NOTIFY_CREATED), DWORD{ERROR_CALL_NOT_IMPLEMENTED});
    EXPECT_EQ(told.Ask(this->manager, SERVICE_NOTIFY_DELETED), DWORD{ERROR_CALL_NOT_IMPLEMENTED});
    EXPECT_EQ(told.Ask(this->manager, SERVICE_NOTIFY_RUNNING), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(told.Ask(nullptr, SERVICE_NOTIFY_RUNNING), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_EQ(TypeParam::NotifyChange(this->service, SERVICE_NOTIFY_RUNNING, nullptr), DWORD{ERROR_INVALID_PARAMETER});
    told.record.dwVersion = 1;
    EXPECT_EQ(told.Ask(this->service, SERVICE_NOTIFY_RUNNING), DWORD{ERROR_INVALID_PARAMETER});
    told.record.dwVersion = SERVICE_NOTIFY_STATUS_CHANGE;
    told.record.pfnNotifyCallback = nullptr;
    EXPECT_EQ(told.Ask(this->service, SERVICE_NOTIFY_RUNNING), DWORD{ERROR_INVALID_PARAMETER});
}

// --- further parts of a configuration ---

TYPED_TEST(ServiceCalls, a_description_is_kept_in_the_service_s_key_and_taken_away_again) {
    this->Create();
    const auto description = [&] {
        const auto buffer = this->Part(SERVICE_CONFIG_DESCRIPTION);
        const auto *text = this->template As<typename TypeParam::Description>(buffer).lpDescription;
        return text != nullptr ? Plain(text) : "none";
    };
    const auto change = [&](const char *text) {
        auto given = this->Text(text != nullptr ? text : "");
        typename TypeParam::Description info = {text != nullptr ? given.data() : nullptr};
        return TypeParam::ChangeConfig2(this->service, SERVICE_CONFIG_DESCRIPTION, &info);
    };
    EXPECT_EQ(description(), "none");
    EXPECT_TRUE(change("prüft 𝄞")) << GetLastError();
    EXPECT_EQ(description(), "prüft 𝄞");
    EXPECT_EQ(ReadValue(this->KeyPath(), "Description"),
              (RegistryValue{"Description", REG_SZ, std::string("prüft 𝄞") + '\0'}));
    EXPECT_TRUE(change(nullptr));
    EXPECT_EQ(description(), "prüft 𝄞");
    EXPECT_TRUE(TypeParam::ChangeConfig2(this->service, SERVICE_CONFIG_DESCRIPTION, nullptr));
    EXPECT_TRUE(change(""));
    EXPECT_EQ(description(), "none");
    EXPECT_EQ(ReadValue(this->KeyPath(), "Description"), std::nullopt);
}

TYPED_TEST(ServiceCalls, failure_actions_are_kept_and_taken_away_again) {
    this->Create();
    SC_ACTION actions[] = {{SC_ACTION_RESTART, 1000}, {SC_ACTION_RUN_COMMAND, 0}, {SC_ACTION_NONE, 7}};
    auto command = this->Text("/bin/true ä");
    typename TypeParam::Actions info = {86400, nullptr, command.data(), 3, actions};
    ASSERT_TRUE(TypeParam::ChangeConfig2(this->service, SERVICE_CONFIG_FAILURE_ACTIONS, &info)) << GetLastError();
    {
        const auto buffer = this->Part(SERVICE_CONFIG_FAILURE_ACTIONS);
        const auto &found = this->template As<typename TypeParam::Actions>(buffer);
        EXPECT_EQ(found.dwResetPeriod, 86400u);
        EXPECT_EQ(found.lpRebootMsg, nullptr);
        EXPECT_EQ(Plain(found.lpCommand), "/bin/true ä");
        ASSERT_EQ(found.cActions, 3u);
        EXPECT_EQ(found.lpsaActions[0].Type, SC_ACTION_RESTART);
        EXPECT_EQ(found.lpsaActions[0].Delay, 1000u);
        EXPECT_EQ(found.lpsaActions[2].Delay, 7u);
    }
    const std::optional<RegistryValue> stored = ReadValue(this->KeyPath(), "FailureActions");
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->data.substr(0, 28), std::string("\x80\x51\x01\0\0\0\0\0\0\0\0\0\x03\0\0\0\x14\0\0\0"
                                                      "\x01\0\0\0\xe8\x03\0\0",
                                                      28));
    std::vector<SC_ACTION> many(1024, {SC_ACTION_RESTART, 1});
    for (const DWORD count : {1023u, 1024u, 1025u}) { // so many there may be
        many.resize(count, many.front());
        typename TypeParam::Actions all = {1, nullptr, nullptr, count, many.data()};
        const BOOL changed = TypeParam::ChangeConfig2(this->service, SERVICE_CONFIG_FAILURE_ACTIONS, &all);
        EXPECT_EQ(changed, count <= 1024 ? TRUE : FALSE) << count;
        const auto buffer = this->Part(SERVICE_CONFIG_FAILURE_ACTIONS);
        EXPECT_EQ(this->template As<typename TypeParam::Actions>(buffer).cActions, std::min(count, 1024u));
    }
    std::memset(&actions[1].Type, 4, 1); // no such type
    this->ExpectCode(TypeParam::ChangeConfig2(this->service, SERVICE_CONFIG_FAILURE_ACTIONS, &info),
                     ERROR_INVALID_PARAMETER);
    auto nothing = this->Text("");
    info = {0, nullptr, nothing.data(), 0, actions};
    ASSERT_TRUE(TypeParam::ChangeConfig2(this->service, SERVICE_CONFIG_FAILURE_ACTIONS, &info)) << GetLastError();
    const auto buffer = this->Part(SERVICE_CONFIG_FAILURE_ACTIONS);
    EXPECT_EQ(this->template As<typename TypeParam::Actions>(buffer).cActions, 0u);
    EXPECT_EQ(this->template As<typename TypeParam::Actions>(buffer).lpsaActions, nullptr);
    EXPECT_EQ(ReadValue(this->KeyPath(), "FailureActions"), std::nullopt);
    EXPECT_EQ(ReadValue(this->KeyPath(), "FailureCommand"), std::nullopt);
}

TYPED_TEST(ServiceCalls, required_privileges_are_a_list) {
    this->Create();
    auto list = this->Text(std::string("SeOne\0SeTwo\0", 12));
    typename TypeParam::Privileges info = {list.data()};
    ASSERT_TRUE(TypeParam::ChangeConfig2(this->service, SERVICE_CONFIG_REQUIRED_PRIVILEGES_INFO, &info));
    EXPECT_EQ(ReadValue(this->KeyPath(), "RequiredPrivileges"),
              (RegistryValue{"RequiredPrivileges", REG_MULTI_SZ, std::string("SeOne\0SeTwo\0\0", 13)}));
    {
        const auto buffer = this->Part(SERVICE_CONFIG_REQUIRED_PRIVILEGES_INFO);
        const auto *found = this->template As<typename TypeParam::Privileges>(buffer).pmszRequiredPrivileges;
        EXPECT_EQ((std::basic_string<typename TypeParam::Char>(found, 13)),
                  this->Text(std::string("SeOne\0SeTwo\0\0", 13)));
    }
    info = {nullptr};
    ASSERT_TRUE(TypeParam::ChangeConfig2(this->service, SERVICE_CONFIG_REQUIRED_PRIVILEGES_INFO, &info));
    const auto buffer = this->Part(SERVICE_CONFIG_REQUIRED_PRIVILEGES_INFO);
    EXPECT_EQ(this->template As<typename TypeParam::Privileges>(buffer).pmszRequiredPrivileges, nullptr);
}

TYPED_TEST(ServiceCalls, parts_that_are_a_number_have_what_they_have_elsewhere_when_never_set) {
    this->Create();
    const auto number = [&](DWORD level) { return this->template As<DWORD>(this->Part(level)); };
    const auto change = [&](DWORD level, DWORD value) {
        return TypeParam::ChangeConfig2(this->service, level, &value);
    };
    EXPECT_EQ(number(SERVICE_CONFIG_DELAYED_AUTO_START_INFO), 0u);
    EXPECT_EQ(number(SERVICE_CONFIG_FAILURE_ACTIONS_FLAG), 0u);
    EXPECT_EQ(number(SERVICE_CONFIG_SERVICE_SID_INFO), 0u);
    EXPECT_EQ(number(SERVICE_CONFIG_PRESHUTDOWN_INFO), 180000u);
    EXPECT_TRUE(change(SERVICE_CONFIG_DELAYED_AUTO_START_INFO, 2));
    EXPECT_EQ(number(SERVICE_CONFIG_DELAYED_AUTO_START_INFO), 1u);
    EXPECT_TRUE(change(SERVICE_CONFIG_FAILURE_ACTIONS_FLAG, 1));
    EXPECT_EQ(number(SERVICE_CONFIG_FAILURE_ACTIONS_FLAG), 1u);
    EXPECT_TRUE(change(SERVICE_CONFIG_SERVICE_SID_INFO, SERVICE_SID_TYPE_RESTRICTED));
    EXPECT_EQ(number(SERVICE_CONFIG_SERVICE_SID_INFO), DWORD{SERVICE_SID_TYPE_RESTRICTED});
    this->ExpectCode(change(SERVICE_CONFIG_SERVICE_SID_INFO, 2), ERROR_INVALID_PARAMETER);
    EXPECT_TRUE(change(SERVICE_CONFIG_PRESHUTDOWN_INFO, 5000));
    EXPECT_EQ(number(SERVICE_CONFIG_PRESHUTDOWN_INFO), 5000u);
}

TYPED_TEST(ServiceCalls, an_unknown_level_and_values_of_another_kind_are_told) {
    this->Create();
    DWORD needed = 0;
    for (const DWORD level : {0u, 8u, 99u}) {
        this->ExpectCode(TypeParam::QueryConfig2(this->service, level, nullptr, 0, &needed), ERROR_INVALID_LEVEL);
        this->ExpectCode(TypeParam::ChangeConfig2(this->service, level, nullptr), ERROR_INVALID_LEVEL);
    }
    WriteKey(this->KeyPath(),
             {{"Description", REG_DWORD, std::string(4, '\1')}, {"FailureActions", REG_BINARY, std::string(27, '\1')}});
    for (const DWORD level : {SERVICE_CONFIG_DESCRIPTION, SERVICE_CONFIG_FAILURE_ACTIONS}) {
        this->ExpectCode(TypeParam::QueryConfig2(this->service, level, nullptr, 0, &needed), ERROR_INVALID_DATA);
    }
    this->ExpectCode(TypeParam::QueryConfig2(this->service, SERVICE_CONFIG_DESCRIPTION, nullptr, 0, nullptr),
                     ERROR_INVALID_PARAMETER);
    this->ExpectCode(TypeParam::QueryConfig2(this->manager, SERVICE_CONFIG_DESCRIPTION, nullptr, 0, &needed),
                     ERROR_INVALID_HANDLE);
}

TYPED_TEST(ServiceCalls, parts_of_a_service_that_is_gone_cannot_be_changed) {
    this->Create();
    ASSERT_TRUE(DeleteService(this->service));
    DeleteKey(this->KeyPath());
    DWORD flag = 1;
    this->ExpectCode(TypeParam::ChangeConfig2(this->service, SERVICE_CONFIG_FAILURE_ACTIONS_FLAG, &flag),
                     ERROR_SERVICE_MARKED_FOR_DELETE);
}

TYPED_TEST(ServiceCalls, several_threads_read_and_change_at_once) {
    this->Create();
    std::vector<std::thread> threads;
    for (DWORD part = 0; part < 8; ++part) {
        threads.emplace_back([this, part] {
            for (DWORD round = 0; round < 10; ++round) {
                DWORD value = part * 100 + round;
                EXPECT_TRUE(TypeParam::ChangeConfig2(this->service, SERVICE_CONFIG_PRESHUTDOWN_INFO, &value))
                    << GetLastError();
                SERVICE_PRESHUTDOWN_INFO info = {};
                DWORD needed = 0;
                EXPECT_TRUE(TypeParam::QueryConfig2(this->service, SERVICE_CONFIG_PRESHUTDOWN_INFO,
                                                    reinterpret_cast<LPBYTE>(&info), sizeof info, &needed))
                    << GetLastError();
                EXPECT_EQ(info.dwPreshutdownTimeout % 100, info.dwPreshutdownTimeout % 10);
                DWORD returned = 0;
                (void)TypeParam::EnumerateEx(this->manager, SC_ENUM_PROCESS_INFO, SERVICE_WIN32, SERVICE_STATE_ALL,
                                             nullptr, 0, &needed, &returned, nullptr, nullptr);
                EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

TYPED_TEST(ServiceCalls, a_daemon_that_is_busy_gone_or_restarted_is_told_apart) {
    this->Create();
    SERVICE_STATUS_PROCESS status = {};
    DWORD needed = 0;
    const auto query = [&] {
        return QueryServiceStatusEx(this->service, SC_STATUS_PROCESS_INFO, reinterpret_cast<LPBYTE>(&status),
                                    sizeof status, &needed);
    };
    ASSERT_TRUE(tvSetCallTimeout(this->service, 300));
    kill(this->serviceDaemon, SIGSTOP);
    this->ExpectCode(query(), ERROR_TIMEOUT);
    kill(this->serviceDaemon, SIGCONT);
    ASSERT_TRUE(tvSetCallTimeout(this->service, 60000));
    EXPECT_TRUE(query()) << GetLastError();
    (void)StopDaemon(this->serviceDaemon);
    this->ExpectCode(query(), RPC_S_SERVER_UNAVAILABLE);
    this->serviceDaemon = StartServiceDaemon();
    EXPECT_TRUE(query()) << GetLastError();
    DWORD flag = 1;
    EXPECT_TRUE(TypeParam::ChangeConfig2(this->service, SERVICE_CONFIG_FAILURE_ACTIONS_FLAG, &flag)) << GetLastError();
}

TYPED_TEST(ServiceCalls, a_registry_daemon_that_is_gone_or_restarted_is_told_apart) {
    this->Create();
    DWORD flag = 1;
    const auto change = [&] {
        return TypeParam::ChangeConfig2(this->service, SERVICE_CONFIG_FAILURE_ACTIONS_FLAG, &flag);
    };
    EXPECT_TRUE(change()) << GetLastError();
    (void)StopDaemon(this->registryDaemon);
    this->ExpectCode(change(), ERROR_REGISTRY_IO_FAILED);
    this->registryDaemon = StartRegistryDaemon(this->folder + "/registry.db");
    EXPECT_TRUE(change()) << GetLastError();
    // Once more while a connection is open: the first attempt finds it broken.
    (void)StopDaemon(this->registryDaemon);
    this->registryDaemon = StartRegistryDaemon(this->folder + "/registry.db");
    EXPECT_TRUE(change()) << GetLastError();
}

// --- UTF-16 alone ---

using WideCalls = ServiceCalls<Utf16>;

TEST_F(WideCalls, text_that_is_no_utf16_is_refused_wherever_it_is_given) {
    Create();
    WCHAR bad[] = {u'a', 0xD800, u'b', 0, 0}; // a list of one text, too
    const auto expect1113 = [&](bool done) {
        EXPECT_FALSE(done);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_UNICODE_TRANSLATION});
        SetLastError(0);
    };
    expect1113(OpenSCManagerW(bad, nullptr, 0) != nullptr);
    expect1113(OpenSCManagerW(nullptr, bad, 0) != nullptr);
    expect1113(OpenServiceW(manager, bad, 0) != nullptr);
    for (int wrong = 0; wrong < 5; ++wrong) {
        const auto text = [&](int i, LPCWSTR good) { return i == wrong ? bad : good; };
        expect1113(CreateServiceW(manager, text(0, u"w"), text(1, u"w"), 0, 16, 3, 0, text(2, u"/w"), text(3, u""),
                                  nullptr, nullptr, text(4, u""), nullptr) != nullptr);
        expect1113(ChangeServiceConfigW(service, SERVICE_NO_CHANGE, SERVICE_NO_CHANGE, SERVICE_NO_CHANGE,
                                        text(0, nullptr), text(1, nullptr), nullptr, text(2, nullptr), text(3, nullptr),
                                        nullptr, text(4, nullptr)));
    }
    LPCWSTR arguments[] = {u"good", bad};
    expect1113(StartServiceW(service, 2, arguments));
    DWORD count = 0;
    WCHAR buffer[8];
    expect1113(GetServiceDisplayNameW(manager, bad, buffer, &count));
    expect1113(GetServiceKeyNameW(manager, bad, buffer, &count));
    expect1113(EnumServicesStatusExW(manager, SC_ENUM_PROCESS_INFO, SERVICE_WIN32, SERVICE_STATE_ALL, nullptr, 0,
                                     &count, &count, nullptr, bad));
    SERVICE_DESCRIPTIONW description = {bad};
    expect1113(ChangeServiceConfig2W(service, SERVICE_CONFIG_DESCRIPTION, &description));
    SERVICE_FAILURE_ACTIONSW actions = {0, bad, nullptr, 0, nullptr};
    expect1113(ChangeServiceConfig2W(service, SERVICE_CONFIG_FAILURE_ACTIONS, &actions));
    SERVICE_REQUIRED_PRIVILEGES_INFOW privileges = {bad};
    expect1113(ChangeServiceConfig2W(service, SERVICE_CONFIG_REQUIRED_PRIVILEGES_INFO, &privileges));
    SERVICE_CONTROL_STATUS_REASON_PARAMSW reason = {0, bad, {}};
    expect1113(ControlServiceExW(service, SERVICE_CONTROL_PAUSE, SERVICE_CONTROL_STATUS_REASON_INFO, &reason));
    const SERVICE_TABLE_ENTRYW table[] = {{bad, nullptr}, {nullptr, nullptr}};
    expect1113(StartServiceCtrlDispatcherW(table));
    expect1113(RegisterServiceCtrlHandlerW(bad, [](DWORD) {}) != nullptr);
}

// One service whose name is no UTF-8 must not hide all others.
TEST_F(WideCalls, names_that_are_no_utf8_come_back_with_replacement_characters) {
    CreateSample(name, "", {"--display", name + " caf\xE9"});
    WCHAR display[100];
    DWORD count = 100;
    ASSERT_TRUE(GetServiceDisplayNameW(manager, Widened(name).c_str(), display, &count)) << GetLastError();
    EXPECT_EQ(std::u16string(display), Widened(name) + u" caf\uFFFD");
}

} // namespace
