#include "caption_track.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sstream>

#include "base/files.h"
#include "base/json.h"
#include "caption_texts.h"

namespace quillo::captions {

namespace fs = std::filesystem;

namespace {

// A sentence-ending word closes its segment once the segment holds this many characters, so a
// short "Okay." does not stand alone but long runs break at full stops.
constexpr int kSentenceMinimum = 24;
// Pages shorter than this in the finished video (inside a cut, or sped up hard) give no cue.
constexpr double kShortestCue = 0.05;

// Characters as the reader counts them: UTF-8 code points.
int characters(const std::string& text) {
    return static_cast<int>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
}

std::vector<std::string> splitWords(const std::string& text) {
    std::vector<std::string> words;
    std::istringstream in(text);
    for (std::string word; in >> word;) {
        words.push_back(word);
    }
    return words;
}

std::string joined(const std::vector<CaptionWord>& words) {
    std::string text;
    for (const CaptionWord& word : words) {
        if (!text.empty()) {
            text += ' ';
        }
        text += word.text;
    }
    return text;
}

bool endsSentence(const std::string& word) {
    return !word.empty() && (word.back() == '.' || word.back() == '?' || word.back() == '!');
}

// Lines of whole words, each at most `maxCharacters` long when joined with spaces.
std::vector<std::vector<CaptionWord>> wrapWords(const std::vector<CaptionWord>& words,
                                                int maxCharacters) {
    std::vector<std::vector<CaptionWord>> lines;
    int length = 0;
    for (const CaptionWord& word : words) {
        int size = characters(word.text);
        if (lines.empty() || (length > 0 && length + 1 + size > maxCharacters)) {
            lines.emplace_back();
            length = 0;
        }
        length += (length > 0 ? 1 : 0) + size;
        lines.back().push_back(word);
    }
    return lines;
}

CaptionWord readWord(JsonReader& r) {
    CaptionWord word;
    word.text = r.text("text");
    word.start = r.real("start");
    word.end = r.real("end");
    return word;
}

CaptionSegment readSegment(JsonReader& r) {
    CaptionSegment segment;
    segment.start = r.real("start");
    segment.end = r.real("end");
    segment.text = r.text("text");
    segment.words = r.optionalList("words", readWord);
    return segment;
}

CaptionTrack readTrack(JsonReader& r) {
    CaptionTrack track;
    track.version = r.integer("version");
    track.locale = r.text("locale");
    track.engine = r.text("engine");
    track.segments = r.list("segments", readSegment);
    return track;
}

}  // namespace

// Found by the JSON list helper through argument-dependent lookup.
Json toJson(const CaptionWord& word) {
    return {{"text", word.text}, {"start", word.start}, {"end", word.end}};
}

Json toJson(const CaptionSegment& segment) {
    Json json = {{"start", segment.start}, {"end", segment.end}, {"text", segment.text}};
    if (segment.words) {
        json["words"] = toJsonList(*segment.words);
    }
    return json;
}

std::vector<std::string> wrap(const std::string& text, int maxCharacters) {
    std::vector<CaptionWord> words;
    for (std::string& word : splitWords(text)) {
        words.push_back({std::move(word), 0, 0});
    }
    std::vector<std::string> lines;
    for (const auto& line : wrapWords(words, maxCharacters)) {
        lines.push_back(joined(line));
    }
    return lines;
}

// --- CaptionPage

const CaptionPage* pageShowing(const std::vector<CaptionPage>& pages, double t) {
    for (auto it = pages.rbegin(); it != pages.rend(); ++it) {
        if (it->start <= t) {
            return &*it;
        }
    }
    return pages.empty() ? nullptr : &pages.front();
}

std::vector<CaptionWord> CaptionPage::words() const {
    std::vector<CaptionWord> all;
    for (const auto& line : lines) {
        all.insert(all.end(), line.begin(), line.end());
    }
    return all;
}

std::string CaptionPage::text() const {
    std::string text;
    for (const auto& line : lines) {
        if (!text.empty()) {
            text += '\n';
        }
        text += joined(line);
    }
    return text;
}

std::optional<size_t> CaptionPage::currentWord(double t) const {
    std::optional<size_t> current;
    size_t index = 0;
    for (const auto& line : lines) {
        for (const CaptionWord& word : line) {
            if (word.start <= t + 0.001) {
                current = index;
            }
            ++index;
        }
    }
    return current;
}

// --- CaptionSegment

std::vector<CaptionWord> CaptionSegment::timedWords() const {
    std::vector<std::string> texts = splitWords(text);
    if (words && words->size() == texts.size() &&
        std::equal(texts.begin(), texts.end(), words->begin(),
                   [](const std::string& a, const CaptionWord& b) { return a == b.text; })) {
        return *words;
    }
    // Typed or re-typed text: spread the words over the segment by their lengths (a space
    // counts, so short words still get some time).
    double total = 0;
    for (const std::string& word : texts) {
        total += characters(word) + 1;
    }
    std::vector<CaptionWord> timed;
    double at = start;
    double span = std::max(end - start, 0.0);
    for (const std::string& word : texts) {
        double length = total > 0 ? span * (characters(word) + 1) / total : 0;
        timed.push_back({word, at, at + length});
        at += length;
    }
    if (!timed.empty()) {
        timed.back().end = end;
    }
    return timed;
}

void CaptionSegment::setText(const std::string& newText) {
    std::vector<std::string> texts = splitWords(newText);
    text = newText;
    // Corrections that keep the word count (spelling, capitals) keep the recognised timing;
    // anything else is spread evenly by timedWords().
    if (words && words->size() == texts.size()) {
        for (size_t i = 0; i < texts.size(); ++i) {
            (*words)[i].text = texts[i];
        }
    } else {
        words.reset();
    }
}

std::vector<CaptionPage> CaptionSegment::pages(int maxCharacters, int maxLines) const {
    const size_t perPage = static_cast<size_t>(std::max(maxLines, 1));
    const std::vector<CaptionWord> words = timedWords();
    auto lines = wrapWords(words, maxCharacters);
    const size_t count = (lines.size() + perPage - 1) / perPage;
    // Filling pages line by line can leave a last page of a word or two that flashes by; the
    // same number of pages with the words shared out evenly reads better, and is used whenever
    // every page still fits.
    std::vector<std::vector<std::vector<CaptionWord>>> grouped;
    if (count > 1) {
        const double share = static_cast<double>(characters(joined(words)) + 1) / count;
        std::vector<CaptionWord> current;
        double used = 0;
        for (const CaptionWord& word : words) {
            double size = characters(word.text) + 1;
            if (!current.empty() && grouped.size() + 1 < count &&
                used + size / 2 > share * static_cast<double>(grouped.size() + 1)) {
                grouped.push_back(wrapWords(current, maxCharacters));
                current.clear();
            }
            current.push_back(word);
            used += size;
        }
        grouped.push_back(wrapWords(current, maxCharacters));
        if (std::any_of(grouped.begin(), grouped.end(),
                        [&](const auto& page) { return page.size() > perPage; })) {
            grouped.clear();
        }
    }
    if (grouped.empty()) {
        for (size_t i = 0; i < lines.size(); i += perPage) {
            size_t last = std::min(lines.size(), i + perPage);
            grouped.emplace_back(lines.begin() + static_cast<ptrdiff_t>(i),
                                 lines.begin() + static_cast<ptrdiff_t>(last));
        }
    }
    std::vector<CaptionPage> pages;
    for (auto& pageLines : grouped) {
        CaptionPage page;
        page.lines = std::move(pageLines);
        page.start = pages.empty() ? start : page.lines.front().front().start;
        pages.push_back(std::move(page));
    }
    // Each page shows until the next one starts; the last until the segment ends.
    for (size_t i = 0; i < pages.size(); ++i) {
        pages[i].end = i + 1 < pages.size() ? pages[i + 1].start : end;
    }
    return pages;
}

// --- CaptionTrack

std::vector<CaptionSegment> CaptionTrack::segmentsFrom(
    const std::vector<std::vector<CaptionWord>>& runs, int maxCharacters, double maxDuration,
    double pause) {
    std::vector<CaptionSegment> result;
    std::vector<CaptionWord> current;
    auto close = [&] {
        if (current.empty()) {
            return;
        }
        CaptionSegment segment;
        segment.start = current.front().start;
        segment.end = current.back().end;
        segment.text = joined(current);
        segment.words = std::move(current);
        result.push_back(std::move(segment));
        current.clear();
    };
    for (const auto& run : runs) {
        for (const CaptionWord& word : run) {
            if (word.text.empty()) {
                continue;
            }
            if (!current.empty()) {
                int length = characters(joined(current));
                bool paused = word.start - current.back().end > pause;
                bool tooLong = length + 1 + characters(word.text) > maxCharacters;
                bool tooSlow = word.end - current.front().start > maxDuration;
                bool sentence = endsSentence(current.back().text) && length >= kSentenceMinimum;
                if (paused || tooLong || tooSlow || sentence) {
                    close();
                }
            }
            current.push_back(word);
        }
    }
    close();
    return result;
}

const CaptionSegment* CaptionTrack::segment(double t) const {
    for (const CaptionSegment& segment : segments) {
        if (segment.start <= t && t <= segment.end) {
            return &segment;
        }
    }
    return nullptr;
}

std::optional<CaptionPage> CaptionTrack::page(double t, int maxCharacters) const {
    const CaptionSegment* shown = segment(t);
    if (!shown) {
        return std::nullopt;
    }
    std::vector<CaptionPage> pages = shown->pages(maxCharacters);
    const CaptionPage* showing = pageShowing(pages, t);
    return showing ? std::optional<CaptionPage>(*showing) : std::nullopt;
}

Result<void> CaptionTrack::validate(double duration) const {
    for (size_t i = 0; i < segments.size(); ++i) {
        const CaptionSegment& segment = segments[i];
        if (!std::isfinite(segment.start) || !std::isfinite(segment.end) || segment.start < 0 ||
            segment.end <= segment.start) {
            return AppError(texts::captionTimes(i));
        }
        if (segment.end > duration + 0.001) {
            return AppError(texts::captionPastEnd(i));
        }
        if (i > 0 && segment.start < segments[i - 1].end - 0.001) {
            return AppError(texts::captionOverlaps(i));
        }
    }
    return {};
}

std::vector<SubtitleCue> CaptionTrack::cues(const project::Edits& edits) const {
    project::CaptionStyle style = edits.captions.value_or(project::CaptionStyle{}).clamped();
    std::vector<SubtitleCue> cues;
    for (const CaptionSegment& segment : segments) {
        for (const CaptionPage& page : segment.pages(static_cast<int>(style.maxCharacters))) {
            double start = edits.outputTime(page.start);
            double end = edits.outputTime(page.end);
            if (end - start >= kShortestCue) {
                cues.push_back({start, end, page.text()});
            }
        }
    }
    return cues;
}

std::string CaptionTrack::timestamp(double seconds, char separator) {
    long long ms = std::llround(std::max(seconds, 0.0) * 1000);
    char text[40];
    std::snprintf(text, sizeof text, "%02lld:%02lld:%02lld%c%03lld", ms / 3600000,
                  (ms / 60000) % 60, (ms / 1000) % 60, separator, ms % 1000);
    return text;
}

std::string CaptionTrack::subtitles(SubtitleFormat format, const project::Edits& edits) const {
    bool srt = format == SubtitleFormat::Srt;
    char separator = srt ? ',' : '.';
    std::string text = srt ? "" : "WEBVTT\n\n";
    size_t number = 0;
    for (const SubtitleCue& cue : cues(edits)) {
        if (number > 0) {
            text += '\n';
        }
        ++number;
        if (srt) {
            text += std::to_string(number) + '\n';
        }
        text += timestamp(cue.start, separator) + " --> " + timestamp(cue.end, separator) + '\n';
        text += cue.text + '\n';
    }
    return text;
}

Result<CaptionTrack> CaptionTrack::load(const fs::path& folder) {
    Result<std::string> text = readFile(folder / kFileName);
    if (!text) {
        return text.error();
    }
    return JsonReader::decodeText(*text, readTrack, "The captions couldn't be read");
}

Result<void> CaptionTrack::save(const fs::path& folder) const {
    Json json = {{"version", version},
                 {"locale", locale},
                 {"engine", engine},
                 {"segments", toJsonList(segments)}};
    return writeFileAtomically(folder / kFileName, toPrettyJson(json));
}

}  // namespace quillo::captions
