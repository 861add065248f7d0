#!/usr/bin/env bash
# Builds the model-file fuzz target with clang and runs it over its seeds.
#   fuzz.sh WORKDIR [libFuzzer options...]     e.g. fuzz.sh build/ai_fuzz -runs=20000
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
src=$(cd "$here/../.." && pwd)
work=$1
shift
mkdir -p "$work/seeds_model" "$work/found_model"

# The model and its file form alone: the job pool stays out.
flags=(-std=c++20 -O1 -g -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=undefined -I"$src")
clang++ "${flags[@]}" "$here/fuzz_model.cpp" "$src/ai/MarkovModel.cpp" "$src/ai/ModelFile.cpp" -o "$work/fuzz_model"

# Seeds: well-formed files, the lines the loader must pass over, a count at the 32-bit edge and
# one past it, binary bytes, a long line, and plain texts whose first byte picks the order.
if [ ! -e "$work/seeds_model/well_formed" ]; then
  s=$work/seeds_model
  printf 'ab|c:3,d:1\nbc|a:2\nca|b:1' > "$s/well_formed"
  printf 'x|y:2,z:q,:7\nno bar\n|a:1\nw|\nv|u:5\n' > "$s/skipped_lines"
  printf 'a|b:2147483647,c:00012\nd|e:2147483648' > "$s/count_edge"
  printf 'a||b:1,,c:1:2,d:-1,e:+1\r\n' > "$s/separators"
  printf '\000\377\200|\001\002:9\n\t\r|\033:1' > "$s/binary"
  { printf 's%.0s' $(seq 1 3000); printf '|'; for i in $(seq 1 400); do printf 'n%d:%d,' "$i" "$i"; done; } > "$s/long_line"
  printf '\003the quick brown fox jumps over the lazy dog' > "$s/text_order3"
  printf '\006abab|ab:ab,ab\nab' > "$s/text_order6"
  printf '\000aaaa' > "$s/text_order0"
fi

"$work/fuzz_model" "$@" -max_len=65536 -timeout=10 -rss_limit_mb=1024 "$work/found_model" "$work/seeds_model"
