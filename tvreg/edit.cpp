// SPDX-License-Identifier: MIT
// edit: a key as text in an editor. What comes back is read and held against what was there before anything is written.
#include "tvreg/commands.h"
#include "tvreg/compare.h"
#include "tvreg/registry_reading.h"
#include "tvreg/registry_writing.h"
#include "util/text_editor.h"

#include <fmt/format.h>
#include <unistd.h>

namespace {

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
    std::string problem;
    const std::string file = NewTextFile("tvreg", ".reg", TextOf(before.keys), &problem);
    if (file.empty()) throw Failure(EXIT_FAILED, problem);
    if (!RunEditor(file, &problem)) throw Failure(EXIT_FAILED, fmt::format("{}; the text is in {}", problem, file));
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
