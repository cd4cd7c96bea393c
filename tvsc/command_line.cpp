// SPDX-License-Identifier: MIT
// command_line: the global options of tvsc, and what is said about a line that means nothing.
//
// What stands behind "--" is taken off before the line is read: it belongs to the service (start), is its program
// (create) or is a command (with-lock).
#include "tvsc/command_line.h"

#include "tvsc/commands.h"
#include "tvsc/completion.h"
#include "tvsc/report.h"
#include "util/printable.h"
#include "util/similar_names.h"
#include "util/usage.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace {

constexpr double shortestCallSec = 0.001; // no time at all would mean not to wait for an answer

void AddGlobalOptions(CLI::App &app, CommandLine &line) {
    app.add_option("--host", line.options.host, "Host of the daemon")->envname("TVSC_HOST")->capture_default_str();
    app.add_option("--call-timeout", line.options.callTimeoutSec, "Longest single call to the daemon")
        ->envname("TVSC_TIMEOUT")
        ->transform(ReadTime(shortestCallSec))
        ->type_name("TIME")
        ->capture_default_str();
    app.add_flag("--json", line.options.json, "Write JSON to standard output");
    app.add_flag("-q,--quiet", line.options.quiet, "Tell failures only");
    app.add_flag("--dry-run", line.options.dryRun, "Tell what would be done, and do nothing");
    app.add_option("--color", line.options.colour, "Colours: auto (at a terminal), always or never")
        ->envname("TVSC_COLOR")
        ->transform(CLI::CheckedTransformer(std::map<std::string, ColourWhen>{
            {"auto", ColourWhen::automatic}, {"always", ColourWhen::always}, {"never", ColourWhen::never}}))
        ->type_name("WHEN");
    SpeakAs(app, TV_VERSION);
    app.require_subcommand(0, 1);
    app.fallthrough();
    app.get_formatter()->column_width(28);
}

// Commands about the command line itself. Their texts are made while the line is read: the parser lives no longer.
void AddOwnCommands(CLI::App &app, CommandLine &line) {
    CLI::App *help = app.add_subcommand("help", "Show the help of a command");
    help->add_option("command", line.names, "Its name, and that of a command of it");
    help->callback([&app, &line] {
        const CLI::App *named = &app;
        for (const std::string &word : line.names) {
            const auto found = named->get_subcommands([&](const CLI::App *one) { return one->check_name(word); });
            if (found.empty()) throw CLI::ValidationError(word, "no such command");
            named = found.front();
        }
        line.run = [text = named->help()] {
            fmt::print("{}", text);
            return static_cast<int>(EXIT_DONE);
        };
    });
    CLI::App *completion = app.add_subcommand("completion", "Write the completion for a shell");
    completion->add_option("shell", line.what, "bash, zsh or fish")
        ->required()
        ->check(CLI::IsMember({"bash", "zsh", "fish"}));
    completion->callback([&app, &line] {
        line.run = [text = CompletionScript(line.what, app)] {
            fmt::print("{}", text);
            return static_cast<int>(EXIT_DONE);
        };
    });
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

// The command that the line got to, as it is typed: "lock release"; empty for tvsc itself.
std::string PathOf(const CLI::App &app) {
    std::string path;
    for (const CLI::App *reached = &app; !reached->get_subcommands().empty();) {
        reached = reached->get_subcommands().front();
        path += (path.empty() ? "" : " ") + reached->get_name();
    }
    return path;
}

// Says what is wrong with the line, as text and, where that was asked for, as JSON.
//   suggested  commands that may have been meant
void SayWrong(const CLI::App &app, bool json, const std::string &what, const std::vector<std::string> &suggested) {
    const std::string path = PathOf(app);
    fmt::print(stderr, "tvsc: {}{}\n", path.empty() ? "" : path + ": ", Printable(what));
    if (!suggested.empty()) fmt::print(stderr, "  did you mean {}?\n", fmt::join(suggested, ", "));
    fmt::print(stderr, "Run tvsc {}{}--help for more information.\n", path, path.empty() ? "" : " ");
    if (!json) return;
    Session session;
    session.options.json = true;
    session.results.push_back({path, "usage", ERROR_INVALID_PARAMETER, EXIT_USAGE, what, suggested});
    (void)Finish(session); // the status is known
}

// What stands on the command line and means nothing: a command, an option, or an argument too many.
void SayUnknown(const CLI::App &app, bool json, const std::string &word) {
    std::vector<std::string> commands;
    for (const CLI::App *command : CommandReached(app).get_subcommands(nullptr)) {
        commands.push_back(command->get_name());
    }
    const bool isCommand = !commands.empty() && word.front() != '-';
    SayWrong(app, json, fmt::format("{}: {}", word, isCommand ? "no such command" : "not expected here"),
             isCommand ? SimilarNames(word, commands) : std::vector<std::string>());
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
    AddTellCommands(app, *line);
    AddActCommands(app, *line);
    AddConfigureCommands(app, *line);
    AddDaemonCommands(app, *line);
    AddOwnCommands(app, *line);
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
        const bool json =
            std::any_of(argv + 1, argv + words, [](const char *word) { return std::string_view(word) == "--json"; });
        if (unknown.empty()) {
            SayWrong(app, json, error.what(), {});
        } else {
            SayUnknown(app, json, unknown.front());
        }
        *status = EXIT_USAGE;
        return nullptr;
    }
    return [line] {
        ChooseColours(line->options.colour);
        if (!line->options.quiet) WatchForBusyDaemon();
        return line->run();
    };
}
