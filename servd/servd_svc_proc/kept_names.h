// SPDX-License-Identifier: MIT
// kept_names: names of this daemon that nothing reads or calls any more. Other programs may know them, so they are
// kept and true; whoever looks for what the daemon works with looks elsewhere.
#pragma once

#include <cstdint>

// Number of groups named in the order list, from which on grouplist holds the others. Filled at the load.
extern std::int32_t firstunorderedgroupindex;

// Length in bytes of a multi-string, both terminators counted; 0 for null, 1 when the first byte is zero.
[[nodiscard]] std::uint32_t multistrlen(const char *p);
