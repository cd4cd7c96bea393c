// SPDX-License-Identifier: MIT
// kept_names: see the header.
#include "servd/servd_svc_proc/kept_names.h"

#include <cstring>

std::int32_t firstunorderedgroupindex;

std::uint32_t multistrlen(const char *p) {
    if (p == nullptr) return 0;
    const char *end = p;
    while (*end != '\0')
        end += std::strlen(end) + 1;
    return static_cast<std::uint32_t>(end - p) + 1;
}
