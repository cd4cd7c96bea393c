// SPDX-License-Identifier: MIT
// configure_commands: the commands that create, change and delete services, on the command line.
#include "tvsc/commands.h"
#include "tvsc/config_words.h"
#include "tvsc/mask.h"

namespace {

// NAME=VALUE; nothing behind the sign takes the variable away.
CLI::Validator ReadVariable() {
    return CLI::Validator(
        [](std::string &variable) -> std::string {
            const std::size_t sign = variable.find('=');
            return sign != 0 && sign != std::string::npos ? "" : variable + ": not NAME=VALUE";
        },
        "");
}

// The name of a variable.
CLI::Validator ReadVariableName() {
    return CLI::Validator(
        [](std::string &name) -> std::string {
            return !name.empty() && name.find('=') == std::string::npos ? "" : name + ": not the name of a variable";
        },
        "");
}

// What a service is told by to people.
template <typename Options>
void AddTextOptions(CLI::App *command, Options &options, const std::string &displayHelp) {
    command->add_option("--display", options.display, displayHelp);
    command->add_option("--description", options.description, "What it is there for, in a line or more");
}

// What a service is created with and what can be changed, as far as it is a word of several.
template <typename Options>
void AddWordOptions(CLI::App *command, Options &options) {
    command->add_option("--start", options.startType, "auto, demand, disabled, boot or system")
        ->transform(ReadWord(startTypeWords))
        ->type_name("WORD");
    command->add_option("--type", options.type, "own, share, kernel or filesys")
        ->transform(ReadWord(serviceTypeWords))
        ->type_name("WORD");
    command->add_option("--error", options.errorControl, "ignore, normal, severe or critical")
        ->transform(ReadWord(errorControlWords))
        ->type_name("WORD");
}

// What the program gets that a service runs.
void AddProgramOptions(CLI::App *command, ProgramSettings &run) {
    command->add_option("--env", run.environment, "NAME=VALUE for the program")
        ->allow_extra_args(false)
        ->check(ReadVariable());
    command->add_option("--cwd", run.directory, "Its working directory");
    command->add_option("--stdout", run.standardOutput, "File for its standard output");
    command->add_option("--stderr", run.standardError, "File for its standard error");
    command->add_option("--stop-timeout-ms", run.stopTimeoutMs, "Time before it is killed");
    command->add_option("--set", run.settings, "PARAMETER=VALUE of tvhost(8), such as AppRestart=always")
        ->allow_extra_args(false);
}

void AddCreateCommand(CLI::App &app, CommandLine &line) {
    CreateOptions &create = line.create;
    CLI::App *command = AddCommand(app, line, "create", "Create a service; a program that tvhost runs may follow --",
                                   [&line](Session &session) {
                                       line.create.run.words = line.behindDashes;
                                       return RunCreate(session, line.create);
                                   });
    command->add_option(nameOption, create.name)->required();
    auto *image = command->add_option_group("image", "What is run: exactly one of");
    auto *exec = image->add_option("--exec", create.run.exec, "Any program and its arguments, run by tvhost");
    image->add_option("--program", create.program, "A service program and its arguments; writes a launcher");
    auto *script = image->add_option("--image", create.image, "A csh script that ends in exec");
    // A program behind "--" is one that tvhost runs.
    const bool isBehindDashes = !line.behindDashes.empty();
    image->require_option(isBehindDashes ? 0 : 1, isBehindDashes ? 0 : 1);
    AddTextOptions(command, create, "Display name (default: the name)");
    AddWordOptions(command, create);
    command->add_option("--depends", create.dependencies, "Services, and groups with a leading +")
        ->delimiter(',')
        ->allow_extra_args(false);
    auto *group = command->add_option("--group", create.group, "Load-order group");
    command->add_flag("--tag", create.tag, "Ask for a tag inside the group")->needs(group);
    command->add_option("--user", create.user, "Unix user to run as (default: the daemon's)");
    AddProgramOptions(command, create.run);
    for (const char *option : {"--stdout", "--stderr", "--stop-timeout-ms", "--set"}) {
        if (!isBehindDashes) command->get_option(option)->needs(exec);
    }
    for (const char *option : {"--env", "--cwd"}) {
        if (!isBehindDashes) command->get_option(option)->excludes(script);
    }
}

bool ChangesSomething(const ConfigOptions &config) {
    return config.display || config.description || config.image || config.group || config.user || config.type ||
           config.startType || config.errorControl || config.dependencies || config.tag || SaysAnything(config.run);
}

} // namespace

void AddConfigureCommands(CLI::App &app, CommandLine &line) {
    AddCreateCommand(app, line);
    ConfigOptions &config = line.config;
    CLI::App *change = AddCommand(
        app, line, "config", "Change a service's configuration",
        [&line](Session &session) { return RunConfig(session, line.config); },
        [&line] {
            if (!ChangesSomething(line.config)) throw CLI::RequiredError("something to change");
        });
    change->add_option(nameOption, config.name)->required();
    AddTextOptions(change, config, "Display name");
    auto *script = change->add_option("--image", config.image, "A csh script that ends in exec");
    change->add_option("--exec", config.run.exec, "Any program and its arguments, run by tvhost")->excludes(script);
    AddProgramOptions(change, config.run);
    change->add_option("--unset-env", config.run.removedEnvironment, "NAME of a variable that --env has set")
        ->allow_extra_args(false)
        ->check(ReadVariableName());
    change->add_option("--group", config.group, "Load-order group");
    change->add_option("--user", config.user, "Unix user to run as");
    AddWordOptions(change, config);
    change->add_option("--depends", config.dependencies, "Services, and groups with a leading +; \"\" for none");
    change->add_flag("--tag", config.tag, "Ask for a tag inside the group");

    AddNames(
        AddCommand(app, line, "enable", "Have the daemon start services with itself",
                   [&line](Session &session) { return RunSwitch(session, "enable", line.names, SERVICE_AUTO_START); }),
        line);
    AddNames(
        AddCommand(app, line, "disable", "Have nobody start services",
                   [&line](Session &session) { return RunSwitch(session, "disable", line.names, SERVICE_DISABLED); }),
        line);

    AddNames(AddCommand(app, line, "mask", "Have nothing start services, whoever asks",
                        [&line](Session &session) { return RunMask(session, line.names); }),
             line);
    AddNames(AddCommand(app, line, "unmask", "Have masked services be what they were",
                        [&line](Session &session) { return RunUnmask(session, line.names); }),
             line);

    CLI::App *deletion = AddCommand(app, line, "delete", "Delete services", [&line](Session &session) {
        line.deletion.names = line.names;
        return RunDelete(session, line.deletion);
    });
    AddNames(deletion, line);
    deletion->add_flag("--stop", line.deletion.stop, "Stop them first");
    deletion->add_flag("--with-dependents", line.deletion.withDependents, "With --stop: what depends on them, too");
    deletion->add_flag("--force", line.deletion.force, "Although they, or others that depend on them, run");
    deletion->add_flag("--wait", line.deletion.wait, "Wait until they are gone");
    AddTimeout(deletion, line);
}
