// SPDX-License-Identifier: MIT
// The registry through windows.h with UNICODE, against the registry daemon.
#define UNICODE
#define _UNICODE
#include "tests/support/host.h"

#include <windows.h>

#include <gmock/gmock.h>

#include <cstring>

namespace {

struct RegistryWide : testing::Test {
    HKEY key = 0;

    static void SetUpTestSuite() { (void)StartRegistryDaemon(MakeScratchFolder() + "/registry.db"); }
    static void TearDownTestSuite() { EndAllProcesses(); }

    const std::string name = testing::UnitTest::GetInstance()->current_test_info()->name();

    void SetUp() override {
        const std::u16string path = u"Software\\Größe 𝄞\\" + std::u16string(name.begin(), name.end());
        DWORD disposition = 0;
        ASSERT_EQ(RegCreateKeyEx(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS,
                                 nullptr, &key, &disposition),
                  ERROR_SUCCESS);
        EXPECT_EQ(disposition, REG_CREATED_NEW_KEY);
    }
    void TearDown() override { (void)RegCloseKey(key); }

    std::string Path() const { return "Software\\Größe 𝄞\\" + name; }
    LONG Set(const WCHAR *value, DWORD type, const std::u16string &text) const {
        return RegSetValueEx(key, value, 0, type, reinterpret_cast<const BYTE *>(text.c_str()),
                             static_cast<DWORD>((text.size() + 1) * sizeof(WCHAR)));
    }
};

TEST_F(RegistryWide, texts_and_names_are_utf8_in_the_registry) {
    EXPECT_TRUE(KeyExists(Path()));
    ASSERT_EQ(Set(u"Maß", REG_SZ, u"süß 𝄞"), ERROR_SUCCESS);
    EXPECT_EQ(ReadValue(Path(), "Maß"), (RegistryValue{"Maß", REG_SZ, std::string("süß 𝄞") + '\0'}));
    ASSERT_EQ(Set(u"list", REG_MULTI_SZ, std::u16string(u"ä\0b\0", 4)), ERROR_SUCCESS);
    EXPECT_EQ(ReadValue(Path(), "list")->data, std::string("ä\0b\0\0", 6));
}

TEST_F(RegistryWide, text_comes_back_into_room_counted_in_bytes) {
    ASSERT_EQ(Set(u"Maß", REG_EXPAND_SZ, u"süß 𝄞"), ERROR_SUCCESS);
    constexpr DWORD needed = 7 * sizeof(WCHAR); // a pair for the last one, and the terminator
    DWORD type = 0;
    DWORD bytes = 0;
    ASSERT_EQ(RegQueryValueEx(key, u"Maß", nullptr, &type, nullptr, &bytes), ERROR_SUCCESS);
    EXPECT_EQ(type, REG_EXPAND_SZ);
    EXPECT_EQ(bytes, needed);
    for (const DWORD room : {needed - 1, needed, needed + 1}) {
        WCHAR buffer[12];
        std::memset(buffer, 0x55, sizeof buffer);
        bytes = room;
        const LONG rc = RegQueryValueEx(key, u"Maß", nullptr, nullptr, reinterpret_cast<LPBYTE>(buffer), &bytes);
        EXPECT_EQ(rc, room < needed ? ERROR_MORE_DATA : ERROR_SUCCESS);
        EXPECT_EQ(bytes, needed);
        EXPECT_EQ(buffer[7], 0x5555);
        if (rc == ERROR_SUCCESS) {
            EXPECT_EQ(std::u16string(buffer), u"süß 𝄞");
        }
    }
}

TEST_F(RegistryWide, other_data_stays_as_it_is) {
    const BYTE odd[] = {0xFF, 0xD8, 0x00};
    ASSERT_EQ(RegSetValueEx(key, u"odd", 0, REG_BINARY, odd, sizeof odd), ERROR_SUCCESS);
    BYTE read[4] = {};
    DWORD bytes = sizeof read;
    ASSERT_EQ(RegQueryValueEx(key, u"odd", nullptr, nullptr, read, &bytes), ERROR_SUCCESS);
    EXPECT_EQ(bytes, 3u);
    EXPECT_EQ(std::memcmp(read, odd, 3), 0);
    EXPECT_EQ(RegQueryValueEx(key, u"none", nullptr, nullptr, read, &bytes), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegQueryValueEx(key, u"odd", nullptr, nullptr, read, nullptr), ERROR_INVALID_PARAMETER);
}

TEST_F(RegistryWide, keys_and_values_are_listed) {
    HKEY below = 0;
    ASSERT_EQ(RegCreateKey(key, u"Größe", &below), ERROR_SUCCESS);
    (void)RegCloseKey(below);
    ASSERT_EQ(Set(u"Maß", REG_SZ, u"ä"), ERROR_SUCCESS);
    for (const DWORD room : {5u, 6u, 7u}) { // characters, the terminator among them
        WCHAR text[8];
        DWORD length = room;
        EXPECT_EQ(RegEnumKeyEx(key, 0, text, &length, nullptr, nullptr, nullptr, nullptr),
                  room < 6 ? ERROR_MORE_DATA : ERROR_SUCCESS);
        if (room >= 6) {
            EXPECT_EQ(std::u16string(text), u"Größe");
            EXPECT_EQ(length, 5u);
        }
    }
    WCHAR text[8];
    WCHAR data[4];
    DWORD length = 8;
    DWORD bytes = sizeof data;
    DWORD type = 0;
    ASSERT_EQ(RegEnumValue(key, 0, text, &length, nullptr, &type, reinterpret_cast<LPBYTE>(data), &bytes),
              ERROR_SUCCESS);
    EXPECT_EQ(std::u16string(text), u"Maß");
    EXPECT_EQ(std::u16string(data), u"ä");
    EXPECT_EQ(bytes, 4u);
    EXPECT_EQ(type, REG_SZ);
    length = 8;
    EXPECT_EQ(RegEnumValue(key, 1, text, &length, nullptr, nullptr, nullptr, nullptr), ERROR_NO_MORE_ITEMS);
    EXPECT_EQ(RegEnumKey(key, 1, text, 8), ERROR_NO_MORE_ITEMS);
    EXPECT_EQ(RegDeleteValue(key, u"Maß"), ERROR_SUCCESS);
    EXPECT_EQ(RegDeleteKey(key, u"Größe"), ERROR_SUCCESS);
    DWORD keys = 9;
    DWORD values = 9;
    EXPECT_EQ(RegQueryInfoKey(key, nullptr, nullptr, nullptr, &keys, nullptr, nullptr, &values, nullptr, nullptr,
                              nullptr, nullptr),
              ERROR_SUCCESS);
    EXPECT_EQ(keys + values, 0u);
}

TEST_F(RegistryWide, the_class_of_a_key_comes_back) {
    WCHAR keyClass[] = u"Gattung";
    HKEY below = 0;
    ASSERT_EQ(RegCreateKeyEx(key, u"below", 0, keyClass, 0, KEY_ALL_ACCESS, nullptr, &below, nullptr), ERROR_SUCCESS);
    const auto ask = [&](LPWSTR text, DWORD *length) {
        return RegQueryInfoKey(below, text, length, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                               nullptr, nullptr);
    };
    DWORD length = 0;
    EXPECT_EQ(ask(nullptr, &length), ERROR_SUCCESS);
    EXPECT_EQ(length, 7u);
    for (const DWORD room : {7u, 8u, 9u}) {
        WCHAR found[12] = {};
        length = room;
        EXPECT_EQ(ask(found, &length), room < 8 ? ERROR_MORE_DATA : ERROR_SUCCESS);
        EXPECT_EQ(std::u16string(found), room < 8 ? u"" : u"Gattung");
    }
    (void)RegCloseKey(below);
}

TEST_F(RegistryWide, the_unnamed_value_of_a_key_and_of_one_below_is_set_and_read) {
    ASSERT_EQ(RegSetValue(key, nullptr, REG_SZ, u"süß 𝄞", 0), ERROR_SUCCESS);
    ASSERT_EQ(RegSetValue(key, u"Größe", REG_SZ, u"längst", 5 * sizeof(WCHAR)), ERROR_SUCCESS);
    EXPECT_EQ(ReadValue(Path(), "")->data, std::string("süß 𝄞") + '\0');
    EXPECT_STREQ(ReadValue(Path() + "\\Größe", "")->data.c_str(), "längs");
    LONG needed = 0;
    ASSERT_EQ(RegQueryValue(key, nullptr, nullptr, &needed), ERROR_SUCCESS);
    EXPECT_EQ(needed, LONG{7 * sizeof(WCHAR)});
    for (const LONG room : {needed - 1, needed, needed + 1}) {
        WCHAR text[12];
        std::memset(text, 0x55, sizeof text);
        LONG bytes = room;
        const LONG rc = RegQueryValue(key, nullptr, text, &bytes);
        EXPECT_EQ(rc, room < needed ? ERROR_MORE_DATA : ERROR_SUCCESS);
        EXPECT_EQ(bytes, needed);
        EXPECT_EQ(text[7], 0x5555);
        if (rc == ERROR_SUCCESS) {
            EXPECT_EQ(std::u16string(text), u"süß 𝄞");
        }
    }
    EXPECT_EQ(RegSetValue(key, nullptr, REG_DWORD, u"", 0), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegSetValue(key, nullptr, REG_SZ, nullptr, 0), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegQueryValue(key, nullptr, nullptr, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegQueryValue(key, u"none", nullptr, &needed), ERROR_FILE_NOT_FOUND);
}

TEST_F(RegistryWide, several_values_come_back_in_one_buffer) {
    ASSERT_EQ(Set(u"Maß", REG_SZ, u"süß"), ERROR_SUCCESS);
    ASSERT_EQ(RegSetValueEx(key, u"odd", 0, REG_BINARY, reinterpret_cast<const BYTE *>("\1\2\3"), 3), ERROR_SUCCESS);
    ASSERT_EQ(Set(u"last", REG_SZ, u"𝄞"), ERROR_SUCCESS);
    WCHAR names[][5] = {u"Maß", u"odd", u"last"};
    constexpr DWORD needed = 4 * sizeof(WCHAR) + 4 + 3 * sizeof(WCHAR); // a byte between the second and the third
    for (const DWORD room : {DWORD{0}, needed - 1, needed, needed + 1}) {
        VALENT values[] = {{names[0], 9, 9, 9}, {names[1], 9, 9, 9}, {names[2], 9, 9, 9}};
        WCHAR buffer[12];
        std::memset(buffer, 0x55, sizeof buffer);
        DWORD bytes = room;
        const LONG rc = RegQueryMultipleValues(key, values, 3, room != 0 ? buffer : nullptr, &bytes);
        EXPECT_EQ(rc, room < needed ? ERROR_MORE_DATA : ERROR_SUCCESS);
        EXPECT_EQ(bytes, needed);
        EXPECT_EQ(buffer[9], 0x5555);
        EXPECT_EQ(values[2].ve_type, room < needed ? 9u : REG_SZ);
        if (rc != ERROR_SUCCESS) continue;
        EXPECT_EQ(std::u16string(reinterpret_cast<WCHAR *>(values[0].ve_valueptr)), u"süß");
        EXPECT_EQ(values[1].ve_type, REG_BINARY);
        EXPECT_EQ(values[1].ve_valuelen, 3u);
        EXPECT_EQ(std::memcmp(reinterpret_cast<void *>(values[1].ve_valueptr), "\1\2\3", 3), 0);
        EXPECT_EQ(std::u16string(reinterpret_cast<WCHAR *>(values[2].ve_valueptr)), u"𝄞");
    }
    WCHAR none[] = u"none";
    VALENT missing = {none, 0, 0, 0};
    DWORD bytes = 0;
    EXPECT_EQ(RegQueryMultipleValues(key, &missing, 1, nullptr, &bytes), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegQueryMultipleValues(key, nullptr, 1, nullptr, &bytes), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegQueryMultipleValues(key, &missing, 1, nullptr, nullptr), ERROR_INVALID_PARAMETER);
}

TEST_F(RegistryWide, hives_are_saved_restored_loaded_replaced_and_unloaded) {
    const std::string narrowFolder = MakeScratchFolder();
    const std::u16string folder(narrowFolder.begin(), narrowFolder.end());
    const std::u16string hive = folder + u"/Größe.hive";
    ASSERT_EQ(Set(u"Maß", REG_SZ, u"süß"), ERROR_SUCCESS);
    ASSERT_EQ(RegSaveKey(key, hive.c_str(), nullptr), ERROR_SUCCESS);
    EXPECT_FALSE(ReadFile(narrowFolder + "/Größe.hive").empty());
    ASSERT_EQ(RegDeleteValue(key, u"Maß"), ERROR_SUCCESS);
    ASSERT_EQ(RegRestoreKey(key, hive.c_str(), 0), ERROR_SUCCESS);
    EXPECT_NE(ReadValue(Path(), "Maß"), std::nullopt);

    ASSERT_EQ(RegLoadKey(HKEY_USERS, u"geöffnet", hive.c_str()), ERROR_SUCCESS);
    HKEY loaded = 0;
    ASSERT_EQ(RegOpenKey(HKEY_USERS, u"geöffnet", &loaded), ERROR_SUCCESS);
    DWORD bytes = 0;
    EXPECT_EQ(RegQueryValueEx(loaded, u"Maß", nullptr, nullptr, nullptr, &bytes), ERROR_SUCCESS);
    (void)RegCloseKey(loaded);
    const std::u16string second = folder + u"/zwölf.hive";
    const std::u16string old = folder + u"/übrig.hive";
    ASSERT_EQ(RegSaveKey(key, second.c_str(), nullptr), ERROR_SUCCESS);
    EXPECT_EQ(RegReplaceKey(HKEY_USERS, u"geöffnet", second.c_str(), old.c_str()), ERROR_SUCCESS);
    EXPECT_FALSE(ReadFile(narrowFolder + "/übrig.hive").empty());
    EXPECT_EQ(RegUnLoadKey(HKEY_USERS, u"geöffnet"), ERROR_SUCCESS);
    EXPECT_EQ(RegOpenKey(HKEY_USERS, u"geöffnet", &loaded), ERROR_FILE_NOT_FOUND);
}

TEST_F(RegistryWide, this_machine_is_connected_by_its_name_with_backslashes_or_without) {
    const std::string narrow = HostName();
    const std::u16string host(narrow.begin(), narrow.end());
    for (const std::u16string &spelled : {host, u"\\\\" + host}) {
        HKEY root = 0;
        ASSERT_EQ(RegConnectRegistry(spelled.c_str(), HKEY_LOCAL_MACHINE, &root), ERROR_SUCCESS);
        HKEY opened = 0;
        EXPECT_EQ(RegOpenKeyExA(root, Path().c_str(), 0, KEY_READ, &opened), ERROR_SUCCESS);
        (void)RegCloseKey(opened);
        ASSERT_EQ(RegConnectRegistryA(("\\\\" + narrow).c_str(), HKEY_LOCAL_MACHINE, &root), ERROR_SUCCESS);
    }
    HKEY root = 0;
    EXPECT_EQ(RegConnectRegistry(nullptr, HKEY_LOCAL_MACHINE, &root), ERROR_SUCCESS);
    EXPECT_EQ(RegConnectRegistry(u"no-such-machine", HKEY_LOCAL_MACHINE, &root), ERROR_REGISTRY_IO_FAILED);
}

TEST_F(RegistryWide, what_is_no_utf16_is_refused) {
    const WCHAR bad[] = {u'a', 0xDC00, 0};
    HKEY opened = 0;
    DWORD bytes = 0;
    EXPECT_EQ(RegOpenKeyEx(key, bad, 0, KEY_READ, &opened), ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(RegCreateKey(key, bad, &opened), ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(RegDeleteKey(key, bad), ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(RegDeleteValue(key, bad), ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(RegQueryValueEx(key, bad, nullptr, nullptr, nullptr, &bytes), ERROR_NO_UNICODE_TRANSLATION);
    LONG size = 0;
    EXPECT_EQ(RegQueryValue(key, bad, nullptr, &size), ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(RegSetValue(key, bad, REG_SZ, u"good", 0), ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(RegSetValue(key, u"good", REG_SZ, bad, 0), ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(RegConnectRegistry(bad, HKEY_USERS, &opened), ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(RegLoadKey(HKEY_USERS, bad, u"/f"), ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(RegLoadKey(HKEY_USERS, u"good", bad), ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(RegUnLoadKey(HKEY_USERS, bad), ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(RegSaveKey(key, bad, nullptr), ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(RegRestoreKey(key, bad, 0), ERROR_NO_UNICODE_TRANSLATION);
    for (int wrong = 0; wrong < 3; ++wrong) {
        EXPECT_EQ(
            RegReplaceKey(HKEY_USERS, wrong == 0 ? bad : u"k", wrong == 1 ? bad : u"/f", wrong == 2 ? bad : u"/f"),
            ERROR_NO_UNICODE_TRANSLATION);
    }
    VALENT value = {const_cast<LPWSTR>(bad), 0, 0, 0};
    EXPECT_EQ(RegQueryMultipleValues(key, &value, 1, nullptr, &bytes), ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(Set(bad, REG_SZ, u"good"), ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(Set(u"good", REG_SZ, bad), ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(ReadValue(Path(), "good"), std::nullopt);
}

// Overlong and cut sequences, surrogates, and what lies beyond Unicode.
TEST_F(RegistryWide, what_is_no_utf8_in_the_registry_is_told) {
    for (const char *text : {"\xFF", "\xC0\x80", "\xE2\x82", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\x80"}) {
        WriteKey(Path(), {{"odd", REG_SZ, std::string(text) + '\0'}});
        DWORD bytes = 0;
        EXPECT_EQ(RegQueryValueEx(key, u"odd", nullptr, nullptr, nullptr, &bytes), ERROR_NO_UNICODE_TRANSLATION);
    }
}

} // namespace
