# SPDX-License-Identifier: MIT
# Who may change the registry. The user "daemon" is in the group tv-admin here, and "nobody" is not.

setup() {
    export PATH=$TV_BIN:$PATH
}

# What a host begins with; a command that should fail is called through "refused".
readonly preamble='
    grep -v ^tv-admin: /etc/group >/run/group
    echo tv-admin:x:60999:daemon >>/run/group
    mount --bind /run/group /etc/group
    as() { setpriv --reuid="$1" --regid=nogroup --clear-groups "${@:2}"; }
    refused() { if "$@"; then echo "not refused: $*"; exit 1; fi; }
'

onHost() { # SCRIPT
    "$TV_SOURCE/tools/private-host" bash -euo pipefail -c "$preamble $1"
}

@test "with --writers root and members of the group change the registry, and all read it" {
    onHost '
        tvregd --database /run/registry.db --background --writers tv-admin
        tvreg add "HKLM\Software\T" --value a --data 1
        as daemon tvreg add "HKLM\Software\T" --value b --data 2
        grep -q b <<<"$(as nobody tvreg query "HKLM\Software\T")"
        refused as nobody tvreg add "HKLM\Software\T" --value c --data 3
        refused as nobody tvreg add "HKLM\Software\New"
        refused as nobody tvreg delete "HKLM\Software\T" --value a
        refused as nobody tvreg delete "HKLM\Software\T"
        content=$(tvreg query "HKLM\Software\T")
        grep -qw a <<<"$content"
        refused grep -qw c <<<"$content"
        refused tvreg query "HKLM\Software\New"
    '
}

@test "with --writers a key that is there can be opened by creating it, and one that is not answers 5" {
    onHost '
        tvregd --database /run/registry.db --background --writers tv-admin
        tvreg add "HKLM\\Software\\T"
        as nobody tvreg add "HKLM\\Software\\T"
        answer=$(as nobody tvreg add "HKLM\\Software\\New" 2>&1) && exit 1
        grep -qw 5 <<<"$answer"
    '
}
