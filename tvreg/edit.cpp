// SPDX-License-Identifier: MIT
// edit: a key as text in an editor. What comes back is read and held against what was there before anything is written.
#include "tvreg/commands.h"
#include "tvreg/compare.h"
#include "tvreg/registry_reading.h"
#include "tvreg/registry_writing.h"
#include "util/guard.h"

#include <fmt/format.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

// A file that only its owner may read, in the folder for such.
std::string NewFile() {
    const char *folder = std::getenv("TMPDIR");
    std::string name = fmt::format("{}/tvreg.XXXXXX.reg", folder != nullptr && *folder != '\0' ? folder : "/tmp");
    int descriptor = mkstemps(name.data(), 4);
    if (descriptor < 0) throw Failure(EXIT_FAILED, fmt::format("{}: {}", name, std::strerror(errno)));
    const DescriptorGuard closed(&descriptor);
    return name;
}

// The variables may hold options; the shell takes them apart.
void RunEditor(const std::string &file) {
    const char *editor = std::getenv("VISUAL");
    if (editor == nullptr || *editor == '\0') editor = std::getenv("EDITOR");
    if (editor == nullptr || *editor == '\0') editor = "vi";
    const std::string command = fmt::format("{} \"$1\"", editor);
    const pid_t child = fork();
    if (child < 0) throw Failure(EXIT_FAILED, fmt::format("{}: {}", editor, std::strerror(errno)));
    if (child == 0) {
        execl("/bin/sh", "sh", "-c", command.c_str(), "sh", file.c_str(), nullptr);
        _exit(127);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (status != 0) throw Failure(EXIT_FAILED, fmt::format("{}: the editor failed; the text is in {}", editor, file));
}

// The text that is edited: REGEDIT4, which holds every byte and is UTF-8 where the registry is.
std::string TextOf(const std::vector<RegKey> &keys) {
    std::string text, culprit;
    if (WriteRegText(keys, RegDialect::regedit4, &text, &culprit)) return text;
    throw Failure(EXIT_BAD_TEXT, fmt::format("{}: cannot stand in a text", culprit));
}

std::vector<RegKey> ReadEdited(const std::string &file, const KeyPath &top) {
    std::vector<RegKey> keys;
    const std::vector<RegTextError> errors = ReadRegText(ReadFile(file), &keys);
    for (const RegTextError &error : errors) {
        Tell(fmt::format("{}:{}: {}", file, error.line, error.text));
    }
    if (!errors.empty()) throw Failure(EXIT_BAD_TEXT, fmt::format("nothing is written; the text is in {}", file));
    for (const RegKey &key : keys) {
        const bool isBelow = key.key.root == top.root && (top.path.empty() || key.key.path == top.path ||
                                                          key.key.path.starts_with(top.path + "\\"));
        if (isBelow) continue;
        throw Failure(EXIT_BAD_TEXT,
                      fmt::format("{}:{}: not below the key that is edited; nothing is written", file, key.line));
    }
    return StateOf(keys);
}

} // namespace

int Edit(const Options &options) {
    const KeyPath top = KeyOf(options);
    const KeyTree before = {top, ReadKeys(top)};
    const std::string file = NewFile();
    WriteFile(file, TextOf(before.keys));
    RunEditor(file);
    const KeyTree after = {top, ReadEdited(file, top)};
    const std::vector<Difference> differences = CompareTrees(before, after);
    if (!CompareTrees(before, {top, ReadKeys(top)}).empty()) {
        throw Failure(EXIT_FAILED, fmt::format("{}: has been changed meanwhile; nothing is written, the text is in {}",
                                               KeyPathText(top), file));
    }
    if (!options.dryRun) MustWriteKeys(ChangesOf(differences, top));
    (void)unlink(file.c_str());
    if (options.json) {
        PrintJson(DifferencesJson("tvreg.edit/1", differences, top));
    } else {
        PrintDifferences(differences, top);
    }
    return 0;
}
