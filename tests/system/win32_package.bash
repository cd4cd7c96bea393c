# SPDX-License-Identifier: MIT
# win32_package: the package tvwin32 and the libraries that it comes with, installed into a folder of the test file and
# found there by pkg-config and by programs.
installPackage() {
    export privateHost=$BATS_TEST_DIRNAME/../../tools/private-host
    export prefix=$BATS_FILE_TMPDIR/installed
    local component library
    for component in tvsvc tvregistry tvbase tvwin32; do
        cmake --install "$TV_BIN/.." --prefix "$prefix" --component $component >/dev/null
    done
    library=$(find "$prefix" -name libtvbase.so)
    export libraryFolder=${library%/*}
    export PKG_CONFIG_PATH=$libraryFolder/pkgconfig
    export LD_LIBRARY_PATH=$libraryFolder:$LD_LIBRARY_PATH
}
