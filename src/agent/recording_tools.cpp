#include "recording_tools.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>

#include "agent_tools.h"
#include "input_tools.h"
#include "render/image.h"
#include "tool_families.h"

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

namespace quillo::agent::families {

namespace fs = std::filesystem;
using editor::EditorModel;
using project::Edits;

namespace {

Result<Content> setOptions(Studio& studio, const Arguments& args) {
    TRY_ASSIGN(microphone, args.optionalBoolean("microphone"));
    TRY_ASSIGN(systemAudio, args.optionalBoolean("system_audio"));
    TRY_ASSIGN(countdown, args.optionalInteger("countdown"));
    TRY_ASSIGN(smoothCursor, args.optionalBoolean("smooth_cursor"));
    TRY_ASSIGN(autoPolish, args.optionalBoolean("auto_polish"));
    TRY_ASSIGN(stepAside, args.optionalBoolean("step_aside"));
    TRY_ASSIGN(floatingControls, args.optionalBoolean("floating_controls"));
    if (countdown && *countdown != 0 && *countdown != 3 && *countdown != 5 && *countdown != 10) {
        return AppError(texts::kCountdownChoices);
    }
    Result<Content> result = AppError("");
    studio.onMain([&] {
        RecordingOptions options = studio.options();
        options.microphone = microphone.value_or(options.microphone);
        options.systemAudio = systemAudio.value_or(options.systemAudio);
        options.countdown = countdown.value_or(options.countdown);
        options.smoothCursor = smoothCursor.value_or(options.smoothCursor);
        options.autoPolish = autoPolish.value_or(options.autoPolish);
        options.stepAside = stepAside.value_or(options.stepAside);
        options.floatingControls = floatingControls.value_or(options.floatingControls);
        auto stored = studio.setOptions(options);
        result = stored ? Result<Content>(Content{jsonItem({{"options", optionsJson(options)}})})
                        : Result<Content>(stored.error());
    });
    return result;
}

}  // namespace

void addCaptureTools(const AddTool& add, const ToolContext& context) {
    using namespace schema;
    const std::shared_ptr<Studio>& studio = context.studio;
    const Json id = recordingId();
    const Json seconds = number("Seconds.");

    // --- status, source and looking
    add("get_status",
        "Recording state, the shared source and its screenshot size, Interact and permission "
        "state, recording options, and the recording open in the editor.",
        Json::object(), {},
        [context](const Arguments& args) { return recording_tools::status(context, args); });
    add("choose_source",
        "Opens the sharing picker so the user can pick the window or display to work with, "
        "then waits for their choice.",
        {{"kind", string("What to share.", {"window", "display"})},
         {"wait_seconds", number("How long to wait for the user (default 45).")}},
        {"kind"},
        [context](const Arguments& args) { return recording_tools::chooseSource(context, args); });
    add("screenshot",
        "A current image of the shared window or display. Input tools take pixel coordinates "
        "in this image.",
        Json::object(), {},
        [context](const Arguments& args) { return recording_tools::screenshot(context, args); });
    add("ui_elements",
        "Buttons, links, fields, menus, and text in the shared source with their frames in "
        "screenshot pixels: click the center of an element to hit it exactly.",
        {{"limit", integer("Most elements to list (default 200).")},
         {"filter", string("Only elements whose role or label contains this text.")}},
        {}, [context](const Arguments& args) { return input_tools::uiElements(context, args); });

    // --- input
    const Json x = number("Pixels from the left of the screenshot.");
    const Json y = number("Pixels from the top of the screenshot.");
    add("click", "Clicks at a point in the shared source, in the background.",
        {{"x", x},
         {"y", y},
         {"button", string("Mouse button (default left).", {"left", "right"})},
         {"count", integer("2 for a double-click (default 1).")},
         {"modifiers", modifiers()}},
        {"x", "y"}, [context](const Arguments& args) { return input_tools::click(context, args); });
    add("move_pointer",
        "Moves the visible AI cursor and hovers in the shared app without moving the desktop "
        "mouse. Text inputs show an I-beam.",
        {{"x", x}, {"y", y}, {"duration", number("Move duration in seconds, 0–3 (default 0.25).")}},
        {"x", "y"},
        [context](const Arguments& args) { return input_tools::movePointer(context, args); });
    add("drag",
        "Presses at one point, drags to another, and releases (sliders, selections, "
        "reordering).",
        {{"from_x", number("Pixels from the left of the screenshot.")},
         {"from_y", number("Pixels from the top of the screenshot.")},
         {"to_x", number("Pixels from the left of the screenshot.")},
         {"to_y", number("Pixels from the top of the screenshot.")},
         {"steps", integer("Intermediate moves (default 20).")}},
        {"from_x", "from_y", "to_x", "to_y"},
        [context](const Arguments& args) { return input_tools::drag(context, args); });
    add("scroll",
        "Scrolls whatever is under a point. Positive delta_y scrolls down (reveals content "
        "below); positive delta_x scrolls right.",
        {{"x", x},
         {"y", y},
         {"delta_y", number("Pixels to scroll down (negative scrolls up).")},
         {"delta_x", number("Pixels to scroll right (negative scrolls left).")}},
        {"x", "y", "delta_y", "delta_x"},
        [context](const Arguments& args) { return input_tools::scroll(context, args); });
    add("type_text",
        "Types text into the app (into whatever was last clicked). Use \\n for Return. Quick by "
        "default; give wpm or delay_ms to type at a human pace on camera.",
        {{"text", string("Text to type.")},
         {"wpm", number("Typing speed in words per minute, 5–300 (e.g. 40 calm, 60 normal).")},
         {"delay_ms", number("Milliseconds between characters, 0–1000 (overrides wpm).")}},
        {"text"},
        [context](const Arguments& args) { return input_tools::typeText(context, args); });
    add("press_key",
        "Presses a key, optionally with modifiers (e.g. key \"l\" with [\"command\"], or "
        "\"escape\", \"return\", \"tab\", \"down\").",
        {{"key", string(std::string("A letter, digit, or one of: ") + texts::kNamedKeys)},
         {"modifiers", modifiers()}},
        {"key"}, [context](const Arguments& args) { return input_tools::pressKey(context, args); });
    add("resize_window",
        "Resizes the shared window (window sources only) so takes have a "
        "consistent size.",
        {{"width", number("Points.")}, {"height", number("Points.")}}, {"width", "height"},
        [context](const Arguments& args) { return recording_tools::resizeWindow(context, args); });

    // --- recording
    add("set_options", "Recording options. Only the ones given change.",
        {{"microphone", boolean("Record the microphone.")},
         {"system_audio", boolean("Record app and system sound.")},
         {"countdown", integer("Seconds of countdown before recording: 0, 3, 5, or 10.")},
         {"smooth_cursor",
          boolean("Record the cursor separately so the editor can smooth and resize it.")},
         {"auto_polish",
          boolean("Give new recordings automatic zooms, click highlights, and a backdrop.")},
         {"step_aside", boolean("Switch to the recorded app when recording starts.")},
         {"floating_controls", boolean("Show the floating stop/pause pill while recording.")}},
        {}, [studio](const Arguments& args) { return setOptions(*studio, args); });
    add("start_recording",
        "Starts recording the shared source (after the countdown) and returns once it's "
        "rolling.",
        Json::object(), {},
        [context](const Arguments& args) { return recording_tools::start(context, args); });
    add("stop_recording",
        "Stops recording, waits for the video to be saved, and returns the new recording.",
        Json::object(), {},
        [context](const Arguments& args) { return recording_tools::stop(context, args); });
    add("set_paused",
        "Pauses or resumes the recording. Paused stretches are cut from the video "
        "automatically.",
        {{"paused", boolean("True to pause, false to resume.")}}, {"paused"},
        [context](const Arguments& args) { return recording_tools::setPaused(context, args); });
    add("wait",
        "Waits, on camera when recording, so viewers can follow or the app can finish "
        "something. At most " +
            std::to_string(static_cast<int>(recording_tools::kWaitLimit)) + " seconds.",
        {{"seconds", number("How long")}}, {"seconds"},
        [context](const Arguments& args) { return recording_tools::wait(context, args); });

    // --- self-test
    add("share_window",
        "Self-test only: shares an on-screen window by its app's process id and/or title, "
        "without the sharing picker.",
        {{"pid", integer("Owning process id.")}, {"title", string("Part of the window's title.")}},
        {},
        [context](const Arguments& args) { return recording_tools::shareWindow(context, args); });
}

}  // namespace quillo::agent::families
