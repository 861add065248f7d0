// JPEG: a corpus written by Pillow, ImageMagick and cjpeg at test time and judged by djpeg; small
// files built here for the rules that no encoder reaches; and our writer, judged by djpeg, Pillow
// and the loss of libjpeg's own encoder at the same quantisers.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <iostream>

#include "codec/codec.h"
#include "support.h"

using namespace codec_test;

namespace {

const std::string kJudge = std::string(OT_CODEC_TEST_DIR) + "/jpeg_xcf_oracle.py";

bool load(const Bytes& file, Pixels& out) {
    ot::png::Image image;
    const bool ok = ot::png::load_memory(file.data(), file.size(), image);
    out = {image.width, image.height, image.pixels};
    return ok;
}

Pixels load_path(const fs::path& path) {
    ot::png::Image image;
    EXPECT_TRUE(ot::png::load_file(path.c_str(), image)) << path;
    return {image.width, image.height, image.pixels};
}

uint8_t round_clamp(double v) {
    const double r = std::round(v);  // halves away from zero
    return uint8_t(r < 0 ? 0 : r > 255 ? 255 : r);
}

// Our colour rule, written out again here: double precision, rounded, clamped. The products are
// rounded on their own, as the library has them (built without fused multiply-add).
void ycc_to_rgb(double y, double cb, double cr, uint8_t* rgb) {
    cb -= 128.0;
    cr -= 128.0;
    const volatile double red = 1.402 * cr, greenCb = 0.344136 * cb, greenCr = 0.714136 * cr, blue = 1.772 * cb;
    rgb[0] = round_clamp(y + red);
    rgb[1] = round_clamp(y - greenCb - greenCr);
    rgb[2] = round_clamp(y + blue);
}

// How our pixels of one baseline file stand against djpeg's -dct float -nosmooth.
struct Agreement {
    size_t samples = 0;         // plane samples compared
    size_t halves = 0;          // where djpeg's SIMD and C inverse DCTs part, and we take the C one's
    size_t unexplained = 0;     // anything else: a fault
    size_t colourMismatch = 0;  // our colours against our formula over our planes: must be 0
    size_t rgbDiffering = 0;    // samples of djpeg's RGB that differ from ours
    int rgbWorst = 0;
};

// Every plane sample must be djpeg's. The two float inverse DCTs of libjpeg-turbo (SIMD and C)
// sum in single precision: where the exact sum is a half, or within their error of one, they may
// part (SIMD rounds halves to even). We sum exactly in double precision and round halves up, so
// there ours must be one of theirs. The colours must then be our formula over our planes: they
// differ from djpeg's RGB where libjpeg's 16-bit fixed-point conversion rounds otherwise than
// the double-precision formula, and where a plane sample is at a half.
Agreement judge_against_djpeg(const fs::path& dir, const std::string& name) {
    Agreement a;
    const std::string stem = (dir / fs::path(name).stem()).string();
    const Pixels ours = load_path(dir / name);
    Pixels simd, c, djpeg;
    EXPECT_TRUE(read_rgba_file(stem + ".planes.rgba", simd) && read_rgba_file(stem + ".planes_c.rgba", c) &&
                read_rgba_file(stem + ".djpeg.rgba", djpeg));
    EXPECT_EQ(ours.width, simd.width);
    EXPECT_EQ(ours.height, simd.height);
    if (ours.rgba.size() != simd.rgba.size()) return a;
    // A fourth component outside the scan is all 0, and four components come out as 255 minus
    // each of the first three: so the .four.jpg copy shows our planes.
    Bytes planes(ours.rgba.size());
    const bool grey = !fs::exists(stem + ".four.jpg");
    if (grey) {
        planes = ours.rgba;
    } else {
        const Pixels four = load_path(stem + ".four.jpg");
        EXPECT_EQ(four.rgba.size(), ours.rgba.size());
        if (four.rgba.size() != ours.rgba.size()) return a;
        for (size_t i = 0; i < planes.size(); ++i) planes[i] = i % 4 == 3 ? 255 : uint8_t(255 - four.rgba[i]);
    }
    for (size_t i = 0; i < planes.size(); i += 4) {
        for (size_t k = 0; k < 3; ++k) {
            ++a.samples;
            if (planes[i + k] == simd.rgba[i + k]) continue;
            if (planes[i + k] == c.rgba[i + k]) ++a.halves;
            else ++a.unexplained;
        }
        uint8_t expected[4] = {planes[i], planes[i], planes[i], 255};
        if (!grey) ycc_to_rgb(planes[i], planes[i + 1], planes[i + 2], expected);
        if (!std::equal(expected, expected + 4, &ours.rgba[i])) ++a.colourMismatch;
        for (size_t k = 0; k < 3; ++k) {
            const int d = std::abs(int(ours.rgba[i + k]) - int(djpeg.rgba[i + k]));
            a.rgbDiffering += d != 0;
            a.rgbWorst = std::max(a.rgbWorst, d);
        }
    }
    return a;
}

class JpegCorpus : public testing::Test {
protected:
    static void SetUpTestSuite() {
        dir_ = scratch_dir("jpeg_corpus");
        ASSERT_EQ(run(kPython + " " + kJudge + " jpeg-corpus " + dir_.string()), 0);
        std::ifstream manifest(dir_ / "manifest.txt");
        for (std::string line; std::getline(manifest, line);) {
            if (line.starts_with("decode ")) decodable_.push_back(line.substr(7));
            if (line.starts_with("refuse ")) refused_.push_back(line.substr(7));
        }
    }
    static void TearDownTestSuite() { fs::remove_all(dir_); }

    static inline fs::path dir_;
    static inline std::vector<std::string> decodable_, refused_;
};

}  // namespace

TEST_F(JpegCorpus, BaselineFilesGiveDjpegsSamples) {
    ASSERT_GE(decodable_.size(), 30u);
    Agreement total;
    for (const auto& name : decodable_) {
        SCOPED_TRACE(name);
        const Agreement a = judge_against_djpeg(dir_, name);
        EXPECT_GT(a.samples, 0u);
        EXPECT_EQ(a.unexplained, 0u) << "plane samples that are neither of djpeg's";
        EXPECT_EQ(a.colourMismatch, 0u) << "pixels that are not our colour formula over our planes";
        EXPECT_LE(a.rgbWorst, 2);
        total.samples += a.samples;
        total.halves += a.halves;
        total.rgbDiffering += a.rgbDiffering;
        total.rgbWorst = std::max(total.rgbWorst, a.rgbWorst);
    }
    // At a half the exact sum is rare: a handful in the corpus.
    EXPECT_LE(total.halves * 1000, total.samples);
    std::cout << "[ jpeg ] " << decodable_.size() << " files, " << total.samples << " plane samples: "
              << total.samples - total.halves << " equal to djpeg's, " << total.halves
              << " at a half (djpeg's C code's); " << total.rgbDiffering
              << " RGB samples differ from djpeg's by the colour rule, by at most " << total.rgbWorst << "\n";
}

TEST_F(JpegCorpus, OtherFrameTypesAreRefused) {
    ASSERT_GE(refused_.size(), 4u);
    for (const auto& line : refused_) {
        const std::string name = line.substr(0, line.find(' '));
        SCOPED_TRACE(line);
        Pixels out;
        const Bytes file = read_file(dir_ / name);
        EXPECT_EQ(ot::png::detect_format(file.data(), file.size()), ot::png::kFormatJpeg);
        EXPECT_FALSE(load(file, out));
        EXPECT_EQ(out.width, 0u);
        EXPECT_TRUE(out.rgba.empty());
    }
}

namespace {

// Small files built by hand. The Huffman tables are our writer's: DC categories 0 to 11 have
// 4-bit codes equal to the category; AC symbol 0 (end of block) is 00000000 and symbol s is s + 1
// in 9 bits.
struct Bits {
    Bytes out;
    uint32_t current = 0;
    int count = 0;

    void put(uint32_t value, int length) {
        for (int i = length - 1; i >= 0; --i) {
            current = current << 1 | (value >> i & 1);
            if (++count == 8) flush();
        }
    }
    void flush() {
        out.push_back(uint8_t(current));
        if (current == 0xFF) out.push_back(0);
        current = 0;
        count = 0;
    }
    void pad() {
        while (count) put(1, 1);
    }
};

int category(int v) {
    int bits = 0;
    for (int m = std::abs(v); m; m >>= 1) ++bits;
    return bits;
}

void put_value(Bits& bits, int v) {
    const int c = category(v);
    bits.put(uint32_t(v < 0 ? v + (1 << c) - 1 : v), c);
}

// One block: a DC difference, then (run, value) pairs, then the end of block when asked.
void put_block(Bits& bits, int dcDifference, std::vector<std::pair<int, int>> ac = {}, bool endOfBlock = true) {
    bits.put(uint32_t(category(dcDifference)), 4);
    put_value(bits, dcDifference);
    for (auto [run, value] : ac) {
        bits.put(uint32_t(run * 16 + category(value) + 1), 9);
        put_value(bits, value);
    }
    if (endOfBlock) bits.put(0, 8);
}

void put_zero_run(Bits& bits) { bits.put(0xF0 + 1, 9); }

Bytes segment(uint8_t marker, const Bytes& payload) {
    Bytes out = {0xFF, marker, uint8_t((payload.size() + 2) >> 8), uint8_t(payload.size() + 2)};
    out.insert(out.end(), payload.begin(), payload.end());
    return out;
}

// Every quantiser 8, so that a block of DC only is 128 plus its prediction, exactly.
Bytes dqt(uint8_t table = 0, int precision = 0) {
    Bytes p = {uint8_t(precision << 4 | table)};
    for (int i = 0; i < 64; ++i) {
        if (precision) p.push_back(0);
        p.push_back(8);
    }
    return segment(0xDB, p);
}

Bytes dht(uint8_t tableClass, uint8_t number) {
    Bytes p = {uint8_t(tableClass << 4 | number)};
    Bytes counts(16, 0);
    if (tableClass == 0) counts[3] = 12;
    else counts[7] = 1, counts[8] = 255;
    p.insert(p.end(), counts.begin(), counts.end());
    for (int s = 0; s < (tableClass ? 256 : 12); ++s) p.push_back(uint8_t(s));
    return segment(0xC4, p);
}

struct Component {
    uint8_t id, h, v, table;
};

Bytes sof(uint16_t w, uint16_t h, const std::vector<Component>& components, uint8_t marker = 0xC0, uint8_t precision = 8) {
    Bytes p = {precision, uint8_t(h >> 8), uint8_t(h), uint8_t(w >> 8), uint8_t(w), uint8_t(components.size())};
    for (const auto& c : components) p.insert(p.end(), {c.id, uint8_t(c.h << 4 | c.v), c.table});
    return segment(marker, p);
}

Bytes sos(const std::vector<uint8_t>& ids, Bytes selection = {0, 63, 0}, uint8_t tables = 0x00) {
    Bytes p = {uint8_t(ids.size())};
    for (uint8_t id : ids) p.insert(p.end(), {id, tables});
    p.insert(p.end(), selection.begin(), selection.end());
    return segment(0xDA, p);
}

Bytes dri(uint16_t interval) { return segment(0xDD, {uint8_t(interval >> 8), uint8_t(interval)}); }

Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

const Bytes kSoi = {0xFF, 0xD8}, kEoi = {0xFF, 0xD9};
const Bytes kTables = cat({dqt(0), dht(0, 0), dht(1, 0)});

// A grey image of DC-only blocks with the given differences, in one interval each when asked.
Bytes grey_file(uint16_t w, uint16_t h, const Bytes& entropy, const Bytes& extra = {}) {
    return cat({kSoi, kTables, extra, sof(w, h, {{1, 1, 1, 0}}), sos({1}), entropy, kEoi});
}

Bytes pad(Bits bits) {
    bits.pad();
    return bits.out;
}

std::vector<uint8_t> column_of_samples(const Pixels& p, uint32_t y = 0) {
    std::vector<uint8_t> out;
    for (uint32_t x = 0; x < p.width; x += 8) out.push_back(p.rgba[(size_t(y) * p.width + x) * 4]);
    return out;
}

}  // namespace

TEST(JpegRules, PredictionsRestartsAndMarkersInTheData) {
    Pixels out;
    Bits two;
    put_block(two, 10);
    put_block(two, 5);
    ASSERT_TRUE(load(grey_file(16, 8, pad(two)), out));
    EXPECT_EQ(column_of_samples(out), (std::vector<uint8_t>{138, 143}));  // the prediction carries on
    for (size_t i = 0; i < out.rgba.size(); i += 4) {
        EXPECT_TRUE(out.rgba[i] == out.rgba[i + 1] && out.rgba[i] == out.rgba[i + 2]);  // grey
        EXPECT_EQ(out.rgba[i + 3], 255);
    }

    // With a restart interval of one MCU the prediction starts again from 0: with the marker,
    // or without one (a byte other than 0xFF follows and is taken as data).
    Bits first, second;
    put_block(first, 10);
    put_block(second, 5);
    const Bytes a = pad(first), b = pad(second);
    for (const Bytes& between : {Bytes{0xFF, 0xD0}, Bytes{}, Bytes{0xFF, 0xD7}}) {
        ASSERT_TRUE(load(grey_file(16, 8, cat({a, between, b}), dri(1)), out));
        EXPECT_EQ(column_of_samples(out), (std::vector<uint8_t>{138, 133}));
    }
    // A restart marker inside an interval is passed over.
    Bits long_run;
    for (int i = 0; i < 4; ++i) put_block(long_run, 3);
    Bytes data = pad(long_run);
    data.insert(data.begin() + 2, {0xFF, 0xD3});
    ASSERT_TRUE(load(grey_file(32, 8, data), out));
    EXPECT_EQ(column_of_samples(out), (std::vector<uint8_t>{131, 134, 137, 140}));

    // The scan's data cut short, or missing, fails.
    data = pad(long_run);
    data.resize(data.size() / 2);
    EXPECT_FALSE(load(grey_file(32, 8, data), out));
    EXPECT_FALSE(load(grey_file(32, 8, {}), out));
    EXPECT_FALSE(load(grey_file(16, 8, cat({a, {0xFF}}), dri(1)), out));  // only fill bytes after the interval
}

TEST(JpegRules, HuffmanAndQuantisationTablesAreChecked) {
    Pixels out;
    Bits block;
    put_block(block, 1, {{0, 5}, {3, -2}});
    const Bytes data = pad(block);
    const Bytes frame = cat({sof(8, 8, {{1, 1, 1, 0}}), sos({1}), data, kEoi});
    ASSERT_TRUE(load(cat({kSoi, kTables, frame}), out));
    const Pixels good = out;
    // 16-bit quantisers of the same values read the same.
    ASSERT_TRUE(load(cat({kSoi, dqt(0, 1), dht(0, 0), dht(1, 0), frame}), out));
    EXPECT_EQ(out, good);

    auto huffman = [](uint8_t head, Bytes counts, size_t symbols) {
        Bytes p = {head};
        p.insert(p.end(), counts.begin(), counts.end());
        for (size_t s = 0; s < symbols; ++s) p.push_back(uint8_t(s));
        return segment(0xC4, p);
    };
    Bytes over(16, 0);
    over[0] = 3;  // three codes of one bit
    Bytes full(16, 0);
    full[0] = 2;  // both codes of one bit: a full table is allowed
    Bytes twelve(16, 0);
    twelve[3] = 12;
    for (const auto& [bad, why] : std::vector<std::pair<Bytes, const char*>>{
             {huffman(0x00, over, 3), "more codes than fit"},
             {huffman(0x00, twelve, 11), "twelve codes, eleven symbols"},
             {huffman(0x20, full, 2), "class 2"},
             {huffman(0x04, full, 2), "table 4"},
             {segment(0xDB, {0x20}), "quantiser precision 2"},
             {segment(0xDB, {0x04, 1, 2, 3}), "table 4 and too short"},
             {segment(0xDB, Bytes(64, 8)), "one value short"}}) {
        SCOPED_TRACE(why);
        EXPECT_FALSE(load(cat({kSoi, kTables, bad, frame}), out));
    }
    EXPECT_TRUE(load(cat({kSoi, kTables, huffman(0x01, full, 2), frame}), out));  // a full table, unused

    // The tables of the scan's component must be there: quantisers, DC, AC.
    EXPECT_FALSE(load(cat({kSoi, dht(0, 0), dht(1, 0), frame}), out));
    EXPECT_FALSE(load(cat({kSoi, dqt(0), dht(1, 0), frame}), out));
    EXPECT_FALSE(load(cat({kSoi, dqt(0), dht(0, 0), frame}), out));

    // A DC category of 12 or more, and an AC coefficient past 63, fail; runs of sixteen zeros
    // that carry the position past 63 just end the block.
    Bits dc12;
    dc12.put(12, 4);
    EXPECT_FALSE(load(grey_file(8, 8, pad(dc12)), out));
    Bits past;
    put_block(past, 0, {{15, 1}, {15, 1}, {15, 1}, {15, 1}});
    EXPECT_FALSE(load(grey_file(8, 8, pad(past)), out));
    Bits zeros;
    put_block(zeros, 4, {}, false);
    for (int i = 0; i < 4; ++i) put_zero_run(zeros);
    put_block(zeros, 2);
    ASSERT_TRUE(load(grey_file(16, 8, pad(zeros)), out));
    EXPECT_EQ(column_of_samples(out), (std::vector<uint8_t>{132, 134}));
}

TEST(JpegRules, FrameAndScanHeadersAreChecked) {
    Pixels out;
    Bits block;
    put_block(block, 0);
    const Bytes data = pad(block);
    auto file = [&](const Bytes& frame, const Bytes& scan, const Bytes& before = {}) {
        return cat({kSoi, kTables, before, frame, scan, data, kEoi});
    };
    const Bytes frame = sof(8, 8, {{1, 1, 1, 0}}), scan = sos({1});
    ASSERT_TRUE(load(file(frame, scan), out));
    // Fill bytes before a marker, bytes between segments, a second SOI and 0xC8 are passed over.
    EXPECT_TRUE(load(file(frame, scan, {0x12, 0x34, 0xFF, 0xFF, 0xD8, 0xFF, 0x01}), out));
    EXPECT_TRUE(load(file(frame, scan, segment(0xC8, {1, 2})), out));

    for (const auto& [bad, why] : std::vector<std::pair<Bytes, const char*>>{
             {file(sof(8, 8, {{1, 1, 1, 0}}, 0xC0, 12), scan), "12-bit samples"},
             {file(sof(0, 8, {{1, 1, 1, 0}}), scan), "width 0"},
             {file(sof(8, 0, {{1, 1, 1, 0}}), scan), "height 0"},
             {file(sof(8, 8, {{1, 1, 1, 0}, {2, 1, 1, 0}}), sos({1})), "two components"},
             {file(sof(8, 8, {{1, 5, 1, 0}}), scan), "sampling factor 5"},
             {file(sof(8, 8, {{1, 1, 0, 0}}), scan), "sampling factor 0"},
             {file(sof(8, 8, {{1, 1, 1, 4}}), scan), "quantisation table 4"},
             {file(sof(8, 8, {{1, 1, 1, 0}}, 0xC1), scan), "extended frame"},
             {file(sof(8, 8, {{1, 1, 1, 0}}, 0xC2), scan), "progressive frame"},
             {file(sof(8, 8, {{1, 1, 1, 0}}, 0xC3), scan), "lossless frame"},
             {file(sof(8, 8, {{1, 1, 1, 0}}, 0xC9), scan), "arithmetic frame"},
             {file(frame, scan, segment(0xCC, {0, 0})), "arithmetic conditioning"},
             {file({}, scan), "no frame before the scan"},
             {file(frame, sos({2})), "unknown component in the scan"},
             {file(frame, sos({1}, {0, 62, 0})), "spectral selection"},
             {file(frame, sos({1}, {0, 63, 1})), "successive approximation"},
             {file(frame, sos({1}, {0, 63, 0}, 0x40)), "DC table 4"},
             {file(frame, sos({1}, {0, 63, 0}, 0x04)), "AC table 4"},
             {file(frame, segment(0xDA, {1, 1, 0, 0, 63})), "short scan header"},
             {file(frame, segment(0xDA, {0, 1, 0, 0, 63, 0})), "scan of no components"},
             {file(frame, scan, segment(0xDD, {0, 1, 0})), "restart interval of 3 bytes"},
             {cat({kSoi, kTables, kEoi, frame, scan, data}), "end of image before the scan"},
             {cat({kSoi, kTables, frame}), "no scan"},
             {Bytes{0xFF, 0xD8, 0xFF}, "three bytes"},
             {cat({kSoi, {0xFF, 0xE0, 0x00, 0x01}}), "segment length 1"},
             {cat({kSoi, {0xFF, 0xE0, 0x00, 0x09, 0}}), "segment past the end"}}) {
        SCOPED_TRACE(why);
        EXPECT_FALSE(load(bad, out));
        EXPECT_TRUE(out.rgba.empty());
    }
    // Detection: 0xFF 0xD8 0xFF and no less.
    const Bytes jpeg = file(frame, scan);
    EXPECT_EQ(ot::png::detect_format(jpeg.data(), jpeg.size()), ot::png::kFormatJpeg);
    const Bytes notJpeg = {0xFF, 0xD8, 0x00, 0xFF, 0xDB, 0, 0, 0, 0, 0};
    EXPECT_EQ(ot::png::detect_format(notJpeg.data(), notJpeg.size()), ot::png::kFormatUnknown);
}

TEST(JpegRules, ComponentsSamplingAndColour) {
    Pixels out;
    const Bytes tables = cat({kTables, dqt(1)});
    // 4:2:0 in 24 by 16: two MCUs of four luma blocks and one block of each chroma; the second MCU
    // is cut by the right edge. Chroma is spread by nearest neighbour.
    Bits bits;
    const int luma[2][4] = {{10, 20, -5, 40}, {-60, 0, 7, 1}};
    const int chroma[2][2] = {{30, -20}, {-10, 50}};
    int predictions[3] = {};
    for (int m = 0; m < 2; ++m) {
        for (int b = 0; b < 4; ++b) {
            put_block(bits, luma[m][b] - predictions[0]);
            predictions[0] = luma[m][b];
        }
        for (int c = 0; c < 2; ++c) {
            put_block(bits, chroma[m][c] - predictions[c + 1]);
            predictions[c + 1] = chroma[m][c];
        }
    }
    const Bytes sampled = cat({kSoi, tables, sof(24, 16, {{1, 2, 2, 0}, {2, 1, 1, 1}, {3, 1, 1, 1}}), sos({1, 2, 3}),
                               pad(bits), kEoi});
    ASSERT_TRUE(load(sampled, out));
    ASSERT_EQ(out.width, 24u);
    for (uint32_t y = 0; y < 16; ++y)
        for (uint32_t x = 0; x < 24; ++x) {
            const int m = x / 16, block = (y / 8) * 2 + (x % 16) / 8;
            uint8_t rgb[3];
            ycc_to_rgb(128 + luma[m][block], 128 + chroma[m][0], 128 + chroma[m][1], rgb);
            ASSERT_TRUE(std::equal(rgb, rgb + 3, &out.rgba[(y * 24 + x) * 4])) << x << "," << y;
        }
    // An Adobe marker does not make three components anything but YCbCr.
    Bytes adobe = segment(0xEE, {'A', 'd', 'o', 'b', 'e', 0, 100, 0, 0, 0, 0, 0});
    const Pixels ycc = out;
    ASSERT_TRUE(load(cat({kSoi, adobe, Bytes(sampled.begin() + 2, sampled.end())}), out));
    EXPECT_EQ(out, ycc);

    // Only the first scan is read: components of a later one stay 0.
    Bits first;
    put_block(first, 20);
    const Bytes twoScans = cat({kSoi, kTables, sof(8, 8, {{1, 1, 1, 0}, {2, 1, 1, 1}, {3, 1, 1, 1}}), sos({1}), pad(first),
                                sos({2, 3}), pad(first), kEoi});  // no chroma quantisers: not needed
    ASSERT_TRUE(load(twoScans, out));
    uint8_t rgb[3];
    ycc_to_rgb(148, 0, 0, rgb);
    EXPECT_TRUE(std::equal(rgb, rgb + 3, &out.rgba[0]));

    // Four components: C, M, Y, K as they stand, or with the Adobe transform 2 the first three
    // as YCbCr; each channel is then 255 minus the smaller of 255 and channel plus K.
    Bits four;
    for (int d : {40, -100, 70, 10}) put_block(four, d);
    const Bytes cmyk = cat({sof(8, 8, {{1, 1, 1, 0}, {2, 1, 1, 0}, {3, 1, 1, 0}, {4, 1, 1, 0}}), sos({1, 2, 3, 4}),
                            pad(four), kEoi});
    ASSERT_TRUE(load(cat({kSoi, kTables, cmyk}), out));
    const int c = 168, m = 28, yellow = 198, k = 138;
    EXPECT_EQ((std::vector<int>{out.rgba[0], out.rgba[1], out.rgba[2], out.rgba[3]}),
              (std::vector<int>{255 - std::min(255, c + k), 255 - std::min(255, m + k), 0, 255}));
    adobe[4 + 11] = 2;
    ASSERT_TRUE(load(cat({kSoi, adobe, kTables, cmyk}), out));
    ycc_to_rgb(c, m, yellow, rgb);
    EXPECT_EQ((std::vector<int>{out.rgba[0], out.rgba[1], out.rgba[2]}),
              (std::vector<int>{255 - std::min(255, rgb[0] + k), 255 - std::min(255, rgb[1] + k),
                                255 - std::min(255, rgb[2] + k)}));
}

TEST(JpegRules, HostileSizesFailBeforeAnyLargeAllocation) {
    // 65535 by 65535 at 4 by 4 sampling claims 17 GB of planes and pixels on a few bytes of data:
    // each block takes at least two bits, so this fails before anything is allocated (and the
    // sanitizer's allocator would abort on such a request).
    Pixels out;
    Bits block;
    put_block(block, 0);
    const auto start = std::chrono::steady_clock::now();
    for (const auto& frame : {sof(65535, 65535, {{1, 4, 4, 0}}), sof(65535, 65535, {{1, 1, 1, 0}}),
                              sof(65535, 1, {{1, 4, 1, 0}, {2, 1, 1, 0}, {3, 1, 1, 0}})}) {
        EXPECT_FALSE(load(cat({kSoi, kTables, frame, sos({1}), pad(block), kEoi}), out));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

namespace {

double rms(const Bytes& a, const Bytes& b, int& worst) {
    double sum = 0;
    size_t n = 0;
    worst = 0;
    for (size_t i = 0; i < a.size(); ++i) {
        if (i % 4 == 3) continue;
        const int d = std::abs(int(a[i]) - int(b[i]));
        worst = std::max(worst, d);
        sum += double(d) * d;
        ++n;
    }
    return std::sqrt(sum / double(n));
}

Pixels photo(uint32_t w, uint32_t h, uint32_t seed) {
    Pixels p{w, h, Bytes(size_t(w) * h * 4)};
    uint32_t state = seed;
    auto noise = [&] { return int((state = state * 1664525u + 1013904223u) >> 28); };
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
            uint8_t* px = &p.rgba[(size_t(y) * w + x) * 4];
            px[0] = uint8_t(std::clamp(int(120 + 100 * std::sin(x * 0.11) + noise()), 0, 255));
            px[1] = uint8_t(std::clamp(int(y * 255 / std::max(h - 1, 1u)) - 8 + noise(), 0, 255));
            px[2] = uint8_t(std::clamp(int(200 - 90 * std::cos((x + y) * 0.07)) + noise(), 0, 255));
            px[3] = uint8_t(x * 7 + y);  // the writer drops alpha
        }
    return p;
}

}  // namespace

TEST(JpegWriter, FilesDecodeInDjpegAndPillowWithinTheLossOfTheQuantisers) {
    const fs::path dir = scratch_dir("jpeg_writer");
    std::vector<std::pair<std::string, Pixels>> sources = {
        {"photo", photo(96, 64, 1)}, {"odd", photo(37, 23, 2)}, {"one", photo(1, 1, 3)}, {"tall", photo(9, 17, 4)}};
    Pixels noise{64, 64, Bytes(64 * 64 * 4)};
    uint32_t state = 7;
    for (auto& v : noise.rgba) v = uint8_t((state = state * 1664525u + 1013904223u) >> 24);
    sources.emplace_back("noise", noise);
    // Blocks of grey 0 and 254 in turn: the DC rises by 127 (code 0111, then seven 1 bits) every
    // other block, at shifting bit positions, so some bytes of the data are 0xFF.
    Pixels stripes{512, 8, Bytes(512 * 8 * 4, 255)};
    for (size_t i = 0; i < stripes.rgba.size(); i += 4)
        std::fill_n(&stripes.rgba[i], 3, uint8_t((i / 4 % 512) / 8 % 2 ? 254 : 0));
    sources.emplace_back("stripes", stripes);
    sources.emplace_back("white", Pixels{16, 8, Bytes(16 * 8 * 4, 255)});  // samples at the top of the range
    for (const auto& [name, p] : sources) {
        const std::string path = (dir / (name + ".jpg")).string();
        ASSERT_TRUE(ot::png::save_jpeg_rgba8_file(path.c_str(), p.rgba.data(), int32_t(p.width), int32_t(p.height)));
        std::ofstream src(dir / (name + ".src.rgba"), std::ios::binary);
        src << p.width << " " << p.height << "\n";
        src.write(reinterpret_cast<const char*>(p.rgba.data()), std::streamsize(p.rgba.size()));
    }
    ASSERT_EQ(run(kPython + " " + kJudge + " judge-jpeg " + dir.string()), 0);  // fails on any djpeg warning

    // The bound: libjpeg's own encoder at quality 50 uses the same two tables, without
    // subsampling; our files may lose at most a little more than its.
    for (const auto& [name, source] : sources) {
        SCOPED_TRACE(name);
        const std::string stem = (dir / name).string();
        Pixels djpeg, pillow, reference;
        ASSERT_TRUE(read_rgba_file(stem + ".djpeg.rgba", djpeg) && read_rgba_file(stem + ".pillow.rgba", pillow) &&
                    read_rgba_file(stem + ".reference.rgba", reference));
        int worstOurs, worstPillow, worstReference;
        const double rmsOurs = rms(djpeg.rgba, source.rgba, worstOurs);
        const double rmsPillow = rms(pillow.rgba, source.rgba, worstPillow);
        const double rmsReference = rms(reference.rgba, source.rgba, worstReference);
        EXPECT_LE(worstOurs, worstReference + 3);
        EXPECT_LE(worstPillow, worstReference + 3);
        EXPECT_LE(rmsOurs, rmsReference * 1.05 + 0.1);
        EXPECT_LE(rmsPillow, rmsReference * 1.05 + 0.1);
        std::cout << "[ jpeg writer ] " << name << ": djpeg worst " << worstOurs << " rms " << rmsOurs << ", Pillow worst "
                  << worstPillow << " rms " << rmsPillow << "; libjpeg's own at the same tables worst "
                  << worstReference << " rms " << rmsReference << "\n";

        // Our reader agrees with djpeg on our files too, and alpha comes back as 255.
        const Agreement a = judge_against_djpeg(dir, name + ".jpg");
        EXPECT_EQ(a.unexplained, 0u);
        EXPECT_EQ(a.colourMismatch, 0u);
        const Pixels ours = load_path(dir / (name + ".jpg"));
        ASSERT_EQ(ours.width, source.width);
        ASSERT_EQ(ours.height, source.height);
        for (size_t i = 3; i < ours.rgba.size(); i += 4) ASSERT_EQ(ours.rgba[i], 255);
    }

    // Every 0xFF byte of the entropy data is followed by a zero byte.
    const Bytes file = read_file(dir / "stripes.jpg");
    size_t start = 0;
    for (size_t i = 0; i + 1 < file.size(); ++i)
        if (file[i] == 0xFF && file[i + 1] == 0xDA) start = i + 2 + (file[i + 2] << 8 | file[i + 3]);
    ASSERT_GT(start, 0u);
    size_t stuffed = 0;
    for (size_t i = start; i + 2 < file.size(); ++i) {
        if (file[i] != 0xFF) continue;
        EXPECT_EQ(file[i + 1], 0) << "at " << i;
        ++stuffed;
        ++i;
    }
    EXPECT_GT(stuffed, 0u);
    EXPECT_EQ(Bytes(file.end() - 2, file.end()), (Bytes{0xFF, 0xD9}));
    fs::remove_all(dir);
}

TEST(JpegWriter, SizesAndArguments) {
    const fs::path dir = scratch_dir("jpeg_writer_sizes");
    const std::string path = (dir / "a.jpg").string();
    const Bytes row(65536 * 4, 90);
    EXPECT_FALSE(ot::png::save_jpeg_rgba8_file(path.c_str(), row.data(), 65536, 1));
    EXPECT_FALSE(ot::png::save_jpeg_rgba8_file(path.c_str(), row.data(), 1, 65536));
    ASSERT_TRUE(ot::png::save_jpeg_rgba8_file(path.c_str(), row.data(), 65535, 1));
    Pixels out = load_path(path);
    EXPECT_EQ(out.width, 65535u);
    EXPECT_EQ(out.height, 1u);
    for (size_t i = 0; i < out.rgba.size(); ++i) ASSERT_EQ(out.rgba[i], i % 4 == 3 ? 255 : 90);
    EXPECT_FALSE(ot::png::save_jpeg_rgba8_file(path.c_str(), row.data(), 0, 1));
    EXPECT_FALSE(ot::png::save_jpeg_rgba8_file(path.c_str(), nullptr, 1, 1));
    EXPECT_FALSE(ot::png::save_jpeg_rgba8_file(nullptr, row.data(), 1, 1));
    EXPECT_FALSE(ot::png::save_jpeg_rgba8_file((dir / "missing" / "a.jpg").c_str(), row.data(), 1, 1));
    fs::remove_all(dir);
}
