#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "base/result.h"
#include "project/edits.h"

namespace quillo::captions {

// Breaks text into lines of at most `maxCharacters` characters between words; a word longer
// than a line stands on a line of its own.
std::vector<std::string> wrap(const std::string& text, int maxCharacters);

// One spoken word, with its start and end in recording seconds.
struct CaptionWord {
    std::string text;
    double start = 0;
    double end = 0;
    bool operator==(const CaptionWord&) const = default;
};

// One on-screen page: at most two lines of timed words.
struct CaptionPage {
    std::vector<std::vector<CaptionWord>> lines;
    double start = 0;
    double end = 0;

    // The lines joined with a line break.
    std::string text() const;
    // Index (over all the page's words) of the last word starting at or before t + 1 ms, if any.
    std::optional<size_t> currentWord(double t) const;
    std::vector<CaptionWord> words() const;
};

// Of one segment's pages, the one showing at t: the last started by then (the first before any).
const CaptionPage* pageShowing(const std::vector<CaptionPage>& pages, double t);

// A stretch of speech. `words` is absent for text typed by hand.
struct CaptionSegment {
    double start = 0;
    double end = 0;
    std::string text;
    std::optional<std::vector<CaptionWord>> words;

    // Words with times for every segment: the recognised words while they still spell the text,
    // otherwise the text's words spread over the segment in proportion to their lengths.
    std::vector<CaptionWord> timedWords() const;
    // Replaces the text; recognised word times are kept only while the words still match.
    void setText(const std::string& text);
    // The timed words wrapped to `maxCharacters` and grouped `maxLines` lines to a page.
    std::vector<CaptionPage> pages(int maxCharacters, int maxLines = 2) const;
    bool operator==(const CaptionSegment&) const = default;
};

enum class SubtitleFormat { Srt, Vtt };

// A subtitle cue in seconds of the finished video.
struct SubtitleCue {
    double start = 0;
    double end = 0;
    std::string text;
};

// A recording's captions ("captions.json" in its project folder).
struct CaptionTrack {
    static constexpr const char* kFileName = "captions.json";

    int64_t version = 1;
    std::string locale;
    std::string engine;
    std::vector<CaptionSegment> segments;

    // Groups runs of recognised words (one run per phrase) into segments. A segment closes before
    // a word after a pause longer than `pause`, when its text would pass `maxCharacters`, or when
    // it would last longer than `maxDuration`; a word ending in . ? or ! closes it once it holds
    // at least 24 characters.
    static std::vector<CaptionSegment> segmentsFrom(
        const std::vector<std::vector<CaptionWord>>& runs, int maxCharacters = 84,
        double maxDuration = 6.0, double pause = 0.9);

    const CaptionSegment* segment(double t) const;
    std::optional<CaptionPage> page(double t, int maxCharacters) const;
    Result<void> validate(double duration) const;

    std::vector<SubtitleCue> cues(const project::Edits& edits) const;
    std::string subtitles(SubtitleFormat format, const project::Edits& edits) const;
    static std::string timestamp(double seconds, char separator);

    static Result<CaptionTrack> load(const std::filesystem::path& folder);
    Result<void> save(const std::filesystem::path& folder) const;
    bool operator==(const CaptionTrack&) const = default;
};

}  // namespace quillo::captions
