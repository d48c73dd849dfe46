#include "capture/screen_recorder.h"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <numbers>
#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "media/movie_info.h"
#include "media/movie_reader.h"
#include "support/child_process.h"
#include "support/movies.h"
#include "support/temp_folder.h"

namespace quillo::capture {
namespace {

namespace fs = std::filesystem;
using testing::commandOutput;
using testing::TempFolder;

constexpr double kT0 = 1000.0;  // the steady-clock time of the first frame in these tests
constexpr int kFps = 30;
constexpr int kRate = 48000;

// A frame filled with `grey`, and a white square whose place follows the serial, so that
// every new serial is a new picture.
FramePtr drawnFrame(int width, int height, uint64_t serial, uint8_t grey = 60) {
    auto frame = makeFrame(width, height, serial);
    auto* pixels = const_cast<uint8_t*>(frame->pixels);
    for (size_t i = 0; i < static_cast<size_t>(width) * height; ++i) {
        pixels[i * 4] = pixels[i * 4 + 1] = pixels[i * 4 + 2] = grey;
        pixels[i * 4 + 3] = 255;
    }
    const int size = std::min(width, height) / 4;
    const int left = static_cast<int>(serial * 37 % static_cast<uint64_t>(width - size));
    for (int y = 0; y < size; ++y) {
        std::fill_n(pixels + (static_cast<size_t>(y) * width + left) * 4, size * 4, 255);
    }
    return frame;
}

FramePtr plainFrame(int width, int height, uint64_t serial, uint8_t grey) {
    auto frame = makeFrame(width, height, serial);
    auto* pixels = const_cast<uint8_t*>(frame->pixels);
    std::fill_n(pixels, static_cast<size_t>(width) * height * 4, grey);
    return frame;
}

int countFrames(const fs::path& file) {
    return std::atoi(commandOutput("ffprobe -v error -select_streams v:0 -count_frames "
                                   "-show_entries stream=nb_read_frames -of csv=p=0 '" +
                                   file.string() + "'")
                         .c_str());
}

double probedDuration(const fs::path& file) {
    return std::atof(commandOutput("ffprobe -v error -show_entries format=duration -of csv=p=0 '" +
                                   file.string() + "'")
                         .c_str());
}

// The four-letter types of a file's top-level boxes, in order.
std::vector<std::string> topLevelBoxes(const fs::path& file) {
    std::vector<std::string> boxes;
    std::ifstream in(file, std::ios::binary);
    unsigned char head[16];
    while (in.read(reinterpret_cast<char*>(head), 8)) {
        uint64_t size = (uint64_t{head[0]} << 24) | (head[1] << 16) | (head[2] << 8) | head[3];
        uint64_t headSize = 8;
        if (size == 1 && in.read(reinterpret_cast<char*>(head + 8), 8)) {
            size = 0;
            for (int i = 8; i < 16; ++i) {
                size = (size << 8) | head[i];
            }
            headSize = 16;
        }
        boxes.emplace_back(reinterpret_cast<char*>(head + 4), 4);
        if (size < headSize) {
            break;
        }
        in.seekg(static_cast<std::streamoff>(size - headSize), std::ios::cur);
    }
    return boxes;
}

bool indexBeforeData(const fs::path& file) {
    auto boxes = topLevelBoxes(file);
    auto moov = std::find(boxes.begin(), boxes.end(), "moov");
    auto mdat = std::find(boxes.begin(), boxes.end(), "mdat");
    return moov != boxes.end() && mdat != boxes.end() && moov < mdat &&
           std::find(boxes.begin(), boxes.end(), "moof") == boxes.end();
}

// Interleaved samples of a sine (0 amplitude: silence) starting at sample `from`.
std::vector<float> tone(size_t frames, int channels, double amplitude, int64_t from = 0) {
    std::vector<float> samples(frames * static_cast<size_t>(channels));
    for (size_t i = 0; i < frames; ++i) {
        double t = static_cast<double>(from + static_cast<int64_t>(i)) / kRate;
        float value = static_cast<float>(amplitude * std::sin(2 * std::numbers::pi * 440 * t));
        for (int c = 0; c < channels; ++c) {
            samples[i * static_cast<size_t>(channels) + static_cast<size_t>(c)] = value;
        }
    }
    return samples;
}

// The mean absolute difference of two pictures' pixels.
double difference(const media::VideoFrame& a, const media::VideoFrame& b) {
    double sum = 0;
    for (size_t i = 0; i < a.pixels.size() && i < b.pixels.size(); ++i) {
        sum += std::abs(a.pixels[i] - b.pixels[i]);
    }
    return a.pixels.empty() ? 0 : sum / static_cast<double>(a.pixels.size());
}

double rms(const float* samples, size_t count) {
    double sum = 0;
    for (size_t i = 0; i < count; ++i) {
        sum += static_cast<double>(samples[i]) * samples[i];
    }
    return count ? std::sqrt(sum / static_cast<double>(count)) : 0;
}

class ScreenRecorderTest : public ::testing::Test {
protected:
    ScreenRecorderTest() { environment.set("QUILLO_SUPPORT", (folder / "support").string()); }

    std::unique_ptr<ScreenRecorder> recorder(int width = 320, int height = 240, bool system = false,
                                             bool microphone = false) {
        RecorderSettings settings;
        settings.file = file;
        settings.width = width;
        settings.height = height;
        settings.fps = kFps;
        settings.systemSound = system;
        settings.microphone = microphone;
        auto created = ScreenRecorder::create(settings);
        EXPECT_TRUE(created) << created.error().detail;
        auto made = std::move(*created);
        made->onStart = [this](double time) { starts.push_back(time); };
        made->onFail = [this](const AppError& error) { failures.push_back(error); };
        return made;
    }

    TempFolder folder;
    testing::ScopedEnvironment environment;
    fs::path file = folder / "recording.mp4";
    std::vector<double> starts;
    std::vector<AppError> failures;
};

// --- frames on the grid

TEST_F(ScreenRecorderTest, FramesFallOnTheGridAndASecondFrameInOneSlotIsDropped) {
    auto writer = recorder();
    for (int k = 0; k < 30; ++k) {
        // A little jitter stays in its slot.
        writer->appendFrame(drawnFrame(320, 240, static_cast<uint64_t>(k + 1)),
                            kT0 + k / 30.0 + (k % 2 ? 0.004 : -0.004));
        if (k == 10) {
            writer->appendFrame(drawnFrame(320, 240, 100), kT0 + k / 30.0 + 0.01);
        }
    }
    EXPECT_TRUE(writer->hasStarted());
    auto duration = writer->finish(kT0 + 1.0);
    ASSERT_TRUE(duration) << duration.error().detail;
    EXPECT_NEAR(*duration, 1.0, 1e-6);
    EXPECT_EQ(countFrames(file), 30);
    EXPECT_EQ(starts, std::vector<double>{kT0 - 0.004});
    EXPECT_TRUE(failures.empty());
}

TEST_F(ScreenRecorderTest, ARepeatedSerialStillMakesAFrameOfTheSamePicture) {
    auto writer = recorder();
    for (int k = 0; k < 10; ++k) {
        writer->appendFrame(drawnFrame(320, 240, k < 5 ? 1 : 2), kT0 + k / 30.0);
    }
    ASSERT_TRUE(writer->finish(kT0 + 10 / 30.0));
    EXPECT_EQ(countFrames(file), 10);
    auto reader = media::MovieReader::open(file);
    ASSERT_TRUE(reader);
    auto first = (*reader)->frame(0, {0, 0, media::PixelFormat::Gray8});
    auto repeat = (*reader)->frame(4 / 30.0, {0, 0, media::PixelFormat::Gray8});
    auto changed = (*reader)->frame(5 / 30.0, {0, 0, media::PixelFormat::Gray8});
    ASSERT_TRUE(first && repeat && changed);
    EXPECT_LT(difference(*first, *repeat), 2);
    EXPECT_GT(difference(*first, *changed), 5);
}

TEST_F(ScreenRecorderTest, TheLastPictureLastsUntilTheStop) {
    auto writer = recorder();
    for (int k = 0; k <= 15; ++k) {
        writer->appendFrame(drawnFrame(320, 240, static_cast<uint64_t>(k + 1)), kT0 + k / 30.0);
    }
    // Stopped 3 s after the last change.
    auto duration = writer->finish(kT0 + 0.5 + 3.0);
    ASSERT_TRUE(duration);
    EXPECT_NEAR(*duration, 3.5, 1e-6);
    auto info = media::readMovieInfo(file);
    ASSERT_TRUE(info);
    EXPECT_NEAR(info->duration, 3.5, 1e-6);
    auto reader = media::MovieReader::open(file);
    ASSERT_TRUE(reader);
    auto last = (*reader)->frame(0.5, {32, 24, media::PixelFormat::Gray8});
    auto end = (*reader)->frame(3.49, {32, 24, media::PixelFormat::Gray8});
    ASSERT_TRUE(last && end);
    EXPECT_LT(difference(*last, *end), 2);
    EXPECT_GT(end->time, 3.4);
}

TEST_F(ScreenRecorderTest, BeginStartsAtOnceOnlyWhileNothingStarted) {
    auto writer = recorder();
    writer->begin(drawnFrame(320, 240, 1));
    ASSERT_EQ(starts.size(), 1u);
    const double start = starts[0];
    writer->begin(drawnFrame(320, 240, 2));
    writer->appendFrame(drawnFrame(320, 240, 3), start + 0.5);
    EXPECT_EQ(starts.size(), 1u);
    ASSERT_TRUE(writer->finish(start + 1.0));
    // The first frame, repeated in the 14 slots the capture missed before the change at 0.5 s,
    // the change, and the stop's repeat.
    EXPECT_EQ(countFrames(file), 17);
}

TEST_F(ScreenRecorderTest, NothingRecordedLeavesNoFile) {
    auto writer = recorder();
    writer->appendSound(SoundDevice::System, tone(480, 2, 0.5).data(), 480, kT0);
    auto finished = writer->finish(kT0 + 1);
    ASSERT_FALSE(finished);
    EXPECT_EQ(finished.error().message, "Nothing was recorded.");
    EXPECT_FALSE(fs::exists(file));
    EXPECT_TRUE(starts.empty());
}

TEST_F(ScreenRecorderTest, AFailedStartIsReportedOnceAndNothingIsAppended) {
    file = folder / "missing" / "recording.mp4";
    auto writer = recorder();
    writer->appendFrame(drawnFrame(320, 240, 1), kT0);
    writer->appendFrame(drawnFrame(320, 240, 2), kT0 + 0.1);
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0].message, "The recording could not start.");
    EXPECT_FALSE(failures[0].detail.empty());
    EXPECT_TRUE(starts.empty());
    EXPECT_FALSE(writer->finish(kT0 + 1));
}

TEST_F(ScreenRecorderTest, FinishedMovieIsNormalHighProfileBT709WithAKeyFrameEachSecond) {
    auto writer = recorder();
    for (int k = 0; k < 75; ++k) {
        writer->appendFrame(drawnFrame(320, 240, static_cast<uint64_t>(k + 1)), kT0 + k / 30.0);
    }
    ASSERT_TRUE(writer->finish(kT0 + 2.5));
    EXPECT_TRUE(indexBeforeData(file));
    auto streams = nlohmann::json::parse(testing::probe(file))["streams"];
    ASSERT_EQ(streams.size(), 1u);
    EXPECT_EQ(streams[0]["codec_name"], "h264");
    EXPECT_EQ(streams[0]["profile"], "High");
    EXPECT_EQ(streams[0]["pix_fmt"], "yuv420p");
    EXPECT_EQ(streams[0]["color_space"], "bt709");
    EXPECT_EQ(streams[0]["color_primaries"], "bt709");
    std::string keys = commandOutput(
        "ffprobe -v error -select_streams v:0 -show_entries packet=pts_time,flags -of csv=p=0 '" +
        file.string() + "' | grep K | cut -d, -f1");
    EXPECT_EQ(keys, "0.000000\n1.000000\n2.000000\n");
}

TEST_F(ScreenRecorderTest, FramesOfAnotherSizeAreFittedOnBlack) {
    auto writer = recorder(320, 240);
    // A square white frame: 240×240 in the middle, black bars left and right.
    writer->appendFrame(plainFrame(100, 100, 1, 255), kT0);
    ASSERT_TRUE(writer->finish(kT0 + 0.1));
    auto reader = media::MovieReader::open(file);
    ASSERT_TRUE(reader);
    EXPECT_EQ((*reader)->info().videoSize, (Size{320, 240}));
    auto frame = (*reader)->frame(0, {320, 240, media::PixelFormat::Gray8});
    ASSERT_TRUE(frame);
    auto at = [&](int x, int y) { return frame->pixels[static_cast<size_t>(y) * 320 + x]; };
    EXPECT_LT(at(20, 120), 20);
    EXPECT_LT(at(300, 120), 20);
    EXPECT_GT(at(160, 120), 235);
    EXPECT_GT(at(45, 5), 235);
    EXPECT_GT(at(275, 235), 235);
}

// --- sound

// Frames every 1/30 s from kT0 until `seconds`.
void appendFrames(ScreenRecorder& writer, double seconds) {
    for (int k = 0; k < seconds * kFps; ++k) {
        writer.appendFrame(drawnFrame(320, 240, static_cast<uint64_t>(k + 1)), kT0 + k / 30.0);
    }
}

TEST_F(ScreenRecorderTest, SoundBeforeTheFirstFrameIsDroppedAndTracksLastAsLongAsThePicture) {
    auto writer = recorder(320, 240, true, true);
    // Loud noise heard before the movie starts.
    std::vector<float> loud(kRate * 2, 0.9f);
    writer->appendSound(SoundDevice::System, loud.data(), kRate, kT0 - 1.0);
    writer->appendFrame(drawnFrame(320, 240, 1), kT0);
    // A chunk that straddles the start: only its part after the start is kept.
    writer->appendSound(SoundDevice::System, loud.data(), 480, kT0 - 0.5);
    std::vector<float> straddling = tone(960, 1, 0.3, -480);
    std::fill_n(straddling.begin(), 480, 0.9f);
    writer->appendSound(SoundDevice::Microphone, straddling.data(), 960, kT0 - 0.01);
    for (int64_t at = 480; at < 2 * kRate; at += 480) {
        writer->appendSound(SoundDevice::System, tone(480, 2, 0).data(), 480,
                            kT0 + static_cast<double>(at) / kRate);
        writer->appendSound(SoundDevice::Microphone, tone(480, 1, 0.3, at).data(), 480,
                            kT0 + static_cast<double>(at) / kRate);
    }
    appendFrames(*writer, 2.0);
    ASSERT_TRUE(writer->finish(kT0 + 2.0));

    auto streams = nlohmann::json::parse(testing::probe(file))["streams"];
    ASSERT_EQ(streams.size(), 3u);
    for (int i : {1, 2}) {
        EXPECT_EQ(streams[i]["codec_name"], "aac");
        EXPECT_EQ(streams[i]["sample_rate"], "48000");
        EXPECT_NEAR(std::atof(streams[i]["start_time"].get<std::string>().c_str()), 0, 0.001);
        EXPECT_NEAR(std::atof(streams[i]["duration"].get<std::string>().c_str()), 2.0, 0.03);
    }
    EXPECT_EQ(streams[1]["channels"], 2);
    EXPECT_EQ(streams[2]["channels"], 1);

    // The reader mixes both tracks: the microphone's tone in both channels, no noise.
    auto mixed = media::MovieReader::sound(file, {kRate, 2}, 0, 2);
    ASSERT_TRUE(mixed);
    ASSERT_NEAR(static_cast<double>(mixed->size()), 2 * 2 * kRate, 2 * 1100);
    float peak = 0;
    for (float s : *mixed) {
        peak = std::max(peak, std::abs(s));
    }
    EXPECT_LT(peak, 0.45);
    std::vector<float> left, right;
    for (size_t i = kRate / 10; i + 1 < mixed->size() / 2 - kRate / 10; ++i) {
        left.push_back((*mixed)[i * 2]);
        right.push_back((*mixed)[i * 2 + 1]);
    }
    EXPECT_NEAR(rms(left.data(), left.size()), 0.3 / std::sqrt(2.0), 0.02);
    EXPECT_NEAR(rms(right.data(), right.size()), 0.3 / std::sqrt(2.0), 0.02);
}

TEST_F(ScreenRecorderTest, SoundAfterAGapKeepsItsTime) {
    auto writer = recorder(320, 240, true, false);
    writer->appendFrame(drawnFrame(320, 240, 1), kT0);
    // Half a second of sound, nothing for a second, then a tone from 1.5 s on.
    for (int64_t at = 0; at < 3 * kRate; at += 480) {
        if (at >= kRate / 2 && at < kRate * 3 / 2) {
            continue;
        }
        double amplitude = at < kRate ? 0 : 0.5;
        writer->appendSound(SoundDevice::System, tone(480, 2, amplitude, at).data(), 480,
                            kT0 + static_cast<double>(at) / kRate);
    }
    appendFrames(*writer, 3.0);
    ASSERT_TRUE(writer->finish(kT0 + 3.0));
    auto mixed = media::MovieReader::sound(file, {kRate, 1}, 0, 3);
    ASSERT_TRUE(mixed);
    size_t onset = 0;
    while (onset < mixed->size() && std::abs((*mixed)[onset]) < 0.1) {
        ++onset;
    }
    EXPECT_NEAR(static_cast<double>(onset) / kRate, 1.5, 0.01);
}

// --- a killed recording

TEST_F(ScreenRecorderTest, AKilledRecordingLeavesAPlayableMovieThatCanBeCompleted) {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    pid_t child = testing::forkChild([&] {
        auto writer = recorder(320, 240, true, false);
        for (int k = 0; k < 100; ++k) {
            writer->appendFrame(drawnFrame(320, 240, static_cast<uint64_t>(k + 1)), kT0 + k / 30.0);
            writer->appendSound(SoundDevice::System, tone(1600, 2, 0.3, k * 1600).data(), 1600,
                                kT0 + k / 30.0);
        }
        (void)write(ready[1], "x", 1);
        for (;;) {
            pause();
        }
    });
    ASSERT_GT(child, 0);
    char byte = 0;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    ::kill(child, SIGKILL);
    EXPECT_EQ(testing::waitForSignal(child), SIGKILL);
    close(ready[0]);
    close(ready[1]);

    const double playable = probedDuration(file);
    EXPECT_GE(playable, 2.0);
    EXPECT_FALSE(indexBeforeData(file));
    fs::copy_file(file, folder / "cut.mp4");

    auto completed = completeMovie(file);
    ASSERT_TRUE(completed) << completed.error().detail;
    EXPECT_GE(*completed, 2.0);
    EXPECT_LE(*completed, playable + 1e-3);
    EXPECT_TRUE(indexBeforeData(file));
    EXPECT_EQ(nlohmann::json::parse(testing::probe(file))["streams"].size(), 2u);

    // A normal movie is left as it is.
    auto modified = fs::last_write_time(file);
    auto again = completeMovie(file);
    ASSERT_TRUE(again);
    EXPECT_NEAR(*again, *completed, 1e-9);
    EXPECT_EQ(fs::last_write_time(file), modified);

    // A last fragment cut short loses only itself.
    fs::resize_file(folder / "cut.mp4", fs::file_size(folder / "cut.mp4") - 3000);
    auto cut = completeMovie(folder / "cut.mp4");
    ASSERT_TRUE(cut) << cut.error().detail;
    EXPECT_GE(*cut, 1.0);
    EXPECT_TRUE(indexBeforeData(folder / "cut.mp4"));
}

TEST_F(ScreenRecorderTest, ARecorderDroppedWithoutFinishingLeavesAMovieThatCanBeCompleted) {
    {
        // The microphone never delivers: its track is filled with silence as the picture goes.
        auto writer = recorder(320, 240, false, true);
        appendFrames(*writer, 3.1);
    }
    EXPECT_FALSE(indexBeforeData(file));
    auto completed = completeMovie(file);
    ASSERT_TRUE(completed) << completed.error().detail;
    // Whole seconds up to a key frame whose fragment was written.
    EXPECT_GE(*completed, 2.0 - 1e-6);
    auto streams = nlohmann::json::parse(testing::probe(file))["streams"];
    ASSERT_EQ(streams.size(), 2u);
    EXPECT_GE(std::atof(streams[1]["duration"].get<std::string>().c_str()), 0.9);
}

TEST_F(ScreenRecorderTest, AnUnreadableFileCannotBeRecoveredAndTheLibrarysTextGoesToTheLog) {
    folder.write("broken.mp4", "not a movie at all");
    ::testing::internal::CaptureStderr();
    auto completed = completeMovie(folder / "broken.mp4");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    ASSERT_FALSE(completed);
    EXPECT_EQ(completed.error().message, "The recording could not be recovered.");
    std::ifstream log(folder / "support" / "quillo.log");
    std::string text((std::istreambuf_iterator<char>(log)), std::istreambuf_iterator<char>());
    EXPECT_NE(text.find("[ffmpeg] [mov,mp4,m4a,3gp,3g2,mj2 @ "), std::string::npos) << text;
    EXPECT_NE(text.find("moov atom not found"), std::string::npos);
}

}  // namespace
}  // namespace quillo::capture
