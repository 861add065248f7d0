#include "codec/checksum.h"

namespace ot::png {

namespace {

// Slicing by four: the PNG reader checks the CRC of every chunk, so this is on the hot path.
struct CrcTables {
    uint32_t t[4][256];
    CrcTables() {
        for (uint32_t n = 0; n < 256; ++n) {
            uint32_t c = n;
            for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            t[0][n] = c;
        }
        for (uint32_t n = 0; n < 256; ++n)
            for (int k = 1; k < 4; ++k) t[k][n] = (t[k - 1][n] >> 8) ^ t[0][t[k - 1][n] & 0xFF];
    }
};

const CrcTables& crc_tables() {
    static const CrcTables tables;
    return tables;
}

}  // namespace

uint32_t crc32_bytes(const uint8_t* data, size_t size, uint32_t crc) {
    const auto& t = crc_tables().t;
    uint32_t c = ~crc;
    while (size >= 4) {
        c ^= uint32_t(data[0]) | uint32_t(data[1]) << 8 | uint32_t(data[2]) << 16 | uint32_t(data[3]) << 24;
        c = t[3][c & 0xFF] ^ t[2][(c >> 8) & 0xFF] ^ t[1][(c >> 16) & 0xFF] ^ t[0][c >> 24];
        data += 4;
        size -= 4;
    }
    while (size--) c = t[0][(c ^ *data++) & 0xFF] ^ (c >> 8);
    return ~c;
}

uint32_t adler32_bytes(const uint8_t* data, size_t size, uint32_t adler) {
    // 5552 is the longest run whose sums cannot overflow 32 bits before the modulus is taken.
    constexpr uint32_t kModulus = 65521;
    constexpr size_t kDeferral = 5552;
    uint32_t a = adler & 0xFFFF, b = adler >> 16;
    while (size > 0) {
        size_t run = size < kDeferral ? size : kDeferral;
        size -= run;
        while (run--) {
            a += *data++;
            b += a;
        }
        a %= kModulus;
        b %= kModulus;
    }
    return b << 16 | a;
}

}  // namespace ot::png
