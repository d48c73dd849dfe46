// Screen grabs over MIT-SHM into a small pool of shared segments, with DAMAGE telling whether the
// grabbed area changed at all, so that a still screen costs no grab.

#include <cmath>
#include <mutex>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <X11/Xutil.h>
#include <X11/extensions/XShm.h>
#include <X11/extensions/Xdamage.h>
#include <X11/extensions/Xfixes.h>

#include "base/log.h"
#include "x11_exclusion.h"
#include "x11_internal.h"

namespace quillo::capture::x11 {

namespace {

constexpr size_t kPoolSize = 4;  // free segments kept for reuse

// One shared-memory picture. The server's attachment is dropped by the grabber (or with its
// connection); the memory itself lives until the last frame that points into it is gone.
struct Segment {
    XShmSegmentInfo info{};
    XImage* image = nullptr;
    int width = 0;
    int height = 0;

    Segment() = default;
    Segment(const Segment&) = delete;
    Segment& operator=(const Segment&) = delete;
    ~Segment() {
        if (image != nullptr) {
            image->data = nullptr;
            XDestroyImage(image);
        }
        if (info.shmaddr != nullptr && info.shmaddr != reinterpret_cast<char*>(-1)) {
            shmdt(info.shmaddr);
        }
    }
};

// Segments no frame uses, returned from any thread by the frames' owners.
struct Pool {
    std::mutex mutex;
    std::vector<std::unique_ptr<Segment>> free;  // guarded by mutex
};

// Source-over of the premultiplied cursor picture at (left, top) of a BGRA picture; the memory
// order of both is B, G, R, A, so whole words blend channel by channel.
void blendCursor(const XFixesCursorImage& cursor, int left, int top, uint8_t* pixels, int width,
                 int height, int stride) {
    for (int row = std::max(0, -top); row < cursor.height && top + row < height; ++row) {
        auto* line = reinterpret_cast<uint32_t*>(pixels + static_cast<size_t>(top + row) * stride);
        const unsigned long* source = cursor.pixels + static_cast<size_t>(row) * cursor.width;
        for (int column = std::max(0, -left); column < cursor.width && left + column < width;
             ++column) {
            auto argb = static_cast<uint32_t>(source[column]);
            uint32_t alpha = argb >> 24;
            if (alpha == 0) {
                continue;
            }
            uint32_t& target = line[left + column];
            uint32_t keep = 255 - alpha;
            uint32_t blended = 0;
            for (int shift = 0; shift < 32; shift += 8) {
                uint32_t value = ((argb >> shift) & 0xff) + ((target >> shift) & 0xff) * keep / 255;
                blended |= std::min<uint32_t>(value, 255) << shift;
            }
            target = blended;
        }
    }
}

class X11Grabber final : public ScreenGrabber {
public:
    X11Grabber(DisplayPtr display, std::shared_ptr<const Exclusions> exclusions)
        : m_display(std::move(display)),
          m_root(DefaultRootWindow(m_display.get())),
          m_exclusions(std::move(exclusions)),
          m_painter(m_display.get(), m_root) {
        Display* x = m_display.get();
        m_hasShm = XShmQueryExtension(x);
        int eventBase = 0;
        int errorBase = 0;
        int major = 0;
        int minor = 0;
        m_hasFixes = XFixesQueryExtension(x, &eventBase, &errorBase) &&
                     XFixesQueryVersion(x, &major, &minor) && major >= 2;
        int damageError = 0;
        if (m_hasFixes && XDamageQueryExtension(x, &m_damageEvent, &damageError) &&
            XDamageQueryVersion(x, &major, &minor)) {
            m_damage = XDamageCreate(x, m_root, XDamageReportNonEmpty);
            m_region = XFixesCreateRegion(x, nullptr, 0);
        }
    }

    ~X11Grabber() override {
        std::vector<std::unique_ptr<Segment>> free;
        {
            std::lock_guard lock(m_pool->mutex);
            free.swap(m_pool->free);
        }
        for (auto& segment : free) {
            detach(*segment);
        }
        if (m_damage != 0) {
            XDamageDestroy(m_display.get(), m_damage);
            XFixesDestroyRegion(m_display.get(), m_region);
        }
        // Segments still held by frames are detached by the server with this connection.
    }

    bool changed(const Rect& area) override {
        bool damaged = drainDamage(area);
        if (m_damage == 0 || !m_lastArea || *m_lastArea != area) {
            m_lastArea = area;
            return true;
        }
        return damaged;
    }

    Result<FramePtr> grab(const Rect& area, bool drawCursor) override {
        int x = static_cast<int>(std::lround(area.x));
        int y = static_cast<int>(std::lround(area.y));
        int width = std::max(1, static_cast<int>(std::lround(area.width)));
        int height = std::max(1, static_cast<int>(std::lround(area.height)));
        auto frame = std::make_shared<CapturedFrame>();
        XImage* image = nullptr;
        if (m_hasShm) {
            auto grabbed = grabShared(x, y, width, height, *frame);
            if (!grabbed) {
                return grabbed.error();
            }
            image = *grabbed;
        }
        if (image == nullptr) {
            ErrorTrap trap(m_display.get());
            image = XGetImage(m_display.get(), m_root, x, y, static_cast<unsigned>(width),
                              static_cast<unsigned>(height), AllPlanes, ZPixmap);
            if (image == nullptr || trap.failed()) {
                if (image != nullptr) {
                    XDestroyImage(image);
                }
                return grabFailed("XGetImage failed");
            }
            frame->owner = std::shared_ptr<XImage>(image, [](XImage* i) { XDestroyImage(i); });
        }
        if (image->bits_per_pixel != 32) {
            return grabFailed("the screen is not 32 bits per pixel");
        }
        if (m_exclusions) {
            if (std::vector<Window> excluded = m_exclusions->get(); !excluded.empty()) {
                pump();
                m_painter.repaint(excluded, *image, x, y);
            }
        }
        if (drawCursor && m_hasFixes) {
            if (XFixesCursorImage* cursor = XFixesGetCursorImage(m_display.get())) {
                blendCursor(*cursor, cursor->x - cursor->xhot - x, cursor->y - cursor->yhot - y,
                            reinterpret_cast<uint8_t*>(image->data), width, height,
                            image->bytes_per_line);
                XFree(cursor);
            }
        }
        frame->pixels = reinterpret_cast<const uint8_t*>(image->data);
        frame->width = width;
        frame->height = height;
        frame->stride = image->bytes_per_line;
        frame->serial = ++m_serial;
        return FramePtr(std::move(frame));
    }

private:
    static AppError grabFailed(const std::string& why) {
        return AppError("The screen could not be captured.", why);
    }

    // Reads the pending events: damage is kept for drainDamage, the rest goes to the painter.
    void pump() {
        Display* x = m_display.get();
        while (XPending(x) > 0) {
            XEvent event;
            XNextEvent(x, &event);
            if (m_damage != 0 && event.type == m_damageEvent + XDamageNotify) {
                m_notified = true;
            } else {
                m_painter.note(event);
            }
        }
    }

    // Drains the damage events; true when the damage since the last call touches `area`.
    bool drainDamage(const Rect& area) {
        Display* x = m_display.get();
        pump();
        if (!m_notified) {
            return false;
        }
        m_notified = false;
        // Moving the damage into the region empties it, so the next change notifies again.
        XDamageSubtract(x, m_damage, 0, m_region);
        int count = 0;
        XRectangle bounds{};
        XRectangle* rects = XFixesFetchRegionAndBounds(x, m_region, &count, &bounds);
        bool touched = false;
        for (int i = 0; rects != nullptr && i < count && !touched; ++i) {
            touched = rects[i].x < area.x + area.width && area.x < rects[i].x + rects[i].width &&
                      rects[i].y < area.y + area.height && area.y < rects[i].y + rects[i].height;
        }
        if (rects != nullptr) {
            XFree(rects);
        }
        return touched;
    }

    // Grabs into a pooled segment and makes the frame its owner. Null (no error) when shared
    // memory turns out not to work here, so the caller falls back to XGetImage for good.
    Result<XImage*> grabShared(int x, int y, int width, int height, CapturedFrame& frame) {
        std::unique_ptr<Segment> segment = takeSegment(width, height);
        if (!segment) {
            m_hasShm = false;
            return static_cast<XImage*>(nullptr);
        }
        ErrorTrap trap(m_display.get());
        if (!XShmGetImage(m_display.get(), m_root, segment->image, x, y, AllPlanes) ||
            trap.failed()) {
            giveBack(std::move(segment));
            return grabFailed("XShmGetImage failed");
        }
        XImage* image = segment->image;
        std::weak_ptr<Pool> pool = m_pool;
        frame.owner = std::shared_ptr<Segment>(segment.release(), [pool](Segment* used) {
            std::unique_ptr<Segment> owned(used);
            if (auto alive = pool.lock()) {
                std::lock_guard lock(alive->mutex);
                alive->free.push_back(std::move(owned));
            }
        });
        return image;
    }

    // A free segment of this size, or a new one; extra and wrongly sized free ones are dropped.
    std::unique_ptr<Segment> takeSegment(int width, int height) {
        std::vector<std::unique_ptr<Segment>> drop;
        std::unique_ptr<Segment> found;
        {
            std::lock_guard lock(m_pool->mutex);
            for (auto& segment : m_pool->free) {
                if (!found && segment->width == width && segment->height == height) {
                    found = std::move(segment);
                } else if (segment->width != width || segment->height != height) {
                    drop.push_back(std::move(segment));
                }
            }
            std::erase(m_pool->free, nullptr);
            while (m_pool->free.size() > kPoolSize) {
                drop.push_back(std::move(m_pool->free.back()));
                m_pool->free.pop_back();
            }
        }
        for (auto& segment : drop) {
            detach(*segment);
        }
        return found ? std::move(found) : newSegment(width, height);
    }

    void giveBack(std::unique_ptr<Segment> segment) {
        std::lock_guard lock(m_pool->mutex);
        m_pool->free.push_back(std::move(segment));
    }

    std::unique_ptr<Segment> newSegment(int width, int height) {
        Display* x = m_display.get();
        int screen = DefaultScreen(x);
        auto segment = std::make_unique<Segment>();
        segment->width = width;
        segment->height = height;
        segment->image = XShmCreateImage(
            x, DefaultVisual(x, screen), DefaultDepth(x, screen), ZPixmap, nullptr, &segment->info,
            static_cast<unsigned>(width), static_cast<unsigned>(height));
        if (segment->image == nullptr) {
            return nullptr;
        }
        size_t bytes = static_cast<size_t>(segment->image->bytes_per_line) * height;
        segment->info.shmid = shmget(IPC_PRIVATE, bytes, IPC_CREAT | 0600);
        if (segment->info.shmid < 0) {
            logError("app.quillo.capture", "shmget failed; grabbing without shared memory");
            return nullptr;
        }
        segment->info.shmaddr = static_cast<char*>(shmat(segment->info.shmid, nullptr, 0));
        segment->image->data = segment->info.shmaddr;
        segment->info.readOnly = False;
        bool attached = false;
        if (segment->info.shmaddr != reinterpret_cast<char*>(-1)) {
            ErrorTrap trap(x);
            attached = XShmAttach(x, &segment->info) && !trap.failed();
        }
        // Marked for removal now, so the segment goes away with its last user even after a crash.
        shmctl(segment->info.shmid, IPC_RMID, nullptr);
        if (!attached) {
            logError("app.quillo.capture", "XShmAttach failed; grabbing without shared memory");
            return nullptr;
        }
        return segment;
    }

    void detach(Segment& segment) {
        ErrorTrap trap(m_display.get());
        XShmDetach(m_display.get(), &segment.info);
        (void)trap.failed();
    }

    DisplayPtr m_display;
    Window m_root = 0;
    std::shared_ptr<const Exclusions> m_exclusions;
    ExcludedWindowPainter m_painter;
    bool m_notified = false;  // damage arrived since the last drainDamage
    bool m_hasShm = false;
    bool m_hasFixes = false;
    int m_damageEvent = 0;
    Damage m_damage = 0;
    XserverRegion m_region = 0;
    std::shared_ptr<Pool> m_pool = std::make_shared<Pool>();
    std::optional<Rect> m_lastArea;
    uint64_t m_serial = 0;
};

}  // namespace

Result<std::unique_ptr<ScreenGrabber>> makeGrabber(const std::string& displayName,
                                                   std::shared_ptr<const Exclusions> exclusions) {
    auto display = openDisplay(displayName);
    if (!display) {
        return display.error();
    }
    return std::unique_ptr<ScreenGrabber>(
        new X11Grabber(std::move(*display), std::move(exclusions)));
}

}  // namespace quillo::capture::x11
