// SPDX-License-Identifier: MIT
// Creating services, and reading and changing their configuration.
#include "tests/handlers/suite.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr std::int32_t noHandles[] = {-1, 0, 2, 50, 51, INT32_MAX, INT32_MIN};
const char nobody[] = "no-such-user-here";

std::string TagOrderValue(const std::string &group) {
    const Values counters = ValuesOf(TagOrderPath());
    const auto found = counters.find(group);
    return found == counters.end() ? "none" : found->second.bytes;
}

// --- create: what is written ---

TEST_F(Handlers, create_writes_every_value_that_is_given) {
    Load({"alerter"});
    const auto reply = Create({.name = "spooler",
                               .displayName = "Print spooler",
                               .serviceType = 0x120,
                               .startType = 4,
                               .errorControl = 2,
                               .imagePath = "/usr/libexec/spooler",
                               .group = "print",
                               .dependencies = MultiSz({"alerter", "+print"}).replace(8, 6, "+other"),
                               .account = "root",
                               .tagWanted = 1});
    EXPECT_EQ(reply->status, ERROR_SUCCESS);
    EXPECT_EQ(reply->handle, 0);
    EXPECT_EQ(reply->tag, 1u);
    EXPECT_EQ(ValuesOf(KeyPath("spooler")), (Values{{"DisplayName", AsText("Print spooler")},
                                                    {"Type", AsNumber(0x120)},
                                                    {"Start", AsNumber(4)},
                                                    {"ErrorControl", AsNumber(2)},
                                                    {"ImagePath", AsText("/usr/libexec/spooler")},
                                                    {"Group", AsText("print")},
                                                    {"DependOnGroup", AsMulti({"alerter", "+other"})},
                                                    {"DependOnService", AsText("root")},
                                                    {"Tag", AsNumber(1)}}));
    EXPECT_EQ(ValuesOf(TagOrderPath()), (Values{{"print", AsBinary(Words({1}))}}));
}

TEST_F(Handlers, create_with_nothing_but_a_name_writes_five_values) {
    Load({});
    EXPECT_EQ(Create({.name = "spooler"})->status, ERROR_SUCCESS);
    EXPECT_EQ(ValuesOf(KeyPath("spooler")), (Values{{"DisplayName", AsText("")},
                                                    {"Type", AsNumber(0x10)},
                                                    {"Start", AsNumber(3)},
                                                    {"ErrorControl", AsNumber(1)},
                                                    {"ImagePath", AsText("")}}));
    EXPECT_FALSE(HasKeyAt(TagOrderPath()));
}

TEST_F(Handlers, create_writes_numbers_unchecked) {
    Load({});
    EXPECT_EQ(Create({.name = "odd", .serviceType = 0xFFFFFFFF, .startType = 77, .errorControl = 0xFFFFFFFF})->status,
              ERROR_SUCCESS);
    const Values values = ValuesOf(KeyPath("odd"));
    EXPECT_EQ(values.at("Type"), AsNumber(0xFFFFFFFF));
    EXPECT_EQ(values.at("Start"), AsNumber(77));
    EXPECT_EQ(values.at("ErrorControl"), AsNumber(0xFFFFFFFF));
}

TEST_F(Handlers, create_writes_dependencies_byte_for_byte) {
    Load({});
    const std::string untidy("\0\0a\0", 4);
    EXPECT_EQ(Create({.name = "untidy", .dependencies = untidy})->status, ERROR_SUCCESS);
    EXPECT_EQ(ValuesOf(KeyPath("untidy")).at("DependOnGroup"), (Value{REG_MULTI_SZ, untidy}));
    EXPECT_EQ(Create({.name = "open", .dependencies = "nobody"})->status, ERROR_SUCCESS);
    EXPECT_EQ(ValuesOf(KeyPath("open")).at("DependOnGroup"), (Value{REG_MULTI_SZ, "nobody"}));
}

TEST_F(Handlers, create_writes_no_dependencies_for_one_byte_nor_for_none) {
    Load({});
    EXPECT_EQ(Create({.name = "one", .dependencies = std::string(1, '\0')})->status, ERROR_SUCCESS);
    EXPECT_EQ(Create({.name = "other", .dependencies = "x"})->status, ERROR_SUCCESS);
    EXPECT_EQ(Create({.name = "none", .dependencies = ""})->status, ERROR_SUCCESS);
    for (const char *name : {"one", "other", "none"}) {
        EXPECT_EQ(ValuesOf(KeyPath(name)).count("DependOnGroup"), 0u) << name;
    }
}

TEST_F(Handlers, create_takes_the_first_free_record_and_opens_it_once) {
    Load({"alerter", "browser"});
    EXPECT_EQ(Create({.name = "first"})->handle, 0);
    EXPECT_EQ(Create({.name = "second"})->handle, 3);
    for (std::int32_t handle : {0, 3}) {
        EXPECT_EQ(Close(handle), ERROR_SUCCESS);
        EXPECT_EQ(Close(handle), ERROR_INVALID_HANDLE);
    }
    EXPECT_EQ(Open("first")->handle, 0);
    EXPECT_EQ(GetKey("")->name, std::string("first"));
}

TEST_F(Handlers, create_leaves_a_stopped_service_of_the_type_given) {
    Load({"alerter"});
    ASSERT_EQ(Create({.name = "zero"})->handle, 0);
    ASSERT_EQ(Create({.name = "driver", .displayName = "A driver", .serviceType = SERVICE_KERNEL_DRIVER})->handle, 2);
    EXPECT_EQ(QueryStatus(2)->serviceStatus, InState(SERVICE_STOPPED));
    const auto drivers = EnumStatus(0, SERVICE_DRIVER, SERVICE_INACTIVE, enoughBytes);
    EXPECT_THAT(EntriesOf(drivers->services), ElementsAre(Listed{"driver", "A driver", InState(SERVICE_STOPPED)}));
}

TEST_F(Handlers, create_puts_the_service_into_its_group) {
    PutService("alerter", "alerter", {{"DependOnGroup", AsMulti({"+net"})}});
    StartDaemon();
    EXPECT_THAT(Dependencies(1), IsEmpty());
    ASSERT_EQ(Create({.name = "first", .group = "net"})->status, ERROR_SUCCESS);
    ASSERT_EQ(Create({.name = "second", .group = "net"})->status, ERROR_SUCCESS);
    EXPECT_THAT(Dependencies(1), ElementsAre("first", "second")); // the second stands first in its group
}

TEST_F(Handlers, a_created_service_is_loaded_by_the_next_daemon) {
    Load({"alerter"});
    ASSERT_EQ(Create({.name = "spooler", .displayName = "Spooler", .serviceType = 0x20, .group = "print"})->handle, 0);
    StartDaemon();
    EXPECT_EQ(Open("spooler")->handle, 2);
    const auto reply = QueryConfig(2);
    EXPECT_EQ(reply->serviceType, 0x20u);
    EXPECT_EQ(reply->displayName, std::string("Spooler"));
    EXPECT_EQ(reply->group, std::string("print"));
}

TEST_F(Handlers, create_does_not_compare_display_names) {
    Load({"alerter"});
    EXPECT_EQ(Create({.name = "other", .displayName = "alerter"})->status, ERROR_SUCCESS);
}

// --- create: what is refused ---

TEST_F(Handlers, create_of_a_service_that_exists_answers_1073_and_handle_0) {
    Load({"alerter"});
    ASSERT_EQ(Create({.name = "zero"})->handle, 0);
    ASSERT_EQ(Create({.name = "spooler"})->handle, 2);
    const auto before = ServicesInRegistry();
    const auto reply = Create({.name = "spooler", .displayName = "changed", .tagWanted = 1});
    EXPECT_EQ(reply->status, ERROR_SERVICE_EXISTS);
    EXPECT_EQ(reply->handle, 0);
    EXPECT_EQ(Create({.name = "alerter"})->status, ERROR_SERVICE_EXISTS);
    EXPECT_EQ(ServicesInRegistry(), before);
    EXPECT_EQ(Create({.name = "next"})->handle, 3);
}

TEST_F(Handlers, create_leaves_it_to_the_registry_whether_a_service_exists) {
    Load({"alerter"});
    PutKey(KeyPath("stranger"), {});
    EXPECT_EQ(Create({.name = "stranger"})->status, ERROR_SERVICE_EXISTS);
    EXPECT_EQ(ValuesOf(KeyPath("stranger")), Values());
    DropKey(servicesKeyPath, "alerter");
    EXPECT_EQ(Create({.name = "alerter"})->handle, 0); // two records of this name now
    EXPECT_EQ(Open("alerter")->handle, 0);
}

TEST_F(Handlers, create_of_a_service_that_is_marked_answers_1073) {
    Load({"alerter"});
    ASSERT_EQ(Open("alerter")->handle, 1);
    ASSERT_EQ(Delete(1), ERROR_SUCCESS);
    EXPECT_EQ(Create({.name = "alerter"})->status, ERROR_SERVICE_EXISTS);
    ASSERT_EQ(Close(1), ERROR_SUCCESS);
    EXPECT_EQ(Create({.name = "alerter"})->status, ERROR_SUCCESS);
}

TEST_F(Handlers, create_without_a_services_key_answers_1065) {
    Load({});
    const std::string path = servicesKeyPath;
    const std::size_t upper = path.rfind('\\');
    DropKey(path.substr(0, upper), path.substr(upper + 1));
    const auto reply = Create({.name = "spooler"});
    EXPECT_EQ(reply->status, ERROR_DATABASE_DOES_NOT_EXIST);
    EXPECT_EQ(reply->handle, 0);
    EXPECT_FALSE(HasKeyAt(servicesKeyPath));
}

TEST_F(Handlers, create_for_an_unknown_account_answers_1057_and_leaves_no_key) {
    Load({"alerter"});
    ASSERT_EQ(Create({.name = "zero"})->handle, 0);
    const auto before = ServicesInRegistry();
    const auto reply = Create({.name = "spooler", .group = "print", .account = nobody, .tagWanted = 1});
    EXPECT_EQ(reply->status, ERROR_INVALID_SERVICE_ACCOUNT);
    EXPECT_EQ(reply->handle, 0);
    EXPECT_EQ(ServicesInRegistry(), before);
    EXPECT_FALSE(HasKeyAt(TagOrderPath()));
    EXPECT_EQ(Create({.name = "next"})->handle, 2);
}

TEST_F(Handlers, create_in_a_circle_of_dependencies_answers_1059_and_leaves_nothing) {
    PutService("alerter", "alerter", {{"DependOnGroup", AsMulti({"spooler"})}});
    PutService("browser", "browser", {{"DependOnGroup", AsMulti({"+print"})}});
    StartDaemon();
    const auto before = ServicesInRegistry();
    const NewService circles[] = {
        {.name = "spooler", .dependencies = MultiSz({"spooler"})},
        {.name = "spooler", .dependencies = MultiSz({"alerter"})},
        {.name = "spooler", .group = "print", .dependencies = MultiSz({"+print"})},
        {.name = "spooler", .displayName = "x", .group = "print", .dependencies = MultiSz({"browser"})},
    };
    for (NewService circle : circles) {
        circle.imagePath = "/bin/true";
        circle.tagWanted = 1;
        const auto reply = Create(circle);
        EXPECT_EQ(reply->status, ERROR_CIRCULAR_DEPENDENCY);
        EXPECT_EQ(reply->handle, 0);
        EXPECT_EQ(ServicesInRegistry(), before);
        EXPECT_FALSE(HasKeyAt(TagOrderPath()));
        EXPECT_EQ(GetDisplay("spooler")->status, ERROR_SERVICE_DOES_NOT_EXIST);
        EXPECT_EQ(GetKey("x")->status, ERROR_SERVICE_DOES_NOT_EXIST);
        EXPECT_THAT(Dependencies(2), IsEmpty()); // nobody is left in the group
        EXPECT_EQ(Close(0), ERROR_INVALID_HANDLE);
    }
    EXPECT_EQ(Create({.name = "next"})->handle, 0);
}

TEST_F(Handlers, create_answers_the_registry_s_code_when_a_dependency_cannot_be_walked) {
    Load({"alerter"});
    DropKey(servicesKeyPath, "alerter");
    const auto reply = Create({.name = "spooler", .group = "print", .dependencies = MultiSz({"alerter"})});
    EXPECT_EQ(reply->status, ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(reply->handle, 0);
    EXPECT_THAT(ServicesInRegistry(), IsEmpty());
    EXPECT_EQ(Create({.name = "next"})->handle, 0);
}

// --- create: tags ---

TEST_F(Handlers, tags_of_a_group_count_up) {
    Load({});
    EXPECT_EQ(Create({.name = "a", .group = "net", .tagWanted = 1})->tag, 1u);
    EXPECT_EQ(ValuesOf(TagOrderPath()), (Values{{"net", AsBinary(Words({1}))}}));
    EXPECT_EQ(Create({.name = "b", .group = "net", .tagWanted = -1})->tag, 2u);
    EXPECT_EQ(Create({.name = "c", .group = "print", .tagWanted = 1})->tag, 1u);
    EXPECT_EQ(ValuesOf(TagOrderPath()), (Values{{"net", AsBinary(Words({2}))}, {"print", AsBinary(Words({1}))}}));
    EXPECT_EQ(ValuesOf(KeyPath("a")).at("Tag"), AsNumber(1));
    EXPECT_EQ(ValuesOf(KeyPath("b")).at("Tag"), AsNumber(2));
    EXPECT_EQ(ValuesOf(KeyPath("c")).at("Tag"), AsNumber(1));
}

TEST_F(Handlers, a_tag_without_a_group_counts_in_the_unnamed_value) {
    Load({});
    EXPECT_EQ(Create({.name = "a", .tagWanted = 1})->tag, 1u);
    EXPECT_EQ(Create({.name = "b", .tagWanted = 1})->tag, 2u);
    EXPECT_EQ(ValuesOf(TagOrderPath()), (Values{{"", AsBinary(Words({2}))}}));
}

TEST_F(Handlers, a_counter_keeps_its_type_its_length_and_its_list_deliberate) {
    PutKey(TagOrderPath(), {{"net", AsBinary(Words({3, 30, 10, 20}))},
                            {"number", AsNumber(41)},
                            {"odd", {REG_NONE, Words({0xFFFFFFFF}) + "xyz"}}});
    StartDaemon();
    EXPECT_EQ(Create({.name = "a", .group = "net", .tagWanted = 1})->tag, 4u);
    EXPECT_EQ(Create({.name = "b", .group = "number", .tagWanted = 1})->tag, 42u);
    EXPECT_EQ(Create({.name = "c", .group = "odd", .tagWanted = 1})->tag, 0u);
    EXPECT_EQ(ValuesOf(TagOrderPath()), (Values{{"net", AsBinary(Words({4, 30, 10, 20}))},
                                                {"number", AsNumber(42)},
                                                {"odd", {REG_NONE, Words({0}) + "xyz"}}}));
    EXPECT_EQ(ValuesOf(KeyPath("a")).at("Tag"), AsNumber(4));
}

TEST_F(Handlers, a_counter_of_less_than_a_word_keeps_its_length) {
    PutKey(TagOrderPath(), {{"short", AsBinary(std::string("\xFF\xFF", 2))}});
    StartDaemon();
    EXPECT_EQ(Create({.name = "a", .group = "short", .tagWanted = 1})->tag, 65536u);
    EXPECT_EQ(TagOrderValue("short"), std::string("\0\0", 2));
}

TEST_F(Handlers, a_create_that_wants_no_tag_answers_the_last_one_deliberate) {
    PutKey(TagOrderPath(), {{"net", AsBinary(Words({8}))}});
    StartDaemon();
    ASSERT_EQ(Create({.name = "a", .group = "net", .tagWanted = 1})->tag, 9u);
    EXPECT_EQ(Create({.name = "b", .group = "net"})->tag, 9u);
    EXPECT_EQ(ValuesOf(KeyPath("b")).count("Tag"), 0u);
    EXPECT_EQ(TagOrderValue("net"), Words({9}));
    EXPECT_EQ(Create({.name = "a", .group = "net", .tagWanted = 1})->tag, 9u); // refused
    EXPECT_EQ(Create({.name = "c", .account = nobody, .tagWanted = 1})->tag, 9u);
    EXPECT_EQ(ChangeConfig({.handle = 0, .tagWanted = 1})->tag, 10);
    EXPECT_EQ(Create({.name = "d"})->tag, 9u); // each procedure remembers its own
}

TEST_F(Handlers, a_tag_that_is_handed_out_is_not_entered_into_the_record_deliberate) {
    Load({});
    ASSERT_EQ(Create({.name = "a", .group = "net", .tagWanted = 1})->tag, 1u);
    EXPECT_EQ(QueryConfig(0)->tag, 0);
    StartDaemon();
    EXPECT_EQ(QueryConfig(1)->tag, 1);
}

// --- query ---

TEST_F(Handlers, a_query_answers_the_whole_configuration) {
    PutService("alerter", "The alerter",
               {{"Start", AsNumber(4)},
                {"ErrorControl", AsNumber(3)},
                {"ImagePath", AsText("/usr/libexec/alerter")},
                {"Group", AsText("net")},
                {"Tag", AsNumber(7)},
                {"DependOnGroup", AsMulti({"browser", "+print"})},
                {"DependOnService", AsText("root")}},
               0x110);
    StartDaemon();
    PutKey(KeyPath("alerter"), {{"Start", AsNumber(2)}}); // by now it is not started at once
    const auto reply = QueryConfig(1);
    EXPECT_EQ(reply->serviceType, 0x110u);
    EXPECT_EQ(reply->startType, 2u);
    EXPECT_EQ(reply->errorControl, 3u);
    EXPECT_EQ(reply->imagePath, std::string("/usr/libexec/alerter"));
    EXPECT_EQ(reply->group, std::string("net"));
    EXPECT_EQ(reply->tag, 7);
    EXPECT_EQ(BytesOf(reply->dependencies), MultiSz({"browser", "+print"}));
    EXPECT_EQ(reply->account, std::string("root"));
    EXPECT_EQ(reply->displayName, std::string("The alerter"));
}

TEST_F(Handlers, a_query_answers_0_and_empty_for_what_is_missing) {
    PutKey(KeyPath("bare"), {{"Type", AsNumber(0x10)}, {"DisplayName", AsText("Bare")}});
    StartDaemon();
    const auto reply = QueryConfig(1);
    EXPECT_EQ(reply->serviceType, 0x10u);
    EXPECT_EQ(reply->startType, 0u);
    EXPECT_EQ(reply->errorControl, 0u);
    EXPECT_EQ(reply->imagePath, std::string());
    EXPECT_EQ(reply->group, std::string());
    EXPECT_EQ(reply->tag, 0);
    EXPECT_EQ(reply->dependencies.count, 0u);
    EXPECT_EQ(reply->account, std::string());
    EXPECT_EQ(reply->displayName, std::string("Bare"));
}

TEST_F(Handlers, a_query_takes_type_tag_and_display_name_from_the_record) {
    PutService("alerter", "The alerter", {{"Tag", AsNumber(7)}});
    StartDaemon();
    PutKey(KeyPath("alerter"), {{"Type", AsNumber(0x20)},
                                {"Tag", AsNumber(8)},
                                {"DisplayName", AsText("Another")},
                                {"Group", AsText("net")},
                                {"ErrorControl", AsNumber(9)}});
    const auto reply = QueryConfig(1);
    EXPECT_EQ(reply->serviceType, 0x10u);
    EXPECT_EQ(reply->tag, 7);
    EXPECT_EQ(reply->displayName, std::string("The alerter"));
    EXPECT_EQ(reply->group, std::string("net"));
    EXPECT_EQ(reply->errorControl, 9u);
}

TEST_F(Handlers, a_query_survives_values_of_any_length_and_ending) {
    const std::string longPath(5000, 'p');
    Load({"alerter"});
    PutKey(KeyPath("alerter"), {{"Start", {REG_DWORD, Words({5, 6})}}, // no number of 4 bytes
                                {"ErrorControl", {REG_DWORD, "\x02"}},
                                {"ImagePath", AsText(longPath)},
                                {"Group", {REG_SZ, "open"}},
                                {"DependOnGroup", {REG_BINARY, std::string("a\0b", 3)}},
                                {"DependOnService", {REG_SZ, std::string("root\0more\0", 10)}}});
    const auto reply = QueryConfig(1);
    EXPECT_EQ(reply->startType, 0u);
    EXPECT_EQ(reply->errorControl, 2u);
    EXPECT_EQ(reply->imagePath, longPath);
    EXPECT_EQ(reply->group, std::string("open"));
    EXPECT_EQ(BytesOf(reply->dependencies), std::string("a\0b", 3));
    EXPECT_EQ(reply->account, std::string("root"));
}

TEST_F(Handlers, the_first_query_of_all_answers_0_and_after_a_bad_handle_6_deliberate) {
    if (!IsFreshProcess()) GTEST_SKIP() << "an earlier test of this process has called procedures";
    PutService("alerter", "The alerter", {{"Group", AsText("net")}});
    StartDaemon();
    EXPECT_EQ(QueryConfig(1)->status, ERROR_SUCCESS);
    EXPECT_EQ(QueryConfig(1)->status, ERROR_SUCCESS);
    EXPECT_EQ(QueryConfig(-1)->status, ERROR_INVALID_HANDLE);
    const auto reply = QueryConfig(1);
    EXPECT_EQ(reply->status, ERROR_INVALID_HANDLE);
    EXPECT_EQ(reply->group, std::string("net"));
}

TEST_F(Handlers, a_first_query_of_no_handle_answers_6_and_empty_strings) {
    if (!IsFreshProcess()) GTEST_SKIP() << "an earlier test of this process has called procedures";
    Load({"alerter"});
    const auto reply = QueryConfig(50);
    EXPECT_EQ(reply->status, ERROR_INVALID_HANDLE);
    EXPECT_EQ(reply->imagePath, std::string());
    EXPECT_EQ(reply->dependencies.count, 0u);
    EXPECT_EQ(reply->displayName, std::string());
}

TEST_F(Handlers, a_query_of_no_handle_answers_6_and_the_last_configuration_deliberate) {
    PutService("alerter", "The alerter", {{"Group", AsText("net")}, {"DependOnGroup", AsMulti({"x"})}});
    PutService("browser", "The browser");
    StartDaemon();
    ASSERT_EQ(QueryConfig(1)->displayName, std::string("The alerter"));
    for (std::int32_t handle : {-1, 0, 3, 50, INT32_MAX, INT32_MIN}) {
        const auto reply = QueryConfig(handle);
        EXPECT_EQ(reply->status, ERROR_INVALID_HANDLE) << handle;
        EXPECT_EQ(reply->serviceType, 0x10u) << handle;
        EXPECT_EQ(reply->startType, 3u) << handle;
        EXPECT_EQ(reply->group, std::string("net")) << handle;
        EXPECT_EQ(BytesOf(reply->dependencies), MultiSz({"x"})) << handle;
        EXPECT_EQ(reply->displayName, std::string("The alerter")) << handle;
    }
    const auto reply = QueryConfig(2);
    EXPECT_EQ(reply->status, ERROR_INVALID_HANDLE); // for as long as the daemon runs
    EXPECT_EQ(reply->group, std::string());
    EXPECT_EQ(reply->dependencies.count, 0u);
    EXPECT_EQ(reply->displayName, std::string("The browser"));
}

TEST_F(Handlers, a_query_of_a_service_whose_key_is_gone_answers_what_the_record_knows) {
    PutService("alerter", "The alerter", {{"Group", AsText("net")}, {"Tag", AsNumber(7)}});
    StartDaemon();
    DropKey(servicesKeyPath, "alerter");
    const auto reply = QueryConfig(1);
    EXPECT_EQ(reply->serviceType, 0x10u);
    EXPECT_EQ(reply->startType, 0u);
    EXPECT_EQ(reply->group, std::string());
    EXPECT_EQ(reply->tag, 7);
    EXPECT_EQ(reply->displayName, std::string("The alerter"));
}

TEST_F(Handlers, a_marked_service_can_be_queried) {
    Load({"alerter"});
    ASSERT_EQ(Delete(1), ERROR_SUCCESS);
    EXPECT_EQ(QueryConfig(1)->displayName, std::string("alerter"));
}

// --- change: what is written ---

TEST_F(Handlers, a_change_of_nothing_writes_the_error_control_deliberate) {
    PutService("alerter", "The alerter", {{"Group", AsText("net")}, {"Tag", AsNumber(7)}});
    StartDaemon();
    auto expected = ServicesInRegistry();
    EXPECT_EQ(ChangeConfig({.handle = 1, .errorControl = 0xFFFFFFFF})->status, ERROR_SUCCESS);
    expected["alerter"]["ErrorControl"] = AsNumber(0xFFFFFFFF);
    EXPECT_EQ(ServicesInRegistry(), expected);
    EXPECT_EQ(QueryConfig(1)->displayName, std::string("The alerter"));
}

TEST_F(Handlers, a_change_of_everything_writes_the_bytes_given) {
    Load({"alerter", "browser"});
    EXPECT_EQ(ChangeConfig({.handle = 1,
                            .serviceType = 0x20,
                            .startType = 4,
                            .errorControl = 2,
                            .imagePath = Sz("/bin/new"),
                            .group = Sz("net"),
                            .dependencies = MultiSz({"browser"}),
                            .account = Sz("root"),
                            .password = Sz("secret"),
                            .displayName = Sz("New name"),
                            .tagWanted = 1})
                  ->status,
              ERROR_SUCCESS);
    EXPECT_EQ(ValuesOf(KeyPath("alerter")), (Values{{"Type", AsNumber(0x20)},
                                                    {"Start", AsNumber(4)},
                                                    {"ErrorControl", AsNumber(2)},
                                                    {"ImagePath", AsText("/bin/new")},
                                                    {"Group", AsText("net")},
                                                    {"DependOnGroup", AsMulti({"browser"})},
                                                    {"DependOnService", AsText("root")},
                                                    {"DisplayName", AsText("New name")},
                                                    {"Tag", AsNumber(1)}}));
    EXPECT_EQ(ValuesOf(KeyPath("browser")), LoadableValues("browser"));
    EXPECT_THAT(Dependencies(1), ElementsAre("browser"));
    EXPECT_EQ(GetKey("New name")->name, std::string("alerter"));
    EXPECT_EQ(GetKey("alerter")->status, ERROR_SERVICE_DOES_NOT_EXIST);
    EXPECT_EQ(QueryConfig(1)->serviceType, 0x20u);
}

TEST_F(Handlers, each_single_change_writes_its_value_and_the_error_control) {
    const struct {
        Change change;
        const char *name;
        Value value;
    } changes[] = {
        {{.serviceType = 0x20}, "Type", AsNumber(0x20)},
        {{.startType = 4}, "Start", AsNumber(4)},
        {{.imagePath = Sz("/bin/x")}, "ImagePath", AsText("/bin/x")},
        {{.group = Sz("net")}, "Group", AsText("net")},
        {{.dependencies = MultiSz({"nobody"})}, "DependOnGroup", AsMulti({"nobody"})},
        {{.account = Sz("root")}, "DependOnService", AsText("root")},
        {{.displayName = Sz("Other")}, "DisplayName", AsText("Other")},
    };
    for (const auto &row : changes) {
        SCOPED_TRACE(row.name);
        ClearRegistry();
        Load({"alerter"});
        Change change = row.change;
        change.handle = 1;
        change.errorControl = 5;
        EXPECT_EQ(ChangeConfig(change)->status, ERROR_SUCCESS);
        Values expected = LoadableValues("alerter");
        expected["ErrorControl"] = AsNumber(5);
        expected[row.name] = row.value;
        EXPECT_EQ(ValuesOf(KeyPath("alerter")), expected);
    }
}

TEST_F(Handlers, a_change_writes_strings_with_the_count_given) {
    Load({"alerter"});
    const std::string odd("odd\0tail", 8);
    EXPECT_EQ(ChangeConfig({.handle = 1,
                            .imagePath = odd,
                            .group = odd,
                            .account = std::string("root\0tail", 9),
                            .displayName = "open"})
                  ->status,
              ERROR_SUCCESS);
    const Values values = ValuesOf(KeyPath("alerter"));
    EXPECT_EQ(values.at("ImagePath"), (Value{REG_SZ, odd}));
    EXPECT_EQ(values.at("Group"), (Value{REG_SZ, odd}));
    EXPECT_EQ(values.at("DependOnService"), (Value{REG_SZ, std::string("root\0tail", 9)}));
    EXPECT_EQ(values.at("DisplayName"), (Value{REG_SZ, "open"}));
    EXPECT_EQ(GetDisplay("alerter")->displayName, std::string("open"));
}

TEST_F(Handlers, a_change_to_empty_strings_writes_them) {
    Load({"alerter"});
    const std::string empty(1, '\0');
    EXPECT_EQ(ChangeConfig({.handle = 1,
                            .imagePath = empty,
                            .group = empty,
                            .dependencies = empty,
                            .account = empty,
                            .displayName = empty})
                  ->status,
              ERROR_SUCCESS);
    const Values values = ValuesOf(KeyPath("alerter"));
    for (const char *name : {"ImagePath", "Group", "DependOnService", "DisplayName"}) {
        EXPECT_EQ(values.at(name), AsText("")) << name;
    }
    EXPECT_EQ(values.at("DependOnGroup"), AsMulti({}));
    EXPECT_EQ(GetKey("")->name, std::string("alerter"));
}

TEST_F(Handlers, a_change_of_the_start_type_leaves_the_record_alone) {
    Load({"alerter"});
    EXPECT_EQ(ChangeConfig({.handle = 1, .startType = 4})->status, ERROR_SUCCESS);
    EXPECT_EQ(QueryConfig(1)->startType, 4u);
    EXPECT_EQ(QueryConfig(1)->serviceType, 0x10u);
}

TEST_F(Handlers, a_change_of_the_type_is_seen_by_the_enumeration) {
    Load({"alerter"});
    EXPECT_EQ(ChangeConfig({.handle = 1, .serviceType = SERVICE_KERNEL_DRIVER})->status, ERROR_SUCCESS);
    EXPECT_EQ(EnumStatus(0, SERVICE_DRIVER, SERVICE_STATE_ALL, enoughBytes)->servicesReturned, 1);
    EXPECT_EQ(EnumStatus(0, SERVICE_WIN32, SERVICE_STATE_ALL, enoughBytes)->servicesReturned, 0);
}

TEST_F(Handlers, a_change_of_the_group_moves_the_service) {
    PutService("alerter", "alerter", {{"Group", AsText("old")}});
    PutService("newer", "newer", {{"DependOnGroup", AsMulti({"+new"})}});
    PutService("older", "older", {{"DependOnGroup", AsMulti({"+old"})}});
    StartDaemon();
    EXPECT_THAT(Dependencies(3), ElementsAre("alerter"));
    EXPECT_EQ(ChangeConfig({.handle = 1, .group = Sz("new")})->status, ERROR_SUCCESS);
    EXPECT_THAT(Dependencies(2), ElementsAre("alerter"));
    EXPECT_THAT(Dependencies(3), IsEmpty());
}

TEST_F(Handlers, a_change_is_loaded_by_the_next_daemon) {
    Load({"alerter"});
    ASSERT_EQ(ChangeConfig({.handle = 1, .serviceType = 0x20, .displayName = Sz("New")})->status, ERROR_SUCCESS);
    StartDaemon();
    EXPECT_EQ(QueryConfig(1)->serviceType, 0x20u);
    EXPECT_EQ(GetKey("New")->name, std::string("alerter"));
}

// --- change: what is refused ---

TEST_F(Handlers, a_change_of_no_handle_answers_6) {
    Load({"alerter"});
    for (std::int32_t handle : noHandles) {
        EXPECT_EQ(ChangeConfig({.handle = handle})->status, ERROR_INVALID_HANDLE) << handle;
    }
}

TEST_F(Handlers, a_change_of_a_marked_service_answers_1072) {
    Load({"alerter"});
    ASSERT_EQ(Delete(1), ERROR_SUCCESS);
    const auto before = ServicesInRegistry();
    EXPECT_EQ(ChangeConfig({.handle = 1, .displayName = Sz("x"), .tagWanted = 1})->status,
              ERROR_SERVICE_MARKED_FOR_DELETE);
    EXPECT_EQ(ServicesInRegistry(), before);
}

TEST_F(Handlers, a_change_to_the_display_name_of_another_service_answers_52) {
    PutService("alerter", "The alerter");
    PutService("browser", "The browser");
    StartDaemon();
    const auto before = ServicesInRegistry();
    EXPECT_EQ(ChangeConfig({.handle = 1,
                            .errorControl = 3,
                            .account = Sz(nobody), // the name is looked at first
                            .displayName = Sz("The browser")})
                  ->status,
              ERROR_DUP_NAME);
    ASSERT_EQ(Delete(2), ERROR_SUCCESS);
    EXPECT_EQ(ChangeConfig({.handle = 1, .displayName = Sz("The browser")})->status, ERROR_DUP_NAME);
    EXPECT_EQ(ValuesOf(KeyPath("alerter")), before.at("alerter"));
}

TEST_F(Handlers, a_change_may_take_its_own_display_name_another_case_and_any_key_name) {
    PutService("alerter", "The alerter");
    PutService("browser", "The browser");
    StartDaemon();
    for (const char *name : {"The alerter", "the browser", "browser"}) {
        EXPECT_EQ(ChangeConfig({.handle = 1, .displayName = Sz(name)})->status, ERROR_SUCCESS) << name;
        EXPECT_EQ(GetDisplay("alerter")->displayName, std::string(name));
    }
}

TEST_F(Handlers, a_change_to_an_unknown_account_answers_1057_and_writes_nothing) {
    Load({"alerter"});
    const auto before = ServicesInRegistry();
    EXPECT_EQ(ChangeConfig({.handle = 1,
                            .serviceType = 0x20,
                            .errorControl = 3,
                            .group = Sz("net"),
                            .account = Sz(nobody),
                            .displayName = Sz("New")})
                  ->status,
              ERROR_INVALID_SERVICE_ACCOUNT);
    EXPECT_EQ(ServicesInRegistry(), before);
    EXPECT_EQ(GetDisplay("alerter")->displayName, std::string("alerter"));
}

TEST_F(Handlers, a_change_that_closes_a_circle_answers_1059_and_undoes_the_dependencies) {
    const Value untidy = {REG_MULTI_SZ, std::string("carrier\0\0\0rest", 14)};
    PutService("alerter", "alerter", {{"DependOnGroup", untidy}});
    PutService("browser", "browser", {{"DependOnGroup", AsMulti({"alerter"})}});
    PutService("carrier", "carrier");
    StartDaemon();
    const auto before = ServicesInRegistry();
    EXPECT_EQ(ChangeConfig({.handle = 1,
                            .serviceType = 0x20,
                            .errorControl = 3,
                            .dependencies = MultiSz({"browser"}),
                            .displayName = Sz("New"),
                            .tagWanted = 1})
                  ->status,
              ERROR_CIRCULAR_DEPENDENCY);
    EXPECT_EQ(ServicesInRegistry(), before);
    EXPECT_THAT(Dependencies(1), ElementsAre("carrier"));
    EXPECT_EQ(QueryConfig(1)->serviceType, 0x10u);
    EXPECT_EQ(GetDisplay("alerter")->displayName, std::string("alerter"));
}

TEST_F(Handlers, a_change_that_closes_a_circle_leaves_no_dependencies_where_there_were_none) {
    Load({"alerter"});
    const auto before = ServicesInRegistry();
    EXPECT_EQ(ChangeConfig({.handle = 1, .dependencies = MultiSz({"alerter"})})->status, ERROR_CIRCULAR_DEPENDENCY);
    EXPECT_EQ(ServicesInRegistry(), before);
}

TEST_F(Handlers, a_change_of_the_group_that_closes_a_circle_moves_the_service_back) {
    PutService("alerter", "alerter", {{"DependOnGroup", AsMulti({"+new"})}, {"Group", AsText("old")}});
    PutService("newer", "newer", {{"DependOnGroup", AsMulti({"+new"})}});
    PutService("older", "older", {{"DependOnGroup", AsMulti({"+old"})}});
    StartDaemon();
    const auto before = ServicesInRegistry();
    EXPECT_EQ(ChangeConfig({.handle = 1, .group = Sz("new")})->status, ERROR_CIRCULAR_DEPENDENCY);
    EXPECT_EQ(ServicesInRegistry(), before);
    EXPECT_THAT(Dependencies(2), IsEmpty());
    EXPECT_THAT(Dependencies(3), ElementsAre("alerter"));
}

TEST_F(Handlers, a_change_of_the_group_that_closes_a_circle_leaves_no_group_where_there_was_none) {
    PutService("alerter", "alerter", {{"DependOnGroup", AsMulti({"+new"})}});
    PutService("newer", "newer", {{"DependOnGroup", AsMulti({"+new"})}});
    StartDaemon();
    const auto before = ServicesInRegistry();
    EXPECT_EQ(ChangeConfig({.handle = 1, .group = Sz("new")})->status, ERROR_CIRCULAR_DEPENDENCY);
    EXPECT_EQ(ServicesInRegistry(), before);
    EXPECT_THAT(Dependencies(2), IsEmpty());
}

TEST_F(Handlers, a_change_of_both_that_closes_a_circle_undoes_both) {
    PutService("alerter", "alerter", {{"DependOnGroup", AsMulti({"carrier"})}, {"Group", AsText("old")}});
    PutService("carrier", "carrier");
    PutService("newer", "newer", {{"DependOnGroup", AsMulti({"+new"})}});
    PutService("older", "older", {{"DependOnGroup", AsMulti({"+old"})}});
    StartDaemon();
    const auto before = ServicesInRegistry();
    EXPECT_EQ(ChangeConfig({.handle = 1, .group = Sz("new"), .dependencies = MultiSz({"newer"})})->status,
              ERROR_CIRCULAR_DEPENDENCY);
    EXPECT_EQ(ServicesInRegistry(), before);
    EXPECT_THAT(Dependencies(1), ElementsAre("carrier"));
    EXPECT_THAT(Dependencies(3), IsEmpty());
    EXPECT_THAT(Dependencies(4), ElementsAre("alerter", "carrier"));
}

TEST_F(Handlers, a_change_of_something_else_does_not_look_at_a_circle) {
    PutService("alerter", "alerter", {{"DependOnGroup", AsMulti({"alerter"})}});
    StartDaemon();
    EXPECT_EQ(ChangeConfig({.handle = 1, .displayName = Sz("New")})->status, ERROR_SUCCESS);
    EXPECT_EQ(ChangeConfig({.handle = 1, .group = Sz("net")})->status, ERROR_CIRCULAR_DEPENDENCY);
}

// --- change: tags ---

TEST_F(Handlers, a_change_hands_out_a_tag_of_the_service_s_group) {
    PutService("alerter", "alerter", {{"Group", AsText("net")}});
    StartDaemon();
    auto reply = ChangeConfig({.handle = 1, .tagWanted = 1});
    EXPECT_EQ(reply->status, ERROR_SUCCESS);
    EXPECT_EQ(reply->tag, 1);
    EXPECT_EQ(ValuesOf(KeyPath("alerter")).at("Tag"), AsNumber(1));
    EXPECT_EQ(ValuesOf(TagOrderPath()), (Values{{"net", AsBinary(Words({1}))}}));
    // Deliberate: the record still has none, so that the next request is given another.
    EXPECT_EQ(ChangeConfig({.handle = 1, .tagWanted = 1})->tag, 2);
    EXPECT_EQ(QueryConfig(1)->tag, 0);
    EXPECT_EQ(ValuesOf(KeyPath("alerter")).at("Tag"), AsNumber(2));
}

TEST_F(Handlers, a_change_hands_out_a_tag_of_the_new_group) {
    PutService("alerter", "alerter", {{"Group", AsText("old")}});
    PutKey(TagOrderPath(), {{"old", AsBinary(Words({5}))}, {"new", AsBinary(Words({8, 1}))}});
    StartDaemon();
    EXPECT_EQ(ChangeConfig({.handle = 1, .group = Sz("new"), .tagWanted = 1})->tag, 9);
    EXPECT_EQ(ValuesOf(TagOrderPath()), (Values{{"old", AsBinary(Words({5}))}, {"new", AsBinary(Words({9, 1}))}}));
}

TEST_F(Handlers, a_change_of_a_service_without_a_group_counts_in_the_unnamed_value) {
    Load({"alerter"});
    EXPECT_EQ(ChangeConfig({.handle = 1, .tagWanted = 1})->tag, 1);
    EXPECT_EQ(ValuesOf(TagOrderPath()), (Values{{"", AsBinary(Words({1}))}}));
}

TEST_F(Handlers, a_service_loaded_with_a_tag_keeps_it) {
    PutService("alerter", "alerter", {{"Group", AsText("net")}, {"Tag", AsNumber(7)}});
    StartDaemon();
    PutKey(KeyPath("alerter"), {{"Tag", AsNumber(99)}});
    EXPECT_EQ(ChangeConfig({.handle = 1, .group = Sz("new"), .tagWanted = 1})->tag, 7);
    EXPECT_EQ(ValuesOf(KeyPath("alerter")).at("Tag"), AsNumber(7));
    EXPECT_FALSE(HasKeyAt(TagOrderPath()));
}

TEST_F(Handlers, a_change_that_wants_no_tag_answers_the_last_one_deliberate) {
    PutService("alerter", "alerter", {{"Tag", AsNumber(7)}});
    PutService("browser", "browser", {{"Tag", AsNumber(8)}});
    StartDaemon();
    ASSERT_EQ(ChangeConfig({.handle = 1, .tagWanted = 1})->tag, 7);
    EXPECT_EQ(ChangeConfig({.handle = 2})->tag, 7);
    EXPECT_EQ(ChangeConfig({.handle = -1, .tagWanted = 1})->tag, 7);
    EXPECT_EQ(ChangeConfig({.handle = 2, .tagWanted = 1})->tag, 8);
    EXPECT_EQ(ChangeConfig({.handle = 1})->tag, 8);
}

} // namespace
