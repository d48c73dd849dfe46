#include "camera_overlay.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "libyuv/scale_argb.h"

namespace quillo::render {

namespace {

// Coverage of a rounded rectangle of radius r filling a width × height plane, 255 inside.
std::vector<uint8_t> roundedCoverage(int width, int height, double x, double y, double w, double h,
                                     double r) {
    const int stride = cairo_format_stride_for_width(CAIRO_FORMAT_A8, width);
    std::vector<uint8_t> data(static_cast<size_t>(stride) * height);
    {
        SurfacePtr surface(cairo_image_surface_create_for_data(data.data(), CAIRO_FORMAT_A8, width,
                                                               height, stride));
        CairoPtr cr(cairo_create(surface.get()));
        roundedRectangle(cr.get(), x, y, w, h, r);
        cairo_set_source_rgba(cr.get(), 0, 0, 0, 1);
        cairo_fill(cr.get());
        cairo_surface_flush(surface.get());
    }
    std::vector<uint8_t> plane(static_cast<size_t>(width) * height);
    for (int row = 0; row < height; ++row) {
        std::memcpy(plane.data() + static_cast<size_t>(row) * width,
                    data.data() + static_cast<size_t>(row) * stride, width);
    }
    return plane;
}

}  // namespace

CameraOverlay::CameraOverlay(const project::CameraStyle& style, const Rect& area, int outputWidth,
                             int outputHeight)
    : m_mirror(style.mirror), m_outputWidth(outputWidth), m_outputHeight(outputHeight) {
    m_x = static_cast<int>(std::lround(area.x));
    m_y = static_cast<int>(std::lround(area.y));
    m_width = std::max(1, static_cast<int>(std::lround(area.x + area.width)) - m_x);
    m_height = std::max(1, static_cast<int>(std::lround(area.y + area.height)) - m_y);
    const double radius =
        std::min(style.radius({0, 0, static_cast<double>(m_width), static_cast<double>(m_height)}),
                 std::min(m_width, m_height) / 2.0);
    m_mask = roundedCoverage(m_width, m_height, 0, 0, m_width, m_height, radius);
    if (style.shadow) {
        // A soft shadow a little below the camera: sigma 6 % of its shorter side, at 45 %.
        const double sigma = std::max(2.0, 0.06 * std::min(m_width, m_height));
        const int spread = static_cast<int>(std::ceil(3 * sigma));
        const int offset = static_cast<int>(std::lround(0.5 * sigma));
        const int sw = m_width + 2 * spread;
        const int sh = m_height + 2 * spread;
        m_shadow = roundedCoverage(sw, sh, spread, spread + offset, m_width, m_height, radius);
        blurPlane(m_shadow.data(), sw, sh, 1, sw, sigma);
        for (auto& a : m_shadow) {
            a = static_cast<uint8_t>((a * 115 + 127) / 255);
        }
        // Clip the shadow's rectangle to the frame.
        const int left = std::max(0, m_x - spread);
        const int top = std::max(0, m_y - spread);
        const int right = std::min(outputWidth, m_x - spread + sw);
        const int bottom = std::min(outputHeight, m_y - spread + sh);
        if (right > left && bottom > top) {
            std::vector<uint8_t> clipped(static_cast<size_t>(right - left) * (bottom - top));
            for (int y = top; y < bottom; ++y) {
                std::memcpy(clipped.data() + static_cast<size_t>(y - top) * (right - left),
                            m_shadow.data() + static_cast<size_t>(y - (m_y - spread)) * sw +
                                (left - (m_x - spread)),
                            right - left);
            }
            m_shadow = std::move(clipped);
            m_shadowX = left;
            m_shadowY = top;
            m_shadowWidth = right - left;
            m_shadowHeight = bottom - top;
        } else {
            m_shadow.clear();
        }
    }
}

CameraOverlay::Area CameraOverlay::area() const {
    int left = m_x, top = m_y, right = m_x + m_width, bottom = m_y + m_height;
    if (!m_shadow.empty()) {
        left = std::min(left, m_shadowX);
        top = std::min(top, m_shadowY);
        right = std::max(right, m_shadowX + m_shadowWidth);
        bottom = std::max(bottom, m_shadowY + m_shadowHeight);
    }
    left = std::max(left, 0);
    top = std::max(top, 0);
    right = std::min(right, m_outputWidth);
    bottom = std::min(bottom, m_outputHeight);
    return {left, top, std::max(0, right - left), std::max(0, bottom - top)};
}

Size CameraOverlay::readSize(Size camera) const {
    if (!(camera.width > 0 && camera.height > 0)) {
        return {static_cast<double>(m_width), static_cast<double>(m_height)};
    }
    const double scale = std::max(m_width / camera.width, m_height / camera.height);
    auto even = [](double v) { return std::max(2.0, 2 * std::ceil(v / 2)); };
    return {even(camera.width * scale), even(camera.height * scale)};
}

void CameraOverlay::draw(const ImageView& camera, const ImageView& out) const {
    // The shadow first: darken what lies beneath.
    for (int y = 0; y < m_shadowHeight && !m_shadow.empty(); ++y) {
        const uint8_t* a = m_shadow.data() + static_cast<size_t>(y) * m_shadowWidth;
        uint8_t* p = out.pixel(m_shadowX, m_shadowY + y);
        for (int x = 0; x < m_shadowWidth; ++x) {
            if (a[x] == 0) {
                continue;
            }
            const int keep = 255 - a[x];
            for (int c = 0; c < 4; ++c) {
                p[x * 4 + c] = static_cast<uint8_t>((p[x * 4 + c] * keep + 127) / 255 +
                                                    (c == 3 ? (a[x] * 255 + 127) / 255 : 0));
            }
        }
    }
    if (camera.empty()) {
        return;
    }
    // Scale to fill: the largest centred part of the camera picture with the rectangle's shape.
    int cw = camera.width;
    int ch = camera.height;
    if (static_cast<int64_t>(cw) * m_height > static_cast<int64_t>(ch) * m_width) {
        cw = std::max(1,
                      static_cast<int>(std::lround(static_cast<double>(ch) * m_width / m_height)));
    } else {
        ch = std::max(1,
                      static_cast<int>(std::lround(static_cast<double>(cw) * m_height / m_width)));
    }
    const int cx = (camera.width - cw) / 2;
    const int cy = (camera.height - ch) / 2;
    Image scaled(m_width, m_height);
    libyuv::ARGBScale(camera.pixel(cx, cy), camera.stride, cw, ch, scaled.pixels.data(),
                      scaled.stride(), m_width, m_height, libyuv::kFilterBilinear);
    // Blended through the mask, read right to left when mirrored; parts outside the frame are
    // left out.
    const int x0 = std::max(0, -m_x);
    const int x1 = std::min(m_width, out.width - m_x);
    const int y0 = std::max(0, -m_y);
    const int y1 = std::min(m_height, out.height - m_y);
    for (int y = y0; y < y1; ++y) {
        const uint8_t* coverage = m_mask.data() + static_cast<size_t>(y) * m_width;
        const uint8_t* from = scaled.view().row(y);
        uint8_t* to = out.pixel(m_x, m_y + y);
        for (int x = x0; x < x1; ++x) {
            const int a = coverage[x];
            if (a == 0) {
                continue;
            }
            const uint8_t* s = from + (m_mirror ? m_width - 1 - x : x) * 4;
            uint8_t* d = to + x * 4;
            if (a == 255) {
                std::memcpy(d, s, 4);
                continue;
            }
            for (int c = 0; c < 4; ++c) {
                d[c] = static_cast<uint8_t>((s[c] * a + d[c] * (255 - a) + 127) / 255);
            }
        }
    }
}

}  // namespace quillo::render
