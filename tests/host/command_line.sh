#!/usr/bin/env bash
# The command line: help, version, usage errors, and a game given as a folder or a file, which
# runs in its own folder so that its relative files resolve.
set -u
exe=$(realpath "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail=0
check() {  # name, expected, actual
  if [ "$2" != "$3" ]; then echo "$1: expected [$2], got [$3]"; fail=1; fi
}
cd "$work"
check "help status" 0 "$("$exe" --help > out 2> err; echo $?)"
check "help text" "usage: orvanetide [options] [GAME]" "$(head -1 out)"
check "version" "OrvaneTide 0.4 (Beta), engine v1.0" "$("$exe" --version)"
check "unknown option status" 2 "$("$exe" --frobnicate > out 2> err; echo $?)"
check "unknown option text" "orvanetide: unknown option --frobnicate" "$(head -1 err)"
check "usage after it" "usage: orvanetide [options] [GAME]" "$(sed -n 2p err)"
check "two games" "orvanetide: one game at a time, not also b" "$("$exe" a b 2>&1 | head -1)"
check "frames needs a number" "orvanetide: --frames takes a whole number, not x" "$("$exe" --frames x 2>&1 | head -1)"
check "a value is needed" "orvanetide: --input needs a value" "$("$exe" --input 2>&1 | head -1)"
printf '3 key sideways a\n' > bad.txt
check "bad replay status" 2 "$("$exe" --input bad.txt > /dev/null 2>&1; echo $?)"
check "bad replay text" "orvanetide: bad.txt:1: not an event in frame order: 3 key sideways a" "$("$exe" --input bad.txt 2>&1 | head -1)"
mkdir -p game/levels elsewhere
echo "print('level', Orvane['readFile']('levels/one.txt'))" > game/lua.ov
printf 'first' > game/levels/one.txt
echo "print('other')" > game/other.ov
echo "print('not this one')" > lua.ov
check "folder game" "level first" "$(cd elsewhere && "$exe" ../game)"
check "file game" "other" "$("$exe" game/other.ov)"
check "no game: the working folder's lua.ov" "not this one" "$("$exe")"
check "missing game status" 1 "$("$exe" missing.ov > /dev/null 2>&1; echo $?)"
exit $fail
