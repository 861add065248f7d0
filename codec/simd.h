// 128-bit vectors for the hot loops of the codecs and images: SSE2 on x86-64 and NEON on 64-bit
// Arm, which both machines always have, behind the few operations those loops use. Every
// operation gives the same lanes on both, so a loop written once gives the same bytes everywhere.
#pragma once

#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#elif defined(__ARM_NEON)
#include <arm_neon.h>
#else
#error "the vector helpers need SSE2 or NEON"
#endif

namespace ot::simd {

#if defined(__SSE2__)
using V = __m128i;
#else
using V = uint8x16_t;
#endif

// Loads and stores of 16 bytes, and of 4 or 8 bytes into or out of the low lanes, the others zero.
inline V load(const void* p) {
#if defined(__SSE2__)
    return _mm_loadu_si128(static_cast<const __m128i*>(p));
#else
    return vld1q_u8(static_cast<const uint8_t*>(p));
#endif
}
inline void store(void* p, V v) {
#if defined(__SSE2__)
    _mm_storeu_si128(static_cast<__m128i*>(p), v);
#else
    vst1q_u8(static_cast<uint8_t*>(p), v);
#endif
}
inline V load4(const void* p) {
    uint32_t word;
    std::memcpy(&word, p, 4);
#if defined(__SSE2__)
    return _mm_cvtsi32_si128(int(word));
#else
    return vreinterpretq_u8_u32(vsetq_lane_u32(word, vdupq_n_u32(0), 0));
#endif
}
inline void store4(void* p, V v) {
#if defined(__SSE2__)
    const uint32_t word = uint32_t(_mm_cvtsi128_si32(v));
#else
    const uint32_t word = vgetq_lane_u32(vreinterpretq_u32_u8(v), 0);
#endif
    std::memcpy(p, &word, 4);
}
inline V load8(const void* p) {
#if defined(__SSE2__)
    return _mm_loadl_epi64(static_cast<const __m128i*>(p));
#else
    return vcombine_u8(vld1_u8(static_cast<const uint8_t*>(p)), vdup_n_u8(0));
#endif
}
inline void store8(void* p, V v) {
#if defined(__SSE2__)
    _mm_storel_epi64(static_cast<__m128i*>(p), v);
#else
    vst1_u8(static_cast<uint8_t*>(p), vget_low_u8(v));
#endif
}
// The low 32 or 64 bits, the other lanes zero on the way in; byte 0 is the least significant.
inline V from32(uint32_t x) {
#if defined(__SSE2__)
    return _mm_cvtsi32_si128(int(x));
#else
    return vreinterpretq_u8_u32(vsetq_lane_u32(x, vdupq_n_u32(0), 0));
#endif
}
inline uint32_t to32(V v) {
#if defined(__SSE2__)
    return uint32_t(_mm_cvtsi128_si32(v));
#else
    return vgetq_lane_u32(vreinterpretq_u32_u8(v), 0);
#endif
}
inline V from64(uint64_t x) {
#if defined(__SSE2__)
    return _mm_cvtsi64_si128(int64_t(x));
#else
    return vreinterpretq_u8_u64(vsetq_lane_u64(x, vdupq_n_u64(0), 0));
#endif
}
inline uint64_t to64(V v) {
#if defined(__SSE2__)
    return uint64_t(_mm_cvtsi128_si64(v));
#else
    return vgetq_lane_u64(vreinterpretq_u64_u8(v), 0);
#endif
}
// `n` bytes, 1 to 16, the lanes above them zero: for the ends of rows, not for inner loops.
inline V load_partial(const void* p, size_t n) {
    uint8_t bytes[16] = {};
    std::memcpy(bytes, p, n);
    return load(bytes);
}
inline void store_partial(void* p, V v, size_t n) {
    uint8_t bytes[16];
    store(bytes, v);
    std::memcpy(p, bytes, n);
}

inline V zero() {
#if defined(__SSE2__)
    return _mm_setzero_si128();
#else
    return vdupq_n_u8(0);
#endif
}
inline V splat8(uint8_t x) {
#if defined(__SSE2__)
    return _mm_set1_epi8(char(x));
#else
    return vdupq_n_u8(x);
#endif
}
inline V splat16(uint16_t x) {
#if defined(__SSE2__)
    return _mm_set1_epi16(short(x));
#else
    return vreinterpretq_u8_u16(vdupq_n_u16(x));
#endif
}
inline V splat32(uint32_t x) {
#if defined(__SSE2__)
    return _mm_set1_epi32(int(x));
#else
    return vreinterpretq_u8_u32(vdupq_n_u32(x));
#endif
}
// Four 32-bit lanes, lane 0 lowest.
inline V lanes32(uint32_t a, uint32_t b, uint32_t c, uint32_t d) {
#if defined(__SSE2__)
    return _mm_set_epi32(int(d), int(c), int(b), int(a));
#else
    const uint32_t values[4] = {a, b, c, d};
    return vreinterpretq_u8_u32(vld1q_u32(values));
#endif
}

// Bitwise; and_not(a, b) is a and not b.
inline V and_(V a, V b) {
#if defined(__SSE2__)
    return _mm_and_si128(a, b);
#else
    return vandq_u8(a, b);
#endif
}
inline V or_(V a, V b) {
#if defined(__SSE2__)
    return _mm_or_si128(a, b);
#else
    return vorrq_u8(a, b);
#endif
}
inline V xor_(V a, V b) {
#if defined(__SSE2__)
    return _mm_xor_si128(a, b);
#else
    return veorq_u8(a, b);
#endif
}
inline V and_not(V a, V b) {
#if defined(__SSE2__)
    return _mm_andnot_si128(b, a);
#else
    return vbicq_u8(a, b);
#endif
}
// Lanes of `a` where `mask` is set, of `b` elsewhere.
inline V select(V mask, V a, V b) { return or_(and_(mask, a), and_not(b, mask)); }

// Bytes, wrapping.
inline V add8(V a, V b) {
#if defined(__SSE2__)
    return _mm_add_epi8(a, b);
#else
    return vaddq_u8(a, b);
#endif
}
inline V sub8(V a, V b) {
#if defined(__SSE2__)
    return _mm_sub_epi8(a, b);
#else
    return vsubq_u8(a, b);
#endif
}
// (a + b + 1) / 2 per byte.
inline V avg8_up(V a, V b) {
#if defined(__SSE2__)
    return _mm_avg_epu8(a, b);
#else
    return vrhaddq_u8(a, b);
#endif
}
// (a + b) / 2 per byte.
inline V avg8_down(V a, V b) { return sub8(avg8_up(a, b), and_(xor_(a, b), splat8(1))); }

// 16-bit lanes, wrapping; min, max and greater-than treat them as signed.
inline V add16(V a, V b) {
#if defined(__SSE2__)
    return _mm_add_epi16(a, b);
#else
    return vreinterpretq_u8_u16(vaddq_u16(vreinterpretq_u16_u8(a), vreinterpretq_u16_u8(b)));
#endif
}
inline V sub16(V a, V b) {
#if defined(__SSE2__)
    return _mm_sub_epi16(a, b);
#else
    return vreinterpretq_u8_u16(vsubq_u16(vreinterpretq_u16_u8(a), vreinterpretq_u16_u8(b)));
#endif
}
inline V mul16(V a, V b) {
#if defined(__SSE2__)
    return _mm_mullo_epi16(a, b);
#else
    return vreinterpretq_u8_u16(vmulq_u16(vreinterpretq_u16_u8(a), vreinterpretq_u16_u8(b)));
#endif
}
template <int n>
inline V shr16(V a) {
#if defined(__SSE2__)
    return _mm_srli_epi16(a, n);
#else
    return vreinterpretq_u8_u16(vshrq_n_u16(vreinterpretq_u16_u8(a), n));
#endif
}
// x / 255, truncated, for x up to 65534.
inline V divide255_16(V x) {
#if defined(__SSE2__)
    return _mm_srli_epi16(_mm_mulhi_epu16(x, _mm_set1_epi16(short(0x8081))), 7);
#else
    const uint16x8_t y = vaddq_u16(vreinterpretq_u16_u8(x), vdupq_n_u16(1));
    return vreinterpretq_u8_u16(vshrq_n_u16(vsraq_n_u16(y, y, 8), 8));
#endif
}
inline V min16(V a, V b) {
#if defined(__SSE2__)
    return _mm_min_epi16(a, b);
#else
    return vreinterpretq_u8_s16(vminq_s16(vreinterpretq_s16_u8(a), vreinterpretq_s16_u8(b)));
#endif
}
inline V max16(V a, V b) {
#if defined(__SSE2__)
    return _mm_max_epi16(a, b);
#else
    return vreinterpretq_u8_s16(vmaxq_s16(vreinterpretq_s16_u8(a), vreinterpretq_s16_u8(b)));
#endif
}
inline V greater16(V a, V b) {
#if defined(__SSE2__)
    return _mm_cmpgt_epi16(a, b);
#else
    return vreinterpretq_u8_u16(vcgtq_s16(vreinterpretq_s16_u8(a), vreinterpretq_s16_u8(b)));
#endif
}
inline V abs16(V a) { return max16(a, sub16(zero(), a)); }

// 32-bit lanes.
inline V add32(V a, V b) {
#if defined(__SSE2__)
    return _mm_add_epi32(a, b);
#else
    return vreinterpretq_u8_u32(vaddq_u32(vreinterpretq_u32_u8(a), vreinterpretq_u32_u8(b)));
#endif
}
inline V equal32(V a, V b) {
#if defined(__SSE2__)
    return _mm_cmpeq_epi32(a, b);
#else
    return vreinterpretq_u8_u32(vceqq_u32(vreinterpretq_u32_u8(a), vreinterpretq_u32_u8(b)));
#endif
}
inline V greater32(V a, V b) {
#if defined(__SSE2__)
    return _mm_cmpgt_epi32(a, b);
#else
    return vreinterpretq_u8_u32(vcgtq_s32(vreinterpretq_s32_u8(a), vreinterpretq_s32_u8(b)));
#endif
}
// True when every byte is 0xFF.
inline bool all_set(V a) {
#if defined(__SSE2__)
    return _mm_movemask_epi8(a) == 0xFFFF;
#else
    return vminvq_u8(a) == 0xFF;
#endif
}
inline uint32_t lane32(V a, int i) {
    uint32_t values[4];
    store(values, a);
    return values[i];
}

// Bytes 0-7 and 8-15 as 16-bit lanes; back to bytes, saturating.
inline V widen_low8(V a) {
#if defined(__SSE2__)
    return _mm_unpacklo_epi8(a, _mm_setzero_si128());
#else
    return vreinterpretq_u8_u16(vmovl_u8(vget_low_u8(a)));
#endif
}
inline V widen_high8(V a) {
#if defined(__SSE2__)
    return _mm_unpackhi_epi8(a, _mm_setzero_si128());
#else
    return vreinterpretq_u8_u16(vmovl_u8(vget_high_u8(a)));
#endif
}
// Eight signed 16-bit lanes of `low` then of `high`, each clamped to 0..255.
inline V narrow16(V low, V high) {
#if defined(__SSE2__)
    return _mm_packus_epi16(low, high);
#else
    return vcombine_u8(vqmovun_s16(vreinterpretq_s16_u8(low)), vqmovun_s16(vreinterpretq_s16_u8(high)));
#endif
}

// Moves the bytes `n` lanes up, zeros coming in at lane 0.
template <int n>
inline V shift_up(V a) {
#if defined(__SSE2__)
    return _mm_slli_si128(a, n);
#else
    return vextq_u8(vdupq_n_u8(0), a, 16 - n);
#endif
}
// Lane 3 of each group of four 16-bit lanes in all four: a pixel's alpha to its channels.
inline V spread_lane3_16(V a) {
#if defined(__SSE2__)
    return _mm_shufflehi_epi16(_mm_shufflelo_epi16(a, 0xFF), 0xFF);
#else
    const uint16x8_t x = vreinterpretq_u16_u8(a);
    return vreinterpretq_u8_u16(vcombine_u16(vdup_lane_u16(vget_low_u16(x), 3), vdup_lane_u16(vget_high_u16(x), 3)));
#endif
}
// The last 32-bit lane in all four.
inline V spread_last32(V a) {
#if defined(__SSE2__)
    return _mm_shuffle_epi32(a, 0xFF);
#else
    return vreinterpretq_u8_u32(vdupq_laneq_u32(vreinterpretq_u32_u8(a), 3));
#endif
}

// Signed 16-bit products summed in pairs: four 32-bit lanes.
inline V multiply_add16(V a, V b) {
#if defined(__SSE2__)
    return _mm_madd_epi16(a, b);
#else
    const int16x8_t x = vreinterpretq_s16_u8(a), y = vreinterpretq_s16_u8(b);
    return vreinterpretq_u8_s32(vpaddq_s32(vmull_s16(vget_low_s16(x), vget_low_s16(y)), vmull_high_s16(x, y)));
#endif
}
// The sums of bytes 0-7 and of bytes 8-15, in 32-bit lanes 0 and 2; lanes 1 and 3 zero.
inline V sum_bytes(V a) {
#if defined(__SSE2__)
    return _mm_sad_epu8(a, _mm_setzero_si128());
#else
    return vreinterpretq_u8_u64(vpaddlq_u32(vpaddlq_u16(vpaddlq_u8(a))));
#endif
}

inline V sub32(V a, V b) {
#if defined(__SSE2__)
    return _mm_sub_epi32(a, b);
#else
    return vreinterpretq_u8_u32(vsubq_u32(vreinterpretq_u32_u8(a), vreinterpretq_u32_u8(b)));
#endif
}

// Four floats. Comparisons give all-ones lanes where true, as masks for select.
#if defined(__SSE2__)
using F = __m128;
#else
using F = float32x4_t;
#endif
inline F loadf(const float* p) {
#if defined(__SSE2__)
    return _mm_loadu_ps(p);
#else
    return vld1q_f32(p);
#endif
}
inline F splatf(float x) {
#if defined(__SSE2__)
    return _mm_set1_ps(x);
#else
    return vdupq_n_f32(x);
#endif
}
inline F addf(F a, F b) {
#if defined(__SSE2__)
    return _mm_add_ps(a, b);
#else
    return vaddq_f32(a, b);
#endif
}
inline F subf(F a, F b) {
#if defined(__SSE2__)
    return _mm_sub_ps(a, b);
#else
    return vsubq_f32(a, b);
#endif
}
inline F divf(F a, F b) {
#if defined(__SSE2__)
    return _mm_div_ps(a, b);
#else
    return vdivq_f32(a, b);
#endif
}
// Either operand where one is NaN: callers mask such lanes out.
inline F minf(F a, F b) {
#if defined(__SSE2__)
    return _mm_min_ps(a, b);
#else
    return vminq_f32(a, b);
#endif
}
inline V greaterf(F a, F b) {
#if defined(__SSE2__)
    return _mm_castps_si128(_mm_cmpgt_ps(a, b));
#else
    return vreinterpretq_u8_u32(vcgtq_f32(a, b));
#endif
}
inline V at_leastf(F a, F b) {
#if defined(__SSE2__)
    return _mm_castps_si128(_mm_cmpge_ps(a, b));
#else
    return vreinterpretq_u8_u32(vcgeq_f32(a, b));
#endif
}
inline V lessf(F a, F b) { return greaterf(b, a); }
inline F maskf(V mask, F a) {
#if defined(__SSE2__)
    return _mm_and_ps(_mm_castsi128_ps(mask), a);
#else
    return vreinterpretq_f32_u8(vandq_u8(mask, vreinterpretq_u8_f32(a)));
#endif
}
// Towards zero, for values that fit; and back.
inline V truncate_to_int(F a) {
#if defined(__SSE2__)
    return _mm_cvttps_epi32(a);
#else
    return vreinterpretq_u8_s32(vcvtq_s32_f32(a));
#endif
}
inline F to_float(V a) {
#if defined(__SSE2__)
    return _mm_cvtepi32_ps(a);
#else
    return vcvtq_f32_s32(vreinterpretq_s32_u8(a));
#endif
}

}  // namespace ot::simd
