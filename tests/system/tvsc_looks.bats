# SPDX-License-Identifier: MIT
# Every command of tvsc that only looks, on databases of every kind but the large one: its exit status and the first and the last line of
# what it tells, kept in looks/, and its JSON, held against the schemas. To make them anew after looking at what has
# changed: TV_NEW_LOOKS=1 bats tvsc_looks.bats

setup() {
    looks=$BATS_TEST_DIRNAME/looks
    export LC_ALL=C.UTF-8
    unset COLUMNS
}

service() { # NAME VALUE...: a key of the registry as text; without values it has a type and a display name
    local name=$1 text
    shift
    printf '[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\%s]\n"DisplayName"="The %s"\n' "$name" "$name"
    [[ " $* " == *' untyped '* ]] || printf '"Type"=dword:00000010\n"Start"=dword:00000003\n'
    for text in "$@"; do
        [[ $text == untyped ]] || printf '%s\n' "$text"
    done
    printf '"ImagePath"="%s"\n\n' "$BATS_TEST_TMPDIR/image.csh"
}

needs() { # NAME...: DependOnGroup
    local bytes
    bytes=$({ printf '%s\0' "$@"; printf '\0'; } | od -An -v -tx1 | tr -s ' \n' ',')
    bytes=${bytes#,}
    printf '"DependOnGroup"=hex(7):%s' "${bytes%,}"
}

# Runs the commands on the database that is in services.reg: one with a service NAME.
look() { # DATABASE NAME
    printf '#!/bin/csh -f\nexec /bin/sleep 1000\n' >"$BATS_TEST_TMPDIR/image.csh"
    "$BATS_TEST_DIRNAME/../../tools/private-host" bash "$BATS_TEST_DIRNAME/looks/look.bash" "$BATS_TEST_TMPDIR" "$@"
    [ -z "${TV_NEW_LOOKS-}" ] || cp "$BATS_TEST_TMPDIR/looks" "$looks/$1.txt"
    diff "$looks/$1.txt" "$BATS_TEST_TMPDIR/looks"
    python3 -c 'import jsonschema' 2>/dev/null || skip "python3-jsonschema is not installed: the JSON is not looked at"
    python3 "$BATS_TEST_DIRNAME/looks/validate.py" "$BATS_TEST_DIRNAME/../../docs/schemas/tvsc.schema.json" \
        "$BATS_TEST_TMPDIR/documents"
}

registry() { { printf 'REGEDIT4\n\n'; "$@"; } >"$BATS_TEST_TMPDIR/services.reg"; }

healthy() { service db; service cache '"Group"="base"'; service web "$(needs db +base)"; }
broken() { healthy; service culprit untyped; }
cyclic() { service a "$(needs b)"; service b "$(needs a)"; service c "$(needs a none)"; }
scripts() { service веб-сервер; service '网络 服务' "$(needs веб-сервер)"; service $'\xff\xfe-x'; service $'a\e[31mb'; }

@test "a healthy database" { registry healthy; look healthy web; }
@test "an empty database" { registry :; look empty web; }
@test "a broken database" { registry broken; look broken web; }
@test "a locked database" { registry healthy; look locked web; }
@test "a cyclic database" { registry cyclic; look cyclic a; }
@test "a database with record 0 in use" { registry healthy; look record-0 zero; }
@test "names of other scripts" { registry scripts; look scripts '网络 服务'; }
@test "a name of bytes that are no text" { registry scripts; look bytes $'\xff\xfe-x'; }
