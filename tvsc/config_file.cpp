// SPDX-License-Identifier: MIT
// config_file: finding the file, and setting the options that it names.
#include "tvsc/config_file.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>

namespace {

// Empty where there is none to be looked for.
std::string PathOfFile() {
    const char *const folder = std::getenv("XDG_CONFIG_HOME"), *const home = std::getenv("HOME");
    const bool isFolder = folder != nullptr && *folder == '/'; // a relative one is to be passed over
    if (!isFolder && (home == nullptr || *home == '\0')) return "";
    return (isFolder ? std::string(folder) : std::string(home) + "/.config") + "/tvsc/config.toml";
}

// What would be surprising in every command.
bool IsForOneLine(const std::string &name) {
    constexpr std::array<std::string_view, 4> names = {"dry-run", "help", "no-config", "version"};
    return std::find(names.begin(), names.end(), name) != names.end();
}

// What makes one command many. Those that run on behalf of the hosts read the file, too, and would run others in turn.
bool IsForHosts(const CLI::ConfigItem &item) {
    if (item.name == "hosts" || item.name == "ssh") return true;
    return item.name == "host" && item.inputs.front().find(',') != std::string::npos;
}

// Returns what is wrong.
std::string SetDefault(CLI::App &app, const CLI::ConfigItem &item) {
    if (!item.parents.empty()) return fmt::format("{}: common options only, no section", item.fullname());
    CLI::Option *const option = app.get_option_no_throw("--" + item.name);
    if (option == nullptr || IsForOneLine(item.name)) return item.name + ": no such option";
    if (item.inputs.size() != 1) return item.name + ": not one value";
    if (IsForHosts(item)) return item.name + ": several hosts are for the command line and the environment";
    try {
        option->run_callback_for_default()->default_val(item.inputs.front());
    } catch (const CLI::Error &error) {
        return error.what();
    }
    return "";
}

} // namespace

std::string ReadConfigFile(CLI::App &app) {
    const std::string path = PathOfFile();
    if (path.empty() || access(path.c_str(), R_OK) != 0) return "";
    std::string problem;
    try {
        for (const CLI::ConfigItem &item : CLI::ConfigTOML().from_file(path)) {
            if (item.name == "++" || item.name == "--") continue; // the parser's own: a section begins or ends
            if (problem.empty()) problem = SetDefault(app, item);
        }
    } catch (const CLI::Error &error) {
        problem = error.what();
    }
    return problem.empty() ? "" : path + ": " + problem;
}
