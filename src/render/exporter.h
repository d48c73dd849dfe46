#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

#include "base/cancel_token.h"
#include "base/geometry.h"
#include "base/result.h"
#include "camera_footage.h"
#include "export_preset.h"
#include "frame_renderer.h"
#include "image.h"
#include "project/edits.h"
#include "project/time_map.h"

namespace quillo::render {

// Everything needed to render a recording's finished frames: planned once per export or
// preview, then asked for frames at output times.
struct RenderPlan {
    std::filesystem::path movie;  // the recording
    Size sourceSize;
    double sourceFPS = 30;
    bool hasSound = false;
    double duration = 0;  // seconds of finished video
    double fps = 30;      // frames per second of the finished video
    Size renderSize;
    std::shared_ptr<const project::TimeMap> map;
    std::shared_ptr<FrameRenderer> renderer;
    std::optional<CameraFootage> camera;  // the webcam recorded beside it, if any
};

// Reads a plan's camera footage for its renderer: none when the frames show no camera.
Result<std::unique_ptr<CameraFeed>> openCameraFeed(const RenderPlan& plan);

// Steps of the frame routine that live in modules above this one (redactions, captions): each
// registered source makes the overlay of one recording, or none. Every plan made after the
// call uses them. Thread-safe.
enum class OverlaySlot { Redactions, Captions };
using OverlaySource = std::function<std::shared_ptr<const FrameOverlay>(
    const std::filesystem::path& folder, const project::Edits& edits, Size source)>;
void registerOverlay(OverlaySlot slot, OverlaySource source);

// Plans the finished video of the recording in project `folder` for `edits`: the render size
// (`size`, else the canvas held to `maxDimension`), the frame rate (the recording's, capped by
// `fps`), the cursor from the folder's cursor track and the camera footage beside it. Error: "This
// recording cannot be exported."
Result<RenderPlan> renderPlan(const std::filesystem::path& folder, const project::Edits& edits,
                              std::optional<double> maxDimension = std::nullopt,
                              std::optional<Size> size = std::nullopt,
                              std::optional<double> fps = std::nullopt);

// The finished frame at recording time t (render_frame and the editor's still preview).
Result<Image> renderFrame(const RenderPlan& plan, double t);

using ExportProgress = std::function<void(double fraction)>;

// Writes the MP4 of a plan to `destination` (replacing what is there only once the movie is
// complete). Progress runs from 0 to 1; cancelling stops within a frame and leaves nothing.
// Errors: "This recording cannot be exported.", "The export could not be written.",
// "The export failed.", "The export could not be finished.", "The export was cancelled."
Result<void> exportMovie(const RenderPlan& plan, const std::filesystem::path& destination,
                         bool hevc, const ExportProgress& progress, const CancelToken& cancel);

// Writes an animated GIF at `fps`: max(1, ⌊duration × fps⌋) frames, frame i at i / fps.
// Errors: "Could not create the GIF.", "Could not finish the GIF.", "The export was cancelled."
Result<void> exportGIF(const RenderPlan& plan, const std::filesystem::path& destination, double fps,
                       const ExportProgress& progress, const CancelToken& cancel);

// Plans and writes one export job of the recording in `folder`.
Result<void> exportRecording(const std::filesystem::path& folder, const ExportSpec& spec,
                             const std::filesystem::path& destination,
                             const ExportProgress& progress, const CancelToken& cancel);

inline constexpr const char* kExportCancelled = "The export was cancelled.";

}  // namespace quillo::render
