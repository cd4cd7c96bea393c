// SPDX-License-Identifier: MIT
// commands: what the files that add commands to the command line share. Each command stores in CommandLine::run what is
// to be done; it is done after the whole line was understood.
#pragma once

#include "tvsc/act.h"
#include "tvsc/configure.h"
#include "tvsc/doctor.h"
#include "tvsc/export.h"
#include "tvsc/graph.h"
#include "tvsc/hosts.h"
#include "tvsc/logs.h"
#include "tvsc/look.h"
#include "tvsc/output_format.h"
#include "tvsc/reset.h"
#include "tvsc/watch.h"

#include <CLI/CLI.hpp>

#include <functional>
#include <map>

// All that the command line can say.
struct CommandLine {
    Options options;
    OutputFormat format = OutputFormat::table; // options.json: any other one
    bool json = false;
    bool hidesLegend = false;
    bool verbose = false;
    HostsOptions hosts;
    std::optional<HostsCommand> onHosts; // what the hosts are to do, where there are several
    std::vector<std::string> names;
    std::string name;
    std::vector<std::string> behindDashes;
    ListFilter list;
    std::vector<std::string> properties; // show
    LogOptions log;
    WatchOptions watch;
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
    ResetOptions reset;
    TextFormat textFormat = TextFormat::toml;
    ApplyOptions apply;
    std::string newName;
    DWORD control = 0;
    std::string what;   // explain
    bool asSvg = false; // timeline
    DoctorOptions doctor;
    std::string signal;
    bool endsLeftovers = false;
    GraphFormat graphFormat = GraphFormat::text;
    DWORD waitState = SERVICE_RUNNING;
    std::optional<DWORD> lockId;
    int pings = 1;
    std::function<int()> run;
};

using SessionCommand = std::function<int(Session &)>;

// A subcommand that needs a session with a loaded database.
//   check  throws where options contradict each other that are right one by one; may be empty
CLI::App *AddCommand(CLI::App &parent, CommandLine &line, const std::string &name, const std::string &help,
                     SessionCommand command, const std::function<void()> &check = {});

// The same for a command whose exit status tells a state: without a daemon that is "unknown".
CLI::App *AddStatusCommand(CLI::App &parent, CommandLine &line, const std::string &name, const std::string &help,
                           SessionCommand command);

// One that needs none.
CLI::App *AddPlainCommand(CLI::App &parent, CommandLine &line, const std::string &name, const std::string &help,
                          const std::function<int()> &command);

[[nodiscard]] int RunInSession(const CommandLine &line, const SessionCommand &command);

// A number of seconds, or a number with a unit; at least `least` seconds.
CLI::Validator ReadTime(double least = 0);
// One word of several; the number that it stands for takes its place.
CLI::Validator ReadWord(const std::map<std::string, DWORD> &words);

// Also as an option: a name that begins with a dash would be taken for one.
constexpr char nameOption[] = "name,--name";

void AddName(CLI::App *command, std::string &name);
void AddNames(CLI::App *command, CommandLine &line, bool required = true);
void AddTimeout(CLI::App *command, CommandLine &line);
void AddWaitOptions(CLI::App *command, CommandLine &line);

// The commands, by what they are for. Those that scripts ask most often stand alone: each costs the others of its kind.
void AddListCommand(CLI::App &app, CommandLine &line);
void AddStateCommands(CLI::App &app, CommandLine &line);
void AddLookCommands(CLI::App &app, CommandLine &line);
void AddActCommands(CLI::App &app, CommandLine &line);
// Those that find out why something is as it is.
void AddTellCommands(CLI::App &app, CommandLine &line);
void AddConfigureCommands(CLI::App &app, CommandLine &line);
void AddTextCommands(CLI::App &app, CommandLine &line);
void AddDaemonCommands(CLI::App &app, CommandLine &line);
