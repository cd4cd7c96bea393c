// SPDX-License-Identifier: MIT
// What becomes of a change of the configuration when one call of the registry fails.
#include "tests/handlers/faults.h"

namespace faults {

namespace {

const Values valuesBefore = LoadableValues("Alerter", {{"ImagePath", AsText("/bin/old")},
                                                       {"Group", AsText("old")},
                                                       {"DependOnGroup", AsMulti({"nobody"})},
                                                       {"DependOnService", AsText("daemon")}});

Outcome outcome; // of the change at hand

void RunChange(const Change &change) {
    outcome = OutcomeOf([&] { return ChangeConfig(change); });
}

} // namespace

// --- everything changed ---

namespace change {

namespace {

const Change everything = {.handle = 1,
                           .serviceType = 0x20,
                           .startType = 4,
                           .errorControl = 2,
                           .imagePath = Sz("/bin/new"),
                           .group = Sz("new"),
                           .dependencies = MultiSz({"browser"}),
                           .account = Sz("root"),
                           .displayName = Sz("New"),
                           .tagWanted = 1};

const Values valuesAfter = {{"Type", AsNumber(0x20)},
                            {"Start", AsNumber(4)},
                            {"ErrorControl", AsNumber(2)},
                            {"ImagePath", AsText("/bin/new")},
                            {"Group", AsText("new")},
                            {"DependOnGroup", AsMulti({"browser"})},
                            {"DependOnService", AsText("root")},
                            {"DisplayName", AsText("New")},
                            {"Tag", AsNumber(5)}};

const Values valuesWithEarlierTag = [] {
    Values values = valuesAfter;
    values["Tag"] = AsNumber(earlierTag);
    return values;
}();

// Of group "new", before and after.
const Value counterBefore = AsBinary(Words({4, 9}));
const Value counterAfter = AsBinary(Words({5, 9}));

void ExpectAnswer(std::int32_t status, std::int32_t tag, std::size_t keysKept = 0) {
    EXPECT_EQ(outcome.status, status);
    EXPECT_EQ(outcome.tag, tag);
    EXPECT_EQ(outcome.keysKept, keysKept);
}

// The daemon's own picture of the service, as it was or wholly changed.
void ExpectRecord(bool changed) {
    EXPECT_EQ(QueryConfig(1)->serviceType, changed ? 0x20u : 0x10u);
    EXPECT_EQ(GetDisplay("alerter")->displayName, std::string(changed ? "New" : "Alerter"));
    EXPECT_EQ(IsInGroup("alerter", "old"), !changed);
    EXPECT_EQ(IsInGroup("alerter", "new"), changed);
}

void ExpectRefused(std::int32_t status) {
    ExpectAnswer(status, earlierTag);
    EXPECT_EQ(ValuesOf(alerter), valuesBefore);
    ExpectRecord(false);
    EXPECT_EQ(ValuesOf(tagOrder).at("new"), counterBefore);
}

} // namespace

// alerter in group "old" with dependencies.
void Prepare() {
    ClearRegistry();
    PutKey(groupOrderKeyPath, {{"List", AsMulti({"first"})}}); // the group and the image path have different numbers
    PutKey(alerter, valuesBefore);
    PutService("browser", "Browser", {{"Tag", AsNumber(earlierTag)}});
    PutProbe("old");
    PutProbe("new");
    PutKey(tagOrder, {{"new", counterBefore}});
    StartDaemon();
    ASSERT_EQ(ChangeConfig({.handle = 2, .tagWanted = 1})->tag, earlierTag);
}

void Run() { RunChange(everything); }

void RunWithNothing() {
    RunChange({.handle = 1});
    EXPECT_EQ(outcome.status, ERROR_SUCCESS);
}

void RunWithTagOfItsOwn() {
    RunChange({.handle = 2, .tagWanted = 1});
    EXPECT_EQ(outcome.status, ERROR_SUCCESS);
}

const Rule whole = {"is_whole", [](const std::string &) {
                        ExpectAnswer(ERROR_SUCCESS, 5);
                        EXPECT_EQ(ValuesOf(alerter), valuesAfter);
                        ExpectRecord(true);
                        EXPECT_EQ(ValuesOf(tagOrder), (Values{{"new", counterAfter}}));
                    }};

const Rule withoutServicesKey = {"that_cannot_open_the_services_key_answers_6",
                                 [](const std::string &) { ExpectRefused(ERROR_INVALID_HANDLE); }};

// Nothing can be written then: the record runs ahead of the registry, and the group is not known.
const Rule withoutKey = {"that_cannot_open_the_service_is_one_in_memory_only", [](const std::string &) {
                             ExpectAnswer(ERROR_SUCCESS, earlierTag);
                             EXPECT_EQ(ValuesOf(alerter), valuesBefore);
                             EXPECT_EQ(QueryConfig(1)->serviceType, 0x20u);
                             EXPECT_EQ(GetDisplay("alerter")->displayName, std::string("New"));
                             EXPECT_EQ(ValuesOf(tagOrder), (Values{{"new", counterBefore}}));
                         }};

const Rule oldValueUnread = {"that_cannot_read_an_old_value_goes_on_without", [](const std::string &) {
                                 ExpectAnswer(ERROR_SUCCESS, 5);
                                 EXPECT_EQ(ValuesOf(alerter), valuesAfter);
                                 ExpectRecord(true);
                             }};

// Without the name of its old group the service stays in it, and joins the new one.
const Rule oldGroupUnread = {"that_cannot_read_the_old_group_leaves_the_service_in_both", [](const std::string &) {
                                 ExpectAnswer(ERROR_SUCCESS, 5);
                                 EXPECT_EQ(ValuesOf(alerter), valuesAfter);
                                 EXPECT_TRUE(IsInGroup("alerter", "old"));
                                 EXPECT_TRUE(IsInGroup("alerter", "new"));
                             }};

const Rule unwalked = {"whose_walk_fails_answers_its_code_and_is_undone",
                       [](const std::string &) { ExpectRefused(fault); }};

const Rule unwritten = {"that_cannot_write_a_value_leaves_the_old_one", [](const std::string &failedCall) {
                            const std::string name = ValueNamedBy(failedCall);
                            Values values = valuesAfter;
                            values.erase(name);
                            if (valuesBefore.contains(name)) values[name] = valuesBefore.at(name);
                            ExpectAnswer(ERROR_SUCCESS, 5);
                            EXPECT_EQ(ValuesOf(alerter), values);
                            ExpectRecord(true);
                        }};

// The new group's name, unwritten, leads to the counter of the old one.
const Rule groupUnwritten = {"that_cannot_write_the_group_counts_in_the_old_one", [](const std::string &) {
                                 Values values = valuesAfter;
                                 values["Group"] = AsText("old");
                                 values["Tag"] = AsNumber(1);
                                 ExpectAnswer(ERROR_SUCCESS, 1);
                                 EXPECT_EQ(ValuesOf(alerter), values);
                                 EXPECT_EQ(ValuesOf(tagOrder).at("old"), AsBinary(Words({1})));
                             }};

const Rule uncountable = {"that_cannot_read_the_counter_repeats_the_tag_before", [](const std::string &) {
                              ExpectAnswer(ERROR_SUCCESS, earlierTag);
                              EXPECT_EQ(ValuesOf(alerter), valuesWithEarlierTag);
                              EXPECT_EQ(ValuesOf(tagOrder).at("new"), counterBefore);
                          }};

const Rule uncounted = {"that_cannot_write_the_counter_gives_the_tag_all_the_same", [](const std::string &) {
                            ExpectAnswer(ERROR_SUCCESS, 5);
                            EXPECT_EQ(ValuesOf(alerter), valuesAfter);
                            EXPECT_EQ(ValuesOf(tagOrder).at("new"), counterBefore);
                        }};

const Rule unclosed = {"that_cannot_close_a_key_leaves_it_open", [](const std::string &) {
                           ExpectAnswer(ERROR_SUCCESS, 5, 1);
                           EXPECT_EQ(ValuesOf(alerter), valuesAfter);
                           ExpectRecord(true);
                       }};

} // namespace change

// --- undone ---

namespace changeIntoCircle {

namespace {

const Value dependenciesBefore = AsMulti({"nobody"});
const Value dependenciesAfter = AsMulti({"alerter"});

// Refused, all values as before but for these dependencies.
void ExpectDependencies(std::int32_t status, const Value &dependencies, std::size_t keysKept = 0) {
    EXPECT_EQ(outcome.status, status);
    EXPECT_EQ(outcome.keysKept, keysKept);
    Values values = valuesBefore;
    values["DependOnGroup"] = dependencies;
    EXPECT_EQ(ValuesOf(alerter), values);
}

void ExpectOldGroup() {
    EXPECT_TRUE(IsInGroup("alerter", "old"));
    EXPECT_FALSE(IsInGroup("alerter", "new"));
}

void ExpectUndone(std::int32_t status, std::size_t keysKept = 0) {
    ExpectDependencies(status, dependenciesBefore, keysKept);
    ExpectOldGroup();
}

} // namespace

void Run() { RunChange({.handle = 1, .errorControl = 9, .group = Sz("new"), .dependencies = MultiSz({"alerter"})}); }

const Rule undone = {"is_undone", [](const std::string &) { ExpectUndone(ERROR_CIRCULAR_DEPENDENCY); }};

const Rule withoutServicesKey = {"that_cannot_open_the_services_key_answers_6",
                                 [](const std::string &) { ExpectUndone(ERROR_INVALID_HANDLE); }};

// What can be read of the service by its own name shows no circle; but nothing can be written.
const Rule withoutKey = {"that_cannot_open_the_service_is_one_in_memory_only", [](const std::string &) {
                             EXPECT_EQ(outcome.status, ERROR_SUCCESS);
                             EXPECT_EQ(ValuesOf(alerter), valuesBefore);
                         }};

// What was there before is not known, so that the new value only goes.
const Rule dependenciesUnread = {"that_cannot_read_the_old_dependencies_leaves_none", [](const std::string &) {
                                     EXPECT_EQ(outcome.status, ERROR_CIRCULAR_DEPENDENCY);
                                     Values values = valuesBefore;
                                     values.erase("DependOnGroup");
                                     EXPECT_EQ(ValuesOf(alerter), values);
                                     EXPECT_TRUE(IsInGroup("alerter", "old"));
                                 }};

// The old dependencies stand, and there is no circle.
const Rule dependenciesUnwritten = {"that_cannot_write_the_dependencies_keeps_out_of_it", [](const std::string &) {
                                        EXPECT_EQ(outcome.status, ERROR_SUCCESS);
                                        Values values = valuesBefore;
                                        values["ErrorControl"] = AsNumber(9);
                                        values["Group"] = AsText("new");
                                        EXPECT_EQ(ValuesOf(alerter), values);
                                        EXPECT_TRUE(IsInGroup("alerter", "new"));
                                    }};

const Rule unwalked = {"whose_walk_fails_answers_its_code_and_is_undone",
                       [](const std::string &) { ExpectUndone(fault); }};

// The circle stands, so that nobody can walk through the service any more to see its group.
const Rule dependenciesUnrestored = {"that_cannot_write_the_old_dependencies_leaves_the_new", [](const std::string &) {
                                         ExpectDependencies(ERROR_CIRCULAR_DEPENDENCY, dependenciesAfter);
                                     }};

const Rule unclosed = {"that_cannot_close_a_key_leaves_it_open",
                       [](const std::string &) { ExpectUndone(ERROR_CIRCULAR_DEPENDENCY, 1); }};

} // namespace changeIntoCircle

} // namespace faults
