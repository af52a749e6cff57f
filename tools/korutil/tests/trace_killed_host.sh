#!/bin/sh
# korutil trace against a real host: list and change its levels while it runs, then kill it with SIGKILL
# and read its ring with "trace dump", which also removes the ring file (--remove).
# Usage: trace_killed_host.sh KORUTIL BTRACE_TESTS
set -u
korutil=$1
host=$2
segment="korutil-trace-test.$$"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

# The trace test program plays a host that writes 500 messages, says "ready" and waits.
BTRACE_TEST_ROLE=host "$host" "$segment" > "$work/out" &
pid=$!
for _ in $(seq 100); do grep -q ready "$work/out" 2>/dev/null && break; sleep 0.1; done
grep -q ready "$work/out" || fail "host did not start"

"$korutil" trace modules --pid "$pid" > "$work/modules" || fail "modules"
grep -qx "ringtest 3" "$work/modules" || fail "module list: $(cat "$work/modules")"
"$korutil" trace level ringtest WRN --segment "$segment" || fail "level"
"$korutil" trace modules --segment "$segment" | grep -qx "ringtest WRN" || fail "level not changed"
"$korutil" trace level ringtest 12 --segment "$segment" 2>/dev/null; [ $? -eq 2 ] || fail "bad level accepted"

kill -9 "$pid"
wait "$pid" 2>/dev/null
"$korutil" trace modules --segment "$segment" 2>/dev/null && fail "a killed host answered"
"$korutil" trace dump --segment "$segment" --remove "$work/dump" || fail "dump of the killed host"
[ "$(grep -c 'T7 #' "$work/dump")" -eq 500 ] || fail "dump has $(grep -c 'T7 #' "$work/dump") messages"
"$korutil" trace dump --segment "$segment" "$work/again" 2>/dev/null && fail "ring file not removed"
exit 0
