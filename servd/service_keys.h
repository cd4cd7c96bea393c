// SPDX-License-Identifier: MIT
// service_keys: where the configuration of the services stands in the registry, all under HKEY_LOCAL_MACHINE.
#pragma once

inline constexpr char servicesKeyPath[] = "SYSTEM\\CurrentControlSet\\Services"; // one subkey a service, of its name
inline constexpr char groupOrderKeyPath[] = "SYSTEM\\CurrentControlSet\\Control\\ServiceGroupOrder";
inline constexpr char tagOrderKeyPath[] = "SYSTEM\\CurrentControlSet\\Control\\GroupOrderList"; // one value a group

// Values of a service's key.
inline constexpr char typeValue[] = "Type";                 // REG_DWORD
inline constexpr char startTypeValue[] = "Start";           // REG_DWORD
inline constexpr char errorControlValue[] = "ErrorControl"; // REG_DWORD
inline constexpr char imagePathValue[] = "ImagePath";       // REG_SZ
inline constexpr char displayNameValue[] = "DisplayName";   // REG_SZ
inline constexpr char groupValue[] = "Group";               // REG_SZ
inline constexpr char tagValue[] = "Tag";                   // REG_DWORD
// Deliberate: these two do not hold what they are named for.
inline constexpr char dependenciesValue[] = "DependOnGroup"; // REG_MULTI_SZ: services, and groups with a leading "+"
inline constexpr char accountValue[] = "DependOnService";    // REG_SZ: the Unix user that the service runs as
inline constexpr char deleteFlagValue[] = "DeleteFlag";      // REG_DWORD; there is one when the service is deleted

// The value of the group order.
inline constexpr char groupOrderValue[] = "List"; // REG_MULTI_SZ
