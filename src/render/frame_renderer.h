#pragma once

#include <memory>
#include <optional>

#include "base/geometry.h"
#include "cursor_renderer.h"
#include "image.h"
#include "project/edits.h"

namespace quillo::render {

// Something drawn into every frame at a fixed step of the routine: redactions onto the
// recording's picture before the cursor, captions onto the finished canvas last.
class FrameOverlay {
public:
    virtual ~FrameOverlay() = default;
    // Draws onto `image` for recording time `t`. Called from the rendering thread only.
    virtual void draw(const ImageView& image, double t) const = 0;
};

// Whole-pixel rectangle.
struct PixelRect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

// Renders finished frames of one recording with one recipe: redactions, click rings and cursor
// on the recording's picture, the reframe window, the zoom camera, the backdrop frame, then
// captions. Everything that does not change from frame to frame (the backdrop, its shadow and
// the rounded-corner mask) is drawn once here; a frame depends only on the recipe and its time.
class FrameRenderer {
public:
    // `source` is the recording's pixel size, `output` the finished frame's.
    FrameRenderer(project::Edits edits, Size source, Size output,
                  std::shared_ptr<const CursorRenderer> cursor);

    void setRedactions(std::shared_ptr<const FrameOverlay> overlay) { m_redactions = overlay; }
    void setCaptions(std::shared_ptr<const FrameOverlay> overlay) { m_captions = overlay; }

    const project::Edits& edits() const { return m_edits; }
    int outputWidth() const { return m_width; }
    int outputHeight() const { return m_height; }
    // Where the picture lands in the output frame.
    PixelRect picture() const { return m_picture; }

    // The finished frame for recording time t into `out` (outputWidth × outputHeight) from
    // `screen`, the recording's frame at t, which is drawn on (redactions, cursor).
    void render(const ImageView& screen, double t, const ImageView& out) const;

    // The part of the recording shown at t before zooming (the reframe window), in pixels.
    PixelRect area(double t) const;

private:
    void prepareBackdrop();
    void blendCorners(const ImageView& out) const;
    void drawPicture(const ImageView& screen, const PixelRect& shown, double amount,
                     Point focusPoint, const ImageView& out) const;

    project::Edits m_edits;
    Size m_source;
    int m_width = 0;
    int m_height = 0;
    std::shared_ptr<const CursorRenderer> m_cursor;
    std::shared_ptr<const FrameOverlay> m_redactions;
    std::shared_ptr<const FrameOverlay> m_captions;

    std::optional<double> m_reframeRatio;  // a "follow" reframe's shape
    PixelRect m_window;                    // its window size (position moves)
    PixelRect m_picture;
    Image m_backdrop;             // the finished frame around the picture
    std::vector<uint8_t> m_mask;  // rounded-corner coverage over m_picture, 255 inside
    int m_cornerSize = 0;         // side of the corner squares that need blending
};

// The zoom of a recipe active at recording time t, if any.
const project::ZoomSection* activeZoom(const project::Edits& edits, double t);

}  // namespace quillo::render
