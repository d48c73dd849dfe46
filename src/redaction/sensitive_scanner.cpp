#include "sensitive_scanner.h"

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <tesseract/baseapi.h>
#include <tesseract/ocrclass.h>
#include <tesseract/resultiterator.h>
#include <thread>

#include "redaction.h"

namespace quillo::redaction {

// ---------------------------------------------------------------------------------------------
// Sightings to proposals

namespace sensitive_scan {

namespace {

bool intersects(const Rect& a, const Rect& b) {
    return a.x < b.x + b.width && b.x < a.x + a.width && a.y < b.y + b.height &&
           b.y < a.y + a.height;
}

Rect united(const Rect& a, const Rect& b) {
    double left = std::min(a.x, b.x);
    double top = std::min(a.y, b.y);
    double right = std::max(a.x + a.width, b.x + b.width);
    double bottom = std::max(a.y + a.height, b.y + b.height);
    return {left, top, right - left, bottom - top};
}

std::string withoutSpaces(const std::string& text) {
    std::string result;
    for (char c : text) {
        if (c != ' ' && c != '\t' && c != '\n' && c != '\r' && c != '\f' && c != '\v') {
            result += c;
        }
    }
    return result;
}

}  // namespace

Rect padded(const Rect& box, double frameWidth, double frameHeight) {
    if (frameWidth <= 0 || frameHeight <= 0) {
        return box;
    }
    double pad = box.height * frameHeight * 0.35 + 2;
    double dx = pad / frameWidth;
    double dy = pad / frameHeight;
    double left = std::max(0.0, box.x - dx);
    double top = std::max(0.0, box.y - dy);
    double right = std::min(1.0, box.x + box.width + dx);
    double bottom = std::min(1.0, box.y + box.height + dy);
    return {left, top, std::max(0.0, right - left), std::max(0.0, bottom - top)};
}

std::vector<SensitiveSpan> merge(std::vector<Sighting> sightings, double interval) {
    std::stable_sort(sightings.begin(), sightings.end(),
                     [](const Sighting& a, const Sighting& b) { return a.time < b.time; });
    const double gap = interval * 2.5;
    struct Open {
        SensitiveSpan span;
        std::string key;
        Rect recent;
    };
    std::vector<Open> spans;
    for (Sighting& s : sightings) {
        std::string key = withoutSpaces(s.text);
        Open* joined = nullptr;
        for (Open& open : spans) {
            const Rect& r = open.recent;
            Rect near{r.x - r.height, r.y - r.height, r.width + 2 * r.height, r.height * 3};
            if (open.span.kind == s.kind && open.key == key && s.time - open.span.last <= gap &&
                intersects(near, s.box)) {
                joined = &open;
                break;
            }
        }
        if (joined != nullptr) {
            joined->span.last = s.time;
            joined->span.box = united(joined->span.box, s.box);
            joined->recent = s.box;
        } else {
            Rect box = s.box;
            spans.push_back(
                {{s.kind, std::move(s.text), s.time, s.time, box}, std::move(key), box});
        }
    }
    std::vector<SensitiveSpan> result;
    result.reserve(spans.size());
    for (Open& open : spans) {
        result.push_back(std::move(open.span));
    }
    return result;
}

std::vector<project::Redaction> proposals(const std::vector<SensitiveSpan>& spans, double duration,
                                          double frameWidth, double frameHeight, double interval) {
    std::vector<project::Redaction> result;
    for (const SensitiveSpan& span : spans) {
        double start = std::max(span.first - interval, 0.0);
        double end = std::min(span.last + interval, duration);
        Rect box = padded(span.box, frameWidth, frameHeight);
        if (start >= end || box.width <= 0 || box.height <= 0) {
            continue;
        }
        result.push_back(make(start, end, box, project::RedactionStyle::Blur, 0.8, std::nullopt,
                              std::string(label(span.kind))));
    }
    project::sortByStart(result);
    return result;
}

}  // namespace sensitive_scan

// ---------------------------------------------------------------------------------------------
// Pictures and the recognition engine

namespace {

// A box in pixels of the working frame: left and top included, right and bottom not.
struct PixelBox {
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;

    PixelBox united(const PixelBox& o) const {
        return {std::min(left, o.left), std::min(top, o.top), std::max(right, o.right),
                std::max(bottom, o.bottom)};
    }
};

struct PixelFinding {
    SensitiveKind kind;
    std::string text;
    PixelBox box;
};

// A luma picture with rows `stride` bytes apart.
struct GrayView {
    const uint8_t* data = nullptr;
    int width = 0;
    int height = 0;
    int stride = 0;
};

std::vector<uint8_t> grayOf(const media::VideoFrame& frame) {
    std::vector<uint8_t> gray(static_cast<size_t>(frame.width) * frame.height);
    for (int y = 0; y < frame.height; ++y) {
        const uint8_t* row = frame.pixels.data() + static_cast<ptrdiff_t>(y) * frame.stride;
        uint8_t* out = gray.data() + static_cast<ptrdiff_t>(y) * frame.width;
        for (int x = 0; x < frame.width; ++x) {
            const uint8_t* p = row + x * 4;  // B, G, R, A
            out[x] = static_cast<uint8_t>((p[0] * 29 + p[1] * 150 + p[2] * 77) >> 8);
        }
    }
    return gray;
}

bool cancelRequested(void* token, int /*words*/) {
    return static_cast<const CancelToken*>(token)->isCancelled();
}

}  // namespace

// One Tesseract instance: LSTM recognition of English without the word lists, so that tokens
// are read as they stand instead of being bent towards dictionary words.
class SensitiveScanner::Engine {
public:
    Result<void> start() {
        std::vector<std::string> names = {
            "load_system_dawg", "load_freq_dawg",   "load_unambig_dawg", "load_punc_dawg",
            "load_number_dawg", "load_bigram_dawg", "debug_file"};
        std::vector<std::string> values = {"0", "0", "0", "0", "0", "0", "/dev/null"};
        if (m_api.Init(nullptr, "eng", tesseract::OEM_LSTM_ONLY, nullptr, 0, &names, &values,
                       false) != 0) {
            return AppError("Text recognition could not be started.",
                            "Tesseract found no English LSTM data");
        }
        m_api.SetPageSegMode(tesseract::PSM_AUTO);
        return {};
    }

    // The private text in `picture`, whose top row is row `top` of the working frame. Stops
    // early, with what it has, when `stop` is set.
    std::vector<PixelFinding> read(const GrayView& picture, int top, const CancelToken& stop) {
        std::vector<PixelFinding> found;
        m_api.SetImage(picture.data, picture.width, picture.height, 1, picture.stride);
        m_api.SetSourceResolution(96);
        tesseract::ETEXT_DESC monitor;
        monitor.cancel = cancelRequested;
        monitor.cancel_this = const_cast<CancelToken*>(&stop);
        if (m_api.Recognize(&monitor) != 0 || stop.isCancelled()) {
            m_api.Clear();
            return found;
        }
        std::unique_ptr<tesseract::ResultIterator> it(m_api.GetIterator());
        if (it && !it->Empty(tesseract::RIL_SYMBOL)) {
            bool more = true;
            while (more) {
                more = readLine(*it, top, found);
            }
        }
        m_api.Clear();
        return found;
    }

private:
    struct Symbol {
        size_t start;
        size_t end;
        PixelBox box;
    };

    static PixelBox boxAt(const tesseract::ResultIterator& it, tesseract::PageIteratorLevel level,
                          int top) {
        PixelBox box;
        if (!it.BoundingBox(level, &box.left, &box.top, &box.right, &box.bottom)) {
            return {};
        }
        box.top += top;
        box.bottom += top;
        return box;
    }

    static std::string textAt(const tesseract::ResultIterator& it,
                              tesseract::PageIteratorLevel level) {
        std::unique_ptr<char[]> text(it.GetUTF8Text(level));
        return text ? std::string(text.get()) : std::string();
    }

    // Reads the line the iterator is at and moves past it; false at the end of the page. The
    // line's text is spelled out again from its symbols to learn where each one lies; should the
    // two disagree, matches get the whole line's box.
    static bool readLine(tesseract::ResultIterator& it, int top, std::vector<PixelFinding>& found) {
        const PixelBox lineBox = boxAt(it, tesseract::RIL_TEXTLINE, top);
        std::string line = textAt(it, tesseract::RIL_TEXTLINE);
        while (!line.empty() && (line.back() == '\n' || line.back() == ' ')) {
            line.pop_back();
        }
        std::string spelled;
        std::vector<Symbol> symbols;
        bool more = true;
        do {
            if (it.IsAtBeginningOf(tesseract::RIL_WORD) && !spelled.empty()) {
                spelled += ' ';
            }
            std::string symbol = textAt(it, tesseract::RIL_SYMBOL);
            if (!symbol.empty()) {
                symbols.push_back({spelled.size(), spelled.size() + symbol.size(),
                                   boxAt(it, tesseract::RIL_SYMBOL, top)});
                spelled += symbol;
            }
            more = it.Next(tesseract::RIL_SYMBOL);
        } while (more && !it.IsAtBeginningOf(tesseract::RIL_TEXTLINE));
        const bool aligned = spelled == line;
        for (SensitiveMatch& match : matchesRead(line)) {
            std::optional<PixelBox> box;
            if (aligned) {
                for (const Symbol& s : symbols) {
                    if (s.start < match.range.end && match.range.start < s.end) {
                        box = box ? box->united(s.box) : s.box;
                    }
                }
            }
            found.push_back({match.kind, std::move(match.text), box.value_or(lineBox)});
        }
        return more;
    }

    tesseract::TessBaseAPI m_api;
};

// ---------------------------------------------------------------------------------------------
// Change between sampled frames

namespace {

// A row changed when one of its pixels differs by more than kStrongChange in luma, or a fortieth
// of them by more than kChangeThreshold (faint text). A key frame re-coding a still picture moves
// a few pixels of a row by up to about 60; new text moves some by far more.
constexpr int kChangeThreshold = 28;
constexpr int kChangedShare = 40;
constexpr int kStrongChange = 64;
// Rows with more strong horizontal edges than this hold text (panel borders give a few).
constexpr int kInkEdges = 6;
constexpr int kEdgeStep = 40;
// When the rows to read again cover more than this share of the frame, it is read whole.
constexpr double kWholeFrameShare = 0.55;

// Rows of the working frame read again together: `core` rows changed; `top … bottom` adds a
// margin on both sides and ends at rows without text, so that no line is cut.
struct Band {
    int coreTop = 0;
    int coreBottom = 0;
    int top = 0;
    int bottom = 0;
};

std::vector<bool> changedRows(const std::vector<uint8_t>& basis, const std::vector<uint8_t>& now,
                              int width, int height) {
    std::vector<bool> changed(static_cast<size_t>(height), false);
    for (int y = 0; y < height; ++y) {
        const uint8_t* a = basis.data() + static_cast<ptrdiff_t>(y) * width;
        const uint8_t* b = now.data() + static_cast<ptrdiff_t>(y) * width;
        if (std::memcmp(a, b, static_cast<size_t>(width)) == 0) {
            continue;
        }
        int count = 0;
        int largest = 0;
        for (int x = 0; x < width; ++x) {
            int difference = std::abs(static_cast<int>(a[x]) - static_cast<int>(b[x]));
            count += difference > kChangeThreshold;
            largest = std::max(largest, difference);
        }
        changed[static_cast<size_t>(y)] = count >= width / kChangedShare || largest > kStrongChange;
    }
    return changed;
}

bool blankRow(const std::vector<uint8_t>& picture, int width, int y) {
    const uint8_t* row = picture.data() + static_cast<ptrdiff_t>(y) * width;
    int edges = 0;
    for (int x = 1; x < width && edges <= kInkEdges; ++x) {
        edges += std::abs(static_cast<int>(row[x]) - static_cast<int>(row[x - 1])) > kEdgeStep;
    }
    return edges <= kInkEdges;
}

// The bands to read again for the changed rows of `picture`.
std::vector<Band> bandsFor(const std::vector<bool>& changed, const std::vector<uint8_t>& picture,
                           int width, int height) {
    const int margin = std::max(16, height / 36);
    const int reach = margin * 3;
    auto isBlank = [&](int y) { return y < 0 || y >= height || blankRow(picture, width, y); };
    std::vector<Band> bands;
    for (int y = 0; y < height;) {
        if (!changed[static_cast<size_t>(y)]) {
            ++y;
            continue;
        }
        int end = y;
        while (end < height && changed[static_cast<size_t>(end)]) {
            ++end;
        }
        Band band{y, end, std::max(0, y - margin), std::min(height, end + margin)};
        const int highest = std::max(0, y - reach);
        while (band.top > highest && !(isBlank(band.top - 1) && isBlank(band.top))) {
            --band.top;
        }
        const int lowest = std::min(height, end + reach);
        while (band.bottom < lowest && !(isBlank(band.bottom) && isBlank(band.bottom - 1))) {
            ++band.bottom;
        }
        if (!bands.empty() && band.top <= bands.back().bottom + margin) {
            Band& last = bands.back();
            last.coreBottom = band.coreBottom;
            last.bottom = std::max(last.bottom, band.bottom);
        } else {
            bands.push_back(band);
        }
        y = end;
    }
    return bands;
}

bool rowsMeet(const PixelBox& box, int top, int bottom) {
    return box.top < bottom && top < box.bottom;
}

// The findings of a frame read in bands: the earlier findings that the change left alone and
// the new ones from the bands. A finding touching a band's edge may have been cut there; it is
// taken only when it reaches the changed rows (otherwise the earlier reading of it stands).
std::vector<PixelFinding> combine(const std::vector<PixelFinding>& before,
                                  const std::vector<Band>& bands,
                                  const std::vector<std::vector<PixelFinding>>& read, int height) {
    constexpr int kEdge = 2;
    std::vector<PixelFinding> result;
    for (const PixelFinding& f : before) {
        bool replaced = std::any_of(bands.begin(), bands.end(), [&](const Band& b) {
            bool inside = f.box.top >= b.top && f.box.bottom <= b.bottom;
            return inside || rowsMeet(f.box, b.coreTop, b.coreBottom);
        });
        if (!replaced) {
            result.push_back(f);
        }
    }
    for (size_t i = 0; i < bands.size(); ++i) {
        const Band& b = bands[i];
        for (const PixelFinding& f : read[i]) {
            bool cutAtTop = b.top > 0 && f.box.top <= b.top + kEdge;
            bool cutAtBottom = b.bottom < height && f.box.bottom >= b.bottom - kEdge;
            if ((!cutAtTop && !cutAtBottom) || rowsMeet(f.box, b.coreTop, b.coreBottom)) {
                result.push_back(f);
            }
        }
    }
    return result;
}

Rect unitBox(const PixelBox& box, int width, int height) {
    return {static_cast<double>(box.left) / width, static_cast<double>(box.top) / height,
            static_cast<double>(box.right - box.left) / width,
            static_cast<double>(box.bottom - box.top) / height};
}

// The working size for a movie of `source` size: its own, or scaled down to fit the largest side.
media::FrameFormat workingFormat(const Size& source) {
    media::FrameFormat format;
    format.pixelFormat = media::PixelFormat::Gray8;
    const double side = std::max(source.width, source.height);
    if (side > sensitive_scan::kLargestSide) {
        if (source.width >= source.height) {
            format.width = sensitive_scan::kLargestSide;
        } else {
            format.height = sensitive_scan::kLargestSide;
        }
    }
    return format;
}

// ---------------------------------------------------------------------------------------------
// The scan's work list: the calling thread reads frames and plans what to recognise, the
// engines' threads recognise.

struct Job {
    size_t frame = 0;
    int top = 0;
    int width = 0;
    int height = 0;
    std::vector<uint8_t> pixels;
    std::vector<PixelFinding> found;
    bool done = false;
};

struct FramePlan {
    enum class Kind { Reuse, Whole, Bands } kind = Kind::Reuse;
    std::vector<Band> bands;
    std::vector<size_t> jobs;
};

class WorkList {
public:
    explicit WorkList(CancelToken stop) : m_stop(std::move(stop)) {}

    size_t add(Job job) {
        std::lock_guard lock(m_mutex);
        m_jobs.push_back(std::move(job));
        m_queue.push_back(m_jobs.size() - 1);
        m_wake.notify_all();
        return m_jobs.size() - 1;
    }

    // The next job for an engine, or none when the list is closed and empty or stopped.
    std::optional<size_t> take() {
        std::unique_lock lock(m_mutex);
        m_wake.wait(lock, [&] { return !m_queue.empty() || m_closed || m_stop.isCancelled(); });
        if (m_queue.empty() || m_stop.isCancelled()) {
            return std::nullopt;
        }
        size_t index = m_queue.front();
        m_queue.pop_front();
        return index;
    }

    Job& job(size_t index) {
        std::lock_guard lock(m_mutex);
        return m_jobs[index];
    }

    void finish(size_t index, std::vector<PixelFinding> found) {
        std::lock_guard lock(m_mutex);
        m_jobs[index].found = std::move(found);
        m_jobs[index].done = true;
        m_jobs[index].pixels = {};
        ++m_finished;
        m_wake.notify_all();
    }

    // Waits until at most `outstanding` jobs are unfinished (or the work is stopped).
    void waitUntil(size_t outstanding) {
        std::unique_lock lock(m_mutex);
        m_wake.wait(lock, [&] {
            return m_jobs.size() - m_finished <= outstanding || m_stop.isCancelled();
        });
    }

    // Waits a little for any job to finish; true when all are finished.
    bool waitForSome() {
        std::unique_lock lock(m_mutex);
        size_t finished = m_finished;
        m_wake.wait_for(lock, std::chrono::milliseconds(100),
                        [&] { return m_finished != finished || m_stop.isCancelled(); });
        return m_finished == m_jobs.size();
    }

    bool done(size_t index) {
        std::lock_guard lock(m_mutex);
        return m_jobs[index].done;
    }

    void close() {
        std::lock_guard lock(m_mutex);
        m_closed = true;
        m_wake.notify_all();
    }

    void stop() {
        std::lock_guard lock(m_mutex);
        m_stop.cancel();
        m_wake.notify_all();
    }

    std::vector<PixelFinding>& found(size_t index) { return m_jobs[index].found; }

private:
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<Job> m_jobs;  // a deque keeps references to jobs valid as it grows
    std::deque<size_t> m_queue;
    size_t m_finished = 0;
    bool m_closed = false;
    CancelToken m_stop;
};

Job jobFor(size_t frame, const std::vector<uint8_t>& picture, int width, int top, int bottom) {
    Job job;
    job.frame = frame;
    job.top = top;
    job.width = width;
    job.height = bottom - top;
    auto first = picture.begin() + static_cast<ptrdiff_t>(top) * width;
    job.pixels.assign(first, first + static_cast<ptrdiff_t>(job.height) * width);
    return job;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// The scanner

namespace {

// Whether a finding of `before` has nothing of its kind in its rows in `after`. Text that
// changed (typing into an address) still has a finding there; only text gone altogether counts.
bool lostAny(const std::vector<PixelFinding>& before, const std::vector<PixelFinding>& after) {
    return std::any_of(before.begin(), before.end(), [&](const PixelFinding& old) {
        return std::none_of(after.begin(), after.end(), [&](const PixelFinding& now) {
            return now.kind == old.kind && rowsMeet(now.box, old.box.top, old.box.bottom);
        });
    });
}

}  // namespace

SensitiveScanner::SensitiveScanner(int engines, bool incremental)
    : m_engineCount(static_cast<size_t>(std::max(1, engines))), m_incremental(incremental) {
    m_engines.resize(m_engineCount);
}

SensitiveScanner::~SensitiveScanner() = default;

Result<SensitiveScanner::Engine*> SensitiveScanner::engine(size_t index) {
    if (!m_engines[index]) {
        auto made = std::make_unique<Engine>();
        if (auto started = made->start(); !started) {
            return started.error();
        }
        m_engines[index] = std::move(made);
    }
    return m_engines[index].get();
}

Result<std::vector<SensitiveFinding>> SensitiveScanner::recognize(const media::VideoFrame& frame) {
    auto reader = engine(0);
    if (!reader) {
        return reader.error();
    }
    std::vector<SensitiveFinding> result;
    if (frame.width <= 0 || frame.height <= 0 || frame.pixels.empty()) {
        return result;
    }
    std::vector<uint8_t> converted;
    GrayView view{frame.pixels.data(), frame.width, frame.height, frame.stride};
    if (frame.pixelFormat == media::PixelFormat::BGRA) {
        converted = grayOf(frame);
        view = {converted.data(), frame.width, frame.height, frame.width};
    }
    for (PixelFinding& f : (*reader)->read(view, 0, CancelToken())) {
        result.push_back({f.kind, std::move(f.text), unitBox(f.box, frame.width, frame.height)});
    }
    return result;
}

Result<std::vector<project::Redaction>> SensitiveScanner::scan(const std::filesystem::path& movie,
                                                               double start, double end,
                                                               double interval,
                                                               const Progress& progress,
                                                               const CancelToken& cancel) {
    m_statistics = {};
    auto opened = media::MovieReader::open(movie);
    if (!opened) {
        return opened.error();
    }
    media::MovieReader& reader = **opened;
    const media::MovieInfo info = reader.info();
    if (!(interval > 0)) {
        interval = sensitive_scan::kInterval;
    }
    start = std::max(0.0, start);
    end = std::min(end, info.duration);
    const size_t planned =
        end >= start ? static_cast<size_t>(std::floor((end - start) / interval + 1e-9)) + 1 : 0;
    const media::FrameFormat format = workingFormat(info.videoSize);

    CancelToken stop;
    WorkList work(stop);
    std::vector<Result<void>> engineErrors(m_engineCount);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < m_engineCount; ++i) {
        threads.emplace_back([this, i, &work, &stop, &engineErrors] {
            auto reader = engine(i);
            if (!reader) {
                engineErrors[i] = reader.error();
                work.stop();
                return;
            }
            while (auto index = work.take()) {
                Job& job = work.job(*index);
                GrayView view{job.pixels.data(), job.width, job.height, job.width};
                work.finish(*index, (*reader)->read(view, job.top, stop));
            }
        });
    }
    auto finishThreads = [&] {
        for (std::thread& thread : threads) {
            thread.join();
        }
    };

    // Reading and planning. `basis` is the picture the current findings describe: rows are
    // copied into it as they are read again, so slow drifts below the change threshold cannot
    // pile up unnoticed.
    std::vector<FramePlan> plans;
    plans.reserve(planned);
    std::vector<uint8_t> basis;
    media::VideoFrame frame;
    int width = 0;
    int height = 0;
    size_t reported = 0;
    auto frameDone = [&](size_t k) {
        return std::all_of(plans[k].jobs.begin(), plans[k].jobs.end(),
                           [&](size_t j) { return work.done(j); });
    };
    auto report = [&] {
        while (reported < plans.size() && frameDone(reported)) {
            ++reported;
            if (progress) {
                progress(static_cast<double>(reported) / static_cast<double>(planned));
            }
        }
    };
    const size_t maxOutstanding = m_engineCount * 2;
    std::optional<AppError> failure;
    for (size_t k = 0; k < planned; ++k) {
        if (cancel.isCancelled() || stop.isCancelled()) {
            break;
        }
        double t = std::min(start + static_cast<double>(k) * interval, end);
        if (auto read = reader.frame(t, format, frame); !read) {
            failure = read.error();
            break;
        }
        FramePlan plan;
        if (basis.empty() || !m_incremental) {
            width = frame.width;
            height = frame.height;
            basis.assign(frame.pixels.begin(), frame.pixels.end());
            plan.kind = FramePlan::Kind::Whole;
            plan.jobs.push_back(work.add(jobFor(k, basis, width, 0, height)));
        } else if (!frame.unchanged && frame.pixels != basis) {
            std::vector<bool> changed = changedRows(basis, frame.pixels, width, height);
            std::vector<Band> bands = bandsFor(changed, frame.pixels, width, height);
            int rows = 0;
            for (const Band& b : bands) {
                rows += b.bottom - b.top;
            }
            if (rows > kWholeFrameShare * height) {
                basis = frame.pixels;
                plan.kind = FramePlan::Kind::Whole;
                plan.jobs.push_back(work.add(jobFor(k, basis, width, 0, height)));
            } else if (!bands.empty()) {
                plan.kind = FramePlan::Kind::Bands;
                for (const Band& b : bands) {
                    std::copy_n(frame.pixels.begin() + static_cast<ptrdiff_t>(b.top) * width,
                                static_cast<ptrdiff_t>(b.bottom - b.top) * width,
                                basis.begin() + static_cast<ptrdiff_t>(b.top) * width);
                    plan.jobs.push_back(work.add(jobFor(k, basis, width, b.top, b.bottom)));
                }
                plan.bands = std::move(bands);
            }
        }
        for (size_t j : plan.jobs) {
            m_statistics.recognitions += 1;
            m_statistics.wholeFrames += plan.kind == FramePlan::Kind::Whole;
            m_statistics.rowsRecognised += work.job(j).height;
        }
        plans.push_back(std::move(plan));
        report();
        work.waitUntil(maxOutstanding);
    }
    if (failure) {
        work.stop();
    }
    work.close();
    while (!failure && !cancel.isCancelled() && !stop.isCancelled() && !work.waitForSome()) {
        report();
    }
    if (cancel.isCancelled()) {
        work.stop();
    }
    finishThreads();
    for (auto& error : engineErrors) {
        if (!error && !failure) {
            failure = error.error();
        }
    }
    if (cancel.isCancelled()) {
        return AppError("The scan was stopped.", "cancelled");
    }
    if (failure) {
        return *failure;
    }
    report();

    // A whole read of the frame at t, on this thread (the engines' threads are done).
    auto readWhole = [&](media::MovieReader& source, double t,
                         const media::FrameFormat& as) -> Result<std::vector<PixelFinding>> {
        if (auto read = source.frame(std::min(t, end), as, frame); !read) {
            return read.error();
        }
        auto engine0 = engine(0);
        if (!engine0) {
            return engine0.error();
        }
        GrayView view{frame.pixels.data(), frame.width, frame.height, frame.stride};
        return (*engine0)->read(view, 0, cancel);
    };

    // Findings of every sampled frame, in order.
    std::vector<Sighting> sightings;
    std::vector<PixelFinding> current;
    for (size_t k = 0; k < plans.size(); ++k) {
        const FramePlan& plan = plans[k];
        if (plan.kind == FramePlan::Kind::Whole) {
            current = work.found(plan.jobs.front());
        } else if (plan.kind == FramePlan::Kind::Bands) {
            std::vector<std::vector<PixelFinding>> read;
            for (size_t j : plan.jobs) {
                read.push_back(work.found(j));
            }
            std::vector<PixelFinding> combined = combine(current, plan.bands, read, height);
            // Text read before in the changed rows that the band no longer shows: either it
            // went away, or the band's crop misled recognition. A whole read of the frame tells.
            if (lostAny(current, combined)) {
                auto whole = readWhole(reader, start + static_cast<double>(k) * interval, format);
                if (!whole) {
                    return whole.error();
                }
                combined = std::move(*whole);
                m_statistics.recognitions += 1;
                m_statistics.wholeFrames += 1;
            }
            current = std::move(combined);
        }
        double t = std::min(start + static_cast<double>(k) * interval, end);
        for (const PixelFinding& f : current) {
            sightings.push_back({t, f.kind, f.text, unitBox(f.box, width, height)});
        }
    }
    m_statistics.framesSampled = plans.size();
    if (!plans.empty() && height > 0) {
        m_statistics.rowsRecognised /= static_cast<double>(plans.size()) * height;
    }
    auto spans = sensitive_scan::merge(std::move(sightings), interval);
    return sensitive_scan::proposals(spans, info.duration, info.videoSize.width,
                                     info.videoSize.height, interval);
}

}  // namespace quillo::redaction
