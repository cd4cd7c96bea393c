# SPDX-License-Identifier: MIT
# What an upgrade of the service daemon's package does to services: its scripts as dpkg calls them, on a private host.

setup() {
    export PATH=$TV_BIN:$PATH
}

# What a host begins with: both daemons. "replace" is what dpkg does, but for the files.
readonly preamble='
    scripts=$TV_SOURCE/debian
    startServices() { servd >/dev/null 2>&1 || true; tvsc --quiet wait-online --timeout 60s; }
    replace() {
        sh "$scripts/servd.prerm" upgrade 2
        tvsc --quiet stop --all
        servd stop
        startServices
        sh "$scripts/servd.postinst" configure 1
    }
    tvregd --database /run/registry.db --background
    startServices
'

onHost() { # SCRIPT
    "$TV_SOURCE/tools/private-host" bash -Eeuo pipefail -c "trap 'echo \"failed: \$BASH_COMMAND\" >&2' ERR; $preamble $1"
}

@test "services that ran before an upgrade run after it, whatever their names, and are told of" {
    onHost '
        for name in plain " blanks  around " -dash "\$dollar \"quoted\""; do
            tvsc create --name="$name" --exec "/bin/sleep 1000" --start demand
            tvsc start --name="$name"
        done
        tvsc create stopped --exec "/bin/sleep 1000" --start demand
        tvsc list --state running --names-only --brief | sort >/run/before
        [ "$(wc -l </run/before)" -eq 4 ]
        told=$(replace)
        diff /run/before <(tvsc list --state running --names-only --brief | sort)
        while IFS= read -r name; do
            grep -qxF "servd: $name was restarted" <<<"$told"
        done </run/before
        [ "$(wc -l <<<"$told")" -eq 4 ]
        [ ! -e /run/tv/before-upgrade ]
    '
}

@test "a service that the daemon has started by itself is told of and not started again" {
    onHost '
        tvsc create auto --exec "/bin/sleep 1000" --start auto
        tvsc start auto
        [ "$(replace)" = "servd: auto was restarted" ]
        tvsc is-active auto
        [ "$(pgrep -xc sleep)" -eq 1 ]
    '
}

@test "a service that does not start any more is told of, and the package is configured all the same" {
    onHost '
        for name in broken automatic sound; do
            cp /bin/sleep /run/$name
            tvsc create $name --exec "/run/$name 1000" --start demand
            tvsc start $name
        done
        tvsc config automatic --start auto --set AppReadyDelay=300
        rm /run/broken /run/automatic
        replace >/run/told 2>/run/complained
        for name in broken automatic; do
            grep -qxF "servd: $name ran before the upgrade and does not start now" /run/complained
        done
        [ "$(cat /run/told)" = "servd: sound was restarted" ]
    '
}

@test "what root has configured for the command line changes no upgrade" {
    onHost '
        tvsc create plain --exec "/bin/sleep 1000" --start demand
        tvsc start plain
        mkdir -p /run/config/tvsc
        printf "format = \"json\"\nhost = \"nosuch.invalid\"\nno-such-option = 1\n" >/run/config/tvsc/config.toml
        asRoot() { XDG_CONFIG_HOME=/run/config TVSC_FORMAT=json TVSC_HOST=nosuch.invalid sh "$@"; }
        asRoot "$scripts/servd.prerm" upgrade 2
        [ "$(cat /run/tv/before-upgrade)" = plain ]
        tvsc --quiet stop --all
        servd stop
        startServices
        [ "$(asRoot "$scripts/servd.postinst" configure 1)" = "servd: plain was restarted" ]
        tvsc is-active plain
    '
}

@test "an upgrade while the daemon is down starts nothing" {
    onHost '
        tvsc create plain --exec "/bin/sleep 1000" --start demand
        tvsc start plain
        tvsc stop plain
        servd stop
        sh "$scripts/servd.prerm" upgrade 2
        startServices
        [ -z "$(sh "$scripts/servd.postinst" configure 1)" ]
        ! tvsc is-active plain
    '
}
