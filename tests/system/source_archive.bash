# SPDX-License-Identifier: MIT
# Sources from Debian's archive, the one that this machine's apt has its packages from. Lists and sources land in the
# folder $archive, which whoever loads this names; the machine's own configuration of apt is left alone.

# Leaves $archive/open where the archive can be reached.
openArchive() {
    mkdir -p "$archive"/{lists,cache,state}
    {
        echo "Dir::Etc::sourcelist \"$archive/sources.list\";" 'Dir::Etc::sourceparts "-";'
        echo "Dir::State \"$archive/state\";" "Dir::State::lists \"$archive/lists\";" "Dir::Cache \"$archive/cache\";"
        echo 'APT::Sandbox::User "root";' 'Acquire::Retries "2";' 'Acquire::http::Timeout "20";'
    } >"$archive/apt.conf"
    apt-get indextargets 'Identifier: Packages' --format 'deb-src $(REPO_URI) $(RELEASE) $(COMPONENT)' | sort -u \
        >"$archive/sources.list"
    [ -s "$archive/sources.list" ] && APT_CONFIG=$archive/apt.conf timeout 120 apt-get update -qq \
        >"$archive/update.log" 2>&1 && ls "$archive"/lists/*Sources* >/dev/null 2>&1 && touch "$archive/open"
}

# Leaves the named files of a source package in source/; fails where the archive does not give the package.
fetchSource() { # PACKAGE FILE...
    mkdir -p "$archive/$1"
    (cd "$archive/$1" && APT_CONFIG=$archive/apt.conf timeout 200 apt-get source -qq --download-only --tar-only "$1" \
        >fetch.log 2>&1) || return
    mkdir -p source
    tar -xf "$archive/$1"/*.orig.tar.* -C source --strip-components=1 --wildcards "${@:2}"
}
