// SPDX-License-Identifier: MIT
// Where the events of programs go: into the systemd journal, for which this test stands in at its socket, and through
// libsystemd itself; into syslog(3) where there is no journal.
#include "tests/support/win32_handle.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdarg>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

namespace {

std::vector<std::pair<int, std::string>> syslogLines; // priority and text

} // namespace

// Stands before the function of libc.
void syslog(int priority, const char *format, ...) {
    char line[1024];
    va_list arguments;
    va_start(arguments, format);
    (void)vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    syslogLines.emplace_back(priority, line);
}

namespace {

constexpr char journalFolder[] = "/run/systemd/journal";
constexpr char journalSocket[] = "/run/systemd/journal/socket";

using Fields = std::multimap<std::string, std::string>;

// An entry as it travels: "NAME=value" lines, or a name alone on its line with the size of the value in eight bytes,
// the lowest first, and the value behind it.
Fields Parse(std::string_view bytes) {
    Fields fields;
    while (!bytes.empty()) {
        const std::size_t line = bytes.find('\n');
        const std::size_t equals = bytes.find('=');
        if (equals < line) {
            fields.emplace(bytes.substr(0, equals), bytes.substr(equals + 1, line - equals - 1));
            bytes.remove_prefix(line + 1);
            continue;
        }
        std::uint64_t size = 0;
        std::memcpy(&size, bytes.data() + line + 1, sizeof size);
        const std::size_t begin = line + 1 + sizeof size;
        fields.emplace(bytes.substr(0, line), bytes.substr(begin, static_cast<std::size_t>(size)));
        bytes.remove_prefix(begin + static_cast<std::size_t>(size) + 1);
    }
    return fields;
}

// The receiving end of the journal.
struct Journal {
    int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);

    Journal() {
        std::filesystem::create_directories(journalFolder);
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, journalSocket);
        EXPECT_EQ(bind(socket, reinterpret_cast<sockaddr *>(&address), sizeof address), 0) << strerror(errno);
    }
    Journal(const Journal &) = delete;
    Journal &operator=(const Journal &) = delete;
    ~Journal() {
        (void)close(socket);
        (void)unlink(journalSocket);
    }

    // The next entry; empty when none has come.
    [[nodiscard]] Fields Receive() const {
        pollfd readable = {socket, POLLIN, 0};
        if (poll(&readable, 1, 0) != 1) return {};
        std::vector<char> bytes(1 << 20);
        const ssize_t length = recv(socket, bytes.data(), bytes.size(), 0);
        return length < 0 ? Fields() : Parse({bytes.data(), static_cast<std::size_t>(length)});
    }
};

struct EventLog : testing::Test {
    Handle log{RegisterEventSourceA(nullptr, "web server"), &DeregisterEventSource};
    EventLog() { syslogLines.clear(); }

    [[nodiscard]] BOOL Report(WORD type, DWORD id, std::vector<LPCSTR> strings, std::string data = "") const {
        return ReportEventA(log.handle, type, 12, id, nullptr, static_cast<WORD>(strings.size()),
                            static_cast<DWORD>(data.size()), strings.data(), data.data());
    }
};

struct JournalLog : EventLog {
    Journal journal;
    void SetUp() override {
        void *library = dlopen("libsystemd.so.0", RTLD_NOW);
        if (library == nullptr) GTEST_SKIP() << "libsystemd is not installed for this word size";
        (void)dlclose(library);
    }
};

TEST_F(JournalLog, an_event_is_one_entry_with_everything_in_fields) {
    ASSERT_TRUE(Report(EVENTLOG_WARNING_TYPE, 0x400003E8, {"disk /var", "90% full"}, std::string("\0\n=\xFF", 4)))
        << GetLastError();
    EXPECT_THAT(journal.Receive(),
                UnorderedElementsAre(Pair("MESSAGE", "disk /var 90% full"), Pair("PRIORITY", "4"),
                                     Pair("SYSLOG_IDENTIFIER", "web server"), Pair("TV_EVENT_ID", "1073742824"),
                                     Pair("TV_EVENT_TYPE", "warning"), Pair("TV_EVENT_CATEGORY", "12"),
                                     Pair("TV_EVENT_STRING_1", "disk /var"), Pair("TV_EVENT_STRING_2", "90% full"),
                                     Pair("TV_EVENT_DATA", std::string("\0\n=\xFF", 4))));
    EXPECT_THAT(journal.Receive(), IsEmpty());
    EXPECT_THAT(syslogLines, IsEmpty());
}

TEST_F(JournalLog, lines_and_equals_signs_in_a_string_stay_in_their_field) {
    ASSERT_TRUE(Report(EVENTLOG_ERROR_TYPE, 1, {"one\nPRIORITY=0\ntwo", "a=b"}));
    const Fields fields = journal.Receive();
    EXPECT_EQ(fields.count("PRIORITY"), 1u);
    EXPECT_EQ(fields.find("PRIORITY")->second, "3");
    EXPECT_EQ(fields.find("TV_EVENT_STRING_1")->second, "one\nPRIORITY=0\ntwo");
    EXPECT_EQ(fields.find("TV_EVENT_STRING_2")->second, "a=b");
}

TEST_F(JournalLog, each_type_has_its_priority) {
    const std::tuple<WORD, const char *, const char *> types[] = {
        {EVENTLOG_SUCCESS, "6", "success"},
        {EVENTLOG_ERROR_TYPE, "3", "error"},
        {EVENTLOG_WARNING_TYPE, "4", "warning"},
        {EVENTLOG_INFORMATION_TYPE, "6", "information"},
        {EVENTLOG_AUDIT_SUCCESS, "6", "audit_success"},
        {EVENTLOG_AUDIT_FAILURE, "5", "audit_failure"},
    };
    for (const auto &[type, priority, name] : types) {
        ASSERT_TRUE(Report(type, 1, {}));
        const Fields fields = journal.Receive();
        EXPECT_EQ(fields.find("PRIORITY")->second, priority);
        EXPECT_EQ(fields.find("TV_EVENT_TYPE")->second, name);
        EXPECT_EQ(fields.find("MESSAGE")->second, "event 1");
    }
}

TEST_F(JournalLog, wide_strings_arrive_in_UTF_8) {
    const Handle wide(RegisterEventSourceW(nullptr, Wide(u"\u00E4")), &DeregisterEventSource);
    LPCWSTR strings[] = {Wide(u"\u20AC 5")};
    ASSERT_TRUE(ReportEventW(wide.handle, EVENTLOG_ERROR_TYPE, 0, 2, nullptr, 1, 0, strings, nullptr));
    const Fields fields = journal.Receive();
    EXPECT_EQ(fields.find("MESSAGE")->second, "\xE2\x82\xAC 5");
    EXPECT_EQ(fields.find("SYSLOG_IDENTIFIER")->second, "\xC3\xA4");
}

TEST_F(JournalLog, all_256_strings_arrive) {
    ASSERT_TRUE(Report(EVENTLOG_ERROR_TYPE, 1, std::vector<LPCSTR>(256, "x")));
    EXPECT_EQ(journal.Receive().count("TV_EVENT_STRING_256"), 1u);
}

TEST_F(JournalLog, a_journal_that_refuses_the_entry_is_29) {
    (void)shutdown(journal.socket, SHUT_RD);
    EXPECT_CODE(Report(EVENTLOG_ERROR_TYPE, 1, {"x"}), ERROR_WRITE_FAULT);
}

TEST_F(EventLog, without_a_journal_is_a_line_of_syslog) {
    ASSERT_FALSE(std::filesystem::exists(journalSocket));
    ASSERT_TRUE(Report(EVENTLOG_ERROR_TYPE, 7, {"100%s", "more"}));
    ASSERT_TRUE(Report(EVENTLOG_INFORMATION_TYPE, 7, {}));
    EXPECT_THAT(syslogLines, ElementsAre(Pair(LOG_USER | LOG_ERR, "web server: 100%s more"),
                                         Pair(LOG_USER | LOG_INFO, "web server: event 7")));
}

TEST_F(EventLog, what_is_missing_or_too_much_is_87) {
    EXPECT_CODE(Report(EVENTLOG_ERROR_TYPE, 1, std::vector<LPCSTR>(257, "x")), ERROR_INVALID_PARAMETER);
    EXPECT_CODE(Report(EVENTLOG_ERROR_TYPE, 1, {"x", nullptr}), ERROR_INVALID_PARAMETER);
    EXPECT_CODE(Report(3, 1, {"x"}), ERROR_INVALID_PARAMETER);
    EXPECT_CODE(ReportEventA(log.handle, 1, 0, 1, nullptr, 1, 0, nullptr, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_CODE(ReportEventA(log.handle, 1, 0, 1, nullptr, 0, 1, nullptr, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_CODE(ReportEventW(log.handle, 1, 0, 1, nullptr, 1, 0, nullptr, nullptr), ERROR_INVALID_PARAMETER);
    const WCHAR half[] = {0xD800, 0};
    LPCWSTR strings[] = {half};
    EXPECT_CODE(ReportEventW(log.handle, 1, 0, 1, nullptr, 1, 0, strings, nullptr), ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_THAT(syslogLines, IsEmpty());
}

TEST_F(EventLog, sources_that_cannot_be) {
    EXPECT_CODE(RegisterEventSourceA(nullptr, nullptr) != nullptr, ERROR_INVALID_PARAMETER);
    EXPECT_CODE(RegisterEventSourceA(nullptr, "") != nullptr, ERROR_INVALID_PARAMETER);
    EXPECT_CODE(RegisterEventSourceA("\\\\other", "x") != nullptr, RPC_S_SERVER_UNAVAILABLE);
    EXPECT_CODE(RegisterEventSourceW(Wide(u"\\\\other"), Wide(u"x")) != nullptr, RPC_S_SERVER_UNAVAILABLE);
    EXPECT_CODE(RegisterEventSourceW(nullptr, nullptr) != nullptr, ERROR_INVALID_PARAMETER);
}

TEST_F(EventLog, handles_are_of_their_kind_and_closed_once) {
    const HANDLE source = RegisterEventSourceA(nullptr, "x");
    const Handle event(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    EXPECT_CODE(CloseHandle(source), ERROR_INVALID_HANDLE);
    EXPECT_CODE(DeregisterEventSource(event.handle), ERROR_INVALID_HANDLE);
    EXPECT_CODE(ReportEventA(event.handle, 1, 0, 1, nullptr, 0, 0, nullptr, nullptr), ERROR_INVALID_HANDLE);
    EXPECT_TRUE(DeregisterEventSource(source));
    EXPECT_CODE(DeregisterEventSource(source), ERROR_INVALID_HANDLE);
    EXPECT_CODE(ReportEventA(source, 1, 0, 1, nullptr, 0, 0, nullptr, nullptr), ERROR_INVALID_HANDLE);
}

} // namespace
