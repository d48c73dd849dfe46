#include "recording_overlays.h"

#include <QApplication>
#include <QPointer>

#include "capture/capture_session.h"
#include "overlay_window.h"

namespace quillo::views {

namespace {

constexpr uint32_t kEscapeKeysym = 0xff1b;

}  // namespace

RecordingOverlays::RecordingOverlays(app::StudioModel& studio)
    : m_studio(studio),
      m_countdown(std::make_unique<CountdownOverlay>()),
      m_controls(std::make_unique<RecordingControls>(studio)) {
    m_countdown->onCancel = [this] { m_studio.cancelCountdown(); };
    m_changed = m_studio.changed.connect([this] { follow(); });
    follow();
}

RecordingOverlays::~RecordingOverlays() {
    m_studio.changed.disconnect(m_changed);
    takeEscape(false);
    m_keys.reset();
    if (!m_excluded.empty()) {
        m_studio.capture().backend().setExcludedWindows({});
    }
}

QRect RecordingOverlays::sourceArea() const {
    auto area = m_studio.capture().captureGeometry();
    if (!area) {
        return {};
    }
    return QRect(static_cast<int>(area->x), static_cast<int>(area->y),
                 static_cast<int>(area->width), static_cast<int>(area->height));
}

bool RecordingOverlays::mayShowOverSource() const {
    // Where the backend can't leave a window out (the Wayland portal), an overlay would be in a
    // shared monitor's picture, the countdown even in the first frame (the preview's latest): none
    // is shown for monitor shares there, and the panel icon's tooltip and menu stand in. A shared
    // window's stream shows that window alone.
    const auto& source = m_studio.source();
    return m_studio.capture().backend().excludesWindows() || (source && source->kind == "window");
}

bool RecordingOverlays::controlsWanted() const {
    return m_studio.state() == app::RecordingState::Recording &&
           m_studio.preferences().get(app::prefs::floatingControls) && mayShowOverSource();
}

void RecordingOverlays::follow() {
    if (m_studio.state() == app::RecordingState::CountingDown && mayShowOverSource()) {
        if (!m_countdown->isVisible()) {
            m_countdownTotal = m_studio.countdownValue();
            exclude(m_countdown.get());
            takeEscape(true);
            m_countdown->setHint(m_escape ? tr("Press Esc to cancel") : QString());
        }
        m_countdown->showCount(m_studio.countdownValue(), m_countdownTotal,
                               screenAreaFor(sourceArea()));
    } else if (m_countdown->isVisible()) {
        // Gone from the screen before the recorder's first frame: the model starts the
        // recording right after this change.
        m_countdown->hide();
        syncWithDisplay();
        takeEscape(false);
        exclude();
    }

    if (controlsWanted()) {
        if (!m_controls->isVisible()) {
            exclude(m_controls.get());
            m_controls->present(sourceArea());
        }
    } else if (m_controls->isVisible()) {
        m_controls->hide();
        syncWithDisplay();
        exclude();
    }
}

void RecordingOverlays::exclude(QWidget* coming) {
    std::vector<uint64_t> ids;
    for (QWidget* window :
         {static_cast<QWidget*>(m_countdown.get()), static_cast<QWidget*>(m_controls.get())}) {
        if (window->isVisible() || window == coming) {
            ids.push_back(static_cast<uint64_t>(window->winId()));
        }
    }
    if (ids != m_excluded) {
        m_excluded = ids;
        syncWithDisplay();  // the new window exists on the server before the grabber looks
        m_studio.capture().backend().setExcludedWindows(ids);
    }
}

void RecordingOverlays::takeEscape(bool take) {
    if (take && !m_escape) {
        if (!m_keys) {
            auto made = m_studio.capture().backend().globalKeys();
            if (!made) {
                return;  // no desktop-wide keys here: the record shortcut still cancels
            }
            m_keys = std::move(*made);
        }
        QPointer<CountdownOverlay> overlay = m_countdown.get();
        auto grabbed = m_keys->grab({.keysym = kEscapeKeysym}, [overlay] {
            // On the keys' thread: the cancel runs on the main thread.
            QMetaObject::invokeMethod(
                qApp,
                [overlay] {
                    if (overlay) {
                        overlay->cancel();
                    }
                },
                Qt::QueuedConnection);
        });
        if (grabbed) {
            m_escape = *grabbed;
        }
    } else if (!take && m_escape) {
        m_keys->release(*m_escape);
        m_escape.reset();
    }
}

}  // namespace quillo::views
