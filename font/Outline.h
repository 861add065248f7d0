// A glyph's outline in pixels, from the readers' moves, lines and quadratic curves to line
// segments, and from those to a coverage bitmap by 4 by 4 supersampling with non-zero winding.
#pragma once

#include <cstdint>
#include <vector>

namespace orvane::font {

struct Point {
    double x = 0, y = 0;
};

// Pixel space, y growing upward.
struct LineSegment {
    Point start, end;
};

// x' = a*x + b*y + e, y' = c*x + d*y + f.
struct AffineTransform {
    double a = 1, b = 0, c = 0, d = 1, e = 0, f = 0;
};
Point transform_point(const AffineTransform& t, Point p);
Point transform_vector(const AffineTransform& t, Point p);
// `t` applied after the matrix (a, b, c, d, e, f).
AffineTransform compose_transform(const AffineTransform& t, double a, double b, double c, double d, double e, double f);

// Collects one glyph's outline as closed contours of line segments, and its bounds.
class OutlineBuilder {
public:
    void move_to(Point p);
    void line_to(Point p);
    void close_contour();

    const std::vector<LineSegment>& segments() const { return segments_; }
    bool has_bounds() const { return bounded_; }
    double min_x() const { return min_x_; }
    double max_x() const { return max_x_; }
    double min_y() const { return min_y_; }
    double max_y() const { return max_y_; }

private:
    void widen(Point p);
    std::vector<LineSegment> segments_;
    bool open_ = false, bounded_ = false;
    Point start_, current_;
    double min_x_ = 0, max_x_ = 0, min_y_ = 0, max_y_ = 0;
};

// Line segments within 0.35 pixels of the curve p0, p1 (control), p2, ending with line_to(p2).
void flatten_quadratic(OutlineBuilder& builder, Point p0, Point p1, Point p2);

// The signed count of segments crossing the ray from (x, y) toward positive x.
int32_t point_winding(const std::vector<LineSegment>& segments, double x, double y);

struct GlyphBitmap {
    int32_t left = 0;    // first column, relative to the pen
    int32_t top = 0;     // top edge, upward from the baseline
    int32_t width = 0, height = 0;
    double advance = 0;  // pixels, not rounded
    std::vector<uint8_t> pixels;  // width*height coverage, top row first
};

// The outline's coverage with a pixel of margin on every side; no ink without segments.
GlyphBitmap rasterize_outline(const OutlineBuilder& builder, double advance);
// Removes fully transparent rows and columns; all-transparent leaves only the advance.
void trim_transparent_edges(GlyphBitmap& bitmap);

}  // namespace orvane::font
