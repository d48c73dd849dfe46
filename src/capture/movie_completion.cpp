#include "movie_completion.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "base/log.h"
#include "base/uuid.h"
#include "media/ffmpeg_util.h"
#include "media/movie_info.h"
#include "screen_recorder.h"

namespace quillo::capture {

namespace fs = std::filesystem;
using media::avError;

namespace {

constexpr const char* kNotRecovered = "The recording could not be recovered.";

std::string systemError(const std::string& what, int code) {
    return what + ": " + std::strerror(code);
}

// An output file being written; closes it and removes it unless it was kept.
struct Output {
    media::CHandle<AVFormatContext, avformat_free_context> context;
    fs::path path;
    bool kept = false;
    ~Output() {
        if (context && context->pb != nullptr) {
            avio_closep(&context->pb);
        }
        if (!kept) {
            std::error_code ignored;
            fs::remove(path, ignored);
        }
    }
};

// Flushes a file's or folder's contents to the disk; 0 or an errno.
int syncPath(const fs::path& path, int flags) {
    int fd = ::open(path.c_str(), flags | O_CLOEXEC);
    if (fd < 0) {
        return errno;
    }
    int code = ::fsync(fd) == 0 ? 0 : errno;
    ::close(fd);
    return code;
}

// Copies the packets of `input` into `output`'s streams (`map[i]` is the output index of input
// stream i, or -1). Reading stops at the end or at the first error: a recording cut short by a
// kill ends in a fragment whose data never reached the disk.
Result<void> copyPackets(AVFormatContext* input, AVFormatContext* output,
                         const std::vector<int>& map) {
    media::PacketPtr packet(av_packet_alloc());
    if (!packet) {
        return AppError({}, "out of memory");
    }
    for (;;) {
        int code = av_read_frame(input, packet.get());
        if (code < 0) {
            if (code != AVERROR_EOF) {
                logInfo("app.quillo.recorder", "reading stopped early: " + avError(code));
            }
            return {};
        }
        const int target = map[static_cast<size_t>(packet->stream_index)];
        if (target < 0 || (packet->flags & AV_PKT_FLAG_CORRUPT) != 0) {
            av_packet_unref(packet.get());
            continue;
        }
        av_packet_rescale_ts(packet.get(), input->streams[packet->stream_index]->time_base,
                             output->streams[target]->time_base);
        packet->stream_index = target;
        packet->pos = -1;
        code = av_interleaved_write_frame(output, packet.get());
        if (code < 0) {
            return AppError({}, "write: " + avError(code));
        }
    }
}

Result<void> remux(const fs::path& from, Output& to) {
    auto input = media::openInput(from);
    if (!input) {
        return AppError({}, input.error().detail);
    }
    AVFormatContext* raw = nullptr;
    if (int code = avformat_alloc_output_context2(&raw, nullptr, "mp4", to.path.c_str());
        code < 0) {
        return AppError({}, "create the container: " + avError(code));
    }
    to.context.reset(raw);
    AVFormatContext* in = input->get();
    std::vector<int> map(in->nb_streams, -1);
    int streams = 0;
    for (unsigned i = 0; i < in->nb_streams; ++i) {
        const AVStream* source = in->streams[i];
        const AVMediaType type = source->codecpar->codec_type;
        if (type != AVMEDIA_TYPE_VIDEO && type != AVMEDIA_TYPE_AUDIO) {
            continue;
        }
        AVStream* stream = avformat_new_stream(raw, nullptr);
        if (stream == nullptr) {
            return AppError({}, "add a stream: out of memory");
        }
        if (int code = avcodec_parameters_copy(stream->codecpar, source->codecpar); code < 0) {
            return AppError({}, "copy a stream: " + avError(code));
        }
        stream->codecpar->codec_tag = 0;
        stream->time_base = source->time_base;
        stream->avg_frame_rate = source->avg_frame_rate;
        stream->disposition = source->disposition;
        map[i] = streams++;
    }
    if (streams == 0) {
        return AppError({}, "no sound or video stream");
    }
    if (int code = avio_open(&raw->pb, to.path.c_str(), AVIO_FLAG_WRITE); code < 0) {
        return AppError({}, "open " + to.path.string() + ": " + avError(code));
    }
    AVDictionary* options = nullptr;
    av_dict_set(&options, "movflags", "+faststart", 0);
    int code = avformat_write_header(raw, &options);
    av_dict_free(&options);
    if (code < 0) {
        return AppError({}, "write the header: " + avError(code));
    }
    if (auto copied = copyPackets(in, raw, map); !copied) {
        return copied;
    }
    if (code = av_write_trailer(raw); code < 0) {
        return AppError({}, "write the index: " + avError(code));
    }
    if (code = avio_closep(&raw->pb); code < 0) {
        return AppError({}, "close the file: " + avError(code));
    }
    return {};
}

}  // namespace

bool isFragmentedMovie(const fs::path& file) {
    std::FILE* stream = std::fopen(file.c_str(), "rb");
    if (stream == nullptr) {
        return false;
    }
    bool fragmented = false;
    // Top-level boxes: a 32-bit size (1: a 64-bit size follows; 0: to the end) and a type. The
    // first "moof" decides; a normal movie has none, and walking it visits only a few boxes.
    for (;;) {
        std::array<unsigned char, 16> head{};
        if (std::fread(head.data(), 1, 8, stream) != 8) {
            break;
        }
        uint64_t size = (uint64_t{head[0]} << 24) | (uint64_t{head[1]} << 16) |
                        (uint64_t{head[2]} << 8) | head[3];
        uint64_t headSize = 8;
        if (size == 1) {
            if (std::fread(head.data() + 8, 1, 8, stream) != 8) {
                break;
            }
            size = 0;
            for (int i = 8; i < 16; ++i) {
                size = (size << 8) | head[static_cast<size_t>(i)];
            }
            headSize = 16;
        }
        if (std::memcmp(head.data() + 4, "moof", 4) == 0) {
            fragmented = true;
            break;
        }
        if (size < headSize || size - headSize > static_cast<uint64_t>(INT64_MAX) ||
            fseeko(stream, static_cast<off_t>(size - headSize), SEEK_CUR) != 0) {
            break;  // size 0 (the rest of the file) or a damaged box: no fragment follows
        }
    }
    std::fclose(stream);
    return fragmented;
}

Result<double> rewriteAsNormalMovie(const fs::path& file) {
    media::quietLibraryLogs();
    Output output;
    output.path =
        file.parent_path() / ("." + file.filename().string() + "." + makeUUID() + ".part");
    if (auto copied = remux(file, output); !copied) {
        return copied.error();
    }
    output.context.reset();
    if (int code = syncPath(output.path, O_RDONLY); code != 0) {
        return AppError({}, systemError("sync " + output.path.string(), code));
    }
    if (::rename(output.path.c_str(), file.c_str()) != 0) {
        return AppError({}, systemError("rename " + output.path.string(), errno));
    }
    output.kept = true;
    fs::path folder = file.parent_path().empty() ? fs::path(".") : file.parent_path();
    if (int code = syncPath(folder, O_RDONLY | O_DIRECTORY); code != 0) {
        logError("app.quillo.recorder", systemError("sync " + folder.string(), code));
    }
    auto info = media::readMovieInfo(file);
    if (!info) {
        return AppError({},
                        info.error().detail.empty() ? info.error().message : info.error().detail);
    }
    return info->duration;
}

Result<double> completeMovie(const fs::path& file) {
    if (!isFragmentedMovie(file)) {
        auto info = media::readMovieInfo(file);
        if (!info) {
            return AppError(kNotRecovered, info.error().detail.empty() ? info.error().message
                                                                       : info.error().detail);
        }
        return info->duration;
    }
    auto rewritten = rewriteAsNormalMovie(file);
    if (!rewritten) {
        return AppError(kNotRecovered, rewritten.error().detail);
    }
    return *rewritten;
}

}  // namespace quillo::capture
