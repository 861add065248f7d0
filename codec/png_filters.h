// The PNG reader's row filters, undone a pixel at a time in vector lanes: Sub, Average and Paeth
// depend on the pixel to the left, so one step takes a whole pixel of 3 to 8 bytes at once, with
// no branch per byte; Up and None take 16 bytes a step. Rows of 1 and 2 bytes per pixel go a byte
// at a time, also without branches.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "codec/simd.h"

namespace ot::png {

namespace filter_steps {

using namespace simd;

// A pixel of N bytes in the low lanes; three and six bytes go through a general register, since
// a trip through memory would stall every step.
template <size_t N>
inline V load_pixel(const uint8_t* p) {
    if constexpr (N == 4) {
        return load4(p);
    } else if constexpr (N == 8) {
        return load8(p);
    } else if constexpr (N == 3) {
        return from32(uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16);
    } else {
        static_assert(N == 6);
        uint32_t low;
        std::memcpy(&low, p, 4);
        if constexpr (std::endian::native == std::endian::big) low = __builtin_bswap32(low);
        return from64(low | uint64_t(p[4]) << 32 | uint64_t(p[5]) << 40);
    }
}

template <size_t N>
inline void store_pixel(uint8_t* p, V v) {
    if constexpr (N == 4) {
        store4(p, v);
    } else if constexpr (N == 8) {
        store8(p, v);
    } else {
        const uint64_t x = to64(v);
        for (size_t i = 0; i < N; ++i) p[i] = uint8_t(x >> (8 * i));
    }
}

template <size_t N>
void sub(uint8_t* out, const uint8_t* in, size_t rowBytes) {
    V left = zero();
    for (size_t i = 0; i < rowBytes; i += N) {
        left = add8(load_pixel<N>(in + i), left);
        store_pixel<N>(out + i, left);
    }
}

template <size_t N, bool withAbove>
void average(uint8_t* out, const uint8_t* in, const uint8_t* previous, size_t rowBytes) {
    V left = zero();
    for (size_t i = 0; i < rowBytes; i += N) {
        const V up = withAbove ? load_pixel<N>(previous + i) : zero();
        left = add8(load_pixel<N>(in + i), avg8_down(left, up));
        store_pixel<N>(out + i, left);
    }
}

template <size_t N>
void average(uint8_t* out, const uint8_t* in, const uint8_t* previous, size_t rowBytes) {
    if (previous) average<N, true>(out, in, previous, rowBytes);
    else average<N, false>(out, in, previous, rowBytes);
}

// Paeth in 16-bit lanes: a left, b above, c upper left. The distance of b from the estimate,
// |b - c|, does not depend on the pixel to the left, the other two do.
template <size_t N>
void paeth(uint8_t* out, const uint8_t* in, const uint8_t* previous, size_t rowBytes) {
    V a = zero(), c = zero();
    for (size_t i = 0; i < rowBytes; i += N) {
        const V b = widen_low8(load_pixel<N>(previous + i));
        const V bc = sub16(b, c);
        const V pa = abs16(bc);
        const V ac = sub16(a, c);
        const V pb = abs16(ac);
        const V pc = abs16(add16(ac, bc));
        // Ties go to a, then b, then c.
        const V notA = or_(greater16(pa, pb), greater16(pa, pc));
        const V predicted = select(notA, select(greater16(pb, pc), c, b), a);
        const V pixel = add8(load_pixel<N>(in + i), narrow16(predicted, predicted));
        store_pixel<N>(out + i, pixel);
        a = widen_low8(pixel);
        c = b;
    }
}

inline void up(uint8_t* out, const uint8_t* in, const uint8_t* previous, size_t rowBytes) {
    size_t i = 0;
    for (; i + 16 <= rowBytes; i += 16) store(out + i, add8(load(in + i), load(previous + i)));
    if (i < rowBytes) {
        const size_t n = rowBytes - i;
        store_partial(out + i, add8(load_partial(in + i, n), load_partial(previous + i, n)), n);
    }
}

inline uint8_t paeth_predictor(int a, int b, int c) {
    const int pa = b > c ? b - c : c - b;
    const int pb = a > c ? a - c : c - a;
    const int pc = a + b - 2 * c > 0 ? a + b - 2 * c : 2 * c - a - b;
    const int bc = pb <= pc ? b : c;
    return uint8_t(pa <= pb && pa <= pc ? a : bc);
}

// One or two bytes per pixel: byte-sized steps.
inline void sub_bytes(uint8_t* out, const uint8_t* in, size_t rowBytes, size_t bpp) {
    std::memmove(out, in, bpp);
    for (size_t i = bpp; i < rowBytes; ++i) out[i] = uint8_t(in[i] + out[i - bpp]);
}
inline void average_bytes(uint8_t* out, const uint8_t* in, const uint8_t* previous, size_t rowBytes, size_t bpp) {
    if (!previous) {
        std::memmove(out, in, bpp);
        for (size_t i = bpp; i < rowBytes; ++i) out[i] = uint8_t(in[i] + (out[i - bpp] >> 1));
        return;
    }
    for (size_t i = 0; i < bpp; ++i) out[i] = uint8_t(in[i] + (previous[i] >> 1));
    for (size_t i = bpp; i < rowBytes; ++i) out[i] = uint8_t(in[i] + ((out[i - bpp] + previous[i]) >> 1));
}
inline void paeth_bytes(uint8_t* out, const uint8_t* in, const uint8_t* previous, size_t rowBytes, size_t bpp) {
    for (size_t i = 0; i < bpp; ++i) out[i] = uint8_t(in[i] + previous[i]);
    for (size_t i = bpp; i < rowBytes; ++i)
        out[i] = uint8_t(in[i] + paeth_predictor(out[i - bpp], previous[i], previous[i - bpp]));
}

}  // namespace filter_steps

// Undoes the filter of one row; false for an unknown filter. `previous` is the row above,
// already undone, or null for the row of zeros above the first row of an image or a pass: None
// and Up then copy, Sub and Paeth add the left neighbour only, Average half of it. `output` may be
// `input` or lie before it, as when the rows are undone in place: each pixel is read before it is
// written. Rows are whole pixels of `bytesPerPixel` bytes, which is 1, 2, 3, 4, 6 or 8.
inline bool unfilter_row(uint8_t filter, uint8_t* output, const uint8_t* input, const uint8_t* previous,
                         size_t rowBytes, size_t bytesPerPixel) {
    using namespace filter_steps;
    const size_t bpp = bytesPerPixel;
    if (filter == 4 && !previous) filter = 1;  // with the row above all zero, Paeth predicts the left
    switch (filter) {
        case 0: std::memmove(output, input, rowBytes); return true;
        case 1:
            switch (bpp) {
                case 3: sub<3>(output, input, rowBytes); return true;
                case 4: sub<4>(output, input, rowBytes); return true;
                case 6: sub<6>(output, input, rowBytes); return true;
                case 8: sub<8>(output, input, rowBytes); return true;
                default: sub_bytes(output, input, rowBytes, bpp); return true;
            }
        case 2:
            if (previous) up(output, input, previous, rowBytes);
            else std::memmove(output, input, rowBytes);
            return true;
        case 3:
            switch (bpp) {
                case 3: average<3>(output, input, previous, rowBytes); return true;
                case 4: average<4>(output, input, previous, rowBytes); return true;
                case 6: average<6>(output, input, previous, rowBytes); return true;
                case 8: average<8>(output, input, previous, rowBytes); return true;
                default: average_bytes(output, input, previous, rowBytes, bpp); return true;
            }
        case 4:
            switch (bpp) {
                case 3: paeth<3>(output, input, previous, rowBytes); return true;
                case 4: paeth<4>(output, input, previous, rowBytes); return true;
                case 6: paeth<6>(output, input, previous, rowBytes); return true;
                case 8: paeth<8>(output, input, previous, rowBytes); return true;
                default: paeth_bytes(output, input, previous, rowBytes, bpp); return true;
            }
        default: return false;
    }
}

}  // namespace ot::png
