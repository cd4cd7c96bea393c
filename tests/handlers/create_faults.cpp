// SPDX-License-Identifier: MIT
// What becomes of a create when one call of the registry fails.
#include "tests/handlers/faults.h"

namespace faults {

namespace {

Outcome outcome; // of the create at hand

void RunCreate(const NewService &service) {
    outcome = OutcomeOf([&] { return Create(service); });
}

// The record is free, nobody has it open, and no group remembers it: the next service to take it shows that.
void ExpectFree(std::int32_t handle, const std::string &group) {
    EXPECT_EQ(Create({.name = "tenant"})->handle, handle);
    EXPECT_FALSE(IsInGroup("tenant", group));
    EXPECT_EQ(Close(handle), ERROR_SUCCESS);
    EXPECT_EQ(Close(handle), ERROR_INVALID_HANDLE);
}

} // namespace

// --- everything given ---

namespace create {

namespace {

const NewService service = {.name = "spooler",
                            .displayName = "Spooler",
                            .imagePath = "/bin/spooler",
                            .group = "net",
                            .dependencies = MultiSz({"alerter"}),
                            .account = "root",
                            .tagWanted = 1};

const Values allValues = {{"DisplayName", AsText("Spooler")},
                          {"Type", AsNumber(0x10)},
                          {"Start", AsNumber(3)},
                          {"ErrorControl", AsNumber(1)},
                          {"ImagePath", AsText("/bin/spooler")},
                          {"Group", AsText("net")},
                          {"DependOnGroup", AsMulti({"alerter"})},
                          {"DependOnService", AsText("root")},
                          {"Tag", AsNumber(5)}};

// Of group "net", before and after.
const Value counterBefore = AsBinary(Words({4, 9}));
const Value counterAfter = AsBinary(Words({5, 9}));

// The service takes record 3.
void ExpectCreated(std::uint32_t tag, const Values &values, std::size_t keysKept) {
    EXPECT_EQ(outcome.status, ERROR_SUCCESS);
    EXPECT_EQ(outcome.handle, 3);
    EXPECT_EQ(outcome.tag, tag);
    EXPECT_EQ(outcome.keysKept, keysKept);
    EXPECT_EQ(ValuesOf(spooler), values);
}

void ExpectRefused(std::int32_t status) {
    EXPECT_EQ(outcome.status, status);
    EXPECT_EQ(outcome.handle, 0);
    EXPECT_EQ(outcome.tag, std::uint32_t{earlierTag});
    EXPECT_EQ(outcome.keysKept, 0u);
    EXPECT_FALSE(HasKeyAt(spooler));
    EXPECT_FALSE(IsKnown("spooler"));
    ExpectFree(3, "net");
}

} // namespace

// alerter in record 1, records 0 and 2 taken; the replies' tags are those of an earlier call.
void Prepare() {
    ClearRegistry();
    PutService("alerter", "alerter", {{"Tag", AsNumber(earlierTag)}});
    PutProbe("net");
    PutKey(tagOrder, {{"net", counterBefore}, {"early", AsBinary(Words({earlierTag - 1}))}});
    StartDaemon();
    ASSERT_EQ(Create({.name = "zero", .group = "early", .tagWanted = 1})->tag, std::uint32_t{earlierTag});
    ASSERT_EQ(ChangeConfig({.handle = 1, .tagWanted = 1})->tag, earlierTag);
}

void Run() { RunCreate(service); }

const Rule whole = {"is_whole", [](const std::string &) {
                        ExpectCreated(5, allValues, 0);
                        EXPECT_EQ(ValuesOf(tagOrder).at("net"), counterAfter);
                        EXPECT_EQ(Open("spooler")->handle, 3);
                        EXPECT_TRUE(IsInGroup("spooler", "net"));
                    }};

const Rule withoutServicesKey = {"that_cannot_open_the_services_key_answers_1065",
                                 [](const std::string &) { ExpectRefused(ERROR_DATABASE_DOES_NOT_EXIST); }};

const Rule withoutKey = {"that_cannot_create_its_key_answers_123",
                         [](const std::string &) { ExpectRefused(ERROR_INVALID_NAME); }};

const Rule unwalked = {"whose_walk_fails_answers_its_code_and_is_undone",
                       [](const std::string &) { ExpectRefused(fault); }};

const Rule unwritten = {"that_cannot_write_a_value_goes_without_it", [](const std::string &failedCall) {
                            Values values = allValues;
                            values.erase(ValueNamedBy(failedCall));
                            ExpectCreated(5, values, 0);
                        }};

const Rule uncountable = {"that_cannot_read_the_counter_repeats_the_tag_before", [](const std::string &) {
                              Values values = allValues;
                              values["Tag"] = AsNumber(earlierTag);
                              ExpectCreated(earlierTag, values, 0);
                              EXPECT_EQ(ValuesOf(tagOrder).at("net"), counterBefore);
                          }};

const Rule uncounted = {"that_cannot_write_the_counter_gives_the_tag_all_the_same", [](const std::string &) {
                            ExpectCreated(5, allValues, 0);
                            EXPECT_EQ(ValuesOf(tagOrder).at("net"), counterBefore);
                        }};

const Rule unclosed = {"that_cannot_close_a_key_leaves_it_open",
                       [](const std::string &) { ExpectCreated(5, allValues, 1); }};

} // namespace create

namespace createWithoutCounter {

void Prepare() {
    ClearRegistry();
    StartDaemon();
}

void Run() {
    RunCreate({.name = "spooler", .group = "net", .tagWanted = 1});
    EXPECT_EQ(outcome.tag, 1u);
}

} // namespace createWithoutCounter

// --- refused ---

namespace createInCircle {

namespace {

void ExpectUndone(std::int32_t status, std::size_t keysKept, bool keyStands) {
    EXPECT_EQ(outcome.status, status);
    EXPECT_EQ(outcome.handle, 0);
    EXPECT_EQ(outcome.keysKept, keysKept);
    EXPECT_EQ(HasKeyAt(spooler), keyStands);
    EXPECT_FALSE(IsKnown("spooler"));
    ExpectFree(0, "net");
}

} // namespace

void Prepare() {
    ClearRegistry();
    PutService("alerter", "alerter", {{"DependOnGroup", AsMulti({"spooler"})}});
    PutProbe("net");
    StartDaemon();
}

void Run() { RunCreate({.name = "spooler", .group = "net", .dependencies = MultiSz({"alerter"})}); }

const Rule undone = {"is_undone", [](const std::string &) { ExpectUndone(ERROR_CIRCULAR_DEPENDENCY, 0, false); }};

const Rule withoutServicesKey = {"that_cannot_open_the_services_key_answers_1065",
                                 [](const std::string &) { ExpectUndone(ERROR_DATABASE_DOES_NOT_EXIST, 0, false); }};

const Rule withoutKey = {"that_cannot_create_its_key_answers_123",
                         [](const std::string &) { ExpectUndone(ERROR_INVALID_NAME, 0, false); }};

const Rule dependenciesUnwritten = {"that_cannot_write_its_dependencies_is_in_none", [](const std::string &) {
                                        EXPECT_EQ(outcome.status, ERROR_SUCCESS);
                                        EXPECT_EQ(outcome.handle, 0);
                                        EXPECT_EQ(ValuesOf(spooler).count("DependOnGroup"), 0u);
                                    }};

const Rule unwalked = {"whose_walk_fails_answers_its_code_and_is_undone",
                       [](const std::string &) { ExpectUndone(fault, 0, false); }};

const Rule unclosed = {"that_cannot_close_a_key_leaves_it_open",
                       [](const std::string &) { ExpectUndone(ERROR_CIRCULAR_DEPENDENCY, 1, false); }};

const Rule keyUndeleted = {"that_cannot_delete_its_key_leaves_it",
                           [](const std::string &) { ExpectUndone(ERROR_CIRCULAR_DEPENDENCY, 0, true); }};

} // namespace createInCircle

namespace createForNobody {

namespace {

void ExpectRefused(std::int32_t status, bool keyStands) {
    EXPECT_EQ(outcome.status, status);
    EXPECT_EQ(HasKeyAt(spooler), keyStands);
    EXPECT_FALSE(IsKnown("spooler"));
}

} // namespace

void Prepare() {
    ClearRegistry();
    PutService("alerter", "alerter");
    StartDaemon();
}

void Run() { RunCreate({.name = "spooler", .account = "no-such-user-here"}); }

const Rule refused = {"is_refused", [](const std::string &) { ExpectRefused(ERROR_INVALID_SERVICE_ACCOUNT, false); }};

const Rule withoutServicesKey = {"that_cannot_open_the_services_key_answers_1065",
                                 [](const std::string &) { ExpectRefused(ERROR_DATABASE_DOES_NOT_EXIST, false); }};

const Rule withoutKey = {"that_cannot_create_its_key_answers_123",
                         [](const std::string &) { ExpectRefused(ERROR_INVALID_NAME, false); }};

const Rule keyUndeleted = {"that_cannot_delete_its_key_leaves_it",
                           [](const std::string &) { ExpectRefused(ERROR_INVALID_SERVICE_ACCOUNT, true); }};

} // namespace createForNobody

} // namespace faults
