// SPDX-License-Identifier: MIT
// What becomes of a delete, a last close, a start and the two questions when one call of the registry fails.
#include "tests/handlers/faults.h"

using ::testing::ElementsAre;

namespace faults {

// --- delete and close ---

namespace remove {

namespace {

std::size_t keysKept = 0;

// The service is marked in any case.
void ExpectMarked(std::size_t kept, bool flagged) {
    EXPECT_EQ(keysKept, kept);
    EXPECT_EQ(ValuesOf(alerter).count("DeleteFlag"), flagged ? 1u : 0u);
    EXPECT_EQ(Delete(1), ERROR_SERVICE_MARKED_FOR_DELETE);
}

} // namespace

void Prepare() {
    ClearRegistry();
    PutService("alerter", "alerter", {{"Group", AsText("net")}});
    PutKey(servicesKeyPath, {{"Group", AsText("net")}});
    StartDaemon();
    ASSERT_EQ(Open("alerter")->handle, 1);
}

void Run() {
    const std::size_t openBefore = KeysOpen();
    EXPECT_EQ(Delete(1), ERROR_SUCCESS);
    keysKept = KeysOpen() - openBefore;
}

// Deliberate: both keys stay open.
const Rule whole = {"marks_the_service_and_leaves_both_keys_open_deliberate",
                    [](const std::string &) { ExpectMarked(2, true); }};

const Rule withoutServicesKey = {"that_cannot_open_the_services_key_marks_in_memory_only",
                                 [](const std::string &) { ExpectMarked(0, false); }};

const Rule withoutKey = {"that_cannot_open_the_service_marks_in_memory_only",
                         [](const std::string &) { ExpectMarked(1, false); }};

const Rule unflagged = {"that_cannot_write_the_flag_marks_in_memory_only",
                        [](const std::string &) { ExpectMarked(2, false); }};

} // namespace remove

namespace lastClose {

namespace {

void ExpectFreed(bool keyStands) {
    EXPECT_EQ(HasKeyAt(alerter), keyStands);
    EXPECT_FALSE(IsKnown("alerter"));
    // Two records are free by now, and not marked.
    EXPECT_EQ(Create({.name = "one"})->handle, 0);
    EXPECT_EQ(Create({.name = "two"})->handle, 1);
    EXPECT_EQ(Open("two")->status, ERROR_SUCCESS);
}

} // namespace

void Prepare() {
    remove::Prepare();
    ASSERT_EQ(Delete(1), ERROR_SUCCESS);
}

void Run() { EXPECT_EQ(Close(1), ERROR_SUCCESS); }

const Rule whole = {"frees_the_record_and_its_key", [](const std::string &) { ExpectFreed(false); }};

const Rule withoutServicesKey = {"that_cannot_open_the_services_key_frees_the_record_only",
                                 [](const std::string &) { ExpectFreed(true); }};

const Rule keyUndeleted = {"that_cannot_delete_the_key_frees_the_record_only",
                           [](const std::string &) { ExpectFreed(true); }};

} // namespace lastClose

// --- questions ---

namespace queryConfig {

namespace {

// The values by the names that they have in the registry; a missing number reads as 0, a missing text as empty.
using Texts = std::map<std::string, std::string>;
const Texts allTexts = {{"Start", "3"},
                        {"ErrorControl", "1"},
                        {"ImagePath", "/bin/x"},
                        {"Group", "net"},
                        {"DependOnGroup", MultiSz({"nobody"})},
                        {"DependOnService", "root"}};
const Texts noTexts = {{"Start", "0"}, {"ErrorControl", "0"}, {"ImagePath", ""},
                       {"Group", ""},  {"DependOnGroup", ""}, {"DependOnService", ""}};

std::shared_ptr<const servd_SERV_QUERY_CONFIG_SERVICE_RETURN> reply;

void ExpectTexts(const Texts &texts) {
    EXPECT_EQ((Texts{{"Start", std::to_string(reply->startType)},
                     {"ErrorControl", std::to_string(reply->errorControl)},
                     {"ImagePath", reply->imagePath},
                     {"Group", reply->group},
                     {"DependOnGroup", BytesOf(reply->dependencies)},
                     {"DependOnService", reply->account}}),
              texts);
    EXPECT_EQ(reply->serviceType, 0x10u);
    EXPECT_EQ(reply->displayName, std::string("Alerter"));
}

} // namespace

void Prepare() {
    ClearRegistry();
    PutService("alerter", "Alerter",
               {{"ImagePath", AsText("/bin/x")},
                {"Group", AsText("net")},
                {"DependOnGroup", AsMulti({"nobody"})},
                {"DependOnService", AsText("root")}});
    StartDaemon();
}

void Run() { reply = QueryConfig(1); }

const Rule whole = {"is_whole", [](const std::string &) { ExpectTexts(allTexts); }};

const Rule withoutKeys = {"that_cannot_open_a_key_shows_what_is_in_memory",
                          [](const std::string &) { ExpectTexts(noTexts); }};

const Rule valueUnread = {"that_cannot_read_a_value_shows_none", [](const std::string &failedCall) {
                              Texts texts = allTexts;
                              const std::string name = ValueNamedBy(failedCall);
                              texts.at(name) = noTexts.at(name);
                              ExpectTexts(texts);
                          }};

} // namespace queryConfig

namespace listDependencies {

namespace {

std::shared_ptr<const servd_SERV_ENUM_DEPEND_SERVICE_RETURN> reply;

void ExpectFailure(std::int32_t status) {
    EXPECT_EQ(reply->status, status);
    EXPECT_EQ(reply->bytesNeeded, 0);
    EXPECT_EQ(reply->servicesReturned, 0);
    EXPECT_EQ(reply->services, nullptr);
}

} // namespace

void Prepare() {
    ClearRegistry();
    PutService("alerter", "alerter", {{"DependOnGroup", AsMulti({"browser"})}});
    PutService("browser", "browser");
    StartDaemon();
}

void Run() { reply = EnumDepend(1, SERVICE_STATE_ALL, enoughBytes); }

const Rule whole = {"is_whole", [](const std::string &) {
                        EXPECT_EQ(reply->status, ERROR_SUCCESS);
                        EXPECT_THAT(NamesOf(reply->services), ElementsAre("browser"));
                    }};

const Rule withoutKeys = {"that_cannot_open_a_key_answers_6",
                          [](const std::string &) { ExpectFailure(ERROR_INVALID_HANDLE); }};

const Rule unwalked = {"whose_walk_fails_answers_its_code", [](const std::string &) { ExpectFailure(fault); }};

} // namespace listDependencies

// --- start ---

namespace start {

namespace {

std::int32_t answered = 0;

void ExpectAnswer(std::int32_t status) {
    EXPECT_EQ(answered, status);
    EXPECT_EQ(QueryStatus(1)->serviceStatus, InState(SERVICE_STOPPED));
}

} // namespace

void Run() { answered = Start(1); }

const Rule dependencyStopped = {"is_refused_for_the_dependency_that_is_stopped",
                                [](const std::string &) { ExpectAnswer(ERROR_SERVICE_DEPENDENCY_FAIL); }};

const Rule unwalked = {"whose_walk_fails_answers_6", [](const std::string &) { ExpectAnswer(ERROR_INVALID_HANDLE); }};

} // namespace start

} // namespace faults
