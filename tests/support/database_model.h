// SPDX-License-Identifier: MIT
// database_model: the service database in plain words, over simple values: what a daemon loads from its registry, the
// groups and their order, and what the dependency walk finds.
//
// The registry is a list of keys. No process is ever started, so that a record never has one. Whoever holds the daemon
// against the model changes its records and keys as the daemon's operations would.
#pragma once

#include "servd/servd_xdr.h"
#include "tests/support/service_registry.h"

#include <deque>
#include <limits>

struct ModelRecord {
    bool used = false;
    std::string name = {};
    std::string displayName = {};
    std::int32_t openCount = 0;
    bool marked = false;
    svd_status_t status = {};
    std::int32_t type = 0;
    std::int32_t tag = 0;
    bool visited = false;
    bool visiting = false;
};

struct ModelGroup {
    std::string name;
    std::deque<std::int32_t> members = {}; // records
};

struct ModelKey {
    std::string name;
    Values values = {};
};

struct ModelDatabase {
    // the registry
    std::vector<ModelKey> services = {};
    Values servicesKeyValues = {}; // of the services key itself
    Values tagOrder = {};
    std::vector<std::string> groupOrder = {};
    // the daemon
    std::vector<ModelRecord> records = {};
    std::vector<ModelGroup> groups = {};
    std::vector<ModelGroup> imagePaths = {};
};

// --- the registry ---

// Writes the model's keys and values to the registry, beside what is there.
void WriteModel(const ModelDatabase &model);
ModelKey *FindKey(ModelDatabase &model, const std::string &name);
const Value *FindValue(const Values &values, const std::string &name);
std::string UpToZero(const std::string &bytes);
std::string TextValue(const Values &values, const std::string &name);     // empty: missing
std::uint32_t NumberValue(const Values &values, const std::string &name); // 0: missing, or longer than 4 bytes

// --- records and groups ---

ModelRecord &RecordOf(ModelDatabase &model, std::int32_t handle);
std::int32_t IndexOf(const ModelDatabase &model, const std::string &name); // -1: nobody's
std::int32_t TakeRecord(ModelDatabase &model);                             // a free one
std::size_t GroupNumber(const std::vector<ModelGroup> &groups, const std::string &name);
void Join(std::vector<ModelGroup> &groups, const std::string &name, std::int32_t index);
// The group of the same number loses the member, whichever list was searched.
void Leave(ModelDatabase &model, const std::vector<ModelGroup> &searched, const std::string &name, std::int32_t index);

// A daemon that starts: deletes the keys that are marked for it and builds records, groups and image paths.
void LoadModel(ModelDatabase &model);

// --- the walk ---

// As many bytes as a caller needs for this record in a list.
std::int32_t SizeOf(const ModelRecord &record);

struct ModelWalk {
    std::int32_t root;
    std::int32_t mask;
    std::int32_t left;
    std::int32_t needed = 0;
    std::int32_t count = 0;
    std::deque<std::int32_t> list = {}; // records, from the head
    // The plain recursion walks again what it does not mark, which can take for ever.
    int stepsLeft = std::numeric_limits<int>::max();
};

// Walks what a record depends on, in plain recursion, and clears the marks. Returns the code; with no steps left it
// says nothing about the daemon.
std::int32_t WalkFrom(ModelDatabase &model, std::int32_t index, ModelWalk &walk);
