# SPDX-License-Identifier: MIT
# libtvregistry as others meet it: installed into a folder, found through pkg-config and CMake, used from C.

setup_file() {
    export sources=$BATS_TEST_DIRNAME/registry_library
    export privateHost=$BATS_TEST_DIRNAME/../../tools/private-host
    export prefix=$BATS_FILE_TMPDIR/installed
    cmake --install "$TV_BIN/.." --prefix "$prefix" --component tvregistry >/dev/null
    library=$(find "$prefix" -name libtvregistry.so)
    export libraryFolder=${library%/*}
    export PKG_CONFIG_PATH=$libraryFolder/pkgconfig
}

setup() { cd "$BATS_TEST_TMPDIR" || return; }

compile() { ${CC:-cc} -std=c11 -Wall -Wextra -Wpedantic -Werror $TV_SANITIZE_FLAGS "$@"; }

# Runs a program on a private host with a registry daemon and nothing else.
withRegistry() {
    LD_LIBRARY_PATH=$libraryFolder:$LD_LIBRARY_PATH "$privateHost" bash -c '
        "$TV_BIN/tvregd" --database registry.db --background && "$@"' - "$@"
}

@test "a C program compiled with what pkg-config says opens, writes, reads, enumerates and deletes keys" {
    compile "$sources/client.c" -o client $(pkg-config --cflags --libs tvregistry)
    run withRegistry ./client
    [ "$output" = done ]
    [ "$status" -eq 0 ]
}

@test "the same program linked with the static library" {
    compile "$sources/client.c" -o client $(pkg-config --cflags tvregistry) "$libraryFolder/libtvregistry.a" \
        $(pkg-config --libs libtirpc) -pthread
    run withRegistry ./client
    [ "$output" = done ]
    [ "$status" -eq 0 ]
}

@test "the same program built through the CMake package, shared and static" {
    cmake -G Ninja -S "$sources" -B build -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_FLAGS="$TV_SANITIZE_FLAGS" >/dev/null
    cmake --build build >/dev/null
    run withRegistry build/client_shared
    [ "$output" = done ]
    run withRegistry build/client_static
    [ "$output" = done ]
}

@test "without a registry daemon the program gets 1016" {
    compile "$sources/client.c" -o client $(pkg-config --cflags --libs tvregistry)
    LD_LIBRARY_PATH=$libraryFolder:$LD_LIBRARY_PATH run "$privateHost" ./client
    [ "$output" = "create: 1016" ]
    [ "$status" -eq 1 ]
}

@test "the library exports the functions of its headers and no others" {
    declared=$(cat "$prefix"/include/tv/{winreg,tvregistry}.h | sed -nE 's/^(LONG|int|void|pid_t) (\w+)\(.*/\2/p' | sort)
    exported=$(nm -D --defined-only "$libraryFolder/libtvregistry.so" | awk '$2 == "T" { sub(/@.*/, "", $3); print $3 }' | sort)
    [ "$(wc -l <<<"$declared")" -eq 62 ]
    [ "$declared" = "$exported" ]
}

@test "the library has the version in its name and needs libtirpc and libc only" {
    [ -e "$libraryFolder/libtvregistry.so.0" ]
    [ -z "$TV_SANITIZE_FLAGS" ] || skip "the sanitizers bring libraries of their own"
    needed=$(readelf -d "$libraryFolder/libtvregistry.so" | sed -nE 's/.*\((NEEDED|SONAME)\).*\[(.*)\]/\2/p' | sort | tr '\n' ' ')
    [ "$needed" = "libc.so.6 libtirpc.so.3 libtvregistry.so.0 " ]
}

@test "the installed headers are the four that the library needs" {
    [ "$(ls "$prefix/include/tv" | tr '\n' ' ')" = "tvregistry.h winerror.h winreg.h wintypes.h " ]
}
