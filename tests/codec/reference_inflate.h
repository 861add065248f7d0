// A plain bit-by-bit inflater that follows our reader's rules word for word, slow and simple.
// The library's table-driven decoder must accept and refuse exactly the streams this one does,
// with the same bytes: the inflate test and the differential fuzzer hold them side by side.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace reference {

struct Bits {
    const uint8_t* data;
    size_t size, position = 0;
    unsigned bit = 0;
    bool read(unsigned n, uint32_t& out) {
        out = 0;
        for (unsigned i = 0; i < n; ++i) {
            if (position >= size) return false;
            out |= uint32_t(data[position] >> bit & 1) << i;
            if (++bit == 8) bit = 0, ++position;
        }
        return true;
    }
};

struct Huffman {
    unsigned count[16] = {};
    std::vector<unsigned> symbols;
    unsigned maxLength = 0;
    bool valid = false;
};

inline bool build(const uint8_t* lengths, unsigned n, Huffman& h, bool allowEmpty) {
    h = Huffman{};
    for (unsigned i = 0; i < n; ++i) {
        if (lengths[i] > 15) return false;
        ++h.count[lengths[i]];
    }
    if (h.count[0] == n) return h.valid = allowEmpty;
    int left = 1;
    for (unsigned len = 1; len <= 15; ++len) {
        left = left * 2 - int(h.count[len]);
        if (left < 0) return false;
        if (h.count[len]) h.maxLength = len;
    }
    for (unsigned len = 1; len <= 15; ++len)
        for (unsigned s = 0; s < n; ++s)
            if (lengths[s] == len) h.symbols.push_back(s);
    return h.valid = true;
}

inline bool decode(Bits& in, const Huffman& h, unsigned& symbol) {
    if (!h.valid || h.maxLength == 0) return false;
    int code = 0, first = 0, index = 0;
    for (unsigned len = 1; len <= h.maxLength; ++len) {
        uint32_t b;
        if (!in.read(1, b)) return false;
        code |= int(b);
        const int count = int(h.count[len]);
        if (code - count < first) {
            symbol = h.symbols[size_t(index + code - first)];
            return true;
        }
        index += count;
        first = (first + count) << 1;
        code <<= 1;
    }
    return false;
}

inline bool inflate_zlib(const uint8_t* data, size_t size, std::vector<uint8_t>& out) {
    static const uint16_t lbase[29] = {3, 4, 5, 6, 7, 8, 9, 10, 11, 13, 15, 17, 19, 23, 27, 31,
                                       35, 43, 51, 59, 67, 83, 99, 115, 131, 163, 195, 227, 258};
    static const uint8_t lextra[29] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
    static const uint16_t dbase[30] = {1, 2, 3, 4, 5, 7, 9, 13, 17, 25, 33, 49, 65, 97, 129, 193, 257, 385, 513,
                                       769, 1025, 1537, 2049, 3073, 4097, 6145, 8193, 12289, 16385, 24577};
    static const uint8_t dextra[30] = {0, 0, 0, 0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13};
    static const uint8_t order[19] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};
    out.clear();
    if (size < 6 || (data[0] & 15) != 8 || (data[0] * 256 + data[1]) % 31 || (data[1] & 0x20)) return false;
    Bits in{data + 2, size - 6};
    for (uint32_t last = 0; !last;) {
        uint32_t type;
        if (!in.read(1, last) || !in.read(2, type)) return false;
        if (type == 0) {
            if (in.bit) in.bit = 0, ++in.position;
            uint32_t len, nlen;
            if (!in.read(16, len) || !in.read(16, nlen) || nlen != (len ^ 0xFFFF)) return false;
            for (uint32_t i = 0; i < len; ++i) {
                uint32_t b;
                if (!in.read(8, b)) return false;
                out.push_back(uint8_t(b));
            }
            continue;
        }
        if (type == 3) return false;
        Huffman lit, dist;
        if (type == 1) {
            uint8_t l[288], d[32];
            for (int i = 0; i < 288; ++i) l[i] = i < 144 ? 8 : i < 256 ? 9 : i < 280 ? 7 : 8;
            for (auto& v : d) v = 5;
            build(l, 288, lit, false);
            build(d, 32, dist, false);
        } else {
            uint32_t hlit, hdist, hclen;
            if (!in.read(5, hlit) || !in.read(5, hdist) || !in.read(4, hclen)) return false;
            uint8_t cl[19] = {};
            for (uint32_t i = 0; i < hclen + 4; ++i) {
                uint32_t v;
                if (!in.read(3, v)) return false;
                cl[order[i]] = uint8_t(v);
            }
            Huffman lengthCode;
            if (!build(cl, 19, lengthCode, false)) return false;
            const unsigned total = hlit + 257 + hdist + 1;
            uint8_t lengths[320] = {};
            for (unsigned n = 0; n < total;) {
                unsigned s;
                if (!decode(in, lengthCode, s)) return false;
                if (s < 16) {
                    lengths[n++] = uint8_t(s);
                    continue;
                }
                uint32_t extra;
                unsigned repeat;
                uint8_t value = 0;
                if (s == 16) {
                    if (n == 0 || !in.read(2, extra)) return false;
                    value = lengths[n - 1], repeat = 3 + extra;
                } else if (s == 17) {
                    if (!in.read(3, extra)) return false;
                    repeat = 3 + extra;
                } else {
                    if (!in.read(7, extra)) return false;
                    repeat = 11 + extra;
                }
                while (repeat-- && n < total) lengths[n++] = value;
            }
            if (!build(lengths, hlit + 257, lit, false) || !build(lengths + hlit + 257, hdist + 1, dist, true))
                return false;
        }
        for (;;) {
            unsigned s;
            if (!decode(in, lit, s)) return false;
            if (s < 256) {
                out.push_back(uint8_t(s));
                continue;
            }
            if (s == 256) break;
            if (s > 285) return false;
            uint32_t extra;
            if (!in.read(lextra[s - 257], extra)) return false;
            const size_t length = lbase[s - 257] + extra;
            unsigned ds;
            if (!decode(in, dist, ds) || ds >= 30 || !in.read(dextra[ds], extra)) return false;
            const size_t distance = dbase[ds] + extra;
            if (distance == 0 || distance > out.size()) return false;
            for (size_t i = 0; i < length; ++i) out.push_back(out[out.size() - distance]);
        }
    }
    if (in.bit) in.bit = 0, ++in.position;
    if (in.position != in.size) return false;
    uint32_t a = 1, b = 0;
    for (uint8_t v : out) a = (a + v) % 65521, b = (b + a) % 65521;
    const uint8_t* tail = data + size - 4;
    return (b << 16 | a) == (uint32_t(tail[0]) << 24 | uint32_t(tail[1]) << 16 | uint32_t(tail[2]) << 8 | tail[3]);
}

}  // namespace reference
