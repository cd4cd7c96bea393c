// SPDX-License-Identifier: MIT
// Lists of services and of dependencies, and the look-ups of names.
#include "tests/handlers/suite.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

// Name and display name so long that a record of `bytes` bytes comes of them.
void PutServiceOfSize(const std::string &name, std::size_t bytes) {
    PutService(name, std::string(bytes - 36 - 2 - name.size(), 'd'));
}

auto All(std::int32_t resumeIndex, std::int32_t bufferBytes) {
    return EnumStatus(resumeIndex, SERVICE_WIN32, SERVICE_STATE_ALL, bufferBytes);
}

// --- status enumeration ---

TEST_F(Handlers, an_enumeration_lists_names_and_statuses_in_order) {
    PutService("alerter", "The alerter");
    PutService("browser", "The browser");
    StartDaemon();
    const svd_status_t status = {0x20, SERVICE_PAUSED, 3, 4, 5, 6, 0};
    ASSERT_EQ(SetStatus(2, status), ERROR_SUCCESS);
    const auto reply = All(0, enoughBytes);
    EXPECT_EQ(reply->status, ERROR_SUCCESS);
    EXPECT_EQ(reply->bytesNeeded, 0);
    EXPECT_EQ(reply->servicesReturned, 2);
    EXPECT_EQ(reply->resumeIndex, 0);
    EXPECT_THAT(EntriesOf(reply->services), ElementsAre(Listed{"alerter", "The alerter", InState(SERVICE_STOPPED)},
                                                        Listed{"browser", "The browser", status}));
}

TEST_F(Handlers, an_empty_database_lists_nothing) {
    Load({});
    const auto reply = All(0, enoughBytes);
    EXPECT_EQ(reply->status, ERROR_SUCCESS);
    EXPECT_EQ(reply->servicesReturned, 0);
    EXPECT_THAT(NamesOf(reply->services), IsEmpty());
}

TEST_F(Handlers, an_enumeration_never_lists_record_0_deliberate) {
    Load({"alerter"});
    ASSERT_EQ(Create({.name = "first"})->handle, 0);
    ASSERT_EQ(Create({.name = "second"})->handle, 2);
    EXPECT_THAT(NamesOf(All(0, enoughBytes)->services), ElementsAre("alerter", "second"));
}

TEST_F(Handlers, an_enumeration_passes_over_services_marked_for_deletion) {
    Load({"alerter", "browser"});
    ASSERT_EQ(Delete(1), ERROR_SUCCESS);
    EXPECT_THAT(NamesOf(All(0, enoughBytes)->services), ElementsAre("browser"));
}

TEST_F(Handlers, a_buffer_that_is_too_small_is_filled_and_the_rest_counted) {
    PutServiceOfSize("a", 50);
    PutServiceOfSize("b", 60);
    PutServiceOfSize("c", 70);
    StartDaemon();
    auto reply = All(0, 100);
    EXPECT_EQ(reply->status, ERROR_SUCCESS);
    EXPECT_EQ(reply->servicesReturned, 1);
    EXPECT_EQ(reply->bytesNeeded, 130);
    EXPECT_EQ(reply->resumeIndex, 1);
    EXPECT_THAT(NamesOf(reply->services), ElementsAre("a"));
    reply = All(1, 100);
    EXPECT_EQ(reply->servicesReturned, 1);
    EXPECT_EQ(reply->bytesNeeded, 70);
    EXPECT_EQ(reply->resumeIndex, 2);
    EXPECT_THAT(NamesOf(reply->services), ElementsAre("b"));
    reply = All(2, 100);
    EXPECT_EQ(reply->servicesReturned, 1);
    EXPECT_EQ(reply->bytesNeeded, 0);
    EXPECT_EQ(reply->resumeIndex, 0);
    EXPECT_THAT(NamesOf(reply->services), ElementsAre("c"));
}

TEST_F(Handlers, a_record_fits_to_the_byte) {
    PutServiceOfSize("a", 50);
    PutServiceOfSize("b", 60);
    StartDaemon();
    EXPECT_EQ(All(0, 110)->servicesReturned, 2);
    EXPECT_EQ(All(0, 110)->bytesNeeded, 0);
    EXPECT_EQ(All(0, 109)->servicesReturned, 1);
    EXPECT_EQ(All(0, 109)->bytesNeeded, 60);
    EXPECT_EQ(All(0, 50)->servicesReturned, 1);
    EXPECT_EQ(All(0, 49)->servicesReturned, 0);
}

TEST_F(Handlers, after_the_first_that_does_not_fit_nothing_fits) {
    PutServiceOfSize("a", 90);
    PutServiceOfSize("b", 50);
    StartDaemon();
    const auto reply = All(0, 60);
    EXPECT_EQ(reply->servicesReturned, 0);
    EXPECT_EQ(reply->bytesNeeded, 140);
    EXPECT_EQ(reply->resumeIndex, 0);
}

TEST_F(Handlers, a_buffer_of_0_or_less_lists_nothing_and_counts_all) {
    PutServiceOfSize("a", 50);
    PutServiceOfSize("b", 60);
    StartDaemon();
    for (std::int32_t bytes : {0, -1, INT32_MIN}) {
        const auto reply = All(0, bytes);
        EXPECT_EQ(reply->status, ERROR_SUCCESS) << bytes;
        EXPECT_EQ(reply->servicesReturned, 0) << bytes;
        EXPECT_EQ(reply->bytesNeeded, 110) << bytes;
        EXPECT_EQ(reply->resumeIndex, 0) << bytes;
    }
}

TEST_F(Handlers, the_resume_index_counts_the_services_that_match) {
    PutService("a", "a");
    PutService("b", "a driver", {}, SERVICE_KERNEL_DRIVER);
    PutService("c", "c");
    PutService("d", "d");
    StartDaemon();
    const auto reply = All(0, 40 + 40);
    EXPECT_THAT(NamesOf(reply->services), ElementsAre("a", "c"));
    EXPECT_EQ(reply->resumeIndex, 2);
    EXPECT_THAT(NamesOf(All(2, enoughBytes)->services), ElementsAre("d"));
    EXPECT_THAT(NamesOf(All(3, enoughBytes)->services), IsEmpty());
}

TEST_F(Handlers, a_resume_index_outside_the_array_answers_87) {
    Load({"alerter"});
    for (std::int32_t index : {-1, 50, 51, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(All(index, enoughBytes)->status, ERROR_INVALID_PARAMETER) << index;
    }
    EXPECT_EQ(All(49, enoughBytes)->status, ERROR_SUCCESS);
}

TEST_F(Handlers, an_enumeration_that_answers_87_repeats_the_last_list_deliberate) {
    Load({"alerter"});
    ASSERT_EQ(All(0, 0)->bytesNeeded, 52);
    auto reply = All(-1, enoughBytes);
    EXPECT_EQ(reply->status, ERROR_INVALID_PARAMETER);
    EXPECT_EQ(reply->bytesNeeded, 52);
    EXPECT_EQ(reply->servicesReturned, 0);
    ASSERT_EQ(All(0, enoughBytes)->servicesReturned, 1);
    reply = All(50, enoughBytes);
    EXPECT_EQ(reply->status, ERROR_INVALID_PARAMETER);
    EXPECT_EQ(reply->servicesReturned, 1);
    EXPECT_THAT(NamesOf(reply->services), ElementsAre("alerter"));
    reply = All(0, enoughBytes);
    EXPECT_EQ(reply->status, ERROR_SUCCESS);
    EXPECT_THAT(NamesOf(reply->services), ElementsAre("alerter"));
}

TEST_F(Handlers, the_list_beside_an_87_keeps_services_that_have_gone_since_deliberate) {
    PutService("alerter", "The alerter");
    PutService("browser", "The browser");
    StartDaemon();
    ASSERT_EQ(All(0, enoughBytes)->servicesReturned, 2);
    Change change = {.handle = 2};
    change.displayName = std::string("Renamed\0", 8);
    ASSERT_EQ(ChangeConfig(change)->status, ERROR_SUCCESS);
    ASSERT_EQ(Open("alerter")->handle, 1);
    ASSERT_EQ(Delete(1), ERROR_SUCCESS);
    ASSERT_EQ(Close(1), ERROR_SUCCESS);
    const auto reply = All(-1, enoughBytes);
    EXPECT_EQ(reply->status, ERROR_INVALID_PARAMETER);
    EXPECT_THAT(EntriesOf(reply->services), ElementsAre(Listed{"alerter", "The alerter", InState(SERVICE_STOPPED)},
                                                        Listed{"browser", "The browser", InState(SERVICE_STOPPED)}));
    EXPECT_THAT(EntriesOf(All(0, enoughBytes)->services),
                ElementsAre(Listed{"browser", "Renamed", InState(SERVICE_STOPPED)}));
}

TEST_F(Handlers, names_of_any_length_are_listed) {
    const std::string longName(200, 'n');
    const std::string longDisplayName(9001, 'd');
    Load({});
    ASSERT_EQ(Create({.name = "zero"})->handle, 0);
    ASSERT_EQ(Create({.name = "a", .displayName = longDisplayName})->handle, 1);
    ASSERT_EQ(Create({.name = "b", .displayName = "b"})->handle, 2);
    ASSERT_EQ(Create({.name = longName, .displayName = "long"})->handle, 3);
    std::vector<std::size_t> lengths;
    for (const Listed &entry : EntriesOf(All(0, enoughBytes)->services)) {
        lengths.insert(lengths.end(), {entry.name.size(), entry.displayName.size()});
    }
    EXPECT_THAT(lengths, ElementsAre(1, 9001, 1, 1, 200, 4));
}

TEST_F(Handlers, the_array_grows_with_its_51st_service_and_so_does_the_resume_index) {
    Load({});
    for (int i = 0; i < 51; ++i) {
        ASSERT_EQ(Create({.name = "s" + std::to_string(i)})->handle, i);
    }
    EXPECT_EQ(All(50, enoughBytes)->status, ERROR_SUCCESS);
    EXPECT_EQ(All(99, enoughBytes)->status, ERROR_SUCCESS);
    EXPECT_EQ(All(100, enoughBytes)->status, ERROR_INVALID_PARAMETER);
    EXPECT_EQ(All(0, enoughBytes)->servicesReturned, 50);
}

TEST_F(Handlers, the_type_filter_asks_for_processes_or_for_drivers) {
    const DWORD types[] = {0x01, 0x02, 0x04, 0x08, 0x0B, 0x10, 0x11, 0x20, 0x30, 0x100, 0x110, 0};
    for (DWORD type : types) {
        PutService("t" + std::to_string(100 + type), "x", {}, type); // so that they stand in this order
    }
    StartDaemon();
    const auto found = [](std::int32_t filter) {
        Names names = NamesOf(EnumStatus(0, filter, SERVICE_STATE_ALL, enoughBytes)->services);
        std::sort(names.begin(), names.end());
        return names;
    };
    const Names win32 = {"t116", "t117", "t132", "t148", "t372"};
    // Deliberate: 0x08 is asked for like 0x01 and 0x02 but not found, and processes go before drivers.
    const Names drivers = {"t101", "t102", "t111", "t117"};
    for (std::int32_t filter : {0x10, 0x20, 0x30, 0x3B, 0x11, -1}) {
        EXPECT_EQ(found(filter), win32) << filter;
    }
    for (std::int32_t filter : {0x01, 0x02, 0x08, 0x0B, 0x0F, 0x10B}) {
        EXPECT_EQ(found(filter), drivers) << filter;
    }
    for (std::int32_t filter : {0, 0x04, 0x40, 0x100}) {
        EXPECT_EQ(found(filter), Names()) << filter;
    }
}

TEST_F(Handlers, the_state_filter_asks_for_active_or_stopped_services) {
    Names names;
    for (int state = 0; state <= 8; ++state) {
        names.push_back("s" + std::to_string(state));
    }
    Load(names);
    for (std::int32_t state = 0; state <= 8; ++state) {
        ASSERT_EQ(SetStatus(state + 1, InState(state)), ERROR_SUCCESS);
    }
    const auto found = [](std::int32_t filter) {
        return NamesOf(EnumStatus(0, SERVICE_WIN32, filter, enoughBytes)->services);
    };
    EXPECT_THAT(found(SERVICE_ACTIVE), ElementsAre("s2", "s3", "s4", "s5", "s6", "s7"));
    EXPECT_THAT(found(SERVICE_INACTIVE), ElementsAre("s1"));
    EXPECT_THAT(found(SERVICE_STATE_ALL), ElementsAre("s1", "s2", "s3", "s4", "s5", "s6", "s7"));
    EXPECT_THAT(found(0), IsEmpty());
    EXPECT_THAT(found(4), IsEmpty());
    EXPECT_THAT(found(6), ElementsAre("s1"));
}

// --- dependencies ---

TEST_F(Handlers, dependencies_of_no_handle) {
    Load({"alerter"});
    for (std::int32_t handle : {-1, 50, INT32_MAX, INT32_MIN}) {
        const auto reply = EnumDepend(handle, SERVICE_STATE_ALL, enoughBytes);
        EXPECT_EQ(reply->status, ERROR_INVALID_HANDLE) << handle;
        EXPECT_EQ(reply->servicesReturned, 0) << handle;
    }
    for (std::int32_t handle : {0, 2, 49}) { // free records
        const auto reply = EnumDepend(handle, SERVICE_STATE_ALL, enoughBytes);
        EXPECT_EQ(reply->status, ERROR_SUCCESS) << handle;
        EXPECT_EQ(reply->bytesNeeded, 0) << handle;
        EXPECT_EQ(reply->servicesReturned, 0) << handle;
        EXPECT_EQ(reply->services, nullptr) << handle;
    }
}

TEST_F(Handlers, a_service_without_dependencies_lists_nothing) {
    PutService("alerter", "alerter");
    PutService("browser", "browser", {{"DependOnGroup", {REG_MULTI_SZ, ""}}});
    PutService("carrier", "carrier", {{"DependOnGroup", AsMulti({})}});
    PutService("driver", "driver", {{"DependOnGroup", AsMulti({"nobody", "+nothing"})}});
    StartDaemon();
    for (std::int32_t handle : {1, 2, 3, 4}) {
        const auto reply = EnumDepend(handle, SERVICE_STATE_ALL, 0);
        EXPECT_EQ(reply->status, ERROR_SUCCESS) << handle;
        EXPECT_EQ(reply->bytesNeeded, 0) << handle;
        EXPECT_EQ(reply->servicesReturned, 0) << handle;
        EXPECT_EQ(reply->services, nullptr) << handle;
    }
}

// alerter -> browser -> carrier, and alerter -> driver
void LoadTree() {
    PutService("alerter", "Alerter", {{"DependOnGroup", AsMulti({"browser", "driver"})}});
    PutService("browser", "Browser", {{"DependOnGroup", AsMulti({"carrier"})}});
    PutService("carrier", "Carrier");
    PutService("driver", "Driver");
    StartDaemon();
}

TEST_F(Handlers, dependencies_are_listed_with_the_last_one_found_first_deliberate) {
    LoadTree();
    ASSERT_EQ(SetStatus(3, running), ERROR_SUCCESS);
    const auto reply = EnumDepend(1, SERVICE_STATE_ALL, enoughBytes);
    EXPECT_EQ(reply->status, ERROR_SUCCESS);
    EXPECT_EQ(reply->servicesReturned, 3);
    EXPECT_EQ(reply->bytesNeeded, 52 + 52 + 50);
    const svd_status_t loaded = InState(SERVICE_STOPPED);
    EXPECT_THAT(EntriesOf(reply->services),
                ElementsAre(Listed{"driver", "Driver", loaded}, Listed{"browser", "Browser", loaded},
                            Listed{"carrier", "Carrier", running}));
    EXPECT_THAT(Dependencies(2), ElementsAre("carrier"));
    EXPECT_THAT(Dependencies(3), IsEmpty());
}

TEST_F(Handlers, dependencies_are_filtered_by_state) {
    LoadTree();
    ASSERT_EQ(SetStatus(3, running), ERROR_SUCCESS);
    const auto found = [](std::int32_t filter) { return NamesOf(EnumDepend(1, filter, enoughBytes)->services); };
    EXPECT_THAT(found(SERVICE_ACTIVE), ElementsAre("carrier"));
    EXPECT_THAT(found(SERVICE_INACTIVE), ElementsAre("driver", "browser"));
    EXPECT_THAT(found(0), IsEmpty());
}

TEST_F(Handlers, dependencies_that_do_not_fit_answer_234_and_the_whole_size) {
    LoadTree();
    // Found in the order carrier (52), browser (52), driver (50).
    auto reply = EnumDepend(1, SERVICE_STATE_ALL, 60);
    EXPECT_EQ(reply->status, ERROR_MORE_DATA);
    EXPECT_EQ(reply->bytesNeeded, 154);
    EXPECT_EQ(reply->servicesReturned, 1);
    EXPECT_THAT(NamesOf(reply->services), ElementsAre("carrier"));
    for (std::int32_t bytes : {0, -1, -1000, 51}) {
        reply = EnumDepend(1, SERVICE_STATE_ALL, bytes);
        EXPECT_EQ(reply->status, ERROR_MORE_DATA) << bytes;
        EXPECT_EQ(reply->bytesNeeded, 154) << bytes;
        EXPECT_EQ(reply->servicesReturned, 0) << bytes;
    }
    reply = EnumDepend(1, SERVICE_STATE_ALL, 154);
    EXPECT_EQ(reply->status, ERROR_SUCCESS);
    EXPECT_EQ(reply->servicesReturned, 3);
    reply = EnumDepend(1, SERVICE_STATE_ALL, 153);
    EXPECT_EQ(reply->status, ERROR_MORE_DATA);
    EXPECT_EQ(reply->servicesReturned, 2);
}

TEST_F(Handlers, each_dependency_is_listed_once) {
    PutService("alerter", "alerter", {{"DependOnGroup", AsMulti({"browser", "carrier", "browser", "+net"})}});
    PutService("browser", "browser", {{"DependOnGroup", AsMulti({"carrier"})}});
    PutService("carrier", "carrier", {{"Group", AsText("net")}});
    StartDaemon();
    EXPECT_THAT(Dependencies(1), ElementsAre("browser", "carrier"));
    EXPECT_THAT(Dependencies(1), ElementsAre("browser", "carrier")); // the marks of the walk do not stay
}

TEST_F(Handlers, a_circle_of_dependencies_answers_1059_with_what_was_found) {
    PutService("alerter", "alerter", {{"DependOnGroup", AsMulti({"carrier", "browser"})}});
    PutService("browser", "browser", {{"DependOnGroup", AsMulti({"alerter"})}});
    PutService("carrier", "carrier");
    StartDaemon();
    const auto reply = EnumDepend(1, SERVICE_STATE_ALL, enoughBytes);
    EXPECT_EQ(reply->status, ERROR_CIRCULAR_DEPENDENCY);
    EXPECT_EQ(reply->servicesReturned, 1);
    EXPECT_EQ(reply->bytesNeeded, 52);
    EXPECT_THAT(NamesOf(reply->services), ElementsAre("carrier"));
    EXPECT_EQ(EnumDepend(2, SERVICE_STATE_ALL, enoughBytes)->status, ERROR_CIRCULAR_DEPENDENCY);
    EXPECT_EQ(EnumDepend(3, SERVICE_STATE_ALL, enoughBytes)->status, ERROR_SUCCESS);
}

TEST_F(Handlers, dependencies_of_a_service_whose_key_is_gone_answer_an_error_and_nothing) {
    LoadTree();
    ASSERT_EQ(EnumDepend(1, SERVICE_STATE_ALL, enoughBytes)->servicesReturned, 3);
    DropKey(servicesKeyPath, "alerter");
    auto reply = EnumDepend(1, SERVICE_STATE_ALL, enoughBytes);
    EXPECT_NE(reply->status, ERROR_SUCCESS);
    EXPECT_EQ(reply->servicesReturned, 0);
    EXPECT_EQ(reply->bytesNeeded, 0);
    EXPECT_EQ(reply->services, nullptr);
}

TEST_F(Handlers, a_dependency_whose_key_is_gone_answers_2) {
    LoadTree();
    DropKey(servicesKeyPath, "carrier");
    EXPECT_EQ(EnumDepend(1, SERVICE_STATE_ALL, enoughBytes)->status, ERROR_FILE_NOT_FOUND);
}

TEST_F(Handlers, dependencies_pass_over_a_service_marked_for_deletion_and_all_below_it) {
    LoadTree();
    ASSERT_EQ(Delete(2), ERROR_SUCCESS);
    EXPECT_THAT(Dependencies(1), ElementsAre("driver"));
    EXPECT_THAT(Dependencies(2), IsEmpty());
}

TEST_F(Handlers, dependencies_list_record_0_too) {
    Load({"alerter"});
    ASSERT_EQ(Create({.name = "first"})->handle, 0);
    ASSERT_EQ(Create({.name = "second", .dependencies = MultiSz({"first", "alerter"})})->handle, 2);
    EXPECT_THAT(Dependencies(2), ElementsAre("alerter", "first"));
}

TEST_F(Handlers, dependencies_are_read_from_the_registry_at_each_call) {
    Load({"alerter", "browser"});
    EXPECT_THAT(Dependencies(1), IsEmpty());
    PutKey(KeyPath("alerter"), {{"DependOnGroup", AsMulti({"browser"})}});
    EXPECT_THAT(Dependencies(1), ElementsAre("browser"));
}

// --- names ---

TEST_F(Handlers, names_are_translated_both_ways) {
    PutService("alerter", "The alerter");
    PutService("browser", "");
    StartDaemon();
    EXPECT_EQ(GetDisplay("alerter")->status, ERROR_SUCCESS);
    EXPECT_EQ(GetDisplay("alerter")->displayName, std::string("The alerter"));
    EXPECT_EQ(GetKey("The alerter")->status, ERROR_SUCCESS);
    EXPECT_EQ(GetKey("The alerter")->name, std::string("alerter"));
    EXPECT_EQ(GetDisplay("browser")->displayName, std::string());
    EXPECT_EQ(GetKey("")->name, std::string("browser"));
}

TEST_F(Handlers, a_name_that_nobody_bears_answers_1060_and_an_empty_one) {
    PutService("alerter", "The alerter");
    StartDaemon();
    ASSERT_EQ(GetDisplay("alerter")->status, ERROR_SUCCESS);
    ASSERT_EQ(GetKey("The alerter")->status, ERROR_SUCCESS);
    for (const char *name : {"Alerter", "the alerter", "alerter ", ""}) {
        EXPECT_EQ(GetDisplay(name)->status, ERROR_SERVICE_DOES_NOT_EXIST) << name;
        EXPECT_EQ(GetDisplay(name)->displayName, std::string()) << name;
        EXPECT_EQ(GetKey(name)->status, ERROR_SERVICE_DOES_NOT_EXIST) << name;
        EXPECT_EQ(GetKey(name)->name, std::string()) << name;
    }
}

TEST_F(Handlers, a_display_name_of_two_services_gives_the_lower_record) {
    PutService("alerter", "same");
    PutService("browser", "same");
    StartDaemon();
    EXPECT_EQ(GetKey("same")->name, std::string("alerter"));
    ASSERT_EQ(Create({.name = "zero", .displayName = "same"})->handle, 0);
    EXPECT_EQ(GetKey("same")->name, std::string("zero"));
}

TEST_F(Handlers, names_of_services_marked_for_deletion_are_still_found) {
    PutService("alerter", "The alerter");
    StartDaemon();
    ASSERT_EQ(Delete(1), ERROR_SUCCESS);
    EXPECT_EQ(GetDisplay("alerter")->status, ERROR_SUCCESS);
    EXPECT_EQ(GetKey("The alerter")->status, ERROR_SUCCESS);
}

} // namespace
