#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

#include <cairo.h>

#include "base/result.h"

namespace quillo::render {

// Pixels the compositor works on: premultiplied BGRA (Cairo's ARGB32 on little-endian machines),
// top row first, rows `stride` bytes apart. A view does not own its pixels.
struct ImageView {
    uint8_t* data = nullptr;
    int width = 0;
    int height = 0;
    int stride = 0;

    uint8_t* row(int y) const { return data + static_cast<ptrdiff_t>(y) * stride; }
    uint8_t* pixel(int x, int y) const { return row(y) + static_cast<ptrdiff_t>(x) * 4; }
    bool empty() const { return data == nullptr || width <= 0 || height <= 0; }
    // The part at (x, y), w × h pixels, of this view (which must contain it).
    ImageView region(int x, int y, int w, int h) const { return {pixel(x, y), w, h, stride}; }
};

// An owned picture with tightly packed rows.
struct Image {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> pixels;

    Image() = default;
    Image(int w, int h) : width(w), height(h), pixels(static_cast<size_t>(w) * h * 4) {}
    int stride() const { return width * 4; }
    ImageView view() { return {pixels.data(), width, height, stride()}; }
    ImageView view() const {
        return {const_cast<uint8_t*>(pixels.data()), width, height, stride()};
    }
    bool empty() const { return width <= 0 || height <= 0; }
};

struct CairoDeleter {
    void operator()(cairo_t* c) const { cairo_destroy(c); }
    void operator()(cairo_surface_t* s) const { cairo_surface_destroy(s); }
    void operator()(cairo_pattern_t* p) const { cairo_pattern_destroy(p); }
};
using CairoPtr = std::unique_ptr<cairo_t, CairoDeleter>;
using SurfacePtr = std::unique_ptr<cairo_surface_t, CairoDeleter>;
using PatternPtr = std::unique_ptr<cairo_pattern_t, CairoDeleter>;

// A Cairo surface drawing straight into `image` (which must outlive it).
SurfacePtr surfaceFor(const ImageView& image);
// A Cairo context drawing into `image`.
CairoPtr contextFor(const ImageView& image);

// Reads a PNG file into premultiplied BGRA.
Result<Image> loadPNG(const std::filesystem::path& file);
// Writes premultiplied BGRA as a PNG file, atomically.
Result<void> savePNG(const ImageView& image, const std::filesystem::path& file);

// Copies `source` into `target` at (x, y), clipped to the target.
void copyPixels(const ImageView& source, const ImageView& target, int x, int y);

// Blurs one 8-bit channel in place (`step` bytes between pixels, `stride` between rows) with
// three box passes each way, which approximates a Gaussian of the given sigma closely and costs
// the same for any sigma. Edges repeat the outermost pixels.
void blurPlane(uint8_t* data, int width, int height, ptrdiff_t step, ptrdiff_t stride,
               double sigma);
// Blurs all four channels of an image.
void blur(const ImageView& image, double sigma);

// Adds a rectangle with corners rounded by r (at most half the short side) as a closed path.
void roundedRectangle(cairo_t* cr, double x, double y, double w, double h, double r);

// Multiplies every channel by `opacity` (0–1): premultiplied fading.
void fade(const ImageView& image, double opacity);

}  // namespace quillo::render
