#!/usr/bin/env bash
# Runs one script test: the script becomes lua.ov in a fresh working folder, so that the
# executable finds it as its bootstrap script and error texts name it "lua.ov".
set -u
exe=$1; script=$2
base=${script%.ov}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp "$script" "$work/lua.ov"
# A folder <name>.files holds what the script loads; it travels along.
[ -d "$base.files" ] && cp -r "$base.files/." "$work/"
# OT_EMULATOR runs a binary built for another CPU (qemu-user for the aarch64 build).
(cd "$work" && timeout "${OT_SCRIPT_TIMEOUT:-120}" ${OT_EMULATOR:-} "$exe" > "$work/stdout" 2> "$work/stderr" < /dev/null)
status=$?
expected_status=0
[ -f "$base.status" ] && expected_status=$(cat "$base.status")
fail=0
if ! diff -u "$base.out" "$work/stdout"; then echo "stdout differs"; fail=1; fi
if [ -f "$base.err" ]; then
  if ! diff -u "$base.err" "$work/stderr"; then echo "stderr differs"; fail=1; fi
elif [ -s "$work/stderr" ]; then
  echo "unexpected stderr:"; cat "$work/stderr"; fail=1
fi
if [ "$status" != "$expected_status" ]; then echo "exit status $status, expected $expected_status"; fail=1; fi
exit $fail
