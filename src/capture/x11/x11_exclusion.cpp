// Leaving windows out of the grabbed picture: under the excluded windows, the other top-levels'
// off-screen pictures are composited again, bottom to top, with XRender.

#include "x11_exclusion.h"

#include <algorithm>
#include <cstring>

#include <X11/Xatom.h>
#include <X11/Xutil.h>
#include <X11/extensions/Xcomposite.h>
#include <X11/extensions/Xrender.h>

#include "x11_internal.h"

namespace quillo::capture::x11 {

ExcludedWindowPainter::ExcludedWindowPainter(Display* display, Window root)
    : m_display(display), m_root(root) {
    int eventBase = 0;
    int errorBase = 0;
    int major = 0;
    int minor = 2;
    // NameWindowPixmap needs Composite 0.2.
    m_available = XCompositeQueryExtension(display, &eventBase, &errorBase) &&
                  XCompositeQueryVersion(display, &major, &minor) && (major > 0 || minor >= 2) &&
                  XRenderQueryExtension(display, &eventBase, &errorBase);
}

ExcludedWindowPainter::~ExcludedWindowPainter() = default;

void ExcludedWindowPainter::note(const XEvent& event) {
    switch (event.type) {
        case ConfigureNotify:
        case MapNotify:
        case UnmapNotify:
        case CreateNotify:
        case DestroyNotify:
        case ReparentNotify:
        case CirculateNotify:
            m_stale = true;
            break;
        default:
            break;
    }
}

Window ExcludedWindowPainter::topLevelOf(Window window) const {
    for (int depth = 0; depth < 16; ++depth) {
        Window root = 0;
        Window parent = 0;
        Window* children = nullptr;
        unsigned int count = 0;
        if (XQueryTree(m_display, window, &root, &parent, &children, &count) == 0) {
            return 0;
        }
        if (children != nullptr) {
            XFree(children);
        }
        if (parent == m_root) {
            return window;
        }
        if (parent == 0) {
            return 0;
        }
        window = parent;
    }
    return 0;
}

void ExcludedWindowPainter::refresh(const std::vector<Window>& excluded) {
    if (!m_watching) {
        // From now on the stacking and the windows' places are followed through events.
        XSelectInput(m_display, m_root, SubstructureNotifyMask);
        m_watching = true;
    }
    m_stale = false;
    m_excludedAsked = excluded;
    m_stack.clear();
    m_hidden.clear();
    ErrorTrap trap(m_display);
    Window root = 0;
    Window parent = 0;
    Window* children = nullptr;
    unsigned int count = 0;
    if (XQueryTree(m_display, m_root, &root, &parent, &children, &count) == 0) {
        m_stale = true;
        return;
    }
    for (unsigned int i = 0; i < count; ++i) {
        XWindowAttributes attributes{};
        if (XGetWindowAttributes(m_display, children[i], &attributes) == 0) {
            continue;  // gone meanwhile
        }
        TopLevel window;
        window.id = children[i];
        window.x = attributes.x;
        window.y = attributes.y;
        window.width = attributes.width + 2 * attributes.border_width;
        window.height = attributes.height + 2 * attributes.border_width;
        window.visual = attributes.visual;
        window.shown = attributes.map_state == IsViewable && attributes.c_class == InputOutput;
        m_stack.push_back(window);
    }
    if (children != nullptr) {
        XFree(children);
    }
    for (Window window : excluded) {
        if (Window top = topLevelOf(window); top != 0) {
            m_hidden.insert(top);
        }
    }
    (void)trap.failed();
}

void ExcludedWindowPainter::repaint(const std::vector<Window>& excluded, XImage& image, int left,
                                    int top) {
    if (!m_available || excluded.empty()) {
        return;
    }
    if (m_stale || excluded != m_excludedAsked) {
        refresh(excluded);
    }
    for (const TopLevel& window : m_stack) {
        if (!window.shown || !m_hidden.contains(window.id)) {
            continue;
        }
        int x0 = std::max(window.x, left);
        int y0 = std::max(window.y, top);
        int x1 = std::min(window.x + window.width, left + image.width);
        int y1 = std::min(window.y + window.height, top + image.height);
        if (x0 < x1 && y0 < y1) {
            paint({x0, y0, x1 - x0, y1 - y0}, image, left, top);
        }
    }
}

void ExcludedWindowPainter::paint(const Box& box, XImage& image, int left, int top) {
    Display* x = m_display;
    int screen = DefaultScreen(x);
    ErrorTrap trap(x);
    Pixmap canvas = XCreatePixmap(x, m_root, static_cast<unsigned>(box.width),
                                  static_cast<unsigned>(box.height),
                                  static_cast<unsigned>(DefaultDepth(x, screen)));
    Picture target = XRenderCreatePicture(
        x, canvas, XRenderFindVisualFormat(x, DefaultVisual(x, screen)), 0, nullptr);

    // The root's background: the desktop's wallpaper pixmap where one is published, else black.
    XRenderColor black{0, 0, 0, 0xffff};
    XRenderFillRectangle(x, PictOpSrc, target, &black, 0, 0, static_cast<unsigned>(box.width),
                         static_cast<unsigned>(box.height));
    Atom wallpaper = XInternAtom(x, "_XROOTPMAP_ID", True);
    if (wallpaper != None) {
        if (auto ids = longProperty(x, m_root, wallpaper, XA_PIXMAP); ids && !ids->empty()) {
            XRenderPictureAttributes repeat{};
            repeat.repeat = RepeatNormal;
            Picture background = XRenderCreatePicture(
                x, static_cast<Pixmap>(ids->front()),
                XRenderFindVisualFormat(x, DefaultVisual(x, screen)), CPRepeat, &repeat);
            XRenderComposite(x, PictOpSrc, background, None, target, box.x, box.y, 0, 0, 0, 0,
                             static_cast<unsigned>(box.width), static_cast<unsigned>(box.height));
            XRenderFreePicture(x, background);
        }
    }

    for (const TopLevel& window : m_stack) {
        if (!window.shown || m_hidden.contains(window.id) || window.x >= box.x + box.width ||
            window.y >= box.y + box.height || window.x + window.width <= box.x ||
            window.y + window.height <= box.y) {
            continue;
        }
        XRenderPictFormat* format = XRenderFindVisualFormat(x, window.visual);
        if (format == nullptr) {
            continue;
        }
        Pixmap content = XCompositeNameWindowPixmap(x, window.id);
        Picture source = XRenderCreatePicture(x, content, format, 0, nullptr);
        bool alpha = format->type == PictTypeDirect && format->direct.alphaMask != 0;
        XRenderComposite(x, alpha ? PictOpOver : PictOpSrc, source, None, target, 0, 0, 0, 0,
                         window.x - box.x, window.y - box.y, static_cast<unsigned>(window.width),
                         static_cast<unsigned>(window.height));
        XRenderFreePicture(x, source);
        XFreePixmap(x, content);
    }

    XImage* part = XGetImage(x, canvas, 0, 0, static_cast<unsigned>(box.width),
                             static_cast<unsigned>(box.height), AllPlanes, ZPixmap);
    XRenderFreePicture(x, target);
    XFreePixmap(x, canvas);
    if (trap.failed()) {
        // A window went away half way: the stack is read again for the next frame.
        m_stale = true;
    }
    if (part == nullptr) {
        return;
    }
    if (part->bits_per_pixel == image.bits_per_pixel) {
        size_t rowBytes = static_cast<size_t>(box.width) * (image.bits_per_pixel / 8);
        for (int row = 0; row < box.height; ++row) {
            std::memcpy(image.data + static_cast<size_t>(box.y - top + row) * image.bytes_per_line +
                            static_cast<size_t>(box.x - left) * (image.bits_per_pixel / 8),
                        part->data + static_cast<size_t>(row) * part->bytes_per_line, rowBytes);
        }
    }
    XDestroyImage(part);
}

}  // namespace quillo::capture::x11
