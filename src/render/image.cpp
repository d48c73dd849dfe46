#include "image.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>

#include "base/files.h"

namespace quillo::render {

SurfacePtr surfaceFor(const ImageView& image) {
    return SurfacePtr(cairo_image_surface_create_for_data(image.data, CAIRO_FORMAT_ARGB32,
                                                          image.width, image.height, image.stride));
}

CairoPtr contextFor(const ImageView& image) {
    SurfacePtr surface = surfaceFor(image);
    return CairoPtr(cairo_create(surface.get()));  // the context keeps the surface alive
}

Result<Image> loadPNG(const std::filesystem::path& file) {
    SurfacePtr surface(cairo_image_surface_create_from_png(file.c_str()));
    if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) {
        return AppError("The image “" + file.filename().string() + "” could not be read.",
                        cairo_status_to_string(cairo_surface_status(surface.get())));
    }
    // PNGs without alpha come back as RGB24, whose padding byte is undefined.
    SurfacePtr argb(cairo_image_surface_create(CAIRO_FORMAT_ARGB32,
                                               cairo_image_surface_get_width(surface.get()),
                                               cairo_image_surface_get_height(surface.get())));
    CairoPtr cr(cairo_create(argb.get()));
    cairo_set_source_surface(cr.get(), surface.get(), 0, 0);
    cairo_set_operator(cr.get(), CAIRO_OPERATOR_SOURCE);
    cairo_paint(cr.get());
    cairo_surface_flush(argb.get());
    Image image(cairo_image_surface_get_width(argb.get()),
                cairo_image_surface_get_height(argb.get()));
    const uint8_t* data = cairo_image_surface_get_data(argb.get());
    const int stride = cairo_image_surface_get_stride(argb.get());
    for (int y = 0; y < image.height; ++y) {
        std::memcpy(image.view().row(y), data + static_cast<ptrdiff_t>(y) * stride,
                    static_cast<size_t>(image.stride()));
    }
    return image;
}

Result<void> savePNG(const ImageView& image, const std::filesystem::path& file) {
    SurfacePtr surface = surfaceFor(image);
    std::string bytes;
    auto write = [](void* closure, const unsigned char* data, unsigned int length) {
        static_cast<std::string*>(closure)->append(reinterpret_cast<const char*>(data), length);
        return CAIRO_STATUS_SUCCESS;
    };
    if (cairo_surface_write_to_png_stream(surface.get(), write, &bytes) != CAIRO_STATUS_SUCCESS) {
        return AppError("The image could not be written.", file.string());
    }
    return writeFileAtomically(file, bytes);
}

void copyPixels(const ImageView& source, const ImageView& target, int x, int y) {
    int left = std::max(0, -x);
    int top = std::max(0, -y);
    int right = std::min(source.width, target.width - x);
    int bottom = std::min(source.height, target.height - y);
    if (right <= left) {
        return;
    }
    for (int row = top; row < bottom; ++row) {
        std::memcpy(target.pixel(x + left, y + row), source.pixel(left, row),
                    static_cast<size_t>(right - left) * 4);
    }
}

void fade(const ImageView& image, double opacity) {
    const int scale = static_cast<int>(std::lround(std::clamp(opacity, 0.0, 1.0) * 256));
    for (int y = 0; y < image.height; ++y) {
        uint8_t* p = image.row(y);
        for (int i = 0; i < image.width * 4; ++i) {
            p[i] = static_cast<uint8_t>((p[i] * scale) >> 8);
        }
    }
}

void blurPlane(uint8_t* data, int width, int height, ptrdiff_t step, ptrdiff_t stride,
               double sigma) {
    if (!(sigma > 0.5) || width <= 0 || height <= 0) {
        return;
    }
    // Box radius giving the same variance over three passes: 3·((2r+1)² − 1)/12 = σ².
    int radius =
        std::max(1, static_cast<int>(std::lround((std::sqrt(4 * sigma * sigma + 1) - 1) / 2)));
    std::vector<uint32_t> line(static_cast<size_t>(std::max(width, height)));
    auto pass = [&](uint8_t* first, int count, ptrdiff_t spacing) {
        for (int i = 0; i < count; ++i) {
            line[i] = first[i * spacing];
        }
        const uint32_t span = 2 * radius + 1;
        uint32_t sum = 0;
        for (int i = -radius; i <= radius; ++i) {
            sum += line[std::clamp(i, 0, count - 1)];
        }
        for (int i = 0; i < count; ++i) {
            first[i * spacing] = static_cast<uint8_t>((sum + span / 2) / span);
            sum += line[std::min(i + radius + 1, count - 1)];
            sum -= line[std::max(i - radius, 0)];
        }
    };
    for (int round = 0; round < 3; ++round) {
        for (int y = 0; y < height; ++y) {
            pass(data + y * stride, width, step);
        }
        for (int x = 0; x < width; ++x) {
            pass(data + x * step, height, stride);
        }
    }
}

void blur(const ImageView& image, double sigma) {
    for (int channel = 0; channel < 4; ++channel) {
        blurPlane(image.data + channel, image.width, image.height, 4, image.stride, sigma);
    }
}

void roundedRectangle(cairo_t* cr, double x, double y, double w, double h, double r) {
    r = std::clamp(r, 0.0, std::min(w, h) / 2);
    cairo_new_sub_path(cr);
    cairo_arc(cr, x + w - r, y + r, r, -M_PI / 2, 0);
    cairo_arc(cr, x + w - r, y + h - r, r, 0, M_PI / 2);
    cairo_arc(cr, x + r, y + h - r, r, M_PI / 2, M_PI);
    cairo_arc(cr, x + r, y + r, r, M_PI, 3 * M_PI / 2);
    cairo_close_path(cr);
}

}  // namespace quillo::render
