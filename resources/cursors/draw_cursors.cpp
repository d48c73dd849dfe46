// Draws the art of Quillo's cursor themes: for each theme an arrow and a pointing hand, a small
// picture for the theme picker, and for the sparkling themes a glint. Run at build time:
//   draw_cursors OUTPUT_FOLDER
// Every theme shares one geometry, so the arrow and the hand have the same tip in every theme;
// the program prints those tips, and themes.json lists the same numbers. It fails when a
// picture would be clipped or its tip would not land on the drawn point.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <numbers>
#include <optional>
#include <string>
#include <vector>

#include <cairo.h>

#include "cairo_handles.h"

namespace {

namespace fs = std::filesystem;
using std::numbers::pi;

// --- geometry: the one table the hot spots in themes.json come from

// Shapes are laid out in units, about 20 to a shape's height.
constexpr double kScale = 4.8;      // pixels per unit in the arrow and hand pictures
constexpr double kTall = 20;        // units of height every arrow and hand picture holds
constexpr double kOutline = 0.7;    // units an outline reaches past the shape's edge
constexpr int kPad = 18;            // pixels around the outline for shadows and glows
constexpr int kThumbnailSize = 64;  // pixels
constexpr int kGlintSize = 32;      // pixels

struct Point {
    double x, y;
};

// A pointer shape, in units.
struct Shape {
    void (*outline)(cairo_t*);  // adds the silhouette as one closed path
    void (*details)(cairo_t*);  // adds open inner lines (finger creases); may be null
    Point tip;                  // the pointing tip of the outline (the hot spot)
    Point inward;               // unit vector from the tip into the shape
    double left = 0, top = 0, right = 0, bottom = 0;  // the silhouette's bounds
};

// The classic pointer: its point at (0, 0), a notch and a tail below.
void arrowOutline(cairo_t* cr) {
    cairo_move_to(cr, 0, 0);
    cairo_line_to(cr, 0, 17);
    cairo_line_to(cr, 4.2, 13.1);
    cairo_line_to(cr, 7, 19.5);
    cairo_line_to(cr, 9.7, 18.3);
    cairo_line_to(cr, 6.9, 12.1);
    cairo_line_to(cr, 12.3, 12.1);
    cairo_close_path(cr);
}

// A hand pointing up with its index finger, whose tip is round about (0, 2); the other fingers
// are curled to the right, the thumb sticks out to the left, the wrist is cut off flat.
void handOutline(cairo_t* cr) {
    cairo_new_sub_path(cr);
    cairo_arc(cr, 0, 2, 2, pi, 2 * pi);  // index fingertip
    cairo_line_to(cr, 2, 8.2);
    cairo_arc(cr, 3.6, 8.2, 1.6, pi, 2 * pi);  // middle knuckle
    cairo_line_to(cr, 5.2, 9);
    cairo_arc(cr, 6.75, 9, 1.55, pi, 2 * pi);  // ring knuckle
    cairo_line_to(cr, 8.3, 10);
    cairo_arc(cr, 9.65, 10, 1.35, pi, 2 * pi);  // little knuckle
    cairo_line_to(cr, 11, 13.5);
    cairo_curve_to(cr, 11, 16.2, 10.4, 17.6, 10, 20);
    cairo_line_to(cr, 1.4, 20);
    cairo_curve_to(cr, 1, 18.2, -0.4, 17.2, -2.4, 15.8);  // under the thumb
    cairo_curve_to(cr, -4.4, 14.4, -5.4, 12.4, -4.3, 11.6);
    cairo_curve_to(cr, -3.5, 11, -2.7, 11.7, -2, 12.4);  // back to the index finger
    cairo_close_path(cr);
}

void handDetails(cairo_t* cr) {
    for (auto [x, from, to] :
         {std::tuple{2.0, 8.6, 11.2}, std::tuple{5.2, 9.4, 11.8}, std::tuple{8.3, 10.4, 12.4}}) {
        cairo_move_to(cr, x, from);
        cairo_line_to(cr, x, to);
    }
    cairo_move_to(cr, -2, 12.4);
    cairo_curve_to(cr, -1.2, 13.3, -0.2, 13.9, 1, 14.1);  // the thumb's fold into the palm
}

// A throwaway context for measuring paths in units.
CairoPtr scratch() {
    SurfacePtr surface{cairo_image_surface_create(CAIRO_FORMAT_A8, 1, 1)};
    return CairoPtr{cairo_create(surface.get())};
}

Shape measured(Shape shape) {
    CairoPtr cr = scratch();
    shape.outline(cr.get());
    cairo_path_extents(cr.get(), &shape.left, &shape.top, &shape.right, &shape.bottom);
    return shape;
}

Shape arrowShape() {
    // With round joins the outline's point lies on the corner's bisector, kOutline out.
    const double wing = std::hypot(12.3, 12.1);
    Point inward{12.3 / wing, 1 + 12.1 / wing};
    const double length = std::hypot(inward.x, inward.y);
    inward = {inward.x / length, inward.y / length};
    return measured({arrowOutline, nullptr, {-kOutline * inward.x, -kOutline * inward.y}, inward});
}

Shape handShape() { return measured({handOutline, handDetails, {0, -kOutline}, {0, 1}}); }

// Where a shape sits in its picture. The tip lands on a whole pixel, so the hot spot is exact.
struct Frame {
    int width = 0, height = 0;
    int hotX = 0, hotY = 0;
    Point origin;  // where unit (0, 0) lands, in pixels
};

Frame frameFor(const Shape& shape) {
    const double reach = kOutline * kScale;
    Frame frame;
    frame.hotX = kPad + static_cast<int>(std::lround((shape.tip.x - shape.left) * kScale + reach));
    frame.hotY = kPad + static_cast<int>(std::lround((shape.tip.y - shape.top) * kScale + reach));
    frame.origin = {frame.hotX - shape.tip.x * kScale, frame.hotY - shape.tip.y * kScale};
    frame.width = static_cast<int>(std::ceil(frame.origin.x + shape.right * kScale + reach)) + kPad;
    frame.height = static_cast<int>(std::ceil(kTall * kScale + 2 * reach)) + 2 * kPad;
    return frame;
}

// --- colours and soft masks

struct Colour {
    double r, g, b, a = 1;
};

Colour hex(unsigned rgb, double a = 1) {
    return {((rgb >> 16) & 255) / 255.0, ((rgb >> 8) & 255) / 255.0, (rgb & 255) / 255.0, a};
}

void setColour(cairo_t* cr, Colour c) { cairo_set_source_rgba(cr, c.r, c.g, c.b, c.a); }

using Stops = std::vector<std::pair<double, Colour>>;

PatternPtr linear(Point from, Point to, const Stops& stops) {
    PatternPtr pattern{cairo_pattern_create_linear(from.x, from.y, to.x, to.y)};
    for (const auto& [offset, c] : stops) {
        cairo_pattern_add_color_stop_rgba(pattern.get(), offset, c.r, c.g, c.b, c.a);
    }
    return pattern;
}

// One box blur of `radius` pixels along a row or column of `count` bytes `step` apart.
void boxBlur(uint8_t* p, int count, int step, int radius, std::vector<int>& line) {
    line.assign(count, 0);
    for (int i = 0; i < count; ++i) {
        line[i] = p[i * step];
    }
    int sum = 0;
    for (int i = 0; i < std::min(radius, count); ++i) {
        sum += line[i];
    }
    const int window = 2 * radius + 1;
    for (int i = 0; i < count; ++i) {
        if (i + radius < count) {
            sum += line[i + radius];
        }
        if (i - radius - 1 >= 0) {
            sum -= line[i - radius - 1];
        }
        p[i * step] = static_cast<uint8_t>(sum / window);
    }
}

// Three box blurs each way come close to a Gaussian.
void blur(cairo_surface_t* mask, int radius) {
    if (radius < 1) {
        return;
    }
    cairo_surface_flush(mask);
    uint8_t* data = cairo_image_surface_get_data(mask);
    const int width = cairo_image_surface_get_width(mask);
    const int height = cairo_image_surface_get_height(mask);
    const int stride = cairo_image_surface_get_stride(mask);
    std::vector<int> line;
    for (int pass = 0; pass < 3; ++pass) {
        for (int y = 0; y < height; ++y) {
            boxBlur(data + y * stride, width, 1, radius, line);
        }
        for (int x = 0; x < width; ++x) {
            boxBlur(data + x, height, stride, radius, line);
        }
    }
    cairo_surface_mark_dirty(mask);
}

enum class Coverage { Fill, Stroke };

// A soft copy of `path` the size of `cr`'s target, in `cr`'s units: the path filled or
// stroked `width` wide (a filled path grows by width / 2), moved by (dx, dy), then blurred
// with boxes `softness` units in radius (the blur spreads three times that).
SurfacePtr softMask(cairo_t* cr, void (*path)(cairo_t*), Coverage coverage, double width,
                    double softness, double dx = 0, double dy = 0) {
    cairo_surface_t* target = cairo_get_target(cr);
    SurfacePtr mask{cairo_image_surface_create(CAIRO_FORMAT_A8,
                                               cairo_image_surface_get_width(target),
                                               cairo_image_surface_get_height(target))};
    CairoPtr m{cairo_create(mask.get())};
    cairo_matrix_t matrix;
    cairo_get_matrix(cr, &matrix);
    cairo_set_matrix(m.get(), &matrix);
    cairo_translate(m.get(), dx, dy);
    path(m.get());
    cairo_set_line_join(m.get(), CAIRO_LINE_JOIN_ROUND);
    cairo_set_line_cap(m.get(), CAIRO_LINE_CAP_ROUND);
    cairo_set_line_width(m.get(), width);
    if (coverage == Coverage::Fill) {
        cairo_fill_preserve(m.get());
    }
    if (width > 0) {
        cairo_stroke(m.get());
    }
    m.reset();
    blur(mask.get(), static_cast<int>(std::lround(softness * matrix.xx)));
    return mask;
}

// Paints the current source through a mask made by softMask().
void paintThrough(cairo_t* cr, cairo_surface_t* mask, double alpha = 1) {
    cairo_save(cr);
    cairo_identity_matrix(cr);
    if (alpha < 1) {
        cairo_push_group(cr);
        cairo_mask_surface(cr, mask, 0, 0);
        cairo_pop_group_to_source(cr);
        cairo_paint_with_alpha(cr, alpha);
    } else {
        cairo_mask_surface(cr, mask, 0, 0);
    }
    cairo_restore(cr);
}

void dropShadow(cairo_t* cr, const Shape& shape, double alpha) {
    SurfacePtr mask = softMask(cr, shape.outline, Coverage::Fill, 2 * kOutline, 0.6, 0.3, 0.75);
    cairo_set_source_rgba(cr, 0.05, 0.03, 0.12, alpha);
    paintThrough(cr, mask.get());
}

void newPath(cairo_t* cr, void (*path)(cairo_t*)) {
    cairo_new_path(cr);
    path(cr);
}

void strokeDetails(cairo_t* cr, const Shape& shape, Colour colour, double width) {
    if (!shape.details) {
        return;
    }
    newPath(cr, shape.details);
    cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND);
    cairo_set_line_width(cr, width);
    setColour(cr, colour);
    cairo_stroke(cr);
}

// --- how each theme paints a shape, on a context scaled to units

using Painter = std::function<void(cairo_t*, const Shape&)>;
using FillFor = std::function<PatternPtr(const Shape&)>;

PatternPtr solid(Colour c) { return PatternPtr{cairo_pattern_create_rgba(c.r, c.g, c.b, c.a)}; }

// A filled shape with a solid outline outside its edge and a soft shadow.
Painter sticker(FillFor fill, Colour outline, Colour creases, double shadow,
                std::function<void(cairo_t*, const Shape&)> finish = {}) {
    return [=](cairo_t* cr, const Shape& shape) {
        dropShadow(cr, shape, shadow);
        cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
        // The outline is stroked twice its width under the fill, so only its outer half shows.
        newPath(cr, shape.outline);
        cairo_set_line_width(cr, 2 * kOutline);
        setColour(cr, outline);
        cairo_stroke_preserve(cr);
        PatternPtr source = fill(shape);
        cairo_set_source(cr, source.get());
        cairo_fill(cr);
        if (finish) {
            finish(cr, shape);
        }
        strokeDetails(cr, shape, creases, 0.42);
    };
}

// A bright edge along the upper left, inside the shape, as on polished metal.
void bevel(cairo_t* cr, const Shape& shape) {
    cairo_save(cr);
    newPath(cr, shape.outline);
    cairo_clip(cr);
    cairo_translate(cr, 0.55, 0.7);
    newPath(cr, shape.outline);
    cairo_set_line_width(cr, 0.75);
    setColour(cr, hex(0xfffbe6, 0.85));
    cairo_stroke(cr);
    cairo_restore(cr);
}

struct Polyline {
    std::vector<Point> points;
    bool closed = false;
};

// `path` as straight lines, in units.
std::vector<Polyline> flattened(void (*path)(cairo_t*)) {
    CairoPtr cr = scratch();
    path(cr.get());
    PathPtr flat{cairo_copy_path_flat(cr.get())};
    std::vector<Polyline> lines;
    for (int i = 0; i < flat->num_data; i += flat->data[i].header.length) {
        const cairo_path_data_t* d = &flat->data[i];
        if (d[0].header.type == CAIRO_PATH_MOVE_TO) {
            lines.push_back({{{d[1].point.x, d[1].point.y}}});
        } else if (d[0].header.type == CAIRO_PATH_LINE_TO && !lines.empty()) {
            lines.back().points.push_back({d[1].point.x, d[1].point.y});
        } else if (d[0].header.type == CAIRO_PATH_CLOSE_PATH && !lines.empty()) {
            lines.back().closed = true;
        }
    }
    return lines;
}

// A line as if drawn by hand: `path` flattened, then each point nudged by slow, uneven waves
// along its length; `phase` makes each pass differ. Closed lines overshoot their start a bit.
void wobbly(cairo_t* cr, void (*path)(cairo_t*), double phase) {
    constexpr double kOvershoot = 0.9;  // units
    cairo_new_path(cr);
    for (Polyline line : flattened(path)) {
        std::vector<Point>& points = line.points;
        if (line.closed && points.size() > 1) {
            const Point a = points[0], b = points[1];
            const double keep = std::min(1.0, kOvershoot / std::hypot(b.x - a.x, b.y - a.y));
            points.push_back(a);
            points.push_back({a.x + (b.x - a.x) * keep, a.y + (b.y - a.y) * keep});
        }
        double along = phase * 7.3;
        for (size_t i = 0; i < points.size(); ++i) {
            const Point p = points[i];
            if (i > 0) {
                along += std::hypot(p.x - points[i - 1].x, p.y - points[i - 1].y);
            }
            double dx =
                0.2 * std::sin(along * 0.7 + phase) + 0.08 * std::sin(along * 2.3 + 2 * phase);
            double dy =
                0.2 * std::cos(along * 0.6 + 1.7 * phase) + 0.08 * std::sin(along * 2.9 + phase);
            if (i == 0) {
                cairo_move_to(cr, p.x + dx, p.y + dy);
            } else {
                cairo_line_to(cr, p.x + dx, p.y + dy);
            }
        }
    }
}

// A pencil drawing on a cut-out of paper: white fill, two loose dark strokes.
Painter sketch() {
    return [](cairo_t* cr, const Shape& shape) {
        dropShadow(cr, shape, 0.18);
        newPath(cr, shape.outline);
        cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
        cairo_set_line_width(cr, 2 * kOutline);
        setColour(cr, hex(0xfffdf6));
        cairo_stroke_preserve(cr);
        cairo_fill(cr);
        cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND);
        const Colour pencil = hex(0x26262c);
        for (auto [phase, width, alpha] :
             {std::tuple{0.0, 0.5, 0.92}, std::tuple{2.6, 0.32, 0.7}}) {
            wobbly(cr, shape.outline, phase);
            cairo_set_line_width(cr, width);
            setColour(cr, {pencil.r, pencil.g, pencil.b, alpha});
            cairo_stroke(cr);
            if (shape.details) {
                wobbly(cr, shape.details, phase + 0.5);
                cairo_set_line_width(cr, width * 0.8);
                cairo_stroke(cr);
            }
        }
    };
}

// A dark shape edged by a glowing tube that runs from cyan at the top to magenta at the bottom.
Painter neon() {
    return [](cairo_t* cr, const Shape& shape) {
        auto tube = [&] {
            return linear({shape.left, shape.top}, {shape.right * 0.4, shape.bottom},
                          {{0, hex(0x22f3ff)}, {0.55, hex(0x7a7cff)}, {1, hex(0xff3df0)}});
        };
        // The glow: the tube blurred more and more widely, each fainter.
        for (auto [softness, alpha] :
             {std::tuple{0.9, 0.6}, std::tuple{0.45, 0.75}, std::tuple{0.18, 0.9}}) {
            SurfacePtr mask = softMask(cr, shape.outline, Coverage::Stroke, 2 * kOutline, softness);
            PatternPtr source = tube();
            cairo_set_source(cr, source.get());
            paintThrough(cr, mask.get(), alpha);
        }
        newPath(cr, shape.outline);
        PatternPtr body = linear({shape.left, shape.top}, {shape.left, shape.bottom},
                                 {{0, hex(0x1b1740)}, {1, hex(0x07060f)}});
        cairo_set_source(cr, body.get());
        cairo_fill_preserve(cr);
        cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
        cairo_set_line_width(cr, 2 * kOutline);
        PatternPtr source = tube();
        cairo_set_source(cr, source.get());
        cairo_stroke_preserve(cr);
        // The tube's hot core.
        cairo_set_line_width(cr, 0.4);
        setColour(cr, hex(0xf4fdff, 0.85));
        cairo_stroke(cr);
        if (shape.details) {
            newPath(cr, shape.details);
            cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND);
            cairo_set_line_width(cr, 0.5);
            cairo_set_source(cr, source.get());
            cairo_stroke(cr);
        }
    };
}

FillFor rainbow() {
    return [](const Shape& shape) {
        return linear({shape.left, shape.top}, {shape.right, shape.bottom * 0.9},
                      {{0, hex(0xff4d6d)},
                       {0.2, hex(0xff9f43)},
                       {0.38, hex(0xffe45c)},
                       {0.56, hex(0x3ddc84)},
                       {0.74, hex(0x38a8ff)},
                       {1, hex(0xa35cff)}});
    };
}

FillFor goldLeaf() {
    return [](const Shape& shape) {
        return linear(
            {shape.left, shape.top}, {shape.right * 0.5, shape.bottom},
            {{0, hex(0xfff0b0)}, {0.3, hex(0xf5cd52)}, {0.65, hex(0xd9a21b)}, {1, hex(0xa06d08)}});
    };
}

FillFor violetFill() {
    return [](const Shape& shape) {
        return linear({shape.left, shape.top}, {shape.left, shape.bottom},
                      {{0, hex(0x8a6dff)}, {1, hex(0x6f4cf2)}});
    };
}

FillFor flat(Colour c) {
    return [=](const Shape&) { return solid(c); };
}

struct Theme {
    const char* id;
    Painter paint;
    std::optional<Colour> glint;  // the sparkle's glow, for themes that leave glints
};

std::vector<Theme> themes() {
    return {
        {"violet", sticker(violetFill(), hex(0xffffff), hex(0x4b30c4, 0.8), 0.4), {}},
        {"midnight", sticker(flat(hex(0x15161c)), hex(0xffffff), hex(0x5a5d6e), 0.4), {}},
        {"paper", sticker(flat(hex(0xffffff)), hex(0x1d1e23), hex(0x1d1e23, 0.7), 0.3), {}},
        {"sketch", sketch(), {}},
        {"neon", neon(), {}},
        {"prism", sticker(rainbow(), hex(0xffffff), hex(0xffffff, 0.75), 0.35), hex(0xc7a8ff)},
        {"gold", sticker(goldLeaf(), hex(0x74500a), hex(0x8a5d07, 0.85), 0.38, bevel),
         hex(0xffc93c)},
    };
}

// --- pictures

SurfacePtr canvas(int width, int height) {
    return SurfacePtr{cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height)};
}

[[nodiscard]] bool write(cairo_surface_t* surface, const fs::path& file) {
    cairo_surface_flush(surface);
    cairo_status_t status = cairo_surface_status(surface);
    if (status == CAIRO_STATUS_SUCCESS) {
        status = cairo_surface_write_to_png(surface, file.c_str());
    }
    if (status != CAIRO_STATUS_SUCCESS) {
        std::fprintf(stderr, "draw_cursors: could not write %s: %s\n", file.c_str(),
                     cairo_status_to_string(status));
        return false;
    }
    return true;
}

uint8_t alphaAt(cairo_surface_t* surface, int x, int y) {
    const uint8_t* data = cairo_image_surface_get_data(surface);
    const int stride = cairo_image_surface_get_stride(surface);
    uint32_t pixel;
    std::copy_n(data + y * stride + x * 4, 4, reinterpret_cast<uint8_t*>(&pixel));
    return static_cast<uint8_t>(pixel >> 24);
}

// Pictures leave room for every outline, shadow and glow: their border stays clear.
[[nodiscard]] bool clearEdges(cairo_surface_t* surface, const fs::path& file) {
    cairo_surface_flush(surface);
    const int width = cairo_image_surface_get_width(surface);
    const int height = cairo_image_surface_get_height(surface);
    for (int x = 0; x < width; ++x) {
        for (int y = 0; y < height; y += (x == 0 || x == width - 1) ? 1 : height - 1) {
            if (alphaAt(surface, x, y) > 2) {
                std::fprintf(stderr, "draw_cursors: %s is clipped at %d,%d\n", file.c_str(), x, y);
                return false;
            }
        }
    }
    return true;
}

// The hot spot is the outline's very tip, so the pixels just inside it are drawn.
[[nodiscard]] bool tipDrawn(cairo_surface_t* surface, const Frame& frame, const Shape& shape,
                            const fs::path& file) {
    cairo_surface_flush(surface);
    int x = static_cast<int>(std::floor(frame.hotX + 2 * shape.inward.x));
    int y = static_cast<int>(std::floor(frame.hotY + 2 * shape.inward.y));
    if (alphaAt(surface, x, y) < 160) {
        std::fprintf(stderr, "draw_cursors: %s has no tip at %d,%d\n", file.c_str(), frame.hotX,
                     frame.hotY);
        return false;
    }
    return true;
}

[[nodiscard]] bool drawShape(const Theme& theme, const Shape& shape, const fs::path& file) {
    const Frame frame = frameFor(shape);
    SurfacePtr surface = canvas(frame.width, frame.height);
    CairoPtr cr{cairo_create(surface.get())};
    cairo_translate(cr.get(), frame.origin.x, frame.origin.y);
    cairo_scale(cr.get(), kScale, kScale);
    theme.paint(cr.get(), shape);
    cr.reset();
    return clearEdges(surface.get(), file) && tipDrawn(surface.get(), frame, shape, file) &&
           write(surface.get(), file);
}

void roundedRect(cairo_t* cr, double x, double y, double w, double h, double r) {
    cairo_new_sub_path(cr);
    cairo_arc(cr, x + w - r, y + r, r, -pi / 2, 0);
    cairo_arc(cr, x + w - r, y + h - r, r, 0, pi / 2);
    cairo_arc(cr, x + r, y + h - r, r, pi / 2, pi);
    cairo_arc(cr, x + r, y + r, r, pi, 3 * pi / 2);
    cairo_close_path(cr);
}

// The theme picker's picture: the arrow on a light checked tile.
[[nodiscard]] bool drawThumbnail(const Theme& theme, const Shape& arrow, const fs::path& file) {
    constexpr double kSize = kThumbnailSize;
    constexpr double kSquare = 8;
    SurfacePtr surface = canvas(kThumbnailSize, kThumbnailSize);
    CairoPtr cr{cairo_create(surface.get())};
    roundedRect(cr.get(), 0, 0, kSize, kSize, 14);
    cairo_clip_preserve(cr.get());
    cairo_set_source_rgb(cr.get(), 0.965, 0.965, 0.975);
    cairo_fill(cr.get());
    for (int row = 0; row < kThumbnailSize / kSquare; ++row) {
        for (int column = row % 2; column < kThumbnailSize / kSquare; column += 2) {
            cairo_rectangle(cr.get(), column * kSquare, row * kSquare, kSquare, kSquare);
        }
    }
    cairo_set_source_rgb(cr.get(), 0.9, 0.9, 0.925);
    cairo_fill(cr.get());
    const double scale = 0.64 * kSize / (arrow.bottom - arrow.top);
    const double width = (arrow.right - arrow.left) * scale;
    cairo_translate(cr.get(), (kSize - width) / 2 - 1, 0.16 * kSize);
    cairo_scale(cr.get(), scale, scale);
    theme.paint(cr.get(), arrow);
    cr.reset();
    return write(surface.get(), file);
}

// A four-pointed star, its sides curving in; (0, 0) is its middle.
void starPath(cairo_t* cr, double tall, double wide) {
    const double waist = 0.14;
    cairo_move_to(cr, 0, -tall);
    cairo_curve_to(cr, waist * wide, -waist * tall, waist * wide, -waist * tall, wide, 0);
    cairo_curve_to(cr, waist * wide, waist * tall, waist * wide, waist * tall, 0, tall);
    cairo_curve_to(cr, -waist * wide, waist * tall, -waist * wide, waist * tall, -wide, 0);
    cairo_curve_to(cr, -waist * wide, -waist * tall, -waist * wide, -waist * tall, 0, -tall);
    cairo_close_path(cr);
}

// A glint left behind the sparkling themes' pointers: a white star in a coloured glow.
[[nodiscard]] bool drawGlint(Colour colour, const fs::path& file) {
    constexpr double kHalf = kGlintSize / 2.0;
    constexpr double kStarTall = 12, kStarWide = 9.5;  // the star's reach, in pixels
    SurfacePtr surface = canvas(kGlintSize, kGlintSize);
    CairoPtr cr{cairo_create(surface.get())};
    cairo_t* c = cr.get();
    cairo_translate(c, kHalf, kHalf);
    PatternPtr halo{cairo_pattern_create_radial(0, 0, 0, 0, 0, kHalf - 1)};
    cairo_pattern_add_color_stop_rgba(halo.get(), 0, colour.r, colour.g, colour.b, 0.6);
    cairo_pattern_add_color_stop_rgba(halo.get(), 0.45, colour.r, colour.g, colour.b, 0.18);
    cairo_pattern_add_color_stop_rgba(halo.get(), 1, colour.r, colour.g, colour.b, 0);
    cairo_set_source(c, halo.get());
    cairo_arc(c, 0, 0, kHalf - 1, 0, 2 * pi);
    cairo_fill(c);
    // The star's own glow, then the star.
    SurfacePtr glow = softMask(
        c, [](cairo_t* m) { starPath(m, kStarTall, kStarWide); }, Coverage::Fill, 1, 1);
    setColour(c, colour);
    paintThrough(c, glow.get(), 0.9);
    starPath(c, kStarTall, kStarWide);
    PatternPtr core{cairo_pattern_create_radial(0, 0, 0, 0, 0, kStarTall)};
    cairo_pattern_add_color_stop_rgba(core.get(), 0, 1, 1, 1, 1);
    cairo_pattern_add_color_stop_rgba(core.get(), 0.4, 1, 1, 0.97, 1);
    cairo_pattern_add_color_stop_rgba(core.get(), 1, colour.r, colour.g, colour.b, 0.9);
    cairo_set_source(c, core.get());
    cairo_fill(c);
    cr.reset();
    return clearEdges(surface.get(), file) && write(surface.get(), file);
}

[[nodiscard]] bool drawTheme(const Theme& theme, const Shape& arrow, const Shape& hand,
                             const fs::path& folder) {
    const std::string id = theme.id;
    return drawShape(theme, arrow, folder / (id + "-arrow.png")) &&
           drawShape(theme, hand, folder / (id + "-hand.png")) &&
           drawThumbnail(theme, arrow, folder / (id + "-thumbnail.png")) &&
           (!theme.glint || drawGlint(*theme.glint, folder / (id + "-sparkle.png")));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: draw_cursors OUTPUT_FOLDER\n");
        return 2;
    }
    const fs::path folder = argv[1];
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
        std::fprintf(stderr, "draw_cursors: could not create %s: %s\n", folder.c_str(),
                     error.message().c_str());
        return 1;
    }
    const Shape arrow = arrowShape();
    const Shape hand = handShape();
    for (const Theme& theme : themes()) {
        if (!drawTheme(theme, arrow, hand, folder)) {
            return 1;
        }
    }
    const Frame arrowFrame = frameFor(arrow);
    const Frame handFrame = frameFor(hand);
    std::printf("arrow: %dx%d, hotX %d, hotY %d\nhand: %dx%d, hotX %d, hotY %d\n", arrowFrame.width,
                arrowFrame.height, arrowFrame.hotX, arrowFrame.hotY, handFrame.width,
                handFrame.height, handFrame.hotX, handFrame.hotY);
    cairo_debug_reset_static_data();
    return 0;
}
