// SPDX-License-Identifier: MIT
// Every record of the service daemon's protocol and of the protocol spoken to a service process: its bytes, written
// out by hand, and what becomes of it when they are cut, lied about, or too many for memory.
#include "tests/support/allocations.h"
#include "tests/support/wire.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <cstring>
#include <vector>

namespace {

// A status and its seven words.
constexpr svd_status_t status = {0x10, 4, 3, 1066, -2, 0x7FFFFFFF, 2000};
const std::string statusWords = Words({0x10, 4, 3, 1066, 0xFFFFFFFE, 0x7FFFFFFF, 2000});

// Lists of links on the stack.
svd_arglist_t thirdArgument = {Text("three"), nullptr};
svd_arglist_t secondArgument = {Text(""), &thirdArgument};
svd_arglist_t firstArgument = {Text("one"), &secondArgument};
const std::string argumentsFrom2 = XdrString("") + Words({1}) + XdrString("three") + Words({0});
const std::string arguments = XdrString("one") + Words({1}) + argumentsFrom2;

svd_enum_status_list_t secondEntry = {Text("B"), Text("Second one"), status, nullptr};
svd_enum_status_list_t firstEntry = {Text("Alerter"), Text(""), {}, &secondEntry};
const std::string entries = XdrString("Alerter") + XdrString("") + Words({0, 0, 0, 0, 0, 0, 0, 1}) + XdrString("B") +
                            XdrString("Second one") + statusWords + Words({0});

std::string noDependencies("\0", 1);
std::string dependencies("Base\0+Group\0\0", 13);
std::string highCharacters("\x80\xff", 2);

// Decodes what must not decode, and looks for what stayed behind.
template <typename Record>
void ExpectRefused(std::string_view bytes) {
    Record record = {};
    StartCounting();
    const bool decoded = DecodeRecord(bytes, record);
    const Allocations allocations = StopCounting();
    EXPECT_FALSE(decoded);
    EXPECT_EQ(allocations.live, 0) << "left behind";
    if (decoded) FreeRecord(&record);
}

template <typename Record>
void ExpectRefusedAtEveryCut(const std::string &bytes) {
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        SCOPED_TRACE("cut after " + std::to_string(size) + " bytes");
        ExpectRefused<Record>(std::string_view(bytes).substr(0, size));
    }
}

// Every word in turn becomes a huge number. Where it was a length or a list's marker, nothing of that size may be
// taken.
template <typename Record>
void ExpectNoTrustInLengths(const std::string &bytes) {
    for (const std::uint32_t lie : {0xFFFFFFFFu, 0xFFFFFFF0u, 0x7FFFFFFFu, 0x10000000u}) {
        for (std::size_t at = 0; at + 4 <= bytes.size(); at += 4) {
            SCOPED_TRACE("word at byte " + std::to_string(at));
            const std::string lying = bytes.substr(0, at) + Words({lie}) + bytes.substr(at + 4);
            Record record = {};
            StartCounting();
            if (DecodeRecord(lying, record)) FreeRecord(&record);
            const Allocations allocations = StopCounting();
            EXPECT_EQ(allocations.live, 0) << "left behind";
            EXPECT_LE(allocations.largest, 4097u);
        }
    }
}

template <typename Record>
void ExpectRefusedWithoutMemory(const std::string &bytes) {
    Record record = {};
    StartCounting();
    ASSERT_TRUE(DecodeRecord(bytes, record));
    const long requests = StopCounting().requests;
    FreeRecord(&record);
    for (long failing = 1; failing <= requests; ++failing) {
        SCOPED_TRACE("request " + std::to_string(failing) + " fails");
        Record again = {};
        StartCounting(failing);
        const bool decoded = DecodeRecord(bytes, again);
        const Allocations allocations = StopCounting();
        EXPECT_FALSE(decoded);
        EXPECT_EQ(allocations.live, 0) << "left behind";
    }
}

template <typename Record>
void ExpectBytes(Record record, const std::string &expected) {
    EXPECT_EQ(EncodeRecord(record), expected);

    Record decoded = {};
    std::size_t used = 0;
    StartCounting();
    ASSERT_TRUE(DecodeRecord(expected + "more", decoded, &used));
    EXPECT_EQ(used, expected.size());
    EXPECT_EQ(EncodeRecord(decoded), expected);
    FreeRecord(&decoded);
    EXPECT_EQ(StopCounting().live, 0);

    ExpectRefusedAtEveryCut<Record>(expected);
    ExpectNoTrustInLengths<Record>(expected);
    ExpectRefusedWithoutMemory<Record>(expected);
}

// --- shared records

TEST(svd_arglist_t, is_text_and_the_marker_of_the_next) { ExpectBytes(firstArgument, arguments); }
TEST(svd_status_t, is_seven_ints) { ExpectBytes(status, statusWords); }
TEST(svd_enum_status_list_t, is_both_names_the_status_and_the_marker_of_the_next) { ExpectBytes(firstEntry, entries); }

// --- the daemon's procedures

TEST(servd_SERV_CONNECT_SERVICE, bytes) {
    ExpectBytes(servd_SERV_CONNECT_SERVICE{.machineName = Text("host")}, XdrString("host"));
}

TEST(servd_SERV_CONNECT_SERVICE_RETURN, bytes) {
    ExpectBytes(servd_SERV_CONNECT_SERVICE_RETURN{.status = 1065}, Words({1065}));
}

TEST(servd_SERV_CREATE_SERVICE, bytes) {
    ExpectBytes(servd_SERV_CREATE_SERVICE{.name = Text("Spooler"),
                                          .displayName = Text("Print Spooler"),
                                          .serviceType = 0x10,
                                          .startType = 2,
                                          .errorControl = 0xFFFFFFFF,
                                          .imagePath = Text("/opt/spooler"),
                                          .group = Text(""),
                                          .dependencies = Chars(dependencies),
                                          .account = Text("lp"),
                                          .tagWanted = -1},
                XdrString("Spooler") + XdrString("Print Spooler") + Words({0x10, 2, 0xFFFFFFFF}) +
                    XdrString("/opt/spooler") + XdrString("") + CountedChars(dependencies) + XdrString("lp") +
                    Words({0xFFFFFFFF}));
}

TEST(servd_SERV_CREATE_SERVICE_RETURN, bytes) {
    ExpectBytes(servd_SERV_CREATE_SERVICE_RETURN{.status = 1073, .handle = -1, .tag = 0xFFFFFFFF},
                Words({1073, 0xFFFFFFFF, 0xFFFFFFFF}));
}

TEST(servd_SERV_OPEN_SERVICE, bytes) {
    ExpectBytes(servd_SERV_OPEN_SERVICE{.name = Text("abcd"), .desiredAccess = 0xF01FF},
                XdrString("abcd") + Words({0xF01FF}));
}

TEST(servd_SERV_OPEN_SERVICE_RETURN, bytes) {
    ExpectBytes(servd_SERV_OPEN_SERVICE_RETURN{.status = 0, .handle = 7}, Words({0, 7}));
}

TEST(servd_SERV_DELETE_SERVICE, bytes) { ExpectBytes(servd_SERV_DELETE_SERVICE{.handle = 7}, Words({7})); }
TEST(servd_SERV_DELETE_SERVICE_RETURN, bytes) {
    ExpectBytes(servd_SERV_DELETE_SERVICE_RETURN{.status = 1072}, Words({1072}));
}

TEST(servd_SERV_CLOSE_SERVICE, bytes) { ExpectBytes(servd_SERV_CLOSE_SERVICE{.handle = -2}, Words({0xFFFFFFFE})); }
TEST(servd_SERV_CLOSE_SERVICE_RETURN, bytes) { ExpectBytes(servd_SERV_CLOSE_SERVICE_RETURN{.status = 6}, Words({6})); }

TEST(servd_SERV_LOCK_SERVICE, bytes) {
    ExpectBytes(servd_SERV_LOCK_SERVICE{.lockId = 99, .owner = Text("me@here")}, Words({99}) + XdrString("me@here"));
}

TEST(servd_SERV_LOCK_SERVICE_RETURN, bytes) {
    ExpectBytes(servd_SERV_LOCK_SERVICE_RETURN{.status = 1055}, Words({1055}));
}

TEST(servd_SERV_UNLOCK_SERVICE, bytes) { ExpectBytes(servd_SERV_UNLOCK_SERVICE{.lockId = 99}, Words({99})); }
TEST(servd_SERV_UNLOCK_SERVICE_RETURN, bytes) {
    ExpectBytes(servd_SERV_UNLOCK_SERVICE_RETURN{.status = 1071}, Words({1071}));
}

TEST(servd_SERV_QUERY_LOCK_SERVICE, bytes) { ExpectBytes(servd_SERV_QUERY_LOCK_SERVICE{.unused = 0}, Words({0})); }
TEST(servd_SERV_QUERY_LOCK_SERVICE_RETURN, bytes) {
    ExpectBytes(
        servd_SERV_QUERY_LOCK_SERVICE_RETURN{.status = 0, .isLocked = 1, .owner = Text("me"), .lockDurationSec = 3600},
        Words({0, 1}) + XdrString("me") + Words({3600}));
}

TEST(servd_SERV_START_SERVICE, three_arguments) {
    ExpectBytes(servd_SERV_START_SERVICE{.handle = 5, .arglist = &firstArgument, .argc = 3},
                Words({5, 1}) + arguments + Words({3}));
}

TEST(servd_SERV_START_SERVICE, no_arguments_are_one_marker_whatever_the_count) {
    ExpectBytes(servd_SERV_START_SERVICE{.handle = 5, .arglist = nullptr, .argc = 2}, Words({5, 0, 2}));
}

TEST(servd_SERV_START_SERVICE_RETURN, bytes) {
    ExpectBytes(servd_SERV_START_SERVICE_RETURN{.status = 1053}, Words({1053}));
}

TEST(servd_SERV_CONTROL_SERVICE, bytes) {
    ExpectBytes(servd_SERV_CONTROL_SERVICE{.handle = 3, .control = 255}, Words({3, 255}));
}

TEST(servd_SERV_CONTROL_SERVICE_RETURN, bytes) {
    ExpectBytes(servd_SERV_CONTROL_SERVICE_RETURN{.status = 1062, .serviceStatus = status},
                Words({1062}) + statusWords);
}

TEST(servd_SERV_SET_STATUS_SERVICE, bytes) {
    ExpectBytes(servd_SERV_SET_STATUS_SERVICE{.handle = 3, .serviceStatus = status}, Words({3}) + statusWords);
}

TEST(servd_SERV_SET_STATUS_SERVICE_RETURN, bytes) {
    ExpectBytes(servd_SERV_SET_STATUS_SERVICE_RETURN{.status = 6}, Words({6}));
}

TEST(servd_SERV_DUMMY, bytes) { ExpectBytes(servd_SERV_DUMMY{.dummy = INT32_MAX}, Words({0x7FFFFFFF})); }
TEST(servd_SERV_DUMMY_RETURN, bytes) { ExpectBytes(servd_SERV_DUMMY_RETURN{.dummy = INT32_MIN}, Words({0x80000000})); }

TEST(servd_SERV_QUERY_STATUS_SERVICE, bytes) { ExpectBytes(servd_SERV_QUERY_STATUS_SERVICE{.handle = 1}, Words({1})); }
TEST(servd_SERV_QUERY_STATUS_SERVICE_RETURN, bytes) {
    ExpectBytes(servd_SERV_QUERY_STATUS_SERVICE_RETURN{.status = 0, .serviceStatus = status}, Words({0}) + statusWords);
}

TEST(servd_SERV_ENUM_STATUS_SERVICE, bytes) {
    ExpectBytes(
        servd_SERV_ENUM_STATUS_SERVICE{.resumeIndex = 49, .typeFilter = 0x30, .stateFilter = 3, .bufferBytes = 65536},
        Words({49, 0x30, 3, 65536}));
}

TEST(servd_SERV_ENUM_STATUS_SERVICE_RETURN, two_entries) {
    ExpectBytes(
        servd_SERV_ENUM_STATUS_SERVICE_RETURN{
            .status = 234, .bytesNeeded = 100, .servicesReturned = 2, .resumeIndex = 9, .services = &firstEntry},
        Words({234, 100, 2, 9, 1}) + entries);
}

TEST(servd_SERV_ENUM_STATUS_SERVICE_RETURN, no_entry_is_one_marker) {
    ExpectBytes(
        servd_SERV_ENUM_STATUS_SERVICE_RETURN{
            .status = 87, .bytesNeeded = 1, .servicesReturned = 2, .resumeIndex = 3, .services = nullptr},
        Words({87, 1, 2, 3, 0}));
}

TEST(EncodedEnumeration, its_bytes_are_those_of_the_answer_with_a_list) {
    std::vector<std::uint32_t> words(ListedNameWords(7, 0) + ListedNameWords(1, 10) + 2 * listedStatusWords,
                                     0xFFFFFFFF);
    std::uint32_t *at = PutListedNames(words.data(), "Alerter", "");
    EXPECT_EQ(at, words.data() + ListedNameWords(7, 0));
    at = PutListedStatus(at, {});
    EXPECT_EQ(at, words.data() + ListedNameWords(7, 0) + listedStatusWords);
    at = PutListedStatus(PutListedNames(at, "B", "Second one"), status);
    EXPECT_EQ(at, words.data() + words.size());
    const std::size_t bytes = words.size() * sizeof(std::uint32_t);
    EncodedEnumeration answer = {
        .words = {.status = 234, .bytesNeeded = 100, .servicesReturned = 2, .resumeIndex = 9, .services = nullptr},
        .services = reinterpret_cast<char *>(words.data()),
        .serviceBytes = bytes,
        .roomBytes = bytes};
    const std::string expected = Words({234, 100, 2, 9, 1}) + entries;
    EXPECT_EQ(EncodeRecord(answer), expected);
    for (std::size_t room = 0; room < expected.size(); ++room) {
        EXPECT_EQ(EncodeRecord(answer, room), "") << "in " << room << " bytes";
    }
}

TEST(EncodedEnumeration, without_services_it_ends_at_once) {
    EncodedEnumeration answer = {
        .words = {.status = 87, .bytesNeeded = 1, .servicesReturned = 2, .resumeIndex = 3, .services = nullptr},
        .services = nullptr,
        .serviceBytes = 0,
        .roomBytes = 0};
    EXPECT_EQ(EncodeRecord(answer), Words({87, 1, 2, 3, 0}));
}

TEST(servd_SERV_GET_DISPLAY_SERVICE, bytes) {
    ExpectBytes(servd_SERV_GET_DISPLAY_SERVICE{.name = Text("Spooler")}, XdrString("Spooler"));
}

TEST(servd_SERV_GET_DISPLAY_SERVICE_RETURN, bytes) {
    ExpectBytes(servd_SERV_GET_DISPLAY_SERVICE_RETURN{.status = 1060, .displayName = Text("Print")},
                Words({1060}) + XdrString("Print"));
}

TEST(servd_SERV_GET_KEY_SERVICE, bytes) {
    ExpectBytes(servd_SERV_GET_KEY_SERVICE{.displayName = Text("Print")}, XdrString("Print"));
}

TEST(servd_SERV_GET_KEY_SERVICE_RETURN, bytes) {
    ExpectBytes(servd_SERV_GET_KEY_SERVICE_RETURN{.status = 0, .name = Text("Spooler")},
                Words({0}) + XdrString("Spooler"));
}

TEST(servd_SERV_ENUM_DEPEND_SERVICE, bytes) {
    ExpectBytes(servd_SERV_ENUM_DEPEND_SERVICE{.handle = 4, .stateFilter = 1, .bufferBytes = -1},
                Words({4, 1, 0xFFFFFFFF}));
}

TEST(servd_SERV_ENUM_DEPEND_SERVICE_RETURN, bytes) {
    ExpectBytes(
        servd_SERV_ENUM_DEPEND_SERVICE_RETURN{
            .status = 0, .bytesNeeded = 0, .servicesReturned = 2, .services = &firstEntry},
        Words({0, 0, 2, 1}) + entries);
}

TEST(servd_SERV_QUERY_CONFIG_SERVICE, bytes) { ExpectBytes(servd_SERV_QUERY_CONFIG_SERVICE{.handle = 2}, Words({2})); }
TEST(servd_SERV_QUERY_CONFIG_SERVICE_RETURN, the_dependencies_keep_both_terminators) {
    ExpectBytes(servd_SERV_QUERY_CONFIG_SERVICE_RETURN{.status = 0,
                                                       .serviceType = 0x20,
                                                       .startType = 3,
                                                       .errorControl = 1,
                                                       .imagePath = Text("/opt/x"),
                                                       .group = Text("Base"),
                                                       .tag = 12,
                                                       .dependencies = Chars(dependencies),
                                                       .account = Text("lp"),
                                                       .displayName = Text("Print")},
                Words({0, 0x20, 3, 1}) + XdrString("/opt/x") + XdrString("Base") + Words({12}) +
                    CountedChars(dependencies) + XdrString("lp") + XdrString("Print"));
}

TEST(servd_SERV_CHANGE_CONFIG_SERVICE, bytes) {
    ExpectBytes(servd_SERV_CHANGE_CONFIG_SERVICE{.handle = 2,
                                                 .serviceType = 0xFFFFFFFF,
                                                 .startType = 4,
                                                 .errorControl = 0,
                                                 .imagePath = Chars(highCharacters),
                                                 .group = {},
                                                 .dependencies = Chars(dependencies),
                                                 .account = Chars(noDependencies),
                                                 .password = {},
                                                 .displayName = Chars(dependencies),
                                                 .tagWanted = 1},
                Words({2, 0xFFFFFFFF, 4, 0}) + Words({2, 0xFFFFFF80, 0xFFFFFFFF}) + Words({0}) +
                    CountedChars(dependencies) + Words({1, 0}) + Words({0}) + CountedChars(dependencies) + Words({1}));
}

TEST(servd_SERV_CHANGE_CONFIG_SERVICE_RETURN, bytes) {
    ExpectBytes(servd_SERV_CHANGE_CONFIG_SERVICE_RETURN{.status = 1078, .tag = 5}, Words({1078, 5}));
}

TEST(servd_STOP_DAEMON_SERVICE, bytes) { ExpectBytes(servd_STOP_DAEMON_SERVICE{.unused = 0}, Words({0})); }
TEST(servd_STOP_DAEMON_SERVICE_RETURN, bytes) {
    ExpectBytes(servd_STOP_DAEMON_SERVICE_RETURN{.unused = 0}, Words({0}));
}

// --- the service process's procedures

TEST(service_START_SERVICE_IN, three_arguments_are_three_links_the_last_without_a_next) {
    ExpectBytes(
        service_START_SERVICE_IN{
            .servicename = Text("Spooler"), .arglist = &firstArgument, .argc = 3, .serviceindex = 41},
        XdrString("Spooler") + Words({1}) + arguments + Words({3, 41}));
}

TEST(service_START_SERVICE_IN, no_arguments_are_one_marker_and_a_count_of_0) {
    ExpectBytes(
        service_START_SERVICE_IN{.servicename = Text("Spooler"), .arglist = nullptr, .argc = 0, .serviceindex = 41},
        XdrString("Spooler") + Words({0, 0, 41}));
}

TEST(service_START_SERVICE_OUT, bytes) {
    ExpectBytes(service_START_SERVICE_OUT{.status = 1056, .servicecontext = -3}, Words({1056, 0xFFFFFFFD}));
}

TEST(service_CONTROL_SERVICE_IN, bytes) {
    ExpectBytes(service_CONTROL_SERVICE_IN{.servicecontext = 17, .control = 128}, Words({17, 128}));
}

TEST(service_CONTROL_SERVICE_OUT, bytes) {
    ExpectBytes(service_CONTROL_SERVICE_OUT{.status = 1052, .svcstatus = status}, Words({1052}) + statusWords);
}

TEST(service_DUMMY_IN, bytes) { ExpectBytes(service_DUMMY_IN{.dummy = -1}, Words({0xFFFFFFFF})); }
TEST(service_DUMMY_OUT, bytes) { ExpectBytes(service_DUMMY_OUT{.dummy = 0}, Words({0})); }

TEST(start_arguments, from_a_client_travel_on_to_the_service_unchanged) {
    const std::string received = Words({5, 1}) + arguments + Words({3});
    servd_SERV_START_SERVICE request = {};
    ASSERT_TRUE(DecodeRecord(received, request));
    service_START_SERVICE_IN handedOn = {Text("S"), request.arglist, request.argc, request.handle};
    EXPECT_EQ(EncodeRecord(handedOn), XdrString("S") + Words({1}) + arguments + Words({3, 5}));
    FreeRecord(&request);
}

// --- what the library's generic routines would make of them

TEST(null_strings, travel_as_empty_ones) {
    servd_SERV_QUERY_LOCK_SERVICE_RETURN neverLocked = {};
    EXPECT_EQ(EncodeRecord(neverLocked), Words({0, 0, 0, 0}));
    servd_SERV_GET_DISPLAY_SERVICE_RETURN notFound = {1060, nullptr};
    EXPECT_EQ(EncodeRecord(notFound), Words({1060, 0}));
}

TEST(list_markers, any_number_but_0_announces_a_link) {
    servd_SERV_START_SERVICE request = {};
    ASSERT_TRUE(DecodeRecord(Words({5, 0xFFFFFFFF}) + XdrString("one") + Words({0, 3}), request));
    ASSERT_NE(request.arglist, nullptr);
    EXPECT_STREQ(request.arglist->arg, "one");
    EXPECT_EQ(request.arglist->next, nullptr);
    FreeRecord(&request);
}

// --- long lists on a small stack

constexpr std::size_t smallStackBytes = std::size_t{256} * 1024;
constexpr int manyLinks = 1000000;

void OnSmallStack(void *(*run)(void *), void *argument) {
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, smallStackBytes), 0);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, run, argument), 0);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    (void)pthread_attr_destroy(&attributes);
}

// Decodes, encodes and releases; the bytes must come back.
template <typename Record>
void *CodeOnThread(void *bytesOfRecord) {
    const std::string &bytes = *static_cast<std::string *>(bytesOfRecord);
    Record record = {};
    EXPECT_TRUE(DecodeRecord(bytes, record));
    EXPECT_TRUE(EncodeRecord(record, bytes.size()) == bytes);
    FreeRecord(&record);
    EXPECT_FALSE(DecodeRecord(std::string_view(bytes).substr(0, bytes.size() - 1), record)); // releases all links too
    return nullptr;
}

template <typename Record>
void ExpectLongListOnSmallStack(const std::string &front, const std::string &link, const std::string &back) {
    std::string bytes = front;
    for (int i = 0; i < manyLinks; ++i) {
        bytes += Words({1}) + link;
    }
    bytes += Words({0}) + back;
    OnSmallStack(CodeOnThread<Record>, &bytes);
}

TEST(million_links, as_start_arguments) {
    ExpectLongListOnSmallStack<servd_SERV_START_SERVICE>(Words({5}), XdrString("x"), Words({manyLinks}));
}

TEST(million_links, as_start_arguments_for_a_service) {
    ExpectLongListOnSmallStack<service_START_SERVICE_IN>(XdrString("S"), XdrString("x"), Words({manyLinks, 1}));
}

TEST(million_links, as_enumeration) {
    ExpectLongListOnSmallStack<servd_SERV_ENUM_STATUS_SERVICE_RETURN>(
        Words({0, 0, manyLinks, 0}), XdrString("S") + XdrString("D") + statusWords, "");
}

TEST(million_links, as_a_record_of_its_own) {
    std::string bytes = XdrString("first");
    for (int i = 1; i < manyLinks; ++i) {
        bytes += Words({1}) + XdrString("x");
    }
    bytes += Words({0});
    OnSmallStack(CodeOnThread<svd_arglist_t>, &bytes);
}

} // namespace
