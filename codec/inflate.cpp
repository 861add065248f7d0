#include "codec/inflate.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "codec/bytes.h"
#include "codec/checksum.h"

namespace ot::png {

namespace {

constexpr unsigned kMaxBits = 15;

// The bit reader keeps up to 64 bits; bits are taken from the least significant end of each byte.
// The input may come in pieces, as the data chunks of a PNG file: the reader goes on to the next
// piece when one is used up, so that they need not be joined first.
struct BitReader {
    const uint8_t* data;
    size_t size;
    const ByteSpan* nextPiece = nullptr;
    const ByteSpan* endPiece = nullptr;
    size_t position = 0;
    uint64_t buffer = 0;
    unsigned count = 0;

    // Bits above `count` are either zero or the true next bits of the input, so a peek past
    // the end of the input reads zeros.
    void refill() {
        if (size - position >= 8) {
            uint64_t word;
            std::memcpy(&word, data + position, 8);
            if constexpr (std::endian::native == std::endian::big) word = __builtin_bswap64(word);
            buffer |= word << count;
            position += (63 - count) >> 3;
            count |= 56;
            return;
        }
        while (count <= 56 && next_piece_if_done()) {
            buffer |= uint64_t(data[position++]) << count;
            count += 8;
        }
    }

    // False when the whole input is used up.
    bool next_piece_if_done() {
        while (position == size) {
            if (nextPiece == endPiece) return false;
            data = nextPiece->data;
            size = nextPiece->size;
            ++nextPiece;
            position = 0;
        }
        return true;
    }

    bool read_bits(unsigned n, uint32_t& out) {
        if (count < n) {
            refill();
            if (count < n) return false;
        }
        out = uint32_t(buffer & ((uint64_t(1) << n) - 1));
        buffer >>= n;
        count -= n;
        return true;
    }

    void consume(unsigned n) {
        buffer >>= n;
        count -= n;
    }

    void align_to_byte() { consume(count & 7); }

    bool used_up() { return count == 0 && !next_piece_if_done(); }
};

// A canonical Huffman code as a two-level lookup table: the low kRoot bits of the input index the
// root, longer codes go through a subtable indexed by the bits after those. Each entry says what
// the code means and how many bits it takes, so that a length or distance is read with its extra
// bits in one step:
//   bits 0-7    bits to consume: the code's length plus its extra bits
//   bits 8-11   the code's length; for a link, the subtable's index bits; for literals, how many
//   bits 12-15  what it is: literals, a link, the end of the block, or a failure
//   bits 16-31  the base of a length or distance, or the subtable's offset; for literals, the
//               first byte and, where two short codes fit in the root together, the second
// A failure entry stands for a bit pattern that no code starts with and for symbols that fail on
// use (lengths 286 and 287, distances 30 and 31). So the table accepts and refuses exactly what a
// bit-by-bit canonical decode does: an unused pattern fails there too, by running past the
// longest length or out of input.
constexpr uint32_t kLiteral = 1u << 12;
constexpr uint32_t kLink = 1u << 13;
constexpr uint32_t kEnd = 1u << 14;
constexpr uint32_t kFail = 1u << 15;

constexpr unsigned kLiteralRoot = 11;
constexpr unsigned kDistanceRoot = 8;
constexpr unsigned kCodeLengthRoot = 7;

struct HuffmanTable {
    std::vector<uint32_t> entries;
    unsigned rootBits = 0;
};

inline unsigned total_bits(uint32_t entry) { return entry & 0xFF; }
// The same, for a shift: no entry takes 64 bits or more, and the masked form costs nothing on
// the decoder's longest chain, since shifts look at only those bits.
inline unsigned shift_bits(uint32_t entry) { return entry & 63; }
inline unsigned code_bits(uint32_t entry) { return (entry >> 8) & 0xF; }
inline unsigned literal_count(uint32_t entry) { return (entry >> 8) & 0xF; }
inline uint64_t low_bits(uint64_t value, unsigned n) { return value & ((uint64_t(1) << n) - 1); }

// The entry for the input's next bits; past the end of the input those read as zeros.
inline uint32_t look_up(const HuffmanTable& table, uint64_t bits) {
    const uint32_t* entries = table.entries.data();
    uint32_t entry = entries[low_bits(bits, table.rootBits)];
    if (entry & kLink) entry = entries[(entry >> 16) + low_bits(bits >> table.rootBits, code_bits(entry))];
    return entry;
}

// The value of a length or distance entry, its extra bits being the ones after the code.
inline uint32_t entry_value(uint32_t entry, uint64_t bits) {
    return (entry >> 16) + uint32_t(low_bits(bits, total_bits(entry)) >> code_bits(entry));
}

const uint16_t kLengthBase[29] = {3,  4,  5,  6,  7,  8,  9,  10, 11,  13,  15,  17,  19,  23, 27,
                                  31, 35, 43, 51, 59, 67, 83, 99, 115, 131, 163, 195, 227, 258};
const uint8_t kLengthExtra[29] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
const uint16_t kDistanceBase[30] = {1,   2,   3,   4,   5,   7,    9,    13,   17,   25,   33,   49,   65,    97,    129,
                                    193, 257, 385, 513, 769, 1025, 1537, 2049, 3073, 4097, 6145, 8193, 12289, 16385, 24577};
const uint8_t kDistanceExtra[30] = {0, 0, 0, 0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13};

enum class Alphabet { kLiteralLength, kDistance, kCodeLength };

// What a symbol means, without its code: meaning and value bits, extra bits in bits 0-7.
uint32_t symbol_meaning(Alphabet alphabet, unsigned symbol) {
    switch (alphabet) {
        case Alphabet::kLiteralLength:
            if (symbol < 256) return kLiteral | symbol << 16;
            if (symbol == 256) return kEnd;
            if (symbol <= 285) return uint32_t(kLengthBase[symbol - 257]) << 16 | kLengthExtra[symbol - 257];
            return kFail;
        case Alphabet::kDistance:
            if (symbol < 30) return uint32_t(kDistanceBase[symbol]) << 16 | kDistanceExtra[symbol];
            return kFail;
        case Alphabet::kCodeLength: return symbol << 16;
    }
    return kFail;
}

bool build_huffman_table(const uint8_t* lengths, unsigned n, Alphabet alphabet, HuffmanTable& table,
                         bool allowEmpty) {
    const unsigned root = alphabet == Alphabet::kLiteralLength ? kLiteralRoot
                          : alphabet == Alphabet::kDistance    ? kDistanceRoot
                                                               : kCodeLengthRoot;
    unsigned counts[kMaxBits + 1] = {};
    for (unsigned i = 0; i < n; ++i) {
        if (lengths[i] > kMaxBits) return false;
        ++counts[lengths[i]];
    }
    if (counts[0] == n) {
        // Valid when empty is allowed, and then every use fails.
        table.rootBits = root;
        table.entries.assign(size_t(1) << root, kFail);
        return allowEmpty;
    }
    int left = 1;
    unsigned maxLength = 0;
    for (unsigned len = 1; len <= kMaxBits; ++len) {
        left = (left << 1) - int(counts[len]);
        if (left < 0) return false;  // over-subscribed; an incomplete set is allowed
        if (counts[len]) maxLength = len;
    }
    const unsigned subBits = maxLength > root ? maxLength - root : 0;

    // Symbols in code order: by length, then by value.
    unsigned offsets[kMaxBits + 2] = {};
    for (unsigned len = 1; len <= kMaxBits; ++len) offsets[len + 1] = offsets[len] + counts[len];
    uint16_t sorted[288 + 32];
    for (unsigned symbol = 0; symbol < n; ++symbol)
        if (lengths[symbol]) sorted[offsets[lengths[symbol]]++] = uint16_t(symbol);

    // The root is built up by doubling: before the codes of a length go in, the entries so far
    // are repeated, so that a code shorter than the index bits fills every entry it begins.
    // What no code begins stays a failure.
    const size_t rootSize = size_t(1) << root;
    table.rootBits = root;
    table.entries.resize(rootSize);
    table.entries[0] = kFail;
    size_t filled = 1;
    auto double_root = [&] {
        std::memcpy(table.entries.data() + filled, table.entries.data(), filled * sizeof(uint32_t));
        filled *= 2;
    };
    unsigned code = 0;  // the next code, bit-reversed as it comes off the input
    unsigned index = 0;
    unsigned shortestLiteral = kMaxBits + 1;
    for (unsigned len = 1; len <= maxLength; ++len) {
        if (len <= root) double_root();
        for (unsigned k = 0; k < counts[len]; ++k, ++index) {
            const uint32_t meaning = symbol_meaning(alphabet, sorted[index]);
            uint32_t entry = meaning;
            if (meaning & kLiteral) {
                entry = meaning | 1u << 8 | len;
                shortestLiteral = std::min(shortestLiteral, len);
            } else if (!(meaning & kFail)) {
                entry = (meaning & ~0xFFu) | len << 8 | (len + (meaning & 0xFF));
            }
            if (len <= root) {
                table.entries[code] = entry;
            } else {
                const size_t rootIndex = code & (rootSize - 1);
                if (!(table.entries[rootIndex] & kLink)) {
                    table.entries[rootIndex] = kLink | uint32_t(table.entries.size()) << 16 | subBits << 8;
                    table.entries.resize(table.entries.size() + (size_t(1) << subBits), kFail);
                }
                const size_t base = table.entries[rootIndex] >> 16;
                for (size_t i = code >> root; i < (size_t(1) << subBits); i += size_t(1) << (len - root))
                    table.entries[base + i] = entry;
            }
            // The next code of the same length, reversed: add one at the top of `len` bits.
            unsigned bit = 1u << (len - 1);
            while (code & bit) bit >>= 1;
            code = bit ? (code & (bit - 1)) | bit : 0;
        }
    }
    while (filled < rootSize) double_root();
    if (alphabet == Alphabet::kLiteralLength && 2 * shortestLiteral <= root) {
        // Two literals in one entry where both codes fit in the root: the bits after the first
        // code index the second. Downwards, so that the entry looked at is still a single one.
        // No branch on the entries, which a new table makes unpredictable: other entries take
        // no bits and look at themselves.
        uint32_t* entries = table.entries.data();
        for (size_t i = rootSize; i-- > 0;) {
            const uint32_t first = entries[i];
            const unsigned firstBits = total_bits(first);
            const uint32_t second = entries[i >> firstBits];
            const uint32_t both = kLiteral | 2u << 8 | (firstBits + total_bits(second)) | (first & 0xFF0000) |
                                  (second & 0xFF0000) << 8;
            const bool pair = (first & second & kLiteral) && firstBits + total_bits(second) <= root;
            entries[i] = pair ? both : first;
        }
    }
    return true;
}

struct FixedTables {
    HuffmanTable literal;
    HuffmanTable distance;
    FixedTables() {
        uint8_t lengths[288];
        for (int i = 0; i < 288; ++i) lengths[i] = i < 144 ? 8 : i < 256 ? 9 : i < 280 ? 7 : 8;
        build_huffman_table(lengths, 288, Alphabet::kLiteralLength, literal, false);
        uint8_t distances[32];
        std::memset(distances, 5, sizeof distances);
        build_huffman_table(distances, 32, Alphabet::kDistance, distance, false);
    }
};

const FixedTables& fixed_tables() {
    static const FixedTables tables;
    return tables;
}

// The output lives in a buffer with spare room past its end, so that copies may write whole
// words; only `size` bytes are kept in the end. `front` spare bytes may go before an output that
// fills the limit exactly: they come with the growth to the limit, once the input has shown that
// the stream can be about that long, so that a tiny stream cannot make us allocate them.
struct Output {
    static constexpr size_t kSlack = 32;
    std::vector<uint8_t> storage;
    size_t front = 0;
    size_t offset = 0;  // where the output starts in `storage`: 0 or `front`
    uint8_t* bytes = nullptr;
    size_t size = 0;
    size_t capacity = 0;
    size_t limit = SIZE_MAX;

    bool reserve_more(size_t extra) {
        uint64_t needed, total;
        if (!checked_add(size, extra, needed) || needed > limit) return false;
        if (needed <= capacity) return true;
        uint64_t grown = capacity * 2 > needed ? capacity * 2 : needed;
        if (grown < 4096) grown = 4096;
        if (grown > limit) grown = limit;
        const size_t newOffset = grown == limit ? front : 0;
        if (!checked_add(grown, kSlack, total) || !checked_add(total, newOffset, total) || total > SIZE_MAX) return false;
        std::vector<uint8_t> grownStorage(total);
        if (size) std::memcpy(grownStorage.data() + newOffset, bytes, size);
        storage.swap(grownStorage);
        offset = newOffset;
        bytes = storage.data() + offset;
        capacity = grown;
        return true;
    }
};

// A plain bit-by-bit-equivalent symbol read, for the code length code and the careful path.
inline bool decode_symbol(BitReader& in, const HuffmanTable& table, uint32_t& entry) {
    if (in.count < 32) in.refill();
    entry = look_up(table, in.buffer);
    if ((entry & kFail) || total_bits(entry) > in.count) return false;
    return true;
}

bool read_dynamic_tables(BitReader& in, HuffmanTable& literal, HuffmanTable& distance) {
    static const uint8_t kOrder[19] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};
    uint32_t hlit, hdist, hclen;
    if (!in.read_bits(5, hlit) || !in.read_bits(5, hdist) || !in.read_bits(4, hclen)) return false;
    const unsigned literalCount = hlit + 257, distanceCount = hdist + 1, total = literalCount + distanceCount;
    uint8_t codeLengths[19] = {};
    for (unsigned i = 0; i < hclen + 4; ++i) {
        uint32_t v;
        if (!in.read_bits(3, v)) return false;
        codeLengths[kOrder[i]] = uint8_t(v);
    }
    HuffmanTable lengthTable;
    if (!build_huffman_table(codeLengths, 19, Alphabet::kCodeLength, lengthTable, false)) return false;

    uint8_t lengths[288 + 32] = {};
    unsigned filled = 0;
    while (filled < total) {
        uint32_t entry;
        if (!decode_symbol(in, lengthTable, entry)) return false;
        in.consume(total_bits(entry));
        const unsigned symbol = entry >> 16;
        if (symbol <= 15) {
            lengths[filled++] = uint8_t(symbol);
            continue;
        }
        uint32_t extra;
        unsigned repeat;
        uint8_t value = 0;
        if (symbol == 16) {
            if (filled == 0 || !in.read_bits(2, extra)) return false;
            value = lengths[filled - 1];
            repeat = 3 + extra;
        } else if (symbol == 17) {
            if (!in.read_bits(3, extra)) return false;
            repeat = 3 + extra;
        } else {
            if (!in.read_bits(7, extra)) return false;
            repeat = 11 + extra;
        }
        // A repeat running past the total stops there.
        while (repeat-- && filled < total) lengths[filled++] = value;
    }
    return build_huffman_table(lengths, literalCount, Alphabet::kLiteralLength, literal, false) &&
           build_huffman_table(lengths + literalCount, distanceCount, Alphabet::kDistance, distance, true);
}

// Copies a match of `length` bytes from `dist` back, as a byte-by-byte copy would, so that an
// overlapping source repeats its pattern. It may write up to 16 bytes past the end.
inline void copy_match(uint8_t* to, size_t dist, size_t length) {
    const uint8_t* from = to - dist;
    uint8_t* const end = to + length;
    if (dist >= 16) {
        // Each 16-byte piece reads only bytes written before it.
        do {
            std::memcpy(to, from, 16);
            to += 16, from += 16;
        } while (to < end);
        return;
    }
    if (dist >= 8) {
        do {
            std::memcpy(to, from, 8);
            to += 8, from += 8;
        } while (to < end);
        return;
    }
    if (dist == 1) {
        const uint64_t word = uint64_t(*from) * 0x0101010101010101u;
        do {
            std::memcpy(to, &word, 8);
            to += 8;
        } while (to < end);
        return;
    }
    // A short period: lay down one multiple of it of at least 8 bytes, then whole words from that
    // far back, which hold the same pattern.
    const size_t period = (8 + dist - 1) / dist * dist;
    for (size_t i = 0; i < period; ++i) to[i] = from[i];
    for (to += period; to < end; to += 8) std::memcpy(to, to - period, 8);
}

// The fast loop runs while the input has room for whole-word refills and the output for the
// longest match plus a few literals; it keeps the reader's and writer's state in locals, since
// every byte stored could otherwise alias them. The careful step below takes one symbol at a time
// with every check, at the ends of the buffers. Both decode the same way. Every literal table has
// the root kLiteralRoot and every distance table kDistanceRoot, an empty one too.
bool decode_compressed_block(BitReader& in, Output& out, const HuffmanTable& literal, const HuffmanTable& distance) {
    constexpr size_t kInputRoom = 40;
    constexpr size_t kOutputRoom = 258 + 4;
    const uint32_t* const literals = literal.entries.data();
    const uint32_t* const distances = distance.entries.data();
    for (;;) {
        if (in.size - in.position >= kInputRoom && out.capacity - out.size >= kOutputRoom) {
            const uint8_t* ip = in.data + in.position;
            const uint8_t* const ipLast = in.data + in.size - kInputRoom;
            uint64_t bits = in.buffer;
            unsigned count = in.count;
            uint8_t* const start = out.bytes;
            uint8_t* op = start + out.size;
            uint8_t* const opLast = start + out.capacity - kOutputRoom;
            auto refill = [&] {
                uint64_t word;
                std::memcpy(&word, ip, 8);
                if constexpr (std::endian::native == std::endian::big) word = __builtin_bswap64(word);
                bits |= word << count;
                ip += (63 - count) >> 3;
                count |= 56;
            };
            auto consume = [&](uint32_t entry) {
                bits >>= shift_bits(entry);
                count -= total_bits(entry);
            };
            auto put_literals = [&](uint32_t entry) {
                consume(entry);
                op[0] = uint8_t(entry >> 16);
                op[1] = uint8_t(entry >> 24);
                op += literal_count(entry);
            };
            auto literal_entry = [&] {
                uint32_t entry = literals[low_bits(bits, kLiteralRoot)];
                if (entry & kLink) entry = literals[(entry >> 16) + low_bits(bits >> kLiteralRoot, code_bits(entry))];
                return entry;
            };
            int verdict = 0;  // 1: end of block, -1: failure
            // Each lookup reads bits already in the buffer while the refill that follows it loads
            // the next word, so that the refill stays off the chain from one code to the next.
            // At the top of the loop at least 26 bits are in the buffer, enough for any code.
            refill();
            do {
                uint32_t entry = literal_entry();
                refill();
                if (entry & kLiteral) {
                    put_literals(entry);
                    entry = literal_entry();
                    if (entry & kLiteral) {
                        put_literals(entry);
                        continue;
                    }
                    // A length and a distance take up to 48 bits.
                    refill();
                }
                if (entry & (kEnd | kFail)) {
                    consume(entry);
                    verdict = entry & kFail ? -1 : 1;
                    break;
                }
                const size_t length = entry_value(entry, bits);
                consume(entry);
                uint32_t d = distances[low_bits(bits, kDistanceRoot)];
                if (d & kLink) d = distances[(d >> 16) + low_bits(bits >> kDistanceRoot, code_bits(d))];
                if (d & kFail) {
                    verdict = -1;
                    break;
                }
                const size_t dist = entry_value(d, bits);
                consume(d);
                refill();
                if (dist > size_t(op - start)) {
                    verdict = -1;
                    break;
                }
                copy_match(op, dist, length);
                op += length;
            } while (ip <= ipLast && op <= opLast);
            in.position = size_t(ip - in.data);
            in.buffer = bits;
            in.count = count;
            out.size = size_t(op - start);
            if (verdict) return verdict > 0;
        }

        // The careful step.
        uint32_t entry;
        if (!decode_symbol(in, literal, entry)) return false;
        const uint64_t bits = in.buffer;
        in.consume(total_bits(entry));
        if (entry & kLiteral) {
            const unsigned n = literal_count(entry);
            if (out.capacity - out.size < n && !out.reserve_more(n)) return false;
            out.bytes[out.size] = uint8_t(entry >> 16);
            if (n == 2) out.bytes[out.size + 1] = uint8_t(entry >> 24);
            out.size += n;
            continue;
        }
        if (entry & kEnd) return true;
        const size_t length = entry_value(entry, bits);
        uint32_t d;
        if (!decode_symbol(in, distance, d)) return false;
        const size_t dist = entry_value(d, in.buffer);
        in.consume(total_bits(d));
        if (dist > out.size) return false;
        if (out.capacity - out.size < length && !out.reserve_more(length)) return false;
        copy_match(out.bytes + out.size, dist, length);
        out.size += length;
    }
}

bool copy_stored_block(BitReader& in, Output& out) {
    in.align_to_byte();
    uint32_t len, nlen, lo, hi;
    if (!in.read_bits(8, lo) || !in.read_bits(8, hi)) return false;
    len = lo | hi << 8;
    if (!in.read_bits(8, lo) || !in.read_bits(8, hi)) return false;
    nlen = lo | hi << 8;
    if (nlen != (len ^ 0xFFFF)) return false;
    if (!out.reserve_more(len)) return false;
    uint8_t* to = out.bytes + out.size;
    size_t remaining = len;
    while (remaining && in.count >= 8) {
        *to++ = uint8_t(in.buffer);
        in.consume(8);
        --remaining;
    }
    if (remaining) {
        // The refill may have left copies of the bytes about to be taken above the empty buffer.
        in.buffer = 0;
        while (remaining) {
            if (!in.next_piece_if_done()) return false;
            const size_t n = std::min(remaining, in.size - in.position);
            std::memcpy(to, in.data + in.position, n);
            to += n;
            in.position += n;
            remaining -= n;
        }
    }
    out.size += len;
    return true;
}

// `count` bytes of the stream that the spans make together, from `from` on; they are there.
void copy_stream_bytes(const std::vector<ByteSpan>& spans, size_t from, size_t count, uint8_t* out) {
    size_t at = 0;
    for (const ByteSpan& span : spans) {
        for (size_t i = from > at ? from - at : 0; i < span.size && count; ++i, --count) *out++ = span.data[i];
        at += span.size;
        if (!count) return;
    }
}

bool inflate_spans(const std::vector<ByteSpan>& spans, std::vector<uint8_t>& output, size_t limit, size_t front) {
    output.clear();
    size_t size = 0;
    for (const ByteSpan& span : spans) size += span.size;
    if (size < 6) return false;
    uint8_t header[2], trailer[4];
    copy_stream_bytes(spans, 0, 2, header);
    copy_stream_bytes(spans, size - 4, 4, trailer);
    const unsigned cmf = header[0], flg = header[1];
    if ((cmf & 0x0F) != 8 || (cmf * 256 + flg) % 31 != 0 || (flg & 0x20)) return false;

    // The deflate data lies between the two header bytes and the four of the checksum.
    std::vector<ByteSpan> pieces;
    size_t at = 0;
    for (const ByteSpan& span : spans) {
        const size_t from = std::max<size_t>(at, 2), to = std::min(at + span.size, size - 4);
        if (from < to) pieces.push_back({span.data + (from - at), to - from});
        at += span.size;
    }
    BitReader in{nullptr, 0, pieces.data(), pieces.data() + pieces.size()};
    Output out;
    out.front = front;
    out.limit = limit;
    // Start from a few times the input size, which is enough for most streams, or the limit.
    uint64_t guess = 0;
    if (!checked_mul(size, 4, guess)) guess = limit;
    if (!out.reserve_more(guess < limit ? guess : limit)) return false;

    HuffmanTable literal, distance;
    for (bool last = false; !last;) {
        uint32_t bfinal, btype;
        if (!in.read_bits(1, bfinal) || !in.read_bits(2, btype)) return false;
        last = bfinal;
        if (btype == 0) {
            if (!copy_stored_block(in, out)) return false;
        } else if (btype == 1) {
            const FixedTables& fixed = fixed_tables();
            if (!decode_compressed_block(in, out, fixed.literal, fixed.distance)) return false;
        } else if (btype == 2) {
            if (!read_dynamic_tables(in, literal, distance) || !decode_compressed_block(in, out, literal, distance))
                return false;
        } else {
            return false;
        }
    }
    in.align_to_byte();
    if (!in.used_up()) return false;
    if (adler32_bytes(out.bytes, out.size) != read_u32_be(trailer)) return false;
    if (front && out.size != limit) return false;
    out.storage.resize(out.offset + out.size);
    output.swap(out.storage);
    return true;
}

}  // namespace

bool inflate_zlib_stream(const uint8_t* data, size_t size, std::vector<uint8_t>& output, size_t limit) {
    return inflate_spans({ByteSpan{data, size}}, output, limit, 0);
}

bool Inflater::start(const std::vector<ByteSpan>& spans, size_t limit, size_t front) {
    position_ = front;
    front_ = front;
    return inflate_spans(spans, output_, limit, front);
}

const uint8_t* Inflater::read_exact(size_t count) {
    if (output_.size() - position_ < count) return nullptr;
    const uint8_t* bytes = output_.data() + position_;
    position_ += count;
    return bytes;
}

std::vector<uint8_t> Inflater::take_output() {
    position_ = front_ = 0;
    return std::move(output_);
}

}  // namespace ot::png
