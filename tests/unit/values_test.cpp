// SPDX-License-Identifier: MIT
// Reading values of any length: what comes, what stands behind it, and what is not believed.
#include "tests/support/memory_registry.h"

#include "registry/operations.h"
#include "servd/limits.h"

#include <algorithm>

namespace {

struct Values : MemoryRegistryTest {
    Values() {
        MakeKey(servicesPath);
        EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, servicesKeyPath, 0, KEY_ALL_ACCESS, &key), 0);
    }
    HKEY key = 0;
    HeapText value;
    DWORD bytes = 0;
};

TEST_F(Values, two_zero_bytes_stand_behind_the_data) {
    SetValue(servicesPath, "V", REG_MULTI_SZ, "abc");
    DWORD type = 0;
    ASSERT_EQ(ReadWholeValue(key, "V", &value, &bytes, &type), 0u);
    EXPECT_EQ(bytes, 3u);
    EXPECT_EQ(type, DWORD{REG_MULTI_SZ});
    EXPECT_EQ(std::string(value.get(), 5), std::string("abc\0\0", 5));
}

// A registry may answer with success and tell of more bytes than there was room for; they have not come.
TEST_F(Values, no_more_has_come_than_there_was_room_for) {
    SetValue(servicesPath, "V", REG_BINARY, "abcd");
    static decltype(&RegQueryValueExA) query;
    query = _tvRegistryAPISet[0].reg_query_value_ex_a;
    _tvRegistryAPISet[0].reg_query_value_ex_a = [](HKEY hKey, LPCSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data,
                                                   LPDWORD size) {
        const LONG rc = query(hKey, name, reserved, type, data, size);
        if (data != nullptr) *size = UINT32_MAX;
        return rc;
    };
    ASSERT_EQ(ReadWholeValue(key, "V", &value, &bytes), 0u);
    EXPECT_EQ(bytes, 4u);
}

TEST_F(Values, a_value_that_has_grown_between_the_two_queries_is_refused) {
    SetValue(servicesPath, "V", REG_BINARY, "abcd");
    ASSERT_EQ(QueryValueSize(key, "V", &bytes), 0u);
    SetValue(servicesPath, "V", REG_BINARY, "abcdefgh");
    EXPECT_EQ(ReadValue(key, "V", &value, &bytes), std::uint32_t{ERROR_MORE_DATA});
    EXPECT_EQ(bytes, 4u);
}

TEST_F(Values, sixteen_mebibytes_are_read_and_one_more_byte_is_not) {
    SetValue(servicesPath, "V", REG_BINARY, std::string(longestValueBytes, 'x'));
    EXPECT_EQ(ReadWholeValue(key, "V", &value, &bytes), 0u);
    EXPECT_EQ(bytes, longestValueBytes);
    EXPECT_TRUE(std::all_of(value.get(), value.get() + bytes, [](char byte) { return byte == 'x'; }));

    SetValue(servicesPath, "V", REG_BINARY, std::string(longestValueBytes + 1, 'x'));
    EXPECT_EQ(ReadWholeValue(key, "V", &value, &bytes), std::uint32_t{ERROR_NOT_ENOUGH_MEMORY});
}

TEST_F(Values, a_missing_value_has_no_bytes) {
    bytes = 7;
    EXPECT_EQ(QueryValueSize(key, "V", &bytes), std::uint32_t{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(bytes, 0u);
    EXPECT_EQ(ReadWholeValue(key, "V", &value, &bytes), std::uint32_t{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(value, nullptr);
}

} // namespace
