#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "base/geometry.h"
#include "camera_overlay.h"
#include "cursor_renderer.h"
#include "image.h"
#include "project/edits.h"

namespace quillo::render {

// Whole-pixel rectangle.
struct PixelRect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

// Where the recording's pixels land in a finished frame at one moment (zoom, reframe and
// backdrop together): output = origin + source · scale, visible only inside `clip`.
struct PictureMapping {
    double scaleX = 1;
    double scaleY = 1;
    double originX = 0;
    double originY = 0;
    PixelRect clip;
};

// Something drawn into every frame at a fixed step of the routine: redactions over the picture
// before the cursor, captions over the finished canvas last.
class FrameOverlay {
public:
    virtual ~FrameOverlay() = default;
    // Draws onto the finished frame `out` for recording time t; `picture` places the recording.
    virtual void draw(const ImageView& out, const PictureMapping& picture, double t) const = 0;
    // What the drawing at t depends on: equal keys draw equal pictures (by default every moment
    // differs).
    virtual std::vector<double> stateKey(double t) const { return {t}; }
};

// Renders finished frames of one recording with one recipe: redactions, click rings and cursor
// on the recording's picture, the reframe window, the zoom camera, the backdrop frame, then
// captions. Everything that does not change from frame to frame (the backdrop, its shadow and
// the rounded-corner mask) is drawn once here; a frame depends only on the recipe and its time.
class FrameRenderer {
public:
    // `source` is the recording's pixel size, `output` the finished frame's. `camera` is the
    // pixel size of the webcam footage recorded beside it, when there is any: only then does
    // the recipe's camera style lay out the frame and draw the camera.
    FrameRenderer(project::Edits edits, Size source, Size output,
                  std::shared_ptr<const CursorRenderer> cursor,
                  std::optional<Size> camera = std::nullopt);

    void setRedactions(std::shared_ptr<const FrameOverlay> overlay) { m_redactions = overlay; }
    void setCaptions(std::shared_ptr<const FrameOverlay> overlay) { m_captions = overlay; }

    const project::Edits& edits() const { return m_edits; }
    int outputWidth() const { return m_width; }
    int outputHeight() const { return m_height; }
    // Where the picture lands in the output frame (empty when only the camera shows).
    PixelRect picture() const { return m_picture; }
    // Whether frames show the camera, and the size to read its footage at.
    bool drawsCamera() const { return m_camera.has_value(); }
    Size cameraReadSize() const;

    // Where things are at recording time t, worked out once per frame: the shown part of the
    // recording, the zoom and the picture's mapping, and a key of everything besides the
    // recording's picture that the frame depends on. Two moments with equal keys and equal
    // recording frames render equal frames, so an exporter may reuse one.
    struct View {
        PixelRect shown;  // the part of the recording in the picture
        double amount = 1;
        PictureMapping mapping;
    };
    struct Moment {
        double t = 0;
        View view;
        std::vector<double> key;
    };
    Moment moment(double t) const;

    // The finished frame into `out` (outputWidth × outputHeight) from `screen`, the
    // recording's frame at the moment's time (left unchanged).
    void render(const ImageView& screen, const Moment& moment, const ImageView& out) const {
        render(screen, ImageView{}, moment, out);
    }
    // The same with the camera's frame of that moment (empty: the camera place stays bare).
    void render(const ImageView& screen, const ImageView& camera, const Moment& moment,
                const ImageView& out) const;
    // The two halves of that: the framed screen with everything on it (the part that stays
    // while only the camera moves), then the camera and the captions over it.
    void renderScreen(const ImageView& screen, const Moment& moment, const ImageView& out) const;
    void finish(const ImageView& camera, const Moment& moment, const ImageView& out) const;
    // Puts back `base` (a frame from renderScreen) wherever finish() draws into `out`, so a
    // moment with the same screen needs only finish() again.
    void restoreCameraArea(const ImageView& base, const ImageView& out) const;
    // What restoreCameraArea() and finish() change: the camera's place, or none when it is the
    // whole frame (captions are drawn over everything).
    std::optional<PixelRect> cameraArea() const;
    void render(const ImageView& screen, double t, const ImageView& out) const {
        render(screen, moment(t), out);
    }

    // The part of the recording shown at t before zooming (the reframe window), in pixels.
    PixelRect area(double t) const;

private:
    View view(double t) const;
    void prepareBackdrop();
    void blendCorners(const ImageView& out) const;
    // The recording's picture with redactions, cursor and rounded corners.
    void drawScreen(const ImageView& screen, const View& view, double t,
                    const ImageView& out) const;
    void drawPicture(const ImageView& screen, const View& view, const ImageView& out) const;

    project::Edits m_edits;
    Size m_source;
    int m_width = 0;
    int m_height = 0;
    std::shared_ptr<const CursorRenderer> m_cursor;
    std::shared_ptr<const FrameOverlay> m_redactions;
    std::shared_ptr<const FrameOverlay> m_captions;
    std::optional<Size> m_cameraSize;
    std::optional<CameraOverlay> m_camera;

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
