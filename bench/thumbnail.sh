#!/bin/bash
# bench/thumbnail.sh [STORE…]: `lumaro thumbnail` and `lumaro render` as whole processes, start to end, under Wine:
# seconds and peak memory, best of three runs after one that warms the file cache. Without a store: the sample scene
# with a million points. Build first: cmake --build --preset windows-mingw --target lumaro. LUMARO_EXE names
# another program.
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=../scripts/lib/common.sh
. "$(dirname "$0")/../scripts/lib/common.sh"

program=${LUMARO_EXE:-$root/build/windows-mingw/bin/lumaro.exe}
[[ -f $program ]] || die "$program is missing" "build the target lumaro first"
[[ -x /usr/bin/time ]] || die "/usr/bin/time is missing" "install the package time"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
if (($# == 0)); then
    "$root/scripts/wine-run" "$program" make-sample "$work/sample"
    set -- "$work/sample"
fi

# The largest process that the command waits for is the program itself.
measure() { /usr/bin/time -f '%e %M' -o "$work/time" "$root/scripts/wine-run" "$program" "$@"; }

printf '%-28s %-10s %8s %10s %12s\n' store command seconds 'peak MiB' 'octree MiB'
for store; do
    size=$(stat -c %s "$store/octree.bin")
    for command in thumbnail render; do
        best=
        for ((run = 0; run < 4; ++run)); do
            measure "$command" "$store" -o "$work/picture.png"
            read -r seconds peak <"$work/time"
            if ((run > 0)) && { [[ -z $best ]] || awk "BEGIN { exit !($seconds < ${best% *}) }"; }; then
                best="$seconds $peak"
            fi
        done
        printf '%-28s %-10s %8s %10d %12d\n' "$(basename "$store")" "$command" "${best% *}" \
            $((${best#* } / 1024)) $((size / 1048576))
    done
done
