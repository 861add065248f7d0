// The row filters, undone a pixel at a time in vector lanes, against the plain byte-by-byte rule
// on random rows: every filter, every pixel size, with and without a row above, and undone in
// place with the output before the input, as the reader does for 8-bit RGBA.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <vector>

#include "codec/png_filters.h"

namespace {

uint8_t plain_paeth(int left, int above, int upperLeft) {
    const int p = left + above - upperLeft;
    const int pa = std::abs(p - left), pb = std::abs(p - above), pc = std::abs(p - upperLeft);
    if (pa <= pb && pa <= pc) return uint8_t(left);
    if (pb <= pc) return uint8_t(above);
    return uint8_t(upperLeft);
}

// A missing row above reads as zeros.
std::vector<uint8_t> plain_unfilter(uint8_t filter, const std::vector<uint8_t>& in, const uint8_t* previous,
                                    size_t bpp) {
    std::vector<uint8_t> out(in.size());
    for (size_t i = 0; i < in.size(); ++i) {
        const int a = i >= bpp ? out[i - bpp] : 0, b = previous ? previous[i] : 0;
        const int c = previous && i >= bpp ? previous[i - bpp] : 0;
        const int predicted = filter == 1 ? a : filter == 2 ? b : filter == 3 ? (a + b) / 2 : filter == 4 ? plain_paeth(a, b, c) : 0;
        out[i] = uint8_t(in[i] + predicted);
    }
    return out;
}

TEST(Filters, EveryFilterAndPixelSizeGivesThePlainRowsBytes) {
    std::mt19937 random(11);
    size_t rows = 0;
    for (size_t bpp : {1, 2, 3, 4, 6, 8}) {
        for (int round = 0; round < 400; ++round) {
            const size_t rowBytes = bpp * (1 + random() % 45);
            std::vector<uint8_t> in(rowBytes), above(rowBytes);
            // Small steps as well as noise, so that Paeth's ties and every choice come up.
            const bool smooth = round % 2;
            for (size_t i = 0; i < rowBytes; ++i) {
                in[i] = uint8_t(smooth ? random() % 5 : random());
                above[i] = uint8_t(smooth ? 120 + random() % 9 : random());
            }
            const uint8_t filter = uint8_t(round % 5);
            const bool hasAbove = round % 7 != 0;
            const std::vector<uint8_t> expected = plain_unfilter(filter, in, hasAbove ? above.data() : nullptr, bpp);
            // Undone into a row of its own, onto the input itself, and a few bytes before it.
            for (size_t shift : {size_t(0), size_t(1), size_t(5), size_t(17), size_t(64)}) {
                std::vector<uint8_t> buffer(rowBytes + 64 + 16, 0xCD);
                std::copy(in.begin(), in.end(), buffer.begin() + 64);
                uint8_t* input = buffer.data() + 64;
                uint8_t* output = shift == 64 ? buffer.data() + 0 : input - shift;
                std::vector<uint8_t> separate(rowBytes);
                if (shift == 64) output = separate.data();
                ASSERT_TRUE(ot::png::unfilter_row(filter, output, input, hasAbove ? above.data() : nullptr, rowBytes, bpp));
                ASSERT_EQ(std::vector<uint8_t>(output, output + rowBytes), expected)
                    << "bpp " << bpp << " filter " << int(filter) << " bytes " << rowBytes << " shift " << shift
                    << " above " << hasAbove;
                ++rows;
            }
        }
    }
    EXPECT_EQ(rows, 6u * 400 * 5);
}

TEST(Filters, AnUnknownFilterFails) {
    std::vector<uint8_t> row(12, 1), out(12);
    for (int filter : {5, 6, 255}) EXPECT_FALSE(ot::png::unfilter_row(uint8_t(filter), out.data(), row.data(), nullptr, 12, 4));
}

}  // namespace
