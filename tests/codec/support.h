// Helpers of the codec tests: files, the outside judges, and small PNG files built by hand.
#pragma once

#include <png.h>
#include <unistd.h>
#include <zlib.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace codec_test {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

inline const std::string kPython = "/usr/bin/python3";
inline const std::string kOracle = std::string(OT_CODEC_TEST_DIR) + "/oracle.py";
inline const std::string kPngSuite = std::string(OT_CORPUS_DIR) + "/pngsuite";

inline Bytes read_file(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

inline void write_file(const fs::path& path, const Bytes& bytes) {
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

// A fresh folder for one test, removed by the next run of the same test.
inline fs::path scratch_dir(const std::string& name) {
    fs::path dir = fs::temp_directory_path() / ("ot_codec_" + name + "_" + std::to_string(getpid()));
    fs::remove_all(dir);
    fs::create_directories(dir);
    return dir;
}

inline int run(const std::string& command) { return std::system(command.c_str()); }

struct Pixels {
    uint32_t width = 0, height = 0;
    Bytes rgba;
    bool operator==(const Pixels&) const = default;
};

// The judge's pixels written by oracle.py: "W H\n" and the RGBA bytes.
inline bool read_rgba_file(const fs::path& path, Pixels& out) {
    Bytes bytes = read_file(path);
    auto newline = std::find(bytes.begin(), bytes.end(), uint8_t('\n'));
    if (newline == bytes.end()) return false;
    std::string head(bytes.begin(), newline);
    if (std::sscanf(head.c_str(), "%u %u", &out.width, &out.height) != 2) return false;
    out.rgba.assign(newline + 1, bytes.end());
    return out.rgba.size() == size_t(out.width) * out.height * 4;
}

// libpng's decode, brought to our rules: palettes and keys expanded to alpha, grey to RGB,
// 16-bit samples to (v * 255 + 32767) / 65535.
inline bool libpng_decode(const fs::path& path, Pixels& out) {
    FILE* file = std::fopen(path.c_str(), "rb");
    if (!file) return false;
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    bool ok = false;
    std::vector<Bytes> rows;
    if (setjmp(png_jmpbuf(png)) == 0) {
        png_init_io(png, file);
        png_read_info(png, info);
        png_set_expand(png);
        png_set_gray_to_rgb(png);
        png_set_add_alpha(png, 0xFFFF, PNG_FILLER_AFTER);
        png_set_interlace_handling(png);
        png_read_update_info(png, info);
        out.width = png_get_image_width(png, info);
        out.height = png_get_image_height(png, info);
        const int depth = png_get_bit_depth(png, info);
        rows.assign(out.height, Bytes(png_get_rowbytes(png, info)));
        std::vector<png_bytep> pointers;
        for (auto& row : rows) pointers.push_back(row.data());
        png_read_image(png, pointers.data());
        out.rgba.clear();
        for (const auto& row : rows) {
            for (size_t i = 0; i < size_t(out.width) * 4; ++i) {
                if (depth == 16) out.rgba.push_back(uint8_t(((row[i * 2] << 8 | row[i * 2 + 1]) * 255 + 32767) / 65535));
                else out.rgba.push_back(row[i]);
            }
        }
        ok = true;
    }
    png_destroy_read_struct(&png, &info, nullptr);
    std::fclose(file);
    return ok;
}

// Small PNG files built by hand, with zlib as the compressor.
inline void put_u32(Bytes& out, uint32_t v) {
    for (int s = 24; s >= 0; s -= 8) out.push_back(uint8_t(v >> s));
}

inline Bytes chunk(const char* type, const Bytes& data) {
    Bytes out;
    put_u32(out, uint32_t(data.size()));
    out.insert(out.end(), type, type + 4);
    out.insert(out.end(), data.begin(), data.end());
    uLong crc = crc32(0, reinterpret_cast<const Bytef*>(type), 4);
    if (!data.empty()) crc = crc32(crc, data.data(), uInt(data.size()));  // zlib takes a null buffer as a reset
    put_u32(out, uint32_t(crc));
    return out;
}

inline Bytes zlib_compress(const Bytes& raw, int level = 6) {
    uLongf size = compressBound(raw.size());
    Bytes out(size);
    compress2(out.data(), &size, raw.data(), raw.size(), level);
    out.resize(size);
    return out;
}

inline Bytes ihdr(uint32_t width, uint32_t height, uint8_t depth, uint8_t colourType, uint8_t interlace = 0) {
    Bytes data;
    put_u32(data, width);
    put_u32(data, height);
    data.insert(data.end(), {depth, colourType, 0, 0, interlace});
    return chunk("IHDR", data);
}

inline Bytes png_file(const std::vector<Bytes>& chunks) {
    Bytes out = {137, 80, 78, 71, 13, 10, 26, 10};
    for (const auto& c : chunks) out.insert(out.end(), c.begin(), c.end());
    Bytes end = chunk("IEND", {});
    out.insert(out.end(), end.begin(), end.end());
    return out;
}

// Rows of an RGBA image, each with filter byte 0.
inline Bytes unfiltered_rows(const Bytes& rgba, uint32_t width, uint32_t height, unsigned bytesPerPixel = 4) {
    Bytes raw;
    for (uint32_t y = 0; y < height; ++y) {
        raw.push_back(0);
        auto row = rgba.begin() + size_t(y) * width * bytesPerPixel;
        raw.insert(raw.end(), row, row + size_t(width) * bytesPerPixel);
    }
    return raw;
}

}  // namespace codec_test
