#!/bin/bash
# exports.sh OBJDUMP DLL LIST: compares what the DLL exports with the list that is kept beside this script. A
# difference is a change for every host: if it is wanted, run scripts/update-exports and say so in the changelog.
set -euo pipefail
objdump=$1 dll=$2 list=$3

"$objdump" -p "$dll" | awk '/\[Ordinal\/Name Pointer\]/ { table = 1; next } NF == 0 { table = 0 } table { print $NF }' |
    c++filt | LC_ALL=C sort -u >"$dll.exports"
diff -u --label "kept list" --label "exported now" "$list" "$dll.exports"
