// SPDX-License-Identifier: MIT
// look_commands: the commands that only look, on the command line.
#include "tvsc/commands.h"
#include "tvsc/names.h"
#include "tvsc/service_properties.h"
#include "tvsc/words.h"
#include "util/similar_names.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace {

constexpr double shortestWatchSec = 0.05; // more often than that a look would load the daemon

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

CLI::Validator ReadProperty() {
    return CLI::Validator(
        [](std::string &word) -> std::string {
            const std::vector<std::string> known = PropertyNames();
            if (std::find(known.begin(), known.end(), word) != known.end()) return "";
            const std::vector<std::string> similar = SimilarNames(word, known);
            return similar.empty()
                       ? fmt::format("{}: none of {}", word, fmt::join(known, ", "))
                       : fmt::format("{}: no such property; did you mean {}?", word, fmt::join(similar, ", "));
        },
        "");
}

} // namespace

void AddListCommand(CLI::App &app, CommandLine &line) {
    CLI::App *list = AddCommand(app, line, "list", "List services",
                                [&line](Session &session) { return RunList(session, line.list); });
    list->parse_complete_callback([&line] { line.showsServices = true; });
    list->add_option("pattern", line.list.patterns, "Only names that match (* ? [])");
    list->add_option("--state", line.list.states, "Only services in these states: running,stopped,failed,...")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check(ReadState());
    list->add_option("--group", line.list.group, "Only services of this load-order group");
    list->add_option("--type", line.list.type, "Only these: win32 or driver")
        ->transform(ReadWord({{"win32", SERVICE_WIN32}, {"driver", SERVICE_DRIVER}}))
        ->type_name("TYPE");
    list->add_flag("--all", line.list.all, "Also those that are marked for deletion, or never listed by the daemon");
    list->add_flag("--names-only", line.list.namesOnly, "Names, one a line");
    list->add_flag("--brief", line.list.brief, "Leave out what configurations tell: fewer calls");
}

void AddStateCommands(CLI::App &app, CommandLine &line) {
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
    AddNames(AddStatusCommand(app, line, "is-healthy", "Exit with 0 when all that is started with the daemon runs",
                              [&line](Session &session) { return RunIsHealthy(session, line.names); }),
             line, false);
}

void AddLookCommands(CLI::App &app, CommandLine &line) {
    CLI::App *show = AddCommand(app, line, "show", "Show state and configuration",
                                [&line](Session &session) { return RunShow(session, line.names, line.properties); });
    show->parse_complete_callback([&line] { line.showsServices = true; });
    show->alias("qc");
    AddNames(show, line);
    show->add_option("-p,--property", line.properties, "Only the value of this; several are a line each")
        ->allow_extra_args(false)
        ->check(ReadProperty())
        ->type_name("PROPERTY");
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
    CLI::App *logs = app.add_subcommand("logs", "Show what a service that tvhost runs has written");
    logs->callback([&line] { line.run = [&line] { return RunLogs(line.options, line.log); }; });
    logs->add_option(nameOption, line.log.name)->required();
    logs->add_flag("-f,--follow", line.log.follow, "And what it writes from now on, until interrupted");
    logs->add_option("-n,--lines", line.log.lines, "Only the last so many lines");
    logs->add_option("--since", line.log.sinceSec, "Only the last TIME, such as 10min")
        ->transform(ReadTime())
        ->type_name("TIME");

    CLI::App *watch = AddCommand(app, line, "watch", "Show services as they change, until interrupted",
                                 [&line](Session &session) { return RunWatch(session, line.watch); });
    watch->add_option("pattern", line.watch.patterns, "Only these: names, or patterns (* ? [])");
    watch->add_option("--interval", line.watch.intervalSec, "Time between two looks")
        ->transform(ReadTime(shortestWatchSec))
        ->type_name("TIME")
        ->capture_default_str();
    watch->add_option("--count", line.watch.looks, "End after so many looks")->check(CLI::PositiveNumber);
    watch->add_flag("--initial", line.watch.beginsWithAll, "Begin with a line for each service as it stands");
}
