// The raw image file against bytes laid out by hand from its table, and malformed files that
// must be refused without a crash or a huge allocation.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "image/NmgFile.h"

namespace orvane {
namespace {

std::string tempPath(const std::string& name) { return testing::TempDir() + name; }

void word(std::string& out, int64_t value) {
    for (int i = 0; i < 8; ++i) out += char((uint64_t(value) >> (8 * i)) & 0xFF);
}

void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary).write(bytes.data(), std::streamsize(bytes.size()));
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// A 2 by 1 image with a 1 by 1 reflection map, as the format's table lays it out.
std::string handMadeFile() {
    std::string bytes;
    word(bytes, 2);
    word(bytes, 1);
    bytes += std::string("\x01\x02\x03\x04\x05\x06\x07\x08", 8);
    word(bytes, 1);
    word(bytes, 1);
    bytes += std::string("\x09\x0a\x0b\x0c", 4);
    return bytes;
}

TEST(NmgFile, ReadsAndWritesTheTableLayout) {
    const std::string path = tempPath("hand.nmg");
    writeFile(path, handMadeFile() + "trailing bytes are ignored");
    NuvraImage* image = loadNuvraImage(path.c_str());
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->width, 2);
    EXPECT_EQ(image->height, 1);
    EXPECT_EQ(image->pixels[7], 8);
    EXPECT_EQ(image->reflectWidth, 1);
    EXPECT_EQ(image->reflectPixels[3], 12);
    const std::string copy = tempPath("copy.nmg");
    EXPECT_TRUE(saveNuvraImage(image, copy.c_str()));
    EXPECT_EQ(readFile(copy), handMadeFile());
    freeNuvraImage(image);
}

TEST(NmgFile, NoReflectionMapEndsWithTwoZeroWords) {
    NuvraImage* image = createSolidColourImage(1, 1, 1, 2, 3, 4);
    const std::string path = tempPath("plain.nmg");
    ASSERT_TRUE(saveNuvraImage(image, path.c_str()));
    std::string expected;
    word(expected, 1);
    word(expected, 1);
    expected += "\x01\x02\x03\x04";
    word(expected, 0);
    word(expected, 0);
    EXPECT_EQ(readFile(path), expected);
    NuvraImage* loaded = loadNuvraImage(path.c_str());
    ASSERT_NE(loaded, nullptr);
    EXPECT_NE(loaded->reflectPixels, nullptr);  // allocated even when empty
    EXPECT_EQ(loaded->reflectWidth, 0);
    freeNuvraImage(loaded);
    freeNuvraImage(image);
}

TEST(NmgFile, EveryCutOfAFileIsRefused) {
    const std::string whole = handMadeFile();
    for (size_t length = 0; length < whole.size(); ++length) {
        const std::string path = tempPath("cut.nmg");
        writeFile(path, whole.substr(0, length));
        EXPECT_EQ(loadNuvraImage(path.c_str()), nullptr) << length;
    }
}

TEST(NmgFile, HeadersBeyondTheFileAreRefusedWithoutAllocating) {
    // Each would ask for gigabytes or for a negative block; the file holds a few bytes only.
    const int64_t headers[][2] = {{INT32_MAX, INT32_MAX}, {-1, 1}, {1, -5}, {INT32_MIN, INT32_MIN},
                                  {0x100000001LL, 0x7FFFFFFFLL}, {65536, 65536}};
    for (const auto& h : headers) {
        std::string bytes;
        word(bytes, h[0]);
        word(bytes, h[1]);
        bytes += std::string(64, '\x7f');
        const std::string path = tempPath("huge.nmg");
        writeFile(path, bytes);
        EXPECT_EQ(loadNuvraImage(path.c_str()), nullptr) << h[0] << " x " << h[1];
    }
    // Same for the reflection map's header.
    std::string bytes;
    word(bytes, 0);
    word(bytes, 0);
    word(bytes, INT32_MAX);
    word(bytes, 2);
    const std::string path = tempPath("hugereflect.nmg");
    writeFile(path, bytes);
    EXPECT_EQ(loadNuvraImage(path.c_str()), nullptr);
}

TEST(NmgFile, RandomBytesNeverCrash) {
    std::mt19937 random(7);
    for (int round = 0; round < 300; ++round) {
        std::string bytes(size_t(random() % 80), '\0');
        for (char& c : bytes) c = char(random() % 4 == 0 ? random() : random() % 3);  // small sizes are likely
        const std::string path = tempPath("random.nmg");
        writeFile(path, bytes);
        freeNuvraImage(loadNuvraImage(path.c_str()));
    }
}

TEST(NmgFile, PathsMustEndInLowerCaseNmg) {
    EXPECT_TRUE(hasNMGExtension(".nmg"));
    EXPECT_FALSE(hasNMGExtension("nmg"));
    EXPECT_FALSE(hasNMGExtension("picture.NMG"));
    EXPECT_FALSE(hasNMGExtension(nullptr));
    NuvraImage* image = createSolidColourImage(1, 1, 0, 0, 0, 0);
    const std::string path = tempPath("x.png");
    std::remove(path.c_str());
    EXPECT_FALSE(saveNuvraImage(image, path.c_str()));
    EXPECT_FALSE(std::ifstream(path).good());
    EXPECT_FALSE(saveNuvraImage(nullptr, tempPath("null.nmg").c_str()));
    freeNuvraImage(image);
}

}  // namespace
}  // namespace orvane
