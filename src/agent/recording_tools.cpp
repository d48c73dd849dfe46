#include "recording_tools.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>

#include "agent_tools.h"
#include "render/image.h"

namespace quillo::agent::recording_tools {

Result<Content> status(const ToolContext& context, const Arguments&) {
    Studio& studio = *context.studio;
    Json status = studio.captureStatus();
    // Agent input and Interact arrive with background input; until then neither is offered.
    status["interact"] = {{"available", false}, {"enabled", false}};
    status["permissions"] = {{"screen", status["capture"] != "none"}, {"accessibility", false}};
    studio.onMain([&] {
        auto open = studio.openRecording();
        status["editor"] = open ? Json(*open) : Json(nullptr);
        status["options"] = optionsJson(studio.options());
    });
    return Content{jsonItem(status)};
}

Result<Content> chooseSource(const ToolContext& context, const Arguments& args) {
    TRY_ASSIGN(kind, args.string("kind"));
    if (kind != "window" && kind != "display") {
        return Arguments::invalid("kind");
    }
    TRY_ASSIGN(wait, args.optionalNumber("wait_seconds"));
    double seconds = std::clamp(wait.value_or(45), 1.0, 600.0);
    TRY_ASSIGN(status, context.studio->chooseSource(kind == "window", seconds));
    return Content{jsonItem(status)};
}

Result<Content> screenshot(const ToolContext& context, const Arguments&) {
    TRY_ASSIGN(image, context.studio->screenshot());
    TRY_ASSIGN(bytes, encodeJPEG(image));
    return Content{AgentTools::jpeg(bytes)};
}

Result<Content> start(const ToolContext& context, const Arguments&) {
    TRY_ASSIGN(status, context.studio->startRecording());
    return Content{jsonItem(status)};
}

Result<Content> stop(const ToolContext& context, const Arguments&) {
    TRY_ASSIGN(recording, context.studio->stopRecording());
    return Content{jsonItem(recording)};
}

Result<Content> setPaused(const ToolContext& context, const Arguments& args) {
    TRY_ASSIGN(paused, args.optionalBoolean("paused"));
    if (!paused) {
        return Arguments::invalid("paused");
    }
    TRY_ASSIGN(status, context.studio->setPaused(*paused));
    return Content{jsonItem(status)};
}

Result<Content> wait(const ToolContext&, const Arguments& args) {
    TRY_ASSIGN(how, args.number("seconds"));
    double seconds = std::clamp(how, 0.0, kWaitLimit);
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    char said[32];
    std::snprintf(said, sizeof said, "Waited %.1f s.", seconds);
    return Content{AgentTools::text(said)};
}

Result<Content> resizeWindow(const ToolContext& context, const Arguments& args) {
    TRY_ASSIGN(width, args.number("width"));
    TRY_ASSIGN(height, args.number("height"));
    if (!(width >= 100 && width <= 10000)) {
        return AppError("width must be between 100 and 10000 points.");
    }
    if (!(height >= 100 && height <= 10000)) {
        return AppError("height must be between 100 and 10000 points.");
    }
    TRY_ASSIGN(resized, context.studio->resizeWindow({width, height}));
    return Content{jsonItem(resized)};
}

Result<Content> shareWindow(const ToolContext& context, const Arguments& args) {
    TRY_ASSIGN(pid, args.optionalInteger("pid"));
    TRY_ASSIGN(title, args.optionalString("title"));
    if (!pid && !title) {
        return AppError("Give \"pid\", \"title\", or both.");
    }
    TRY_ASSIGN(status, context.studio->shareWindow(static_cast<int32_t>(pid.value_or(0)),
                                                   title.value_or("")));
    return Content{jsonItem(status)};
}

}  // namespace quillo::agent::recording_tools
