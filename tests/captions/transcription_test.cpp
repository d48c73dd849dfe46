#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <sstream>

#include <gtest/gtest.h>

#include "captions/caption_jobs.h"
#include "captions/caption_texts.h"
#include "captions/caption_transcriber.h"
#include "captions/pocketsphinx_engine.h"
#include "support/librivox.h"
#include "support/movies.h"
#include "support/temp_folder.h"

namespace quillo::captions {
namespace {

namespace fs = std::filesystem;
using testing::ScopedEnvironment;
using testing::TempFolder;

using testing::librivox::spoken;
using testing::librivox::wordErrorRate;

std::string clip(const std::string& number) { return testing::librivox::clip(number).string(); }

// A small test-pattern movie whose sound is the given clips one after the other, in AAC.
void makeSpeechMovie(const TempFolder& folder, const std::vector<std::string>& clips,
                     const fs::path& out) {
    std::string list;
    for (const std::string& number : clips) {
        list += "file '" + clip(number) + "'\n";
    }
    folder.write("clips.txt", list);
    testing::ffmpeg("-f lavfi -i testsrc=size=160x120:rate=10 -f concat -safe 0 -i '" +
                        (folder / "clips.txt").string() +
                        "' -map 0:v -map 1:a -shortest -c:v libx264 -preset ultrafast "
                        "-pix_fmt yuv420p -c:a aac -b:a 96k",
                    out);
}

// Keeps the transcriber's temporary files in a folder of the test's own.
class TranscriptionTest : public ::testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(m_temp);
        m_environment.set("TMPDIR", m_temp.string());
    }

    bool temporaryFilesLeft() const { return !fs::is_empty(m_temp); }

    TempFolder m_folder;
    fs::path m_temp = m_folder / "tmp";
    ScopedEnvironment m_environment;
};

TEST_F(TranscriptionTest, RecognisesRecordedSpeechWithPlausibleTimes) {
    const fs::path movie = m_folder / "speech.mp4";
    makeSpeechMovie(m_folder, {"0890", "0920", "0930"}, movie);
    std::vector<std::string> reference;
    for (const char* number : {"0890", "0920", "0930"}) {
        auto words = spoken(number);
        reference.insert(reference.end(), words.begin(), words.end());
    }
    ASSERT_GT(reference.size(), 30u);

    std::vector<std::pair<std::string, std::optional<double>>> reports;
    auto track = CaptionTranscriber().transcribe(
        movie, "en_US",
        [&](const std::string& status, std::optional<double> fraction) {
            reports.emplace_back(status, fraction);
        },
        {});
    ASSERT_TRUE(track) << track.error().message;
    EXPECT_EQ(track->engine, "PocketSphinx");
    EXPECT_EQ(track->locale, "en_US");
    EXPECT_FALSE(temporaryFilesLeft());

    std::vector<std::string> heard;
    double previousEnd = 0;
    for (const CaptionSegment& segment : track->segments) {
        ASSERT_TRUE(segment.words.has_value());
        for (const CaptionWord& word : *segment.words) {
            heard.push_back(word.text);
            EXPECT_GE(word.start, previousEnd - 1e-9) << word.text;
            EXPECT_LE(word.start, word.end) << word.text;
            previousEnd = word.end;
        }
    }
    EXPECT_LE(previousEnd, 14.7);
    const double errors = wordErrorRate(reference, heard);
    EXPECT_LE(errors, 0.35) << ::testing::PrintToString(heard);

    ASSERT_GE(reports.size(), 3u);
    EXPECT_EQ(reports.front().first, texts::kPreparingAudio);
    EXPECT_EQ(reports.back(),
              std::make_pair(std::string(texts::kTranscribing), std::optional<double>(1.0)));
}

TEST_F(TranscriptionTest, ExplainsWhyThereAreNoCaptions) {
    const fs::path silent = m_folder / "silent.mp4";
    testing::ffmpeg(
        "-f lavfi -i testsrc=size=160x120:rate=10:duration=3 -f lavfi -i anullsrc=r=48000 "
        "-shortest -c:v libx264 -preset ultrafast -pix_fmt yuv420p -c:a aac",
        silent);
    const fs::path mute = m_folder / "mute.mp4";
    testing::ffmpeg(
        "-f lavfi -i testsrc=size=160x120:rate=10:duration=2 -c:v libx264 -preset ultrafast "
        "-pix_fmt yuv420p",
        mute);
    CaptionTranscriber transcriber;

    auto quiet = transcriber.transcribe(silent, "en", nullptr, {});
    ASSERT_FALSE(quiet);
    EXPECT_EQ(quiet.error().message, texts::kNoSpeech);

    auto noSound = transcriber.transcribe(mute, "en_GB", nullptr, {});
    ASSERT_FALSE(noSound);
    EXPECT_EQ(noSound.error().message, texts::kNoSound);

    auto missing = transcriber.transcribe(m_folder / "gone.mp4", "en_GB", nullptr, {});
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().message, texts::kNoSound);

    auto german = transcriber.transcribe(silent, "de_DE", nullptr, {});
    ASSERT_FALSE(german);
    EXPECT_EQ(german.error().message,
              "Captions aren't available in German (Germany) on this computer. Choose another "
              "language.");
    EXPECT_FALSE(temporaryFilesLeft());
}

TEST_F(TranscriptionTest, CancellingStopsAndCleansUp) {
    const fs::path movie = m_folder / "speech.mp4";
    makeSpeechMovie(m_folder, {"0930"}, movie);
    CancelToken cancel;
    std::vector<std::string> statuses;
    auto track = CaptionTranscriber().transcribe(
        movie, "en-US",
        [&](const std::string& status, std::optional<double>) {
            statuses.push_back(status);
            if (status == texts::kTranscribing) {
                cancel.cancel();
            }
        },
        cancel);
    ASSERT_FALSE(track);
    EXPECT_EQ(track.error().message, texts::kTranscriptionStopped);
    EXPECT_EQ(statuses.back(), texts::kTranscribing);
    EXPECT_FALSE(temporaryFilesLeft());

    CancelToken early;
    early.cancel();
    auto before = CaptionTranscriber().transcribe(movie, "en", nullptr, early);
    ASSERT_FALSE(before);
    EXPECT_EQ(before.error().message, texts::kTranscriptionStopped);
    EXPECT_FALSE(temporaryFilesLeft());
}

TEST(PocketSphinxEngine, SupportsEnglishLocalesOnly) {
    PocketSphinxEngine engine;
    for (const char* locale : {"en", "en_US", "en-US", "en_GB", "EN_au.UTF-8", "en@euro"}) {
        EXPECT_TRUE(engine.supports(locale)) << locale;
    }
    for (const char* locale : {"", "de_DE", "eng", "fr", "e", "es-EN"}) {
        EXPECT_FALSE(engine.supports(locale)) << locale;
    }
    EXPECT_FALSE(PocketSphinxEngine("/nonexistent").supports("en_US"));
}

// Sound of `seconds` at 16 kHz: pseudo-random noise at `level` of full scale.
void appendNoise(std::vector<int16_t>& samples, double seconds, double level) {
    uint32_t state = 12345;
    for (int i = 0; i < static_cast<int>(seconds * kSpeechSampleRate); ++i) {
        state = state * 1664525u + 1013904223u;
        const double x = (static_cast<double>(state >> 8) / (1 << 24)) * 2 - 1;
        samples.push_back(static_cast<int16_t>(x * level * 32767));
    }
}

TEST(SpeechChunks, SplitAtPausesAndSkipSilence) {
    std::vector<int16_t> sound;
    appendNoise(sound, 1.0, 0.001);  // room noise
    appendNoise(sound, 2.0, 0.3);    // 1–3 s
    appendNoise(sound, 0.2, 0.001);  // too short a pause to split at
    appendNoise(sound, 1.0, 0.3);    // 3.2–4.2 s
    appendNoise(sound, 2.0, 0.001);
    appendNoise(sound, 0.03, 0.3);  // a click: no speech
    appendNoise(sound, 1.0, 0.001);
    appendNoise(sound, 1.5, 0.3);  // 7.23–8.73 s
    auto chunks = speechChunks(sound);
    ASSERT_EQ(chunks.size(), 2u);
    auto seconds = [](size_t sample) { return static_cast<double>(sample) / kSpeechSampleRate; };
    EXPECT_NEAR(seconds(chunks[0].begin), 0.7, 0.02);
    EXPECT_NEAR(seconds(chunks[0].end), 4.5, 0.02);
    EXPECT_NEAR(seconds(chunks[1].begin), 6.93, 0.02);
    EXPECT_EQ(chunks[1].end, sound.size());

    EXPECT_TRUE(speechChunks(std::vector<int16_t>(16000 * 5, 0)).empty());
    EXPECT_TRUE(speechChunks({}).empty());
}

TEST_F(TranscriptionTest, JobsRunOnePerRecordingAndSaveTheirCaptions) {
    const fs::path movie = m_folder / "speech.mp4";
    makeSpeechMovie(m_folder, {"0930"}, movie);
    const fs::path project = m_folder / "project";
    fs::create_directories(project);

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Result<CaptionTrack>> outcomes;
    auto onDone = [&](const Result<CaptionTrack>& track) {
        std::lock_guard lock(mutex);
        outcomes.push_back(track);
        changed.notify_all();
    };
    auto waitFor = [&](size_t count) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(60),
                                [&] { return outcomes.size() >= count; });
    };

    CaptionJobs jobs;
    EXPECT_FALSE(jobs.error("rec").has_value());
    ASSERT_TRUE(jobs.start("rec", movie, project, "en_US", onDone));
    EXPECT_TRUE(jobs.isRunning("rec"));
    auto twice = jobs.start("rec", movie, project, "en_US", onDone);
    ASSERT_FALSE(twice);
    EXPECT_EQ(twice.error().message, texts::kTranscribingNow);
    EXPECT_FALSE(jobs.isRunning("other"));
    jobs.stop("rec");
    ASSERT_TRUE(waitFor(1));
    EXPECT_FALSE(jobs.isRunning("rec"));
    ASSERT_TRUE(jobs.error("rec").has_value());
    EXPECT_EQ(jobs.error("rec")->message, texts::kTranscriptionStopped);
    EXPECT_FALSE(fs::exists(project / CaptionTrack::kFileName));

    ASSERT_TRUE(jobs.start("rec", movie, project, "en_US", onDone));
    ASSERT_TRUE(waitFor(2));
    ASSERT_TRUE(outcomes[1]) << outcomes[1].error().message;
    EXPECT_FALSE(jobs.error("rec").has_value());
    auto saved = CaptionTrack::load(project);
    ASSERT_TRUE(saved) << saved.error().message;
    EXPECT_FALSE(saved->segments.empty());
    EXPECT_EQ(saved->segments, outcomes[1]->segments);
}

}  // namespace
}  // namespace quillo::captions
