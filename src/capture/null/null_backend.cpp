// The backend without a display: nothing to list, every action refused with one message.

#include "capture/display_backend.h"

namespace quillo::capture {

namespace {

constexpr const char* kNoDisplay =
    "No display is available. Start Quillo in a desktop session to record.";

class NullBackend final : public DisplayBackend {
public:
    std::string name() const override { return "none"; }
    Result<std::vector<WindowInfo>> windows() override { return std::vector<WindowInfo>{}; }
    Result<std::vector<MonitorInfo>> monitors() override { return std::vector<MonitorInfo>{}; }
    std::optional<WindowInfo> window(uint32_t) override { return std::nullopt; }
    std::optional<Point> pointer() override { return std::nullopt; }
    std::optional<CursorImage> cursorImage() override { return std::nullopt; }
    Result<Size> resizeWindow(uint32_t, Size) override { return AppError(kNoDisplay); }
    Result<std::optional<SourceRef>> pick(bool, double, CancelToken) override {
        return AppError(kNoDisplay);
    }
    Result<std::unique_ptr<ScreenGrabber>> grabber() override { return AppError(kNoDisplay); }
    Result<std::unique_ptr<InputWatcher>> watchInput(
        std::function<void(const InputEvent&)>) override {
        return AppError(kNoDisplay);
    }
};

}  // namespace

std::shared_ptr<DisplayBackend> makeNullBackend() { return std::make_shared<NullBackend>(); }

}  // namespace quillo::capture
