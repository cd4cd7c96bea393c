// SPDX-License-Identifier: MIT
// model: the rules, one function a procedure.
#include "tests/handlers/model.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

void RemoveServiceKey(Model &model, const std::string &name) {
    std::erase_if(model.services, [&](const ModelKey &key) { return key.name == name; });
}

bool IsHandle(const Model &model, std::int32_t handle) {
    return handle >= 0 && handle < static_cast<std::int32_t>(model.records.size()) &&
           model.records[static_cast<std::size_t>(handle)].used;
}

// --- deadline ---

// Hints are so long, either way, that no test lives to see one of them pass.
bool IsOverdue(const ModelRecord &record) { return record.status.dwWaitHint < 0; }

void FindDead(ModelRecord &record) {
    record.status.dwCurrentState = 1;
    record.status.dwWin32ExitCode = 1067;
    record.status.dwCheckPoint = 0;
    record.status.dwWaitHint = 0;
}

// --- dependencies ---

std::int32_t CheckDependencies(Model &model, std::int32_t index) {
    ModelWalk walk = {.root = index, .mask = 3, .left = 0};
    const std::int32_t code = WalkFrom(model, index, walk);
    return code == 234 ? 0 : code;
}

std::string LineOf(const std::vector<Listed> &list) {
    std::ostringstream line;
    for (const Listed &entry : list) {
        line << entry << ';';
    }
    return line.str();
}

Listed AsListed(const ModelRecord &record) { return {record.name, record.displayName, record.status}; }

bool IsAccount(const std::string &name) { return name.empty() || name == "root" || name == "daemon"; }

// --- tags ---

std::uint32_t CountUp(Model &model, const std::string &group) {
    const auto found = model.tagOrder.find(group);
    if (found == model.tagOrder.end()) {
        model.tagOrder[group] = AsBinary(Words({1}));
        return 1;
    }
    std::string &bytes = found->second.bytes;
    std::uint32_t count = 0;
    std::memcpy(&count, bytes.data(), std::min<std::size_t>(4, bytes.size()));
    ++count;
    std::memcpy(bytes.data(), &count, std::min<std::size_t>(4, bytes.size()));
    return count;
}

} // namespace

// --- start of the daemon ---

void StartModel(Model &model) {
    LoadModel(model);
    model.lockId = 0;
}

// --- handles and lock ---

std::string Connect(Model &) { return Line(0); }

std::string Open(Model &model, const std::string &name) {
    const std::int32_t index = IndexOf(model, name);
    if (index < 0 || RecordOf(model, index).marked) return Line(1060, 0);
    ++RecordOf(model, index).openCount;
    return Line(0, index);
}

std::string Close(Model &model, std::int32_t handle) {
    if (!IsHandle(model, handle)) return Line(6);
    ModelRecord &record = RecordOf(model, handle);
    if (record.openCount == 0) return Line(6);
    --record.openCount;
    if (record.marked && record.openCount == 0 && record.status.dwCurrentState == 1) {
        RemoveServiceKey(model, record.name);
        record.used = record.marked = false;
        record.displayName.clear();
    }
    return Line(0);
}

std::string Delete(Model &model, std::int32_t handle) {
    if (!IsHandle(model, handle)) return Line(6);
    ModelRecord &record = RecordOf(model, handle);
    if (record.marked) return Line(1072);
    record.marked = true;
    if (ModelKey *key = FindKey(model, record.name)) key->values["DeleteFlag"] = AsNumber(1);
    const Values &read = model.servicesKeyValues;
    if (read.contains("Group")) Leave(model, model.groups, TextValue(read, "Group"), handle);
    if (read.contains("ImagePath")) Leave(model, model.imagePaths, TextValue(read, "ImagePath"), handle);
    return Line(0);
}

std::string Lock(Model &model, std::int32_t lockId, const std::string &owner) {
    if (lockId == 0) return Line(6);
    if (model.lockId != 0) return Line(1055);
    model.lockId = lockId;
    model.lockOwner = owner;
    model.lockedAt = std::chrono::steady_clock::now();
    return Line(0);
}

std::string Unlock(Model &model, std::int32_t lockId) {
    if (lockId != model.lockId) return Line(1071);
    model.lockId = 0;
    return Line(0);
}

std::string QueryLock(Model &model, std::int32_t observedDuration) {
    if (model.lockId != 0) {
        const auto age = std::chrono::steady_clock::now() - model.lockedAt;
        const auto seconds = static_cast<std::int32_t>(std::chrono::duration_cast<std::chrono::seconds>(age).count());
        model.replies.lockOwner = model.lockOwner;
        model.replies.lockDuration = std::abs(observedDuration - seconds) <= 1 ? observedDuration : seconds;
    }
    return Line(0, model.lockId != 0, model.replies.lockOwner, model.replies.lockDuration);
}

// --- start, control, status ---

std::string Start(Model &model, std::int32_t handle) {
    if (model.lockId != 0) return Line(1055);
    if (!IsHandle(model, handle)) return Line(6);
    ModelRecord &record = RecordOf(model, handle);
    if (record.marked) return Line(1072);
    if (record.status.dwCurrentState != 1 && !IsOverdue(record)) return Line(1056);
    ModelWalk walk = {.root = handle, .mask = 2, .left = 0};
    const std::int32_t code = WalkFrom(model, handle, walk);
    const bool refused = code != 0 && code != 234;
    if (!refused && walk.needed == 0) return "";
    if (record.status.dwCurrentState != 1) FindDead(record);
    return Line(refused ? 6 : 1068);
}

std::string Control(Model &model, std::int32_t handle, std::int32_t control) {
    svd_status_t &shown = model.replies.controlled;
    if (!IsHandle(model, handle)) return Line(6, shown);
    ModelRecord &record = RecordOf(model, handle);
    const std::int32_t state = record.status.dwCurrentState;
    const std::int32_t accepted = record.status.dwControlsAccepted;
    shown.dwCurrentState = state;
    shown.dwControlsAccepted = accepted;
    if (state == 1) return Line(1062, shown);
    if ((control < 1 || control > 4) && (control < 128 || control > 255)) return Line(1052, shown);
    if (state == 3) return Line(1061, shown);
    if (state == 2 && control != 1) return Line(1061, shown);
    if (control == 1 && (accepted & 1) == 0) return Line(1052, shown);
    if ((control == 2 || control == 3) && (accepted & 2) == 0) return Line(1052, shown);
    if (IsOverdue(record)) {
        FindDead(record);
        shown = record.status;
        return Line(1061, shown);
    }
    return Line(1053, shown); // no process to ask
}

std::string SetStatus(Model &model, std::int32_t handle, const svd_status_t &status) {
    if (!IsHandle(model, handle)) return Line(6);
    RecordOf(model, handle).status = status;
    return Line(0);
}

std::string QueryStatus(Model &model, std::int32_t handle) {
    if (!IsHandle(model, handle)) return Line(6, model.replies.queried);
    ModelRecord &record = RecordOf(model, handle);
    if (IsOverdue(record)) FindDead(record);
    model.replies.queried = record.status;
    return Line(0, record.status);
}

// --- lists and names ---

static bool IsOfType(std::int32_t type, std::int32_t filter) {
    if ((filter & 0x30) != 0) return (type & 0x30) != 0;
    return (filter & 0x0B) != 0 && (type & 0x03) != 0;
}

static bool IsInState(std::int32_t state, std::int32_t filter) {
    return ((filter & 1) != 0 && state >= 2 && state <= 7) || ((filter & 2) != 0 && state == 1);
}

std::string EnumStatus(Model &model, std::int32_t resumeIndex, std::int32_t typeFilter, std::int32_t stateFilter,
                       std::int32_t bufferBytes) {
    if (resumeIndex < 0 || resumeIndex >= static_cast<std::int32_t>(model.records.size())) {
        return Line(87) + model.replies.enumeration;
    }
    std::int32_t remaining = bufferBytes;
    std::int32_t matched = 0;
    std::int32_t returned = 0;
    std::int32_t needed = 0;
    std::int32_t resume = -1;
    std::vector<Listed> list;
    for (std::size_t i = 1; i < model.records.size(); ++i) {
        const ModelRecord &record = model.records[i];
        if (!record.used || record.marked || !IsOfType(record.type, typeFilter) ||
            !IsInState(record.status.dwCurrentState, stateFilter)) {
            continue;
        }
        if (++matched <= resumeIndex) continue;
        const std::int32_t size = SizeOf(record);
        if (size > remaining) {
            if (resume < 0) resume = matched - 1;
            needed += size;
            remaining = 0;
        } else {
            remaining -= size;
            ++returned;
            list.push_back(AsListed(record));
        }
    }
    model.replies.enumeration = Line(needed, returned, std::max(resume, 0), LineOf(list));
    return Line(0) + model.replies.enumeration;
}

std::string EnumDepend(Model &model, std::int32_t handle, std::int32_t stateFilter, std::int32_t bufferBytes) {
    if (handle < 0 || handle >= static_cast<std::int32_t>(model.records.size())) return Line(6, 0, 0, "");
    const ModelRecord &record = RecordOf(model, handle);
    if (!record.used) return Line(0, 0, 0, "");
    const ModelKey *key = FindKey(model, record.name);
    const Value *value = FindValue(key->values, "DependOnGroup");
    if (value == nullptr || value->bytes.empty()) return Line(0, 0, 0, "");
    ModelWalk walk = {.root = handle, .mask = stateFilter, .left = bufferBytes};
    std::int32_t code = WalkFrom(model, handle, walk);
    if ((code == 0 || code == 234) && walk.left == -1 && walk.needed > 0) code = 234;
    std::vector<Listed> list;
    for (const std::int32_t index : walk.list) {
        list.push_back(AsListed(RecordOf(model, index)));
    }
    return Line(code, walk.needed, walk.count, LineOf(list));
}

std::string GetDisplay(Model &model, const std::string &name) {
    const std::int32_t index = IndexOf(model, name);
    return index < 0 ? Line(1060, "") : Line(0, RecordOf(model, index).displayName);
}

std::string GetKey(Model &model, const std::string &displayName) {
    for (const ModelRecord &record : model.records) {
        if (record.used && record.displayName == displayName) return Line(0, record.name);
    }
    return Line(1060, "");
}

// --- configuration ---

std::string Create(Model &model, const NewService &wanted) {
    std::uint32_t &tag = model.replies.createdTag;
    if (wanted.name.empty() || FindKey(model, wanted.name) != nullptr) return Line(1073, 0, tag);
    if (!IsAccount(wanted.account)) return Line(1057, 0, tag);
    model.services.push_back({wanted.name});
    const std::int32_t index = TakeRecord(model);
    ModelRecord &record = RecordOf(model, index);
    record.used = true;
    record.name = wanted.name;
    if (wanted.dependencies.size() > 1) {
        model.services.back().values["DependOnGroup"] = {REG_MULTI_SZ, wanted.dependencies};
    }
    if (!wanted.group.empty()) Join(model.groups, wanted.group, index);
    const std::int32_t code = CheckDependencies(model, index);
    if (code != 0) {
        if (!wanted.group.empty()) Leave(model, model.groups, wanted.group, index);
        record.used = false;
        model.services.pop_back();
        return Line(code, 0, tag);
    }
    ++record.openCount;
    record.displayName = wanted.displayName;
    record.type = static_cast<std::int32_t>(wanted.serviceType);
    record.status.dwCurrentState = 1;
    Values &values = model.services.back().values;
    values["DisplayName"] = AsText(wanted.displayName);
    values["Type"] = AsNumber(wanted.serviceType);
    values["Start"] = AsNumber(wanted.startType);
    values["ErrorControl"] = AsNumber(wanted.errorControl);
    if (!wanted.imagePath.empty()) Join(model.imagePaths, wanted.group, index);
    values["ImagePath"] = AsText(wanted.imagePath);
    if (!wanted.group.empty()) values["Group"] = AsText(wanted.group);
    if (wanted.tagWanted != 0) {
        tag = CountUp(model, wanted.group);
        values["Tag"] = AsNumber(tag);
    }
    if (!wanted.account.empty()) values["DependOnService"] = AsText(wanted.account);
    return Line(0, index, tag);
}

std::string QueryConfig(Model &model, std::int32_t handle) {
    if (!IsHandle(model, handle)) {
        model.replies.configStatus = 6;
    } else {
        const ModelRecord &record = RecordOf(model, handle);
        const Values &values = FindKey(model, record.name)->values;
        const Value *dependencies = FindValue(values, "DependOnGroup");
        model.replies.config =
            Line(static_cast<std::uint32_t>(record.type), NumberValue(values, "Start"),
                 NumberValue(values, "ErrorControl"), TextValue(values, "ImagePath"), TextValue(values, "Group"),
                 record.tag, dependencies == nullptr ? "" : dependencies->bytes, TextValue(values, "DependOnService"),
                 record.displayName);
    }
    return Line(model.replies.configStatus) + model.replies.config;
}

std::string ChangeConfig(Model &model, const Change &change) {
    std::int32_t &tag = model.replies.changedTag;
    if (!IsHandle(model, change.handle)) return Line(6, tag);
    ModelRecord &record = RecordOf(model, change.handle);
    if (record.marked) return Line(1072, tag);
    if (!change.displayName.empty()) {
        for (std::size_t i = 0; i < model.records.size(); ++i) {
            const bool same = model.records[i].used && model.records[i].displayName == UpToZero(change.displayName);
            if (same && static_cast<std::int32_t>(i) != change.handle) return Line(52, tag);
        }
    }
    if (!IsAccount(UpToZero(change.account))) return Line(1057, tag);
    Values &values = FindKey(model, record.name)->values;
    if (!change.group.empty() || !change.dependencies.empty()) {
        const Values before = values;
        if (!change.dependencies.empty()) values["DependOnGroup"] = {REG_MULTI_SZ, change.dependencies};
        const std::string newGroup = UpToZero(change.group);
        const bool hadGroup = values.contains("Group");
        const std::string oldGroup = TextValue(values, "Group");
        if (!change.group.empty()) {
            if (hadGroup) Leave(model, model.groups, oldGroup, change.handle);
            Join(model.groups, newGroup, change.handle);
        }
        const std::int32_t code = CheckDependencies(model, change.handle);
        if (code != 0) {
            if (!change.group.empty()) {
                Leave(model, model.groups, newGroup, change.handle);
                if (hadGroup) Join(model.groups, oldGroup, change.handle);
            }
            const bool rewritten = !change.dependencies.empty() && before.contains("DependOnGroup");
            values = before;
            if (rewritten) values["DependOnGroup"].type = REG_MULTI_SZ;
            return Line(code, tag);
        }
    }
    if (change.serviceType != 0xFFFFFFFF) {
        record.type = static_cast<std::int32_t>(change.serviceType);
        values["Type"] = AsNumber(change.serviceType);
    }
    if (change.startType != 0xFFFFFFFF) values["Start"] = AsNumber(change.startType);
    values["ErrorControl"] = AsNumber(change.errorControl);
    if (!change.imagePath.empty()) {
        if (values.contains("ImagePath")) {
            Leave(model, model.imagePaths, TextValue(values, "ImagePath"), change.handle);
        }
        Join(model.imagePaths, UpToZero(change.imagePath), change.handle);
        values["ImagePath"] = {REG_SZ, change.imagePath};
    }
    if (!change.account.empty()) values["DependOnService"] = {REG_SZ, change.account};
    if (!change.displayName.empty()) {
        values["DisplayName"] = {REG_SZ, change.displayName};
        record.displayName = UpToZero(change.displayName);
    }
    if (!change.group.empty()) values["Group"] = {REG_SZ, change.group};
    if (change.tagWanted != 0) {
        tag = record.tag != 0 ? record.tag : static_cast<std::int32_t>(CountUp(model, TextValue(values, "Group")));
        values["Tag"] = AsNumber(static_cast<DWORD>(tag));
    }
    return Line(0, tag);
}

// --- replies ---

static std::string LineOf(const svd_enum_status_list_t *list) { return LineOf(EntriesOf(list)); }

std::string LineOf(const servd_SERV_CREATE_SERVICE_RETURN &reply) {
    return Line(reply.status, reply.handle, reply.tag);
}

std::string LineOf(const servd_SERV_OPEN_SERVICE_RETURN &reply) { return Line(reply.status, reply.handle); }

std::string LineOf(const servd_SERV_QUERY_LOCK_SERVICE_RETURN &reply) {
    return Line(reply.status, reply.isLocked, reply.owner, reply.lockDurationSec);
}

std::string LineOf(const servd_SERV_CONTROL_SERVICE_RETURN &reply) { return Line(reply.status, reply.serviceStatus); }

std::string LineOf(const servd_SERV_QUERY_STATUS_SERVICE_RETURN &reply) {
    return Line(reply.status, reply.serviceStatus);
}

std::string LineOf(const servd_SERV_ENUM_STATUS_SERVICE_RETURN &reply) {
    return Line(reply.status, reply.bytesNeeded, reply.servicesReturned, reply.resumeIndex, LineOf(reply.services));
}

std::string LineOf(const servd_SERV_ENUM_DEPEND_SERVICE_RETURN &reply) {
    return Line(reply.status, reply.bytesNeeded, reply.servicesReturned, LineOf(reply.services));
}

std::string LineOf(const servd_SERV_GET_DISPLAY_SERVICE_RETURN &reply) { return Line(reply.status, reply.displayName); }

std::string LineOf(const servd_SERV_GET_KEY_SERVICE_RETURN &reply) { return Line(reply.status, reply.name); }

std::string LineOf(const servd_SERV_QUERY_CONFIG_SERVICE_RETURN &reply) {
    return Line(reply.status, reply.serviceType, reply.startType, reply.errorControl, reply.imagePath, reply.group,
                reply.tag, BytesOf(reply.dependencies), reply.account, reply.displayName);
}

std::string LineOf(const servd_SERV_CHANGE_CONFIG_SERVICE_RETURN &reply) { return Line(reply.status, reply.tag); }
