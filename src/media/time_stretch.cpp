#include "time_stretch.h"

#include <cmath>
#include <cstring>
#include <string>

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
}

#include "ffmpeg_util.h"

namespace quillo::media {

namespace {

void freeGraph(AVFilterGraph* graph) { avfilter_graph_free(&graph); }
using GraphPtr = CHandle<AVFilterGraph, freeGraph>;

AppError stretchError(const std::string& what, int code) {
    return AppError("The sound could not be sped up.", what + ": " + avError(code));
}

// "atempo=2,atempo=2,atempo=1.5" for 6×: each step stays within the filter's blending range.
std::string tempoChain(double speed) {
    std::string chain;
    auto add = [&](double factor) {
        if (!chain.empty()) {
            chain += ',';
        }
        chain += "atempo=" + std::to_string(factor);
    };
    while (speed > 2) {
        add(2);
        speed /= 2;
    }
    while (speed < 0.5) {
        add(0.5);
        speed /= 0.5;
    }
    add(speed);
    return chain;
}

}  // namespace

struct TimeStretch::Impl {
    GraphPtr graph{avfilter_graph_alloc()};
    AVFilterContext* source = nullptr;
    AVFilterContext* sink = nullptr;
    FramePtr input{av_frame_alloc()};
    FramePtr output{av_frame_alloc()};
    int sampleRate = 0;
    int channels = 0;
    int64_t pts = 0;

    Result<void> drain(const Sink& deliver) {
        for (;;) {
            int code = av_buffersink_get_frame(sink, output.get());
            if (code == AVERROR(EAGAIN) || code == AVERROR_EOF) {
                return {};
            }
            if (code < 0) {
                return stretchError("filter", code);
            }
            auto delivered = deliver(reinterpret_cast<const float*>(output->data[0]),
                                     static_cast<size_t>(output->nb_samples));
            av_frame_unref(output.get());
            if (!delivered) {
                return delivered;
            }
        }
    }
};

TimeStretch::TimeStretch(std::unique_ptr<Impl> impl) : m(std::move(impl)) {}
TimeStretch::~TimeStretch() = default;

Result<std::unique_ptr<TimeStretch>> TimeStretch::create(double speed, int sampleRate,
                                                         int channels) {
    if (!(speed > 0) || !std::isfinite(speed)) {
        return AppError("The sound could not be sped up.", "speed " + std::to_string(speed));
    }
    quietLibraryLogs();
    auto impl = std::make_unique<Impl>();
    impl->sampleRate = sampleRate;
    impl->channels = channels;
    AVFilterGraph* graph = impl->graph.get();
    if (graph == nullptr || !impl->input || !impl->output) {
        return stretchError("allocate", AVERROR(ENOMEM));
    }
    graph->nb_threads = 1;
    AVChannelLayout layout;
    av_channel_layout_default(&layout, channels);
    char layoutName[64] = {};
    av_channel_layout_describe(&layout, layoutName, sizeof layoutName);
    av_channel_layout_uninit(&layout);
    std::string args = "sample_rate=" + std::to_string(sampleRate) +
                       ":sample_fmt=flt:time_base=1/" + std::to_string(sampleRate) +
                       ":channel_layout=" + layoutName;
    int code = avfilter_graph_create_filter(&impl->source, avfilter_get_by_name("abuffer"), "in",
                                            args.c_str(), nullptr, graph);
    if (code < 0) {
        return stretchError("create the source", code);
    }
    code = avfilter_graph_create_filter(&impl->sink, avfilter_get_by_name("abuffersink"), "out",
                                        nullptr, nullptr, graph);
    if (code < 0) {
        return stretchError("create the sink", code);
    }
    const AVSampleFormat formats[] = {AV_SAMPLE_FMT_FLT, AV_SAMPLE_FMT_NONE};
    av_opt_set_int_list(impl->sink, "sample_fmts", formats, AV_SAMPLE_FMT_NONE,
                        AV_OPT_SEARCH_CHILDREN);

    AVFilterInOut* outputs = avfilter_inout_alloc();
    AVFilterInOut* inputs = avfilter_inout_alloc();
    outputs->name = av_strdup("in");
    outputs->filter_ctx = impl->source;
    inputs->name = av_strdup("out");
    inputs->filter_ctx = impl->sink;
    code = avfilter_graph_parse_ptr(graph, tempoChain(speed).c_str(), &inputs, &outputs, nullptr);
    avfilter_inout_free(&inputs);
    avfilter_inout_free(&outputs);
    if (code < 0) {
        return stretchError("build the filter", code);
    }
    if (code = avfilter_graph_config(graph, nullptr); code < 0) {
        return stretchError("configure the filter", code);
    }
    return std::unique_ptr<TimeStretch>(new TimeStretch(std::move(impl)));
}

Result<void> TimeStretch::push(const float* samples, size_t frames, const Sink& sink) {
    Impl& s = *m;
    if (frames == 0) {
        return {};
    }
    AVFrame* frame = s.input.get();
    frame->format = AV_SAMPLE_FMT_FLT;
    frame->sample_rate = s.sampleRate;
    av_channel_layout_default(&frame->ch_layout, s.channels);
    frame->nb_samples = static_cast<int>(frames);
    frame->pts = s.pts;
    s.pts += static_cast<int64_t>(frames);
    if (int code = av_frame_get_buffer(frame, 0); code < 0) {
        return stretchError("allocate", code);
    }
    std::memcpy(frame->data[0], samples, frames * s.channels * sizeof(float));
    int code = av_buffersrc_add_frame(s.source, frame);  // takes the frame's buffers
    av_frame_unref(frame);
    if (code < 0) {
        return stretchError("feed", code);
    }
    return s.drain(sink);
}

Result<void> TimeStretch::finish(const Sink& sink) {
    if (int code = av_buffersrc_add_frame(m->source, nullptr); code < 0) {
        return stretchError("end", code);
    }
    return m->drain(sink);
}

}  // namespace quillo::media
