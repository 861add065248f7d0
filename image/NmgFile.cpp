#include "image/NmgFile.h"

#include <cstring>
#include <fstream>
#include <memory>

namespace orvane {

namespace {

void writeWord(std::ofstream& out, int32_t value) {
    const uint64_t word = uint64_t(int64_t(value));
    char bytes[8];
    for (int i = 0; i < 8; ++i) bytes[i] = char((word >> (8 * i)) & 0xFF);
    out.write(bytes, 8);
}

bool readWord(std::ifstream& in, int32_t& value) {
    unsigned char bytes[8];
    if (!in.read(reinterpret_cast<char*>(bytes), 8)) return false;
    uint64_t word = 0;
    for (int i = 0; i < 8; ++i) word |= uint64_t(bytes[i]) << (8 * i);
    value = int32_t(uint32_t(word));
    return true;
}

// Byte count of a block; negative when a size is. Two 31-bit sizes times 4 fit in 64 bits unsigned.
int64_t blockBytes(int32_t width, int32_t height) {
    if (width < 0 || height < 0) return -1;
    const uint64_t bytes = uint64_t(width) * uint64_t(height) * 4;
    return bytes > uint64_t(INT64_MAX) ? INT64_MAX : int64_t(bytes);
}

bool writeBlock(std::ofstream& out, int32_t width, int32_t height, const uint8_t* pixels) {
    writeWord(out, width);
    writeWord(out, height);
    const int64_t bytes = blockBytes(width, height);
    if (bytes > 0) out.write(reinterpret_cast<const char*>(pixels), std::streamsize(bytes));
    return bool(out);
}

// The header is trusted no further than the file reaches: a block larger than what is left
// fails like a short file, before anything is allocated for it.
bool readBlock(std::ifstream& in, int64_t& bytesLeft, int32_t& width, int32_t& height, uint8_t*& pixels) {
    if (!readWord(in, width) || !readWord(in, height)) return false;
    bytesLeft -= 16;
    const int64_t bytes = blockBytes(width, height);
    if (bytes < 0 || bytes > bytesLeft) return false;
    pixels = new uint8_t[size_t(bytes)];
    if (bytes > 0 && !in.read(reinterpret_cast<char*>(pixels), std::streamsize(bytes))) return false;
    bytesLeft -= bytes;
    return true;
}

struct ImageReleaser {
    void operator()(NuvraImage* image) const { freeNuvraImage(image); }
};

}  // namespace

bool hasNMGExtension(const char* path) {
    if (!path) return false;
    const size_t length = std::strlen(path);
    return length > 3 && std::strcmp(path + length - 4, ".nmg") == 0;
}

bool saveNuvraImage(const NuvraImage* image, const char* path) {
    if (!image || !hasNMGExtension(path)) return false;
    // A record that claims pixels it lacks would be read from null; refused before the file exists.
    if ((blockBytes(image->width, image->height) > 0 && !image->pixels) ||
        (blockBytes(image->reflectWidth, image->reflectHeight) > 0 && !image->reflectPixels))
        return false;
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) return false;
    writeBlock(out, image->width, image->height, image->pixels);
    return writeBlock(out, image->reflectWidth, image->reflectHeight, image->reflectPixels);
}

NuvraImage* loadNuvraImage(const char* path) {
    if (!hasNMGExtension(path)) return nullptr;
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    if (!in) return nullptr;
    int64_t bytesLeft = int64_t(in.tellg());
    if (bytesLeft < 0 || !in.seekg(0)) return nullptr;
    std::unique_ptr<NuvraImage, ImageReleaser> image(new NuvraImage{});
    if (!readBlock(in, bytesLeft, image->width, image->height, image->pixels) ||
        !readBlock(in, bytesLeft, image->reflectWidth, image->reflectHeight, image->reflectPixels))
        return nullptr;
    return image.release();
}

}  // namespace orvane
