// SPDX-License-Identifier: MIT
// fix_services: service keys of a Win32 registry, made into service keys of this system.
//
// Here "DependOnGroup" holds every dependency, groups with a leading "+", and "DependOnService" the Unix user. Taken as
// it is, a key from elsewhere would have its dependencies read as the name of a user.
#pragma once

#include "tvreg/reg_text.h"

// Changes the service keys among keys that were read, those below HKLM\SYSTEM\CurrentControlSet\Services or a numbered
// control set:
//   DependOnService, several strings  goes into DependOnGroup, whose own names get their "+"
//   ObjectName                        becomes the Unix user: none for LocalSystem, nobody for LocalService and
//                                     NetworkService, else the name without its domain
// Returns what was changed ("~ ...") and what cannot be but ought to be ("! ..."), a line each, without line ends.
std::vector<std::string> FixServices(std::vector<RegKey> *keys);
