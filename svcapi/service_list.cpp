// SPDX-License-Identifier: MIT
// service_list: filling a list, and taking services out of it.
#include "svcapi/service_list.h"

#include <utility>

void Append(ServiceList *list, const ListedService &service) {
    MakeRoomForTexts(list, service.name.size() + 1 + service.displayName.size() + 1);
    PutService(list, service.name, service.displayName, service.status);
    list->places.back().complete = service.complete;
    list->places.back().processId = service.processId;
}

ListedService ServiceAt(const ServiceList &list, const ServiceList::Place &place) {
    return {std::string(NameIn(list, place)), std::string(DisplayNameIn(list, place)), place.status, place.complete,
            place.processId};
}

ServiceList ListOf(const std::vector<ListedService> &services) {
    ServiceList list;
    for (const ListedService &service : services) {
        Append(&list, service);
    }
    return list;
}

void AppendTo(std::vector<ListedService> *services, const ServiceList &list) {
    services->reserve(services->size() + list.places.size());
    for (const ServiceList::Place &place : list.places) {
        services->push_back(ServiceAt(list, place));
    }
}

void Truncate(ServiceList *list, std::size_t count) {
    if (count >= list->places.size()) return;
    list->textBytes = list->places[count].textAt;
    list->places.resize(count);
}

void Empty(ServiceList *list) {
    constexpr std::size_t mostServices = 4096, mostTextBytes = std::size_t{1} << 20;
    if (list->places.capacity() > mostServices || list->texts.capacity() > mostTextBytes) {
        ServiceList none; // assigned, an empty text would leave the room of the other to it
        std::swap(*list, none);
    }
    Truncate(list, 0);
}
