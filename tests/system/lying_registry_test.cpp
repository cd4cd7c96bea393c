// SPDX-License-Identifier: MIT
// tvreg against a registry daemon whose answers never come to an end: each command ends by itself, with a message and a
// status of its own.
#include "registry/regd_xdr.h"
#include "tests/support/host.h"
#include "tests/support/records.h"
#include "tests/support/scripted_regd.h"
#include "tests/support/wire.h"
#include "tv/winreg.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <map>
#include <thread>
#include <utility>

namespace {

using testing::HasSubstr;

void Put(Bytes &bytes, std::uint32_t word) {
    for (const int shift : {24, 16, 8, 0}) {
        bytes.push_back(static_cast<std::uint8_t>(word >> shift));
    }
}

void Put(Bytes &bytes, const std::string &text) {
    Put(bytes, static_cast<std::uint32_t>(text.size()));
    bytes.insert(bytes.end(), text.begin(), text.end());
    bytes.resize((bytes.size() + 3) / 4 * 4);
}

template <typename... Fields>
WireAnswer Answer(const Fields &...fields) {
    WireAnswer answer;
    Put(answer.result, 1);
    (Put(answer.result, fields), ...);
    return answer;
}

constexpr std::uint32_t success = 0, noMoreItems = ERROR_NO_MORE_ITEMS, none = 0;

WireAnswer NoMoreItems() { return Answer(noMoreItems, std::string(), none, std::string(), none, none, none); }
WireAnswer Subkey(const std::string &name) {
    return Answer(success, name, static_cast<std::uint32_t>(name.size()), std::string(), none, none, none);
}
WireAnswer NoMoreValues() { return Answer(noMoreItems, std::string(), none, none, std::string(), none); }
WireAnswer Value(const std::string &name) {
    return Answer(success, name, static_cast<std::uint32_t>(name.size()), std::uint32_t{REG_SZ}, std::string("x"),
                  std::uint32_t{1});
}

struct LyingRegd : testing::Test {
    std::uint32_t items = 0;    // that a key says it has, of either kind
    std::uint32_t longest = 10; // as it says
    std::atomic<std::uint32_t> calls = 0;
    bool hasSubkeys = true;
    bool isResting = true; // the time of the last write stays the same
    std::vector<std::vector<std::string>> commands = {{"query", "-s"}, {"export"}, {"export", "--reg4"}, {"ls", "-r"}};
    std::function<WireAnswer()> subkey = NoMoreItems, value = NoMoreValues;

    WireAnswer AnswerTo(const WireCall &call) {
        ++calls;
        switch (call.procedure) {
        case REG_OPEN_KEY_EX: return Answer(success, std::uint32_t{7});
        case REG_QUERY_INFO_KEY:
            return Answer(success, std::string(), none, none, hasSubkeys ? items : none, longest, none, items, longest,
                          longest, none, isResting ? none : calls.load(), none, none);
        case REG_ENUM_KEY_EX: return subkey();
        case REG_ENUM_VALUE: return value();
        default: return Answer(success);
        }
    }
    void ExpectEnd(const std::string &message) {
        RegisterRegistryDaemon();
        const ScriptedRegd daemon("127.0.0.1", [this](const WireCall &call) { return AnswerTo(call); });
        for (const std::vector<std::string> &command : commands) {
            std::vector<std::string> arguments = command;
            arguments.insert(arguments.begin(), ProgramPath("tvreg"));
            arguments.emplace_back("HKLM");
            calls = 0;
            const Ended ended = RunAndRead({.command = arguments});
            EXPECT_EQ(ended.status, 1) << command.front();
            EXPECT_THAT(ended.error, HasSubstr(message)) << command.front();
            EXPECT_LT(calls, 10000u) << command.front();
        }
        UnregisterRegistryDaemon();
    }
};

constexpr char noEnd[] = ": what the registry daemon answers does not come to an end\n";

TEST_F(LyingRegd, the_same_subkey_for_ever) {
    subkey = [] { return Subkey("a"); };
    items = UINT32_MAX;
    ExpectEnd(noEnd);
}

TEST_F(LyingRegd, the_same_value_for_ever) {
    value = [] { return Value("a"); };
    items = UINT32_MAX;
    ExpectEnd(noEnd);
}

TEST_F(LyingRegd, more_subkeys_than_there_are) {
    subkey = [this] { return Subkey("a" + std::to_string(calls)); };
    items = 3;
    ExpectEnd(noEnd);
}

TEST_F(LyingRegd, more_values_than_there_are) {
    value = [this] { return Value("a" + std::to_string(calls)); };
    items = 3;
    ExpectEnd(noEnd);
}

TEST_F(LyingRegd, a_key_below_each_key) {
    subkey = [first = false]() mutable { return (first = !first) ? Subkey("a") : NoMoreItems(); };
    items = 1;
    ExpectEnd(noEnd);
}

TEST_F(LyingRegd, answers_without_a_body) {
    value = subkey = [] { return WireAnswer{Hex("00000000")}; };
    ExpectEnd(noEnd);
    value = NoMoreValues;
    ExpectEnd(": the registry daemon answers a subkey without a name\n");
}

TEST_F(LyingRegd, sizes_beyond_all_reason) {
    value = [this] { return Value("a" + std::to_string(calls)); };
    items = 3;
    longest = UINT32_MAX;
    ExpectEnd(noEnd);
}

TEST_F(LyingRegd, a_value_that_never_fits) {
    value = [this] {
        return Answer(std::uint32_t{ERROR_MORE_DATA}, std::string(), none, std::uint32_t{REG_SZ}, std::string(),
                      std::uint32_t{3'000'000} + calls);
    };
    items = 1;
    ExpectEnd("234 ERROR_MORE_DATA");
}

// Other clients may write for ever.
TEST_F(LyingRegd, a_key_that_never_rests) {
    commands = {{"export"}};
    isResting = false;
    ExpectEnd(": changes faster than it can be read\n");
}

// Each reading of the values ends where the key says, with other values: no two readings are one state.
TEST_F(LyingRegd, values_that_differ_each_time_under_a_time_that_stands_still) {
    commands = {{"export"}};
    items = 1;
    hasSubkeys = false;
    value = [this, n = 0]() mutable { return n++ % 2 == 0 ? Value("a" + std::to_string(calls)) : NoMoreValues(); };
    ExpectEnd("HKEY_LOCAL_MACHINE: changes faster than it can be read\n");
}

// The commands below meet a daemon that answers, but not as wished.
struct UnwillingRegd : testing::Test {
    std::string file = MakeScratchFolder() + "/file.reg";

    Ended Import(const WireHandler &handler, int *connections) {
        WriteFile(file, "REGEDIT4\n[HKLM\\a]\n\"v\"=\"x\"\n\"w\"=\"y\"\n\n[HKLM\\b]\n\"v\"=\"z\"\n");
        RegisterRegistryDaemon();
        const ScriptedRegd daemon("127.0.0.1", handler);
        const Ended ended = RunAndRead({.command = {ProgramPath("tvreg"), "import", file}});
        *connections = daemon.Connections();
        UnregisterRegistryDaemon();
        return ended;
    }
};

constexpr std::uint32_t accessDenied = ERROR_ACCESS_DENIED;

TEST_F(UnwillingRegd, import_tells_everything_that_is_refused_with_its_line) {
    int connections = 0;
    const Ended ended = Import(
        [](const WireCall &call) {
            if (call.procedure == REG_CREATE_KEY_EX) return Answer(success, std::uint32_t{7}, std::uint32_t{1});
            return call.procedure == REG_SET_VALUE_EX ? Answer(accessDenied) : Answer(success, std::uint32_t{7});
        },
        &connections);
    EXPECT_EQ(ended.status, 1);
    const std::string refused = "5 ERROR_ACCESS_DENIED";
    EXPECT_THAT(ended.error,
                testing::AllOf(HasSubstr("tvreg: " + file + ":3: HKEY_LOCAL_MACHINE\\a, value \"v\": " + refused),
                               HasSubstr("tvreg: " + file + ":4: HKEY_LOCAL_MACHINE\\a, value \"w\": " + refused),
                               HasSubstr("tvreg: " + file + ":7: HKEY_LOCAL_MACHINE\\b, value \"v\": " + refused)));
}

TEST_F(UnwillingRegd, import_goes_one_by_one_where_several_requests_at_once_are_not_taken) {
    int connections = 0, sets = 0;
    bool isFirst = true;
    const Ended ended = Import(
        [&](const WireCall &call) {
            if (call.procedure == REG_CREATE_KEY_EX) return Answer(success, std::uint32_t{7}, std::uint32_t{1});
            if (call.procedure != REG_SET_VALUE_EX) return Answer(success, std::uint32_t{7});
            WireAnswer answer = Answer(success);
            if (std::exchange(isFirst, false)) {
                answer.cutAfter = 0;
            } else {
                ++sets;
            }
            return answer;
        },
        &connections);
    EXPECT_EQ(ended.status, 0) << ended.error;
    EXPECT_EQ(ended.output, "2 keys, 3 values written\n");
    EXPECT_EQ(sets, 3);
    EXPECT_EQ(connections, 2);
}

// An answered read tells how much there is, which is no room of anybody's.
TEST(CutRegd, reads_that_were_answered_before_the_connection_broke_are_not_asked_again) {
    constexpr std::uint32_t mostTextBytes = 1024, tooMany = 5000;
    std::map<std::string, int> asked;
    std::uint32_t mostRoom = 0;
    bool isCut = false;
    const WireHandler handler = [&](const WireCall &call) {
        const std::string_view argument(reinterpret_cast<const char *>(call.argument.data()), call.argument.size());
        if (call.procedure == REG_ENUM_KEY_EX) {
            Decoded<regd_REG_ENUM_KEY_EX> next;
            EXPECT_TRUE(DecodeRecord(argument, *next));
            return next->index == 0 ? Subkey("web") : NoMoreItems();
        }
        if (call.procedure != REG_QUERY_VALUE_EX) return Answer(success, std::uint32_t{7});
        Decoded<regd_REG_QUERY_VALUE_EX> query;
        EXPECT_TRUE(DecodeRecord(argument, *query));
        mostRoom = std::max(mostRoom, query->dataBytes);
        ++asked[query->valueName];
        WireAnswer answer = Answer(std::uint32_t{ERROR_MORE_DATA}, std::uint32_t{REG_SZ}, std::string(), tooMany);
        if (asked.size() == 4 && !std::exchange(isCut, true)) {
            // With requests unread the end is a reset, which would take along what the other side has not read.
            std::this_thread::sleep_for(std::chrono::milliseconds(300));
            answer.cutAfter = 0;
        }
        return answer;
    };
    RegisterRegistryDaemon();
    {
        const ScriptedRegd daemon("127.0.0.1", handler);
        const Ended ended = RunAndRead({.command = {ProgramPath("tvreg"), "lint"}});
        EXPECT_NE(ended.status, 0);
        EXPECT_EQ(daemon.Connections(), 2);
    }
    UnregisterRegistryDaemon();
    EXPECT_TRUE(isCut);
    EXPECT_EQ(asked["DeleteFlag"], 1);
    EXPECT_LE(mostRoom, mostTextBytes);
}

} // namespace
