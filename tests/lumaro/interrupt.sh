#!/bin/bash
# interrupt.sh WINE-RUN LUMARO: Ctrl-C stops whatever runs with 130 and leaves nothing behind; another one does so where
# nobody looks at the first.
set -euo pipefail
wine_run=$1 lumaro=$2
work=$(mktemp -d)
writer='' failed=0
trap '[[ -z $writer ]] || kill "$writer"; rm -rf "$work"' EXIT
cd "$work"
set -m # else the shell has its background jobs ignore Ctrl-C

# interrupt TIMES FILE COMMAND…: as often, once something is there that is to become FILE.
interrupt() {
    local times=$1 file=$2 status=0 job i
    shift 2
    LUMARO_WINE_TIMEOUT=60 "$wine_run" "$lumaro" "$@" >out 2>err &
    job=$!
    for ((i = 0; i < 600; ++i)); do
        ! compgen -G "$file*" >/dev/null || break
        sleep 0.1
    done
    compgen -G "$file*" >/dev/null || { echo "$1 did not begin"; failed=1; }
    kill -INT "$job"
    for ((i = 1; i < times; ++i)); do
        sleep 1.5
        kill -INT "$job" || { echo "$1 did not need another Ctrl-C"; failed=1; }
    done
    wait "$job" || status=$?
    ((status == 130)) || { echo "$1: exit code $status"; failed=1; }
    [[ $(tr -d '\r' <err) == "lumaro: stopped" ]] || { echo "$1: errors: $(<err)"; failed=1; }
    if compgen -G "$file*"; then
        echo "$1: is left behind"
        failed=1
    fi
}

interrupt 1 huge make-sample huge --points 2000000

mkfifo endless.obj silent.obj
# Held open at both ends: who reads it comes to no end, and of the second to nothing at all.
exec 7<>endless.obj 8<>silent.obj
yes "# a mesh of which there is always more to read" >&7 &
writer=$!
interrupt 1 mesh.txt screen-points endless.obj -o mesh.txt
interrupt 2 silent.txt screen-points silent.obj -o silent.txt
exit $failed
