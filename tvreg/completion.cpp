// SPDX-License-Identifier: MIT
// completion: the scripts by which shells complete commands, options and keys. What there is comes from the parser
// itself.
#include "tvreg/completion.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

namespace {

std::string OptionsOf(const CLI::App &command) {
    std::vector<std::string> names;
    for (const CLI::Option *option : command.get_options()) {
        for (const std::string &name : option->get_lnames()) {
            names.push_back("--" + name);
        }
        for (const std::string &name : option->get_snames()) {
            names.push_back("-" + name);
        }
    }
    return fmt::format("{}", fmt::join(names, " "));
}

std::string FishLines(const CLI::App &command) {
    std::string text;
    for (const CLI::Option *option : command.get_options()) {
        if (option->get_lnames().empty() && option->get_snames().empty()) continue;
        text += fmt::format("complete -c tvreg -n '__fish_seen_subcommand_from {}'", command.get_name());
        for (const std::string &name : option->get_lnames()) {
            text += " -l " + name;
        }
        for (const std::string &name : option->get_snames()) {
            text += " -s " + name;
        }
        text += fmt::format(" -d '{}'\n", option->get_description());
    }
    return text;
}

// Keys are completed as HKLM/a/b: shells take backslashes for their own.
constexpr char bashScript[] = R"--(# bash completion of tvreg; made by: tvreg completion bash
_tvreg_keys() {{
    local above=${{1%/*}} name
    if [[ $1 != */* ]]; then
        printf '%s/\n' HKCR HKCU HKLM HKU HKCC
        return
    fi
    tvreg ls --timeout 2 "$above" 2>/dev/null | while IFS= read -r name; do printf '%s/%s\n' "$above" "$name"; done
}}
_tvreg() {{
    local word=${{COMP_WORDS[COMP_CWORD]}} options= key
    COMPREPLY=()
    if ((COMP_CWORD == 1)); then
        COMPREPLY=($(compgen -W '{}' -- "$word"))
    elif [[ $word == -* ]]; then
        case ${{COMP_WORDS[1]}} in
{}        esac
        COMPREPLY=($(compgen -W "$options" -- "$word"))
    else
        while IFS= read -r key; do
            [[ ${{key,,}} == "${{word,,}}"* ]] && COMPREPLY+=("$(printf '%q' "$key")")
        done < <(_tvreg_keys "$word")
        while IFS= read -r key; do
            COMPREPLY+=("$(printf '%q' "$key")")
        done < <(compgen -f -- "$word")
        compopt -o nospace 2>/dev/null || return 0
    fi
}}
complete -F _tvreg tvreg
)--";

// A shell that finds the file by its name takes it for the body of _tvreg; read with "source", it is none.
constexpr char zshScript[] = R"--(#compdef tvreg
# zsh completion of tvreg; made by: tvreg completion zsh
_tvreg() {{
    local above=${{words[CURRENT]%/*}}
    if ((CURRENT == 2)); then
        compadd -- {}
    elif [[ ${{words[CURRENT]}} == -* ]]; then
        case ${{words[2]}} in
{}        esac
    elif [[ ${{words[CURRENT]}} == */* ]]; then
        compadd -S / -q -p "$above/" -- ${{(f)"$(tvreg ls --timeout 2 "$above" 2>/dev/null)"}}
        _files
    else
        compadd -S / -q -- HKCR HKCU HKLM HKU HKCC
        _files
    fi
}}
if [[ ${{funcstack[1]}} == _tvreg ]]; then
    _tvreg "$@"
else
    compdef _tvreg tvreg
fi
)--";

constexpr char fishScript[] = R"--(# fish completion of tvreg; made by: tvreg completion fish
function __tvreg_keys
    set -l word (commandline -ct)
    if string match -q '*/*' -- $word
        set -l above (string replace -r '/[^/]*$' '' -- $word)
        for name in (tvreg ls --timeout 2 $above 2>/dev/null)
            echo $above/$name
        end
    else
        printf '%s/\n' HKCR HKCU HKLM HKU HKCC
    end
end
complete -c tvreg -n 'not __fish_use_subcommand' -a '(__tvreg_keys)'
)--";

std::string Cases(const std::vector<const CLI::App *> &all, const char *form) {
    std::string text;
    for (const CLI::App *command : all) {
        text += fmt::format(fmt::runtime(form), command->get_name(), OptionsOf(*command));
    }
    return text;
}

} // namespace

std::string CompletionScript(const std::string &shell, const CLI::App &app) {
    const auto all = app.get_subcommands([](const CLI::App *) { return true; });
    std::vector<std::string> names;
    for (const CLI::App *command : all) {
        names.push_back(command->get_name());
    }
    const std::string words = fmt::format("{}", fmt::join(names, " "));
    if (shell == "bash") return fmt::format(bashScript, words, Cases(all, "        {}) options='{}' ;;\n"));
    if (shell == "zsh") return fmt::format(zshScript, words, Cases(all, "        {}) compadd -- {} ;;\n"));
    if (shell != "fish") return {};
    std::string text = fishScript;
    for (const CLI::App *command : all) {
        text += fmt::format("complete -c tvreg -f -n __fish_use_subcommand -a {} -d '{}'\n", command->get_name(),
                            command->get_description());
        text += FishLines(*command);
    }
    return text;
}
