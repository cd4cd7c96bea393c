// SPDX-License-Identifier: MIT
// text_commands: the commands on services as text, on the command line.
#include "tvsc/commands.h"
#include "tvsc/edit.h"
#include "tvsc/export.h"
#include "tvsc/sc.h"

namespace {

const std::map<std::string, TextFormat> textFormats = {{"toml", TextFormat::toml}, {"reg", TextFormat::reg}};

} // namespace

void AddTextCommands(CLI::App &app, CommandLine &line) {
    CLI::App *write = AddPlainCommand(app, line, "export", "Write services as text",
                                      [&line] { return RunExport(line.options, line.names, line.textFormat); });
    AddNames(write, line, false);
    write->add_option("--format", line.textFormat, "toml, or reg as tvreg writes it")
        ->transform(CLI::CheckedTransformer(textFormats))
        ->type_name("FORMAT");

    CLI::App *apply = AddPlainCommand(app, line, "apply", "Make services what a text says",
                                      [&line] { return RunApply(line.options, line.apply); });
    apply->add_option("file", line.apply.file, "As export writes it; -: standard input")->required();
    auto *prune = apply->add_flag("--prune", line.apply.prune, "Take away what it does not have, services too");
    apply->add_flag("--stop", line.apply.stop, "With --prune: stop services first that run")->needs(prune);
    AddTimeout(apply, line);

    CLI::App *clone = AddPlainCommand(app, line, "clone", "Create a service like another one", [&line] {
        return RunClone(line.options, line.name, line.newName, line.create.display);
    });
    clone->add_option(nameOption, line.name, "Of the one that is there")->required();
    clone->add_option("new-name,--new-name", line.newName, "Of the new one")->required();
    clone->add_option("--display", line.create.display, "Display name (default: the name)");

    AddPlainCommand(app, line, "edit", "Change a service as text in VISUAL or EDITOR",
                    [&line] { return RunEdit(line.options, line.name); })
        ->add_option(nameOption, line.name)
        ->required();

    // Its words are the Win32 tool's own: options of ours stand before it.
    CLI::App *sc = app.add_subcommand("sc", "The verbs of the Win32 tool, with its syntax and its layout");
    sc->prefix_command();
    sc->fallthrough(false);
    sc->callback([&line, sc] { line.run = [&line, words = sc->remaining()] { return RunSc(line.options, words); }; });
}
