# SPDX-License-Identifier: MIT
# What tvsc shows at terminals of 60, 80 and 200 columns, kept in screens/. To make them anew after looking at what has
# changed: TV_NEW_SCREENS=1 bats tvsc_screens.bats

setup() {
    command -v tmux >/dev/null || skip "tmux is not installed"
    screens=$BATS_TEST_DIRNAME/screens
    export LC_ALL=C.UTF-8 TERM=xterm-256color
}

# A database of services that do not run, inside a private host; then one screen for each width.
show() { # NAME COMMAND...
    "$BATS_TEST_DIRNAME/../../tools/private-host" bash -c '
        "$TV_BIN/tvregd" --lazy --database "$1/registry.db" --background
        cd "$1" && "$TV_BIN/tvreg" import "$2/services.reg" >import.txt && { "$TV_BIN/servd" || true; }
        "$TV_BIN/tvsc" wait-online --timeout 60s
        "$TV_BIN/tvsc" config web --start auto >/dev/null
        for width in 60 80 200; do
            tmux -L "screens$width" -f /dev/null new-session -d -x "$width" -y 20 \
                "TERM=screen-256color; export TERM; \"$TV_BIN/tvsc\" ${*:4}; touch \"$1/$width.done\"; sleep 1000"
            for ((try = 0; try < 600; ++try)); do [[ -e $1/$width.done ]] && break; sleep 0.05; done
            sleep 0.2
            tmux -L "screens$width" capture-pane -p | sed "s/[0-9][0-9]:[0-9][0-9]:[0-9][0-9] UTC/hh:mm:ss UTC/" >"$1/$3.$width"
            tmux -L "screens$width" kill-server
        done' - "$BATS_TEST_TMPDIR" "$screens" "$@"
    for width in 60 80 200; do
        [ -z "${TV_NEW_SCREENS-}" ] || cp "$BATS_TEST_TMPDIR/$1.$width" "$screens/$1.$width.txt"
        diff "$screens/$1.$width.txt" "$BATS_TEST_TMPDIR/$1.$width"
    done
}

@test "a list" { show list list; }
@test "a watch" { show watch watch --count 2 --interval 50ms; }
@test "a tree" { show tree tree; }
@test "a plan of the boot" { show order order; }
@test "what the doctor finds in a file" { show doctor doctor --registry "$screens/services.reg"; }
