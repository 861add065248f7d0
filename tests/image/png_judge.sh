#!/usr/bin/env bash
# A PNG written by Nuvra.saveImage, read by Pillow: an outside judge of what we write.
set -eu
exe=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cat > "$work/lua.ov" <<'SCRIPT'
img = Nuvra['createImage'](7, 5, 10, 20, 30, 255)
Nuvra['blitImage'](img, Nuvra['createImage'](2, 2, 200, 100, 50, 128), 3, 1, false, 1, 0)
Nuvra['blitImage'](img, Nuvra['createImage'](1, 1, 0, 0, 255, 128), 6, 4, true, 1, 0)
Nuvra['saveImage']('out.png', img)
SCRIPT
(cd "$work" && "$exe")
/usr/bin/python3 - "$work/out.png" <<'JUDGE'
import sys
from PIL import Image
im = Image.open(sys.argv[1])
assert im.size == (7, 5), im.size
im = im.convert('RGBA')
expect = {(0, 0): (10, 20, 30, 255), (3, 1): (200, 100, 50, 128), (4, 2): (200, 100, 50, 128),
          (5, 2): (10, 20, 30, 255), (6, 4): (4, 9, 142, 255)}
for xy, colour in expect.items():
    assert im.getpixel(xy) == colour, (xy, im.getpixel(xy), colour)
print('ok')
JUDGE
