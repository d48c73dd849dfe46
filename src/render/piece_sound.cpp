#include "piece_sound.h"

#include <algorithm>
#include <cmath>

#include "media/movie_reader.h"
#include "media/time_stretch.h"

namespace quillo::render {

namespace {
constexpr double kChunkSeconds = 2.0;
}

PieceSound::PieceSound(std::filesystem::path movie, std::vector<project::TimeSegment> pieces,
                       int sampleRate, int channels)
    : m_movie(std::move(movie)),
      m_pieces(std::move(pieces)),
      m_rate(sampleRate),
      m_channels(channels) {}

PieceSound::~PieceSound() = default;

Result<void> PieceSound::emit(const float* samples, size_t frames) {
    // A piece never runs past its share: the stretch may hand out a few samples too many.
    int64_t room = m_pieceEnd -
                   (m_produced + static_cast<int64_t>(m_ready.size() / m_channels - m_readyOffset));
    size_t keep = static_cast<size_t>(std::clamp<int64_t>(room, 0, static_cast<int64_t>(frames)));
    m_ready.insert(m_ready.end(), samples, samples + keep * m_channels);
    return {};
}

Result<void> PieceSound::readNextChunk() {
    const project::TimeSegment& piece = m_pieces[m_piece];
    auto sink = [this](const float* samples, size_t frames) { return emit(samples, frames); };
    if (!m_pieceStarted) {
        m_pieceStarted = true;
        m_readTo = piece.start;
        double outputEnd = m_pieceOutput + (piece.end - piece.start) / piece.speed;
        m_pieceEnd = static_cast<int64_t>(std::llround(outputEnd * m_rate));
        m_stretch.reset();
        if (std::abs(piece.speed - 1) > 1e-9) {
            auto stretch = media::TimeStretch::create(piece.speed, m_rate, m_channels);
            if (!stretch) {
                return stretch.error();
            }
            m_stretch = std::move(*stretch);
        }
    }
    if (m_readTo < piece.end) {
        double until = std::min(piece.end, m_readTo + kChunkSeconds);
        Result<void> failure;
        auto read = media::MovieReader::readSound(
            m_movie, {m_rate, m_channels}, m_readTo, until,
            [&](const float* samples, size_t frames) {
                failure =
                    m_stretch ? m_stretch->push(samples, frames, sink) : sink(samples, frames);
                return static_cast<bool>(failure);
            });
        if (!read) {
            return read.error();
        }
        if (!failure) {
            return failure;
        }
        m_readTo = until;
        return {};
    }
    // The piece is read: drain the stretch, then fill any shortfall with silence.
    if (m_stretch) {
        if (auto done = m_stretch->finish(sink); !done) {
            return done;
        }
        m_stretch.reset();
    }
    int64_t missing =
        m_pieceEnd -
        (m_produced + static_cast<int64_t>(m_ready.size() / m_channels - m_readyOffset));
    if (missing > 0) {
        m_ready.insert(m_ready.end(), static_cast<size_t>(missing) * m_channels, 0.0f);
    }
    m_pieceOutput += (piece.end - piece.start) / piece.speed;
    ++m_piece;
    m_pieceStarted = false;
    return {};
}

Result<void> PieceSound::produceUntil(int64_t end, const Sink& sink) {
    while (m_produced < end) {
        size_t available = m_ready.size() / m_channels - m_readyOffset;
        if (available > 0) {
            size_t count = static_cast<size_t>(std::min<int64_t>(available, end - m_produced));
            if (auto done = sink(m_ready.data() + m_readyOffset * m_channels, count); !done) {
                return done;
            }
            m_readyOffset += count;
            m_produced += static_cast<int64_t>(count);
            if (m_readyOffset * m_channels == m_ready.size()) {
                m_ready.clear();
                m_readyOffset = 0;
            }
            continue;
        }
        if (m_piece >= m_pieces.size()) {
            // Past the last piece (the video's last frame may outlast it): silence.
            std::vector<float> silence(static_cast<size_t>(end - m_produced) * m_channels, 0.0f);
            if (auto done = sink(silence.data(), static_cast<size_t>(end - m_produced)); !done) {
                return done;
            }
            m_produced = end;
            return {};
        }
        if (auto read = readNextChunk(); !read) {
            return read;
        }
    }
    return {};
}

}  // namespace quillo::render
