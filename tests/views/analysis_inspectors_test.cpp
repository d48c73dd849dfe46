// The analysis sections of the inspector: captions (generate, edit lines, style), dead time
// (find, apply) and sensitive info (hide proposals), driven through their controls.

#include <chrono>

#include <QAbstractItemView>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QPushButton>
#include <QSpinBox>
#include <QTableView>
#include <QTest>
#include <gtest/gtest.h>

#include "captions/caption_jobs.h"
#include "support/librivox.h"
#include "support/movies.h"
#include "views/analysis_parts.h"
#include "views/captions_inspector.h"
#include "views/captions_line_list.h"
#include "views/dead_time_inspector.h"
#include "views/sensitive_inspector.h"
#include "views_fixture.h"

namespace quillo::views {
namespace {

using captions::CaptionSegment;
using captions::CaptionTrack;

// Runs the event loop until `done` holds; false after a generous deadline (slow machines and
// sanitizers make the engines slow, so the deadline only guards against hanging).
template <class Condition>
bool waitFor(Condition done, std::chrono::seconds limit = std::chrono::seconds(180)) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!done()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QTest::qWait(10);
    }
    return true;
}

// Three seconds of a still picture, then two of motion, all silent.
const std::string kStillThenMotion =
    "-f lavfi -i color=c=0x336699:size=320x180:rate=30:duration=3 "
    "-f lavfi -i testsrc2=size=320x180:rate=30:duration=2 "
    "-f lavfi -i anullsrc=r=48000:cl=stereo:d=5 "
    "-filter_complex [0:v][1:v]concat=n=2:v=1:a=0[v] -map [v] -map 2:a";

CaptionTrack threeLines() {
    CaptionTrack track;
    track.locale = "en_US";
    track.engine = "PocketSphinx";
    track.segments = {{0.2, 1.0, "first line", std::nullopt},
                      {1.2, 2.0, "second line", std::nullopt},
                      {2.5, 3.5, "third line", std::nullopt}};
    return track;
}

class AnalysisInspectors : public ViewsFixture {
protected:
    // Opens a recording made by `ffmpegArgs` (inputs and mapping; the fixture's encoder settings
    // are added) of `seconds` seconds.
    EditorSession& openMade(const std::string& ffmpegArgs, double seconds) {
        auto created = studio->library().create({"window", 1, "Notes", "Made"},
                                                std::chrono::system_clock::now());
        EXPECT_TRUE(created);
        project::LocalProject project = *created;
        testing::ffmpeg(
            ffmpegArgs + " -c:v libx264 -preset ultrafast -pix_fmt yuv420p -c:a aac -shortest",
            project.recordingFile());
        project.metadata.duration = seconds;
        EXPECT_TRUE(project.save());
        studio->reload();
        EXPECT_TRUE(studio->open(project.id()));
        auto model = studio->editor(project.id());
        EXPECT_TRUE(model);
        sessions.push_back(std::make_unique<EditorSession>(*studio, **model));
        return *sessions.back();
    }

    static std::filesystem::path folder(EditorSession& session) {
        return session.model().project().directory;
    }
};

// --- texts shared by the sections

TEST(AnalysisClockText, RoundsToTenthsAcrossTheMinute) {
    EXPECT_EQ(clockText(0), "0:00.0");
    EXPECT_EQ(clockText(-3), "0:00.0");
    EXPECT_EQ(clockText(59.96), "1:00.0");
    EXPECT_EQ(clockText(61.24), "1:01.2");
    EXPECT_EQ(clockText(3600), "60:00.0");
}

// --- caption lines

TEST_F(AnalysisInspectors, EditingALineSavesItsTextAndKeepsTheOthers) {
    EditorSession& session = openSession();
    ASSERT_TRUE(session.saveCaptions(threeLines()));
    CaptionsInspector inspector(session);
    QTableView* table = inspector.lines()->table();
    ASSERT_EQ(table->model()->rowCount(), 3);

    QModelIndex text = table->model()->index(1, 1);
    EXPECT_TRUE(table->model()->setData(text, QStringLiteral("  the  second\tline ")));

    auto saved = CaptionTrack::load(folder(session));
    ASSERT_TRUE(saved);
    ASSERT_EQ(saved->segments.size(), 3u);
    EXPECT_EQ(saved->segments[0], threeLines().segments[0]);
    EXPECT_EQ(saved->segments[1].text, "the second line");
    EXPECT_EQ(saved->segments[1].start, 1.2);
    EXPECT_EQ(saved->segments[2], threeLines().segments[2]);
    EXPECT_EQ(table->model()->data(text).toString(), "the second line");
}

TEST_F(AnalysisInspectors, ChoosingALineMovesThePlayheadAndDeleteRemovesIt) {
    EditorSession& session = openSession();
    ASSERT_TRUE(session.saveCaptions(threeLines()));
    CaptionsInspector inspector(session);
    QTableView* table = inspector.lines()->table();

    table->setCurrentIndex(table->model()->index(2, 1));
    EXPECT_NEAR(session.playhead(), 2.5, 1e-6);
    EXPECT_EQ(session.selection(), (EditorSession::Selection{EditorSession::Kind::Caption, 2}));

    // The timeline selecting a line selects it here too.
    session.select({EditorSession::Kind::Caption, 0});
    EXPECT_EQ(table->currentIndex().row(), 0);

    table->setFocus();
    QTest::keyClick(table, Qt::Key_Delete);
    auto saved = CaptionTrack::load(folder(session));
    ASSERT_TRUE(saved);
    ASSERT_EQ(saved->segments.size(), 2u);
    EXPECT_EQ(saved->segments[0].text, "second line");
    EXPECT_EQ(table->model()->rowCount(), 2);
}

TEST_F(AnalysisInspectors, ARefusedSaveShowsTheModelsMessageAndKeepsTheFile) {
    EditorSession& session = openSession();
    // Written by hand with overlapping lines: the file reads, but no edit of it saves.
    CaptionTrack overlapping = threeLines();
    overlapping.segments[1].start = 0.5;
    ASSERT_TRUE(overlapping.save(folder(session)));
    session.reloadSideFiles();
    ASSERT_TRUE(session.captions());
    CaptionsInspector inspector(session);
    QAbstractItemModel* lines = inspector.lines()->table()->model();

    EXPECT_FALSE(lines->setData(lines->index(0, 1), QStringLiteral("changed")));
    auto saved = CaptionTrack::load(folder(session));
    ASSERT_TRUE(saved);
    EXPECT_EQ(*saved, overlapping);
    auto* message = named<QLabel>(inspector, "Transcription message");
    EXPECT_EQ(message->text().toStdString(), overlapping.validate(4).error().message);
    EXPECT_EQ(lines->data(lines->index(0, 1)).toString(), "first line");
}

TEST_F(AnalysisInspectors, LinesFollowCaptionsWrittenElsewhere) {
    EditorSession& session = openSession();
    CaptionsInspector inspector(session);
    EXPECT_EQ(inspector.lines()->table()->model()->rowCount(), 0);
    ASSERT_TRUE(threeLines().save(folder(session)));
    session.reloadSideFiles();
    EXPECT_EQ(inspector.lines()->table()->model()->rowCount(), 3);
}

// --- caption style

TEST_F(AnalysisInspectors, EachStyleChangeIsOneUndoStep) {
    EditorSession& session = openSession();
    CaptionsInspector inspector(session);
    auto& model = session.model();
    const size_t steps = model.undoStack().size();

    named<QCheckBox>(inspector, "Show captions")->click();
    ASSERT_TRUE(model.edits().captions);
    EXPECT_TRUE(model.edits().captions->visible);
    EXPECT_EQ(model.undoStack().size(), steps + 1);

    auto* position = named<QComboBox>(inspector, "Caption position");
    position->setCurrentIndex(1);
    emit position->activated(1);
    EXPECT_EQ(model.edits().captions->position, project::CaptionPosition::Top);
    EXPECT_EQ(model.undoStack().size(), steps + 2);

    named<QDoubleSpinBox>(inspector, "Caption size")->setValue(1.5);
    named<QSpinBox>(inspector, "Caption line length")->setValue(50);
    named<QCheckBox>(inspector, "Highlight words")->click();
    EXPECT_EQ(model.edits().captions->size, 1.5);
    EXPECT_EQ(model.edits().captions->maxCharacters, 50);
    EXPECT_TRUE(model.edits().captions->highlightWords);
    EXPECT_EQ(model.undoStack().size(), steps + 5);

    // Undo puts the controls back without committing anything of their own.
    model.undo();
    EXPECT_FALSE(named<QCheckBox>(inspector, "Highlight words")->isChecked());
    EXPECT_EQ(model.undoStack().size(), steps + 4);
    EXPECT_EQ(named<QSpinBox>(inspector, "Caption line length")->value(), 50);
}

TEST_F(AnalysisInspectors, StylingHiddenCaptionsKeepsThemHidden) {
    EditorSession& session = openSession();
    CaptionsInspector inspector(session);
    named<QDoubleSpinBox>(inspector, "Caption size")->setValue(2.0);
    ASSERT_TRUE(session.model().edits().captions);
    EXPECT_FALSE(session.model().edits().captions->visible);
    EXPECT_FALSE(named<QCheckBox>(inspector, "Show captions")->isChecked());
}

// --- caption jobs

TEST_F(AnalysisInspectors, GeneratingFromRealSpeechListsTheLinesAndShowsThem) {
    const auto clip = testing::librivox::clip("0880");
    if (!std::filesystem::exists(clip)) {
        GTEST_SKIP() << "pocketsphinx-testdata is not installed";
    }
    EditorSession& session =
        openMade("-f lavfi -i testsrc2=size=320x180:rate=30:duration=3 -i " + clip.string(), 3);
    CaptionsInspector inspector(session);
    auto* generate = named<QPushButton>(inspector, "Generate captions");
    generate->click();
    EXPECT_FALSE(generate->isEnabled());
    EXPECT_TRUE(named<QWidget>(inspector, "Transcription progress")->isVisibleTo(&inspector));
    ASSERT_TRUE(waitFor([&] { return generate->isEnabled(); }));
    const QString message = named<QLabel>(inspector, "Transcription message")->text();
    EXPECT_TRUE(message.endsWith("caption lines.") || message.endsWith("caption line."))
        << message.toStdString();
    ASSERT_TRUE(session.captions());
    EXPECT_GT(inspector.lines()->table()->model()->rowCount(), 0);
    ASSERT_TRUE(session.model().edits().captions);
    EXPECT_TRUE(session.model().edits().captions->visible);
}

TEST_F(AnalysisInspectors, AJobStartedElsewhereShowsAndItsErrorStays) {
    // A tone and a test pattern: no speech to find.
    EditorSession& session = openSession(2);
    CaptionsInspector inspector(session);
    auto* generate = named<QPushButton>(inspector, "Generate captions");
    const auto& project = session.model().project();
    ASSERT_TRUE(studio->captionJobs().start(session.id(), project.recordingFile(),
                                            project.directory, "en_US"));
    ASSERT_TRUE(waitFor([&] { return !generate->isEnabled(); }, std::chrono::seconds(5)) ||
                !studio->captionJobs().isRunning(session.id()));
    ASSERT_TRUE(waitFor(
        [&] { return !studio->captionJobs().isRunning(session.id()) && generate->isEnabled(); }));
    auto error = studio->captionJobs().error(session.id());
    ASSERT_TRUE(error);
    EXPECT_EQ(named<QLabel>(inspector, "Transcription message")->text().toStdString(),
              error->message);
    EXPECT_FALSE(session.model().edits().captions);
}

// --- dead time

TEST_F(AnalysisInspectors, FindProposesAStillStretchAndApplyCutsItInOneStep) {
    EditorSession& session = openMade(kStillThenMotion, 5);
    DeadTimeInspector inspector(session);
    auto* action = named<QComboBox>(inspector, "Dead time action");
    action->setCurrentIndex(action->findText("Cut"));
    auto* apply = named<QPushButton>(inspector, "Apply dead time proposals");
    named<QPushButton>(inspector, "Find dead time")->click();
    ASSERT_TRUE(waitFor([&] { return !inspector.proposals().empty(); }));

    const auto proposal = inspector.proposals().front();
    EXPECT_LT(proposal.start, 0.5);
    EXPECT_GT(proposal.end, 2.0);
    EXPECT_LT(proposal.end, 3.2);
    EXPECT_EQ(proposal.speed, 0);
    // The timeline shows the proposals while they are listed.
    ASSERT_EQ(session.deadTimeProposals().size(), inspector.proposals().size());
    EXPECT_EQ(session.deadTimeProposals().front().start, proposal.start);
    const double before = session.model().edits().outputDuration();
    const size_t steps = session.model().undoStack().size();

    apply->click();
    EXPECT_EQ(session.model().undoStack().size(), steps + 1);
    EXPECT_NEAR(session.model().edits().outputDuration(), before - (proposal.end - proposal.start),
                0.05);
    EXPECT_TRUE(inspector.proposals().empty());
    EXPECT_TRUE(session.deadTimeProposals().empty());
    EXPECT_TRUE(named<QLabel>(inspector, "Dead time search message")->text().startsWith("Removed"));

    session.model().undo();
    EXPECT_NEAR(session.model().edits().outputDuration(), before, 1e-6);
}

TEST_F(AnalysisInspectors, OptionsComeFromPreferencesAndRelistWithoutAnotherAnalysis) {
    ASSERT_TRUE(preferences->set(app::prefs::deadTimeMinimum, 2.0));
    ASSERT_TRUE(preferences->set(app::prefs::deadTimeSpeed, 6.0));
    EditorSession& session = openMade(kStillThenMotion, 5);
    DeadTimeInspector inspector(session);
    EXPECT_EQ(inspector.options().minimumLength, 2.0);
    EXPECT_EQ(inspector.options().speed, 6.0);

    named<QPushButton>(inspector, "Find dead time")->click();
    ASSERT_TRUE(waitFor([&] { return !inspector.proposals().empty(); }));
    auto* action = named<QComboBox>(inspector, "Dead time action");
    action->setCurrentIndex(action->findText("Speed up"));
    ASSERT_FALSE(inspector.proposals().empty());
    EXPECT_EQ(inspector.proposals().front().speed, 6.0);
    action->setCurrentIndex(action->findText("Cut"));
    EXPECT_EQ(inspector.proposals().front().speed, 0);
    EXPECT_FALSE(named<QComboBox>(inspector, "Dead time speed")->isEnabled());

    // A new trim makes the analysis stale: the list goes rather than show wrong times.
    project::Edits trimmed = session.model().edits();
    trimmed.trimEnd = 4;
    ASSERT_TRUE(session.model().commit(trimmed));
    EXPECT_TRUE(inspector.proposals().empty());
}

TEST_F(AnalysisInspectors, DismissLeavesTheRecipeAlone) {
    EditorSession& session = openSession(2);
    DeadTimeInspector inspector(session);
    named<QPushButton>(inspector, "Find dead time")->click();
    auto* find = named<QPushButton>(inspector, "Find dead time");
    ASSERT_TRUE(waitFor([&] { return find->isEnabled(); }));
    const project::Edits edits = session.model().edits();
    named<QPushButton>(inspector, "Dismiss dead time proposals")->click();
    EXPECT_TRUE(inspector.proposals().empty());
    EXPECT_EQ(session.model().edits(), edits);
}

// --- sensitive info

std::vector<project::Redaction> threeFindings() {
    std::vector<project::Redaction> list;
    for (int i = 0; i < 3; ++i) {
        project::Redaction r;
        r.start = 0.5 * i;
        r.end = r.start + 1;
        r.x = 0.1;
        r.y = 0.1 + 0.2 * i;
        r.width = 0.3;
        r.height = 0.1;
        r.label = i == 1 ? "Email" : "Phone number";
        list.push_back(r);
    }
    return list;
}

TEST_F(AnalysisInspectors, HidingOneAndThenAllTurnsProposalsIntoRedactions) {
    EditorSession& session = openSession();
    session.redactions().setProposals(threeFindings());
    SensitiveInspector inspector(session);
    QTableView* table = inspector.table();
    ASSERT_EQ(table->model()->rowCount(), 3);
    EXPECT_EQ(table->model()->data(table->model()->index(1, 0)).toString(), "Email");
    const size_t steps = session.model().undoStack().size();

    table->setFocus();
    table->setCurrentIndex(table->model()->index(1, 0));
    QTest::keyClick(table, Qt::Key_Return);
    ASSERT_EQ(session.model().edits().redactionList().size(), 1u)
        << named<QLabel>(inspector, "Sensitive info scan message")->text().toStdString();
    EXPECT_EQ(session.model().edits().redactionList()[0], threeFindings()[1]);
    EXPECT_EQ(table->model()->rowCount(), 2);

    named<QPushButton>(inspector, "Hide all sensitive info")->click();
    EXPECT_EQ(session.model().edits().redactionList().size(), 3u);
    EXPECT_TRUE(session.redactions().proposals().empty());
    EXPECT_EQ(session.model().undoStack().size(), steps + 2);
    EXPECT_FALSE(table->isVisibleTo(&inspector));
}

TEST_F(AnalysisInspectors, DismissDropsProposalsWithoutAnEdit) {
    EditorSession& session = openSession();
    session.redactions().setProposals(threeFindings());
    SensitiveInspector inspector(session);
    named<QPushButton>(inspector, "Dismiss sensitive info proposals")->click();
    EXPECT_TRUE(session.redactions().proposals().empty());
    EXPECT_TRUE(session.model().edits().redactionList().empty());
    EXPECT_EQ(inspector.table()->model()->rowCount(), 0);
}

TEST_F(AnalysisInspectors, CancellingAScanLeavesTheProposalsAndTheNextScanRuns) {
    EditorSession& session = openSession(1);
    session.redactions().setProposals(threeFindings());
    SensitiveInspector inspector(session);
    auto* scan = named<QPushButton>(inspector, "Scan for sensitive info");
    scan->click();
    named<QPushButton>(inspector, "Cancel sensitive info scan")->click();
    EXPECT_FALSE(session.redactions().scanning());
    EXPECT_TRUE(scan->isEnabled());
    EXPECT_EQ(session.redactions().proposals().size(), 3u);

    scan->click();
    ASSERT_TRUE(waitFor([&] { return scan->isEnabled(); }));
    EXPECT_TRUE(session.redactions().proposals().empty());
}

TEST_F(AnalysisInspectors, AScanOfAPlainPictureSaysNothingWasFound) {
    EditorSession& session = openSession(1);
    SensitiveInspector inspector(session);
    auto* scan = named<QPushButton>(inspector, "Scan for sensitive info");
    scan->click();
    EXPECT_TRUE(session.redactions().scanning());
    ASSERT_TRUE(waitFor([&] { return scan->isEnabled(); }));
    EXPECT_FALSE(session.redactions().scanning());
    EXPECT_EQ(named<QLabel>(inspector, "Sensitive info scan message")->text(),
              "Nothing private was found on screen.");
}

// --- how the sections look

QPalette darkPalette() {
    QPalette dark;
    dark.setColor(QPalette::Window, QColor(0x24, 0x24, 0x27));
    dark.setColor(QPalette::WindowText, QColor(0xed, 0xed, 0xef));
    dark.setColor(QPalette::Base, QColor(0x1b, 0x1b, 0x1e));
    dark.setColor(QPalette::AlternateBase, QColor(0x2a, 0x2a, 0x2e));
    dark.setColor(QPalette::Text, QColor(0xed, 0xed, 0xef));
    dark.setColor(QPalette::PlaceholderText, QColor(0x9a, 0x9a, 0xa2));
    dark.setColor(QPalette::Button, QColor(0x34, 0x34, 0x38));
    dark.setColor(QPalette::ButtonText, QColor(0xed, 0xed, 0xef));
    dark.setColor(QPalette::Highlight, QColor(0x35, 0x84, 0xe4));
    dark.setColor(QPalette::HighlightedText, Qt::white);
    for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
        dark.setColor(QPalette::Disabled, role, QColor(0x6e, 0x6e, 0x75));
    }
    return dark;
}

// Renders each section with content in a light and a dark palette. The pictures are written to
// $QUILLO_VIEWS_SHOTS when it is set, for a person to look at.
TEST_F(AnalysisInspectors, SectionsRenderWithContentInLightAndDark) {
    EditorSession& session = openMade(kStillThenMotion, 5);
    ASSERT_TRUE(session.saveCaptions(threeLines()));
    session.redactions().setProposals(threeFindings());
    const QString folder = qEnvironmentVariable("QUILLO_VIEWS_SHOTS");
    const QPalette light = QApplication::palette();
    for (const auto& [name, palette] : {std::pair{QStringLiteral("light"), light},
                                        std::pair{QStringLiteral("dark"), darkPalette()}}) {
        QApplication::setPalette(palette);
        std::vector<std::pair<QString, std::unique_ptr<QWidget>>> sections;
        sections.emplace_back("captions", std::make_unique<CaptionsInspector>(session));
        sections.emplace_back("deadtime", std::make_unique<DeadTimeInspector>(session));
        sections.emplace_back("sensitive", std::make_unique<SensitiveInspector>(session));
        for (auto& [section, widget] : sections) {
            widget->setAutoFillBackground(true);
            widget->resize(320, widget->sizeHint().height());
            widget->show();
            if (auto* deadTime = dynamic_cast<DeadTimeInspector*>(widget.get())) {
                named<QPushButton>(*deadTime, "Find dead time")->click();
                ASSERT_TRUE(waitFor([&] { return !deadTime->proposals().empty(); }));
            }
            widget->resize(320, widget->sizeHint().height());
            QCoreApplication::processEvents();
            QImage image = widget->grab().toImage();
            EXPECT_FALSE(image.isNull());
            if (!folder.isEmpty()) {
                image.save(folder + "/" + section + "-" + name + ".png");
            }
        }
    }
    QApplication::setPalette(light);
}

TEST(AnalysisProgressRow, RendersRunningAndFailedInLightAndDark) {
    const QString folder = qEnvironmentVariable("QUILLO_VIEWS_SHOTS");
    const QPalette light = QApplication::palette();
    for (const auto& [name, palette] : {std::pair{QStringLiteral("light"), light},
                                        std::pair{QStringLiteral("dark"), darkPalette()}}) {
        QApplication::setPalette(palette);
        ProgressRow row(QStringLiteral("Transcription"), QStringLiteral("Stop"));
        row.setAutoFillBackground(true);
        row.showProgress(QStringLiteral("Transcribing…"), 0.4);
        row.setMessage(QStringLiteral("Captions aren't available in German (Germany) on this "
                                      "computer."),
                       true);
        row.resize(320, row.sizeHint().height());
        row.show();
        QCoreApplication::processEvents();
        EXPECT_TRUE(row.running());
        QImage image = row.grab().toImage();
        if (!folder.isEmpty()) {
            image.save(folder + "/progress-" + name + ".png");
        }
    }
    QApplication::setPalette(light);
}

}  // namespace
}  // namespace quillo::views
