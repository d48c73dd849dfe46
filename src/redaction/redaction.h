#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/geometry.h"
#include "project/edits.h"
#include "render/frame_renderer.h"
#include "render/image.h"

namespace quillo::redaction {

// Seconds over which a redaction fades in before its start and out after its end.
inline constexpr double kFade = 0.15;

// A redaction over a unit rectangle (left, top, width, height) of the frame.
project::Redaction make(double start, double end, const Rect& rect,
                        project::RedactionStyle style = project::RedactionStyle::Blur,
                        double strength = 0.6, std::optional<std::vector<double>> color = {},
                        std::optional<std::string> label = {});

// Visibility at recording time t: 1 inside [start, end], fading to 0 over kFade either side.
double opacity(const project::Redaction& redaction, double t);

// Gaussian sigma of a blur and side of a pixelation block, in recording pixels, for a frame
// whose short side is `shortSide` pixels.
double blurSigma(double shortSide, double strength);
double pixelBlock(double shortSide, double strength);

// "#RRGGBB" as three components 0–1.
std::optional<std::vector<double>> parseColor(const std::string& text);

// Draws one redaction at recording time t onto `out`, where the recording (`source` pixels) is
// placed by `picture`, so the area moves and scales with zooms. Nothing outside the picture's
// clip changes.
void apply(const project::Redaction& redaction, const render::ImageView& out,
           const render::PictureMapping& picture, Size source, double t);

// Applies all of a recipe's redactions, in list order, to a recording frame.
void applyAll(const project::Edits& edits, const render::ImageView& frame, double t);

// The redaction step of the frame routine.
class RedactionOverlay : public render::FrameOverlay {
public:
    RedactionOverlay(std::vector<project::Redaction> list, Size source)
        : m_list(std::move(list)), m_source(source) {}
    void draw(const render::ImageView& out, const render::PictureMapping& picture,
              double t) const override;
    std::vector<double> stateKey(double t) const override;

private:
    std::vector<project::Redaction> m_list;
    Size m_source;
};

// Makes every render plan draw its recipe's redactions.
void registerDrawing();

}  // namespace quillo::redaction
