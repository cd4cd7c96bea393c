// SPDX-License-Identifier: MIT
// command_line: the commands and options of tvsc.
//
// Every subcommand stores what is to be run; it runs after the whole line was understood. What stands behind "--" is
// taken off before: it belongs to the service (start), is its program (create) or is a command (with-lock).
#include "tvsc/command_line.h"

#include "tvsc/act.h"
#include "tvsc/configure.h"
#include "tvsc/daemon.h"
#include "tvsc/json_output.h"
#include "tvsc/lock.h"
#include "tvsc/logs.h"
#include "tvsc/look.h"
#include "tvsc/names.h"
#include "tvsc/plan.h"
#include "tvsc/prepare.h"
#include "tvsc/report.h"
#include "tvsc/words.h"
#include "util/printable.h"
#include "util/similar_names.h"
#include "util/usage.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace {

const std::map<std::string, DWORD> startTypes = {{"boot", SERVICE_BOOT_START},
                                                 {"system", SERVICE_SYSTEM_START},
                                                 {"auto", SERVICE_AUTO_START},
                                                 {"demand", SERVICE_DEMAND_START},
                                                 {"disabled", SERVICE_DISABLED}};
const std::map<std::string, DWORD> serviceTypes = {{"own", SERVICE_WIN32_OWN_PROCESS},
                                                   {"share", SERVICE_WIN32_SHARE_PROCESS},
                                                   {"kernel", SERVICE_KERNEL_DRIVER},
                                                   {"filesys", SERVICE_FILE_SYSTEM_DRIVER}};
const std::map<std::string, DWORD> errorControls = {{"ignore", SERVICE_ERROR_IGNORE},
                                                    {"normal", SERVICE_ERROR_NORMAL},
                                                    {"severe", SERVICE_ERROR_SEVERE},
                                                    {"critical", SERVICE_ERROR_CRITICAL}};
const std::map<std::string, DWORD> waitStates = {
    {"running", SERVICE_RUNNING}, {"stopped", SERVICE_STOPPED}, {"paused", SERVICE_PAUSED}};
const std::map<std::string, double> timeUnits = {{"ms", 0.001}, {"s", 1}, {"min", 60}, {"h", 3600}};
constexpr double longestTimeSec = 1'000'000;
constexpr int mostPings = 1'000'000;
constexpr double shortestCallSec = 0.001; // no time at all would mean not to wait for an answer

// A number of seconds, or a number with a unit; at least `least` seconds.
CLI::Validator ReadTime(double least = 0) {
    const CLI::Validator read = CLI::AsNumberWithUnit(timeUnits, CLI::AsNumberWithUnit::UNIT_OPTIONAL);
    return CLI::Validator(
        [read, least](std::string &time) -> std::string {
            const std::string said = time;
            try {
                if (read(time).empty() && std::stod(time) >= least && std::stod(time) <= longestTimeSec) return "";
            } catch (const CLI::ValidationError &) { // an unknown unit; told below
            }
            return fmt::format("{}: not a time: seconds, or a number with ms, s, min or h behind it", said);
        },
        "");
}

// One word of several; the number that it stands for takes its place.
CLI::Validator ReadWord(const std::map<std::string, DWORD> &words) {
    return CLI::Validator(
        [words](std::string &word) -> std::string {
            const auto found = words.find(word);
            if (found == words.end()) {
                std::vector<std::string> known;
                known.reserve(words.size());
                for (const auto &entry : words) {
                    known.push_back(entry.first);
                }
                return fmt::format("{}: none of {}", word, fmt::join(known, ", "));
            }
            word = std::to_string(found->second);
            return "";
        },
        "");
}

// All that the command line can say.
struct CommandLine {
    Options options;
    std::vector<std::string> names;
    std::string name;
    std::vector<std::string> behindDashes;
    ListFilter list;
    LogOptions log;
    bool fresh = false;
    bool probe = false;
    bool asksStatus = false;    // the exit status tells a state
    bool showsServices = false; // JSON lists services, none when the daemon is not there
    bool noWait = false;
    bool wait = false;
    StartOptions start;
    StopOptions stop;
    CreateOptions create;
    ConfigOptions config;
    DeleteOptions deletion;
    DWORD control = 0;
    DWORD code = 0;
    DWORD waitState = SERVICE_RUNNING;
    std::optional<DWORD> lockId;
    int pings = 1;
    std::function<int()> run;
};

using SessionCommand = std::function<int(Session &)>;

int RunInSession(const CommandLine &line, const SessionCommand &command) {
    Session session;
    session.options = line.options;
    const int opened = OpenSession(session, true);
    if (opened == EXIT_DONE) return command(session);
    if (session.options.json && line.showsServices) {
        PrintServicesJson(session, {});
    } else {
        (void)Finish(session); // for the JSON; the status is that of the connection
    }
    return line.asksStatus ? static_cast<int>(STATUS_UNKNOWN) : opened;
}

// A subcommand that needs a session with a loaded database.
//   check  throws where options contradict each other that are right one by one; may be empty
CLI::App *AddCommand(CLI::App &parent, CommandLine &line, const std::string &name, const std::string &help,
                     SessionCommand command, const std::function<void()> &check = {}) {
    CLI::App *added = parent.add_subcommand(name, help);
    added->callback([&line, command = std::move(command), check] {
        if (check) check();
        line.run = [&line, command] { return RunInSession(line, command); };
    });
    return added;
}

// The same for a command whose exit status tells a state: without a daemon that is "unknown".
CLI::App *AddStatusCommand(CLI::App &parent, CommandLine &line, const std::string &name, const std::string &help,
                           SessionCommand command) {
    CLI::App *added = AddCommand(parent, line, name, help, std::move(command));
    added->parse_complete_callback([&line] { line.asksStatus = line.showsServices = true; });
    return added;
}

// A state as JSON names it, or failed.
CLI::Validator ReadState() {
    return CLI::Validator(
        [](std::string &word) -> std::string {
            std::vector<std::string> known = {"failed"};
            for (DWORD state = SERVICE_STOPPED; state <= SERVICE_PAUSED; ++state) {
                known.push_back(StateWord(state, true));
            }
            const bool isKnown = std::find(known.begin(), known.end(), word) != known.end();
            return isKnown ? "" : fmt::format("{}: none of {}", word, fmt::join(known, ", "));
        },
        "");
}

// Also as an option: a name that begins with a dash would be taken for one.
constexpr char nameOption[] = "name,--name";

void AddNames(CLI::App *command, CommandLine &line, bool required = true) {
    command->add_option(nameOption, line.names, "Service names, display names or patterns (* ? [])")
        ->required(required);
}

void AddTimeout(CLI::App *command, CommandLine &line) {
    command->add_option("--timeout", line.options.waitTimeoutSec, "Longest wait, such as 90s or 2min")
        ->transform(ReadTime())
        ->type_name("TIME")
        ->capture_default_str();
}

void AddWaitOptions(CLI::App *command, CommandLine &line) {
    command->add_flag("--no-wait", line.noWait, "Return as soon as the request was accepted");
    command->add_flag("--wait", line.wait, "Wait until the state is reached (the default)");
    AddTimeout(command, line);
}

void AddLookCommands(CLI::App &app, CommandLine &line) {
    CLI::App *list = AddCommand(app, line, "list", "List services",
                                [&line](Session &session) { return RunList(session, line.list); });
    list->parse_complete_callback([&line] { line.showsServices = true; });
    list->add_option("pattern", line.list.patterns, "Only names that match (* ? [])");
    list->add_option("--state", line.list.states, "Only services in these states: running,stopped,failed,...")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check(ReadState());
    list->add_option("--group", line.list.group, "Only services of this load-order group");
    list->add_flag("--names-only", line.list.namesOnly, "Names, one a line");
    list->add_flag("--brief", line.list.brief, "Leave out what configurations tell: fewer calls");

    CLI::App *status = AddStatusCommand(app, line, "status", "Show the state of services", [&line](Session &session) {
        const StatusLook look = line.probe ? StatusLook::probe : line.fresh ? StatusLook::fresh : StatusLook::passive;
        return RunStatus(session, line.names, look);
    });
    status->alias("query");
    AddNames(status, line);
    status->add_flag("--fresh", line.fresh, "Let the daemon apply its deadline: may find a service dead");
    status->add_flag("--probe", line.probe, "Ask the service itself");

    AddNames(AddStatusCommand(app, line, "is-active", "Exit with 0 when all run",
                              [&line](Session &session) { return RunIsActive(session, line.names); }),
             line);
    AddNames(AddStatusCommand(app, line, "is-failed", "Exit with 0 when one has failed",
                              [&line](Session &session) { return RunIsFailed(session, line.names); }),
             line);
    CLI::App *show = AddCommand(app, line, "show", "Show state and configuration",
                                [&line](Session &session) { return RunShow(session, line.names); });
    show->parse_complete_callback([&line] { line.showsServices = true; });
    show->alias("qc");
    AddNames(show, line);
    AddCommand(app, line, "deps", "List what a service depends on",
               [&line](Session &session) { return RunDeps(session, line.name, false); })
        ->add_option(nameOption, line.name)
        ->required();
    AddCommand(app, line, "dependents", "List what depends on a service",
               [&line](Session &session) { return RunDeps(session, line.name, true); })
        ->add_option(nameOption, line.name)
        ->required();
    AddCommand(app, line, "name", "Translate between name and display name",
               [&line](Session &session) { return RunName(session, line.name); })
        ->add_option(nameOption, line.name)
        ->required();
    const auto planBoot = [&line] { line.run = [&line] { return RunPlanBoot(line.options); }; };
    app.add_subcommand("order", "Tell what the daemon starts with itself, in which order and why (plan boot)")
        ->callback(planBoot);
    CLI::App *plan = app.add_subcommand("plan", "Tell what would be done, without doing it");
    plan->require_subcommand(1);
    plan->add_subcommand("boot", "What the daemon starts with itself, in which order and why")->callback(planBoot);
    CLI::App *logs = app.add_subcommand("logs", "Show what a service that tvhost runs has written");
    logs->callback([&line] { line.run = [&line] { return RunLogs(line.options, line.log); }; });
    logs->add_option(nameOption, line.log.name)->required();
    logs->add_flag("-f,--follow", line.log.follow, "And what it writes from now on, until interrupted");
    logs->add_option("-n,--lines", line.log.lines, "Only the last so many lines");
    logs->add_option("--since", line.log.sinceSec, "Only the last TIME, such as 10min")
        ->transform(ReadTime())
        ->type_name("TIME");
    CLI::App *explain = app.add_subcommand("explain", "Say what a Win32 code means");
    explain->add_option("code", line.code)->required();
    explain->callback([&line] { line.run = [&line] { return RunExplain(line.options, line.code); }; });
}

void AddActCommands(CLI::App &app, CommandLine &line) {
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

    CLI::App *restart = AddCommand(app, line, "restart", "Stop, then start",
                                   [&line](Session &session) { return RunRestart(session, line.names); });
    AddNames(restart, line);
    AddTimeout(restart, line);

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
    CLI::App *control =
        AddCommand(app, line, "control", "Send a control by its number (1 to 4, 128 to 255)",
                   [&line](Session &session) { return RunControl(session, {line.name}, line.control, false); });
    control->add_option(nameOption, line.name)->required();
    control->add_option("code", line.control)->required();

    CLI::App *wait = AddCommand(app, line, "wait", "Wait until services are in a state",
                                [&line](Session &session) { return RunWait(session, line.names, line.waitState); });
    AddNames(wait, line);
    AddTimeout(wait, line);
    wait->add_option("--for", line.waitState, "running, stopped or paused")
        ->transform(ReadWord(waitStates))
        ->type_name("STATE");
    AddNames(AddCommand(app, line, "reset", "Have the daemon forget a service that is not there any more",
                        [&line](Session &session) { return RunReset(session, line.names); }),
             line);
}

// NAME=VALUE; nothing behind the sign takes the variable away.
CLI::Validator ReadVariable() {
    return CLI::Validator(
        [](std::string &variable) -> std::string {
            const std::size_t sign = variable.find('=');
            return sign != 0 && sign != std::string::npos ? "" : variable + ": not NAME=VALUE";
        },
        "");
}

// What a service is created with and what can be changed, as far as it is a word of several.
template <typename Options>
void AddWordOptions(CLI::App *command, Options &options) {
    command->add_option("--start", options.startType, "auto, demand, disabled, boot or system")
        ->transform(ReadWord(startTypes))
        ->type_name("WORD");
    command->add_option("--type", options.type, "own, share, kernel or filesys")
        ->transform(ReadWord(serviceTypes))
        ->type_name("WORD");
    command->add_option("--error", options.errorControl, "ignore, normal, severe or critical")
        ->transform(ReadWord(errorControls))
        ->type_name("WORD");
}

void AddCreateCommand(CLI::App &app, CommandLine &line) {
    CreateOptions &create = line.create;
    CLI::App *command = AddCommand(app, line, "create", "Create a service; a program that tvhost runs may follow --",
                                   [&line](Session &session) {
                                       line.create.words = line.behindDashes;
                                       return RunCreate(session, line.create);
                                   });
    command->add_option(nameOption, create.name)->required();
    auto *image = command->add_option_group("image", "What is run: exactly one of");
    auto *exec = image->add_option("--exec", create.exec, "Any program and its arguments, run by tvhost");
    image->add_option("--program", create.program, "A service program and its arguments; writes a launcher");
    image->add_option("--image", create.image, "A csh script that ends in exec");
    // A program behind "--" is one that tvhost runs.
    const bool isBehindDashes = !line.behindDashes.empty();
    image->require_option(isBehindDashes ? 0 : 1, isBehindDashes ? 0 : 1);
    const auto forTvhost = [&](CLI::Option *option) { return isBehindDashes ? option : option->needs(exec); };
    command->add_option("--display", create.display, "Display name (default: the name)");
    AddWordOptions(command, create);
    command->add_option("--depends", create.dependencies, "Services, and groups with a leading +")
        ->delimiter(',')
        ->allow_extra_args(false);
    auto *group = command->add_option("--group", create.group, "Load-order group");
    command->add_flag("--tag", create.tag, "Ask for a tag inside the group")->needs(group);
    command->add_option("--user", create.user, "Unix user to run as (default: the daemon's)");
    forTvhost(command->add_option("--env", create.environment, "NAME=VALUE for the program that tvhost runs"))
        ->allow_extra_args(false)
        ->check(ReadVariable());
    forTvhost(command->add_option("--cwd", create.directory, "Its working directory"));
    forTvhost(command->add_option("--stdout", create.standardOutput, "File for its standard output"));
    forTvhost(command->add_option("--stderr", create.standardError, "File for its standard error"));
    forTvhost(command->add_option("--stop-timeout-ms", create.stopTimeoutMs, "Time before it is killed"));
    forTvhost(command->add_option("--set", create.settings, "PARAMETER=VALUE of tvhost(8), such as AppRestart=always"))
        ->allow_extra_args(false);
}

bool ChangesSomething(const ConfigOptions &config) {
    return config.display || config.image || config.group || config.user || config.type || config.startType ||
           config.errorControl || config.dependencies || config.tag;
}

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
    change->add_option("--display", config.display, "Display name");
    change->add_option("--image", config.image, "A csh script that ends in exec");
    change->add_option("--group", config.group, "Load-order group");
    change->add_option("--user", config.user, "Unix user to run as");
    AddWordOptions(change, config);
    change->add_option("--depends", config.dependencies, "Services, and groups with a leading +; \"\" for none");
    change->add_flag("--tag", config.tag, "Ask for a tag inside the group");

    CLI::App *deletion = AddCommand(app, line, "delete", "Delete services", [&line](Session &session) {
        line.deletion.names = line.names;
        return RunDelete(session, line.deletion);
    });
    AddNames(deletion, line);
    deletion->add_flag("--stop", line.deletion.stop, "Stop them first");
    deletion->add_flag("--wait", line.deletion.wait, "Wait until they are gone");
    AddTimeout(deletion, line);
}

void AddDaemonCommands(CLI::App &app, CommandLine &line) {
    CLI::App *lock = app.add_subcommand("lock", "The database lock");
    lock->require_subcommand(1);
    AddCommand(*lock, line, "status", "Who holds it", [](Session &session) { return RunLockStatus(session); });
    AddCommand(*lock, line, "release", "Free it, whoever holds it", [&line](Session &session) {
        return RunLockRelease(session, line.lockId);
    })->add_option("--id", line.lockId, "Its identifier, where the owner's name does not tell it");
    AddCommand(
        app, line, "with-lock", "Run the command behind -- while holding the lock",
        [&line](Session &session) { return RunWithLock(session, line.behindDashes); },
        [&line] {
            if (line.behindDashes.empty()) throw CLI::RequiredError("a command behind --");
        });

    CLI::App *ping = app.add_subcommand("ping", "Ask the daemon whether it answers");
    ping->add_option("-c,--count", line.pings, "How often")->check(CLI::Range(1, mostPings))->capture_default_str();
    ping->callback([&line] { line.run = [&line] { return RunPing(line.options, line.pings); }; });
    CLI::App *online = app.add_subcommand("wait-online", "Wait until the daemon answers");
    online->callback([&line] { line.run = [&line] { return RunWaitOnline(line.options); }; });
    online->add_option("--timeout", line.options.waitTimeoutSec, "Longest wait, such as 90s or 15min")
        ->transform(ReadTime())
        ->type_name("TIME");
    CLI::App *daemon = app.add_subcommand("daemon", "The daemon itself");
    daemon->require_subcommand(1);
    daemon->add_subcommand("status", "Whether it runs, with its services")->callback([&line] {
        line.run = [&line] { return RunDaemonStatus(line.options); };
    });
    app.add_subcommand("prepare", "Make the files that services with accounts leave their process ids in; for root")
        ->callback([&line] { line.run = [&line] { return RunPrepare(line.options); }; });
    daemon->add_subcommand("stop", "End it; services are left running")->callback([&line] {
        line.run = [&line] { return RunDaemonStop(line.options); };
    });
}

void AddGlobalOptions(CLI::App &app, CommandLine &line) {
    app.add_option("--host", line.options.host, "Host of the daemon")->envname("TVSC_HOST")->capture_default_str();
    app.add_option("--call-timeout", line.options.callTimeoutSec, "Longest single call to the daemon")
        ->envname("TVSC_TIMEOUT")
        ->transform(ReadTime(shortestCallSec))
        ->type_name("TIME")
        ->capture_default_str();
    app.add_flag("--json", line.options.json, "Write JSON to standard output");
    app.add_flag("-q,--quiet", line.options.quiet, "Tell failures only");
    SpeakAs(app, TV_VERSION);
    app.require_subcommand(0, 1);
    app.fallthrough();
    app.get_formatter()->column_width(28);
}

// The command that the line got to.
const CLI::App &CommandReached(const CLI::App &app) {
    const CLI::App *reached = &app;
    while (!reached->get_subcommands().empty()) {
        reached = reached->get_subcommands().front();
    }
    return *reached;
}

// Three commands hand on what stands behind "--"; nobody else may have it fall under the table.
void CheckBehindDashes(const CLI::App &app, const CommandLine &line) {
    const std::string &command = CommandReached(app).get_name();
    if (line.behindDashes.empty() || command == "start" || command == "with-lock" || command == "create") return;
    throw CLI::ValidationError("--", "not expected here; a name that begins with a dash is given as --name=NAME");
}

// What stands on the command line and means nothing: a command, an option, or an argument too many.
void SayUnknown(const CLI::App &app, const std::string &word) {
    std::vector<std::string> commands;
    for (const CLI::App *command : CommandReached(app).get_subcommands(nullptr)) {
        commands.push_back(command->get_name());
    }
    const bool isCommand = !commands.empty() && word.front() != '-';
    fmt::print(stderr, "tvsc: {}: {}\n", Printable(word), isCommand ? "no such command" : "not expected here");
    const std::vector<std::string> similar = SimilarNames(word, commands);
    if (isCommand && !similar.empty()) fmt::print(stderr, "  did you mean {}?\n", fmt::join(similar, ", "));
    fmt::print(stderr, "Run with --help for more information.\n");
}

} // namespace

std::function<int()> ReadCommandLine(int argc, char **argv, int *status) {
    const auto line = std::make_shared<CommandLine>();
    int words = argc;
    for (int i = 1; i < argc; ++i) {
        if (std::string_view(argv[i]) != "--") continue;
        line->behindDashes.assign(argv + i + 1, argv + argc);
        words = i;
        break;
    }
    CLI::App app("Works on the services of the service daemon.", "tvsc");
    AddGlobalOptions(app, *line);
    AddLookCommands(app, *line);
    AddActCommands(app, *line);
    AddConfigureCommands(app, *line);
    AddDaemonCommands(app, *line);
    line->run = [&line = *line] {
        line.showsServices = true;
        return RunInSession(line, [](Session &session) { return RunList(session, {}); });
    };
    try {
        app.parse(words, argv);
        CheckBehindDashes(app, *line);
    } catch (const CLI::Success &asked) {
        *status = app.exit(asked); // help or version
        return nullptr;
    } catch (const CLI::ParseError &error) {
        const std::vector<std::string> unknown = app.remaining(true);
        if (unknown.empty()) {
            (void)app.exit(error); // says what is wrong
        } else {
            SayUnknown(app, unknown.front());
        }
        *status = EXIT_USAGE;
        return nullptr;
    }
    return [line] {
        if (!line->options.quiet) WatchForBusyDaemon();
        return line->run();
    };
}
