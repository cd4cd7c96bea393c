# SPDX-License-Identifier: MIT
# Who reaches the daemons. Each test is a private host of its own, on which the user
# "daemon" is in the group tv-admin and "nobody" is not.

setup() {
    export PATH=$TV_BIN:$PATH:/usr/sbin:/sbin
}

# What each host begins with; a command that should fail is called through "refused".
readonly preamble='
    grep -v ^tv-admin: /etc/group >/run/group
    echo tv-admin:x:60999:daemon >>/run/group
    mount --bind /run/group /etc/group
    guard=$TV_SOURCE/packaging/tv-guard
    as() { setpriv --reuid="$1" --regid=nogroup --clear-groups "${@:2}"; }
    refused() { if "$@"; then echo "not refused: $*"; exit 1; fi; }
    startRegistry() { tvregd --database /run/registry.db --background; }
    startServices() { servd || true; tvsc --quiet wait-online --timeout 60s; }
    portOfServices() { rpcinfo -p | awk "\$1 == 1073741824 { print \$4 }"; }
'

onHost() { # SCRIPT
    "$TV_SOURCE/tools/private-host" bash -euo pipefail -c "$preamble $1"
}

skipWithoutRules() {
    "$TV_SOURCE/tools/private-host" nft add table inet tv_try >/dev/null 2>&1 || skip "nftables cannot be used here"
}

@test "without rules everybody reaches the daemons, and the check says so" {
    run onHost 'startRegistry; startServices; as nobody tvsc list; $guard check'
    [ "$status" -eq 1 ]
    [[ $output == *"0 services"* ]]
    [ "$(grep -c "is open to everybody on this machine" <<<"$output")" -eq 2 ]
}

@test "with rules root and members of the group reach the daemons, others do not" {
    skipWithoutRules
    onHost '
        startRegistry
        startServices
        $guard load
        tvsc list
        as daemon tvsc list
        as daemon tvreg query HKLM
        setpriv --reuid=nobody --regid=60999 --clear-groups tvsc list
        refused as nobody tvsc list
        refused as nobody tvreg query HKLM
        $guard check
    '
}

@test "tvsc tells whoever is kept out what to ask for, and nobody else" {
    skipWithoutRules
    onHost '
        startRegistry
        startServices
        $guard load
        told=$(as nobody tvsc list 2>&1) && exit 1
        grep -q "adduser nobody tv-admin" <<<"$told"
        servd stop
        told=$(as daemon tvsc list 2>&1) && exit 1
        grep -q "is servd running" <<<"$told"
    '
}

@test "a new member of the group is admitted by the next load, one who has left is not" {
    skipWithoutRules
    onHost '
        startRegistry
        $guard load
        echo tv-admin:x:60999:nobody >/run/group
        $guard load
        as nobody tvreg query HKLM
        refused as daemon tvreg query HKLM
    '
}

@test "a connection made before the rules sends nothing after them" {
    skipWithoutRules
    onHost '
        startRegistry
        startServices
        mkfifo /run/go /run/connected
        chmod 666 /run/go /run/connected
        as nobody bash -c "
            exec 3<>/dev/tcp/127.0.0.1/$(portOfServices)
            echo >/run/connected
            read </run/go
            printf \"\\200\\0\\0\\50\\0\\0\\0\\1\\0\\0\\0\\0\\0\\0\\0\\2\\100\\0\\0\\0\\0\\0\\0\\1\" >&3
            head -c 20 /dev/zero >&3
            timeout 10 head -c 1 <&3 | wc -c
        " >/run/answered &
        read </run/connected
        $guard load
        echo >/run/go
        wait
        cat /run/answered
        [ "$(cat /run/answered)" = 0 ]
    '
}

@test "the same connection is answered where no rules come" {
    onHost '
        startRegistry
        startServices
        exec 3<>/dev/tcp/127.0.0.1/$(portOfServices)
        printf "\200\0\0\50\0\0\0\1\0\0\0\0\0\0\0\2\100\0\0\0\0\0\0\1" >&3
        head -c 20 /dev/zero >&3
        [ "$(timeout 10 head -c 1 <&3 | wc -c)" = 1 ]
    '
}

@test "a daemon that starts is closed before its port is known" {
    skipWithoutRules
    onHost '
        startRegistry
        startServices
        $guard load
        servd stop
        $guard before servd
        startServices
        refused as nobody timeout 0.5 bash -c "exec 3<>/dev/tcp/127.0.0.1/$(portOfServices)"
        as daemon tvsc list
        $guard after servd
        $guard check
        refused grep -q "goto whoMayWait" <<<"$(nft list table inet tv_guard)"
    '
}

@test "a daemon that could not start keeps nobody from the ports of others" {
    skipWithoutRules
    onHost '
        $guard before servd
        busybox httpd -f -p 127.0.0.1:7070 -h /run &
        listener=$!
        for ((try = 0; try < 100; ++try)); do
            ! as daemon bash -c "exec 3<>/dev/tcp/127.0.0.1/7070" 2>/dev/null || break
            sleep 0.05
        done
        refused as nobody timeout 0.5 bash -c "exec 3<>/dev/tcp/127.0.0.1/7070"
        $guard over servd
        as nobody timeout 10 bash -c "exec 3<>/dev/tcp/127.0.0.1/7070"
        kill "$listener"
    '
}

@test "a daemon whose port nobody tells is complained of" {
    skipWithoutRules
    onHost '
        refused $guard after servd 2>/run/told
        grep -qx "tv-guard: no port of servd: neither the port mapper nor its process tells one" /run/told
        refused grep -q "goto whoMayWait" <<<"$(nft list table inet tv_guard)"
    '
}

@test "a setting that is no setting closes the ports, and is complained of" {
    skipWithoutRules
    onHost '
        mkdir /run/default
        echo TV_PORTS=Open >/run/default/tv-guard
        mount --bind /run/default /etc/default
        startRegistry
        $guard load 2>/run/told
        grep -q "\"Open\" is taken as closed" /run/told
        refused as nobody tvreg query HKLM
        echo TV_PORTS=open >/run/default/tv-guard
        $guard load
        as nobody tvreg query HKLM
    '
}

@test "rules of others stay beside ours, and go on deciding" {
    skipWithoutRules
    onHost '
        startRegistry
        nft add table inet other
        nft add chain inet other out "{ type filter hook output priority 10; }"
        nft add rule inet other out meta skuid 1 tcp dport 111 reject
        $guard load
        grep -q reject <<<"$(nft list table inet other)"
        refused as daemon timeout 10 bash -c "exec 3<>/dev/tcp/127.0.0.1/111"
        $guard remove
        grep -q reject <<<"$(nft list table inet other)"
        refused nft list table inet tv_guard
    '
}
