#!/usr/bin/env bash
# Builds the codec's fuzz targets with clang and runs each over its seeds.
#   fuzz.sh WORKDIR [libFuzzer options...]     e.g. fuzz.sh build/fuzz -runs=20000
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
src=$(cd "$here/../.." && pwd)
work=$1
shift
mkdir -p "$work/seeds_png" "$work/seeds_zlib" "$work/seeds_jpeg_xcf" "$work/found_load_memory" "$work/found_inflate"

flags=(-std=c++20 -O1 -g -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=undefined -I"$src" -I"$here")
for target in load_memory inflate; do
  clang++ "${flags[@]}" "$here/fuzz_$target.cpp" "$src"/codec/*.cpp -o "$work/fuzz_$target"
done

# Seeds: the PngSuite, the Pillow and ImageMagick corpus (BMP, TGA, APNG too), zlib streams, and
# small JPEG (Pillow, cjpeg) and XCF files.
if [ ! -e "$work/seeds_png/manifest.txt" ]; then
  /usr/bin/python3 "$here/oracle.py" corpus "$work/seeds_png"
  rm -f "$work/seeds_png"/*.rgba
  /usr/bin/python3 - "$work/seeds_zlib" <<'PY'
import os, sys, zlib
out = sys.argv[1]
samples = [b"", b"a", bytes(range(256)) * 4, b"the quick brown fox " * 50, bytes(3000)]
for i, s in enumerate(samples):
    for level in (0, 1, 6, 9):
        open(os.path.join(out, "z%d_%d" % (i, level)), "wb").write(zlib.compress(s, level))
PY
fi
if [ ! -e "$work/seeds_jpeg_xcf/rle.xcf" ]; then
  /usr/bin/python3 "$here/jpeg_xcf_oracle.py" seeds "$work/seeds_jpeg_xcf"
fi

"$work/fuzz_load_memory" "$@" -max_len=65536 "$work/found_load_memory" "$src/../shared/corpus/pngsuite" "$work/seeds_png" \
  "$work/seeds_jpeg_xcf"
"$work/fuzz_inflate" "$@" -max_len=16384 "$work/found_inflate" "$work/seeds_zlib"
