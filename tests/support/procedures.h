// SPDX-License-Identifier: MIT
// procedures: the daemon's procedures as a test calls them, whichever way leads to the daemon.
//
// A test program brings the way (Exchange) and the daemon (StartDaemon): either the handlers in the test's own process
// over a registry in memory, or the real programs over TCP. Both use the Reg* functions to look at the registry.
#pragma once

#include "servd/servd_xdr.h"
#include "tests/support/value_bytes.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

// --- brought by the test program ---

// Calls one procedure. *reply is zeroed before; the caller releases what was decoded into it. False when no reply came.
bool Exchange(std::uint32_t procedure, xdrproc_t codeArgument, void *argument, xdrproc_t codeReply, void *reply);
// Empties the registry.
void ClearRegistry();
// A daemon that has just loaded what the registry holds, in place of the one before.
void StartDaemon();
// Whether no procedure of this daemon has been called yet: what a static result holds before the first call of its
// handler shows only once in the life of a process.
bool IsFreshProcess();

// --- typed calls ---

// The reply, released with its last owner; null when none came.
template <typename Argument>
std::shared_ptr<const ResultOf<Argument>> Call(Argument argument) {
    using Reply = ResultOf<Argument>;
    std::shared_ptr<Reply> reply(new Reply{}, [](Reply *record) {
        FreeRecord(record);
        delete record;
    });
    const bool answered =
        Exchange(ProcedureOf<Argument>::number, RoutineOf<Argument>(), &argument, RoutineOf<Reply>(), reply.get());
    return answered ? reply : nullptr;
}

// --- the procedures with arguments that are easy to write down ---

struct NewService {
    std::string name = {};
    std::string displayName = {};
    std::uint32_t serviceType = 0x10;
    std::uint32_t startType = 3;
    std::uint32_t errorControl = 1;
    std::string imagePath = {};
    std::string group = {};
    std::string dependencies = MultiSz({}); // raw bytes
    std::string account = {};
    std::int32_t tagWanted = 0;
};

struct Change {
    std::int32_t handle = 0;
    std::uint32_t serviceType = 0xFFFFFFFF;
    std::uint32_t startType = 0xFFFFFFFF;
    std::uint32_t errorControl = 1;
    // Raw bytes, terminators included; empty for no change.
    std::string imagePath = {};
    std::string group = {};
    std::string dependencies = {};
    std::string account = {};
    std::string password = {};
    std::string displayName = {};
    std::int32_t tagWanted = 0;
};

struct Listed {
    std::string name;
    std::string displayName;
    svd_status_t status;
};

bool operator==(const svd_status_t &a, const svd_status_t &b);
bool operator==(const Listed &a, const Listed &b);
std::ostream &operator<<(std::ostream &out, const svd_status_t &status);
std::ostream &operator<<(std::ostream &out, const Listed &listed);

std::int32_t Connect(const std::string &machineName);
std::shared_ptr<const servd_SERV_CREATE_SERVICE_RETURN> Create(const NewService &service);
std::shared_ptr<const servd_SERV_OPEN_SERVICE_RETURN> Open(const std::string &name, std::uint32_t access = 0);
std::int32_t Delete(std::int32_t handle);
std::int32_t Close(std::int32_t handle);
std::int32_t Lock(std::int32_t lockId, const std::string &owner);
std::int32_t Unlock(std::int32_t lockId);
std::shared_ptr<const servd_SERV_QUERY_LOCK_SERVICE_RETURN> QueryLock();
std::int32_t Start(std::int32_t handle, const std::vector<std::string> &arguments = {});
std::shared_ptr<const servd_SERV_CONTROL_SERVICE_RETURN> Control(std::int32_t handle, std::int32_t control);
std::int32_t SetStatus(std::int32_t handle, const svd_status_t &status);
std::shared_ptr<const servd_SERV_QUERY_STATUS_SERVICE_RETURN> QueryStatus(std::int32_t handle);
std::shared_ptr<const servd_SERV_ENUM_STATUS_SERVICE_RETURN>
EnumStatus(std::int32_t resumeIndex, std::int32_t typeFilter, std::int32_t stateFilter, std::int32_t bufferBytes);
std::shared_ptr<const servd_SERV_ENUM_DEPEND_SERVICE_RETURN> EnumDepend(std::int32_t handle, std::int32_t stateFilter,
                                                                        std::int32_t bufferBytes);
std::shared_ptr<const servd_SERV_GET_DISPLAY_SERVICE_RETURN> GetDisplay(const std::string &name);
std::shared_ptr<const servd_SERV_GET_KEY_SERVICE_RETURN> GetKey(const std::string &displayName);
std::shared_ptr<const servd_SERV_QUERY_CONFIG_SERVICE_RETURN> QueryConfig(std::int32_t handle);
std::shared_ptr<const servd_SERV_CHANGE_CONFIG_SERVICE_RETURN> ChangeConfig(const Change &change);

// The bytes of a counted array, and the entries of a list, of a reply.
std::string BytesOf(const CharArray &array);
std::vector<Listed> EntriesOf(const svd_enum_status_list_t *list);
std::vector<std::string> NamesOf(const svd_enum_status_list_t *list);
