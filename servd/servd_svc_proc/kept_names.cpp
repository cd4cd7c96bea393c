// SPDX-License-Identifier: MIT
// kept_names: see the header.
#include "servd/servd_svc_proc/kept_names.h"

#include "util/multi_string.h"

std::int32_t firstunorderedgroupindex;

std::uint32_t multistrlen(const char *p) { return p == nullptr ? 0 : static_cast<std::uint32_t>(MultiStringBytes(p)); }
