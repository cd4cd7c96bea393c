// SPDX-License-Identifier: MIT
// apply: one service after the other, when all of them have been checked.
//
// The daemon takes what it keeps in memory through its own procedures. What it leaves to the registry (descriptions,
// failure actions, parameters) is written behind that, as the difference that is left then. It answers 1073 for the
// creation of a service that has a key already, whether it knows the service or not: such a key is saved, deleted, and
// written again below the one that the daemon makes. The copy is in a file, too, until all is done, so that not even a
// kill in between loses it.
#include "tvsc/apply.h"

#include "servd/service_keys.h"
#include "svcapi/client.h"
#include "tvsc/apply_output.h"
#include "tvsc/config_words.h"
#include "tvsc/mask.h"
#include "tvsc/names.h"
#include "tvsc/reachability.h"
#include "tvsc/report.h"
#include "tvsc/service_check.h"
#include "tvsc/service_registry.h"
#include "util/little_endian.h"
#include "util/names.h"
#include "util/string_list.h"
#include "util/text_editor.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <optional>

namespace {

std::string TextIn(const ServiceText &service, const char *name, const std::string &otherwise = "") {
    const RegValue *value = FindValue(service, name);
    return value != nullptr ? std::string(value->data.c_str()) : otherwise;
}

DWORD NumberIn(const ServiceText &service, const char *name, DWORD otherwise) {
    const RegValue *value = FindValue(service, name);
    return value != nullptr && value->data.size() == dwordBytes ? DwordAt(value->data.data()) : otherwise;
}

void AddValue(ServiceText *service, const char *name, std::uint32_t type, const std::string &data) {
    if (FindValue(*service, name) != nullptr) return;
    service->tree.keys.front().values.push_back({.name = name, .isDeleted = false, .type = type, .data = data});
}

void AddNumber(ServiceText *service, const char *name, DWORD number) {
    std::string data(dwordBytes, '\0');
    PutDword(number, data.data());
    AddValue(service, name, REG_DWORD, data);
}

// What create gives a service that says nothing of these; without them the daemon would load no service.
void AddDefaults(ServiceText *service) {
    AddNumber(service, typeValue, SERVICE_WIN32_OWN_PROCESS);
    AddNumber(service, startTypeValue, SERVICE_DEMAND_START);
    AddNumber(service, errorControlValue, SERVICE_ERROR_NORMAL);
    AddValue(service, displayNameValue, REG_SZ, service->name + '\0');
}

constexpr const char *neverTaken[] = {typeValue, startTypeValue, errorControlValue, displayNameValue, imagePathValue};

// What a service is to be: what the text says, and what stands there and stays.
ServiceText Wanted(const ServiceText &before, const ServiceText &said, const ApplyRules &rules) {
    ServiceText wanted = said;
    wanted.name = before.tree.keys.empty() ? said.name : before.name;
    for (RegKey &key : wanted.tree.keys) {
        key.key.path = KeyOfService(wanted.name).path + key.key.path.substr(said.tree.top.path.size());
        key.key.host = before.tree.top.host;
    }
    wanted.tree.top = before.tree.top;
    std::vector<RegKey> kept;
    for (const Difference &difference : CompareTrees(before.tree, wanted.tree)) {
        const bool goes = IsOfKey(difference) ? !difference.isAfter : !difference.after;
        const bool isNeeded = difference.path.empty() && difference.before &&
                              std::any_of(std::begin(neverTaken), std::end(neverTaken), [&](const char *name) {
                                  return AreNamesEqual(difference.before->name, name);
                              });
        if (!goes || (rules.isWhole && !isNeeded)) continue;
        RegKey key = {.key = difference.path.empty() ? wanted.tree.top : Below(wanted.tree.top, difference.path),
                      .isDeleted = false,
                      .values = {}};
        if (difference.before) key.values.push_back(*difference.before);
        kept.push_back(std::move(key));
    }
    wanted.tree.keys.insert(wanted.tree.keys.end(), kept.begin(), kept.end());
    wanted.tree.keys = StateOf(wanted.tree.keys);
    AddDefaults(&wanted);
    return wanted;
}

struct PlannedService {
    ServiceText before, wanted;
    AppliedService applied; // what is told of it
};

// --- through the daemon --------------------------------------------------------------------------------------------

// Whether a value of the service's own key is among the differences.
bool Differs(const std::vector<Difference> &differences, const char *name) {
    return std::any_of(differences.begin(), differences.end(), [&](const Difference &one) {
        if (!one.path.empty() || IsOfKey(one)) return false;
        return AreNamesEqual(one.after ? one.after->name : one.before->name, name);
    });
}

// What the daemon is told of.
constexpr const char *valuesOfDaemon[] = {typeValue,  startTypeValue,    errorControlValue, imagePathValue,
                                          groupValue, dependenciesValue, accountValue,      displayNameValue};

const char *OrNull(bool isWanted, const std::string &text) { return isWanted ? text.c_str() : nullptr; }

std::string DependenciesOf(const ServiceText &service) {
    const RegValue *value = FindValue(service, dependenciesValue);
    return JoinMultiString(value != nullptr ? SplitMultiString(value->data) : std::vector<std::string>());
}

// Writes what is left to be written.
DWORD WriteRest(const Session &session, const ServiceText &wanted, std::string *problem) {
    ServiceText present;
    DWORD rc = ReadServiceKey(wanted.name, session.options.host, &present, problem);
    if (rc != ERROR_SUCCESS) return rc;
    rc = WriteServiceKeys(session.options.host, ChangesOf(CompareTrees(present.tree, wanted.tree), wanted.tree.top),
                          problem);
    return rc;
}

DWORD ChangeOpened(const Session &session, SC_HANDLE service, const ServiceText &wanted,
                   const std::vector<Difference> &differences, std::string *problem) {
    const auto number = [&](const char *name) {
        return Differs(differences, name) ? NumberIn(wanted, name, SERVICE_NO_CHANGE) : DWORD{SERVICE_NO_CHANGE};
    };
    const std::string image = TextIn(wanted, imagePathValue), group = TextIn(wanted, groupValue),
                      dependencies = DependenciesOf(wanted), account = TextIn(wanted, accountValue),
                      display = TextIn(wanted, displayNameValue);
    *problem = "not changed";
    const bool isDaemons = std::any_of(std::begin(valuesOfDaemon), std::end(valuesOfDaemon),
                                       [&](const char *name) { return Differs(differences, name); });
    if (!isDaemons) return WriteRest(session, wanted, problem);
    // The daemon takes none that no user has, and takes none away: what it is not told is written behind that.
    const bool hasAccount = FindValue(wanted, accountValue) != nullptr && !IsMasked(account);
    if (!ChangeServiceConfigA(service, number(typeValue), number(startTypeValue), number(errorControlValue),
                              OrNull(Differs(differences, imagePathValue), image),
                              OrNull(Differs(differences, groupValue), group), nullptr,
                              OrNull(Differs(differences, dependenciesValue), dependencies),
                              OrNull(hasAccount && Differs(differences, accountValue), account), nullptr,
                              OrNull(Differs(differences, displayNameValue), display))) {
        return GetLastError();
    }
    return WriteRest(session, wanted, problem);
}

// The daemon creates the service; the rest is written behind that. What fails leaves no service. So is the account of a
// masked one, since the daemon creates none whose account no user has: for that moment whoever asks the daemon can
// start it. Nothing else would keep the daemon from that, which starts a disabled service, too.
DWORD Create(Session &session, const ServiceText &wanted, std::string *problem) {
    const std::string image = TextIn(wanted, imagePathValue), group = TextIn(wanted, groupValue),
                      account = TextIn(wanted, accountValue), display = TextIn(wanted, displayNameValue),
                      dependencies = DependenciesOf(wanted);
    *problem = "not created";
    const ServiceHandle service(CreateServiceA(
        session.manager.get(), wanted.name.c_str(), display.c_str(), SERVICE_ALL_ACCESS,
        NumberIn(wanted, typeValue, SERVICE_WIN32_OWN_PROCESS), NumberIn(wanted, startTypeValue, SERVICE_DEMAND_START),
        NumberIn(wanted, errorControlValue, SERVICE_ERROR_NORMAL), image.c_str(), group.c_str(), nullptr,
        dependencies.size() > 1 ? dependencies.c_str() : nullptr, IsMasked(account) ? "" : account.c_str(), nullptr));
    if (service == nullptr) return GetLastError();
    const DWORD rc = WriteRest(session, wanted, problem);
    if (rc != ERROR_SUCCESS) (void)WithdrawService(service.get()); // half a service is none
    return rc;
}

// A copy of a key that is about to go for a moment.
DWORD SaveKey(const ServiceText &service, std::string *file, std::string *problem) {
    std::string text;
    *problem = "cannot be saved as text";
    if (!RegTextOf({service}, &text, problem)) return ERROR_INVALID_DATA;
    *file = NewTextFile("tvsc", ".reg", text, problem);
    return file->empty() ? ERROR_CANTWRITE : ERROR_SUCCESS;
}

// Writes a key as it was saved. What stands there of a creation that failed goes, with the mark that it may bear.
DWORD RestoreKey(const Session &session, const ServiceText &saved, std::string *problem) {
    ServiceText present;
    DWORD rc = ReadServiceKey(saved.name, session.options.host, &present, problem);
    if (rc != ERROR_SUCCESS && rc != ERROR_FILE_NOT_FOUND) return rc;
    rc = rc == ERROR_SUCCESS ? WriteRest(session, saved, problem)
                             : WriteServiceKeys(session.options.host, saved.tree.keys, problem);
    if (rc != ERROR_SUCCESS || present.isMarked == saved.isMarked) return rc;
    return WriteDeletionMark(saved.name, session.options.host, saved.isMarked, problem);
}

// Has the daemon create a service whose key is there and which it does not know.
DWORD Adopt(Session &session, const ServiceText &before, const ServiceText &wanted, std::string *problem) {
    std::string file;
    DWORD rc = SaveKey(before, &file, problem);
    if (rc != ERROR_SUCCESS) return rc;
    rc = DeleteServiceKey(before.name, session.options.host, problem);
    if (rc == ERROR_SUCCESS) rc = Create(session, wanted, problem);
    std::string restoring;
    if (rc != ERROR_SUCCESS && RestoreKey(session, before, &restoring) != ERROR_SUCCESS) {
        *problem += fmt::format("; its key could not be restored ({}): it is in {}, for tvreg import", restoring, file);
        return rc;
    }
    (void)unlink(file.c_str()); // it was for the worst only
    return rc;
}

// What the daemon has to be told.
DWORD ApplyAtDaemon(Session &session, const ServiceText &before, const ServiceText &wanted,
                    const std::vector<Difference> &differences, std::string *problem) {
    const ServiceHandle service(OpenServiceA(session.manager.get(), wanted.name.c_str(), SERVICE_ALL_ACCESS));
    if (service != nullptr) return ChangeOpened(session, service.get(), wanted, differences, problem);
    *problem = "cannot be opened";
    const DWORD rc = GetLastError();
    if (rc != ERROR_SERVICE_DOES_NOT_EXIST) return rc;
    return before.tree.keys.empty() ? Create(session, wanted, problem) : Adopt(session, before, wanted, problem);
}

// --- one service ---------------------------------------------------------------------------------------------------

bool IsKnown(const Session &session, const std::string &name) { return AskForService(session, name) == ERROR_SUCCESS; }

// The name as the registry spells it, whose letters may be in another case. The daemon knows a service by that one.
DWORD SpellAsKey(const Session &session, std::string *name, std::string *problem) {
    std::vector<std::string> names;
    const DWORD rc = ListServiceKeys(session.options.host, &names, problem);
    const auto found =
        std::find_if(names.begin(), names.end(), [&](const std::string &one) { return AreNamesEqual(one, *name); });
    if (found != names.end()) *name = *found;
    return rc;
}

// What is there, and what is to be done.
DWORD PlanService(const Session &session, const ServiceText &said, const ApplyRules &rules, PlannedService *plan,
                  std::string *problem) {
    DWORD rc = ReadServiceKey(said.name, session.options.host, &plan->before, problem);
    if (rc != ERROR_SUCCESS && rc != ERROR_FILE_NOT_FOUND) return rc;
    const bool isThere = rc == ERROR_SUCCESS, hasDaemon = session.manager != nullptr;
    bool isKnown = isThere && (!hasDaemon || IsKnown(session, said.name));
    if (isThere && !isKnown) {
        rc = SpellAsKey(session, &plan->before.name, problem);
        if (rc != ERROR_SUCCESS) return rc;
        isKnown = IsKnown(session, plan->before.name);
    }
    if (isKnown ? plan->before.isMarked : IsDeletionDue(session, plan->before)) {
        *problem = "goes when the daemon starts again, with all that would be written of it";
        return ERROR_SERVICE_MARKED_FOR_DELETE;
    }
    if (isThere && !rules.mayExist) return ERROR_SERVICE_EXISTS;
    plan->wanted = Wanted(plan->before, said, rules);
    plan->applied = {plan->wanted.name, Change::created, plan->wanted.tree.top,
                     CompareTrees(plan->before.tree, plan->wanted.tree)};
    if (isKnown) plan->applied.change = plan->applied.differences.empty() ? Change::none : Change::changed;
    return CheckService(session.options, plan->before, plan->wanted, problem);
}

// Those that are there when all is done.
std::vector<std::string> KnownNames(const Session &session, const std::vector<PlannedService> &plans,
                                    const ApplyRules &rules) {
    std::vector<std::string> names;
    std::string ignored; // without the list there is less to tell
    if (rules.isAll) {
        // none but those of the text
    } else if (session.manager == nullptr) {
        (void)ListServiceKeys(session.options.host, &names, &ignored);
    } else if (std::vector<ListedService> services;
               EnumerateAllServices(session.manager.get(), &services) == ERROR_SUCCESS) {
        names = NamesOf(services);
    }
    for (const PlannedService &plan : plans) {
        names.push_back(plan.wanted.name);
    }
    return names;
}

// What services are made to depend on and is not there.
void NoteUnknownDependencies(const Session &session, const std::vector<PlannedService> &plans,
                             const ApplyRules &rules) {
    std::optional<std::vector<std::string>> known;
    for (const PlannedService &plan : plans) {
        const RegValue *value = FindValue(plan.wanted, dependenciesValue);
        if (value == nullptr || !Differs(plan.applied.differences, dependenciesValue)) continue;
        if (!known) known = KnownNames(session, plans, rules);
        NoteUnknownDependencies(session, SplitMultiString(value->data), *known);
    }
}

DWORD CarryOut(Session &session, const PlannedService &plan, std::string *problem) {
    if (plan.applied.change == Change::none) return ERROR_SUCCESS;
    if (session.manager != nullptr) {
        return ApplyAtDaemon(session, plan.before, plan.wanted, plan.applied.differences, problem);
    }
    const DWORD rc =
        WriteServiceKeys(session.options.host, ChangesOf(plan.applied.differences, plan.wanted.tree.top), problem);
    if (rc != ERROR_SUCCESS && plan.before.tree.keys.empty()) { // half a key would keep the database from loading
        std::string ignored;
        (void)DeleteServiceKey(plan.wanted.name, session.options.host, &ignored);
    }
    return rc;
}

std::string Outcome(const Session &session, Change change) {
    constexpr const char *words[] = {"unchanged", "created", "changed", "deleted"};
    const char *const word = words[static_cast<std::size_t>(change)];
    if (change == Change::none) return word;
    if (session.options.dryRun) return fmt::format("would be {}", word);
    return fmt::format("{}{}", word, session.manager == nullptr ? "; holds from the daemon's next start on" : "");
}

} // namespace

int OpenForApply(Session &session) {
    if (LookForDaemon(session.options.host) == DaemonPresence::absent) return EXIT_DONE;
    const int opened = OpenSession(session, false);
    if (opened == EXIT_DONE && session.initCode != ERROR_SUCCESS) session.manager.reset();
    return opened;
}

DWORD AskForService(const Session &session, const std::string &name) {
    if (session.manager == nullptr) return ERROR_SERVICE_DOES_NOT_EXIST;
    const ServiceHandle opened(OpenServiceA(session.manager.get(), name.c_str(), SERVICE_QUERY_STATUS));
    if (opened != nullptr) return ERROR_SUCCESS;
    const DWORD rc = GetLastError();
    std::string display;
    const bool isMarked = rc == ERROR_SERVICE_DOES_NOT_EXIST &&
                          QueryDisplayName(session.manager.get(), name.c_str(), &display) == ERROR_SUCCESS;
    return isMarked ? ERROR_SERVICE_MARKED_FOR_DELETE : rc;
}

bool IsDeletionDue(const Session &session, const ServiceText &present) {
    if (session.manager == nullptr) return present.isMarked;
    const DWORD known = AskForService(session, present.name);
    return known == ERROR_SERVICE_MARKED_FOR_DELETE || (known == ERROR_SUCCESS && present.isMarked);
}

bool ApplyServices(Session &session, const std::vector<ServiceText> &said, const ApplyRules &rules,
                   std::vector<AppliedService> *applied) {
    std::vector<PlannedService> plans;
    bool isRight = true;
    for (const ServiceText &service : said) {
        PlannedService plan;
        std::string problem;
        const DWORD rc = PlanService(session, service, rules, &plan, &problem);
        if (rc != ERROR_SUCCESS) Failed(session, service.name, rules.action, rc, problem);
        isRight = isRight && rc == ERROR_SUCCESS;
        plans.push_back(std::move(plan));
    }
    if (!isRight) return false;
    NoteUnknownDependencies(session, plans, rules);
    for (PlannedService &plan : plans) {
        std::string problem;
        const DWORD rc = session.options.dryRun ? DWORD{ERROR_SUCCESS} : CarryOut(session, plan, &problem);
        if (rc != ERROR_SUCCESS) {
            Failed(session, plan.applied.name, rules.action, rc, problem);
            isRight = false;
            continue;
        }
        Done(session, plan.applied.name, rules.action, Outcome(session, plan.applied.change));
        if (session.options.dryRun && !session.options.json) PrintDifferences(plan.applied);
        applied->push_back(std::move(plan.applied));
    }
    return isRight;
}
