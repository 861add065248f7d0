// Our inflater against zlib's compressor, and against the plain bit-by-bit reference on streams
// that are damaged or built by hand to hit each rule.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "codec/inflate.h"
#include "reference_inflate.h"
#include "support.h"

using namespace codec_test;

namespace {

Bytes compress_with(const Bytes& raw, int level, int strategy, int windowBits = 15, int memLevel = 8) {
    z_stream z{};
    deflateInit2(&z, level, Z_DEFLATED, windowBits, memLevel, strategy);
    Bytes out(deflateBound(&z, raw.size()) + 64);
    z.next_in = const_cast<Bytef*>(raw.data());
    z.avail_in = uInt(raw.size());
    z.next_out = out.data();
    z.avail_out = uInt(out.size());
    deflate(&z, Z_FINISH);
    out.resize(z.total_out);
    deflateEnd(&z);
    return out;
}

Bytes sample_data(size_t size, unsigned seed) {
    std::mt19937 rng(seed);
    Bytes out(size);
    for (size_t i = 0; i < size; ++i) {
        switch ((i / 997 + seed) % 4) {
            case 0: out[i] = uint8_t(rng()); break;                           // noise
            case 1: out[i] = uint8_t(i / 7);  break;                          // runs
            case 2: out[i] = i >= 300 ? out[i - 300 + rng() % 3] : 0; break;  // near repeats
            default: out[i] = "the quick brown fox "[rng() % 20]; break;      // text
        }
    }
    return out;
}

struct Verdict {
    bool ok;
    Bytes bytes;
    bool operator==(const Verdict&) const = default;
};

Verdict ours(const Bytes& stream) {
    Verdict v;
    v.ok = ot::png::inflate_zlib_stream(stream.data(), stream.size(), v.bytes);
    if (!v.ok) v.bytes.clear();
    return v;
}

Verdict reference_of(const Bytes& stream) {
    Verdict v;
    v.ok = reference::inflate_zlib(stream.data(), stream.size(), v.bytes);
    if (!v.ok) v.bytes.clear();
    return v;
}

// Deflate bits written by hand: fields from the least significant bit, Huffman codes from the
// most significant.
struct BitWriter {
    Bytes bytes;
    unsigned bit = 0;
    void put(uint32_t value, unsigned n) {
        for (unsigned i = 0; i < n; ++i) {
            if (bit == 0) bytes.push_back(0);
            bytes.back() |= uint8_t((value >> i & 1) << bit);
            bit = (bit + 1) & 7;
        }
    }
    void code(uint32_t code, unsigned length) {
        for (unsigned i = length; i-- > 0;) put(code >> i & 1, 1);
    }
};

// Canonical codes for a set of lengths.
std::vector<uint32_t> canonical(const std::vector<uint8_t>& lengths) {
    unsigned count[16] = {}, next[16] = {};
    for (auto l : lengths) ++count[l];
    count[0] = 0;
    for (unsigned len = 1, c = 0; len < 16; ++len) next[len] = c = (c + count[len - 1]) << 1;
    std::vector<uint32_t> codes(lengths.size());
    for (size_t s = 0; s < lengths.size(); ++s)
        if (lengths[s]) codes[s] = next[lengths[s]]++;
    return codes;
}

// A dynamic block header: every code length symbol gets 5 bits (an incomplete set, which our
// rules allow), then the given literal and distance lengths one by one.
struct DynamicBlock {
    std::vector<uint8_t> literal, distance;
    std::vector<uint32_t> literalCodes, distanceCodes;
    void write_header(BitWriter& w, bool last, const std::vector<unsigned>& lengthSymbols = {}) {
        w.put(last, 1);
        w.put(2, 2);
        w.put(uint32_t(literal.size() - 257), 5);
        w.put(uint32_t(distance.size() - 1), 5);
        w.put(15, 4);
        for (int i = 0; i < 19; ++i) w.put(5, 3);
        std::vector<uint8_t> five(19, 5);
        auto codes = canonical(five);
        if (!lengthSymbols.empty()) {
            for (unsigned s : lengthSymbols) {
                const unsigned symbol = s & 0xFF, extraBits[3] = {2, 3, 7};
                w.code(codes[symbol], 5);
                if (symbol >= 16) w.put(s >> 8, extraBits[symbol - 16]);
            }
        } else {
            for (auto l : literal) w.code(codes[l], 5);
            for (auto l : distance) w.code(codes[l], 5);
        }
        literalCodes = canonical(literal);
        distanceCodes = canonical(distance);
    }
    void symbol(BitWriter& w, unsigned s) { w.code(literalCodes[s], literal[s]); }
};

Bytes zlib_wrap(BitWriter& w, const Bytes& expectedOutput, bool spareByte = false) {
    Bytes out = {0x78, 0x01};
    out.insert(out.end(), w.bytes.begin(), w.bytes.end());
    if (spareByte) out.push_back(0);
    uLong adler = adler32(1, expectedOutput.data(), uInt(expectedOutput.size()));
    put_u32(out, uint32_t(adler));
    return out;
}

}  // namespace

TEST(Inflate, GivesZlibsInputBackAtEveryLevelStrategyAndWindow) {
    const int strategies[] = {Z_DEFAULT_STRATEGY, Z_FILTERED, Z_HUFFMAN_ONLY, Z_RLE, Z_FIXED};
    unsigned seed = 0;
    for (size_t size : {size_t(0), size_t(1), size_t(257), size_t(40000)}) {
        for (int level = 0; level <= 9; ++level) {
            for (int strategy : strategies) {
                const Bytes raw = sample_data(size, ++seed);
                const Bytes stream = compress_with(raw, level, strategy, 9 + seed % 7, 1 + seed % 9);
                SCOPED_TRACE(testing::Message() << "size " << size << " level " << level << " strategy " << strategy);
                const Verdict v = ours(stream);
                ASSERT_TRUE(v.ok);
                ASSERT_EQ(v.bytes, raw);
                ASSERT_EQ(reference_of(stream), v);
            }
        }
    }
}

TEST(Inflate, AgreesWithTheBitByBitReferenceOnDamagedStreams) {
    std::mt19937 rng(7);
    std::vector<Bytes> streams;
    for (int i = 0; i < 12; ++i)
        streams.push_back(compress_with(sample_data(2000 + i * 500, i), i % 10, i % 2 ? Z_FIXED : Z_DEFAULT_STRATEGY));
    size_t accepted = 0;
    for (int round = 0; round < 6000; ++round) {
        Bytes s = streams[rng() % streams.size()];
        switch (round % 4) {
            case 0: s[rng() % s.size()] ^= uint8_t(1 << rng() % 8); break;
            case 1: s.resize(rng() % s.size()); break;
            case 2: for (int k = 0; k < 4; ++k) s[2 + rng() % (s.size() - 2)] = uint8_t(rng()); break;
            default: s.insert(s.begin() + 2 + rng() % (s.size() - 2), uint8_t(rng())); break;
        }
        const Verdict v = ours(s);
        ASSERT_EQ(reference_of(s), v) << "round " << round;
        accepted += v.ok;
    }
    // Flipped bits in stored data or the checksum bytes can still leave a valid stream only rarely.
    EXPECT_LT(accepted, 600u);
}

// A PNG file's stream comes in chunks: read in pieces of every size, split anywhere, also inside
// the header and the checksum, and with the front room a reader asks for, it must give what the
// joined stream gives, for sound streams and for damaged ones. With front room, only an output
// of exactly the limit passes.
TEST(Inflate, StreamsInPiecesGiveWhatTheJoinedStreamGives) {
    std::mt19937 rng(13);
    size_t accepted = 0;
    for (int round = 0; round < 300; ++round) {
        const Bytes raw = sample_data(100 + rng() % 30000, round);
        Bytes s = compress_with(raw, round % 10, round % 3 ? Z_DEFAULT_STRATEGY : Z_FIXED);
        if (round % 2) s[rng() % s.size()] ^= uint8_t(1 << rng() % 8);
        std::vector<ot::png::ByteSpan> spans;
        const size_t largest = round % 4 == 0 ? 3 : 1 + rng() % 9000;
        for (size_t at = 0; at < s.size();) {
            const size_t n = std::min(s.size() - at, 1 + rng() % largest);
            spans.push_back({s.data() + at, n});
            at += n;
        }
        const size_t front = round % 5 ? 0 : 1 + rng() % 50;
        const size_t limit = round % 5 ? SIZE_MAX : raw.size() - round % 2;
        ot::png::Inflater inflater;
        Verdict pieces{inflater.start(spans, limit, front), inflater.take_output()};
        if (pieces.ok) {
            ASSERT_TRUE(std::all_of(pieces.bytes.begin(), pieces.bytes.begin() + front, [](uint8_t b) { return b == 0; }));
            pieces.bytes.erase(pieces.bytes.begin(), pieces.bytes.begin() + front);
        } else {
            pieces.bytes.clear();
        }
        Verdict joined;
        joined.ok = ot::png::inflate_zlib_stream(s.data(), s.size(), joined.bytes, limit) &&
                    (!front || joined.bytes.size() == limit);
        if (!joined.ok) joined.bytes.clear();
        ASSERT_EQ(pieces, joined) << "round " << round << ", " << spans.size() << " pieces";
        accepted += pieces.ok;
    }
    EXPECT_GT(accepted, 140u);
}

TEST(Inflate, RefusesBadHeadersTrailersAndBlockTypes) {
    const Bytes good = compress_with(sample_data(500, 3), 6, Z_DEFAULT_STRATEGY);
    ASSERT_TRUE(ours(good).ok);
    auto damaged = [&](auto change) {
        Bytes s = good;
        change(s);
        return ours(s).ok;
    };
    EXPECT_FALSE(damaged([](Bytes& s) { s[0] = 0x77; }));                          // method 7
    EXPECT_FALSE(damaged([](Bytes& s) { s[1] ^= 1; }));                            // check bits
    EXPECT_FALSE(damaged([](Bytes& s) { s[1] = 0x20; s[1] += 31 - (0x78 * 256 + 0x20) % 31; }));  // dictionary
    EXPECT_FALSE(damaged([](Bytes& s) { s.back() ^= 1; }));                        // Adler-32
    EXPECT_FALSE(damaged([](Bytes& s) { s.insert(s.end() - 4, 0); }));             // a spare byte
    EXPECT_FALSE(damaged([](Bytes& s) { s.resize(5); }));
    EXPECT_TRUE(damaged([](Bytes& s) { s[0] = 0x08; s[1] = 0x1D; }));  // the window size is not looked at

    BitWriter w;
    w.put(1, 1);
    w.put(3, 2);  // block type 3
    EXPECT_FALSE(ours(zlib_wrap(w, {})).ok);

    BitWriter stored;
    stored.put(1, 1);
    stored.put(0, 2);
    stored.bit = 0;
    stored.bytes.insert(stored.bytes.end(), {2, 0, 0xFD, 0xFF, 'h', 'i'});
    EXPECT_TRUE(ours(zlib_wrap(stored, {'h', 'i'})).ok);
    stored.bytes[3] = 0xFE;  // NLEN is not the complement of LEN
    EXPECT_FALSE(ours(zlib_wrap(stored, {'h', 'i'})).ok);
}

TEST(Inflate, FollowsOurRulesWhereZlibsDiffer) {
    // An incomplete literal code: 'A' with 1 bit and end of block with 2 bits. zlib refuses it.
    DynamicBlock block;
    block.literal.assign(257, 0);
    block.literal['A'] = 1;
    block.literal[256] = 2;
    block.distance.assign(1, 0);  // no distance codes at all: valid while unused
    BitWriter w;
    block.write_header(w, true);
    block.symbol(w, 'A');
    block.symbol(w, 'A');
    block.symbol(w, 256);
    const Bytes incomplete = zlib_wrap(w, {'A', 'A'});
    EXPECT_EQ(ours(incomplete), (Verdict{true, {'A', 'A'}}));
    Bytes sink(8);
    uLongf size = sink.size();
    EXPECT_NE(uncompress(sink.data(), &size, incomplete.data(), incomplete.size()), Z_OK);

    // The same code with a length symbol: the empty distance table fails on use.
    DynamicBlock withLength = block;
    withLength.literal.resize(258);
    withLength.literal[257] = 2;
    withLength.literal[256] = 3;
    withLength.literal.push_back(3);  // symbol 258 keeps the code complete enough to be canonical
    BitWriter u;
    withLength.write_header(u, true);
    withLength.symbol(u, 'A');
    withLength.symbol(u, 257);
    EXPECT_FALSE(ours(zlib_wrap(u, {'A', 'A', 'A', 'A'})).ok);

    // A repeat of the previous length as the very first code length fails.
    DynamicBlock first = block;
    BitWriter r;
    first.write_header(r, true, {16});
    EXPECT_FALSE(ours(zlib_wrap(r, {})).ok);

    // A run of zeros past the total number of lengths stops there without failure.
    DynamicBlock overrun;
    overrun.literal.assign(257, 0);
    overrun.literal['A'] = 1;
    overrun.literal[256] = 1;
    overrun.distance.assign(1, 0);
    BitWriter o;
    // 65 zeros, 'A' = 1, 138 + 52 zeros up to 255, 256 = 1, then 138 zeros where 1 is left.
    const std::vector<unsigned> symbols = {18 | (54u << 8), 1, 18 | (127u << 8), 18 | (41u << 8), 1, 18 | (127u << 8)};
    overrun.write_header(o, true, symbols);
    overrun.symbol(o, 'A');
    overrun.symbol(o, 256);
    EXPECT_EQ(ours(zlib_wrap(o, {'A'})), (Verdict{true, {'A'}}));
    EXPECT_EQ(reference_of(zlib_wrap(o, {'A'})), (Verdict{true, {'A'}}));

    // A distance reaching before the start of the output fails; fixed code 286 fails.
    BitWriter f;
    f.put(1, 1);
    f.put(1, 2);
    f.code(0x30 + 'A', 8);         // literal 'A'
    f.code(0b0000001, 7);          // length 3 (symbol 257)
    f.code(1, 5);                  // distance 2
    f.code(0, 7);                  // end of block
    EXPECT_FALSE(ours(zlib_wrap(f, {'A', 'A', 'A', 'A'})).ok);
    BitWriter g;
    g.put(1, 1);
    g.put(1, 2);
    g.code(0b11000110, 8);  // symbol 286
    EXPECT_FALSE(ours(zlib_wrap(g, {})).ok);
}

TEST(Inflate, AnOutputLimitStopsAStreamThatExpandsBeyondIt) {
    const Bytes raw(1 << 20, 0);
    const Bytes stream = compress_with(raw, 9, Z_DEFAULT_STRATEGY);
    ASSERT_LT(stream.size(), 2000u);
    Bytes out;
    EXPECT_FALSE(ot::png::inflate_zlib_stream(stream.data(), stream.size(), out, raw.size() - 1));
    EXPECT_TRUE(ot::png::inflate_zlib_stream(stream.data(), stream.size(), out, raw.size()));
    EXPECT_EQ(out, raw);
}
