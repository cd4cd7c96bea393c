# SPDX-License-Identifier: MIT
# machine: a root of Debian 12 to install the packages of build/packages on. For scripts in the project's folder.

# Unpacks a root as tools/debian-root makes it, with the packages as its only source: what they depend on has to be in it
# already, as there is no network on it.
makeMachine() { # ROOT ARCHITECTURE[,FOREIGN] SECTION...
    local architecture package
    tools/debian-root "$1" "$2" minbase "${@:3}"
    rm -f "$1"/etc/apt/sources.list "$1"/etc/apt/sources.list.d/*
    mkdir "$1/var/packages"
    for architecture in ${2//,/ } all; do
        for package in build/packages/*_"$architecture".deb; do
            [[ ! -e $package ]] || cp "$package" "$1/var/packages/"
        done
    done
    cp build/packages/{Packages,Packages.gz,Release} "$1/var/packages/"
    echo 'deb [trusted=yes] file:/var/packages ./' >"$1/etc/apt/sources.list.d/servd.list"
}

# Whether such a root can be booted here.
boots() { # ROOT
    tools/boot-host "$1" true || { echo "skipped: no root can be booted here (see above)" >&2; return 1; }
}
