// SPDX-License-Identifier: MIT
// failure_actions_value: the layout.
#include "svcapi/failure_actions_value.h"

#include "util/little_endian.h"

#include <algorithm>

namespace {

constexpr std::size_t headBytes = std::size_t{5} * dwordBytes;
constexpr std::size_t countAt = 3 * dwordBytes;
constexpr std::size_t offsetAt = 4 * dwordBytes;
constexpr std::size_t actionBytes = 2 * dwordBytes;

} // namespace

std::string PackFailureActions(const FailureActionsValue &value) {
    std::string bytes(headBytes + value.actions.size() * actionBytes, '\0');
    PutDword(value.resetPeriodSec, bytes.data());
    PutDword(static_cast<std::uint32_t>(value.actions.size()), bytes.data() + countAt);
    PutDword(headBytes, bytes.data() + offsetAt);
    char *place = bytes.data() + headBytes;
    for (const SC_ACTION &action : value.actions) {
        PutDword(static_cast<DWORD>(action.Type), place);
        PutDword(action.Delay, place + dwordBytes);
        place += actionBytes;
    }
    return bytes;
}

bool UnpackFailureActions(const std::string &bytes, FailureActionsValue *value) {
    if (bytes.size() < headBytes) return false;
    const DWORD count = DwordAt(bytes.data() + countAt);
    const std::size_t offset = std::max<std::size_t>(DwordAt(bytes.data() + offsetAt), headBytes);
    if (count > mostFailureActions || offset > bytes.size() || count * actionBytes > bytes.size() - offset) {
        return false;
    }
    FailureActionsValue found = {DwordAt(bytes.data()), {}};
    for (DWORD i = 0; i < count; ++i) {
        const char *const action = bytes.data() + offset + i * actionBytes;
        const DWORD type = DwordAt(action);
        if (type > SC_ACTION_RUN_COMMAND) return false;
        found.actions.push_back({static_cast<SC_ACTION_TYPE>(type), DwordAt(action + dwordBytes)});
    }
    *value = std::move(found);
    return true;
}
