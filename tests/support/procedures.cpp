// SPDX-License-Identifier: MIT
// procedures: arguments built from a test's values, and replies turned into them.
#include "tests/support/procedures.h"

#include <ostream>

namespace {

// Arguments are only read, whatever their type says.
char *Chars(const std::string &text) { return const_cast<char *>(text.c_str()); }

CharArray ArrayOf(const std::string &bytes) {
    return {.count = static_cast<std::uint32_t>(bytes.size()),
            .chars = bytes.empty() ? nullptr : const_cast<char *>(bytes.data())};
}

} // namespace

bool operator==(const svd_status_t &a, const svd_status_t &b) { return Fields(a) == Fields(b); }

bool operator==(const Listed &a, const Listed &b) {
    return a.name == b.name && a.displayName == b.displayName && a.status == b.status;
}

std::ostream &operator<<(std::ostream &out, const svd_status_t &status) {
    out << '{';
    VisitFields(status, [&out](std::int32_t field) { out << ' ' << field; });
    return out << " }";
}

std::ostream &operator<<(std::ostream &out, const Listed &listed) {
    return out << listed.name << " (" << listed.displayName << ") " << listed.status;
}

std::int32_t Connect(const std::string &machineName) {
    return Call(servd_SERV_CONNECT_SERVICE{.machineName = Chars(machineName)})->status;
}

std::shared_ptr<const servd_SERV_CREATE_SERVICE_RETURN> Create(const NewService &service) {
    return Call(servd_SERV_CREATE_SERVICE{.name = Chars(service.name),
                                          .displayName = Chars(service.displayName),
                                          .serviceType = service.serviceType,
                                          .startType = service.startType,
                                          .errorControl = service.errorControl,
                                          .imagePath = Chars(service.imagePath),
                                          .group = Chars(service.group),
                                          .dependencies = ArrayOf(service.dependencies),
                                          .account = Chars(service.account),
                                          .tagWanted = service.tagWanted});
}

std::shared_ptr<const servd_SERV_OPEN_SERVICE_RETURN> Open(const std::string &name, std::uint32_t access) {
    return Call(servd_SERV_OPEN_SERVICE{.name = Chars(name), .desiredAccess = access});
}

std::int32_t Delete(std::int32_t handle) { return Call(servd_SERV_DELETE_SERVICE{.handle = handle})->status; }

std::int32_t Close(std::int32_t handle) { return Call(servd_SERV_CLOSE_SERVICE{.handle = handle})->status; }

std::int32_t Lock(std::int32_t lockId, const std::string &owner) {
    return Call(servd_SERV_LOCK_SERVICE{.lockId = lockId, .owner = Chars(owner)})->status;
}

std::int32_t Unlock(std::int32_t lockId) { return Call(servd_SERV_UNLOCK_SERVICE{.lockId = lockId})->status; }

std::shared_ptr<const servd_SERV_QUERY_LOCK_SERVICE_RETURN> QueryLock() {
    return Call(servd_SERV_QUERY_LOCK_SERVICE{.unused = 0});
}

std::int32_t Start(std::int32_t handle, const std::vector<std::string> &arguments) {
    std::vector<svd_arglist_t> links(arguments.size());
    for (std::size_t i = 0; i < links.size(); ++i) {
        links[i] = {.arg = Chars(arguments[i]), .next = i + 1 < links.size() ? &links[i + 1] : nullptr};
    }
    return Call(servd_SERV_START_SERVICE{.handle = handle,
                                         .arglist = links.empty() ? nullptr : links.data(),
                                         .argc = static_cast<std::int32_t>(links.size())})
        ->status;
}

std::shared_ptr<const servd_SERV_CONTROL_SERVICE_RETURN> Control(std::int32_t handle, std::int32_t control) {
    return Call(servd_SERV_CONTROL_SERVICE{.handle = handle, .control = control});
}

std::int32_t SetStatus(std::int32_t handle, const svd_status_t &status) {
    return Call(servd_SERV_SET_STATUS_SERVICE{.handle = handle, .serviceStatus = status})->status;
}

std::shared_ptr<const servd_SERV_QUERY_STATUS_SERVICE_RETURN> QueryStatus(std::int32_t handle) {
    return Call(servd_SERV_QUERY_STATUS_SERVICE{.handle = handle});
}

std::shared_ptr<const servd_SERV_ENUM_STATUS_SERVICE_RETURN>
EnumStatus(std::int32_t resumeIndex, std::int32_t typeFilter, std::int32_t stateFilter, std::int32_t bufferBytes) {
    return Call(servd_SERV_ENUM_STATUS_SERVICE{
        .resumeIndex = resumeIndex, .typeFilter = typeFilter, .stateFilter = stateFilter, .bufferBytes = bufferBytes});
}

std::shared_ptr<const servd_SERV_ENUM_DEPEND_SERVICE_RETURN> EnumDepend(std::int32_t handle, std::int32_t stateFilter,
                                                                        std::int32_t bufferBytes) {
    return Call(
        servd_SERV_ENUM_DEPEND_SERVICE{.handle = handle, .stateFilter = stateFilter, .bufferBytes = bufferBytes});
}

std::shared_ptr<const servd_SERV_GET_DISPLAY_SERVICE_RETURN> GetDisplay(const std::string &name) {
    return Call(servd_SERV_GET_DISPLAY_SERVICE{.name = Chars(name)});
}

std::shared_ptr<const servd_SERV_GET_KEY_SERVICE_RETURN> GetKey(const std::string &displayName) {
    return Call(servd_SERV_GET_KEY_SERVICE{.displayName = Chars(displayName)});
}

std::shared_ptr<const servd_SERV_QUERY_CONFIG_SERVICE_RETURN> QueryConfig(std::int32_t handle) {
    return Call(servd_SERV_QUERY_CONFIG_SERVICE{.handle = handle});
}

std::shared_ptr<const servd_SERV_CHANGE_CONFIG_SERVICE_RETURN> ChangeConfig(const Change &change) {
    return Call(servd_SERV_CHANGE_CONFIG_SERVICE{.handle = change.handle,
                                                 .serviceType = change.serviceType,
                                                 .startType = change.startType,
                                                 .errorControl = change.errorControl,
                                                 .imagePath = ArrayOf(change.imagePath),
                                                 .group = ArrayOf(change.group),
                                                 .dependencies = ArrayOf(change.dependencies),
                                                 .account = ArrayOf(change.account),
                                                 .password = ArrayOf(change.password),
                                                 .displayName = ArrayOf(change.displayName),
                                                 .tagWanted = change.tagWanted});
}

std::string BytesOf(const CharArray &array) {
    return array.count == 0 ? std::string() : std::string(array.chars, array.count);
}

std::vector<Listed> EntriesOf(const svd_enum_status_list_t *list) {
    std::vector<Listed> entries;
    for (; list != nullptr; list = list->next) {
        entries.push_back({list->name, list->displayName, list->status});
    }
    return entries;
}

std::vector<std::string> NamesOf(const svd_enum_status_list_t *list) {
    std::vector<std::string> names;
    for (const Listed &entry : EntriesOf(list)) {
        names.push_back(entry.name);
    }
    return names;
}
