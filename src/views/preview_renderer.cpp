#include "preview_renderer.h"

#include <algorithm>

namespace quillo::views {

namespace {

constexpr const char* kUnreadable = "The recording could not be read.";

AppError unreadable(const AppError& cause) {
    return AppError(kUnreadable, cause.detail.empty() ? cause.message
                                                      : cause.message + " (" + cause.detail + ")");
}

// Frames in flight at most: the playback queue, the one on screen and one being replaced.
constexpr size_t kPoolSize = 8;
// Decoding on from the last frame is quick for this many seconds (about 30 frames); further, or
// backwards, the reader seeks and decodes from a keyframe.
constexpr double kNear = 1.0;

}  // namespace

Result<void> PreviewRenderer::setRecipe(const PreviewRecipe& recipe) {
    auto plan = render::renderPlan(recipe.folder, recipe.edits, std::nullopt, recipe.size);
    if (!plan) {
        m_plan.reset();
        return unreadable(plan.error());
    }
    if (!m_reader || m_readerMovie != plan->movie) {
        auto reader = media::MovieReader::open(plan->movie);
        if (!reader) {
            m_plan.reset();
            return unreadable(reader.error());
        }
        m_reader = std::move(*reader);
        m_readerMovie = plan->movie;
        m_last.reset();
    }
    auto camera = render::openCameraFeed(*plan);
    if (!camera) {
        m_plan.reset();
        return unreadable(camera.error());
    }
    m_camera = std::move(*camera);
    m_plan = std::move(*plan);
    return {};
}

std::shared_ptr<PreviewFrame> PreviewRenderer::freeFrame() {
    const int width = m_plan->renderer->outputWidth();
    const int height = m_plan->renderer->outputHeight();
    for (auto& frame : m_pool) {
        if (frame.use_count() == 1 && frame->image.width == width &&
            frame->image.height == height) {
            return frame;
        }
    }
    auto frame = std::make_shared<PreviewFrame>();
    frame->image = render::Image(width, height);
    // Frames of an older size, or more than the pool holds, go once they are let go.
    std::erase_if(m_pool, [&](const auto& f) {
        return f.use_count() == 1 && (f->image.width != width || f->image.height != height);
    });
    if (m_pool.size() < kPoolSize) {
        m_pool.push_back(frame);
    }
    return frame;
}

Result<std::shared_ptr<PreviewFrame>> PreviewRenderer::render(double t) {
    if (!m_plan) {
        return AppError("Nothing to show yet.");
    }
    if (auto read = m_reader->frame(t, {}, m_screen); !read) {
        return unreadable(read.error());
    }
    m_last = t;
    return compose(t);
}

bool PreviewRenderer::far(double t) const { return !m_last || t < *m_last || t > *m_last + kNear; }

Result<std::shared_ptr<PreviewFrame>> PreviewRenderer::renderKeyFrame(double t) {
    if (!m_plan) {
        return AppError("Nothing to show yet.");
    }
    if (auto read = m_reader->keyFrame(t, {}, m_screen); !read) {
        return unreadable(read.error());
    }
    m_last = m_screen.time;
    return compose(m_screen.time);
}

std::shared_ptr<PreviewFrame> PreviewRenderer::compose(double t) {
    std::shared_ptr<PreviewFrame> frame = freeFrame();
    const render::FrameRenderer& renderer = *m_plan->renderer;
    render::FrameRenderer::Moment moment = renderer.moment(t);
    render::ImageView screen{m_screen.pixels.data(), m_screen.width, m_screen.height,
                             m_screen.stride};
    render::ImageView camera;
    if (m_camera) {
        // A camera frame that cannot be read leaves the camera's place bare.
        if (auto read = m_camera->frame(t)) {
            const media::VideoFrame& c = **read;
            camera = {const_cast<uint8_t*>(c.pixels.data()), c.width, c.height, c.stride};
        }
    }
    renderer.render(screen, camera, moment, frame->image.view());
    frame->time = t;
    frame->mapping = moment.view.mapping;
    frame->source = m_plan->sourceSize;
    frame->playing = false;
    return frame;
}

}  // namespace quillo::views
