#include "frame_renderer.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "canvas.h"
#include "frame_geometry.h"
#include "libyuv/scale_argb.h"

namespace quillo::render {

using project::Edits;

namespace {

// Below this scale pictures are reduced with an averaging filter rather than bilinear sampling,
// which would skip source pixels and shimmer on thin lines.
constexpr double kShrinkScale = 0.75;

PixelRect pixelRect(const Rect& r) {
    int x = static_cast<int>(std::lround(r.x));
    int y = static_cast<int>(std::lround(r.y));
    return {x, y, std::max(1, static_cast<int>(std::lround(r.x + r.width)) - x),
            std::max(1, static_cast<int>(std::lround(r.y + r.height)) - y)};
}

}  // namespace

const project::ZoomSection* activeZoom(const Edits& edits, double t) {
    for (const auto& zoom : edits.zooms) {
        if (t >= zoom.start && t <= zoom.end) {
            return &zoom;
        }
    }
    return nullptr;
}

FrameRenderer::FrameRenderer(Edits edits, Size source, Size output,
                             std::shared_ptr<const CursorRenderer> cursor,
                             std::optional<Size> camera)
    : m_edits(std::move(edits)),
      m_source(source),
      m_width(std::max(2, static_cast<int>(output.width))),
      m_height(std::max(2, static_cast<int>(output.height))),
      m_cursor(std::move(cursor)),
      m_cameraSize(camera) {
    const int sw = std::max(1, static_cast<int>(source.width));
    const int sh = std::max(1, static_cast<int>(source.height));
    m_window = {0, 0, sw, sh};
    if (m_edits.reframe && m_edits.reframe->follow) {
        if (auto ratio = reframeRatio(*m_edits.reframe)) {
            m_reframeRatio = ratio;
            Rect window =
                reframeWindow(*ratio, {0, 0, static_cast<double>(sw), static_cast<double>(sh)});
            m_window = {0, 0, std::clamp(static_cast<int>(std::lround(window.width)), 1, sw),
                        std::clamp(static_cast<int>(std::lround(window.height)), 1, sh)};
        }
    }
    prepareBackdrop();
}

Size FrameRenderer::cameraReadSize() const {
    return m_camera && m_cameraSize ? m_camera->readSize(*m_cameraSize) : Size{};
}

void FrameRenderer::prepareBackdrop() {
    const Rect output{0, 0, static_cast<double>(m_width), static_cast<double>(m_height)};
    const Size shown{static_cast<double>(m_window.width), static_cast<double>(m_window.height)};
    // With camera footage the camera style decides where the picture goes (beside the camera,
    // or nowhere), and where the camera goes.
    std::optional<Rect> placed;
    bool screenShown = true;
    if (m_cameraSize && m_edits.camera &&
        m_edits.camera->layout != project::CameraLayout::ScreenOnly) {
        auto frames =
            m_edits.camera->frames(output, shown, m_edits.frame ? m_edits.frame->padding : 0);
        placed = frames.screen;
        screenShown = frames.screen.has_value();
        if (frames.camera) {
            m_camera.emplace(*m_edits.camera, *frames.camera, m_width, m_height);
        }
    }
    m_backdrop = Image(m_width, m_height);
    CairoPtr cr = contextFor(m_backdrop.view());
    if (!m_edits.frame) {
        // No frame: the picture fills the canvas, with black where the shapes differ.
        m_picture = screenShown ? pixelRect(placed.value_or(fit(shown, output))) : PixelRect{};
        cairo_set_source_rgb(cr.get(), 0, 0, 0);
        cairo_paint(cr.get());
        return;
    }
    const project::FrameStyle& style = *m_edits.frame;
    FrameLayout layout = frameLayout(style, output, shown);
    m_picture = screenShown ? pixelRect(placed.value_or(layout.picture)) : PixelRect{};
    const auto& colours = backdropFor(style.background);
    // Corner to corner: the top colour at the top left, the bottom colour at the bottom right.
    PatternPtr gradient(cairo_pattern_create_linear(0, 0, m_width, m_height));
    cairo_pattern_add_color_stop_rgb(gradient.get(), 0, colours.top.red, colours.top.green,
                                     colours.top.blue);
    cairo_pattern_add_color_stop_rgb(gradient.get(), 1, colours.bottom.red, colours.bottom.green,
                                     colours.bottom.blue);
    cairo_set_source(cr.get(), gradient.get());
    cairo_paint(cr.get());

    const double radius =
        std::clamp(layout.radius, 0.0, std::min(m_picture.width, m_picture.height) / 2.0);
    if (layout.shadowSigma > 0 && screenShown) {
        std::vector<uint8_t> shadow(static_cast<size_t>(m_width) * m_height);
        const int stride = cairo_format_stride_for_width(CAIRO_FORMAT_A8, m_width);
        std::vector<uint8_t> surfaceData(static_cast<size_t>(stride) * m_height);
        {
            SurfacePtr surface(cairo_image_surface_create_for_data(
                surfaceData.data(), CAIRO_FORMAT_A8, m_width, m_height, stride));
            CairoPtr mask(cairo_create(surface.get()));
            roundedRectangle(mask.get(), m_picture.x, m_picture.y + layout.shadowOffset,
                             m_picture.width, m_picture.height, radius);
            cairo_set_source_rgba(mask.get(), 0, 0, 0, 1);
            cairo_fill(mask.get());
            cairo_surface_flush(surface.get());
        }
        for (int y = 0; y < m_height; ++y) {
            std::memcpy(shadow.data() + static_cast<size_t>(y) * m_width,
                        surfaceData.data() + static_cast<size_t>(y) * stride, m_width);
        }
        blurPlane(shadow.data(), m_width, m_height, 1, m_width, layout.shadowSigma);
        // Black at 45 % through the blurred mask, over the gradient.
        for (int y = 0; y < m_height; ++y) {
            uint8_t* p = m_backdrop.view().row(y);
            const uint8_t* a = shadow.data() + static_cast<size_t>(y) * m_width;
            for (int x = 0; x < m_width; ++x) {
                int keep = 255 - (a[x] * 115 + 127) / 255;  // 115 ≈ 0.45 · 255
                for (int c = 0; c < 3; ++c) {
                    p[x * 4 + c] = static_cast<uint8_t>((p[x * 4 + c] * keep + 127) / 255);
                }
            }
        }
    }

    // Coverage of the rounded picture, needed only in the four corner squares.
    m_cornerSize = std::min(
        {static_cast<int>(std::ceil(radius)) + 1, m_picture.width / 2, m_picture.height / 2});
    if (radius > 0 && m_cornerSize > 0) {
        const int stride = cairo_format_stride_for_width(CAIRO_FORMAT_A8, m_picture.width);
        std::vector<uint8_t> data(static_cast<size_t>(stride) * m_picture.height);
        SurfacePtr surface(cairo_image_surface_create_for_data(
            data.data(), CAIRO_FORMAT_A8, m_picture.width, m_picture.height, stride));
        CairoPtr mask(cairo_create(surface.get()));
        roundedRectangle(mask.get(), 0, 0, m_picture.width, m_picture.height, radius);
        cairo_set_source_rgba(mask.get(), 0, 0, 0, 1);
        cairo_fill(mask.get());
        cairo_surface_flush(surface.get());
        m_mask.assign(static_cast<size_t>(m_picture.width) * m_picture.height, 0);
        for (int y = 0; y < m_picture.height; ++y) {
            std::memcpy(m_mask.data() + static_cast<size_t>(y) * m_picture.width,
                        data.data() + static_cast<size_t>(y) * stride, m_picture.width);
        }
    } else {
        m_cornerSize = 0;
    }
}

PixelRect FrameRenderer::area(double t) const {
    if (!m_reframeRatio) {
        return m_window;
    }
    const double sw = m_source.width;
    const double sh = m_source.height;
    auto focusAt = [&](double time) -> std::optional<Point> {
        if (!m_cursor) {
            return std::nullopt;
        }
        return m_cursor->camera(time, m_edits.cursor);
    };
    Point camera = reframeCamera(t, focusAt);
    Rect window = reframeCrop(*m_reframeRatio, {camera.x * sw, camera.y * sh}, {0, 0, sw, sh});
    PixelRect r = m_window;
    r.x = std::clamp(static_cast<int>(std::lround(window.x)), 0,
                     static_cast<int>(sw) - m_window.width);
    r.y = std::clamp(static_cast<int>(std::lround(window.y)), 0,
                     static_cast<int>(sh) - m_window.height);
    return r;
}

void FrameRenderer::blendCorners(const ImageView& out) const {
    if (m_cornerSize == 0) {
        return;
    }
    const int n = m_cornerSize;
    const int w = m_picture.width;
    const int h = m_picture.height;
    const int xs[2] = {0, w - n};
    const int ys[2] = {0, h - n};
    const ImageView back = m_backdrop.view();
    for (int cy : ys) {
        for (int y = cy; y < cy + n; ++y) {
            const uint8_t* coverage = m_mask.data() + static_cast<size_t>(y) * w;
            for (int cx : xs) {
                for (int x = cx; x < cx + n; ++x) {
                    const int a = coverage[x];
                    if (a == 255) {
                        continue;
                    }
                    uint8_t* p = out.pixel(m_picture.x + x, m_picture.y + y);
                    const uint8_t* b = back.pixel(m_picture.x + x, m_picture.y + y);
                    for (int c = 0; c < 4; ++c) {
                        p[c] = static_cast<uint8_t>((p[c] * a + b[c] * (255 - a) + 127) / 255);
                    }
                }
            }
        }
    }
}

void FrameRenderer::drawPicture(const ImageView& screen, const View& v,
                                const ImageView& out) const {
    const PixelRect& p = m_picture;
    const PixelRect& shown = v.shown;
    const uint8_t* from = screen.pixel(shown.x, shown.y);
    uint8_t* to = out.pixel(p.x, p.y);
    const double scale = std::min(v.mapping.scaleX, v.mapping.scaleY);
    if (v.amount <= 1 && shown.width == p.width && shown.height == p.height) {
        for (int y = 0; y < p.height; ++y) {
            std::memcpy(to + static_cast<ptrdiff_t>(y) * out.stride,
                        from + static_cast<ptrdiff_t>(y) * screen.stride,
                        static_cast<size_t>(p.width) * 4);
        }
        return;
    }
    if (v.amount <= 1 && scale < kShrinkScale) {
        // A plain reduction: libyuv's box filter averages every source pixel, with no aliasing.
        libyuv::ARGBScale(from, screen.stride, shown.width, shown.height, to, out.stride, p.width,
                          p.height, libyuv::kFilterBox);
        return;
    }
    // Mapped with sub-pixel precision, so a zoom glides instead of stepping a pixel at a time.
    SurfacePtr source = surfaceFor(screen);
    CairoPtr cr = contextFor(out);
    cairo_rectangle(cr.get(), p.x, p.y, p.width, p.height);
    cairo_clip(cr.get());
    cairo_translate(cr.get(), v.mapping.originX, v.mapping.originY);
    cairo_scale(cr.get(), v.mapping.scaleX, v.mapping.scaleY);
    cairo_set_source_surface(cr.get(), source.get(), 0, 0);
    cairo_pattern_t* pattern = cairo_get_source(cr.get());
    cairo_pattern_set_filter(pattern,
                             scale < kShrinkScale ? CAIRO_FILTER_GOOD : CAIRO_FILTER_BILINEAR);
    cairo_pattern_set_extend(pattern, CAIRO_EXTEND_PAD);
    cairo_set_operator(cr.get(), CAIRO_OPERATOR_SOURCE);
    cairo_paint(cr.get());
}

FrameRenderer::View FrameRenderer::view(double t) const {
    View v;
    v.shown = area(t);
    Point focusPoint{0.5, 0.5};
    if (const auto* zoom = activeZoom(m_edits, t)) {
        v.amount = std::max(zoom->amount(t), 1.0);
        focusPoint = {zoom->x, zoom->y};
        if (zoom->follow && m_cursor) {
            if (auto followed = m_cursor->camera(t, m_edits.cursor)) {
                focusPoint = *followed;
            }
        }
        // The focus is a point of the recording; the zoom works within the shown area.
        focusPoint = {(focusPoint.x * m_source.width - v.shown.x) / v.shown.width,
                      (focusPoint.y * m_source.height - v.shown.y) / v.shown.height};
    }
    const PixelRect& p = m_picture;
    ZoomView zoom = zoomView(v.amount, focusPoint,
                             {0, 0, static_cast<double>(p.width), static_cast<double>(p.height)});
    // The zoom scales the picture about its origin and moves it back by the clamped offsets:
    // output = picture origin − offset + (source − shown origin) · scale.
    v.mapping.scaleX = p.width * v.amount / v.shown.width;
    v.mapping.scaleY = p.height * v.amount / v.shown.height;
    v.mapping.originX = p.x - zoom.offsetX - v.shown.x * v.mapping.scaleX;
    v.mapping.originY = p.y - zoom.offsetY - v.shown.y * v.mapping.scaleY;
    v.mapping.clip = p;
    return v;
}

FrameRenderer::Moment FrameRenderer::moment(double t) const {
    Moment now{t, view(t), {}};
    const View& v = now.view;
    std::vector<double>& key = now.key;
    key = {static_cast<double>(v.shown.x),
           static_cast<double>(v.shown.y),
           v.mapping.scaleX,
           v.mapping.scaleY,
           v.mapping.originX,
           v.mapping.originY};
    auto append = [&](const std::vector<double>& more) {
        key.push_back(static_cast<double>(more.size()));
        key.insert(key.end(), more.begin(), more.end());
    };
    if (m_cursor) {
        append(m_cursor->stateKey(t, m_edits.cursor, m_edits.clickHighlights.value_or(false)));
    }
    if (m_redactions) {
        append(m_redactions->stateKey(t));
    }
    if (m_captions) {
        append(m_captions->stateKey(t));
    }
    return now;
}

void FrameRenderer::render(const ImageView& screen, const ImageView& camera, const Moment& moment,
                           const ImageView& out) const {
    renderScreen(screen, moment, out);
    finish(camera, moment, out);
}

void FrameRenderer::renderScreen(const ImageView& screen, const Moment& moment,
                                 const ImageView& out) const {
    const double t = moment.t;
    // Around the picture: the backdrop, copied row by row where the picture does not cover it.
    const ImageView back = m_backdrop.view();
    const PixelRect& p = m_picture;
    for (int y = 0; y < m_height; ++y) {
        if (y < p.y || y >= p.y + p.height) {
            std::memcpy(out.row(y), back.row(y), static_cast<size_t>(m_width) * 4);
            continue;
        }
        std::memcpy(out.row(y), back.row(y), static_cast<size_t>(p.x) * 4);
        const int right = p.x + p.width;
        std::memcpy(out.pixel(right, y), back.pixel(right, y),
                    static_cast<size_t>(m_width - right) * 4);
    }

    const View& v = moment.view;
    if (p.width > 0 && p.height > 0) {
        drawScreen(screen, v, t, out);
    }
    // The camera's shadow belongs to what lies beneath it: frames where only the camera moves
    // then redraw just the camera's own rectangle.
    if (m_camera) {
        m_camera->drawShadow(out);
    }
}

void FrameRenderer::finish(const ImageView& camera, const Moment& moment,
                           const ImageView& out) const {
    // The camera over the framed screen, never zoomed; captions stay on top.
    if (m_camera) {
        m_camera->drawPicture(camera, out);
    }
    if (m_captions) {
        m_captions->draw(out, moment.view.mapping, moment.t);
    }
}

std::optional<PixelRect> FrameRenderer::cameraArea() const {
    if (m_captions || !m_camera) {
        return std::nullopt;
    }
    const CameraOverlay::Area area = m_camera->pictureArea();
    return PixelRect{area.x, area.y, area.width, area.height};
}

void FrameRenderer::restoreCameraArea(const ImageView& base, const ImageView& out) const {
    const std::optional<PixelRect> place = cameraArea();
    if (!place) {
        copyPixels(base, out, 0, 0);
        return;
    }
    const PixelRect& area = *place;
    for (int y = area.y; y < area.y + area.height; ++y) {
        std::memcpy(out.pixel(area.x, y), base.pixel(area.x, y),
                    static_cast<size_t>(area.width) * 4);
    }
}

void FrameRenderer::drawScreen(const ImageView& screen, const View& v, double t,
                               const ImageView& out) const {
    const PixelRect& p = m_picture;
    // The picture: the shown area of the recording, zoomed and scaled into place in one pass.
    drawPicture(screen, v, out);

    // Drawn over the picture in output pixels through the same mapping, so zooms move and scale
    // them with the picture and they stay sharp: redactions first, then click rings and the
    // cursor, so no redaction ever hides the pointer.
    if (m_redactions) {
        m_redactions->draw(out, v.mapping, t);
    }
    if (m_cursor && m_cursor->drawsCursor(m_edits.cursor)) {
        CairoPtr cr = contextFor(out);
        cairo_rectangle(cr.get(), p.x, p.y, p.width, p.height);
        cairo_clip(cr.get());
        cairo_translate(cr.get(), v.mapping.originX, v.mapping.originY);
        cairo_scale(cr.get(), v.mapping.scaleX, v.mapping.scaleY);
        m_cursor->draw(cr.get(), m_source, t, m_edits.cursor,
                       m_edits.clickHighlights.value_or(false));
    }
    // The rounded corners last, so whatever lies on the picture is rounded with it.
    blendCorners(out);
}

}  // namespace quillo::render
