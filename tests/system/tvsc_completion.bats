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
