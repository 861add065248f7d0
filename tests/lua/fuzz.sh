#!/usr/bin/env bash
# Builds the OrvaneLua fuzz target with clang and runs it over its seeds: the test programs,
# the dialect programs and the benchmarks, as sources.
#   fuzz.sh WORKDIR [libFuzzer options...]     e.g. fuzz.sh build/lua_fuzz -runs=20000
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
src=$(cd "$here/../.." && pwd)
work=$1
shift
mkdir -p "$work/seeds" "$work/found"

# Unoptimised: with the sanitizers, clang's optimiser takes minutes over the interpreter loops.
flags=(-std=c++20 -O0 -g -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=undefined -I"$src")
clang++ "${flags[@]}" "$here/fuzz_lua.cpp" "$src"/lua/Evaluator.cpp "$src"/lua/Library.cpp "$src"/lua/LuaValue.cpp \
  "$src"/lua/LuaVM.cpp "$src"/lua/Parser.cpp "$src"/lua/Resolver.cpp "$src"/lua/Value.cpp -o "$work/fuzz_lua"

cp "$here"/programs/*.lua "$here"/dialect/*.lua "$work/seeds/"
cp "$src"/bench/lua/*.olua "$work/seeds/" 2> /dev/null || true
# Dictionary: the keywords and punctuation of the dialect.
printf '"%s"\n' and break do else elseif end false for function if in local nil not or return then true while \
  '==' '~=' '<=' '>=' '..' '[[' ']]' '--' '(' ')' '{' '}' '[' ']' '=' ',' ';' ':' '#' '%' \
  'pairs(' 'ipairs(' 'pcall(' 'string.' 'table.' OLBC > "$work/lua.dict"

"$work/fuzz_lua" "$@" -max_len=4096 -timeout=10 -rss_limit_mb=2048 -dict="$work/lua.dict" "$work/found" "$work/seeds"
