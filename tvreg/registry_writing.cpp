// SPDX-License-Identifier: MIT
// registry_writing: in batches, the keys of a batch first and then their values: a value needs its key's handle.
#include "tvreg/registry_writing.h"

#include "registry/pipeline.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

constexpr std::size_t batchKeys = 256;
constexpr std::size_t batchValues = 2048;

struct Writing {
    const Progress &progress;
    std::vector<const RegKey *> batch = {};
    std::size_t batchedValues = 0;
    std::vector<Refusal> refusals = {};
    std::size_t valuesDone = 0;
    bool isTogether = true; // until the daemon does not take it
};

RegistryWrite NewWrite(RegistryWrite::Kind kind, HKEY key, const char *name) {
    return {.kind = kind,
            .key = key,
            .name = name,
            .type = REG_NONE,
            .data = nullptr,
            .dataBytes = 0,
            .code = ERROR_SUCCESS,
            .created = 0};
}

RegistryWrite WriteOfValue(HKEY key, const RegValue &value) {
    RegistryWrite write =
        NewWrite(value.isDeleted ? RegistryWrite::deleteValue : RegistryWrite::setValue, key, value.name.c_str());
    write.type = value.type;
    write.data = reinterpret_cast<const BYTE *>(value.data.data());
    write.dataBytes = value.isDeleted ? 0 : static_cast<DWORD>(value.data.size());
    return write;
}

void WriteAlone(RegistryWrite &write) {
    DWORD disposition = 0;
    switch (write.kind) {
    case RegistryWrite::createKey:
        write.code = RegCreateKeyExA(write.key, write.name, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS,
                                     nullptr, &write.created, &disposition);
        break;
    case RegistryWrite::setValue:
        write.code = RegSetValueExA(write.key, write.name, 0, write.type, write.data, write.dataBytes);
        break;
    case RegistryWrite::deleteValue: write.code = RegDeleteValueA(write.key, write.name); break;
    case RegistryWrite::closeKey: write.code = RegCloseKey(write.key); break;
    }
}

// All of them are of one machine. What was sent without an answer is sent again: it comes to the same.
void WriteThem(Writing &writing, std::vector<RegistryWrite> &writes) {
    std::size_t done = 0;
    if (writing.isTogether) {
        done = WriteTogether(writes.data(), writes.size());
        writing.isTogether = done == writes.size();
    }
    for (; done < writes.size(); ++done) {
        WriteAlone(writes[done]);
        if (writes[done].code != ERROR_REGISTRY_IO_FAILED) continue;
        for (std::size_t rest = done + 1; rest < writes.size(); ++rest) {
            writes[rest].code = ERROR_REGISTRY_IO_FAILED;
        }
        return;
    }
}

bool IsLost(const Writing &writing) {
    return !writing.refusals.empty() && writing.refusals.back().code == ERROR_REGISTRY_IO_FAILED;
}

// The keys of the batch, in its order; a refused one is not among the opened.
struct OpenedKey {
    const RegKey *key;
    HKEY opened;
};

std::vector<OpenedKey> MakeKeys(Writing &writing) {
    std::vector<RegistryWrite> writes;
    for (const RegKey *key : writing.batch) {
        writes.push_back(NewWrite(RegistryWrite::createKey, RootOf(key->key), key->key.path.c_str()));
    }
    WriteThem(writing, writes);
    std::vector<OpenedKey> opened;
    for (std::size_t i = 0; i < writes.size(); ++i) {
        if (writes[i].code == ERROR_SUCCESS) {
            opened.push_back({writing.batch[i], writes[i].created});
        } else {
            writing.refusals.push_back({writing.batch[i], nullptr, writes[i].code});
            if (IsLost(writing)) break;
        }
    }
    return opened;
}

void WriteValues(Writing &writing, const std::vector<OpenedKey> &keys) {
    std::vector<RegistryWrite> writes;
    std::vector<Refusal> meant; // as many
    for (const OpenedKey &key : keys) {
        for (const RegValue &value : key.key->values) {
            writes.push_back(WriteOfValue(key.opened, value));
            meant.push_back({key.key, &value, ERROR_SUCCESS});
        }
        writes.push_back(NewWrite(RegistryWrite::closeKey, key.opened, nullptr));
        meant.push_back({key.key, nullptr, ERROR_SUCCESS});
    }
    WriteThem(writing, writes);
    for (std::size_t i = 0; i < writes.size() && !IsLost(writing); ++i) {
        const bool isMissing = writes[i].kind == RegistryWrite::deleteValue && writes[i].code == ERROR_FILE_NOT_FOUND;
        meant[i].code = writes[i].code;
        if (meant[i].code == ERROR_SUCCESS || isMissing || meant[i].value == nullptr) continue;
        writing.refusals.push_back(meant[i]);
    }
}

void WriteBatch(Writing &writing) {
    if (!writing.batch.empty() && !IsLost(writing)) {
        const std::vector<OpenedKey> opened = MakeKeys(writing);
        if (!IsLost(writing)) WriteValues(writing, opened);
        writing.valuesDone += writing.batchedValues;
        if (writing.progress) writing.progress(writing.valuesDone);
    }
    writing.batch.clear();
    writing.batchedValues = 0;
}

void AddToBatch(Writing &writing, const RegKey &key) {
    if (!writing.batch.empty() && writing.batch.front()->key.host != key.key.host) WriteBatch(writing);
    writing.batch.push_back(&key);
    writing.batchedValues += key.values.size();
    if (writing.batch.size() >= batchKeys || writing.batchedValues >= batchValues) WriteBatch(writing);
}

void DeleteIfThere(Writing &writing, const RegKey &key) {
    const LONG code = RegDeleteKeyA(RootOf(key.key), key.key.path.c_str());
    if (code != ERROR_SUCCESS && code != ERROR_FILE_NOT_FOUND) writing.refusals.push_back({&key, nullptr, code});
}

} // namespace

std::string RefusalText(const Refusal &refusal) {
    std::string text = KeyPathText(refusal.key->key);
    if (refusal.value != nullptr) text += fmt::format(", value \"{}\"", refusal.value->name);
    return fmt::format("{}: {}", text, CodeText(refusal.code));
}

std::vector<Refusal> WriteKeys(const std::vector<RegKey> &keys, const Progress &progress) {
    Writing writing = {.progress = progress};
    for (const RegKey &key : keys) {
        if (IsLost(writing)) break;
        if (key.isDeleted) {
            WriteBatch(writing); // what stands before it in the order must not come behind it
            if (!IsLost(writing)) DeleteIfThere(writing, key);
        } else {
            AddToBatch(writing, key);
        }
    }
    WriteBatch(writing);
    return std::move(writing.refusals);
}

void MustWriteKeys(const std::vector<RegKey> &keys) {
    const std::vector<Refusal> refusals = WriteKeys(keys);
    if (refusals.empty()) return;
    throw Failure(StatusOf(refusals.front().code), RefusalText(refusals.front()),
                  static_cast<std::uint32_t>(refusals.front().code));
}
