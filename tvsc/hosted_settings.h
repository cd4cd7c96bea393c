// SPDX-License-Identifier: MIT
// hosted_settings: what create and config say of the program that a service runs.
#pragma once

#include "svcapi/image_launcher.h"
#include "tvhost/parameters.h"

#include <optional>

struct ProgramSettings {
    std::string exec;                            // program and arguments, run by tvhost
    std::vector<std::string> words;              // the same, word by word
    std::vector<std::string> environment;        // NAME=VALUE
    std::vector<std::string> removedEnvironment; // names; one that is set, too, is set
    std::optional<std::string> directory, standardOutput, standardError;
    std::optional<DWORD> stopTimeoutMs;
    std::vector<std::string> settings; // NAME=VALUE of tvhost's parameters
};

[[nodiscard]] bool NamesCommand(const ProgramSettings &settings);
// Whether anything is said that only tvhost can do, a command left aside.
[[nodiscard]] bool NeedsTvhost(const ProgramSettings &settings);
[[nodiscard]] bool SaysAnything(const ProgramSettings &settings);

// Changes parameters as told. A variable of the environment takes the place of the one of its name; one that is to be
// removed and is not there is no mistake. Returns 0, or 3, 13 or 87 and a text: what the program, a setting or the
// command line lacks.
[[nodiscard]] DWORD ApplySettings(const ProgramSettings &settings, HostParameters *parameters, std::string *problem);

// Whether an image is the launcher of tvhost, wherever that lies.
[[nodiscard]] bool IsTvhostImage(const std::string &image);

// What a service runs, as a shell would take it; empty where it is not known.
[[nodiscard]] std::string CommandOf(const std::string &service, const std::string &image);
