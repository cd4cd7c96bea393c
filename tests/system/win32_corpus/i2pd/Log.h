/* SPDX-License-Identifier: MIT */
/* Stands in for i2pd's log. */
#pragma once

#include <iostream>

enum LogLevel { eLogNone, eLogError, eLogWarning, eLogInfo, eLogDebug, eLogCritical };
template <typename... Parts>
void LogPrint(LogLevel, Parts &&...parts) {
    (std::cerr << ... << parts) << '\n';
}
