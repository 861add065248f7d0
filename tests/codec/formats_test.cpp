// BMP, TGA and REI cases that the outside corpus does not reach, and our writers read back.
#include <gtest/gtest.h>

#include "codec/codec.h"
#include "support.h"

using namespace codec_test;

namespace {

void put_le(Bytes& out, uint32_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) out.push_back(uint8_t(v >> (8 * i)));
}

// A BMP with a 40-byte header (or 108 with masks), rows given already padded.
Bytes bmp(int32_t width, int32_t height, uint16_t bits, uint32_t compression, const Bytes& rows,
          std::vector<uint32_t> masks = {}) {
    const uint32_t dib = masks.size() == 4 ? 108 : 40;
    const uint32_t offset = 14 + dib + (dib == 40 ? uint32_t(masks.size()) * 4 : 0);
    Bytes out = {'B', 'M'};
    put_le(out, offset + uint32_t(rows.size()), 4);
    put_le(out, 0, 4);
    put_le(out, offset, 4);
    put_le(out, dib, 4);
    put_le(out, uint32_t(width), 4);
    put_le(out, uint32_t(height), 4);
    put_le(out, 1, 2);
    put_le(out, bits, 2);
    put_le(out, compression, 4);
    for (int i = 0; i < 5; ++i) put_le(out, 0, 4);
    for (auto m : masks) put_le(out, m, 4);
    out.resize(offset, 0);
    out.insert(out.end(), rows.begin(), rows.end());
    return out;
}

Bytes tga(uint8_t type, uint16_t w, uint16_t h, uint8_t depth, uint8_t descriptor, const Bytes& data) {
    Bytes out(18, 0);
    out[2] = type;
    out[12] = uint8_t(w), out[13] = uint8_t(w >> 8), out[14] = uint8_t(h), out[15] = uint8_t(h >> 8);
    out[16] = depth;
    out[17] = descriptor;
    out.insert(out.end(), data.begin(), data.end());
    return out;
}

Bytes rei(uint32_t w, uint32_t h, const std::vector<std::tuple<uint32_t, int32_t, int32_t, uint32_t, uint32_t, uint8_t, Bytes>>& layers) {
    Bytes out = {'R', 'E', 'I', 'I', 'M', 'G', 0, 1};
    put_le(out, w, 4);
    put_le(out, h, 4);
    put_le(out, uint32_t(layers.size()), 4);
    for (const auto& [flags, x, y, lw, lh, opacity, pixels] : layers) {
        put_le(out, flags, 4);
        put_le(out, uint32_t(x), 4);
        put_le(out, uint32_t(y), 4);
        put_le(out, lw, 4);
        put_le(out, lh, 4);
        out.push_back(opacity);
        out.insert(out.end(), 7, 0);
        out.insert(out.end(), pixels.begin(), pixels.end());
    }
    return out;
}

bool load(const Bytes& file, ot::png::Image& image) { return ot::png::load_memory(file.data(), file.size(), image); }

}  // namespace

TEST(Bmp, AlphaMasksRowOrderAndSixteenBitScaling) {
    ot::png::Image image;
    // 32 bits with an alpha mask whose every alpha byte is 0: fully opaque.
    const std::vector<uint32_t> masks = {0xFF0000, 0xFF00, 0xFF, 0xFF000000};
    ASSERT_TRUE(load(bmp(2, 1, 32, 3, {1, 2, 3, 0, 4, 5, 6, 0}, masks), image));
    EXPECT_EQ(image.pixels, (Bytes{3, 2, 1, 255, 6, 5, 4, 255}));
    ASSERT_TRUE(load(bmp(2, 1, 32, 3, {1, 2, 3, 0, 4, 5, 6, 9}, masks), image));
    EXPECT_EQ(image.pixels, (Bytes{3, 2, 1, 0, 6, 5, 4, 9}));
    // Height -5 keeps the file's row order; +5 turns it over.
    Bytes rows;
    for (uint8_t r = 0; r < 5; ++r) rows.insert(rows.end(), {r, r, r, 0});
    ASSERT_TRUE(load(bmp(1, -5, 24, 0, rows), image));
    for (uint8_t r = 0; r < 5; ++r) EXPECT_EQ(image.pixels[r * 4], r);
    ASSERT_TRUE(load(bmp(1, 5, 24, 0, rows), image));
    for (uint8_t r = 0; r < 5; ++r) EXPECT_EQ(image.pixels[r * 4], 4 - r);
    // 16 bits, compression 0: 5-5-5, each channel (v * 255 + 15) / 31.
    const uint16_t v = 3 << 10 | 17 << 5 | 30;
    ASSERT_TRUE(load(bmp(1, 1, 16, 0, {uint8_t(v), uint8_t(v >> 8), 0, 0}), image));
    EXPECT_EQ(image.pixels, (Bytes{(3 * 255 + 15) / 31, (17 * 255 + 15) / 31, (30 * 255 + 15) / 31, 255}));
    // Run-length compression is refused; so are a palette index past the palette and short data.
    EXPECT_FALSE(load(bmp(1, 1, 8, 1, {0, 0, 0, 0}), image));
    EXPECT_FALSE(load(bmp(1, 1, 4, 2, {0, 0, 0, 0}), image));
    EXPECT_FALSE(load(bmp(4, 4, 24, 0, Bytes(40, 0)), image));
    EXPECT_FALSE(load(Bytes{'B', 'M', 0}, image));
}

TEST(Tga, OriginsRunsAndSixteenBitAlpha) {
    ot::png::Image image;
    const Bytes grey = {1, 2, 3, 4, 5, 6};  // a 2 by 3 stream
    // Bottom-left (bit 5 clear) gives the vertical mirror of the stream; bit 4 mirrors columns.
    ASSERT_TRUE(load(tga(3, 2, 3, 8, 0x20, grey), image));
    EXPECT_EQ(image.pixels[0], 1);
    EXPECT_EQ(image.pixels[5 * 4], 6);
    ASSERT_TRUE(load(tga(3, 2, 3, 8, 0x00, grey), image));
    EXPECT_EQ(image.pixels[0], 5);
    EXPECT_EQ(image.pixels[5 * 4], 2);
    ASSERT_TRUE(load(tga(3, 2, 3, 8, 0x30, grey), image));
    EXPECT_EQ(image.pixels[0], 2);
    // Type 9 or 11 with a run that overruns the image fails rather than writes past it.
    EXPECT_FALSE(load(tga(11, 2, 2, 8, 0x20, {0x84, 7}), image));
    ASSERT_TRUE(load(tga(11, 2, 2, 8, 0x20, {0x83, 7}), image));
    EXPECT_EQ(image.pixels, (Bytes{7, 7, 7, 255, 7, 7, 7, 255, 7, 7, 7, 255, 7, 7, 7, 255}));
    EXPECT_FALSE(load(tga(11, 2, 2, 8, 0x20, {0x02, 7, 7}), image));  // runs out of data
    // 16-bit true colour: top bit is alpha only with attribute bits in the descriptor.
    const Bytes px = {0xFF, 0x7F};  // white, top bit clear
    ASSERT_TRUE(load(tga(2, 1, 1, 16, 0x20, px), image));
    EXPECT_EQ(image.pixels, (Bytes{255, 255, 255, 255}));
    ASSERT_TRUE(load(tga(2, 1, 1, 16, 0x21, px), image));
    EXPECT_EQ(image.pixels, (Bytes{255, 255, 255, 0}));
    // Colour-mapped with a first index: indices below it fail.
    Bytes mapped = tga(1, 1, 1, 8, 0x20, {});
    mapped[1] = 1, mapped[3] = 5, mapped[5] = 1, mapped[7] = 24;
    mapped.insert(mapped.end(), {10, 20, 30, 5});
    ASSERT_TRUE(load(mapped, image));
    EXPECT_EQ(image.pixels, (Bytes{30, 20, 10, 255}));
    mapped.back() = 4;
    EXPECT_FALSE(load(mapped, image));
}

TEST(Rei, LayersStackWithOpacityAndAreClippedToTheCanvas) {
    ot::png::Image image;
    const Bytes quad = {1, 1, 1, 255, 2, 2, 2, 255, 3, 3, 3, 255, 4, 4, 4, 255};
    // A layer at (-1, -1) draws without its first row and column.
    ASSERT_TRUE(load(rei(2, 2, {{1, -1, -1, 2, 2, 255, quad}}), image));
    EXPECT_EQ(image.pixels, (Bytes{4, 4, 4, 255, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    // A hidden layer is skipped; opacity scales alpha before the blend.
    ASSERT_TRUE(load(rei(1, 1, {{1, 0, 0, 1, 1, 255, {200, 0, 0, 255}}, {0, 0, 0, 1, 1, 255, {0, 0, 0, 255}},
                                {1, 0, 0, 1, 1, 0, {0, 200, 0, 255}}}),
                     image));
    EXPECT_EQ(image.pixels, (Bytes{200, 0, 0, 255}));
    ASSERT_TRUE(load(rei(1, 1, {{1, 0, 0, 1, 1, 51, {0, 250, 0, 255}}}), image));
    EXPECT_EQ(image.pixels, (Bytes{0, 250, 0, 51}));
    // A layer whose pixels do not fit fails; bytes after the last layer are ignored.
    Bytes file = rei(1, 1, {{1, 0, 0, 1, 1, 255, {1, 2, 3, 4}}});
    file.pop_back();
    EXPECT_FALSE(load(file, image));
    file.insert(file.end(), {4, 9, 9, 9});
    EXPECT_TRUE(load(file, image));
    EXPECT_FALSE(load(rei(0, 1, {{1, 0, 0, 1, 1, 255, {1, 2, 3, 4}}}), image));
    // A huge canvas over a few bytes of layers is refused before it is allocated.
    EXPECT_FALSE(load(rei(60000, 60000, {{1, 0, 0, 1, 1, 255, {1, 2, 3, 4}}}), image));
    // Layers are stored raw: a megabyte of them does not justify a 32768 by 32768 canvas (4 GiB),
    // while a canvas within the file's size, or within 2048 by 2048, loads.
    const Bytes megabyte(512 * 512 * 4, 7);
    EXPECT_FALSE(load(rei(32768, 32768, {{1, 0, 0, 512, 512, 255, megabyte}}), image));
    EXPECT_TRUE(load(rei(512, 513, {{1, 0, 0, 512, 512, 255, megabyte}}), image));
    EXPECT_TRUE(load(rei(2048, 2048, {{1, 0, 0, 1, 1, 255, {1, 2, 3, 4}}}), image));
    EXPECT_FALSE(load(rei(2048, 2049, {{1, 0, 0, 1, 1, 255, {1, 2, 3, 4}}}), image));
}

TEST(Writers, BmpTgaAndReiReadBackIdentically) {
    const fs::path dir = scratch_dir("writers");
    Bytes pixels;
    for (int i = 0; i < 5 * 3; ++i) pixels.insert(pixels.end(), {uint8_t(i * 17), uint8_t(255 - i), uint8_t(i), uint8_t(i * 5)});
    pixels[3] = 0;  // a transparent pixel keeps its colour
    using Writer = bool (*)(const char*, const uint8_t*, int32_t, int32_t);
    for (auto [name, write] : {std::pair<const char*, Writer>{"a.bmp", ot::png::save_bmp_rgba8_file},
                               {"a.tga", ot::png::save_tga_rgba8_file},
                               {"a.rei", ot::png::save_rei_rgba8_file},
                               {"a.png", ot::png::save_rgba8_file}}) {
        SCOPED_TRACE(name);
        const std::string path = (dir / name).string();
        ASSERT_TRUE(write(path.c_str(), pixels.data(), 5, 3));
        ot::png::Image image;
        ASSERT_TRUE(ot::png::load_file(path.c_str(), image));
        EXPECT_EQ(image.width, 5u);
        EXPECT_EQ(image.height, 3u);
        EXPECT_EQ(image.pixels, pixels);
        EXPECT_FALSE(write(path.c_str(), pixels.data(), 5, -3));
        EXPECT_FALSE(write((dir / "missing" / name).c_str(), pixels.data(), 5, 3));
    }
    fs::remove_all(dir);
}
