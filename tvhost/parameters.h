// SPDX-License-Identifier: MIT
// parameters: what tvhost has to know of the program that it runs, kept in the registry.
//
// All of it stands under HKEY_LOCAL_MACHINE in "SYSTEM\CurrentControlSet\Services\NAME\Parameters", under the names of
// the list VisitHostParameters; docs/tvhost.8.scd tells what each means. Texts are REG_SZ, lists REG_MULTI_SZ, numbers
// REG_DWORD, and one of several words a REG_SZ. Only "Application" is required.
#pragma once

#include "tv/wintypes.h"
#include "util/command_line.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

constexpr DWORD defaultStopTimeoutMs = 20'000;
constexpr DWORD longestTimeoutMs = 2'000'000'000; // 23 days; leaves room to add to it
constexpr DWORD unlimited = 0xFFFFFFFF;
constexpr DWORD mostLogFiles = 1000;
constexpr std::int32_t noPriority = INT32_MIN; // of the signed numbers, none that is set

enum class AppType : unsigned { simple, forking, notify };
constexpr std::array<const char *, 3> WordsOf(AppType) { return {"simple", "forking", "notify"}; }

enum class RestartWhen : unsigned { asTheKeySays, never, onFailure, always };
constexpr std::array<const char *, 4> WordsOf(RestartWhen) { return {"", "never", "on-failure", "always"}; }

enum class OnPredecessor : unsigned { refuse, replace };
constexpr std::array<const char *, 2> WordsOf(OnPredecessor) { return {"refuse", "replace"}; }

enum class OnDaemonRestart : unsigned { keep, end };
constexpr std::array<const char *, 2> WordsOf(OnDaemonRestart) { return {"keep", "end"}; }

enum class LogWhere : unsigned { automatic, journal, file, none };
constexpr std::array<const char *, 4> WordsOf(LogWhere) { return {"auto", "journal", "file", "none"}; }

constexpr DWORD notSet = unlimited - 1; // where every small number means something

inline constexpr char parametersKey[] = "Parameters"; // below the service's own

struct HostParameters {
    std::string application;
    std::string commandLine;                 // "AppParameters"
    std::vector<std::string> arguments = {}; // "AppArguments": instead of the line, each as it is
    std::string directory = {};
    std::vector<std::string> environment = {}; // NAME=VALUE; NAME= takes a variable away
    std::string standardOutput = {};           // files, instead of the log
    std::string standardError = {};

    AppType type = AppType::simple;
    std::string pidFile = {};
    DWORD readyDelayMs = 0;
    std::string readyCommand = {};
    DWORD startTimeoutMs = 90'000;
    std::string stopSignal = {}; // its name or number; TERM when empty
    std::string stopCommand = {};
    DWORD stopTimeoutMs = defaultStopTimeoutMs; // from the stop signal to SIGKILL
    std::string reloadSignal = {};              // HUP when empty
    std::string reloadCommand = {};
    DWORD commandTimeoutMs = 30'000; // of each of the commands

    RestartWhen restart = RestartWhen::asTheKeySays; // as the failure actions of the service's key say
    DWORD restartDelayMs = 1'000;
    DWORD longestRestartDelayMs = 60'000;
    DWORD goodRunMs = 60'000;
    DWORD restartBurst = 5; // 0: no limit
    OnPredecessor onPredecessor = OnPredecessor::refuse;
    OnDaemonRestart onDaemonRestart = OnDaemonRestart::keep;

    LogWhere log = LogWhere::automatic;
    DWORD logTimestamps = 0;
    DWORD rotateBytes = 10 * 1024 * 1024;
    DWORD rotateFiles = 5;

    DWORD openFiles = notSet; // soft and hard limits
    DWORD coreBytes = notSet;
    std::int32_t nice = noPriority;
    std::int32_t oomScore = noPriority;
    DWORD umask = notSet;
    std::vector<std::string> groups = {}; // on top of the account's
    DWORD privateTmp = 0;
    DWORD noNewPrivileges = 0;
    DWORD memoryMiB = notSet;
    DWORD cpuPercent = notSet; // of one processor
};

// Calls visit(NAME, member pointer) for each parameter, and visit(NAME, member pointer, most) for a number with a
// limit: what is more counts as that.
template <typename Visit>
void VisitHostParameters(Visit visit) {
    visit("Application", &HostParameters::application);
    visit("AppParameters", &HostParameters::commandLine);
    visit("AppArguments", &HostParameters::arguments);
    visit("AppDirectory", &HostParameters::directory);
    visit("AppEnvironment", &HostParameters::environment);
    visit("AppStdout", &HostParameters::standardOutput);
    visit("AppStderr", &HostParameters::standardError);
    visit("AppType", &HostParameters::type);
    visit("AppPidFile", &HostParameters::pidFile);
    visit("AppReadyDelay", &HostParameters::readyDelayMs, longestTimeoutMs);
    visit("AppReadyCommand", &HostParameters::readyCommand);
    visit("AppStartTimeout", &HostParameters::startTimeoutMs, longestTimeoutMs);
    visit("AppStopSignal", &HostParameters::stopSignal);
    visit("AppStopCommand", &HostParameters::stopCommand);
    visit("AppStopTimeout", &HostParameters::stopTimeoutMs, longestTimeoutMs);
    visit("AppReloadSignal", &HostParameters::reloadSignal);
    visit("AppReloadCommand", &HostParameters::reloadCommand);
    visit("AppCommandTimeout", &HostParameters::commandTimeoutMs, longestTimeoutMs);
    visit("AppRestart", &HostParameters::restart);
    visit("AppRestartDelay", &HostParameters::restartDelayMs, longestTimeoutMs);
    visit("AppRestartDelayMax", &HostParameters::longestRestartDelayMs, longestTimeoutMs);
    visit("AppRestartReset", &HostParameters::goodRunMs, longestTimeoutMs);
    visit("AppRestartBurst", &HostParameters::restartBurst);
    visit("AppOnPredecessor", &HostParameters::onPredecessor);
    visit("AppOnDaemonRestart", &HostParameters::onDaemonRestart);
    visit("AppLog", &HostParameters::log);
    visit("AppLogTimestamps", &HostParameters::logTimestamps);
    visit("AppRotateBytes", &HostParameters::rotateBytes);
    visit("AppRotateFiles", &HostParameters::rotateFiles, mostLogFiles);
    visit("AppLimitNofile", &HostParameters::openFiles);
    visit("AppLimitCore", &HostParameters::coreBytes);
    visit("AppNice", &HostParameters::nice);
    visit("AppOomScore", &HostParameters::oomScore);
    visit("AppUmask", &HostParameters::umask);
    visit("AppGroups", &HostParameters::groups);
    visit("AppPrivateTmp", &HostParameters::privateTmp);
    visit("AppNoNewPrivileges", &HostParameters::noNewPrivileges);
    visit("AppMemoryMax", &HostParameters::memoryMiB);
    visit("AppCpuMax", &HostParameters::cpuPercent);
}

// Reads all of a service's parameters.
//   problem  with 2 and 13, what is wrong with which value, for people; empty when there is no such key
// Returns 0; 2 ERROR_FILE_NOT_FOUND when there is no "Application"; 13 ERROR_INVALID_DATA when a value has the wrong
// type, is none of its words or is too long for anything that it could mean; or a code of the registry.
[[nodiscard]] DWORD ReadHostParameters(const std::string &serviceName, HostParameters *parameters,
                                       std::string *problem);

// Sets one of them from "NAME=VALUE", as a person writes it: a number in decimal, with 0x in hexadecimal and with 0 in
// octal, or "unlimited"; a list once for each of its strings. Returns 0; 2 and a text for an unknown name, 13 and a
// text for a value that it cannot have.
[[nodiscard]] DWORD SetHostParameter(const std::string &setting, HostParameters *parameters, std::string *problem);

// Whether the service may run in this process as far as its account goes: the daemon never hands a process of root the
// start of a service whose account is another's. Returns 0, 1057 ERROR_INVALID_SERVICE_ACCOUNT, or a code of the
// registry.
[[nodiscard]] DWORD CheckServiceAccount(const std::string &serviceName);

// Writes them; what is as it is by itself is not written.
//   present  those that stand there, of which the ones that are to be as by themselves are deleted; null: none
// Returns 0 or a code of the registry.
[[nodiscard]] DWORD WriteHostParameters(const std::string &serviceName, const HostParameters &parameters,
                                        const HostParameters *present = nullptr);
