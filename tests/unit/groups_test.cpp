// SPDX-License-Identifier: MIT
// Load-order groups and the image-path list: growth, filing, removal, the order list and the tag vectors.
#include "servd/limits.h"
#include "tests/support/cpu_time.h"
#include "tests/support/memory_registry.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;

const std::string orderPath = groupOrderKeyPath;
const std::string tagsPath = tagOrderKeyPath;

struct Groups : MemoryRegistryTest {};

void Add(const char *group, std::int32_t index) { AddServiceToGroupList(&grouplist, &grouplistsize, group, index); }

void Remove(const char *group, std::int32_t index) {
    RemoveServiceFromGroupList(grouplist, &grouplistsize, group, index);
}

// The chain of an entry as indexes.
std::vector<int> Members(const GroupListEntry *list, std::int32_t entry) {
    std::vector<int> indexes;
    for (const GroupMember *member = list[entry].members; member != nullptr; member = member->next) {
        indexes.push_back(member->serviceIndex);
    }
    return indexes;
}

// The names of the used entries, in order.
std::vector<std::string> GroupNames() {
    std::vector<std::string> names;
    for (std::int32_t index = 0; index < grouplistsize && grouplist[index].name != nullptr; index++) {
        names.emplace_back(grouplist[index].name);
    }
    return names;
}

std::string TagVector(const std::vector<DWORD> &tags) {
    std::string data = Dword(static_cast<DWORD>(tags.size()));
    for (const DWORD tag : tags) {
        data += Dword(tag);
    }
    return data;
}

// Loads services a, b, c, ... with these tags into group G; in front of sorting they stand last first.
void LoadGroup(const std::vector<DWORD> &tags) {
    std::string name = "a";
    for (const DWORD tag : tags) {
        InstallService(name, {.group = "G", .tag = tag});
        name[0]++;
    }
    ASSERT_EQ(ReadServiceDatabase(), 0u);
}

// --- the list ---

TEST_F(Groups, the_first_growth_gives_20_entries) {
    ResizeGroupList(&grouplist, &grouplistsize);
    ASSERT_EQ(grouplistsize, 20);
    for (std::int32_t index = 0; index < 20; index++) {
        EXPECT_EQ(grouplist[index].name, nullptr);
        EXPECT_EQ(grouplist[index].members, nullptr);
    }
}

TEST_F(Groups, a_later_growth_adds_20_zeroed_entries) {
    Add("first", 1);
    ResizeGroupList(&grouplist, &grouplistsize);
    ASSERT_EQ(grouplistsize, 40);
    EXPECT_STREQ(grouplist[0].name, "first");
    for (std::int32_t index = 1; index < 40; index++) {
        EXPECT_EQ(grouplist[index].name, nullptr) << index;
        EXPECT_EQ(grouplist[index].members, nullptr) << index;
    }
}

TEST_F(Groups, a_name_is_found_by_exact_comparison) {
    Add("Network", 1);
    Add("Disk", 2);
    EXPECT_EQ(GetGroupIndexFromName(grouplist, &grouplistsize, "Disk"), 1);
    EXPECT_EQ(GetGroupIndexFromName(grouplist, &grouplistsize, "disk"), -1);
    EXPECT_EQ(GetGroupIndexFromName(grouplist, &grouplistsize, "Dis"), -1);
    EXPECT_EQ(GetGroupIndexFromName(nullptr, &imagepathlistsize, "Disk"), -1);
}

TEST_F(Groups, members_stand_last_added_first) {
    for (const std::int32_t index : {4, 7, 2}) {
        Add("G", index);
    }
    EXPECT_EQ(Members(grouplist, 0), (std::vector{2, 7, 4}));
}

TEST_F(Groups, two_services_loaded_a_then_b_read_b_a) {
    LoadGroup({1, 2});
    EXPECT_THAT(MembersOf(grouplist, grouplistsize, "G"), ElementsAre("b", "a"));
}

TEST_F(Groups, a_service_may_be_added_twice) {
    Add("G", 4);
    Add("G", 4);
    EXPECT_EQ(Members(grouplist, 0), (std::vector{4, 4}));
}

TEST_F(Groups, the_21st_name_grows_the_list) {
    for (int number = 0; number < 21; number++) {
        Add(("g" + std::to_string(number)).c_str(), number);
    }
    EXPECT_EQ(grouplistsize, 40);
    EXPECT_STREQ(grouplist[20].name, "g20");
    EXPECT_EQ(Members(grouplist, 20), std::vector{20});
}

TEST_F(Groups, names_are_found_after_every_growth) {
    for (int number = 0; number < 1000; number++) {
        Add(("g" + std::to_string(number)).c_str(), number);
        ASSERT_EQ(GetGroupIndexFromName(grouplist, &grouplistsize, ("g" + std::to_string(number / 2)).c_str()),
                  number / 2);
    }
}

TEST_F(Groups, the_two_lists_do_not_mix) {
    Add("name", 1);
    AddServiceToGroupList(&imagepathlist, &imagepathlistsize, "other", 2);
    AddServiceToGroupList(&imagepathlist, &imagepathlistsize, "name", 3);
    EXPECT_EQ(GetGroupIndexFromName(grouplist, &grouplistsize, "name"), 0);
    EXPECT_EQ(GetGroupIndexFromName(grouplist, &grouplistsize, "other"), -1);
    EXPECT_EQ(GetGroupIndexFromName(imagepathlist, &imagepathlistsize, "name"), 1);
    EXPECT_EQ(Members(grouplist, 0), std::vector{1});
    EXPECT_EQ(Members(imagepathlist, 1), std::vector{3});
}

TEST_F(Groups, removal_takes_the_first_node_of_the_service) {
    for (const std::int32_t index : {1, 2, 3, 2}) {
        Add("G", index);
    }
    Remove("G", 2);
    EXPECT_EQ(Members(grouplist, 0), (std::vector{3, 2, 1}));
    Remove("G", 1);
    EXPECT_EQ(Members(grouplist, 0), (std::vector{3, 2}));
    Remove("G", 9);
    EXPECT_EQ(Members(grouplist, 0), (std::vector{3, 2}));
}

TEST_F(Groups, an_emptied_entry_stays) {
    Add("G", 1);
    Add("H", 2);
    Remove("G", 1);
    EXPECT_THAT(GroupNames(), ElementsAre("G", "H"));
    EXPECT_TRUE(Members(grouplist, 0).empty());
    Add("G", 3);
    EXPECT_EQ(Members(grouplist, 0), std::vector{3});
}

TEST_F(Groups, removal_from_an_unknown_group_does_nothing) {
    Add("G", 1);
    Remove("H", 1);
    EXPECT_EQ(Members(grouplist, 0), std::vector{1});
}

TEST_F(Groups, removal_from_the_image_paths_edits_the_group_of_that_index_deliberate) {
    Add("G", 1);
    Add("H", 1);
    AddServiceToGroupList(&imagepathlist, &imagepathlistsize, "/bin/a", 5);
    AddServiceToGroupList(&imagepathlist, &imagepathlistsize, "/bin/b", 1);
    RemoveServiceFromGroupList(imagepathlist, &imagepathlistsize, "/bin/b", 1);
    EXPECT_EQ(Members(imagepathlist, 1), std::vector{1});
    EXPECT_EQ(Members(grouplist, 0), std::vector{1});
    EXPECT_TRUE(Members(grouplist, 1).empty());
}

TEST_F(Groups, removal_from_the_image_paths_without_groups_does_nothing) {
    AddServiceToGroupList(&imagepathlist, &imagepathlistsize, "/bin/a", 5);
    RemoveServiceFromGroupList(imagepathlist, &imagepathlistsize, "/bin/a", 5);
    EXPECT_EQ(Members(imagepathlist, 0), std::vector{5});
}

TEST_F(Groups, removal_beyond_the_groups_does_nothing) {
    Add("G", 20);
    for (int number = 0; number <= 20; number++) {
        AddServiceToGroupList(&imagepathlist, &imagepathlistsize, ("/bin/" + std::to_string(number)).c_str(), number);
    }
    RemoveServiceFromGroupList(imagepathlist, &imagepathlistsize, "/bin/20", 20);
    EXPECT_EQ(Members(grouplist, 0), std::vector{20});
}

// --- the order list ---

std::uint32_t ReadOrder() { return ReadGroupOrderList(&firstunorderedgroupindex); }

TEST_F(Groups, without_the_order_key_there_are_no_ordered_groups) {
    firstunorderedgroupindex = 5;
    EXPECT_EQ(ReadOrder(), 0u);
    EXPECT_EQ(firstunorderedgroupindex, 0);
    EXPECT_EQ(grouplist, nullptr);
    EXPECT_THAT(RegistryCalls(), ElementsAre("open " + orderPath));
    InstallService("Alpha", {.group = "G"});
    ASSERT_EQ(ReadServiceDatabase(), 0u);
    EXPECT_THAT(GroupNames(), ElementsAre("G"));
}

TEST_F(Groups, the_order_is_read_in_two_queries) {
    SetTexts(orderPath, "List", {"Boot", "Disk", "Network"});
    EXPECT_EQ(ReadOrder(), 0u);
    EXPECT_EQ(firstunorderedgroupindex, 3);
    EXPECT_THAT(GroupNames(), ElementsAre("Boot", "Disk", "Network"));
    EXPECT_THAT(RegistryCalls(), ElementsAre("open " + orderPath, "size " + orderPath + " List",
                                             "query " + orderPath + " List", "close " + orderPath));
}

TEST_F(Groups, groups_that_only_services_name_follow_the_ordered_ones) {
    SetTexts(orderPath, "List", {"Boot", "Disk"});
    InstallService("a", {.group = "Late"});
    InstallService("b", {.group = "Disk"});
    InstallService("c", {.group = "Later"});
    InstallService("d", {.group = "Late"});
    ASSERT_EQ(ReadOrder(), 0u);
    ASSERT_EQ(ReadServiceDatabase(), 0u);
    EXPECT_EQ(firstunorderedgroupindex, 2);
    EXPECT_THAT(GroupNames(), ElementsAre("Boot", "Disk", "Late", "Later"));
    EXPECT_THAT(MembersOf(grouplist, grouplistsize, "Boot"), ElementsAre());
    EXPECT_THAT(MembersOf(grouplist, grouplistsize, "Late"), ElementsAre("d", "a"));
}

TEST_F(Groups, a_name_given_twice_gets_two_entries_and_services_join_the_first) {
    SetTexts(orderPath, "List", {"Disk", "Boot", "Disk"});
    InstallService("a", {.group = "Disk"});
    ASSERT_EQ(ReadOrder(), 0u);
    ASSERT_EQ(ReadServiceDatabase(), 0u);
    EXPECT_EQ(firstunorderedgroupindex, 3);
    EXPECT_THAT(GroupNames(), ElementsAre("Disk", "Boot", "Disk"));
    EXPECT_EQ(Members(grouplist, 0), std::vector{1});
    EXPECT_TRUE(Members(grouplist, 2).empty());
}

TEST_F(Groups, the_21st_ordered_group_grows_the_list_to_40) {
    std::vector<std::string> names;
    for (int number = 0; number < 25; number++) {
        names.push_back("g" + std::to_string(number));
    }
    SetTexts(orderPath, "List", {names.begin(), names.begin() + 20});
    ASSERT_EQ(ReadOrder(), 0u);
    EXPECT_EQ(grouplistsize, 20);
    EmptyServiceDatabase();

    SetTexts(orderPath, "List", names);
    ASSERT_EQ(ReadOrder(), 0u);
    EXPECT_EQ(grouplistsize, 40);
    EXPECT_EQ(firstunorderedgroupindex, 25);
    EXPECT_EQ(GroupNames(), names);
}

struct OrderData {
    const char *name;
    std::string data;
    std::vector<std::string> groups;
};

TEST_F(Groups, the_order_list_ends_where_its_data_end) {
    using namespace std::string_literals;
    const OrderData cases[] = {{"empty", ""s, {}},
                               {"nothing but terminators", "\0\0\0"s, {}},
                               {"terminators in front", "\0\0Boot\0Disk\0\0"s, {"Boot", "Disk"}},
                               {"no final terminator", "Boot\0Disk\0"s, {"Boot", "Disk"}},
                               {"not terminated at all", "Boot\0Disk"s, {"Boot", "Disk"}},
                               {"more behind the end", "Boot\0\0Disk\0\0"s, {"Boot"}}};
    for (const OrderData &order : cases) {
        SetValue(orderPath, "List", REG_MULTI_SZ, order.data);
        EXPECT_EQ(ReadOrder(), 0u) << order.name;
        EXPECT_EQ(GroupNames(), order.groups) << order.name;
        EXPECT_EQ(firstunorderedgroupindex, static_cast<int>(order.groups.size())) << order.name;
        EmptyServiceDatabase();
    }
}

TEST_F(Groups, a_missing_or_failing_order_list_closes_the_key_and_is_returned) {
    MakeKey(orderPath);
    EXPECT_EQ(ReadOrder(), std::uint32_t{ERROR_FILE_NOT_FOUND}) << "the key is there, the value is not";
    EXPECT_THAT(OpenKeys(), ElementsAre());

    SetTexts(orderPath, "List", {"Boot"});
    for (const int call : {1, 2, 3}) {
        FailNthCall(call, ERROR_REGISTRY_IO_FAILED);
        EXPECT_EQ(ReadOrder(), std::uint32_t{ERROR_REGISTRY_IO_FAILED}) << call;
        EXPECT_THAT(OpenKeys(), ElementsAre()) << call;
        ForgetCalls();
    }
}

// --- tag vectors ---

TEST_F(Groups, without_the_tag_key_the_order_stays) {
    LoadGroup({3, 1, 2});
    EXPECT_EQ(SortServicesInGroups(), 0u);
    EXPECT_THAT(MembersOf(grouplist, grouplistsize, "G"), ElementsAre("c", "b", "a"));
}

TEST_F(Groups, members_are_sorted_by_the_tag_vector) {
    LoadGroup({3, 1, 2});
    SetValue(tagsPath, "G", REG_BINARY, TagVector({1, 2, 3}));
    EXPECT_EQ(SortServicesInGroups(), 0u);
    EXPECT_THAT(MembersOf(grouplist, grouplistsize, "G"), ElementsAre("b", "c", "a"));
}

TEST_F(Groups, tags_that_nobody_bears_are_skipped_and_the_rest_follows_as_it_stood) {
    LoadGroup({5, 6, 7, 8});
    SetValue(tagsPath, "G", REG_BINARY, TagVector({99, 6, 1, 5, 98}));
    EXPECT_EQ(SortServicesInGroups(), 0u);
    EXPECT_THAT(MembersOf(grouplist, grouplistsize, "G"), ElementsAre("b", "a", "d", "c"));
}

TEST_F(Groups, a_tag_takes_one_member_for_each_time_it_is_named) {
    LoadGroup({1, 1, 2, 1});
    SetValue(tagsPath, "G", REG_BINARY, TagVector({1, 2, 1}));
    EXPECT_EQ(SortServicesInGroups(), 0u);
    EXPECT_THAT(MembersOf(grouplist, grouplistsize, "G"), ElementsAre("d", "c", "b", "a"));
}

TEST_F(Groups, the_count_word_is_not_looked_at) {
    LoadGroup({3, 1, 2});
    for (const DWORD count : {0u, 1u, 0xFFFFFFFFu}) {
        SetValue(tagsPath, "G", REG_BINARY, Dword(count) + Dword(1) + Dword(2) + Dword(3));
        EXPECT_EQ(SortServicesInGroups(), 0u);
        EXPECT_THAT(MembersOf(grouplist, grouplistsize, "G"), ElementsAre("b", "c", "a"));
    }
}

TEST_F(Groups, tags_are_words_with_the_lowest_byte_first) {
    LoadGroup({0x04030201, 0xFFFEFDFC, 0});
    SetValue(tagsPath, "G", REG_BINARY, "\2" + std::string(3, '\0') + "\xFC\xFD\xFE\xFF" + "\1\2\3\4");
    EXPECT_EQ(SortServicesInGroups(), 0u);
    EXPECT_THAT(MembersOf(grouplist, grouplistsize, "G"), ElementsAre("b", "a", "c"));
}

TEST_F(Groups, tag_values_without_a_whole_tag_leave_the_order) {
    LoadGroup({3, 1, 2});
    for (const std::size_t bytes : {0u, 1u, 3u, 4u, 5u, 7u}) {
        SetValue(tagsPath, "G", REG_BINARY, std::string("\1\0\0\0\1\0\0", bytes));
        EXPECT_EQ(SortServicesInGroups(), 0u);
        EXPECT_THAT(MembersOf(grouplist, grouplistsize, "G"), ElementsAre("c", "b", "a")) << bytes;
    }
}

// The vector is read by tags that nobody bears: in one walk over the members each, the large group would take hundreds
// of times as long as the small one.
TEST_F(Groups, a_long_tag_vector_costs_a_large_group_little_more_than_a_small_one) {
    for (int number = 0; number < 2000; number++) {
        InstallService("s" + std::to_string(number), {.group = number == 0 ? "small" : "large", .tag = 7});
    }
    ASSERT_EQ(ReadServiceDatabase(), 0u);
    std::vector<DWORD> tags(200000);
    for (DWORD number = 0; number < tags.size(); number++) {
        tags[number] = 100 + number;
    }
    const auto sortWithVectorFor = [&](const char *group) {
        SetValue(tagsPath, group, REG_BINARY, TagVector(tags));
        const std::clock_t time = CpuTimeOf([] { ASSERT_EQ(SortServicesInGroups(), 0u); });
        RemoveValue(tagsPath, group);
        return time;
    };
    const std::clock_t small = sortWithVectorFor("small");
    EXPECT_LT(sortWithVectorFor("large"), 30 * small);
    EXPECT_EQ(MembersOf(grouplist, grouplistsize, "large").front(), "s1999");
}

TEST_F(Groups, the_calls_of_a_sort) {
    InstallService("a", {.group = "G"});
    InstallService("b", {.group = "H"});
    ASSERT_EQ(ReadServiceDatabase(), 0u);
    SetValue(tagsPath, "H", REG_BINARY, TagVector({1}));
    ForgetCalls();
    EXPECT_EQ(SortServicesInGroups(), 0u);
    EXPECT_THAT(RegistryCalls(), ElementsAre("open " + tagsPath, "size " + tagsPath + " G", "size " + tagsPath + " H",
                                             "query " + tagsPath + " H", "close " + tagsPath));
}

TEST_F(Groups, a_failing_sort_closes_the_key_and_gives_the_code) {
    LoadGroup({3, 1, 2});
    SetValue(tagsPath, "G", REG_BINARY, TagVector({1, 2, 3}));
    for (const int call : {1, 2, 3}) {
        ForgetCalls();
        FailNthCall(call, ERROR_REGISTRY_IO_FAILED);
        EXPECT_EQ(SortServicesInGroups(), std::uint32_t{ERROR_REGISTRY_IO_FAILED}) << call;
        EXPECT_THAT(OpenKeys(), ElementsAre()) << call;
        EXPECT_THAT(MembersOf(grouplist, grouplistsize, "G"), ElementsAre("c", "b", "a")) << call;
    }
}

TEST_F(Groups, a_tag_vector_beyond_reason_is_refused_without_memory_for_it) {
    LoadGroup({1});
    SetValue(tagsPath, "G", REG_BINARY, std::string(longestValueBytes + 1, '\0'));
    EXPECT_EQ(SortServicesInGroups(), std::uint32_t{ERROR_NOT_ENOUGH_MEMORY});
}

} // namespace
