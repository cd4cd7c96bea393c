// SPDX-License-Identifier: MIT
// tvreg: the registry on the command line. Commands and their options; what they do is in commands.
#include "tvreg/commands.h"
#include "tvreg/encoding.h"
#include "tvreg/registry_access.h"
#include "util/printable.h"
#include "util/usage.h"

#include <CLI/CLI.hpp>

#include <cstdio>

namespace {

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
    import->add_flag("--lenient", options.isLenient, "tell wrong lines, pass them over and write the rest");
    import->add_option("--encoding", options.encoding, "of the text, such as UTF-16LE or CP1252; told from it without")
        ->check(CLI::Validator([](std::string &name) { return IsEncoding(name) ? "" : name + ": no such encoding";
}, "NAME"));
import->add_flag("--json", options.json, "as JSON");
import->add_flag("--fix-services", options.fixServices, "make services of a Win32 registry ones of this system");

CLI::App *export_ = KeyCommand(app, "export", "write a key with all below it as .reg text", Export, options);
export_->add_option("FILE", options.file, "standard output when it is left out or -");
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
rm->add_option("VALUE", options.goesValue, "its name");
rm->add_flag("-r", options.recursive, "a key with subkeys, too");
CLI::App *version = Command(app, "version", "ask the registry daemon for its version", Version, options);
version->add_flag("--json", options.json, "as JSON");
} // namespace

int RunProgram(int argc, char **argv) {
    Options options;
    CLI::App app("Shows and changes the registry through the registry daemon of this machine, or of the one that "
                 "TARVO_REGISTRY_HOST names.",
                 "tvreg");
    SpeakAs(app, TV_VERSION);
    AddCommands(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        const std::vector<std::string> unknown = app.remaining();
        if (app.get_subcommands().empty() && !unknown.empty()) {
            throw Failure(EXIT_USAGE, unknown.front() + ": no such command; see tvreg --help");
        }
        return app.exit(error) == 0 ? 0 : EXIT_USAGE;
    }
    return 0;
}

} // namespace

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
