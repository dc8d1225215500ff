#!/bin/sh
# Shows the main job at work: one process writes multicast routes into shared tables, others look up
# and walk at full speed; the writer is killed, the readers go on, its successor keeps the table.
# With --kernel the routes are those of a live kernel cache, in a network namespace of its own.
# Called by `./dev run`, which builds first; CAIRN_BUILD is the build directory.
set -eu

cairn=$CAIRN_BUILD/tools/cairn/cairn
routes=data/routes.csv
seconds=9
rate=20000

say() { printf '\n== %s\n' "$*"; }
note() { printf '   %s\n' "$*"; }
die() {
    printf 'dev run: %s\n' "$*" >&2
    exit 2
}

kernel=no
for word in "$@"; do
    case $word in
    --kernel) kernel=yes ;;
    *) die "no such option: $word" ;;
    esac
done

root=/dev/shm
[ -w "$root" ] || root=${TMPDIR:-/tmp}
work=$(mktemp -d "$root/cairn-run.XXXXXX")
export CAIRN_BASE="$work/base"
mkdir "$CAIRN_BASE"
writer= readers= daemon= changer= netns=
finish() {
    trap - EXIT INT TERM
    for pid in $readers $changer $writer $daemon; do kill -KILL "$pid" 2>/dev/null || :; done
    wait 2>/dev/null || :
    [ -z "$netns" ] || ip netns del "$netns" 2>/dev/null || :
    rm -rf "$work"
}
trap finish EXIT
trap 'exit 130' INT TERM

# The value behind a name in a line of `name value` pairs.
field() { awk -v name="$1" '{ for (i = 1; i < NF; i += 2) if ($i == name) print $(i + 1) }'; }
table=routing/multicast/routestatus/default/kernel/route
entries() { "$cairn" ls | grep " *$table " | field entries; }
writerPid() { "$cairn" ls | grep " *$table " | field pid; }
# Waits until the table has a writer (yes) or none (no), ten seconds at most.
awaitWriter() {
    tries=0
    while [ $tries -lt 100 ]; do
        pid=$(writerPid || :)
        case $1:${pid:-0} in
        no:0) return 0 ;;
        yes:0) ;;
        yes:*) return 0 ;;
        esac
        sleep 0.1
        tries=$((tries + 1))
    done
    die "the writer did not come or go within 10 seconds; its log: $(cat "$work"/writer*.log)"
}

changeKernel() { :; }
startChanges() {
    [ $kernel = no ] || { changeKernel & changer=$!; }
}
stopChanges() {
    [ -z "$changer" ] || { kill "$changer" && wait "$changer" || :; } 2>/dev/null
    changer=
}
startWriter() {
    # shellcheck disable=SC2086
    "$cairn" mirror $writerWords 2>"$work/writer$1.log" &
    writer=$!
}

# --- Where the routes come from --------------------------------------------------------------------

if [ $kernel = yes ]; then
    [ "$(id -u)" = 0 ] || die "--kernel needs root, to make a network namespace"
    for program in ip smcrouted smcroutectl; do
        command -v $program >/dev/null || die "--kernel needs the program $program"
    done
    netns=cairn-run-$$
    ip netns add "$netns" 2>"$work/netns.log" || {
        reason=$(cat "$work/netns.log")
        netns=
        die "--kernel needs network namespaces, which this system does not allow: $reason"
    }
    say "A kernel of our own: network namespace $netns, 30 interfaces, smcroute feeding it"
    set -- in0 out0
    i=1
    while [ $i -le 28 ]; do
        set -- "$@" "Ethernet$i"
        i=$((i + 1))
    done
    interfaces=$*
    while [ $# -gt 0 ]; do
        ip -n "$netns" link add "$1" type veth peer name "$2"
        ip -n "$netns" link set "$1" up
        ip -n "$netns" link set "$2" up
        shift 2
    done
    # The routes of the recorded set that use these interfaces; a kernel has 32 at most.
    awk -F, -v interfaces="$interfaces" '
        BEGIN { n = split(interfaces, list, " ")
                for (i = 1; i <= n; ++i) { print "phyint " list[i] " enable"; known[list[i]] = 1 } }
        NR > 1 && $1 != "" && ($3 in known) && $4 != "" {
            print "mroute from " $3 " source " $1 " group " $2 " to " $4 }' \
        "$routes" >"$work/smcroute.conf"
    ip netns exec "$netns" smcrouted -n -N -l err -f "$work/smcroute.conf" \
        -u "$work/smcroute.sock" -P "$work/smcroute.pid" >"$work/smcroute.log" 2>&1 &
    daemon=$!
    wanted=$(grep -c '^mroute' "$work/smcroute.conf")
    tries=0
    while :; do
        have=$(($(ip -n "$netns" -4 mroute show table all | wc -l) +
            $(ip -n "$netns" -6 mroute show table all | wc -l)))
        [ "$have" -lt "$wanted" ] || break
        tries=$((tries + 1))
        [ $tries -lt 200 ] || die "smcroute set $have of $wanted routes in 20 seconds: $(tail -3 "$work/smcroute.log")"
        sleep 0.1
    done
    note "the kernel holds $have routes"
    writerWords="--netns $netns"
    what="cairn mirror --netns $netns"
    # About 1,000 changes a second: routes removed, and added again with one more interface.
    changeKernel() {
        round=1
        while :; do
            awk -v round=$round 'BEGIN { srand(round) }
                $1 == "mroute" && rand() < 0.1 {
                    print "remove " $3 " " $5 " " $7
                    printf "add %s %s %s Ethernet%d\n", $3, $5, $7, 1 + int(rand() * 24) }' \
                "$work/smcroute.conf" >"$work/batch"
            smcroutectl -u "$work/smcroute.sock" -b <"$work/batch" >/dev/null 2>&1 || :
            round=$((round + 1))
            sleep 1
        done
    }
else
    [ -f "$routes" ] || die "$routes is missing"
    writerWords="--from $routes --churn $rate"
    what="cairn mirror $writerWords"
fi

# --- The main job ----------------------------------------------------------------------------------

say "The writer: $what"
startWriter 1
awaitWriter yes
startChanges
# The table stands before its first routes do.
tries=0
while [ $tries -lt 100 ]; do
    "$cairn" show >"$work/shown" 2>/dev/null || :
    [ "$(wc -l <"$work/shown")" -lt 1000 ] || break
    sleep 0.1
    tries=$((tries + 1))
done
"$cairn" ls

say "What it writes, read by another process: cairn show (six of $(wc -l <"$work/shown"))"
awk 'NR % int('"$(wc -l <"$work/shown")"' / 6) == 1 && n++ < 6' "$work/shown"

say "Two more processes for $seconds seconds, one looking up, one walking, while the routes change"
"$cairn" probe --seconds $seconds $table >"$work/lookups" 2>&1 &
lookups=$!
"$cairn" probe --seconds $seconds --walk $table >"$work/walks" 2>&1 &
walks=$!
readers="$lookups $walks"
# Their lines as they come.
shown=0
follow() {
    until [ "$(date +%s)" -ge "$1" ]; do
        sleep 1
        for file in lookups walks; do
            sed -n "$((shown + 1))p" "$work/$file" | sed 's/^/   /'
        done
        shown=$((shown + 1))
    done
}
now=$(date +%s)
follow $((now + 3))

say "The writer is killed: kill -KILL $writer"
stopChanges
kill -KILL "$writer"
wait "$writer" 2>/dev/null || :
writer=
awaitWriter no
left=$(entries)
note "the table is left with $left entries and no writer; the readers go on"
now=$(date +%s)
follow $((now + 2))

say "A new writer: $what"
startWriter 2
awaitWriter yes
tries=0
until grep -q 'kept from before' "$work/writer2.log"; do
    tries=$((tries + 1))
    [ $tries -lt 100 ] || die "the writer does not start: $(cat "$work/writer2.log")"
    sleep 0.1
done
sed 's/^/   /' "$work/writer2.log"
# Of all tables together.
kept=$(sed -n 's/.*; \([0-9]*\) kept from before.*/\1/p' "$work/writer2.log")
startChanges
now=$(date +%s)
follow $((now + 3))
failed=0
for pid in $readers; do wait "$pid" || failed=$((failed + 1)); done
readers=

# --- Is it true? -----------------------------------------------------------------------------------

if [ $kernel = yes ]; then
    say "The tables against the kernel: cairn show and ip -j mroute show table all"
    stopChanges
    sleep 1
    for family in 4 6; do
        ip -n "$netns" -$family -j mroute show table all >"$work/ip$family.json"
        "$cairn" -$family mirror --quiet --once --name ip --from "$work/ip$family.json"
        for name in kernel ip; do
            "$cairn" -$family show name $name | sed 's/ version .*//' >"$work/$name$family"
        done
    done
    cat "$work/kernel4" "$work/kernel6" >"$work/kernel.txt"
    cat "$work/ip4" "$work/ip6" >"$work/ip.txt"
    if diff "$work/ip.txt" "$work/kernel.txt" >"$work/difference"; then
        equal="equal, $(wc -l <"$work/kernel.txt") routes"
    else
        equal="DIFFERENT in $(grep -c '^[<>]' "$work/difference") lines"
        failed=$((failed + 1))
    fi
    note "$equal"
fi
kill -TERM "$writer"
wait "$writer" || failed=$((failed + 1))
writer=

total() { grep '^probe total' "$work/$1" | field "$2"; }
# The second that began and ended without a writer: the one before the last that had none.
alone=$(grep '^probe running' "$work/lookups" | grep 'writer none' | tail -1 | field lookups_per_second)
say "What was seen"
note "$(total lookups lookups_per_second) lookups a second beside the writer: $(total lookups hits) hits, $(total lookups misses) misses (routes that were away), $(total lookups wrong) wrong, $(total lookups faults) faults"
note "$(total walks walked_per_second) entries a second walked, $(total walks walks) whole walks, $(total walks wrong) wrong, $(total walks faults) faults"
note "${alone:-0} lookups a second with no writer alive, after kill -KILL"
if [ "$kept" -ge "$left" ]; then
    note "the table was kept: the new writer found $kept routes and went on with them"
else
    note "the writer died in the middle of a store: the new one did not trust the table and began anew"
fi
[ $kernel = no ] || note "the tables and the kernel are $equal"
[ $failed = 0 ] || die "$failed checks failed: see above"
note "all well"
