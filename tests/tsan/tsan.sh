#!/usr/bin/env bash
# Builds the threaded tests with ThreadSanitizer in WORKDIR and runs them; any report fails.
#   tsan.sh WORKDIR
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
cmake -S "$here" -B "$1" -G Ninja -DCMAKE_BUILD_TYPE=None >/dev/null
cmake --build "$1" -j 2
TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" "$1/threaded_tests"
