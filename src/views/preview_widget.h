#pragma once

#include <memory>
#include <optional>

#include <QImage>
#include <QPointF>
#include <QString>
#include <QWidget>

#include "editor_session.h"
#include "preview_geometry.h"
#include "preview_player.h"

class QToolButton;

namespace quillo::views {

// The finished picture of one open recording, still or playing, rendered by the player's
// threads at the widget's size and handed over as images. A click sets the selected zoom's
// focus; a Shift-drag (or any drag while "Hide Area" is on) hides an area. Keys the editor maps
// (Space, arrows, J/K/L) pass through to it. GUI thread only.
class PreviewWidget : public QWidget {
    Q_OBJECT

public:
    PreviewWidget(EditorSession& session, QWidget* parent = nullptr);
    ~PreviewWidget() override;

    // What is shown now (null while nothing has been rendered).
    QImage currentImage() const { return m_image; }
    // The recording time of what is shown.
    std::optional<double> shownTime() const;
    // The text shown instead of (or over) the picture: loading, or why it cannot be shown.
    QString placeholderText() const;
    // How the shown frame sits in the widget; none before the first frame.
    std::optional<PreviewPlacement> placement() const;
    // Playback figures of the engine.
    PreviewPlayer::Counters counters() const { return m_player->counters(); }
    // The "Hide Area" toggle: drawn over the picture's corner unless a parent places it elsewhere
    // (the editor puts it in its transport bar, so it never covers the picture).
    QToolButton* hideAreaButton() { return m_hideArea; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    void updateRecipe(bool force = false);
    void playbackChanged();
    void playheadMoved(double t);
    void showFrame(std::shared_ptr<const PreviewFrame> frame);
    void playbackEnded(double t);
    void setFocusAt(QPointF p);
    void placeButton();
    void paintPlaceholder(QPainter& painter, const QString& text);

    EditorSession& m_session;
    std::unique_ptr<PreviewPlayer> m_player;
    std::shared_ptr<const PreviewFrame> m_frame;
    QImage m_image;
    QString m_error;
    QToolButton* m_hideArea;

    std::optional<PreviewRecipe> m_recipe;  // the last one handed to the player
    std::optional<double> m_playbackTime;   // the playhead playback last set
    std::optional<QPointF> m_dragStart;
    QPointF m_dragNow;
};

}  // namespace quillo::views
