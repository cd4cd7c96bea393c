// SPDX-License-Identifier: MIT
// The checks of tvsc doctor: each with something that trips it, and with nothing. Those of the registry read a file and
// need no daemon.
#include "tests/support/service_world.h"
#include "tv/winreg.h"
#include "tv/winsvc.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

using Json = nlohmann::json;

constexpr char services[] = "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\";
constexpr char control[] = "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\";
constexpr char ownProcess[] = "\"Type\"=dword:00000010\n";

// --- a registry in a file ---

struct Trip {
    const char *what;
    std::string text; // beside a service "web" that is as it should be
    std::string name; // what the finding is about
    std::string found;
    std::string level;
    std::string command; // part of it
};

std::ostream &operator<<(std::ostream &stream, const Trip &trip) { return stream << trip.what; }

struct DoctorFile : testing::TestWithParam<Trip> {
    static inline std::string folder, image;

    static void SetUpTestSuite() {
        folder = MakeScratchFolder();
        image = folder + "/web.csh";
        WriteFile(image, "#!/bin/csh -f\nexec /bin/sleep 1000\n", 0755);
    }
    static void TearDownTestSuite() { EndAllProcesses(); }

    static std::string Web() {
        return "REGEDIT4\n\n" + std::string(services) + "web]\n" + ownProcess + "\"DisplayName\"=\"Web\"\n" +
               "\"Start\"=dword:00000002\n\"ImagePath\"=\"" + image + "\"\n\n";
    }
    static Ended Look(const std::string &text, const std::vector<std::string> &further = {}) {
        WriteFile(folder + "/file.reg", text);
        std::vector<std::string> command = {ProgramPath("tvsc"), "doctor", "--registry", folder + "/file.reg"};
        command.insert(command.end(), further.begin(), further.end());
        return RunAndRead({.command = command});
    }
    static Json FindingsOn(const std::string &text, const std::string &name) {
        Json about = Json::array();
        const Json all = Json::parse(Look(text, {"--json"}).output);
        for (const Json &one : all.at("findings")) {
            if (one.at("name") == name) about.push_back(one);
        }
        return about;
    }
};

std::string ServiceNamed(const std::string &name, const std::string &values) {
    return services + name + "]\n" + values;
}

std::string Complete(const std::string &name, const std::string &values) {
    return ServiceNamed(name, ownProcess + std::string("\"DisplayName\"=\"") + name + "\"\n\"Start\"=dword:00000003\n" +
                                  values);
}

TEST_P(DoctorFile, finds_it) {
    const Trip &trip = GetParam();
    const Json findings = FindingsOn(Web() + trip.text, trip.name);
    const auto isIt = [&](const Json &one) {
        return std::string(one.at("found")).find(trip.found) != std::string::npos && one.at("level") == trip.level;
    };
    const auto found = std::find_if(findings.begin(), findings.end(), isIt);
    ASSERT_NE(found, findings.end()) << findings.dump(2);
    EXPECT_THAT(std::string(found->at("command")), HasSubstr(trip.command));
    EXPECT_NE(found->at("why"), "");
    if (trip.level == "fail") {
        EXPECT_EQ(Look(Web() + trip.text).status, 6);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Checks, DoctorFile,
    testing::Values(
        Trip{"no type", ServiceNamed("x", "\"DisplayName\"=\"x\"\n"), "x", "Type cannot be read", "fail", "tvreg add"},
        Trip{"no display name", ServiceNamed("x", ownProcess), "x", "DisplayName cannot be read", "fail", "tvreg add"},
        Trip{"a type of five bytes", ServiceNamed("x", "\"Type\"=hex:10,00,00,00,00\n\"DisplayName\"=\"x\"\n"), "x",
             "Type cannot be read", "fail", "tvreg delete"},
        Trip{"a tag of five bytes", Complete("x", "\"Tag\"=hex:10,00,00,00,00\n"), "x", "Tag cannot be read", "fail",
             "tvreg delete"},
        Trip{"a display name of 1,100 bytes",
             ServiceNamed("x", ownProcess + ("\"DisplayName\"=\"" + std::string(1100, 'd')) + "\"\n"), "x",
             "DisplayName cannot be read", "fail", "tvreg"},
        Trip{"a group of 1,100 bytes", Complete("x", "\"Group\"=\"" + std::string(1100, 'g') + "\"\n"), "x",
             "Group cannot be read", "fail", "tvreg delete"},
        Trip{"an image path of 1,100 bytes", Complete("x", "\"ImagePath\"=\"" + std::string(1100, 'i') + "\"\n"), "x",
             "ImagePath cannot be read", "fail", "tvreg delete"},
        Trip{"a delete flag of five bytes", Complete("x", "\"DeleteFlag\"=hex:01,00,00,00,00\n"), "x",
             "DeleteFlag cannot be read", "fail", "tvreg delete"},
        Trip{"a delete flag", Complete("x", "\"DeleteFlag\"=dword:00000001\n"), "x", "marked for deletion", "info", ""},
        Trip{"sources of events", ServiceNamed("EventLog", "\n") + services + "EventLog\\Application]\n", "EventLog",
             "sources of events", "fail", "-d 4"},
        Trip{"a group order without a list", std::string(control) + "ServiceGroupOrder]\n", "ServiceGroupOrder",
             "List cannot be read", "fail", "tvreg add"},
        Trip{"a group order with an empty list", std::string(control) + "ServiceGroupOrder]\n\"List\"=hex(7):00,00\n",
             "ServiceGroupOrder", "names no groups", "warn", "tvreg add"},
        Trip{"a group order without its end", std::string(control) + "ServiceGroupOrder]\n\"List\"=hex(7):61,00\n",
             "ServiceGroupOrder", "does not end", "warn", "tvreg add"},
        Trip{"tags that are no words",
             Complete("x", "\"Group\"=\"g\"\n") + "\n" + control + "GroupOrderList]\n\"g\"=hex:01,00,00\n",
             "GroupOrderList", "g has 3 bytes", "warn", "tvreg add"},
        Trip{"no tag where tags count",
             Complete("a", "\"Group\"=\"g\"\n\"Tag\"=dword:00000007\n") + "\n" + Complete("b", "\"Group\"=\"g\"\n") +
                 "\n" + control + "GroupOrderList]\n\"g\"=hex:01,00,00,00,07,00,00,00\n",
             "b", "has no Tag", "warn", "-v Tag"},
        Trip{"a ring", Complete("x", "\"DependOnGroup\"=hex(7):78,00,00\n\"Start\"=dword:00000002\n"), "x",
             "depends on itself", "fail", "--depends"},
        Trip{"an unknown service", Complete("x", "\"DependOnGroup\"=hex(7):6e,6f,00,00\n\"Start\"=dword:00000002\n"),
             "x", "no, which does not exist", "warn", "--depends"},
        Trip{"an unknown group", Complete("x", "\"DependOnGroup\"=hex(7):2b,6e,6f,00,00\n\"Start\"=dword:00000002\n"),
             "x", "group no, which is empty", "warn", "--depends"},
        Trip{"a ring of services that are started on demand",
             Complete("x", "\"DependOnGroup\"=hex(7):79,00,00\n") + "\n" +
                 Complete("y", "\"DependOnGroup\"=hex(7):78,00,00\n"),
             "x", "depends on itself (x > y > x)", "fail", "--depends"},
        Trip{"a ring through a group",
             Complete("x", "\"DependOnGroup\"=hex(7):2b,67,00,00\n") + "\n" +
                 Complete("y", "\"Group\"=\"g\"\n\"DependOnGroup\"=hex(7):78,00,00\n"),
             "x", "depends on itself (x > y > x)", "fail", "--depends"},
        Trip{"an unknown service that one on demand needs", Complete("x", "\"DependOnGroup\"=hex(7):6e,6f,00,00\n"),
             "x", "no, which does not exist", "warn", "--depends"},
        Trip{"an unknown group that one on demand needs", Complete("x", "\"DependOnGroup\"=hex(7):2b,6e,6f,00,00\n"),
             "x", "group no, which is empty", "warn", "--depends"},
        Trip{"no image of one that is started on demand", Complete("x", ""), "x", "no image path", "fail", "--exec"},
        Trip{"an image with a blank in its path", Complete("x", "\"ImagePath\"=\"/no such.csh\"\n"), "x",
             "its image /no such.csh", "fail", "--exec"},
        Trip{"an image that is a script of another shell", Complete("x", "\"ImagePath\"=\"/usr/bin/ldd\"\n"), "x",
             "not for csh", "fail", "--exec"},
        Trip{"a name in other letter case", Complete("x", "\"DependOnGroup\"=hex(7):57,45,42,00,00\n"), "x",
             "depends on WEB, and the service is web", "warn", "--depends web"},
        Trip{"a name in other letter case among others",
             Complete("x", "\"DependOnGroup\"=hex(7):2b,6e,6f,00,57,45,42,00,00\n"), "x",
             "depends on WEB, and the service is web", "warn", "--depends '+no,web'"},
        Trip{"no image", Complete("x", "\"Start\"=dword:00000002\n"), "x", "no image path", "fail", "--exec"},
        Trip{"an image that is not there", Complete("x", "\"ImagePath\"=\"/no/such.csh\"\n"), "x",
             "its image /no/such.csh", "fail", "--exec"},
        Trip{"an image without exec", Complete("x", "\"ImagePath\"=\"/etc/hostname\"\n"), "x",
             "its image /etc/hostname: a script without exec", "fail", "--exec"},
        Trip{"an automatic service that is marked for deletion",
             Complete("x", "\"Start\"=dword:00000002\n\"DeleteFlag\"=dword:00000001\n"), "x", "marked for deletion",
             "info", ""},
        Trip{"an image that is a program", Complete("x", "\"ImagePath\"=\"/bin/true\"\n"), "x", "its image /bin/true",
             "fail", "--exec"},
        Trip{"an account that is not there", Complete("x", "\"DependOnService\"=\"no-such-user\"\n"), "x",
             "its account no-such-user", "fail", "--user"},
        Trip{"an empty account", Complete("x", "\"DependOnService\"=\"\"\n"), "x", "its account is empty", "warn",
             "tvreg delete"},
        Trip{"a list in place of the account", Complete("x", "\"DependOnService\"=hex(7):72,6f,6f,74,00,00\n"), "x",
             "is a list", "fail", "--depends root"},
        Trip{"a list in place of the account, beside dependencies",
             Complete("x", "\"DependOnService\"=hex(7):61,00,62,00,00\n\"DependOnGroup\"=hex(7):77,65,62,00,00\n"), "x",
             "is a list", "fail", "--depends 'web,a,b'"},
        Trip{"a service in place of the account", Complete("x", "\"DependOnService\"=\"WEB\"\n"), "x",
             "names the service WEB", "fail", "--depends WEB"},
        Trip{"a disabled service that is started",
             Complete("x", "\"Start\"=dword:00000002\n\"DependOnGroup\"=hex(7):79,00,00\n") + "\n" +
                 Complete("y", "\"Start\"=dword:00000004\n"),
             "y", "disabled, but started", "warn", "--start demand"},
        Trip{"a type that is not listed", ServiceNamed("x", "\"Type\"=dword:00000004\n\"DisplayName\"=\"x\"\n"), "x",
             "0x4 is none that is listed", "warn", "-v Type"},
        Trip{"an error control that is none", Complete("x", "\"ErrorControl\"=dword:ffffffff\n"), "x", "0xffffffff",
             "warn", "--error normal"}));

TEST_F(DoctorFile, nothing_is_found_where_nothing_is_wrong) {
    const std::string more = Complete("a", "\"Group\"=\"g\"\n\"Tag\"=dword:00000007\n\"ErrorControl\"=dword:00000001\n"
                                           "\"DependOnService\"=\"root\"\n\"DependOnGroup\"=hex(7):77,65,62,00,00\n"
                                           "\"ImagePath\"=\"" +
                                               image + "\"\n") +
                             "\n" + control + "ServiceGroupOrder]\n\"List\"=hex(7):67,00,00\n\n" + control +
                             "GroupOrderList]\n\"g\"=hex:01,00,00,00,07,00,00,00\n";
    const Ended ended = Look(Web() + more, {"--strict"});
    EXPECT_EQ(ended.status, 0) << ended.output;
    EXPECT_EQ(ended.output, "0 failures, 0 warnings; 2 services looked at.\n");
    EXPECT_EQ(ended.error, "");
}

// It may be anywhere on a line; what stands in a comment is none.
TEST_F(DoctorFile, an_image_has_exec_or_leaves_it_to_another_script) {
    const auto found = [](const std::string &script) {
        const std::string file = folder + "/exec.csh";
        WriteFile(file, "#!/bin/csh -f\n" + script + "\n");
        return !FindingsOn(Web() + Complete("x", "\"ImagePath\"=\"" + file + "\"\n"), "x").empty();
    };
    for (const char *good :
         {"exec /bin/true", "cd /;exec /bin/true", "if (-x /bin/true) exec /bin/true", "source /etc/csh.login",
          "set a=1\n  exec \\\n  /bin/true", "test -x /bin/true ||exec /bin/true", "test -x /bin/true|| exec /bin/true",
          "test -x /bin/false&&exec /bin/true", "{exec /bin/true}", "set a=`exec /bin/true`"}) {
        EXPECT_FALSE(found(good)) << good;
    }
    for (const char *bad : {"/bin/true", "# exec /bin/true\n/bin/true", "/bin/execute", "/bin/true # exec",
                            "/bin/true # ||exec /bin/true", "/bin/{execute,true}", ""}) {
        EXPECT_TRUE(found(bad)) << bad;
    }
}

TEST_F(DoctorFile, a_ring_is_told_once_and_what_leads_to_it_is_none) {
    const std::string text = Web() + Complete("a", "\"DependOnGroup\"=hex(7):62,00,00\n") + "\n" +
                             Complete("b", "\"DependOnGroup\"=hex(7):63,00,00\n") + "\n" +
                             Complete("c", "\"DependOnGroup\"=hex(7):62,00,63,00,00\n");
    const std::string found = Look(text).output;
    EXPECT_THAT(found, HasSubstr("fail b: depends on itself (b > c > b)"));
    EXPECT_THAT(found, Not(HasSubstr("a: depends on itself")));
    EXPECT_EQ(found.find("depends on itself"), found.rfind("depends on itself")) << found;
}

TEST_F(DoctorFile, a_warning_fails_under_strict_only) {
    const std::string text =
        Web() + Complete("x", "\"ErrorControl\"=dword:00000009\n\"ImagePath\"=\"" + image + "\"\n");
    EXPECT_EQ(Look(text).status, 0);
    EXPECT_EQ(Look(text, {"--strict"}).status, 1);
}

TEST_F(DoctorFile, a_file_that_is_no_registry_text_is_told_with_its_line) {
    const Ended wrong = Look("REGEDIT4\n\n[HKEY_LOCAL_MACHINE\\x]\nnonsense\n");
    EXPECT_EQ(wrong.status, 1);
    EXPECT_THAT(wrong.error, HasSubstr("file.reg:4: "));
    const Ended missing = RunAndRead({.command = {ProgramPath("tvsc"), "doctor", "--registry", "/no/such.reg"}});
    EXPECT_EQ(missing.status, 1);
    EXPECT_THAT(missing.error, HasSubstr("/no/such.reg: No such file or directory"));
}

// --- the machine and the daemons ---

struct DoctorHere : ServiceWorld {
    static Json FindingsIn(const std::string &area, std::vector<std::string> environment = {}) {
        Json found = Json::array();
        const Ended ended =
            RunAndRead({.command = {ProgramPath("tvsc"), "doctor", "--json"}, .environment = std::move(environment)});
        const Json all = Json::parse(ended.output);
        for (const Json &one : all.at("findings")) {
            if (one.at("area") == area) found.push_back(one);
        }
        return found;
    }
};

TEST_F(DoctorHere, ports_are_tried_by_the_guard_where_it_is_installed) {
    const std::string bin = folder + "/guard";
    std::filesystem::create_directory(bin);
    const std::vector<std::string> path = {"PATH=" + bin + ":/usr/bin:/bin"};
    const auto guard = [&](const std::string &body) { WriteFile(bin + "/tv-guard", "#!/bin/sh\n" + body, 0755); };
    guard("[ \"$1\" = check ] && echo port 700 is closed to nobody\n");
    EXPECT_THAT(FindingsIn("exposure", path), IsEmpty());
    guard("echo port 700 is closed to nobody; echo port 701 is open to everybody on this machine; exit 1\n");
    const Json open = FindingsIn("exposure", path);
    ASSERT_EQ(open.size(), 1u);
    EXPECT_EQ(open.at(0).at("level"), "fail");
    EXPECT_THAT(std::string(open.at(0).at("found")), HasSubstr("port 701"));
    guard("echo 'tv-guard: only root can try as nobody' >&2; exit 2\n");
    const Json unknown = FindingsIn("exposure", path);
    ASSERT_EQ(unknown.size(), 1u);
    EXPECT_EQ(unknown.at(0).at("level"), "info");
    EXPECT_THAT(std::string(unknown.at(0).at("found")), HasSubstr("only root"));
}

TEST_F(DoctorHere, a_display_name_that_the_daemon_does_not_know_is_found) {
    CreateSample(name);
    EXPECT_THAT(FindingsIn("memory").dump(), Not(HasSubstr("is called")));
    WriteKey(servicesKey + "\\" + name, {{"DisplayName", REG_SZ, Sz("Behind its back")}});
    const std::string found = FindingsIn("memory").dump();
    EXPECT_THAT(found, HasSubstr("is called \\\"Behind its back\\\" in the registry, and \\\"" + name + "\\\" by"));
    (void)Do({"config", name, "--display", "Behind its back"});
    EXPECT_THAT(FindingsIn("memory").dump(), Not(HasSubstr("is called")));
}

TEST_F(DoctorHere, the_version_of_the_registry_daemon_is_new_enough) {
    EXPECT_THAT(FindingsIn("registry").dump(), Not(HasSubstr("version")));
}

TEST_F(DoctorHere, a_process_that_a_failed_start_has_left_is_found) {
    const std::string script = folder + "/" + name + ".csh";
    WriteFile(script, "#!/bin/csh -f\nexec /bin/sleep 1003\n");
    (void)Do({"create", name, "--image", script});
    EXPECT_THAT(FindingsIn("process"), IsEmpty());
    EXPECT_EQ(Tvsc({"start", name}).status, 1); // 1053 after a quarter of a minute
    const Json found = FindingsIn("process");
    ASSERT_EQ(found.size(), 1u) << found.dump(2);
    EXPECT_THAT(std::string(found.at(0).at("found")), HasSubstr("sleep is a child of the daemon"));
    const std::string command = found.at(0).at("command");
    EXPECT_EQ(RunAndRead({.command = {"/bin/sh", "-c", command}}).status, 0) << command;
    EXPECT_TRUE(WaitUntil([] { return FindingsIn("process").empty(); }));
}

TEST_F(DoctorHere, a_limit_under_which_every_launcher_is_slow_is_found) {
    CreateSample(name);
    (void)Do({"start", name});
    EXPECT_THAT(FindingsIn("process"), IsEmpty());
    const std::string raise = "prlimit --nofile=70000: --pid " + std::to_string(ProcessOf(name));
    if (RunAndRead({.command = {"/bin/sh", "-c", raise}}).status != 0) GTEST_SKIP() << "limits cannot be raised here";
    EXPECT_THAT(FindingsIn("process").dump(), HasSubstr("70000 descriptors"));
    (void)Do({"stop", name});
}

} // namespace
