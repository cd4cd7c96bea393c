// SPDX-License-Identifier: MIT
// service_list: services as enumerations list them, one by one or many in two blocks.
//
// Everything here is a function of its arguments.
#pragma once

#include "tv/winsvc.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

struct ListedService {
    std::string name;
    std::string displayName;
    SERVICE_STATUS status = {};
    bool complete = true; // false: only state and accepted controls are known, the other words are 0
    DWORD processId = 0;  // where somebody asked for it, and it is known
};

// Many of them, their texts as they stand in a caller's buffer: name and display name with the zero behind each, which
// have no other.
struct ServiceList {
    struct Place {
        std::size_t textAt;
        std::uint32_t nameBytes; // without the zero, as the next
        std::uint32_t displayNameBytes;
        SERVICE_STATUS status;
        bool complete;
        DWORD processId;
    };
    std::vector<Place> places;
    std::string texts; // and room behind them
    std::size_t textBytes = 0;
};

// The texts of a service; borrowed from the list.
[[nodiscard]] inline std::string_view TextsIn(const ServiceList &list, const ServiceList::Place &place) {
    return {list.texts.data() + place.textAt, std::size_t{place.nameBytes} + 1 + place.displayNameBytes + 1};
}
[[nodiscard]] inline std::string_view NameIn(const ServiceList &list, const ServiceList::Place &place) {
    return TextsIn(list, place).substr(0, place.nameBytes);
}
[[nodiscard]] inline std::string_view DisplayNameIn(const ServiceList &list, const ServiceList::Place &place) {
    return TextsIn(list, place).substr(std::size_t{place.nameBytes} + 1, place.displayNameBytes);
}

// Makes room for so many bytes of texts behind those that are there.
inline void MakeRoomForTexts(ServiceList *list, std::size_t bytes) {
    if (list->texts.size() - list->textBytes < bytes) list->texts.resize(list->textBytes + bytes);
}

// Puts a service behind the others; there must be room for its texts.
inline void PutService(ServiceList *list, std::string_view name, std::string_view displayName,
                       const SERVICE_STATUS &status) {
    list->places.push_back({list->textBytes, static_cast<std::uint32_t>(name.size()),
                            static_cast<std::uint32_t>(displayName.size()), status, true, 0});
    char *const at = list->texts.data() + list->textBytes;
    std::memcpy(at, name.data(), name.size());
    at[name.size()] = '\0';
    char *const behind = at + name.size() + 1;
    std::memcpy(behind, displayName.data(), displayName.size());
    behind[displayName.size()] = '\0';
    list->textBytes += name.size() + 1 + displayName.size() + 1;
}

void Append(ServiceList *list, const ListedService &service);
[[nodiscard]] ListedService ServiceAt(const ServiceList &list, const ServiceList::Place &place);

[[nodiscard]] ServiceList ListOf(const std::vector<ListedService> &services);
void AppendTo(std::vector<ListedService> *services, const ServiceList &list);

// Leaves the first `count` of them.
void Truncate(ServiceList *list, std::size_t count);

// Leaves none, but room for a list of usual size: to get it anew costs as much as to fill it.
void Empty(ServiceList *list);
