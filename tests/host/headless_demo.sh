#!/usr/bin/env bash
# A headless, reproducible run of the demo: 60 frames on the fixed clock with a replayed session
# give the same frame files twice, and the replayed key moves the player, so frames differ from
# a run without it.
set -u
exe=$(realpath "$1"); demo=$(realpath "$2"); replay=$(realpath "$3")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
run() {  # capture folder, then more options
  local folder=$1; shift
  (cd "$demo" && "$exe" --frames 60 --fixed-clock --capture "$work/$folder" "$@" > "$work/$folder.out" 2>&1)
}
run first --input "$replay" && run second --input "$replay" && run still || { echo "a run failed"; exit 1; }
fail=0
[ "$(ls "$work/first" | wc -l)" = 60 ] || { echo "expected 60 frames, got $(ls "$work/first" | wc -l)"; fail=1; }
diff -rq "$work/first" "$work/second" || { echo "two runs of one replay differ"; fail=1; }
cmp -s "$work/first/frame-000004.png" "$work/still/frame-000004.png" || { echo "frames before the replay differ"; fail=1; }
cmp -s "$work/first/frame-000035.png" "$work/still/frame-000035.png" && { echo "the replayed key moved nothing"; fail=1; }
grep -q "frames drawn: 60 frames per second: 24" "$work/first.out" || { echo "the fixed clock did not give 41 ms a frame"; cat "$work/first.out"; fail=1; }
exit $fail
