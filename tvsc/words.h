// SPDX-License-Identifier: MIT
// words: codes, states and start types as people read them.
#pragma once

#include "tv/winsvc.h"

#include <string>

// "1060 ERROR_SERVICE_DOES_NOT_EXIST, no such service"
[[nodiscard]] std::string CodeText(DWORD code);
// "running", or "start_pending" when machine-readable.
[[nodiscard]] std::string StateWord(DWORD state, bool machineReadable = false);
// One word or two for a listing: the state, or "failed 1067".
[[nodiscard]] std::string StateSummary(const SERVICE_STATUS &status);
// "boot", "system", "auto", "demand", "disabled"; "unknown 7".
[[nodiscard]] std::string StartWord(DWORD startType);
