#include "redaction.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "render/exporter.h"

namespace quillo::redaction {

using project::Redaction;
using project::RedactionStyle;
using render::ImageView;
using render::PictureMapping;
using render::PixelRect;

namespace {

PixelRect intersect(const PixelRect& a, const PixelRect& b) {
    int x0 = std::max(a.x, b.x);
    int y0 = std::max(a.y, b.y);
    int x1 = std::min(a.x + a.width, b.x + b.width);
    int y1 = std::min(a.y + a.height, b.y + b.height);
    return {x0, y0, std::max(0, x1 - x0), std::max(0, y1 - y0)};
}

// Whole pixels covering [x0, x1) × [y0, y1). Edges within a thousandth of a pixel of a whole
// number count as on it, so 0.6 × 100 covers 60 pixels, not 61.
PixelRect covering(double x0, double y0, double x1, double y1) {
    constexpr double kSlack = 1e-3;
    int left = static_cast<int>(std::floor(x0 + kSlack));
    int top = static_cast<int>(std::floor(y0 + kSlack));
    return {left, top, static_cast<int>(std::ceil(x1 - kSlack)) - left,
            static_cast<int>(std::ceil(y1 - kSlack)) - top};
}

// out = piece · opacity + out · (1 − opacity), over one row of premultiplied pixels.
void blendRow(uint8_t* out, const uint8_t* piece, int count, double opacity) {
    if (opacity >= 1) {
        std::memcpy(out, piece, static_cast<size_t>(count) * 4);
        return;
    }
    const int a = static_cast<int>(std::lround(opacity * 256));
    for (int i = 0; i < count * 4; ++i) {
        out[i] = static_cast<uint8_t>((piece[i] * a + out[i] * (256 - a) + 128) >> 8);
    }
}

void fillBox(const ImageView& out, const PixelRect& area, const Redaction& redaction,
             double opacity) {
    std::vector<double> color = redaction.color.value_or(std::vector<double>{0, 0, 0});
    uint8_t pixel[4] = {static_cast<uint8_t>(std::lround(std::clamp(color[2], 0.0, 1.0) * 255)),
                        static_cast<uint8_t>(std::lround(std::clamp(color[1], 0.0, 1.0) * 255)),
                        static_cast<uint8_t>(std::lround(std::clamp(color[0], 0.0, 1.0) * 255)),
                        255};
    std::vector<uint8_t> row(static_cast<size_t>(area.width) * 4);
    for (int x = 0; x < area.width; ++x) {
        std::memcpy(&row[static_cast<size_t>(x) * 4], pixel, 4);
    }
    for (int y = area.y; y < area.y + area.height; ++y) {
        blendRow(out.pixel(area.x, y), row.data(), area.width, opacity);
    }
}

void blurArea(const ImageView& out, const PixelRect& area, const PixelRect& clip, double sigma,
              double opacity) {
    // Blur a margin of 3σ around the area too, so its edge sees its real surroundings; the
    // picture's own edge repeats outwards.
    int margin = static_cast<int>(std::ceil(3 * sigma));
    PixelRect region = intersect(
        {area.x - margin, area.y - margin, area.width + 2 * margin, area.height + 2 * margin},
        clip);
    render::Image piece(region.width, region.height);
    for (int y = 0; y < region.height; ++y) {
        std::memcpy(piece.view().row(y), out.pixel(region.x, region.y + y),
                    static_cast<size_t>(region.width) * 4);
    }
    render::blur(piece.view(), sigma);
    for (int y = area.y; y < area.y + area.height; ++y) {
        blendRow(out.pixel(area.x, y), piece.view().pixel(area.x - region.x, y - region.y),
                 area.width, opacity);
    }
}

void pixelateArea(const ImageView& out, const PixelRect& area, const PixelRect& clip, double block,
                  double opacity) {
    // Blocks are laid out from the area's centre, so one block sits centred on it; each takes
    // the mean colour of its whole cell within the picture.
    double centreX = area.x + area.width / 2.0;
    double centreY = area.y + area.height / 2.0;
    double firstX = centreX - block / 2 - std::ceil((centreX - block / 2 - area.x) / block) * block;
    double firstY = centreY - block / 2 - std::ceil((centreY - block / 2 - area.y) / block) * block;
    std::vector<uint8_t> row;
    for (double top = firstY; top < area.y + area.height; top += block) {
        for (double left = firstX; left < area.x + area.width; left += block) {
            PixelRect cell = intersect(covering(left, top, left + block, top + block), clip);
            PixelRect shown = intersect(cell, area);
            if (shown.width <= 0 || shown.height <= 0) {
                continue;
            }
            uint64_t sum[4] = {0, 0, 0, 0};
            for (int y = cell.y; y < cell.y + cell.height; ++y) {
                const uint8_t* p = out.pixel(cell.x, y);
                for (int x = 0; x < cell.width * 4; ++x) {
                    sum[x & 3] += p[x];
                }
            }
            const uint64_t count = static_cast<uint64_t>(cell.width) * cell.height;
            row.resize(static_cast<size_t>(shown.width) * 4);
            for (int x = 0; x < shown.width * 4; ++x) {
                row[x] = static_cast<uint8_t>((sum[x & 3] + count / 2) / count);
            }
            for (int y = shown.y; y < shown.y + shown.height; ++y) {
                blendRow(out.pixel(shown.x, y), row.data(), shown.width, opacity);
            }
        }
    }
}

}  // namespace

Redaction make(double start, double end, const Rect& rect, RedactionStyle style, double strength,
               std::optional<std::vector<double>> color, std::optional<std::string> label) {
    Redaction redaction;
    redaction.start = start;
    redaction.end = end;
    redaction.x = rect.x;
    redaction.y = rect.y;
    redaction.width = rect.width;
    redaction.height = rect.height;
    redaction.style = style;
    redaction.strength = strength;
    redaction.color = std::move(color);
    redaction.label = std::move(label);
    return redaction;
}

double opacity(const Redaction& redaction, double t) {
    if (t >= redaction.start && t <= redaction.end) {
        return 1;
    }
    double distance = t < redaction.start ? redaction.start - t : t - redaction.end;
    return std::max(0.0, 1 - distance / kFade);
}

double blurSigma(double shortSide, double strength) {
    return shortSide * (0.02 * strength + 0.004);
}

double pixelBlock(double shortSide, double strength) {
    return std::max(shortSide * (0.04 * strength + 0.01), 4.0);
}

std::optional<std::vector<double>> parseColor(const std::string& text) {
    if (text.size() != 7 || text[0] != '#' ||
        text.find_first_not_of("0123456789abcdefABCDEF", 1) != std::string::npos) {
        return std::nullopt;
    }
    std::vector<double> color;
    for (size_t i = 1; i < 7; i += 2) {
        color.push_back(std::stoi(text.substr(i, 2), nullptr, 16) / 255.0);
    }
    return color;
}

void apply(const Redaction& redaction, const ImageView& out, const PictureMapping& picture,
           Size source, double t) {
    double shown = opacity(redaction, t);
    if (shown <= 0 || out.empty() || source.width <= 0 || source.height <= 0) {
        return;
    }
    // The area in recording pixels, whole and inside the recording, then placed in the frame.
    PixelRect inSource =
        intersect(covering(redaction.x * source.width, redaction.y * source.height,
                           (redaction.x + redaction.width) * source.width,
                           (redaction.y + redaction.height) * source.height),
                  {0, 0, static_cast<int>(source.width), static_cast<int>(source.height)});
    if (inSource.width <= 0 || inSource.height <= 0) {
        return;
    }
    PixelRect clip = intersect(picture.clip, {0, 0, out.width, out.height});
    PixelRect area =
        intersect(covering(picture.originX + inSource.x * picture.scaleX,
                           picture.originY + inSource.y * picture.scaleY,
                           picture.originX + (inSource.x + inSource.width) * picture.scaleX,
                           picture.originY + (inSource.y + inSource.height) * picture.scaleY),
                  clip);
    if (area.width <= 0 || area.height <= 0) {
        return;
    }
    const double shortSide = std::min(source.width, source.height);
    const double scale = std::min(picture.scaleX, picture.scaleY);
    const double strength = std::clamp(redaction.strength, 0.0, 1.0);
    switch (redaction.style) {
        case RedactionStyle::Box:
            fillBox(out, area, redaction, shown);
            break;
        case RedactionStyle::Blur:
            blurArea(out, area, clip, blurSigma(shortSide, strength) * scale, shown);
            break;
        case RedactionStyle::Pixelate:
            pixelateArea(out, area, clip, std::max(pixelBlock(shortSide, strength) * scale, 1.0),
                         shown);
            break;
    }
}

void applyAll(const project::Edits& edits, const ImageView& frame, double t) {
    PictureMapping identity;
    identity.clip = {0, 0, frame.width, frame.height};
    Size size{static_cast<double>(frame.width), static_cast<double>(frame.height)};
    for (const Redaction& redaction : edits.redactionList()) {
        apply(redaction, frame, identity, size, t);
    }
}

void RedactionOverlay::draw(const ImageView& out, const PictureMapping& picture, double t) const {
    for (const Redaction& redaction : m_list) {
        apply(redaction, out, picture, m_source, t);
    }
}

std::vector<double> RedactionOverlay::stateKey(double t) const {
    std::vector<double> key;
    key.reserve(m_list.size());
    for (const Redaction& redaction : m_list) {
        key.push_back(opacity(redaction, t));
    }
    return key;
}

void registerDrawing() {
    render::registerOverlay(render::OverlaySlot::Redactions,
                            [](const std::filesystem::path&, const project::Edits& edits,
                               Size source) -> std::shared_ptr<const render::FrameOverlay> {
                                if (edits.redactionList().empty()) {
                                    return nullptr;
                                }
                                return std::make_shared<RedactionOverlay>(edits.redactionList(),
                                                                          source);
                            });
}

}  // namespace quillo::redaction
