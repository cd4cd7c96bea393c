// SPDX-License-Identifier: MIT
// The 49 Win32 functions, the dispatch table behind them, the mutex and the base key.
#include "registry/connection.h"
#include "registry/operations.h"
#include "registry/tvpthread.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <utility>
#include <vector>

namespace {

// What a slot was called with, each argument as a word.
struct SlotCall {
    int slot;
    std::vector<std::uint64_t> arguments;
};
std::vector<SlotCall> slotCalls;

template <typename Parameter>
std::uint64_t AsWord(Parameter argument) {
    if constexpr (std::is_pointer_v<Parameter>) {
        return reinterpret_cast<std::uintptr_t>(argument);
    } else {
        return static_cast<std::uint64_t>(argument);
    }
}

template <typename Parameter>
Parameter FromWord(std::uint64_t word) {
    if constexpr (std::is_pointer_v<Parameter>) {
        return reinterpret_cast<Parameter>(static_cast<std::uintptr_t>(word));
    } else {
        return static_cast<Parameter>(word);
    }
}

template <int Slot, typename... Parameters>
LONG RecordSlot(Parameters... arguments) {
    slotCalls.push_back({Slot, {AsWord(arguments)...}});
    return 1000 + Slot;
}

template <typename... Parameters, std::size_t... I>
LONG CallWithNumbers(LONG (*function)(Parameters...), std::index_sequence<I...>) {
    return function(FromWord<Parameters>(101 + I)...);
}

// Calls the entry point with 101, 102, ... while its slot, found by its place in the table, records what arrives.
template <int Slot, typename... Parameters>
void ExpectForwards(LONG (*entryPoint)(Parameters...)) {
    SCOPED_TRACE("slot " + std::to_string(Slot));
    void (**row)() = reinterpret_cast<void (**)()>(&_tvRegistryAPISet[0]);
    void (*const kept)() = row[Slot];
    row[Slot] = reinterpret_cast<void (*)()>(&RecordSlot<Slot, Parameters...>);
    slotCalls.clear();

    const LONG rc = CallWithNumbers(entryPoint, std::index_sequence_for<Parameters...>());

    row[Slot] = kept;
    EXPECT_EQ(rc, 1000 + Slot);
    ASSERT_EQ(slotCalls.size(), 1u);
    EXPECT_EQ(slotCalls[0].slot, Slot);
    std::vector<std::uint64_t> expected;
    for (std::size_t i = 0; i < sizeof...(Parameters); ++i) {
        expected.push_back(101 + i);
    }
    EXPECT_EQ(slotCalls[0].arguments, expected);
}

// A registry in which keys can be created, until `refused` is asked for.
struct CreatedKey {
    HKEY parent;
    std::string name;
    DWORD access;
};
std::vector<CreatedKey> createdKeys;
std::string refused;

LONG CreateOrRefuse(HKEY parent, LPCSTR name, DWORD reserved, LPSTR keyClass, DWORD options, REGSAM access,
                    LPSECURITY_ATTRIBUTES attributes, PHKEY result, LPDWORD disposition) {
    EXPECT_EQ(reserved, 0u);
    EXPECT_EQ(keyClass, nullptr);
    EXPECT_EQ(options, 0u);
    EXPECT_EQ(attributes, nullptr);
    EXPECT_NE(disposition, nullptr);
    createdKeys.push_back({parent, name, access});
    if (name == refused) return ERROR_ACCESS_DENIED;
    *result = 0x100 + static_cast<HKEY>(createdKeys.size());
    return ERROR_SUCCESS;
}

struct TvGetBaseRegistryKey : testing::Test {
    TvGetBaseRegistryKey() {
        _tvRegistryAPISet[0].reg_create_key_ex_a = CreateOrRefuse;
        _tvRegistryAPISet[0].reg_close_key = RecordSlot<0, HKEY>;
        slotCalls.clear();
        bCached = 0;
        createdKeys.clear();
        refused.clear();
    }
    ~TvGetBaseRegistryKey() override {
        _tvRegistryAPISet[0].reg_create_key_ex_a = reg_create_key_ex_a;
        _tvRegistryAPISet[0].reg_close_key = reg_close_key;
        bCached = 0;
    }
    TvGetBaseRegistryKey(const TvGetBaseRegistryKey &) = delete;
    TvGetBaseRegistryKey &operator=(const TvGetBaseRegistryKey &) = delete;
};

} // namespace

TEST(RegistryEntryPoints, each_calls_its_slot_with_its_arguments_in_order_and_returns_its_result) {
    ExpectForwards<0>(RegCloseKey);
    ExpectForwards<1>(RegConnectRegistryA);
    ExpectForwards<2>(RegConnectRegistryW);
    ExpectForwards<3>(RegCreateKeyA);
    ExpectForwards<4>(RegCreateKeyW);
    ExpectForwards<5>(RegCreateKeyExA);
    ExpectForwards<6>(RegCreateKeyExW);
    ExpectForwards<7>(RegDeleteKeyA);
    ExpectForwards<8>(RegDeleteKeyW);
    ExpectForwards<9>(RegDeleteValueA);
    ExpectForwards<10>(RegDeleteValueW);
    ExpectForwards<11>(RegEnumKeyA);
    ExpectForwards<12>(RegEnumKeyW);
    ExpectForwards<13>(RegEnumKeyExA);
    ExpectForwards<14>(RegEnumKeyExW);
    ExpectForwards<15>(RegEnumValueA);
    ExpectForwards<16>(RegEnumValueW);
    ExpectForwards<17>(RegFlushKey);
    ExpectForwards<18>(RegGetKeySecurity);
    ExpectForwards<19>(RegLoadKeyA);
    ExpectForwards<20>(RegLoadKeyW);
    ExpectForwards<21>(RegNotifyChangeKeyValue);
    ExpectForwards<22>(RegOpenKeyA);
    ExpectForwards<23>(RegOpenKeyW);
    ExpectForwards<24>(RegOpenKeyExA);
    ExpectForwards<25>(RegOpenKeyExW);
    ExpectForwards<26>(RegQueryInfoKeyA);
    ExpectForwards<27>(RegQueryInfoKeyW);
    ExpectForwards<28>(RegQueryValueA);
    ExpectForwards<29>(RegQueryValueW);
    ExpectForwards<30>(RegQueryMultipleValuesA);
    ExpectForwards<31>(RegQueryMultipleValuesW);
    ExpectForwards<32>(RegQueryValueExA);
    ExpectForwards<33>(RegQueryValueExW);
    ExpectForwards<34>(RegReplaceKeyA);
    ExpectForwards<35>(RegReplaceKeyW);
    ExpectForwards<36>(RegRestoreKeyA);
    ExpectForwards<37>(RegRestoreKeyW);
    ExpectForwards<38>(RegSaveKeyA);
    ExpectForwards<39>(RegSaveKeyW);
    ExpectForwards<40>(RegSetKeySecurity);
    ExpectForwards<41>(RegSetValueA);
    ExpectForwards<42>(RegSetValueW);
    ExpectForwards<43>(RegSetValueExA);
    ExpectForwards<44>(RegSetValueExW);
    ExpectForwards<45>(RegUnLoadKeyA);
    ExpectForwards<46>(RegUnLoadKeyW);
    ExpectForwards<47>(RegQueryVersionInfo);
    ExpectForwards<48>(RegPingDaemon);
}

TEST(RegistryConstants, have_their_win32_numbers) {
    EXPECT_EQ(HKEY_CLASSES_ROOT, 0x80000000u);
    EXPECT_EQ(HKEY_CURRENT_USER, 0x80000001u);
    EXPECT_EQ(HKEY_LOCAL_MACHINE, 0x80000002u);
    EXPECT_EQ(HKEY_USERS, 0x80000003u);
    EXPECT_EQ(HKEY_PERFORMANCE_DATA, 0x80000004u);
    EXPECT_EQ(HKEY_CURRENT_CONFIG, 0x80000005u);
    EXPECT_EQ(HKEY_DYN_DATA, 0x80000006u);
    EXPECT_EQ(KEY_ALL_ACCESS, 0xF003Fu);
    EXPECT_EQ(REG_NONE, 0u);
    EXPECT_EQ(REG_SZ, 1u);
    EXPECT_EQ(REG_EXPAND_SZ, 2u);
    EXPECT_EQ(REG_BINARY, 3u);
    EXPECT_EQ(REG_DWORD, 4u);
    EXPECT_EQ(REG_DWORD_BIG_ENDIAN, 5u);
    EXPECT_EQ(REG_LINK, 6u);
    EXPECT_EQ(REG_MULTI_SZ, 7u);
    EXPECT_EQ(REG_OPTION_NON_VOLATILE, 0u);
    EXPECT_EQ(REG_OPTION_VOLATILE, 1u);
    EXPECT_EQ(REG_CREATED_NEW_KEY, 1u);
    EXPECT_EQ(REG_OPENED_EXISTING_KEY, 2u);
}

TEST(RegistryTypes, are_as_wide_as_on_32_bit_windows) {
    EXPECT_EQ(sizeof(BYTE), 1u);
    EXPECT_EQ(sizeof(WCHAR), 2u);
    EXPECT_EQ(sizeof(WORD), 2u);
    EXPECT_EQ(sizeof(LONG), 4u);
    EXPECT_EQ(sizeof(DWORD), 4u);
    EXPECT_EQ(sizeof(BOOL), 4u);
    EXPECT_EQ(sizeof(HKEY), 4u);
    EXPECT_EQ(sizeof(FILETIME), 8u);
    EXPECT_LT(LONG(-1), 0);
    EXPECT_GT(DWORD(-1), 0u);
}

TEST(RegistryAPISet, row_0_holds_the_operations_in_slot_order_and_row_1_nothing) {
    const RegistryOperations &row = _tvRegistryAPISet[0];
    EXPECT_EQ(row.reg_close_key, reg_close_key);
    EXPECT_EQ(row.reg_open_key_ex_a, reg_open_key_ex_a);
    EXPECT_EQ(row.reg_query_multiple_values_w, reg_query_multiple_values_w);
    EXPECT_EQ(row.reg_query_value_ex_a, reg_query_value_ex_a);
    EXPECT_EQ(row.reg_ping_daemon, reg_ping_daemon);

    const auto slots = reinterpret_cast<void (**)()>(&_tvRegistryAPISet[0]);
    for (int slot = 0; slot < registrySlots; ++slot) {
        EXPECT_NE(slots[slot], nullptr) << slot;
        EXPECT_EQ(slots[registrySlots + slot], nullptr) << slot;
        for (int other = 0; other < slot; ++other) {
            EXPECT_NE(slots[slot], slots[other]) << slot << " and " << other;
        }
    }
    EXPECT_EQ(slots[24], reinterpret_cast<void (*)()>(reg_open_key_ex_a));
    EXPECT_EQ(slots[30], reinterpret_cast<void (*)()>(reg_query_multiple_values_a));
    EXPECT_EQ(slots[32], reinterpret_cast<void (*)()>(reg_query_value_ex_a));
    EXPECT_EQ(tvOSID, 0);
}

TEST(RegistryAPISet, the_row_is_chosen_by_the_os_id) {
    _tvRegistryAPISet[1].reg_flush_key = RecordSlot<1017, HKEY>;
    tvOSID = 1;
    const LONG rc = RegFlushKey(7);
    tvOSID = 0;
    _tvRegistryAPISet[1] = {};
    EXPECT_EQ(rc, 2017);
}

TEST(RegistryMutex, is_made_by_the_first_call_and_not_again_by_the_second) {
    // A mutex of another kind stands in its place, which an initialisation turns into a plain one: that is told by what
    // a second lock of the same thread, with a deadline that has passed, answers.
    _tvRegistryAPISet[0].reg_flush_key = [](HKEY) -> LONG {
        const timespec past = {};
        return pthread_mutex_timedlock(&tvRegistryMutex, &past);
    };
    pthread_mutexattr_t checking;
    pthread_mutexattr_init(&checking);
    pthread_mutexattr_settype(&checking, PTHREAD_MUTEX_ERRORCHECK);
    pthread_mutex_init(&tvRegistryMutex, &checking);
    btvRegistryMutexNeedToInit = 1;
    EXPECT_EQ(RegFlushKey(0), ETIMEDOUT);
    EXPECT_EQ(btvRegistryMutexNeedToInit, 0);

    pthread_mutex_init(&tvRegistryMutex, &checking);
    EXPECT_EQ(RegFlushKey(0), EDEADLK);
    _tvRegistryAPISet[0].reg_flush_key = reg_flush_key;
    btvRegistryMutexNeedToInit = 1;
}

TEST(RegistryMutex, is_free_between_two_calls) {
    ExpectForwards<0>(RegCloseKey);
    ASSERT_EQ(pthread_mutex_trylock(&tvRegistryMutex), 0);
    pthread_mutex_unlock(&tvRegistryMutex);
}

TEST(RegPingDaemon, mode_0_after_a_tear_down_answers_1_and_calls_nothing) {
    connectionTableDestroyed = 1;
    slotCalls.clear();
    _tvRegistryAPISet[0].reg_ping_daemon = RecordSlot<48, int>;
    EXPECT_EQ(RegPingDaemon(0), 1);
    EXPECT_TRUE(slotCalls.empty());

    EXPECT_EQ(RegPingDaemon(1), 1048);
    EXPECT_EQ(slotCalls.size(), 1u);
    _tvRegistryAPISet[0].reg_ping_daemon = reg_ping_daemon;
    connectionTableDestroyed = 0;
    EXPECT_EQ(pthread_mutex_trylock(&tvRegistryMutex), 0);
    pthread_mutex_unlock(&tvRegistryMutex);
}

TEST_F(TvGetBaseRegistryKey, the_first_call_creates_three_keys_the_second_one_only_the_last) {
    HKEY first = 0;
    HKEY second = 0;
    EXPECT_EQ(tvGetBaseRegistryKey(&first), ERROR_SUCCESS);
    EXPECT_EQ(tvGetBaseRegistryKey(&second), ERROR_SUCCESS);
    EXPECT_NE(first, second);

    ASSERT_EQ(createdKeys.size(), 4u);
    EXPECT_EQ(createdKeys[0].parent, HKEY_LOCAL_MACHINE);
    EXPECT_EQ(createdKeys[0].name, "Software");
    EXPECT_EQ(createdKeys[1].parent, 0x101u);
    EXPECT_EQ(createdKeys[1].name, "Corvane");
    EXPECT_EQ(createdKeys[2].parent, 0x102u);
    EXPECT_EQ(createdKeys[2].name, "Tarvo");
    EXPECT_EQ(createdKeys[3].parent, 0x102u);
    EXPECT_EQ(createdKeys[3].name, "Tarvo");
    for (const CreatedKey &key : createdKeys) {
        EXPECT_EQ(key.access, 0xF003Fu);
    }
}

TEST_F(TvGetBaseRegistryKey, software_refused_is_the_answer_and_nothing_more_is_asked) {
    refused = "Software";
    HKEY key = 7;
    EXPECT_EQ(tvGetBaseRegistryKey(&key), ERROR_ACCESS_DENIED);
    EXPECT_EQ(createdKeys.size(), 1u);
    EXPECT_EQ(key, 7u);
}

TEST_F(TvGetBaseRegistryKey, after_corvane_was_refused_software_is_opened_anew_deliberate) {
    refused = "Corvane";
    HKEY key = 0;
    EXPECT_EQ(tvGetBaseRegistryKey(&key), ERROR_ACCESS_DENIED);
    EXPECT_EQ(bCached, 0);
    refused.clear();
    createdKeys.clear();
    EXPECT_EQ(tvGetBaseRegistryKey(&key), ERROR_SUCCESS);
    ASSERT_EQ(createdKeys.size(), 3u);
    EXPECT_EQ(createdKeys[0].name, "Software");
    EXPECT_TRUE(slotCalls.empty()) << "a key has been closed";
}

TEST_F(TvGetBaseRegistryKey, tarvo_refused_leaves_the_two_keys_above_it_cached) {
    refused = "Tarvo";
    HKEY key = 0;
    EXPECT_EQ(tvGetBaseRegistryKey(&key), ERROR_ACCESS_DENIED);
    EXPECT_EQ(bCached, 1);
}
