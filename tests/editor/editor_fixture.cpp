#include "editor_fixture.h"

#include <thread>

namespace quillo::editor {

void EditorFixture::SetUp() {
    MainQueue::install(&mainQueue);
    auto created = project::ProjectLibrary(library.path()).create({"window", 7, "Editor", ""});
    ASSERT_TRUE(created);
    project = *created;
    makeRecording(project.recordingFile());
}

void EditorFixture::makeRecording(const std::filesystem::path& file) {
    testing::ffmpeg(
        "-f lavfi -i testsrc=size=160x120:rate=10:duration=10 -pix_fmt yuv420p "
        "-c:v libx264 -preset ultrafast",
        file);
}

void EditorFixture::TearDown() { MainQueue::install(nullptr); }

std::unique_ptr<EditorModel> EditorFixture::openEditor() {
    auto editor = std::make_unique<EditorModel>(project);
    editor->load();
    EXPECT_TRUE(editor->loaded()) << editor->loadError().value_or("");
    return editor;
}

bool EditorFixture::runUntil(const std::function<bool()>& done) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        if (mainQueue.runPending() == 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }
    return true;
}

}  // namespace quillo::editor
