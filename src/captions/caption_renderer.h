#pragma once

#include <memory>
#include <vector>

#include "caption_track.h"
#include "project/edits.h"
#include "render/frame_renderer.h"
#include "render/image.h"

namespace quillo::captions {

// Draws caption pages onto finished frames with Pango: white bold text centred near the bottom
// or top edge, on a dark rounded pill or with a soft shadow, the spoken word optionally in the
// highlight colour.
class CaptionRenderer {
public:
    // Highlight colour of the spoken word (red, green, blue 0–1).
    static constexpr double highlight[3] = {1.0, 0.84, 0.25};

    // Text size in pixels: max(round(size × short side × 0.045), 10) for the clamped style.
    static int fontSize(int width, int height, const project::CaptionStyle& style);

    // Draws `page` as it shows at recording time t.
    static void draw(const CaptionPage& page, const render::ImageView& frame, double t,
                     const project::CaptionStyle& style);
};

// The caption step of the frame routine: the page showing at each moment, drawn last over the
// whole canvas. Nothing when the style is hidden or nobody speaks.
class CaptionOverlay : public render::FrameOverlay {
public:
    CaptionOverlay(CaptionTrack track, project::CaptionStyle style);

    void draw(const render::ImageView& out, const render::PictureMapping& picture,
              double t) const override;
    std::vector<double> stateKey(double t) const override;

private:
    const CaptionPage* pageAt(double t) const;

    CaptionTrack m_track;
    project::CaptionStyle m_style;
    // Each segment's pages, laid out once for the style (every frame asks twice).
    std::vector<std::vector<CaptionPage>> m_pages;
};

// Makes every render plan burn in the recording's captions when its recipe shows them.
void registerBurnIn();

}  // namespace quillo::captions
