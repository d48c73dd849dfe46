#include "ffmpeg_util.h"

#include <algorithm>
#include <cstdarg>
#include <mutex>
#include <string>
#include <thread>

#include "base/log.h"

namespace quillo::media {

AppError unreadable(const std::filesystem::path& file, const std::string& reason) {
    return AppError("The movie “" + file.filename().string() + "” could not be read.", reason);
}

namespace {

// FFmpeg's messages, formatted as its own console output would be, into the log file. A
// message may arrive in pieces; a line is written when its newline comes.
void logLibraryLine(void* context, int level, const char* format, va_list arguments) {
    if (level > av_log_get_level()) {
        return;
    }
    thread_local int printPrefix = 1;
    thread_local std::string pending;
    char piece[1024];
    av_log_format_line2(context, level, format, arguments, piece, sizeof piece, &printPrefix);
    pending += piece;
    if (!pending.empty() && pending.back() == '\n') {
        pending.pop_back();
        logToFile("ffmpeg", pending);
        pending.clear();
    }
}

}  // namespace

void quietLibraryLogs() {
    static std::once_flag once;
    std::call_once(once, [] {
        av_log_set_level(AV_LOG_ERROR);
        av_log_set_callback(logLibraryLine);
    });
}

Result<InputPtr> openInput(const std::filesystem::path& file) {
    quietLibraryLogs();
    AVFormatContext* raw = nullptr;
    if (int code = avformat_open_input(&raw, file.c_str(), nullptr, nullptr); code < 0) {
        return unreadable(file, avError(code));
    }
    InputPtr input(raw);
    if (int code = avformat_find_stream_info(input.get(), nullptr); code < 0) {
        return unreadable(file, avError(code));
    }
    return input;
}

Result<CodecPtr> openDecoder(const std::filesystem::path& file, const AVStream* stream,
                             void (*configure)(AVCodecContext*)) {
    const AVCodec* codec = avcodec_find_decoder(stream->codecpar->codec_id);
    if (codec == nullptr) {
        return unreadable(
            file, "no decoder for " + std::string(avcodec_get_name(stream->codecpar->codec_id)));
    }
    CodecPtr context(avcodec_alloc_context3(codec));
    if (!context) {
        return unreadable(file, "out of memory");
    }
    if (int code = avcodec_parameters_to_context(context.get(), stream->codecpar); code < 0) {
        return unreadable(file, avError(code));
    }
    context->pkt_timebase = stream->time_base;
    // One thread per core. (FFmpeg's automatic choice adds one, and every frame thread holds
    // pictures of its own.)
    context->thread_count = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    context->thread_type = FF_THREAD_FRAME | FF_THREAD_SLICE;
    if (configure) {
        configure(context.get());
    }
    if (int code = avcodec_open2(context.get(), codec, nullptr); code < 0) {
        return unreadable(file, avError(code));
    }
    return context;
}

}  // namespace quillo::media
