// SPDX-License-Identifier: MIT
// Building the database from the registry: which values are read, in which order, and what each failure leaves.
#include "tests/support/memory_registry.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;

struct Load : MemoryRegistryTest {};

const std::string alpha = ServicePath("Alpha");

// The calls for one service with all values, from its enumeration to the closing of its key.
std::vector<std::string> CallsForService(int index, const std::string &name) {
    const std::string path = ServicePath(name);
    return {"enum " + servicesPath + " " + std::to_string(index),
            "open " + path,
            "query " + path + " DeleteFlag",
            "query " + path + " Type",
            "query " + path + " Tag",
            "query " + path + " DisplayName",
            "query " + path + " Group",
            "query " + path + " ImagePath",
            "close " + path};
}

TEST_F(Load, a_missing_services_key_is_created_empty) {
    EXPECT_EQ(ReadServiceDatabase(), 0u);
    EXPECT_TRUE(HasKey(servicesPath));
    EXPECT_EQ(svcdbsize, 50);
    EXPECT_EQ(ServiceNames(), "");
    EXPECT_THAT(RegistryCalls(),
                ElementsAre("create " + servicesPath, "enum " + servicesPath + " 0", "close " + servicesPath));
    EXPECT_THAT(OpenKeys(), ElementsAre());
}

TEST_F(Load, calls_the_registry_in_this_order_and_no_more) {
    InstallService("Alpha", {.imagePath = "/bin/alpha", .group = "G", .tag = 3});
    InstallService("Beta");
    EXPECT_EQ(ReadServiceDatabase(), 0u);

    std::vector<std::string> expected = {"create " + servicesPath};
    for (const auto &[index, name] : {std::pair{0, "Alpha"}, {1, "Beta"}}) {
        for (const std::string &call : CallsForService(index, name)) {
            expected.push_back(call);
        }
    }
    expected.push_back("enum " + servicesPath + " 2");
    expected.push_back("close " + servicesPath);
    EXPECT_EQ(RegistryCalls(), expected);
    EXPECT_THAT(OpenKeys(), ElementsAre());
}

TEST_F(Load, fills_a_record_from_the_values) {
    InstallService("Alpha", {.type = SERVICE_WIN32_SHARE_PROCESS,
                             .displayName = "The first",
                             .imagePath = "/bin/alpha",
                             .group = "G",
                             .tag = 3});
    ASSERT_EQ(ReadServiceDatabase(), 0u);
    const ServiceDatabaseEntry &entry = svcdb[1];
    EXPECT_STREQ(entry.name, "Alpha");
    EXPECT_STREQ(entry.displayName, "The first");
    EXPECT_EQ(entry.reserved, 0u);
    EXPECT_EQ(entry.openCount, 0);
    EXPECT_EQ(entry.deletePending, 0);
    EXPECT_EQ(entry.processId, 0);
    EXPECT_EQ(entry.serviceContext, 0);
    EXPECT_EQ(entry.type, SERVICE_WIN32_SHARE_PROCESS);
    EXPECT_EQ(entry.tag, 3);
    EXPECT_EQ(entry.visited, 0);
    EXPECT_EQ(entry.visiting, 0);
    EXPECT_EQ(entry.statusDeadline.seconds, 0);
    EXPECT_EQ(entry.statusDeadline.microseconds, 0);
    EXPECT_EQ(entry.status.dwCurrentState, SERVICE_STOPPED);
    EXPECT_EQ(entry.status.dwServiceType, 0) << "the status takes its type at the start only";
    EXPECT_EQ(entry.status.dwWaitHint, 0);
    EXPECT_THAT(MembersOf(grouplist, grouplistsize, "G"), ElementsAre("Alpha"));
    EXPECT_THAT(MembersOf(imagepathlist, imagepathlistsize, "/bin/alpha"), ElementsAre("Alpha"));
}

TEST_F(Load, the_first_service_takes_record_1_deliberate) {
    InstallService("Alpha");
    ASSERT_EQ(ReadServiceDatabase(), 0u);
    EXPECT_EQ(svcdb[0].name, nullptr);
    EXPECT_EQ(ServiceNames(), "1:Alpha");
}

TEST_F(Load, the_50th_service_is_stored_after_growing_to_100) {
    for (int number = 1; number <= 49; number++) {
        InstallService("s" + std::to_string(number));
    }
    ASSERT_EQ(ReadServiceDatabase(), 0u);
    EXPECT_EQ(svcdbsize, 50);
    EmptyServiceDatabase();

    InstallService("s50");
    ASSERT_EQ(ReadServiceDatabase(), 0u);
    EXPECT_EQ(svcdbsize, 100);
    EXPECT_STREQ(svcdb[50].name, "s50");
    EXPECT_EQ(svcdb[51].name, nullptr);
}

TEST_F(Load, a_service_with_DeleteFlag_is_deleted_and_the_next_takes_its_record) {
    InstallService("Alpha");
    SetNumber(alpha, "DeleteFlag", 1);
    InstallService("Beta");
    ASSERT_EQ(ReadServiceDatabase(), 0u);
    EXPECT_FALSE(HasKey(alpha));
    EXPECT_EQ(ServiceNames(), "1:Beta");
    EXPECT_EQ(RegistryCalls()[1], "enum " + servicesPath + " 0");
    EXPECT_EQ(RegistryCalls()[4], "close " + alpha);
    EXPECT_EQ(RegistryCalls()[5], "delete " + alpha);
    EXPECT_EQ(RegistryCalls()[6], "enum " + servicesPath + " 0") << "the same index again";
}

TEST_F(Load, services_with_DeleteFlag_are_deleted_wherever_they_stand) {
    for (const char *name : {"a", "b", "c", "d", "e"}) {
        InstallService(name);
    }
    for (const char *name : {"b", "c", "e"}) {
        SetNumber(ServicePath(name), "DeleteFlag", 1);
    }
    ASSERT_EQ(ReadServiceDatabase(), 0u);
    EXPECT_EQ(ServiceNames(), "1:a 2:d");
}

TEST_F(Load, a_DeleteFlag_of_any_type_up_to_4_bytes_deletes) {
    for (const std::string &data : {std::string(), std::string("x"), std::string("abcd"), Dword(0)}) {
        InstallService("Alpha");
        SetValue(alpha, "DeleteFlag", REG_BINARY, data);
        ASSERT_EQ(ReadServiceDatabase(), 0u);
        EXPECT_FALSE(HasKey(alpha)) << data.size();
        EmptyServiceDatabase();
    }
}

TEST_F(Load, a_DeleteFlag_of_5_bytes_ends_the_load_with_234) {
    InstallService("Alpha");
    SetValue(alpha, "DeleteFlag", REG_BINARY, "abcde");
    EXPECT_EQ(ReadServiceDatabase(), std::uint32_t{ERROR_MORE_DATA});
    EXPECT_EQ(ServiceNames(), "");
    EXPECT_THAT(OpenKeys(), ElementsAre(servicesPath, alpha));
}

TEST_F(Load, a_DeleteFlag_key_that_cannot_be_deleted_ends_the_load) {
    InstallService("Alpha");
    SetNumber(alpha, "DeleteFlag", 1);
    FailCalls("delete " + alpha, ERROR_ACCESS_DENIED);
    EXPECT_EQ(ReadServiceDatabase(), std::uint32_t{ERROR_ACCESS_DENIED});
}

TEST_F(Load, a_service_without_Type_ends_the_load_deliberate) {
    InstallService("Alpha");
    InstallService("Beta", {.type = std::nullopt});
    InstallService("Gamma");
    EXPECT_EQ(ReadServiceDatabase(), std::uint32_t{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(ServiceNames(), "1:Alpha 2:Beta") << "what was filled so far stays";
    EXPECT_THAT(OpenKeys(), ElementsAre(servicesPath, ServicePath("Beta")));
}

TEST_F(Load, a_service_without_DisplayName_ends_the_load_deliberate) {
    InstallService("Alpha");
    RemoveValue(alpha, "DisplayName");
    EXPECT_EQ(ReadServiceDatabase(), std::uint32_t{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(ServiceNames(), "1:Alpha");
    EXPECT_EQ(svcdb[1].displayName, nullptr);
}

TEST_F(Load, a_DisplayName_of_1024_bytes_loads_and_one_of_1025_does_not) {
    InstallService("Alpha");
    SetValue(alpha, "DisplayName", REG_SZ, std::string(1024, 'x'));
    ASSERT_EQ(ReadServiceDatabase(), 0u);
    EXPECT_EQ(std::string(svcdb[1].displayName), std::string(1024, 'x')) << "ended although it has no terminator";
    EmptyServiceDatabase();

    SetValue(alpha, "DisplayName", REG_SZ, std::string(1025, 'x'));
    EXPECT_EQ(ReadServiceDatabase(), std::uint32_t{ERROR_MORE_DATA});
}

TEST_F(Load, a_name_of_1023_bytes_loads_and_one_of_1024_does_not) {
    const std::string name(1023, 'n');
    InstallService(name, {.displayName = "The first"});
    ASSERT_EQ(ReadServiceDatabase(), 0u);
    EXPECT_EQ(svcdb[1].name, name);
    EmptyServiceDatabase();

    InstallService(name + 'n', {.displayName = "The second"});
    EXPECT_EQ(ReadServiceDatabase(), std::uint32_t{ERROR_MORE_DATA});
}

TEST_F(Load, a_Type_longer_than_4_bytes_ends_the_load) {
    InstallService("Alpha");
    SetValue(alpha, "Type", REG_BINARY, "12345");
    EXPECT_EQ(ReadServiceDatabase(), std::uint32_t{ERROR_MORE_DATA});
}

TEST_F(Load, a_service_without_Tag_takes_the_tag_of_the_one_before_deliberate) {
    InstallService("a");
    InstallService("b", {.tag = 7});
    InstallService("c");
    InstallService("d", {.tag = 2});
    ASSERT_EQ(ReadServiceDatabase(), 0u);
    EXPECT_EQ(svcdb[1].tag, 0) << "nothing before it";
    EXPECT_EQ(svcdb[2].tag, 7);
    EXPECT_EQ(svcdb[3].tag, 7);
    EXPECT_EQ(svcdb[4].tag, 2);
}

TEST_F(Load, the_tag_of_a_deleted_service_is_never_read) {
    InstallService("a", {.tag = 7});
    SetNumber(ServicePath("a"), "DeleteFlag", 1);
    InstallService("b");
    ASSERT_EQ(ReadServiceDatabase(), 0u);
    EXPECT_EQ(svcdb[1].tag, 0);
}

TEST_F(Load, services_without_group_and_image_path_are_in_no_list) {
    InstallService("Alpha");
    ASSERT_EQ(ReadServiceDatabase(), 0u);
    EXPECT_EQ(grouplist, nullptr);
    EXPECT_EQ(imagepathlist, nullptr);
}

TEST_F(Load, services_of_one_image_path_stand_last_first) {
    for (const char *name : {"a", "b", "c"}) {
        InstallService(name, {.imagePath = "/bin/shared"});
    }
    InstallService("d", {.imagePath = "/bin/Shared"});
    ASSERT_EQ(ReadServiceDatabase(), 0u);
    EXPECT_THAT(MembersOf(imagepathlist, imagepathlistsize, "/bin/shared"), ElementsAre("c", "b", "a"));
    EXPECT_THAT(MembersOf(imagepathlist, imagepathlistsize, "/bin/Shared"), ElementsAre("d"));
}

TEST_F(Load, start_error_control_dependencies_and_account_are_not_read) {
    InstallService("Alpha", {.start = 2, .dependencies = {"Beta"}, .account = "nobody"});
    ASSERT_EQ(ReadServiceDatabase(), 0u);
    for (const std::string &call : RegistryCalls()) {
        for (const char *value : {" Start", "ErrorControl", "DependOn"}) {
            EXPECT_EQ(call.find(value), std::string::npos);
        }
    }
}

TEST_F(Load, an_unreachable_registry_gives_its_code_and_no_array) {
    FailCalls("create " + servicesPath, ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(ReadServiceDatabase(), std::uint32_t{ERROR_REGISTRY_IO_FAILED});
    EXPECT_EQ(svcdb, nullptr);
    EXPECT_EQ(svcdbsize, 0);
}

TEST_F(Load, a_failing_enumeration_closes_the_services_key) {
    InstallService("Alpha");
    FailCalls("enum " + servicesPath + " 1", ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(ReadServiceDatabase(), std::uint32_t{ERROR_REGISTRY_IO_FAILED});
    EXPECT_EQ(RegistryCalls().back(), "close " + servicesPath);
    EXPECT_EQ(ServiceNames(), "1:Alpha");
}

TEST_F(Load, a_service_key_that_does_not_open_ends_the_load_and_closes_nothing) {
    InstallService("Alpha");
    FailCalls("open " + alpha, ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(ReadServiceDatabase(), std::uint32_t{ERROR_FILE_NOT_FOUND});
    EXPECT_THAT(OpenKeys(), ElementsAre(servicesPath));
    EXPECT_EQ(RegistryCalls().back(), "open " + alpha);
}

// Every call of the load of two services fails once. A missing optional value is no failure, and closing is not looked
// at; everything else ends the load with its code, at once.
TEST_F(Load, every_failing_call_ends_it_with_its_code) {
    InstallService("Alpha", {.imagePath = "/bin/alpha", .group = "G", .tag = 3});
    InstallService("Beta", {.imagePath = "/bin/beta", .group = "G", .tag = 4});
    ASSERT_EQ(ReadServiceDatabase(), 0u);
    const std::vector<std::string> calls = RegistryCalls();
    for (std::size_t number = 1; number <= calls.size(); number++) {
        EmptyServiceDatabase();
        ForgetCalls();
        FailNthCall(static_cast<int>(number), ERROR_REGISTRY_IO_FAILED);
        const std::uint32_t rc = ReadServiceDatabase();
        const std::string &failed = calls[number - 1];
        if (failed.starts_with("close ")) {
            EXPECT_EQ(rc, 0u) << failed;
            continue;
        }
        EXPECT_EQ(rc, std::uint32_t{ERROR_REGISTRY_IO_FAILED}) << failed;
        const std::size_t last = failed.starts_with("enum ") ? number + 1 : number; // the closing of the services key
        EXPECT_EQ(RegistryCalls().size(), last) << failed;
    }
}

TEST_F(Load, missing_optional_values_end_nothing) {
    InstallService("Alpha", {.imagePath = "/bin/alpha", .group = "G", .tag = 3});
    for (const char *value : {"Tag", "Group", "ImagePath"}) {
        FailCalls("query " + alpha + " " + value, ERROR_FILE_NOT_FOUND);
        EXPECT_EQ(ReadServiceDatabase(), 0u) << value;
        EmptyServiceDatabase();
    }
}

TEST_F(Load, ten_thousand_services_load) {
    for (int number = 1; number <= 10000; number++) {
        const std::string text = std::to_string(number);
        InstallService("s" + text, {.imagePath = "/bin/" + text, .group = "g" + std::to_string(number % 500)});
    }
    ASSERT_EQ(ReadServiceDatabase(), 0u);
    EXPECT_EQ(svcdbsize, 10050);
    EXPECT_EQ(GetServiceIndexFromName("s10000"), 10000);
    EXPECT_EQ(MembersOf(grouplist, grouplistsize, "g7").size(), 20u);
}

} // namespace
