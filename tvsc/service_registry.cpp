// SPDX-License-Identifier: MIT
// service_registry: tvreg's reading and writing of keys, with codes in place of exceptions.
#include "tvsc/service_registry.h"

#include "servd/service_keys.h"
#include "svcapi/link.h"
#include "tvreg/registry_reading.h"
#include "tvreg/registry_writing.h"
#include "util/little_endian.h"
#include "util/names.h"

#include <algorithm>

namespace {

// Does something that may throw a Failure.
template <typename Act>
std::uint32_t CodeOf(std::string *problem, Act act) {
    try {
        act();
        return ERROR_SUCCESS;
    } catch (const Failure &failure) {
        *problem = failure.what();
        return failure.code != 0 ? failure.code : std::uint32_t{ERROR_CANTREAD};
    }
}

std::string RegistryHost(const std::string &host) { return IsThisMachine(host) ? "" : host; }

} // namespace

std::uint32_t ListServiceKeys(const std::string &host, std::vector<std::string> *names, std::string *problem) {
    return CodeOf(problem, [&] {
        const KeyPath services = {HKEY_LOCAL_MACHINE, servicesKeyPath, RegistryHost(host)};
        *names = KeyExists(services) ? ReadKey(services).subKeys : std::vector<std::string>();
    });
}

std::uint32_t ReadServiceKey(const std::string &name, const std::string &host, ServiceText *service,
                             std::string *problem) {
    const KeyPath top = KeyOfService(name, RegistryHost(host));
    *service = {.name = name, .tree = {top, {}}};
    return CodeOf(problem, [&] {
        service->tree.keys = ReadKeys(top);
        const auto marks = std::erase_if(service->tree.keys.front().values, [](const RegValue &value) {
            return AreNamesEqual(value.name, deleteFlagValue);
        });
        service->isMarked = marks != 0; // whatever it holds, as the daemon sees it
    });
}

std::uint32_t WriteServiceKeys(const std::string &host, std::vector<RegKey> keys, std::string *problem) {
    return CodeOf(problem, [&] {
        for (RegKey &key : keys) {
            if (key.key.host.empty()) key.key.host = RegistryHost(host);
        }
        MustWriteKeys(keys);
    });
}

std::uint32_t WriteDeletionMark(const std::string &name, const std::string &host, bool isMarked, std::string *problem) {
    RegValue mark = {
        .name = deleteFlagValue, .isDeleted = !isMarked, .type = REG_DWORD, .data = std::string(dwordBytes, '\0')};
    PutDword(1, mark.data.data());
    return WriteServiceKeys(host, {{.key = KeyOfService(name), .isDeleted = false, .values = {mark}}}, problem);
}

std::uint32_t DeleteServiceKey(const std::string &name, const std::string &host, std::string *problem) {
    return CodeOf(problem, [&] { DeleteKey(KeyOfService(name, RegistryHost(host))); });
}
