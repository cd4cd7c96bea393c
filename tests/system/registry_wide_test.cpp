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

TEST_F(RegistryWide, what_is_no_utf16_is_refused) {
    const WCHAR bad[] = {u'a', 0xDC00, 0};
    HKEY opened = 0;
    DWORD bytes = 0;
    EXPECT_EQ(RegOpenKeyEx(key, bad, 0, KEY_READ, &opened), ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(RegCreateKey(key, bad, &opened), ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(RegDeleteKey(key, bad), ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(RegDeleteValue(key, bad), ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(RegQueryValueEx(key, bad, nullptr, nullptr, nullptr, &bytes), ERROR_NO_UNICODE_TRANSLATION);
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
