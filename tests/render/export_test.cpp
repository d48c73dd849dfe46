#include <cmath>
#include <fstream>
#include <unistd.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "media/movie_reader.h"
#include "project/project_library.h"
#include "render/exporter.h"
#include "support/child_process.h"
#include "support/movies.h"
#include "support/temp_folder.h"

namespace quillo::render {
namespace {

namespace fs = std::filesystem;
using project::Edits;
using testing::TempFolder;

// A 320×240 30 fps recording, 4 s long, with a tone. At 3.0 s one white frame flashes while
// a loud click sounds; otherwise the picture is a dark test pattern and the tone quiet.
class Export : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_movies = new TempFolder();
        testing::ffmpeg(
            "-f lavfi -i color=c=0x202020:size=320x240:rate=30:duration=4 "
            "-f lavfi -i 'sine=frequency=300:sample_rate=48000:duration=4' "
            "-filter_complex \"[0:v]drawbox=enable='between(n,90,90)':c=white:t=fill[v];"
            "[1:a]volume='if(between(t,3,3.02),1,0.05)':eval=frame[a]\" -map '[v]' -map '[a]' "
            "-pix_fmt yuv420p -c:v libx264 -preset ultrafast -g 15 -c:a aac",
            *s_movies / "recording.mp4");
    }
    static void TearDownTestSuite() { delete s_movies; }

    fs::path makeProject() {
        auto project = project::ProjectLibrary(library.path()).create({"window", 1, "Demo", ""});
        EXPECT_TRUE(project);
        fs::copy_file(*s_movies / "recording.mp4", project->recordingFile());
        return project->directory;
    }

    nlohmann::json streams(const fs::path& file) {
        return nlohmann::json::parse(testing::probe(file));
    }

    Result<void> exportWith(const fs::path& folder, const Edits& edits, const fs::path& to,
                            std::optional<double> maxDimension = std::nullopt,
                            const CancelToken& cancel = {}) {
        auto plan = renderPlan(folder, edits, maxDimension);
        if (!plan) {
            return plan.error();
        }
        return exportMovie(*plan, to, false, nullptr, cancel);
    }

    static TempFolder* s_movies;
    TempFolder library;
    TempFolder out;
};
TempFolder* Export::s_movies = nullptr;

// The output time of the first video frame brighter than the pattern, and of the first sound
// sample louder than the tone.
double flashTime(const fs::path& file) {
    auto reader = media::MovieReader::open(file);
    EXPECT_TRUE(reader);
    double fps = (*reader)->info().frameRate;
    for (int k = 0; k < (*reader)->info().duration * fps; ++k) {
        auto frame = (*reader)->frame(k / fps, {32, 24, media::PixelFormat::Gray8});
        if (frame && frame->pixels[12 * 32 + 16] > 200) {
            return k / fps;
        }
    }
    return -1;
}
double clickTime(const fs::path& file) {
    std::vector<float> samples = testing::decodedSound(file, 48000);
    for (size_t i = 0; i < samples.size(); ++i) {
        if (std::abs(samples[i]) > 0.06) {  // the tone peaks at 0.006, the click at 0.125
            return static_cast<double>(i) / 48000;
        }
    }
    return -1;
}

TEST_F(Export, MovieHasTheRightStreamsAndLengthAfterACut) {
    fs::path folder = makeProject();
    Edits edits = Edits::fresh(4);
    edits.segments = std::vector<project::TimeSegment>{{1, 2, 0}};
    edits.frame = project::FrameStyle{};
    fs::path file = out / "cut.mp4";
    ASSERT_TRUE(exportWith(folder, edits, file));

    auto info = streams(file);
    const auto& video = info["streams"][0];
    const auto& sound = info["streams"][1];
    EXPECT_EQ(video["codec_name"], "h264");
    EXPECT_EQ(video["profile"], "High");
    EXPECT_EQ(video["width"], 320);
    EXPECT_EQ(video["height"], 240);
    EXPECT_EQ(video["r_frame_rate"], "30/1");
    EXPECT_EQ(video["color_primaries"], "bt709");
    EXPECT_EQ(video["color_transfer"], "bt709");
    EXPECT_EQ(video["color_space"], "bt709");
    EXPECT_NEAR(std::stod(video["duration"].get<std::string>()), edits.outputDuration(),
                1.0 / 30 + 1e-6);
    EXPECT_EQ(sound["codec_name"], "aac");
    EXPECT_EQ(sound["sample_rate"], "48000");
    EXPECT_EQ(sound["channels"], 2);
    EXPECT_NEAR(std::stod(sound["duration"].get<std::string>()), edits.outputDuration(), 0.05);
}

TEST_F(Export, SoundStaysInStepWithThePictureAfterCutsAndSpeedUps) {
    fs::path folder = makeProject();
    Edits edits = Edits::fresh(4);
    // 0.5–1.5 cut, 1.5–2.5 at 2×: the flash at 3.0 s lands at 0.5 + 0.5 + 0.5 = 1.5 s.
    edits.segments = std::vector<project::TimeSegment>{{0.5, 1.5, 0}, {1.5, 2.5, 2}};
    fs::path file = out / "sync.mp4";
    ASSERT_TRUE(exportWith(folder, edits, file));
    EXPECT_NEAR(flashTime(file), 1.5, 1.0 / 30 + 1e-6);
    EXPECT_NEAR(clickTime(file), 1.5, 0.03);
    EXPECT_NEAR(edits.outputDuration(), 2.5, 1e-9);
}

TEST_F(Export, GifHasOneFramePerStepOfItsRate) {
    fs::path folder = makeProject();
    Edits edits = Edits::fresh(4);
    edits.trimEnd = 2.05;
    ExportSpec spec = exportSpec(ExportPreset::DocsGif, edits, {320, 240}, false);
    fs::path file = out / "docs.gif";
    ASSERT_TRUE(exportRecording(folder, spec, file, nullptr, {}));
    auto info = nlohmann::json::parse(testing::probe(file, "-count_frames"));
    EXPECT_EQ(info["streams"][0]["nb_read_frames"], "24");  // ⌊2.05 × 12⌋
    EXPECT_EQ(info["streams"][0]["width"], 320);

    // A very short clip still has one frame.
    edits.trimEnd = 0.05;
    spec = exportSpec(ExportPreset::DocsGif, edits, {320, 240}, false);
    ASSERT_TRUE(exportRecording(folder, spec, out / "short.gif", nullptr, {}));
    info = nlohmann::json::parse(testing::probe(out / "short.gif", "-count_frames"));
    EXPECT_EQ(info["streams"][0]["nb_read_frames"], "1");
}

TEST_F(Export, CancellingAndFailingLeaveNoFile) {
    fs::path folder = makeProject();
    CancelToken cancel;
    cancel.cancel();
    auto cancelled = exportWith(folder, Edits::fresh(4), out / "cancelled.mp4", {}, cancel);
    ASSERT_FALSE(cancelled);
    EXPECT_EQ(cancelled.error().message, kExportCancelled);
    EXPECT_TRUE(fs::is_empty(out.path()));

    auto unwritable = exportWith(folder, Edits::fresh(4), out / "missing" / "x.mp4");
    ASSERT_FALSE(unwritable);
    EXPECT_EQ(unwritable.error().message, "The export could not be written.");

    fs::remove(folder / "recording.mp4");
    auto missing = exportWith(folder, Edits::fresh(4), out / "gone.mp4");
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().message, "This recording cannot be exported.");
    EXPECT_TRUE(fs::is_empty(out.path()));
}

TEST_F(Export, ExistingFileIsReplacedOnlyWhenTheNewOneIsComplete) {
    fs::path folder = makeProject();
    fs::path file = out / "movie.mp4";
    std::ofstream(file) << "old";
    CancelToken cancel;
    auto plan = renderPlan(folder, Edits::fresh(4));
    ASSERT_TRUE(plan);
    auto result = exportMovie(
        *plan, file, false, [&](double) { cancel.cancel(); }, cancel);
    ASSERT_FALSE(result);
    EXPECT_EQ(testing::commandOutput("cat '" + file.string() + "'"), "old");
    ASSERT_TRUE(exportMovie(*plan, file, false, nullptr, {}));
    EXPECT_GT(fs::file_size(file), 1000u);
    EXPECT_EQ(std::distance(fs::directory_iterator(out.path()), fs::directory_iterator()), 1);
}

TEST_F(Export, PartsLeftByKilledExportsAreRemovedAndThoseOfRunningOnesKept) {
    pid_t gone = testing::forkChild([] {});
    ASSERT_GT(gone, 0);
    testing::waitForSignal(gone);
    const std::string stale = ".movie.mp4." + std::to_string(gone) + ".0A1B2C3D.part";
    const std::string running = ".movie.mp4." + std::to_string(getpid()) + ".0A1B2C3D.part";
    const std::string other = ".notes." + std::to_string(gone) + ".part";  // not an export's
    for (const std::string& name : {stale, running, other}) {
        out.write(name, "partial");
    }
    fs::path folder = makeProject();
    ASSERT_TRUE(exportWith(folder, Edits::fresh(1), out / "movie.mp4"));
    EXPECT_FALSE(fs::exists(out / stale));
    EXPECT_TRUE(fs::exists(out / running));
    EXPECT_TRUE(fs::exists(out / other));
    EXPECT_TRUE(fs::exists(out / "movie.mp4"));
}

}  // namespace
}  // namespace quillo::render
