#!/usr/bin/env bash
# Runs every benchmark of a build folder: run.sh BUILD_DIR
set -euo pipefail
build=${1:-build-bench}
for program in "$build"/*_bench; do
  echo "== $(basename "$program")"
  "$program"
done
