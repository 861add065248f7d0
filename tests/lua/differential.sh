#!/usr/bin/env bash
# OrvaneLua against the reference interpreter: every program in DIR/programs must print the
# same under orvanelua and lua5.4 and end with the same status. The programs in DIR/dialect show
# rules of the dialect that the reference does not share; each must print its .out file exactly
# (and end with the status in its .status file, 0 when there is none).
#   differential.sh ORVANELUA DIR
set -uo pipefail
exe=$(realpath "$1")
dir=$(realpath "$2")
reference=${OT_LUA_REFERENCE:-lua5.4}
command -v "$reference" > /dev/null || { echo "the reference interpreter $reference is missing"; exit 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail=0
count=0

for program in "$dir"/programs/*.lua; do
  name=$(basename "$program")
  (cd "$(dirname "$program")" && "$exe" "$name") > "$work/ours" 2> "$work/ours.err"
  ours_status=$?
  (cd "$(dirname "$program")" && "$reference" "$name") > "$work/theirs" 2> "$work/theirs.err"
  theirs_status=$?
  count=$((count + 1))
  if ! cmp -s "$work/ours" "$work/theirs" || [ "$ours_status" != "$theirs_status" ]; then
    echo "programs/$name: differs from $reference (status $ours_status against $theirs_status)"
    diff "$work/ours" "$work/theirs" | head -20
    head -5 "$work/ours.err"
    fail=1
  fi
done

for program in "$dir"/dialect/*.lua; do
  name=$(basename "$program" .lua)
  (cd "$(dirname "$program")" && "$exe" "$name.lua") > "$work/ours" 2> "$work/ours.err"
  status=$?
  expected_status=0
  [ -f "$dir/dialect/$name.status" ] && expected_status=$(cat "$dir/dialect/$name.status")
  count=$((count + 1))
  if ! cmp -s "$work/ours" "$dir/dialect/$name.out" || [ "$status" != "$expected_status" ]; then
    echo "dialect/$name.lua: output differs from $name.out (status $status, expected $expected_status)"
    diff "$work/ours" "$dir/dialect/$name.out" | head -20
    head -5 "$work/ours.err"
    fail=1
  fi
done

[ $fail = 0 ] && echo "$count programs agree"
exit $fail
