#!/usr/bin/env bash
# Builds the font readers' fuzz targets with clang and runs each over its seeds.
#   fuzz.sh WORKDIR [libFuzzer options...]     e.g. fuzz.sh build/font_fuzz -runs=5000
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
src=$(cd "$here/../.." && pwd)
work=$1
shift
mkdir -p "$work/seeds_truetype" "$work/seeds_type1" "$work/found_truetype" "$work/found_type1"

# The readers alone: the Qt path and the image-making text path stay out.
readers=$(ls "$src"/font/*.cpp | grep -v -e SailfishFont -e FontFacade -e OwnFontPath)
flags=(-std=c++20 -O1 -g -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=undefined -I"$src")
clang++ "${flags[@]}" -DOT_FUZZ_BACKEND=TrueTypeBackend "$here/fuzz_font_backend.cpp" $readers -o "$work/fuzz_truetype"
clang++ "${flags[@]}" -DOT_FUZZ_BACKEND=Type1Backend "$here/fuzz_font_backend.cpp" $readers -o "$work/fuzz_type1"

# Seeds: a small subset of DejaVu Sans, the test fonts of fontTools, and small Type 1 fonts
# in both wrappings, made here with the published ciphers.
if [ ! -e "$work/seeds_truetype/subset.ttf" ]; then
  /usr/bin/python3 -m fontTools.subset /usr/share/fonts/truetype/dejavu/DejaVuSans.ttf \
    --text="Ag1É€ " --output-file="$work/seeds_truetype/subset.ttf"
  /usr/bin/python3 "$here/make_truetype_fonts.py" "$work/seeds_truetype" > /dev/null 2>&1 || true
  /usr/bin/python3 - "$work/seeds_type1" <<'PY'
import os, struct, sys
out = sys.argv[1]
def crypt(data, r):
    result = bytearray()
    for p in data:
        c = p ^ (r >> 8)
        r = ((c + r) * 52845 + 22719) & 0xFFFF
        result.append(c)
    return bytes(result)
def num(v):
    if -107 <= v <= 107: return bytes([v + 139])
    if 108 <= v <= 1131: return bytes([(v - 108) // 256 + 247, (v - 108) % 256])
    if -1131 <= v <= -108: return bytes([(-v - 108) // 256 + 251, (-v - 108) % 256])
    return bytes([255]) + struct.pack('>i', v * 65536)
def charstring(*ops):
    return crypt(b'\0\0\0\0' + b''.join(ops), 4330)
H = charstring(num(50), num(600), bytes([13]), num(0), num(700), bytes([4]), num(100), bytes([6]),
               num(-700), bytes([7]), bytes([9]), bytes([14]))
curve = charstring(num(0), num(500), bytes([13]), num(1), num(2), num(3), num(4), num(5), num(6), bytes([8]), bytes([14]))
ret = charstring(bytes([11]))
private = (b'dup /Private 8 dict dup begin /lenIV 4 def /Subrs 1 array\ndup 0 %d RD ' % len(ret) + ret +
           b' NP\nend /CharStrings 3 dict dup begin\n/.notdef %d RD ' % len(H) + H + b' ND\n/H %d RD ' % len(H) + H +
           b' ND\n/O %d RD ' % len(curve) + curve + b' ND\nend\n')
encrypted = crypt(b'abcd' + private, 55665)
clear = (b'%!PS-AdobeFont-1.0: Seed\n/FontBBox {-50 -200 1000 900} readonly def\n'
         b'/Encoding 256 array\ndup 72 /H put\ndup 79 /O put\nreadonly def\ncurrentfile eexec\n')
with open(os.path.join(out, 'seed.pfa'), 'wb') as f:
    f.write(clear + encrypted.hex().encode() + b'\ncleartomark\n')
with open(os.path.join(out, 'seed.pfb'), 'wb') as f:
    for kind, payload in ((1, clear), (2, encrypted)):
        f.write(bytes([0x80, kind]) + struct.pack('<I', len(payload)) + payload)
    f.write(bytes([0x80, 3]))
PY
fi

"$work/fuzz_truetype" "$@" -max_len=32768 -timeout=10 -rss_limit_mb=1024 "$work/found_truetype" "$work/seeds_truetype"
"$work/fuzz_type1" "$@" -max_len=16384 -timeout=10 -rss_limit_mb=1024 "$work/found_type1" "$work/seeds_type1"
