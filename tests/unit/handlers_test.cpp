// SPDX-License-Identifier: MIT
// The cases of the handlers against the handlers themselves; and what only shows in the same process: the records and
// the lists, arguments that no client can send, the calls that reach the registry and what becomes of each that fails.
#include "tests/handlers/suite.h"
#include "tests/support/memory_registry.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

using ::testing::ElementsAre;
using ::testing::ExitedWithCode;
using ::testing::IsEmpty;

namespace {

// --- the deadline ---

ServiceDatabaseEntry Reported(std::int32_t waitHintMs, StatusDeadline deadline) {
    ServiceDatabaseEntry entry{};
    entry.status.dwWaitHint = waitHintMs;
    entry.statusDeadline = deadline;
    return entry;
}

bool Passed(std::int32_t waitHintMs, StatusDeadline deadline, timeval now) {
    return HasDeadlinePassed(Reported(waitHintMs, deadline), now);
}

void ExpectDeadline(timeval now, std::int32_t waitHintMs, std::int32_t seconds, std::int32_t microseconds) {
    const StatusDeadline deadline = DeadlineAfter(now, waitHintMs);
    EXPECT_EQ(deadline.seconds, seconds) << waitHintMs;
    EXPECT_EQ(deadline.microseconds, microseconds) << waitHintMs;
}

TEST(DeadlineAfter, whole_seconds_are_added_to_the_seconds) {
    ExpectDeadline({100, 200000}, 3000, 103, 200000);
    ExpectDeadline({100, 200000}, 0, 100, 200000);
}

TEST(DeadlineAfter, the_rest_is_added_to_the_microseconds_as_it_is_deliberate) {
    ExpectDeadline({10, 999000}, 2500, 12, 999500);
    ExpectDeadline({10, 0}, 1, 10, 1);
    ExpectDeadline({10, 0}, 999, 10, 999);
}

TEST(DeadlineAfter, microseconds_are_not_carried_deliberate) {
    ExpectDeadline({10, 999999}, 1999, 11, 1000998);
    EXPECT_FALSE(Passed(1999, {11, 1000998}, {11, 999999}));
    EXPECT_TRUE(Passed(1999, {11, 1000998}, {12, 0}));
}

TEST(DeadlineAfter, a_negative_hint_lies_in_the_past) {
    ExpectDeadline({100, 500}, -2500, 98, 0);
    ExpectDeadline({100, 0}, -1, 100, -1);
    EXPECT_TRUE(Passed(-1, {100, -1}, {100, 0}));
}

TEST(DeadlineAfter, the_longest_hints_do_not_overflow) {
    ExpectDeadline({1, 0}, INT32_MAX, 2147484, 647);
    ExpectDeadline({1, 0}, INT32_MIN, -2147482, -648);
    ExpectDeadline({INT32_MAX, 0}, 1000, INT32_MIN, 0);
}

TEST(HasDeadlinePassed, it_passes_one_microsecond_after_it) {
    EXPECT_FALSE(Passed(3000, {103, 200000}, {103, 199999}));
    EXPECT_FALSE(Passed(3000, {103, 200000}, {103, 200000}));
    EXPECT_TRUE(Passed(3000, {103, 200000}, {103, 200001}));
}

TEST(HasDeadlinePassed, seconds_go_before_microseconds) {
    EXPECT_FALSE(Passed(3000, {103, 0}, {102, 999999}));
    EXPECT_TRUE(Passed(3000, {103, 999999}, {104, 0}));
}

TEST(HasDeadlinePassed, without_a_hint_it_never_passes) {
    EXPECT_FALSE(Passed(0, {0, 0}, {100, 0}));
    EXPECT_TRUE(Passed(1, {0, 0}, {100, 0}));
    EXPECT_TRUE(Passed(-1, {0, 0}, {100, 0}));
}

// --- what no client can send ---

TEST_F(Handlers, a_lock_without_an_owner_answers_6) {
    servd_SERV_LOCK_SERVICE argument = {.lockId = 7, .owner = nullptr};
    EXPECT_EQ(serv_lock_service_1(&argument, nullptr)->status, ERROR_INVALID_HANDLE);
    EXPECT_EQ(svcdblock.lockId, 0);
}

TEST_F(Handlers, a_query_of_a_lock_without_an_owner_answers_6) {
    StartDaemon();
    svcdblock.lockId = 7;
    const auto reply = QueryLock();
    EXPECT_EQ(reply->status, ERROR_INVALID_HANDLE);
    EXPECT_EQ(reply->isLocked, 1);
}

TEST_F(Handlers, the_age_of_a_lock_is_counted_from_the_second_it_was_taken) {
    StartDaemon();
    ASSERT_EQ(Lock(7, "setup"), ERROR_SUCCESS);
    svcdblock.lockedSinceSec -= 100;
    EXPECT_GE(QueryLock()->lockDurationSec, 100);
    EXPECT_LE(QueryLock()->lockDurationSec, 101);
    ASSERT_EQ(Unlock(7), ERROR_SUCCESS);
    EXPECT_EQ(svcdblock.lockedSinceSec, 0);
    EXPECT_EQ(svcdblock.owner, nullptr);
    EXPECT_GE(QueryLock()->lockDurationSec, 100);
}

TEST_F(Handlers, a_null_name_is_nobody_s) {
    Load({"alerter"});
    servd_SERV_GET_DISPLAY_SERVICE display = {.name = nullptr};
    EXPECT_EQ(serv_get_display_service_1(&display, nullptr)->status, ERROR_SERVICE_DOES_NOT_EXIST);
    servd_SERV_GET_KEY_SERVICE key = {.displayName = nullptr};
    EXPECT_EQ(serv_get_key_service_1(&key, nullptr)->status, ERROR_SERVICE_DOES_NOT_EXIST);
}

TEST_F(Handlers, stop_ends_the_process_with_status_0) {
    servd_STOP_DAEMON_SERVICE argument = {.unused = 0};
    EXPECT_EXIT((void)serv_stop_daemon_service_1(&argument, nullptr), ExitedWithCode(0), "");
}

// --- records ---

TEST_F(Handlers, a_report_keeps_process_and_context_and_sets_the_deadline) {
    Load({"alerter"});
    svcdb[1].processId = 4711;
    svcdb[1].serviceContext = 5;
    timeval before{};
    (void)gettimeofday(&before, nullptr);
    ASSERT_EQ(SetStatus(1, {0x10, SERVICE_STOPPED, 0, 0, 0, 0, 3000}), ERROR_SUCCESS);
    EXPECT_EQ(svcdb[1].processId, 4711); // deliberate: also when it reports itself stopped
    EXPECT_EQ(svcdb[1].serviceContext, 5);
    EXPECT_GE(svcdb[1].statusDeadline.seconds, before.tv_sec + 3);
    EXPECT_LE(svcdb[1].statusDeadline.seconds, before.tv_sec + 4);
    ASSERT_EQ(SetStatus(1, running), ERROR_SUCCESS);
    EXPECT_LE(svcdb[1].statusDeadline.seconds, before.tv_sec + 1); // set without a hint, too
}

TEST_F(Handlers, a_service_found_dead_loses_its_process_and_keeps_the_rest) {
    Load({"alerter"});
    ASSERT_EQ(SetStatus(1, Overdue(running)), ERROR_SUCCESS);
    svcdb[1].processId = 4711;
    svcdb[1].serviceContext = 5;
    const StatusDeadline deadline = svcdb[1].statusDeadline;
    ASSERT_EQ(QueryStatus(1)->serviceStatus.dwWin32ExitCode, ERROR_PROCESS_ABORTED);
    EXPECT_EQ(svcdb[1].processId, 0);
    EXPECT_EQ(svcdb[1].serviceContext, 5);
    EXPECT_EQ(svcdb[1].statusDeadline.seconds, deadline.seconds);
    EXPECT_EQ(svcdb[1].statusDeadline.microseconds, deadline.microseconds);
}

pid_t EndedProcess() {
    const pid_t child = fork();
    if (child == 0) _exit(0);
    (void)waitpid(child, nullptr, 0);
    return child;
}

// The host is not named here, so that no process can be reached.
TEST_F(Handlers, a_control_request_to_a_process_that_is_gone_answers_1062_and_finds_the_service_dead) {
    Load({"alerter"});
    ASSERT_EQ(SetStatus(1, {0x10, SERVICE_RUNNING, 3, 4, 5, 6, 60000}), ERROR_SUCCESS);
    svcdb[1].processId = EndedProcess();
    EXPECT_EQ(Control(1, SERVICE_CONTROL_STOP)->status, ERROR_SERVICE_NOT_ACTIVE);
    EXPECT_EQ(QueryStatus(1)->serviceStatus, (svd_status_t{0x10, SERVICE_STOPPED, 3, ERROR_PROCESS_ABORTED, 5, 0, 0}));
    EXPECT_EQ(svcdb[1].processId, 0);
}

TEST_F(Handlers, a_control_request_to_a_living_process_that_cannot_be_reached_answers_1053) {
    Load({"alerter"});
    const svd_status_t report = {0x10, SERVICE_RUNNING, 3, 4, 5, 6, 60000};
    ASSERT_EQ(SetStatus(1, report), ERROR_SUCCESS);
    svcdb[1].processId = getpid();
    EXPECT_EQ(Control(1, SERVICE_CONTROL_STOP)->status, ERROR_SERVICE_REQUEST_TIMEOUT);
    EXPECT_EQ(QueryStatus(1)->serviceStatus, report);
    EXPECT_EQ(svcdb[1].processId, getpid());
}

TEST_F(Handlers, a_removed_service_loses_names_and_mark_and_keeps_the_rest_deliberate) {
    Load({"alerter"});
    ASSERT_EQ(Open("alerter")->handle, 1);
    ASSERT_EQ(SetStatus(1, {0x99, SERVICE_STOPPED, 3, 4, 5, 6, 60000}), ERROR_SUCCESS);
    svcdb[1].processId = 4711;
    svcdb[1].tag = 9;
    ASSERT_EQ(Delete(1), ERROR_SUCCESS);
    ASSERT_EQ(Close(1), ERROR_SUCCESS);
    const ServiceDatabaseEntry &entry = svcdb[1];
    EXPECT_EQ(entry.name, nullptr);
    EXPECT_EQ(entry.displayName, nullptr);
    EXPECT_EQ(entry.deletePending, 0);
    EXPECT_EQ(entry.openCount, 0);
    EXPECT_EQ(entry.status, (svd_status_t{0x99, SERVICE_STOPPED, 3, 4, 5, 6, 60000}));
    EXPECT_EQ(entry.processId, 4711);
    EXPECT_EQ(entry.tag, 9);
    EXPECT_EQ(entry.type, 0x10);
}

TEST_F(Handlers, a_walk_leaves_no_marks_behind) {
    PutService("alerter", "alerter", {{"DependOnGroup", AsMulti({"alerter"})}});
    PutService("browser", "browser", {{"DependOnGroup", AsMulti({"carrier"})}});
    PutService("carrier", "carrier");
    StartDaemon();
    const auto expectNoMarks = [] {
        for (std::int32_t index = 0; index < svcdbsize; ++index) {
            EXPECT_EQ(svcdb[index].visited, 0) << index;
            EXPECT_EQ(svcdb[index].visiting, 0) << index;
        }
    };
    for (std::int32_t handle : {1, 2}) {
        (void)EnumDepend(handle, SERVICE_STATE_ALL, enoughBytes);
        expectNoMarks();
        (void)Start(handle); // 6 and 1068
        expectNoMarks();
        (void)ChangeConfig({.handle = handle, .group = Terminated("net")});
        expectNoMarks();
    }
    (void)Create({.name = "driver", .dependencies = Strings({"browser"})});
    expectNoMarks();
}

// --- the two lists ---

Names GroupMembers(const std::string &name) { return MembersOf(grouplist, grouplistsize, name); }
Names PathMembers(const std::string &name) { return MembersOf(imagepathlist, imagepathlistsize, name); }
const Names noEntry = {"(no entry)"};

TEST_F(Handlers, create_files_the_image_path_under_the_group_deliberate) {
    StartDaemon();
    ASSERT_EQ(Create({.name = "a", .imagePath = "/bin/x", .group = "net"})->status, ERROR_SUCCESS);
    ASSERT_EQ(Create({.name = "b", .imagePath = "/bin/x"})->status, ERROR_SUCCESS);
    ASSERT_EQ(Create({.name = "c", .group = "net"})->status, ERROR_SUCCESS);
    EXPECT_THAT(PathMembers("net"), ElementsAre("a"));
    EXPECT_THAT(PathMembers(""), ElementsAre("b"));
    EXPECT_EQ(PathMembers("/bin/x"), noEntry);
    EXPECT_THAT(GroupMembers("net"), ElementsAre("c", "a"));
    EXPECT_EQ(GroupMembers(""), noEntry);
}

TEST_F(Handlers, a_create_that_is_undone_leaves_an_empty_group) {
    StartDaemon();
    ASSERT_EQ(Create({.name = "a", .imagePath = "/bin/x", .group = "net", .dependencies = Strings({"a"})})->status,
              ERROR_CIRCULAR_DEPENDENCY);
    EXPECT_THAT(GroupMembers("net"), IsEmpty());
    EXPECT_EQ(PathMembers("net"), noEntry);
    EXPECT_EQ(ServiceNames(), "");
    EXPECT_EQ(svcdb[0].openCount, 0);
    EXPECT_EQ(svcdb[0].displayName, nullptr);
}

TEST_F(Handlers, a_change_of_the_image_path_files_the_service_under_the_new_one_too_deliberate) {
    PutService("a", "a", {{"ImagePath", AsText("/bin/old")}});
    StartDaemon();
    ASSERT_EQ(ChangeConfig({.handle = 1, .imagePath = Terminated("/bin/new")})->status, ERROR_SUCCESS);
    EXPECT_THAT(PathMembers("/bin/new"), ElementsAre("a"));
    EXPECT_THAT(PathMembers("/bin/old"), ElementsAre("a")); // the removal edits the other list
}

TEST_F(Handlers, a_change_of_the_image_path_takes_the_service_out_of_the_group_of_that_number_deliberate) {
    PutService("a", "a", {{"ImagePath", AsText("/bin/old")}, {"Group", AsText("net")}}); // both in entry 0
    StartDaemon();
    ASSERT_EQ(ChangeConfig({.handle = 1, .imagePath = Terminated("/bin/new")})->status, ERROR_SUCCESS);
    EXPECT_THAT(GroupMembers("net"), IsEmpty());
}

TEST_F(Handlers, delete_takes_the_service_out_of_no_list_deliberate) {
    PutService("a", "a", {{"ImagePath", AsText("/bin/x")}, {"Group", AsText("net")}});
    StartDaemon();
    ASSERT_EQ(Delete(1), ERROR_SUCCESS);
    EXPECT_THAT(GroupMembers("net"), ElementsAre("a"));
    EXPECT_THAT(PathMembers("/bin/x"), ElementsAre("a"));
}

TEST_F(Handlers, delete_takes_the_service_out_of_what_the_services_key_names_deliberate) {
    PutService("a", "a", {{"ImagePath", AsText("/bin/x")}, {"Group", AsText("net")}});
    PutService("b", "b", {{"Group", AsText("other")}});
    PutKey(servicesKeyPath, {{"Group", AsText("other")}, {"ImagePath", AsText("/bin/x")}});
    StartDaemon();
    ASSERT_EQ(Delete(2), ERROR_SUCCESS);
    EXPECT_THAT(GroupMembers("other"), IsEmpty());
    EXPECT_THAT(GroupMembers("net"), ElementsAre("a"));
    ASSERT_EQ(Delete(1), ERROR_SUCCESS);
    EXPECT_THAT(GroupMembers("net"), IsEmpty()); // by way of entry 0 of the image paths
    EXPECT_THAT(PathMembers("/bin/x"), ElementsAre("a"));
}

TEST_F(Handlers, names_of_1024_bytes_are_read_whole_and_longer_ones_are_not) {
    const std::string longest(1024, 'g'); // without a terminator
    PutService("a", "a", {{"Group", AsText(longest.substr(0, 1023))}});
    PutKey(servicesKeyPath, {{"Group", {REG_SZ, longest}}});
    StartDaemon();
    const std::int32_t b = Create({.name = "b", .group = longest})->handle;
    const std::int32_t c = Create({.name = "c", .group = longest + "g"})->handle;
    ASSERT_EQ(Delete(b), ERROR_SUCCESS);
    EXPECT_THAT(GroupMembers(longest), IsEmpty());
    PutKey(servicesKeyPath, {{"Group", AsText(longest + "g")}});
    ASSERT_EQ(Delete(c), ERROR_SUCCESS);
    EXPECT_THAT(GroupMembers(longest + "g"), ElementsAre("c"));
}

// --- every call to the registry, and what becomes of it when it fails ---

constexpr LONG fault = ERROR_ACCESS_DENIED;

const std::string services = servicesKeyPath;
const std::string spooler = services + "\\spooler";
const std::string alerter = services + "\\alerter";
const std::string browser = services + "\\browser";
const std::string tagOrder = tagOrderKeyPath;

// One call that an operation makes, and what must hold when just that call failed.
struct Step {
    std::string call;
    std::function<void()> check;
};

// Runs an operation once as it is, and compares its calls; then, each time in a new world that `prepare` makes, once
// for each call with that call failing.
void RunWithFaults(const std::function<void()> &prepare, const std::function<void()> &operation,
                   const std::function<void()> &checkWithoutFault, const std::vector<Step> &steps) {
    prepare();
    ForgetCalls();
    operation();
    Names calls;
    for (const Step &step : steps) {
        calls.push_back(step.call);
    }
    EXPECT_EQ(RegistryCalls(), calls);
    checkWithoutFault();
    for (std::size_t n = 0; n < steps.size(); ++n) {
        SCOPED_TRACE("failing call " + std::to_string(n + 1) + ": " + calls[n]);
        prepare();
        ForgetCalls();
        FailNthCall(static_cast<int>(n) + 1, fault);
        operation();
        ForgetCalls();
        steps[n].check();
        // The daemon serves on.
        EXPECT_EQ(Call(servd_SERV_DUMMY{.dummy = 1})->dummy, 2);
        EXPECT_EQ(Create({.name = "afterwards"})->status, ERROR_SUCCESS);
    }
}

constexpr std::int32_t earlierTag = 77; // that of the last create and of the last change before an operation

// alerter in record 1, and record 0 taken; the replies' tags are those of an earlier call.
void PrepareCreate() {
    ClearRegistry();
    PutService("alerter", "alerter", {{"Tag", AsNumber(earlierTag)}});
    PutKey(tagOrder, {{"net", AsBinary(Words({4, 9}))}, {"early", AsBinary(Words({earlierTag - 1}))}});
    StartDaemon();
    ASSERT_EQ(Create({.name = "zero", .group = "early", .tagWanted = 1})->tag, std::uint32_t{earlierTag});
    ASSERT_EQ(ChangeConfig({.handle = 1, .tagWanted = 1})->tag, earlierTag);
}

const NewService fullService = {.name = "spooler",
                                .displayName = "Spooler",
                                .imagePath = "/bin/spooler",
                                .group = "net",
                                .dependencies = Strings({"alerter"}),
                                .account = "root",
                                .tagWanted = 1};

const Values fullValues = {{"DisplayName", AsText("Spooler")},
                           {"Type", AsNumber(0x10)},
                           {"Start", AsNumber(3)},
                           {"ErrorControl", AsNumber(1)},
                           {"ImagePath", AsText("/bin/spooler")},
                           {"Group", AsText("net")},
                           {"DependOnGroup", AsMulti({"alerter"})},
                           {"DependOnService", AsText("root")},
                           {"Tag", AsNumber(5)}};

void ExpectNoSpooler() {
    EXPECT_FALSE(HasKeyAt(spooler));
    EXPECT_EQ(ServiceNames(), "0:zero 1:alerter");
    EXPECT_EQ(svcdb[2].openCount, 0);
    const Names members = GroupMembers("net");
    EXPECT_TRUE(members.empty() || members == noEntry);
}

// What a create or a change answered and left.
struct Outcome {
    std::int32_t status;
    std::int32_t tag;
    std::size_t keysKept;
};

TEST_F(Handlers, faults_of_the_registry_during_a_create) {
    Outcome outcome{};
    const auto create = [&] {
        const std::size_t openBefore = OpenKeys().size();
        const auto reply = Create(fullService);
        EXPECT_EQ(reply->handle, reply->status == ERROR_SUCCESS ? 2 : 0);
        outcome = {reply->status, static_cast<std::int32_t>(reply->tag), OpenKeys().size() - openBefore};
    };
    const auto expect = [&](std::int32_t status, std::int32_t tag, const Values &values, std::size_t keysKept = 0) {
        EXPECT_EQ(outcome.status, status);
        EXPECT_EQ(outcome.tag, tag);
        EXPECT_EQ(ValuesOf(spooler), values);
        EXPECT_EQ(outcome.keysKept, keysKept);
    };
    const auto refused = [&](const std::string &call, std::int32_t status) {
        return Step{call, [=] {
                        expect(status, earlierTag, {});
                        ExpectNoSpooler();
                    }};
    };
    const auto unwritten = [&](const std::string &name) {
        Values values = fullValues;
        values.erase(name);
        return Step{"set " + spooler + " " + name, [=] { expect(ERROR_SUCCESS, 5, values); }};
    };
    const auto unclosed = [&](const std::string &key) {
        return Step{"close " + key, [=] { expect(ERROR_SUCCESS, 5, fullValues, 1); }};
    };
    const auto untagged = [&](const std::string &call) {
        Values values = fullValues;
        values["Tag"] = AsNumber(earlierTag);
        return Step{call, [=] {
                        expect(ERROR_SUCCESS, earlierTag, values);
                        EXPECT_EQ(ValuesOf(tagOrder).at("net"), AsBinary(Words({4, 9})));
                    }};
    };
    const auto uncounted = [&] {
        expect(ERROR_SUCCESS, 5, fullValues);
        EXPECT_EQ(ValuesOf(tagOrder).at("net"), AsBinary(Words({4, 9})));
    };
    const auto whole = [&] {
        expect(ERROR_SUCCESS, 5, fullValues);
        EXPECT_EQ(ValuesOf(tagOrder).at("net"), AsBinary(Words({5, 9})));
        EXPECT_EQ(ServiceNames(), "0:zero 1:alerter 2:spooler");
    };
    RunWithFaults(PrepareCreate, create, whole,
                  {
                      refused("open " + services, ERROR_DATABASE_DOES_NOT_EXIST),
                      refused("create " + spooler, ERROR_INVALID_NAME),
                      unwritten("DependOnGroup"),
                      refused("open " + spooler, fault),
                      refused("size " + spooler + " DependOnGroup", fault),
                      refused("query " + spooler + " DependOnGroup", fault),
                      unclosed(spooler),
                      refused("open " + alerter, fault),
                      refused("size " + alerter + " DependOnGroup", fault),
                      unclosed(alerter),
                      unwritten("DisplayName"),
                      unwritten("Type"),
                      unwritten("Start"),
                      unwritten("ErrorControl"),
                      unwritten("ImagePath"),
                      unwritten("Group"),
                      untagged("create " + tagOrder),
                      untagged("size " + tagOrder + " net"),
                      untagged("query " + tagOrder + " net"),
                      {"set " + tagOrder + " net", uncounted},
                      unwritten("Tag"),
                      unclosed(tagOrder),
                      unwritten("DependOnService"),
                      unclosed(spooler),
                      unclosed(services),
                  });
}

TEST_F(Handlers, a_create_without_a_tag_counter_starts_one) {
    ClearRegistry();
    StartDaemon();
    ForgetCalls();
    ASSERT_EQ(Create({.name = "spooler", .group = "net", .tagWanted = 1})->tag, 1u);
    EXPECT_THAT(RegistryCalls(),
                ElementsAre("open " + services, "create " + spooler, "open " + spooler,
                            "size " + spooler + " DependOnGroup", "close " + spooler, "set " + spooler + " DisplayName",
                            "set " + spooler + " Type", "set " + spooler + " Start", "set " + spooler + " ErrorControl",
                            "set " + spooler + " ImagePath", "set " + spooler + " Group", "create " + tagOrder,
                            "size " + tagOrder + " net", "set " + tagOrder + " net", "set " + spooler + " Tag",
                            "close " + tagOrder, "close " + spooler, "close " + services));
}

TEST_F(Handlers, faults_of_the_registry_while_a_create_is_undone) {
    std::int32_t status = 0;
    std::size_t keysKept = 0;
    const auto prepare = [] {
        ClearRegistry();
        PutService("alerter", "alerter", {{"DependOnGroup", AsMulti({"spooler"})}});
        StartDaemon();
    };
    const auto create = [&] {
        const std::size_t openBefore = OpenKeys().size();
        const auto reply = Create({.name = "spooler", .group = "net", .dependencies = Strings({"alerter"})});
        EXPECT_EQ(reply->handle, 0);
        status = reply->status;
        keysKept = OpenKeys().size() - openBefore;
    };
    const auto undone = [&](std::int32_t code, std::size_t kept, bool keyStands) {
        return [&, code, kept, keyStands] {
            EXPECT_EQ(status, code);
            EXPECT_EQ(keysKept, kept);
            EXPECT_EQ(HasKeyAt(spooler), keyStands);
            EXPECT_EQ(ServiceNames(), "1:alerter");
            const Names members = GroupMembers("net");
            EXPECT_TRUE(members.empty() || members == noEntry);
        };
    };
    const auto succeeded = [&] { // without its dependencies there is no circle
        EXPECT_EQ(status, ERROR_SUCCESS);
        EXPECT_EQ(ValuesOf(spooler).count("DependOnGroup"), 0u);
    };
    RunWithFaults(prepare, create, undone(ERROR_CIRCULAR_DEPENDENCY, 0, false),
                  {
                      {"open " + services, undone(ERROR_DATABASE_DOES_NOT_EXIST, 0, false)},
                      {"create " + spooler, undone(ERROR_INVALID_NAME, 0, false)},
                      {"set " + spooler + " DependOnGroup", succeeded},
                      {"open " + spooler, undone(fault, 0, false)},
                      {"size " + spooler + " DependOnGroup", undone(fault, 0, false)},
                      {"query " + spooler + " DependOnGroup", undone(fault, 0, false)},
                      {"close " + spooler, undone(ERROR_CIRCULAR_DEPENDENCY, 1, false)},
                      {"open " + alerter, undone(fault, 0, false)},
                      {"size " + alerter + " DependOnGroup", undone(fault, 0, false)},
                      {"query " + alerter + " DependOnGroup", undone(fault, 0, false)},
                      {"close " + alerter, undone(ERROR_CIRCULAR_DEPENDENCY, 1, false)},
                      {"close " + spooler, undone(ERROR_CIRCULAR_DEPENDENCY, 1, false)},
                      {"delete " + spooler, undone(ERROR_CIRCULAR_DEPENDENCY, 0, true)},
                      {"close " + services, undone(ERROR_CIRCULAR_DEPENDENCY, 1, false)},
                  });
}

TEST_F(Handlers, faults_of_the_registry_while_an_account_is_refused) {
    std::int32_t status = 0;
    const auto create = [&] { status = Create({.name = "spooler", .account = "no-such-user-here"})->status; };
    const auto expect = [&](std::int32_t code, bool keyStands) {
        return [&, code, keyStands] {
            EXPECT_EQ(status, code);
            EXPECT_EQ(HasKeyAt(spooler), keyStands);
            EXPECT_EQ(ServiceNames(), "1:alerter");
        };
    };
    const auto prepare = [] {
        ClearRegistry();
        Load({"alerter"});
    };
    RunWithFaults(prepare, create, expect(ERROR_INVALID_SERVICE_ACCOUNT, false),
                  {
                      {"open " + services, expect(ERROR_DATABASE_DOES_NOT_EXIST, false)},
                      {"create " + spooler, expect(ERROR_INVALID_NAME, false)},
                      {"close " + spooler, expect(ERROR_INVALID_SERVICE_ACCOUNT, false)},
                      {"delete " + spooler, expect(ERROR_INVALID_SERVICE_ACCOUNT, true)},
                      {"close " + services, expect(ERROR_INVALID_SERVICE_ACCOUNT, false)},
                  });
}

// alerter in group "old" with dependencies, and everything about it changed.
void PrepareChange() {
    ClearRegistry();
    PutKey(groupOrderKeyPath, {{"List", AsMulti({"first"})}}); // the group and the image path have different numbers
    PutService("alerter", "Alerter",
               {{"ImagePath", AsText("/bin/old")},
                {"Group", AsText("old")},
                {"DependOnGroup", AsMulti({"nobody"})},
                {"DependOnService", AsText("daemon")}});
    PutService("browser", "Browser", {{"Tag", AsNumber(earlierTag)}});
    PutKey(tagOrder, {{"new", AsBinary(Words({4, 9}))}});
    StartDaemon();
    ASSERT_EQ(ChangeConfig({.handle = 2, .tagWanted = 1})->tag, earlierTag);
}

const Change fullChange = {.handle = 1,
                           .serviceType = 0x20,
                           .startType = 4,
                           .errorControl = 2,
                           .imagePath = Terminated("/bin/new"),
                           .group = Terminated("new"),
                           .dependencies = Strings({"browser"}),
                           .account = Terminated("root"),
                           .displayName = Terminated("New"),
                           .tagWanted = 1};

const Values valuesBefore = LoadableValues("Alerter", {{"ImagePath", AsText("/bin/old")},
                                                       {"Group", AsText("old")},
                                                       {"DependOnGroup", AsMulti({"nobody"})},
                                                       {"DependOnService", AsText("daemon")}});
const Values valuesAfter = {{"Type", AsNumber(0x20)},
                            {"Start", AsNumber(4)},
                            {"ErrorControl", AsNumber(2)},
                            {"ImagePath", AsText("/bin/new")},
                            {"Group", AsText("new")},
                            {"DependOnGroup", AsMulti({"browser"})},
                            {"DependOnService", AsText("root")},
                            {"DisplayName", AsText("New")},
                            {"Tag", AsNumber(5)}};

Outcome RunChange(const Change &change) {
    const std::size_t openBefore = OpenKeys().size();
    const auto reply = ChangeConfig(change);
    return {reply->status, reply->tag, OpenKeys().size() - openBefore};
}

TEST_F(Handlers, faults_of_the_registry_during_a_change) {
    Outcome outcome{};
    const auto expect = [&](std::int32_t status, std::int32_t tag, const Values &values, std::size_t keysKept = 0) {
        EXPECT_EQ(outcome.status, status);
        EXPECT_EQ(outcome.tag, tag);
        EXPECT_EQ(ValuesOf(alerter), values);
        EXPECT_EQ(outcome.keysKept, keysKept);
    };
    const auto expectRecord = [](bool changed) {
        EXPECT_EQ(svcdb[1].type, changed ? 0x20 : 0x10);
        EXPECT_STREQ(svcdb[1].displayName, changed ? "New" : "Alerter");
        EXPECT_EQ(GroupMembers("old"), changed ? Names() : Names({"alerter"}));
        const Names members = GroupMembers("new");
        EXPECT_TRUE(changed ? members == Names({"alerter"}) : members.empty() || members == noEntry);
        EXPECT_EQ(PathMembers("/bin/new"), changed ? Names({"alerter"}) : noEntry);
    };
    const auto refused = [&](const std::string &call, std::int32_t status, const Values &values = valuesBefore) {
        return Step{call, [=] {
                        expect(status, earlierTag, values);
                        expectRecord(false);
                        EXPECT_EQ(ValuesOf(tagOrder).at("new"), AsBinary(Words({4, 9})));
                    }};
    };
    const auto unnoticed = [&](const std::string &call, std::size_t keysKept = 0) {
        return Step{call, [=] {
                        expect(ERROR_SUCCESS, 5, valuesAfter, keysKept);
                        expectRecord(true);
                    }};
    };
    const auto unwritten = [&](const std::string &name) {
        Values values = valuesAfter;
        const auto before = valuesBefore.find(name);
        if (before == valuesBefore.end()) {
            values.erase(name);
        } else {
            values[name] = before->second;
        }
        return Step{"set " + alerter + " " + name, [=] {
                        expect(ERROR_SUCCESS, 5, values);
                        expectRecord(true);
                    }};
    };
    const auto untagged = [&](const std::string &call) {
        Values values = valuesAfter;
        values["Tag"] = AsNumber(earlierTag);
        return Step{call, [=] {
                        expect(ERROR_SUCCESS, earlierTag, values);
                        EXPECT_EQ(ValuesOf(tagOrder).at("new"), AsBinary(Words({4, 9})));
                    }};
    };
    // Without the name of its old group the service stays in it, and joins the new one.
    const auto inBothGroups = [&] {
        expect(ERROR_SUCCESS, 5, valuesAfter);
        EXPECT_THAT(GroupMembers("old"), ElementsAre("alerter"));
        EXPECT_THAT(GroupMembers("new"), ElementsAre("alerter"));
    };
    // Nothing can be written then: the record runs ahead of the registry, and the group is not known.
    const auto onlyInMemory = [&] {
        expect(ERROR_SUCCESS, earlierTag, valuesBefore);
        EXPECT_EQ(svcdb[1].type, 0x20);
        EXPECT_STREQ(svcdb[1].displayName, "New");
        EXPECT_EQ(ValuesOf(tagOrder), (Values{{"new", AsBinary(Words({4, 9}))}}));
    };
    // The new group's name, unwritten, leads to the counter of the old one.
    Values oldGroup = valuesAfter;
    oldGroup["Group"] = AsText("old");
    oldGroup["Tag"] = AsNumber(1);
    const auto taggedInOldGroup = [&] {
        expect(ERROR_SUCCESS, 1, oldGroup);
        EXPECT_EQ(ValuesOf(tagOrder).at("old"), AsBinary(Words({1})));
    };
    const auto uncounted = [&] {
        expect(ERROR_SUCCESS, 5, valuesAfter);
        EXPECT_EQ(ValuesOf(tagOrder).at("new"), AsBinary(Words({4, 9})));
    };
    const auto whole = [&] {
        expect(ERROR_SUCCESS, 5, valuesAfter);
        expectRecord(true);
        EXPECT_EQ(ValuesOf(tagOrder), (Values{{"new", AsBinary(Words({5, 9}))}}));
    };
    RunWithFaults(PrepareChange, [&] { outcome = RunChange(fullChange); }, whole,
                  {
                      refused("open " + services, ERROR_INVALID_HANDLE),
                      {"open " + alerter, onlyInMemory},
                      unnoticed("size " + alerter + " DependOnGroup"),
                      unnoticed("query " + alerter + " DependOnGroup"),
                      unwritten("DependOnGroup"),
                      {"size " + alerter + " Group", inBothGroups},
                      {"query " + alerter + " Group", inBothGroups},
                      refused("open " + alerter, fault),
                      refused("size " + alerter + " DependOnGroup", fault),
                      refused("query " + alerter + " DependOnGroup", fault),
                      unnoticed("close " + alerter, 1),
                      refused("open " + browser, fault),
                      refused("size " + browser + " DependOnGroup", fault),
                      unnoticed("close " + browser, 1),
                      unwritten("Type"),
                      unwritten("Start"),
                      unwritten("ErrorControl"),
                      unnoticed("size " + alerter + " ImagePath"),
                      unnoticed("query " + alerter + " ImagePath"),
                      unwritten("ImagePath"),
                      unwritten("DependOnService"),
                      unwritten("DisplayName"),
                      {"set " + alerter + " Group", taggedInOldGroup},
                      untagged("create " + tagOrder),
                      untagged("size " + alerter + " Group"),
                      untagged("query " + alerter + " Group"),
                      untagged("size " + tagOrder + " new"),
                      untagged("query " + tagOrder + " new"),
                      {"set " + tagOrder + " new", uncounted},
                      unwritten("Tag"),
                      unnoticed("close " + tagOrder, 1),
                      unnoticed("close " + alerter, 1),
                      unnoticed("close " + services, 1),
                  });
}

TEST_F(Handlers, faults_of_the_registry_while_a_change_is_undone) {
    Outcome outcome{};
    const Change circle = {
        .handle = 1, .errorControl = 9, .group = Terminated("new"), .dependencies = Strings({"alerter"})};
    const auto expect = [&](std::int32_t status, const Value &dependencies, std::size_t keysKept = 0) {
        return [&, status, dependencies, keysKept] {
            EXPECT_EQ(outcome.status, status);
            EXPECT_EQ(outcome.keysKept, keysKept);
            Values values = valuesBefore;
            values["DependOnGroup"] = dependencies;
            EXPECT_EQ(ValuesOf(alerter), values);
            EXPECT_THAT(GroupMembers("old"), ElementsAre("alerter"));
            const Names members = GroupMembers("new");
            EXPECT_TRUE(members.empty() || members == noEntry);
        };
    };
    const Value before = AsMulti({"nobody"});
    const Value after = AsMulti({"alerter"});
    const auto undone = expect(ERROR_CIRCULAR_DEPENDENCY, before);
    // What was there before is not known, so that the new value only goes.
    const auto removed = [&] {
        EXPECT_EQ(outcome.status, ERROR_CIRCULAR_DEPENDENCY);
        Values values = valuesBefore;
        values.erase("DependOnGroup");
        EXPECT_EQ(ValuesOf(alerter), values);
        EXPECT_THAT(GroupMembers("old"), ElementsAre("alerter"));
    };
    // The old dependencies stand, and there is no circle.
    const auto succeeded = [&] {
        EXPECT_EQ(outcome.status, ERROR_SUCCESS);
        Values values = valuesBefore;
        values["ErrorControl"] = AsNumber(9);
        values["Group"] = AsText("new");
        EXPECT_EQ(ValuesOf(alerter), values);
        EXPECT_THAT(GroupMembers("new"), ElementsAre("alerter"));
    };
    // As before, and what can be read of the service by its own name shows no circle; but nothing can be written.
    const auto onlyInMemory = [&] {
        EXPECT_EQ(outcome.status, ERROR_SUCCESS);
        EXPECT_EQ(ValuesOf(alerter), valuesBefore);
    };
    RunWithFaults(PrepareChange, [&] { outcome = RunChange(circle); }, undone,
                  {
                      {"open " + services, expect(ERROR_INVALID_HANDLE, before)},
                      {"open " + alerter, onlyInMemory},
                      {"size " + alerter + " DependOnGroup", removed},
                      {"query " + alerter + " DependOnGroup", removed},
                      {"set " + alerter + " DependOnGroup", succeeded},
                      {"size " + alerter + " Group", undone},
                      {"query " + alerter + " Group", undone},
                      {"open " + alerter, expect(fault, before)},
                      {"size " + alerter + " DependOnGroup", expect(fault, before)},
                      {"query " + alerter + " DependOnGroup", expect(fault, before)},
                      {"close " + alerter, expect(ERROR_CIRCULAR_DEPENDENCY, before, 1)},
                      {"set " + alerter + " DependOnGroup", expect(ERROR_CIRCULAR_DEPENDENCY, after)},
                      {"close " + alerter, expect(ERROR_CIRCULAR_DEPENDENCY, before, 1)},
                      {"close " + services, expect(ERROR_CIRCULAR_DEPENDENCY, before, 1)},
                  });
}

TEST_F(Handlers, a_change_of_nothing_opens_closes_and_writes_one_value) {
    PrepareChange();
    ForgetCalls();
    ASSERT_EQ(ChangeConfig({.handle = 1})->status, ERROR_SUCCESS);
    EXPECT_THAT(RegistryCalls(), ElementsAre("open " + services, "open " + alerter, "set " + alerter + " ErrorControl",
                                             "close " + alerter, "close " + services));
}

TEST_F(Handlers, a_change_that_needs_no_counter_closes_its_key_all_the_same_deliberate) {
    PrepareChange();
    ForgetCalls();
    ASSERT_EQ(ChangeConfig({.handle = 2, .tagWanted = 1})->status, ERROR_SUCCESS);
    EXPECT_THAT(RegistryCalls(),
                ElementsAre("open " + services, "open " + browser, "set " + browser + " ErrorControl",
                            "set " + browser + " Tag", "close ?", "close " + browser, "close " + services));
}

TEST_F(Handlers, a_change_that_is_refused_at_once_calls_nothing) {
    PrepareChange();
    ASSERT_EQ(Delete(2), ERROR_SUCCESS);
    ForgetCalls();
    EXPECT_EQ(ChangeConfig({.handle = 0})->status, ERROR_INVALID_HANDLE);
    EXPECT_EQ(ChangeConfig({.handle = 2})->status, ERROR_SERVICE_MARKED_FOR_DELETE);
    EXPECT_EQ(ChangeConfig({.handle = 1, .displayName = Terminated("Browser")})->status, ERROR_DUP_NAME);
    EXPECT_EQ(ChangeConfig({.handle = 1, .account = Terminated("no-such-user-here")})->status,
              ERROR_INVALID_SERVICE_ACCOUNT);
    EXPECT_THAT(RegistryCalls(), IsEmpty());
}

void PrepareDelete() {
    ClearRegistry();
    PutService("alerter", "alerter", {{"Group", AsText("net")}});
    PutKey(servicesKeyPath, {{"Group", AsText("net")}});
    StartDaemon();
    ASSERT_EQ(Open("alerter")->handle, 1);
}

TEST_F(Handlers, faults_of_the_registry_during_a_delete) {
    std::size_t keysKept = 0;
    const auto expect = [&](std::size_t kept, bool flagged, bool inGroup) {
        return [&, kept, flagged, inGroup] {
            EXPECT_EQ(keysKept, kept);
            EXPECT_EQ(ValuesOf(alerter).count("DeleteFlag"), flagged ? 1u : 0u);
            EXPECT_EQ(GroupMembers("net"), inGroup ? Names({"alerter"}) : Names());
            EXPECT_EQ(Delete(1), ERROR_SERVICE_MARKED_FOR_DELETE); // marked in any case
        };
    };
    const auto remove = [&] {
        const std::size_t openBefore = OpenKeys().size();
        EXPECT_EQ(Delete(1), ERROR_SUCCESS);
        keysKept = OpenKeys().size() - openBefore;
    };
    // Deliberate: both keys stay open.
    RunWithFaults(PrepareDelete, remove, expect(2, true, false),
                  {
                      {"open " + services, expect(0, false, true)},
                      {"open " + alerter, expect(1, false, false)},
                      {"set " + alerter + " DeleteFlag", expect(2, false, false)},
                      {"query " + services + " Group", expect(2, true, true)},
                      {"query " + services + " ImagePath", expect(2, true, false)},
                  });
}

TEST_F(Handlers, faults_of_the_registry_during_a_last_close) {
    const auto expect = [](bool keyStands) {
        return [keyStands] {
            EXPECT_EQ(HasKeyAt(alerter), keyStands);
            EXPECT_EQ(ServiceNames(), "");
            EXPECT_EQ(svcdb[1].deletePending, 0);
        };
    };
    const auto prepare = [] {
        PrepareDelete();
        ASSERT_EQ(Delete(1), ERROR_SUCCESS);
    };
    RunWithFaults(prepare, [] { EXPECT_EQ(Close(1), ERROR_SUCCESS); }, expect(false),
                  {
                      {"open " + services, expect(true)},
                      {"delete " + alerter, expect(true)},
                      {"close " + services, expect(false)},
                  });
}

TEST_F(Handlers, faults_of_the_registry_during_a_query_of_the_configuration) {
    std::shared_ptr<const servd_SERV_QUERY_CONFIG_SERVICE_RETURN> reply;
    const auto prepare = [] {
        ClearRegistry();
        PutService("alerter", "Alerter",
                   {{"ImagePath", AsText("/bin/x")},
                    {"Group", AsText("net")},
                    {"DependOnGroup", AsMulti({"nobody"})},
                    {"DependOnService", AsText("root")}});
        StartDaemon();
    };
    struct Read {
        std::uint32_t startType;
        std::uint32_t errorControl;
        std::string imagePath;
        std::string group;
        std::string dependencies;
        std::string account;
    };
    const Read all = {3, 1, "/bin/x", "net", Strings({"nobody"}), "root"};
    const auto expect = [&](const Read &read) {
        return [&, read] {
            EXPECT_EQ(reply->serviceType, 0x10u);
            EXPECT_EQ(reply->startType, read.startType);
            EXPECT_EQ(reply->errorControl, read.errorControl);
            EXPECT_EQ(reply->imagePath, read.imagePath);
            EXPECT_EQ(reply->group, read.group);
            EXPECT_EQ(BytesOf(reply->dependencies), read.dependencies);
            EXPECT_EQ(reply->account, read.account);
            EXPECT_EQ(reply->displayName, std::string("Alerter"));
        };
    };
    const auto but = [&](auto member, auto value) {
        Read read = all;
        read.*member = value;
        return expect(read);
    };
    const auto nothing = expect({0, 0, "", "", "", ""});
    RunWithFaults(prepare, [&] { reply = QueryConfig(1); }, expect(all),
                  {
                      {"open " + services, nothing},
                      {"open " + alerter, nothing},
                      {"query " + alerter + " Start", but(&Read::startType, 0u)},
                      {"query " + alerter + " ErrorControl", but(&Read::errorControl, 0u)},
                      {"size " + alerter + " ImagePath", but(&Read::imagePath, "")},
                      {"query " + alerter + " ImagePath", but(&Read::imagePath, "")},
                      {"size " + alerter + " Group", but(&Read::group, "")},
                      {"query " + alerter + " Group", but(&Read::group, "")},
                      {"size " + alerter + " DependOnGroup", but(&Read::dependencies, "")},
                      {"query " + alerter + " DependOnGroup", but(&Read::dependencies, "")},
                      {"size " + alerter + " DependOnService", but(&Read::account, "")},
                      {"query " + alerter + " DependOnService", but(&Read::account, "")},
                      {"close " + alerter, expect(all)},
                      {"close " + services, expect(all)},
                  });
}

void PrepareDependencies() {
    ClearRegistry();
    PutService("alerter", "alerter", {{"DependOnGroup", AsMulti({"browser"})}});
    PutService("browser", "browser");
    StartDaemon();
}

TEST_F(Handlers, faults_of_the_registry_while_dependencies_are_listed) {
    std::shared_ptr<const servd_SERV_ENUM_DEPEND_SERVICE_RETURN> reply;
    const auto listed = [&] {
        EXPECT_EQ(reply->status, ERROR_SUCCESS);
        EXPECT_THAT(NamesOf(reply->services), ElementsAre("browser"));
    };
    const auto failed = [&](std::int32_t status) {
        return [&, status] {
            EXPECT_EQ(reply->status, status);
            EXPECT_EQ(reply->bytesNeeded, 0);
            EXPECT_EQ(reply->servicesReturned, 0);
            EXPECT_EQ(reply->services, nullptr);
        };
    };
    RunWithFaults(PrepareDependencies, [&] { reply = EnumDepend(1, SERVICE_STATE_ALL, enoughBytes); }, listed,
                  {
                      {"open " + services, failed(ERROR_INVALID_HANDLE)},
                      {"open " + alerter, failed(ERROR_INVALID_HANDLE)},
                      {"size " + alerter + " DependOnGroup", failed(fault)},
                      {"open " + alerter, failed(fault)},
                      {"size " + alerter + " DependOnGroup", failed(fault)},
                      {"query " + alerter + " DependOnGroup", failed(fault)},
                      {"close " + alerter, listed},
                      {"open " + browser, failed(fault)},
                      {"size " + browser + " DependOnGroup", failed(fault)},
                      {"close " + browser, listed},
                      {"close " + alerter, listed},
                      {"close " + services, listed},
                  });
}

TEST_F(Handlers, faults_of_the_registry_during_a_start) {
    std::int32_t status = 0;
    const auto answers = [&](std::int32_t code) {
        return [&, code] {
            EXPECT_EQ(status, code);
            EXPECT_EQ(QueryStatus(1)->serviceStatus, InState(SERVICE_STOPPED));
        };
    };
    const auto failed = answers(ERROR_INVALID_HANDLE);
    const auto dependencyStopped = answers(ERROR_SERVICE_DEPENDENCY_FAIL);
    RunWithFaults(PrepareDependencies, [&] { status = Start(1); }, dependencyStopped,
                  {
                      {"open " + services, failed},
                      {"open " + alerter, failed},
                      {"size " + alerter + " DependOnGroup", failed},
                      {"query " + alerter + " DependOnGroup", failed},
                      {"close " + alerter, dependencyStopped},
                      {"open " + browser, failed},
                      {"size " + browser + " DependOnGroup", failed},
                      {"close " + browser, dependencyStopped},
                      {"close " + services, dependencyStopped},
                  });
}

TEST_F(Handlers, the_other_procedures_do_not_touch_the_registry) {
    Load({"alerter"});
    ForgetCalls();
    (void)Connect("");
    (void)Open("alerter");
    (void)Close(1);
    (void)Lock(7, "setup");
    (void)QueryLock();
    (void)Unlock(7);
    (void)SetStatus(1, running);
    (void)QueryStatus(1);
    (void)Control(1, SERVICE_CONTROL_STOP);
    (void)EnumStatus(0, SERVICE_WIN32, SERVICE_STATE_ALL, enoughBytes);
    (void)GetDisplay("alerter");
    (void)GetKey("alerter");
    (void)Call(servd_SERV_DUMMY{.dummy = 1});
    EXPECT_THAT(RegistryCalls(), IsEmpty());
}

} // namespace
