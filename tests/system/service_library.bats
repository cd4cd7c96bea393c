# SPDX-License-Identifier: MIT
# libtvsvc as others meet it: installed into a folder, found through pkg-config and CMake, used from C on both sides.

setup_file() {
    export sources=$BATS_TEST_DIRNAME/service_library
    export privateHost=$BATS_TEST_DIRNAME/../../tools/private-host
    export prefix=$BATS_FILE_TMPDIR/installed
    cmake --install "$TV_BIN/.." --prefix "$prefix" --component tvsvc >/dev/null
    library=$(find "$prefix" -name libtvsvc.so)
    export libraryFolder=${library%/*}
    export PKG_CONFIG_PATH=$libraryFolder/pkgconfig
}

setup() { cd "$BATS_TEST_TMPDIR" || return; }

compile() { ${CC:-cc} -std=c11 -D_DEFAULT_SOURCE -Wall -Wextra -Wpedantic -Werror $TV_SANITIZE_FLAGS "$@"; }

# Runs a client on a private host with both daemons, for a service program.
withDaemons() { # CLIENT SERVICE
    rm -f registry.db*
    printf '#!/bin/csh -f\nexec %s\n' "$2" >service.csh
    LD_LIBRARY_PATH=$libraryFolder:$LD_LIBRARY_PATH "$privateHost" bash -c '
        "$TV_BIN/tvregd" --database registry.db --background
        "$TV_BIN/servd"
        "$TV_BIN/tvsc" wait-online && "$@"' - "$1" "$PWD/service.csh"
}

@test "C programs compiled with what pkg-config says create, start, stop and delete a service" {
    for program in client service; do
        compile "$sources/$program.c" -o $program $(pkg-config --cflags --libs tvsvc)
    done
    run withDaemons ./client "$PWD/service"
    [ "$output" = done ]
    [ "$status" -eq 0 ]
}

@test "the same programs linked with the static library" {
    for program in client service; do
        compile "$sources/$program.c" -o $program $(pkg-config --cflags tvsvc) "$libraryFolder/libtvsvc.a" \
            $(pkg-config --libs libtirpc) -pthread -lstdc++
    done
    run withDaemons ./client "$PWD/service"
    [ "$output" = done ]
    [ "$status" -eq 0 ]
}

@test "the same programs built through the CMake package, shared and static" {
    cmake -G Ninja -S "$sources" -B build -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_FLAGS="-D_DEFAULT_SOURCE $TV_SANITIZE_FLAGS" >/dev/null
    cmake --build build >/dev/null
    run withDaemons build/client_shared "$PWD/build/service_static"
    [ "$output" = done ]
    run withDaemons build/client_static "$PWD/build/service_shared"
    [ "$output" = done ]
}

# Prints the example of the manual that stands behind a line which begins so.
example() { # BEGINNING
    awk -v beginning="$1" '/^# / { inExamples = $0 == "# EXAMPLES" }
        inExamples && index($0, beginning) == 1 { wanted = 1 }
        wanted && /^```/ { if (code++) exit; next }
        code' "$BATS_TEST_DIRNAME/../../docs/tvsvc.3.scd"
}

# Starts and stops ./example as a service.
expectService() {
    printf '%s\n' '#!/bin/bash' 'PATH=$TV_BIN:$PATH' \
        'tvsc -q create demo --image "$1" && tvsc start demo && tvsc stop demo' >client
    chmod +x client
    run withDaemons ./client "$PWD/example"
    [ "$output" = $'demo: running\ndemo: stopped' ]
}

@test "the C example of the manual compiles as it stands there, and is a service that starts and stops" {
    example 'In C:' >example.c
    compile example.c -o example $(pkg-config --cflags --libs tvsvc)
    expectService
}

@test "the C++ example of the manual compiles as it stands there, and is a service that starts and stops" {
    example 'In C++' >example.cpp
    ${CXX:-c++} -std=c++20 -Wall -Wextra -Wpedantic -Werror $TV_SANITIZE_FLAGS example.cpp -o example \
        $(pkg-config --cflags --libs tvsvc)
    expectService
}

@test "without a daemon a client gets 1722" {
    compile "$sources/client.c" -o client $(pkg-config --cflags --libs tvsvc)
    LD_LIBRARY_PATH=$libraryFolder:$LD_LIBRARY_PATH run "$privateHost" ./client image
    [ "$output" = "open: 1722" ]
    [ "$status" -eq 1 ]
}

@test "the library exports the functions of its header and no others" {
    declared=$(sed -nE 's/^(DWORD|void|BOOL|SC_HANDLE|SC_LOCK|SERVICE_STATUS_HANDLE) (\w+)\(.*/\2/p' "$prefix"/include/tv/{winsvc,lasterror}.h | sort)
    exported=$(nm -D --defined-only "$libraryFolder/libtvsvc.so" | awk '$2 == "T" { sub(/@.*/, "", $3); print $3 }' | sort)
    [ "$(wc -l <<<"$declared")" -eq 56 ]
    [ "$declared" = "$exported" ]
}

@test "the installed headers are the four that the library needs" {
    [ "$(ls "$prefix/include/tv" | tr '\n' ' ')" = "lasterror.h winerror.h winsvc.h wintypes.h " ]
}
