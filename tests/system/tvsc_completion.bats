# SPDX-License-Identifier: MIT
# The completion of tvsc in the shells themselves. A tvsc of our own stands in for the daemon: it lists two services.

setup() {
    mkdir "$BATS_TEST_TMPDIR/bin"
    for shell in bash zsh fish; do
        "$TV_BIN/tvsc" completion "$shell" >"$BATS_TEST_TMPDIR/$shell"
    done
    printf '#!/bin/sh\n[ "$1" = list ] && printf "web\\nweb cache\\n"\n' >"$BATS_TEST_TMPDIR/bin/tvsc"
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

@test "fish completes commands, options and names" {
    command -v fish >/dev/null || skip "fish is not installed"
    inFish() { fish -N -c "source $BATS_TEST_TMPDIR/fish; complete -C '$1'"; }
    inFish 'tvsc resta' | grep -q '^restart'
    inFish 'tvsc stop --with-d' | grep -q '^--with-dependents'
    inFish 'tvsc start we' | grep -q '^web'
}

@test "zsh completes commands, options and names" {
    command -v zsh >/dev/null || skip "zsh is not installed"
    inZsh() {
        zsh -f -c 'compdef() { :; }; compadd() { shift; print -l -- "$@"; }; . "$1"; shift; words=("$@"); CURRENT=$#; _tvsc' \
            zsh "$BATS_TEST_TMPDIR/zsh" "$@"
    }
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

@test "a tab in bash completes a command" {
    typed "bash --norc" ". $BATS_TEST_TMPDIR/bash" "tvsc restar" "tvsc restart"
}

@test "a tab in bash completes an option" {
    typed "bash --norc" ". $BATS_TEST_TMPDIR/bash" "tvsc stop --with-d" "tvsc stop --with-dependents"
}

@test "a tab in zsh completes a command" {
    command -v zsh >/dev/null || skip "zsh is not installed"
    typed "zsh -f" "autoload -Uz compinit; compinit -u -D; . $BATS_TEST_TMPDIR/zsh" "tvsc restar" "tvsc restart"
}

@test "a tab in zsh completes an option" {
    command -v zsh >/dev/null || skip "zsh is not installed"
    typed "zsh -f" "autoload -Uz compinit; compinit -u -D; . $BATS_TEST_TMPDIR/zsh" "tvsc stop --with-d" \
        "tvsc stop --with-dependents"
}

@test "a tab in zsh completes the name of a service" {
    command -v zsh >/dev/null || skip "zsh is not installed"
    typed "zsh -f" "autoload -Uz compinit; compinit -u -D; . $BATS_TEST_TMPDIR/zsh" "tvsc start 'web c" "tvsc start 'web cache'"
}

@test "a tab in fish completes a command" {
    command -v fish >/dev/null || skip "fish is not installed"
    typed "fish --no-config" "source $BATS_TEST_TMPDIR/fish" "tvsc restar" "tvsc restart"
}
