#!/usr/bin/python3
"""Outside judges for the codec tests: Pillow and ImageMagick write the test corpus and decode it.

  oracle.py corpus DIR        writes the corpus into DIR, each FILE with FILE.rgba, the judge's pixels
  oracle.py decode DIR FILE.. writes DIR/<name>.rgba for every FILE that Pillow decodes exactly

An .rgba file is the line "WIDTH HEIGHT" and then the RGBA bytes. The judges' pixels are brought
to our reader's rules here: 16-bit samples become (v * 255 + 32767) // 65535, a transparent key is
matched against the full sample, 5- and 6-bit BMP channels scale as (v * 255 + max // 2) // max.
Files whose exact samples Pillow cannot give (16-bit colour PNG) get no .rgba; the C++ side
judges those with libpng.
"""
import os
import struct
import subprocess
import sys
import zlib

from PIL import Image

MAGICK = "/usr/bin/convert"


def to8(v):
    return (v * 255 + 32767) // 65535


def write_rgba(path, width, height, data):
    with open(path, "wb") as f:
        f.write(b"%d %d\n" % (width, height))
        f.write(bytes(data))


def png_depth_and_type(path):
    with open(path, "rb") as f:
        head = f.read(26)
    return head[24], head[25]


def pillow_png(path):
    depth, colour_type = png_depth_and_type(path)
    if depth == 16 and colour_type != 0:
        return None  # Pillow keeps only the high byte of 16-bit colour samples
    im = Image.open(path)
    if getattr(im, "is_animated", False):
        im.seek(im.n_frames - 1)
    w, h = im.size
    key = im.info.get("transparency")
    if im.mode in ("I", "I;16", "I;16B"):
        px = list(im.getdata())
        out = bytearray()
        for v in px:
            g = to8(v)
            out += bytes([g, g, g, 0 if key is not None and v == key else 255])
        return w, h, out
    if im.mode == "L" and key is not None and not isinstance(key, bytes):
        out = bytearray()
        for v in im.getdata():
            out += bytes([v, v, v, 0 if v == key else 255])
        return w, h, out
    if im.mode == "RGB" and key is not None:
        out = bytearray()
        for p in im.getdata():
            out += bytes(p) + bytes([0 if tuple(p) == tuple(key) else 255])
        return w, h, out
    return w, h, im.convert("RGBA").tobytes()


def pillow_any(path):
    im = Image.open(path)
    return im.size[0], im.size[1], im.convert("RGBA").tobytes()


def magick_bmp(path, green_bits=8, alpha_bits=8, red_blue_bits=8):
    """ImageMagick's decode, with n-bit channels rescaled by our rule."""
    w, h = Image.open(path).size
    raw = subprocess.run([MAGICK, path, "-depth", "8", "rgba:-"], check=True, capture_output=True).stdout

    def rescale(v, bits):
        if bits == 8:
            return v
        top = (1 << bits) - 1
        n = (v * top + 127) // 255
        return (n * 255 + top // 2) // top

    out = bytearray(raw)
    for i in range(0, len(out), 4):
        out[i] = rescale(out[i], red_blue_bits)
        out[i + 1] = rescale(out[i + 1], green_bits)
        out[i + 2] = rescale(out[i + 2], red_blue_bits)
        out[i + 3] = rescale(out[i + 3], alpha_bits) if alpha_bits else 255
    return w, h, out


def photo(w, h, alpha=None, seed=1):
    """A smooth picture with some noise, and optionally an alpha pattern."""
    import random
    rnd = random.Random(seed)
    im = Image.new("RGBA", (w, h))
    px = []
    for y in range(h):
        for x in range(w):
            r = (x * 255 // max(w - 1, 1) + rnd.randrange(16)) & 255
            g = (y * 255 // max(h - 1, 1) + rnd.randrange(16)) & 255
            b = ((x + y) * 7 + rnd.randrange(8)) & 255
            a = 255 if alpha is None else alpha(x, y, rnd)
            px.append((r, g, b, a))
    im.putdata(px)
    return im


def patch_apng_dispose(data):
    """A copy of an APNG with every fcTL's dispose op set to 0 (its CRC fixed)."""
    out = bytearray(data)
    p = 8
    while p + 12 <= len(out):
        length, kind = struct.unpack(">I4s", out[p:p + 8])
        if kind == b"fcTL":
            out[p + 8 + 24] = 0
            out[p + 8 + length:p + 12 + length] = struct.pack(">I", zlib.crc32(out[p + 4:p + 8 + length]))
        p += 12 + length
    return bytes(out)


def make_corpus(d):
    os.makedirs(d, exist_ok=True)
    judged = []  # (file, (w, h, rgba) or None)

    def png(name, im, **kw):
        path = os.path.join(d, name)
        im.save(path, **kw)
        judged.append((name, pillow_png(path)))

    def magick(name, src, *args, judge=pillow_png):
        path = os.path.join(d, name)
        srcpath = os.path.join(d, "_src.png")
        src.save(srcpath)
        subprocess.run([MAGICK, srcpath, *args, path], check=True)
        judged.append((name, judge(path)))

    base = photo(37, 23, alpha=lambda x, y, r: (x * 11 + y * 5) & 255)
    opaque = base.convert("RGB")
    grey = opaque.convert("L")

    # PNG, every colour type at 8 bits (Pillow) and 16 bits (ImageMagick).
    png("grey8.png", grey)
    png("grey8_key.png", grey, transparency=grey.getpixel((3, 3)))
    png("rgb8.png", opaque)
    png("rgb8_key.png", opaque, transparency=opaque.getpixel((5, 2)))
    png("grey_alpha8.png", base.convert("LA"))
    png("rgba8.png", base)
    pal = opaque.quantize(colors=40)
    png("palette8.png", pal)
    png("palette8_trns.png", pal, transparency=bytes([0, 128, 255, 7, 90]))
    png("rgba8_level0.png", base, compress_level=0)
    png("rgba8_level9.png", base, compress_level=9)
    i16 = Image.new("I;16", grey.size)
    i16.putdata([(v * 257 + (i * 37) % 257) & 0xFFFF for i, v in enumerate(grey.getdata())])
    png("grey16.png", i16)
    # The multiply leaves samples that are no longer multiples of 257, so they need all 16 bits.
    deep = ["-depth", "16", "-evaluate", "multiply", "0.9973", "-define", "png:bit-depth=16"]
    magick("rgb16.png", opaque, *deep, "-define", "png:color-type=2")
    magick("rgba16.png", base, *deep, "-define", "png:color-type=6")
    magick("grey_alpha16.png", base.convert("LA"), *deep, "-define", "png:color-type=4")
    # Adam7, from ImageMagick.
    for name, src, args in [("adam7_rgba8.png", base, ["-define", "png:color-type=6"]),
                            ("adam7_rgb8.png", opaque, ["-define", "png:color-type=2"]),
                            ("adam7_grey8.png", grey, ["-define", "png:color-type=0"]),
                            ("adam7_palette8.png", pal.convert("RGB"), ["-define", "png:color-type=3"]),
                            ("adam7_rgba16.png", base, [*deep, "-define", "png:color-type=6"]),
                            ("adam7_grey16.png", grey, [*deep, "-define", "png:color-type=0"])]:
        magick(name, src, "-interlace", "PNG", *args)
    for w, h in [(1, 1), (1, 9), (9, 1), (3, 5)]:
        magick("adam7_%dx%d.png" % (w, h), photo(w, h, alpha=lambda x, y, r: r.randrange(256), seed=w * h),
               "-interlace", "PNG", "-define", "png:color-type=6")

    # APNG from Pillow: several frames, all dispose and blend ops; alpha only 0 or 255 so that
    # Pillow's blending and ours agree bit for bit. Our reader ignores dispose ops, so the judge
    # decodes a copy whose dispose ops are all 0.
    holes = lambda x, y, r: 0 if (x // 4 + y // 3) % 3 == 0 else 255
    frames = [photo(37, 23, alpha=holes, seed=s) for s in range(4)]
    frames[2] = frames[2].crop((0, 0, 37, 23))
    for name, kw in [("apng_source.png", dict(disposal=[0, 0, 0, 0], blend=[0, 0, 0, 0])),
                     ("apng_over.png", dict(disposal=[0, 0, 0, 0], blend=[0, 1, 1, 1])),
                     ("apng_dispose.png", dict(disposal=[1, 2, 1, 0], blend=[0, 1, 0, 1])),
                     ("apng_default.png", dict(disposal=[0, 0, 0], blend=[0, 1, 1], default_image=True))]:
        path = os.path.join(d, name)
        frames[0].save(path, save_all=True, append_images=frames[1:], duration=50, **kw)
        patched = os.path.join(d, "_patched.png")
        with open(path, "rb") as f:
            data = f.read()
        with open(patched, "wb") as f:
            f.write(patch_apng_dispose(data))
        judged.append((name, pillow_png(patched)))

    # BMP: Pillow for 1, 4, 8 and 24 bits; ImageMagick for bit fields of 16 and 32 bits.
    for name, im in [("bmp1.bmp", grey.convert("1")), ("bmp4.bmp", opaque.quantize(colors=16)),
                     ("bmp8.bmp", pal), ("bmp24.bmp", opaque)]:
        path = os.path.join(d, name)
        im.save(path)
        judged.append((name, pillow_any(path)))
    magick("bmp32_alpha.bmp", base, judge=magick_bmp)
    magick("bmp16_565.bmp", opaque, "-alpha", "off", "-define", "bmp:subtype=RGB565",
           judge=lambda p: magick_bmp(p, green_bits=6, alpha_bits=0, red_blue_bits=5))
    magick("bmp16_1555.bmp", base.point(lambda v: v).convert("RGBA"), "-define", "bmp:subtype=ARGB1555",
           judge=lambda p: magick_bmp(p, green_bits=5, alpha_bits=1, red_blue_bits=5))
    magick("bmp16_555.bmp", opaque, "-alpha", "off", "-define", "bmp:subtype=RGB555",
           judge=lambda p: magick_bmp(p, green_bits=5, alpha_bits=0, red_blue_bits=5))
    # Top-down: Pillow's bottom-up file with its rows turned over and a negative height.
    with open(os.path.join(d, "bmp24.bmp"), "rb") as f:
        bmp = bytearray(f.read())
    offset, = struct.unpack_from("<I", bmp, 10)
    w, h = struct.unpack_from("<ii", bmp, 18)
    stride = (w * 24 + 31) // 32 * 4
    rows = [bmp[offset + i * stride:offset + (i + 1) * stride] for i in range(h)]
    bmp[offset:offset + h * stride] = b"".join(reversed(rows))
    struct.pack_into("<i", bmp, 22, -h)
    with open(os.path.join(d, "bmp24_topdown.bmp"), "wb") as f:
        f.write(bmp)
    judged.append(("bmp24_topdown.bmp", pillow_any(os.path.join(d, "bmp24.bmp"))))

    # TGA from Pillow: types 1, 2, 3 raw and 9, 10, 11 run-length, both origins.
    for mode_name, im in [("p", pal), ("rgb", opaque), ("rgba", base), ("grey", grey)]:
        for rle in (False, True):
            for orientation, origin in ((-1, "bottom"), (1, "top")):
                name = "tga_%s_%s_%s.tga" % (mode_name, "rle" if rle else "raw", origin)
                path = os.path.join(d, name)
                im.save(path, rle=rle, orientation=orientation)
                judged.append((name, pillow_any(path)))

    for name, result in judged:
        if result is not None:
            write_rgba(os.path.join(d, name + ".rgba"), *result)
    for tmp in ("_src.png", "_patched.png"):
        if os.path.exists(os.path.join(d, tmp)):
            os.remove(os.path.join(d, tmp))
    with open(os.path.join(d, "manifest.txt"), "w") as f:
        f.write("".join(name + "\n" for name, _ in judged))


def decode(d, files):
    os.makedirs(d, exist_ok=True)
    for path in files:
        try:
            result = pillow_png(path) if path.endswith(".png") else pillow_any(path)
        except Exception:
            continue  # Pillow refuses it; the C++ side decides what that means
        if result is not None:
            write_rgba(os.path.join(d, os.path.basename(path) + ".rgba"), *result)


if __name__ == "__main__":
    if sys.argv[1] == "corpus":
        make_corpus(sys.argv[2])
    elif sys.argv[1] == "decode":
        decode(sys.argv[2], sys.argv[3:])
    else:
        sys.exit("usage: oracle.py corpus DIR | decode DIR FILE...")
