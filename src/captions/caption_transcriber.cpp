#include "caption_transcriber.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include <unicode/locid.h>
#include <unicode/unistr.h>

#include "base/uuid.h"
#include "caption_texts.h"
#include "media/movie_info.h"
#include "media/movie_reader.h"
#include "pocketsphinx_engine.h"

namespace quillo::captions {
namespace {

// Removes a file when it goes out of scope.
class RemoveLater {
public:
    explicit RemoveLater(std::filesystem::path path) : m_path(std::move(path)) {}
    ~RemoveLater() {
        std::error_code ignored;
        std::filesystem::remove(m_path, ignored);
    }
    RemoveLater(const RemoveLater&) = delete;
    RemoveLater& operator=(const RemoveLater&) = delete;

private:
    std::filesystem::path m_path;
};

}  // namespace

CaptionTranscriber::CaptionTranscriber(std::shared_ptr<SpeechEngine> engine)
    : m_engine(engine ? std::move(engine) : std::make_shared<PocketSphinxEngine>()) {}

Result<void> CaptionTranscriber::extractAudio(const std::filesystem::path& movie,
                                              const std::filesystem::path& to,
                                              const CancelToken& cancel) {
    auto info = media::readMovieInfo(movie);
    if (!info) {
        return AppError(texts::kNoSound, info.error().detail);
    }
    if (!info->hasSound) {
        return AppError(texts::kNoSound, "the movie has no sound track");
    }
    std::vector<int16_t> samples;
    samples.reserve(static_cast<size_t>(info->duration * kSpeechSampleRate) + kSpeechSampleRate);
    auto read = media::MovieReader::readSound(
        movie, {kSpeechSampleRate, 1}, 0, std::numeric_limits<double>::infinity(),
        [&](const float* sound, size_t frames) {
            for (size_t i = 0; i < frames; ++i) {
                const float scaled = std::round(std::clamp(sound[i], -1.0f, 1.0f) * 32767.0f);
                samples.push_back(static_cast<int16_t>(scaled));
            }
            return !cancel.isCancelled();
        });
    if (cancel.isCancelled()) {
        return AppError(texts::kTranscriptionStopped);
    }
    if (!read) {
        return AppError(texts::kAudioFailed, read.error().detail);
    }
    if (samples.empty()) {
        return AppError(texts::kNoSound, "the sound track decodes to nothing");
    }
    if (auto written = writeSpeechWav(to, samples); !written) {
        return AppError(texts::kAudioFailed, written.error().message);
    }
    return {};
}

std::filesystem::path CaptionTranscriber::temporaryAudioPath() {
    return std::filesystem::temp_directory_path() / ("quillo-captions-" + makeUUID() + ".wav");
}

std::string CaptionTranscriber::languageName(const std::string& locale) {
    std::string id = locale.substr(0, locale.find_first_of(".@"));
    std::replace(id.begin(), id.end(), '-', '_');
    icu::UnicodeString name;
    icu::Locale(id.c_str()).getDisplayName(icu::Locale::getEnglish(), name);
    std::string text;
    name.toUTF8String(text);
    return text.empty() ? locale : text;
}

Result<CaptionTrack> CaptionTranscriber::transcribe(const std::filesystem::path& movie,
                                                    const std::string& locale,
                                                    const TranscriptionProgress& progress,
                                                    const CancelToken& cancel) const {
    auto report = [&](const char* status, std::optional<double> fraction) {
        if (progress) {
            progress(status, fraction);
        }
    };
    if (!m_engine->supports(locale)) {
        return AppError(texts::languageUnavailable(languageName(locale)));
    }
    report(texts::kPreparingAudio, std::nullopt);
    const std::filesystem::path wav = temporaryAudioPath();
    RemoveLater removeWav(wav);
    if (auto extracted = extractAudio(movie, wav, cancel); !extracted) {
        return extracted.error();
    }

    report(texts::kTranscribing, 0.0);
    auto runs = m_engine->recognize(
        wav, locale, [&](double fraction) { report(texts::kTranscribing, fraction); }, cancel);
    if (cancel.isCancelled()) {
        return AppError(texts::kTranscriptionStopped);
    }
    if (!runs) {
        return runs.error();
    }
    if (runs->empty()) {
        return AppError(texts::kNoSpeech);
    }
    CaptionTrack track;
    track.locale = locale;
    track.engine = m_engine->name();
    track.segments = CaptionTrack::segmentsFrom(*runs);
    return track;
}

}  // namespace quillo::captions
