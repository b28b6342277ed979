#!/bin/bash
# interrupt.sh WINE-RUN LUMARO: Ctrl-C stops a long job with 130 and leaves nothing behind.
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

set -m # else the shell has its background jobs ignore Ctrl-C
"$1" "$2" make-sample huge --points 2000000 >out 2>err &
job=$!
for ((i = 0; i < 600; ++i)); do
    compgen -G 'huge*' >/dev/null && break
    sleep 0.1
done
compgen -G 'huge*' >/dev/null || { echo "it did not begin"; exit 1; }
kill -INT "$job"
status=0
wait "$job" || status=$?

failed=0
((status == 130)) || { echo "exit code $status"; failed=1; }
grep -q stopped err || { echo "errors: $(<err)"; failed=1; }
if compgen -G 'huge*'; then
    echo "is left behind"
    failed=1
fi
exit $failed
