#!/usr/bin/env bash
# Installs the build into a temporary prefix and runs the installed demo headless.
#   install.sh BUILD_DIR
set -u
build=$1
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" > /dev/null || { echo "install failed"; exit 1; }
for f in bin/orvanetide share/orvanetide/demo/lua.ov share/doc/OrvaneTide/api.md; do
  [ -f "$prefix/$f" ] || { echo "not installed: $f"; exit 1; }
done
out=$(cd / && "$prefix/bin/orvanetide" --frames 20 --fixed-clock "$prefix/share/orvanetide/demo" 2>&1)
status=$?
grep -q "frames drawn: 20" <<< "$out" || { echo "the installed demo did not run 20 frames (status $status):"; echo "$out"; exit 1; }
echo "installed and ran"
