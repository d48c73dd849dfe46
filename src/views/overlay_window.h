#pragma once

#include <QRect>
#include <QWidget>

namespace quillo::views {

// What the countdown and the recording controls share as windows of their own, above every
// app: the window flags, the desktop's translucency and the display server's round trip.

// Frameless, above the other windows, never taking the keyboard, kept off the task bar.
// `clickThrough`: pointer input passes to the windows beneath.
void makeOverlayWindow(QWidget& window, bool clickThrough);

// True when the desktop blends translucent windows (X11: a compositing manager owns
// _NET_WM_CM_Sn). Without one, overlays are drawn opaque and cut to their shape instead.
bool desktopBlends();

// Waits until the display server has handled every request this application sent, so that a
// window just hidden is gone from the screen for every other client (X11; nothing elsewhere).
void syncWithDisplay();

// The screen area (logical pixels) of the screen that shows most of `area` (screen pixels),
// else the primary screen's.
QRect screenAreaFor(const QRect& area);

}  // namespace quillo::views
