// The inspectors: each finished change is one commit through the model, the model's own changes
// (an agent's too) refresh the controls without a second commit, and controls follow the
// selection and the export lock.

#include <fstream>

#include <QAbstractButton>
#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QRadioButton>
#include <QSlider>
#include <QToolButton>
#include <QWheelEvent>
#include <gtest/gtest.h>

#include "project/local_project.h"
#include "views/inspector_panel.h"
#include "views_fixture.h"

namespace quillo::views {
namespace {

void choose(QComboBox* box, const QVariant& data) {
    int index = box->findData(data);
    ASSERT_GE(index, 0);
    box->setCurrentIndex(index);
    emit box->activated(index);
}

class InspectorTest : public ViewsFixture {
protected:
    EditorSession& openWithZoom() {
        EditorSession& session = openSession();
        session.setPlayhead(1.0);
        session.model().addZoom();
        EXPECT_EQ(session.selection().kind, EditorSession::Kind::Zoom);
        return session;
    }
    size_t undoSteps(EditorSession& session) { return session.model().undoStack().size(); }
};

// --- the selected zoom

TEST_F(InspectorTest, ZoomScaleFromTheSpinBoxIsOneUndoStep) {
    EditorSession& session = openWithZoom();
    InspectorPanel panel(session);
    size_t before = undoSteps(session);
    named<QDoubleSpinBox>(panel, "Zoom scale value")->setValue(3.0);
    EXPECT_DOUBLE_EQ(session.model().edits().zooms[0].scale, 3.0);
    EXPECT_EQ(undoSteps(session), before + 1);
    EXPECT_EQ(named<QSlider>(panel, "Zoom scale")->value(), 20);
}

TEST_F(InspectorTest, ASliderDragCommitsOnceAtRelease) {
    EditorSession& session = openWithZoom();
    InspectorPanel panel(session);
    size_t before = undoSteps(session);
    QSlider* slider = named<QSlider>(panel, "Zoom scale");
    slider->setSliderDown(true);
    for (int position = 11; position <= 25; ++position) {
        slider->setValue(position);
    }
    EXPECT_EQ(undoSteps(session), before);
    EXPECT_DOUBLE_EQ(session.model().edits().zooms[0].scale, 2.0);
    slider->setSliderDown(false);
    EXPECT_NEAR(session.model().edits().zooms[0].scale, 3.5, 1e-9);
    EXPECT_EQ(undoSteps(session), before + 1);
}

TEST_F(InspectorTest, TheWheelOverAnUnfocusedControlScrollsInsteadOfEditing) {
    EditorSession& session = openWithZoom();
    InspectorPanel panel(session);
    size_t before = undoSteps(session);
    for (QWidget* control : std::initializer_list<QWidget*>{
             named<QSlider>(panel, "Zoom scale"), named<QComboBox>(panel, "Canvas shape")}) {
        QPointF centre(control->width() / 2.0, control->height() / 2.0);
        QWheelEvent wheel(centre, control->mapToGlobal(centre), {}, {0, -120}, Qt::NoButton,
                          Qt::NoModifier, Qt::NoScrollPhase, false);
        QApplication::sendEvent(control, &wheel);
    }
    EXPECT_EQ(undoSteps(session), before);
    EXPECT_DOUBLE_EQ(session.model().edits().zooms[0].scale, 2.0);
    EXPECT_FALSE(session.model().edits().aspect.has_value());
}

TEST_F(InspectorTest, FollowingThePointerLocksTheFocusPoint) {
    EditorSession& session = openWithZoom();
    InspectorPanel panel(session);
    named<QDoubleSpinBox>(panel, "Focus across value")->setValue(25);
    EXPECT_DOUBLE_EQ(session.model().edits().zooms[0].x, 0.25);
    named<QCheckBox>(panel, "Follow the pointer")->setChecked(true);
    EXPECT_EQ(session.model().edits().zooms[0].follow, std::optional(true));
    EXPECT_FALSE(named<QSlider>(panel, "Focus across")->isEnabled());
    named<QCheckBox>(panel, "Follow the pointer")->setChecked(false);
    EXPECT_FALSE(session.model().edits().zooms[0].follow.has_value());
    EXPECT_TRUE(named<QSlider>(panel, "Focus across")->isEnabled());
}

TEST_F(InspectorTest, AnOutsideEditRefreshesTheControlsWithoutASecondCommit) {
    EditorSession& session = openWithZoom();
    InspectorPanel panel(session);
    size_t before = undoSteps(session);
    project::Edits candidate = session.model().edits();
    candidate.zooms[0].scale = 3.7;
    candidate.frame = project::FrameStyle{3, 0.2, 0.05, false};
    candidate.cursor = project::CursorStyle{true, 2.5, 0.5, true, "gold"};
    ASSERT_TRUE(session.model().commit(candidate));
    EXPECT_EQ(undoSteps(session), before + 1);
    EXPECT_DOUBLE_EQ(named<QDoubleSpinBox>(panel, "Zoom scale value")->value(), 3.7);
    EXPECT_DOUBLE_EQ(named<QDoubleSpinBox>(panel, "Padding value")->value(), 20);
    EXPECT_TRUE(named<QAbstractButton>(panel, "Forest")->isChecked());
    EXPECT_FALSE(named<QCheckBox>(panel, "Shadow")->isChecked());
    EXPECT_DOUBLE_EQ(named<QDoubleSpinBox>(panel, "Cursor size value")->value(), 2.5);
    EXPECT_EQ(named<QComboBox>(panel, "Cursor theme")->currentData().toString(), "gold");
    EXPECT_TRUE(named<QCheckBox>(panel, "Hide when idle")->isChecked());
    EXPECT_EQ(undoSteps(session), before + 1);
    EXPECT_EQ(session.model().edits(), candidate);
}

// --- selection and the export lock

TEST_F(InspectorTest, WithNothingSelectedOnlyTheHintShows) {
    EditorSession& session = openWithZoom();
    InspectorPanel panel(session);
    panel.show();
    QLabel* hint = named<QLabel>(panel, "Selection hint");
    EXPECT_FALSE(hint->isVisible());
    EXPECT_TRUE(named<QSlider>(panel, "Zoom scale")->isVisible());

    named<QAbstractButton>(panel, "Remove Zoom")->click();
    EXPECT_TRUE(session.model().edits().zooms.empty());
    EXPECT_EQ(session.selection().kind, EditorSession::Kind::None);
    EXPECT_TRUE(hint->isVisible());
    EXPECT_TRUE(hint->text().startsWith("Select a zoom, cut or redaction"));
    EXPECT_FALSE(named<QSlider>(panel, "Zoom scale")->isVisible());
    EXPECT_FALSE(named<QComboBox>(panel, "Speed")->isVisible());
}

TEST_F(InspectorTest, EverythingIsLockedWhileAnExportRuns) {
    EditorSession& session = openWithZoom();
    InspectorPanel panel(session);
    session.model().setExporting(true);
    EXPECT_FALSE(named<QSlider>(panel, "Zoom scale")->isEnabled());
    EXPECT_FALSE(named<QCheckBox>(panel, "Backdrop")->isEnabled());
    EXPECT_FALSE(named<QAbstractButton>(panel, "Ocean")->isEnabled());
    EXPECT_FALSE(named<QCheckBox>(panel, "Show the cursor")->isEnabled());
    session.model().setExporting(false);
    EXPECT_TRUE(named<QSlider>(panel, "Zoom scale")->isEnabled());
}

// --- cuts and speed-ups

TEST_F(InspectorTest, ACutBecomesASpeedUpAndBack) {
    EditorSession& session = openSession();
    session.setPlayhead(1.0);
    session.model().addSegment(0);
    ASSERT_EQ(session.selection().kind, EditorSession::Kind::Segment);
    InspectorPanel panel(session);
    EXPECT_EQ(named<QLabel>(panel, "Selection")->text(), "Cut");
    EXPECT_FALSE(named<QComboBox>(panel, "Speed")->isEnabled());

    named<QRadioButton>(panel, "Speed up")->click();
    EXPECT_DOUBLE_EQ(session.model().edits().timing()[0].speed, 2);
    EXPECT_EQ(named<QLabel>(panel, "Selection")->text(), "Speed-up");
    choose(named<QComboBox>(panel, "Speed"), 4.0);
    EXPECT_DOUBLE_EQ(session.model().edits().timing()[0].speed, 4);
    named<QRadioButton>(panel, "Cut")->click();
    EXPECT_TRUE(session.model().edits().timing()[0].isCut());
}

TEST_F(InspectorTest, ASpeedOutsideTheChoicesIsShownAsItIs) {
    EditorSession& session = openSession();
    session.setPlayhead(1.0);
    session.model().addSegment(2);
    InspectorPanel panel(session);
    session.model().setSegment(0, std::nullopt, std::nullopt, 2.5);
    QComboBox* speed = named<QComboBox>(panel, "Speed");
    EXPECT_DOUBLE_EQ(speed->currentData().toDouble(), 2.5);
    EXPECT_EQ(speed->currentText(), "2.5×");
}

// --- style

TEST_F(InspectorTest, BackdropOffOnAndPickingABackground) {
    EditorSession& session = openSession();
    InspectorPanel panel(session);
    QCheckBox* backdrop = named<QCheckBox>(panel, "Backdrop");
    backdrop->setChecked(true);
    ASSERT_TRUE(session.model().edits().frame);
    named<QDoubleSpinBox>(panel, "Padding value")->setValue(12);
    EXPECT_DOUBLE_EQ(session.model().edits().frame->padding, 0.12);

    backdrop->setChecked(false);
    EXPECT_FALSE(session.model().edits().frame);
    EXPECT_FALSE(named<QSlider>(panel, "Padding")->isEnabled());
    // Picking a background turns the backdrop back on, as it was.
    named<QAbstractButton>(panel, "Ocean")->click();
    ASSERT_TRUE(session.model().edits().frame);
    EXPECT_EQ(session.model().edits().frame->background, 1);
    EXPECT_DOUBLE_EQ(session.model().edits().frame->padding, 0.12);
    EXPECT_TRUE(backdrop->isChecked());
    EXPECT_TRUE(named<QAbstractButton>(panel, "Ocean")->isChecked());
    EXPECT_FALSE(named<QAbstractButton>(panel, "Violet")->isChecked());
}

TEST_F(InspectorTest, CanvasShapeAndClickHighlights) {
    EditorSession& session = openSession();
    InspectorPanel panel(session);
    choose(named<QComboBox>(panel, "Canvas shape"),
           static_cast<int>(project::AspectRatio::Square1x1));
    EXPECT_EQ(session.model().edits().aspect, project::AspectRatio::Square1x1);
    choose(named<QComboBox>(panel, "Canvas shape"),
           static_cast<int>(project::AspectRatio::Original));
    EXPECT_FALSE(session.model().edits().aspect.has_value());
    QCheckBox* highlights = named<QCheckBox>(panel, "Highlight clicks");
    highlights->setChecked(!highlights->isChecked());
    EXPECT_EQ(session.model().edits().clickHighlights, highlights->isChecked());
}

// --- camera

TEST_F(InspectorTest, CameraChoicesNeedFootageAndEachIsOneCommit) {
    EditorSession& session = openSession();
    {
        InspectorPanel panel(session);
        EXPECT_FALSE(named<QComboBox>(panel, "Camera layout")->isEnabled());
    }
    std::ofstream(session.model().project().file(project::LocalProject::kCamera)) << "";
    InspectorPanel panel(session);
    size_t before = undoSteps(session);
    choose(named<QComboBox>(panel, "Camera layout"),
           static_cast<int>(project::CameraLayout::SideLeft));
    ASSERT_TRUE(session.model().edits().camera);
    EXPECT_EQ(session.model().edits().camera->layout, project::CameraLayout::SideLeft);
    EXPECT_EQ(undoSteps(session), before + 1);
    // The corner radius is only for the rounded shape.
    EXPECT_FALSE(named<QSlider>(panel, "Camera corner radius")->isEnabled());
    choose(named<QComboBox>(panel, "Camera shape"),
           static_cast<int>(project::CameraShape::Rounded));
    EXPECT_TRUE(named<QSlider>(panel, "Camera corner radius")->isEnabled());
    named<QDoubleSpinBox>(panel, "Camera size value")->setValue(40);
    EXPECT_DOUBLE_EQ(session.model().edits().camera->size, 0.4);
    named<QCheckBox>(panel, "Mirror the camera")->setChecked(false);
    EXPECT_FALSE(session.model().edits().camera->mirror);
    EXPECT_EQ(undoSteps(session), before + 4);
}

// --- cursor

TEST_F(InspectorTest, CursorSizeAndTheme) {
    EditorSession& session = openSession();
    InspectorPanel panel(session);
    named<QDoubleSpinBox>(panel, "Cursor size value")->setValue(2.0);
    ASSERT_TRUE(session.model().edits().cursor);
    EXPECT_DOUBLE_EQ(session.model().edits().cursor->size, 2.0);
    QComboBox* theme = named<QComboBox>(panel, "Cursor theme");
    ASSERT_GT(theme->count(), 1) << "no cursor themes found";
    choose(theme, "neon");
    EXPECT_EQ(session.model().edits().cursor->theme, std::optional<std::string>("neon"));
    choose(theme, QString());
    EXPECT_FALSE(session.model().edits().cursor->theme.has_value());
    EXPECT_DOUBLE_EQ(session.model().edits().cursor->size, 2.0);

    named<QCheckBox>(panel, "Show the cursor")->setChecked(false);
    EXPECT_FALSE(session.model().edits().cursor->visible);
    EXPECT_FALSE(theme->isEnabled());
}

// --- redaction

TEST_F(InspectorTest, RedactionStyleAndStrength) {
    EditorSession& session = openSession();
    ASSERT_TRUE(session.redactions().add({0.1, 0.1, 0.3, 0.2}));
    session.select({EditorSession::Kind::Redaction, 0});
    InspectorPanel panel(session);
    size_t before = undoSteps(session);
    named<QDoubleSpinBox>(panel, "Redaction strength value")->setValue(30);
    EXPECT_DOUBLE_EQ(session.model().edits().redactionList()[0].strength, 0.3);
    EXPECT_FALSE(named<QAbstractButton>(panel, "Box colour")->isEnabled());
    choose(named<QComboBox>(panel, "Redaction style"),
           static_cast<int>(project::RedactionStyle::Box));
    EXPECT_EQ(session.model().edits().redactionList()[0].style, project::RedactionStyle::Box);
    EXPECT_TRUE(named<QAbstractButton>(panel, "Box colour")->isEnabled());
    EXPECT_EQ(undoSteps(session), before + 2);
    named<QAbstractButton>(panel, "Remove Redaction")->click();
    EXPECT_TRUE(session.model().edits().redactionList().empty());
}

// --- sections

TEST_F(InspectorTest, AClosedSectionStaysClosedInTheNextPanel) {
    EditorSession& session = openSession();
    {
        InspectorPanel panel(session);
        QToolButton* style = named<QToolButton>(panel, "Style");
        ASSERT_TRUE(style->isChecked());
        style->click();
        EXPECT_FALSE(named<QCheckBox>(panel, "Backdrop")->isVisibleTo(&panel));
    }
    InspectorPanel again(session);
    EXPECT_FALSE(named<QToolButton>(again, "Style")->isChecked());
    EXPECT_FALSE(named<QCheckBox>(again, "Backdrop")->isVisibleTo(&again));
    EXPECT_TRUE(named<QCheckBox>(again, "Show the cursor")->isVisibleTo(&again));
}

}  // namespace
}  // namespace quillo::views

namespace quillo::views {
namespace {

// Pictures of the panel for a person to look at, written to $QUILLO_VIEWS_SHOTS (the test run's
// artefacts): a zoom selected and nothing selected, in a light and a dark palette.
QPalette darkPalette() {
    QPalette dark;
    dark.setColor(QPalette::Window, QColor(0x26, 0x27, 0x2b));
    dark.setColor(QPalette::WindowText, QColor(0xe8, 0xe8, 0xea));
    dark.setColor(QPalette::Base, QColor(0x1c, 0x1d, 0x20));
    dark.setColor(QPalette::AlternateBase, QColor(0x2e, 0x2f, 0x34));
    dark.setColor(QPalette::Text, QColor(0xe8, 0xe8, 0xea));
    dark.setColor(QPalette::Button, QColor(0x33, 0x34, 0x39));
    dark.setColor(QPalette::ButtonText, QColor(0xe8, 0xe8, 0xea));
    dark.setColor(QPalette::Highlight, QColor(0x5b, 0x8d, 0xef));
    dark.setColor(QPalette::HighlightedText, Qt::white);
    dark.setColor(QPalette::PlaceholderText, QColor(0x9a, 0x9b, 0xa1));
    dark.setColor(QPalette::Mid, QColor(0x44, 0x45, 0x4a));
    dark.setColor(QPalette::Disabled, QPalette::WindowText, QColor(0x75, 0x76, 0x7c));
    dark.setColor(QPalette::Disabled, QPalette::Text, QColor(0x75, 0x76, 0x7c));
    dark.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(0x75, 0x76, 0x7c));
    return dark;
}

TEST_F(InspectorTest, Screenshots) {
    QString folder = qEnvironmentVariable("QUILLO_VIEWS_SHOTS", "/tmp");
    EditorSession& session = openWithZoom();
    QPalette light = QApplication::palette();
    for (bool dark : {false, true}) {
        QApplication::setPalette(dark ? darkPalette() : light);
        InspectorPanel panel(session);
        panel.resize(320, panel.sizeHint().height());
        panel.show();
        QString suffix = dark ? "-dark.png" : "-light.png";
        auto settle = [&panel] {
            QCoreApplication::processEvents();
            panel.resize(320, panel.sizeHint().height());
            QCoreApplication::processEvents();
        };
        session.select({EditorSession::Kind::Zoom, 0});
        settle();
        panel.grab().save(folder + "/inspector-zoom" + suffix);
        session.select({});
        settle();
        panel.grab().save(folder + "/inspector-none" + suffix);
    }
    QApplication::setPalette(light);
}

}  // namespace
}  // namespace quillo::views
