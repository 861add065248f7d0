#!/usr/bin/env bash
# Runs OrvaneRuby programs and checks what they print.
#   differential.sh ORVANERUBY DIR
# DIR/programs/*.rb are valid for both dialects: each runs through ORVANERUBY and through the
# reference interpreter `ruby`, and both must print the same and succeed. DIR/dialect/*.rb show
# rules of this dialect alone: their output must equal the hand-written .out beside them, and,
# where present, their standard error the .err and their exit status the .status (0 otherwise).
set -u
exe=$(realpath "$1")
dir=$(realpath "$2")
command -v ruby > /dev/null || { echo "ruby is not installed (make deps)"; exit 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail=0
count=0

for program in "$dir"/programs/*.rb; do
  name=$(basename "$program")
  count=$((count + 1))
  timeout 120 "$exe" "$program" > "$work/ours" 2> "$work/ours.err"
  ours=$?
  timeout 120 ruby "$program" > "$work/theirs" 2> "$work/theirs.err"
  theirs=$?
  if [ $ours != 0 ] || [ $theirs != 0 ]; then
    echo "$name: exit status $ours here, $theirs in ruby"; cat "$work/ours.err" "$work/theirs.err"; fail=1
  elif ! cmp -s "$work/ours" "$work/theirs"; then
    echo "$name: output differs (< orvaneruby, > ruby)"; diff "$work/ours" "$work/theirs" | head -20; fail=1
  fi
done

for program in "$dir"/dialect/*.rb; do
  name=$(basename "$program")
  base=${program%.rb}
  count=$((count + 1))
  # From its own folder, so that the chunk name in messages is the bare file name.
  (cd "$dir/dialect" && timeout 120 "$exe" "$name" > "$work/out" 2> "$work/err")
  status=$?
  expected=0
  [ -f "$base.status" ] && expected=$(cat "$base.status")
  if ! diff -u "$base.out" "$work/out"; then echo "$name: stdout differs"; fail=1; fi
  if [ -f "$base.err" ]; then
    if ! diff -u "$base.err" "$work/err"; then echo "$name: stderr differs"; fail=1; fi
  elif [ -s "$work/err" ]; then
    echo "$name: unexpected stderr:"; cat "$work/err"; fail=1
  fi
  if [ "$status" != "$expected" ]; then echo "$name: exit status $status, expected $expected"; fail=1; fi
done

[ $fail = 0 ] && echo "$count programs as expected"
exit $fail
