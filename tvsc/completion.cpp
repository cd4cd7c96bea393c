// SPDX-License-Identifier: MIT
// completion: the scripts by which shells complete. What there is comes from the parser itself, names of services from
// the daemon, which is asked for no configuration.
#include "tvsc/completion.h"

#include "tvsc/sc.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace {

struct CommandWords {
    std::vector<std::string> paths; // as it is typed, "lock take", by each of its names
    std::string description;
    std::vector<std::string> options; // its own
    std::vector<std::string> below;   // its commands; one of them comes next
    std::vector<std::string> further; // what else it takes beside names of services
};

std::string Joined(const std::vector<std::string> &words) { return fmt::format("{}", fmt::join(words, " ")); }

// Groups of options have no name.
std::vector<const CLI::App *> CommandsOf(const CLI::App &app) {
    return app.get_subcommands([](const CLI::App *one) { return !one->get_name().empty(); });
}

std::vector<std::string> NamesBelow(const CLI::App &app) {
    std::vector<std::string> names;
    for (const CLI::App *command : CommandsOf(app)) {
        names.push_back(command->get_name());
        for (const std::string &alias : command->get_aliases()) {
            names.push_back(alias);
        }
    }
    return names;
}

// Each with the options of the groups in it.
std::vector<const CLI::Option *> OptionsOf(const CLI::App &app) {
    std::vector<const CLI::Option *> options = app.get_options();
    for (const CLI::App *group : app.get_subcommands([](const CLI::App *one) { return one->get_name().empty(); })) {
        const std::vector<const CLI::Option *> more = OptionsOf(*group);
        options.insert(options.end(), more.begin(), more.end());
    }
    return options;
}

std::vector<std::string> OptionNames(const CLI::App &app, bool onlyWithValue) {
    std::vector<std::string> names;
    for (const CLI::Option *option : OptionsOf(app)) {
        if (onlyWithValue && option->get_items_expected_max() == 0) continue;
        for (const std::string &name : option->get_lnames()) {
            names.push_back("--" + name);
        }
    }
    return names;
}

// A command, and all below it.
//   parent  its path and a blank, or nothing
void AddWords(const CLI::App &command, const std::string &parent, std::vector<CommandWords> *commands) {
    CommandWords words = {.paths = {parent + command.get_name()},
                          .description = command.get_description(),
                          .options = OptionNames(command, false),
                          .below = NamesBelow(command),
                          .further = {}};
    for (const std::string &alias : command.get_aliases()) {
        words.paths.push_back(parent + alias);
    }
    commands->push_back(std::move(words));
    for (const CLI::App *below : CommandsOf(command)) {
        AddWords(*below, parent + command.get_name() + " ", commands);
    }
}

// The verbs of the Win32 tool are no commands of the parser's.
void AddVerbs(CommandWords *sc, std::vector<CommandWords> *verbs) {
    for (const ScVerbWords &verb : ScVerbs()) {
        sc->below.push_back(verb.name);
        CommandWords words = {
            .paths = {"sc " + verb.name}, .description = {}, .options = {}, .below = {}, .further = {}};
        for (const std::string &option : verb.options) {
            words.further.push_back(option + "=");
        }
        verbs->push_back(std::move(words));
    }
}

std::vector<CommandWords> EveryCommand(const CLI::App &app) {
    std::vector<CommandWords> commands, verbs;
    for (const CLI::App *command : CommandsOf(app)) {
        AddWords(*command, "", &commands);
    }
    for (CommandWords &command : commands) {
        if (command.paths.front() == "sc") AddVerbs(&command, &verbs);
        if (command.paths.front() == "help") command.below = NamesBelow(app);
    }
    commands.insert(commands.end(), verbs.begin(), verbs.end());
    return commands;
}

// What there is to choose from behind some commands, for bash and zsh. Arguments: the arms of the case, all global
// options, the commands.
constexpr char choicesFunction[] = R"--(_tvsc_at() {{
    case $1 in
    '') options='{1}' below='{2}' further= ;;
{0}    *) options= below= further= ;;
    esac
}}
)--";

// Of several hosts in TVSC_HOST the first one is asked: all of them would answer with a table. Arguments: that
// function, and the global options that have a value.
constexpr char bashScript[] = R"--(# bash completion of tvsc; made by: tvsc completion bash
{0}_tvsc() {{
    local word=${{COMP_WORDS[COMP_CWORD]}} at= i=1 options= below= further= name
    COMPREPLY=()
    _tvsc_at ''
    while ((i < COMP_CWORD)); do
        case ${{COMP_WORDS[i]}} in
        --) return 0 ;;
        -*) if [[ ' {1} ' == *" ${{COMP_WORDS[i]}} "* ]]; then
                if [[ ${{COMP_WORDS[i + 1]}} == = ]]; then ((i += 2)); else ((i += 1)); fi
            fi ;;
        =) ((i += 1)) ;;
        *) if [[ " $below " == *" ${{COMP_WORDS[i]}} "* ]]; then
                at=$at${{at:+ }}${{COMP_WORDS[i]}}
                _tvsc_at "$at"
            else
                below=
            fi ;;
        esac
        ((i += 1))
    done
    if ((i != COMP_CWORD)); then
        return 0
    elif [[ $word == -* ]]; then
        COMPREPLY=($(compgen -W "$options" -- "$word"))
    elif [[ -n $below ]]; then
        COMPREPLY=($(compgen -W "$below" -- "$word"))
    else
        COMPREPLY=($(compgen -W "$further" -- "$word"))
        while IFS= read -r name; do
            [[ $name == "$word"* ]] && COMPREPLY+=("$(printf '%q' "$name")")
        done < <(tvsc list --names-only --call-timeout 2s ${{TVSC_HOST:+"--host=${{TVSC_HOST%%,*}}"}} 2>/dev/null)
    fi
    return 0
}}
complete -F _tvsc tvsc
)--";

constexpr char zshScript[] = R"--(#compdef tvsc
# zsh completion of tvsc; made by: tvsc completion zsh
{0}_tvsc() {{
    local at= i=2 options= below= further=
    _tvsc_at ''
    while ((i < CURRENT)); do
        case ${{words[i]}} in
        --) return 0 ;;
        -*) [[ ' {1} ' == *" ${{words[i]}} "* ]] && ((i += 1)) ;;
        *) if [[ " $below " == *" ${{words[i]}} "* ]]; then
                at=$at${{at:+ }}${{words[i]}}
                _tvsc_at "$at"
            else
                below=
            fi ;;
        esac
        ((i += 1))
    done
    if ((i != CURRENT)); then
        return 0
    elif [[ ${{words[CURRENT]}} == -* ]]; then
        compadd -- ${{=options}}
    elif [[ -n $below ]]; then
        compadd -- ${{=below}}
    else
        [[ -z $further ]] || compadd -- ${{=further}}
        compadd -- ${{(f)"$(tvsc list --names-only --call-timeout 2s ${{TVSC_HOST:+--host=${{TVSC_HOST%%,*}}}} 2>/dev/null)"}}
    fi
}}
compdef _tvsc tvsc
)--";

// Arguments: the global options that have a value, each path of a command that has others.
constexpr char fishScript[] = R"--(# fish completion of tvsc; made by: tvsc completion fish
function __tvsc_path
    set -l words (commandline -opc)
    set -l at
    set -l i 2
    while test $i -le (count $words)
        switch $words[$i]
            case --
                break
            case '-*'
                contains -- $words[$i] {0}; and set i (math $i + 1)
            case '*'
                set -a at $words[$i]
        end
        set i (math $i + 1)
    end
    string join \n -- $at
end
function __tvsc_at
    set -l at (__tvsc_path)
    set -l words (count $argv)
    test (count $at) -ge $words; and test "$at[1..$words]" = "$argv"
end
function __tvsc_exactly
    set -l at (__tvsc_path)
    test "$at" = "$argv"
end
function __tvsc_takes_names
    set -l at (__tvsc_path)
    test (count $at) -gt 0; and not contains -- "$at" {1}
end
function __tvsc_names
    set -l host (string replace -r ',.*' '' -- "$TVSC_HOST")
    if test -n "$host"
        tvsc list --names-only --call-timeout 2s --host=$host 2>/dev/null
    else
        tvsc list --names-only --call-timeout 2s 2>/dev/null
    end
end
complete -c tvsc -f
complete -c tvsc -n __tvsc_takes_names -a '(__tvsc_names)'
)--";

// The arms of a case over the path of a command.
std::string Cases(const std::vector<CommandWords> &commands, const std::vector<std::string> &global) {
    std::string text;
    for (const CommandWords &command : commands) {
        std::vector<std::string> options = command.options;
        options.insert(options.end(), global.begin(), global.end());
        const bool isSc = command.paths.front() == "sc" || command.paths.front().starts_with("sc ");
        if (isSc) options.clear(); // theirs stand before it
        text += fmt::format("    '{}') options='{}' below='{}' further='{}' ;;\n", fmt::join(command.paths, "' | '"),
                            Joined(options), Joined(command.below), Joined(command.further));
    }
    return text;
}

std::string FishQuoted(const std::string &text) {
    std::string quoted = "'";
    for (const char c : text) {
        if (c == '\'' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted + "'";
}

// What a command adds: itself behind those that lead to it, and its options and other words behind itself.
std::string FishLines(const CommandWords &command, const std::vector<std::string> &withValue) {
    std::string text;
    for (const std::string &path : command.paths) {
        const std::size_t end = path.rfind(' ');
        const bool isTop = end == std::string::npos;
        text +=
            fmt::format("complete -c tvsc -n '__tvsc_exactly{}' -a {} -d {}\n", isTop ? "" : " " + path.substr(0, end),
                        isTop ? path : path.substr(end + 1), FishQuoted(command.description));
        for (const std::string &option : command.options) {
            const bool hasValue = std::find(withValue.begin(), withValue.end(), option) != withValue.end();
            text += fmt::format("complete -c tvsc -n '__tvsc_at {}' -l {}{}\n", path, option.substr(2),
                                hasValue ? " -x" : "");
        }
        if (!command.further.empty()) {
            text += fmt::format("complete -c tvsc -n '__tvsc_at {}' -a '{}'\n", path, Joined(command.further));
        }
    }
    return text;
}

std::string FishText(const CLI::App &app, const std::vector<CommandWords> &commands) {
    const std::vector<std::string> withValue = OptionNames(app, true);
    std::vector<std::string> leading;
    for (const CommandWords &command : commands) {
        if (!command.below.empty()) leading.push_back(command.paths.front());
    }
    std::string text = fmt::format(fishScript, Joined(withValue), Joined(leading));
    for (const std::string &option : OptionNames(app, false)) {
        const bool hasValue = std::find(withValue.begin(), withValue.end(), option) != withValue.end();
        text += fmt::format("complete -c tvsc -l {}{}\n", option.substr(2), hasValue ? " -x" : "");
    }
    for (const CommandWords &command : commands) {
        text += FishLines(command, withValue);
    }
    return text + fmt::format("complete -c tvsc -n '__tvsc_exactly help' -a '{}'\n", Joined(NamesBelow(app)));
}

} // namespace

std::string CompletionScript(const std::string &shell, const CLI::App &app) {
    const std::vector<CommandWords> commands = EveryCommand(app);
    const std::vector<std::string> global = OptionNames(app, false);
    if (shell == "fish") return FishText(app, commands);
    const std::string choices =
        fmt::format(choicesFunction, Cases(commands, global), Joined(global), Joined(NamesBelow(app)));
    return fmt::format(fmt::runtime(shell == "bash" ? bashScript : zshScript), choices, Joined(OptionNames(app, true)));
}
