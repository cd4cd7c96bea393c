// SPDX-License-Identifier: MIT
// tvreg: the registry on the command line. Commands and their options; what they do is in the files beside this one.
#include "tvreg/fix_services.h"
#include "tvreg/key_path.h"
#include "tvreg/reg_text.h"
#include "tvreg/registry_access.h"
#include "tvreg/value_text.h"
#include "util/guard.h"
#include "util/ktl_strings.h"
#include "util/printable.h"

#include <CLI/CLI.hpp>
#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>

namespace {

using Json = nlohmann::ordered_json;

struct Options {
    std::string key;
    std::string valueName;
    bool unnamed = false;   // the value without a name is meant
    bool allValues = false; // all values of the key
    bool recursive = false;
    bool json = false;
    bool raw = false;
    bool dryRun = false;
    bool fixServices = false;
    bool reg4 = false;
    bool force = false; // taken and ignored: nothing is ever asked
    std::string type = "REG_SZ";
    std::vector<std::string> data;
    std::vector<std::string> files;
};

// --- shared --------------------------------------------------------------------------------------------------------

KeyPath KeyOf(const Options &options) {
    KeyPath key;
    if (!ParseKeyPath(options.key, &key)) {
        throw Failure(EXIT_USAGE, fmt::format("{}: not a key: a root (HKLM, HKEY_LOCAL_MACHINE ...) and names with one "
                                              "backslash between them",
                                              options.key));
    }
    return key;
}

// The output must have arrived before the program says that all went well.
void Print(std::string_view text) {
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0)
        throw Failure(EXIT_FAILED, fmt::format("standard output: {}", std::strerror(errno)));
}

void PrintJson(const Json &object) { Print(object.dump(2, ' ', false, Json::error_handler_t::replace) + "\n"); }

[[noreturn]] void FailFile(const std::string &name) {
    throw Failure(EXIT_FAILED, fmt::format("{}: {}", name, std::strerror(errno)));
}

// All that can be read of a file, a pipe or, for "-", standard input.
std::string ReadFile(const std::string &file) {
    const bool isInput = file == "-";
    int descriptor = isInput ? STDIN_FILENO : open(file.c_str(), O_RDONLY | O_CLOEXEC);
    const std::string name = isInput ? "standard input" : file;
    if (descriptor < 0) FailFile(name);
    DescriptorGuard closed(&descriptor);
    if (isInput) (void)closed.release(); // not ours to close
    std::string content;
    char piece[64 * 1024];
    for (ssize_t bytes = 0; (bytes = read(descriptor, piece, sizeof piece)) != 0;) {
        if (bytes > 0) content.append(piece, static_cast<std::size_t>(bytes));
        if (bytes < 0 && errno != EINTR) FailFile(name);
    }
    return content;
}

std::string NameText(const RegValue &value) { return value.name.empty() ? "(Default)" : Printable(value.name); }

std::string ValueLine(const RegValue &value) {
    return fmt::format("    {}    {}    {}\n", NameText(value), TypeText(value.type), DataText(value));
}

// --- looking -------------------------------------------------------------------------------------------------------

Json KeyJson(const KeyPath &key, const KeyContent &content) {
    Json object;
    SetText(object, "key", KeyPathText(key));
    object["values"] = Json::array();
    for (const RegValue &value : content.values)
        object["values"].push_back(ValueJson(value));
    object["subkeys"] = Json::array();
    for (const std::string &subKey : content.subKeys)
        object["subkeys"].push_back(subKey);
    return object;
}

void PrintKey(const KeyPath &key, const KeyContent &content, bool withSubKeys) {
    std::string text = Printable(KeyPathText(key)) + "\n";
    for (const RegValue &value : content.values)
        text += ValueLine(value);
    text += "\n";
    for (const std::string &subKey : content.subKeys)
        if (withSubKeys) text += Printable(KeyPathText(Below(key, subKey))) + "\n";
    Print(text);
}

bool WantsOneValue(const Options &options) { return !options.valueName.empty() || options.unnamed; }

// What is asked for of a key that a walk has come to; false when it has nothing of it.
bool KeepWhatIsAskedFor(const Options &options, KeyContent *content) {
    if (!WantsOneValue(options)) return true;
    std::erase_if(content->values, [&](const RegValue &value) {
        return _ktl_strcasecmp(value.name.c_str(), options.valueName.c_str()) != 0;
    });
    return !content->values.empty();
}

void ShowKey(const Options &options, const KeyPath &key, const KeyContent &content, Json *keys) {
    if (options.json) {
        keys->push_back(KeyJson(key, content));
    } else {
        PrintKey(key, content, !options.recursive);
    }
}

void QueryBelow(const Options &options, Json *keys) {
    bool isFound = false;
    std::vector<KeyPath> pending{KeyOf(options)};
    while (!pending.empty()) {
        const KeyPath key = std::move(pending.back());
        pending.pop_back();
        KeyContent content = ReadKey(key);
        for (auto name = content.subKeys.rbegin(); name != content.subKeys.rend(); ++name)
            pending.push_back(Below(key, *name));
        if (!KeepWhatIsAskedFor(options, &content)) continue;
        isFound = true;
        ShowKey(options, key, content, keys);
    }
    if (!isFound)
        Check(ERROR_FILE_NOT_FOUND, fmt::format("{} and below, value \"{}\"", options.key, options.valueName));
}

void Query(const Options &options) {
    Json keys = Json::array();
    const KeyPath key = KeyOf(options);
    if (options.recursive) {
        QueryBelow(options, &keys);
    } else if (WantsOneValue(options)) {
        ShowKey(options, key, {{ReadValue(key, options.valueName)}, {}}, &keys);
    } else {
        ShowKey(options, key, ReadKey(key), &keys);
    }
    if (options.json) PrintJson({{"schema", "tvreg.query/1"}, {"keys", keys}});
}

void List(const Options &options) {
    const KeyPath key = KeyOf(options);
    if (!options.recursive) {
        for (const std::string &subKey : ReadKey(key).subKeys)
            Print(Printable(subKey) + "\n");
        return;
    }
    for (const RegKey &below : ReadKeys(key)) {
        if (below.key.path.size() > key.path.size())
            Print(Printable(below.key.path.substr(key.path.empty() ? 0 : key.path.size() + 1)) + "\n");
    }
}

void Get(const Options &options) {
    const RegValue value = ReadValue(KeyOf(options), options.valueName);
    if (options.json) {
        PrintJson(ValueJson(value));
    } else {
        Print(options.raw ? value.data : DataText(value) + "\n");
    }
}

void Export(const Options &options) {
    std::string text, culprit;
    const auto dialect = options.reg4 ? RegDialect::REGEDIT4 : RegDialect::VERSION5;
    if (!WriteRegText(ReadKeys(KeyOf(options)), dialect, &text, &culprit)) {
        throw Failure(EXIT_BAD_TEXT, fmt::format("{}: cannot stand in this kind of file{}", culprit,
                                                 options.reg4 ? "" : " because it is not UTF-8; try --reg4"));
    }
    if (options.files.empty() || options.files.front() == "-") return Print(text);
    std::ofstream file(options.files.front(), std::ios::binary | std::ios::trunc);
    if (!(file << text) || !file.flush())
        throw Failure(EXIT_FAILED, fmt::format("{}: {}", options.files.front(), std::strerror(errno)));
}

void Version(const Options &options) {
    HKEY key = 0;
    DWORD major = 0, minor = 0, patch = 0;
    Check(RegOpenKeyExA(HKEY_LOCAL_MACHINE, nullptr, 0, KEY_ALL_ACCESS, &key), "registry daemon");
    Check(RegQueryVersionInfo(&major, &minor, &patch), "registry daemon");
    if (options.json) {
        PrintJson({{"schema", "tvreg.version/1"}, {"major", major}, {"minor", minor}, {"patch", patch}});
    } else {
        Print(fmt::format("registry daemon {}.{}.{}\n", major, minor, patch));
    }
}

// --- changing ------------------------------------------------------------------------------------------------------

void Import(const Options &options) {
    // All files are read before anything is written.
    std::vector<RegKey> all;
    for (const std::string &file : options.files) {
        std::vector<RegKey> keys;
        if (const auto error = ReadRegText(ReadFile(file), &keys))
            throw Failure(EXIT_BAD_TEXT, fmt::format("{}:{}: {}", file, error->line, error->text));
        all.insert(all.end(), std::make_move_iterator(keys.begin()), std::make_move_iterator(keys.end()));
    }
    if (options.fixServices) {
        for (const std::string &remark : FixServices(&all))
            (void)std::fprintf(stderr, "%s\n", Printable(remark).c_str());
    }
    if (!options.dryRun) return WriteKeys(all);
    for (const RegKey &key : all) {
        Print(fmt::format("{}{}\n", key.isDeleted ? "- " : "", Printable(KeyPathText(key.key))));
        for (const RegValue &value : key.values)
            Print(value.isDeleted ? fmt::format("  - {}\n", NameText(value)) : ValueLine(value));
    }
}

void Add(const Options &options) {
    const auto type = ParseType(options.type);
    if (!type) throw Failure(EXIT_USAGE, fmt::format("{}: not a type of a value", options.type));
    RegKey key{KeyOf(options), false, {}, 0};
    if (!options.valueName.empty() || options.unnamed || !options.data.empty()) {
        std::vector<std::string> words = options.data;
        if (words.size() == 1 && words.front() == "-") words.front() = ReadFile("-");
        const auto data = ParseData(*type, words);
        if (!data) {
            throw Failure(EXIT_USAGE,
                          fmt::format("\"{}\": not data of the type {}", fmt::join(words, "\" \""), TypeText(*type)));
        }
        RegValue value;
        value.name = options.valueName;
        value.type = *type;
        value.data = *data;
        key.values.push_back(std::move(value));
    }
    WriteKeys({key});
}

void Set(const Options &options) {
    Options add = options;
    add.unnamed = add.valueName.empty();
    Add(add);
}

void Delete(const Options &options) {
    const KeyPath key = KeyOf(options);
    if (options.allValues) {
        for (const RegValue &value : ReadKey(key).values)
            DeleteValue(key, value.name);
    } else if (!options.valueName.empty() || options.unnamed) {
        DeleteValue(key, options.valueName);
    } else {
        DeleteKey(key);
    }
}

// Other than Delete, it leaves a key with subkeys alone unless told.
void Remove(const Options &options) {
    const KeyPath key = KeyOf(options);
    if (!options.files.empty()) return DeleteValue(key, options.files.front());
    if (!options.recursive && !ReadKey(key).subKeys.empty()) Check(ERROR_KEY_HAS_CHILDREN, KeyPathText(key));
    DeleteKey(key);
}

// --- commands ------------------------------------------------------------------------------------------------------

CLI::App *Command(CLI::App &app, const char *name, const char *help, void (*run)(const Options &), Options &options) {
    CLI::App *command = app.add_subcommand(name, help);
    command->callback([run, &options] { run(options); });
    return command;
}

CLI::App *KeyCommand(CLI::App &app, const char *name, const char *help, void (*run)(const Options &),
                     Options &options) {
    CLI::App *command = Command(app, name, help, run, options);
    command->add_option("KEY", options.key, "HKLM\\..., HKEY_LOCAL_MACHINE\\... or HKLM/...")->required();
    return command;
}

// An empty name is that of the value without one, and never means the whole key.
void AddValueOptions(CLI::App *command, Options &options) {
    auto *name = command->add_option("-v,--value", options.valueName, "the name of a value");
    name->each([&options](const std::string &text) { options.unnamed = text.empty(); });
    command->add_flag("--ve", options.unnamed, "the value without a name")->excludes(name);
}

void AddCommands(CLI::App &app, Options &options) {
    app.require_subcommand(1);
    CLI::App *query = KeyCommand(app, "query", "show the values and subkeys of a key", Query, options);
    AddValueOptions(query, options);
    query->add_flag("-s,--recursive", options.recursive, "all keys below, too");
    query->add_flag("--json", options.json, "as JSON");

    CLI::App *add = KeyCommand(app, "add", "make a key, or set a value", Add, options);
    AddValueOptions(add, options);
    add->add_option("-t,--type", options.type, "sz, expand, multi, dword, binary, none, REG_... or a number")
        ->capture_default_str();
    add->add_option("-d,--data", options.data, "data: several words for multi, - for standard input")
        ->allow_extra_args();
    add->add_flag("-f", options.force, "ignored: nothing is ever asked");

    CLI::App *remove = KeyCommand(app, "delete", "delete a key with all below it, or values", Delete, options);
    AddValueOptions(remove, options);
    remove->add_flag("--va", options.allValues, "all values of the key")
        ->excludes(remove->get_option("--value"))
        ->excludes(remove->get_option("--ve"));
    remove->add_flag("-f", options.force, "ignored: nothing is ever asked");

    CLI::App *import = Command(app, "import", "read .reg files into the registry", Import, options);
    import->add_option("FILE", options.files, ".reg text, version 5.00 or REGEDIT4; - for standard input")->required();
    import->add_flag("-n,--dry-run", options.dryRun, "show what would be written");
    import->add_flag("--fix-services", options.fixServices, "make services of a Win32 registry ones of this system");

    CLI::App *export_ = KeyCommand(app, "export", "write a key with all below it as .reg text", Export, options);
    export_->add_option("FILE", options.files, "standard output when it is left out or -")->expected(0, 1);
    export_->add_flag("--reg4", options.reg4, "REGEDIT4 instead of version 5.00: bytes as they are");

    CLI::App *list = KeyCommand(app, "ls", "list the names of the subkeys", List, options);
    list->add_flag("-r", options.recursive, "of all keys below");
    CLI::App *get = KeyCommand(app, "get", "print the data of a value", Get, options);
    get->add_option("VALUE", options.valueName, "its name; the value without a name when left out");
    get->add_flag("--raw", options.raw, "the bytes as they are");
    get->add_flag("--json", options.json, "as JSON")->excludes(get->get_option("--raw"));
    CLI::App *set = KeyCommand(app, "set", "set a value", Set, options);
    set->add_option("VALUE", options.valueName, "its name; may be empty")->required();
    set->add_option("DATA", options.data, "as for add -d");
    set->add_option("-t,--type", options.type, "as for add")->capture_default_str();
    CLI::App *rm = KeyCommand(app, "rm", "delete a value, or a key", Remove, options);
    rm->add_option("VALUE", options.files, "its name")->expected(0, 1);
    rm->add_flag("-r", options.recursive, "a key with subkeys, too");
    CLI::App *version = Command(app, "version", "ask the registry daemon for its version", Version, options);
    version->add_flag("--json", options.json, "as JSON");
}

} // namespace

static int RunProgram(int argc, char **argv) {
    Options options;
    CLI::App app("Shows and changes the registry through the registry daemon of this machine, or of the one that "
                 "TARVO_REGISTRY_HOST names.",
                 "tvreg");
    app.set_version_flag("--version", std::string("tvreg ") + TV_VERSION);
    app.failure_message([](const CLI::App *, const CLI::Error &error) {
        return "tvreg: " + Printable(error.what()) + "\nRun with --help for more information.\n";
    });
    AddCommands(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        const std::vector<std::string> unknown = app.remaining();
        if (app.get_subcommands().empty() && !unknown.empty())
            throw Failure(EXIT_USAGE, unknown.front() + ": no such command; see tvreg --help");
        return app.exit(error) == 0 ? 0 : EXIT_USAGE;
    }
    return 0;
}

int main(int argc, char **argv) {
    try {
        return RunProgram(argc, argv);
    } catch (const Failure &failure) {
        (void)std::fprintf(stderr, "tvreg: %s\n", Printable(failure.what()).c_str());
        return failure.status;
    } catch (const std::exception &failure) {
        (void)std::fprintf(stderr, "tvreg: %s\n", Printable(failure.what()).c_str());
        return EXIT_FAILED;
    }
}
