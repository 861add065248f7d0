#!/usr/bin/env bash
# The layers point only down: each subsystem folder may include headers of the folders below it
# and of nothing else. A folder of sources not in the table fails too, so that a new subsystem
# takes its place here before its first include.
#   layers.sh SOURCE_ROOT
set -u
root=$1
declare -A allowed=(
  [codec]="codec"
  [script]="script"
  [image]="image codec"
  [window]="window image"
  [scene]="scene image"
  [font]="font image"
  [audio]="audio"
  [ai]="ai"
  [lua]="lua"
  [ruby]="ruby"
  [host]="*"
)
fail=0
for dir in "$root"/*/; do
  name=$(basename "$dir")
  # Not part of the engine's layers: tests, benchmarks, the demo and build folders use any of it.
  case "$name" in tests|bench|demo|docs|cmake|build*) continue ;; esac
  sources=$(find "$dir" -name '*.cpp' -o -name '*.h' | head -1)
  [ -n "$sources" ] || continue
  if [ -z "${allowed[$name]+set}" ]; then
    echo "$name/: a folder of sources with no place in the layer table"; fail=1; continue
  fi
  [ "${allowed[$name]}" = "*" ] && continue
  while IFS=: read -r file line include; do
    target=$(sed -E 's/.*#include "([^/"]+)\/.*/\1/' <<< "$include")
    case " ${allowed[$name]} " in
      *" $target "*) ;;
      *) echo "${file#"$root"/}:$line: $name/ includes from $target/"; fail=1 ;;
    esac
  done < <(grep -rnE '^\s*#\s*include "[^/"]+/' --include='*.cpp' --include='*.h' "$dir")
done
[ $fail = 0 ] && echo "every include points down"
exit $fail
