# SPDX-License-Identifier: MIT
# On a private host: loads a database and runs every command that looks. Leaves what each has told in the file looks,
# and its JSON in documents, one a line.
#   FOLDER DATABASE NAME
folder=$1 database=$2 name=$3
cd "$folder" || exit

"$TV_BIN/tvregd" --lazy --database "$folder/registry.db" --background
"$TV_BIN/tvreg" import services.reg >import.txt
"$TV_BIN/servd" || true # it leaves itself behind
"$TV_BIN/tvsc" wait-online --timeout 120s 2>/dev/null
[[ $database != record-0 ]] || "$TV_BIN/tvsc" -q create zero --image "$folder/image.csh"
if [[ $database == locked ]]; then
    "$TV_BIN/tvsc" with-lock -- sleep 1000 &
    until "$TV_BIN/tvsc" --json lock status | grep -q 'locked": true'; do sleep 0.05; done
fi

# What is another one each time: times, process ids, ports, and where this test runs.
evened() {
    sed -E -e "s|$folder|FOLDER|g" -e 's/[0-9]+\.[0-9]{3} ms/N ms/' -e 's/[0-9]{4}-[0-9-]+T[0-9:.]+Z/TIME/g' \
        -e 's/pid=[0-9]+ id=[0-9]+/pid=N id=N/' -e 's/for [0-9]+ s/for N s/' -e 's/; process [0-9]+, for/; process N, for/' -e 's/:[0-9]{2,5}( |$)/:PORT\1/'
}

run() { # COMMAND...
    local status last
    "$TV_BIN/tvsc" "$@" >output 2>&1
    status=$?
    last=$(tail -n 1 output | evened)
    printf '%s: %s\n' "${*@Q}" "$status"
    # What the doctor finds first is this machine's.
    [[ $1 == doctor || ! -s output ]] || printf '    %s\n' "$(head -n 1 output | evened)"
    [[ $1 != doctor && $(wc -l <output) -lt 2 ]] || printf '    ... %s\n' "$last"
    "$TV_BIN/tvsc" --json "$@" >output 2>/dev/null
    [[ $? == "$status" ]] || printf '    with --json the exit status is another one\n'
    if [[ $1 == watch && $status == 0 ]]; then cat output; else tr -d '\n' <output; echo; fi >>documents
}

{
    run list
    run list --brief
    run list --all
    run list --names-only
    run list --state failed
    run list --type driver
    run list "$name"
    run status "$name"
    run is-active "$name"
    run is-failed "$name"
    run is-healthy
    run show "$name"
    run deps "$name"
    run dependents "$name"
    run name "$name"
    run tree "$name"
    run graph --format dot "$name"
    run graph --format mermaid "$name"
    run order
    run plan start "$name"
    run plan stop "$name"
    run watch --count 1 --initial
    run timeline
    run doctor
    run explain "$name"
    run explain 1065
    run logs "$name"
    run wait "$name" --for stopped --timeout 1s
    run lock status
    run leftovers
    run daemon status
    run daemon rpcinfo
    run ping
    run export "$name"
    run list nosuch
} >looks
