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

# Prints what hivexregedit makes of .reg text in UTF-8.
readByHivex() { # FILE
    perl "$helpers/empty_hive.pl" >hive
    awk -f "$helpers/plain.awk" "$1" >plain.reg
    hivexregedit --merge hive plain.reg >&2 || return
    hivexregedit --export hive '\HKEY_LOCAL_MACHINE\Corpus'
}

# Leaves in FILE.imported, for each, what a registry holds after its import, and in FILE.told what the import told.
importFiles() { # FILE...
    "$privateHost" bash -c '
        "$TV_BIN/tvregd" --lazy --database registry.db --background
        for file; do
            "$TV_BIN/tvreg" import "$file" >"$file.told" 2>&1 || continue
            "$TV_BIN/tvreg" export HKLM/Corpus "$file.exported" && "$TV_BIN/tvreg" delete HKLM/Corpus || exit
            iconv -f UTF-16 -t UTF-8 "$file.exported" | tr -d "\r" >"$file.imported"
        done' - "$@"
}

encodingOf() { # FILE
    case $(head -c 2 "$1" | od -An -tx1) in
        ' ff fe' | *' 00') echo UTF-16LE ;;
        *) echo UTF-8 ;; # or any other whose first half is ASCII: the lines with keys are all that is looked at
    esac
}

# The roots of a file become keys of one key; its encoding and all other bytes stay.
moveRoots() { # FILE TO
    recode "$1" | sed 's/^\([ \t]*\[-*\)HKEY_/\1HKEY_LOCAL_MACHINE\\Corpus\\/' |
        { [ "$(encodingOf "$1")" = UTF-8 ] && cat || iconv -f UTF-8 -t UTF-16LE; } >"$2"
}

# Prints a file in UTF-8, a byte order mark included.
recode() { # FILE
    [ "$(encodingOf "$1")" = UTF-8 ] && cat "$1" || iconv -f UTF-16LE -t UTF-8 "$1"
}

# Every file must be read, and be read as hivexregedit reads it, but those that one of the two is known to refuse.
compare() { # FILE... [--hivex-refuses FILE...]
    local file moved=() refused=
    rm -rf moved && mkdir moved
    for file; do
        if [ "$file" = --hivex-refuses ] || [ -n "$refused" ]; then
            refused+=" $file "
        else
            moveRoots "$file" "moved/${file##*/}"
            moved+=("moved/${file##*/}")
        fi
    done
    importFiles "${moved[@]}"
    values=0
    for file in "${moved[@]}"; do
        [ -e "$file.imported" ] || { echo "$file: $(cat "$file.told")"; return 1; }
        recode "$file" | sed '1s/^\xef\xbb\xbf//' >text.reg
        if [[ $refused == *" ${file##*/} "* ]]; then
            ! readByHivex text.reg >/dev/null 2>&1 || { echo "$file: hivexregedit takes it"; return 1; }
            continue
        fi
        readByHivex text.reg >expected
        readByHivex "$file.imported" >actual
        diff expected actual || { echo "$file differs"; return 1; }
        values=$((values + $(grep -c '=' expected || true)))
    done
    echo "${#moved[@]} files, $values values compared"
    [ "$values" -gt 0 ] # what holds none shows nothing
}

@test "Vim's .reg file is read as hivexregedit reads it" {
    [ -e "$archive/open" ] || skip "the source archive cannot be reached"
    fetchSource vim '*/GvimExt.reg' || skip "the source archive does not give vim"
    compare source/src/GvimExt/GvimExt.reg
}

# Parts of the registries of real machines, as the Win32 tool exported them.
@test "the registry exports of FusionInventory's agent are read as hivexregedit reads them" {
    [ -e "$archive/open" ] || skip "the source archive cannot be reached"
    fetchSource fusioninventory-agent '*.reg' || skip "the source archive does not give fusioninventory-agent"
    # It has strings of several lines, which hivexregedit does not take.
    compare source/resources/win32/registry/*.reg --hivex-refuses xp-Uninstall.reg
    [ "$values" -gt 6000 ]
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
