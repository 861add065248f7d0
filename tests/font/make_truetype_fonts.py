#!/usr/bin/python3
"""Small TrueType fonts for the reader's tests, written into OUTDIR.

Ordinary fonts come from fontTools' FontBuilder; what it cannot express (a bad loca, glyph bytes
that no sane tool writes) is patched in or written as raw glyph data.
"""
import struct
import sys

from fontTools.fontBuilder import FontBuilder, buildCmapSubTable
from fontTools.ttLib import newTable
from fontTools.ttLib.tables import ttProgram
from fontTools.ttLib.tables._g_l_y_f import Glyph, GlyphComponent, GlyphCoordinates

SCALED_COMPONENT_OFFSET = 0x0800


def simple(*contours):
    """A simple glyph from contours of (x, y, on_curve)."""
    glyph = Glyph()
    glyph.numberOfContours = len(contours)
    glyph.coordinates = GlyphCoordinates([(x, y) for contour in contours for x, y, _ in contour])
    glyph.flags = bytearray(1 if on else 0 for contour in contours for _, _, on in contour)
    ends, count = [], 0
    for contour in contours:
        count += len(contour)
        ends.append(count - 1)
    glyph.endPtsOfContours = ends
    glyph.program = ttProgram.Program()
    glyph.program.fromBytecode(b"")
    return glyph


def rectangle(x0, y0, x1, y1):
    return simple([(x0, y0, True), (x0, y1, True), (x1, y1, True), (x1, y0, True)])


def component(name, x=0, y=0, transform=None, flags=0, points=None):
    part = GlyphComponent()
    part.glyphName = name
    part.flags = flags
    if points is None:
        part.x, part.y = x, y
    else:
        part.firstPt, part.secondPt = points
    if transform is not None:
        part.transform = transform
    return part


def composite(*parts):
    glyph = Glyph()
    glyph.numberOfContours = -1
    glyph.components = list(parts)
    return glyph


def empty():
    return Glyph()


def subtable(format, platform, encoding, mapping):
    return buildCmapSubTable(mapping, format, platform, encoding)


def build(path, glyphs, advances, cmap, descent=-200, recalc=True):
    """glyphs: ordered dict name -> Glyph; advances: name -> advance (default 600);
    cmap: list of cmap subtables. The left side bearing is each glyph's xMin."""
    order = list(glyphs)
    builder = FontBuilder(1000, isTTF=True)
    builder.font.recalcBBoxes = recalc
    builder.setupGlyphOrder(order)
    builder.setupGlyf(glyphs, calcGlyphBounds=recalc)
    glyf = builder.font["glyf"]
    metrics = {name: (advances.get(name, 600), getattr(glyf[name], "xMin", 0) if recalc else 0) for name in order}
    builder.setupHorizontalMetrics(metrics)
    builder.setupHorizontalHeader(ascent=800, descent=descent)
    table = builder.font["cmap"] = newTable("cmap")
    table.tableVersion = 0
    table.tables = cmap
    builder.setupNameTable({"familyName": "OrvaneTest", "styleName": "Regular"})
    builder.setupOS2()
    builder.setupPost()
    builder.save(path)


def table_record(data, tag):
    count = struct.unpack(">H", data[4:6])[0]
    for i in range(count):
        record = 12 + 16 * i
        if data[record:record + 4] == tag:
            offset, length = struct.unpack(">II", data[record + 8:record + 16])
            return record, offset, length
    raise KeyError(tag)


def base_glyphs():
    return {".notdef": rectangle(50, 0, 450, 700), "X": rectangle(0, 0, 500, 500), "Y": rectangle(100, 0, 300, 700)}


def cmap_fonts(out):
    letters = {0x41: "X"}
    glyphs = base_glyphs()
    glyphs["smile"] = simple([(0, 0, True), (250, 500, True), (500, 0, True)])
    build(f"{out}/format12_only.ttf", glyphs, {}, [subtable(12, 3, 10, {0x41: "X", 0x1F600: "smile"})])
    build(f"{out}/format0_6_only.ttf", base_glyphs(), {},
          [subtable(0, 0, 3, letters), subtable(6, 3, 1, letters)])
    build(f"{out}/format4_second_enc1.ttf", base_glyphs(), {},
          [subtable(4, 0, 3, {0x41: "X"}), subtable(4, 3, 1, {0x41: "Y"})])
    build(f"{out}/format4_first_enc3.ttf", base_glyphs(), {},
          [subtable(4, 0, 3, {0x41: "X"}), subtable(4, 3, 3, {0x41: "Y"})])
    # Encoding 1 on platform 1 would win if platform 1 counted.
    build(f"{out}/platform1_ignored.ttf", base_glyphs(), {},
          [subtable(4, 0, 3, {0x41: "X"}), subtable(4, 1, 1, {0x41: "Y"})])
    build(f"{out}/platform1_only.ttf", base_glyphs(), {},
          [subtable(4, 1, 1, {0x41: "X"}), subtable(12, 1, 10, {0x41: "Y"})])
    glyphs = base_glyphs()
    glyphs["smile"] = simple([(0, 0, True), (250, 500, True), (500, 0, True)])
    glyphs["Z"] = rectangle(0, 0, 100, 100)
    build(f"{out}/bmp_fallback.ttf", glyphs, {},
          [subtable(4, 3, 1, {0x41: "X"}), subtable(12, 3, 10, {0x41: "Z", 0x42: "Y", 0x1F600: "smile"})])
    build(f"{out}/descent_positive.ttf", base_glyphs(), {}, [subtable(4, 3, 1, letters)], descent=200)


def shapes_font(out):
    glyphs = {".notdef": rectangle(50, 0, 450, 700), "square": rectangle(0, 0, 200, 200)}
    # Starts on a control point; the last point is on the curve.
    glyphs["offstart"] = simple([(300, 0, False), (600, 300, True), (300, 600, True), (0, 300, True)])
    # Control points only: a closed chain of curves through their midpoints.
    glyphs["alloff"] = simple([(0, 0, False), (400, 0, False), (400, 400, False), (0, 400, False)])
    glyphs["scaled"] = composite(
        component("alloff", 100, 50, [[0.5, 0], [0, 0.5]], SCALED_COMPONENT_OFFSET),
        component("offstart", 1000, 0, [[1.5, 0], [0, 0.75]]),
        component("alloff", -20, 10))
    previous = "square"
    for depth in range(1, 14):
        glyphs[f"n{depth}"] = composite(component(previous, 10, 0))
        previous = f"n{depth}"
    glyphs["anchored"] = composite(component("square"), component("square", points=(0, 2)))
    # The last three share one advance, so that hmtx carries fewer pairs than glyphs.
    glyphs["tail1"] = rectangle(10, 0, 100, 100)
    glyphs["tail2"] = rectangle(20, 0, 100, 100)
    glyphs["tail3"] = rectangle(30, 0, 100, 100)
    advances = {name: 500 + 7 * i for i, name in enumerate(glyphs)}
    advances.update({"tail1": 555, "tail2": 555, "tail3": 555})
    mapping = {0x41: "offstart", 0x42: "alloff", 0x43: "scaled", 0x44: "n12", 0x45: "n13", 0x46: "anchored",
               0x47: "tail3", 0x48: "square"}
    build(f"{out}/shapes.ttf", glyphs, advances, [subtable(4, 3, 1, mapping)])

    data = bytearray(open(f"{out}/shapes.ttf", "rb").read())
    _, hhea, _ = table_record(data, b"hhea")
    assert struct.unpack(">H", data[hhea + 34:hhea + 36])[0] == len(glyphs) - 2
    _, head, _ = table_record(data, b"head")
    assert struct.unpack(">h", data[head + 50:head + 52])[0] == 0, "short loca expected"
    # The last loca entry points one word beyond the end of glyf.
    _, loca, _ = table_record(data, b"loca")
    _, _, glyf_length = table_record(data, b"glyf")
    last = loca + 2 * len(glyphs)
    data[last:last + 2] = struct.pack(">H", glyf_length // 2 + 1)
    open(f"{out}/bad_loca.ttf", "wb").write(data)


def raw_simple(points, ends=None):
    """Glyph bytes with one flag and 16-bit deltas per point; `ends` may lie."""
    ends = ends if ends is not None else [len(points) - 1]
    xs = [x for x, _, _ in points] or [0]
    ys = [y for _, y, _ in points] or [0]
    data = struct.pack(">hhhhh", len(ends), min(xs), min(ys), max(xs), max(ys))
    data += b"".join(struct.pack(">H", end) for end in ends) + struct.pack(">H", 0)
    data += bytes(1 if on else 0 for _, _, on in points)
    for axis in (0, 1):
        last = 0
        for point in points:
            data += struct.pack(">h", point[axis] - last)
            last = point[axis]
    return data


def raw_composite(ids, count):
    """`count` copies of the glyphs `ids`, byte offsets of zero."""
    data = struct.pack(">hhhhh", -1, 0, 0, 0, 0)
    parts = [ids[i % len(ids)] for i in range(count)]
    for i, glyph in enumerate(parts):
        more = 0x0020 if i + 1 < len(parts) else 0
        data += struct.pack(">HHbb", 0x0002 | more, glyph, 0, 0)
    return data


def hostile_font(out):
    """Glyphs that cost a careless reader time, memory or its life."""
    order = [".notdef", "base", "fan1", "fan2", "fan3", "space", "wide1", "wide2", "selfref", "badend"]
    gid = {name: i for i, name in enumerate(order)}
    ring = [(int(300 + 250 * c), int(300 + 250 * s), True)
            for c, s in [(1, 0), (0.92, 0.38), (0.71, 0.71), (0.38, 0.92), (0, 1), (-0.38, 0.92), (-0.71, 0.71),
                         (-0.92, 0.38), (-1, 0), (-0.92, -0.38), (-0.71, -0.71), (-0.38, -0.92), (0, -1),
                         (0.38, -0.92), (0.71, -0.71), (0.92, -0.38)]]
    raw = {
        ".notdef": raw_simple([(0, 0, True), (0, 500, True), (500, 500, True), (500, 0, True)]),
        "base": raw_simple(ring),
        # 16, 1600, 160000 points; the last one 16 million.
        "fan1": raw_composite([gid["base"]], 100),
        "fan2": raw_composite([gid["fan1"]], 100),
        "fan3": raw_composite([gid["fan2"]], 100),
        "space": b"",
        # A million components that draw nothing.
        "wide1": raw_composite([gid["space"]], 1000),
        "wide2": raw_composite([gid["wide1"]], 1000),
        "selfref": raw_composite([gid["selfref"]], 2),
        # The second contour ends before it starts.
        "badend": raw_simple([(i * 10, (i % 2) * 100, True) for i in range(6)], ends=[4, 3]),
    }
    glyphs = {name: Glyph(raw[name]) if raw[name] else empty() for name in order}
    mapping = {ord("a") + i: name for i, name in enumerate(order[1:])}
    build(f"{out}/hostile.ttf", glyphs, {"fan3": 321, "wide2": 432}, [subtable(4, 3, 1, mapping)], recalc=False)


def tail_font(path, victim):
    """A font whose last glyph, mapped to 'a', ends the file: its reads have nowhere to stray."""
    glyphs = {".notdef": Glyph(raw_simple([(0, 0, True), (0, 500, True), (500, 500, True)])), "victim": Glyph(victim)}
    build(path, glyphs, {"victim": 345}, [subtable(4, 3, 1, {0x61: "victim"})], recalc=False)
    data = bytearray(open(path, "rb").read())
    record, offset, length = table_record(data, b"glyf")
    # Glyphs are padded to even lengths; the victim's own bytes must be the file's last.
    glyf = data[offset:offset + length]
    if len(victim) % 2:
        glyf = glyf[:-1]
        _, loca, _ = table_record(data, b"loca")
    data[record + 8:record + 16] = struct.pack(">II", len(data), len(glyf))
    data += glyf
    if len(victim) % 2:
        end = struct.unpack(">H", data[loca + 4:loca + 6])[0] * 2
        assert end == len(glyf) + 1
        data[loca + 4:loca + 6] = struct.pack(">H", len(glyf) // 2)
    open(path, "wb").write(data)


def tail_fonts(out):
    # 65535 points claimed, three flag bytes given.
    tail_font(f"{out}/many_points.ttf", struct.pack(">hhhhhHH", 1, 0, 0, 10, 10, 65534, 0) + bytes([0x39, 255, 0x01]))
    # Ten points, coordinates for two.
    tail_font(f"{out}/short_coordinates.ttf", raw_simple([(i, i, True) for i in range(10)])[:28])
    # A repeat flag without its count.
    tail_font(f"{out}/short_flags.ttf", struct.pack(">hhhhhHH", 1, 0, 0, 10, 10, 9, 0) + bytes([0x01, 0x09]))
    # Instructions longer than the glyph.
    tail_font(f"{out}/short_instructions.ttf", struct.pack(">hhhhhHH", 1, 0, 0, 10, 10, 2, 500) + bytes(20))


def main():
    out = sys.argv[1]
    cmap_fonts(out)
    shapes_font(out)
    hostile_font(out)
    tail_fonts(out)


if __name__ == "__main__":
    main()
