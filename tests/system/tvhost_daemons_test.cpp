// SPDX-License-Identifier: MIT
// Daemons that nobody here wrote, run by tvhost with one line each. One that is not installed is not tested.
#include "tests/support/tvhost_world.h"
#include "tvhost/process_tree.h"

#include <gmock/gmock.h>

#include <netinet/in.h>
#include <sys/socket.h>

#include <csignal>
#include <filesystem>

using std::string_literals::operator""s;
using testing::HasSubstr;

namespace {

namespace fs = std::filesystem;

struct HostedDaemon : TvhostWorld {
    // Creates a service of a program that has to be installed.
    bool Create(const std::vector<std::string> &settings, const std::vector<std::string> &command,
                const std::vector<std::string> &further = {}) {
        if (access(command.front().c_str(), X_OK) != 0) return false;
        std::vector<std::string> create = {"create", name};
        create.insert(create.end(), further.begin(), further.end());
        for (const std::string &setting : settings) {
            create.insert(create.end(), {"--set", setting});
        }
        create.emplace_back("--");
        create.insert(create.end(), command.begin(), command.end());
        Do(create);
        return true;
    }
    // What a server on this machine answers to a text.
    static std::string Ask(std::uint16_t port, const std::string &text) {
        int asked = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const DescriptorGuard closed(&asked);
        const sockaddr_in here = {AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
        const timeval patience = {5, 0};
        (void)setsockopt(asked, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        char answer[256] = {};
        const bool isAsked = connect(asked, reinterpret_cast<const sockaddr *>(&here), sizeof here) == 0 &&
                             send(asked, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
        const ssize_t bytes = isAsked ? recv(asked, answer, sizeof answer, 0) : 0;
        return std::string(answer, bytes > 0 ? static_cast<std::size_t>(bytes) : 0);
    }
    pid_t PidIn(const std::string &path) {
        if (!WaitUntil([&] { return !ReadWhatIsThere(path).empty(); })) return 0;
        return static_cast<pid_t>(std::stol(ReadWhatIsThere(path)));
    }
    std::vector<std::string> Redis(const std::vector<std::string> &further) const {
        std::vector<std::string> command = {
            "/usr/bin/redis-server", "--port", "6399", "--dir", folder, "--save", "3600 1"};
        command.insert(command.end(), further.begin(), further.end());
        return command;
    }
    static bool RedisAnswers() { return Ask(6399, "PING\r\n") == "+PONG\r\n"; }
};

TEST_F(HostedDaemon, redis_tells_when_it_is_ready) {
    if (!Create({"AppType=notify"}, Redis({"--supervised", "systemd"}))) GTEST_SKIP() << "needs redis-server";
    EXPECT_EQ(Do({"start", name}), name + ": running\n");
    EXPECT_TRUE(RedisAnswers()) << "at once";
    EXPECT_THAT(StateFile().says, HasSubstr("Ready"));
    EXPECT_THAT(LogText(), HasSubstr("Ready to accept connections"));
    EXPECT_EQ(Do({"stop", name}), name + ": stopped\n");
    EXPECT_EQ(Status().at("exit").at("win32"), 0);
    EXPECT_THAT(LogText(), HasSubstr("Redis is now ready to exit"));
}

TEST_F(HostedDaemon, redis_in_the_background_is_the_service) {
    const std::string pidFile = folder + "/redis.pid";
    if (!Create({"AppType=forking", "AppPidFile=" + pidFile}, Redis({"--daemonize", "yes", "--pidfile", pidFile}))) {
        GTEST_SKIP() << "needs redis-server";
    }
    EXPECT_EQ(Do({"start", name}), name + ": running\n");
    EXPECT_EQ(StateFile().program, PidIn(pidFile));
    EXPECT_TRUE(WaitUntil([] { return RedisAnswers(); }));
    EXPECT_EQ(Do({"stop", name}), name + ": stopped\n");
    EXPECT_FALSE(RedisAnswers());
}

TEST_F(HostedDaemon, redis_in_the_background_does_not_outlive_a_service_that_knows_nothing_of_it) {
    if (!Create({}, Redis({"--daemonize", "yes", "--pidfile", folder + "/redis.pid"}))) {
        GTEST_SKIP() << "needs redis-server";
    }
    (void)Tvsc({"start", name});
    ASSERT_TRUE(AwaitState("stopped"));
    EXPECT_FALSE(RedisAnswers());
    EXPECT_THAT(LogText(), HasSubstr("AppType forking"));
}

TEST_F(HostedDaemon, redis_that_crashes_comes_back) {
    if (!Create({"AppRestart=on-failure", "AppRestartDelay=100"}, Redis({}))) GTEST_SKIP() << "needs redis-server";
    Do({"start", name});
    ASSERT_TRUE(WaitUntil([] { return RedisAnswers(); }));
    const pid_t first = StateFile().program;
    kill(first, SIGSEGV);
    ASSERT_TRUE(WaitUntil([&] { return StateFile().program > 1 && StateFile().program != first; }));
    EXPECT_TRUE(WaitUntil([] { return RedisAnswers(); }));
    EXPECT_EQ(StateFile().restarts, 1u);
    EXPECT_EQ(StateText(), "running");
}

TEST_F(HostedDaemon, nginx_reloads_and_ends_with_its_workers) {
    const std::string pidFile = folder + "/nginx.pid";
    const auto write = [&](const std::string &answer) {
        WriteFile(folder + "/nginx.conf", "pid " + pidFile + "; error_log stderr; worker_processes 2; user root;\n" +
                                              "events {} http { access_log off; server { listen 127.0.0.1:8098; " +
                                              "location / { return 200 " + answer + "; } } }\n");
    };
    write("first");
    if (!Create({"AppType=forking", "AppPidFile=" + pidFile, "AppStopSignal=QUIT"},
                {"/usr/sbin/nginx", "-c", folder + "/nginx.conf"})) {
        GTEST_SKIP() << "needs nginx";
    }
    const auto answer = [] { return Ask(8098, "GET / HTTP/1.0\r\n\r\n"); };
    EXPECT_EQ(Do({"start", name}), name + ": running\n");
    EXPECT_TRUE(WaitUntil([&] { return answer().ends_with("first"); }));
    write("second");
    Do({"control", name, "128"});
    EXPECT_TRUE(WaitUntil([&] { return answer().ends_with("second"); }));
    const pid_t host = StateFile().host;
    EXPECT_GE(DescendantsOf(host).size(), 3u);
    EXPECT_EQ(Do({"stop", name}), name + ": stopped\n");
    EXPECT_EQ(answer(), "");
}

TEST_F(HostedDaemon, memcached_answers) {
    if (!Create({"AppLimitNofile=2048"}, {"/usr/bin/memcached", "-u", "nobody", "-l", "127.0.0.1", "-p", "11299"})) {
        GTEST_SKIP() << "needs memcached";
    }
    Do({"start", name});
    EXPECT_TRUE(WaitUntil([] { return Ask(11299, "version\r\n").starts_with("VERSION"); }));
    EXPECT_EQ(Do({"stop", name}), name + ": stopped\n");
}

TEST_F(HostedDaemon, dnsmasq_goes_into_the_background_and_hears_of_a_reload) {
    const std::string pidFile = folder + "/dnsmasq.pid";
    if (!Create({"AppType=forking", "AppPidFile=" + pidFile},
                {"/usr/sbin/dnsmasq", "--conf-file=/dev/null", "--pid-file=" + pidFile, "--user=root", "--port=5399",
                 "--listen-address=127.0.0.1", "--bind-interfaces", "--no-resolv", "--no-hosts", "--log-facility=-",
                 "--address=/service.test/192.0.2.1"})) {
        GTEST_SKIP() << "needs dnsmasq";
    }
    EXPECT_EQ(Do({"start", name}), name + ": running\n");
    EXPECT_EQ(StateFile().program, PidIn(pidFile));
    // Over TCP: the length; number 7, recursion desired, one question: service.test, A, IN.
    const std::string question("\0\x1E\0\7\1\0\0\1\0\0\0\0\0\0\7service\4test\0\0\1\0\1", 32);
    EXPECT_TRUE(WaitUntil([&] { return Ask(5399, question).ends_with("\xC0\0\2\1"s); })) << "192.0.2.1";
    Do({"control", name, "128"});
    EXPECT_TRUE(WaitUntil([this] { return LogText().find("cleared cache") != std::string::npos; })) << LogText();
    EXPECT_EQ(Do({"stop", name}), name + ": stopped\n");
    EXPECT_EQ(Status().at("exit").at("win32"), 0);
    EXPECT_EQ(Ask(5399, question), "");
}

TEST_F(HostedDaemon, mosquitto_tells_when_it_is_ready) {
    WriteFile(folder + "/mosquitto.conf", "listener 18899 127.0.0.1\nallow_anonymous true\nuser root\n");
    if (!Create({"AppType=notify"}, {"/usr/sbin/mosquitto", "-c", folder + "/mosquitto.conf"})) {
        GTEST_SKIP() << "needs mosquitto";
    }
    EXPECT_EQ(Do({"start", name}), name + ": running\n");
    // CONNECT of MQTT 3.1.1, clean session, 60 s, as "t"; CONNACK: accepted.
    EXPECT_EQ(Ask(18899, std::string("\x10\x0D\0\4MQTT\4\2\0\x3C\0\1t", 15)), std::string("\x20\2\0\0", 4))
        << "at once";
    EXPECT_EQ(Do({"stop", name}), name + ": stopped\n");
    EXPECT_EQ(Status().at("exit").at("win32"), 0);
}

// The folder of the newest version's programs; empty where there is none.
std::string PostgresPrograms() {
    std::string newest;
    std::error_code ignored;
    for (const auto &version : fs::directory_iterator("/usr/lib/postgresql", ignored)) {
        const std::string programs = version.path() / "bin";
        if (fs::exists(programs + "/initdb") && programs > newest) newest = programs;
    }
    return newest;
}

TEST_F(HostedDaemon, postgresql_runs_under_its_account_and_ends_cleanly) {
    const std::string programs = PostgresPrograms(), data = folder + "/postgres";
    if (programs.empty() || getuid() != 0) GTEST_SKIP() << "needs postgresql, and root";
    fs::permissions(folder, fs::perms::all);
    ASSERT_EQ(RunProgram({.command = {"/usr/bin/setpriv", "--reuid=postgres", "--regid=postgres", "--clear-groups",
                                      programs + "/initdb", "--no-sync", "--auth=trust", "-D", data},
                          .outputFile = folder + "/initdb.said",
                          .directory = "/"},
                         120'000),
              0)
        << ReadFile(folder + "/initdb.said");
    ASSERT_TRUE(Create({"AppType=notify", "AppStopSignal=INT", "AppRestart=on-failure", "AppRestartDelay=100"},
                       {programs + "/postgres", "-D", data, "-p", "5499", "-c", "listen_addresses=127.0.0.1", "-c",
                        "unix_socket_directories="},
                       {"--user", "postgres"}));
    const auto answers = [] { return Ask(5499, std::string("\0\0\0\x08\x04\xD2\x16\x2F", 8)); }; // asks for TLS
    EXPECT_EQ(Do({"start", name}), name + ": running\n");
    EXPECT_THAT(answers(), testing::AnyOf("S", "N")) << "at once";
    // Its main process dies without a word; the others of its tree may not stay in the way of the next one.
    const pid_t first = StateFile().program;
    kill(first, SIGKILL);
    ASSERT_TRUE(WaitUntil([&] { return StateFile().program > 1 && StateFile().program != first; }));
    EXPECT_TRUE(WaitUntil([&] { return answers().size() == 1; })) << LogText();
    EXPECT_EQ(Do({"stop", name}), name + ": stopped\n");
    EXPECT_EQ(Status().at("exit").at("win32"), 0);
    EXPECT_THAT(LogText(), HasSubstr("database system is shut down"));
}

} // namespace
