# SPDX-License-Identifier: MIT
# Service code of well-known programs, written for Win32 and fetched from Debian's source archive: it is compiled as it
# is with the package tvwin32, and runs under the daemon. What a program is beside its service code stands in
# win32_corpus/NAME: a main that takes its place, and headers for those that the sources name and that would need the
# whole program.
#
# Where the archive cannot be reached nothing is tested, and where it lacks a source that program is passed over.

load source_archive
load win32_package

setup_file() {
    export standIns=$BATS_TEST_DIRNAME/win32_corpus
    export archive=$BATS_FILE_TMPDIR/archive
    export services='HKLM\SYSTEM\CurrentControlSet\Services'
    installPackage
    openArchive || echo "# the source archive cannot be reached: no service code of others was tested" >&3
}

setup() {
    [ -e "$archive/open" ] || skip "the source archive cannot be reached"
    cd "$BATS_TEST_TMPDIR" || return
}

fetch() { # PACKAGE FILE...
    fetchSource "$@" || skip "the source archive does not give $1"
}

# The compiler's warnings are the program's own affair.
compile() { # NAME PROGRAM SOURCE...
    local compiler=${CC:-cc}
    [[ $* != *.cpp* ]] || compiler=${CXX:-c++}
    $compiler -w $TV_SANITIZE_FLAGS -DWIN32 -D_WIN32 -I"$standIns/$1" -Isource $includes "${@:3}" -o "$2" \
        $(pkg-config --cflags --libs tvwin32) -pthread
}

# Runs commands on a private host with both daemons, each shown with what it answers.
withDaemons() { # COMMAND...
    "$privateHost" bash -c '
        "$TV_BIN/tvregd" --database registry.db --background
        "$TV_BIN/servd"
        PATH=$PWD:$TV_BIN:$PATH
        tvsc wait-online || exit
        for command; do
            echo "$ $command"
            eval "$command" 2>&1 || echo "status $?"
        done' - "$@" >output 2>&1
    cat output
}

# The lines of the last run, in this order, whatever stands between them.
sawInOrder() { # LINE...
    local wanted=("$@") line
    while IFS= read -r line; do
        [[ ${#wanted[@]} -eq 0 || $line != ${wanted[0]} ]] || wanted=("${wanted[@]:1}")
    done <output
    [ ${#wanted[@]} -eq 0 ] || { echo "missing: ${wanted[0]}"; return 1; }
}

image() { # FILE COMMAND
    printf '#!/bin/csh -f\nexec %s\n' "$2" >"$1"
}

@test "svnserve begins in the foreground of its main, reports, stops and exits in the middle of it" {
    fetch subversion '*/svnserve/winservice.[ch]'
    includes=-Isource/subversion/svnserve compile subversion svnserve source/subversion/svnserve/winservice.c \
        "$standIns/subversion/main.c"
    image svnserve.csh "$PWD/svnserve"
    withDaemons 'tvsc -q create svnserve --image $PWD/svnserve.csh' 'tvsc start svnserve' 'tvsc interrogate svnserve' \
        'tvsc pause svnserve' 'tvsc stop svnserve' 'tvsc status svnserve' './svnserve'
    sawInOrder 'svnserve: running' '$ tvsc interrogate*' 'svnserve: *running*' '$ tvsc pause*' 'status 3' \
        '$ tvsc stop*' 'svnserve: stopped' '$ tvsc status*' 'status 3' \
        'Failed to connect to Service Control Manager: 1063' 'status 1'
}

@test "i2pd, in C++, starts, pauses, goes on and stops" {
    fetch i2pd '*/Win32/Win32Service.*'
    includes="-Isource/Win32 -include functional" compile i2pd i2pd source/Win32/Win32Service.cpp \
        "$standIns/i2pd/main.cpp" -std=c++17
    image i2pd.csh "$PWD/i2pd"
    withDaemons 'tvsc -q create i2pdService --image $PWD/i2pd.csh' 'tvsc start i2pdService' 'tvsc pause i2pdService' \
        'tvsc continue i2pdService' 'tvsc stop i2pdService' 'tvsc status i2pdService' 'tvsc delete i2pdService'
    sawInOrder 'i2pdService: running' 'i2pdService: paused' 'i2pdService: running' 'i2pdService: stopped' 'status 3' \
        'i2pdService: deleted'
}
@test "Unbound installs itself, starts a program first, runs, stops and removes itself" {
    fetch unbound '*/winrc/*'
    compile unbound unbound source/winrc/win_svc.c source/winrc/w_inst.c "$standIns/unbound/main.c"
    withDaemons 'unbound -w install' "tvreg add 'HKLM\\Software\\Unbound' -v RootAnchor -d 'touch $PWD/anchor'" \
        'unbound -w start' 'tvsc wait unbound --for=running' 'ls anchor' 'unbound -w stop' \
        'tvsc wait unbound --for=stopped' 'unbound -w remove' 'tvsc status unbound'
    sawInOrder 'unbound service installed' 'unbound service started' 'unbound: running' anchor \
        'unbound service stopped' 'unbound: stopped' 'unbound service removed' '$ tvsc status unbound' 'status 4'
}

@test "Mosquitto installs itself, finds its configuration by the environment, runs, stops and uninstalls itself" {
    fetch mosquitto '*/src/service.c' '*/lib/memory_mosq.h'
    includes=-Isource/lib compile mosquitto mosquitto source/src/service.c "$standIns/mosquitto/main.c"
    export MOSQUITTO_DIR=$PWD
    touch mosquitto.conf
    withDaemons 'mosquitto install' 'tvsc start mosquitto' 'tvsc stop mosquitto' 'mosquitto uninstall' \
        'tvsc status mosquitto'
    sawInOrder '$ mosquitto install' 'mosquitto: running' 'mosquitto: stopped' '$ tvsc status*' 'status 4'
}

@test "Gammu's daemon installs, starts, stops and uninstalls itself" {
    fetch gammu '*/smsd/winservice.[ch]'
    includes=-Isource/smsd compile gammu gammu-smsd source/smsd/winservice.c "$standIns/gammu/main.c"
    withDaemons 'gammu-smsd -i' 'gammu-smsd -s' 'tvsc wait GammuSMSD --for=running' 'gammu-smsd -k' \
        'tvsc wait GammuSMSD --for=stopped' 'gammu-smsd -u' 'tvsc status GammuSMSD'
    sawInOrder '$ gammu-smsd -i' '$ gammu-smsd -s' 'GammuSMSD: running' 'GammuSMSD: stopped' '$ gammu-smsd -u' \
        '$ tvsc status*' 'status 4'
}

@test "slapd installs itself with its event source, outlives a restart of the daemon, runs, stops and removes itself" {
    fetch openldap '*/liblutil/ntservice.c' '*/slapd/nt_svc.c'
    compile openldap slapd source/libraries/liblutil/ntservice.c source/servers/slapd/nt_svc.c \
        "$standIns/openldap/main.c"
    withDaemons 'slapd' 'slapd install' 'servd stop' 'servd; tvsc wait-online' 'tvsc start OpenLDAP-slapd' \
        'tvsc stop OpenLDAP-slapd' 'slapd remove' 'tvsc status OpenLDAP-slapd'
    sawInOrder 'slapd in the foreground' 'service has been installed ...' 'OpenLDAP-slapd: running' \
        'OpenLDAP-slapd: stopped' 'service has been removed ...' '$ tvsc status*' 'status 4'
}

@test "Net-SNMP's agent registers itself with arguments in the registry, runs with them, stops and unregisters itself" {
    fetch net-snmp '*/snmplib/winservice.c' '*/include/net-snmp/library/winservice.h'
    includes=-Isource/include compile net-snmp snmpd source/snmplib/winservice.c "$standIns/net-snmp/main.c"
    withDaemons 'snmpd -register -quiet -Lf "a b.log"' 'tvsc start "Net-SNMP Agent"' 'cat /tmp/net-snmp.arguments' \
        'tvsc interrogate "Net-SNMP Agent"' 'tvsc stop "Net-SNMP Agent"' 'snmpd -unregister -quiet' \
        'tvsc status "Net-SNMP Agent"'
    sawInOrder '*successfully registered as a service*' 'Net-SNMP Agent: running' '-Lf' 'a b.log' \
        'Net-SNMP Agent: stopped' 'Net-SNMP Agent service deleted' '$ tvsc status*' 'status 4'
}

@test "tinc installs itself with the folder and the arguments it was called with, starts, stops and removes itself" {
    fetch tinc '*/src/process.[ch]'
    includes=-Isource/src compile tinc tincd source/src/process.c "$standIns/tinc/main.c"
    withDaemons 'tincd -n vpn' 'tvsc wait tinc.vpn --for=running' 'tvsc interrogate tinc.vpn' \
        'tvsc show tinc.vpn' 'tincd -k' 'tvsc status tinc.vpn'
    sawInOrder 'tinc.vpn service installed' 'tinc.vpn service started' 'tinc.vpn: running' 'tinc.vpn service stopped' \
        'tinc.vpn service removed' '$ tvsc status*' 'status 4'
}

@test "PgBouncer registers itself with a description, runs in its main, stops and unregisters itself" {
    fetch pgbouncer '*/win32/win32support.[ch]'
    includes=-Isource/win32 compile pgbouncer pgbouncer source/win32/win32support.c "$standIns/pgbouncer/main.c"
    echo 'job_name = pool' >'a b.ini'
    withDaemons 'pgbouncer --regservice "a b.ini"' 'tvsc show pool' "tvreg query '$services\\pool' -v Description" \
        'tvsc start pool' 'tvsc interrogate pool' 'tvsc stop pool' 'pgbouncer --unregservice "a b.ini"' \
        'tvsc status pool' 'pgbouncer --service "a b.ini"'
    sawInOrder 'Service registered.' "*/pgbouncer --service \"$PWD/a b.ini\"" \
        '*Lightweight connection pooler for PostgreSQL.' 'pool: running' '$ tvsc interrogate*' 'pool: *running*' \
        'pool: stopped' 'Service removed.' '$ tvsc status pool' 'status 4' \
        'could not start service control dispatcher: *' 'status 1'
}

@test "Zabbix' agent, in UTF-16, installs itself with its event source, starts, stops and uninstalls itself" {
    fetch zabbix '*/zbxwin32/service.c' '*/include/service.h'
    includes='-Isource/include -D_WINDOWS -DUNICODE -D_UNICODE' compile zabbix zabbix_agentd.exe \
        source/src/libs/zbxwin32/service.c "$standIns/zabbix/main.c"
    touch 'a b.conf'
    withDaemons '$PWD/zabbix_agentd.exe --install --config "a b.conf"' 'tvsc show "Zabbix Agent"' \
        "tvreg query '$services\\Zabbix Agent' -v Description" \
        "tvreg query '$services\\EventLog\\System\\Zabbix Agent'" 'zabbix_agentd.exe --start' \
        'tvsc wait "Zabbix Agent" --for=running' 'zabbix_agentd.exe --stop' \
        'tvsc wait "Zabbix Agent" --for=stopped' 'zabbix_agentd.exe --uninstall' 'tvsc status "Zabbix Agent"' \
        zabbix_agentd.exe
    sawInOrder 'service [[]Zabbix Agent[]] installed successfully' \
        'event source [[]Zabbix Agent[]] installed successfully' \
        "*zabbix_agentd.exe*--config*$PWD/a b.conf*" '*Provides system monitoring' "*EventMessageFile*$PWD*" \
        'service [[]Zabbix Agent[]] started successfully' 'Zabbix Agent: running' \
        'service [[]Zabbix Agent[]] stopped successfully' 'Zabbix Agent: stopped' \
        'service [[]Zabbix Agent[]] uninstalled successfully' \
        'event source [[]Zabbix Agent[]] uninstalled successfully' '$ tvsc status*' 'status 4' \
        'use foreground option to run Zabbix agent as console application'
}
