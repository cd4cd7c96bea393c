// SPDX-License-Identifier: MIT
// What tvsc tells of databases of every kind: healthy, empty, broken, locked, cyclic, with record 0 in use, with names
// of other scripts and of bytes that are no text, and large.
#include "tests/support/host.h"
#include "tv/winreg.h"
#include "tv/winsvc.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <sstream>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

using Json = nlohmann::json;

// Both daemons on a new database for each test.
struct TvscDatabases : testing::Test {
    const std::string folder = MakeScratchFolder();
    const std::string image = folder + "/sample.csh";
    pid_t serviceDaemon = 0;

    void SetUp() override {
        (void)StartProgram({.command = {ProgramPath("tvregd"), "--lazy", "--database", folder + "/registry.db"}});
        ASSERT_TRUE(WaitForProgram(REGDAEMONPROG, REGDAEMONVERS));
        WriteFile(image, "#!/bin/csh -f\nexec '" + ProgramPath("tvsample") + "' --log '" + folder + "/log'\n");
        std::filesystem::remove_all("/run/tv");
    }
    void TearDown() override { EndAllProcesses(); }

    void StartDaemon(int timeoutMs = patienceMs) { serviceDaemon = StartServiceDaemon({}, timeoutMs); }

    static Ended Tvsc(std::vector<std::string> arguments, const std::string &locale = "C.UTF-8") {
        arguments.insert(arguments.begin(), ProgramPath("tvsc"));
        return RunAndRead({.command = std::move(arguments), .environment = {"LC_ALL=" + locale}}, 90000);
    }

    // Runs it as text and as JSON: the same status, nothing that a terminal would act on, a schema in the JSON.
    static std::string Look(int status, const std::vector<std::string> &arguments) {
        const Ended text = Tvsc(arguments);
        EXPECT_EQ(text.status, status) << testing::PrintToString(arguments) << text.output << text.error;
        for (const std::string &shown : {text.output, text.error}) {
            EXPECT_TRUE(std::none_of(shown.begin(), shown.end(), [](char c) {
                return (static_cast<unsigned char>(c) < ' ' && c != '\n' && c != '\t') || c == 0x7F;
            })) << shown;
            EXPECT_NO_THROW((void)Json(shown).dump()) << "no UTF-8: " << shown;
        }
        std::vector<std::string> withJson = {"--json"};
        withJson.insert(withJson.end(), arguments.begin(), arguments.end());
        const Ended json = Tvsc(withJson);
        EXPECT_EQ(json.status, status) << testing::PrintToString(withJson) << json.error;
        std::istringstream lines(json.output);
        const bool isLines = arguments.front() == "watch" && json.output.find("\n  ") == std::string::npos;
        for (std::string line; isLines && std::getline(lines, line);) {
            EXPECT_EQ(Json::parse(line).at("schema"), "tvsc.event/1");
        }
        if (!isLines) {
            EXPECT_THAT(std::string(Json::parse(json.output).at("schema")), HasSubstr("tvsc.")) << json.output;
        }
        return text.output + text.error;
    }
    static std::string Watch(int status) { return Look(status, {"watch", "--count", "1", "--initial"}); }
    static std::string Hosts(int status) { return Look(status, {"--host", "localhost,127.0.0.1", "list"}); }
};

TEST_F(TvscDatabases, healthy) {
    WriteService("a", SERVICE_AUTO_START, image);
    WriteService("b", SERVICE_DEMAND_START, image, {{"DependOnGroup", REG_MULTI_SZ, std::string("a\0\0", 3)}});
    StartDaemon();
    EXPECT_EQ(Tvsc({"wait", "a"}).status, 0) << "the daemon answers while a service may still be starting";
    EXPECT_THAT(Watch(0), AllOf(HasSubstr("a: -> running"), HasSubstr("b: -> stopped")));
    EXPECT_THAT(Look(0, {"timeline"}), HasSubstr("1  a"));
    EXPECT_THAT(Look(0, {"tree"}), HasSubstr("└─ ● a  running"));
    EXPECT_THAT(Look(0, {"doctor"}), HasSubstr("0 failures"));
    EXPECT_THAT(Hosts(0), HasSubstr("4 services of 2 machines"));
    (void)Look(0, {"is-healthy"});
    (void)Look(0, {"order"});
    (void)Look(0, {"explain", "b"});
}

TEST_F(TvscDatabases, empty) {
    StartDaemon();
    EXPECT_EQ(Watch(0), "");
    EXPECT_THAT(Look(1, {"timeline"}), HasSubstr("has left a record"));
    EXPECT_THAT(Look(0, {"doctor"}), HasSubstr("0 services looked at"));
    EXPECT_THAT(Hosts(0), HasSubstr("0 services of 2 machines"));
    EXPECT_EQ(Look(0, {"tree"}), "");
    (void)Look(0, {"list"});
    (void)Look(0, {"is-healthy"});
    (void)Look(0, {"order"});
}

TEST_F(TvscDatabases, broken_by_a_key_without_a_type) {
    WriteService("a", SERVICE_AUTO_START, image);
    WriteKey(servicesKey + "\\culprit", {{"Start", REG_DWORD, Dword(3)}});
    StartDaemon();
    EXPECT_THAT(Watch(6), HasSubstr("1065"));
    EXPECT_THAT(Look(6, {"timeline"}), HasSubstr("culprit"));
    EXPECT_THAT(Look(6, {"doctor"}), AllOf(HasSubstr("culprit: Type cannot be read"), HasSubstr("try: tvreg add")));
    EXPECT_THAT(Look(6, {"order"}), HasSubstr("culprit"));
    EXPECT_THAT(Look(6, {"list"}), HasSubstr("1065"));
    EXPECT_THAT(Look(6, {"tree"}), HasSubstr("1065"));
    (void)Hosts(6);
    (void)Look(4, {"is-healthy"});
}

TEST_F(TvscDatabases, locked) {
    WriteService("a", SERVICE_DEMAND_START, image);
    StartDaemon();
    const pid_t holder = StartProgram({.command = {ProgramPath("tvsc"), "with-lock", "--", "/bin/sleep", "1000"}});
    ASSERT_TRUE(WaitUntil([] { return Tvsc({"--json", "lock", "status"}).output.find("true") != std::string::npos; }));
    EXPECT_THAT(Watch(0), HasSubstr("a: -> stopped"));
    EXPECT_THAT(Look(152, {"start", "a"}), HasSubstr("1055"));
    EXPECT_THAT(Look(152, {"--host", "localhost,127.0.0.1", "start", "a"}), HasSubstr("1055"));
    EXPECT_EQ(Json::parse(Tvsc({"--json", "list"}).output).at("daemon").at("locked"), true);
    EXPECT_THAT(Look(0, {"doctor"}), Not(HasSubstr("held by"))) << "a lock of a moment is none to speak of";
    kill(holder, SIGTERM);
}

TEST_F(TvscDatabases, cyclic) {
    WriteService("a", SERVICE_DEMAND_START, image, {{"DependOnGroup", REG_MULTI_SZ, std::string("b\0\0", 3)}});
    WriteService("b", SERVICE_DEMAND_START, image, {{"DependOnGroup", REG_MULTI_SZ, std::string("a\0\0", 3)}});
    StartDaemon();
    EXPECT_THAT(Look(0, {"tree"}), HasSubstr("a ring"));
    EXPECT_THAT(Watch(0), HasSubstr("b: -> stopped"));
    EXPECT_THAT(Tvsc({"graph", "--format", "dot"}).output, HasSubstr("color=red"));
    EXPECT_THAT(Tvsc({"explain", "a"}).output, HasSubstr("1059"));
    EXPECT_THAT(Look(6, {"start", "a"}), HasSubstr("1059"));
    (void)Hosts(0);
}

TEST_F(TvscDatabases, record_0_in_use) {
    StartDaemon();
    EXPECT_EQ(Tvsc({"create", "zero", "--image", image}).status, 0);
    EXPECT_THAT(Watch(0), HasSubstr("zero: -> stopped"));
    EXPECT_THAT(Look(0, {"doctor"}), HasSubstr("record 0"));
    EXPECT_THAT(Look(0, {"list"}), HasSubstr("(record 0"));
    EXPECT_THAT(Hosts(0), HasSubstr("zero"));
    EXPECT_EQ(Tvsc({"start", "zero"}).status, 0);
    EXPECT_THAT(Watch(0), HasSubstr("zero: -> running"));
    const Ended status = Tvsc({"--trace", "status", "zero"});
    EXPECT_THAT(status.output, AllOf(HasSubstr("state: running"), HasSubstr("(record 0")));
    EXPECT_THAT(status.error, Not(HasSubstr("ENUM_STATUS_SERVICE"))) << "it is not listed there";
    EXPECT_EQ(Tvsc({"stop", "zero"}).status, 0);
    EXPECT_THAT(Watch(0), HasSubstr("zero: -> stopped"));
}

TEST_F(TvscDatabases, names_of_other_scripts_and_of_bytes_that_are_no_text) {
    const std::string cyrillic = "веб-сервер", chinese = "网络 服务", bytes = "\xFF\xFE-x", hostile = "a\x1B[31mb";
    for (const std::string &service : {cyrillic, chinese, bytes, hostile}) {
        WriteService(service, SERVICE_AUTO_START, image);
    }
    StartDaemon();
    for (const std::string &shown :
         {Watch(0), Look(0, {"timeline"}), Look(0, {"list"}), Look(0, {"tree"}), Look(0, {"order"})}) {
        EXPECT_THAT(
            shown, AllOf(HasSubstr(cyrillic), HasSubstr(chinese), HasSubstr("\\xff\\xfe-x"), HasSubstr("a\\x1b[31mb")));
    }
    EXPECT_THAT(Hosts(0),
                AllOf(HasSubstr(cyrillic), HasSubstr(chinese), HasSubstr("\\xff\\xfe-x"), HasSubstr("a\\x1b[31mb")));
    const Json first = Json::parse(Tvsc({"--json", "timeline"}).output).at("services");
    EXPECT_TRUE(std::any_of(first.begin(), first.end(), [](const Json &one) { return one.contains("name_bytes"); }));
    EXPECT_THAT(Tvsc({"timeline", "--svg"}).output, AllOf(HasSubstr(chinese), HasSubstr("\\xff\\xfe-x")));
    EXPECT_THAT(Tvsc({"watch", "--count", "1", "--initial"}, "C").output, HasSubstr("\\xd0\\xb2"));
    EXPECT_THAT(Tvsc({"--trace", "status", bytes}).error, HasSubstr("\"\\xff\\xfe-x\""));
    EXPECT_EQ(Tvsc({"watch", "--count", "1", chinese}).status, 0);
}

// A dependency as REGEDIT4 text.
std::string NeedsText(const std::string &service) {
    std::string text = "\"DependOnGroup\"=hex(7):";
    for (const char c : service) {
        constexpr char digits[] = "0123456789abcdef";
        text += {digits[c >> 4], digits[c & 15], ','};
    }
    return text + "00,00\n";
}

TEST_F(TvscDatabases, two_thousand_services) {
    constexpr int many = 2000;
    std::string text = "REGEDIT4\n\n";
    for (int i = 0; i < many; ++i) {
        const std::string service = "service-" + std::to_string(i);
        text += "[HKEY_LOCAL_MACHINE\\" + servicesKey + "\\" + service + "]\n\"Type\"=dword:00000010\n" +
                "\"Start\"=dword:00000003\n\"DisplayName\"=\"Service " + std::to_string(i) + "\"\n\"ImagePath\"=\"" +
                image + "\"\n" + (i == 0 ? "" : NeedsText("service-" + std::to_string(i / 10))) + "\n";
    }
    WriteFile(folder + "/many.reg", text);
    ASSERT_EQ(RunAndRead({.command = {ProgramPath("tvreg"), "import", folder + "/many.reg"}}, 90000).status, 0);
    StartDaemon(120'000); // a busy machine reads so many for a while
    const Ended watched = Tvsc({"--json", "watch", "--initial", "--count", "2", "--interval", "50ms"});
    EXPECT_EQ(std::count(watched.output.begin(), watched.output.end(), '\n'), many);
    EXPECT_THAT(Tvsc({"--host", "localhost,127.0.0.1", "list", "--brief"}).output,
                HasSubstr("4000 services of 2 machines"));
    EXPECT_EQ(Json::parse(Tvsc({"--json", "list"}).output).at("services").size(), many);
    const std::string last = "service-" + std::to_string(many - 1);
    EXPECT_THAT(Tvsc({"list"}).output, HasSubstr("2000 services: 0 running, 2000 stopped"));
    EXPECT_THAT(Tvsc({"status", last}).output, HasSubstr("○ " + last + " - Service "));
    EXPECT_EQ(Json::parse(Tvsc({"--json", "status", "*"}).output).at("services").size(), many);
    EXPECT_THAT(Tvsc({"show", last}).output, HasSubstr("  depends: service-199\n"));
    EXPECT_EQ(Json::parse(Tvsc({"--json", "graph"}).output).at("services").size(), many);
    const std::string tree = Tvsc({"tree"}).output;
    EXPECT_GE(std::count(tree.begin(), tree.end(), '\n'), many);
    EXPECT_THAT(Tvsc({"plan", "boot"}).output, HasSubstr("0 of 2000 services started"));
    (void)Tvsc({"config", last, "--start", "auto"});
    EXPECT_EQ(Json::parse(Tvsc({"--json", "plan", "boot"}).output).at("steps").size(), 5u);
    EXPECT_THAT(Tvsc({"doctor"}).output, HasSubstr("2000 services looked at"));
    EXPECT_THAT(Tvsc({"doctor", "--registry", folder + "/many.reg"}).output, HasSubstr("2000 services looked at"));
    const std::string command =
        "stty rows 24 cols 80; LC_ALL=C.UTF-8 TERM=xterm '" + ProgramPath("tvsc") + "' --color never watch --count 1";
    const std::string drawn = RunAndRead({.command = {"/usr/bin/script", "-qec", command, "/dev/null"}}).output;
    EXPECT_THAT(drawn, AllOf(HasSubstr("2000 services, 1979 of them not shown"), HasSubstr("\x1B[H")));
    EXPECT_LE(std::count(drawn.begin(), drawn.end(), '\n'), 24);
}

} // namespace
