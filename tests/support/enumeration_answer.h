// SPDX-License-Identifier: MIT
// enumeration_answer: what the service API takes from the bytes of an enumeration's answer, and what the routine of the
// whole record takes from them: the one decodes them where they stand, the other makes records of them.
#pragma once

#include "svcapi/service_list.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct TakenService {
    std::string name;
    std::string displayName;
    std::vector<std::uint32_t> status; // its seven words
    bool operator==(const TakenService &) const = default;
};

struct TakenAnswer {
    bool isDecoded = false; // nothing else holds where it is not
    std::size_t bytesUsed = 0;
    std::uint32_t status = 0;
    std::int32_t bytesNeeded = 0; // this and the rest: of an answer with status 0
    std::int32_t resumeIndex = 0;
    std::vector<TakenService> services = {};
    bool operator==(const TakenAnswer &) const = default;
};

// The bytes stand so many behind a word's boundary; whatever is read behind them is the address checker's to tell.
[[nodiscard]] TakenAnswer TakenByApi(std::string_view bytes, std::size_t offset);
// The same behind services that are there already; all of them are told.
[[nodiscard]] TakenAnswer TakenByApi(std::string_view bytes, std::size_t offset, ServiceList *services);
[[nodiscard]] TakenAnswer TakenAsRecord(std::string_view bytes);
