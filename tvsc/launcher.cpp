// SPDX-License-Identifier: MIT
// launcher: writing and checking launchers.
#include "tvsc/launcher.h"

#include "tv/winerror.h"
#include "tvhost/parameters.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;

constexpr char launcherFolder[] = "/etc/tv/services";
constexpr char hostLauncherName[] = "tvhost.csh";
constexpr auto launcherMode = static_cast<fs::perms>(0644);

fs::path PathOf(const std::string &name) { return fs::path(launcherFolder) / (name + ".csh"); }

// A word as csh reads it back: in single quotes, with the exclamation mark kept from the history, and a quote outside.
std::string QuotedForCsh(const std::string &word) {
    std::string quoted = "'";
    for (const char c : word) {
        if (c == '\'') {
            quoted += "'\\''";
        } else if (c == '!') {
            quoted += "\\!";
        } else {
            quoted.push_back(c);
        }
    }
    return quoted + "'";
}

std::string LauncherText(const std::string &name, const std::vector<std::string> &words) {
    std::string text = fmt::format("#!/bin/csh -f\n# starts the service {}; written by tvsc\nexec", name);
    for (const std::string &word : words) {
        text += " " + QuotedForCsh(word);
    }
    return text + "\n";
}

} // namespace

std::string HostLauncherPath() {
    std::error_code failed;
    const fs::path own = fs::read_symlink("/proc/self/exe", failed);
    for (const fs::path &candidate : {own.parent_path() / hostLauncherName, fs::path(TV_LIBEXEC) / hostLauncherName}) {
        if (fs::is_regular_file(candidate, failed)) return candidate;
    }
    return "";
}

std::string WhyNoProgram(const std::string &path) {
    struct stat found = {};
    if (path.empty() || path.front() != '/') return "not an absolute path";
    if (stat(path.c_str(), &found) != 0) return std::strerror(errno);
    return S_ISREG(found.st_mode) && access(path.c_str(), X_OK) == 0 ? "" : "not an executable file";
}

DWORD PlanLauncher(const std::string &name, const std::string &commandLine, std::string *path, std::string *problem) {
    const auto words = SplitCommandLine(commandLine);
    *problem = "the command line cannot be split into words";
    if (!words || words->empty()) return ERROR_INVALID_PARAMETER;
    const std::string why = WhyNoProgram(words->front());
    *problem = fmt::format("{}: {}", words->front(), why);
    if (!why.empty()) return ERROR_PATH_NOT_FOUND;
    *problem = "a launcher cannot hold the end of a line";
    if (commandLine.find('\n') != std::string::npos) return ERROR_INVALID_PARAMETER;
    *problem = "the name cannot be a file name";
    if (name.empty() || name.front() == '.' || name.find_first_of("/\n") != std::string::npos) {
        return ERROR_INVALID_NAME;
    }
    *path = PathOf(name);
    return ERROR_SUCCESS;
}

DWORD WriteLauncher(const std::string &name, const std::string &commandLine) {
    const auto words = SplitCommandLine(commandLine);
    if (!words) return ERROR_INVALID_PARAMETER;
    std::error_code failed;
    fs::create_directories(launcherFolder, failed);
    std::ofstream file(PathOf(name));
    file << LauncherText(name, *words);
    file.close();
    // The service's user reads it, whatever the mask of the one who creates the service.
    if (file) fs::permissions(PathOf(name), launcherMode, failed);
    return file && !failed ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
}

bool RemoveLauncher(const std::string &name) {
    std::error_code failed;
    return name.find('/') == std::string::npos && fs::remove(PathOf(name), failed);
}

std::string WhyNoLauncher(const std::string &path) {
    if (path.empty() || path.front() != '/') return "not an absolute path";
    std::ifstream file(path);
    std::string line;
    if (!file || !std::getline(file, line)) return "cannot be read";
    if (line.rfind("\x7f"
                   "ELF",
                   0) == 0) {
        return "a program; the daemon runs csh scripts (use --exec or --program)";
    }
    if (line.rfind("#!", 0) == 0 && line.find("csh") == std::string::npos) return "a script, but not for csh";
    return "";
}
