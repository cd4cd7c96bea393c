// SPDX-License-Identifier: MIT
// act_commands: the commands that move services between states, on the command line.
#include "tvsc/commands.h"
#include "tvsc/signals.h"

namespace {

const std::map<std::string, DWORD> waitStates = {{"running", SERVICE_RUNNING},
                                                 {"stopped", SERVICE_STOPPED},
                                                 {"paused", SERVICE_PAUSED},
                                                 {"failed", waitForFailure},
                                                 {"deleted", waitForDeletion}};

void AddStartCommand(CLI::App &app, CommandLine &line) {
    CLI::App *start =
        AddCommand(app, line, "start", "Start services; arguments for them follow --", [&line](Session &session) {
            line.start.names = line.names;
            line.start.arguments = line.behindDashes;
            line.start.wait = !line.noWait;
            return RunStart(session, line.start);
        });
    AddNames(start, line);
    AddWaitOptions(start, line);
    start->add_flag("--with-deps", line.start.withDependencies, "Start what they depend on first");
    start->add_flag("--force", line.start.force, "Although they are disabled");
}

void AddStopCommand(CLI::App &app, CommandLine &line) {
    CLI::App *stop = AddCommand(
        app, line, "stop", "Stop services",
        [&line](Session &session) {
            line.stop.names = line.names;
            line.stop.wait = !line.noWait;
            return RunStop(session, line.stop);
        },
        [&line] {
            if (line.names.empty() != line.stop.all) throw CLI::RequiredError("either a name or --all");
        });
    AddNames(stop, line, false);
    AddWaitOptions(stop, line);
    stop->add_flag("--all", line.stop.all, "All that run, dependents first");
    stop->add_flag("--with-dependents", line.stop.withDependents, "Stop what depends on them first");
    stop->add_flag("--force", line.stop.force, "Although others depend on them");
}

void AddRestartCommand(CLI::App &app, CommandLine &line) {
    CLI::App *restart = AddCommand(app, line, "restart", "Stop, then start", [&line](Session &session) {
        line.stop.names = line.names;
        return RunRestart(session, line.stop);
    });
    AddNames(restart, line);
    restart->add_flag("--with-dependents", line.stop.withDependents, "And what depends on them, around them");
    restart->add_flag("--force", line.stop.force, "Although others depend on them, or they are disabled");
    AddTimeout(restart, line);
}

// Those that send a control of their own name.
void AddPauseCommands(CLI::App &app, CommandLine &line) {
    const std::pair<const char *, DWORD> controls[] = {{"pause", SERVICE_CONTROL_PAUSE},
                                                       {"continue", SERVICE_CONTROL_CONTINUE},
                                                       {"interrogate", SERVICE_CONTROL_INTERROGATE}};
    for (const auto &[word, control] : controls) {
        CLI::App *command = AddCommand(
            app, line, word, std::string("Send the control ") + word,
            [&line, code = control](Session &session) { return RunControl(session, line.names, code, !line.noWait); });
        AddNames(command, line);
        AddWaitOptions(command, line);
    }
}

// Those that a program hears of, and not its service.
void AddSignalCommands(CLI::App &app, CommandLine &line) {
    CLI::App *kill = AddCommand(app, line, "kill", "Send a signal to the programs of services",
                                [&line](Session &session) { return RunKill(session, line.signal, line.names); });
    kill->add_option("signal", line.signal, "Its name or number")->required();
    AddNames(kill, line);
    AddNames(AddCommand(app, line, "reload", "Have programs that tvhost runs read their configuration again",
                        [&line](Session &session) { return RunReload(session, line.names); }),
             line);
}

void AddControlCommand(CLI::App &app, CommandLine &line) {
    CLI::App *control =
        AddCommand(app, line, "control", "Send a control by its number (1 to 4, 128 to 255)",
                   [&line](Session &session) { return RunControl(session, {line.name}, line.control, false); });
    control->add_option(nameOption, line.name)->required();
    control->add_option("code", line.control)->required();
}

void AddWaitCommand(CLI::App &app, CommandLine &line) {
    CLI::App *wait = AddCommand(app, line, "wait", "Wait until services are in a state",
                                [&line](Session &session) { return RunWait(session, line.names, line.waitState); });
    AddNames(wait, line);
    AddTimeout(wait, line);
    wait->add_option("--for", line.waitState, "running, stopped, paused, failed or deleted")
        ->transform(ReadWord(waitStates))
        ->type_name("STATE");
}

void AddResetCommand(CLI::App &app, CommandLine &line) {
    CLI::App *reset = AddCommand(app, line, "reset", "Have the daemon forget a service that is not there any more",
                                 [&line](Session &session) {
                                     line.reset.names = line.names;
                                     return RunReset(session, line.reset);
                                 });
    AddNames(reset, line);
    auto *ending = reset->add_flag("--kill", line.reset.kill, "End the processes that it has left, too");
    reset->add_flag("-y,--yes", line.reset.yes, "And not only tell which these are")->needs(ending);
    AddTimeout(reset, line);
}

} // namespace

// In the order of the help.
void AddActCommands(CLI::App &app, CommandLine &line) {
    AddStartCommand(app, line);
    AddStopCommand(app, line);
    AddRestartCommand(app, line);
    AddPauseCommands(app, line);
    AddSignalCommands(app, line);
    AddControlCommand(app, line);
    AddWaitCommand(app, line);
    AddResetCommand(app, line);
}
