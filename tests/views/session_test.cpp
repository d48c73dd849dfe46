// The editor session: selection across rows, playback intent and the model's edits arriving as
// Qt signals.

#include <QSignalSpy>
#include <gtest/gtest.h>

#include "support/movies.h"
#include "support/temp_folder.h"
#include "views_fixture.h"

namespace quillo::views {
namespace {

TEST_F(ViewsFixture, ModelEditsArriveAsSignalsAndFollowTheModelsSelection) {
    EditorSession& session = openSession();
    QSignalSpy recipe(&session, &EditorSession::recipeChanged);
    QSignalSpy selection(&session, &EditorSession::selectionChanged);
    session.setPlayhead(1.0);
    session.model().addZoom();
    EXPECT_GE(recipe.count(), 1);
    EXPECT_EQ(session.selection().kind, EditorSession::Kind::Zoom);
    EXPECT_GE(selection.count(), 1);
    session.model().undo();
    EXPECT_EQ(session.selection().kind, EditorSession::Kind::None);
}

TEST_F(ViewsFixture, ShuttleSpeedsUpAndStopsAndFrameStepsStopPlayback) {
    EditorSession& session = openSession();
    session.shuttle(1);
    EXPECT_TRUE(session.playing());
    EXPECT_EQ(session.rate(), 1);
    session.shuttle(1);
    EXPECT_EQ(session.rate(), 2);
    session.shuttle(-1);
    EXPECT_EQ(session.rate(), -1);
    session.setPlayhead(2.0, true);
    session.stepFrames(3);
    EXPECT_FALSE(session.playing());
    EXPECT_NEAR(session.playhead(), 2.0 + 3 * session.frameDuration(), 1e-9);
    EXPECT_NEAR(session.model().currentTime(), session.playhead(), 1e-9);
}

}  // namespace
}  // namespace quillo::views
