#include "camera_overlay.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "libyuv/planar_functions.h"
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
    // Each row's run of full coverage (a convex shape has one), copied without blending.
    m_inside.resize(static_cast<size_t>(m_height));
    for (int y = 0; y < m_height; ++y) {
        const uint8_t* row = m_mask.data() + static_cast<size_t>(y) * m_width;
        int begin = 0;
        while (begin < m_width && row[begin] != 255) {
            ++begin;
        }
        int end = begin;
        while (end < m_width && row[end] == 255) {
            ++end;
        }
        m_inside[static_cast<size_t>(y)] = {begin, end};
    }
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
            // Each shade spread over a pixel's three colours (the frame is opaque: its alpha
            // stays), so that darkening runs over bytes.
            m_shadow.assign(clipped.size() * 4, 0);
            for (size_t i = 0; i < clipped.size(); ++i) {
                std::memset(&m_shadow[i * 4], clipped[i], 3);
            }
            m_shadowX = left;
            m_shadowY = top;
            m_shadowWidth = right - left;
            m_shadowHeight = bottom - top;
        } else {
            m_shadow.clear();
        }
    }
}

CameraOverlay::Area CameraOverlay::pictureArea() const {
    const int left = std::max(m_x, 0);
    const int top = std::max(m_y, 0);
    const int right = std::min(m_x + m_width, m_outputWidth);
    const int bottom = std::min(m_y + m_height, m_outputHeight);
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

void CameraOverlay::drawShadow(const ImageView& out) const {
    // Darkens what lies beneath the camera; kept apart from the picture, so that frames where
    // only the camera moves don't darken again.
    const int bytes = m_shadowWidth * 4;
    for (int y = 0; y < m_shadowHeight && !m_shadow.empty(); ++y) {
        const uint8_t* shade = m_shadow.data() + static_cast<size_t>(y) * bytes;
        uint8_t* p = out.pixel(m_shadowX, m_shadowY + y);
        for (int i = 0; i < bytes; ++i) {
            // (v + 1 + v / 256) / 256 is v / 255 for every v below 65535, and vectorises.
            const unsigned v = p[i] * (255u - shade[i]) + 127u;
            p[i] = static_cast<uint8_t>((v + 1 + (v >> 8)) >> 8);
        }
    }
}

void CameraOverlay::draw(const ImageView& camera, const ImageView& out) const {
    drawShadow(out);
    drawPicture(camera, out);
}

void CameraOverlay::drawPicture(const ImageView& camera, const ImageView& out) const {
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
    // Footage read at readSize() needs no scaling, only the crop.
    ImageView picture{camera.pixel(cx, cy), m_width, m_height, camera.stride};
    if (cw != m_width || ch != m_height) {
        thread_local Image scaled;
        if (scaled.width != m_width || scaled.height != m_height) {
            scaled = Image(m_width, m_height);
        }
        libyuv::ARGBScale(camera.pixel(cx, cy), camera.stride, cw, ch, scaled.pixels.data(),
                          scaled.stride(), m_width, m_height, libyuv::kFilterBilinear);
        picture = scaled.view();
    }
    // Blended through the mask at its edges and copied inside, read right to left when
    // mirrored; parts outside the frame are left out.
    const int x0 = std::max(0, -m_x);
    const int x1 = std::min(m_width, out.width - m_x);
    const int y0 = std::max(0, -m_y);
    const int y1 = std::min(m_height, out.height - m_y);
    for (int y = y0; y < y1; ++y) {
        const uint8_t* coverage = m_mask.data() + static_cast<size_t>(y) * m_width;
        const uint8_t* from = picture.row(y);
        uint8_t* to = out.pixel(m_x, m_y + y);
        const Span& inside = m_inside[static_cast<size_t>(y)];
        auto blend = [&](int from0, int to0) {
            for (int x = from0; x < to0; ++x) {
                const int a = coverage[x];
                if (a == 0) {
                    continue;
                }
                const uint8_t* s = from + (m_mirror ? m_width - 1 - x : x) * 4;
                uint8_t* d = to + x * 4;
                for (int c = 0; c < 4; ++c) {
                    d[c] = static_cast<uint8_t>((s[c] * a + d[c] * (255 - a) + 127) / 255);
                }
            }
        };
        const int begin = std::clamp(inside.begin, x0, x1);
        const int end = std::clamp(inside.end, begin, x1);
        blend(x0, begin);
        if (m_mirror && end > begin) {
            libyuv::ARGBMirror(from + (m_width - end) * 4, 0, to + begin * 4, 0, end - begin, 1);
        } else if (end > begin) {
            std::memcpy(to + begin * 4, from + begin * 4, static_cast<size_t>(end - begin) * 4);
        }
        blend(end, x1);
    }
}

}  // namespace quillo::render
