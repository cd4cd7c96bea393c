// SPDX-License-Identifier: MIT
// dependencies: what a service depends on, directly and through further services and groups.
#pragma once

#include "servd/servd_svc_proc/database.h"
#include "servd/win32_code.h"
#include "tv/winreg.h"

// A new enumeration record with copies of both names and the status; next is null. malloc memory.
[[nodiscard]] svd_enum_status_list_t *NewEnumRecord(const ServiceDatabaseEntry &entry);

// Walks the services that svcdb[index] depends on, depth first, and collects those in a wanted state.
//   bytesLeft    in: room in the caller's buffer; out: what is left, -1 once a record did not fit
//   list         head of the collected records, the one found last first; the caller frees them
//   bytesNeeded  raised by the size of every service that passed the filter
//   count        raised by the number of records collected
//   rootIndex    walked but never collected: `index` itself, or a record that the walk does not meet
//   servicesKey  the open services key
//   stateMask    1 active, 2 stopped, 3 both
// Returns 0; 234 when this service did not fit; 1059 on a cycle; or a registry error. ClearVisitingFlags after it.
[[nodiscard]] Win32Code CalculateDependencies(std::int32_t index, std::int32_t *bytesLeft,
                                              svd_enum_status_list_t **list, std::int32_t *bytesNeeded,
                                              std::int32_t *count, std::int32_t rootIndex, HKEY servicesKey,
                                              std::int32_t stateMask);

// The same walk for nothing but its verdict and its sum: *bytes is what the services found would take. Clears the marks
// itself. Result codes as above.
[[nodiscard]] Win32Code SumDependencies(std::int32_t index, HKEY servicesKey, std::int32_t stateMask,
                                        std::int32_t *bytes);
