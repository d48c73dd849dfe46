// Draws Quillo's application icon: a violet rounded-square badge holding a white ring with a red
// record dot, whose tail sweeps out as a quill nib. Run at build time:
//   draw_icon OUTPUT_FOLDER
// writes app.quillo.Quillo-SIZE.png for each hicolor size and app.quillo.Quillo.svg. Small sizes
// drop the fine strokes and thicken the ring so the mark stays legible. The program reads every PNG
// back and fails when a corner is not transparent, the centre dot is not opaque red, or the
// picture is not the size it was asked for.

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <numbers>
#include <string>

#include <cairo-svg.h>
#include <cairo.h>

#include "cairo_handles.h"

namespace {

namespace fs = std::filesystem;
using std::numbers::pi;

constexpr int kSizes[] = {16, 24, 32, 48, 64, 128, 256, 512};

struct Rgb {
    double r, g, b;
};
constexpr Rgb kVioletLight{0.553, 0.427, 1.0};   // #8D6DFF
constexpr Rgb kVioletDeep{0.231, 0.157, 0.643};  // #3B28A4
constexpr Rgb kRecordLight{1.0, 0.420, 0.420};   // #FF6B6B
constexpr Rgb kRecordDeep{0.878, 0.176, 0.235};  // #E02D3C
constexpr Rgb kInk{0.996, 0.996, 1.0};

// The mark's geometry in units of the icon's side (0..1).
constexpr double kRingX = 0.455, kRingY = 0.455, kRingRadius = 0.215;
constexpr double kDotRadius = 0.112;

void setSource(cairo_t* cr, Rgb c, double alpha = 1.0) {
    cairo_set_source_rgba(cr, c.r, c.g, c.b, alpha);
}

void addStop(cairo_pattern_t* p, double offset, Rgb c, double alpha = 1.0) {
    cairo_pattern_add_color_stop_rgba(p, offset, c.r, c.g, c.b, alpha);
}

// A rounded square with continuous-looking corners: each corner is a cubic whose handles
// reach further than a circular arc's, which softens the join with the straight sides.
void squirclePath(cairo_t* cr, double x, double y, double side, double radius) {
    const double k = 0.62;  // 0.552 would be a circle
    const double r = radius, x1 = x + side, y1 = y + side;
    cairo_new_path(cr);
    cairo_move_to(cr, x + r, y);
    cairo_line_to(cr, x1 - r, y);
    cairo_curve_to(cr, x1 - r * (1 - k), y, x1, y + r * (1 - k), x1, y + r);
    cairo_line_to(cr, x1, y1 - r);
    cairo_curve_to(cr, x1, y1 - r * (1 - k), x1 - r * (1 - k), y1, x1 - r, y1);
    cairo_line_to(cr, x + r, y1);
    cairo_curve_to(cr, x + r * (1 - k), y1, x, y1 - r * (1 - k), x, y1 - r);
    cairo_line_to(cr, x, y + r);
    cairo_curve_to(cr, x, y + r * (1 - k), x + r * (1 - k), y, x + r, y);
    cairo_close_path(cr);
}

// Draws the icon into a square of `side` device units. `pixels` is the size it will be seen at,
// which decides how much detail fits.
void drawIcon(cairo_t* cr, double side, int pixels) {
    const bool small = pixels <= 24;
    const bool detailed = pixels >= 48;
    cairo_save(cr);
    cairo_scale(cr, side, side);

    // Room for the soft shadow at large sizes; small icons use the whole square.
    const double inset = small ? 0.5 / pixels : 0.055;
    const double badge = 1.0 - 2 * inset;
    const double radius = badge * 0.26;

    if (detailed) {
        for (int i = 4; i >= 1; --i) {
            const double grow = 0.006 * i;
            squirclePath(cr, inset - grow, inset - grow + 0.014, badge + 2 * grow, radius + grow);
            cairo_set_source_rgba(cr, 0.08, 0.04, 0.22, 0.05);
            cairo_fill(cr);
        }
    }

    squirclePath(cr, inset, inset, badge, radius);
    PatternPtr fill(cairo_pattern_create_linear(inset, inset, 1 - inset, 1 - inset));
    addStop(fill.get(), 0.0, kVioletLight);
    addStop(fill.get(), 1.0, kVioletDeep);
    cairo_set_source(cr, fill.get());
    cairo_fill_preserve(cr);

    if (detailed) {
        // A gentle sheen over the upper half and a fine light rim.
        cairo_save(cr);
        cairo_clip_preserve(cr);
        PatternPtr sheen(cairo_pattern_create_linear(0, inset, 0, 0.6));
        addStop(sheen.get(), 0.0, kInk, 0.18);
        addStop(sheen.get(), 1.0, kInk, 0.0);
        cairo_set_source(cr, sheen.get());
        cairo_fill_preserve(cr);
        cairo_restore(cr);
        cairo_set_line_width(cr, 0.006);
        setSource(cr, kInk, 0.22);
        cairo_stroke(cr);
    } else {
        cairo_new_path(cr);
    }

    // The quill's nib: broad shoulders under the ring, concave sides narrowing to a point
    // towards the lower right, drawn under the ring so the ring's stroke cuts it cleanly.
    const double ringWidth = small ? 0.115 : 0.085;
    const double tipX = 0.845, tipY = 0.845;
    const double angle = pi / 4;  // along the diagonal
    const double baseX = kRingX + std::cos(angle) * kRingRadius;
    const double baseY = kRingY + std::sin(angle) * kRingRadius;
    const double half = small ? 0.105 : 0.095;  // half the nib's width at its shoulders
    const double nx = -std::sin(angle), ny = std::cos(angle);
    const double along = std::hypot(tipX - baseX, tipY - baseY);
    const double ux = (tipX - baseX) / along, uy = (tipY - baseY) / along;
    auto at = [&](double t, double side) {
        return std::pair{baseX + ux * along * t + nx * half * side,
                         baseY + uy * along * t + ny * half * side};
    };
    cairo_new_path(cr);
    for (double side : {-1.0, 1.0}) {
        auto [sx, sy] = at(-0.15, side);
        auto [shx, shy] = at(0.18, side * 1.0);
        auto [c1x, c1y] = at(0.38, side * 0.95);
        auto [c2x, c2y] = at(0.72, side * 0.40);
        if (side < 0) {
            cairo_move_to(cr, sx, sy);
            cairo_line_to(cr, shx, shy);
            cairo_curve_to(cr, c1x, c1y, c2x, c2y, tipX, tipY);
        } else {
            cairo_curve_to(cr, c2x, c2y, c1x, c1y, shx, shy);
            cairo_line_to(cr, sx, sy);
        }
    }
    cairo_close_path(cr);
    setSource(cr, kInk);
    cairo_fill(cr);

    if (detailed) {
        // The nib's slit: a line from the tip back along the blade, in the badge's colour.
        const double slit = 0.17;
        cairo_move_to(cr, tipX - std::cos(angle) * 0.02, tipY - std::sin(angle) * 0.02);
        cairo_line_to(cr, tipX - std::cos(angle) * slit, tipY - std::sin(angle) * slit);
        cairo_set_line_width(cr, 0.014);
        cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND);
        setSource(cr, kVioletDeep);
        cairo_stroke(cr);
        cairo_arc(cr, tipX - std::cos(angle) * slit, tipY - std::sin(angle) * slit, 0.017, 0,
                  2 * pi);
        cairo_fill(cr);
    }

    // The ring, a lens or a record button's bezel.
    cairo_new_path(cr);
    cairo_arc(cr, kRingX, kRingY, kRingRadius, 0, 2 * pi);
    cairo_set_line_width(cr, ringWidth);
    setSource(cr, kInk);
    cairo_stroke(cr);

    // The record dot, lit from the upper left.
    const double dot = small ? kDotRadius * 1.05 : kDotRadius;
    cairo_arc(cr, kRingX, kRingY, dot, 0, 2 * pi);
    PatternPtr red(cairo_pattern_create_radial(kRingX - dot * 0.4, kRingY - dot * 0.4, 0, kRingX,
                                               kRingY, dot));
    addStop(red.get(), 0.0, kRecordLight);
    addStop(red.get(), 1.0, kRecordDeep);
    cairo_set_source(cr, red.get());
    cairo_fill(cr);

    cairo_restore(cr);
}

struct Pixel {
    int r, g, b, a;
};

Pixel pixelAt(cairo_surface_t* surface, int x, int y) {
    const unsigned char* row =
        cairo_image_surface_get_data(surface) + y * cairo_image_surface_get_stride(surface);
    uint32_t argb = reinterpret_cast<const uint32_t*>(row)[x];
    return {static_cast<int>((argb >> 16) & 0xff), static_cast<int>((argb >> 8) & 0xff),
            static_cast<int>(argb & 0xff), static_cast<int>(argb >> 24)};
}

// Reads a written PNG back and checks what every size must show.
bool check(const fs::path& file, int size) {
    SurfacePtr image(cairo_image_surface_create_from_png(file.c_str()));
    if (cairo_surface_status(image.get()) != CAIRO_STATUS_SUCCESS) {
        std::fprintf(stderr, "draw_icon: %s could not be read back\n", file.c_str());
        return false;
    }
    cairo_surface_flush(image.get());
    if (cairo_image_surface_get_width(image.get()) != size ||
        cairo_image_surface_get_height(image.get()) != size) {
        std::fprintf(stderr, "draw_icon: %s is not %dx%d\n", file.c_str(), size, size);
        return false;
    }
    for (auto [x, y] : {std::pair{0, 0}, {size - 1, 0}, {0, size - 1}, {size - 1, size - 1}}) {
        if (pixelAt(image.get(), x, y).a > 8) {
            std::fprintf(stderr, "draw_icon: %s has an opaque corner at %d,%d\n", file.c_str(), x,
                         y);
            return false;
        }
    }
    const int cx = static_cast<int>(kRingX * size), cy = static_cast<int>(kRingY * size);
    Pixel centre = pixelAt(image.get(), cx, cy);
    if (centre.a != 255 || centre.r < 200 || centre.g > 120 || centre.b > 120) {
        std::fprintf(stderr, "draw_icon: %s has no red record dot at its centre (%d,%d,%d,%d)\n",
                     file.c_str(), centre.r, centre.g, centre.b, centre.a);
        return false;
    }
    return true;
}

bool writePng(const fs::path& folder, int size) {
    SurfacePtr surface(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, size, size));
    CairoPtr cr(cairo_create(surface.get()));
    drawIcon(cr.get(), size, size);
    cr.reset();
    const fs::path file = folder / ("app.quillo.Quillo-" + std::to_string(size) + ".png");
    if (cairo_surface_write_to_png(surface.get(), file.c_str()) != CAIRO_STATUS_SUCCESS) {
        std::fprintf(stderr, "draw_icon: could not write %s\n", file.c_str());
        return false;
    }
    return check(file, size);
}

bool writeSvg(const fs::path& folder) {
    const fs::path file = folder / "app.quillo.Quillo.svg";
    SurfacePtr surface(cairo_svg_surface_create(file.c_str(), 512, 512));
    cairo_svg_surface_restrict_to_version(surface.get(), CAIRO_SVG_VERSION_1_1);
    cairo_svg_surface_set_document_unit(surface.get(), CAIRO_SVG_UNIT_PX);
    CairoPtr cr(cairo_create(surface.get()));
    drawIcon(cr.get(), 512, 512);
    cr.reset();
    cairo_surface_finish(surface.get());
    if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) {
        std::fprintf(stderr, "draw_icon: could not write %s\n", file.c_str());
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: draw_icon OUTPUT_FOLDER\n");
        return 2;
    }
    const fs::path folder = argv[1];
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
        std::fprintf(stderr, "draw_icon: could not create %s: %s\n", folder.c_str(),
                     error.message().c_str());
        return 1;
    }
    for (int size : kSizes) {
        if (!writePng(folder, size)) {
            return 1;
        }
    }
    if (!writeSvg(folder)) {
        return 1;
    }
    cairo_debug_reset_static_data();
    return 0;
}
