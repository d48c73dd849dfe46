#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "base/geometry.h"
#include "base/result.h"
#include "media/movie_reader.h"
#include "project/edits.h"
#include "render/exporter.h"
#include "render/frame_renderer.h"
#include "render/image.h"

namespace quillo::views {

// What the preview renders: the recipe of the recording in project `folder`, at `size` pixels.
struct PreviewRecipe {
    std::filesystem::path folder;
    project::Edits edits;
    Size size;
};

// One finished frame and where the recording's pixels lie in it.
struct PreviewFrame {
    double time = 0;  // recording seconds
    render::Image image;
    render::PictureMapping mapping;
    Size source;           // the recording's pixel size
    bool playing = false;  // shown by playback rather than asked for
};

// Finished frames of one recording for the preview: the render plan of the current recipe and
// one movie reader kept open, so that a frame a little after the last one decodes on and others
// seek. Frames come from a small pool and are reused once nobody holds them any more. Used by
// one thread (the preview's render thread).
class PreviewRenderer {
public:
    // Plans `recipe` (keeping the reader when the movie is the same).
    Result<void> setRecipe(const PreviewRecipe& recipe);
    bool ready() const { return m_plan.has_value(); }
    const render::RenderPlan& plan() const { return *m_plan; }

    // The finished frame at recording time t.
    Result<std::shared_ptr<PreviewFrame>> render(double t);
    // Whether the frame at t is far enough from the last one that decoding it takes long: a
    // keyframe is then worth showing first.
    bool far(double t) const;
    // The finished frame of the recording's keyframe at or before t (its time is the
    // keyframe's).
    Result<std::shared_ptr<PreviewFrame>> renderKeyFrame(double t);

private:
    std::shared_ptr<PreviewFrame> freeFrame();
    std::shared_ptr<PreviewFrame> compose(double t);

    std::optional<render::RenderPlan> m_plan;
    std::unique_ptr<media::MovieReader> m_reader;
    std::filesystem::path m_readerMovie;
    std::optional<double> m_last;  // the recording time the reader decoded last
    media::VideoFrame m_screen;
    std::unique_ptr<render::CameraFeed> m_camera;  // when the frames show the webcam
    std::vector<std::shared_ptr<PreviewFrame>> m_pool;
};

}  // namespace quillo::views
