// Glyph outlines: simple glyphs to explicit contours, composites through their transforms, and
// the contours drawn into an OutlineBuilder.
#include <tuple>
#include <utility>

#include "font/TrueTypeBackend.h"

namespace orvane::font {

namespace {

// Composites may nest 12 levels; a composite deeper than this fails its glyph.
constexpr int kDeepestComposite = 11;

// A composite may repeat a component that itself repeats components, so the work grows as the
// fan-out to the power of the depth while the file stays small. One glyph may decode at most this
// many points, components counted as one each, repeats included; past it the glyph is blank. The
// largest simple glyph holds 65536 points, so this leaves room for composites of several.
constexpr size_t kGlyphWorkBudget = 1'000'000;

// Flattening at an absurd composite scale can split every curve to the deepest level; a glyph
// whose segments pass this is blank rather than a memory hog.
constexpr size_t kMaxSegments = 2 * kGlyphWorkBudget;

// Simple glyph flags.
constexpr uint8_t kOnCurve = 0x01, kXShort = 0x02, kYShort = 0x04, kRepeat = 0x08;
constexpr uint8_t kXSameOrPositive = 0x10, kYSameOrPositive = 0x20;

// Composite component flags.
constexpr uint16_t kArgsAreWords = 0x0001, kArgsAreXY = 0x0002, kHasScale = 0x0008, kMoreComponents = 0x0020;
constexpr uint16_t kHasXYScale = 0x0040, kHasTwoByTwo = 0x0080, kHasInstructions = 0x0100;
constexpr uint16_t kScaledOffset = 0x0800;

Point midpoint(Point a, Point b) { return {(a.x + b.x) / 2, (a.y + b.y) / 2}; }

double f2dot14(const Bytes& bytes, size_t at) { return read_s16_be(bytes, at) / 16384.0; }

}  // namespace

struct TrueTypeBackend::DecodeBudget {
    size_t spent = 0;
    bool charge(size_t units) {
        if (units > kGlyphWorkBudget - spent) return false;
        spent += units;
        return true;
    }
};

bool TrueTypeBackend::glyph_span(uint16_t glyph, size_t& offset, size_t& length) const {
    if (glyph >= num_glyphs_ || loca_offsets_.size() < size_t(glyph) + 2) return false;
    const uint32_t here = loca_offsets_[glyph], next = loca_offsets_[size_t(glyph) + 1];
    if (next < here || next > glyf_.length) return false;
    offset = size_t(glyf_.offset) + here;
    length = next - here;
    return true;
}

bool TrueTypeBackend::glyph_contours(uint16_t glyph, const AffineTransform& transform,
                                     std::vector<Contour>& out) const {
    out.clear();
    DecodeBudget budget;
    if (append_glyph_outline(glyph, transform, out, 0, budget)) return true;
    out.clear();
    return false;
}

bool TrueTypeBackend::append_glyph_outline(uint16_t glyph, const AffineTransform& transform,
                                           std::vector<Contour>& out, int depth, DecodeBudget& budget) const {
    size_t offset = 0, length = 0;
    // No extent or an empty one is a glyph without ink, such as a space.
    if (!glyph_span(glyph, offset, length) || length == 0) return true;
    if (!can_read(bytes_, offset, 10)) return false;
    // The header's bounding box is not trusted; the bounds come from the points.
    const int16_t contourCount = read_s16_be(bytes_, offset);
    if (contourCount < 0) return append_composite_glyph(offset, length, transform, out, depth, budget);
    return append_simple_glyph(offset, length, contourCount, transform, out, budget);
}

bool TrueTypeBackend::append_simple_glyph(size_t offset, size_t length, int16_t contour_count,
                                          const AffineTransform& transform, std::vector<Contour>& out,
                                          DecodeBudget& budget) const {
    if (contour_count == 0 || !can_read(bytes_, offset, length)) return true;
    const size_t ends = offset + 10;
    if (!can_read(bytes_, ends, size_t(contour_count) * 2)) return false;
    const uint32_t pointCount = uint32_t(read_u16_be(bytes_, ends + (size_t(contour_count) - 1) * 2)) + 1;
    size_t at = ends + size_t(contour_count) * 2;
    if (!can_read(bytes_, at, 2)) return false;
    const uint16_t instructionLength = read_u16_be(bytes_, at);
    at += 2;
    if (!can_read(bytes_, at, instructionLength)) return false;
    at += instructionLength;  // no hinting

    // Two flag bytes with a repeat supply at most 256 points: a count that the remaining bytes
    // cannot supply fails here, before anything is allocated for it.
    const size_t remaining = bytes_.size() - at;
    if (pointCount > remaining / 2 * 256 + remaining % 2) return false;
    if (!budget.charge(pointCount)) return false;

    std::vector<uint8_t> flags;
    flags.reserve(pointCount);
    while (flags.size() < pointCount) {
        if (!can_read(bytes_, at, 1)) return false;
        const uint8_t flag = bytes_[at++];
        flags.push_back(flag);
        if (flag & kRepeat) {
            if (!can_read(bytes_, at, 1)) return false;
            // A last repeat may run past the count; the surplus is dropped.
            for (uint8_t repeat = bytes_[at++]; repeat > 0 && flags.size() < pointCount; --repeat)
                flags.push_back(flag);
        }
    }

    // Deltas accumulate in 16 bits, as the file's coordinates are held.
    const auto readAxis = [&](std::vector<int16_t>& values, uint8_t shortBit, uint8_t sameOrPositiveBit) {
        uint16_t value = 0;
        for (uint32_t i = 0; i < pointCount; ++i) {
            const uint8_t flag = flags[i];
            if (flag & shortBit) {
                if (!can_read(bytes_, at, 1)) return false;
                const uint8_t delta = bytes_[at++];
                value = uint16_t(flag & sameOrPositiveBit ? value + delta : value - delta);
            } else if (!(flag & sameOrPositiveBit)) {
                if (!can_read(bytes_, at, 2)) return false;
                value = uint16_t(value + read_u16_be(bytes_, at));
                at += 2;
            }
            values[i] = int16_t(value);
        }
        return true;
    };
    std::vector<int16_t> xs(pointCount), ys(pointCount);
    if (!readAxis(xs, kXShort, kXSameOrPositive) || !readAxis(ys, kYShort, kYSameOrPositive)) return false;

    const auto pointAt = [&](uint32_t i) { return Point{double(xs[i]), double(ys[i])}; };
    uint32_t first = 0;
    for (int16_t c = 0; c < contour_count; ++c) {
        const uint32_t last = read_u16_be(bytes_, ends + size_t(c) * 2);
        if (last < first || last >= pointCount) return false;
        Contour contour;
        contour.reserve(size_t(last - first + 1) * 2 + 2);
        // Between two control points lies an implied on-curve point, their midpoint.
        for (uint32_t i = first; i <= last; ++i) {
            const uint32_t next = i == last ? first : i + 1;
            const bool on = flags[i] & kOnCurve;
            contour.push_back({pointAt(i), on});
            if (!on && !(flags[next] & kOnCurve)) contour.push_back({midpoint(pointAt(i), pointAt(next)), true});
        }
        // Start on the curve: at the last point, or between the last and the first.
        if (!contour.front().on_curve) {
            const ContourPoint& back = contour.back();
            const Point start = back.on_curve ? back.point : midpoint(back.point, contour.front().point);
            contour.insert(contour.begin(), {start, true});
        }
        contour.push_back({contour.front().point, true});
        for (ContourPoint& p : contour) p.point = transform_point(transform, p.point);
        out.push_back(std::move(contour));
        first = last + 1;
    }
    return true;
}

bool TrueTypeBackend::append_composite_glyph(size_t offset, size_t length, const AffineTransform& transform,
                                             std::vector<Contour>& out, int depth, DecodeBudget& budget) const {
    if (depth > kDeepestComposite) return false;
    const size_t end = offset + length;
    size_t at = offset + 10;
    for (;;) {
        if (!can_read(bytes_, at, 4) || at > end) return false;
        if (!budget.charge(1)) return false;
        const uint16_t flags = read_u16_be(bytes_, at), component = read_u16_be(bytes_, at + 2);
        at += 4;
        double dx = 0, dy = 0;
        if (flags & kArgsAreWords) {
            if (!can_read(bytes_, at, 4)) return false;
            dx = read_s16_be(bytes_, at), dy = read_s16_be(bytes_, at + 2);
            at += 4;
        } else {
            if (!can_read(bytes_, at, 2)) return false;
            dx = int8_t(bytes_[at]), dy = int8_t(bytes_[at + 1]);
            at += 2;
        }
        // Anchoring a component by matching point numbers is not supported.
        if (!(flags & kArgsAreXY)) return false;
        // Read in the order m00, m01, m10, m11; m01 multiplies y in x', m10 multiplies x in y'.
        double m00 = 1, m01 = 0, m10 = 0, m11 = 1;
        if (flags & kHasScale) {
            if (!can_read(bytes_, at, 2)) return false;
            m00 = m11 = f2dot14(bytes_, at);
            at += 2;
        } else if (flags & kHasXYScale) {
            if (!can_read(bytes_, at, 4)) return false;
            m00 = f2dot14(bytes_, at), m11 = f2dot14(bytes_, at + 2);
            at += 4;
        } else if (flags & kHasTwoByTwo) {
            if (!can_read(bytes_, at, 8)) return false;
            m00 = f2dot14(bytes_, at), m01 = f2dot14(bytes_, at + 2);
            m10 = f2dot14(bytes_, at + 4), m11 = f2dot14(bytes_, at + 6);
            at += 8;
        }
        if (flags & kScaledOffset) std::tie(dx, dy) = std::pair(dx * m00 + dy * m01, dx * m10 + dy * m11);
        const AffineTransform composed = compose_transform(transform, m00, m01, m10, m11, dx, dy);
        if (!append_glyph_outline(component, composed, out, depth + 1, budget)) return false;
        if (flags & kHasInstructions) {
            if (!can_read(bytes_, at, 2)) return false;
            at += 2 + size_t(read_u16_be(bytes_, at));
        }
        if (!(flags & kMoreComponents)) return true;
    }
}

bool draw_contours(const std::vector<Contour>& contours, OutlineBuilder& builder) {
    for (const Contour& contour : contours) {
        if (contour.empty()) continue;
        builder.move_to(contour[0].point);
        size_t i = 0;
        while (i + 1 < contour.size()) {
            if (contour[i + 1].on_curve) {
                builder.line_to(contour[i + 1].point);
                i += 1;
            } else {
                if (i + 2 >= contour.size()) break;
                flatten_quadratic(builder, contour[i].point, contour[i + 1].point, contour[i + 2].point);
                i += 2;
            }
            if (builder.segments().size() > kMaxSegments) return false;
        }
        builder.close_contour();
    }
    return true;
}

}  // namespace orvane::font
