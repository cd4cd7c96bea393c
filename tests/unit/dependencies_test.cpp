// SPDX-License-Identifier: MIT
// The dependency walk: what it collects, in which order, how it counts bytes, and how it ends.
#include "servd/limits.h"
#include "tests/support/cpu_time.h"
#include "tests/support/memory_registry.h"

#include <gmock/gmock.h>

#include <pthread.h>

namespace {

using testing::ElementsAre;

struct Walked {
    std::uint32_t rc;
    std::vector<std::string> names; // from the head of the list
    std::int32_t bytesLeft;
    std::int32_t bytesNeeded;
    std::int32_t count;
};

void FreeList(svd_enum_status_list_t *list) {
    while (list != nullptr) {
        svd_enum_status_list_t *record = list;
        list = record->next;
        std::free(record->name);
        std::free(record->displayName);
        std::free(record);
    }
}

constexpr std::int32_t muchRoom = INT32_MAX;

// Walks from one service with another (or the same) as root. The marks stay as the walk leaves them.
Walked WalkFrom(const char *name, const char *root, std::int32_t stateMask, std::int32_t room = muchRoom) {
    HKEY key = 0;
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, servicesKeyPath, 0, KEY_ALL_ACCESS, &key), 0);
    ForgetCalls();
    Walked walked = {.rc = 0, .names = {}, .bytesLeft = room, .bytesNeeded = 0, .count = 0};
    svd_enum_status_list_t *list = nullptr;
    walked.rc = CalculateDependencies(GetServiceIndexFromName(name), &walked.bytesLeft, &list, &walked.bytesNeeded,
                                      &walked.count, GetServiceIndexFromName(root), key, stateMask);
    for (const svd_enum_status_list_t *record = list; record != nullptr; record = record->next) {
        walked.names.emplace_back(record->name);
    }
    FreeList(list);
    return walked;
}

Walked Walk(const char *root, std::int32_t stateMask = SERVICE_STATE_ALL, std::int32_t room = muchRoom) {
    Walked walked = WalkFrom(root, root, stateMask, room);
    ClearVisitingFlags();
    return walked;
}

void SetState(const char *name, std::int32_t state) {
    svcdb[GetServiceIndexFromName(name)].status.dwCurrentState = state;
}

ServiceDatabaseEntry &Entry(const char *name) { return svcdb[GetServiceIndexFromName(name)]; }

struct Dependencies : MemoryRegistryTest {
    // Loads services that depend on each other as given; the group of a service is the letter behind a colon.
    void Load(const std::vector<std::pair<std::string, std::vector<std::string>>> &services) {
        for (const auto &[name, dependencies] : services) {
            const std::size_t colon = name.find(':');
            ServiceValues values = {.dependencies = dependencies};
            if (colon != std::string::npos) values.group = name.substr(colon + 1);
            InstallService(name.substr(0, colon), values);
        }
        ASSERT_EQ(ReadServiceDatabase(), 0u);
        ForgetCalls();
    }
};

// --- the walk ---

TEST_F(Dependencies, a_service_without_any_has_an_empty_list) {
    Load({{"a", {}}});
    const Walked walked = Walk("a");
    EXPECT_EQ(walked.rc, 0u);
    EXPECT_THAT(walked.names, ElementsAre());
    EXPECT_EQ(walked.bytesNeeded, 0);
    EXPECT_EQ(walked.bytesLeft, muchRoom);
    EXPECT_THAT(RegistryCalls(), ElementsAre("open " + ServicePath("a"), "size " + ServicePath("a") + " DependOnGroup",
                                             "close " + ServicePath("a")));
}

TEST_F(Dependencies, an_empty_value_is_none) {
    Load({{"a", {}}});
    SetValue(ServicePath("a"), "DependOnGroup", REG_MULTI_SZ, "");
    EXPECT_EQ(Walk("a").rc, 0u);
    EXPECT_EQ(RegistryCalls().size(), 3u) << "the value is not read";
}

TEST_F(Dependencies, the_key_of_a_service_is_closed_before_its_dependencies_are_walked) {
    Load({{"a", {"b"}}, {"b", {}}});
    EXPECT_EQ(Walk("a").rc, 0u);
    const std::string a = ServicePath("a");
    const std::string b = ServicePath("b");
    EXPECT_THAT(RegistryCalls(),
                ElementsAre("open " + a, "size " + a + " DependOnGroup", "query " + a + " DependOnGroup", "close " + a,
                            "open " + b, "size " + b + " DependOnGroup", "close " + b));
}

TEST_F(Dependencies, a_chain_lists_the_one_nearest_the_root_first) {
    Load({{"a", {"b"}}, {"b", {"c"}}, {"c", {"d"}}, {"d", {}}});
    const Walked walked = Walk("a");
    EXPECT_THAT(walked.names, ElementsAre("b", "c", "d"));
    EXPECT_EQ(walked.count, 3);
}

TEST_F(Dependencies, siblings_are_walked_in_the_order_of_the_value) {
    Load({{"a", {"d", "b", "c"}}, {"b", {}}, {"c", {}}, {"d", {"b"}}});
    EXPECT_THAT(Walk("a").names, ElementsAre("c", "d", "b"));
}

TEST_F(Dependencies, a_service_reached_twice_is_collected_once) {
    Load({{"a", {"b", "c", "d"}}, {"b", {"d"}}, {"c", {"d"}}, {"d", {}}});
    const Walked walked = Walk("a");
    EXPECT_THAT(walked.names, ElementsAre("c", "b", "d"));
    EXPECT_EQ(walked.rc, 0u);
}

TEST_F(Dependencies, a_record_carries_names_and_status) {
    Load({{"a", {"b"}}, {"b", {}}});
    Entry("b").status = {1, 2, 3, 4, 5, 6, 7};
    svd_enum_status_list_t *record = NewEnumRecord(Entry("b"));
    EXPECT_STREQ(record->name, "b");
    EXPECT_STREQ(record->displayName, "b service");
    EXPECT_EQ(record->status.dwServiceType, 1);
    EXPECT_EQ(record->status.dwWaitHint, 7);
    EXPECT_EQ(record->next, nullptr);
    EXPECT_NE(record->name, Entry("b").name);
    FreeList(record);
}

TEST_F(Dependencies, an_unknown_service_is_passed_over) {
    Load({{"a", {"nobody", "b", "B"}}, {"b", {"no one"}}});
    const Walked walked = Walk("a");
    EXPECT_EQ(walked.rc, 0u);
    EXPECT_THAT(walked.names, ElementsAre("b"));
}

TEST_F(Dependencies, a_group_stands_for_its_members_in_member_order) {
    Load({{"a", {"+G", "c"}}, {"b:G", {}}, {"c", {}}, {"d:G", {}}});
    EXPECT_THAT(MembersOf(grouplist, grouplistsize, "G"), ElementsAre("d", "b"));
    EXPECT_THAT(Walk("a").names, ElementsAre("c", "b", "d"));
}

TEST_F(Dependencies, a_group_named_again_adds_nothing) {
    Load({{"a", {"+G", "c", "+G"}}, {"b:G", {}}, {"c", {"+G"}}, {"d:G", {"b"}}});
    const Walked walked = Walk("a");
    EXPECT_EQ(walked.rc, 0u);
    EXPECT_THAT(walked.names, ElementsAre("c", "d", "b"));
    EXPECT_EQ(walked.count, 3);
}

TEST_F(Dependencies, a_group_named_again_while_it_is_walked_is_a_cycle) {
    Load({{"a", {"+G"}}, {"b:G", {"c"}}, {"c", {"+G"}}, {"d:G", {}}});
    const Walked walked = Walk("a");
    EXPECT_EQ(walked.rc, std::uint32_t{ERROR_CIRCULAR_DEPENDENCY});
    EXPECT_THAT(walked.names, ElementsAre("d"));
}

TEST_F(Dependencies, an_unknown_group_has_no_members) {
    Load({{"a", {"+H", "+", "b"}}, {"b", {}}});
    const Walked walked = Walk("a");
    EXPECT_EQ(walked.rc, 0u);
    EXPECT_THAT(walked.names, ElementsAre("b"));
}

TEST_F(Dependencies, an_empty_name_is_a_group_like_any_other) {
    Load({{"a", {"+"}}, {"b:", {}}, {"c", {}}});
    EXPECT_THAT(Walk("a").names, ElementsAre("b"));
}

TEST_F(Dependencies, an_emptied_group_has_no_members) {
    Load({{"a", {"+G"}}, {"b:G", {}}});
    RemoveServiceFromGroupList(grouplist, &grouplistsize, "G", 2);
    EXPECT_THAT(Walk("a").names, ElementsAre());
}

TEST_F(Dependencies, a_member_that_is_a_free_record_is_passed_over) {
    Load({{"a", {"+G"}}, {"b:G", {}}, {"c:G", {}}});
    SetServiceName(2, nullptr);
    const Walked walked = Walk("a");
    EXPECT_EQ(walked.rc, 0u);
    EXPECT_THAT(walked.names, ElementsAre("c"));
}

TEST_F(Dependencies, a_free_record_as_root_has_an_empty_list) {
    Load({{"a", {"b"}}, {"b", {}}});
    SetServiceName(1, nullptr);
    std::int32_t room = 0;
    std::int32_t bytes = 0;
    std::int32_t count = 0;
    svd_enum_status_list_t *list = nullptr;
    EXPECT_EQ(CalculateDependencies(1, &room, &list, &bytes, &count, 1, 0, SERVICE_STATE_ALL), 0u);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(room, 0);
    EXPECT_THAT(RegistryCalls(), ElementsAre());
}

TEST_F(Dependencies, a_service_marked_for_deletion_is_neither_collected_nor_walked_through) {
    Load({{"a", {"b"}}, {"b", {"c"}}, {"c", {}}});
    Entry("b").deletePending = 1;
    const Walked walked = Walk("a");
    EXPECT_EQ(walked.rc, 0u);
    EXPECT_THAT(walked.names, ElementsAre());
}

TEST_F(Dependencies, a_root_marked_for_deletion_has_an_empty_list) {
    Load({{"a", {"b"}}, {"b", {}}});
    Entry("a").deletePending = 1;
    EXPECT_THAT(Walk("a").names, ElementsAre());
    EXPECT_THAT(RegistryCalls(), ElementsAre());
}

TEST_F(Dependencies, a_list_ends_where_its_data_end) {
    using namespace std::string_literals;
    Load({{"a", {}}, {"b", {}}, {"c", {}}});
    for (const auto &[data, names] : {std::pair{"b\0c"s, std::vector<std::string>{"c", "b"}},
                                      {"b\0c\0"s, {"c", "b"}},
                                      {"b\0\0c\0\0"s, {"b"}},
                                      {"\0b\0"s, {}},
                                      {"\0\0"s, {}},
                                      {"+"s, {}}}) {
        SetValue(ServicePath("a"), "DependOnGroup", REG_MULTI_SZ, data);
        EXPECT_EQ(Walk("a").names, names) << data;
    }
}

// --- cycles ---

TEST_F(Dependencies, two_services_that_depend_on_each_other_are_a_cycle) {
    Load({{"a", {"b"}}, {"b", {"a"}}});
    EXPECT_EQ(Walk("a").rc, std::uint32_t{ERROR_CIRCULAR_DEPENDENCY});
    EXPECT_EQ(Walk("b").rc, std::uint32_t{ERROR_CIRCULAR_DEPENDENCY});
}

TEST_F(Dependencies, a_service_that_depends_on_itself_or_on_its_group_is_a_cycle) {
    Load({{"a", {"a"}}, {"b:G", {"+G"}}});
    EXPECT_EQ(Walk("a").rc, std::uint32_t{ERROR_CIRCULAR_DEPENDENCY});
    EXPECT_EQ(Walk("b").rc, std::uint32_t{ERROR_CIRCULAR_DEPENDENCY});
}

TEST_F(Dependencies, a_cycle_below_the_root_ends_the_walk_with_what_was_found) {
    Load({{"a", {"b", "c", "e"}}, {"b", {}}, {"c", {"d"}}, {"d", {"c"}}, {"e", {}}});
    const Walked walked = Walk("a");
    EXPECT_EQ(walked.rc, std::uint32_t{ERROR_CIRCULAR_DEPENDENCY});
    EXPECT_THAT(walked.names, ElementsAre("b"));
    EXPECT_EQ(walked.count, 1);
}

TEST_F(Dependencies, a_shared_dependency_in_no_wanted_state_is_no_cycle) {
    Load({{"a", {"b", "c"}}, {"b", {"d"}}, {"c", {"d"}}, {"d", {"e"}}, {"e", {}}});
    SetState("d", SERVICE_RUNNING);
    const Walked walked = Walk("a", SERVICE_INACTIVE);
    EXPECT_EQ(walked.rc, 0u);
    EXPECT_THAT(walked.names, ElementsAre("c", "b", "e"));
}

// --- states ---

TEST_F(Dependencies, the_state_mask_chooses) {
    Load({{"root", {"s0", "s1", "s2", "s3", "s4", "s5", "s6", "s7", "s8"}},
          {"s0", {}},
          {"s1", {}},
          {"s2", {}},
          {"s3", {}},
          {"s4", {}},
          {"s5", {}},
          {"s6", {}},
          {"s7", {}},
          {"s8", {}}});
    for (std::int32_t state = 0; state <= 8; state++) {
        SetState(("s" + std::to_string(state)).c_str(), state);
    }
    EXPECT_THAT(Walk("root", SERVICE_ACTIVE).names, ElementsAre("s7", "s6", "s5", "s4", "s3", "s2"));
    EXPECT_THAT(Walk("root", SERVICE_INACTIVE).names, ElementsAre("s1"));
    EXPECT_EQ(Walk("root", SERVICE_STATE_ALL).count, 9) << "every state passes";
    EXPECT_THAT(Walk("root", 0).names, ElementsAre());
    EXPECT_THAT(Walk("root", 4).names, ElementsAre());
    EXPECT_EQ(Walk("root", 7).count, 9);
    EXPECT_THAT(Walk("root", 6).names, ElementsAre("s1"));
}

TEST_F(Dependencies, the_walk_goes_through_services_in_no_wanted_state) {
    Load({{"a", {"b"}}, {"b", {"c"}}, {"c", {}}});
    SetState("b", SERVICE_RUNNING);
    EXPECT_THAT(Walk("a", SERVICE_INACTIVE).names, ElementsAre("c"));
}

TEST_F(Dependencies, the_root_is_never_collected_and_stays_unvisited) {
    Load({{"a", {"b"}}, {"b", {}}});
    const Walked walked = WalkFrom("a", "a", SERVICE_STATE_ALL);
    EXPECT_THAT(walked.names, ElementsAre("b"));
    EXPECT_EQ(Entry("a").visited, 0);
    EXPECT_EQ(Entry("b").visited, 1);
    EXPECT_EQ(Entry("b").visiting, 0);
}

TEST_F(Dependencies, a_service_in_no_wanted_state_stays_unmarked) {
    Load({{"a", {"b"}}, {"b", {"c"}}, {"c", {}}});
    SetState("b", SERVICE_RUNNING);
    (void)WalkFrom("a", "a", SERVICE_INACTIVE);
    EXPECT_EQ(Entry("b").visited, 0);
    EXPECT_EQ(Entry("b").visiting, 0);
    EXPECT_EQ(Entry("c").visited, 1);
}

TEST_F(Dependencies, a_visited_service_is_not_collected_again) {
    Load({{"a", {"b"}}, {"b", {}}});
    Entry("b").visited = 1;
    EXPECT_THAT(Walk("a").names, ElementsAre());
}

// --- bytes ---

TEST_F(Dependencies, a_record_takes_both_names_with_terminators_and_36_bytes) {
    Load({{"a", {"bcd"}}, {"bcd", {}}});
    SetServiceDisplayName(GetServiceIndexFromName("bcd"), "bc");
    const Walked walked = Walk("a");
    EXPECT_EQ(walked.bytesNeeded, 4 + 3 + 36);
    EXPECT_EQ(walked.bytesLeft, muchRoom - 43);
}

TEST_F(Dependencies, a_record_without_display_name_counts_it_as_empty) {
    Load({{"a", {"b"}}, {"b", {}}});
    SetServiceDisplayName(GetServiceIndexFromName("b"), nullptr);
    EXPECT_EQ(Walk("a").bytesNeeded, 2 + 1 + 36);
}

// b, c and d take 2 + 10 + 36 = 48 bytes each, and are found in this order.
TEST_F(Dependencies, what_does_not_fit_is_counted_but_not_collected) {
    Load({{"a", {"b", "c", "d"}}, {"b", {}}, {"c", {}}, {"d", {}}});
    for (const auto &[room, names, left] : {std::tuple{0, std::vector<std::string>{}, -1},
                                            {47, {}, -1},
                                            {48, {"b"}, -1},
                                            {95, {"b"}, -1},
                                            {96, {"c", "b"}, -1},
                                            {143, {"c", "b"}, -1},
                                            {144, {"d", "c", "b"}, 0},
                                            {145, {"d", "c", "b"}, 1},
                                            {-1, {}, -1},
                                            {INT32_MIN, {}, -1}}) {
        const Walked walked = Walk("a", SERVICE_STATE_ALL, room);
        EXPECT_EQ(walked.names, names) << room;
        EXPECT_EQ(walked.bytesLeft, left) << room;
        EXPECT_EQ(walked.bytesNeeded, 144) << room;
        EXPECT_EQ(walked.count, static_cast<int>(names.size())) << room;
        EXPECT_EQ(walked.rc, 0u) << "the root's own result; bytesLeft tells that the room ran out";
    }
}

TEST_F(Dependencies, once_one_does_not_fit_none_fits) {
    Load({{"a", {"long-name-that-takes-room", "c"}}, {"long-name-that-takes-room", {}}, {"c", {}}});
    const Walked walked = Walk("a", SERVICE_STATE_ALL, 60);
    EXPECT_THAT(walked.names, ElementsAre());
    EXPECT_EQ(walked.bytesLeft, -1);
}

TEST_F(Dependencies, a_service_other_than_the_root_that_does_not_fit_answers_234) {
    Load({{"a", {"b"}}, {"b", {"c"}}, {"c", {}}, {"root", {}}});
    const Walked walked = WalkFrom("a", "root", SERVICE_STATE_ALL, 0);
    EXPECT_EQ(walked.rc, std::uint32_t{ERROR_MORE_DATA});
    EXPECT_THAT(walked.names, ElementsAre());
    EXPECT_EQ(walked.bytesNeeded, 3 * 48);
}

TEST_F(Dependencies, a_service_that_fits_after_all_below_it_did_answers_0) {
    Load({{"a", {"b"}}, {"b", {}}, {"root", {}}});
    EXPECT_EQ(WalkFrom("a", "root", SERVICE_STATE_ALL, 96).rc, 0u);
    ClearVisitingFlags();
    EXPECT_EQ(WalkFrom("a", "root", SERVICE_STATE_ALL, 95).rc, std::uint32_t{ERROR_MORE_DATA});
}

// --- failures ---

TEST_F(Dependencies, every_failing_call_ends_the_walk_with_its_code) {
    Load({{"a", {"b", "d"}}, {"b", {"c"}}, {"c", {}}, {"d", {}}});
    (void)Walk("a");
    const std::vector<std::string> calls = RegistryCalls();
    HKEY key = 0;
    ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, servicesKeyPath, 0, KEY_ALL_ACCESS, &key), 0);
    for (std::size_t number = 1; number <= calls.size(); number++) {
        if (calls[number - 1].starts_with("close ")) continue;
        ForgetCalls();
        FailNthCall(static_cast<int>(number), ERROR_REGISTRY_IO_FAILED);
        std::int32_t room = muchRoom;
        std::int32_t bytes = 0;
        std::int32_t count = 0;
        svd_enum_status_list_t *list = nullptr;
        EXPECT_EQ(CalculateDependencies(1, &room, &list, &bytes, &count, 1, key, SERVICE_STATE_ALL),
                  std::uint32_t{ERROR_REGISTRY_IO_FAILED})
            << calls[number - 1];
        ClearVisitingFlags();
        FreeList(list);
    }
    for (const std::string &path : OpenKeys()) {
        EXPECT_EQ(path, servicesPath) << "left open";
    }
}

TEST_F(Dependencies, a_service_whose_key_is_gone_ends_the_walk_with_2) {
    Load({{"a", {"b"}}, {"b", {}}});
    RemoveKey(ServicePath("b"));
    EXPECT_EQ(Walk("a").rc, std::uint32_t{ERROR_FILE_NOT_FOUND});
}

TEST_F(Dependencies, a_value_that_is_gone_between_the_two_queries_ends_the_walk) {
    Load({{"a", {"b"}}, {"b", {}}});
    FailCalls("query " + ServicePath("a") + " DependOnGroup", ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(Walk("a").rc, std::uint32_t{ERROR_FILE_NOT_FOUND});
}

TEST_F(Dependencies, a_value_beyond_reason_ends_the_walk) {
    Load({{"a", {"b"}}, {"b", {}}});
    SetValue(ServicePath("a"), "DependOnGroup", REG_MULTI_SZ, std::string(longestValueBytes + 1, 'x'));
    EXPECT_EQ(Walk("a").rc, std::uint32_t{ERROR_NOT_ENOUGH_MEMORY});
}

// --- size ---

// Each layer doubles the roads to the next; in the stopped state nothing is marked on the way.
TEST_F(Dependencies, fifty_layers_of_two_running_services_are_walked_once_each) {
    std::vector<std::pair<std::string, std::vector<std::string>>> services = {{"root", {"l0", "r0"}}};
    for (int layer = 0; layer < 50; layer++) {
        const std::string here = std::to_string(layer);
        const std::string next = std::to_string(layer + 1);
        services.push_back({"l" + here, {"l" + next, "r" + next}});
        services.push_back({"r" + here, {"l" + next, "r" + next}});
    }
    Load(services);
    for (std::int32_t index = 1; index < svcdbsize; index++) {
        svcdb[index].status.dwCurrentState = SERVICE_RUNNING;
    }
    EXPECT_EQ(Walk("root", SERVICE_INACTIVE).rc, 0u);
    EXPECT_LE(RegistryCalls().size(), 101u * 4);
}

// Were the members walked at each name, the second walk would take dozens of times as long as the first.
TEST_F(Dependencies, a_group_named_half_a_million_times_costs_little_more_than_one_named_once) {
    std::vector<std::pair<std::string, std::vector<std::string>>> services = {{"once", {"+G"}}, {"often", {}}};
    services[1].second.assign(500000, "+G");
    for (int number = 0; number < 2000; number++) {
        services.push_back({"s" + std::to_string(number) + ":G", {}});
    }
    Load(services);
    const std::clock_t once = CpuTimeOf([] { EXPECT_EQ(Walk("once").count, 2000); });
    const std::clock_t often = CpuTimeOf([] { EXPECT_EQ(Walk("often").count, 2000); });
    EXPECT_LT(often, 10 * once);
}

// A chain as deep as the database is long, walked on a thread with a stack of 128 KiB.
TEST_F(Dependencies, a_chain_of_ten_thousand_needs_no_deep_stack) {
    constexpr int length = 10000;
    std::vector<std::pair<std::string, std::vector<std::string>>> services;
    for (int number = 0; number < length; number++) {
        services.push_back({"s" + std::to_string(number), {"s" + std::to_string(number + 1)}});
    }
    Load(services);
    Walked walked = {};
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, std::size_t{128} * 1024);
    pthread_t thread;
    ASSERT_EQ(pthread_create(
                  &thread, &attributes,
                  [](void *result) -> void * {
                      *static_cast<Walked *>(result) = Walk("s0");
                      return nullptr;
                  },
                  &walked),
              0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    EXPECT_EQ(walked.rc, 0u);
    EXPECT_EQ(walked.count, length - 1);
    EXPECT_EQ(walked.names.front(), "s1");
}

} // namespace
