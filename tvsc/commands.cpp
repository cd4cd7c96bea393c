// SPDX-License-Identifier: MIT
// commands: what they have in common on the command line.
#include "tvsc/commands.h"

#include "tvsc/json_output.h"
#include "tvsc/report.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace {

const std::map<std::string, double> timeUnits = {{"ms", 0.001}, {"s", 1}, {"min", 60}, {"h", 3600}};
constexpr double longestTimeSec = 1'000'000;

} // namespace

CLI::Validator ReadTime(double least) {
    return CLI::Validator(
        [least](std::string &time) -> std::string {
            // Made here: most lines name no time, and this takes longer than to read one.
            const CLI::Validator read = CLI::AsNumberWithUnit(timeUnits, CLI::AsNumberWithUnit::UNIT_OPTIONAL);
            const std::string said = time;
            try {
                if (read(time).empty() && std::stod(time) >= least && std::stod(time) <= longestTimeSec) return "";
            } catch (const CLI::ValidationError &) { // an unknown unit; told below
            }
            return fmt::format("{}: not a time: seconds, or a number with ms, s, min or h behind it", said);
        },
        "");
}

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

CLI::App *AddCommand(CLI::App &parent, CommandLine &line, const std::string &name, const std::string &help,
                     SessionCommand command, const std::function<void()> &check) {
    CLI::App *added = parent.add_subcommand(name, help);
    added->callback([&line, command = std::move(command), check] {
        if (check) check();
        line.run = [&line, command] { return RunInSession(line, command); };
    });
    return added;
}

CLI::App *AddStatusCommand(CLI::App &parent, CommandLine &line, const std::string &name, const std::string &help,
                           SessionCommand command) {
    CLI::App *added = AddCommand(parent, line, name, help, std::move(command));
    added->parse_complete_callback([&line] { line.asksStatus = line.showsServices = true; });
    return added;
}

CLI::App *AddPlainCommand(CLI::App &parent, CommandLine &line, const std::string &name, const std::string &help,
                          const std::function<int()> &command) {
    CLI::App *added = parent.add_subcommand(name, help);
    added->callback([&line, command] { line.run = command; });
    return added;
}

void AddName(CLI::App *command, std::string &name) { command->add_option(nameOption, name)->required(); }

void AddNames(CLI::App *command, CommandLine &line, bool required) {
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
