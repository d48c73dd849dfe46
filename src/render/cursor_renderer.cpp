#include "cursor_renderer.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

#include "cursor_motion.h"

namespace quillo::render {

namespace fs = std::filesystem;
using project::CursorStyle;
using project::CursorTrack;

namespace {

// Theme art is drawn this many points tall at size 1, about a system pointer's height with the
// art's margins.
constexpr double kThemeHeight = 32;
// The drawn stand-in arrow when a shape's picture is missing, in points.
constexpr double kFallbackHeight = 22;
constexpr int kSparkleTrail = 10;

const project::Colour kRingColour{0.49, 0.36, 0.98};

double pixelsPerPoint(const CursorTrack& track) {
    double ppp = track.pixelsPerPoint.value_or(1);
    return ppp > 0 && std::isfinite(ppp) ? ppp : 1;
}

// A Cairo surface over an image's pixels; the image must outlive it.
SurfacePtr sourceOf(const Image& image) { return surfaceFor(image.view()); }

void paintImage(cairo_t* cr, const Image& image, double x, double y, double scale, double opacity) {
    SurfacePtr surface = sourceOf(image);
    cairo_save(cr);
    cairo_translate(cr, x, y);
    cairo_scale(cr, scale, scale);
    cairo_set_source_surface(cr, surface.get(), 0, 0);
    cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_GOOD);
    cairo_paint_with_alpha(cr, opacity);
    cairo_restore(cr);
}

// Rotates the hue of premultiplied pixels by `angle` radians (the luminance-preserving
// rotation about the grey axis).
Image hueRotated(const Image& image, double angle) {
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    const double m[3][3] = {
        {0.213 + c * 0.787 - s * 0.213, 0.715 - c * 0.715 - s * 0.715,
         0.072 - c * 0.072 + s * 0.928},
        {0.213 - c * 0.213 + s * 0.143, 0.715 + c * 0.285 + s * 0.140,
         0.072 - c * 0.072 - s * 0.283},
        {0.213 - c * 0.213 - s * 0.787, 0.715 - c * 0.715 + s * 0.715,
         0.072 + c * 0.928 + s * 0.072},
    };
    Image out = image;
    for (size_t i = 0; i + 3 < out.pixels.size(); i += 4) {
        double b = image.pixels[i], g = image.pixels[i + 1], r = image.pixels[i + 2];
        double a = image.pixels[i + 3];
        double rgb[3] = {r, g, b};
        double result[3];
        for (int k = 0; k < 3; ++k) {
            result[k] = std::clamp(m[k][0] * rgb[0] + m[k][1] * rgb[1] + m[k][2] * rgb[2], 0.0, a);
        }
        out.pixels[i] = static_cast<uint8_t>(result[2]);
        out.pixels[i + 1] = static_cast<uint8_t>(result[1]);
        out.pixels[i + 2] = static_cast<uint8_t>(result[0]);
    }
    return out;
}

void drawFallbackArrow(cairo_t* cr, Point tip, double height, double opacity) {
    const double u = height / 22;
    cairo_save(cr);
    cairo_translate(cr, tip.x, tip.y);
    cairo_scale(cr, u, u);
    cairo_move_to(cr, 0, 0);
    cairo_line_to(cr, 0, 17);
    cairo_line_to(cr, 4.2, 13);
    cairo_line_to(cr, 7, 19.5);
    cairo_line_to(cr, 9.6, 18.4);
    cairo_line_to(cr, 6.9, 12.2);
    cairo_line_to(cr, 12.2, 12.2);
    cairo_close_path(cr);
    cairo_set_source_rgba(cr, 0, 0, 0, opacity);
    cairo_fill_preserve(cr);
    cairo_set_line_width(cr, 1.4);
    cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
    cairo_set_source_rgba(cr, 1, 1, 1, opacity);
    cairo_stroke(cr);
    cairo_restore(cr);
}

void drawRing(cairo_t* cr, Point centre, double progress, double unit) {
    // Eases out: grows fast, then settles while fading.
    double grow = 1 - (1 - progress) * (1 - progress);
    double radius = (9 + 21 * grow) * unit;
    double fadeOut = 1 - progress;
    cairo_new_path(cr);
    cairo_arc(cr, centre.x, centre.y, radius, 0, 2 * std::numbers::pi);
    cairo_set_source_rgba(cr, 1, 1, 1, 0.28 * fadeOut);
    cairo_fill_preserve(cr);
    cairo_set_line_width(cr, 3 * unit);
    cairo_set_source_rgba(cr, kRingColour.red, kRingColour.green, kRingColour.blue, 0.9 * fadeOut);
    cairo_stroke(cr);
}

}  // namespace

CursorRenderer::CursorRenderer(CursorTrack track, std::map<int64_t, Image> shapes)
    : m_track(std::move(track)), m_shapes(std::move(shapes)) {}

Result<std::optional<CursorRenderer>> CursorRenderer::load(const fs::path& folder) {
    auto track = project::loadCursorTrack(folder);
    if (!track) {
        return track.error();
    }
    if (!*track) {
        return std::optional<CursorRenderer>();
    }
    std::map<int64_t, Image> shapes;
    for (const auto& shape : (*track)->shapes.value_or(std::vector<project::CursorShape>{})) {
        if (auto image = loadPNG(folder / CursorTrack::shapeImageName(shape.id))) {
            shapes.emplace(shape.id, std::move(*image));
        }
    }
    return std::optional<CursorRenderer>(CursorRenderer(std::move(**track), std::move(shapes)));
}

bool CursorRenderer::drawsCursor(const std::optional<CursorStyle>& style) const {
    return style.value_or(CursorStyle{}).visible && !m_track.samples.empty() &&
           !m_track.pointerInPicture.value_or(false);
}

std::optional<Point> CursorRenderer::camera(double t,
                                            const std::optional<CursorStyle>& style) const {
    double smoothing = drawsCursor(style) ? style.value_or(CursorStyle{}).smoothing : 0;
    return focus(m_track, t, smoothing);
}

void CursorRenderer::themed(cairo_t* cr, const CursorTheme& theme, const CursorTheme::Art& art,
                            Point tip, double height, double opacity, double t,
                            const CursorTrack* track, Size picture) {
    if (art.image.empty()) {
        return;
    }
    double scale = height / art.image.height;
    if (theme.animation == CursorTheme::Animation::Pulse) {
        scale *= 1 + 0.07 * std::sin(2 * std::numbers::pi * t / 1.2);
    }
    if (theme.animation == CursorTheme::Animation::Sparkle && theme.sparkle && track) {
        // Glints along the recent path, smaller and fainter further back, twinkling.
        std::vector<Point> path = recentPath(*track, t, kSparkleTrail);
        const Image& glint = *theme.sparkle;
        for (size_t i = 0; i < path.size(); ++i) {
            double age = static_cast<double>(i + 1) / (kSparkleTrail + 1);
            double twinkle = 0.75 + 0.25 * std::cos(2 * std::numbers::pi * (t * 2.5 + i * 0.37));
            double size = height * 0.45 * (1 - 0.6 * age) * twinkle;
            double s = size / std::max(glint.width, glint.height);
            Point at{path[i].x * picture.width, path[i].y * picture.height};
            paintImage(cr, glint, at.x - glint.width * s / 2, at.y - glint.height * s / 2, s,
                       opacity * (1 - age) * 0.85);
        }
    }
    if (theme.hueShift) {
        Image shifted = hueRotated(art.image, 2 * std::numbers::pi * t / 4);
        paintImage(cr, shifted, tip.x - art.hotX * scale, tip.y - art.hotY * scale, scale, opacity);
        return;
    }
    paintImage(cr, art.image, tip.x - art.hotX * scale, tip.y - art.hotY * scale, scale, opacity);
}

void CursorRenderer::draw(const ImageView& picture, double t,
                          const std::optional<CursorStyle>& style, bool clickHighlights) const {
    if (picture.empty()) {
        return;
    }
    CairoPtr cr = contextFor(picture);
    draw(cr.get(), {static_cast<double>(picture.width), static_cast<double>(picture.height)}, t,
         style, clickHighlights);
}

std::vector<double> CursorRenderer::stateKey(double t, const std::optional<CursorStyle>& style,
                                             bool clickHighlights) const {
    if (!drawsCursor(style)) {
        return {};
    }
    const CursorStyle look = style.value_or(CursorStyle{});
    auto position = glide(m_track, t, look.smoothing);
    if (!position) {
        return {};
    }
    std::vector<double> key{position->x, position->y,
                            look.hideWhenIdle ? idleOpacity(m_track, t) : 1,
                            static_cast<double>(m_track.shape(t).value_or(-1))};
    const CursorTheme* theme = look.theme ? CursorTheme::named(*look.theme) : nullptr;
    bool animated = theme && (theme->animation != CursorTheme::Animation::None || theme->hueShift);
    if (animated || (clickHighlights && !clickRings(m_track, t).empty())) {
        key.push_back(t);  // moving every frame
    }
    return key;
}

void CursorRenderer::draw(cairo_t* cr, Size size, double t, const std::optional<CursorStyle>& style,
                          bool clickHighlights) const {
    if (!drawsCursor(style)) {
        return;
    }
    const CursorStyle look = style.value_or(CursorStyle{});
    auto position = glide(m_track, t, look.smoothing);
    if (!position) {
        return;
    }
    double opacity = look.hideWhenIdle ? idleOpacity(m_track, t) : 1;
    const double ppp = pixelsPerPoint(m_track);
    const double scale = std::max(look.size, 0.1);
    if (clickHighlights) {
        for (const ClickRing& ring : clickRings(m_track, t)) {
            drawRing(cr, {ring.at.x * size.width, ring.at.y * size.height}, ring.progress,
                     ppp * scale / 1.4);
        }
    }
    if (opacity <= 0) {
        return;
    }
    const Point tip{position->x * size.width, position->y * size.height};

    const project::CursorShape* shape = nullptr;
    if (auto id = m_track.shape(t); id && m_track.shapes) {
        for (const auto& candidate : *m_track.shapes) {
            if (candidate.id == *id) {
                shape = &candidate;
            }
        }
    }
    ShapeRole role = shape ? roleOf(*shape) : ShapeRole::Arrow;
    if (look.theme) {
        if (const CursorTheme* theme = CursorTheme::named(*look.theme)) {
            if (const CursorTheme::Art* art = theme->art(role)) {
                themed(cr, *theme, *art, tip, kThemeHeight * ppp * scale, opacity, t, &m_track,
                       size);
                return;
            }
        }
    }
    if (shape) {
        auto image = m_shapes.find(shape->id);
        if (image != m_shapes.end() && shape->height > 0 && !image->second.empty()) {
            double pixels = shape->height * ppp * scale;  // drawn height
            double s = pixels / image->second.height;
            double hot = pixels / shape->height;  // output pixels per shape point
            paintImage(cr, image->second, tip.x - shape->hotX * hot, tip.y - shape->hotY * hot, s,
                       opacity);
            return;
        }
    }
    drawFallbackArrow(cr, tip, kFallbackHeight * ppp * scale, opacity);
}

}  // namespace quillo::render
