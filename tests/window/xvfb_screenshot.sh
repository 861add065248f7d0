#!/usr/bin/env bash
# End to end on a real X server: a script spawns the window on a 960 by 540 Xvfb screen, shows
# an image with a yellow square on blue, and keeps pumping; the X server's own screenshot and
# Metal.getWindow must both show the square and the letterbox where the geometry puts them.
set -eu
exe=$1
export QT_QPA_PLATFORM=xcb
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cat > "$work/lua.ov" <<'SCRIPT'
Metal['spawnWindow'](320, 200, 'xvfb')
img = Nuvra['createImage'](320, 200, 0, 128, 255, 255)
Nuvra['blitImage'](img, Nuvra['createImage'](40, 40, 255, 255, 0, 255), 140, 80, false, 1, 0)
Metal['renderImage'](img)
@@ pump until the shell has its screenshot (it leaves done.nmg), for at most ten seconds
done = nil
frames = 0
while done == nil and frames < 1000
  Metal['forceUpdate']()
  frames += 1
  if frames == 20
    Nuvra['saveNuvraImage'](img, 'ready.nmg')
  end
  Orvane['sleep'](10)
  done = Nuvra['loadNuvraImage']('done.nmg')
end
print('stopped by shell', done != nil)
shot = Metal['getWindow']()
Nuvra['saveNuvraImage'](shot, 'canvas.nmg')
SCRIPT
cat > "$work/session.sh" <<'SESSION'
set -eu
cd "$1"
"$2" > stdout &
pid=$!
for i in $(seq 1 500); do [ -f ready.nmg ] && break; sleep 0.02; done
import -window root screen.png
cp ready.nmg done.nmg
wait $pid
SESSION
xvfb-run -a -s "-screen 0 960x540x24" bash "$work/session.sh" "$work" "$exe"
cat "$work/stdout"
grep -q 'stopped by shell true' "$work/stdout"
pixel() { convert "$work/screen.png" -crop "1x1+$1+$2" -depth 8 rgb:- | od -An -tu1 | xargs; }
# Canvas 960 by 540: content 768 by 432 at (96, 0); the image at scale 2.16 is 691 by 432 at (134, 0).
check() {
    local got; got=$(pixel "$1" "$2")
    [ "$got" = "$3" ] || { echo "screen pixel $1,$2 is '$got', expected '$3'"; exit 1; }
}
check 479 216 "255 255 0"    # the square in the middle
check 200 100 "0 128 255"    # the blue image
check 133 100 "0 0 0"        # letterbox left of the image
check 480 500 "0 0 0"        # below the image area
/usr/bin/python3 - "$work/canvas.nmg" <<'JUDGE'
import struct, sys
data = open(sys.argv[1], 'rb').read()
w, h = struct.unpack('<qq', data[:16])
assert (w, h) == (960, 540), (w, h)
def at(x, y):
    o = 16 + (y * w + x) * 4
    return tuple(data[o:o + 4])
assert at(479, 216) == (255, 255, 0, 255), at(479, 216)
assert at(200, 100) == (0, 128, 255, 255), at(200, 100)
assert at(133, 100) == (0, 0, 0, 255), at(133, 100)
JUDGE
echo ok
