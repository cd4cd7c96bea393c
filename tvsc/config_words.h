// SPDX-License-Identifier: MIT
// config_words: the numbers of a configuration as they are typed and kept in text.
#pragma once

#include "tv/winsvc.h"

#include <map>
#include <string>

using NumberWords = std::map<std::string, DWORD>;

inline const NumberWords startTypeWords = {{"boot", SERVICE_BOOT_START},
                                           {"system", SERVICE_SYSTEM_START},
                                           {"auto", SERVICE_AUTO_START},
                                           {"demand", SERVICE_DEMAND_START},
                                           {"disabled", SERVICE_DISABLED}};
inline const NumberWords serviceTypeWords = {{"own", SERVICE_WIN32_OWN_PROCESS},
                                             {"share", SERVICE_WIN32_SHARE_PROCESS},
                                             {"kernel", SERVICE_KERNEL_DRIVER},
                                             {"filesys", SERVICE_FILE_SYSTEM_DRIVER}};
inline const NumberWords errorControlWords = {{"ignore", SERVICE_ERROR_IGNORE},
                                              {"normal", SERVICE_ERROR_NORMAL},
                                              {"severe", SERVICE_ERROR_SEVERE},
                                              {"critical", SERVICE_ERROR_CRITICAL}};
inline const NumberWords failureActionWords = {{"none", SC_ACTION_NONE},
                                               {"restart", SC_ACTION_RESTART},
                                               {"reboot", SC_ACTION_REBOOT},
                                               {"run", SC_ACTION_RUN_COMMAND}};
