#!/bin/bash
# exports.sh OBJDUMP DLL LIST: compares what the DLL exports with the list that is kept beside this script. A
# difference is a change for every host: if it is wanted, run scripts/update-exports and say so in the changelog.
set -euo pipefail
objdump=$1 dll=$2 list=$3

# Inline functions and type information of exported classes come and go with the compiler's choices; what a host
# links against by name is the rest.
"$objdump" -p "$dll" | awk '/\[Ordinal\/Name Pointer\]/ { table = 1; next } table && NF == 0 { exit } table { print $NF }' |
    c++filt | LC_ALL=C sort -u >"$dll.exports"
diff -u --label "kept list" --label "exported now" "$list" "$dll.exports"
