// SPDX-License-Identifier: MIT
// export: services as text, and services made of text. Each returns the exit status.
#pragma once

#include "tvsc/apply.h"

#include <optional>

enum class TextFormat { toml, reg };

// Read from the registry: the daemon need not run.
//   patterns  names, display names or patterns; none: all services
int RunExport(const Options &options, const std::vector<std::string> &patterns, TextFormat format);

struct ApplyOptions {
    std::string file;   // "-": standard input
    bool prune = false; // what the file does not have goes
    bool stop = false;  // with prune: what runs is stopped for it
};
int RunApply(const Options &options, const ApplyOptions &apply);

//   display  the new one's display name; empty: its name
int RunClone(const Options &options, const std::string &name, const std::string &newName, const std::string &display);

// What these and edit share.

// The one service of a name, as the registry has it; nothing, which is noted, where there is none or several.
[[nodiscard]] std::optional<ServiceText> ReadOneService(Session &session, const std::string &action,
                                                        const std::string &name);
// Whole; "-" is standard input. False when it cannot be read; errno tells why.
[[nodiscard]] bool ReadTextFile(const std::string &file, std::string *text);
// Writes the results as JSON when that is wanted. Returns the exit status.
[[nodiscard]] int FinishApplied(const Session &session, const std::vector<AppliedService> &applied);
