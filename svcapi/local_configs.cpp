// SPDX-License-Identifier: MIT
// local_configs: in batches, the keys of a batch first and then their values: a value needs its key's handle.
#include "svcapi/local_configs.h"

#include "registry/key.h"
#include "registry/pipeline.h"
#include "servd/service_keys.h"
#include "tv/winerror.h"
#include "util/string_list.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>

namespace {

constexpr std::size_t batchServices = 512;
constexpr DWORD valueRoom = 512; // a configuration with a longer value is left to the daemon

// What the daemon's own query of a configuration tells; each part is a stretch of it.
enum Field {
    accountField,
    startField,
    groupField,
    dependenciesField,
    typeField,
    errorControlField,
    tagField,
    imagePathField
};
constexpr std::array fieldValues = {accountValue, startTypeValue,    groupValue, dependenciesValue,
                                    typeValue,    errorControlValue, tagValue,   imagePathValue};

struct Fields {
    std::size_t first;
    std::size_t end;
};

Fields FieldsOf(ConfigPart part) {
    switch (part) {
    case ConfigPart::accountStartAndGroup: return {accountField, dependenciesField};
    case ConfigPart::groupAndDependencies: return {groupField, typeField};
    default: return {accountField, fieldValues.size()};
    }
}

// One value as it came.
struct Value {
    DWORD count;
    std::array<char, valueRoom> bytes; // so many of them mean something
};

// The values of one service, of the fields that are asked for.
struct Values {
    Fields fields;
    Value *first;
};

const Value &ValueOf(const Values &values, std::size_t field) {
    static const Value none = {};
    return field >= values.fields.first && field < values.fields.end ? values.first[field - values.fields.first] : none;
}

RegistryRead ReadOf(HKEY key, std::size_t field, Value *value) {
    RegistryRead read = NewRead(RegistryRead::queryValue, key, fieldValues[field]);
    const bool isNumber = field == startField || (field >= typeField && field <= tagField);
    read.data = reinterpret_cast<BYTE *>(value->bytes.data());
    read.dataBytes = isNumber ? sizeof(DWORD) : valueRoom;
    return read;
}

DWORD NumberIn(const Value &value) {
    DWORD number = 0;
    std::memcpy(&number, value.bytes.data(), std::min<std::size_t>(value.count, sizeof number));
    return number;
}

std::string TextIn(const Value &value) { return {value.bytes.data(), strnlen(value.bytes.data(), value.count)}; }

ServiceConfig ConfigOf(const ListedService &service, const Values &values) {
    ServiceConfig config;
    config.type = NumberIn(ValueOf(values, typeField));
    config.displayName = service.displayName;
    config.startType = NumberIn(ValueOf(values, startField));
    config.group = TextIn(ValueOf(values, groupField));
    config.errorControl = NumberIn(ValueOf(values, errorControlField));
    config.tag = NumberIn(ValueOf(values, tagField));
    config.imagePath = TextIn(ValueOf(values, imagePathField));
    const Value &dependencies = ValueOf(values, dependenciesField);
    config.dependencies = SplitMultiString({dependencies.bytes.data(), dependencies.count});
    config.account = TextIn(ValueOf(values, accountField));
    return config;
}

// Whether a value is known by this: it came whole, or there is none.
bool TakeValue(const RegistryRead &read, DWORD room, Value *value) {
    value->count = 0;
    if (read.code == ERROR_FILE_NOT_FOUND) return true;
    if (read.code != ERROR_SUCCESS || read.dataBytes > room) return false;
    value->count = read.dataBytes;
    return true;
}

// A batch of services, and what comes of it.
struct Batch {
    const ListedService *services;
    std::size_t count;
    std::optional<ServiceConfig> *configs;
};

// Opens the keys of a batch. Returns false where the registry does not answer.
bool OpenKeys(HKEY services, const Batch &batch, std::vector<RegistryRead> *opens) {
    for (std::size_t i = 0; i < batch.count; ++i) {
        opens->push_back(NewRead(RegistryRead::openKey, services, batch.services[i].name.c_str()));
    }
    return ReadTogether(opens->data(), opens->size()) == opens->size();
}

// Reads values of a batch of services. Returns false where the registry does not answer.
//   room  for each field of each service; what it holds before means nothing
bool ReadBatch(HKEY services, Fields fields, const Batch &batch, Value *room) {
    std::vector<RegistryRead> opens;
    if (!OpenKeys(services, batch, &opens)) return false;
    const std::size_t width = fields.end - fields.first;
    std::vector<RegistryRead> reads;
    reads.reserve(batch.count * (width + 1));
    for (std::size_t i = 0; i < batch.count; ++i) {
        if (opens[i].code != ERROR_SUCCESS) continue;
        for (std::size_t field = 0; field < width; ++field) {
            reads.push_back(ReadOf(opens[i].opened, fields.first + field, &room[i * width + field]));
        }
        reads.push_back(NewRead(RegistryRead::closeKey, opens[i].opened));
    }
    const std::vector<RegistryRead> asked = reads;
    if (ReadTogether(reads.data(), reads.size()) != reads.size()) return false;
    std::size_t at = 0;
    for (std::size_t i = 0; i < batch.count; ++i) {
        if (opens[i].code != ERROR_SUCCESS) continue;
        const Values values = {fields, &room[i * width]};
        bool isWhole = true;
        for (std::size_t field = 0; field < width; ++field, ++at) {
            isWhole = TakeValue(reads[at], asked[at].dataBytes, &values.first[field]) && isWhole;
        }
        ++at; // the close
        if (isWhole) batch.configs[i] = ConfigOf(batch.services[i], values);
    }
    return true;
}

} // namespace

std::vector<std::optional<ServiceConfig>> ReadLocalConfigs(ConfigPart part,
                                                           const std::vector<ListedService> &services) {
    std::vector<std::optional<ServiceConfig>> configs(services.size());
    HKEY key = 0;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, servicesKeyPath, 0, KEY_READ, &key) != ERROR_SUCCESS) return configs;
    const KeyGuard closeKey(&key);
    const Fields fields = FieldsOf(part);
    // Left as it is: to fill it with zeros takes as long as to read into it.
    const auto room =
        std::make_unique_for_overwrite<Value[]>(std::min(batchServices, services.size()) * (fields.end - fields.first));
    for (std::size_t first = 0; first < services.size(); first += batchServices) {
        const std::size_t count = std::min(batchServices, services.size() - first);
        if (!ReadBatch(key, fields, {services.data() + first, count, configs.data() + first}, room.get())) break;
    }
    return configs;
}
