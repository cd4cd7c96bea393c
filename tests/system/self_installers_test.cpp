// SPDX-License-Identifier: MIT
// Programs that install themselves: CreateService with a command line, as it is written for Win32. Each test has an
// /etc/tv of its own.
#include "svcapi/wide.h"
#include "tests/support/service_world.h"
#include "tv/winreg.h"
#include "tv/winsvc.h"

#include <gmock/gmock.h>
#include <grp.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

using testing::HasSubstr;

namespace {

constexpr char base[] = "/etc/tv";
constexpr uid_t nobody = 65534;

struct SelfInstallers : ServiceWorld {
    const std::string launcher = std::string(base) + "/services/" + name + ".csh";
    const std::string quoted = "\"" + ProgramPath("tvsample") + "\" --log \"" + LogOf(name) + "\"";
    SC_HANDLE manager = nullptr;
    SC_HANDLE service = nullptr;

    void SetUp() override {
        (void)mkdir(base, 0755); // what it is mounted on
        if (mount("launchers", base, "tmpfs", 0, "mode=755") != 0) GTEST_SKIP() << "nothing can be mounted";
        manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    }
    void TearDown() override {
        if (service != nullptr) (void)CloseServiceHandle(service);
        if (manager != nullptr) (void)CloseServiceHandle(manager);
        (void)umount2(base, MNT_DETACH);
    }

    SC_HANDLE CreateNamed(const std::string &serviceName, const std::string &path) const {
        return CreateServiceA(manager, serviceName.c_str(), nullptr, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                              SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, path.c_str(), nullptr, nullptr, nullptr,
                              nullptr, nullptr);
    }
    bool Create(const std::string &path) {
        service = CreateNamed(name, path);
        return service != nullptr;
    }
    BOOL Change(const std::string &path, const char *displayName = nullptr) const {
        return ChangeServiceConfigA(service, SERVICE_NO_CHANGE, SERVICE_NO_CHANGE, SERVICE_NO_CHANGE, path.c_str(),
                                    nullptr, nullptr, nullptr, nullptr, nullptr, displayName);
    }
    void Close() {
        EXPECT_TRUE(CloseServiceHandle(service)) << GetLastError();
        service = nullptr;
    }

    // What the API says that the service is started with; the same in both forms.
    std::string Shown() const {
        alignas(QUERY_SERVICE_CONFIGW) BYTE room[8192];
        DWORD needed = 0;
        auto *const wide = reinterpret_cast<QUERY_SERVICE_CONFIGW *>(room);
        EXPECT_TRUE(QueryServiceConfigW(service, wide, sizeof room, &needed)) << GetLastError();
        NarrowArguments narrow;
        const std::string fromWide = Narrow(&narrow, wide->lpBinaryPathName);
        auto *const bytes = reinterpret_cast<QUERY_SERVICE_CONFIGA *>(room);
        EXPECT_TRUE(QueryServiceConfigA(service, bytes, sizeof room, &needed)) << GetLastError();
        EXPECT_EQ(fromWide, bytes->lpBinaryPathName);
        return bytes->lpBinaryPathName;
    }
    // What the daemon has.
    std::string ImagePath(const std::string &serviceName) const {
        const std::optional<RegistryValue> value = ReadValue(servicesKey + "\\" + serviceName, "ImagePath");
        return value ? value->data.c_str() : "";
    }
    // What a call answers to a client that is not root.
    static DWORD AsNobody(const std::function<DWORD(SC_HANDLE manager)> &call) {
        int answer[2];
        if (pipe(answer) != 0) return ERROR_INVALID_DATA;
        const pid_t child = fork();
        if (child == 0) {
            DWORD code = ERROR_INVALID_DATA;
            if (setgroups(0, nullptr) == 0 && setgid(nobody) == 0 && setuid(nobody) == 0) {
                const SC_HANDLE own = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
                code = own != nullptr ? call(own) : GetLastError();
                if (own != nullptr) (void)CloseServiceHandle(own);
            }
            _exit(write(answer[1], &code, sizeof code) == sizeof code ? 0 : 1);
        }
        (void)close(answer[1]);
        DWORD code = ERROR_INVALID_DATA;
        EXPECT_EQ(read(answer[0], &code, sizeof code), static_cast<ssize_t>(sizeof code));
        (void)close(answer[0]);
        (void)WaitForEnd(child);
        return code;
    }
    bool HasLauncher() const { return std::filesystem::exists(launcher); }
    void WaitForState(DWORD state) const {
        SERVICE_STATUS status = {};
        EXPECT_TRUE(WaitUntil([&] { return QueryServiceStatus(service, &status) && status.dwCurrentState == state; }))
            << status.dwCurrentState;
    }
};

// It used to be handed to csh as it is, and the service could not be started.
TEST_F(SelfInstallers, a_quoted_path_with_arguments_makes_a_service_that_starts) {
    ASSERT_TRUE(Create(quoted + " --services \"" + name + ",other one\"")) << GetLastError();
    EXPECT_EQ(Shown(), quoted + " --services \"" + name + ",other one\"");
    EXPECT_EQ(ImagePath(name), launcher);
    ASSERT_TRUE(StartServiceA(service, 0, nullptr)) << GetLastError();
    WaitForState(SERVICE_RUNNING);
    EXPECT_THAT(ReadLog(name), HasSubstr("start " + name + " "));
    SERVICE_STATUS status = {};
    EXPECT_TRUE(ControlService(service, SERVICE_CONTROL_STOP, &status)) << GetLastError();
    WaitForState(SERVICE_STOPPED);
    ASSERT_TRUE(DeleteService(service)) << GetLastError();
    EXPECT_TRUE(HasLauncher());
    Close();
    EXPECT_FALSE(HasLauncher());
}

TEST_F(SelfInstallers, the_path_of_a_program_needs_no_quotes) {
    const std::string program = folder + "/with blank " + name;
    std::filesystem::copy_file(ProgramPath("tvsample"), program);
    ASSERT_TRUE(Create(program)) << GetLastError();
    EXPECT_EQ(Shown(), program);
    EXPECT_EQ(ImagePath(name), launcher);
    ASSERT_TRUE(StartServiceA(service, 0, nullptr)) << GetLastError();
    WaitForState(SERVICE_RUNNING);
}

// Sources put folder and program together with one.
TEST_F(SelfInstallers, a_backslash_between_folder_and_program_is_taken_for_a_slash) {
    std::filesystem::copy_file(ProgramPath("tvsample"), folder + "/" + name);
    const std::string path = "\"" + folder + "\\" + name + "\" --log \"back\\slash\"";
    ASSERT_TRUE(Create(path)) << GetLastError();
    EXPECT_EQ(Shown(), path);
    EXPECT_EQ(ImagePath(name), launcher);
    EXPECT_THAT(ReadFile(launcher), HasSubstr("exec '" + folder + "/" + name + "' '--log' 'back\\slash'"));
}

TEST_F(SelfInstallers, what_is_special_to_csh_reaches_the_program) {
    const std::string odd = R"(!! $HOME 'x' * `id` \)";
    ASSERT_TRUE(Create(quoted + " --services \"" + odd + "\\\" \\")) << GetLastError();
    EXPECT_EQ(Shown(), quoted + " --services \"" + odd + "\\\" \\");
    Close();
    service = OpenServiceA(manager, name.c_str(), SERVICE_ALL_ACCESS);
    const Ended ended = RunAndRead({.command = {"/bin/sh", "-c", "sed -n 4p '" + launcher + "'"}});
    EXPECT_THAT(ended.output, HasSubstr("exec '"));
}

TEST_F(SelfInstallers, scripts_and_paths_that_name_nothing_stay_what_they_are) {
    const std::string script = folder + "/" + name + ".csh";
    WriteFile(script, "#!/bin/csh -f\nexec /bin/true\n", 0755);
    for (const std::string &path : {script, std::string("/no/such/program"), std::string("\"/no/such\" -k"),
                                    std::string("relative -k"), std::string("\"/bin/true")}) {
        ASSERT_TRUE(Create(path)) << GetLastError();
        EXPECT_EQ(Shown(), path);
        EXPECT_EQ(ImagePath(name), path);
        EXPECT_FALSE(HasLauncher());
        ASSERT_TRUE(DeleteService(service));
        Close();
    }
}

TEST_F(SelfInstallers, a_changed_path_changes_the_launcher) {
    const std::string script = folder + "/" + name + ".csh";
    WriteFile(script, "#!/bin/csh -f\nexec /bin/true\n");
    ASSERT_TRUE(Create(script)) << GetLastError();
    ASSERT_TRUE(Change(quoted)) << GetLastError();
    EXPECT_EQ(Shown(), quoted);
    EXPECT_EQ(ImagePath(name), launcher);
    ASSERT_TRUE(Change(quoted + " --wide")) << GetLastError();
    EXPECT_EQ(Shown(), quoted + " --wide");
    EXPECT_THAT(ReadFile(launcher), HasSubstr("'--wide'"));
    // What the API shows can be given back to it.
    ASSERT_TRUE(Change(Shown())) << GetLastError();
    EXPECT_EQ(Shown(), quoted + " --wide");
    EXPECT_FALSE(Change(quoted + " --extended", "zero"));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_DUP_NAME});
    EXPECT_EQ(Shown(), quoted + " --wide");
    ASSERT_TRUE(Change(script)) << GetLastError();
    EXPECT_EQ(Shown(), script);
    EXPECT_FALSE(HasLauncher());
}

TEST_F(SelfInstallers, a_service_deleted_while_it_runs_keeps_its_launcher_until_it_is_gone) {
    ASSERT_TRUE(Create(quoted)) << GetLastError();
    ASSERT_TRUE(StartServiceA(service, 0, nullptr)) << GetLastError();
    WaitForState(SERVICE_RUNNING);
    ASSERT_TRUE(DeleteService(service)) << GetLastError();
    EXPECT_TRUE(HasLauncher());
    SERVICE_STATUS status = {};
    EXPECT_TRUE(ControlService(service, SERVICE_CONTROL_STOP, &status)) << GetLastError();
    WaitForState(SERVICE_STOPPED);
    Close();
    EXPECT_FALSE(HasLauncher());
}

TEST_F(SelfInstallers, a_launcher_that_cannot_be_written_makes_no_service_and_no_change) {
    std::filesystem::create_directory(std::string(base) + "/services");
    WriteFile(launcher, "#!/bin/csh -f\nexec /bin/true\n");
    EXPECT_FALSE(Create(quoted));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ALREADY_EXISTS});
    EXPECT_FALSE(KeyExists(servicesKey + "\\" + name));
    ASSERT_TRUE(Create(launcher)) << GetLastError();
    EXPECT_FALSE(Change(quoted));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ALREADY_EXISTS});
    EXPECT_EQ(Shown(), launcher);
    ASSERT_EQ(chmod((std::string(base) + "/services").c_str(), 0777), 0);
    EXPECT_EQ(CreateNamed(name + "-2", quoted), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED});
    ASSERT_TRUE(DeleteService(service));
    Close();
    EXPECT_TRUE(HasLauncher()); // somebody else's
}

// The daemon serves everybody who reaches it, but what services run is root's.
TEST_F(SelfInstallers, who_is_not_root_makes_no_service_of_a_program) {
    EXPECT_EQ(AsNobody([&](SC_HANDLE own) {
                  const std::string &path = quoted;
                  const SC_HANDLE created = CreateServiceA(
                      own, name.c_str(), nullptr, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START,
                      SERVICE_ERROR_NORMAL, path.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr);
                  return created != nullptr ? DWORD{0} : GetLastError();
              }),
              DWORD{ERROR_ACCESS_DENIED});
    EXPECT_FALSE(HasLauncher());
    EXPECT_FALSE(KeyExists(servicesKey + "\\" + name)) << "half a service is none";
    EXPECT_EQ(OpenServiceA(manager, name.c_str(), SERVICE_ALL_ACCESS), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_SERVICE_DOES_NOT_EXIST});
    const Ended ended = RunAndRead({.command = {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                                                ProgramPath("tvsc"), "create", name, "--program", quoted}});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.error, HasSubstr(name + ": /etc/tv/services: Permission denied: 5 ERROR_ACCESS_DENIED"));
    EXPECT_FALSE(KeyExists(servicesKey + "\\" + name));
}

TEST_F(SelfInstallers, who_is_not_root_neither_changes_nor_takes_away_what_a_service_runs) {
    ASSERT_TRUE(Create(quoted)) << GetLastError();
    const std::string written = ReadFile(launcher);
    EXPECT_EQ(AsNobody([&](SC_HANDLE own) {
                  const SC_HANDLE opened = OpenServiceA(own, name.c_str(), SERVICE_ALL_ACCESS);
                  const std::string other = quoted + " --wide";
                  const BOOL changed =
                      ChangeServiceConfigA(opened, SERVICE_NO_CHANGE, SERVICE_NO_CHANGE, SERVICE_NO_CHANGE,
                                           other.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
                  const DWORD code = changed ? DWORD{ERROR_SUCCESS} : GetLastError();
                  (void)CloseServiceHandle(opened);
                  return code;
              }),
              DWORD{ERROR_ACCESS_DENIED});
    EXPECT_EQ(Shown(), quoted);
    EXPECT_EQ(ReadFile(launcher), written);
    Close();
    EXPECT_EQ(AsNobody([&](SC_HANDLE own) {
                  const SC_HANDLE opened = OpenServiceA(own, name.c_str(), SERVICE_ALL_ACCESS);
                  if (!DeleteService(opened)) return GetLastError();
                  return CloseServiceHandle(opened) ? DWORD{0} : GetLastError();
              }),
              DWORD{0});
    EXPECT_TRUE(HasLauncher()) << "the service is gone, its launcher is root's to take away";
    ASSERT_TRUE(Create(quoted + " --wide")) << GetLastError();
    EXPECT_THAT(ReadFile(launcher), HasSubstr("'--wide'")) << "which is in nobody's way";
}

TEST_F(SelfInstallers, a_second_service_of_the_name_leaves_the_launcher_of_the_first_alone) {
    ASSERT_TRUE(Create(quoted)) << GetLastError();
    EXPECT_EQ(CreateNamed(name, quoted + " --wide"), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_SERVICE_EXISTS});
    EXPECT_EQ(Shown(), quoted);
}

TEST_F(SelfInstallers, a_launcher_that_another_service_is_started_with_stays) {
    ASSERT_TRUE(Create(quoted)) << GetLastError();
    const SC_HANDLE second = CreateNamed(name + "-2", launcher);
    ASSERT_NE(second, nullptr) << GetLastError();
    ASSERT_TRUE(DeleteService(service));
    Close();
    EXPECT_TRUE(HasLauncher());
    EXPECT_FALSE(Create(quoted));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ALREADY_EXISTS});
    (void)CloseServiceHandle(second);
}

TEST_F(SelfInstallers, tvsc_and_the_library_make_the_same_launcher) {
    ASSERT_TRUE(Create(quoted)) << GetLastError();
    const std::string written = ReadFile(launcher);
    ASSERT_TRUE(DeleteService(service));
    Close();
    Do({"create", name, "--program", quoted});
    EXPECT_EQ(ReadFile(launcher), written);
    service = OpenServiceA(manager, name.c_str(), SERVICE_ALL_ACCESS);
    EXPECT_EQ(Shown(), quoted);
}

} // namespace
