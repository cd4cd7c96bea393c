# SPDX-License-Identifier: MIT
# The package tvwin32, and libtvbase in it, as others meet them: installed into a folder, found through pkg-config and
# CMake, used by sources with windows.h.

load win32_package

setup_file() {
    export sources=$BATS_TEST_DIRNAME/win32_library
    installPackage
}

setup() { cd "$BATS_TEST_TMPDIR" || return; }

compile() { # SOURCE PROGRAM FLAG...
    ${CC:-cc} -std=${standard:-c11} ${language:+-x $language} -D_DEFAULT_SOURCE -Wall -Wextra -Wpedantic -Werror \
        $TV_SANITIZE_FLAGS "$1" -x none -o "$2" "${@:3}"
}

# The service is created, started, paused, continued and stopped. Between the states it has time for its ticks. In the
# end it has stopped without an error: 3.
runAsService() { # PROGRAM
    rm -f registry.db*
    printf '#!/bin/csh -f\nexec %s\n' "$1" >service.csh
    "$privateHost" bash -c '
        "$TV_BIN/tvregd" --database registry.db --background
        "$TV_BIN/servd"
        PATH=$TV_BIN:$PATH
        tvsc wait-online && tvsc -q create example --image "$1" && tvsc start example && sleep 0.2 &&
            tvsc pause example && tvsc continue example && tvsc stop example
        tvsc status example >/dev/null
        echo $?' - "$PWD/service.csh" >output
    diff output <(printf 'example: %s\n' running paused running stopped && echo 3)
}

@test "a C source with windows.h is a service that starts, pauses, goes on and stops" {
    compile "$sources/service.c" service $(pkg-config --cflags --libs tvwin32)
    runAsService "$PWD/service"
}

@test "the same source as C++" {
    standard=c++17 language=c++ compile "$sources/service.c" service $(pkg-config --cflags --libs tvwin32) -lstdc++
    runAsService "$PWD/service"
}

@test "the same source with the static libraries" {
    compile "$sources/service.c" service $(pkg-config --cflags tvwin32) "$libraryFolder"/libtv{svc,registry,base}.a \
        $(pkg-config --libs libtirpc) -pthread -lstdc++
    [ -z "$(readelf -d service | grep libtv)" ]
    runAsService "$PWD/service"
}

@test "the same source through the CMake package, shared and static" {
    cmake -G Ninja -S "$sources" -B build -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_FLAGS="-D_DEFAULT_SOURCE $TV_SANITIZE_FLAGS" >/dev/null
    cmake --build build >/dev/null
    runAsService "$PWD/build/service_win32"
    runAsService "$PWD/build/service_win32_static"
}

# The server half of libtirpc needs GSS-API, of which Debian has no static library.
@test "-static: clients link and run, a service program is refused over GSS-API alone" {
    [ -z "$TV_SANITIZE_FLAGS" ] || skip "the sanitizers bring libraries of their own"
    printf '%s\n' '#include <windows.h>' '#include <stdio.h>' 'int main(void) {' \
        '    if (OpenSCManager(NULL, NULL, GENERIC_READ) != NULL) return 1;' \
        '    printf("%u\n", (unsigned)GetLastError());' '    return 0;' '}' >client.c
    compile client.c client -static -Wl,--no-warnings $(pkg-config --static --cflags --libs tvwin32) ||
        compile client.c client -static $(pkg-config --static --cflags --libs tvwin32)
    [ -z "$(readelf -d client | grep NEEDED)" ]
    run "$privateHost" ./client
    [ "$output" = 1722 ]

    if compile "$sources/service.c" service -static $(pkg-config --static --cflags --libs tvwin32) 2>errors; then
        runAsService "$PWD/service" # a libtirpc without GSS-API, or a static one of that
    else
        grep -q 'undefined reference to `gss_' errors
        missing=$(sed -nE 's/.*undefined reference to `(.*)'"'"'.*/\1/p' errors | sort -u | grep -viE '^gss_|^GSS_C_|^gsseqid' || true)
        [ -z "$missing" ] || { echo "$missing"; false; }
    fi
}

@test "a program that uses all libraries has one last error, whichever comes first" {
    flags=$(pkg-config --cflags tvwin32)
    rpc=$(pkg-config --libs libtirpc)
    for order in "svc registry base" "base registry svc"; do
        libraries= archives=
        for name in $order; do
            libraries+=" -ltv$name" archives+=" $libraryFolder/libtv$name.a"
        done
        compile "$sources/service.c" shared $flags -L"$libraryFolder" $libraries
        compile "$sources/service.c" static $flags $archives $rpc -pthread -lstdc++
        for program in shared static; do
            run ./$program say hello
            [ "${lines[0]}" = hello ]
            [[ ${lines[1]} == "service: 6 The handle names nothing."* ]]
            [[ ${lines[2]} == "base: 6 The handle names nothing."* ]]
            [[ ${lines[3]} == "registry: 87 An argument is missing or not allowed."* ]]
        done
    done
}

@test "without the daemon the program goes on in the foreground" {
    compile "$sources/service.c" service $(pkg-config --cflags --libs tvwin32)
    run "$privateHost" "$PWD/service"
    [[ $output == "dispatcher: 1063 "* ]]
    [ "$status" -eq 1 ]
}

# The names of the headers' functions, types and constants that end in A, without it.
namesWithForms() { # HEADER...
    sed -nE -e 's/^[A-Za-z_]+ ([A-Za-z0-9]+)A\(.*/\1/p' -e 's/^typedef .*\(\*(\w+)A\)\(.*/\1/p' \
        -e 's/^#define (\w+)A ["'"'"'].*/\1/p' "$@"
    sed -nE 's/^\} (.*);$/\1/p' "$@" | tr -d ' *' | tr ',' '\n' | sed -nE 's/A$//p'
}

@test "each name of the services' and the registry's headers has both forms, and means the one that UNICODE says" {
    cd "$prefix/include/tv"
    namesWithForms winsvc.h winreg.h winbase.h | sort -u >"$BATS_TEST_TMPDIR/names"
    cd "$BATS_TEST_TMPDIR"
    [ "$(wc -l <names)" -ge 85 ]
    for name in OpenSCManager ENUM_SERVICE_STATUS LPQUERY_SERVICE_CONFIG LPSERVICE_MAIN_FUNCTION SC_GROUP_IDENTIFIER \
        PSERVICE_NOTIFY_2 RegConnectRegistry RegQueryMultipleValues PVALENT ReportEvent; do
        grep -qx $name names
    done
    for form in A W; do
        {
            echo '#include <windows.h>'
            sed -E "s/.*/is \"&\" & and &$form/" names
        } >expand.h
        ${CC:-cc} -E -P $([ $form = A ] || echo -DUNICODE) $(pkg-config --cflags tvwin32) -x c expand.h |
            sed -nE 's/^is "(\w+)" (.*) and (.*)/\1|\2|\3/p' >expanded
        [ "$(wc -l <expanded)" -eq "$(wc -l <names)" ]
        awk -F'|' '$2 != $3 { print "means something else: " $0; wrong = 1 } END { exit wrong }' expanded
    done
    # That the forms are there: their addresses and sizes are.
    while read -r name; do
        for form in A W; do
            [[ $name =~ ^(SERVICES_|SC_GROUP) ]] && echo "unsigned size_$name$form = sizeof($name$form);" && continue
            [[ $name == *[a-z]* ]] && echo "const void *at_$name$form = (const void *)(unsigned long)&$name$form;" ||
                echo "unsigned size_$name$form = sizeof($name$form);"
        done
    done <names | sed '1i #include <windows.h>' >forms.c
    ${CC:-cc} -std=c11 -w $TV_SANITIZE_FLAGS -c forms.c -o forms.o $(pkg-config --cflags tvwin32)
}

@test "libtvbase exports the functions of its headers and no others" {
    declared=$(cat "$prefix"/include/tv/{winbase,lasterror}.h | sed -nE \
        's/^(__attribute__\(\(noreturn\)\) )?(DWORD|int|void|BOOL|HANDLE|LPSTR|LPWSTR|uint64_t) (\w+)\(.*/\3/p' | sort)
    exported=$(nm -D --defined-only "$libraryFolder/libtvbase.so" | awk '$2 == "T" { sub(/@.*/, "", $3); print $3 }' | sort)
    [ "$(wc -l <<<"$declared")" -ge 60 ]
    diff <(echo "$declared") <(echo "$exported")
}

@test "libtvbase needs libc and the compiler's libraries only" {
    [ -z "$TV_SANITIZE_FLAGS" ] || skip "the sanitizers bring libraries of their own"
    needed=$(readelf -d "$libraryFolder/libtvbase.so" | sed -nE 's/.*\((NEEDED|SONAME)\).*\[(.*)\]/\2/p' | grep -v '^ld-linux' | sort | tr '\n' ' ')
    [ "$needed" = "libc.so.6 libgcc_s.so.1 libstdc++.so.6 libtvbase.so.0 " ]
}
