// SPDX-License-Identifier: MIT
// The registry client against the registry daemon of this system: every function that leaves a mark, seen from outside.
#include "tests/support/host.h"
#include "tv/tvregistry.h"
#include "tv/winreg.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstring>

namespace {

struct RegistryClientSystem : testing::Test {
    RegistryClientSystem() : folder(MakeScratchFolder()), daemon(StartRegistryDaemon(folder + "/registry.db")) {
        EXPECT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, "Software\\Test", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &root,
                                  nullptr),
                  ERROR_SUCCESS);
    }
    ~RegistryClientSystem() override {
        tvRegistryCleanConnections(1);
        tvRegistryInitData();
        EndAllProcesses();
    }
    RegistryClientSystem(const RegistryClientSystem &) = delete;
    RegistryClientSystem &operator=(const RegistryClientSystem &) = delete;

    std::string folder;
    pid_t daemon;
    HKEY root = 0;
};

const BYTE *BytesOf(const std::string &data) { return reinterpret_cast<const BYTE *>(data.data()); }

LONG Set(HKEY key, const char *name, DWORD type, const std::string &data) {
    return RegSetValueExA(key, name, 0, type, BytesOf(data), static_cast<DWORD>(data.size()));
}

struct Queried {
    LONG rc;
    DWORD type;
    std::string data;
    bool operator==(const Queried &) const = default;
};

Queried Query(HKEY key, const char *name, DWORD room = 256) {
    Queried queried = {0, 99, std::string(room, '\xEE')};
    DWORD size = room;
    queried.rc =
        RegQueryValueExA(key, name, nullptr, &queried.type, reinterpret_cast<BYTE *>(queried.data.data()), &size);
    queried.data.resize(size < room ? size : room);
    return queried;
}

std::vector<std::string> SubKeys(HKEY key) {
    std::vector<std::string> names;
    for (DWORD index = 0;; ++index) {
        char name[256] = "";
        DWORD length = sizeof name;
        const LONG rc = RegEnumKeyExA(key, index, name, &length, nullptr, nullptr, nullptr, nullptr);
        if (rc != ERROR_SUCCESS) {
            EXPECT_EQ(rc, ERROR_NO_MORE_ITEMS);
            return names;
        }
        EXPECT_EQ(length, std::strlen(name));
        names.push_back(name);
    }
}

} // namespace

TEST_F(RegistryClientSystem, keys_are_created_opened_enumerated_and_deleted) {
    for (const char *name : {"One", "Two", "Three"}) {
        HKEY key = 0;
        DWORD disposition = 0;
        EXPECT_EQ(RegCreateKeyExA(root, name, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, &disposition),
                  ERROR_SUCCESS);
        EXPECT_EQ(disposition, REG_CREATED_NEW_KEY);
        EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
        EXPECT_EQ(RegCreateKeyExA(root, name, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, &disposition),
                  ERROR_SUCCESS);
        EXPECT_EQ(disposition, REG_OPENED_EXISTING_KEY);
        EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
    }
    EXPECT_THAT(SubKeys(root), testing::UnorderedElementsAre("One", "Two", "Three"));
    EXPECT_THAT(ReadSubKeys("Software\\Test"), testing::UnorderedElementsAre("One", "Two", "Three"));

    EXPECT_EQ(RegDeleteKeyA(root, "Two"), ERROR_SUCCESS);
    EXPECT_THAT(SubKeys(root), testing::UnorderedElementsAre("One", "Three"));
    HKEY key = 0;
    EXPECT_EQ(RegOpenKeyExA(root, "Two", 0, KEY_ALL_ACCESS, &key), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegDeleteKeyA(root, "Two"), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegOpenKeyA(root, "One", &key), ERROR_SUCCESS);
    EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
    EXPECT_EQ(RegFlushKey(root), ERROR_SUCCESS);
}

TEST_F(RegistryClientSystem, values_of_every_type_are_written_and_read_byte_for_byte) {
    const std::vector<RegistryValue> values = {{"none", REG_NONE, "x"},
                                               {"text", REG_SZ, Sz("hello")},
                                               {"path", REG_EXPAND_SZ, Sz("%A%")},
                                               {"bytes", REG_BINARY, std::string("\0\1\2", 3)},
                                               {"word", REG_DWORD, Dword(7)},
                                               {"list", REG_MULTI_SZ, MultiSz({"a", "b"})}};
    for (const RegistryValue &value : values) {
        EXPECT_EQ(Set(root, value.name.c_str(), value.type, value.data), ERROR_SUCCESS) << value.name;
    }
    for (const RegistryValue &value : values) {
        EXPECT_EQ(Query(root, value.name.c_str()), (Queried{ERROR_SUCCESS, value.type, value.data})) << value.name;
        EXPECT_EQ(ReadValue("Software\\Test", value.name), value) << value.name;
    }
    EXPECT_EQ(Query(root, "missing").rc, ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegDeleteValueA(root, "text"), ERROR_SUCCESS);
    EXPECT_EQ(Query(root, "text").rc, ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegDeleteValueA(root, "text"), ERROR_FILE_NOT_FOUND);
}

TEST_F(RegistryClientSystem, the_size_of_a_value_is_told_without_a_buffer_and_beyond_a_small_one) {
    EXPECT_EQ(Set(root, "bytes", REG_BINARY, "12345678"), ERROR_SUCCESS);
    DWORD size = 0;
    DWORD type = 0;
    EXPECT_EQ(RegQueryValueExA(root, "bytes", nullptr, &type, nullptr, &size), ERROR_SUCCESS);
    EXPECT_EQ(size, 8u);
    EXPECT_EQ(type, REG_BINARY);
    BYTE small[4] = {};
    size = sizeof small;
    EXPECT_EQ(RegQueryValueExA(root, "bytes", nullptr, nullptr, small, &size), ERROR_MORE_DATA);
    EXPECT_EQ(size, 8u);
}

TEST_F(RegistryClientSystem, an_empty_value_and_the_unnamed_value_can_be_written) {
    const BYTE nothing = 0;
    EXPECT_EQ(RegSetValueExA(root, "empty", 0, REG_SZ, &nothing, 0), ERROR_SUCCESS);
    EXPECT_EQ(Query(root, "empty"), (Queried{ERROR_SUCCESS, REG_SZ, ""}));
    EXPECT_EQ(Set(root, nullptr, REG_DWORD, Dword(1)), ERROR_SUCCESS);
    EXPECT_EQ(Query(root, ""), (Queried{ERROR_SUCCESS, REG_DWORD, Dword(1)}));
    EXPECT_EQ(RegDeleteValueA(root, nullptr), ERROR_SUCCESS);
    EXPECT_EQ(Query(root, "").rc, ERROR_FILE_NOT_FOUND);
}

TEST_F(RegistryClientSystem, values_are_enumerated_and_counted) {
    EXPECT_EQ(Set(root, "a", REG_SZ, Sz("one")), ERROR_SUCCESS);
    EXPECT_EQ(Set(root, "longer", REG_BINARY, std::string(40, 'x')), ERROR_SUCCESS);
    std::vector<std::string> names;
    for (DWORD index = 0; index < 3; ++index) {
        char name[64] = "";
        DWORD nameLength = sizeof name;
        BYTE data[64];
        DWORD size = sizeof data;
        DWORD type = 0;
        const LONG rc = RegEnumValueA(root, index, name, &nameLength, nullptr, &type, data, &size);
        EXPECT_EQ(rc, index < 2 ? ERROR_SUCCESS : ERROR_NO_MORE_ITEMS);
        if (rc != ERROR_SUCCESS) break;
        names.push_back(name);
        EXPECT_EQ(size, names.back() == "a" ? 4u : 40u);
    }
    EXPECT_THAT(names, testing::UnorderedElementsAre("a", "longer"));
    DWORD subKeys = 9;
    DWORD values = 0;
    DWORD maxName = 0;
    DWORD maxValue = 0;
    EXPECT_EQ(RegQueryInfoKeyA(root, nullptr, nullptr, nullptr, &subKeys, nullptr, nullptr, &values, &maxName,
                               &maxValue, nullptr, nullptr),
              ERROR_SUCCESS);
    EXPECT_EQ(subKeys, 0u);
    EXPECT_EQ(values, 2u);
    EXPECT_EQ(maxName, 6u);
    EXPECT_EQ(maxValue, 40u);
}

TEST_F(RegistryClientSystem, several_values_are_read_into_one_buffer) {
    EXPECT_EQ(Set(root, "a", REG_SZ, Sz("one")), ERROR_SUCCESS);
    EXPECT_EQ(Set(root, "b", REG_DWORD, Dword(2)), ERROR_SUCCESS);
    char a[] = "a";
    char b[] = "b";
    VALENTA entries[2] = {{a, 0, 0, 0}, {b, 0, 0, 0}};
    char buffer[32];
    DWORD size = sizeof buffer;
    EXPECT_EQ(RegQueryMultipleValuesA(root, entries, 2, buffer, &size), ERROR_SUCCESS);
    EXPECT_EQ(size, 8u);
    EXPECT_EQ(std::string(buffer, 8), Sz("one") + Dword(2));
}

TEST_F(RegistryClientSystem, the_functions_of_the_first_generation_do_the_same) {
    HKEY key = 0;
    EXPECT_EQ(RegCreateKeyA(root, "Old", &key), ERROR_SUCCESS);
    HKEY again = 0;
    EXPECT_EQ(RegOpenKeyA(root, "Old", &again), ERROR_SUCCESS);
    EXPECT_EQ(again, key);
    char name[16] = "";
    EXPECT_EQ(RegEnumKeyA(root, 0, name, sizeof name), ERROR_SUCCESS);
    EXPECT_STREQ(name, "Old");
    EXPECT_EQ(RegEnumKeyA(root, 1, name, sizeof name), ERROR_NO_MORE_ITEMS);

    EXPECT_EQ(RegSetValueA(root, "Old", REG_SZ, "hello", 0), ERROR_SUCCESS);
    char value[16] = "";
    LONG size = sizeof value;
    EXPECT_EQ(RegQueryValueA(root, "Old", value, &size), ERROR_SUCCESS);
    EXPECT_STREQ(value, "hello");
    EXPECT_EQ(size, 6);
    EXPECT_EQ(Query(key, ""), (Queried{ERROR_SUCCESS, REG_SZ, Sz("hello")}));
}

TEST_F(RegistryClientSystem, a_class_is_kept_and_told) {
    char keyClass[] = "Cls";
    HKEY key = 0;
    EXPECT_EQ(RegCreateKeyExA(root, "Classy", 0, keyClass, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr), ERROR_SUCCESS);
    char told[16] = "";
    DWORD length = sizeof told;
    EXPECT_EQ(RegQueryInfoKeyA(key, told, &length, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                               nullptr, nullptr),
              ERROR_SUCCESS);
    EXPECT_EQ(std::string(told, length), "Cls");
    char name[16] = "";
    char enumerated[16] = "";
    DWORD nameLength = sizeof name;
    DWORD classLength = sizeof enumerated;
    FILETIME time = {};
    EXPECT_EQ(RegEnumKeyExA(root, 0, name, &nameLength, nullptr, enumerated, &classLength, &time), ERROR_SUCCESS);
    EXPECT_STREQ(enumerated, "Cls");
    EXPECT_EQ(classLength, 3u);
    EXPECT_GT(time.dwHighDateTime, 0x01D00000u); // later than 2014
}

TEST_F(RegistryClientSystem, wide_functions_work_on_the_key_itself_and_its_unnamed_value_deliberate) {
    const WCHAR name[] = {'N', 0};
    HKEY same = 0;
    EXPECT_EQ(RegOpenKeyExW(root, name, 0, KEY_ALL_ACCESS, &same), ERROR_SUCCESS);
    EXPECT_EQ(same, root);
    EXPECT_EQ(RegCreateKeyW(root, name, &same), ERROR_SUCCESS);
    EXPECT_EQ(same, root);
    EXPECT_THAT(SubKeys(root), testing::IsEmpty());

    const std::string number = Dword(0x01020304);
    EXPECT_EQ(RegSetValueExW(root, name, 0, REG_DWORD, BytesOf(number), 4), ERROR_SUCCESS);
    EXPECT_EQ(ReadValue("Software\\Test", ""), (RegistryValue{"", REG_DWORD, number}));
    BYTE data[4] = {};
    DWORD size = sizeof data;
    DWORD type = 0;
    EXPECT_EQ(RegQueryValueExW(root, name, nullptr, &type, data, &size), ERROR_SUCCESS);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(data), 4), number);
    EXPECT_EQ(type, REG_DWORD);
    EXPECT_EQ(RegDeleteValueW(root, name), ERROR_SUCCESS);
    EXPECT_EQ(Query(root, "").rc, ERROR_FILE_NOT_FOUND);
}

TEST_F(RegistryClientSystem, hives_go_to_files_and_come_from_them) {
    const std::string file = folder + "/a.hive", old = folder + "/old.hive";
    EXPECT_EQ(Set(root, "v", REG_SZ, Sz("1")), ERROR_SUCCESS);
    EXPECT_EQ(RegSaveKeyA(root, file.c_str(), nullptr), ERROR_SUCCESS);
    EXPECT_EQ(RegSaveKeyA(root, file.c_str(), nullptr), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(Set(root, "v", REG_SZ, Sz("2")), ERROR_SUCCESS);
    EXPECT_EQ(RegRestoreKeyA(root, file.c_str(), 0), ERROR_SUCCESS);
    EXPECT_EQ(Query(root, "v"), (Queried{ERROR_SUCCESS, REG_SZ, Sz("1")}));
    EXPECT_EQ(RegLoadKeyA(root, "Hive", file.c_str()), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegLoadKeyA(HKEY_USERS, "Hive", file.c_str()), ERROR_SUCCESS);
    HKEY hive = 0;
    EXPECT_EQ(RegOpenKeyExA(HKEY_USERS, "Hive", 0, 0, &hive), ERROR_SUCCESS);
    EXPECT_EQ(Query(hive, "v"), (Queried{ERROR_SUCCESS, REG_SZ, Sz("1")}));
    EXPECT_EQ(Set(hive, "v", REG_SZ, Sz("3")), ERROR_SUCCESS);
    EXPECT_EQ(RegUnLoadKeyA(HKEY_USERS, "Hive"), ERROR_SUCCESS);
    EXPECT_EQ(RegReplaceKeyA(HKEY_LOCAL_MACHINE, "Software", file.c_str(), old.c_str()), ERROR_SUCCESS);
    (void)StopDaemon(daemon);
    StartRegistryDaemon(folder + "/registry.db");
    (void)Set(root, "x", REG_SZ, ""); // the connection is lost
    EXPECT_EQ(ReadValue("Software", "v"), (RegistryValue{"v", REG_SZ, Sz("3")}));
    EXPECT_EQ(RegLoadKeyA(HKEY_USERS, "Hive", old.c_str()), ERROR_SUCCESS);
    EXPECT_EQ(RegOpenKeyExA(HKEY_USERS, "Hive\\Test", 0, 0, &hive), ERROR_SUCCESS);
    EXPECT_EQ(Query(hive, "v"), (Queried{ERROR_SUCCESS, REG_SZ, Sz("1")}));
}

TEST_F(RegistryClientSystem, notification_is_refused_before_anybody_is_asked) {
    EXPECT_EQ(RegNotifyChangeKeyValue(root, TRUE, 1, nullptr, FALSE), ERROR_REGISTRY_IO_FAILED);
}

TEST_F(RegistryClientSystem, every_key_has_the_same_security_descriptor) {
    DWORD size = 0;
    EXPECT_EQ(RegGetKeySecurity(root, 7, nullptr, &size), ERROR_INSUFFICIENT_BUFFER);
    std::vector<char> descriptor(size);
    EXPECT_EQ(RegGetKeySecurity(root, 7, descriptor.data(), &size), ERROR_SUCCESS);
    EXPECT_EQ(size, descriptor.size());
    EXPECT_EQ(RegSetKeySecurity(root, 7, nullptr), ERROR_SUCCESS);
}

TEST_F(RegistryClientSystem, the_base_key_is_made_and_handed_out_twice) {
    HKEY first = 0;
    HKEY second = 0;
    EXPECT_EQ(tvGetBaseRegistryKey(&first), ERROR_SUCCESS);
    EXPECT_EQ(tvGetBaseRegistryKey(&second), ERROR_SUCCESS); // this daemon's handles of one key are alike
    EXPECT_TRUE(KeyExists("Software\\Corvane\\Tarvo"));
    EXPECT_EQ(Set(first, "x", REG_DWORD, Dword(5)), ERROR_SUCCESS);
    EXPECT_EQ(Query(second, "x").data, Dword(5));
    EXPECT_EQ(RegCloseKey(first), ERROR_SUCCESS);
    EXPECT_EQ(RegCloseKey(second), ERROR_SUCCESS);
}

TEST_F(RegistryClientSystem, version_and_ping_are_answered) {
    DWORD major = 0;
    DWORD minor = 0;
    DWORD patch = 0;
    EXPECT_EQ(RegQueryVersionInfo(&major, &minor, &patch), ERROR_SUCCESS);
    EXPECT_GE(tvVerifyRegistryVersion(major, minor, patch), 0);
    EXPECT_EQ(RegPingDaemon(2), ERROR_SUCCESS);
}

TEST_F(RegistryClientSystem, a_daemon_killed_and_started_again_is_found_by_the_second_call) {
    EXPECT_EQ(Set(root, "kept", REG_DWORD, Dword(3)), ERROR_SUCCESS);
    (void)StopDaemon(daemon, SIGKILL);
    HKEY key = 0;
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "Software", 0, 0, &key), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "Software", 0, 0, &key), ERROR_REGISTRY_IO_FAILED);
    StartRegistryDaemon(folder + "/registry.db");
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "Software\\Test", 0, 0, &key), ERROR_SUCCESS);
    EXPECT_EQ(Query(key, "kept"), (Queried{ERROR_SUCCESS, REG_DWORD, Dword(3)}));
}
