#!/usr/bin/env bash
# Has the examples talk to each other: run_together.sh FOLDER-OF-THE-PROGRAMS
set -euo pipefail

if [[ $# -ne 1 ]]; then
    echo "usage: run_together.sh FOLDER" >&2
    exit 2
fi
programs=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$programs/receive" "$work/socket" >"$work/shown" 2>"$work/errors" &
receiver=$!
for ((attempt = 0; attempt < 100; attempt++)); do
    if "$programs/send_event" "disk is full" "$work/socket" 2>/dev/null; then break; fi
    sleep 0.05
done
status=0
wait "$receiver" || status=$?

cat "$work/shown" "$work/errors"
diff - "$work/shown" <<'END'
event 59179056 of application 15: Vendor Application connected to vortd.
event 59179100 of application 15: disk is full
event 59179057 of application 15: Vendor Application disconnecting from vortd.
END
exit "$status"
