// SPDX-License-Identifier: MIT
// usage: how our programs with CLI11 tell their version and what is wrong with their command line.
#pragma once

#include "util/printable.h"

#include <CLI/CLI.hpp>

#include <string>

// Gives an application that has its name the option --version and the words about a wrong command line.
inline void SpeakAs(CLI::App &app, const std::string &version) {
    const std::string name = app.get_name();
    app.set_version_flag("--version", name + " " + version);
    app.failure_message([name](const CLI::App *, const CLI::Error &error) {
        return name + ": " + Printable(error.what()) + "\nRun with --help for more information.\n";
    });
}
