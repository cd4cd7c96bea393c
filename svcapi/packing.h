// SPDX-License-Identifier: MIT
// packing: answers as the caller's buffers want them, records first and the strings they point at behind them.
//
// Everything here is a function of its arguments.
#pragma once

#include "tv/winsvc.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

// One service as enumerations list it.
struct ListedService {
    std::string name;
    std::string displayName;
    SERVICE_STATUS status = {};
    bool complete = true; // false: only state and accepted controls are known, the other words are 0
    DWORD processId = 0;  // where somebody asked for it, and it is known
};

// The same as it comes out of an answer; the names are borrowed, and may have no terminator.
struct ListedView {
    std::string_view name;
    std::string_view displayName;
    SERVICE_STATUS status = {};
    bool complete = true;
    DWORD processId = 0;
};

[[nodiscard]] inline ListedView ViewOf(const ListedService &service) {
    return {service.name, service.displayName, service.status, service.complete, service.processId};
}
[[nodiscard]] inline ListedService Kept(const ListedView &view) {
    return {std::string(view.name), std::string(view.displayName), view.status, view.complete, view.processId};
}

// Many of them in two blocks.
struct ServiceList {
    struct Place {
        std::uint32_t nameBytes;
        std::uint32_t displayNameBytes;
        SERVICE_STATUS status;
        bool complete;
        DWORD processId;
    };
    std::vector<Place> places;
    std::string names; // name and display name of each, one behind the other
};
inline void Append(ServiceList *list, const ListedView &service) {
    list->places.push_back({static_cast<std::uint32_t>(service.name.size()),
                            static_cast<std::uint32_t>(service.displayName.size()), service.status, service.complete,
                            service.processId});
    list->names.append(service.name).append(service.displayName);
}

// Calls visit(view) for each service, in order.
template <typename Visit>
void ForEach(const ServiceList &list, Visit visit) {
    const char *at = list.names.data();
    for (const ServiceList::Place &place : list.places) {
        const std::string_view name(at, place.nameBytes);
        const std::string_view displayName(at + place.nameBytes, place.displayNameBytes);
        at += name.size() + displayName.size();
        visit(ListedView{name, displayName, place.status, place.complete, place.processId});
    }
}
template <typename Visit>
void ForEach(const std::vector<ListedService> &services, Visit visit) {
    for (const ListedService &service : services) {
        visit(ViewOf(service));
    }
}

// Takes services one by one, in order.
using ServiceSink = std::function<void(const ListedView &)>;

struct ServiceConfig {
    DWORD type = 0;
    DWORD startType = 0;
    DWORD errorControl = 0;
    std::string imagePath;
    std::string group;
    DWORD tag = 0;
    std::vector<std::string> dependencies; // groups with their leading "+"
    std::string account;
    std::string displayName;
};

struct LockStatus {
    bool locked = false;
    std::string owner;
    DWORD durationSec = 0;
};

// A list on its way into the caller's buffer, service by service: records from its beginning on, their texts from its
// end backwards, until FinishPacking closes the gap between them. What comes after the first service that does not fit
// is counted only.
//   Record  an enumeration's, for bytes or UTF-16, with a process or without
template <typename Record>
struct ServicePacking {
    Record *buffer;
    DWORD bytes;             // of the buffer
    std::size_t skipped = 0; // so many services come before the first that is wanted
    std::size_t allBytes = 0;
    std::size_t textBytes = 0; // of those that are in the buffer
    DWORD returned = 0;        // those
    bool isFull = false;
};
template <typename Record>
void PackService(ServicePacking<Record> *packing, const ListedView &service);
// Ends it.
//   bytesNeeded  bytes for all services that were wanted; 0 when all fitted
//   returned     number packed
// Returns 0, or 234 ERROR_MORE_DATA when not all fitted.
template <typename Record>
[[nodiscard]] DWORD FinishPacking(ServicePacking<Record> *packing, DWORD *bytesNeeded, DWORD *returned);

// All of it, from services[first] on.
template <typename Record, typename List>
[[nodiscard]] DWORD PackServices(const List &services, std::size_t first, Record *buffer, DWORD bytes,
                                 DWORD *bytesNeeded, DWORD *returned) {
    ServicePacking<Record> packing = {.buffer = buffer, .bytes = bytes, .skipped = first};
    ForEach(services, [&packing](const ListedView &service) { PackService(&packing, service); });
    return FinishPacking(&packing, bytesNeeded, returned);
}

// Return 0, or 122 ERROR_INSUFFICIENT_BUFFER. *bytesNeeded is set in both cases. The record is one for bytes or UTF-16.
template <typename Record>
[[nodiscard]] DWORD PackConfig(const ServiceConfig &config, Record *buffer, DWORD bytes, DWORD *bytesNeeded);
template <typename Record>
[[nodiscard]] DWORD PackLockStatus(const LockStatus &status, Record *buffer, DWORD bytes, DWORD *bytesNeeded);

// A status with the process that it is of.
[[nodiscard]] SERVICE_STATUS_PROCESS WithProcess(const SERVICE_STATUS &status, DWORD processId);
