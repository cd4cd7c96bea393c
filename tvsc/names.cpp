// SPDX-License-Identifier: MIT
// names: from what was typed to the services that are meant.
#include "tvsc/names.h"

#include "svcapi/client.h"
#include "tvsc/report.h"
#include "util/similar_names.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <fnmatch.h>
#include <strings.h>

#include <algorithm>
#include <set>

namespace {

// The services that an argument could mean, but for others that it could mean as well.
std::vector<std::string> MeansSeveral(const std::string &wanted, const std::vector<ListedService> &services) {
    std::vector<std::string> meant;
    for (const ListedService &service : services) {
        const bool fits = strcasecmp(service.name.c_str(), wanted.c_str()) == 0 || service.displayName == wanted;
        if (fits) meant.push_back(service.name);
    }
    return meant;
}

// Nothing that can be listed has the name: it may be marked for deletion, which hides a service everywhere else.
DWORD WhyUnknown(Session &session, const std::string &name) {
    std::string displayName;
    const DWORD rc = QueryDisplayName(session.manager.get(), name.c_str(), &displayName);
    return rc == ERROR_SUCCESS ? ERROR_SERVICE_MARKED_FOR_DELETE : rc;
}

void TellUnknown(Session &session, const std::string &pattern, const std::string &action,
                 const std::vector<ListedService> &services) {
    const DWORD rc = WhyUnknown(session, pattern);
    Failed(session, pattern, action, rc);
    std::vector<std::string> similar = MeansSeveral(pattern, services);
    if (similar.empty()) {
        similar = SimilarNames(pattern, NamesOf(services));
    }
    if (rc != ERROR_SERVICE_DOES_NOT_EXIST || similar.empty()) return;
    session.results.back().suggested = similar;
    Note(session, fmt::format("  did you mean {}?", fmt::join(similar, ", ")));
}

// So many names are asked for one by one; for more a list of everything takes fewer calls.
constexpr std::size_t fewNames = 8;

// The service that is listed under just this name; nothing where more has to be known to tell what is meant.
std::optional<ListedService> FindByName(Session &session, const std::string &name, OpenServices *kept) {
    ServiceHandle service(OpenServiceA(session.manager.get(), name.c_str(), SERVICE_QUERY_STATUS));
    std::optional<ListedService> listed;
    if (service != nullptr && QueryListedService(service.get(), &listed) != ERROR_SUCCESS) listed.reset();
    if (listed && kept != nullptr) kept->emplace(name, std::move(service));
    return listed;
}

// Few names spelled as the daemon spells them are found at a cost that does not grow with the number of services.
// Returns false where they are not: nothing is found then.
bool FindAllByName(Session &session, const std::vector<std::string> &names, std::vector<ListedService> *services,
                   OpenServices *kept) {
    if (names.size() > fewNames || std::any_of(names.begin(), names.end(), IsPattern)) return false;
    if (names.size() > 1)
        kept = nullptr; // while one is waited for, the others' would keep their services from deletion
    std::set<std::string> taken;
    for (const std::string &name : names) {
        if (!taken.insert(name).second) continue;
        const std::optional<ListedService> found = FindByName(session, name, kept);
        if (!found) {
            services->clear();
            return false;
        }
        services->push_back(*found);
    }
    return true;
}

} // namespace

bool IsPattern(const std::string &text) { return text.find_first_of("*?[") != std::string::npos; }

MeantServices ServicesMeant(const std::string &wanted, const std::vector<ListedService> &services) {
    MeantServices exact, otherCase, display, matching;
    for (const ListedService &service : services) {
        if (service.name == wanted) exact.push_back(&service);
        if (strcasecmp(service.name.c_str(), wanted.c_str()) == 0) otherCase.push_back(&service);
        if (service.displayName == wanted) display.push_back(&service);
        if (fnmatch(wanted.c_str(), service.name.c_str(), 0) == 0) matching.push_back(&service);
    }
    if (!exact.empty()) return exact;
    if (IsPattern(wanted)) return matching;
    if (otherCase.size() == 1) return otherCase;
    return display.size() == 1 ? display : MeantServices{};
}

bool ListServicesFor(Session &session, const std::string &action, std::vector<ListedService> *services) {
    const DWORD rc = EnumerateAllServices(session.manager.get(), services);
    if (rc == ERROR_SUCCESS) return true;
    Failed(session, session.options.host, action, rc,
           rc == ERROR_INVALID_DATA ? "the daemon's list of services does not come to an end"
                                    : "the services cannot be listed");
    return false;
}

std::vector<ListedService> ResolveServices(Session &session, const std::vector<std::string> &patterns,
                                           const std::string &action, OpenServices *kept) {
    std::vector<ListedService> resolved;
    if (FindAllByName(session, patterns, &resolved, kept)) return resolved;
    std::vector<ListedService> services;
    if (!ListServicesFor(session, action, &services)) return resolved;
    for (const ListedService *service : ResolveAmong(session, patterns, action, services)) {
        resolved.push_back(*service);
    }
    return resolved;
}

MeantServices ResolveAmong(Session &session, const std::vector<std::string> &patterns, const std::string &action,
                           const std::vector<ListedService> &services) {
    MeantServices resolved;
    std::set<const ListedService *> taken;
    for (const std::string &pattern : patterns) {
        const MeantServices meant = ServicesMeant(pattern, services);
        if (meant.empty()) TellUnknown(session, pattern, action, services);
        for (const ListedService *service : meant) {
            if (taken.insert(service).second) resolved.push_back(service);
        }
    }
    return resolved;
}

std::vector<std::string> NamesOf(const std::vector<ListedService> &services) {
    std::vector<std::string> names;
    names.reserve(services.size());
    for (const ListedService &service : services) {
        names.push_back(service.name);
    }
    return names;
}

void NoteUnknownDependencies(const Session &session, const std::vector<std::string> &dependencies,
                             const std::vector<std::string> &known) {
    for (const std::string &dependency : dependencies) {
        const bool isGroup = dependency.starts_with(SC_GROUP_IDENTIFIERA);
        if (isGroup || std::find(known.begin(), known.end(), dependency) != known.end()) continue;
        Note(session,
             fmt::format("tvsc: {}: no such service; as long as there is none, it is passed over", dependency));
    }
}

std::vector<std::string> ResolveNames(Session &session, const std::vector<std::string> &patterns,
                                      const std::string &action, OpenServices *kept) {
    return NamesOf(ResolveServices(session, patterns, action, kept));
}
