// The portal backend: the shared source is whatever the portal's session streams, so the
// "screen" this backend describes is that stream's picture. Windows and monitors list only the
// source being shared; the pointer comes from the stream's cursor metadata where the portal
// sends it, and is otherwise already drawn in the picture.

#include "portal_backend.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <mutex>

#include "base/log.h"
#include "base/paths.h"
#include "kernel_input.h"
#include "pipewire_stream.h"
#include "portal_texts.h"
#include "restore_tokens.h"
#include "screencast_portal.h"
#include "sway_windows.h"

namespace quillo::capture::portal {

namespace {

// One running screen cast: the portal's session and the PipeWire stream reading it.
struct Share {
    std::unique_ptr<ScreenCastSession> session;
    std::unique_ptr<PipeWireStream> stream;
    uint32_t id = 0;
    bool window = false;

    bool ended() const { return stream->ended() || session->closed(); }
    Rect frame() const {
        Size size = stream->size();
        return {0, 0, size.width, size.height};
    }
};

// What the backend and its grabbers share.
struct State {
    std::mutex mutex;
    std::shared_ptr<Share> current;  // guarded by mutex
    std::shared_ptr<Share> retired;  // the previous share, until the new one is grabbed

    std::shared_ptr<Share> share() {
        std::lock_guard lock(mutex);
        return current;
    }
};

// Source-over of a premultiplied cursor picture onto a BGRA picture.
void blendCursor(const CursorImage& cursor, int left, int top, uint8_t* pixels, int width,
                 int height, int stride) {
    for (int row = std::max(0, -top); row < cursor.height && top + row < height; ++row) {
        auto* line = reinterpret_cast<uint32_t*>(pixels + static_cast<size_t>(top + row) * stride);
        const uint32_t* source = cursor.argb.data() + static_cast<size_t>(row) * cursor.width;
        for (int column = std::max(0, -left); column < cursor.width && left + column < width;
             ++column) {
            uint32_t argb = source[column];
            uint32_t keep = 255 - (argb >> 24);
            uint32_t& target = line[left + column];
            uint32_t blended = 0;
            for (int shift = 0; shift < 32; shift += 8) {
                uint32_t value = ((argb >> shift) & 0xff) + ((target >> shift) & 0xff) * keep / 255;
                blended |= std::min<uint32_t>(value, 255) << shift;
            }
            target = blended;
        }
    }
}

class PortalGrabber final : public ScreenGrabber {
public:
    explicit PortalGrabber(std::shared_ptr<State> state) : m_state(std::move(state)) {}
    ~PortalGrabber() override {
        if (m_taken > 0) {
            uint64_t delivered = m_lastSerial - m_firstSerial + 1;
            logInfo("app.quillo.capture", "screen cast pictures: " + std::to_string(delivered) +
                                              " delivered, " + std::to_string(m_taken) +
                                              " taken, " + std::to_string(delivered - m_taken) +
                                              " replaced before they were taken");
        }
    }

    bool changed(const Rect& area) override {
        auto share = m_state->share();
        FramePtr frame = share ? share->stream->latest() : nullptr;
        if (!frame) {
            return m_lastSerial != 0 || area != m_lastArea || !m_waited;
        }
        return frame->serial != m_lastSerial || area != m_lastArea;
    }

    Result<FramePtr> grab(const Rect& area, bool drawCursor) override {
        auto share = m_state->share();
        if (!share) {
            return AppError("Choose a source before recording.");
        }
        // Some compositors send the first picture only when the screen next changes; until
        // then the source shows as black, so a still screen can be recorded at once.
        if (!share->stream->waitForFirstFrame(m_waited ? 0 : 0.5)) {
            m_waited = true;
            Size size = share->stream->size();
            m_lastSerial = 0;
            m_lastArea = area;
            return FramePtr(makeFrame(std::max(2, static_cast<int>(size.width)),
                                      std::max(2, static_cast<int>(size.height)), 0));
        }
        FramePtr frame = share->stream->latest();
        if (frame->serial != m_lastSerial) {
            m_firstSerial = m_taken == 0 ? frame->serial : m_firstSerial;
            ++m_taken;
        }
        m_lastSerial = frame->serial;
        m_lastArea = area;
        int left = std::clamp(static_cast<int>(std::lround(area.x)), 0, frame->width - 1);
        int top = std::clamp(static_cast<int>(std::lround(area.y)), 0, frame->height - 1);
        int width = std::clamp(static_cast<int>(std::lround(area.width)), 1, frame->width - left);
        int height = std::clamp(static_cast<int>(std::lround(area.height)), 1, frame->height - top);
        std::optional<Point> pointer = drawCursor ? share->stream->pointer() : std::nullopt;
        std::optional<CursorImage> cursor = pointer ? share->stream->cursorImage() : std::nullopt;
        bool whole = left == 0 && top == 0 && width == frame->width && height == frame->height;
        if (whole && !cursor) {
            return frame;
        }
        auto copy = makeFrame(width, height, frame->serial);
        auto* target = const_cast<uint8_t*>(copy->pixels);
        for (int row = 0; row < height; ++row) {
            std::memcpy(target + static_cast<size_t>(row) * copy->stride,
                        frame->pixels + static_cast<size_t>(top + row) * frame->stride + left * 4,
                        static_cast<size_t>(width) * 4);
        }
        if (cursor && !cursor->argb.empty()) {
            blendCursor(*cursor, static_cast<int>(pointer->x) - cursor->hotX - left,
                        static_cast<int>(pointer->y) - cursor->hotY - top, target, width, height,
                        copy->stride);
        }
        return FramePtr(copy);
    }

private:
    std::shared_ptr<State> m_state;
    uint64_t m_lastSerial = 0;
    Rect m_lastArea;
    bool m_waited = false;  // for the first picture, once
    uint64_t m_firstSerial = 0;
    uint64_t m_taken = 0;  // distinct pictures handed on
};

class PortalBackend final : public DisplayBackend {
public:
    PortalBackend() : m_tokens(supportFolder() / "screencast-tokens.json") {}

    std::string name() const override { return "portal"; }

    Result<std::vector<WindowInfo>> windows() override {
        std::vector<WindowInfo> list;
        if (auto info = shared(true)) {
            list.push_back({info->id, texts::kSharedWindow, "", 0, info->frame()});
        }
        return list;
    }

    Result<std::vector<MonitorInfo>> monitors() override {
        std::vector<MonitorInfo> list;
        if (auto info = shared(false)) {
            list.push_back({info->id, texts::kSharedDisplay, info->frame()});
        }
        return list;
    }

    std::optional<WindowInfo> window(uint32_t id) override {
        auto info = shared(true, id);
        if (!info) {
            return std::nullopt;
        }
        return WindowInfo{info->id, texts::kSharedWindow, "", 0, info->frame()};
    }

    std::optional<Point> pointer() override {
        auto share = m_state->share();
        return share ? share->stream->pointer() : std::nullopt;
    }

    std::optional<CursorImage> cursorImage() override {
        auto share = m_state->share();
        return share ? share->stream->cursorImage() : std::nullopt;
    }

    bool postsPointerInput() const override { return m_remoteInput.load(); }

    std::string agentInput() const override {
        return m_remoteInput ? "accessibility, then the user's pointer" : "accessibility";
    }

    Result<std::unique_ptr<AgentDevices>> agentDevices() override {
        if (!m_remoteInput || !m_portal) {
            return AppError(
                "This desktop doesn't let Quillo move the pointer or press keys in "
                "other apps.");
        }
        std::weak_ptr<State> state = m_state;
        return m_portal->remoteDesktop(
            [state] {
                auto alive = state.lock();
                auto share = alive ? alive->share() : nullptr;
                return share ? share->stream->cropOrigin() : Point{};
            },
            120);
    }

    std::vector<WindowInfo> windowsInPicture() override {
        auto share = m_state->share();
        if (!share || share->window) {
            return {};
        }
        ShownWindows shown = swayWindows();
        for (WindowInfo& window : shown.windows) {
            window.frame.x -= share->session->position.x;
            window.frame.y -= share->session->position.y;
        }
        return shown.windows;
    }

    std::optional<int32_t> focusedProcess() override {
        ShownWindows shown = swayWindows();
        for (const WindowInfo& window : shown.windows) {
            if (shown.focused == window.id) {
                return window.pid;
            }
        }
        return std::nullopt;
    }

    bool pointerInPicture() const override {
        auto share = m_state->share();
        return share && !share->session->cursorMetadata;
    }

    void setFrameRate(int fps) override { m_fps = std::max(1, fps); }

    Result<Size> resizeWindow(uint32_t, Size) override { return AppError(texts::kNoResize); }

    Result<std::optional<SourceRef>> pick(bool displayOnly, double timeout,
                                          CancelToken cancel) override {
        std::lock_guard picking(m_picking);
        if (!m_portal) {
            auto connected = ScreenCastPortal::connect();
            if (!connected) {
                return connected.error();
            }
            m_portal = std::move(*connected);
        }
        const ScreenCastOffer& offer = m_portal->offer();
        m_remoteInput = (offer.remoteDevices & 2) != 0;
        bool window = !displayOnly;
        if (window && !offer.windows()) {
            return AppError(texts::kOnlyDisplays);
        }
        if (!window && !offer.monitors()) {
            return AppError(texts::kOnlyWindows);
        }
        std::string token = m_tokens.get(window);
        if (m_tokens.takeDamaged()) {
            notice(texts::kChoiceDamaged);
        }
        if (!token.empty() && !m_portal->remembers(token)) {
            notice(texts::kChoiceForgotten);
            m_tokens.set(window, "");
            token.clear();
        }
        auto started = m_portal->start(window, token, timeout, cancel);
        if (!started) {
            return started.error();
        }
        if (!*started) {
            return std::optional<SourceRef>();
        }
        auto share = std::make_shared<Share>();
        share->session = std::move(**started);
        m_tokens.set(window, share->session->restoreToken);
        // The recorder takes a picture on each tick of its 1/fps grid; pictures arriving a
        // little under that rate never share a tick, so none is replaced before it is taken.
        int rate = std::max(1, m_fps - std::max(1, m_fps / 10));
        auto stream = PipeWireStream::open(share->session->fd(), share->session->node, rate);
        if (!stream) {
            return stream.error();
        }
        share->stream = std::move(*stream);
        share->window = share->session->window;
        share->id = share->session->node;
        // The size is known from the first picture (a window's crop comes with it).
        share->stream->waitForFirstFrame(1);
        {
            std::lock_guard lock(m_state->mutex);
            m_state->retired = std::move(m_state->current);
            m_state->current = share;
        }
        logInfo("app.quillo.capture",
                std::string("sharing a ") + (share->window ? "window" : "display") + " of " +
                    std::to_string(static_cast<int>(share->frame().width)) + "×" +
                    std::to_string(static_cast<int>(share->frame().height)) +
                    " through the portal");
        return std::optional(SourceRef{
            share->window ? SourceRef::Kind::Window : SourceRef::Kind::Display, share->id});
    }

    std::optional<bool> rememberedChoice() override { return m_tokens.last(); }

    std::optional<std::string> takeNotice() override {
        std::lock_guard lock(m_state->mutex);
        if (m_notices.empty()) {
            return std::nullopt;
        }
        std::string first = m_notices.front();
        m_notices.erase(m_notices.begin());
        return first;
    }

    Result<std::unique_ptr<ScreenGrabber>> grabber() override {
        std::shared_ptr<Share> retired;
        {
            std::lock_guard lock(m_state->mutex);
            retired = std::move(m_state->retired);
        }
        return std::unique_ptr<ScreenGrabber>(std::make_unique<PortalGrabber>(m_state));
    }

    Result<std::unique_ptr<InputWatcher>> watchInput(
        std::function<void(const InputEvent&)> onInput) override;

private:
    // The share answering for a window (or a display) with `id` (any id: 0), while it lasts.
    std::shared_ptr<Share> shared(bool window, uint32_t id = 0) {
        std::lock_guard lock(m_state->mutex);
        for (const auto& share : {m_state->current, m_state->retired}) {
            if (share && share->window == window && (id == 0 || share->id == id) &&
                !share->ended()) {
                return share;
            }
        }
        return nullptr;
    }

    void notice(const std::string& text) {
        std::lock_guard lock(m_state->mutex);
        m_notices.push_back(text);
    }

    std::shared_ptr<State> m_state = std::make_shared<State>();
    std::mutex m_picking;  // one dialog at a time
    std::unique_ptr<ScreenCastPortal> m_portal;
    RestoreTokens m_tokens;
    std::vector<std::string> m_notices;  // guarded by m_state->mutex
    int m_fps = 30;
    std::atomic<bool> m_remoteInput{false};  // the RemoteDesktop portal offers a pointer
};

Result<std::unique_ptr<InputWatcher>> PortalBackend::watchInput(
    std::function<void(const InputEvent&)> onInput) {
    return watchKernelInput(std::move(onInput));
}

}  // namespace

std::shared_ptr<DisplayBackend> makePortalBackend() { return std::make_shared<PortalBackend>(); }

}  // namespace quillo::capture::portal
