// Where our PNG reader's rules differ from a general PNG library's, and the APNG squash: small
// files built by hand, with zlib as the compressor.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>

#include "codec/codec.h"
#include "support.h"

using namespace codec_test;

namespace {

bool load(const Bytes& file, ot::png::Image& image) { return ot::png::load_memory(file.data(), file.size(), image); }

Bytes rgba_png(uint32_t w, uint32_t h, const Bytes& rgba, std::vector<Bytes> before = {}) {
    before.insert(before.begin(), ihdr(w, h, 8, 6));
    before.push_back(chunk("IDAT", zlib_compress(unfiltered_rows(rgba, w, h))));
    return png_file(before);
}

Bytes u32s(std::initializer_list<uint32_t> values) {
    Bytes out;
    for (auto v : values) put_u32(out, v);
    return out;
}

Bytes actl(uint32_t frames) { return chunk("acTL", u32s({frames, 0})); }

Bytes fctl(uint32_t seq, uint32_t w, uint32_t h, uint32_t x, uint32_t y, uint8_t dispose, uint8_t blend) {
    Bytes data = u32s({seq, w, h, x, y});
    data.insert(data.end(), {0, 1, 0, 10, dispose, blend});
    return chunk("fcTL", data);
}

Bytes fdat(uint32_t seq, const Bytes& rgba, uint32_t w, uint32_t h) {
    Bytes data = u32s({seq});
    Bytes z = zlib_compress(unfiltered_rows(rgba, w, h));
    data.insert(data.end(), z.begin(), z.end());
    return chunk("fdAT", data);
}

Bytes idat_rgba(const Bytes& rgba, uint32_t w, uint32_t h) {
    return chunk("IDAT", zlib_compress(unfiltered_rows(rgba, w, h)));
}

Bytes solid(uint32_t count, Bytes pixel) {
    Bytes out;
    for (uint32_t i = 0; i < count; ++i) out.insert(out.end(), pixel.begin(), pixel.end());
    return out;
}

}  // namespace

TEST(PngRules, RefusesWhatAGeneralLibraryAccepts) {
    ot::png::Image image;
    const Bytes pixels = solid(6, {1, 2, 3, 4});
    ASSERT_TRUE(load(rgba_png(3, 2, pixels), image));
    EXPECT_EQ(image.pixels, pixels);

    // A 4-bit grey and a 4-bit palette file, valid by the standard.
    EXPECT_FALSE(load(png_file({ihdr(2, 1, 4, 0), chunk("IDAT", zlib_compress({0, 0x12}))}), image));
    EXPECT_FALSE(load(png_file({ihdr(2, 1, 4, 3), chunk("PLTE", Bytes(6, 9)), chunk("IDAT", zlib_compress({0, 0x01}))}),
                      image));
    // A flipped bit in an ancillary chunk.
    Bytes text = rgba_png(3, 2, pixels, {chunk("tEXt", {'a', 0, 'b'})});
    ASSERT_TRUE(load(text, image));
    text[8 + 25 + 9] ^= 0x10;
    EXPECT_FALSE(load(text, image));
    // One spare byte after the last row.
    Bytes rows = unfiltered_rows(pixels, 3, 2);
    rows.push_back(0);
    EXPECT_FALSE(load(png_file({ihdr(3, 2, 8, 6), chunk("IDAT", zlib_compress(rows))}), image));
    // An unknown critical chunk; a second IHDR.
    EXPECT_FALSE(load(rgba_png(3, 2, pixels, {chunk("ABCD", {})}), image));
    EXPECT_FALSE(load(rgba_png(3, 2, pixels, {ihdr(3, 2, 8, 6)}), image));
    EXPECT_TRUE(image.pixels.empty());
    EXPECT_EQ(image.width, 0u);
}

TEST(PngRules, PaletteTransparencyAndEmptyIdat) {
    ot::png::Image image;
    // Three entries and two tRNS bytes: the third entry stays opaque.
    const Bytes plte = {10, 20, 30, 40, 50, 60, 70, 80, 90};
    Bytes file = png_file({ihdr(3, 1, 8, 3), chunk("PLTE", plte), chunk("tRNS", {0, 128}),
                           chunk("IDAT", zlib_compress({0, 0, 1, 2}))});
    ASSERT_TRUE(load(file, image));
    EXPECT_EQ(image.pixels, (Bytes{10, 20, 30, 0, 40, 50, 60, 128, 70, 80, 90, 255}));
    // An index past the palette fails; tRNS longer than the palette fails.
    EXPECT_FALSE(load(png_file({ihdr(1, 1, 8, 3), chunk("PLTE", plte), chunk("IDAT", zlib_compress({0, 3}))}), image));
    EXPECT_FALSE(load(png_file({ihdr(1, 1, 8, 3), chunk("PLTE", plte), chunk("tRNS", {1, 2, 3, 4}),
                                chunk("IDAT", zlib_compress({0, 0}))}),
                      image));
    // Empty IDAT chunks among others change nothing, also with the stream split across chunks.
    const Bytes pixels = solid(4, {9, 8, 7, 6});
    const Bytes z = zlib_compress(unfiltered_rows(pixels, 2, 2));
    file = png_file({ihdr(2, 2, 8, 6), chunk("IDAT", {}), chunk("IDAT", Bytes(z.begin(), z.begin() + 5)),
                     chunk("IDAT", {}), chunk("IDAT", Bytes(z.begin() + 5, z.end()))});
    ASSERT_TRUE(load(file, image));
    EXPECT_EQ(image.pixels, pixels);
    // 16-bit grey with a key matches the full sample.
    Bytes rows = {0, 0x12, 0x34, 0x12, 0x35};
    file = png_file({ihdr(2, 1, 16, 0), chunk("tRNS", {0x12, 0x34}), chunk("IDAT", zlib_compress(rows))});
    ASSERT_TRUE(load(file, image));
    EXPECT_EQ(image.pixels, (Bytes{18, 18, 18, 0, 18, 18, 18, 255}));
}

TEST(PngRules, HugeClaimsWithTinyDataFailFastWithoutAllocating) {
    rusage before{}, after{};
    getrusage(RUSAGE_SELF, &before);
    const auto start = std::chrono::steady_clock::now();
    ot::png::Image image;
    const Bytes tiny = zlib_compress(Bytes(100, 0));
    EXPECT_FALSE(load(png_file({ihdr(100000, 100000, 8, 6), chunk("IDAT", tiny)}), image));
    EXPECT_FALSE(load(png_file({ihdr(100000, 100000, 8, 6, 1), chunk("IDAT", tiny)}), image));
    // Grey rows are shorter than the image's: the stream would be inflated behind room for it.
    EXPECT_FALSE(load(png_file({ihdr(100000, 100000, 8, 0), chunk("IDAT", tiny)}), image));
    // An APNG whose only frame replaces the default image and covers one pixel.
    EXPECT_FALSE(load(png_file({ihdr(100000, 100000, 8, 6), actl(1), fctl(0, 1, 1, 0, 0, 0, 0),
                                idat_rgba({1, 2, 3, 4}, 1, 1)}),
                      image));
    // A stream that expands far beyond its rows.
    EXPECT_FALSE(load(png_file({ihdr(4, 4, 8, 6), chunk("IDAT", zlib_compress(Bytes(50 << 20, 0)))}), image));
    getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 200 * 1024) << "kilobytes of peak memory grew";
}

TEST(PngRules, AnimationIsSquashedIntoOneStillImage) {
    ot::png::Image image;
    const Bytes red = solid(4, {255, 0, 0, 255}), blue = solid(1, {0, 0, 255, 255});
    const Bytes clear = solid(1, {0, 0, 0, 0}), half = solid(1, {0, 255, 0, 128});
    // The first fcTL comes after IDAT: the default image is the bottom layer.
    Bytes file = png_file({ihdr(2, 2, 8, 6), actl(2), idat_rgba(red, 2, 2), fctl(0, 1, 1, 1, 0, 2, 0),
                           fdat(1, blue, 1, 1), fctl(2, 1, 1, 0, 1, 1, 1), fdat(3, half, 1, 1)});
    ASSERT_TRUE(load(file, image));
    // Blend over: alpha 128 green on opaque red.
    EXPECT_EQ(image.pixels, (Bytes{255, 0, 0, 255, 0, 0, 255, 255, 127, 128, 0, 255, 255, 0, 0, 255}));
    // Blend 0 with alpha 0 clears the canvas there; the frame count may exceed the frames.
    file = png_file({ihdr(2, 2, 8, 6), actl(5), fctl(0, 2, 2, 0, 0, 0, 0), idat_rgba(red, 2, 2),
                     fctl(1, 1, 1, 1, 1, 0, 0), fdat(2, clear, 1, 1)});
    ASSERT_TRUE(load(file, image));
    EXPECT_EQ(image.pixels, (Bytes{255, 0, 0, 255, 255, 0, 0, 255, 255, 0, 0, 255, 0, 0, 0, 0}));
    // ... but not be below them, nor 0.
    file = png_file({ihdr(2, 2, 8, 6), actl(1), fctl(0, 2, 2, 0, 0, 0, 0), idat_rgba(red, 2, 2),
                     fctl(1, 1, 1, 1, 1, 0, 0), fdat(2, clear, 1, 1)});
    EXPECT_FALSE(load(file, image));
    EXPECT_FALSE(load(png_file({ihdr(2, 2, 8, 6), actl(0), idat_rgba(red, 2, 2)}), image));
    // A frame reaching past the canvas, a frame without data, acTL after IDAT, fcTL without acTL.
    EXPECT_FALSE(load(png_file({ihdr(2, 2, 8, 6), actl(1), idat_rgba(red, 2, 2), fctl(0, 2, 1, 1, 0, 0, 0),
                                fdat(1, solid(2, {1, 1, 1, 1}), 2, 1)}),
                      image));
    EXPECT_FALSE(load(png_file({ihdr(2, 2, 8, 6), actl(2), idat_rgba(red, 2, 2), fctl(0, 1, 1, 0, 0, 0, 0)}), image));
    EXPECT_FALSE(load(png_file({ihdr(2, 2, 8, 6), idat_rgba(red, 2, 2), actl(1)}), image));
    EXPECT_FALSE(load(png_file({ihdr(2, 2, 8, 6), fctl(0, 2, 2, 0, 0, 0, 0), idat_rgba(red, 2, 2)}), image));
}

TEST(PngRules, FormatIsFoundFromContentOnly) {
    const Bytes png = rgba_png(1, 1, {1, 2, 3, 4});
    const fs::path dir = scratch_dir("detect");
    write_file(dir / "x.bmp", png);
    ot::png::Image image;
    EXPECT_TRUE(ot::png::load_file((dir / "x.bmp").c_str(), image));
    EXPECT_EQ(ot::png::detect_format(png.data(), png.size()), ot::png::kFormatPng);
    EXPECT_EQ(ot::png::detect_format(png.data(), 7), ot::png::kFormatUnknown);
    const Bytes xcf13 = {'g', 'i', 'm', 'p', ' ', 'x', 'c', 'f', ' ', 'v', '0', '1', 0};
    EXPECT_EQ(ot::png::detect_format(xcf13.data(), 13), ot::png::kFormatUnknown);
    Bytes xcf14 = xcf13;
    xcf14.push_back(0);
    EXPECT_EQ(ot::png::detect_format(xcf14.data(), 14), ot::png::kFormatXcf);
    const Bytes jpeg = {0xFF, 0xD8, 0xFF, 0xE0}, notJpeg = {0xFF, 0xD8, 0x00, 0xE0};
    EXPECT_EQ(ot::png::detect_format(jpeg.data(), jpeg.size()), ot::png::kFormatJpeg);
    EXPECT_EQ(ot::png::detect_format(notJpeg.data(), notJpeg.size()), ot::png::kFormatUnknown);
    // A TGA footer makes any header a TGA, unless an earlier test matched.
    Bytes footed(30, 0xEE);
    const char footer[] = "TRUEVISION-XFILE.";
    std::copy(footer, footer + 18, footed.end() - 18);
    EXPECT_EQ(ot::png::detect_format(footed.data(), footed.size()), ot::png::kFormatTga);
    footed[0] = 'B', footed[1] = 'M';
    EXPECT_EQ(ot::png::detect_format(footed.data(), footed.size()), ot::png::kFormatBmp);
    EXPECT_EQ(ot::png::detect_format(nullptr, 10), ot::png::kFormatUnknown);
    // Missing and empty files fail.
    write_file(dir / "empty", {});
    EXPECT_FALSE(ot::png::load_file((dir / "empty").c_str(), image));
    EXPECT_FALSE(ot::png::load_file((dir / "missing").c_str(), image));
    EXPECT_FALSE(ot::png::load_file(nullptr, image));
    fs::remove_all(dir);
}

TEST(PngRules, WrittenFilesHaveTheAgreedLayout) {
    const fs::path dir = scratch_dir("png_writer");
    ot::png::Image image;
    // A 1 by 1 image: one IDAT holding one stored block of 5 bytes.
    const Bytes one = {200, 100, 50, 0};
    ASSERT_TRUE(ot::png::save_png_rgba8_file((dir / "one.png").c_str(), one.data(), 1, 1));
    Bytes file = read_file(dir / "one.png");
    ASSERT_EQ(file.size(), 8u + 25 + (12 + 2 + 5 + 5 + 4) + 12);
    EXPECT_EQ(Bytes(file.begin() + 41, file.begin() + 48), (Bytes{0x78, 0x01, 1, 5, 0, 0xFA, 0xFF}));
    ASSERT_TRUE(ot::png::load_file((dir / "one.png").c_str(), image));
    EXPECT_EQ(image.pixels, one);  // colour under alpha 0 kept
    // All zero: filter None on every row. Over 262144 bytes of stream: several IDAT, the last shorter.
    const uint32_t w = 300, h = 300;
    Bytes zeros(size_t(w) * h * 4, 0);
    ASSERT_TRUE(ot::png::save_png_rgba8_file((dir / "zeros.png").c_str(), zeros.data(), w, h));
    file = read_file(dir / "zeros.png");
    std::vector<uint32_t> idat;
    Bytes stream;
    for (size_t p = 8; p + 12 <= file.size();) {
        const uint32_t length = uint32_t(file[p]) << 24 | file[p + 1] << 16 | file[p + 2] << 8 | file[p + 3];
        if (std::equal(file.begin() + p + 4, file.begin() + p + 8, "IDAT")) {
            idat.push_back(length);
            stream.insert(stream.end(), file.begin() + p + 8, file.begin() + p + 8 + length);
        }
        p += 12 + length;
    }
    ASSERT_EQ(idat.size(), 2u);
    EXPECT_EQ(idat[0], 0x40000u);
    EXPECT_LT(idat[1], 0x40000u);
    Bytes rows(size_t(w * 4 + 1) * h);
    uLongf size = rows.size();
    ASSERT_EQ(uncompress(rows.data(), &size, stream.data(), stream.size()), Z_OK);
    for (uint32_t y = 0; y < h; ++y) EXPECT_EQ(rows[size_t(y) * (w * 4 + 1)], 0) << "row " << y;
    // Bad arguments fail before a file is made.
    EXPECT_FALSE(ot::png::save_png_rgba8_file((dir / "bad.png").c_str(), one.data(), 0, 1));
    EXPECT_FALSE(ot::png::save_png_rgba8_file((dir / "bad.png").c_str(), nullptr, 1, 1));
    EXPECT_FALSE(ot::png::save_png_rgba8_file(nullptr, one.data(), 1, 1));
    EXPECT_FALSE(fs::exists(dir / "bad.png"));
    EXPECT_FALSE(ot::png::save_png_rgba8_file((dir / "no" / "such.png").c_str(), one.data(), 1, 1));
    fs::remove_all(dir);
}
