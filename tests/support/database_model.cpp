// SPDX-License-Identifier: MIT
// database_model: loading, groups and the walk, each as it is told rather than as it is fast.
#include "tests/support/database_model.h"

#include "servd/service_keys.h"

#include <strings.h>

#include <algorithm>
#include <cstring>

namespace {

constexpr std::size_t growth = 50;

std::vector<std::string> StringsOf(const std::string &bytes) {
    std::vector<std::string> strings;
    for (std::size_t at = 0; at < bytes.size() && bytes[at] != '\0';) {
        strings.push_back(bytes.c_str() + at);
        at += strings.back().size() + 1;
    }
    return strings;
}

void SortGroup(ModelDatabase &model, ModelGroup &group) {
    const Value *vector = FindValue(model.tagOrder, group.name);
    if (vector == nullptr || vector->bytes.size() <= 3) return;
    std::deque<std::int32_t> rest;
    std::swap(rest, group.members);
    for (std::size_t at = 4; at + 4 <= vector->bytes.size(); at += 4) {
        std::int32_t tag = 0;
        std::memcpy(&tag, vector->bytes.data() + at, 4);
        const auto found = std::find_if(rest.begin(), rest.end(),
                                        [&](std::int32_t index) { return RecordOf(model, index).tag == tag; });
        if (found == rest.end()) continue;
        group.members.push_back(*found);
        rest.erase(found);
    }
    group.members.insert(group.members.end(), rest.begin(), rest.end());
}

bool Passes(const ModelRecord &record, std::int32_t mask) {
    const std::int32_t state = record.status.dwCurrentState;
    if ((mask & 3) == 3) return true;
    if ((mask & 1) != 0) return state >= 2 && state <= 7;
    if ((mask & 2) != 0) return state == 1;
    return false;
}

std::int32_t Walk(ModelDatabase &model, std::int32_t index, ModelWalk &walk) {
    if (walk.stepsLeft == 0) return 0;
    --walk.stepsLeft;
    ModelRecord &record = RecordOf(model, index);
    if (!record.used || record.marked) return 0;
    if (record.visiting) return 1059;
    if (record.visited) return 0;
    const ModelKey *key = FindKey(model, record.name);
    if (key == nullptr) return 2;
    const Value *value = FindValue(key->values, "DependOnGroup");
    if (value != nullptr && !value->bytes.empty()) {
        record.visiting = true;
        for (const std::string &text : StringsOf(value->bytes)) {
            std::deque<std::int32_t> next;
            if (text[0] == '+') {
                const std::size_t number = GroupNumber(model.groups, text.substr(1));
                if (number < model.groups.size()) next = model.groups[number].members;
            } else if (IndexOf(model, text) >= 0) {
                next = {IndexOf(model, text)};
            }
            for (const std::int32_t dependency : next) {
                const std::int32_t code = Walk(model, dependency, walk);
                if (code != 0 && code != 234) return code;
            }
        }
    }
    if (index == walk.root) return 0;
    record.visiting = false;
    if (!Passes(record, walk.mask)) return 0;
    record.visited = true;
    const std::int32_t size = SizeOf(record);
    walk.needed += size;
    if (size > walk.left) {
        walk.left = -1;
        return 234;
    }
    walk.list.push_front(index);
    walk.left -= size;
    ++walk.count;
    return 0;
}

} // namespace

// --- the registry ---

void WriteModel(const ModelDatabase &model) {
    if (!model.groupOrder.empty()) PutKey(groupOrderKeyPath, {{"List", AsMulti(model.groupOrder)}});
    PutKey(tagOrderKeyPath, model.tagOrder);
    PutKey(servicesKeyPath, model.servicesKeyValues);
    for (const ModelKey &key : model.services) {
        PutKey(KeyPath(key.name), key.values);
    }
}

ModelKey *FindKey(ModelDatabase &model, const std::string &name) {
    for (ModelKey &key : model.services) {
        if (strcasecmp(key.name.c_str(), name.c_str()) == 0) return &key;
    }
    return nullptr;
}

const Value *FindValue(const Values &values, const std::string &name) {
    const auto found = values.find(name);
    return found == values.end() ? nullptr : &found->second;
}

std::string UpToZero(const std::string &bytes) { return bytes.substr(0, bytes.find('\0')); }

std::string TextValue(const Values &values, const std::string &name) {
    const Value *value = FindValue(values, name);
    return value == nullptr ? "" : UpToZero(value->bytes);
}

std::uint32_t NumberValue(const Values &values, const std::string &name) {
    const Value *value = FindValue(values, name);
    std::uint32_t number = 0;
    if (value != nullptr && value->bytes.size() <= 4) std::memcpy(&number, value->bytes.data(), value->bytes.size());
    return number;
}

// --- records and groups ---

ModelRecord &RecordOf(ModelDatabase &model, std::int32_t handle) {
    return model.records[static_cast<std::size_t>(handle)];
}

std::int32_t IndexOf(const ModelDatabase &model, const std::string &name) {
    for (std::size_t i = 0; i < model.records.size(); ++i) {
        if (model.records[i].used && model.records[i].name == name) return static_cast<std::int32_t>(i);
    }
    return -1;
}

std::int32_t TakeRecord(ModelDatabase &model) {
    for (std::size_t i = 0; i < model.records.size(); ++i) {
        if (!model.records[i].used) return static_cast<std::int32_t>(i);
    }
    model.records.resize(model.records.size() + growth);
    return static_cast<std::int32_t>(model.records.size() - growth);
}

std::size_t GroupNumber(const std::vector<ModelGroup> &groups, const std::string &name) {
    std::size_t number = 0;
    while (number < groups.size() && groups[number].name != name) {
        ++number;
    }
    return number;
}

void Join(std::vector<ModelGroup> &groups, const std::string &name, std::int32_t index) {
    const std::size_t number = GroupNumber(groups, name);
    if (number == groups.size()) groups.push_back({name});
    groups[number].members.push_front(index);
}

void Leave(ModelDatabase &model, const std::vector<ModelGroup> &searched, const std::string &name, std::int32_t index) {
    const std::size_t number = GroupNumber(searched, name);
    if (number == searched.size() || number >= model.groups.size()) return;
    std::deque<std::int32_t> &members = model.groups[number].members;
    const auto found = std::find(members.begin(), members.end(), index);
    if (found != members.end()) members.erase(found);
}

void LoadModel(ModelDatabase &model) {
    std::erase_if(model.services, [](const ModelKey &key) { return key.values.contains("DeleteFlag"); });
    model.records.assign(growth, {});
    model.groups.clear();
    model.imagePaths.clear();
    for (const std::string &name : model.groupOrder) {
        model.groups.push_back({name});
    }
    std::size_t index = 0;
    std::int32_t tag = 0; // a service without one takes that of the service before it
    for (const ModelKey &key : model.services) {
        if (++index >= model.records.size()) model.records.resize(model.records.size() + growth);
        const Values &values = key.values;
        ModelRecord &record = model.records[index];
        if (values.contains("Tag")) tag = static_cast<std::int32_t>(NumberValue(values, "Tag"));
        record.used = true;
        record.name = key.name;
        record.displayName = TextValue(values, "DisplayName");
        record.type = static_cast<std::int32_t>(NumberValue(values, "Type"));
        record.tag = tag;
        record.status.dwCurrentState = 1;
        const auto number = static_cast<std::int32_t>(index);
        if (values.contains("Group")) Join(model.groups, TextValue(values, "Group"), number);
        if (values.contains("ImagePath")) Join(model.imagePaths, TextValue(values, "ImagePath"), number);
    }
    for (ModelGroup &group : model.groups) {
        SortGroup(model, group);
    }
}

// --- the walk ---

std::int32_t SizeOf(const ModelRecord &record) {
    return static_cast<std::int32_t>(record.name.size() + 1 + record.displayName.size() + 1 + 36);
}

std::int32_t WalkFrom(ModelDatabase &model, std::int32_t index, ModelWalk &walk) {
    const std::int32_t code = Walk(model, index, walk);
    for (ModelRecord &record : model.records) {
        record.visited = record.visiting = false;
    }
    return code;
}
