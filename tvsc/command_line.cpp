// SPDX-License-Identifier: MIT
// command_line: the global options of tvsc, and what is said about a line that means nothing.
//
// What stands behind "--" is taken off before the line is read: it belongs to the service (start), is its program
// (create) or is a command (with-lock).
#include "tvsc/command_line.h"

#include "tvsc/commands.h"
#include "tvsc/completion.h"
#include "tvsc/config_file.h"
#include "tvsc/report.h"
#include "tvsc/sc.h"
#include "tvsc/waiting.h"
#include "util/printable.h"
#include "util/similar_names.h"
#include "util/usage.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int mostParallel = 1000;
constexpr double shortestCallSec = 0.001; // no time at all would mean not to wait for an answer

template <typename Value>
struct NamedValue {
    const char *name;
    Value value;
};

constexpr NamedValue<OutputFormat> outputFormats[] = {{"table", OutputFormat::table},
                                                      {"json", OutputFormat::json},
                                                      {"jsonl", OutputFormat::jsonl},
                                                      {"tsv", OutputFormat::tsv}};
constexpr NamedValue<ColourWhen> colourWords[] = {
    {"auto", ColourWhen::automatic}, {"always", ColourWhen::always}, {"never", ColourWhen::never}};

// One word of several. Other than the library's own it costs next to nothing in a line that does not name the option.
template <typename Value, std::size_t N>
CLI::Validator ReadOneOf(const NamedValue<Value> (&values)[N]) {
    return CLI::Validator(
        [&values](std::string &word) -> std::string {
            std::string known;
            for (const NamedValue<Value> &one : values) {
                if (word == one.name) {
                    word = std::to_string(static_cast<int>(one.value));
                    return "";
                }
                known += (known.empty() ? "" : ", ") + std::string(one.name);
            }
            return fmt::format("{}: none of {}", word, known);
        },
        "");
}

void AddGlobalOptions(CLI::App &app, CommandLine &line) {
    app.add_option("--host", line.options.host, "Host of the daemon, or several with commas between them")
        ->envname("TVSC_HOST")
        ->capture_default_str();
    app.add_option("--hosts", line.hosts.file, "File with the names of hosts, one a line")->type_name("FILE");
    app.add_flag("--ssh", line.hosts.overSsh, "Run tvsc on the hosts, through ssh");
    app.add_option("--parallel", line.hosts.parallel, "So many hosts at a time")
        ->check(CLI::Range(1, mostParallel))
        ->capture_default_str();
    app.add_option("--host-timeout", line.hosts.hostTimeoutSec, "Longest time for one of several hosts")
        ->transform(ReadTime(shortestCallSec))
        ->type_name("TIME")
        ->capture_default_str();
    app.add_option("--call-timeout", line.options.callTimeoutSec, "Longest single call to the daemon")
        ->envname("TVSC_TIMEOUT")
        ->transform(ReadTime(shortestCallSec))
        ->type_name("TIME")
        ->capture_default_str();
    app.add_option("--format", line.format,
                   "table, json, jsonl (a row on each line) or tsv (columns, tabs between them)")
        ->transform(ReadOneOf(outputFormats))
        ->type_name("FORMAT");
    app.add_flag("--json", line.json, "The same as --format=json");
    app.add_flag("--no-config")->description("Take nothing from the configuration and the environment");
    app.add_flag("--no-legend", line.hidesLegend, "Tables without a heading and without a last line that sums up");
    app.add_flag("-v,--verbose", line.verbose, "Tell each state on the way to the one that is waited for");
    app.add_flag("--trace", line.options.trace, "Tell each call to the daemon on standard error");
    app.add_flag("-q,--quiet", line.options.quiet, "Tell failures only");
    app.add_flag("-n,--dry-run", line.options.dryRun, "Tell what would be done, and do nothing");
    app.add_option("--timeout", line.options.waitTimeoutSec, "Longest wait for a state, where a command waits for one")
        ->transform(ReadTime())
        ->type_name("TIME")
        ->capture_default_str();
    app.add_option("--color", line.options.colour, "Colours: auto (at a terminal), always or never")
        ->envname("TVSC_COLOR")
        ->transform(ReadOneOf(colourWords))
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

// Four commands hand on what stands behind "--"; nobody else may have it fall under the table.
void CheckBehindDashes(const CLI::App &app, const CommandLine &line) {
    const std::string &command = CommandReached(app).get_name();
    for (const char *taker : {"start", "with-lock", "take", "create"}) {
        if (command == taker) return;
    }
    if (line.behindDashes.empty()) return;
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
//   format  a table: as text only
void SayWrong(const CLI::App &app, OutputFormat format, const std::string &what,
              const std::vector<std::string> &suggested) {
    const std::string path = PathOf(app);
    fmt::print(stderr, "tvsc: {}{}\n", path.empty() ? "" : path + ": ", Printable(what));
    if (!suggested.empty()) fmt::print(stderr, "  did you mean {}?\n", fmt::join(suggested, ", "));
    fmt::print(stderr, "Run tvsc {}{}--help for more information.\n", path, path.empty() ? "" : " ");
    if (format == OutputFormat::table) return;
    ChooseFormat(format, true);
    Session session;
    session.options.json = true;
    session.results.push_back({path, "usage", ERROR_INVALID_PARAMETER, EXIT_USAGE, what, suggested});
    (void)Finish(session); // the status is known
}

// What stands on the command line and means nothing: a command, an option, or an argument too many.
void SayUnknown(const CLI::App &app, OutputFormat format, const std::string &word) {
    std::vector<std::string> commands;
    for (const CLI::App *command : CommandReached(app).get_subcommands(nullptr)) {
        commands.push_back(command->get_name());
    }
    const bool isCommand = !commands.empty() && word.front() != '-';
    SayWrong(app, format, fmt::format("{}: {}", word, isCommand ? "no such command" : "not expected here"),
             isCommand ? SimilarNames(word, commands) : std::vector<std::string>());
}

// How many of the arguments are for this program.
int WordsBeforeDashes(int argc, char **argv) {
    const auto dashes =
        std::find_if(argv + 1, argv + argc, [](const char *word) { return std::strcmp(word, "--") == 0; });
    return static_cast<int>(dashes - argv);
}

// Nothing is said on it yet; without a command it is a list.
std::shared_ptr<CommandLine> NewLine(int argc, char **argv) {
    const auto line = std::make_shared<CommandLine>();
    const int words = WordsBeforeDashes(argc, argv);
    if (words < argc) line->behindDashes.assign(argv + words + 1, argv + argc);
    line->run = [&line = *line] {
        line.showsServices = true;
        return RunInSession(line, [](Session &session) { return RunList(session, {}); });
    };
    return line;
}

// --- formats ---

template <std::size_t N>
bool IsAmong(const std::string &path, const std::array<std::string_view, N> &paths) {
    return std::find(paths.begin(), paths.end(), path) != paths.end();
}

bool IsFormatAsked(const CLI::App &app) { return app.count("--json") + app.count("--format") != 0; }

constexpr std::array<std::string_view, 5> textsOfTheirOwn = {"completion", "export", "help", "logs", "sc"};

// Whether the command writes a text of its own unless the line asks for another format: always, or since the line says
// which.
bool HasTextOfItsOwn(const CLI::App &app, const CommandLine &line) {
    const std::string path = PathOf(app);
    const CLI::Option *const own = path.empty() ? nullptr : CommandReached(app).get_option_no_throw("--format");
    return IsAmong(path, textsOfTheirOwn) || (path == "list" && line.list.namesOnly) ||
           (path == "show" && !line.properties.empty()) || (path == "timeline" && line.asSvg) ||
           (own != nullptr && own->count() != 0);
}

// --- several hosts ---

bool IsForHosts(const CommandLine &line) {
    return line.hosts.overSsh || !line.hosts.file.empty() || line.options.host.find(',') != std::string::npos;
}

// The words of a command line but for the options that are for this program alone: those about hosts and, of a command
// whose JSON makes one table, those about formats. What stands behind "--" is no option, and what stands behind sc is
// not this program's.
//   isSc  the command is sc
std::vector<std::string> WordsForHosts(int argc, char **argv, bool isSc, bool keepsFormat) {
    std::vector<std::string_view> withValue = {"--host", "--hosts", "--parallel", "--host-timeout"};
    std::vector<std::string_view> flags = {"--ssh"};
    if (!keepsFormat) {
        withValue.emplace_back("--format");
        flags.emplace_back("--json");
    }
    std::vector<std::string> words;
    bool areOptions = true;
    for (int i = 1; i < argc; ++i) {
        const std::string_view word = argv[i];
        areOptions = areOptions && word != "--" && !(isSc && word == "sc");
        const std::string_view option = word.substr(0, word.find('='));
        const bool isOurs = areOptions && std::find(withValue.begin(), withValue.end(), option) != withValue.end();
        if (isOurs && option.size() == word.size()) ++i; // its value is the next word
        const bool isFlag = areOptions && std::find(flags.begin(), flags.end(), word) != flags.end();
        if (!isOurs && !isFlag) words.emplace_back(word);
    }
    return words;
}

// What a command says about this machine's own files says nothing about another one's.
void CheckForHosts(const CLI::App &app, const CommandLine &line) {
    constexpr std::array<std::string_view, 5> ownFiles = {"completion", "leftovers", "logs", "prepare", "timeline"};
    const std::string path = PathOf(app);
    const std::string command = path.substr(0, path.find(' '));
    if (command == "edit" || command == "help") throw CLI::ValidationError(command, "not for several hosts");
    const bool isLocal = std::find(ownFiles.begin(), ownFiles.end(), command) != ownFiles.end();
    if (isLocal && !line.hosts.overSsh) {
        throw CLI::ValidationError(command, "looks at files of the machine that it runs on: use --ssh");
    }
    if (command == "apply" && line.apply.file == "-") {
        throw CLI::ValidationError(command, "standard input is for one machine");
    }
    if (path == "sc" && IsScLock(app.get_subcommand("sc")->remaining())) {
        throw CLI::ValidationError("sc lock", "holds the lock until its standard input ends, which is for one machine");
    }
    if ((path == "with-lock" || path == "lock take") && !line.hosts.overSsh) {
        throw CLI::ValidationError(path, "would run its command here, once for each host: use --ssh");
    }
}

HostsCommand ReadHostsCommand(const CLI::App &app, const CommandLine &line, int argc, char **argv) {
    HostsCommand command;
    std::string problem;
    const bool isDefault = app.count("--host") == 0 && line.options.host == "localhost";
    if (!ReadHosts(isDefault ? "" : line.options.host, line.hosts, &command.hosts, &problem)) {
        throw CLI::ValidationError("--host", problem);
    }
    const std::string path = PathOf(app);
    command.json = line.options.json;
    command.listsServices = path.empty() || (path == "list" && !line.list.namesOnly) || path == "status";
    command.words = WordsForHosts(argc, argv, path == "sc", !command.listsServices);
    // Said aloud: their own configurations must not choose another one.
    if (command.listsServices || (command.json && !IsFormatAsked(app))) {
        command.words.insert(command.words.begin(), "--json");
    } else if (!IsFormatAsked(app) && !HasTextOfItsOwn(app, line)) {
        command.words.insert(command.words.begin(), "--format=table");
    }
    command.isLive = path == "watch" || (path == "logs" && line.log.follow);
    return command;
}

// Lines and columns that a command does not have are refused where the line asks for them; what the environment or the
// configuration want is for those commands that have them.
void SettleFormat(const CLI::App &app, CommandLine &line) {
    constexpr std::array<std::string_view, 10> withoutRows = {"daemon status", "explain",  "graph", "lock status",
                                                              "name",          "ping",     "tree",  "watch",
                                                              "wait-online",   "with-lock"};
    const std::string path = PathOf(app);
    const bool isAsked = IsFormatAsked(app), isText = IsAmong(path, textsOfTheirOwn);
    if (line.json && app.count("--format") == 0) line.format = OutputFormat::json;
    if (!isAsked && HasTextOfItsOwn(app, line)) line.format = OutputFormat::table;
    const bool isColumns = line.format == OutputFormat::tsv, isRows = isColumns || line.format == OutputFormat::jsonl;
    if (isRows && (isText || IsForHosts(line) || (isColumns && IsAmong(path, withoutRows)))) {
        if (isAsked) {
            throw CLI::ValidationError(
                "--format",
                fmt::format("{} has no such rows", IsForHosts(line) ? "what comes of several hosts" : path));
        }
        line.format = OutputFormat::table;
    }
    line.options.json = line.options.json || line.format != OutputFormat::table; // graph may have asked for it, too
}

// A default, as what the configuration says; other than that of an option of the line it can be passed over. Returns
// what is wrong with it.
std::string TakeFormatOfEnvironment(CLI::App &app, CommandLine &line) {
    const char *const format = std::getenv("TVSC_FORMAT");
    if (format == nullptr || *format == '\0') return "";
    try {
        app.get_option("--format")->run_callback_for_default()->default_val(std::string(format));
    } catch (const CLI::Error &error) {
        return std::string("TVSC_FORMAT: ") + error.what();
    }
    line.json = false; // a configuration counts less
    return "";
}

// Takes the defaults from outside the line. Returns what is wrong with them.
std::string TakeDefaults(CLI::App &app, CommandLine &line, int argc, char **argv) {
    const auto isPassedOver = [](const char *word) { return std::strcmp(word, "--no-config") == 0; };
    if (std::any_of(argv + 1, argv + WordsBeforeDashes(argc, argv), isPassedOver)) {
        for (const char *variable : {"TVSC_HOST", "TVSC_TIMEOUT", "TVSC_COLOR", "TVSC_FORMAT"}) {
            (void)unsetenv(variable);
        }
        return "";
    }
    const std::string wrong = ReadConfigFile(app), wrongFormat = TakeFormatOfEnvironment(app, line);
    return wrong.empty() ? wrongFormat : wrong;
}

void Parse(CLI::App &app, CommandLine &line, int argc, char **argv) {
    const std::string wrong = TakeDefaults(app, line, argc, argv);
    app.parse(WordsBeforeDashes(argc, argv), argv);
    if (!wrong.empty()) throw CLI::ConfigError(wrong, CLI::ExitCodes::ConfigError); // help has been given by now
    CheckBehindDashes(app, line);
    SettleFormat(app, line);
    if (!IsForHosts(line)) return;
    CheckForHosts(app, line);
    line.onHosts = ReadHostsCommand(app, line, argc, argv);
}

constexpr char about[] = "Works on the services of the service daemon.";

bool KnowsCommand(const CLI::App &app, const char *name) {
    return !app.get_subcommands([&](const CLI::App *one) { return one->check_name(name); }).empty();
}

// Adds commands until the one that the line seems to name is there.
void AddCommandsUpTo(CLI::App &app, CommandLine &line, const char *command) {
    for (const auto add : {AddStateCommands, AddListCommand, AddLookCommands, AddActCommands, AddConfigureCommands,
                           AddTellCommands, AddDaemonCommands, AddTextCommands}) {
        if (!KnowsCommand(app, command)) add(app, line);
    }
}

// Reads the line with some of the commands only: to build all of them takes longer than most of them take to run.
// Returns null where that is not enough: for help, and for a line that is wrong, it takes them all.
std::shared_ptr<CommandLine> ReadPlainLine(int argc, char **argv) {
    const int words = WordsBeforeDashes(argc, argv);
    const auto command = std::find_if(argv + 1, argv + words, [](const char *word) { return *word != '-'; });
    const std::shared_ptr<CommandLine> line = NewLine(argc, argv);
    CLI::App app(about, "tvsc");
    AddGlobalOptions(app, *line);
    if (command != argv + words) AddCommandsUpTo(app, *line, *command);
    try {
        Parse(app, *line, argc, argv);
    } catch (const CLI::Error &) { // told by whoever knows all commands
        return nullptr;
    }
    return line;
}

// Lines and objects of JSON where a line that is wrong asks for them, or what stands outside it does, and the command
// has them; else a table. The parser may not have come as far as the option.
OutputFormat FormatOfWrongLine(const CLI::App &app, const CommandLine &line, char **first, char **end) {
    OutputFormat format = line.json ? OutputFormat::json : line.format;
    constexpr std::string_view option = "--format=";
    for (char **word = first; word != end; ++word) {
        std::string text = *word;
        if (text == "--json") format = OutputFormat::json;
        if (text == "--format" && word + 1 != end) text = std::string(option) + *++word;
        if (!text.starts_with(option)) continue;
        const auto *const named =
            std::find_if(std::begin(outputFormats), std::end(outputFormats),
                         [&](const NamedValue<OutputFormat> &one) { return text.substr(option.size()) == one.name; });
        format = named == std::end(outputFormats) ? OutputFormat::table : named->value;
    }
    const bool lacksLines = IsAmong(PathOf(app), textsOfTheirOwn) || IsForHosts(line);
    const bool isLacking = format == OutputFormat::tsv || (format == OutputFormat::jsonl && lacksLines);
    return isLacking ? OutputFormat::table : format;
}

// Returns null where help was given, or the line is wrong; *status is the exit status then.
std::shared_ptr<CommandLine> ReadAnyLine(int argc, char **argv, int *status) {
    const int words = WordsBeforeDashes(argc, argv);
    const std::shared_ptr<CommandLine> line = NewLine(argc, argv);
    CLI::App app(about, "tvsc");
    for (const auto add : {AddGlobalOptions, AddListCommand, AddStateCommands, AddLookCommands, AddTellCommands,
                           AddActCommands, AddConfigureCommands, AddTextCommands, AddDaemonCommands, AddOwnCommands}) {
        add(app, *line);
    }
    try {
        Parse(app, *line, argc, argv);
    } catch (const CLI::Success &asked) {
        *status = app.exit(asked); // help or version
        return nullptr;
    } catch (const CLI::ParseError &error) {
        const std::vector<std::string> unknown = app.remaining(PathOf(app) != "sc"); // whose words are its own
        const OutputFormat format = FormatOfWrongLine(app, *line, argv + 1, argv + words);
        if (unknown.empty()) {
            SayWrong(app, format, error.what(), {});
        } else {
            SayUnknown(app, format, unknown.front());
        }
        *status = EXIT_USAGE;
        return nullptr;
    }
    return line;
}

} // namespace

std::function<int()> ReadCommandLine(int argc, char **argv, int *status) {
    std::shared_ptr<CommandLine> line = ReadPlainLine(argc, argv);
    if (line == nullptr) line = ReadAnyLine(argc, argv, status);
    if (line == nullptr) return nullptr;
    return [line] {
        ChooseColours(line->options.colour);
        ChooseFormat(line->format, !line->hidesLegend);
        if (line->verbose) TellWaits();
        if (line->onHosts) return RunOnHosts(line->hosts, *line->onHosts);
        if (line->options.trace) TraceCalls();
        if (!line->options.quiet) WatchForBusyDaemon();
        return line->run();
    };
}
