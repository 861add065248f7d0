#!/usr/bin/env bash
# Runs each script benchmark (bench/*/X.ov beside X.lua) with our executable, which starts the
# script as its bootstrap lua.ov, and with lua5.4, several times each.
#   scripts.sh EXECUTABLE [RUNS]
set -euo pipefail
exe=$(realpath "$1")
runs=${2:-5}
here=$(cd "$(dirname "$0")" && pwd)
source "$here/compare.sh"
ours() { (cd "$work" && "$exe"); }
reference() { (cd "$(dirname "$script")" && lua5.4 "${script%.ov}.lua"); }

heading ovs lua5.4
for script in "$here"/*/*.ov; do
  [ -f "${script%.ov}.lua" ] || continue
  cp "$script" "$work/lua.ov"
  compare "$(basename "$script" .ov)"
done
