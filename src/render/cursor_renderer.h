#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <vector>

#include "base/geometry.h"
#include "base/result.h"
#include "cursor_theme.h"
#include "image.h"
#include "project/cursor_track.h"
#include "project/edits.h"

namespace quillo::render {

// Draws a recording's separately recorded pointer back into its frames: the recorded shapes or
// a theme's art, on the smoothed path, fading when idle, over click rings. Immutable after
// loading, so frames may be drawn from several threads.
class CursorRenderer {
public:
    CursorRenderer(project::CursorTrack track, std::map<int64_t, Image> shapes);

    // The renderer of a project folder: none when it has no "cursor.json"; an error when that
    // file is unreadable. Missing shape pictures are left out (a drawn arrow stands in).
    static Result<std::optional<CursorRenderer>> load(const std::filesystem::path& folder);

    const project::CursorTrack& track() const { return m_track; }

    // Whether a cursor is drawn with `style` (absent: the default, visible style).
    bool drawsCursor(const std::optional<project::CursorStyle>& style) const;

    // Draws the click rings (when `clickHighlights`) and then the cursor at recording time t
    // onto `picture`, a frame of the recording at any pixel size.
    void draw(const ImageView& picture, double t, const std::optional<project::CursorStyle>& style,
              bool clickHighlights) const;
    // The same through a Cairo context whose user space is a picture of `size` pixels (the
    // compositor maps that onto the zoomed, framed output, so art is drawn at output resolution).
    void draw(cairo_t* cr, Size size, double t, const std::optional<project::CursorStyle>& style,
              bool clickHighlights) const;

    // What the cursor drawing at t depends on: equal keys draw equal pictures. Empty when
    // nothing is drawn.
    std::vector<double> stateKey(double t, const std::optional<project::CursorStyle>& style,
                                 bool clickHighlights) const;

    // The point a following zoom centres on at t (unit coordinates): the cursor style's
    // smoothing when the cursor is drawn, else the raw path.
    std::optional<Point> camera(double t, const std::optional<project::CursorStyle>& style) const;

    // Draws a theme's art with its tip at `tip` (pixels) and `height` pixels tall, animated for
    // time t.
    static void themed(cairo_t* cr, const CursorTheme& theme, const CursorTheme::Art& art,
                       Point tip, double height, double opacity, double t,
                       const project::CursorTrack* track, Size picture);

private:
    project::CursorTrack m_track;
    std::map<int64_t, Image> m_shapes;
};

}  // namespace quillo::render
