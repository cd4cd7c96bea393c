// SPDX-License-Identifier: MIT
// snapshot: states of keys kept as files, to look back at and to go back to.
//
// A snapshot is a .reg file (REGEDIT4, which holds every byte) named after it, in a folder of the user; its first key
// is the one that was taken.
#include "tvreg/commands.h"
#include "tvreg/compare.h"
#include "tvreg/registry_reading.h"
#include "tvreg/registry_writing.h"
#include "util/json_text.h"
#include "util/printable.h"
#include "util/similar_names.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

namespace {

constexpr std::string_view suffix = ".reg";

std::filesystem::path Folder() {
    const char *state = std::getenv("XDG_STATE_HOME"), *home = std::getenv("HOME");
    if (state != nullptr && *state == '/') return std::filesystem::path(state) / "tvreg" / "snapshots";
    if (home != nullptr && *home != '\0') {
        return std::filesystem::path(home) / ".local" / "state" / "tvreg" / "snapshots";
    }
    throw Failure(EXIT_FAILED, "neither XDG_STATE_HOME nor HOME is set: no place for snapshots");
}

std::string FileOf(const std::string &name) {
    if (name.empty() || name.front() == '.' || name.find('/') != std::string::npos) {
        throw Failure(EXIT_USAGE, fmt::format("{}: not a name of a snapshot", name));
    }
    return Folder() / (name + std::string(suffix));
}

std::vector<std::string> NamesOfAll() {
    std::vector<std::string> names;
    std::error_code missing;
    for (const auto &file : std::filesystem::directory_iterator(Folder(), missing)) {
        if (file.path().extension() == suffix) names.push_back(file.path().stem());
    }
    return names;
}

KeyTree ReadSnapshot(const std::string &name) {
    const std::string file = FileOf(name);
    if (!std::filesystem::exists(file)) {
        throw Failure(EXIT_NOT_FOUND, fmt::format("{}: no such snapshot", name), 0, SimilarNames(name, NamesOfAll()));
    }
    KeyTree tree = {{}, KeysOfFile(file)};
    if (tree.keys.empty()) throw Failure(EXIT_BAD_TEXT, fmt::format("{}: holds no key", file));
    tree.top = tree.keys.front().key;
    return tree;
}

KeyTree ReadNow(const KeyPath &top) {
    if (!KeyExists(top)) return {top, {}};
    return {top, ReadKeys(top)};
}

void ShowDifferences(const Options &options, const std::vector<Difference> &differences, const KeyPath &top) {
    if (options.json) {
        PrintJson(DifferencesJson("tvreg.snapshot.diff/1", differences, top));
    } else {
        PrintDifferences(differences, top);
    }
}

struct Entry {
    std::string name;
    std::string taken;
    std::string key;
};

std::string TimeOf(const std::filesystem::path &file) {
    const auto written = std::filesystem::last_write_time(file);
    const std::time_t time = std::chrono::system_clock::to_time_t(std::chrono::file_clock::to_sys(written));
    return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(time));
}

std::vector<Entry> ReadEntries() {
    std::vector<Entry> entries;
    for (const std::string &name : NamesOfAll()) {
        entries.push_back({name, TimeOf(FileOf(name)), KeyPathText(ReadSnapshot(name).top)});
    }
    std::sort(entries.begin(), entries.end(),
              [](const Entry &a, const Entry &b) { return std::tie(a.taken, a.name) < std::tie(b.taken, b.name); });
    return entries;
}

} // namespace

int TakeSnapshot(const Options &options) {
    const KeyPath key = KeyOf(options);
    const std::string name =
        options.name.empty() ? fmt::format("{:%Y%m%d-%H%M%S}", fmt::gmtime(std::time(nullptr))) : options.name;
    const std::string file = FileOf(name);
    if (std::filesystem::exists(file)) throw Failure(EXIT_FAILED, fmt::format("{}: there is such a snapshot", name));
    std::string text, culprit;
    if (!WriteRegText(ReadKeys(key), RegDialect::regedit4, &text, &culprit)) {
        throw Failure(EXIT_BAD_TEXT, fmt::format("{}: cannot stand in a file", culprit));
    }
    std::filesystem::create_directories(Folder());
    WriteFile(file, text);
    if (options.json) {
        Json object = {{"schema", "tvreg.snapshot/1"}};
        SetText(object, "name", name);
        SetText(object, "key", KeyPathText(key));
        PrintJson(object);
    } else {
        Print(Printable(name) + "\n");
    }
    return 0;
}

int ListSnapshots(const Options &options) {
    Json object = {{"schema", "tvreg.snapshots/1"}, {"snapshots", Json::array()}};
    for (const Entry &entry : ReadEntries()) {
        Json listed;
        SetText(listed, "name", entry.name);
        listed["taken"] = entry.taken;
        SetText(listed, "key", entry.key);
        object["snapshots"].push_back(listed);
        if (!options.json) Print(fmt::format("{}  {}  {}\n", Printable(entry.name), entry.taken, Printable(entry.key)));
    }
    if (options.json) PrintJson(object);
    return 0;
}

// Against another snapshot, or the registry as it is.
int DiffSnapshot(const Options &options) {
    const KeyTree before = ReadSnapshot(options.name);
    const KeyTree after = options.other.empty() ? ReadNow(before.top) : ReadSnapshot(options.other);
    const std::vector<Difference> differences = CompareTrees(before, after);
    ShowDifferences(options, differences, before.top);
    return differences.empty() ? 0 : 1;
}

int RestoreSnapshot(const Options &options) {
    const KeyTree wanted = ReadSnapshot(options.name);
    const std::vector<Difference> differences = CompareTrees(ReadNow(wanted.top), wanted);
    if (!options.dryRun) MustWriteKeys(ChangesOf(differences, wanted.top));
    ShowDifferences(options, differences, wanted.top);
    return 0;
}
