#!/usr/bin/env bash
# Builds the WAV reader's fuzz target with clang and runs it over the test corpus as seeds.
#   fuzz.sh WORKDIR [libFuzzer options...]     e.g. fuzz.sh build/audio_fuzz -runs=20000
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
src=$(cd "$here/../.." && pwd)
work=$1
shift
mkdir -p "$work/seeds" "$work/found"

flags=(-std=c++20 -O1 -g -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=undefined -I"$src")
clang++ "${flags[@]}" "$here/fuzz_wav.cpp" "$src/audio/Wav.cpp" -o "$work/fuzz_wav"

# Seeds: every WAV file of the corpus, the refused layouts too.
if [ ! -e "$work/corpus/manifest.txt" ]; then
  /usr/bin/python3 "$here/make_wavs.py" "$work/corpus" > /dev/null
  cp "$work"/corpus/*.wav "$work/seeds/"
fi

"$work/fuzz_wav" "$@" -max_len=8192 -timeout=10 -rss_limit_mb=1024 "$work/found" "$work/seeds"
