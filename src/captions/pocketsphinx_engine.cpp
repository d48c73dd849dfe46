#include "pocketsphinx_engine.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <err.h>
#include <memory>
#include <mutex>
#include <optional>
#include <pocketsphinx.h>
#include <thread>

#include "caption_texts.h"

namespace quillo::captions {
namespace {

constexpr size_t kFrame = kSpeechSampleRate / 100;  // 10 ms
constexpr size_t kShortestPause = 30;               // frames
constexpr size_t kLeastSpeech = 8;                  // loud frames in a chunk
constexpr size_t kPadding = 30;                     // frames of pause kept around speech
constexpr double kFloorMargin = 12;                 // dB over the quiet floor
constexpr double kLoudMargin = 6;                   // dB under the loud level
constexpr double kSilenceLevel = -50;               // dB full scale: always silence below
constexpr int kMaxThreads = 2;

std::vector<double> frameLevels(const std::vector<int16_t>& samples) {
    std::vector<double> levels((samples.size() + kFrame - 1) / kFrame);
    for (size_t f = 0; f < levels.size(); ++f) {
        const size_t begin = f * kFrame;
        const size_t end = std::min(samples.size(), begin + kFrame);
        double sum = 0;
        for (size_t i = begin; i < end; ++i) {
            const double x = samples[i] / 32768.0;
            sum += x * x;
        }
        levels[f] = 10 * std::log10(sum / static_cast<double>(end - begin) + 1e-12);
    }
    return levels;
}

struct DecoderDeleter {
    void operator()(ps_decoder_t* d) const { ps_free(d); }
};
using DecoderPtr = std::unique_ptr<ps_decoder_t, DecoderDeleter>;

void silenceLibraryLog() {
    static std::once_flag once;
    // The library reports every setting and search pass on standard error; our errors say what
    // went wrong.
    std::call_once(once, [] { err_set_logfp(nullptr); });
}

Result<DecoderPtr> openDecoder(const std::filesystem::path& model) {
    silenceLibraryLog();
    const std::string hmm = (model / "en-us").string();
    const std::string lm = (model / "en-us.lm.bin").string();
    const std::string dict = (model / "cmudict-en-us.dict").string();
    cmd_ln_t* config = cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", hmm.c_str(), "-lm", lm.c_str(),
                                   "-dict", dict.c_str(), nullptr);
    if (config == nullptr) {
        return AppError(texts::kAudioFailed, "pocketsphinx rejected its settings");
    }
    DecoderPtr decoder(ps_init(config));
    cmd_ln_free_r(config);  // the decoder keeps its own reference
    if (!decoder) {
        return AppError(texts::kAudioFailed, "pocketsphinx could not load " + model.string());
    }
    return decoder;
}

// Decodes one chunk as a whole utterance (which normalises the sound over all of it, more
// accurately than the running estimate of live decoding); words are timed in seconds of the
// whole sound.
std::vector<CaptionWord> decodeChunk(ps_decoder_t* decoder, const std::vector<int16_t>& samples,
                                     const SpeechChunk& chunk) {
    // A new stream restarts the decoder's frame count, which times the words from the chunk's
    // start.
    if (ps_start_stream(decoder) < 0 || ps_start_utt(decoder) < 0) {
        return {};
    }
    ps_process_raw(decoder, samples.data() + chunk.begin, chunk.end - chunk.begin, FALSE, TRUE);
    ps_end_utt(decoder);

    const double origin = static_cast<double>(chunk.begin) / kSpeechSampleRate;
    const double frameRate = static_cast<double>(cmd_ln_int32_r(ps_get_config(decoder), "-frate"));
    std::vector<CaptionWord> words;
    for (ps_seg_t* seg = ps_seg_iter(decoder); seg != nullptr; seg = ps_seg_next(seg)) {
        std::string text = PocketSphinxEngine::wordText(ps_seg_word(seg));
        if (text.empty()) {
            continue;
        }
        int first = 0;
        int last = 0;
        ps_seg_frames(seg, &first, &last);
        words.push_back(
            {std::move(text), origin + first / frameRate, origin + (last + 1) / frameRate});
    }
    return words;
}

}  // namespace

std::vector<SpeechChunk> speechChunks(const std::vector<int16_t>& samples, double maxSeconds) {
    const std::vector<double> levels = frameLevels(samples);
    if (levels.empty()) {
        return {};
    }
    std::vector<double> sorted = levels;
    auto percentile = [&](size_t percent) {
        auto at = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() * percent / 100);
        std::nth_element(sorted.begin(), at, sorted.end());
        return *at;
    };
    const double floor = percentile(10);
    const double loud = percentile(90);
    // Sound without pauses (talk over a steady noise) has its floor near its loud level: the
    // threshold then stays below that level so the talk still counts.
    const double threshold =
        std::max(std::min(floor + kFloorMargin, loud - kLoudMargin), kSilenceLevel);

    // Stretches of frames from one loud frame to the last one before a long enough pause.
    struct Region {
        size_t first = 0, last = 0, loud = 0;
    };
    std::vector<Region> regions;
    for (size_t f = 0; f < levels.size(); ++f) {
        if (levels[f] < threshold) {
            continue;
        }
        if (regions.empty() || f - regions.back().last > kShortestPause) {
            regions.push_back({f, f, 0});
        }
        regions.back().last = f;
        ++regions.back().loud;
    }

    const auto maxFrames = static_cast<size_t>(maxSeconds * 100);
    std::vector<SpeechChunk> chunks;
    for (size_t i = 0; i < regions.size(); ++i) {
        const Region& r = regions[i];
        if (r.loud < kLeastSpeech) {
            continue;
        }
        const size_t before = i == 0 ? r.first : (r.first - regions[i - 1].last) / 2;
        const size_t after = i + 1 == regions.size() ? levels.size() - 1 - r.last
                                                     : (regions[i + 1].first - r.last - 1) / 2;
        size_t begin = r.first - std::min(before, kPadding);
        const size_t end = r.last + 1 + std::min(after, kPadding);
        while (end - begin > maxFrames) {
            auto from = levels.begin() + static_cast<std::ptrdiff_t>(begin + maxFrames / 2);
            auto to = levels.begin() + static_cast<std::ptrdiff_t>(begin + maxFrames);
            const auto cut = static_cast<size_t>(std::min_element(from, to) - levels.begin());
            chunks.push_back({begin * kFrame, cut * kFrame});
            begin = cut;
        }
        chunks.push_back({begin * kFrame, std::min(end * kFrame, samples.size())});
    }
    return chunks;
}

PocketSphinxEngine::PocketSphinxEngine(std::filesystem::path model) : m_model(std::move(model)) {}

bool PocketSphinxEngine::supports(const std::string& locale) const {
    const std::string language = locale.substr(0, locale.find_first_of("_-.@"));
    if (language.size() != 2 || std::tolower(static_cast<unsigned char>(language[0])) != 'e' ||
        std::tolower(static_cast<unsigned char>(language[1])) != 'n') {
        return false;
    }
    std::error_code error;
    return std::filesystem::exists(m_model / "en-us" / "mdef", error) &&
           std::filesystem::exists(m_model / "en-us.lm.bin", error) &&
           std::filesystem::exists(m_model / "cmudict-en-us.dict", error);
}

std::string PocketSphinxEngine::wordText(const std::string& token) {
    if (token.empty() || token[0] == '<' || token[0] == '[' || token[0] == '+') {
        return {};
    }
    if (token.back() == ')') {
        if (size_t open = token.rfind('('); open != std::string::npos && open > 0) {
            return token.substr(0, open);
        }
    }
    return token;
}

Result<SpeechRuns> PocketSphinxEngine::recognize(const std::filesystem::path& wav,
                                                 const std::string& /*locale*/,
                                                 const SpeechProgress& progress,
                                                 const CancelToken& cancel) {
    auto samples = readSpeechWav(wav);
    if (!samples) {
        return samples.error();
    }
    const std::vector<SpeechChunk> chunks = speechChunks(*samples);
    size_t total = 0;
    for (const SpeechChunk& chunk : chunks) {
        total += chunk.end - chunk.begin;
    }

    std::vector<std::vector<CaptionWord>> results(chunks.size());
    std::atomic<size_t> next = 0;
    std::atomic<size_t> done = 0;
    std::mutex mutex;
    std::condition_variable finished;
    size_t running = 0;
    std::optional<AppError> failure;

    auto work = [&] {
        auto decoder = openDecoder(m_model);
        if (decoder) {
            for (size_t i = next++; i < chunks.size() && !cancel.isCancelled(); i = next++) {
                results[i] = decodeChunk(decoder->get(), *samples, chunks[i]);
                done += chunks[i].end - chunks[i].begin;
            }
        }
        std::lock_guard lock(mutex);
        if (!decoder && !failure) {
            failure = decoder.error();
        }
        --running;
        finished.notify_all();
    };

    const auto threads = std::min<size_t>(
        chunks.size(), std::clamp<unsigned>(std::thread::hardware_concurrency(), 1, kMaxThreads));
    std::vector<std::thread> workers;
    running = threads;
    for (size_t i = 0; i < threads; ++i) {
        workers.emplace_back(work);
    }
    {
        std::unique_lock lock(mutex);
        while (running > 0) {
            finished.wait_for(lock, std::chrono::milliseconds(200));
            if (progress && total > 0) {
                lock.unlock();
                progress(static_cast<double>(done) / static_cast<double>(total));
                lock.lock();
            }
        }
    }
    for (std::thread& worker : workers) {
        worker.join();
    }

    if (cancel.isCancelled()) {
        return AppError(texts::kTranscriptionStopped);
    }
    if (failure) {
        return *failure;
    }
    SpeechRuns runs;
    for (auto& words : results) {
        if (!words.empty()) {
            runs.push_back(std::move(words));
        }
    }
    if (progress) {
        progress(1);
    }
    return runs;
}

}  // namespace quillo::captions
