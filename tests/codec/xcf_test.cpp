// XCF: files built here reach every branch of the reader; files we write are read back by us and
// by ImageMagick.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <optional>

#include "codec/codec.h"
#include "support.h"

using namespace codec_test;

namespace {

const std::string kJudge = std::string(OT_CODEC_TEST_DIR) + "/jpeg_xcf_oracle.py";

void put_be(Bytes& out, uint64_t v, int bytes) {
    for (int i = bytes - 1; i >= 0; --i) out.push_back(uint8_t(v >> (8 * i)));
}

uint32_t read_u32(const Bytes& in, size_t at) {
    return uint32_t(in[at]) << 24 | uint32_t(in[at + 1]) << 16 | uint32_t(in[at + 2]) << 8 | in[at + 3];
}

void patch_be(Bytes& out, size_t at, uint64_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) out[at + i] = uint8_t(v >> (8 * (bytes - 1 - i)));
}

struct Property {
    uint32_t type;
    Bytes payload;
};

Property u32_property(uint32_t type, std::vector<uint32_t> values) {
    Property p{type, {}};
    for (uint32_t v : values) put_be(p.payload, v, 4);
    return p;
}

Property float_opacity(float value) {
    uint32_t bits;
    std::memcpy(&bits, &value, 4);
    return u32_property(33, {bits});
}

enum LayerType : uint32_t { kRgb = 0, kRgba = 1, kGrey = 2, kGreyAlpha = 3, kIndexed = 4, kIndexedAlpha = 5 };

uint32_t bytes_per_pixel(uint32_t type) { return std::vector<uint32_t>{3, 4, 1, 2, 1, 2}.at(type); }

struct Layer {
    uint32_t width = 1, height = 1, type = kRgba;
    Bytes pixels;                  // interleaved, the bytes per pixel of the type
    std::vector<Property> props;   // before the end of the properties
    std::vector<Bytes> tiles;      // when given, stored as they are instead of coded from pixels
    std::optional<uint32_t> bpp;   // the hierarchy's bytes per pixel, when not the type's
};

Layer layer(uint32_t w, uint32_t h, uint32_t type, Bytes pixels, std::vector<Property> props = {},
            std::vector<Bytes> tiles = {}) {
    Layer l;
    l.width = w;
    l.height = h;
    l.type = type;
    l.pixels = std::move(pixels);
    l.props = std::move(props);
    l.tiles = std::move(tiles);
    return l;
}

struct Xcf {
    std::string version = "v003";
    uint32_t width = 1, height = 1, baseType = 0;
    std::optional<uint32_t> precision;  // from version 4 on; 150 when not given
    uint8_t compression = 1;
    std::vector<Property> props;        // image properties besides the compression
    std::vector<Layer> layers;          // top first
};

int version_number(const std::string& v) { return v == "file" ? 0 : std::stoi(v.substr(1)); }

// RLE of one channel, in every form: short and long runs, short and long literals.
Bytes rle_channel(const Bytes& values) {
    Bytes out;
    for (size_t i = 0; i < values.size();) {
        size_t run = 1;
        while (i + run < values.size() && values[i + run] == values[i] && run < 65535) ++run;
        if (run >= 3) {
            if (run <= 127) out.push_back(uint8_t(run - 1));
            else out.push_back(127), put_be(out, run, 2);
            out.push_back(values[i]);
            i += run;
            continue;
        }
        size_t literal = 1;
        while (i + literal < values.size() && literal < 65535 &&
               !(i + literal + 2 < values.size() && values[i + literal] == values[i + literal + 1] &&
                 values[i + literal] == values[i + literal + 2]))
            ++literal;
        if (literal <= 127) out.push_back(uint8_t(256 - literal));
        else out.push_back(128), put_be(out, literal, 2);
        out.insert(out.end(), values.begin() + long(i), values.begin() + long(i + literal));
        i += literal;
    }
    return out;
}

Bytes code_tile(const Bytes& raw, uint32_t bpp, uint8_t compression) {
    if (compression == 0) return raw;
    if (compression == 2) return zlib_compress(raw);
    Bytes out;
    for (uint32_t c = 0; c < bpp; ++c) {
        Bytes channel;
        for (size_t i = c; i < raw.size(); i += bpp) channel.push_back(raw[i]);
        Bytes coded = rle_channel(channel);
        out.insert(out.end(), coded.begin(), coded.end());
    }
    return out;
}

struct Built {
    Bytes data;
    std::vector<size_t> tileTables;  // where each layer's tile offsets start
};

Built build(const Xcf& x) {
    const int pointer = version_number(x.version) >= 11 ? 8 : 4;
    Built b;
    Bytes& out = b.data;
    const std::string magic = "gimp xcf " + x.version;
    out.insert(out.end(), magic.begin(), magic.end());
    out.push_back(0);
    put_be(out, x.width, 4);
    put_be(out, x.height, 4);
    put_be(out, x.baseType, 4);
    if (version_number(x.version) >= 4) put_be(out, x.precision.value_or(150), 4);
    std::vector<Property> props = {{17, {x.compression}}};
    props.insert(props.end(), x.props.begin(), x.props.end());
    auto put_props = [&](const std::vector<Property>& list) {
        for (const auto& p : list) {
            put_be(out, p.type, 4);
            put_be(out, p.payload.size(), 4);
            out.insert(out.end(), p.payload.begin(), p.payload.end());
        }
        put_be(out, 0, 8);
    };
    put_props(props);
    const size_t layerList = out.size();
    out.resize(out.size() + size_t(pointer) * (x.layers.size() + 2), 0);  // layers, 0, no channels, 0
    for (size_t l = 0; l < x.layers.size(); ++l) {
        const Layer& layer = x.layers[l];
        patch_be(out, layerList + l * pointer, out.size(), pointer);
        put_be(out, layer.width, 4);
        put_be(out, layer.height, 4);
        put_be(out, layer.type, 4);
        put_be(out, 2, 4);
        out.insert(out.end(), {'L', 0});
        put_props(layer.props);
        put_be(out, out.size() + 2 * pointer, pointer);  // the hierarchy follows
        put_be(out, 0, pointer);
        const uint32_t bpp = layer.bpp ? *layer.bpp : bytes_per_pixel(layer.type);
        put_be(out, layer.width, 4);
        put_be(out, layer.height, 4);
        put_be(out, bpp, 4);
        put_be(out, out.size() + 2 * pointer, pointer);  // the level follows
        put_be(out, 0, pointer);
        put_be(out, layer.width, 4);
        put_be(out, layer.height, 4);
        std::vector<Bytes> tiles = layer.tiles;
        if (tiles.empty()) {
            const uint32_t across = (layer.width + 63) / 64, down = (layer.height + 63) / 64;
            const uint32_t typeBpp = bytes_per_pixel(layer.type);
            for (uint32_t t = 0; t < across * down; ++t) {
                const uint32_t tx = t % across * 64, ty = t / across * 64;
                const uint32_t tw = std::min(64u, layer.width - tx), th = std::min(64u, layer.height - ty);
                Bytes raw;
                for (uint32_t y = 0; y < th; ++y) {
                    auto row = layer.pixels.begin() + long((size_t(ty + y) * layer.width + tx) * typeBpp);
                    raw.insert(raw.end(), row, row + long(tw * typeBpp));
                }
                tiles.push_back(code_tile(raw, typeBpp, x.compression));
            }
        }
        b.tileTables.push_back(out.size());
        size_t at = out.size() + size_t(pointer) * (tiles.size() + 1);
        for (const auto& t : tiles) {
            put_be(out, at, pointer);
            at += t.size();
        }
        put_be(out, 0, pointer);
        for (const auto& t : tiles) out.insert(out.end(), t.begin(), t.end());
    }
    return b;
}

bool load(const Bytes& file, Pixels& out) {
    ot::png::Image image;
    const bool ok = ot::png::load_memory(file.data(), file.size(), image);
    out = {image.width, image.height, image.pixels};
    return ok;
}

Bytes rgba_of(const Pixels& p, uint32_t x, uint32_t y) {
    auto at = p.rgba.begin() + long((size_t(y) * p.width + x) * 4);
    return Bytes(at, at + 4);
}

Bytes pattern(size_t count, uint32_t seed) {
    Bytes out(count);
    for (size_t i = 0; i < count; ++i) out[i] = uint8_t(i % 97 < 40 ? 200 : (seed = seed * 1103515245u + 12345u) >> 16);
    return out;
}

// One opaque RGBA layer covering the canvas, pixels given.
Xcf plain(uint32_t w, uint32_t h, const Bytes& rgba, uint8_t compression = 1) {
    Xcf x;
    x.width = w;
    x.height = h;
    x.compression = compression;
    x.layers = {layer(w, h, kRgba, rgba)};
    return x;
}

}  // namespace

TEST(XcfReader, TilesCompressionsVersionsAndPrecision) {
    // 130 by 70: six tiles, the right and bottom ones cut; short and long runs and literals.
    Bytes rgba = pattern(130 * 70 * 4, 1);
    std::fill_n(rgba.begin(), 64 * 4 * 3, 9);  // long runs in the first tile
    Pixels out;
    for (uint8_t compression : {0, 1}) {
        for (const std::string version : {"file", "v001", "v003", "v004", "v010", "v011", "v014"}) {
            SCOPED_TRACE(version + " compression " + std::to_string(compression));
            Xcf x = plain(130, 70, rgba, compression);
            x.version = version;
            ASSERT_TRUE(load(build(x).data, out));
            EXPECT_EQ(out.width, 130u);
            EXPECT_EQ(out.height, 70u);
            EXPECT_EQ(out.rgba, rgba);  // over a transparent canvas every pixel is its own
        }
    }
    Xcf x = plain(130, 70, rgba);
    for (uint32_t precision : {0u, 100u, 150u}) {
        x.version = "v007";
        x.precision = precision;
        EXPECT_TRUE(load(build(x).data, out)) << precision;
    }
    for (uint32_t precision : {1u, 200u, 250u}) {  // more than 8 bits a sample
        x.precision = precision;
        EXPECT_FALSE(load(build(x).data, out)) << precision;
    }
    // zlib needs the next tile to know where a stream ends: the last tile cannot be read.
    EXPECT_FALSE(load(build(plain(10, 10, pattern(400, 2), 2)).data, out));
    EXPECT_FALSE(load(build(plain(130, 70, rgba, 2)).data, out));
    EXPECT_FALSE(load(build(plain(10, 10, pattern(400, 2), 3)).data, out));  // unknown compression
}

TEST(XcfReader, LayersStackWithOffsetsOpacityAndVisibility) {
    Pixels out;
    const Bytes red = {255, 0, 0, 255}, blue = {0, 0, 255, 255};
    auto solid = [](const Bytes& px, uint32_t w, uint32_t h) {
        Bytes out;
        for (uint32_t i = 0; i < w * h; ++i) out.insert(out.end(), px.begin(), px.end());
        return out;
    };
    Xcf x;
    x.width = 20;
    x.height = 10;
    // Top first: a blue 4 by 4 at (2, 3) over a red 10 by 10 at (-5, -5), which shows 5 by 5.
    x.layers = {layer(4, 4, kRgba, solid(blue, 4, 4), {u32_property(15, {2, 3})}),
                layer(10, 10, kRgba, solid(red, 10, 10), {u32_property(15, {uint32_t(-5), uint32_t(-5)})})};
    ASSERT_TRUE(load(build(x).data, out));
    EXPECT_EQ(rgba_of(out, 0, 0), red);
    EXPECT_EQ(rgba_of(out, 4, 4), blue);
    EXPECT_EQ(rgba_of(out, 1, 4), red);
    EXPECT_EQ(rgba_of(out, 5, 6), blue);
    EXPECT_EQ(rgba_of(out, 6, 0), (Bytes{0, 0, 0, 0}));
    EXPECT_EQ(rgba_of(out, 19, 9), (Bytes{0, 0, 0, 0}));
    // Off the canvas altogether, a layer draws nothing.
    x.layers[0].props = {u32_property(15, {100, 3})};
    ASSERT_TRUE(load(build(x).data, out));
    EXPECT_EQ(rgba_of(out, 4, 4), red);
    EXPECT_EQ(rgba_of(out, 5, 6), (Bytes{0, 0, 0, 0}));

    // Opacity: alpha becomes (alpha * opacity + 127) / 255; the float property as well, and the
    // later of the two counts.
    Xcf one;
    one.width = one.height = 1;
    one.layers = {layer(1, 1, kRgba, {10, 20, 30, 200}, {u32_property(6, {128})})};
    ASSERT_TRUE(load(build(one).data, out));
    EXPECT_EQ(out.rgba, (Bytes{10, 20, 30, (200 * 128 + 127) / 255}));
    for (const auto& [value, opacity] : std::vector<std::pair<float, uint32_t>>{
             {0.5f, 128}, {0.25f, 64}, {1.5f, 255}, {1.0f, 255}, {-1.0f, 0}, {0.0f, 0}, {NAN, 0}}) {
        one.layers[0].props = {u32_property(6, {255}), float_opacity(value)};
        ASSERT_TRUE(load(build(one).data, out)) << value;
        EXPECT_EQ(out.rgba[3], (200 * opacity + 127) / 255) << value;
    }
    one.layers[0].props = {u32_property(6, {1000})};  // at most 255
    ASSERT_TRUE(load(build(one).data, out));
    EXPECT_EQ(out.rgba[3], 200);

    // A layer at opacity 0, or invisible, is not decoded: a broken tile there does no harm.
    Xcf hidden = one;
    hidden.layers[0].tiles = {{1, 2, 3}};
    EXPECT_FALSE(load(build(hidden).data, out));
    for (const auto& prop : {u32_property(6, {0}), u32_property(8, {0}), float_opacity(-0.5f)}) {
        hidden.layers[0].props = {prop};
        ASSERT_TRUE(load(build(hidden).data, out));
        EXPECT_EQ(out.rgba, (Bytes{0, 0, 0, 0}));
    }
    hidden.layers[0].props = {u32_property(8, {7})};  // any value but 0 is visible
    EXPECT_FALSE(load(build(hidden).data, out));
    // Properties too short for their value are passed over.
    hidden.layers[0].props = {{8, {0, 0, 0}}, {6, {0}}, {15, {0, 0, 0, 1}}, {33, {0}}};
    EXPECT_FALSE(load(build(hidden).data, out));
}

TEST(XcfReader, PixelTypesAndColourMaps) {
    Pixels out;
    auto single = [](uint32_t type, const Bytes& pixel) {
        Xcf x;
        x.layers = {layer(1, 1, type, pixel)};
        return x;
    };
    const std::vector<std::tuple<uint32_t, Bytes, Bytes>> cases = {
        {kRgb, {1, 2, 3}, {1, 2, 3, 255}},           {kRgba, {1, 2, 3, 4}, {1, 2, 3, 4}},
        {kGrey, {77}, {77, 77, 77, 255}},            {kGreyAlpha, {77, 9}, {77, 77, 77, 9}},
        {kIndexed, {1}, {40, 50, 60, 255}},          {kIndexedAlpha, {0, 99}, {10, 20, 30, 99}},
        {kIndexed, {5}, {0, 0, 0, 255}},  // past the map of two entries: black
    };
    for (const auto& [type, pixel, expected] : cases) {
        Xcf x = single(type, pixel);
        x.baseType = type >= kIndexed ? 2 : 0;
        x.props = {{1, {0, 0, 0, 2, 10, 20, 30, 40, 50, 60}}};
        ASSERT_TRUE(load(build(x).data, out)) << type;
        EXPECT_EQ(out.rgba, expected) << type;
    }
    // A map of more than 256 colours, or longer than its property, is not taken.
    for (const Bytes& map : {Bytes{0, 0, 1, 1, 10, 20, 30}, Bytes{0, 0, 0, 3, 10, 20, 30}, Bytes{0, 0}}) {
        Xcf x = single(kIndexed, {0});
        x.props = {{1, map}};
        ASSERT_TRUE(load(build(x).data, out));
        EXPECT_EQ(out.rgba, (Bytes{0, 0, 0, 255}));
    }
    // The hierarchy's bytes per pixel must be the type's; an unknown type fails when drawn.
    Xcf x = single(kRgba, {1, 2, 3, 4});
    x.layers[0].bpp = 3;
    EXPECT_FALSE(load(build(x).data, out));
    x = single(kRgba, {1, 2, 3, 4});
    x.layers[0].type = 6;
    x.layers[0].bpp = 4;
    x.layers[0].tiles = {{0, 1, 0, 2, 0, 3, 0, 4}};
    EXPECT_FALSE(load(build(x).data, out));
}

TEST(XcfReader, BrokenStructuresFail) {
    Pixels out;
    const Bytes rgba = pattern(70 * 20 * 4, 3);
    const Built good = build(plain(70, 20, rgba));
    ASSERT_TRUE(load(good.data, out));
    auto with = [&](auto change) {
        Bytes copy = good.data;
        change(copy);
        return copy;
    };
    const size_t table = good.tileTables[0];
    for (const auto& [bad, why] : std::vector<std::pair<Bytes, const char*>>{
             {with([](Bytes& d) { d.resize(29); }), "shorter than 30 bytes"},
             {with([](Bytes& d) { d[13] = 1; }), "byte 13 not zero"},
             {with([](Bytes& d) { std::memcpy(&d[9], "v0a3", 4); }), "version not digits"},
             {with([](Bytes& d) { std::memcpy(&d[9], "w003", 4); }), "version without its v"},
             {with([](Bytes& d) { patch_be(d, 14, 0, 4); }), "width 0"},
             {with([](Bytes& d) { patch_be(d, 18, 0, 4); }), "height 0"},
             {with([](Bytes& d) { patch_be(d, 22, 3, 4); }), "base type 3"},
             {with([&](Bytes& d) { patch_be(d, table, d.size(), 4); }), "tile offset at the end"},
             {with([&](Bytes& d) { patch_be(d, table + 4, 0, 4); }), "tile offset 0"},
             {with([&](Bytes& d) { patch_be(d, table + 8, 5, 4); }), "no zero after the tiles"},
             {with([&](Bytes& d) { d.resize(d.size() - 1); }), "last tile one byte short"},
             {with([&](Bytes& d) { d.resize(table + 6); }), "cut inside the tile offsets"}}) {
        SCOPED_TRACE(why);
        EXPECT_FALSE(load(bad, out));
        EXPECT_TRUE(out.rgba.empty());
        EXPECT_EQ(out.width, 0u);
    }
    // Tiles stored in the other order, so that the offsets point backwards: the first tile's bytes
    // then run to the end of the file, which is no harm.
    const size_t first = read_u32(good.data, table), second = read_u32(good.data, table + 4);
    Bytes backwards(good.data.begin(), good.data.begin() + long(first));
    backwards.insert(backwards.end(), good.data.begin() + long(second), good.data.end());
    backwards.insert(backwards.end(), good.data.begin() + long(first), good.data.begin() + long(second));
    patch_be(backwards, table, first + (good.data.size() - second), 4);
    patch_be(backwards, table + 4, first, 4);
    ASSERT_TRUE(load(backwards, out));
    EXPECT_EQ(out.rgba, rgba);

    // Properties: an end with a length, or a payload past the end of the file.
    Xcf props = plain(2, 2, pattern(16, 4));
    props.props = {{0, {1, 2}}};
    EXPECT_FALSE(load(build(props).data, out));
    Bytes cut = build(plain(2, 2, pattern(16, 4))).data;
    patch_be(cut, 30, 1000, 4);  // the compression property's length
    EXPECT_FALSE(load(cut, out));

    // Layers: width, height and hierarchy offset must not be 0; the hierarchy and the level must
    // have the layer's size; the level offset must not be 0; a layer offset must be in the file.
    const Built built = build(plain(3, 2, pattern(24, 5)));
    const size_t layerAt = read_u32(built.data, 26 + 9 + 8);
    for (const auto& [at, value, why] : std::vector<std::tuple<size_t, uint32_t, const char*>>{
             {layerAt, 0, "layer width 0"}, {layerAt + 4, 0, "layer height 0"},
             {layerAt + 12 + 6 + 8, 0, "hierarchy offset 0"},
             {layerAt + 12 + 6 + 8 + 8, 4, "hierarchy width"}, {layerAt + 12 + 6 + 8 + 8 + 4, 3, "hierarchy height"},
             {layerAt + 12 + 6 + 8 + 8 + 12, 0, "level offset 0"}, {layerAt + 12 + 6 + 8 + 8 + 20, 2, "level width"},
             {layerAt + 12 + 6 + 8 + 8 + 24, 1, "level height"}, {26 + 9 + 8, uint32_t(built.data.size()), "layer offset at the end"},
             {26 + 9 + 8, 0, "no layer"}}) {
        Bytes d = built.data;
        patch_be(d, at, value, 4);
        EXPECT_FALSE(load(d, out)) << why;
    }
    EXPECT_TRUE(load(built.data, out));
}

TEST(XcfReader, RunLengthCodingIsChecked) {
    Pixels out;
    auto grey_tile = [](Bytes tile) {
        Xcf x;
        x.width = 4;
        x.height = 1;
        x.layers = {layer(4, 1, kGrey, {}, {}, {tile})};
        return build(x).data;
    };
    ASSERT_TRUE(load(grey_tile({1, 7, 254, 8, 9}), out));  // two 7s, then two literals
    EXPECT_EQ(out.rgba, (Bytes{7, 7, 7, 255, 7, 7, 7, 255, 8, 8, 8, 255, 9, 9, 9, 255}));
    ASSERT_TRUE(load(grey_tile({127, 0, 4, 6}), out));  // a long run
    EXPECT_EQ(out.rgba[12], 6);
    ASSERT_TRUE(load(grey_tile({128, 0, 4, 1, 2, 3, 4}), out));  // a long literal
    EXPECT_EQ(out.rgba[12], 4);
    for (const auto& [tile, why] : std::vector<std::pair<Bytes, const char*>>{
             {{4, 7}, "a run past the end of the channel"},
             {{251, 1, 2, 3, 4, 5}, "literals past the end of the channel"},
             {{127, 0, 0, 6}, "a long run of 0"},
             {{128, 0, 0}, "a long literal of 0"},
             {{127, 0, 5, 6}, "a long run past the end"},
             {{1, 7}, "the data ends early"},
             {{253, 1, 2}, "literals cut short"},
             {{127, 0}, "a count cut short"}}) {
        EXPECT_FALSE(load(grey_tile(tile), out)) << why;
    }
}

TEST(XcfReader, DetectionAndHostileSizes) {
    Pixels out;
    const Bytes thirteen = {'g', 'i', 'm', 'p', ' ', 'x', 'c', 'f', ' ', 'f', 'i', 'l', 'e'};
    EXPECT_EQ(ot::png::detect_format(thirteen.data(), thirteen.size()), ot::png::kFormatUnknown);
    Bytes fourteen = thirteen;
    fourteen.push_back(0);
    EXPECT_EQ(ot::png::detect_format(fourteen.data(), fourteen.size()), ot::png::kFormatXcf);
    EXPECT_FALSE(load(fourteen, out));

    // A canvas far larger than the file could describe fails before it is allocated (the
    // sanitizer's allocator would abort on such a request), as does a layer whose tile table
    // is not in the file.
    const auto start = std::chrono::steady_clock::now();
    Xcf huge = plain(1, 1, {1, 2, 3, 4});
    huge.width = huge.height = 0xFFFFFFFF;
    EXPECT_FALSE(load(build(huge).data, out));
    huge.width = huge.height = 65536;
    EXPECT_FALSE(load(build(huge).data, out));
    Xcf wide = plain(1, 1, {1, 2, 3, 4});
    Built b = build(wide);
    const size_t layerAt = read_u32(b.data, 26 + 9 + 8);
    for (size_t at : {layerAt, layerAt + 12 + 6 + 8 + 8, layerAt + 12 + 6 + 8 + 8 + 20}) patch_be(b.data, at, 0xFFFFFFFF, 4);
    EXPECT_FALSE(load(b.data, out));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
    // A canvas of 64 MiB is allowed on any file.
    Xcf big = plain(1, 1, {1, 2, 3, 4});
    big.width = big.height = 4096;
    ASSERT_TRUE(load(build(big).data, out));
    EXPECT_EQ(rgba_of(out, 0, 0), (Bytes{1, 2, 3, 4}));
    EXPECT_EQ(rgba_of(out, 4095, 4095), (Bytes{0, 0, 0, 0}));
}

TEST(XcfWriter, FilesReadBackByUsAndByImageMagick) {
    const fs::path dir = scratch_dir("xcf_writer");
    std::vector<std::pair<std::string, Pixels>> sources;
    for (auto [w, h] : std::vector<std::pair<uint32_t, uint32_t>>{{1, 1}, {64, 64}, {130, 70}, {3, 200}}) {
        Pixels p{w, h, pattern(size_t(w) * h * 4, w * h)};
        for (size_t i = 3; i < p.rgba.size(); i += 52) p.rgba[i] = 0;  // transparent pixels keep their colour
        sources.emplace_back(std::to_string(w) + "x" + std::to_string(h), p);
    }
    for (const auto& [name, p] : sources) {
        const std::string path = (dir / (name + ".xcf")).string();
        ASSERT_TRUE(ot::png::save_xcf_rgba8_file(path.c_str(), p.rgba.data(), int32_t(p.width), int32_t(p.height)));
        ot::png::Image image;
        ASSERT_TRUE(ot::png::load_file(path.c_str(), image));
        EXPECT_EQ(image.width, p.width);
        EXPECT_EQ(image.height, p.height);
        EXPECT_EQ(image.pixels, p.rgba) << name;
        const Bytes file = read_file(path);
        EXPECT_EQ(Bytes(file.begin(), file.begin() + 14), (Bytes{'g', 'i', 'm', 'p', ' ', 'x', 'c', 'f', ' ', 'v', '0', '0', '3', 0}));
    }
    ASSERT_EQ(run(kPython + " " + kJudge + " judge-xcf " + dir.string()), 0);
    for (const auto& [name, p] : sources) {
        SCOPED_TRACE(name);
        Pixels magick;
        // ImageMagick 6.9 reads no uncompressed tiles: it is given our file with only the tiles
        // coded as RLE, and our own file too in case it does.
        ASSERT_TRUE(read_rgba_file(dir / (name + ".rle.magick.rgba"), magick));
        EXPECT_TRUE(magick == p);
        if (read_rgba_file(dir / (name + ".magick.rgba"), magick)) {
            EXPECT_TRUE(magick == p);
        }
    }
    const std::string path = (dir / "a.xcf").string();
    const Bytes px(8, 1);
    EXPECT_FALSE(ot::png::save_xcf_rgba8_file(path.c_str(), px.data(), 2, -1));
    EXPECT_FALSE(ot::png::save_xcf_rgba8_file(path.c_str(), nullptr, 2, 1));
    EXPECT_FALSE(ot::png::save_xcf_rgba8_file((dir / "missing" / "a.xcf").c_str(), px.data(), 2, 1));
    fs::remove_all(dir);
}
