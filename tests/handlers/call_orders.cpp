// SPDX-License-Identifier: MIT
// The calls that each operation makes of the registry, in order, and what becomes of it when just one of them fails.
#include "tests/handlers/faults.h"

using ::testing::IsEmpty;

namespace faults {

LONG fault = 0;

} // namespace faults

namespace {

using namespace faults;

OperationCall Open(const std::string &key, const Rule &rule) { return {"open " + key, &rule}; }
OperationCall Create(const std::string &key, const Rule &rule) { return {"create " + key, &rule}; }
OperationCall Delete(const std::string &key, const Rule &rule) { return {"delete " + key, &rule}; }
OperationCall Close(const std::string &key, const Rule &rule) { return {"close " + key, &rule}; }
OperationCall Size(const std::string &key, const char *value, const Rule &rule) {
    return {"size " + key + " " + value, &rule};
}
OperationCall Query(const std::string &key, const char *value, const Rule &rule) {
    return {"query " + key + " " + value, &rule};
}
OperationCall Set(const std::string &key, const char *value, const Rule &rule) {
    return {"set " + key + " " + value, &rule};
}

std::vector<OperationCall> InOrder(const Names &calls) {
    std::vector<OperationCall> untried;
    for (const std::string &call : calls) {
        untried.push_back({call, nullptr});
    }
    return untried;
}

// Keys are opened again by the walk over the dependencies.
// clang-format off
std::vector<Operation> AllOperations() {
    return {
        {"a_create", create::Prepare, create::Run, &create::whole, {
            Open(services, create::withoutServicesKey),
            Create(spooler, create::withoutKey),
            Set(spooler, "DependOnGroup", create::unwritten),
            // the walk
            Open(spooler, create::unwalked),
            Size(spooler, "DependOnGroup", create::unwalked),
            Query(spooler, "DependOnGroup", create::unwalked),
            Close(spooler, create::unclosed),
            Open(alerter, create::unwalked),
            Size(alerter, "DependOnGroup", create::unwalked),
            Close(alerter, create::unclosed),
            // the values
            Set(spooler, "DisplayName", create::unwritten),
            Set(spooler, "Type", create::unwritten),
            Set(spooler, "Start", create::unwritten),
            Set(spooler, "ErrorControl", create::unwritten),
            Set(spooler, "ImagePath", create::unwritten),
            Set(spooler, "Group", create::unwritten),
            // the tag
            Create(tagOrder, create::uncountable),
            Size(tagOrder, "net", create::uncountable),
            Query(tagOrder, "net", create::uncountable),
            Set(tagOrder, "net", create::uncounted),
            Set(spooler, "Tag", create::unwritten),
            Close(tagOrder, create::unclosed),
            Set(spooler, "DependOnService", create::unwritten),
            Close(spooler, create::unclosed),
            Close(services, create::unclosed),
        }},
        {"a_create_in_a_circle", createInCircle::Prepare, createInCircle::Run, &createInCircle::undone, {
            Open(services, createInCircle::withoutServicesKey),
            Create(spooler, createInCircle::withoutKey),
            Set(spooler, "DependOnGroup", createInCircle::dependenciesUnwritten),
            // the walk
            Open(spooler, createInCircle::unwalked),
            Size(spooler, "DependOnGroup", createInCircle::unwalked),
            Query(spooler, "DependOnGroup", createInCircle::unwalked),
            Close(spooler, createInCircle::unclosed),
            Open(alerter, createInCircle::unwalked),
            Size(alerter, "DependOnGroup", createInCircle::unwalked),
            Query(alerter, "DependOnGroup", createInCircle::unwalked),
            Close(alerter, createInCircle::unclosed),
            // all of it undone
            Close(spooler, createInCircle::unclosed),
            Delete(spooler, createInCircle::keyUndeleted),
            Close(services, createInCircle::unclosed),
        }},
        {"a_create_for_an_unknown_account", createForNobody::Prepare, createForNobody::Run, &createForNobody::refused, {
            Open(services, createForNobody::withoutServicesKey),
            Create(spooler, createForNobody::withoutKey),
            Close(spooler, createForNobody::refused),
            Delete(spooler, createForNobody::keyUndeleted),
            Close(services, createForNobody::refused),
        }},
        {"a_create_without_a_tag_counter", createWithoutCounter::Prepare, createWithoutCounter::Run, nullptr,
            InOrder({"open " + services, "create " + spooler,
                     "open " + spooler, "size " + spooler + " DependOnGroup", "close " + spooler,
                     "set " + spooler + " DisplayName", "set " + spooler + " Type", "set " + spooler + " Start",
                     "set " + spooler + " ErrorControl", "set " + spooler + " ImagePath", "set " + spooler + " Group",
                     "create " + tagOrder, "size " + tagOrder + " net", "set " + tagOrder + " net",
                     "set " + spooler + " Tag", "close " + tagOrder,
                     "close " + spooler, "close " + services})},
        {"a_change", change::Prepare, change::Run, &change::whole, {
            Open(services, change::withoutServicesKey),
            Open(alerter, change::withoutKey),
            // dependencies and group, which the walk needs
            Size(alerter, "DependOnGroup", change::oldValueUnread),
            Query(alerter, "DependOnGroup", change::oldValueUnread),
            Set(alerter, "DependOnGroup", change::unwritten),
            Size(alerter, "Group", change::oldGroupUnread),
            Query(alerter, "Group", change::oldGroupUnread),
            // the walk
            Open(alerter, change::unwalked),
            Size(alerter, "DependOnGroup", change::unwalked),
            Query(alerter, "DependOnGroup", change::unwalked),
            Close(alerter, change::unclosed),
            Open(browser, change::unwalked),
            Size(browser, "DependOnGroup", change::unwalked),
            Close(browser, change::unclosed),
            // the other values
            Set(alerter, "Type", change::unwritten),
            Set(alerter, "Start", change::unwritten),
            Set(alerter, "ErrorControl", change::unwritten),
            Size(alerter, "ImagePath", change::oldValueUnread),
            Query(alerter, "ImagePath", change::oldValueUnread),
            Set(alerter, "ImagePath", change::unwritten),
            Set(alerter, "DependOnService", change::unwritten),
            Set(alerter, "DisplayName", change::unwritten),
            Set(alerter, "Group", change::groupUnwritten),
            // the tag
            Create(tagOrder, change::uncountable),
            Size(alerter, "Group", change::uncountable),
            Query(alerter, "Group", change::uncountable),
            Size(tagOrder, "new", change::uncountable),
            Query(tagOrder, "new", change::uncountable),
            Set(tagOrder, "new", change::uncounted),
            Set(alerter, "Tag", change::unwritten),
            Close(tagOrder, change::unclosed),
            Close(alerter, change::unclosed),
            Close(services, change::unclosed),
        }},
        {"a_change_into_a_circle", change::Prepare, changeIntoCircle::Run, &changeIntoCircle::undone, {
            Open(services, changeIntoCircle::withoutServicesKey),
            Open(alerter, changeIntoCircle::withoutKey),
            Size(alerter, "DependOnGroup", changeIntoCircle::dependenciesUnread),
            Query(alerter, "DependOnGroup", changeIntoCircle::dependenciesUnread),
            Set(alerter, "DependOnGroup", changeIntoCircle::dependenciesUnwritten),
            Size(alerter, "Group", changeIntoCircle::undone),
            Query(alerter, "Group", changeIntoCircle::undone),
            // the walk
            Open(alerter, changeIntoCircle::unwalked),
            Size(alerter, "DependOnGroup", changeIntoCircle::unwalked),
            Query(alerter, "DependOnGroup", changeIntoCircle::unwalked),
            Close(alerter, changeIntoCircle::unclosed),
            // what was there, once more
            Set(alerter, "DependOnGroup", changeIntoCircle::dependenciesUnrestored),
            Close(alerter, changeIntoCircle::unclosed),
            Close(services, changeIntoCircle::unclosed),
        }},
        {"a_change_of_nothing", change::Prepare, change::RunWithNothing, nullptr,
            InOrder({"open " + services, "open " + alerter, "set " + alerter + " ErrorControl",
                     "close " + alerter, "close " + services})},
        // Deliberate: the counters' key is closed without having been opened.
        {"a_change_with_a_tag_of_its_own_deliberate", change::Prepare, change::RunWithTagOfItsOwn, nullptr,
            InOrder({"open " + services, "open " + browser, "set " + browser + " ErrorControl",
                     "set " + browser + " Tag", "close ?", "close " + browser, "close " + services})},
        // Deliberate: both keys stay open, and the names of group and image path are looked for in the services key.
        {"a_delete", remove::Prepare, remove::Run, &remove::whole, {
            Open(services, remove::withoutServicesKey),
            Open(alerter, remove::withoutKey),
            Set(alerter, "DeleteFlag", remove::unflagged),
            Query(services, "Group", remove::whole),
            Query(services, "ImagePath", remove::whole),
        }},
        {"a_last_close", lastClose::Prepare, lastClose::Run, &lastClose::whole, {
            Open(services, lastClose::withoutServicesKey),
            Delete(alerter, lastClose::keyUndeleted),
            Close(services, lastClose::whole),
        }},
        {"a_query_of_the_configuration", queryConfig::Prepare, queryConfig::Run, &queryConfig::whole, {
            Open(services, queryConfig::withoutKeys),
            Open(alerter, queryConfig::withoutKeys),
            Query(alerter, "Start", queryConfig::valueUnread),
            Query(alerter, "ErrorControl", queryConfig::valueUnread),
            Size(alerter, "ImagePath", queryConfig::valueUnread),
            Query(alerter, "ImagePath", queryConfig::valueUnread),
            Size(alerter, "Group", queryConfig::valueUnread),
            Query(alerter, "Group", queryConfig::valueUnread),
            Size(alerter, "DependOnGroup", queryConfig::valueUnread),
            Query(alerter, "DependOnGroup", queryConfig::valueUnread),
            Size(alerter, "DependOnService", queryConfig::valueUnread),
            Query(alerter, "DependOnService", queryConfig::valueUnread),
            Close(alerter, queryConfig::whole),
            Close(services, queryConfig::whole),
        }},
        {"a_list_of_dependencies", listDependencies::Prepare, listDependencies::Run, &listDependencies::whole, {
            Open(services, listDependencies::withoutKeys),
            Open(alerter, listDependencies::withoutKeys),
            Size(alerter, "DependOnGroup", listDependencies::unwalked),
            // the walk
            Open(alerter, listDependencies::unwalked),
            Size(alerter, "DependOnGroup", listDependencies::unwalked),
            Query(alerter, "DependOnGroup", listDependencies::unwalked),
            Close(alerter, listDependencies::whole),
            Open(browser, listDependencies::unwalked),
            Size(browser, "DependOnGroup", listDependencies::unwalked),
            Close(browser, listDependencies::whole),
            Close(alerter, listDependencies::whole),
            Close(services, listDependencies::whole),
        }},
        {"a_start", listDependencies::Prepare, start::Run, &start::dependencyStopped, {
            Open(services, start::unwalked),
            // the walk
            Open(alerter, start::unwalked),
            Size(alerter, "DependOnGroup", start::unwalked),
            Query(alerter, "DependOnGroup", start::unwalked),
            Close(alerter, start::dependencyStopped),
            Open(browser, start::unwalked),
            Size(browser, "DependOnGroup", start::unwalked),
            Close(browser, start::dependencyStopped),
            Close(services, start::dependencyStopped),
        }},
    };
}
// clang-format on

const std::vector<Operation> &Operations() {
    static const std::vector<Operation> operations = AllOperations();
    return operations;
}

void Begin(const Operation &operation) {
    operation.prepare();
    ForgetRegistryCalls();
}

// --- the order ---

struct CallOrder : Handlers, ::testing::WithParamInterface<Operation> {
    void SetUp() override {
        Handlers::SetUp();
        WatchRegistry();
    }
};
INSTANTIATE_TEST_SUITE_P(the, CallOrder, ::testing::ValuesIn(Operations()),
                         [](const auto &test) { return test.param.name; });

TEST_P(CallOrder, of) {
    const Operation &operation = GetParam();
    Begin(operation);
    operation.run();
    Names calls;
    for (const OperationCall &call : operation.calls) {
        calls.push_back(call.text);
    }
    EXPECT_EQ(RegistryCallsMade(), calls);
    if (operation.undisturbed != nullptr) operation.undisturbed->check("");
}

// --- one call fails ---

// All calls of an operation that follow one rule, failing in turn.
struct FailingCalls {
    Operation operation;
    const Rule *rule;
    LONG code;
};

// Once with a refusal of the registry's own, and once with the code for a registry that has broken off.
std::vector<FailingCalls> AllFailingCalls() {
    std::vector<FailingCalls> all;
    for (const Operation &operation : Operations()) {
        std::vector<const Rule *> rules;
        for (const OperationCall &call : operation.calls) {
            if (call.rule == nullptr || std::find(rules.begin(), rules.end(), call.rule) != rules.end()) continue;
            rules.push_back(call.rule);
            all.push_back({operation, call.rule, ERROR_ACCESS_DENIED});
            all.push_back({operation, call.rule, ERROR_REGISTRY_IO_FAILED});
        }
    }
    return all;
}

void PrintTo(const FailingCalls &calls, std::ostream *out) { *out << "failing with code " << calls.code; }

struct FailingCall : Handlers, ::testing::WithParamInterface<FailingCalls> {
    void SetUp() override {
        Handlers::SetUp();
        WatchRegistry();
        fault = GetParam().code;
    }
};
INSTANTIATE_TEST_SUITE_P(one, FailingCall, ::testing::ValuesIn(AllFailingCalls()), [](const auto &test) {
    const FailingCalls &calls = test.param;
    return std::string(calls.operation.name) + "_" + calls.rule->name + "_code_" + std::to_string(calls.code);
});

TEST_P(FailingCall, in) {
    const auto &[operation, rule, code] = GetParam();
    for (std::size_t n = 0; n < operation.calls.size(); ++n) {
        const OperationCall &call = operation.calls[n];
        if (call.rule != rule) continue;
        SCOPED_TRACE("failing call " + std::to_string(n + 1) + ": " + call.text);
        Begin(operation);
        FailRegistryCall(static_cast<int>(n) + 1, code);
        operation.run();
        ForgetRegistryCalls();
        rule->check(call.text);
        // The daemon serves on.
        EXPECT_EQ(Call(servd_SERV_DUMMY{.dummy = 1})->dummy, 2);
        EXPECT_EQ(::Create({.name = "afterwards"})->status, ERROR_SUCCESS);
    }
}

// --- no calls ---

struct WithoutCalls : Handlers {
    void SetUp() override {
        Handlers::SetUp();
        WatchRegistry();
    }
};

TEST_F(WithoutCalls, a_change_that_is_refused_at_once_calls_nothing) {
    change::Prepare();
    ASSERT_EQ(::Delete(2), ERROR_SUCCESS);
    ForgetRegistryCalls();
    EXPECT_EQ(ChangeConfig({.handle = 0})->status, ERROR_INVALID_HANDLE);
    EXPECT_EQ(ChangeConfig({.handle = 2})->status, ERROR_SERVICE_MARKED_FOR_DELETE);
    EXPECT_EQ(ChangeConfig({.handle = 1, .displayName = Sz("Browser")})->status, ERROR_DUP_NAME);
    EXPECT_EQ(ChangeConfig({.handle = 1, .account = Sz("no-such-user-here")})->status, ERROR_INVALID_SERVICE_ACCOUNT);
    EXPECT_THAT(RegistryCallsMade(), IsEmpty());
}

TEST_F(WithoutCalls, the_other_procedures_do_not_touch_the_registry) {
    Load({"alerter"});
    ForgetRegistryCalls();
    (void)Connect("");
    (void)::Open("alerter");
    (void)::Close(1);
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
