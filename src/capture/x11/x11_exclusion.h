#pragma once

// Windows left out of the grabbed picture (Quillo's countdown and recording controls). Included
// only by x11/*.cpp.

#include <mutex>
#include <optional>
#include <set>
#include <vector>

#include <X11/Xlib.h>

namespace quillo::capture::x11 {

// The windows to leave out, set by the backend on the main thread and read by its grabbers on
// the frames queue.
class Exclusions {
public:
    void set(std::vector<Window> windows) {
        std::lock_guard lock(m_mutex);
        m_windows = std::move(windows);
    }
    std::vector<Window> get() const {
        std::lock_guard lock(m_mutex);
        return m_windows;
    }

private:
    mutable std::mutex m_mutex;
    std::vector<Window> m_windows;  // guarded by m_mutex
};

// Paints, into a grabbed picture of the root, what lies beneath the excluded windows where they
// cover it: the other top-level windows' own pictures (kept off screen by the Composite
// extension's automatic redirection, which the backend turns on while anything is excluded),
// bottom to top, over the root's background. Owned by the grabber, on its connection.
class ExcludedWindowPainter {
public:
    ExcludedWindowPainter(Display* display, Window root);
    ~ExcludedWindowPainter();
    ExcludedWindowPainter(const ExcludedWindowPainter&) = delete;
    ExcludedWindowPainter& operator=(const ExcludedWindowPainter&) = delete;

    // False when the server lacks Composite or Render: nothing can be left out then.
    bool available() const { return m_available; }
    // An event read from the grabber's connection: changes to the stacking or the windows'
    // places make the painter read them again.
    void note(const XEvent& event);
    // Repaints the parts of `image` (the root's pixels at `left`, `top`) that the windows of
    // `excluded` cover. Cheap when none of them is shown over it.
    void repaint(const std::vector<Window>& excluded, XImage& image, int left, int top);

private:
    struct TopLevel {
        Window id = 0;
        int x = 0;
        int y = 0;
        int width = 0;  // with the border
        int height = 0;
        Visual* visual = nullptr;
        bool shown = false;  // viewable and InputOutput
    };
    struct Box {
        int x = 0;
        int y = 0;
        int width = 0;
        int height = 0;
    };
    void refresh(const std::vector<Window>& excluded);
    Window topLevelOf(Window window) const;
    void paint(const Box& box, XImage& image, int left, int top);

    Display* m_display;
    Window m_root;
    bool m_available = false;
    bool m_watching = false;  // root's SubstructureNotify selected
    bool m_stale = true;
    std::vector<Window> m_excludedAsked;  // the list m_hidden was made from
    std::vector<TopLevel> m_stack;        // the root's children, bottom first
    std::set<Window> m_hidden;            // the top-levels that hold excluded windows
};

}  // namespace quillo::capture::x11
