// SPDX-License-Identifier: MIT
// completion: the scripts by which shells complete. What there is comes from the parser itself, names of services from
// the daemon, which is asked for no configuration.
#include "tvsc/completion.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

namespace {

std::vector<const CLI::App *> CommandsOf(const CLI::App &app) {
    return app.get_subcommands([](const CLI::App *) { return true; });
}

std::string NamesOf(const CLI::App &app) {
    std::vector<std::string> names;
    for (const CLI::App *command : CommandsOf(app)) {
        names.push_back(command->get_name());
    }
    return fmt::format("{}", fmt::join(names, " "));
}

void AddOptions(const CLI::App &app, std::vector<std::string> *names) {
    for (const CLI::Option *option : app.get_options()) {
        for (const std::string &name : option->get_lnames()) {
            names->push_back("--" + name);
        }
    }
    for (const CLI::App *command : CommandsOf(app)) {
        if (command->get_name().empty()) AddOptions(*command, names); // a group of options
    }
}

std::string OptionsOf(const CLI::App &command, const CLI::App &app) {
    std::vector<std::string> names;
    AddOptions(command, &names);
    AddOptions(app, &names);
    return fmt::format("{}", fmt::join(names, " "));
}

constexpr char bashScript[] = R"--(# bash completion of tvsc; made by: tvsc completion bash
_tvsc() {{
    local word=${{COMP_WORDS[COMP_CWORD]}} command= i options= below= name
    COMPREPLY=()
    for ((i = 1; i < COMP_CWORD; i++)); do
        if [[ ${{COMP_WORDS[i]}} != -* ]]; then command=${{COMP_WORDS[i]}} && break; fi
    done
    case $command in
{}        *) options='{}' ;;
    esac
    if [[ $word == -* ]]; then
        COMPREPLY=($(compgen -W "$options" -- "$word"))
    elif [[ -z $command ]]; then
        COMPREPLY=($(compgen -W '{}' -- "$word"))
    elif [[ -n $below && $i -eq $((COMP_CWORD - 1)) ]]; then
        COMPREPLY=($(compgen -W "$below" -- "$word"))
    else
        while IFS= read -r name; do
            [[ $name == "$word"* ]] && COMPREPLY+=("$(printf '%q' "$name")")
        done < <(tvsc list --names-only --call-timeout 2s 2>/dev/null)
    fi
    return 0
}}
complete -F _tvsc tvsc
)--";

constexpr char zshScript[] = R"--(#compdef tvsc
# zsh completion of tvsc; made by: tvsc completion zsh
_tvsc() {{
    local command= options= below= i
    for ((i = 2; i < CURRENT; i++)); do
        if [[ ${{words[i]}} != -* ]]; then command=${{words[i]}} && break; fi
    done
    case $command in
{}        *) options='{}' ;;
    esac
    if [[ ${{words[CURRENT]}} == -* ]]; then
        compadd -- ${{=options}}
    elif [[ -z $command ]]; then
        compadd -- {}
    elif [[ -n $below && $i -eq $((CURRENT - 1)) ]]; then
        compadd -- ${{=below}}
    else
        compadd -- ${{(f)"$(tvsc list --names-only --call-timeout 2s 2>/dev/null)"}}
    fi
}}
compdef _tvsc tvsc
)--";

constexpr char fishScript[] = R"--(# fish completion of tvsc; made by: tvsc completion fish
complete -c tvsc -f
complete -c tvsc -n 'not __fish_use_subcommand' -a '(tvsc list --names-only --call-timeout 2s 2>/dev/null)'
)--";

// The arms of a case over the command.
std::string Cases(const CLI::App &app) {
    std::string text;
    for (const CLI::App *command : CommandsOf(app)) {
        const std::string below = NamesOf(*command);
        text += fmt::format("        {}) options='{}' below='{}' ;;\n", command->get_name(), OptionsOf(*command, app),
                            command->get_name() == "create" ? "" : below);
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

std::string FishText(const CLI::App &app) {
    std::string text = fishScript;
    for (const CLI::App *command : CommandsOf(app)) {
        const std::string &name = command->get_name();
        text += fmt::format("complete -c tvsc -n __fish_use_subcommand -a {} -d {}\n", name,
                            FishQuoted(command->get_description()));
        for (const CLI::App *below : CommandsOf(*command)) {
            if (below->get_name().empty()) continue;
            text += fmt::format("complete -c tvsc -n '__fish_seen_subcommand_from {}' -a {} -d {}\n", name,
                                below->get_name(), FishQuoted(below->get_description()));
        }
        std::vector<std::string> options;
        AddOptions(*command, &options);
        for (const std::string &option : options) {
            text += fmt::format("complete -c tvsc -n '__fish_seen_subcommand_from {}' -l {}\n", name, option.substr(2));
        }
    }
    return text;
}

} // namespace

std::string CompletionScript(const std::string &shell, const CLI::App &app) {
    std::vector<std::string> global;
    AddOptions(app, &global);
    const std::string options = fmt::format("{}", fmt::join(global, " "));
    if (shell == "bash") return fmt::format(bashScript, Cases(app), options, NamesOf(app));
    if (shell == "zsh") return fmt::format(zshScript, Cases(app), options, NamesOf(app));
    return shell == "fish" ? FishText(app) : "";
}
