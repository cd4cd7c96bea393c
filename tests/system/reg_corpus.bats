# SPDX-License-Identifier: MIT
# .reg files: what a registry holds after an import is held against what hivexregedit, an independent reader, makes of
# the same text. Both states are compared as hivexregedit prints them, for which it reads the registry's export into a
# second hive.
#
# Files of others come from Debian's source archive; where that or hivexregedit cannot be had, what needs them is
# passed over. The roots of a file become keys of one key: some roots of the registry show others, hives have none.

load source_archive

setup_file() {
    export privateHost=$BATS_TEST_DIRNAME/../../tools/private-host
    export helpers=$BATS_TEST_DIRNAME/reg_corpus
    export archive=$BATS_FILE_TMPDIR/archive
    command -v hivexregedit >/dev/null && { openArchive || true; }
}

setup() {
    command -v hivexregedit >/dev/null || skip "hivexregedit is not installed"
    cd "$BATS_TEST_TMPDIR" || return
}

# Prints what hivexregedit makes of .reg text.
readByHivex() { # FILE
    perl "$helpers/empty_hive.pl" >hive
    awk -f "$helpers/plain.awk" "$1" >plain.reg
    hivexregedit --merge hive plain.reg >&2
    hivexregedit --export hive '\HKEY_LOCAL_MACHINE\Corpus'
}

# Leaves in imported.reg what a registry holds after an import.
importFile() { # FILE
    "$privateHost" bash -c '
        "$TV_BIN/tvregd" --database registry.db --background
        "$TV_BIN/tvreg" import "$1" && "$TV_BIN/tvreg" export HKLM/Corpus exported.reg' - "$1"
    iconv -f UTF-16 -t UTF-8 exported.reg | tr -d '\r' >imported.reg
}

compare() { # FILE
    sed 's/^\([ \t]*\[-*\)HKEY_/\1HKEY_LOCAL_MACHINE\\Corpus\\/' "$1" >moved.reg
    readByHivex moved.reg >expected
    grep -q '=' expected # what holds no value shows nothing
    importFile moved.reg
    readByHivex imported.reg >actual
    diff expected actual
}

@test "Vim's .reg file is read as hivexregedit reads it" {
    [ -e "$archive/open" ] || skip "the source archive cannot be reached"
    fetchSource vim '*/GvimExt.reg' || skip "the source archive does not give vim"
    compare source/src/GvimExt/GvimExt.reg
}

@test "values of every type are read as hivexregedit reads them" {
    cat >types.reg <<'END'
Windows Registry Editor Version 5.00

[HKEY_CURRENT_USER\Every]
@="unnamed"
"text"="with \"quotes\" and C:\\a\\path"
"empty"=""
"number"=dword:deadBEEF
"bytes"=hex:01,02,\
  03,ff
"none"=hex(0):
"expand"=hex(2):25,00,41,00,25,00,00,00
"several"=hex(7):6f,00,6e,00,65,00,00,00,74,00,77,00,6f,00,00,00,00,00
"long"=hex(b):01,00,00,00,00,00,00,80
"a name = with \\ and \""="x"

[HKEY_CURRENT_USER\Every\below]

[HKEY_CURRENT_USER\EVERY\Below]
"v"="in the same key"

[HKEY_CURRENT_USER\Every]
"text"="set again"
END
    compare types.reg
}
