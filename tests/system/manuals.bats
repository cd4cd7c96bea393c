# SPDX-License-Identifier: MIT
# The manuals against what the programs say of themselves: the same commands and the same options, in both directions.

# The help of a program and of all its commands.
helpOf() { # PROGRAM [COMMAND...]
    local command
    "$TV_BIN/$1" "${@:2}" --help
    for command in $("$TV_BIN/$1" "${@:2}" --help | commandsIn); do
        helpOf "$@" "$command"
    done
}

commandsIn() { awk '/^[^ ]/ { found = $1 == "Subcommands:" } found && /^  [a-z]/ { sub(",", "", $1); print $1 }'; }

optionsIn() { awk '/^ +--?[a-z]/ { gsub(",", "\n", $1); print $1 }' | sort -u; }

# What stands between asterisks: *--option*.
optionsOf() { grep -oE '\*--?[a-z][a-z0-9-]*\*' "$1" | tr -d '*' | sort -u; }

manualOf() { echo "$BATS_TEST_DIRNAME/../../docs/$1".[0-9].scd; }

@test "every option that a program takes stands in its manual, and no other does" {
    for program in tvsc tvreg tvregd; do
        helpOf "$program" | optionsIn >"$BATS_TEST_TMPDIR/taken"
        [ "$(wc -l <"$BATS_TEST_TMPDIR/taken")" -gt 5 ]
        diff "$BATS_TEST_TMPDIR/taken" <(optionsOf "$(manualOf "$program")")
    done
}

@test "programs without commands take the options of their manuals, and no other" {
    [ "$(optionsOf "$(manualOf tvhost)")" = "$("$TV_BIN/tvhost" --help | grep -oE -- '--[a-z-]+' | sort -u)" ]
    for option in $(optionsOf "$(manualOf tvhost)"); do
        "$TV_BIN/tvhost" "$option"
    done
    run "$TV_BIN/tvhost" --other
    [ "$status" -eq 2 ]
    [ -z "$(optionsOf "$(manualOf servd)")" ]
    [ -z "$(optionsOf "$(manualOf tv-guard)")" ]
    ! "$BATS_TEST_DIRNAME/../../packaging/tv-guard" --help | grep -qE -- ' --?[a-z]'
}

@test "every command of a program stands in its manual" {
    for program in tvsc tvreg; do
        commands=$(helpOf "$program" | commandsIn)
        [ "$(wc -w <<<"$commands")" -gt 9 ]
        for command in $commands; do
            grep -qE "\*([a-z]+ )?$command[ *]" "$(manualOf "$program")" || { echo "$program $command"; false; }
        done
    done
}

# Behind an asterisk in a manual, behind a prompt or a quotation mark in an example.
@test "every command that a page or an example calls is there" {
    for program in tvsc tvreg; do
        helpOf "$program" | commandsIn | sort -u >"$BATS_TEST_TMPDIR/commands"
        called=$(cd "$BATS_TEST_DIRNAME/../.." && grep -ohE "(\*|^[\$#] |\`)$program [a-z][a-z-]*" docs/*.scd docs/*.md README.md |
            sed 's/.* //' | sort -u)
        [ "$(wc -l <<<"$called")" -gt 3 ]
        unknown=$(comm -13 "$BATS_TEST_TMPDIR/commands" - <<<"$called")
        [ -z "$unknown" ] || { echo "$program $unknown"; false; }
    done
}

@test "every command of tv-guard stands in its manual, and no other does" {
    commands=$("$BATS_TEST_DIRNAME/../../packaging/tv-guard" --help | grep -oE 'tv-guard [a-z]+' | cut -d' ' -f2 | sort)
    [ "$(wc -w <<<"$commands")" -eq 7 ]
    diff <(echo "$commands") <(sed -n '/^# DESCRIPTION/,/^# FILES/p' "$(manualOf tv-guard)" | grep -oE '^\*[a-z]+\*' |
        tr -d '*' | sort)
}

@test "every program of the packages has a manual" {
    programs=$(cd "$BATS_TEST_DIRNAME/../../debian" && cat ./*.install | grep -oE '^usr/(sbin|bin|libexec/tv)/[a-z-]+$')
    for program in $programs usr/bin/tvsc usr/bin/tvreg; do
        [ -s "$(manualOf "${program##*/}")" ] || { echo "$program"; false; }
    done
    [ "$(wc -w <<<"$programs")" -gt 3 ]
}

@test "tv-rpc(7) lists the procedures of each protocol by number and name" {
    source=$BATS_TEST_DIRNAME/../..
    cat "$source"/{servd/servd_xdr.h,servd/service_xdr.h,registry/regd_xdr.h} |
        grep -oE '\bX\([0-9]+, [A-Z_]+' | sed 's/X(\([0-9]*\), /\1 /' >"$BATS_TEST_TMPDIR/served"
    [ "$(wc -l <"$BATS_TEST_TMPDIR/served")" -eq 49 ]
    diff "$BATS_TEST_TMPDIR/served" \
        <(awk '/^(\[\[|\| ) [0-9]+$/ { number = $2 } number && /^:[- ] / { print number, $2; number = "" }' "$(manualOf tv-rpc)")
}

@test "every function of the libraries has a page, which leads to one that shows how it is called" {
    count=0
    for link in "$TV_BIN"/../docs/links/*.3; do
        page=$TV_BIN/../man/$(sed 's|^.so man3/||' "$link")
        grep -q "^[A-Za-z_].*\b$(basename "$link" .3)(" "$page" || { echo "$link"; false; }
        count=$((count + 1))
    done
    [ "$count" -gt 150 ]
    grep -qx '.so man3/tvsvc-open.3' "$TV_BIN/../docs/links/OpenSCManagerA.3"
}

@test "the page of a library lists the pages of its functions" {
    awk -F ' *[|] *' '/^[^#]/ { print $1, $3 }' "$BATS_TEST_DIRNAME/../../docs/functions.txt" >"$BATS_TEST_TMPDIR/pages"
    [ "$(wc -l <"$BATS_TEST_TMPDIR/pages")" -gt 20 ]
    while read -r page library; do
        grep -qF "*$page*(3)" "$(manualOf "$library")" || { echo "$page"; false; }
    done <"$BATS_TEST_TMPDIR/pages"
}

# Pages of this system that a page names; others are Debian's.
@test "every page of this system that a manual refers to is there" {
    own='tv[a-z-]*|servd'
    references=$(cat "$BATS_TEST_DIRNAME"/../../docs/*.scd | grep -oE "\*($own)\*\([1-8]\)" | tr -d '*' | sort -u)
    [ "$(wc -l <<<"$references")" -gt 20 ]
    for reference in $references; do
        [ -e "$TV_BIN/../man/$(sed 's/(/./; s/)//' <<<"$reference")" ] || { echo "$reference"; false; }
    done
}

# What a program asks the environment for. TERM is everybody's.
@test "every environment variable that a program reads stands in a manual, and no other does" {
    source=$BATS_TEST_DIRNAME/../..
    code=$(cd "$source" && ls -d util rpc registry servd svcapi tvbase tvhost tvsc tvreg tvregd | sed "s|^|$source/|")
    read=$(grep -rhoE 'getenv\("[A-Z_]+"' $code | grep -oE '[A-Z_]{3,}' | sort -u)
    [ "$(wc -w <<<"$read")" -gt 9 ]
    for variable in $read; do
        [ "$variable" = TERM ] || grep -qE "\*$variable\*|\\\$$variable/|\*${variable//_/\\\\_}\*" "$source"/docs/*.scd ||
            { echo "$variable is in no manual"; false; }
    done
    told=$(sed -n '/^# ENVIRONMENT/,/^# [A-DF-Z]/p' "$source"/docs/*.scd | grep -oE '^\*[A-Z_]{3,}.*' | grep -oE '[A-Z_]{3,}' | sort -u)
    [ "$(wc -w <<<"$told")" -gt 9 ]
    for variable in $told; do
        grep -rqF "\"$variable\"" $code || { echo "$variable is read by no program"; false; }
    done
}

# Paths below folders of the system; what stands for a name, and what follows it, is left out.
@test "every file that a manual names is one of the system's or of a program" {
    source=$BATS_TEST_DIRNAME/../..
    files=$(grep -hoE '_/(etc|run|var|bin)[a-zA-Z0-9/._-]*_' "$source"/docs/*.scd | sed 's/^_//; s/_$//; s|/[^/]*[A-Z].*||' | sort -u)
    [ "$(wc -l <<<"$files")" -gt 10 ]
    for file in $files; do
        [ -e "$file" ] || grep -rqF -e "$file" -e "${file%-lock}" --include='*.cpp' --include='*.h' --include='*.service' \
            --include='tv-guard' --include='tv.conf' "$source"/{util,registry,servd,svcapi,tvbase,tvhost,tvsc,tvreg,tvregd,packaging} /usr/include/tirpc ||
            { echo "$file"; false; }
    done
}

@test "manuals name the folders of the installation" {
    for page in "$TV_BIN"/../man/*; do
        ! grep -qE 'LIBEXEC|DATADIR' "$page" || { echo "$page"; false; }
    done
    grep -q '/libexec.*/tv/' "$TV_BIN/../man/tvhost.8"
}

@test "manuals are formatted without a warning" {
    for page in "$TV_BIN"/../man/*; do
        [ -z "$(groff -Tutf8 -ww -man "$page" 2>&1 >/dev/null)" ] || { echo "$page"; false; }
    done
}

# What people are told to type: the command is there, and its help has the options.
@test "every line of tvsc that the README shows is understood" {
    grep -oE '`tvsc [^`]*`' "$BATS_TEST_DIRNAME/../../README.md" | tr -d '`' | sort -u >"$BATS_TEST_TMPDIR/lines"
    [ "$(wc -l <"$BATS_TEST_TMPDIR/lines")" -gt 30 ]
    while read -r _ line; do
        command= options=
        for word in $line; do
            case $word in
                -*) options+=" $word" ;;
                *,*) ;; # a list of machines
                [a-z]*) [[ -n $command && ! $command =~ ^(plan|lock|handles|daemon)$ ]] || command+="${command:+ }$word" ;;
            esac
        done
        help=$("$TV_BIN/tvsc" help $command) || { echo "tvsc $line: no command"; false; }
        help+=$("$TV_BIN/tvsc" --help)
        for option in $options; do
            grep -qE -- "(^|[ ,])$option([ ,=]|$)" <<<"$help" || { echo "tvsc $line: $option"; false; }
        done
    done <"$BATS_TEST_TMPDIR/lines"
}
