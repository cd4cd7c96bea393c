// SPDX-License-Identifier: MIT
// words: codes, states and start types as people read them.
#pragma once

#include "tv/winsvc.h"

#include <cstdint>
#include <string>
#include <vector>

// "1060 ERROR_SERVICE_DOES_NOT_EXIST, no such service"
[[nodiscard]] std::string CodeText(DWORD code);
// The bits of a service's type: "own process", or "win32_own_process" when machine-readable.
[[nodiscard]] std::vector<std::string> TypeWords(DWORD type, bool machineReadable = false);
// All of them, "own process, interactive", or the number where there is no word for it.
[[nodiscard]] std::string ServiceTypeText(DWORD type);
// "ignore", "normal", "severe", "critical"; "unknown 7".
[[nodiscard]] std::string ErrorControlWord(DWORD errorControl);
// "12 s", "3 min 5 s", "2 h 10 min", "4 d 1 h".
[[nodiscard]] std::string DurationText(std::int64_t ms);
// "running", or "start_pending" when machine-readable.
[[nodiscard]] std::string StateWord(DWORD state, bool machineReadable = false);
// One word or two for a listing: the state, or "failed 1067".
[[nodiscard]] std::string StateSummary(const SERVICE_STATUS &status);
// "(check point 3, hint 5000 ms)", where a service has announced either; else nothing.
[[nodiscard]] std::string StepsText(const SERVICE_STATUS &status);
// "boot", "system", "auto", "demand", "disabled"; "unknown 7".
[[nodiscard]] std::string StartWord(DWORD startType);
