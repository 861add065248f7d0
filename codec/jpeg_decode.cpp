// The JPEG reader: baseline sequential files (8-bit samples, Huffman coding), one scan.
//
// Every sample is the double-precision sum of the inverse DCT, with no approximation, and every
// colour the double-precision YCbCr formula. The speed comes from arranging the work: zero
// coefficients add nothing and are skipped, the mirror symmetry of the cosines gives four samples
// from each sum over a quarter of the block, and Huffman codes of up to 9 bits are found with
// one table look-up.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

#include "codec/bytes.h"
#include "codec/formats.h"
#include "codec/jpeg.h"

namespace ot::png {

const uint8_t kJpegZigZag[64] = {0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,
                                 12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,
                                 35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,
                                 58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

const double (&jpeg_cosines())[8][8] {
    struct Table {
        double c[8][8];
        // The right half mirrors the left exactly, with the sign (-1)^u, as the true values do.
        Table() {
            const double pi = std::acos(-1.0);
            for (int x = 0; x < 4; ++x)
                for (int u = 0; u < 8; ++u) {
                    c[x][u] = std::cos(double((2 * x + 1) * u) * pi / 16.0);
                    c[7 - x][u] = u % 2 ? -c[x][u] : c[x][u];
                }
        }
    };
    static const Table table;
    return table.c;
}

namespace {

constexpr uint8_t kMarkerSoi = 0xD8, kMarkerEoi = 0xD9, kMarkerSof0 = 0xC0, kMarkerDht = 0xC4,
                  kMarkerJpg = 0xC8, kMarkerDqt = 0xDB, kMarkerDri = 0xDD, kMarkerSos = 0xDA,
                  kMarkerApp14 = 0xEE, kMarkerTem = 0x01;
constexpr unsigned kFastBits = 9;  // Huffman codes up to this length are found by one look-up
constexpr unsigned kMaxCodeLength = 16;
constexpr unsigned kMaxDcCategory = 11;

bool is_restart_marker(uint8_t marker) { return marker >= 0xD0 && marker <= 0xD7; }

struct JpegHuffmanTable {
    struct Entry {
        uint16_t code;
        uint8_t length;
        uint8_t symbol;
    };
    bool valid = false;
    std::vector<Entry> entries;  // by length, then code: each length's codes are one run
    uint32_t firstCode[kMaxCodeLength + 1] = {};
    uint32_t firstEntry[kMaxCodeLength + 1] = {};
    uint32_t count[kMaxCodeLength + 1] = {};
    uint16_t fast[1 << kFastBits] = {};  // length << 8 | symbol; 0 for longer or unused codes
};

struct JpegQuantTable {
    bool present = false;
    uint16_t values[64] = {};  // natural order
};

struct JpegComponent {
    uint8_t identifier = 0;
    uint32_t horizontal = 1, vertical = 1;
    uint32_t quantTable = 0, dcTable = 0, acTable = 0;
    int64_t prediction = 0;
    uint32_t planeWidth = 0, planeHeight = 0;
    // Every sample of a component in the scan is written by its block, so the plane is not
    // cleared first; a component outside the scan has none, and all its samples are 0.
    std::unique_ptr<uint8_t[]> plane;
};

struct JpegDecoder {
    uint32_t width = 0, height = 0;
    uint32_t maxHorizontal = 1, maxVertical = 1;
    uint32_t restartInterval = 0;
    uint32_t adobeTransform = 0;
    bool sawFrame = false;
    JpegQuantTable quant[4];
    JpegHuffmanTable dc[4], ac[4];
    std::vector<JpegComponent> components;
    std::vector<size_t> scanOrder;  // indices into components
    const uint8_t* entropy = nullptr;
    size_t entropySize = 0;
};

int jpeg_component_index_by_id(const JpegDecoder& decoder, uint8_t identifier) {
    for (size_t i = 0; i < decoder.components.size(); ++i)
        if (decoder.components[i].identifier == identifier) return int(i);
    return -1;
}

bool build_jpeg_huffman_table(const uint8_t* counts, const uint8_t* symbols, size_t symbolCount,
                              JpegHuffmanTable& table) {
    table = JpegHuffmanTable{};
    size_t counted = 0;
    for (unsigned length = 1; length <= kMaxCodeLength; ++length) counted += counts[length - 1];
    if (counted != symbolCount) return false;  // every symbol must have a code
    uint32_t code = 0;
    for (unsigned length = 1; length <= kMaxCodeLength; ++length) {
        table.firstCode[length] = code;
        table.firstEntry[length] = uint32_t(table.entries.size());
        table.count[length] = counts[length - 1];
        for (unsigned i = 0; i < counts[length - 1]; ++i, ++code)
            table.entries.push_back({uint16_t(code), uint8_t(length), symbols[table.entries.size()]});
        if (code > (uint32_t(1) << length)) return false;  // the codes no longer fit their length
        code <<= 1;
    }
    for (const auto& e : table.entries) {
        if (e.length > kFastBits) break;
        const unsigned shift = kFastBits - e.length;
        for (uint32_t fill = 0; fill < (uint32_t(1) << shift); ++fill)
            table.fast[uint32_t(e.code) << shift | fill] = uint16_t(e.length << 8 | e.symbol);
    }
    table.valid = true;
    return true;
}

bool parse_quant_tables(const uint8_t* p, size_t size, JpegDecoder& decoder) {
    while (size > 0) {
        const unsigned precision = p[0] >> 4, number = p[0] & 15;
        const size_t valueBytes = precision + 1;
        if (precision >= 2 || number >= 4 || size - 1 < 64 * valueBytes) return false;
        JpegQuantTable& table = decoder.quant[number];
        for (size_t i = 0; i < 64; ++i)
            table.values[kJpegZigZag[i]] = valueBytes == 2 ? read_u16_be(p + 1 + i * 2) : p[1 + i];
        table.present = true;
        p += 1 + 64 * valueBytes;
        size -= 1 + 64 * valueBytes;
    }
    return true;
}

bool parse_huffman_tables(const uint8_t* p, size_t size, JpegDecoder& decoder) {
    while (size > 0) {
        if (size < 17) return false;
        const unsigned tableClass = p[0] >> 4, number = p[0] & 15;
        if (tableClass > 1 || number > 3) return false;
        size_t symbolCount = 0;
        for (int i = 0; i < 16; ++i) symbolCount += p[1 + i];
        if (size - 17 < symbolCount) return false;
        JpegHuffmanTable& table = tableClass == 0 ? decoder.dc[number] : decoder.ac[number];
        if (!build_jpeg_huffman_table(p + 1, p + 17, symbolCount, table)) return false;
        p += 17 + symbolCount;
        size -= 17 + symbolCount;
    }
    return true;
}

bool parse_frame_header(const uint8_t* p, size_t size, JpegDecoder& decoder) {
    if (size < 6 || p[0] != 8) return false;
    decoder.height = read_u16_be(p + 1);
    decoder.width = read_u16_be(p + 3);
    const unsigned count = p[5];
    if (decoder.width == 0 || decoder.height == 0) return false;
    if ((count != 1 && count != 3 && count != 4) || size < 3 * count + 6) return false;
    decoder.components.clear();
    decoder.components.resize(count);
    decoder.maxHorizontal = decoder.maxVertical = 1;
    for (unsigned i = 0; i < count; ++i) {
        const uint8_t* c = p + 6 + 3 * i;
        JpegComponent& component = decoder.components[i];
        component.identifier = c[0];
        component.horizontal = c[1] >> 4;
        component.vertical = c[1] & 15;
        component.quantTable = c[2];
        if (component.horizontal < 1 || component.horizontal > 4 || component.vertical < 1 ||
            component.vertical > 4 || component.quantTable >= 4)
            return false;
        decoder.maxHorizontal = std::max(decoder.maxHorizontal, component.horizontal);
        decoder.maxVertical = std::max(decoder.maxVertical, component.vertical);
    }
    decoder.sawFrame = true;
    return true;
}

// The entropy data runs to the first marker that is neither a stuffed 0xFF nor a restart.
size_t entropy_length(const uint8_t* data, size_t size) {
    size_t i = 0;
    while (i < size) {
        const uint8_t* ff = static_cast<const uint8_t*>(std::memchr(data + i, 0xFF, size - i));
        if (!ff) return size;
        i = size_t(ff - data);
        if (i + 1 == size) return size;
        if (data[i + 1] != 0 && !is_restart_marker(data[i + 1])) return i;
        i += 2;
    }
    return size;
}

bool parse_scan_header(const uint8_t* p, size_t size, JpegDecoder& decoder) {
    if (size < 6 || !decoder.sawFrame) return false;
    const size_t count = p[0];
    if (count == 0 || size < 2 * (count + 2)) return false;
    decoder.scanOrder.clear();
    for (size_t i = 0; i < count; ++i) {
        const int index = jpeg_component_index_by_id(decoder, p[1 + 2 * i]);
        const unsigned dcTable = p[2 + 2 * i] >> 4, acTable = p[2 + 2 * i] & 15;
        if (index < 0 || dcTable > 3 || acTable > 3) return false;
        decoder.components[size_t(index)].dcTable = dcTable;
        decoder.components[size_t(index)].acTable = acTable;
        decoder.scanOrder.push_back(size_t(index));
    }
    const uint8_t* selection = p + 1 + 2 * count;
    return selection[0] == 0 && selection[1] == 63 && selection[2] == 0;
}

bool parse_jpeg_segments(const uint8_t* data, size_t size, JpegDecoder& decoder) {
    if (size < 4 || data[0] != 0xFF || data[1] != kMarkerSoi) return false;
    size_t position = 2;
    for (;;) {
        while (position < size && data[position] != 0xFF) ++position;
        while (position < size && data[position] == 0xFF) ++position;
        if (position >= size) return false;
        const uint8_t marker = data[position++];
        if (marker == kMarkerEoi) return false;
        if (is_restart_marker(marker) || marker == kMarkerSoi || marker == kMarkerTem) continue;
        if (size - position < 2) return false;
        const size_t length = read_u16_be(data + position);
        if (length < 2 || length > size - position) return false;
        const uint8_t* payload = data + position + 2;
        const size_t payloadSize = length - 2;
        position += length;
        switch (marker) {
            case kMarkerDqt:
                if (!parse_quant_tables(payload, payloadSize, decoder)) return false;
                break;
            case kMarkerDht:
                if (!parse_huffman_tables(payload, payloadSize, decoder)) return false;
                break;
            case kMarkerSof0:
                if (!parse_frame_header(payload, payloadSize, decoder)) return false;
                break;
            case kMarkerDri:
                if (payloadSize != 2) return false;
                decoder.restartInterval = read_u16_be(payload);
                break;
            case kMarkerApp14:
                if (payloadSize > 11 && std::memcmp(payload, "Adobe", 5) == 0) decoder.adobeTransform = payload[11];
                break;
            case kMarkerSos:
                if (!parse_scan_header(payload, payloadSize, decoder)) return false;
                decoder.entropy = data + position;
                decoder.entropySize = entropy_length(data + position, size - position);
                return true;
            default:
                // Progressive, lossless, arithmetic-coded and the other frame types are refused.
                if (marker > kMarkerSof0 && marker <= 0xCF && marker != kMarkerDht && marker != kMarkerJpg)
                    return false;
                break;
        }
    }
}

// Bits come from the most significant end of each byte, up to 64 at a time. The end position of
// each of the last bytes taken is kept, so that a restart can step back to just behind the last
// byte whose bits were used, as if bytes had been read one at a time.
struct JpegBitReader {
    const uint8_t* data;
    size_t size;
    size_t position = 0;
    uint64_t bits = 0;  // the next bit is the top one
    unsigned count = 0;
    bool ended = false;  // no more bytes: the end of the data, or a marker other than a restart
    uint32_t taken = 0;
    size_t ends[16] = {};  // end position of byte number `taken`, modulo 16; [0] is the start

    JpegBitReader(const uint8_t* d, size_t s) : data(d), size(s) {}

    // 0xFF 0x00 is 0xFF; a restart marker between two bytes is passed over.
    bool read_entropy_byte(uint8_t& out) {
        for (;;) {
            if (position >= size) return false;
            const uint8_t byte = data[position];
            if (byte != 0xFF) {
                ++position;
                out = byte;
                return true;
            }
            if (size - position < 2) return false;
            const uint8_t next = data[position + 1];
            if (next == 0) {
                position += 2;
                out = 0xFF;
                return true;
            }
            if (!is_restart_marker(next)) return false;
            position += 2;
        }
    }

    void refill() {
        while (count <= 56 && !ended) {
            uint8_t byte;
            if (position < size && data[position] != 0xFF) byte = data[position++];
            else if (!read_entropy_byte(byte)) {
                ended = true;
                break;
            }
            bits |= uint64_t(byte) << (56 - count);
            count += 8;
            ends[++taken & 15] = position;
        }
    }

    bool read_bits(unsigned n, uint32_t& out) {
        if (n == 0) {
            out = 0;
            return true;
        }
        if (count < n) {
            refill();
            if (count < n) return false;
        }
        out = uint32_t(bits >> (64 - n));
        bits <<= n;
        count -= n;
        return true;
    }

    // A code is looked for among each length's run of codes in turn, from the shortest; those of
    // up to kFastBits bits are found at once in the table made from the same runs.
    bool decode_symbol(const JpegHuffmanTable& table, unsigned& symbol) {
        if (count < kMaxCodeLength) refill();
        if (count >= kFastBits) {
            const uint16_t hit = table.fast[bits >> (64 - kFastBits)];
            if (hit) {
                const unsigned length = hit >> 8;
                bits <<= length;
                count -= length;
                symbol = hit & 0xFF;
                return true;
            }
        }
        for (unsigned length = 1; length <= kMaxCodeLength && length <= count; ++length) {
            const uint32_t code = uint32_t(bits >> (64 - length));
            if (code >= table.firstCode[length] && code - table.firstCode[length] < table.count[length]) {
                symbol = table.entries[table.firstEntry[length] + code - table.firstCode[length]].symbol;
                bits <<= length;
                count -= length;
                return true;
            }
        }
        return false;
    }

    // The unused bits of the current byte are dropped; then a restart marker, when one is there.
    bool consume_restart_marker() {
        position = ends[(taken - count / 8) & 15];
        bits = 0;
        count = 0;
        ended = false;
        taken = 0;
        bool ok = true;
        if (position < size && data[position] == 0xFF) {
            while (position < size && data[position] == 0xFF) ++position;
            if (position >= size) ok = false;
            else if (is_restart_marker(data[position])) ++position;
            else if (data[position] == 0) --position;  // a stuffed 0xFF: data of the next interval
            else ok = false;
        }
        ends[0] = position;
        return ok;
    }
};

int32_t jpeg_extend(uint32_t value, unsigned bits) {
    if (bits == 0) return 0;
    if (value < (uint32_t(1) << (bits - 1))) return int32_t(value) - int32_t((uint32_t(1) << bits) - 1);
    return int32_t(value);
}

// The inverse DCT. Each sample is the sum over the coefficients of coefficient times basis value,
// 0.25 c(u) c(v) cos((2x+1)u pi/16) cos((2y+1)v pi/16). The 0.25 is a power of two, so folding
// it into the basis changes no sum. As the cosines mirror exactly, the basis value at column
// 7 - x is (-1)^u times the one at x, and at row 7 - y (-1)^v times: so each sum is taken in four
// parts, by the parity of u and of v, each part in file order over the top left quarter only,
// and the parts give the four mirrored samples by adding and subtracting. A coefficient of zero
// adds nothing, so only the coefficients present are summed.
struct JpegQuarterBasis {
    double values[64][16];  // [natural index][y * 4 + x], x and y below 4
    JpegQuarterBasis() {
        const auto& cosines = jpeg_cosines();
        for (int v = 0; v < 8; ++v)
            for (int u = 0; u < 8; ++u)
                for (int y = 0; y < 4; ++y)
                    for (int x = 0; x < 4; ++x)
                        values[v * 8 + u][y * 4 + x] =
                            (u ? 1.0 : kJpegC0) * (v ? 1.0 : kJpegC0) * cosines[x][u] * cosines[y][v] * 0.25;
    }
};

const JpegQuarterBasis& jpeg_quarter_basis() {
    static const JpegQuarterBasis basis;
    return basis;
}

void jpeg_inverse_dct_block(const double* const* values, const uint8_t* const* indices, const unsigned* counts,
                            const JpegQuarterBasis& basis, uint8_t* out, size_t stride) {
    double parts[4][16];  // [v parity * 2 + u parity][y * 4 + x]
    for (int p = 0; p < 4; ++p) {
        for (int i = 0; i < 16; ++i) parts[p][i] = 0.0;
        for (unsigned j = 0; j < counts[p]; ++j) {
            const double value = values[p][j];
            const double* row = basis.values[indices[p][j]];
            for (int i = 0; i < 16; ++i) parts[p][i] += value * row[i];
        }
    }
    for (int y = 0; y < 4; ++y) {
        uint8_t top[8], bottom[8];
        for (int x = 0; x < 4; ++x) {
            const int i = y * 4 + x;
            const double evenU = parts[0][i] + parts[2][i], oddU = parts[1][i] + parts[3][i];
            const double evenUMinus = parts[0][i] - parts[2][i], oddUMinus = parts[1][i] - parts[3][i];
            top[x] = clamp_to_u8(evenU + oddU + 128.0);
            top[7 - x] = clamp_to_u8(evenU - oddU + 128.0);
            bottom[x] = clamp_to_u8(evenUMinus + oddUMinus + 128.0);
            bottom[7 - x] = clamp_to_u8(evenUMinus - oddUMinus + 128.0);
        }
        std::memcpy(out + y * stride, top, 8);
        std::memcpy(out + (7 - y) * stride, bottom, 8);
    }
}

// One block: its coefficients are decoded and dequantised, sorted into the four parts of the
// inverse DCT, and the block's samples stored at `out`.
bool jpeg_decode_block(JpegBitReader& reader, JpegComponent& component, const JpegDecoder& decoder,
                       const JpegQuarterBasis& basis, uint8_t* out, size_t stride) {
    const JpegHuffmanTable& dcTable = decoder.dc[component.dcTable];
    const JpegHuffmanTable& acTable = decoder.ac[component.acTable];
    const uint16_t* quant = decoder.quant[component.quantTable].values;
    unsigned symbol;
    uint32_t raw;
    if (!reader.decode_symbol(dcTable, symbol) || symbol > kMaxDcCategory || !reader.read_bits(symbol, raw))
        return false;
    component.prediction += jpeg_extend(raw, symbol);
    double values[4][64];
    uint8_t indices[4][64];
    unsigned counts[4] = {1, 0, 0, 0};
    values[0][0] = double(component.prediction * quant[0]);
    indices[0][0] = 0;
    for (unsigned k = 1; k <= 63;) {
        if (!reader.decode_symbol(acTable, symbol)) return false;
        const unsigned run = symbol >> 4, category = symbol & 15;
        if (category == 0) {
            if (run != 15) break;
            k += 16;
            continue;
        }
        k += run;
        if (k > 63 || !reader.read_bits(category, raw)) return false;
        const unsigned natural = kJpegZigZag[k];
        const unsigned part = (natural >> 3 & 1) * 2 + (natural & 1);
        values[part][counts[part]] = double(int64_t(jpeg_extend(raw, category)) * quant[natural]);
        indices[part][counts[part]++] = uint8_t(natural);
        ++k;
    }
    if (counts[0] + counts[1] + counts[2] + counts[3] == 1) {
        const uint8_t sample = clamp_to_u8(values[0][0] * basis.values[0][0] + 128.0);  // DC's basis is flat
        for (int y = 0; y < 8; ++y) std::memset(out + y * stride, sample, 8);
        return true;
    }
    const double* valueLists[4] = {values[0], values[1], values[2], values[3]};
    const uint8_t* indexLists[4] = {indices[0], indices[1], indices[2], indices[3]};
    jpeg_inverse_dct_block(valueLists, indexLists, counts, basis, out, stride);
    return true;
}

// Red and blue depend on two samples each, so they are looked up in tables made once by the
// formulas themselves; green is computed.
struct YccTables {
    uint8_t red[256 * 256];   // [Y << 8 | Cr]
    uint8_t blue[256 * 256];  // [Y << 8 | Cb]
    YccTables() {
        for (int y = 0; y < 256; ++y)
            for (int c = 0; c < 256; ++c) {
                red[y << 8 | c] = clamp_to_u8(y + 1.402 * (c - 128.0));
                blue[y << 8 | c] = clamp_to_u8(y + 1.772 * (c - 128.0));
            }
    }
};

const YccTables& ycc_tables() {
    static const YccTables tables;
    return tables;
}

// One row of pixels from its YCbCr samples; green needs a row of scratch. Kept out of line:
// inlined into the decoder, the loop of green would not vectorise.
[[gnu::noinline]] void ycc_row(const uint8_t* luma, const uint8_t* cb, const uint8_t* cr, uint32_t width,
                               const YccTables& tables, uint8_t* __restrict green, uint8_t* __restrict out) {
    for (uint32_t x = 0; x < width; ++x)
        green[x] = clamp_to_u8(luma[x] - 0.344136 * (cb[x] - 128.0) - 0.714136 * (cr[x] - 128.0));
    for (uint32_t x = 0; x < width; ++x) {
        out[x * 4] = tables.red[luma[x] << 8 | cr[x]];
        out[x * 4 + 1] = green[x];
        out[x * 4 + 2] = tables.blue[luma[x] << 8 | cb[x]];
        out[x * 4 + 3] = 255;
    }
}

bool decode_jpeg_entropy(JpegDecoder& decoder, Image& image) {
    if (!decoder.entropy || decoder.entropySize == 0) return false;
    const uint64_t mcuWidth = 8 * decoder.maxHorizontal, mcuHeight = 8 * decoder.maxVertical;
    const uint64_t mcusAcross = (decoder.width + mcuWidth - 1) / mcuWidth;
    const uint64_t mcusDown = (decoder.height + mcuHeight - 1) / mcuHeight;
    uint64_t blocksPerMcu = 0;
    for (size_t index : decoder.scanOrder) {
        const JpegComponent& c = decoder.components[index];
        if (!decoder.quant[c.quantTable].present || !decoder.dc[c.dcTable].valid || !decoder.ac[c.acTable].valid)
            return false;
        blocksPerMcu += c.horizontal * c.vertical;
    }
    // Every block takes at least two bits (a DC code and an AC code), so data too short for the
    // blocks fails here, before any plane is allocated.
    uint64_t blockCount, bitsNeeded, bitsThere;
    if (!checked_mul(mcusAcross * mcusDown, blocksPerMcu, blockCount) || !checked_mul(blockCount, 2, bitsNeeded) ||
        !checked_mul(decoder.entropySize, 8, bitsThere) || bitsNeeded > bitsThere)
        return false;

    std::vector<bool> inScan(decoder.components.size(), false);
    for (size_t index : decoder.scanOrder) inScan[index] = true;
    for (size_t i = 0; i < decoder.components.size(); ++i) {
        JpegComponent& c = decoder.components[i];
        c.planeWidth = uint32_t(c.horizontal * mcusAcross * 8);
        c.planeHeight = uint32_t(c.vertical * mcusDown * 8);
        c.prediction = 0;
        c.plane.reset();
        if (inScan[i]) c.plane = std::make_unique_for_overwrite<uint8_t[]>(size_t(c.planeWidth) * c.planeHeight);
    }

    const JpegQuarterBasis& basis = jpeg_quarter_basis();
    JpegBitReader reader(decoder.entropy, decoder.entropySize);
    uint32_t sinceRestart = 0;
    for (uint64_t my = 0; my < mcusDown; ++my) {
        for (uint64_t mx = 0; mx < mcusAcross; ++mx) {
            if (decoder.restartInterval != 0 && sinceRestart == decoder.restartInterval) {
                if (!reader.consume_restart_marker()) return false;
                for (auto& c : decoder.components) c.prediction = 0;
                sinceRestart = 0;
            }
            for (size_t index : decoder.scanOrder) {
                JpegComponent& c = decoder.components[index];
                for (uint32_t by = 0; by < c.vertical; ++by) {
                    for (uint32_t bx = 0; bx < c.horizontal; ++bx) {
                        const size_t row = (my * c.vertical + by) * 8, column = (mx * c.horizontal + bx) * 8;
                        uint8_t* out = c.plane.get() + row * c.planeWidth + column;
                        if (!jpeg_decode_block(reader, c, decoder, basis, out, c.planeWidth)) return false;
                    }
                }
            }
            ++sinceRestart;
        }
    }

    uint64_t pixelCount;
    if (!compute_pixel_count(decoder.width, decoder.height, pixelCount)) return false;
    std::vector<uint8_t> rgba(size_t(pixelCount) * 4);
    const size_t componentCount = decoder.components.size();
    // Nearest neighbour: each component's sample at (x, y) is at (factor * x / largest factor),
    // and the same down; the planes cover whole MCUs, so that is always inside.
    const std::vector<uint8_t> zeroRow(size_t(mcusAcross) * mcuWidth, 0);
    std::vector<uint8_t> spread[4];  // a row of a narrower plane, widened to the image
    std::vector<uint32_t> columns[4];
    for (size_t i = 0; i < componentCount; ++i) {
        if (decoder.components[i].horizontal == decoder.maxHorizontal) continue;
        spread[i].resize(decoder.width);
        columns[i].resize(decoder.width);
        for (uint32_t x = 0; x < decoder.width; ++x)
            columns[i][x] = decoder.components[i].horizontal * x / decoder.maxHorizontal;
    }
    const bool ycc = componentCount == 3 || (componentCount == 4 && decoder.adobeTransform == 2);
    const YccTables* tables = ycc ? &ycc_tables() : nullptr;
    std::vector<uint8_t> green(ycc ? decoder.width : 0);
    for (uint32_t y = 0; y < decoder.height; ++y) {
        const uint8_t* samples[4] = {};
        for (size_t i = 0; i < componentCount; ++i) {
            const JpegComponent& c = decoder.components[i];
            const uint8_t* row = !c.plane ? zeroRow.data()
                                          : c.plane.get() + size_t(c.vertical * y / decoder.maxVertical) * c.planeWidth;
            if (spread[i].empty()) {
                samples[i] = row;
                continue;
            }
            uint8_t* wide = spread[i].data();
            if (decoder.maxHorizontal == 2 * c.horizontal) {  // the common 4:2:2 and 4:2:0
                for (uint32_t x = 0; x < decoder.width / 2; ++x) wide[2 * x] = wide[2 * x + 1] = row[x];
                if (decoder.width % 2) wide[decoder.width - 1] = row[decoder.width / 2];
            } else {
                const uint32_t* column = columns[i].data();
                for (uint32_t x = 0; x < decoder.width; ++x) wide[x] = row[column[x]];
            }
            samples[i] = wide;
        }
        uint8_t* out = rgba.data() + size_t(y) * decoder.width * 4;
        const uint8_t *s0 = samples[0], *s1 = samples[1], *s2 = samples[2];
        if (componentCount == 1) {
            for (uint32_t x = 0; x < decoder.width; ++x) {
                out[x * 4] = out[x * 4 + 1] = out[x * 4 + 2] = s0[x];
                out[x * 4 + 3] = 255;
            }
        } else if (ycc) {
            ycc_row(s0, s1, s2, decoder.width, *tables, green.data(), out);
        } else {
            for (uint32_t x = 0; x < decoder.width; ++x) {
                out[x * 4] = s0[x];
                out[x * 4 + 1] = s1[x];
                out[x * 4 + 2] = s2[x];
                out[x * 4 + 3] = 255;
            }
        }
        if (componentCount == 4) {
            const uint8_t* black = samples[3];
            for (uint32_t x = 0; x < decoder.width; ++x)
                for (int c = 0; c < 3; ++c) out[x * 4 + c] = uint8_t(255 - std::min(255, out[x * 4 + c] + black[x]));
        }
    }
    image.width = decoder.width;
    image.height = decoder.height;
    image.pixels.swap(rgba);
    return true;
}

}  // namespace

bool load_jpeg_memory(const uint8_t* data, size_t size, Image& image) {
    image = Image{};
    JpegDecoder decoder;
    return data && parse_jpeg_segments(data, size, decoder) && decode_jpeg_entropy(decoder, image);
}

}  // namespace ot::png
