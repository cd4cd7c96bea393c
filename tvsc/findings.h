// SPDX-License-Identifier: MIT
// findings: what is wrong, why that matters, and what to type. Each group of checks appends what it finds.
#pragma once

#include "tvsc/boot_plan.h"
#include "tvsc/service_view.h"

// fail: the daemon loads no services, does not answer, or cannot start the one concerned.
enum class FindingLevel { info, warn, fail };

struct Finding {
    FindingLevel level;
    std::string area; // "registry", "start", "rpc", "process", "lock", "system"
    std::string name; // what it is about: a service, a key, a program
    std::string found;
    std::string why;     // why it matters
    std::string command; // what mends it; empty where no one command does
};
using Findings = std::vector<Finding>;

// What is done about entries of the port mapper that are of processes which have ended.
enum class EntriesMending { none, planned, done };

// What the registry would make a daemon do that starts now. Returns false when the registry daemon does not answer.
[[nodiscard]] bool CheckRegistry(const Options &options, BootDatabase *database, Findings *findings);
// Why nothing can be read of the registry of a host, as CheckRegistry has just found.
[[nodiscard]] Finding SilentRegistry(const Options &options);
// Values that are taken and mean something else than they seem to.
void CheckValues(HKEY machine, const BootDatabase &database, Findings *findings);
// Images, programs and accounts of the services; of this machine.
void CheckPrograms(const BootDatabase &database, Findings *findings);
// Who may reach the daemons' ports, where the program that guards them is installed.
void CheckExposure(Findings *findings);
// The processes of the service daemon of this machine against those that services are known to have.
void CheckChildren(const std::vector<ServiceView> &views, Findings *findings);
// What the machine needs: shell, host name, port mapper and its entries.
void CheckMachine(EntriesMending mending, Findings *findings);
// Why the service daemon of a host does not answer.
[[nodiscard]] Finding SilentDaemon(const Options &options, DWORD code);
// The service daemon's own process, on this machine.
void CheckDaemonProcess(Findings *findings);
// What the daemon has against what the registry and the kernel have. The session is open.
void CheckDaemon(Session &session, const BootDatabase &database, Findings *findings);

// Keys in a command that mends: below HKLM, and that of a service; quoted for a shell.
[[nodiscard]] std::string QuotedKey(const std::string &path);
[[nodiscard]] std::string QuotedServiceKey(const std::string &service);

[[nodiscard]] const char *LevelWord(FindingLevel level); // "info", "warn", "fail"
void PrintFindings(const Findings &findings);
