// SPDX-License-Identifier: MIT
// mask: the account in the registry, there and back.
#include "tvsc/mask.h"

#include "servd/limits.h"
#include "servd/service_keys.h"
#include "tvsc/names.h"
#include "tvsc/report.h"
#include "tvsc/service_registry.h"
#include "util/little_endian.h"

#include <optional>

namespace {

// A service as the registry has it. Returns false, and notes why, where that cannot be read.
bool ReadNamed(Session &session, const std::string &name, const char *action, ServiceText *service) {
    std::string problem;
    const DWORD rc = ReadServiceKey(name, session.options.host, service, &problem);
    if (rc != ERROR_SUCCESS) Failed(session, name, action, rc, problem);
    return rc == ERROR_SUCCESS;
}

// Its account; nothing where it has none.
std::optional<std::string> AccountIn(const ServiceText &service) {
    const RegValue *value = FindValue(service, accountValue);
    if (value == nullptr) return std::nullopt;
    return value->data.c_str();
}

bool SharesProcess(const ServiceText &service) {
    const RegValue *type = FindValue(service, typeValue);
    return type != nullptr && type->data.size() == dwordBytes &&
           (DwordAt(type->data.data()) & SERVICE_WIN32_SHARE_PROCESS) != 0;
}

//   account  nothing takes it away
DWORD WriteAccount(const Session &session, const ServiceText &service, const std::optional<std::string> &account,
                   std::string *problem) {
    const RegValue value = {
        .name = accountValue, .isDeleted = !account, .type = REG_SZ, .data = account.value_or("") + '\0'};
    return WriteServiceKeys(session.options.host, {{.key = service.tree.top, .isDeleted = false, .values = {value}}},
                            problem);
}

void Change(Session &session, const ServiceText &service, const char *action, const std::optional<std::string> &account,
            const std::string &text) {
    if (session.options.dryRun) return Done(session, service.name, action, "would be " + text);
    std::string problem;
    const DWORD rc = WriteAccount(session, service, account, &problem);
    if (rc != ERROR_SUCCESS) return Failed(session, service.name, action, rc, problem);
    Done(session, service.name, action, text);
}

void Mask(Session &session, const std::string &name) {
    constexpr char action[] = "mask";
    ServiceText service;
    if (!ReadNamed(session, name, action, &service)) return;
    if (service.isMarked) {
        return Failed(session, name, action, ERROR_SERVICE_MARKED_FOR_DELETE,
                      "goes when the daemon starts again, and its mask with it");
    }
    const std::optional<std::string> account = AccountIn(service);
    if (account && IsMasked(*account)) return Done(session, name, action, "masked already");
    const RegValue *value = FindValue(service, accountValue);
    if (value != nullptr && value->type != REG_SZ) {
        return Failed(session, name, action, ERROR_INVALID_DATA, "its account is no text, and would be lost");
    }
    if (SharesProcess(service)) {
        return Failed(session, name, action, ERROR_NOT_SUPPORTED,
                      "of a shared process, which takes its start without the daemon's help; it can be disabled");
    }
    const std::string masked = std::string(accountMask) + (account ? ':' + *account : "");
    if (masked.size() > longestTextBytes) {
        return Failed(session, name, action, ERROR_INVALID_PARAMETER, "its account is too long");
    }
    Change(session, service, action, masked, "masked");
}

void Unmask(Session &session, const std::string &name) {
    constexpr char action[] = "unmask";
    ServiceText service;
    if (!ReadNamed(session, name, action, &service)) return;
    const std::optional<std::string> account = AccountIn(service);
    if (!account || !IsMasked(*account)) return Done(session, name, action, "not masked");
    const bool hadNone = account->size() == accountMask.size();
    Change(session, service, action, hadNone ? std::nullopt : std::make_optional(WithoutMask(*account)), "unmasked");
}

} // namespace

int RunMask(Session &session, const std::vector<std::string> &names) {
    for (const std::string &name : ResolveNames(session, names, "mask")) {
        Mask(session, name);
    }
    return Finish(session);
}

int RunUnmask(Session &session, const std::vector<std::string> &names) {
    for (const std::string &name : ResolveNames(session, names, "unmask")) {
        Unmask(session, name);
    }
    return Finish(session);
}
