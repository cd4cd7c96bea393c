// SPDX-License-Identifier: MIT
// command_line: one table of commands; of the one that is called, and only of that, the options are set up: what help
// and completion say of the others is made when it is asked for.
#include "tvreg/command_line.h"

#include "tvreg/completion.h"
#include "tvreg/encoding.h"
#include "tvreg/output.h"
#include "tvreg/registry_access.h"
#include "tvreg/spellings.h"
#include "util/similar_names.h"
#include "util/usage.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace {

using Run = int (*)(const Options &);

struct Command {
    const char *name;
    const char *help;
    Run run;
    void (*describe)(CLI::App *command, Options &options); // its own options, behind those of all
};

void OnKey(CLI::App *command, Options &options) {
    command->add_option("KEY", options.key, R"(HKLM\..., HKEY_LOCAL_MACHINE\..., HKLM/... or \\HOST\HKLM\...)")
        ->required();
}

// An empty name is that of the value without one, and never means the whole key.
CLI::Option *OnValue(CLI::App *command, Options &options) {
    auto *name = command->add_option("-v,--value", options.valueName, "the name of a value");
    name->each([&options](const std::string &text) { options.unnamed = text.empty(); });
    command->add_flag("--ve", options.unnamed, "the value without a name")->excludes(name);
    return name;
}

void OnRecursive(CLI::App *command, Options &options) {
    command->add_flag("-s,--recursive", options.recursive, "all keys below, too");
}

void OnDryRun(CLI::App *command, Options &options) {
    command->add_flag("-n,--dry-run", options.dryRun, "show what would be written");
}

// The answer to questions of the Win32 tool, which are never asked here.
void OnYes(CLI::App *command, Options &options, const char *spellings) {
    command->add_flag(spellings, options.force, "ignored: nothing is ever asked");
}

void OnSearch(CLI::App *command, Options &options) {
    command->add_flag("-k,--keys", options.inKeys, "search in the names of keys");
    command->add_flag("--names", options.inNames, "search in the names of values");
    command->add_flag("--in-data", options.inData, "search in the data of values");
    command->add_flag("-c,--case", options.isCaseSensitive, "the case of letters matters");
    command->add_flag("-e,--exact", options.isWhole, "all of a name or of data has to match");
    command->add_option("-t,--type", options.types, "only values of these types")->delimiter(',');
    command->add_flag("-z,--type-numbers", options.showTypeNumbers, "show the numbers of types, too");
    command->add_option("--se", options.separator, "what stands between the strings of a multi")->capture_default_str();
}

void OnQuery(CLI::App *command, Options &options) {
    OnKey(command, options);
    OnValue(command, options);
    OnRecursive(command, options);
    command->add_option("-f,--find", options.pattern, "only what matches: part of a text; * and ? stand for others");
    OnSearch(command, options);
}

void OnFind(CLI::App *command, Options &options) {
    command->add_option("PATTERN", options.pattern, "part of a text; * and ? stand for others")->required();
    command->add_option("KEY", options.key, "HKLM when it is left out");
    OnSearch(command, options);
}

void OnAdd(CLI::App *command, Options &options) {
    OnKey(command, options);
    OnValue(command, options);
    command->add_option("-t,--type", options.type, "sz, expand, multi, dword, qword, binary, none, REG_... or a number")
        ->capture_default_str();
    command->add_option("-d,--data", options.data, "data: several words for multi, - for standard input")
        ->allow_extra_args();
    command->add_option("-s,--separator", options.separator, "between the strings of a multi")->capture_default_str();
    OnYes(command, options, "-f,--force");
}

void OnDelete(CLI::App *command, Options &options) {
    OnKey(command, options);
    CLI::Option *value = OnValue(command, options);
    command->add_flag("--va", options.allValues, "all values of the key")
        ->excludes(value)
        ->excludes(command->get_option("--ve"));
    OnYes(command, options, "-f,--force");
}

void OnTwoKeys(CLI::App *command, Options &options) {
    OnKey(command, options);
    command->add_option("KEY2", options.otherKey, "the other key")->required();
}

void OnCopy(CLI::App *command, Options &options) {
    OnTwoKeys(command, options);
    OnRecursive(command, options);
    command->add_flag("-f,--force", options.force, "replace values that are there with other data");
}

void OnCompare(CLI::App *command, Options &options) {
    OnTwoKeys(command, options);
    OnValue(command, options);
    OnRecursive(command, options);
    command->add_flag("--oa", options.showAll, "show what is different and what is the same");
    command->add_flag("--od", options.showDifferences, "show what is different, as it does without any of these");
    command->add_flag("--os", options.showSame, "show what is the same");
    command->add_flag("--on", options.showNothing, "show nothing");
}

void OnHive(CLI::App *command, Options &options) {
    OnKey(command, options);
    command->add_option("FILE", options.file, "on the registry daemon's machine")->required();
}

void OnSave(CLI::App *command, Options &options) {
    OnHive(command, options);
    OnYes(command, options, "-y,--yes");
}

void OnImport(CLI::App *command, Options &options) {
    command->add_option("FILE", options.files, ".reg text, version 5.00 or REGEDIT4; - for standard input")->required();
    OnDryRun(command, options);
    command->add_flag("--lenient", options.isLenient, "tell wrong lines, pass them over and write the rest");
    command->add_option("--encoding", options.encoding, "of the text, such as UTF-16LE or CP1252; told from it without")
        ->check(CLI::Validator([](std::string &name) { return IsEncoding(name) ? "" : name + ": no such encoding"; },
                               "NAME"));
    command->add_flag("--fix-services", options.fixServices, "make services of a Win32 registry ones of this system");
}

void OnExport(CLI::App *command, Options &options) {
    OnKey(command, options);
    command->add_option("FILE", options.file, "standard output when it is left out or -");
    command->add_flag("--reg4", options.reg4, "REGEDIT4 instead of version 5.00: bytes as they are");
    OnYes(command, options, "-y,--yes");
}

void OnLs(CLI::App *command, Options &options) {
    OnKey(command, options);
    command->add_flag("-r", options.recursive, "of all keys below");
}

void OnGet(CLI::App *command, Options &options) {
    OnKey(command, options);
    command->add_option("VALUE", options.valueName, "its name; the value without a name when left out");
    command->add_flag("--raw", options.raw, "the bytes as they are")->excludes(command->get_option("--json"));
}

void OnSet(CLI::App *command, Options &options) {
    OnKey(command, options);
    command->add_option("VALUE", options.valueName, "its name; may be empty")->required();
    command->add_option("DATA", options.data, "as for add -d");
    command->add_option("-t,--type", options.type, "as for add")->capture_default_str();
}

void OnRm(CLI::App *command, Options &options) {
    OnKey(command, options);
    command->add_option("VALUE", options.goesValue, "its name");
    command->add_flag("-r", options.recursive, "a key with subkeys, too");
}

void OnTree(CLI::App *command, Options &options) {
    OnKey(command, options);
    command->add_option("--depth", options.depth, "how many keys deep");
}

void OnDiff(CLI::App *command, Options &options) {
    command->add_option("A", options.key, "a key or a .reg file")->required();
    command->add_option("B", options.otherKey, "the other; the same key when it is left out");
    command->add_option("--host2", options.otherHost, "the machine of B");
}

void OnWatch(CLI::App *command, Options &options) {
    OnKey(command, options);
    command->add_option("--interval", options.intervalSec, "seconds between two looks")
        ->check(CLI::Range(0.01, 86400.0))
        ->capture_default_str();
}

void OnEdit(CLI::App *command, Options &options) {
    OnKey(command, options);
    OnDryRun(command, options);
}

void OnShell(CLI::App *command, Options &options) {
    command->add_option("SHELL", options.name, "bash, zsh or fish")->required();
}

void OnNothing(CLI::App * /*command*/, Options & /*options*/) {}

int Complete(const Options &options);

// --- snapshot has commands of its own ---

void OnSnapshotName(CLI::App *command, Options &options) {
    command->add_option("NAME", options.name, "of the snapshot")->required();
}

void OnTake(CLI::App *command, Options &options) {
    OnKey(command, options);
    command->add_option("NAME", options.name, "of the snapshot; the time when it is left out");
}

void OnSnapshotDiff(CLI::App *command, Options &options) {
    OnSnapshotName(command, options);
    command->add_option("NAME2", options.other, "a later one; the registry as it is when left out");
}

void OnSnapshotRestore(CLI::App *command, Options &options) {
    OnSnapshotName(command, options);
    OnDryRun(command, options);
}

constexpr Command snapshotCommands[] = {
    {"list", "list the snapshots", ListSnapshots, OnNothing},
    {"take", "keep a key with all below it as it is now", TakeSnapshot, OnTake},
    {"diff", "show what has changed since", DiffSnapshot, OnSnapshotDiff},
    {"restore", "make the key what it was", RestoreSnapshot, OnSnapshotRestore},
};

constexpr Command commands[] = {
    {"query", "show the values and subkeys of a key", Query, OnQuery},
    {"add", "make a key, or set a value", Add, OnAdd},
    {"delete", "delete a key with all below it, or values", Delete, OnDelete},
    {"copy", "copy the values of a key to another one", Copy, OnCopy},
    {"compare", "compare two keys", Compare, OnCompare},
    {"save", "have the registry daemon save a key as a hive", SaveHive, OnSave},
    {"restore", "have the registry daemon read a key from a hive", RestoreHive, OnHive},
    {"load", "have the registry daemon hang a hive in", LoadHive, OnHive},
    {"unload", "have the registry daemon take a hive out", UnloadHive, OnKey},
    {"export", "write a key with all below it as .reg text", Export, OnExport},
    {"import", "read .reg files into the registry", Import, OnImport},
    {"ls", "list the names of the subkeys", List, OnLs},
    {"get", "print the data of a value", Get, OnGet},
    {"set", "set a value", Set, OnSet},
    {"rm", "delete a value, or a key", Remove, OnRm},
    {"find", "search a key and all below it", Find, OnFind},
    {"tree", "show the keys below as a tree", Tree, OnTree},
    {"diff", "show what tells two keys or files from each other", Diff, OnDiff},
    {"lint", "find what would keep services from loading or starting", Lint, OnNothing},
    {"watch", "show changes as they come", Watch, OnWatch},
    {"snapshot", "keep states of keys", nullptr, OnNothing},
    {"edit", "edit a key as text", Edit, OnEdit},
    {"version", "ask the registry daemon for its version", Version, OnNothing},
    {"completion", "print the completion script of a shell", Complete, OnShell},
};

void OnAll(CLI::App *command, Options &options) {
    command->add_option("--host", options.host, "the machine of the registry daemon");
    command->add_option("--timeout", options.timeoutSec, "seconds after which to give up")->check(CLI::PositiveNumber);
    command->add_flag("--json", options.json, "as JSON");
}

void SetUpCommand(CLI::App &above, const Command &command, Invocation *invocation) {
    CLI::App *added = above.add_subcommand(command.name, command.help);
    if (command.run == nullptr) {
        added->require_subcommand(1);
        for (const Command &below : snapshotCommands) {
            SetUpCommand(*added, below, invocation);
        }
        return;
    }
    OnAll(added, invocation->options);
    command.describe(added, invocation->options);
    added->callback([invocation, run = command.run] { invocation->run = run; });
}

const Command *FindCommand(const std::string &name) {
    const auto found = std::find_if(std::begin(commands), std::end(commands),
                                    [&](const Command &command) { return name == command.name; });
    return found != std::end(commands) ? &*found : nullptr;
}

void SetUpProgram(CLI::App &app, const Command *only, Invocation *invocation) {
    SpeakAs(app, TV_VERSION);
    app.require_subcommand(1);
    for (const Command &command : commands) {
        if (only == nullptr || only == &command) SetUpCommand(app, command, invocation);
    }
}

constexpr char about[] = "Shows and changes the registry through the registry daemon of this machine, or of the one "
                         "that TARVO_REGISTRY_HOST or --host names.";

// The words in front of the command: options of all commands may stand there, too. Takes them out.
std::vector<std::string> TakeOptionsAhead(std::vector<std::string> *words) {
    std::size_t count = 0;
    while (count < words->size()) {
        const std::string &word = (*words)[count];
        if (word == "--json" || word.starts_with("--host=") || word.starts_with("--timeout=")) {
            ++count;
        } else if (word == "--host" || word == "--timeout") {
            count += 2;
        } else {
            break;
        }
    }
    if (count >= words->size()) return {}; // no command at all
    const auto end = words->begin() + static_cast<std::ptrdiff_t>(count);
    std::vector<std::string> ahead(words->begin(), end);
    words->erase(words->begin(), end);
    return ahead;
}

// A command's words as the parser takes them: all options behind it, or behind the command below it.
std::vector<std::string> ArgumentsOf(const Command &command, const std::vector<std::string> &words,
                                     const std::vector<std::string> &ahead) {
    std::vector<std::string> arguments = OurSpellings(command.name, {words.begin() + 1, words.end()});
    const bool isBelow = command.run == nullptr && !arguments.empty() && !arguments.front().starts_with('-');
    arguments.insert(arguments.begin() + (isBelow ? 1 : 0), ahead.begin(), ahead.end());
    arguments.insert(arguments.begin(), words.front());
    return arguments;
}

std::vector<std::string> CommandNames() {
    std::vector<std::string> names;
    for (const Command &command : commands) {
        names.emplace_back(command.name);
    }
    return names;
}

[[noreturn]] void FailUnknown(const std::string &word) {
    const std::vector<std::string> similar = SimilarNames(word, CommandNames());
    throw Failure(EXIT_USAGE, similar.empty() ? word + ": no such command; see tvreg --help"
                                              : fmt::format("{}: no such command; did you mean {}?", word,
                                                            fmt::join(similar, ", ")));
}

// The options of the command that was called, or the commands below it, that a word may have been meant for.
std::vector<std::string> Meant(const CLI::App &app, const std::string &word) {
    const CLI::App *called = &app;
    while (!called->get_subcommands().empty()) {
        called = called->get_subcommands().front();
    }
    std::vector<std::string> names;
    if (word.starts_with('-')) {
        for (const CLI::Option *option : called->get_options()) {
            for (const std::string &name : option->get_lnames()) {
                names.push_back("--" + name);
            }
        }
    } else {
        for (const CLI::App *below : called->get_subcommands([](const CLI::App *) { return true; })) {
            names.push_back(below->get_name());
        }
    }
    return SimilarNames(word.substr(0, word.find('=')), names);
}

int Complete(const Options &options) {
    Invocation unused;
    CLI::App app(about, "tvreg");
    SetUpProgram(app, nullptr, &unused);
    const std::string script = CompletionScript(options.name, app);
    if (script.empty()) {
        throw Failure(EXIT_USAGE, fmt::format("{}: not one of bash, zsh and fish", options.name), 0,
                      SimilarNames(options.name, {"bash", "zsh", "fish"}));
    }
    Print(script);
    return 0;
}

} // namespace

void ReadCommandLine(int argc, const char *const *argv, Invocation *invocation) {
    std::vector<std::string> words(argv + 1, argv + argc);
    const std::vector<std::string> ahead = TakeOptionsAhead(&words);
    const Command *command = words.empty() ? nullptr : FindCommand(words.front());
    CLI::App app(about, "tvreg");
    SetUpProgram(app, command, invocation);
    std::vector<std::string> arguments = command != nullptr ? ArgumentsOf(*command, words, ahead) : words;
    std::reverse(arguments.begin(), arguments.end()); // as the parser takes them
    try {
        app.parse(std::move(arguments));
    } catch (const CLI::ParseError &error) {
        invocation->options.json = std::find(argv + 1, argv + argc, std::string_view("--json")) != argv + argc;
        const std::vector<std::string> unknown = app.remaining();
        if (app.get_subcommands().empty() && !unknown.empty()) FailUnknown(unknown.front());
        // Of compare, the status of wrong usage tells of a difference.
        const bool isCompare = command != nullptr && command->run == Compare;
        if (app.exit(error) == 0) return;
        const std::vector<std::string> below = app.remaining(true);
        const std::vector<std::string> meant = below.empty() ? below : Meant(app, below.front());
        if (!meant.empty()) Tell(fmt::format("did you mean {}?", fmt::join(meant, ", ")));
        if (invocation->options.json) PrintJson(ErrorJson(error.what(), 0, meant));
        throw Failure(isCompare ? EXIT_FAILED : EXIT_USAGE, "");
    }
}
