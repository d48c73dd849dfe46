#include "gif_writer.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <gif_lib.h>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <libimagequant.h>

#include "base/assert.h"
#include "ffmpeg_util.h"

namespace quillo::media {

namespace fs = std::filesystem;

namespace {

constexpr const char* kNotCreated = "Could not create the GIF.";
constexpr const char* kNotFinished = "Could not finish the GIF.";

// A pixel counts as unchanged while each of its channels stays this close to the value last
// written for it: the renderer's scaling and the recording's compression make still content
// flicker by a step or two, which would otherwise be written again on every frame. Slow drift
// still gets written once it adds up, since the comparison is with the value last written.
constexpr int kTolerance = 2;
// Browsers and FFmpeg show a delay of 0 or 1 cs as 10 cs, so no frame is shorter than this.
constexpr int kMinDelay = 2;
// The largest delay a graphics control block holds, in centiseconds.
constexpr int kMaxDelay = 65535;

using LiqAttrPtr = CHandle<liq_attr, liq_attr_destroy>;
using LiqImagePtr = CHandle<liq_image, liq_image_destroy>;
using LiqResultPtr = CHandle<liq_result, liq_result_destroy>;
using ColourMapPtr = CHandle<ColorMapObject, GifFreeMapObject>;

void closeGif(GifFileType* gif) {
    int ignored = 0;
    EGifCloseFile(gif, &ignored);
}
using GifPtr = CHandle<GifFileType, closeGif>;

std::string gifReason(int code) {
    const char* text = GifErrorString(code);
    return text ? text : "giflib error " + std::to_string(code);
}

// Whether the pixel moved further than kTolerance away from what was last written for it. Only
// colour counts: the input is opaque and GIF has no partial transparency.
bool differs(const uint8_t* pixel, const uint8_t* written) {
    return std::abs(pixel[0] - written[0]) > kTolerance ||
           std::abs(pixel[1] - written[1]) > kTolerance ||
           std::abs(pixel[2] - written[2]) > kTolerance;
}

// A rectangle of the picture, in pixels.
struct Box {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

// A GIF colour table for `palette`, padded with black to the power of two GIF needs.
ColourMapPtr colourMap(const liq_palette& palette) {
    int size = 2;
    while (size < static_cast<int>(palette.count)) {
        size *= 2;
    }
    std::vector<GifColorType> colours(static_cast<size_t>(size), GifColorType{0, 0, 0});
    for (unsigned i = 0; i < palette.count; ++i) {
        colours[i] = {palette.entries[i].r, palette.entries[i].g, palette.entries[i].b};
    }
    return ColourMapPtr(GifMakeMapObject(size, colours.data()));
}

}  // namespace

struct GifWriter::Impl {
    fs::path file;
    int width = 0;
    int height = 0;
    double fps = 0;
    // Open from create() until finish() or the first failure; a failed write leaves the file
    // unusable, so nothing more is written to it after one.
    GifPtr gif;
    bool finished = false;
    LiqAttrPtr attr{liq_attr_create()};

    int64_t frames = 0;
    int64_t centiseconds = 0;  // the delays written so far, added up

    // Each buffer covers the whole picture, so memory stays the same whatever the frame count.
    std::vector<uint8_t> written;  // BGRA last written for each pixel, as it came in
    std::vector<uint8_t> rgba;     // the frame's changed box, for the quantizer
    std::vector<uint8_t> indices;  // the box in palette indices, one byte a pixel

    ~Impl() {
        gif.reset();
        if (!finished) {
            std::error_code ignored;
            fs::remove(file, ignored);
        }
    }

    AppError failure(const char* what) const {
        return AppError(kNotFinished, std::string(what) + ": " + gifReason(gif->Error));
    }

    // Frame n should end at round((n + 1)·100 / fps) cs. GIF delays are whole centiseconds, so
    // each frame takes whatever brings the total back to that; frames cut short by kMinDelay
    // above 50 fps make the animation run slower instead.
    int nextDelay() {
        const int64_t end = std::llround(static_cast<double>(frames + 1) * 100 / fps);
        const auto delay =
            static_cast<int>(std::clamp<int64_t>(end - centiseconds, kMinDelay, kMaxDelay));
        centiseconds += delay;
        return delay;
    }

    // The smallest box holding every pixel that differs from what was last written; none when
    // the frame shows what the viewer already sees.
    std::optional<Box> changedBox(const uint8_t* bgra, int stride) const {
        int left = width;
        int right = -1;
        int top = -1;
        int bottom = -1;
        const size_t rowBytes = static_cast<size_t>(width) * 4;
        for (int y = 0; y < height; ++y) {
            const uint8_t* row = bgra + static_cast<ptrdiff_t>(y) * stride;
            const uint8_t* seen = written.data() + y * rowBytes;
            if (std::memcmp(row, seen, rowBytes) == 0) {
                continue;  // the common case for screen content
            }
            int first = 0;
            while (first < width && !differs(row + first * 4, seen + first * 4)) {
                ++first;
            }
            if (first == width) {
                continue;
            }
            int last = width - 1;
            while (last > first && !differs(row + last * 4, seen + last * 4)) {
                --last;
            }
            left = std::min(left, first);
            right = std::max(right, last);
            if (top < 0) {
                top = y;
            }
            bottom = y;
        }
        if (top < 0) {
            return std::nullopt;
        }
        return Box{left, top, right - left + 1, bottom - top + 1};
    }

    // Fills `rgba` with the box: changed pixels opaque, and remembered as written; the others
    // fully transparent, so the quantizer spends no colours on them. Returns whether any pixel
    // was left transparent.
    bool takeBox(const uint8_t* bgra, int stride, const Box& box, bool everything) {
        bool kept = false;
        uint8_t* to = rgba.data();
        for (int y = box.y; y < box.y + box.height; ++y) {
            const uint8_t* from = bgra + static_cast<ptrdiff_t>(y) * stride + box.x * 4;
            uint8_t* seen = written.data() + (static_cast<size_t>(y) * width + box.x) * 4;
            for (int x = 0; x < box.width; ++x, from += 4, seen += 4, to += 4) {
                if (everything || differs(from, seen)) {
                    to[0] = from[2];
                    to[1] = from[1];
                    to[2] = from[0];
                    to[3] = 255;
                    std::memcpy(seen, from, 4);
                } else {
                    std::memset(to, 0, 4);
                    kept = true;
                }
            }
        }
        return kept;
    }

    // The index the unchanged pixels of the box were remapped to, which becomes the frame's
    // transparent colour. It is taken from the pixels rather than the palette: the quantizer
    // sometimes leaves a second entry with alpha 0 that no transparent pixel uses. Every pixel
    // is then made to agree, in case dithering strayed across the line either way.
    int claimTransparent(const liq_palette& palette, size_t count) {
        size_t first = 0;
        while (rgba[first * 4 + 3] != 0) {
            ++first;
        }
        const uint8_t transparent = indices[first];
        for (size_t i = first; i < count; ++i) {
            if (rgba[i * 4 + 3] == 0) {
                indices[i] = transparent;
            } else if (indices[i] == transparent) {
                indices[i] = nearestOpaque(palette, transparent, &rgba[i * 4]);
            }
        }
        return transparent;
    }

    // The palette entry closest to an RGBA pixel, other than `transparent`.
    static uint8_t nearestOpaque(const liq_palette& palette, uint8_t transparent,
                                 const uint8_t* pixel) {
        int best = transparent;
        int bestDistance = INT_MAX;
        for (int i = 0; i < static_cast<int>(palette.count); ++i) {
            const liq_color& c = palette.entries[i];
            const int distance = (c.r - pixel[0]) * (c.r - pixel[0]) +
                                 (c.g - pixel[1]) * (c.g - pixel[1]) +
                                 (c.b - pixel[2]) * (c.b - pixel[2]);
            if (i != transparent && distance < bestDistance) {
                best = i;
                bestDistance = distance;
            }
        }
        return static_cast<uint8_t>(best);
    }

    Result<void> writeControl(int transparent) {
        GraphicsControlBlock control{};
        control.DisposalMode = DISPOSE_DO_NOT;
        control.UserInputFlag = false;
        control.DelayTime = nextDelay();
        control.TransparentColor = transparent;
        GifByteType bytes[4];
        const size_t size = EGifGCBToExtension(&control, bytes);
        if (EGifPutExtension(gif.get(), GRAPHICS_EXT_FUNC_CODE, static_cast<int>(size), bytes) ==
            GIF_ERROR) {
            return failure("graphics control");
        }
        return {};
    }

    Result<void> writeImage(const Box& box, const ColorMapObject* map, const uint8_t* pixels) {
        if (EGifPutImageDesc(gif.get(), box.x, box.y, box.width, box.height, false, map) ==
            GIF_ERROR) {
            return failure("image descriptor");
        }
        for (int y = 0; y < box.height; ++y) {
            // giflib takes a mutable row but only reads it.
            auto* row = const_cast<GifPixelType*>(pixels + static_cast<size_t>(y) * box.width);
            if (EGifPutLine(gif.get(), row, box.width) == GIF_ERROR) {
                return failure("image data");
            }
        }
        return {};
    }

    // One frame covering `box`: changed pixels quantized to the box's own palette and dithered,
    // the others transparent so the previous frames show through.
    Result<void> writeBox(const uint8_t* bgra, int stride, const Box& box, bool everything) {
        const bool kept = takeBox(bgra, stride, box, everything);
        LiqImagePtr image(liq_image_create_rgba(attr.get(), rgba.data(), box.width, box.height, 0));
        if (!image) {
            return AppError(kNotFinished, "the quantizer could not take the frame");
        }
        liq_result* quantized = nullptr;
        if (const liq_error code = liq_image_quantize(image.get(), attr.get(), &quantized);
            code != LIQ_OK) {
            return AppError(kNotFinished, "quantizing failed: liq error " + std::to_string(code));
        }
        LiqResultPtr result(quantized);
        liq_set_dithering_level(result.get(), 1.0f);
        const size_t count = static_cast<size_t>(box.width) * box.height;
        if (liq_write_remapped_image(result.get(), image.get(), indices.data(), count) != LIQ_OK) {
            return AppError(kNotFinished, "remapping the frame failed");
        }
        const liq_palette& palette = *liq_get_palette(result.get());
        const int transparent = kept ? claimTransparent(palette, count) : NO_TRANSPARENT_COLOR;
        if (auto control = writeControl(transparent); !control) {
            return control;
        }
        ColourMapPtr map = colourMap(palette);
        if (!map) {
            return AppError(kNotFinished, "out of memory");
        }
        return writeImage(box, map.get(), indices.data());
    }

    // A frame that shows nothing new still has to be a frame, or it would not count: a single
    // transparent pixel that only takes up time.
    Result<void> writeRepeat() {
        if (auto control = writeControl(0); !control) {
            return control;
        }
        GifColorType colours[2] = {{0, 0, 0}, {0, 0, 0}};
        ColourMapPtr map(GifMakeMapObject(2, colours));
        if (!map) {
            return AppError(kNotFinished, "out of memory");
        }
        const GifPixelType pixel = 0;
        return writeImage(Box{0, 0, 1, 1}, map.get(), &pixel);
    }

    Result<void> writeFrame(const uint8_t* bgra, int stride) {
        if (frames == 0) {
            return writeBox(bgra, stride, Box{0, 0, width, height}, true);
        }
        const std::optional<Box> box = changedBox(bgra, stride);
        return box ? writeBox(bgra, stride, *box, false) : writeRepeat();
    }
};

GifWriter::GifWriter(std::unique_ptr<Impl> impl) : m(std::move(impl)) {}
GifWriter::~GifWriter() = default;

Result<std::unique_ptr<GifWriter>> GifWriter::create(const fs::path& file, int width, int height,
                                                     double fps) {
    if (width < 1 || height < 1 || width > 65535 || height > 65535 || !std::isfinite(fps) ||
        fps <= 0) {
        return AppError(kNotCreated, "unsupported size or frame rate");
    }
    auto impl = std::make_unique<Impl>();
    impl->file = file;
    impl->width = width;
    impl->height = height;
    impl->fps = fps;
    impl->finished = true;  // nothing to remove until the file exists
    if (!impl->attr) {
        return AppError(kNotCreated, "out of memory");
    }
    const size_t pixels = static_cast<size_t>(width) * height;
    impl->written.assign(pixels * 4, 0);
    impl->rgba.resize(pixels * 4);
    impl->indices.resize(pixels);
    // 256 colours: when some pixels stay transparent the quantizer gives one of them to
    // transparency. The quantizer stops adding colours at quality 85: flat window content then
    // needs about half as many (68 kB against 135 kB for the 20 s benchmark clip at SSIM 0.9995
    // to the source), while gradients and video keep most of their colours (80 left stray dots
    // in them, SSIM 0.938 against 0.978 at 100 on a re-encoded screen clip). Speed 4 is the
    // quantizer's balance; slower speeds gain nothing measurable here.
    liq_set_max_colors(impl->attr.get(), 256);
    liq_set_quality(impl->attr.get(), 0, 85);
    liq_set_speed(impl->attr.get(), 4);

    int error = 0;
    impl->gif.reset(EGifOpenFileName(file.c_str(), false, &error));
    if (!impl->gif) {
        return AppError(kNotCreated, gifReason(error));
    }
    impl->finished = false;
    GifFileType* gif = impl->gif.get();
    EGifSetGifVersion(gif, true);
    // No global colour table: every frame brings its own palette.
    if (EGifPutScreenDesc(gif, width, height, 8, 0, nullptr) == GIF_ERROR) {
        return AppError(kNotCreated, gifReason(gif->Error));
    }
    // Loop for ever: the NETSCAPE2.0 application extension with a loop count of 0.
    const GifByteType loop[3] = {1, 0, 0};
    if (EGifPutExtensionLeader(gif, APPLICATION_EXT_FUNC_CODE) == GIF_ERROR ||
        EGifPutExtensionBlock(gif, 11, "NETSCAPE2.0") == GIF_ERROR ||
        EGifPutExtensionBlock(gif, 3, loop) == GIF_ERROR ||
        EGifPutExtensionTrailer(gif) == GIF_ERROR) {
        return AppError(kNotCreated, gifReason(gif->Error));
    }
    return std::unique_ptr<GifWriter>(new GifWriter(std::move(impl)));
}

Result<void> GifWriter::add(const uint8_t* bgra, int stride) {
    QUILLO_ASSERT(bgra != nullptr && stride >= m->width * 4);
    if (!m->gif) {
        return AppError(kNotFinished, "the file is already closed");
    }
    auto written = m->writeFrame(bgra, stride);
    if (!written) {
        m->gif.reset();
        return written;
    }
    ++m->frames;
    return {};
}

Result<void> GifWriter::finish() {
    if (!m->gif) {
        return AppError(kNotFinished, "the file is already closed");
    }
    if (m->frames == 0) {
        m->gif.reset();
        return AppError(kNotFinished, "no frames were added");
    }
    int error = 0;
    // EGifCloseFile frees the handle whether or not it succeeds.
    const int closed = EGifCloseFile(m->gif.release(), &error);
    if (closed == GIF_ERROR) {
        return AppError(kNotFinished, gifReason(error));
    }
    m->finished = true;
    return {};
}

}  // namespace quillo::media
