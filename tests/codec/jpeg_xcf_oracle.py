#!/usr/bin/python3
"""Outside judges for the JPEG and XCF tests: libjpeg-turbo (cjpeg, djpeg), Pillow and ImageMagick.

  jpeg_xcf_oracle.py jpeg-corpus DIR    JPEG files made by Pillow, ImageMagick and cjpeg, judged by djpeg
  jpeg_xcf_oracle.py judge-jpeg DIR     judges the NAME.jpg files that we wrote into DIR
  jpeg_xcf_oracle.py judge-xcf DIR      judges the NAME.xcf files that we wrote into DIR
  jpeg_xcf_oracle.py seeds DIR          small JPEG and XCF files for the fuzzer

An .rgba file is the line "WIDTH HEIGHT" and then the RGBA bytes.

jpeg-corpus writes manifest.txt: "decode NAME" for a baseline file that we must read, "refuse NAME
WHY" for one that we must refuse. For each decoded NAME it writes what djpeg -dct float -nosmooth
gives:
  NAME.planes.rgba    the samples of the components, upsampled, before any colour conversion: the
                      file gets an Adobe marker that says RGB, so djpeg does no conversion (grey
                      files are their own planes)
  NAME.planes_c.rgba  the same from djpeg's plain C code (no SIMD)
  NAME.djpeg.rgba     djpeg's RGB output
  NAME.four.jpg       NAME.jpg with a fourth component declared and left out of the scan (colour
                      files only): our reader then gives 255 minus the raw planes
The colour conversion is checked here: djpeg's RGB must be libjpeg's 16-bit fixed-point formula
applied to the planes, so that the planes are truly djpeg's own.

judge-jpeg reads NAME.jpg and NAME.src.rgba (the source pixels) and writes NAME.djpeg.rgba,
NAME.planes.rgba, NAME.planes_c.rgba, NAME.four.jpg, NAME.pillow.rgba, and NAME.reference.rgba: the
source through cjpeg and djpeg at quality 50, 4:4:4, which uses the very quantisers of our writer.
It fails when djpeg warns about a file.

judge-xcf writes NAME.magick.rgba, ImageMagick's pixels of NAME.xcf when it reads it, and always
NAME.rle.magick.rgba: ImageMagick's pixels of a copy whose tiles only are coded as RLE. ImageMagick
6.9 reads no uncompressed tiles, and those are what our writer writes.
"""
import io
import os
import random
import struct
import subprocess
import sys

from PIL import Image

MAGICK = "/usr/bin/convert"
CJPEG = "/usr/bin/cjpeg"
DJPEG = "/usr/bin/djpeg"
FOURTH_ID = 0x63  # an identifier no encoder here gives a component


def write_rgba(path, width, height, rgba):
    with open(path, "wb") as f:
        f.write(b"%d %d\n" % (width, height))
        f.write(bytes(rgba))


def read_rgba(path):
    with open(path, "rb") as f:
        data = f.read()
    head, rest = data.split(b"\n", 1)
    w, h = map(int, head.split())
    return w, h, rest


def rgb_to_rgba(rgb):
    out = bytearray(len(rgb) // 3 * 4)
    out[0::4], out[1::4], out[2::4] = rgb[0::3], rgb[1::3], rgb[2::3]
    out[3::4] = b"\xff" * (len(rgb) // 3)
    return out


def photo(w, h, seed):
    """Smooth shapes with noise, RGB."""
    rnd = random.Random(seed)
    im = Image.new("RGB", (w, h))
    px = []
    for y in range(h):
        for x in range(w):
            r = (x * 255 // max(w - 1, 1) + rnd.randrange(24)) & 255
            g = (y * 255 // max(h - 1, 1) + rnd.randrange(24)) & 255
            b = (((x - w // 2) ** 2 + (y - h // 3) ** 2) // 8 + rnd.randrange(16)) & 255
            px.append((r, g, b))
    im.putdata(px)
    return im


# --- JPEG segments -------------------------------------------------------------------------------

def segments(data):
    """(marker, start, length with the marker) of each segment before the first SOS, and the SOS start."""
    out, p = [], 2
    while data[p] == 0xFF and data[p + 1] != 0xDA:
        n = (data[p + 2] << 8 | data[p + 3]) + 2
        out.append((data[p + 1], p, n))
        p += n
    return out, p


def with_rgb_adobe_marker(data):
    """No JFIF marker, an Adobe marker with transform 0: libjpeg then takes the components as RGB."""
    segs, sos = segments(data)
    body = b"".join(data[s:s + n] for m, s, n in segs if m != 0xE0)
    adobe = b"\xff\xee\x00\x0eAdobe\x00\x64\x00\x00\x00\x00\x00"
    return data[:2] + adobe + body + data[sos:]


def with_fourth_component(data):
    segs, _ = segments(data)
    for m, s, n in segs:
        if m == 0xC0:
            payload = bytearray(data[s + 4:s + n])
            payload[5] += 1
            payload += bytes([FOURTH_ID, 0x11, 0])
            head = b"\xff\xc0" + struct.pack(">H", len(payload) + 2)
            return data[:s] + head + bytes(payload) + data[s + n:]
    raise SystemExit("no SOF0")


def frame_marker(data):
    segs, _ = segments(data)
    return next(m for m, s, n in segs if 0xC0 <= m <= 0xCF and m not in (0xC4, 0xC8, 0xCC))


def with_frame_marker(data, marker):
    segs, _ = segments(data)
    s = next(s for m, s, n in segs if 0xC0 <= m <= 0xCF and m not in (0xC4, 0xC8, 0xCC))
    return data[:s + 1] + bytes([marker]) + data[s + 2:]


def component_count(data):
    segs, _ = segments(data)
    start = next(s for m, s, n in segs if m == 0xC0)
    return data[start + 9]


def djpeg(path, simd=True):
    env = dict(os.environ)
    if not simd:
        env["JSIMD_FORCENONE"] = "1"
    r = subprocess.run([DJPEG, "-dct", "float", "-nosmooth", "-pnm", path], env=env, capture_output=True, check=True)
    if r.stderr:
        raise SystemExit("djpeg warns about %s: %s" % (path, r.stderr.decode()))
    im = Image.open(io.BytesIO(r.stdout)).convert("RGB")
    return im.size[0], im.size[1], im.tobytes()


def libjpeg_colour(planes):
    """libjpeg's YCbCr to RGB in 16-bit fixed point."""
    def fix(x):
        return int(x * 65536 + 0.5)
    clamp = lambda v: 0 if v < 0 else 255 if v > 255 else v
    out = bytearray(len(planes))
    for i in range(0, len(planes), 3):
        y, cb, cr = planes[i], planes[i + 1] - 128, planes[i + 2] - 128
        out[i] = clamp(y + ((fix(1.40200) * cr + 32768) >> 16))
        out[i + 1] = clamp(y + ((-fix(0.34414) * cb - fix(0.71414) * cr + 32768) >> 16))
        out[i + 2] = clamp(y + ((fix(1.77200) * cb + 32768) >> 16))
    return out


def judge_decodable(d, name):
    """The judged files of one baseline JPEG, as described at the top."""
    path = os.path.join(d, name)
    with open(path, "rb") as f:
        data = f.read()
    w, h, rgb = djpeg(path)
    write_rgba(path[:-4] + ".djpeg.rgba", w, h, rgb_to_rgba(rgb))
    if component_count(data) == 1:
        planes, planes_c = rgb, djpeg(path, simd=False)[2]
    else:
        adobe = path[:-4] + ".adobe.jpg"
        with open(adobe, "wb") as f:
            f.write(with_rgb_adobe_marker(data))
        planes, planes_c = djpeg(adobe)[2], djpeg(adobe, simd=False)[2]
        os.remove(adobe)
        if libjpeg_colour(planes) != rgb:
            raise SystemExit("%s: djpeg's colours are not libjpeg's formula of its planes" % name)
        with open(path[:-4] + ".four.jpg", "wb") as f:
            f.write(with_fourth_component(data))
    write_rgba(path[:-4] + ".planes.rgba", w, h, rgb_to_rgba(planes))
    write_rgba(path[:-4] + ".planes_c.rgba", w, h, rgb_to_rgba(planes_c))


def jpeg_corpus(d):
    os.makedirs(d, exist_ok=True)
    manifest = []
    sizes = {"wide": photo(203, 117, 1), "small": photo(37, 23, 2), "odd": photo(17, 9, 3), "one": photo(1, 1, 4)}
    ppm = {}
    for key, im in sizes.items():
        ppm[key] = os.path.join(d, "_%s.ppm" % key)
        im.save(ppm[key])

    def pillow(name, im, **kw):
        im.save(os.path.join(d, name), "JPEG", **kw)
        manifest.append("decode " + name)

    def magick(name, key, *args):
        subprocess.run([MAGICK, ppm[key], *args, os.path.join(d, name)], check=True)
        manifest.append("decode " + name)

    def cjpeg(name, key, *args, refuse=None, baseline=False):
        out = os.path.join(d, name)
        subprocess.run([CJPEG, *args, "-outfile", out, ppm[key]], check=True, capture_output=True)
        if baseline:
            with open(out, "rb") as f:
                data = f.read()
            with open(out, "wb") as f:
                f.write(with_frame_marker(data, 0xC0))
        manifest.append("refuse %s %s" % (name, refuse) if refuse else "decode " + name)

    for key in ("wide", "small", "odd", "one"):
        for sub, label in ((0, "444"), (1, "422"), (2, "420")):
            pillow("pil_%s_%s.jpg" % (key, label), sizes[key], quality=90, subsampling=sub)
    pillow("pil_grey.jpg", sizes["wide"].convert("L"), quality=85)
    pillow("pil_grey_odd.jpg", sizes["odd"].convert("L"), quality=60)
    pillow("pil_optimized.jpg", sizes["wide"], quality=75, optimize=True)
    pillow("pil_q100.jpg", sizes["wide"], quality=100, subsampling=2)
    pillow("pil_q10.jpg", sizes["small"], quality=10)
    magick("im_420.jpg", "wide", "-quality", "85", "-sampling-factor", "2x2")
    magick("im_422.jpg", "small", "-quality", "92", "-sampling-factor", "2x1")
    magick("im_444.jpg", "odd", "-quality", "95", "-sampling-factor", "1x1")
    magick("im_grey.jpg", "wide", "-quality", "80", "-type", "Grayscale")
    cjpeg("cj_restart_rows.jpg", "wide", "-quality", "80", "-restart", "1")
    cjpeg("cj_restart_blocks.jpg", "wide", "-quality", "80", "-restart", "7B", "-sample", "2x1")
    cjpeg("cj_restart_420.jpg", "small", "-quality", "70", "-restart", "1B", "-sample", "2x2")
    cjpeg("cj_411.jpg", "wide", "-quality", "85", "-sample", "4x1")
    cjpeg("cj_h1v2.jpg", "wide", "-quality", "85", "-sample", "1x2")
    cjpeg("cj_h4v2.jpg", "small", "-quality", "85", "-sample", "4x2")
    cjpeg("cj_h3v1.jpg", "small", "-quality", "85", "-sample", "3x1")
    cjpeg("cj_cb_largest.jpg", "odd", "-quality", "85", "-sample", "1x1,2x2,1x1")
    cjpeg("cj_grey_restart.jpg", "odd", "-quality", "90", "-grayscale", "-restart", "1B")
    cjpeg("cj_optimized.jpg", "small", "-quality", "50", "-optimize")
    # Quantisers above 255 need 16-bit tables, which libjpeg marks as an extended frame: refused
    # as it stands, read once the frame marker says baseline.
    cjpeg("cj_16bit_tables.jpg", "wide", "-quality", "3", baseline=True)
    cjpeg("cj_16bit_extended.jpg", "wide", "-quality", "3", refuse="an extended frame (0xC1)")
    cjpeg("cj_progressive.jpg", "small", "-progressive", refuse="a progressive frame (0xC2)")
    cjpeg("cj_arithmetic.jpg", "small", "-arithmetic", refuse="an arithmetic-coded frame (0xC9)")
    sizes["small"].save(os.path.join(d, "pil_progressive.jpg"), "JPEG", progressive=True)
    manifest.append("refuse pil_progressive.jpg a progressive frame (0xC2)")

    for line in manifest:
        if line.startswith("decode "):
            judge_decodable(d, line.split()[1])
    for p in ppm.values():
        os.remove(p)
    with open(os.path.join(d, "manifest.txt"), "w") as f:
        f.write("".join(line + "\n" for line in manifest))


def judge_jpeg(d):
    for name in sorted(os.listdir(d)):
        if not name.endswith(".jpg") or name.endswith(".four.jpg"):
            continue
        path = os.path.join(d, name)
        stem = path[:-4]
        judge_decodable(d, name)
        write_rgba(stem + ".pillow.rgba", *pillow_rgba(path))
        w, h, src = read_rgba(stem + ".src.rgba")
        ppm = stem + ".src.ppm"
        rgb = bytearray(w * h * 3)
        rgb[0::3], rgb[1::3], rgb[2::3] = src[0::4], src[1::4], src[2::4]
        Image.frombytes("RGB", (w, h), bytes(rgb)).save(ppm)
        ref = stem + ".ref.jpg"
        subprocess.run([CJPEG, "-quality", "50", "-sample", "1x1", "-dct", "float", "-outfile", ref, ppm], check=True)
        rw, rh, rrgb = djpeg(ref)
        write_rgba(stem + ".reference.rgba", rw, rh, rgb_to_rgba(rrgb))
        os.remove(ppm)
        os.remove(ref)


def pillow_rgba(path):
    im = Image.open(path)
    return im.size[0], im.size[1], im.convert("RGBA").tobytes()


# --- XCF ----------------------------------------------------------------------------------------

def u32(v):
    return struct.pack(">I", v & 0xFFFFFFFF)


def rle_channel(values):
    """RLE of one channel of a tile, every form of the format: short and long runs and literals."""
    out, i, n = bytearray(), 0, len(values)
    while i < n:
        run = 1
        while i + run < n and values[i + run] == values[i] and run < 65535:
            run += 1
        if run >= 3:
            out += bytes([run - 1, values[i]]) if run <= 127 else bytes([127]) + struct.pack(">H", run) + bytes([values[i]])
            i += run
            continue
        lit = 1
        while i + lit < n and lit < 65535 and not (i + lit + 2 < n and values[i + lit] == values[i + lit + 1] == values[i + lit + 2]):
            lit += 1
        head = bytes([256 - lit]) if lit <= 127 else bytes([128]) + struct.pack(">H", lit)
        out += head + bytes(values[i:i + lit])
        i += lit
    return bytes(out)


class XcfWalk:
    """The offsets of a file of one layer, as our writer lays it out."""

    def __init__(self, data):
        self.data = data
        rd = lambda p: struct.unpack_from(">I", data, p)[0]
        self.width, self.height = rd(14), rd(18)
        p = 26
        self.compression_at = None
        while True:
            kind, length = rd(p), rd(p + 4)
            if kind == 17:
                self.compression_at = p + 8
            p += 8 + length
            if kind == 0:
                break
        layer = rd(p)
        p = layer + 12
        p += 4 + rd(p)
        while True:
            kind, length = rd(p), rd(p + 4)
            p += 8 + length
            if kind == 0:
                break
        hierarchy = rd(p)
        self.bpp = rd(hierarchy + 8)
        level = rd(hierarchy + 12)
        self.table_at = level + 8
        across, down = (self.width + 63) // 64, (self.height + 63) // 64
        self.tiles = []
        for t in range(across * down):
            tw = min(64, self.width - t % across * 64)
            th = min(64, self.height - t // across * 64)
            self.tiles.append((rd(self.table_at + 4 * t), tw * th))


def rle_copy(data):
    walk = XcfWalk(data)
    out = bytearray(data[:walk.table_at])
    out[walk.compression_at] = 1
    coded = []
    for offset, count in walk.tiles:
        raw = data[offset:offset + count * walk.bpp]
        coded.append(b"".join(rle_channel(raw[c::walk.bpp]) for c in range(walk.bpp)))
    at = len(out) + 4 * (len(coded) + 1)
    for c in coded:
        out += u32(at)
        at += len(c)
    out += u32(0)
    for c in coded:
        out += c
    return bytes(out)


def magick_rgba(path):
    r = subprocess.run([MAGICK, path, "-depth", "8", "rgba:-"], capture_output=True)
    if r.returncode != 0:
        return None
    with open(path, "rb") as f:
        walk = XcfWalk(f.read())
    return walk.width, walk.height, r.stdout


def judge_xcf(d):
    for name in sorted(os.listdir(d)):
        if not name.endswith(".xcf") or name.endswith(".rle.xcf"):
            continue
        path = os.path.join(d, name)
        direct = magick_rgba(path)
        if direct:
            write_rgba(path[:-4] + ".magick.rgba", *direct)
        with open(path, "rb") as f:
            copy = rle_copy(f.read())
        rle = path[:-4] + ".rle.xcf"
        with open(rle, "wb") as f:
            f.write(copy)
        coded = magick_rgba(rle)
        if not coded:
            raise SystemExit("ImageMagick cannot read the RLE copy of " + name)
        write_rgba(path[:-4] + ".rle.magick.rgba", *coded)


def xcf_file(width, height, layers, version=b"v003", compression=1, colours=None):
    """A small XCF; layers (top first) are (type, bpp, width, height, x, y, opacity, pixels)."""
    pointer = 8 if version >= b"v011" and version != b"file" else 4
    ptr = lambda v: struct.pack(">Q" if pointer == 8 else ">I", v)
    out = bytearray(b"gimp xcf " + version + b"\0") + u32(width) + u32(height) + u32(2 if colours else 0)
    if version != b"file" and int(version[1:]) >= 4:
        out += u32(150)
    out += u32(17) + u32(1) + bytes([compression])
    if colours:
        out += u32(1) + u32(4 + len(colours)) + u32(len(colours) // 3) + colours
    out += u32(0) + u32(0)
    table = len(out)
    out += bytes(pointer * (len(layers) + 2))
    for index, (kind, bpp, w, h, x, y, opacity, pixels) in enumerate(layers):
        out[table + index * pointer:table + (index + 1) * pointer] = ptr(len(out))
        out += u32(w) + u32(h) + u32(kind) + u32(2) + b"L\0"
        out += u32(6) + u32(4) + u32(opacity) + u32(15) + u32(8) + u32(x) + u32(y) + u32(0) + u32(0)
        out += ptr(len(out) + 2 * pointer) + ptr(0)
        out += u32(w) + u32(h) + u32(bpp) + ptr(len(out) + 12 + 2 * pointer) + ptr(0)
        out += u32(w) + u32(h)
        across, down = (w + 63) // 64, (h + 63) // 64
        coded = []
        for t in range(across * down):
            tx, ty = t % across * 64, t // across * 64
            tw, th = min(64, w - tx), min(64, h - ty)
            raw = b"".join(pixels[((ty + r) * w + tx) * bpp:((ty + r) * w + tx + tw) * bpp] for r in range(th))
            coded.append(raw if compression == 0 else b"".join(rle_channel(raw[c::bpp]) for c in range(bpp)))
        at = len(out) + pointer * (len(coded) + 1)
        for c in coded:
            out += ptr(at)
            at += len(c)
        out += ptr(0)
        for c in coded:
            out += c
    return bytes(out)


def seeds(d):
    os.makedirs(d, exist_ok=True)
    im = photo(24, 17, 9)
    im.save(os.path.join(d, "baseline.jpg"), "JPEG", quality=80, subsampling=2)
    im.convert("L").save(os.path.join(d, "grey.jpg"), "JPEG", quality=80)
    ppm = os.path.join(d, "_seed.ppm")
    im.save(ppm)
    subprocess.run([CJPEG, "-restart", "1B", "-sample", "2x1", "-outfile", os.path.join(d, "restart.jpg"), ppm], check=True)
    subprocess.run([CJPEG, "-optimize", "-outfile", os.path.join(d, "optimized.jpg"), ppm], check=True)
    os.remove(ppm)
    rnd = random.Random(5)
    rgba = bytes(rnd.randrange(256) if i % 3 else 200 for i in range(70 * 20 * 4))
    grey = bytes((i // 9) & 255 for i in range(20 * 10 * 2))
    files = {
        "rle.xcf": xcf_file(70, 20, [(1, 4, 70, 20, 0, 0, 255, rgba)]),
        "raw.xcf": xcf_file(70, 20, [(1, 4, 70, 20, 0, 0, 255, rgba)], compression=0),
        "layers.xcf": xcf_file(30, 20, [(3, 2, 20, 10, -5, 4, 128, grey), (0, 3, 20, 10, 3, 3, 255, bytes(range(200)) * 3)],
                               version=b"v007"),
        "indexed.xcf": xcf_file(9, 5, [(5, 2, 9, 5, 0, 0, 255, bytes(i % 4 for i in range(90)))],
                                colours=bytes([255, 0, 0, 0, 255, 0, 0, 0, 255]), version=b"file"),
        "wide_pointers.xcf": xcf_file(10, 10, [(2, 1, 10, 10, 0, 0, 255, bytes(range(100)))], version=b"v011"),
    }
    for name, data in files.items():
        with open(os.path.join(d, name), "wb") as f:
            f.write(data)


if __name__ == "__main__":
    commands = {"jpeg-corpus": jpeg_corpus, "judge-jpeg": judge_jpeg, "judge-xcf": judge_xcf, "seeds": seeds}
    if len(sys.argv) != 3 or sys.argv[1] not in commands:
        sys.exit("usage: jpeg_xcf_oracle.py jpeg-corpus|judge-jpeg|judge-xcf|seeds DIR")
    commands[sys.argv[1]](sys.argv[2])
