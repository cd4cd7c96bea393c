# SPDX-License-Identifier: MIT
# tools/private-host: what a command finds inside, how its end comes out, and that nothing stays.

setup() {
    host=$BATS_TEST_DIRNAME/../../tools/private-host
    mark=4$$ # seconds that no one else sleeps
}

marked() { pgrep -f "^sleep $mark\$"; }

waitForMark() { for _ in {1..200}; do marked >/dev/null && return; sleep 0.05; done; return 1; }
waitForNoMark() { for _ in {1..200}; do marked >/dev/null || return 0; sleep 0.05; done; return 1; }

@test "the port mapper answers and knows no other program" {
    run "$host" rpcinfo -p
    [ "$status" -eq 0 ]
    [ "$(tail -n +2 <<<"$output" | grep -vc portmapper)" -eq 0 ]
}

@test "the host name resolves to the loopback address" {
    run "$host" bash -c 'getent hosts "$(hostname)"'
    [ "$status" -eq 0 ]
    [[ $output == 127.0.0.1* ]]
}

@test "other names do not resolve" {
    run "$host" getent hosts deb.debian.org
    [ "$status" -eq 2 ]
}

@test "there is no network interface but the loopback" {
    run "$host" bash -c 'ip -o link | wc -l'
    [ "$output" -eq 1 ]
}

@test "only what was started inside is seen inside" {
    run "$host" ps -e --no-headers -o comm
    [ "$status" -eq 0 ]
    [ "$(sort <<<"$output" | tr '\n' ' ')" = "bash ps rpcbind " ]
}

@test "what is logged below /var/log stays inside" {
    "$host" bash -c '[ -z "$(ls -A /var/log)" ] && mkdir /var/log/of-a-private-host'
    [ ! -e /var/log/of-a-private-host ]
}

@test "the caller's host name and /run stay as they are" {
    before=$(hostname; ls /run; cat /etc/hosts)
    "$host" touch /run/something
    [ "$before" = "$(hostname; ls /run; cat /etc/hosts)" ]
}

@test "standard input, output and arguments pass unchanged" {
    run bash -c "printf 'one line' | $host bash -c 'cat; printf \"<%s>\" \"\$@\"' - 'a b' '' '*'"
    [ "$output" = "one line<a b><><*>" ]
}

@test "the command's exit status passes" {
    for expected in 0 1 2 42 255; do
        run "$host" bash -c "exit $expected"
        [ "$status" -eq "$expected" ]
    done
}

@test "a command ended by a signal gives 128 and the signal" {
    run "$host" bash -c 'kill -KILL $$'
    [ "$status" -eq 137 ]
}

@test "no command is a mistake, told with the usage" {
    run "$host"
    [ "$status" -eq 2 ]
    [[ $output == usage:* ]]
}

@test "what the command leaves running ends with it" {
    "$host" bash -c "setsid sleep $mark & sleep 0.1"
    waitForNoMark
}

@test "everything ends when private-host is terminated or killed" {
    for signal in TERM KILL; do
        "$host" sleep "$mark" 3>&- &
        waitForMark
        kill -"$signal" $!
        wait $! || true
        waitForNoMark
    done
}

@test "an interrupt reaches the command" {
    run env --default-signal=INT setsid bash -c "set -m
        $host bash -c 'trap \"echo interrupted; exit 5\" INT; echo ready >$BATS_TEST_TMPDIR/ready; while :; do sleep 0.05; done' &
        until [ -s $BATS_TEST_TMPDIR/ready ]; do sleep 0.05; done
        kill -INT -- -\$!
        wait \$!"
    [ "$status" -eq 5 ]
    [[ $output == *interrupted* ]]
}

@test "twenty private hosts live side by side" {
    for i in {1..20}; do
        "$host" bash -c 'rpcinfo -p >/dev/null' && touch "$BATS_TEST_TMPDIR/host.$i" &
    done
    wait
    [ "$(ls "$BATS_TEST_TMPDIR" | grep -c '^host')" -eq 20 ]
}

@test "a user without subordinate ids is told what is missing" {
    [ "$EUID" -eq 0 ] || skip "needs root to become another user"
    # Read by this shell: the other user may not reach the tree.
    run setpriv --reuid 65534 --regid 65534 --clear-groups bash -s true <"$host"
    [ "$status" -eq 2 ]
    [[ $output == *"no subordinate ids"*/etc/subuid* ]]
}
