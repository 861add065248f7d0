#!/usr/bin/env bash
# Runs each OrvaneLua benchmark (bench/lua/X.olua) with orvanelua and its reference
# (bench/script/X.lua) with lua5.4, several times each.
#   lua.sh ORVANELUA [RUNS]
set -euo pipefail
exe=$(realpath "$1")
runs=${2:-5}
here=$(cd "$(dirname "$0")" && pwd)
source "$here/compare.sh"
ours() { "$exe" "$script"; }
reference() { lua5.4 "$here/script/$name.lua"; }

heading olua lua5.4
for script in "$here"/lua/*.olua; do
  name=$(basename "$script" .olua)
  [ -f "$here/script/$name.lua" ] || continue
  compare "$name"
done
