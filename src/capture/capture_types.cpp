#include "capture_types.h"

namespace quillo::capture {

std::shared_ptr<CapturedFrame> makeFrame(int width, int height, uint64_t serial) {
    auto buffer = std::make_shared<std::vector<uint8_t>>(static_cast<size_t>(width) * height * 4);
    auto frame = std::make_shared<CapturedFrame>();
    frame->pixels = buffer->data();
    frame->width = width;
    frame->height = height;
    frame->stride = width * 4;
    frame->serial = serial;
    frame->owner = buffer;
    return frame;
}

}  // namespace quillo::capture
