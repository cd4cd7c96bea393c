# SPDX-License-Identifier: MIT
# The completion scripts as an installation has them: each shell finds its own by the name of the program alone.

setup_file() {
    export PATH=$TV_BIN:$PATH # fish completes only what it can run
    export prefix=$BATS_FILE_TMPDIR/installed
    cmake --install "$TV_BIN/.." --prefix "$prefix" --component completions >/dev/null
}

# What is completed when a word is typed at a shell: bash's loader, reduced to the look-up by name.
@test "bash completes from the file that bears the program's name" {
    cd "$prefix/share/bash-completion/completions"
    run bash -c '. ./tvreg && complete -p tvreg && COMP_WORDS=(tvreg snap) COMP_CWORD=1 && _tvreg &&
        echo "${COMPREPLY[@]}"'
    [ "$status" -eq 0 ]
    [ "${lines[0]}" = "complete -F _tvreg tvreg" ]
    [ "${lines[1]}" = snapshot ]
}

@test "tvsc has its files, too, in the same places" {
    cd "$prefix/share"
    bash -c '. bash-completion/completions/tvsc && complete -p tvsc'
    [ -s fish/vendor_completions.d/tvsc.fish ]
    [ -s zsh/site-functions/_tvsc ]
}

@test "zsh completes from the function of the program's name, at the first time already" {
    command -v zsh >/dev/null || skip "zsh is not installed"
    cd "$BATS_TEST_TMPDIR"
    # The terminal of zpty is where a completion can be asked for.
    run zsh -f -c '
        zmodload zsh/zpty
        zpty shell zsh -f -i
        zpty -w shell "PS1=READY; fpath=($1 \$fpath); autoload -Uz compinit && compinit -u -d dump"
        zpty -w shell "print \${_comps[tvreg]}"
        zpty -n -w shell "tvreg snap"$'"'\\t'"'
        for ((i = 0; i < 200; ++i)); do
            while zpty -r -t shell part; do text+=$part; done
            [[ $text == *"tvreg snapshot"* ]] && print found && exit
            sleep 0.05
        done
        print -r -- $text
        exit 1' - "$prefix/share/zsh/site-functions"
    echo "$output"
    [ "$status" -eq 0 ]
}

@test "fish completes from the file that bears the program's name" {
    command -v fish >/dev/null || skip "fish is not installed"
    export HOME=$BATS_TEST_TMPDIR
    run fish --no-config -c "set -p fish_complete_path $prefix/share/fish/vendor_completions.d
        complete -C 'tvreg snap'"
    echo "$output"
    [ "$status" -eq 0 ]
    [[ ${lines[0]} == snapshot* ]]
}
