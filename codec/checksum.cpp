#include "codec/checksum.h"

#include "codec/bytes.h"
#include "codec/simd.h"

namespace ot::png {

namespace {

// Slicing by sixteen: the PNG reader checks the CRC of every chunk, so this is on the hot path.
// Table k gives the CRC of a byte followed by k zero bytes; sixteen bytes make one step, of which
// only the first four wait for the step before.
struct CrcTables {
    uint32_t t[16][256];
    CrcTables() {
        for (uint32_t n = 0; n < 256; ++n) {
            uint32_t c = n;
            for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            t[0][n] = c;
        }
        for (uint32_t n = 0; n < 256; ++n)
            for (int k = 1; k < 16; ++k) t[k][n] = (t[k - 1][n] >> 8) ^ t[0][t[k - 1][n] & 0xFF];
    }
};

const CrcTables& crc_tables() {
    static const CrcTables tables;
    return tables;
}

}  // namespace

uint32_t crc32_bytes(const uint8_t* data, size_t size, uint32_t crc) {
    const auto& t = crc_tables().t;
    // Four bytes that still have `k` bytes after them in the step.
    auto word = [&](uint32_t w, int k) {
        return t[k + 3][w & 0xFF] ^ t[k + 2][(w >> 8) & 0xFF] ^ t[k + 1][(w >> 16) & 0xFF] ^ t[k][w >> 24];
    };
    uint32_t c = ~crc;
    for (; size >= 16; data += 16, size -= 16)
        c = word(c ^ read_u32_le(data), 12) ^ word(read_u32_le(data + 4), 8) ^ word(read_u32_le(data + 8), 4) ^
            word(read_u32_le(data + 12), 0);
    while (size--) c = t[0][(c ^ *data++) & 0xFF] ^ (c >> 8);
    return ~c;
}

uint32_t adler32_bytes(const uint8_t* data, size_t size, uint32_t adler) {
    // 5552 is the longest run whose sums cannot overflow 32 bits before the modulus is taken.
    constexpr uint32_t kModulus = 65521;
    constexpr size_t kDeferral = 5552;
    uint32_t a = adler & 0xFFFF, b = adler >> 16;
    // Sixteen bytes at a time: byte i of a piece adds to b 16 - i times, and each piece adds the
    // sum of the ones before it 16 times.
    using namespace simd;
    const int16_t low[8] = {16, 15, 14, 13, 12, 11, 10, 9}, high[8] = {8, 7, 6, 5, 4, 3, 2, 1};
    const V lowWeights = load(low), highWeights = load(high);
    while (size >= 16) {
        const size_t pieces = (size < kDeferral ? size : kDeferral) / 16;
        V sums = zero(), earlier = zero(), weighted = zero();
        for (size_t k = 0; k < pieces; ++k, data += 16) {
            const V bytes = load(data);
            earlier = add32(earlier, sums);
            sums = add32(sums, sum_bytes(bytes));
            weighted = add32(weighted, multiply_add16(widen_low8(bytes), lowWeights));
            weighted = add32(weighted, multiply_add16(widen_high8(bytes), highWeights));
        }
        size -= pieces * 16;
        const uint64_t sum = uint64_t(lane32(sums, 0)) + lane32(sums, 2);
        const uint64_t before = uint64_t(lane32(earlier, 0)) + lane32(earlier, 2);
        const uint64_t inner =
            uint64_t(lane32(weighted, 0)) + lane32(weighted, 1) + lane32(weighted, 2) + lane32(weighted, 3);
        b = uint32_t((b + uint64_t(a) * pieces * 16 + before * 16 + inner) % kModulus);
        a = uint32_t((a + sum) % kModulus);
    }
    while (size--) {
        a += *data++;
        b += a;
    }
    return (b % kModulus) << 16 | (a % kModulus);
}

}  // namespace ot::png
