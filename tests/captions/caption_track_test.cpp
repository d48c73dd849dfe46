#include "captions/caption_track.h"

#include <algorithm>
#include <cmath>

#include <gtest/gtest.h>

#include "captions/caption_renderer.h"
#include "render/exporter.h"
#include "support/movies.h"
#include "support/temp_folder.h"

namespace quillo::captions {
namespace {

using project::Edits;

// Words of `text`, one every `step` seconds from `start`, each lasting 80 % of the step.
std::vector<CaptionWord> spoken(const std::string& text, double start, double step = 0.3) {
    std::vector<CaptionWord> words;
    size_t at = 0;
    while (at < text.size()) {
        size_t end = text.find(' ', at);
        end = end == std::string::npos ? text.size() : end;
        double t = start + step * static_cast<double>(words.size());
        words.push_back({text.substr(at, end - at), t, t + step * 0.8});
        at = end + 1;
    }
    return words;
}

CaptionSegment segmentOf(const std::vector<CaptionWord>& words) {
    return CaptionTrack::segmentsFrom({words}, 1000, 1000, 1000).at(0);
}

TEST(CaptionTrack, SegmentsCloseAtPausesLengthDurationAndSentences) {
    // A pause longer than 0.9 s.
    auto first = spoken("hello there", 0);
    auto second = spoken("general remarks", 2.0);
    first.insert(first.end(), second.begin(), second.end());
    auto segments = CaptionTrack::segmentsFrom({first});
    ASSERT_EQ(segments.size(), 2u);
    EXPECT_EQ(segments[0].text, "hello there");
    EXPECT_DOUBLE_EQ(segments[0].start, 0);
    EXPECT_DOUBLE_EQ(segments[0].end, 0.3 + 0.24);
    EXPECT_EQ(segments[1].text, "general remarks");

    // Characters: no segment's text passes the limit, and no word is lost.
    auto many = spoken("one two three four five six seven eight nine ten eleven twelve", 0, 0.1);
    auto byLength = CaptionTrack::segmentsFrom({many}, 20);
    std::string all;
    for (const auto& s : byLength) {
        EXPECT_LE(s.text.size(), 20u) << s.text;
        all += (all.empty() ? "" : " ") + s.text;
    }
    EXPECT_EQ(all, "one two three four five six seven eight nine ten eleven twelve");

    // Duration: 30 words at 0.3 s run past 6 s, so they split; each segment lasts ≤ 6 s.
    std::string thirty;
    for (int i = 0; i < 30; ++i) {
        thirty += (i ? " w" : "w") + std::to_string(i);
    }
    for (const auto& s : CaptionTrack::segmentsFrom({spoken(thirty, 0)})) {
        EXPECT_LE(s.end - s.start, 6.0 + 1e-9);
    }

    // A full stop closes a long enough segment, but not a short one.
    auto sentences = CaptionTrack::segmentsFrom(
        {spoken("Okay. This sentence is long enough to close. And this one follows", 0)});
    ASSERT_EQ(sentences.size(), 2u);
    EXPECT_EQ(sentences[0].text, "Okay. This sentence is long enough to close.");
}

TEST(CaptionTrack, WrapAndPages) {
    EXPECT_EQ(wrap("the quick brown fox jumps over the lazy dog", 12),
              (std::vector<std::string>{"the quick", "brown fox", "jumps over", "the lazy dog"}));
    // A word longer than a line stands alone; nothing is cut.
    EXPECT_EQ(wrap("a extraordinarily b", 5),
              (std::vector<std::string>{"a", "extraordinarily", "b"}));
    // Characters, not bytes: "é" counts once.
    EXPECT_EQ(wrap("café café", 9).size(), 1u);

    CaptionSegment segment = segmentOf(spoken("the quick brown fox jumps over the lazy dog", 1));
    auto pages = segment.pages(12);
    ASSERT_EQ(pages.size(), 2u);
    EXPECT_EQ(pages[0].text(), "the quick\nbrown fox");
    EXPECT_EQ(pages[1].text(), "jumps over\nthe lazy dog");
    EXPECT_DOUBLE_EQ(pages[0].start, 1.0);
    EXPECT_DOUBLE_EQ(pages[0].end, pages[1].start);
    EXPECT_DOUBLE_EQ(pages[1].start, 1.0 + 4 * 0.3);  // "jumps"
    EXPECT_DOUBLE_EQ(pages[1].end, segment.end);

    // Five lines' worth fills three pages; the words are shared out so the last page is not a
    // lone word, and no page passes two lines.
    CaptionSegment longer = segmentOf(
        spoken("and mister john would have been at leisure to consider how much there might be "
               "prudently in his power to do for them",
               0));
    auto shared = longer.pages(20);
    ASSERT_EQ(shared.size(), 3u);
    for (const CaptionPage& page : shared) {
        EXPECT_LE(page.lines.size(), 2u);
        EXPECT_GE(page.words().size(), 5u) << page.text();
    }

    // The spoken word: the last one started by t + 1 ms.
    EXPECT_EQ(pages[0].currentWord(1.0), 0u);
    EXPECT_EQ(pages[0].currentWord(1.2995), 1u);
    EXPECT_EQ(pages[0].currentWord(1.95), 3u);
    EXPECT_FALSE(pages[0].currentWord(0.5));

    CaptionTrack track;
    track.segments = {segment};
    EXPECT_EQ(track.page(2.5, 12)->text(), "jumps over\nthe lazy dog");
    EXPECT_FALSE(track.page(0.5, 12));
}

TEST(CaptionTrack, EditedTextKeepsOrSpreadsWordTimes) {
    CaptionSegment segment = segmentOf(spoken("helo world", 2));
    segment.setText("Hello world");
    auto words = segment.timedWords();
    ASSERT_EQ(words.size(), 2u);
    EXPECT_EQ(words[0].text, "Hello");
    EXPECT_DOUBLE_EQ(words[1].start, 2.3);

    // A different word count spreads the words over the segment in order.
    segment.setText("Hello big wide world");
    words = segment.timedWords();
    ASSERT_EQ(words.size(), 4u);
    EXPECT_DOUBLE_EQ(words.front().start, segment.start);
    EXPECT_DOUBLE_EQ(words.back().end, segment.end);
    for (size_t i = 1; i < words.size(); ++i) {
        EXPECT_DOUBLE_EQ(words[i].start, words[i - 1].end);
    }
}

TEST(CaptionTrack, ValidateAndFileRoundTrip) {
    CaptionTrack track;
    track.locale = "en_US";
    track.engine = "PocketSphinx";
    track.segments = CaptionTrack::segmentsFrom({spoken("first words", 0), spoken("more", 3)});
    EXPECT_TRUE(track.validate(5));
    EXPECT_FALSE(track.validate(3.1));
    CaptionTrack overlapping = track;
    overlapping.segments[1].start = 0.2;
    EXPECT_FALSE(overlapping.validate(5));

    testing::TempFolder folder;
    ASSERT_TRUE(track.save(folder.path()));
    auto loaded = CaptionTrack::load(folder.path());
    ASSERT_TRUE(loaded) << loaded.error().message;
    EXPECT_EQ(*loaded, track);
    folder.write("captions.json", "{\"version\": 1, \"segments\": 3}");
    EXPECT_FALSE(CaptionTrack::load(folder.path()));
}

TEST(Subtitles, TimestampsAndClamping) {
    EXPECT_EQ(CaptionTrack::timestamp(3725.4567, ','), "01:02:05,457");
    EXPECT_EQ(CaptionTrack::timestamp(3725.4567, '.'), "01:02:05.457");
    EXPECT_EQ(CaptionTrack::timestamp(-2, ','), "00:00:00,000");
    EXPECT_EQ(CaptionTrack::timestamp(59.9996, '.'), "00:01:00.000");

    project::CaptionStyle style;
    style.maxCharacters = 5;
    style.size = 3;
    EXPECT_EQ(style.clamped().maxCharacters, 12);
    EXPECT_DOUBLE_EQ(style.clamped().size, 2.5);
    style.maxCharacters = 200;
    EXPECT_EQ(style.clamped().maxCharacters, 80);

    project::CaptionStyle plain;
    EXPECT_EQ(CaptionRenderer::fontSize(1920, 1080, plain), 49);
    EXPECT_EQ(CaptionRenderer::fontSize(100, 100, plain), 10);
}

// Three one-page segments at 0–1, 2–3 and 4–5 s.
CaptionTrack threeLines() {
    CaptionTrack track;
    track.segments = {
        {0, 1, "One", std::nullopt}, {2, 3, "Two", std::nullopt}, {4, 5, "Three", std::nullopt}};
    return track;
}

TEST(Subtitles, CuesFollowCutsAndSpeedUps) {
    Edits edits = Edits::fresh(6);
    edits.segments = std::vector<project::TimeSegment>{{1.5, 3.5, 0}, {3.5, 5.5, 2}};
    auto cues = threeLines().cues(edits);
    // "Two" lies wholly inside the cut; "Three" is played at double speed after it.
    ASSERT_EQ(cues.size(), 2u);
    EXPECT_EQ(cues[1].text, "Three");
    EXPECT_DOUBLE_EQ(cues[1].start, 1.5 + 0.25);
    EXPECT_DOUBLE_EQ(cues[1].end, 1.5 + 0.75);

    EXPECT_EQ(threeLines().subtitles(SubtitleFormat::Srt, edits),
              "1\n00:00:00,000 --> 00:00:01,000\nOne\n\n"
              "2\n00:00:01,750 --> 00:00:02,250\nThree\n");
    EXPECT_EQ(threeLines().subtitles(SubtitleFormat::Vtt, Edits::fresh(6)),
              "WEBVTT\n\n"
              "00:00:00.000 --> 00:00:01.000\nOne\n\n"
              "00:00:02.000 --> 00:00:03.000\nTwo\n\n"
              "00:00:04.000 --> 00:00:05.000\nThree\n");
}

TEST(Subtitles, FfmpegReadsBothFormats) {
    testing::TempFolder folder;
    CaptionTrack track = threeLines();
    track.segments[1].text = "Two lines of text that wrap onto a second line";
    for (auto [format, name] :
         {std::pair{SubtitleFormat::Srt, "subs.srt"}, std::pair{SubtitleFormat::Vtt, "subs.vtt"}}) {
        folder.write(name, track.subtitles(format, Edits::fresh(6)));
        std::string out = testing::commandOutput(
            "ffprobe -v error -show_packets -of csv=p=0 -show_entries packet=pts_time " +
            (folder / name).string());
        EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 3) << name << ": " << out;
    }
}

TEST(CaptionRenderer, DrawsThePageWhereTheStyleSays) {
    CaptionTrack track;
    track.segments = {segmentOf(spoken("Watch this word", 1))};
    auto page = *track.page(1.35, 36);
    auto count = [](const render::Image& image, auto predicate, bool top) {
        int found = 0;
        int from = top ? 0 : image.height * 4 / 5;
        for (int y = from; y < from + image.height / 5; ++y) {
            for (int x = 0; x < image.width; ++x) {
                const uint8_t* p = image.view().pixel(x, y);
                found += predicate(p[2], p[1], p[0]) ? 1 : 0;
            }
        }
        return found;
    };
    auto white = [](int r, int g, int b) { return r > 240 && g > 240 && b > 240; };
    auto yellow = [](int r, int g, int b) { return r > 240 && g > 190 && g < 230 && b < 90; };

    auto drawn = [&](project::CaptionStyle style) {
        render::Image image(320, 180);
        for (size_t i = 0; i < image.pixels.size(); i += 4) {
            image.pixels[i] = image.pixels[i + 1] = image.pixels[i + 2] = 90;
            image.pixels[i + 3] = 255;
        }
        CaptionRenderer::draw(page, image.view(), 1.35, style);
        return image;
    };
    project::CaptionStyle style;
    render::Image bottom = drawn(style);
    EXPECT_GT(count(bottom, white, false), 50);
    EXPECT_EQ(count(bottom, white, true), 0);
    EXPECT_EQ(count(bottom, yellow, false), 0);

    style.position = project::CaptionPosition::Top;
    style.highlightWords = true;
    style.background = project::CaptionBackground::None;
    render::Image top = drawn(style);
    EXPECT_GT(count(top, white, true), 50);
    EXPECT_GT(count(top, yellow, true), 10);  // "this", spoken at 1.3 s
    EXPECT_EQ(count(top, white, false), 0);

    style.visible = false;
    EXPECT_EQ(count(drawn(style), white, true), 0);
}

TEST(CaptionRenderer, FinishedFramesBurnInTheSavedTrack) {
    testing::TempFolder folder;
    testing::ffmpeg("-f lavfi -i color=gray:size=320x180:rate=10:duration=3 -pix_fmt yuv420p",
                    folder / "recording.mp4");
    CaptionTrack track;
    track.segments = {segmentOf(spoken("Hello captions", 1))};
    ASSERT_TRUE(track.save(folder.path()));
    registerBurnIn();
    auto whiteInBottomHalf = [&](const Edits& edits, double t) {
        auto plan = render::renderPlan(folder.path(), edits);
        EXPECT_TRUE(plan);
        auto frame = render::renderFrame(*plan, t);
        EXPECT_TRUE(frame);
        int white = 0;
        for (int y = frame->height / 2; y < frame->height; ++y) {
            for (int x = 0; x < frame->width; ++x) {
                white += frame->view().pixel(x, y)[1] > 240 ? 1 : 0;
            }
        }
        return white;
    };
    Edits edits = Edits::fresh(3);
    EXPECT_EQ(whiteInBottomHalf(edits, 1.2), 0);  // no captions style: not shown
    edits.captions = project::CaptionStyle{};
    EXPECT_GT(whiteInBottomHalf(edits, 1.2), 100);
    EXPECT_EQ(whiteInBottomHalf(edits, 2.5), 0);  // nobody speaks
}

}  // namespace
}  // namespace quillo::captions
