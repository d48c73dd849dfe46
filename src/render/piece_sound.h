#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

#include "base/result.h"
#include "project/edits.h"

namespace quillo::media {
class TimeStretch;
}

namespace quillo::render {

// The finished video's sound, assembled from a recipe's kept pieces of the recording: cut
// stretches left out, sped-up stretches played faster at their own pitch. Every piece lasts
// exactly its share of output samples, so sound stays in step with the frames after any number
// of cuts. Produced in order and a second at a time, so memory stays flat.
class PieceSound {
public:
    using Sink = std::function<Result<void>(const float* samples, size_t frames)>;

    PieceSound(std::filesystem::path movie, std::vector<project::TimeSegment> pieces,
               int sampleRate, int channels);
    ~PieceSound();

    // Hands `sink` the output samples up to (not including) sample frame `end`.
    Result<void> produceUntil(int64_t end, const Sink& sink);
    int64_t produced() const { return m_produced; }

private:
    Result<void> readNextChunk();
    Result<void> emit(const float* samples, size_t frames);

    std::filesystem::path m_movie;
    std::vector<project::TimeSegment> m_pieces;
    int m_rate;
    int m_channels;

    size_t m_piece = 0;   // the piece being read
    double m_readTo = 0;  // recording time read so far within it
    bool m_pieceStarted = false;
    int64_t m_pieceEnd = 0;    // output sample at which the current piece ends
    double m_pieceOutput = 0;  // output time at which the current piece starts
    std::unique_ptr<media::TimeStretch> m_stretch;
    std::vector<float> m_ready;  // output samples waiting, interleaved
    size_t m_readyOffset = 0;    // frames of m_ready already handed out
    int64_t m_produced = 0;
};

}  // namespace quillo::render
