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
        mkdir -p /run/tv/services
        echo "701 100040 700 100000 1000480 1001200 1006000 0 0" >/run/tv/services/cache.run
        echo "702 100130 700 100000 1001400 1005300 1006000 0 0" >/run/tv/services/web.run
        for width in 60 80 200; do
            tmux -L "screens$width" -f /dev/null new-session -d -x "$width" -y 20 \
                "TERM=screen-256color; export TERM; \"$TV_BIN/tvsc\" ${*:4}; touch \"$1/$width.done\"; sleep 1000"
            for ((try = 0; try < 600; ++try)); do [[ -e $1/$width.done ]] && break; sleep 0.05; done
            sleep 0.2
            tmux -L "screens$width" capture-pane -p | sed -E "s/[0-9]{2}:[0-9]{2}:[0-9]{2} UTC/hh:mm:ss UTC/; s/[0-9]{4}-[0-9-]{5}T[0-9:.]+/yyyy-mm-ddThh:mm:ss.mmm/" >"$1/$3.$width"
            tmux -L "screens$width" kill-server
        done' - "$BATS_TEST_TMPDIR" "$screens" "$@"
    for width in 60 80 200; do
        [ -z "${TV_NEW_SCREENS-}" ] || cp "$BATS_TEST_TMPDIR/$1.$width" "$screens/$1.$width.txt"
        diff "$screens/$1.$width.txt" "$BATS_TEST_TMPDIR/$1.$width"
    done
}

@test "a list" { show list list; }
@test "a watch" { show watch watch --count 2 --interval 50ms; }
@test "the status of services" { show status status web cache "a-service*"; }
@test "a plan of a start" { show plan plan start web; }
@test "the timeline of an automatic start" { show timeline timeline; }
@test "the services of several machines" { show hosts --host localhost,127.0.0.1 list; }
@test "a tree" { show tree tree; }
@test "a plan of the boot" { show order order; }
@test "what the doctor finds in a file" { show doctor doctor --registry "$screens/services.reg"; }
