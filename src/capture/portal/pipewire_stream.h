#pragma once

// A PipeWire video stream from the ScreenCast portal, read in shared memory. The compositor
// sends a buffer only when the screen changes; the stream keeps the latest picture (cropped to
// the shared window where the buffer carries a crop region), the pointer from the cursor
// metadata where the portal sends it, and whether the stream has ended. No PipeWire header
// here: SPA's macros stay inside the .cpp.

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

#include "base/geometry.h"
#include "base/result.h"
#include "capture/capture_types.h"

namespace quillo::capture::portal {

class PipeWireStream {
public:
    // Connects to `node` on the PipeWire remote `fd` (the portal's; the stream keeps a
    // duplicate), asking for at most `maxFps` frames a second. Waits up to `seconds` for the
    // format to be agreed.
    static Result<std::unique_ptr<PipeWireStream>> open(int fd, uint32_t node, int maxFps,
                                                        double seconds = 5);
    ~PipeWireStream();
    PipeWireStream(const PipeWireStream&) = delete;
    PipeWireStream& operator=(const PipeWireStream&) = delete;

    // The latest picture; null before the first.
    FramePtr latest() const;
    // The picture's size: the latest frame's, or the agreed format's before the first frame.
    Size size() const;
    // Where the picture's top left lies in the stream's full buffer (a shared window's place on
    // its monitor); nothing without a crop region.
    Point cropOrigin() const;
    // The pointer in picture pixels while the cursor metadata says it is over the source.
    std::optional<Point> pointer() const;
    // The last cursor bitmap the metadata carried, with its hot spot.
    std::optional<CursorImage> cursorImage() const;
    // True once the portal or PipeWire ended the stream (the window closed, sharing revoked).
    bool ended() const { return m_ended.load(); }
    // Pictures the compositor delivered (cursor-only buffers not counted).
    uint64_t delivered() const { return m_delivered.load(); }
    // Waits up to `seconds` for the first picture; true when there is one.
    bool waitForFirstFrame(double seconds) const;

    struct Impl;

private:
    PipeWireStream();
    std::unique_ptr<Impl> m_impl;
    std::atomic<bool> m_ended{false};
    std::atomic<uint64_t> m_delivered{0};
};

}  // namespace quillo::capture::portal
