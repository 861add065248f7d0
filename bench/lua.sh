#!/usr/bin/env bash
# Runs each OrvaneLua benchmark (bench/lua/X.olua) with orvanelua and its reference
# (bench/script/X.lua) with lua5.4, several times each; checks that both print the same, and
# prints the medians and their ratio.
#   lua.sh ORVANELUA [RUNS]
set -euo pipefail
exe=$(realpath "$1")
runs=${2:-5}
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

median() { sort -n | awk '{ a[NR] = $1 } END { print a[int((NR + 1) / 2)] }'; }
seconds() { local start end; start=$(date +%s.%N); "$@" > "$work/out" 2>&1; end=$(date +%s.%N); echo "$end - $start" | bc; }

printf '%-14s %12s %12s %8s\n' benchmark "olua (s)" "lua5.4 (s)" ratio
for script in "$here"/lua/*.olua; do
  name=$(basename "$script" .olua)
  reference=$here/script/$name.lua
  [ -f "$reference" ] || continue
  ours=(); theirs=()
  for _ in $(seq "$runs"); do
    ours+=("$(seconds "$exe" "$script")")
    cp "$work/out" "$work/ours.txt"
    theirs+=("$(seconds lua5.4 "$reference")")
    cp "$work/out" "$work/theirs.txt"
  done
  if ! cmp -s "$work/ours.txt" "$work/theirs.txt"; then
    echo "$name: outputs differ"; diff "$work/ours.txt" "$work/theirs.txt" | head -5; exit 1
  fi
  a=$(printf '%s\n' "${ours[@]}" | median)
  b=$(printf '%s\n' "${theirs[@]}" | median)
  printf '%-14s %12.3f %12.3f %8.1f\n' "$name" "$a" "$b" "$(echo "$a / $b" | bc -l)"
done
