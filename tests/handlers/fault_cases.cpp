// SPDX-License-Identifier: MIT
// Every call that the handlers make of the registry, and what becomes of an operation when just that call fails.
#include "tests/handlers/suite.h"
#include "tests/support/registry_faults.h"

#include <functional>

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

namespace {

LONG fault = 0; // the code with which a call fails

// Once with a refusal of the registry's own, and once with the code for a registry that has broken off.
class RegistryFaults : public Handlers, public ::testing::WithParamInterface<LONG> {
protected:
    void SetUp() override {
        Handlers::SetUp();
        WatchRegistry();
        fault = GetParam();
    }
};
INSTANTIATE_TEST_SUITE_P(with_code, RegistryFaults, ::testing::Values(ERROR_ACCESS_DENIED, ERROR_REGISTRY_IO_FAILED),
                         ::testing::PrintToStringParamName());

const std::string services = servicesKeyPath;
const std::string spooler = services + "\\spooler";
const std::string alerter = services + "\\alerter";
const std::string browser = services + "\\browser";
const std::string tagOrder = tagOrderKeyPath;

// A service that depends on a group shows who is in it.
void PutProbe(const std::string &group) {
    PutService("probe " + group, "probe " + group, {{"DependOnGroup", AsMulti({"+" + group})}});
}

bool IsInGroup(const std::string &service, const std::string &group) {
    const Names members = Dependencies(Open("probe " + group)->handle);
    return std::find(members.begin(), members.end(), service) != members.end();
}

bool IsKnown(const std::string &service) { return GetDisplay(service)->status == ERROR_SUCCESS; }

// The record is free, nobody has it open, and no group remembers it: the next service to take it shows that.
void ExpectFree(std::int32_t handle, const std::string &group) {
    EXPECT_EQ(Create({.name = "tenant"})->handle, handle);
    EXPECT_FALSE(IsInGroup("tenant", group));
    EXPECT_EQ(Close(handle), ERROR_SUCCESS);
    EXPECT_EQ(Close(handle), ERROR_INVALID_HANDLE);
}

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
    ForgetRegistryCalls();
    operation();
    Names calls;
    for (const Step &step : steps) {
        calls.push_back(step.call);
    }
    EXPECT_EQ(RegistryCallsMade(), calls);
    checkWithoutFault();
    for (std::size_t n = 0; n < steps.size(); ++n) {
        SCOPED_TRACE("failing call " + std::to_string(n + 1) + ": " + calls[n]);
        prepare();
        ForgetRegistryCalls();
        FailRegistryCall(static_cast<int>(n) + 1, fault);
        operation();
        ForgetRegistryCalls();
        steps[n].check();
        // The daemon serves on.
        EXPECT_EQ(Call(servd_SERV_DUMMY{.dummy = 1})->dummy, 2);
        EXPECT_EQ(Create({.name = "afterwards"})->status, ERROR_SUCCESS);
    }
}

constexpr std::int32_t earlierTag = 77; // that of the last create and of the last change before an operation

// alerter in record 1, records 0 and 2 taken; the replies' tags are those of an earlier call.
void PrepareCreate() {
    ClearRegistry();
    PutService("alerter", "alerter", {{"Tag", AsNumber(earlierTag)}});
    PutProbe("net");
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
    EXPECT_FALSE(IsKnown("spooler"));
    ExpectFree(3, "net");
}

// What a create or a change answered and left.
struct Outcome {
    std::int32_t status;
    std::int32_t tag;
    std::size_t keysKept;
};

TEST_P(RegistryFaults, faults_of_the_registry_during_a_create) {
    Outcome outcome{};
    const auto create = [&] {
        const std::size_t openBefore = KeysOpen();
        const auto reply = Create(fullService);
        EXPECT_EQ(reply->handle, reply->status == ERROR_SUCCESS ? 3 : 0);
        outcome = {reply->status, static_cast<std::int32_t>(reply->tag), KeysOpen() - openBefore};
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
        EXPECT_EQ(Open("spooler")->handle, 3);
        EXPECT_TRUE(IsInGroup("spooler", "net"));
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

TEST_P(RegistryFaults, a_create_without_a_tag_counter_starts_one) {
    ClearRegistry();
    StartDaemon();
    ForgetRegistryCalls();
    ASSERT_EQ(Create({.name = "spooler", .group = "net", .tagWanted = 1})->tag, 1u);
    EXPECT_THAT(RegistryCallsMade(),
                ElementsAre("open " + services, "create " + spooler, "open " + spooler,
                            "size " + spooler + " DependOnGroup", "close " + spooler, "set " + spooler + " DisplayName",
                            "set " + spooler + " Type", "set " + spooler + " Start", "set " + spooler + " ErrorControl",
                            "set " + spooler + " ImagePath", "set " + spooler + " Group", "create " + tagOrder,
                            "size " + tagOrder + " net", "set " + tagOrder + " net", "set " + spooler + " Tag",
                            "close " + tagOrder, "close " + spooler, "close " + services));
}

TEST_P(RegistryFaults, faults_of_the_registry_while_a_create_is_undone) {
    std::int32_t status = 0;
    std::size_t keysKept = 0;
    const auto prepare = [] {
        ClearRegistry();
        PutService("alerter", "alerter", {{"DependOnGroup", AsMulti({"spooler"})}});
        PutProbe("net");
        StartDaemon();
    };
    const auto create = [&] {
        const std::size_t openBefore = KeysOpen();
        const auto reply = Create({.name = "spooler", .group = "net", .dependencies = Strings({"alerter"})});
        EXPECT_EQ(reply->handle, 0);
        status = reply->status;
        keysKept = KeysOpen() - openBefore;
    };
    const auto undone = [&](std::int32_t code, std::size_t kept, bool keyStands) {
        return [&, code, kept, keyStands] {
            EXPECT_EQ(status, code);
            EXPECT_EQ(keysKept, kept);
            EXPECT_EQ(HasKeyAt(spooler), keyStands);
            EXPECT_FALSE(IsKnown("spooler"));
            ExpectFree(0, "net");
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

TEST_P(RegistryFaults, faults_of_the_registry_while_an_account_is_refused) {
    std::int32_t status = 0;
    const auto create = [&] { status = Create({.name = "spooler", .account = "no-such-user-here"})->status; };
    const auto expect = [&](std::int32_t code, bool keyStands) {
        return [&, code, keyStands] {
            EXPECT_EQ(status, code);
            EXPECT_EQ(HasKeyAt(spooler), keyStands);
            EXPECT_FALSE(IsKnown("spooler"));
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
    PutProbe("old");
    PutProbe("new");
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
    const std::size_t openBefore = KeysOpen();
    const auto reply = ChangeConfig(change);
    return {reply->status, reply->tag, KeysOpen() - openBefore};
}

TEST_P(RegistryFaults, faults_of_the_registry_during_a_change) {
    Outcome outcome{};
    const auto expect = [&](std::int32_t status, std::int32_t tag, const Values &values, std::size_t keysKept = 0) {
        EXPECT_EQ(outcome.status, status);
        EXPECT_EQ(outcome.tag, tag);
        EXPECT_EQ(ValuesOf(alerter), values);
        EXPECT_EQ(outcome.keysKept, keysKept);
    };
    const auto expectRecord = [](bool changed) {
        EXPECT_EQ(QueryConfig(1)->serviceType, changed ? 0x20u : 0x10u);
        EXPECT_EQ(GetDisplay("alerter")->displayName, std::string(changed ? "New" : "Alerter"));
        EXPECT_EQ(IsInGroup("alerter", "old"), !changed);
        EXPECT_EQ(IsInGroup("alerter", "new"), changed);
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
        EXPECT_TRUE(IsInGroup("alerter", "old"));
        EXPECT_TRUE(IsInGroup("alerter", "new"));
    };
    // Nothing can be written then: the record runs ahead of the registry, and the group is not known.
    const auto onlyInMemory = [&] {
        expect(ERROR_SUCCESS, earlierTag, valuesBefore);
        EXPECT_EQ(QueryConfig(1)->serviceType, 0x20u);
        EXPECT_EQ(GetDisplay("alerter")->displayName, std::string("New"));
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

TEST_P(RegistryFaults, faults_of_the_registry_while_a_change_is_undone) {
    Outcome outcome{};
    const Change circle = {
        .handle = 1, .errorControl = 9, .group = Terminated("new"), .dependencies = Strings({"alerter"})};
    const Value before = AsMulti({"nobody"});
    const Value after = AsMulti({"alerter"});
    const auto expect = [&](std::int32_t status, const Value &dependencies, std::size_t keysKept = 0) {
        return [&, status, dependencies, keysKept] {
            EXPECT_EQ(outcome.status, status);
            EXPECT_EQ(outcome.keysKept, keysKept);
            Values values = valuesBefore;
            values["DependOnGroup"] = dependencies;
            EXPECT_EQ(ValuesOf(alerter), values);
            if (dependencies == after) return; // a circle: nobody can walk through the service any more
            EXPECT_TRUE(IsInGroup("alerter", "old"));
            EXPECT_FALSE(IsInGroup("alerter", "new"));
        };
    };
    const auto undone = expect(ERROR_CIRCULAR_DEPENDENCY, before);
    // What was there before is not known, so that the new value only goes.
    const auto removed = [&] {
        EXPECT_EQ(outcome.status, ERROR_CIRCULAR_DEPENDENCY);
        Values values = valuesBefore;
        values.erase("DependOnGroup");
        EXPECT_EQ(ValuesOf(alerter), values);
        EXPECT_TRUE(IsInGroup("alerter", "old"));
    };
    // The old dependencies stand, and there is no circle.
    const auto succeeded = [&] {
        EXPECT_EQ(outcome.status, ERROR_SUCCESS);
        Values values = valuesBefore;
        values["ErrorControl"] = AsNumber(9);
        values["Group"] = AsText("new");
        EXPECT_EQ(ValuesOf(alerter), values);
        EXPECT_TRUE(IsInGroup("alerter", "new"));
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

TEST_P(RegistryFaults, a_change_of_nothing_opens_closes_and_writes_one_value) {
    PrepareChange();
    ForgetRegistryCalls();
    ASSERT_EQ(ChangeConfig({.handle = 1})->status, ERROR_SUCCESS);
    EXPECT_THAT(RegistryCallsMade(),
                ElementsAre("open " + services, "open " + alerter, "set " + alerter + " ErrorControl",
                            "close " + alerter, "close " + services));
}

TEST_P(RegistryFaults, a_change_that_needs_no_counter_closes_its_key_all_the_same_deliberate) {
    PrepareChange();
    ForgetRegistryCalls();
    ASSERT_EQ(ChangeConfig({.handle = 2, .tagWanted = 1})->status, ERROR_SUCCESS);
    EXPECT_THAT(RegistryCallsMade(),
                ElementsAre("open " + services, "open " + browser, "set " + browser + " ErrorControl",
                            "set " + browser + " Tag", "close ?", "close " + browser, "close " + services));
}

TEST_P(RegistryFaults, a_change_that_is_refused_at_once_calls_nothing) {
    PrepareChange();
    ASSERT_EQ(Delete(2), ERROR_SUCCESS);
    ForgetRegistryCalls();
    EXPECT_EQ(ChangeConfig({.handle = 0})->status, ERROR_INVALID_HANDLE);
    EXPECT_EQ(ChangeConfig({.handle = 2})->status, ERROR_SERVICE_MARKED_FOR_DELETE);
    EXPECT_EQ(ChangeConfig({.handle = 1, .displayName = Terminated("Browser")})->status, ERROR_DUP_NAME);
    EXPECT_EQ(ChangeConfig({.handle = 1, .account = Terminated("no-such-user-here")})->status,
              ERROR_INVALID_SERVICE_ACCOUNT);
    EXPECT_THAT(RegistryCallsMade(), IsEmpty());
}

void PrepareDelete() {
    ClearRegistry();
    PutService("alerter", "alerter", {{"Group", AsText("net")}});
    PutKey(servicesKeyPath, {{"Group", AsText("net")}});
    StartDaemon();
    ASSERT_EQ(Open("alerter")->handle, 1);
}

TEST_P(RegistryFaults, faults_of_the_registry_during_a_delete) {
    std::size_t keysKept = 0;
    const auto expect = [&](std::size_t kept, bool flagged) {
        return [&, kept, flagged] {
            EXPECT_EQ(keysKept, kept);
            EXPECT_EQ(ValuesOf(alerter).count("DeleteFlag"), flagged ? 1u : 0u);
            EXPECT_EQ(Delete(1), ERROR_SERVICE_MARKED_FOR_DELETE); // marked in any case
        };
    };
    const auto remove = [&] {
        const std::size_t openBefore = KeysOpen();
        EXPECT_EQ(Delete(1), ERROR_SUCCESS);
        keysKept = KeysOpen() - openBefore;
    };
    // Deliberate: both keys stay open.
    RunWithFaults(PrepareDelete, remove, expect(2, true),
                  {
                      {"open " + services, expect(0, false)},
                      {"open " + alerter, expect(1, false)},
                      {"set " + alerter + " DeleteFlag", expect(2, false)},
                      {"query " + services + " Group", expect(2, true)},
                      {"query " + services + " ImagePath", expect(2, true)},
                  });
}

TEST_P(RegistryFaults, faults_of_the_registry_during_a_last_close) {
    const auto expect = [](bool keyStands) {
        return [keyStands] {
            EXPECT_EQ(HasKeyAt(alerter), keyStands);
            EXPECT_FALSE(IsKnown("alerter"));
            // Two records are free by now, and not marked.
            EXPECT_EQ(Create({.name = "one"})->handle, 0);
            EXPECT_EQ(Create({.name = "two"})->handle, 1);
            EXPECT_EQ(Open("two")->status, ERROR_SUCCESS);
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

TEST_P(RegistryFaults, faults_of_the_registry_during_a_query_of_the_configuration) {
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

TEST_P(RegistryFaults, faults_of_the_registry_while_dependencies_are_listed) {
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

TEST_P(RegistryFaults, faults_of_the_registry_during_a_start) {
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

TEST_P(RegistryFaults, the_other_procedures_do_not_touch_the_registry) {
    Load({"alerter"});
    ForgetRegistryCalls();
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
    EXPECT_THAT(RegistryCallsMade(), IsEmpty());
}

} // namespace
