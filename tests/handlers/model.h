// SPDX-License-Identifier: MIT
// model: what the daemon must answer, in plain words of its own.
//
// The rules of the procedures over the model of the database. Each function answers one call as a line of text; LineOf
// makes the same line of a reply.
#pragma once

#include "tests/support/database_model.h"
#include "tests/support/procedures.h"

#include <chrono>
#include <sstream>

// What each procedure's reply still holds of the call before.
struct ModelReplies {
    std::string lockOwner = {};
    std::int32_t lockDuration = 0;
    svd_status_t queried = {};
    svd_status_t controlled = {};
    std::uint32_t createdTag = 0;
    std::int32_t changedTag = 0;
    std::int32_t configStatus = 0;
    std::string config = "|0|0|0|||0|||";
    std::string enumeration = "|0|0|0|";
};

struct Model : ModelDatabase {
    std::int32_t lockId = 0;
    std::string lockOwner = {};
    std::chrono::steady_clock::time_point lockedAt = {};
    ModelReplies replies = {};
};

// One line of text from any printable values.
template <typename... Parts>
std::string Line(const Parts &...parts) {
    std::ostringstream line;
    ((line << '|' << parts), ...);
    return line.str();
}

// A daemon that starts and loads the registry. Whether the replies of the one before are forgotten is the caller's.
void StartModel(Model &model);

std::string Connect(Model &model);
std::string Create(Model &model, const NewService &wanted);
std::string Open(Model &model, const std::string &name);
std::string Delete(Model &model, std::int32_t handle);
std::string Close(Model &model, std::int32_t handle);
std::string Lock(Model &model, std::int32_t lockId, const std::string &owner);
std::string Unlock(Model &model, std::int32_t lockId);
// The age of a lock is the clock's: the observed one is taken over when it can be right.
std::string QueryLock(Model &model, std::int32_t observedDuration);
// Empty when nothing stands against the start: it must not be sent then.
std::string Start(Model &model, std::int32_t handle);
std::string Control(Model &model, std::int32_t handle, std::int32_t control);
std::string SetStatus(Model &model, std::int32_t handle, const svd_status_t &status);
std::string QueryStatus(Model &model, std::int32_t handle);
std::string EnumStatus(Model &model, std::int32_t resumeIndex, std::int32_t typeFilter, std::int32_t stateFilter,
                       std::int32_t bufferBytes);
std::string EnumDepend(Model &model, std::int32_t handle, std::int32_t stateFilter, std::int32_t bufferBytes);
std::string GetDisplay(Model &model, const std::string &name);
std::string GetKey(Model &model, const std::string &displayName);
std::string QueryConfig(Model &model, std::int32_t handle);
std::string ChangeConfig(Model &model, const Change &change);

std::string LineOf(const servd_SERV_CREATE_SERVICE_RETURN &reply);
std::string LineOf(const servd_SERV_OPEN_SERVICE_RETURN &reply);
std::string LineOf(const servd_SERV_QUERY_LOCK_SERVICE_RETURN &reply);
std::string LineOf(const servd_SERV_CONTROL_SERVICE_RETURN &reply);
std::string LineOf(const servd_SERV_QUERY_STATUS_SERVICE_RETURN &reply);
std::string LineOf(const servd_SERV_ENUM_STATUS_SERVICE_RETURN &reply);
std::string LineOf(const servd_SERV_ENUM_DEPEND_SERVICE_RETURN &reply);
std::string LineOf(const servd_SERV_GET_DISPLAY_SERVICE_RETURN &reply);
std::string LineOf(const servd_SERV_GET_KEY_SERVICE_RETURN &reply);
std::string LineOf(const servd_SERV_QUERY_CONFIG_SERVICE_RETURN &reply);
std::string LineOf(const servd_SERV_CHANGE_CONFIG_SERVICE_RETURN &reply);
