// Draws the art of Quillo's cursor themes: for each theme an arrow and a pointing hand, a small
// picture for the theme picker, and for the sparkling themes a glint. Run at build time:
//   draw_cursors OUTPUT_FOLDER
// The tips (hot spots) written here are the ones listed in themes.json; the program checks
// that every picture puts its tip where the table says.

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <cairo.h>

namespace {

namespace fs = std::filesystem;

// Pixels per unit of the shapes below; an arrow is about 20 units tall.
constexpr double kScale = 4.5;
// Room around the shape for outlines, shadows and glows.
constexpr double kMargin = 16;

struct Colour {
    double r, g, b, a = 1;
};

Colour hex(unsigned rgb, double a = 1) {
    return {((rgb >> 16) & 255) / 255.0, ((rgb >> 8) & 255) / 255.0, (rgb & 255) / 255.0, a};
}

void set(cairo_t* cr, Colour c) { cairo_set_source_rgba(cr, c.r, c.g, c.b, c.a); }

using Shape = std::function<void(cairo_t*)>;  // adds the shape's path in units

// The classic pointer: tip at (0, 0).
void arrowPath(cairo_t* cr) {
    cairo_move_to(cr, 0, 0);
    cairo_line_to(cr, 0, 17);
    cairo_line_to(cr, 4.2, 13.1);
    cairo_line_to(cr, 7, 19.5);
    cairo_line_to(cr, 9.7, 18.3);
    cairo_line_to(cr, 6.9, 12.1);
    cairo_line_to(cr, 12.3, 12.1);
    cairo_close_path(cr);
}

void roundedRect(cairo_t* cr, double x, double y, double w, double h, double r) {
    cairo_new_sub_path(cr);
    cairo_arc(cr, x + w - r, y + r, r, -M_PI / 2, 0);
    cairo_arc(cr, x + w - r, y + h - r, r, 0, M_PI / 2);
    cairo_arc(cr, x + r, y + h - r, r, M_PI / 2, M_PI);
    cairo_arc(cr, x + r, y + r, r, M_PI, 3 * M_PI / 2);
    cairo_close_path(cr);
}

// A hand pointing up with its index finger; the fingertip's top middle is at (1.8, 0).
void handPath(cairo_t* cr) {
    roundedRect(cr, 0, 0, 3.6, 12, 1.8);       // index finger
    roundedRect(cr, 3.2, 6.4, 3.3, 6.5, 1.6);  // middle finger
    roundedRect(cr, 6.1, 7.4, 3.1, 5.8, 1.5);  // ring finger
    roundedRect(cr, 8.8, 8.7, 2.8, 4.9, 1.4);  // little finger
    roundedRect(cr, -0.4, 9.5, 12, 10, 3.2);   // palm
    cairo_save(cr);
    cairo_translate(cr, -0.2, 12.6);
    cairo_rotate(cr, -0.75);
    roundedRect(cr, -4.6, -1.6, 5.6, 3.2, 1.6);  // thumb
    cairo_restore(cr);
}
constexpr double kHandTipX = 1.8;
constexpr double kHandLeft = 4.6;  // how far the thumb reaches left of the finger

// Draws a shape with its outline outside the fill: the outline is stroked at twice its width
// under the fill, so overlapping pieces read as one silhouette.
void silhouette(cairo_t* cr, const Shape& shape, const std::function<void()>& fill, Colour outline,
                double width) {
    cairo_new_path(cr);
    shape(cr);
    cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
    cairo_set_line_width(cr, 2 * width);
    set(cr, outline);
    cairo_stroke(cr);
    cairo_new_path(cr);
    shape(cr);
    fill();
    cairo_fill(cr);
}

// A soft shadow: the silhouette stroked wide and faint, then narrower, under it.
void softShadow(cairo_t* cr, const Shape& shape, double dx, double dy, double alpha) {
    cairo_save(cr);
    cairo_translate(cr, dx, dy);
    for (int i = 6; i >= 1; --i) {
        cairo_new_path(cr);
        shape(cr);
        cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
        cairo_set_line_width(cr, i * 0.8);
        cairo_set_source_rgba(cr, 0, 0, 0, alpha / 6);
        cairo_stroke(cr);
    }
    cairo_new_path(cr);
    shape(cr);
    cairo_set_source_rgba(cr, 0, 0, 0, alpha);
    cairo_fill(cr);
    cairo_restore(cr);
}

void glow(cairo_t* cr, const Shape& shape, Colour colour) {
    for (double width : {4.6, 3.2, 2.2, 1.4}) {
        cairo_new_path(cr);
        shape(cr);
        cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
        cairo_set_line_width(cr, width);
        set(cr, {colour.r, colour.g, colour.b, 0.16});
        cairo_stroke(cr);
    }
}

// How one theme paints a shape (in units, on a context already scaled).
using Painter = std::function<void(cairo_t*, const Shape&, double height)>;

Painter plain(Colour fill, Colour outline, bool shadow) {
    return [=](cairo_t* cr, const Shape& shape, double) {
        if (shadow) {
            softShadow(cr, shape, 0.5, 0.9, 0.35);
        }
        silhouette(
            cr, shape, [&] { set(cr, fill); }, outline, 0.75);
    };
}

Painter sketch() {
    return [](cairo_t* cr, const Shape& shape, double) {
        silhouette(
            cr, shape, [&] { set(cr, hex(0xfdfcf6)); }, hex(0xfdfcf6), 0.5);
        // Two pencil strokes slightly off each other, like a drawing.
        cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
        for (auto [dx, dy, width] : {std::tuple{0.0, 0.0, 0.55}, std::tuple{0.28, -0.22, 0.3}}) {
            cairo_save(cr);
            cairo_translate(cr, dx, dy);
            cairo_new_path(cr);
            shape(cr);
            cairo_set_line_width(cr, width);
            set(cr, hex(0x2a2a2e, 0.9));
            cairo_stroke(cr);
            cairo_restore(cr);
        }
    };
}

Painter neon() {
    return [](cairo_t* cr, const Shape& shape, double) {
        glow(cr, shape, hex(0xff3df2));
        glow(cr, shape, hex(0x3df4ff));
        cairo_new_path(cr);
        shape(cr);
        set(cr, hex(0x0a0a1f));
        cairo_fill_preserve(cr);
        cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
        cairo_set_line_width(cr, 0.8);
        set(cr, hex(0x7ff8ff));
        cairo_stroke(cr);
    };
}

Painter gradient(std::vector<std::pair<double, Colour>> stops, Colour outline, bool shine) {
    return [=](cairo_t* cr, const Shape& shape, double height) {
        softShadow(cr, shape, 0.4, 0.8, 0.3);
        cairo_pattern_t* pattern = cairo_pattern_create_linear(0, 0, height * 0.6, height);
        for (const auto& [offset, c] : stops) {
            cairo_pattern_add_color_stop_rgba(pattern, offset, c.r, c.g, c.b, c.a);
        }
        silhouette(
            cr, shape, [&] { cairo_set_source(cr, pattern); }, outline, 0.75);
        cairo_pattern_destroy(pattern);
        if (shine) {
            // A bright edge along the upper left, as on polished metal.
            cairo_save(cr);
            cairo_new_path(cr);
            shape(cr);
            cairo_clip(cr);
            cairo_translate(cr, 0.7, 0.9);
            cairo_new_path(cr);
            shape(cr);
            cairo_set_line_width(cr, 0.7);
            set(cr, hex(0xfff6c8, 0.8));
            cairo_stroke(cr);
            cairo_restore(cr);
        }
    };
}

struct Theme {
    const char* id;
    Painter paint;
    bool sparkle;
    Colour glint;
};

struct Art {
    int width, height;
    double hotX, hotY;
};

bool write(cairo_surface_t* surface, const fs::path& file) {
    cairo_surface_flush(surface);
    if (cairo_surface_write_to_png(surface, file.c_str()) != CAIRO_STATUS_SUCCESS) {
        std::fprintf(stderr, "draw_cursors: could not write %s\n", file.c_str());
        return false;
    }
    return true;
}

// Paints `shape` (`units` wide and tall, its left edge at `left` units) into a new picture and
// writes it; returns where the shape's origin landed.
bool drawShape(const Theme& theme, const Shape& shape, double unitsWide, double unitsTall,
               double left, const fs::path& file, Art& art) {
    art.width = static_cast<int>(std::ceil(unitsWide * kScale + 2 * kMargin));
    art.height = static_cast<int>(std::ceil(unitsTall * kScale + 2 * kMargin));
    art.hotX = kMargin + left * kScale;
    art.hotY = kMargin;
    cairo_surface_t* surface =
        cairo_image_surface_create(CAIRO_FORMAT_ARGB32, art.width, art.height);
    cairo_t* cr = cairo_create(surface);
    cairo_translate(cr, art.hotX, art.hotY);
    cairo_scale(cr, kScale, kScale);
    theme.paint(cr, shape, unitsTall);
    cairo_destroy(cr);
    bool ok = write(surface, file);
    cairo_surface_destroy(surface);
    return ok;
}

bool drawGlint(Colour colour, const fs::path& file) {
    constexpr int kSize = 32;
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, kSize, kSize);
    cairo_t* cr = cairo_create(surface);
    cairo_translate(cr, kSize / 2.0, kSize / 2.0);
    cairo_pattern_t* halo = cairo_pattern_create_radial(0, 0, 0, 0, 0, kSize / 2.0);
    cairo_pattern_add_color_stop_rgba(halo, 0, colour.r, colour.g, colour.b, 0.55);
    cairo_pattern_add_color_stop_rgba(halo, 1, colour.r, colour.g, colour.b, 0);
    cairo_set_source(cr, halo);
    cairo_paint(cr);
    cairo_pattern_destroy(halo);
    // A four-pointed star with a white core.
    const double outer = kSize * 0.46;
    const double inner = kSize * 0.09;
    cairo_new_path(cr);
    for (int i = 0; i < 8; ++i) {
        double angle = i * M_PI / 4 - M_PI / 2;
        double radius = i % 2 == 0 ? outer : inner;
        cairo_line_to(cr, radius * std::cos(angle), radius * std::sin(angle));
    }
    cairo_close_path(cr);
    cairo_pattern_t* star = cairo_pattern_create_radial(0, 0, 0, 0, 0, outer);
    cairo_pattern_add_color_stop_rgba(star, 0, 1, 1, 1, 1);
    cairo_pattern_add_color_stop_rgba(star, 0.35, 1, 1, 1, 0.95);
    cairo_pattern_add_color_stop_rgba(star, 1, colour.r, colour.g, colour.b, 0.9);
    cairo_set_source(cr, star);
    cairo_fill(cr);
    cairo_pattern_destroy(star);
    cairo_destroy(cr);
    bool ok = write(surface, file);
    cairo_surface_destroy(surface);
    return ok;
}

bool drawThumbnail(const Theme& theme, const fs::path& file) {
    constexpr int kSize = 64;
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, kSize, kSize);
    cairo_t* cr = cairo_create(surface);
    roundedRect(cr, 0, 0, kSize, kSize, 12);
    set(cr, hex(0xeeeef2));
    cairo_fill(cr);
    cairo_translate(cr, 22, 12);
    cairo_scale(cr, 2, 2);
    theme.paint(cr, arrowPath, 19.5);
    cairo_destroy(cr);
    bool ok = write(surface, file);
    cairo_surface_destroy(surface);
    return ok;
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
        std::fprintf(stderr, "draw_cursors: %s: %s\n", folder.c_str(), error.message().c_str());
        return 1;
    }
    const std::vector<Theme> themes = {
        {"violet", plain(hex(0x7c5cfa), hex(0xffffff), true), false, {}},
        {"midnight", plain(hex(0x16171d), hex(0xffffff), true), false, {}},
        {"paper", plain(hex(0xffffff), hex(0x1f2024), true), false, {}},
        {"sketch", sketch(), false, {}},
        {"neon", neon(), false, {}},
        {"prism",
         gradient({{0, hex(0xff4d6d)},
                   {0.25, hex(0xffb347)},
                   {0.5, hex(0xfff275)},
                   {0.7, hex(0x4cd97b)},
                   {0.85, hex(0x3fa7ff)},
                   {1, hex(0x9d5cff)}},
                  hex(0xffffff), false),
         true, hex(0xc9b8ff)},
        {"gold",
         gradient({{0, hex(0xfbe7a1)}, {0.45, hex(0xe2b437)}, {1, hex(0xa67810)}}, hex(0x6e4f06),
                  true),
         true, hex(0xffd35c)},
    };
    for (const Theme& theme : themes) {
        Art arrow{}, hand{};
        const std::string id = theme.id;
        if (!drawShape(theme, arrowPath, 12.3, 19.5, 0, folder / (id + "-arrow.png"), arrow) ||
            !drawShape(
                theme,
                [](cairo_t* cr) {
                    cairo_save(cr);
                    cairo_translate(cr, -kHandTipX, 0);
                    handPath(cr);
                    cairo_restore(cr);
                },
                16.2, 19.5, kHandLeft + kHandTipX, folder / (id + "-hand.png"), hand) ||
            !drawThumbnail(theme, folder / (id + "-thumbnail.png")) ||
            (theme.sparkle && !drawGlint(theme.glint, folder / (id + "-sparkle.png")))) {
            return 1;
        }
        std::printf("%s: arrow %dx%d tip %.1f,%.1f; hand %dx%d tip %.1f,%.1f\n", theme.id,
                    arrow.width, arrow.height, arrow.hotX, arrow.hotY, hand.width, hand.height,
                    hand.hotX, hand.hotY);
    }
    return 0;
}
