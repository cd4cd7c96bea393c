# SPDX-License-Identifier: MIT
# The completion of tvsc in the shells themselves. A tvsc of our own stands in for the daemon: it lists two services.

setup() {
    mkdir "$BATS_TEST_TMPDIR/bin"
    for shell in bash zsh fish; do
        "$TV_BIN/tvsc" completion "$shell" >"$BATS_TEST_TMPDIR/$shell"
    done
    printf '#!/bin/sh\necho "$@" >>%s/asked\n[ "$1" = list ] && printf "web\\nweb cache\\n"\n' "$BATS_TEST_TMPDIR" \
        >"$BATS_TEST_TMPDIR/bin/tvsc"
    chmod 755 "$BATS_TEST_TMPDIR/bin/tvsc"
    PATH=$BATS_TEST_TMPDIR/bin:$PATH
}

inBash() { # WORD...
    bash -c '. "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _tvsc; printf "%s\n" "${COMPREPLY[@]}"' bash \
        "$BATS_TEST_TMPDIR/bash" "$@"
}

@test "bash completes commands, commands of commands, options and names" {
    [ "$(inBash tvsc resta)" = restart ]
    [ "$(inBash tvsc lock rel)" = release ]
    inBash tvsc stop --with-d | grep -qx -- --with-dependents
    inBash tvsc create x --ex | grep -qx -- --exec
    [ "$(inBash tvsc start we | tr '\n' ',')" = 'web,web\ cache,' ]
}

inFish() { fish -N -c "source $BATS_TEST_TMPDIR/fish; complete -C '$1'" | cut -f 1; }

inZsh() {
    zsh -f -c 'compdef() { :; }; compadd() { shift; print -l -- "$@"; }; . "$1"; shift; words=("$@"); CURRENT=$#; _tvsc' \
        zsh "$BATS_TEST_TMPDIR/zsh" "$@"
}

# What a shell offers behind each of these lines: commands of commands, their options, words of the Win32 tool's verbs,
# names only where a name comes next, and nothing for an option's value.
#   FUNCTION  given the words of a line, prints what is offered, as it stands
nested() {
    local in=$1
    has() { grep -qx -- "$1"; }
    lacks() { ! grep -qx -- "$1"; }
    "$in" tvsc plan '' | has restart
    "$in" tvsc plan '' | lacks web
    "$in" tvsc plan start --n | has --name
    "$in" tvsc plan start --w | lacks --with-deps
    "$in" tvsc plan start --js | has --json
    "$in" tvsc plan start we | has web
    "$in" tvsc plan start web we | has web
    "$in" tvsc explain --n | has --name
    "$in" tvsc explain --name we | has web
    "$in" tvsc handles '' | has drain
    "$in" tvsc handles drain --n | has --name
    "$in" tvsc handles drain we | has web
    "$in" tvsc lock '' | has take
    "$in" tvsc lock release --i | has --id
    "$in" tvsc lock take --i | lacks --id
    "$in" tvsc daemon '' | has rpcinfo
    "$in" tvsc daemon status --j | has --json
    "$in" tvsc sc '' | has enumdepend
    "$in" tvsc sc query '' | has 'type='
    "$in" tvsc sc query '' | has web
    "$in" tvsc sc qc '' | lacks 'type='
    "$in" tvsc query --f | has --fresh # another name of status
    "$in" tvsc help sta | has status
    "$in" tvsc --host other plan '' | has restart
    "$in" tvsc --host plan start --with-d | has --with-deps
    "$in" tvsc --format json lock '' | has take
    "$in" tvsc plan --timeout 5s start --n | has --name
    "$in" tvsc start --timeout '' | lacks web
    "$in" tvsc --host '' | lacks start
}

# Names come from the first of several hosts: a table of all of them is no list of names.
severalHosts() { # FUNCTION
    rm -f "$BATS_TEST_TMPDIR/asked"
    TVSC_HOST=alpha,beta "$1" tvsc start we | grep -qx web
    grep -q -- '--host=alpha$' "$BATS_TEST_TMPDIR/asked"
    rm "$BATS_TEST_TMPDIR/asked"
    TVSC_HOST= "$1" tvsc start we | grep -qx web
    ! grep -q -- --host "$BATS_TEST_TMPDIR/asked"
}

@test "bash completes what is below a command" { nested inBash; }
@test "bash asks the first of several hosts" { severalHosts inBash; }

@test "zsh completes what is below a command" {
    command -v zsh >/dev/null || skip "zsh is not installed"
    nested inZsh
}

@test "zsh asks the first of several hosts" {
    command -v zsh >/dev/null || skip "zsh is not installed"
    severalHosts inZsh
}

fishWords() { # WORD...: none of them has a blank in it
    inFish "$*"
}

@test "fish completes what is below a command" {
    command -v fish >/dev/null || skip "fish is not installed"
    nested fishWords
}

@test "fish asks the first of several hosts" {
    command -v fish >/dev/null || skip "fish is not installed"
    severalHosts fishWords
}

@test "bash finds the value of an option that is written as one word" {
    inBash tvsc --host = other plan '' | grep -qx restart # as bash takes --host=other apart
    inBash tvsc --color = never start --with-d | grep -qx -- --with-deps
    [ -z "$(inBash tvsc --host = oth)" ]
}

@test "fish completes commands, options and names" {
    command -v fish >/dev/null || skip "fish is not installed"
    inFish 'tvsc resta' | grep -q '^restart'
    inFish 'tvsc stop --with-d' | grep -q '^--with-dependents'
    inFish 'tvsc start we' | grep -q '^web'
}

@test "zsh completes commands, options and names" {
    command -v zsh >/dev/null || skip "zsh is not installed"
    inZsh tvsc resta | grep -qx restart
    inZsh tvsc stop --w | grep -qx -- --with-dependents
    inZsh tvsc lock r | grep -qx release
    inZsh tvsc start we | grep -qx 'web cache'
}

# --- as it is typed ---

# What a shell in a terminal makes of a line and a tab: on the screen of tmux.
typed() { # SHELL-COMMAND PREPARATION KEYS... -- EXPECTED
    local expected=${*: -1} screen try
    command -v tmux >/dev/null || skip "tmux is not installed"
    tmux -L "tvsc$BATS_TEST_NUMBER" -f /dev/null new-session -d -x 120 -y 30 "HOME=$BATS_TEST_TMPDIR TERM=screen $1"
    tmux -L "tvsc$BATS_TEST_NUMBER" send-keys "$2; echo READ''Y" Enter
    for ((try = 0; try < 400; ++try)); do
        screen=$(tmux -L "tvsc$BATS_TEST_NUMBER" capture-pane -p)
        [[ $screen != *READY* ]] || break
        sleep 0.05
    done
    tmux -L "tvsc$BATS_TEST_NUMBER" send-keys "$3" Tab
    for ((try = 0; try < 400; ++try)); do
        screen=$(tmux -L "tvsc$BATS_TEST_NUMBER" capture-pane -p)
        [[ $screen != *"$expected"* ]] || break
        sleep 0.05
    done
    tmux -L "tvsc$BATS_TEST_NUMBER" kill-server
    [[ $screen == *"$expected"* ]] || { echo "$screen"; false; }
}

typedInZsh() { # KEYS EXPECTED
    command -v zsh >/dev/null || skip "zsh is not installed"
    typed "zsh -f" "autoload -Uz compinit; compinit -u -D; . $BATS_TEST_TMPDIR/zsh" "$@"
}

@test "a tab in bash completes a command" {
    typed "bash --norc" ". $BATS_TEST_TMPDIR/bash" "tvsc restar" "tvsc restart"
}

@test "a tab in bash completes an option" {
    typed "bash --norc" ". $BATS_TEST_TMPDIR/bash" "tvsc stop --with-d" "tvsc stop --with-dependents"
}

@test "a tab in bash completes a command of a command" {
    typed "bash --norc" ". $BATS_TEST_TMPDIR/bash" "tvsc plan resta" "tvsc plan restart"
}

@test "a tab in zsh completes an option of a command of a command" {
    typedInZsh "tvsc lock release --i" "tvsc lock release --id"
}

@test "a tab in fish completes a command of a command" {
    command -v fish >/dev/null || skip "fish is not installed"
    typed "fish --no-config" "source $BATS_TEST_TMPDIR/fish" "tvsc handles dr" "tvsc handles drain"
}

@test "a tab in zsh completes a command" {
    typedInZsh "tvsc restar" "tvsc restart"
}

@test "a tab in zsh completes an option" {
    typedInZsh "tvsc stop --with-d" "tvsc stop --with-dependents"
}

@test "a tab in zsh completes the name of a service" {
    typedInZsh "tvsc start 'web c" "tvsc start 'web cache'"
}

@test "a tab in fish completes a command" {
    command -v fish >/dev/null || skip "fish is not installed"
    typed "fish --no-config" "source $BATS_TEST_TMPDIR/fish" "tvsc restar" "tvsc restart"
}
