// SPDX-License-Identifier: MIT
// leavings: looking at /proc and at folders; reading a manual.
#include "tests/support/leavings.h"

#include "svcapi/process_stat.h"
#include "tests/support/host.h"
#include "tvhost/process_tree.h"

#include <filesystem>
#include <sstream>

namespace {

namespace fs = std::filesystem;

std::string CommandLineOf(pid_t process) {
    std::string line = ReadWhatIsThere("/proc/" + std::to_string(process) + "/cmdline");
    for (char &c : line) {
        if (c == '\0') c = ' ';
    }
    return line;
}

// Files come and go while the folder is read. What tests call a scratch folder is their own.
void AddFiles(const std::string &folder, std::set<std::string> *files) {
    std::error_code ignored;
    for (fs::recursive_directory_iterator entry(folder, ignored), end; entry != end; entry.increment(ignored)) {
        if (entry->path().filename().string().starts_with(scratchFolderPrefix)) {
            entry.disable_recursion_pending();
            continue;
        }
        const bool isFullFolder =
            entry->is_directory(ignored) && !entry->is_symlink(ignored) && !fs::is_empty(entry->path(), ignored);
        if (!isFullFolder) files->insert(entry->path());
    }
}

std::string ReplaceAll(std::string text, const std::string &word, const std::string &replacement) {
    return std::regex_replace(text, std::regex(word), replacement);
}

// A path of a manual as an expression. The placeholders are words of capitals of their own.
std::regex ExpressionOf(const std::string &path, const std::string &service) {
    std::string expression = ReplaceAll(path, R"(\.)", R"(\.)");
    expression = ReplaceAll(expression, R"(\bNAME\b)", service);
    return std::regex(ReplaceAll(expression, R"(\b(N|UID)\b)", "[0-9]+"));
}

std::string SectionOf(const std::string &manual, const std::string &heading) {
    const std::size_t begin = manual.find("\n# " + heading + "\n");
    if (begin == std::string::npos) throw std::runtime_error("the manual has no section " + heading);
    return manual.substr(begin + 1, manual.find("\n# ", begin + 1) - begin);
}

} // namespace

HostContents LookAtHost(const std::vector<std::string> &folders) {
    HostContents found;
    for (const TreeProcess &process : DescendantsOf(1)) {
        if (process.hasEnded) continue;
        found.processes[{process.process, process.startTicks}] = CommandLineOf(process.process);
    }
    for (const std::string &folder : folders) {
        AddFiles(folder, &found.files);
    }
    return found;
}

HostContents NewOnHost(const HostContents &before, const HostContents &now) {
    HostContents left = now;
    for (const auto &[process, line] : before.processes) {
        left.processes.erase(process);
    }
    for (const std::string &file : before.files) {
        left.files.erase(file);
    }
    return left;
}

std::vector<std::regex> FilesOfManual(const std::string &manual, const std::string &service) {
    const std::string section = SectionOf(ReadFile(manual), "FILES");
    const std::regex underlined("_(/[^_ ]+)_");
    std::vector<std::regex> files;
    for (std::sregex_iterator path(section.begin(), section.end(), underlined), end; path != end; ++path) {
        files.push_back(ExpressionOf(path->str(1), service));
    }
    return files;
}
