#include "codec/inflate.h"

#include <bit>
#include <cstring>

#include "codec/bytes.h"
#include "codec/checksum.h"

namespace ot::png {

namespace {

constexpr unsigned kMaxBits = 15;
constexpr unsigned kRootBits = 10;

// The bit reader keeps up to 64 bits; bits are taken from the least significant end of each byte.
struct BitReader {
    const uint8_t* data;
    size_t size;
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
        } else {
            while (count <= 56 && position < size) {
                buffer |= uint64_t(data[position++]) << count;
                count += 8;
            }
        }
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

    void align_to_byte() {
        unsigned drop = count & 7;
        buffer >>= drop;
        count -= drop;
    }

    bool used_up() const { return position == size && count == 0; }
};

// A canonical Huffman code as a two-level lookup table: the first kRootBits bits index the root,
// longer codes go through a subtable. An entry is symbol | length << 16, or a subtable link;
// 0 marks a bit pattern that no code starts with. It accepts and refuses exactly what a
// bit-by-bit canonical decode does: an unused pattern fails there too, by running past the
// longest length or out of input.
struct HuffmanTable {
    static constexpr uint32_t kLink = 1u << 24;
    std::vector<uint32_t> entries;
    unsigned rootBits = 0;
    unsigned subBits = 0;
    unsigned maxLength = 0;  // 0: a valid empty table whose every use fails
};

unsigned reverse_bits(unsigned code, unsigned length) {
    unsigned result = 0;
    for (unsigned i = 0; i < length; ++i) {
        result = result << 1 | (code & 1);
        code >>= 1;
    }
    return result;
}

bool build_huffman_table(const uint8_t* lengths, unsigned n, HuffmanTable& table, bool allowEmpty) {
    unsigned counts[kMaxBits + 1] = {};
    for (unsigned i = 0; i < n; ++i) {
        if (lengths[i] > kMaxBits) return false;
        ++counts[lengths[i]];
    }
    table.maxLength = 0;
    table.entries.clear();
    if (counts[0] == n) return allowEmpty;
    int left = 1;
    for (unsigned len = 1; len <= kMaxBits; ++len) {
        left = (left << 1) - int(counts[len]);
        if (left < 0) return false;  // over-subscribed; an incomplete set is allowed
        if (counts[len]) table.maxLength = len;
    }
    table.rootBits = table.maxLength < kRootBits ? table.maxLength : kRootBits;
    table.subBits = table.maxLength - table.rootBits;
    table.entries.assign(size_t(1) << table.rootBits, 0);

    unsigned nextCode[kMaxBits + 2] = {};
    for (unsigned len = 1, code = 0; len <= kMaxBits; ++len) {
        code = (code + counts[len - 1] * (len > 1)) << 1;
        nextCode[len] = code;
    }
    const unsigned rootMask = (1u << table.rootBits) - 1;
    // Codes are assigned in order of length, then of symbol value.
    for (unsigned len = 1; len <= table.maxLength; ++len) {
        for (unsigned symbol = 0; symbol < n; ++symbol) {
            if (lengths[symbol] != len) continue;
            unsigned reversed = reverse_bits(nextCode[len]++, len);
            uint32_t entry = symbol | len << 16;
            if (len <= table.rootBits) {
                for (unsigned i = reversed; i <= rootMask; i += 1u << len) table.entries[i] = entry;
                continue;
            }
            const size_t rootIndex = reversed & rootMask;
            if (!(table.entries[rootIndex] & HuffmanTable::kLink)) {
                table.entries[rootIndex] = HuffmanTable::kLink | uint32_t(table.entries.size());
                table.entries.resize(table.entries.size() + (size_t(1) << table.subBits), 0);
            }
            const size_t base = table.entries[rootIndex] & 0xFFFF;
            unsigned subLength = len - table.rootBits;
            for (unsigned i = reversed >> table.rootBits; i < (1u << table.subBits); i += 1u << subLength)
                table.entries[base + i] = entry;
        }
    }
    return true;
}

inline bool decode_symbol(BitReader& in, const HuffmanTable& table, unsigned& symbol) {
    if (table.maxLength == 0) return false;
    if (in.count < kMaxBits) in.refill();
    uint32_t entry = table.entries[in.buffer & ((1u << table.rootBits) - 1)];
    if (entry & HuffmanTable::kLink)
        entry = table.entries[(entry & 0xFFFF) + ((in.buffer >> table.rootBits) & ((1u << table.subBits) - 1))];
    unsigned length = entry >> 16;
    if (length == 0 || length > in.count) return false;
    in.buffer >>= length;
    in.count -= length;
    symbol = entry & 0xFFFF;
    return true;
}

const uint16_t kLengthBase[29] = {3,  4,  5,  6,  7,  8,  9,  10, 11,  13,  15,  17,  19,  23, 27,
                                  31, 35, 43, 51, 59, 67, 83, 99, 115, 131, 163, 195, 227, 258};
const uint8_t kLengthExtra[29] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
const uint16_t kDistanceBase[30] = {1,   2,   3,   4,   5,   7,    9,    13,   17,   25,   33,   49,   65,    97,    129,
                                    193, 257, 385, 513, 769, 1025, 1537, 2049, 3073, 4097, 6145, 8193, 12289, 16385, 24577};
const uint8_t kDistanceExtra[30] = {0, 0, 0, 0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13};

struct FixedTables {
    HuffmanTable literal;
    HuffmanTable distance;
    FixedTables() {
        uint8_t lengths[288];
        for (int i = 0; i < 288; ++i) lengths[i] = i < 144 ? 8 : i < 256 ? 9 : i < 280 ? 7 : 8;
        build_huffman_table(lengths, 288, literal, false);
        uint8_t distances[32];
        std::memset(distances, 5, sizeof distances);
        build_huffman_table(distances, 32, distance, false);
    }
};

const FixedTables& fixed_tables() {
    static const FixedTables tables;
    return tables;
}

// The output lives in a buffer with spare room past its end, so that copies may write whole
// words; only `size` bytes are kept in the end.
struct Output {
    static constexpr size_t kSlack = 16;
    std::vector<uint8_t> storage;
    uint8_t* bytes = nullptr;
    size_t size = 0;
    size_t capacity = 0;
    size_t limit = SIZE_MAX;

    bool reserve_more(size_t extra) {
        uint64_t needed;
        if (!checked_add(size, extra, needed) || needed > limit) return false;
        if (needed <= capacity) return true;
        uint64_t grown = capacity * 2 > needed ? capacity * 2 : needed;
        if (grown < 4096) grown = 4096;
        if (grown > limit) grown = limit;
        storage.resize(grown + kSlack);
        bytes = storage.data();
        capacity = grown;
        return true;
    }
};

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
    if (!build_huffman_table(codeLengths, 19, lengthTable, false)) return false;

    uint8_t lengths[288 + 32] = {};
    unsigned filled = 0;
    while (filled < total) {
        unsigned symbol;
        if (!decode_symbol(in, lengthTable, symbol)) return false;
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
    return build_huffman_table(lengths, literalCount, literal, false) &&
           build_huffman_table(lengths + literalCount, distanceCount, distance, true);
}

bool decode_compressed_block(BitReader& in, Output& out, const HuffmanTable& literal, const HuffmanTable& distance) {
    for (;;) {
        if (in.count < 48) in.refill();
        unsigned symbol;
        if (!decode_symbol(in, literal, symbol)) return false;
        if (symbol < 256) {
            if (out.size >= out.capacity && !out.reserve_more(1)) return false;
            out.bytes[out.size++] = uint8_t(symbol);
            continue;
        }
        if (symbol == 256) return true;
        if (symbol > 285) return false;
        uint32_t extra;
        if (!in.read_bits(kLengthExtra[symbol - 257], extra)) return false;
        const size_t length = kLengthBase[symbol - 257] + extra;
        unsigned distanceSymbol;
        if (!decode_symbol(in, distance, distanceSymbol) || distanceSymbol >= 30) return false;
        if (!in.read_bits(kDistanceExtra[distanceSymbol], extra)) return false;
        const size_t dist = kDistanceBase[distanceSymbol] + extra;
        if (dist > out.size) return false;
        if (out.capacity - out.size < length && !out.reserve_more(length)) return false;
        uint8_t* to = out.bytes + out.size;
        const uint8_t* from = to - dist;
        out.size += length;
        if (dist >= 8) {
            // Whole words: each one reads only bytes written before it, as a byte copy would.
            for (size_t i = 0; i < length; i += 8) std::memcpy(to + i, from + i, 8);
        } else {
            for (size_t i = 0; i < length; ++i) to[i] = from[i];
        }
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
        in.buffer >>= 8;
        in.count -= 8;
        --remaining;
    }
    if (remaining) {
        if (in.size - in.position < remaining) return false;
        std::memcpy(to, in.data + in.position, remaining);
        in.position += remaining;
        // The refill may have left copies of the bytes just taken above the empty buffer.
        in.buffer = 0;
    }
    out.size += len;
    return true;
}

}  // namespace

bool inflate_zlib_stream(const uint8_t* data, size_t size, std::vector<uint8_t>& output, size_t limit) {
    output.clear();
    if (size < 6) return false;
    const unsigned cmf = data[0], flg = data[1];
    if ((cmf & 0x0F) != 8 || (cmf * 256 + flg) % 31 != 0 || (flg & 0x20)) return false;

    BitReader in{data + 2, size - 6};
    Output out;
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
    if (adler32_bytes(out.bytes, out.size) != read_u32_be(data + size - 4)) return false;
    out.storage.resize(out.size);
    output.swap(out.storage);
    return true;
}

bool Inflater::start(const std::vector<ByteSpan>& spans, size_t limit) {
    position_ = 0;
    if (spans.size() == 1) return inflate_zlib_stream(spans[0].data, spans[0].size, output_, limit);
    std::vector<uint8_t> joined;
    for (const ByteSpan& span : spans) joined.insert(joined.end(), span.data, span.data + span.size);
    return inflate_zlib_stream(joined.data(), joined.size(), output_, limit);
}

const uint8_t* Inflater::read_exact(size_t count) {
    if (output_.size() - position_ < count) return nullptr;
    const uint8_t* bytes = output_.data() + position_;
    position_ += count;
    return bytes;
}

}  // namespace ot::png
