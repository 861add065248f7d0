#!/usr/bin/env bash
# Builds the OrvaneRuby fuzz target with clang and runs it over its seeds: the test programs as
# source, and their compiled bytes.
#   fuzz.sh WORKDIR [libFuzzer options...]     e.g. fuzz.sh build/ruby_fuzz -runs=20000
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
src=$(cd "$here/../.." && pwd)
work=$1
shift
mkdir -p "$work/seeds" "$work/found"

# The library's sources; the driver has a main of its own and stays out.
library=$(ls "$src"/ruby/*.cpp | grep -v '/driver\.cpp$')
# Unoptimised: with the sanitizers, clang's optimiser takes minutes over the interpreter loops.
flags=(-std=c++20 -O0 -g -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=undefined -I"$src")
clang++ "${flags[@]}" "$here/fuzz_ruby.cpp" $library -o "$work/fuzz_ruby"
if [ ! -e "$work/seeds/.made" ]; then
  # Source seeds, and bytes compiled by a helper built from the same sources.
  cp "$here"/programs/*.rb "$here"/dialect/*.rb "$work/seeds/"
  cat > "$work/compile_seed.cpp" <<'CPP'
#include <fstream>
#include <sstream>
#include "ruby/RubyVM.h"
int main(int argc, char** argv) {
    orvane::ruby::RubyVM vm;
    for (int i = 1; i < argc; ++i) {
        std::ifstream in(argv[i]);
        std::stringstream text;
        text << in.rdbuf();
        try {
            auto bytes = vm.compileScript(text.str(), "seed").bytes;
            std::ofstream out(std::string(argv[i]) + ".orbc", std::ios::binary);
            out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        } catch (...) {
        }
    }
}
CPP
  clang++ -std=c++20 -O0 -I"$src" "$work/compile_seed.cpp" $library -o "$work/compile_seed"
  "$work/compile_seed" "$work"/seeds/*.rb
  touch "$work/seeds/.made"
fi

# Containers that hold themselves live until the process ends, by design: no leak reports.
"$work/fuzz_ruby" "$@" -max_len=4096 -timeout=10 -rss_limit_mb=2048 -detect_leaks=0 "$work/found" "$work/seeds"
