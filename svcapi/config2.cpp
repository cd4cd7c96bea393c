// SPDX-License-Identifier: MIT
// config2: the values behind ChangeServiceConfig2 and QueryServiceConfig2.
#include "svcapi/config2.h"

#include "registry/key.h"
#include "servd/service_keys.h"
#include "svcapi/handles.h"
#include "svcapi/key_values.h"
#include "svcapi/last_error.h"
#include "svcapi/text_behind.h"
#include "util/multi_string.h"
#include "util/string_list.h"

#include <algorithm>
#include <cstring>
#include <mutex>

namespace {

// The parts that are one number, whose record is that number.
struct NumberPart {
    DWORD level;
    const char *name;
    DWORD whenAbsent;
    bool isFlag; // written as 0 or 1
};
constexpr NumberPart numberParts[] = {
    {SERVICE_CONFIG_DELAYED_AUTO_START_INFO, delayedAutoStartName, 0, true},
    {SERVICE_CONFIG_FAILURE_ACTIONS_FLAG, failureActionsFlagName, 0, true},
    {SERVICE_CONFIG_SERVICE_SID_INFO, sidTypeName, SERVICE_SID_TYPE_NONE, false},
    {SERVICE_CONFIG_PRESHUTDOWN_INFO, preshutdownTimeoutName, 180'000, false},
};
static_assert(sizeof(SERVICE_DELAYED_AUTO_START_INFO) == sizeof(DWORD) &&
              sizeof(SERVICE_FAILURE_ACTIONS_FLAG) == sizeof(DWORD) && sizeof(SERVICE_SID_INFO) == sizeof(DWORD) &&
              sizeof(SERVICE_PRESHUTDOWN_INFO) == sizeof(DWORD));

const NumberPart *FindNumberPart(DWORD level) {
    const auto *const found = std::find_if(std::begin(numberParts), std::end(numberParts),
                                           [&](const NumberPart &part) { return part.level == level; });
    return found != std::end(numberParts) ? found : nullptr;
}

// The records of the parts that hold strings.
struct NarrowRecords {
    using Description = SERVICE_DESCRIPTIONA;
    using Actions = SERVICE_FAILURE_ACTIONSA;
    using Privileges = SERVICE_REQUIRED_PRIVILEGES_INFOA;
};
struct WideRecords {
    using Description = SERVICE_DESCRIPTIONW;
    using Actions = SERVICE_FAILURE_ACTIONSW;
    using Privileges = SERVICE_REQUIRED_PRIVILEGES_INFOW;
};

// --- the service's key ---

// The registry client must not be entered by two threads before its first call has ended.
std::mutex &RegistryGuard() {
    static std::mutex &guard = *new std::mutex; // threads may outlive main
    return guard;
}

// Opens a key in the registry of a daemon's machine; the caller closes it.
LONG OpenKeyOn(const DaemonLink &link, const std::string &path, HKEY *key) {
    if (IsThisMachine(link.host)) return RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_ALL_ACCESS, key);
    HKEY root = 0;
    LONG rc = RegConnectRegistryA(link.host.c_str(), HKEY_LOCAL_MACHINE, &root);
    if (rc != ERROR_SUCCESS) return rc;
    rc = RegOpenKeyExA(root, path.c_str(), 0, KEY_ALL_ACCESS, key);
    (void)RegCloseKey(root); // it was only the way to the key
    return rc;
}

// Opens a service's key. 1072 when it is gone.
DWORD OpenKeyOf(const DaemonLink &link, const std::string &name, HKEY *key) {
    const std::string path = std::string(servicesKeyPath) + '\\' + name;
    LONG rc = OpenKeyOn(link, path, key);
    // A connection that a restart of the registry daemon has broken costs one operation.
    if (rc == ERROR_REGISTRY_IO_FAILED) rc = OpenKeyOn(link, path, key);
    return rc == ERROR_FILE_NOT_FOUND ? DWORD{ERROR_SERVICE_MARKED_FOR_DELETE} : static_cast<DWORD>(rc);
}

// Does something with the key of an open service.
template <typename Use>
DWORD WithServiceKey(SC_HANDLE service, Use use) {
    HandleCall call;
    DWORD rc = BeginServiceCall(service, &call);
    if (rc != ERROR_SUCCESS) return rc;
    const std::lock_guard<std::mutex> locked(RegistryGuard());
    HKEY key = 0;
    rc = OpenKeyOf(*call.handle->link, call.handle->name, &key);
    if (rc != ERROR_SUCCESS) return rc;
    const KeyGuard closed(&key);
    return use(key);
}

// --- changing ---

// Null leaves a text alone, "" takes it away.
DWORD ChangeText(HKEY key, const char *name, LPCSTR text) {
    if (text == nullptr) return ERROR_SUCCESS;
    return *text != '\0' ? WriteTextValue(key, name, text) : RemoveValue(key, name);
}

DWORD WriteActions(HKEY key, const SERVICE_FAILURE_ACTIONSA &info) {
    if (info.lpsaActions == nullptr) return ERROR_SUCCESS;
    if (info.cActions == 0) return RemoveValue(key, failureActionsName);
    const FailureActionsValue value = {info.dwResetPeriod, {info.lpsaActions, info.lpsaActions + info.cActions}};
    return WriteBytesValue(key, failureActionsName, PackFailureActions(value));
}

// The number that a caller has put there, which need not be one of the type's.
DWORD TypeOf(const SC_ACTION &action) {
    DWORD type = 0;
    static_assert(sizeof type == sizeof action.Type);
    std::memcpy(&type, &action.Type, sizeof type);
    return type;
}

bool IsValid(const SERVICE_FAILURE_ACTIONSA &info) {
    return info.lpsaActions == nullptr ||
           (info.cActions <= mostFailureActions &&
            std::all_of(info.lpsaActions, info.lpsaActions + info.cActions,
                        [](const SC_ACTION &action) { return TypeOf(action) <= SC_ACTION_RUN_COMMAND; }));
}

DWORD ChangeFailureActions(HKEY key, const SERVICE_FAILURE_ACTIONSA &info) {
    if (!IsValid(info)) return ERROR_INVALID_PARAMETER;
    DWORD rc = WriteActions(key, info);
    if (rc == ERROR_SUCCESS) rc = ChangeText(key, rebootMessageName, info.lpRebootMsg);
    return rc == ERROR_SUCCESS ? ChangeText(key, failureCommandName, info.lpCommand) : rc;
}

DWORD ChangePrivileges(HKEY key, LPCSTR multiString) {
    if (multiString == nullptr) return RemoveValue(key, requiredPrivilegesName);
    const std::size_t bytes = MultiStringBytes(multiString);
    return WriteStringsValue(key, requiredPrivilegesName, SplitMultiString({multiString, bytes}));
}

DWORD ChangeNumber(HKEY key, const NumberPart &part, DWORD number) {
    if (part.level == SERVICE_CONFIG_SERVICE_SID_INFO && number != SERVICE_SID_TYPE_NONE &&
        number != SERVICE_SID_TYPE_UNRESTRICTED && number != SERVICE_SID_TYPE_RESTRICTED) {
        return ERROR_INVALID_PARAMETER;
    }
    return WriteNumberValue(key, part.name, part.isFlag ? DWORD{number != 0} : number);
}

DWORD ChangePart(HKEY key, DWORD level, LPCVOID info) {
    switch (level) {
    case SERVICE_CONFIG_DESCRIPTION:
        return ChangeText(key, descriptionName, static_cast<const SERVICE_DESCRIPTIONA *>(info)->lpDescription);
    case SERVICE_CONFIG_FAILURE_ACTIONS:
        return ChangeFailureActions(key, *static_cast<const SERVICE_FAILURE_ACTIONSA *>(info));
    case SERVICE_CONFIG_REQUIRED_PRIVILEGES_INFO:
        return ChangePrivileges(key,
                                static_cast<const SERVICE_REQUIRED_PRIVILEGES_INFOA *>(info)->pmszRequiredPrivileges);
    default: return ChangeNumber(key, *FindNumberPart(level), *static_cast<const DWORD *>(info));
    }
}

bool IsLevel(DWORD level) {
    return level == SERVICE_CONFIG_DESCRIPTION || level == SERVICE_CONFIG_FAILURE_ACTIONS ||
           level == SERVICE_CONFIG_REQUIRED_PRIVILEGES_INFO || FindNumberPart(level) != nullptr;
}

// --- reading ---

// Where the caller wants a record.
struct RecordBuffer {
    LPBYTE bytes;
    DWORD room;
    LPDWORD needed;
};

// The beginning of the buffer as a record, if there is room for so many bytes; *buffer.needed is set in any case.
template <typename Record>
DWORD MakeRoom(const RecordBuffer &buffer, std::size_t bytes, Record **record) {
    *buffer.needed = static_cast<DWORD>(bytes);
    if (buffer.room < bytes) return ERROR_INSUFFICIENT_BUFFER;
    *record = reinterpret_cast<Record *>(buffer.bytes);
    return ERROR_SUCCESS;
}

// A text that is not there takes no room, and its pointer is null.
template <typename Char>
std::size_t OptionalBytes(const std::string &text) {
    return text.empty() ? 0 : TextBytes<Char>(text);
}
template <typename Char>
Char *PutOptional(const std::string &text, Char **end) {
    return text.empty() ? nullptr : PutText(text, end);
}

template <typename Record>
DWORD QueryDescription(HKEY key, const RecordBuffer &buffer) {
    using Char = CharOf<decltype(Record::lpDescription)>;
    std::string description;
    DWORD rc = ReadDescription(key, &description);
    Record *record = nullptr;
    if (rc == ERROR_SUCCESS) rc = MakeRoom(buffer, sizeof *record + OptionalBytes<Char>(description), &record);
    if (rc != ERROR_SUCCESS) return rc;
    auto *end = reinterpret_cast<Char *>(record + 1);
    record->lpDescription = PutOptional(description, &end);
    return ERROR_SUCCESS;
}

template <typename Record>
DWORD QueryFailureActions(HKEY key, const RecordBuffer &buffer) {
    using Char = CharOf<decltype(Record::lpCommand)>;
    KeptFailureActions found;
    DWORD rc = ReadFailureActions(key, &found);
    Record *record = nullptr;
    const std::size_t bytes = sizeof *record + found.value.actions.size() * sizeof(SC_ACTION) +
                              OptionalBytes<Char>(found.rebootMessage) + OptionalBytes<Char>(found.command);
    if (rc == ERROR_SUCCESS) rc = MakeRoom(buffer, bytes, &record);
    if (rc != ERROR_SUCCESS) return rc;
    auto *const actions = reinterpret_cast<SC_ACTION *>(record + 1);
    auto *end = reinterpret_cast<Char *>(actions + found.value.actions.size());
    record->dwResetPeriod = found.value.resetPeriodSec;
    record->cActions = static_cast<DWORD>(found.value.actions.size());
    record->lpsaActions = found.value.actions.empty() ? nullptr : actions;
    std::copy(found.value.actions.begin(), found.value.actions.end(), actions);
    record->lpRebootMsg = PutOptional(found.rebootMessage, &end);
    record->lpCommand = PutOptional(found.command, &end);
    return ERROR_SUCCESS;
}

template <typename Record>
DWORD QueryPrivileges(HKEY key, const RecordBuffer &buffer) {
    using Char = CharOf<decltype(Record::pmszRequiredPrivileges)>;
    std::vector<std::string> privileges;
    DWORD rc = ReadRequiredPrivileges(key, &privileges);
    // Behind the list its last terminator, which the text brings along.
    std::string list = privileges.empty() ? "" : JoinMultiString(privileges);
    if (!list.empty()) list.pop_back();
    Record *record = nullptr;
    if (rc == ERROR_SUCCESS) rc = MakeRoom(buffer, sizeof *record + OptionalBytes<Char>(list), &record);
    if (rc != ERROR_SUCCESS) return rc;
    auto *end = reinterpret_cast<Char *>(record + 1);
    record->pmszRequiredPrivileges = PutOptional(list, &end);
    return ERROR_SUCCESS;
}

DWORD QueryNumber(HKEY key, const NumberPart &part, const RecordBuffer &buffer) {
    DWORD number = part.whenAbsent;
    DWORD rc = ReadNumberValue(key, part.name, &number);
    DWORD *record = nullptr;
    if (rc == ERROR_SUCCESS) rc = MakeRoom(buffer, sizeof *record, &record);
    if (rc == ERROR_SUCCESS) *record = part.isFlag ? DWORD{number != 0} : number;
    return rc;
}

template <typename Records>
DWORD QueryPart(HKEY key, DWORD level, const RecordBuffer &buffer) {
    switch (level) {
    case SERVICE_CONFIG_DESCRIPTION: return QueryDescription<typename Records::Description>(key, buffer);
    case SERVICE_CONFIG_FAILURE_ACTIONS: return QueryFailureActions<typename Records::Actions>(key, buffer);
    case SERVICE_CONFIG_REQUIRED_PRIVILEGES_INFO: return QueryPrivileges<typename Records::Privileges>(key, buffer);
    default: return QueryNumber(key, *FindNumberPart(level), buffer);
    }
}

template <typename Records>
BOOL QueryConfig2(SC_HANDLE service, DWORD level, const RecordBuffer &buffer) {
    if (!IsLevel(level)) return Succeeded(ERROR_INVALID_LEVEL);
    if (buffer.needed == nullptr || (buffer.bytes == nullptr && buffer.room != 0)) {
        return Succeeded(ERROR_INVALID_PARAMETER);
    }
    return Succeeded(WithServiceKey(service, [&](HKEY key) { return QueryPart<Records>(key, level, buffer); }));
}

} // namespace

DWORD ReadDescription(HKEY service, std::string *description) {
    return ReadTextValue(service, descriptionName, description);
}

DWORD ReadFailureActions(HKEY service, KeptFailureActions *actions) {
    std::string bytes;
    DWORD rc = ReadBytesValue(service, failureActionsName, &bytes);
    if (rc == ERROR_SUCCESS) rc = ReadTextValue(service, rebootMessageName, &actions->rebootMessage);
    if (rc == ERROR_SUCCESS) rc = ReadTextValue(service, failureCommandName, &actions->command);
    if (rc != ERROR_SUCCESS || bytes.empty()) return rc;
    return UnpackFailureActions(bytes, &actions->value) ? DWORD{ERROR_SUCCESS} : DWORD{ERROR_INVALID_DATA};
}

DWORD ReadFailureActionsFlag(HKEY service, DWORD *alsoWithoutCrash) {
    return ReadNumberValue(service, failureActionsFlagName, alsoWithoutCrash);
}

DWORD ReadRequiredPrivileges(HKEY service, std::vector<std::string> *privileges) {
    return ReadStringsValue(service, requiredPrivilegesName, privileges);
}

BOOL ChangeServiceConfig2A(SC_HANDLE hService, DWORD dwInfoLevel, LPVOID lpInfo) {
    if (!IsLevel(dwInfoLevel)) return Succeeded(ERROR_INVALID_LEVEL);
    return Succeeded(WithServiceKey(
        hService, [&](HKEY key) { return lpInfo != nullptr ? ChangePart(key, dwInfoLevel, lpInfo) : DWORD{0}; }));
}

BOOL ChangeServiceConfig2W(SC_HANDLE hService, DWORD dwInfoLevel, LPVOID lpInfo) {
    NarrowArguments narrow;
    SERVICE_DESCRIPTIONA description = {};
    SERVICE_FAILURE_ACTIONSA actions = {};
    SERVICE_REQUIRED_PRIVILEGES_INFOA privileges = {};
    LPVOID info = lpInfo; // of a level without strings
    if (lpInfo != nullptr && dwInfoLevel == SERVICE_CONFIG_DESCRIPTION) {
        description = {Narrow(&narrow, static_cast<const SERVICE_DESCRIPTIONW *>(lpInfo)->lpDescription)};
        info = &description;
    } else if (lpInfo != nullptr && dwInfoLevel == SERVICE_CONFIG_FAILURE_ACTIONS) {
        const auto &wide = *static_cast<const SERVICE_FAILURE_ACTIONSW *>(lpInfo);
        actions = {wide.dwResetPeriod, Narrow(&narrow, wide.lpRebootMsg), Narrow(&narrow, wide.lpCommand),
                   wide.cActions, wide.lpsaActions};
        info = &actions;
    } else if (lpInfo != nullptr && dwInfoLevel == SERVICE_CONFIG_REQUIRED_PRIVILEGES_INFO) {
        const auto &wide = *static_cast<const SERVICE_REQUIRED_PRIVILEGES_INFOW *>(lpInfo);
        privileges = {NarrowMultiString(&narrow, wide.pmszRequiredPrivileges)};
        info = &privileges;
    }
    return narrow.code != ERROR_SUCCESS ? Succeeded(narrow.code) : ChangeServiceConfig2A(hService, dwInfoLevel, info);
}

BOOL QueryServiceConfig2A(SC_HANDLE hService, DWORD dwInfoLevel, LPBYTE lpBuffer, DWORD cbBufSize,
                          LPDWORD pcbBytesNeeded) {
    return QueryConfig2<NarrowRecords>(hService, dwInfoLevel, {lpBuffer, cbBufSize, pcbBytesNeeded});
}

BOOL QueryServiceConfig2W(SC_HANDLE hService, DWORD dwInfoLevel, LPBYTE lpBuffer, DWORD cbBufSize,
                          LPDWORD pcbBytesNeeded) {
    return QueryConfig2<WideRecords>(hService, dwInfoLevel, {lpBuffer, cbBufSize, pcbBytesNeeded});
}
