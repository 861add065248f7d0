#include "image/Blit.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <thread>
#include <vector>

#include "codec/simd.h"
#include "image/ImageThreads.h"

namespace orvane {

namespace {

using namespace ot::simd;

// Integer "over", four pixels at once in 16-bit lanes. Colours are (s a + t (255 - a)) / 255 and
// alpha is a + t - a t / 255, truncated; the alpha is the same as (255 a + t (255 - a) + 254) / 255,
// so one sum serves all four lanes, the alpha lane weighing s by 255 and adding 254. No sum tops
// 65279. Alpha 0 and 255 need no shortcut: the sums give the target and the source exactly.
inline V blend_half(V s, V t, V alphaLanes, V bias) {
    const V alpha = spread_lane3_16(s);
    return divide255_16(add16(add16(mul16(s, or_(alpha, alphaLanes)), mul16(t, sub16(splat16(255), alpha))), bias));
}

inline V blend4(V s, V t) {
    const V alphaLanes = lanes32(0, 255u << 16, 0, 255u << 16);
    const V bias = lanes32(0, 254u << 16, 0, 254u << 16);
    return narrow16(blend_half(widen_low8(s), widen_low8(t), alphaLanes, bias),
                    blend_half(widen_high8(s), widen_high8(t), alphaLanes, bias));
}

// `count` source pixels over as many target pixels.
void blendSpan(uint8_t* t, const uint8_t* s, size_t count) {
    size_t i = 0;
    for (; i + 4 <= count; i += 4) store(t + i * 4, blend4(load(s + i * 4), load(t + i * 4)));
    if (i < count) {
        const size_t bytes = (count - i) * 4;
        store_partial(t + i * 4, blend4(load_partial(s + i * 4, bytes), load_partial(t + i * 4, bytes)), bytes);
    }
}

int32_t threadCount(int64_t work, int32_t rowLimit) {
    int32_t threads = 1;
    if (work >= kBlitThreadThreshold) {
        const int32_t hardware = std::max(1, int32_t(std::thread::hardware_concurrency()));
        threads = std::min(AllowedThreads, hardware);
    }
    return std::max(1, std::min(threads, rowLimit));
}

bool isUnrotated(float rotation) {
    float r = std::fmod(rotation, 360.0f);
    if (r < 0) r += 360.0f;
    return r < 1e-5f || r > 359.999f;
}

// Scale 1, no rotation: whole clipped row segments, no floating point in the loop.
void fastBlit(NuvraImage& target, const NuvraImage& image, const uint8_t* source, int32_t x, int32_t y, bool blend) {
    const int64_t firstColumn = std::max<int64_t>(0, -int64_t(x));
    const int64_t endColumn = std::min<int64_t>(image.width, int64_t(target.width) - x);
    if (firstColumn >= endColumn) return;
    const size_t span = size_t(endColumn - firstColumn);
    auto rows = [&](int32_t first, int32_t end) {
        for (int32_t sy = first; sy < end; ++sy) {
            const int64_t ty = int64_t(y) + sy;
            if (ty < 0 || ty >= target.height) continue;
            const uint8_t* s = source + (int64_t(image.width) * sy + firstColumn) * 4;
            uint8_t* t = target.pixels + (int64_t(target.width) * ty + x + firstColumn) * 4;
            if (blend) blendSpan(t, s, span);
            else std::memcpy(t, s, span * 4);
        }
    };
    runCeilingBands(image.height, threadCount(int64_t(image.width) * image.height, image.height), rows);
}

// For four values of u, the source column or row nearest to each, rounding halves away from
// zero, or -1 outside [0, limit): the same verdict as rounding u and comparing the rounded float.
// round(u) >= 0 exactly when u > -0.5; past that, u is clamped to the limit before it becomes an
// integer, and u minus its truncation is exact, so it says which way to round.
inline V nearest4(F u, F limit) {
    const V above = greaterf(u, splatf(-0.5f));
    const F clamped = maskf(above, minf(u, limit));
    const V whole = truncate_to_int(clamped);
    const V rounded = sub32(whole, at_leastf(subf(clamped, to_float(whole)), splatf(0.5f)));
    return select(and_(above, lessf(to_float(rounded), limit)), rounded, splat32(~0u));
}

// Target pixels from source columns and rows, -1 in `columns` for none: four at a time,
// gathered, blended or copied, and put back only where there is a source pixel; the last group
// covers what is left. `columns` and `rows` run on to a multiple of four.
void drawMapped(uint8_t* t, const uint8_t* source, int32_t sourceWidth, const int32_t* columns,
                const int32_t* rows, size_t count, bool blend) {
    // Lanes without a source pixel read the first one, and are put back as they were.
    auto pixel = [&](size_t i) {
        const size_t at = columns[i] < 0 ? 0 : size_t(rows[i]) * size_t(sourceWidth) + size_t(columns[i]);
        uint32_t value;
        std::memcpy(&value, source + at * 4, 4);
        return value;
    };
    auto draw = [&](size_t i, V none, V old) {
        const V s = lanes32(pixel(i), pixel(i + 1), pixel(i + 2), pixel(i + 3));
        return select(none, old, blend ? blend4(s, old) : s);
    };
    size_t i = 0;
    for (; i + 4 <= count; i += 4) {
        const V none = greater32(zero(), load(columns + i));
        if (!all_set(none)) store(t + i * 4, draw(i, none, load(t + i * 4)));
    }
    if (i < count) {
        const size_t bytes = (count - i) * 4;
        const V past = greater32(lanes32(0, 1, 2, 3), splat32(uint32_t(count - i - 1)));
        const V none = or_(greater32(zero(), load(columns + i)), past);
        store_partial(t + i * 4, draw(i, none, load_partial(t + i * 4, bytes)), bytes);
    }
}

// The columns of a target row that can map into the source when turned, widened so that float
// rounding cannot put a drawn pixel outside: u and v are affine in the column, and each must lie
// within a pixel and a margin of its range. The pixels inside are still judged one by one.
struct ColumnRange {
    int64_t first, end;
};

ColumnRange turnedRowRange(double dy, double cx, double cosA, double sinA, double scale, double w, double h,
                           int64_t x0, int64_t x1) {
    // Generous against the float rounding of every term, whatever their size.
    const double size = std::abs(double(x0)) + std::abs(double(x1)) + std::abs(cx) + std::abs(dy);
    const double margin = 2.0 + 1e-4 * (size / std::abs(scale) + w + h);
    double low = double(x0) - 1.0, high = double(x1) + 1.0;
    // u = (dx cos + dy sin) / scale + w / 2 and v = (dy cos - dx sin) / scale + h / 2, dx = px - cx.
    auto limit = [&](double slope, double offset, double extent) {
        const double from = -margin, to = extent + margin;
        const double atLow = slope * (low - cx) + offset, atHigh = slope * (high - cx) + offset;
        if ((atLow < from && atHigh < from) || (atLow > to && atHigh > to)) {
            high = low - 1.0;
            return;
        }
        if (std::abs(slope) < 1e-9) return;
        double a = (from - offset) / slope + cx, b = (to - offset) / slope + cx;
        if (a > b) std::swap(a, b);
        low = std::max(low, a - 1.0);
        high = std::min(high, b + 1.0);
    };
    limit(cosA / scale, dy * sinA / scale + w / 2.0, w);
    limit(-sinA / scale, dy * cosA / scale + h / 2.0, h);
    if (std::isnan(low) || std::isnan(high)) return {x0, x1};
    if (!(high >= low)) return {x0, x0};
    return {std::clamp(int64_t(std::max(std::floor(low), double(x0))), x0, x1),
            std::clamp(int64_t(std::min(std::ceil(high), double(x1))), x0, x1)};
}

// Walks the target's pixels in the clipped bounding box and maps each back into the source.
void generalBlit(NuvraImage& target, const NuvraImage& image, const uint8_t* source, int32_t x, int32_t y, bool blend,
                 float scale, float rotation) {
    const bool unrotated = isUnrotated(rotation);
    const float dw = scale * float(image.width);
    const float dh = scale * float(image.height);
    float cosA = 1.0f, sinA = 0.0f;
    if (!unrotated) {
        const float radians = rotation * 0.017453292f;
        cosA = std::cos(radians);
        sinA = std::sin(radians);
    }
    const float cx = float(x) + dw / 2.0f;
    const float cy = float(y) + dh / 2.0f;
    float left = float(x), right = float(x) + dw, top = float(y), bottom = float(y) + dh;
    if (!unrotated) {
        const float cornersX[4] = {float(x), float(x) + dw, float(x), float(x) + dw};
        const float cornersY[4] = {float(y), float(y), float(y) + dh, float(y) + dh};
        left = top = INFINITY;
        right = bottom = -INFINITY;
        for (int i = 0; i < 4; ++i) {
            const float dx = cornersX[i] - cx, dy = cornersY[i] - cy;
            const float px = cx + dx * cosA - dy * sinA, py = cy + dx * sinA + dy * cosA;
            left = std::min(left, px), right = std::max(right, px);
            top = std::min(top, py), bottom = std::max(bottom, py);
        }
    }
    // Clamped in double first, so that huge edges cannot overflow an int; NaN gives an empty box.
    auto clampEdge = [](double edge, int32_t limit) {
        if (!(edge > 0.0)) return 0;
        return edge > double(limit) ? limit : int32_t(edge);
    };
    const int32_t x0 = clampEdge(std::floor(double(left)), target.width);
    const int32_t x1 = clampEdge(std::ceil(double(right)), target.width);
    const int32_t y0 = clampEdge(std::floor(double(top)), target.height);
    const int32_t y1 = clampEdge(std::ceil(double(bottom)), target.height);
    if (x1 <= x0 || y1 <= y0) return;
    const size_t columns = size_t(x1 - x0);

    // What depends on the column alone is worked out once for the whole box: the source column
    // when unrotated, the column's share of the turn otherwise. Four lanes at a time, so the
    // arrays run up to three past the box.
    const size_t padded = ((columns + 3) & ~size_t(3)) + 4;
    const F scaleLanes = splatf(scale), limitU = splatf(float(image.width)), limitV = splatf(float(image.height));
    std::vector<int32_t> sourceColumn;
    std::vector<float> dxCos, dxSin;
    if (unrotated) {
        std::vector<float> offsets(padded);
        for (size_t i = 0; i < padded; ++i) offsets[i] = float(int64_t(x0) + int64_t(i) - x);
        sourceColumn.resize(padded);
        for (size_t i = 0; i < padded; i += 4)
            store(&sourceColumn[i], nearest4(divf(loadf(&offsets[i]), scaleLanes), limitU));
    } else {
        dxCos.resize(padded);
        dxSin.resize(padded);
        for (size_t i = 0; i < padded; ++i) {
            const float dx = float(int64_t(x0) + int64_t(i)) - cx;
            dxCos[i] = dx * cosA;
            dxSin[i] = dx * sinA;
        }
    }
    const F halfW = splatf(float(image.width) / 2.0f), halfH = splatf(float(image.height) / 2.0f);
    // Dividing by a scale of 1 changes nothing, and a division costs as much as the rest of a step.
    auto overScale = [&](F a) { return scale == 1.0f ? a : divf(a, scaleLanes); };
    auto rows = [&](int32_t first, int32_t end) {
        constexpr size_t kPiece = 512;
        int32_t su[kPiece], sv[kPiece];
        if (unrotated) {
            for (int32_t py = y0 + first; py < y0 + end; ++py) {
                const int32_t row =
                    int32_t(lane32(nearest4(divf(splatf(float(int64_t(py) - y)), scaleLanes), limitV), 0));
                if (row < 0) continue;
                std::fill_n(sv, kPiece, row);
                uint8_t* t = target.pixels + (int64_t(target.width) * py + x0) * 4;
                for (size_t done = 0; done < columns; done += kPiece)
                    drawMapped(t + done * 4, source, image.width, sourceColumn.data() + done, sv,
                               std::min(kPiece, columns - done), blend);
            }
            return;
        }
        // Turned, the source is walked aslant: strips of the box a piece wide keep the source
        // pixels of one row at hand for the next. The columns a row can draw are found once.
        std::vector<ColumnRange> rowRanges;
        for (int32_t py = y0 + first; py < y0 + end; ++py)
            rowRanges.push_back(turnedRowRange(float(py) - cy, cx, cosA, sinA, scale, image.width, image.height, x0, x1));
        for (size_t done = 0; done < columns; done += kPiece) {
            const int64_t stripFirst = x0 + int64_t(done), stripEnd = x0 + int64_t(std::min(done + kPiece, columns));
            for (int32_t py = y0 + first; py < y0 + end; ++py) {
                const float dy = float(py) - cy;
                const ColumnRange& row = rowRanges[size_t(py - y0 - first)];
                const int64_t firstColumn = std::max(row.first, stripFirst), endColumn = std::min(row.end, stripEnd);
                if (firstColumn >= endColumn) continue;
                const size_t from = size_t(firstColumn - x0), count = size_t(endColumn - firstColumn);
                uint8_t* t = target.pixels + (int64_t(target.width) * py + firstColumn) * 4;
                const F dySin = splatf(dy * sinA), dyCos = splatf(dy * cosA);
                for (size_t i = 0; i < count; i += 4) {
                    const V u = nearest4(addf(overScale(addf(loadf(&dxCos[from + i]), dySin)), halfW), limitU);
                    const V v = nearest4(addf(overScale(subf(dyCos, loadf(&dxSin[from + i]))), halfH), limitV);
                    // A column of -1 marks the pixel as outside, whichever of the two is.
                    store(su + i, or_(u, greater32(zero(), v)));
                    store(sv + i, v);
                }
                drawMapped(t, source, image.width, su, sv, count, blend);
            }
        }
    };
    const int32_t rowsInBox = y1 - y0;
    runCeilingBands(rowsInBox, threadCount(int64_t(x1 - x0) * rowsInBox, rowsInBox), rows);
}

}  // namespace

void blitImage(NuvraImage& target, const NuvraImage& image, int32_t x, int32_t y, bool blend, float scale,
               float rotation) {
    if (scale == 0.0f) return;
    // One image as both ends: bands would read rows that others write, so draw from a snapshot.
    std::vector<uint8_t> snapshot;
    const uint8_t* source = image.pixels;
    if (&target == &image) {
        snapshot.assign(image.pixels, image.pixels + int64_t(image.width) * image.height * 4);
        source = snapshot.data();
    }
    if (scale == 1.0f && isUnrotated(rotation)) fastBlit(target, image, source, x, y, blend);
    else generalBlit(target, image, source, x, y, blend, scale, rotation);
}

}  // namespace orvane
