// SPDX-License-Identifier: MIT
// The registry daemon over TCP: every procedure with records of the protocol, and what lies around the procedures.
#include "tests/support/host.h"
#include "tests/support/raw_rpc.h"
#include "tv/winreg.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <grp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <functional>
#include <thread>

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

// A connection to the daemon between two addresses of this host.
raw::Socket ConnectBetween(const char *from, const char *to) {
    raw::Socket connection(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in own = {}, peer = {};
    own.sin_family = peer.sin_family = AF_INET;
    EXPECT_EQ(inet_pton(AF_INET, from, &own.sin_addr), 1);
    EXPECT_EQ(inet_pton(AF_INET, to, &peer.sin_addr), 1);
    peer.sin_port = htons(raw::PortOf(REGDAEMONPROG, REGDAEMONVERS));
    EXPECT_EQ(bind(connection.descriptor, reinterpret_cast<sockaddr *>(&own), sizeof own), 0);
    EXPECT_EQ(connect(connection.descriptor, reinterpret_cast<sockaddr *>(&peer), sizeof peer), 0);
    return connection;
}

// Whether the null procedure is answered there.
bool IsServed(const raw::Socket &connection) {
    (void)raw::Send(connection, raw::AsMessage(raw::Call(7, REGDAEMONPROG, REGDAEMONVERS, NULLPROC)));
    return raw::WordOf(raw::ReadMessage(connection), 0) == 7;
}

constexpr std::uint32_t notThere = 0x000FFFFF; // a handle that is never given out here

template <typename Record>
Record For(std::uint32_t key) {
    Record record = {};
    record.key = key;
    return record;
}

// One daemon for the whole program; a key of its own and a connection for each test.
struct RegistryOverTcp : testing::Test {
    static inline std::string database;
    static inline pid_t daemon = 0;

    static void SetUpTestSuite() {
        database = MakeScratchFolder() + "/registry.db";
        daemon = StartRegistryDaemon(database);
    }
    static void TearDownTestSuite() { EXPECT_EQ(StopDaemon(daemon), 0); }

    void KillAndRestart() {
        EXPECT_EQ(StopDaemon(daemon, SIGKILL), SIGKILL);
        daemon = StartRegistryDaemon(database);
        client = DialRegistryDaemon();
    }

    RpcClient client = DialRegistryDaemon();
    std::uint32_t top = Make(HKEY_LOCAL_MACHINE, testing::UnitTest::GetInstance()->current_test_info()->name());

    template <typename Argument>
    Decoded<ResultOf<Argument>> Call(const Argument &argument) {
        auto result = CallForAnswer(client.get(), argument);
        EXPECT_EQ(result->discriminant, 1);
        return result;
    }
    template <typename Argument>
    std::uint32_t Status(const Argument &argument) {
        return Call(argument)->body.status;
    }

    Decoded<regd_REG_CREATE_KEY_RES> Create(std::uint32_t key, const char *path, const char *keyClass = nullptr,
                                            std::uint32_t options = 0) {
        auto argument = For<regd_REG_CREATE_KEY_EX>(key);
        argument.subKey = Text(path != nullptr ? path : "SubKeyIsNull");
        argument.subKeyIsNull = path == nullptr;
        argument.keyClass = Text(keyClass != nullptr ? keyClass : "classIsNull");
        argument.classIsNull = keyClass == nullptr;
        argument.options = options;
        return Call(argument);
    }
    std::uint32_t Make(std::uint32_t key, const char *path, const char *keyClass = nullptr) {
        auto made = Create(key, path, keyClass);
        EXPECT_EQ(made->body.status, 0u);
        return made->body.key;
    }
    Decoded<regd_REG_OPEN_KEY_RES> Open(std::uint32_t key, const char *path) {
        auto argument = For<regd_REG_OPEN_KEY_EX>(key);
        argument.subKey = Text(path != nullptr ? path : "SubKeyIsNull");
        argument.subKeyIsNull = path == nullptr;
        return Call(argument);
    }
    std::uint32_t Delete(std::uint32_t key, const char *path) {
        auto argument = For<regd_REG_DELETE_KEY>(key);
        argument.subKey = Text(path);
        return Status(argument);
    }
    std::uint32_t Set(std::uint32_t key, const char *name, std::string data, std::uint32_t type = REG_SZ) {
        auto argument = For<regd_REG_SET_VALUE_EX>(key);
        argument.valueName = Text(name != nullptr ? name : "SubKeyIsNull");
        argument.nameIsNull = name == nullptr;
        argument.type = type;
        argument.data = {static_cast<std::uint32_t>(data.size()), data.data()};
        argument.dataBytes = argument.data.count;
        return Status(argument);
    }
    Decoded<regd_REG_QUERY_VALUE_RES> Query(std::uint32_t key, const char *name, std::uint32_t dataBytes = 4096,
                                            bool dataIsNull = false) {
        auto argument = For<regd_REG_QUERY_VALUE_EX>(key);
        argument.valueName = Text(name != nullptr ? name : "SubKeyIsNull");
        argument.nameIsNull = name == nullptr;
        argument.dataBytes = dataBytes;
        argument.dataIsNull = dataIsNull;
        return Call(argument);
    }
    Decoded<regd_REG_ENUM_KEY_RES> EnumKey(std::uint32_t key, std::uint32_t index, std::uint32_t nameBytes = 1024,
                                           std::uint32_t classBytes = 0) {
        auto argument = For<regd_REG_ENUM_KEY_EX>(key);
        argument.index = index;
        argument.nameBytes = nameBytes;
        argument.classBytes = classBytes;
        return Call(argument);
    }
    Decoded<regd_REG_ENUM_VALUE_RES> EnumValue(std::uint32_t key, std::uint32_t index, std::uint32_t nameBytes = 1024,
                                               std::uint32_t dataBytes = 4096) {
        auto argument = For<regd_REG_ENUM_VALUE>(key);
        argument.index = index;
        argument.nameBytes = nameBytes;
        argument.dataBytes = dataBytes;
        return Call(argument);
    }
    Decoded<regd_REG_QUERY_INFO_KEY_RES> Info(std::uint32_t key) { return Call(For<regd_REG_QUERY_INFO_KEY>(key)); }
};

} // namespace

// --- keys ----------------------------------------------------------------------------------------------------------

TEST_F(RegistryOverTcp, create_key_ex_tells_new_from_existing_and_keeps_the_class) {
    auto made = Create(top, "a\\b", "kind");
    EXPECT_EQ(made->body.status, 0u);
    EXPECT_EQ(made->body.disposition, REG_CREATED_NEW_KEY);
    EXPECT_EQ(made->body.key & 0x0FF00000, 0u);
    auto again = Create(top, "A\\B", "other");
    EXPECT_EQ(again->body.disposition, REG_OPENED_EXISTING_KEY);
    EXPECT_EQ(again->body.key, made->body.key);
    EXPECT_STREQ(Info(made->body.key)->body.keyClass, "kind");
}

TEST_F(RegistryOverTcp, create_key_ex_with_the_null_flag_opens_the_key_itself) {
    auto same = Create(top, nullptr);
    EXPECT_EQ(same->body.status, 0u);
    EXPECT_EQ(same->body.key, top);
    EXPECT_EQ(same->body.disposition, REG_OPENED_EXISTING_KEY);
}

TEST_F(RegistryOverTcp, placeholder_text_without_the_flag_is_a_name_like_any_other) {
    auto made = Create(top, "SubKeyIsNull", "classIsNull");
    EXPECT_EQ(made->body.disposition, REG_CREATED_NEW_KEY);
    EXPECT_STREQ(EnumKey(top, 0)->body.name, "SubKeyIsNull");
    EXPECT_STREQ(Info(made->body.key)->body.keyClass, "classIsNull");
    EXPECT_EQ(Set(top, "SubKeyIsNull", "x"), 0u);
    EXPECT_STREQ(EnumValue(top, 0)->body.name, "SubKeyIsNull");
}

TEST_F(RegistryOverTcp, create_key_makes_and_opens_and_honours_the_null_flag) {
    auto argument = For<regd_REG_CREATE_KEY>(top);
    argument.subKey = Text("x\\y");
    auto made = Call(argument);
    EXPECT_EQ(made->body.status, 0u);
    EXPECT_EQ(made->body.disposition, REG_CREATED_NEW_KEY);
    EXPECT_EQ(Open(top, "x\\y")->body.key, made->body.key);
    argument.subKeyIsNull = 1;
    EXPECT_EQ(Call(argument)->body.key, top);
}

TEST_F(RegistryOverTcp, create_key_ex_answers_the_codes_of_its_failures) {
    EXPECT_EQ(Create(notThere, "x")->body.status, static_cast<std::uint32_t>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(Create(top, "\\x")->body.status, static_cast<std::uint32_t>(ERROR_BAD_PATHNAME));
    EXPECT_EQ(Create(top, "x", nullptr, 4)->body.status, static_cast<std::uint32_t>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(Create(top, std::string(1024, 'x').c_str())->body.status,
              static_cast<std::uint32_t>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(EnumKey(top, 0)->body.status, static_cast<std::uint32_t>(ERROR_NO_MORE_ITEMS));
}

TEST_F(RegistryOverTcp, open_key_opens_a_path_and_the_key_itself_for_an_empty_one) {
    const std::uint32_t made = Make(top, "a\\b");
    auto argument = For<regd_REG_OPEN_KEY>(top);
    argument.subKey = Text("A\\b");
    EXPECT_EQ(Call(argument)->body.key, made);
    argument.subKey = Text("");
    EXPECT_EQ(Call(argument)->body.key, top);
    argument.subKey = Text("nothing");
    EXPECT_EQ(Call(argument)->body.status, static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
}

TEST_F(RegistryOverTcp, open_key_ex_answers_2_6_161_and_the_key_itself_for_the_null_flag) {
    EXPECT_EQ(Open(top, nullptr)->body.key, top);
    EXPECT_EQ(Open(top, "nothing")->body.status, static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(Open(top, "\\")->body.status, static_cast<std::uint32_t>(ERROR_BAD_PATHNAME));
    EXPECT_EQ(Open(notThere, "x")->body.status, static_cast<std::uint32_t>(ERROR_INVALID_HANDLE));
    for (std::uint32_t root = HKEY_CLASSES_ROOT; root <= HKEY_DYN_DATA; ++root) {
        EXPECT_EQ(Open(root, nullptr)->body.key, root);
    }
}

TEST_F(RegistryOverTcp, close_key_answers_0_as_often_as_it_is_asked_and_6_for_no_handle) {
    EXPECT_EQ(Status(For<regd_REG_CLOSE_KEY>(top)), 0u);
    EXPECT_EQ(Status(For<regd_REG_CLOSE_KEY>(top)), 0u);
    EXPECT_EQ(Status(For<regd_REG_CLOSE_KEY>(HKEY_USERS)), 0u);
    EXPECT_EQ(Status(For<regd_REG_CLOSE_KEY>(notThere)), static_cast<std::uint32_t>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(Status(For<regd_REG_FLUSH_KEY>(top)), 0u);
    EXPECT_EQ(Status(For<regd_REG_FLUSH_KEY>(notThere)), static_cast<std::uint32_t>(ERROR_INVALID_HANDLE));
}

TEST_F(RegistryOverTcp, delete_key_takes_what_is_below_and_answers_2_for_nothing_5_for_a_root) {
    const std::uint32_t below = Make(top, "a\\b\\c");
    EXPECT_EQ(Delete(top, "A"), 0u);
    EXPECT_EQ(Open(top, "a")->body.status, static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(Open(below, nullptr)->body.status, static_cast<std::uint32_t>(ERROR_KEY_DELETED));
    EXPECT_EQ(Set(below, "v", "x"), static_cast<std::uint32_t>(ERROR_KEY_DELETED));
    EXPECT_EQ(Status(For<regd_REG_CLOSE_KEY>(below)), 0u);
    EXPECT_EQ(Delete(top, "a"), static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(Delete(HKEY_DYN_DATA, ""), static_cast<std::uint32_t>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(Delete(top, ""), 0u);
    EXPECT_EQ(Open(top, nullptr)->body.status, static_cast<std::uint32_t>(ERROR_KEY_DELETED));
}

TEST_F(RegistryOverTcp, keys_are_listed_in_the_order_of_creation_and_move_down_after_a_deletion) {
    for (const char *name : {"z", "A", "m"}) {
        (void)Make(top, name);
    }
    EXPECT_STREQ(EnumKey(top, 0)->body.name, "z");
    EXPECT_EQ(Delete(top, "z"), 0u);
    EXPECT_STREQ(EnumKey(top, 0)->body.name, "A");
    EXPECT_STREQ(EnumKey(top, 1)->body.name, "m");
    EXPECT_EQ(EnumKey(top, 2)->body.status, static_cast<std::uint32_t>(ERROR_NO_MORE_ITEMS));
    EXPECT_EQ(EnumKey(top, 0xFFFFFFFF)->body.status, static_cast<std::uint32_t>(ERROR_NO_MORE_ITEMS));
    EXPECT_EQ(EnumKey(notThere, 0)->body.status, static_cast<std::uint32_t>(ERROR_INVALID_HANDLE));
}

TEST_F(RegistryOverTcp, enum_key_ex_fits_names_and_classes_with_their_terminators) {
    (void)Make(top, "four", "class");
    auto fits = EnumKey(top, 0, 5, 6);
    EXPECT_EQ(fits->body.status, 0u);
    EXPECT_STREQ(fits->body.name, "four");
    EXPECT_EQ(fits->body.nameLength, 4u);
    EXPECT_STREQ(fits->body.keyClass, "class");
    EXPECT_EQ(fits->body.classLength, 5u);
    const std::uint64_t time = std::uint64_t{fits->body.lastWriteTime.high} << 32 | fits->body.lastWriteTime.low;
    EXPECT_GT(time, 132'000'000'000'000'000u);

    auto shortName = EnumKey(top, 0, 4, 6);
    EXPECT_EQ(shortName->body.status, static_cast<std::uint32_t>(ERROR_MORE_DATA));
    EXPECT_EQ(shortName->body.nameLength, 4u);
    EXPECT_STREQ(shortName->body.name, "");
    auto shortClass = EnumKey(top, 0, 5, 5);
    EXPECT_EQ(shortClass->body.status, static_cast<std::uint32_t>(ERROR_MORE_DATA));
    EXPECT_EQ(shortClass->body.classLength, 5u);
    EXPECT_STREQ(shortClass->body.keyClass, "");
    auto noClass = EnumKey(top, 0, 5, 0);
    EXPECT_EQ(noClass->body.status, 0u);
    EXPECT_EQ(noClass->body.classLength, 5u);
}

TEST_F(RegistryOverTcp, enum_key_lists_names_only) {
    (void)Make(top, "four", "class");
    auto argument = For<regd_REG_ENUM_KEY>(top);
    argument.nameBytes = 5;
    auto fits = Call(argument);
    EXPECT_EQ(fits->body.status, 0u);
    EXPECT_STREQ(fits->body.name, "four");
    EXPECT_STREQ(fits->body.keyClass, "");
    argument.nameBytes = 4;
    EXPECT_EQ(Call(argument)->body.status, static_cast<std::uint32_t>(ERROR_MORE_DATA));
}

TEST_F(RegistryOverTcp, query_info_key_counts_and_measures) {
    const std::uint32_t key = Make(top, "k", "its class");
    (void)Make(key, "one", "cc");
    (void)Make(key, "three");
    EXPECT_EQ(Set(key, "name", "12345"), 0u);
    EXPECT_EQ(Set(key, "n", "1234567"), 0u);
    auto info = Info(key);
    EXPECT_EQ(info->body.status, 0u);
    EXPECT_STREQ(info->body.keyClass, "its class");
    EXPECT_EQ(info->body.classLength, 9u);
    EXPECT_EQ(info->body.classIsNull, 0u);
    EXPECT_EQ(info->body.subKeys, 2u);
    EXPECT_EQ(info->body.maxSubKeyLength, 5u);
    EXPECT_EQ(info->body.maxClassLength, 2u);
    EXPECT_EQ(info->body.values, 2u);
    EXPECT_EQ(info->body.maxValueNameLength, 4u);
    EXPECT_EQ(info->body.maxValueBytes, 7u);
    EXPECT_EQ(info->body.securityDescriptorBytes, 0u);
    EXPECT_NE(info->body.lastWriteTime.high, 0u);
    auto plain = Info(top);
    EXPECT_EQ(plain->body.classIsNull, 1u);
    EXPECT_EQ(plain->body.classLength, 0u);
    EXPECT_EQ(Info(notThere)->body.status, static_cast<std::uint32_t>(ERROR_INVALID_HANDLE));
}

// --- values --------------------------------------------------------------------------------------------------------

TEST_F(RegistryOverTcp, values_come_back_with_their_bytes_and_types) {
    const std::string bytes("\0\x01\xFF", 3);
    EXPECT_EQ(Set(top, "odd", bytes, 77), 0u);
    auto answer = Query(top, "ODD");
    EXPECT_EQ(answer->body.status, 0u);
    EXPECT_EQ(answer->body.type, 77u);
    EXPECT_EQ(answer->body.dataBytes, 3u);
    EXPECT_EQ(StringOf(answer->body.data), bytes);
}

TEST_F(RegistryOverTcp, query_value_ex_answers_234_with_the_size_when_the_buffer_is_too_small) {
    EXPECT_EQ(Set(top, "v", "12345678", REG_BINARY), 0u);
    EXPECT_EQ(Query(top, "v", 8)->body.status, 0u);
    auto small = Query(top, "v", 7);
    EXPECT_EQ(small->body.status, static_cast<std::uint32_t>(ERROR_MORE_DATA));
    EXPECT_EQ(small->body.dataBytes, 8u);
    EXPECT_EQ(small->body.type, REG_BINARY);
    EXPECT_EQ(small->body.data.count, 0u);
    auto none = Query(top, "v", 0);
    EXPECT_EQ(none->body.status, static_cast<std::uint32_t>(ERROR_MORE_DATA));
}

TEST_F(RegistryOverTcp, query_value_ex_without_a_buffer_tells_the_size) {
    EXPECT_EQ(Set(top, "v", "12345678", REG_BINARY), 0u);
    auto size = Query(top, "v", 0, true);
    EXPECT_EQ(size->body.status, 0u);
    EXPECT_EQ(size->body.dataBytes, 8u);
    EXPECT_EQ(size->body.type, REG_BINARY);
    EXPECT_EQ(size->body.data.count, 0u);
}

TEST_F(RegistryOverTcp, query_value_ex_answers_2_and_6_and_the_unnamed_value_for_the_null_flag) {
    EXPECT_EQ(Query(top, "none")->body.status, static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(Query(top, nullptr)->body.status, static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(Query(notThere, "v")->body.status, static_cast<std::uint32_t>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(Set(top, nullptr, "unnamed"), 0u);
    EXPECT_EQ(StringOf(Query(top, nullptr)->body.data), "unnamed");
    EXPECT_EQ(StringOf(Query(top, "")->body.data), "unnamed");
}

TEST_F(RegistryOverTcp, set_value_ex_with_size_0_stores_nothing_of_the_placeholder) {
    auto argument = For<regd_REG_SET_VALUE_EX>(top);
    argument.valueName = Text("empty");
    argument.type = REG_BINARY;
    argument.data = {11, Text("ValueIsNull")};
    argument.dataBytes = 0;
    EXPECT_EQ(Status(argument), 0u);
    auto answer = Query(top, "empty");
    EXPECT_EQ(answer->body.status, 0u);
    EXPECT_EQ(answer->body.dataBytes, 0u);
    EXPECT_EQ(answer->body.type, REG_BINARY);
    EXPECT_EQ(Query(top, "empty", 0)->body.status, 0u);
}

TEST_F(RegistryOverTcp, set_value_ex_with_more_size_than_bytes_answers_87) {
    auto argument = For<regd_REG_SET_VALUE_EX>(top);
    argument.valueName = Text("v");
    argument.data = {3, Text("abc")};
    argument.dataBytes = 4;
    EXPECT_EQ(Status(argument), static_cast<std::uint32_t>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(Query(top, "v")->body.status, static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
}

TEST_F(RegistryOverTcp, set_value_ex_replaces_type_and_data_in_place) {
    EXPECT_EQ(Set(top, "Name", "one"), 0u);
    EXPECT_EQ(Set(top, "other", "x"), 0u);
    EXPECT_EQ(Set(top, "NAME", "second", REG_BINARY), 0u);
    auto first = EnumValue(top, 0);
    EXPECT_STREQ(first->body.name, "Name");
    EXPECT_EQ(first->body.type, REG_BINARY);
    EXPECT_EQ(StringOf(first->body.data), "second");
    EXPECT_EQ(Set(notThere, "v", ""), static_cast<std::uint32_t>(ERROR_INVALID_HANDLE));
}

TEST_F(RegistryOverTcp, set_value_and_query_value_keep_a_string_in_a_subkey) {
    auto set = For<regd_REG_SET_VALUE>(top);
    set.subKey = Text("sub");
    set.type = REG_SZ;
    set.data = Text("text");
    set.dataBytes = 4;
    EXPECT_EQ(Status(set), 0u);
    auto query = For<regd_REG_QUERY_VALUE>(top);
    query.subKey = Text("sub");
    query.dataBytes = 5;
    auto answer = Call(query);
    EXPECT_EQ(answer->body.status, 0u);
    EXPECT_EQ(answer->body.type, REG_SZ);
    EXPECT_EQ(answer->body.dataBytes, 5u);
    EXPECT_EQ(StringOf(answer->body.data), Sz("text"));
    query.dataBytes = 4;
    EXPECT_EQ(Call(query)->body.status, static_cast<std::uint32_t>(ERROR_MORE_DATA));
    query.dataIsNull = 1;
    auto size = Call(query);
    EXPECT_EQ(size->body.status, 0u);
    EXPECT_EQ(size->body.dataBytes, 5u);

    set.subKeyIsNull = 1;
    set.data = Text("own");
    EXPECT_EQ(Status(set), 0u);
    EXPECT_EQ(StringOf(Query(top, nullptr)->body.data), Sz("own"));
    set.type = REG_DWORD;
    EXPECT_EQ(Status(set), static_cast<std::uint32_t>(ERROR_INVALID_PARAMETER));
}

TEST_F(RegistryOverTcp, query_value_answers_2_without_a_value_and_13_for_one_that_is_no_string) {
    auto query = For<regd_REG_QUERY_VALUE>(top);
    query.subKeyIsNull = 1;
    query.subKey = Text("SubKeyIsNull");
    query.dataBytes = 100;
    EXPECT_EQ(Call(query)->body.status, static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(Set(top, nullptr, "1234", REG_DWORD), 0u);
    EXPECT_EQ(Call(query)->body.status, static_cast<std::uint32_t>(ERROR_INVALID_DATA));
    query.subKeyIsNull = 0;
    query.subKey = Text("none");
    EXPECT_EQ(Call(query)->body.status, static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
}

TEST_F(RegistryOverTcp, enum_value_fits_names_with_their_terminators_and_cuts_data) {
    EXPECT_EQ(Set(top, "four", "12345678", REG_BINARY), 0u);
    auto fits = EnumValue(top, 0, 5, 8);
    EXPECT_EQ(fits->body.status, 0u);
    EXPECT_STREQ(fits->body.name, "four");
    EXPECT_EQ(fits->body.nameLength, 4u);
    EXPECT_EQ(StringOf(fits->body.data), "12345678");
    auto shortName = EnumValue(top, 0, 4, 8);
    EXPECT_EQ(shortName->body.status, static_cast<std::uint32_t>(ERROR_MORE_DATA));
    EXPECT_EQ(shortName->body.nameLength, 4u);
    EXPECT_STREQ(shortName->body.name, "");
    auto shortData = EnumValue(top, 0, 5, 3);
    EXPECT_EQ(shortData->body.status, static_cast<std::uint32_t>(ERROR_MORE_DATA));
    EXPECT_EQ(shortData->body.dataBytes, 8u);
    EXPECT_EQ(StringOf(shortData->body.data), "123");
    auto noData = EnumValue(top, 0, 5, 0);
    EXPECT_EQ(noData->body.status, 0u);
    EXPECT_EQ(noData->body.dataBytes, 8u);
    EXPECT_EQ(noData->body.data.count, 0u);
    EXPECT_EQ(EnumValue(top, 1)->body.status, static_cast<std::uint32_t>(ERROR_NO_MORE_ITEMS));
    EXPECT_EQ(EnumValue(notThere, 0)->body.status, static_cast<std::uint32_t>(ERROR_INVALID_HANDLE));
}

TEST_F(RegistryOverTcp, delete_value_by_name_and_by_the_null_flag) {
    EXPECT_EQ(Set(top, "a", "1"), 0u);
    EXPECT_EQ(Set(top, nullptr, "2"), 0u);
    auto argument = For<regd_REG_DELETE_VALUE>(top);
    argument.valueName = Text("A");
    EXPECT_EQ(Status(argument), 0u);
    EXPECT_EQ(Status(argument), static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
    argument.valueName = Text("valueIsNull");
    argument.nameIsNull = 1;
    EXPECT_EQ(Status(argument), 0u);
    EXPECT_EQ(EnumValue(top, 0)->body.status, static_cast<std::uint32_t>(ERROR_NO_MORE_ITEMS));
}

TEST_F(RegistryOverTcp, big_values_pass) {
    const std::string big(1'000'000, 'b');
    EXPECT_EQ(Set(top, "big", big, REG_BINARY), 0u);
    EXPECT_EQ(StringOf(Query(top, "big", 2'000'000)->body.data), big);
}

TEST_F(RegistryOverTcp, values_of_16_mebibytes_pass_and_larger_ones_answer_223_over_the_same_connection) {
    const std::string largest(16 << 20, 'b');
    EXPECT_EQ(Set(top, "largest", largest, REG_BINARY), 0u);
    EXPECT_TRUE(StringOf(Query(top, "largest", 1 << 25)->body.data) == largest);
    EXPECT_EQ(Set(top, "larger", largest + 'b', REG_BINARY), static_cast<std::uint32_t>(ERROR_FILE_TOO_LARGE));
    EXPECT_EQ(Set(top, "largest", std::string(60 << 20, 'c')), static_cast<std::uint32_t>(ERROR_FILE_TOO_LARGE));
    EXPECT_EQ(Query(top, "larger")->body.status, static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(Query(top, "largest", 0, true)->body.dataBytes, largest.size());
}

// --- the rest of the procedures ------------------------------------------------------------------------------------

TEST_F(RegistryOverTcp, version_is_2_3_0) {
    auto version = Call(regd_REG_QUERY_VERSION{});
    EXPECT_EQ(version->body.status, 0u);
    EXPECT_EQ(version->body.major, 2u);
    EXPECT_EQ(version->body.minor, 3u);
    EXPECT_EQ(version->body.patch, 0u);
}

TEST_F(RegistryOverTcp, pings_of_the_three_modes_answer_0_and_others_87) {
    regd_REG_PING_DAEMON ping = {};
    for (ping.mode = 0; ping.mode <= 2; ++ping.mode) {
        EXPECT_EQ(Status(ping), 0u);
    }
    EXPECT_EQ(Status(ping), static_cast<std::uint32_t>(ERROR_INVALID_PARAMETER));
}

TEST_F(RegistryOverTcp, every_key_answers_the_same_security_descriptor_and_takes_any) {
    auto argument = For<regd_REG_GET_KEY_SEC>(top);
    argument.descriptorBytes = 20;
    auto answer = Call(argument);
    EXPECT_EQ(answer->body.status, 0u);
    EXPECT_EQ(answer->body.descriptorBytes, 20u);
    EXPECT_EQ(StringOf(answer->body.descriptor), std::string("\x01\0\x04\x80", 4) + std::string(16, '\0'));
    argument.descriptorBytes = 19;
    auto tooSmall = Call(argument);
    EXPECT_EQ(tooSmall->body.status, static_cast<std::uint32_t>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(tooSmall->body.descriptorBytes, 20u);
    EXPECT_EQ(tooSmall->body.descriptor.count, 0u);
    EXPECT_EQ(Status(For<regd_REG_SET_KEY_SEC>(top)), 0u);
}

TEST_F(RegistryOverTcp, hives_are_saved_restored_loaded_unloaded_and_replaced) {
    const std::string folder = MakeScratchFolder(), file = folder + "/a.hive", old = folder + "/old.hive";
    EXPECT_EQ(Set(top, "v", "1"), 0u);
    auto save = For<regd_REG_SAVE_KEY>(top);
    save.file = Text(file.c_str());
    EXPECT_EQ(Status(save), 0u);
    EXPECT_EQ(Status(save), static_cast<std::uint32_t>(ERROR_ALREADY_EXISTS));
    EXPECT_EQ(Set(top, "v", "2"), 0u);
    auto restore = For<regd_REG_RESTORE_KEY>(top);
    restore.file = Text(file.c_str());
    restore.flags = REG_WHOLE_HIVE_VOLATILE;
    EXPECT_EQ(Status(restore), static_cast<std::uint32_t>(ERROR_INVALID_PARAMETER));
    restore.flags = 0;
    EXPECT_EQ(Status(restore), 0u);
    EXPECT_EQ(Query(top, "v")->body.data.count, 1u);
    EXPECT_EQ(*Query(top, "v")->body.data.bytes, '1');
    auto load = For<regd_REG_LOAD_KEY>(top);
    load.subKey = Text("loaded");
    load.file = Text(file.c_str());
    EXPECT_EQ(Status(load), static_cast<std::uint32_t>(ERROR_INVALID_PARAMETER)) << "not right below a root";
    load.key = HKEY_USERS;
    EXPECT_EQ(Status(load), 0u);
    EXPECT_EQ(Status(load), static_cast<std::uint32_t>(ERROR_ALREADY_EXISTS));
    const std::uint32_t loaded = Open(HKEY_USERS, "loaded")->body.key;
    EXPECT_EQ(Set(loaded, "v", "changed"), 0u);
    EXPECT_EQ(Delete(HKEY_USERS, "loaded"), static_cast<std::uint32_t>(ERROR_ACCESS_DENIED));
    auto replace = For<regd_REG_REPLACE_KEY>(HKEY_USERS);
    replace.subKey = Text("loaded");
    replace.newFile = replace.oldFile = Text(file.c_str());
    EXPECT_EQ(Status(replace), static_cast<std::uint32_t>(ERROR_ALREADY_EXISTS));
    replace.oldFile = Text(old.c_str());
    EXPECT_EQ(Status(replace), 0u);
    KillAndRestart();
    EXPECT_EQ(*Query(loaded, "v")->body.data.bytes, '1');
    auto unload = For<regd_REG_UNLOAD_KEY>(HKEY_USERS);
    unload.subKey = Text("loaded");
    EXPECT_EQ(Status(unload), 0u);
    EXPECT_EQ(Status(unload), static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
    load.file = Text(old.c_str());
    EXPECT_EQ(Status(load), 0u);
    EXPECT_EQ(*Query(Open(HKEY_USERS, "loaded")->body.key, "v")->body.data.bytes, 'c');
    EXPECT_EQ(Status(unload), 0u);
}

TEST_F(RegistryOverTcp, notification_answers_120) {
    EXPECT_EQ(Status(For<regd_REG_NOTIFY_CHANGE_KEY_VALUE>(top)),
              static_cast<std::uint32_t>(ERROR_CALL_NOT_IMPLEMENTED));
}

TEST_F(RegistryOverTcp, bad_and_deleted_handles_answer_6_and_1018_before_anything_else_is_looked_at) {
    const std::uint32_t gone = Make(top, "gone");
    EXPECT_EQ(Delete(top, "gone"), 0u);
    for (const auto &[key, code] : {std::pair{notThere, ERROR_INVALID_HANDLE}, std::pair{gone, ERROR_KEY_DELETED}}) {
        const auto status = static_cast<std::uint32_t>(code);
        EXPECT_EQ(Status(For<regd_REG_LOAD_KEY>(key)), status);
        EXPECT_EQ(Status(For<regd_REG_UNLOAD_KEY>(key)), status);
        EXPECT_EQ(Status(For<regd_REG_REPLACE_KEY>(key)), status);
        EXPECT_EQ(Status(For<regd_REG_RESTORE_KEY>(key)), status);
        EXPECT_EQ(Status(For<regd_REG_SAVE_KEY>(key)), status);
        EXPECT_EQ(Status(For<regd_REG_SET_KEY_SEC>(key)), status);
        EXPECT_EQ(Status(For<regd_REG_NOTIFY_CHANGE_KEY_VALUE>(key)), status);
        EXPECT_EQ(Call(For<regd_REG_GET_KEY_SEC>(key))->body.status, status);
    }
}

// Calls a procedure by its number, whatever argument it takes.
clnt_stat CallWithIdentityOnly(CLIENT *client, std::uint32_t procedure) {
    regd_REG_QUERY_VERSION argument = {};
    Decoded<regd_BASIC_RES> result;
    return clnt_call(client, procedure, RoutineOf<regd_REG_QUERY_VERSION>(), &argument, RoutineOf<regd_BASIC_RES>(),
                     &*result, answerTimeout);
}

TEST_F(RegistryOverTcp, procedure_17_and_those_behind_the_last_are_unavailable) {
    for (const std::uint32_t procedure : {17u, 28u, 0xFFFFFFFFu}) {
        EXPECT_EQ(CallWithIdentityOnly(client.get(), procedure), RPC_PROCUNAVAIL) << procedure;
    }
}

TEST_F(RegistryOverTcp, arguments_that_cannot_be_decoded_are_refused_and_the_connection_lives_on) {
    for (const std::uint32_t procedure : {REG_CREATE_KEY_EX, REG_SET_VALUE_EX, REG_QUERY_VALUE_EX, REG_ENUM_KEY_EX}) {
        EXPECT_EQ(CallWithIdentityOnly(client.get(), procedure), RPC_CANTDECODEARGS) << procedure;
    }
    EXPECT_EQ(Open(top, nullptr)->body.status, 0u);
}

// --- around the procedures -----------------------------------------------------------------------------------------

TEST_F(RegistryOverTcp, content_order_and_handles_outlive_a_kill_between_acknowledged_writes) {
    std::vector<std::uint32_t> handles;
    for (int round = 0; round < 5; ++round) {
        const std::string name = "key" + std::to_string(round);
        handles.push_back(Make(top, name.c_str()));
        EXPECT_EQ(Set(handles.back(), "v", name), 0u);
        if (round == 3) {
            EXPECT_EQ(Delete(top, "key1"), 0u);
        }
        KillAndRestart();
    }
    EXPECT_STREQ(EnumKey(top, 0)->body.name, "key0");
    EXPECT_STREQ(EnumKey(top, 1)->body.name, "key2");
    EXPECT_STREQ(EnumKey(top, 3)->body.name, "key4");
    EXPECT_EQ(EnumKey(top, 4)->body.status, static_cast<std::uint32_t>(ERROR_NO_MORE_ITEMS));
    for (const int round : {0, 2, 3, 4}) {
        EXPECT_EQ(StringOf(Query(handles[static_cast<std::size_t>(round)], "v")->body.data),
                  "key" + std::to_string(round));
    }
    EXPECT_EQ(Open(handles[1], nullptr)->body.status, static_cast<std::uint32_t>(ERROR_KEY_DELETED));
}

TEST_F(RegistryOverTcp, no_acknowledged_write_is_lost_when_the_daemon_is_killed_under_load) {
    for (int round = 0; round < 3; ++round) {
        const std::string name = "load" + std::to_string(round);
        const std::uint32_t key = Make(top, name.c_str());
        std::atomic<std::uint32_t> acknowledged = 0;
        std::thread writer([&] {
            const RpcClient own = DialRegistryDaemon();
            for (std::uint32_t i = 1;; ++i) {
                std::string data = Dword(i), value = "v" + std::to_string(i);
                auto argument = For<regd_REG_SET_VALUE_EX>(key);
                argument.valueName = value.data();
                argument.type = REG_DWORD;
                argument.data = {4, data.data()};
                argument.dataBytes = 4;
                Decoded<regd_BASIC_RES> result;
                if (CallProcedure(own.get(), argument, &*result, answerTimeout) != RPC_SUCCESS) return;
                acknowledged = i;
            }
        });
        EXPECT_TRUE(WaitUntil([&] { return acknowledged > 100; }));
        KillAndRestart();
        writer.join();
        const std::uint32_t written = Info(key)->body.values;
        EXPECT_GE(written, acknowledged);
        EXPECT_LE(written, acknowledged + 1);
        for (std::uint32_t i = 1; i <= written; ++i) {
            ASSERT_EQ(StringOf(Query(key, ("v" + std::to_string(i)).c_str())->body.data), Dword(i));
        }
    }
}

TEST_F(RegistryOverTcp, lazy_daemon_loses_nothing_when_it_is_killed) {
    EXPECT_EQ(StopDaemon(daemon), 0);
    daemon = StartProgram({.command = {ProgramPath("tvregd"), "--lazy", "--database", database}});
    ASSERT_TRUE(WaitForProgram(REGDAEMONPROG, REGDAEMONVERS));
    client = DialRegistryDaemon();
    for (int i = 0; i < 200; ++i) {
        EXPECT_EQ(Set(top, ("v" + std::to_string(i)).c_str(), Dword(7)), 0u);
    }
    KillAndRestart();
    EXPECT_EQ(Info(top)->body.values, 200u);
}

TEST_F(RegistryOverTcp, second_daemon_on_the_same_file_says_so_and_disturbs_nothing) {
    const Ended second = RunAndRead({.command = {ProgramPath("tvregd"), "--database", database}});
    EXPECT_EQ(second.status, 1);
    EXPECT_THAT(second.error, HasSubstr("in use by another registry daemon"));
    EXPECT_EQ(Open(top, nullptr)->body.status, 0u);
    EXPECT_TRUE(IsRegistered(REGDAEMONPROG, REGDAEMONVERS));
}

TEST_F(RegistryOverTcp, sigterm_and_sigint_unregister_and_end_with_0) {
    for (const int signal : {SIGTERM, SIGINT}) {
        EXPECT_EQ(StopDaemon(daemon, signal), 0);
        EXPECT_FALSE(IsRegistered(REGDAEMONPROG, REGDAEMONVERS));
        daemon = StartRegistryDaemon(database);
        EXPECT_TRUE(IsRegistered(REGDAEMONPROG, REGDAEMONVERS));
    }
}

TEST_F(RegistryOverTcp, port_mapper_that_hangs_delays_the_end_by_five_seconds) {
    const pid_t portMapper = raw::ProcessNamed("rpcbind");
    ASSERT_GT(portMapper, 0);
    ASSERT_EQ(kill(portMapper, SIGSTOP), 0);
    const std::int64_t begin = MonotonicMs();
    EXPECT_EQ(StopDaemon(daemon), 0);
    EXPECT_LT(MonotonicMs() - begin, 8000);
    ASSERT_EQ(kill(portMapper, SIGCONT), 0);
    daemon = StartRegistryDaemon(database);
}

TEST_F(RegistryOverTcp, a_port_mapper_that_has_lost_its_table_learns_of_the_daemon_again) {
    const pid_t portMapper = raw::ProcessNamed("rpcbind");
    ASSERT_GT(portMapper, 0);
    ASSERT_EQ(kill(portMapper, SIGKILL), 0);
    ASSERT_TRUE(WaitUntil([] { return raw::ProcessNamed("rpcbind") == 0; }));
    SleepMs(200); // the daemon looks for it in vain
    EXPECT_EQ(Open(top, nullptr)->body.status, 0u) << "who is connected stays so";
    ASSERT_EQ(RunProgram({.command = {"/usr/sbin/rpcbind"}}), 0);
    EXPECT_TRUE(WaitUntil([] { return IsRegistered(REGDAEMONPROG, REGDAEMONVERS); }));
    client = DialRegistryDaemon();
    EXPECT_EQ(Open(top, nullptr)->body.status, 0u);
    EXPECT_EQ(StopDaemon(daemon), 0);
    EXPECT_FALSE(IsRegistered(REGDAEMONPROG, REGDAEMONVERS));
    daemon = StartRegistryDaemon(database);
}

TEST_F(RegistryOverTcp, background_returns_when_the_daemon_serves_and_with_1_when_it_cannot) {
    EXPECT_EQ(StopDaemon(daemon), 0);
    const DetachedDaemon detached =
        StartDetached({.command = {ProgramPath("tvregd"), "--database", database, "--background"}});
    EXPECT_EQ(detached.launcherStatus, 0);
    EXPECT_TRUE(IsRegistered(REGDAEMONPROG, REGDAEMONVERS));
    EXPECT_TRUE(WaitForProgram(REGDAEMONPROG, REGDAEMONVERS));
    const Ended second = RunAndRead({.command = {ProgramPath("tvregd"), "--database", database, "--background"}});
    EXPECT_EQ(second.status, 1);
    EXPECT_THAT(second.error, HasSubstr("in use"));
    EXPECT_EQ(StopDaemon(detached.process), 0);
    daemon = StartRegistryDaemon(database);
}

TEST_F(RegistryOverTcp, a_service_manager_is_told_once_requests_are_served) {
    EXPECT_EQ(StopDaemon(daemon), 0);
    const std::string path = MakeScratchFolder() + "/notify";
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    ASSERT_EQ(path.copy(address.sun_path, sizeof address.sun_path - 1), path.size());
    const raw::Socket manager(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(bind(manager.descriptor, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    const timeval patience = {patienceMs / 1000, 0};
    ASSERT_EQ(setsockopt(manager.descriptor, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience), 0);
    daemon = StartProgram(
        {.command = {ProgramPath("tvregd"), "--database", database}, .environment = {"NOTIFY_SOCKET=" + path}});
    char told[64] = {};
    EXPECT_EQ(recv(manager.descriptor, told, sizeof told - 1, 0), 7);
    EXPECT_STREQ(told, "READY=1");
    EXPECT_TRUE(WaitForProgram(REGDAEMONPROG, REGDAEMONVERS, 0));
}

TEST_F(RegistryOverTcp, daemon_started_without_standard_descriptors_sends_no_messages_to_clients) {
    EXPECT_EQ(StopDaemon(daemon), 0);
    daemon = StartProgram({.command = {ProgramPath("tvregd"), "--database", database}, .closed = {0, 1, 2}});
    ASSERT_TRUE(WaitForProgram(REGDAEMONPROG, REGDAEMONVERS));
    for (const char *descriptor : {"0", "1", "2"}) {
        EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(daemon) + "/fd/" + descriptor), "/dev/null");
    }
}

TEST_F(RegistryOverTcp, user_database_lies_in_the_state_folder_of_the_user) {
    EXPECT_EQ(StopDaemon(daemon), 0);
    const std::string folder = MakeScratchFolder();
    const DetachedDaemon detached = StartDetached(
        {.command = {ProgramPath("tvregd"), "--user", "--background"}, .environment = {"XDG_STATE_HOME=" + folder}});
    EXPECT_EQ(detached.launcherStatus, 0);
    EXPECT_EQ(StopDaemon(detached.process), 0);
    EXPECT_THAT(ReadFile(folder + "/tvregd/registry.db"), testing::StartsWith("SQLite format 3"));
    daemon = StartRegistryDaemon(database);
}

mode_t ModeOf(const std::string &file) {
    struct stat found = {};
    EXPECT_EQ(stat(file.c_str(), &found), 0) << file;
    return found.st_mode & 07777;
}

// Another user's attempts on the files of a database. Returns how many of them could be opened.
int OpenedByNobody(const std::string &file) {
    const pid_t child = fork();
    if (child == 0) {
        if (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0) _exit(99);
        int opened = 0;
        for (const char *suffix : {"", "-wal", "-shm", "-lock"}) {
            opened += open((file + suffix).c_str(), O_RDONLY) >= 0 ? 1 : 0;
        }
        _exit(opened);
    }
    return WEXITSTATUS(WaitForEnd(child));
}

// Any user who could read the database was able to lock it, so that no daemon started, or to keep a read lock on the
// shared memory of SQLite, so that no write was answered.
TEST_F(RegistryOverTcp, no_other_user_can_open_and_so_lock_what_the_daemon_needs) {
    EXPECT_EQ(StopDaemon(daemon), 0);
    const std::string folder = MakeScratchFolder();
    ASSERT_EQ(chmod(folder.c_str(), 0755), 0);
    const std::string file = folder + "/registry.db";
    const mode_t before = umask(0);
    for (const bool leftOpen : {false, true}) {
        if (leftOpen) { // as by an earlier version that was killed
            for (const char *suffix : {"", "-wal", "-shm", "-lock"}) {
                ASSERT_EQ(chmod((file + suffix).c_str(), 0644), 0) << suffix;
            }
        }
        daemon = StartRegistryDaemon(file);
        WriteKey("Software\\Private", {});
        for (const char *suffix : {"", "-wal", "-shm", "-lock"}) {
            EXPECT_EQ(ModeOf(file + suffix), 0600u) << suffix;
        }
        if (geteuid() == 0) {
            EXPECT_EQ(OpenedByNobody(file), 0);
        }
        EXPECT_EQ(StopDaemon(daemon, SIGKILL), SIGKILL);
    }
    (void)umask(before);
    daemon = StartRegistryDaemon(database);
}

TEST_F(RegistryOverTcp, folder_of_the_user_database_is_the_users_alone) {
    EXPECT_EQ(StopDaemon(daemon), 0);
    const std::string folder = MakeScratchFolder();
    std::filesystem::create_directories(folder + "/there/tvregd");
    ASSERT_EQ(chmod((folder + "/there/tvregd").c_str(), 0755), 0);
    for (const std::string &state : {folder + "/there", folder + "/new"}) {
        const DetachedDaemon detached = StartDetached(
            {.command = {ProgramPath("tvregd"), "--user", "--background"}, .environment = {"XDG_STATE_HOME=" + state}});
        EXPECT_EQ(detached.launcherStatus, 0);
        EXPECT_EQ(ModeOf(state + "/tvregd"), 0700u);
        EXPECT_EQ(StopDaemon(detached.process), 0);
    }
    EXPECT_EQ(ModeOf(folder + "/new"), 0700u);
    daemon = StartRegistryDaemon(database);
}

TEST_F(RegistryOverTcp, a_second_way_to_the_same_file_meets_the_same_lock) {
    const std::string link = MakeScratchFolder() + "/link.db";
    std::filesystem::create_symlink(database, link);
    const Ended second = RunAndRead({.command = {ProgramPath("tvregd"), "--database", link}});
    EXPECT_EQ(second.status, 1);
    EXPECT_THAT(second.error, HasSubstr("in use by another registry daemon"));
}

TEST_F(RegistryOverTcp, wrong_options_end_with_2_and_an_unusable_file_with_1) {
    const Ended wrong = RunAndRead({.command = {ProgramPath("tvregd"), "--nonsense"}});
    EXPECT_EQ(wrong.status, 2);
    EXPECT_THAT(wrong.error, testing::StartsWith("tvregd: "));
    EXPECT_EQ(RunAndRead({.command = {ProgramPath("tvregd"), "--user", "--database", "x"}}).status, 2);
    const Ended none = RunAndRead({.command = {ProgramPath("tvregd"), "--database", "/nowhere/registry.db"}});
    EXPECT_EQ(none.status, 1);
    EXPECT_THAT(none.error, HasSubstr("/nowhere/registry.db: No such file or directory"));
    const std::string file = MakeScratchFolder() + "/text";
    WriteFile(file, "this is no database, however long the text of it may become");
    const Ended text = RunAndRead({.command = {ProgramPath("tvregd"), "--database", file}});
    EXPECT_EQ(text.status, 1);
    EXPECT_THAT(text.error, HasSubstr(file));
    EXPECT_THAT(RunAndRead({.command = {ProgramPath("tvregd"), "--help"}}).output, HasSubstr("--database"));
    EXPECT_THAT(RunAndRead({.command = {ProgramPath("tvregd"), "--version"}}).output, testing::StartsWith("tvregd "));
}

// Two addresses on the loopback interface: from one to the other looks like a call from another machine.
TEST_F(RegistryOverTcp, peers_of_other_machines_are_served_only_with_allow_remote) {
    for (const char *address : {"10.77.77.1/32", "10.77.77.2/32"}) {
        if (RunProgram({.command = {"/usr/sbin/ip", "address", "add", address, "dev", "lo"}}) != 0) {
            GTEST_SKIP() << "addresses cannot be added here";
        }
    }
    EXPECT_TRUE(IsServed(ConnectBetween("127.0.0.1", "127.0.0.1")));
    EXPECT_TRUE(IsServed(ConnectBetween("127.0.0.5", "10.77.77.1")));
    EXPECT_TRUE(IsServed(ConnectBetween("10.77.77.1", "10.77.77.1")));
    EXPECT_FALSE(IsServed(ConnectBetween("10.77.77.2", "10.77.77.1")));
    EXPECT_TRUE(raw::IsAtEnd(ConnectBetween("10.77.77.2", "10.77.77.1"), 5000));
    EXPECT_EQ(StopDaemon(daemon), 0);
    daemon = StartProgram({.command = {ProgramPath("tvregd"), "--allow-remote", "--database", database}});
    ASSERT_TRUE(WaitForProgram(REGDAEMONPROG, REGDAEMONVERS));
    EXPECT_TRUE(IsServed(ConnectBetween("10.77.77.2", "10.77.77.1")));
}

TEST_F(RegistryOverTcp, clients_side_by_side_see_each_others_writes) {
    std::vector<std::thread> writers;
    std::atomic<int> failures = 0;
    for (int number = 0; number < 8; ++number) {
        writers.emplace_back([&, number] {
            const RpcClient own = DialRegistryDaemon();
            for (int i = 0; i < 50; ++i) {
                std::string value = "w" + std::to_string(number) + "." + std::to_string(i);
                auto argument = For<regd_REG_SET_VALUE_EX>(top);
                argument.valueName = value.data();
                argument.data = {1, Text("x")};
                argument.dataBytes = 1;
                Decoded<regd_BASIC_RES> result;
                const bool set = CallProcedure(own.get(), argument, &*result, answerTimeout) == RPC_SUCCESS;
                if (!set || result->body.status != 0) ++failures;
            }
        });
    }
    for (std::thread &writer : writers) {
        writer.join();
    }
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(Info(top)->body.values, 400u);
}
