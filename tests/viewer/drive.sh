#!/bin/bash
# drive.sh WINE-RUN VIEWER PROBE LUMARO: uses the viewer as a person would, with a mouse, keys and dropped files, on a
# virtual screen of its own, and looks at its window from outside.
#   PICTURES=FOLDER   keep what was looked at there (needs ImageMagick)
set -Eeuo pipefail
wine_run=$1 viewer=$2 probe=$3 lumaro=$4
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
desktop=viewer-test-$$
window='' process='' program='' screen='' writer='' pictures=0

# shellcheck disable=SC2317
clean_up() {
    [[ -z $process ]] || kill -KILL "$process" 2>/dev/null || true
    [[ -z $program ]] || kill "$program" 2>/dev/null || true
    [[ -z $writer ]] || kill "$writer" 2>/dev/null || true
    [[ -z $screen ]] || kill "$screen" 2>/dev/null || true # every program on it ends as well
    wait
    rm -rf "$work"
}
trap clean_up EXIT
trap 'exit 130' INT TERM HUP
trap 'fail "line $LINENO: $BASH_COMMAND"' ERR

fail() {
    trap - ERR
    echo "FAILED: $*"
    [[ -z $window ]] || echo "title: $(title)"
    cat "$work/viewer.log" 2>/dev/null || true
    exit 1
}

step() {
    printf '%3d s  %s\n' "$SECONDS" "$*"
}

# wait_for SECONDS WHAT CONDITION…
wait_for() {
    local end=$((SECONDS + $1)) what=$2
    shift 2
    until "$@"; do
        ((SECONDS < end)) || fail "waited in vain for $what"
        sleep 0.03
    done
}

# ---- The window ----

title() {
    xdotool getwindowname "$window" 2>/dev/null
}

title_has() {
    [[ $(title) =~ $1 ]]
}

frames() {
    title | sed -n 's/.*frame \([0-9]*\).*/\1/p'
}

find_window() {
    window=$(xdotool search --onlyvisible --name '^LumaroRender(   |$)' 2>/dev/null) && [[ $window ]]
}

# start ARGUMENT…
start() {
    "$wine_run" "$probe" "$desktop" run "$viewer" "$@" >"$work/viewer.log" 2>&1 &
    program=$!
    wait_for 60 "the viewer's window" find_window
    process=$(xdotool getwindowpid "$window")
    xdotool windowfocus "$window"
}

# A process that nobody has waited for has no command line.
has_ended() {
    [[ ! $(tr -d '\0' 2>/dev/null <"/proc/$1/cmdline") ]]
} 2>/dev/null

# close: it ends soon and with 0.
close() {
    xdotool key Escape
    wait_for 10 "the viewer's end" has_ended "$program"
    local status=0
    wait "$program" || status=$?
    window=''
    ((status == 0)) || fail "exit code $status"
    wait_for 5 "the end of its process" has_ended "$process"
    process='' program=''
}

ask() {
    "$wine_run" "$probe" "$desktop" "$@" >"$work/answer" 2>"$work/answer.err" || fail "$(<"$work/answer.err")"
}

# value NAME: of the last answer.
value() {
    sed -n "s/^$1 \(.*\)\r/\1/p" "$work/answer"
}

# look [OTHER-HASH]: sets hash, colors and covered, the permille of pixels that are not background. With an argument
# it waits for a picture other than that.
look() {
    ask picture "$@"
    hash=$(value hash) colors=$(value colors) covered=$(value covered)
    [[ -z ${PICTURES:-} ]] || import -window root "$PICTURES/$((++pictures)).png"
}

shows() {
    look
    [[ $hash == "$1" ]]
}

click() {
    xdotool mousemove --window "$window" "$1" "$2" click 1
}

# drag BUTTON X Y X2 Y2
drag() {
    xdotool mousemove --window "$window" "$2" "$3" mousedown "$1"
    xdotool mousemove --window "$window" $((($2 + $4) / 2)) $((($3 + $5) / 2))
    xdotool mousemove --window "$window" "$4" "$5" mouseup "$1"
}

# storm WIDTH HEIGHT COUNT: as many sizes above that one, each of them drawn, as many faster than they can be drawn,
# and that one in the end.
storm() {
    local i frame
    for ((i = 1; i <= 2 * $3; ++i)); do
        frame=$(frames)
        xdotool windowsize "$window" $(($1 + i * 53 % 400)) $(($2 + i * 71 % 300))
        ((i > $3)) || wait_for 10 "a frame of the new size" draws_beyond "$frame"
    done
    xdotool windowsize "$window" "$1" "$2"
    ask rest
}

draws_beyond() {
    (($(frames) > $1))
}

find_message() {
    message_box=$(xdotool search --name '^LumaroRender viewer$' 2>/dev/null) && [[ $message_box ]]
}

no_message() {
    ! find_message
}

drop() {
    "$here/drop.pl" "$window" "$1" || fail "could not drop $1"
}

# drop_bad FILE: a message names it; without it everything is as before.
drop_bad() {
    drop "$1"
    wait_for 10 "a message" find_message
    ask message
    grep -qF "$1" "$work/answer" || fail "the message does not name $1: $(<"$work/answer")"
    xdotool windowfocus "$message_box"
    xdotool key Return
    wait_for 10 "the message's end" no_message
    xdotool windowfocus "$window"
}

# count_resources: sets handles, windows, files, threads and memory (KiB) of the viewer.
count_resources() {
    ask state
    handles=$(value handles) windows=$(value windows)
    files=$(find "/proc/$process/fd" -mindepth 1 | wc -l)
    threads=$(find "/proc/$process/task" -mindepth 1 -maxdepth 1 | wc -l)
    memory=$(awk '/^RssAnon/ { print $2 }' "/proc/$process/status")
}

cpu_ticks() {
    awk '{ print $14 + $15 }' "/proc/$process/stat"
}

# ---- What is looked at ----

opens_and_rests() {
    start "$work/sample"
    ask rest " 20000 points"
    local frame ticks
    frame=$(frames)
    xdotool windowsize "$window" 560 420
    wait_for 20 "the new size" draws_beyond "$frame"
    ask rest " 20000 points"
    look
    ((covered > 100 && colors > 1000)) || fail "the store is not seen: $covered permille, $colors colours"
    still=$hash

    frame=$(frames) ticks=$(cpu_ticks)
    sleep 1
    ticks=$(($(cpu_ticks) - ticks))
    step "a still second takes $ticks ticks"
    ((ticks < 30)) || fail "a still view keeps the processor busy: $ticks ticks a second"
    ask cover
    wait_for 10 "the picture where it was covered" shows "$still"
    [[ $(frames) == "$frame" ]] || fail "a still view is drawn again"
}

moves() {
    look
    local before=$hash
    drag 1 240 200 320 225
    look "$before"
    local orbited=$hash
    drag 3 240 200 280 215
    look "$orbited"
    local panned=$hash
    xdotool mousemove --window "$window" 280 210 click 4
    look "$panned"
    xdotool key f
    wait_for 10 "the first view" shows "$before"
}

# A picked point is one of the store's.
picks_and_measures() {
    local place='([0-9.]+)  ([0-9.]+)  ([0-9.]+)' first second
    click 280 250
    wait_for 10 "coordinates" title_has "\|   $place"
    first=("${BASH_REMATCH[@]:1}")
    "$wine_run" "$lumaro" query "$work/sample" --sphere "${first[0]},${first[1]},${first[2]},0.0005" \
        -o "$work/picked.txt" >/dev/null
    (($(wc -l <"$work/picked.txt") > 1)) || fail "no point of the store is at ${first[*]}"
    click 240 225
    wait_for 10 "a distance" title_has "\|   $place   distance ([0-9.]+)"
    second=("${BASH_REMATCH[@]:1}")
    awk '{ d = sqrt(($1 - $4) ^ 2 + ($2 - $5) ^ 2 + ($3 - $6) ^ 2); exit !(d > 1 && d - $7 < 0.003 && $7 - d < 0.003) }' \
        <<<"${first[*]} ${second[*]}" || fail "the distance from ${first[*]} is not that to ${second[*]}"
    click 5 5
    wait_for 10 "no coordinates" lacks_coordinates
}

lacks_coordinates() {
    ! title_has '\|'
}

# Each mode has a look of its own.
shows_each_mode() {
    local mode before
    local -A seen
    for mode in 2 3 4 5 6 7 1; do
        before=$hash
        xdotool key "$mode"
        look "$before"
        [[ -z ${seen[$hash]:-} ]] || fail "mode $mode looks like mode ${seen[$hash]}"
        ((colors > 20)) || fail "mode $mode shows only $colors colours"
        seen[$hash]=$mode
    done
}

answers_to_keys() {
    local key before
    for key in b x plus bracketleft; do
        before=$hash
        xdotool key "$key"
        look "$before"
    done
    xdotool key b
    xdotool key x
    xdotool key minus
    xdotool key bracketright
    wait_for 10 "the first view" shows "$still"
}

rough_handling() {
    storm 560 420 "$1"
    ask minimise
    ask restore
    wait_for 10 "the picture of before" shows "$still"
    drop_bad "$work/bad/metadata.json"
    drop_bad "$work/bad.obj"
    wait_for 10 "the picture of before" shows "$still"
}

leaks_nothing() {
    rough_handling 12
    count_resources
    local before=("$handles" "$windows" "$files" "$threads" "$memory")
    rough_handling 30
    count_resources
    step "handles, windows, files, threads, KiB before: ${before[*]}; after: $handles $windows $files $threads $memory"
    # A thread pool of the system's may come or go. The driver keeps up to 40 MiB more or less; to lose one texture of
    # the window's size at each new size costs more than twice as much.
    ((handles <= before[0] + 3)) || fail "handles leak"
    ((windows == before[1])) || fail "windows leak"
    ((files <= before[2] + 2)) || fail "files leak"
    ((threads <= before[3] + 1)) || fail "threads leak"
    ((memory <= before[4] + 64 * 1024)) || fail "memory leaks"
}

# A mesh without end is read while the window answers, and closes.
loads_beside_the_window() {
    mkfifo "$work/endless.obj"
    yes "# a mesh of which there is always more to read" >"$work/endless.obj" &
    writer=$!
    start "$work/sample" "$work/endless.obj"
    wait_for 20 "the mesh's name" title_has ' 20000 points.*, loading endless.obj'
    look
    local resting=$hash
    drag 1 240 200 320 225
    look "$resting"
    close
    wait "$writer" || true # nobody reads any more
    writer=''
}

closes_while_loading() {
    start "$work/large"
    close
    start "$work/large"
    wait_for 20 "its first points" title_has points  # More are likely to be on their way.
    close
}

# ---- Run ----

Xvfb -displayfd 3 -screen 0 1280x1024x24 -nolisten tcp 3>"$work/display" </dev/null >"$work/xvfb.log" 2>&1 &
screen=$!
wait_for 60 "the virtual screen" test -s "$work/display"
DISPLAY=:$(<"$work/display")
export DISPLAY LIBGL_ALWAYS_SOFTWARE=1
step "making a sample"
"$wine_run" "$lumaro" make-sample "$work/sample" --points 20000 >/dev/null
"$wine_run" "$lumaro" make-sample "$work/large" --points 2000000 >/dev/null
mkdir "$work/bad"
echo '{' >"$work/bad/metadata.json"
echo 'f 1 2 3' >"$work/bad.obj"

for scenario in opens_and_rests moves picks_and_measures shows_each_mode answers_to_keys leaks_nothing; do
    step "$scenario"
    $scenario
done
step "a good file"
drop "$work/sample/metadata.json"
ask rest " 40000 points"
step "closing"
close
step "a mesh without end"
loads_beside_the_window
closes_while_loading
