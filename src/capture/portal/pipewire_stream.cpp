// The PipeWire side of a portal capture: a thread loop of PipeWire's own, one input stream on the
// portal's node, shared-memory buffers in a 32-bit RGB format, and the latest picture copied out
// of each buffer into a small pool of frames.

#include "pipewire_stream.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <unistd.h>
#include <vector>

#include <libyuv/convert_argb.h>

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic"
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
#pragma GCC diagnostic ignored "-Wold-style-cast"
#include <pipewire/pipewire.h>
#include <spa/buffer/meta.h>
#include <spa/param/video/format-utils.h>
#include <spa/pod/builder.h>
#pragma GCC diagnostic pop

#include "base/log.h"

namespace quillo::capture::portal {

namespace {

constexpr const char* kLog = "app.quillo.capture";
constexpr int kCursorLimit = 1024;  // largest cursor bitmap taken, in pixels a side

size_t cursorMetaSize(int width, int height) {
    return sizeof(spa_meta_cursor) + sizeof(spa_meta_bitmap) +
           static_cast<size_t>(width) * height * 4;
}

bool redFirst(uint32_t format) {
    return format == SPA_VIDEO_FORMAT_RGBx || format == SPA_VIDEO_FORMAT_RGBA;
}

// Pixel buffers no frame uses any more, handed back from whichever thread drops the last
// reference to a frame.
struct FramePool {
    std::mutex mutex;
    std::vector<std::unique_ptr<std::vector<uint8_t>>> free;  // guarded by mutex
};

}  // namespace

struct PipeWireStream::Impl {
    PipeWireStream* owner = nullptr;
    pw_thread_loop* loop = nullptr;
    pw_context* context = nullptr;
    pw_core* core = nullptr;
    pw_stream* stream = nullptr;
    spa_hook coreListener{};
    spa_hook streamListener{};
    pw_core_events coreEvents{};
    pw_stream_events streamEvents{};

    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    bool negotiated = false;            // guarded by mutex
    uint32_t format = 0;                // guarded by mutex
    Size formatSize;                    // guarded by mutex
    FramePtr latest;                    // guarded by mutex
    Point origin;                       // of the crop region; guarded by mutex
    std::optional<Point> pointer;       // guarded by mutex
    std::optional<CursorImage> cursor;  // guarded by mutex
    uint64_t serial = 0;
    std::shared_ptr<FramePool> pool = std::make_shared<FramePool>();

    std::shared_ptr<CapturedFrame> makePooledFrame(int width, int height) {
        size_t bytes = static_cast<size_t>(width) * height * 4;
        std::unique_ptr<std::vector<uint8_t>> buffer;
        {
            std::lock_guard lock(pool->mutex);
            while (!pool->free.empty() && !buffer) {
                buffer = std::move(pool->free.back());
                pool->free.pop_back();
                if (buffer->size() != bytes) {
                    buffer.reset();
                }
            }
        }
        if (!buffer) {
            buffer = std::make_unique<std::vector<uint8_t>>(bytes);
        }
        auto frame = std::make_shared<CapturedFrame>();
        frame->pixels = buffer->data();
        frame->width = width;
        frame->height = height;
        frame->stride = width * 4;
        frame->serial = ++serial;
        std::weak_ptr<FramePool> weakPool = pool;
        frame->owner = std::shared_ptr<std::vector<uint8_t>>(
            buffer.release(), [weakPool](std::vector<uint8_t>* used) {
                std::unique_ptr<std::vector<uint8_t>> owned(used);
                if (auto alive = weakPool.lock()) {
                    std::lock_guard lock(alive->mutex);
                    if (alive->free.size() < 4) {
                        alive->free.push_back(std::move(owned));
                    }
                }
            });
        return frame;
    }

    void ended(const char* why) {
        if (!owner->m_ended.exchange(true)) {
            logInfo(kLog, std::string("the screen cast stream ended: ") + why);
        }
        changed.notify_all();
    }

    void onParamChanged(uint32_t id, const spa_pod* param) {
        if (param == nullptr || id != SPA_PARAM_Format) {
            return;
        }
        uint32_t mediaType = 0, mediaSubtype = 0;
        if (spa_format_parse(param, &mediaType, &mediaSubtype) < 0 ||
            mediaType != SPA_MEDIA_TYPE_video || mediaSubtype != SPA_MEDIA_SUBTYPE_raw) {
            return;
        }
        spa_video_info_raw info{};
        if (spa_format_video_raw_parse(param, &info) < 0) {
            return;
        }
        {
            std::lock_guard lock(mutex);
            format = info.format;
            formatSize = {static_cast<double>(info.size.width),
                          static_cast<double>(info.size.height)};
            negotiated = true;
        }
        changed.notify_all();

        uint8_t storage[1024];
        spa_pod_builder builder = SPA_POD_BUILDER_INIT(storage, sizeof storage);
        const spa_pod* params[4];
        int dataTypes = (1 << SPA_DATA_MemFd) | (1 << SPA_DATA_MemPtr);
        params[0] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
            &builder, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers, SPA_PARAM_BUFFERS_dataType,
            SPA_POD_CHOICE_FLAGS_Int(dataTypes)));
        params[1] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
            &builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
            SPA_POD_Id(SPA_META_Header), SPA_PARAM_META_size,
            SPA_POD_Int(static_cast<int>(sizeof(spa_meta_header)))));
        params[2] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
            &builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
            SPA_POD_Id(SPA_META_VideoCrop), SPA_PARAM_META_size,
            SPA_POD_Int(static_cast<int>(sizeof(spa_meta_region)))));
        params[3] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
            &builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
            SPA_POD_Id(SPA_META_Cursor), SPA_PARAM_META_size,
            SPA_POD_CHOICE_RANGE_Int(
                static_cast<int>(cursorMetaSize(64, 64)), static_cast<int>(cursorMetaSize(1, 1)),
                static_cast<int>(cursorMetaSize(kCursorLimit, kCursorLimit)))));
        pw_stream_update_params(stream, params, 4);
    }

    // The cursor metadata: where the pointer is, and a new picture when one came.
    void readCursor(spa_buffer* buffer, const Rect& crop) {
        auto* meta = static_cast<spa_meta_cursor*>(
            spa_buffer_find_meta_data(buffer, SPA_META_Cursor, sizeof(spa_meta_cursor)));
        if (meta == nullptr) {
            return;
        }
        std::lock_guard lock(mutex);
        if (!spa_meta_cursor_is_valid(meta)) {
            pointer.reset();
            return;
        }
        pointer = Point{meta->position.x - crop.x, meta->position.y - crop.y};
        if (meta->bitmap_offset < sizeof(spa_meta_cursor)) {
            return;
        }
        auto* bitmap = reinterpret_cast<spa_meta_bitmap*>(reinterpret_cast<uint8_t*>(meta) +
                                                          meta->bitmap_offset);
        if (!spa_meta_bitmap_is_valid(bitmap)) {
            return;
        }
        CursorImage image;
        image.hotX = meta->hotspot.x;
        image.hotY = meta->hotspot.y;
        image.serial = cursor ? cursor->serial + 1 : 1;
        if (bitmap->offset >= sizeof(spa_meta_bitmap) && bitmap->size.width > 0 &&
            bitmap->size.height > 0 && bitmap->size.width <= kCursorLimit &&
            bitmap->size.height <= kCursorLimit) {
            image.width = static_cast<int>(bitmap->size.width);
            image.height = static_cast<int>(bitmap->size.height);
            const uint8_t* rows = reinterpret_cast<uint8_t*>(bitmap) + bitmap->offset;
            bool swap = redFirst(bitmap->format);
            image.argb.resize(static_cast<size_t>(image.width) * image.height);
            for (int y = 0; y < image.height; ++y) {
                const uint8_t* pixel = rows + static_cast<size_t>(y) * bitmap->stride;
                for (int x = 0; x < image.width; ++x, pixel += 4) {
                    uint32_t b = swap ? pixel[2] : pixel[0], g = pixel[1];
                    uint32_t r = swap ? pixel[0] : pixel[2], a = pixel[3];
                    // Portals send straight alpha; the cursor picture is premultiplied.
                    image.argb[static_cast<size_t>(y) * image.width + x] =
                        (a << 24) | ((r * a / 255) << 16) | ((g * a / 255) << 8) | (b * a / 255);
                }
            }
        }
        cursor = std::move(image);
    }

    void onProcess() {
        pw_buffer* last = nullptr;
        // Only the newest queued buffer matters; older ones go straight back (their cursor
        // positions are read on the way).
        while (pw_buffer* next = pw_stream_dequeue_buffer(stream)) {
            if (last != nullptr) {
                readCursor(last->buffer, cropOf(last->buffer));
                pw_stream_queue_buffer(stream, last);
            }
            last = next;
        }
        if (last == nullptr) {
            return;
        }
        spa_buffer* buffer = last->buffer;
        Rect crop = cropOf(buffer);
        readCursor(buffer, crop);
        spa_data& data = buffer->datas[0];
        bool picture = buffer->n_datas > 0 && data.data != nullptr && data.chunk->size > 0 &&
                       (data.chunk->flags & SPA_CHUNK_FLAG_CORRUPTED) == 0;
        if (picture) {
            copyPicture(data, crop);
        }
        pw_stream_queue_buffer(stream, last);
        changed.notify_all();
    }

    Rect cropOf(spa_buffer* buffer) {
        auto* region = static_cast<spa_meta_region*>(
            spa_buffer_find_meta_data(buffer, SPA_META_VideoCrop, sizeof(spa_meta_region)));
        if (region == nullptr || !spa_meta_region_is_valid(region)) {
            return {};
        }
        return {static_cast<double>(region->region.position.x),
                static_cast<double>(region->region.position.y),
                static_cast<double>(region->region.size.width),
                static_cast<double>(region->region.size.height)};
    }

    void copyPicture(const spa_data& data, const Rect& crop) {
        uint32_t pixelFormat;
        Size full;
        {
            std::lock_guard lock(mutex);
            pixelFormat = format;
            full = formatSize;
        }
        int stride =
            data.chunk->stride != 0 ? data.chunk->stride : static_cast<int>(full.width) * 4;
        int left = 0, top = 0;
        int width = static_cast<int>(full.width), height = static_cast<int>(full.height);
        if (crop.width > 0 && crop.height > 0) {
            left = std::clamp(static_cast<int>(crop.x), 0, width - 1);
            top = std::clamp(static_cast<int>(crop.y), 0, height - 1);
            width = std::min(static_cast<int>(crop.width), width - left);
            height = std::min(static_cast<int>(crop.height), height - top);
        }
        size_t offset = data.chunk->offset % std::max<uint32_t>(data.maxsize, 1);
        size_t needed = offset + static_cast<size_t>(top + height - 1) * stride +
                        static_cast<size_t>(left + width) * 4;
        if (width < 1 || height < 1 || stride < width * 4 || needed > data.maxsize) {
            return;
        }
        const uint8_t* source = static_cast<const uint8_t*>(data.data) + offset +
                                static_cast<size_t>(top) * stride + static_cast<size_t>(left) * 4;
        auto frame = makePooledFrame(width, height);
        auto* target = const_cast<uint8_t*>(frame->pixels);
        if (redFirst(pixelFormat)) {
            libyuv::ABGRToARGB(source, stride, target, frame->stride, width, height);
        } else {
            for (int row = 0; row < height; ++row) {
                std::memcpy(target + static_cast<size_t>(row) * frame->stride,
                            source + static_cast<size_t>(row) * stride,
                            static_cast<size_t>(width) * 4);
            }
        }
        {
            std::lock_guard lock(mutex);
            latest = std::move(frame);
            origin = {static_cast<double>(left), static_cast<double>(top)};
        }
        owner->m_delivered.fetch_add(1);
    }

    void onStateChanged(pw_stream_state old, pw_stream_state state, const char* error) {
        logInfo(kLog, std::string("screen cast stream: ") + pw_stream_state_as_string(old) + " → " +
                          pw_stream_state_as_string(state));
        if (state == PW_STREAM_STATE_ERROR) {
            ended(error != nullptr ? error : "error");
        } else if (state == PW_STREAM_STATE_UNCONNECTED && old != PW_STREAM_STATE_UNCONNECTED) {
            ended("unconnected");
        }
    }
};

PipeWireStream::PipeWireStream() : m_impl(std::make_unique<Impl>()) { m_impl->owner = this; }

Result<std::unique_ptr<PipeWireStream>> PipeWireStream::open(int fd, uint32_t node, int maxFps,
                                                             double seconds) {
    static std::once_flag initialised;
    std::call_once(initialised, [] { pw_init(nullptr, nullptr); });

    std::unique_ptr<PipeWireStream> made(new PipeWireStream());
    Impl& impl = *made->m_impl;
    impl.loop = pw_thread_loop_new("quillo.pipewire", nullptr);
    if (impl.loop == nullptr) {
        return AppError("Couldn't start reading the screen.", "pw_thread_loop_new failed");
    }
    impl.context = pw_context_new(pw_thread_loop_get_loop(impl.loop), nullptr, 0);
    if (impl.context == nullptr || pw_thread_loop_start(impl.loop) < 0) {
        return AppError("Couldn't start reading the screen.", "PipeWire context failed");
    }

    pw_thread_loop_lock(impl.loop);
    int copy = fcntl(fd, F_DUPFD_CLOEXEC, 3);
    impl.core = copy >= 0 ? pw_context_connect_fd(impl.context, copy, nullptr, 0) : nullptr;
    if (impl.core == nullptr) {
        pw_thread_loop_unlock(impl.loop);
        return AppError("Couldn't start reading the screen.",
                        "connecting to the portal's PipeWire remote failed");
    }
    impl.coreEvents.version = PW_VERSION_CORE_EVENTS;
    impl.coreEvents.error = [](void* data, uint32_t id, int, int, const char* message) {
        if (id == PW_ID_CORE) {
            static_cast<Impl*>(data)->ended(message);
        }
    };
    pw_core_add_listener(impl.core, &impl.coreListener, &impl.coreEvents, &impl);

    impl.stream = pw_stream_new(impl.core, "Quillo screen",
                                pw_properties_new(PW_KEY_MEDIA_TYPE, "Video", PW_KEY_MEDIA_CATEGORY,
                                                  "Capture", PW_KEY_MEDIA_ROLE, "Screen", nullptr));
    impl.streamEvents.version = PW_VERSION_STREAM_EVENTS;
    impl.streamEvents.state_changed = [](void* data, pw_stream_state old, pw_stream_state state,
                                         const char* error) {
        static_cast<Impl*>(data)->onStateChanged(old, state, error);
    };
    impl.streamEvents.param_changed = [](void* data, uint32_t id, const spa_pod* param) {
        static_cast<Impl*>(data)->onParamChanged(id, param);
    };
    impl.streamEvents.process = [](void* data) { static_cast<Impl*>(data)->onProcess(); };
    pw_stream_add_listener(impl.stream, &impl.streamListener, &impl.streamEvents, &impl);

    uint8_t storage[1024];
    spa_pod_builder builder = SPA_POD_BUILDER_INIT(storage, sizeof storage);
    spa_rectangle size{1920, 1080}, smallest{1, 1}, largest{16384, 16384};
    spa_fraction rate{0, 1}, slowest{0, 1}, fastest{1000, 1};
    int fps = std::clamp(maxFps, 1, 240);
    spa_fraction maxRate{static_cast<uint32_t>(fps), 1}, maxSlowest{1, 1};
    const spa_pod* format = static_cast<const spa_pod*>(spa_pod_builder_add_object(
        &builder, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat, SPA_FORMAT_mediaType,
        SPA_POD_Id(SPA_MEDIA_TYPE_video), SPA_FORMAT_mediaSubtype,
        SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw), SPA_FORMAT_VIDEO_format,
        SPA_POD_CHOICE_ENUM_Id(5, SPA_VIDEO_FORMAT_BGRx, SPA_VIDEO_FORMAT_BGRx,
                               SPA_VIDEO_FORMAT_BGRA, SPA_VIDEO_FORMAT_RGBx, SPA_VIDEO_FORMAT_RGBA),
        SPA_FORMAT_VIDEO_size, SPA_POD_CHOICE_RANGE_Rectangle(&size, &smallest, &largest),
        SPA_FORMAT_VIDEO_framerate, SPA_POD_CHOICE_RANGE_Fraction(&rate, &slowest, &fastest),
        SPA_FORMAT_VIDEO_maxFramerate,
        SPA_POD_CHOICE_RANGE_Fraction(&maxRate, &maxSlowest, &maxRate)));
    int connected = pw_stream_connect(
        impl.stream, PW_DIRECTION_INPUT, node,
        static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS |
                                     PW_STREAM_FLAG_DONT_RECONNECT),
        &format, 1);
    pw_thread_loop_unlock(impl.loop);
    if (connected < 0) {
        return AppError("Couldn't start reading the screen.",
                        std::string("pw_stream_connect: ") + strerror(-connected));
    }

    std::unique_lock lock(impl.mutex);
    bool agreed = impl.changed.wait_for(lock, std::chrono::duration<double>(seconds),
                                        [&] { return impl.negotiated || made->m_ended.load(); });
    if (!agreed || !impl.negotiated) {
        return AppError("Couldn't start reading the screen.",
                        agreed ? "the stream ended before it started"
                               : "the screen cast stream offered no shared-memory format");
    }
    return made;
}

PipeWireStream::~PipeWireStream() {
    Impl& impl = *m_impl;
    if (impl.loop != nullptr) {
        pw_thread_loop_lock(impl.loop);
        if (impl.stream != nullptr) {
            pw_stream_destroy(impl.stream);
        }
        if (impl.core != nullptr) {
            pw_core_disconnect(impl.core);
        }
        pw_thread_loop_unlock(impl.loop);
        pw_thread_loop_stop(impl.loop);
    }
    if (impl.context != nullptr) {
        pw_context_destroy(impl.context);
    }
    if (impl.loop != nullptr) {
        pw_thread_loop_destroy(impl.loop);
    }
}

FramePtr PipeWireStream::latest() const {
    std::lock_guard lock(m_impl->mutex);
    return m_impl->latest;
}

Size PipeWireStream::size() const {
    std::lock_guard lock(m_impl->mutex);
    if (m_impl->latest) {
        return {static_cast<double>(m_impl->latest->width),
                static_cast<double>(m_impl->latest->height)};
    }
    return m_impl->formatSize;
}

Point PipeWireStream::cropOrigin() const {
    std::lock_guard lock(m_impl->mutex);
    return m_impl->origin;
}

std::optional<Point> PipeWireStream::pointer() const {
    std::lock_guard lock(m_impl->mutex);
    return m_impl->pointer;
}

std::optional<CursorImage> PipeWireStream::cursorImage() const {
    std::lock_guard lock(m_impl->mutex);
    return m_impl->cursor;
}

bool PipeWireStream::waitForFirstFrame(double seconds) const {
    std::unique_lock lock(m_impl->mutex);
    return m_impl->changed.wait_for(lock, std::chrono::duration<double>(seconds), [&] {
        return m_impl->latest != nullptr || m_ended.load();
    }) && m_impl->latest != nullptr;
}

}  // namespace quillo::capture::portal
