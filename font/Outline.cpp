#include "font/Outline.h"

#include <algorithm>
#include <cmath>

namespace orvane::font {

namespace {

// 0.35 pixels, squared, in double: 0.12249999999999998.
constexpr double kFlatEnough = 0.35 * 0.35;
constexpr int kDeepestSplit = 9;
constexpr int kSamples = 4;  // a side of the supersampling grid
constexpr double kSampleSpacing = 0.25, kFirstSample = 0.125;
// The rasteriser's work for one glyph: every sample of its box, and every segment once for each
// row of samples. A 2000-pixel glyph fits; a damaged file's glyph miles wide does not.
constexpr double kMostRasterWork = double(1 << 28);

Point midpoint(Point a, Point b) { return {(a.x + b.x) / 2, (a.y + b.y) / 2}; }

void flatten_quadratic_recursive(OutlineBuilder& builder, Point p0, Point p1, Point p2, int depth) {
    const Point m = midpoint(p0, p2);
    const double dx = p1.x - m.x, dy = p1.y - m.y;
    if (dx * dx + dy * dy <= kFlatEnough || depth > kDeepestSplit) {
        builder.line_to(p2);
        return;
    }
    const Point q0 = midpoint(p0, p1), q1 = midpoint(p1, p2), r = midpoint(q0, q1);
    flatten_quadratic_recursive(builder, p0, q0, r, depth + 1);
    flatten_quadratic_recursive(builder, r, q1, p2, depth + 1);
}

}  // namespace

Point transform_point(const AffineTransform& t, Point p) {
    return {t.a * p.x + t.b * p.y + t.e, t.c * p.x + t.d * p.y + t.f};
}

Point transform_vector(const AffineTransform& t, Point p) { return {t.a * p.x + t.b * p.y, t.c * p.x + t.d * p.y}; }

AffineTransform compose_transform(const AffineTransform& t, double a, double b, double c, double d, double e, double f) {
    return {t.a * a + t.b * c, t.a * b + t.b * d, t.c * a + t.d * c,
            t.c * b + t.d * d, t.a * e + t.b * f + t.e, t.c * e + t.d * f + t.f};
}

void OutlineBuilder::widen(Point p) {
    if (!bounded_) {
        min_x_ = max_x_ = p.x, min_y_ = max_y_ = p.y;
        bounded_ = true;
        return;
    }
    min_x_ = std::min(min_x_, p.x), max_x_ = std::max(max_x_, p.x);
    min_y_ = std::min(min_y_, p.y), max_y_ = std::max(max_y_, p.y);
}

void OutlineBuilder::move_to(Point p) {
    if (open_ && (current_.x != start_.x || current_.y != start_.y)) line_to(start_);
    start_ = current_ = p;
    open_ = true;
    widen(p);
}

void OutlineBuilder::line_to(Point p) {
    if (!open_) {
        move_to(p);
        return;
    }
    if (p.x != current_.x || p.y != current_.y) {
        segments_.push_back({current_, p});
        current_ = p;
    }
    widen(p);
}

void OutlineBuilder::close_contour() {
    if (open_ && (current_.x != start_.x || current_.y != start_.y)) segments_.push_back({current_, start_});
    open_ = false;
    current_ = start_;
}

void flatten_quadratic(OutlineBuilder& builder, Point p0, Point p1, Point p2) {
    flatten_quadratic_recursive(builder, p0, p1, p2, 0);
}

int32_t point_winding(const std::vector<LineSegment>& segments, double x, double y) {
    int32_t winding = 0;
    for (const LineSegment& s : segments) {
        const double x0 = s.start.x, y0 = s.start.y, x1 = s.end.x, y1 = s.end.y;
        if (y0 == y1) continue;
        // Half-open in y, so that a vertex shared by two segments counts once.
        const bool rises = y0 <= y && y1 > y, falls = y1 <= y && y0 > y;
        if (!rises && !falls) continue;
        if (x0 + (y - y0) * (x1 - x0) / (y1 - y0) > x) winding += rises ? 1 : -1;
    }
    return winding;
}

GlyphBitmap rasterize_outline(const OutlineBuilder& builder, double advance) {
    GlyphBitmap bitmap;
    bitmap.advance = advance;
    if (builder.segments().empty() || !builder.has_bounds()) return bitmap;
        // A glyph whose box (margin included) times its segments exceeds the budget has no ink, so
    // that a file with a huge or busy outline cannot stall the text. Written so that NaN or
    // infinite bounds count as too much work too.
    const double boxWidth = builder.max_x() - builder.min_x() + 3, boxHeight = builder.max_y() - builder.min_y() + 3;
    const double samples = kSamples * kSamples;
    const double work = boxWidth * boxHeight * samples + boxHeight * kSamples * double(builder.segments().size());
    if (!(work <= kMostRasterWork)) return bitmap;
    const int32_t left = int32_t(std::floor(builder.min_x())) - 1, right = int32_t(std::ceil(builder.max_x())) + 1;
    const int32_t bottom = int32_t(std::floor(builder.min_y())) - 1, top = int32_t(std::ceil(builder.max_y())) + 1;
    const int32_t width = std::max(0, right - left), height = std::max(0, top - bottom);
    if (width < 1 || height < 1) return bitmap;
    bitmap.left = left, bitmap.top = top, bitmap.width = width, bitmap.height = height;
    bitmap.pixels.assign(size_t(width) * size_t(height), 0);
    // Sample by sample the winding rule would walk every segment; instead each row of samples
    // works out its crossings once, with the very expression point_winding uses, and sweeps them
    // left to right: a sample's winding is the sum of the crossings strictly to its right.
    struct Crossing {
        double x;
        int32_t sign;
    };
    std::vector<Crossing> crossings;
    std::vector<int32_t> inside(size_t(width), 0);
    for (int32_t r = 0; r < height; ++r) {
        std::fill(inside.begin(), inside.end(), 0);
        for (int j = 0; j < kSamples; ++j) {
            const double sy = top - r - kFirstSample - j * kSampleSpacing;
            crossings.clear();
            int32_t winding = 0;
            for (const LineSegment& segment : builder.segments()) {
                const double x0 = segment.start.x, y0 = segment.start.y, x1 = segment.end.x, y1 = segment.end.y;
                if (y0 == y1) continue;
                const bool rises = y0 <= sy && y1 > sy, falls = y1 <= sy && y0 > sy;
                if (!rises && !falls) continue;
                crossings.push_back({x0 + (sy - y0) * (x1 - x0) / (y1 - y0), rises ? 1 : -1});
                winding += crossings.back().sign;
            }
            std::sort(crossings.begin(), crossings.end(), [](const Crossing& a, const Crossing& b) { return a.x < b.x; });
            size_t passed = 0;
            for (int32_t c = 0; c < width; ++c)
                for (int i = 0; i < kSamples; ++i) {
                    const double sx = left + c + kFirstSample + i * kSampleSpacing;
                    for (; passed < crossings.size() && !(crossings[passed].x > sx); ++passed) winding -= crossings[passed].sign;
                    if (winding != 0) ++inside[size_t(c)];
                }
        }
        for (int32_t c = 0; c < width; ++c)
            bitmap.pixels[size_t(r) * size_t(width) + size_t(c)] = uint8_t(inside[size_t(c)] * 255 / (kSamples * kSamples));
    }
    return bitmap;
}

void trim_transparent_edges(GlyphBitmap& bitmap) {
    if (bitmap.width <= 0 || bitmap.height <= 0 || bitmap.pixels.empty()) return;
    const int32_t w = bitmap.width, h = bitmap.height;
    const auto at = [&](int32_t row, int32_t column) { return bitmap.pixels[size_t(row) * size_t(w) + size_t(column)]; };
    const auto rowEmpty = [&](int32_t row) {
        for (int32_t c = 0; c < w; ++c)
            if (at(row, c)) return false;
        return true;
    };
    int32_t top = 0;
    while (top < h && rowEmpty(top)) ++top;
    if (top == h) {
        bitmap.left = bitmap.top = bitmap.width = bitmap.height = 0;
        bitmap.pixels.clear();
        return;
    }
    int32_t bottom = 0;
    while (rowEmpty(h - 1 - bottom)) ++bottom;
    const auto columnEmpty = [&](int32_t column) {
        for (int32_t r = top; r < h - bottom; ++r)
            if (at(r, column)) return false;
        return true;
    };
    int32_t leftCount = 0, rightCount = 0;
    while (columnEmpty(leftCount)) ++leftCount;
    while (columnEmpty(w - 1 - rightCount)) ++rightCount;
    const int32_t newWidth = w - leftCount - rightCount, newHeight = h - top - bottom;
    std::vector<uint8_t> kept;
    kept.reserve(size_t(newWidth) * size_t(newHeight));
    for (int32_t r = top; r < h - bottom; ++r)
        for (int32_t c = leftCount; c < w - rightCount; ++c) kept.push_back(at(r, c));
    bitmap.pixels = std::move(kept);
    bitmap.left += leftCount;
    bitmap.top -= top;
    bitmap.width = newWidth;
    bitmap.height = newHeight;
}

}  // namespace orvane::font
