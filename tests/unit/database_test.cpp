// SPDX-License-Identifier: MIT
// The array of service records: growth, free records, search by name.
#include "tests/support/memory_registry.h"
#include "tests/support/xdr_bytes.h"

namespace {

struct Database : MemoryRegistryTest {};

// Fills the first `count` records with the names s0, s1, ...
void FillRecords(std::int32_t count) {
    while (svcdbsize < count) {
        ResizeServiceDatabase();
    }
    for (std::int32_t index = 0; index < count; index++) {
        SetServiceName(index, ("s" + std::to_string(index)).c_str());
    }
}

TEST_F(Database, begins_without_records) {
    EXPECT_EQ(svcdbsize, 0);
    EXPECT_EQ(GetServiceIndexFromName("Alpha"), -1);
    ClearVisitingFlags();
}

TEST_F(Database, grows_by_50_zeroed_records) {
    ResizeServiceDatabase();
    EXPECT_EQ(svcdbsize, 50);
    SetServiceName(49, "last");
    ResizeServiceDatabase();
    EXPECT_EQ(svcdbsize, 100);
    EXPECT_STREQ(svcdb[49].name, "last");
    for (std::int32_t index = 50; index < 100; index++) {
        const auto *bytes = reinterpret_cast<const unsigned char *>(&svcdb[index]);
        EXPECT_TRUE(std::all_of(bytes, bytes + sizeof svcdb[index], [](unsigned char byte) { return byte == 0; }))
            << index;
    }
}

TEST_F(Database, next_entry_is_record_0_when_it_is_free_deliberate) {
    InstallService("Alpha");
    InstallService("Beta");
    InstallService("Gamma");
    ASSERT_EQ(ReadServiceDatabase(), 0u);
    EXPECT_EQ(ServiceNames(), "1:Alpha 2:Beta 3:Gamma");
    EXPECT_EQ(GetNextServiceDatabaseEntry(), 0);
}

TEST_F(Database, next_entry_is_the_first_free_record) {
    FillRecords(50);
    SetServiceName(17, nullptr);
    SetServiceName(31, nullptr);
    EXPECT_EQ(GetNextServiceDatabaseEntry(), 17);
    EXPECT_EQ(GetNextServiceDatabaseEntry(), 17) << "the record is not marked as used";
}

TEST_F(Database, next_entry_of_a_full_array_is_the_old_size_and_grows_by_50) {
    FillRecords(50);
    EXPECT_EQ(GetNextServiceDatabaseEntry(), 50);
    EXPECT_EQ(svcdbsize, 100);
    EXPECT_EQ(svcdb[50].name, nullptr);
}

TEST_F(Database, a_record_that_is_freed_below_the_next_entry_comes_first) {
    FillRecords(50);
    EXPECT_EQ(GetNextServiceDatabaseEntry(), 50);
    SetServiceName(50, "s50");
    SetServiceName(3, nullptr);
    EXPECT_EQ(GetNextServiceDatabaseEntry(), 3);
    SetServiceName(3, "s3");
    EXPECT_EQ(GetNextServiceDatabaseEntry(), 51);
}

TEST_F(Database, a_display_name_of_another_is_one_that_a_record_besides_this_bears) {
    FillRecords(3);
    SetServiceDisplayName(1, "Same");
    EXPECT_FALSE(IsDisplayNameOfAnother("Same", 1));
    EXPECT_TRUE(IsDisplayNameOfAnother("Same", 0));
    EXPECT_FALSE(IsDisplayNameOfAnother("same", 0));
    SetServiceDisplayName(2, "Same");
    EXPECT_TRUE(IsDisplayNameOfAnother("Same", 1));
    SetServiceDisplayName(1, nullptr);
    EXPECT_FALSE(IsDisplayNameOfAnother("Same", 2));
}

TEST_F(Database, next_entry_of_no_array_is_record_0) {
    EXPECT_EQ(GetNextServiceDatabaseEntry(), 0);
    EXPECT_EQ(svcdbsize, 50);
}

TEST_F(Database, other_letter_case_finds_nothing_deliberate) {
    FillRecords(1);
    SetServiceName(0, "Alerter");
    EXPECT_EQ(GetServiceIndexFromName("Alerter"), 0);
    EXPECT_EQ(GetServiceIndexFromName("alerter"), -1);
    EXPECT_EQ(GetServiceIndexFromName("Alerte"), -1);
    EXPECT_EQ(GetServiceIndexFromName("Alerters"), -1);
    EXPECT_EQ(GetServiceIndexFromName(""), -1);
}

TEST_F(Database, a_name_borne_twice_finds_the_lower_index) {
    FillRecords(9);
    SetServiceName(7, "twin");
    SetServiceName(3, "twin");
    EXPECT_EQ(GetServiceIndexFromName("twin"), 3);
    SetServiceName(3, nullptr);
    EXPECT_EQ(GetServiceIndexFromName("twin"), 7);
    SetServiceName(5, "twin");
    EXPECT_EQ(GetServiceIndexFromName("twin"), 5);
    SetServiceName(5, "other");
    SetServiceName(7, nullptr);
    EXPECT_EQ(GetServiceIndexFromName("twin"), -1);
    EXPECT_EQ(GetServiceIndexFromName("other"), 5);
}

TEST_F(Database, a_display_name_finds_the_lowest_used_record_that_bears_it) {
    FillRecords(9);
    SetServiceDisplayName(7, "Twin");
    SetServiceDisplayName(3, "Twin");
    EXPECT_EQ(GetServiceIndexFromDisplayName("Twin"), 3);
    EXPECT_EQ(GetServiceIndexFromDisplayName("twin"), -1);
    SetServiceDisplayName(3, "Other");
    EXPECT_EQ(GetServiceIndexFromDisplayName("Twin"), 7);
    SetServiceName(7, nullptr);
    EXPECT_EQ(GetServiceIndexFromDisplayName("Twin"), -1);
    SetServiceDisplayName(3, nullptr);
    EXPECT_EQ(GetServiceIndexFromDisplayName("Other"), -1);
}

TEST_F(Database, names_are_found_after_every_growth) {
    for (const std::int32_t count : {1, 49, 50, 51, 100, 101, 1000}) {
        FillRecords(count);
        for (std::int32_t index = 0; index < count; index++) {
            ASSERT_EQ(GetServiceIndexFromName(("s" + std::to_string(index)).c_str()), index) << count;
        }
    }
}

TEST_F(Database, clears_the_marks_of_free_records_too) {
    FillRecords(2);
    svcdb[1].visited = svcdb[1].visiting = 1;
    svcdb[40].visited = svcdb[40].visiting = 1;
    ClearVisitingFlags();
    for (const std::int32_t index : {1, 40}) {
        EXPECT_EQ(svcdb[index].visited, 0);
        EXPECT_EQ(svcdb[index].visiting, 0);
    }
}

TEST_F(Database, a_handle_is_the_index_of_a_used_record) {
    FillRecords(3);
    EXPECT_TRUE(IsServiceHandle(0));
    EXPECT_TRUE(IsServiceHandle(2));
    EXPECT_FALSE(IsServiceHandle(3)) << "free";
    EXPECT_FALSE(IsServiceHandle(50)) << "beyond the array";
    EXPECT_FALSE(IsServiceHandle(-1));
    EXPECT_FALSE(IsServiceHandle(INT32_MIN));
    EXPECT_FALSE(IsServiceHandle(INT32_MAX));
}

// What svcnames has of a record, as bytes.
std::string ListedBytes(std::int32_t index) {
    return {reinterpret_cast<const char *>(svcnames[index].words), svcnames[index].wordCount * 4};
}

TEST_F(Database, the_names_of_a_record_are_kept_as_a_listing_has_them) {
    FillRecords(1);
    EXPECT_EQ(ListedBytes(0), Words({1}) + XdrString("s0") + XdrString(""));
    EXPECT_EQ(svcnames[0].recordBytes, 3 + 1 + 36);
    SetServiceDisplayName(0, "Display");
    EXPECT_EQ(ListedBytes(0), Words({1}) + XdrString("s0") + XdrString("Display"));
    EXPECT_EQ(svcnames[0].recordBytes, 3 + 8 + 36);
    SetServiceName(0, "renamed");
    SetServiceDisplayName(0, "");
    EXPECT_EQ(ListedBytes(0), Words({1}) + XdrString("renamed") + XdrString(""));
    ResizeServiceDatabase();
    EXPECT_EQ(ListedBytes(0), Words({1}) + XdrString("renamed") + XdrString(""));
    EXPECT_EQ(ListedBytes(50), "");
    SetServiceName(0, nullptr);
    EXPECT_EQ(svcnames[0].words, nullptr);
    EXPECT_EQ(svcnames[0].wordCount, 0u);
    SetServiceDisplayName(0, nullptr);
    EXPECT_EQ(svcnames[0].words, nullptr);
}

} // namespace
