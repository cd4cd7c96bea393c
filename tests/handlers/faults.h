// SPDX-License-Identifier: MIT
// faults: operations of the daemon, one registry call of which fails.
//
// call_orders.cpp has the table: for each operation its calls in order, and for each call the rule that holds when just
// that one fails. The rules stand here by their names, and beside their operations in the files *_faults.cpp.
#pragma once

#include "tests/handlers/suite.h"
#include "tests/support/registry_faults.h"

namespace faults {

// What holds after an operation of which one call has failed, or none.
struct Rule {
    const char *name; // continues the operation's in the names of the tests
    void (*check)(const std::string &failedCall);
};

struct OperationCall {
    std::string text; // as in registry_faults.h
    const Rule *rule; // null: not tried
};

struct Operation {
    const char *name;
    void (*prepare)(); // clears the registry and starts a daemon over what the operation begins with
    void (*run)();
    const Rule *undisturbed; // null: only the order of the calls is looked at
    std::vector<OperationCall> calls;
};

inline void PrintTo(const Operation &operation, std::ostream *out) { *out << operation.calls.size() << " calls"; }

extern LONG fault; // the code with which the call fails

inline const std::string services = servicesKeyPath;
inline const std::string spooler = services + "\\spooler";
inline const std::string alerter = services + "\\alerter";
inline const std::string browser = services + "\\browser";
inline const std::string tagOrder = tagOrderKeyPath;

constexpr std::int32_t earlierTag = 77; // that of the last create and of the last change before an operation

// What a create or a change has answered and left.
struct Outcome {
    std::int32_t status = 0;
    std::int32_t handle = 0;  // a create's
    std::int64_t tag = 0;     // which one of them answers as a number with a sign
    std::size_t keysKept = 0; // open
};

template <typename Ask>
Outcome OutcomeOf(Ask ask) {
    const std::size_t openBefore = KeysOpen();
    const auto reply = ask();
    Outcome outcome = {.status = reply->status, .tag = reply->tag, .keysKept = KeysOpen() - openBefore};
    if constexpr (requires { reply->handle; }) outcome.handle = reply->handle;
    return outcome;
}

// The value that a call names, its last word.
inline std::string ValueNamedBy(const std::string &call) { return call.substr(call.rfind(' ') + 1); }

// A service that depends on a group shows who is in it.
inline void PutProbe(const std::string &group) {
    PutService("probe " + group, "probe " + group, {{"DependOnGroup", AsMulti({"+" + group})}});
}
inline bool IsInGroup(const std::string &service, const std::string &group) {
    const Names members = Dependencies(Open("probe " + group)->handle);
    return std::find(members.begin(), members.end(), service) != members.end();
}
inline bool IsKnown(const std::string &service) { return GetDisplay(service)->status == ERROR_SUCCESS; }

namespace create { // spooler in group "net", everything about it given
void Prepare();
void Run();
extern const Rule whole, withoutServicesKey, withoutKey, unwalked, unwritten, uncountable, uncounted, unclosed;
} // namespace create

namespace createWithoutCounter { // the first of its group that wants a tag
void Prepare();
void Run();
} // namespace createWithoutCounter

namespace createInCircle { // spooler depends on alerter, which depends on it
void Prepare();
void Run();
extern const Rule undone, withoutServicesKey, withoutKey, dependenciesUnwritten, unwalked, unclosed, keyUndeleted;
} // namespace createInCircle

namespace createForNobody { // the account is unknown
void Prepare();
void Run();
extern const Rule refused, withoutServicesKey, withoutKey, keyUndeleted;
} // namespace createForNobody

namespace change { // everything about alerter, which moves from group "old" to "new"
void Prepare();
void Run();
void RunWithNothing();
void RunWithTagOfItsOwn();
extern const Rule whole, withoutServicesKey, withoutKey, oldValueUnread, oldGroupUnread, unwalked, unwritten,
    groupUnwritten, uncountable, uncounted, unclosed;
} // namespace change

namespace changeIntoCircle { // alerter is to depend on itself, and to move from group "old" to "new"
void Run();
extern const Rule undone, withoutServicesKey, withoutKey, dependenciesUnread, dependenciesUnwritten, unwalked,
    dependenciesUnrestored, unclosed;
} // namespace changeIntoCircle

namespace remove { // alerter, which somebody has open
void Prepare();
void Run();
extern const Rule whole, withoutServicesKey, withoutKey, unflagged;
} // namespace remove

namespace lastClose { // of alerter, which is marked for deletion
void Prepare();
void Run();
extern const Rule whole, withoutServicesKey, keyUndeleted;
} // namespace lastClose

namespace queryConfig { // of alerter, which has all values
void Prepare();
void Run();
extern const Rule whole, withoutKeys, valueUnread;
} // namespace queryConfig

namespace listDependencies { // of alerter, which depends on browser
void Prepare();
void Run();
extern const Rule whole, withoutKeys, unwalked;
} // namespace listDependencies

namespace start { // of alerter, which depends on browser, which is stopped
void Run();
extern const Rule dependencyStopped, unwalked;
} // namespace start

} // namespace faults
