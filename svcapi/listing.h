// SPDX-License-Identifier: MIT
// listing: what the daemon tells about services without their being touched, put together from several calls. All on a
// connected, locked link.
#pragma once

#include "svcapi/link.h"
#include "svcapi/packing.h"

#include <optional>

// Appends every service that the enumeration tells for a type filter (SERVICE_WIN32, SERVICE_DRIVER or both) and a
// state filter. Returns 0 or a code of link.h; 1065 ERROR_DATABASE_DOES_NOT_EXIST while the daemon has no database; 13
// ERROR_INVALID_DATA for an enumeration that does not come to an end.
[[nodiscard]] DWORD ListServices(DaemonLink &link, DWORD type, DWORD state, ServiceList *services);

// The same, then the service in record 0 where it passes the filters; the enumeration leaves it out, so that of its
// status type, state and accepted controls alone are known.
[[nodiscard]] DWORD ListServicesAndRecordZero(DaemonLink &link, DWORD type, DWORD state, ServiceList *services);

// Where the enumeration has a service.
struct ListedPlace {
    DWORD serviceClass = SERVICE_WIN32;
    std::int32_t before = -1; // so many of the class come before it, as far as known; -1: not known
};

// Finds one service in the enumeration, near *place if it is there, else anywhere; *place is set to where it is.
// *service stays empty when it is not listed. Codes as ListServices.
[[nodiscard]] DWORD FindListedService(DaemonLink &link, const std::string &name, ListedPlace *place,
                                      std::optional<ListedService> *service);

// Finds the service of a name in record 0, as ListAllServices has it; stays empty where it is another one.
[[nodiscard]] DWORD FindRecordZero(DaemonLink &link, const std::string &name, std::optional<ListedService> *service);

// SERVICE_INACTIVE or SERVICE_ACTIVE.
[[nodiscard]] inline DWORD StateClassOf(const SERVICE_STATUS &status) {
    return status.dwCurrentState == SERVICE_STOPPED ? SERVICE_INACTIVE : SERVICE_ACTIVE;
}

// The state and the accepted controls of the service in a record; the other words are 0. Sends the control 0, which no
// service ever sees. Returns 0; 6 when the record is free or the number out of range.
[[nodiscard]] DWORD PeekRecord(DaemonLink &link, std::int32_t index, SERVICE_STATUS *status);

// Appends what the service in a record depends on, nearest first; 1059 on a ring, 1016 when the daemon cannot read the
// registry, 13 as above. The record must be in use.
[[nodiscard]] DWORD ListDependencies(DaemonLink &link, std::int32_t index, std::int32_t state,
                                     std::vector<ListedService> *services);

// The configuration of the service `name` in the record `index`; the two must belong together. 1016 when the daemon
// cannot read the registry.
[[nodiscard]] DWORD ReadConfig(DaemonLink &link, std::int32_t index, const std::string &name, ServiceConfig *config);

// Appends everything that can be listed: both classes in every state, then the service in record 0, which the
// enumeration leaves out and of which only state and accepted controls are known.
[[nodiscard]] DWORD ListAllServices(DaemonLink &link, std::vector<ListedService> *services);
