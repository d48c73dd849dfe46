#pragma once

#include <memory>
#include <optional>
#include <vector>

#include <QObject>
#include <QRect>

#include "app/studio_model.h"
#include "countdown_overlay.h"
#include "recording_controls.h"

namespace quillo::capture {
class GlobalKeys;
}

namespace quillo::views {

// The windows Quillo shows over the desktop while it records, following the studio model: the
// countdown (with Escape taken desktop-wide while it runs, to cancel it) and the floating
// recording controls ("floatingControls"). Both are left out of the recorded picture: the
// capture backend is told their windows, before they show.
class RecordingOverlays : public QObject {
    Q_OBJECT

public:
    explicit RecordingOverlays(app::StudioModel& studio);
    ~RecordingOverlays() override;

    CountdownOverlay& countdown() { return *m_countdown; }
    RecordingControls& controls() { return *m_controls; }

private:
    void follow();
    QRect sourceArea() const;
    bool mayShowOverSource() const;
    bool controlsWanted() const;
    // Tells the backend which of the overlays to leave out: the shown ones, and `coming`.
    void exclude(QWidget* coming = nullptr);
    void takeEscape(bool take);

    app::StudioModel& m_studio;
    std::unique_ptr<CountdownOverlay> m_countdown;
    std::unique_ptr<RecordingControls> m_controls;
    int m_countdownTotal = 1;
    std::vector<uint64_t> m_excluded;
    int m_changed = 0;
    // Declared last: its thread, which may still report a key, ends before the windows go.
    std::unique_ptr<capture::GlobalKeys> m_keys;
    std::optional<int> m_escape;
};

}  // namespace quillo::views
