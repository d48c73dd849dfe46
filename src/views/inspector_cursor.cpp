#include "inspector_cursor.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QImage>
#include <QLabel>
#include <QSignalBlocker>

#include "inspector_fields.h"
#include "inspector_slider.h"
#include "render/cursor_theme.h"

namespace quillo::views {

namespace {

using project::CursorStyle;

QIcon thumbnailIcon(const render::CursorTheme& theme) {
    const render::Image* picture = theme.thumbnail ? &*theme.thumbnail : &theme.arrow.image;
    if (picture->empty()) {
        return {};
    }
    QImage image(picture->pixels.data(), picture->width, picture->height, picture->stride(),
                 QImage::Format_ARGB32_Premultiplied);
    return QIcon(QPixmap::fromImage(image.copy()));
}

}  // namespace

CursorInspector::CursorInspector(EditorSession& session, QWidget* parent)
    : QWidget(parent), m_session(session) {
    m_visible = new QCheckBox(tr("Show the cursor"), this);
    m_visible->setAccessibleName(tr("Show the cursor"));
    m_theme = new QComboBox(this);
    ignoreWheelUnlessFocused(m_theme);
    m_theme->setAccessibleName(tr("Cursor theme"));
    m_theme->setIconSize({20, 20});
    m_theme->addItem(tr("System cursor"), QString());
    for (const render::CursorTheme& theme : render::CursorTheme::all()) {
        m_theme->addItem(thumbnailIcon(theme), QString::fromStdString(theme.name),
                         QString::fromStdString(theme.id));
    }
    m_size = new InspectorSlider(tr("Cursor size"), 0.5, 4, 0.1, 1, tr("×"), this);
    m_smoothing = new InspectorSlider(tr("Smoothing"), 0, 1, 0.05, 2, tr(" s"), this);
    m_smoothing->setToolTip(tr("How much the pointer's path is evened out"));
    m_idle = new QCheckBox(tr("Hide when idle"), this);
    m_idle->setAccessibleName(tr("Hide when idle"));
    m_idle->setToolTip(tr("Fade the cursor out while it rests"));

    auto* form = inspectorForm(this);
    form->addRow(m_visible);
    formRow(form, tr("Theme"), m_theme);
    formRow(form, tr("Size"), m_size);
    formRow(form, tr("Smoothing"), m_smoothing);
    form->addRow(m_idle);
    const auto& track = session.model().cursorTrack();
    bool inPicture = track && track->pointerInPicture.value_or(false);
    if (!track || inPicture) {
        auto* note = new QLabel(
            inPicture ? tr("The desktop recorded the pointer as part of the picture, so it "
                           "can't be restyled, smoothed or hidden here.")
                      : tr("This recording has no separately recorded cursor."),
            this);
        note->setWordWrap(true);
        note->setForegroundRole(QPalette::PlaceholderText);
        form->addRow(note);
    }

    connect(m_visible, &QCheckBox::toggled, this,
            [this](bool on) { change([on](CursorStyle& style) { style.visible = on; }); });
    connect(m_theme, &QComboBox::activated, this, [this](int index) {
        QString id = m_theme->itemData(index).toString();
        change([&id](CursorStyle& style) {
            style.theme = id.isEmpty() ? std::nullopt : std::optional(id.toStdString());
        });
    });
    connect(m_size, &InspectorSlider::committed, this,
            [this](double size) { change([size](CursorStyle& style) { style.size = size; }); });
    connect(m_smoothing, &InspectorSlider::committed, this, [this](double seconds) {
        change([seconds](CursorStyle& style) { style.smoothing = seconds; });
    });
    connect(m_idle, &QCheckBox::toggled, this,
            [this](bool on) { change([on](CursorStyle& style) { style.hideWhenIdle = on; }); });
    connect(&m_session, &EditorSession::recipeChanged, this, [this] { refresh(); });
    refresh();
}

template <class F>
void CursorInspector::change(F&& edit) {
    CursorStyle current = m_session.model().edits().cursor.value_or(CursorStyle{});
    CursorStyle next = current;
    edit(next);
    if (!(next == current) || !m_session.model().edits().cursor) {
        m_session.model().updateCursorStyle([&next](CursorStyle& style) { style = next; });
    }
    refresh();
}

void CursorInspector::refresh() {
    CursorStyle style = m_session.model().edits().cursor.value_or(CursorStyle{});
    {
        QSignalBlocker blocker(m_visible);
        m_visible->setChecked(style.visible);
    }
    {
        QSignalBlocker blocker(m_theme);
        int index = m_theme->findData(QString::fromStdString(style.theme.value_or("")));
        if (index < 0) {
            // A theme this build does not ship (an agent's typo) still shows as chosen.
            QString id = QString::fromStdString(*style.theme);
            m_theme->addItem(id, id);
            index = m_theme->count() - 1;
        }
        m_theme->setCurrentIndex(index);
    }
    m_size->setValue(style.size);
    m_smoothing->setValue(style.smoothing);
    {
        QSignalBlocker blocker(m_idle);
        m_idle->setChecked(style.hideWhenIdle);
    }
    bool editable = !m_session.model().exporting();
    m_visible->setEnabled(editable);
    for (QWidget* control : {static_cast<QWidget*>(m_theme), static_cast<QWidget*>(m_size),
                             static_cast<QWidget*>(m_smoothing), static_cast<QWidget*>(m_idle)}) {
        control->setEnabled(editable && style.visible);
    }
}

}  // namespace quillo::views
